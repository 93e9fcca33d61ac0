// Profile building for a 400 x 300 mask on an 800 x 600 picture at the
// default parameters (block size 8, self-compared mode, self radius 2): one
// call per target frame. Argument: the search radius, 15 next to the key
// frame and 5 (MaxAcceleration) elsewhere; second argument 1 keeps the scan
// to the baseline instruction set.
#include <benchmark/benchmark.h>

#include "base/segment_params.h"
#include "imaging/float_image.h"
#include "imaging/synthetic_shot.h"
#include "tracking/matching_profile.h"

namespace {

constexpr uint32_t kW = 800, kH = 600;

img::float_image Texture(double dx, double dy) {
  const img::noise_texture texture{7, 12.0};
  img::float_image out(kW, kH);
  for (uint32_t y = 0; y < kH; ++y)
    for (uint32_t x = 0; x < kW; ++x) {
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

void BM_BuildProfiles(benchmark::State& state) {
  static const img::float_image reference = Texture(0, 0), target = Texture(2, -1);
  img::bitmap<img::bit1> mask(kW, kH);
  for (uint32_t y = 0; y < kH; ++y)
    for (uint32_t i = 0; i < mask.stride; ++i)
      mask.rows[y][i] = (y >= 150 && y < 450 && i >= 25 && i < 75) ? 0xFF : 0;
  const VLSegmentParams params;
  tracking::Segmentation seg;
  seg.create(mask, params.ImageBlockSize, 0);
  seg.image = &reference;
  const auto p = tracking::ProfileParamsOf(params, int32_t(state.range(0)));
  tracking::LimitProfileScanToBaseline(state.range(1) != 0);
  for (auto _ : state) {
    tracking::BuildProfiles(seg, target, p, false);
    benchmark::DoNotOptimize(seg.segments.front().profile.cells.data());
  }
  tracking::LimitProfileScanToBaseline(false);
  state.counters["segments"] = double(seg.segment_count());
}
BENCHMARK(BM_BuildProfiles)
    ->ArgsProduct({{5, 15}, {0, 1}})
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
