// SPDX-License-Identifier: GPL-3.0-or-later
// Closed-form fits: real roots of cubics and quartics, the minimum on the
// unit circle, and the point-set fits of every motion model.
#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>
#include <sstream>
#include <vector>

#include <gtest/gtest.h>

#include "motion.h"
#include "tracking/point_set_fit.h"
#include "tracking/polynomial.h"
#include "tracking/unit_circle.h"

namespace {

using tracking::Point;
using tracking_test::ExpectNear;
using tracking_test::Rotation;
using types::affine;
using enum TransformClass;
using Pairs = std::vector<std::pair<Point, Point>>;

// Coefficients, highest first and the leading 1 left out, of the monic
// polynomial with the given real roots times the factors x² + p x + q
// (pairs p, q) that have no real root.
std::vector<double> Expand(const std::vector<double>& roots, const std::vector<double>& quads) {
  std::vector<std::vector<double>> factors;
  for (const double r : roots) factors.push_back({1, -r});
  for (size_t k = 0; k + 1 < quads.size(); k += 2) factors.push_back({1, quads[k], quads[k + 1]});
  std::vector<double> c{1};
  for (const auto& f : factors) {
    std::vector<double> next(c.size() + f.size() - 1, 0);
    for (size_t i = 0; i < c.size(); ++i)
      for (size_t j = 0; j < f.size(); ++j) next[i + j] += c[i] * f[j];
    c = next;
  }
  return {c.begin() + 1, c.end()};
}

TEST(Polynomial, CubicAndQuarticFindTheKnownRoots) {
  const struct {
    std::vector<double> roots, quads;  // roots sorted
    double tol;
  } cases[] = {// clang-format off
      // Cubics: distinct, double, triple, one real root.
      {{1, 2, 3}, {}, 1e-12}, {{-4, 0.5, 7}, {}, 1e-12}, {{-1, 2, 2}, {}, 1e-7},
      {{1.5, 1.5, 1.5}, {}, 1e-12}, {{2}, {1, 1}, 1e-12}, {{-3e4}, {0, 5}, 1e-8},
      // Quartics: distinct, biquadratic, two double roots, two or no real roots.
      {{1, 2, 3, 4}, {}, 1e-9}, {{-3, -1, 2, 5}, {}, 1e-9}, {{-2, -1, 1, 2}, {}, 1e-12},
      {{1, 1, 2, 2}, {}, 1e-6}, {{-2, 1}, {0, 1}, 1e-9}, {{}, {0, 1, 2, 5}, 0},
      {{-2e5, -1e5, 3e5, 4e5}, {}, 1e-4}};
  // clang-format on
  for (const auto& c : cases) {
    const std::vector<double> k = Expand(c.roots, c.quads);
    SCOPED_TRACE(testing::PrintToString(k));
    const tracking::RealRoots r = k.size() == 3 ? tracking::SolveCubic(k[0], k[1], k[2])
                                                : tracking::SolveQuartic(k[0], k[1], k[2], k[3]);
    std::vector<double> got(r.begin(), r.end());
    std::sort(got.begin(), got.end());
    ASSERT_EQ(got.size(), c.roots.size());
    for (size_t i = 0; i < got.size(); ++i) EXPECT_NEAR(got[i], c.roots[i], c.tol) << i;
  }
}

double Form(const double s[5], double x, double y) {
  return s[0] * x * x + 2 * s[1] * x * y + s[2] * y * y - 2 * (s[3] * x + s[4] * y);
}

TEST(UnitCircle, MatchesADenseSearchOfTheCircle) {
  const double cases[][5] = {{4, 1, 3, 2, -1},      {1e9, 2e8, 5e8, 1e9, 3e8}, {2, 0, 2, 0.1, 0.2},
                             {5, -2, 1.5, -3, 0.5}, {7, 0, 1, 0.01, 4},        {3, 1, 3, -4, -4}};
  for (const auto& s : cases) {
    double w[2], best = INFINITY;
    ASSERT_TRUE(tracking::MinimiseOnUnitCircle(s[0], s[1], s[2], s[3], s[4], w));
    EXPECT_NEAR(std::hypot(w[0], w[1]), 1, 1e-9);
    for (int i = 0; i < 200000; ++i) {
      const double a = 2 * std::numbers::pi * i / 200000;
      best = std::min(best, Form(s, std::cos(a), std::sin(a)));
    }
    EXPECT_LE(Form(s, w[0], w[1]), best + 1e-9 * std::max(1.0, std::fabs(best))) << s[0];
  }
  // b = S w* with |w*| = 1: the constrained minimum is w* itself, exactly.
  const double s00 = 3e6, s01 = -4e5, s11 = 1e6, wx = std::cos(0.3), wy = std::sin(0.3);
  double w[2];
  ASSERT_TRUE(
      tracking::MinimiseOnUnitCircle(s00, s01, s11, s00 * wx + s01 * wy, s01 * wx + s11 * wy, w));
  EXPECT_NEAR(std::atan2(w[1], w[0]), 0.3, 1e-12);
}

const std::vector<Point> kPoints = {{10, 20}, {200, 35}, {40, 180}, {150, 150},
                                    {90, 60}, {12, 130}, {170, 12}, {100, 100}};

bool Fit(TransformClass model, const Pairs& pairs, affine& out) {
  tracking::TranslationFit t;
  tracking::SimilarityFit s;
  tracking::AffineFit a;
  for (const auto& [p, q] : pairs) t.add(p, q, 1), s.add(p, q, 1), a.add(p, q, 1);
  return model == Translation  ? t.solve(out)
         : model == Rigid      ? s.solve_rigid(out)
         : model == RigidScale ? s.solve_rigid_scale(out)
                               : a.solve(out);
}

Pairs Moved(const affine& m, double noise = 0) {
  std::mt19937 rng(11);
  std::normal_distribution<double> n(0, noise);
  Pairs out;
  for (const Point& p : kPoints) {
    Point q;
    m.apply(p.x, p.y, q.x, q.y);
    if (noise > 0) q.x += n(rng), q.y += n(rng);
    out.push_back({p, q});
  }
  return out;
}

TEST(PointSetFit, RecoversKnownMotionsInSinglePrecision) {
  const std::pair<TransformClass, affine> cases[] = {
      {Translation, affine::translation(3.25, -7.5)},
      {Rigid, Rotation(12, 1, 5, -3)},
      {Rigid, Rotation(90, 1, 0, 0)},
      {RigidScale, Rotation(-7, 1.08, -2, 9)},
      {Affine, affine{4, -6, 1.05, 0.07, -0.03, 0.96}}};
  for (const auto& [model, motion] : cases) {
    SCOPED_TRACE(testing::Message() << int(model) << ": " << motion);
    affine got;
    ASSERT_TRUE(Fit(model, Moved(motion), got));
    ExpectNear(got, motion, 1e-6, 1e-4);
    // Stored transformations are compared bit for bit: every parameter must
    // survive a round trip through float, whatever the optimiser made of it.
    for (const double v : {got.x, got.y, got.xx, got.xy, got.yx, got.yy})
      EXPECT_EQ(double(float(v)), v) << v;
    ASSERT_TRUE(Fit(model, Moved(motion, 0.3), got));
    ExpectNear(got, motion, 5e-3, 0.6);
  }
}

TEST(PointSetFit, DegenerateSetsFailAndLeaveTheOutputAlone) {
  const affine untouched{9, 9, 9, 9, 9, 9};
  affine got = untouched;
  for (const auto m : {Rigid, RigidScale, Affine})
    EXPECT_FALSE(Fit(m, Pairs(5, {{3, 4}, {5, 6}}), got));  // all p equal
  // All p on one line: only the affine fit fails.
  Pairs line;
  for (int i = 0; i < 6; ++i) line.push_back({{double(i), 2.0 * i}, {i + 1.0, 2.0 * i - 1}});
  EXPECT_FALSE(Fit(Affine, line, got));
  EXPECT_EQ(got, untouched);
  EXPECT_TRUE(Fit(Rigid, line, got));
  EXPECT_TRUE(Fit(RigidScale, line, got));
  // No pairs at all: the translation has no weight and gives the identity.
  EXPECT_TRUE(Fit(Translation, {}, got));
  EXPECT_EQ(got, affine::identity());
}

TEST(PointSetFit, RigidKeepsTheRotationOfAScaledMotionAndFitsTheMeans) {
  const Pairs pairs = Moved(Rotation(20, 2, 1, 2));
  affine rigid;
  ASSERT_TRUE(Fit(Rigid, pairs, rigid));
  ExpectNear(rigid, Rotation(20, 1, 0, 0), 1e-6, 1e9);
  double px = 0, py = 0, qx = 0, qy = 0, mx, my;
  for (const auto& [p, q] : pairs) px += p.x, py += p.y, qx += q.x, qy += q.y;
  rigid.apply(px / pairs.size(), py / pairs.size(), mx, my);
  EXPECT_NEAR(mx, qx / pairs.size(), 1e-3);
  EXPECT_NEAR(my, qy / pairs.size(), 1e-3);
}

TEST(Match, LogsTheModelAndTheResultAndFallsBackToTheIdentity) {
  std::vector<tracking::SegmentMotion> segments;
  for (const Point& p : kPoints) segments.push_back({p.x, p.y, 3, -2});
  std::ostringstream log;
  affine out;
  tracking::match(segments, Translation, out, &log);
  EXPECT_EQ(log.str(), "Matching point sets with translation motion...\n1 0 0 1 3 -2\n");
  EXPECT_EQ(out, affine::translation(3, -2));
  log.str("");
  tracking::match(segments, RigidScale, out, &log);
  EXPECT_EQ(log.str().rfind("Matching point sets with rigid+scale motion...\n", 0), 0u);
  ExpectNear(out, affine::translation(3, -2), 1e-9, 1e-6);
  // The model without a name does nothing at all.
  log.str("");
  out = {1, 2, 3, 4, 5, 6};
  tracking::match(segments, Affine1, out, &log);
  EXPECT_EQ(out, (affine{1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(log.str(), "");
  // A degenerate grid still gives a usable transformation.
  const std::vector<tracking::SegmentMotion> one(4, {50, 60, 2, 2});
  tracking::match(one, Affine, out, nullptr);
  EXPECT_EQ(out, affine::identity());
  tracking::match(one, Translation, out, nullptr);
  EXPECT_EQ(out, affine::translation(2, 2));
}

}  // namespace
