// SPDX-License-Identifier: GPL-3.0-or-later
// The window's presenter without a window: the title rule, the layout and
// recent-file keys, and the menu table against the core's enabling rules.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "app/commands/application.h"
#include "app/commands/command_rules.h"
#include "app/commands/project_files.h"
#include "app/commands/window_presenter.h"
#include "app/edit/mask_editor.h"
#include "app/message_queue.h"
#include "app/model/comp.h"
#include "app/preview/view.h"
#include "app/profile_store.h"
#include "app_fixtures.h"
#include "imaging/global_cache.h"

namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

struct PresenterFixture {
  testing_support::TempDir dir;
  app::MessageQueue queue;
  app::ScriptedDialogs dialogs;
  app::MemoryProfileStore profile;
  std::vector<std::string> log;
  app_testing::RecordingView surface{log};
  app::Velomar app{{.queue = queue,
                    .dialogs = dialogs,
                    .profile = profile,
                    .files = app::ProjectFiles(),
                    .view = &surface}};
  app::VLView view{app.GetComposition(),
                   {.surface = surface,
                    .profile = profile,
                    .queue = queue,
                    .dialogs = dialogs,
                    .cache = img::global_cache()}};
  std::optional<app::WindowPresenter> presenter{
      std::in_place,
      app::WindowPorts{.app = app, .view = view, .profile = profile, .cache = img::global_cache()}};

  void OpenWithSegment() {
    app.LoadSequenceFile(app_testing::WriteImage(dir, "plate_0001.bmp", 8, 6, false));
    app.OnNewSegment();
  }
  // The entry of `menu` whose text is `text`.
  app::MenuCommand Entry(const std::vector<app::MenuCommand>& menus,
                         const std::string& menu,
                         const std::string& text) {
    for (const auto& m : menus)
      if (m.text == menu)
        for (const auto& e : m.items)
          if (e.text == text) return e;
    ADD_FAILURE() << menu << " has no entry " << text;
    return {};
  }
};

std::vector<std::string> Texts(const std::vector<app::MenuCommand>& items) {
  std::vector<std::string> texts;
  for (const auto& i : items)
    if (!i.separator) texts.push_back(i.text);
  return texts;
}

TEST(WindowPresenter, TitleFollowsProjectFileAndModification) {
  PresenterFixture f;
  int told = 0;
  f.presenter->onTitleChanged = [&] { ++told; };
  EXPECT_EQ(f.presenter->Title(), " - Velomar");
  f.OpenWithSegment();
  EXPECT_EQ(f.presenter->Title(), "(Untitled) * - Velomar");
  EXPECT_GT(told, 0);
  f.app.SaveProjectAs(f.dir / "chase.vlp");
  EXPECT_EQ(f.presenter->Title(), "chase - Velomar");
  f.app.OnNewSegment();
  EXPECT_EQ(f.presenter->Title(), "chase * - Velomar");
  f.app.OnUndo();
  EXPECT_EQ(f.presenter->Title(), "chase - Velomar");
}

TEST(WindowPresenter, LayoutKeysDefaultAndComeBackAsTheyStood) {
  PresenterFixture f;
  EXPECT_EQ(f.presenter->Layout(), app::LayoutSettings{});
  EXPECT_EQ(f.presenter->Layout().rightBarSize, 200);
  f.presenter->Layout().rightBarVisible = false;
  f.presenter->Layout().bottomBarSize = 5000;  // no fit is forced on it
  f.presenter.reset();
  EXPECT_EQ(f.profile.get_int("Layout", "RightBarVisible", -1), 0);
  EXPECT_EQ(f.profile.get_int("Layout", "BottomBarSize", -1), 5000);
  EXPECT_EQ(f.profile.get_int("Layout", "StatusBar", -1), 1);
  const app::LayoutSettings read = app::ReadLayout(f.profile);
  EXPECT_FALSE(read.rightBarVisible);
  EXPECT_EQ(read.bottomBarSize, 5000);
}

TEST(WindowPresenter, RecentFilesSurviveTheRunNewestFirst) {
  PresenterFixture f;
  for (const char* name : {"a.vlp", "b.vlp", "c.vlp", "d.vlp", "e.vlp", "b.vlp"})
    f.app.SaveProjectAs(f.dir / name);  // no project: nothing happens
  EXPECT_TRUE(f.app.GetRecentFiles().empty());
  f.OpenWithSegment();
  for (const char* name : {"a.vlp", "b.vlp", "c.vlp", "d.vlp", "e.vlp", "b.vlp"})
    f.app.SaveProjectAs(f.dir / name);
  f.presenter.reset();
  const std::string d = f.dir.path().string() + "/";
  EXPECT_THAT(app::ReadRecentFiles(f.profile),
              ElementsAre(d + "b.vlp", d + "e.vlp", d + "d.vlp", d + "c.vlp"));
}

