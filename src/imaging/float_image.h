// SPDX-License-Identifier: GPL-3.0-or-later
// The tracker's working picture: four floats a pixel (blue, green, red,
// alpha), each the byte value as it stands, 0.0 to 255.0, with no scaling.
//
// Frames are converted once when they are loaded, because every later stage
// samples them many times.
#pragma once

#include <cstddef>
#include <cstdint>

#include "imaging/bitmap.h"

namespace img {

struct rgba_float {  // blue, green, red, alpha as 32-bit floats
  static constexpr uint64_t row_bytes(uint64_t width) { return width * 16; }
};

using float_image = bitmap<rgba_float>;

// The four channels of pixel (x, y). Rows are 16-byte multiples and the
// buffer is 64-byte aligned, so the floats are always aligned.
inline const float* pixel(const float_image& im, uint32_t x, uint32_t y) {
  return reinterpret_cast<const float*>(im.rows[y]) + 4 * size_t(x);
}
inline float* pixel(float_image& im, uint32_t x, uint32_t y) {
  return reinterpret_cast<float*>(im.rows[y]) + 4 * size_t(x);
}

// Converts every channel of every pixel; `dst` takes the size of `src`
// (resized only when it differs) and stays top-down.
void convert_to_float(float_image& dst, const image& src);

}  // namespace img
