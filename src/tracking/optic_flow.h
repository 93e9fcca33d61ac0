// SPDX-License-Identifier: GPL-3.0-or-later
// Pixel-level refinement ("optic flow" in the log): improves a candidate
// transformation from the reference frame to a target frame on the pixels
// themselves, and measures the discrepancy by which the frame loop compares
// candidates.
//
// A Gauss-Newton style iteration on normal flow: every masked pixel and
// colour channel says how far the pixel must move along its gradient to
// match the target, and a solver finds the transformation of the motion
// model that satisfies all of them best. Pixels that cannot match (covered by
// something else) are ignored through a threshold that adapts itself.
//
// Usage, once per reference frame and then for every candidate of every
// target:
//
//   OpticFlow flow(&log);
//   if (!flow.initialise(identity, reference, mask, model, intensive)) -> mask is singular
//   flow.set(candidate, -1);
//   flow.optimise_once(target, iterations, timer);
//   use flow.transformation(), flow.discrepancy()
//
// Initialising again on the same object carries the solver's portion
// coefficient over to the new reference frame; a fresh object starts at 1.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <vector>

#include "base/affine.h"
#include "base/enums.h"
#include "imaging/bitmap.h"
#include "imaging/float_image.h"
#include "tracking/optic_flow_solver.h"
#include "tracking/stage_timer.h"

namespace tracking {

class OpticFlow {
 public:
  // `log` (may be null) receives the refinement's diagnostics.
  explicit OpticFlow(std::ostream* log = nullptr);
  ~OpticFlow();
  OpticFlow(const OpticFlow&) = delete;
  OpticFlow& operator=(const OpticFlow&) = delete;

  // Takes the samples of `reference` under `mask` and builds the solvers of
  // `model` (and its extra solver when `with_extra_solver`). Sets
  // `transformation` with an unmeasured discrepancy. Returns false when the
  // picture is too small (11 pixels or less across after the margins) or no
  // mask pixel is usable; the object must then be initialised again before
  // any measure. A model without solver (TransformClass::Affine1) succeeds
  // but refines nothing and measures 0. Throws xtd::exception when mask and
  // reference differ in size.
  bool initialise(const types::affine& transformation,
                  const img::float_image& reference,
                  const img::bitmap<img::bit1>& mask,
                  TransformClass model,
                  bool with_extra_solver);

  // Makes these the current transformation and discrepancy (negative: not
  // measured); the amendment becomes the identity.
  void set(const types::affine& transformation, double discrepancy);

  // The root mean square colour error per channel, in grey levels, of the
  // current transformation on `target`, with each pixel's error capped by its
  // limit. Stores and returns it, leaves the solver's right side for the next
  // amendment, and may change the portion coefficient. Infinite (or NaN) when
  // every sample has left the picture. Throws xtd::exception when `target`
  // differs in size from the reference.
  double measure(const img::float_image& target, StageTimer* timer);

  // Up to `iterations` amendments, keeping the best state; stops after 5
  // steps in a row without improvement.
  void optimise_once(const img::float_image& target, int iterations, StageTimer* timer);

  // optimise_once with the primary solver, then again with the extra solver
  // if there is one, measured afresh.
  void optimise(const img::float_image& target, int iterations, StageTimer* timer);

  const types::affine& transformation() const { return state_.transformation; }
  const types::affine& amendment() const { return state_.amendment; }
  double discrepancy() const { return state_.discrepancy; }
  // The primary solver's portion coefficient (1 without one), and the share
  // of samples its last measure ignored (0 without one). Setting the
  // coefficient back lets a caller try a candidate and undo its measure.
  float portion() const { return solver_ ? solver_->portion() : 1.0f; }
  void set_portion(float coefficient) {
    if (solver_) solver_->set_portion(coefficient);
  }
  double ignored_share() const { return solver_ ? solver_->ignored_share() : 0.0; }

  std::span<const FlowSample> samples() const { return samples_; }
  // The primary solver; null before initialising and for a model without one.
  const OpticFlowSolver* solver() const { return solver_.get(); }

 private:
  struct State {
    types::affine transformation;
    types::affine amendment;
    double discrepancy = -1;
  };

  void log_value(double v);

  std::ostream* log_;
  std::unique_ptr<OpticFlowSolver> solver_;
  std::unique_ptr<OpticFlowSolver> extra_solver_;
  uint32_t width_ = 0, height_ = 0;
  std::vector<FlowSample> samples_;
  State state_;
  std::vector<Colour> values_;  // the target's colours at the samples, one slot each
};

// The target's colours at the samples mapped by `t`, as the measure sees
// them: the mapped position goes through a single-precision store, edges are
// flagged asymmetrically (left and top when below 0, right when beyond
// width - 1, bottom from height - 1 on), and flagged samples read black.
// Returns the number of samples that lie fully inside.
// Reads the samples four at a time with the processor's wider vectors where
// it has them, and splits large sets between two threads; the bits are those
// of the one-at-a-time reading either way.
size_t SampleTarget(const img::float_image& target,
                    const types::affine& t,
                    std::span<const FlowSample> samples,
                    std::span<Colour> values);

}  // namespace tracking
