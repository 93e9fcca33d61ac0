// SPDX-License-Identifier: GPL-3.0-or-later
#include "imaging/merge.h"

#include <immintrin.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <vector>

#include "imaging/cache.h"
#include "imaging/warp.h"

// A composite is made in blocks of eight destination rows, in three steps:
//
// 1. For each moved layer, the source positions of the block's rows are
//    stepped side by side, one row per vector lane. A position chain is
//    serial (each step rounds the one before), so a single row would wait on
//    the latency of every conversion; eight independent rows keep the units
//    busy. The rounded positions, their range tests and the bilinear
//    weights are worked out in the same lanes and kept per row.
// 2. Row by row, each layer is read at those positions into four floats a
//    pixel (the overlay through its alpha rule), and the mask into the tint
//    factor of each pixel.
// 3. The mix of the rows, in double precision, rounded into the
//    destination.
//
// Every value goes through the same float and double operations, in the
// same order, as the per-pixel rules; vector lanes only do several of them
// at once. Each step is its own small loop with the rule chosen once per
// row, so there is no test of a rule per pixel and few instantiations. The
// same code is compiled for the SSE2 baseline and for AVX2, which is taken
// when the processor has it.

// The templates below take AVX2 vectors by value in their wide build. They
// run only inlined into the AVX2 entry point, so the calling convention the
// compiler warns about is never used across a call.
#pragma GCC diagnostic ignored "-Wpsabi"

