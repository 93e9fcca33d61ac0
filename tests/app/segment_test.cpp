// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/model/segment.h"

#include <gtest/gtest.h>

#include <cmath>

#include "app/model/comp.h"
#include "app_fixtures.h"

namespace {

using app_testing::CompFixture;

// A small rotation, scale and shift: its powers drift, so any slip in the
// exponent or the operand order shows.
const types::affine kStep{
    0.5, -0.25, 1.01 * std::cos(0.03), -std::sin(0.03), std::sin(0.03), 0.99 * std::cos(0.03)};

types::affine NaivePower(const types::affine& a, int64_t k) {
  types::affine r;
  for (int64_t i = 0; i < k; ++i) r = a * r;
  return r;
}

double MaxDiff(const types::affine& a, const types::affine& b) {
  return std::max({std::abs(a.x - b.x), std::abs(a.y - b.y), std::abs(a.xx - b.xx),
                   std::abs(a.xy - b.xy), std::abs(a.yx - b.yx), std::abs(a.yy - b.yy)});
}

struct Extrapolation {
  const char* name;
  size_t forward;   // entries: kStep^0 .. kStep^(n-1)
  size_t backward;  // entries: inverse steps kStep^-1 .. kStep^-n
  int32_t frame;    // relative to the key frame
  int64_t power;    // the expected result is kStep^power; 0 with few entries
};

class SegmentExtrapolation : public ::testing::TestWithParam<Extrapolation> {};

TEST_P(SegmentExtrapolation, ContinuesTheLastStep) {
  const Extrapolation& e = GetParam();
  CompFixture f(2000);
  VLSegment& s = f.AddSegment(1000, {990, 1011}, 0.0);
  auto data = std::make_shared<VLSegmentData>();
  const types::affine back = kStep.inverse();
  for (size_t i = 0; i < e.forward; ++i) data->forward.push_back(NaivePower(kStep, int64_t(i)));
  for (size_t i = 0; i < e.backward; ++i)
    data->backward.push_back(NaivePower(back, int64_t(i + 1)));
  s.ReplaceData(data);
  const types::affine want = e.power >= 0 ? NaivePower(kStep, e.power) : NaivePower(back, -e.power);
  EXPECT_LT(MaxDiff(s.GetTransform(1000 + e.frame), want),
            1e-7 * (1 + std::abs(want.x) + std::abs(want.y)));
}

INSTANTIATE_TEST_SUITE_P(Frames,
                         SegmentExtrapolation,
                         ::testing::Values(Extrapolation{"InsideForward", 3, 2, 2, 2},
                                           Extrapolation{"InsideBackward", 3, 2, -2, -2},
                                           Extrapolation{"OnePastThreeForward", 3, 0, 3, 3},
                                           Extrapolation{"FarPastForward", 3, 0, 500, 500},
                                           Extrapolation{"AfterOneForwardEntryIsIdentity", 1, 0, 4,
                                                         0},
                                           Extrapolation{"AfterTwoForwardEntries", 2, 0, 9, 9},
                                           Extrapolation{"BeforeNoBackwardIsIdentity", 3, 0, -4, 0},
                                           Extrapolation{"BeforeOneBackwardEntry", 1, 1, -6, -6},
                                           Extrapolation{"FarBeforeBackward", 1, 4, -700, -700}),
                         [](const auto& i) { return std::string(i.param.name); });

TEST(Segment, NewSegmentCoversFiveFramesEachSide) {
  CompFixture f(100);
  const std::vector<std::pair<int32_t, My::Span>> cases = {
      {50, {45, 56}}, {2, {0, 8}}, {99, {94, 100}}, {0, {0, 6}}};
  for (const auto& [origin, span] : cases) {
    f.comp.GetInterface().CreateSegment(origin, false);
    EXPECT_EQ(f.comp.GetSegmentObject(0).GetTimeSpan(), span) << origin;
  }
}

// The key frame and the frame after it always stay in the span; the ends
// otherwise stay inside the composition.
TEST(Segment, TimeSpanKeepsTheKeyFrameAndOneFrameAfterIt) {
  CompFixture f(30);
  VLSegment& s = f.AddSegment(10, {5, 16}, 0.0);
  const struct {
    My::Span wanted, kept;
  } cases[] = {
      {{8, 10}, {8, 11}}, {{8, 11}, {8, 11}},  {{10, 10}, {10, 11}}, {{12, 14}, {10, 14}},
      {{3, 9}, {3, 11}},  {{-4, 40}, {0, 30}}, {{0, 30}, {0, 30}},
  };
  for (const auto& c : cases) {
    s.SetTimeSpanDirect(c.wanted.first, c.wanted.last);
    EXPECT_EQ(s.GetTimeSpan(), c.kept) << c.wanted.first << ":" << c.wanted.last;
  }
}

TEST(Segment, MaskChangeDropsResultsAndUndoRestoresTheSameBlock) {
  CompFixture f(40);
  VLSegment& s = f.AddSegment(10, {5, 16}, 1.0);
  VLActionQueue& q = f.comp.GetActionQueue();
  const VLSegmentDataPtr results = s.GetData();
  ASSERT_EQ(s.GetDataSpan(), (My::Span{5, 16}));
  const size_t steps = q.GetSize();

  VL::Mask mask = s.GetMask();
  mask.rows[2][0] |= 0x20;
  s.GetInterface().SetMask(mask);
  ASSERT_EQ(q.GetSize(), steps + 1);
  EXPECT_EQ(q.GetUndoName(), "Change Mask");
  EXPECT_NE(s.GetData(), results);
  EXPECT_TRUE(s.GetDataSpan().empty());
  EXPECT_EQ(CountSetPixels(s.GetMask()), 1u);
  const VLSegmentDataPtr fresh = s.GetData();

  q.Undo();
  EXPECT_EQ(s.GetData(), results);  // the very block, not a copy
  EXPECT_EQ(s.GetDataSpan(), (My::Span{5, 16}));
  EXPECT_EQ(CountSetPixels(s.GetMask()), 0u);
  q.Redo();
  EXPECT_EQ(s.GetData(), fresh);

  // The same mask again, or any change while processing, is no step.
  s.GetInterface().SetMask(mask);
  s.SetStatus(SegmentStatus::Queued);
  VLSegmentParams p = s.GetParams();
  p.ImageBlockSize = 12;
  s.GetInterface().SetParams(p);
  s.SetStatus(SegmentStatus::Idle);
  s.GetInterface().SetParams(s.GetParams());
  EXPECT_EQ(q.GetSize(), steps + 1);
  s.GetInterface().SetParams(p);
  EXPECT_EQ(q.GetUndoName(), "Change Parameters");
}

TEST(Segment, TrimCutsResultsToTimeSpanAndUndoKeepsThem) {
  CompFixture f(40);
  VLSegment& s = f.AddSegment(10, {2, 30}, 1.0);
  s.GetInterface().SetTimeSpan(6, 13);  // results keep
  EXPECT_EQ(s.GetDataSpan(), (My::Span{2, 30}));
  const VLSegmentDataPtr before = s.GetData();
  s.GetInterface().Trim();
  EXPECT_EQ(s.GetDataSpan(), (My::Span{6, 13}));
  EXPECT_EQ(s.GetTransform(12).x, 2.0);
  f.comp.GetActionQueue().Undo();
  EXPECT_EQ(s.GetData(), before);
}

TEST(Segment, AttachRejectsWrongMaskAndOrigin) {
  CompFixture f(20);
  auto read = [](int32_t origin, uint32_t w, uint32_t h) {
    auto s = std::make_unique<VLSegment>();
    s->TakeOver({origin, {origin - 30, origin + 30}, {}, VL::Mask(w, h), nullptr});
    return s;
  };
  const struct {
    int32_t origin;
    uint32_t w, h;
    const char* text;
  } bad[] = {{3, 8, 5, "incompatible segment mask dimensions (8, 5)"},
             {20, 8, 6, "segment origin (20) out of the composition"},
             {-1, 8, 6, "segment origin (-1) out of the composition"}};
  for (const auto& c : bad) {
    try {
      f.comp.AdoptSegment(read(c.origin, c.w, c.h));
      ADD_FAILURE() << c.text;
    } catch (const std::exception& e) {
      EXPECT_STREQ(e.what(), c.text);
    }
  }
  f.comp.AdoptSegment(read(19, 8, 6));
  EXPECT_EQ(f.comp.GetSegmentObject(0).GetTimeSpan(), (My::Span{0, 20}));
}

}  // namespace
