// SPDX-License-Identifier: GPL-3.0-or-later
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
namespace fs = std::filesystem;

void WriteImage(const std::string& name, uint32_t width, uint32_t height) {
  img::multi_writer().write(name, "BMP", img::image(width, height), false);
}

// Runs in `dir` as the working folder, and puts the old one back.
struct WorkingDirectory {
  fs::path saved = fs::current_path();
  explicit WorkingDirectory(const fs::path& p) { fs::current_path(p); }
  ~WorkingDirectory() { fs::current_path(saved); }
};

// What reading the list threw, or "no failure".
std::string Failure(const std::string& name) {
  std::vector<std::string> frames;
  img::frame_size size;
  try {
    img::read_image_list(name, frames, size);
  } catch (const std::runtime_error& e) {
    return e.what();
  }
  return "no failure";
}

TEST(NumberedName, EveryDigitOfTheNameButNoneOfTheFolderBecomesAWildcard) {
  EXPECT_EQ(img::numbered_pattern("take2/shot2_0001.tga"), "take2/shot?_????.tga");
  EXPECT_EQ(img::numbered_pattern("c:\\r5\\a9.mp4"), "c:\\r5\\a?.mp?");
  EXPECT_EQ(img::numbered_pattern("plain.bmp"), "plain.bmp");
  EXPECT_TRUE(img::matches_numbered_pattern("SHOT3_0001.TGA", "shot?_????.tga"));
  EXPECT_TRUE(img::matches_numbered_pattern("shotX_abcd.tga", "shot?_????.tga"));
  EXPECT_FALSE(img::matches_numbered_pattern("shot3_00001.tga", "shot?_????.tga"));
  EXPECT_FALSE(img::matches_numbered_pattern("shot3_0001.tgb", "shot?_????.tga"));
  const std::pair<const char*, uint32_t> numbers[] = {
      {"/a/b7/shot_0042.tga", 42}, {"shot.tga", 0},           {"x12.y.tga", 0},
      {"c:\\f\\x0007", 7},         {"big99999999999.tga", 0}, {"max4294967295.tga", 4294967295u}};
  for (const auto& [name, number] : numbers)
    EXPECT_EQ(img::first_frame_number(name), number) << name;
}

TEST(ExpandNumberedName, FindsEveryFittingNameAndSortsAsByteStrings) {
  TempDir dir;
  for (const char* n : {"shot2_0002.bmp", "shot2_0001.bmp", "shot3_0001.bmp", "Shot2_0003.bmp",
                        "shot2_01.bmp", "other_0001.bmp"})
    WriteImage(dir / n, 4, 3);
  // Nothing filters the hits: a folder with a fitting name is a frame too.
  fs::create_directory(dir.path() / "shot9_9999.bmp");
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

// Unpadded series split by digit count, gaps do not matter, a name without
// digits is a sequence of one, and relative names use the working folder.
TEST(ExpandNumberedName, SeriesBoundaries) {
  TempDir dir;
  for (const char* n :
       {"a9.bmp", "a10.bmp", "a0.bmp", "b0010.bmp", "b0030.bmp", "still.bmp", "still2.bmp"})
    WriteImage(dir / n, 2, 2);
  WorkingDirectory cwd(dir.path());
  const fs::path here = fs::current_path();
  std::vector<std::string> frames;
  img::frame_size size;
  img::read_image_list("a9.bmp", frames, size);
  EXPECT_THAT(frames, ElementsAre(here / "a0.bmp", here / "a9.bmp"));
  img::read_image_list(dir / "b0030.bmp", frames, size);
  EXPECT_THAT(frames, ElementsAre(dir / "b0010.bmp", dir / "b0030.bmp"));
  img::read_image_list("still.bmp", frames, size);
  EXPECT_THAT(frames, ElementsAre(here / "still.bmp"));
}

TEST(AisList, StripsOneQuoteEachSideDropsBlankLinesAndResolvesAgainstWorkingFolder) {
  TempDir dir;
  fs::create_directory(dir.path() / "frames");
  WriteImage(dir / "frames/x1.bmp", 6, 4);
  WriteImage(dir / "frames/x2.bmp", 8, 8);
  WriteFile(dir / "list.AIS",
            std::string_view("\"frames/x1.bmp\"\r\n\r\n\"\"\nframes\\x2.bmp\n\n"));
  WorkingDirectory cwd(dir.path());
  std::vector<std::string> frames;
  img::frame_size size;
  img::read_image_list("list.AIS", frames, size);
  const auto here = fs::current_path();
  EXPECT_THAT(frames, ElementsAre(here / "frames/x1.bmp", here / "frames/x2.bmp"));
  EXPECT_EQ(size, (img::frame_size{6, 4}));
}

TEST(ImageList, FailureTexts) {
  TempDir dir;
  WriteFile(dir / "junk_0001.bmp", std::string_view("not an image at all"));
  WriteFile(dir / "blank.ais", std::string_view("\n\n\"\"\n"));
  WriteFile(dir / "dangling.ais", std::string_view("nowhere.bmp\n"));
  for (const char* name : {"missing_0001.bmp", "junk_0001.bmp", "absent.ais"})
    EXPECT_EQ(Failure(dir / name), "could not read file: " + (dir / name));
  EXPECT_EQ(Failure(dir / "blank.ais"), "no images in sequence");
  EXPECT_THAT(Failure(dir / "dangling.ais"), ::testing::StartsWith("could not read file: /"));
}

}  // namespace
