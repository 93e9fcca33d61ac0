// SPDX-License-Identifier: GPL-3.0-or-later
// velomar-cli building and editing a project as a script does.
#include <filesystem>
#include <fstream>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli_runner.h"
#include "imaging/native_io.h"
#include "testing/files.h"

namespace {

using e2e::Cli;
using e2e::Result;
using e2e::Slurp;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using testing_support::TempDir;

// Five frames of 16 x 8 numbered from 10, and a mask whose left half is white.
void WriteShot(const TempDir& dir, uint32_t mask_width) {
  img::image frame(16, 8);
  std::fill(frame.data, frame.data + frame.size, uint8_t(90));
  for (int n = 10; n < 15; ++n)
    img::native_writer().write(dir / ("f_00" + std::to_string(n) + ".bmp"), "BMP", frame, false);
  img::image mask(mask_width, 8);
  for (uint32_t y = 0; y < 8; ++y)
    for (uint32_t x = 0; x < mask_width; ++x)
      std::fill_n(mask.rows[y] + 4 * x, 4, uint8_t(x < 8 ? 255 : 0));
  img::native_writer().write(dir / "mask.bmp", "BMP", mask, false);
}

TEST(ProjectCli, NewSegmentInfoMoveRemove) {
  TempDir dir;
  WriteShot(dir, 16);
  const std::string project = dir / "p.vlp";
  Result r = Cli(dir, {"new", dir / "f_0012.bmp", "-o", project, "--rate", "25"});
  ASSERT_EQ(r.status, 0) << r.err;

  // Frame indices count from 0 whatever the start frame (10 here).
  r = Cli(dir, {"segment", "add", project, "--key", "2", "--mask", dir / "mask.bmp", "--span",
                "1:4", "--param", "ImageBlockSize=4"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "0\n");
  r = Cli(dir, {"segment", "add", project, "--key", "4", "--mask", dir / "mask.bmp"});
  ASSERT_EQ(r.status, 0) << r.err;

  r = Cli(dir, {"info", "--json", project});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_THAT(r.out, StartsWith("{\"length\": 5, \"width\": 16, \"height\": 8, \"framerate\": 25, "
                                "\"pixel_aspect\": [1, 1], \"start_frame\": 10, "));
  EXPECT_THAT(r.out, HasSubstr("\"segments\": [{\"origin\": 4, "));
  EXPECT_THAT(r.out, HasSubstr("{\"origin\": 2, \"time_span\": [1, 4], "));
  EXPECT_THAT(r.out, HasSubstr("\"ImageBlockSize\": 4"));
  EXPECT_THAT(r.out, HasSubstr("\"mask\": {\"width\": 16, \"height\": 8, \"set_pixels\": 64}"));
  EXPECT_THAT(r.out, HasSubstr("\"overlay\": {\"frames\": 0, \"still\": false"));

  ASSERT_EQ(Cli(dir, {"segment", "move", project, "0", "1"}).status, 0);
  EXPECT_THAT(Cli(dir, {"info", "--json", project}).out,
              HasSubstr("\"segments\": [{\"origin\": 2, "));
  ASSERT_EQ(Cli(dir, {"segment", "remove", project, "0"}).status, 0);
  r = Cli(dir, {"info", project});
  EXPECT_THAT(r.out, HasSubstr("segment 0 (active): key frame 4,"));
  EXPECT_THAT(r.out, ::testing::Not(HasSubstr("segment 1")));
}

TEST(ProjectCli, MaskQuestionsNeedYesAndFailuresWriteNothing) {
  TempDir dir;
  WriteShot(dir, 20);  // wider than the frames
  const std::string project = dir / "p.vlp";
  ASSERT_EQ(Cli(dir, {"new", dir / "f_0010.bmp", "-o", project}).status, 0);
  const std::string before = Slurp(project);

  Result r =
      Cli(dir, {"segment", "add", "--json", project, "--key", "0", "--mask", dir / "mask.bmp"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "Error while importing mask:\nDimensions of the bitmap (" + (dir / "mask.bmp") +
                       ") differ from composition dimensions.\nProceed?.\n");
  EXPECT_THAT(r.out, StartsWith("{\"error\": \"Dimensions of the bitmap"));
  EXPECT_EQ(Slurp(project), before);

  // 10 is the start frame's number, but as an index it is past the last frame.
  r = Cli(dir, {"segment", "add", project, "--key", "10", "--mask", dir / "mask.bmp", "--yes"});
  EXPECT_EQ(r.status, 1);
  EXPECT_THAT(r.err, HasSubstr("frame 10 is outside the composition (0 to 4)"));
  EXPECT_EQ(Slurp(project), before);

  r = Cli(dir, {"segment", "add", project, "--key", "0", "--mask", dir / "mask.bmp", "--yes"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_THAT(Cli(dir, {"info", "--json", project}).out,
              HasSubstr("\"mask\": {\"width\": 16, \"height\": 8, \"set_pixels\": 64}"));
  EXPECT_EQ(Cli(dir, {"segment", "remove", project, "3"}).status, 1);
}

// Overlay frames of 16 x 8 named <stem>_0001.bmp...: 32-bit (with alpha) or 24-bit.
void WriteOverlay(const TempDir& dir, const std::string& stem, int frames, bool alpha) {
  img::image frame(16, 8);
  std::fill(frame.data, frame.data + frame.size, uint8_t(200));
  for (int n = 1; n <= frames; ++n)
    img::native_writer().write(dir / (stem + "_000" + std::to_string(n) + ".bmp"), "BMP", frame,
                               alpha);
}

// A project of five frames numbered from 10 with a three-frame overlay.
std::string ProjectWithOverlay(const TempDir& dir) {
  WriteShot(dir, 16);
  WriteOverlay(dir, "o", 3, true);
  const std::string project = dir / "p.vlp";
  EXPECT_EQ(Cli(dir, {"new", dir / "f_0010.bmp", "-o", project}).status, 0);
  EXPECT_EQ(Cli(dir, {"overlay", "import", project, dir / "o_0001.bmp"}).status, 0);
  return project;
}

TEST(ProjectCli, OverlayImportPrintsNoticeAndAsksAboutMissingAlpha) {
  TempDir dir;
  WriteShot(dir, 16);
  WriteOverlay(dir, "o", 3, true);
  const std::string project = dir / "p.vlp";
  ASSERT_EQ(Cli(dir, {"new", dir / "f_0010.bmp", "-o", project}).status, 0);

  Result r = Cli(dir, {"overlay", "import", project, dir / "o_0002.bmp"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "Overlay sequence of 3 frames imported.\n");
  EXPECT_THAT(Cli(dir, {"info", "--json", project}).out,
              HasSubstr("\"overlay\": {\"frames\": 3, \"still\": false, \"source_offset\": 0, "
                        "\"trimming\": [0, 3]"));

  r = Cli(dir, {"overlay", "import", project, dir / "o_0002.bmp", "--still"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "Still overlay imported.\n");
  EXPECT_THAT(Cli(dir, {"info", "--json", project}).out, HasSubstr("\"still\": true"));

  // Footage without alpha raises a question: it fails the command without --yes.
  WriteOverlay(dir, "flat", 2, false);
  const std::string before = Slurp(project);
  r = Cli(dir, {"overlay", "import", project, dir / "flat_0001.bmp"});
  EXPECT_EQ(r.status, 1);
  EXPECT_THAT(r.err, HasSubstr("You have an image with no Alpha channel."));
  EXPECT_EQ(Slurp(project), before);
  r = Cli(dir, {"overlay", "import", project, dir / "flat_0001.bmp", "--yes"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "Overlay sequence of 2 frames imported.\n");
}

struct SetCase {
  std::vector<std::string> assignments;
  std::string expected;  // a piece of info --json after the change
};

TEST(ProjectCli, SetChangesEachSettingWithTheSettersClamps) {
  TempDir dir;
  const std::string project = ProjectWithOverlay(dir);
  const SetCase cases[] = {
      {{"framerate=30"}, "\"framerate\": 30,"},
      {{"framerate=0"}, "\"framerate\": 1,"},
      {{"start_frame=-7"}, "\"start_frame\": -7,"},
      {{"work_area=1:3"}, "\"work_area\": [1, 3],"},
      {{"work_area=3:99"}, "\"work_area\": [3, 5],"},
      {{"task=Compensation"}, "\"task\": \"Compensation\","},
      {{"export_model=CornerPin"}, "\"export_model\": \"CornerPin\","},
      {{"export_inaccuracy=0.25"}, "\"export_inaccuracy\": 0.25,"},
      {{"export_inaccuracy=-2"}, "\"export_inaccuracy\": 0,"},
      {{"pixel_aspect=648/720"}, "\"pixel_aspect\": [648, 720],"},
      {{"pixel_aspect=4:3"}, "\"pixel_aspect\": [4, 3],"},
      {{"trimming=1:2"}, "\"trimming\": [1, 2],"},
      {{"trimming=-4:9"}, "\"trimming\": [0, 3],"},
      {{"source_offset=2"}, "\"source_offset\": 2,"},
      {{"source_offset=50"}, "\"source_offset\": 5,"},  // the footage still touches the frames
      {{"match=3"}, "\"match\": 3,"},
      {{"match=99"}, "\"match\": 4,"},
      {{"alpha=InvPremul"}, "\"alpha\": \"InvPremul\","},
      {{"alignment=TopLeftCorner"}, "\"alignment\": \"TopLeftCorner\","},
      // A hand-made transform clears the alignment set before it, in order.
      {{"alignment=BottomRightCorner", "initial_transform=2,0.5,0,1,-3,4.25"},
       "\"alignment\": \"No\", \"alpha\": \"InvPremul\", "
       "\"initial_transform\": [2, 0.5, 0, 1, -3, 4.25]}"},
  };
  for (const auto& c : cases) {
    std::vector<std::string> args = {"set", project};
    args.insert(args.end(), c.assignments.begin(), c.assignments.end());
    const Result r = Cli(dir, args);
    ASSERT_EQ(r.status, 0) << c.assignments[0] << ": " << r.err;
    EXPECT_THAT(Cli(dir, {"info", "--json", project}).out, HasSubstr(c.expected))
        << c.assignments.back();
  }
}

TEST(ProjectCli, SetRejectsBadKeysAndValuesAndWritesNothing) {
  TempDir dir;
  WriteShot(dir, 16);
  const std::string bare = dir / "bare.vlp";
  ASSERT_EQ(Cli(dir, {"new", dir / "f_0010.bmp", "-o", bare}).status, 0);
  const std::string project = ProjectWithOverlay(dir);
  const struct {
    std::vector<std::string> args;
    std::string message;
  } cases[] = {
      {{"set", project, "speed=3"}, "unknown setting 'speed'"},
      {{"set", project, "framerate"}, "'framerate' is no KEY=VALUE"},
      {{"set", project, "framerate="}, "framerate needs a whole number, not ''"},
      {{"set", project, "framerate=-1"}, "framerate needs a whole number, not '-1'"},
      {{"set", project, "start_frame=1.5"}, "start_frame needs a whole number"},
      {{"set", project, "work_area=3"}, "work_area needs FIRST:LAST"},
      {{"set", project, "pixel_aspect=0/1"}, "pixel_aspect needs NUM/DEN"},
      {{"set", project, "export_inaccuracy=nan"}, "export_inaccuracy needs a number"},
      {{"set", project, "task=tracking"}, "task needs one of Tracking, Compensation"},
      {{"set", project, "initial_transform=1,0,0,1,2"}, "initial_transform needs six numbers"},
      {{"set", project, "initial_transform=1,0,0,1,2,3,4"}, "initial_transform needs six numbers"},
      // The first change is applied in memory but the second fails: no save.
      {{"set", project, "framerate=24", "alpha=Opaque"}, "alpha needs one of Straight,"},
      {{"set", bare, "match=2"}, "the project has no overlay to set match of"},
  };
  for (const auto& c : cases) {
    const std::string before = Slurp(c.args[1]);
    const Result r = Cli(dir, c.args);
    EXPECT_EQ(r.status, 1) << c.args.back();
    EXPECT_THAT(r.err, HasSubstr(c.message));
    EXPECT_EQ(Slurp(c.args[1]), before) << c.args.back();
  }
}

}  // namespace

namespace {

// What a project that a user spent hours on must survive: a second `new`
// with the same name, a list naming frames that are not there, and the
// footage moving to another folder.
TEST(ProjectCli, ExistingProjectsAndListsAreCheckedAndMovedFootageRelinks) {
  TempDir dir;
  WriteShot(dir, 16);
  const std::string project = dir / "p.vlp";
  ASSERT_EQ(Cli(dir, {"new", dir / "f_0010.bmp", "-o", project}).status, 0);
  ASSERT_EQ(Cli(dir, {"segment", "add", project, "--key", "2", "--mask", dir / "mask.bmp"}).status,
            0);
  const std::string before = Slurp(project);
  std::ofstream(dir / "list.ais") << dir / "f_0010.bmp"
                                  << "\n"
                                  << dir / "f_0099.bmp"
                                  << "\n";
  const struct {
    std::vector<std::string> args;
    std::string says;
  } refused[] = {
      {{"new", dir / "f_0010.bmp", "-o", project},
       "Error while making a project:\n" + project + " already exists: give --force to replace it"},
      {{"new", dir / "list.ais", "-o", dir / "l.vlp"},
       "1 of 2 frames of " + dir / "list.ais" + " are not there: " + dir / "f_0099.bmp"},
      {{"relink", project, "--footage", dir / "none"}, "no such folder: " + dir / "none"},
      {{"relink", project, "--overlay", dir.path()}, "the project has no overlay to relink"},
  };
  for (const auto& c : refused) {
    const Result r = Cli(dir, c.args);
    EXPECT_EQ(r.status, 1) << c.says;
    EXPECT_THAT(r.err, HasSubstr(c.says));
  }
  EXPECT_EQ(Slurp(project), before);
  EXPECT_FALSE(std::filesystem::exists(dir / "l.vlp"));

  // Moved: the project no longer opens, relinking finds every frame, and
  // the segment is as it was.
  std::filesystem::create_directory(dir / "moved");
  for (int n = 10; n < 15; ++n) {
    const std::string name = "f_00" + std::to_string(n) + ".bmp";
    std::filesystem::rename(dir / name, dir / ("moved/" + name));
  }
  EXPECT_THAT(Cli(dir, {"info", project}).err, HasSubstr("path does not exist"));
  std::filesystem::remove(dir / "moved/f_0013.bmp");
  Result r = Cli(dir, {"relink", project, "--footage", dir / "moved"});
  EXPECT_EQ(r.status, 1);
  EXPECT_THAT(r.err, HasSubstr("1 of 5 footage frames are not in " + dir / "moved" + ": " +
                               dir / "moved/f_0013.bmp"));
  EXPECT_EQ(Slurp(project), before);
  img::native_writer().write(dir / "moved/f_0013.bmp", "BMP", img::image(16, 8), false);
  r = Cli(dir, {"relink", project, "--footage", dir / "moved"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "footage: 5 frames in " + dir / "moved" + "\n");
  r = Cli(dir, {"info", project});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_THAT(r.out, HasSubstr("segment 0 (active): key frame 2,"));
  ASSERT_EQ(Cli(dir, {"new", "--force", dir / "moved/f_0010.bmp", "-o", project}).status, 0);
  EXPECT_THAT(Cli(dir, {"info", project}).out, ::testing::Not(HasSubstr("segment 0")));
}

}  // namespace
