// SPDX-License-Identifier: GPL-3.0-or-later
// A half-open range of frame numbers, [first, last).
#pragma once

#include <cstdint>

namespace My {

struct Span {
  int32_t first = 0;
  int32_t last = 0;

  constexpr bool empty() const { return first >= last; }
  constexpr int32_t length() const { return last - first; }
  constexpr bool contains(int32_t frame) const { return frame >= first && frame < last; }
  friend constexpr bool operator==(const Span&, const Span&) = default;
};

}  // namespace My
