// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/model/properties_parse.h"

#include <limits>
#include <stdexcept>

namespace app {
namespace {

// The stream must read a value and then stand at the end of the text: a
// trailing blank counts as left over, like any other character.
template <class T>
T ReadWhole(std::string_view text) {
  std::istringstream in{std::string(text)};
  T value{};
  if (!(in >> value) || in.peek() != std::char_traits<char>::eof()) ThrowInvalidValue();
  return value;
}

}  // namespace

void ThrowInvalidValue() {
  throw std::runtime_error("Invalid property value");
}

uint32_t ParseUnsigned(std::string_view text) {
  // Read signed and wide: the stream would take "-1" for an unsigned type
  // and wrap it to the largest value.
  const auto value = ReadWhole<long long>(text);
  if (value < 0 || value > std::numeric_limits<uint32_t>::max()) ThrowInvalidValue();
  return static_cast<uint32_t>(value);
}

int32_t ParseSigned(std::string_view text) {
  return ReadWhole<int32_t>(text);
}

float ParseFloat(std::string_view text) {
  return ReadWhole<float>(text);
}

double ParseDouble(std::string_view text) {
  return ReadWhole<double>(text);
}

}  // namespace app
