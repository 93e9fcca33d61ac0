// SPDX-License-Identifier: GPL-3.0-or-later
#include "tracking/optic_flow.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <ostream>
#include <string>
#include <utility>

#include "base/errors.h"
#include "tracking/optic_flow_helper.h"

#if defined(__x86_64__)
#include <immintrin.h>
#elif defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace tracking {

namespace {

std::string SizeText(uint32_t w, uint32_t h) {
  return std::to_string(w) + "x" + std::to_string(h);
}

void RequireSize(const char* what, uint32_t w, uint32_t h, uint32_t ref_w, uint32_t ref_h) {
  if (w != ref_w || h != ref_h)
    throw xtd::exception(std::string("The ") + what + " (" + SizeText(w, h) +
                         " pixels) differs in size from the reference frame (" +
                         SizeText(ref_w, ref_h) + " pixels).");
}

bool MaskBit(const img::bitmap<img::bit1>& mask, uint32_t x, uint32_t y) {
  return (mask.rows[y][x >> 3] & (0x80u >> (x & 7))) != 0;
}

}  // namespace

namespace {

// The bilinear reading of one sample, one at a time: the plain form that the
// vector path must match bit for bit.
size_t SampleRangePlain(const img::float_image& target,
                        const types::affine& t,
                        const FlowSample* samples,
                        Colour* values,
                        size_t count) {
  const uint32_t W = target.width;
  const float right = float(W - 1), bottom = float(target.height - 1);
  size_t inside = 0;
  for (size_t i = 0; i < count; ++i) {
    const FlowSample& s = samples[i];
    const double x = s.x, y = s.y;
    const double u = t.xx * x + t.xy * y + t.x;
    const double v = t.yx * x + t.yy * y + t.y;
    // Stored in single precision with the pixel-centre offset, which the
    // sampler takes off again.
    const float us = float(u + 0.5) - 0.5f;
    const float vs = float(v + 0.5) - 0.5f;
    // Left and top are flagged below 0, right beyond W - 1 but bottom from
    // H - 1 on: the axes differ in < and <=, and results depend on it. The
    // positive forms also send NaN outside.
    if (!(us >= 0 && us <= right && vs >= 0 && vs < bottom)) {
      values[i] = Colour{0, 0, 0, 0};  // a sample that has left the picture meets black
      continue;
    }
    const uint32_t col = uint32_t(us), row = uint32_t(vs);
    const float fx = us - float(col), fy = vs - float(row);
    // At u' = W - 1 exactly the right-hand taps have weight 0; reading the
    // same column keeps the read inside the row.
    const uint32_t col1 = std::min(col + 1, W - 1);
    const float* p00 = img::pixel(target, col, row);
    const float* p10 = img::pixel(target, col1, row);
    const float* p01 = img::pixel(target, col, row + 1);
    const float* p11 = img::pixel(target, col1, row + 1);
    const float w00 = (1 - fx) * (1 - fy), w10 = fx * (1 - fy);
    const float w01 = (1 - fx) * fy, w11 = fx * fy;
    // w00 p00 + w10 p10 + w01 p01 + w11 p11 per channel, left to right: the
    // vector form does the same operations lane by lane, so both give the
    // same bits.
#if defined(__SSE2__)
    __m128 acc = _mm_mul_ps(_mm_set1_ps(w00), _mm_loadu_ps(p00));
    acc = _mm_add_ps(acc, _mm_mul_ps(_mm_set1_ps(w10), _mm_loadu_ps(p10)));
    acc = _mm_add_ps(acc, _mm_mul_ps(_mm_set1_ps(w01), _mm_loadu_ps(p01)));
    acc = _mm_add_ps(acc, _mm_mul_ps(_mm_set1_ps(w11), _mm_loadu_ps(p11)));
    _mm_storeu_ps(values[i].data(), acc);
#else
    Colour& out = values[i];
    for (int c = 0; c < 4; ++c) out[c] = w00 * p00[c] + w10 * p10[c] + w01 * p01[c] + w11 * p11[c];
#endif
    ++inside;
  }
  return inside;
}

#if defined(__x86_64__)
// Four samples at a time: their positions, edge tests, taps and weights in
// vectors, then each sample's four-channel mix as in the plain form. Every
// lane does the plain form's operations in its order (products and sums
// stay separate: no fused multiply-add is enabled here), so the bits are the
// same. A sample that has left the picture reads pixel (0, 0) with its lane
// masked to black, which needs a picture of two rows at least.
[[gnu::target("avx2")]] size_t SampleRangeAvx2(const img::float_image& target,
                                               const types::affine& t,
                                               const FlowSample* samples,
                                               Colour* values,
                                               size_t count) {
  const uint32_t W = target.width;
  const __m256d a = _mm256_set1_pd(t.xx), b = _mm256_set1_pd(t.xy), tx = _mm256_set1_pd(t.x);
  const __m256d c = _mm256_set1_pd(t.yx), d = _mm256_set1_pd(t.yy), ty = _mm256_set1_pd(t.y);
  const __m256d half = _mm256_set1_pd(0.5), two31 = _mm256_set1_pd(2147483648.0);
  const __m128 half_f = _mm_set1_ps(0.5f), zero = _mm_setzero_ps(), one = _mm_set1_ps(1.0f);
  const __m128 right = _mm_set1_ps(float(W - 1)), bottom = _mm_set1_ps(float(target.height - 1));
  const __m128i last_col = _mm_set1_epi32(int32_t(W - 1)), one_i = _mm_set1_epi32(1);
  const __m128i sign = _mm_set1_epi32(INT32_MIN);
  uint8_t* const* rows = target.rows.data();
  size_t inside = 0, i = 0;
  for (; i + 4 <= count; i += 4) {
    const FlowSample* s = samples + i;
    // Unsigned to double, exactly for every 32-bit value.
    const __m128i xi =
        _mm_setr_epi32(int32_t(s[0].x), int32_t(s[1].x), int32_t(s[2].x), int32_t(s[3].x));
    const __m128i yi =
        _mm_setr_epi32(int32_t(s[0].y), int32_t(s[1].y), int32_t(s[2].y), int32_t(s[3].y));
    const __m256d x = _mm256_add_pd(_mm256_cvtepi32_pd(_mm_xor_si128(xi, sign)), two31);
    const __m256d y = _mm256_add_pd(_mm256_cvtepi32_pd(_mm_xor_si128(yi, sign)), two31);
    const __m256d u = _mm256_add_pd(_mm256_add_pd(_mm256_mul_pd(a, x), _mm256_mul_pd(b, y)), tx);
    const __m256d v = _mm256_add_pd(_mm256_add_pd(_mm256_mul_pd(c, x), _mm256_mul_pd(d, y)), ty);
    __m128 us = _mm_sub_ps(_mm256_cvtpd_ps(_mm256_add_pd(u, half)), half_f);
    __m128 vs = _mm_sub_ps(_mm256_cvtpd_ps(_mm256_add_pd(v, half)), half_f);
    const __m128 in = _mm_and_ps(
        _mm_and_ps(_mm_cmp_ps(us, zero, _CMP_GE_OQ), _mm_cmp_ps(us, right, _CMP_LE_OQ)),
        _mm_and_ps(_mm_cmp_ps(vs, zero, _CMP_GE_OQ), _mm_cmp_ps(vs, bottom, _CMP_LT_OQ)));
    const int lanes = _mm_movemask_ps(in);
    inside += size_t(__builtin_popcount(unsigned(lanes)));
    us = _mm_and_ps(us, in);
    vs = _mm_and_ps(vs, in);
    const __m128i col = _mm_cvttps_epi32(us), row = _mm_cvttps_epi32(vs);
    const __m128 fx = _mm_sub_ps(us, _mm_cvtepi32_ps(col));
    const __m128 fy = _mm_sub_ps(vs, _mm_cvtepi32_ps(row));
    const __m128i col1 = _mm_min_epi32(_mm_add_epi32(col, one_i), last_col);
    const __m128 gx = _mm_sub_ps(one, fx), gy = _mm_sub_ps(one, fy);
    alignas(16) float w[4][4];
    _mm_store_ps(w[0], _mm_mul_ps(gx, gy));
    _mm_store_ps(w[1], _mm_mul_ps(fx, gy));
    _mm_store_ps(w[2], _mm_mul_ps(gx, fy));
    _mm_store_ps(w[3], _mm_mul_ps(fx, fy));
    alignas(16) int32_t c0[4], c1[4], r0[4], keep[4];
    _mm_store_si128(reinterpret_cast<__m128i*>(c0), _mm_slli_epi32(col, 2));
    _mm_store_si128(reinterpret_cast<__m128i*>(c1), _mm_slli_epi32(col1, 2));
    _mm_store_si128(reinterpret_cast<__m128i*>(r0), row);
    _mm_store_ps(reinterpret_cast<float*>(keep), in);
    for (int l = 0; l < 4; ++l) {
      const float* top = reinterpret_cast<const float*>(rows[r0[l]]);
      const float* low = reinterpret_cast<const float*>(rows[r0[l] + 1]);
      __m128 acc = _mm_mul_ps(_mm_broadcast_ss(&w[0][l]), _mm_loadu_ps(top + c0[l]));
      acc = _mm_add_ps(acc, _mm_mul_ps(_mm_broadcast_ss(&w[1][l]), _mm_loadu_ps(top + c1[l])));
      acc = _mm_add_ps(acc, _mm_mul_ps(_mm_broadcast_ss(&w[2][l]), _mm_loadu_ps(low + c0[l])));
      acc = _mm_add_ps(acc, _mm_mul_ps(_mm_broadcast_ss(&w[3][l]), _mm_loadu_ps(low + c1[l])));
      _mm_storeu_ps(values[i + size_t(l)].data(),
                    _mm_and_ps(acc, _mm_castsi128_ps(_mm_set1_epi32(keep[l]))));
    }
  }
  // GCC leaves the upper halves dirty here, and every legacy-encoded vector
  // instruction after it (the plain tail, the residual) would pay a
  // transition on each use: measured at twice the residual's time.
  _mm256_zeroupper();
  return inside + SampleRangePlain(target, t, samples + i, values + i, count - i);
}
#endif

using SampleFn =
    size_t (*)(const img::float_image&, const types::affine&, const FlowSample*, Colour*, size_t);

SampleFn PickSampler(const img::float_image& target) {
#if defined(__x86_64__)
  if (target.height >= 2 && UseAvx2()) return SampleRangeAvx2;
#else
  (void)target;
#endif
  return SampleRangePlain;
}

// Below this many samples the second thread costs more than it saves.
constexpr size_t kSplitSamples = 8192;

}  // namespace

