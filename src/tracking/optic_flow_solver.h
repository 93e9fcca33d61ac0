// SPDX-License-Identifier: GPL-3.0-or-later
// Solvers of the pixel-level refinement: they turn the colour residuals of
// the reference pixels into an amendment, a small transformation of the
// motion model in reference coordinates.
//
// Each pixel channel states the brightness constraint n · M(p) = r with
// r = n · p - d / |g|: to cancel the colour error d, the pixel must move by
// d / |g| along its unit gradient n. Two families solve all constraints at
// once:
//  - primary solvers keep the matrix of the normal equations, built once per
//    reference frame, and recompute only the right side per iteration;
//  - extra solvers (estimation method "intensive") drop ignored pixels
//    altogether and refit the point pairs of each pixel channel from scratch.
//
// Call order: resize_normals, set_normals for each sample, prepare; then
// residual and find_amendment by turns.
#pragma once

#include <array>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "base/affine.h"
#include "base/enums.h"

namespace tracking {

using Colour = std::array<float, 4>;  // blue, green, red, alpha, 0.0 to 255.0

// One pixel of the reference frame.
struct FlowSample {
  Colour colour{};
  // The squared gradient summed over all four channels: the colour error
  // that one pixel of displacement causes here.
  float limit = 0;
  uint32_t x = 0, y = 0;
};

// One channel's constraint direction. All zero on flat places (|g|² <= 1e-4),
// which thus carry no weight.
struct FlowNormal {
  float nx = 0, ny = 0;  // unit gradient
  float inv_length = 0;  // 1 / |g|
  float weight = 0;      // |g|² · 2 / 255²
};

class OpticFlowSolver {
 public:
  explicit OpticFlowSolver(std::ostream* log) : log_(log) {}
  OpticFlowSolver(const OpticFlowSolver&) = delete;
  OpticFlowSolver& operator=(const OpticFlowSolver&) = delete;
  virtual ~OpticFlowSolver() = default;

  // "translation", "rigid", "rigid+scale" or "affine".
  virtual std::string_view model_name() const = 0;
  // Three normals per sample: red, green, blue, in this order.
  virtual void resize_normals(size_t samples);
  // The normals of sample `index` at pixel (x, y), from the central
  // differences gx, gy of its four channels (alpha has no normal).
  virtual void set_normals(size_t index,
                           uint32_t x,
                           uint32_t y,
                           const FlowSample& sample,
                           const float gx[4],
                           const float gy[4]);
  // Builds the fixed matrix from the normals (primary solvers only).
  virtual void prepare(std::span<const FlowSample> samples) = 0;
  // Recomputes the right side from the target's colours at the samples (one
  // value per sample) and adapts the portion coefficient. Returns E, the sum
  // over all samples of min(limit, e²), e² the squared colour difference
  // over the four channels.
  virtual double residual(std::span<const FlowSample> samples, std::span<const Colour> values) = 0;
  // Solves for the amendment; a degenerate system gives the identity.
  virtual void find_amendment() = 0;
  // No solver ever declares convergence; the refinement stops on failures.
  virtual bool converged() const { return false; }
  // T := T ∘ amendment.
  virtual void compose(types::affine& t) const { t = t * amendment_; }
  // The limit of accepted error in units of a sample's limit: a sample with
  // e² above limit · coefficient is ignored. Reads as a squared
  // displacement in pixels. Starts at 1.0, then stays a power of 2 >= 1.
  virtual void set_portion(float coefficient) { portion_ = coefficient; }
  virtual float portion() const { return portion_; }
  // The share of samples the last residual ignored, 0 to 1.
  double ignored_share() const { return ignored_share_; }

  const types::affine& amendment() const { return amendment_; }
  // The right side of the normal equations that the last residual left, one
  // value per unknown; empty for solvers that keep none.
  virtual std::span<const double> right_side() const { return {}; }
  std::span<const FlowNormal> normals() const { return normals_; }

 protected:
  // Adapts the coefficient to the share of ignored samples, and logs it.
  void update_portion(size_t ignored, size_t samples);
  // Logs "found amendment:\n", the amendment and a line end.
  void log_amendment() const;

  float portion_ = 1.0f;
  double ignored_share_ = 0;
  types::affine amendment_;
  std::vector<FlowNormal> normals_;
  std::ostream* log_;
};

// For the tests and benchmarks, which hold the fast paths of the measure
// against the plain ones: with `limit`, the measure uses only the baseline
// instruction set, or only the calling thread. Results are the same bits in
// every setting.
void LimitOpticFlowToBaseline(bool limit);
void LimitOpticFlowToOneThread(bool limit);
// What the measure may use now: the AVX2 paths (the processor has them and
// they are not limited), the helper thread.
bool UseAvx2();
bool UseHelperThread();

// The primary solver of a model; null for TransformClass::Affine1, which
// gets no refinement.
std::unique_ptr<OpticFlowSolver> MakePrimarySolver(TransformClass model, std::ostream* log);
// The extra solver of a model; null for TransformClass::Affine1.
std::unique_ptr<OpticFlowSolver> MakeExtraSolver(TransformClass model, std::ostream* log);

}  // namespace tracking
