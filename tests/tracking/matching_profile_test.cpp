// SPDX-License-Identifier: GPL-3.0-or-later
// Matching profiles: the fast scan against a plain transcription of the
// comparison, the self-compared mode, and the known shift of a generated
// texture found at the profile's best cell.
#include "tracking/matching_profile.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "grid_pictures.h"

namespace {

using tracking::GridSegment;
using tracking::ProfileParams;
using tracking::Raster;
using tracking::Segmentation;
using tracking_test::RectMask;
using tracking_test::Textured;

// The comparison pixel by pixel, as plainly as it can be written; reads
// past the picture's end see zeros.
void ReferenceRaw(Segmentation& seg,
                  const img::float_image& first,
                  const img::float_image& second,
                  int32_t q,
                  const ProfileParams& p) {
  const int64_t w = seg.width, h = seg.height, size = 2 * q + 1;
  for (GridSegment& g : seg.segments) {
    g.profile.reset(int32_t(size), int32_t(size));
    g.profile_counts.reset(int32_t(size), int32_t(size));
    g.radius_x = g.radius_y = q;
  }
  for (int64_t y = 0; y < h; ++y)
    for (int64_t x = 0; x < w; ++x) {
      const int32_t l = seg.label(uint32_t(x), uint32_t(y));
      if (l < 0) continue;
      GridSegment& g = seg.segments[size_t(l)];
      const float* src = img::pixel(first, uint32_t(x), uint32_t(y));
      double v[3] = {src[0], src[1], src[2]};
      if (p.colour_source) v[0] = g.mean[2], v[1] = g.mean[1], v[2] = g.mean[0];
      const int64_t bx = g.shift_x - q + x;
      if (bx < 0 || bx >= w) continue;
      const int64_t i0 = std::max<int64_t>(0, q - x), i1 = std::min<int64_t>(size, w - (x - q));
      for (int64_t j = 0; j < size; ++j) {
        const int64_t row = g.shift_y - q + y + j;
        if (row < 0) continue;
        if (row >= h) break;
        for (int64_t i = i0; i < i1; ++i) {
          const int64_t k = row * w + bx + i;
          const float zero[4] = {0, 0, 0, 0};
          const float* u = k < w * h ? img::pixel(second, uint32_t(k % w), uint32_t(k / w)) : zero;
          g.profile_counts.at(int32_t(i - i0), int32_t(j)) += 1;
          double e = 0;
          for (int c = 0; c < 3; ++c) e += (v[c] - double(u[c])) * (v[c] - double(u[c]));
          const double s = g.variance;
          const double m = p.metric == 0 ? e : p.metric == 1 ? std::min(e / s, 1.0) : e / (s + e);
          g.profile.at(int32_t(i), int32_t(j)) -= m;
        }
      }
    }
  for (GridSegment& g : seg.segments)
    for (size_t c = 0; c < g.profile.cells.size(); ++c)
      if (g.profile_counts.cells[c]) g.profile.cells[c] /= g.profile_counts.cells[c];
}

// The plain self-compared profiles: S from the reference against itself
// with no shift, C at radius R + r, then minus the sums of |C - S| in row
// order of S. `seg` holds the shifts and statistics to use.
std::vector<Raster<double>> PlainSelfCompared(const Segmentation& seg,
                                              const img::float_image& reference,
                                              const img::float_image& target,
                                              const ProfileParams& p) {
  const int32_t R = p.radius, r = p.self_radius, size = 2 * R + 1, ssize = 2 * r + 1;
  Segmentation self = seg, wide = seg;
  for (GridSegment& g : self.segments) g.shift_x = g.shift_y = 0;
  ReferenceRaw(self, reference, reference, r, p);
  ReferenceRaw(wide, reference, target, R + r, p);
  std::vector<Raster<double>> out(seg.segments.size());
  for (size_t n = 0; n < out.size(); ++n) {
    const Raster<double>&C = wide.segments[n].profile, &S = self.segments[n].profile;
    out[n].reset(size, size);
    for (int32_t j = 0; j < size; ++j)
      for (int32_t i = 0; i < size; ++i) {
        double sum = 0;
        for (int32_t a = 0; a < ssize; ++a)
          for (int32_t b = 0; b < ssize; ++b) sum += std::fabs(C.at(i + b, j + a) - S.at(b, a));
        out[n].at(i, j) = -sum;
      }
  }
  return out;
}

// What the frames hold: bytes (the exact integer route), or values that
// send the scan to the double route.
enum class Values { Bytes, Fractions, OutOfRange };

// Textured, then for Fractions every 7th value of a channel a quarter up,
// for OutOfRange every 11th one at 300 or -3.
img::float_image Picture(
    uint32_t w, uint32_t h, const types::affine& motion, uint32_t seed, Values values) {
  img::float_image im = Textured(w, h, motion, seed);
  size_t k = 0;
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x)
      for (int c = 0; c < 3; ++c, ++k) {
        float& v = img::pixel(im, x, y)[c];
        if (values == Values::Fractions && k % 7 == 3) v += 0.25f;
        if (values == Values::OutOfRange && k % 11 == 5) v = v < 128 ? 300.0f : -3.0f;
      }
  return im;
}

