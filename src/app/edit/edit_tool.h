// SPDX-License-Identifier: GPL-3.0-or-later
// What the mask editor and its tools hear from the view and ask of it.
//
// The view widget converts its events to image coordinates before it hands
// them on (a pixel (x, y) covers [x, x + 1) x [y, y + 1)), so the tools
// never see zoom or scroll. What the tools want shown goes back through
// MaskEditSurface; the editor's GetOutline() and Paint() say what to draw.
#pragma once

#include <cstdint>
#include <string>

#include "app/model/interfaces.h"
#include "app/preview/view.h"

namespace app {

enum class MouseButton { Left, Right };

// The keys the tools act on. The view maps Alt to Alt, ']' and keypad '+' to
// Enlarge, '[' and keypad '-' to Reduce, and anything else to Other. It
// forwards auto-repeated presses and drops auto-repeated releases: the
// brush's size step grows with the presses since the last real release.
enum class EditKey { Alt, Enlarge, Reduce, Other };

enum class ToolCursor { Cross, Fill };
enum class ToolKind { Brush, Fill };

// A point in image pixels (fractions kept).
struct ImagePoint {
  float x = 0;
  float y = 0;
};

// The view as the editor sees it; the Qt view widget implements it.
class MaskEditSurface {
 public:
  virtual ~MaskEditSurface() = default;
  // Edit mode on or off: the widget sets its VLView's view mode to 1 or 0
  // and draws through MaskEditor::Paint while it is on.
  virtual void SetEditMode(bool on) = 0;
  virtual void SetToolCursor(ToolCursor cursor) = 0;
  // Repaints `rect` (image pixels, already grown past the change) before it
  // returns, so that a stroke shows while it is made.
  virtual void RepaintNow(PixelRect rect) = 0;
  // The whole working mask changed (undo, a new segment): repaint all.
  virtual void RepaintAll() = 0;
  // GetOutline() changed: repaint where the circle was and where it is.
  virtual void OutlineChanged() = 0;
  // Whether the pointer is over the view now.
  virtual bool IsPointerInside() const = 0;
};

// What a tool asks of the editor that owns it. The editor implements it, so
// the tools need not know the editor that holds them.
class ToolHost {
 public:
  virtual VL::Mask& GetWorkingMask() = 0;
  virtual MaskEditSurface* GetSurface() const = 0;
  // Hands the working mask to the segment as one undo step named `name`.
  virtual void Commit(const std::string& name) = 0;
  virtual void RepaintNow(PixelRect rect) = 0;
  virtual void OutlineChanged() = 0;
  virtual void SetWaitCursor(bool busy) = 0;

 protected:
  ~ToolHost() = default;
};

// A view tool: the editor hands it the view's events while it is active.
class Tool {
 public:
  explicit Tool(ToolHost& editor) : editor_(editor) {}
  virtual ~Tool() = default;
  Tool(const Tool&) = delete;
  Tool& operator=(const Tool&) = delete;

  virtual void OnButtonDown(MouseButton /*button*/, ImagePoint /*at*/) {}
  virtual void OnButtonUp(MouseButton /*button*/, ImagePoint /*at*/) {}
  virtual void OnMouseMove(ImagePoint /*at*/) {}
  virtual void OnKeyDown(EditKey /*key*/) {}
  virtual void OnKeyUp(EditKey /*key*/) {}
  virtual void OnActivate() {}
  virtual void OnDeactivate() {}
  virtual void OnPointerEnter() {}
  virtual void OnPointerLeave() {}
  virtual ToolCursor Cursor() const = 0;

 protected:
  ToolHost& editor_;
};

}  // namespace app
