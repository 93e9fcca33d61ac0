#include "imaging/bitmap.h"

namespace img {

namespace {

template <class Dst, class Src>
void prepare(bitmap<Dst>& dst, const bitmap<Src>& src) {
  if (dst.width != src.width || dst.height != src.height) dst.resize(src.width, src.height, 4);
}

}  // namespace

void convert_to_rgb24(bitmap<rgb24>& dst, const bitmap<rgba32>& src) {
  prepare(dst, src);
  for (uint32_t y = 0; y < src.height; ++y) {
    const uint8_t* s = src.rows[y];
    uint8_t* d = dst.rows[y];
    for (uint32_t x = 0; x < src.width; ++x, s += 4, d += 3) {
      d[0] = s[0];
      d[1] = s[1];
      d[2] = s[2];
    }
  }
}

void convert_to_rgba32(bitmap<rgba32>& dst, const bitmap<rgb24>& src) {
  prepare(dst, src);
  for (uint32_t y = 0; y < src.height; ++y) {
    const uint8_t* s = src.rows[y];
    uint8_t* d = dst.rows[y];
    for (uint32_t x = 0; x < src.width; ++x, s += 3, d += 4) {
      d[0] = s[0];
      d[1] = s[1];
      d[2] = s[2];
      d[3] = 0;
    }
  }
}

void convert_to_rgba32(bitmap<rgba32>& dst, const bitmap<rgb16>& src) {
  prepare(dst, src);
  for (uint32_t y = 0; y < src.height; ++y) {
    const uint8_t* s = src.rows[y];
    uint8_t* d = dst.rows[y];
    for (uint32_t x = 0; x < src.width; ++x, s += 2, d += 4) {
      const uint32_t w = uint32_t(s[0]) | (uint32_t(s[1]) << 8);
      d[0] = uint8_t((w & 31) * 255 / 31);
      d[1] = uint8_t(((w >> 5) & 31) * 255 / 31);
      d[2] = uint8_t(((w >> 10) & 31) * 255 / 31);
      d[3] = 0;
    }
  }
}

}  // namespace img
