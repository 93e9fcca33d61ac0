#include "texture_shot.h"

#include <algorithm>
#include <cmath>

#include "imaging/synthetic_shot.h"

namespace tracking_test {

img::float_image RenderTexture(uint32_t width,
                               uint32_t height,
                               const types::affine& motion,
                               const TextureOptions& options) {
  const img::noise_texture texture{options.seed, options.scale};
  const types::affine back = motion.inverse();
  img::float_image out(width, height);
  for (uint32_t y = 0; y < height; ++y)
    for (uint32_t x = 0; x < width; ++x) {
      double u, v;
      back.apply(x, y, u, v);
      uint8_t bgr[3];
      texture.sample(u, v, bgr);
      float* p = img::pixel(out, x, y);
      for (int c = 0; c < 3; ++c) p[c] = float(std::clamp(bgr[c] + options.brightness, 0.0, 255.0));
      p[3] = 255;
    }
  return out;
}

img::bitmap<img::bit1> RectMask(
    uint32_t width, uint32_t height, uint32_t left, uint32_t top, uint32_t right, uint32_t bottom) {
  img::bitmap<img::bit1> m(width, height);
  for (uint32_t y = 0; y < height; ++y) {
    std::fill(m.rows[y], m.rows[y] + m.stride, 0);
    if (y < top || y >= bottom) continue;
    for (uint32_t x = left; x < right; ++x) m.rows[y][x >> 3] |= uint8_t(0x80 >> (x & 7));
  }
  return m;
}

double MaxCornerError(const types::affine& a,
                      const types::affine& b,
                      double left,
                      double top,
                      double right,
                      double bottom) {
  double worst = 0;
  for (const double x : {left, right})
    for (const double y : {top, bottom}) {
      double ax, ay, bx, by;
      a.apply(x, y, ax, ay);
      b.apply(x, y, bx, by);
      worst = std::max(worst, std::hypot(ax - bx, ay - by));
    }
  return worst;
}

}  // namespace tracking_test
