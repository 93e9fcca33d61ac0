// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/json.h"

#include <charconv>
#include <cmath>
#include <cstdio>

namespace cli {

std::string JsonQuote(std::string_view text) {
  std::string out = "\"";
  for (unsigned char c : text) {
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\t':
        out += "\\t";
        break;
      default:
        if (c < 0x20) {
          char buffer[8];
          std::snprintf(buffer, sizeof buffer, "\\u%04x", c);
          out += buffer;
        } else {
          out += char(c);
        }
    }
  }
  return out + "\"";
}

void Json::separate() {
  if (need_comma_) out_ += ", ";
  need_comma_ = true;
}

Json& Json::begin_object() {
  separate();
  out_ += '{';
  need_comma_ = false;
  return *this;
}
Json& Json::end_object() {
  out_ += '}';
  need_comma_ = true;
  return *this;
}
Json& Json::begin_array() {
  separate();
  out_ += '[';
  need_comma_ = false;
  return *this;
}
Json& Json::end_array() {
  out_ += ']';
  need_comma_ = true;
  return *this;
}
Json& Json::key(std::string_view name) {
  separate();
  out_ += JsonQuote(name);
  out_ += ": ";
  need_comma_ = false;
  return *this;
}
Json& Json::value(std::string_view text) {
  separate();
  out_ += JsonQuote(text);
  return *this;
}
Json& Json::value(int64_t number) {
  separate();
  out_ += std::to_string(number);
  return *this;
}
Json& Json::value(uint64_t number) {
  separate();
  out_ += std::to_string(number);
  return *this;
}
Json& Json::value(double number) {
  if (!std::isfinite(number)) return null();
  separate();
  char buffer[32];
  auto result = std::to_chars(buffer, buffer + sizeof buffer, number);
  out_.append(buffer, result.ptr);
  return *this;
}
Json& Json::value(bool flag) {
  separate();
  out_ += flag ? "true" : "false";
  return *this;
}
Json& Json::null() {
  separate();
  out_ += "null";
  return *this;
}

}  // namespace cli
