// SPDX-License-Identifier: GPL-3.0-or-later
// Removal of keyframes that the host's linear interpolation reproduces
// within a tolerance.
//
// Each routine is a one-pass greedy walk: from each kept key it tries ever
// farther candidates for the next kept key, stops at the first candidate
// whose skipped keys do not fit, and takes the candidate with the best
// (worst error) / (skipped keys)^2. Interpolation time is the frame number,
// not the index. The first and last keys always stay.
//
// On data that interpolation reproduces exactly every score is 0 and the
// nearest candidate wins, so every second key stays (frames f0, f2, f4, ...
// and the last). The host relies on nothing here, but exports are compared
// across versions: do not change it.
//
// A tolerance not greater than 0 leaves the list as it is (no copy either).
// The error of a key is compared with tolerance^2 in every routine.
#pragma once

#include "exchange/keys.h"

// Error: squared distance of the pair.
void ThinPairs(PairKeys& keys, float tolerance);
// Error: squared difference.
void ThinValues(ValueKeys& keys, float tolerance);
// Angles in radians. Error: 1 - cos(difference), which hides a jump by a
// full turn in the key under test. Interpolation itself does not unwrap.
void ThinAngles(ValueKeys& keys, float tolerance);
// Pairs (skew tangent k, axis angle phi), seen as the matrix
// k [[sin phi cos phi, cos^2 phi], [-sin^2 phi, -sin phi cos phi]] acting on
// the diagonals (1, 1) and (1, -1). Error: the larger squared length of the
// two diagonals moved by the difference of the matrices.
void ThinSkews(PairKeys& keys, float tolerance);
