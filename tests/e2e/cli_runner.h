// Runs velomar-cli as a script does: arguments quoted for the shell, no
// standard input, standard output and error captured.
#pragma once

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

// A file's whole contents; empty when it cannot be read.
std::string Slurp(const std::string& path);

}  // namespace e2e
