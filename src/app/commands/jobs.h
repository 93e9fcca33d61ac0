// What the application needs of the tracking jobs when it closes a project:
// whether one runs, and a way to stop them all. The processor implements it;
// until a program has one, NoJobs says nothing ever runs.
#pragma once

namespace app {

class Jobs {
 public:
  virtual ~Jobs() = default;
  // Some segment is queued or being tracked.
  virtual bool any_running() const = 0;
  // Cancels every job and returns only when the worker is idle, however long
  // that takes: the project must not close under a running tracker.
  virtual void cancel_all_and_wait() = 0;
};

class NoJobs : public Jobs {
 public:
  bool any_running() const override { return false; }
  void cancel_all_and_wait() override {}
};

}  // namespace app
