// SPDX-License-Identifier: GPL-3.0-or-later
// Rendering 100 frames of 1920 x 1080 through the render command: a shot
// under a rotating, moving overlay (bilinear), to TGA, PNG and a lossless
// AVI, with the encoding in line and on the second thread. Beside them the
// parts alone: the view's composites without a writer, and each writer's
// encoding of one composite 100 times. The counter "fps" is frames per
// second of wall time, "cpu_ms_per_frame" the processor time of all
// threads per frame; every run starts from an empty cache.
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <memory>
#include <random>

#include "app/commands/command_texts.h"
#include "app/message_queue.h"
#include "app/model/comp.h"
#include "app/model/overlay.h"
#include "app/model/segment.h"
#include "app/operation_stack.h"
#include "app/preferences.h"
#include "app/preview/recording_surface.h"
#include "app/preview/view.h"
#include "app/profile_store.h"
#include "app/render/image_writer.h"
#include "app/render/render_command.h"
#include "app/render/render_settings.h"
#include "app/scripted_dialogs.h"
#include "imaging/cache.h"
#include "imaging/multi_io.h"

namespace {

namespace fs = std::filesystem;
constexpr uint32_t kW = 1920, kH = 1080;
constexpr int kFrames = 100;
constexpr int kDistinct = 8;  // shot files; the others are hard links to them

img::image Texture(uint32_t seed, bool holes) {
  img::image p(kW, kH);
  std::mt19937 random(seed);
  for (uint32_t y = 0; y < kH; ++y)
    for (uint32_t x = 0; x < kW; ++x) {
      uint8_t* px = p.rows[y] + 4 * x;
      const uint32_t r = random();
      px[0] = uint8_t(r), px[1] = uint8_t(r >> 8), px[2] = uint8_t((x + y + seed) & 255);
      px[3] = holes ? ((x / 64 + y / 64) % 3 == 0 ? 0 : 200 + (r >> 24) % 56) : 255;
    }
  return p;
}

struct Scene {
  fs::path dir = fs::temp_directory_path() / "velomar-render-bench";
  std::vector<std::string> frames;
  std::string overlay;

  Scene() {
    fs::remove_all(dir);
    fs::create_directories(dir / "src");
    for (int k = 0; k < kFrames; ++k) {
      char name[32];
      std::snprintf(name, sizeof name, "shot_%04d.tga", k);
      const fs::path file = dir / "src" / name;
      if (k < kDistinct)
        img::multi_writer().write(file.string(), "TGA", Texture(uint32_t(k), false), false);
      else
        fs::create_hard_link(dir / "src" / frames[size_t(k % kDistinct)], file);
      frames.push_back(file.filename().string());
    }
    for (auto& f : frames) f = (dir / "src" / f).string();
    overlay = (dir / "src" / "overlay.tga").string();
    img::multi_writer().write(overlay, "TGA", Texture(99, true), true);
  }
  ~Scene() { fs::remove_all(dir); }
};

Scene& TheScene() {
  static Scene scene;
  return scene;
}

struct Session {
  img::Cache cache{[](const std::string& n, img::image& o) { img::multi_reader().read(n, o); },
                   int64_t(1) << 30};
  app::MessageQueue queue;
  app::ScriptedDialogs dialogs;
  app::OperationStack operations;
  app::MemoryProfileStore profile;
  app::RecordingSurface surface;
  app::AppPreferences preferences;
  app::AviCoderList coders;
  VLComp comp{operations, &dialogs};
  std::unique_ptr<app::VLView> view;

  Session() {
    comp.LoadSequence(TheScene().frames, 25, {1, 1}, 0);
    comp.GetInterface().CreateSegment(0, false);
    VLSegment& s = comp.GetSegmentObject(0);
    s.SetTimeSpanDirect(0, kFrames);
    auto data = std::make_shared<VLSegmentData>();
    for (int f = 0; f < kFrames; ++f) {
      const double a = 0.004 * f, c = std::cos(a), n = std::sin(a);
      data->Append(VLSegmentData::Direction::Forward,
                   types::affine{3.1 * f + 0.37, 1.3 * f - 0.21, c, -n, n, c});
    }
    s.ReplaceData(data);
    comp.RebuildTopPath();
    comp.GetOverlay().ImportDirect({TheScene().overlay}, false);
    comp.UpdateOverlaySpan();
    view = std::make_unique<app::VLView>(comp, app::VLViewPorts{.surface = surface,
                                                                .profile = profile,
                                                                .queue = queue,
                                                                .dialogs = dialogs,
                                                                .cache = cache});
    view->wait_idle([&] { queue.pump(); });
  }
};

// Processor time of all threads of the process, in seconds: on a shared
// machine the wall time says more about the neighbours than about us.
double ProcessSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         1e-6 * double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
}

