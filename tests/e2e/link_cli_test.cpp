// SPDX-License-Identifier: GPL-3.0-or-later
// The whole round trip over the link from a shell: the host (link send)
// hands footage to the program (link serve), the project it saved is
// tracked, and the host fetches the motion and the project.
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>
#include <sstream>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli_runner.h"
#include "imaging/native_io.h"
#include "imaging/synthetic_shot.h"
#include "testing/files.h"

namespace {

using e2e::Cli;
using e2e::Result;
using ::testing::HasSubstr;
using testing_support::TempDir;
using namespace std::chrono_literals;

// Sockets go to a folder of this test only.
std::string UseRuntimeFolder(const TempDir& dir) {
  const std::string run = dir / "run";
  ::mkdir(run.c_str(), 0700);
  ::setenv("XDG_RUNTIME_DIR", run.c_str(), 1);
  return run;
}

// The numbers in `text`, list brackets and commas aside.
std::vector<double> NumbersIn(std::string text) {
  for (char& c : text)
    if (c == '[' || c == ']' || c == ',') c = ' ';
  std::istringstream in(text);
  std::vector<double> values;
  for (double v; in >> v;) values.push_back(v);
  return values;
}

bool WaitForFile(const std::string& path, const std::string& holding) {
  for (int i = 0; i < 400; ++i) {
    if (e2e::Slurp(path).find(holding) != std::string::npos) return true;
    std::this_thread::sleep_for(10ms);
  }
  return false;
}

TEST(LinkCli, HostSendsFootageAndFetchesTheTrackedMotion) {
  TempDir dir;
  const std::string run = UseRuntimeFolder(dir);
  img::synthetic_shot shot;
  shot.width = 160;
  shot.height = 120;
  shot.frames = 6;
  shot.key_frame = 2;
  shot.plate_left = 40;
  shot.plate_top = 30;
  shot.plate_width = 70;
  shot.plate_height = 50;
  img::image frame;
  for (int32_t f = 0; f < shot.frames; ++f) {
    shot.render(f, frame);
    img::native_writer().write(dir / ("f_00" + std::to_string(10 + f) + ".bmp"), "BMP", frame,
                               false);
  }
  img::bitmap<img::bit1> mask;
  shot.plate_mask(mask);
  img::image picture(shot.width, shot.height);
  for (uint32_t y = 0; y < shot.height; ++y)
    for (uint32_t x = 0; x < shot.width; ++x)
      std::fill_n(picture.rows[y] + 4 * x, 4,
                  uint8_t(mask.rows[y][x >> 3] & (128 >> (x & 7)) ? 255 : 0));
  img::native_writer().write(dir / "mask.bmp", "BMP", picture, false);
  img::image still(32, 24);
  img::native_writer().write(dir / "logo.bmp", "BMP", still, false);

  const std::string project = dir / "shot.vlp";
  const TempDir serve_output;  // Cli() writes its output files in `dir`
  e2e::Running serve(serve_output, {"link", "serve", "--project", project, "--yes"});
  ASSERT_TRUE(serve.WaitForError("serving on " + run + "/VLApp", 10s));

  Result r = Cli(dir, {"link", "send", "possible", "--json"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_THAT(r.out, HasSubstr("\"Underlay\": true, \"Overlay\": false"));

  r = Cli(dir, {"link", "send", "underlay", dir / "f_0010.bmp", "--framerate", "25"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "sent 6 frames\n");
  ASSERT_TRUE(WaitForFile(project, "f_0015.bmp"));
  r = Cli(dir, {"link", "send", "overlay", dir / "logo.bmp"});
  ASSERT_EQ(r.status, 0) << r.err;
  ASSERT_TRUE(WaitForFile(project, "logo.bmp"));

  r = Cli(dir, {"segment", "add", project, "--key", "12", "--mask", dir / "mask.bmp", "--span",
                "10:16"});
  ASSERT_EQ(r.status, 0) << r.err;
  r = Cli(dir, {"track", project});
  ASSERT_EQ(r.status, 0) << r.err;
  const Result exported = Cli(dir, {"export", project, "--json"});
  ASSERT_EQ(exported.status, 0) << exported.err;

  r = Cli(dir, {"link", "send", "transformations", "--json"});
  ASSERT_EQ(r.status, 0) << r.err;
  // The motion the host gets is the export's, to the wire's six digits.
  std::vector<double> local;
  for (size_t at = exported.out.find("\"matrix\": ["); at != std::string::npos;
       at = exported.out.find("\"matrix\": [", at + 1)) {
    const size_t from = exported.out.find('[', at);
    const auto row = NumbersIn(exported.out.substr(from, exported.out.find(']', from) - from));
    local.insert(local.end(), row.begin(), row.end());
  }
  ASSERT_EQ(local.size(), 6u * 6u) << exported.out;
  // The transforms are the last member: everything after the key is numbers.
  const size_t list = r.out.find("\"transforms\": ");
  ASSERT_NE(list, std::string::npos) << r.out;
  const std::vector<double> got = NumbersIn(r.out.substr(list + 15, r.out.rfind('}') - list - 15));
  ASSERT_EQ(got.size(), local.size()) << r.out;
  for (size_t i = 0; i < got.size(); ++i)
    EXPECT_NEAR(got[i], local[i], 1e-5 * std::max(1.0, std::abs(local[i]))) << i;

  r = Cli(dir, {"link", "send", "project", "--json"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_THAT(r.out, HasSubstr("\"Name\": \"shot\""));
  EXPECT_THAT(r.out, HasSubstr("\"width\": 160, \"height\": 120, \"Framerate\": 25"));
  EXPECT_THAT(r.out, HasSubstr(dir / "f_0015.bmp"));

  serve.Signal(SIGINT);
  const Result ended = serve.Wait();
  EXPECT_EQ(ended.status, 0) << ended.err;
  EXPECT_FALSE(std::filesystem::exists(run + "/VLApp"));
  r = Cli(dir, {"link", "send", "possible"});
  EXPECT_EQ(r.status, 1);
  EXPECT_THAT(r.err, HasSubstr("as a result of WaitNamedPipe"));
}

TEST(LinkCli, ProgramCommandsFetchFootageFromTheHostAndSendTheProject) {
  TempDir dir;
  UseRuntimeFolder(dir);
  for (int f = 0; f < 3; ++f) {
    img::image frame(16, 12);
    img::native_writer().write(dir / ("u_000" + std::to_string(f + 4) + ".bmp"), "BMP", frame,
                               false);
  }
  const std::string project = dir / "p.vlp";
  Result r = Cli(dir, {"link", "request", "state", project, "--json"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_THAT(r.out, HasSubstr("\"import-project\": {\"enabled\": false"));
  r = Cli(dir, {"link", "request", "import-project", project});
  EXPECT_EQ(r.status, 1);
  EXPECT_THAT(r.err, HasSubstr("import-project is not possible now."));

  const TempDir host_output;  // Cli() writes its output files in `dir`
  e2e::Running host(host_output, {"link", "host", "--underlay", dir / "u_0004.bmp"});
  ASSERT_TRUE(host.WaitForError("host listening on", 10s));
  r = Cli(dir, {"link", "request", "import-project", project});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_THAT(e2e::Slurp(project), HasSubstr("u_0006.bmp"));
  r = Cli(dir, {"link", "request", "export-project", project});
  ASSERT_EQ(r.status, 0) << r.err;
  // No footage for an overlay: the command stays disabled.
  r = Cli(dir, {"link", "request", "state", project});
  EXPECT_THAT(r.out, HasSubstr("import-overlay          disabled Import Overlay"));
  host.Signal(SIGINT);
  const Result ended = host.Wait();
  EXPECT_EQ(ended.status, 0) << ended.err;
  EXPECT_EQ(ended.out,
            "sent Underlay 3 frames\n"
            "received Project p 16x12 underlay 3 overlay 0 frames 0\n");
}

}  // namespace
