// SPDX-License-Identifier: GPL-3.0-or-later
// The main window offscreen: its menus against the presenter's table, the
// enabling after a refresh, the title, the layout keys, and the view's
// drawing and zoom.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QMenuBar>
#include <QStatusBar>
#include <QTest>
#include <functional>

#include "app/commands/application.h"
#include "app/model/comp.h"
#include "app/preview/view.h"
#include "app/profile_store.h"
#include "app/scripted_dialogs.h"
#include "gui/desktop.h"
#include "gui/main_frame.h"
#include "gui/qt_ports.h"
#include "gui/view_widget.h"
#include "imaging/bitmap.h"
#include "imaging/native_io.h"
#include "testing/files.h"

namespace {

// A solid frame of w x h in pixel order blue, green, red.
std::string WriteSolid(const testing_support::TempDir& dir,
                       const std::string& name,
                       uint32_t w,
                       uint32_t h,
                       uint32_t colour) {
  img::image picture(w, h);
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) {
      uint8_t* p = picture.rows[y] + 4 * x;
      p[0] = uint8_t(colour), p[1] = uint8_t(colour >> 8), p[2] = uint8_t(colour >> 16), p[3] = 255;
    }
  const std::string path = dir / name;
  img::native_writer().write(path, "BMP", picture, false);
  return path;
}

struct FrameFixture {
  testing_support::TempDir dir;
  app::ScriptedDialogs dialogs;
  app::MemoryProfileStore profile;
  std::unique_ptr<gui::Desktop> desktop;

  void Start() {
    desktop = std::make_unique<gui::Desktop>(
        gui::DesktopOptions{.dialogs = &dialogs, .profile = &profile, .serve_link = false});
    desktop->frame().resize(1000, 700);
    desktop->frame().show();
    QTest::qWait(10);
  }
  // Waits until `done` or a few seconds have passed, running the loop.
  bool WaitFor(const std::function<bool()>& done) {
    for (int i = 0; i < 500 && !done(); ++i) QTest::qWait(10);
    return done();
  }
};

void ForEachEntry(const std::vector<app::MenuCommand>& items,
                  const std::string& path,
                  const std::function<void(const app::MenuCommand&, const std::string&)>& f) {
  for (const auto& item : items) {
    if (item.separator || item.fill) continue;
    std::string caption = item.Caption();
    std::erase(caption, '&');
    if (item.IsPopup())
      ForEachEntry(item.items, path + "/" + caption, f);
    else
      f(item, path + "/" + caption);
  }
}

TEST(MainFrame, EveryEntryHasItsKeysHintAndRule) {
  FrameFixture f;
  f.Start();
  gui::MainFrame& frame = f.desktop->frame();
  EXPECT_EQ(frame.windowTitle(), " - Velomar");
  EXPECT_EQ(frame.menuBar()->actions().size(), 9);
  auto check = [&](const char* when) {
    frame.refresh();
    int entries = 0;
    for (const auto& menu : f.desktop->presenter().Menus()) {
      std::string top = menu.text;
      std::erase(top, '&');
      if (top == "After Effects") continue;  // asks a plug-in that is not there
      ForEachEntry(menu.items, top, [&](const app::MenuCommand& c, const std::string& path) {
        QAction* a = frame.action(path);
        ASSERT_NE(a, nullptr) << path;
        ++entries;
        EXPECT_EQ(a->shortcuts(), gui::Shortcuts(c.Accelerator())) << path;
        EXPECT_EQ(a->statusTip().toStdString(), c.hint) << path;
        EXPECT_EQ(a->isEnabled(), c.IsEnabled()) << when << ": " << path;
        if (c.checked) {
          EXPECT_EQ(a->isChecked(), c.checked()) << when << ": " << path;
        }
      });
    }
    EXPECT_GT(entries, 100);
  };
  check("no project");
  f.desktop->app().LoadSequenceFile(WriteSolid(f.dir, "wall_0010.bmp", 64, 48, 0x204080));
  f.desktop->app().OnNewSegment();
  check("project");
  EXPECT_EQ(frame.windowTitle(), "(Untitled) * - Velomar");
  EXPECT_TRUE(frame.action("File/Save")->isEnabled());
  EXPECT_FALSE(frame.action("Time/Pause")->isEnabled());
  // The Render pop-up goes with the project.
  EXPECT_TRUE(
      qobject_cast<QWidget*>(frame.action("File/Render/Composition...")->parent())->isEnabled());
}

