// SPDX-License-Identifier: GPL-3.0-or-later
// velomar-cli batch: tracks and renders many projects on a Slurm farm. Each
// project becomes a track job and, depending on it, an array of render
// jobs, one chunk of frames each; both run velomar-cli's own track and
// render, so a farm job does exactly what a run on one machine does.
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>

#include "cli/commands.h"
#include "cli/farm_jobs.h"
#include "cli/json.h"
#include "cli/options.h"
#include "cli/output_file.h"
#include "cli/report.h"
#include "cli/segment_setup.h"

namespace cli {

namespace {

namespace fs = std::filesystem;
using farm::JobState;

constexpr int32_t kDefaultChunk = 25;
constexpr const char* kDefaultJobs = "velomar-jobs";
constexpr const char* kRecordFile = "jobs.tsv";

struct SubmitSettings {
  fs::path jobs;       // scripts, logs and the record
  std::string cli;     // the velomar-cli the jobs run
  std::string output;  // empty: a folder beside each project
  int32_t chunk = kDefaultChunk;
  std::vector<std::string> sbatch;  // what every sbatch gets
  std::vector<std::string> render;  // what every render gets after its span
  bool track = true;
  bool yes = false;
};

std::string ReadFile(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

std::string FirstLine(const std::string& text) {
  std::string line = text.substr(0, text.find('\n'));
  return line.empty() ? text : line;
}

std::vector<fs::path> CollectProjects(const std::vector<std::string>& args) {
  std::vector<fs::path> projects;
  for (const std::string& a : args) {
    const fs::path path = fs::absolute(a).lexically_normal();
    if (fs::is_directory(path)) {
      std::vector<fs::path> found;
      for (const auto& e : fs::directory_iterator(path))
        if (e.is_regular_file() && e.path().extension() == ".vlp") found.push_back(e.path());
      if (found.empty()) throw std::runtime_error("no project (.vlp) in the folder " + a);
      std::sort(found.begin(), found.end());
      projects.insert(projects.end(), found.begin(), found.end());
    } else if (fs::is_regular_file(path)) {
      projects.push_back(path);
    } else {
      throw std::runtime_error("no such project: " + a);
    }
  }
  return projects;
}

// Script and log names from the project's stem, made unique within one
// submission by a number when two folders hold projects of the same name.
std::string UniqueName(const fs::path& project, std::set<std::string>& taken) {
  std::string base;
  for (char c : project.stem().string())
    base += std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '_' ? c : '_';
  std::string name = base;
  for (int n = 2; !taken.insert(name).second; ++n) name = base + "-" + std::to_string(n);
  return name;
}

void WriteScript(const fs::path& file, const std::string& text) {
  WriteWhole(file, text);
  fs::permissions(file, fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec,
                  fs::perm_options::replace);
}

std::string TrackScript(const SubmitSettings& s, const farm::Submission& p) {
  std::string text =
      "#!/bin/sh\n"
      "# Tracks every segment of the project in order and saves it. A job stopped\n"
      "# by the scheduler keeps what it computed; submitted again, it goes on.\n"
      "exec " +
      farm::ShellQuote(s.cli) + " track " + farm::ShellQuote(p.project) + " --all";
  if (s.yes) text += " --yes";
  return text + "\n";
}

std::string RenderScript(const SubmitSettings& s, const farm::Submission& p) {
  std::string text =
      "#!/bin/sh\n"
      "# One chunk of frames per array task. Frames already whole in the output\n"
      "# folder are kept, so a task submitted again finishes what was stopped.\n"
      "task=${SLURM_ARRAY_TASK_ID:?runs as a task of a job array}\n"
      "first=$((" +
      std::to_string(p.first) + " + task * " + std::to_string(p.chunk) +
      "))\n"
      "last=$((first + " +
      std::to_string(p.chunk) +
      "))\n"
      "if [ \"$last\" -gt " +
      std::to_string(p.last) + " ]; then last=" + std::to_string(p.last) +
      "; fi\n"
      "exec " +
      farm::ShellQuote(s.cli) + " render " + farm::ShellQuote(p.project) + " -o " +
      farm::ShellQuote(p.output) + " --span \"$first:$last\" --skip-existing";
  for (const std::string& a : s.render) {
    text += ' ';
    text += farm::ShellQuote(a);
  }
  return text + "\n";
}

std::string Sbatch(const SubmitSettings& s, std::vector<std::string> args, const fs::path& script) {
  std::vector<std::string> argv = {"sbatch", "--parsable"};
  argv.insert(argv.end(), s.sbatch.begin(), s.sbatch.end());
  argv.insert(argv.end(), args.begin(), args.end());
  argv.push_back(script.string());
  const farm::ProgramResult r = farm::RunProgram(argv);
  if (r.status == 127)
    throw std::runtime_error("sbatch cannot be run (" + r.err + "): is Slurm's client installed?");
  if (r.status != 0)
    throw std::runtime_error("sbatch refused " + script.filename().string() + ": " +
                             FirstLine(r.err));
  return farm::ParseJobId(r.out);
}

// What `info --json` says of a project, through the same program the jobs
// run, so the frame numbers are those render --span takes.
farm::Submission Inspect(const SubmitSettings& s,
                         const fs::path& project,
                         std::string name,
                         bool& has_segments) {
  std::vector<std::string> argv = {s.cli, "info", "--json", project.string()};
  if (s.yes) argv.push_back("--yes");
  const farm::ProgramResult r = farm::RunProgram(argv);
  if (r.status != 0) {
    std::string why = r.err;
    while (!why.empty() && (why.back() == '\n' || why.back() == '.')) why.pop_back();
    const auto colon = why.find(":\n");
    if (colon != std::string::npos) why = why.substr(colon + 2);
    throw std::runtime_error(project.string() + " cannot be opened: " + why);
  }
  farm::Submission p;
  p.project = project.string();
  p.name = std::move(name);
  const auto [first, last] = farm::WorkAreaFromInfo(r.out);
  p.first = first;
  p.last = last;
  p.chunk = s.chunk;
  if (p.last <= p.first) throw std::runtime_error(project.string() + " has an empty work area");
  p.output = s.output.empty()
                 ? (project.parent_path() / (project.stem().string() + "_render")).string()
                 : (fs::path(s.output) / p.name).string();
  has_segments = farm::HasSegments(r.out);
  return p;
}

int RunSubmit(const std::vector<std::string>& args) {
  const Options options(args, {"--overlay-only", "--no-track", "--yes", "--json"},
                        {"--jobs", "--output", "--chunk", "--partition", "--time", "--mem",
                         "--cpus", "--format", "--cli", "--sbatch"});
  const bool json = options.flag("--json");
  if (options.positional().empty())
    throw UsageError("batch submit needs PROJECT.vlp files or folders");
  SubmitSettings s;
  if (options.has("--chunk")) {
    s.chunk = int32_t(ParseCount(options.value("--chunk"), "--chunk"));
    if (s.chunk < 1) throw UsageError("--chunk must be 1 or more frames");
  }
  const std::string cpus = options.has("--cpus") ? options.value("--cpus") : "2";
  if (ParseCount(cpus, "--cpus") < 1) throw UsageError("--cpus must be 1 or more");
  s.track = !options.flag("--no-track");
  s.yes = options.flag("--yes");
  if (options.has("--partition")) s.sbatch.push_back("--partition=" + options.value("--partition"));
  s.sbatch.push_back("--time=" + (options.has("--time") ? options.value("--time") : "2:00:00"));
  s.sbatch.push_back("--mem=" + (options.has("--mem") ? options.value("--mem") : "4G"));
  s.sbatch.push_back("--cpus-per-task=" + cpus);
  for (const std::string& extra : options.values("--sbatch")) s.sbatch.push_back(extra);
  if (options.has("--format")) s.render = {"--format", options.value("--format")};
  if (options.flag("--overlay-only")) s.render.push_back("--overlay-only");
  try {
    s.jobs = fs::absolute(options.has("--jobs") ? options.value("--jobs") : kDefaultJobs);
    if (options.has("--output")) s.output = fs::absolute(options.value("--output")).string();
    s.cli =
        options.has("--cli") ? options.value("--cli") : fs::read_symlink("/proc/self/exe").string();

    // Every project is opened before anything is submitted: a bad one
    // stops the submission whole.
    std::set<std::string> taken;
    std::vector<farm::Submission> plan;
    std::vector<bool> track;
    for (const fs::path& project : CollectProjects(options.positional())) {
      bool segments = false;
      plan.push_back(Inspect(s, project, UniqueName(project, taken), segments));
      track.push_back(s.track && segments);
    }
    fs::create_directories(s.jobs / "scripts");
    fs::create_directories(s.jobs / "logs");
    const std::string logs = (s.jobs / "logs").string();

    Json j;
    j.begin_object().key("jobs").value(s.jobs.string()).key("projects").begin_array();
    for (size_t i = 0; i < plan.size(); ++i) {
      farm::Submission& p = plan[i];
      const fs::path track_script = s.jobs / "scripts" / (p.name + ".track.sh");
      const fs::path render_script = s.jobs / "scripts" / (p.name + ".render.sh");
      WriteScript(track_script, TrackScript(s, p));
      WriteScript(render_script, RenderScript(s, p));
      if (track[i])
        p.track_job = Sbatch(s,
                             {"--job-name=velomar-track-" + p.name,
                              "--output=" + farm::TrackLogPattern(logs, p.name)},
                             track_script);
      std::vector<std::string> render = {"--job-name=velomar-render-" + p.name,
                                         "--output=" + farm::RenderLogPattern(logs, p.name),
                                         "--array=0-" + std::to_string(p.tasks() - 1)};
      if (!p.track_job.empty()) {
        render.push_back("--dependency=afterok:" + p.track_job);
        // A failed track leaves nothing to render: the chunks end rather
        // than wait for ever.
        render.push_back("--kill-on-invalid-dep=yes");
      }
      p.render_job = Sbatch(s, render, render_script);
      std::ofstream record(s.jobs / kRecordFile, std::ios::app | std::ios::binary);
      record << farm::RecordLine(p);
      if (!record.flush())
        throw std::runtime_error("cannot write " + (s.jobs / kRecordFile).string());
      if (json) {
        j.begin_object().key("project").value(p.project).key("output").value(p.output).key(
            "track_job");
        if (p.track_job.empty())
          j.null();
        else
          j.value(p.track_job);
        j.key("render_job")
            .value(p.render_job)
            .key("chunks")
            .value(p.tasks())
            .key("span")
            .value(std::to_string(p.first) + ":" + std::to_string(p.last))
            .end_object();
      } else {
        std::printf("%s: track job %s, render job %s (%d chunks of %d frames, %d:%d into %s)\n",
                    p.project.c_str(), p.track_job.empty() ? "none" : p.track_job.c_str(),
                    p.render_job.c_str(), p.tasks(), p.chunk, p.first, p.last, p.output.c_str());
      }
      std::fflush(stdout);
    }
    j.end_array().end_object();
    if (json) std::printf("%s\n", j.str().c_str());
    if (!json)
      std::printf("Logs in %s; velomar-cli batch status --jobs %s tells how they went.\n",
                  logs.c_str(), s.jobs.string().c_str());
    return 0;
  } catch (const UsageError&) {
    throw;
  } catch (const std::exception& e) {
    return ReportFailure("submitting to the farm", e, json);
  }
}

// The jobs' states as the scheduler knows them: the accounting (finished
// jobs), else the controller's memory of recent jobs, then the queue.
farm::JobTable AskScheduler(const std::vector<std::string>& ids) {
  std::string list;
  for (const auto& id : ids) list += (list.empty() ? "" : ",") + id;
  farm::JobTable table;
  const farm::ProgramResult sacct =
      farm::RunProgram({"sacct", "-n", "-P", "-X", "-j", list, "-o", "JobID,State,ExitCode"});
  if (sacct.status == 0) {
    farm::ReadSacct(sacct.out, table);
  } else {
    for (const auto& id : ids) {
      const farm::ProgramResult r = farm::RunProgram({"scontrol", "-o", "show", "job", id});
      if (r.status == 127) break;
      if (r.status == 0) farm::ReadScontrol(r.out, table);
    }
  }
  const farm::ProgramResult squeue =
      farm::RunProgram({"squeue", "-h", "-r", "-j", list, "-o", "%i|%T"});
  if (squeue.status == 127 && sacct.status == 127)
    throw std::runtime_error("neither squeue nor sacct can be run: ask on a host of the cluster");
  if (squeue.status == 0) farm::ReadSqueue(squeue.out, table);
  // Nothing known and the queue refused: the cluster is not reachable from
  // here, which must not read as jobs the scheduler forgot.
  if (table.empty() && squeue.status != 0)
    throw std::runtime_error("squeue failed: " + FirstLine(squeue.err));
  return table;
}

struct Failure {
  std::string what;  // "track" or "render chunk N (frames A:B)"
  std::string state, exit_code, log;
};

struct ProjectState {
  JobState state = JobState::Unknown;
  JobState track = JobState::Unknown;
  int32_t counts[5] = {};  // render tasks by JobState
  std::vector<Failure> failures;
};

JobState Overall(const ProjectState& p, bool tracked, int32_t tasks) {
  const auto n = [&](JobState s) { return p.counts[int(s)] + (tracked && p.track == s ? 1 : 0); };
  if (n(JobState::Failed) > 0) return JobState::Failed;
  if (p.counts[int(JobState::Done)] == tasks && (!tracked || p.track == JobState::Done))
    return JobState::Done;
  if (n(JobState::Running) > 0) return JobState::Running;
  if (n(JobState::Waiting) > 0) return JobState::Waiting;
  return JobState::Unknown;
}

ProjectState Assess(const farm::Submission& p,
                    const farm::JobTable& table,
                    const std::string& logs) {
  ProjectState out;
  const auto find = [&](const std::string& key) {
    const auto found = table.find(key);
    return found == table.end() ? farm::JobRecord{} : found->second;
  };
  const auto failure = [&](std::string what, const farm::JobRecord& r, const std::string& log) {
    out.failures.push_back(
        {std::move(what), r.slurm_state, r.exit_code, fs::exists(log) ? log : std::string()});
  };
  if (!p.track_job.empty()) {
    const farm::JobRecord r = find(p.track_job);
    out.track = r.state;
    if (r.state == JobState::Failed) failure("track", r, farm::TrackLog(logs, p.name, p.track_job));
  }
  for (int32_t t = 0; t < p.tasks(); ++t) {
    farm::JobRecord r = find(p.render_job + "_" + std::to_string(t));
    // An array none of whose tasks has started yet is one job to the queue.
    if (r.state == JobState::Unknown) r = find(p.render_job);
    ++out.counts[int(r.state)];
    if (r.state == JobState::Failed) {
      const int32_t first = p.first + t * p.chunk;
      failure("render chunk " + std::to_string(t) + " (frames " + std::to_string(first) + ":" +
                  std::to_string(std::min(first + p.chunk, p.last)) + ")",
              r, farm::RenderLog(logs, p.name, p.render_job, t));
    }
  }
  out.state = Overall(out, !p.track_job.empty(), p.tasks());
  return out;
}

int RunStatus(const std::vector<std::string>& args) {
  const Options options(args, {"--json"}, {"--jobs"});
  const bool json = options.flag("--json");
  if (!options.positional().empty()) throw UsageError("batch status takes no arguments");
  try {
    const fs::path jobs =
        fs::absolute(options.has("--jobs") ? options.value("--jobs") : kDefaultJobs);
    const fs::path record = jobs / kRecordFile;
    if (!fs::exists(record))
      throw std::runtime_error("no submission recorded in " + record.string() +
                               ": batch submit makes it");
    const std::vector<farm::Submission> all = farm::ReadRecord(ReadFile(record));
    std::vector<std::string> ids;
    for (const auto& p : all) {
      if (!p.track_job.empty()) ids.push_back(p.track_job);
      ids.push_back(p.render_job);
    }
    const farm::JobTable table = ids.empty() ? farm::JobTable{} : AskScheduler(ids);
    const std::string logs = (jobs / "logs").string();
    int32_t totals[5] = {};
    Json j;
    j.begin_object().key("projects").begin_array();
    for (const auto& p : all) {
      const ProjectState st = Assess(p, table, logs);
      ++totals[int(st.state)];
      const int32_t done = st.counts[int(JobState::Done)];
      if (json) {
        j.begin_object()
            .key("project")
            .value(p.project)
            .key("state")
            .value(farm::StateWord(st.state))
            .key("track_job")
            .value(p.track_job)
            .key("track")
            .value(p.track_job.empty() ? "none" : farm::StateWord(st.track))
            .key("render_job")
            .value(p.render_job)
            .key("chunks")
            .value(p.tasks());
        for (JobState s : {JobState::Done, JobState::Running, JobState::Waiting, JobState::Failed})
          j.key(farm::StateWord(s)).value(st.counts[int(s)]);
        j.key("failures").begin_array();
        for (const auto& f : st.failures)
          j.begin_object()
              .key("job")
              .value(f.what)
              .key("slurm_state")
              .value(f.state)
              .key("exit_code")
              .value(f.exit_code)
              .key("log")
              .value(f.log)
              .end_object();
        j.end_array().end_object();
        continue;
      }
      std::printf("%s: %s - track %s, render %d of %d chunks done", p.project.c_str(),
                  farm::StateWord(st.state),
                  p.track_job.empty() ? "none" : farm::StateWord(st.track), done, p.tasks());
      for (JobState s : {JobState::Running, JobState::Waiting, JobState::Failed, JobState::Unknown})
        if (st.counts[int(s)] > 0) std::printf(", %d %s", st.counts[int(s)], farm::StateWord(s));
      std::printf("\n");
      for (const auto& f : st.failures)
        std::printf("  failed: %s, %s%s%s, %s\n", f.what.c_str(), f.state.c_str(),
                    f.exit_code.empty() ? "" : " exit ", f.exit_code.c_str(),
                    f.log.empty() ? "never started (no log)" : ("log " + f.log).c_str());
    }
    if (json) {
      j.end_array();
      for (JobState s : {JobState::Done, JobState::Running, JobState::Waiting, JobState::Failed,
                         JobState::Unknown})
        j.key(farm::StateWord(s)).value(totals[int(s)]);
      j.end_object();
      std::printf("%s\n", j.str().c_str());
    } else {
      std::printf("%zu projects: %d done, %d running, %d waiting, %d failed", all.size(),
                  totals[int(JobState::Done)], totals[int(JobState::Running)],
                  totals[int(JobState::Waiting)], totals[int(JobState::Failed)]);
      if (totals[int(JobState::Unknown)] > 0)
        std::printf(", %d unknown to the scheduler", totals[int(JobState::Unknown)]);
      std::printf("\n");
    }
    return 0;
  } catch (const std::exception& e) {
    return ReportFailure("asking the farm", e, json);
  }
}

}  // namespace

int RunBatch(const std::vector<std::string>& args) {
  if (args.empty()) throw UsageError("batch needs submit or status");
  const std::vector<std::string> rest(args.begin() + 1, args.end());
  if (args[0] == "submit") return RunSubmit(rest);
  if (args[0] == "status") return RunStatus(rest);
  throw UsageError("batch takes submit or status, not '" + args[0] + "'");
}

const Command kBatchCommand = {
    "batch", "track and render projects on a Slurm farm",
    "usage: velomar-cli batch submit PROJECT.vlp|DIR... [--jobs DIR] [--output DIR]\n"
    "                   [--chunk N] [--partition NAME] [--time LIMIT] [--mem SIZE]\n"
    "                   [--cpus N] [--format WORD] [--overlay-only] [--no-track]\n"
    "                   [--sbatch ARG]... [--cli PATH] [--yes] [--json]\n"
    "       velomar-cli batch status [--jobs DIR] [--json]\n"
    "\n"
    "submit hands each project (a DIR stands for the .vlp files in it) to\n"
    "Slurm with sbatch: one job tracks all its segments in order (track --all),\n"
    "and a job array renders its work area (render --skip-existing), one task\n"
    "per chunk of frames, once the track job has succeeded. Projects run side\n"
    "by side. Every project is opened first: one that cannot be stops the\n"
    "submission before any job is queued. Prints each project's job ids.\n"
    "Submitting the same projects again resumes: the track job goes on from\n"
    "the frames saved, and the render tasks keep the frames already written.\n"
    "  --jobs DIR         the jobs' scripts, logs and record (default\n"
    "                     ./velomar-jobs); on storage every node sees\n"
    "  --output DIR       frames of each project into DIR/NAME (default: the\n"
    "                     folder NAME_render beside the project)\n"
    "  --chunk N          frames per render task (default 25)\n"
    "  --partition NAME   the partition (default the cluster's)\n"
    "  --time LIMIT       each job's time limit, as sbatch takes it (default 2:00:00)\n"
    "  --mem SIZE         memory per job (default 4G)\n"
    "  --cpus N           CPUs per task (default 2)\n"
    "  --format WORD, --overlay-only  passed to render\n"
    "  --no-track         render only: the projects are tracked already\n"
    "  --sbatch ARG       one more sbatch option for every job (repeatable)\n"
    "  --cli PATH         the velomar-cli the nodes run (default this one)\n"
    "  --yes              answer questions opening a project raises with yes\n"
    "\n"
    "status asks the scheduler (sacct, else scontrol, and squeue) about the\n"
    "latest submission of every project in the jobs folder, and prints each\n"
    "project as done, running, waiting or failed, with the scheduler's state,\n"
    "exit code and log file of every failed job.\n",
    RunBatch};

}  // namespace cli
