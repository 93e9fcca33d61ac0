// SPDX-License-Identifier: GPL-3.0-or-later
// Painting a segment's mask on its key frame.
//
// While a segment is edited the editor holds a working copy of its mask;
// the brush and the bucket change that copy, the view shows it tinted, and
// each finished stroke or fill goes back to the segment as one undo step
// (named "Brush" or "Fill") through the composition's queue. When the
// segment's mask changes any other way (undo, redo, Import Mask) the copy
// is read again. Owning thread only.
//
// How the view widget drives it:
//
//   app::MaskEditor editor(comp, &surface);   // surface: the widget
//   editor.Begin(segment);                    // Edit Mask
//   editor.MouseDown(app::MouseButton::Left, {x, y});   // image pixels
//   editor.MouseMove({x, y});
//   editor.MouseUp(app::MouseButton::Left, {x, y});     // one undo step
//   editor.SelectTool(app::ToolKind::Fill);   // key G; B for the brush
//   // in paintEvent, while editor.IsEditing():
//   editor.Paint(view, area, draw);           // the picture, working mask tinted
//   editor.GetOutline();                      // the brush circle, if shown
//   editor.End();
//
// The core may end an edit on its own (another active segment, a delete,
// Process, Close): call Sync() after every command and message, and each
// event handler calls it too.
#pragma once

#include <functional>
#include <string>

#include "app/edit/brush_tool.h"
#include "app/edit/edit_tool.h"
#include "app/edit/fill_tool.h"
#include "app/model/interfaces.h"

class VLComp;
class VLSegment;

namespace app {

class VLView;

class MaskEditor : public ToolHost {
 public:
  // Hooks itself into the composition's mask notices; the view's logic, if
  // any, must be made before the editor and destroyed after it.
  explicit MaskEditor(VLComp& comp, MaskEditSurface* surface = nullptr);
  ~MaskEditor();
  MaskEditor(const MaskEditor&) = delete;
  MaskEditor& operator=(const MaskEditor&) = delete;

  void SetSurface(MaskEditSurface* surface) { surface_ = surface; }

  // Ends any edit under way, then edits `segment`: copies its mask, puts
  // the view into edit mode and makes the brush the tool. False (and no
  // edit) when the segment is being tracked.
  bool Begin(VLSegment& segment);
  // Leaves edit mode; nothing when no segment is edited.
  void End();
  // Hands the working mask to the segment as one undo step named `name`.
  // A mask equal to the segment's adds no step.
  void Commit(const std::string& name) override;
  // The segment's mask changed by other means: read it again. A notice
  // caused by Commit itself is ignored.
  void OnMaskChanged(VLSegment& segment);
  // Follows the composition when it began or ended an edit by itself.
  void Sync();

  bool IsEditing() const { return segment_ != nullptr; }
  VLSegment* GetSegment() const { return segment_; }
  bool IsCommitting() const { return committing_; }
  const VL::Mask& GetWorkingMask() const { return working_; }
  VL::Mask& GetWorkingMask() override { return working_; }
  // The size of the view's image (the composition's frames).
  uint32_t GetWidth() const;
  uint32_t GetHeight() const;
  VLComp& GetComposition() { return comp_; }
  MaskEditSurface* GetSurface() const override { return surface_; }

  // --- Tools.
  void SelectTool(ToolKind kind);
  ToolKind GetToolKind() const { return kind_; }
  CBrushTool& GetBrush() { return brush_; }
  CFillTool& GetFill() { return fill_; }
  // The status-bar hint of the tool's button: "Brush (B)", "Paint Bucket (G)".
  static const char* ToolHint(ToolKind kind);

  // --- Events from the view, in image pixels. Ignored when not editing.
  void MouseDown(MouseButton button, ImagePoint at);
  void MouseUp(MouseButton button, ImagePoint at);
  void MouseMove(ImagePoint at);
  void KeyDown(EditKey key);
  void KeyUp(EditKey key);
  void PointerEnter();
  void PointerLeave();
  // For a view that sees Alt only as a modifier of its mouse events: sends
  // the Alt press or release the brush has not heard yet.
  void SyncAlt(bool held);

  // --- What to draw.
  // The brush circle; shown false with the bucket or outside the view.
  BrushOutline GetOutline() const;
  // Edit mode's painting of `area` (image pixels): the picture on show with
  // the working mask tinted in the display style's mask colour and opacity.
  // Same contract as VLView::paint; false when nothing is on show.
  bool Paint(VLView& view,
             PixelRect area,
             const std::function<void(const img::image& picture, PixelRect part)>& draw) const;

  // For the tools.
  void RepaintNow(PixelRect rect) override;
  void OutlineChanged() override;
  void SetWaitCursor(bool busy) override;

 private:
  Tool& ActiveTool() { return kind_ == ToolKind::Brush ? static_cast<Tool&>(brush_) : fill_; }
  void Activate(ToolKind kind);
  void Reload();
  void EndLocally();

  VLComp& comp_;
  MaskEditSurface* surface_;
  VLSegment* segment_ = nullptr;
  VL::Mask working_;
  CBrushTool brush_{*this};
  CFillTool fill_{*this};
  ToolKind kind_ = ToolKind::Brush;
  bool committing_ = false;
  std::function<void(VLSegment&)> previousMaskHook_;
};

}  // namespace app
