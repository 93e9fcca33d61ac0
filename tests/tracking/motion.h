// SPDX-License-Identifier: GPL-3.0-or-later
// Known motions for the tracking suites.
#pragma once

#include <cmath>
#include <numbers>

#include <gtest/gtest.h>

#include "base/affine.h"

namespace tracking_test {

// A rotation by `degrees` with a uniform `scale`, then the shift (tx, ty).
inline types::affine Rotation(double degrees, double scale, double tx, double ty) {
  const double r = degrees * std::numbers::pi / 180, c = scale * std::cos(r),
               s = scale * std::sin(r);
  return {tx, ty, c, -s, s, c};
}

// Expects the linear parts within `matrix_tol` and the shifts within
// `shift_tol` of each other.
inline void ExpectNear(const types::affine& a,
                       const types::affine& b,
                       double matrix_tol,
                       double shift_tol) {
  EXPECT_NEAR(a.xx, b.xx, matrix_tol) << a << "\n" << b;
  EXPECT_NEAR(a.xy, b.xy, matrix_tol);
  EXPECT_NEAR(a.yx, b.yx, matrix_tol);
  EXPECT_NEAR(a.yy, b.yy, matrix_tol);
  EXPECT_NEAR(a.x, b.x, shift_tol);
  EXPECT_NEAR(a.y, b.y, shift_tol);
}

}  // namespace tracking_test
