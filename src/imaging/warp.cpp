// SPDX-License-Identifier: GPL-3.0-or-later
#include "imaging/warp.h"

#include <bit>
#include <cstring>

namespace img {

namespace {

// tx + 0.5 truncated toward zero, when that fits a 32-bit integer.
std::optional<int32_t> truncated_half_up(double t) {
  const double v = t + 0.5;
  if (!(v > -2147483649.0 && v < 2147483648.0)) return std::nullopt;
  return int32_t(v);
}

bool within(double v, double limit) {
  return std::fabs(v) <= limit;
}

template <class Sampler>
uint64_t warp_rows(Sampler sampler, bitmap<bit1>& dst) {
  uint64_t count = 0;
  const size_t row_bytes = size_t(bit1::row_bytes(dst.width));
  for (uint32_t y = 0; y < dst.height; ++y) {
    uint8_t* row = dst.rows[y];
    std::memset(row, 0, row_bytes);
    sampler.start_row(0, int32_t(y));
    for (uint32_t x = 0; x < dst.width; ++x, sampler.next()) {
      float m;
      if (sampler.sample(m) && m != 0) row[x >> 3] |= uint8_t(0x80u >> (x & 7));
    }
    for (size_t i = 0; i < row_bytes; ++i) count += uint64_t(std::popcount(row[i]));
  }
  return count;
}

}  // namespace

std::optional<integer_shift> integer_translation(const types::affine& t) {
  const double e = kIntegerTranslationTolerance;
  if (!within(t.xx - 1, e) || !within(t.xy, e) || !within(t.yx, e) || !within(t.yy - 1, e))
    return std::nullopt;
  const auto X = truncated_half_up(t.x), Y = truncated_half_up(t.y);
  if (!X || !Y) return std::nullopt;
  if (!within(t.x - *X, e) || !within(t.y - *Y, e)) return std::nullopt;
  return integer_shift{*X, *Y};
}

sampling choose_sampling(const types::affine& transform, uint32_t interpolation) {
  if (integer_translation(transform)) return sampling::offset;
  return interpolation == 1 ? sampling::bilinear : sampling::nearest;
}

uint64_t warp_mask(const bitmap<bit1>& src, const types::affine& transform, bitmap<bit1>& dst) {
  dst.resize(src.width, src.height, src.alignment);
  if (src.width == 0 || src.height == 0) return 0;
  // The tracker has no interpolation setting for masks: nearest, or the
  // offset sampler for whole-pixel shifts.
  return with_sampler(mask_source(src), transform, 0,
                      [&](auto sampler) { return warp_rows(sampler, dst); });
}

}  // namespace img
