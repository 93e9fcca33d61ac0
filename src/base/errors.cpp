// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/errors.h"

#include <cerrno>
#include <cstring>

namespace {

std::string SystemErrorText(int error_number, const char* operation) {
  // strerror_r in its GNU form may return a static string instead of filling
  // the buffer; the XSI form returns 0 and fills it. Both are handled.
  char buffer[256] = {0};
  const char* text = nullptr;
#if defined(__GLIBC__) && defined(_GNU_SOURCE)
  text = strerror_r(error_number, buffer, sizeof buffer);
#else
  text = strerror_r(error_number, buffer, sizeof buffer) == 0 ? buffer : nullptr;
#endif
  if (text == nullptr || *text == '\0') return std::string();
  return std::string("System error: ") + text + "\nas a result of " + (operation ? operation : "");
}

}  // namespace

SystemError::SystemError(const char* operation) : SystemError(errno, operation) {}

SystemError::SystemError(int error_number, const char* operation)
    : xtd::exception(SystemErrorText(error_number, operation)), error_number_(error_number) {}
