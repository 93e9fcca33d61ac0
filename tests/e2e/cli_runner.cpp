// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli_runner.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

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

Running::Running(const testing_support::TempDir& dir, const std::vector<std::string>& args)
    : out_(dir / ".stdout"), err_(dir / ".stderr") {
  std::vector<std::string> all{VELOMAR_CLI};
  all.insert(all.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (auto& a : all) argv.push_back(a.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&files, 1, out_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_addopen(&files, 2, err_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  const int error = posix_spawn(&pid_, VELOMAR_CLI, &files, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&files);
  if (error != 0) throw std::runtime_error("cannot start " + std::string(VELOMAR_CLI));
}

Running::~Running() {
  if (pid_ <= 0) return;
  kill(pid_, SIGKILL);
  int raw = 0;
  waitpid(pid_, &raw, 0);
}

bool Running::WaitForError(const std::string& text, std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (std::chrono::steady_clock::now() < end) {
    if (Slurp(err_).find(text) != std::string::npos) return true;
    int raw = 0;
    if (pid_ > 0 && waitpid(pid_, &raw, WNOHANG) == pid_) {
      // Ended: keep its status for Wait().
      ended_status_ = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
      pid_ = -1;
      return Slurp(err_).find(text) != std::string::npos;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return false;
}

void Running::Signal(int signal_number) {
  if (pid_ > 0) kill(pid_, signal_number);
}

Result Running::Wait() {
  if (pid_ > 0) {
    int raw = 0;
    waitpid(pid_, &raw, 0);
    ended_status_ = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
    pid_ = -1;
  }
  return {ended_status_, Slurp(out_), Slurp(err_)};
}

}  // namespace e2e
