// SPDX-License-Identifier: GPL-3.0-or-later
#include "imaging/merge.h"

#include <cmath>
#include <cstring>
#include <map>
#include <random>
#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "imaging/cache.h"
#include "imaging/warp.h"

namespace {

using img::MergeDetails;
using types::affine;

// --- A reference written from the compositing rules, pixel by pixel, with
// every choice made at run time. ---------------------------------------------

constexpr float kK = 0.003921568859368563f;

struct RefSampler {
  enum Rule { Offset, Nearest, Bilinear } rule = Offset;
  affine inverse;
  int32_t sx = 0, sy = 0;  // the offset rule's shift
  img::source_position pos{affine(), 0.0};

  RefSampler(const affine& t, uint32_t interpolation) {
    const double X = std::trunc(t.x + 0.5), Y = std::trunc(t.y + 0.5);
    const double e = 2.220446049250313e-15;
    if (std::abs(t.xx - 1) <= e && std::abs(t.xy) <= e && std::abs(t.yx) <= e &&
        std::abs(t.yy - 1) <= e && std::abs(t.x - X) <= e && std::abs(t.y - Y) <= e) {
      sx = int32_t(X);
      sy = int32_t(Y);
      return;
    }
    rule = interpolation == 1 ? Bilinear : Nearest;
    pos = img::source_position(t.inverse(), rule == Bilinear ? 0.5 : 0.0);
  }
  static double Round(double v) { return std::trunc(v >= 0 ? v + 0.5 : v - 0.5); }

