// SPDX-License-Identifier: GPL-3.0-or-later
// Keyframe export of a long, smooth motion under every model, with the usual
// inaccuracy and with 0 (no thinning). Thinning dominates; the counter
// "keyframes" is what the host would have to load.
#include <cmath>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "exchange/ae5_keyframe_data.h"
#include "exchange/keyframe_export.h"
#include "exchange/transform_applicator.h"

namespace {

constexpr int kW = 1920, kH = 1080;

// A hand-held camera: slow drift with sway, a little rotation and zoom
// breathing, a trace of shear; every parameter changes in every frame.
Transformations SmoothMotion(int frames) {
  Transformations record;
  auto& m = record.Own();
  m.reserve(frames);
  for (int f = 0; f < frames; ++f) {
    const double t = f / 25.0;
    const double r = 0.05 * std::sin(0.31 * t);
    const double s = 1 + 0.03 * std::sin(0.17 * t + 1);
    const double k = 0.01 * std::sin(0.11 * t);
    const double a = s * std::cos(r), b = -s * std::sin(r);
    const double c = s * std::sin(r) + k * a, d = s * std::cos(r) + k * b;
    const double px = 960 + 0.8 * f + 40 * std::sin(0.7 * t), py = 540 + 25 * std::sin(0.45 * t);
    m.push_back({px - (a * 960 + b * 540), py - (c * 960 + d * 540), a, b, c, d});
  }
  return record;
}

void BM_ExportKeyframes(benchmark::State& state) {
  static const Transformations motion = SmoothMotion(10000);
  Transformations record = motion;
  record.ExportModel = ExportModel(state.range(0));
  record.ExportInaccuracy = float(state.range(1)) / 10;
  const FrameFormat format{kW, kH, 25, 1, 1};
  for (auto _ : state) {
    std::ostringstream out;
    WriteKeyframeText(out, format, record);
    benchmark::DoNotOptimize(out.str().size());
  }
  auto applicator = CreateTransformApplicator(record, kW, kH);
  applicator->SetTransformations(record);
  std::ostringstream sink;
  applicator->Begin(std::make_unique<AE5KeyframeData>(
      sink, record.first, int(motion.GetTransforms().size()), 25, kW, kH, 1.0f));
  state.counters["keyframes"] = applicator->KeyframeCount();
  state.SetLabel(std::string(FileWord(record.ExportModel)) +
                 " e=" + std::to_string(record.ExportInaccuracy).substr(0, 3));
}

// Models 0 (Auto) to 7; inaccuracy in tenths of a pixel: 0.3 and 0.
BENCHMARK(BM_ExportKeyframes)
    ->ArgsProduct({benchmark::CreateDenseRange(0, 7, 1), {3, 0}})
    ->Unit(benchmark::kMillisecond);

}  // namespace
