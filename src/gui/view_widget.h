// SPDX-License-Identifier: GPL-3.0-or-later
// The preview's window: draws what the preview logic (app::VLView) has on
// show, zooms (0.01 to 100) and pans, runs the play timer, and while a mask
// is edited hands mouse and keys to the mask editor and draws its tint and
// brush outline.
#pragma once

#include <QPointF>
#include <QTimer>
#include <QWidget>
#include <functional>

#include "app/edit/edit_tool.h"
#include "app/ports.h"

namespace app {
class MaskEditor;
class VLView;
}  // namespace app

namespace gui {

class ViewWidget : public QWidget, public app::ViewSurface, public app::MaskEditSurface {
 public:
  static constexpr double kMinZoom = 0.01;
  static constexpr double kMaxZoom = 100.0;

  explicit ViewWidget(QWidget* parent = nullptr);
  // The logic it draws for; null before it exists and after it is gone.
  void set_view(app::VLView* view);
  void set_editor(app::MaskEditor* editor) { editor_ = editor; }
  bool editing() const;

  double zoom() const { return zoom_; }
  // Zooms about `anchor` (widget coordinates), clamped to the range.
  void set_zoom(double zoom, QPointF anchor);
  void set_zoom(double zoom) { set_zoom(zoom, QPointF(width() / 2.0, height() / 2.0)); }
  void zoom_in() { set_zoom(zoom_ * 2.0); }
  void zoom_out() { set_zoom(zoom_ / 2.0); }
  void fit_on_screen();
  void actual_pixels();
  // Where the picture's origin lies in the widget.
  QPointF offset() const { return offset_; }
  QPointF to_image(QPointF widget_point) const { return (widget_point - offset_) / zoom_; }
  QPointF to_widget(QPointF image_point) const { return image_point * zoom_ + offset_; }
  QRect to_widget(app::PixelRect rect) const;
  QSize image_size() const { return image_size_; }
  // How many frames the paint events drew (benchmarks and tests).
  uint64_t frames_painted() const { return frames_painted_; }

  // app::ViewSurface. invalidate() may come from the compositing thread.
  void invalidate() override;
  void start_play_timer(uint32_t interval_ms) override;
  void stop_play_timer() override;
  void set_image_size(uint32_t width, uint32_t height) override;

  // app::MaskEditSurface.
  void SetEditMode(bool on) override;
  void SetToolCursor(app::ToolCursor cursor) override;
  void RepaintNow(app::PixelRect rect) override;
  void RepaintAll() override { update(); }
  void OutlineChanged() override;
  bool IsPointerInside() const override { return underMouse(); }

 protected:
  void paintEvent(QPaintEvent* event) override;
  void wheelEvent(QWheelEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  void keyReleaseEvent(QKeyEvent* event) override;
  void enterEvent(QEnterEvent* event) override;
  void leaveEvent(QEvent* event) override;
  // While editing, the tools' keys reach the view before the menus' keys.
  bool event(QEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;

 private:
  app::VLView* view_ = nullptr;
  static QRect OutlineRect(QPointF centre, double radius);
  app::MaskEditor* editor_ = nullptr;
  QRect outline_;  // where the brush outline was drawn, widget pixels
  QTimer timer_;
  double zoom_ = 1.0;
  QPointF offset_;
  QSize image_size_;
  bool fitted_ = false;  // keep fitting on resize until the user zooms
  bool panning_ = false;
  QPointF pan_from_;
  uint64_t frames_painted_ = 0;
};

// The desktop's workspace colour as a stored colour (blue in the low byte).
uint32_t WorkspaceColour();

}  // namespace gui
