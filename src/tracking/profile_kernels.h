// SPDX-License-Identifier: GPL-3.0-or-later
// Inner loops of profile building, one variant per instruction set, for the
// profile stage only (matching_profile.cpp). Not a public interface.
//
// The byte route: the tracker's frames hold byte values stored as floats, so
// with the pixel's own colour and the plain squared metric every term of a
// profile cell is an integer of at most 3 * 255², and a cell's sum is exact
// in any order. Such sums are kept in 32-bit integers (16-bit differences,
// multiplied and paired in one instruction) and only converted to double at
// the end, which gives bit for bit what the double scan gives, while the
// segments may be walked in any order and any grouping.
#pragma once

#include <cstdint>
#include <vector>

#include "imaging/float_image.h"
#include "tracking/segmentation.h"

namespace tracking::detail {

enum class Isa { Baseline, Avx2, Avx512 };

// The largest term of the byte route, and the largest segment whose cell sums
// stay below 2^31 with it.
constexpr int64_t kMaxByteTerm = 3 * 255 * 255;
constexpr uint32_t kMaxBytePixels = uint32_t(INT32_MAX / kMaxByteTerm);

// The part of the second picture that the windows can reach, as two planes
// of 16-bit pairs per pixel: (blue, green) and (red, 0). When the windows
// may run past a row's end the rows are kept whole, so that the run goes on
// in the next row, and past the picture's end the planes read zeros;
// otherwise only the columns in reach are kept. A margin behind the last
// pixel takes the over-reach of the last vector.
//
// For the dot-product kernel also the colours as bytes (blue | green << 8 |
// red << 16) and the running sums, wrapping in 32 bits, of
// G(u) = |u|² - 256 (blue + green + red) over the planes' order: the sum of
// G over a run of consecutive plane pixels is the difference of two.
struct ByteWindow {
  int64_t row0 = 0, col0 = 0, stride = 0;
  int64_t count = 0;   // pixels in the planes, margin included
  int64_t copied = 0;  // of them, taken from the picture; the rest are zeros
  std::vector<int16_t> bg, r0;
  std::vector<uint32_t> bytes, prefix;  // empty unless asked for

  int64_t index(int64_t row, int64_t col) const { return (row - row0) * stride + col - col0; }
};

// Sizes `out` for rows row_lo..row_hi, columns col_lo..col_hi of `im`
// (col_hi may pass the width: then whole rows, continued linearly), with
// the planes of the dot-product kernel when `isa` uses it.
void PlanByteWindow(const img::float_image& im,
                    int64_t row_lo,
                    int64_t row_hi,
                    int64_t col_lo,
                    int64_t col_hi,
                    Isa isa,
                    ByteWindow& out);
// Fills share `part` of `parts` of the planes; the parts may run at once.
// False when a value there is not an integer from 0 to 255.
bool FillByteWindow(const img::float_image& im, ByteWindow& out, int part, int parts);
// Completes the running sums once every part is filled.
void FinishByteWindow(ByteWindow& out, int parts);

// Each scanned segment's pixels in row order, with their colour in `first`:
// segment s gets pixels[start[s]] to pixels[start[s + 1] - 1]. False when
// such a pixel is not made of byte values. `scan` has one flag per segment.
// Positions must be valid.
bool GatherBytePixels(const Segmentation& seg,
                      const img::float_image& first,
                      const std::vector<char>& scan,
                      std::vector<uint32_t>& start,
                      std::vector<ReferencePixel>& pixels);

struct ByteScan {
  Segmentation* seg = nullptr;
  const ByteWindow* window = nullptr;
  const uint32_t* start = nullptr;  // as GatherBytePixels gives them
  const ReferencePixel* pixels = nullptr;
  const std::vector<char>* scan = nullptr;
  int32_t q = 0;  // radius of the scan
  // Null: each scanned segment gets its raw profile and counts at radius q.
  // Otherwise the self profiles of radius `self_radius`: each scanned
  // segment gets the self-compared profile of radius q - self_radius
  // (counts dropped), as the profile stage's mode 1 makes it.
  const std::vector<Raster<double>>* self = nullptr;
  int32_t self_radius = 0;
};

// The byte route for segments lo..hi-1. Each segment is written by this call
// alone, so two calls on separate ranges may run at once.
void RunByteScan(const ByteScan& job, Isa isa, int32_t lo, int32_t hi);

// Mode 1's comparison for segments lo..hi-1 whose profile holds the raw
// profile C of radius R + r: replaces it by minus the sums of |C - S|, each
// cell's terms in row order of S, and drops the counts.
void CompareWithSelf(Segmentation& seg,
                     const std::vector<Raster<double>>& self,
                     int32_t R,
                     int32_t r,
                     const std::vector<char>& scan,
                     Isa isa,
                     int32_t lo,
                     int32_t hi);

}  // namespace tracking::detail
