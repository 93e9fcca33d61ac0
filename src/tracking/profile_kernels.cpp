// SPDX-License-Identifier: GPL-3.0-or-later
// Instruction-set variants of the profile loops. Each variant is one entry
// function with the target attribute and `flatten`: the shared templates
// below are inlined into it and compiled for its instruction set, so the
// intrinsics of the kernels inline as well. The templates pass the kernels
// only pointers and integers; a function that takes or returns a vector
// carries its instruction set's target attribute, so that its calling
// convention is the same wherever it is called (at -O0 nothing is inlined).
#include "tracking/profile_kernels.h"

#include <immintrin.h>

#include <algorithm>
#include <cstring>

namespace tracking::detail {

namespace {

// One pixel of a segment's scan: where row 0 of its window starts in the
// planes, its colour, and which part of the window lies in the picture.
struct RunPixel {
  int64_t at;      // plane index of window row 0, cell i0
  int32_t bg, r;   // packed colour, see ReferencePixel
  int32_t dot;     // the colour minus 128 as signed bytes: blue, green, red, 0
  int32_t i0, n;   // first cell and number of cells of each window row
  int32_t j0, j1;  // window rows j0 <= j < j1 lie in the picture
};

// The kernels: Term is the byte route's metric for kPixels consecutive plane
// pixels; Sum adds it over all pixels of a segment at one window offset
// into kPixels cells; Add adds one window row of one pixel into n cells,
// the lanes past n left out. With kDot, DotSum replaces Sum.
struct Sse2Kernel {
  static constexpr int32_t kPixels = 4;
  static constexpr bool kDot = false;

  [[gnu::target("sse2")]] static inline __m128i Term(
      const int16_t* bg, const int16_t* r0, int64_t k, int32_t vbg, int32_t vr) {
    __m128i u1, u2;
    std::memcpy(&u1, bg + 2 * k, sizeof u1);
    std::memcpy(&u2, r0 + 2 * k, sizeof u2);
    const __m128i d1 = _mm_sub_epi16(u1, _mm_set1_epi32(vbg));
    const __m128i d2 = _mm_sub_epi16(u2, _mm_set1_epi32(vr));
    return _mm_add_epi32(_mm_madd_epi16(d1, d1), _mm_madd_epi16(d2, d2));
  }
  [[gnu::target("sse2")]] static inline void Sum(const RunPixel* px,
                                                 size_t count,
                                                 const int16_t* bg,
                                                 const int16_t* r0,
                                                 int64_t offset,
                                                 int32_t /*cells*/,
                                                 int32_t* out) {
    __m128i s0 = _mm_setzero_si128(), s1 = _mm_setzero_si128();
    size_t p = 0;
    for (; p + 2 <= count; p += 2) {
      s0 = _mm_add_epi32(s0, Term(bg, r0, px[p].at + offset, px[p].bg, px[p].r));
      s1 = _mm_add_epi32(s1, Term(bg, r0, px[p + 1].at + offset, px[p + 1].bg, px[p + 1].r));
    }
    if (p < count) s0 = _mm_add_epi32(s0, Term(bg, r0, px[p].at + offset, px[p].bg, px[p].r));
    const __m128i s = _mm_add_epi32(s0, s1);
    std::memcpy(out, &s, sizeof s);
  }
  [[gnu::target("sse2")]] static inline void Add(int32_t* acc,
                                                 const int16_t* bg,
                                                 const int16_t* r0,
                                                 int64_t k,
                                                 int32_t n,
                                                 int32_t vbg,
                                                 int32_t vr) {
    const __m128i lane = _mm_setr_epi32(0, 1, 2, 3);
    for (int32_t c = 0; c < n; c += kPixels) {
      const __m128i keep = _mm_cmpgt_epi32(_mm_set1_epi32(n - c), lane);
      const __m128i e = _mm_and_si128(Term(bg, r0, k + c, vbg, vr), keep);
      __m128i a;
      std::memcpy(&a, acc + c, sizeof a);
      a = _mm_add_epi32(a, e);
      std::memcpy(acc + c, &a, sizeof a);
    }
  }
};

struct Avx2Kernel {
  static constexpr int32_t kPixels = 8;
  static constexpr bool kDot = false;

