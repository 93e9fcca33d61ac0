// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/model/comp.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>

#include "imaging/global_cache.h"
#include "imaging/image_list.h"

std::string PanelState::Title() const {
  switch (object) {
    case PanelObject::Composition:
      return "Composition Properties";
    case PanelObject::Overlay:
      return "Overlay Properties";
    case PanelObject::Segment:
      return "Segment Properties";
    case PanelObject::None:
      break;
  }
  return "Property Editor";
}

VLComp::VLComp(app::OperationStack& operations, app::UserDialogs* dialogs, app::ViewSurface* view)
    : interface_(*this), overlay_(*this), operations_(operations), dialogs_(dialogs), view_(view) {
  actionQueue_.SetLimit(1000);
  EnablePopupMenus(false);
  Reset();
}

VLComp::~VLComp() {
  // Actions may own segments that point back here: they go before the list.
  actionQueue_.Clear();
  edited_ = nullptr;
}

void VLComp::Fire(void (VL::Listener::*event)()) {
  if (VL::Listener* l = interface_.GetListener()) (l->*event)();
}

// --- reports of the segments and the overlay ----------------------------------

void VLComp::SegmentEventsListener::OnObjectChanged() {
  comp_.RebuildTopPath();
  comp_.RefreshPanel();
}
void VLComp::SegmentEventsListener::OnDataChanged() {
  comp_.RebuildTopPath();
}
void VLComp::SegmentEventsListener::OnStateChanged() {
  // A preview follows the tracker from the moment a segment is queued until
  // its job ends.
  if (VLViewControl* view = comp_.GetViewControl(); view && comp_.reporting_) {
    if (comp_.reporting_->GetStatus() == SegmentStatus::Queued)
      view->OnSegmentQueued(*comp_.reporting_);
    else if (comp_.reporting_->GetStatus() == SegmentStatus::Idle)
      view->OnSegmentIdle(*comp_.reporting_);
  }
  comp_.RefreshPanel();
}
void VLComp::SegmentEventsListener::OnLookChanged() {
  comp_.RefreshView();
  comp_.RefreshPanel();
}
void VLComp::SegmentEventsListener::OnMaskChanging() {
  if (comp_.hooks.maskChanging && comp_.reporting_) comp_.hooks.maskChanging(*comp_.reporting_);
}
void VLComp::SegmentEventsListener::OnMaskChanged() {
  if (comp_.hooks.maskChanged && comp_.reporting_) comp_.hooks.maskChanged(*comp_.reporting_);
  comp_.RefreshView();
}
void VLComp::SegmentEventsListener::OnResultsAdded() {
  comp_.actionQueue_.CountModification();
  // A preview follows the tracker frame by frame; without one the surface
  // only repaints.
  if (VLViewControl* view = comp_.GetViewControl(); view && comp_.reporting_)
    view->OnSegmentData(*comp_.reporting_, comp_.reporting_->GetLastAddedFrame());
  else
    comp_.RefreshView();
}

void VLComp::OverlayEventsListener::OnObjectChanged() {
  comp_.RebuildTopPath();
  comp_.RefreshView();
  comp_.RefreshPanel();
}
void VLComp::OverlayEventsListener::OnDataChanged() {
  // Cleared: an empty overlay is never the active object.
  if (comp_.overlayActive_ && comp_.overlay_.IsEmpty()) {
    comp_.overlayActive_ = false;
    comp_.Fire(&VL::Listener::OnOverlayActiveChanged);
    comp_.ShowInPanel(PanelObject::Composition);
  }
  comp_.RefreshView();
}
void VLComp::OverlayEventsListener::OnStateChanged() {
  comp_.RebuildTopPath();
  comp_.RefreshPanel();
}
void VLComp::OverlayEventsListener::OnTrimChanged() {
  OnStateChanged();
}
void VLComp::OverlayEventsListener::OnPreviewTimeChanged() {
  OnStateChanged();
}
void VLComp::OverlayEventsListener::OnLookChanged() {
  comp_.RefreshView();
  comp_.RefreshPanel();
}

void VLComp::ShowInPanel(PanelObject object, int32_t segment) {
  panel_.object = object;
  panel_.segment = object == PanelObject::Segment ? segment : -1;
  ++panel_.revision;
}

void VLComp::RefreshView() {
  if (viewControl_)
    viewControl_->Refresh();
  else if (view_)
    view_->invalidate();
}
void VLComp::StopView() {
  if (viewControl_)
    viewControl_->Stop();
  else if (view_)
    view_->stop_play_timer();
}
void VLComp::SetViewImageSize(uint32_t width, uint32_t height) {
  if (view_) view_->set_image_size(width, height);
}
void VLComp::UpdateTitle() {
  if (hooks.updateTitle) hooks.updateTitle();
}
void VLComp::EnablePopupMenus(bool enable) {
  if (hooks.enablePopupMenus) hooks.enablePopupMenus(enable);
}