namespace img {

namespace {

// 1/255 as a 32-bit float (0.003921568859368563): both the alpha rules and
// the mixing use this value, not the exact quotient.
constexpr float kInv255 = 1.0f / 255.0f;

// Rows whose positions are stepped together: groups of four, one row per
// lane, and two groups side by side.
constexpr uint32_t kGroups = 2;
constexpr uint32_t kRows = 4 * kGroups;

// --- Four doubles: the rows of a block, or the channels of a pixel. -----------

// The SSE2 baseline, as two pairs.
struct narrow {
  struct d4 {
    __m128d lo, hi;
  };
  static d4 to_double(__m128 f) { return {_mm_cvtps_pd(f), _mm_cvtps_pd(_mm_movehl_ps(f, f))}; }
  static __m128 to_float(d4 v) { return _mm_movelh_ps(_mm_cvtpd_ps(v.lo), _mm_cvtpd_ps(v.hi)); }
  static d4 set1(double v) { return {_mm_set1_pd(v), _mm_set1_pd(v)}; }
  static d4 add(d4 a, d4 b) { return {_mm_add_pd(a.lo, b.lo), _mm_add_pd(a.hi, b.hi)}; }
  static d4 sub(d4 a, d4 b) { return {_mm_sub_pd(a.lo, b.lo), _mm_sub_pd(a.hi, b.hi)}; }
  static d4 mul(d4 a, d4 b) { return {_mm_mul_pd(a.lo, b.lo), _mm_mul_pd(a.hi, b.hi)}; }
  // -0.5 where v < 0, else +0.5 (NaN and -0.0 included, as v >= 0 would
  // not say): what rounding half away from zero adds before truncating.
  static __m128d away(__m128d v) {
    const __m128d negative = _mm_cmplt_pd(v, _mm_setzero_pd());
    return _mm_or_pd(_mm_set1_pd(0.5), _mm_and_pd(negative, _mm_set1_pd(-0.0)));
  }
  static d4 away(d4 v) { return {away(v.lo), away(v.hi)}; }
  // Toward zero; out of range and NaN give INT32_MIN.
  static __m128i truncate(d4 v) {
    return _mm_unpacklo_epi64(_mm_cvttpd_epi32(v.lo), _mm_cvttpd_epi32(v.hi));
  }
  static d4 from_int(__m128i i) {
    return {_mm_cvtepi32_pd(i), _mm_cvtepi32_pd(_mm_shuffle_epi32(i, 0xEE))};
  }
  static d4 clamp(d4 v, d4 low, d4 high) {
    return {_mm_min_pd(_mm_max_pd(v.lo, low.lo), high.lo),
            _mm_min_pd(_mm_max_pd(v.hi, low.hi), high.hi)};
  }
  template <int Mode>
  static __m128 blend(const uint8_t* above, const uint8_t* below, const float* w);
};

// AVX2: one register.
struct wide {
  using d4 = __m256d;
  [[gnu::target("avx2")]] static d4 to_double(__m128 f) { return _mm256_cvtps_pd(f); }
  [[gnu::target("avx2")]] static __m128 to_float(d4 v) { return _mm256_cvtpd_ps(v); }
  [[gnu::target("avx2")]] static d4 set1(double v) { return _mm256_set1_pd(v); }
  [[gnu::target("avx2")]] static d4 add(d4 a, d4 b) { return _mm256_add_pd(a, b); }
  [[gnu::target("avx2")]] static d4 sub(d4 a, d4 b) { return _mm256_sub_pd(a, b); }
  [[gnu::target("avx2")]] static d4 mul(d4 a, d4 b) { return _mm256_mul_pd(a, b); }
  [[gnu::target("avx2")]] static d4 away(d4 v) {
    const __m256d negative = _mm256_cmp_pd(v, _mm256_setzero_pd(), _CMP_LT_OQ);
    return _mm256_or_pd(_mm256_set1_pd(0.5), _mm256_and_pd(negative, _mm256_set1_pd(-0.0)));
  }
  [[gnu::target("avx2")]] static __m128i truncate(d4 v) { return _mm256_cvttpd_epi32(v); }
  [[gnu::target("avx2")]] static d4 from_int(__m128i i) { return _mm256_cvtepi32_pd(i); }
  [[gnu::target("avx2")]] static d4 clamp(d4 v, d4 low, d4 high) {
    return _mm256_min_pd(_mm256_max_pd(v, low), high);
  }
  template <int Mode>
  static __m128 blend(const uint8_t* above, const uint8_t* below, const float* w);
};

// --- Taps. ---------------------------------------------------------------------

// Mode -1: the underlay, bytes as they are. Modes 0 to 3: the overlay's
// alpha rules, applied to each tap before weighting. A tap leaves
// premultiplied, with alpha on the scale 0 to 255. The rule's product of a
// colour byte and alpha is exact in float (it stays below 2^24), so it
// equals the integer product converted; then it is scaled by 1/255.
template <int Mode>
constexpr bool kInverted = Mode == 2 || Mode == 3;
template <int Mode>
constexpr bool kStraight = Mode == 0 || Mode == 2;

template <int Mode>
__m128 tap(const uint8_t* p) {
  int32_t word;
  std::memcpy(&word, p, 4);
  const __m128i zero = _mm_setzero_si128();
  const __m128i wide = _mm_unpacklo_epi16(_mm_unpacklo_epi8(_mm_cvtsi32_si128(word), zero), zero);
  __m128 t = _mm_cvtepi32_ps(wide);
  if constexpr (Mode < 0) {
    return t;
  } else {
    __m128 a = _mm_shuffle_ps(t, t, 0xFF);
    if constexpr (kInverted<Mode>) a = _mm_sub_ps(_mm_set1_ps(255.0f), a);
    if constexpr (kStraight<Mode>) t = _mm_mul_ps(_mm_mul_ps(t, a), _mm_set1_ps(kInv255));
    const __m128 colour = _mm_castsi128_ps(_mm_set_epi32(0, -1, -1, -1));
    return _mm_or_ps(_mm_and_ps(colour, t), _mm_andnot_ps(colour, a));
  }
}

// Taps (x-1, y-1), (x, y-1), (x-1, y), (x, y), summed by weight in this
// order: `above` and `below` point at the left tap of each row.
template <int Mode>
__m128 narrow::blend(const uint8_t* above, const uint8_t* below, const float* w) {
  const __m128 ws = _mm_loadu_ps(w);
  __m128 r = _mm_mul_ps(_mm_shuffle_ps(ws, ws, 0x00), tap<Mode>(above));
  r = _mm_add_ps(r, _mm_mul_ps(_mm_shuffle_ps(ws, ws, 0x55), tap<Mode>(above + 4)));
  r = _mm_add_ps(r, _mm_mul_ps(_mm_shuffle_ps(ws, ws, 0xAA), tap<Mode>(below)));
  return _mm_add_ps(r, _mm_mul_ps(_mm_shuffle_ps(ws, ws, 0xFF), tap<Mode>(below + 4)));
}

// Two neighbouring taps in one register, each through the alpha rule.
template <int Mode>
[[gnu::target("avx2")]] __m256 tap_pair(const uint8_t* p) {
  const __m128i bytes = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
  __m256 t = _mm256_cvtepi32_ps(_mm256_cvtepu8_epi32(bytes));
  if constexpr (Mode < 0) {
    return t;
  } else {
    __m256 a = _mm256_permute_ps(t, 0xFF);
    if constexpr (kInverted<Mode>) a = _mm256_sub_ps(_mm256_set1_ps(255.0f), a);
    if constexpr (kStraight<Mode>) t = _mm256_mul_ps(_mm256_mul_ps(t, a), _mm256_set1_ps(kInv255));
    return _mm256_blend_ps(t, a, 0x88);
  }
}

// The products of both taps of a row at once; the sums keep their order.
template <int Mode>
[[gnu::target("avx2")]] __m128 wide::blend(const uint8_t* above,
                                           const uint8_t* below,
                                           const float* w) {
  const __m256 ws = _mm256_castps128_ps256(_mm_loadu_ps(w));
  const __m256 w01 = _mm256_permutevar8x32_ps(ws, _mm256_setr_epi32(0, 0, 0, 0, 1, 1, 1, 1));
  const __m256 w23 = _mm256_permutevar8x32_ps(ws, _mm256_setr_epi32(2, 2, 2, 2, 3, 3, 3, 3));
  const __m256 p01 = _mm256_mul_ps(w01, tap_pair<Mode>(above));
  const __m256 p23 = _mm256_mul_ps(w23, tap_pair<Mode>(below));
  __m128 r = _mm_add_ps(_mm256_castps256_ps128(p01), _mm256_extractf128_ps(p01, 1));
  r = _mm_add_ps(r, _mm256_castps256_ps128(p23));
  return _mm_add_ps(r, _mm256_extractf128_ps(p23, 1));
}

// --- The destination pixel. ----------------------------------------------------

// Round half away from zero, clamp above 255, and keep the low byte of
// what lies below 0: values under 0 wrap, as they always have.
inline uint8_t to_byte(double v) {
  const double r = round_half_away(v);
  if (r > 255) return 255;
  return uint8_t(int64_t(r));
}

// The same for the four channels of a pixel. Clamping at 255 before the
// rounding gives what clamping the rounded value would; truncation to
// 32-bit integers is exact for everything above the low guard, far below
// anything a composite makes.
template <class V>
inline void store_pixel(uint8_t* out, const typename V::d4& v) {
  const auto r = V::add(V::clamp(v, V::set1(-2147483000.0), V::set1(255.0)), V::away(v));
  const __m128i top = _mm_set1_epi32(255);
  __m128i i = _mm_and_si128(V::truncate(r), top);  // the low byte of what lies below 0
  i = _mm_packs_epi32(i, i);
  i = _mm_packus_epi16(i, i);
  const int32_t word = _mm_cvtsi128_si32(i);
  std::memcpy(out, &word, 4);
}

// --- Where each layer is read. -------------------------------------------------

// A layer's sampling rule with what it needs: the whole-pixel shift of the
// offset rule, or the inverse transform of the general ones.
struct layer_plan {
  sampling rule = sampling::offset;
  integer_shift shift;
  types::affine inverse;
  uint32_t width = 0, height = 0;  // of the source

