// SPDX-License-Identifier: GPL-3.0-or-later
// velomar-cli batch: the pieces that talk to the farm's scheduler (Slurm)
// through its own commands, sbatch, squeue, sacct and scontrol, so that a
// studio submits to the cluster it already runs and no queue of ours sits
// in between.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace cli::farm {

// What a program printed and how it ended; status 127 when it could not be
// started at all.
struct ProgramResult {
  int status = -1;
  std::string out, err;
};

// Runs `argv` (the program looked up on PATH), waits for it and keeps its
// output; standard input is /dev/null.
ProgramResult RunProgram(const std::vector<std::string>& argv);

// The frames [first, last) of one project cut into render chunks of at most
// `chunk` frames: chunk k covers first + k * chunk up to the next one.
int32_t ChunkCount(int32_t first, int32_t last, int32_t chunk);

// The work area as `info --json` prints it: the first two integers after
// the key "work_area", whatever brackets hold them. Throws when there are none.
std::pair<int32_t, int32_t> WorkAreaFromInfo(const std::string& json);
// Whether `info --json` lists any segment.
bool HasSegments(const std::string& json);

// A single-quoted word for a POSIX shell.
std::string ShellQuote(const std::string& word);

// The job id that `sbatch --parsable` printed ("123" or "123;cluster").
// Throws when the text holds none.
std::string ParseJobId(const std::string& sbatch_out);

// One project's submission, one line of the jobs folder's record.
struct Submission {
  std::string project;                     // absolute path
  std::string name;                        // the name of its scripts and logs
  std::string output;                      // the folder of its rendered frames
  std::string track_job;                   // empty: nothing to track, no job
  std::string render_job;                  // the array's job id
  int32_t first = 0, last = 0, chunk = 1;  // the frames, as render --span takes them
  int32_t tasks() const { return ChunkCount(first, last, chunk); }
};

// The record file's lines: tab-separated fields, one submission a line, a
// later line of the same project replacing an earlier one.
std::string RecordLine(const Submission& s);
// Reads the record; lines it cannot read are skipped.
std::vector<Submission> ReadRecord(const std::string& text);

// Where the logs of a submission's jobs go, as sbatch --output takes them
// (%j, %A, %a) and as they are once the job ids are known.
std::string TrackLogPattern(const std::string& logs, const std::string& name);
std::string RenderLogPattern(const std::string& logs, const std::string& name);
std::string TrackLog(const std::string& logs, const std::string& name, const std::string& job);
std::string RenderLog(const std::string& logs,
                      const std::string& name,
                      const std::string& job,
                      int32_t task);

// What a job or array task is doing, in the words `batch status` uses.
enum class JobState { Unknown, Waiting, Running, Done, Failed };
const char* StateWord(JobState state);
// A scheduler's state word ("COMPLETED", "CANCELLED by 0", "RUNNING").
JobState FromSlurmState(const std::string& word);

struct JobRecord {
  JobState state = JobState::Unknown;
  std::string slurm_state;  // the scheduler's word
  std::string exit_code;    // "1:0" (status:signal); empty when not told
};

// Keys are job ids ("123") or array tasks ("124_3"). A later source
// overrides an earlier one for the same key: read sacct first, then
// scontrol, then squeue (the freshest).
using JobTable = std::map<std::string, JobRecord>;
// `sacct -n -P -X -o JobID,State,ExitCode`; pending ranges "124_[3-5%2]"
// become one key per task.
void ReadSacct(const std::string& out, JobTable& table);
// `squeue -h -r -o %i|%T`.
void ReadSqueue(const std::string& out, JobTable& table);
// `scontrol -o show job`: one line per job or array task (or range).
void ReadScontrol(const std::string& out, JobTable& table);

}  // namespace cli::farm
