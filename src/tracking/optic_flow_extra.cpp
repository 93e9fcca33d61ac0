// SPDX-License-Identifier: GPL-3.0-or-later
// The extra optic-flow solvers of the estimation method "intensive": each
// accepted pixel channel becomes a weighted point pair p → p - (d / |g|) n,
// ignored pixels drop out altogether, and the point-set fit of the model is
// solved from scratch at every iteration.
#include <algorithm>

#include "tracking/optic_flow_solver.h"
#include "tracking/point_set_fit.h"

namespace tracking {

namespace {

struct TranslationFitModel {
  using Fit = TranslationFit;
  static constexpr std::string_view kName = "translation";
  static bool Solve(const Fit& fit, types::affine& m) { return fit.solve(m); }
};
struct RigidFitModel {
  using Fit = SimilarityFit;
  static constexpr std::string_view kName = "rigid";
  static bool Solve(const Fit& fit, types::affine& m) { return fit.solve_rigid(m); }
};
struct RigidScaleFitModel {
  using Fit = SimilarityFit;
  static constexpr std::string_view kName = "rigid+scale";
  static bool Solve(const Fit& fit, types::affine& m) { return fit.solve_rigid_scale(m); }
};
struct AffineFitModel {
  using Fit = AffineFit;
  static constexpr std::string_view kName = "affine";
  static bool Solve(const Fit& fit, types::affine& m) { return fit.solve(m); }
};

template <class Model>
class ExtraSolver final : public OpticFlowSolver {
 public:
  using OpticFlowSolver::OpticFlowSolver;

  std::string_view model_name() const override { return Model::kName; }

  void prepare(std::span<const FlowSample>) override {}

  double residual(std::span<const FlowSample> samples, std::span<const Colour> values) override {
    fit_.clear();
    double E = 0;
    size_t ignored = 0;
    const float coefficient = portion_;
    for (size_t i = 0; i < samples.size(); ++i) {
      const FlowSample& s = samples[i];
      float d[4];
      for (int c = 0; c < 4; ++c) d[c] = values[i][c] - s.colour[c];
      const float e2 = d[0] * d[0] + d[1] * d[1] + d[2] * d[2] + d[3] * d[3];
      if (e2 <= s.limit * coefficient) {
        const Point p{double(s.x), double(s.y)};
        for (size_t k = 0; k < 3; ++k) {
          const FlowNormal& n = normals_[3 * i + k];
          if (!(n.weight > 0)) continue;
          const double move = double(d[2 - k]) * n.inv_length;
          fit_.add(p, Point{p.x - move * n.nx, p.y - move * n.ny}, n.weight);
        }
      } else {
        ++ignored;
      }
      E += std::min(s.limit, e2);
    }
    update_portion(ignored, samples.size());
    return E;
  }

  void find_amendment() override {
    if (!Model::Solve(fit_, amendment_)) amendment_ = types::affine::identity();
    log_amendment();
  }

 private:
  typename Model::Fit fit_;
};

}  // namespace

std::unique_ptr<OpticFlowSolver> MakeExtraSolver(TransformClass model, std::ostream* log) {
  switch (model) {
    case TransformClass::Translation:
      return std::make_unique<ExtraSolver<TranslationFitModel>>(log);
    case TransformClass::Rigid:
      return std::make_unique<ExtraSolver<RigidFitModel>>(log);
    case TransformClass::RigidScale:
      return std::make_unique<ExtraSolver<RigidScaleFitModel>>(log);
    case TransformClass::Affine:
      return std::make_unique<ExtraSolver<AffineFitModel>>(log);
    default:
      return nullptr;
  }
}

}  // namespace tracking
