// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/farm_jobs.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

extern char** environ;

namespace cli::farm {

namespace {

namespace fs = std::filesystem;

std::string ReadAll(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

std::vector<std::string> Split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  size_t start = 0;
  for (;;) {
    const size_t end = text.find(separator, start);
    parts.push_back(text.substr(start, end - start));
    if (end == std::string::npos) return parts;
    start = end + 1;
  }
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (!line.empty()) lines.push_back(line);
  }
  return lines;
}

bool ParseInt(const std::string& text, int32_t& out) {
  if (text.empty() || text.size() > 9) return false;
  for (char c : text)
    if (!std::isdigit(static_cast<unsigned char>(c))) return false;
  out = int32_t(std::stol(text));
  return true;
}

// "3-5,9%2" (an array's task list, with or without a limit) to its tasks;
// empty when it does not read as one.
std::vector<int32_t> ExpandTasks(std::string list) {
  list = list.substr(0, list.find('%'));
  std::vector<int32_t> tasks;
  for (const std::string& part : Split(list, ',')) {
    const auto dash = part.find('-');
    int32_t from = 0, to = 0;
    if (dash == std::string::npos) {
      if (!ParseInt(part, from)) return {};
      to = from;
    } else if (!ParseInt(part.substr(0, dash), from) || !ParseInt(part.substr(dash + 1), to) ||
               to < from || to - from > 1000000) {
      return {};
    }
    for (int32_t t = from; t <= to; ++t) tasks.push_back(t);
  }
  return tasks;
}

// Puts `record` under `id`, or under each task when `id` names a range of
// an array ("124_[3-5]" from sacct, or a job and a task list from scontrol).
void Put(JobTable& table,
         const std::string& job,
         const std::string& tasks,
         const JobRecord& record) {
  if (tasks.empty()) {
    table[job] = record;
    return;
  }
  for (const int32_t t : ExpandTasks(tasks)) table[job + "_" + std::to_string(t)] = record;
}

void PutId(JobTable& table, const std::string& id, const JobRecord& record) {
  const auto underscore = id.find('_');
  if (underscore == std::string::npos) {
    table[id] = record;
    return;
  }
  std::string tasks = id.substr(underscore + 1);
  if (!tasks.empty() && tasks.front() == '[') tasks = tasks.substr(1, tasks.find(']') - 1);
  Put(table, id.substr(0, underscore), tasks, record);
}

JobRecord Record(const std::string& slurm_state, const std::string& exit_code) {
  return {FromSlurmState(slurm_state), slurm_state.substr(0, slurm_state.find(' ')), exit_code};
}

}  // namespace

