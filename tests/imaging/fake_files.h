// SPDX-License-Identifier: GPL-3.0-or-later
// Stand-in files behind a cache: each name decodes to a 10 x 10 picture
// whose pixels all carry a word derived from the name, so a holder can check
// that its frame is still its own. `hook` runs before each decode, with the
// decode's number for that name (1 for the first), and may block or throw.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>

#include "imaging/cache.h"

namespace testing_support {

class FakeFiles {
 public:
  static constexpr int64_t kFrameBytes = 10 * 10 * 4;
  std::function<void(const std::string& name, int decode)> hook;

  img::Cache::FileLoader loader() {
    return [this](const std::string& name, img::image& out) {
      int decode;
      {
        std::lock_guard lock(mutex_);
        decode = ++decodes_[name];
      }
      if (hook) hook(name, decode);
      out.resize(10, 10, 4);
      for (uint8_t* row : out.rows)
        for (int x = 0; x < 10; ++x) reinterpret_cast<uint32_t*>(row)[x] = Word(name);
    };
  }
  int decodes(const std::string& name) {
    std::lock_guard lock(mutex_);
    return decodes_[name];
  }
  static uint32_t Word(const std::string& name) { return uint32_t(std::hash<std::string>()(name)); }
  static bool Holds(const img::CacheEntry* entry, const std::string& name) {
    if (entry == nullptr || !img::key_matches_file(entry->key, name)) return false;
    if (entry->image.width != 10 || entry->image.height != 10) return false;
    for (const uint8_t* row : entry->image.rows)
      for (int x = 0; x < 10; ++x)
        if (reinterpret_cast<const uint32_t*>(row)[x] != Word(name)) return false;
    return true;
  }

 private:
  std::mutex mutex_;
  std::map<std::string, int> decodes_;
};

// Polls until `condition` holds, for at most ten seconds: keeps a lost
// wake-up from hanging a test. It measures nothing.
template <class Condition>
bool Eventually(Condition condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

}  // namespace testing_support
