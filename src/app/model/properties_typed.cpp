// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/model/properties_typed.h"

namespace app {

std::string SummaryText(const My::Span& span) {
  return FormatNumber(span.first) + ", " + FormatNumber(span.last);
}

// In the order of the element rows' names in memory: x, y, xx, xy, yx, yy.
std::string SummaryText(const types::affine& a) {
  std::string text;
  for (double v : {a.x, a.y, a.xx, a.xy, a.yx, a.yy}) {
    if (!text.empty()) text += ", ";
    text += FormatNumber(v);
  }
  return text;
}

}  // namespace app
