// SPDX-License-Identifier: GPL-3.0-or-later
// The motion path of a long shot: 10,000 frames ruled by 100 overlapping
// segments. TransformBetween walks one step per run of equal ruler, so its
// cost grows with the runs between the two frames, not with the frames.
// Completing the overlay's transforms calls it once per frame from the match
// frame; the figure is per frame.
#include <benchmark/benchmark.h>

#include <cmath>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "app/model/comp.h"
#include "imaging/native_io.h"

namespace {

constexpr int32_t kFrames = 10000;
constexpr int32_t kSegments = 100;

struct Shot {
  app::OperationStack operations;
  VLComp comp{operations};
  std::string frame;

  Shot() {
    const auto dir = std::filesystem::temp_directory_path() / "velomar_transform_between_bench";
    std::filesystem::create_directories(dir);
    frame = (dir / "frame.bmp").string();
    img::native_writer().write(frame, "BMP", img::image(16, 16), false);
    comp.hooks.purgeCache = [] {};
    comp.LoadSequence(std::vector<std::string>(kFrames, frame), 25, {1, 1}, 0);
    // Each segment rules 100 frames and overlaps its neighbours by 5 each side.
    for (int32_t i = kSegments - 1; i >= 0; --i) {
      const int32_t origin = i * 100 + 50;
      comp.GetInterface().CreateSegment(origin, false);
      VLSegment& s = comp.GetSegmentObject(0);
      s.SetTimeSpanDirect(origin - 55, origin + 55);
      auto data = std::make_shared<VLSegmentData>();
      const My::Span span = s.GetTimeSpan();
      for (int32_t f = origin; f < span.last; ++f) data->forward.push_back(Motion(f - origin));
      for (int32_t f = origin - 1; f >= span.first; --f)
        data->backward.push_back(Motion(f - origin));
      s.ReplaceData(data);
    }
  }

  static types::affine Motion(int32_t t) {
    const double a = 0.001 * t;
    return {0.7 * t, -0.2 * t, std::cos(a), -std::sin(a), std::sin(a), std::cos(a)};
  }
};

Shot& TheShot() {
  static Shot shot;
  return shot;
}

void TransformBetween(benchmark::State& state) {
  Shot& shot = TheShot();
  const int32_t distance = int32_t(state.range(0));
  const int32_t a = (kFrames - distance) / 2;
  for (auto _ : state) benchmark::DoNotOptimize(shot.comp.TransformBetween(a, a + distance));
}
BENCHMARK(TransformBetween)->Arg(1)->Arg(100)->Arg(1000)->Arg(9999)->ArgName("frames");

void CompleteOverlayTransforms(benchmark::State& state) {
  Shot& shot = TheShot();
  VLOverlay& overlay = shot.comp.GetOverlay();
  if (overlay.IsEmpty()) overlay.ImportDirect({shot.frame}, false);
  overlay.SetMatchDirect(kFrames / 2);
  const My::Span span = overlay.GetTransformSpan();
  for (auto _ : state) {
    overlay.SetTransformSpan(span.first, span.last);  // forgets every transform
    overlay.CompleteTransforms();
  }
  state.SetItemsProcessed(state.iterations() * span.length());
  state.counters["frames"] = span.length();
}
BENCHMARK(CompleteOverlayTransforms)->Unit(benchmark::kMillisecond);

}  // namespace
