// The overlay's motion leaving the program from a real composition: the
// keyframe text, the clipboard and file commands, and their enabling rule.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "app/commands/transform_commands.h"
#include "app/model/keyframe_export.h"
#include "app_fixtures.h"
#include "base/errors.h"

namespace {

using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

class FakeClipboard : public app::Clipboard {
 public:
  bool opens = true;
  std::string text;
  bool set_text(const std::string& t) override {
    if (opens) text = t;
    return opens;
  }
};

class FakeHost : public app::HostApplication {
 public:
  bool running = false;
  int activations = 0;
  bool is_running() override { return running; }
  void activate_or_launch() override { ++activations; }
};

// Five frames of 8 x 6; one segment over frames 1..4, keyed at 2, moving 2
// pixels right a frame; a still overlay matched at frame 2, placed 1 right
// and 0.5 down. The overlay's motion from frame 1 on is then a shift of
// -2, 0, 2, 4 pixels.
struct ShiftedOverlay : app_testing::CompFixture {
  ShiftedOverlay() : CompFixture(5) {
    AddSegment(2, {1, 5}, 2.0);
    comp.SetCurrentTime(2);
    comp.SetPixelAspectDirect({10, 11});
    comp.GetOverlay().GetInterface().Import({app_testing::WriteImage(dir, "o.bmp", 4, 4, true)});
    comp.GetOverlay().SetInitialTransformDirect(types::affine::translation(1, 0.5));
  }
};

const char kHeader[] =
    "Adobe After Effects 5.0 Keyframe Data\n\n\tUnits Per Second\t25\n\tSource Width\t8"
    "\n\tSource Height\t6\n\tSource Pixel Aspect Ratio\t0.909091"
    "\n\tComp Pixel Aspect Ratio\t0.909091\n"
    "\nPosition\n\tFrame\tX pixels\tY pixels\tZ pixels\n";
const char kFooter[] = "\n\nEnd of Keyframe Data\n";
// The image of the frame's centre (4, 3): after the initial transform when
// tracking, under the inverse motion (initial transform ignored) when
// compensating.
const std::string kTrackingText =
    std::string(kHeader) + "\t1\t3\t3.5\t0\n\t2\t5\t3.5\t0\n\t3\t7\t3.5\t0\n\t4\t9\t3.5\t0\n" +
    kFooter;
const std::string kCompensationText =
    std::string(kHeader) + "\t1\t6\t3\t0\n\t2\t4\t3\t0\n\t3\t2\t3\t0\n\t4\t0\t3\t0\n" + kFooter;

TEST(OverlayExport, TextOfBothTasksIsExactAndOverridesLeaveTheProjectAlone) {
  ShiftedOverlay f;
  ASSERT_EQ(f.comp.GetOverlay().GetTransformSpan(), (My::Span{1, 5}));
  // The project's own settings would thin and pick a model: the overrides win.
  f.comp.SetExportInaccuracyDirect(3.0f);
  f.comp.SetExportModelDirect(ExportModel::Rigid);
  const VLCompSettings before = f.comp.GetSettings();
  const size_t steps = f.comp.GetActionQueue().GetSize();
  const bool modified = f.comp.GetActionQueue().IsModified();
  for (TaskType task : {TaskType::Tracking, TaskType::Compensation}) {
    std::ostringstream out;
    app::WriteKeyframeText(f.comp, out, {ExportModel::Translation, 0.0f, task});
    EXPECT_EQ(out.str(), task == TaskType::Tracking ? kTrackingText : kCompensationText);
  }
  const VLCompSettings& after = f.comp.GetSettings();
  EXPECT_EQ(after.exportModel, before.exportModel);
  EXPECT_EQ(after.exportInaccuracy, before.exportInaccuracy);
  EXPECT_EQ(after.task, before.task);
  EXPECT_EQ(f.comp.GetActionQueue().GetSize(), steps);
  EXPECT_EQ(f.comp.GetActionQueue().IsModified(), modified);
}

TEST(OverlayExport, RecordCarriesTheProjectSettingsWithoutOverrides) {
  ShiftedOverlay f;
  f.comp.SetExportInaccuracyDirect(0.25f);
  f.comp.SetTaskDirect(TaskType::Compensation);
  f.comp.SetExportModelDirect(ExportModel::CornerPin);
  const Transformations r = app::OverlayTransformations(f.comp);
  EXPECT_EQ(r.first, 1);
  ASSERT_EQ(r.GetTransforms().size(), 4u);
  EXPECT_EQ(r.GetTransforms()[0].x, -2.0);
  EXPECT_EQ(r.GetTransforms()[3].x, 4.0);
  EXPECT_EQ(r.InitialTransform.y, 0.5);
  EXPECT_EQ(r.ExportInaccuracy, 0.25f);
  EXPECT_EQ(r.Task, TaskType::Compensation);
  EXPECT_EQ(r.ExportModel, ExportModel::CornerPin);
}

TEST(OverlayExport, EnabledOnlyWithProjectOverlayAndMotion) {
  app::OperationStack operations;
  VLComp closed(operations);
  EXPECT_FALSE(app::HasTransformsToExport(closed));
  app_testing::CompFixture no_overlay(5);
  no_overlay.AddSegment(2, {1, 5}, 2.0);
  EXPECT_FALSE(app::HasTransformsToExport(no_overlay.comp));
  app_testing::CompFixture no_motion(5);  // an overlay, but no segment rules the match frame
  no_motion.comp.GetOverlay().GetInterface().Import(
      {app_testing::WriteImage(no_motion.dir, "o.bmp", 4, 4, true)});
  EXPECT_FALSE(app::HasTransformsToExport(no_motion.comp));
  std::ostringstream out;
  EXPECT_THAT([&] { app::WriteKeyframeText(no_motion.comp, out); },
              ThrowsMessage<xtd::exception>("There are no transformations to export."));
  EXPECT_EQ(out.str(), "");
  EXPECT_TRUE(app::HasTransformsToExport(ShiftedOverlay().comp));
}

TEST(CopyTransforms, PutsCrLfTextOnTheClipboardAndSwitchesOnlyToARunningHost) {
  ShiftedOverlay f;
  f.comp.SetExportModelDirect(ExportModel::Translation);
  FakeClipboard clipboard;
  FakeHost host;
  EXPECT_TRUE(app::CopyTransforms(f.comp, clipboard, &host));
  std::string want;
  for (char c : kTrackingText) want += c == '\n' ? std::string("\r\n") : std::string(1, c);
  EXPECT_EQ(clipboard.text, want);
  EXPECT_EQ(host.activations, 0);
  EXPECT_TRUE(f.operations.names().empty());
  EXPECT_FALSE(f.dialogs.wait_cursor());

  host.running = true;
  app::CopyTransforms(f.comp, clipboard, &host);
  EXPECT_EQ(host.activations, 1);
}

TEST(CopyTransforms, ClipboardThatCannotOpenIsSilent) {
  ShiftedOverlay f;
  FakeClipboard clipboard;
  clipboard.opens = false;
  FakeHost host;
  host.running = true;
  EXPECT_FALSE(app::CopyTransforms(f.comp, clipboard, &host));
  EXPECT_EQ(clipboard.text, "");
  EXPECT_EQ(host.activations, 0);
  EXPECT_TRUE(f.operations.names().empty());
  EXPECT_TRUE(f.dialogs.questions().empty());
}

TEST(ExportTransforms, WritesTheTextOrFailsWithTheOperationOnTheStack) {
  ShiftedOverlay f;
  f.comp.SetExportModelDirect(ExportModel::Translation);
  f.dialogs.choose_file(f.dir / "motion.txt");
  ASSERT_TRUE(app::ExportTransforms(f.comp, f.dialogs));
  const auto bytes = testing_support::ReadFile(f.dir / "motion.txt");
  EXPECT_EQ(std::string(bytes.begin(), bytes.end()), kTrackingText);
  EXPECT_EQ(f.dialogs.file_choices().at(0).choice.title, "Export Transformations");
  EXPECT_TRUE(f.operations.names().empty());

  const std::string bad = f.dir / "missing/motion.txt";
  EXPECT_THAT([&] { app::ExportTransformsToFile(f.comp, bad); },
              ThrowsMessage<SystemError>(HasSubstr("writing " + bad)));
  EXPECT_EQ(f.operations.innermost(), "exporting transformations");
  EXPECT_FALSE(f.dialogs.wait_cursor());
}

}  // namespace
