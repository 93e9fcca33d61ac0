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

struct TranslationModel {
  static constexpr size_t kUnknowns = 2;
  static constexpr std::string_view kName = "translation";
  static void Row(const FlowNormal& n, double /*x*/, double /*y*/, double row[2]) {
    row[0] = n.nx;
    row[1] = n.ny;
  }
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
  }

  double residual(std::span<const FlowSample> samples, std::span<const Colour> values) override {
    double g[N] = {};
    double E = 0;
    size_t ignored = 0;
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
    std::copy(g, g + N, eq_.g);
    update_portion(ignored, samples.size());
    return E;
  }

  void find_amendment() override {
    // A failed solve must leave the transformation as it is, so that the
    // refinement's failure count ends the run.
    if (!Model::Solve(eq_, amendment_)) amendment_ = types::affine::identity();
    log_amendment();
  }

 private:
  Equations<N> eq_;
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
