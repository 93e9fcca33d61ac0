// SPDX-License-Identifier: GPL-3.0-or-later
#include "imaging/merge.h"

#include <cstring>
#include <type_traits>

#include "imaging/cache.h"
#include "imaging/warp.h"

namespace img {

namespace {

// 1/255 as a 32-bit float (0.003921568859368563): both the alpha rules and
// the mixing use this value, not the exact quotient.
constexpr float kInv255 = 1.0f / 255.0f;

// The overlay's alpha rules, applied to each tap before weighting. A tap
// leaves premultiplied, with alpha on the scale 0 to 255. The product of a
// colour byte and alpha is taken in integers, then converted and scaled.
template <int Mode>
struct alpha_tap {
  static constexpr bool kInverted = Mode == 2 || Mode == 3;
  static constexpr bool kStraight = Mode == 0 || Mode == 2;
  void operator()(const uint8_t* p, float out[4]) const {
    const int a = kInverted ? 255 - p[3] : p[3];
    for (int c = 0; c < 3; ++c) out[c] = kStraight ? float(int(p[c]) * a) * kInv255 : float(p[c]);
    out[3] = float(a);
  }
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

struct mix_constants {
  float background[4];
  double tint[4];
  double overlay_opacity;
  float mask_opacity;
};

// One member of the family: every layer's sampler, the alpha rule (inside
// Over's source), the opacity form and the mask rule are fixed here, so the
// inner loop carries no test of any of them.
template <bool kOpacityOne, bool kInverse, class Under, class Over, class Mask>
void composite_rows(image& dst,
                    uint32_t width,
                    uint32_t height,
                    const mix_constants& k,
                    Under under,
                    Over over,
                    Mask mask) {
  const double op = k.overlay_opacity;
  const double k255 = double(kInv255);
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

      double r[4];
      bool mixed = false;
      if constexpr (kShown<Over>) {
        colour_value o;
        if (over.sample(o)) {
          colour_value u;
          if (!under.sample(u)) std::memcpy(u.c, k.background, sizeof u.c);
          const double a = o.c[3];
          const double w = kOpacityOne ? (255.0 - a) * k255 : (255.0 - a * op) * k255;
          for (int c = 0; c < 3; ++c)
            r[c] = double(u.c[c]) * w + (kOpacityOne ? double(o.c[c]) : double(o.c[c]) * op);
          r[3] = double(u.c[3]) * w + (kOpacityOne ? a : a * op);
          mixed = true;
        }
      }
      if (!mixed) {
        colour_value u;
        if (!under.sample(u)) std::memcpy(u.c, k.background, sizeof u.c);
        for (int c = 0; c < 4; ++c) r[c] = u.c[c];
      }
      if (tinted) {
        const double mm = m, v = 1.0 - mm;
        for (int c = 0; c < 4; ++c) r[c] = r[c] * v + k.tint[c] * mm;
      }
      for (int c = 0; c < 4; ++c) out[c] = to_byte(r[c]);

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
  with_sampler(colour_source<>(*layers.underlay), d.underlay_transform, d.interpolation, f);
}

template <int Mode, class F>
void with_overlay_rule(const MergeDetails& d, const image& overlay, F&& f) {
  with_sampler(colour_source<alpha_tap<Mode>>(overlay), d.overlay_transform, d.interpolation, f);
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
