// SPDX-License-Identifier: GPL-3.0-or-later
#include "imaging/warp.h"

#include <cmath>
#include <optional>
#include <string>

#include <gtest/gtest.h>

namespace {

using types::affine;

// A small colour picture whose bytes tell where they come from: channel 1 is x.
img::image Numbered(uint32_t w, uint32_t h) {
  img::image im(w, h);
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) {
      uint8_t* p = im.rows[y] + 4 * x;
      p[0] = uint8_t(10 * x + y), p[1] = uint8_t(x), p[2] = uint8_t(y), p[3] = 200;
    }
  return im;
}

TEST(IntegerTranslation, AcceptsOnlyWholeShiftsOfZeroOrMore) {
  using Shift = std::optional<std::pair<int, int>>;
  const std::pair<affine, Shift> cases[] = {
      {affine::identity(), std::pair{0, 0}},
      {affine::translation(2, 1), std::pair{2, 1}},
      {affine::translation(-2, 1), std::nullopt},  // negative shifts take the general way
      {affine::translation(2, -3), std::nullopt},
      {affine::translation(2 + 1e-15, 1 - 1e-15), std::pair{2, 1}},  // within tolerance
      {affine::translation(2 + 1e-14, 1), std::nullopt},
      {affine::translation(-1e-16, 0), std::pair{0, 0}},
      {affine::translation(0.5, 0), std::nullopt},
      {affine{1, 1, 1 + 1e-14, 0, 0, 1}, std::nullopt},
      {affine{1, 1, 1, 1e-3, 0, 1}, std::nullopt},
      {affine::translation(1e12, 0), std::nullopt}};
  for (const auto& [t, expected] : cases) {
    const auto got = img::integer_translation(t);
    EXPECT_EQ(got ? Shift(std::pair{got->x, got->y}) : std::nullopt, expected)
        << t.x << "," << t.y << " scale " << t.xx;
  }
  EXPECT_EQ(img::choose_sampling(affine::translation(2, 1), 1), img::sampling::offset);
  EXPECT_EQ(img::choose_sampling(affine::translation(-2, 1), 1), img::sampling::bilinear);
  EXPECT_EQ(img::choose_sampling(affine::translation(-2, 1), 0), img::sampling::nearest);
  EXPECT_EQ(img::choose_sampling(affine::translation(0.3, 0), 2), img::sampling::nearest);
}

TEST(Rounding, HalvesGoAwayFromZero) {
  const std::pair<double, double> cases[] = {{0.5, 1},   {-0.5, -1}, {1.5, 2},
                                             {-1.5, -2}, {2.49, 2},  {-2.49, -2},
                                             {0.0, 0},   {-0.0, 0},  {1e9 + 0.5, 1e9 + 1}};
  for (const auto& [v, r] : cases) EXPECT_EQ(img::round_half_away(v), r) << v;
}

