// SPDX-License-Identifier: GPL-3.0-or-later
// velomar-cli demo: the main job from end to end on a shot whose motion is
// known. It makes the shot, paints the plate's mask, tracks it from the middle
// frame in both directions through the same worker as the window, and then
// says how far the result lies from the truth and how fast it came.
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <sstream>
#include <stdexcept>

#include "app/model/comp.h"
#include "app/model/keyframe_export.h"
#include "app/model/segment.h"
#include "base/timing.h"
#include "cli/commands.h"
#include "cli/demo_shot.h"
#include "cli/options.h"
#include "cli/output_file.h"
#include "cli/project_session.h"
#include "cli/render_run.h"
#include "cli/segment_setup.h"
#include "cli/style_option.h"
#include "cli/track_run.h"
#include "imaging/multi_io.h"

namespace cli {

namespace {

namespace fs = std::filesystem;

// A still overlay to glue onto the plate: an orange frame and grid over the
// plate's rectangle on the key frame, transparent elsewhere, so that a
// render shows at once whether it sticks.
void WriteOverlay(const std::string& path, const img::synthetic_shot& shot) {
  img::image picture(shot.width, shot.height);
  const int left = int(shot.plate_left), top = int(shot.plate_top);
  const int right = int(shot.plate_left + shot.plate_width);
  const int bottom = int(shot.plate_top + shot.plate_height);
  for (int y = 0; y < int(shot.height); ++y)
    for (int x = 0; x < int(shot.width); ++x) {
      uint8_t* p = picture.rows[y] + 4 * x;
      const bool inside = x >= left && x < right && y >= top && y < bottom;
      const bool border = x < left + 6 || x >= right - 6 || y < top + 6 || y >= bottom - 6;
      const bool grid = (x - left) % 40 < 2 || (y - top) % 40 < 2;
      const bool paint = inside && (border || grid);
      p[0] = 0;  // blue, green, red, alpha
      p[1] = paint ? 140 : 0;
      p[2] = paint ? 255 : 0;
      p[3] = paint ? 255 : 0;
    }
  img::multi_writer().write(path, "TGA", picture, true);
}

// The largest distance between where the tracked and the true motion put a
// corner of the plate's rectangle; negative when the frame has no result.
double CornerError(const img::synthetic_shot& shot, const VLSegmentData& data, int32_t frame) {
  const types::affine* t = data.Find(frame, shot.key_frame);
  if (!t) return -1;
  const types::affine truth = shot.plate_motion(frame);
  double worst = 0;
  for (const double cx : {shot.plate_left, shot.plate_left + shot.plate_width})
    for (const double cy : {shot.plate_top, shot.plate_top + shot.plate_height}) {
      double ax, ay, bx, by;
      t->apply(cx, cy, ax, ay);
      truth.apply(cx, cy, bx, by);
      worst = std::max(worst, std::hypot(ax - bx, ay - by));
    }
  return worst;
}

void PrintAccuracy(const img::synthetic_shot& shot, const VLSegment& segment) {
  const VLSegmentDataPtr data = segment.GetData();
  std::printf(
      "Corner error against the known motion, in pixels (the largest of the plate's four "
      "corners):\n");
  double sum = 0, worst = 0;
  int32_t worst_frame = shot.key_frame, measured = 0;
  for (int32_t row = 0; row < shot.frames; row += 10) {
    const int32_t end = std::min(row + 10, shot.frames);
    std::printf("  frames %2d-%2d:", row, end - 1);
    for (int32_t f = row; f < end; ++f) {
      const double e = CornerError(shot, *data, f);
      if (e < 0) {
        std::printf("      -");
        continue;
      }
      std::printf(" %6.3f", e);
      sum += e;
      ++measured;
      if (e > worst) worst = e, worst_frame = f;
    }
    std::printf("\n");
  }
  if (measured > 0)
    std::printf("  mean %.3f px, worst %.3f px at frame %d, over %d frames (key frame %d)\n",
                sum / measured, worst, worst_frame, measured, shot.key_frame);
}

void PrintSpeed(const TrackOutcome& outcome, const VLSegment& segment) {
  if (outcome.frames <= 0 || outcome.seconds <= 0) return;
  std::printf("Speed: %lld frames in %.2f s, %.1f frames/s, %.1f ms per frame\n",
              static_cast<long long>(outcome.frames), outcome.seconds,
              outcome.frames / outcome.seconds, 1000 * outcome.seconds / outcome.frames);
  const auto& root = segment.GetTiming().root().children;
  const auto processing = root.find("processing");
  if (processing == root.end()) return;
  // Wall time of the tracker's stages, from the segment's timing tree.
  const double ms_per_tick = 1000.0 / double(timing::frequency());
  std::printf("  per frame:");
  const char* separator = " ";
  for (const auto& [name, node] : processing->second.children) {
    std::printf("%s%s %.1f ms", separator, name.c_str(),
                node.subtree_count * ms_per_tick / double(outcome.frames));
    separator = ", ";
  }
  std::printf("\n");
}

}  // namespace

int RunDemo(const std::vector<std::string>& args) {
  const Options options(args, {}, {});
  if (options.positional().size() > 1) throw UsageError("demo takes at most one DIR");
  // Absolute: the project stores the overlay's name as given.
  const fs::path dir = fs::absolute(
      options.positional().empty() ? fs::path("demo") : fs::path(options.positional()[0]));
  // Everything here is generated, so any question the commands ask is
  // answered yes.
  ProjectSession session(true, true);
  int status = 0;
  const int failed = session.Run(
      [&] {
        const img::synthetic_shot shot;
        std::fprintf(stderr, "Rendering the demo shot into %s\n", dir.string().c_str());
        const DemoShotFiles files = WriteDemoShot(dir, shot, "TGA", true);
        const std::string overlay = (dir / "overlay.tga").string();
        WriteOverlay(overlay, shot);
        const std::string project = (dir / "demo.vlp").string();

        NewProjectFromSequence(session, files.first_frame, 50);
        SegmentRequest request;
        request.key = shot.key_frame;
        request.span = My::Span{0, shot.frames};
        request.mask = files.mask;
        const int32_t index = AddSegment(session, request);
        session.app().ImportOverlayFile(overlay, true);

        std::printf("Tracking the plate from frame %d, backward to 0, then forward to %d\n",
                    shot.key_frame, shot.frames - 1);
        std::fflush(stdout);
        TrackOutcome outcome;
        int stopped = 0;
        {
          InterruptWatch watch;
          outcome = TrackSegments(session, {index}, watch);
          session.app().SaveProjectAs(project);
          stopped = watch.status();
        }
        if (!outcome.failures.empty()) throw std::runtime_error(outcome.failures.front());
        const VLSegment& segment = session.comp().GetSegmentObject(index);
        PrintAccuracy(shot, segment);
        PrintSpeed(outcome, segment);
        if (outcome.cancelled) {
          std::printf("Cancelled; the project keeps what was tracked: %s\n", project.c_str());
          status = stopped;
          return;
        }
        std::ostringstream keyframes;
        app::WriteKeyframeText(session.comp(), keyframes);
        WriteWhole(dir / "keyframes.txt", keyframes.str());

        // The overlay over the shot, as File > Render > Composition writes it.
        RenderRequest render;
        render.out = (dir / "render").string();
        render.format = "png";
        // The shot's frames carry no alpha, which reads as alpha 0: with an
        // alpha channel the files would look empty in most viewers.
        render.alpha = false;
        render.style.background = kCliBackground;
        std::printf("Rendering the tracked overlay over the shot into %s\n", render.out.c_str());
        std::fflush(stdout);
        const auto start = std::chrono::steady_clock::now();
        app::RenderOutcome rendered;
        {
          InterruptWatch watch;
          rendered = RenderInSession(session, render, watch);
          stopped = watch.status();
        }
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        if (rendered.cancelled) {
          std::printf("Rendering interrupted by user: %lld frames kept in %s\n",
                      static_cast<long long>(rendered.frames), render.out.c_str());
          status = stopped;
          return;
        }
        std::printf("Rendered %lld frames in %.2f s (%.1f frames/s)\n",
                    static_cast<long long>(rendered.frames), seconds,
                    seconds > 0 ? rendered.frames / seconds : 0.0);
        std::printf(
            "Left in %s: shot_0000.tga ... (frames), %s (mask), overlay.tga,\n"
            "  demo.vlp (the project), keyframes.txt (the overlay's motion as keyframes),\n"
            "  render/shot_0000.png ... (the overlay glued to the plate, rendered)\n",
            dir.string().c_str(), fs::path(files.mask).filename().string().c_str());
      },
      false, "running the demo");
  return failed ? failed : status;
}

const Command kDemoCommand = {
    "demo", "track a generated shot and measure the result",
    "usage: velomar-cli demo [DIR]\n"
    "\n"
    "The main job from end to end on a shot whose motion is known. Renders a\n"
    "1280 x 720 shot of 60 frames into DIR (default ./demo): a textured plate\n"
    "moved by a smooth affine motion over a background moving otherwise. Paints\n"
    "the plate's mask on the middle frame (30), tracks it backward to frame 0\n"
    "and forward to frame 59 as track does, and prints for every frame the\n"
    "largest distance between the tracked and the true position of the plate's\n"
    "corners, their mean and worst, and the speed with the time of each stage.\n"
    "Leaves in DIR the frames, the mask, a still overlay glued to the plate,\n"
    "the project demo.vlp, the overlay's motion as keyframe text in\n"
    "keyframes.txt, and in DIR/render the overlay rendered over the shot as\n"
    "PNG files, as render does. Ctrl-C stops the tracking and keeps what was\n"
    "tracked, or stops the rendering and keeps the frames written.\n",
    RunDemo};

}  // namespace cli
