// SPDX-License-Identifier: GPL-3.0-or-later
#include "tracking/polynomial.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace tracking {

namespace {

// Roots of y² + B y + C, in the form that avoids cancellation.
void AddQuadraticRoots(double B, double C, double shift, RealRoots& out) {
  const double disc = B * B - 4 * C;
  if (disc < 0) return;
  const double root = std::sqrt(disc);
  const double q = -0.5 * (B + (B >= 0 ? root : -root));
  if (q == 0) {  // B = C = 0: a double root at 0
    out.value[out.count++] = shift;
    out.value[out.count++] = shift;
    return;
  }
  out.value[out.count++] = q + shift;
  out.value[out.count++] = C / q + shift;
}

}  // namespace

RealRoots SolveCubic(double a, double b, double c) {
  RealRoots out;
  const double shift = -a / 3;
  const double p = b - a * a / 3;
  const double q = 2 * a * a * a / 27 - a * b / 3 + c;
  const double half_q = q / 2, third_p = p / 3;
  const double disc = half_q * half_q + third_p * third_p * third_p;
  if (disc > 0) {
    // One real root. Take the cube root of the larger-magnitude term and
    // derive the other from u v = -p / 3, avoiding cancellation.
    const double root = std::sqrt(disc);
    const double u = std::cbrt(-half_q + (half_q > 0 ? -root : root));
    const double t = u == 0 ? 0 : u - third_p / u;
    out.value[out.count++] = t + shift;
    return out;
  }
  if (p == 0) {  // then q = 0 too: a triple root
    for (int k = 0; k < 3; ++k) out.value[out.count++] = shift;
    return out;
  }
  const double r = 2 * std::sqrt(-third_p);
  const double arg = std::clamp(3 * q / (2 * p) * std::sqrt(-3 / p), -1.0, 1.0);
  const double phi = std::acos(arg) / 3;
  for (int k = 0; k < 3; ++k)
    out.value[out.count++] = r * std::cos(phi - 2 * std::numbers::pi * k / 3) + shift;
  return out;
}

RealRoots SolveQuartic(double a, double b, double c, double d) {
  RealRoots out;
  const double shift = -a / 4;
  const double a2 = a * a;
  const double p = b - 3 * a2 / 8;
  const double q = c - a * b / 2 + a2 * a / 8;
  const double r = d - a * c / 4 + a2 * b / 16 - 3 * a2 * a2 / 256;

  if (q != 0) {
    // Resolvent: m³ + p m² + (p²/4 - r) m - q²/8 = 0. With q ≠ 0 it has a
    // positive root; the largest is the best conditioned.
    const RealRoots res = SolveCubic(p, p * p / 4 - r, -q * q / 8);
    const double m = *std::max_element(res.begin(), res.end());
    if (m > 0) {
      const double s = std::sqrt(2 * m);
      const double k = q / (2 * s);
      AddQuadraticRoots(-s, p / 2 + m + k, shift, out);
      AddQuadraticRoots(s, p / 2 + m - k, shift, out);
      return out;
    }
  }
  // Biquadratic: z² + p z + r = 0 with z = y².
  RealRoots z;
  AddQuadraticRoots(p, r, 0, z);
  for (const double zi : z) {
    if (zi < 0) continue;
    const double y = std::sqrt(zi);
    out.value[out.count++] = y + shift;
    out.value[out.count++] = -y + shift;
  }
  return out;
}

}  // namespace tracking
