// SPDX-License-Identifier: GPL-3.0-or-later
// ProfileStore without the desktop's settings service: in memory for the
// tests, and an INI-like file for velomar-cli.
#pragma once

#include <filesystem>
#include <istream>
#include <map>
#include <string>

#include "app/ports.h"

namespace app {

// Values kept as text, as a settings file keeps them: an integer read from a
// value that is not a whole decimal number (in range) gives the fallback.
class MemoryProfileStore : public ProfileStore {
 public:
  using Sections = std::map<std::string, std::map<std::string, std::string>>;

  int64_t get_int(const std::string& section, const std::string& key, int64_t fallback) override;
  std::string get_string(const std::string& section,
                         const std::string& key,
                         const std::string& fallback) override;
  void set_int(const std::string& section, const std::string& key, int64_t value) override;
  void set_string(const std::string& section,
                  const std::string& key,
                  const std::string& value) override;

  bool contains(const std::string& section, const std::string& key) const;
  const Sections& sections() const { return sections_; }

 protected:
  // Whether the stored text changed.
  bool store(const std::string& section, const std::string& key, const std::string& value);
  Sections sections_;
};

// The settings file of velomar-cli:
//
//   [Preferences]
//   CacheMemoryQuota=500
//   Property Hint Language=0
//
// Keys may hold spaces; a value runs to the end of its line. Spaces around
// keys and values are dropped; "\\", "\n", "\r", "\s" and "\t" stand
// for a backslash, a line feed, a carriage return, a space and a tab. Lines starting with '#' or
// ';' and blank lines are skipped (and not written back).
//
// Every change that alters a value rewrites the whole file at once: a
// temporary file beside it is written and renamed over it, so a crash or a
// full disk never leaves half a file. Setting a value to what it already is
// writes nothing.
class FileProfileStore : public MemoryProfileStore {
 public:
  // Reads `path` when it exists. Throws std::runtime_error naming the file
  // and line for a line that is neither a section, a key=value pair, a
  // comment nor blank; and SystemError when the file cannot be read.
  explicit FileProfileStore(std::filesystem::path path);

  void set_int(const std::string& section, const std::string& key, int64_t value) override;
  void set_string(const std::string& section,
                  const std::string& key,
                  const std::string& value) override;

  const std::filesystem::path& path() const { return path_; }

  // $XDG_CONFIG_HOME/velomar/velomar.conf, with $HOME/.config standing in for
  // an unset or relative $XDG_CONFIG_HOME. Throws std::runtime_error when
  // neither variable gives a place.
  static std::filesystem::path DefaultPath();

 private:
  void save() const;

  std::filesystem::path path_;
};

// The sections of a settings file's text; `name` names the file in the
// messages. Throws std::runtime_error as FileProfileStore's constructor does.
MemoryProfileStore::Sections ParseSettings(std::istream& in, const std::string& name);

// The text FileProfileStore writes: sections and keys in order, values
// escaped.
std::string SettingsText(const MemoryProfileStore::Sections& sections);

}  // namespace app
