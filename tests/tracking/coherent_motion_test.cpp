// SPDX-License-Identifier: GPL-3.0-or-later
// Coherent motion: the Jacobi sweep against a plain per-neighbour sum, the
// weight mu and the iteration's log, uniform tie breaking, and whole
// searches recovering the known motion of a generated texture.
#include "tracking/coherent_motion.h"

#include <algorithm>
#include <cfloat>
#include <random>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "grid_pictures.h"
#include "motion.h"
#include "tracking/matching_profile.h"

namespace {

using tracking::CoherentMotionParams;
using tracking::GridSegment;
using tracking::Segmentation;
using tracking::TieBreaker;

// Segments with random profiles of radius 3, random shifts and offsets and
// random neighbour maps, some of them listing themselves.
Segmentation RandomGrid(uint32_t seed, size_t count) {
  std::mt19937 random(seed);
  Segmentation seg;
  seg.segments.resize(count);
  for (size_t s = 0; s < count; ++s) {
    GridSegment& g = seg.segments[s];
    g.colour = uint32_t(s + 1);
    g.radius_x = g.radius_y = 3;
    g.profile.reset(7, 7);
    for (double& c : g.profile.cells) c = -double(random() % 1000) / 7;
    g.shift_x = int32_t(random() % 5) - 2;
    g.shift_y = int32_t(random() % 5) - 2;
    g.offset_x = int32_t(random() % 7) - 3;
    g.offset_y = int32_t(random() % 7) - 3;
  }
  for (size_t s = 0; s < count; ++s)
    for (int k = 0; k < int(random() % 5); ++k) {
      const size_t n = random() % count;
      seg.segments[s].neighbours[uint32_t(n + 1)] = n;
    }
  return seg;
}

// Random profiles, and flat ones where the smoothness term alone decides
// and many cells tie (the first in row order wins); radii 0 to 3, so that
// rows are narrower and wider than the vector groups; both builds of the
// sweep.
TEST(JacobiStep, EqualsPlainSearchOverEveryCell) {
  for (const bool baseline : {false, true})
    for (const bool flat : {false, true})
      for (double mu : {0.0, 0.37, 25.0}) {
        tracking::LimitCoherentMotionToBaseline(baseline);
        Segmentation fast = RandomGrid(4, 60);
        for (size_t s = 0; s < fast.segments.size(); ++s) {
          GridSegment& g = fast.segments[s];
          g.radius_x = g.radius_y = int32_t(s % 4);
          g.profile.reset(2 * g.radius_x + 1, 2 * g.radius_y + 1);
          for (size_t c = 0; c < g.profile.cells.size(); ++c)
            g.profile.cells[c] = flat ? -1.0 : -double((s * 31 + c * 17) % 1000) / 7;
          g.offset_x = std::clamp(g.offset_x, -g.radius_x, g.radius_x);
          g.offset_y = std::clamp(g.offset_y, -g.radius_y, g.radius_y);
        }
        const Segmentation old = fast;
        Segmentation plain = fast;
        tracking::JacobiStep(fast, mu);
        tracking::LimitCoherentMotionToBaseline(false);
        for (GridSegment& g : plain.segments) {
          double best = -DBL_MAX;
          int32_t bi = 0, bj = 0;
          const double w = g.neighbours.empty() ? 0 : mu / double(g.neighbours.size());
          for (int32_t j = 0; j < g.profile.height; ++j)
            for (int32_t i = 0; i < g.profile.width; ++i) {
              int64_t sum = 0;
              for (const auto& [colour, k] : g.neighbours) {
                const GridSegment& n = old.segments[k];
                const int64_t a = g.radius_x + n.offset_x + n.shift_x - g.shift_x;
                const int64_t b = g.radius_y + n.offset_y + n.shift_y - g.shift_y;
                sum += (i - a) * (i - a) + (j - b) * (j - b);
              }
              const double score = g.profile.at(i, j) - w * double(sum);
              if (score > best) best = score, bi = i, bj = j;
            }
          g.offset_x = bi - g.radius_x;
          g.offset_y = bj - g.radius_y;
        }
        for (size_t s = 0; s < fast.segments.size(); ++s) {
          const std::string what = "baseline " + std::to_string(baseline) + " flat " +
                                   std::to_string(flat) + " mu " + std::to_string(mu) + " #" +
                                   std::to_string(s);
          EXPECT_EQ(fast.segments[s].offset_x, plain.segments[s].offset_x) << what;
          EXPECT_EQ(fast.segments[s].offset_y, plain.segments[s].offset_y) << what;
        }
      }
}

// Two segments, neighbours of each other, velocities 2 apart in x: Fd = -8.
TEST(Evaluate, MuFollowsTheRatioOfTheTerms) {
  Segmentation seg = RandomGrid(1, 2);
  for (GridSegment& g : seg.segments) {
    g.neighbours.clear();
    g.shift_x = g.shift_y = g.offset_x = g.offset_y = 0;
    std::fill(g.profile.cells.begin(), g.profile.cells.end(), -3.0);
  }
  seg.segments[0].neighbours[2] = 1;
  seg.segments[1].neighbours[1] = 0;
  seg.segments[1].offset_x = 2;
  const struct {
    float ratio;
    MuMode mode;
    bool first;
    double mu;
  } cases[] = {{0.5f, MuMode::Every, false, 0.75},
               {0.0f, MuMode::Every, false, 1e10},
               {0.5f, MuMode::First, false, 7},
               {0.5f, MuMode::First, true, 0.75},
               {0.5f, MuMode::Fixed, true, 7}};  // 7: the value passed in
  for (const auto& c : cases) {
    CoherentMotionParams p{.mu_mode = c.mode, .mu_ratio = c.ratio};
    double mu = 7;
    EXPECT_EQ(tracking::Evaluate(seg, p, mu, c.first, nullptr), -6 + c.mu * -8) << c.ratio;
    EXPECT_EQ(mu, c.mu) << c.ratio;
  }
  std::ostringstream log;
  double mu = 7;
  tracking::Evaluate(seg, {}, mu, false, &log);
  EXPECT_EQ(log.str(), "mu=0.1875\t\tFc=-6\tFd=-8\n");
}

TEST(Iterate, PerfectStartEndsWithoutAStep) {
  Segmentation seg = RandomGrid(2, 3);
  for (GridSegment& g : seg.segments) {
    g.neighbours.clear();
    std::fill(g.profile.cells.begin(), g.profile.cells.end(), 0.0);
  }
  std::ostringstream log;
  tracking::Iterate(seg, {}, &log);
  EXPECT_EQ(log.str(), "mu=0\t\tFc=0\tFd=0\nF(initial approximation) = 0\n");
}

TEST(InitialApproximation, TiesAreChosenUniformlyAndReproducibly) {
  Segmentation seg = RandomGrid(3, 1);
  seg.segments[0].neighbours.clear();
  std::fill(seg.segments[0].profile.cells.begin(), seg.segments[0].profile.cells.end(), -1.0);
  auto draw = [&](uint32_t seed) {
    TieBreaker random(seed);
    std::vector<int> hits(49);
    for (int run = 0; run < 4900; ++run) {
      tracking::InitialApproximation(seg, 1.0f, random);
      hits[size_t((seg.segments[0].offset_y + 3) * 7 + seg.segments[0].offset_x + 3)]++;
    }
    return hits;
  };
  const std::vector<int> hits = draw(1);
  for (int h : hits) EXPECT_NEAR(h, 100, 45);
  EXPECT_EQ(draw(1), hits);
  EXPECT_NE(draw(2), hits);
}

// Every cell adds omega times each neighbour's value laid over it (or the
// neighbour's smallest value outside its window), in neighbour order; the
// first guess is the best cell with ties drawn uniformly.
TEST(InitialApproximation, EqualsPlainVoteOverEveryCell) {
  for (const bool flat : {false, true}) {
    Segmentation fast = RandomGrid(6, 80);
    // Radii that differ, so that windows overlap partly, and one empty profile.
    for (size_t s = 0; s < fast.segments.size(); s += 3) {
      GridSegment& g = fast.segments[s];
      g.radius_x = g.radius_y = 2;
      g.profile.reset(5, 5);
      for (size_t c = 0; c < g.profile.cells.size(); ++c) g.profile.cells[c] = -double(c % 4);
    }
    fast.segments[10].profile = tracking::Raster<double>();
    if (flat)
      for (GridSegment& g : fast.segments)
        std::fill(g.profile.cells.begin(), g.profile.cells.end(), -1.0);
    Segmentation plain = fast;
    TieBreaker fast_random(3), plain_random(3);
    tracking::InitialApproximation(fast, 0.75f, fast_random);
    for (GridSegment& g : plain.segments) {
      if (g.profile.cells.empty()) continue;  // its offsets come from cell (0, 0)
      std::vector<double> votes = g.profile.cells;
      for (const auto& [colour, k] : g.neighbours) {
        const GridSegment& n = plain.segments[k];
        const double m = n.profile.cells.empty()
                             ? 0.0
                             : *std::min_element(n.profile.cells.begin(), n.profile.cells.end());
        for (int32_t j = 0; j < g.profile.height; ++j)
          for (int32_t i = 0; i < g.profile.width; ++i) {
            const int32_t in = i - ((n.shift_x - n.radius_x) - (g.shift_x - g.radius_x));
            const int32_t jn = j - ((n.shift_y - n.radius_y) - (g.shift_y - g.radius_y));
            const bool inside = in >= 0 && in < n.profile.width && jn >= 0 && jn < n.profile.height;
            votes[size_t(j * g.profile.width + i)] +=
                double(0.75f) * (inside ? n.profile.at(in, jn) : m);
          }
      }
      double best = -DBL_MAX;
      int64_t ties = 0;
      size_t at = 0;
      for (size_t c = 0; c < votes.size(); ++c) {
        if (votes[c] > best) {
          best = votes[c], ties = 1, at = c;
        } else if (votes[c] == best && int64_t(plain_random.next()) * ++ties <= TieBreaker::kMax) {
          at = c;
        }
      }
      g.offset_x = int32_t(at % size_t(g.profile.width)) - g.radius_x;
      g.offset_y = int32_t(at / size_t(g.profile.width)) - g.radius_y;
    }
    for (size_t s = 0; s < fast.segments.size(); ++s) {
      if (fast.segments[s].profile.cells.empty()) continue;
      EXPECT_EQ(fast.segments[s].offset_x, plain.segments[s].offset_x)
          << "flat " << flat << " #" << s;
      EXPECT_EQ(fast.segments[s].offset_y, plain.segments[s].offset_y)
          << "flat " << flat << " #" << s;
    }
    EXPECT_EQ(fast_random.next(), plain_random.next()) << "as many draws, flat " << flat;
  }
}

struct MotionCase {
  const char* name;
  TransformClass model;
  types::affine truth;
};

// A textured square moved by a known motion: block profiles and coherent
// motion give back the motion within a fraction of a pixel.
TEST(FindMotion, RecoversKnownMotionOfTexture) {
  const MotionCase cases[] = {
      {"Shift", TransformClass::Translation, types::affine::translation(3, -2)},
      {"Rotate2deg", TransformClass::Rigid, tracking_test::Rotation(2, 1, 0, 0)},
      {"Affine", TransformClass::Affine, {2, 1, 1.02, 0.01, -0.015, 0.99}},
  };
  for (const MotionCase& c : cases) {
    // Rotations and scales are about the picture's centre.
    const types::affine about =
        types::affine::translation(80, 80) * c.truth * types::affine::translation(-80, -80);
    const img::float_image reference = tracking_test::Textured(160, 160, {});
    const img::float_image target = tracking_test::Textured(160, 160, about);
    Segmentation seg;
    seg.create(tracking_test::RectMask(160, 160, 30, 30, 130, 130), 8, 0);
    seg.image = &reference;
    tracking::SetStartingMotion(seg, {});
    tracking::BuildProfiles(seg, target, {0, 0, ProfileMode::SelfCompared, 6, 2, 2.0f}, false);
    CoherentMotionParams p;
    p.MotionModel = c.model;
    TieBreaker random;
    std::ostringstream log;
    const types::affine found = tracking::FindMotion(seg, p, random, &log);
    SCOPED_TRACE(c.name);
    tracking_test::ExpectNear(found, about, 0.01, 0.6);
    EXPECT_EQ(log.str().rfind("\nFunctional maximization\n", 0), 0u);
  }
}

}  // namespace
