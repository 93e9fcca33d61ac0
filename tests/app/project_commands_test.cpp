// SPDX-License-Identifier: GPL-3.0-or-later
// The application's Open, Save and Save As with the real project file.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "app/commands/application.h"
#include "app/commands/project_files.h"
#include "app/message_queue.h"
#include "app/model/comp.h"
#include "app/profile_store.h"
#include "app_fixtures.h"

namespace {

TEST(VelomarProject, SavedProjectOpensWithItsSegmentsAndUnmodified) {
  testing_support::TempDir dir;
  app::MessageQueue queue;
  app::ScriptedDialogs dialogs;
  app::MemoryProfileStore profile;
  app::Velomar app(
      {.queue = queue, .dialogs = dialogs, .profile = profile, .files = app::ProjectFiles()});
  app.LoadSequenceFile(app_testing::WriteImage(dir, "s_0003.bmp", 8, 6, false));
  app.OnNewSegment();
  dialogs.choose_file(dir / "p.vlp");
  app.OnSave();  // no path yet: Save As
  EXPECT_FALSE(app.GetCommandState().modified);
  EXPECT_EQ(app.GetComposition().GetProjectPath(), dir / "p.vlp");

  app.OnNewSegment();
  dialogs.answer(app::Answer::No);
  ASSERT_TRUE(app.OpenDocumentFile(dir / "p.vlp"));  // closes first, unsaved
  EXPECT_EQ(app.GetComposition().GetSegmentCount(), 1);
  EXPECT_EQ(app.GetComposition().GetStartFrame(), 3);
  EXPECT_FALSE(app.GetCommandState().modified);

  // A broken file leaves no project and names the operation.
  testing_support::WriteFile(dir / "bad.vlp", std::string_view("<Velomar"));
  EXPECT_FALSE(app.Run([&] { app.OpenDocumentFile(dir / "bad.vlp"); }));
  EXPECT_FALSE(app.IsProjectOpen());
  EXPECT_THAT(dialogs.questions().back().text,
              ::testing::StartsWith("Error while opening project:\n"));
}

}  // namespace
