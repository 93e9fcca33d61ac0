// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/paths.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace {

constexpr size_t kMaxDrive = 3;
constexpr size_t kMaxPart = 256;

bool IsSeparator(char c) {
  return c == '\\' || c == '/';
}

bool HasDrive(std::string_view path) {
  return path.size() >= 2 && path[1] == ':';
}

// Length of the part of a normalised folder path that ".." cannot climb out
// of: "c:\", "c:", "\" or nothing.
size_t RootLength(std::string_view path, char sep) {
  if (HasDrive(path)) return path.size() > 2 && path[2] == sep ? 3 : 2;
  return !path.empty() && path[0] == sep ? 1 : 0;
}

bool StartsWith(std::string_view text, std::string_view prefix) {
  return text.substr(0, prefix.size()) == prefix;
}

}  // namespace

void SplitPath(std::string_view path,
               std::string* drive,
               std::string* dir,
               std::string* name,
               std::string* ext) {
  std::string_view rest = path;
  std::string_view drive_part;
  if (HasDrive(rest)) {
    drive_part = rest.substr(0, 2);
    rest.remove_prefix(2);
  }
  size_t file_start = 0;
  for (size_t i = 0; i < rest.size(); ++i)
    if (IsSeparator(rest[i])) file_start = i + 1;
  const std::string_view dir_part = rest.substr(0, file_start);
  const std::string_view file = rest.substr(file_start);
  const size_t dot = file.rfind('.');
  const std::string_view name_part = dot == std::string_view::npos ? file : file.substr(0, dot);
  const std::string_view ext_part =
      dot == std::string_view::npos ? std::string_view() : file.substr(dot);
  if (drive) drive->assign(drive_part);
  if (dir) dir->assign(dir_part);
  if (name) name->assign(name_part);
  if (ext) ext->assign(ext_part);
}

std::string MakePath(std::string_view drive,
                     std::string_view dir,
                     std::string_view name,
                     std::string_view ext,
                     PathPolicy policy) {
  if (drive.size() > kMaxDrive) throw std::runtime_error("drive too long");
  if (dir.size() > kMaxPart) throw std::runtime_error("path too long");
  if (name.size() > kMaxPart) throw std::runtime_error("file name too long");
  if (ext.size() > kMaxPart) throw std::runtime_error("extension too long");
  std::string path;
  path.reserve(drive.size() + dir.size() + name.size() + ext.size() + 3);
  if (!drive.empty()) {
    path += drive;
    if (drive.back() != ':') path += ':';
  }
  if (!dir.empty()) {
    path += dir;
    if (!IsSeparator(dir.back())) path += PathSeparator(policy);
  }
  path += name;
  if (!ext.empty()) {
    if (ext.front() != '.') path += '.';
    path += ext;
  }
  return path;
}

std::string ChangeExtension(std::string_view path, std::string_view ext, PathPolicy policy) {
  if (ext.size() + 1 >= kMaxPart + 1) throw std::runtime_error("too long extension");
  std::string drive, dir, name;
  SplitPath(path, &drive, &dir, &name, nullptr);
  return MakePath(drive, dir, name, ext, policy);
}

std::string Directory(std::string_view path) {
  if (path.empty()) return {};
  // The directory of a folder is its parent: ignore one trailing separator.
  if (IsSeparator(path.back())) path.remove_suffix(1);
  std::string drive, dir;
  SplitPath(path, &drive, &dir, nullptr, nullptr);
  return drive + dir;
}

std::string FileTitle(std::string_view path) {
  std::string name;
  SplitPath(path, nullptr, nullptr, &name, nullptr);
  return name;
}

void Normalize(std::string& path, PathPolicy policy) {
  const char sep = PathSeparator(policy);
  for (char& c : path) {
    if (IsSeparator(c)) {
      c = sep;
    } else if (policy == PathPolicy::Windows) {
      c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
  }
}

bool IsAbsolute(std::string_view path) {
  if (path.empty()) return false;
  return IsSeparator(path[0]) || HasDrive(path);
}

bool SameDrive(std::string_view a, std::string_view b) {
  std::string drive_a, drive_b;
  SplitPath(a, &drive_a, nullptr, nullptr, nullptr);
  SplitPath(b, &drive_b, nullptr, nullptr, nullptr);
  return drive_a == drive_b;
}

std::string RelativePath(std::string_view path_in, std::string_view base_in, PathPolicy policy) {
  if (path_in.empty()) return std::string(path_in);
  const char sep = PathSeparator(policy);
  std::string path(path_in), base(base_in);
  Normalize(path, policy);
  Normalize(base, policy);
  if (base.empty() || base.back() != sep) base += sep;

  // Whole components of base, each with its separator, that path repeats at
  // the same place.
  size_t pos = 0;
  while (pos < base.size()) {
    const size_t end = base.find(sep, pos) + 1;
    if (path.compare(pos, end - pos, base, pos, end - pos) != 0) break;
    pos = end;
  }
  if (pos == 0 && IsAbsolute(base)) return path;

  std::string result;
  for (size_t i = pos; i < base.size(); ++i)
    if (base[i] == sep) (result += "..") += sep;
  result.append(path, pos);
  return result;
}

std::string CombinePath(std::string_view relative_in, std::string_view base_in, PathPolicy policy) {
  if (relative_in.empty()) return std::string(base_in);
  if (IsAbsolute(relative_in)) return std::string(relative_in);
  const char sep = PathSeparator(policy);
  std::string relative(relative_in), base(base_in);
  Normalize(relative, policy);
  Normalize(base, policy);
  // An empty base stays empty: a separator alone would make it the root.
  if (!base.empty() && base.back() != sep) base += sep;

  const std::string up = std::string("..") + sep;
  const size_t root = RootLength(base, sep);
  while (StartsWith(relative, up)) {
    if (base.size() > root) {
      const size_t prev = base.rfind(sep, base.size() - 2);
      base.resize(std::max(prev == std::string::npos ? 0 : prev + 1, root));
    } else if (root == 0) {
      break;  // a relative base is used up: the climb stays in the result
    }
    relative.erase(0, up.size());
  }
  const std::string here = std::string(".") + sep;
  if (StartsWith(relative, here)) relative.erase(0, here.size());
  return base + relative;
}

bool FileExists(const std::string& path) {
  return ::access(path.c_str(), F_OK) == 0;
}

std::string StateFolderPath(const std::string& name) {
  namespace fs = std::filesystem;
  fs::path base;
  if (const char* state = std::getenv("XDG_STATE_HOME"); state && *state) {
    base = state;
  } else if (const char* home = std::getenv("HOME"); home && *home) {
    base = fs::path(home) / ".local" / "state";
  } else {
    base = fs::temp_directory_path();
  }
  const fs::path path = base / "velomar" / name;
  std::error_code ec;
  fs::create_directories(path.parent_path(), ec);
  if (ec) return (fs::temp_directory_path() / ("velomar-" + name)).string();
  return path.string();
}
