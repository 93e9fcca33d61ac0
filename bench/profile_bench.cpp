// SPDX-License-Identifier: GPL-3.0-or-later
// Profile building for a 400 x 300 mask on an 800 x 600 picture at the
// default parameters (block size 8, self-compared mode, self radius 2): one
// call per target frame. Argument: the search radius, 15 next to the key
// frame and 5 (MaxAcceleration) elsewhere; second argument: the instruction
// sets allowed (0 the widest, 1 the baseline, 2 up to AVX2).
#include <benchmark/benchmark.h>

#include "base/segment_params.h"
#include "imaging/float_image.h"
#include "imaging/synthetic_shot.h"
#include "tracking/coherent_motion.h"
#include "tracking/matching_profile.h"

namespace {

constexpr uint32_t kW = 800, kH = 600;

img::float_image Texture(uint32_t w, uint32_t h, double dx, double dy) {
  const img::noise_texture texture{7, 12.0};
  img::float_image out(w, h);
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) {
      uint8_t bgr[3];
      texture.sample(x - dx, y - dy, bgr);
      float* p = img::pixel(out, x, y);
      p[0] = bgr[0];
      p[1] = bgr[1];
      p[2] = bgr[2];
      p[3] = 255;
    }
  return out;
}

const img::float_image& Reference() {
  static const img::float_image image = Texture(kW, kH, 0, 0);
  return image;
}
const img::float_image& Target() {
  static const img::float_image image = Texture(kW, kH, 2, -1);
  return image;
}

// A 400 x 300 rectangle at the picture's centre.
img::bitmap<img::bit1> Mask(uint32_t w = kW, uint32_t h = kH) {
  img::bitmap<img::bit1> mask(w, h);
  const uint32_t x0 = (w - 400) / 2, y0 = (h - 300) / 2;
  for (uint32_t y = 0; y < h; ++y) {
    for (uint32_t i = 0; i < mask.stride; ++i) mask.rows[y][i] = 0;
    if (y < y0 || y >= y0 + 300) continue;
    for (uint32_t x = x0; x < x0 + 400; ++x) mask.rows[y][x >> 3] |= uint8_t(0x80 >> (x & 7));
  }
  return mask;
}

tracking::ProfileScanSet ScanSet(int64_t arg) {
  return arg == 1   ? tracking::ProfileScanSet::Baseline
         : arg == 2 ? tracking::ProfileScanSet::Avx2
                    : tracking::ProfileScanSet::Widest;
}

// Target frames after the first of a reference frame: the self profiles are
// kept.
void BM_BuildProfiles(benchmark::State& state) {
  const VLSegmentParams params;
  tracking::Segmentation seg;
  seg.create(Mask(), params.ImageBlockSize, 0);
  seg.image = &Reference();
  const img::float_image& target = Target();
  const auto p = tracking::ProfileParamsOf(params, int32_t(state.range(0)));
  tracking::LimitProfileScan(ScanSet(state.range(1)));
  for (auto _ : state) {
    tracking::BuildProfiles(seg, target, p, false);
    benchmark::DoNotOptimize(seg.segments.front().profile.cells.data());
  }
  tracking::LimitProfileScan(tracking::ProfileScanSet::Widest);
  state.counters["segments"] = double(seg.segment_count());
}
BENCHMARK(BM_BuildProfiles)
    ->ArgsProduct({{5, 15}, {0, 1, 2}})
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

// The first target frame of a new reference frame: statistics, reference
// pixels and self profiles are measured as well.
void BM_BuildProfilesNewReference(benchmark::State& state) {
  const VLSegmentParams params;
  tracking::Segmentation seg;
  seg.create(Mask(), params.ImageBlockSize, 0);
  seg.image = &Reference();
  const auto p = tracking::ProfileParamsOf(params, int32_t(state.range(0)));
  for (auto _ : state) {
    seg.statistics_valid = false;  // as after create()
    tracking::BuildProfiles(seg, Target(), p, false);
    benchmark::DoNotOptimize(seg.segments.front().profile.cells.data());
  }
}
BENCHMARK(BM_BuildProfilesNewReference)
    ->Arg(5)
    ->Arg(15)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

// The coherent motion search with its model-fit passes on the profiles of
// radius 5 (or 15, next to the key frame): what follows the profiles in
// every frame.
void BM_FindMotion(benchmark::State& state) {
  const VLSegmentParams params;
  tracking::Segmentation seg;
  seg.create(Mask(), params.ImageBlockSize, 0);
  seg.image = &Reference();
  tracking::BuildProfiles(seg, Target(), tracking::ProfileParamsOf(params, int32_t(state.range(0))),
                          false);
  const auto p = tracking::CoherentMotionParamsOf(params);
  for (auto _ : state) {
    tracking::TieBreaker random;
    benchmark::DoNotOptimize(tracking::FindMotion(seg, p, random, nullptr));
  }
}
BENCHMARK(BM_FindMotion)->Arg(5)->Arg(15)->Unit(benchmark::kMillisecond);

// Block matching of one target frame as the tracker runs it at "normal" on
// a 1920 x 1080 shot with a 400 x 300 mask: profiles with the kept self
// profiles, then the coherent motion search. Argument: the search radius.
void BM_BlockMatchingFullHd(benchmark::State& state) {
  static const img::float_image reference = Texture(1920, 1080, 0, 0);
  static const img::float_image target = Texture(1920, 1080, 2, -1);
  const VLSegmentParams params;
  tracking::Segmentation seg;
  seg.create(Mask(1920, 1080), params.ImageBlockSize, 0);
  seg.image = &reference;
  const auto p = tracking::ProfileParamsOf(params, int32_t(state.range(0)));
  const auto c = tracking::CoherentMotionParamsOf(params);
  tracking::TieBreaker random;
  tracking::BuildProfiles(seg, target, p, false);
  for (auto _ : state) {
    tracking::SetStartingMotion(seg, types::affine::identity());
    tracking::BuildProfiles(seg, target, p, false);
    benchmark::DoNotOptimize(tracking::FindMotion(seg, c, random, nullptr));
  }
}
BENCHMARK(BM_BlockMatchingFullHd)->Arg(5)->Arg(15)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
