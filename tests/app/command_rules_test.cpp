// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/commands/command_rules.h"

#include <gtest/gtest.h>

namespace app {
namespace {

CommandSnapshot OpenProject(int segments, std::optional<int> active) {
  CommandSnapshot s;
  s.projectOpen = true;
  s.segments.resize(static_cast<size_t>(segments));
  s.activeSegment = active;
  return s;
}

TEST(CommandRules, SaveNeedsAModifiedOpenProject) {
  CommandSnapshot s;
  s.modified = true;
  EXPECT_FALSE(CanSave(s));
  s.projectOpen = true;
  EXPECT_TRUE(CanSave(s));
  s.modified = false;
  EXPECT_FALSE(CanSave(s));
  EXPECT_TRUE(CanSaveAs(s));
}

TEST(CommandRules, CopyTransformsNeedsOverlayFramesAndANonEmptySpan) {
  CommandSnapshot s = OpenProject(0, std::nullopt);
  s.overlayHasFrames = true;
  s.transformSpanEmpty = true;
  EXPECT_FALSE(CanCopyTransforms(s));
  s.transformSpanEmpty = false;
  EXPECT_TRUE(CanCopyTransforms(s));
  EXPECT_TRUE(CanExportTransforms(s));
  s.overlayHasFrames = false;
  EXPECT_FALSE(CanCopyTransforms(s));
}

TEST(CommandRules, ActivateAboveAndBelowAtTheEnds) {
  struct Case {
    int count;
    std::optional<int> active;
    std::optional<int> above, below;
  };
  const Case cases[] = {
      {0, std::nullopt, std::nullopt, std::nullopt},
      {3, std::nullopt, 2, 0},
      {3, 0, std::nullopt, 1},
      {3, 2, 1, std::nullopt},
      {1, 0, std::nullopt, std::nullopt},
      {3, 1, 0, 2},
  };
  for (const Case& c : cases) {
    const CommandSnapshot s = OpenProject(c.count, c.active);
    EXPECT_EQ(ActivateAboveTarget(s), c.above) << c.count << " " << c.active.value_or(-1);
    EXPECT_EQ(ActivateBelowTarget(s), c.below) << c.count << " " << c.active.value_or(-1);
    EXPECT_EQ(CanActivateAbove(s), c.above.has_value());
    EXPECT_EQ(CanActivateBelow(s), c.below.has_value());
  }
}

TEST(CommandRules, SegmentCommandsFollowTheActiveSegmentsJob) {
  CommandSnapshot s = OpenProject(2, 1);
  s.segments[0].processing = true;
  s.segments[1].covered = true;
  s.segments[1].dataOutsideTimeSpan = true;
  EXPECT_FALSE(CanProcess(s));
  EXPECT_TRUE(CanTrim(s));
  EXPECT_FALSE(CanProcessAll(s)) << "the uncovered segment is already processing";
  EXPECT_TRUE(CanCancelAll(s));
  s.segments[1].processing = true;
  EXPECT_FALSE(CanTrim(s));
  EXPECT_FALSE(CanImportMask(s));
  EXPECT_TRUE(CanExportMask(s));
}

}  // namespace
}  // namespace app
