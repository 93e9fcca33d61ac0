// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/commands/preferences_menu.h"

#include "imaging/cache.h"

namespace app {
namespace {

constexpr RenderingFormatChoice kRenderingFormats[] = {
    {"BMP", "bmp", nullptr}, {"GIF", "gif", nullptr}, {"JPEG", "jpg", "jpeg"},
    {"PNG", "png", nullptr}, {"TGA", "tga", nullptr}, {"TIFF", "tif", "tiff"},
};

constexpr FieldChoice kFields[] = {{"Off", 0}, {"Upper First", 1}, {"Lower First", 2}};

constexpr HintLanguageChoice kHintLanguages[] = {{"English", 0}, {"Russian", 1}};

}  // namespace

bool IsCacheSizeTicked(const AppPreferences& preferences, float choice) {
  return preferences.cacheQuota == choice;
}

void ChooseCacheSize(AppPreferences& preferences, float choice, img::Cache& cache) {
  preferences.cacheQuota = choice;
  ApplyCacheQuota(preferences, cache);
}

void PurgeCache(img::Cache& cache) {
  cache.purge();
}

std::span<const RenderingFormatChoice> RenderingFormatChoices() {
  return kRenderingFormats;
}

bool IsRenderingFormatTicked(const AppPreferences& preferences,
                             const RenderingFormatChoice& choice) {
  return preferences.renderingFormat == choice.word ||
         (choice.alias != nullptr && preferences.renderingFormat == choice.alias);
}

void ChooseRenderingFormat(AppPreferences& preferences, const RenderingFormatChoice& choice) {
  preferences.renderingFormat = choice.word;
}

bool IsAviTicked(const AppPreferences& preferences) {
  return preferences.renderingFormat == kAviFormat;
}

bool IsRenderingAlphaEnabled(const AppPreferences& preferences) {
  const std::string& format = preferences.renderingFormat;
  return format != "gif" && format != "jpg" && format != "jpeg";
}

bool IsRenderingAlphaTicked(const AppPreferences& preferences) {
  return IsRenderingAlphaEnabled(preferences) && preferences.renderingAlpha;
}

void ToggleRenderingAlpha(AppPreferences& preferences) {
  preferences.renderingAlpha = !preferences.renderingAlpha;
}

std::span<const FieldChoice> FieldChoices() {
  return kFields;
}

std::span<const HintLanguageChoice> HintLanguageChoices() {
  return kHintLanguages;
}

}  // namespace app
