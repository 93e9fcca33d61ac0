// SPDX-License-Identifier: GPL-3.0-or-later
// Opening projects with many segments: 10^3, 10^4 and 10^5 copies of one
// tracked segment (a 320 x 240 mask, 25 frames of results) over 500 frames.
// Time per segment should stay flat as the count grows; the counter gives
// microseconds per segment.
#include <benchmark/benchmark.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "app/file/project_file.h"
#include "app/model/comp.h"
#include "app/scripted_dialogs.h"
#include "imaging/native_io.h"

namespace {

namespace fs = std::filesystem;

const fs::path& Folder() {
  static const fs::path dir = fs::temp_directory_path() / "velomar_segment_count_bench";
  return dir;
}

// The text of a project with one segment, written by the program itself.
std::string OneSegmentProject() {
  fs::create_directories(Folder());
  const std::string frame = (Folder() / "frame.bmp").string();
  img::native_writer().write(frame, "BMP", img::image(320, 240), false);
  app::OperationStack operations;
  app::ScriptedDialogs dialogs;
  VLComp comp(operations, &dialogs);
  comp.hooks.purgeCache = [] {};
  comp.LoadSequence(std::vector<std::string>(500, frame), 25, {0, 1}, 0);
  comp.GetInterface().CreateSegment(250, false);
  VLSegment& s = comp.GetSegmentObject(0);
  s.SetTimeSpanDirect(238, 263);
  VL::Mask mask(320, 240);
  for (uint32_t y = 60; y < 180; ++y)
    for (uint32_t x = 10; x < 30; ++x) mask.rows[y][x] = 0xFF;
  s.SetMaskDirect(mask);
  auto data = std::make_shared<VLSegmentData>();
  for (int32_t f = 0; f < 13; ++f)
    data->forward.push_back(types::affine::translation(0.37 * f, -0.21 * f));
  for (int32_t f = 1; f < 13; ++f)
    data->backward.push_back(types::affine::translation(-0.37 * f, 0.21 * f));
  s.ReplaceData(data);
  return app::ProjectFileText(comp, (Folder() / "one.vlp").string());
}

// A project file with `count` copies of the segment, made once per count.
const std::string& ProjectWith(int64_t count) {
  static std::map<int64_t, std::string> made;
  auto found = made.find(count);
  if (found != made.end()) return found->second;
  const std::string one = OneSegmentProject();
  const size_t begin = one.find("  <Segment");
  const size_t end = one.find("</Segment>", begin) + std::string("</Segment>\n").size();
  std::string text = one.substr(0, begin);
  text.reserve(one.size() + size_t(count) * (end - begin));
  for (int64_t i = 0; i < count; ++i) text.append(one, begin, end - begin);
  text += one.substr(end);
  const std::string path = (Folder() / ("many" + std::to_string(count) + ".vlp")).string();
  std::ofstream(path, std::ios::binary) << text;
  return made.emplace(count, path).first->second;
}

void OpenProjectWithSegments(benchmark::State& state) {
  const std::string& path = ProjectWith(state.range(0));
  app::OperationStack operations;
  app::ScriptedDialogs dialogs;
  VLComp comp(operations, &dialogs);
  comp.hooks.purgeCache = [] {};
  double seconds = 0;
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    app::LoadProjectFile(comp, path, dialogs);
    seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    state.PauseTiming();
    if (comp.GetSegmentCount() != state.range(0)) state.SkipWithError("segments lost");
    comp.Close();
    state.ResumeTiming();
  }
  state.counters["us_per_segment"] =
      1e6 * seconds / double(state.iterations()) / double(state.range(0));
}
BENCHMARK(OpenProjectWithSegments)
    ->Arg(1000)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1);

}  // namespace
