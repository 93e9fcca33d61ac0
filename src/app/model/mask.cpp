// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/model/mask.h"

#include <cstring>

VL::Mask ThresholdMask(const img::image& picture) {
  VL::Mask mask(picture.width, picture.height, 4);
  for (uint32_t y = 0; y < picture.height; ++y) {
    const uint8_t* src = picture.rows[y];
    uint8_t* dst = mask.rows[y];
    std::memset(dst, 0, mask.stride);
    for (uint32_t x = 0; x < picture.width; ++x) {
      const unsigned sum = unsigned(src[4 * x]) + src[4 * x + 1] + src[4 * x + 2];
      if (sum >= 3 * 128) dst[x >> 3] |= uint8_t(128 >> (x & 7));
    }
  }
  return mask;
}
