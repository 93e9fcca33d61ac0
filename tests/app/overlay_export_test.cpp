// SPDX-License-Identifier: GPL-3.0-or-later
// The overlay's motion leaving the program from a real composition.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "app/commands/transform_commands.h"
#include "app/model/keyframe_export.h"
#include "app/model/setting_tables.h"
#include "app_fixtures.h"
#include "base/errors.h"

namespace {

struct FakeClipboard : app::Clipboard {
  bool opens = true;
  std::string text;
  bool set_text(const std::string& t) override { return opens && (text = t, true); }
};

struct FakeHost : app::HostApplication {
  int activations = 0;
  bool is_running() override { return true; }
  void activate_or_launch() override { ++activations; }
};

// 8 x 6 at 25 fps, aspect 10/11; a segment over frames 1..4 keyed at 2 moving
// 2 pixels right a frame; a still overlay matched at 2, placed by (1, 0.5).
struct ShiftedOverlay : app_testing::CompFixture {
  ShiftedOverlay() : CompFixture(5) {
    AddSegment(2, {1, 5}, 2.0);
    comp.SetCurrentTime(2);
    app::AssignSetting(comp, "pixel_aspect", PixelAspectRatio{10, 11});
    app::AssignSetting(comp, "export_model", ExportModel::Translation);
    comp.GetOverlay().GetInterface().Import({app_testing::WriteImage(dir, "o.bmp", 4, 4, true)});
    comp.GetOverlay().SetInitialTransformDirect(types::affine::translation(1, 0.5));
  }
};

const std::string kHeader =
    "Adobe After Effects 5.0 Keyframe Data\n\n\tUnits Per Second\t25\n\tSource Width\t8"
    "\n\tSource Height\t6\n\tSource Pixel Aspect Ratio\t0.909091\n\tComp Pixel Aspect Ratio"
    "\t0.909091\n\nPosition\n\tFrame\tX pixels\tY pixels\tZ pixels\n";
// The frame centre (4, 3) after the initial transform and the motion, or
// under the inverse motion alone.
const std::string kTracking = kHeader +
                              "\t1\t3\t3.5\t0\n\t2\t5\t3.5\t0\n\t3\t7\t3.5\t0\n\t4\t9\t3.5\t0\n" +
                              "\n\nEnd of Keyframe Data\n";
const std::string kCompensation = kHeader + "\t1\t6\t3\t0\n\t2\t4\t3\t0\n\t3\t2\t3\t0\n" +
                                  "\t4\t0\t3\t0\n\n\nEnd of Keyframe Data\n";

TEST(OverlayExport, ExactTextFromProjectSettingsOrFromOverridesThatChangeNothing) {
  ShiftedOverlay f;
  std::ostringstream own, overridden;
  app::WriteKeyframeText(f.comp, own);
  EXPECT_EQ(own.str(), kTracking);

  app::AssignSetting(f.comp, "export_inaccuracy", 3.0f);  // would thin the keys
  app::AssignSetting(f.comp, "export_model", ExportModel::Rigid);
  const VLCompSettings before = f.comp.GetSettings();
  const size_t steps = f.comp.GetActionQueue().GetSize();
  app::WriteKeyframeText(f.comp, overridden,
                         {ExportModel::Translation, 0.0f, TaskType::Compensation});
  EXPECT_EQ(overridden.str(), kCompensation);
  EXPECT_EQ(f.comp.GetExportModel(), before.exportModel);
  EXPECT_EQ(f.comp.GetExportInaccuracy(), before.exportInaccuracy);
  EXPECT_EQ(f.comp.GetTask(), before.task);
  EXPECT_EQ(f.comp.GetActionQueue().GetSize(), steps);
}

TEST(OverlayExport, EnabledOnlyWithProjectOverlayAndMotion) {
  app::OperationStack operations;
  EXPECT_FALSE(app::HasTransformsToExport(VLComp(operations)));
  app_testing::CompFixture no_overlay(5);
  no_overlay.AddSegment(2, {1, 5}, 2.0);
  EXPECT_FALSE(app::HasTransformsToExport(no_overlay.comp));
  app_testing::CompFixture no_motion(5);
  no_motion.comp.GetOverlay().GetInterface().Import(
      {app_testing::WriteImage(no_motion.dir, "o.bmp", 4, 4, true)});
  std::ostringstream out;
  EXPECT_THROW(app::WriteKeyframeText(no_motion.comp, out), xtd::exception);
  EXPECT_EQ(out.str(), "");
  EXPECT_TRUE(app::HasTransformsToExport(ShiftedOverlay().comp));
}

TEST(CopyTransforms, CrLfTextOnTheClipboardOrSilenceWhenItWillNotOpen) {
  for (bool opens : {true, false}) {
    ShiftedOverlay f;
    FakeClipboard clipboard;
    clipboard.opens = opens;
    FakeHost host;
    EXPECT_EQ(app::CopyTransforms(f.comp, clipboard, &host), opens);
    std::string want;
    for (char c : kTracking) want += c == '\n' ? std::string("\r\n") : std::string(1, c);
    EXPECT_EQ(clipboard.text, opens ? want : "");
    EXPECT_EQ(host.activations, opens ? 1 : 0);
    EXPECT_TRUE(f.operations.names().empty());
    EXPECT_TRUE(f.dialogs.questions().empty());
  }
}

TEST(ExportTransforms, WritesTheTextOrFailsWithTheOperationOnTheStack) {
  ShiftedOverlay f;
  f.dialogs.choose_file(f.dir / "motion.txt");
  ASSERT_TRUE(app::ExportTransforms(f.comp, f.dialogs));
  const auto bytes = testing_support::ReadFile(f.dir / "motion.txt");
  EXPECT_EQ(std::string(bytes.begin(), bytes.end()), kTracking);
  EXPECT_TRUE(f.operations.names().empty());
  const std::string bad = f.dir / "missing/motion.txt";
  EXPECT_THAT([&] { app::ExportTransformsToFile(f.comp, bad); },
              ::testing::ThrowsMessage<SystemError>(::testing::HasSubstr("writing " + bad)));
  EXPECT_EQ(f.operations.innermost(), "exporting transformations");
  EXPECT_FALSE(f.dialogs.wait_cursor());
}

}  // namespace
