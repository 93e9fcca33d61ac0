// SPDX-License-Identifier: GPL-3.0-or-later
#include "imaging/palette_picture.h"

#include <algorithm>
#include <array>
#include <unordered_map>

namespace img {
namespace {

constexpr uint32_t kOpaque = 0xFF000000u;
constexpr uint32_t kClear = 0x00000000u;

// Opaque colour of a pixel: its blue, green, red bytes with alpha 255.
uint32_t OpaqueColour(const uint8_t* p) {
  return kOpaque | uint32_t(p[2]) << 16 | uint32_t(p[1]) << 8 | uint32_t(p[0]);
}

bool IsClear(const uint8_t* p, bool keep_transparency) {
  return keep_transparency && p[3] < 128;
}

// 5 bits of each channel: the histogram cell of an opaque colour.
uint32_t Cell(uint32_t c) {
  return ((c >> 19) & 31) << 10 | ((c >> 11) & 31) << 5 | ((c >> 3) & 31);
}

// A box of histogram cells, each axis an inclusive range of 5-bit levels.
struct Box {
  std::array<int, 3> low{0, 0, 0};
  std::array<int, 3> high{31, 31, 31};
  uint64_t count = 0;
};

struct Histogram {
  std::vector<uint64_t> count = std::vector<uint64_t>(32768, 0);
  std::vector<std::array<uint64_t, 3>> sum = std::vector<std::array<uint64_t, 3>>(32768);

  static int CellOf(int r, int g, int b) { return r << 10 | g << 5 | b; }

  // Shrinks the box to the cells in use and counts them.
  void Fit(Box& box) const {
    std::array<int, 3> lo{31, 31, 31}, hi{0, 0, 0};
    box.count = 0;
    for (int r = box.low[0]; r <= box.high[0]; ++r)
      for (int g = box.low[1]; g <= box.high[1]; ++g)
        for (int b = box.low[2]; b <= box.high[2]; ++b) {
          const uint64_t n = count[size_t(CellOf(r, g, b))];
          if (!n) continue;
          box.count += n;
          const std::array<int, 3> at{r, g, b};
          for (int k = 0; k < 3; ++k) {
            lo[size_t(k)] = std::min(lo[size_t(k)], at[size_t(k)]);
            hi[size_t(k)] = std::max(hi[size_t(k)], at[size_t(k)]);
          }
        }
    if (box.count) box.low = lo, box.high = hi;
  }

  // Count of the slab of the box at `level` on `axis`.
  uint64_t Slab(const Box& box, int axis, int level) const {
    Box slab = box;
    slab.low[size_t(axis)] = slab.high[size_t(axis)] = level;
    uint64_t n = 0;
    for (int r = slab.low[0]; r <= slab.high[0]; ++r)
      for (int g = slab.low[1]; g <= slab.high[1]; ++g)
        for (int b = slab.low[2]; b <= slab.high[2]; ++b) n += count[size_t(CellOf(r, g, b))];
    return n;
  }

