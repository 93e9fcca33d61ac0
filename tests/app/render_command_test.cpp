// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/render/render_command.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>

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
#include "app/render/render_settings.h"
#include "app/scripted_dialogs.h"
#include "imaging/cache.h"
#include "imaging/multi_io.h"
#include "testing/avi_frames.h"
#include "testing/files.h"

namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using testing_support::TempDir;

constexpr uint32_t kW = 16, kH = 8;

// Frame k of the shot is a flat blue of 10 k + 5, opaque; its files are
// shot_0000.bmp and on, so a rendered file says by name and by pixel which
// frame it stands for.
img::image Flat(uint8_t blue, uint32_t w = kW, uint32_t h = kH) {
  img::image p(w, h);
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) {
      uint8_t* px = p.rows[y] + 4 * x;
      px[0] = blue, px[1] = 7, px[2] = 9, px[3] = 255;
    }
  return p;
}

// Stops the render once `after` frames are written, as the dialog's Cancel.
class CancellingDialogs : public app::ScriptedDialogs {
 public:
  int64_t after = -1;
  std::unique_ptr<app::Progress> begin_progress(const std::string& title) override {
    struct Cancelling : app::Progress {
      std::unique_ptr<app::Progress> inner;
      int64_t after = -1, done = 0;
      void update(int64_t d, int64_t t, const std::string& text) override {
        done = d;
        inner->update(d, t, text);
      }
      bool cancelled() const override { return after >= 0 && done >= after; }
    };
    auto p = std::make_unique<Cancelling>();
    p->inner = ScriptedDialogs::begin_progress(title);
    p->after = after;
    return p;
  }
};

struct RenderFixture {
  TempDir src, out;
  std::vector<std::string> frames;
  img::Cache cache{
      [](const std::string& name, img::image& o) { img::multi_reader().read(name, o); }, int64_t(1)
                                                                                             << 26};
  app::MessageQueue queue;
  CancellingDialogs dialogs;
  app::OperationStack operations;
  app::MemoryProfileStore profile;
  app::RecordingSurface surface;
  app::AppPreferences preferences;
  app::AviCoderList coders;
  VLComp comp{operations, &dialogs};
  std::unique_ptr<app::VLView> view;
  bool window = true;

  explicit RenderFixture(int32_t count) {
    for (int32_t k = 0; k < count; ++k) {
      frames.push_back(src / ("shot_000" + std::to_string(k) + ".bmp"));
      img::multi_writer().write(frames.back(), "BMP", Flat(uint8_t(10 * k + 5)), true);
    }
    comp.LoadSequence(frames, 25, {1, 1}, 0);
    operations.clear();
    view = std::make_unique<app::VLView>(comp, app::VLViewPorts{.surface = surface,
                                                                .profile = profile,
                                                                .queue = queue,
                                                                .dialogs = dialogs,
                                                                .cache = cache,
                                                                .workspace_colour = 0xABABAB});
  }

  // An overlay carried by a segment over every frame, moved one pixel
  // right per frame: one still file, or one file per frame.
  void AddOverlay(const std::vector<std::string>& files) {
    comp.GetInterface().CreateSegment(0, false);
    VLSegment& s = comp.GetSegmentObject(0);
    s.SetTimeSpanDirect(0, comp.GetLength());
    auto data = std::make_shared<VLSegmentData>();
    for (int32_t f = 0; f < comp.GetLength(); ++f)
      data->Append(VLSegmentData::Direction::Forward, types::affine::translation(f, 0));
    s.ReplaceData(data);
    comp.RebuildTopPath();
    comp.GetOverlay().ImportDirect(files, false);
    comp.UpdateOverlaySpan();
  }

