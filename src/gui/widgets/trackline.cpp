// SPDX-License-Identifier: GPL-3.0-or-later
#include "gui/widgets/trackline.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QWheelEvent>
#include <algorithm>
#include <cmath>

#include "app/model/comp.h"

namespace {

constexpr int kSide = 10;  // room left and right, so both ends of the axis can be grabbed
constexpr int kGrip = 4;   // how near an end a press grabs it
constexpr int kMaxLane = 24;
constexpr int kMinLane = 3;

const QColor kBackground(0x26, 0x28, 0x2b);
const QColor kRuler(0x36, 0x39, 0x3e);
const QColor kRulerText(0xc8, 0xcc, 0xd2);
const QColor kTick(0x80, 0x86, 0x8e);
const QColor kArea(0x4a, 0x6a, 0x96);
const QColor kAreaEdge(0x8c, 0xb4, 0xea);
const QColor kOutsideArea(0, 0, 0, 90);
const QColor kSpan(0x4b, 0x55, 0x61);
const QColor kSpanEdge(0x6e, 0x7a, 0x88);
const QColor kData(0x5f, 0xa8, 0x6a);
const QColor kActiveSpan(0x8a, 0x6a, 0x32);
const QColor kActiveData(0xe8, 0xa8, 0x3c);
const QColor kSelected(0xf4, 0xf4, 0xf4);
const QColor kProcessing(0xff, 0xc8, 0x50, 150);
const QColor kKey(0xf0, 0xf0, 0xf0);
const QColor kPlayhead(0xe8, 0x3c, 0x3c);
const QColor kPreview(0xff, 0x9a, 0x3c);

// Segments report to their own listener; a segment deleted by a command
// lives on inside its undo step and may report again after a redo. Their
// reports go through this relay, which outlives every trackline, so a
// report after a trackline is gone finds no one rather than a dead widget.
class SegmentRelay : public VL::Listener {
 public:
  VL::Listener* target = nullptr;
  void OnObjectChanged() override { Tell(&VL::Listener::OnObjectChanged); }
  void OnDataChanged() override { Tell(&VL::Listener::OnDataChanged); }
  void OnStateChanged() override { Tell(&VL::Listener::OnStateChanged); }
  void OnTrimChanged() override { Tell(&VL::Listener::OnTrimChanged); }
  void OnResultsAdded() override { Tell(&VL::Listener::OnResultsAdded); }

 private:
  void Tell(void (VL::Listener::*event)()) {
    if (target) (target->*event)();
  }
};

SegmentRelay& Relay() {
  static SegmentRelay* relay = new SegmentRelay;  // never destroyed: see above
  return *relay;
}

}  // namespace

VLTrackline::VLTrackline(VLComp& comp, QWidget* parent) : QWidget(parent), comp_(comp) {
  setMouseTracking(true);
  setFocusPolicy(Qt::ClickFocus);
  setAttribute(Qt::WA_OpaquePaintEvent);
  Relay().target = this;
  Listen();
}

VLTrackline::~VLTrackline() {
  if (Relay().target == this) Relay().target = nullptr;
  VLCompInterface& ci = comp_.GetInterface();
  if (ci.GetListener() == this) ci.SetListener(nullptr);
}

void VLTrackline::Listen() {
  comp_.GetInterface().SetListener(this);
  comp_.GetOverlay().GetInterface().SetListener(&Relay());
  for (int32_t i = 0; i < comp_.GetSegmentCount(); ++i)
    comp_.GetSegmentObject(i).GetInterface().SetListener(&Relay());
}

void VLTrackline::OnCurrentTimeChanged() {
  KeepInView(comp_.GetCurrentTime());
  Changed();
}

void VLTrackline::OnPreviewTimeChanged() {
  KeepInView(comp_.GetPreviewTime());
  Changed();
}

void VLTrackline::wheelEvent(QWheelEvent* event) {
  const int steps = event->angleDelta().y() / 120;
  if (steps == 0 || comp_.IsEmpty()) return;
  if (event->modifiers() & Qt::ControlModifier) {
    for (int i = 0; i < std::abs(steps); ++i) steps > 0 ? ZoomIn() : ZoomOut();
  } else if (pixelsPerFrame_ > 0) {
    SetView(pixelsPerFrame_, firstFrame_ - steps * VisibleFrames() / 8);
  }
  event->accept();
}

