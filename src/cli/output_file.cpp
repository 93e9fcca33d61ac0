// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/output_file.h"

#include <cerrno>
#include <fstream>
#include <random>
#include <system_error>

#include "base/errors.h"

namespace cli {

void WriteWhole(const std::filesystem::path& target, const std::string& content) {
  namespace fs = std::filesystem;
  // Built by appending: gcc 12 warns falsely about "." + string here.
  std::string name(1, '.');
  name += target.filename().string();
  name += ".partial";
  const fs::path staging = target.parent_path() / name;
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
  std::random_device device;
  const std::filesystem::path t(target);
  std::string hidden = ".";
  hidden += t.filename().string();
  hidden += ".part";
  hidden += std::to_string(device());
  return (t.parent_path() / hidden).string();
}

}  // namespace cli