struct Clock {
  std::chrono::steady_clock::time_point wall = std::chrono::steady_clock::now();
  double cpu = ProcessSeconds();
};

void Report(benchmark::State& state, int64_t frames, const Clock& since) {
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - since.wall).count();
  state.counters["fps"] = benchmark::Counter(double(frames) / seconds);
  state.counters["ms_per_frame"] = benchmark::Counter(1000 * seconds / double(frames));
  state.counters["cpu_ms_per_frame"] =
      benchmark::Counter(1000 * (ProcessSeconds() - since.cpu) / double(frames));
}

// The whole command. Arguments: 0 TGA, 1 PNG, 2 AVI (utvideo), 3 AVI (ffv1);
// overlap 0 or 1.
void BM_Render(benchmark::State& state) {
  static const char* const kFormats[] = {"tga", "png", "avi", "avi"};
  const int which = int(state.range(0));
  const bool overlap = state.range(1) != 0;
  const fs::path out = TheScene().dir / "out";
  for (auto _ : state) {
    state.PauseTiming();
    fs::remove_all(out);
    fs::create_directories(out);
    Session s;
    s.preferences.renderingFormat = kFormats[which];
    if (which >= 2)
      app::ChooseAviCoder(s.preferences, s.profile, *s.coders.find(which == 2 ? "utvideo" : "ffv1"),
                          "");
    s.dialogs.choose_file(
        (out / (which >= 2 ? std::string("out.avi") : "shot_0000." + std::string(kFormats[which])))
            .string());
    app::RenderPorts ports{.comp = s.comp,
                           .view = *s.view,
                           .dialogs = s.dialogs,
                           .profile = s.profile,
                           .preferences = s.preferences,
                           .operations = s.operations,
                           .coders = s.coders,
                           .cache = s.cache,
                           .filter = app::AviFilter(img::multi_reader().filter()),
                           .pump = [&] { s.queue.pump(); },
                           .overlap = overlap};
    state.ResumeTiming();
    const Clock start;
    const app::RenderOutcome outcome = app::Render(ports, false);
    Report(state, outcome.frames, start);
  }
  fs::remove_all(out);
}
BENCHMARK(BM_Render)
    ->ArgsProduct({{0, 1, 2, 3}, {0, 1}})
    ->ArgNames({"format", "overlap"})
    ->Iterations(1)
    ->Unit(benchmark::kSecond)
    ->UseRealTime();

// The view's composites alone: decoding the shot and the overlay, and the
// composite, for each frame in turn, as the render waits for them.
void BM_RenderCompositesOnly(benchmark::State& state) {
  for (auto _ : state) {
    state.PauseTiming();
    Session s;
    state.ResumeTiming();
    const Clock start;
    for (int32_t f = 0; f < kFrames; ++f) {
      s.comp.SetCurrentTime(f);
      s.view->refresh(false);
      s.view->wait_idle([&] { s.queue.pump(); });
    }
    Report(state, kFrames, start);
  }
}
BENCHMARK(BM_RenderCompositesOnly)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

// Each writer alone, on one composite-like frame: 0 TGA, 1 PNG, 2 utvideo, 3 ffv1.
void BM_RenderEncodeOnly(benchmark::State& state) {
  const int which = int(state.range(0));
  const fs::path out = TheScene().dir / "encode";
  const img::image frame = Texture(5, true);
  for (auto _ : state) {
    state.PauseTiming();
    fs::remove_all(out);
    fs::create_directories(out);
    std::unique_ptr<app::ImageWriter> writer;
    if (which < 2)
      writer = std::make_unique<app::DiscreteWriter>(out.string(), which == 0 ? "tga" : "png", true,
                                                     TheScene().frames, 0);
    else
      writer = std::make_unique<app::AviWriter>(
          img::avi::find_coder(which == 2 ? "utvideo" : "ffv1"), "", (out / "e.avi").string(),
          img::avi::settings{.width = kW, .height = kH, .rate = 25});
    state.ResumeTiming();
    const Clock start;
    for (int i = 0; i < kFrames; ++i) writer->write(frame);
    writer->close();
    Report(state, kFrames, start);
  }
  fs::remove_all(out);
}
BENCHMARK(BM_RenderEncodeOnly)
    ->DenseRange(0, 3)
    ->ArgName("writer")
    ->Iterations(1)
    ->Unit(benchmark::kSecond)
    ->UseRealTime();

}  // namespace
