// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/output_file.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <system_error>

#include "base/errors.h"
#include "base/paths.h"
#include "base/staging_file.h"

namespace cli {

void WriteWhole(const std::filesystem::path& target, const std::string& content) {
  namespace fs = std::filesystem;
  staging::RemoveStale(target.string());
  std::string staging;
  const int fd = staging::CreateBeside(target.string(), staging);
  if (fd < 0) throw SystemError(("writing " + target.string()).c_str());
  ::close(fd);
  try {
    std::ofstream out;
    out.exceptions(std::ios::failbit | std::ios::badbit);
    errno = 0;
    out.open(staging, std::ios::binary | std::ios::trunc);
    out << content;
    out.close();
  } catch (const std::ios_base::failure&) {
    const int error = errno != 0 ? errno : EIO;
    std::error_code ignored;
    fs::remove(staging, ignored);
    throw SystemError(error, ("writing " + target.string()).c_str());
  }
  std::error_code ec;
  fs::rename(staging, target, ec);
  if (ec) {
    std::error_code ignored;
    fs::remove(staging, ignored);
    throw SystemError(ec.value(), ("writing " + target.string()).c_str());
  }
}

std::string StagingName(const std::string& target) {
  return staging::NameBeside(target);
}

std::string RecoveryPath(const std::string& target) {
  namespace fs = std::filesystem;
  const fs::path folder = StateFolderPath("recovered");
  std::error_code ec;
  fs::create_directories(folder, ec);
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  char stamp[32];
  std::strftime(stamp, sizeof stamp, "%Y%m%d-%H%M%S", &local);
  const fs::path t(target);
  const std::string stem = t.stem().string() + "-" + stamp;
  fs::path path = folder / (stem + t.extension().string());
  for (int n = 2; fs::exists(path, ec); ++n)
    path = folder / (stem + "-" + std::to_string(n) + t.extension().string());
  return path.string();
}

}  // namespace cli