struct Scene {
  img::float_image reference, target;
  Segmentation seg;
};

// Mask reaching the left, right and bottom edges, large enough for the scan
// to split across threads, shifts scattered so that windows leave the
// picture on every side. Wider than high (180 x 80), columns from the
// height on drop out; higher than wide (80 x 150), windows run past a
// row's end into the next row, and past the last row.
Scene RandomScene(uint32_t seed, bool wide = true, Values values = Values::Bytes) {
  const uint32_t w = wide ? 180 : 80, h = wide ? 80 : 150;
  Scene s;
  s.reference = Picture(w, h, types::affine::identity(), seed, values);
  s.target = Picture(w, h, types::affine::translation(1.5, -0.5), seed, values);
  s.seg.create(RectMask(w, h, 0, 1, w, h), 8, 0);
  s.seg.image = &s.reference;
  std::mt19937 random(seed);
  for (GridSegment& g : s.seg.segments) {
    g.shift_x = int32_t(random() % 17) - 6;
    g.shift_y = int32_t(random() % 13) - 6;
  }
  return s;
}

void ExpectSameProfiles(const Segmentation& a, const Segmentation& b, const std::string& what) {
  ASSERT_EQ(a.segments.size(), b.segments.size());
  for (size_t i = 0; i < a.segments.size(); ++i) {
    const GridSegment &x = a.segments[i], &y = b.segments[i];
    EXPECT_EQ(x.radius_x, y.radius_x);
    EXPECT_EQ(x.profile.cells, y.profile.cells) << what << ", segment " << i;
    EXPECT_EQ(x.profile_counts.cells, y.profile_counts.cells) << what << ", segment " << i;
  }
}

struct ScanLimit {
  explicit ScanLimit(tracking::ProfileScanSet set) { tracking::LimitProfileScan(set); }
  ~ScanLimit() { tracking::LimitProfileScan(tracking::ProfileScanSet::Widest); }
};

constexpr tracking::ProfileScanSet kSets[] = {tracking::ProfileScanSet::Baseline,
                                              tracking::ProfileScanSet::Avx2,
                                              tracking::ProfileScanSet::Widest};

TEST(RawProfiles, FastScanEqualsPlainComparisonBitForBit) {
  for (const auto set : kSets)
    for (const bool wide : {true, false})
      for (const Values values : {Values::Bytes, Values::Fractions, Values::OutOfRange})
        for (unsigned metric : {0u, 1u, 2u})
          for (unsigned source : {0u, 1u}) {
            const ScanLimit limit(set);
            Scene s = RandomScene(11 + metric, wide, values);
            tracking::ComputeStatistics(s.seg, s.reference, 2.0f, true);
            Segmentation expected = s.seg;
            const ProfileParams p{source, metric, ProfileMode::Raw, 4, 2, 2.0f};
            tracking::RawProfiles(s.seg, s.reference, s.target, 4, p, false);
            ReferenceRaw(expected, s.reference, s.target, 4, p);
            ExpectSameProfiles(s.seg, expected,
                               "set " + std::to_string(int(set)) + (wide ? " wide" : " tall") +
                                   " values " + std::to_string(int(values)) + " metric " +
                                   std::to_string(metric) + " source " + std::to_string(source));
          }
}

// Segments of 120 x 120 pixels from black to white: every term is the
// largest, 3 * 255², and a cell's sum passes 2^31.
TEST(RawProfiles, LargeSegmentsSumWithoutOverflow) {
  img::float_image black(260, 130), white(260, 130);
  for (uint32_t y = 0; y < 130; ++y)
    for (uint32_t x = 0; x < 260; ++x)
      for (int c = 0; c < 4; ++c) {
        img::pixel(black, x, y)[c] = 0;
        img::pixel(white, x, y)[c] = 255;
      }
  Segmentation seg;
  seg.create(RectMask(260, 130, 2, 2, 258, 128), 120, 0);
  ASSERT_GT(seg.segments.front().pixels, 2147483648.0 / (3 * 255 * 255));
  Segmentation expected = seg;
  const ProfileParams p{0, 0, ProfileMode::Raw, 1, 1, 2.0f};
  tracking::RawProfiles(seg, black, white, 1, p, false);
  ReferenceRaw(expected, black, white, 1, p);
  ExpectSameProfiles(seg, expected, "large");
  EXPECT_EQ(seg.segments.front().profile.at(1, 1), -3.0 * 255 * 255);
}