TEST(MainFrame, ShortcutsRunTheirCommands) {
  FrameFixture f;
  f.Start();
  gui::MainFrame& frame = f.desktop->frame();
  frame.activateWindow();
  f.desktop->app().LoadSequenceFile(WriteSolid(f.dir, "wall_0001.bmp", 64, 48, 0x204080));
  frame.refresh();
  VLComp& comp = f.desktop->app().GetComposition();
  EXPECT_EQ(comp.GetSegmentCount(), 0);
  frame.action("Segment/New Segment")->trigger();
  EXPECT_EQ(comp.GetSegmentCount(), 1);
  frame.action("Edit/Undo")->trigger();
  EXPECT_EQ(comp.GetSegmentCount(), 0);
  // A disabled entry's command does not run even when triggered directly.
  frame.action("Edit/Redo")->setEnabled(true);
  comp.GetActionQueue().Clear();
  frame.action("Edit/Redo")->trigger();
  EXPECT_EQ(comp.GetSegmentCount(), 0);
}

TEST(MainFrame, LayoutKeysShapeTheBars) {
  FrameFixture f;
  f.profile.set_int("Layout", "RightBarVisible", 0);
  f.profile.set_int("Layout", "BottomBarSize", 150);
  f.profile.set_int("Layout", "StatusBar", 0);
  f.Start();
  gui::MainFrame& frame = f.desktop->frame();
  EXPECT_FALSE(frame.right_bar()->isVisible());
  EXPECT_TRUE(frame.bottom_bar()->isVisible());
  EXPECT_FALSE(frame.statusBar()->isVisible());
  EXPECT_NEAR(frame.bottom_bar()->height(), 150, 2);
  frame.action("View/Right Bar")->trigger();
  EXPECT_TRUE(frame.right_bar()->isVisible());
  frame.action("View/Trackline")->trigger();
  EXPECT_FALSE(frame.bottom_bar()->isVisible());
  f.desktop.reset();
  EXPECT_EQ(f.profile.get_int("Layout", "RightBarVisible", -1), 1);
  EXPECT_EQ(f.profile.get_int("Layout", "BottomBarVisible", -1), 0);
  EXPECT_EQ(f.profile.get_int("Layout", "BottomBarSize", -1), 150);
}

TEST(ViewWidget, DrawsTheFrameAndZoomsWithinItsRange) {
  FrameFixture f;
  f.profile.set_int("DisplayStyle", "Background", 0x00FF00);  // green around the picture
  f.Start();
  gui::ViewWidget& view = f.desktop->frame().view();
  // An empty composition shows the workspace colour, whatever "Background" says.
  EXPECT_EQ(view.grab().toImage().pixel(5, 5) & 0xFFFFFF, gui::WorkspaceColour());
  f.desktop->app().LoadSequenceFile(WriteSolid(f.dir, "wall_0001.bmp", 64, 48, 0x204080));
  ASSERT_TRUE(f.WaitFor([&] { return view.frames_painted() > 0; }));
  EXPECT_EQ(view.image_size(), QSize(64, 48));
  const QImage shot = view.grab().toImage();
  const QPointF centre = view.to_widget(QPointF(32, 24));
  EXPECT_EQ(shot.pixel(centre.toPoint()) & 0xFFFFFF, 0x204080u);
  EXPECT_EQ(shot.pixel(1, 1) & 0xFFFFFF, 0x00FF00u);
  // Fitted: the picture fills the narrower side.
  EXPECT_NEAR(view.zoom(), std::min(view.width() / 64.0, view.height() / 48.0), 1e-9);
  const std::vector<std::pair<double, double>> zooms = {
      {0.5, 0.5}, {0.001, 0.01}, {250.0, 100.0}, {100.0, 100.0}, {0.01, 0.01}};
  for (const auto& [asked, got] : zooms) {
    view.set_zoom(asked, QPointF(10, 10));
    EXPECT_DOUBLE_EQ(view.zoom(), got) << asked;
  }
  // Zooming keeps the picture point under the anchor.
  view.actual_pixels();
  const QPointF before = view.to_image(QPointF(40, 30));
  view.set_zoom(4.0, QPointF(40, 30));
  EXPECT_NEAR(view.to_image(QPointF(40, 30)).x(), before.x(), 1e-9);
  EXPECT_NEAR(view.to_image(QPointF(40, 30)).y(), before.y(), 1e-9);
}

}  // namespace
