// SPDX-License-Identifier: GPL-3.0-or-later
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "app/fake_property_objects.h"
#include "app/model/properties_hints.h"
#include "app/model/properties_sets.h"
#include "app/model/setting_tables.h"
#include "app_fixtures.h"

namespace app {
namespace {

using ::testing::EndsWith;
using testing::FakeSegment;
using ::testing::HasSubstr;
using ::testing::Not;
constexpr auto kEn = HintLanguage::English;
constexpr auto kRu = HintLanguage::Russian;

const char kPitch7[] =
    "Reference frame is used as source frame for motion estimation between it and new frame. The "
    "key frame of segment is the first reference frame always. A pitch of 7 means that new "
    "reference frames are generated every 7 frames and motion is estimated between frame 0 and "
    "frames 1 to 7, and so on. This value may need to be decreased for motion with big rotation,  "
    "however bigger value here results in faster processing";

TEST(PropertyHints, ValuesAreComposedIntoTheEnglishText) {
  FakeSegment segment;
  segment.params.ImageBlockSize = 8;
  segment.params.MaskGenerationPitch = 7;
  EditableObject* objects[] = {&segment};
  const auto& params = *SegmentProperties().Child("Parameters");
  EXPECT_THAT(params.Child("Estimation method")->Child("Tracker size")->HintIn(objects, kEn),
              EndsWith(". The value of 8 leads to 64 pixels in most (square) blocks"));
  EXPECT_EQ(params.Child("Reference frame pitch")->HintIn(objects, kEn), kPitch7);
  EXPECT_THAT(hints::ReferenceFramePitch(kEn, 1),
              HasSubstr("generated every 1 frames and motion is estimated between frame 0 and "
                        "frames 1 , and so on."));
  EXPECT_THAT(hints::MatchingRadius(kEn, 15),
              EndsWith("poor.\nCurrent value allows up to 15 pixels displacement in any place of "
                       "the tracked area between key frame and its neighbours"));
  EXPECT_THAT(hints::MaxMotionChange(kEn, 5),
              EndsWith("acceleration. Current value allows up to 5 pixels displacement between "
                       "predicted and actual motion"));
}

TEST(PropertyHints, InaccuracyBranchesOnAPositiveValue) {
  app_testing::PanelFixture f;
  EditableObject* objects[] = {f.composition};
  const auto& row = *CompositionProperties().Child("Export")->Child("Inaccuracy");
  AssignSetting(f.comp, "export_inaccuracy", 0.3f);
  EXPECT_THAT(row.HintIn(objects, kEn),
              EndsWith(" also. \nCurrent value of the parameter means that maximal inaccuracy of "
                       "any point displacement in any frame including invisible points outside "
                       "the mask and the overlay in After Effects ® will be at most 0.3 pixels"));
  AssignSetting(f.comp, "export_inaccuracy", 0.0f);
  EXPECT_THAT(row.HintIn(objects, kEn),
              EndsWith("means that found transformations in this composition will be transmitted "
                       "precisely without any loss at the expense of making each frame in After "
                       "Effects ® the key frame"));
}

TEST(PropertyHints, TransformModelHasLeadLabelAndTailByModel) {
  const std::string lead =
      "Select how the computed motion parameters are uploaded to After Effects ®.\nCurrent value '";
  EXPECT_EQ(hints::TransformModel(kEn, ExportModel::CornerPin),
            lead +
                "Affine Corner Pin' selects accurate transmission of the computed motion by "
                "creating the Corner Pin effect, in which transformations are determined by the "
                "displacements of the four frame corners. (For affine motion, only three out of "
                "four displacements are independent)");
}

TEST(PropertyHints, EnumerationBranches) {
  EXPECT_THAT(hints::Task(kEn, TaskType::Tracking),
              EndsWith("'Motion Tracking' an overlay is given same motion in order to look "
                       "accurately glued above mobile underlay"));
  EXPECT_EQ(hints::EstimationMethod(kEn, MotionEstimation::Normal),
            "Normal method is recommended in most cases. However when the processing time is "
            "critical you may try the Fast method. Intensive estimation method is surely slowly "
            "than others, but might help sometimes");
  EXPECT_EQ(hints::MotionModel(kEn, TransformClass::Affine1),
            "Selects a motion model that fits best the actual motion in video. Affine model is the "
            "most general of all");
  EXPECT_THAT(hints::OriginalMaskInAllFrames(kEn, true), EndsWith("in most situations as well"));
}

// Every row with an English hint has a Russian one, different from it; the
// branches stay apart and carry the same numbers.
void CollectHints(const Property& p,
                  EditableObjects objects,
                  const std::string& path,
                  std::set<std::string>& rows) {
  const std::string en = p.HintIn(objects, kEn);
  if (!en.empty()) {
    rows.insert(path);
    const std::string ru = p.HintIn(objects, kRu);
    EXPECT_THAT(ru, HasSubstr("\xD0")) << path;  // a Cyrillic letter
    EXPECT_NE(ru, en) << path;
  }
  for (const auto& [label, child] : p.GetChildren())
    CollectHints(*child, objects, path + "/" + label, rows);
}

TEST(PropertyHints, RussianHintForEveryHintedRow) {
  app_testing::PanelFixture f;
  FakeSegment segment;
  std::set<std::string> rows;
  EditableObject* c[] = {f.composition};
  EditableObject* o[] = {f.overlay};
  EditableObject* s[] = {&segment};
  CollectHints(CompositionProperties(), c, "", rows);
  CollectHints(OverlayProperties(), o, "", rows);
  CollectHints(SegmentProperties(), s, "", rows);
  // 8 composition rows, 6 overlay rows and 6 transform elements, 8 segment rows.
  EXPECT_EQ(rows.size(), 28u);
  EXPECT_TRUE(rows.count("/Alignment/yx"));
  EXPECT_FALSE(rows.count("/Parameters"));
}

TEST(PropertyHints, RussianFollowsTheEnglishBranches) {
  EXPECT_THAT(hints::Inaccuracy(kRu, 0.3f), HasSubstr(" 0.3 пикс."));
  EXPECT_THAT(hints::Inaccuracy(kRu, 0.0f), EndsWith("станет ключевым"));
  EXPECT_THAT(hints::TrackerSize(kRu, 8), HasSubstr("Значение 8 даёт 64 пикс."));
  EXPECT_THAT(hints::MatchingRadius(kRu, 15), HasSubstr(" 15 пикс."));
  EXPECT_THAT(hints::TransformModel(kRu, ExportModel::Rigid),
              AllOf(HasSubstr("'Rigid' "), EndsWith("аппроксимация движения")));
  EXPECT_THAT(hints::TransformModel(kRu, ExportModel::Affine3),
              AllOf(HasSubstr("точную передачу"), Not(HasSubstr("аппроксимация"))));
  std::set<std::string> distinct;
  for (int v = 0; v < 8; ++v)
    distinct.insert(hints::TransformModel(kRu, static_cast<ExportModel>(v)));
  for (int v = 0; v < 4; ++v)
    distinct.insert(hints::EstimationMethod(kRu, static_cast<MotionEstimation>(v)));
  for (auto m : {TransformClass::Translation, TransformClass::Rigid, TransformClass::RigidScale})
    distinct.insert(hints::MotionModel(kRu, m));
  distinct.insert(hints::Task(kRu, TaskType::Tracking));
  distinct.insert(hints::Task(kRu, TaskType::Compensation));
  EXPECT_EQ(distinct.size(), 17u);
}

TEST(PropertyHints, RussianPitchBelowTwoHasItsOwnWording) {
  const std::string one = hints::ReferenceFramePitch(kRu, 1);
  const std::string seven = hints::ReferenceFramePitch(kRu, 7);
  EXPECT_THAT(one, AllOf(HasSubstr("Шаг 1 означает, что опорным становится каждый кадр"),
                         Not(HasSubstr(" по "))));
  EXPECT_THAT(seven, AllOf(HasSubstr("каждый 7-й кадр"), HasSubstr("с 1 по 7, и так далее")));
  EXPECT_THAT(hints::ReferenceFramePitch(kRu, 2), HasSubstr("с 1 по 2,"));
}

TEST(PropertyHints, ProgramLanguageSelectsTheText) {
  app_testing::PanelFixture f;
  EditableObject* objects[] = {f.composition};
  const auto& start = *CompositionProperties().Child("Start frame");
  SetHintLanguage(1);
  EXPECT_EQ(start.Hint(objects), "Номер, присвоенный первому кадру композиции");
  SetHintLanguage(0);
  EXPECT_EQ(start.Hint(objects), "Number assigned to the first frame in composition");
}

}  // namespace
}  // namespace app
