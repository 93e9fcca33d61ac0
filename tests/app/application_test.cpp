// SPDX-License-Identifier: GPL-3.0-or-later
// The application's commands over scripted dialogs and a stand-in for the
// project file, so that every question, its order and its effect is seen.
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "app/commands/application.h"
#include "app/commands/command_texts.h"
#include "app/commands/mask_file.h"
#include "app/message_queue.h"
#include "app/model/comp.h"
#include "app/profile_store.h"
#include "app_fixtures.h"
#include "base/errors.h"
#include "imaging/native_io.h"

namespace {

using app::Answer;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

class FakeJobs : public app::NoJobs {
 public:
  bool running = false;
  int cancelled = 0;
  bool any_running() const override { return running; }
  void cancel_all_and_wait() override {
    ++cancelled;
    running = false;
  }
};

struct AppFixture {
  testing_support::TempDir dir;
  app::MessageQueue queue;
  app::ScriptedDialogs dialogs;
  app::MemoryProfileStore profile;
  FakeJobs jobs;
  std::vector<std::string> saved;  // every path a save wrote
  std::string loadFailure;         // non-empty: a load throws this
  bool saveFails = false;
  app::Velomar app{{.queue = queue,
                    .dialogs = dialogs,
                    .profile = profile,
                    .files = {[this](VLComp&, const std::string&, app::UserDialogs&) {
                                if (!loadFailure.empty()) throw std::runtime_error(loadFailure);
                              },
                              [this](VLComp&, const std::string& path) {
                                if (saveFails) throw std::runtime_error("disk full");
                                saved.push_back(path);
                              }},
                    .jobs = &jobs}};

