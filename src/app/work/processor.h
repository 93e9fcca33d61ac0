// SPDX-License-Identifier: GPL-3.0-or-later
// The tracker's worker: takes queued segments one after the other, runs the
// frame loop on each, and reports back to the owning thread only through
// messages. It also keeps the tracker's diagnostics: with VL_DEBUG_DIR set,
// the log of the last run ("Velomar.log") and its table of discrepancies
// ("Discrepancy.txt") are written there, and every run's stage times are
// added to the segment's timing tree.
//
// One processor serves the whole program. Everything but the worker's own
// body runs on the thread that owns the composition.
//
//   app::Processor processor({.queue = queue, .dialogs = dialogs,
//                             .cache = img::global_cache(),
//                             .prefetcher = &img::global_prefetcher(),
//                             .pump = [&] { queue.pump(); }});
//   composition.SetJobs(&processor);
//   segment.Process();  // queued; results arrive as messages
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>

#include "app/model/jobs.h"
#include "app/model/segment.h"
#include "app/ports.h"
#include "base/work_thread.h"

namespace img {
class Cache;
class CPrefetcher;
}  // namespace img

namespace app {

struct ProcessorPorts {
  GuiQueue& queue;
  UserDialogs& dialogs;
  img::Cache& cache;
  img::CPrefetcher* prefetcher = nullptr;  // null: no read-ahead
  // Runs the messages now pending on the owning thread (the wait of a
  // cancel needs them: a segment turns idle only when its message runs).
  std::function<void()> pump;
};

// The names the worker's code uses for a segment's status.
inline constexpr SegmentStatus kSegmentIdle = SegmentStatus::Idle;
inline constexpr SegmentStatus kSegmentQueued = SegmentStatus::Queued;
inline constexpr SegmentStatus kSegmentForward = SegmentStatus::Forward;
inline constexpr SegmentStatus kSegmentBackward = SegmentStatus::Backward;

class Processor : public sys::CWorkThread<VLSegment*>, public Jobs {
 public:
  explicit Processor(ProcessorPorts ports);
  // Stops the run in hand at its next check and ends the thread.
  ~Processor() override;

  bool any_running() const override;
  bool enqueue(VLSegment& segment) override;
  void remove(VLSegment& segment) override;
  bool in_hand(const VLSegment& segment) const override;
  void cancel_all() override;
  void cancel_all_and_wait() override;
  void wait_until(const std::function<bool()>& done) override;

  // The directory of the diagnostics, from VL_DEBUG_DIR, with a separator
  // at its end; empty when the variable is unset or empty.
  static std::string DebugDirectory();

 protected:
  void Process(VLSegment*& segment) override;
  // A run that failed: "thread error" in the log, and a warning box with
  // the text on the owning thread.
  void OnError(const char* text) override;

 private:
  ProcessorPorts ports_;
  // Signalled, under the lock, when a run lets go of its segment.
  std::condition_variable released_;
};

// The message a frame loop that lost its object leaves to the user.
std::string ObjectLostText(int32_t frame, int32_t start_frame);

}  // namespace app
