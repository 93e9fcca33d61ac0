// SPDX-License-Identifier: GPL-3.0-or-later
// The property grid over the core's property trees: edits as undo steps,
// refusals that keep the old value, the object the panel shows, hints in
// the chosen language.
#include <gtest/gtest.h>

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QTest>
#include <QTreeWidget>

#include "app/model/properties_hints.h"
#include "gui/widgets/property_grid.h"
#include "widget_fixture.h"

namespace {

struct Grid : gui_testing::CompOfFrames {
  Grid() : CompOfFrames(100) { grid.resize(360, 480); }

  void Type(const std::vector<std::string>& path, const char* text) {
    auto* edit = qobject_cast<QLineEdit*>(grid.Control(path));
    ASSERT_NE(edit, nullptr);
    edit->setFocus();
    edit->selectAll();
    QTest::keyClick(edit, Qt::Key_Backspace);
    QTest::keyClicks(edit, text);
    QTest::keyClick(edit, Qt::Key_Return);
  }
  QString Shown(const std::vector<std::string>& path) {
    auto* edit = qobject_cast<QLineEdit*>(grid.Control(path));
    return edit ? edit->text() : QString();
  }

  VLPropertyGrid grid{comp};
};

TEST(PropertyGrid, TypedValueIsOneUndoStepAndUndoShowsTheOldValue) {
  Grid g;
  EXPECT_EQ(g.grid.Title(), "Composition Properties");
  g.Type({"Export", "Framerate"}, "30");
  EXPECT_EQ(g.comp.GetFramerate(), 30u);
  EXPECT_EQ(g.comp.GetActionQueue().GetUndoName(), "Change Framerate");
  g.comp.GetActionQueue().Undo();
  g.grid.Refresh();
  EXPECT_EQ(g.comp.GetFramerate(), 25u);
  EXPECT_EQ(g.Shown({"Export", "Framerate"}), "25");

  g.Type({"Work area", "To"}, "80");
  EXPECT_EQ(g.comp.GetWorkArea(), (My::Span{0, 80}));
  g.grid.Refresh();
  auto* summary = qobject_cast<QLabel*>(g.grid.Control({"Work area"}));
  ASSERT_NE(summary, nullptr);
  EXPECT_EQ(summary->text(), "0, 80");
}

TEST(PropertyGrid, RefusedTextIsReportedAndTheOldValueStays) {
  Grid g;
  const size_t steps = g.comp.GetActionQueue().GetSize();
  for (const char* bad : {"-1", "12x", ""}) {
    g.Type({"Export", "Framerate"}, bad);
    EXPECT_EQ(g.comp.GetFramerate(), 25u) << bad;
    EXPECT_EQ(g.Shown({"Export", "Framerate"}), "25") << bad;
  }
  EXPECT_EQ(g.comp.GetActionQueue().GetSize(), steps);
  // The empty text refuses too; every refusal is shown once, as a failed
  // command is.
  ASSERT_EQ(g.dialogs.questions().size(), 3u);
  EXPECT_EQ(g.dialogs.questions()[0].text,
            "Error while performing general operation:\nInvalid property value.");
  g.Type({"Start frame"}, "-7");  // signed: taken
  EXPECT_EQ(g.comp.GetStartFrame(), -7);
}

TEST(PropertyGrid, FollowsTheActiveObjectAndEditsChoicesAndChecks) {
  Grid g;
  g.comp.GetInterface().CreateSegment(50, false);
  g.grid.Refresh();
  EXPECT_EQ(g.grid.Title(), "Segment Properties");
  auto* method = qobject_cast<QComboBox*>(g.grid.Control({"Parameters", "Estimation method"}));
  ASSERT_NE(method, nullptr);
  method->activated(0);  // Fastest: the radius and the block size go away
  EXPECT_EQ(g.comp.GetActionQueue().GetUndoName(), "Change Parameters");
  const std::vector<std::string> radius{"Parameters", "Estimation method", "Matching radius"};
  EXPECT_TRUE(g.grid.Row(radius)->isHidden());
  method->activated(2);
  EXPECT_FALSE(g.grid.Row(radius)->isHidden());

  auto* same =
      qobject_cast<QCheckBox*>(g.grid.Control({"Parameters", "Original mask in all frames"}));
  ASSERT_NE(same, nullptr);
  const bool before = g.comp.GetSegmentObject(0).GetParams().OriginalMaskInAllFrames;
  same->click();
  EXPECT_NE(g.comp.GetSegmentObject(0).GetParams().OriginalMaskInAllFrames, before);

  g.comp.GetInterface().SetActiveSegment(-1);
  g.grid.Refresh();
  EXPECT_EQ(g.grid.Title(), "Composition Properties");
  EXPECT_NE(g.grid.Row({"Task"}), nullptr);
}

TEST(PropertyGrid, HintsInTheChosenLanguage) {
  Grid g;
  g.grid.show();
  const std::vector<std::string> path{"Start frame"};
  g.grid.findChild<QTreeWidget*>()->setCurrentItem(g.grid.Row(path));
  EXPECT_EQ(g.grid.ShownHint().toStdString(), app::hints::StartFrame(app::HintLanguage::English));
  app::SetHintLanguage(1);
  g.grid.Rebuild();
  g.grid.findChild<QTreeWidget*>()->setCurrentItem(g.grid.Row(path));
  const std::string russian = app::hints::StartFrame(app::HintLanguage::Russian);
  EXPECT_EQ(g.grid.ShownHint().toStdString(), russian);
  EXPECT_EQ(g.grid.Row({"Export", "Inaccuracy"})->toolTip(0).toStdString(),
            app::hints::Inaccuracy(app::HintLanguage::Russian, g.comp.GetExportInaccuracy()));
  gui_testing::SaveSnapshot(g.grid.grab().toImage(), "property_grid_russian");
  app::SetHintLanguage(0);
}

}  // namespace