void VLTrackline::resizeEvent(QResizeEvent* event) {
  if (pixelsPerFrame_ > 0) SetView(pixelsPerFrame_, firstFrame_);
  QWidget::resizeEvent(event);
}

void VLTrackline::Changed() {
  // New segments may have come: they report here from now on.
  Listen();
  update();
  emit changed();
}

QSize VLTrackline::sizeHint() const {
  return {600, 22 + 2 + 4 * 18};
}
QSize VLTrackline::minimumSizeHint() const {
  return {120, 36};
}

// --- Mapping -----------------------------------------------------------------

double VLTrackline::Scale() const {
  const int32_t length = comp_.GetLength();
  const double fit = double(std::max(width() - 2 * kSide, 1)) / std::max(length, 1);
  return std::max(pixelsPerFrame_, fit);
}

double VLTrackline::VisibleFrames() const {
  return double(std::max(width() - 2 * kSide, 1)) / Scale();
}

void VLTrackline::SetView(double pixelsPerFrame, double firstFrame) {
  pixelsPerFrame_ = std::min(pixelsPerFrame, kMaxPixelsPerFrame);
  const double last = std::max(0.0, comp_.GetLength() - VisibleFrames());
  firstFrame_ = std::clamp(firstFrame, 0.0, last);
  const double fit = double(std::max(width() - 2 * kSide, 1)) / std::max(comp_.GetLength(), 1);
  if (pixelsPerFrame_ <= fit) {
    // The whole axis again, which then follows the widget's width.
    pixelsPerFrame_ = 0;
    firstFrame_ = 0;
  }
  update();
}

bool VLTrackline::CanZoomIn() const {
  return !comp_.IsEmpty() && Scale() < kMaxPixelsPerFrame;
}
bool VLTrackline::CanZoomOut() const {
  return !comp_.IsEmpty() && pixelsPerFrame_ > 0;
}

void VLTrackline::ZoomIn() {
  if (!CanZoomIn()) return;
  // The current frame keeps its place on the screen, so the eye stays on it.
  const int32_t t = std::max(comp_.GetPreviewTime(), 0);
  const double at = (t + 0.5 - firstFrame_) / VisibleFrames();
  const double scale = Scale() * 2;
  const double visible = double(std::max(width() - 2 * kSide, 1)) / scale;
  SetView(scale, t + 0.5 - at * visible);
}

void VLTrackline::ZoomOut() {
  if (!CanZoomOut()) return;
  const int32_t t = std::max(comp_.GetPreviewTime(), 0);
  const double at = (t + 0.5 - firstFrame_) / VisibleFrames();
  const double scale = Scale() / 2;
  const double visible = double(std::max(width() - 2 * kSide, 1)) / scale;
  SetView(scale, t + 0.5 - at * visible);
}

void VLTrackline::FitInWindow() {
  SetView(0, 0);
}

void VLTrackline::KeepInView(int32_t frame) {
  if (pixelsPerFrame_ <= 0 || frame < 0) return;
  const double visible = VisibleFrames();
  if (frame < firstFrame_)
    SetView(pixelsPerFrame_, frame);
  else if (frame + 1 > firstFrame_ + visible)
    SetView(pixelsPerFrame_, frame + 1 - visible);
}

int VLTrackline::XOfFrame(int32_t frame) const {
  if (comp_.GetLength() <= 0) return kSide;
  // Far off-screen frames stay far off-screen without leaving int.
  const double x = kSide + (frame - firstFrame_) * Scale();
  return int(std::lround(std::clamp(x, -1e7, 1e7)));
}

int32_t VLTrackline::BoundaryAt(int x) const {
  const double boundary = firstFrame_ + (x - kSide) / Scale();
  return std::clamp<int32_t>(int32_t(std::lround(boundary)), 0, comp_.GetLength());
}

int32_t VLTrackline::FrameAt(int x) const {
  const int32_t length = comp_.GetLength();
  if (length <= 0) return 0;
  const auto frame = int32_t(std::floor(firstFrame_ + (x - kSide) / Scale()));
  return std::clamp<int32_t>(frame, 0, length - 1);
}

