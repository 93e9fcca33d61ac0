// SPDX-License-Identifier: GPL-3.0-or-later
#include "testing/tracking_shot.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace testing_support {

namespace {

// A well-mixed 32-bit hash, so that the noise of neighbouring pixels, channels
// and frames is unrelated.
uint32_t mix(uint32_t h) {
  h ^= h >> 16;
  h *= 0x7feb352du;
  h ^= h >> 15;
  h *= 0x846ca68bu;
  h ^= h >> 16;
  return h;
}

bool inside(double u, double v, double left, double top, double width, double height) {
  return u >= left && u < left + width && v >= top && v < top + height;
}

}  // namespace

types::affine PlateMotion::at(int32_t distance, double centre_x, double centre_y) const {
  const double d = distance;
  const double t = d + ease * d * std::fabs(d);
  const double angle = rotation_deg * t * std::numbers::pi / 180;
  const double c = std::cos(angle), s = std::sin(angle);
  const types::affine turn{0, 0, c, -s, s, c};
  const types::affine shape{0, 0, 1 + (zoom + stretch) * t, shear * t, 0, 1 + (zoom - stretch) * t};
  return types::affine::translation(centre_x + shift_x * t, centre_y + shift_y * t) * turn * shape *
         types::affine::translation(-centre_x, -centre_y);
}

types::affine TrackingShot::plate_motion(int32_t frame) const {
  return plate.at(frame - key_frame, plate_left + plate_width / 2, plate_top + plate_height / 2);
}

void TrackingShot::render(int32_t frame, img::image& out) const {
  out.resize(width, height, 4);
  const int32_t d = frame - key_frame;
  const types::affine plate_back = plate_motion(frame).inverse();
  const double bx = background_shift_x * d, by = background_shift_y * d;
  const double ox = occluder.left + occluder.shift_x * d, oy = occluder.top + occluder.shift_y * d;
  const double offset = brightness_step * d;
  for (uint32_t y = 0; y < height; ++y) {
    uint8_t* row = out.rows[y];
    for (uint32_t x = 0; x < width; ++x, row += 4) {
      // Pixel centres, so that edges fall between pixels alike in every frame.
      const double px = x + 0.5, py = y + 0.5;
      double u, v;
      plate_back.apply(px, py, u, v);
      if (occluder.width > 0 && inside(px, py, ox, oy, occluder.width, occluder.height))
        occluder_texture.sample(px - ox, py - oy, row);
      else if (inside(u, v, plate_left, plate_top, plate_width, plate_height))
        plate_texture.sample(u, v, row);
      else
        background_texture.sample(px - bx, py - by, row);
      for (uint32_t c = 0; c < 3; ++c) {
        double value = row[c] + offset;
        if (noise > 0) {
          const uint32_t h =
              mix(mix(mix(x * 3 + c) ^ y * 0x9e3779b9u) ^ uint32_t(frame) * 0x85ebca6bu);
          value += noise * (2.0 * (h & 0xFFFFFF) / 0xFFFFFF - 1.0);
        }
        row[c] = uint8_t(std::clamp(std::lround(value), 0l, 255l));
      }
      row[3] = 255;
    }
  }
}

void TrackingShot::plate_mask(img::bitmap<img::bit1>& out) const {
  out.resize(width, height, 4);
  for (uint32_t y = 0; y < height; ++y) {
    uint8_t* row = out.rows[y];
    std::fill(row, row + out.stride, uint8_t(0));
    for (uint32_t x = 0; x < width; ++x)
      if (inside(x + 0.5, y + 0.5, plate_left, plate_top, plate_width, plate_height))
        row[x >> 3] |= uint8_t(128 >> (x & 7));
  }
}

double TrackingShot::corner_error(const types::affine& tracked, int32_t frame, double& mean) const {
  const types::affine truth = plate_motion(frame);
  double worst = 0, sum = 0;
  for (double cx : {plate_left, plate_left + plate_width})
    for (double cy : {plate_top, plate_top + plate_height}) {
      double ax, ay, bx, by;
      tracked.apply(cx, cy, ax, ay);
      truth.apply(cx, cy, bx, by);
      const double e = std::hypot(ax - bx, ay - by);
      worst = std::max(worst, e);
      sum += e;
    }
  mean = sum / 4;
  return worst;
}

}  // namespace testing_support
