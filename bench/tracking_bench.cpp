// SPDX-License-Identifier: GPL-3.0-or-later
// The whole frame loop on generated footage, decoding excluded: every frame
// is rendered into the cache before timing starts, as the prefetcher would
// have it ready. A 400 x 300 plate in 1920 x 1080 and 1280 x 720, for each
// estimation method. Reports milliseconds per tracked frame, and the share
// of each stage of the timing tree (ms per frame, wall clock).
//
// Arguments: picture height (1080 or 720), MotionEstimation (0 to 3),
// threads (1: backward then forward; 2: both directions at once).
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "imaging/cache.h"
#include "imaging/synthetic_shot.h"
#include "tracking/key_frame.h"

namespace {

constexpr int32_t kFrames = 16, kKey = 8;

struct Footage {
  img::synthetic_shot shot;
  std::vector<std::string> names;
  std::unique_ptr<img::Cache> cache;
  img::bitmap<img::bit1> mask;
  std::vector<std::unique_ptr<img::CacheHandle>> pinned;

  explicit Footage(uint32_t height) {
    shot.width = height == 1080 ? 1920 : 1280;
    shot.height = height;
    shot.frames = kFrames;
    shot.key_frame = kKey;
    shot.plate_width = 400;
    shot.plate_height = 300;
    shot.plate_left = (shot.width - 400) / 2.0;
    shot.plate_top = (shot.height - 300) / 2.0;
    for (int32_t f = 0; f < kFrames; ++f) names.push_back(std::to_string(f));
    cache = std::make_unique<img::Cache>(
        [this](const std::string& name, img::image& out) { shot.render(std::stoi(name), out); },
        int64_t(1) << 32);
    for (const std::string& name : names) {
      pinned.push_back(std::make_unique<img::CacheHandle>(*cache));
      pinned.back()->acquire_file(name, true);
    }
    shot.plate_mask(mask);
  }
};

const Footage& FootageOf(uint32_t height) {
  static std::map<uint32_t, std::unique_ptr<Footage>> all;
  auto& f = all[height];
  if (!f) f = std::make_unique<Footage>(height);
  return *f;
}

struct Sink : tracking::TrackingHost {
  VLSegmentData data;
  bool interrupted() const override { return false; }
  void direction_started(int) override {}
  void append(int direction, My::Span& span, const types::affine& t, int32_t) override {
    data.Append(
        direction == 1 ? VLSegmentData::Direction::Forward : VLSegmentData::Direction::Backward, t);
    direction == 1 ? ++span.last : --span.first;
  }
  void lost(int32_t) override {}
};

void AddStages(const timing::node& node,
               const std::string& prefix,
               std::map<std::string, double>& ms) {
  for (const auto& [name, child] : node.children) {
    const std::string path = prefix.empty() ? name : prefix + "/" + name;
    ms[path] += 1000.0 * double(child.node_count) / double(timing::frequency());
    AddStages(child, path, ms);
  }
}

// The whole process's processor time (every thread) and minor page faults:
// wall time means little on a shared machine, and the faults show whether
// frame-sized buffers are mapped afresh for every frame.
struct Usage {
  double user = 0, system = 0;
  double faults = 0;
  static Usage now() {
    rusage r{};
    getrusage(RUSAGE_SELF, &r);
    return {double(r.ru_utime.tv_sec) + 1e-6 * double(r.ru_utime.tv_usec),
            double(r.ru_stime.tv_sec) + 1e-6 * double(r.ru_stime.tv_usec), double(r.ru_minflt)};
  }
};

void BM_TrackFrames(benchmark::State& state) {
  const Footage& footage = FootageOf(uint32_t(state.range(0)));
  VLSegmentParams params;
  params.MotionEstimation = MotionEstimation(state.range(1));
  int64_t frames = 0;
  std::map<std::string, double> stage_ms;
  const Usage before = Usage::now();
  for (auto _ : state) {
    Sink sink;
    timing::tree tree;
    timing::tree forward_tree;
    tracking::TimingTreeTimer timer(&tree), forward_timer(&forward_tree);
    tracking::TrackingRun run;
    run.threads = int(state.range(2));
    run.forward_timer = &forward_timer;
    run.segment = {kKey, {0, kFrames}, params, &footage.mask, &sink.data, &footage.names};
    run.host = &sink;
    run.cache = footage.cache.get();
    run.timer = &timer;
    tracking::TrackSegment(run, {kKey, kKey});
    if (sink.data.DataSpan(kKey).length() != kFrames) state.SkipWithError("object lost");
    frames += kFrames;
    AddStages(tree.root(), "", stage_ms);
    AddStages(forward_tree.root(), "", stage_ms);
  }
  const Usage after = Usage::now();
  const double n = double(frames);
  state.counters["process_cpu_ms_per_frame"] =
      1000 * (after.user + after.system - before.user - before.system) / n;
  state.counters["system_ms_per_frame"] = 1000 * (after.system - before.system) / n;
  state.counters["minor_faults_per_frame"] = (after.faults - before.faults) / n;
  state.counters["ms_per_frame"] = benchmark::Counter(
      double(frames) / 1000.0, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  for (const auto& [stage, ms] : stage_ms)
    state.counters[stage] = ms / double(frames);  // exclusive of timed children
  state.SetLabel(std::to_string(footage.shot.width) + "x" + std::to_string(footage.shot.height) +
                 " " + std::string(Label(params.MotionEstimation)) + ", " +
                 std::to_string(state.range(2)) + " thread(s)");
}
BENCHMARK(BM_TrackFrames)
    ->ArgsProduct({{1080, 720}, {0, 1, 2, 3}, {1, 2}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(2);

}  // namespace
