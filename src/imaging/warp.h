// SPDX-License-Identifier: GPL-3.0-or-later
// Samplers: an image seen through an affine transform, one destination pixel
// at a time.
//
// The compositor walks its destination once and asks each sampler what lies
// under the current pixel; the tracker warps its masks with the same code.
// Transforms map source coordinates to destination coordinates. The
// arithmetic below is part of the pictures we produce: every rounding and
// every 32-bit float store is deliberate, and the files using it are built
// without fused multiply-add.
//
// A sampler is used as
//
//   for (y ...) { s.start_row(x0, y); for (x ...) { s.sample(value); s.next(); } }
//
// and `sample` returns false where nothing lies (outside the source). The
// rule is chosen once per transform (`with_sampler`), so every combination of
// samplers is its own inner loop without a branch on the rule.
#pragma once

#include <cmath>
#include <cstdint>
#include <optional>

#include "base/affine.h"
#include "imaging/bitmap.h"

namespace img {

// Tolerance of the integer-translation test.
inline constexpr double kIntegerTranslationTolerance = 2.220446049250313e-15;

// The rounding of all samplers: add 0.5 for v >= 0 and -0.5 otherwise, then
// truncate toward zero. The result stays a double so that callers range-test
// it before any conversion (a singular transform yields infinities or NaN).
inline double round_half_away(double v) {
  return std::trunc(v >= 0 ? v + 0.5 : v - 0.5);
}

struct integer_shift {
  int32_t x = 0, y = 0;
};

// The shift (X, Y) when `t` is a translation by whole pixels, X and Y being
// tx + 0.5 and ty + 0.5 truncated toward zero. Because of that truncation a
// negative whole shift such as -3 gives X = -2 and fails: only shifts of 0 or
// more take the offset sampler. Callers' pictures depend on this asymmetry;
// keep it.
std::optional<integer_shift> integer_translation(const types::affine& t);

enum class sampling { offset, nearest, bilinear };

// The rule for one sampler: integer translations always take the offset
// sampler; otherwise `interpolation` 1 means bilinear and anything else nearest.
sampling choose_sampling(const types::affine& transform, uint32_t interpolation);

// The source position of the general samplers. Each row starts from a
// position computed in double precision and stored as 32-bit floats; each
// further pixel adds the inverse's a and c in double precision and rounds
// back to float. The error of those roundings builds up along a row and is
// cleared at the next one.
class source_position {
 public:
  // `inverse` maps destination to source; `offset` is 0.0 for nearest and
  // 0.5 for bilinear sampling.
  source_position(const types::affine& inverse, double offset) : inv_(inverse), offset_(offset) {}

  void start_row(int32_t x, int32_t y) {
    x_ = float(inv_.xx * x + inv_.xy * y + inv_.x + offset_);
    y_ = float(inv_.yx * x + inv_.yy * y + inv_.y + offset_);
  }
  void next() {
    x_ = float(double(x_) + inv_.xx);
    y_ = float(double(y_) + inv_.yx);
  }
  float x() const { return x_; }
  float y() const { return y_; }

 private:
  types::affine inv_;
  double offset_;
  float x_ = 0, y_ = 0;
};

// --- Sources: what a sampler reads. ------------------------------------------

// A colour tap as its four bytes are (the underlay's rule). Overlays plug in
// their alpha rules through the same shape: bytes in, four floats out.
struct raw_tap {
  void operator()(const uint8_t* p, float out[4]) const {
    out[0] = p[0];
    out[1] = p[1];
    out[2] = p[2];
    out[3] = p[3];
  }
};

struct colour_value {
  float c[4];  // blue, green, red, alpha on the scale 0 to 255
};

// A colour image; each tap goes through `Tap` before weighting.
template <class Tap = raw_tap>
class colour_source {
 public:
  using value_type = colour_value;
  explicit colour_source(const image& im, Tap tap = {}) : im_(&im), tap_(tap) {}
  uint32_t width() const { return im_->width; }
  uint32_t height() const { return im_->height; }

  void read(uint32_t x, uint32_t y, colour_value& out) const {
    tap_(im_->rows[y] + 4 * size_t(x), out.c);
  }
  // Taps (x-1, y-1), (x, y-1), (x-1, y), (x, y), summed by weight in this order.
  void blend(uint32_t x, uint32_t y, const float w[4], colour_value& out) const {
    float t0[4], t1[4], t2[4], t3[4];
    const uint8_t* above = im_->rows[y - 1] + 4 * size_t(x - 1);
    const uint8_t* below = im_->rows[y] + 4 * size_t(x - 1);
    tap_(above, t0);
    tap_(above + 4, t1);
    tap_(below, t2);
    tap_(below + 4, t3);
    for (int c = 0; c < 4; ++c)
      out.c[c] = w[0] * t0[c] + w[1] * t1[c] + w[2] * t2[c] + w[3] * t3[c];
  }

