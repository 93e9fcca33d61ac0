// SPDX-License-Identifier: GPL-3.0-or-later
// The window's speed as a user meets it, on the display given (or Qt's
// offscreen platform): start-up to a shown window, opening a 1080p sequence
// of 500 frames, playback of a tracked 1080p composite at 25 frames per
// second, and the brush's time per mouse move on a 1080p frame.
//
//   velomar_window_bench [FOLDER]   # footage is written there (default: /tmp)
#include <QApplication>
#include <QTest>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>

#include "app/commands/application.h"
#include "app/edit/mask_editor.h"
#include "app/model/comp.h"
#include "app/model/segment.h"
#include "app/preview/view.h"
#include "app/profile_store.h"
#include "app/scripted_dialogs.h"
#include "gui/desktop.h"
#include "gui/main_frame.h"
#include "gui/view_widget.h"
#include "imaging/native_io.h"
#include "imaging/synthetic_shot.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

double Ms(Clock::duration d) {
  return std::chrono::duration<double, std::milli>(d).count();
}

void WaitFor(const std::function<bool()>& done, int ms) {
  for (const auto end = Clock::now() + std::chrono::milliseconds(ms);
       !done() && Clock::now() < end;)
    QTest::qWait(1);
}

}  // namespace

int main(int argc, char** argv) {
  const auto t0 = Clock::now();
  if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM") && !qEnvironmentVariableIsSet("DISPLAY"))
    qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication application(argc, argv);
  const fs::path folder = fs::path(argc > 1 ? argv[1] : "/tmp") / "velomar-window-bench";
  fs::create_directories(folder);

  app::ScriptedDialogs dialogs(app::ScriptedDialogs::Mode::Affirmative);
  app::MemoryProfileStore profile;
  auto desktop = std::make_unique<gui::Desktop>(
      gui::DesktopOptions{.dialogs = &dialogs, .profile = &profile, .serve_link = false});
  desktop->frame().resize(1600, 1000);
  desktop->frame().show();
  if (!QTest::qWaitForWindowExposed(&desktop->frame())) return 1;
  QTest::qWait(0);
  std::printf("start-up to a shown window: %.1f ms (platform %s)\n", Ms(Clock::now() - t0),
              qPrintable(QGuiApplication::platformName()));

  // 30 distinct 1080p frames of the synthetic shot; 500 names of them.
  img::synthetic_shot shot;
  shot.width = 1920, shot.height = 1080, shot.frames = 30, shot.key_frame = 15;
  shot.plate_left = 660, shot.plate_top = 330, shot.plate_width = 600, shot.plate_height = 420;
  img::image frame;
  for (int32_t i = 0; i < shot.frames; ++i) {
    const fs::path path = folder / ("real_" + std::to_string(1000 + i) + ".bmp");
    if (fs::exists(path)) continue;
    shot.render(i, frame);
    img::native_writer().write(path.string(), "BMP", frame, false);
  }
  for (int32_t i = 0; i < 500; ++i) {
    const fs::path link = folder / ("long_" + std::to_string(1000 + i) + ".bmp");
    if (!fs::exists(link))
      fs::create_symlink(folder / ("real_" + std::to_string(1000 + i % shot.frames) + ".bmp"),
                         link);
  }
  gui::ViewWidget& view = desktop->frame().view();
  app::Velomar& velomar = desktop->app();
  VLComp& comp = velomar.GetComposition();
  {
    const uint64_t painted = view.frames_painted();
    const auto t = Clock::now();
    velomar.LoadSequenceFile((folder / "long_1000.bmp").string());
    WaitFor([&] { return view.frames_painted() > painted; }, 10000);
    std::printf("opening a 1080p sequence of %d frames, first frame on screen: %.1f ms\n",
                comp.GetLength(), Ms(Clock::now() - t));
  }
  dialogs.answer(app::Answer::No);
  velomar.CloseProject();

  // A tracked composite: the shot with its true motion as the segment's
  // results, an overlay riding on it, the mask shown.
  velomar.LoadSequenceFile((folder / "real_1000.bmp").string());
  comp.SetCurrentTime(shot.key_frame);
  velomar.OnNewSegment();
  VLSegment& segment = comp.GetSegmentObject(0);
  segment.SetTimeSpanDirect(0, shot.frames);
  auto data = std::make_shared<VLSegmentData>();
  const types::affine key = shot.plate_motion(shot.key_frame).inverse();
  for (int32_t f = shot.key_frame; f < shot.frames; ++f)
    data->Append(VLSegmentData::Direction::Forward, shot.plate_motion(f) * key);
  for (int32_t f = shot.key_frame - 1; f >= 0; --f)
    data->Append(VLSegmentData::Direction::Backward, shot.plate_motion(f) * key);
  segment.ReplaceData(data);
  {
    img::image patch(400, 300);
    for (uint32_t y = 0; y < patch.height; ++y)
      for (uint32_t x = 0; x < patch.width; ++x) {
        uint8_t* p = patch.rows[y] + 4 * x;
        p[0] = uint8_t(x), p[1] = uint8_t(y), p[2] = 200, p[3] = 255;
      }
    img::native_writer().write((folder / "patch.bmp").string(), "BMP", patch, true);
    comp.GetOverlay().GetInterface().Import({(folder / "patch.bmp").string()});
  }
  view.fit_on_screen();
  {
    // Where the time of a frame goes: compositing it, and drawing it.
    double composite = 0, paint = 0;
    for (int32_t f = 0; f < 10; ++f) {
      auto t = Clock::now();
      comp.SetCurrentTime(f);
      desktop->view().wait_idle([&] { desktop->pump(); });
      composite += Ms(Clock::now() - t);
      t = Clock::now();
      view.repaint();
      paint += Ms(Clock::now() - t);
    }
    std::printf("one tracked 1080p frame: %.1f ms to composite, %.1f ms to draw at zoom %.2f\n",
                composite / 10, paint / 10, view.zoom());
  }
  // The first pass composites every frame; later ones find them in the cache.
  for (const uint32_t rate : {25u, 50u, 25u}) {
    desktop->view().set_play_delay(app::PlayDelayOfRate(rate));
    comp.SetCurrentTime(0);
    WaitFor([&] { return desktop->view().merger().is_idle(); }, 5000);
    const uint64_t painted = view.frames_painted();
    int32_t frames = 0, last = comp.GetPreviewTime(), skipped = 0;
    desktop->view().set_play_state(app::kPlayForward);
    const auto t = Clock::now();
    while (Clock::now() - t < std::chrono::seconds(4)) {
      QTest::qWait(1);
      const int32_t now = comp.GetPreviewTime();
      if (now != last) {
        ++frames;
        if (now != (last + 1) % shot.frames) ++skipped;
        last = now;
      }
    }
    const double seconds = std::chrono::duration<double>(Clock::now() - t).count();
    desktop->view().set_play_state(app::kStopped);
    std::printf(
        "playback of the tracked 1080p composite at %u fps requested: %.1f fps reached, "
        "%d frames skipped, %.1f paints/s\n",
        rate, frames / seconds, skipped, (view.frames_painted() - painted) / seconds);
  }

  // The brush on the key frame: one stroke across the plate.
  comp.SetCurrentTime(shot.key_frame);
  desktop->editor().Begin(segment);
  desktop->view().wait_idle([&] { desktop->pump(); });
  view.actual_pixels();
  QTest::qWait(50);
  auto at = [&](double x, double y) { return view.to_widget(QPointF(x, y)).toPoint(); };
  const double y = shot.plate_top + 200;
  QTest::mousePress(&view, Qt::LeftButton, {}, at(shot.plate_left, y));
  double total = 0, worst = 0;
  int moves = 0;
  for (double x = shot.plate_left; x < shot.plate_left + 600; x += 3, ++moves) {
    const auto t = Clock::now();
    QTest::mouseMove(&view, at(x, y));
    const double ms = Ms(Clock::now() - t);
    total += ms;
    worst = std::max(worst, ms);
  }
  QTest::mouseRelease(&view, Qt::LeftButton, {}, at(shot.plate_left + 600, y));
  size_t set = 0;
  const VL::Mask& mask = segment.GetMask();
  for (uint32_t x = 0; x < mask.width; ++x)
    set += (mask.rows[size_t(y)][x >> 3] & (128 >> (x & 7))) != 0;
  std::printf(
      "brush stroke on 1080p at 100%% (radius %d): %.2f ms per mouse move on average, "
      "%.2f ms at worst, over %d moves (%zu pixels set on the stroke's row)\n",
      desktop->editor().GetBrush().GetRadius(), total / moves, worst, moves, set);
  desktop->editor().End();
  dialogs.answer(app::Answer::No);
  velomar.CloseProject();
  desktop.reset();
  return 0;
}
