// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/model/segment.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <sstream>
#include <stdexcept>

#include "app/model/jobs.h"
#include "app/ports.h"
#include "base/errors.h"

namespace {

// A tracker's result reached the owning thread: the segment's data span
// follows the arrays, and the project counts as modified.
class SegmentDataSpanMessage : public app::VLMessage {
 public:
  SegmentDataSpanMessage(VLSegment& segment, My::Span span, int32_t frame)
      : segment_(segment), span_(span), frame_(frame) {}
  void Execute() override {
    segment_.SetDataSpan(span_.first, span_.last);
    segment_.ReportResultsAdded(frame_);
  }
  int32_t frame() const { return frame_; }

 private:
  VLSegment& segment_;
  My::Span span_;
  int32_t frame_;  // the frame just done
};

}  // namespace

types::affine Power(types::affine a, int64_t k) {
  types::affine r;
  while (k > 0) {
    if (k & 1) r = r * a;
    k >>= 1;
    if (k > 0) a = a * a;
  }
  return r;
}

bool SameMask(const VL::Mask& a, const VL::Mask& b) {
  if (a.width != b.width || a.height != b.height) return false;
  const uint32_t full = a.width / 8, rest = a.width % 8;
  const uint8_t tail = uint8_t(0xFF00u >> rest);
  for (uint32_t y = 0; y < a.height; ++y) {
    if (std::memcmp(a.rows[y], b.rows[y], full) != 0) return false;
    if (rest && ((a.rows[y][full] ^ b.rows[y][full]) & tail)) return false;
  }
  return true;
}

uint64_t CountSetPixels(const VL::Mask& mask) {
  const uint32_t full = mask.width / 8, rest = mask.width % 8;
  const uint8_t tail = uint8_t(0xFF00u >> rest);
  uint64_t n = 0;
  for (uint32_t y = 0; y < mask.height; ++y) {
    for (uint32_t i = 0; i < full; ++i) n += std::popcount(mask.rows[y][i]);
    if (rest) n += std::popcount(uint8_t(mask.rows[y][full] & tail));
  }
  return n;
}

// --- VLSegment ---------------------------------------------------------------

VLSegment::VLSegment() : interface_(*this), data_(std::make_shared<VLSegmentData>()) {}

VLSegment::VLSegment(VLHost& host, int32_t origin)
    : interface_(*this),
      host_(&host),
      origin_(origin),
      timeSpan_{origin, origin + 1},
      data_(std::make_shared<VLSegmentData>()) {
  dataSpan_ = data_->DataSpan(origin_);
  SetTimeSpanDirect(origin - 5, origin + 6);
}

VLSegment::~VLSegment() {
  if (IsEdited()) host_->SetEditedSegment(nullptr);
}

My::Span VLSegment::GetDataSpan() const {
  std::lock_guard lock(lock_);
  return dataSpan_;
}

VLSegmentDataPtr VLSegment::GetData() const {
  std::lock_guard lock(lock_);
  return data_;
}

bool VLSegment::IsEdited() const {
  return host_ && host_->GetEditedSegment() == this;
}

bool VLSegment::IsActive() const {
  return host_ && host_->IsActive(*this);
}

bool VLSegment::IsCovered() const {
  const My::Span data = GetDataSpan();
  return timeSpan_.first >= data.first && timeSpan_.last <= data.last;
}

void VLSegment::Report(void (VL::Listener::*event)()) {
  if (VL::Listener* l = interface_.GetListener()) (l->*event)();
  if (host_) (host_->SegmentEvents(*this).*event)();
}

void VLSegment::ReportResultsAdded(int32_t frame) {
  lastAdded_ = frame;
  Report(&VL::Listener::OnResultsAdded);
}

bool VLSegment::SetTimeSpanDirect(int32_t first, int32_t last) {
  const int32_t length = host_ ? host_->GetLength() : 0;
  first = std::min(std::clamp(first, 0, length), origin_);
  last = std::max(std::clamp(last, 0, length), origin_ + 1);
  if (timeSpan_ == My::Span{first, last}) return false;
  timeSpan_ = {first, last};
  Report(&VL::Listener::OnObjectChanged);
  return true;
}

void VLSegment::SetDataSpan(int32_t first, int32_t last) {
  {
    std::lock_guard lock(lock_);
    if (dataSpan_ == My::Span{first, last}) return;
    dataSpan_ = {first, last};
  }
  Report(&VL::Listener::OnDataChanged);
}

void VLSegment::SetSelected(bool selected) {
  if (selected_ == selected) return;
  selected_ = selected;
  if (VL::Listener* l = interface_.GetListener()) l->OnStateChanged();
}

void VLSegment::SetStatus(SegmentStatus status) {
  if (status_ == status) return;
  status_ = status;
  Report(&VL::Listener::OnStateChanged);
}