 private:
  const image* im_;
  Tap tap_;
};

// A bit mask: 1.0 where the bit is set. Bilinear: the summed weights of the
// set taps.
class mask_source {
 public:
  using value_type = float;
  explicit mask_source(const bitmap<bit1>& im) : im_(&im) {}
  uint32_t width() const { return im_->width; }
  uint32_t height() const { return im_->height; }

  bool bit(uint32_t x, uint32_t y) const {
    return (im_->rows[y][x >> 3] & (0x80u >> (x & 7))) != 0;
  }
  void read(uint32_t x, uint32_t y, float& out) const { out = bit(x, y) ? 1.0f : 0.0f; }
  void blend(uint32_t x, uint32_t y, const float w[4], float& out) const {
    float m = 0;
    if (bit(x - 1, y - 1)) m += w[0];
    if (bit(x, y - 1)) m += w[1];
    if (bit(x - 1, y)) m += w[2];
    if (bit(x, y)) m += w[3];
    out = m;
  }

 private:
  const bitmap<bit1>* im_;
};

// --- The three samplers. -------------------------------------------------------

// Integer translation by (X, Y): destination (x, y) reads source (x - X, y - Y).
// No floating-point arithmetic takes part.
template <class Source>
class offset_sampler {
 public:
  offset_sampler(const Source& src, integer_shift shift) : src_(src), shift_(shift) {}
  void start_row(int32_t x, int32_t y) {
    x_ = int64_t(x) - shift_.x;
    y_ = int64_t(y) - shift_.y;
  }
  void next() { ++x_; }
  bool sample(typename Source::value_type& out) const {
    if (x_ < 0 || x_ >= int64_t(src_.width()) || y_ < 0 || y_ >= int64_t(src_.height()))
      return false;
    src_.read(uint32_t(x_), uint32_t(y_), out);
    return true;
  }

 private:
  Source src_;
  integer_shift shift_;
  int64_t x_ = 0, y_ = 0;
};

// The pixel at the rounded source position.
template <class Source>
class nearest_sampler {
 public:
  nearest_sampler(const Source& src, const types::affine& inverse)
      : src_(src), pos_(inverse, 0.0) {}
  void start_row(int32_t x, int32_t y) { pos_.start_row(x, y); }
  void next() { pos_.next(); }
  bool sample(typename Source::value_type& out) const {
    const double ix = round_half_away(pos_.x()), iy = round_half_away(pos_.y());
    if (!(ix >= 0 && ix < src_.width() && iy >= 0 && iy < src_.height())) return false;
    src_.read(uint32_t(ix), uint32_t(iy), out);
    return true;
  }
  const source_position& position() const { return pos_; }

 private:
  Source src_;
  source_position pos_;
};

// Bilinear: the position carries the 0.5 offset, so pixel k's centre is at
// k + 0.5. There is no edge clamping: the outer half pixel at the left and
// top and the last one at the right and bottom fail.
template <class Source>
class bilinear_sampler {
 public:
  bilinear_sampler(const Source& src, const types::affine& inverse)
      : src_(src), pos_(inverse, 0.5) {}
  void start_row(int32_t x, int32_t y) { pos_.start_row(x, y); }
  void next() { pos_.next(); }
  bool sample(typename Source::value_type& out) const {
    const double ix = round_half_away(pos_.x()), iy = round_half_away(pos_.y());
    if (!(ix >= 1 && ix < src_.width() && iy >= 1 && iy < src_.height())) return false;
    const double fx = double(pos_.x()) + 0.5 - ix, fy = double(pos_.y()) + 0.5 - iy;
    const float w[4] = {float((1 - fx) * (1 - fy)), float(fx * (1 - fy)), float((1 - fx) * fy),
                        float(fx * fy)};
    src_.blend(uint32_t(ix), uint32_t(iy), w, out);
    return true;
  }
  const source_position& position() const { return pos_; }

 private:
  Source src_;
  source_position pos_;
};

// Calls f with the sampler that serves `transform` (source to destination)
// and returns what f returns. f is a generic callable, so each rule gets its
// own instantiation of the caller's loop.
template <class Source, class F>
decltype(auto) with_sampler(const Source& src,
                            const types::affine& transform,
                            uint32_t interpolation,
                            F&& f) {
  if (const auto shift = integer_translation(transform))
    return f(offset_sampler<Source>(src, *shift));
  // The system-wide inverse is written exactly as the samplers need it:
  // r = 1 / (d a - c b), no guard against a singular transform.
  const types::affine inverse = transform.inverse();
  if (interpolation == 1) return f(bilinear_sampler<Source>(src, inverse));
  return f(nearest_sampler<Source>(src, inverse));
}

// The bit-mask warp: `dst` takes the size of `src`, and a destination pixel
// is set where the sample succeeds and its bit is set. Integer translations
// use the offset sampler, everything else the nearest one. Returns the number
// of set pixels, which is how the tracker notices a mask that has left the
// picture or grown over all of it.
uint64_t warp_mask(const bitmap<bit1>& src, const types::affine& transform, bitmap<bit1>& dst);

}  // namespace img
