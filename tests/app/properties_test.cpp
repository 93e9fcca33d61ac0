// SPDX-License-Identifier: GPL-3.0-or-later
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>

#include "app/fake_property_objects.h"
#include "app/model/properties_parse.h"
#include "app/model/properties_sets.h"
#include "app/model/setting_tables.h"
#include "app_fixtures.h"

namespace app {
namespace {

using ::testing::ElementsAre;
using testing::FakeSegment;
using ::testing::ThrowsMessage;

const Property& At(const Property& root, std::initializer_list<std::string_view> path) {
  const Property* node = &root;
  for (auto label : path) {
    node = node->Child(label);
    if (node == nullptr) throw std::logic_error("no row " + std::string(label));
  }
  return *node;
}

std::vector<std::string> Labels(const Property& p) {
  std::vector<std::string> labels;
  for (const auto& [label, child] : p.GetChildren()) labels.push_back(label);
  return labels;
}

struct ParseCase {
  char type;  // 'u' unsigned, 's' signed, 'f' float
  const char* text;
  bool ok;
};

TEST(PropertyParsing, TakesOnlyAWholeNumberOfTheType) {
  const ParseCase cases[] = {
      {'u', "12", true},          {'u', " 12", true},  {'u', "4294967295", true},
      {'u', "12x", false},        {'u', "12 ", false}, {'u', "", false},
      {'u', "-1", false},         {'u', "1.5", false}, {'u', "0x10", false},
      {'u', "4294967296", false}, {'s', "-1", true},   {'s', "2147483648", false},
      {'s', "3.5", false},        {'f', "1e3", true},  {'f', "0.3.1", false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(1, c.type) + " '" + c.text + "'");
    const auto parse = [&] {
      if (c.type == 'u') return static_cast<double>(ParseUnsigned(c.text));
      if (c.type == 's') return static_cast<double>(ParseSigned(c.text));
      return static_cast<double>(ParseFloat(c.text));
    };
    if (c.ok) {
      EXPECT_NO_THROW(parse());
    } else {
      EXPECT_THAT(parse, ThrowsMessage<std::runtime_error>("Invalid property value"));
    }
  }
  EXPECT_EQ(ParseUnsigned("12"), 12u);
  EXPECT_EQ(ParseSigned("-1"), -1);
  EXPECT_FLOAT_EQ(ParseFloat("1e3"), 1000.0f);
}

TEST(PropertyWrite, NegativeFramerateIsRefusedAndNothingReachesTheComposition) {
  app_testing::PanelFixture f;
  EditableObject* objects[] = {f.composition};
  const VLActionQueue& queue = f.comp.GetActionQueue();
  const size_t steps = queue.GetSize();
  const auto& framerate = At(CompositionProperties(), {"Export", "Framerate"});
  EXPECT_THAT([&] { framerate.SetText(objects, "-1"); },
              ThrowsMessage<std::runtime_error>("Invalid property value"));
  EXPECT_EQ(queue.GetSize(), steps);
  framerate.SetText(objects, "30");
  At(CompositionProperties(), {"Start frame"}).SetText(objects, "-10");
  EXPECT_EQ(f.comp.GetFramerate(), 30u);
  EXPECT_EQ(f.comp.GetStartFrame(), -10);
  EXPECT_EQ(queue.GetSize(), steps + 2);
  EXPECT_EQ(queue.GetUndoName(), "Change Start Frame");
}

TEST(PropertyWrite, SpanElementChangesOneEndAndSendsBoth) {
  app_testing::PanelFixture f;
  AssignSetting(f.comp, "work_area", My::Span{10, 40});
  EditableObject* objects[] = {f.composition};
  const auto& area = At(CompositionProperties(), {"Work area"});
  EXPECT_EQ(area.GetText(objects), "10, 40");
  area.Child("To")->SetText(objects, "80");
  EXPECT_EQ(f.comp.GetWorkArea(), (My::Span{10, 80}));
  area.Child("From")->SetText(objects, "-3");  // clamped by the composition
  EXPECT_EQ(f.comp.GetWorkArea(), (My::Span{0, 80}));
  f.comp.GetActionQueue().Undo();
  EXPECT_EQ(f.comp.GetWorkArea(), (My::Span{10, 80}));
}

TEST(PropertyWrite, SegmentTimeRangeIsShownFromTheStartFrame) {
  FakeSegment segment;
  segment.start_frame = 100;
  segment.time_span = {5, 20};
  EditableObject* objects[] = {&segment};
  const auto& range = At(SegmentProperties(), {"Time range"});
  EXPECT_EQ(range.Child("From")->GetText(objects), "105");
  EXPECT_EQ(range.Child("To")->GetText(objects), "120");
  range.Child("From")->SetText(objects, "110");
  EXPECT_THAT(segment.calls, ElementsAre("SetTimeSpan 10 20"));
}

TEST(PropertyWrite, ParameterChangeSendsTheWholeRecordWithOneFieldChanged) {
  FakeSegment a, b;
  a.params.MotionEstimation = MotionEstimation::Intensive;
  b.params.MaxAcceleration = 9;
  EditableObject* objects[] = {&a, &b};
  At(SegmentProperties(), {"Parameters", "Estimation method", "Tracker size"})
      .SetText(objects, "12");
  ASSERT_EQ(a.sent.size(), 1u);
  ASSERT_EQ(b.sent.size(), 1u);
  VLSegmentParams want_a = a.params, want_b = b.params;
  want_a.ImageBlockSize = want_b.ImageBlockSize = 12;
  EXPECT_EQ(a.sent[0], want_a);  // each segment keeps its own other fields
  EXPECT_EQ(b.sent[0], want_b);

  At(SegmentProperties(), {"Parameters", "Original mask in all frames"}).SetCheck(objects, true);
  EXPECT_TRUE(a.sent.at(1).OriginalMaskInAllFrames);
}

TEST(PropertyWrite, ChoicesFollowTheLabelTables) {
  app_testing::PanelFixture f;
  AssignSetting(f.comp, "pixel_aspect", PixelAspectRatio{3, 2});
  EditableObject* objects[] = {f.composition};
  const auto& aspect = At(CompositionProperties(), {"Export", "Pixel aspect ratio"});
  EXPECT_EQ(aspect.GetText(objects), "Custom");
  EXPECT_EQ(aspect.GetChoice(objects), -1);
  const auto labels = aspect.Choices();
  const auto pal = std::find(labels.begin(), labels.end(), "D1/DV PAL") - labels.begin();
  aspect.SetChoice(objects, static_cast<int>(pal));
  EXPECT_EQ(f.comp.GetPixelAspect(), (PixelAspectRatio{768, 720}));
  aspect.Child("Vertical")->SetText(objects, "5");
  EXPECT_EQ(f.comp.GetPixelAspect(), (PixelAspectRatio{768, 5}));
  EXPECT_THROW(aspect.SetChoice(objects, static_cast<int>(labels.size())), std::runtime_error);
  EXPECT_EQ(f.comp.GetActionQueue().GetUndoName(), "Change Pixel Aspect Ratio");
}

TEST(PropertyWrite, InitialTransformElementKeepsTheOtherFive) {
  app_testing::PanelFixture f;
  VLOverlay& overlay = f.comp.GetOverlay();
  AssignSetting(overlay, "initial_transform", types::affine{1, 2, 3, 4, 5, 6});
  EditableObject* objects[] = {f.overlay};
  const auto& alignment = At(OverlayProperties(), {"Alignment"});
  EXPECT_THAT(Labels(alignment), ElementsAre("x", "xx", "xy", "y", "yx", "yy"));
  alignment.Child("xy")->SetText(objects, "0.5");
  EXPECT_EQ(overlay.GetInitialTransform(), (types::affine{1, 2, 3, 0.5, 5, 6}));
  EXPECT_EQ(f.comp.GetActionQueue().GetUndoName(), "Change Transformation");
  alignment.SetChoice(objects, 2);
  EXPECT_EQ(overlay.GetAlignment(), EnumTable<Alignment>()[2].value);
  EXPECT_EQ(f.comp.GetActionQueue().GetUndoName(), "Change Alignment");
}

struct StateCase {
  MotionEstimation method;
  bool processing;
  ControlState radius, max_change, plain;
};

TEST(PropertyState, ParametersHideByMethodAndDisableWhileProcessing) {
  using enum ControlState;
  const StateCase cases[] = {
      {MotionEstimation::Fastest, false, Hidden, Hidden, Enabled},
      {MotionEstimation::Fast, false, Enabled, Hidden, Enabled},
      {MotionEstimation::Normal, false, Enabled, Enabled, Enabled},
      {MotionEstimation::Intensive, true, Disabled, Disabled, Disabled},
      {MotionEstimation::Fastest, true, Hidden, Hidden, Disabled},
      {MotionEstimation::Fast, true, Disabled, Hidden, Disabled},
  };
  const auto& method = At(SegmentProperties(), {"Parameters", "Estimation method"});
  for (const auto& c : cases) {
    SCOPED_TRACE(static_cast<int>(c.method) * 10 + c.processing);
    FakeSegment segment;
    segment.params.MotionEstimation = c.method;
    segment.processing = c.processing;
    EditableObject* objects[] = {&segment};
    EXPECT_EQ(method.Child("Matching radius")->State(objects), c.radius);
    EXPECT_EQ(method.Child("Tracker size")->State(objects), c.radius);
    EXPECT_EQ(method.Child("Max motion change")->State(objects), c.max_change);
    EXPECT_EQ(method.State(objects), c.plain);
    EXPECT_EQ(At(SegmentProperties(), {"Parameters", "Reference frame pitch"}).State(objects),
              c.plain);
  }
  app_testing::PanelFixture f;  // "Type" follows the frames and is never edited
  EditableObject* objects[] = {f.overlay};
  const size_t steps = f.comp.GetActionQueue().GetSize();
  EXPECT_EQ(At(OverlayProperties(), {"Type"}).State(objects), Disabled);
  At(OverlayProperties(), {"Type"}).SetChoice(objects, 0);
  EXPECT_EQ(f.comp.GetActionQueue().GetSize(), steps);
}

TEST(PropertyTrees, PanelShowsTheTreeAndTitleOfItsObject) {
  app_testing::PanelFixture f;
  FakeSegment segment;
  EXPECT_EQ(PanelTitle(f.composition), "Composition Properties");
  EXPECT_EQ(PanelTitle(f.overlay), "Overlay Properties");
  EXPECT_EQ(PanelTitle(&segment), "Segment Properties");
  EXPECT_EQ(PanelTitle(nullptr), "Property Editor");
  EXPECT_EQ(PropertiesFor(&segment), &SegmentProperties());
  EXPECT_EQ(PropertiesFor(f.overlay), &OverlayProperties());
  EXPECT_EQ(PropertiesFor(f.composition), &CompositionProperties());
  EXPECT_EQ(PropertiesFor(nullptr), nullptr);
  // A row writes only to objects of its own kind.
  const size_t steps = f.comp.GetActionQueue().GetSize();
  EditableObject* mixed[] = {f.composition, f.overlay};
  At(CompositionProperties(), {"Task"}).SetChoice(mixed, 1);
  EXPECT_EQ(f.comp.GetTask(), EnumTable<TaskType>()[1].value);
  EXPECT_EQ(f.comp.GetActionQueue().GetSize(), steps + 1);
}

}  // namespace
}  // namespace app
