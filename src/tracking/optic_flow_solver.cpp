// SPDX-License-Identifier: GPL-3.0-or-later
#include "tracking/optic_flow_solver.h"

#include <atomic>
#include <cmath>
#include <ostream>

namespace tracking {

namespace {
std::atomic<bool> baseline_only{false};
std::atomic<bool> one_thread_only{false};
}  // namespace

void LimitOpticFlowToBaseline(bool limit) {
  baseline_only.store(limit, std::memory_order_relaxed);
}

void LimitOpticFlowToOneThread(bool limit) {
  one_thread_only.store(limit, std::memory_order_relaxed);
}

bool UseAvx2() {
#if defined(__x86_64__)
  static const bool has_avx2 = __builtin_cpu_supports("avx2");
  return has_avx2 && !baseline_only.load(std::memory_order_relaxed);
#else
  return false;
#endif
}

bool UseHelperThread() {
  return !one_thread_only.load(std::memory_order_relaxed);
}

void OpticFlowSolver::resize_normals(size_t samples) {
  normals_.assign(3 * samples, FlowNormal{});
}

void OpticFlowSolver::set_normals(size_t index,
                                  uint32_t /*x*/,
                                  uint32_t /*y*/,
                                  const FlowSample& /*sample*/,
                                  const float gx[4],
                                  const float gy[4]) {
  for (int k = 0; k < 3; ++k) {
    const int c = 2 - k;  // red, green, blue
    FlowNormal& n = normals_[3 * index + size_t(k)];
    const float e = gx[c] * gx[c] + gy[c] * gy[c];
    if (e <= 0.0001) {
      n = FlowNormal{};
      continue;
    }
    // 3.07574e-05 is 2 / 255² in single precision: the weight of a strong
    // edge grows with the square of its contrast.
    n.weight = e * 3.07574e-05f;
    n.inv_length = std::sqrt(1.0f / e);
    n.nx = gx[c] * n.inv_length;
    n.ny = gy[c] * n.inv_length;
  }
}

void OpticFlowSolver::update_portion(size_t ignored, size_t samples) {
  const double ratio = double(ignored) / double(samples);
  ignored_share_ = ratio;
  if (log_) {
    const auto precision = log_->precision(3);
    *log_ << "(ignored pixels " << ignored << " / " << samples << ", " << 100 * ratio << "%";
    log_->precision(precision);
  }
  // Too many pixels thrown out: raise the threshold. Few: lower it again,
  // but never below 1.
  if (ratio > 0.1) {
    portion_ *= 2;
    if (log_) *log_ << ", portion decreased";
  } else if (ratio < 0.02 && portion_ > 1.5f) {
    portion_ *= 0.5f;
    if (log_) *log_ << ", portion increased";
  }
  if (log_) *log_ << ") ";
}

void OpticFlowSolver::log_amendment() const {
  if (log_) *log_ << "found amendment:\n" << amendment_ << '\n';
}

}  // namespace tracking