  [[gnu::target("avx2")]] static inline __m256i Term(
      const int16_t* bg, const int16_t* r0, int64_t k, int32_t vbg, int32_t vr) {
    const __m256i u1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bg + 2 * k));
    const __m256i u2 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(r0 + 2 * k));
    const __m256i d1 = _mm256_sub_epi16(u1, _mm256_set1_epi32(vbg));
    const __m256i d2 = _mm256_sub_epi16(u2, _mm256_set1_epi32(vr));
    return _mm256_add_epi32(_mm256_madd_epi16(d1, d1), _mm256_madd_epi16(d2, d2));
  }
  [[gnu::target("avx2")]] static inline void Sum(const RunPixel* px,
                                                 size_t count,
                                                 const int16_t* bg,
                                                 const int16_t* r0,
                                                 int64_t offset,
                                                 int32_t /*cells*/,
                                                 int32_t* out) {
    __m256i s0 = _mm256_setzero_si256(), s1 = _mm256_setzero_si256();
    size_t p = 0;
    for (; p + 2 <= count; p += 2) {
      s0 = _mm256_add_epi32(s0, Term(bg, r0, px[p].at + offset, px[p].bg, px[p].r));
      s1 = _mm256_add_epi32(s1, Term(bg, r0, px[p + 1].at + offset, px[p + 1].bg, px[p + 1].r));
    }
    if (p < count) s0 = _mm256_add_epi32(s0, Term(bg, r0, px[p].at + offset, px[p].bg, px[p].r));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), _mm256_add_epi32(s0, s1));
  }
  [[gnu::target("avx2")]] static inline void Add(int32_t* acc,
                                                 const int16_t* bg,
                                                 const int16_t* r0,
                                                 int64_t k,
                                                 int32_t n,
                                                 int32_t vbg,
                                                 int32_t vr) {
    const __m256i lane = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    for (int32_t c = 0; c < n; c += kPixels) {
      const __m256i keep = _mm256_cmpgt_epi32(_mm256_set1_epi32(n - c), lane);
      const __m256i e = _mm256_and_si256(Term(bg, r0, k + c, vbg, vr), keep);
      __m256i* a = reinterpret_cast<__m256i*>(acc + c);
      _mm256_storeu_si256(a, _mm256_add_epi32(_mm256_loadu_si256(a), e));
    }
  }
};

// With VNNI: the multiply-pair and the addition in one instruction.
#define VL_AVX512 "avx2,avx512f,avx512bw,avx512vnni,avx512vl"
struct Avx512Kernel {
  static constexpr int32_t kPixels = 16;

