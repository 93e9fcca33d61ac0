// SPDX-License-Identifier: GPL-3.0-or-later
// The tracking jobs as the application core sees them: a queue of segments
// on one worker. The processor implements it; a program without one passes
// NoJobs, which refuses every segment and has nothing to cancel.
//
// All of it is called on the thread that owns the composition.
#pragma once

#include <functional>

class VLSegment;

namespace app {

class Jobs {
 public:
  virtual ~Jobs() = default;
  // Some segment is queued or being tracked.
  virtual bool any_running() const = 0;
  // Puts the segment at the back of the queue and marks it queued. False,
  // with nothing done, when it is not idle or has nothing left to track.
  virtual bool enqueue(VLSegment& segment) = 0;
  // Takes the segment out of the queue, or asks its run to stop at the next
  // check and waits until the worker has let go of it, then runs the
  // messages its run left. The segment is idle afterwards and may be
  // deleted at once.
  virtual void remove(VLSegment& segment) = 0;
  // The worker has the segment in hand (its run may not have begun yet).
  virtual bool in_hand(const VLSegment& segment) const = 0;
  // The same for every segment; returns at once.
  virtual void cancel_all() = 0;
  // Cancels every job and returns only when the worker is idle, however long
  // that takes: the project must not close under a running tracker.
  virtual void cancel_all_and_wait() = 0;
  // Runs the owning thread's messages until `done` holds or the worker has
  // gone idle with every message run. The wait of a cancel: a segment turns
  // idle only when its status message runs on this thread.
  virtual void wait_until(const std::function<bool()>& done) = 0;
};

class NoJobs : public Jobs {
 public:
  bool any_running() const override { return false; }
  bool enqueue(VLSegment&) override { return false; }
  void remove(VLSegment&) override {}
  bool in_hand(const VLSegment&) const override { return false; }
  void cancel_all() override {}
  void cancel_all_and_wait() override {}
  void wait_until(const std::function<bool()>&) override {}
};

}  // namespace app
