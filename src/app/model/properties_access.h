// SPDX-License-Identifier: GPL-3.0-or-later
// What the property panel may read and write on the objects it shows.
//
// A property holds no value: it reads through one of these interfaces and
// writes through it, so that every change the panel makes is one undoable
// action of the object behind it. The interface object of a segment
// implements SegmentAccess; those of the composition and the overlay are
// SettingsObjects (settings.h). The property trees find their kind of object
// by its dynamic type.
#pragma once

#include <cstdint>

#include "base/affine.h"
#include "base/enums.h"
#include "base/pixel_aspect.h"
#include "base/segment_params.h"
#include "base/span.h"

namespace app {

// The base of everything the property panel can show.
class EditableObject {
 public:
  virtual ~EditableObject() = default;
};

// A segment's settings. The time span is in frames from 0, as stored; the
// panel shows it shifted by the composition's start frame and shifts typed
// numbers back before it calls SetTimeSpan.
class SegmentAccess : public EditableObject {
 public:
  virtual My::Span GetTimeSpan() const = 0;
  virtual void SetTimeSpan(int32_t first, int32_t last) = 0;  // "Adjust Segment"
  virtual const VLSegmentParams& GetParams() const = 0;
  virtual void SetParams(const VLSegmentParams& params) = 0;  // "Change Parameters"
  virtual bool IsProcessing() const = 0;
  // The start frame of the composition the segment belongs to.
  virtual int32_t GetCompositionStartFrame() const = 0;
};

}  // namespace app