// --- settings ----------------------------------------------------------------

void VLComp::ApplySettings(const VLCompSettings& next) {
  const VLCompSettings old = settings_;
  settings_ = next;
  const bool view = !(old.pixelAspect == next.pixelAspect) || old.task != next.task;
  const bool object = old.startFrame != next.startFrame || !(old.workArea == next.workArea);
  if (view) RefreshView();
  if (object) Fire(&VL::Listener::OnObjectChanged);
  if (!(old == next)) RefreshPanel();
}

// --- time --------------------------------------------------------------------

void VLComp::SetCurrentTime(int32_t time) {
  StopView();
  if (IsEmpty()) return;
  time = std::clamp(time, 0, GetLength() - 1);
  if (time == currentTime_) return;
  currentTime_ = time;
  SetPreviewTime(time, true);
  Fire(&VL::Listener::OnCurrentTimeChanged);
}

void VLComp::SetPreviewTime(int32_t time, bool stopView) {
  if (stopView) StopView();
  if (IsEmpty()) return;
  time = std::clamp(time, 0, GetLength() - 1);
  if (time == previewTime_) return;
  previewTime_ = time;
  Fire(&VL::Listener::OnPreviewTimeChanged);
  RefreshView();
}

void VLComp::SetCurrentTimeByText(const std::string& text) {
  if (IsEmpty()) return;
  const char* begin = text.data();
  const char* end = begin + text.size();
  while (begin < end && (*begin == ' ' || *begin == '\t')) ++begin;
  if (begin < end && *begin == '+') ++begin;
  int32_t value = 0;
  const auto [ptr, ec] = std::from_chars(begin, end, value);
  if (ec != std::errc() || ptr == begin) return;
  SetCurrentTime(int32_t(int64_t(value) - settings_.startFrame));
}

std::string VLComp::GetCurrentTimeText() const {
  return IsEmpty() ? std::string() : std::to_string(int64_t(previewTime_) + settings_.startFrame);
}

// --- segments and the active object ------------------------------------------

bool VLComp::IsActive(const VLSegment& segment) const {
  return activeSegment_ >= 0 && activeSegment_ < GetSegmentCount() &&
         segments_[size_t(activeSegment_)].get() == &segment;
}

int32_t VLComp::IndexOf(const VLSegment* segment) const {
  for (size_t i = 0; i < segments_.size(); ++i)
    if (segments_[i].get() == segment) return int32_t(i);
  return -1;
}

void VLComp::InsertSegment(int32_t index, std::unique_ptr<VLSegment> segment) {
  index = std::clamp(index, 0, GetSegmentCount());
  segments_.insert(segments_.begin() + index, std::move(segment));
}

std::unique_ptr<VLSegment> VLComp::RemoveSegment(int32_t index) {
  StopViewWorker();
  std::unique_ptr<VLSegment> segment = std::move(segments_.at(size_t(index)));
  segments_.erase(segments_.begin() + index);
  return segment;
}

void VLComp::SetActiveSegment(int32_t index) {
  if (index != -1)
    index = GetSegmentCount() == 0 ? -1 : std::clamp(index, 0, GetSegmentCount() - 1);
  if (index == activeSegment_) return;
  if (activeSegment_ >= 0 && activeSegment_ < GetSegmentCount()) {
    VLSegment& old = *segments_[size_t(activeSegment_)];
    if (old.IsEdited()) old.GetInterface().EndEdit();
  }
  activeSegment_ = index;
  if (index >= 0) SetOverlayActive(false);
  Fire(&VL::Listener::OnActiveSegmentChanged);
  RefreshView();
  if (index >= 0)
    ShowInPanel(PanelObject::Segment, index);
  else
    ShowInPanel(PanelObject::Composition);
}

void VLComp::SetOverlayActive(bool active) {
  if (overlay_.IsEmpty() || active == overlayActive_) return;
  if (active) SetActiveSegment(-1);
  overlayActive_ = active;
  Fire(&VL::Listener::OnOverlayActiveChanged);
  ShowInPanel(active ? PanelObject::Overlay : PanelObject::Composition);
}

ActiveSegmentKeeper::ActiveSegmentKeeper(VLComp& comp)
    : comp_(comp), index_(comp.activeSegment_), segment_(nullptr) {
  if (index_ >= 0 && index_ < comp.GetSegmentCount()) segment_ = &comp.GetSegmentObject(index_);
}

