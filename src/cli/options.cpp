#include "cli/options.h"

namespace cli {

Options::Options(const std::vector<std::string>& args,
                 const std::set<std::string>& flags,
                 const std::set<std::string>& valued) {
  bool only_positional = false;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    if (only_positional || a.size() < 2 || a[0] != '-' || a[1] != '-') {
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
        values_[name] = a.substr(eq + 1);
      } else if (i + 1 < args.size()) {
        values_[name] = args[++i];
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

}  // namespace cli
