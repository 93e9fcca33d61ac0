// SPDX-License-Identifier: GPL-3.0-or-later
// Undo steps on one segment.
#pragma once

#include "app/model/action.h"
#include "app/model/segment.h"

// The time span; the results keep, since they do not depend on it.
class SegmentTimeSpanAction : public MemberValueAction<ChangeValueAction<My::Span>,
                                                       VLSegment,
                                                       My::Span,
                                                       &VLSegment::GetTimeSpan,
                                                       &VLSegment::SetTimeSpanFromAction> {
 public:
  SegmentTimeSpanAction(VLSegment& segment, My::Span span)
      : MemberValueAction(segment, span, "Adjust Segment") {}
};

// A change of what the results depend on (mask or parameters) drops the
// results: the first Do keeps the old block and installs a fresh empty one;
// redo installs that same block again, undo the old one, without copying.
class SegmentDataAction : public Action {
 public:
  explicit SegmentDataAction(VLSegment& segment) : segment_(segment) {}
  bool Do() override;
  void Undo() override;

 protected:
  // Applies the change; false when nothing changed or the segment is
  // processing (a running segment keeps its mask and parameters).
  virtual bool Apply() = 0;
  // Puts the old value back.
  virtual void Restore() = 0;
  VLSegment& segment_;

 private:
  VLSegmentDataPtr oldData_;
  VLSegmentDataPtr newData_;
};

class SegmentParamsAction : public SegmentDataAction {
 public:
  SegmentParamsAction(VLSegment& segment, const VLSegmentParams& params)
      : SegmentDataAction(segment), newParams_(params) {}
  std::string GetName() const override { return "Change Parameters"; }

 protected:
  bool Apply() override;
  void Restore() override;

 private:
  VLSegmentParams newParams_;
  VLSegmentParams oldParams_;
};

class SegmentMaskAction : public SegmentDataAction {
 public:
  SegmentMaskAction(VLSegment& segment, VL::Mask mask)
      : SegmentDataAction(segment), newMask_(std::move(mask)) {}
  std::string GetName() const override { return "Change Mask"; }

 protected:
  bool Apply() override;
  void Restore() override;

 private:
  VL::Mask newMask_;
  VL::Mask oldMask_;
};

// Cuts the results down to the time span; the old block stays in the action.
class SegmentTrimAction : public Action {
 public:
  explicit SegmentTrimAction(VLSegment& segment) : segment_(segment) {}
  bool Do() override;
  void Undo() override;
  std::string GetName() const override { return "Trim Data"; }

 private:
  VLSegment& segment_;
  VLSegmentDataPtr oldData_;
  VLSegmentDataPtr newData_;
};