size_t SampleTarget(const img::float_image& target,
                    const types::affine& t,
                    std::span<const FlowSample> samples,
                    std::span<Colour> values) {
  const size_t n = samples.size();
  if (target.width == 0 || target.height == 0) {
    std::fill(values.begin(), values.begin() + ptrdiff_t(n), Colour{0, 0, 0, 0});
    return 0;
  }
  const SampleFn fn = PickSampler(target);
  if (n < kSplitSamples || !UseHelperThread())
    return fn(target, t, samples.data(), values.data(), n);
  // Every sample is read on its own, so the halves can go to two threads.
  struct Job {
    SampleFn fn;
    const img::float_image& target;
    const types::affine& t;
    const FlowSample* samples;
    Colour* values;
    size_t n, inside[2];
  } job{fn, target, t, samples.data(), values.data(), n, {0, 0}};
  HelperThread::Instance().Split(
      [](void* context, int part) noexcept {
        Job& j = *static_cast<Job*>(context);
        const size_t half = (j.n / 2) & ~size_t(3);
        const size_t first = part == 0 ? 0 : half, end = part == 0 ? half : j.n;
        j.inside[part] = j.fn(j.target, j.t, j.samples + first, j.values + first, end - first);
      },
      &job);
  return job.inside[0] + job.inside[1];
}

