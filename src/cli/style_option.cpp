// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/style_option.h"

#include "cli/options.h"

namespace cli {

void ApplyStyle(app::DisplayStyle& style, const std::string& setting) {
  const size_t eq = setting.find('=');
  const std::string key = setting.substr(0, eq == std::string::npos ? setting.size() : eq);
  const std::string text = eq == std::string::npos ? "" : setting.substr(eq + 1);
  const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  int64_t value = 0;
  size_t used = 0;
  try {
    value = std::stoll(hex ? text.substr(2) : text, &used, hex ? 16 : 10);
    if (hex) used += 2;
  } catch (const std::exception&) {
    used = 0;
  }
  if (text.empty() || used != text.size() || value < 0 || value > 0xFFFFFFFFLL)
    throw UsageError("--style needs KEY=VALUE with an integer VALUE, not '" + setting + "'");
  if (!app::SetDisplayStyleKey(style, key, value))
    throw UsageError("--style key '" + key +
                     "' is none of Underlay, Overlay, Mask, InverseMask, Background, "
                     "OverlayOpacity, MaskColor, MaskOpacity, Interpolation");
}

}  // namespace cli
