// SPDX-License-Identifier: GPL-3.0-or-later
// The picture the preview shows: one cache entry, handed over by the
// compositing worker and read by painting and rendering, all under one lock.
//
// The worker swaps a finished composite in from its own thread; the owning
// thread paints or writes the entry under the same lock, so an entry can
// never go away while it is read. Nothing else is locked under it except,
// when a request is placed, the merger's lock.
#pragma once

#include <functional>
#include <mutex>

#include "imaging/cache.h"

namespace app {

class ViewSurface;

class ViewBackBuffer {
 public:
  ViewBackBuffer(img::Cache& cache, ViewSurface& surface);
  ViewBackBuffer(const ViewBackBuffer&) = delete;
  ViewBackBuffer& operator=(const ViewBackBuffer&) = delete;

  // The lock of the displayed image. Hold it for every read of image() or
  // entry() and while a reference to the image is in use.
  std::unique_lock<std::mutex> Lock() const { return std::unique_lock(mutex_); }
  // Under the lock: the entry on show, or null when nothing is.
  const img::CacheEntry* entry() const { return shown_.entry(); }
  const img::image* image() const { return shown_ ? &shown_.image() : nullptr; }

  // Merger's hand-over, from its thread: a new entry takes the place of
  // the shown one (which `handle` then holds, for the caller to release)
  // and clears `painted`; a wanted repaint invalidates the surface.
  void swap(img::CacheHandle& handle);

  // Whether the entry on show has the key of `details` (the cache's key
  // rules: a plain file matches the file's entry). Takes the lock.
  bool shows(const img::MergeDetails& details) const;
  // Whether the entry on show is a composite that shows `mask`. Takes the lock.
  bool shows_mask(const img::bitmap<img::bit1>* mask) const;
  // Gives the shown entry back to the cache. Takes the lock.
  void release();
  bool empty() const;

  // Painting: under the lock, calls `draw` with the picture on show and
  // marks it painted, in one step, so a hand-over cannot slip in between.
  // False when nothing is on show.
  bool paint(const std::function<void(const img::image&)>& draw);

  // Flags of the painting protocol, each under the lock.
  void set_repaint_wanted(bool wanted);
  bool repaint_wanted() const;
  void set_painted(bool painted);
  bool painted() const;

 private:
  ViewSurface& surface_;
  mutable std::mutex mutex_;  // guards everything below
  img::CacheHandle shown_;
  bool repaint_wanted_ = false;
  bool painted_ = false;
};

}  // namespace app