  [[gnu::target(VL_AVX512)]] static inline __m512i Add(__m512i acc,
                                                       const int16_t* plane,
                                                       int64_t k,
                                                       __m512i v) {
    const __m512i d = _mm512_sub_epi16(_mm512_loadu_si512(plane + 2 * k), v);
    return _mm512_dpwssd_epi32(acc, d, d);
  }
  [[gnu::target(VL_AVX512)]] static inline __m256i Add(__m256i acc,
                                                       const int16_t* plane,
                                                       int64_t k,
                                                       __m256i v) {
    const __m256i d =
        _mm256_sub_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(plane + 2 * k)), v);
    return _mm256_dpwssd_epi32(acc, d, d);
  }
  // Four sums in flight: two pixels, two planes.
  template <class V>
  [[gnu::target(VL_AVX512)]] static inline V SumOf(const RunPixel* px,
                                                   size_t count,
                                                   const int16_t* bg,
                                                   const int16_t* r0,
                                                   int64_t offset,
                                                   V zero,
                                                   V (*set1)(int)) {
    V s0 = zero, s1 = zero, s2 = zero, s3 = zero;
    size_t p = 0;
    for (; p + 2 <= count; p += 2) {
      const int64_t k0 = px[p].at + offset, k1 = px[p + 1].at + offset;
      s0 = Add(s0, bg, k0, set1(px[p].bg));
      s1 = Add(s1, r0, k0, set1(px[p].r));
      s2 = Add(s2, bg, k1, set1(px[p + 1].bg));
      s3 = Add(s3, r0, k1, set1(px[p + 1].r));
    }
    if (p < count) {
      const int64_t k0 = px[p].at + offset;
      s0 = Add(s0, bg, k0, set1(px[p].bg));
      s1 = Add(s1, r0, k0, set1(px[p].r));
    }
    return (s0 + s1) + (s2 + s3);
  }
  [[gnu::target(VL_AVX512)]] static inline __m512i Set512(int v) { return _mm512_set1_epi32(v); }
  [[gnu::target(VL_AVX512)]] static inline __m256i Set256(int v) { return _mm256_set1_epi32(v); }

  // A last group of at most 8 cells takes the half width.
  [[gnu::target(VL_AVX512)]] static inline void Sum(const RunPixel* px,
                                                    size_t count,
                                                    const int16_t* bg,
                                                    const int16_t* r0,
                                                    int64_t offset,
                                                    int32_t cells,
                                                    int32_t* out) {
    if (cells <= kPixels / 2) {
      const __m256i s = SumOf<__m256i>(px, count, bg, r0, offset, _mm256_setzero_si256(), Set256);
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), s);
    } else {
      _mm512_storeu_si512(
          out, SumOf<__m512i>(px, count, bg, r0, offset, _mm512_setzero_si512(), Set512));
    }
  }
  // The dot-product kernel for pixels that all cover the whole window. With
  // v' = v - 128 per channel and G(u) = |u|² - 256 (u_b + u_g + u_r):
  // |u - v|² = G(u) - 2 u·v' + |v|², where u·v' is one byte-wise
  // multiply-and-add instruction for 16 cells, the sum of G over a run of
  // consecutive pixels the difference of two running sums, and Σ|v|² one
  // number per segment. All in wrapping 32-bit arithmetic: the true sum
  // lies in 0..2^31-1, so the wrapped result is exact.
  static constexpr bool kDot = true;
  struct Run {
    int64_t at;  // plane index of the first pixel's window row 0, cell 0
    int64_t n;   // consecutive pixels
  };

  [[gnu::target(VL_AVX512)]] static inline __m256i load(const uint32_t* q) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(q));
  }
  // Both widths alike; 32-bit additions wrap.
  [[gnu::target(VL_AVX512)]] static inline __m512i Dot(const RunPixel* px,
                                                       size_t count,
                                                       const Run* runs,
                                                       size_t run_count,
                                                       const uint32_t* bytes,
                                                       const uint32_t* prefix,
                                                       int64_t offset,
                                                       uint32_t squares) {
    // Four sums in flight: the multiply-and-add takes several cycles.
    __m512i d[4] = {_mm512_setzero_si512(), _mm512_setzero_si512(), _mm512_setzero_si512(),
                    _mm512_setzero_si512()};
    __m512i g = _mm512_setzero_si512();
    size_t p = 0;
    for (; p + 4 <= count; p += 4)
      for (int k = 0; k < 4; ++k)
        d[k] = _mm512_dpbusd_epi32(d[k], _mm512_loadu_si512(bytes + px[p + k].at + offset),
                                   _mm512_set1_epi32(px[p + k].dot));
    for (int k = 0; p < count; ++p, ++k)
      d[k] = _mm512_dpbusd_epi32(d[k], _mm512_loadu_si512(bytes + px[p].at + offset),
                                 _mm512_set1_epi32(px[p].dot));
    for (size_t r = 0; r < run_count; ++r) {
      const uint32_t* at = prefix + runs[r].at + offset;
      g = _mm512_add_epi32(
          g, _mm512_sub_epi32(_mm512_loadu_si512(at + runs[r].n), _mm512_loadu_si512(at)));
    }
    const __m512i dot =
        _mm512_add_epi32(_mm512_add_epi32(d[0], d[1]), _mm512_add_epi32(d[2], d[3]));
    return _mm512_add_epi32(_mm512_sub_epi32(g, _mm512_add_epi32(dot, dot)),
                            _mm512_set1_epi32(int32_t(squares)));
  }
  [[gnu::target(VL_AVX512)]] static inline __m256i Dot(const RunPixel* px,
                                                       size_t count,
                                                       const Run* runs,
                                                       size_t run_count,
                                                       const uint32_t* bytes,
                                                       const uint32_t* prefix,
                                                       int64_t offset,
                                                       uint32_t squares,
                                                       __m256i zero) {
    __m256i d[4] = {zero, zero, zero, zero}, g = zero;
    size_t p = 0;
    for (; p + 4 <= count; p += 4)
      for (int k = 0; k < 4; ++k)
        d[k] = _mm256_dpbusd_epi32(d[k], load(bytes + px[p + k].at + offset),
                                   _mm256_set1_epi32(px[p + k].dot));
    for (int k = 0; p < count; ++p, ++k)
      d[k] =
          _mm256_dpbusd_epi32(d[k], load(bytes + px[p].at + offset), _mm256_set1_epi32(px[p].dot));
    for (size_t r = 0; r < run_count; ++r) {
      const uint32_t* at = prefix + runs[r].at + offset;
      g = _mm256_add_epi32(g, _mm256_sub_epi32(load(at + runs[r].n), load(at)));
    }
    const __m256i dot =
        _mm256_add_epi32(_mm256_add_epi32(d[0], d[1]), _mm256_add_epi32(d[2], d[3]));
    return _mm256_add_epi32(_mm256_sub_epi32(g, _mm256_add_epi32(dot, dot)),
                            _mm256_set1_epi32(int32_t(squares)));
  }

  [[gnu::target(VL_AVX512)]] static inline void DotSum(const RunPixel* px,
                                                       size_t count,
                                                       const Run* runs,
                                                       size_t run_count,
                                                       const uint32_t* bytes,
                                                       const uint32_t* prefix,
                                                       int64_t offset,
                                                       uint32_t squares,
                                                       int32_t cells,
                                                       int32_t* out) {
    if (cells <= kPixels / 2) {
      const __m256i s =
          Dot(px, count, runs, run_count, bytes, prefix, offset, squares, _mm256_setzero_si256());
      std::memcpy(out, &s, sizeof s);
    } else {
      const __m512i s = Dot(px, count, runs, run_count, bytes, prefix, offset, squares);
      std::memcpy(out, &s, sizeof s);
    }
  }

  [[gnu::target(VL_AVX512)]] static inline void Add(int32_t* acc,
                                                    const int16_t* bg,
                                                    const int16_t* r0,
                                                    int64_t k,
                                                    int32_t n,
                                                    int32_t vbg,
                                                    int32_t vr) {
    for (int32_t c = 0; c < n; c += kPixels) {
      const __mmask16 keep = n - c >= kPixels ? __mmask16(0xFFFF) : __mmask16((1u << (n - c)) - 1);
      const __m512i e = Add(Add(_mm512_setzero_si512(), bg, k + c, _mm512_set1_epi32(vbg)), r0,
                            k + c, _mm512_set1_epi32(vr));
      const __m512i a = _mm512_loadu_si512(acc + c);
      _mm512_storeu_si512(acc + c, _mm512_mask_add_epi32(a, keep, a, e));
    }
  }
};

