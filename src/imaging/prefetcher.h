// SPDX-License-Identifier: GPL-3.0-or-later
// The prefetcher: a worker that decodes the frames the tracker will want
// next into the cache, so that the tracker finds them there.
#pragma once

#include <cstddef>
#include <deque>
#include <string>

#include "base/work_thread.h"

namespace img {

class Cache;

// File names waiting to be prefetched: at most `capacity`, oldest first.
// Guarded by the prefetcher's lock.
class CPrefetchQueue {
 public:
  static constexpr size_t capacity = 8;

  // Skips an empty name and one already queued; a name beyond capacity
  // pushes out the oldest, which is the frame the tracker is least likely
  // still to want.
  void add(const std::string& name);

  bool empty() const { return names_.empty(); }
  size_t size() const { return names_.size(); }
  std::string& front() { return names_.front(); }
  void pop_front() { names_.pop_front(); }
  void clear() { names_.clear(); }
  const std::deque<std::string>& names() const { return names_; }

 private:
  std::deque<std::string> names_;
};

// Runs below normal priority. A failed decode is reported on the log stream
// and the worker goes on with the next name; whoever asks for that frame
// later meets the failure for itself. The cache must outlive the prefetcher.
class CPrefetcher : public sys::CWorkThread<std::string, CPrefetchQueue> {
 public:
  explicit CPrefetcher(Cache& cache);
  ~CPrefetcher() override;

  // Queues a file to be decoded ahead and wakes the worker.
  void Add(const std::string& name);

 protected:
  void Process(std::string& name) override;

 private:
  Cache& cache_;
};

}  // namespace img
