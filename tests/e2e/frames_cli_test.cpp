// SPDX-License-Identifier: GPL-3.0-or-later
// velomar-cli on what a compositor's folders hold: versions side by side,
// holes in the numbering; and the same answer form for every failure.
#include <filesystem>

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

void Bmp(const TempDir& dir, const std::string& name, uint8_t grey, bool alpha = false) {
  img::image picture(16, 8);
  std::fill(picture.data, picture.data + picture.size, grey);
  img::native_writer().write(dir / name, "BMP", picture, alpha);
}

// v002 of a shot numbered from 0 with frame 2 missing, beside v001 and a
// folder named like a frame.
void WriteVersions(const TempDir& dir) {
  for (const char* n : {"sA_v001_0000.bmp", "sA_v001_0001.bmp", "sA_v002_0000.bmp",
                        "sA_v002_0001.bmp", "sA_v002_0003.bmp", "sA_v002_0004.bmp"})
    Bmp(dir, n, 90);
  std::filesystem::create_directory(dir.path() / "sA_v002_0009.bmp");
}

TEST(FramesCli, SequenceKeepsItsVersionAndNamesItsHoles) {
  TempDir dir;
  WriteVersions(dir);
  Result r = Cli(dir, {"sequence", "--json", dir / "sA_v002_0003.bmp"});
  ASSERT_EQ(r.status, 0) << r.err;
  const std::string d = dir.path().string() + "/";
  EXPECT_THAT(r.out, StartsWith("{\"frames\": [\"" + d + "sA_v002_0000.bmp\", \"" + d +
                                "sA_v002_0001.bmp\", \"" + d + "sA_v002_0003.bmp\", \"" + d +
                                "sA_v002_0004.bmp\"], \"first_frame_number\": 0,"));
  EXPECT_THAT(r.out, HasSubstr("\"gaps\": [[2, 2]]}"));

  const std::string project = dir / "p.vlp";
  const std::string notice = "frames missing from the sequence: 2. The frames after a gap";
  for (const auto& args :
       std::vector<std::vector<std::string>>{{"new", dir / "sA_v002_0001.bmp", "-o", project},
                                             {"info", project},
                                             {"sequence", dir / "sA_v002_0000.bmp"}}) {
    r = Cli(dir, args);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_THAT(r.err, HasSubstr(notice)) << args[0];
  }
  EXPECT_THAT(Cli(dir, {"info", "--json", project}).out,
              HasSubstr("\"frames\": [0, 4], \"width\""));
}

// Every failure: status 1, the report on standard error, and with --json one
// object on standard output; no staging name, allowed values listed.
TEST(FramesCli, FailuresAnswerInOneForm) {
  TempDir dir;
  Bmp(dir, "f_0001.bmp", 90);
  Bmp(dir, "f_0002.bmp", 90);
  Bmp(dir, "m.bmp", 255);
  const std::string project = dir / "p.vlp";
  ASSERT_EQ(Cli(dir, {"new", dir / "f_0001.bmp", "-o", project}).status, 0);
  const struct {
    std::vector<std::string> args;
    std::string report;  // the start of standard error
    std::string text;    // a piece of the error's text
  } cases[] = {
      {{"frobnicate"}, "Error while reading the command line:\n", "known: info, sequence"},
      {{"segment", "add", project}, "Error while reading the command line:\n", "--key FRAME"},
      {{"segment", "add", project, "--key", "1", "--mask", dir / "m.bmp", "--param",
        "MotionModel=bogus"},
       "Error while reading the command line:\n",
       "MotionModel takes one of translation, rigid, rigid+zoom, affine; not 'bogus'"},
      {{"segment", "add", project, "--key", "1", "--mask", dir / "m.bmp", "--param",
        "MotionEstimation=slow"},
       "Error while reading the command line:\n",
       "fastest, fast, normal, intensive"},
      {{"export", project, "--model", "Skew"},
       "Error while reading the command line:\n",
       "Auto, Translation"},
      {{"render", project, "-o", dir / "out", "--span", "1-2"},
       "Error while reading the command line:\n",
       "--span needs FIRST:LAST"},
      {{"segment", "add", project, "--key", "0", "--mask", dir / "m.bmp", "--yes"},
       "Error while adding a segment:\n",
       "frame 0 is outside the composition, whose frames are 1 to 2"},
      {{"convert", dir / "f_0001.bmp", dir / "no/where.png"},
       "Error while converting image:\n",
       dir / "no/where.png"},
  };
  for (const auto& c : cases) {
    for (const bool json : {false, true}) {
      std::vector<std::string> args = c.args;
      if (json) args.push_back("--json");
      const Result r = Cli(dir, args);
      EXPECT_EQ(r.status, 1) << args[0];
      EXPECT_THAT(r.err, StartsWith(c.report + "")) << r.err;
      EXPECT_THAT(r.err, HasSubstr(c.text));
      EXPECT_THAT(r.err, ::testing::Not(HasSubstr(".part")));
      EXPECT_EQ(r.out.rfind(json ? "{\"error\": \"" : "", 0), 0u) << r.out;
    }
  }
  EXPECT_THAT(Cli(dir, {"set", project, "framerate=24", "--json"}).out,
              StartsWith("{\"project\": "));
  EXPECT_THAT(Cli(dir, {"new", dir / "f_0002.bmp", "-o", dir / "q.vlp", "--json"}).out,
              StartsWith("{\"project\": "));
  const Result version = Cli(dir, {"--version"});
  EXPECT_EQ(version.status, 0);
  EXPECT_THAT(version.out, StartsWith("velomar-cli "));
}

