// SPDX-License-Identifier: GPL-3.0-or-later
// Stand-ins for the program around the model: a view that
// records what it is told, and a composition over generated frames.
#pragma once

#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "app/model/comp.h"
#include "app/ports.h"
#include "app/scripted_dialogs.h"
#include "testing/files.h"

namespace app_testing {

// Appends what the view is told to a shared log.
class RecordingView : public app::ViewSurface {
 public:
  explicit RecordingView(std::vector<std::string>& log) : log_(log) {}
  void invalidate() override { log_.push_back("invalidate"); }
  void start_play_timer(uint32_t) override { log_.push_back("start"); }
  void stop_play_timer() override { log_.push_back("stop"); }
  void set_image_size(uint32_t w, uint32_t h) override {
    log_.push_back("size " + std::to_string(w) + "x" + std::to_string(h));
  }

 private:
  std::vector<std::string>& log_;
};

// Writes a BMP of w x h (32 bits with alpha, else 24) and returns its name.
std::string WriteImage(const testing_support::TempDir& dir,
                       const std::string& name,
                       uint32_t w,
                       uint32_t h,
                       bool alpha);

// A composition over `frames` frames of 8 x 6 pixels (one file, repeated:
// only the first frame is ever read here).
struct CompFixture {
  explicit CompFixture(int32_t frames);

  testing_support::TempDir dir;
  app::OperationStack operations;
  app::ScriptedDialogs dialogs;
  std::vector<std::string> log;
  RecordingView view{log};
  VLComp comp{operations, &dialogs, &view};

  // A segment on top of the stack with the given span and results: a pure
  // shift of `velocity` pixels per frame over every frame of the span.
  VLSegment& AddSegment(int32_t origin, My::Span span, double velocity);
};

// A composition of 100 frames with a still overlay (an image with alpha,
// so no question), and the objects the property panel shows for them.
struct PanelFixture : CompFixture {
  PanelFixture();
  app::EditableObject* composition;
  app::EditableObject* overlay;
};

}  // namespace app_testing
