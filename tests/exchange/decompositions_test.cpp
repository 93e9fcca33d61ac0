#include "exchange/decompositions.h"

#include <random>

#include <gtest/gtest.h>

#include "motions.h"

namespace {

using namespace motions;
using types::affine;

void ExpectNear(const affine& actual, const affine& expected, double eps) {
  EXPECT_NEAR(actual.xx, expected.xx, eps) << "xx";
  EXPECT_NEAR(actual.xy, expected.xy, eps) << "xy";
  EXPECT_NEAR(actual.yx, expected.yx, eps) << "yx";
  EXPECT_NEAR(actual.yy, expected.yy, eps) << "yy";
  EXPECT_NEAR(actual.x, expected.x, eps) << "x";
  EXPECT_NEAR(actual.y, expected.y, eps) << "y";
}

constexpr int kW = 640, kH = 360;

TEST(FrameTransform, TrackingAppliesTheInitialTransformFirst) {
  const affine m{5, -3, 1.1, 0.2, -0.1, 0.9};
  const affine i = affine::translation(10, 20);
  double x, y, ex, ey;
  FrameTransform(m, i, TaskType::Tracking).apply(1, 2, x, y);
  m.apply(11, 22, ex, ey);
  EXPECT_DOUBLE_EQ(x, ex);
  EXPECT_DOUBLE_EQ(y, ey);
}

TEST(FrameTransform, CompensationInvertsAndIgnoresTheInitialTransform) {
  const affine m{5, -3, 1.1, 0.2, -0.1, 0.9};
  const affine t = FrameTransform(m, affine::translation(10, 20), TaskType::Compensation);
  ExpectNear(t * m, affine::identity(), 1e-14);
  // Written with divisions by the determinant, bit for bit.
  const double det = 1.1 * 0.9 - 0.2 * -0.1;
  EXPECT_EQ(t.xx, 0.9 / det);
  EXPECT_EQ(t.x, (0.2 * -3 - 0.9 * 5) / det);
}

struct RigidCase {
  const char* name;
  double rotation, scale, px, py;
};

class RigidRecomposition : public ::testing::TestWithParam<RigidCase> {};

// Position, rotation and scale about the frame's centre give back the
// frame's matrix (and for Translation and Rigid, those parts alone).
TEST_P(RigidRecomposition, PositionRotationAndScaleGiveBackTheMatrix) {
  const RigidCase& c = GetParam();
  const affine linear = Rotation(c.rotation) * Scale(c.scale, c.scale);
  const affine m = About(linear, kW / 2.0, kH / 2.0, c.px, c.py);

  const Point2 p = CentreImage(m, kW, kH);
  const double r = RigidRotation(m);
  const double s = RigidScale(m);
  ExpectNear(About(Rotation(r) * Scale(s, s), kW / 2.0, kH / 2.0, p.x, p.y), m, 1e-9);
  EXPECT_NEAR(r, c.rotation, 1e-12);
  EXPECT_NEAR(s, c.scale, 1e-12);
  EXPECT_NEAR(p.x, c.px, 1e-9);
  EXPECT_NEAR(p.y, c.py, 1e-9);
}

INSTANTIATE_TEST_SUITE_P(Motions,
                         RigidRecomposition,
                         ::testing::Values(RigidCase{"Translation", 0, 1, 330.5, 170.25},
                                           RigidCase{"Rotation", 0.3, 1, 300, 200},
                                           RigidCase{"NegativeRotation", -2.9, 1, 10, -4},
                                           RigidCase{"RotationAndZoom", 1.2, 1.75, 320, 180},
                                           RigidCase{"Shrink", -0.05, 0.4, 0, 0}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(DecomposeMixed, RecoversRotationScalesAndSkew) {
  for (double r : {-2.5, -0.4, 0.0, 0.7, 3.0})
    for (double k : {-0.6, 0.0, 0.35}) {
      const affine m = Rotation(r) * Scale(1.3, 0.8) * VerticalShear(k);
      const MixedParameters p = DecomposeMixed(m);
      EXPECT_NEAR(p.rotation, r, 1e-12) << r << " " << k;
      EXPECT_NEAR(p.scale_x, 1.3, 1e-12);
      EXPECT_NEAR(p.scale_y, 0.8, 1e-12);
      EXPECT_NEAR(p.skew, k, 1e-12);
    }
}

TEST(DecomposeVerticalSkew, RecoversParametersAndKeepsTheAxisVertical) {
  for (double r : {-1.5, 0.0, 0.4, 2.8})
    for (double k : {-0.5, 0.0, 0.25}) {
      const affine m = Rotation(r) * VerticalShear(k) * Scale(1.2, 0.7);
      const SkewEffectParameters p = DecomposeVerticalSkew(m);
      EXPECT_NEAR(p.rotation, r, 1e-12) << r << " " << k;
      EXPECT_NEAR(p.skew, k, 1e-12);
      EXPECT_NEAR(p.scale_width, 1.2, 1e-12);
      EXPECT_NEAR(p.scale_height, 0.7, 1e-12);
      EXPECT_EQ(p.skew_axis, -p.rotation);
      // The effect's form: skew along the axis, after rotation and scales.
      ExpectNear(AxisSkew(p.skew, p.skew_axis) * Rotation(p.rotation) *
                     Scale(p.scale_width, p.scale_height),
                 m, 1e-12);
    }
}

// A skew with rotation has two parameter sets; the sign rule of the
// decomposition picks the one with a positive tangent for these (a rotation
// of -0.3 gets the other; the recomposition below covers both).
TEST(DecomposeUniformScale, RecoversKnownParameters) {
  for (double r : {0.1, 0.3, 0.6, 1.1})
    for (double phi : {-0.5, 0.0, 0.2, 0.6}) {
      const double k = 0.4, s = 1.3;
      const affine m = Scale(s, s) * AxisSkew(k, phi) * Rotation(r);
      const SkewEffectParameters p = DecomposeUniformScale(m);
      EXPECT_NEAR(p.scale_height, s, 1e-12) << r << " " << phi;
      EXPECT_NEAR(p.skew, k, 1e-12) << r << " " << phi;
      EXPECT_NEAR(p.rotation, r, 1e-12) << r << " " << phi;
      EXPECT_NEAR(p.skew_axis, phi, 1e-12) << r << " " << phi;
    }
}

// Any matrix that neither mirrors nor collapses is one such parameter set,
// with either sign of the tangent.
TEST(DecomposeUniformScale, RecomposesAnyOrientationPreservingMatrix) {
  std::mt19937 random(5);
  std::uniform_real_distribution<double> entry(-2, 2);
  for (int n = 0; n < 500; ++n) {
    const affine m = Linear(entry(random), entry(random), entry(random), entry(random));
    if (m.determinant() < 0.05) continue;
    const SkewEffectParameters p = DecomposeUniformScale(m);
    ExpectNear(Scale(p.scale_height, p.scale_height) * AxisSkew(p.skew, p.skew_axis) *
                   Rotation(p.rotation),
               m, 1e-9);
  }
}

TEST(DecomposeUniformScale, MirroredTransformYieldsNaNUnchecked) {
  const SkewEffectParameters p = DecomposeUniformScale(Scale(-1, 1));
  EXPECT_TRUE(std::isnan(p.scale_height));
}

}  // namespace
