// SPDX-License-Identifier: GPL-3.0-or-later
// The preview's compositing worker: makes the composite the view wants on a
// thread of its own and hands it to the view's back buffer.
//
// The queue is a single slot: the newest request replaces any older one and
// cancels the composite in hand, since an old frame is not worth showing
// once the user has moved on. Owning thread: place(), cancel_and_wait();
// the worker thread: everything else.
//
//   app::Merger merger({.cache = cache, .back_buffer = buffer, .queue = queue,
//                       .dialogs = dialogs});
//   switch (merger.place(details)) { case app::kPlacedNew: ... }
#pragma once

#include <atomic>
#include <chrono>

#include "base/work_thread.h"
#include "imaging/merge_details.h"

namespace img {
class Cache;
}

namespace app {

class GuiQueue;
class UserDialogs;
class ViewBackBuffer;

// The answers of placing a request.
enum PlaceResult : int {
  kOnDisplay = 1,  // the picture is on show already
  kInHand = 2,     // the worker is making exactly this
  kPlacedNew = 3,  // a new request was placed
};

// The single slot: empty, or one request.
class MergeQueue {
 public:
  bool empty() const { return empty_; }
  img::MergeDetails& front() { return details_; }
  void pop_front() { empty_ = true; }
  void clear() { empty_ = true; }
  void put(const img::MergeDetails& details) {
    empty_ = true;  // while the slot is rewritten
    details_ = details;
    empty_ = false;
  }

 private:
  bool empty_ = true;
  img::MergeDetails details_;
};

struct MergerPorts {
  img::Cache& cache;
  ViewBackBuffer& back_buffer;
  GuiQueue& queue;       // the wait cursor goes out as a ChangeCursorMessage
  UserDialogs& dialogs;  // whose cursor it is
};

class Merger : public sys::CWorkThread<img::MergeDetails, MergeQueue> {
 public:
  // Starts the thread at once, below normal priority.
  explicit Merger(MergerPorts ports);
  // Cancels the work in hand and ends the thread.
  ~Merger() override;

  // Places a request (owning thread): kOnDisplay, kInHand or kPlacedNew.
  int place(const img::MergeDetails& details);

  // Stops the work in hand, drops the slot and waits until the worker is
  // idle; used before something the worker reads is changed.
  void cancel_and_wait();

  // Whether the worker has nothing to do (its idle event is set).
  bool is_idle() { return WaitIdleFor(std::chrono::nanoseconds(0)); }

  // The flag the compositor reads between the fetching of layers.
  const std::atomic<bool>* cancel_flag() const { return &interrupt_; }

 protected:
  void Process(img::MergeDetails& details) override;

 private:
  MergerPorts ports_;
};

}  // namespace app
