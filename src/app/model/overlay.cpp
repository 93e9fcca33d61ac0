// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/model/overlay.h"

#include <algorithm>
#include <stdexcept>

#include "app/ports.h"
#include "imaging/image_list.h"

// --- VLOverlay ---------------------------------------------------------------

VLOverlay::VLOverlay(VLHost& host) : host_(host), interface_(*this) {}

void VLOverlay::Fire(void (VL::Listener::*event)()) {
  if (VL::Listener* l = interface_.GetListener()) (l->*event)();
}

void VLOverlay::Report(void (VL::Listener::*event)()) {
  Fire(event);
  (host_.OverlayEvents().*event)();
}

int32_t VLOverlay::GetFrameCount() const {
  return IsStill() ? host_.GetLength() : int32_t(paths_.size());
}

void VLOverlay::SetSourceOffsetDirect(int32_t offset) {
  if (IsStill()) return;
  // At least the edge of the visible footage touches the composition.
  offset = std::clamp(offset, -trimming_.last, host_.GetLength() - trimming_.first);
  if (offset == sourceOffset_) return;
  sourceOffset_ = offset;
  Report(&VL::Listener::OnStateChanged);
}

void VLOverlay::SetTrimmingDirect(int32_t first, int32_t last) {
  const int32_t frames = GetFrameCount();
  const My::Span span{std::min(std::max(first, 0), frames),
                      std::min(std::max(std::max(first, last), 0), frames)};
  if (span == trimming_) return;
  trimming_ = span;
  Report(&VL::Listener::OnTrimChanged);
}

void VLOverlay::SetMatchDirect(int32_t frame) {
  frame = std::clamp(frame, 0, std::max(host_.GetLength() - 1, 0));
  if (frame == match_) return;
  match_ = frame;
  Report(&VL::Listener::OnPreviewTimeChanged);
}

void VLOverlay::SetInitialTransformDirect(const types::affine& transform) {
  if (transform == initialTransform_) return;
  // A hand-made transform is no alignment.
  alignment_ = Alignment::No;
  initialTransform_ = transform;
  {
    std::lock_guard lock(transformsLock_);
    std::fill(transformKnown_.begin(), transformKnown_.end(), 0);
  }
  Report(&VL::Listener::OnLookChanged);
}

void VLOverlay::SetAlignmentDirect(Alignment alignment) {
  if (alignment == alignment_) return;
  alignment_ = alignment;
  ApplyAlignment();
  Report(&VL::Listener::OnLookChanged);
}

void VLOverlay::ApplyAlignment() {
  if (alignment_ == Alignment::No || IsEmpty() || host_.GetLength() == 0) return;
  // The differences are unsigned on purpose: an overlay larger than the
  // underlay moves by nearly 2^32 pixels, not by a small negative amount.
  // Projects and exported keys depend on that; it must stay.
  const uint32_t dx = host_.GetWidth() - width_;
  const uint32_t dy = host_.GetHeight() - height_;
  types::affine t;
  if (alignment_ == Alignment::TopRightCorner || alignment_ == Alignment::BottomRightCorner)
    t.x = double(dx);
  if (alignment_ == Alignment::BottomLeftCorner || alignment_ == Alignment::BottomRightCorner)
    t.y = double(dy);
  const Alignment kept = alignment_;
  SetInitialTransformDirect(t);
  alignment_ = kept;
}

void VLOverlay::SetAlphaDirect(AlphaInterpretation alpha) {
  if (alpha == alpha_) return;
  alpha_ = alpha;
  Report(&VL::Listener::OnLookChanged);
}