bool VLSegment::SetParamsDirect(const VLSegmentParams& params) {
  if (!AssignClamped(params_, params)) return false;
  Report(&VL::Listener::OnLookChanged);
  return true;
}

void VLSegment::SetMaskDirect(const VL::Mask& mask) {
  // The compositing worker may be reading these very pixels.
  Report(&VL::Listener::OnMaskChanging);
  mask_ = mask;
  // The view and the mask editor reload.
  Report(&VL::Listener::OnMaskChanged);
}

types::affine VLSegment::GetTransform(int32_t frame) const {
  types::affine last, step;
  int64_t k = 0;
  {
    std::lock_guard lock(lock_);
    const VLSegmentData& d = *data_;
    if (dataSpan_.contains(frame)) return d.At(frame, origin_);
    if (frame < dataSpan_.first) {
      const size_t n = d.backward.size();
      if (n == 0) return {};
      last = d.backward[n - 1];
      step = n == 1 ? last : last * d.backward[n - 2].inverse();
      k = int64_t(origin_) - frame - int64_t(n);
    } else {
      const size_t n = d.forward.size();
      if (n < 2) return {};
      last = d.forward[n - 1];
      step = n == 2 ? last : last * d.forward[n - 2].inverse();
      k = int64_t(frame) - origin_ - int64_t(n) + 1;
    }
  }
  // The step repeats the last measured motion; its order (L after D^k) is
  // part of the results other programs see, so it must not change.
  return last * Power(step, k);
}

void VLSegment::AddTransform(bool forward,
                             My::Span& span,
                             const types::affine& transform,
                             app::GuiQueue& queue) {
  int32_t frame;
  {
    std::lock_guard lock(lock_);
    if (forward) {
      data_->Append(VLSegmentData::Direction::Forward, transform);
      frame = span.last++;
    } else {
      data_->Append(VLSegmentData::Direction::Backward, transform);
      frame = --span.first;
    }
  }
  queue.post(std::make_unique<SegmentDataSpanMessage>(*this, span, frame));
}

bool VLSegment::Process() {
  if (!host_) return false;
  if (IsCovered() || IsProcessing()) return false;
  const uint64_t set = CountSetPixels(mask_);
  if (set == 0 || set == uint64_t(mask_.width) * mask_.height) {
    if (app::UserDialogs* dialogs = host_->GetDialogs())
      dialogs->inform("Segment mask is empty.", app::Icon::Warning);
    return false;
  }
  interface_.EndEdit();
  return host_->GetJobs().enqueue(*this);
}

void VLSegment::Cancel() {
  if (!host_) return;
  app::Jobs& jobs = host_->GetJobs();
  std::unique_ptr<app::Progress> wait;
  if (jobs.in_hand(*this))
    if (app::UserDialogs* dialogs = host_->GetDialogs())
      wait = dialogs->begin_progress("Stopping calculation of segment...");
  jobs.remove(*this);
  if (!IsProcessing()) return;
  jobs.wait_until([this] { return !IsProcessing(); });
  // A run that ended on an error posts no status: once the worker is idle,
  // nothing is left that could, and the segment is idle too.
  if (IsProcessing()) SetStatus(SegmentStatus::Idle);
}

void VLSegment::CancelNoWait() {
  if (host_) host_->GetJobs().remove(*this);
}

void VLSegment::ReplaceData(VLSegmentDataPtr data) {
  My::Span span;
  {
    std::lock_guard lock(lock_);
    data_ = std::move(data);
    span = data_->DataSpan(origin_);
  }
  SetDataSpan(span.first, span.last);
  timing_ = timing::tree();
}

void VLSegment::AttachToComposition(VLHost& composition) {
  host_ = &composition;
  if (mask_.width != composition.GetWidth() || mask_.height != composition.GetHeight()) {
    std::ostringstream text;
    text << "incompatible segment mask dimensions (" << mask_.width << ", " << mask_.height << ")";
    throw xtd::exception(text.str());
  }
  if (origin_ < 0 || origin_ >= composition.GetLength()) {
    std::ostringstream text;
    text << "segment origin (" << origin_ << ") out of the composition";
    throw xtd::exception(text.str());
  }
  const int32_t length = composition.GetLength();
  timeSpan_ = {std::clamp(timeSpan_.first, 0, length), std::clamp(timeSpan_.last, 0, length)};
}

void VLSegment::TakeOver(Stored stored) {
  origin_ = stored.origin;
  timeSpan_ = stored.timeSpan;
  params_ = stored.params;
  mask_ = std::move(stored.mask);
  std::lock_guard lock(lock_);
  data_ = stored.data ? std::move(stored.data) : std::make_shared<VLSegmentData>();
  dataSpan_ = data_->DataSpan(origin_);
}
