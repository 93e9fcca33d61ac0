// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/preview/back_buffer.h"

#include "app/ports.h"

namespace app {

ViewBackBuffer::ViewBackBuffer(img::Cache& cache, ViewSurface& surface)
    : surface_(surface), shown_(cache) {}

void ViewBackBuffer::swap(img::CacheHandle& handle) {
  std::lock_guard lock(mutex_);
  if (handle.entry() != shown_.entry()) {
    shown_.swap(handle);
    painted_ = false;
  }
  if (repaint_wanted_) {
    repaint_wanted_ = false;
    surface_.invalidate();
  }
}

bool ViewBackBuffer::shows(const img::MergeDetails& details) const {
  std::lock_guard lock(mutex_);
  return shown_ && img::keys_equal(shown_.entry()->key, img::CacheKey(details));
}

bool ViewBackBuffer::shows_mask(const img::bitmap<img::bit1>* mask) const {
  std::lock_guard lock(mutex_);
  if (!shown_) return false;
  const auto* details = std::get_if<img::MergeDetails>(&shown_.entry()->key);
  return details && details->show_mask && details->mask == mask;
}

void ViewBackBuffer::release() {
  std::lock_guard lock(mutex_);
  shown_.release();
}

bool ViewBackBuffer::empty() const {
  std::lock_guard lock(mutex_);
  return !shown_;
}

bool ViewBackBuffer::paint(const std::function<void(const img::image&)>& draw) {
  std::lock_guard lock(mutex_);
  if (!shown_) return false;
  draw(shown_.image());
  painted_ = true;
  return true;
}

void ViewBackBuffer::set_repaint_wanted(bool wanted) {
  std::lock_guard lock(mutex_);
  repaint_wanted_ = wanted;
}

bool ViewBackBuffer::repaint_wanted() const {
  std::lock_guard lock(mutex_);
  return repaint_wanted_;
}

void ViewBackBuffer::set_painted(bool painted) {
  std::lock_guard lock(mutex_);
  painted_ = painted;
}

bool ViewBackBuffer::painted() const {
  std::lock_guard lock(mutex_);
  return painted_;
}

}  // namespace app
