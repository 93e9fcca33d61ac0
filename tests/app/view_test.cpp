// SPDX-License-Identifier: GPL-3.0-or-later
// The preview without a window: the merger's answers and its single slot
// under a scripted race, playback driven through a recording surface, and
// following the tracker from the processor's own messages.
#include "app/preview/view.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "app/message_queue.h"
#include "app/model/comp.h"
#include "app/model/segment.h"
#include "app/operation_stack.h"
#include "app/preview/recording_surface.h"
#include "app/profile_store.h"
#include "app/scripted_dialogs.h"
#include "app/work/processor.h"
#include "imaging/cache.h"
#include "imaging/synthetic_shot.h"

namespace {

// A door the loader waits at: a test opens it when its scripted race has
// reached the point it wants.
class Gate {
 public:
  void close(const std::string& name) {
    std::lock_guard lock(mutex_);
    closed_ = name;
    arrived_ = false;
  }
  void open() {
    std::lock_guard lock(mutex_);
    closed_.clear();
    changed_.notify_all();
  }
  void pass(const std::string& name) {
    std::unique_lock lock(mutex_);
    if (name != closed_) return;
    arrived_ = true;
    changed_.notify_all();
    changed_.wait(lock, [&] { return closed_ != name; });
  }
  void wait_arrival() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return arrived_; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::string closed_;
  bool arrived_ = false;
};

// Frames named by their number; frame n is a flat picture of blue 10 n, so
// a painted picture tells which frame it shows.
struct ViewFixture {
  static constexpr uint32_t kW = 16, kH = 8;
  Gate gate;
  std::mutex decoded_mutex;
  std::map<std::string, int> decoded;
  img::Cache cache{[this](const std::string& name, img::image& out) {
                     gate.pass(name);
                     {
                       std::lock_guard lock(decoded_mutex);
                       ++decoded[name];
                     }
                     out.resize(kW, kH, 4);
                     for (uint8_t* row : out.rows)
                       for (uint32_t x = 0; x < kW; ++x) {
                         row[4 * x] = uint8_t(10 * std::stoi(name));
                         row[4 * x + 1] = row[4 * x + 2] = 0;
                         row[4 * x + 3] = 255;
                       }
                   },
                   int64_t(1) << 26};
  app::MessageQueue queue;
  app::ScriptedDialogs dialogs;
  app::OperationStack operations;
  app::MemoryProfileStore profile;
  app::RecordingSurface surface;
  VLComp comp{operations, &dialogs};
  std::unique_ptr<app::VLView> view;

  explicit ViewFixture(int32_t frames, My::Span work_area) {
    std::vector<std::string> names;
    for (int32_t f = 0; f < frames; ++f) names.push_back(std::to_string(f));
    comp.TakeOverUnderlay(names, kW, kH);
    VLCompSettings settings;
    settings.workArea = work_area;
    comp.TakeOverSettings(settings);
    comp.TakeOverTimes(0, 0);
    view = std::make_unique<app::VLView>(comp, app::VLViewPorts{.surface = surface,
                                                                .profile = profile,
                                                                .queue = queue,
                                                                .dialogs = dialogs,
                                                                .cache = cache,
                                                                .workspace_colour = 0xABABAB});
  }
  int decodes(const std::string& name) {
    std::lock_guard lock(decoded_mutex);
    return decoded[name];
  }

