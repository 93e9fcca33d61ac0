// SPDX-License-Identifier: GPL-3.0-or-later
// Numbers as the property panel's text fields show and take them.
#pragma once

#include <cstdint>
#include <sstream>
#include <string>
#include <string_view>

namespace app {

// Reads the whole of `text` as one decimal number in the default stream
// form. Leading blanks are skipped as the stream skips them; anything left
// after the number, an empty text, a value out of the type's range and, for
// the unsigned type, any negative number throw std::runtime_error
// "Invalid property value".
uint32_t ParseUnsigned(std::string_view text);
int32_t ParseSigned(std::string_view text);
float ParseFloat(std::string_view text);
double ParseDouble(std::string_view text);

template <class T>
T ParseNumber(std::string_view text);
template <>
inline uint32_t ParseNumber<uint32_t>(std::string_view text) {
  return ParseUnsigned(text);
}
template <>
inline int32_t ParseNumber<int32_t>(std::string_view text) {
  return ParseSigned(text);
}
template <>
inline float ParseNumber<float>(std::string_view text) {
  return ParseFloat(text);
}
template <>
inline double ParseNumber<double>(std::string_view text) {
  return ParseDouble(text);
}

// The default stream form, six significant digits: what the text field
// shows and what a hint composes in.
template <class T>
std::string FormatNumber(T value) {
  std::ostringstream out;
  out << value;
  return out.str();
}

// The one failure of the property model.
[[noreturn]] void ThrowInvalidValue();

}  // namespace app
