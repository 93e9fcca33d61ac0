#include "tracking/point_set_fit.h"

#include <cmath>
#include <numbers>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using tracking::Point;
using types::affine;

const std::vector<Point> kPoints = {{10, 20}, {200, 35}, {40, 180}, {150, 150},
                                    {90, 60}, {12, 130}, {170, 12}, {100, 100}};

affine Rotation(double degrees, double scale, double tx, double ty) {
  const double r = degrees * std::numbers::pi / 180;
  return {
      tx, ty, scale * std::cos(r), -scale * std::sin(r), scale * std::sin(r), scale * std::cos(r)};
}

enum class Model { Translation, Rigid, RigidScale, Affine };

bool Fit(Model model, const std::vector<std::pair<Point, Point>>& pairs, affine& out) {
  tracking::TranslationFit t;
  tracking::SimilarityFit s;
  tracking::AffineFit a;
  for (const auto& [p, q] : pairs) {
    t.add(p, q, 1);
    s.add(p, q, 1);
    a.add(p, q, 1);
  }
  switch (model) {
    case Model::Translation:
      return t.solve(out);
    case Model::Rigid:
      return s.solve_rigid(out);
    case Model::RigidScale:
      return s.solve_rigid_scale(out);
    default:
      return a.solve(out);
  }
}

std::vector<std::pair<Point, Point>> Pairs(const affine& m, double noise, uint32_t seed) {
  std::mt19937 rng(seed);
  std::normal_distribution<double> n(0, noise);
  std::vector<std::pair<Point, Point>> out;
  for (const Point& p : kPoints) {
    Point q;
    m.apply(p.x, p.y, q.x, q.y);
    if (noise > 0) {
      q.x += n(rng);
      q.y += n(rng);
    }
    out.push_back({p, q});
  }
  return out;
}

void ExpectNear(const affine& a, const affine& b, double matrix_tol, double shift_tol) {
  EXPECT_NEAR(a.xx, b.xx, matrix_tol);
  EXPECT_NEAR(a.xy, b.xy, matrix_tol);
  EXPECT_NEAR(a.yx, b.yx, matrix_tol);
  EXPECT_NEAR(a.yy, b.yy, matrix_tol);
  EXPECT_NEAR(a.x, b.x, shift_tol);
  EXPECT_NEAR(a.y, b.y, shift_tol);
}

bool IsSingle(double v) {
  return double(float(v)) == v;
}

struct MotionCase {
  const char* name;
  Model model;
  affine motion;
};

class PointSetFit : public ::testing::TestWithParam<MotionCase> {};

TEST_P(PointSetFit, RecoversExactMotionInSinglePrecision) {
  affine got;
  ASSERT_TRUE(Fit(GetParam().model, Pairs(GetParam().motion, 0, 0), got));
  ExpectNear(got, GetParam().motion, 1e-6, 1e-4);
  for (const double v : {got.x, got.y, got.xx, got.xy, got.yx, got.yy})
    EXPECT_TRUE(IsSingle(v)) << v;
}

TEST_P(PointSetFit, StaysCloseUnderNoise) {
  affine got;
  ASSERT_TRUE(Fit(GetParam().model, Pairs(GetParam().motion, 0.3, 11), got));
  ExpectNear(got, GetParam().motion, 5e-3, 0.6);
}

