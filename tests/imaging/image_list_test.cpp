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

TEST(NumberedName, OnlyTheLastRunOfDigitsInTheStemVaries) {
  EXPECT_EQ(img::numbered_pattern("take2/shotA_v002_0001.tga"), "take2/shotA_v002_????.tga");
  EXPECT_EQ(img::numbered_pattern("c:\\r5\\a9.mp4"), "c:\\r5\\a?.mp4");
  EXPECT_EQ(img::numbered_pattern("s_0007_final.exr"), "s_????_final.exr");
  EXPECT_EQ(img::numbered_pattern("plain.bmp"), "plain.bmp");
  EXPECT_TRUE(img::matches_numbered_pattern("SHOT_0001.TGA", "shot_????.tga"));
  EXPECT_FALSE(img::matches_numbered_pattern("shot_abcd.tga", "shot_????.tga"));
  EXPECT_FALSE(img::matches_numbered_pattern("shot_00001.tga", "shot_????.tga"));
  const std::pair<const char*, uint32_t> numbers[] = {
      {"/a/b7/shot_0042.tga", 42}, {"shot.tga", 0},           {"x12.y.tga", 12},
      {"c:\\f\\x0007", 7},         {"big99999999999.tga", 0}, {"max4294967295.tga", 4294967295u},
      {"s_0007_final.exr", 7}};
  for (const auto& [name, number] : numbers)
    EXPECT_EQ(img::first_frame_number(name), number) << name;
}

TEST(ExpandNumberedName, KeepsVersionsApartAndPassesFoldersOver) {
  TempDir dir;
  for (const char* n : {"shotA_v002_0002.bmp", "shotA_v002_0001.bmp", "shotA_v001_0000.bmp",
                        "ShotA_v002_0003.bmp", "shotA_v002_01.bmp", "shotB_v002_0001.bmp"})
    WriteImage(dir / n, 4, 3);
  fs::create_directory(dir.path() / "shotA_v002_9999.bmp");
  std::vector<std::string> frames;
  img::frame_size size;
  bool has_alpha = true;
  img::expand_numbered_name(dir / "shotA_v002_0002.bmp", frames, size, has_alpha);
  const std::string d = dir.path().string() + "/";
  EXPECT_THAT(frames, ElementsAre(d + "ShotA_v002_0003.bmp", d + "shotA_v002_0001.bmp",
                                  d + "shotA_v002_0002.bmp"));
  EXPECT_EQ(size, (img::frame_size{4, 3}));
  EXPECT_FALSE(has_alpha);
}

TEST(MissingFrames, NamesTheHolesBetweenNeighboursOfOneSeries) {
  using G = img::frame_gap;
  const struct {
    std::vector<std::string> frames;
    std::vector<G> gaps;
  } cases[] = {
      {{"/d/s_0001.tga", "/d/s_0002.tga", "/d/s_0003.tga"}, {}},
      {{"/d/s_0049.tga", "/d/s_0051.tga", "/d/s_0055.tga"}, {G{50, 50}, G{52, 54}}},
      // Another shot of a list, or a name without a number, is no hole.
      {{"/d/a_0001.tga", "/d/b_0009.tga", "/d/plain.tga", "/d/b_0010.tga"}, {}},
      {{"/d/s_0010.bmp", "/d/s_0030.bmp"}, {G{11, 29}}},
  };
  for (const auto& c : cases) EXPECT_EQ(img::missing_frames(c.frames), c.gaps) << c.frames[0];
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
