// SPDX-License-Identifier: GPL-3.0-or-later
// velomar-cli preview: the picture of one frame, read back pixel by pixel.
#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli_runner.h"
#include "imaging/native_io.h"
#include "testing/files.h"

namespace {

using e2e::Cli;
using e2e::Result;
using ::testing::HasSubstr;
using testing_support::TempDir;

constexpr uint32_t kW = 40, kH = 30;

// Frame n is flat: blue 20 n + 10, green 100, red 7; the mask covers the
// rectangle x 10..29, y 5..19.
std::string MakeProject(const TempDir& dir) {
  img::image frame(kW, kH);
  for (int n = 0; n < 5; ++n) {
    for (uint8_t* row : frame.rows)
      for (uint32_t x = 0; x < kW; ++x) {
        row[4 * x] = uint8_t(20 * n + 10);
        row[4 * x + 1] = 100;
        row[4 * x + 2] = 7;
        row[4 * x + 3] = 255;
      }
    img::native_writer().write(dir / ("f_000" + std::to_string(n) + ".bmp"), "BMP", frame, false);
  }
  img::image mask(kW, kH);
  for (uint32_t y = 0; y < kH; ++y)
    for (uint32_t x = 0; x < kW; ++x)
      std::fill_n(mask.rows[y] + 4 * x, 4,
                  uint8_t(x >= 10 && x < 30 && y >= 5 && y < 20 ? 255 : 0));
  img::native_writer().write(dir / "mask.bmp", "BMP", mask, false);
  const std::string project = dir / "p.vlp";
  Result r = Cli(dir, {"new", dir / "f_0000.bmp", "-o", project});
  EXPECT_EQ(r.status, 0) << r.err;
  r = Cli(dir,
          {"segment", "add", project, "--key", "2", "--mask", dir / "mask.bmp", "--span", "0:5"});
  EXPECT_EQ(r.status, 0) << r.err;
  return project;
}

std::vector<int> Pixel(const std::string& file, uint32_t x, uint32_t y) {
  img::image picture;
  img::native_reader().read(file, picture);
  EXPECT_EQ(picture.width, kW);
  if (picture.width != kW || picture.height != kH) return {};
  const uint8_t* p = picture.rows[y] + 4 * x;
  return {p[0], p[1], p[2], p[3]};
}

TEST(PreviewCli, WritesTheFrameWithTheMaskTintedAsTheViewShowsIt) {
  TempDir dir;
  const std::string project = MakeProject(dir), out = dir / "p.tga";
  struct Case {
    std::vector<std::string> style;
    std::vector<int> inside, outside;
  };
  // Frame 3 is blue 70; the 24-bit frames carry alpha 0. Default tint: blue
  // 255 at half opacity: 70 * 0.5 + 127.5 = 162.5 -> 163, green 50, red 3.5 -> 4.
  const Case cases[] = {
      {{}, {163, 50, 4, 0}, {70, 100, 7, 0}},
      {{"--style", "Mask=0"}, {70, 100, 7, 0}, {70, 100, 7, 0}},
      {{"--style", "MaskColor=0xFF00FF00", "--style", "MaskOpacity=1000"},
       {0, 255, 0, 255},
       {70, 100, 7, 0}},
      {{"--style", "InverseMask=1", "--style", "MaskOpacity=250"},
       {70, 100, 7, 0},
       {116, 75, 5, 0}},  // 70 * .75 + 63.75 = 116.25, 7 * .75 = 5.25
      {{"--style", "Underlay=0", "--style", "Mask=0"},
       {0xAB, 0xAB, 0xAB, 0},
       {0xAB, 0xAB, 0xAB, 0}},
  };
  for (const Case& c : cases) {
    std::vector<std::string> args = {"preview", project, "--frame", "3", "-o", out};
    args.insert(args.end(), c.style.begin(), c.style.end());
    const Result r = Cli(dir, args);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(Pixel(out, 15, 10), c.inside) << args.back();
    EXPECT_EQ(Pixel(out, 2, 25), c.outside) << args.back();
  }
  // The editor's view tints the mask at paint time, the same colours.
  const Result r = Cli(dir, {"preview", project, "--frame", "3", "-o", out, "--edit-mode"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(Pixel(out, 15, 10), (std::vector<int>{163, 50, 4, 0}));
}

TEST(PreviewCli, AFrameOfTheWrongSizeFailsWithItsSizesAndWritesNothing) {
  TempDir dir;
  const std::string project = MakeProject(dir), out = dir / "p.png";
  img::native_writer().write(dir / "f_0001.bmp", "BMP", img::image(kW + 1, kH), false);
  Result r = Cli(dir, {"preview", project, "--frame", "1", "-o", out});
  EXPECT_EQ(r.status, 1);
  EXPECT_THAT(r.err, HasSubstr("Error while making preview:\nBad size of image "));
  EXPECT_THAT(r.err, HasSubstr("f_0001.bmp - 41x30, expected - 40x30"));
  EXPECT_FALSE(std::filesystem::exists(out));

  r = Cli(dir, {"preview", project, "--frame", "1", "-o", out, "--style", "Colour=3"});
  EXPECT_EQ(r.status, 1);
  EXPECT_THAT(r.err, HasSubstr("--style key 'Colour' is none of"));
}

}  // namespace