  uint32_t Mean(const Box& box) const {
    std::array<uint64_t, 3> total{0, 0, 0};
    for (int r = box.low[0]; r <= box.high[0]; ++r)
      for (int g = box.low[1]; g <= box.high[1]; ++g)
        for (int b = box.low[2]; b <= box.high[2]; ++b)
          for (int k = 0; k < 3; ++k) total[size_t(k)] += sum[size_t(CellOf(r, g, b))][size_t(k)];
    const uint64_t n = std::max<uint64_t>(box.count, 1);
    return kOpaque | uint32_t((total[0] + n / 2) / n) << 16 |
           uint32_t((total[1] + n / 2) / n) << 8 | uint32_t((total[2] + n / 2) / n);
  }
};

// Median cut: split the most populous splittable box across its longest
// axis where half its pixels lie, until `colours` boxes exist.
std::vector<uint32_t> MedianCut(const Histogram& h, size_t colours) {
  std::vector<Box> boxes(1);
  h.Fit(boxes[0]);
  while (boxes.size() < colours) {
    int pick = -1;
    for (size_t i = 0; i < boxes.size(); ++i) {
      const Box& b = boxes[i];
      const bool splittable = b.low != b.high;
      if (splittable && (pick < 0 || b.count > boxes[size_t(pick)].count)) pick = int(i);
    }
    if (pick < 0) break;
    Box box = boxes[size_t(pick)];
    int axis = 0;
    for (int k = 1; k < 3; ++k)
      if (box.high[size_t(k)] - box.low[size_t(k)] > box.high[size_t(axis)] - box.low[size_t(axis)])
        axis = k;
    // The cut lies after `level`, which stays below high so both halves are non-empty.
    uint64_t seen = 0;
    int level = box.low[size_t(axis)];
    for (; level < box.high[size_t(axis)] - 1; ++level) {
      seen += h.Slab(box, axis, level);
      if (seen * 2 >= box.count) break;
    }
    Box lower = box, upper = box;
    lower.high[size_t(axis)] = level;
    upper.low[size_t(axis)] = level + 1;
    h.Fit(lower);
    h.Fit(upper);
    boxes[size_t(pick)] = lower;
    if (upper.count) boxes.push_back(upper);
  }
  std::vector<uint32_t> palette;
  for (const Box& b : boxes)
    if (b.count) palette.push_back(h.Mean(b));
  return palette;
}

int Distance(uint32_t a, uint32_t b) {
  int d = 0;
  for (int shift = 0; shift < 24; shift += 8) {
    const int e = int((a >> shift) & 255) - int((b >> shift) & 255);
    d += e * e;
  }
  return d;
}

}  // namespace

palette_picture make_palette_picture(const image& picture, bool keep_transparency) {
  palette_picture out;
  const uint32_t w = picture.width, h = picture.height;
  out.indices.resize(size_t(w) * h);

  bool any_clear = false;
  std::unordered_map<uint32_t, uint8_t> exact;
  bool too_many = false;
  for (uint32_t y = 0; y < h && !too_many; ++y) {
    const uint8_t* row = picture.rows[y];
    for (uint32_t x = 0; x < w; ++x) {
      if (IsClear(row + 4 * x, keep_transparency)) {
        any_clear = true;
        continue;
      }
      const uint32_t c = OpaqueColour(row + 4 * x);
      if (exact.count(c)) continue;
      if (exact.size() == 256) {
        too_many = true;
        break;
      }
      exact.emplace(c, uint8_t(0));
    }
  }
  // 255 colours leave room for the transparent entry; 256 only without one.
  too_many = too_many || exact.size() + (any_clear ? 1 : 0) > 256;

  const uint8_t clear_index = 0;
  if (any_clear) out.palette.push_back(kClear);

  if (!too_many) {
    for (auto& [colour, index] : exact) {
      index = uint8_t(out.palette.size());
      out.palette.push_back(colour);
    }
    for (uint32_t y = 0; y < h; ++y) {
      const uint8_t* row = picture.rows[y];
      uint8_t* dst = out.indices.data() + size_t(y) * w;
      for (uint32_t x = 0; x < w; ++x)
        dst[x] = IsClear(row + 4 * x, keep_transparency) ? clear_index
                                                         : exact[OpaqueColour(row + 4 * x)];
    }
    return out;
  }

  Histogram hist;
  for (uint32_t y = 0; y < h; ++y) {
    const uint8_t* row = picture.rows[y];
    for (uint32_t x = 0; x < w; ++x) {
      const uint8_t* p = row + 4 * x;
      if (IsClear(p, keep_transparency)) continue;
      const uint32_t cell = Cell(OpaqueColour(p));
      ++hist.count[cell];
      hist.sum[cell][0] += p[2];
      hist.sum[cell][1] += p[1];
      hist.sum[cell][2] += p[0];
    }
  }
  const size_t first = out.palette.size();
  for (uint32_t c : MedianCut(hist, 256 - first)) out.palette.push_back(c);

  // Each used cell maps to the palette colour nearest its mean.
  std::vector<uint8_t> nearest(32768, 0);
  for (uint32_t cell = 0; cell < 32768; ++cell) {
    const uint64_t n = hist.count[cell];
    if (!n) continue;
    const uint32_t mean = kOpaque | uint32_t(hist.sum[cell][0] / n) << 16 |
                          uint32_t(hist.sum[cell][1] / n) << 8 | uint32_t(hist.sum[cell][2] / n);
    size_t best = first;
    for (size_t i = first + 1; i < out.palette.size(); ++i)
      if (Distance(mean, out.palette[i]) < Distance(mean, out.palette[best])) best = i;
    nearest[cell] = uint8_t(best);
  }
  for (uint32_t y = 0; y < h; ++y) {
    const uint8_t* row = picture.rows[y];
    uint8_t* dst = out.indices.data() + size_t(y) * w;
    for (uint32_t x = 0; x < w; ++x) {
      const uint8_t* p = row + 4 * x;
      dst[x] = IsClear(p, keep_transparency) ? clear_index : nearest[Cell(OpaqueColour(p))];
    }
  }
  return out;
}

}  // namespace img
