// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/profile_store.h"

#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "base/errors.h"

namespace app {
namespace {

// Sections and keys are the program's own words; one that the file form
// cannot hold is a program fault.
void CheckName(const std::string& name, bool is_key) {
  bool bad = name.empty() || name.find_first_of("\r\n") != std::string::npos;
  if (is_key)
    bad = bad || name.find('=') != std::string::npos || name[0] == '[' || name[0] == '#' ||
          name[0] == ';' || name.front() == ' ' || name.back() == ' ';
  else
    bad = bad || name.find(']') != std::string::npos;
  if (bad) throw std::invalid_argument("profile name not storable: \"" + name + "\"");
}

// Values are trimmed when read, so that hand edits around '=' do no harm;
// a space at either end of a value is therefore written as "\s".
std::string Escape(const std::string& value) {
  std::string out;
  for (size_t i = 0; i < value.size(); ++i) {
    const char c = value[i];
    if (c == ' ' && (i == 0 || i + 1 == value.size()))
      out += "\\s";
    else if (c == '\\')
      out += "\\\\";
    else if (c == '\n')
      out += "\\n";
    else if (c == '\r')
      out += "\\r";
    else if (c == '\t')
      out += "\\t";
    else
      out += c;
  }
  return out;
}

// Unknown escapes are kept as written.
std::string Unescape(const std::string& text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 1 < text.size()) {
      const char next = text[i + 1];
      static const std::string kEscaped = "\\nrst";
      static const std::string kMeaning = "\\\n\r \t";
      const size_t which = kEscaped.find(next);
      if (which != std::string::npos) {
        out += kMeaning[which];
        ++i;
        continue;
      }
    }
    out += text[i];
  }
  return out;
}

std::string Trim(const std::string& text) {
  const size_t first = text.find_first_not_of(" \t");
  if (first == std::string::npos) return {};
  const size_t last = text.find_last_not_of(" \t");
  return text.substr(first, last - first + 1);
}

}  // namespace

int64_t MemoryProfileStore::get_int(const std::string& section,
                                    const std::string& key,
                                    int64_t fallback) {
  const auto s = sections_.find(section);
  if (s == sections_.end()) return fallback;
  const auto k = s->second.find(key);
  if (k == s->second.end()) return fallback;
  const std::string text = Trim(k->second);
  const char* first = text.data();
  const char* last = first + text.size();
  if (first != last && *first == '+') ++first;
  int64_t value = 0;
  const auto [end, error] = std::from_chars(first, last, value);
  if (error != std::errc() || end != last || text.empty()) return fallback;
  return value;
}

std::string MemoryProfileStore::get_string(const std::string& section,
                                           const std::string& key,
                                           const std::string& fallback) {
  const auto s = sections_.find(section);
  if (s == sections_.end()) return fallback;
  const auto k = s->second.find(key);
  return k == s->second.end() ? fallback : k->second;
}

bool MemoryProfileStore::store(const std::string& section,
                               const std::string& key,
                               const std::string& value) {
  CheckName(section, false);
  CheckName(key, true);
  auto& keys = sections_[section];
  const auto it = keys.find(key);
  if (it != keys.end() && it->second == value) return false;
  keys[key] = value;
  return true;
}

void MemoryProfileStore::set_int(const std::string& section,
                                 const std::string& key,
                                 int64_t value) {
  store(section, key, std::to_string(value));
}

void MemoryProfileStore::set_string(const std::string& section,
                                    const std::string& key,
                                    const std::string& value) {
  store(section, key, value);
}

bool MemoryProfileStore::contains(const std::string& section, const std::string& key) const {
  const auto s = sections_.find(section);
  return s != sections_.end() && s->second.count(key) != 0;
}

