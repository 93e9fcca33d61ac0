// SPDX-License-Identifier: GPL-3.0-or-later
// A private X server for the window's end-to-end session.
#pragma once

#include <sys/types.h>
#include <string>

namespace gui_testing {

// Starts Xvfb on a free display and points DISPLAY at it, unless a display
// is already set. Empty on success (or with a display given); otherwise why
// the session cannot run here.
std::string StartXvfbIfNeeded();
// Stops the server this process started, if any.
void StopXvfb();

}  // namespace gui_testing
