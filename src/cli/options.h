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
  const std::string& value(const std::string& name) const { return values_.at(name); }
  const std::vector<std::string>& positional() const { return positional_; }

 private:
  std::set<std::string> flags_;
  std::map<std::string, std::string> values_;
  std::vector<std::string> positional_;
};

}  // namespace cli
