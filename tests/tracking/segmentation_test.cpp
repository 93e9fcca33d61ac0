// Cutting a mask into grid pieces: labels of drawn masks, records with their
// neighbours, the merging of small pieces, positions.
#include "tracking/segmentation.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "grid_pictures.h"

namespace {

using tracking::Segmentation;
using tracking_test::DrawnMask;

struct LabelCase {
  const char* name;
  uint32_t block, offset;
  std::vector<std::string> mask, expected;  // expected: one digit per pixel
};

TEST(LabelPieces, NumbersPiecesOfDrawnMasks) {
  const LabelCase cases[] = {
      {"BarsCutByCellBorder",
       4,
       0,
       {"........", ".#.#....", ".#.#.##.", "...####."},
       {"00000000", "01020000", "01020330", "00023330"}},
      {"OriginPieceCountsAsOutside",
       4,
       0,
       {"##......", "##..##..", "....##.."},
       {"00000000", "00002200", "00002200"}},
      {"GridOffsetMovesCellBorders", 4, 2, {".######."}, {"01222230"}},
      {"HolesAndOutsidePiecesTakeNumbers",
       8,
       0,
       {".###..", ".#.#.#", ".###.#"},
       {"011100", "010104", "011104"}},
  };
  for (const LabelCase& c : cases) {
    const auto labels = tracking::LabelPieces(DrawnMask(c.mask), c.block, c.offset);
    std::vector<std::string> got;
    for (size_t y = 0; y < c.mask.size(); ++y) {
      got.emplace_back();
      for (size_t x = 0; x < c.mask[0].size(); ++x)
        got.back() += char('0' + labels[y * c.mask[0].size() + x]);
    }
    EXPECT_EQ(got, c.expected) << c.name;
  }
}

TEST(Segmentation, OriginPieceHasNoRecordAndNoLabel) {
  Segmentation seg;
  seg.create(DrawnMask({"##......", "##..##..", "....##.."}), 4, 0);
  ASSERT_EQ(seg.segment_count(), 1u);
  EXPECT_EQ(seg.segments[0].colour, 2u);
  EXPECT_EQ(seg.segments[0].pixels, 4u);
  for (uint32_t y = 0; y < 2; ++y)
    for (uint32_t x = 0; x < 2; ++x) EXPECT_EQ(seg.label(x, y), -1);
  EXPECT_EQ(seg.label(4, 1), 0);
}

// The two-pixel bar is below 16 / 5 pixels and joins the piece with the
// nearest centre, which does not touch it; the far piece keeps its place.
TEST(Segmentation, SmallPieceJoinsNearestCentreAndKeepsNeighbours) {
  Segmentation seg;
  seg.create(DrawnMask({"........", ".#.#....", ".#.#.##.", "...####."}), 4, 0);
  ASSERT_EQ(seg.segment_count(), 2u);
  const auto& a = seg.segments[0];
  const auto& b = seg.segments[1];
  EXPECT_EQ(a.colour, 2u);
  EXPECT_EQ(a.pixels, 5u);
  EXPECT_EQ(b.colour, 3u);
  EXPECT_EQ(b.pixels, 5u);
  EXPECT_EQ(seg.label(1, 1), 0);
  EXPECT_EQ(seg.label(1, 2), 0);
  EXPECT_EQ(seg.label(4, 3), 1);
  EXPECT_EQ(seg.label(0, 0), -1);
  EXPECT_EQ(a.neighbours, (std::map<uint32_t, size_t>{{3, 1}}));
  EXPECT_EQ(b.neighbours, (std::map<uint32_t, size_t>{{2, 0}}));
  EXPECT_EQ(seg.index, (std::map<uint32_t, size_t>{{2, 0}, {3, 1}}));

  seg.positions();
  EXPECT_EQ((std::vector<int32_t>{a.left, a.top, a.right, a.bottom}),
            (std::vector<int32_t>{1, 1, 4, 4}));
  EXPECT_EQ((std::vector<int32_t>{b.left, b.top, b.right, b.bottom}),
            (std::vector<int32_t>{4, 2, 7, 4}));
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
  EXPECT_EQ(seg.segments[0].neighbours.size(), 1u);
  EXPECT_EQ(seg.segments[0].neighbours.count(seg.segments[0].colour), 1u);
  for (uint32_t x = 1; x < 9; ++x) EXPECT_EQ(seg.label(x, 1), 0);

  seg.create(DrawnMask({"..........", ".########."}), 2, 0);  // 4 / 5 = 0: no merging
  EXPECT_EQ(seg.segment_count(), 5u);                         // x 1, 2-3, 4-5, 6-7, 8
}

TEST(Segmentation, RectangleGivesOnePiecePerCellWithSymmetricNeighbours) {
  Segmentation seg;
  seg.create(tracking_test::RectMask(64, 64, 3, 5, 61, 59), 8, 0);
  ASSERT_EQ(seg.segment_count(), 64u);
  uint32_t total = 0;
  size_t interior = 0;
  for (size_t i = 0; i < seg.segments.size(); ++i) {
    const auto& g = seg.segments[i];
    total += g.pixels;
    interior += g.neighbours.size() == 4;
    for (const auto& [colour, n] : g.neighbours) {
      EXPECT_EQ(seg.segments[n].colour, colour);
      EXPECT_EQ(seg.segments[n].neighbours.count(g.colour), 1u);
    }
  }
  EXPECT_EQ(total, 58u * 54u);
  EXPECT_EQ(interior, 36u);
  // Column scan: the first record is the top-left cell, the second the one below it.
  seg.positions();
  EXPECT_EQ(seg.segments[0].left, 3);
  EXPECT_EQ(seg.segments[0].top, 5);
  EXPECT_EQ(seg.segments[1].top, 8);
}

}  // namespace
