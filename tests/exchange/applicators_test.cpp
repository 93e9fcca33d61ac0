#include <cmath>
#include <memory>
#include <numbers>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "exchange/transform_applicator.h"
#include "motions.h"
#include "recording_storage.h"

namespace {

using namespace motions;
using types::affine;

constexpr int kW = 300, kH = 100;
constexpr int kFirst = 10;
const double kHyp = std::hypot(300.0, 100.0);

struct Delivery {
  std::vector<RecordedBlock> blocks;
  int keyframe_count = 0;
  int steps = 0;  // calls of Step, the last one returning false
};

Delivery Export(const Transformations& record) {
  Delivery run;
  auto applicator = CreateTransformApplicator(record, kW, kH);
  applicator->SetTransformations(record);
  applicator->Begin(std::make_unique<RecordingStorage>(
      kW, kH, record.first, int(record.GetTransforms().size()), run.blocks));
  run.keyframe_count = applicator->KeyframeCount();
  do {
    ++run.steps;
  } while (applicator->Step());
  return run;
}

Transformations Record(ExportModel model, std::vector<affine> frames, float inaccuracy) {
  Transformations record;
  record.Own() = std::move(frames);
  record.ExportModel = model;
  record.ExportInaccuracy = inaccuracy;
  record.first = kFirst;
  return record;
}

const RecordedBlock& Block(const Delivery& run, const std::string& name) {
  for (const auto& block : run.blocks)
    if (block.name == name) return block;
  static const RecordedBlock none{"none", {}};
  ADD_FAILURE() << "no block " << name;
  return none;
}

affine AboutCentre(const affine& linear, double dx = 0, double dy = 0) {
  return About(linear, kW / 2.0, kH / 2.0, kW / 2.0 + dx, kH / 2.0 + dy);
}

struct OrderCase {
  ExportModel model;
  std::vector<std::string> blocks;
};

class BlockOrder : public ::testing::TestWithParam<OrderCase> {};

// Every frame is a keyframe with inaccuracy 0; each Step delivers exactly one
// of them, and KeyframeCount knows how many.
TEST_P(BlockOrder, BlocksComeInModelOrderWithEveryFrame) {
  std::vector<affine> frames;
  for (int i = 0; i < 5; ++i)
    frames.push_back(
        AboutCentre(Rotation(0.1 * i) * Scale(1 + 0.05 * i, 1 - 0.02 * i) * VerticalShear(0.03 * i),
                    2.0 * i, -1.0 * i));
  const Delivery run = Export(Record(GetParam().model, frames, 0));

  std::vector<std::string> names;
  int rows = 0;
  for (const auto& block : run.blocks) {
    names.push_back(block.name);
    if (block.name == "Transform 3") {
      // The switch that turns Uniform Scale off: one key, not counted.
      ASSERT_EQ(block.rows.size(), 1u);
      EXPECT_EQ(block.rows[0].frame, kFirst);
      EXPECT_EQ(block.rows[0].values, std::vector<double>{0.0});
      continue;
    }
    ASSERT_EQ(block.rows.size(), 5u) << block.name;
    for (int i = 0; i < 5; ++i) EXPECT_EQ(block.rows[i].frame, kFirst + i) << block.name;
    rows += 5;
  }
  EXPECT_EQ(names, GetParam().blocks);
  EXPECT_EQ(run.keyframe_count, rows);
  EXPECT_EQ(run.steps, rows);
}

INSTANTIATE_TEST_SUITE_P(
    Models,
    BlockOrder,
    ::testing::Values(
        OrderCase{ExportModel::Translation, {"Layer 1"}},
        OrderCase{ExportModel::Rigid, {"Layer 1", "Layer 3"}},
        OrderCase{ExportModel::RigidScale, {"Layer 1", "Layer 2", "Layer 3"}},
        OrderCase{ExportModel::Affine3, {"Layer 1", "Layer 2", "Layer 3", "Transform 6"}},
        OrderCase{ExportModel::Affine1,
                  {"Transform 2", "Transform 3", "Transform 4", "Transform 5", "Transform 6",
                   "Transform 7", "Transform 8"}},
        OrderCase{ExportModel::Affine2,
                  {"Transform 2", "Transform 4", "Transform 6", "Transform 7", "Transform 8"}},
        OrderCase{ExportModel::CornerPin,
                  {"Corner Pin 1", "Corner Pin 2", "Corner Pin 3", "Corner Pin 4"}}),
    [](const auto& info) { return std::string(FileWord(info.param.model)); });

// Each list is thinned with the inaccuracy turned into its own unit and
// weighted by the model. Three frames, the middle one off in one parameter
// only: just above the threshold inaccuracy e* the middle key goes, just
// below it stays.
struct ToleranceCase {
  const char* name;
  ExportModel model;
  const char* block;
  affine middle;     // the middle frame; the outer two are the identity
  double threshold;  // e*
};

class ListTolerance : public ::testing::TestWithParam<ToleranceCase> {};

TEST_P(ListTolerance, MiddleKeyGoesExactlyAboveTheWeightedInaccuracy) {
  const ToleranceCase& c = GetParam();
  for (auto [factor, rows] : {std::pair{1.02, 2u}, {0.98, 3u}}) {
    const float e = float(c.threshold * factor);
    const Delivery run =
        Export(Record(c.model, {affine::identity(), c.middle, affine::identity()}, e));
    EXPECT_EQ(Block(run, c.block).rows.size(), rows) << "inaccuracy " << e;
  }
}

constexpr double d = 0.01;
const double kRotationThreshold = std::sqrt(1 - std::cos(d)) * kHyp / std::numbers::sqrt2;

INSTANTIATE_TEST_SUITE_P(
    Lists,
    ListTolerance,
    ::testing::Values(
        // Positions: 0.1 px off, weight 1, 1/2, 1/3, 1/4, 1/5, 1/4.
        ToleranceCase{"TranslationPosition", ExportModel::Translation, "Layer 1",
                      affine::translation(0.1, 0), 0.1},
        ToleranceCase{"RigidPosition", ExportModel::Rigid, "Layer 1", affine::translation(0, 0.1),
                      0.1 / 0.5},
        ToleranceCase{"RigidScalePosition", ExportModel::RigidScale, "Layer 1",
                      affine::translation(0.1, 0), 0.1 * 3},
        ToleranceCase{"MixedPosition", ExportModel::Affine3, "Layer 1", affine::translation(0.1, 0),
                      0.1 / 0.25},
        ToleranceCase{"VerticalSkewPosition", ExportModel::Affine1, "Transform 2",
                      affine::translation(0.1, 0), 0.1 / 0.2},
        ToleranceCase{"UniformScalePosition", ExportModel::Affine2, "Transform 2",
                      affine::translation(0.1, 0), 0.1 / 0.25},
        ToleranceCase{"CornerPinIsUnweighted", ExportModel::CornerPin, "Corner Pin 4",
                      affine::translation(0.1, 0), 0.1},
        // Angles: 1 - cos d against (w sqrt2 / hyp e)^2.
        ToleranceCase{"RigidRotation", ExportModel::Rigid, "Layer 3", AboutCentre(Rotation(d)),
                      kRotationThreshold / 0.5},
        ToleranceCase{"MixedRotation", ExportModel::Affine3, "Layer 3", AboutCentre(Rotation(d)),
                      kRotationThreshold / 0.25},
        ToleranceCase{"VerticalSkewRotation", ExportModel::Affine1, "Transform 8",
                      AboutCentre(Rotation(d)), kRotationThreshold / 0.2},
        // Scales and skews: d against 2w / extent e.
        ToleranceCase{"RigidScaleScale", ExportModel::RigidScale, "Layer 2",
                      AboutCentre(Scale(1 + d, 1 + d)), d* kHyp / (2 / 3.0)},
        ToleranceCase{"MixedScalesUseTheLongerSide", ExportModel::Affine3, "Layer 2",
                      AboutCentre(Scale(1, 1 + d)), d* kW / (2 * 0.25)},
        ToleranceCase{"MixedSkewUsesTheWidth", ExportModel::Affine3, "Transform 6",
                      AboutCentre(VerticalShear(d)), d* kW / (2 * 0.25)},
        ToleranceCase{"ScaleHeightUsesTheHeight", ExportModel::Affine1, "Transform 4",
                      AboutCentre(Scale(1, 1 + d)), d* kH / (2 * 0.2)},
        ToleranceCase{"ScaleWidthUsesTheWidth", ExportModel::Affine1, "Transform 5",
                      AboutCentre(Scale(1 + d, 1)), d* kW / (2 * 0.2)},
        ToleranceCase{"UniformScaleUsesTheDiagonal", ExportModel::Affine2, "Transform 4",
                      AboutCentre(Scale(1 + d, 1 + d)), d* kHyp / (2 * 0.25)},
        // A skew of tangent d along a vertical axis moves the diagonals by d.
        ToleranceCase{"SkewUsesTheDiagonal", ExportModel::Affine1, "Transform 6",
                      AboutCentre(VerticalShear(d)), d* kHyp / (2 * 0.2)}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(Applicators, CompensationGivesTheInverseMotionWithoutTheInitialTransform) {
  Transformations record =
      Record(ExportModel::RigidScale, {AboutCentre(Rotation(0.2) * Scale(2, 2), 6, -4)}, 0.3f);
  record.Task = TaskType::Compensation;
  record.InitialTransform = affine::translation(50, 50);
  const Delivery run = Export(record);
  // A zoom in the source is a shrink of the compensated underlay.
  ASSERT_EQ(Block(run, "Layer 2").rows.size(), 1u);
  EXPECT_NEAR(Block(run, "Layer 2").rows[0].values[0], 50, 1e-12);
  EXPECT_NEAR(Block(run, "Layer 2").rows[0].values[1], 50, 1e-12);
  EXPECT_NEAR(Block(run, "Layer 3").rows[0].values[0], -0.2 * 180 / std::numbers::pi, 1e-12);
  // The centre moves back by the inverse: (156, 46) -> (150, 50) of the
  // inverse maps (150, 50) to where the source centre came from.
  const auto& position = Block(run, "Layer 1").rows[0].values;
  const affine m = AboutCentre(Rotation(0.2) * Scale(2, 2), 6, -4);
  double x, y;
  m.apply(position[0], position[1], x, y);
  EXPECT_NEAR(x, kW / 2.0, 1e-12);
  EXPECT_NEAR(y, kH / 2.0, 1e-12);
}

TEST(Applicators, TrackingCarriesTheInitialTransformFromTheFirstFrame) {
  Transformations record = Record(ExportModel::Translation, {affine::identity()}, 0.3f);
  record.InitialTransform = affine::translation(5, 7);
  const Delivery run = Export(record);
  ASSERT_EQ(Block(run, "Layer 1").rows.size(), 1u);
  EXPECT_EQ(Block(run, "Layer 1").rows[0].values,
            (std::vector<double>{kW / 2.0 + 5, kH / 2.0 + 7}));
}

TEST(Applicators, VerticalSkewSwitchesUniformScaleOffOnceWhateverTheTolerance) {
  std::vector<affine> frames;
  for (int i = 0; i < 40; ++i) frames.push_back(AboutCentre(Scale(1 + 0.01 * i, 1), i, 0));
  for (float e : {0.0f, 0.3f, 50.0f}) {
    const Delivery run = Export(Record(ExportModel::Affine1, frames, e));
    const auto& block = Block(run, "Transform 3");
    ASSERT_EQ(block.rows.size(), 1u) << e;
    EXPECT_EQ(block.rows[0].frame, kFirst);
  }
}

TEST(Applicators, ExactMotionKeepsEverySecondKey) {
  std::vector<affine> frames;
  for (int i = 0; i < 7; ++i) frames.push_back(affine::translation(1.0 * i, -2.0 * i));
  const Delivery run = Export(Record(ExportModel::Rigid, frames, 0.3f));
  for (const char* name : {"Layer 1", "Layer 3"}) {
    std::vector<int> kept;
    for (const auto& row : Block(run, name).rows) kept.push_back(row.frame - kFirst);
    EXPECT_EQ(kept, (std::vector<int>{0, 2, 4, 6})) << name;
  }
}

}  // namespace