TEST(BuildProfiles, SelfComparedEqualsPlainSumOfDifferences) {
  for (const auto set : kSets)
    for (const bool wide : {true, false})
      for (const Values values : {Values::Bytes, Values::Fractions}) {
        const ScanLimit limit(set);
        Scene s = RandomScene(3, wide, values);
        const ProfileParams p{0, 0, ProfileMode::SelfCompared, 3, 2, 2.0f};
        const auto expected = PlainSelfCompared(s.seg, s.reference, s.target, p);
        tracking::BuildProfiles(s.seg, s.target, p, false);
        for (size_t n = 0; n < expected.size(); ++n) {
          const GridSegment& got = s.seg.segments[n];
          EXPECT_EQ(got.radius_x, 3);
          EXPECT_TRUE(got.profile_counts.cells.empty());
          EXPECT_EQ(got.profile.cells, expected[n].cells)
              << "set " << int(set) << (wide ? " wide" : " tall") << " values " << int(values)
              << " segment " << n;
        }
      }
}

// Radii for every shape of the comparison's register groups: one to eight
// groups of four cells, rows in pairs up to four groups, and the profile
// as accumulator past eight (radius 16).
TEST(BuildProfiles, SelfComparedAtEveryRadius) {
  for (const Values values : {Values::Bytes, Values::Fractions})
    for (const int32_t radius : {0, 1, 6, 8, 15, 16}) {
      Scene s = RandomScene(7, true, values);
      const ProfileParams p{0, 0, ProfileMode::SelfCompared, radius, 1, 2.0f};
      const auto expected = PlainSelfCompared(s.seg, s.reference, s.target, p);
      tracking::BuildProfiles(s.seg, s.target, p, false);
      for (size_t n = 0; n < expected.size(); ++n)
        ASSERT_EQ(s.seg.segments[n].profile.cells, expected[n].cells)
            << "radius " << radius << " values " << int(values) << " segment " << n;
    }
}

// A mask of 320 x 200 pixels: the planes are copied by both threads. Two
// target frames in a row, the second with the kept self profiles.
TEST(BuildProfiles, LargeMaskOnEveryInstructionSet) {
  const img::float_image reference = Textured(480, 360, types::affine::identity(), 8);
  const img::float_image targets[] = {Textured(480, 360, types::affine::translation(2, -1), 8),
                                      Textured(480, 360, types::affine::translation(-1.5, 3), 8)};
  Segmentation plain;
  plain.create(RectMask(480, 360, 80, 80, 400, 280), 8, 0);
  tracking::SetStartingMotion(plain, types::affine::translation(1, 0));
  const ProfileParams p{0, 0, ProfileMode::SelfCompared, 5, 2, 2.0f};
  std::vector<Raster<double>> expected[2];
  for (int t = 0; t < 2; ++t) expected[t] = PlainSelfCompared(plain, reference, targets[t], p);
  for (const auto set : kSets) {
    const ScanLimit limit(set);
    Segmentation seg = plain;
    seg.image = &reference;
    for (int t = 0; t < 2; ++t) {
      tracking::BuildProfiles(seg, targets[t], p, false);
      for (size_t n = 0; n < seg.segments.size(); ++n)
        ASSERT_EQ(seg.segments[n].profile.cells, expected[t][n].cells)
            << "set " << int(set) << " frame " << t << " segment " << n;
    }
  }
}

// The self profiles are kept across target frames, and must be measured
// anew for a new reference, a new segmentation or other parameters.
TEST(BuildProfiles, KeptSelfProfilesFollowReferenceAndParameters) {
  Scene s = RandomScene(5);
  const img::float_image other =
      Picture(180, 80, types::affine::translation(-2, 1), 9, Values::Bytes);
  const img::float_image second =
      Picture(180, 80, types::affine::translation(0.5, 2), 5, Values::Bytes);
  const ProfileParams p{0, 0, ProfileMode::SelfCompared, 2, 2, 2.0f};
  ProfileParams p1 = p;
  p1.self_radius = 1;
  const struct {
    const char* name;
    std::function<void(Scene&)> change;
    const img::float_image* target;
    const ProfileParams* params;
  } steps[] = {
      {"first", [](Scene&) {}, &s.target, &p},
      {"next target", [](Scene&) {}, &second, &p},
      {"self radius 1", [](Scene&) {}, &second, &p1},
      // The same picture object with new content, after create().
      {"recreated",
       [&](Scene& sc) {
         sc.reference = other;
         sc.seg.create(RectMask(180, 80, 0, 1, 180, 80), 8, 0);
         sc.seg.image = &sc.reference;
       },
       &second, &p1},
      {"other reference", [&](Scene& sc) { sc.seg.image = &s.target; }, &second, &p1},
  };
  for (const auto& step : steps) {
    step.change(s);
    const auto expected = PlainSelfCompared(s.seg, *s.seg.image, *step.target, *step.params);
    tracking::BuildProfiles(s.seg, *step.target, *step.params, false);
    for (size_t n = 0; n < expected.size(); ++n)
      ASSERT_EQ(s.seg.segments[n].profile.cells, expected[n].cells)
          << step.name << ", segment " << n;
  }
}

