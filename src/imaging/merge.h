// SPDX-License-Identifier: GPL-3.0-or-later
// Compositing: one output frame from up to three layers, the underlay (a
// frame of the composition, possibly moved to steady it), the overlay
// (carried by the tracked motion) and a segment's mask (a tinted area).
//
// The preview and the renderer share this one path. Sampling rules, alpha
// interpretation and the form of the mix are chosen per row, never per
// pixel; the arithmetic (float taps, double mixing, round half away from
// zero, a clamp above 255 and none below 0) is part of the pictures and
// must not change.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

#include "imaging/bitmap.h"
#include "imaging/merge_details.h"

namespace img {

class Cache;
struct CacheEntry;

// A frame whose size differs from the composition's.
class BadImageDim : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// "Bad size of image NAME - WxH, expected - WxH".
std::string bad_image_dim_text(const std::string& file,
                               uint32_t width,
                               uint32_t height,
                               uint32_t expected_width,
                               uint32_t expected_height);

// The layers of one composite. Pointers may be null for layers that are not
// shown; the details say which are.
struct MergeLayers {
  const image* underlay = nullptr;
  const image* overlay = nullptr;
  const bitmap<bit1>* mask = nullptr;
};

// Writes the composite of `details` over `layers` into `destination`, which
// must already be `details.width` by `details.height`. Runs on any thread;
// reads nothing but its arguments.
void merge(image& destination, const MergeDetails& details, const MergeLayers& layers);

// Keeps `merge` to the instruction set every x86-64 processor has, so that
// tests can hold the wider build against it. Either gives the same bytes.
void limit_merge_to_baseline(bool limit);

// Fetches the layers through the cache (without touch), checks the
// underlay's size, composites into a new entry keyed by a copy of
// `details`, and gives the frames back. Returns null, making nothing, when
// `cancel` is set after a layer has been fetched (it is never read inside
// the pixel loop). Throws BadImageDim and what the readers throw.
std::unique_ptr<CacheEntry> make_composite(Cache& cache,
                                           const MergeDetails& details,
                                           const std::atomic<bool>* cancel);

// The mask editor's feedback over a part of a picture: target pixel (x, y)
// stands for source pixel and mask bit (x + offset_x, y + offset_y). Where
// the bit equals `inverse` the source pixel is copied; elsewhere it is
// tinted with `colour` at `opacity`, as a composite tints. Source pixels
// outside `source` read as 0 and mask bits outside `mask` as clear.
void tint_area(image& target,
               const image& source,
               const bitmap<bit1>& mask,
               int32_t offset_x,
               int32_t offset_y,
               bool inverse,
               const uint8_t colour[4],
               float opacity);

}  // namespace img