  layer_plan() = default;
  layer_plan(const types::affine& transform, uint32_t interpolation, uint32_t w, uint32_t h)
      : width(w), height(h) {
    if (const auto s = integer_translation(transform)) {
      shift = *s;
      return;
    }
    // The system-wide inverse, r = 1 / (d a - c b), with no guard against a
    // singular transform: its positions are infinite or NaN and fail.
    inverse = transform.inverse();
    rule = interpolation == 1 ? sampling::bilinear : sampling::nearest;
  }
};

// The positions of a block's rows, one row after the other: per pixel the
// source column and row (the column is -1 where the sample fails) and, for
// the bilinear rule, the four weights.
struct block_samples {
  std::vector<int32_t> at;
  std::vector<float> weights;
  uint32_t width = 0;

  void resize(uint32_t w, bool bilinear) {
    width = w;
    at.assign(size_t(kRows) * 2 * w, -1);
    weights.assign(bilinear ? size_t(kRows) * 4 * w : 0, 0.0f);
  }
  const int32_t* at_row(uint32_t r) const { return at.data() + size_t(r) * 2 * width; }
  const float* weights_row(uint32_t r) const { return weights.data() + size_t(r) * 4 * width; }
};

// Steps the positions of rows y0 .. y0 + 7 (a short last block repeats its
// last row) and keeps what the samplers need. Per lane this is the shared
// sampler's arithmetic: a float position, advanced by a double step and
// rounded back to float, rounded half away from zero and range-tested; for
// the bilinear rule fx = x + 0.5 - ix and the weights stored as floats. The
// truncation goes to 32-bit integers, where anything out of range becomes
// INT32_MIN and fails the range test as the double would.
template <class V, bool Bilinear>
void locate_block(const layer_plan& p, uint32_t y0, uint32_t rows, block_samples& s) {
  alignas(16) float start_x[kRows], start_y[kRows];
  for (uint32_t r = 0; r < kRows; ++r) {
    source_position pos(p.inverse, Bilinear ? 0.5 : 0.0);
    pos.start_row(0, int32_t(y0 + std::min(r, rows - 1)));
    start_x[r] = pos.x();
    start_y[r] = pos.y();
  }
  __m128 fx[kGroups], fy[kGroups];
  for (uint32_t g = 0; g < kGroups; ++g) {
    fx[g] = _mm_load_ps(start_x + 4 * g);
    fy[g] = _mm_load_ps(start_y + 4 * g);
  }
  const auto step_x = V::set1(p.inverse.xx), step_y = V::set1(p.inverse.yx);
  const __m128i low = _mm_set1_epi32(Bilinear ? 0 : -1);
  const __m128i width = _mm_set1_epi32(int32_t(std::min<uint32_t>(p.width, INT32_MAX)));
  const __m128i height = _mm_set1_epi32(int32_t(std::min<uint32_t>(p.height, INT32_MAX)));
  const __m128i fail = _mm_set1_epi32(-1);
  int32_t* at[kRows];
  float* w[kRows];
  for (uint32_t r = 0; r < kRows; ++r) {
    at[r] = s.at.data() + size_t(r) * 2 * s.width;
    w[r] = Bilinear ? s.weights.data() + size_t(r) * 4 * s.width : nullptr;
  }
  for (uint32_t x = 0; x < s.width; ++x) {
    // The groups' chains are independent: one's conversions overlap the
    // other's.
    for (uint32_t g = 0; g < kGroups; ++g) {
      const auto vx = V::to_double(fx[g]), vy = V::to_double(fy[g]);
      fx[g] = V::to_float(V::add(vx, step_x));
      fy[g] = V::to_float(V::add(vy, step_y));
      const auto rx = V::add(vx, V::away(vx)), ry = V::add(vy, V::away(vy));
      const __m128i ix = V::truncate(rx), iy = V::truncate(ry);
      const __m128i in =
          _mm_and_si128(_mm_and_si128(_mm_cmpgt_epi32(ix, low), _mm_cmplt_epi32(ix, width)),
                        _mm_and_si128(_mm_cmpgt_epi32(iy, low), _mm_cmplt_epi32(iy, height)));
      const __m128i column = _mm_or_si128(_mm_and_si128(in, ix), _mm_andnot_si128(in, fail));
      const __m128i pairs01 = _mm_unpacklo_epi32(column, iy),
                    pairs23 = _mm_unpackhi_epi32(column, iy);
      int32_t* const* a = at + 4 * g;
      _mm_storel_epi64(reinterpret_cast<__m128i*>(a[0] + 2 * x), pairs01);
      _mm_storel_epi64(reinterpret_cast<__m128i*>(a[1] + 2 * x), _mm_srli_si128(pairs01, 8));
      _mm_storel_epi64(reinterpret_cast<__m128i*>(a[2] + 2 * x), pairs23);
      _mm_storel_epi64(reinterpret_cast<__m128i*>(a[3] + 2 * x), _mm_srli_si128(pairs23, 8));
      if constexpr (Bilinear) {
        // Where the sample succeeds x >= 0.5, so rx is x + 0.5.
        const auto one = V::set1(1.0);
        const auto ex = V::sub(rx, V::from_int(ix)), ey = V::sub(ry, V::from_int(iy));
        const auto gx = V::sub(one, ex), gy = V::sub(one, ey);
        __m128 w0 = V::to_float(V::mul(gx, gy)), w1 = V::to_float(V::mul(ex, gy));
        __m128 w2 = V::to_float(V::mul(gx, ey)), w3 = V::to_float(V::mul(ex, ey));
        _MM_TRANSPOSE4_PS(w0, w1, w2, w3);
        float* const* ws = w + 4 * g;
        _mm_storeu_ps(ws[0] + 4 * x, w0);
        _mm_storeu_ps(ws[1] + 4 * x, w1);
        _mm_storeu_ps(ws[2] + 4 * x, w2);
        _mm_storeu_ps(ws[3] + 4 * x, w3);
      }
    }
  }
}

template <class V>
void locate(const layer_plan& p, uint32_t y0, uint32_t rows, block_samples& s) {
  if (p.rule == sampling::bilinear)
    locate_block<V, true>(p, y0, rows, s);
  else if (p.rule == sampling::nearest)
    locate_block<V, false>(p, y0, rows, s);
}

// --- Step 2: a row of each layer. ----------------------------------------------

// One row of a colour layer as four floats a pixel; `fill` where the sample
// fails, and ok[x] says whether it succeeded.
template <class V, int Mode>
void colour_row(const image& src,
                const layer_plan& p,
                const block_samples& s,
                uint32_t r,
                uint32_t y,
                const float fill[4],
                float* out,
                uint8_t* ok) {
  const uint32_t n = s.width;
  const __m128 empty = _mm_loadu_ps(fill);
  if (p.rule == sampling::offset) {
    // Destination columns x0 .. x1 read source column x - X of row y - Y.
    const int64_t sy = int64_t(y) - p.shift.y;
    int64_t x0 = 0, x1 = 0;
    if (sy >= 0 && sy < int64_t(p.height)) {
      x0 = std::clamp<int64_t>(p.shift.x, 0, n);
      x1 = std::clamp<int64_t>(int64_t(p.width) + p.shift.x, x0, n);
    }
    for (int64_t x = 0; x < x0; ++x) _mm_storeu_ps(out + 4 * x, empty);
    if (x1 > x0) {
      const uint8_t* in = src.rows[size_t(sy)] + 4 * (x0 - p.shift.x);
      for (int64_t x = x0; x < x1; ++x, in += 4) _mm_storeu_ps(out + 4 * x, tap<Mode>(in));
    }
    for (int64_t x = x1; x < int64_t(n); ++x) _mm_storeu_ps(out + 4 * x, empty);
    std::memset(ok, 0, size_t(x0));
    std::memset(ok + x0, 1, size_t(x1 - x0));
    std::memset(ok + x1, 0, size_t(n - x1));
    return;
  }
  // Held in a local: the flag stores could alias the image's row table.
  const uint8_t* const* rows = src.rows.data();
  const int32_t* at = s.at_row(r);
  if (p.rule == sampling::nearest) {
    for (uint32_t x = 0; x < n; ++x, at += 2) {
      ok[x] = at[0] >= 0;
      _mm_storeu_ps(out + 4 * x, at[0] < 0 ? empty : tap<Mode>(rows[at[1]] + 4 * size_t(at[0])));
    }
    return;
  }
  const float* w = s.weights_row(r);
  for (uint32_t x = 0; x < n; ++x, at += 2, w += 4) {
    ok[x] = at[0] >= 0;
    if (at[0] < 0) {
      _mm_storeu_ps(out + 4 * x, empty);
    } else {
      const size_t left = 4 * size_t(at[0] - 1);
      _mm_storeu_ps(out + 4 * x,
                    V::template blend<Mode>(rows[at[1] - 1] + left, rows[at[1]] + left, w));
    }
  }
}

template <class V>
void overlay_row(uint32_t mode,
                 const image& src,
                 const layer_plan& p,
                 const block_samples& s,
                 uint32_t r,
                 uint32_t y,
                 float* out,
                 uint8_t* ok) {
  const float none[4] = {0, 0, 0, 0};
  switch (mode) {
    case 1:
      return colour_row<V, 1>(src, p, s, r, y, none, out, ok);
    case 2:
      return colour_row<V, 2>(src, p, s, r, y, none, out, ok);
    case 3:
      return colour_row<V, 3>(src, p, s, r, y, none, out, ok);
    default:
      return colour_row<V, 0>(src, p, s, r, y, none, out, ok);
  }
}

inline bool mask_bit(const uint8_t* const* rows, uint32_t x, uint32_t y) {
  return (rows[y][x >> 3] & (0x80u >> (x & 7))) != 0;
}

// One row of the mask as the tint factor of each pixel. The mask value
// lives across pixels and rows: a failed sample leaves the value of the
// pixel before (already multiplied by the opacity if it was tinted). The
// non-inverse tint relies on that carrying-over.
template <bool Inverse>
void mask_row(const bitmap<bit1>& mk,
              const layer_plan& p,
              const block_samples& s,
              uint32_t r,
              uint32_t y,
              float opacity,
              float& m,
              float* factor,
              uint8_t* tinted) {
  const uint32_t n = s.width;
  // Held in a local: the flag stores could alias the mask's row table.
  const uint8_t* const* bits = mk.rows.data();
  const auto decide = [&](uint32_t x, bool ok) {
    bool tint = false;
    if constexpr (!Inverse) {
      if (m > 0.01) {
        m = m * opacity;
        tint = true;
      }
    } else if (!ok) {
      m = opacity;
      tint = true;
    } else if (m < 0.99) {
      m = float((1.0 - double(m)) * double(opacity));
      tint = true;
    }
    tinted[x] = tint;
    factor[x] = m;
  };
  if (p.rule == sampling::offset) {
    const int64_t sy = int64_t(y) - p.shift.y;
    const bool row_in = sy >= 0 && sy < int64_t(p.height);
    for (uint32_t x = 0; x < n; ++x) {
      const int64_t sx = int64_t(x) - p.shift.x;
      const bool ok = row_in && sx >= 0 && sx < int64_t(p.width);
      if (ok) m = mask_bit(bits, uint32_t(sx), uint32_t(sy)) ? 1.0f : 0.0f;
      decide(x, ok);
    }
    return;
  }
  const int32_t* at = s.at_row(r);
  if (p.rule == sampling::nearest) {
    for (uint32_t x = 0; x < n; ++x, at += 2) {
      const bool ok = at[0] >= 0;
      if (ok) m = mask_bit(bits, uint32_t(at[0]), uint32_t(at[1])) ? 1.0f : 0.0f;
      decide(x, ok);
    }
    return;
  }
  const float* w = s.weights_row(r);
  for (uint32_t x = 0; x < n; ++x, at += 2, w += 4) {
    const bool ok = at[0] >= 0;
    if (ok) {
      // The summed weights of the set taps, in tap order.
      const uint32_t ix = uint32_t(at[0]), iy = uint32_t(at[1]);
      float v = 0;
      if (mask_bit(bits, ix - 1, iy - 1)) v += w[0];
      if (mask_bit(bits, ix, iy - 1)) v += w[1];
      if (mask_bit(bits, ix - 1, iy)) v += w[2];
      if (mask_bit(bits, ix, iy)) v += w[3];
      m = v;
    }
    decide(x, ok);
  }
}

// --- Step 3: the mix. ----------------------------------------------------------

struct mix_constants {
  float tint[4];  // the mask colour's bytes
  double overlay_opacity;
};

// The rows of one destination row: the underlay (background where it is
// missing), the overlay and where it was sampled, and the tint factors and
// where they apply.
struct mix_rows {
  const float* under;
  const float* over;
  const uint8_t* over_ok;
  const float* factor;
  const uint8_t* tinted;
};

// The underlay under the overlay where it was sampled, tinted where the
// mask says, in double precision.
template <class V, bool Over, bool OpacityOne, bool Mask>
void mix_row(const mix_rows& rows, const mix_constants& k, uint32_t n, uint8_t* out) {
  // Locals: the byte stores below could alias the struct's pointers.
  const float *under = rows.under, *over = rows.over, *factor = rows.factor;
  const uint8_t *over_ok = rows.over_ok, *tinted = rows.tinted;
  const double op = k.overlay_opacity;
  const double k255 = double(kInv255);
  const auto tint = V::to_double(_mm_loadu_ps(k.tint));
  for (uint32_t x = 0; x < n; ++x, out += 4) {
    auto v = V::to_double(_mm_loadu_ps(under + 4 * x));
    if constexpr (Over) {
      if (over_ok[x]) {
        const __m128 o = _mm_loadu_ps(over + 4 * x);
        const double a = over[4 * x + 3];
        const double w = OpacityOne ? (255.0 - a) * k255 : (255.0 - a * op) * k255;
        auto ov = V::to_double(o);
        if constexpr (!OpacityOne) ov = V::mul(ov, V::set1(op));
        v = V::add(V::mul(v, V::set1(w)), ov);
      }
    }
    if constexpr (Mask) {
      if (tinted[x]) {
        const double mm = factor[x];
        v = V::add(V::mul(v, V::set1(1.0 - mm)), V::mul(tint, V::set1(mm)));
      }
    }
    store_pixel<V>(out, v);
  }
}

// --- The frame. ----------------------------------------------------------------

template <class V>
void mix(bool over,
         bool opacity_one,
         bool mask,
         const mix_rows& rows,
         const mix_constants& k,
         uint32_t n,
         uint8_t* out) {
  if (over) {
    if (opacity_one) {
      if (mask) return mix_row<V, true, true, true>(rows, k, n, out);
      return mix_row<V, true, true, false>(rows, k, n, out);
    }
    if (mask) return mix_row<V, true, false, true>(rows, k, n, out);
    return mix_row<V, true, false, false>(rows, k, n, out);
  }
  if (mask) return mix_row<V, false, true, true>(rows, k, n, out);
  mix_row<V, false, true, false>(rows, k, n, out);
}

template <class V>
void composite(image& dst, const MergeDetails& d, const MergeLayers& layers) {
  const uint32_t n = d.width;
  const bool show_under = d.show_underlay && layers.underlay;
  const bool show_over = d.show_overlay && layers.overlay;
  const bool show_mask = d.show_mask && layers.mask;
  mix_constants k;
  for (int c = 0; c < 4; ++c) k.tint[c] = d.mask_color[c];
  k.overlay_opacity = d.overlay_opacity;
  float background[4];
  for (int c = 0; c < 4; ++c) background[c] = d.background[c];

  layer_plan under, over, mask;
  block_samples under_at, over_at, mask_at;
  if (show_under) {
    under = layer_plan(d.underlay_transform, d.interpolation, layers.underlay->width,
                       layers.underlay->height);
    under_at.resize(n, under.rule == sampling::bilinear);
  }
  if (show_over) {
    over = layer_plan(d.overlay_transform, d.interpolation, layers.overlay->width,
                      layers.overlay->height);
    over_at.resize(n, over.rule == sampling::bilinear);
  }
  if (show_mask) {
    mask = layer_plan(d.mask_transform, d.interpolation, layers.mask->width, layers.mask->height);
    mask_at.resize(n, mask.rule == sampling::bilinear);
  }

  // One row of each layer, four floats a pixel.
  std::vector<float> under_row(4 * size_t(n)), over_row(show_over ? 4 * size_t(n) : 0);
  std::vector<float> factor(show_mask ? n : 0);
  std::vector<uint8_t> flags(3 * size_t(n));
  uint8_t *under_ok = flags.data(), *over_ok = under_ok + n, *tinted = over_ok + n;
  if (!show_under)
    for (uint32_t x = 0; x < n; ++x) std::memcpy(&under_row[4 * size_t(x)], background, 16);

  const mix_rows rows_of_y{under_row.data(), over_row.data(), over_ok, factor.data(), tinted};
  float m = 0.0f;  // the mask value, carried over failed samples
  for (uint32_t y0 = 0; y0 < d.height; y0 += kRows) {
    const uint32_t rows = std::min(kRows, d.height - y0);
    if (show_under) locate<V>(under, y0, rows, under_at);
    if (show_over) locate<V>(over, y0, rows, over_at);
    if (show_mask) locate<V>(mask, y0, rows, mask_at);
    for (uint32_t r = 0; r < rows; ++r) {
      const uint32_t y = y0 + r;
      if (show_under)
        colour_row<V, -1>(*layers.underlay, under, under_at, r, y, background, under_row.data(),
                          under_ok);
      if (show_over)
        overlay_row<V>(d.alpha_interpretation, *layers.overlay, over, over_at, r, y,
                       over_row.data(), over_ok);
      if (show_mask) {
        if (d.inverse_mask)
          mask_row<true>(*layers.mask, mask, mask_at, r, y, d.mask_opacity, m, factor.data(),
                         tinted);
        else
          mask_row<false>(*layers.mask, mask, mask_at, r, y, d.mask_opacity, m, factor.data(),
                          tinted);
      }
      mix<V>(show_over, d.overlay_opacity == 1.0f, show_mask, rows_of_y, k, n, dst.rows[y]);
    }
  }
}

// Both builds of the same code; everything they call is inlined, so each
// is compiled whole for its instruction set.
[[gnu::flatten]] void composite_baseline(image& dst,
                                         const MergeDetails& d,
                                         const MergeLayers& layers) {
  composite<narrow>(dst, d, layers);
}
[[gnu::target("avx2"), gnu::flatten]] void composite_avx2(image& dst,
                                                          const MergeDetails& d,
                                                          const MergeLayers& layers) {
  composite<wide>(dst, d, layers);
}

std::atomic<bool> baseline_only{false};

// The underlay moved by whole pixels with nothing over it: rows of the
// frame, background where it does not reach. Same bytes as the general
// loop, at the speed of a copy.
void copy_shifted(image& dst,
                  uint32_t width,
                  uint32_t height,
                  const image& src,
                  integer_shift shift,
                  const uint8_t background[4]) {
  uint32_t bg;
  std::memcpy(&bg, background, 4);
  for (uint32_t y = 0; y < height; ++y) {
    uint32_t* out = reinterpret_cast<uint32_t*>(dst.rows[y]);
    const int64_t sy = int64_t(y) - shift.y;
    int64_t x0 = 0, x1 = 0;  // destination columns that read the source
    if (sy >= 0 && sy < int64_t(src.height)) {
      x0 = std::max<int64_t>(0, shift.x);
      x1 = std::min<int64_t>(width, int64_t(src.width) + shift.x);
      if (x1 < x0) x1 = x0;
    }
    for (int64_t x = 0; x < x0; ++x) out[x] = bg;
    if (x1 > x0)
      std::memcpy(out + x0, src.rows[size_t(sy)] + 4 * (x0 - shift.x), size_t(x1 - x0) * 4);
    for (int64_t x = x1 < x0 ? x0 : x1; x < int64_t(width); ++x) out[x] = bg;
  }
}

// A layer is only read while the composite is made; the cache's reference
// keeps it alive until then.
class held_frame {
 public:
  explicit held_frame(Cache& cache) : cache_(cache) {}
  ~held_frame() {
    if (entry_) cache_.release(entry_);
  }
  void acquire(const std::string& name) { entry_ = cache_.acquire_file(name, false); }
  const image& picture() const { return entry_->image; }