// Float sums of each segment's pixels in row order, the variance in double
// over pixels - 1, scaled, and 0 replaced: on a mask away from the picture's
// corner with one flat piece.
TEST(ComputeStatistics, EqualsPlainSumsInRowOrder) {
  img::float_image picture = Picture(90, 70, types::affine::identity(), 4, Values::Fractions);
  for (uint32_t y = 40; y < 48; ++y)
    for (uint32_t x = 16; x < 24; ++x)
      for (int c = 0; c < 3; ++c) img::pixel(picture, x, y)[c] = 77.5f;
  Segmentation seg;
  seg.create(RectMask(90, 70, 13, 9, 61, 55), 8, 0);
  tracking::ComputeStatistics(seg, picture, 2.0f, true);
  bool flat_seen = false;
  for (size_t n = 0; n < seg.segments.size(); ++n) {
    float mean[3] = {0, 0, 0};
    for (uint32_t y = 0; y < 70; ++y)
      for (uint32_t x = 0; x < 90; ++x)
        if (seg.label(x, y) == int32_t(n))
          for (int c = 0; c < 3; ++c) mean[c] += img::pixel(picture, x, y)[c];
    for (float& m : mean) m *= 1.0f / float(seg.segments[n].pixels);
    double variance = 0;
    for (uint32_t y = 0; y < 70; ++y)
      for (uint32_t x = 0; x < 90; ++x)
        if (seg.label(x, y) == int32_t(n)) {
          double d[3];
          for (int c = 0; c < 3; ++c) d[c] = double(mean[c]) - double(img::pixel(picture, x, y)[c]);
          variance += d[0] * d[0] + d[1] * d[1] + d[2] * d[2];
        }
    variance = variance / double(seg.segments[n].pixels - 1) * 2.0;
    flat_seen = flat_seen || variance == 0;
    if (variance == 0) variance = 0.00001;
    for (int c = 0; c < 3; ++c) EXPECT_EQ(seg.segments[n].mean[c], mean[c]) << "segment " << n;
    EXPECT_EQ(seg.segments[n].variance, variance) << "segment " << n;
  }
  EXPECT_TRUE(flat_seen);
}

// The texture moves by `motion`; the best cell of every segment is the
// known shift relative to the starting motion. Without motion the
// self-compared profile scores exactly 0 at the centre.
TEST(BuildProfiles, BestCellIsTheKnownShift) {
  const struct {
    const char* name;
    ProfileMode mode;
    types::affine motion, start;
    int32_t best_i, best_j;
  } cases[] = {
      {"Raw", ProfileMode::Raw, types::affine::translation(3, -2), {}, 5 + 3, 5 - 2},
      {"SelfCompared", ProfileMode::SelfCompared, types::affine::translation(3, -2), {}, 8, 3},
      // -1.5 rounds away from zero to a shift of -2.
      {"FromNearGuess", ProfileMode::SelfCompared, types::affine::translation(3, -2),
       types::affine::translation(2.4, -1.5), 5 + 1, 5},
      {"Still", ProfileMode::SelfCompared, {}, {}, 5, 5},
  };
  const img::float_image reference = Textured(120, 100, types::affine::identity());
  for (const auto& c : cases) {
    const img::float_image target = Textured(120, 100, c.motion);
    Segmentation seg;
    seg.create(RectMask(120, 100, 24, 24, 96, 80), 8, 0);
    seg.image = &reference;
    tracking::SetStartingMotion(seg, c.start);
    tracking::BuildProfiles(seg, target, {0, 0, c.mode, 5, 2, 2.0f}, false);
    for (const GridSegment& g : seg.segments) {
      const auto best = std::max_element(g.profile.cells.begin(), g.profile.cells.end());
      const int32_t k = int32_t(best - g.profile.cells.begin());
      EXPECT_EQ(k % 11, c.best_i) << c.name << " segment at " << g.left << "," << g.top;
      EXPECT_EQ(k / 11, c.best_j) << c.name << " segment at " << g.left << "," << g.top;
      if (c.motion == types::affine::identity()) {
        EXPECT_EQ(*best, 0.0);
      }
    }
  }
}

}  // namespace
