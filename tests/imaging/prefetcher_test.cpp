// SPDX-License-Identifier: GPL-3.0-or-later
#include "imaging/prefetcher.h"

#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "imaging/cache.h"
#include "imaging/fake_files.h"

namespace {

using testing_support::FakeFiles;

TEST(PrefetchQueue, KeepsEightDistinctNamesDroppingTheOldest) {
  using Names = std::vector<std::string>;
  const std::pair<Names, Names> cases[] = {
      {{"a", "", "b", "a"}, {"a", "b"}},  // empty and repeated names are skipped
      {{"1", "2", "3", "4", "5", "6", "7", "8"}, {"1", "2", "3", "4", "5", "6", "7", "8"}},
      {{"1", "2", "3", "4", "5", "6", "7", "8", "9"}, {"2", "3", "4", "5", "6", "7", "8", "9"}},
      {{"1", "2", "3", "4", "5", "6", "7", "8", "1"}, {"1", "2", "3", "4", "5", "6", "7", "8"}},
  };
  for (const auto& [added, queued] : cases) {
    img::CPrefetchQueue q;
    for (const std::string& name : added) q.add(name);
    EXPECT_EQ(Names(q.names().begin(), q.names().end()), queued);
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

}  // namespace
