// SPDX-License-Identifier: GPL-3.0-or-later
// Reduction of an rgba32 image to at most 256 colours, for the GIF writer.
#pragma once

#include <cstdint>
#include <vector>

#include "imaging/bitmap.h"

namespace img {

struct palette_picture {
  // Native 0xAARRGGBB words; up to 256 entries, all opaque except at most
  // one entry of alpha 0.
  std::vector<uint32_t> palette;
  // One index a pixel, rows top first, `width` indices a row.
  std::vector<uint8_t> indices;
};

// With keep_transparency, every pixel of alpha below 128 takes one shared
// entry of alpha 0 and all other pixels count as opaque; without it alpha is
// ignored. A picture of at most 256 colours (255 beside a transparent entry)
// keeps its colours exactly; a richer one is reduced by median cut over a
// 5-bit-per-channel histogram, each pixel taking the nearest palette colour.
palette_picture make_palette_picture(const image& picture, bool keep_transparency);

}  // namespace img