INSTANTIATE_TEST_SUITE_P(
    Motions,
    PointSetFit,
    ::testing::Values(MotionCase{"Translation", Model::Translation,
                                 affine::translation(3.25, -7.5)},
                      MotionCase{"Rigid", Model::Rigid, Rotation(12, 1, 5, -3)},
                      MotionCase{"Rigid90", Model::Rigid, Rotation(90, 1, 0, 0)},
                      MotionCase{"RigidScale", Model::RigidScale, Rotation(-7, 1.08, -2, 9)},
                      MotionCase{"Affine", Model::Affine, affine{4, -6, 1.05, 0.07, -0.03, 0.96}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(PointSetFit, StillPairsGiveTheIdentityForEveryModel) {
  for (const Model m : {Model::Translation, Model::Rigid, Model::RigidScale, Model::Affine}) {
    affine got{9, 9, 9, 9, 9, 9};
    ASSERT_TRUE(Fit(m, Pairs(affine::identity(), 0, 0), got));
    ExpectNear(got, affine::identity(), 1e-12, 1e-9);
  }
}

TEST(PointSetFit, DegenerateSetsFailAndLeaveTheOutputAlone) {
  const affine untouched{9, 9, 9, 9, 9, 9};
  // All p equal.
  std::vector<std::pair<Point, Point>> same(5, {{3, 4}, {5, 6}});
  for (const Model m : {Model::Rigid, Model::RigidScale, Model::Affine}) {
    affine got = untouched;
    EXPECT_FALSE(Fit(m, same, got));
    EXPECT_EQ(got, untouched);
  }
  // All p on one line: only the affine fit fails.
  std::vector<std::pair<Point, Point>> line;
  for (int i = 0; i < 6; ++i) line.push_back({{double(i), 2.0 * i}, {i + 1.0, 2.0 * i - 1}});
  affine got = untouched;
  EXPECT_FALSE(Fit(Model::Affine, line, got));
  EXPECT_EQ(got, untouched);
  EXPECT_TRUE(Fit(Model::Rigid, line, got));
  EXPECT_TRUE(Fit(Model::RigidScale, line, got));
  // No pairs at all: the translation has no weight and gives the identity.
  EXPECT_TRUE(Fit(Model::Translation, {}, got));
  EXPECT_EQ(got, affine::identity());
}

TEST(PointSetFit, RigidKeepsTheRotationOfAScaledMotionAndFitsTheMeans) {
  const affine scaled = Rotation(20, 2, 1, 2);
  const auto pairs = Pairs(scaled, 0, 0);
  affine rigid, rigid_scale;
  ASSERT_TRUE(Fit(Model::Rigid, pairs, rigid));
  ASSERT_TRUE(Fit(Model::RigidScale, pairs, rigid_scale));
  ExpectNear(rigid_scale, scaled, 1e-6, 1e-4);
  ExpectNear(rigid, Rotation(20, 1, 0, 0), 1e-6, 1e9);
  // The mean of p maps onto the mean of q.
  double px = 0, py = 0, qx = 0, qy = 0;
  for (const auto& [p, q] : pairs) px += p.x, py += p.y, qx += q.x, qy += q.y;
  const double n = double(pairs.size());
  double mx, my;
  rigid.apply(px / n, py / n, mx, my);
  EXPECT_NEAR(mx, qx / n, 1e-3);
  EXPECT_NEAR(my, qy / n, 1e-3);
}

std::vector<tracking::SegmentMotion> Segments(int vx, int vy) {
  std::vector<tracking::SegmentMotion> out;
  for (const Point& p : kPoints) out.push_back({p.x, p.y, vx, vy});
  return out;
}

TEST(Match, LogsTheModelAndTheResultLine) {
  std::ostringstream log;
  affine out;
  tracking::match(Segments(3, -2), TransformClass::Translation, out, &log);
  EXPECT_EQ(log.str(), "Matching point sets with translation motion...\n1 0 0 1 3 -2\n");
  EXPECT_EQ(out, affine::translation(3, -2));
  log.str("");
  tracking::match(Segments(3, -2), TransformClass::RigidScale, out, &log);
  EXPECT_EQ(log.str().rfind("Matching point sets with rigid+scale motion...\n", 0), 0u);
  ExpectNear(out, affine::translation(3, -2), 1e-9, 1e-6);
}

TEST(Match, ModelWithoutNameDoesNothing) {
  std::ostringstream log;
  const affine untouched{1, 2, 3, 4, 5, 6};
  affine out = untouched;
  tracking::match(Segments(3, -2), TransformClass::Affine1, out, &log);
  EXPECT_EQ(out, untouched);
  EXPECT_EQ(log.str(), "");
}

TEST(Match, DegenerateGridGivesTheIdentity) {
  std::vector<tracking::SegmentMotion> one(4, {50, 60, 2, 2});
  affine out{1, 2, 3, 4, 5, 6};
  tracking::match(one, TransformClass::Affine, out, nullptr);
  EXPECT_EQ(out, affine::identity());
  out = {1, 2, 3, 4, 5, 6};
  tracking::match(one, TransformClass::Translation, out, nullptr);
  EXPECT_EQ(out, affine::translation(2, 2));
}

}  // namespace
