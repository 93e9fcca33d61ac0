// SPDX-License-Identifier: GPL-3.0-or-later
// A writer that encodes on a thread of its own, one frame behind the
// caller, so that a render composites frame n + 1 while frame n is being
// encoded and written. Frames reach the inner writer in the order given, so
// the output is byte for byte what the inner writer makes alone.
#pragma once

#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <thread>

#include "app/render/image_writer.h"

namespace app {

class AsyncWriter : public ImageWriter {
 public:
  explicit AsyncWriter(std::unique_ptr<ImageWriter> inner);
  // Lets the frame in hand be written, then ends the thread; a failure of
  // that last write is lost here: call finish() to see it.
  ~AsyncWriter() override;

  // Waits for the previous frame's write, throwing its failure if it
  // failed (this frame is then not taken), copies `frame` and returns.
  void write(const img::image& frame) override;
  // Waits for the frame in hand (the inner writer counts the frames on its
  // thread), then lets the inner writer pass over the next one.
  void skip() override;
  // Waits until every frame taken is written; throws the first failure.
  void finish();
  // finish(), then closes the inner writer.
  void close() override;
  ImageWriter& inner() { return *inner_; }

 private:
  void run();
  void wait_done(std::unique_lock<std::mutex>& lock);

  std::unique_ptr<ImageWriter> inner_;
  std::mutex mutex_;
  std::condition_variable changed_;
  img::image slot_;
  bool full_ = false;  // slot_ holds a frame not yet written
  bool stop_ = false;
  std::exception_ptr failure_;
  std::thread thread_;
};

}  // namespace app
