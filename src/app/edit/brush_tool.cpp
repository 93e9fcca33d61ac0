// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/edit/brush_tool.h"

#include <algorithm>

#include "app/edit/mask_bits.h"

namespace app {

int32_t CBrushTool::SizeStep(int32_t presses) {
  if (presses <= 1) return 1;
  if (presses <= 3) return 2;
  if (presses <= 5) return 5;
  return 10;
}

void CBrushTool::SetRadius(int32_t radius) {
  radius = std::clamp(radius, kMinRadius, kMaxRadius);
  if (radius == radius_) return;
  radius_ = radius;
  editor_.OutlineChanged();
}

BrushOutline CBrushTool::GetOutline() const {
  BrushOutline outline;
  outline.shown = outlineAllowed_ && !outlineSuspended_ && havePointer_;
  outline.centre = pointer_;
  outline.radius = radius_;
  outline.penWidth = sizing_ ? 2 : 1;
  return outline;
}

void CBrushTool::Stamp() {
  PixelRect rect =
      StampDisc(editor_.GetWorkingMask(), pointer_.x, pointer_.y, radius_, paintValue_);
  if (rect.width == 0) {
    editor_.OutlineChanged();
    return;
  }
  // A little more than the disc, so that the edge pixels' smoothing on
  // screen is redrawn too.
  rect.x -= 2;
  rect.y -= 2;
  rect.width += 4;
  rect.height += 4;
  editor_.RepaintNow(rect);
  editor_.OutlineChanged();
}

void CBrushTool::OnButtonDown(MouseButton button, ImagePoint at) {
  pointer_ = at;
  havePointer_ = true;
  if (sizing_) {
    SetRadius(radius_ + (button == MouseButton::Left ? 1 : -1));
    return;
  }
  painting_ = true;
  paintValue_ = button == MouseButton::Left;
  Stamp();
}

void CBrushTool::OnButtonUp(MouseButton /*button*/, ImagePoint /*at*/) {
  if (!painting_) return;
  painting_ = false;
  editor_.Commit("Brush");
}

void CBrushTool::OnMouseMove(ImagePoint at) {
  pointer_ = at;
  havePointer_ = true;
  if (painting_)
    Stamp();
  else
    editor_.OutlineChanged();
}

void CBrushTool::OnKeyDown(EditKey key) {
  switch (key) {
    case EditKey::Alt:
      if (!sizing_) {
        sizing_ = true;
        editor_.OutlineChanged();  // now with the thick pen
      }
      break;
    case EditKey::Enlarge:
    case EditKey::Reduce:
      if (sizing_) break;
      ++repeat_;
      SetRadius(radius_ + (key == EditKey::Enlarge ? 1 : -1) * SizeStep(repeat_));
      break;
    case EditKey::Other:
      break;
  }
}

void CBrushTool::OnKeyUp(EditKey key) {
  repeat_ = 0;
  if (key == EditKey::Alt && sizing_) {
    sizing_ = false;
    editor_.OutlineChanged();
  }
}

void CBrushTool::OnActivate() {
  const MaskEditSurface* surface = editor_.GetSurface();
  outlineAllowed_ = surface && surface->IsPointerInside();
  outlineSuspended_ = false;
  editor_.OutlineChanged();
}

void CBrushTool::OnDeactivate() {
  painting_ = false;
  sizing_ = false;
  outlineAllowed_ = false;
  outlineSuspended_ = true;
  editor_.OutlineChanged();
}

void CBrushTool::OnPointerEnter() {
  outlineAllowed_ = true;
  editor_.OutlineChanged();
}

void CBrushTool::OnPointerLeave() {
  outlineAllowed_ = false;
  editor_.OutlineChanged();
}

}  // namespace app
