// SPDX-License-Identifier: GPL-3.0-or-later
// Least-squares fits of a motion model to weighted point pairs (p moves to q).
//
// Each model has a closed form on moments, so an accumulator keeps a few
// double sums and the pairs themselves are never stored. Block matching adds
// one pair per grid segment; the intensive pixel refinement adds one pair per
// pixel channel.
//
// Every solve returns its parameters rounded to 32-bit floats (widened back
// to doubles in the affine): stored transformations carry the single
// precision of their measurement, and results are compared bit for bit.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <span>

#include "base/affine.h"
#include "base/enums.h"

namespace tracking {

struct Point {
  double x = 0, y = 0;
};

// Pure translation: t = Σ w (q - p) / Σ w, or no shift at all without weight.
class TranslationFit {
 public:
  void add(Point p, Point q, double w);
  void clear() { *this = TranslationFit(); }
  // Never fails; with no weight the result is the identity.
  bool solve(types::affine& out) const;

 private:
  double sw_ = 0, sdx_ = 0, sdy_ = 0;
};

// Rotation (and scale) with shift: the models rigid and rigid+scale share
// these moments.
class SimilarityFit {
 public:
  void add(Point p, Point q, double w);
  void clear() { *this = SimilarityFit(); }
  // a = d = u, c = v, b = -v. False (out untouched) without weight or when
  // all points p coincide.
  bool solve_rigid_scale(types::affine& out) const;
  // As above with u² + v² = 1; the matrix comes from the cosine and sine of
  // one angle, so it is orthogonal up to rounding. False without weight or
  // when the centred sums vanish.
  bool solve_rigid(types::affine& out) const;

 private:
  double sqx_ = 0, sqy_ = 0, spx_ = 0, spy_ = 0;
  double dot_ = 0, cross_ = 0, sw_ = 0, pp_ = 0;
};

// All six parameters. False (out untouched) without weight or when the
// points p are collinear.
class AffineFit {
 public:
  void add(Point p, Point q, double w);
  void clear() { *this = AffineFit(); }
  bool solve(types::affine& out) const;

 private:
  double sqx_ = 0, sqy_ = 0, spx_ = 0, spy_ = 0;
  double cxx_ = 0, cxy_ = 0, cyy_ = 0;
  double mxx_ = 0, mxy_ = 0, myx_ = 0, myy_ = 0;
  double sw_ = 0;
};

// One grid segment as the point-set match sees it: its centre of gravity and
// the whole-pixel velocity the coherent motion chose for it.
struct SegmentMotion {
  double centre_x = 0, centre_y = 0;
  int32_t velocity_x = 0, velocity_y = 0;
};

// Fits `model` to one pair per segment, p = centre, q = centre + velocity,
// weight 1, and writes the result to `out`. The model without a log name
// (TransformClass::Affine1) does nothing and leaves `out` as it is. A
// degenerate set (fewer than three distinct centres, say) gives the identity:
// the frame loop always needs a usable transformation. `log` (may be null)
// receives "Matching point sets with <model> motion...\n" and the result on
// one line.
void match(std::span<const SegmentMotion> segments,
           TransformClass model,
           types::affine& out,
           std::ostream* log);

}  // namespace tracking
