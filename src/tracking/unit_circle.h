// SPDX-License-Identifier: GPL-3.0-or-later
// The exact minimum of a quadratic form on the unit circle, which the rigid
// optic-flow solver needs once the shift has been eliminated.
#pragma once

namespace tracking {

// Minimises wᵀ S w - 2 bᵀ w over |w| = 1 for a symmetric S (s01 = s10).
// S is diagonalised in closed form; the Lagrange multiplier solves a quartic
// (through its resolvent cubic); among the real roots the w of the smallest
// value wins, the first one on a tie. False when no root gives a finite w
// (b = 0 exactly, for instance, where every point of an eigen-direction is
// a candidate). Roots whose w misses the circle by more than 1e-6 in |w|²
// are rounding artefacts and are passed over.
bool MinimiseOnUnitCircle(double s00, double s01, double s11, double b0, double b1, double w[2]);

}  // namespace tracking
