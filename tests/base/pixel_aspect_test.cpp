// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/pixel_aspect.h"

#include <gtest/gtest.h>

namespace {

TEST(PixelAspectRatio, EqualByCrossProducts) {
  EXPECT_NE((PixelAspectRatio{648, 720}), (PixelAspectRatio{768, 720}));
  // Cross products of these overflow 32 bits; they differ by one in 64.
  EXPECT_NE((PixelAspectRatio{2000000000, 1999999999}), (PixelAspectRatio{1999999999, 1999999998}));
  EXPECT_EQ((PixelAspectRatio{2000000000, 1000000000}), (PixelAspectRatio{2, 1}));
}

TEST(PixelAspectRatio, LabelOfFirstEqualRowElseCustom) {
  struct Case {
    PixelAspectRatio ratio;
    const char* label;
  };
  const Case cases[] = {
      {{1, 1}, "Square Pixels"},
      {{648, 720}, "D1/DV NTSC"},
      {{9, 10}, "D1/DV NTSC"},
      {{6, 5}, "D1/DV NTSC Widescreen"},
      {{768, 720}, "D1/DV PAL"},
      {{64, 45}, "D1/DV PAL Widescreen"},
      {{4, 2}, "Anamorphic 2:1"},
      {{128, 135}, "D4/D16 Standard"},
      {{256, 135}, "D4/D16 Anamorphic"},
      {{3, 2}, "Custom"},
      {{649, 720}, "Custom"},
  };
  for (const Case& c : cases)
    EXPECT_EQ(PixelAspectLabel(c.ratio), c.label) << c.ratio.num << '/' << c.ratio.den;
}

TEST(PixelAspectRatio, GuessedFromFrameSizeKeepsExactFraction) {
  struct Case {
    int32_t width, height, num, den;
  };
  const Case cases[] = {
      {720, 480, 648, 720},   {720, 486, 648, 720},   {720, 576, 768, 720},
      {1440, 1024, 256, 135}, {2880, 2048, 128, 135}, {1920, 1080, 1, 1},
      {480, 720, 1, 1},       {720, 487, 1, 1},       {0, 0, 1, 1},
  };
  for (const Case& c : cases) {
    // The fields themselves, not only the ratio: they are written to files as they are.
    const PixelAspectRatio r = guess_pixel_aspect(c.width, c.height);
    EXPECT_EQ(r.num, c.num) << c.width << 'x' << c.height;
    EXPECT_EQ(r.den, c.den) << c.width << 'x' << c.height;
  }
}

}  // namespace
