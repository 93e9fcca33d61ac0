// The frame cache: decoded frames shared by every thread that wants them.
//
// The cache keeps a quota in bytes and never takes away a frame in use, so
// the quota is soft: `free_bytes` may go negative while frames are held, and
// the surplus leaves as soon as they are released. One file is decoded at
// most once at a time: a second thread asking for a frame that is being
// decoded waits for the first; different files decode in parallel. Decoding
// runs outside the lock, which covers list work only and is a leaf: nothing
// else is locked under it, and the loader is never called with it held.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "imaging/bitmap.h"
#include "imaging/merge_details.h"

namespace img {

// What an entry holds: nothing (tag 0), the decoded picture of one file, by
// its name as given (tag 1), or a composite keyed by an owned copy of its
// complete description (tag 2).
using CacheKey = std::variant<std::monostate, std::string, MergeDetails>;

// Whether `key` is found by a lookup of the file `name` (a key of tag 1). A
// composite that only reproduces a file (is_plain_file) matches that file's
// name.
bool key_matches_file(const CacheKey& key, std::string_view name);
// Key equality: different tags are unequal (save the file-against-composite
// rule above), tag 0 equals tag 0, names compare byte for byte, composites
// by MergeDetails' own equality.
bool keys_equal(const CacheKey& a, const CacheKey& b);

struct CacheEntry {
  CacheKey key;
  // Shared by every holder: read it, never change it. Its `size` is the
  // entry's charge against the quota.
  img::image image;
};

class Cache {
 public:
  // Decodes the named file into `out`, throwing what the readers throw.
  // Called on the asking thread, without the cache's lock, concurrently for
  // different names.
  using FileLoader = std::function<void(const std::string& name, img::image& out)>;

  // The quota starts at `quota_bytes`.
  Cache(FileLoader loader, int64_t quota_bytes);
  // Waits until no decode or composite is under way, then destroys every entry, whatever
  // its references. No thread may still ask for frames.
  ~Cache();
  Cache(const Cache&) = delete;
  Cache& operator=(const Cache&) = delete;

  // Returns the entry of the file with one more reference, decoding it if
  // it is not held. `touch` moves a found entry to the most recent end and
  // puts a new one there; without it a new entry goes to the end that is
  // evicted first. May block while another thread decodes the same file.
  // A failed decode throws the loader's exception and records nothing, so a
  // later request tries again.
  CacheEntry* acquire_file(const std::string& name, bool touch);

  // The same for a composite: one thread composites (make_composite, outside
  // the lock) while others asking for equal details wait. Details that are a
  // plain file are acquire_file of the underlay's name. Returns null when
  // `cancel` stopped the composite; nothing is inserted then.
  CacheEntry* acquire_merge(const MergeDetails& details,
                            bool touch,
                            const std::atomic<bool>* cancel);

  // Whether the composite (or the plain file) is held; a hit moves to the
  // most recent end.
  bool contains(const MergeDetails& details);

  // Destroys every composite nobody holds that shows `mask`: after an edit
  // of the mask they must not be found again.
  void discard_merges_of_mask(const bitmap<bit1>* mask);

  // Gives back one reference. An entry that drops to no references while
  // the cache is over quota is destroyed at once. Throws runtime_error
  // "bad release" for an entry that is not held (a program fault).
  void release(CacheEntry* entry);

  // Whether some thread is decoding the file right now.
  bool is_loading(const std::string& name) const;

  // The quota becomes `fraction` of physical memory, computed in float and
  // truncated. Entries over the new quota that nobody holds are evicted.
  void set_quota(float fraction);
  void set_quota_bytes(int64_t quota_bytes);

  // Evicts everything that nobody holds.
  void purge();

  int64_t quota() const;
  // The quota less the sizes of all held images; negative when over quota.
  int64_t free_bytes() const;
  size_t entry_count() const;
  // Threads blocked until another thread's decode ends (for diagnostics).
  size_t waiters() const;

  // Installed physical memory in bytes. Throws SystemError if the system
  // cannot tell.
  static uint64_t physical_memory();

 private:
  struct Node {
    std::unique_ptr<CacheEntry> entry;
    uint32_t references = 0;
  };
  using NodeList = std::list<Node>;

  // All below run under the lock. Removed nodes are spliced into `doomed`,
  // which the caller destroys after unlocking, so no image is freed under
  // the lock.
  CacheEntry* find_file(std::string_view name, bool touch);
  CacheEntry* find_merge(const MergeDetails& details, bool touch);
  CacheEntry* insert(std::unique_ptr<CacheEntry> entry,
                     bool add_reference,
                     bool to_front,
                     NodeList& doomed);
  void evict(NodeList& doomed);
  void remove(NodeList::iterator it, NodeList& doomed);

  const FileLoader loader_;

  mutable std::mutex mutex_;  // guards everything below
  int64_t quota_ = 0;
  int64_t free_bytes_ = 0;
  NodeList entries_;  // front: most recent; back: evicted first
  std::vector<std::string> loading_;
  std::condition_variable loaded_;  // broadcast whenever a decode ends
  std::list<MergeDetails> merging_;
  std::condition_variable merged_;  // broadcast whenever a composite ends
  size_t waiters_ = 0;
};

// Holds at most one reference into a cache and gives it back when it takes
// another, is released, or dies. Move-only.
class CacheHandle {
 public:
  explicit CacheHandle(Cache& cache) : cache_(&cache) {}
  ~CacheHandle() { release(); }
  CacheHandle(CacheHandle&& other) noexcept;
  CacheHandle& operator=(CacheHandle&& other) noexcept;
  CacheHandle(const CacheHandle&) = delete;
  CacheHandle& operator=(const CacheHandle&) = delete;

  // Releases what the handle held, then acquires the file. If the acquiring
  // throws, the handle is left empty.
  void acquire_file(const std::string& name, bool touch);
  // Releases, then acquires the composite; empty when it was cancelled.
  void acquire_merge(const MergeDetails& details, const std::atomic<bool>* cancel, bool touch);
  // Exchanges the held entries of two handles of the same cache.
  void swap(CacheHandle& other) noexcept;
  // Gives the reference back; an empty handle does nothing.
  void release();

  CacheEntry* entry() const { return entry_; }
  const img::image& image() const { return entry_->image; }
  explicit operator bool() const { return entry_ != nullptr; }

 private:
  Cache* cache_;
  CacheEntry* entry_ = nullptr;
};

}  // namespace img
