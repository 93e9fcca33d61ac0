// SPDX-License-Identifier: GPL-3.0-or-later
#include "tracking/unit_circle.h"

#include <cmath>

#include "tracking/polynomial.h"

namespace tracking {

bool MinimiseOnUnitCircle(double s00, double s01, double s11, double b0, double b1, double w[2]) {
  // Eigen-decomposition by one rotation: q1 = (cos θ, sin θ), q2 = (-sin θ, cos θ).
  const double theta = 0.5 * std::atan2(2 * s01, s00 - s11);
  const double c = std::cos(theta), s = std::sin(theta);
  const double q1[2] = {c, s}, q2[2] = {-s, c};
  const double e1 = s00 * c * c + 2 * s01 * c * s + s11 * s * s;
  const double e2 = s00 * s * s - 2 * s01 * c * s + s11 * c * c;

  // -b in the eigenbasis.
  const double p1 = -(q1[0] * b0 + q1[1] * b1);
  const double p2 = -(q2[0] * b0 + q2[1] * b1);

  // The multiplier λ of S w - b = λ w with |w| = 1:
  // p1² / (λ - e1)² + p2² / (λ - e2)² = 1, multiplied out.
  const double p1s = p1 * p1, p2s = p2 * p2, e1s = e1 * e1, e2s = e2 * e2;
  const RealRoots roots =
      SolveQuartic(-2 * (e1 + e2), e1s + e2s + 4 * e1 * e2 - p1s - p2s,
                   2 * ((p2s - e2s) * e1 + (p1s - e1s) * e2), e1s * e2s - p1s * e2s - p2s * e1s);

  bool found = false;
  double best = 0;
  for (const double lambda : roots) {
    const double k1 = p1 / (lambda - e1), k2 = p2 / (lambda - e2);
    const double x = k1 * q1[0] + k2 * q2[0];
    const double y = k1 * q1[1] + k2 * q2[1];
    // When b lies along an eigenvector, p1 or p2 is zero up to rounding and
    // the quartic shows a double root at that eigenvalue which the exact
    // equation does not have; its w is arbitrary and off the circle.
    if (!(std::fabs(x * x + y * y - 1) <= 1e-6)) continue;
    // The value of the form at this w, up to a constant.
    const double value = p1 * (x * q1[0] + y * q1[1]) + p2 * (x * q2[0] + y * q2[1]) + lambda;
    if (!found || value < best) {
      found = true;
      best = value;
      w[0] = x;
      w[1] = y;
    }
  }
  return found;
}

}  // namespace tracking
