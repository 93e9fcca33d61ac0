// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/model/overlay.h"

#include <gtest/gtest.h>

#include "app/model/comp.h"
#include "app_fixtures.h"

namespace {

using app_testing::CompFixture;
using app_testing::WriteImage;

const char kAlphaQuestion[] =
    "You have an image with no Alpha channel.\nWhen loaded as Overlay it will not lead to\n"
    "meaningful results. Proceed?";

TEST(Overlay, ImportPlacesSequenceAtCurrentTimeAndStillOverAll) {
  CompFixture f(50);
  f.comp.SetCurrentTime(7);
  const std::string frame = WriteImage(f.dir, "o.bmp", 4, 4, true);
  VLOverlay& o = f.comp.GetOverlay();
  struct Case {
    size_t frames;
    int32_t offset, frameCount;
  } cases[] = {{1, 0, 50}, {2, 7, 2}, {9, 7, 9}};
  for (const Case& c : cases) {
    o.GetInterface().Import(std::vector<std::string>(c.frames, frame));
    EXPECT_EQ(o.GetSourceOffset(), c.offset) << c.frames;
    EXPECT_EQ(o.GetFrameCount(), c.frameCount);
    EXPECT_EQ(o.GetTrimming(), (My::Span{0, c.frameCount}));
    EXPECT_EQ(o.GetMatch(), 7);
  }
  EXPECT_TRUE(f.dialogs.questions().empty());  // the image has alpha
}

TEST(Overlay, AlphaQuestionDecidesAndRedoAsksNothing) {
  CompFixture f(20);
  const std::string opaque = WriteImage(f.dir, "opaque.bmp", 4, 4, false);
  const std::string clear = WriteImage(f.dir, "clear.bmp", 4, 4, true);
  VLOverlay& o = f.comp.GetOverlay();
  VLActionQueue& q = f.comp.GetActionQueue();
  o.GetInterface().Import({clear, clear});
  const size_t steps = q.GetSize();

  // Cancel: the old overlay stays cleared and no step is kept.
  f.dialogs.answer(app::Answer::Cancel);
  o.GetInterface().Import({opaque});
  ASSERT_EQ(f.dialogs.questions().size(), 1u);
  EXPECT_EQ(f.dialogs.questions()[0].text, kAlphaQuestion);
  EXPECT_TRUE(o.IsEmpty());
  EXPECT_EQ(q.GetSize(), steps);
  EXPECT_TRUE(f.operations.names().empty());

  f.dialogs.answer(app::Answer::Ok);
  o.GetInterface().Import({opaque});
  EXPECT_TRUE(o.IsStill());
  EXPECT_EQ(q.GetUndoName(), "Load Overlay");
  q.Undo();
  EXPECT_TRUE(o.IsEmpty());
  q.Redo();
  EXPECT_TRUE(o.IsStill());
  EXPECT_EQ(f.dialogs.questions().size(), 2u);
}

TEST(Overlay, SettersClamp) {
  CompFixture f(30);
  VLOverlay& o = f.comp.GetOverlay();
  const std::string frame = WriteImage(f.dir, "o.bmp", 4, 4, true);
  o.GetInterface().Import(std::vector<std::string>(10, frame));
  o.SetTrimmingDirect(5, 3);
  EXPECT_EQ(o.GetTrimming(), (My::Span{5, 5}));
  o.SetTrimmingDirect(-4, 40);
  EXPECT_EQ(o.GetTrimming(), (My::Span{0, 10}));
  o.SetTrimmingDirect(2, 8);
  o.SetSourceOffsetDirect(-100);
  EXPECT_EQ(o.GetSourceOffset(), -8);
  o.SetSourceOffsetDirect(100);
  EXPECT_EQ(o.GetSourceOffset(), 28);
  o.SetMatchDirect(31);
  EXPECT_EQ(o.GetMatch(), 29);

  o.GetInterface().Import({frame});  // still: the offset stays put
  o.SetSourceOffsetDirect(4);
  EXPECT_EQ(o.GetSourceOffset(), 0);
  EXPECT_EQ(o.GetFrameCount(), 30);
}

TEST(Overlay, AlignmentUsesUnsignedDifferences) {
  CompFixture f(10);  // frames of 8 x 6
  f.comp.defaultAlignment = Alignment::BottomRightCorner;
  VLOverlay& o = f.comp.GetOverlay();
  o.GetInterface().Import({WriteImage(f.dir, "wide.bmp", 10, 4, true)});
  const struct {
    Alignment a;
    double x, y;
  } cases[] = {{Alignment::BottomRightCorner, 4294967294.0, 2.0},
               {Alignment::TopLeftCorner, 0.0, 0.0},
               {Alignment::TopRightCorner, 4294967294.0, 0.0},
               {Alignment::BottomLeftCorner, 0.0, 2.0}};
  for (const auto& c : cases) {
    o.GetInterface().SetAlignment(c.a);
    EXPECT_EQ(o.GetInitialTransform(), types::affine::translation(c.x, c.y)) << int(c.a);
    EXPECT_EQ(o.GetAlignment(), c.a);
  }
  o.GetInterface().SetInitialTransform(types::affine::translation(1, 1));
  EXPECT_EQ(o.GetAlignment(), Alignment::No);  // a hand-made transform is no alignment
  f.comp.GetActionQueue().Undo();
  EXPECT_EQ(o.GetInitialTransform(), types::affine::translation(0, 2));
}

TEST(Overlay, ReplacingKeepsAlphaFirstImportTakesPreference) {
  CompFixture f(10);
  f.comp.defaultAlpha = AlphaInterpretation::Premul;
  f.comp.defaultAlignment = Alignment::BottomRightCorner;
  VLOverlay& o = f.comp.GetOverlay();
  const std::string frame = WriteImage(f.dir, "o.bmp", 4, 4, true);
  ASSERT_TRUE(o.ImportDirect({frame, frame}, true));
  EXPECT_EQ(o.GetAlpha(), AlphaInterpretation::Premul);
  EXPECT_EQ(o.GetInitialTransform(), types::affine::translation(4, 2));
  o.SetAlphaDirect(AlphaInterpretation::InvStraight);
  o.SetInitialTransformDirect(types::affine::translation(1, 1));
  ASSERT_TRUE(o.ImportDirect({frame}, true));
  EXPECT_EQ(o.GetAlpha(), AlphaInterpretation::InvStraight);
  EXPECT_EQ(o.GetInitialTransform(), types::affine::translation(1, 1));
  // The import command clears first, so it always imports into an empty overlay.
  o.GetInterface().Import({frame});
  EXPECT_EQ(o.GetAlpha(), AlphaInterpretation::Premul);
  EXPECT_EQ(o.GetInitialTransform(), types::affine::translation(4, 2));
}

TEST(Overlay, ClearUndoBringsBackPlacementAndActivity) {
  CompFixture f(30);
  f.AddSegment(10, {0, 30}, 2.0);
  VLOverlay& o = f.comp.GetOverlay();
  const std::string frame = WriteImage(f.dir, "o.bmp", 4, 4, true);
  o.GetInterface().Import(std::vector<std::string>(12, frame));
  o.GetInterface().SetSourceOffset(3);
  o.GetInterface().SetMatch(6);
  o.GetInterface().SetTrimming(1, 9);
  f.comp.SetOverlayActive(true);
  EXPECT_EQ(f.comp.GetActiveSegment(), -1);
  EXPECT_EQ(o.GetTransformSpan(), (My::Span{3, 15}));
  EXPECT_EQ(o.GetTransform(9).x, 6.0);

  o.GetInterface().Clear();
  EXPECT_TRUE(o.IsEmpty());
  EXPECT_FALSE(f.comp.IsOverlayActive());
  EXPECT_EQ(f.comp.GetPanel().object, PanelObject::Composition);
  f.comp.GetActionQueue().Undo();
  EXPECT_EQ(o.GetSourceOffset(), 3);
  EXPECT_EQ(o.GetMatch(), 6);
  EXPECT_EQ(o.GetTrimming(), (My::Span{1, 9}));
  EXPECT_EQ(o.GetTransformSpan(), (My::Span{3, 15}));
  EXPECT_TRUE(f.comp.IsOverlayActive());
  EXPECT_EQ(f.comp.GetPanel().object, PanelObject::Overlay);
  EXPECT_EQ(o.GetTransform(4).x, -4.0);
}

}  // namespace
