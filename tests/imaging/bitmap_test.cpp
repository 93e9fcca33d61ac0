// SPDX-License-Identifier: GPL-3.0-or-later
#include "imaging/bitmap.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace {

// Fills every pixel byte of every row with a value unique to its position.
template <class Kind>
void Paint(img::bitmap<Kind>& b) {
  for (uint32_t y = 0; y < b.height; ++y)
    for (size_t i = 0; i < size_t(Kind::row_bytes(b.width)); ++i)
      b.rows[y][i] = uint8_t(y * 16 + i + 1);
}

template <class Kind>
bool HasPaint(const img::bitmap<Kind>& b) {
  for (uint32_t y = 0; y < b.height; ++y)
    for (size_t i = 0; i < size_t(Kind::row_bytes(b.width)); ++i)
      if (b.rows[y][i] != uint8_t(y * 16 + i + 1)) return false;
  return true;
}

TEST(Bitmap, StrideFollowsAlignment) {
  EXPECT_EQ(img::bitmap<img::rgb24>(3, 2, 4).stride, 12u);
  EXPECT_EQ(img::bitmap<img::rgb24>(3, 2, 1).stride, 9u);
  EXPECT_EQ(img::bitmap<img::bit1>(9, 1, 4).stride, 4u);
  EXPECT_EQ(img::bitmap<img::bit1>(9, 1, 1).stride, 2u);
}

// The buffer is kept while its byte size stays; pixels survive a change of
// alignment alone, in either row order; size 0 releases everything.
TEST(Bitmap, ResizeKeepsWhatItCan) {
  for (uint32_t top_down : {0u, 1u}) {
    img::bitmap<img::rgb24> b;
    b.set_top_down(top_down);
    b.resize(3, 2, 4);
    Paint(b);
    uint8_t* before = b.data;
    b.resize(3, 2, 4);
    EXPECT_EQ(b.data, before);
    b.resize(3, 2, 1);
    EXPECT_EQ(b.size, 18u);
    EXPECT_TRUE(HasPaint(b)) << "top_down " << top_down;
    b.resize(3, 2, 4);
    EXPECT_TRUE(HasPaint(b)) << "top_down " << top_down;
    b.resize(0, 0, 4);
    EXPECT_EQ(b.data, nullptr);
    EXPECT_TRUE(b.rows.empty());
    EXPECT_EQ(b.size, 0u);
  }
  img::bitmap<img::rgba32> b(4, 2, 4);
  uint8_t* before = b.data;
  b.resize(2, 4, 4);
  EXPECT_EQ(b.data, before);
  EXPECT_EQ(b.rows[3], b.data + 8 * 3);
}

TEST(Bitmap, TopDownFlagReinterpretsTheBufferUpsideDown) {
  img::bitmap<img::grey8> b(1, 3, 4);
  Paint(b);  // buffer lines hold 1, 17, 33
  b.set_top_down(0);
  EXPECT_EQ(b.rows[0], b.data + 2 * b.stride);
  EXPECT_EQ(b.rows[0][0], 33);
  EXPECT_EQ(b.data[0], 1);  // no byte moved
}

// A copy keeps the picture: the destination's row order and alignment stay,
// the source's padding does not come along, and zero-width rows are skipped.
TEST(Bitmap, CopyKeepsThePicture) {
  img::bitmap<img::rgb24> src;
  src.set_top_down(0);
  src.resize(2, 3, 8);
  Paint(src);
  img::bitmap<img::rgb24> dst(2, 3, 1);  // top-down, same size: keeps alignment 1
  dst = src;
  EXPECT_EQ(dst.top_down, 1u);
  EXPECT_EQ(dst.stride, 6u);
  EXPECT_TRUE(HasPaint(dst));
  for (uint32_t line = 0; line < 3; ++line)
    EXPECT_EQ(0, std::memcmp(dst.data + line * 6, src.data + (2 - line) * src.stride, 6));
  img::bitmap<img::rgb24> fresh(src);
  EXPECT_NE(fresh.data, src.data);
  EXPECT_TRUE(HasPaint(fresh));

  img::bitmap<img::rgba32> empty, none;
  empty.set_top_down(0);
  empty.resize(0, 3, 4);
  none = empty;  // row by row, every row pointer null
  EXPECT_EQ(none.rows.size(), 3u);
  EXPECT_EQ(none.data, nullptr);
}

TEST(Bitmap, Conversions) {
  img::bitmap<img::rgb16> wide(3, 1, 4);
  const uint16_t words[3] = {0x7FFF, 0x8421 /* 1,1,1 and bit 15 */, 0x7C00 | (3 << 5) | 30};
  std::memcpy(wide.rows[0], words, 6);
  img::image dst;
  img::convert_to_rgba32(dst, wide);  // five bits widen by their top bits
  const uint8_t expected[12] = {255, 255, 255, 0, 8, 8, 8, 0, 246, 24, 255, 0};
  EXPECT_EQ(0, std::memcmp(dst.rows[0], expected, 12));

  img::bitmap<img::rgb24> src(2, 2, 4);
  Paint(src);
  img::image rgba;
  rgba.set_top_down(0);
  img::convert_to_rgba32(rgba, src);
  EXPECT_EQ(rgba.top_down, 0u);
  EXPECT_EQ(rgba.rows[1][4 + 1], src.rows[1][3 + 1]);
  EXPECT_EQ(rgba.rows[1][4 + 3], 0);
  img::bitmap<img::rgb24> back;
  img::convert_to_rgb24(back, rgba);
  EXPECT_TRUE(HasPaint(back));
}

TEST(Bitmap, WrapsAForeignBufferWithoutFreeingIt) {
  std::vector<uint8_t> foreign(2 * 10, 7);
  {
    img::bitmap<img::grey8> b;
    b.wrap(foreign.data(), 6, 2, 10, 0);
    EXPECT_FALSE(b.owns_data);
    EXPECT_EQ(b.size, 20u);
    EXPECT_EQ(b.rows[0], foreign.data() + 10);
    b.rows[0][0] = 9;
    b.resize(6, 2, 4);  // leaves the foreign buffer, keeps the pixels
    EXPECT_TRUE(b.owns_data);
    EXPECT_NE(b.data, foreign.data());
    EXPECT_EQ(b.rows[0][0], 9);
    b.wrap(foreign.data(), 6, 2, 10, 1);  // frees its own buffer, adopts nothing
  }
  EXPECT_EQ(foreign[10], 9);
  img::bitmap<img::rgba32> c;
  EXPECT_THROW(c.wrap(foreign.data(), 6, 2, 10, 1), std::invalid_argument);
}

TEST(Bitmap, SizesPast32BitsFailAndLeaveTheImageAlone) {
  img::bitmap<img::rgba32> b(2, 2, 4);
  uint8_t* before = b.data;
  EXPECT_THROW(b.resize(65536, 16384, 4), img::image_too_large);
  EXPECT_THROW(b.resize(0x40000000, 1, 4), img::image_too_large);
  EXPECT_EQ(b.data, before);
  EXPECT_EQ(b.width, 2u);
  EXPECT_EQ(b.rows.size(), 2u);
}

}  // namespace
