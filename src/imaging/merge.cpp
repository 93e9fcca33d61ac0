// SPDX-License-Identifier: GPL-3.0-or-later
#include "imaging/merge.h"

#include <emmintrin.h>

#include <cstring>
#include <type_traits>

#include "imaging/cache.h"
#include "imaging/warp.h"

namespace img {

namespace {

// 1/255 as a 32-bit float (0.003921568859368563): both the alpha rules and
// the mixing use this value, not the exact quotient.
constexpr float kInv255 = 1.0f / 255.0f;

// A colour tap in one vector register, blue, green, red, alpha in lanes
// 0 to 3. Each lane takes the float operations of the rule for one
// channel, in the rule's order, so the vector form changes no bit. (SSE2
// is part of every x86-64 processor.)
struct vec4 {
  __m128 v;
};

// Mode -1: the underlay, bytes as they are. Modes 0 to 3: the overlay's
// alpha rules, applied to each tap before weighting. A tap leaves
// premultiplied, with alpha on the scale 0 to 255. The rule's product of a
// colour byte and alpha is exact in float (it stays below 2^24), so it
// equals the integer product converted; then it is scaled by 1/255.
template <int Mode>
class tap_source {
 public:
  using value_type = vec4;
  static constexpr bool kInverted = Mode == 2 || Mode == 3;
  static constexpr bool kStraight = Mode == 0 || Mode == 2;

  explicit tap_source(const image& im) : im_(&im) {}
  uint32_t width() const { return im_->width; }
  uint32_t height() const { return im_->height; }

  static __m128 tap(const uint8_t* p) {
    int32_t word;
    std::memcpy(&word, p, 4);
    const __m128i zero = _mm_setzero_si128();
    const __m128i wide = _mm_unpacklo_epi16(_mm_unpacklo_epi8(_mm_cvtsi32_si128(word), zero), zero);
    __m128 t = _mm_cvtepi32_ps(wide);
    if constexpr (Mode < 0) {
      return t;
    } else {
      __m128 a = _mm_shuffle_ps(t, t, 0xFF);
      if constexpr (kInverted) a = _mm_sub_ps(_mm_set1_ps(255.0f), a);
      if constexpr (kStraight) t = _mm_mul_ps(_mm_mul_ps(t, a), _mm_set1_ps(kInv255));
      const __m128 colour = _mm_castsi128_ps(_mm_set_epi32(0, -1, -1, -1));
      return _mm_or_ps(_mm_and_ps(colour, t), _mm_andnot_ps(colour, a));
    }
  }
  void read(uint32_t x, uint32_t y, vec4& out) const { out.v = tap(im_->rows[y] + 4 * size_t(x)); }
  // Taps (x-1, y-1), (x, y-1), (x-1, y), (x, y), summed by weight in this order.
  void blend(uint32_t x, uint32_t y, const float w[4], vec4& out) const {
    const uint8_t* above = im_->rows[y - 1] + 4 * size_t(x - 1);
    const uint8_t* below = im_->rows[y] + 4 * size_t(x - 1);
    __m128 r = _mm_mul_ps(_mm_set1_ps(w[0]), tap(above));
    r = _mm_add_ps(r, _mm_mul_ps(_mm_set1_ps(w[1]), tap(above + 4)));
    r = _mm_add_ps(r, _mm_mul_ps(_mm_set1_ps(w[2]), tap(below)));
    out.v = _mm_add_ps(r, _mm_mul_ps(_mm_set1_ps(w[3]), tap(below + 4)));
  }

