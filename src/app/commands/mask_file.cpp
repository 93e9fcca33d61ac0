#include "app/commands/mask_file.h"

#include <algorithm>
#include <cstring>

#include "imaging/multi_io.h"
#include "imaging/native_io.h"

namespace app {

VL::Mask ReadMaskFile(const std::string& path) {
  img::image picture;
  img::multi_reader().read(path, picture);
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
