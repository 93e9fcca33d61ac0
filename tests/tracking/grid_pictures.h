// SPDX-License-Identifier: GPL-3.0-or-later
// Masks drawn as text and textured pictures for the block-matching suites.
#pragma once

#include <string>
#include <vector>

#include "base/affine.h"
#include "imaging/bitmap.h"
#include "imaging/float_image.h"
#include "imaging/synthetic_shot.h"

namespace tracking_test {

// '#' marks a mask pixel; all rows are as long as the first.
inline img::bitmap<img::bit1> DrawnMask(const std::vector<std::string>& rows) {
  img::bitmap<img::bit1> m(uint32_t(rows[0].size()), uint32_t(rows.size()));
  for (uint32_t y = 0; y < m.height; ++y) {
    for (uint32_t i = 0; i < m.stride; ++i) m.rows[y][i] = 0;
    for (uint32_t x = 0; x < m.width; ++x)
      if (rows[y][x] == '#') m.rows[y][x >> 3] |= uint8_t(0x80 >> (x & 7));
  }
  return m;
}

inline img::bitmap<img::bit1> RectMask(
    uint32_t w, uint32_t h, uint32_t l, uint32_t t, uint32_t r, uint32_t b) {
  std::vector<std::string> rows(h, std::string(w, '.'));
  for (uint32_t y = t; y < b; ++y)
    for (uint32_t x = l; x < r; ++x) rows[y][x] = '#';
  return DrawnMask(rows);
}

// A procedural texture seen through `motion`: pixel (x, y) shows the
// texture at motion⁻¹(x, y).
inline img::float_image Textured(uint32_t w,
                                 uint32_t h,
                                 const types::affine& motion,
                                 uint32_t seed = 5) {
  const img::noise_texture texture{seed, 6.0};
  const types::affine back = motion.inverse();
  img::float_image out(w, h);
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) {
      double u, v;
      back.apply(x, y, u, v);
      uint8_t bgr[3];
      texture.sample(u, v, bgr);
      float* p = img::pixel(out, x, y);
      p[0] = bgr[0];
      p[1] = bgr[1];
      p[2] = bgr[2];
      p[3] = 255;
    }
  return out;
}

}  // namespace tracking_test