using Doubles = double __attribute__((vector_size(32)));
using Bits = int64_t __attribute__((vector_size(32)));
constexpr int32_t kDoubles = 4;

using Ints = int32_t __attribute__((vector_size(16)));

const Bits kMagnitude = {INT64_MAX, INT64_MAX, INT64_MAX, INT64_MAX};  // & clears the sign: fabs

// Mode 1's comparison of one segment: out(i, j) = minus the sum over (a, b)
// in row order of |C(i + b, j + a) - S(b, a)|, as a plain loop adds them,
// from 0.0. `c` has rows of `cs` cells with room for the last group's
// over-reach. Rows*Chunks groups of cells are summed in registers at once,
// which keeps enough additions in flight.
template <int Chunks, int Rows>
inline void CompareRows(
    const double* c, int64_t cs, const Raster<double>& self, int32_t size, Raster<double>& out) {
  const int32_t ss = self.width;
  for (int32_t j = 0; j < size; j += Rows) {
    Doubles acc[Rows][Chunks] = {};
    for (int32_t a = 0; a < ss; ++a) {
      const double* srow = self.row(a);
      for (int32_t b = 0; b < ss; ++b) {
        const Doubles sv = {srow[b], srow[b], srow[b], srow[b]};
        for (int32_t row = 0; row < Rows; ++row) {
          // Past the last row of the profile this reads rows of C that
          // exist (C has 2r more) or the padding behind them; unused.
          const double* crow = c + (j + row + a) * cs + b;
          for (int32_t k = 0; k < Chunks; ++k) {
            Doubles x;
            std::memcpy(&x, crow + kDoubles * k, sizeof x);
            acc[row][k] += Doubles(Bits(x - sv) & kMagnitude);
          }
        }
      }
    }
    for (int32_t row = 0; row < Rows && j + row < size; ++row) {
      double sums[Chunks * kDoubles];
      std::memcpy(sums, acc[row], sizeof sums);
      for (int32_t i = 0; i < size; ++i) out.at(i, j + row) = -sums[i];
    }
  }
}

// The same with the profile as accumulator, for profiles wider than the
// register groups above.
inline void CompareWide(const double* c,
                        int64_t cs,
                        const Raster<double>& self,
                        int32_t size,
                        std::vector<double>& acc,
                        Raster<double>& out) {
  const int32_t ss = self.width;
  const int32_t cw = (size + kDoubles - 1) / kDoubles * kDoubles;
  acc.assign(size_t(size) * size_t(cw), 0.0);
  for (int32_t a = 0; a < ss; ++a) {
    const double* srow = self.row(a);
    for (int32_t b = 0; b < ss; ++b) {
      const Doubles sv = {srow[b], srow[b], srow[b], srow[b]};
      for (int32_t j = 0; j < size; ++j) {
        const double* crow = c + (j + a) * cs + b;
        double* arow = acc.data() + size_t(j) * size_t(cw);
        for (int32_t k = 0; k < cw; k += kDoubles) {
          Doubles x, t;
          std::memcpy(&x, crow + k, sizeof x);
          std::memcpy(&t, arow + k, sizeof t);
          t += Doubles(Bits(x - sv) & kMagnitude);
          std::memcpy(arow + k, &t, sizeof t);
        }
      }
    }
  }
  for (int32_t j = 0; j < size; ++j)
    for (int32_t i = 0; i < size; ++i) out.at(i, j) = -acc[size_t(j) * size_t(cw) + size_t(i)];
}

// C needs `CompareRows`' over-reach: room for a group of cells behind each
// row, and one spare row of padding for the paired rows.
constexpr int64_t kComparePadding = kDoubles;

inline void SelfCompare(const double* c,
                        int64_t cs,
                        const Raster<double>& self,
                        int32_t R,
                        std::vector<double>& acc,
                        Raster<double>& out) {
  const int32_t size = 2 * R + 1;
  // Every cell is written below: no need to clear them first.
  out.width = out.height = size;
  out.cells.resize(size_t(size) * size_t(size));
  switch ((size + kDoubles - 1) / kDoubles) {
    case 1:
      return CompareRows<1, 2>(c, cs, self, size, out);
    case 2:
      return CompareRows<2, 2>(c, cs, self, size, out);
    case 3:
      return CompareRows<3, 2>(c, cs, self, size, out);
    case 4:
      return CompareRows<4, 2>(c, cs, self, size, out);
    case 5:
      return CompareRows<5, 1>(c, cs, self, size, out);
    case 6:
      return CompareRows<6, 1>(c, cs, self, size, out);
    case 7:
      return CompareRows<7, 1>(c, cs, self, size, out);
    case 8:
      return CompareRows<8, 1>(c, cs, self, size, out);
    default:
      return CompareWide(c, cs, self, size, acc, out);
  }
}

