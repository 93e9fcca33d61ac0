// SPDX-License-Identifier: GPL-3.0-or-later
// Saving and opening a long tracked project: 10 segments of 5,000 frames
// each, side by side over 50,000 frames of PAL size, with a still overlay
// whose transformation list spans all of them. Each frame of each segment
// holds a full affine (a slow turn and drift), the worst case for the
// defaulted attributes. Save includes completing the overlay's transforms;
// the counter gives the file's size.
#include <benchmark/benchmark.h>

#include <cmath>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "app/file/project_file.h"
#include "app/model/comp.h"
#include "app/scripted_dialogs.h"
#include "imaging/native_io.h"

namespace {

constexpr int32_t kSegments = 10;
constexpr int32_t kSegmentFrames = 5000;

struct LongProject {
  std::filesystem::path dir = std::filesystem::temp_directory_path() / "velomar_project_file_bench";
  std::string path = (dir / "long.vlp").string();
  app::OperationStack operations;
  app::ScriptedDialogs dialogs;
  VLComp comp{operations, &dialogs};

  LongProject() {
    std::filesystem::create_directories(dir);
    const std::string frame = (dir / "frame.bmp").string();
    img::native_writer().write(frame, "BMP", img::image(720, 576), false);
    comp.hooks.purgeCache = [] {};
    comp.LoadSequence(std::vector<std::string>(kSegments * kSegmentFrames, frame), 25, {0, 1}, 0);
    for (int32_t i = kSegments - 1; i >= 0; --i) {
      const int32_t origin = i * kSegmentFrames + kSegmentFrames / 2;
      comp.GetInterface().CreateSegment(origin, false);
      VLSegment& s = comp.GetSegmentObject(0);
      s.SetTimeSpanDirect(i * kSegmentFrames, (i + 1) * kSegmentFrames);
      VL::Mask mask(720, 576);
      for (uint32_t y = 200; y < 380; ++y)
        for (uint32_t x = 30; x < 60; ++x) mask.rows[y][x] = 0xFF;
      s.SetMaskDirect(mask);
      auto data = std::make_shared<VLSegmentData>();
      for (int32_t f = origin; f < (i + 1) * kSegmentFrames; ++f)
        data->forward.push_back(Motion(f - origin));
      for (int32_t f = origin - 1; f >= i * kSegmentFrames; --f)
        data->backward.push_back(Motion(f - origin));
      s.ReplaceData(data);
    }
    comp.GetOverlay().ImportDirect({frame}, false);
  }
  ~LongProject() {
    std::error_code ignored;
    std::filesystem::remove_all(dir, ignored);
  }

  static types::affine Motion(int32_t t) {
    const double a = 0.0001 * t;
    return {0.37 * t, -0.21 * t, std::cos(a), -std::sin(a), std::sin(a), std::cos(a)};
  }
};

LongProject& TheProject() {
  static LongProject project;
  return project;
}

void SaveLongProject(benchmark::State& state) {
  LongProject& p = TheProject();
  for (auto _ : state) app::SaveProjectFile(p.comp, p.path);
  state.counters["file_MB"] = double(std::filesystem::file_size(p.path)) / 1e6;
}
BENCHMARK(SaveLongProject)->Unit(benchmark::kMillisecond);

void LoadLongProject(benchmark::State& state) {
  LongProject& p = TheProject();
  if (!std::filesystem::exists(p.path)) app::SaveProjectFile(p.comp, p.path);
  app::OperationStack operations;
  app::ScriptedDialogs dialogs;
  VLComp comp(operations, &dialogs);
  comp.hooks.purgeCache = [] {};
  for (auto _ : state) {
    app::LoadProjectFile(comp, p.path, dialogs);
    state.PauseTiming();
    comp.Close();
    state.ResumeTiming();
  }
  state.counters["segments"] = kSegments;
}
BENCHMARK(LoadLongProject)->Unit(benchmark::kMillisecond);

}  // namespace
