// SPDX-License-Identifier: GPL-3.0-or-later
#include <cmath>
#include <map>
#include <memory>
#include <numbers>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "exchange/auto_model.h"
#include "exchange/decompositions.h"
#include "exchange/keyframe_storage.h"
#include "exchange/transform_applicator.h"

namespace {

using types::affine;
using M = ExportModel;

constexpr int kW = 300, kH = 100;
constexpr int kFirst = 10;
const double kHyp = std::hypot(300.0, 100.0);

// Matrices from known parameters: an independent construction to check against.
affine Linear(double a, double b, double c, double d) {
  return {0, 0, a, b, c, d};
}
affine Rotation(double r) {
  return Linear(std::cos(r), -std::sin(r), std::sin(r), std::cos(r));
}
affine Scale(double sx, double sy) {
  return Linear(sx, 0, 0, sy);
}
// x stays, y moves by tangent * x.
affine VerticalShear(double tangent) {
  return Linear(1, 0, tangent, 1);
}
// I + k (sin phi, cos phi)(cos phi, -sin phi)^T: a skew of tangent k along
// the axis phi, as the host's "Transform" effect applies it.
affine AxisSkew(double k, double phi) {
  const double s = std::sin(phi), c = std::cos(phi);
  return Linear(1 + k * s * c, -k * s * s, k * c * c, 1 - k * s * c);
}
// `linear` about the frame's centre, which then moves by (dx, dy).
affine AboutCentre(const affine& linear, double dx = 0, double dy = 0) {
  return affine::translation(kW / 2.0 + dx, kH / 2.0 + dy) * linear *
         affine::translation(-kW / 2.0, -kH / 2.0);
}

Transformations Record(M model, std::vector<affine> frames, float inaccuracy) {
  Transformations record;
  record.Own() = std::move(frames);
  record.ExportModel = model;
  record.ExportInaccuracy = inaccuracy;
  record.first = kFirst;
  return record;
}

void ExpectNear(const affine& a, const affine& b, double eps) {
  for (auto [u, v] :
       {std::pair{a.xx, b.xx}, {a.xy, b.xy}, {a.yx, b.yx}, {a.yy, b.yy}, {a.x, b.x}, {a.y, b.y}})
    EXPECT_NEAR(u, v, eps);
}

// Any matrix that neither mirrors nor collapses is one parameter set of each
// effect form; a rigid motion with zoom gives back its rotation, scale, centre.
TEST(Decompositions, ParametersRecomposeTheMatrix) {
  std::mt19937 random(5);
  std::uniform_real_distribution<double> entry(-2, 2);
  for (int n = 0; n < 500; ++n) {
    const affine m = Linear(entry(random), entry(random), entry(random), entry(random));
    if (m.determinant() < 0.05) continue;
    const MixedParameters x = DecomposeMixed(m);
    ExpectNear(Rotation(x.rotation) * Scale(x.scale_x, x.scale_y) * VerticalShear(x.skew), m, 1e-9);
    const SkewEffectParameters v = DecomposeVerticalSkew(m);
    EXPECT_EQ(v.skew_axis, -v.rotation);
    ExpectNear(
        AxisSkew(v.skew, v.skew_axis) * Rotation(v.rotation) * Scale(v.scale_width, v.scale_height),
        m, 1e-9);
    const SkewEffectParameters u = DecomposeUniformScale(m);
    const double s = u.scale_height;
    ExpectNear(Scale(s, s) * AxisSkew(u.skew, u.skew_axis) * Rotation(u.rotation), m, 1e-9);

    const double r = 1.5 * entry(random), z = 1.1 + entry(random) / 2, dx = 50 * entry(random);
    const affine rigid = AboutCentre(Rotation(r) * Scale(z, z), dx, -dx);
    EXPECT_NEAR(RigidRotation(rigid), r, 1e-12);
    EXPECT_NEAR(RigidScale(rigid), z, 1e-12);
    EXPECT_NEAR(CentreImage(rigid, kW, kH).x, kW / 2.0 + dx, 1e-9);
    EXPECT_NEAR(CentreImage(rigid, kW, kH).y, kH / 2.0 - dx, 1e-9);
  }
}

TEST(ChooseExportModel, PicksTheSimplestModelThatFits) {
  const std::tuple<const char*, std::vector<affine>, float, M> cases[] = {
      {"moves", {affine::translation(3, 4), affine::translation(-250, 1e4)}, 0, M::Translation},
      // The rigid test's sine terms have the signs of no rotation: a clear turn
      // fails it, a half turn (the sine vanishes) passes.
      {"turn", {AboutCentre(Rotation(0.17), 5, 1)}, 0.3f, M::RigidScale},
      {"half turn", {AboutCentre(Rotation(std::numbers::pi), 7, 0)}, 0.3f, M::Rigid},
      {"shear", {affine::identity(), AboutCentre(VerticalShear(0.05))}, 0.3f, M::Affine3},
      // With inaccuracy 0, tol^2 = 0.0001: an x scale of 1 + k about the origin
      // leaves the corners 150 k px off a translation (a uniform scale halves it).
      {"0.009 px", {Linear(1 + 0.6e-4, 0, 0, 1)}, 0, M::Translation},
      {"0.012 px", {Linear(1 + 0.8e-4, 0, 0, 1)}, 0, M::RigidScale},
      {"0.012 px, e 0.3", {Linear(1 + 0.8e-4, 0, 0, 1)}, 0.3f, M::Translation},
      {"last frame decides", {affine::identity(), AboutCentre(Scale(1.5, 0.5))}, 0.3f, M::Affine3},
  };
  for (const auto& [name, frames, inaccuracy, expected] : cases)
    EXPECT_EQ(ChooseExportModel(Record(M::Auto, frames, inaccuracy), kW, kH), expected) << name;
  // The choice reads the raw matrices: neither the initial transform nor the
  // compensation's inverse changes it.
  Transformations record = Record(M::Auto, {affine::translation(4, 4)}, 0.3f);
  record.InitialTransform = AboutCentre(VerticalShear(0.5));
  record.Task = TaskType::Compensation;
  EXPECT_EQ(ChooseExportModel(record, kW, kH), M::Translation);
}

using Row = std::pair<int, std::vector<double>>;  // frame, values

// What an applicator delivered by block ("Layer 1", "Transform 6", "Corner Pin 3").
struct Delivery {
  std::map<std::string, std::vector<Row>> blocks;
  int keyframe_count = 0;
  int steps = 0;  // calls of Step, the last one returning false
};

class RecordingStorage : public VL::KeyframeStorage {
 public:
  RecordingStorage(int count, Delivery& run)
      : KeyframeStorage(kW, kH, kFirst, kFirst + count), run_(run) {}
  void SelectLayerParameter(int which) override { Open("Layer ", which), effect_.clear(); }
  void SelectEffect(const char* name) override { effect_ = name; }
  void SelectEffectParameter(int index) override { Open(effect_ + " ", index); }
  void AddKeyframe(int frame, double x, double y) override { rows_->push_back({frame, {x, y}}); }
  void AddKeyframe(int frame, double value) override { rows_->push_back({frame, {value}}); }

