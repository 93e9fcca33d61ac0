// SPDX-License-Identifier: GPL-3.0-or-later
// What a segment and the overlay see of the composition that holds them.
//
// They read the composition's facts through it and report their own changes
// as listener events on Events(); they never act on the composition. The
// composition alone decides what a change means for the rest (the top path,
// the view, the panel, the overlay's state).
#pragma once

#include <cstdint>

#include "app/model/interfaces.h"
#include "base/affine.h"
#include "base/enums.h"

class VLComp;
class VLSegment;
namespace app {
class Jobs;
class UserDialogs;
}  // namespace app

class VLHost {
 public:
  virtual ~VLHost() = default;

  // The composition itself, for code above the model that asks a segment
  // or the overlay for it.
  virtual VLComp& Composition() = 0;

  virtual int32_t GetLength() const = 0;
  virtual uint32_t GetWidth() const = 0;
  virtual uint32_t GetHeight() const = 0;
  virtual int32_t GetStartFrame() const = 0;
  virtual int32_t GetCurrentTime() const = 0;
  virtual bool IsActive(const VLSegment& segment) const = 0;
  virtual bool IsOverlayActive() const = 0;
  // The segment in the mask editor, or null.
  virtual VLSegment* GetEditedSegment() const = 0;
  virtual void SetEditedSegment(VLSegment* segment) = 0;
  // The overlay's first import takes these (the application's preferences).
  virtual Alignment GetDefaultAlignment() const = 0;
  virtual AlphaInterpretation GetDefaultAlpha() const = 0;
  // The transformation from frame a to frame b along the top path.
  virtual types::affine TransformBetween(int32_t a, int32_t b) const = 0;
  virtual app::Jobs& GetJobs() const = 0;
  virtual app::UserDialogs* GetDialogs() const = 0;

  // Where segments and the overlay report: OnObjectChanged (time span,
  // placement), OnDataChanged (results, frames), OnStateChanged (status,
  // offset), OnTrimChanged, OnPreviewTimeChanged (match frame), OnLookChanged
  // (what only the picture shows), OnMaskChanged, OnResultsAdded (a tracked
  // frame arrived). A segment names itself, and the event that follows is
  // its own.
  virtual VL::Listener& SegmentEvents(VLSegment& source) = 0;
  virtual VL::Listener& OverlayEvents() = 0;
};
