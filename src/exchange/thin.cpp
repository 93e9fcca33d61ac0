// SPDX-License-Identifier: GPL-3.0-or-later
#include "exchange/thin.h"

#include <cmath>
#include <cstddef>
#include <limits>

namespace {

ValueKey Interpolate(const ValueKey& a, const ValueKey& b, double t) {
  return {(1 - t) * a.value + t * b.value, 0};
}

PairKey Interpolate(const PairKey& a, const PairKey& b, double t) {
  return {(1 - t) * a.x + t * b.x, (1 - t) * a.y + t * b.y, 0};
}

// Each error sees the whole list and the index of the key under test, so
// that a routine may use terms it computed once per key.
struct PairError {
  double operator()(const PairKeys& keys, size_t m, const PairKey& line) const {
    const double dx = keys[m].x - line.x;
    const double dy = keys[m].y - line.y;
    return dx * dx + dy * dy;
  }
};

struct ValueError {
  double operator()(const ValueKeys& keys, size_t m, const ValueKey& line) const {
    const double d = keys[m].value - line.value;
    return d * d;
  }
};

struct AngleError {
  double operator()(const ValueKeys& keys, size_t m, const ValueKey& line) const {
    return 1 - std::cos(keys[m].value - line.value);
  }
};

// The skew (k, phi) as the terms k sin phi cos phi, k cos^2 phi, k sin^2 phi.
struct SkewTerms {
  double sc, cc, ss;
};

SkewTerms TermsOf(double k, double phi) {
  const double s = std::sin(phi), c = std::cos(phi);
  return {k * s * c, k * c * c, k * s * s};
}

// The keys' own terms are computed once; they are the same numbers the
// formula would compute inline, so the result does not change, and the
// trigonometry per error halves.
struct SkewError {
  std::vector<SkewTerms> terms;

  explicit SkewError(const PairKeys& keys) {
    terms.reserve(keys.size());
    for (const auto& key : keys) terms.push_back(TermsOf(key.x, key.y));
  }

  double operator()(const PairKeys&, size_t m, const PairKey& line) const {
    const SkewTerms& key = terms[m];
    const SkewTerms interpolated = TermsOf(line.x, line.y);
    const double A = key.sc - interpolated.sc;
    const double B = key.cc - interpolated.cc;
    const double C = interpolated.ss - key.ss;
    const double e1 = (B - A) * (B - A) + (A + C) * (A + C);
    const double e2 = (B + A) * (B + A) + (A - C) * (A - C);
    return e1 > e2 ? e1 : e2;
  }
};

// The worst error of the keys strictly between i and j against the line
// from i to j. Stops as soon as one key exceeds `limit`: the caller drops
// such a candidate whatever the exact worst error is.
template <class Key, class Error>
double WorstError(
    const std::vector<Key>& keys, size_t i, size_t j, double limit, const Error& error) {
  const double fi = keys[i].frame;
  const double span = double(keys[j].frame) - fi;
  double worst = 0;
  for (size_t m = i + 1; m < j; ++m) {
    const double t = (double(keys[m].frame) - fi) / span;
    const double e = error(keys, m, Interpolate(keys[i], keys[j], t));
    if (e > worst) {
      worst = e;
      if (worst > limit) break;
    }
  }
  return worst;
}

template <class Key, class Error>
void Thin(std::vector<Key>& keys, float tolerance, const Error& error) {
  if (!(tolerance > 0)) return;
  const double tol2 = double(tolerance) * double(tolerance);
  const size_t n = keys.size();
  if (n < 3) return;  // every key is first or last: nothing can go

  std::vector<Key> kept;
  kept.push_back(keys[0]);
  size_t anchor = 0;
  while (anchor != n - 2) {
    size_t best = anchor + 1;
    double best_score = std::numeric_limits<double>::max();
    double skipped = 1;
    for (size_t j = anchor + 2; j < n; ++j) {
      const double worst = WorstError(keys, anchor, j, tol2, error);
      // The early leave: a candidate that does not fit ends the search,
      // even though a farther one might fit again.
      if (worst > tol2) break;
      const double score = worst / (skipped * skipped);
      // Strictly less: a tie keeps the nearer candidate.
      if (score < best_score) {
        best = j;
        best_score = score;
      }
      // No farther candidate can beat a perfect score, so stop here; the
      // result is the same and exact data no longer costs n^3.
      if (best_score == 0) break;
      skipped += 1;
    }
    kept.push_back(keys[best]);
    anchor = best;
    if (anchor == n - 1) break;
  }
  if (anchor != n - 1) kept.push_back(keys[n - 1]);
  keys.swap(kept);
}

}  // namespace

void ThinPairs(PairKeys& keys, float tolerance) {
  Thin(keys, tolerance, PairError{});
}

void ThinValues(ValueKeys& keys, float tolerance) {
  Thin(keys, tolerance, ValueError{});
}

void ThinAngles(ValueKeys& keys, float tolerance) {
  Thin(keys, tolerance, AngleError{});
}

void ThinSkews(PairKeys& keys, float tolerance) {
  if (!(tolerance > 0) || keys.size() < 3) return;
  Thin(keys, tolerance, SkewError(keys));
}
