#include "base/thread.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "base/events.h"

namespace {

using std::chrono::nanoseconds;

TEST(Events, ManualResetStaysSignalledAutoResetReleasesOnce) {
  sys::ManualResetEvent manual(true);
  EXPECT_TRUE(manual.wait_for(nanoseconds(0)));
  EXPECT_TRUE(manual.wait_for(nanoseconds(0)));
  manual.reset();
  EXPECT_FALSE(manual.wait_for(nanoseconds(0)));

  sys::AutoResetEvent automatic;
  EXPECT_FALSE(automatic.wait_for(nanoseconds(0)));
  automatic.set();
  automatic.set();  // a second set before the wait is not counted
  EXPECT_TRUE(automatic.wait_for(nanoseconds(0)));
  EXPECT_FALSE(automatic.wait_for(nanoseconds(0)));
  automatic.set();
  automatic.reset();
  EXPECT_FALSE(automatic.wait_for(nanoseconds(0)));
}

TEST(Events, ManualResetReleasesEveryWaiter) {
  sys::ManualResetEvent event;
  std::atomic<int> woken{0};
  std::vector<std::thread> waiters;
  for (int i = 0; i < 3; ++i)
    waiters.emplace_back([&] {
      event.wait();
      ++woken;
    });
  event.set();
  for (auto& t : waiters) t.join();
  EXPECT_EQ(woken, 3);
}

// Runs a scripted body: each run takes the next outcome, true for return
// and false for a throw.
class Scripted : public sys::thread {
 public:
  Scripted(std::vector<bool> outcomes, bool restart) : outcomes_(std::move(outcomes)) {
    SetRestart(restart);
  }
  ~Scripted() override {
    gate.set();
    if (IsStarted()) Wait();
  }

  sys::ManualResetEvent gate{true};
  sys::ManualResetEvent running;
  std::vector<std::string> errors;  // the thread's own until it ends
  int runs = 0;
  int nice_seen = 0;

 protected:
  void Run() override {
    const int run = runs++;
    running.set();
    gate.wait();
    nice_seen = getpriority(PRIO_PROCESS, static_cast<id_t>(gettid()));
    if (run < int(outcomes_.size()) && !outcomes_[size_t(run)])
      throw std::runtime_error("run " + std::to_string(run) + " failed");
  }
  void OnError(const char* text) override { errors.emplace_back(text); }

 private:
  std::vector<bool> outcomes_;
};

TEST(Thread, StartsOnlyAtResumeAndReportsItsEnd) {
  Scripted t({true}, false);
  t.gate.reset();
  EXPECT_FALSE(t.HasEnded());
  EXPECT_FALSE(t.running.wait_for(std::chrono::milliseconds(20)));
  t.Resume();
  t.running.wait();
  EXPECT_FALSE(t.HasEnded());
  t.gate.set();
  EXPECT_TRUE(t.Wait());
  EXPECT_TRUE(t.HasEnded());
  EXPECT_EQ(t.runs, 1);
  EXPECT_TRUE(t.errors.empty());
}

TEST(Thread, FailedBodyReportsAndRestartsOnlyWithTheFlag) {
  struct Case {
    bool restart;
    int runs;
    std::vector<std::string> errors;
  };
  const Case cases[] = {
      {false, 1, {"run 0 failed"}},
      {true, 3, {"run 0 failed", "run 1 failed"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.restart ? "restart" : "no restart");
    Scripted t({false, false, true}, c.restart);
    t.Resume();
    // Once a run has failed the result stays false, even after a good run.
    EXPECT_FALSE(t.Wait());
    EXPECT_EQ(t.runs, c.runs);
    EXPECT_EQ(t.errors, c.errors);
  }
}

TEST(Thread, BelowNormalPriorityRaisesTheThreadsNiceValueOnly) {
  const int own = getpriority(PRIO_PROCESS, static_cast<id_t>(gettid()));
  const int expected = std::min(own + sys::thread::kBelowNormalNiceStep, 19);
  for (bool before_resume : {true, false}) {
    SCOPED_TRACE(before_resume ? "before Resume" : "while running");
    Scripted t({true}, false);
    t.gate.reset();
    if (before_resume) t.SetBelowNormalPriority();
    t.Resume();
    t.running.wait();
    if (!before_resume) t.SetBelowNormalPriority();
    t.SetBelowNormalPriority();  // applied once, not twice
    t.gate.set();
    t.Wait();
    EXPECT_EQ(t.nice_seen, expected);
  }
  EXPECT_EQ(getpriority(PRIO_PROCESS, static_cast<id_t>(gettid())), own);
}

}  // namespace
