// SPDX-License-Identifier: GPL-3.0-or-later
// velomar-cli track on a small generated shot whose motion is known.
#include <signal.h>
#include <cstdio>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli_runner.h"
#include "imaging/native_io.h"
#include "imaging/synthetic_shot.h"
#include "testing/files.h"

namespace {

using e2e::Cli;
using e2e::Result;
using e2e::Slurp;
using ::testing::HasSubstr;
using testing_support::TempDir;

// 320 x 240, the plate well inside; frames numbered from 10, so that a
// frame index mixed up with a frame number shows.
img::synthetic_shot SmallShot(int32_t frames, int32_t key) {
  img::synthetic_shot s;
  s.width = 320;
  s.height = 240;
  s.frames = frames;
  s.key_frame = key;
  s.plate_left = 100;
  s.plate_top = 70;
  s.plate_width = 120;
  s.plate_height = 90;
  return s;
}

std::string FrameName(const TempDir& dir, int32_t index) {
  char name[32];
  std::snprintf(name, sizeof name, "f_%04d.bmp", index + 10);
  return dir / name;
}

void WriteShot(const TempDir& dir, const img::synthetic_shot& shot) {
  img::image frame;
  for (int32_t f = 0; f < shot.frames; ++f) {
    shot.render(f, frame);
    img::native_writer().write(FrameName(dir, f), "BMP", frame, false);
  }
  img::bitmap<img::bit1> mask;
  shot.plate_mask(mask);
  img::image picture(shot.width, shot.height);
  for (uint32_t y = 0; y < shot.height; ++y)
    for (uint32_t x = 0; x < shot.width; ++x)
      std::fill_n(picture.rows[y] + 4 * x, 4,
                  uint8_t(mask.rows[y][x >> 3] & (128 >> (x & 7)) ? 255 : 0));
  img::native_writer().write(dir / "mask.bmp", "BMP", picture, false);
}

struct Line {
  int32_t frame;
  types::affine t;
};

// Parses a --transforms file, checking its form on the way: seven fields
// separated by single blanks, each number exactly as %.17g prints it.
std::vector<Line> ReadTransforms(const std::string& text) {
  std::vector<Line> lines;
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line)) {
    std::vector<std::string> fields;
    size_t from = 0;
    for (size_t blank; (blank = line.find(' ', from)) != std::string::npos; from = blank + 1)
      fields.push_back(line.substr(from, blank - from));
    fields.push_back(line.substr(from));
    EXPECT_EQ(fields.size(), 7u) << line;
    if (fields.size() != 7) continue;
    double v[6];
    for (int i = 0; i < 6; ++i) {
      v[i] = std::strtod(fields[i + 1].c_str(), nullptr);
      char again[64];
      std::snprintf(again, sizeof again, "%.17g", v[i]);
      EXPECT_EQ(fields[i + 1], again) << line;
    }
    Line l{std::stoi(fields[0]), {}};
    l.t.xx = v[0];
    l.t.xy = v[1];
    l.t.yx = v[2];
    l.t.yy = v[3];
    l.t.x = v[4];
    l.t.y = v[5];
    lines.push_back(l);
  }
  return lines;
}

double CornerError(const img::synthetic_shot& shot, const Line& line) {
  const types::affine truth = shot.plate_motion(line.frame);
  double worst = 0;
  for (double cx : {shot.plate_left, shot.plate_left + shot.plate_width})
    for (double cy : {shot.plate_top, shot.plate_top + shot.plate_height}) {
      double ax, ay, bx, by;
      line.t.apply(cx, cy, ax, ay);
      truth.apply(cx, cy, bx, by);
      worst = std::max(worst, std::hypot(ax - bx, ay - by));
    }
  return worst;
}

std::string NewProject(const TempDir& dir, const std::string& span, int32_t key = 6) {
  const std::string project = dir / "p.vlp";
  Result r = Cli(dir, {"new", "--force", FrameName(dir, 0), "-o", project});
  EXPECT_EQ(r.status, 0) << r.err;
  r = Cli(dir, {"segment", "add", project, "--key", std::to_string(key), "--mask", dir / "mask.bmp",
                "--span", span});
  EXPECT_EQ(r.status, 0) << r.err;
  return project;
}

