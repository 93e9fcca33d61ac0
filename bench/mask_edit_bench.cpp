// SPDX-License-Identifier: GPL-3.0-or-later
// Painting on a 1080p key frame. A stroke step (one mouse move with a
// button down) must stay far under a screen refresh, 16 ms, at every brush
// size; the end of a stroke hands the whole mask to the undo queue once.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "app/edit/mask_bits.h"
#include "app/edit/mask_editor.h"
#include "app/model/comp.h"
#include "imaging/native_io.h"

namespace {

struct FullHd {
  app::OperationStack operations;
  VLComp comp{operations};
  app::MaskEditor editor{comp};

  FullHd() {
    const auto dir = std::filesystem::temp_directory_path() / "velomar_mask_edit_bench";
    std::filesystem::create_directories(dir);
    const std::string frame = (dir / "frame.bmp").string();
    img::native_writer().write(frame, "BMP", img::image(1920, 1080), false);
    comp.hooks.purgeCache = [] {};
    comp.LoadSequence(std::vector<std::string>(10, frame), 25, {1, 1}, 0);
    comp.GetInterface().CreateSegment(5, false);
    editor.Begin(comp.GetSegmentObject(0));
  }
};

// One mouse move of a stroke across the frame, at the brush radius given.
void BM_BrushStrokeStep(benchmark::State& state) {
  FullHd shot;
  shot.editor.GetBrush().SetRadius(int32_t(state.range(0)));
  shot.editor.MouseDown(app::MouseButton::Left, {100.5f, 540.25f});
  float x = 100.5f;
  for (auto _ : state) {
    x = x > 1800 ? 100.5f : x + 7.3f;
    shot.editor.MouseMove({x, 540.25f + (x - 960) * 0.2f});
  }
}
BENCHMARK(BM_BrushStrokeStep)->Arg(1)->Arg(20)->Arg(75)->Arg(150)->Unit(benchmark::kMicrosecond);

// The same disc tested pixel by pixel over its bounding box: the plain way
// the run-per-row stamping is measured against (same pixels, see the tests).
void BM_DiscPerPixel(benchmark::State& state) {
  VL::Mask mask(1920, 1080);
  std::memset(mask.data, 0, mask.size);
  const auto radius = int32_t(state.range(0));
  float x = 100.5f;
  for (auto _ : state) {
    x = x > 1800 ? 100.5f : x + 7.3f;
    const float y = 540.25f + (x - 960) * 0.2f;
    for (int32_t py = std::max(int32_t(y) - radius, 0); py <= std::min(int32_t(y) + radius, 1079);
         ++py)
      for (int32_t px = std::max(int32_t(x) - radius, 0); px <= std::min(int32_t(x) + radius, 1919);
           ++px)
        if (app::DiscCovers(x, y, radius, px, py)) app::SetMaskBit(mask, px, py, true);
    benchmark::DoNotOptimize(mask.data);
  }
}
BENCHMARK(BM_DiscPerPixel)->Arg(20)->Arg(150)->Unit(benchmark::kMicrosecond);

// The end of a stroke: the mask goes to the segment as one undo step.
void BM_StrokeCommit(benchmark::State& state) {
  FullHd shot;
  shot.comp.GetActionQueue().SetLimit(4);  // old masks would pile up otherwise
  bool value = true;
  for (auto _ : state) {
    const auto button = value ? app::MouseButton::Left : app::MouseButton::Right;
    shot.editor.MouseDown(button, {960.5f, 540.5f});
    shot.editor.MouseUp(button, {960.5f, 540.5f});
    value = !value;
  }
}
BENCHMARK(BM_StrokeCommit)->Unit(benchmark::kMicrosecond);

// The bucket on an empty 1080p mask: every row one span.
void BM_FillFullHd(benchmark::State& state) {
  VL::Mask mask(1920, 1080);
  std::memset(mask.data, 0, mask.size);
  bool value = true;
  for (auto _ : state) {
    app::FloodFill(mask, 960, 540, value);
    value = !value;
  }
}
BENCHMARK(BM_FillFullHd)->Unit(benchmark::kMicrosecond);

}  // namespace
