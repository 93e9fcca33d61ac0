// SPDX-License-Identifier: GPL-3.0-or-later
// Generated footage with a known motion: a textured plate moved by a smooth
// affine motion over a differently textured, differently moving background.
// The demo and the tests use it, so that every result has its ground truth.
#pragma once

#include <cstdint>

#include "base/affine.h"
#include "imaging/bitmap.h"

namespace img {

// Smooth colour noise in 0..255 per channel: three octaves of value noise on
// a hashed lattice. `scale` is the size of the coarsest features in pixels.
struct noise_texture {
  uint32_t seed = 1;
  double scale = 24.0;
  // Blue, green, red at texture coordinates (u, v).
  void sample(double u, double v, uint8_t bgr[3]) const;
};

struct synthetic_shot {
  uint32_t width = 1280;
  uint32_t height = 720;
  int32_t frames = 60;
  int32_t key_frame = 30;
  // The plate: an axis-aligned rectangle in key-frame coordinates.
  double plate_left = 440, plate_top = 220, plate_width = 400, plate_height = 280;
  noise_texture plate_texture{7, 18.0};
  noise_texture background_texture{99, 40.0};
  // Motion per frame from the key frame: shift in pixels, rotation in
  // degrees and relative scale change, all scaled by a smooth easing of the
  // frame distance so that the motion is not constant.
  double shift_x = 2.5, shift_y = -1.25, rotation_deg = 0.15, zoom = 0.002;
  double background_shift_x = -1.5, background_shift_y = 0.75;

  // The plate's motion: key-frame coordinates to coordinates of `frame`.
  types::affine plate_motion(int32_t frame) const;
  // The background's motion, likewise.
  types::affine background_motion(int32_t frame) const;
  // Renders one frame (opaque, alpha 255).
  void render(int32_t frame, image& out) const;
  // The plate's mask on the key frame: set bits inside the rectangle.
  void plate_mask(bitmap<bit1>& out) const;
  // The same mask as a picture to save as a mask file: white inside, black
  // outside, opaque.
  void plate_mask_picture(image& out) const;
};

}  // namespace img
