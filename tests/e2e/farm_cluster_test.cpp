// SPDX-License-Identifier: GPL-3.0-or-later
// velomar-cli batch on a real one-node Slurm cluster started for the test:
// scripts/slurm_local.sh starts munged, slurmctld and slurmd on loopback,
// their state in a temporary folder, and the suite stops them at the end
// whatever happened. Where Slurm is not installed or will not start, the tests are
// skipped and say why.
#include <stdlib.h>
#include <sys/wait.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <thread>

#include "cli_runner.h"
#include "shot_project.h"
#include "testing/files.h"

namespace {

namespace fs = std::filesystem;
using e2e::Cli;
using e2e::Result;
using e2e::Slurp;
using ::testing::HasSubstr;
using testing_support::TempDir;
using Clock = std::chrono::steady_clock;

// Standard output and error of a shell command line, and its exit status.
std::pair<int, std::string> Shell(const std::string& command) {
  std::string out;
  int status = -1;
  if (FILE* p = popen((command + " 2>&1").c_str(), "r")) {
    char buffer[4096];
    for (size_t n; (n = fread(buffer, 1, sizeof buffer, p)) > 0;) out.append(buffer, n);
    const int raw = pclose(p);
    status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  }
  return {status, out};
}

// The cluster of scripts/slurm_local.sh, up while the object lives.
class Cluster {
 public:
  Cluster() {
    char folder[] = "/tmp/velomar-slurm-XXXXXX";  // short: the munge socket's name has a limit
    if (!mkdtemp(folder)) {
      why_ = "no temporary folder for the cluster";
      return;
    }
    dir_ = folder;
    const auto [status, out] = Shell("bash '" VELOMAR_SCRIPTS "/slurm_local.sh' start " + dir_);
    if (status != 0) {
      why_ = out;
      return;
    }
    setenv("SLURM_CONF", (dir_ + "/slurm.conf").c_str(), 1);
  }
  ~Cluster() {
    if (dir_.empty()) return;
    Shell("bash '" VELOMAR_SCRIPTS "/slurm_local.sh' stop " + dir_);
    unsetenv("SLURM_CONF");
    std::error_code ignored;
    fs::remove_all(dir_, ignored);
  }
  Cluster(const Cluster&) = delete;
  Cluster& operator=(const Cluster&) = delete;

  bool up() const { return why_.empty(); }
  const std::string& why() const { return why_; }

 private:
  std::string dir_;
  std::string why_;
};

std::map<std::string, std::string> Files(const fs::path& folder) {
  std::map<std::string, std::string> files;
  if (fs::is_directory(folder))
    for (const auto& e : fs::directory_iterator(folder))
      if (e.path().filename().string()[0] != '.') files[e.path().filename()] = Slurp(e.path());
  return files;
}

// Polls batch status until nothing runs or waits; its last line then.
std::string WaitForJobs(const TempDir& dir, int seconds) {
  const auto limit = Clock::now() + std::chrono::seconds(seconds);
  std::string last;
  while (Clock::now() < limit) {
    const Result r = Cli(dir, {"batch", "status", "--jobs", dir / "jobs"});
    last = r.out + r.err;
    if (r.status == 0 && last.find(" 0 running, 0 waiting") != std::string::npos) return last;
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
  }
  return "still busy after " + std::to_string(seconds) + " s:\n" + last;
}

// A one-machine render of a copy of `project`, tracked first when `track`.
std::map<std::string, std::string> RenderedAlone(const TempDir& dir,
                                                 const std::string& project,
                                                 bool track,
                                                 const std::string& format = "tga") {
  const std::string copy = project.substr(0, project.size() - 4) + "_alone.vlp";
  fs::copy_file(project, copy);
  if (track) {
    const Result r = Cli(dir, {"track", copy, "--all"});
    EXPECT_EQ(r.status, 0) << r.err;
  }
  const std::string out = dir / ("alone_" + fs::path(project).stem().string());
  const Result r = Cli(dir, {"render", copy, "-o", out, "--format", format});
  EXPECT_EQ(r.status, 0) << r.err;
  return Files(out);
}

// The render job's id in what batch submit --json printed.
std::string RenderJob(const std::string& json) {
  const std::string key = "\"render_job\": \"";
  const auto at = json.find(key);
  if (at == std::string::npos) return std::string();
  const auto from = at + key.size();
  return json.substr(from, json.find('"', from) - from);
}

class FarmCluster : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!cluster_.up()) GTEST_SKIP() << cluster_.why();
  }
  Cluster cluster_;
};

