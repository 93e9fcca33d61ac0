// SPDX-License-Identifier: GPL-3.0-or-later
#include "imaging/synthetic_shot.h"

#include <cmath>

namespace img {

namespace {

uint32_t hash(int32_t x, int32_t y, uint32_t seed) {
  uint32_t h = uint32_t(x) * 0x8da6b343u ^ uint32_t(y) * 0xd8163841u ^ seed * 0xcb1ab31fu;
  h ^= h >> 13;
  h *= 0x5bd1e995u;
  h ^= h >> 15;
  return h;
}

double lattice(int32_t x, int32_t y, uint32_t seed) {
  return (hash(x, y, seed) & 0xFFFF) / 65535.0;
}

double smooth(double t) {
  return t * t * (3 - 2 * t);
}

double value_noise(double u, double v, uint32_t seed) {
  const double fu = std::floor(u), fv = std::floor(v);
  const int32_t x = int32_t(fu), y = int32_t(fv);
  const double tu = smooth(u - fu), tv = smooth(v - fv);
  const double a = lattice(x, y, seed), b = lattice(x + 1, y, seed);
  const double c = lattice(x, y + 1, seed), d = lattice(x + 1, y + 1, seed);
  const double top = a + (b - a) * tu, bottom = c + (d - c) * tu;
  return top + (bottom - top) * tv;
}

// Smooth ramp from 0 at the key frame, growing a little faster than linearly.
double ease(int32_t distance) {
  return distance + 0.01 * distance * std::fabs(double(distance));
}

}  // namespace

void noise_texture::sample(double u, double v, uint8_t bgr[3]) const {
  for (int channel = 0; channel < 3; ++channel) {
    const uint32_t s = seed * 3 + uint32_t(channel);
    double sum = 0, weight = 0, amplitude = 1, frequency = 1 / scale;
    for (int octave = 0; octave < 3; ++octave) {
      sum += amplitude * value_noise(u * frequency, v * frequency, s + 101 * uint32_t(octave));
      weight += amplitude;
      amplitude *= 0.5;
      frequency *= 2.1;
    }
    bgr[channel] = uint8_t(std::lround(255.0 * sum / weight));
  }
}

types::affine synthetic_shot::plate_motion(int32_t frame) const {
  const double t = ease(frame - key_frame);
  const double angle = rotation_deg * t * 3.14159265358979323846 / 180;
  const double s = 1 + zoom * t;
  const double cx = plate_left + plate_width / 2, cy = plate_top + plate_height / 2;
  // Rotate and scale about the plate's centre, then shift.
  const types::affine to_centre = types::affine::translation(-cx, -cy);
  const types::affine turn{
      0, 0, s * std::cos(angle), -s * std::sin(angle), s * std::sin(angle), s * std::cos(angle)};
  const types::affine back = types::affine::translation(cx + shift_x * t, cy + shift_y * t);
  return back * turn * to_centre;
}

types::affine synthetic_shot::background_motion(int32_t frame) const {
  const double t = frame - key_frame;
  return types::affine::translation(background_shift_x * t, background_shift_y * t);
}

void synthetic_shot::render(int32_t frame, image& out) const {
  out.resize(width, height, 4);
  const types::affine plate_back = plate_motion(frame).inverse();
  const types::affine background_back = background_motion(frame).inverse();
  for (uint32_t y = 0; y < height; ++y) {
    uint8_t* row = out.rows[y];
    for (uint32_t x = 0; x < width; ++x, row += 4) {
      // Pixel centres, so that the plate's edge falls between pixels the
      // same way in every frame.
      double u, v;
      plate_back.apply(x + 0.5, y + 0.5, u, v);
      const bool on_plate = u >= plate_left && u < plate_left + plate_width && v >= plate_top &&
                            v < plate_top + plate_height;
      if (on_plate) {
        plate_texture.sample(u, v, row);
      } else {
        background_back.apply(x + 0.5, y + 0.5, u, v);
        background_texture.sample(u, v, row);
      }
      row[3] = 255;
    }
  }
}

void synthetic_shot::plate_mask(bitmap<bit1>& out) const {
  out.resize(width, height, 4);
  for (uint32_t y = 0; y < height; ++y) {
    uint8_t* row = out.rows[y];
    for (uint32_t i = 0; i < out.stride; ++i) row[i] = 0;
    for (uint32_t x = 0; x < width; ++x) {
      const double u = x + 0.5, v = y + 0.5;
      if (u >= plate_left && u < plate_left + plate_width && v >= plate_top &&
          v < plate_top + plate_height)
        row[x >> 3] |= uint8_t(128 >> (x & 7));
    }
  }
}

void synthetic_shot::plate_mask_picture(image& out) const {
  bitmap<bit1> mask;
  plate_mask(mask);
  out = image(width, height);
  for (uint32_t y = 0; y < height; ++y)
    for (uint32_t x = 0; x < width; ++x) {
      const bool inside = mask.rows[y][x >> 3] & (128 >> (x & 7));
      uint8_t* p = out.rows[y] + 4 * x;
      p[0] = p[1] = p[2] = inside ? 255 : 0;
      p[3] = 255;
    }
}

}  // namespace img
