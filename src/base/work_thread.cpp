// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/work_thread.h"

#include <iostream>
#include <string>

namespace sys {

void CWorkThreadBase::OnError(const char* text) {
  // One write, so that reports of two workers do not interleave mid-line.
  std::clog << (std::string("\nthread error: ") + text) << std::flush;
}

}  // namespace sys
