#include "imaging/image_list.h"

#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "imaging/multi_io.h"
#include "testing/files.h"

namespace {

using ::testing::ElementsAre;
using testing_support::TempDir;
using testing_support::WriteFile;

void WriteImage(const std::string& name, uint32_t width, uint32_t height) {
  img::image picture(width, height);
  for (uint32_t y = 0; y < height; ++y)
    for (uint32_t i = 0; i < width * 4; ++i) picture.rows[y][i] = uint8_t(i + y);
  img::multi_writer().write(name, "BMP", picture, false);
}

// Restores the working directory when a test that changes it ends.
struct WorkingDirectory {
  std::filesystem::path saved = std::filesystem::current_path();
  explicit WorkingDirectory(const std::filesystem::path& p) { std::filesystem::current_path(p); }
  ~WorkingDirectory() { std::filesystem::current_path(saved); }
};

TEST(NumberedPattern, EveryDigitOfTheNameButNoneOfTheFolderBecomesAWildcard) {
  EXPECT_EQ(img::numbered_pattern("take2/shot2_0001.tga"), "take2/shot?_????.tga");
  EXPECT_EQ(img::numbered_pattern("c:\\r5\\a9.mp4"), "c:\\r5\\a?.mp?");
  EXPECT_EQ(img::numbered_pattern("plain.bmp"), "plain.bmp");
  EXPECT_TRUE(img::matches_numbered_pattern("SHOT3_0001.TGA", "shot?_????.tga"));
  EXPECT_TRUE(img::matches_numbered_pattern("shotX_abcd.tga", "shot?_????.tga"));
  EXPECT_FALSE(img::matches_numbered_pattern("shot3_00001.tga", "shot?_????.tga"));
  EXPECT_FALSE(img::matches_numbered_pattern("shot3_0001.tgb", "shot?_????.tga"));
}

TEST(ExpandNumberedName, FindsEveryFittingNameAndSortsAsByteStrings) {
  TempDir dir;
  for (const char* n : {"shot2_0002.bmp", "shot2_0001.bmp", "shot3_0001.bmp", "Shot2_0003.bmp",
                        "shot2_01.bmp", "other_0001.bmp"})
    WriteImage(dir / n, 4, 3);
  // Nothing filters the hits: a folder with a fitting name is a frame too.
  std::filesystem::create_directory(dir.path() / "shot9_9999.bmp");

  std::vector<std::string> frames;
  img::frame_size size;
  bool has_alpha = true;
  img::expand_numbered_name(dir / "shot2_0002.bmp", frames, size, has_alpha);
  const std::string d = dir.path().string() + "/";
  EXPECT_THAT(frames, ElementsAre(d + "Shot2_0003.bmp", d + "shot2_0001.bmp", d + "shot2_0002.bmp",
                                  d + "shot3_0001.bmp", d + "shot9_9999.bmp"));
  EXPECT_EQ(size, (img::frame_size{4, 3}));
  EXPECT_FALSE(has_alpha);
}

TEST(ExpandNumberedName, UnpaddedSeriesSplitsByDigitCountAndGapsDoNotMatter) {
  TempDir dir;
  for (const char* n : {"a9.bmp", "a10.bmp", "a0.bmp", "b0010.bmp", "b0030.bmp"})
    WriteImage(dir / n, 2, 2);
  std::vector<std::string> frames;
  img::frame_size size;
  img::read_image_list(dir / "a9.bmp", frames, size);
  EXPECT_THAT(frames, ElementsAre(dir / "a0.bmp", dir / "a9.bmp"));

  img::read_image_list(dir / "b0030.bmp", frames, size);
  EXPECT_THAT(frames, ElementsAre(dir / "b0010.bmp", dir / "b0030.bmp"));
  EXPECT_EQ(img::first_frame_number(frames[0]), 10u);
}

TEST(ExpandNumberedName, NameWithoutDigitsIsASequenceOfOneAndRelativeNamesUseTheWorkingFolder) {
  TempDir dir;
  WriteImage(dir / "still.bmp", 5, 5);
  WriteImage(dir / "still2.bmp", 5, 5);
  WorkingDirectory cwd(dir.path());
  std::vector<std::string> frames;
  img::frame_size size;
  img::read_image_list("still.bmp", frames, size);
  ASSERT_EQ(frames.size(), 1u);
  EXPECT_EQ(std::filesystem::path(frames[0]), std::filesystem::current_path() / "still.bmp");
}

TEST(ExpandNumberedName, UnreadableNamedFileFails) {
  TempDir dir;
  WriteFile(dir / "junk_0001.bmp", std::string_view("not an image at all"));
  std::vector<std::string> frames;
  img::frame_size size;
  for (const std::string& name : {dir / "missing_0001.bmp", dir / "junk_0001.bmp"}) {
    try {
      img::read_image_list(name, frames, size);
      ADD_FAILURE() << name;
    } catch (const std::runtime_error& e) {
      EXPECT_EQ(std::string(e.what()), "could not read file: " + name);
    }
  }
}

TEST(AisList, StripsOneQuoteEachSideDropsBlankLinesAndResolvesAgainstWorkingFolder) {
  TempDir dir;
  std::filesystem::create_directory(dir.path() / "frames");
  WriteImage(dir / "frames/x1.bmp", 6, 4);
  WriteImage(dir / "frames/x2.bmp", 8, 8);
  WriteFile(dir / "list.AIS",
            std::string_view("\"frames/x1.bmp\"\r\n\r\n\"\"\nframes\\x2.bmp\n\n"));
  WorkingDirectory cwd(dir.path());
  std::vector<std::string> frames;
  img::frame_size size;
  img::read_image_list("list.AIS", frames, size);
  const auto here = std::filesystem::current_path();
  EXPECT_THAT(frames,
              ElementsAre((here / "frames/x1.bmp").string(), (here / "frames/x2.bmp").string()));
  EXPECT_EQ(size, (img::frame_size{6, 4}));
}

TEST(AisList, FailureTexts) {
  TempDir dir;
  WriteFile(dir / "blank.ais", std::string_view("\n\n\"\"\n"));
  WriteFile(dir / "dangling.ais", std::string_view("nowhere.bmp\n"));
  std::vector<std::string> frames;
  img::frame_size size;
  auto message = [&](const std::string& name) {
    try {
      img::read_image_list(name, frames, size);
    } catch (const std::runtime_error& e) {
      return std::string(e.what());
    }
    return std::string("no failure");
  };
  EXPECT_EQ(message(dir / "blank.ais"), "no images in sequence");
  EXPECT_EQ(message(dir / "absent.ais"), "could not read file: " + (dir / "absent.ais"));
  EXPECT_THAT(message(dir / "dangling.ais"), ::testing::StartsWith("could not read file: /"));
}

TEST(FirstFrameNumber, TrailingDigitsOfTheStem) {
  EXPECT_EQ(img::first_frame_number("/a/b7/shot_0042.tga"), 42u);
  EXPECT_EQ(img::first_frame_number("shot.tga"), 0u);
  EXPECT_EQ(img::first_frame_number("x12.y.tga"), 0u);
  EXPECT_EQ(img::first_frame_number("c:\\f\\x0007"), 7u);
  EXPECT_EQ(img::first_frame_number("big99999999999.tga"), 0u);
  EXPECT_EQ(img::first_frame_number("max4294967295.tga"), 4294967295u);
}

}  // namespace