TEST(SourcePosition, DriftsInSinglePrecisionAlongARowAndRestartsClean) {
  const affine inverse{0.37, 2.0, 0.1, 0.0, 0.013, 1.0};
  img::source_position pos(inverse, 0.5);
  pos.start_row(0, 3);
  float ref_x = float(0.37 + 0.5), ref_y = float(1.0 * 3 + 2.0 + 0.5);
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
std::vector<float> Row(Sampler s, int y, size_t n, int channel = 1) {
  std::vector<float> out;
  s.start_row(0, y);
  for (size_t x = 0; x < n; ++x, s.next()) {
    img::colour_value v;
    out.push_back(s.sample(v) ? v.c[channel] : -1);
  }
  return out;
}

TEST(ColourSampler, IdentityReproducesTheSourceExactly) {
  const img::image src = Numbered(7, 5);
  for (int c = 0; c < 4; ++c)
    for (uint32_t y = 0; y < 5; ++y) {
      const auto row = img::with_sampler(img::colour_source<>(src), affine::identity(), 1,
                                         [&](auto s) { return Row(s, int(y), 7, c); });
      for (uint32_t x = 0; x < 7; ++x) EXPECT_EQ(row[x], src.rows[y][4 * x + c]);
    }
}

// Channel 1 of each destination row, by the rule each transform and
// interpolation setting chooses.
TEST(ColourSampler, EachRuleReadsTheRightSourcePixels) {
  struct Case {
    uint32_t w, h;
    affine t;
    uint32_t interpolation;
    int y;
    std::vector<float> row;
  };
  const Case cases[] = {
      {6, 4, affine::translation(2, 1), 1, 0, std::vector<float>(6, -1)},  // source row -1
      {6, 4, affine::translation(2, 1), 1, 1, {-1, -1, 0, 1, 2, 3, 4, 5, -1}},
      // Source x = x - 0.5: -0.5 rounds to -1 and fails, 0.5 to 1 ... 4.5 to 5 fails.
      {5, 3, affine::translation(0.5, 0), 0, 0, {-1, 1, 2, 3, 4, -1}},
      // The mean of columns x - 1 and x; column 0 fails (ix < 1).
      {5, 3, affine::translation(0.5, 0), 1, 1, {-1, 0.5f, 1.5f, 2.5f, 3.5f, -1}},
      // Source x + 2: bilinear loses source column 5 (ix = 6), nearest keeps it.
      {6, 4, affine::translation(-2, 1), 1, 2, {2, 3, 4, -1, -1}},
      {6, 4, affine::translation(-2, 1), 1, 0, std::vector<float>(5, -1)},
      {6, 4, affine::translation(-2, 1), 0, 2, {2, 3, 4, 5, -1}}};
  for (const Case& c : cases) {
    const img::image src = Numbered(c.w, c.h);
    EXPECT_EQ(img::with_sampler(img::colour_source<>(src), c.t, c.interpolation,
                                [&](auto s) { return Row(s, c.y, c.row.size()); }),
              c.row)
        << c.t.x << "," << c.t.y << " interpolation " << c.interpolation << " row " << c.y;
  }
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

TEST(MaskSampler, BilinearSumsTheWeightsOfSetTaps) {
  // Pixel (2, 1) set; source x = dest x - 0.25: taps x - 1 and x weigh 0.25 and 0.75.
  const auto mask = Rect(4, 3, 2, 1, 3, 2);
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

TEST(WarpMask, CountsTheSetPixelsOfTheMovedMask) {
  const std::pair<affine, uint64_t> cases[] = {{affine::identity(), 48},
                                               {affine::translation(3, 2), 48},
                                               {affine::translation(-3, 2), 48},  // nearest
                                               {affine::translation(12, 0), 30},
                                               {affine::translation(-40, 0), 0},
                                               {affine{-200, -200, 50, 0, 0, 50}, 21 * 13},
                                               {affine{0, 0, 0, 0, 0, 0}, 0}};  // singular
  const auto src = Rect(21, 13, 4, 3, 12, 9);                                   // 8 x 6
  for (const auto& [t, count] : cases) {
    img::bitmap<img::bit1> dst;
    EXPECT_EQ(img::warp_mask(src, t, dst), count) << t.x << "," << t.y << " scale " << t.xx;
    EXPECT_EQ(dst.width, 21u);
    EXPECT_EQ(dst.height, 13u);
  }
}

TEST(WarpMask, WholeShiftMovesEveryBit) {
  const auto src = Rect(30, 10, 2, 1, 11, 4);
  img::bitmap<img::bit1> dst;
  img::warp_mask(src, affine::translation(-2, 5), dst);
  for (uint32_t y = 0; y < 10; ++y)
    for (uint32_t x = 0; x < 30; ++x)
      ASSERT_EQ(Bit(dst, x, y), x + 2 < 30 && y >= 5 && Bit(src, x + 2, y - 5)) << x << "," << y;
}

}  // namespace
