// What the property panel may read and write on the objects it shows.
//
// A property holds no value: it reads through one of these interfaces and
// writes through it, so that every change the panel makes is one undoable
// action of the object behind it. The interface objects of the composition,
// the overlay and a segment implement the matching class; the property trees
// find their kind of object by its dynamic type.
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

// The composition's settings. Each setter is one undoable action that
// clamps, compares and does nothing for an equal value.
class CompositionAccess : public EditableObject {
 public:
  virtual uint32_t GetFramerate() const = 0;
  virtual void SetFramerate(uint32_t framerate) = 0;  // "Change Framerate"
  virtual PixelAspectRatio GetPixelAspect() const = 0;
  virtual void SetPixelAspect(const PixelAspectRatio& aspect) = 0;  // "Change Pixel Aspect Ratio"
  virtual float GetExportInaccuracy() const = 0;
  virtual void SetExportInaccuracy(float pixels) = 0;  // "Change Export Inaccuracy"
  virtual TaskType GetTask() const = 0;
  virtual void SetTask(TaskType task) = 0;  // "Change Task"
  virtual ExportModel GetExportModel() const = 0;
  virtual void SetExportModel(ExportModel model) = 0;  // "Change Export Model"
  virtual int32_t GetStartFrame() const = 0;
  virtual void SetStartFrame(int32_t frame) = 0;  // "Change Start Frame"
  virtual My::Span GetWorkArea() const = 0;
  virtual void SetWorkArea(int32_t first, int32_t last) = 0;  // "Change Work Area"
};

// The overlay's settings.
class OverlayAccess : public EditableObject {
 public:
  virtual bool IsStill() const = 0;
  virtual int32_t GetSourceOffset() const = 0;
  virtual void SetSourceOffset(int32_t frame) = 0;  // "Change Offset"
  virtual My::Span GetTrimming() const = 0;
  virtual void SetTrimming(int32_t first, int32_t last) = 0;  // "Trim Overlay"
  virtual int32_t GetMatch() const = 0;
  virtual void SetMatch(int32_t frame) = 0;  // "Change Match Frame"
  virtual const types::affine& GetInitialTransform() const = 0;
  virtual void SetInitialTransform(const types::affine& transform) = 0;  // "Change Transformation"
  virtual Alignment GetAlignment() const = 0;
  virtual void SetAlignment(Alignment alignment) = 0;  // "Change Alignment"
  virtual AlphaInterpretation GetAlpha() const = 0;
  virtual void SetAlpha(AlphaInterpretation alpha) = 0;  // "Change Alpha"
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