  // Calls tap(x, y, weight) for each tap; false when the sample fails.
  template <class Tap>
  bool Sample(int32_t x, int32_t y, uint32_t w, uint32_t h, Tap tap) const {
    if (rule == Offset) {
      const int64_t u = int64_t(x) - sx, v = int64_t(y) - sy;
      if (u < 0 || v < 0 || u >= w || v >= h) return false;
      tap(uint32_t(u), uint32_t(v), 1.0f);
      return true;
    }
    const double ix = Round(pos.x()), iy = Round(pos.y());
    // Written so that NaN (a singular transform) fails.
    if (rule == Nearest) {
      if (!(ix >= 0 && iy >= 0 && ix < w && iy < h)) return false;
      tap(uint32_t(ix), uint32_t(iy), 1.0f);
      return true;
    }
    if (!(ix >= 1 && iy >= 1 && ix < w && iy < h)) return false;
    const double fx = double(pos.x()) + 0.5 - ix, fy = double(pos.y()) + 0.5 - iy;
    tap(uint32_t(ix - 1), uint32_t(iy - 1), float((1 - fx) * (1 - fy)));
    tap(uint32_t(ix), uint32_t(iy - 1), float(fx * (1 - fy)));
    tap(uint32_t(ix - 1), uint32_t(iy), float((1 - fx) * fy));
    tap(uint32_t(ix), uint32_t(iy), float(fx * fy));
    return true;
  }
};

// Taps summed in float, in tap order; overlays premultiplied by their rule.
bool ColourSample(const RefSampler& s,
                  int32_t x,
                  int32_t y,
                  const img::image& im,
                  int alpha_mode,  // -1: the underlay (bytes as they are)
                  float out[4]) {
  float sum[4] = {0, 0, 0, 0};
  bool first = true;
  const bool ok = s.Sample(x, y, im.width, im.height, [&](uint32_t u, uint32_t v, float w) {
    const uint8_t* p = im.rows[v] + 4 * u;
    float t[4];
    int a = p[3];
    if (alpha_mode >= 2) a = 255 - a;
    for (int c = 0; c < 3; ++c)
      t[c] = (alpha_mode == 0 || alpha_mode == 2) ? float(p[c] * a) * kK : float(p[c]);
    t[3] = alpha_mode < 0 ? float(p[3]) : float(a);
    for (int c = 0; c < 4; ++c) {
      // A lone tap is the value itself, not 1.0 times it plus zeros.
      sum[c] = first && s.rule != RefSampler::Bilinear ? t[c] : sum[c] + w * t[c];
    }
    first = false;
  });
  if (ok) std::memcpy(out, sum, sizeof sum);
  return ok;
}

uint8_t Byte(double v) {
  const double r = RefSampler::Round(v);
  if (r > 255) return 255;
  return uint8_t(int64_t(r));
}

img::image Reference(const MergeDetails& d, const img::MergeLayers& layers) {
  img::image out(d.width, d.height);
  RefSampler us(d.underlay_transform, d.interpolation), os(d.overlay_transform, d.interpolation),
      ms(d.mask_transform, d.interpolation);
  float m = 0;
  for (uint32_t y = 0; y < d.height; ++y) {
    us.pos.start_row(0, int32_t(y));
    os.pos.start_row(0, int32_t(y));
    ms.pos.start_row(0, int32_t(y));
    for (uint32_t x = 0; x < d.width; ++x) {
      bool tint = false;
      if (d.show_mask) {
        float v = 0;
        const bool ok = ms.Sample(int32_t(x), int32_t(y), layers.mask->width, layers.mask->height,
                                  [&](uint32_t u, uint32_t vv, float w) {
                                    if (layers.mask->rows[vv][u >> 3] & (0x80 >> (u & 7))) v += w;
                                  });
        if (ok) m = v;
        if (!d.inverse_mask) {
          if (m > 0.01) {
            m = m * d.mask_opacity;
            tint = true;
          }
        } else if (!ok) {
          m = d.mask_opacity;
          tint = true;
        } else if (m < 0.99) {
          m = float((1.0 - m) * d.mask_opacity);
          tint = true;
        }
      }
      float u[4], o[4];
      const bool have_u =
          d.show_underlay && ColourSample(us, int32_t(x), int32_t(y), *layers.underlay, -1, u);
      if (!have_u)
        for (int c = 0; c < 4; ++c) u[c] = d.background[c];
      double r[4];
      if (d.show_overlay && ColourSample(os, int32_t(x), int32_t(y), *layers.overlay,
                                         int(d.alpha_interpretation), o)) {
        const double op = d.overlay_opacity;
        const double w = (255 - o[3] * op) * double(kK);
        for (int c = 0; c < 4; ++c) r[c] = u[c] * w + o[c] * op;
      } else {
        for (int c = 0; c < 4; ++c) r[c] = u[c];
      }
      if (tint)
        for (int c = 0; c < 4; ++c) r[c] = r[c] * (1.0 - m) + d.mask_color[c] * double(m);
      for (int c = 0; c < 4; ++c) out.rows[y][4 * x + c] = Byte(r[c]);
      us.pos.next();
      os.pos.next();
      ms.pos.next();
    }
  }
  return out;
}

// Random bytes, with the alpha extremes 0 and 255 and the odd values that
// make straight and premultiplied rules round differently.
img::image Picture(uint32_t w, uint32_t h, unsigned seed) {
  img::image im(w, h);
  std::mt19937 rng(seed);
  const uint8_t alphas[] = {0, 255, 1, 254, 128, 77, 200};
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) {
      uint8_t* p = im.rows[y] + 4 * x;
      for (int c = 0; c < 3; ++c) p[c] = uint8_t(rng());
      p[3] = alphas[rng() % 7];
    }
  return im;
}

img::bitmap<img::bit1> Mask(uint32_t w, uint32_t h) {
  img::bitmap<img::bit1> mask(w, h, 4);
  for (uint32_t y = 0; y < h; ++y) {
    std::memset(mask.rows[y], 0, mask.stride);
    // A ring: set pixels next to clear ones give partial bilinear values.
    for (uint32_t x = 0; x < w; ++x)
      if ((x + y) % 5 != 0 && x > 1) mask.rows[y][x >> 3] |= uint8_t(0x80 >> (x & 7));
  }
  return mask;
}

std::string Diff(const img::image& got, const img::image& want) {
  std::ostringstream s;
  int shown = 0;
  for (uint32_t y = 0; y < want.height; ++y)
    for (uint32_t x = 0; x < want.width * 4; ++x)
      if (got.rows[y][x] != want.rows[y][x] && shown++ < 4)
        s << " (" << x / 4 << "," << y << ")[" << x % 4 << "] got " << int(got.rows[y][x])
          << " want " << int(want.rows[y][x]) << ";";
  return s.str();
}

enum Placement { Hidden, Shifted, Moved };

affine Place(Placement p, int layer) {
  if (p == Shifted) return affine::translation(1 + layer, 2);
  // Rotation and scale with fractions: every rounding of the position shows.
  const double a = 0.3 + 0.1 * layer;
  affine t{-1.25 + layer,       0.6,         1.07 * std::cos(a),
           -0.93 * std::sin(a), std::sin(a), 0.95 * std::cos(a)};
  return t;
}

