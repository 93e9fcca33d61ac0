// SPDX-License-Identifier: GPL-3.0-or-later
// The paint bucket of the mask editor: left fills with 1, right with 0,
// one undo step "Fill" per click.
#pragma once

#include "app/edit/edit_tool.h"

namespace app {

class CFillTool : public Tool {
 public:
  explicit CFillTool(ToolHost& editor) : Tool(editor) {}
  void OnButtonDown(MouseButton button, ImagePoint at) override;
  ToolCursor Cursor() const override { return ToolCursor::Fill; }
};

}  // namespace app
