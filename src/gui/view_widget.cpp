// SPDX-License-Identifier: GPL-3.0-or-later
#include "gui/view_widget.h"

#include <QApplication>
#include <QImage>
#include <QMouseEvent>
#include <QPainter>
#include <QPalette>
#include <QWheelEvent>
#include <algorithm>
#include <cmath>
#include <optional>

#include "app/edit/brush_tool.h"
#include "app/edit/mask_editor.h"
#include "app/preview/view.h"

namespace gui {

uint32_t WorkspaceColour() {
  return QApplication::palette().color(QPalette::Dark).rgb() & 0xFFFFFF;
}

ViewWidget::ViewWidget(QWidget* parent) : QWidget(parent) {
  setAttribute(Qt::WA_OpaquePaintEvent);
  setFocusPolicy(Qt::StrongFocus);
  setMouseTracking(true);
  setMinimumSize(64, 64);
  // A coarse timer would stretch 40 ms frames to 50.
  timer_.setTimerType(Qt::PreciseTimer);
  connect(&timer_, &QTimer::timeout, this, [this] {
    if (view_) view_->on_timer();
  });
}

void ViewWidget::set_view(app::VLView* view) {
  view_ = view;
  if (!view) timer_.stop();
  update();
}

void ViewWidget::set_zoom(double zoom, QPointF anchor) {
  zoom = std::clamp(zoom, kMinZoom, kMaxZoom);
  const QPointF fixed = to_image(anchor);
  zoom_ = zoom;
  offset_ = anchor - fixed * zoom_;
  fitted_ = false;
  update();
}

void ViewWidget::fit_on_screen() {
  if (image_size_.isEmpty()) return;
  const double z =
      std::min(double(width()) / image_size_.width(), double(height()) / image_size_.height());
  zoom_ = std::clamp(z, kMinZoom, kMaxZoom);
  offset_ = QPointF((width() - image_size_.width() * zoom_) / 2.0,
                    (height() - image_size_.height() * zoom_) / 2.0);
  fitted_ = true;
  update();
}

void ViewWidget::actual_pixels() {
  zoom_ = 1.0;
  offset_ = QPointF(std::round((width() - image_size_.width()) / 2.0),
                    std::round((height() - image_size_.height()) / 2.0));
  fitted_ = false;
  update();
}

void ViewWidget::invalidate() {
  // From any thread: the repaint is queued to the widget's own thread and
  // dropped if the widget is gone by then.
  QMetaObject::invokeMethod(this, qOverload<>(&QWidget::update), Qt::QueuedConnection);
}

void ViewWidget::start_play_timer(uint32_t interval_ms) {
  timer_.start(int(interval_ms));
}

void ViewWidget::stop_play_timer() {
  timer_.stop();
}

void ViewWidget::set_image_size(uint32_t width, uint32_t height) {
  const QSize size{int(width), int(height)};
  if (size == image_size_) return;
  image_size_ = size;
  fit_on_screen();
}

void ViewWidget::resizeEvent(QResizeEvent*) {
  if (fitted_ || offset_.isNull()) fit_on_screen();
}

void ViewWidget::paintEvent(QPaintEvent* event) {
  QPainter painter(this);
  const uint32_t background = view_ ? view_->GetBackgroundColour() : WorkspaceColour();
  painter.fillRect(event->rect(), QColor::fromRgb(0xFF000000u | background));
  if (!view_ || image_size_.isEmpty()) return;
  // The invalid rectangle in picture pixels, one pixel of margin for the
  // smoothing at the edges.
  const QRectF r(to_image(event->rect().topLeft()),
                 to_image(event->rect().bottomRight() + QPoint(1, 1)));
  const int x0 = std::max(0, int(std::floor(r.left())) - 1);
  const int y0 = std::max(0, int(std::floor(r.top())) - 1);
  const int x1 = std::min(image_size_.width(), int(std::ceil(r.right())) + 1);
  const int y1 = std::min(image_size_.height(), int(std::ceil(r.bottom())) + 1);
  if (x1 <= x0 || y1 <= y0) {
    view_->paint({0, 0, 0, 0}, [](const img::image&, app::PixelRect) {});
    return;
  }
  // Smoothing below one screen pixel per picture pixel, plain pixels above.
  painter.setRenderHint(QPainter::SmoothPixmapTransform, zoom_ <= 1.0);
  const app::PixelRect area{x0, y0, uint32_t(x1 - x0), uint32_t(y1 - y0)};
  const auto draw = [&](const img::image& picture, app::PixelRect part) {
    // The picture's bytes run blue, green, red, alpha: Qt's RGB32 on a
    // little-endian machine. Wrapped, not copied.
    const QImage image(picture.data, int(picture.width), int(picture.height),
                       qsizetype(picture.stride), QImage::Format_RGB32);
    const QRect source(part.x, part.y, int(part.width), int(part.height));
    const QRectF target(to_widget(QPointF(x0, y0)),
                        QSizeF(part.width * zoom_, part.height * zoom_));
    if (picture.top_down)
      painter.drawImage(target, image, source);
    else  // rows stored bottom first
      painter.drawImage(target, image.mirrored(false, true), source);
  };
  // The editor tints its working mask, which may be ahead of the segment's.
  const bool drawn = editing() ? editor_->Paint(*view_, area, draw) : view_->paint(area, draw);
  if (drawn) ++frames_painted_;
  outline_ = QRect();
  if (editing()) {
    const app::BrushOutline outline = editor_->GetOutline();
    if (outline.shown) {
      const QPointF c = to_widget(QPointF(outline.centre.x, outline.centre.y));
      const double radius = std::trunc(outline.radius * zoom_);
      painter.setRenderHint(QPainter::Antialiasing, false);
      painter.setPen(QPen(Qt::white, outline.penWidth));
      // Seen on any picture: the outline inverts what lies under it.
      painter.setCompositionMode(QPainter::RasterOp_SourceXorDestination);
      painter.drawEllipse(c, radius, radius);
      outline_ = OutlineRect(c, radius);
    }
  }
}

QRect ViewWidget::OutlineRect(QPointF centre, double radius) {
  return QRectF(centre.x() - radius, centre.y() - radius, 2 * radius, 2 * radius)
      .toAlignedRect()
      .adjusted(-3, -3, 3, 3);
}

bool ViewWidget::editing() const {
  return editor_ && view_ && editor_->IsEditing();
}

QRect ViewWidget::to_widget(app::PixelRect rect) const {
  const QPointF a = to_widget(QPointF(rect.x, rect.y));
  const QPointF b = to_widget(QPointF(double(rect.x) + rect.width, double(rect.y) + rect.height));
  return QRectF(a, b).toAlignedRect().adjusted(-1, -1, 1, 1);
}

void ViewWidget::SetEditMode(bool on) {
  if (view_) view_->set_view_mode(on ? 1 : 0);
  update();
}

void ViewWidget::SetToolCursor(app::ToolCursor cursor) {
  setCursor(cursor == app::ToolCursor::Fill ? Qt::PointingHandCursor : Qt::CrossCursor);
}

void ViewWidget::RepaintNow(app::PixelRect rect) {
  // A stroke shows while it is made: painted before the next mouse move.
  repaint(to_widget(rect));
}

void ViewWidget::OutlineChanged() {
  QRect now;
  if (editing()) {
    const app::BrushOutline o = editor_->GetOutline();
    if (o.shown)
      now = OutlineRect(to_widget(QPointF(o.centre.x, o.centre.y)), std::trunc(o.radius * zoom_));
  }
  update(outline_.united(now));
}

namespace {
app::ImagePoint Point(QPointF p) {
  return {float(p.x()), float(p.y())};
}
// The tools' keys; nothing for the others.
std::optional<app::EditKey> EditKeyOf(const QKeyEvent* e) {
  const bool keypad = e->modifiers() & Qt::KeypadModifier;
  switch (e->key()) {
    case Qt::Key_Alt:
      return app::EditKey::Alt;
    case Qt::Key_BracketRight:
      return app::EditKey::Enlarge;
    case Qt::Key_BracketLeft:
      return app::EditKey::Reduce;
    case Qt::Key_Plus:
      return keypad ? std::optional(app::EditKey::Enlarge) : std::nullopt;
    case Qt::Key_Minus:
      return keypad ? std::optional(app::EditKey::Reduce) : std::nullopt;
    default:
      return std::nullopt;
  }
}
bool IsToolKey(const QKeyEvent* e) {
  return EditKeyOf(e) || e->key() == Qt::Key_B || e->key() == Qt::Key_G;
}
}  // namespace

bool ViewWidget::event(QEvent* e) {
  if (e->type() == QEvent::ShortcutOverride && editing()) {
    auto* key = static_cast<QKeyEvent*>(e);
    if (IsToolKey(key) && !(key->modifiers() & (Qt::ControlModifier | Qt::AltModifier))) {
      e->accept();
      return true;
    }
  }
  return QWidget::event(e);
}

void ViewWidget::enterEvent(QEnterEvent* e) {
  if (editing()) editor_->PointerEnter();
  QWidget::enterEvent(e);
}

void ViewWidget::leaveEvent(QEvent* e) {
  if (editing()) editor_->PointerLeave();
  QWidget::leaveEvent(e);
}

void ViewWidget::wheelEvent(QWheelEvent* event) {
  const QPoint steps = event->angleDelta();
  if (event->modifiers() & Qt::ControlModifier) {
    const double factor = std::pow(2.0, steps.y() / 240.0);
    set_zoom(zoom_ * factor, event->position());
  } else {
    // Shift turns the wheel sideways, as elsewhere on the desktop.
    QPointF by = (event->modifiers() & Qt::ShiftModifier) ? QPointF(steps.y(), 0)
                                                          : QPointF(steps.x(), steps.y());
    offset_ += by / 2.0;
    fitted_ = false;
    update();
  }
  event->accept();
}

void ViewWidget::mousePressEvent(QMouseEvent* event) {
  setFocus();
  if (event->button() == Qt::MiddleButton) {
    panning_ = true;
    pan_from_ = event->position();
    setCursor(Qt::ClosedHandCursor);
    return;
  }
  if (editing() && (event->button() == Qt::LeftButton || event->button() == Qt::RightButton))
    editor_->MouseDown(
        event->button() == Qt::LeftButton ? app::MouseButton::Left : app::MouseButton::Right,
        Point(to_image(event->position())));
}

void ViewWidget::mouseMoveEvent(QMouseEvent* event) {
  if (panning_) {
    offset_ += event->position() - pan_from_;
    pan_from_ = event->position();
    fitted_ = false;
    update();
    return;
  }
  if (editing()) editor_->MouseMove(Point(to_image(event->position())));
}

void ViewWidget::mouseReleaseEvent(QMouseEvent* event) {
  if (event->button() == Qt::MiddleButton && panning_) {
    panning_ = false;
    unsetCursor();
    return;
  }
  if (editing() && (event->button() == Qt::LeftButton || event->button() == Qt::RightButton))
    editor_->MouseUp(
        event->button() == Qt::LeftButton ? app::MouseButton::Left : app::MouseButton::Right,
        Point(to_image(event->position())));
}

void ViewWidget::keyPressEvent(QKeyEvent* event) {
  if (editing()) {
    if (event->key() == Qt::Key_B || event->key() == Qt::Key_G) {
      editor_->SelectTool(event->key() == Qt::Key_B ? app::ToolKind::Brush : app::ToolKind::Fill);
      return;
    }
    if (const auto key = EditKeyOf(event)) {
      editor_->KeyDown(*key);  // repeats too: the step grows with them
      return;
    }
  }
  QWidget::keyPressEvent(event);
}

void ViewWidget::keyReleaseEvent(QKeyEvent* event) {
  if (editing() && !event->isAutoRepeat()) {
    if (const auto key = EditKeyOf(event)) {
      editor_->KeyUp(*key);
      return;
    }
  }
  QWidget::keyReleaseEvent(event);
}

}  // namespace gui
