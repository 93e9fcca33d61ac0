// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/message_queue.h"

#include <algorithm>
#include <utility>

namespace app {

void ExecuteMessage(std::unique_ptr<VLMessage> message) {
  if (message) message->Execute();
}

MessageQueue::~MessageQueue() {
  // Destroy outside the lock: a message's destructor may be arbitrary code.
  std::deque<std::unique_ptr<VLMessage>> doomed;
  {
    std::lock_guard lock(mutex_);
    doomed.swap(queue_);
  }
}

void MessageQueue::post(std::unique_ptr<VLMessage> message) {
  if (!message) return;
  {
    std::lock_guard lock(mutex_);
    queue_.push_back(std::move(message));
  }
  posted_.notify_all();
}

std::unique_ptr<VLMessage> MessageQueue::take() {
  std::lock_guard lock(mutex_);
  if (queue_.empty()) return nullptr;
  std::unique_ptr<VLMessage> message = std::move(queue_.front());
  queue_.pop_front();
  return message;
}

size_t MessageQueue::pump() {
  size_t ran = 0;
  // One message at a time, taken under the lock and run without it, so that
  // a message may post again and workers are never held up by Execute.
  while (std::unique_ptr<VLMessage> message = take()) {
    ExecuteMessage(std::move(message));
    ++ran;
  }
  return ran;
}

bool MessageQueue::pump_one(std::chrono::milliseconds timeout) {
  {
    std::unique_lock lock(mutex_);
    if (!posted_.wait_for(lock, timeout, [this] { return !queue_.empty(); })) return false;
  }
  std::unique_ptr<VLMessage> message = take();
  if (!message) return false;
  ExecuteMessage(std::move(message));
  return true;
}

bool MessageQueue::pump_until(const std::function<bool()>& done,
                              std::chrono::milliseconds timeout) {
  // The predicate may watch state that changes without a post, so the wait
  // is sliced rather than tied to the condition variable alone.
  constexpr std::chrono::milliseconds kSlice{5};
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  for (;;) {
    pump();
    if (done()) return true;
    const auto now = std::chrono::steady_clock::now();
    if (now >= deadline) return false;
    std::unique_lock lock(mutex_);
    posted_.wait_until(lock, std::min(deadline, now + kSlice), [this] { return !queue_.empty(); });
  }
}

size_t MessageQueue::pending() const {
  std::lock_guard lock(mutex_);
  return queue_.size();
}

}  // namespace app
