// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/preferences.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdint>

#include "app/ports.h"
#include "imaging/cache.h"

namespace app {
namespace {

constexpr const char* kCacheMemoryQuota = "CacheMemoryQuota";
constexpr const char* kRenderingFormat = "RenderingFormat";
constexpr const char* kRenderingAlpha = "RenderingAlpha";
constexpr const char* kRenderingField = "RenderingField";
constexpr const char* kOverlayAlignment = "OverlayAlignment";
constexpr const char* kOverlayAlpha = "OverlayAlpha";
constexpr const char* kHintLanguage = "Property Hint Language";

std::string Lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

// Profile integers are 32 bits wide; a wider value keeps its low 32 bits,
// as the profile's own integer reading would.
int ProfileInt(ProfileStore& profile, const char* key, int fallback) {
  return static_cast<int32_t>(
      static_cast<uint32_t>(profile.get_int(kPreferencesSection, key, fallback)));
}

}  // namespace

AppPreferences ReadPreferences(ProfileStore& profile) {
  const AppPreferences defaults;
  AppPreferences out;
  const auto thousandths = static_cast<uint32_t>(profile.get_int(
      kPreferencesSection, kCacheMemoryQuota, CacheQuotaThousandths(defaults.cacheQuota)));
  // The product is taken in double and only then narrowed to float.
  out.cacheQuota = static_cast<float>(thousandths * 0.001);
  out.renderingFormat =
      Lower(profile.get_string(kPreferencesSection, kRenderingFormat, defaults.renderingFormat));
  out.renderingAlpha = ProfileInt(profile, kRenderingAlpha, defaults.renderingAlpha ? 1 : 0) != 0;
  out.renderingField =
      std::clamp(ProfileInt(profile, kRenderingField, defaults.renderingField), 0, 2);
  out.overlayAlignment = ProfileInt(profile, kOverlayAlignment, defaults.overlayAlignment);
  out.overlayAlpha = ProfileInt(profile, kOverlayAlpha, defaults.overlayAlpha);
  out.hintLanguage = ProfileInt(profile, kHintLanguage, defaults.hintLanguage);
  return out;
}

long CacheQuotaThousandths(float cacheQuota) {
  return std::lround(static_cast<double>(cacheQuota) * 1000.0);
}

void WritePreferences(const AppPreferences& preferences, ProfileStore& profile) {
  profile.set_int(kPreferencesSection, kCacheMemoryQuota,
                  CacheQuotaThousandths(preferences.cacheQuota));
  profile.set_string(kPreferencesSection, kRenderingFormat, preferences.renderingFormat);
  profile.set_int(kPreferencesSection, kRenderingAlpha, preferences.renderingAlpha ? 1 : 0);
  profile.set_int(kPreferencesSection, kRenderingField, preferences.renderingField);
  profile.set_int(kPreferencesSection, kOverlayAlignment, preferences.overlayAlignment);
  profile.set_int(kPreferencesSection, kOverlayAlpha, preferences.overlayAlpha);
  profile.set_int(kPreferencesSection, kHintLanguage, preferences.hintLanguage);
}

void ApplyCacheQuota(const AppPreferences& preferences, img::Cache& cache) {
  cache.set_quota(preferences.cacheQuota);
}

}  // namespace app
