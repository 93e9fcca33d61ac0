// SPDX-License-Identifier: GPL-3.0-or-later
// The process-wide frame cache and its prefetcher.
//
// One cache holds the decoded frames of every thread of the program; it
// reads files through the multi-format reader. Its quota starts at half of
// physical memory (the "CacheMemoryQuota" preference, 500 thousandths,
// changes it through set_quota).
#pragma once

#include "imaging/cache.h"
#include "imaging/prefetcher.h"

namespace img {

// The default share of physical memory for the cache, in thousandths.
constexpr unsigned kDefaultCacheQuotaThousandths = 500;

// Built on first use; lives until the program ends.
Cache& global_cache();

// The read-ahead worker over global_cache(), started on first use. It is
// destroyed before the cache it feeds.
CPrefetcher& global_prefetcher();

}  // namespace img
