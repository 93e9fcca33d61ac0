// SPDX-License-Identifier: GPL-3.0-or-later
// The overlay's interface: every change it makes is one undo step. It lives
// apart from overlay.cpp so that the overlay itself knows nothing of its
// undo steps.
#include "app/model/comp.h"
#include "app/model/overlay.h"
#include "app/model/overlay_actions.h"
#include "app/model/setting_tables.h"

// --- VLOverlayInterface ------------------------------------------------------

namespace {
template <class A, class... Args>
void Push(VLComp& comp, Args&&... args) {
  comp.GetActionQueue().Push(std::make_unique<A>(std::forward<Args>(args)...));
}
}  // namespace

void VLOverlayInterface::Import(const std::vector<std::string>& paths) {
  Push<OverlayImportAction>(overlay_.GetComposition(), overlay_, overlay_.GetComposition(), paths);
}
void VLOverlayInterface::Clear() {
  Push<OverlayClearAction>(overlay_.GetComposition(), overlay_, overlay_.GetComposition());
}
bool VLOverlayInterface::IsEmpty() const {
  return overlay_.IsEmpty();
}
bool VLOverlayInterface::IsStill() const {
  return overlay_.IsStill();
}
bool VLOverlayInterface::IsActive() const {
  return overlay_.GetComposition().IsOverlayActive();
}
int32_t VLOverlayInterface::GetSourceOffset() const {
  return overlay_.GetSourceOffset();
}
void VLOverlayInterface::SetSourceOffset(int32_t offset) {
  app::ChangeSetting(overlay_, SettingsQueue(), "source_offset", offset);
}
int32_t VLOverlayInterface::GetFrameCount() const {
  return overlay_.GetFrameCount();
}
My::Span VLOverlayInterface::GetTrimming() const {
  return overlay_.GetTrimming();
}
void VLOverlayInterface::SetTrimming(int32_t first, int32_t last) {
  app::ChangeSetting(overlay_, SettingsQueue(), "trimming", My::Span{first, last});
}
My::Span VLOverlayInterface::GetTransformSpan() const {
  return overlay_.GetTransformSpan();
}
int32_t VLOverlayInterface::GetMatch() const {
  return overlay_.GetMatch();
}
void VLOverlayInterface::SetMatch(int32_t frame) {
  app::ChangeSetting(overlay_, SettingsQueue(), "match", frame);
}
const types::affine& VLOverlayInterface::GetInitialTransform() const {
  return overlay_.GetInitialTransform();
}
void VLOverlayInterface::SetInitialTransform(const types::affine& transform) {
  app::ChangeSetting(overlay_, SettingsQueue(), "initial_transform", transform);
}
Alignment VLOverlayInterface::GetAlignment() const {
  return overlay_.GetAlignment();
}
void VLOverlayInterface::SetAlignment(Alignment alignment) {
  app::ChangeSetting(overlay_, SettingsQueue(), "alignment", alignment);
}
AlphaInterpretation VLOverlayInterface::GetAlpha() const {
  return overlay_.GetAlpha();
}
void VLOverlayInterface::SetAlpha(AlphaInterpretation alpha) {
  app::ChangeSetting(overlay_, SettingsQueue(), "alpha", alpha);
}

VLActionQueue& VLOverlayInterface::SettingsQueue() {
  return overlay_.GetComposition().GetActionQueue();
}
