// SPDX-License-Identifier: GPL-3.0-or-later
// The optic-flow measure on a 400 x 300 mask: one bilinear pass over the
// samples and one residual pass, which is what every refinement iteration
// costs. Reported per iteration, for each motion model's primary solver.
#include <benchmark/benchmark.h>

#include <cmath>
#include <string>

#include "imaging/float_image.h"
#include "imaging/synthetic_shot.h"
#include "tracking/optic_flow.h"

namespace {

constexpr uint32_t kW = 800, kH = 600;

img::float_image Texture(const types::affine& motion) {
  const img::noise_texture texture{7, 12.0};
  const types::affine back = motion.inverse();
  img::float_image out(kW, kH);
  for (uint32_t y = 0; y < kH; ++y)
    for (uint32_t x = 0; x < kW; ++x) {
      double u, v;
      back.apply(x, y, u, v);
      uint8_t bgr[3];
      texture.sample(u, v, bgr);
      float* p = img::pixel(out, x, y);
      p[0] = bgr[0];
      p[1] = bgr[1];
      p[2] = bgr[2];
      p[3] = 255;
    }
  return out;
}

img::bitmap<img::bit1> Mask() {
  img::bitmap<img::bit1> m(kW, kH);
  for (uint32_t y = 0; y < kH; ++y)
    for (uint32_t i = 0; i < m.stride; ++i) m.rows[y][i] = 0;
  for (uint32_t y = 150; y < 450; ++y)
    for (uint32_t x = 200; x < 600; ++x) m.rows[y][x >> 3] |= uint8_t(0x80 >> (x & 7));
  return m;
}

struct Shot {
  img::float_image reference = Texture(types::affine::identity());
  img::float_image target =
      Texture({1.3, -0.7, std::cos(0.01), -std::sin(0.01), std::sin(0.01), std::cos(0.01)});
  img::bitmap<img::bit1> mask = Mask();
};

const Shot& TheShot() {
  static const Shot shot;
  return shot;
}

const TransformClass kModels[] = {TransformClass::Translation, TransformClass::Rigid,
                                  TransformClass::RigidScale, TransformClass::Affine};

// The second argument picks the paths: 0 all (vectors, two threads), 1 one
// thread, 2 one thread with the baseline instruction set only.
struct Paths {
  explicit Paths(benchmark::State& state, int arg = 1) : mode(state.range(arg)) {
    tracking::LimitOpticFlowToOneThread(mode >= 1);
    tracking::LimitOpticFlowToBaseline(mode >= 2);
  }
  ~Paths() {
    tracking::LimitOpticFlowToOneThread(false);
    tracking::LimitOpticFlowToBaseline(false);
  }
  std::string label() const {
    return mode == 0 ? "" : mode == 1 ? ", one thread" : ", one thread, baseline";
  }
  int64_t mode;
};

// Argument: model index.
void BM_OpticFlowMeasure(benchmark::State& state) {
  const Shot& shot = TheShot();
  const TransformClass model = kModels[state.range(0)];
  const Paths paths(state);
  tracking::OpticFlow flow;
  flow.initialise(types::affine::identity(), shot.reference, shot.mask, model, false);
  flow.set(types::affine::translation(1.2, -0.6), -1);
  for (auto _ : state) benchmark::DoNotOptimize(flow.measure(shot.target, nullptr));
  state.counters["samples"] = double(flow.samples().size());
  state.SetLabel(std::string(LogName(model)) + paths.label());
}
BENCHMARK(BM_OpticFlowMeasure)
    ->ArgsProduct({{0, 1, 2, 3}, {0, 1, 2}})
    ->Unit(benchmark::kMillisecond);

// The bilinear pass alone.
void BM_OpticFlowSampleTarget(benchmark::State& state) {
  const Shot& shot = TheShot();
  const Paths paths(state, 0);
  tracking::OpticFlow flow;
  flow.initialise(types::affine::identity(), shot.reference, shot.mask, TransformClass::Affine,
                  false);
  std::vector<tracking::Colour> values(flow.samples().size());
  const types::affine t{1.2, -0.6, 1.001, 0.002, -0.002, 0.999};
  for (auto _ : state)
    benchmark::DoNotOptimize(tracking::SampleTarget(shot.target, t, flow.samples(), values));
  state.SetLabel(paths.label());
}
BENCHMARK(BM_OpticFlowSampleTarget)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);

// One full refinement iteration: amendment, composition and measure.
void BM_OpticFlowIteration(benchmark::State& state) {
  const Shot& shot = TheShot();
  const TransformClass model = kModels[state.range(0)];
  const Paths paths(state);
  tracking::OpticFlow flow;
  flow.initialise(types::affine::identity(), shot.reference, shot.mask, model, false);
  for (auto _ : state) {
    flow.set(types::affine::translation(1.2, -0.6), -1);
    flow.optimise_once(shot.target, 1, nullptr);
  }
  state.SetLabel(std::string(LogName(model)) + ", includes the initial measure" + paths.label());
}
BENCHMARK(BM_OpticFlowIteration)
    ->ArgsProduct({{0, 1, 2, 3}, {0, 1, 2}})
    ->Unit(benchmark::kMillisecond);

}  // namespace
