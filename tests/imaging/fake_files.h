// A stand-in for the image files behind a cache: every name decodes to a
// small picture whose pixels all carry a word derived from the name, so a
// holder can check that the frame it holds is still the right one. Tests
// hook into each decode to block it or make it fail.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>

#include "imaging/cache.h"

namespace testing_support {

class FakeFiles {
 public:
  static constexpr uint32_t kWidth = 10, kHeight = 10;
  static constexpr int64_t kFrameBytes = kWidth * kHeight * 4;

  // Called before each decode with the name and its decode number (1 for
  // the first); may block or throw.
  std::function<void(const std::string& name, int decode)> hook;

  img::Cache::FileLoader loader() {
    return [this](const std::string& name, img::image& out) {
      int decode;
      {
        std::lock_guard lock(mutex_);
        decode = ++decodes_[name];
      }
      if (hook) hook(name, decode);
      out.resize(kWidth, kHeight, 4);
      for (uint32_t y = 0; y < kHeight; ++y)
        for (uint32_t x = 0; x < kWidth; ++x)
          reinterpret_cast<uint32_t*>(out.rows[y])[x] = Word(name);
    };
  }

  int decodes(const std::string& name) {
    std::lock_guard lock(mutex_);
    return decodes_[name];
  }

  static uint32_t Word(const std::string& name) {
    return uint32_t(std::hash<std::string>()(name)) | 1u;
  }

  // Whether the entry holds the picture of `name`, every pixel of it.
  static bool Holds(const img::CacheEntry* entry, const std::string& name) {
    if (entry == nullptr || !img::key_matches_file(entry->key, name)) return false;
    const img::image& im = entry->image;
    if (im.width != kWidth || im.height != kHeight) return false;
    for (uint32_t y = 0; y < kHeight; ++y)
      for (uint32_t x = 0; x < kWidth; ++x)
        if (reinterpret_cast<const uint32_t*>(im.rows[y])[x] != Word(name)) return false;
    return true;
  }

 private:
  std::mutex mutex_;
  std::map<std::string, int> decodes_;
};

// Polls `condition` until it holds or ten seconds have passed. Guards tests
// against hanging on a lost wake-up; it measures nothing.
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