TEST(TrackCli, OneOffShotTracksBothWaysAndWritesItsResults) {
  TempDir dir;
  const img::synthetic_shot shot = SmallShot(13, 6);
  WriteShot(dir, shot);
  const Result r = Cli(dir, {"track", "--sequence", FrameName(dir, 4), "--mask", dir / "mask.bmp",
                             "--key", "6", "--span", "2:11", "-o", dir / "p.vlp", "--transforms",
                             dir / "t.txt", "--debug-dir", dir / "debug"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_THAT(r.out, HasSubstr("segment 0: data span 2:11, time span 2:11\n"));
  // Both directions run at once on two cores; the status then says forward.
  EXPECT_THAT(r.err, HasSubstr("forward"));

  const std::vector<Line> lines = ReadTransforms(Slurp(dir / "t.txt"));
  ASSERT_EQ(lines.size(), 9u);
  for (size_t i = 0; i < lines.size(); ++i) {
    EXPECT_EQ(lines[i].frame, int32_t(2 + i));
    // Key-frame coordinates to the frame's, not the other way round.
    EXPECT_LT(CornerError(shot, lines[i]), 0.5) << "frame " << lines[i].frame;
  }
  // The key frame is tracked against itself: the identity up to rounding.
  EXPECT_EQ(lines[4].frame, 6);
  EXPECT_LT(CornerError(shot, lines[4]), 1e-6);

  EXPECT_THAT(Cli(dir, {"info", "--json", dir / "p.vlp"}).out,
              HasSubstr("\"time_span\": [2, 11], \"data_span\": [2, 11]"));
  EXPECT_THAT(Slurp(dir / "debug/Discrepancy.txt"),
              ::testing::StartsWith("Frame\tsqr(Discr)\tStrange\n" + FrameName(dir, 5) + "\t"));
  EXPECT_TRUE(std::filesystem::exists(dir / "debug/Velomar.log"));
}

TEST(TrackCli, JsonHasEveryFrameWithItsCornersAndTheSpeed) {
  TempDir dir;
  const img::synthetic_shot shot = SmallShot(13, 6);
  WriteShot(dir, shot);
  const Result r =
      Cli(dir, {"track", "--sequence", FrameName(dir, 4), "--mask", dir / "mask.bmp", "--key", "6",
                "--span", "5:8", "--transforms", dir / "t.txt", "--json"});
  ASSERT_EQ(r.status, 0) << r.err;
  const std::vector<Line> lines = ReadTransforms(Slurp(dir / "t.txt"));
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_THAT(r.out, ::testing::StartsWith("{\"segments\": [{\"index\": 0, \"key_frame\": 6, "
                                           "\"data_span\": [5, 8], \"time_span\": [5, 8], "
                                           "\"mask_box\": ["));
  // The first corner of frame 7 is the box's top left carried by its numbers.
  const size_t box = r.out.find("\"mask_box\": [") + 13;
  double left, top;
  ASSERT_EQ(std::sscanf(r.out.c_str() + box, "%lf, %lf", &left, &top), 2);
  double x, y;
  lines[2].t.apply(left, top, x, y);
  const size_t corners = r.out.find("\"corners\": [[", r.out.find("\"frame\": 7")) + 13;
  double cx, cy;
  ASSERT_EQ(std::sscanf(r.out.c_str() + corners, "%lf, %lf", &cx, &cy), 2);
  EXPECT_NEAR(cx, x, 1e-9);
  EXPECT_NEAR(cy, y, 1e-9);
  EXPECT_THAT(r.out, HasSubstr("\"new_frames\": 3, \"seconds\": "));
  EXPECT_THAT(r.out, HasSubstr("\"cancelled\": false}\n"));
}

TEST(TrackCli, WiderSpanResumesAndOnlyAddsFrames) {
  TempDir dir;
  WriteShot(dir, SmallShot(13, 6));
  const std::string project = NewProject(dir, "4:9");
  Result r = Cli(dir, {"track", project});
  ASSERT_EQ(r.status, 0) << r.err;
  // The saved results, as a later run reads them back.
  r = Cli(dir, {"track", project, "--transforms", dir / "kept.txt"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_THAT(r.err, HasSubstr("segment 0: nothing left to track"));
  EXPECT_THAT(r.out, HasSubstr("0 new frames"));

  r = Cli(dir, {"track", project, "--span", "1:12", "--transforms", dir / "wide.txt"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_THAT(r.out, HasSubstr("segment 0: data span 1:12, time span 1:12\n6 new frames"));
  const std::string kept = Slurp(dir / "kept.txt"), wide = Slurp(dir / "wide.txt");
  ASSERT_EQ(ReadTransforms(kept).size(), 5u);
  ASSERT_EQ(ReadTransforms(wide).size(), 11u);
  // Frames 4 to 8 are lines 4 to 8 of the wider run, byte for byte.
  size_t at = 0;
  for (int i = 0; i < 3; ++i) at = wide.find('\n', at) + 1;
  EXPECT_EQ(wide.substr(at, kept.size()), kept);
}

TEST(TrackCli, AllTracksEverySegmentAndDefaultIsTheActiveOne) {
  TempDir dir;
  WriteShot(dir, SmallShot(13, 6));
  const std::string project = NewProject(dir, "5:8");
  ASSERT_EQ(Cli(dir, {"segment", "add", project, "--key", "6", "--mask", dir / "mask.bmp", "--span",
                      "6:8"})
                .status,
            0);
  // The new segment (index 0) is the active one.
  Result r = Cli(dir, {"track", project});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out.substr(0, r.out.find('\n')), "segment 0: data span 6:8, time span 6:8");
  r = Cli(dir, {"track", project, "--all"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_THAT(r.err, HasSubstr("segment 0: nothing left to track"));
  EXPECT_THAT(r.out, HasSubstr("segment 1: data span 5:8, time span 5:8\n"));
}

// Ctrl-C, SIGTERM (timeout, batch schedulers) and SIGHUP stop the run as
// Cancel does: the frames computed are saved with their exact values, and
// the next run goes on from them to the very bits of a run in one go.
TEST(TrackCli, SignalsKeepTheFramesAndTheNextRunResumesExactly) {
  TempDir dir;
  WriteShot(dir, SmallShot(30, 1));
  Result r = Cli(dir, {"track", NewProject(dir, "0:30", 1), "--transforms", dir / "whole.txt"});
  ASSERT_EQ(r.status, 0) << r.err;
  const std::string one_go = Slurp(dir / "whole.txt");
  for (const auto& [signal, status] : {std::pair{SIGINT, 130}, {SIGTERM, 143}, {SIGHUP, 129}}) {
    const std::string project = NewProject(dir, "0:30", 1);
    {
      e2e::Running run(dir, {"track", project});
      // Backward is one frame; the signal lands early in the long forward part.
      ASSERT_TRUE(run.WaitForError("forward", std::chrono::seconds(60)));
      run.Signal(signal);
      r = run.Wait();
      ASSERT_EQ(r.status, status) << r.err;
      EXPECT_THAT(r.err, HasSubstr("Tracking cancelled: "));
      EXPECT_THAT(r.err, HasSubstr(" frames kept and saved; track again to resume.\n"));
    }
    r = Cli(dir, {"track", project, "--transforms", dir / "t.txt"});
    ASSERT_EQ(r.status, 0) << r.err;
    // The first run got somewhere and the second did the rest, forward only.
    EXPECT_THAT(r.out, ::testing::Not(HasSubstr("\n30 new frames")));
    EXPECT_THAT(r.err, ::testing::Not(HasSubstr("backward")));
    EXPECT_EQ(Slurp(dir / "t.txt"), one_go) << "after signal " << signal;
  }
}

// A run stopped anywhere, in either direction, and taken up again by a
// wider time span gives what one run over the whole span gives.
TEST(TrackCli, WideningAfterAnyStopEqualsOneRun) {
  TempDir dir;
  WriteShot(dir, SmallShot(13, 6));
  Result r = Cli(dir, {"track", NewProject(dir, "0:13"), "--transforms", dir / "whole.txt"});
  ASSERT_EQ(r.status, 0) << r.err;
  const std::string one_go = Slurp(dir / "whole.txt");
  for (const char* first : {"6:8", "4:7", "1:12", "5:13"}) {
    const std::string project = NewProject(dir, first);
    ASSERT_EQ(Cli(dir, {"track", project}).status, 0) << first;
    r = Cli(dir, {"track", project, "--span", "0:13", "--transforms", dir / "t.txt"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(Slurp(dir / "t.txt"), one_go) << "first span " << first;
  }
}

// An output that cannot be written fails the command before the first
// frame; one that fails after tracking (here the folder vanished while the
// run went on) leaves the results in a recovery file that the report names.
TEST(TrackCli, OutputsAreCheckedFirstAndAFailedSaveKeepsTheResults) {
  TempDir dir;
  WriteShot(dir, SmallShot(30, 1));
  const std::string project = NewProject(dir, "0:30", 1), mask = dir / "mask.bmp";
  const struct {
    std::vector<std::string> args;
    std::string target;
  } cases[] = {
      {{"track", project, "--transforms", dir / "missing/t.txt"}, dir / "missing/t.txt"},
      {{"track", "--sequence", FrameName(dir, 0), "--mask", mask, "--key", "1", "-o",
        dir / "mask.bmp/q.vlp"},
       dir / "mask.bmp/q.vlp"},
  };
  for (const auto& c : cases) {
    const Result r = Cli(dir, c.args);
    EXPECT_EQ(r.status, 1) << c.target;
    EXPECT_THAT(r.err, HasSubstr("\nas a result of writing " + c.target + ".\n"));
    EXPECT_EQ(r.out, "") << c.target;
  }
  EXPECT_THAT(Cli(dir, {"info", "--json", project}).out, HasSubstr("\"data_span\": [1, 2]"));

  std::filesystem::create_directory(dir / "sub");
  setenv("XDG_STATE_HOME", (dir / "state").c_str(), 1);
  Result r;
  {
    e2e::Running run(dir, {"track", "--sequence", FrameName(dir, 0), "--mask", mask, "--key", "1",
                           "--span", "0:30", "-o", dir / "sub/q.vlp"});
    ASSERT_TRUE(run.WaitForError("forward", std::chrono::seconds(60)));
    std::filesystem::rename(dir / "sub", dir / "gone");
    run.Signal(SIGTERM);
    r = run.Wait();
  }
  unsetenv("XDG_STATE_HOME");
  EXPECT_EQ(r.status, 1);
  EXPECT_THAT(r.err, HasSubstr("Error while saving project:\nSystem error: No such file or "
                               "directory\nas a result of writing " +
                               dir / "sub/q.vlp" + ".\nThe results are kept in " +
                               dir / "state/velomar/recovered/q-"));
  const size_t at = r.err.find(dir / "state/");
  const std::string kept = r.err.substr(at, r.err.find(".\n", at + 1) - at);
  EXPECT_THAT(kept, ::testing::EndsWith(".vlp"));
  // The kept file is the project: it opens, and tracking goes on from it.
  r = Cli(dir, {"track", kept});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_THAT(r.out, HasSubstr("segment 0: data span 0:30, time span 0:30\n"));
}

TEST(TrackCli, UnreadableFrameFailsAfterSavingWhatWasTracked) {
  TempDir dir;
  WriteShot(dir, SmallShot(13, 6));
  const std::string project = NewProject(dir, "2:11");
  testing_support::WriteFile(FrameName(dir, 9), std::string_view("not an image"));
  const Result r = Cli(dir, {"track", project, "--transforms", dir / "t.txt"});
  EXPECT_EQ(r.status, 1);
  EXPECT_THAT(r.err, HasSubstr("Error while tracking:\n"));
  EXPECT_THAT(r.err, HasSubstr("image file format not recognised: " + FrameName(dir, 9)));
  EXPECT_THAT(r.err, HasSubstr(" (segment 0, tracking forward; data span 2:9 kept).\n"));
  EXPECT_THAT(Cli(dir, {"info", "--json", project}).out,
              HasSubstr("\"time_span\": [2, 11], \"data_span\": [2, 9]"));
  EXPECT_EQ(ReadTransforms(Slurp(dir / "t.txt")).size(), 7u);
}

TEST(TrackCli, RefusesWhatItCannotDo) {
  TempDir dir;
  WriteShot(dir, SmallShot(3, 1));
  const std::string project = NewProject(dir, "0:3", 1);
  const std::string mask = dir / "mask.bmp";
  struct Case {
    std::vector<std::string> args;
    std::string says;
  } cases[] = {
      {{"track", project, "--all", "--transforms", dir / "t.txt"},
       "--transforms writes one segment's results"},
      {{"track", project, "--segment", "1"}, "no segment 1: the project has 1"},
      {{"track", project, "--span", "2:3"}, "must hold the key frame 1"},
      {{"track", "--sequence", FrameName(dir, 0), "--mask", mask, "--key", "1"},
       "needs -o PROJECT.vlp or --transforms FILE"},
      {{"track", "--sequence", FrameName(dir, 0), "--mask", mask, "--key", "7", "-o",
        dir / "q.vlp"},
       "frame 7 is outside the composition (0 to 2)"},
  };
  for (const auto& c : cases) {
    const Result r = Cli(dir, c.args);
    EXPECT_EQ(r.status, 1) << c.says;
    EXPECT_THAT(r.err, HasSubstr(c.says));
  }
  EXPECT_FALSE(std::filesystem::exists(dir / "q.vlp"));
  EXPECT_THAT(Cli(dir, {"info", "--json", project}).out, HasSubstr("\"data_span\": [1, 2]"));
}

}  // namespace
