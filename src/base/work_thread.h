// SPDX-License-Identifier: GPL-3.0-or-later
// Workers with a queue: one lock for the queue and flags, a start event that
// wakes the worker, an idle event that tells producers the queue has drained.
//
// A concrete worker derives from CWorkThread<T, Q>, implements Process(T&),
// and
//   - in its constructor, after its own members are ready: SetRestart(true)
//     if a failing item must not end the worker, then Resume() last;
//   - offers its own Add (Add() below for queues with push_back, or
//     Enqueue() for anything else);
//   - in its destructor calls Stop() first: the thread ends before the
//     object it runs on is taken apart.
//
// Items are processed one at a time, in queue order, with the lock released.
// Stop() lets the worker finish the queue first; an item added after the
// worker fell asleep and overtaken by Stop() before the worker woke is
// dropped with the queue.
#pragma once

#include <atomic>
#include <cassert>
#include <chrono>
#include <deque>
#include <utility>

#include "base/events.h"
#include "base/thread.h"

namespace sys {

class CWorkThreadBase : public thread, public CThreadSafeResource {
 public:
  // Asks the item in hand to stop early. Long work polls IsInterrupted() at
  // points it chooses; taking the next item clears the request.
  void Interrupt() { interrupt_.store(true, std::memory_order_relaxed); }
  bool IsInterrupted() const { return interrupt_.load(std::memory_order_relaxed); }

  // The idle event is signalled exactly while the worker waits with an empty
  // queue, and after its body has returned. Waiting on it waits for the
  // queue to drain. (A worker without the restart flag that ends on a
  // failed item leaves it clear: such a worker has no drain to wait for.)
  void WaitIdle() { idle_event_.wait(); }
  bool WaitIdleFor(std::chrono::nanoseconds timeout) { return idle_event_.wait_for(timeout); }

 protected:
  // Writes "\nthread error: " and the text to the log stream.
  void OnError(const char* text) override;

  // Read without the lock by Process(); cleared under the lock with each item taken.
  std::atomic<bool> interrupt_{false};
  bool terminate_ = false;  // guarded by the lock
  AutoResetEvent start_event_{false};
  ManualResetEvent idle_event_{true};
};

// Q is a first-in first-out container of T with empty(), front(),
// pop_front() and clear(); std::deque<T> is the common one.
template <class T, class Q = std::deque<T>>
class CWorkThread : public CWorkThreadBase {
 protected:
  CWorkThread() = default;
  ~CWorkThread() override { assert(terminate_ || !IsStarted()); }

  // Works the item in hand. Runs on the worker, without the lock. An
  // exception ends this run of the body; the item is lost.
  virtual void Process(T& item) = 0;

  void Run() override {
    while (GetNext()) Process(item_);
    idle_event_.set();
  }

  // Puts work in the queue through `put(queue)` under the lock, then wakes
  // the worker.
  template <class Put>
  void Enqueue(Put&& put) {
    auto lock = Lock();
    put(queue_);
    idle_event_.reset();
    start_event_.set();
  }

  void Add(T item) requires requires(Q& q, T&& t) { q.push_back(std::move(t)); }
  {
    Enqueue([&](Q& q) { q.push_back(std::move(item)); });
  }

  // Takes the next item into the item in hand; false when the worker must end.
  bool GetNext();

  // The stop protocol: set terminate and wake the worker under the lock,
  // wait for its end, then drop what is left in the queue. Returns the
  // thread's result flag.
  bool Stop();

  Q queue_;  // guarded by the lock
  T item_;   // the item in hand: the worker's own while it processes

 private:
  bool TakeFront();  // under the lock, with a non-empty queue
};

template <class T, class Q>
bool CWorkThread<T, Q>::GetNext() {
  for (;;) {
    auto lock = Lock();
    if (!queue_.empty()) return TakeFront();
    // The test of the start event stays under the lock that Add takes: an
    // Add landing between the test and the set below would otherwise leave
    // the idle event signalled over a non-empty queue, and a producer
    // waiting for the drain would wake too early.
    if (!start_event_.wait_for(std::chrono::nanoseconds(0))) {
      idle_event_.set();
      lock.unlock();
      start_event_.wait();
      idle_event_.reset();
      lock.lock();
    }
    if (terminate_) return false;
    if (!queue_.empty()) return TakeFront();
  }
}

template <class T, class Q>
bool CWorkThread<T, Q>::TakeFront() {
  item_ = std::move(queue_.front());
  queue_.pop_front();
  interrupt_.store(false, std::memory_order_relaxed);
  return true;
}

template <class T, class Q>
bool CWorkThread<T, Q>::Stop() {
  {
    auto lock = Lock();
    terminate_ = true;
    start_event_.set();
  }
  const bool result = IsStarted() ? Wait() : true;
  auto lock = Lock();
  queue_.clear();
  return result;
}

}  // namespace sys
