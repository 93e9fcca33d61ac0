// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/commands/command_rules.h"

#include <algorithm>

#include "app/model/keyframe_export.h"

namespace app {

const SegmentSnapshot* CommandSnapshot::active() const {
  if (!activeSegment || *activeSegment < 0 || *activeSegment >= static_cast<int>(segments.size()))
    return nullptr;
  return &segments[static_cast<size_t>(*activeSegment)];
}

bool CanNewProject(const CommandSnapshot&) {
  return true;
}
bool CanOpen(const CommandSnapshot&) {
  return true;
}
bool CanCloseProject(const CommandSnapshot& state) {
  return state.projectOpen;
}
bool CanSave(const CommandSnapshot& state) {
  return state.projectOpen && state.modified;
}
bool CanSaveAs(const CommandSnapshot& state) {
  return state.projectOpen;
}

bool CanImportOverlay(const CommandSnapshot& state) {
  return state.projectOpen && state.mainWindowEnabled;
}

bool CanCopyTransforms(const CommandSnapshot& state) {
  return TransformsToExport(state.projectOpen, state.overlayHasFrames, state.transformSpanEmpty);
}

bool CanExportTransforms(const CommandSnapshot& state) {
  return CanCopyTransforms(state);
}
bool CanExit(const CommandSnapshot&) {
  return true;
}

bool CanUndo(const CommandSnapshot& state) {
  return state.canUndo;
}
bool CanRedo(const CommandSnapshot& state) {
  return state.canRedo;
}
bool CanClear(const CommandSnapshot& state) {
  return state.active() != nullptr || state.overlayActive;
}

bool CanNewSegment(const CommandSnapshot& state) {
  return state.projectOpen;
}
bool CanNewFromActive(const CommandSnapshot& state) {
  return state.projectOpen && state.active() != nullptr;
}

std::optional<int> ActivateAboveTarget(const CommandSnapshot& state) {
  const int count = static_cast<int>(state.segments.size());
  if (state.active() == nullptr) return count > 0 ? std::optional<int>(count - 1) : std::nullopt;
  const int index = *state.activeSegment;
  return index >= 1 ? std::optional<int>(index - 1) : std::nullopt;
}

std::optional<int> ActivateBelowTarget(const CommandSnapshot& state) {
  const int count = static_cast<int>(state.segments.size());
  if (state.active() == nullptr) return count > 0 ? std::optional<int>(0) : std::nullopt;
  const int index = *state.activeSegment;
  return index < count - 1 ? std::optional<int>(index + 1) : std::nullopt;
}

bool CanActivateAbove(const CommandSnapshot& state) {
  return ActivateAboveTarget(state).has_value();
}
bool CanActivateBelow(const CommandSnapshot& state) {
  return ActivateBelowTarget(state).has_value();
}

bool CanProcess(const CommandSnapshot& state) {
  const SegmentSnapshot* active = state.active();
  return active != nullptr && !active->processing && !active->covered;
}

bool CanCancel(const CommandSnapshot& state) {
  const SegmentSnapshot* active = state.active();
  return active != nullptr && active->processing;
}

bool CanTrim(const CommandSnapshot& state) {
  const SegmentSnapshot* active = state.active();
  return active != nullptr && !active->processing && active->dataOutsideTimeSpan;
}

bool CanProcessAll(const CommandSnapshot& state) {
  return std::any_of(state.segments.begin(), state.segments.end(),
                     [](const SegmentSnapshot& s) { return !s.covered && !s.processing; });
}

bool CanCancelAll(const CommandSnapshot& state) {
  return std::any_of(state.segments.begin(), state.segments.end(),
                     [](const SegmentSnapshot& s) { return s.processing; });
}

bool CanImportMask(const CommandSnapshot& state) {
  const SegmentSnapshot* active = state.active();
  return active != nullptr && !active->processing;
}

bool CanExportMask(const CommandSnapshot& state) {
  return state.active() != nullptr;
}

bool CanManual(const CommandSnapshot&) {
  return true;
}
bool CanAbout(const CommandSnapshot&) {
  return true;
}

}  // namespace app
