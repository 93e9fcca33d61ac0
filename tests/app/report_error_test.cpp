// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/report_error.h"

#include <gtest/gtest.h>

#include "app/commands/command_texts.h"
#include "app/operation_stack.h"
#include "app/scripted_dialogs.h"

namespace app {
namespace {

struct ReportCase {
  std::vector<std::string> stack;
  std::string text;
  std::string expected;
};

TEST(ReportError, NamesTheInnermostOperationAndEndsWithAStopUnlessALineFeed) {
  const ReportCase cases[] = {
      {{"opening project", "loading sequence"},
       "bad frame",
       "Error while loading sequence:\nbad frame."},
      {{}, "out of memory", "Error while performing general operation:\nout of memory."},
      {{"saving project"}, "disk full\n", "Error while saving project:\ndisk full\n"},
      {{"saving project"}, "ends with a stop.", "Error while saving project:\nends with a stop.."},
      {{"importing mask"}, "", "Error while importing mask:\n"},
  };
  for (const ReportCase& c : cases) {
    OperationStack stack;
    for (const auto& name : c.stack) stack.push(name);
    ScriptedDialogs dialogs;
    ReportError(stack, dialogs, c.text);
    ASSERT_EQ(dialogs.questions().size(), 1u);
    EXPECT_EQ(dialogs.questions()[0].text, c.expected);
    EXPECT_EQ(dialogs.questions()[0].icon, Icon::Error);
    EXPECT_EQ(dialogs.questions()[0].buttons, Buttons::Ok);
    EXPECT_TRUE(stack.empty()) << c.expected;
  }
}

TEST(ReportError, NextErrorAfterAReportIsAGeneralOperation) {
  OperationStack stack;
  stack.push(kOpeningProject);
  stack.push(kOpeningProject);
  EXPECT_EQ(ErrorReportText(stack, "x"), "Error while opening project:\nx.");
  // The outer operation's pop after the report finds nothing and must not fail.
  stack.pop();
  EXPECT_EQ(ErrorReportText(stack, "y"), "Error while performing general operation:\ny.");
}

struct FakeClipboard : Clipboard {
  bool opens = true;
  std::string text;
  bool set_text(const std::string& t) override {
    if (opens) text = t;
    return opens;
  }
};

TEST(ClipboardCopy, LineFeedsBecomeCrLfAndTheStackIsLeftAsFound) {
  FakeClipboard clipboard;
  OperationStack stack;
  stack.push("outer");
  EXPECT_TRUE(CopyToClipboard(clipboard, stack, "a\nb\r\n"));
  EXPECT_EQ(clipboard.text, "a\r\nb\r\r\n");
  clipboard.opens = false;
  EXPECT_FALSE(CopyToClipboard(clipboard, stack, "c"));
  EXPECT_EQ(stack.names(), (std::vector<std::string>{"outer"}));
}

TEST(CommandTexts, QuestionsAndNoticesAreExact) {
  EXPECT_EQ(EmptyMaskQuestion("/m.bmp", "white"),
            "Bitmap (/m.bmp) contains no white pixels.\nProceed?");
  EXPECT_EQ(MaskDimensionsQuestion("m.bmp"),
            "Dimensions of the bitmap (m.bmp) differ from composition dimensions.\nProceed?");
  EXPECT_EQ(OverlayImportedNotice(1), "Still overlay imported.");
  EXPECT_EQ(OverlayImportedNotice(2), "Overlay sequence of 2 frames imported.");
}

}  // namespace
}  // namespace app
