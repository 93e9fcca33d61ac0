// SPDX-License-Identifier: GPL-3.0-or-later
// A minimal JSON writer for the command-line tool's machine-readable output.
// Keys keep the order they are written in, so output is stable across runs.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace cli {

class Json {
 public:
  Json& begin_object();
  Json& end_object();
  Json& begin_array();
  Json& end_array();
  Json& key(std::string_view name);
  Json& value(std::string_view text);
  Json& value(const char* text) { return value(std::string_view(text)); }
  Json& value(int64_t number);
  Json& value(uint64_t number);
  Json& value(int number) { return value(int64_t(number)); }
  Json& value(unsigned number) { return value(uint64_t(number)); }
  // Shortest text that reads back to the same double; non-finite values become null.
  Json& value(double number);
  Json& value(bool flag);
  Json& null();

  const std::string& str() const { return out_; }

 private:
  void separate();
  std::string out_;
  bool need_comma_ = false;
};

std::string JsonQuote(std::string_view text);

}  // namespace cli
