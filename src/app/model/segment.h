// SPDX-License-Identifier: GPL-3.0-or-later
// A segment: a mask painted on a key frame, the frames wanted tracked, the
// tracking parameters, and the results in a shared VLSegmentData.
//
// The segment's own mutex guards its results: the tracker appends under it
// on its worker thread, and GetTransform copies under it on any thread. All
// other members belong to the thread that owns the composition; the tracker
// reads mask, parameters, origin and time span without a lock because they
// cannot change while the status is not Idle.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>

#include "app/model/host.h"
#include "app/model/interfaces.h"
#include "app/model/properties_access.h"
#include "base/segment_data.h"
#include "base/timing.h"

namespace app {
class GuiQueue;
}
class VLComp;
class VLSegment;

// A segment's tracking state. Anything but Idle means the tracker owns the
// segment's inputs (mask, parameters, origin, time span).
enum class SegmentStatus : int32_t { Idle = 0, Queued = 1, Forward = 2, Backward = 3 };

class VLSegmentInterface : public VL::Segment, public app::SegmentAccess {
 public:
  explicit VLSegmentInterface(VLSegment& segment) : segment_(segment) {}

  bool IsActive() const override;
  int32_t GetOrigin() const override;
  My::Span GetTimeSpan() const override;
  void SetTimeSpan(int32_t first, int32_t last) override;
  My::Span GetDataSpan() const override;
  bool IsProcessing() const override;
  bool Process() override;
  void Cancel() override;
  bool IsEdited() const override;
  void BeginEdit() override;
  void EndEdit() override;
  const VLSegmentParams& GetParams() const override;
  void SetParams(const VLSegmentParams& params) override;
  const VL::Mask& GetMask() const override;
  void SetMask(const VL::Mask& mask) override;
  void SetListener(VL::Listener* listener) override { listener_ = listener; }
  void Trim() override;
  int32_t GetCompositionStartFrame() const override;

  // The time span as the user sees it: shifted by the composition's start frame.
  My::Span GetDisplayTimeSpan() const;
  void SetDisplayTimeSpan(int32_t first, int32_t last);

  VL::Listener* GetListener() const { return listener_; }

 private:
  VLSegment& segment_;
  VL::Listener* listener_ = nullptr;
};

class VLSegment {
 public:
  // What a project file holds of a segment.
  struct Stored {
    int32_t origin = 0;
    My::Span timeSpan;
    VLSegmentParams params;
    VL::Mask mask;
    VLSegmentDataPtr data;  // null: no results
  };

  // A new segment at `origin`: default parameters, an empty mask, no
  // results, and up to 5 frames each side of the key frame.
  VLSegment(VLHost& host, int32_t origin);
  // An empty segment for the project reader; TakeOver and
  // AttachToComposition complete it.
  VLSegment();
  VLSegment(const VLSegment&) = delete;
  VLSegment& operator=(const VLSegment&) = delete;
  ~VLSegment();

  VLSegmentInterface& GetInterface() { return interface_; }
  VLComp* GetComposition() const { return host_ ? &host_->Composition() : nullptr; }

  int32_t GetOrigin() const { return origin_; }
  My::Span GetTimeSpan() const { return timeSpan_; }
  My::Span GetDataSpan() const;
  bool IsSelected() const { return selected_; }
  SegmentStatus GetStatus() const { return status_; }
  bool IsProcessing() const { return status_ != SegmentStatus::Idle; }
  // Whether the results reach over the whole time span: nothing is left to track.
  bool IsCovered() const;
  const VLSegmentParams& GetParams() const { return params_; }
  const VL::Mask& GetMask() const { return mask_; }
  // The results block now installed (a copy of the pointer, under the lock).
  VLSegmentDataPtr GetData() const;
  const timing::tree& GetTiming() const { return timing_; }
  timing::tree& GetTiming() { return timing_; }
  std::mutex& GetLock() const { return lock_; }

  // Clamps first into 0..length and to at most the origin, last into
  // 0..length and to at least origin + 1. False when nothing changed.
  bool SetTimeSpanDirect(int32_t first, int32_t last);
  void SetTimeSpanFromAction(My::Span span) { SetTimeSpanDirect(span.first, span.last); }
  void SetDataSpan(int32_t first, int32_t last);
  void SetSelected(bool selected);
  void SetStatus(SegmentStatus status);
  // Clamps; false when the clamped record equals the stored one.
  bool SetParamsDirect(const VLSegmentParams& params);
  void SetMaskDirect(const VL::Mask& mask);

  // The transformation from key-frame coordinates to `frame`; outside the
  // results it extrapolates the last step (see the .cpp). Any thread.
  types::affine GetTransform(int32_t frame) const;

  // Tracker's worker thread: appends one result under the lock, moves the
  // worker's own `span` by one frame and posts the new span to the owning
  // thread, where the segment's data span follows. So the arrays may run
  // ahead of GetDataSpan(), never behind it.
  // Owning thread: the result for `frame`, posted by AddTransform, has
  // arrived; listeners hearing OnResultsAdded find the frame here.
  void ReportResultsAdded(int32_t frame);
  int32_t GetLastAddedFrame() const { return lastAdded_; }
  void AddTransform(bool forward,
                    My::Span& span,
                    const types::affine& transform,
                    app::GuiQueue& queue);

  // Queues the segment for tracking. False when it is not idle or its data
  // already cover its time span; an empty or full mask is refused with the
  // warning "Segment mask is empty.". Ends the mask editing first.
  bool Process();
  // Stops the segment's tracking and waits, running the owning thread's
  // messages, until it is idle. What was computed stays.
  void Cancel();
  // Stops the segment's tracking without a progress window (the Cancel
  // command); the worker has let go of it when this returns.
  void CancelNoWait();

  // Installs another results block (owning thread, status 0 only).
  void ReplaceData(VLSegmentDataPtr data);

  // Binds a read or re-inserted segment to `composition`. Throws when the
  // mask's size differs from the composition's or the origin lies outside it;
  // then clamps the time span into the composition.
  void AttachToComposition(VLHost& host);

  // The project reader's way in: takes the stored values without checks or
  // events. AttachToComposition checks them afterwards.
  void TakeOver(Stored stored);

  bool IsEdited() const;
  bool IsActive() const;

 private:
  // Tells the segment's own listener, then the composition.
  void Report(void (VL::Listener::*event)());

  VLSegmentInterface interface_;
  VLHost* host_ = nullptr;
  int32_t origin_ = 0;
  My::Span timeSpan_;
  My::Span dataSpan_;  // written under the lock, so GetTransform may read it anywhere
  bool selected_ = false;
  SegmentStatus status_ = SegmentStatus::Idle;
  int32_t lastAdded_ = -1;
  VLSegmentParams params_;
  VL::Mask mask_;
  VLSegmentDataPtr data_;  // exchanged under the lock
  timing::tree timing_;
  mutable std::mutex lock_;
};

// Bit-exact comparison of two masks (size and every pixel; padding ignored).
bool SameMask(const VL::Mask& a, const VL::Mask& b);

// Number of set pixels of a mask.
uint64_t CountSetPixels(const VL::Mask& mask);

// a^k by repeated squaring; k below 1 gives the identity.
types::affine Power(types::affine a, int64_t k);
