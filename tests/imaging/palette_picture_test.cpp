// SPDX-License-Identifier: GPL-3.0-or-later
#include "imaging/palette_picture.h"

#include <gtest/gtest.h>

#include <set>

namespace {

// w x h pixels of colour (2x, 4y, 200 - x) when `fine`, else (16x, 16y, x ^ y),
// all different for 16 x 16; alpha from `alpha(x, y)`.
template <class Alpha>
img::image Colours(uint32_t w, uint32_t h, bool fine, Alpha alpha) {
  img::image p(w, h);
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) {
      uint8_t* px = p.rows[y] + 4 * x;
      px[0] = uint8_t(fine ? 2 * x : 16 * x), px[1] = uint8_t(fine ? 4 * y : 16 * y);
      px[2] = uint8_t(fine ? 200 - x : x ^ y), px[3] = alpha(x, y);
    }
  return p;
}

// Largest channel difference between each pixel and its palette entry, and
// whether every entry's alpha is 0 where `clear` says and 255 elsewhere.
template <class Clear>
std::pair<int, bool> Compare(const img::image& p, const img::palette_picture& r, Clear clear) {
  int worst = 0;
  bool alpha_right = true;
  for (uint32_t y = 0; y < p.height; ++y)
    for (uint32_t x = 0; x < p.width; ++x) {
      const uint32_t c = r.palette[r.indices[y * p.width + x]];
      alpha_right &= (c >> 24) == (clear(x, y) ? 0u : 255u);
      if (!clear(x, y))
        for (int k = 0; k < 3; ++k)
          worst = std::max(worst, std::abs(int((c >> (8 * k)) & 255) - p.rows[y][4 * x + k]));
    }
  return {worst, alpha_right};
}

TEST(PalettePicture, TwoHundredFiftySixColoursStayExactAndAlphaIsIgnoredWithoutTransparency) {
  const img::image p =
      Colours(16, 16, false, [](uint32_t x, uint32_t) { return x == 3 ? 0 : 255; });
  const img::palette_picture r = img::make_palette_picture(p, false);
  EXPECT_EQ(r.palette.size(), 256u);
  EXPECT_EQ(Compare(p, r, [](uint32_t, uint32_t) { return false; }), std::pair(0, true));
}

TEST(PalettePicture, TransparentPixelsShareOneClearEntry) {
  // Alpha below 128 is clear, 128 and above opaque.
  auto clear = [](uint32_t x, uint32_t y) { return (x + y) % 4 == 0; };
  const img::image p =
      Colours(16, 16, false, [&](uint32_t x, uint32_t y) { return clear(x, y) ? 127 : 128; });
  const img::palette_picture r = img::make_palette_picture(p, true);
  ASSERT_LE(r.palette.size(), 256u);
  int clear_entries = 0;
  for (uint32_t c : r.palette) clear_entries += (c >> 24) == 0;
  EXPECT_EQ(clear_entries, 1);
  EXPECT_EQ(Compare(p, r, clear), std::pair(0, true));
}

// 256 colours beside a transparent one do not fit: the colours are reduced
// and every pixel takes a colour close to its own.
TEST(PalettePicture, RicherPicturesAreReducedToNearColours) {
  auto clear = [](uint32_t x, uint32_t) { return x == 0; };
  const img::image p =
      Colours(128, 64, true, [&](uint32_t x, uint32_t y) { return clear(x, y) ? 0 : 255; });
  const img::palette_picture r = img::make_palette_picture(p, true);
  EXPECT_EQ(r.palette.size(), 256u);
  EXPECT_GT(std::set<uint8_t>(r.indices.begin(), r.indices.end()).size(), 200u);  // spread out
  const auto [worst, alpha_right] = Compare(p, r, clear);
  EXPECT_LE(worst, 16);
  EXPECT_TRUE(alpha_right);
}

}  // namespace