ProgramResult RunProgram(const std::vector<std::string>& argv) {
  char folder[] = "/tmp/velomar-batch-XXXXXX";
  if (!mkdtemp(folder))
    throw std::runtime_error(std::string("temporary folder: ") + std::strerror(errno));
  const fs::path out = fs::path(folder) / "out", err = fs::path(folder) / "err";
  std::vector<std::string> args = argv;
  std::vector<char*> raw;
  for (auto& a : args) raw.push_back(a.data());
  raw.push_back(nullptr);
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&files, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  posix_spawn_file_actions_addopen(&files, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  pid_t pid = -1;
  const int spawned = posix_spawnp(&pid, raw[0], &files, nullptr, raw.data(), environ);
  posix_spawn_file_actions_destroy(&files);
  ProgramResult result;
  if (spawned != 0) {
    result.status = 127;
    result.err = argv[0] + ": " + std::strerror(spawned);
  } else {
    int raw_status = 0;
    while (waitpid(pid, &raw_status, 0) < 0 && errno == EINTR) {
    }
    result.status = WIFEXITED(raw_status) ? WEXITSTATUS(raw_status) : 128 + WTERMSIG(raw_status);
    result.out = ReadAll(out);
    result.err = ReadAll(err);
  }
  std::error_code ignored;
  fs::remove_all(folder, ignored);
  return result;
}

int32_t ChunkCount(int32_t first, int32_t last, int32_t chunk) {
  if (last <= first || chunk <= 0) return 0;
  return int32_t((int64_t(last) - first + chunk - 1) / chunk);
}

std::pair<int32_t, int32_t> WorkAreaFromInfo(const std::string& json) {
  const auto key = json.find("\"work_area\"");
  if (key != std::string::npos) {
    std::vector<int32_t> numbers;
    size_t i = key + 11;
    while (numbers.size() < 2 && i < json.size() && json[i] != '}') {
      // A minus after a digit separates ("1-120"); elsewhere it is a sign.
      const bool minus = json[i] == '-' && i + 1 < json.size() &&
                         std::isdigit(static_cast<unsigned char>(json[i + 1])) &&
                         !std::isdigit(static_cast<unsigned char>(json[i - 1]));
      if (!minus && !std::isdigit(static_cast<unsigned char>(json[i]))) {
        ++i;
        continue;
      }
      size_t end = i + 1;
      while (end < json.size() && std::isdigit(static_cast<unsigned char>(json[end]))) ++end;
      numbers.push_back(int32_t(std::stol(json.substr(i, end - i))));
      i = end;
    }
    if (numbers.size() == 2) return {numbers[0], numbers[1]};
  }
  throw std::runtime_error("info --json names no work area");
}

bool HasSegments(const std::string& json) {
  const auto key = json.find("\"segments\"");
  if (key == std::string::npos) return false;
  const auto open = json.find('[', key);
  if (open == std::string::npos) return false;
  const auto next = json.find_first_not_of(" \t\r\n", open + 1);
  return next != std::string::npos && json[next] != ']';
}

std::string ShellQuote(const std::string& word) {
  std::string q = "'";
  for (char c : word) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return q + "'";
}

std::string ParseJobId(const std::string& sbatch_out) {
  for (const std::string& line : Lines(sbatch_out)) {
    const std::string id = line.substr(0, line.find(';'));
    int32_t n = 0;
    if (ParseInt(id, n)) return id;
  }
  throw std::runtime_error("sbatch gave no job id: " + sbatch_out);
}

std::string RecordLine(const Submission& s) {
  return s.project + '\t' + s.name + '\t' + s.output + '\t' + s.track_job + '\t' + s.render_job +
         '\t' + std::to_string(s.first) + '\t' + std::to_string(s.last) + '\t' +
         std::to_string(s.chunk) + '\n';
}

std::vector<Submission> ReadRecord(const std::string& text) {
  std::vector<Submission> all;
  for (const std::string& line : Lines(text)) {
    const std::vector<std::string> f = Split(line, '\t');
    if (f.size() != 8) continue;
    Submission s{f[0], f[1], f[2], f[3], f[4]};
    // Frame numbers may be negative once the start frame counts.
    try {
      s.first = std::stoi(f[5]);
      s.last = std::stoi(f[6]);
      s.chunk = std::stoi(f[7]);
    } catch (const std::exception&) {
      continue;
    }
    if (s.chunk <= 0 || s.render_job.empty()) continue;
    bool replaced = false;
    for (auto& earlier : all)
      if (earlier.project == s.project) earlier = s, replaced = true;
    if (!replaced) all.push_back(s);
  }
  return all;
}

std::string TrackLogPattern(const std::string& logs, const std::string& name) {
  return (fs::path(logs) / (name + ".track-%j.log")).string();
}

std::string RenderLogPattern(const std::string& logs, const std::string& name) {
  return (fs::path(logs) / (name + ".render-%A_%a.log")).string();
}

std::string TrackLog(const std::string& logs, const std::string& name, const std::string& job) {
  return (fs::path(logs) / (name + ".track-" + job + ".log")).string();
}

std::string RenderLog(const std::string& logs,
                      const std::string& name,
                      const std::string& job,
                      int32_t task) {
  return (fs::path(logs) / (name + ".render-" + job + "_" + std::to_string(task) + ".log"))
      .string();
}

const char* StateWord(JobState state) {
  switch (state) {
    case JobState::Waiting:
      return "waiting";
    case JobState::Running:
      return "running";
    case JobState::Done:
      return "done";
    case JobState::Failed:
      return "failed";
    case JobState::Unknown:
      break;
  }
  return "unknown";
}

JobState FromSlurmState(const std::string& word) {
  const std::string state = word.substr(0, word.find(' '));
  if (state == "COMPLETED") return JobState::Done;
  if (state == "PENDING" || state == "REQUEUED" || state == "REQUEUE_HOLD" ||
      state == "REQUEUE_FED" || state == "RESV_DEL_HOLD")
    return JobState::Waiting;
  if (state == "RUNNING" || state == "COMPLETING" || state == "CONFIGURING" ||
      state == "SUSPENDED" || state == "STAGE_OUT" || state == "SIGNALING" || state == "RESIZING" ||
      state == "STOPPED")
    return JobState::Running;
  if (state == "FAILED" || state == "CANCELLED" || state == "TIMEOUT" || state == "NODE_FAIL" ||
      state == "PREEMPTED" || state == "OUT_OF_MEMORY" || state == "BOOT_FAIL" ||
      state == "DEADLINE" || state == "REVOKED" || state == "SPECIAL_EXIT")
    return JobState::Failed;
  return JobState::Unknown;
}

void ReadSacct(const std::string& out, JobTable& table) {
  for (const std::string& line : Lines(out)) {
    const std::vector<std::string> f = Split(line, '|');
    if (f.size() < 3) continue;
    // Steps ("123.batch") belong to their job, which has a line of its own.
    if (f[0].find('.') != std::string::npos) continue;
    PutId(table, f[0], Record(f[1], f[2]));
  }
}

void ReadSqueue(const std::string& out, JobTable& table) {
  for (const std::string& line : Lines(out)) {
    const std::vector<std::string> f = Split(line, '|');
    if (f.size() < 2) continue;
    PutId(table, f[0], Record(f[1], std::string()));
  }
}

void ReadScontrol(const std::string& out, JobTable& table) {
  for (const std::string& line : Lines(out)) {
    std::map<std::string, std::string> fields;
    std::istringstream words(line);
    for (std::string word; words >> word;) {
      const auto eq = word.find('=');
      if (eq != std::string::npos) fields.emplace(word.substr(0, eq), word.substr(eq + 1));
    }
    if (!fields.count("JobId") || !fields.count("JobState")) continue;
    const JobRecord record = Record(fields["JobState"], fields["ExitCode"]);
    if (fields.count("ArrayJobId") && fields.count("ArrayTaskId"))
      Put(table, fields["ArrayJobId"], fields["ArrayTaskId"], record);
    else
      table[fields["JobId"]] = record;
  }
}

}  // namespace cli::farm
