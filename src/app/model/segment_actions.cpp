// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/model/segment_actions.h"

#include <algorithm>

bool SegmentDataAction::Do() {
  if (!Apply()) return false;
  if (!newData_) {
    oldData_ = segment_.GetData();
    newData_ = std::make_shared<VLSegmentData>();
  }
  segment_.ReplaceData(newData_);
  return true;
}

void SegmentDataAction::Undo() {
  Restore();
  segment_.ReplaceData(oldData_);
}

bool SegmentParamsAction::Apply() {
  if (segment_.IsProcessing()) return false;
  const VLSegmentParams old = segment_.GetParams();
  if (!segment_.SetParamsDirect(newParams_)) return false;
  oldParams_ = old;
  return true;
}

void SegmentParamsAction::Restore() {
  segment_.SetParamsDirect(oldParams_);
}

bool SegmentMaskAction::Apply() {
  if (segment_.IsProcessing() || SameMask(segment_.GetMask(), newMask_)) return false;
  oldMask_ = segment_.GetMask();
  segment_.SetMaskDirect(newMask_);
  return true;
}

void SegmentMaskAction::Restore() {
  segment_.SetMaskDirect(oldMask_);
}

bool SegmentTrimAction::Do() {
  if (!newData_) {
    const My::Span time = segment_.GetTimeSpan();
    const My::Span data = segment_.GetDataSpan();
    const My::Span keep{std::clamp(data.first, time.first, time.last),
                        std::clamp(data.last, time.first, time.last)};
    if (keep == data) return false;
    oldData_ = segment_.GetData();
    VLSegmentData trimmed;
    {
      std::lock_guard lock(segment_.GetLock());
      trimmed = oldData_->Trimmed(keep, segment_.GetOrigin());
    }
    newData_ = std::make_shared<VLSegmentData>(std::move(trimmed));
  }
  segment_.ReplaceData(newData_);
  return true;
}

void SegmentTrimAction::Undo() {
  segment_.ReplaceData(oldData_);
}