// Every member of the family against the reference: alpha mode x underlay
// form x overlay rule x opacity x mask rule x inverse, nearest and bilinear.
TEST(Merge, EveryLayerCombinationMatchesTheReference) {
  const uint32_t W = 23, H = 11;
  const img::image underlay = Picture(W, H, 1), overlay = Picture(17, 9, 2);
  const img::bitmap<img::bit1> mask = Mask(19, 10);
  int checked = 0;
  for (uint32_t interp : {0u, 1u})
    for (Placement under : {Hidden, Shifted, Moved})
      for (Placement over : {Hidden, Shifted, Moved})
        for (Placement mk : {Hidden, Shifted, Moved})
          for (bool inverse : {false, true})
            for (uint32_t alpha : {0u, 1u, 2u, 3u})
              for (float opacity : {1.0f, 0.6f}) {
                if ((mk == Hidden && inverse) || (over == Hidden && (alpha || opacity != 1.0f)))
                  continue;
                MergeDetails d;
                d.width = W;
                d.height = H;
                d.interpolation = interp;
                const uint8_t bg[4] = {10, 200, 31, 129}, tint[4] = {3, 250, 128, 77};
                std::memcpy(d.background, bg, 4);
                std::memcpy(d.mask_color, tint, 4);
                d.mask_opacity = 0.7f;
                d.overlay_opacity = opacity;
                d.alpha_interpretation = alpha;
                d.inverse_mask = inverse;
                d.show_underlay = under != Hidden;
                d.show_overlay = over != Hidden;
                d.show_mask = mk != Hidden;
                d.underlay_transform = Place(under, 0);
                d.overlay_transform = Place(over, 1);
                d.mask_transform = Place(mk, 2);
                const img::MergeLayers layers{&underlay, &overlay, &mask};
                img::image got(W, H);
                img::merge(got, d, layers);
                const img::image want = Reference(d, layers);
                SCOPED_TRACE(testing::Message()
                             << "interp " << interp << " under " << under << " over " << over
                             << " mask " << mk << " inverse " << inverse << " alpha " << alpha
                             << " opacity " << opacity);
                EXPECT_EQ(Diff(got, want), "");
                ++checked;
              }
  EXPECT_EQ(checked, 30 + 480);
}

// Both instruction-set builds against the reference on random requests:
// odd widths, heights that leave a short last block of rows, ties at .5,
// negative whole shifts (which take the general way), positions far
// outside the source, and singular transforms.
TEST(Merge, BothBuildsMatchTheReferenceOnRandomRequests) {
  std::mt19937 rng(7);
  const auto pick = [&](std::initializer_list<double> v) { return v.begin()[rng() % v.size()]; };
  const auto motion = [&] {
    const double shift[2] = {pick({0, 1, -2, 0.5, -0.5, 2.25, 1e9}), pick({0, 3, -1, 1.5, -7.75})};
    switch (rng() % 4) {
      case 0:
        return affine::translation(shift[0], shift[1]);
      case 1:
        return affine{shift[0], shift[1], 0, 0, 0, 0};  // singular
      default: {
        const double a = pick({0.01, -0.4, 1.3}), s = pick({1.0, 0.5, 1.7, 3.0});
        return affine{shift[0],     shift[1],        s * std::cos(a),
                      -std::sin(a), s * std::sin(a), std::cos(a)};
      }
    }
  };
  for (int i = 0; i < 150; ++i) {
    const uint32_t W = 1 + rng() % 37, H = 1 + rng() % 9;
    const img::image underlay = Picture(W + rng() % 3, H, rng()),
                     overlay = Picture(1 + rng() % 29, 1 + rng() % 12, rng());
    const img::bitmap<img::bit1> mask = Mask(1 + rng() % 41, 1 + rng() % 11);
    MergeDetails d;
    d.width = W;
    d.height = H;
    d.interpolation = rng() % 3;
    d.show_underlay = rng() % 4 != 0;
    d.show_overlay = rng() % 4 != 0;
    d.show_mask = rng() % 3 != 0;
    d.inverse_mask = rng() % 2;
    d.alpha_interpretation = rng() % 4;
    d.overlay_opacity = float(pick({1.0, 0.6, 0.0}));
    d.mask_opacity = float(pick({0.7, 1.0}));
    for (int c = 0; c < 4; ++c) d.background[c] = d.mask_color[c] = uint8_t(rng());
    d.underlay_transform = motion();
    d.overlay_transform = motion();
    d.mask_transform = motion();
    const img::MergeLayers layers{&underlay, &overlay, &mask};
    const img::image want = Reference(d, layers);
    for (bool baseline : {false, true}) {
      img::limit_merge_to_baseline(baseline);
      img::image got(W, H);
      img::merge(got, d, layers);
      EXPECT_EQ(Diff(got, want), "") << "request " << i << (baseline ? " baseline" : "");
    }
    img::limit_merge_to_baseline(false);
  }
}

