// SPDX-License-Identifier: GPL-3.0-or-later
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
using testing_support::Eventually;
using testing_support::FakeFiles;
constexpr int64_t kFrame = FakeFiles::kFrameBytes;

// A frame in use outlives a quota below its size and leaves on release; a
// quota from physical memory is 64-bit.
TEST(Cache, HeldFramesCountAgainstTheQuota) {
  FakeFiles files;
  Cache cache(files.loader(), kFrame / 4);
  CacheEntry* e = cache.acquire_file("a", true);
  EXPECT_TRUE(FakeFiles::Holds(e, "a"));
  EXPECT_EQ(cache.free_bytes(), kFrame / 4 - kFrame);
  cache.set_quota(0.75f);
  const double physical = double(Cache::physical_memory());
  EXPECT_NEAR(double(cache.quota()), physical * 0.75, physical * 1e-6);
  EXPECT_EQ(cache.free_bytes(), cache.quota() - kFrame);
  cache.set_quota_bytes(kFrame / 4);
  cache.release(e);
  EXPECT_EQ(cache.entry_count(), 0u);
  EXPECT_EQ(cache.free_bytes(), kFrame / 4);
}

TEST(Cache, EvictionTakesTheBackEndFirst) {
  struct Case {
    std::vector<std::pair<const char*, bool>> fetches;  // name, touch; each released at once
    const char* survivor;
    const char* evicted;  // when "c" comes in
  };
  const Case cases[] = {
      {{{"a", true}, {"b", false}}, "a", "b"},  // a new frame without touch goes to the back
      {{{"a", true}, {"b", true}}, "b", "a"},
      {{{"a", true}, {"b", true}, {"a", true}}, "a", "b"},  // a hit with touch moves up
      {{{"a", true}, {"b", true}, {"a", false}}, "b", "a"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.fetches));
    FakeFiles files;
    Cache cache(files.loader(), 2 * kFrame);
    for (const auto& [name, touch] : c.fetches) cache.release(cache.acquire_file(name, touch));
    cache.release(cache.acquire_file("c", true));
    EXPECT_EQ(cache.free_bytes(), 0);
    cache.release(cache.acquire_file(c.survivor, true));
    EXPECT_EQ(files.decodes(c.survivor), 1);
    cache.release(cache.acquire_file(c.evicted, true));
    EXPECT_EQ(files.decodes(c.evicted), 2);
  }
}

// A frame streaming through a full cache decodes into the pixels of the one
// it pushed out, and still holds its own picture.
TEST(Cache, NextDecodeReusesAnEvictedPicture) {
  FakeFiles files;
  Cache cache(files.loader(), kFrame);
  CacheEntry* a = cache.acquire_file("a", true);
  const uint8_t* pixels = a->image.data;
  cache.release(a);
  cache.release(cache.acquire_file("b", true));  // evicts "a"
  CacheEntry* c = cache.acquire_file("c", true);
  EXPECT_EQ(c->image.data, pixels);
  EXPECT_TRUE(FakeFiles::Holds(c, "c"));
  cache.release(c);
  EXPECT_EQ(cache.free_bytes(), 0);
}

TEST(Cache, PurgeKeepsOnlyWhatIsHeld) {
  FakeFiles files;
  Cache cache(files.loader(), 10 * kFrame);
  CacheEntry* held = cache.acquire_file("held", true);
  for (const char* name : {"x", "y"}) cache.release(cache.acquire_file(name, true));
  cache.purge();
  EXPECT_EQ(cache.entry_count(), 1u);
  EXPECT_EQ(cache.free_bytes(), 9 * kFrame);
  EXPECT_EQ(cache.acquire_file("held", false), held);
  EXPECT_EQ(files.decodes("held"), 1);
}

