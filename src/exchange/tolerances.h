// SPDX-License-Identifier: GPL-3.0-or-later
// Thinning tolerances of the applicators' lists, from the admissible
// inaccuracy e in pixels and the model's weight w.
//
// The weight shares e among the parameters whose errors add up in one pixel;
// each tolerance turns a pixel distance into the unit of its list: a
// rotation by d moves a corner by d hyp/2, a scale change by d moves an edge
// by d extent/2. An e of 0 makes every tolerance 0, which keeps every key.
#pragma once

#include <cmath>

// Positions (pixels): w e.
inline float PositionTolerance(float w, float e) {
  return w * e;
}

// Angles (radians), for ThinAngles: (w sqrt2 / hypot(W, H)) e. The sqrt2
// answers for the angle error 1 - cos d being about d^2 / 2.
inline float RotationTolerance(float w, float e, int width, int height) {
  const double hyp = std::hypot(double(width), double(height));
  return float(w * std::sqrt(2.0) / hyp * e);
}

// Scales, skew tangents and skews (1 = the frame's extent): (2w / extent) e.
inline float ScaleTolerance(float w, float e, double extent) {
  return float(2 * w / extent * e);
}