QRect VLTrackline::RulerRect() const {
  return {0, 0, width(), std::clamp(height() / 4, 14, 22)};
}

int VLTrackline::LaneHeight() const {
  const int32_t count = comp_.GetSegmentCount();
  if (count == 0) return 0;
  const int room = height() - RulerRect().height() - 2;
  return std::clamp(room / count, kMinLane, kMaxLane);
}

QRect VLTrackline::LaneRect(int32_t segment) const {
  const int h = LaneHeight();
  return {0, RulerRect().bottom() + 3 + segment * h, width(), h};
}

int32_t VLTrackline::LaneAt(int y) const {
  const int h = LaneHeight();
  if (h == 0) return -1;
  const int top = RulerRect().bottom() + 3;
  if (y < top) return -1;
  const int32_t lane = (y - top) / h;
  return lane < comp_.GetSegmentCount() ? lane : -1;
}

VLTrackline::Grip VLTrackline::GripAt(QPoint point) const {
  const auto near = [&](int32_t frame) { return std::abs(point.x() - XOfFrame(frame)) <= kGrip; };
  if (RulerRect().contains(point)) {
    const My::Span area = comp_.GetWorkArea();
    const int toFirst = std::abs(point.x() - XOfFrame(area.first));
    const int toLast = std::abs(point.x() - XOfFrame(area.last));
    if (near(area.first) && toFirst <= toLast) return {Drag::AreaFirst};
    if (near(area.last)) return {Drag::AreaLast};
    return {Drag::Time};
  }
  const int32_t lane = LaneAt(point.y());
  if (lane < 0) return {Drag::Time};
  const My::Span span = comp_.GetSegmentObject(lane).GetTimeSpan();
  if (near(span.last)) return {Drag::SegmentLast, lane};
  if (near(span.first)) return {Drag::SegmentFirst, lane};
  return {Drag::Time, lane};
}

My::Span VLTrackline::DraggedSpan() const {
  My::Span span = dragOriginal_;
  const int32_t length = comp_.GetLength();
  const int32_t origin = dragSegment_ >= 0 && dragSegment_ < comp_.GetSegmentCount()
                             ? comp_.GetSegmentObject(dragSegment_).GetOrigin()
                             : 0;
  switch (drag_) {
    case Drag::AreaFirst:
      span.first = std::clamp(dragBoundary_, 0, span.last);
      break;
    case Drag::AreaLast:
      span.last = std::clamp(dragBoundary_, span.first, length);
      break;
    case Drag::SegmentFirst:
      span.first = std::clamp(dragBoundary_, 0, origin);
      break;
    case Drag::SegmentLast:
      span.last = std::clamp(dragBoundary_, origin + 1, length);
      break;
    default:
      break;
  }
  return span;
}

// --- Input -------------------------------------------------------------------

void VLTrackline::mousePressEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton || comp_.IsEmpty()) return QWidget::mousePressEvent(event);
  const QPoint at = event->position().toPoint();
  const Grip grip = GripAt(at);
  VLCompInterface& ci = comp_.GetInterface();
  drag_ = grip.drag;
  dragSegment_ = grip.segment;
  dragBoundary_ = BoundaryAt(at.x());
  switch (grip.drag) {
    case Drag::Time:
      if (grip.segment >= 0) {
        if (event->modifiers() & Qt::ControlModifier) {
          if (comp_.GetSegmentObject(grip.segment).IsSelected())
            ci.DeselectSegment(grip.segment);
          else
            ci.SelectSegment(grip.segment);
        } else {
          ci.SetActiveSegment(grip.segment);
        }
      }
      ci.SetCurrentTime(FrameAt(at.x()));
      break;
    case Drag::AreaFirst:
    case Drag::AreaLast:
      dragOriginal_ = ci.GetWorkArea();
      break;
    case Drag::SegmentFirst:
    case Drag::SegmentLast:
      dragOriginal_ = comp_.GetSegmentObject(grip.segment).GetTimeSpan();
      break;
    case Drag::None:
      break;
  }
  update();
}