TEST(Cache, ReleasingAnEntryNotHeldIsABadRelease) {
  // quota, acquires of "a" each released: the next release is one too many.
  for (const auto& [quota, acquires] : {std::pair{0 * kFrame, 1}, {kFrame, 1}, {kFrame, 2}}) {
    FakeFiles files;
    Cache cache(files.loader(), quota);
    CacheEntry* e = nullptr;
    for (int i = 0; i < acquires; ++i) e = cache.acquire_file("a", true);
    for (int i = 0; i < acquires; ++i) cache.release(e);
    EXPECT_THAT([&] { cache.release(e); },
                testing::ThrowsMessage<std::runtime_error>("bad release"));
    EXPECT_EQ(cache.free_bytes(), quota - int64_t(cache.entry_count()) * kFrame);
  }
}

TEST(Cache, FailedDecodeWakesEveryWaiterToFailOnItsOwn) {
  FakeFiles files;
  Cache cache(files.loader(), kFrame);
  files.hook = [&](const std::string& name, int decode) {
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
  EXPECT_TRUE(Eventually([&] { return cache.is_loading("broken"); }));
  threads.emplace_back(ask, 1);
  threads.emplace_back(ask, 2);
  for (auto& t : threads) t.join();
  EXPECT_EQ(errors[0], "cannot read broken #1");
  EXPECT_EQ(std::set<std::string>(errors.begin() + 1, errors.end()),
            (std::set<std::string>{"cannot read broken #2", "cannot read broken #3"}));
  EXPECT_FALSE(cache.is_loading("broken"));
  EXPECT_EQ(cache.entry_count(), 0u);
  EXPECT_EQ(cache.free_bytes(), kFrame);
}

TEST(Cache, OneDecodePerFileWhileDifferentFilesDecodeTogether) {
  FakeFiles files;
  Cache cache(files.loader(), 10 * kFrame);
  const std::string names[] = {"left", "right"};
  std::atomic<int> decoding{0};
  std::atomic<bool> overlapped{false};
  files.hook = [&](const std::string&, int) {
    // Both decodes hold on until they run together with the six other
    // threads waiting; whichever sees that first tells the other, whose
    // waiters may have left by the time it looks.
    ++decoding;
    if (!Eventually([&] {
          if (decoding == 2 && cache.waiters() == 6) overlapped = true;
          return overlapped.load();
        }))
      throw std::runtime_error("decodes did not overlap");
  };
  std::vector<CacheEntry*> got(8, nullptr);
  std::vector<std::thread> threads;
  for (size_t i = 0; i < got.size(); ++i)
    threads.emplace_back([&, i] { got[i] = cache.acquire_file(names[i % 2], true); });
  for (auto& t : threads) t.join();
  for (size_t i = 0; i < got.size(); ++i) {
    EXPECT_TRUE(FakeFiles::Holds(got[i], names[i % 2]));
    EXPECT_EQ(got[i], got[i % 2]);
    cache.release(got[i]);
  }
  EXPECT_EQ(files.decodes("left") + files.decodes("right"), 2);
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
      img::CacheHandle handles[2] = {img::CacheHandle(cache), img::CacheHandle(cache)};
      for (int i = 0; i < 300; ++i) {
        const std::string name = "frame" + std::to_string(random() % 12);
        handles[i % 2].acquire_file(name, random() % 2 == 0);  // gives the older one back
        if (!FakeFiles::Holds(handles[i % 2].entry(), name)) wrong = true;
      }
      --running;
    });
  for (int i = 0; running > 0; ++i) {
    if (i % 4 == 3)
      cache.purge();
    else
      cache.set_quota_bytes(int64_t(i % 3) * 3 * kFrame);
    std::this_thread::yield();
  }
  for (auto& t : users) t.join();
  EXPECT_FALSE(wrong) << "a holder saw a frame that was not its own";
  const int64_t held = int64_t(cache.entry_count()) * kFrame;
  EXPECT_EQ(cache.free_bytes(), cache.quota() - held);
  EXPECT_LE(held, cache.quota());
}

}  // namespace
