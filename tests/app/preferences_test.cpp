// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/preferences.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "app/commands/preferences_menu.h"
#include "app/profile_store.h"
#include "imaging/cache.h"
#include "testing/files.h"

namespace app {
namespace {

TEST(AppPreferences, EmptyProfileGivesTheDefaults) {
  MemoryProfileStore profile;
  const AppPreferences read = ReadPreferences(profile);
  EXPECT_EQ(read, AppPreferences{});
  EXPECT_EQ(read.cacheQuota, 0.5f);
}

TEST(AppPreferences, ReadClampsOnlyTheFieldAndLowerCasesTheFormat) {
  MemoryProfileStore profile;
  profile.set_int("Preferences", "RenderingField", 7);
  profile.set_int("Preferences", "OverlayAlignment", 7);
  profile.set_int("Preferences", "OverlayAlpha", -3);
  profile.set_int("Preferences", "RenderingAlpha", 5);
  profile.set_string("Preferences", "RenderingFormat", "JPEG");
  profile.set_int("Preferences", "Property Hint Language", 1);
  profile.set_int("Preferences", "CacheMemoryQuota", 250);
  AppPreferences read = ReadPreferences(profile);
  EXPECT_EQ(read.renderingField, 2);
  EXPECT_EQ(read.overlayAlignment, 7);
  EXPECT_EQ(read.overlayAlpha, -3);
  EXPECT_TRUE(read.renderingAlpha);
  EXPECT_EQ(read.renderingFormat, "jpeg");
  EXPECT_EQ(read.hintLanguage, 1);
  EXPECT_EQ(read.cacheQuota, 0.25f);

  profile.set_int("Preferences", "RenderingField", -1);
  profile.set_int("Preferences", "RenderingAlpha", 0);
  read = ReadPreferences(profile);
  EXPECT_EQ(read.renderingField, 0);
  EXPECT_FALSE(read.renderingAlpha);
}

TEST(AppPreferences, WriteBackSurvivesStartAndExitForEveryThousandth) {
  for (int64_t thousandths = 0; thousandths <= 100000; ++thousandths) {
    MemoryProfileStore profile;
    profile.set_int("Preferences", "CacheMemoryQuota", thousandths);
    WritePreferences(ReadPreferences(profile), profile);
    ASSERT_EQ(profile.get_int("Preferences", "CacheMemoryQuota", -1), thousandths);
  }
  AppPreferences p;
  p.renderingAlpha = false;
  p.hintLanguage = 1;
  MemoryProfileStore profile;
  WritePreferences(p, profile);
  EXPECT_EQ(profile.get_string("Preferences", "RenderingAlpha", ""), "0");
  EXPECT_EQ(ReadPreferences(profile), p);
  // Half away from zero, not to even and not truncated.
  EXPECT_EQ(CacheQuotaThousandths(0.0625f), 63);
  EXPECT_EQ(CacheQuotaThousandths(0.3337f), 334);
}

TEST(PreferencesMenu, FormatTicksAcceptTheLongWordsAndAlphaFollowsTheFormat) {
  AppPreferences p;
  const auto choices = RenderingFormatChoices();
  auto ticked = [&] {
    std::string labels;
    for (const auto& c : choices)
      if (IsRenderingFormatTicked(p, c)) labels += c.label;
    return labels;
  };
  struct Case {
    const char* format;
    const char* ticked;
    bool alpha_enabled;
  };
  for (const Case& c :
       {Case{"jpeg", "JPEG", false}, Case{"jpg", "JPEG", false}, Case{"gif", "GIF", false},
        Case{"tiff", "TIFF", true}, Case{"tif", "TIFF", true}, Case{"avi", "", true},
        Case{"tga", "TGA", true}}) {
    p.renderingFormat = c.format;
    p.renderingAlpha = true;
    EXPECT_EQ(ticked(), c.ticked) << c.format;
    EXPECT_EQ(IsRenderingAlphaEnabled(p), c.alpha_enabled) << c.format;
    EXPECT_EQ(IsRenderingAlphaTicked(p), c.alpha_enabled) << c.format;
    EXPECT_EQ(IsAviTicked(p), std::string(c.format) == "avi");
  }
  ChooseRenderingFormat(p, choices[2]);
  EXPECT_EQ(p.renderingFormat, "jpg");
}

TEST(PreferencesMenu, CacheSizeGoesToTheCacheAtOnce) {
  img::Cache cache([](const std::string&, img::image&) {}, 1);
  AppPreferences p;
  ChooseCacheSize(p, kCacheSizeChoices[0], cache);
  EXPECT_TRUE(IsCacheSizeTicked(p, 0.25f));
  EXPECT_FALSE(IsCacheSizeTicked(p, 0.5f));
  const double expected = img::Cache::physical_memory() * 0.25;
  EXPECT_NEAR(static_cast<double>(cache.quota()), expected, expected * 1e-3);
}

TEST(FileProfileStore, RoundTripsThroughTheFileAndWritesOnlyOnChange) {
  testing_support::TempDir dir;
  const std::filesystem::path path = dir.path() / "velomar" / "velomar.conf";
  {
    FileProfileStore store(path);
    EXPECT_EQ(store.get_int("Preferences", "CacheMemoryQuota", 500), 500);
    store.set_int("Preferences", "Property Hint Language", 1);
    store.set_string("Layout", "Bars", " a=b\\c\nd ");
  }
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(path.parent_path()), {}), 1)
      << "a temporary file was left beside the settings";
  FileProfileStore again(path);
  EXPECT_EQ(again.get_int("Preferences", "Property Hint Language", 0), 1);
  EXPECT_EQ(again.get_string("Layout", "Bars", ""), " a=b\\c\nd ");

  std::filesystem::remove(path);
  again.set_int("Preferences", "Property Hint Language", 1);
  EXPECT_FALSE(std::filesystem::exists(path));
  again.set_int("Preferences", "Property Hint Language", 0);
  EXPECT_TRUE(std::filesystem::exists(path));
}

TEST(FileProfileStore, ToleratesHandEditsAndRejectsGarbageByLine) {
  testing_support::TempDir dir;
  const std::string path = dir / "velomar.conf";
  testing_support::WriteFile(path, "# mine\r\n[Preferences]\r\n RenderingFormat = png \r\nX=abc\n");
  EXPECT_EQ(FileProfileStore(path).get_string("Preferences", "RenderingFormat", ""), "png");
  EXPECT_EQ(FileProfileStore(path).get_int("Preferences", "X", 9), 9);
  testing_support::WriteFile(path, "[Preferences]\nA=1\nnot a setting\n");
  EXPECT_THAT([&] { FileProfileStore bad(path); },
              ::testing::ThrowsMessage<std::runtime_error>(::testing::HasSubstr("line 3")));
}

}  // namespace
}  // namespace app
