// SPDX-License-Identifier: GPL-3.0-or-later
#include "imaging/merge_details.h"

#include "imaging/warp.h"

namespace img {

namespace {

// Bit for bit is not wanted here: -0.0 equals 0.0, and NaN equals nothing.
bool same(const types::affine& a, const types::affine& b) {
  return a.x == b.x && a.y == b.y && a.xx == b.xx && a.xy == b.xy && a.yx == b.yx && a.yy == b.yy;
}

bool same(const uint8_t a[4], const uint8_t b[4]) {
  return a[0] == b[0] && a[1] == b[1] && a[2] == b[2] && a[3] == b[3];
}

bool unmoved(const types::affine& t) {
  const auto shift = integer_translation(t);
  return shift && shift->x == 0 && shift->y == 0;
}

}  // namespace

bool operator==(const MergeDetails& a, const MergeDetails& b) {
  if (a.show_underlay != b.show_underlay || a.show_overlay != b.show_overlay ||
      a.show_mask != b.show_mask)
    return false;
  if (a.show_mask && (a.inverse_mask != b.inverse_mask || !same(a.mask_color, b.mask_color) ||
                      a.mask_opacity != b.mask_opacity || a.interpolation != b.interpolation))
    return false;
  if (a.show_overlay &&
      (a.overlay_opacity != b.overlay_opacity || a.interpolation != b.interpolation))
    return false;
  if (!a.show_underlay && !same(a.background, b.background)) return false;
  if (a.width != b.width || a.height != b.height) return false;
  if (a.show_underlay) {
    if (a.underlay_file != b.underlay_file || !same(a.underlay_transform, b.underlay_transform))
      return false;
    // A moved underlay uncovers background, and its sampling rule may
    // depend on the interpolation.
    if (!unmoved(a.underlay_transform) &&
        (!same(a.background, b.background) || a.interpolation != b.interpolation))
      return false;
  }
  if (a.show_overlay &&
      (a.overlay_file != b.overlay_file || !same(a.overlay_transform, b.overlay_transform) ||
       a.alpha_interpretation != b.alpha_interpretation))
    return false;
  if (a.show_mask && (a.mask != b.mask || !same(a.mask_transform, b.mask_transform))) return false;
  return true;
}

bool is_plain_file(const MergeDetails& details) {
  return details.show_underlay && !details.show_overlay && !details.show_mask &&
         details.underlay_file != nullptr && unmoved(details.underlay_transform);
}

void unpack_colour(uint32_t value, uint8_t out[4]) {
  for (int i = 0; i < 4; ++i) out[i] = uint8_t(value >> (8 * i));
}

uint32_t pack_colour(const uint8_t colour[4]) {
  return uint32_t(colour[0]) | uint32_t(colour[1]) << 8 | uint32_t(colour[2]) << 16 |
         uint32_t(colour[3]) << 24;
}

}  // namespace img
