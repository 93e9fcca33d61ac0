#include "imaging/bitmap.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

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

namespace {

// Fills every pixel byte of every row with a value unique to its position.
template <class Kind>
void Paint(img::bitmap<Kind>& b) {
  const size_t n = size_t(Kind::row_bytes(b.width));
  for (uint32_t y = 0; y < b.height; ++y)
    for (size_t i = 0; i < n; ++i) b.rows[y][i] = uint8_t(y * 16 + i + 1);
}

template <class Kind>
bool HasPaint(const img::bitmap<Kind>& b) {
  const size_t n = size_t(Kind::row_bytes(b.width));
  for (uint32_t y = 0; y < b.height; ++y)
    for (size_t i = 0; i < n; ++i)
      if (b.rows[y][i] != uint8_t(y * 16 + i + 1)) return false;
  return true;
}

TEST(Bitmap, ResizeWithSameArgumentsKeepsBufferAndPixels) {
  img::bitmap<img::rgb24> b(3, 2, 4);
  Paint(b);
  uint8_t* before = b.data;
  b.resize(3, 2, 4);
  EXPECT_EQ(b.data, before);
  EXPECT_TRUE(HasPaint(b));
}

TEST(Bitmap, AlignmentOnlyChangeKeepsPixelsInANewBuffer) {
  for (uint32_t top_down : {0u, 1u}) {
    img::bitmap<img::rgb24> b;
    b.set_top_down(top_down);
    b.resize(3, 2, 4);
    Paint(b);
    b.resize(3, 2, 1);
    EXPECT_EQ(b.stride, 9u);
    EXPECT_EQ(b.size, 18u);
    EXPECT_TRUE(HasPaint(b)) << "top_down " << top_down;
    b.resize(3, 2, 4);
    EXPECT_TRUE(HasPaint(b)) << "top_down " << top_down;
  }
}

TEST(Bitmap, EqualByteSizeKeepsTheBuffer) {
  img::bitmap<img::rgba32> b(4, 2, 4);
  uint8_t* before = b.data;
  b.resize(2, 4, 4);
  EXPECT_EQ(b.data, before);
  EXPECT_EQ(b.rows[3], b.data + 8 * 3);
}

TEST(Bitmap, ZeroSizeReleasesThePixels) {
  img::bitmap<img::grey8> b(5, 3, 4);
  b.resize(0, 0, 4);
  EXPECT_EQ(b.data, nullptr);
  EXPECT_TRUE(b.rows.empty());
  EXPECT_EQ(b.size, 0u);
}

TEST(Bitmap, TopDownFlagReinterpretsTheBufferUpsideDown) {
  img::bitmap<img::grey8> b(1, 3, 4);
  Paint(b);  // buffer lines hold 1, 17, 33
  b.set_top_down(0);
  EXPECT_EQ(b.rows[0], b.data + 2 * b.stride);
  EXPECT_EQ(b.rows[0][0], 33);
  EXPECT_EQ(b.rows[2][0], 1);
  EXPECT_EQ(b.data[0], 1);  // no byte moved
}

TEST(Bitmap, CopyOfBottomUpIntoTopDownReversesBufferLines) {
  img::bitmap<img::rgb24> src;
  src.set_top_down(0);
  src.resize(2, 3, 4);
  Paint(src);
  img::bitmap<img::rgb24> dst;  // top_down 1
  dst = src;
  EXPECT_EQ(dst.top_down, 1u);
  EXPECT_TRUE(HasPaint(dst));  // same picture
  for (uint32_t line = 0; line < 3; ++line)
    EXPECT_EQ(0, std::memcmp(dst.data + line * dst.stride, src.data + (2 - line) * src.stride, 6));
}

TEST(Bitmap, CopyDropsRowPaddingOfTheSource) {
  img::bitmap<img::rgb24> src(3, 2, 8);  // stride 16
  Paint(src);
  img::bitmap<img::rgb24> dst(3, 2, 1);  // same size: keeps alignment 1
  dst = src;
  EXPECT_EQ(dst.stride, 9u);
  EXPECT_TRUE(HasPaint(dst));
  img::bitmap<img::rgb24> fresh(src);
  EXPECT_NE(fresh.data, src.data);
  EXPECT_TRUE(HasPaint(fresh));
}

TEST(Bitmap, CopyOfZeroWidthImageTouchesNoRow) {
  img::bitmap<img::rgba32> src;
  src.set_top_down(0);
  src.resize(0, 3, 4);
  img::bitmap<img::rgba32> dst;
  dst = src;  // row by row, every row pointer null
  EXPECT_EQ(dst.rows.size(), 3u);
  EXPECT_EQ(dst.data, nullptr);
}

TEST(Bitmap, Rgb16ExpandsFiveBitChannels) {
  img::bitmap<img::rgb16> src(3, 1, 4);
  const uint16_t words[3] = {0x7FFF, 0x8421 /* 1,1,1 and bit 15 */, 0x7C00 | (3 << 5) | 30};
  for (int x = 0; x < 3; ++x) {
    src.rows[0][2 * x] = uint8_t(words[x]);
    src.rows[0][2 * x + 1] = uint8_t(words[x] >> 8);
  }
  img::image dst;
  img::convert_to_rgba32(dst, src);
  const uint8_t expected[12] = {255, 255, 255, 0, 8, 8, 8, 0, 246, 24, 255, 0};
  EXPECT_EQ(0, std::memcmp(dst.rows[0], expected, 12));
}

TEST(Bitmap, ConversionsKeepDestinationRowOrderAndPicture) {
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
