// The names of the operations now running, innermost last. The top-level
// error handler reports "Error while " + innermost() + ":\n" + the text.
//
// An operation pushes its name before its work and pops it after its normal
// end only: when an exception passes, the names stay, so the handler still
// finds the innermost one. Nested operations may push the same name twice;
// that is harmless. Only the thread that owns the composition touches it.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace app {

struct OperationStack {
  void push(std::string name) { names_.push_back(std::move(name)); }
  void pop() {
    if (!names_.empty()) names_.pop_back();
  }
  // Empty when nothing runs.
  std::string innermost() const { return names_.empty() ? std::string() : names_.back(); }
  void clear() { names_.clear(); }
  const std::vector<std::string>& names() const { return names_; }

 private:
  std::vector<std::string> names_;
};

}  // namespace app
