// SPDX-License-Identifier: GPL-3.0-or-later
// The composition's interface: every change it makes is one undo step. It
// lives apart from comp.cpp so that the composition itself knows nothing of
// its undo steps.
#include "app/model/comp.h"
#include "app/model/comp_actions.h"
#include "app/model/setting_tables.h"

// --- VLCompInterface ---------------------------------------------------------

namespace {
template <class A, class... Args>
void Push(VLComp& comp, Args&&... args) {
  comp.GetActionQueue().Push(std::make_unique<A>(comp, std::forward<Args>(args)...));
}
}  // namespace

bool VLCompInterface::IsEmpty() const {
  return comp_.IsEmpty();
}
int32_t VLCompInterface::GetStartFrame() const {
  return comp_.GetStartFrame();
}
void VLCompInterface::SetStartFrame(int32_t frame) {
  app::ChangeSetting(comp_, "start_frame", frame);
}
int32_t VLCompInterface::GetLength() const {
  return comp_.GetLength();
}
My::Span VLCompInterface::GetWorkArea() const {
  return comp_.GetWorkArea();
}
void VLCompInterface::SetWorkArea(int32_t first, int32_t last) {
  app::ChangeSetting(comp_, "work_area", My::Span{first, last});
}
int32_t VLCompInterface::GetCurrentTime() const {
  return comp_.GetCurrentTime();
}
void VLCompInterface::SetCurrentTime(int32_t time) {
  comp_.SetCurrentTime(time);
}
int32_t VLCompInterface::GetPreviewTime() const {
  return comp_.GetPreviewTime();
}
void VLCompInterface::SetPreviewTime(int32_t time) {
  comp_.SetPreviewTime(time, true);
}
int32_t VLCompInterface::GetSegmentCount() const {
  return comp_.GetSegmentCount();
}
VL::Segment& VLCompInterface::GetSegment(int32_t index) {
  return comp_.GetSegmentObject(index).GetInterface();
}
int32_t VLCompInterface::GetActiveSegment() const {
  return comp_.GetActiveSegment();
}
void VLCompInterface::SetActiveSegment(int32_t index) {
  comp_.SetActiveSegment(index);
}
VL::Overlay& VLCompInterface::GetOverlay() {
  return comp_.GetOverlay().GetInterface();
}
bool VLCompInterface::IsOverlayActive() const {
  return comp_.IsOverlayActive();
}
void VLCompInterface::SetOverlayActive(bool active) {
  comp_.SetOverlayActive(active);
}
void VLCompInterface::SelectSegment(int32_t index) {
  Push<SelectAction>(comp_, std::vector<int32_t>{index});
}
void VLCompInterface::SelectSegments(const std::vector<int32_t>& indices) {
  Push<SelectAction>(comp_, indices);
}
void VLCompInterface::DeselectSegment(int32_t index) {
  Push<DeselectAction>(comp_, std::vector<int32_t>{index});
}
void VLCompInterface::SelectAll() {
  comp_.GetActionQueue().Push(SelectAction::All(comp_));
}
void VLCompInterface::DeselectAll() {
  comp_.GetActionQueue().Push(DeselectAction::All(comp_));
}
void VLCompInterface::CreateSegment(int32_t time, bool copyActive) {
  Push<CreateSegmentAction>(comp_, time, copyActive);
}
void VLCompInterface::DeleteActiveSegment() {
  Push<DeleteSegmentAction>(comp_);
}
void VLCompInterface::MoveActiveSegment(int32_t index) {
  Push<MoveSegmentAction>(comp_, index);
}
void VLComp::SetWorkAreaDirect(My::Span area) {
  app::AssignSetting(*this, "work_area", area);
}

VLActionQueue& VLCompInterface::SettingsQueue() {
  return comp_.GetActionQueue();
}
