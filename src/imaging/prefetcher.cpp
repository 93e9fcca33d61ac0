// SPDX-License-Identifier: GPL-3.0-or-later
#include "imaging/prefetcher.h"

#include <algorithm>

#include "imaging/cache.h"

namespace img {

void CPrefetchQueue::add(const std::string& name) {
  if (name.empty()) return;
  if (std::find(names_.begin(), names_.end(), name) != names_.end()) return;
  if (names_.size() >= capacity) names_.pop_front();
  names_.push_back(name);
}

CPrefetcher::CPrefetcher(Cache& cache) : cache_(cache) {
  SetRestart(true);
  SetBelowNormalPriority();
  Resume();
}

CPrefetcher::~CPrefetcher() {
  Stop();
}

void CPrefetcher::Add(const std::string& name) {
  Enqueue([&](CPrefetchQueue& queue) { queue.add(name); });
}

void CPrefetcher::Process(std::string& name) {
  // A frame being decoded by someone else will be in the cache soon enough;
  // waiting for it here would only hold up the names behind it.
  if (cache_.is_loading(name)) return;
  // Touch: the frame is wanted next, so it goes to the most recent end and
  // stays there after the reference is given back.
  CacheHandle frame(cache_);
  frame.acquire_file(name, true);
}

}  // namespace img
