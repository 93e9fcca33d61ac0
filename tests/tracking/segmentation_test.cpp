// SPDX-License-Identifier: GPL-3.0-or-later
// Cutting a mask into grid pieces: labels of drawn masks, records with their
// neighbours, the merging of small pieces, positions.
#include "tracking/segmentation.h"

#include <gtest/gtest.h>

#include "grid_pictures.h"

namespace {

using tracking::Segmentation;
using tracking_test::DrawnMask;
using Map = std::map<uint32_t, size_t>;
using Ints = std::vector<int32_t>;

TEST(LabelPieces, NumbersPiecesOfDrawnMasks) {
  const struct {
    uint32_t block, offset;
    std::vector<std::string> mask, expected;  // expected: one digit per pixel
  } cases[] = {
      {4,
       0,
       {"........", ".#.#....", ".#.#.##.", "...####."},  // bars cut by a cell border
       {"00000000", "01020000", "01020330", "00023330"}},
      {4,
       0,
       {"##......", "##..##..", "....##.."},  // the origin's piece counts as outside
       {"00000000", "00002200", "00002200"}},
      {4, 2, {".######."}, {"01222230"}},  // the grid offset moves cell borders
      {8,
       0,
       {".###..", ".#.#.#", ".###.#"},  // holes and outside pieces take numbers
       {"011100", "010104", "011104"}},
  };
  for (const auto& c : cases) {
    const auto labels = tracking::LabelPieces(DrawnMask(c.mask), c.block, c.offset);
    std::vector<std::string> got(c.mask.size());
    for (size_t k = 0; k < labels.size(); ++k) got[k / c.mask[0].size()] += char('0' + labels[k]);
    EXPECT_EQ(got, c.expected);
  }
}

TEST(Segmentation, OriginPieceHasNoRecordAndNoLabel) {
  Segmentation seg;
  seg.create(DrawnMask({"##......", "##..##..", "....##.."}), 4, 0);
  ASSERT_EQ(seg.segment_count(), 1u);
  EXPECT_EQ(seg.segments[0].colour, 2u);
  EXPECT_EQ(seg.segments[0].pixels, 4u);
  EXPECT_EQ(seg.labels, (Ints{-1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
                              0,  0,  -1, -1, -1, -1, -1, -1, 0,  0,  -1, -1}));
}

// The two-pixel bar is below 16 / 5 pixels and joins the piece with the
// nearest centre, which does not touch it; the far piece keeps its place.
TEST(Segmentation, SmallPieceJoinsNearestCentreAndKeepsNeighbours) {
  Segmentation seg;
  seg.create(DrawnMask({"........", ".#.#....", ".#.#.##.", "...####."}), 4, 0);
  ASSERT_EQ(seg.segment_count(), 2u);
  const auto &a = seg.segments[0], &b = seg.segments[1];
  EXPECT_EQ((Ints{int32_t(a.colour), int32_t(a.pixels), int32_t(b.colour), int32_t(b.pixels)}),
            (Ints{2, 5, 3, 5}));
  EXPECT_EQ((Ints{seg.label(1, 1), seg.label(1, 2), seg.label(4, 3), seg.label(0, 0)}),
            (Ints{0, 0, 1, -1}));
  EXPECT_EQ(a.neighbours, (Map{{3, 1}}));
  EXPECT_EQ(b.neighbours, (Map{{2, 0}}));
  EXPECT_EQ(seg.index, (Map{{2, 0}, {3, 1}}));

  seg.positions();
  EXPECT_EQ((Ints{a.left, a.top, a.right, a.bottom}), (Ints{1, 1, 4, 4}));
  EXPECT_EQ((Ints{b.left, b.top, b.right, b.bottom}), (Ints{4, 2, 7, 4}));
  EXPECT_DOUBLE_EQ(a.centre_x, 11.0 / 5);
  EXPECT_DOUBLE_EQ(a.centre_y, 9.0 / 5);
  EXPECT_DOUBLE_EQ(b.centre_x, 26.0 / 5);
  EXPECT_DOUBLE_EQ(b.centre_y, 13.0 / 5);
}

// Both halves are below 25 / 5 pixels: they unite into the single record,
// which lists itself as its own neighbour because the halves touched.
TEST(Segmentation, AllSmallPiecesEndAsOneRecordThatIsItsOwnNeighbour) {
  Segmentation seg;
  seg.create(DrawnMask({"..........", ".########."}), 5, 0);
  ASSERT_EQ(seg.segment_count(), 1u);
  EXPECT_EQ(seg.segments[0].pixels, 8u);
  EXPECT_EQ(seg.segments[0].neighbours, (Map{{seg.segments[0].colour, 0}}));
  seg.create(DrawnMask({"..........", ".########."}), 2, 0);  // 4 / 5 = 0: no merging
  EXPECT_EQ(seg.segment_count(), 5u);                         // x 1, 2-3, 4-5, 6-7, 8
}

TEST(Segmentation, RectangleGivesOnePiecePerCellWithSymmetricNeighbours) {
  Segmentation seg;
  seg.create(tracking_test::RectMask(64, 64, 3, 5, 61, 59), 8, 0);
  ASSERT_EQ(seg.segment_count(), 64u);
  uint32_t total = 0, interior = 0;
  for (const auto& g : seg.segments) {
    total += g.pixels;
    interior += g.neighbours.size() == 4;
    for (const auto& [colour, n] : g.neighbours) {
      EXPECT_EQ(seg.segments[n].colour, colour);
      EXPECT_EQ(seg.segments[n].neighbours.count(g.colour), 1u);
    }
  }
  EXPECT_EQ(total, 58u * 54u);
  EXPECT_EQ(interior, 36u);
  seg.positions();  // column scan: the top-left cell first, then the one below it
  EXPECT_EQ((Ints{seg.segments[0].left, seg.segments[0].top, seg.segments[1].top}),
            (Ints{3, 5, 8}));
}

}  // namespace
