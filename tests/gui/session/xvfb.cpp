// SPDX-License-Identifier: GPL-3.0-or-later
#include "session/xvfb.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace gui_testing {
namespace {
pid_t server = -1;

std::string FindXvfb() {
  const char* path = std::getenv("PATH");
  std::string dirs = path ? path : "/usr/bin:/bin";
  size_t start = 0;
  while (start <= dirs.size()) {
    const size_t end = dirs.find(':', start);
    const std::string dir = dirs.substr(start, end == std::string::npos ? end : end - start);
    const std::string candidate = dir + "/Xvfb";
    if (!dir.empty() && access(candidate.c_str(), X_OK) == 0) return candidate;
    if (end == std::string::npos) break;
    start = end + 1;
  }
  return {};
}
}  // namespace

std::string StartXvfbIfNeeded() {
  if (const char* display = std::getenv("DISPLAY"); display && *display) return {};
  const std::string xvfb = FindXvfb();
  if (xvfb.empty()) return "Xvfb is not installed (scripts/setup.sh installs it)";
  int fds[2];
  if (pipe(fds) != 0) return "no pipe for Xvfb's display number";
  server = fork();
  if (server < 0) return "cannot start Xvfb";
  if (server == 0) {
    // A session that crashes takes its server with it.
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    close(fds[0]);
    const int null = open("/dev/null", O_WRONLY);
    if (null >= 0) dup2(null, STDERR_FILENO);
    const std::string fd = std::to_string(fds[1]);
    // -displayfd: the server picks a free display and writes its number.
    execl(xvfb.c_str(), "Xvfb", "-displayfd", fd.c_str(), "-screen", "0", "1600x1000x24",
          "-nolisten", "tcp", static_cast<char*>(nullptr));
    _exit(127);
  }
  close(fds[1]);
  std::string number;
  char c;
  while (read(fds[0], &c, 1) == 1 && c != '\n') number += c;
  close(fds[0]);
  if (number.empty()) {
    StopXvfb();
    return "Xvfb did not start";
  }
  setenv("DISPLAY", (":" + number).c_str(), 1);
  return {};
}

void StopXvfb() {
  if (server <= 0) return;
  kill(server, SIGTERM);
  waitpid(server, nullptr, 0);
  server = -1;
}

}  // namespace gui_testing
