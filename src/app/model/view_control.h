// SPDX-License-Identifier: GPL-3.0-or-later
// What the composition and the tracker's messages ask of the preview. The
// preview's logic (VLView) implements it and installs itself on the
// composition; without one, the composition only invalidates its surface.
#pragma once

#include <cstdint>

class VLSegment;

class VLViewControl {
 public:
  virtual ~VLViewControl() = default;
  // Shows the composition's current frame anew.
  virtual void Refresh() = 0;
  // Stops playback (and following the tracker).
  virtual void Stop() = 0;
  // A segment was queued for tracking: the view may start following it.
  virtual void OnSegmentQueued(VLSegment& segment) = 0;
  // The tracker's result for `frame` of `segment` reached the owning thread.
  virtual void OnSegmentData(VLSegment& segment, int32_t frame) = 0;
  // The segment's job ended: its status is back to idle.
  virtual void OnSegmentIdle(VLSegment& segment) = 0;
};