TEST(FramesCli, SegmentListSetAndMaskRoundTrip) {
  TempDir dir;
  for (const char* n : {"f_0001.bmp", "f_0002.bmp", "f_0003.bmp"}) Bmp(dir, n, 90);
  // A matte: white all over, the shape in the alpha (left half opaque).
  img::image matte(16, 8);
  for (uint32_t y = 0; y < 8; ++y)
    for (uint32_t x = 0; x < 16; ++x) {
      std::fill_n(matte.rows[y] + 4 * x, 3, uint8_t(255));
      matte.rows[y][4 * x + 3] = x < 8 ? 255 : 0;
    }
  img::native_writer().write(dir / "matte.tga", "TGA", matte, true);
  Bmp(dir, "white.bmp", 255);
  // Wider than the frames, white only past their right edge.
  img::image outside(40, 8);
  for (uint32_t y = 0; y < 8; ++y)
    for (uint32_t x = 0; x < 40; ++x)
      std::fill_n(outside.rows[y] + 4 * x, 4, uint8_t(x >= 16 ? 255 : 0));
  img::native_writer().write(dir / "outside.bmp", "BMP", outside, false);

  const std::string project = dir / "p.vlp";
  ASSERT_EQ(Cli(dir, {"new", dir / "f_0001.bmp", "-o", project}).status, 0);
  Result r = Cli(dir, {"segment", "add", project, "--key", "2", "--mask", dir / "matte.tga"});
  ASSERT_EQ(r.status, 0) << r.err;
  r = Cli(dir, {"segment", "list", project});
  EXPECT_THAT(r.out, HasSubstr("segment 0 (active): key frame 2 (f_0002.bmp), time span 1:4, "
                               "data span 2:3, mask 16 x 8 with 64 pixels set\n"));
  EXPECT_THAT(r.out, HasSubstr(" MotionModel=affine MotionEstimation=normal\n"));

  const std::string before = Slurp(project);
  r = Cli(dir, {"segment", "add", project, "--key", "2", "--mask", dir / "outside.bmp", "--yes"});
  EXPECT_EQ(r.status, 1);
  EXPECT_THAT(r.err, HasSubstr("has no white pixels inside the composition's frame"));
  EXPECT_EQ(Slurp(project), before);

  r = Cli(dir, {"segment", "set", project, "0", "--param", "MotionModel=rigid", "--param",
                "ImageBlockSize=500", "--json"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_THAT(r.out, HasSubstr("\"ImageBlockSize\": 100, \"OriginalMaskInAllFrames\": false, "
                               "\"MaxAcceleration\": 5, \"MotionModel\": \"rigid\""));
  ASSERT_EQ(Cli(dir, {"segment", "mask", project, "0", "-o", dir / "back.bmp"}).status, 0);
  ASSERT_EQ(Cli(dir, {"segment", "set", project, "0", "--mask", dir / "back.bmp"}).status, 0);
  EXPECT_THAT(Cli(dir, {"segment", "list", project}).out, HasSubstr("with 64 pixels set"));
  r = Cli(dir, {"segment", "set", project, "0", "--mask", dir / "white.bmp"});
  EXPECT_EQ(r.status, 1);
  EXPECT_THAT(r.err, HasSubstr("contains no black pixels.\nProceed?\nAnswered no"));

  r = Cli(dir, {"segment", "add", "--help"});
  // Each key with its range (what the clamp keeps) and default.
  for (const char* line : {"InitialSearchRadius=N  *1 to 100, default 15 \\(Matching radius\\)",
                           "MaskGenerationPitch=N  *1 or more, default 7 ",
                           "OriginalMaskInAllFrames=0\\|1  *0 or 1, default 0 ",
                           "MotionEstimation=WORD  *fastest, fast, normal, intensive; "
                           "default normal \\(Estimation method\\)"})
    EXPECT_THAT(r.out, ::testing::ContainsRegex(line));
}

}  // namespace
