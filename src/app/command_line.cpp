// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/command_line.h"

#include <filesystem>
#include <system_error>

namespace app {

void VLCommandLineInfo::ParseParam(const std::string& token) {
  const bool dash = !token.empty() && token[0] == '-';
  const bool slash = token == "/reg" || token == "/unreg";
  if (dash || slash) {
    const std::string name = token.substr(1);
    if (name == "reg")
      registerOnly = true;
    else if (name == "unreg")
      unregisterOnly = true;
    return;
  }
  fileName = token;
}

VLCommandLineInfo ParseCommandLine(int argc, const char* const* argv) {
  VLCommandLineInfo info;
  for (int i = 1; i < argc; ++i) info.ParseParam(argv[i] ? argv[i] : "");
  return info;
}

VLCommandLineInfo ParseCommandLine(const std::vector<std::string>& arguments) {
  VLCommandLineInfo info;
  for (const std::string& token : arguments) info.ParseParam(token);
  return info;
}

std::optional<std::string> StartupFile(const VLCommandLineInfo& info) {
  if (info.fileName.empty()) return std::nullopt;
  std::error_code error;
  const std::filesystem::path path(info.fileName);
  if (!std::filesystem::exists(path, error) || std::filesystem::is_directory(path, error))
    return std::nullopt;
  const std::filesystem::path absolute = std::filesystem::absolute(path, error);
  if (error) return std::nullopt;
  return absolute.lexically_normal().string();
}

bool IsProjectPath(const std::string& path) {
  const std::string extension = std::filesystem::path(path).extension().string();
  if (extension.size() != 4 || extension[0] != '.') return false;
  static const char kLower[] = "vlp";
  for (size_t i = 0; i < 3; ++i) {
    const char c = extension[i + 1];
    if (c != kLower[i] && c != kLower[i] - ('a' - 'A')) return false;
  }
  return true;
}

}  // namespace app
