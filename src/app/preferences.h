// SPDX-License-Identifier: GPL-3.0-or-later
// The application's preferences: read from the profile's "Preferences"
// section at start, written back at exit.
#pragma once

#include <string>

namespace img {
class Cache;
}

namespace app {

class ProfileStore;

inline constexpr const char* kPreferencesSection = "Preferences";

struct AppPreferences {
  // Share of physical memory for the frame cache. Stored in thousandths.
  float cacheQuota = 0.5f;
  // Extension of rendered files, without the dot, always lower case; "avi"
  // selects the video writer.
  std::string renderingFormat = "tga";
  bool renderingAlpha = true;
  // 0 off, 1 upper field first, 2 lower field first.
  int renderingField = 0;
  // The Alignment and AlphaInterpretation given to a freshly imported
  // overlay, as the integers the profile holds. Kept as read, unchecked: the
  // overlay's own setters clamp.
  int overlayAlignment = 1;
  int overlayAlpha = 1;
  // Language of property hints: 0 English, 1 Russian.
  int hintLanguage = 0;

  friend bool operator==(const AppPreferences&, const AppPreferences&) = default;
};

// Missing keys take the defaults above. "CacheMemoryQuota" is read as the
// profile's unsigned 32-bit integer and multiplied by 0.001;
// "RenderingFormat" is lower-cased; "RenderingField" is clamped to 0..2;
// "RenderingAlpha" is true when non-zero. Nothing else is checked.
AppPreferences ReadPreferences(ProfileStore& profile);

// "CacheMemoryQuota" as cacheQuota * 1000 rounded half away from zero, so
// that any whole number of thousandths survives a start and an exit;
// "RenderingAlpha" as 0 or 1.
void WritePreferences(const AppPreferences& preferences, ProfileStore& profile);

// The cache quota in thousandths as written back.
long CacheQuotaThousandths(float cacheQuota);

// Hands the quota to the cache as its share of physical memory.
void ApplyCacheQuota(const AppPreferences& preferences, img::Cache& cache);

}  // namespace app
