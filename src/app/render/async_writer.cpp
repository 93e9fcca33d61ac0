// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/render/async_writer.h"

namespace app {

AsyncWriter::AsyncWriter(std::unique_ptr<ImageWriter> inner) : inner_(std::move(inner)) {
  thread_ = std::thread([this] { run(); });
}

AsyncWriter::~AsyncWriter() {
  {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return !full_; });
    stop_ = true;
  }
  changed_.notify_all();
  thread_.join();
}

void AsyncWriter::run() {
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [&] { return full_ || stop_; });
    if (!full_) return;
    // The slot is ours until full_ drops: the caller waits for that before
    // it copies the next frame in, so no lock is held while encoding.
    lock.unlock();
    std::exception_ptr failed;
    try {
      inner_->write(slot_);
    } catch (...) {
      failed = std::current_exception();
    }
    lock.lock();
    if (failed && !failure_) failure_ = failed;
    full_ = false;
    changed_.notify_all();
  }
}

void AsyncWriter::wait_done(std::unique_lock<std::mutex>& lock) {
  changed_.wait(lock, [&] { return !full_; });
  if (failure_) std::rethrow_exception(failure_);
}

void AsyncWriter::write(const img::image& frame) {
  {
    std::unique_lock lock(mutex_);
    wait_done(lock);
    // The copy keeps the frame's row order: some formats record it.
    slot_.set_top_down(frame.top_down);
    slot_ = frame;
    full_ = true;
  }
  changed_.notify_all();
}

void AsyncWriter::skip() {
  std::unique_lock lock(mutex_);
  wait_done(lock);
  inner_->skip();
}

void AsyncWriter::finish() {
  std::unique_lock lock(mutex_);
  wait_done(lock);
}

void AsyncWriter::close() {
  finish();
  inner_->close();
}

}  // namespace app
