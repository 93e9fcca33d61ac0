// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/options.h"

namespace cli {

Options::Options(const std::vector<std::string>& args,
                 const std::set<std::string>& flags,
                 const std::set<std::string>& valued) {
  bool only_positional = false;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    // A one-letter option ("-o") counts only when the command knows it.
    const bool known_short = a.size() == 2 && a[0] == '-' && (valued.count(a) || flags.count(a));
    if (only_positional || (!known_short && (a.size() < 2 || a[0] != '-' || a[1] != '-'))) {
      positional_.push_back(a);
      continue;
    }
    if (a == "--") {
      only_positional = true;
      continue;
    }
    const auto eq = a.find('=');
    const std::string name = a.substr(0, eq);
    if (valued.count(name)) {
      if (eq != std::string::npos) {
        values_[name].push_back(a.substr(eq + 1));
      } else if (i + 1 < args.size()) {
        values_[name].push_back(args[++i]);
      } else {
        throw UsageError("option " + name + " needs a value");
      }
    } else if (flags.count(name) && eq == std::string::npos) {
      flags_.insert(name);
    } else {
      throw UsageError("unknown option " + a);
    }
  }
}

std::vector<std::string> WithLongOutput(std::vector<std::string> args) {
  for (auto& a : args)
    if (a == "-o") a = "--output";
  return args;
}

}  // namespace cli
