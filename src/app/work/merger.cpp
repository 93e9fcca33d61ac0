// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/work/merger.h"

#include "app/messages.h"
#include "app/preview/back_buffer.h"
#include "imaging/cache.h"

namespace app {

Merger::Merger(MergerPorts ports) : ports_(ports) {
  // A bad frame must not end the preview: the next request runs again.
  SetRestart(true);
  SetBelowNormalPriority();
  Resume();
}

Merger::~Merger() {
  Interrupt();
  Stop();
}

int Merger::place(const img::MergeDetails& details) {
  {
    auto lock = Lock();
    if (!(details == item_) || !queue_.empty()) {
      // The composite in hand is no longer wanted, nor what waited.
      Interrupt();
      queue_.put(details);
      idle_event_.reset();
      start_event_.set();
      return kPlacedNew;
    }
  }
  // The worker has this very request in hand or finished it.
  auto shown = ports_.back_buffer.Lock();
  const img::CacheEntry* entry = ports_.back_buffer.entry();
  if (entry && img::keys_equal(entry->key, img::CacheKey(details))) return kOnDisplay;
  if (!is_idle()) return kInHand;
  // Finished but lost (a cancel came between): make it again. The order of
  // the two locks, displayed image first, is the only one taken anywhere.
  auto lock = Lock();
  queue_.put(details);
  idle_event_.reset();
  start_event_.set();
  return kPlacedNew;
}

void Merger::cancel_and_wait() {
  {
    auto lock = Lock();
    Interrupt();
    queue_.clear();
  }
  WaitIdle();
}

void Merger::Process(img::MergeDetails& details) {
  // The wait cursor only when real work is to be done.
  PostCursor(ports_.queue, ports_.dialogs, !ports_.cache.contains(details));
  img::CacheHandle handle(ports_.cache);
  try {
    handle.acquire_merge(details, cancel_flag(), true);
  } catch (...) {
    // The view keeps its picture; the failure goes to the log.
    PostCursor(ports_.queue, ports_.dialogs, false);
    throw;
  }
  if (!IsInterrupted()) ports_.back_buffer.swap(handle);
  handle.release();
  bool drained;
  {
    auto lock = Lock();
    drained = queue_.empty();
  }
  // With a further request waiting the cursor stays as it is.
  if (drained) PostCursor(ports_.queue, ports_.dialogs, false);
}

}  // namespace app