TEST(WindowPresenter, MenuBarHoldsEveryEntryWithItsAccelerator) {
  PresenterFixture f;
  const auto menus = f.presenter->Menus();
  EXPECT_THAT(Texts(menus), ElementsAre("&File", "&Edit", "&Segment", "&Display", "&Time",
                                        "Track&line", "&After Effects", "&View", "&Help"));
  const std::vector<std::vector<std::string>> expected = {
      {"&New Project...\tCtrl+N", "&Open...\tCtrl+O", "&Save\tCtrl+S", "Save &As...",
       "&Close Project", "Import Overlay...", "Render", "Copy Transforms", "Export Transforms...",
       "&Preferences", "Recent File", "E&xit"},
      {"&Undo\tCtrl+Z", "Redo\tShift+Ctrl+Z", "Cu&t\tCtrl+X", "&Copy\tCtrl+C", "&Paste\tCtrl+V",
       "Clear\tDel", "Undo Watch", "Redo Watch"},
      {"&New Segment\tCtrl+Shift+N", "New from Active", "Activate below\tCtrl+Down",
       "Activate above\tCtrl+Up", "Import Mask...", "Export Mask...", "&Process\tEnter",
       "&Cancel\tEsc", "&Trim", "Process All", "Cancel All"},
      {"Preview", "Edit Mask\tM", "Zoom In\tCtrl++", "Zoom Out\tCtrl+ -", "Fit on Screen\tCtrl+0",
       "Actual Pixels\tAlt+Ctrl+0", "Underlay", "Overlay", "Mask", "Background Color",
       "Overlay Opacity", "Mask Color", "Mask Opacity", "Interpolation", "Inverse Mask"},
      {"First Frame\tHome", "Work Area Start\tShift+Home", "Previous Frame\tCtrl+Left",
       "Play Backward\tAlt+Space", "Pause\tSpace", "Play Forward\tSpace", "Next Frame\tCtrl+Right",
       "Work Area End\tShift+End", "Last Frame\tEnd", "Segment Back End\tI", "Segment Front End\tO",
       "Go to Frame...\tCtrl+G", "Follow", "Auto Follow", "Loop", "Frame Rate"},
      {"Zoom In\t+", "Zoom Out\t-", "Fit in Window\tCtrl+Alt+Home", "&Begin Work Area\tB",
       "E&nd Work Area\tN", "Set Segment Back\tAlt+[", "Set Segment Front\tArl+]"},
      {"Switch to After Effects", "Import Project", "Import Overlay", "Export Project",
       "Export Transformations"},
      {"&Right Bar", "&Trackline", "&Status Bar"},
      {"Velomar Manual...", "&About Velomar..."}};
  ASSERT_EQ(menus.size(), expected.size());
  for (size_t i = 0; i < menus.size(); ++i)
    EXPECT_THAT(Texts(menus[i].items), ElementsAreArray(expected[i])) << menus[i].text;

  const auto prefs = Texts(f.Entry(menus, "&File", "&Preferences").items);
  EXPECT_THAT(prefs, ElementsAre("Cache Size", "Rendering Format", "Overlay Alignment",
                                 "Overlay Alpha", "Property Hint Language"));
  EXPECT_THAT(Texts(f.Entry(menus, "&Display", "Background Color").items),
              ElementsAre("System", "Black", "Red", "Green", "Blue", "White", "Custom..."));
  EXPECT_THAT(Texts(f.Entry(menus, "&Display", "Mask Opacity").items),
              ElementsAre("10%", "25%", "50%", "75%", "100%"));
  EXPECT_THAT(Texts(f.Entry(menus, "&Time", "Frame Rate").items),
              ElementsAre("10 fps", "25 fps", "30 fps", "50 fps"));
}