  // A project of 3 frames of 8 x 6, made modified by one segment.
  void OpenModified() {
    const std::string frame = app_testing::WriteImage(dir, "under_0007.bmp", 8, 6, false);
    app.LoadSequenceFile(frame);
    app.OnNewSegment();
  }
  std::vector<std::string> Texts() const {
    std::vector<std::string> texts;
    for (const auto& q : dialogs.questions()) texts.push_back(q.text);
    return texts;
  }
};

TEST(Velomar, SequenceLoadTakesStartFrameFromTheNameAndFillsTheEnablingState) {
  AppFixture f;
  f.OpenModified();
  VLComp& comp = f.app.GetComposition();
  EXPECT_EQ(comp.GetStartFrame(), 7);
  EXPECT_EQ(comp.GetFramerate(), 50u);
  const app::CommandSnapshot state = f.app.GetCommandState();
  EXPECT_TRUE(state.projectOpen && state.modified && state.canUndo);
  ASSERT_EQ(state.activeSegment, 0);
  EXPECT_TRUE(app::CanImportMask(state));
  // Edit Clear deletes the active segment through the undo queue.
  f.app.OnClear();
  EXPECT_EQ(comp.GetSegmentCount(), 0);
  f.app.OnUndo();
  EXPECT_EQ(comp.GetSegmentCount(), 1);
}

struct CloseCase {
  const char* name;
  bool jobRunning;
  std::vector<Answer> answers;
  bool saveAsCancelled;
  bool staysOpen;
  std::vector<std::string> questions;
  int cancelledJobs;
};

class CloseOrder : public ::testing::TestWithParam<CloseCase> {};

TEST_P(CloseOrder, AsksInOrderAndClosesUnlessCancelled) {
  const CloseCase& c = GetParam();
  AppFixture f;
  f.OpenModified();
  f.jobs.running = c.jobRunning;
  for (Answer a : c.answers) f.dialogs.answer(a);
  if (c.saveAsCancelled) f.dialogs.choose_file(std::nullopt);
  EXPECT_EQ(f.app.CloseProject(), !c.staysOpen);
  EXPECT_EQ(f.app.IsProjectOpen(), c.staysOpen);
  EXPECT_EQ(f.Texts(), c.questions);
  EXPECT_EQ(f.jobs.cancelled, c.cancelledJobs);
  EXPECT_TRUE(f.saved.empty());
  EXPECT_EQ(f.dialogs.unused_answers() + f.dialogs.unused_file_choices(), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Cases,
    CloseOrder,
    ::testing::Values(
        CloseCase{"YesThenSaveAsCancelledStillCloses",
                  false,
                  {Answer::Yes},
                  true,
                  false,
                  {app::kSaveChangesQuestion},
                  0},
        CloseCase{
            "NoClosesUnsaved", false, {Answer::No}, false, false, {app::kSaveChangesQuestion}, 0},
        CloseCase{"CancelKeepsTheProject",
                  false,
                  {Answer::Cancel},
                  false,
                  true,
                  {app::kSaveChangesQuestion},
                  0},
        CloseCase{"RunningJobIsAskedFirst",
                  true,
                  {Answer::Ok, Answer::No},
                  false,
                  false,
                  {app::kCloseCancelsProcessing, app::kSaveChangesQuestion},
                  1},
        CloseCase{"RunningJobKeptOnCancel",
                  true,
                  {Answer::Cancel},
                  false,
                  true,
                  {app::kCloseCancelsProcessing},
                  0}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(Velomar, SaveInCloseGoesThroughSaveAsAndAFailedSaveKeepsTheProject) {
  AppFixture f;
  f.OpenModified();
  f.app.SaveProjectAs(f.dir / "a.vlp");  // the stand-in keeps no path: Save asks again
  f.dialogs.answer(Answer::Yes);
  f.dialogs.choose_file(f.dir / "b.vlp");
  EXPECT_TRUE(f.app.CloseProject());
  EXPECT_THAT(f.saved, ElementsAre(f.dir / "a.vlp", f.dir / "b.vlp"));
  EXPECT_THAT(f.app.GetRecentFiles(), ElementsAre(f.dir / "b.vlp", f.dir / "a.vlp"));
  EXPECT_EQ(f.dialogs.file_choices().back().choice.title, "Save Project As");

  f.OpenModified();
  f.saveFails = true;
  f.dialogs.answer(Answer::Yes);
  f.dialogs.choose_file(f.dir / "c.vlp");
  EXPECT_FALSE(f.app.Run([&] { f.app.CloseProject(); }));
  EXPECT_TRUE(f.app.IsProjectOpen());
  EXPECT_EQ(f.dialogs.questions().back().text, "Error while saving project:\ndisk full.");
}

TEST(Velomar, FailedOpenIsReportedUnderOpeningAndEmptiesTheStack) {
  AppFixture f;
  f.loadFailure = "bad project";
  app::FileOpenMessage message(f.app, f.dir / "x.VLP");
  EXPECT_FALSE(f.app.Run([&] { message.Execute(); }));
  ASSERT_EQ(f.dialogs.questions().size(), 1u);
  EXPECT_EQ(f.dialogs.questions()[0].text, "Error while opening project:\nbad project.");
  EXPECT_EQ(f.dialogs.questions()[0].icon, app::Icon::Error);
  EXPECT_TRUE(f.app.GetOperations().empty());
  // Not a project name: the message loads a sequence, and a missing one fails there.
  app::FileOpenMessage sequence(f.app, f.dir / "missing_0001.bmp");
  EXPECT_FALSE(f.app.Run([&] { sequence.Execute(); }));
  EXPECT_THAT(f.dialogs.questions()[1].text,
              ::testing::StartsWith("Error while loading sequence:\n"));
}

// A mask file of w x h whose pixel (x, y) is white when `white(x, y)`.
template <class White>
std::string WriteMask(const testing_support::TempDir& dir,
                      const std::string& name,
                      uint32_t w,
                      uint32_t h,
                      White white) {
  img::image picture(w, h);
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x)
      std::fill_n(picture.rows[y] + 4 * x, 4, uint8_t(white(x, y) ? 255 : 0));
  img::native_writer().write(dir / name, "BMP", picture, false);
  return dir / name;
}

bool Bit(const VL::Mask& m, uint32_t x, uint32_t y) {
  return (m.rows[y][x >> 3] & (128 >> (x & 7))) != 0;
}

TEST(Velomar, ImportMaskAsksAboutEmptyFullAndOtherSizedMasks) {
  AppFixture f;
  f.OpenModified();
  const VLSegment& segment = f.app.GetComposition().GetSegmentObject(0);
  const std::string black = WriteMask(f.dir, "black.bmp", 8, 6, [](auto, auto) { return false; });
  const std::string white = WriteMask(f.dir, "white.bmp", 8, 6, [](auto, auto) { return true; });
  f.dialogs.answer(Answer::Cancel);
  f.dialogs.answer(Answer::Cancel);
  f.app.ImportMaskFile(black);
  f.app.ImportMaskFile(white);
  EXPECT_EQ(f.Texts(), (std::vector<std::string>{
                           "Bitmap (" + black + ") contains no white pixels.\nProceed?",
                           "Bitmap (" + white + ") contains no black pixels.\nProceed?"}));
  EXPECT_EQ(CountSetPixels(segment.GetMask()), 0u);
  EXPECT_EQ(f.app.GetOperations().innermost(), app::kImportingMask);

  // Wider and shorter: cut on the right, padded at the bottom. The diagonal
  // marks where each pixel lands.
  const std::string odd =
      WriteMask(f.dir, "odd.bmp", 11, 4, [](auto x, auto y) { return x == y || x == 10; });
  f.dialogs.answer(Answer::Ok);
  f.app.ImportMaskFile(odd);
  EXPECT_EQ(f.Texts().back(), app::MaskDimensionsQuestion(odd));
  const VL::Mask& mask = segment.GetMask();
  ASSERT_EQ(mask.width, 8u);
  ASSERT_EQ(mask.height, 6u);
  EXPECT_EQ(CountSetPixels(mask), 4u);
  for (uint32_t i = 0; i < 4; ++i) EXPECT_TRUE(Bit(mask, i, i)) << i;

  // White only where the cut drops it: refused now rather than at tracking.
  const std::string outside =
      WriteMask(f.dir, "outside.bmp", 12, 6, [](auto x, auto) { return x >= 8; });
  f.dialogs.answer(Answer::Ok);
  EXPECT_THROW(f.app.ImportMaskFile(outside), xtd::exception);
  EXPECT_EQ(CountSetPixels(segment.GetMask()), 4u);

  // Export writes one bit per pixel and reads back as the same mask.
  f.app.ExportMaskFile(f.dir / "out.bmp");
  const auto bytes = testing_support::ReadFile(f.dir / "out.bmp");
  ASSERT_GT(bytes.size(), 30u);
  EXPECT_EQ(bytes[28], 1);                        // bits per pixel
  EXPECT_EQ(bytes.size(), 14u + 40 + 8 + 6 * 4);  // rows padded to 4 bytes
  EXPECT_TRUE(SameMask(app::ReadMaskFile(f.dir / "out.bmp"), mask));
}

TEST(Velomar, ImportOverlayReportsStillAndSequenceAndAsksAboutSize) {
  AppFixture f;
  f.OpenModified();
  for (int i = 1; i <= 3; ++i)
    app_testing::WriteImage(f.dir, "over_000" + std::to_string(i) + ".bmp", 8, 6, true);
  const std::string other = app_testing::WriteImage(f.dir, "big.bmp", 9, 6, true);
  f.app.ImportOverlayFile(f.dir / "over_0002.bmp", true);
  f.app.ImportOverlayFile(f.dir / "over_0002.bmp", false);
  f.dialogs.answer(Answer::Cancel);
  f.app.ImportOverlayFile(other, true);
  EXPECT_EQ(f.Texts(), (std::vector<std::string>{"Still overlay imported.",
                                                 "Overlay sequence of 3 frames imported.",
                                                 app::kOverlayDimensionsQuestion}));
  EXPECT_EQ(f.app.GetComposition().GetOverlay().GetFrameCount(), 3);
  const std::string none = f.dir / "none.png";
  EXPECT_THAT([&] { f.app.ImportOverlayFile(none, true); },
              ::testing::ThrowsMessage<std::runtime_error>("could not read file: " + none));
  EXPECT_EQ(f.app.GetOperations().innermost(), app::kImportingOverlay);
}

TEST(Velomar, PreferencesAreReadAtStartAndWrittenBackAtExit) {
  AppFixture f;
  f.profile.set_int("Preferences", "RenderingField", 7);
  app::Velomar second({.queue = f.queue, .dialogs = f.dialogs, .profile = f.profile, .files = {}});
  EXPECT_EQ(second.GetPreferences().renderingField, 2);
  second.GetPreferences().renderingFormat = "png";
  second.Exit();
  EXPECT_EQ(f.profile.get_int("Preferences", "RenderingField", -1), 2);
  EXPECT_EQ(f.profile.get_string("Preferences", "RenderingFormat", ""), "png");
}

}  // namespace