// Hand-computed pixels that the reference must agree with, so the two cannot
// share a wrong reading of the rules.
TEST(Merge, TintCarriesTheMaskValueOverFailedSamples) {
  // Mask 4 x 1, all set, shifted right by 2 in an 8 x 1 frame: columns 2-5
  // read it, 6 and 7 fail and carry the multiplied value on, squaring it.
  img::bitmap<img::bit1> mask(4, 1, 4);
  mask.rows[0][0] = 0xF0;
  img::image under(8, 1);
  for (int x = 0; x < 8; ++x) std::memset(under.rows[0] + 4 * x, 100, 4);
  MergeDetails d;
  d.width = 8;
  d.height = 1;
  d.show_overlay = false;
  d.underlay_transform = affine::translation(0, 0);
  d.mask_transform = affine::translation(2, 0);
  d.mask_opacity = 0.5f;
  const uint8_t tint[4] = {200, 200, 200, 200};
  std::memcpy(d.mask_color, tint, 4);
  img::image got(8, 1);
  img::merge(got, d, {&under, nullptr, &mask});
  const int want[8] = {100, 100, 150, 150, 150, 150, 125, 113};  // 112.5 rounds up
  for (int x = 0; x < 8; ++x) EXPECT_EQ(got.rows[0][4 * x], want[x]) << "x " << x;

  // Inverse: failed samples tint at the plain opacity, set bits not at all.
  d.inverse_mask = true;
  img::merge(got, d, {&under, nullptr, &mask});
  const int inv[8] = {150, 150, 100, 100, 100, 100, 150, 150};
  for (int x = 0; x < 8; ++x) EXPECT_EQ(got.rows[0][4 * x], inv[x]) << "x " << x;
}

TEST(Merge, ValuesBelowZeroKeepTheirLowByteAndAbove255Clamp) {
  img::image under(1, 1), over(1, 1);
  const uint8_t u[4] = {250, 250, 0, 0}, o[4] = {0, 255, 255, 255};
  std::memcpy(under.rows[0], u, 4);
  std::memcpy(over.rows[0], o, 4);
  MergeDetails d;
  d.width = d.height = 1;
  d.show_mask = false;
  d.alpha_interpretation = 1;  // premultiplied
  d.overlay_opacity = 1.5f;    // w = (255 - 382.5) / 255 = -0.5
  img::image got(1, 1);
  img::merge(got, d, {&under, &over, nullptr});
  // blue: 250 * -0.5 + 0 = -125 -> -125 wraps to 131; green: -125 + 382.5 =
  // 257.5 -> 255; red: 382.5 -> 255; alpha: 0 + 382.5 -> 255.
  EXPECT_EQ(got.rows[0][0], 131);
  EXPECT_EQ(got.rows[0][1], 255);
  EXPECT_EQ(got.rows[0][2], 255);
  EXPECT_EQ(got.rows[0][3], 255);
  EXPECT_EQ(Diff(got, Reference(d, {&under, &over, nullptr})), "");
}

// --- Requests as keys. --------------------------------------------------------

