// SPDX-License-Identifier: GPL-3.0-or-later
// One session in a real window on an X server, as a compositor works: open
// a generated shot, paint the mask, track while the view follows, import an
// overlay, play, copy the keyframes, render, save, close, reopen, undo.
// Screenshots of the main states are written under the build folder and
// checked for what they must show.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QApplication>
#include <QClipboard>
#include <QDir>
#include <QMenuBar>
#include <QTest>
#include <filesystem>
#include <functional>
#include <set>

#include "app/commands/application.h"
#include "app/edit/brush_tool.h"
#include "app/edit/mask_editor.h"
#include "app/model/comp.h"
#include "app/preview/view.h"
#include "app/profile_store.h"
#include "app/scripted_dialogs.h"
#include "app/work/processor.h"
#include "gui/desktop.h"
#include "gui/main_frame.h"
#include "gui/view_widget.h"
#include "imaging/native_io.h"
#include "imaging/synthetic_shot.h"
#include "session/xvfb.h"
#include "testing/files.h"

namespace {

namespace fs = std::filesystem;

// A shot small enough to track in a second or two.
img::synthetic_shot Shot() {
  img::synthetic_shot shot;
  shot.width = 320;
  shot.height = 240;
  shot.frames = 16;
  shot.key_frame = 8;
  shot.plate_left = 100, shot.plate_top = 60, shot.plate_width = 120, shot.plate_height = 100;
  return shot;
}

std::string Artifact(const std::string& name) {
  const fs::path dir = VELOMAR_GUI_ARTIFACTS;
  fs::create_directories(dir);
  return (dir / name).string();
}

class Session : public ::testing::Test {
 protected:
  void SetUp() override {
    const img::synthetic_shot shot = Shot();
    img::image frame;
    for (int32_t i = 0; i < shot.frames; ++i) {
      shot.render(i, frame);
      char name[32];
      std::snprintf(name, sizeof name, "shot_%04d.bmp", i + 1);
      img::native_writer().write(dir / name, "BMP", frame, false);
    }
    desktop = std::make_unique<gui::Desktop>(
        gui::DesktopOptions{.dialogs = &dialogs, .profile = &profile, .link_path = dir / "VLApp"});
    frame_ = &desktop->frame();
    frame_->resize(1200, 860);
    frame_->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(frame_));
  }
  void TearDown() override { desktop.reset(); }

  bool WaitFor(const std::function<bool()>& done, int ms = 20000) {
    for (int waited = 0; waited < ms && !done(); waited += 10) QTest::qWait(10);
    return done();
  }
  void Trigger(const std::string& path) {
    frame_->refresh();
    QAction* a = frame_->action(path);
    ASSERT_NE(a, nullptr) << path;
    ASSERT_TRUE(a->isEnabled()) << path;
    a->trigger();
  }
  // The view's picture once the composite of the current frame is on show.
  QImage Settled() {
    desktop->view().wait_idle([this] { desktop->pump(); });
    const uint64_t painted = view().frames_painted();
    view().update();
    WaitFor([&] { return view().frames_painted() > painted; }, 2000);
    return view().grab().toImage();
  }
  QImage Screenshot(const std::string& name) {
    frame_->refresh();
    const QImage shot = frame_->grab().toImage();
    EXPECT_TRUE(shot.save(QString::fromStdString(Artifact(name))));
    return shot;
  }
  gui::ViewWidget& view() { return frame_->view(); }
  VLComp& comp() { return desktop->app().GetComposition(); }
  QRgb At(const QImage& image, double x, double y) {
    return image.pixel(view().to_widget(QPointF(x, y)).toPoint());
  }

  testing_support::TempDir dir;
  app::ScriptedDialogs dialogs;
  app::MemoryProfileStore profile;
  std::unique_ptr<gui::Desktop> desktop;
  gui::MainFrame* frame_ = nullptr;
};

int Red(QRgb c) {
  return qRed(c);
}
int Blue(QRgb c) {
  return qBlue(c);
}

