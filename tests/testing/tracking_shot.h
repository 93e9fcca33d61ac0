// SPDX-License-Identifier: GPL-3.0-or-later
// Generated footage for the tracking suites: a textured plate moved by a
// known motion of one motion model over a differently moving textured
// background, with optional noise, a global brightness change and an
// occluder. Every frame is a pure function of its index, so a test knows the
// true motion of every frame and can render any frame in any order.
#pragma once

#include <cstdint>

#include "base/affine.h"
#include "imaging/bitmap.h"
#include "imaging/synthetic_shot.h"

namespace testing_support {

// The plate's motion from the key frame, as rates per frame of distance d
// (negative before the key frame), about the plate's centre c:
//
//   M(d) = shift(c + shift·t) ∘ rotation(rotation_deg·t) ∘ [sx  shear·t]
//                                                         [0        sy ] ∘ shift(-c)
//
// with t = d + ease·d·|d|, sx = 1 + (zoom + stretch)·t, sy = 1 + (zoom - stretch)·t.
// Translation uses the shifts only, rigid adds the rotation, rigid+scale the
// zoom, affine the stretch and shear. `ease` makes the motion accelerate
// away from the key frame, so that a constant-velocity prediction is never
// exact.
struct PlateMotion {
  double shift_x = 0, shift_y = 0;  // pixels per frame
  double rotation_deg = 0;          // degrees per frame, clockwise on screen
  double zoom = 0;                  // relative size change per frame
  double stretch = 0;               // x grows and y shrinks by this per frame
  double shear = 0;                 // x shift per pixel of y, per frame
  double ease = 0;                  // acceleration, in units of the rates

  types::affine at(int32_t distance, double centre_x, double centre_y) const;
};

// A rectangle drawn over everything, with its own texture, moving by a
// constant velocity; `width` 0: none.
struct Occluder {
  double left = 0, top = 0, width = 0, height = 0;  // at the key frame, picture pixels
  double shift_x = 0, shift_y = 0;                  // pixels per frame
};

struct TrackingShot {
  uint32_t width = 320;
  uint32_t height = 240;
  int32_t frames = 13;
  int32_t key_frame = 6;
  // The plate, an axis-aligned rectangle in key-frame coordinates; its mask
  // on the key frame is exactly this rectangle (pixel centres inside).
  double plate_left = 100, plate_top = 70, plate_width = 120, plate_height = 90;
  PlateMotion plate;
  double background_shift_x = -1.5, background_shift_y = 0.75;  // pixels per frame
  img::noise_texture plate_texture{7, 18.0};
  img::noise_texture background_texture{99, 40.0};
  img::noise_texture occluder_texture{5, 6.0};
  Occluder occluder;
  // Independent noise per pixel, channel and frame, uniform in
  // [-noise, noise] grey levels. The key frame is as noisy as the others.
  double noise = 0;
  // Grey levels added to every channel per frame of distance from the key
  // frame (clamped to 0..255): a fade or an exposure drift.
  double brightness_step = 0;

  // Key-frame coordinates to the coordinates of `frame`.
  types::affine plate_motion(int32_t frame) const;
  // Renders `frame` (opaque, alpha 255).
  void render(int32_t frame, img::image& out) const;
  // The plate's mask on the key frame.
  void plate_mask(img::bitmap<img::bit1>& out) const;
  // Largest distance, in pixels, between where `tracked` and the true
  // motion of `frame` put the corners of the plate (the mask's bounding
  // box); `mean` receives the average over the four corners.
  double corner_error(const types::affine& tracked, int32_t frame, double& mean) const;
};

}  // namespace testing_support