 private:
  const image* im_;
};

// A layer that is not shown: it never samples and never moves.
struct no_layer {
  void start_row(int32_t, int32_t) {}
  void next() {}
  template <class V>
  bool sample(V&) const {
    return false;
  }
};

template <class S>
constexpr bool kShown = !std::is_same_v<S, no_layer>;

// Round half away from zero, clamp above 255, and keep the low byte of
// what lies below 0: values under 0 wrap, as they always have.
inline uint8_t to_byte(double v) {
  const double r = round_half_away(v);
  if (r > 255) return 255;
  return uint8_t(int64_t(r));
}

// The same for the four channels of a pixel, held as two double pairs.
// Truncation to 32-bit integers is exact here: whatever reaches 255.5 is
// clamped first, and nothing a composite makes comes near -2^31.
inline void store_pixel(uint8_t* out, __m128d lo, __m128d hi) {
  const __m128d half = _mm_set1_pd(0.5), sign = _mm_set1_pd(-0.0);
  const __m128d high = _mm_set1_pd(255.5), low = _mm_set1_pd(-2147483000.0);
  // v + 0.5 or v - 0.5 (the sign of v moved onto 0.5; -0.0 takes +0.5 as
  // 0.0 >= 0 does), then toward zero.
  const auto round = [&](__m128d v) {
    const __m128d negative = _mm_cmplt_pd(v, _mm_setzero_pd());
    const __m128d offset = _mm_or_pd(half, _mm_and_pd(negative, sign));
    v = _mm_min_pd(_mm_max_pd(v, low), high);
    return _mm_cvttpd_epi32(_mm_add_pd(v, offset));
  };
  __m128i i = _mm_unpacklo_epi64(round(lo), round(hi));
  const __m128i top = _mm_set1_epi32(255);
  const __m128i over = _mm_cmpgt_epi32(i, top);
  i = _mm_or_si128(_mm_andnot_si128(over, i), _mm_and_si128(over, top));
  i = _mm_and_si128(i, top);  // the low byte of what lies below 0
  i = _mm_packs_epi32(i, i);
  i = _mm_packus_epi16(i, i);
  const int32_t word = _mm_cvtsi128_si32(i);
  std::memcpy(out, &word, 4);
}

struct mix_constants {
  float background[4];
  double tint[4];
  double overlay_opacity;
  float mask_opacity;
};

// One member of the family: every layer's sampler, the alpha rule (inside
// Over's source), the opacity form and the mask rule are fixed here, so the
// inner loop carries no test of any of them.
// Flattened: the samplers' calls are inlined into the loop, which the
// compiler does not do of itself for the larger ones.
template <bool kOpacityOne, bool kInverse, class Under, class Over, class Mask>
[[gnu::flatten]] void composite_rows(image& dst,
                                     uint32_t width,
                                     uint32_t height,
                                     const mix_constants& k,
                                     Under under,
                                     Over over,
                                     Mask mask) {
  const double op = k.overlay_opacity;
  const double k255 = double(kInv255);
  const __m128 background = _mm_loadu_ps(k.background);
  const __m128d op2 = _mm_set1_pd(op);
  const __m128d tint_lo = _mm_loadu_pd(k.tint), tint_hi = _mm_loadu_pd(k.tint + 2);
  // The mask value lives across pixels and rows: a failed sample leaves the
  // value of the pixel before (already multiplied by the opacity if it was
  // tinted). The non-inverse tint relies on that carrying-over.
  float m = 0.0f;
  for (uint32_t y = 0; y < height; ++y) {
    under.start_row(0, int32_t(y));
    over.start_row(0, int32_t(y));
    mask.start_row(0, int32_t(y));
    uint8_t* out = dst.rows[y];
    for (uint32_t x = 0; x < width; ++x, out += 4) {
      bool tinted = false;
      if constexpr (kShown<Mask>) {
        const bool ok = mask.sample(m);
        if constexpr (!kInverse) {
          if (m > 0.01) {
            m = m * k.mask_opacity;
            tinted = true;
          }
        } else if (!ok) {
          m = k.mask_opacity;
          tinted = true;
        } else if (m < 0.99) {
          m = float((1.0 - double(m)) * double(k.mask_opacity));
          tinted = true;
        }
      }

      // The four channels as two double pairs: every step below is the
      // same double operation on each channel.
      __m128d lo, hi;
      bool mixed = false;
      if constexpr (kShown<Over>) {
        vec4 o;
        if (over.sample(o)) {
          vec4 u{background};
          under.sample(u);
          const double a = _mm_cvtss_f32(_mm_shuffle_ps(o.v, o.v, 0xFF));
          const __m128d w = _mm_set1_pd(kOpacityOne ? (255.0 - a) * k255 : (255.0 - a * op) * k255);
          const __m128d ulo = _mm_cvtps_pd(u.v), uhi = _mm_cvtps_pd(_mm_movehl_ps(u.v, u.v));
          __m128d olo = _mm_cvtps_pd(o.v), ohi = _mm_cvtps_pd(_mm_movehl_ps(o.v, o.v));
          if constexpr (!kOpacityOne) {
            olo = _mm_mul_pd(olo, op2);
            ohi = _mm_mul_pd(ohi, op2);
          }
          lo = _mm_add_pd(_mm_mul_pd(ulo, w), olo);
          hi = _mm_add_pd(_mm_mul_pd(uhi, w), ohi);
          mixed = true;
        }
      }
      if (!mixed) {
        // The underlay as it stands: bytes stay bytes through the rounding
        // below, and a bilinear sum is rounded as every result is.
        vec4 u{background};
        under.sample(u);
        lo = _mm_cvtps_pd(u.v);
        hi = _mm_cvtps_pd(_mm_movehl_ps(u.v, u.v));
      }
      if (tinted) {
        const double mm = m;
        const __m128d v = _mm_set1_pd(1.0 - mm), m2 = _mm_set1_pd(mm);
        lo = _mm_add_pd(_mm_mul_pd(lo, v), _mm_mul_pd(tint_lo, m2));
        hi = _mm_add_pd(_mm_mul_pd(hi, v), _mm_mul_pd(tint_hi, m2));
      }
      store_pixel(out, lo, hi);

      under.next();
      over.next();
      mask.next();
    }
  }
}

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

template <class Under, class Over, class Mask>
void pick_forms(
    image& dst, const MergeDetails& d, const mix_constants& k, Under under, Over over, Mask mask) {
  const bool one = !kShown<Over> || d.overlay_opacity == 1.0f;
  const bool inverse = kShown<Mask> && d.inverse_mask;
  if (one) {
    if (inverse)
      composite_rows<true, true>(dst, d.width, d.height, k, under, over, mask);
    else
      composite_rows<true, false>(dst, d.width, d.height, k, under, over, mask);
  } else if constexpr (kShown<Over>) {
    if (inverse)
      composite_rows<false, true>(dst, d.width, d.height, k, under, over, mask);
    else
      composite_rows<false, false>(dst, d.width, d.height, k, under, over, mask);
  }
}

template <class F>
void with_underlay(const MergeDetails& d, const MergeLayers& layers, F&& f) {
  if (!d.show_underlay || !layers.underlay) return f(no_layer{});
  with_sampler(tap_source<-1>(*layers.underlay), d.underlay_transform, d.interpolation, f);
}

template <int Mode, class F>
void with_overlay_rule(const MergeDetails& d, const image& overlay, F&& f) {
  with_sampler(tap_source<Mode>(overlay), d.overlay_transform, d.interpolation, f);
}

template <class F>
void with_overlay(const MergeDetails& d, const MergeLayers& layers, F&& f) {
  if (!d.show_overlay || !layers.overlay) return f(no_layer{});
  switch (d.alpha_interpretation) {
    case 1:
      return with_overlay_rule<1>(d, *layers.overlay, f);
    case 2:
      return with_overlay_rule<2>(d, *layers.overlay, f);
    case 3:
      return with_overlay_rule<3>(d, *layers.overlay, f);
    default:
      return with_overlay_rule<0>(d, *layers.overlay, f);
  }
}

template <class F>
void with_mask(const MergeDetails& d, const MergeLayers& layers, F&& f) {
  if (!d.show_mask || !layers.mask) return f(no_layer{});
  with_sampler(mask_source(*layers.mask), d.mask_transform, d.interpolation, f);
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

void merge(image& dst, const MergeDetails& d, const MergeLayers& layers) {
  mix_constants k;
  for (int c = 0; c < 4; ++c) {
    k.background[c] = d.background[c];
    k.tint[c] = d.mask_color[c];
  }
  k.overlay_opacity = d.overlay_opacity;
  k.mask_opacity = d.mask_opacity;

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
  with_underlay(d, layers, [&](auto under) {
    with_overlay(d, layers, [&](auto over) {
      with_mask(d, layers,
                [&](auto mask_sampler) { pick_forms(dst, d, k, under, over, mask_sampler); });
    });
  });
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
