// SPDX-License-Identifier: GPL-3.0-or-later
// The mask editor on a composition: strokes and fills as undo steps, the
// working copy following undo, the brush's sizing keys, and edits ended by
// the core.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "app/edit/mask_bits.h"
#include "app/edit/mask_editor.h"
#include "app_fixtures.h"

namespace {

using app::EditKey;
using app::ImagePoint;
using app::MouseButton;
using app::ToolKind;

class FakeSurface : public app::MaskEditSurface {
 public:
  void SetEditMode(bool on) override { log.push_back(on ? "edit on" : "edit off"); }
  void SetToolCursor(app::ToolCursor c) override {
    log.push_back(c == app::ToolCursor::Cross ? "cross" : "bucket");
  }
  void RepaintNow(app::PixelRect r) override { repainted.push_back(r); }
  void RepaintAll() override { log.push_back("all"); }
  void OutlineChanged() override {}
  bool IsPointerInside() const override { return inside; }

  std::vector<std::string> log;
  std::vector<app::PixelRect> repainted;
  bool inside = true;
};

int CountSet(const VL::Mask& mask) {
  int n = 0;
  for (int32_t y = 0; y < int32_t(mask.height); ++y)
    for (int32_t x = 0; x < int32_t(mask.width); ++x) n += app::GetMaskBit(mask, x, y);
  return n;
}

struct EditorFixture : app_testing::CompFixture {
  EditorFixture() : CompFixture(20) {
    comp.GetInterface().CreateSegment(4, false);
    segment = &comp.GetSegmentObject(0);
    EXPECT_TRUE(editor.Begin(*segment));
    editor.GetBrush().SetRadius(1);
  }
  void Stroke(MouseButton button, std::vector<ImagePoint> points) {
    editor.MouseDown(button, points.front());
    for (size_t i = 1; i < points.size(); ++i) editor.MouseMove(points[i]);
    editor.MouseUp(button, points.back());
  }
  const VLActionQueue& Queue() { return comp.GetActionQueue(); }

