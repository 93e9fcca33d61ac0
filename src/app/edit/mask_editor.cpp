// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/edit/mask_editor.h"

#include <algorithm>

#include "app/model/comp.h"
#include "app/model/segment_actions.h"
#include "app/ports.h"
#include "app/preview/view.h"
#include "imaging/merge.h"
#include "imaging/merge_details.h"

namespace app {

namespace {

// The segment's own mask change, under the name of the tool that made it,
// so that the Edit menu reads "Undo Brush" or "Undo Fill".
class PaintedMaskAction : public SegmentMaskAction {
 public:
  PaintedMaskAction(VLSegment& segment, VL::Mask mask, std::string name)
      : SegmentMaskAction(segment, std::move(mask)), name_(std::move(name)) {}
  std::string GetName() const override { return name_; }

 private:
  std::string name_;
};

}  // namespace

MaskEditor::MaskEditor(VLComp& comp, MaskEditSurface* surface) : comp_(comp), surface_(surface) {
  previousMaskHook_ = comp_.hooks.maskChanged;
  comp_.hooks.maskChanged = [this](VLSegment& segment) {
    if (previousMaskHook_) previousMaskHook_(segment);
    OnMaskChanged(segment);
  };
}

MaskEditor::~MaskEditor() {
  comp_.hooks.maskChanged = previousMaskHook_;
  if (segment_ && comp_.GetEditedSegment() == segment_) segment_->GetInterface().EndEdit();
}

uint32_t MaskEditor::GetWidth() const {
  return comp_.GetWidth();
}
uint32_t MaskEditor::GetHeight() const {
  return comp_.GetHeight();
}

bool MaskEditor::Begin(VLSegment& segment) {
  End();
  segment.GetInterface().BeginEdit();
  if (comp_.GetEditedSegment() != &segment) return false;
  segment_ = &segment;
  working_ = segment.GetMask();
  if (surface_) surface_->SetEditMode(true);
  Activate(ToolKind::Brush);
  comp_.Fire(&VL::Listener::OnStateChanged);
  return true;
}

void MaskEditor::End() {
  if (segment_) EndLocally();
}

void MaskEditor::EndLocally() {
  ActiveTool().OnDeactivate();
  VLSegment* segment = std::exchange(segment_, nullptr);
  // A segment the core already let go of may be gone: only compare it.
  if (comp_.GetEditedSegment() == segment) segment->GetInterface().EndEdit();
  working_ = VL::Mask();
  if (surface_) surface_->SetEditMode(false);
  comp_.Fire(&VL::Listener::OnStateChanged);
}

void MaskEditor::Sync() {
  if (segment_ && comp_.GetEditedSegment() != segment_) EndLocally();
  if (!segment_ && comp_.GetEditedSegment()) Begin(*comp_.GetEditedSegment());
}

void MaskEditor::Commit(const std::string& name) {
  if (!segment_) return;
  struct Flag {
    bool& flag;
    explicit Flag(bool& f) : flag(f) { flag = true; }
    ~Flag() { flag = false; }
  } committing(committing_);
  comp_.GetActionQueue().Push(std::make_unique<PaintedMaskAction>(*segment_, working_, name));
}

void MaskEditor::OnMaskChanged(VLSegment& segment) {
  if (committing_ || &segment != segment_) return;
  Reload();
}

void MaskEditor::Reload() {
  working_ = segment_->GetMask();
  if (surface_) surface_->RepaintAll();
}

// --- Tools ---------------------------------------------------------------------

const char* MaskEditor::ToolHint(ToolKind kind) {
  return kind == ToolKind::Brush ? "Brush (B)" : "Paint Bucket (G)";
}

void MaskEditor::Activate(ToolKind kind) {
  kind_ = kind;
  if (surface_) surface_->SetToolCursor(ActiveTool().Cursor());
  ActiveTool().OnActivate();
}

void MaskEditor::SelectTool(ToolKind kind) {
  Sync();
  if (!segment_) {
    kind_ = kind;
    return;
  }
  if (kind == kind_) return;
  ActiveTool().OnDeactivate();
  Activate(kind);
}

void MaskEditor::MouseDown(MouseButton button, ImagePoint at) {
  Sync();
  if (segment_) ActiveTool().OnButtonDown(button, at);
}
void MaskEditor::MouseUp(MouseButton button, ImagePoint at) {
  Sync();
  if (segment_) ActiveTool().OnButtonUp(button, at);
}
void MaskEditor::MouseMove(ImagePoint at) {
  Sync();
  if (segment_) ActiveTool().OnMouseMove(at);
}
void MaskEditor::KeyDown(EditKey key) {
  Sync();
  if (segment_) ActiveTool().OnKeyDown(key);
}
void MaskEditor::KeyUp(EditKey key) {
  Sync();
  if (segment_) ActiveTool().OnKeyUp(key);
}
void MaskEditor::PointerEnter() {
  Sync();
  if (segment_) ActiveTool().OnPointerEnter();
}
void MaskEditor::PointerLeave() {
  Sync();
  if (segment_) ActiveTool().OnPointerLeave();
}

void MaskEditor::SyncAlt(bool held) {
  Sync();
  if (!segment_ || kind_ != ToolKind::Brush || held == brush_.IsSizing()) return;
  held ? KeyDown(EditKey::Alt) : KeyUp(EditKey::Alt);
}

// --- Drawing -------------------------------------------------------------------

BrushOutline MaskEditor::GetOutline() const {
  if (!segment_ || kind_ != ToolKind::Brush) return {};
  return brush_.GetOutline();
}

bool MaskEditor::Paint(VLView& view,
                       PixelRect area,
                       const std::function<void(const img::image&, PixelRect)>& draw) const {
  if (comp_.IsEmpty()) return false;
  const int64_t x0 = std::max<int64_t>(area.x, 0), y0 = std::max<int64_t>(area.y, 0);
  const int64_t x1 = std::min<int64_t>(int64_t(area.x) + area.width, comp_.GetWidth());
  const int64_t y1 = std::min<int64_t>(int64_t(area.y) + area.height, comp_.GetHeight());
  if (x1 <= x0 || y1 <= y0) return false;
  const PixelRect part{int32_t(x0), int32_t(y0), uint32_t(x1 - x0), uint32_t(y1 - y0)};
  const DisplayStyle& style = view.GetDisplayStyle();
  uint8_t colour[4];
  img::unpack_colour(style.mask_color, colour);
  const float opacity = float(double(std::min<uint32_t>(style.mask_opacity, 1000)) / 1000.0);
  // Tinted under the back buffer's lock, drawn outside it.
  img::image tinted(part.width, part.height);
  const bool painted = view.back_buffer().paint([&](const img::image& picture) {
    img::tint_area(tinted, picture, working_, part.x, part.y, style.inverse_mask != 0, colour,
                   opacity);
  });
  if (!painted) return false;
  draw(tinted, PixelRect{0, 0, part.width, part.height});
  return true;
}

void MaskEditor::RepaintNow(PixelRect rect) {
  if (surface_) surface_->RepaintNow(rect);
}
void MaskEditor::OutlineChanged() {
  if (surface_) surface_->OutlineChanged();
}
void MaskEditor::SetWaitCursor(bool busy) {
  if (UserDialogs* dialogs = comp_.GetDialogs()) dialogs->set_wait_cursor(busy);
}

}  // namespace app