bool VLOverlay::ImportDirect(const std::vector<std::string>& paths, bool askAboutAlpha) {
  if (host_.GetLength() == 0) return false;
  if (paths.empty()) throw std::runtime_error("no images in sequence");
  const bool wasEmpty = IsEmpty();
  img::frame_size size;
  bool hasAlpha = false;
  img::read_image_size(paths.front(), size, &hasAlpha);
  if (askAboutAlpha && !hasAlpha && host_.GetDialogs()) {
    const app::Answer answer = host_.GetDialogs()->ask(
        "You have an image with no Alpha channel.\nWhen loaded as Overlay it will not lead to\n"
        "meaningful results. Proceed?",
        app::Buttons::OkCancel, app::Icon::Warning);
    if (answer != app::Answer::Ok) return false;
  }
  width_ = size.width;
  height_ = size.height;
  paths_ = paths;
  // A sequence starts at the current time; a still image covers the whole
  // composition. Either stands as imported at the current time.
  const int32_t now = std::max(host_.GetCurrentTime(), 0);
  sourceOffset_ = IsStill() ? 0 : now;
  trimming_ = {0, GetFrameCount()};
  match_ = now;
  if (wasEmpty) {
    // A replacing import keeps alignment, alpha and initial transform.
    alignment_ = host_.GetDefaultAlignment();
    alpha_ = host_.GetDefaultAlpha();
    ApplyAlignment();
  }
  Report(&VL::Listener::OnObjectChanged);
  return true;
}

void VLOverlay::ClearDirect() {
  Reset();
  // The composition deactivates an empty overlay.
  Report(&VL::Listener::OnDataChanged);
}

void VLOverlay::Reset() {
  sourceOffset_ = 0;
  trimming_ = {};
  match_ = 0;
  transformSpan_ = {};
  paths_.clear();
  width_ = height_ = 0;
  initialTransform_ = {};
}

void VLOverlay::SetTransformSpan(int32_t first, int32_t last) {
  const int32_t end = sourceOffset_ + GetFrameCount();
  first = std::clamp(first, sourceOffset_, end);
  last = std::clamp(last, sourceOffset_, end);
  if (first > last) first = last = 0;
  const bool changed = transformSpan_ != My::Span{first, last};
  transformSpan_ = {first, last};
  {
    std::lock_guard lock(transformsLock_);
    transforms_.resize(size_t(last - first));
    transformKnown_.assign(size_t(last - first), 0);
  }
  if (changed) Fire(&VL::Listener::OnCurrentTimeChanged);
}

types::affine VLOverlay::GetTransform(int32_t frame) {
  if (!transformSpan_.contains(frame)) return host_.TransformBetween(match_, frame);
  const size_t i = size_t(frame - transformSpan_.first);
  {
    std::lock_guard lock(transformsLock_);
    if (transformKnown_[i]) return transforms_[i];
  }
  // Computed outside the lock: two threads may compute the same entry, and
  // both get the same value.
  const types::affine t = host_.TransformBetween(match_, frame);
  std::lock_guard lock(transformsLock_);
  transforms_[i] = t;
  transformKnown_[i] = 1;
  return t;
}

void VLOverlay::CompleteTransforms() {
  for (int32_t f = transformSpan_.first; f < transformSpan_.last; ++f) GetTransform(f);
}

std::vector<types::affine> VLOverlay::CompletedTransforms() {
  CompleteTransforms();
  std::lock_guard lock(transformsLock_);
  return transforms_;
}

void VLOverlay::TakeOver(Stored stored) {
  sourceOffset_ = stored.sourceOffset;
  trimming_ = stored.trimming;
  match_ = stored.match;
  transformSpan_ = stored.transformSpan;
  paths_ = std::move(stored.paths);
  width_ = stored.width;
  height_ = stored.height;
  alpha_ = stored.alpha;
  alignment_ = stored.alignment;
  initialTransform_ = stored.initialTransform;
  std::lock_guard lock(transformsLock_);
  transforms_.assign(size_t(std::max(transformSpan_.length(), 0)), types::affine{});
  transformKnown_.assign(transforms_.size(), 0);
}

VLOverlay::Stored VLOverlay::GetStored() const {
  return {sourceOffset_, trimming_, match_, transformSpan_, paths_,
          width_,        height_,   alpha_, alignment_,     initialTransform_};
}
