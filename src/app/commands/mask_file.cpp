// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/commands/mask_file.h"

#include <algorithm>
#include <cstring>

#include "app/model/mask.h"
#include "imaging/multi_io.h"
#include "imaging/native_io.h"

namespace app {

namespace {

// A matte whose alpha varies: the shape is in the alpha, and its colour may
// be anything (often white all over, or the footage itself).
bool HasShapedAlpha(const img::image& picture) {
  if (picture.width == 0 || picture.height == 0) return false;
  const uint8_t first = picture.rows[0][3];
  for (uint32_t y = 0; y < picture.height; ++y)
    for (uint32_t x = 0; x < picture.width; ++x)
      if (picture.rows[y][4 * x + 3] != first) return true;
  return false;
}

}  // namespace

VL::Mask ReadMaskFile(const std::string& path) {
  img::multi_reader reader;
  img::file_info info;
  const bool alpha = reader.info(path, &info) && info.bit_count == 32;
  img::image picture;
  reader.read(path, picture);
  if (!alpha || !HasShapedAlpha(picture)) return ThresholdMask(picture);
  VL::Mask mask(picture.width, picture.height, 4);
  for (uint32_t y = 0; y < picture.height; ++y) {
    const uint8_t* src = picture.rows[y];
    uint8_t* dst = mask.rows[y];
    std::memset(dst, 0, mask.stride);
    for (uint32_t x = 0; x < picture.width; ++x)
      if (src[4 * x + 3] >= 128) dst[x >> 3] |= uint8_t(128 >> (x & 7));
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
