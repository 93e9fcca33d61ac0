// SPDX-License-Identifier: GPL-3.0-or-later
// Command-line parsing shared by the commands of velomar-cli.
#pragma once

#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace cli {

// A usage mistake: reported with the command's usage line, exit status 1.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Options of one command: flags ("--json"), valued options ("--format WORD"
// or "--format=WORD") and positional arguments. Unknown options are usage errors.
class Options {
 public:
  Options(const std::vector<std::string>& args,
          const std::set<std::string>& flags,
          const std::set<std::string>& valued);

  bool flag(const std::string& name) const { return flags_.count(name) != 0; }
  bool has(const std::string& name) const { return values_.count(name) != 0; }
  // The last value given; a repeated option keeps all of them in values().
  const std::string& value(const std::string& name) const { return values_.at(name).back(); }
  std::vector<std::string> values(const std::string& name) const {
    const auto found = values_.find(name);
    return found == values_.end() ? std::vector<std::string>() : found->second;
  }
  const std::vector<std::string>& positional() const { return positional_; }

 private:
  std::set<std::string> flags_;
  std::map<std::string, std::vector<std::string>> values_;
  std::vector<std::string> positional_;
};

// "-o FILE" is the short form of "--output FILE".
std::vector<std::string> WithLongOutput(std::vector<std::string> args);

}  // namespace cli
