// SPDX-License-Identifier: GPL-3.0-or-later
// One complete description of a composite: which layers are shown, how they
// are placed and how they are tinted. A plain value that is also its own key
// in the frame cache, so its equality decides whether a composite that is
// already held can be shown again.
#pragma once

#include <cstdint>
#include <string>

#include "base/affine.h"
#include "imaging/bitmap.h"

namespace img {

struct MergeDetails {
  // The view's display style.
  bool show_underlay = true;
  bool show_overlay = true;
  bool show_mask = true;
  bool inverse_mask = false;
  // Bytes in image order: blue, green, red, alpha. What stands where no
  // underlay is.
  uint8_t background[4] = {0, 0, 0, 0};
  float overlay_opacity = 1.0f;  // 0 to 1
  uint8_t mask_color[4] = {255, 0, 0, 0};
  float mask_opacity = 0.5f;   // 0 to 1
  uint32_t interpolation = 1;  // 1 bilinear, anything else nearest

  // The output's size, in underlay pixels.
  uint32_t width = 0;
  uint32_t height = 0;
  // Owned by the composition's frame list and compared as a pointer: two
  // requests for the same frame share the string.
  const std::string* underlay_file = nullptr;
  types::affine underlay_transform;
  std::string overlay_file;
  types::affine overlay_transform;
  uint32_t alpha_interpretation = 0;  // AlphaInterpretation
  // Owned by the segment, compared as a pointer: an edited mask is made
  // stale in the cache by discard_merges_of_mask, not by comparison.
  const bitmap<bit1>* mask = nullptr;
  types::affine mask_transform;
};

// Equality of requests. Only what shows in the picture takes part: a hidden
// layer's fields are ignored, and the background counts only where it can
// be seen. Floats compare with ==, so a NaN transform makes a request
// unequal to itself, which merely defeats the cache.
bool operator==(const MergeDetails& a, const MergeDetails& b);

// The underlay shown alone, unmoved (an integer translation by exactly
// (0, 0)): the composite would only reproduce the file, and the cache hands
// out the file's own entry instead.
bool is_plain_file(const MergeDetails& details);

// The colour of a stored integer whose low byte is the pixel's first byte
// (blue), and back.
void unpack_colour(uint32_t value, uint8_t out[4]);
uint32_t pack_colour(const uint8_t colour[4]);

}  // namespace img