MemoryProfileStore::Sections ParseSettings(std::istream& in, const std::string& name) {
  MemoryProfileStore::Sections sections;
  std::string line;
  std::string section;
  for (size_t number = 1; std::getline(in, line); ++number) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    const std::string trimmed = Trim(line);
    if (trimmed.empty() || trimmed[0] == '#' || trimmed[0] == ';') continue;
    if (trimmed.front() == '[' && trimmed.back() == ']' && trimmed.size() > 2) {
      section = trimmed.substr(1, trimmed.size() - 2);
      continue;
    }
    const size_t equals = line.find('=');
    const std::string key = equals == std::string::npos ? "" : Trim(line.substr(0, equals));
    if (key.empty() || section.empty())
      throw std::runtime_error("Settings file " + name + ", line " + std::to_string(number) +
                               (section.empty() && !key.empty()
                                    ? ": a value before any [section]"
                                    : ": expected [section] or key=value"));
    sections[section][key] = Unescape(Trim(line.substr(equals + 1)));
  }
  return sections;
}

std::string SettingsText(const MemoryProfileStore::Sections& sections) {
  std::ostringstream text;
  bool first = true;
  for (const auto& [section, keys] : sections) {
    if (!first) text << '\n';
    first = false;
    text << '[' << section << "]\n";
    for (const auto& [key, value] : keys) text << key << '=' << Escape(value) << '\n';
  }
  return text.str();
}

FileProfileStore::FileProfileStore(std::filesystem::path path) : path_(std::move(path)) {
  std::error_code missing;
  if (!std::filesystem::exists(path_, missing) && !missing) return;  // nothing set yet
  std::ifstream in(path_, std::ios::binary);
  if (!in) throw SystemError(("reading settings file " + path_.string()).c_str());
  sections_ = ParseSettings(in, path_.string());
  if (in.bad()) throw SystemError(("reading settings file " + path_.string()).c_str());
}

void FileProfileStore::set_int(const std::string& section, const std::string& key, int64_t value) {
  if (store(section, key, std::to_string(value))) save();
}

void FileProfileStore::set_string(const std::string& section,
                                  const std::string& key,
                                  const std::string& value) {
  if (store(section, key, value)) save();
}

void FileProfileStore::save() const {
  const std::string bytes = SettingsText(sections_);

  if (path_.has_parent_path()) {
    std::error_code error;
    std::filesystem::create_directories(path_.parent_path(), error);
    if (error)
      throw SystemError(error.value(), ("creating folder " + path_.parent_path().string()).c_str());
  }
  // Beside the target, so the rename stays on one file system and is atomic.
  const std::filesystem::path temporary =
      path_.string() + ".tmp" + std::to_string(static_cast<long>(::getpid()));
  const std::string operation = "writing settings file " + path_.string();
  std::FILE* file = std::fopen(temporary.c_str(), "wb");
  if (!file) throw SystemError(operation.c_str());
  const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
  const int saved_errno = errno;
  const bool synced = written && std::fflush(file) == 0 && ::fsync(::fileno(file)) == 0;
  const int sync_errno = errno;
  const bool closed = std::fclose(file) == 0;
  if (!written || !synced || !closed) {
    const int number = !written ? saved_errno : !synced ? sync_errno : errno;
    std::remove(temporary.c_str());
    throw SystemError(number, operation.c_str());
  }
  if (std::rename(temporary.c_str(), path_.c_str()) != 0) {
    const int number = errno;
    std::remove(temporary.c_str());
    throw SystemError(number, operation.c_str());
  }
}

std::filesystem::path FileProfileStore::DefaultPath() {
  const char* config = std::getenv("XDG_CONFIG_HOME");
  std::filesystem::path base;
  if (config && *config && std::filesystem::path(config).is_absolute()) {
    base = config;
  } else {
    const char* home = std::getenv("HOME");
    if (!home || !*home)
      throw std::runtime_error("Neither XDG_CONFIG_HOME nor HOME tells where settings belong");
    base = std::filesystem::path(home) / ".config";
  }
  return base / "velomar" / "velomar.conf";
}

}  // namespace app
