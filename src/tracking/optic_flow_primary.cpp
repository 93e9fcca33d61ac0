// SPDX-License-Identifier: GPL-3.0-or-later
// The primary optic-flow solvers: the normal equations of the brightness
// constraints, with the matrix built once per reference frame and only the
// right side recomputed in each iteration.
//
// One class template serves the four models; a model supplies its row (the
// coefficients of its unknowns in n · M(p)) and its solve. The translation
// (tx, ty) always comes first, and the models with more unknowns eliminate it
// through the 2 by 2 block before solving the rest.
#include <algorithm>
#include <cmath>
#include <vector>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include "tracking/optic_flow_solver.h"
#include "tracking/unit_circle.h"

namespace tracking {

namespace {

template <size_t N>
struct Equations {
  double H[N][N] = {};  // symmetric
  double B[N] = {};     // Σ w (n · p) row: the right side of a pixel that does not move
  double g[N] = {};     // Σ w r row
};

// The translation eliminated: S = R - Qᵀ P⁻¹ Q and b = g₂ - Qᵀ P⁻¹ g₁ on the
// K remaining unknowns, with what back-substitution needs.
template <size_t K>
struct Reduced {
  double S[K][K];
  double b[K];
  double pinv_g[2];     // P⁻¹ g₁
  double pinv_q[2][K];  // P⁻¹ Q
};

template <size_t K>
bool EliminateTranslation(const Equations<K + 2>& eq, Reduced<K>& out) {
  const auto& H = eq.H;
  const double det = H[0][0] * H[1][1] - H[0][1] * H[0][1];
  if (det <= 0) return false;
  const double pinv[2][2] = {{H[1][1] / det, -H[0][1] / det}, {-H[0][1] / det, H[0][0] / det}};
  for (size_t m = 0; m < 2; ++m) {
    out.pinv_g[m] = pinv[m][0] * eq.g[0] + pinv[m][1] * eq.g[1];
    for (size_t j = 0; j < K; ++j)
      out.pinv_q[m][j] = pinv[m][0] * H[0][2 + j] + pinv[m][1] * H[1][2 + j];
  }
  for (size_t j = 0; j < K; ++j) {
    for (size_t l = 0; l < K; ++l)
      out.S[j][l] =
          H[2 + j][2 + l] - (H[0][2 + j] * out.pinv_q[0][l] + H[1][2 + j] * out.pinv_q[1][l]);
    out.b[j] = eq.g[2 + j] - (H[0][2 + j] * out.pinv_g[0] + H[1][2 + j] * out.pinv_g[1]);
  }
  return true;
}

// t = P⁻¹ (g₁ - Q w).
template <size_t K>
void BackSubstitute(const Reduced<K>& r, const double w[K], double t[2]) {
  for (size_t m = 0; m < 2; ++m) {
    double qw = 0;
    for (size_t j = 0; j < K; ++j) qw += r.pinv_q[m][j] * w[j];
    t[m] = r.pinv_g[m] - qw;
  }
}

// Determinant and inverse of a 4 by 4 matrix by cofactors.
double Invert4(const double m[4][4], double inv[4][4]) {
  double cof[4][4];
  for (int i = 0; i < 4; ++i) {
    for (int j = 0; j < 4; ++j) {
      double minor[3][3];
      for (int r = 0, mr = 0; r < 4; ++r) {
        if (r == i) continue;
        for (int c = 0, mc = 0; c < 4; ++c) {
          if (c == j) continue;
          minor[mr][mc++] = m[r][c];
        }
        ++mr;
      }
      const double d3 = minor[0][0] * (minor[1][1] * minor[2][2] - minor[1][2] * minor[2][1]) -
                        minor[0][1] * (minor[1][0] * minor[2][2] - minor[1][2] * minor[2][0]) +
                        minor[0][2] * (minor[1][0] * minor[2][1] - minor[1][1] * minor[2][0]);
      cof[i][j] = ((i + j) % 2 ? -d3 : d3);
    }
  }
  const double det =
      m[0][0] * cof[0][0] + m[0][1] * cof[0][1] + m[0][2] * cof[0][2] + m[0][3] * cof[0][3];
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < 4; ++j) inv[i][j] = cof[j][i] / det;
  return det;
}

#if defined(__x86_64__)
// The right side in vector registers: lanes 0 to 3 hold g[0..3], `high`
// g[4..5] (g[0..1] for translation). Each model's Add does what the plain
// residual does for the channels of one sample, g[j] += f * row[j], channel
// 0 first, with the row's products computed as the plain row computes them,
// so every lane sees the same operations in the same order.
struct RightSide {
  __m256d low;
  __m128d high;
};

// One sample's three channels side by side, lane k for normal 3i + k.
struct Lanes {
  __m256d nx, ny;
  __m256d nx_x, nx_y, ny_x, ny_y;  // n.nx * x and so on, in double
  __m256d np;                      // nx x + ny y
};

// Lane k of v in every lane.
template <int k>
[[gnu::target("avx2")]] inline __m256d Broadcast(__m256d v) {
  return _mm256_permute4x64_pd(v, k * 0x55);
}

// The rows of channels 0, 1, 2 from four lane vectors: a 4 by 4 transpose
// whose fourth row is not needed.
[[gnu::target("avx2")]] inline void Transpose(
    __m256d a, __m256d b, __m256d c, __m256d d, __m256d rows[3]) {
  const __m256d ab0 = _mm256_unpacklo_pd(a, b), ab1 = _mm256_unpackhi_pd(a, b);
  const __m256d cd0 = _mm256_unpacklo_pd(c, d), cd1 = _mm256_unpackhi_pd(c, d);
  rows[0] = _mm256_permute2f128_pd(ab0, cd0, 0x20);
  rows[1] = _mm256_permute2f128_pd(ab1, cd1, 0x20);
  rows[2] = _mm256_permute2f128_pd(ab0, cd0, 0x31);
}

// g += f_k row_k for the part of the right side that `rows` covers.
template <int k>
[[gnu::target("avx2")]] inline void AddLow(RightSide& g, __m256d f, const __m256d rows[3]) {
  g.low = _mm256_add_pd(g.low, _mm256_mul_pd(Broadcast<k>(f), rows[k]));
}
template <int k>
[[gnu::target("avx2")]] inline void AddHigh(RightSide& g, __m256d f, const __m128d rows[3]) {
  g.high = _mm_add_pd(g.high, _mm_mul_pd(_mm256_castpd256_pd128(Broadcast<k>(f)), rows[k]));
}

// Lanes 0 and 1 of a and b as pairs (a0, b0), (a1, b1), and lanes 2 as (a2, b2).
[[gnu::target("avx2")]] inline void Pairs(__m256d a, __m256d b, __m128d pairs[3]) {
  const __m256d lo = _mm256_unpacklo_pd(a, b), hi = _mm256_unpackhi_pd(a, b);
  pairs[0] = _mm256_castpd256_pd128(lo);
  pairs[1] = _mm256_castpd256_pd128(hi);
  pairs[2] = _mm256_extractf128_pd(lo, 1);
}
#endif

struct TranslationModel {
  static constexpr size_t kUnknowns = 2;
  static constexpr std::string_view kName = "translation";
  static void Row(const FlowNormal& n, double /*x*/, double /*y*/, double row[2]) {
    row[0] = n.nx;
    row[1] = n.ny;
  }
#if defined(__x86_64__)
  [[gnu::target("avx2")]] static void Add(RightSide& g,
                                          const Lanes& l,
                                          __m256d f,
                                          unsigned active) {
    __m128d rows[3];
    Pairs(l.nx, l.ny, rows);
    if (active & 1) AddHigh<0>(g, f, rows);
    if (active & 2) AddHigh<1>(g, f, rows);
    if (active & 4) AddHigh<2>(g, f, rows);
  }
  [[gnu::target("avx2")]] static void Store(const RightSide& g, double out[2]) {
    _mm_storeu_pd(out, g.high);
  }
#endif
  // A t = C - B; a singular A (all gradients along one line) leaves t = 0.
  static bool Solve(const Equations<2>& eq, types::affine& m) {
    const auto& A = eq.H;
    const double det = A[0][0] * A[1][1] - A[0][1] * A[0][1];
    double t[2] = {0, 0};
    if (det > 0) {
      const double r0 = eq.g[0] - eq.B[0], r1 = eq.g[1] - eq.B[1];
      t[0] = (A[1][1] * r0 - A[0][1] * r1) / det;
      t[1] = (A[0][0] * r1 - A[0][1] * r0) / det;
    }
    m = types::affine::translation(t[0], t[1]);
    return true;
  }
};

// Unknowns tx, ty, u, v of M(p) = (u x - v y + tx, v x + u y + ty).
struct RigidScaleModel {
  static constexpr size_t kUnknowns = 4;
  static constexpr std::string_view kName = "rigid+scale";
  static void Row(const FlowNormal& n, double x, double y, double row[4]) {
    row[0] = n.nx;
    row[1] = n.ny;
    row[2] = n.nx * x + n.ny * y;
    row[3] = x * n.ny - y * n.nx;
  }
#if defined(__x86_64__)
  [[gnu::target("avx2")]] static void Add(RightSide& g,
                                          const Lanes& l,
                                          __m256d f,
                                          unsigned active) {
    // x ny - y nx: each product commutes exactly.
    __m256d rows[3];
    Transpose(l.nx, l.ny, l.np, _mm256_sub_pd(l.ny_x, l.nx_y), rows);
    if (active & 1) AddLow<0>(g, f, rows);
    if (active & 2) AddLow<1>(g, f, rows);
    if (active & 4) AddLow<2>(g, f, rows);
  }
  [[gnu::target("avx2")]] static void Store(const RightSide& g, double out[4]) {
    _mm256_storeu_pd(out, g.low);
  }
#endif
  static bool Solve(const Equations<4>& eq, types::affine& m) {
    Reduced<2> r;
    if (!EliminateTranslation(eq, r)) return false;
    const double det = r.S[0][0] * r.S[1][1] - r.S[0][1] * r.S[1][0];
    if (det <= 0) return false;
    const double w[2] = {(r.S[1][1] * r.b[0] - r.S[0][1] * r.b[1]) / det,
                         (r.S[0][0] * r.b[1] - r.S[1][0] * r.b[0]) / det};
    double t[2];
    BackSubstitute(r, w, t);
    m = {t[0], t[1], w[0], -w[1], w[1], w[0]};
    return true;
  }
};

// The same sums as rigid+scale, with u² + v² = 1 solved exactly.
struct RigidModel {
  static constexpr size_t kUnknowns = 4;
  static constexpr std::string_view kName = "rigid";
  static void Row(const FlowNormal& n, double x, double y, double row[4]) {
    RigidScaleModel::Row(n, x, y, row);
  }
#if defined(__x86_64__)
  static constexpr auto Add = RigidScaleModel::Add;
  static constexpr auto Store = RigidScaleModel::Store;
#endif
  static bool Solve(const Equations<4>& eq, types::affine& m) {
    Reduced<2> r;
    if (!EliminateTranslation(eq, r)) return false;
    const double det = r.S[0][0] * r.S[1][1] - r.S[0][1] * r.S[1][0];
    if (det <= 0) return false;
    double w[2];
    if (!MinimiseOnUnitCircle(r.S[0][0], r.S[0][1], r.S[1][1], r.b[0], r.b[1], w)) return false;
    const double angle = std::atan2(w[1], w[0]);
    const double uv[2] = {std::cos(angle), std::sin(angle)};
    double t[2];
    BackSubstitute(r, uv, t);
    m = {t[0], t[1], uv[0], -uv[1], uv[1], uv[0]};
    return true;
  }
};

// Unknowns tx, ty, a, b, c, d.
struct AffineModel {
  static constexpr size_t kUnknowns = 6;
  static constexpr std::string_view kName = "affine";
  static void Row(const FlowNormal& n, double x, double y, double row[6]) {
    row[0] = n.nx;
    row[1] = n.ny;
    row[2] = n.nx * x;
    row[3] = n.nx * y;
    row[4] = n.ny * x;
    row[5] = n.ny * y;
  }
#if defined(__x86_64__)
  [[gnu::target("avx2")]] static void Add(RightSide& g,
                                          const Lanes& l,
                                          __m256d f,
                                          unsigned active) {
    __m256d rows[3];
    Transpose(l.nx, l.ny, l.nx_x, l.nx_y, rows);
    __m128d tails[3];
    Pairs(l.ny_x, l.ny_y, tails);
    if (active & 1) AddLow<0>(g, f, rows), AddHigh<0>(g, f, tails);
    if (active & 2) AddLow<1>(g, f, rows), AddHigh<1>(g, f, tails);
    if (active & 4) AddLow<2>(g, f, rows), AddHigh<2>(g, f, tails);
  }
  [[gnu::target("avx2")]] static void Store(const RightSide& g, double out[6]) {
    _mm256_storeu_pd(out, g.low);
    _mm_storeu_pd(out + 4, g.high);
  }
#endif
  static bool Solve(const Equations<6>& eq, types::affine& m) {
    Reduced<4> r;
    if (!EliminateTranslation(eq, r)) return false;
    double inv[4][4];
    if (!(Invert4(r.S, inv) > 0)) return false;
    double w[4];
    for (int j = 0; j < 4; ++j)
      w[j] = inv[j][0] * r.b[0] + inv[j][1] * r.b[1] + inv[j][2] * r.b[2] + inv[j][3] * r.b[3];
    double t[2];
    BackSubstitute(r, w, t);
    m = {t[0], t[1], w[0], w[1], w[2], w[3]};
    return true;
  }
};

template <class Model>
class PrimarySolver final : public OpticFlowSolver {
  static constexpr size_t N = Model::kUnknowns;

