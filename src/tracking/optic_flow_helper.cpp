// SPDX-License-Identifier: GPL-3.0-or-later
#include "tracking/optic_flow_helper.h"

namespace tracking {

HelperThread& HelperThread::Instance() {
  static HelperThread helper;
  return helper;
}

HelperThread::HelperThread() {
  if (std::thread::hardware_concurrency() >= 2) thread_ = std::thread([this] { Loop(); });
}

HelperThread::~HelperThread() {
  {
    std::lock_guard lock(mutex_);
    stop_ = true;
  }
  wake_.notify_one();
  if (thread_.joinable()) thread_.join();
}

void HelperThread::Loop() {
  std::unique_lock lock(mutex_);
  for (;;) {
    wake_.wait(lock, [this] { return pending_ || stop_; });
    if (stop_) return;
    const Job job = job_;
    void* const context = context_;
    lock.unlock();
    job(context, 1);
    lock.lock();
    pending_ = false;
    done_.notify_one();
  }
}

void HelperThread::Split(Job job, void* context) {
  std::unique_lock use(use_, std::try_to_lock);
  if (!use.owns_lock() || !thread_.joinable()) {
    job(context, 0);
    job(context, 1);
    return;
  }
  {
    std::lock_guard lock(mutex_);
    job_ = job;
    context_ = context;
    pending_ = true;
  }
  wake_.notify_one();
  job(context, 0);
  std::unique_lock lock(mutex_);
  done_.wait(lock, [this] { return !pending_; });
}

}  // namespace tracking
