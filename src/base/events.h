// SPDX-License-Identifier: GPL-3.0-or-later
// Events for threads that wait for one another: a manual-reset event stays
// signalled until reset and releases every waiter; an auto-reset event
// releases one waiter and clears itself as it does.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace sys {

class ManualResetEvent {
 public:
  explicit ManualResetEvent(bool signalled = false) : signalled_(signalled) {}
  ManualResetEvent(const ManualResetEvent&) = delete;
  ManualResetEvent& operator=(const ManualResetEvent&) = delete;

  // Signals the event and wakes every waiter.
  void set();
  void reset();
  // Waits without limit until the event is signalled.
  void wait();
  // Waits at most `timeout`; true if the event was signalled. A zero
  // timeout only tests the state.
  bool wait_for(std::chrono::nanoseconds timeout);

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool signalled_;
};

class AutoResetEvent {
 public:
  explicit AutoResetEvent(bool signalled = false) : signalled_(signalled) {}
  AutoResetEvent(const AutoResetEvent&) = delete;
  AutoResetEvent& operator=(const AutoResetEvent&) = delete;

  // Signals the event. Setting an event that is already signalled changes
  // nothing: two sets before a wait release one waiter, once.
  void set();
  void reset();
  // Waits until the event is signalled and clears it.
  void wait();
  // As wait, for at most `timeout`; true if the event was signalled (and is
  // now cleared). A zero timeout tests and clears without waiting.
  bool wait_for(std::chrono::nanoseconds timeout);

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool signalled_;
};

}  // namespace sys
