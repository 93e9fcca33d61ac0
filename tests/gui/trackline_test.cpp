// SPDX-License-Identifier: GPL-3.0-or-later
// The trackline: clicks move the time, drags of ends become one undo step
// each, and the widget repaints when the composition reports.
#include <gtest/gtest.h>

#include <QApplication>
#include <QTest>

#include "gui/widgets/trackline.h"
#include "widget_fixture.h"

namespace {

struct Shown : gui_testing::CompOfFrames {
  Shown() : CompOfFrames(100) {
    ci.CreateSegment(60, false);  // bottom after the next one
    ci.CreateSegment(20, false);  // index 0, active
    trackline.resize(1020, 90);   // 10 pixels a frame between the margins
  }
  QPoint InRuler(int32_t boundary) const {
    return {trackline.XOfFrame(boundary), trackline.RulerRect().center().y()};
  }
  QPoint InLane(int32_t lane, int32_t boundary) const {
    return {trackline.XOfFrame(boundary), trackline.LaneRect(lane).center().y()};
  }
  void Drag(QPoint from, QPoint to) {
    QTest::mousePress(&trackline, Qt::LeftButton, {}, from);
    QTest::mouseMove(&trackline, to);
    QTest::mouseRelease(&trackline, Qt::LeftButton, {}, to);
  }

