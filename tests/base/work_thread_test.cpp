#include "base/work_thread.h"

#include <chrono>
#include <functional>
#include <iostream>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

using std::chrono::nanoseconds;

// Records every item it finished. `hold` items block until `gate` opens,
// announcing themselves on `holding`; items in `bad` throw.
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
  std::vector<bool> InterruptedAtStart() {
    std::lock_guard lock(done_mutex_);
    return interrupted_at_start_;
  }

  int hold = -1;
  int bad = -1;
  sys::ManualResetEvent gate;
  sys::ManualResetEvent holding;

 protected:
  void Process(int& item) override {
    {
      std::lock_guard lock(done_mutex_);
      interrupted_at_start_.push_back(IsInterrupted());
    }
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
  std::vector<bool> interrupted_at_start_;
};

// Redirects the log stream for the life of the object.
class CapturedLog {
 public:
  CapturedLog() : old_(std::clog.rdbuf(text_.rdbuf())) {}
  ~CapturedLog() { std::clog.rdbuf(old_); }
  std::string str() const { return text_.str(); }

 private:
  std::ostringstream text_;
  std::streambuf* old_;
};

TEST(WorkThread, WorksOffTheQueueBeforeTerminating) {
  Recorder w;
  w.hold = 0;
  w.Add(0);
  w.holding.wait();
  for (int i = 1; i <= 4; ++i) w.Add(i);
  std::thread stopper([&] { w.Stop(); });
  // Terminate is set while four items wait behind the one in hand.
  while (!w.Terminating()) std::this_thread::yield();
  w.gate.set();
  stopper.join();
  EXPECT_EQ(w.Done(), (std::vector<int>{0, 1, 2, 3, 4}));
  EXPECT_TRUE(w.HasEnded());
  EXPECT_TRUE(w.WaitIdleFor(nanoseconds(0)));  // signalled again after the body returned
}

TEST(WorkThread, TwoAddsBeforeTheWorkerWakesAreBothTaken) {
  for (bool started : {false, true}) {
    SCOPED_TRACE(started ? "worker busy" : "worker not yet started");
    Recorder w(started);
    if (started) {
      w.hold = 0;
      w.Add(0);
      w.holding.wait();
    }
    w.Add(1);
    w.Add(2);  // the start event is signalled once for both
    if (!started) w.Resume();
    w.gate.set();
    w.WaitIdle();
    // Whatever the spare signal left behind, the worker still answers.
    w.Add(3);
    w.WaitIdle();
    const std::vector<int> expected =
        started ? std::vector<int>{0, 1, 2, 3} : std::vector<int>{1, 2, 3};
    EXPECT_EQ(w.Done(), expected);
  }
}

TEST(WorkThread, IdleEventIsClearWhileWorkIsQueuedAndSetWhenDrained) {
  Recorder w;
  EXPECT_TRUE(w.WaitIdleFor(nanoseconds(0)));
  w.hold = 0;
  w.Add(0);
  w.holding.wait();
  w.Add(1);
  EXPECT_FALSE(w.WaitIdleFor(nanoseconds(0)));
  w.gate.set();
  w.WaitIdle();
  EXPECT_EQ(w.Done(), (std::vector<int>{0, 1}));

  // Many short rounds: an idle event that fires over a queued item shows up
  // as a round with missing items.
  std::vector<int> expected = {0, 1};
  for (int round = 0; round < 200; ++round) {
    w.Add(10 + round);
    expected.push_back(10 + round);
    w.WaitIdle();
    ASSERT_EQ(w.Done().size(), expected.size()) << "round " << round;
  }
  EXPECT_EQ(w.Done(), expected);
}

TEST(WorkThread, FailingItemIsLoggedAndTheWorkerGoesOnWithTheNext) {
  CapturedLog log;
  Recorder w;
  w.bad = 2;
  for (int i = 1; i <= 4; ++i) w.Add(i);
  w.WaitIdle();
  EXPECT_EQ(w.Done(), (std::vector<int>{1, 3, 4}));
  EXPECT_FALSE(w.Stop());  // the thread ends with result false
  EXPECT_EQ(log.str(), "\nthread error: bad item 2");
}

TEST(WorkThread, TakingTheNextItemClearsTheInterrupt) {
  Recorder w;
  w.hold = 0;
  w.Add(0);
  w.holding.wait();
  w.Add(1);
  w.Interrupt();
  EXPECT_TRUE(w.IsInterrupted());
  w.gate.set();
  w.WaitIdle();
  EXPECT_FALSE(w.IsInterrupted());
  EXPECT_EQ(w.InterruptedAtStart(), (std::vector<bool>{false, false}));
}

}  // namespace
