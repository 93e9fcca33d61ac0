// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/commands/command_state.h"

#include "app/model/comp.h"

namespace app {

CommandSnapshot SnapshotOf(const VLComp& comp, bool mainWindowEnabled) {
  CommandSnapshot state;
  const VLActionQueue& queue = comp.GetActionQueue();
  state.projectOpen = !comp.IsEmpty();
  state.modified = queue.IsModified();
  state.mainWindowEnabled = mainWindowEnabled;
  state.overlayHasFrames = !comp.GetOverlay().IsEmpty();
  state.transformSpanEmpty = comp.GetOverlay().GetTransformSpan().empty();
  state.overlayActive = comp.IsOverlayActive();
  state.canUndo = queue.CanUndo();
  state.canRedo = queue.CanRedo();
  for (int32_t i = 0; i < comp.GetSegmentCount(); ++i) {
    const VLSegment& segment = comp.GetSegmentObject(i);
    const My::Span time = segment.GetTimeSpan();
    const My::Span data = segment.GetDataSpan();
    SegmentSnapshot s;
    s.processing = segment.IsProcessing();
    s.covered = data.first <= time.first && data.last >= time.last;
    s.dataOutsideTimeSpan = !data.empty() && (data.first < time.first || data.last > time.last);
    state.segments.push_back(s);
  }
  const int32_t active = comp.GetActiveSegment();
  if (active >= 0 && active < comp.GetSegmentCount()) state.activeSegment = active;
  return state;
}

}  // namespace app
