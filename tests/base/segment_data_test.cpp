#include "base/segment_data.h"

#include <climits>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using types::affine;

// Each entry carries its frame number in x, so a wrong index shows as a wrong frame.
affine Tag(int frame) {
  return affine::translation(frame, 0);
}

VLSegmentData Filled(int key, int before, int after) {
  VLSegmentData data;
  for (int f = key; f < key + after; ++f) data.Append(VLSegmentData::Direction::Forward, Tag(f));
  for (int f = key - 1; f >= key - before; --f)
    data.Append(VLSegmentData::Direction::Backward, Tag(f));
  return data;
}

TEST(VLSegmentData, FrameIndexRulesAroundTheKeyFrame) {
  const int key = 10;
  const VLSegmentData data = Filled(key, 3, 2);
  EXPECT_EQ(data.DataSpan(key), (My::Span{7, 12}));
  for (int frame = 5; frame < 14; ++frame) {
    const affine* t = data.Find(frame, key);
    if (frame >= 7 && frame < 12) {
      ASSERT_NE(t, nullptr) << frame;
      EXPECT_EQ(t->x, frame);
    } else {
      EXPECT_EQ(t, nullptr) << frame;
    }
  }
  EXPECT_EQ(data.forward[0].x, key);  // the key frame itself
  EXPECT_EQ(data.backward[0].x, key - 1);
}

TEST(VLSegmentData, AppendingMovesOneEndOfTheSpan) {
  VLSegmentData data;
  EXPECT_TRUE(data.DataSpan(4).empty());
  data.Append(VLSegmentData::Direction::Forward, Tag(4));
  EXPECT_EQ(data.DataSpan(4), (My::Span{4, 5}));
  data.Append(VLSegmentData::Direction::Backward, Tag(3));
  EXPECT_EQ(data.DataSpan(4), (My::Span{3, 5}));
  data.Append(VLSegmentData::Direction::Forward, Tag(5));
  EXPECT_EQ(data.DataSpan(4), (My::Span{3, 6}));
}

TEST(VLSegmentData, AtNamesTheMissingFrame) {
  const VLSegmentData data = Filled(0, 1, 2);
  EXPECT_EQ(data.At(-1, 0).x, -1);
  EXPECT_THAT([&] { data.At(2, 0); },
              testing::ThrowsMessage<std::out_of_range>(
                  testing::StrEq("no transformation for frame 2 (results cover -1 to 2)")));
}

TEST(VLSegmentData, FarFramesDoNotOverflowTheIndex) {
  VLSegmentData data;
  data.Append(VLSegmentData::Direction::Forward, Tag(0));
  data.Append(VLSegmentData::Direction::Backward, Tag(0));
  EXPECT_EQ(data.Find(INT_MIN, INT_MAX - 1), nullptr);
  EXPECT_EQ(data.Find(INT_MAX, INT_MIN + 1), nullptr);
  EXPECT_NE(data.Find(INT_MIN, INT_MIN + 1), nullptr);
}

TEST(VLSegmentData, KeyEntryIsAddedOnce) {
  VLSegmentData data;
  data.Append(VLSegmentData::Direction::Backward, Tag(-1));
  EXPECT_TRUE(data.EnsureKeyEntry());
  ASSERT_EQ(data.forward.size(), 1u);
  EXPECT_EQ(data.forward[0], affine::identity());
  EXPECT_FALSE(data.EnsureKeyEntry());
  EXPECT_EQ(data.forward.size(), 1u);
}

TEST(VLSegmentData, TrimmedKeepsTheEntriesInsideTheSpan) {
  const int key = 20;
  const VLSegmentData data = Filled(key, 5, 6);  // frames 15 to 25
  struct Case {
    My::Span span;
    My::Span kept;
  };
  const Case cases[] = {
      {{17, 23}, {17, 23}},  // inside
      {{0, 100}, {15, 26}},  // wider than the results
      {{20, 21}, {20, 21}},  // the key frame alone
      {{20, 20}, {20, 20}},  // empty at the key frame
  };
  for (const Case& c : cases) {
    const VLSegmentData trimmed = data.Trimmed(c.span, key);
    EXPECT_EQ(trimmed.DataSpan(key), c.kept) << c.span.first << ".." << c.span.last;
    for (int f = c.kept.first; f < c.kept.last; ++f) EXPECT_EQ(trimmed.At(f, key).x, f);
  }
}

}  // namespace
