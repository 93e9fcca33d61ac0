#include "cli_runner.h"

#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace e2e {

namespace {

std::string Quote(const std::string& s) {
  std::string q = "'";
  for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return q + "'";
}

}  // namespace

std::string Slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

Result Cli(const testing_support::TempDir& dir, const std::vector<std::string>& args) {
  std::string command = Quote(VELOMAR_CLI);
  for (const auto& a : args) {
    command += ' ';
    command += Quote(a);
  }
  const std::string out = dir / ".stdout", err = dir / ".stderr";
  command += " >";
  command += Quote(out);
  command += " 2>";
  command += Quote(err);
  command += " </dev/null";
  const int raw = std::system(command.c_str());
  return {WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw), Slurp(out), Slurp(err)};
}

}  // namespace e2e
