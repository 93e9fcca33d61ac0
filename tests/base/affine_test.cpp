// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/affine.h"

#include <sstream>

#include <gtest/gtest.h>

namespace {

using types::affine;

TEST(Affine, CompositionAppliesRightOperandFirst) {
  const affine scale{0, 0, 2, 0, 0, 3};
  const affine shift = affine::translation(5, -1);
  double qx, qy;
  (shift * scale).apply(1, 1, qx, qy);  // scale first: (2, 3), then shift
  EXPECT_EQ(qx, 7);
  EXPECT_EQ(qy, 2);
  (scale * shift).apply(1, 1, qx, qy);  // shift first: (6, 0), then scale
  EXPECT_EQ(qx, 12);
  EXPECT_EQ(qy, 0);
}

TEST(Affine, InverseUndoesTheMap) {
  const affine m{3.5, -2.25, 1.2, 0.3, -0.4, 0.9};
  const affine r = m.inverse() * m;
  for (double affine::*field :
       {&affine::xx, &affine::xy, &affine::yx, &affine::yy, &affine::x, &affine::y})
    EXPECT_NEAR(r.*field, affine::identity().*field, 1e-14);
}

TEST(Affine, LogFormListsLinearPartThenTranslation) {
  std::ostringstream out;
  out << affine{10, 20, 1.5, 2, 3, 4.25};
  EXPECT_EQ(out.str(), "1.5 2 3 4.25 10 20");
}

}  // namespace
