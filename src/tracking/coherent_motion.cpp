// SPDX-License-Identifier: GPL-3.0-or-later
// The search for coherent block motions; see coherent_motion.h for the
// functional. Offsets are all the state: every stage overwrites them.
#include "tracking/coherent_motion.h"

#include <algorithm>
#include <atomic>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <ostream>
#include <stdexcept>

namespace tracking {

namespace {

struct Velocity {
  int64_t x, y;
};

Velocity VelocityOf(const GridSegment& g) {
  return {int64_t(g.offset_x) + g.shift_x, int64_t(g.offset_y) + g.shift_y};
}

int32_t RoundHalfAway(double v) {
  return int32_t(v >= 0 ? v + 0.5 : v - 0.5);
}

// Every segment's neighbours in map order as one flat list, so that the
// sweeps of an iteration do not walk the maps again.
struct NeighbourLists {
  std::vector<uint32_t> start;  // segment s: index[start[s]] .. index[start[s + 1] - 1]
  std::vector<uint32_t> index;

  explicit NeighbourLists(const Segmentation& seg) {
    start.reserve(seg.segments.size() + 1);
    start.push_back(0);
    for (const GridSegment& g : seg.segments) {
      for (const auto& [colour, k] : g.neighbours) index.push_back(uint32_t(k));
      start.push_back(uint32_t(index.size()));
    }
  }
};

// Fd: minus the squared velocity differences to the neighbours, each
// segment's share weighed by 1 / n. A self-entry adds 0 but counts in n.
double Smoothness(const Segmentation& seg, const NeighbourLists& lists) {
  double fd = 0;
  for (size_t s = 0; s < seg.segments.size(); ++s) {
    const uint32_t first = lists.start[s], end = lists.start[s + 1];
    if (first == end) continue;
    const Velocity v = VelocityOf(seg.segments[s]);
    int64_t sum = 0;
    for (uint32_t e = first; e < end; ++e) {
      const Velocity u = VelocityOf(seg.segments[lists.index[e]]);
      sum += (v.x - u.x) * (v.x - u.x) + (v.y - u.y) * (v.y - u.y);
    }
    fd += (-1.0 / double(end - first)) * double(sum);
  }
  return fd;
}

// Evaluate on flat neighbour lists.
double EvaluateWith(const Segmentation& seg,
                    const NeighbourLists& lists,
                    const CoherentMotionParams& params,
                    double& mu,
                    bool first,
                    std::ostream* log) {
  const double fc = MotionQuality(seg);
  const double fd = Smoothness(seg, lists);
  if (params.mu_mode == MuMode::Every || (params.mu_mode == MuMode::First && first)) {
    const double k = params.mu_ratio;
    if (k == 0)
      mu = 10000000000.0;
    else if (fd == 0)
      mu = 0;
    else
      mu = (1 - k) * fc / (k * fd);
  }
  if (log) *log << "mu=" << mu << "\t\tFc=" << fc << "\tFd=" << fd << '\n';
  return fc + mu * fd;
}

// Vector types of the sweep: two lanes for the baseline, four with AVX2.
// Generic vectors wider than the instruction set are split badly, hence
// one set per build of the sweep.
struct Narrow {
  using Doubles = double __attribute__((vector_size(16)));
  using Lanes = int64_t __attribute__((vector_size(16)));
  static constexpr int kLanes = 2;
};
struct Wide {
  using Doubles = double __attribute__((vector_size(32)));
  using Lanes = int64_t __attribute__((vector_size(32)));
  static constexpr int kLanes = 4;
};
struct StepScratch {
  std::vector<Velocity> previous;
  std::vector<double> column_part;
};

// The cell of one segment with the first strictly highest score, p - w
// (column part + row part) as the plain search computes it, in row order;
// cell 0 when nothing beats minus the largest double. For rows of at least
// L cells: groups of L, the last one ending at the row's end, so that it may
// see some cells again (with the same score and index, which changes
// nothing). Every lane keeps the first index of its own highest score, its
// indices only growing; the answer is the smallest of those among the lanes
// that hold the overall highest. Even and odd rows go to two sets of lanes,
// so that two comparisons are in flight.
template <class V>
inline int64_t BestCell(const Raster<double>& profile,
                        const double* column_part,
                        double w,
                        int64_t n,
                        int64_t sb,
                        int64_t sbb) {
  using Doubles = typename V::Doubles;
  using Lanes = typename V::Lanes;
  constexpr int L = V::kLanes;
  const int32_t width = profile.width, height = profile.height;
  if (width < L) {
    double best = -DBL_MAX;
    int64_t first = 0;
    for (int32_t j = 0; j < height; ++j) {
      const double row_part = double(n * j * j - 2 * j * sb + sbb);
      for (int32_t i = 0; i < width; ++i) {
        const double score = profile.at(i, j) - w * (column_part[i] + row_part);
        if (score > best) {
          best = score;
          first = int64_t(j) * width + i;
        }
      }
    }
    return first;
  }
  Lanes lane;
  for (int k = 0; k < L; ++k) lane[k] = k;
  const Doubles weight = Doubles{} + w, lowest = Doubles{} - DBL_MAX;
  Doubles best[2] = {lowest, lowest};
  Lanes at[2] = {Lanes{}, Lanes{}};
  const int32_t last = width - L;  // start of the last group
  for (int32_t j = 0; j < height; ++j) {
    const int h = j & 1;
    const Doubles row_part = Doubles{} + double(n * j * j - 2 * j * sb + sbb);
    const double* p = profile.row(j);
    for (int32_t i = 0; i < width; i += L) {
      const int32_t from = std::min(i, last);
      Doubles x, column;
      std::memcpy(&x, p + from, sizeof x);
      std::memcpy(&column, column_part + from, sizeof column);
      const Doubles score = x - weight * (column + row_part);
      const Lanes higher = score > best[h];
      best[h] = higher ? score : best[h];
      at[h] = higher ? lane + (int64_t(j) * width + from) : at[h];
    }
  }
  double top = -DBL_MAX;
  for (int h = 0; h < 2; ++h)
    for (int k = 0; k < L; ++k) top = best[h][k] > top ? best[h][k] : top;
  if (!(top > -DBL_MAX)) return 0;
  int64_t first = INT64_MAX;
  for (int h = 0; h < 2; ++h)
    for (int k = 0; k < L; ++k)
      if (best[h][k] == top) first = std::min(first, int64_t(at[h][k]));
  return first;
}

template <class V>
inline void StepBody(Segmentation& seg, double mu, const NeighbourLists& lists, StepScratch& sc) {
  sc.previous.resize(seg.segments.size());
  for (size_t s = 0; s < seg.segments.size(); ++s) sc.previous[s] = VelocityOf(seg.segments[s]);
  for (size_t s = 0; s < seg.segments.size(); ++s) {
    GridSegment& g = seg.segments[s];
    const int64_t n = int64_t(lists.start[s + 1] - lists.start[s]);
    const double w = n ? mu / double(n) : 0.0;
    // Σ_N (i - a_N)² + (j - b_N)² = (n i² - 2 i Σa + Σa²) + (n j² - 2 j Σb + Σb²):
    // exact integers, so a cell costs the same whatever the number of
    // neighbours. Both parts and their sum are integers far below 2^53, so
    // adding them in double gives the exact sum, converted.
    int64_t sa = 0, saa = 0, sb = 0, sbb = 0;
    for (uint32_t e = lists.start[s]; e < lists.start[s + 1]; ++e) {
      const Velocity& v = sc.previous[lists.index[e]];
      const int64_t a = g.radius_x + v.x - g.shift_x;
      const int64_t b = g.radius_y + v.y - g.shift_y;
      sa += a;
      saa += a * a;
      sb += b;
      sbb += b * b;
    }
    const int32_t width = g.profile.width;
    sc.column_part.resize(size_t(width));
    for (int64_t i = 0; i < width; ++i)
      sc.column_part[size_t(i)] = double(n * i * i - 2 * i * sa + saa);
    const int64_t cell = BestCell<V>(g.profile, sc.column_part.data(), w, n, sb, sbb);
    g.offset_x = int32_t(cell % std::max(width, 1)) - g.radius_x;
    g.offset_y = int32_t(cell / std::max(width, 1)) - g.radius_y;
  }
}

// The same sweep compiled for the baseline and for AVX2 (wider score
// loops); both round alike, as no operation is fused.
void StepBaseline(Segmentation& seg, double mu, const NeighbourLists& lists, StepScratch& sc) {
  StepBody<Narrow>(seg, mu, lists, sc);
}
[[gnu::target("avx2"), gnu::flatten]] void StepAvx2(Segmentation& seg,
                                                    double mu,
                                                    const NeighbourLists& lists,
                                                    StepScratch& sc) {
  StepBody<Wide>(seg, mu, lists, sc);
}

std::atomic<bool> baseline_only{false};

void Step(Segmentation& seg, double mu, const NeighbourLists& lists, StepScratch& sc) {
  static const bool avx2 = __builtin_cpu_supports("avx2");
  const bool wide = avx2 && !baseline_only.load(std::memory_order_relaxed);
  (wide ? StepAvx2 : StepBaseline)(seg, mu, lists, sc);
}

void ResetOffsets(Segmentation& seg, const types::affine& T) {
  for (GridSegment& g : seg.segments) {
    double px, py;
    T.apply(g.centre_x, g.centre_y, px, py);
    const int64_t dx = RoundHalfAway(px - g.centre_x), dy = RoundHalfAway(py - g.centre_y);
    g.offset_x = int32_t(std::clamp<int64_t>(dx - g.shift_x + g.radius_x, 0, g.profile.width - 1) -
                         g.radius_x);
    g.offset_y = int32_t(std::clamp<int64_t>(dy - g.shift_y + g.radius_y, 0, g.profile.height - 1) -
                         g.radius_y);
  }
}

types::affine Fit(Segmentation& seg, TransformClass model, std::ostream* log) {
  types::affine T;
  match(seg.motions(), model, T, log);
  return T;
}

void LogQuality(const Segmentation& seg, std::ostream* log) {
  if (log) *log << "motion quality=" << MotionQuality(seg) << '\n';
}

}  // namespace

CoherentMotionParams CoherentMotionParamsOf(const VLSegmentParams& params) {
  return {params.neighbour_weight,
          params.max_iterations,
          params.tolerance,
          params.mu_mode,
          params.mu,
          params.mu_ratio,
          params.MotionModel,
          params.matching_passes,
          params.final_positions};
}

double MotionQuality(const Segmentation& seg) {
  double fc = 0;
  for (const GridSegment& g : seg.segments)
    fc += g.profile.at(g.radius_x + g.offset_x, g.radius_y + g.offset_y);
  return fc;
}

double Evaluate(const Segmentation& seg,
                const CoherentMotionParams& params,
                double& mu,
                bool first,
                std::ostream* log) {
  return EvaluateWith(seg, NeighbourLists(seg), params, mu, first, log);
}

void LimitCoherentMotionToBaseline(bool limit) {
  baseline_only.store(limit, std::memory_order_relaxed);
}

void JacobiStep(Segmentation& seg, double mu) {
  StepScratch scratch;
  Step(seg, mu, NeighbourLists(seg), scratch);
}

void Iterate(Segmentation& seg, const CoherentMotionParams& params, std::ostream* log) {
  double mu = params.mu;
  const NeighbourLists lists(seg);
  double f = EvaluateWith(seg, lists, params, mu, true, log);
  if (log) *log << "F(initial approximation) = " << f << '\n';
  const double tolerance = params.tolerance;
  StepScratch scratch;
  for (int t = 0;; ++t) {
    if (t == params.max_iterations) {
      if (log) *log << "maximum iterations number exceeded.\n";
      return;
    }
    if (f == 0) return;  // perfect match and perfect coherence
    Step(seg, mu, lists, scratch);
    const double mu_old = mu;
    const double f_new = EvaluateWith(seg, lists, params, mu, false, log);
    if (log) *log << "F(step " << t << ") = " << f_new << '\n';
    // Neither quotient is taken in absolute value: a functional that got
    // worse, or a falling mu, ends the loop as well.
    if ((mu <= 0 && mu_old <= 0) ||
        ((mu - mu_old) / std::max(std::fabs(mu), std::fabs(mu_old)) < tolerance &&
         (f_new - f) / std::fabs(f) < tolerance)) {
      if (log) *log << "functional and mu values were changed too little on previous iteration.\n";
      return;
    }
    f = f_new;
  }
}

void InitialApproximation(Segmentation& seg, float neighbour_weight, TieBreaker& random) {
  const double omega = neighbour_weight;
  // Each profile's smallest value, the vote of a neighbour outside its window.
  std::vector<double> least(seg.segments.size(), 0.0);
  for (size_t k = 0; k < seg.segments.size(); ++k) {
    const std::vector<double>& cells = seg.segments[k].profile.cells;
    if (!cells.empty()) least[k] = *std::min_element(cells.begin(), cells.end());
  }
  std::vector<double> votes;
  for (GridSegment& g : seg.segments) {
    const int32_t width = g.profile.width, height = g.profile.height;
    votes = g.profile.cells;
    // Each cell adds its neighbours' votes in the neighbours' order; a row
    // splits into the cells outside N's window (its smallest value) and the
    // run inside it, so that no cell needs a test.
    for (const auto& [colour, k] : g.neighbours) {
      const GridSegment& n = seg.segments[k];
      const int64_t dx = int64_t(n.shift_x - n.radius_x) - (g.shift_x - g.radius_x);
      const int64_t dy = int64_t(n.shift_y - n.radius_y) - (g.shift_y - g.radius_y);
      const double outside = omega * least[k];
      const int32_t lo = int32_t(std::clamp<int64_t>(dx, 0, width));
      const int32_t hi = int32_t(std::clamp<int64_t>(dx + n.profile.width, lo, width));
      for (int32_t j = 0; j < height; ++j) {
        double* row = votes.data() + size_t(j) * size_t(width);
        const int64_t jn = j - dy;
        if (jn < 0 || jn >= n.profile.height) {
          for (int32_t i = 0; i < width; ++i) row[i] += outside;
          continue;
        }
        const double* inside = n.profile.row(int32_t(jn));
        for (int32_t i = 0; i < lo; ++i) row[i] += outside;
        for (int32_t i = lo; i < hi; ++i) row[i] += omega * inside[i - dx];
        for (int32_t i = hi; i < width; ++i) row[i] += outside;
      }
    }
    double best = -DBL_MAX;
    int64_t ties = 0;
    int32_t best_i = 0, best_j = 0;
    for (int32_t j = 0; j < height; ++j)
      for (int32_t i = 0; i < width; ++i) {
        const double v = votes[size_t(j) * size_t(width) + size_t(i)];
        if (v > best) {
          best = v;
          ties = 1;
          best_i = i;
          best_j = j;
        } else if (v == best) {
          ++ties;
          if (int64_t(random.next()) * ties <= TieBreaker::kMax) {
            best_i = i;
            best_j = j;
          }
        }
      }
    g.offset_x = best_i - g.radius_x;
    g.offset_y = best_j - g.radius_y;
  }
}

types::affine FindMotion(Segmentation& seg,
                         const CoherentMotionParams& params,
                         TieBreaker& random,
                         std::ostream* log) {
  for (const GridSegment& g : seg.segments)
    if (g.radius_x < 0 || g.radius_y < 0 || g.profile.width != 2 * g.radius_x + 1 ||
        g.profile.height != 2 * g.radius_y + 1)
      throw std::invalid_argument("matching profiles are not built");
  if (log) *log << "\nFunctional maximization" << std::endl;
  if (params.max_iterations < 0) {
    for (GridSegment& g : seg.segments) g.shift_x = g.shift_y = 0;
  } else {
    InitialApproximation(seg, params.neighbour_weight, random);
    Iterate(seg, params, log);
  }
  LogQuality(seg, log);
  if (seg.segment_count() < 10) {
    if (log)
      *log << "Segments count is less than 10, so it was decided not to find motion "
              "approximation\n";
    return types::affine::identity();
  }
  seg.positions();
  for (unsigned pass = 0; pass < params.matching_passes; ++pass) {
    ResetOffsets(seg, Fit(seg, params.MotionModel, log));
    LogQuality(seg, log);
    Iterate(seg, params, log);
    LogQuality(seg, log);
  }
  const types::affine result = Fit(seg, params.MotionModel, log);
  if (params.final_positions) {
    ResetOffsets(seg, result);
    LogQuality(seg, log);
  }
  return result;
}

}  // namespace tracking