 private:
  void Open(const std::string& name, int i) { rows_ = &run_.blocks[name + std::to_string(i)]; }
  Delivery& run_;
  std::string effect_;
  std::vector<Row>* rows_ = nullptr;
};

Delivery Export(const Transformations& record) {
  Delivery run;
  auto applicator = CreateTransformApplicator(record, kW, kH);
  applicator->SetTransformations(record);
  applicator->Begin(std::make_unique<RecordingStorage>(int(record.GetTransforms().size()), run));
  run.keyframe_count = applicator->KeyframeCount();
  for (run.steps = 1; applicator->Step();) ++run.steps;
  return run;
}

// Each Step delivers one key, KeyframeCount knows how many, every block spans
// all frames; the vertical-skew model turns Uniform Scale off with one uncounted key.
TEST(Applicators, StepsDeliverEveryCountedKeyInFrameOrder) {
  std::vector<affine> frames;
  for (int i = 0; i < 5; ++i)
    frames.push_back(
        AboutCentre(Rotation(0.1 * i) * Scale(1 + 0.05 * i, 1 - 0.02 * i) * VerticalShear(0.03 * i),
                    2.0 * i, -1.0 * i));
  for (int model = int(M::Translation); model <= int(M::CornerPin); ++model)
    for (float e : {0.0f, 0.3f, 50.0f}) {
      SCOPED_TRACE(::testing::Message() << FileWord(M(model)) << " inaccuracy " << e);
      Delivery run = Export(Record(M(model), frames, e));
      if (M(model) == M::Affine1) {
        EXPECT_EQ(run.blocks["Transform 3"], (std::vector<Row>{{kFirst, {0.0}}}));
        run.blocks.erase("Transform 3");
      }
      int keys = 0;
      for (const auto& [name, rows] : run.blocks) {
        ASSERT_TRUE(e > 0 || rows.size() == 5) << name;
        EXPECT_EQ(rows.front().first, kFirst) << name;
        EXPECT_EQ(rows.back().first, kFirst + 4) << name;
        keys += int(rows.size());
      }
      EXPECT_EQ(run.keyframe_count, keys);
      EXPECT_EQ(run.steps, keys);
    }
}

// Each list is thinned with the inaccuracy in its own unit, weighted by the model:
// of three frames, the middle key goes just above the threshold e*, not below.
TEST(Applicators, MiddleKeyGoesExactlyAboveTheWeightedInaccuracy) {
  constexpr double d = 0.01;
  const double turn = std::sqrt(1 - std::cos(d)) * kHyp / std::numbers::sqrt2;
  const std::tuple<M, const char*, affine, double> cases[] = {
      // Positions: 0.1 px off, weight 1, 1/2, 1/3, 1/5, 1/4; corners unweighted.
      {M::Translation, "Layer 1", affine::translation(0.1, 0), 0.1},
      {M::Rigid, "Layer 1", affine::translation(0, 0.1), 0.1 / 0.5},
      {M::RigidScale, "Layer 1", affine::translation(0.1, 0), 0.1 * 3},
      {M::Affine1, "Transform 2", affine::translation(0.1, 0), 0.1 / 0.2},
      {M::Affine2, "Transform 2", affine::translation(0.1, 0), 0.1 / 0.25},
      {M::CornerPin, "Corner Pin 4", affine::translation(0.1, 0), 0.1},
      // Angles: 1 - cos d against (w sqrt2 / hyp e)^2.
      {M::Rigid, "Layer 3", AboutCentre(Rotation(d)), turn / 0.5},
      // Scales and skews: d against 2w / extent e (diagonal, longer side, height).
      {M::RigidScale, "Layer 2", AboutCentre(Scale(1 + d, 1 + d)), d * kHyp / (2 / 3.0)},
      {M::Affine3, "Layer 2", AboutCentre(Scale(1, 1 + d)), d * kW / (2 * 0.25)},
      {M::Affine1, "Transform 4", AboutCentre(Scale(1, 1 + d)), d * kH / (2 * 0.2)},
      // A skew of tangent d along a vertical axis moves the diagonals by d.
      {M::Affine1, "Transform 6", AboutCentre(VerticalShear(d)), d * kHyp / (2 * 0.2)},
  };
  for (const auto& [model, block, middle, threshold] : cases)
    for (auto [factor, rows] : {std::pair{1.02, 2u}, {0.98, 3u}}) {
      const float e = float(threshold * factor);
      const auto run = Export(Record(model, {affine::identity(), middle, affine::identity()}, e));
      EXPECT_EQ(run.blocks.at(block).size(), rows) << FileWord(model) << " " << block << " " << e;
    }
}

}  // namespace
