// SPDX-License-Identifier: GPL-3.0-or-later
// The cache's hit path: one acquire and one release of a frame that is
// already decoded, with a few hundred other frames in the list. The list is
// scanned linearly; with touch the wanted frame sits at the front after the
// first hit, without touch it stays where it was inserted, at the back.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>

#include "imaging/cache.h"

namespace {

void CacheHit(benchmark::State& state) {
  const int others = int(state.range(0));
  const bool touch = state.range(1) != 0;
  img::Cache cache([](const std::string&, img::image& out) { out.resize(8, 8, 4); }, int64_t(1)
                                                                                         << 40);
  // Names as long as real frame paths, so that key comparisons are not
  // flattered by short strings.
  const std::string wanted = "/home/user/shots/plate_a/plate_a_000001.tga";
  cache.release(cache.acquire_file(wanted, true));
  for (int i = 0; i < others; ++i)
    cache.release(
        cache.acquire_file("/home/user/shots/plate_a/other_" + std::to_string(i) + ".tga", true));
  for (auto _ : state) {
    img::CacheEntry* entry = cache.acquire_file(wanted, touch);
    benchmark::DoNotOptimize(entry);
    cache.release(entry);
  }
}
BENCHMARK(CacheHit)->ArgsProduct({{0, 500}, {1, 0}})->ArgNames({"others", "touch"});

}  // namespace