TEST_F(FarmCluster, TwoProjectsTrackedAndRenderedInChunksMatchOneMachine) {
  TempDir dir;
  const std::string a = e2e::MakeShotProject(dir, "a", 14, 128, 72);
  const std::string b = e2e::MakeShotProject(dir, "b", 9, 96, 54);
  ASSERT_FALSE(a.empty() || b.empty());
  const auto alone_a = RenderedAlone(dir, a, true), alone_b = RenderedAlone(dir, b, true);

  Result r = Cli(dir, {"batch", "submit", a, b, "--jobs", dir / "jobs", "--output", dir / "farm",
                       "--chunk", "4", "--mem", "200M", "--cpus", "1", "--time", "10"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_THAT(r.out, HasSubstr("(4 chunks of 4 frames, 0:14"));
  EXPECT_THAT(WaitForJobs(dir, 150),
              HasSubstr("2 projects: 2 done, 0 running, 0 waiting, 0 failed"));
  EXPECT_EQ(Files(dir / "farm/a"), alone_a);
  EXPECT_EQ(Files(dir / "farm/b"), alone_b);
  EXPECT_EQ(alone_a.size(), 14u);
}

TEST_F(FarmCluster, RenderTaskStoppedMidChunkIsFinishedByResubmission) {
  TempDir dir;
  // PNG: slow enough a render for the stop to land mid-chunk.
  const std::string c = e2e::MakeShotProject(dir, "c", 60, 640, 360, 4);
  ASSERT_FALSE(c.empty());
  const auto alone = RenderedAlone(dir, c, false, "png");
  const std::vector<std::string> submit = {
      "batch",    "submit",     c,         "--no-track", "--jobs",   dir / "jobs",
      "--output", dir / "farm", "--chunk", "60",         "--format", "png",
      "--mem",    "200M",       "--cpus",  "1",          "--json"};
  Result r = Cli(dir, submit);
  ASSERT_EQ(r.status, 0) << r.err;
  const std::string job = RenderJob(r.out);
  ASSERT_FALSE(job.empty()) << r.out;

  // The scheduler's stop: SIGTERM to the task once a few frames are out.
  const auto limit = Clock::now() + std::chrono::seconds(60);
  while (Files(dir / "farm/c").size() < 3 && Clock::now() < limit)
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  const auto cancelled = Shell("scancel --full --signal=TERM " + job + "_0");
  ASSERT_EQ(cancelled.first, 0) << cancelled.second;
  std::string status = WaitForJobs(dir, 60);
  const auto stopped = Files(dir / "farm/c");
  ASSERT_GE(stopped.size(), 3u) << status;
  ASSERT_LT(stopped.size(), alone.size()) << "the chunk ended before it was stopped";
  // Whatever carries a frame's name is whole.
  for (const auto& [name, bytes] : stopped) EXPECT_EQ(bytes, alone.at(name)) << name;
  EXPECT_THAT(status, HasSubstr("failed: render chunk 0 (frames 0:60)"));
  EXPECT_THAT(status, HasSubstr("log " + dir / "jobs/logs/c.render-" + job + "_0.log"));

  r = Cli(dir, submit);
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_THAT(WaitForJobs(dir, 120), HasSubstr("1 projects: 1 done"));
  EXPECT_EQ(Files(dir / "farm/c"), alone);
  const std::string next = RenderJob(r.out);
  EXPECT_THAT(Slurp(dir / ("jobs/logs/c.render-" + next + "_0.log")),
              HasSubstr("; " + std::to_string(stopped.size()) + " frames were there already"));
}

}  // namespace
