// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/model/comp.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "app_fixtures.h"

namespace {

using app_testing::CompFixture;

TEST(Composition, LoadSequenceDefaults) {
  for (const auto& [frames, inaccuracy] : {std::pair{100, 0.0f}, std::pair{101, 0.3f}}) {
    CompFixture f(frames);
    EXPECT_EQ(f.comp.GetExportInaccuracy(), inaccuracy) << frames;
    EXPECT_EQ(f.comp.GetWorkArea(), (My::Span{0, frames}));
    EXPECT_EQ(f.comp.GetCurrentTime(), 0);
    EXPECT_EQ(f.comp.GetPreviewTime(), 0);
    EXPECT_TRUE(f.comp.GetActionQueue().IsModified());  // unsaved from the start
    EXPECT_TRUE(f.operations.names().empty());
    EXPECT_EQ(f.comp.GetPanel().object, PanelObject::Composition);
    EXPECT_EQ(f.comp.GetTopBreaks(), std::vector<int32_t>{});  // one unruled run
  }
}

struct Recorder : VL::Listener {
  std::vector<std::string>& log;
  explicit Recorder(std::vector<std::string>& l) : log(l) {}
  void OnDataChanged() override { log.push_back("data"); }
  void OnObjectChanged() override { log.push_back("object"); }
};

TEST(Composition, CloseRunsInOrderAndResets) {
  CompFixture f(30);
  f.AddSegment(5, {0, 11}, 1.0);
  f.comp.SetEditedSegment(&f.comp.GetSegmentObject(0));
  Recorder listener(f.log), overlayListener(f.log);
  f.comp.GetInterface().SetListener(&listener);
  f.comp.GetOverlay().GetInterface().SetListener(&overlayListener);
  f.comp.hooks.updateTitle = [&] { f.log.push_back("title"); };
  f.comp.hooks.enablePopupMenus = [&](bool on) { f.log.push_back(on ? "menus on" : "menus off"); };
  f.comp.hooks.purgeCache = [&] {
    // The project is gone by the time the cache goes.
    f.log.push_back(f.comp.IsEmpty() && f.comp.GetActionQueue().GetSize() == 0 ? "purge"
                                                                               : "early purge");
  };
  f.log.clear();
  f.comp.Close();
  EXPECT_EQ(f.log, (std::vector<std::string>{"data", "stop", "data", "invalidate", "title",
                                             "invalidate", "size 0x0", "purge", "menus off"}));
  EXPECT_EQ(f.comp.GetPanel().Title(), "Property Editor");
  EXPECT_EQ(f.comp.GetCurrentTime(), -1);
  EXPECT_EQ(f.comp.GetFramerate(), 50u);
  EXPECT_EQ(f.comp.GetSegmentCount(), 0);
  EXPECT_EQ(f.comp.GetEditedSegment(), nullptr);
  EXPECT_FALSE(f.comp.GetActionQueue().IsModified());
  EXPECT_EQ(f.comp.GetActionQueue().GetMenus().undoWatch, std::vector<std::string>{"(Empty)"});
}

TEST(Composition, FailedLoadClosesAndSaveFailureRestoresPath) {
  CompFixture f(10);
  EXPECT_THROW(f.comp.Load("/p/a.vlp", [](VLComp&) { throw std::runtime_error("bad file"); }),
               std::runtime_error);
  EXPECT_TRUE(f.comp.IsEmpty());
  EXPECT_EQ(f.comp.GetProjectPath(), "");
  EXPECT_EQ(f.operations.innermost(), "opening project");

  std::string seen;
  f.comp.Load("/p/b.vlp", [&](VLComp& c) {
    seen = c.GetProjectPath();  // relative paths resolve against it while reading
    c.TakeOverUnderlay(std::vector<std::string>(12, "x.bmp"), 8, 6);
    c.TakeOverTimes(3, 3);
  });
  EXPECT_EQ(seen, "/p/b.vlp");
  EXPECT_FALSE(f.comp.GetActionQueue().IsModified());
  f.comp.GetInterface().SetStartFrame(7);
  EXPECT_THROW(
      f.comp.Save("/q/c.vlp", [](const VLComp&) { throw std::runtime_error("disk full"); }),
      std::runtime_error);
  EXPECT_EQ(f.comp.GetProjectPath(), "/p/b.vlp");
  EXPECT_TRUE(f.comp.GetActionQueue().IsModified());
  f.comp.Save("/q/c.vlp", [](const VLComp&) {});
  EXPECT_EQ(f.comp.GetProjectPath(), "/q/c.vlp");
  EXPECT_FALSE(f.comp.GetActionQueue().IsModified());
}

TEST(Composition, TopPathOfOverlappingSegments) {
  CompFixture f(30);
  // Created bottom first: index 0 is the last one made.
  f.AddSegment(20, {15, 26}, 1.0);  // ends as index 2
  f.AddSegment(8, {3, 14}, 1.0);    // index 1
  f.AddSegment(12, {10, 18}, 1.0);  // index 0, over both
  std::vector<int32_t> want(30, -1);
  std::fill(want.begin() + 3, want.begin() + 10, 1);
  std::fill(want.begin() + 10, want.begin() + 18, 0);
  std::fill(want.begin() + 18, want.begin() + 26, 2);
  EXPECT_EQ(f.comp.GetTopSegment(), want);
  EXPECT_EQ(f.comp.GetTopBreaks(), (std::vector<int32_t>{3, 10, 18, 26}));

  f.comp.GetSegmentObject(2).SetTimeSpanDirect(15, 30);  // last run now ruled to the end
  EXPECT_EQ(f.comp.GetTopBreaks(), (std::vector<int32_t>{3, 10, 18, 30}));
}

// The step from f - 1 to f comes from the ruler when both frames share it,
// else from the lower one of the two (the higher index), which spans the
// boundary or extrapolates across it.
double ExpectedShift(const VLComp& c, const std::vector<double>& velocity, int32_t a, int32_t b) {
  const auto& top = c.GetTopSegment();
  double x = 0;
  for (int32_t f = std::min(a, b) + 1; f <= std::max(a, b); ++f)
    x += velocity[size_t(std::max(top[size_t(f - 1)], top[size_t(f)]))];
  return a < b ? x : -x;
}

TEST(Composition, TransformBetweenChainsAcrossBoundaries) {
  CompFixture f(40);
  // Bottom to top; the top path runs 2, 1, 0, 1, 2 across the frames.
  f.AddSegment(20, {0, 40}, 5.0);
  f.AddSegment(12, {8, 30}, 3.0);
  f.AddSegment(18, {15, 22}, -2.0);
  const std::vector<double> velocity{-2.0, 3.0, 5.0};
  for (int32_t a : {0, 7, 8, 14, 15, 18, 21, 22, 29, 30, 39})
    for (int32_t b : {0, 1, 8, 9, 15, 16, 21, 22, 23, 31, 39}) {
      const types::affine t = f.comp.TransformBetween(a, b);
      EXPECT_DOUBLE_EQ(t.x, ExpectedShift(f.comp, velocity, a, b)) << a << " -> " << b;
      EXPECT_EQ(t.y, 0.0);
    }
  // The overlay's span is the continuous stretch around its match frame.
  f.comp.GetOverlay().SetMatchDirect(17);
  EXPECT_EQ(f.comp.GetOverlay().GetTransformSpan(), (My::Span{0, 0}));  // no overlay loaded
}

TEST(Composition, OverlaySpanStopsAtGapsAndUnrelatedNeighbours) {
  CompFixture f(40);
  const std::string still = app_testing::WriteImage(f.dir, "o.bmp", 4, 4, true);
  f.comp.GetOverlay().GetInterface().Import({still});
  EXPECT_EQ(f.comp.GetOverlay().GetTransformSpan(), (My::Span{0, 0}));  // no segments
  f.AddSegment(30, {28, 36}, 1.0);  // index 1 after the next: a gap before it
  f.AddSegment(10, {5, 16}, 1.0);
  f.AddSegment(16, {15, 22}, 1.0);  // overlaps the one before: continuous
  f.comp.GetOverlay().SetMatchDirect(12);
  EXPECT_EQ(f.comp.GetOverlay().GetTransformSpan(), (My::Span{5, 22}));
  f.comp.GetOverlay().SetMatchDirect(30);
  EXPECT_EQ(f.comp.GetOverlay().GetTransformSpan(), (My::Span{28, 36}));
  f.comp.GetOverlay().SetMatchDirect(24);
  EXPECT_EQ(f.comp.GetOverlay().GetTransformSpan(), (My::Span{0, 0}));
  // Adjacent but not overlapping: the motion does not carry on.
  f.comp.GetSegmentObject(2).SetTimeSpanDirect(22, 36);
  f.comp.GetOverlay().SetMatchDirect(12);
  EXPECT_EQ(f.comp.GetOverlay().GetTransformSpan(), (My::Span{5, 22}));
}

TEST(Composition, ActiveSegmentFollowsItsSegmentThroughListChanges) {
  CompFixture f(30);
  VL::Composition& c = f.comp.GetInterface();
  c.SetActiveSegment(5);
  EXPECT_EQ(c.GetActiveSegment(), -1);  // no segments
  f.AddSegment(3, {0, 9}, 1.0);
  VLSegment& middle = f.AddSegment(13, {8, 19}, 1.0);
  f.AddSegment(23, {18, 29}, 1.0);
  EXPECT_EQ(c.GetActiveSegment(), 0);  // a new segment is active
  c.SetActiveSegment(5);
  EXPECT_EQ(c.GetActiveSegment(), 2);
  c.SetActiveSegment(1);
  c.MoveActiveSegment(2);
  EXPECT_EQ(f.comp.IndexOf(&middle), 2);
  EXPECT_EQ(c.GetActiveSegment(), 2);
  f.comp.GetActionQueue().Undo();
  EXPECT_EQ(c.GetActiveSegment(), 1);
  c.DeleteActiveSegment();
  EXPECT_EQ(c.GetSegmentCount(), 2);
  EXPECT_EQ(c.GetActiveSegment(), 1);  // the old index, clamped
  f.comp.GetActionQueue().Undo();
  EXPECT_EQ(f.comp.IndexOf(&middle), 1);
  EXPECT_EQ(c.GetActiveSegment(), 1);
  EXPECT_EQ(f.comp.GetPanel().object, PanelObject::Segment);
  c.SelectAll();
  EXPECT_FALSE(middle.IsSelected());  // the active one is left out
  EXPECT_TRUE(f.comp.GetSegmentObject(0).IsSelected());
  f.comp.GetActionQueue().Undo();
  EXPECT_FALSE(f.comp.GetSegmentObject(0).IsSelected());
}

TEST(Composition, ActivatingASegmentDeactivatesTheOverlay) {
  CompFixture f(10);
  f.AddSegment(2, {0, 10}, 1.0);
  f.comp.GetOverlay().GetInterface().Import({app_testing::WriteImage(f.dir, "o.bmp", 4, 4, true)});
  f.comp.SetOverlayActive(true);
  ASSERT_TRUE(f.comp.IsOverlayActive());
  EXPECT_EQ(f.comp.GetActiveSegment(), -1);
  f.comp.SetActiveSegment(0);
  EXPECT_FALSE(f.comp.IsOverlayActive());
  EXPECT_EQ(f.comp.GetPanel().object, PanelObject::Segment);
  f.comp.SetOverlayActive(true);  // and the other way round
  EXPECT_EQ(f.comp.GetActiveSegment(), -1);
}

TEST(Composition, ProcessingInsideCountsOnlyFramesStillToCome) {
  CompFixture f(40);
  VLSegment& low = f.AddSegment(10, {5, 16}, 1.0);  // results over its whole span
  VLSegment& top = f.AddSegment(25, {20, 31}, 1.0);
  top.ReplaceData(std::make_shared<VLSegmentData>());
  EXPECT_FALSE(f.comp.IsProcessingInside(0, 40));
  top.SetStatus(SegmentStatus::Queued);
  low.SetStatus(SegmentStatus::Queued);
  EXPECT_FALSE(f.comp.IsProcessingInside(0, 20));  // low has all its frames
  EXPECT_TRUE(f.comp.IsProcessingInside(30, 35));
  EXPECT_FALSE(f.comp.IsProcessingInside(31, 40));
}

TEST(Composition, TimeSettersClampAndTextCarriesStartFrame) {
  CompFixture f(20);
  f.comp.GetInterface().SetStartFrame(100);
  f.comp.SetCurrentTimeByText("112");
  EXPECT_EQ(f.comp.GetCurrentTime(), 12);
  f.comp.SetCurrentTimeByText("x1");
  EXPECT_EQ(f.comp.GetCurrentTime(), 12);
  f.comp.SetCurrentTime(99);
  EXPECT_EQ(f.comp.GetCurrentTime(), 19);
  f.comp.SetPreviewTime(-4, true);
  EXPECT_EQ(f.comp.GetCurrentTimeText(), "100");
  f.comp.GetInterface().SetWorkArea(-3, 50);
  EXPECT_EQ(f.comp.GetWorkArea(), (My::Span{0, 20}));
  EXPECT_EQ(f.comp.GetActionQueue().GetSize(),
            1u);  // the start frame; the clamped area equals the old one
}

}  // namespace
