// Matrices built from known parameters, for checking decompositions and
// applicators against an independent construction.
#pragma once

#include <cmath>

#include "base/affine.h"

namespace motions {

inline types::affine Linear(double a, double b, double c, double d) {
  return {0, 0, a, b, c, d};
}

inline types::affine Rotation(double r) {
  return Linear(std::cos(r), -std::sin(r), std::sin(r), std::cos(r));
}

inline types::affine Scale(double sx, double sy) {
  return Linear(sx, 0, 0, sy);
}

// x stays, y moves by tangent * x.
inline types::affine VerticalShear(double tangent) {
  return Linear(1, 0, tangent, 1);
}

// I + k (sin phi, cos phi)(cos phi, -sin phi)^T: a skew of tangent k along
// the axis phi, as the host's "Transform" effect applies it.
inline types::affine AxisSkew(double k, double phi) {
  const double s = std::sin(phi), c = std::cos(phi);
  return Linear(1 + k * s * c, -k * s * s, k * c * c, 1 - k * s * c);
}

// `linear` about the point (cx, cy), which then moves to (px, py).
inline types::affine About(
    const types::affine& linear, double cx, double cy, double px, double py) {
  types::affine m = linear;
  m.x = px - (linear.xx * cx + linear.xy * cy);
  m.y = py - (linear.yx * cx + linear.yy * cy);
  return m;
}

}  // namespace motions
