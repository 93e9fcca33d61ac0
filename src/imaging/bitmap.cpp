// SPDX-License-Identifier: GPL-3.0-or-later
#include "imaging/bitmap.h"

#include <cstdlib>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace img {

uint8_t* allocate_pixels(size_t bytes) {
  constexpr size_t kHugePage = size_t(2) << 20, kLarge = size_t(4) << 20;
  const size_t align = bytes >= kLarge ? kHugePage : 64;
  // aligned_alloc wants a multiple of the alignment.
  const size_t rounded = (bytes + align - 1) / align * align;
  void* p = std::aligned_alloc(align, rounded);
  if (!p) throw std::bad_alloc();
#if defined(__linux__) && defined(MADV_HUGEPAGE)
  // Advice only: where huge pages are off, nothing changes.
  if (align == kHugePage) madvise(p, rounded, MADV_HUGEPAGE);
#endif
  return static_cast<uint8_t*>(p);
}

void release_pixels(uint8_t* buffer) noexcept {
  std::free(buffer);
}

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
