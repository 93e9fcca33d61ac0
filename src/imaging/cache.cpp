#include "imaging/cache.h"

#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "base/errors.h"
#include "imaging/merge.h"

namespace img {

bool key_matches_file(const CacheKey& key, std::string_view name) {
  if (const std::string* file = std::get_if<std::string>(&key)) return *file == name;
  if (const MergeDetails* details = std::get_if<MergeDetails>(&key))
    return is_plain_file(*details) && *details->underlay_file == name;
  return false;
}

bool keys_equal(const CacheKey& a, const CacheKey& b) {
  if (const std::string* name = std::get_if<std::string>(&b)) return key_matches_file(a, *name);
  if (const std::string* name = std::get_if<std::string>(&a)) return key_matches_file(b, *name);
  if (a.index() != b.index()) return false;
  if (const MergeDetails* details = std::get_if<MergeDetails>(&a))
    return *details == std::get<MergeDetails>(b);
  return true;  // both tag 0
}

Cache::Cache(FileLoader loader, int64_t quota_bytes)
    : loader_(std::move(loader)), quota_(quota_bytes), free_bytes_(quota_bytes) {}

Cache::~Cache() {
  std::unique_lock lock(mutex_);
  loaded_.wait(lock, [this] { return loading_.empty(); });
  merged_.wait(lock, [this] { return merging_.empty(); });
  entries_.clear();
}

CacheEntry* Cache::acquire_file(const std::string& name, bool touch) {
  NodeList doomed;  // destroyed after the lock below is released
  std::unique_lock lock(mutex_);
  for (;;) {
    if (CacheEntry* hit = find_file(name, touch)) return hit;
    if (std::find(loading_.begin(), loading_.end(), name) == loading_.end()) break;
    // Someone else decodes it. After every wake the lists are tested anew:
    // the decode may have failed, or the entry may already be gone again.
    ++waiters_;
    loaded_.wait(lock);
    --waiters_;
  }
  loading_.push_back(name);
  lock.unlock();

  auto entry = std::make_unique<CacheEntry>();
  try {
    entry->key = name;
    loader_(name, entry->image);
  } catch (...) {
    lock.lock();
    loading_.erase(std::find(loading_.begin(), loading_.end(), name));
    loaded_.notify_all();
    throw;
  }

  lock.lock();
  // The name leaves `loading` and the waiters wake before the insert, which
  // can fail for want of memory: a waiter then decodes for itself instead of
  // waiting for ever.
  loading_.erase(std::find(loading_.begin(), loading_.end(), name));
  loaded_.notify_all();
  return insert(std::move(entry), true, touch, doomed);
}

CacheEntry* Cache::acquire_merge(const MergeDetails& details,
                                 bool touch,
                                 const std::atomic<bool>* cancel) {
  if (is_plain_file(details)) return acquire_file(*details.underlay_file, touch);
  NodeList doomed;
  std::unique_lock lock(mutex_);
  for (;;) {
    if (CacheEntry* hit = find_merge(details, touch)) return hit;
    if (std::find(merging_.begin(), merging_.end(), details) == merging_.end()) break;
    ++waiters_;
    merged_.wait(lock);
    --waiters_;
  }
  const auto mine = merging_.insert(merging_.end(), details);
  lock.unlock();

  std::unique_ptr<CacheEntry> entry;
  try {
    entry = make_composite(*this, details, cancel);
  } catch (...) {
    lock.lock();
    merging_.erase(mine);
    merged_.notify_all();
    throw;
  }

  lock.lock();
  merging_.erase(mine);
  merged_.notify_all();
  if (!entry) return nullptr;  // cancelled: nothing is recorded
  return insert(std::move(entry), true, touch, doomed);
}

bool Cache::contains(const MergeDetails& details) {
  std::lock_guard lock(mutex_);
  CacheEntry* hit =
      is_plain_file(details) ? find_file(*details.underlay_file, true) : find_merge(details, true);
  if (!hit) return false;
  // The lookup's reference goes back at once; the entry cannot drop to no
  // references here while over quota, since it had none before.
  for (Node& node : entries_)
    if (node.entry.get() == hit) --node.references;
  return true;
}

void Cache::discard_merges_of_mask(const bitmap<bit1>* mask) {
  NodeList doomed;
  std::lock_guard lock(mutex_);
  for (auto it = entries_.begin(); it != entries_.end();) {
    const auto next = std::next(it);
    const MergeDetails* details = std::get_if<MergeDetails>(&it->entry->key);
    if (it->references == 0 && details && details->show_mask && details->mask == mask)
      remove(it, doomed);
    it = next;
  }
}

void Cache::release(CacheEntry* entry) {
  NodeList doomed;
  std::lock_guard lock(mutex_);
  auto it = std::find_if(entries_.begin(), entries_.end(),
                         [entry](const Node& n) { return n.entry.get() == entry; });
  if (it == entries_.end() || it->references == 0) throw std::runtime_error("bad release");
  if (--it->references == 0 && free_bytes_ < 0) remove(it, doomed);
}

bool Cache::is_loading(const std::string& name) const {
  std::lock_guard lock(mutex_);
  return std::find(loading_.begin(), loading_.end(), name) != loading_.end();
}

void Cache::set_quota(float fraction) {
  const float bytes = float(physical_memory()) * fraction;
  set_quota_bytes(int64_t(bytes));
}

void Cache::set_quota_bytes(int64_t quota_bytes) {
  NodeList doomed;
  std::lock_guard lock(mutex_);
  free_bytes_ += quota_bytes - quota_;
  quota_ = quota_bytes;
  evict(doomed);
}

void Cache::purge() {
  NodeList doomed;
  std::lock_guard lock(mutex_);
  const int64_t saved = quota_;
  quota_ = 0;
  free_bytes_ -= saved;
  evict(doomed);
  quota_ = saved;
  free_bytes_ += saved;
  evict(doomed);
}

int64_t Cache::quota() const {
  std::lock_guard lock(mutex_);
  return quota_;
}

int64_t Cache::free_bytes() const {
  std::lock_guard lock(mutex_);
  return free_bytes_;
}

size_t Cache::entry_count() const {
  std::lock_guard lock(mutex_);
  return entries_.size();
}

size_t Cache::waiters() const {
  std::lock_guard lock(mutex_);
  return waiters_;
}

uint64_t Cache::physical_memory() {
  const long pages = sysconf(_SC_PHYS_PAGES);
  const long page_size = sysconf(_SC_PAGE_SIZE);
  if (pages <= 0 || page_size <= 0) throw SystemError("reading the size of physical memory");
  return uint64_t(pages) * uint64_t(page_size);
}

CacheEntry* Cache::find_file(std::string_view name, bool touch) {
  for (auto it = entries_.begin(); it != entries_.end(); ++it) {
    if (!key_matches_file(it->entry->key, name)) continue;
    ++it->references;
    if (touch) entries_.splice(entries_.begin(), entries_, it);
    return it->entry.get();
  }
  return nullptr;
}

CacheEntry* Cache::find_merge(const MergeDetails& details, bool touch) {
  for (auto it = entries_.begin(); it != entries_.end(); ++it) {
    const MergeDetails* key = std::get_if<MergeDetails>(&it->entry->key);
    if (!key || !(*key == details)) continue;
    ++it->references;
    if (touch) entries_.splice(entries_.begin(), entries_, it);
    return it->entry.get();
  }
  return nullptr;
}

CacheEntry* Cache::insert(std::unique_ptr<CacheEntry> entry,
                          bool add_reference,
                          bool to_front,
                          NodeList& doomed) {
  CacheEntry* result = entry.get();
  const int64_t size = entry->image.size;
  entries_.insert(to_front ? entries_.begin() : entries_.end(),
                  Node{std::move(entry), add_reference ? 1u : 0u});
  free_bytes_ -= size;
  evict(doomed);
  return result;
}

void Cache::evict(NodeList& doomed) {
  // From the back towards the front, passing over what is in use, until
  // the cache is within its quota or nothing is left to take.
  auto next = entries_.end();
  while (free_bytes_ < 0 && next != entries_.begin()) {
    auto candidate = std::prev(next);
    if (candidate->references == 0)
      remove(candidate, doomed);  // `next` stays valid: only the candidate moves
    else
      next = candidate;
  }
}

void Cache::remove(NodeList::iterator it, NodeList& doomed) {
  free_bytes_ += it->entry->image.size;
  doomed.splice(doomed.end(), entries_, it);
}

CacheHandle::CacheHandle(CacheHandle&& other) noexcept
    : cache_(other.cache_), entry_(std::exchange(other.entry_, nullptr)) {}

CacheHandle& CacheHandle::operator=(CacheHandle&& other) noexcept {
  if (this != &other) {
    release();
    cache_ = other.cache_;
    entry_ = std::exchange(other.entry_, nullptr);
  }
  return *this;
}

void CacheHandle::acquire_file(const std::string& name, bool touch) {
  release();
  entry_ = cache_->acquire_file(name, touch);
}

void CacheHandle::acquire_merge(const MergeDetails& details,
                                const std::atomic<bool>* cancel,
                                bool touch) {
  release();
  entry_ = cache_->acquire_merge(details, touch, cancel);
}

void CacheHandle::swap(CacheHandle& other) noexcept {
  std::swap(cache_, other.cache_);
  std::swap(entry_, other.entry_);
}

void CacheHandle::release() {
  if (entry_ == nullptr) return;
  CacheEntry* entry = std::exchange(entry_, nullptr);
  cache_->release(entry);
}

}  // namespace img