void VLTrackline::mouseMoveEvent(QMouseEvent* event) {
  const QPoint at = event->position().toPoint();
  if (drag_ == Drag::Time) {
    comp_.GetInterface().SetCurrentTime(FrameAt(at.x()));
  } else if (drag_ != Drag::None) {
    const int32_t boundary = BoundaryAt(at.x());
    if (boundary != dragBoundary_) {
      dragBoundary_ = boundary;
      update();
    }
  } else if (!comp_.IsEmpty()) {
    const Drag hover = GripAt(at).drag;
    setCursor(hover == Drag::Time ? Qt::ArrowCursor : Qt::SizeHorCursor);
  }
}

void VLTrackline::mouseReleaseEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton || drag_ == Drag::None) return;
  if (drag_ == Drag::Time) {
    drag_ = Drag::None;
    return;
  }
  dragBoundary_ = BoundaryAt(event->position().toPoint().x());
  const Drag drag = drag_;
  const My::Span span = DraggedSpan();
  drag_ = Drag::None;
  update();
  if (span == dragOriginal_) return;
  if (drag == Drag::AreaFirst || drag == Drag::AreaLast)
    comp_.GetInterface().SetWorkArea(span.first, span.last);
  else if (dragSegment_ < comp_.GetSegmentCount())
    comp_.GetSegmentObject(dragSegment_).GetInterface().SetTimeSpan(span.first, span.last);
}

void VLTrackline::keyPressEvent(QKeyEvent* event) {
  if (event->key() == Qt::Key_Escape && drag_ != Drag::None) {
    drag_ = Drag::None;
    update();
    return;
  }
  QWidget::keyPressEvent(event);
}

void VLTrackline::leaveEvent(QEvent* event) {
  if (drag_ == Drag::None) unsetCursor();
  QWidget::leaveEvent(event);
}

// --- Painting ----------------------------------------------------------------

namespace {

// A tick step of 1, 2 or 5 times a power of ten, at least `minimum` frames.
int32_t TickStep(double minimum) {
  for (int32_t scale = 1;; scale *= 10) {
    for (const int32_t m : {1, 2, 5})
      if (m * scale >= minimum) return m * scale;
    if (scale > 100000000) return scale * 10;
  }
}

}  // namespace

void VLTrackline::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  painter.fillRect(rect(), kBackground);
  PaintRuler(painter);
  if (comp_.IsEmpty()) return;

  for (int32_t i = 0; i < comp_.GetSegmentCount(); ++i) PaintLane(painter, i);

  // Frames outside the work area are dimmed below the ruler.
  const My::Span area =
      drag_ == Drag::AreaFirst || drag_ == Drag::AreaLast ? DraggedSpan() : comp_.GetWorkArea();
  const int top = RulerRect().bottom() + 1;
  const int xa = XOfFrame(area.first), xb = XOfFrame(area.last);
  painter.fillRect(QRect(0, top, xa, height() - top), kOutsideArea);
  painter.fillRect(QRect(xb, top, width() - xb, height() - top), kOutsideArea);

  // The preview time, where it runs ahead of the current time, then the
  // current time over everything.
  const auto centre = [&](int32_t frame) { return (XOfFrame(frame) + XOfFrame(frame + 1)) / 2; };
  const int32_t current = comp_.GetCurrentTime();
  const int32_t preview = comp_.GetPreviewTime();
  if (preview >= 0 && preview != current) {
    painter.setPen(QPen(kPreview, 1, Qt::DashLine));
    painter.drawLine(centre(preview), 0, centre(preview), height());
  }
  if (current >= 0) {
    const int x = centre(current);
    painter.fillRect(QRect(x - 1, 0, 2, height()), kPlayhead);
    QPainterPath head;
    const int r = RulerRect().height() / 3;
    head.moveTo(x - r, 0);
    head.lineTo(x + r, 0);
    head.lineTo(x, r + 2);
    head.closeSubpath();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillPath(head, kPlayhead);
  }
}

