// SPDX-License-Identifier: GPL-3.0-or-later
// The preview's logic without a widget: turns the composition's time
// position and the display style into composite requests, keeps the picture
// on show in a back buffer, runs playback through the surface's timer and
// follows the tracker.
//
// The widget (or a test, or a command) implements ViewSurface: it is told
// to invalidate, to start and stop the play timer, and it calls back
// on_timer() when the timer ticks and paint() when it draws. Owning thread
// only; the merger's thread touches nothing here but the back buffer.
//
//   app::VLView view(comp, {.surface = surface, .profile = profile,
//                           .queue = queue, .dialogs = dialogs,
//                           .cache = img::global_cache(),
//                           .workspace_colour = 0xABABAB});
//   comp.SetCurrentTime(12);          // refreshes the view
//   view.wait_idle([&] { queue.pump(); });
//   auto lock = view.back_buffer().Lock();
//   const img::image* picture = view.back_buffer().image();
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "app/model/view_control.h"
#include "app/preview/back_buffer.h"
#include "app/preview/display_style.h"
#include "app/work/merger.h"
#include "imaging/merge_details.h"

class VLComp;
class VLSegment;

namespace img {
class Cache;
}

namespace app {

class GuiQueue;
class ProfileStore;
class UserDialogs;
class ViewSurface;

enum PlayState : int {
  kStopped = 0,
  kPlayForward = 1,
  kPlayBackward = 2,
  kFollowTracker = 3,
};

struct VLViewPorts {
  ViewSurface& surface;
  ProfileStore& profile;
  GuiQueue& queue;       // the merger's cursor messages
  UserDialogs& dialogs;  // whose cursor they change
  img::Cache& cache;
  // The workspace colour as a stored colour integer: the default
  // "Background", and the colour of a view without frames.
  uint32_t workspace_colour = 0xABABAB;
  // Told when the view starts following the tracker; may be empty.
  std::function<void()> follow_tracker = {};
};

// A part of the picture, in image pixels.
struct PixelRect {
  int32_t x = 0, y = 0;
  uint32_t width = 0, height = 0;
};

class VLView : public VLViewControl {
 public:
  // Reads the display style and time settings, starts the merger and
  // installs itself as the composition's view control.
  VLView(VLComp& comp, VLViewPorts ports);
  // Stops the merger (cancel and wait), uninstalls itself and writes the
  // display style and time settings back.
  ~VLView() override;
  VLView(const VLView&) = delete;
  VLView& operator=(const VLView&) = delete;

  // --- Settings. A render saves the style, changes it, and puts it back.
  const DisplayStyle& GetDisplayStyle() const { return style_; }
  // Stores the style; a change refreshes.
  void SetDisplayStyle(const DisplayStyle& style);
  const TimeSettings& GetTimeSettings() const { return time_; }
  void SetLoop(bool loop) { time_.loop = loop; }
  void SetAutoFollow(bool follow) { time_.auto_follow = follow; }
  // Stores the delay; a running timer is set anew.
  void set_play_delay(uint32_t milliseconds);
  // The window's colour: "Background" with frames, else the workspace colour.
  uint32_t GetBackgroundColour() const;

  // --- Pictures.
  // The request that shows `frame` with the current style and state.
  img::MergeDetails BuildDetails(int32_t frame) const;
  // Places the request of `frame`: kOnDisplay, kInHand or kPlacedNew.
  int request_frame(int32_t frame);
  // Shows the composition's current frame (its preview time). Returns the
  // answer of request_frame, or 0 when there is nothing to show.
  int refresh(bool force);
  // Waits until the merger has nothing to do, running `pump` (the owning
  // thread's pending messages) between looks, so that a render or a
  // command sees the picture of the last request in the back buffer.
  void wait_idle(const std::function<void()>& pump);
  // wait_idle, and then the picture of the current frame is on show, or
  // this throws: the merger keeps its failures to itself (the window keeps
  // the last picture), so a composite it did not deliver is made once more
  // on this thread, where a missing frame or a frame of the wrong size
  // throws its own error. For commands that write what the view shows.
  void wait_shown(const std::function<void()>& pump);
  ViewBackBuffer& back_buffer() { return back_buffer_; }
  Merger& merger() { return *merger_; }

  // What the widget calls when it draws `area` (image pixels): playback
  // goes on, and `draw` gets the picture and the part of it to show: the
  // shown entry under the back buffer's lock, or with the mask editor on,
  // a tinted copy of the area made under the lock and drawn outside it.
  // False when nothing is on show or the area misses the picture.
  bool paint(PixelRect area,
             const std::function<void(const img::image& picture, PixelRect part)>& draw);

  // --- Playback.
  int play_state() const { return play_state_; }
  void set_play_state(int state);
  int32_t next_play_frame() const;
  int32_t previous_play_frame() const;
  // The play timer ticked.
  void on_timer();
  bool timer_running() const { return timer_running_; }

  // --- Mask editing.
  unsigned view_mode() const { return view_mode_; }
  // 1 while the mask editor works on the view, 0 otherwise.
  void set_view_mode(unsigned mode);
  // A mask was changed: no composite of the old one may be shown again.
  void discard_mask(const img::bitmap<img::bit1>* mask);

  // The segment whose tracking the view follows; null when none.
  VLSegment* followed_segment() const { return followed_; }

  // VLViewControl.
  void Refresh() override { refresh(false); }
  void Stop() override { set_play_state(kStopped); }
  void StopWorker() override { merger_->cancel_and_wait(); }
  void OnSegmentQueued(VLSegment& segment) override;
  void OnSegmentData(VLSegment& segment, int32_t frame) override;
  void OnSegmentIdle(VLSegment& segment) override;

 private:
  void continue_playback(bool request_next);
  void start_timer();
  void stop_timer();
  int32_t shown_frame() const;

  VLComp& comp_;
  VLViewPorts ports_;
  DisplayStyle style_;
  TimeSettings time_;
  ViewBackBuffer back_buffer_;
  std::unique_ptr<Merger> merger_;
  int play_state_ = kStopped;
  unsigned view_mode_ = 0;
  bool timer_running_ = false;
  VLSegment* followed_ = nullptr;
  std::function<void(VLSegment&)> previous_mask_hook_;
  std::function<void(VLSegment&)> previous_changing_hook_;
  bool cancelled_for_mask_ = false;  // a mask change stopped the worker
  // The tint of the last painting in editing mode; a change repaints
  // without a new composite.
  struct Tint {
    uint32_t inverse = 0, colour = 0, opacity = 0;
    friend bool operator==(const Tint&, const Tint&) = default;
  } painted_tint_;
};

}  // namespace app
