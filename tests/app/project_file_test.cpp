// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/file/project_file.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "app/model/setting_tables.h"
#include "app/report_error.h"
#include "app_fixtures.h"

namespace {

using app_testing::CompFixture;

// Every field the file holds set away from its default; the segments move
// by steps that no short decimal carries, as tracked motion does.
struct Project : CompFixture {
  Project() : CompFixture(20) {
    const std::string over = app_testing::WriteImage(dir, "over.bmp", 4, 3, true);
    VLOverlay& o = comp.GetOverlay();
    comp.SetCurrentTime(2);
    o.ImportDirect(std::vector<std::string>(6, over), false);
    o.SetTrimmingDirect(1, 5);
    o.SetSourceOffsetDirect(3);
    o.SetMatchDirect(11);
    o.SetInitialTransformDirect({1.5, -2, 1, 0.125, 0, 1});
    o.SetAlphaDirect(AlphaInterpretation::InvPremul);
    app::AssignSetting(comp, "framerate", 24u);
    app::AssignSetting(comp, "pixel_aspect", PixelAspectRatio{768, 720});
    app::AssignSetting(comp, "export_inaccuracy", 0.25f);
    app::AssignSetting(comp, "task", TaskType::Compensation);
    app::AssignSetting(comp, "export_model", ExportModel::RigidScale);
    app::AssignSetting(comp, "start_frame", 100);
    app::AssignSetting(comp, "work_area", My::Span{2, 17});
    AddSegment(3, {0, 9}, -1.0 / 3);
    VLSegment& s = AddSegment(10, {4, 16}, 0.1 + 1e-9 / 7);
    VLSegmentParams p = s.GetParams();
    p.InitialSearchRadius = 40;
    p.OriginalMaskInAllFrames = true;
    p.MotionEstimation = MotionEstimation::Fastest;
    p.MotionModel = TransformClass::Rigid;
    s.SetParamsDirect(p);
    VL::Mask mask(8, 6);
    mask.rows[2][0] = 0x3C;
    s.SetMaskDirect(mask);
    timing::node& stage = s.GetTiming().root().child("flow");
    stage.calls_count = 3;
    stage.node_time = stage.subtree_time = 12345;
    comp.SetCurrentTime(7);
    comp.SetPreviewTime(9, false);
    comp.SetOverlayActive(true);
  }
};

void ExpectSameProject(VLComp& a, VLComp& b) {
  const VLCompSettings &sa = a.GetSettings(), &sb = b.GetSettings();
  EXPECT_EQ(std::tie(sa.framerate, sa.pixelAspect.num, sa.pixelAspect.den, sa.exportInaccuracy),
            std::tie(sb.framerate, sb.pixelAspect.num, sb.pixelAspect.den, sb.exportInaccuracy));
  EXPECT_EQ(std::tie(sa.task, sa.exportModel, sa.startFrame, sa.workArea),
            std::tie(sb.task, sb.exportModel, sb.startFrame, sb.workArea));
  EXPECT_EQ(std::make_tuple(a.GetCurrentTime(), a.GetPreviewTime(), a.GetActiveSegment()),
            std::make_tuple(b.GetCurrentTime(), b.GetPreviewTime(), b.GetActiveSegment()));
  EXPECT_EQ(a.IsOverlayActive(), b.IsOverlayActive());
  EXPECT_EQ(a.GetUnderlay(), b.GetUnderlay());
  EXPECT_EQ(a.GetWidth(), b.GetWidth());
  const VLOverlay::Stored oa = a.GetOverlay().GetStored(), ob = b.GetOverlay().GetStored();
  EXPECT_EQ(oa.paths, ob.paths);
  EXPECT_EQ(
      std::tie(oa.sourceOffset, oa.trimming, oa.match, oa.transformSpan, oa.width, oa.height),
      std::tie(ob.sourceOffset, ob.trimming, ob.match, ob.transformSpan, ob.width, ob.height));
  EXPECT_EQ(std::tie(oa.alpha, oa.alignment, oa.initialTransform),
            std::tie(ob.alpha, ob.alignment, ob.initialTransform));
  ASSERT_EQ(a.GetSegmentCount(), b.GetSegmentCount());
  for (int32_t i = 0; i < a.GetSegmentCount(); ++i) {
    const VLSegment &x = a.GetSegmentObject(i), &y = b.GetSegmentObject(i);
    EXPECT_EQ(x.GetOrigin(), y.GetOrigin()) << i;
    EXPECT_EQ(x.GetTimeSpan(), y.GetTimeSpan()) << i;
    EXPECT_EQ(x.GetDataSpan(), y.GetDataSpan()) << i;
    EXPECT_EQ(x.GetParams(), y.GetParams()) << i;
    EXPECT_TRUE(SameMask(x.GetMask(), y.GetMask())) << i;
    EXPECT_EQ(*x.GetData(), *y.GetData()) << i;
    const auto &tx = x.GetTiming().root().children, &ty = y.GetTiming().root().children;
    ASSERT_EQ(tx.size(), ty.size()) << i;
    for (auto ix = tx.begin(), iy = ty.begin(); ix != tx.end(); ++ix, ++iy)
      EXPECT_EQ(std::tie(ix->first, ix->second.calls_count, ix->second.node_time),
                std::tie(iy->first, iy->second.calls_count, iy->second.node_time));
  }
}

// A second, empty composition to load into.
struct Reader {
  app::OperationStack operations;
  app::ScriptedDialogs dialogs;
  VLComp comp{operations, &dialogs};
};

TEST(ProjectFile, SavedProjectReadsBackEqualAndWritesTheSameText) {
  Project p;
  const std::string path = p.dir / "a.vlp";
  app::SaveProjectFile(p.comp, path);
  EXPECT_EQ(p.comp.GetProjectPath(), path);
  EXPECT_FALSE(p.comp.GetActionQueue().IsModified());
  Reader r;
  app::LoadProjectFile(r.comp, path, r.dialogs);
  ExpectSameProject(p.comp, r.comp);
  EXPECT_TRUE(r.dialogs.questions().empty());
  EXPECT_EQ(app::ProjectFileText(r.comp, path), app::ProjectFileText(p.comp, path));
  // An active segment wins over the active overlay.
  p.comp.SetActiveSegment(1);
  app::SaveProjectFile(p.comp, path);
  Reader again;
  app::LoadProjectFile(again.comp, path, again.dialogs);
  EXPECT_EQ(again.comp.GetActiveSegment(), 1);
  EXPECT_FALSE(again.comp.IsOverlayActive());
}

TEST(ProjectFile, DefaultsStayOutAndFileDefaultsDifferFromNewProject) {
  CompFixture f(3);
  app::AssignSetting(f.comp, "framerate", 30u);
  app::AssignSetting(f.comp, "pixel_aspect", PixelAspectRatio{2, 2});
  const std::string text = app::ProjectFileText(f.comp, f.dir / "p.vlp");
  EXPECT_EQ(
      text,
      "<?xml version=\"1.0\"?>\n"
      "<Velomar CurrentTime=\"0\" PreviewTime=\"0\" OverlayActive=\"0\" ActiveSegment=\"-1\">\n"
      "  <WorkArea last=\"3\" />\n  <Dim sx=\"8\" sy=\"6\" />\n"
      "  <Underlay>\n    <Frame path=\"under.bmp\" />\n    <Frame path=\"under.bmp\" />\n"
      "    <Frame path=\"under.bmp\" />\n  </Underlay>\n"
      // The model's alpha is not the file's default.
      "  <Overlay AlphaInterpretation=\"Straight\" />\n</Velomar>\n");
  Reader r;
  app::LoadProjectText(r.comp, f.dir / "p.vlp", text, r.dialogs);
  EXPECT_EQ(r.comp.GetFramerate(), 30u);  // a new project has 50
  app::AssignSetting(f.comp, "pixel_aspect", PixelAspectRatio{768, 720});
  EXPECT_NE(app::ProjectFileText(f.comp, f.dir / "p.vlp")
                .find("<PixelAspectRatio num=\"768\" den=\"720\" />"),
            std::string::npos);
}

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
  const size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

TEST(ProjectFile, BrokenDocumentFailsWithItsTextAndLeavesNoProject) {
  Project p;
  const std::string path = p.dir / "a.vlp", good = app::ProjectFileText(p.comp, path);
  struct Case {
    const char *from, *to, *text;
  };
  const std::string gone = "path does not exist - " + p.dir / "gone.bmp" + "\n(base path is " +
                           p.dir / "" + ", relative path is gone.bmp)";
  for (const Case& c : std::initializer_list<Case>{
           {"CurrentTime=\"7\" ", "", "attribute not found"},
           {"CurrentTime=\"7\"", "CurrentTime=\"7x\"", "attribute parse error"},
           {"InitialSearchRadius=\"40\"", "InitialSearchRadius=\"-4\"", "attribute parse error"},
           {"<TimeSpan ", "<TimeSpan/><TimeSpan ", "Node is ambiguous (TimeSpan)"},
           {"num=\"768\"", "num=\"0\"", "attribute parse error"},
           {"<Dim sx=\"8\"", "<Dim sx=\"8\"/><Dim sx=\"8\"", "Node is ambiguous (Dim)"},
           {"<Dim sx=\"8\"", "<Dim sx=\"9\"", "incompatible segment mask dimensions (8, 6)"},
           {"<Mask encoded=", "<Mask x=", "incompatible segment mask dimensions (0, 0)"},
           // Refused by its header, before 16000 x 16000 pixels are decoded.
           {"494844520000000800000006", "4948445200003e8000003e80",
            "incompatible segment mask dimensions (16000, 16000)"},
           {"Origin=\"10\"", "Origin=\"20\"", "segment origin (20) out of the composition"},
           {"path=\"under.bmp\"", "path=\"gone.bmp\"", gone.c_str()},
           {"<Overlay ", "<Overlay/><Overlay ", "Node is ambiguous (Overlay)"},
           {"</Velomar>", "", nullptr},  // the parser's own text
       }) {
    Reader r;
    try {
      app::LoadProjectText(r.comp, path, Replaced(good, c.from, c.to), r.dialogs);
      ADD_FAILURE() << "loaded: " << c.to;
    } catch (const std::exception& e) {
      if (c.text) {
        EXPECT_STREQ(e.what(), c.text);
      }
      EXPECT_EQ(app::ErrorReportText(r.operations, "").rfind("Error while opening project:", 0),
                0u);
    }
    EXPECT_TRUE(r.comp.IsEmpty()) << c.to;
    EXPECT_EQ(r.comp.GetSegmentCount(), 0) << c.to;
    EXPECT_TRUE(r.comp.GetOverlay().IsEmpty()) << c.to;
    EXPECT_TRUE(r.comp.GetProjectPath().empty()) << c.to;
  }
}

TEST(ProjectFile, MissingOverlayFrameAsksAndOkDropsOnlyTheOverlay) {
  Project p;
  const std::string path = p.dir / "a.vlp";
  app::SaveProjectFile(p.comp, path);
  std::filesystem::remove(p.dir / "over.bmp");
  for (app::Answer answer : {app::Answer::Ok, app::Answer::Cancel}) {
    Reader r;
    r.dialogs.answer(answer);
    try {
      app::LoadProjectFile(r.comp, path, r.dialogs);
      EXPECT_EQ(answer, app::Answer::Ok);
      EXPECT_TRUE(r.comp.GetOverlay().IsEmpty());
      EXPECT_FALSE(r.comp.IsOverlayActive());
      EXPECT_EQ(r.comp.GetOverlay().GetInitialTransform(), types::affine{});
      EXPECT_EQ(r.comp.GetSegmentCount(), 2);
    } catch (const std::exception& e) {
      EXPECT_EQ(answer, app::Answer::Cancel);
      EXPECT_EQ(app::ErrorReportText(r.operations, e.what()),
                "Error while opening project:\noperation canceled.");
      EXPECT_TRUE(r.comp.IsEmpty());
    }
    ASSERT_EQ(r.dialogs.questions().size(), 1u);
    EXPECT_EQ(r.dialogs.questions()[0].text,
              "Overlay loading error:\npath does not exist - " + p.dir / "over.bmp" +
                  "\n(base path is " + p.dir / "" +
                  ", relative path is over.bmp)\n\nOpen project without overlay?");
    EXPECT_EQ(r.dialogs.questions()[0].buttons, app::Buttons::OkCancel);
    EXPECT_EQ(r.dialogs.questions()[0].icon, app::Icon::Error);
  }
}

TEST(ProjectFile, FramesResolveAfterMovingTheFolderAndAfterSaveAs) {
  testing_support::TempDir root;
  namespace fs = std::filesystem;
  fs::create_directories(root.path() / "a" / "shot");
  fs::create_directories(root.path() / "c");
  Reader r;
  r.comp.LoadSequence({app_testing::WriteImage(root, "a/shot/f.bmp", 8, 6, false)}, 25, {1, 1}, 0);
  app::SaveProjectFile(r.comp, root / "a/p.vlp");
  fs::rename(root.path() / "a", root.path() / "b");
  Reader moved;
  app::LoadProjectFile(moved.comp, root / "b/p.vlp", moved.dialogs);
  EXPECT_EQ(moved.comp.GetUnderlay(), std::vector<std::string>{root / "b/shot/f.bmp"});
  app::SaveProjectFile(moved.comp, root / "c/q.vlp");
  const auto bytes = testing_support::ReadFile(root / "c/q.vlp");
  const std::string text(bytes.begin(), bytes.end());
  EXPECT_NE(text.find("path=\"../b/shot/\""), std::string::npos) << text;
  Reader other;
  app::LoadProjectFile(other.comp, root / "c/q.vlp", other.dialogs);
  EXPECT_EQ(other.comp.GetUnderlay(), moved.comp.GetUnderlay());
}

}  // namespace
