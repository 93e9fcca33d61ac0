#include "imaging/palette_picture.h"

#include <gtest/gtest.h>

#include <set>

namespace {

// 16 x 16 pixels, each a different colour; alpha from `alpha(x, y)`.
template <class Alpha>
img::image DistinctColours(Alpha alpha) {
  img::image p(16, 16);
  for (uint32_t y = 0; y < 16; ++y)
    for (uint32_t x = 0; x < 16; ++x) {
      uint8_t* px = p.rows[y] + 4 * x;
      px[0] = uint8_t(x * 16), px[1] = uint8_t(y * 16), px[2] = uint8_t(x ^ y), px[3] = alpha(x, y);
    }
  return p;
}

uint32_t Colour(const uint8_t* p) {
  return 0xFF000000u | uint32_t(p[2]) << 16 | uint32_t(p[1]) << 8 | p[0];
}

TEST(PalettePicture, TwoHundredFiftySixColoursStayExact) {
  // Alpha is ignored without transparency, even where it is 0.
  const img::image p =
      DistinctColours([](uint32_t x, uint32_t) { return uint8_t(x == 3 ? 0 : 255); });
  const img::palette_picture r = img::make_palette_picture(p, false);
  ASSERT_EQ(r.palette.size(), 256u);
  for (uint32_t y = 0; y < 16; ++y)
    for (uint32_t x = 0; x < 16; ++x)
      ASSERT_EQ(r.palette[r.indices[y * 16 + x]], Colour(p.rows[y] + 4 * x)) << x << "," << y;
}

TEST(PalettePicture, TransparentPixelsShareOneClearEntry) {
  // Alpha below 128 is clear, 128 and above opaque.
  const img::image p =
      DistinctColours([](uint32_t x, uint32_t y) { return uint8_t((x + y) % 4 == 0 ? 127 : 128); });
  const img::palette_picture r = img::make_palette_picture(p, true);
  ASSERT_LE(r.palette.size(), 256u);
  int clear_entries = 0;
  for (uint32_t c : r.palette) clear_entries += (c >> 24) == 0 ? 1 : (c >> 24) == 255 ? 0 : 100;
  EXPECT_EQ(clear_entries, 1);
  for (uint32_t y = 0; y < 16; ++y)
    for (uint32_t x = 0; x < 16; ++x) {
      const uint32_t entry = r.palette[r.indices[y * 16 + x]];
      EXPECT_EQ(entry >> 24, (x + y) % 4 == 0 ? 0u : 255u) << x << "," << y;
    }
}

// 256 colours beside a transparent one do not fit: the colours are reduced
// and every pixel takes a colour close to its own.
TEST(PalettePicture, RicherPicturesAreReducedToNearColours) {
  img::image p(128, 64);
  for (uint32_t y = 0; y < 64; ++y)
    for (uint32_t x = 0; x < 128; ++x) {
      uint8_t* px = p.rows[y] + 4 * x;
      px[0] = uint8_t(x * 2), px[1] = uint8_t(y * 4), px[2] = uint8_t(200 - x),
      px[3] = x == 0 ? 0 : 255;
    }
  const img::palette_picture r = img::make_palette_picture(p, true);
  EXPECT_EQ(r.palette.size(), 256u);
  EXPECT_EQ(r.palette[r.indices[0]] >> 24, 0u);
  std::set<uint8_t> used(r.indices.begin(), r.indices.end());
  EXPECT_GT(used.size(), 200u);  // the cut spreads the entries over the picture
  int worst = 0;
  for (uint32_t y = 0; y < 64; ++y)
    for (uint32_t x = 1; x < 128; ++x) {
      const uint32_t c = r.palette[r.indices[y * 128 + x]];
      const uint8_t* px = p.rows[y] + 4 * x;
      for (int k = 0; k < 3; ++k)
        worst = std::max(worst, std::abs(int((c >> (8 * k)) & 255) - px[k]));
    }
  EXPECT_LE(worst, 16);
}

}  // namespace
