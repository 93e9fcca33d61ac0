// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/thread.h"

#include "base/crash_report.h"

#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <exception>

namespace sys {

namespace {

// Runs `body`; a std::exception leaving it goes to `on_error` with its text.
// True only if the body returned.
template <class Body, class OnError>
bool Guard(Body&& body, OnError&& on_error) {
  try {
    body();
    return true;
  } catch (const std::exception& e) {
    on_error(e.what());
  }
  return false;
}

}  // namespace

thread::~thread() {
  // By the lifetime rule the body has finished here; join only reclaims the
  // system thread.
  if (thread_.joinable()) thread_.join();
}

void thread::Resume() {
  if (started_) return;
  started_ = true;
  thread_ = std::thread(&thread::Entry, this);
}

bool thread::Wait() {
  ended_.wait();
  return result_;
}

bool thread::HasEnded() {
  return ended_.wait_for(std::chrono::nanoseconds(0));
}

void thread::SetBelowNormalPriority() {
  std::lock_guard lock(priority_mutex_);
  if (below_normal_) return;
  below_normal_ = true;
  if (tid_ != 0) LowerPriorityOf(tid_);
}

void thread::LowerPriorityOf(pid_t tid) {
  // On Linux the nice value belongs to each thread, and PRIO_PROCESS with a
  // thread id addresses that thread alone. getpriority may return -1 as a
  // value, hence the errno test. A failure leaves the priority as it was:
  // the work is the same, only less polite.
  errno = 0;
  const int nice = getpriority(PRIO_PROCESS, static_cast<id_t>(tid));
  if (nice == -1 && errno != 0) return;
  setpriority(PRIO_PROCESS, static_cast<id_t>(tid), nice + kBelowNormalNiceStep);
}

void thread::Entry() {
  // A stack overflow in a worker is reported like one on the main thread.
  PrepareCrashStack();
  {
    std::lock_guard lock(priority_mutex_);
    tid_ = gettid();
    if (below_normal_) LowerPriorityOf(tid_);
  }
  auto report = [this](const char* text) {
    result_ = false;
    // A report that fails itself has nowhere left to go; it must not take
    // the thread down with it.
    try {
      OnError(text);
    } catch (...) {
    }
  };
  bool ok = false;
  do {
    ok = Guard([this] { Run(); }, report);
  } while (!ok && restart_.load());
  {
    // The id may be reused by another thread once this one is gone.
    std::lock_guard lock(priority_mutex_);
    tid_ = 0;
  }
  ended_.set();
}

}  // namespace sys
