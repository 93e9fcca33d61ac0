// SPDX-License-Identifier: GPL-3.0-or-later
#include "imaging/image_list.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "imaging/multi_io.h"

namespace img {

namespace {

namespace fs = std::filesystem;

[[noreturn]] void could_not_read(const std::string& name) {
  throw std::runtime_error("could not read file: " + name);
}

size_t name_start(const std::string& path) {
  const auto slash = path.find_last_of("/\\");
  return slash == std::string::npos ? 0 : slash + 1;
}

bool has_ais_extension(const std::string& name) {
  if (name.size() < 4) return false;
  std::string ext = name.substr(name.size() - 4);
  for (char& c : ext) c = char(std::tolower(static_cast<unsigned char>(c)));
  return ext == ".ais";
}

// The byte-string order of the sequence: unsigned bytes, shorter first on a tie.
bool byte_less(const std::string& a, const std::string& b) {
  const size_t n = std::min(a.size(), b.size());
  const int c = n ? std::memcmp(a.data(), b.data(), n) : 0;
  return c != 0 ? c < 0 : a.size() < b.size();
}

// A name from a list file, with Windows separators made native.
std::string native_separators(std::string path) {
#ifndef _WIN32
  std::replace(path.begin(), path.end(), '\\', '/');
#endif
  return path;
}

}  // namespace

std::string numbered_pattern(const std::string& file_name) {
  std::string pattern = file_name;
  for (size_t i = pattern.size(); i-- > 0;) {
    if (pattern[i] == '/' || pattern[i] == '\\') break;
    if (std::isdigit(static_cast<unsigned char>(pattern[i]))) pattern[i] = '?';
  }
  return pattern;
}

bool matches_numbered_pattern(const std::string& name, const std::string& pattern) {
  if (name.size() != pattern.size()) return false;
  for (size_t i = 0; i < name.size(); ++i) {
    if (pattern[i] == '?') continue;
    if (std::tolower(static_cast<unsigned char>(name[i])) !=
        std::tolower(static_cast<unsigned char>(pattern[i])))
      return false;
  }
  return true;
}

void read_image_size(const std::string& name, frame_size& size, bool* has_alpha) {
  multi_reader reader;
  file_info info;
  bool known = false;
  try {
    known = reader.info(name, &info);
  } catch (const io_error&) {
    known = false;
  }
  if (!known) could_not_read(name);
  size = {info.width, info.height};
  if (has_alpha) *has_alpha = info.bit_count == 32;
}

void expand_numbered_name(const std::string& name,
                          std::vector<std::string>& frames,
                          frame_size& size,
                          bool& has_alpha) {
  read_image_size(name, size, &has_alpha);

  const size_t start = name_start(name);
  const std::string pattern = numbered_pattern(name).substr(start);
  std::string directory = name.substr(0, start);
  if (directory.empty()) {
    directory = fs::current_path().string();
    if (directory.back() != '/' && directory.back() != '\\') directory += '/';
  }

  std::vector<std::string> hits;
  std::error_code ec;
  for (fs::directory_iterator it(directory, ec), end; !ec && it != end; it.increment(ec)) {
    std::string bare = it->path().filename().string();
    if (matches_numbered_pattern(bare, pattern)) hits.push_back(std::move(bare));
  }
  if (ec) could_not_read(name);
  std::sort(hits.begin(), hits.end(), byte_less);

  frames.clear();
  frames.reserve(hits.size());
  for (const auto& bare : hits) frames.push_back(directory + bare);
}

std::vector<std::string> parse_ais_list(std::istream& in) {
  std::vector<std::string> lines;
  std::string line;
  while (std::getline(in, line)) {
    // Lists written on Windows end their lines in CR LF.
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty()) continue;
    if (line.front() == '"') line.erase(0, 1);
    if (!line.empty() && line.back() == '"') line.pop_back();
    if (line.empty()) continue;
    lines.push_back(std::move(line));
  }
  return lines;
}

void read_ais_list(const std::string& name, std::vector<std::string>& frames, frame_size& size) {
  std::ifstream in(name);
  if (!in) could_not_read(name);
  const std::vector<std::string> lines = parse_ais_list(in);
  if (lines.empty()) throw std::runtime_error("no images in sequence");

  frames.clear();
  frames.reserve(lines.size());
  for (const auto& entry : lines)
    frames.push_back(fs::absolute(fs::path(native_separators(entry))).lexically_normal().string());
  read_image_size(frames.front(), size, nullptr);
}

void read_image_list(const std::string& name, std::vector<std::string>& frames, frame_size& size) {
  if (has_ais_extension(name)) return read_ais_list(name, frames, size);
  bool has_alpha = false;
  expand_numbered_name(name, frames, size, has_alpha);
}

uint32_t first_frame_number(const std::string& name) {
  std::string stem = name.substr(name_start(name));
  const auto dot = stem.rfind('.');
  if (dot != std::string::npos) stem.erase(dot);
  size_t digits = stem.size();
  while (digits > 0 && std::isdigit(static_cast<unsigned char>(stem[digits - 1]))) --digits;
  const std::string run = stem.substr(digits);
  if (run.empty()) return 0;
  uint64_t value = 0;
  for (char c : run) {
    value = value * 10 + uint64_t(c - '0');
    if (value > UINT32_MAX) return 0;
  }
  return uint32_t(value);
}

}  // namespace img
