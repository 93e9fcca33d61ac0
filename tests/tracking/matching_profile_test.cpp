// Matching profiles: the fast scan against a plain transcription of the
// comparison, the self-compared mode, and the known shift of a generated
// texture found at the profile's best cell.
#include "tracking/matching_profile.h"

#include <algorithm>
#include <cmath>
#include <random>

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
      if (bx < 0 || bx >= h) continue;
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

struct Scene {
  img::float_image reference, target;
  Segmentation seg;
};

// Wider than high (and large enough for the scan to split across threads),
// mask reaching the left, right and bottom edges, shifts
// scattered so that windows run past row ends and past the last row.
Scene RandomScene(uint32_t seed) {
  Scene s;
  s.reference = Textured(180, 80, types::affine::identity(), seed);
  s.target = Textured(180, 80, types::affine::translation(1.5, -0.5), seed);
  s.seg.create(RectMask(180, 80, 0, 1, 180, 80), 8, 0);
  s.seg.image = &s.reference;
  std::mt19937 random(seed);
  for (GridSegment& g : s.seg.segments) {
    g.shift_x = int32_t(random() % 17) - 6;
    g.shift_y = int32_t(random() % 13) - 6;
  }
  return s;
}

void ExpectSameProfiles(const Segmentation& a, const Segmentation& b, const char* what) {
  ASSERT_EQ(a.segments.size(), b.segments.size());
  for (size_t i = 0; i < a.segments.size(); ++i) {
    const GridSegment &x = a.segments[i], &y = b.segments[i];
    EXPECT_EQ(x.radius_x, y.radius_x);
    EXPECT_EQ(x.profile.cells, y.profile.cells) << what << ", segment " << i;
    EXPECT_EQ(x.profile_counts.cells, y.profile_counts.cells) << what << ", segment " << i;
  }
}

TEST(RawProfiles, FastScanEqualsPlainComparisonBitForBit) {
  for (bool baseline : {false, true})
    for (unsigned metric : {0u, 1u, 2u})
      for (unsigned source : {0u, 1u}) {
        tracking::LimitProfileScanToBaseline(baseline);
        Scene s = RandomScene(11 + metric);
        tracking::ComputeStatistics(s.seg, s.reference, 2.0f, true);
        Segmentation expected = s.seg;
        const ProfileParams p{source, metric, ProfileMode::Raw, 4, 2, 2.0f};
        tracking::RawProfiles(s.seg, s.reference, s.target, 4, p, false);
        ReferenceRaw(expected, s.reference, s.target, 4, p);
        ExpectSameProfiles(s.seg, expected, ("metric " + std::to_string(metric)).c_str());
        tracking::LimitProfileScanToBaseline(false);
      }
}

TEST(BuildProfiles, SelfComparedEqualsPlainSumOfDifferences) {
  Scene s = RandomScene(3);
  const ProfileParams p{0, 0, ProfileMode::SelfCompared, 3, 2, 2.0f};
  Segmentation self = s.seg;
  tracking::BuildProfiles(s.seg, s.target, p, false);
  for (GridSegment& g : self.segments) g.shift_x = g.shift_y = 0;
  ReferenceRaw(self, s.reference, s.reference, 2, p);
  Segmentation wide = RandomScene(3).seg;
  ReferenceRaw(wide, s.reference, s.target, 5, p);
  for (size_t n = 0; n < wide.segments.size(); ++n) {
    const Raster<double>&C = wide.segments[n].profile, &S = self.segments[n].profile;
    const GridSegment& got = s.seg.segments[n];
    ASSERT_EQ(got.profile.width, 7);
    EXPECT_EQ(got.radius_x, 3);
    for (int32_t j = 0; j < 7; ++j)
      for (int32_t i = 0; i < 7; ++i) {
        double sum = 0;
        for (int32_t a = 0; a < 5; ++a)
          for (int32_t b = 0; b < 5; ++b) sum += std::fabs(C.at(i + b, j + a) - S.at(b, a));
        EXPECT_EQ(got.profile.at(i, j), -sum) << "segment " << n << " cell " << i << "," << j;
      }
  }
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
