// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/segment_data.h"

#include <climits>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using types::affine;

// Each entry carries its frame number in x, so a wrong index shows as a wrong frame.
VLSegmentData Filled(int key, int before, int after) {
  VLSegmentData data;
  for (int i = 0; i < after; ++i)
    data.Append(VLSegmentData::Direction::Forward, affine::translation(key + i, 0));
  for (int i = 1; i <= before; ++i)
    data.Append(VLSegmentData::Direction::Backward, affine::translation(key - i, 0));
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
  EXPECT_THAT([&] { data.At(12, key); },
              testing::ThrowsMessage<std::out_of_range>(
                  testing::StrEq("no transformation for frame 12 (results cover 7 to 12)")));
  // Far-apart frame numbers must not overflow the index.
  EXPECT_EQ(data.Find(INT_MIN, INT_MAX - 1), nullptr);
  EXPECT_EQ(data.Find(INT_MAX, INT_MIN + 1), nullptr);
}

TEST(VLSegmentData, KeyEntryIsAddedOnce) {
  VLSegmentData data = Filled(0, 2, 0);
  EXPECT_TRUE(data.EnsureKeyEntry());
  EXPECT_FALSE(data.EnsureKeyEntry());
  ASSERT_EQ(data.forward.size(), 1u);
  EXPECT_EQ(data.forward[0], affine::identity());
}

TEST(VLSegmentData, TrimmedKeepsTheEntriesInsideTheSpan) {
  const int key = 20;
  const VLSegmentData data = Filled(key, 5, 6);  // frames 15 to 25
  const std::pair<My::Span, My::Span> cases[] = {
      {{17, 23}, {17, 23}},  // inside
      {{0, 100}, {15, 26}},  // wider than the results
      {{20, 21}, {20, 21}},  // the key frame alone
      {{20, 20}, {20, 20}},  // empty at the key frame
  };
  for (const auto& [span, kept] : cases) {
    const VLSegmentData trimmed = data.Trimmed(span, key);
    EXPECT_EQ(trimmed.DataSpan(key), kept) << span.first << ".." << span.last;
    for (int f = kept.first; f < kept.last; ++f) EXPECT_EQ(trimmed.At(f, key).x, f);
  }
}

}  // namespace