 public:
  using OpticFlowSolver::OpticFlowSolver;

  std::string_view model_name() const override { return Model::kName; }

  void prepare(std::span<const FlowSample> samples) override {
    eq_ = Equations<N>{};
    for (size_t i = 0; i < samples.size(); ++i) {
      const double x = samples[i].x, y = samples[i].y;
      for (size_t k = 0; k < 3; ++k) {
        const FlowNormal& n = normals_[3 * i + k];
        if (!(n.weight > 0)) continue;
        double row[N];
        Model::Row(n, x, y, row);
        const double w = n.weight;
        const double np = n.nx * x + n.ny * y;
        for (size_t j = 0; j < N; ++j) {
          for (size_t l = j; l < N; ++l) eq_.H[j][l] += w * row[j] * row[l];
          eq_.B[j] += w * np * row[j];
        }
      }
    }
    for (size_t j = 0; j < N; ++j)
      for (size_t l = 0; l < j; ++l) eq_.H[j][l] = eq_.H[l][j];
    lanes_.assign(samples.size(), ChannelLanes{});
    for (size_t i = 0; i < samples.size(); ++i) {
      ChannelLanes& c = lanes_[i];
      for (size_t k = 0; k < 3; ++k) {
        const FlowNormal& n = normals_[3 * i + k];
        c.nx[k] = n.nx;
        c.ny[k] = n.ny;
        c.inv[k] = n.inv_length;
        c.weight[k] = n.weight;
        if (n.weight > 0) c.active |= 1u << k;
      }
    }
  }

