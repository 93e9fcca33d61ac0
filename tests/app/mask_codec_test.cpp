// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/file/mask_codec.h"

#include <iterator>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/xml_tablet.h"
#include "imaging/io_types.h"
#include "imaging/native_io.h"
#include "testing/files.h"

namespace {

using Mask = img::bitmap<img::bit1>;

bool Bit(const Mask& m, uint32_t x, uint32_t y) {
  return (m.rows[y][x >> 3] & (128 >> (x & 7))) != 0;
}

// A pattern that differs in every column and row, with the padding bits of
// each row set, which must not leak into the picture.
Mask Pattern(uint32_t w, uint32_t h) {
  Mask m(w, h);
  for (uint32_t y = 0; y < h; ++y) {
    std::fill(m.rows[y], m.rows[y] + m.stride, uint8_t(0xFF));
    for (uint32_t x = 0; x < w; ++x)
      if ((x * 7 + y * 3) % 5 >= 2) m.rows[y][x >> 3] &= uint8_t(~(128 >> (x & 7)));
  }
  return m;
}

void ExpectSamePixels(const Mask& a, const Mask& b) {
  ASSERT_EQ(a.width, b.width);
  ASSERT_EQ(a.height, b.height);
  for (uint32_t y = 0; y < a.height; ++y)
    for (uint32_t x = 0; x < a.width; ++x)
      ASSERT_EQ(Bit(a, x, y), Bit(b, x, y)) << "at " << x << ", " << y;
}

TEST(MaskCodec, HexPngReadsBackEveryPixel) {
  const std::pair<uint32_t, uint32_t> sizes[] = {{1, 1}, {7, 3}, {8, 2}, {9, 5}, {33, 17}};
  for (auto [w, h] : sizes) {
    SCOPED_TRACE(std::to_string(w) + "x" + std::to_string(h));
    const Mask mask = Pattern(w, h);
    const std::string text = EncodeMask(mask);
    ASSERT_EQ(text.size() % 2, 0u);
    EXPECT_EQ(text.substr(0, 16), "89504e470d0a1a0a");  // the PNG signature
    EXPECT_EQ(text.find_first_not_of("0123456789abcdef"), std::string::npos);
    ExpectSamePixels(DecodeMask(text), mask);
  }
}

// A picture from elsewhere (here a 24-bit BMP) counts a pixel as set from
// mid-grey up: blue + green + red at least 3 * 128, whatever each one is.
TEST(MaskCodec, GreyPixelIsSetFromMidGreyUp) {
  const struct {
    uint8_t blue, green, red;
    bool set;
  } pixels[] = {{127, 128, 128, false}, {128, 128, 128, true}, {0, 129, 255, true},
                {0, 128, 255, false},   {0, 0, 0, false},      {255, 255, 255, true}};
  img::image picture(std::size(pixels), 1);
  for (size_t x = 0; x < std::size(pixels); ++x) {
    uint8_t* p = picture.rows[0] + 4 * x;
    p[0] = pixels[x].blue;
    p[1] = pixels[x].green;
    p[2] = pixels[x].red;
    p[3] = 255;
  }
  testing_support::TempDir dir;
  img::native_writer().write(dir / "grey.bmp", "BMP", picture, false);
  std::string hex;
  for (uint8_t byte : testing_support::ReadFile(dir / "grey.bmp")) {
    hex += "0123456789abcdef"[byte >> 4];
    hex += "0123456789abcdef"[byte & 15];
  }
  const Mask mask = DecodeMask(hex);
  ASSERT_EQ(mask.width, std::size(pixels));
  for (uint32_t x = 0; x < mask.width; ++x) EXPECT_EQ(Bit(mask, x, 0), pixels[x].set) << x;
}

TEST(MaskCodec, EmptyMaskIsNoAttribute) {
  xml::tablet doc;
  doc.create("Mask");
  xml::filter out(doc.root(), false);
  Mask empty;
  MaskFields(out, empty);
  std::ostringstream text;
  doc.write(text);
  EXPECT_EQ(text.str(), "<?xml version=\"1.0\"?>\n<Mask />\n");

  Mask read = Pattern(3, 3);
  xml::filter in(doc.root(), true);
  MaskFields(in, read);
  EXPECT_TRUE(read.empty());
  EXPECT_TRUE(DecodeMask("").empty());
  EXPECT_TRUE(DecodeMask(" \n ").empty());
}

TEST(MaskCodec, BadTextFailsAndKeepsTheMask) {
  const std::string good = EncodeMask(Pattern(5, 5));
  struct Case {
    std::string text;
    bool parse_error;  // else the image decoder's failure
  };
  const Case cases[] = {
      {good.substr(0, good.size() - 1), true}, {good + "g0", true},         {"89-50", true},
      {"00112233445566778899", false},         {good.substr(0, 40), false},
  };
  for (const Case& c : cases) {
    xml::tablet doc;
    doc.create("Mask");
    doc.root().setAttribute("encoded", c.text);
    xml::filter in(doc.root(), true);
    Mask mask = Pattern(2, 2);
    if (c.parse_error) {
      EXPECT_THROW(MaskFields(in, mask), xml::attribute_parse_error) << c.text;
    } else {
      EXPECT_THROW(MaskFields(in, mask), img::io_error) << c.text;
    }
    EXPECT_EQ(mask.width, 2u);
  }
}

}  // namespace
