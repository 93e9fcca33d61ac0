// SPDX-License-Identifier: GPL-3.0-or-later
// Compositing a 1080p frame: the underlay under a rotated and scaled
// overlay with a tracked mask, nearest and bilinear, in composites per
// second on one thread; and the underlay alone moved by whole pixels beside
// a plain copy of a 1080p frame, measured in the same run.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <random>

#include "imaging/merge.h"

namespace {

constexpr uint32_t kW = 1920, kH = 1080;

img::image Noise(unsigned seed) {
  img::image im(kW, kH);
  std::mt19937 rng(seed);
  for (uint32_t i = 0; i < im.size / 4; ++i) {
    const uint32_t v = rng();
    std::memcpy(im.data + 4 * size_t(i), &v, 4);
  }
  return im;
}

img::bitmap<img::bit1> Ellipse() {
  img::bitmap<img::bit1> mask(kW, kH);
  for (uint32_t y = 0; y < kH; ++y) {
    std::memset(mask.rows[y], 0, mask.stride);
    for (uint32_t x = 0; x < kW; ++x) {
      const double dx = (x - 960.0) / 500, dy = (y - 540.0) / 300;
      if (dx * dx + dy * dy < 1) mask.rows[y][x >> 3] |= uint8_t(0x80 >> (x & 7));
    }
  }
  return mask;
}

// A tracked motion: a few degrees, a little zoom, a fractional shift.
types::affine Motion(double degrees, double scale, double tx, double ty) {
  const double a = degrees * M_PI / 180;
  return {
      tx, ty, scale * std::cos(a), -scale * std::sin(a), scale * std::sin(a), scale * std::cos(a)};
}

struct Layers {
  img::image underlay = Noise(1), overlay = Noise(2), out{kW, kH};
  img::bitmap<img::bit1> mask = Ellipse();
};

Layers& Shared() {
  static Layers layers;
  return layers;
}

void MergeOverlayAndMask(benchmark::State& state) {
  Layers& l = Shared();
  img::MergeDetails d;
  d.width = kW;
  d.height = kH;
  d.interpolation = uint32_t(state.range(0));
  d.overlay_transform = Motion(3.0, 0.97, 41.3, -17.6);
  d.mask_transform = Motion(-2.0, 1.02, 12.25, 7.5);
  d.overlay_opacity = state.range(1) ? 1.0f : 0.8f;
  for (auto _ : state) {
    img::merge(l.out, d, {&l.underlay, &l.overlay, &l.mask});
    benchmark::DoNotOptimize(l.out.data);
  }
  state.SetItemsProcessed(state.iterations());
  state.SetBytesProcessed(int64_t(state.iterations()) * l.out.size);
}
BENCHMARK(MergeOverlayAndMask)
    ->ArgsProduct({{0, 1}, {1, 0}})
    ->ArgNames({"bilinear", "opaque"})
    ->Unit(benchmark::kMillisecond);

// The same composite held to the SSE2 baseline, for processors without AVX2.
void MergeOverlayAndMaskBaseline(benchmark::State& state) {
  img::limit_merge_to_baseline(true);
  MergeOverlayAndMask(state);
  img::limit_merge_to_baseline(false);
}
BENCHMARK(MergeOverlayAndMaskBaseline)
    ->Args({1, 1})
    ->ArgNames({"bilinear", "opaque"})
    ->Unit(benchmark::kMillisecond);

void MergeOverlayNoMask(benchmark::State& state) {
  Layers& l = Shared();
  img::MergeDetails d;
  d.width = kW;
  d.height = kH;
  d.show_mask = false;
  d.interpolation = uint32_t(state.range(0));
  d.overlay_transform = Motion(3.0, 0.97, 41.3, -17.6);
  for (auto _ : state) {
    img::merge(l.out, d, {&l.underlay, &l.overlay, nullptr});
    benchmark::DoNotOptimize(l.out.data);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(MergeOverlayNoMask)->Arg(0)->Arg(1)->ArgName("bilinear")->Unit(benchmark::kMillisecond);

// The underlay shifted by whole pixels, nothing over it: what compensation
// with a plain shift and the playback of a plain frame cost.
void MergeOffsetOnly(benchmark::State& state) {
  Layers& l = Shared();
  img::MergeDetails d;
  d.width = kW;
  d.height = kH;
  d.show_overlay = d.show_mask = false;
  d.underlay_transform = types::affine::translation(double(state.range(0)), 2);
  for (auto _ : state) {
    img::merge(l.out, d, {&l.underlay, nullptr, nullptr});
    benchmark::DoNotOptimize(l.out.data);
  }
  state.SetItemsProcessed(state.iterations());
  state.SetBytesProcessed(int64_t(state.iterations()) * l.out.size);
}
BENCHMARK(MergeOffsetOnly)->Arg(0)->Arg(3)->ArgName("shift")->Unit(benchmark::kMillisecond);

// The peer: one copy of a 1080p BGRA frame.
void CopyFrame(benchmark::State& state) {
  Layers& l = Shared();
  for (auto _ : state) {
    std::memcpy(l.out.data, l.underlay.data, l.out.size);
    benchmark::DoNotOptimize(l.out.data);
  }
  state.SetItemsProcessed(state.iterations());
  state.SetBytesProcessed(int64_t(state.iterations()) * l.out.size);
}
BENCHMARK(CopyFrame)->Unit(benchmark::kMillisecond);

}  // namespace
