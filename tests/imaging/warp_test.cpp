#include "imaging/warp.h"

#include <cmath>
#include <optional>
#include <string>

#include <gtest/gtest.h>

namespace {

using types::affine;

// A small colour picture whose bytes tell where they come from.
img::image Numbered(uint32_t w, uint32_t h) {
  img::image im(w, h);
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) {
      uint8_t* p = im.rows[y] + 4 * x;
      p[0] = uint8_t(10 * x + y);
      p[1] = uint8_t(x);
      p[2] = uint8_t(y);
      p[3] = 200;
    }
  return im;
}

struct ShiftCase {
  const char* name;
  affine t;
  std::optional<std::pair<int, int>> expected;
};

class IntegerTranslation : public ::testing::TestWithParam<ShiftCase> {};

TEST_P(IntegerTranslation, AcceptsOnlyWholeShiftsOfZeroOrMore) {
  const auto got = img::integer_translation(GetParam().t);
  ASSERT_EQ(got.has_value(), GetParam().expected.has_value());
  if (got) {
    EXPECT_EQ(got->x, GetParam().expected->first);
    EXPECT_EQ(got->y, GetParam().expected->second);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Cases,
    IntegerTranslation,
    ::testing::Values(
        ShiftCase{"Identity", affine::identity(), std::pair{0, 0}},
        ShiftCase{"Shift2x1", affine::translation(2, 1), std::pair{2, 1}},
        ShiftCase{"NegativeWholeShiftGoesGeneral", affine::translation(-2, 1), std::nullopt},
        ShiftCase{"NegativeY", affine::translation(2, -3), std::nullopt},
        ShiftCase{"WithinTolerance", affine::translation(2 + 1e-15, 1 - 1e-15), std::pair{2, 1}},
        ShiftCase{"BeyondTolerance", affine::translation(2 + 1e-14, 1), std::nullopt},
        ShiftCase{"TinyNegativeRoundsToZero", affine::translation(-1e-16, 0), std::pair{0, 0}},
        ShiftCase{"HalfPixel", affine::translation(0.5, 0), std::nullopt},
        ShiftCase{"ScaleSlightlyOff", affine{1, 1, 1 + 1e-14, 0, 0, 1}, std::nullopt},
        ShiftCase{"Skew", affine{1, 1, 1, 1e-3, 0, 1}, std::nullopt},
        ShiftCase{"HugeShift", affine::translation(1e12, 0), std::nullopt}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(Rounding, HalvesGoAwayFromZero) {
  const std::pair<double, double> cases[] = {{0.5, 1},   {-0.5, -1}, {1.5, 2},
                                             {-1.5, -2}, {2.49, 2},  {-2.49, -2},
                                             {0.0, 0},   {-0.0, 0},  {1e9 + 0.5, 1e9 + 1}};
  for (const auto& [v, r] : cases) EXPECT_EQ(img::round_half_away(v), r) << v;
}

TEST(ChooseSampling, IntegerShiftsWinOverTheInterpolationSetting) {
  EXPECT_EQ(img::choose_sampling(affine::identity(), 1), img::sampling::offset);
  EXPECT_EQ(img::choose_sampling(affine::translation(2, 1), 1), img::sampling::offset);
  EXPECT_EQ(img::choose_sampling(affine::translation(-2, 1), 1), img::sampling::bilinear);
  EXPECT_EQ(img::choose_sampling(affine::translation(-2, 1), 0), img::sampling::nearest);
  EXPECT_EQ(img::choose_sampling(affine::translation(0.3, 0), 2), img::sampling::nearest);
}

TEST(SourcePosition, DriftsInSinglePrecisionAlongARowAndRestartsClean) {
  const affine inverse{0.37, 2.0, 0.1, 0.0, 0.013, 1.0};
  img::source_position pos(inverse, 0.5);
  pos.start_row(0, 3);
  float ref_x = float(0.1 * 0 + 0.0 * 3 + 0.37 + 0.5);
  float ref_y = float(0.013 * 0 + 1.0 * 3 + 2.0 + 0.5);
  bool drifted = false;
  for (int x = 1; x < 5000; ++x) {
    pos.next();
    ref_x = float(double(ref_x) + 0.1);
    ref_y = float(double(ref_y) + 0.013);
    ASSERT_EQ(pos.x(), ref_x) << x;
    ASSERT_EQ(pos.y(), ref_y) << x;
    drifted |= pos.x() != float(0.1 * x + 0.37 + 0.5);
  }
  EXPECT_TRUE(drifted);  // the stepped position is not the exact one
  pos.start_row(4999, 4);
  EXPECT_EQ(pos.x(), float(0.1 * 4999 + 0.0 * 4 + 0.37 + 0.5));
  EXPECT_EQ(pos.y(), float(0.013 * 4999 + 1.0 * 4 + 2.0 + 0.5));
}

// Samples row y of the destination, x from 0 to n - 1; a failed sample is -1.
template <class Sampler>
std::vector<float> Row(Sampler s, int y, int n, int channel = 0) {
  std::vector<float> out;
  s.start_row(0, y);
  for (int x = 0; x < n; ++x, s.next()) {
    img::colour_value v;
    out.push_back(s.sample(v) ? v.c[channel] : -1);
  }
  return out;
}

TEST(ColourSampler, IdentityWithBilinearSettingReproducesTheSourceExactly) {
  const img::image src = Numbered(7, 5);
  img::with_sampler(img::colour_source<>(src), affine::identity(), 1, [&](auto s) {
    for (uint32_t y = 0; y < 5; ++y) {
      s.start_row(0, int32_t(y));
      for (uint32_t x = 0; x < 7; ++x, s.next()) {
        img::colour_value v;
        EXPECT_TRUE(s.sample(v));
        for (int c = 0; c < 4; ++c) EXPECT_EQ(v.c[c], src.rows[y][4 * x + c]);
      }
    }
    return 0;
  });
}

TEST(ColourSampler, OffsetSamplerReadsShiftedPixelsAndFailsOutside) {
  const img::image src = Numbered(6, 4);
  img::offset_sampler<img::colour_source<>> s(img::colour_source<>(src), {2, 1});
  EXPECT_EQ(Row(s, 0, 6), (std::vector<float>(6, -1)));  // reads source row -1
  EXPECT_EQ(Row(s, 1, 9, 1), (std::vector<float>{-1, -1, 0, 1, 2, 3, 4, 5, -1}));
}

TEST(ColourSampler, NearestRoundsTiesAwayFromZero) {
  // Scale 1 with a half-pixel shift: source x = dest x - 0.5.
  const img::image src = Numbered(5, 3);
  const affine inverse = affine::translation(0.5, 0).inverse();
  img::nearest_sampler<img::colour_source<>> s(img::colour_source<>(src), inverse);
  // -0.5 rounds to -1 and fails; 0.5 to 1, 1.5 to 2 ...; 4.5 to 5 fails.
  EXPECT_EQ(Row(s, 0, 6, 1), (std::vector<float>{-1, 1, 2, 3, 4, -1}));
}

TEST(ColourSampler, BilinearHalfPixelShiftWeighsBothTapsEqually) {
  const img::image src = Numbered(5, 3);
  const affine inverse = affine::translation(0.5, 0).inverse();
  img::bilinear_sampler<img::colour_source<>> s(img::colour_source<>(src), inverse);
  // Channel 1 holds x: the mean of columns x - 1 and x. Column 0 fails (ix < 1).
  EXPECT_EQ(Row(s, 1, 6, 1), (std::vector<float>{-1, 0.5f, 1.5f, 2.5f, 3.5f, -1}));
}

TEST(ColourSampler, BilinearFractionalWeightsAreStoredAsFloats) {
  const img::image src = Numbered(6, 6);
  const affine t = affine::translation(0.3, 0.7);
  img::bilinear_sampler<img::colour_source<>> s(img::colour_source<>(src), t.inverse());
  s.start_row(3, 3);
  img::colour_value v;
  ASSERT_TRUE(s.sample(v));
  // Source position with the half-pixel offset, then the taps by hand.
  const float sx = float(3 - 0.3 + 0.5), sy = float(3 - 0.7 + 0.5);
  const double ix = std::trunc(sx + 0.5), iy = std::trunc(sy + 0.5);
  const double fx = sx + 0.5 - ix, fy = sy + 0.5 - iy;
  const float w[4] = {float((1 - fx) * (1 - fy)), float(fx * (1 - fy)), float((1 - fx) * fy),
                      float(fx * fy)};
  const auto at = [&](double x, double y, int c) {
    return float(src.rows[int(y)][4 * int(x) + c]);
  };
  for (int c = 0; c < 4; ++c) {
    const float expected = w[0] * at(ix - 1, iy - 1, c) + w[1] * at(ix, iy - 1, c) +
                           w[2] * at(ix - 1, iy, c) + w[3] * at(ix, iy, c);
    EXPECT_EQ(v.c[c], expected) << c;
  }
}

TEST(ColourSampler, NegativeWholeShiftTakesTheGeneralWayAndBilinearLosesTheLastColumn) {
  const img::image src = Numbered(6, 4);
  const affine t = affine::translation(-2, 1);
  img::with_sampler(img::colour_source<>(src), t, 1, [&](auto s) {
    EXPECT_TRUE((std::is_same_v<decltype(s), img::bilinear_sampler<img::colour_source<>>>));
    // Destination x reads source x + 2; source column 5 (x = 3) has ix = 6 and fails.
    EXPECT_EQ(Row(s, 2, 5, 1), (std::vector<float>{2, 3, 4, -1, -1}));
    EXPECT_EQ(Row(s, 0, 5, 1), (std::vector<float>(5, -1)));
    return 0;
  });
  img::with_sampler(img::colour_source<>(src), t, 0, [&](auto s) {
    EXPECT_EQ(Row(s, 2, 5, 1), (std::vector<float>{2, 3, 4, 5, -1}));
    return 0;
  });
}

TEST(MaskSampler, BilinearSumsTheWeightsOfSetTaps) {
  img::bitmap<img::bit1> mask(4, 3);
  for (auto* row : mask.rows) std::fill(row, row + mask.stride, 0);
  mask.rows[1][0] = 0x20;  // pixel (2, 1)
  // Source x = dest x - 0.25: taps x - 1 and x with weights 0.25 and 0.75.
  img::bilinear_sampler<img::mask_source> s(img::mask_source(mask),
                                            affine::translation(0.25, 0).inverse());
  std::vector<float> got;
  s.start_row(0, 1);
  for (int x = 0; x < 4; ++x, s.next()) {
    float m;
    got.push_back(s.sample(m) ? m : -1);
  }
  EXPECT_EQ(got, (std::vector<float>{-1, 0, 0.75f, 0.25f}));
}

img::bitmap<img::bit1> Rect(
    uint32_t w, uint32_t h, uint32_t l, uint32_t t, uint32_t r, uint32_t b) {
  img::bitmap<img::bit1> m(w, h);
  for (uint32_t y = 0; y < h; ++y) {
    std::fill(m.rows[y], m.rows[y] + m.stride, 0);
    for (uint32_t x = l; x < r; ++x)
      if (y >= t && y < b) m.rows[y][x >> 3] |= uint8_t(0x80 >> (x & 7));
  }
  return m;
}

bool Bit(const img::bitmap<img::bit1>& m, uint32_t x, uint32_t y) {
  return m.rows[y][x >> 3] & (0x80 >> (x & 7));
}

struct MaskCase {
  const char* name;
  affine t;
  uint64_t count;
};

class WarpMask : public ::testing::TestWithParam<MaskCase> {};

TEST_P(WarpMask, CountsTheSetPixelsOfTheMovedMask) {
  const auto src = Rect(21, 13, 4, 3, 12, 9);  // 8 x 6
  img::bitmap<img::bit1> dst;
  EXPECT_EQ(img::warp_mask(src, GetParam().t, dst), GetParam().count);
  EXPECT_EQ(dst.width, 21u);
  EXPECT_EQ(dst.height, 13u);
}

INSTANTIATE_TEST_SUITE_P(
    Cases,
    WarpMask,
    ::testing::Values(MaskCase{"Identity", affine::identity(), 48},
                      MaskCase{"ShiftRightDown", affine::translation(3, 2), 48},
                      MaskCase{"ShiftLeftGoesNearest", affine::translation(-3, 2), 48},
                      MaskCase{"PartlyOut", affine::translation(12, 0), 30},
                      MaskCase{"OutOfPicture", affine::translation(-40, 0), 0},
                      MaskCase{"GrowsOverAll", affine{-200, -200, 50, 0, 0, 50}, 21 * 13},
                      MaskCase{"Singular", affine{0, 0, 0, 0, 0, 0}, 0}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(WarpMaskBits, WholeShiftMovesEveryBit) {
  const auto src = Rect(30, 10, 2, 1, 11, 4);
  img::bitmap<img::bit1> dst;
  img::warp_mask(src, affine::translation(-2, 5), dst);
  for (uint32_t y = 0; y < 10; ++y)
    for (uint32_t x = 0; x < 30; ++x) {
      const bool expected = x + 2 < 30 && y >= 5 && Bit(src, x + 2, y - 5);
      ASSERT_EQ(Bit(dst, x, y), expected) << x << "," << y;
    }
}

}  // namespace