  app::RenderOutcome Render(bool overlay_only, bool overlap = true) {
    app::RenderPorts ports{.comp = comp,
                           .view = *view,
                           .dialogs = dialogs,
                           .profile = profile,
                           .preferences = preferences,
                           .operations = operations,
                           .coders = coders,
                           .cache = cache,
                           .filter = app::AviFilter(img::multi_reader().filter()),
                           .pump = [this] { queue.pump(); },
                           .window_enabled = &window,
                           .overlap = overlap};
    return app::Render(ports, overlay_only);
  }

  std::vector<std::string> Written() const {
    std::vector<std::string> names;
    for (const auto& e : fs::directory_iterator(out.path()))
      names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
  }
  std::vector<std::string> Notices() const {
    std::vector<std::string> texts;
    for (const auto& q : dialogs.questions()) texts.push_back(q.text);
    return texts;
  }
};

img::image Read(const std::string& file) {
  img::image p;
  img::multi_reader().read(file, p);
  return p;
}

struct NameCase {
  const char* name;
  std::vector<std::string> answers;  // file names in the output folder; "" cancels
  std::vector<std::string> notices;
  std::vector<std::string> files;
};

class RenderNames : public ::testing::TestWithParam<NameCase> {};

// The proposal is the first frame's stem with the format word; only the
// folder may change, or the extension to another known image format, which
// changes this render's format and not the preference.
TEST_P(RenderNames, AcceptsFolderOrKnownExtensionOnly) {
  RenderFixture f(3);
  f.comp.SetWorkAreaDirect({1, 3});
  for (const auto& a : GetParam().answers) {
    if (a.empty())
      f.dialogs.choose_file(std::nullopt);
    else
      f.dialogs.choose_file(f.out / a);
  }
  f.Render(false);
  ASSERT_FALSE(f.dialogs.file_choices().empty());
  const app::FileChoice& asked = f.dialogs.file_choices().front().choice;
  EXPECT_EQ(asked.title, "Choose Directory for Output Sequence");
  EXPECT_EQ(asked.default_extension, "tga");
  EXPECT_EQ(f.Notices(), GetParam().notices);
  EXPECT_EQ(f.Written(), GetParam().files);
  EXPECT_EQ(f.preferences.renderingFormat, "tga");
  EXPECT_EQ(f.dialogs.unused_file_choices(), 0u);
}

const std::string kDone = "Rendering completed successfully.";
const std::string kRenamed =
    "Change of file name is prohibited,\nyou should point out output directory only.";
const std::string kUnknown = "Entered format (file extension) is not supported.";

INSTANTIATE_TEST_SUITE_P(
    Answers,
    RenderNames,
    ::testing::Values(
        NameCase{"Proposal", {"shot_0001.tga"}, {kDone}, {"shot_0001.tga", "shot_0002.tga"}},
        NameCase{"OtherCase", {"SHOT_0001.TGA"}, {kDone}, {"shot_0001.tga", "shot_0002.tga"}},
        NameCase{
            "KnownExtension", {"shot_0001.jpeg"}, {kDone}, {"shot_0001.jpeg", "shot_0002.jpeg"}},
        NameCase{"RenamedThenCancelled", {"other.tga", ""}, {kRenamed}, {}},
        NameCase{"UnknownThenProposal",
                 {"shot_0001.xyz", "shot_0001.tga"},
                 {kUnknown, kDone},
                 {"shot_0001.tga", "shot_0002.tga"}},
        NameCase{"AviWithoutCoder",
                 {"movie.avi"},
                 {"Please choose AVI coder through\nFile|Preferences|Rendering Format|AVI menu."},
                 {}},
        NameCase{"Cancelled", {""}, {}, {}}),
    [](const auto& i) { return std::string(i.param.name); });

