// SPDX-License-Identifier: GPL-3.0-or-later
#include "imaging/float_image.h"

namespace img {

void convert_to_float(float_image& dst, const image& src) {
  if (dst.width != src.width || dst.height != src.height || dst.empty())
    dst.resize(src.width, src.height, 4);
  for (uint32_t y = 0; y < src.height; ++y) {
    const uint8_t* s = src.rows[y];
    float* d = pixel(dst, 0, y);
    const size_t n = size_t(src.width) * 4;
    for (size_t i = 0; i < n; ++i) d[i] = float(s[i]);
  }
}

}  // namespace img
