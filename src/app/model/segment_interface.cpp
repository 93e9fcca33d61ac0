// SPDX-License-Identifier: GPL-3.0-or-later
// A segment's interface: every change it makes is one undo step. It lives
// apart from segment.cpp so that the segment itself knows nothing of its
// undo steps nor of the composition's class.
#include "app/model/comp.h"
#include "app/model/segment.h"
#include "app/model/segment_actions.h"

namespace {

void Push(VLSegment& segment, std::unique_ptr<Action> action) {
  if (VLComp* comp = segment.GetComposition()) comp->GetActionQueue().Push(std::move(action));
}

}  // namespace

// --- VLSegmentInterface ------------------------------------------------------

bool VLSegmentInterface::IsActive() const {
  return segment_.IsActive();
}
int32_t VLSegmentInterface::GetOrigin() const {
  return segment_.GetOrigin();
}
My::Span VLSegmentInterface::GetTimeSpan() const {
  return segment_.GetTimeSpan();
}
void VLSegmentInterface::SetTimeSpan(int32_t first, int32_t last) {
  Push(segment_, std::make_unique<SegmentTimeSpanAction>(segment_, My::Span{first, last}));
}
My::Span VLSegmentInterface::GetDataSpan() const {
  return segment_.GetDataSpan();
}
bool VLSegmentInterface::IsProcessing() const {
  return segment_.IsProcessing();
}

bool VLSegmentInterface::Process() {
  return segment_.Process();
}

void VLSegmentInterface::Cancel() {
  segment_.Cancel();
}
bool VLSegmentInterface::IsEdited() const {
  return segment_.IsEdited();
}
void VLSegmentInterface::BeginEdit() {
  VLComp* comp = segment_.GetComposition();
  if (comp && !segment_.IsProcessing()) comp->SetEditedSegment(&segment_);
}
void VLSegmentInterface::EndEdit() {
  if (segment_.IsEdited()) segment_.GetComposition()->SetEditedSegment(nullptr);
}
const VLSegmentParams& VLSegmentInterface::GetParams() const {
  return segment_.GetParams();
}
void VLSegmentInterface::SetParams(const VLSegmentParams& params) {
  Push(segment_, std::make_unique<SegmentParamsAction>(segment_, params));
}
const VL::Mask& VLSegmentInterface::GetMask() const {
  return segment_.GetMask();
}
void VLSegmentInterface::SetMask(const VL::Mask& mask) {
  Push(segment_, std::make_unique<SegmentMaskAction>(segment_, mask));
}
void VLSegmentInterface::Trim() {
  Push(segment_, std::make_unique<SegmentTrimAction>(segment_));
}

int32_t VLSegmentInterface::GetCompositionStartFrame() const {
  return segment_.GetComposition() ? segment_.GetComposition()->GetStartFrame() : 0;
}

My::Span VLSegmentInterface::GetDisplayTimeSpan() const {
  const int32_t start = segment_.GetComposition() ? segment_.GetComposition()->GetStartFrame() : 0;
  const My::Span span = segment_.GetTimeSpan();
  return {span.first + start, span.last + start};
}

void VLSegmentInterface::SetDisplayTimeSpan(int32_t first, int32_t last) {
  const int32_t start = segment_.GetComposition() ? segment_.GetComposition()->GetStartFrame() : 0;
  SetTimeSpan(first - start, last - start);
}