// A profile row from exact sums: 0.0 minus the terms, divided by the count
// unless that is 0 (here: by 1, which changes nothing). `sums` may be read
// a group past `size`.
inline void SumsToDoubles(const int32_t* sums, const int32_t* counts, int32_t size, double* out) {
  int32_t i = 0;
  for (; i + kDoubles <= size; i += kDoubles) {
    Ints s, n;
    std::memcpy(&s, sums + i, sizeof s);
    std::memcpy(&n, counts + i, sizeof n);
    const Doubles v = __builtin_convertvector(-s, Doubles) /
                      __builtin_convertvector(n - (n == 0), Doubles);  // n == 0 is -1
    std::memcpy(out + i, &v, sizeof v);
  }
  for (; i < size; ++i) out[i] = double(-sums[i]) / double(counts[i] != 0 ? counts[i] : 1);
}

struct Scratch {
  std::vector<RunPixel> run;
  std::vector<Avx512Kernel::Run> runs;
  std::vector<int32_t> sums, marks, counts;
  std::vector<double> c, acc;
};

template <class K>
inline void ScanSegment(const ByteScan& job, size_t s, Scratch& sc) {
  Segmentation& seg = *job.seg;
  GridSegment& g = seg.segments[s];
  const ByteWindow& win = *job.window;
  const int32_t q = job.q, size = 2 * q + 1;
  const int64_t w = seg.width, h = seg.height;
  // Room behind each row of sums for the last vector's over-reach.
  const int32_t stride = size + K::kPixels - 1;
  // The counts go to the profile's, or in mode 1, which drops them, to
  // scratch.
  int32_t* counts;
  if (job.self) {
    sc.counts.resize(size_t(size) * size_t(size));
    counts = sc.counts.data();
  } else {
    g.profile_counts.reset(size, size);
    counts = g.profile_counts.cells.data();
  }

  // The same selection and clipping as the double scan, pixel by pixel.
  // A pixel marks the end of its run of n cells in each of its rows j0..j1-1
  // of the counts; the marks are kept as differences along j, so that a
  // pixel costs two of them. Pixels that cover the whole window only add to
  // `whole`, and when all do, no marks are needed.
  sc.run.clear();
  bool marked = false;
  int32_t whole = 0;
  for (uint32_t k = job.start[s]; k < job.start[s + 1]; ++k) {
    const ReferencePixel& p = job.pixels[k];
    const int64_t bx = int64_t(g.shift_x) - q + p.x;
    if (bx < 0 || bx >= w) continue;  // the width: see the double scan
    const int32_t i0 = int32_t(std::max<int64_t>(0, q - p.x));
    const int32_t i1 = int32_t(std::min<int64_t>(size, w - (p.x - q)));
    if (i1 <= i0) continue;
    const int64_t row = int64_t(g.shift_y) - q + p.y;  // of window row 0
    const int32_t j0 = int32_t(std::clamp<int64_t>(-row, 0, size));
    const int32_t j1 = int32_t(std::clamp<int64_t>(h - row, 0, size));
    if (j1 <= j0) continue;
    // v - 128 per channel as signed bytes, for the dot-product kernel.
    const uint32_t dot = uint32_t((p.bg & 0xFF) ^ 0x80) |
                         uint32_t(((p.bg >> 16) & 0xFF) ^ 0x80) << 8 |
                         uint32_t((p.r & 0xFF) ^ 0x80) << 16;
    sc.run.push_back({win.index(row, bx + i0), p.bg, p.r, int32_t(dot), i0, i1 - i0, j0, j1});
    if (i0 == 0 && i1 == size && j0 == 0 && j1 == size) {
      ++whole;
      continue;
    }
    if (!marked) sc.marks.assign(size_t(size + 1) * size_t(size), 0);
    marked = true;
    ++sc.marks[size_t(j0) * size_t(size) + size_t(i1 - i0 - 1)];
    --sc.marks[size_t(j1) * size_t(size) + size_t(i1 - i0 - 1)];
  }
  if (!marked) {
    std::fill_n(counts, size_t(size) * size_t(size), whole);
  } else {
    sc.marks[size_t(size - 1)] += whole;
    sc.marks[size_t(size) * size_t(size) + size_t(size - 1)] -= whole;
    // The marks summed down the rows, then from the right along each row,
    // which leaves the counts shifted left against the profile as they have
    // always been kept.
    for (int32_t j = 0; j < size; ++j) {
      int32_t* row = counts + size_t(j) * size_t(size);
      const int32_t* marks = sc.marks.data() + size_t(j) * size_t(size);
      int32_t right = 0;
      for (int32_t i = size - 1; i >= 0; --i) {
        right += marks[i];
        row[i] = right;
      }
      if (j > 0)
        for (int32_t i = 0; i < size; ++i) row[i] += row[i - size];
    }
  }

  const int16_t* bg = win.bg.data();
  const int16_t* r0 = win.r0.data();
  if (size_t(whole) == sc.run.size()) {
    // Every pixel covers the whole window: each group of cells is summed
    // over the pixels in registers and stored once.
    sc.sums.resize(size_t(size) * size_t(stride));
    if constexpr (K::kDot) {
      if (!win.prefix.empty()) {
        // Runs of pixels that lie side by side in the planes, and Σ|v|².
        auto& runs = sc.runs;
        runs.clear();
        uint32_t squares = 0;
        for (const RunPixel& p : sc.run) {
          const uint32_t b = uint32_t(p.bg) & 0xFFFF, gr = uint32_t(p.bg) >> 16, r = uint32_t(p.r);
          squares += b * b + gr * gr + r * r;
          if (!runs.empty() && runs.back().at + runs.back().n == p.at)
            ++runs.back().n;
          else
            runs.push_back({p.at, 1});
        }
        for (int32_t j = 0; j < size; ++j)
          for (int32_t i = 0; i < size; i += K::kPixels)
            K::DotSum(sc.run.data(), sc.run.size(), runs.data(), runs.size(), win.bytes.data(),
                      win.prefix.data(), j * win.stride + i, squares, size - i,
                      sc.sums.data() + size_t(j) * size_t(stride) + size_t(i));
      }
    }
    if (!K::kDot || win.prefix.empty())
      for (int32_t j = 0; j < size; ++j)
        for (int32_t i = 0; i < size; i += K::kPixels)
          K::Sum(sc.run.data(), sc.run.size(), bg, r0, j * win.stride + i, size - i,
                 sc.sums.data() + size_t(j) * size_t(stride) + size_t(i));
  } else {
    sc.sums.assign(size_t(size) * size_t(stride), 0);
    for (const RunPixel& p : sc.run)
      for (int32_t j = p.j0; j < p.j1; ++j)
        K::Add(sc.sums.data() + size_t(j) * size_t(stride) + size_t(p.i0), bg, r0,
               p.at + j * win.stride, p.n, p.bg, p.r);
  }

  if (!job.self) {
    g.profile.reset(size, size);
    for (int32_t j = 0; j < size; ++j)
      SumsToDoubles(sc.sums.data() + size_t(j) * size_t(stride), counts + size_t(j) * size_t(size),
                    size, g.profile.row(j));
    g.radius_x = g.radius_y = q;
    return;
  }
  // C with padding that stays zero: only the cells are ever written.
  const int64_t cs = size + kComparePadding;
  const size_t c_cells = size_t(size + 1) * size_t(cs);
  if (sc.c.size() != c_cells) sc.c.assign(c_cells, 0.0);
  for (int32_t j = 0; j < size; ++j)
    SumsToDoubles(sc.sums.data() + size_t(j) * size_t(stride), counts + size_t(j) * size_t(size),
                  size, sc.c.data() + j * cs);
  const int32_t R = q - job.self_radius;
  SelfCompare(sc.c.data(), cs, (*job.self)[s], R, sc.acc, g.profile);
  g.profile_counts = Raster<int32_t>();
  g.radius_x = g.radius_y = R;
}