TEST(WindowPresenter, EntriesAreEnabledByTheCoreRules) {
  PresenterFixture f;
  using Rule = bool (*)(const app::CommandSnapshot&);
  const std::vector<std::tuple<const char*, const char*, Rule>> rules = {
      {"&File", "&Save\tCtrl+S", app::CanSave},
      {"&File", "&Close Project", app::CanCloseProject},
      {"&File", "Import Overlay...", app::CanImportOverlay},
      {"&File", "Export Transforms...", app::CanExportTransforms},
      {"&Edit", "&Undo\tCtrl+Z", app::CanUndo},
      {"&Edit", "Redo\tShift+Ctrl+Z", app::CanRedo},
      {"&Edit", "Clear\tDel", app::CanClear},
      {"&Segment", "&New Segment\tCtrl+Shift+N", app::CanNewSegment},
      {"&Segment", "New from Active", app::CanNewFromActive},
      {"&Segment", "Activate below\tCtrl+Down", app::CanActivateBelow},
      {"&Segment", "Activate above\tCtrl+Up", app::CanActivateAbove},
      {"&Segment", "&Process\tEnter", app::CanProcess},
      {"&Segment", "&Trim", app::CanTrim},
      {"&Segment", "Import Mask...", app::CanImportMask},
      {"&Segment", "Export Mask...", app::CanExportMask}};
  const std::vector<std::function<void()>> steps = {
      [] {},                             // no project
      [&] { f.OpenWithSegment(); },      // one active segment, modified
      [&] { f.app.OnNewSegment(); },     // two, the new one active
      [&] { f.app.OnActivateBelow(); },  // the lower one active
      [&] {
        f.app.OnUndo();
        f.app.OnUndo();
      }  // back to none, redo possible
  };
  for (size_t step = 0; step < steps.size(); ++step) {
    steps[step]();
    const auto menus = f.presenter->Menus();
    const app::CommandSnapshot state = f.app.GetCommandState();
    for (const auto& [menu, text, rule] : rules)
      EXPECT_EQ(f.Entry(menus, menu, text).IsEnabled(), rule(state))
          << "step " << step << ": " << text;
  }
}

TEST(WindowPresenter, UndoEntryReadsTheQueueAndGroupFollowsTheProject) {
  PresenterFixture f;
  EXPECT_FALSE(f.presenter->ProjectGroupEnabled());
  f.OpenWithSegment();
  EXPECT_TRUE(f.presenter->ProjectGroupEnabled());
  const auto menus = f.presenter->Menus();
  const auto undo = f.Entry(menus, "&Edit", "&Undo\tCtrl+Z");
  EXPECT_EQ(undo.label(), f.app.GetComposition().GetActionQueue().GetMenus().undo.text);
  EXPECT_NE(undo.label(), "Undo");  // it names the action
  EXPECT_EQ(undo.Caption(), "&Undo");
  EXPECT_EQ(undo.Accelerator(), "Ctrl+Z");
  f.dialogs.answer(app::Answer::No);  // do not save
  f.app.CloseProject();
  EXPECT_FALSE(f.presenter->ProjectGroupEnabled());
}

TEST(WindowPresenter, DisplayAndTimeEntriesChangeTheView) {
  PresenterFixture f;
  f.OpenWithSegment();
  auto menus = f.presenter->Menus();
  auto opacity = f.Entry(menus, "&Display", "Mask Opacity").items;
  opacity[1].run();  // 25%
  EXPECT_EQ(f.view.GetDisplayStyle().mask_opacity, 250u);
  EXPECT_TRUE(opacity[1].checked());
  EXPECT_FALSE(opacity[2].checked());
  f.Entry(menus, "&Display", "Underlay").run();
  EXPECT_EQ(f.view.GetDisplayStyle().show_underlay, 0u);
  f.Entry(f.presenter->Menus(), "&Time", "Frame Rate").items[1].run();
  EXPECT_EQ(f.view.GetTimeSettings().play_delay, 40u);
  f.Entry(menus, "&Display", "Edit Mask\tM").run();
  EXPECT_EQ(f.view.view_mode(), 1u);
  EXPECT_NE(f.app.GetComposition().GetEditedSegment(), nullptr);
  f.Entry(menus, "&Display", "Preview").run();
  EXPECT_EQ(f.view.view_mode(), 0u);
  EXPECT_EQ(f.app.GetComposition().GetEditedSegment(), nullptr);
}

}  // namespace

namespace {

TEST(WindowPresenter, EditMaskGoesThroughTheEditorEvenWhenTheCoreMarkedAnEdit) {
  PresenterFixture f;
  f.OpenWithSegment();
  app::MaskEditor editor(f.app.GetComposition());
  f.presenter.emplace(app::WindowPorts{.app = f.app,
                                       .view = f.view,
                                       .profile = f.profile,
                                       .cache = img::global_cache(),
                                       .editor = &editor});
  VLSegment& segment = f.app.GetComposition().GetSegmentObject(0);
  // Marked edited by the core, not yet by the editor: the next look follows it.
  segment.GetInterface().BeginEdit();
  editor.Sync();
  EXPECT_EQ(editor.GetSegment(), &segment);
  const auto menus = f.presenter->Menus();
  f.Entry(menus, "&Display", "Preview").run();
  EXPECT_FALSE(editor.IsEditing());
  EXPECT_EQ(f.app.GetComposition().GetEditedSegment(), nullptr);
  f.Entry(menus, "&Display", "Edit Mask\tM").run();
  EXPECT_EQ(editor.GetSegment(), &segment);
  // Whatever a command does to the edit, the editor agrees with the core after it.
  f.Entry(menus, "&Segment", "&New Segment\tCtrl+Shift+N").run();
  EXPECT_EQ(f.app.GetComposition().GetEditedSegment() == nullptr, !editor.IsEditing());
}

}  // namespace
