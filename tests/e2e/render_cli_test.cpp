// SPDX-License-Identifier: GPL-3.0-or-later
// velomar-cli render and coders, run as a script runs them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>

#include "cli_runner.h"
#include "imaging/multi_io.h"
#include "imaging/native_io.h"
#include "testing/avi_frames.h"
#include "testing/files.h"

namespace {

namespace fs = std::filesystem;
using e2e::Cli;
using e2e::Result;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using testing_support::TempDir;

// A project over `count` frames f_0000.bmp ... of w x h, frame n flat blue
// 20 n + 10. With `linked`, every frame is a hard link to the first file,
// which makes long shots cheap.
std::string MakeProject(
    const TempDir& dir, int count, uint32_t w = 40, uint32_t h = 30, bool linked = false) {
  img::image frame(w, h);
  for (int n = 0; n < count; ++n) {
    char name[32];
    std::snprintf(name, sizeof name, "f_%04d.bmp", n);
    if (linked && n > 0) {
      fs::create_hard_link(dir / "f_0000.bmp", dir / name);
      continue;
    }
    for (uint8_t* row : frame.rows)
      for (uint32_t x = 0; x < w; ++x) {
        row[4 * x] = uint8_t(20 * n + 10), row[4 * x + 1] = 100, row[4 * x + 2] = 7;
        row[4 * x + 3] = 255;
      }
    img::native_writer().write(dir / name, "BMP", frame, false);
  }
  const std::string project = dir / "p.vlp";
  const Result r = Cli(dir, {"new", dir / "f_0000.bmp", "-o", project});
  EXPECT_EQ(r.status, 0) << r.err;
  return project;
}

std::vector<std::string> Names(const std::string& folder) {
  std::vector<std::string> out;
  for (const auto& e : fs::directory_iterator(folder)) out.push_back(e.path().filename().string());
  std::sort(out.begin(), out.end());
  return out;
}

int Blue(const std::string& file) {
  img::image p;
  img::multi_reader().read(file, p);
  return p.rows[0][0];
}

TEST(RenderCli, ImageFilesSpanAndAvi) {
  TempDir dir;
  const std::string project = MakeProject(dir, 4);
  Result r = Cli(dir, {"render", project, "-o", dir / "out"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_THAT(r.out, HasSubstr("Rendering completed successfully.\n"));
  EXPECT_THAT(r.err, HasSubstr("4 / 4"));
  EXPECT_THAT(Names(dir / "out"),
              ElementsAre("f_0000.tga", "f_0001.tga", "f_0002.tga", "f_0003.tga"));
  EXPECT_EQ(Blue(dir / "out/f_0002.tga"), 50);

  r = Cli(dir, {"render", project, "-o", dir / "span", "--span", "1:3", "--format", "PNG"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_THAT(Names(dir / "span"), ElementsAre("f_0001.png", "f_0002.png"));
  EXPECT_EQ(Blue(dir / "span/f_0001.png"), 30);

  r = Cli(dir, {"render", project, "-o", dir / "out.avi", "--coder", "utvideo", "--no-alpha"});
  ASSERT_EQ(r.status, 0) << r.err;
  const auto avi = testing_support::ReadAvi(dir / "out.avi");
  ASSERT_EQ(avi.frames.size(), 4u);
  EXPECT_FALSE(avi.alpha);
  EXPECT_EQ(avi.frames[3].rows[5][0], 70);

  r = Cli(dir, {"coders", "--json"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_THAT(r.out, HasSubstr("{\"handler\": \"ffv1\", \"name\": \"ffv1\""));
}

struct Failure {
  const char* name;
  std::function<void(const TempDir&)> spoil;
  std::vector<std::string> args;  // after "render PROJECT"; OUT is dir/"out"
  const char* report;             // standard error holds it
  std::vector<std::string> kept;  // files in dir/"out" afterwards
};

class RenderCliFailure : public ::testing::TestWithParam<Failure> {};

TEST_P(RenderCliFailure, ReportsAndKeepsWhatWasWhole) {
  TempDir dir;
  const std::string project = MakeProject(dir, 4);
  const Failure& f = GetParam();
  f.spoil(dir);
  std::vector<std::string> args = {"render", project};
  for (const auto& a : f.args)
    args.push_back(a == "OUT" ? dir / "out" : a == "AVI" ? dir / "o.avi" : a);
  const Result r = Cli(dir, args);
  EXPECT_EQ(r.status, 1);
  EXPECT_THAT(r.err, HasSubstr(f.report));
  if (fs::is_directory(dir / "out")) {
    EXPECT_EQ(Names(dir / "out"), f.kept);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Cases,
    RenderCliFailure,
    ::testing::Values(Failure{"UnreadableFrame",
                              [](const TempDir& d) {
                                testing_support::WriteFile(d / "f_0002.bmp", "BM?");
                              },
                              {"-o", "OUT"},
                              "Error while rendering:\n",
                              {"f_0000.tga", "f_0001.tga"}},
                      Failure{"WrongSize",
                              [](const TempDir& d) {
                                img::native_writer().write(d / "f_0002.bmp", "BMP",
                                                           img::image(40, 31), false);
                              },
                              {"-o", "OUT"},
                              "Error while rendering:\nBad size of image",
                              {"f_0000.tga", "f_0001.tga"}},
                      Failure{"OutputIsAFile",
                              [](const TempDir& d) { testing_support::WriteFile(d / "out", "x"); },
                              {"-o", "OUT"},
                              "Error while rendering:\nthe output folder is a file",
                              {}},
                      Failure{"NoCoder",
                              [](const TempDir&) {},
                              {"-o", "AVI"},
                              "Error while rendering:\nPlease choose AVI coder through\n"
                              "File|Preferences|Rendering Format|AVI menu.",
                              {}},
                      Failure{"SkipExistingWithFields",
                              [](const TempDir&) {},
                              {"-o", "OUT", "--field", "upper", "--skip-existing"},
                              "--skip-existing keeps image files, one per frame",
                              {}},
                      Failure{"UnknownCoder",
                              [](const TempDir&) {},
                              {"-o", "AVI", "--coder", "nothing"},
                              "Error while rendering:\nerror opening video compressor",
                              {}}),
    [](const auto& i) { return std::string(i.param.name); });

// Ctrl-C and SIGTERM stop like Cancel: the signal's status, the notice,
// and every file written so far is whole and stays.
TEST(RenderCli, InterruptKeepsWholeFiles) {
  for (const auto& [signal, status] : {std::pair{SIGINT, 130}, {SIGTERM, 143}}) {
    TempDir dir;
    const std::string project = MakeProject(dir, 300, 320, 240, true);
    e2e::Running run(dir, {"render", project, "-o", dir / "out", "--format", "png"});
    ASSERT_TRUE(run.WaitForError("10 / 300", std::chrono::seconds(60)));
    run.Signal(signal);
    const Result r = run.Wait();
    EXPECT_EQ(r.status, status) << r.err;
    EXPECT_THAT(r.err, HasSubstr("Rendering interrupted by user."));
    const auto kept = Names(dir / "out");
    EXPECT_GE(kept.size(), 10u);
    EXPECT_LT(kept.size(), 300u);
    for (const auto& name : kept) {
      EXPECT_EQ(fs::path(name).extension(), ".png") << name;
      EXPECT_EQ(Blue(dir / ("out/" + name)), 10) << name;
    }
  }
}

// A resumed render writes only the frames whose files are missing: a file
// there is kept as it is, even one this render would have written otherwise.
TEST(RenderCli, SkipExistingRendersOnlyMissingFrames) {
  TempDir dir;
  const std::string project = MakeProject(dir, 5);
  ASSERT_EQ(Cli(dir, {"render", project, "-o", dir / "out"}).status, 0);
  fs::remove(dir / "out/f_0002.tga");
  fs::remove(dir / "out/f_0004.tga");
  testing_support::WriteFile(dir / "out/f_0001.tga", "kept");
  const Result r = Cli(dir, {"render", project, "-o", dir / "out", "--skip-existing", "--json"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_THAT(r.out, HasSubstr("\"frames\": 2, \"kept\": 3,"));
  EXPECT_EQ(e2e::Slurp(dir / "out/f_0001.tga"), "kept");
  EXPECT_EQ(Blue(dir / "out/f_0002.tga"), 50);
  EXPECT_EQ(Blue(dir / "out/f_0004.tga"), 90);
  EXPECT_EQ(Names(dir / "out").size(), 5u);
}

}  // namespace
