// SPDX-License-Identifier: GPL-3.0-or-later
// Keyframe lists of one parameter, in frame order, as the applicators build
// them and the thinning routines shorten them.
#pragma once

#include <cstdint>
#include <vector>

// A two-component keyframe: a position, a corner, a scale pair, or a skew
// (tangent, axis angle).
struct PairKey {
  double x = 0;
  double y = 0;
  int32_t frame = 0;
};

// A one-component keyframe: an angle, a scale, a skew tangent.
struct ValueKey {
  double value = 0;
  int32_t frame = 0;
};

using PairKeys = std::vector<PairKey>;
using ValueKeys = std::vector<ValueKey>;
