// SPDX-License-Identifier: GPL-3.0-or-later
// --style KEY=VALUE of the commands that composite (preview, render): one
// key of the display style for this run only, in its stored integer form.
#pragma once

#include <cstdint>
#include <string>

#include "app/preview/display_style.h"

namespace cli {

// The window takes its workspace colour as "Background"; a script gets a
// fixed grey (alpha 0, as a colour integer from the system gives).
inline constexpr uint32_t kCliBackground = 0xABABAB;

// KEY=VALUE with VALUE a decimal integer or 0x and hex digits. Throws
// UsageError for another form or an unknown key.
void ApplyStyle(app::DisplayStyle& style, const std::string& setting);

}  // namespace cli
