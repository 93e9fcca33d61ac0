// SPDX-License-Identifier: GPL-3.0-or-later
// How other parts see the project: the composition, its segments and its
// overlay through abstract interfaces. Changes go through the undo queue;
// reads go straight to the data.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/affine.h"
#include "base/enums.h"
#include "base/segment_params.h"
#include "base/span.h"
#include "imaging/bitmap.h"

namespace VL {

// Events of the composition; segments and the overlay fire them on their
// own listeners. Every operation does nothing unless overridden.
class Listener {
 public:
  virtual ~Listener() = default;
  virtual void OnObjectChanged() {}
  virtual void OnDataChanged() {}
  virtual void OnStateChanged() {}
  virtual void OnTrimChanged() {}
  virtual void OnCurrentTimeChanged() {}
  virtual void OnPreviewTimeChanged() {}
  virtual void OnOverlayActiveChanged() {}
  virtual void OnActiveSegmentChanged() {}
  // What only the picture shows changed (parameters, the overlay's look).
  virtual void OnLookChanged() {}
  // A segment's mask is about to be overwritten in place: whoever reads its
  // pixels on another thread must stop first.
  virtual void OnMaskChanging() {}
  // A segment's mask changed: the view and the mask editor reload it.
  virtual void OnMaskChanged() {}
  // A tracked frame of a segment arrived on the owning thread.
  virtual void OnResultsAdded() {}
};

using Mask = img::bitmap<img::bit1>;

class Segment {
 public:
  virtual ~Segment() = default;
  virtual bool IsActive() const = 0;
  virtual int32_t GetOrigin() const = 0;
  virtual My::Span GetTimeSpan() const = 0;
  virtual void SetTimeSpan(int32_t first, int32_t last) = 0;  // "Adjust Segment"
  virtual My::Span GetDataSpan() const = 0;
  virtual bool IsProcessing() const = 0;
  virtual bool Process() = 0;  // queues the segment for tracking
  virtual void Cancel() = 0;   // stops its tracking and waits
  virtual bool IsEdited() const = 0;
  virtual void BeginEdit() = 0;
  virtual void EndEdit() = 0;
  virtual const VLSegmentParams& GetParams() const = 0;
  virtual void SetParams(const VLSegmentParams& params) = 0;  // "Change Parameters"
  virtual const Mask& GetMask() const = 0;
  virtual void SetMask(const Mask& mask) = 0;  // "Change Mask"
  virtual void SetListener(Listener* listener) = 0;
  virtual void Trim() = 0;  // "Trim Data"
};

class Overlay {
 public:
  virtual ~Overlay() = default;
  virtual void Import(const std::vector<std::string>& paths) = 0;  // "Load Overlay"
  virtual void Clear() = 0;                                        // "Clear Overlay"
  virtual bool IsEmpty() const = 0;
  virtual bool IsStill() const = 0;
  virtual bool IsActive() const = 0;
  virtual int32_t GetSourceOffset() const = 0;
  virtual void SetSourceOffset(int32_t offset) = 0;  // "Change Offset"
  virtual int32_t GetFrameCount() const = 0;
  virtual My::Span GetTrimming() const = 0;
  virtual void SetTrimming(int32_t first, int32_t last) = 0;  // "Trim Overlay"
  virtual My::Span GetTransformSpan() const = 0;
  virtual int32_t GetMatch() const = 0;
  virtual void SetMatch(int32_t frame) = 0;  // "Change Match Frame"
  // The overlay has no mask editor.
  virtual bool IsEdited() const { return false; }
  virtual void BeginEdit() {}
  virtual void EndEdit() {}
  virtual const types::affine& GetInitialTransform() const = 0;
  virtual void SetInitialTransform(const types::affine& transform) = 0;  // "Change Transformation"
  virtual Alignment GetAlignment() const = 0;
  virtual void SetAlignment(Alignment alignment) = 0;  // "Change Alignment"
  virtual AlphaInterpretation GetAlpha() const = 0;
  virtual void SetAlpha(AlphaInterpretation alpha) = 0;  // "Change Alpha"
  virtual void SetListener(Listener* listener) = 0;
};

class Composition {
 public:
  virtual ~Composition() = default;
  virtual bool IsEmpty() const = 0;
  virtual int32_t GetStartFrame() const = 0;
  virtual void SetStartFrame(int32_t frame) = 0;  // "Change Start Frame"
  virtual int32_t GetLength() const = 0;
  virtual My::Span GetWorkArea() const = 0;
  virtual void SetWorkArea(int32_t first, int32_t last) = 0;  // "Change Work Area"
  virtual int32_t GetCurrentTime() const = 0;
  virtual void SetCurrentTime(int32_t time) = 0;  // not undoable
  virtual int32_t GetPreviewTime() const = 0;
  virtual void SetPreviewTime(int32_t time) = 0;  // stops the view first
  virtual int32_t GetSegmentCount() const = 0;
  virtual Segment& GetSegment(int32_t index) = 0;
  virtual int32_t GetActiveSegment() const = 0;
  virtual void SetActiveSegment(int32_t index) = 0;
  virtual Overlay& GetOverlay() = 0;
  virtual bool IsOverlayActive() const = 0;
  virtual void SetOverlayActive(bool active) = 0;
  virtual void SelectSegment(int32_t index) = 0;
  virtual void SelectSegments(const std::vector<int32_t>& indices) = 0;
  virtual void DeselectSegment(int32_t index) = 0;
  virtual void SelectAll() = 0;
  virtual void DeselectAll() = 0;
  virtual void CreateSegment(int32_t time, bool copyActive) = 0;
  virtual void DeleteActiveSegment() = 0;
  virtual void MoveActiveSegment(int32_t index) = 0;
  virtual void SetListener(Listener* listener) = 0;
};

}  // namespace VL
