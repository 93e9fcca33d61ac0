// SPDX-License-Identifier: GPL-3.0-or-later
// A second core for the optic flow's per-sample passes: one helper thread for
// the whole process, started on first use and kept, because a measure is too
// short to pay for starting a thread each time.
#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>

namespace tracking {

class HelperThread {
 public:
  // Part 0 runs on the caller, part 1 on the helper.
  using Job = void (*)(void* context, int part) noexcept;

  static HelperThread& Instance();

  // Runs job(context, 0) and job(context, 1) at once and returns when both
  // are done. When the helper is busy with another caller's job, or the
  // machine has one core, the caller runs both parts itself, 0 first: the
  // parts must not depend on each other.
  void Split(Job job, void* context);

  HelperThread(const HelperThread&) = delete;
  HelperThread& operator=(const HelperThread&) = delete;

 private:
  HelperThread();
  ~HelperThread();
  void Loop();

  std::mutex use_;  // held by the one caller whose job the helper has
  std::mutex mutex_;
  std::condition_variable wake_, done_;
  Job job_ = nullptr;
  void* context_ = nullptr;
  bool pending_ = false, stop_ = false;
  std::thread thread_;  // last: starts when everything above is ready
};

}  // namespace tracking