  // The owning thread's turn: the merger finishes, messages run, and an
  // invalidated surface paints. Returns the frame painted, or -1.
  int Settle() {
    view->wait_idle([&] { queue.pump(); });
    int painted = -1;
    if (surface.take_invalidated())
      view->paint({0, 0, kW, kH}, [&](const img::image& picture, app::PixelRect) {
        painted = picture.rows[0][0] / 10;
      });
    return painted;
  }
  // Plays: a tick whenever the timer runs, and what is painted, in order.
  std::vector<int> Play(int ticks) {
    std::vector<int> shown;
    for (int i = 0; i < ticks; ++i) {
      const int painted = Settle();
      if (painted >= 0) shown.push_back(painted);
      if (surface.timer_running()) view->on_timer();
    }
    return shown;
  }
};

img::MergeDetails Frame(ViewFixture& f, int32_t frame) {
  return f.view->BuildDetails(frame);
}

TEST(Merger, AnswersOnDisplayInHandOrPlacedAndTheNewestRequestWins) {
  ViewFixture f(8, {0, 8});
  app::Merger& merger = f.view->merger();
  f.Settle();

  // A request in hand, held at the loader.
  f.gate.close("1");
  EXPECT_EQ(merger.place(Frame(f, 1)), app::kPlacedNew);
  f.gate.wait_arrival();
  EXPECT_EQ(merger.place(Frame(f, 1)), app::kInHand);
  // Newer requests replace one another in the slot and cancel frame 1.
  for (int32_t frame : {2, 3, 4}) EXPECT_EQ(merger.place(Frame(f, frame)), app::kPlacedNew);
  f.gate.open();
  f.Settle();
  {
    auto lock = f.view->back_buffer().Lock();
    ASSERT_NE(f.view->back_buffer().image(), nullptr);
    EXPECT_EQ(f.view->back_buffer().image()->rows[0][0], 40) << "the newest request is shown";
  }
  EXPECT_EQ(f.decodes("2"), 0);
  EXPECT_EQ(f.decodes("3"), 0);
  EXPECT_TRUE(f.view->back_buffer().shows(Frame(f, 4)));
  // On display: no work, the worker stays idle.
  EXPECT_EQ(merger.place(Frame(f, 4)), app::kOnDisplay);
  EXPECT_TRUE(merger.is_idle());
  // The cursor went busy for real work and came back.
  ASSERT_FALSE(f.dialogs.cursor_changes().empty());
  EXPECT_FALSE(f.dialogs.wait_cursor());

  // A result lost to a cancel is made again when asked for once more.
  f.gate.close("5");
  EXPECT_EQ(merger.place(Frame(f, 5)), app::kPlacedNew);
  f.gate.wait_arrival();
  std::thread canceller([&] { merger.cancel_and_wait(); });
  while (!merger.cancel_flag()->load()) std::this_thread::yield();
  f.gate.open();
  canceller.join();
  EXPECT_FALSE(f.view->back_buffer().shows(Frame(f, 5)));
  EXPECT_EQ(merger.place(Frame(f, 5)), app::kPlacedNew);
  f.Settle();
  EXPECT_TRUE(f.view->back_buffer().shows(Frame(f, 5)));
}

TEST(VLView, PlaybackWalksTheWorkAreaLoopingOrBouncing) {
  struct Case {
    const char* name;
    bool loop;
    int state;
    int32_t start;
    std::vector<int> shown;
  };
  const Case cases[] = {
      {"forward, loop", true, app::kPlayForward, 3, {3, 4, 5, 1, 2, 3, 4}},
      {"forward, bounce", false, app::kPlayForward, 3, {3, 4, 5, 4, 3, 2, 1, 2, 3}},
      {"backward, bounce", false, app::kPlayBackward, 2, {2, 1, 2, 3, 4, 5, 4}},
      {"backward, loop", true, app::kPlayBackward, 2, {2, 1, 5, 4, 3}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ViewFixture f(8, {1, 6});
    f.view->SetLoop(c.loop);
    f.comp.SetCurrentTime(c.start);
    // The start frame is on screen before playing: a request for the next
    // frame would otherwise take its place in the back buffer first.
    std::vector<int> shown = {f.Settle()};
    f.view->set_play_state(c.state);
    const std::vector<int> played = f.Play(int(c.shown.size()) * 2);
    shown.insert(shown.end(), played.begin(), played.end());
    ASSERT_GE(shown.size(), c.shown.size());
    EXPECT_EQ(std::vector<int>(shown.begin(), shown.begin() + long(c.shown.size())), c.shown);
    EXPECT_EQ(f.surface.timer_interval(), 100u);
    // Stopping leaves the composition on the frame on show.
    const int32_t on_show = f.comp.GetPreviewTime();
    f.view->set_play_state(app::kStopped);
    EXPECT_FALSE(f.surface.timer_running());
    EXPECT_EQ(f.comp.GetCurrentTime(), on_show);
  }
}

TEST(VLView, SettingsComeFromTheProfileAndGoBack) {
  ViewFixture f(2, {0, 2});
  const app::DisplayStyle defaults = f.view->GetDisplayStyle();
  EXPECT_EQ(defaults.background, 0xABABABu);
  EXPECT_EQ(defaults.mask_color, 255u);
  EXPECT_EQ(defaults.mask_opacity, 500u);
  EXPECT_EQ(f.view->GetTimeSettings(), app::TimeSettings());

  app::DisplayStyle style = defaults;
  style.mask_opacity = 250;
  style.background = 0x01020304;
  f.view->SetDisplayStyle(style);
  f.view->set_play_delay(40);
  f.view->SetLoop(false);
  f.view.reset();
  EXPECT_EQ(f.profile.get_int("DisplayStyle", "MaskOpacity", 0), 250);
  EXPECT_EQ(f.profile.get_int("DisplayStyle", "Background", 0), 0x01020304);
  EXPECT_EQ(f.profile.get_int("Time", "PlayTimerDelay", 0), 40);
  EXPECT_EQ(f.profile.get_int("Time", "Loop", 1), 0);
  // Stored forms reach the request: colour bytes in pixel order, thousandths.
  const app::DisplayStyle back = app::ReadDisplayStyle(f.profile, 0);
  img::MergeDetails d;
  back.apply_to(d);
  EXPECT_EQ(d.background[0], 4);
  EXPECT_EQ(d.background[3], 1);
  EXPECT_EQ(d.mask_opacity, 0.25f);
  EXPECT_EQ(app::RgbToPixelColour(0x112233), 0x332211u);
}

// Frames tracked by the real worker reach the view through the processor's
// messages; following shows them as they come and lands on the last one.
TEST(VLView, FollowsTheTrackerFromItsMessages) {
  img::synthetic_shot shot;
  shot.width = 160;
  shot.height = 120;
  shot.frames = 10;
  shot.key_frame = 4;
  shot.plate_left = 40;
  shot.plate_top = 30;
  shot.plate_width = 80;
  shot.plate_height = 60;
  ViewFixture f(0, {0, 0});
  img::Cache cache(
      [&](const std::string& name, img::image& out) { shot.render(std::stoi(name), out); },
      int64_t(1) << 28);
  app::Processor processor(
      {.queue = f.queue, .dialogs = f.dialogs, .cache = cache, .prefetcher = nullptr, .pump = [&] {
         f.queue.pump();
       }});
  f.view.reset();
  std::vector<std::string> names;
  for (int32_t i = 0; i < shot.frames; ++i) names.push_back(std::to_string(i));
  f.comp.TakeOverUnderlay(names, shot.width, shot.height);
  f.comp.SetJobs(&processor);
  f.comp.TakeOverTimes(4, 4);
  app::VLView view(f.comp, {.surface = f.surface,
                            .profile = f.profile,
                            .queue = f.queue,
                            .dialogs = f.dialogs,
                            .cache = cache});
  view.SetAutoFollow(true);

  auto segment = std::make_unique<VLSegment>(f.comp, 4);
  img::bitmap<img::bit1> mask;
  shot.plate_mask(mask);
  segment->SetMaskDirect(mask);
  segment->SetTimeSpanDirect(1, 9);
  VLSegment& s = *segment;
  f.comp.InsertSegment(0, std::move(segment));
  f.comp.RebuildTopPath();

  ASSERT_TRUE(s.Process());
  EXPECT_EQ(view.play_state(), app::kFollowTracker);
  std::vector<int32_t> previews;
  // One message at a time, each with the compositor idle, so that every
  // tracked frame finds the view free to show it however the threads are
  // scheduled.
  while (processor.any_running() || f.queue.pending()) {
    view.wait_idle(nullptr);
    f.queue.pump_one(std::chrono::milliseconds(5));
    if (view.play_state() == app::kFollowTracker && view.followed_segment()) {
      EXPECT_EQ(view.followed_segment(), &s);
      EXPECT_EQ(view.BuildDetails(f.comp.GetPreviewTime()).mask, &s.GetMask());
    }
    if (previews.empty() || previews.back() != f.comp.GetPreviewTime())
      previews.push_back(f.comp.GetPreviewTime());
  }
  f.queue.pump();
  // The two directions from the key frame may run side by side, so their
  // frames interleave; each direction's shown frames still move away from
  // the key frame. (Frames may be passed over while the merger is busy,
  // never revisited.)
  std::vector<int32_t> backward, forward;
  for (int32_t p : previews) (p < 4 ? backward : forward).push_back(p);
  EXPECT_FALSE(backward.empty());
  EXPECT_TRUE(std::is_sorted(backward.begin(), backward.end(), std::greater<>()));
  ASSERT_FALSE(forward.empty());
  EXPECT_TRUE(std::is_sorted(forward.begin(), forward.end()));
  EXPECT_GT(forward.back(), 4);
  EXPECT_EQ(view.play_state(), app::kStopped) << "following ends with the job";
  EXPECT_EQ(f.comp.GetCurrentTime(), f.comp.GetPreviewTime());
  EXPECT_EQ(view.followed_segment(), nullptr);
  view.wait_idle([&] { f.queue.pump(); });
  f.comp.SetJobs(nullptr);
}

// A frame shown with a mask is made again after the mask changes; the old
// composite is neither shown nor found.
TEST(VLView, AnEditedMaskIsNeverShownStale) {
  ViewFixture f(4, {0, 4});
  f.comp.GetInterface().CreateSegment(1, false);
  VLSegment& s = f.comp.GetSegmentObject(0);
  img::bitmap<img::bit1> mask(ViewFixture::kW, ViewFixture::kH);
  for (uint8_t* row : mask.rows) std::fill(row, row + mask.stride, uint8_t(0));
  s.SetMaskDirect(mask);
  f.comp.SetCurrentTime(1);
  f.view->refresh(true);
  f.Settle();
  uint8_t before = 0, after = 0;
  f.view->paint({0, 0, 1, 1}, [&](const img::image& p, app::PixelRect) { before = p.rows[0][0]; });
  for (uint8_t* row : mask.rows) std::fill(row, row + mask.stride, uint8_t(0xFF));
  s.SetMaskDirect(mask);  // fires the mask hook: the view discards
  f.Settle();
  f.view->paint({0, 0, 1, 1}, [&](const img::image& p, app::PixelRect) { after = p.rows[0][0]; });
  EXPECT_EQ(before, 10);
  // Tinted pure blue at half opacity: 10 * 0.5 + 255 * 0.5 = 132.5.
  EXPECT_EQ(after, 133);
}

}  // namespace
