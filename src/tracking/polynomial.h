// SPDX-License-Identifier: GPL-3.0-or-later
// Real roots of monic cubics and quartics in closed form.
//
// The rigid optic-flow solver needs the Lagrange multiplier of a quadratic
// form on the unit circle: a quartic, solved exactly through its resolvent
// cubic rather than iterated, so that one step costs the same every time.
#pragma once

#include <cstddef>

namespace tracking {

struct RealRoots {
  double value[4] = {0, 0, 0, 0};
  size_t count = 0;
  const double* begin() const { return value; }
  const double* end() const { return value + count; }
};

// x³ + a x² + b x + c = 0. One or three roots (a double root is listed
// twice), from the depressed cubic: Cardano's formula for one real root,
// the trigonometric form for three.
RealRoots SolveCubic(double a, double b, double c);

// x⁴ + a x³ + b x² + c x + d = 0, by Ferrari's method: the depressed quartic
// splits into two quadratics through the largest root of the resolvent
// cubic. Zero, two or four roots; a quadratic with a negative discriminant
// contributes none.
RealRoots SolveQuartic(double a, double b, double c, double d);

}  // namespace tracking
