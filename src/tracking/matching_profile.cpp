// SPDX-License-Identifier: GPL-3.0-or-later
// Profile building. The raw scan is the tracker's hottest loop: every mask
// pixel is compared with (2Q+1) squared positions. Results must equal the
// plain pixel-by-pixel scan bit for bit.
//
// Two routes give them. The byte route (profile_kernels.h) serves the
// tracker's own case, byte-valued frames with the pixel's colour and the
// plain metric: its sums are exact integers, so it walks segment by segment
// and sums in any order. Every other case takes the double scan below: it
// runs on planar copies of the second picture (one contiguous float run per
// channel, so that a window row is one linear walk with no branch), with the
// metric and the colour source chosen once by template, and every profile
// cell receives its terms in the same order as the plain scan (pixels in row
// order), each computed the same way.
#include "tracking/matching_profile.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <thread>

#include "tracking/profile_kernels.h"

namespace tracking {

namespace {

int32_t RoundHalfAway(double v) {
  return int32_t(v >= 0 ? v + 0.5 : v - 0.5);
}

void CheckSize(const Segmentation& seg, const img::float_image& im) {
  if (im.width != seg.width || im.height != seg.height)
    throw std::invalid_argument("picture and segmentation differ in size");
}

// The squared colour difference, exact in double for pixel values in the
// single-precision range of the frames.
[[gnu::always_inline]] inline double SquaredDifference(
    double vb, double vg, double vr, float ub, float ug, float ur) {
  const double db = vb - double(ub), dg = vg - double(ug), dr = vr - double(ur);
  return db * db + dg * dg + dr * dr;
}

// The second picture as three planes over the linear pixel index range
// [lo, hi), with zeros past the picture's end: the scan runs past a row's
// end into the next row, and past the last row into this margin.
struct Planes {
  int64_t lo = 0;
  std::vector<float> b, g, r;

