// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/commands/mask_file.h"

#include <algorithm>
#include <cstring>

#include "app/model/mask.h"
#include "imaging/multi_io.h"
#include "imaging/native_io.h"

namespace app {

VL::Mask ReadMaskFile(const std::string& path) {
  img::image picture;
  img::multi_reader().read(path, picture);
  return ThresholdMask(picture);
}

VL::Mask FitMask(const VL::Mask& mask, uint32_t width, uint32_t height) {
  VL::Mask fitted(width, height, 4);
  const uint32_t w = std::min(width, mask.width);
  const uint32_t h = std::min(height, mask.height);
  const size_t whole = w / 8;
  const unsigned tail = w & 7;
  for (uint32_t y = 0; y < height; ++y) {
    uint8_t* dst = fitted.rows[y];
    std::memset(dst, 0, fitted.stride);
    if (y >= h) continue;
    const uint8_t* src = mask.rows[y];
    if (whole) std::memcpy(dst, src, whole);
    // Bits of the source past the kept width must not reach the new mask.
    if (tail) dst[whole] = uint8_t(src[whole] & (0xFF00 >> tail));
  }
  return fitted;
}

uint64_t WriteMaskFile(const std::string& path, const VL::Mask& mask) {
  return img::write_mask_bmp(path, mask);
}

}  // namespace app
