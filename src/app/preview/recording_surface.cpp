// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/preview/recording_surface.h"

namespace app {

void RecordingSurface::invalidate() {
  std::lock_guard lock(mutex_);
  invalidated_ = true;
  log_.push_back("invalidate");
}

void RecordingSurface::start_play_timer(uint32_t interval_ms) {
  std::lock_guard lock(mutex_);
  timer_ = true;
  interval_ = interval_ms;
  log_.push_back("start " + std::to_string(interval_ms));
}

void RecordingSurface::stop_play_timer() {
  std::lock_guard lock(mutex_);
  timer_ = false;
  log_.push_back("stop");
}

void RecordingSurface::set_image_size(uint32_t width, uint32_t height) {
  std::lock_guard lock(mutex_);
  log_.push_back("size " + std::to_string(width) + "x" + std::to_string(height));
}

bool RecordingSurface::take_invalidated() {
  std::lock_guard lock(mutex_);
  const bool was = invalidated_;
  invalidated_ = false;
  return was;
}

bool RecordingSurface::timer_running() const {
  std::lock_guard lock(mutex_);
  return timer_;
}

uint32_t RecordingSurface::timer_interval() const {
  std::lock_guard lock(mutex_);
  return interval_;
}

std::vector<std::string> RecordingSurface::log() const {
  std::lock_guard lock(mutex_);
  return log_;
}

void RecordingSurface::clear_log() {
  std::lock_guard lock(mutex_);
  log_.clear();
}

}  // namespace app
