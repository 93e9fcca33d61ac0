// SPDX-License-Identifier: GPL-3.0-or-later
// The round brush of the mask editor: left paints, right erases, one disc
// per mouse event (a fast stroke leaves separate discs; users rely on it
// for dotted masks), one undo step "Brush" per stroke. Alt held turns the
// buttons into size steps; '[' / ']' and the keypad's -/+ size it with a
// step that grows while the key repeats.
#pragma once

#include <cstdint>

#include "app/edit/edit_tool.h"

namespace app {

// The circle the view draws around the pointer.
struct BrushOutline {
  bool shown = false;
  ImagePoint centre;     // image pixels
  int32_t radius = 0;    // image pixels; on screen trunc(radius * zoom)
  int32_t penWidth = 1;  // screen pixels: 2 while sizing
};

class CBrushTool : public Tool {
 public:
  static constexpr int32_t kMinRadius = 1;
  static constexpr int32_t kMaxRadius = 150;
  static constexpr int32_t kInitialRadius = 20;

  explicit CBrushTool(ToolHost& editor) : Tool(editor) {}

  void OnButtonDown(MouseButton button, ImagePoint at) override;
  void OnButtonUp(MouseButton button, ImagePoint at) override;
  void OnMouseMove(ImagePoint at) override;
  void OnKeyDown(EditKey key) override;
  void OnKeyUp(EditKey key) override;
  void OnActivate() override;
  void OnDeactivate() override;
  void OnPointerEnter() override;
  void OnPointerLeave() override;
  ToolCursor Cursor() const override { return ToolCursor::Cross; }

  int32_t GetRadius() const { return radius_; }
  // Clamped into kMinRadius..kMaxRadius; the outline follows.
  void SetRadius(int32_t radius);
  bool IsSizing() const { return sizing_; }
  bool IsPainting() const { return painting_; }
  BrushOutline GetOutline() const;

  // The size keys' step for the n-th press since the last release (n from 1).
  static int32_t SizeStep(int32_t presses);

 private:
  void Stamp();
  void SetOutlineVisible();

  int32_t radius_ = kInitialRadius;
  bool sizing_ = false;
  bool painting_ = false;
  bool paintValue_ = true;
  bool outlineAllowed_ = true;
  bool outlineSuspended_ = false;
  bool havePointer_ = false;  // a position arrived since activation
  ImagePoint pointer_;
  int32_t repeat_ = 0;
};

}  // namespace app
