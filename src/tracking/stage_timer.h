// SPDX-License-Identifier: GPL-3.0-or-later
// Where the tracker reports the time of its stages. The worker hands in the
// run's timing tree behind this port; tests and benchmarks pass null.
#pragma once

#include <string_view>

namespace tracking {

class StageTimer {
 public:
  // Opens a stage, nested in the one currently open.
  virtual void enter(std::string_view stage) = 0;
  // Closes the innermost open stage.
  virtual void leave() = 0;

 protected:
  ~StageTimer() = default;
};

// Holds one stage open for its lifetime; does nothing for a null timer.
class StageScope {
 public:
  StageScope(StageTimer* timer, std::string_view stage) : timer_(timer) {
    if (timer_) timer_->enter(stage);
  }
  ~StageScope() {
    if (timer_) timer_->leave();
  }
  StageScope(const StageScope&) = delete;
  StageScope& operator=(const StageScope&) = delete;

 private:
  StageTimer* timer_;
};

}  // namespace tracking
