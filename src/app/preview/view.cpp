// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/preview/view.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "app/model/comp.h"
#include "app/model/segment.h"
#include "app/ports.h"
#include "imaging/cache.h"
#include "imaging/merge.h"

namespace app {

VLView::VLView(VLComp& comp, VLViewPorts ports)
    : comp_(comp),
      ports_(std::move(ports)),
      style_(ReadDisplayStyle(ports_.profile, ports_.workspace_colour)),
      time_(ReadTimeSettings(ports_.profile)),
      back_buffer_(ports_.cache, ports_.surface) {
  merger_ = std::make_unique<Merger>(MergerPorts{.cache = ports_.cache,
                                                 .back_buffer = back_buffer_,
                                                 .queue = ports_.queue,
                                                 .dialogs = ports_.dialogs});
  comp_.SetViewControl(this);
  // An edited mask keeps its address, so composites of its old pixels would
  // be found again: they go first, then whoever listened before.
  previous_changing_hook_ = comp_.hooks.maskChanging;
  comp_.hooks.maskChanging = [this](VLSegment& segment) {
    // A composite in the making may read the mask being overwritten; it is
    // dropped now and asked for again once the new pixels are in.
    if (!merger_->is_idle()) {
      merger_->cancel_and_wait();
      cancelled_for_mask_ = true;
    }
    if (previous_changing_hook_) previous_changing_hook_(segment);
  };
  previous_mask_hook_ = comp_.hooks.maskChanged;
  comp_.hooks.maskChanged = [this](VLSegment& segment) {
    discard_mask(&segment.GetMask());
    if (previous_mask_hook_) previous_mask_hook_(segment);
  };
}

VLView::~VLView() {
  stop_timer();
  merger_->cancel_and_wait();
  comp_.hooks.maskChanged = previous_mask_hook_;
  comp_.hooks.maskChanging = previous_changing_hook_;
  if (comp_.GetViewControl() == this) comp_.SetViewControl(nullptr);
  merger_.reset();
  back_buffer_.release();
  // Settings are the user's; a failing store must not take the view down
  // half-destroyed.
  try {
    WriteDisplayStyle(ports_.profile, style_);
    WriteTimeSettings(ports_.profile, time_);
  } catch (...) {
  }
}

void VLView::SetDisplayStyle(const DisplayStyle& style) {
  if (style == style_) return;
  style_ = style;
  refresh(false);
}

void VLView::set_play_delay(uint32_t milliseconds) {
  time_.play_delay = milliseconds;
  if (timer_running_) ports_.surface.start_play_timer(milliseconds);
}

uint32_t VLView::GetBackgroundColour() const {
  return comp_.IsEmpty() ? ports_.workspace_colour : style_.background;
}

int32_t VLView::shown_frame() const {
  return comp_.GetPreviewTime();
}

img::MergeDetails VLView::BuildDetails(int32_t frame) const {
  img::MergeDetails d;
  style_.apply_to(d);
  d.width = comp_.GetWidth();
  d.height = comp_.GetHeight();

  VLOverlay& overlay = comp_.GetOverlay();
  const My::Span path = overlay.GetTransformSpan();
  const bool in_path = path.contains(frame);
  bool compensating = in_path && comp_.GetTask() == TaskType::Compensation;
  if (view_mode_ == 1) {
    d.show_mask = false;
    compensating = false;
  }
  const types::affine motion = in_path ? overlay.GetTransform(frame) : types::affine();
  const types::affine steady = compensating ? motion.inverse() : types::affine();

  if (frame < 0 || frame >= comp_.GetLength()) {
    d.show_underlay = false;
  } else {
    d.underlay_file = &comp_.GetUnderlay()[size_t(frame)];
    d.underlay_transform = steady;
  }

  if (d.show_mask) {
    const VLSegment* segment = nullptr;
    if (play_state_ == kFollowTracker && followed_ && comp_.IndexOf(followed_) >= 0)
      segment = followed_;
    // While a segment is being removed the active index may still name it:
    // the composition settles the index only after the top path is rebuilt.
    else if (const int32_t active = comp_.GetActiveSegment();
             active >= 0 && active < comp_.GetSegmentCount())
      segment = &comp_.GetSegmentObject(active);
    else if (frame >= 0 && frame < int32_t(comp_.GetTopSegment().size()) &&
             comp_.GetTopSegment()[size_t(frame)] >= 0)
      segment = &comp_.GetSegmentObject(comp_.GetTopSegment()[size_t(frame)]);
    if (segment && segment->GetTimeSpan().contains(frame)) {
      d.mask = &segment->GetMask();
      if (segment->GetParams().OriginalMaskInAllFrames)
        d.mask_transform = steady;
      else if (compensating)
        d.mask_transform = steady * segment->GetTransform(frame);
      else
        d.mask_transform = segment->GetTransform(frame);
    } else {
      d.show_mask = false;
    }
  }

  if (!in_path) {
    d.show_overlay = false;
  } else {
    const auto& paths = overlay.GetPaths();
    const int64_t index = int64_t(frame) - overlay.GetSourceOffset();
    if (paths.size() == 1)
      d.overlay_file = paths.front();
    else if (overlay.GetTrimming().contains(int32_t(index)) && index >= 0 &&
             index < int64_t(paths.size()))
      d.overlay_file = paths[size_t(index)];
    // A frame with no overlay footage shows none, rather than failing on a
    // file with no name.
    if (d.overlay_file.empty()) d.show_overlay = false;
    d.alpha_interpretation = uint32_t(overlay.GetAlpha());
    d.overlay_transform = overlay.GetInitialTransform();
    if (!compensating) d.overlay_transform = motion * d.overlay_transform;
  }
  return d;
}

int VLView::request_frame(int32_t frame) {
  return merger_->place(BuildDetails(frame));
}

int VLView::refresh(bool force) {
  if (comp_.IsEmpty()) {
    back_buffer_.release();
    ports_.surface.invalidate();
    return 0;
  }
  const int32_t frame = shown_frame();
  if (frame == -1) return 0;
  back_buffer_.set_repaint_wanted(true);
  const int result = request_frame(frame);
  if (result == kOnDisplay) {
    back_buffer_.set_repaint_wanted(false);
    const Tint tint{style_.inverse_mask, style_.mask_color, style_.mask_opacity};
    const bool tint_same = view_mode_ == 0 || tint == painted_tint_;
    if (back_buffer_.painted() && tint_same && !force)
      continue_playback(true);
    else
      ports_.surface.invalidate();
  }
  return result;
}

void VLView::wait_idle(const std::function<void()>& pump) {
  for (;;) {
    if (pump) pump();
    if (merger_->WaitIdleFor(std::chrono::milliseconds(5))) {
      if (pump) pump();
      return;
    }
  }
}

void VLView::wait_shown(const std::function<void()>& pump) {
  wait_idle(pump);
  const img::MergeDetails details = BuildDetails(shown_frame());
  if (back_buffer_.shows(details)) return;
  img::CacheHandle made(ports_.cache);
  made.acquire_merge(details, nullptr, true);
  back_buffer_.swap(made);
}

bool VLView::paint(PixelRect area, const std::function<void(const img::image&, PixelRect)>& draw) {
  if (comp_.IsEmpty()) return false;
  continue_playback(false);
  const int64_t x0 = std::max<int64_t>(area.x, 0), y0 = std::max<int64_t>(area.y, 0);
  const int64_t x1 = std::min<int64_t>(int64_t(area.x) + area.width, comp_.GetWidth());
  const int64_t y1 = std::min<int64_t>(int64_t(area.y) + area.height, comp_.GetHeight());
  if (x1 <= x0 || y1 <= y0) return false;
  const PixelRect part{int32_t(x0), int32_t(y0), uint32_t(x1 - x0), uint32_t(y1 - y0)};

  if (view_mode_ == 0)
    return back_buffer_.paint([&](const img::image& picture) { draw(picture, part); });

  // The editor's tint is drawn at paint time, so a change of its colour or
  // opacity repaints without a new composite.
  img::image tinted(part.width, part.height);
  const VLSegment* edited = comp_.GetEditedSegment();
  uint8_t colour[4];
  img::unpack_colour(style_.mask_color, colour);
  const float opacity = float(double(std::min<uint32_t>(style_.mask_opacity, 1000)) / 1000.0);
  const bool painted = back_buffer_.paint([&](const img::image& picture) {
    if (edited)
      img::tint_area(tinted, picture, edited->GetMask(), part.x, part.y, style_.inverse_mask != 0,
                     colour, opacity);
    else
      img::tint_area(tinted, picture, img::bitmap<img::bit1>(), part.x, part.y, false, colour,
                     opacity);
  });
  if (!painted) return false;
  painted_tint_ = {style_.inverse_mask, style_.mask_color, style_.mask_opacity};
  draw(tinted, PixelRect{0, 0, part.width, part.height});
  return true;
}

// --- Playback ------------------------------------------------------------------

int32_t VLView::next_play_frame() const {
  const int32_t current = shown_frame();
  const My::Span area = comp_.GetWorkArea();
  if (current + 1 < area.last) return current + 1;
  if (time_.loop || current + 1 != area.last) return area.first;
  return area.last - 2;
}

int32_t VLView::previous_play_frame() const {
  const int32_t current = shown_frame();
  const My::Span area = comp_.GetWorkArea();
  if (current - 1 >= area.first) return current - 1;
  if (time_.loop || current - 1 != area.first - 1) return area.last - 1;
  return area.first + 1;
}

void VLView::start_timer() {
  timer_running_ = true;
  ports_.surface.start_play_timer(time_.play_delay);
}

void VLView::stop_timer() {
  if (!timer_running_) return;
  timer_running_ = false;
  ports_.surface.stop_play_timer();
}

void VLView::continue_playback(bool request_next) {
  if (back_buffer_.repaint_wanted()) return;
  if (play_state_ != kPlayForward && play_state_ != kPlayBackward) return;
  // The next frame is composed while this one is on screen.
  if (request_next)
    request_frame(play_state_ == kPlayForward ? next_play_frame() : previous_play_frame());
  if (!timer_running_) start_timer();
}

void VLView::on_timer() {
  // A slow composite stretches the pace: painting starts the timer again,
  // so no frame is skipped.
  if (!merger_->is_idle()) stop_timer();
  const int32_t current = shown_frame();
  int32_t frame;
  if (play_state_ == kPlayForward) {
    frame = next_play_frame();
    if (frame == current - 1) play_state_ = kPlayBackward;  // the bounce without loop
  } else if (play_state_ == kPlayBackward) {
    frame = previous_play_frame();
    if (frame == current + 1) play_state_ = kPlayForward;
  } else {
    stop_timer();
    return;
  }
  comp_.SetPreviewTime(frame, false);
}

void VLView::set_play_state(int state) {
  if (state == play_state_) return;
  const int old = play_state_;
  if (state == kFollowTracker) {
    stop_timer();
    play_state_ = state;
    const int32_t active = comp_.GetActiveSegment();
    const VLSegment* selected = active >= 0 ? &comp_.GetSegmentObject(active) : nullptr;
    if (followed_ != selected) refresh(false);
    if (ports_.follow_tracker) ports_.follow_tracker();
    return;
  }
  if (old == kFollowTracker) followed_ = nullptr;
  play_state_ = state;
  if (state == kStopped) {
    stop_timer();
    // Playback moved the preview alone; stopping keeps the frame on show.
    comp_.SetCurrentTime(comp_.GetPreviewTime());
  } else {
    continue_playback(true);
  }
}

// --- Mask editing ------------------------------------------------------------

void VLView::set_view_mode(unsigned mode) {
  view_mode_ = mode;
  back_buffer_.set_painted(false);
  refresh(false);
}

void VLView::discard_mask(const img::bitmap<img::bit1>* mask) {
  const auto release_and_discard = [&] {
    if (back_buffer_.shows_mask(mask)) back_buffer_.release();
    ports_.cache.discard_merges_of_mask(mask);
    if (back_buffer_.empty()) refresh(false);
  };
  if (std::exchange(cancelled_for_mask_, false)) {
    release_and_discard();
    refresh(false);
    return;
  }
  if (merger_->is_idle()) return release_and_discard();
  const int result = refresh(false);
  if (result != 0 && result != kPlacedNew) return release_and_discard();
  // The worker may be making a composite of the old mask right now.
  merger_->cancel_and_wait();
  release_and_discard();
  if (result == kPlacedNew) refresh(false);
}

// --- Following the tracker -----------------------------------------------------

void VLView::OnSegmentQueued(VLSegment&) {
  if (time_.auto_follow) set_play_state(kFollowTracker);
}

void VLView::OnSegmentData(VLSegment& segment, int32_t frame) {
  followed_ = &segment;
  if (play_state_ != kFollowTracker) {
    refresh(false);
    return;
  }
  // A busy worker is left alone: the tracker is faster than compositing,
  // and a frame shown late is worth less than the next one.
  if (merger_->is_idle()) comp_.SetPreviewTime(frame, false);
}

void VLView::OnSegmentIdle(VLSegment&) {
  followed_ = nullptr;
  if (play_state_ != kFollowTracker) return;
  for (int32_t i = 0; i < comp_.GetSegmentCount(); ++i)
    if (comp_.GetSegmentObject(i).IsProcessing()) return;
  comp_.SetCurrentTime(comp_.GetPreviewTime());
}

}  // namespace app