 private:
  Cache& cache_;
  CacheEntry* entry_ = nullptr;
};

bool is_set(const std::atomic<bool>* flag) {
  return flag && flag->load(std::memory_order_relaxed);
}

}  // namespace

std::string bad_image_dim_text(const std::string& file,
                               uint32_t width,
                               uint32_t height,
                               uint32_t expected_width,
                               uint32_t expected_height) {
  return "Bad size of image " + file + " - " + std::to_string(width) + "x" +
         std::to_string(height) + ", expected - " + std::to_string(expected_width) + "x" +
         std::to_string(expected_height);
}

void limit_merge_to_baseline(bool limit) {
  baseline_only.store(limit, std::memory_order_relaxed);
}

void merge(image& dst, const MergeDetails& d, const MergeLayers& layers) {
  const bool overlay = d.show_overlay && layers.overlay;
  const bool mask = d.show_mask && layers.mask;
  if (!overlay && !mask) {
    if (d.show_underlay && layers.underlay) {
      if (const auto shift = integer_translation(d.underlay_transform))
        return copy_shifted(dst, d.width, d.height, *layers.underlay, *shift, d.background);
    } else {
      return copy_shifted(dst, d.width, d.height, image(), {}, d.background);
    }
  }
  static const bool avx2 = __builtin_cpu_supports("avx2");
  if (avx2 && !baseline_only.load(std::memory_order_relaxed))
    composite_avx2(dst, d, layers);
  else
    composite_baseline(dst, d, layers);
}

std::unique_ptr<CacheEntry> make_composite(Cache& cache,
                                           const MergeDetails& details,
                                           const std::atomic<bool>* cancel) {
  MergeLayers layers;
  held_frame underlay(cache), overlay(cache);
  if (details.show_underlay && details.underlay_file) {
    underlay.acquire(*details.underlay_file);
    if (is_set(cancel)) return nullptr;
    const image& u = underlay.picture();
    if (u.width != details.width || u.height != details.height)
      throw BadImageDim(bad_image_dim_text(*details.underlay_file, u.width, u.height, details.width,
                                           details.height));
    layers.underlay = &u;
  }
  if (details.show_overlay && !details.overlay_file.empty()) {
    overlay.acquire(details.overlay_file);
    if (is_set(cancel)) return nullptr;
    layers.overlay = &overlay.picture();
  }
  if (details.show_mask) layers.mask = details.mask;

  auto entry = std::make_unique<CacheEntry>();
  entry->image.resize(details.width, details.height, 4);
  merge(entry->image, details, layers);
  entry->key = details;
  return entry;
}

void tint_area(image& target,
               const image& source,
               const bitmap<bit1>& mask,
               int32_t offset_x,
               int32_t offset_y,
               bool inverse,
               const uint8_t colour[4],
               float opacity) {
  const double mm = opacity, v = 1.0 - mm;
  for (uint32_t y = 0; y < target.height; ++y) {
    const int64_t sy = int64_t(y) + offset_y;
    const bool row_in = sy >= 0 && sy < int64_t(source.height);
    const bool mask_row_in = sy >= 0 && sy < int64_t(mask.height);
    uint8_t* out = target.rows[y];
    for (uint32_t x = 0; x < target.width; ++x, out += 4) {
      const int64_t sx = int64_t(x) + offset_x;
      uint8_t pixel[4] = {0, 0, 0, 0};
      if (row_in && sx >= 0 && sx < int64_t(source.width))
        std::memcpy(pixel, source.rows[size_t(sy)] + 4 * sx, 4);
      bool bit = false;
      if (mask_row_in && sx >= 0 && sx < int64_t(mask.width))
        bit = (mask.rows[size_t(sy)][sx >> 3] & (0x80u >> (sx & 7))) != 0;
      if (bit == inverse) {
        std::memcpy(out, pixel, 4);
      } else {
        for (int c = 0; c < 4; ++c) out[c] = to_byte(double(pixel[c]) * v + double(colour[c]) * mm);
      }
    }
  }
}

}  // namespace img
