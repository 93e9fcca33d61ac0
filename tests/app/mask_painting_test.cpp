// SPDX-License-Identifier: GPL-3.0-or-later
// The brush's disc and the bucket's flood on known masks.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <deque>
#include <random>
#include <string>
#include <vector>

#include "app/edit/mask_bits.h"

namespace {

using app::GetMaskBit;

VL::Mask Blank(uint32_t w, uint32_t h, bool value = false) {
  VL::Mask mask(w, h);
  std::memset(mask.data, value ? 0xFF : 0x00, mask.size);
  return mask;
}

// '#' set, '.' clear; one string per row.
VL::Mask FromArt(const std::vector<std::string>& rows) {
  VL::Mask mask = Blank(uint32_t(rows[0].size()), uint32_t(rows.size()));
  for (size_t y = 0; y < rows.size(); ++y)
    for (size_t x = 0; x < rows[y].size(); ++x)
      app::SetMaskBit(mask, int32_t(x), int32_t(y), rows[y][x] == '#');
  return mask;
}

std::vector<std::string> ToArt(const VL::Mask& mask) {
  std::vector<std::string> rows(mask.height, std::string(mask.width, '.'));
  for (uint32_t y = 0; y < mask.height; ++y)
    for (uint32_t x = 0; x < mask.width; ++x)
      if (GetMaskBit(mask, int32_t(x), int32_t(y))) rows[y][x] = '#';
  return rows;
}

struct Disc {
  const char* name;
  float cx, cy;
  int32_t radius;
  uint32_t w, h;
};

class DiscStamp : public ::testing::TestWithParam<Disc> {};

// Every pixel whose centre is nearer than the radius, and no other, for
// both values; checked pixel by pixel over the whole mask, so a run cut
// short or a bit outside the disc shows.
TEST_P(DiscStamp, SetsExactlyThePixelsNearerThanTheRadius) {
  const Disc d = GetParam();
  for (const bool value : {true, false}) {
    VL::Mask mask = Blank(d.w, d.h, !value);
    const app::PixelRect rect = app::StampDisc(mask, d.cx, d.cy, d.radius, value);
    int changed = 0;
    for (int32_t y = 0; y < int32_t(d.h); ++y)
      for (int32_t x = 0; x < int32_t(d.w); ++x) {
        const bool inside = std::hypot(d.cx - (x + 0.5f), d.cy - (y + 0.5f)) < float(d.radius);
        ASSERT_EQ(GetMaskBit(mask, x, y), inside ? value : !value)
            << "pixel " << x << "," << y << " value " << value;
        if (inside) {
          ++changed;
          EXPECT_TRUE(x >= rect.x && x < rect.x + int32_t(rect.width) && y >= rect.y &&
                      y < rect.y + int32_t(rect.height))
              << "changed pixel outside the repainted rectangle";
        }
      }
    if (changed == 0) {
      EXPECT_EQ(rect.width, 0u);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Discs,
                         DiscStamp,
                         ::testing::Values(Disc{"Radius1AtCorner", 5.0f, 5.0f, 1, 12, 10},
                                           Disc{"Radius1AtCentre", 5.5f, 5.5f, 1, 12, 10},
                                           Disc{"Radius1NearCorner", 5.1f, 4.9f, 1, 12, 10},
                                           Disc{"Radius7Fractional", 20.37f, 13.81f, 7, 48, 30},
                                           Disc{"Radius20AcrossByteEdges", 31.99f, 24.5f, 20, 70,
                                                50},
                                           Disc{"CentreOffTopLeft", -3.25f, -2.75f, 9, 40, 30},
                                           Disc{"CentreOffBottomRight", 41.5f, 31.2f, 6, 40, 30},
                                           Disc{"MissesTheMask", -30.0f, 5.0f, 10, 40, 30},
                                           Disc{"Radius150", 160.3f, 150.6f, 150, 330, 310}),
                         [](const auto& info) { return std::string(info.param.name); });

// An independent four-neighbour flood to compare with.
VL::Mask BreadthFirst(VL::Mask mask, int32_t x, int32_t y, bool value) {
  std::deque<std::pair<int32_t, int32_t>> todo{{x, y}};
  while (!todo.empty()) {
    auto [px, py] = todo.front();
    todo.pop_front();
    if (px < 0 || py < 0 || px >= int32_t(mask.width) || py >= int32_t(mask.height)) continue;
    if (GetMaskBit(mask, px, py) == value) continue;
    app::SetMaskBit(mask, px, py, value);
    todo.insert(todo.end(), {{px + 1, py}, {px - 1, py}, {px, py + 1}, {px, py - 1}});
  }
  return mask;
}

struct FillCase {
  const char* name;
  std::vector<std::string> before;
  int32_t x, y;
  bool value;
  std::vector<std::string> after;
};

class Bucket : public ::testing::TestWithParam<FillCase> {};

TEST_P(Bucket, FillsTheConnectedAreaOfOtherValue) {
  const FillCase& c = GetParam();
  VL::Mask mask = FromArt(c.before);
  app::FloodFill(mask, c.x, c.y, c.value);
  EXPECT_EQ(ToArt(mask), c.after);
}

INSTANTIATE_TEST_SUITE_P(
    Shapes,
    Bucket,
    ::testing::Values(
        FillCase{"InsideARingStopsAtTheRing",
                 {"........", ".######.", ".#....#.", ".#.##.#.", ".######.", "........"},
                 3,
                 2,
                 true,
                 {"........", ".######.", ".######.", ".######.", ".######.", "........"}},
        FillCase{"DiagonalGapDoesNotLeak",
                 {"......", ".###..", ".#..#.", ".###..", "......"},
                 2,
                 2,
                 true,
                 {"......", ".###..", ".####.", ".###..", "......"}},
        FillCase{"EraseClearsOnlyTheTouchingSetArea",
                 {"##..##", "##..##", "......", "###..."},
                 0,
                 0,
                 false,
                 {"....##", "....##", "......", "###..."}},
        FillCase{"PixelAlreadyOfTheValueChangesNothing",
                 {"##..", "##..", "...."},
                 1,
                 1,
                 true,
                 {"##..", "##..", "...."}},
        FillCase{"UTurnsAreFollowed",
                 {"........", ".######.", ".#....#.", ".#.##.#.", ".#.#..#.", "...#####"},
                 2,
                 4,
                 true,
                 {"########", "########", "########", "########", "########", "########"}},
        // A fill that enters row 1 first never turns back to row 0.
        FillCase{"StartOnSecondRowLeavesTheTopRow",
                 {"......", "......", "......", "......"},
                 2,
                 1,
                 true,
                 {"......", "######", "######", "######"}},
        FillCase{"StartOnThirdRowReachesTheTopRow",
                 {"......", "......", "......", "......"},
                 2,
                 2,
                 true,
                 {"######", "######", "######", "######"}}),
    [](const auto& info) { return std::string(info.param.name); });

// Random masks whose top row already holds the fill value, so the top-row
// blind spot cannot matter: the span fill must agree with a plain flood.
TEST(Bucket, AgreesWithAPlainFloodOnRandomMasks) {
  std::mt19937 random(11);
  for (int round = 0; round < 200; ++round) {
    const uint32_t w = 1 + random() % 40, h = 2 + random() % 30;
    const bool value = random() % 2;
    VL::Mask mask = Blank(w, h);
    for (uint32_t y = 0; y < h; ++y)
      for (uint32_t x = 0; x < w; ++x)
        app::SetMaskBit(mask, int32_t(x), int32_t(y), y == 0 ? value : random() % 100 < 40);
    const int32_t x = int32_t(random() % w), y = int32_t(1 + random() % (h - 1));
    const VL::Mask expected = BreadthFirst(mask, x, y, value);
    app::FloodFill(mask, x, y, value);
    ASSERT_EQ(ToArt(mask), ToArt(expected)) << "round " << round << " click " << x << "," << y;
  }
}

TEST(Bucket, FloodsAFullHdMazeOfOnePixelColumns) {
  // Walls on every odd column with one gap, at alternating ends: a path of
  // a million one-pixel spans, each found from the one before. Nested
  // calls that deep would not fit a thread's stack.
  VL::Mask mask = Blank(1920, 1080);
  app::SetMaskBits(mask, 0, 0, 1920, true);
  for (int32_t x = 1; x < 1920; x += 2)
    for (int32_t y = 1; y < 1080; ++y) app::SetMaskBit(mask, x, y, y != ((x / 2) % 2 ? 1 : 1078));
  app::FloodFill(mask, 0, 1, true);
  int64_t clear = 0;
  for (int32_t y = 0; y < 1080; ++y)
    for (int32_t x = 0; x < 1920; ++x) clear += !GetMaskBit(mask, x, y);
  EXPECT_EQ(clear, 0);
}

}  // namespace