OpticFlow::OpticFlow(std::ostream* log) : log_(log) {}

OpticFlow::~OpticFlow() = default;

void OpticFlow::set(const types::affine& transformation, double discrepancy) {
  state_.transformation = transformation;
  state_.amendment = types::affine::identity();
  state_.discrepancy = discrepancy;
}

bool OpticFlow::initialise(const types::affine& transformation,
                           const img::float_image& reference,
                           const img::bitmap<img::bit1>& mask,
                           TransformClass model,
                           bool with_extra_solver) {
  RequireSize("mask", mask.width, mask.height, reference.width, reference.height);
  set(transformation, -1);
  width_ = reference.width;
  height_ = reference.height;
  const uint32_t W = width_, H = height_;
  // Signed, so that a picture narrower than the margins fails too.
  if (int64_t(W) - 6 <= 5 || int64_t(H) - 6 <= 5) return false;

  size_t set_bits = 0;
  for (uint32_t y = 0; y < H; ++y)
    for (uint32_t i = 0; i < mask.stride; ++i) set_bits += size_t(std::popcount(mask.rows[y][i]));
  samples_.clear();
  samples_.reserve(set_bits);

  // A sample needs its four neighbours for the gradient, and its image must
  // keep a margin that every later sample can rely on.
  const double u_max = double(W) - 6, v_max = double(H) - 6;
  for (uint32_t y = 1; y + 1 < H; ++y) {
    for (uint32_t x = 1; x + 1 < W; ++x) {
      if (!MaskBit(mask, x, y)) continue;
      double u, v;
      transformation.apply(x, y, u, v);
      if (!(u >= 5 && u < u_max && v >= 5 && v < v_max)) continue;
      FlowSample s;
      const float* p = img::pixel(reference, x, y);
      std::copy(p, p + 4, s.colour.begin());
      s.x = x;
      s.y = y;
      samples_.push_back(s);
    }
  }

  // The coefficient carries over from one reference frame to the next.
  float coefficient = 1.0f;
  if (solver_) {
    coefficient = solver_->portion();
    if (log_) *log_ << "initial portion coefficient: " << coefficient << '\n';
  }
  solver_.reset();
  extra_solver_.reset();
  if (samples_.empty()) return false;

  solver_ = MakePrimarySolver(model, log_);
  if (with_extra_solver) extra_solver_ = MakeExtraSolver(model, log_);
  for (OpticFlowSolver* s : {solver_.get(), extra_solver_.get()}) {
    if (!s) continue;
    s->set_portion(coefficient);
    s->resize_normals(samples_.size());
  }

  for (size_t i = 0; i < samples_.size(); ++i) {
    FlowSample& s = samples_[i];
    const float* left = img::pixel(reference, s.x - 1, s.y);
    const float* right = img::pixel(reference, s.x + 1, s.y);
    const float* up = img::pixel(reference, s.x, s.y - 1);
    const float* down = img::pixel(reference, s.x, s.y + 1);
    float gx[4], gy[4];
    float limit = 0;
    for (int c = 0; c < 4; ++c) {
      gx[c] = (right[c] - left[c]) * 0.5f;
      gy[c] = (down[c] - up[c]) * 0.5f;
      limit += gx[c] * gx[c] + gy[c] * gy[c];
    }
    s.limit = limit;
    for (OpticFlowSolver* solver : {solver_.get(), extra_solver_.get()})
      if (solver) solver->set_normals(i, s.x, s.y, s, gx, gy);
  }
  for (OpticFlowSolver* s : {solver_.get(), extra_solver_.get()})
    if (s) s->prepare(samples_);
  values_.assign(samples_.size(), Colour{});
  return true;
}

