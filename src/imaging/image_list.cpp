// SPDX-License-Identifier: GPL-3.0-or-later
#include "imaging/image_list.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <utility>

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

namespace {

// The last run of digits in the stem of the name part: [begin, end), or
// begin == end when the stem has none.
std::pair<size_t, size_t> frame_digits(const std::string& path) {
  const size_t start = name_start(path);
  size_t end = path.rfind('.');
  if (end == std::string::npos || end < start) end = path.size();
  size_t last = end;
  while (last > start && !std::isdigit(static_cast<unsigned char>(path[last - 1]))) --last;
  size_t first = last;
  while (first > start && std::isdigit(static_cast<unsigned char>(path[first - 1]))) --first;
  return {first, last};
}

}  // namespace

// Only the last run of digits in the stem varies. Treating every digit as a
// wildcard, as the program once did, mixes versions and takes of a shot
// (shotA_v002_0000 opened shotA_v001_0000 as its first frame); every other
// tool of a compositor reads the last run as the frame number and the rest
// literally, and a sequence has to agree with what they render.
std::string numbered_pattern(const std::string& file_name) {
  std::string pattern = file_name;
  const auto [first, last] = frame_digits(file_name);
  for (size_t i = first; i < last; ++i) pattern[i] = '?';
  return pattern;
}

bool matches_numbered_pattern(const std::string& name, const std::string& pattern) {
  if (name.size() != pattern.size()) return false;
  for (size_t i = 0; i < name.size(); ++i) {
    if (pattern[i] == '?') {
      if (!std::isdigit(static_cast<unsigned char>(name[i]))) return false;
      continue;
    }
    if (std::tolower(static_cast<unsigned char>(name[i])) !=
        std::tolower(static_cast<unsigned char>(pattern[i])))
      return false;
  }
  return true;
}

std::optional<uint32_t> frame_number(const std::string& name) {
  const auto [first, last] = frame_digits(name);
  if (first == last) return std::nullopt;
  uint64_t value = 0;
  for (size_t i = first; i < last; ++i) {
    value = value * 10 + uint64_t(name[i] - '0');
    if (value > UINT32_MAX) return std::nullopt;
  }
  return uint32_t(value);
}

std::vector<frame_gap> missing_frames(const std::vector<std::string>& frames) {
  std::vector<frame_gap> gaps;
  for (size_t i = 1; i < frames.size(); ++i) {
    const auto a = frame_number(frames[i - 1]), b = frame_number(frames[i]);
    if (!a || !b || *b <= *a + 1) continue;
    // Only neighbours of one series: a list may join shots of other names.
    const auto [fa, la] = frame_digits(frames[i - 1]);
    const auto [fb, lb] = frame_digits(frames[i]);
    if (frames[i - 1].compare(0, fa, frames[i], 0, fb) != 0 ||
        frames[i - 1].compare(la, std::string::npos, frames[i], lb, std::string::npos) != 0)
      continue;
    gaps.push_back({*a + 1, *b - 1});
  }
  return gaps;
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
    if (!matches_numbered_pattern(bare, pattern)) continue;
    // A folder named like a frame is no frame.
    std::error_code kind;
    if (it->is_directory(kind)) continue;
    hits.push_back(std::move(bare));
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
  return frame_number(name).value_or(0);
}

}  // namespace img