// Rendered frames are the view's composites of their own frames with the
// render settings on; the view's style, play state and current frame are
// back afterwards and "rendering" has left the jobs.
TEST(Render, WritesEachFrameAndRestoresTheView) {
  RenderFixture f(4);
  f.comp.SetCurrentTime(2);
  app::DisplayStyle style = f.view->GetDisplayStyle();
  style.interpolation = 0;
  style.overlay_opacity = 300;
  f.view->SetDisplayStyle(style);
  f.view->wait_idle([&] { f.queue.pump(); });
  f.dialogs.choose_file(f.out / "shot_0000.tga");
  const app::RenderOutcome outcome = f.Render(false);
  EXPECT_EQ(outcome.frames, 4);
  ASSERT_THAT(f.Written(),
              ElementsAre("shot_0000.tga", "shot_0001.tga", "shot_0002.tga", "shot_0003.tga"));
  for (int k = 0; k < 4; ++k) {
    const img::image got = Read(f.out / ("shot_000" + std::to_string(k) + ".tga"));
    EXPECT_EQ(got.rows[3][4 * 5], 10 * k + 5) << k;
    EXPECT_EQ(got.rows[3][4 * 5 + 3], 255) << k;
  }
  EXPECT_EQ(f.view->GetDisplayStyle(), style);
  EXPECT_EQ(f.comp.GetCurrentTime(), 2);
  EXPECT_TRUE(f.operations.empty());
  EXPECT_TRUE(f.window);
  const auto& steps = f.dialogs.progress().front()->steps;
  EXPECT_EQ(steps.back().text, "4 / 4");
}

// With the overlay alone the background is transparent; the overlay moves
// with the segment's motion; an AVI of a lossless coder holds exactly the
// pixels of the image files, and encoding on a second thread changes no byte.
TEST(Render, OverlayOnlyAviMatchesFilesAndOverlapChangesNothing) {
  RenderFixture f(4);
  img::image overlay(kW, kH);
  std::memset(overlay.data, 0, overlay.size);
  for (uint32_t y = 2; y < 5; ++y) std::memcpy(overlay.rows[y] + 4 * 3, "\x10\x20\x30\xff", 4);
  const std::string overlay_file = f.src / "overlay.tga";
  img::multi_writer().write(overlay_file, "TGA", overlay, true);
  f.AddOverlay({overlay_file});

  TempDir in_line;
  f.dialogs.choose_file(in_line / "shot_0000.tga");
  f.Render(true, false);
  f.dialogs.choose_file(f.out / "shot_0000.tga");
  f.Render(true, true);
  for (int k = 0; k < 4; ++k) {
    const std::string name = "shot_000" + std::to_string(k) + ".tga";
    EXPECT_EQ(testing_support::ReadFile(in_line / name), testing_support::ReadFile(f.out / name));
    const img::image got = Read(f.out / name);
    EXPECT_EQ(got.rows[3][4 * (3 + k) + 3], 255) << "the overlay, moved by " << k;
    EXPECT_EQ(got.rows[3][4 * (3 + k)], 0x10) << k;
    EXPECT_EQ(got.rows[0][3], 0) << "no overlay: transparent";
  }

  app::ChooseAviCoder(f.preferences, f.profile, *f.coders.find("ffv1"), "");
  f.dialogs.choose_file(f.out / "overlay.avi");
  f.Render(true);
  EXPECT_EQ(f.preferences.renderingFormat, "avi");
  const auto avi = testing_support::ReadAvi(f.out / "overlay.avi");
  ASSERT_EQ(avi.frames.size(), 4u);
  for (int k = 0; k < 4; ++k) {
    const img::image file = Read(f.out / ("shot_000" + std::to_string(k) + ".tga"));
    for (uint32_t y = 0; y < kH; ++y)
      EXPECT_EQ(0, std::memcmp(avi.frames[k].rows[y], file.rows[y], 4 * kW)) << k << " row " << y;
  }
}