template <class K>
inline void ScanRange(const ByteScan& job, int32_t lo, int32_t hi) {
  Scratch scratch;
  for (int32_t s = lo; s < hi; ++s)
    if ((*job.scan)[size_t(s)]) ScanSegment<K>(job, size_t(s), scratch);
}

void ScanBaseline(const ByteScan& job, int32_t lo, int32_t hi) {
  ScanRange<Sse2Kernel>(job, lo, hi);
}
[[gnu::target("avx2"), gnu::flatten]] void ScanAvx2(const ByteScan& job, int32_t lo, int32_t hi) {
  ScanRange<Avx2Kernel>(job, lo, hi);
}
[[gnu::target(VL_AVX512), gnu::flatten]] void ScanAvx512(const ByteScan& job,
                                                         int32_t lo,
                                                         int32_t hi) {
  ScanRange<Avx512Kernel>(job, lo, hi);
}

inline void CompareRange(Segmentation& seg,
                         const std::vector<Raster<double>>& self,
                         int32_t R,
                         int32_t r,
                         const std::vector<char>& scan,
                         int32_t lo,
                         int32_t hi) {
  const int32_t csize = 2 * (R + r) + 1;
  const int64_t cs = csize + kComparePadding;
  std::vector<double> c(size_t(csize + 1) * size_t(cs), 0.0), acc;
  for (int32_t s = lo; s < hi; ++s) {
    if (!scan[size_t(s)]) continue;
    GridSegment& g = seg.segments[size_t(s)];
    for (int32_t j = 0; j < csize; ++j) std::copy_n(g.profile.row(j), csize, c.data() + j * cs);
    SelfCompare(c.data(), cs, self[size_t(s)], R, acc, g.profile);
    g.profile_counts = Raster<int32_t>();
    g.radius_x = g.radius_y = R;
  }
}

