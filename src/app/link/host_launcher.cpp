// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/link/host_launcher.h"

#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>
#include <stdexcept>
#include <thread>

#include "base/errors.h"

extern char** environ;

namespace app::link {

namespace {

constexpr const char* kCreateProcess = "CreateProcess(AE)";

}  // namespace

std::vector<std::string> SplitCommandLine(const std::string& line) {
  std::vector<std::string> words;
  std::string word;
  bool in_word = false;
  for (size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (c == ' ' || c == '\t' || c == '\n') {
      if (in_word) words.push_back(std::move(word));
      word.clear();
      in_word = false;
      continue;
    }
    in_word = true;
    if (c == '\'') {
      const size_t end = line.find('\'', i + 1);
      if (end == std::string::npos) throw std::runtime_error("unclosed quote in: " + line);
      word.append(line, i + 1, end - i - 1);
      i = end;
    } else if (c == '"') {
      for (++i;; ++i) {
        if (i >= line.size()) throw std::runtime_error("unclosed quote in: " + line);
        if (line[i] == '"') break;
        if (line[i] == '\\' && i + 1 < line.size() && (line[i + 1] == '"' || line[i + 1] == '\\'))
          ++i;
        word += line[i];
      }
    } else if (c == '\\' && i + 1 < line.size()) {
      word += line[++i];
    } else {
      word += c;
    }
  }
  if (in_word) words.push_back(std::move(word));
  return words;
}

HostLauncher::HostLauncher(ProfileStore& profile, HostWindow window)
    : profile_(profile), window_(std::move(window)) {}

const std::string& HostLauncher::GetHostCommand() {
  if (command_.empty()) command_ = profile_.get_string(kHostCommandSection, kHostCommandKey, "");
  return command_;
}

bool HostLauncher::FindHostWindow() {
  return window_.find && window_.find();
}

void HostLauncher::SwitchToHost() {
  if (!FindHostWindow()) return;
  if (!window_.front || !window_.front()) throw SystemError(EPERM, "SetForegroundWindow");
}

void HostLauncher::LaunchHost() {
  std::vector<std::string> words;
  try {
    words = SplitCommandLine(GetHostCommand());
  } catch (const std::runtime_error&) {
    throw SystemError(EINVAL, kCreateProcess);
  }
  if (words.empty()) throw SystemError(ENOENT, kCreateProcess);
  std::vector<char*> argv;
  for (auto& w : words) argv.push_back(w.data());
  argv.push_back(nullptr);
  pid_t pid = 0;
  // posix_spawnp reports a program that cannot be run, as the platform's
  // process creation does.
  const int error = ::posix_spawnp(&pid, argv[0], nullptr, nullptr, argv.data(), environ);
  if (error != 0) throw SystemError(error, kCreateProcess);
  // We do not wait for the host, but its exit must not leave a zombie.
  std::thread([pid] {
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
  }).detach();
}

void HostLauncher::activate_or_launch() {
  if (FindHostWindow())
    SwitchToHost();
  else
    LaunchHost();
}

}  // namespace app::link
