#include "exchange/auto_model.h"

#include <numbers>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "exchange/transform_applicator.h"
#include "motions.h"

namespace {

using namespace motions;
using types::affine;

constexpr int kW = 200, kH = 100;

Transformations Record(std::vector<affine> frames, float inaccuracy) {
  Transformations record;
  record.Own() = std::move(frames);
  record.ExportInaccuracy = inaccuracy;
  return record;
}

affine AboutCentre(const affine& linear, double dx = 0, double dy = 0) {
  return About(linear, kW / 2.0, kH / 2.0, kW / 2.0 + dx, kH / 2.0 + dy);
}

struct ChoiceCase {
  const char* name;
  std::vector<affine> frames;
  float inaccuracy;
  ExportModel expected;
};

class AutoChoice : public ::testing::TestWithParam<ChoiceCase> {};

TEST_P(AutoChoice, PicksTheSimplestModelThatFits) {
  const ChoiceCase& c = GetParam();
  EXPECT_EQ(ChooseExportModel(Record(c.frames, c.inaccuracy), kW, kH), c.expected);
}

const double kTenDegrees = 10 * std::numbers::pi / 180;

INSTANTIATE_TEST_SUITE_P(
    Motions,
    AutoChoice,
    ::testing::Values(
        ChoiceCase{"NoFrames", {}, 0.3f, ExportModel::Translation},
        ChoiceCase{"PureTranslation",
                   {affine::translation(3, 4), affine::translation(-250, 1e4)},
                   0.0f,
                   ExportModel::Translation},
        // The rigid test's sine terms have the signs of no rotation: a clear
        // rotation fails it and is described with Rigid & Scale.
        ChoiceCase{"ClearRotation",
                   {AboutCentre(Rotation(kTenDegrees), 5, 1)},
                   0.3f,
                   ExportModel::RigidScale},
        ChoiceCase{"RotationAndZoom",
                   {AboutCentre(Rotation(-0.2) * Scale(1.1, 1.1))},
                   0.3f,
                   ExportModel::RigidScale},
        ChoiceCase{"Shear",
                   {affine::identity(), AboutCentre(VerticalShear(0.05))},
                   0.3f,
                   ExportModel::Affine3},
        // Where the sine vanishes the rigid test fits: a half turn is Rigid.
        ChoiceCase{"HalfTurnIsRigid",
                   {AboutCentre(Rotation(std::numbers::pi), 7, 0)},
                   0.3f,
                   ExportModel::Rigid},
        // With inaccuracy 0 the tolerance is 0.01 px (tol^2 = 0.0001): an x
        // scale of 1 + 0.5e-4 moves the corners by 0.005 px and fits, 1 + 3e-4
        // by 0.03 px and fits no model but the mixed one.
        ChoiceCase{"ZeroInaccuracyStillAllowsAHundredthPixel",
                   {Linear(1 + 0.5e-4, 0, 0, 1)},
                   0.0f,
                   ExportModel::Translation},
        ChoiceCase{
            "ZeroInaccuracyRejectsMore", {Linear(1 + 3e-4, 0, 0, 1)}, 0.0f, ExportModel::Affine3},
        ChoiceCase{
            "LargerInaccuracyWins", {Linear(1 + 3e-4, 0, 0, 1)}, 0.3f, ExportModel::Translation},
        // One bad frame decides for all.
        ChoiceCase{
            "LastFrameDecides",
            {affine::translation(1, 1), affine::translation(2, 2), AboutCentre(Scale(1.5, 0.5))},
            0.3f,
            ExportModel::Affine3}),
    [](const auto& info) { return std::string(info.param.name); });

// The choice reads the raw matrices: neither the initial transform nor the
// compensation's inverse changes it.
TEST(AutoChoice, IgnoresInitialTransformAndTask) {
  Transformations record = Record({affine::translation(4, 4)}, 0.3f);
  record.InitialTransform = AboutCentre(VerticalShear(0.5));
  record.Task = TaskType::Compensation;
  EXPECT_EQ(ChooseExportModel(record, kW, kH), ExportModel::Translation);
}

TEST(CreateTransformApplicator, UnknownModelYieldsNone) {
  Transformations record = Record({affine::identity()}, 0.3f);
  record.ExportModel = ExportModel(8);
  EXPECT_EQ(CreateTransformApplicator(record, kW, kH), nullptr);
  record.ExportModel = ExportModel(-1);
  EXPECT_EQ(CreateTransformApplicator(record, kW, kH), nullptr);
}

}  // namespace