void CompareBaseline(Segmentation& seg,
                     const std::vector<Raster<double>>& self,
                     int32_t R,
                     int32_t r,
                     const std::vector<char>& scan,
                     int32_t lo,
                     int32_t hi) {
  CompareRange(seg, self, R, r, scan, lo, hi);
}
[[gnu::target("avx2"), gnu::flatten]] void CompareAvx2(Segmentation& seg,
                                                       const std::vector<Raster<double>>& self,
                                                       int32_t R,
                                                       int32_t r,
                                                       const std::vector<char>& scan,
                                                       int32_t lo,
                                                       int32_t hi) {
  CompareRange(seg, self, R, r, scan, lo, hi);
}

bool IsByte(float v) {
  return v >= 0.0f && v <= 255.0f && float(int32_t(v)) == v;
}

// Copies n pixels; false if a value is not a byte. One pixel's four floats
// at a time (alpha ignored): a value outside 0..255, or NaN, is clamped
// before the conversion and then differs from its converted value. With
// `bytes`, also the packed bytes and G(u) of each pixel (see ByteWindow).
bool CopyBytes(const float* p, int64_t n, int16_t* bg, int16_t* r0, uint32_t* bytes, int32_t* g) {
  const __m128 zero = _mm_setzero_ps(), top = _mm_set1_ps(255.0f);
  const __m128i colour = _mm_setr_epi32(-1, -1, -1, 0), alpha = _mm_setr_epi32(0, 0, 0, -1);
  const __m128i shift = _mm_setr_epi16(256, 256, 256, 0, 0, 0, 0, 0);
  __m128i ok = _mm_set1_epi32(-1);
  for (int64_t k = 0; k < n; ++k) {
    const __m128 v = _mm_loadu_ps(p + 4 * k);
    const __m128i i = _mm_and_si128(_mm_cvttps_epi32(_mm_min_ps(_mm_max_ps(v, zero), top)), colour);
    ok = _mm_and_si128(ok,
                       _mm_or_si128(_mm_castps_si128(_mm_cmpeq_ps(_mm_cvtepi32_ps(i), v)), alpha));
    const __m128i packed = _mm_packs_epi32(i, i);  // blue, green, red, 0 as 16 bits
    const int32_t low = _mm_cvtsi128_si32(packed),
                  high = _mm_cvtsi128_si32(_mm_srli_si128(packed, 4));
    std::memcpy(bg + 2 * k, &low, sizeof low);
    std::memcpy(r0 + 2 * k, &high, sizeof high);
    if (bytes) {
      bytes[k] = uint32_t(_mm_cvtsi128_si32(_mm_packus_epi16(packed, packed)));
      // u (u - 256) per channel, paired: blue + green, red + 0.
      const __m128i m = _mm_madd_epi16(packed, _mm_sub_epi16(packed, shift));
      g[k] = _mm_cvtsi128_si32(_mm_add_epi32(m, _mm_srli_si128(m, 4)));
    }
  }
  return _mm_movemask_epi8(ok) == 0xFFFF;
}

}  // namespace

void PlanByteWindow(const img::float_image& im,
                    int64_t row_lo,
                    int64_t row_hi,
                    int64_t col_lo,
                    int64_t col_hi,
                    Isa isa,
                    ByteWindow& out) {
  constexpr int64_t kMargin = Avx512Kernel::kPixels;
  const int64_t w = im.width, h = im.height;
  out.row0 = row_lo;
  if (row_hi < row_lo) {
    out.col0 = 0;
    out.stride = 1;
    out.copied = 0;
    out.count = kMargin;
  } else if (col_hi >= w) {
    out.col0 = 0;
    out.stride = w;
    out.count = (row_hi - row_lo) * w + col_hi + 1 + kMargin;
    out.copied = std::min(out.count, w * h - row_lo * w);
  } else {
    out.col0 = col_lo;
    out.stride = col_hi - col_lo + 1;
    out.copied = (row_hi - row_lo + 1) * out.stride;
    out.count = out.copied + kMargin;
  }
  // Reused buffers: every element is written by the parts.
  const bool dot = isa == Isa::Avx512;
  out.bg.resize(size_t(2 * out.count));
  out.r0.resize(size_t(2 * out.count));
  out.bytes.resize(dot ? size_t(out.count) : 0);
  out.prefix.resize(dot ? size_t(out.count) + 1 : 0);
}

