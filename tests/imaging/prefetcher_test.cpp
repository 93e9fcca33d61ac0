#include "imaging/prefetcher.h"

#include <chrono>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "base/events.h"
#include "imaging/cache.h"
#include "imaging/fake_files.h"

namespace {

using testing_support::Eventually;
using testing_support::FakeFiles;

TEST(PrefetchQueue, KeepsEightDistinctNamesDroppingTheOldest) {
  struct Case {
    const char* what;
    std::vector<std::string> added;
    std::vector<std::string> queued;
  };
  const Case cases[] = {
      {"empty name skipped", {"a", "", "b"}, {"a", "b"}},
      {"duplicate skipped, order kept", {"a", "b", "a"}, {"a", "b"}},
      {"eight fit",
       {"1", "2", "3", "4", "5", "6", "7", "8"},
       {"1", "2", "3", "4", "5", "6", "7", "8"}},
      {"ninth drops the oldest",
       {"1", "2", "3", "4", "5", "6", "7", "8", "9"},
       {"2", "3", "4", "5", "6", "7", "8", "9"}},
      {"duplicate of a full queue drops nothing",
       {"1", "2", "3", "4", "5", "6", "7", "8", "1"},
       {"1", "2", "3", "4", "5", "6", "7", "8"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    img::CPrefetchQueue q;
    for (const std::string& name : c.added) q.add(name);
    EXPECT_EQ(std::vector<std::string>(q.names().begin(), q.names().end()), c.queued);
  }
}

TEST(Prefetcher, DecodesAheadAndGoesOnPastAFailure) {
  std::ostringstream log;
  std::streambuf* old_log = std::clog.rdbuf(log.rdbuf());
  FakeFiles files;
  files.hook = [](const std::string& name, int) {
    if (name == "missing") throw std::runtime_error("cannot open missing");
  };
  img::Cache cache(files.loader(), 10 * FakeFiles::kFrameBytes);
  {
    img::CPrefetcher prefetcher(cache);
    for (const char* name : {"a", "missing", "b"}) prefetcher.Add(name);
    prefetcher.WaitIdle();
  }
  std::clog.rdbuf(old_log);
  EXPECT_EQ(log.str(), "\nthread error: cannot open missing");
  EXPECT_EQ(cache.entry_count(), 2u);
  for (const char* name : {"a", "b"}) {
    cache.release(cache.acquire_file(name, true));
    EXPECT_EQ(files.decodes(name), 1) << name;
  }
}

TEST(Prefetcher, PassesOverAFrameThatIsBeingDecoded) {
  FakeFiles files;
  sys::ManualResetEvent gate;
  files.hook = [&](const std::string& name, int) {
    if (name == "busy") gate.wait();
  };
  img::Cache cache(files.loader(), 10 * FakeFiles::kFrameBytes);
  std::thread reader([&] { cache.release(cache.acquire_file("busy", true)); });
  ASSERT_TRUE(Eventually([&] { return cache.is_loading("busy"); }));
  {
    img::CPrefetcher prefetcher(cache);
    prefetcher.Add("busy");
    // Waiting for the decode would keep the prefetcher busy until the gate opens.
    EXPECT_TRUE(prefetcher.WaitIdleFor(std::chrono::seconds(10)));
  }
  gate.set();
  reader.join();
  EXPECT_EQ(files.decodes("busy"), 1);
}

}  // namespace
