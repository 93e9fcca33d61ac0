// SPDX-License-Identifier: GPL-3.0-or-later
// A ViewSurface without a window: it records what the view asks of it, so
// that a test or a command can drive the preview headless. The merger
// invalidates from its own thread; everything is read under a lock.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "app/ports.h"

namespace app {

class RecordingSurface : public ViewSurface {
 public:
  void invalidate() override;
  void start_play_timer(uint32_t interval_ms) override;
  void stop_play_timer() override;
  void set_image_size(uint32_t width, uint32_t height) override;

  // Whether an invalidation came since the last call; clears it.
  bool take_invalidated();
  bool timer_running() const;
  uint32_t timer_interval() const;
  // "invalidate", "start N", "stop", "size WxH", in order.
  std::vector<std::string> log() const;
  void clear_log();

 private:
  mutable std::mutex mutex_;
  bool invalidated_ = false;
  bool timer_ = false;
  uint32_t interval_ = 0;
  std::vector<std::string> log_;
};

}  // namespace app