  FakeSurface surface;
  app::MaskEditor editor{comp, &surface};
  VLSegment* segment = nullptr;
};

TEST(MaskEditor, StrokeIsOneUndoStepAndUndoRedoReloadTheWorkingCopy) {
  EditorFixture f;
  const size_t steps = f.Queue().GetSize();
  // Two discs of radius 1 on pixel corners: four pixels each, no line between.
  f.Stroke(MouseButton::Left, {{2, 2}, {6, 4}});
  EXPECT_EQ(f.Queue().GetSize(), steps + 1);
  EXPECT_EQ(f.Queue().GetUndoName(), "Brush");
  EXPECT_EQ(CountSet(f.editor.GetWorkingMask()), 8);
  EXPECT_TRUE(app::GetMaskBit(f.editor.GetWorkingMask(), 1, 1));
  EXPECT_FALSE(app::GetMaskBit(f.editor.GetWorkingMask(), 3, 2));
  EXPECT_TRUE(SameMask(f.segment->GetMask(), f.editor.GetWorkingMask()));

  f.comp.GetActionQueue().Undo();
  EXPECT_EQ(CountSet(f.segment->GetMask()), 0);
  EXPECT_EQ(CountSet(f.editor.GetWorkingMask()), 0) << "undo must come back into the editor";
  f.comp.GetActionQueue().Redo();
  EXPECT_EQ(CountSet(f.editor.GetWorkingMask()), 8);

  // The right button erases, as one more step.
  f.Stroke(MouseButton::Right, {{2, 2}});
  EXPECT_EQ(CountSet(f.editor.GetWorkingMask()), 4);
  EXPECT_EQ(f.Queue().GetSize(), steps + 2);
}

TEST(MaskEditor, MovesWithoutAButtonOnlyMoveTheOutline) {
  EditorFixture f;
  f.editor.MouseMove({3.5f, 3.5f});
  EXPECT_EQ(CountSet(f.editor.GetWorkingMask()), 0);
  const app::BrushOutline outline = f.editor.GetOutline();
  EXPECT_TRUE(outline.shown);
  EXPECT_FLOAT_EQ(outline.centre.x, 3.5f);
  EXPECT_EQ(outline.radius, 1);
  f.editor.PointerLeave();
  EXPECT_FALSE(f.editor.GetOutline().shown);
  f.editor.SelectTool(ToolKind::Fill);
  f.editor.PointerEnter();
  EXPECT_FALSE(f.editor.GetOutline().shown) << "the bucket has no outline";
}

TEST(MaskEditor, FillIsOneStepAndAFillThatChangesNothingAddsNone) {
  EditorFixture f;
  f.editor.SelectTool(ToolKind::Fill);
  EXPECT_EQ(f.surface.log.back(), "bucket");
  const size_t steps = f.Queue().GetSize();
  f.editor.MouseDown(MouseButton::Left, {3.5f, 3.5f});
  f.editor.MouseUp(MouseButton::Left, {3.5f, 3.5f});
  EXPECT_EQ(CountSet(f.segment->GetMask()), 8 * 6);
  EXPECT_EQ(f.Queue().GetUndoName(), "Fill");
  EXPECT_EQ(f.Queue().GetSize(), steps + 1);
  f.editor.MouseDown(MouseButton::Left, {1.5f, 1.5f});
  EXPECT_EQ(f.Queue().GetSize(), steps + 1);
  f.editor.MouseDown(MouseButton::Left, {-0.5f, 1.5f});  // outside the image
  f.editor.MouseDown(MouseButton::Right, {7.9f, 5.9f});
  EXPECT_EQ(CountSet(f.segment->GetMask()), 0);
  EXPECT_EQ(f.Queue().GetSize(), steps + 2);
}

TEST(MaskEditor, AltClickSizesTheBrushAndPaintsNothing) {
  EditorFixture f;
  const size_t steps = f.Queue().GetSize();
  f.editor.KeyDown(EditKey::Alt);
  EXPECT_EQ(f.editor.GetOutline().penWidth, 2);
  f.Stroke(MouseButton::Left, {{3, 3}, {4, 4}});
  f.Stroke(MouseButton::Left, {{3, 3}});
  f.Stroke(MouseButton::Right, {{3, 3}});
  f.editor.KeyDown(EditKey::Enlarge);  // size keys are dead while Alt is held
  EXPECT_EQ(f.editor.GetBrush().GetRadius(), 2);
  f.editor.SyncAlt(false);
  EXPECT_EQ(f.editor.GetOutline().penWidth, 1);
  EXPECT_EQ(CountSet(f.editor.GetWorkingMask()), 0);
  EXPECT_EQ(f.Queue().GetSize(), steps);
}

// Radius after each press of a size key held down from 20, then after the
// key is let go and pressed once more.
TEST(MaskEditor, SizeKeysAccelerateWhileHeldAndClamp) {
  struct Case {
    EditKey key;
    int32_t start;
    int presses;
    std::vector<int32_t> radii;
  };
  const Case cases[] = {
      {EditKey::Enlarge, 20, 8, {21, 23, 25, 30, 35, 45, 55, 65}},
      {EditKey::Reduce, 20, 5, {19, 17, 15, 10, 5}},
      {EditKey::Reduce, 3, 4, {2, 1, 1, 1}},
      {EditKey::Enlarge, 148, 3, {149, 150, 150}},
  };
  for (const Case& c : cases) {
    EditorFixture f;
    app::CBrushTool& brush = f.editor.GetBrush();
    brush.SetRadius(c.start);
    std::vector<int32_t> radii;
    for (int i = 0; i < c.presses; ++i) {
      f.editor.KeyDown(c.key);
      radii.push_back(brush.GetRadius());
    }
    EXPECT_EQ(radii, c.radii) << "from " << c.start;
    f.editor.KeyUp(c.key);
    const int32_t before = brush.GetRadius();
    f.editor.KeyDown(c.key);
    EXPECT_LE(std::abs(brush.GetRadius() - before), 1) << "a release starts the steps anew";
  }
}

TEST(MaskEditor, EditEndedByTheCoreIsFollowedAndProcessingSegmentIsRefused) {
  EditorFixture f;
  f.comp.GetInterface().CreateSegment(10, false);  // the new one becomes active
  f.editor.Sync();
  EXPECT_FALSE(f.editor.IsEditing());
  EXPECT_EQ(f.surface.log.back(), "edit off");
  f.editor.MouseDown(MouseButton::Left, {2, 2});  // ignored now
  EXPECT_EQ(f.Queue().GetUndoName(), "New Segment");

  VLSegment& busy = f.comp.GetSegmentObject(0);
  busy.SetStatus(SegmentStatus::Queued);
  EXPECT_FALSE(f.editor.Begin(busy));
  EXPECT_FALSE(f.editor.IsEditing());
  busy.SetStatus(SegmentStatus::Idle);
  EXPECT_TRUE(f.editor.Begin(busy));
  EXPECT_EQ(f.comp.GetEditedSegment(), &busy);
  EXPECT_EQ(f.editor.GetToolKind(), ToolKind::Brush);
  f.editor.End();
  EXPECT_EQ(f.comp.GetEditedSegment(), nullptr);

  // An edit begun on the composition by another command is taken up.
  busy.GetInterface().BeginEdit();
  f.editor.MouseMove({1, 1});
  EXPECT_EQ(f.editor.GetSegment(), &busy);
  EXPECT_EQ(f.surface.log.back(), "cross");
}

TEST(MaskEditor, ToolHints) {
  EXPECT_STREQ(app::MaskEditor::ToolHint(ToolKind::Brush), "Brush (B)");
  EXPECT_STREQ(app::MaskEditor::ToolHint(ToolKind::Fill), "Paint Bucket (G)");
}

}  // namespace
