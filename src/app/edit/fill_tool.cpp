// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/edit/fill_tool.h"

#include <cmath>

#include "app/edit/mask_bits.h"

namespace app {

void CFillTool::OnButtonDown(MouseButton button, ImagePoint at) {
  VL::Mask& mask = editor_.GetWorkingMask();
  const float x = std::floor(at.x), y = std::floor(at.y);
  if (!(x >= 0 && y >= 0 && x < float(mask.width) && y < float(mask.height))) return;
  // A large area takes a moment; the bucket says so.
  struct Wait {
    ToolHost& editor;
    explicit Wait(ToolHost& e) : editor(e) { editor.SetWaitCursor(true); }
    ~Wait() { editor.SetWaitCursor(false); }
  } wait(editor_);
  FloodFill(mask, int32_t(x), int32_t(y), button == MouseButton::Left);
  if (MaskEditSurface* surface = editor_.GetSurface()) surface->RepaintAll();
  editor_.Commit("Fill");
}

}  // namespace app
