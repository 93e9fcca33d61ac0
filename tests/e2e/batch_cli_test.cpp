// SPDX-License-Identifier: GPL-3.0-or-later
// velomar-cli batch against stand-ins for Slurm's commands: what it hands
// sbatch, what its job scripts run, and how status reads the scheduler.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "cli_runner.h"
#include "shot_project.h"
#include "testing/files.h"

namespace {

namespace fs = std::filesystem;
using e2e::Cli;
using e2e::Result;
using e2e::Slurp;
using ::testing::HasSubstr;
using ::testing::Not;
using testing_support::TempDir;

void WriteText(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

// sbatch, sacct, squeue and scontrol as scripts in dir/bin, first on PATH
// while the object lives. sbatch logs its arguments to dir/bin/sbatch.args
// and hands out job ids from 100 on; the others print dir/bin/NAME.out and
// exit with dir/bin/NAME.status (default 0).
class FakeSlurm {
 public:
  explicit FakeSlurm(const TempDir& dir) : bin_(dir / "bin") {
    fs::create_directories(bin_);
    const std::string b = bin_;
    Script("sbatch", "if [ -f " + b + "/sbatch.refuse ]; then cat " + b +
                         "/sbatch.refuse >&2; exit 1; fi\n"
                         "echo \"$*\" >> " +
                         b +
                         "/sbatch.args\n"
                         "n=$(cat " +
                         b +
                         "/next 2>/dev/null || echo 100)\n"
                         "echo $((n + 1)) > " +
                         b +
                         "/next\n"
                         "echo \"$n;farm\"\n");
    for (const char* name : {"sacct", "squeue", "scontrol"})
      Script(name, std::string("cat ") + b + "/" + name + ".out 2>/dev/null\n" + "exit $(cat " + b +
                       "/" + name + ".status 2>/dev/null || echo 0)\n");
    old_path_ = std::getenv("PATH");
    setenv("PATH", (b + ":" + old_path_).c_str(), 1);
  }
  ~FakeSlurm() { setenv("PATH", old_path_.c_str(), 1); }
  std::string operator/(const std::string& file) const { return bin_ + "/" + file; }

 private:
  void Script(const std::string& name, const std::string& body) {
    const std::string path = bin_ + "/" + name;
    WriteText(path, "#!/bin/sh\n" + body);
    fs::permissions(path, fs::perms::owner_all);
  }
  std::string bin_;
  std::string old_path_;
};

TEST(BatchCli, SubmitsTrackThenChunkedRenderAndScriptsRenderTheirChunk) {
  TempDir dir;
  FakeSlurm slurm(dir);
  const std::string tracked = e2e::MakeShotProject(dir, "a", 12, 64, 36);
  ASSERT_FALSE(tracked.empty());
  // A project without segments has nothing to track: render only.
  TempDir plain;
  const std::string untracked = e2e::MakeShotProject(plain, "b", 12, 32, 18);
  ASSERT_EQ(Cli(dir, {"segment", "remove", untracked, "0"}).status, 0);

  const Result r = Cli(dir, {"batch",   "submit",     tracked,       plain.path().string(),
                             "--jobs",  dir / "jobs", "--output",    dir / "out",
                             "--chunk", "5",          "--partition", "night",
                             "--time",  "10",         "--mem",       "1G",
                             "--cpus",  "1",          "--format",    "png"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_THAT(r.out, HasSubstr("a.vlp: track job 100, render job 101 (3 chunks of 5 frames, 0:12"));
  EXPECT_THAT(r.out, HasSubstr("b.vlp: track job none, render job 102 (3 chunks"));
  const std::string args = Slurp(slurm / "sbatch.args");
  const std::string common = "--parsable --partition=night --time=10 --mem=1G --cpus-per-task=1";
  EXPECT_THAT(args, HasSubstr(common + " --job-name=velomar-track-a --output=" +
                              dir / "jobs/logs/a.track-%j.log"));
  EXPECT_THAT(args, HasSubstr("--array=0-2 --dependency=afterok:100 --kill-on-invalid-dep=yes"));
  EXPECT_THAT(args, HasSubstr("velomar-render-b --output=" +
                              dir / "jobs/logs/b.render-%A_%a.log --array=0-2 " +
                              dir / "jobs/scripts/b.render.sh"));

  // The last chunk is the short one; its files are what render --span makes.
  const std::string script = dir / "jobs/scripts/a.render.sh";
  ASSERT_EQ(std::system(("SLURM_ARRAY_TASK_ID=2 sh '" + script + "' >/dev/null 2>&1").c_str()), 0);
  std::vector<std::string> names;
  for (const auto& e : fs::directory_iterator(dir / "out/a")) names.push_back(e.path().filename());
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{"a_0010.png", "a_0011.png"}));
  EXPECT_THAT(Slurp(dir / "jobs/scripts/a.track.sh"),
              HasSubstr(" track '" + tracked + "' --all\n"));
}

TEST(BatchCli, NothingIsSubmittedWhenAProjectCannotBeOpened) {
  TempDir dir;
  FakeSlurm slurm(dir);
  const std::string good = e2e::MakeShotProject(dir, "a", 4, 32, 18);
  WriteText(dir / "broken.vlp", "not a project");
  Result r = Cli(dir, {"batch", "submit", good, dir / "broken.vlp", "--jobs", dir / "jobs"});
  EXPECT_EQ(r.status, 1);
  EXPECT_THAT(r.err, HasSubstr("Error while submitting to the farm:\n" + dir / "broken.vlp" +
                               " cannot be opened"));
  EXPECT_FALSE(fs::exists(slurm / "sbatch.args"));
  EXPECT_FALSE(fs::exists(dir / "jobs/jobs.tsv"));

  WriteText(slurm / "sbatch.refuse", "sbatch: error: invalid partition specified: nope\n");
  r = Cli(dir, {"batch", "submit", good, "--jobs", dir / "jobs", "--partition", "nope"});
  EXPECT_EQ(r.status, 1);
  EXPECT_THAT(r.err, HasSubstr("sbatch refused a.track.sh: sbatch: error: invalid partition"));
}

struct StatusCase {
  const char* name;
  std::string sacct, sacct_status, scontrol, squeue;
  std::vector<std::string> shown;  // standard output holds each
};

class BatchStatus : public ::testing::TestWithParam<StatusCase> {};

TEST_P(BatchStatus, SaysWhatIsDoneRunningAndFailedWithTheLogs) {
  TempDir dir;
  FakeSlurm slurm(dir);
  const std::string project = e2e::MakeShotProject(dir, "a", 12, 32, 18);
  // Submitted twice: the second submission (jobs 102, 103) is the one that counts.
  for (int i = 0; i < 2; ++i)
    ASSERT_EQ(Cli(dir, {"batch", "submit", project, "--jobs", dir / "jobs", "--chunk", "5"}).status,
              0);
  WriteText(dir / "jobs/logs/a.render-103_1.log", "Error while rendering:\n...\n");
  WriteText(dir / "jobs/logs/a.track-102.log", "Error while tracking:\n...\n");
  const StatusCase& c = GetParam();
  WriteText(slurm / "sacct.out", c.sacct);
  WriteText(slurm / "sacct.status", c.sacct_status);
  WriteText(slurm / "scontrol.out", c.scontrol);
  WriteText(slurm / "squeue.out", c.squeue);
  const Result r = Cli(dir, {"batch", "status", "--jobs", dir / "jobs"});
  ASSERT_EQ(r.status, 0) << r.err;
  for (std::string line : c.shown) {
    for (size_t at; (at = line.find("LOGS/")) != std::string::npos;)
      line.replace(at, 5, dir / "jobs/logs/");
    EXPECT_THAT(r.out, HasSubstr(line));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Cases,
    BatchStatus,
    ::testing::Values(
        StatusCase{"AllDone",
                   "102|COMPLETED|0:0\n102.batch|COMPLETED|0:0\n103_0|COMPLETED|0:0\n"
                   "103_1|COMPLETED|0:0\n103_2|COMPLETED|0:0\n",
                   "0",
                   "",
                   "",
                   {"a.vlp: done - track done, render 3 of 3 chunks done\n",
                    "1 projects: 1 done, 0 running, 0 waiting, 0 failed\n"}},
        // The queue is fresher than the accounting.
        StatusCase{
            "OneChunkFailedOneRunning",
            "102|COMPLETED|0:0\n103_0|COMPLETED|0:0\n103_1|FAILED|1:0\n103_[2]|PENDING|0:0\n",
            "0",
            "",
            "103_2|RUNNING\n",
            {"a.vlp: failed - track done, render 1 of 3 chunks done, 1 running, 1 failed\n",
             "  failed: render chunk 1 (frames 5:10), FAILED exit 1:0, log "
             "LOGS/a.render-103_1.log\n"}},
        // No accounting on the cluster: the controller's memory, ranges included.
        StatusCase{"WithoutAccounting",
                   "sacct: error: Slurm accounting storage is disabled\n",
                   "1",
                   "JobId=102 JobName=velomar-track-a JobState=COMPLETED Reason=None ExitCode=0:0\n"
                   "JobId=104 ArrayJobId=103 ArrayTaskId=0 JobState=CANCELLED Reason=None "
                   "ExitCode=0:15\n"
                   "JobId=103 ArrayJobId=103 ArrayTaskId=1-2%1 JobState=PENDING Reason=None "
                   "ExitCode=0:0\n",
                   "",
                   {"a.vlp: failed - track done, render 0 of 3 chunks done, 2 waiting, 1 failed\n",
                    "  failed: render chunk 0 (frames 0:5), CANCELLED exit 0:15, never started "
                    "(no log)\n"}},
        StatusCase{"TrackFailedChunksCancelled",
                   "102|FAILED|2:0\n103_[0-2]|CANCELLED by 0|0:0\n",
                   "0",
                   "",
                   "",
                   {"a.vlp: failed - track failed, render 0 of 3 chunks done, 3 failed\n",
                    "  failed: track, FAILED exit 2:0, log LOGS/a.track-102.log\n",
                    "  failed: render chunk 2 (frames 10:12), CANCELLED exit 0:0"}},
        StatusCase{"Queued",
                   "",
                   "0",
                   "",
                   "102|PENDING\n103_[0-2]|PENDING\n",
                   {"a.vlp: waiting - track waiting, render 0 of 3 chunks done, 3 waiting\n"}}),
    [](const auto& info) { return info.param.name; });

}  // namespace
