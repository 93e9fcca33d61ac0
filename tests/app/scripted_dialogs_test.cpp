// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/scripted_dialogs.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "app/message_queue.h"
#include "app/messages.h"

namespace app {
namespace {

FileChoice Titled(const char* title) {
  FileChoice choice;
  choice.title = title;
  return choice;
}

TEST(ScriptedDialogs, RecordsQuestionsAndNoticesTakeNoScriptedAnswer) {
  ScriptedDialogs dialogs;
  dialogs.answer(Answer::Cancel);
  dialogs.answer(Answer::No);
  EXPECT_EQ(dialogs.ask("first?", Buttons::OkCancel, Icon::Warning), Answer::Cancel);
  dialogs.inform("a notice");
  EXPECT_EQ(dialogs.ask("second?", Buttons::YesNoCancel, Icon::Question), Answer::No);

  const auto& asked = dialogs.questions();
  ASSERT_EQ(asked.size(), 3u);
  EXPECT_EQ(asked[0].text, "first?");
  EXPECT_EQ(asked[0].buttons, Buttons::OkCancel);
  EXPECT_EQ(asked[0].icon, Icon::Warning);
  EXPECT_EQ(asked[1].text, "a notice");
  EXPECT_EQ(asked[1].icon, Icon::Information);
  EXPECT_EQ(asked[1].answer, Answer::Ok);
  EXPECT_EQ(asked[2].answer, Answer::No);
  EXPECT_EQ(dialogs.unused_answers(), 0u);
}

TEST(ScriptedDialogs, UnscriptedOrImpossibleAnswersAreFaults) {
  ScriptedDialogs dialogs;
  EXPECT_THROW(dialogs.ask("q?", Buttons::YesNo, Icon::Question), std::logic_error);
  dialogs.answer(Answer::Yes);
  EXPECT_THROW(dialogs.ask("q?", Buttons::OkCancel, Icon::Warning), std::logic_error);
  EXPECT_THROW(dialogs.choose_open_file(Titled("Open Project")), std::logic_error);
}

TEST(ScriptedDialogs, AffirmativeModeSaysYesOrOkButPrefersAScriptedAnswer) {
  ScriptedDialogs dialogs(ScriptedDialogs::Mode::Affirmative);
  EXPECT_EQ(dialogs.ask("a", Buttons::YesNoCancel, Icon::Warning), Answer::Yes);
  EXPECT_EQ(dialogs.ask("b", Buttons::OkCancel, Icon::Warning), Answer::Ok);
  EXPECT_EQ(dialogs.ask("c", Buttons::YesNo, Icon::Question), Answer::Yes);
  dialogs.answer(Answer::Cancel);
  EXPECT_EQ(dialogs.ask("d", Buttons::OkCancel, Icon::Warning), Answer::Cancel);
  EXPECT_EQ(dialogs.questions().size(), 4u);
}

TEST(ScriptedDialogs, FileChoicesProgressAndCursorAreRecorded) {
  ScriptedDialogs dialogs;
  dialogs.choose_file("/tmp/a.vlp");
  dialogs.choose_file(std::nullopt);
  FileChoice open = Titled("Import Overlay");
  open.check_box = "Force Static Overlay";
  EXPECT_EQ(dialogs.choose_open_file(open)->path, "/tmp/a.vlp");
  EXPECT_FALSE(dialogs.choose_save_file(Titled("Save Project As")).has_value());
  ASSERT_EQ(dialogs.file_choices().size(), 2u);
  EXPECT_FALSE(dialogs.file_choices()[0].save);
  EXPECT_EQ(dialogs.file_choices()[0].choice.check_box, "Force Static Overlay");
  EXPECT_TRUE(dialogs.file_choices()[1].save);
}

TEST(ScriptedDialogs, WorkerMessagesReachTheDialogsOnlyWhenPumped) {
  ScriptedDialogs dialogs;
  MessageQueue queue;
  PostCursor(queue, dialogs, true);
  PostMessageBox(queue, dialogs, "Object lost at frame 12");
  PostCursor(queue, dialogs, false);
  EXPECT_TRUE(dialogs.questions().empty());
  queue.pump();
  ASSERT_EQ(dialogs.questions().size(), 1u);
  EXPECT_EQ(dialogs.questions()[0].text, "Object lost at frame 12");
  EXPECT_EQ(dialogs.questions()[0].icon, Icon::Information);
  EXPECT_EQ(dialogs.cursor_changes(), (std::vector<bool>{true, false}));
}

}  // namespace
}  // namespace app
