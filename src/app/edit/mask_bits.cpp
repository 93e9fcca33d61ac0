// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/edit/mask_bits.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

namespace app {

void SetMaskBits(VL::Mask& mask, int32_t y, int32_t first, int32_t last, bool value) {
  if (first >= last) return;
  uint8_t* row = mask.rows[size_t(y)];
  const auto apply = [&](int32_t byte, uint8_t bits) {
    row[byte] = value ? uint8_t(row[byte] | bits) : uint8_t(row[byte] & ~bits);
  };
  const int32_t firstByte = first >> 3, lastByte = (last - 1) >> 3;
  const uint8_t head = uint8_t(0xFF >> (first & 7));
  const uint8_t tail = uint8_t(0xFF << (7 - ((last - 1) & 7)));
  if (firstByte == lastByte) return apply(firstByte, uint8_t(head & tail));
  apply(firstByte, head);
  if (lastByte - firstByte > 1)
    std::memset(row + firstByte + 1, value ? 0xFF : 0x00, size_t(lastByte - firstByte - 1));
  apply(lastByte, tail);
}

bool DiscCovers(float cx, float cy, int32_t radius, int32_t x, int32_t y) {
  return std::hypot(cx - (float(x) + 0.5f), cy - (float(y) + 0.5f)) < float(radius);
}

PixelRect StampDisc(VL::Mask& mask, float cx, float cy, int32_t radius, bool value) {
  // The rectangle around the centre, truncated towards zero as the view
  // converted it, and clipped to the mask.
  const float r = float(radius);
  const int64_t x0 = std::max<int64_t>(int64_t(cx - r), 0);
  const int64_t y0 = std::max<int64_t>(int64_t(cy - r), 0);
  const int64_t x1 = std::min<int64_t>(int64_t(cx + r) + 1, mask.width);
  const int64_t y1 = std::min<int64_t>(int64_t(cy + r) + 1, mask.height);
  if (x1 <= x0 || y1 <= y0) return {};
  for (int64_t y = y0; y < y1; ++y) {
    const float dy = cy - (float(y) + 0.5f);
    if (!(std::fabs(dy) < r)) continue;  // hypot is never below |dy|
    // For one row the covered columns are one run around cx, because the
    // distance grows with |x - cx|. A square root finds the run to within a
    // column; the exact test then settles both ends.
    const double half = std::sqrt(double(r) * r - double(dy) * dy);
    int64_t left = std::clamp<int64_t>(int64_t(std::ceil(cx - half - 0.5)), x0, x1);
    int64_t right = std::clamp<int64_t>(int64_t(std::floor(cx + half - 0.5)), x0 - 1, x1 - 1);
    const auto covers = [&](int64_t x) {
      return DiscCovers(cx, cy, radius, int32_t(x), int32_t(y));
    };
    while (left > x0 && covers(left - 1)) --left;
    while (left <= right && !covers(left)) ++left;
    while (right + 1 < x1 && covers(right + 1)) ++right;
    while (right >= left && !covers(right)) --right;
    SetMaskBits(mask, int32_t(y), int32_t(left), int32_t(right + 1), value);
  }
  return {int32_t(x0), int32_t(y0), uint32_t(x1 - x0), uint32_t(y1 - y0)};
}

namespace {

// One pending call of the span fill, kept on an explicit stack: a large
// mask would need more nesting than a thread's stack holds. Each frame
// goes through the same three scans, in the same order, as the recursive
// form, so the pixels filled are the same.
struct SpanFrame {
  int32_t y, dir, prevLeft, prevRight;
  int32_t left, right;
  int32_t phase;  // 0: row y + dir; 1: row y - dir left part; 2: right part
  int32_t u;
};

class Flood {
 public:
  Flood(VL::Mask& mask, bool value)
      : mask_(mask),
        value_(value),
        visited_(mask.width, mask.height),
        w_(int32_t(mask.width)),
        h_(int32_t(mask.height)) {
    if (visited_.data) std::memset(visited_.data, 0, visited_.size);
  }

  void Run(int32_t x, int32_t y) {
    Enter(x, y, 1, x, x);
    while (!stack_.empty()) {
      const size_t top = stack_.size() - 1;
      if (!Step(top)) {
        const int32_t right = stack_[top].right;
        stack_.pop_back();
        if (!stack_.empty()) stack_.back().u = right;
      }
    }
  }

 private:
  bool Open(int32_t x, int32_t y) const {
    return !GetMaskBit(visited_, x, y) && GetMaskBit(mask_, x, y) != value_;
  }

  // The span through (x, y): widened both ways, filled, marked.
  void Enter(int32_t x, int32_t y, int32_t dir, int32_t prevLeft, int32_t prevRight) {
    int32_t left = x;
    while (left >= 0 && Open(left, y)) --left;
    ++left;
    int32_t right = x;
    while (right < w_ && Open(right, y)) ++right;
    SetMaskBits(mask_, y, left, right, value_);
    SetMaskBits(visited_, y, left, right, true);
    stack_.push_back({y, dir, prevLeft, prevRight, left, right, 0, left});
  }

  // Advances the frame at `i` until it calls a new span (true) or is done.
  bool Step(size_t i) {
    for (;;) {
      SpanFrame& f = stack_[i];
      int32_t row, end, dir;
      if (f.phase == 0) {
        row = f.y + f.dir, end = f.right, dir = f.dir;
        if (row < 0 || row >= h_) f.u = end;
      } else {
        // Turning back never reaches row 0.
        row = f.y - f.dir, end = f.phase == 1 ? f.prevLeft : f.right, dir = -f.dir;
        if (row <= 0 || row >= h_) f.u = end;
      }
      while (f.u < end) {
        if (Open(f.u, row)) {
          const int32_t u = f.u, left = f.left, right = f.right;
          Enter(u, row, dir, left, right);  // invalidates f
          return true;
        }
        ++f.u;
      }
      if (f.phase == 2) return false;
      f.u = f.phase == 0 ? f.left : f.prevRight;
      ++f.phase;
    }
  }

  VL::Mask& mask_;
  const bool value_;
  VL::Mask visited_;
  const int32_t w_, h_;
  std::vector<SpanFrame> stack_;
};

}  // namespace

void FloodFill(VL::Mask& mask, int32_t x, int32_t y, bool value) {
  Flood(mask, value).Run(x, y);
}

}  // namespace app
