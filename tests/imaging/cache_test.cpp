#include "imaging/cache.h"

#include <atomic>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "imaging/fake_files.h"

namespace {

using img::Cache;
using img::CacheEntry;
using img::CacheHandle;
using testing_support::Eventually;
using testing_support::FakeFiles;
constexpr int64_t kFrame = FakeFiles::kFrameBytes;

TEST(Cache, FrameInUseOutlivesAQuotaBelowOneFrameAndLeavesOnRelease) {
  FakeFiles files;
  Cache cache(files.loader(), kFrame / 4);
  CacheEntry* e = cache.acquire_file("a", true);
  EXPECT_TRUE(FakeFiles::Holds(e, "a"));
  EXPECT_EQ(cache.entry_count(), 1u);
  EXPECT_EQ(cache.free_bytes(), kFrame / 4 - kFrame);
  cache.release(e);
  EXPECT_EQ(cache.entry_count(), 0u);
  EXPECT_EQ(cache.free_bytes(), kFrame / 4);
  cache.release(cache.acquire_file("a", true));
  EXPECT_EQ(files.decodes("a"), 2);
}

TEST(Cache, EvictionTakesTheBackEndFirst) {
  struct Fetch {
    const char* name;
    bool touch;
  };
  struct Case {
    const char* what;
    std::vector<Fetch> fetches;  // each released at once, then "c" comes in
    const char* survivor;
    const char* evicted;
  };
  const Case cases[] = {
      {"new frame without touch goes to the back", {{"a", true}, {"b", false}}, "a", "b"},
      {"new frame with touch goes to the front", {{"a", true}, {"b", true}}, "b", "a"},
      {"hit with touch moves to the front", {{"a", true}, {"b", true}, {"a", true}}, "a", "b"},
      {"hit without touch stays", {{"a", true}, {"b", true}, {"a", false}}, "b", "a"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    FakeFiles files;
    Cache cache(files.loader(), 2 * kFrame);
    for (const Fetch& f : c.fetches) cache.release(cache.acquire_file(f.name, f.touch));
    cache.release(cache.acquire_file("c", true));
    EXPECT_EQ(cache.entry_count(), 2u);
    EXPECT_EQ(cache.free_bytes(), 0);
    cache.release(cache.acquire_file(c.survivor, true));
    EXPECT_EQ(files.decodes(c.survivor), 1);
    cache.release(cache.acquire_file(c.evicted, true));
    EXPECT_EQ(files.decodes(c.evicted), 2);
  }
}

TEST(Cache, PurgeKeepsOnlyWhatIsHeld) {
  FakeFiles files;
  Cache cache(files.loader(), 10 * kFrame);
  CacheEntry* held = cache.acquire_file("held", true);
  for (const char* name : {"x", "y", "z"}) cache.release(cache.acquire_file(name, true));
  cache.purge();
  EXPECT_EQ(cache.entry_count(), 1u);
  EXPECT_EQ(cache.quota(), 10 * kFrame);
  EXPECT_EQ(cache.free_bytes(), 9 * kFrame);
  EXPECT_TRUE(FakeFiles::Holds(held, "held"));
  EXPECT_EQ(cache.acquire_file("held", false), held);  // found, not decoded again
  EXPECT_EQ(files.decodes("held"), 1);
  cache.release(held);
  cache.release(held);
  cache.release(cache.acquire_file("x", true));
  EXPECT_EQ(files.decodes("x"), 2);
}

TEST(Cache, ReleaseOfAnEntryNotHeldIsABadRelease) {
  using ::testing::ThrowsMessage;
  struct Case {
    const char* what;
    int64_t quota;  // 0: released entries are destroyed at once
    int acquires;
  };
  const Case cases[] = {
      {"second release after the entry was destroyed", 0, 1},
      {"second release of an entry still cached", 10 * kFrame, 1},
      {"third release of an entry acquired twice", 10 * kFrame, 2},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    FakeFiles files;
    Cache cache(files.loader(), c.quota);
    CacheEntry* e = nullptr;
    for (int i = 0; i < c.acquires; ++i) e = cache.acquire_file("a", true);
    for (int i = 0; i < c.acquires; ++i) cache.release(e);
    const int64_t free_before = cache.free_bytes();
    EXPECT_THAT([&] { cache.release(e); }, ThrowsMessage<std::runtime_error>("bad release"));
    EXPECT_EQ(cache.free_bytes(), free_before);
  }
  FakeFiles files;
  Cache cache(files.loader(), kFrame);
  CacheEntry stranger;
  EXPECT_THAT([&] { cache.release(&stranger); }, ThrowsMessage<std::runtime_error>("bad release"));
}

TEST(Cache, FailedDecodeWakesEveryWaiterToFailOnItsOwn) {
  FakeFiles files;
  Cache cache(files.loader(), 10 * kFrame);
  files.hook = [&](const std::string& name, int decode) {
    // The first decode fails only once two more threads wait for it.
    if (decode == 1 && !Eventually([&] { return cache.waiters() == 2; }))
      throw std::runtime_error("waiters never came");
    throw std::runtime_error("cannot read " + name + " #" + std::to_string(decode));
  };
  std::vector<std::string> errors(3);
  auto ask = [&](size_t i) {
    try {
      cache.acquire_file("broken", true);
    } catch (const std::exception& e) {
      errors[i] = e.what();
    }
  };
  std::vector<std::thread> threads;
  threads.emplace_back(ask, 0);
  ASSERT_TRUE(Eventually([&] { return cache.is_loading("broken"); }));
  threads.emplace_back(ask, 1);
  threads.emplace_back(ask, 2);
  for (auto& t : threads) t.join();

  EXPECT_EQ(errors[0], "cannot read broken #1");
  EXPECT_EQ(std::set<std::string>(errors.begin() + 1, errors.end()),
            (std::set<std::string>{"cannot read broken #2", "cannot read broken #3"}));
  EXPECT_FALSE(cache.is_loading("broken"));
  EXPECT_EQ(cache.entry_count(), 0u);
  EXPECT_EQ(cache.free_bytes(), 10 * kFrame);
  EXPECT_EQ(cache.waiters(), 0u);
}

TEST(Cache, OneDecodePerFileWhileDifferentFilesDecodeTogether) {
  FakeFiles files;
  Cache cache(files.loader(), 10 * kFrame);
  constexpr int kPerName = 4;
  const std::vector<std::string> names = {"left", "right"};
  std::atomic<int> decoding{0};
  std::atomic<bool> overlapped{false};
  files.hook = [&](const std::string&, int) {
    // Each decode holds on until the other file decodes too and every other
    // asking thread waits: a cache that decoded one file at a time, or let
    // a second decode of the same file start, never gets there. The first
    // decode to see it tells the other, whose waiters may leave before it looks.
    ++decoding;
    const size_t others = names.size() * (kPerName - 1);
    if (!Eventually([&] {
          if (decoding == 2 && cache.waiters() == others) overlapped = true;
          return overlapped.load();
        }))
      throw std::runtime_error("decodes did not overlap");
  };
  std::vector<CacheEntry*> got(names.size() * kPerName, nullptr);
  std::vector<std::string> errors(got.size());
  std::vector<std::thread> threads;
  for (size_t i = 0; i < got.size(); ++i)
    threads.emplace_back([&, i] {
      try {
        got[i] = cache.acquire_file(names[i % names.size()], true);
      } catch (const std::exception& e) {
        errors[i] = e.what();
      }
    });
  for (auto& t : threads) t.join();

  for (size_t i = 0; i < got.size(); ++i) {
    const std::string& name = names[i % names.size()];
    EXPECT_EQ(errors[i], "");
    EXPECT_TRUE(FakeFiles::Holds(got[i], name)) << name;
    EXPECT_EQ(got[i], got[i % names.size()]) << "one entry per file";
  }
  for (const std::string& name : names) EXPECT_EQ(files.decodes(name), 1) << name;
  EXPECT_EQ(cache.entry_count(), 2u);
  for (CacheEntry* e : got)
    if (e) cache.release(e);
  EXPECT_EQ(cache.free_bytes(), 8 * kFrame);
}

TEST(Cache, StaysConsistentWhileQuotaChangesUnderConcurrentUse) {
  FakeFiles files;
  Cache cache(files.loader(), 4 * kFrame);
  std::atomic<bool> wrong{false};
  std::atomic<int> running{4};
  std::vector<std::thread> users;
  for (int t = 0; t < 4; ++t)
    users.emplace_back([&, t] {
      std::mt19937 random{unsigned(t)};
      CacheHandle first(cache), second(cache);
      for (int i = 0; i < 300; ++i) {
        const std::string name = "frame" + std::to_string(random() % 12);
        CacheHandle& h = (i % 2) ? first : second;
        h.acquire_file(name, random() % 2 == 0);
        if (!FakeFiles::Holds(h.entry(), name)) wrong = true;
      }
      --running;
    });
  std::thread owner([&] {
    const int64_t quotas[] = {0, 3 * kFrame, 8 * kFrame};
    for (int i = 0; running > 0; ++i) {
      if (i % 4 == 3)
        cache.purge();
      else
        cache.set_quota_bytes(quotas[i % 3]);
      std::this_thread::yield();
    }
  });
  for (auto& t : users) t.join();
  owner.join();

  EXPECT_FALSE(wrong) << "a holder saw a frame that was not its own";
  const int64_t held = int64_t(cache.entry_count()) * kFrame;
  EXPECT_EQ(cache.free_bytes(), cache.quota() - held);
  EXPECT_LE(held, std::max<int64_t>(cache.quota(), 0));
  cache.set_quota_bytes(kFrame);
  EXPECT_LE(cache.entry_count(), 1u);
  EXPECT_EQ(cache.free_bytes(), kFrame - int64_t(cache.entry_count()) * kFrame);
}

TEST(Cache, QuotaFromPhysicalMemoryIs64Bit) {
  FakeFiles files;
  Cache cache(files.loader(), 0);
  CacheEntry* e = cache.acquire_file("a", true);
  cache.set_quota(0.75f);
  const double physical = double(Cache::physical_memory());
  EXPECT_NEAR(double(cache.quota()), physical * 0.75, physical * 1e-6);
  EXPECT_EQ(cache.free_bytes(), cache.quota() - kFrame);
  cache.release(e);
  EXPECT_EQ(cache.entry_count(), 1u);  // under quota now: it stays
}

TEST(CacheHandle, HoldsOneReferenceAtATime) {
  FakeFiles files;
  Cache cache(files.loader(), 0);  // anything released leaves at once
  CacheHandle h(cache);
  h.acquire_file("a", true);
  h.acquire_file("b", true);  // gives "a" back first
  EXPECT_EQ(cache.entry_count(), 1u);
  EXPECT_TRUE(FakeFiles::Holds(h.entry(), "b"));

  CacheHandle moved(std::move(h));
  EXPECT_FALSE(h);
  h.release();  // empty: nothing happens
  EXPECT_EQ(cache.entry_count(), 1u);

  files.hook = [](const std::string& name, int) {
    if (name == "bad") throw std::runtime_error("cannot read bad");
  };
  EXPECT_THROW(moved.acquire_file("bad", true), std::runtime_error);
  EXPECT_FALSE(moved);
  EXPECT_EQ(cache.entry_count(), 0u);
  {
    CacheHandle scoped(cache);
    scoped.acquire_file("c", true);
    EXPECT_EQ(cache.entry_count(), 1u);
  }
  EXPECT_EQ(cache.entry_count(), 0u);
  EXPECT_EQ(cache.free_bytes(), 0);
}

}  // namespace
