#include "imaging/bitmap.h"

#include <gtest/gtest.h>

namespace {

TEST(Bitmap, EmptyImageHasNoBufferAndNoRows) {
  img::bitmap<img::rgba32> b;
  EXPECT_EQ(b.data, nullptr);
  EXPECT_TRUE(b.rows.empty());
  EXPECT_EQ(b.size, 0u);
  EXPECT_EQ(b.alignment, 4u);
}

TEST(Bitmap, StrideFollowsAlignment) {
  img::bitmap<img::rgb24> rgb;
  rgb.resize(3, 2, 4);
  EXPECT_EQ(rgb.stride, 12u);
  rgb.resize(3, 2, 1);
  EXPECT_EQ(rgb.stride, 9u);
  img::bitmap<img::bit1> mask;
  mask.resize(9, 1, 4);
  EXPECT_EQ(mask.stride, 4u);
  mask.resize(9, 1, 1);
  EXPECT_EQ(mask.stride, 2u);
}

}  // namespace