  VLCompInterface& ci = comp.GetInterface();
  VLTrackline trackline{comp};
};

TEST(Trackline, ClickMovesTheTimeAndALaneClickActivatesItsSegment) {
  Shown s;
  QTest::mouseClick(&s.trackline, Qt::LeftButton, {}, s.InRuler(37) + QPoint(5, 0));
  EXPECT_EQ(s.comp.GetCurrentTime(), 37);
  EXPECT_EQ(s.comp.GetActiveSegment(), 0);
  QTest::mouseClick(&s.trackline, Qt::LeftButton, {}, s.InLane(1, 70) + QPoint(5, 0));
  EXPECT_EQ(s.comp.GetCurrentTime(), 70);
  EXPECT_EQ(s.comp.GetActiveSegment(), 1);
  QTest::mouseClick(&s.trackline, Qt::LeftButton, Qt::ControlModifier, s.InLane(0, 18));
  EXPECT_TRUE(s.comp.GetSegmentObject(0).IsSelected());
  EXPECT_EQ(s.comp.GetActiveSegment(), 1) << "Ctrl selects, it does not activate";
}

// Each drag of an end is one step of the menu's action; undo puts it back.
TEST(Trackline, DraggingAnEndIsOneUndoStep) {
  struct Case {
    const char* name;
    bool lane;          // a segment's bar, else the work area
    int32_t from, to;   // frame boundaries
    My::Span expected;  // the span after the drag
    const char* undo;
  };
  const Case cases[] = {
      {"AreaFirst", false, 0, 12, {12, 100}, "Change Work Area"},
      {"AreaLast", false, 100, 81, {0, 81}, "Change Work Area"},
      {"SegmentLast", true, 26, 40, {15, 40}, "Adjust Segment"},
      {"SegmentFirst", true, 15, 3, {3, 26}, "Adjust Segment"},
      {"SegmentFirstStopsAtKey", true, 15, 33, {20, 26}, "Adjust Segment"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Shown s;
    VLSegment& segment = s.comp.GetSegmentObject(0);
    const auto span = [&] { return c.lane ? segment.GetTimeSpan() : s.comp.GetWorkArea(); };
    const My::Span before = span();
    const size_t steps = s.comp.GetActionQueue().GetSize();
    if (c.lane)
      s.Drag(s.InLane(0, c.from), s.InLane(0, c.to));
    else
      s.Drag(s.InRuler(c.from), s.InRuler(c.to));
    EXPECT_EQ(span(), c.expected);
    EXPECT_EQ(s.comp.GetActionQueue().GetSize(), steps + 1);
    EXPECT_EQ(s.comp.GetActionQueue().GetUndoName(), c.undo);
    s.comp.GetActionQueue().Undo();
    EXPECT_EQ(span(), before);
  }
}

TEST(Trackline, ZoomKeepsTheCurrentFrameInPlaceAndClicksFollowTheScale) {
  Shown s;
  s.ci.SetCurrentTime(50);
  const int x = s.trackline.XOfFrame(50);
  EXPECT_FALSE(s.trackline.CanZoomOut());
  s.trackline.ZoomIn();
  s.trackline.ZoomIn();
  EXPECT_NEAR(s.trackline.XOfFrame(50), x, 20);
  EXPECT_EQ(s.trackline.XOfFrame(51) - s.trackline.XOfFrame(50), 40);
  QTest::mouseClick(&s.trackline, Qt::LeftButton, {}, s.InRuler(56) + QPoint(2, 0));
  EXPECT_EQ(s.comp.GetCurrentTime(), 56);
  s.ci.SetCurrentTime(95);  // off the zoomed axis: it scrolls
  EXPECT_LT(s.trackline.XOfFrame(96), s.trackline.width());
  s.trackline.FitInWindow();
  EXPECT_FALSE(s.trackline.CanZoomOut());
  EXPECT_EQ(s.trackline.XOfFrame(100), 1010);
}

TEST(Trackline, EscapeCancelsADrag) {
  Shown s;
  const size_t steps = s.comp.GetActionQueue().GetSize();
  QTest::mousePress(&s.trackline, Qt::LeftButton, {}, s.InRuler(100));
  QTest::mouseMove(&s.trackline, s.InRuler(50));
  QTest::keyClick(&s.trackline, Qt::Key_Escape);
  QTest::mouseRelease(&s.trackline, Qt::LeftButton, {}, s.InRuler(50));
  EXPECT_EQ(s.comp.GetWorkArea(), (My::Span{0, 100}));
  EXPECT_EQ(s.comp.GetActionQueue().GetSize(), steps);
}

class PaintCounter : public QObject {
 public:
  int paints = 0;
  bool eventFilter(QObject*, QEvent* event) override {
    if (event->type() == QEvent::Paint) ++paints;
    return false;
  }
};

// A change made elsewhere (a menu, the tracker) reaches the widget only as
// a report; each kind must bring a repaint, and the picture must show it.
TEST(Trackline, RepaintsOnReportsAndDrawsThePlayheadAndTrackedFrames) {
  Shown s;
  PaintCounter counter;
  s.trackline.installEventFilter(&counter);
  s.trackline.show();
  ASSERT_TRUE(QTest::qWaitForWindowExposed(&s.trackline));
  VLSegment& segment = s.comp.GetSegmentObject(0);
  const std::pair<const char*, std::function<void()>> changes[] = {
      {"time", [&] { s.ci.SetCurrentTime(42); }},
      {"work area", [&] { s.ci.SetWorkArea(5, 90); }},
      {"segment span", [&] { segment.GetInterface().SetTimeSpan(10, 30); }},
      {"tracked frames", [&] { segment.SetDataSpan(18, 24); }},
      {"status", [&] { segment.SetStatus(SegmentStatus::Queued); }},
  };
  for (const auto& [what, change] : changes) {
    QApplication::processEvents();
    const int before = counter.paints;
    change();
    QApplication::processEvents();
    EXPECT_GT(counter.paints, before) << what;
  }
  segment.SetStatus(SegmentStatus::Idle);

  const QImage picture = s.trackline.grab().toImage();
  gui_testing::SaveSnapshot(picture, "trackline");
  const int y = s.trackline.LaneRect(0).center().y();
  const auto at = [&](int32_t frame) {
    return picture.pixelColor((s.trackline.XOfFrame(frame) + s.trackline.XOfFrame(frame + 1)) / 2,
                              y);
  };
  EXPECT_EQ(at(42), QColor(0xe8, 0x3c, 0x3c)) << "playhead";
  const QColor tracked = at(23), untracked = at(12), outside = at(50);
  EXPECT_GT(tracked.red(), untracked.red() + 40)
      << "tracked frames of the active segment stand out";
  EXPECT_NE(untracked, outside) << "the time span shows as a bar";
}

}  // namespace
