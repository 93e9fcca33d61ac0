// SPDX-License-Identifier: GPL-3.0-or-later
// The names of the operations now running, innermost last. An operation
// pushes its name before its work and pops it after a normal end; it is
// deliberately not popped when an exception passes, so the report of a
// failure still finds the innermost name. Only the owning thread touches it.
#pragma once

#include <string>
#include <vector>

namespace app {

class OperationStack {
 public:
  void push(std::string name) { names_.push_back(std::move(name)); }
  // Popping an empty stack does nothing: a report may have emptied it
  // between an operation's push and its pop.
  void pop() {
    if (!names_.empty()) names_.pop_back();
  }
  bool empty() const { return names_.empty(); }
  // The innermost name; empty when no operation runs.
  std::string innermost() const { return names_.empty() ? std::string() : names_.back(); }
  void clear() { names_.clear(); }
  const std::vector<std::string>& names() const { return names_; }

 private:
  std::vector<std::string> names_;
};

}  // namespace app