  Planes(const img::float_image& im, int64_t lo_index, int64_t hi_index) : lo(lo_index) {
    const int64_t n = std::max<int64_t>(hi_index - lo_index, 0);
    b.assign(size_t(n), 0.0f);
    g.assign(size_t(n), 0.0f);
    r.assign(size_t(n), 0.0f);
    const int64_t w = im.width, end = std::min<int64_t>(hi_index, w * int64_t(im.height));
    for (int64_t k = lo_index; k < end;) {
      const int64_t y = k / w, x0 = k % w, x1 = std::min<int64_t>(w, x0 + (end - k));
      const float* p = img::pixel(im, uint32_t(x0), uint32_t(y));
      for (int64_t x = x0; x < x1; ++x, p += 4, ++k) {
        b[size_t(k - lo)] = p[0];
        g[size_t(k - lo)] = p[1];
        r[size_t(k - lo)] = p[2];
      }
    }
  }
};

using Doubles = double __attribute__((vector_size(32)));
using Floats = float __attribute__((vector_size(16)));
using Lanes = int64_t __attribute__((vector_size(32)));
constexpr int32_t kLanes = 4;

// Four cells at a time, each computed exactly as one cell alone would be.
// The last group may reach past the run: its extra lanes subtract +0.0,
// which leaves any value as it is, and land in cells of this row or in the
// row's padding; their reads stay inside the planes' margin.
template <unsigned Metric>
[[gnu::always_inline]] inline void CompareRun(double* profile,
                                              const float* pb,
                                              const float* pg,
                                              const float* pr,
                                              int32_t n,
                                              double vb,
                                              double vg,
                                              double vr,
                                              double s) {
  static constexpr Lanes kKeep[kLanes + 1] = {
      {0, 0, 0, 0}, {-1, 0, 0, 0}, {-1, -1, 0, 0}, {-1, -1, -1, 0}, {-1, -1, -1, -1}};
  const Doubles b = {vb, vb, vb, vb}, g = {vg, vg, vg, vg}, r = {vr, vr, vr, vr};
  const Doubles sv = {s, s, s, s}, one = {1, 1, 1, 1};
  for (int32_t k = 0; k < n; k += kLanes) {
    Floats ub, ug, ur;
    std::memcpy(&ub, pb + k, sizeof ub);
    std::memcpy(&ug, pg + k, sizeof ug);
    std::memcpy(&ur, pr + k, sizeof ur);
    const Doubles db = b - __builtin_convertvector(ub, Doubles);
    const Doubles dg = g - __builtin_convertvector(ug, Doubles);
    const Doubles dr = r - __builtin_convertvector(ur, Doubles);
    const Doubles e = db * db + dg * dg + dr * dr;
    Doubles m;
    if constexpr (Metric == 0) m = e;
    if constexpr (Metric == 1) {
      const Doubles q = e / sv;
      m = one < q ? one : q;  // std::min(q, 1.0)
    }
    if constexpr (Metric == 2) m = e / (sv + e);
    const Lanes keep = kKeep[std::min(n - k, kLanes)];
    m = Doubles(Lanes(m) & keep);
    Doubles cells;
    std::memcpy(&cells, profile + k, sizeof cells);
    cells -= m;
    std::memcpy(profile + k, &cells, sizeof cells);
  }
}

struct ScanSetup {
  int32_t q = 0, size = 0;
  int64_t w = 0, h = 0;
  // Per segment, its profile with rows of `stride` cells (padding for the
  // last group of lanes); copied into the profile when the scan is done.
  double* const* sums = nullptr;
  int32_t stride = 0;
};

// Inlined into one entry per instruction set, so that the same source is
// vectorised for each; the operations (no fused multiply-add: that is off
// for the whole code base) round alike on every one of them.
template <unsigned Metric, bool MeanColour>
[[gnu::always_inline]] inline void ScanBody(Segmentation& seg,
                                            const img::float_image& first,
                                            const Planes& planes,
                                            const ScanSetup& su,
                                            bool active_only,
                                            int32_t first_segment,
                                            int32_t end_segment) {
  const int32_t q = su.q, size = su.size;
  const int64_t w = su.w, h = su.h;
  for (int64_t y = 0; y < h; ++y) {
    const int32_t* labels = seg.labels.data() + y * w;
    const float* src = img::pixel(first, 0, uint32_t(y));
    for (int64_t x = 0; x < w; ++x) {
      const int32_t l = labels[x];
      if (l < first_segment || l >= end_segment) continue;  // also skips -1
      GridSegment& g = seg.segments[size_t(l)];
      if (active_only && !g.active) continue;
      double vb, vg, vr;
      if constexpr (MeanColour) {
        vb = g.mean[2];
        vg = g.mean[1];
        vr = g.mean[0];
      } else {
        vb = src[4 * x];
        vg = src[4 * x + 1];
        vr = src[4 * x + 2];
      }
      const int64_t bx = int64_t(g.shift_x) - q + x;
      // Columns are compared with the width. (A correction: they were once
      // compared with the height, which left every block right of x = height
      // of a landscape frame out of the matching.)
      if (bx < 0 || bx >= w) continue;
      const int32_t i0 = int32_t(std::max<int64_t>(0, q - x));
      const int32_t i1 = int32_t(std::min<int64_t>(size, w - (x - q)));
      const int32_t n = i1 - i0;
      for (int32_t j = 0; j < size; ++j) {
        const int64_t row = int64_t(g.shift_y) - q + y + j;
        if (row < 0) continue;
        if (row >= h) break;
        if (n <= 0) continue;
        ++g.profile_counts.row(j)[n - 1];  // a run of n cells ends here
        const size_t at = size_t(row * w + bx + i0 - planes.lo);
        CompareRun<Metric>(su.sums[l] + size_t(j) * size_t(su.stride) + i0, planes.b.data() + at,
                           planes.g.data() + at, planes.r.data() + at, n, vb, vg, vr, g.variance);
      }
    }
  }
}

using ScanFn = void (*)(Segmentation&,
                        const img::float_image&,
                        const Planes&,
                        const ScanSetup&,
                        bool,
                        int32_t,
                        int32_t);

template <unsigned Metric, bool MeanColour>
void ScanBaseline(Segmentation& seg,
                  const img::float_image& first,
                  const Planes& planes,
                  const ScanSetup& su,
                  bool active_only,
                  int32_t first_segment,
                  int32_t end_segment) {
  ScanBody<Metric, MeanColour>(seg, first, planes, su, active_only, first_segment, end_segment);
}

template <unsigned Metric, bool MeanColour>
[[gnu::target("avx2")]] void ScanAvx2(Segmentation& seg,
                                      const img::float_image& first,
                                      const Planes& planes,
                                      const ScanSetup& su,
                                      bool active_only,
                                      int32_t first_segment,
                                      int32_t end_segment) {
  ScanBody<Metric, MeanColour>(seg, first, planes, su, active_only, first_segment, end_segment);
}

std::atomic<ProfileScanSet> scan_limit{ProfileScanSet::Widest};

ScanFn PickScan(unsigned metric, bool mean_colour) {
  static constexpr ScanFn baseline[3][2] = {{ScanBaseline<0, false>, ScanBaseline<0, true>},
                                            {ScanBaseline<1, false>, ScanBaseline<1, true>},
                                            {ScanBaseline<2, false>, ScanBaseline<2, true>}};
  static constexpr ScanFn avx2[3][2] = {{ScanAvx2<0, false>, ScanAvx2<0, true>},
                                        {ScanAvx2<1, false>, ScanAvx2<1, true>},
                                        {ScanAvx2<2, false>, ScanAvx2<2, true>}};
  static const bool has_avx2 = __builtin_cpu_supports("avx2");
  const bool wide =
      has_avx2 && scan_limit.load(std::memory_order_relaxed) != ProfileScanSet::Baseline;
  return (wide ? avx2 : baseline)[metric][mean_colour ? 1 : 0];
}

// Runs fn(first, end) over the segments 0..split-1 and split..count-1 at
// once. Each profile is written by the thread that owns its segment only,
// and every cell keeps the order of its terms, so the results are those of
// one thread. Small jobs are not worth a thread.
template <class Fn>
void ForSegmentHalves(size_t count, size_t split, uint64_t work, const Fn& fn) {
  const int32_t n = int32_t(count), m = int32_t(std::min(split, count));
  if (work < 1000000 || count < 2 || std::thread::hardware_concurrency() < 2) {
    fn(0, n);
    return;
  }
  std::jthread helper([&] { fn(m, n); });
  fn(0, m);
}

detail::Isa PickIsa() {
  static const bool has_avx2 = __builtin_cpu_supports("avx2");
  static const bool has_avx512 =
      __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
      __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512vnni");
  const ProfileScanSet limit = scan_limit.load(std::memory_order_relaxed);
  if (has_avx512 && limit == ProfileScanSet::Widest) return detail::Isa::Avx512;
  if (has_avx2 && limit != ProfileScanSet::Baseline) return detail::Isa::Avx2;
  return detail::Isa::Baseline;
}

// One flag per segment: whether this call builds its profile.
std::vector<char> ScanFlags(const Segmentation& seg, bool active_only) {
  std::vector<char> scan(seg.segments.size(), 1);
  if (active_only)
    for (size_t s = 0; s < scan.size(); ++s) scan[s] = seg.segments[s].active ? 1 : 0;
  return scan;
}

// Whether every scanned segment is small enough for the byte route's 32-bit
// sums.
bool SegmentsFitBytes(const Segmentation& seg, const std::vector<char>& scan) {
  for (size_t s = 0; s < seg.segments.size(); ++s)
    if (scan[s] && seg.segments[s].pixels > detail::kMaxBytePixels) return false;
  return true;
}

// The reference pixels of the byte route, kept by the cache or gathered for
// one call.
struct PixelLists {
  const std::vector<uint32_t>* start = nullptr;
  const std::vector<ReferencePixel>* pixels = nullptr;
};

// The byte route of a scan of radius q against `second`, with `self` as in
// detail::ByteScan. False, with nothing changed, when `second` holds a
// value other than a byte where the windows reach. Positions must be valid.
bool ByteRoute(Segmentation& seg,
               const img::float_image& second,
               int32_t q,
               const std::vector<char>& scan,
               const PixelLists& lists,
               const std::vector<Raster<double>>* self,
               int32_t self_radius) {
  const int64_t h = seg.height;
  int64_t row_lo = h, row_hi = -1, col_lo = INT64_MAX, col_hi = -1;
  for (size_t s = 0; s < seg.segments.size(); ++s) {
    if (!scan[s]) continue;
    const GridSegment& g = seg.segments[s];
    row_lo = std::min<int64_t>(row_lo, int64_t(g.top) + g.shift_y - q);
    row_hi = std::max<int64_t>(row_hi, int64_t(g.bottom) - 1 + g.shift_y + q);
    col_lo = std::min<int64_t>(col_lo, int64_t(g.left) + g.shift_x - q);
    col_hi = std::max<int64_t>(col_hi, int64_t(g.right) - 1 + g.shift_x + q);
  }
  row_lo = std::max<int64_t>(row_lo, 0);
  row_hi = std::min<int64_t>(row_hi, h - 1);
  // A window row starts at a column below the width and is 2q+1 long.
  col_lo = std::max<int64_t>(col_lo, 0);
  col_hi = std::min<int64_t>(col_hi, int64_t(seg.width) - 1 + 2 * int64_t(q));
  if (col_hi < col_lo) row_hi = row_lo - 1;  // nothing in reach
  // Kept by the calling thread, so that a frame does not clear and fault in
  // new pages. The helper thread must reach it through `window`: naming the
  // thread_local there would give the helper's own.
  thread_local detail::ByteWindow kept;
  detail::ByteWindow& window = kept;
  const detail::Isa isa = PickIsa();
  detail::PlanByteWindow(second, row_lo, row_hi, col_lo, col_hi, isa, window);
  // The copy in two parts, one per thread for a large window.
  std::atomic<bool> bytes{true};
  ForSegmentHalves(2, 1, uint64_t(window.count) * 32, [&](int32_t lo, int32_t hi) {
    for (int32_t part = lo; part < hi; ++part)
      if (!detail::FillByteWindow(second, window, part, 2)) bytes = false;
  });
  if (!bytes) return false;
  detail::FinishByteWindow(window, 2);

  const std::vector<uint32_t>& start = *lists.start;
  const detail::ByteScan job{&seg,  &window, start.data(), lists.pixels->data(),
                             &scan, q,       self,         self_radius};
  // Split where both halves have about as many pixels.
  const uint32_t total = start.back();
  const size_t split =
      size_t(std::lower_bound(start.begin(), start.end() - 1, total / 2) - start.begin());
  const uint64_t size = 2 * uint64_t(q) + 1;
  ForSegmentHalves(seg.segments.size(), split, total * size * size,
                   [&](int32_t lo, int32_t hi) { detail::RunByteScan(job, isa, lo, hi); });
  return true;
}

// The double scan: each cell's terms in the order of the plain scan.
void RawDouble(Segmentation& seg,
               const img::float_image& first,
               const img::float_image& second,
               int32_t radius,
               const ProfileParams& params,
               bool active_only) {
  ScanSetup su;
  su.q = radius;
  su.size = 2 * radius + 1;
  su.w = seg.width;
  su.h = seg.height;

  // The rows the windows can reach, so that only they are copied.
  seg.positions();
  int64_t row_lo = su.h, row_hi = -1;
  for (const GridSegment& g : seg.segments) {
    row_lo = std::min<int64_t>(row_lo, int64_t(g.top) + g.shift_y - radius);
    row_hi = std::max<int64_t>(row_hi, int64_t(g.bottom) - 1 + g.shift_y + radius);
  }
  row_lo = std::max<int64_t>(row_lo, 0);
  row_hi = std::min<int64_t>(row_hi, su.h - 1);
  // A window row starts at column bx < width and is at most 2Q+1 long.
  const Planes planes(second, row_lo * su.w,
                      row_hi < row_lo ? row_lo * su.w : row_hi * su.w + su.w + 2 * radius + kLanes);

  for (GridSegment& g : seg.segments) {
    if (active_only && !g.active) continue;
    g.profile.reset(su.size, su.size);
    g.profile_counts.reset(su.size, su.size);
    g.radius_x = g.radius_y = radius;
  }
  // The scan marks in each count row only where a run of cells ends; every
  // run counts its cells 0..n-1, shifted left against the profile as the
  // counts have always been kept, so a sum from the right gives the counts.
  su.stride = su.size + kLanes - 1;
  const size_t cells = size_t(su.size) * size_t(su.stride);
  std::vector<double> sums(seg.segments.size() * cells, 0.0);
  std::vector<double*> rows(seg.segments.size());
  for (size_t s = 0; s < rows.size(); ++s) rows[s] = sums.data() + s * cells;
  su.sums = rows.data();
  const ScanFn scan = PickScan(params.metric, params.colour_source != 0);
  ForSegmentHalves(
      seg.segments.size(), seg.segments.size() / 2,
      uint64_t(seg.width) * seg.height * su.size * su.size,
      [&](int32_t lo, int32_t hi) { scan(seg, first, planes, su, active_only, lo, hi); });

  for (size_t s = 0; s < seg.segments.size(); ++s) {
    GridSegment& g = seg.segments[s];
    if (active_only && !g.active) continue;
    for (int32_t j = 0; j < su.size; ++j) {
      int32_t* counts = g.profile_counts.row(j);
      double* prof = g.profile.row(j);
      std::copy_n(rows[s] + size_t(j) * size_t(su.stride), su.size, prof);
      for (int32_t k = su.size - 2; k >= 0; --k) counts[k] += counts[k + 1];
      for (int32_t i = 0; i < su.size; ++i)
        if (counts[i] != 0) prof[i] /= double(counts[i]);
    }
  }
}

}  // namespace

void LimitProfileScan(ProfileScanSet set) {
  scan_limit.store(set, std::memory_order_relaxed);
}

void LimitProfileScanToBaseline(bool limit) {
  LimitProfileScan(limit ? ProfileScanSet::Baseline : ProfileScanSet::Widest);
}

ProfileParams ProfileParamsOf(const VLSegmentParams& params, int32_t radius) {
  ProfileParams p;
  p.colour_source = params.profile_colour_source;
  p.metric = params.profile_metric;
  p.mode = params.profile_mode;
  p.radius = radius;
  p.self_radius = int32_t(params.self_profile_radius);
  p.variance_scale = params.variance_scale;
  return p;
}

void SetStartingMotion(Segmentation& seg, const types::affine& T) {
  seg.positions();
  for (GridSegment& g : seg.segments) {
    double px, py;
    T.apply(g.centre_x, g.centre_y, px, py);
    g.shift_x = RoundHalfAway(px - g.centre_x);
    g.shift_y = RoundHalfAway(py - g.centre_y);
  }
}

void ComputeStatistics(Segmentation& seg,
                       const img::float_image& reference,
                       float variance_scale,
                       bool scaled) {
  CheckSize(seg, reference);
  if (seg.statistics_valid && seg.statistics_scaled == scaled) return;
  seg.profile_cache = ProfileCache();  // measured with the old statistics
  for (GridSegment& g : seg.segments) {
    g.mean[0] = g.mean[1] = g.mean[2] = 0;
    g.variance = 0;
  }
  // Only the segments' bounding boxes hold labelled pixels; each segment
  // still takes its pixels in row order, on which its float sums depend.
  seg.positions();
  uint32_t x0 = seg.width, y0 = seg.height, x1 = 0, y1 = 0;
  for (const GridSegment& g : seg.segments) {
    x0 = std::min(x0, uint32_t(g.left));
    y0 = std::min(y0, uint32_t(g.top));
    x1 = std::max(x1, uint32_t(g.right));
    y1 = std::max(y1, uint32_t(g.bottom));
  }
  for (uint32_t y = y0; y < y1; ++y)
    for (uint32_t x = x0; x < x1; ++x) {
      const int32_t l = seg.label(x, y);
      if (l < 0) continue;
      const float* p = img::pixel(reference, x, y);
      float* m = seg.segments[size_t(l)].mean;
      m[0] += p[0];
      m[1] += p[1];
      m[2] += p[2];
    }
  for (GridSegment& g : seg.segments) {
    const float k = 1.0f / float(g.pixels);
    g.mean[0] *= k;
    g.mean[1] *= k;
    g.mean[2] *= k;
  }
  for (uint32_t y = y0; y < y1; ++y)
    for (uint32_t x = x0; x < x1; ++x) {
      const int32_t l = seg.label(x, y);
      if (l < 0) continue;
      GridSegment& g = seg.segments[size_t(l)];
      const float* p = img::pixel(reference, x, y);
      g.variance += SquaredDifference(g.mean[0], g.mean[1], g.mean[2], p[0], p[1], p[2]);
    }
  for (GridSegment& g : seg.segments) {
    g.variance = g.pixels < 2 ? 0.0 : g.variance / double(g.pixels - 1);
    if (scaled) g.variance *= double(variance_scale);
    if (g.variance == 0) g.variance = 0.00001;
  }
  seg.statistics_valid = true;
  seg.statistics_scaled = scaled;
}

void RawProfiles(Segmentation& seg,
                 const img::float_image& first,
                 const img::float_image& second,
                 int32_t radius,
                 const ProfileParams& params,
                 bool active_only) {
  CheckSize(seg, first);
  CheckSize(seg, second);
  if (radius < 0 || radius > 10000) throw std::invalid_argument("search radius out of range");
  if (params.metric > 2) throw std::invalid_argument("unknown profile metric");
  seg.positions();
  const std::vector<char> scan = ScanFlags(seg, active_only);
  if (params.colour_source == 0 && params.metric == 0 && SegmentsFitBytes(seg, scan)) {
    std::vector<uint32_t> start;
    std::vector<ReferencePixel> pixels;
    if (detail::GatherBytePixels(seg, first, scan, start, pixels) &&
        ByteRoute(seg, second, radius, scan, {&start, &pixels}, nullptr, 0))
      return;
  }
  RawDouble(seg, first, second, radius, params, active_only);
}

void BuildProfiles(Segmentation& seg,
                   const img::float_image& target,
                   const ProfileParams& params,
                   bool active_only) {
  if (!seg.image) throw std::invalid_argument("segmentation without reference picture");
  if (params.mode != ProfileMode::Raw && params.mode != ProfileMode::SelfCompared)
    throw std::invalid_argument("profile modes with foreign segments are not built");
  const int32_t R = params.radius, r = params.self_radius;
  if (R < 0 || r < 0 || R > 10000 || r > 10000 ||
      (params.mode != ProfileMode::Raw && R + r > 10000))
    throw std::invalid_argument("profile radius out of range");
  if (params.metric > 2) throw std::invalid_argument("unknown profile metric");
  const img::float_image& reference = *seg.image;
  CheckSize(seg, target);
  ComputeStatistics(seg, reference, params.variance_scale, true);
  seg.positions();
  const std::vector<char> scan = ScanFlags(seg, active_only);

  // The reference side of the byte route depends on the reference alone and
  // is kept in the cache; a scan of some segments only gathers its own.
  ProfileCache& cache = seg.profile_cache;
  if (cache.reference != &reference) {
    cache = ProfileCache();
    cache.reference = &reference;
  }
  std::vector<uint32_t> own_start;
  std::vector<ReferencePixel> own_pixels;
  PixelLists lists;
  bool bytes = params.colour_source == 0 && params.metric == 0 && SegmentsFitBytes(seg, scan);
  if (bytes && active_only) {
    bytes = detail::GatherBytePixels(seg, reference, scan, own_start, own_pixels);
    lists = {&own_start, &own_pixels};
  } else if (bytes) {
    if (!cache.pixels_gathered) {
      cache.reference_bytes =
          detail::GatherBytePixels(seg, reference, scan, cache.pixel_start, cache.pixels);
      cache.pixels_gathered = true;
      if (!cache.reference_bytes) cache.pixels.clear();
    }
    bytes = cache.reference_bytes;
    lists = {&cache.pixel_start, &cache.pixels};
  }

  if (params.mode == ProfileMode::Raw) {
    if (!bytes || !ByteRoute(seg, target, R, scan, lists, nullptr, 0))
      RawDouble(seg, reference, target, R, params, active_only);
    return;
  }

  // The self profiles: the reference against itself with no shift.
  std::vector<Raster<double>> fresh;
  const bool cached = !active_only && cache.self_valid &&
                      cache.colour_source == params.colour_source &&
                      cache.metric == params.metric && cache.self_radius == r;
  if (!cached) {
    std::vector<std::pair<int32_t, int32_t>> shifts;
    shifts.reserve(seg.segments.size());
    for (GridSegment& g : seg.segments) {
      shifts.emplace_back(g.shift_x, g.shift_y);
      g.shift_x = g.shift_y = 0;
    }
    if (!bytes || !ByteRoute(seg, reference, r, scan, lists, nullptr, 0))
      RawDouble(seg, reference, reference, r, params, active_only);
    fresh.resize(seg.segments.size());
    for (size_t s = 0; s < seg.segments.size(); ++s) {
      GridSegment& g = seg.segments[s];
      fresh[s] = std::move(g.profile);
      g.shift_x = shifts[s].first;
      g.shift_y = shifts[s].second;
    }
    if (!active_only) {
      cache.self = std::move(fresh);
      cache.colour_source = params.colour_source;
      cache.metric = params.metric;
      cache.self_radius = r;
      cache.self_valid = true;
    }
  }
  const std::vector<Raster<double>>& self = active_only ? fresh : cache.self;

  // The raw profiles C of radius R + r, each compared with its self profile
  // as soon as it is done.
  if (bytes && ByteRoute(seg, target, R + r, scan, lists, &self, r)) return;
  RawDouble(seg, reference, target, R + r, params, active_only);
  const uint64_t size = 2 * uint64_t(R) + 1, ssize = 2 * uint64_t(r) + 1;
  const detail::Isa isa = PickIsa();
  ForSegmentHalves(
      seg.segments.size(), seg.segments.size() / 2,
      uint64_t(seg.segments.size()) * size * size * ssize * ssize,
      [&](int32_t lo, int32_t hi) { detail::CompareWithSelf(seg, self, R, r, scan, isa, lo, hi); });
}

}  // namespace tracking
