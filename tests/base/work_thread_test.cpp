// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/work_thread.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <iostream>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

int OwnNice() {
  return getpriority(PRIO_PROCESS, static_cast<id_t>(gettid()));
}

// Records the items it finished. The `hold` item blocks until `gate` opens
// and announces itself on `holding`; the `bad` item throws.
class Recorder : public sys::CWorkThread<int> {
 public:
  explicit Recorder(bool resume = true) {
    SetRestart(true);
    if (resume) Resume();
  }
  ~Recorder() override {
    gate.set();
    Stop();
  }
  using CWorkThread::Add;
  using CWorkThread::Stop;

  bool Terminating() {
    auto lock = Lock();
    return terminate_;
  }
  std::vector<int> Done() {
    std::lock_guard lock(done_mutex_);
    return done_;
  }
  int hold = -1, bad = -1;
  std::atomic<int> nice_seen{0};
  sys::ManualResetEvent gate, holding;

 protected:
  void Process(int& item) override {
    nice_seen = OwnNice();
    if (item == hold) {
      holding.set();
      gate.wait();
    }
    if (item == bad) throw std::runtime_error("bad item " + std::to_string(item));
    std::lock_guard lock(done_mutex_);
    done_.push_back(item);
  }

 private:
  std::mutex done_mutex_;
  std::vector<int> done_;
};

TEST(WorkThread, IdleEventIsClearExactlyWhileWorkIsQueued) {
  Recorder w(false);
  EXPECT_TRUE(w.WaitIdleFor(std::chrono::nanoseconds(0)));
  w.hold = 3;
  w.Add(1);
  w.Add(2);  // two adds before the worker runs: one signal of the start event for both
  w.Resume();
  w.WaitIdle();
  EXPECT_EQ(w.Done(), (std::vector<int>{1, 2}));
  w.Add(3);
  w.holding.wait();
  w.Add(4);
  w.Add(5);  // the same while the worker is busy
  EXPECT_FALSE(w.WaitIdleFor(std::chrono::nanoseconds(0)));
  w.gate.set();
  // Whatever a spare signal left behind, the worker answers each add; an idle
  // event set over a queued item shows as a short count.
  for (size_t round = 0; round < 200; ++round) {
    w.WaitIdle();
    ASSERT_EQ(w.Done().size(), round + 5);
    w.Add(int(round) + 10);
  }
}

TEST(WorkThread, WorksOffTheQueueBeforeTerminatingAndGoesOnPastAFailingItem) {
  std::ostringstream log;
  std::streambuf* old_log = std::clog.rdbuf(log.rdbuf());
  {
    Recorder w;
    w.hold = 0;
    w.bad = 2;
    w.Add(0);
    w.holding.wait();
    for (int i = 1; i <= 4; ++i) w.Add(i);
    bool result = true;
    std::thread stopper([&] { result = w.Stop(); });
    while (!w.Terminating()) std::this_thread::yield();  // set with four items queued
    w.gate.set();
    stopper.join();
    EXPECT_EQ(w.Done(), (std::vector<int>{0, 1, 3, 4}));
    EXPECT_FALSE(result);  // once a run failed, the thread's result is false
    EXPECT_TRUE(w.HasEnded());
    EXPECT_TRUE(w.WaitIdleFor(std::chrono::nanoseconds(0)));  // set again after the body
  }
  std::clog.rdbuf(old_log);
  EXPECT_EQ(log.str(), "\nthread error: bad item 2");
}

TEST(WorkThread, BelowNormalPriorityRaisesTheNiceValueOfTheWorkerOnlyOnce) {
  const int own = OwnNice();
  for (bool before_resume : {true, false}) {
    SCOPED_TRACE(before_resume ? "before Resume" : "while running");
    Recorder w(false);
    w.hold = 0;
    if (before_resume) w.SetBelowNormalPriority();
    w.Add(0);
    w.Resume();
    w.holding.wait();
    w.SetBelowNormalPriority();  // the thread runs: applied to it at once, or not again
    w.gate.set();
    w.Add(1);
    w.WaitIdle();
    EXPECT_EQ(w.nice_seen, std::min(own + sys::thread::kBelowNormalNiceStep, 19));
  }
  EXPECT_EQ(OwnNice(), own);
}

}  // namespace
