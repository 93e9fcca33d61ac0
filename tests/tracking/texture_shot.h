// Generated pictures with known motion for the tracking suites.
#pragma once

#include <cstdint>

#include "base/affine.h"
#include "imaging/bitmap.h"
#include "imaging/float_image.h"

namespace tracking_test {

struct TextureOptions {
  uint32_t seed = 7;
  double scale = 9.0;       // size of the coarsest features in pixels
  double brightness = 0.0;  // added to every colour channel, then clamped
};

// A procedural texture seen through `motion` (reference to this picture):
// pixel (x, y) shows the texture at motion⁻¹(x, y). Alpha is 255.
img::float_image RenderTexture(uint32_t width,
                               uint32_t height,
                               const types::affine& motion,
                               const TextureOptions& options = {});

// A mask with the rectangle [left, right) x [top, bottom) set.
img::bitmap<img::bit1> RectMask(
    uint32_t width, uint32_t height, uint32_t left, uint32_t top, uint32_t right, uint32_t bottom);

// The largest distance between the images of the corners of a box under
// two transformations.
double MaxCornerError(const types::affine& a,
                      const types::affine& b,
                      double left,
                      double top,
                      double right,
                      double bottom);

}  // namespace tracking_test