bool FillByteWindow(const img::float_image& im, ByteWindow& out, int part, int parts) {
  const int64_t lo = out.count * part / parts, hi = out.count * (part + 1) / parts;
  const bool dot = !out.prefix.empty();
  // G goes to `prefix` shifted by one, and is summed up within the part.
  auto copy = [&](const float* p, int64_t n, int64_t at) {
    return CopyBytes(p, n, out.bg.data() + 2 * at, out.r0.data() + 2 * at,
                     dot ? out.bytes.data() + at : nullptr,
                     dot ? reinterpret_cast<int32_t*>(out.prefix.data() + 1 + at) : nullptr);
  };
  const int64_t end = std::min(hi, out.copied);
  for (int64_t k = lo; k < end;) {
    // Plane index k is column (k % stride) of row (k / stride) from row0,
    // continuing linearly into the next rows when the rows are whole.
    const int64_t row = out.row0 + k / out.stride, col = out.col0 + k % out.stride;
    const int64_t n = std::min(end - k, out.stride - k % out.stride);
    if (!copy(img::pixel(im, uint32_t(col), uint32_t(row)), n, k)) return false;
    k += n;
  }
  const int64_t zeros = std::max(lo, std::min(hi, out.copied));
  std::fill(out.bg.begin() + 2 * zeros, out.bg.begin() + 2 * hi, int16_t(0));
  std::fill(out.r0.begin() + 2 * zeros, out.r0.begin() + 2 * hi, int16_t(0));
  if (dot) {
    std::fill(out.bytes.begin() + zeros, out.bytes.begin() + hi, 0u);
    std::fill(out.prefix.begin() + 1 + zeros, out.prefix.begin() + 1 + hi, 0u);
    if (part == 0) out.prefix[0] = 0;
    for (int64_t k = lo + 1; k < hi; ++k) out.prefix[size_t(k + 1)] += out.prefix[size_t(k)];
  }
  return true;
}

void FinishByteWindow(ByteWindow& out, int parts) {
  for (int part = 1; part < parts && !out.prefix.empty(); ++part) {
    const int64_t lo = out.count * part / parts, hi = out.count * (part + 1) / parts;
    const uint32_t before = out.prefix[size_t(lo)];
    for (int64_t k = lo; k < hi; ++k) out.prefix[size_t(k + 1)] += before;
  }
}

bool GatherBytePixels(const Segmentation& seg,
                      const img::float_image& first,
                      const std::vector<char>& scan,
                      std::vector<uint32_t>& start,
                      std::vector<ReferencePixel>& pixels) {
  const size_t n = seg.segments.size();
  int64_t x0 = seg.width, y0 = seg.height, x1 = 0, y1 = 0;
  for (size_t s = 0; s < n; ++s) {
    if (!scan[s]) continue;
    const GridSegment& g = seg.segments[s];
    x0 = std::min<int64_t>(x0, g.left);
    y0 = std::min<int64_t>(y0, g.top);
    x1 = std::max<int64_t>(x1, g.right);
    y1 = std::max<int64_t>(y1, g.bottom);
  }
  start.assign(n + 1, 0);
  for (int64_t y = y0; y < y1; ++y)
    for (int64_t x = x0; x < x1; ++x) {
      const int32_t l = seg.label(uint32_t(x), uint32_t(y));
      if (l >= 0 && scan[size_t(l)]) ++start[size_t(l) + 1];
    }
  for (size_t s = 0; s < n; ++s) start[s + 1] += start[s];
  pixels.resize(start[n]);
  std::vector<uint32_t> next(start.begin(), start.end() - 1);
  for (int64_t y = y0; y < y1; ++y)
    for (int64_t x = x0; x < x1; ++x) {
      const int32_t l = seg.label(uint32_t(x), uint32_t(y));
      if (l < 0 || !scan[size_t(l)]) continue;
      const float* p = img::pixel(first, uint32_t(x), uint32_t(y));
      if (!IsByte(p[0]) || !IsByte(p[1]) || !IsByte(p[2])) return false;
      pixels[next[size_t(l)]++] = {int32_t(x), int32_t(y), int32_t(p[0]) | int32_t(p[1]) << 16,
                                   int32_t(p[2])};
    }
  return true;
}

void RunByteScan(const ByteScan& job, Isa isa, int32_t lo, int32_t hi) {
  switch (isa) {
    case Isa::Avx512:
      return ScanAvx512(job, lo, hi);
    case Isa::Avx2:
      return ScanAvx2(job, lo, hi);
    case Isa::Baseline:
      return ScanBaseline(job, lo, hi);
  }
}

void CompareWithSelf(Segmentation& seg,
                     const std::vector<Raster<double>>& self,
                     int32_t R,
                     int32_t r,
                     const std::vector<char>& scan,
                     Isa isa,
                     int32_t lo,
                     int32_t hi) {
  if (isa == Isa::Baseline)
    CompareBaseline(seg, self, R, r, scan, lo, hi);
  else
    CompareAvx2(seg, self, R, r, scan, lo, hi);
}

}  // namespace tracking::detail
