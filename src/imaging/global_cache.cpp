// SPDX-License-Identifier: GPL-3.0-or-later
#include "imaging/global_cache.h"

#include "imaging/multi_io.h"

namespace img {

Cache& global_cache() {
  static Cache cache(
      [](const std::string& name, image& out) { multi_reader().read(name, out); },
      int64_t(double(Cache::physical_memory()) * (kDefaultCacheQuotaThousandths * 0.001)));
  return cache;
}

CPrefetcher& global_prefetcher() {
  // Naming the cache first makes it older than the prefetcher, so the
  // prefetcher (which holds a reference to it) is destroyed first.
  Cache& cache = global_cache();
  static CPrefetcher prefetcher(cache);
  return prefetcher;
}

}  // namespace img