double OpticFlow::measure(const img::float_image& target, StageTimer* timer) {
  StageScope whole(timer, "discrepancy calculating");
  if (!solver_) {
    state_.discrepancy = 0;
    return 0;
  }
  RequireSize("target frame", target.width, target.height, width_, height_);
  size_t inside;
  {
    StageScope stage(timer, "bilinear diff.");
    inside = SampleTarget(target, state_.transformation, samples_, values_);
  }
  double E;
  {
    StageScope stage(timer, "setting rhs");
    E = solver_->residual(samples_, values_);
  }
  // n counts three channels a sample though e² sums four; an empty n makes
  // the discrepancy infinite, which is never lower than another.
  const double n = 3.0 * double(inside);
  state_.discrepancy = std::sqrt(E / n);
  return state_.discrepancy;
}

void OpticFlow::log_value(double v) {
  if (log_) *log_ << v;
}

void OpticFlow::optimise_once(const img::float_image& target, int iterations, StageTimer* timer) {
  if (!solver_) return;
  // A given discrepancy is taken as it stands, and so is the right side the
  // last measure left (possibly another candidate's): the best-state rule
  // below catches a bad first step.
  if (state_.discrepancy < 0) {
    if (log_) *log_ << "Initial discrepancy is ";
    measure(target, timer);
    if (log_) *log_ << state_.discrepancy << '\n';
  }
  State best = state_;
  const double initial = state_.discrepancy;

  int done = 0, failures = 0;
  for (int i = 0; i < iterations; ++i) {
    ++done;
    if (log_) *log_ << "iteration #" << i << ", ";
    solver_->find_amendment();
    solver_->compose(state_.transformation);
    // The amendment acts in reference coordinates, before the transformation.
    state_.amendment = state_.amendment * solver_->amendment();
    if (log_) *log_ << "corrected transformation with discrepancy ";
    measure(target, timer);
    if (log_) *log_ << state_.discrepancy << " is\n" << state_.transformation << '\n';
    if (state_.discrepancy < best.discrepancy) {
      best = state_;
      failures = 0;
    } else if (++failures == 5 || solver_->converged()) {
      break;
    }
  }
  if (best.discrepancy < state_.discrepancy) state_ = best;

  if (log_) {
    const double D = state_.discrepancy, gain = initial - D;
    *log_ << "best transformation (from iteration " << done - failures - 1 << ") with discrepancy "
          << D << " is\n"
          << state_.transformation << "\ndiscrepancy lowering gain: " << gain << " (";
    const auto precision = log_->precision(3);
    *log_ << 100 * gain / initial;
    log_->precision(precision);
    *log_ << "%)\noverall amendment:\n" << state_.amendment << '\n';
  }
}

void OpticFlow::optimise(const img::float_image& target, int iterations, StageTimer* timer) {
  if (!solver_) return;
  if (log_)
    *log_ << "\nMaking more precise transformation on pixel level (" << solver_->model_name()
          << " model)...\n";
  {
    StageScope stage(timer, "optic flow optimizing");
    optimise_once(target, iterations, timer);
  }
  if (!extra_solver_) return;
  if (log_) *log_ << "Switching over extra optic flow solver\n";
  StageScope stage(timer, "optic flow optimizing (extra solver)");
  // The extra solver starts from the primary's result and measures it afresh.
  struct SwapBack {
    OpticFlow& flow;
    ~SwapBack() { std::swap(flow.solver_, flow.extra_solver_); }
  } swap_back{*this};
  std::swap(solver_, extra_solver_);
  state_.discrepancy = -1;
  optimise_once(target, iterations, timer);
}

}  // namespace tracking
