// SPDX-License-Identifier: GPL-3.0-or-later
// The reference frame's mask cut into small connected pieces, each of which
// gets its own motion in block matching.
//
// A mask with holes or narrow parts yields pieces that follow its outline: a
// grid square that the mask cuts in two becomes two pieces. Pieces too small
// to carry texture are merged into the piece with the nearest centre. A new
// Segmentation is built for every reference frame.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "imaging/bitmap.h"
#include "imaging/float_image.h"
#include "tracking/point_set_fit.h"

namespace tracking {

// A plain two-dimensional array owned by its segment, row after row.
template <class T>
struct Raster {
  int32_t width = 0, height = 0;
  std::vector<T> cells;

  void reset(int32_t w, int32_t h) {
    width = w;
    height = h;
    cells.assign(size_t(w) * size_t(h), T(0));
  }
  T* row(int32_t j) { return cells.data() + size_t(j) * size_t(width); }
  const T* row(int32_t j) const { return cells.data() + size_t(j) * size_t(width); }
  T& at(int32_t i, int32_t j) { return row(j)[i]; }
  const T& at(int32_t i, int32_t j) const { return row(j)[i]; }
};

// Key of a neighbour or of the index: the segment's 24-bit colour.
using SegmentColour = uint32_t;

struct GridSegment {
  SegmentColour colour = 0;                  // low 24 bits of the piece's label number; never 0
  uint32_t pixels = 0;                       // area
  bool active = false, second_flag = false;  // read only by the foreign-ring profile modes
  // The segments that touch this one (4-connected), colour to position. A
  // segment merged from two touching pieces lists itself, and must: the
  // self-entry counts in the smoothness weight of the coherent motion.
  std::map<SegmentColour, size_t> neighbours;
  Raster<double> profile;          // match quality per displacement; higher is better
  Raster<int32_t> profile_counts;  // scratch of the profile scan
  float mean[3] = {0, 0, 0};       // blue, green, red
  double variance = 0;
  int32_t left = 0, top = 0, right = 0, bottom = 0;  // right, bottom: one past the last pixel
  double centre_x = 0, centre_y = 0;                 // centre of gravity
  std::string name;
  int32_t radius_x = 0, radius_y = 0;  // the profile's centre cell: the search radius
  int32_t offset_x = 0, offset_y = 0;  // chosen displacement, relative to shift
  int32_t shift_x = 0, shift_y = 0;    // expected displacement from the starting motion
};

// A pixel of a segment with its colour on the reference frame, packed as
// the exact integer route of the profile stage takes it: blue | green << 16,
// and red.
struct ReferencePixel {
  int32_t x, y, bg, r;
};

// What the profile stage keeps of a reference frame across target frames.
// All of it depends only on the reference picture, the pieces and their
// statistics: recomputing the statistics drops it, and create() forces that.
struct ProfileCache {
  const img::float_image* reference = nullptr;  // what it was measured on
  // The self profiles of the self-compared mode, one per segment, with the
  // parameters they were made with.
  bool self_valid = false;
  unsigned colour_source = 0, metric = 0;
  int32_t self_radius = 0;
  std::vector<Raster<double>> self;
  // Every segment's pixels in row order: segment s holds
  // pixels[pixel_start[s]] to pixels[pixel_start[s + 1] - 1]. Gathered
  // once (`pixels_gathered`); `reference_bytes` false when the reference
  // holds a value other than a byte at a segment's pixel, and the lists
  // are then not used.
  bool pixels_gathered = false, reference_bytes = false;
  std::vector<uint32_t> pixel_start;
  std::vector<ReferencePixel> pixels;
};

class Segmentation {
 public:
  std::map<SegmentColour, size_t> index;  // colour to position in `segments`
  std::vector<GridSegment> segments;
  // Per pixel, row after row: the position of its segment, -1 for none.
  std::vector<int32_t> labels;
  uint32_t width = 0, height = 0;
  const img::float_image* image = nullptr;  // the reference frame, not owned
  bool positions_valid = false, statistics_valid = false, statistics_scaled = false;
  ProfileCache profile_cache;

  // Cuts `mask` into pieces of about `block_size` squared pixels whose grid
  // is moved left and up by `grid_offset`, merges the small ones and leaves
  // positions and statistics invalid. Replaces all previous contents. A
  // block size of 0 counts as 1. When mask pixel (0, 0) is set, the piece
  // holding it takes no part: it gets no record and its labels stay -1.
  void create(const img::bitmap<img::bit1>& mask, uint32_t block_size, uint32_t grid_offset);

  size_t segment_count() const { return segments.size(); }

  // Fills the bounding boxes and centres of all segments unless valid.
  void positions();

  // One entry per segment, in order: centre and velocity (offset + shift),
  // as the point-set match takes them. Computes positions first.
  std::vector<SegmentMotion> motions();

  int32_t label(uint32_t x, uint32_t y) const { return labels[size_t(y) * width + x]; }

 private:
  void build_records(const std::vector<uint32_t>& pieces);
  void merge_small(uint32_t min_pixels);
};

// The connected pieces of `mask` on a grid of `block_size` moved by
// `grid_offset`, row after row: 0 outside the mask, otherwise the piece's
// number. Numbers are counted over inside and outside pieces alike in order
// of their first pixel, so the piece holding pixel (0, 0) is number 0 and
// indistinguishable from the outside. Exposed for the tests.
std::vector<uint32_t> LabelPieces(const img::bitmap<img::bit1>& mask,
                                  uint32_t block_size,
                                  uint32_t grid_offset);

}  // namespace tracking
