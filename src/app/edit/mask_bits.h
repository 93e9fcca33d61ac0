// SPDX-License-Identifier: GPL-3.0-or-later
// Painting a one-bit mask: the brush's disc and the bucket's flood.
#pragma once

#include <cstdint>

#include "app/model/interfaces.h"
#include "app/preview/view.h"

namespace app {

inline bool GetMaskBit(const VL::Mask& mask, int32_t x, int32_t y) {
  return (mask.rows[size_t(y)][x >> 3] & (0x80 >> (x & 7))) != 0;
}
inline void SetMaskBit(VL::Mask& mask, int32_t x, int32_t y, bool value) {
  uint8_t& byte = mask.rows[size_t(y)][x >> 3];
  const uint8_t bit = uint8_t(0x80 >> (x & 7));
  byte = value ? uint8_t(byte | bit) : uint8_t(byte & ~bit);
}
// Columns [first, last) of row y.
void SetMaskBits(VL::Mask& mask, int32_t y, int32_t first, int32_t last, bool value);

// Whether the brush centred at (cx, cy) with `radius` covers pixel (x, y):
// the pixel's centre lies nearer than the radius, measured in float.
bool DiscCovers(float cx, float cy, int32_t radius, int32_t x, int32_t y);

// Sets (value true) or clears every pixel of `mask` that the disc covers.
// Only the disc's bounding rows are visited, each as one run of columns.
// Returns the bounding rectangle clipped to the mask; empty (width 0) when
// the disc misses the mask, and then nothing changed.
PixelRect StampDisc(VL::Mask& mask, float cx, float cy, int32_t radius, bool value);

// The bucket: floods the four-connected area around (x, y) whose pixels
// differ from `value` and gives them `value`, span by span. Users' masks
// were filled this way from the start, blind spot included: row 0 is only
// reached by a scan that goes on in the direction its row was entered,
// never by one that turns back, so a fill that can reach row 0 only by
// turning leaves it as it was. (x, y) must lie inside the mask.
void FloodFill(VL::Mask& mask, int32_t x, int32_t y, bool value);

}  // namespace app