TEST(MergeDetails, EqualityLooksOnlyAtWhatShows) {
  const std::string frame = "f", other = "g";
  const img::bitmap<img::bit1> m1(4, 4), m2(4, 4);
  MergeDetails base;
  base.width = 8;
  base.height = 6;
  base.underlay_file = &frame;
  base.overlay_file = "o";
  base.mask = &m1;
  struct Case {
    const char* name;
    void (*change)(MergeDetails&, const std::string&, const img::bitmap<img::bit1>&);
    bool equal;
  };
  const Case cases[] = {
      {"same", [](MergeDetails&, const std::string&, const img::bitmap<img::bit1>&) {}, true},
      {"underlay shown", [](MergeDetails& d, auto&, auto&) { d.show_underlay = false; }, false},
      {"overlay shown", [](MergeDetails& d, auto&, auto&) { d.show_overlay = false; }, false},
      {"mask shown", [](MergeDetails& d, auto&, auto&) { d.show_mask = false; }, false},
      {"inverse", [](MergeDetails& d, auto&, auto&) { d.inverse_mask = true; }, false},
      {"mask colour", [](MergeDetails& d, auto&, auto&) { d.mask_color[3] = 1; }, false},
      {"mask opacity", [](MergeDetails& d, auto&, auto&) { d.mask_opacity = 0.25f; }, false},
      {"interpolation", [](MergeDetails& d, auto&, auto&) { d.interpolation = 0; }, false},
      {"overlay opacity", [](MergeDetails& d, auto&, auto&) { d.overlay_opacity = 0.5f; }, false},
      {"background under an unmoved underlay",
       [](MergeDetails& d, auto&, auto&) { d.background[0] = 9; }, true},
      {"size", [](MergeDetails& d, auto&, auto&) { d.height = 7; }, false},
      {"underlay file by pointer",
       [](MergeDetails& d, const std::string& o, auto&) { d.underlay_file = &o; }, false},
      {"underlay moved", [](MergeDetails& d, auto&, auto&) { d.underlay_transform.x = 3; }, false},
      {"overlay file", [](MergeDetails& d, auto&, auto&) { d.overlay_file = "p"; }, false},
      {"overlay transform", [](MergeDetails& d, auto&, auto&) { d.overlay_transform.yy = 2; },
       false},
      {"alpha", [](MergeDetails& d, auto&, auto&) { d.alpha_interpretation = 3; }, false},
      {"mask by pointer",
       [](MergeDetails& d, auto&, const img::bitmap<img::bit1>& m) { d.mask = &m; }, false},
      {"mask transform", [](MergeDetails& d, auto&, auto&) { d.mask_transform.xy = 0.5; }, false},
  };
  for (const Case& c : cases) {
    MergeDetails d = base;
    c.change(d, other, m2);
    EXPECT_EQ(d == base, c.equal) << c.name;
  }

  // Hidden layers' fields do not count; the background counts only where
  // it can be seen: with no underlay, or under a moved one, with the
  // interpolation that moved it.
  MergeDetails plain = base;
  plain.show_overlay = plain.show_mask = false;
  MergeDetails d = plain;
  d.overlay_file = "x";
  d.mask = &m2;
  d.overlay_opacity = 0.1f;
  d.interpolation = 0;
  EXPECT_TRUE(d == plain);
  d = plain;
  d.underlay_transform.x = 2;
  MergeDetails e = d;
  e.background[2] = 1;
  EXPECT_FALSE(d == e);
  e = d;
  e.interpolation = 0;
  EXPECT_FALSE(d == e);
  d = plain;
  d.show_underlay = false;
  e = d;
  e.underlay_file = &other;
  e.underlay_transform.x = 5;
  EXPECT_TRUE(d == e);
  e.background[3] = 1;
  EXPECT_FALSE(d == e);
  // NaN defeats the cache: a request unequal to itself.
  d = base;
  d.overlay_transform.x = std::nan("");
  EXPECT_FALSE(d == d);
  // The plain file: the underlay alone, moved by exactly (0, 0).
  EXPECT_TRUE(img::is_plain_file(plain));
  d = plain;
  d.underlay_transform.x = 1e-20;  // within the integer test's tolerance
  EXPECT_TRUE(img::is_plain_file(d));
  d.underlay_transform.x = 1;
  EXPECT_FALSE(img::is_plain_file(d));
  EXPECT_FALSE(img::is_plain_file(base));
}

// --- Through the cache. ---------------------------------------------------------

class Frames {
 public:
  std::map<std::string, img::image> files;
  int decodes = 0;
  img::Cache::FileLoader loader() {
    return [this](const std::string& name, img::image& out) {
      ++decodes;
      const auto it = files.find(name);
      if (it == files.end()) throw std::runtime_error("could not read file: " + name);
      out = it->second;
    };
  }
};