void VLTrackline::PaintRuler(QPainter& painter) const {
  const QRect ruler = RulerRect();
  painter.fillRect(ruler, kRuler);
  const int32_t length = comp_.GetLength();
  if (length <= 0) return;

  const My::Span area =
      drag_ == Drag::AreaFirst || drag_ == Drag::AreaLast ? DraggedSpan() : comp_.GetWorkArea();
  const int band = std::max(4, ruler.height() / 4);
  const QRect bandRect(QPoint(XOfFrame(area.first), ruler.bottom() - band + 1),
                       QPoint(XOfFrame(area.last) - 1, ruler.bottom()));
  painter.fillRect(bandRect, kArea);
  painter.fillRect(QRect(bandRect.left(), ruler.top() + 2, 2, ruler.height() - 2), kAreaEdge);
  painter.fillRect(QRect(bandRect.right() - 1, ruler.top() + 2, 2, ruler.height() - 2), kAreaEdge);

  QFont font = painter.font();
  font.setPixelSize(std::clamp(ruler.height() - band - 4, 8, 12));
  painter.setFont(font);
  const double perFrame = Scale();
  const int32_t label = TickStep(64.0 / perFrame);
  const int32_t minor = TickStep(std::max(6.0 / perFrame, 1.0));
  const int32_t start = comp_.GetStartFrame();
  const auto firstShown = int32_t(firstFrame_) / minor * minor;
  const auto lastShown = std::min<int32_t>(length, int32_t(firstFrame_ + VisibleFrames()) + 1);
  for (int32_t f = firstShown; f <= lastShown; f += minor) {
    const int x = XOfFrame(f);
    // Labels and long ticks sit on the numbers the user sees.
    const bool major = (int64_t(f) + start) % label == 0;
    painter.setPen(kTick);
    painter.drawLine(x, ruler.bottom() - band - (major ? 6 : 2), x, ruler.bottom() - band);
    if (major && f < length) {
      painter.setPen(kRulerText);
      painter.drawText(QRect(x + 3, ruler.top(), 80, ruler.height() - band),
                       Qt::AlignLeft | Qt::AlignVCenter, QString::number(int64_t(f) + start));
    }
  }
}

void VLTrackline::PaintLane(QPainter& painter, int32_t index) const {
  const VLSegment& segment = comp_.GetSegmentObject(index);
  const QRect lane = LaneRect(index);
  const bool active = comp_.GetActiveSegment() == index;
  const bool dragged =
      (drag_ == Drag::SegmentFirst || drag_ == Drag::SegmentLast) && dragSegment_ == index;
  const My::Span span = dragged ? DraggedSpan() : segment.GetTimeSpan();
  const int pad = lane.height() >= 8 ? 2 : 0;
  const QRect bar(QPoint(XOfFrame(span.first), lane.top() + pad),
                  QPoint(XOfFrame(span.last) - 1, lane.bottom() - pad));
  painter.fillRect(bar, active ? kActiveSpan : kSpan);

  const My::Span data = segment.GetDataSpan();
  const int32_t d0 = std::max(data.first, 0), d1 = std::min(data.last, comp_.GetLength());
  if (d1 > d0) {
    const int inset = bar.height() >= 8 ? bar.height() / 4 : 0;
    painter.fillRect(QRect(QPoint(XOfFrame(d0), bar.top() + inset),
                           QPoint(XOfFrame(d1) - 1, bar.bottom() - inset)),
                     active ? kActiveData : kData);
  }
  if (segment.IsProcessing()) painter.fillRect(bar, QBrush(kProcessing, Qt::BDiagPattern));

  painter.setPen(QPen(segment.IsSelected() ? kSelected : kSpanEdge, segment.IsSelected() ? 2 : 1));
  painter.setBrush(Qt::NoBrush);
  if (bar.height() >= 4) painter.drawRect(bar.adjusted(0, 0, -1, -1));

  // The key frame as a diamond in the middle of its frame.
  const int kx = (XOfFrame(segment.GetOrigin()) + XOfFrame(segment.GetOrigin() + 1)) / 2;
  const int r = std::max(2, bar.height() / 2 - 1);
  const int ky = bar.center().y();
  QPainterPath diamond;
  diamond.moveTo(kx, ky - r);
  diamond.lineTo(kx + r, ky);
  diamond.lineTo(kx, ky + r);
  diamond.lineTo(kx - r, ky);
  diamond.closeSubpath();
  painter.save();
  painter.setRenderHint(QPainter::Antialiasing);
  painter.fillPath(diamond, kKey);
  painter.restore();
}