// Cancel keeps what was written and says so; fields write one file per
// pair under the first names.
TEST(Render, CancelKeepsWhatWasWrittenAndFieldsHalveTheNames) {
  RenderFixture f(6);
  f.dialogs.after = 3;
  f.dialogs.choose_file(f.out / "shot_0000.png");
  const auto outcome = f.Render(false);
  EXPECT_TRUE(outcome.cancelled);
  EXPECT_THAT(f.Written(), ElementsAre("shot_0000.png", "shot_0001.png", "shot_0002.png"));
  EXPECT_EQ(f.Notices().back(), "Rendering interrupted by user.");

  TempDir fields;
  f.dialogs.after = -1;
  f.preferences.renderingField = 2;
  f.comp.SetWorkAreaDirect({0, 5});
  f.dialogs.choose_file(fields / "shot_0000.bmp");
  f.Render(false);
  std::vector<std::string> names;
  for (const auto& e : fs::directory_iterator(fields.path()))
    names.push_back(e.path().filename().string());
  std::sort(names.begin(), names.end());
  EXPECT_THAT(names, ElementsAre("shot_0000.bmp", "shot_0001.bmp"));
  const img::image second = Read(fields / "shot_0001.bmp");
  EXPECT_EQ(second.rows[0][0], 35) << "lower first: the later frame 3 gives the even rows";
  EXPECT_EQ(second.rows[1][0], 25) << "and the earlier frame 2 the odd ones";
}

struct BadInput {
  const char* name;
  std::function<void(RenderFixture&)> spoil;  // after the first two frames exist
  const char* text;                           // what the failure says
};

class RenderFailure : public ::testing::TestWithParam<BadInput> {};

// A frame that cannot be composited stops the render with the reader's or
// compositor's own text; the frames before it stay, nothing of the failed
// frame is left, the view is back as it was and the project is untouched.
TEST_P(RenderFailure, ClearErrorFramesBeforeKeptViewRestored) {
  RenderFixture f(4);
  GetParam().spoil(f);
  f.comp.SetCurrentTime(1);
  const app::DisplayStyle style = f.view->GetDisplayStyle();
  const bool could_undo = f.comp.GetActionQueue().CanUndo();
  f.dialogs.choose_file(f.out / "shot_0000.tga");
  try {
    f.Render(false);
    FAIL() << "no failure";
  } catch (const std::exception& e) {
    std::string text = e.what();
    if (const auto* io = dynamic_cast<const img::io_error*>(&e)) text += " " + io->file();
    EXPECT_THAT(text, ::testing::HasSubstr(GetParam().text));
  }
  EXPECT_THAT(f.Written(), ElementsAre("shot_0000.tga", "shot_0001.tga"));
  EXPECT_EQ(f.view->GetDisplayStyle(), style);
  EXPECT_EQ(f.comp.GetCurrentTime(), 1);
  EXPECT_EQ(f.view->play_state(), app::kStopped);
  EXPECT_EQ(f.operations.innermost(), "rendering");
  EXPECT_TRUE(f.window);
  EXPECT_EQ(f.comp.GetActionQueue().CanUndo(), could_undo);
}

INSTANTIATE_TEST_SUITE_P(
    Inputs,
    RenderFailure,
    ::testing::Values(BadInput{"MissingFrame", [](RenderFixture& f) { fs::remove(f.frames[2]); },
                               "shot_0002.bmp"},
                      BadInput{"WrongSize",
                               [](RenderFixture& f) {
                                 img::multi_writer().write(f.frames[2], "BMP", Flat(1, kW, kH + 2),
                                                           true);
                               },
                               "Bad size of image"},  // shown alone, the file is no composite
                      BadInput{"UndecodableOverlay",
                               [](RenderFixture& f) {
                                 std::vector<std::string> files;
                                 for (int k = 0; k < 4; ++k) {
                                   files.push_back(f.src / ("over_" + std::to_string(k) + ".png"));
                                   img::multi_writer().write(files.back(), "PNG", Flat(1), true);
                                 }
                                 f.AddOverlay(files);
                                 testing_support::WriteFile(files[2],
                                                            std::string_view("not an image"));
                               },
                               "image file format not recognised"}),
    [](const auto& i) { return std::string(i.param.name); });

}  // namespace
