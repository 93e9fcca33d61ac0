// SPDX-License-Identifier: GPL-3.0-or-later
// When each command of the File, Edit and Segment menus is enabled, as pure
// functions over a snapshot of the state they look at. The composition's
// owner fills the snapshot; the menus, the command-line tool and the tests
// ask the same functions, so a rule lives in exactly one place.
#pragma once

#include <optional>
#include <vector>

namespace app {

struct SegmentSnapshot {
  // Its tracking job is queued or running.
  bool processing = false;
  // The data span covers the whole time span: nothing is left to track.
  bool covered = false;
  // The data span reaches outside the time span: Trim has work to do.
  bool dataOutsideTimeSpan = false;
};

struct CommandSnapshot {
  // The underlay's frame list is not empty.
  bool projectOpen = false;
  // The undo queue says the project differs from its file.
  bool modified = false;
  // False while a modal phase (loading, rendering) holds the window.
  bool mainWindowEnabled = true;
  bool overlayHasFrames = false;
  bool transformSpanEmpty = true;
  bool overlayActive = false;
  bool canUndo = false;
  bool canRedo = false;
  // In list order.
  std::vector<SegmentSnapshot> segments;
  // Index into `segments`; nothing when no segment is active.
  std::optional<int> activeSegment;

  // The active segment's snapshot, or null.
  const SegmentSnapshot* active() const;
};

// File
bool CanNewProject(const CommandSnapshot& state);
bool CanOpen(const CommandSnapshot& state);
bool CanCloseProject(const CommandSnapshot& state);
bool CanSave(const CommandSnapshot& state);
bool CanSaveAs(const CommandSnapshot& state);
bool CanImportOverlay(const CommandSnapshot& state);
bool CanCopyTransforms(const CommandSnapshot& state);
bool CanExportTransforms(const CommandSnapshot& state);
bool CanExit(const CommandSnapshot& state);

// Edit
bool CanUndo(const CommandSnapshot& state);
bool CanRedo(const CommandSnapshot& state);
bool CanClear(const CommandSnapshot& state);

// Segment
bool CanNewSegment(const CommandSnapshot& state);
bool CanNewFromActive(const CommandSnapshot& state);
bool CanActivateAbove(const CommandSnapshot& state);
bool CanActivateBelow(const CommandSnapshot& state);
bool CanProcess(const CommandSnapshot& state);
bool CanCancel(const CommandSnapshot& state);
bool CanTrim(const CommandSnapshot& state);
bool CanProcessAll(const CommandSnapshot& state);
bool CanCancelAll(const CommandSnapshot& state);
bool CanImportMask(const CommandSnapshot& state);
bool CanExportMask(const CommandSnapshot& state);

// Help
bool CanManual(const CommandSnapshot& state);
bool CanAbout(const CommandSnapshot& state);

// The segment Activate above / below makes active: one before (after) the
// active one, or with none active the last (first). Nothing when the command
// is disabled.
std::optional<int> ActivateAboveTarget(const CommandSnapshot& state);
std::optional<int> ActivateBelowTarget(const CommandSnapshot& state);

}  // namespace app
