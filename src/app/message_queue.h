// SPDX-License-Identifier: GPL-3.0-or-later
// The plain GuiQueue of velomar-cli and the tests: any thread posts, the
// thread that owns the composition pumps. Messages run in the order they were
// posted, each on the pumping thread, one at a time.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>

#include "app/ports.h"

namespace app {

// Runs one message and then destroys it, also when Execute throws (the
// exception goes on to the caller, whose report loop shows it).
void ExecuteMessage(std::unique_ptr<VLMessage> message);

class MessageQueue : public GuiQueue {
 public:
  MessageQueue() = default;
  // Pending messages are destroyed unexecuted.
  ~MessageQueue() override;
  MessageQueue(const MessageQueue&) = delete;
  MessageQueue& operator=(const MessageQueue&) = delete;

  // Any thread; never blocks on the pumping thread's work. A null message is
  // ignored.
  void post(std::unique_ptr<VLMessage> message) override;

  // Owning thread only. Runs the messages pending now and those they post in
  // turn, until the queue is empty; returns how many ran. When a message
  // throws, the exception leaves pump() and the later messages stay queued.
  size_t pump();

  // Owning thread only. Runs the first message, waiting up to `timeout` for
  // one to arrive; false when none came. For callers that must look at the
  // program's state between two messages.
  bool pump_one(std::chrono::milliseconds timeout);

  // Owning thread only. Pumps until `done()` holds or `timeout` has passed;
  // returns the last value of `done()`. `done` is tested after every batch of
  // messages and at least every few milliseconds, so it may also watch state
  // that changes without a post (a worker's idle flag). Exceptions as pump().
  bool pump_until(const std::function<bool()>& done, std::chrono::milliseconds timeout);

  // Messages waiting; for diagnostics (another thread may post at once).
  size_t pending() const;

 private:
  std::unique_ptr<VLMessage> take();

  mutable std::mutex mutex_;  // guards queue_; never held while a message runs
  std::condition_variable posted_;
  std::deque<std::unique_ptr<VLMessage>> queue_;
};

}  // namespace app
