// SPDX-License-Identifier: GPL-3.0-or-later
// The trackline: the composition's time axis with its segments.
//
// From top to bottom: a ruler with the frame numbers the user sees and the
// work area as a band, then one lane per segment in stacking order (the
// topmost segment first). A lane shows the segment's time span as a bar,
// the frames already tracked as a solid part of it, the key frame as a
// diamond; the active segment is drawn in the accent colour, a selected one
// with a bright frame, one being tracked striped. A red line marks the
// current time through everything.
//
// Clicking moves the current time (a lane's click also makes its segment
// active; Ctrl toggles its selection); dragging the ends of the work-area
// band or of a segment's bar changes them through the composition's
// interface on release, so each drag is one undo step with the menu's name.
// Escape cancels a drag. The widget repaints when the composition, a
// segment or the overlay reports a change: it is the listener they hold.
//
//   VLTrackline trackline(comp, parent);   // listens from here on
//
// The composition must outlive the widget.
#pragma once

#include <QWidget>
#include <cstdint>

#include "app/model/interfaces.h"

class VLComp;

class VLTrackline : public QWidget, public VL::Listener {
  Q_OBJECT

 public:
  explicit VLTrackline(VLComp& comp, QWidget* parent = nullptr);
  ~VLTrackline() override;

  // The pixel mapping, for the window and for tests. Frame f covers the
  // columns [XOfFrame(f), XOfFrame(f + 1)).
  int XOfFrame(int32_t frame) const;
  // The frame under column x, clamped into the composition.
  int32_t FrameAt(int x) const;
  QRect RulerRect() const;
  QRect LaneRect(int32_t segment) const;

  // The Trackline menu's zoom: each step doubles or halves the pixels a
  // frame gets, keeping the current frame where it is on the screen; the
  // whole axis is the widest view. Ctrl+wheel zooms, the wheel scrolls a
  // zoomed axis, and a zoomed axis scrolls to keep the current frame shown.
  void ZoomIn();
  void ZoomOut();
  void FitInWindow();
  bool CanZoomIn() const;
  bool CanZoomOut() const;

  QSize sizeHint() const override;
  QSize minimumSizeHint() const override;

  // VL::Listener: every report redraws.
  void OnObjectChanged() override { Changed(); }
  void OnDataChanged() override { Changed(); }
  void OnStateChanged() override { Changed(); }
  void OnTrimChanged() override { Changed(); }
  void OnCurrentTimeChanged() override;
  void OnPreviewTimeChanged() override;
  void OnOverlayActiveChanged() override { Changed(); }
  void OnActiveSegmentChanged() override { Changed(); }
  void OnResultsAdded() override { Changed(); }

 signals:
  // After every report of the composition, a segment or the overlay: the
  // composition has one listener, and this is how other widgets hear it.
  void changed();

 protected:
  void paintEvent(QPaintEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  void leaveEvent(QEvent* event) override;
  void wheelEvent(QWheelEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;

 private:
  // What a press grabbed.
  enum class Drag { None, Time, AreaFirst, AreaLast, SegmentFirst, SegmentLast };
  struct Grip {
    Drag drag = Drag::None;
    int32_t segment = -1;
  };

  static constexpr double kMaxPixelsPerFrame = 64;

  void Changed();
  void Listen();
  // Pixels per frame now, and how many frames the axis shows.
  double Scale() const;
  double VisibleFrames() const;
  // 0 pixels per frame: the whole axis.
  void SetView(double pixelsPerFrame, double firstFrame);
  void KeepInView(int32_t frame);
  Grip GripAt(QPoint point) const;
  int32_t BoundaryAt(int x) const;
  int32_t LaneAt(int y) const;
  int LaneHeight() const;
  // The span the drag shows now: the original with the moved end, clamped
  // as the core will clamp it.
  My::Span DraggedSpan() const;
  void PaintRuler(class QPainter& painter) const;
  void PaintLane(class QPainter& painter, int32_t index) const;

  VLComp& comp_;
  double pixelsPerFrame_ = 0;  // 0: the whole axis fits the width
  double firstFrame_ = 0;      // the frame at the left margin, in fractions
  Drag drag_ = Drag::None;
  int32_t dragSegment_ = -1;
  My::Span dragOriginal_;
  int32_t dragBoundary_ = 0;
};