TEST(MakeComposite, CompositesOnceAndPlainFilesAreTheFilesEntry) {
  Frames frames;
  const std::string u = "u.bmp";
  frames.files[u] = Picture(6, 4, 3);
  frames.files["o.bmp"] = Picture(6, 4, 4);
  img::Cache cache(frames.loader(), 1 << 20);
  MergeDetails d;
  d.width = 6;
  d.height = 4;
  d.underlay_file = &u;
  d.overlay_file = "o.bmp";
  d.show_mask = false;

  img::CacheEntry* a = cache.acquire_merge(d, true, nullptr);
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(Diff(a->image, Reference(d, {&frames.files[u], &frames.files["o.bmp"], nullptr})), "");
  EXPECT_TRUE(cache.contains(d));
  img::CacheEntry* b = cache.acquire_merge(d, true, nullptr);
  EXPECT_EQ(a, b);
  cache.release(a);
  cache.release(b);

  MergeDetails plain = d;
  plain.show_overlay = false;
  img::CacheEntry* file = cache.acquire_file(u, true);
  img::CacheEntry* same = cache.acquire_merge(plain, true, nullptr);
  EXPECT_EQ(file, same);
  EXPECT_EQ(cache.entry_count(), 3u);  // the two frames and one composite
  cache.release(file);
  cache.release(same);

  // A cancelled composite makes nothing.
  std::atomic<bool> cancel{true};
  d.overlay_opacity = 0.5f;
  EXPECT_EQ(cache.acquire_merge(d, true, &cancel), nullptr);
  EXPECT_FALSE(cache.contains(d));
  EXPECT_EQ(cache.entry_count(), 3u);

  // Composites of a mask leave when it is edited; others stay.
  img::bitmap<img::bit1> mask(6, 4);
  d.show_mask = true;
  d.mask = &mask;
  cache.release(cache.acquire_merge(d, true, nullptr));
  EXPECT_EQ(cache.entry_count(), 4u);
  cache.discard_merges_of_mask(&mask);
  EXPECT_EQ(cache.entry_count(), 3u);
  EXPECT_FALSE(cache.contains(d));
}

TEST(MakeComposite, AFrameOfTheWrongSizeNamesFileAndSizes) {
  Frames frames;
  const std::string u = "shot/f0007.tga";
  frames.files[u] = Picture(5, 4, 3);
  img::Cache cache(frames.loader(), 1 << 20);
  MergeDetails d;
  d.width = 6;
  d.height = 4;
  d.underlay_file = &u;
  d.show_overlay = d.show_mask = false;
  d.underlay_transform.x = 1;  // not a plain file
  EXPECT_THAT([&] { cache.acquire_merge(d, true, nullptr); },
              testing::ThrowsMessage<img::BadImageDim>(
                  "Bad size of image shot/f0007.tga - 5x4, expected - 6x4"));
  // Nothing half-made stays behind, and the next request tries again.
  EXPECT_EQ(cache.entry_count(), 1u);
  frames.files[u] = Picture(6, 4, 3);
  cache.purge();
  img::CacheEntry* e = cache.acquire_merge(d, true, nullptr);
  EXPECT_NE(e, nullptr);
  cache.release(e);
}

TEST(TintArea, CopiesWhereTheBitEqualsInverseAndTintsElsewhere) {
  img::image source = Picture(6, 3, 9), target(3, 2);
  img::bitmap<img::bit1> mask(6, 3);
  for (uint8_t* row : mask.rows) row[0] = 0xA8;  // 1 0 1 0 1 0
  const uint8_t colour[4] = {0, 255, 0, 255};
  for (bool inverse : {false, true}) {
    img::tint_area(target, source, mask, 2, 1, inverse, colour, 0.25f);
    for (uint32_t y = 0; y < 2; ++y)
      for (uint32_t x = 0; x < 3; ++x) {
        const uint8_t* s = source.rows[y + 1] + 4 * (x + 2);
        const bool bit = (x + 2) % 2 == 0;
        for (int c = 0; c < 4; ++c) {
          const double v = s[c] * 0.75 + colour[c] * 0.25;
          const int want = bit == inverse ? s[c] : int(std::trunc(v + 0.5));
          EXPECT_EQ(target.rows[y][4 * x + c], want) << x << "," << y << " inverse " << inverse;
        }
      }
  }
}

}  // namespace
