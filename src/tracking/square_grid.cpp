// SPDX-License-Identifier: GPL-3.0-or-later
// Labelling of the mask on the square grid, the segment records built from
// the labels, and the segments' positions.
#include <algorithm>

#include "tracking/segmentation.h"

namespace tracking {

namespace {

struct ForestEntry {
  int64_t parent = -1;  // -1 for a root
  uint32_t rank = 0;
  int64_t final_number = -1;
};

int64_t FindRoot(std::vector<ForestEntry>& forest, int64_t n) {
  int64_t root = n;
  while (forest[size_t(root)].parent != -1) root = forest[size_t(root)].parent;
  while (n != root) {  // path compression
    const int64_t next = forest[size_t(n)].parent;
    forest[size_t(n)].parent = root;
    n = next;
  }
  return root;
}

bool InMask(const img::bitmap<img::bit1>& mask, uint32_t x, uint32_t y) {
  return (mask.rows[y][x >> 3] & (0x80u >> (x & 7))) != 0;
}

}  // namespace

std::vector<uint32_t> LabelPieces(const img::bitmap<img::bit1>& mask,
                                  uint32_t block_size,
                                  uint32_t grid_offset) {
  const uint32_t w = mask.width, h = mask.height;
  std::vector<uint32_t> out(size_t(w) * h);
  if (out.empty()) return out;
  const int64_t b = std::max<uint32_t>(block_size, 1);
  const int64_t s = b - int64_t(grid_offset);
  // Truncating division, as the grid has always been cut; with an offset
  // above the block size the first cell is narrower, not shifted.
  auto cell = [&](uint32_t v) { return (int64_t(v) + s) / b; };

  std::vector<ForestEntry> forest;
  std::vector<uint8_t> inside(w);  // the row above, then this row
  std::vector<uint8_t> above(w);
  for (uint32_t y = 0; y < h; ++y) {
    uint32_t* row = &out[size_t(y) * w];
    const uint32_t* up_row = y ? row - w : nullptr;
    const int64_t cy = cell(y);
    const bool same_cell_row = y && cell(y - 1) == cy;
    for (uint32_t x = 0; x < w; ++x) inside[x] = InMask(mask, x, y);
    for (uint32_t x = 0; x < w; ++x) {
      const bool in = inside[x];
      // Outside pixels always belong together; inside ones only within a cell.
      const bool with_up = y && above[x] == in && (!in || same_cell_row);
      const bool with_left = x && inside[x - 1] == in && (!in || cell(x - 1) == cell(x));
      int64_t taken;
      if (!with_up && !with_left) {
        taken = int64_t(forest.size());
        forest.push_back({});
      } else {
        taken = with_left ? row[x - 1] : up_row[x];
        if (with_left && with_up && row[x - 1] != up_row[x]) {
          const int64_t a = FindRoot(forest, row[x - 1]);
          const int64_t r = FindRoot(forest, up_row[x]);
          if (a != r) {
            ForestEntry &ea = forest[size_t(a)], &eb = forest[size_t(r)];
            if (ea.rank <= eb.rank) {
              ea.parent = r;
              if (ea.rank == eb.rank) ++eb.rank;
            } else {
              eb.parent = a;
            }
          }
        }
      }
      row[x] = uint32_t(FindRoot(forest, taken));
    }
    above.swap(inside);
    inside.resize(w);
  }

  int64_t next = 0;
  for (uint32_t& l : out) {
    ForestEntry& root = forest[size_t(FindRoot(forest, l))];
    if (root.final_number < 0) root.final_number = next++;
    l = uint32_t(root.final_number);
  }
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x)
      if (!InMask(mask, x, y)) out[size_t(y) * w + x] = 0;
  return out;
}

void Segmentation::create(const img::bitmap<img::bit1>& mask,
                          uint32_t block_size,
                          uint32_t grid_offset) {
  const uint32_t b = std::max<uint32_t>(block_size, 1);
  width = mask.width;
  height = mask.height;
  build_records(LabelPieces(mask, b, grid_offset));
  merge_small(b * b / 5);
  positions_valid = false;
  statistics_valid = false;
}

void Segmentation::build_records(const std::vector<uint32_t>& pieces) {
  index.clear();
  segments.clear();
  labels.assign(size_t(width) * height, -1);
  // The label raster counts as a picture of 24-bit colours.
  auto colour_at = [&](uint32_t x, uint32_t y) {
    return SegmentColour(pieces[size_t(y) * width + x] & 0xFFFFFFu);
  };
  auto record = [&](SegmentColour c, uint32_t x, uint32_t y) {
    auto [it, fresh] = index.try_emplace(c, segments.size());
    if (fresh) {
      segments.emplace_back();
      segments.back().colour = c;
    }
    labels[size_t(y) * width + x] = int32_t(it->second);
    return it->second;
  };
  auto touch = [&](size_t p, SegmentColour c, uint32_t x, uint32_t y) {
    const SegmentColour c2 = colour_at(x, y);
    if (c2 == 0 || c2 == c) return;
    const size_t p2 = record(c2, x, y);
    segments[p].neighbours[c2] = p2;
    segments[p2].neighbours[c] = p;
  };
  // Column by column: records lie in the order of first sight in this scan.
  for (uint32_t x = 0; x < width; ++x)
    for (uint32_t y = 0; y < height; ++y) {
      const SegmentColour c = colour_at(x, y);
      if (c == 0) continue;
      const size_t p = record(c, x, y);
      ++segments[p].pixels;
      if (x + 1 < width) touch(p, c, x + 1, y);
      if (y + 1 < height) touch(p, c, x, y + 1);
    }
}

void Segmentation::positions() {
  if (positions_valid) return;
  std::vector<double> sx(segments.size()), sy(segments.size());
  std::vector<uint8_t> seen(segments.size());
  for (uint32_t y = 0; y < height; ++y)
    for (uint32_t x = 0; x < width; ++x) {
      const int32_t l = labels[size_t(y) * width + x];
      if (l < 0) continue;
      GridSegment& g = segments[size_t(l)];
      sx[size_t(l)] += x;
      sy[size_t(l)] += y;
      const int32_t ix = int32_t(x), iy = int32_t(y);
      if (!seen[size_t(l)]) {
        seen[size_t(l)] = 1;
        g.left = ix;
        g.top = iy;
        g.right = ix + 1;
        g.bottom = iy + 1;
      } else {
        g.left = std::min(g.left, ix);
        g.top = std::min(g.top, iy);
        g.right = std::max(g.right, ix + 1);
        g.bottom = std::max(g.bottom, iy + 1);
      }
    }
  for (size_t i = 0; i < segments.size(); ++i) {
    segments[i].centre_x = sx[i] / segments[i].pixels;
    segments[i].centre_y = sy[i] / segments[i].pixels;
  }
  positions_valid = true;
}

std::vector<SegmentMotion> Segmentation::motions() {
  positions();
  std::vector<SegmentMotion> out;
  out.reserve(segments.size());
  for (const GridSegment& g : segments)
    out.push_back({g.centre_x, g.centre_y, g.offset_x + g.shift_x, g.offset_y + g.shift_y});
  return out;
}

}  // namespace tracking
