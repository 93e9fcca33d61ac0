// SPDX-License-Identifier: GPL-3.0-or-later
// The Preferences menu as data and rules a menu asks: which entries exist,
// which is ticked, which is enabled, and what choosing one does. All entries
// are always enabled except Rendering Format, Alpha.
#pragma once

#include <span>

#include "app/preferences.h"

namespace img {
class Cache;
}

namespace app {

// Cache Size: 25%, 50%, 75% of RAM. A choice takes effect in the cache at
// once; its tick marks exact equality with the quota, so a quota read from
// the profile (say 0.6) ticks none.
inline constexpr float kCacheSizeChoices[] = {0.25f, 0.5f, 0.75f};
bool IsCacheSizeTicked(const AppPreferences& preferences, float choice);
void ChooseCacheSize(AppPreferences& preferences, float choice, img::Cache& cache);
// Cache Size, Purge: empties the cache of every frame nobody holds.
void PurgeCache(img::Cache& cache);

struct RenderingFormatChoice {
  const char* label;  // "BMP", ..., "TIFF"
  const char* word;   // what choosing it stores
  const char* alias;  // another word that also ticks it, or null
};
// BMP, GIF, JPEG, PNG, TGA, TIFF in menu order.
std::span<const RenderingFormatChoice> RenderingFormatChoices();
bool IsRenderingFormatTicked(const AppPreferences& preferences,
                             const RenderingFormatChoice& choice);
void ChooseRenderingFormat(AppPreferences& preferences, const RenderingFormatChoice& choice);
// The video entry of the same menu.
inline constexpr const char* kAviFormat = "avi";
bool IsAviTicked(const AppPreferences& preferences);

// Rendering Format, Alpha: disabled for formats without an alpha channel
// ("gif", "jpg", "jpeg"); ticked only when enabled and set.
bool IsRenderingAlphaEnabled(const AppPreferences& preferences);
bool IsRenderingAlphaTicked(const AppPreferences& preferences);
void ToggleRenderingAlpha(AppPreferences& preferences);

struct FieldChoice {
  const char* label;
  int field;
};
// Off, Upper First, Lower First.
std::span<const FieldChoice> FieldChoices();

// Overlay Alignment (four corners, 1 to 4), Overlay Alpha (0 to 3) and
// Property Hint Language (0 English, 1 Russian) tick the entry equal to the
// stored value; choosing one stores it.
inline constexpr int kOverlayAlignmentChoices[] = {1, 2, 3, 4};
inline constexpr int kOverlayAlphaChoices[] = {0, 1, 2, 3};
struct HintLanguageChoice {
  const char* label;
  int language;
};
std::span<const HintLanguageChoice> HintLanguageChoices();

}  // namespace app
