// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/staging_file.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <charconv>
#include <filesystem>

#include "base/errors.h"

namespace staging {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kWord = ".staging-";

std::string HostName() {
  char name[256] = {};
  if (::gethostname(name, sizeof name - 1) != 0 || name[0] == '\0') return "host";
  std::string host(name);
  // The name is read back up to the next '-': keep it one word.
  for (char& c : host)
    if (c == '-' || c == '/') c = '_';
  return host;
}

const std::string& ThisHost() {
  static const std::string host = HostName();
  return host;
}

std::string Prefix(const fs::path& target) {
  std::string prefix(1, '.');
  prefix += target.filename().string();
  prefix += kWord;
  return prefix;
}

// The process id in "HOST-PID-N" when HOST is this host, else 0.
pid_t OwnProcess(std::string_view rest) {
  const std::string& host = ThisHost();
  if (rest.size() <= host.size() + 1 || rest.substr(0, host.size()) != host ||
      rest[host.size()] != '-')
    return 0;
  rest.remove_prefix(host.size() + 1);
  long pid = 0;
  const char* end = rest.data() + rest.size();
  const auto [at, ec] = std::from_chars(rest.data(), end, pid);
  if (ec != std::errc() || at == end || *at != '-' || pid <= 0) return 0;
  unsigned long counter = 0;
  const auto [last, ec2] = std::from_chars(at + 1, end, counter);
  if (ec2 != std::errc() || last != end) return 0;
  return pid_t(pid);
}

bool Runs(pid_t pid) {
  return ::kill(pid, 0) == 0 || errno != ESRCH;
}

}  // namespace

std::string NameBeside(const std::string& target) {
  static std::atomic<unsigned> counter{0};
  const fs::path t(target);
  return (t.parent_path() / (Prefix(t) + ThisHost() + "-" + std::to_string(::getpid()) + "-" +
                             std::to_string(counter.fetch_add(1))))
      .string();
}

int CreateBeside(const std::string& target, std::string& name) {
  for (int attempt = 0; attempt < 100; ++attempt) {
    name = NameBeside(target);
    const int fd = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd >= 0 || errno != EEXIST) return fd;
  }
  errno = EEXIST;
  return -1;
}

void RemoveStale(const std::string& target) {
  const fs::path t(target);
  const std::string prefix = Prefix(t);
  std::error_code ec;
  const fs::path folder = t.parent_path().empty() ? fs::path(".") : t.parent_path();
  for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
    const std::string name = it->path().filename().string();
    if (name.compare(0, prefix.size(), prefix) != 0) continue;
    const pid_t pid = OwnProcess(std::string_view(name).substr(prefix.size()));
    if (pid == 0 || Runs(pid)) continue;
    std::error_code ignored;
    if (it->is_regular_file(ignored)) fs::remove(it->path(), ignored);
  }
}

void CheckWritable(const std::string& target) {
  const std::string operation = "writing " + target;
  std::error_code ec;
  if (fs::is_directory(target, ec)) throw SystemError(EISDIR, operation.c_str());
  std::string name;
  const int fd = CreateBeside(target, name);
  if (fd < 0) throw SystemError(operation.c_str());
  ::close(fd);
  ::unlink(name.c_str());
}

}  // namespace staging