ActiveSegmentKeeper::~ActiveSegmentKeeper() {
  comp_.RebuildTopPath();
  comp_.Fire(&VL::Listener::OnOverlayActiveChanged);
  comp_.activeSegment_ = -2;  // forces SetActiveSegment to see a change
  const int32_t found = segment_ ? comp_.IndexOf(segment_) : -1;
  comp_.SetActiveSegment(found >= 0 ? found : index_);
}

// --- the top path ------------------------------------------------------------

void VLComp::RebuildTopPath() {
  const int32_t length = GetLength();
  topSegment_.assign(size_t(length), -1);
  for (int32_t s = GetSegmentCount() - 1; s >= 0; --s) {
    const My::Span span = segments_[size_t(s)]->GetTimeSpan();
    for (int32_t f = std::max(span.first, 0); f < std::min(span.last, length); ++f)
      topSegment_[size_t(f)] = s;
  }
  topBreaks_.clear();
  int32_t before = -1;
  for (int32_t f = 0; f <= length; ++f) {
    const int32_t value = f < length ? topSegment_[size_t(f)] : -1;
    if (value != before) topBreaks_.push_back(f);
    before = value;
  }
  UpdateOverlaySpan();
  RefreshView();
}

// Frames f - 1 and f carry the motion on when both have a ruler and one of
// the two rulers spans both.
bool VLComp::Continuous(int32_t f) const {
  const int32_t a = topSegment_[size_t(f - 1)], b = topSegment_[size_t(f)];
  if (a < 0 || b < 0) return false;
  const My::Span sa = segments_[size_t(a)]->GetTimeSpan(), sb = segments_[size_t(b)]->GetTimeSpan();
  return (sa.contains(f - 1) && sa.contains(f)) || (sb.contains(f - 1) && sb.contains(f));
}

void VLComp::UpdateOverlaySpan() {
  const int32_t length = GetLength();
  const int32_t m = overlay_.GetMatch();
  const auto& breaks = topBreaks_;
  const auto next = std::upper_bound(breaks.begin(), breaks.end(), m);
  if (next == breaks.begin() || next == breaks.end() || m < 0 || m >= length ||
      topSegment_[size_t(m)] < 0) {
    overlay_.SetTransformSpan(0, 0);
    return;
  }
  size_t j = size_t(next - breaks.begin()) - 1;  // the entry where m's run starts
  while (breaks[j] > 0 && Continuous(breaks[j])) --j;
  size_t k = size_t(next - breaks.begin());  // the entry where m's run ends
  while (breaks[k] < length && Continuous(breaks[k])) ++k;
  overlay_.SetTransformSpan(breaks[j], breaks[k]);
}

types::affine VLComp::TransformBetween(int32_t a, int32_t b) const {
  if (a == b) return {};
  const int32_t lo = std::min(a, b), hi = std::max(a, b);
  const int32_t length = GetLength();
  const auto& breaks = topBreaks_;
  // The run holding lo starts at the last entry not after it, or at 0.
  auto next = std::upper_bound(breaks.begin(), breaks.end(), lo);
  int32_t r0 = next == breaks.begin() ? 0 : *(next - 1);
  types::affine r;
  auto at = [this](int32_t s, int32_t f) { return segments_[size_t(s)]->GetTransform(f); };
  while (r0 < length && r0 <= hi) {
    const int32_t r1 = next == breaks.end() ? length : *next;
    const int32_t s = topSegment_[size_t(r0)];
    if (s >= 0) {
      if (lo < r1 && lo >= r0) {
        r = at(s, lo).inverse();
      } else {
        // Entering a run: read the joining frame from the segment above.
        const int32_t p = topSegment_[size_t(r0 - 1)];
        r = (p == -1 || p > s ? at(s, r0) : at(s, r0 - 1)).inverse() * r;
      }
      if (hi < r1) {
        r = at(s, hi) * r;
        break;
      }
      const int32_t n = r1 < length ? topSegment_[size_t(r1)] : -1;
      r = (n == -1 || s <= n ? at(s, r1 - 1) : at(s, r1)) * r;
    }
    r0 = r1;
    if (next != breaks.end()) ++next;
  }
  return a > b ? r.inverse() : r;
}

bool VLComp::IsProcessingInside(int32_t first, int32_t last) const {
  first = std::max(first, 0);
  if (last <= first) return false;
  std::vector<int32_t> marks(size_t(last - first), -1);
  auto fill = [&](My::Span span, int32_t value) {
    for (int32_t f = std::max(span.first, first); f < std::min(span.last, last); ++f)
      marks[size_t(f - first)] = value;
  };
  for (int32_t s = GetSegmentCount() - 1; s >= 0; --s) {
    const VLSegment& segment = *segments_[size_t(s)];
    if (segment.IsProcessing()) fill(segment.GetTimeSpan(), s);
    fill(segment.GetDataSpan(), -1);
  }
  return std::any_of(marks.begin(), marks.end(), [](int32_t v) { return v >= 0; });
}

