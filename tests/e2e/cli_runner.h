// SPDX-License-Identifier: GPL-3.0-or-later
// Runs velomar-cli as a script does: arguments quoted for the shell, no
// standard input, standard output and error captured.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

#include "testing/files.h"

namespace e2e {

struct Result {
  int status = -1;  // exit status; 128 + signal number when a signal ended it
  std::string out, err;
};

// Runs the tool with `args`, keeping its output in files inside `dir`.
Result Cli(const testing_support::TempDir& dir, const std::vector<std::string>& args);

// The tool running while the test acts on it (sends it a signal). Output
// goes to files inside `dir`, as with Cli().
class Running {
 public:
  Running(const testing_support::TempDir& dir, const std::vector<std::string>& args);
  // Kills and reaps the process if the test did not wait for it.
  ~Running();
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;

  // Waits until standard error holds `text`; false when the program ended
  // or `limit` passed first.
  bool WaitForError(const std::string& text, std::chrono::milliseconds limit);
  void Signal(int signal_number);
  Result Wait();

 private:
  pid_t pid_ = -1;
  int ended_status_ = -1;
  std::string out_, err_;
};

// A file's whole contents; empty when it cannot be read.
std::string Slurp(const std::string& path);

}  // namespace e2e
