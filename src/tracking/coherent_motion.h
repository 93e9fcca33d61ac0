// SPDX-License-Identifier: GPL-3.0-or-later
// Coherent motion: one displacement for every grid segment at once, so that
// good matches are kept and neighbouring segments move alike.
//
// Taken alone, a profile's best cell is unreliable: flat segments match
// everywhere and repetitive ones at several places. The search maximises
// F = Fc + mu Fd, the data term Fc (the profiles' values at the chosen
// cells) plus the smoothness term Fd (minus the squared velocity differences
// to the neighbours), then fits the motion model to the chosen velocities,
// pulls the segments back to the model and optimises again.
//
// Usage, once the profiles of a target frame are built:
//   TieBreaker random;                    // one per worker, kept across frames
//   types::affine T = FindMotion(seg, CoherentMotionParamsOf(params), random, &log);
#pragma once

#include <cstdint>
#include <iosfwd>

#include "base/affine.h"
#include "base/segment_params.h"
#include "tracking/segmentation.h"

namespace tracking {

struct CoherentMotionParams {
  float neighbour_weight = 1.0f;  // weight of each neighbour's vote in the first guess
  int max_iterations = 30;        // Jacobi sweeps per iteration; below 0: no search
  float tolerance = 0.01f;        // relative change of mu and F that ends an iteration
  MuMode mu_mode = MuMode::Every;
  float mu = 1000.0f;     // starting weight of the smoothness term
  float mu_ratio = 0.8f;  // share of the data term in F when mu is recomputed, 0 to 1
  TransformClass MotionModel = TransformClass::Affine;
  unsigned matching_passes = 3;  // fit-and-reoptimise rounds
  bool final_positions = false;  // reset the offsets from the final fit as well
};

CoherentMotionParams CoherentMotionParamsOf(const VLSegmentParams& params);

// The random numbers that break ties in the first guess: the range of the C
// library's rand() (0 to 32767) from a fixed seed, private to one worker so
// that a run is reproducible and no other thread disturbs the sequence.
class TieBreaker {
 public:
  static constexpr int kMax = 32767;
  explicit TieBreaker(uint32_t seed = 1) : state_(seed) {}
  int next() {
    state_ = state_ * 1103515245u + 12345u;
    return int((state_ / 65536u) % 32768u);
  }

 private:
  uint32_t state_;
};

// Fc: the sum of every segment's profile value at its present offset.
double MotionQuality(const Segmentation& seg);

// Fc + mu Fd at the present offsets, recomputing `mu` by `mu_mode` (always,
// on the first evaluation only, or never). Logs "mu=...\t\tFc=...\tFd=...".
double Evaluate(const Segmentation& seg,
                const CoherentMotionParams& params,
                double& mu,
                bool first,
                std::ostream* log);

// One Jacobi sweep: every segment moves to the cell that is best for its
// profile and the previous sweep's velocities of its neighbours.
void JacobiStep(Segmentation& seg, double mu);

// The sweep uses AVX2 where the processor has it (the results are the same);
// `limit` keeps it to the baseline, so that the tests can hold both against
// the plain search.
void LimitCoherentMotionToBaseline(bool limit);

// Sweeps until the functional and mu settle, F is exactly 0 (nothing to
// improve) or max_iterations is reached; logs each value of F.
void Iterate(Segmentation& seg, const CoherentMotionParams& params, std::ostream* log);

// The first guess: each segment takes the best cell of its profile plus its
// neighbours' profiles laid over it, weighted by neighbour_weight; equal
// cells are chosen among uniformly.
void InitialApproximation(Segmentation& seg, float neighbour_weight, TieBreaker& random);

// The whole search and the model fit; returns the segments' transformation
// relative to the reference frame (the identity below 10 segments). Throws
// std::invalid_argument when a profile is missing or does not fit its radii.
types::affine FindMotion(Segmentation& seg,
                         const CoherentMotionParams& params,
                         TieBreaker& random,
                         std::ostream* log);

}  // namespace tracking
