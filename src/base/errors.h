// SPDX-License-Identifier: GPL-3.0-or-later
// The exception types that carry a ready text for the user. Every failure in
// Velomar travels as an exception derived from std::exception; the command
// loop shows "Error while <operation>:\n" followed by what().
#pragma once

#include <exception>
#include <string>

namespace xtd {

// An exception holding its own message text.
class exception : public std::exception {
 public:
  exception() = default;
  explicit exception(std::string text) : text_(std::move(text)) {}
  const char* what() const noexcept override { return text_.c_str(); }

 private:
  std::string text_;
};

}  // namespace xtd

// A failed call to the operating system. The message is
// "System error: <the system's text>\nas a result of <operation>".
// Construct it right after the failing call: the one-argument form reads errno.
class SystemError : public xtd::exception {
 public:
  explicit SystemError(const char* operation);
  SystemError(int error_number, const char* operation);
  int error_number() const { return error_number_; }

 private:
  int error_number_ = 0;
};