TEST_F(Session, FromSequenceToRenderedFramesAndBack) {
  const img::synthetic_shot shot = Shot();
  {
    const QImage empty = Screenshot("1-empty-window.png");
    const QPoint centre = view().mapTo(frame_, view().rect().center());
    EXPECT_EQ(empty.pixel(centre) & 0xFFFFFF, gui::WorkspaceColour());
    EXPECT_EQ(frame_->windowTitle(), " - Velomar");
    EXPECT_NE(desktop->sleeper(), nullptr);
  }

  // Open the sequence and go to the key frame.
  dialogs.choose_file(dir / "shot_0001.bmp");
  Trigger("File/New Project...");
  ASSERT_EQ(comp().GetLength(), shot.frames);
  EXPECT_EQ(comp().GetStartFrame(), 1);
  comp().SetCurrentTime(shot.key_frame);
  Trigger("Segment/New Segment");
  ASSERT_EQ(comp().GetSegmentCount(), 1);
  // The segment spans the whole shot: its back end on the first frame, its
  // front end on the last, as the Trackline menu sets them.
  comp().SetCurrentTime(0);
  Trigger("Trackline/Set Segment Back");
  comp().SetCurrentTime(shot.frames - 1);
  Trigger("Trackline/Set Segment Front");
  ASSERT_EQ(comp().GetSegmentObject(0).GetTimeSpan(), (My::Span{0, shot.frames}));

  // Paint the plate's mask on the key frame.
  Trigger("Display/Edit Mask");
  ASSERT_EQ(desktop->view().view_mode(), 1u);
  const QImage before = Settled();
  // Strokes of the brush over the plate, each one undo step; one press of
  // "]" makes the brush a pixel larger.
  app::MaskEditor& editor = desktop->editor();
  ASSERT_TRUE(editor.IsEditing());
  const size_t steps = comp().GetActionQueue().GetSize();
  view().setFocus();
  QTest::keyClick(&view(), Qt::Key_BracketRight);
  ASSERT_EQ(editor.GetBrush().GetRadius(), app::CBrushTool::kInitialRadius + 1);
  auto at = [&](double x, double y) { return view().to_widget(QPointF(x, y)).toPoint(); };
  const double left = shot.plate_left + 22, right = shot.plate_left + shot.plate_width - 22;
  for (const double y : {shot.plate_top + 22, shot.plate_top + 50, shot.plate_top + 78}) {
    QTest::mousePress(&view(), Qt::LeftButton, {}, at(left, y));
    for (double x = left; x <= right; x += 4) QTest::mouseMove(&view(), at(x, y));
    QTest::mouseRelease(&view(), Qt::LeftButton, {}, at(right, y));
  }
  EXPECT_EQ(comp().GetActionQueue().GetSize(), steps + 3);
  EXPECT_EQ(comp().GetActionQueue().GetUndoName(), "Brush");
  const VL::Mask& mask = comp().GetSegmentObject(0).GetMask();
  const auto bit = [&](double x, double y) {
    return (mask.rows[size_t(y)][size_t(x) >> 3] & (128 >> (size_t(x) & 7))) != 0;
  };
  EXPECT_TRUE(bit(left, shot.plate_top + 50));
  EXPECT_TRUE(bit(right, shot.plate_top + 22));
  EXPECT_FALSE(bit(shot.plate_left - 5, shot.plate_top + 50));
  const QImage painted = Settled();
  Screenshot("2-mask-painting.png");
  const double cx = shot.plate_left + shot.plate_width / 2,
               cy = shot.plate_top + shot.plate_height / 2;
  // Inside, the mask colour (blue by default) tints the picture; outside it stays.
  EXPECT_GT(Blue(At(painted, cx, cy)) - Blue(At(before, cx, cy)), 40);
  EXPECT_LT(Red(At(painted, cx, cy)), Red(At(before, cx, cy)));
  EXPECT_EQ(At(painted, 20, 20), At(before, 20, 20));

  // Track, following in the view.
  Trigger("Display/Preview");
  Trigger("Time/Auto Follow");
  std::set<int32_t> shown;
  Trigger("Segment/Process");
  EXPECT_EQ(desktop->view().play_state(), app::kFollowTracker);
  ASSERT_TRUE(WaitFor(
      [&] {
        shown.insert(comp().GetPreviewTime());
        return !comp().GetSegmentObject(0).IsProcessing();
      },
      60000));
  const My::Span data = comp().GetSegmentObject(0).GetDataSpan();
  EXPECT_EQ(data.first, 0);
  EXPECT_EQ(data.last, shot.frames);
  EXPECT_GE(shown.size(), 4u) << "the view did not follow the tracker";

  // A still overlay with alpha in the top-left corner, imported on the key frame.
  {
    img::image overlay(60, 40);
    for (uint32_t y = 0; y < 40; ++y)
      for (uint32_t x = 0; x < 60; ++x) {
        uint8_t* p = overlay.rows[y] + 4 * x;
        p[0] = 0, p[1] = 0, p[2] = 255, p[3] = 255;
      }
    img::native_writer().write(dir / "patch.bmp", "BMP", overlay, true);
  }
  dialogs.choose_file(dir / "patch.bmp");
  dialogs.answer(app::Answer::Ok);  // its size differs from the shot's
  Trigger("File/Import Overlay...");
  ASSERT_FALSE(comp().GetOverlay().IsEmpty());
  EXPECT_EQ(dialogs.questions().back().text, "Still overlay imported.");
  // Placed on the plate, as the overlay's properties place it.
  const types::affine placement =
      types::affine::translation(shot.plate_left + 10, shot.plate_top + 10);
  comp().GetInterface().GetOverlay().SetInitialTransform(placement);

  // Play a few frames.
  comp().SetCurrentTime(0);
  Trigger("Time/Play Forward");
  ASSERT_TRUE(WaitFor([&] { return comp().GetPreviewTime() >= 4; }, 10000));
  Trigger("Time/Pause");
  EXPECT_EQ(desktop->view().play_state(), app::kStopped);

  // The overlay rides on the plate: its centre goes where the true motion takes it.
  const int32_t frame = shot.frames - 2;
  Trigger("Display/Mask");  // the mask's tint off: the overlay in its own colour
  comp().SetCurrentTime(frame);
  Settled();
  // The saved picture itself is checked: what the user sees.
  const QImage tracked = Screenshot("3-tracked-overlay.png")
                             .copy(QRect(view().mapTo(frame_, QPoint(0, 0)), view().size()));
  const types::affine motion = shot.plate_motion(frame) *
                               shot.plate_motion(comp().GetOverlay().GetMatch()).inverse() *
                               placement;
  double ox, oy;
  motion.apply(30.0, 20.0, ox, oy);
  EXPECT_EQ(At(tracked, ox, oy) & 0xFFFFFF, 0xFF0000u) << "overlay centre at " << ox << "," << oy;
  motion.apply(90.0, 20.0, ox, oy);  // beside the overlay: the shot shows
  EXPECT_NE(At(tracked, ox, oy) & 0xFFFFFF, 0xFF0000u);

  // Keyframes on the clipboard, with CR LF line ends.
  Trigger("File/Copy Transforms");
  const std::string text = QGuiApplication::clipboard()->text().toStdString();
  EXPECT_THAT(text, ::testing::StartsWith("Adobe After Effects 5.0 Keyframe Data\r\n"));
  EXPECT_THAT(text, ::testing::HasSubstr("End of Keyframe Data"));

  // Render the work area to PNG files.
  desktop->app().GetPreferences().renderingFormat = "png";
  fs::create_directories(dir / "out");
  dialogs.choose_file(dir / "out/shot_0001.png");
  Trigger("File/Render/Composition...");
  EXPECT_EQ(dialogs.questions().back().text, "Rendering completed successfully.");
  size_t files = 0;
  for (const auto& e : fs::directory_iterator(dir / "out")) files += e.path().extension() == ".png";
  EXPECT_EQ(files, size_t(shot.frames));
  Screenshot("4-render-done.png");
  {
    // The rendered frame holds the overlay where the preview showed it.
    char name[32];
    std::snprintf(name, sizeof name, "out/shot_%04d.png", frame + 1);
    const QImage rendered(QString::fromStdString(dir / name));
    ASSERT_EQ(rendered.size(), QSize(int(shot.width), int(shot.height))) << name;
    motion.apply(30.0, 20.0, ox, oy);
    EXPECT_EQ(rendered.pixel(int(ox), int(oy)) & 0xFFFFFF, 0xFF0000u);
    motion.apply(90.0, 20.0, ox, oy);
    EXPECT_NE(rendered.pixel(int(ox), int(oy)) & 0xFFFFFF, 0xFF0000u);
  }

  // Save, close, reopen, undo.
  dialogs.choose_file(dir / "chase.vlp");
  Trigger("File/Save");
  EXPECT_EQ(frame_->windowTitle(), "chase - Velomar");
  Trigger("File/Close Project");
  EXPECT_EQ(frame_->windowTitle(), " - Velomar");
  dialogs.choose_file(dir / "chase.vlp");
  Trigger("File/Open...");
  ASSERT_EQ(comp().GetSegmentCount(), 1);
  EXPECT_EQ(comp().GetSegmentObject(0).GetDataSpan().last, shot.frames);
  EXPECT_FALSE(comp().GetOverlay().IsEmpty());
  Trigger("Segment/New Segment");
  EXPECT_EQ(frame_->windowTitle(), "chase * - Velomar");
  Trigger("Edit/Undo");
  EXPECT_EQ(comp().GetSegmentCount(), 1);
  EXPECT_EQ(frame_->windowTitle(), "chase - Velomar");
}

}  // namespace

int main(int argc, char** argv) {
  const std::string why = gui_testing::StartXvfbIfNeeded();
  if (!why.empty()) {
    std::printf("[  SKIPPED ] the window session needs an X server: %s\n", why.c_str());
    return 0;
  }
  qputenv("QT_QPA_PLATFORM", "xcb");
  int status;
  {
    QApplication application(argc, argv);
    testing::InitGoogleMock(&argc, argv);
    status = RUN_ALL_TESTS();
  }
  gui_testing::StopXvfb();
  return status;
}