  double residual(std::span<const FlowSample> samples, std::span<const Colour> values) override {
    double g[N] = {};
    size_t ignored = 0;
#if defined(__x86_64__)
    // The vector path reads the normals as prepare laid them out.
    const double E = UseAvx2() && lanes_.size() == samples.size()
                         ? ResidualAvx2(samples, values, g, ignored)
                         : ResidualPlain(samples, values, g, ignored);
#else
    const double E = ResidualPlain(samples, values, g, ignored);
#endif
    std::copy(g, g + N, eq_.g);
    update_portion(ignored, samples.size());
    return E;
  }

  std::span<const double> right_side() const override {
    return eq_.g;
  }

  void find_amendment() override {
    // A failed solve must leave the transformation as it is, so that the
    // refinement's failure count ends the run.
    if (!Model::Solve(eq_, amendment_)) amendment_ = types::affine::identity();
    log_amendment();
  }

  // One sample and one channel at a time. The sums over the samples keep
  // this order in every path: results are compared bit for bit.
  double ResidualPlain(std::span<const FlowSample> samples,
                       std::span<const Colour> values,
                       double g[N],
                       size_t& ignored) const {
    double E = 0;
    const float coefficient = portion_;
    for (size_t i = 0; i < samples.size(); ++i) {
      const FlowSample& s = samples[i];
      float d[4];
      for (int c = 0; c < 4; ++c) d[c] = values[i][c] - s.colour[c];
      const float e2 = d[0] * d[0] + d[1] * d[1] + d[2] * d[2] + d[3] * d[3];
      if (e2 > s.limit * coefficient) {
        // An ignored pixel votes for no change rather than for nothing.
        ++ignored;
        d[0] = d[1] = d[2] = 0;
      }
      const double x = s.x, y = s.y;
      for (size_t k = 0; k < 3; ++k) {
        const FlowNormal& n = normals_[3 * i + k];
        if (!(n.weight > 0)) continue;
        const double r = n.nx * x + n.ny * y - double(d[2 - k]) * n.inv_length;
        const double f = n.weight * r;
        double row[N];
        Model::Row(n, x, y, row);
        for (size_t j = 0; j < N; ++j) g[j] += f * row[j];
      }
      E += std::min(s.limit, e2);
    }
    return E;
  }

#if defined(__x86_64__)
  // The same terms in the same order, with the right side in two vector
  // registers: each sum is one lane, so the sums' order is that of the plain
  // form. A sample's three channels are worked out side by side from the
  // normals laid out by channel (`lanes_`); the chain of additions into the
  // sums is what bounds this loop.
  [[gnu::target("avx2")]] double ResidualAvx2(std::span<const FlowSample> samples,
                                              std::span<const Colour> values,
                                              double g[N],
                                              size_t& ignored) const {
    RightSide sums{_mm256_setzero_pd(), _mm_setzero_pd()};
    double E = 0;
    size_t dropped = 0;
    const __m128 coefficient = _mm_set_ss(portion_);
    const __m128 colour_lanes = _mm_castsi128_ps(_mm_setr_epi32(-1, -1, -1, 0));
    for (size_t i = 0; i < samples.size(); ++i) {
      const FlowSample& s = samples[i];
      const ChannelLanes& c = lanes_[i];
      __m128 d4 = _mm_sub_ps(_mm_loadu_ps(values[i].data()), _mm_loadu_ps(s.colour.data()));
      // ((d0² + d1²) + d2²) + d3², as the plain sum runs.
      const __m128 sq = _mm_mul_ps(d4, d4);
      __m128 e2 = _mm_add_ss(sq, _mm_movehdup_ps(sq));
      e2 = _mm_add_ss(e2, _mm_movehl_ps(sq, sq));
      e2 = _mm_add_ss(e2, _mm_shuffle_ps(sq, sq, 3));
      const __m128 limit = _mm_load_ss(&s.limit);
      // An ignored pixel votes for no change: its colour differences are 0.
      const __m128 ignore = _mm_cmp_ss(e2, _mm_mul_ss(limit, coefficient), _CMP_GT_OQ);
      dropped += size_t(_mm_movemask_ps(ignore) & 1);
      d4 = _mm_andnot_ps(_mm_and_ps(_mm_shuffle_ps(ignore, ignore, 0), colour_lanes), d4);
      // std::min(limit, e2) is limit unless e2 < limit.
      E += double(_mm_cvtss_f32(_mm_min_ss(e2, limit)));

      const __m256d x = _mm256_set1_pd(double(s.x)), y = _mm256_set1_pd(double(s.y));
      Lanes l;
      l.nx = _mm256_cvtps_pd(_mm_load_ps(c.nx));
      l.ny = _mm256_cvtps_pd(_mm_load_ps(c.ny));
      l.nx_x = _mm256_mul_pd(l.nx, x);
      l.nx_y = _mm256_mul_pd(l.nx, y);
      l.ny_x = _mm256_mul_pd(l.ny, x);
      l.ny_y = _mm256_mul_pd(l.ny, y);
      l.np = _mm256_add_pd(l.nx_x, l.ny_y);
      // Channel k takes the difference of colour 2 - k.
      const __m256d d = _mm256_cvtps_pd(_mm_shuffle_ps(d4, d4, _MM_SHUFFLE(3, 0, 1, 2)));
      const __m256d r = _mm256_sub_pd(l.np, _mm256_mul_pd(d, _mm256_cvtps_pd(_mm_load_ps(c.inv))));
      const __m256d f = _mm256_mul_pd(_mm256_cvtps_pd(_mm_load_ps(c.weight)), r);
      Model::Add(sums, l, f, c.active);
    }
    Model::Store(sums, g);
    ignored = dropped;
    _mm256_zeroupper();
    return E;
  }
#endif

 private:
  // The normals of a sample by channel, for the vector path; lane 3 unused.
  struct alignas(16) ChannelLanes {
    float nx[4], ny[4], inv[4], weight[4];
    unsigned active;  // bit k: normal 3i + k has weight
  };

  Equations<N> eq_;
  std::vector<ChannelLanes> lanes_;
};

}  // namespace

std::unique_ptr<OpticFlowSolver> MakePrimarySolver(TransformClass model, std::ostream* log) {
  switch (model) {
    case TransformClass::Translation:
      return std::make_unique<PrimarySolver<TranslationModel>>(log);
    case TransformClass::Rigid:
      return std::make_unique<PrimarySolver<RigidModel>>(log);
    case TransformClass::RigidScale:
      return std::make_unique<PrimarySolver<RigidScaleModel>>(log);
    case TransformClass::Affine:
      return std::make_unique<PrimarySolver<AffineModel>>(log);
    default:
      return nullptr;
  }
}

}  // namespace tracking
