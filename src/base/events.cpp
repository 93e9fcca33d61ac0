// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/events.h"

namespace sys {

void ManualResetEvent::set() {
  {
    std::lock_guard lock(mutex_);
    signalled_ = true;
  }
  changed_.notify_all();
}

void ManualResetEvent::reset() {
  std::lock_guard lock(mutex_);
  signalled_ = false;
}

void ManualResetEvent::wait() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return signalled_; });
}

bool ManualResetEvent::wait_for(std::chrono::nanoseconds timeout) {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, timeout, [this] { return signalled_; });
}

void AutoResetEvent::set() {
  {
    std::lock_guard lock(mutex_);
    signalled_ = true;
  }
  // One waiter is enough: it clears the event as it leaves.
  changed_.notify_one();
}

void AutoResetEvent::reset() {
  std::lock_guard lock(mutex_);
  signalled_ = false;
}

void AutoResetEvent::wait() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return signalled_; });
  signalled_ = false;
}

bool AutoResetEvent::wait_for(std::chrono::nanoseconds timeout) {
  std::unique_lock lock(mutex_);
  if (!changed_.wait_for(lock, timeout, [this] { return signalled_; })) return false;
  signalled_ = false;
  return true;
}

}  // namespace sys
