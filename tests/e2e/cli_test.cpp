// SPDX-License-Identifier: GPL-3.0-or-later
// velomar-cli as a user or a script runs it.
#include <filesystem>
#include <fstream>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli_runner.h"
#include "testing/files.h"

namespace {

using e2e::Cli;
using e2e::Result;
using e2e::Slurp;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using testing_support::TempDir;

class CliOnDemoShot : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    shot_ = new TempDir;
    const Result r = Cli(*shot_, {"demo-shot", "--frames", "3", shot_->path().string()});
    ASSERT_EQ(r.status, 0) << r.err;
  }
  static void TearDownTestSuite() {
    delete shot_;
    shot_ = nullptr;
  }
  static std::string Frame(int n) {
    char name[32];
    std::snprintf(name, sizeof name, "shot_%04d.tga", n);
    return *shot_ / name;
  }
  static TempDir* shot_;
  TempDir work_;
};
TempDir* CliOnDemoShot::shot_ = nullptr;

TEST_F(CliOnDemoShot, InfoJsonDescribesTheFileExactly) {
  const Result r = Cli(work_, {"info", "--json", Frame(1)});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "{\"name\": \"" + Frame(1) +
                       "\", \"format\": \"TGA\", \"width\": 1280, \"height\": 720, "
                       "\"bit_count\": 24, \"uncompressed\": true, \"has_alpha\": false}\n");
}

TEST_F(CliOnDemoShot, SequenceListsTheFramesInOrder) {
  const Result r = Cli(work_, {"sequence", "--json", Frame(2)});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "{\"frames\": [\"" + Frame(0) + "\", \"" + Frame(1) + "\", \"" + Frame(2) +
                       "\"], \"first_frame_number\": 0, \"width\": 1280, \"height\": 720, "
                       "\"pixel_aspect\": [1, 1]}\n");
  const Result text = Cli(work_, {"sequence", Frame(0)});
  EXPECT_THAT(text.out,
              StartsWith("3 frames, first frame number 0, 1280 x 720, pixel aspect 1/1\n"));
}

TEST_F(CliOnDemoShot, ConvertWritesTheOtherFormatAndPrintsItsSize) {
  const std::string png = work_ / "frame.png";
  const Result r = Cli(work_, {"convert", Frame(0), png});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, std::to_string(std::filesystem::file_size(png)) + "\n");
  const Result info = Cli(work_, {"info", "--json", png});
  EXPECT_THAT(info.out, HasSubstr("\"format\": \"???\", \"width\": 1280, \"height\": 720"));
  EXPECT_THAT(info.out, HasSubstr("\"has_alpha\": false"));

  // Back to TGA with alpha asked for: 32 bits per pixel.
  const std::string tga = work_ / "back.tga";
  ASSERT_EQ(Cli(work_, {"convert", "--alpha", png, tga}).status, 0);
  EXPECT_THAT(Cli(work_, {"info", "--json", tga}).out, HasSubstr("\"bit_count\": 32"));
}

// A frame cut short: `info` still answers from the header, and reading the
// pixels fails with the file's name, never a picture with made-up parts.
TEST_F(CliOnDemoShot, CutFramesAnswerInfoAndFailWhenRead) {
  ASSERT_EQ(Cli(work_, {"convert", Frame(1), work_ / "whole.jpg"}).status, 0);
  for (const auto& [from, to, says] :
       {std::tuple{Frame(1), work_ / "cut.tga",
                   "could not open TGA image for reading or read error"},
        {work_ / "whole.jpg", work_ / "cut.jpg", "image decoding failure"}}) {
    const std::string bytes = Slurp(from);
    std::ofstream(to, std::ios::binary) << bytes.substr(0, bytes.size() * 2 / 3);
    Result r = Cli(work_, {"info", to});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_THAT(r.out, HasSubstr(", 1280 x 720, ")) << to;
    r = Cli(work_, {"convert", to, work_ / "out.png"});
    EXPECT_EQ(r.status, 1) << to;
    EXPECT_THAT(r.err, StartsWith(std::string("Error while converting image:\n") + says));
    EXPECT_THAT(r.err, HasSubstr(to));
  }
}

TEST_F(CliOnDemoShot, FailuresReportInTheProgramsFormAndLeaveNoOutput) {
  const std::string missing = work_ / "missing.tga";
  Result r = Cli(work_, {"info", missing});
  EXPECT_EQ(r.status, 1);
  EXPECT_THAT(r.err, StartsWith("Error while reading image information:\n"));
  EXPECT_THAT(r.err, HasSubstr(missing));
  EXPECT_EQ(r.out, "");

  r = Cli(work_, {"info", "--json", missing});
  EXPECT_EQ(r.status, 1);
  EXPECT_THAT(r.out, StartsWith("{\"error\": \""));

  testing_support::WriteFile(work_ / "junk.tga", std::string_view("nothing of an image"));
  const std::string out = work_ / "out.png";
  r = Cli(work_, {"convert", work_ / "junk.tga", out});
  EXPECT_EQ(r.status, 1);
  EXPECT_THAT(r.err, StartsWith("Error while converting image:\n"));
  EXPECT_FALSE(std::filesystem::exists(out));

  r = Cli(work_, {"convert", Frame(0), work_ / "out.nosuchformat"});
  EXPECT_EQ(r.status, 1);
  for (const auto& entry : std::filesystem::directory_iterator(work_.path()))
    EXPECT_THAT(entry.path().filename().string(), ::testing::Not(HasSubstr("out.")));

  r = Cli(work_, {"sequence", "--json", work_ / "empty.ais"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "{\"error\": \"could not read file: " + (work_ / "empty.ais") + "\"}\n");
}

TEST(Cli, HelpAndUsageMistakes) {
  TempDir work;
  Result r = Cli(work, {"--help"});
  EXPECT_EQ(r.status, 0);
  for (const char* c : {"info", "sequence", "convert"}) EXPECT_THAT(r.out, HasSubstr(c));
  r = Cli(work, {"convert", "--help"});
  EXPECT_EQ(r.status, 0);
  EXPECT_THAT(r.out, StartsWith("usage: velomar-cli convert"));
  r = Cli(work, {"info", "--bogus", "x"});
  EXPECT_EQ(r.status, 1);
  EXPECT_THAT(r.err, HasSubstr("unknown option --bogus"));
  EXPECT_EQ(Cli(work, {"frobnicate"}).status, 1);
  EXPECT_EQ(Cli(work, {}).status, 1);
}

}  // namespace