// --- load, save, close -------------------------------------------------------

void VLComp::LoadSequence(const std::vector<std::string>& paths,
                          double framerate,
                          PixelAspectRatio aspect,
                          int32_t startFrame) {
  operations_.push("loading sequence");
  if (paths.empty()) throw std::runtime_error("no images in sequence");
  img::frame_size size;
  img::read_image_size(paths.front(), size, nullptr);
  width_ = size.width;
  height_ = size.height;
  settings_.pixelAspect =
      aspect.is_unset() ? guess_pixel_aspect(int32_t(size.width), int32_t(size.height)) : aspect;
  StopViewWorker();
  underlay_ = paths;
  settings_.framerate = framerate;
  settings_.startFrame = startFrame;
  settings_.exportInaccuracy = underlay_.size() > 100 ? 0.3f : 0.0f;
  RebuildTopPath();
  SetViewImageSize(width_, height_);
  RefreshView();
  actionQueue_.CountModification();  // a project from a sequence is unsaved at once
  UpdateTitle();
  SetCurrentTime(0);
  settings_.workArea = {0, GetLength()};
  Fire(&VL::Listener::OnObjectChanged);
  ShowInPanel(PanelObject::Composition);
  EnablePopupMenus(true);
  operations_.pop();
}

void VLComp::Load(const std::string& path, const std::function<void(VLComp&)>& read) {
  operations_.push("opening project");
  try {
    // Relative paths in the file resolve against the project's own path.
    projectPath_ = path;
    read(*this);
    UpdateTitle();
    SetViewImageSize(width_, height_);
    RebuildTopPath();
    RefreshView();
    Fire(&VL::Listener::OnObjectChanged);
    if (VL::Listener* l = overlay_.GetInterface().GetListener()) l->OnObjectChanged();
    if (activeSegment_ < 0 || activeSegment_ >= GetSegmentCount()) {
      activeSegment_ = -1;
      ShowInPanel(overlayActive_ && !overlay_.IsEmpty() ? PanelObject::Overlay
                                                        : PanelObject::Composition);
    } else {
      ShowInPanel(PanelObject::Segment, activeSegment_);
      overlayActive_ = false;
    }
    EnablePopupMenus(true);
    operations_.pop();
  } catch (...) {
    Close();
    throw;
  }
}

void VLComp::Save(const std::string& path, const std::function<void(const VLComp&)>& write) {
  operations_.push("saving project");
  std::string old = projectPath_;
  try {
    projectPath_ = path;
    write(*this);
  } catch (const std::exception&) {
    projectPath_ = std::move(old);
    throw;
  }
  actionQueue_.MarkSaved();
  UpdateTitle();
  operations_.pop();
}

void VLComp::Close() {
  ShowInPanel(PanelObject::None);
  Fire(&VL::Listener::OnDataChanged);
  StopViewWorker();
  actionQueue_.Clear();
  actionQueue_.MarkSaved();
  StopView();
  if (edited_) edited_->GetInterface().EndEdit();
  Reset();
  segments_.clear();
  underlay_.clear();
  topSegment_.clear();
  topBreaks_.clear();
  overlay_.ClearDirect();
  projectPath_.clear();
  UpdateTitle();
  RefreshView();
  SetViewImageSize(0, 0);
  if (hooks.purgeCache)
    hooks.purgeCache();
  else
    img::global_cache().purge();
  EnablePopupMenus(false);
}

void VLComp::Reset() {
  const float inaccuracy = settings_.exportInaccuracy;
  settings_ = VLCompSettings{};
  settings_.exportInaccuracy = inaccuracy;
  currentTime_ = previewTime_ = -1;
  activeSegment_ = -1;
  width_ = height_ = 0;
  overlayActive_ = false;
}

void VLComp::TakeOverUnderlay(std::vector<std::string> paths, uint32_t width, uint32_t height) {
  StopViewWorker();
  underlay_ = std::move(paths);
  width_ = width;
  height_ = height;
}

void VLComp::TakeOverTimes(int32_t currentTime, int32_t previewTime) {
  currentTime_ = currentTime;
  previewTime_ = previewTime;
}

void VLComp::TakeOverActive(int32_t activeSegment, bool overlayActive) {
  activeSegment_ = activeSegment;
  overlayActive_ = overlayActive;
}

void VLComp::AdoptSegment(std::unique_ptr<VLSegment> segment) {
  segment->AttachToComposition(*this);
  segments_.push_back(std::move(segment));
}
