// SPDX-License-Identifier: GPL-3.0-or-later
// Masks as image files: Import Mask reads any image the readers know into a
// one-bit mask, Export Mask writes a BMP of one bit per pixel.
#pragma once

#include <cstdint>
#include <string>

#include "app/model/interfaces.h"

namespace app {

// Reads the image at `path`; a pixel is set when its colour is at least
// mid-grey (the sum of blue, green and red at least 3 * 128), so white is
// inside the mask and black outside. An image with an alpha channel that
// varies is a matte: a pixel is set when its alpha is at least 128. Throws
// what the readers throw.
VL::Mask ReadMaskFile(const std::string& path);

// A mask of `width` x `height` holding `mask` from the top-left corner: a
// larger mask is cut, a smaller one padded with clear pixels.
VL::Mask FitMask(const VL::Mask& mask, uint32_t width, uint32_t height);

// Writes the mask as a one-bit BMP; returns the file's size.
uint64_t WriteMaskFile(const std::string& path, const VL::Mask& mask);

}  // namespace app
