// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/message_queue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>
#include <vector>

namespace app {
namespace {

using namespace std::chrono_literals;

// Records (thread, sequence number) on the pumping thread; `log` is only
// touched there, so a race shows up under the thread sanitizer.
struct Recorded : VLMessage {
  Recorded(std::vector<std::pair<int, int>>& log, int thread, int number)
      : log(log), thread(thread), number(number) {}
  void Execute() override { log.emplace_back(thread, number); }
  std::vector<std::pair<int, int>>& log;
  int thread, number;
};

struct Lambda : VLMessage {
  explicit Lambda(std::function<void()> body) : body(std::move(body)) {}
  void Execute() override { body(); }
  std::function<void()> body;
};

TEST(MessageQueue, MessagesFromManyThreadsAllRunOnThePumpInEachSendersOrder) {
  constexpr int kThreads = 4;
  constexpr int kPerThread = 500;
  MessageQueue queue;
  std::vector<std::pair<int, int>> log;
  std::vector<std::thread> senders;
  for (int t = 0; t < kThreads; ++t)
    senders.emplace_back([&, t] {
      for (int i = 0; i < kPerThread; ++i) queue.post(std::make_unique<Recorded>(log, t, i));
    });
  // Pump while the senders are still posting.
  const bool all = queue.pump_until([&] { return log.size() == kThreads * kPerThread; }, 30s);
  for (auto& s : senders) s.join();
  ASSERT_TRUE(all);
  EXPECT_EQ(queue.pump(), 0u);

  std::vector<int> next(kThreads, 0);
  for (const auto& [thread, number] : log) {
    ASSERT_EQ(number, next[thread]) << "thread " << thread << " out of order";
    ++next[thread];
  }
}

TEST(MessageQueue, MessagePostedByAMessageRunsInTheSamePump) {
  MessageQueue queue;
  std::vector<int> order;
  queue.post(std::make_unique<Lambda>([&] {
    order.push_back(1);
    queue.post(std::make_unique<Lambda>([&] { order.push_back(3); }));
  }));
  queue.post(std::make_unique<Lambda>([&] { order.push_back(2); }));
  EXPECT_EQ(queue.pump(), 3u);
  EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
}

TEST(MessageQueue, ThrowingMessageIsDestroyedAndLaterOnesWait) {
  MessageQueue queue;
  int destroyed = 0;
  struct Counted : Lambda {
    Counted(int& destroyed, std::function<void()> body) : Lambda(std::move(body)), d(destroyed) {}
    ~Counted() override { ++d; }
    int& d;
  };
  bool later_ran = false;
  queue.post(std::make_unique<Counted>(destroyed, [] { throw std::runtime_error("boom"); }));
  queue.post(std::make_unique<Counted>(destroyed, [&] { later_ran = true; }));
  EXPECT_THROW(queue.pump(), std::runtime_error);
  EXPECT_EQ(destroyed, 1);
  EXPECT_FALSE(later_ran);
  EXPECT_EQ(queue.pending(), 1u);
  EXPECT_EQ(queue.pump(), 1u);
  EXPECT_TRUE(later_ran);
  EXPECT_EQ(destroyed, 2);
}

TEST(MessageQueue, PumpUntilSeesStateChangedWithoutAPost) {
  MessageQueue queue;
  std::atomic<bool> idle{false};
  std::thread worker([&] {
    std::this_thread::sleep_for(20ms);
    idle = true;
  });
  EXPECT_TRUE(queue.pump_until([&] { return idle.load(); }, 30s));
  worker.join();
  EXPECT_FALSE(queue.pump_until([] { return false; }, 10ms));
}

}  // namespace
}  // namespace app
