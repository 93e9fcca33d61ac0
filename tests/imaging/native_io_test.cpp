// SPDX-License-Identifier: GPL-3.0-or-later
// The two formats read and written without the codec library: BMP and TGA,
// from bytes the tests build field by field.
#include "imaging/native_io.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "imaging/bmp_codec.h"
#include "testing/files.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;
using testing_support::Bytes;
using testing_support::ReadFile;
using testing_support::TempDir;
using testing_support::WriteFile;
using Pixels = std::vector<uint32_t>;

constexpr const char* kBmpError = "could not open image file for reading or read error";
constexpr const char* kTgaError = "could not open TGA image for reading or read error";
constexpr uint8_t kTopLeft = 32;  // TGA descriptor bit 5

// File header and 40-byte info header; every field the readers look at is
// a parameter, the rest are 0 apart from biSize 40 and biPlanes 1.
Bytes BmpHeader(int32_t width,
                int32_t height,
                uint16_t bits,
                uint32_t off_bits = 54,
                uint32_t clr_used = 0,
                uint32_t compression = 0,
                uint16_t signature = 19778) {
  Bytes b;
  b.u16(signature).u32(0).u16(0).u16(0).u32(off_bits);
  b.u32(40).i32(width).i32(height).u16(1).u16(bits).u32(compression);
  return b.u32(0).u32(0).u32(0).u32(clr_used).u32(0);
}

struct Tga {
  uint8_t id_length = 0, map_type = 0, image_type = 2;
  uint16_t map_length = 0;
  uint8_t map_entry_size = 0;
  uint16_t width = 1, height = 1;
  uint8_t depth = 32, descriptor = 0;

  Bytes Header() const {
    Bytes b;
    b.u8(id_length).u8(map_type).u8(image_type).u16(0).u16(map_length).u8(map_entry_size);
    b.u16(0).u16(0).u16(width).u16(height).u8(depth).u8(descriptor);
    return b.fill(id_length, 'i');
  }
  Bytes operator+(const Bytes& body) const { return Header().append(body.data()); }
};

// A TGA with a colour map, its first entry at 0.
Tga Map(uint8_t type, uint16_t length, uint8_t entry_size, uint16_t width, uint8_t depth) {
  return Tga{.map_type = 1,
             .image_type = type,
             .map_length = length,
             .map_entry_size = entry_size,
             .width = width,
             .depth = depth};
}

// A 300-entry map of (i & 255, i >> 8, 7) and two 16-bit indexes.
Bytes WideMap(uint16_t second_index) {
  Bytes b;
  for (int i = 0; i < 300; ++i) b.u8(i).u8(i >> 8).u8(7);
  return b.u16(299).u16(second_index);
}

// The whole picture, row by row from the top, as 0xAARRGGBB words.
Pixels Picture(const img::image& im) {
  Pixels out;
  for (uint32_t y = 0; y < im.height; ++y)
    for (uint32_t x = 0; x < im.width; ++x) {
      const uint8_t* p = im.rows[y] + 4 * x;
      out.push_back(p[0] | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24);
    }
  return out;
}

img::image ReadNative(const std::string& name, const Bytes& file) {
  WriteFile(name, file.data());
  img::image out;
  img::native_reader().read(name, out);
  return out;
}

// Writes `file` as `name` (which says what the case is) and checks the picture read back.
void ExpectPicture(const std::string& name, const Bytes& file, uint32_t top_down, Pixels picture) {
  const img::image im = ReadNative(name, file);
  EXPECT_EQ(im.top_down, top_down) << name;
  EXPECT_EQ(Picture(im), picture) << name;
}

// What reading `name` threw, as one text: "unsupported <mode> <value>",
// "bad <mode> <value>", or a read error's text, " | " and its detail; "none"
// if the read succeeded. Every failure must name the file it was about.
std::string FailureOf(const std::string& name, const char* format = nullptr) {
  img::image out;
  try {
    format ? img::native_reader().read(name, format, out) : img::native_reader().read(name, out);
  } catch (const img::io_error& e) {
    EXPECT_EQ(e.file(), name) << e.what();
    if (const auto* u = dynamic_cast<const img::unsupported*>(&e)) {
      EXPECT_STREQ(e.what(), "unsupported image file format mode");
      return "unsupported " + std::to_string(u->mode) + " " + std::to_string(u->value);
    }
    if (const auto* b = dynamic_cast<const img::bad*>(&e)) {
      EXPECT_STREQ(e.what(), "corrupt image file format");
      return "bad " + std::to_string(b->mode) + " " + std::to_string(b->value);
    }
    return e.what() + std::string(" | ") + e.detail();
  }
  return "none";
}

std::string FailureOf(const std::string& name, const Bytes& file) {
  WriteFile(name, file.data());
  return FailureOf(name);
}

TEST(BmpReader, DecodesEveryDepthAndRowOrder) {
  TempDir dir;
  // 32 bits keep the file's alpha; a negative height means top row first.
  ExpectPicture(dir / "bgra32.bmp",
                BmpHeader(2, 2, 32).u32(0x04030201).u32(0x08070605).u32(0x14131211).u32(0x18171615),
                0, {0x14131211, 0x18171615, 0x04030201, 0x08070605});
  ExpectPicture(dir / "top-down.BMP", BmpHeader(2, -2, 32).u32(1).u32(2).u32(3).u32(4), 1,
                {1, 2, 3, 4});
  // 24-bit rows are padded to four bytes; alpha reads 0.
  ExpectPicture(dir / "rgb24.bmp",
                BmpHeader(3, 2, 24)
                    .raw("\x01\x02\x03\x04\x05\x06\x07\x08\x09\xEE\xEE\xEE")
                    .raw("\x11\x12\x13\x14\x15\x16\x17\x18\x19\xEE\xEE\xEE"),
                0, {0x131211, 0x161514, 0x191817, 0x030201, 0x060504, 0x090807});
  // clrUsed 0 means all 256 entries, each with its fourth byte.
  Bytes palette = BmpHeader(3, 1, 8, 54 + 1024, 0);
  for (int i = 0; i < 256; ++i) palette.u8(i).u8(255 - i).u8(i / 2).u8(i ^ 0x5A);
  ExpectPicture(dir / "palette.bmp", palette.u8(255).u8(0).u8(7).u8(0), 0,
                {0xA57F00FF, 0x5A00FF00, 0x5D03F807});
  // 1 bit: the top bit is the leftmost pixel; pixels 0, 2 and 8 set, then padding.
  const uint32_t o = 0x40302010, i = 0x80706050;
  ExpectPicture(dir / "mask.bmp",
                BmpHeader(9, 1, 1, 62).u32(o).u32(i).u8(0xA0).u8(0x80).u16(0xFFFF), 0,
                {i, o, i, o, o, o, o, o, i});
  ExpectPicture(dir / "offset.bmp", BmpHeader(1, 1, 32, 60).fill(6, 0xEE).u32(0x11223344), 0,
                {0x11223344});
  // Reading starts wherever the stream stands.
  Bytes junk = Bytes().raw("junk").append(BmpHeader(1, 1, 32).data()).u32(0xCAFEF00D);
  std::istringstream in(std::string(junk.data().begin(), junk.data().end()));
  in.seekg(4);
  img::image im;
  img::bmp::read(in, im);
  EXPECT_EQ(Picture(im), Pixels{0xCAFEF00D});
}

TEST(TgaReader, DecodesEveryLayoutAndRowOrder) {
  TempDir dir;
  // Uncompressed pixels keep the file's row order; the low descriptor bits are alpha depth.
  ExpectPicture(dir / "bgra32.tga",
                Tga{.width = 2, .height = 2} +
                    Bytes().u32(0x04030201).u32(0x08070605).u32(0x14131211).u32(0x18171615),
                0, {0x14131211, 0x18171615, 0x04030201, 0x08070605});
  ExpectPicture(
      dir / "top-down.tga",
      Tga{.width = 2, .height = 2, .descriptor = kTopLeft} + Bytes().u32(1).u32(2).u32(3).u32(4), 1,
      {1, 2, 3, 4});
  ExpectPicture(dir / "alpha-bits.tga",
                Tga{.width = 2, .descriptor = kTopLeft | 0x1F} + Bytes().u32(0x14131211).u32(5), 1,
                {0x14131211, 5});
  ExpectPicture(
      dir / "rgb24.tga",
      Tga{.width = 3, .height = 2, .depth = 24, .descriptor = kTopLeft} +
          Bytes().raw("\x01\x02\x03\x04\x05\x06\x07\x08\x09\x11\x12\x13\x14\x15\x16\x17\x18\x19"),
      1, {0x030201, 0x060504, 0x090807, 0x131211, 0x161514, 0x191817});
  ExpectPicture(dir / "rgb16.tga",
                Tga{.width = 3, .height = 2, .depth = 16, .descriptor = kTopLeft} +
                    Bytes().u16(0x7FFF).u16(0x0001).u16(0x8000).u16(0x0020).u16(0x0400).u16(0xFC1F),
                1, {0xFFFFFF, 0x000008, 0, 0x000800, 0x080000, 0xFF00FF});
  ExpectPicture(dir / "rgb15.tga",
                Tga{.width = 3, .depth = 15, .descriptor = kTopLeft} +
                    Bytes().u16(0x7C00).u16(0x03E0).u16(0x001F),
                1, {0xFF0000, 0xFF00, 0xFF});
  // Colour maps start after the id field; their entries read with alpha 0.
  Tga id = Map(1, 2, 24, 2, 8);
  id.id_length = 5;
  ExpectPicture(dir / "map24.tga", id + Bytes().raw("\x01\x02\x03\x04\x05\x06").u8(1).u8(0), 0,
                {0x060504, 0x030201});
  id.map_entry_size = 16;
  ExpectPicture(dir / "map16.tga", id + Bytes().u16(0).u16(0x7C01).u8(1).u8(0), 0, {0xFF0008, 0});
  id.map_entry_size = 15;
  ExpectPicture(dir / "map15.tga", id + Bytes().u16(0).u16(0x03E0).u8(1).u8(0), 0, {0x00FF00, 0});
  id.map_entry_size = 8;
  ExpectPicture(dir / "map8.tga", id + Bytes().u8(0).u8(0x42).u8(1).u8(0), 0, {0x424242, 0});
  // A 32-bit map is consumed three bytes an entry, so the pixels are read
  // from inside its last entry: entries (0,0,0) (FF,1,1) (1,FF,2) (2,2,FF),
  // pixels 3, 3. Files depend on this reading.
  ExpectPicture(
      dir / "map32.tga",
      Map(1, 4, 32, 2, 8) +
          Bytes().u32(0xFF000000).u32(0xFF010101).u32(0xFF020202).u32(0xFF030303).u16(0x100),
      0, {0xFF0202, 0xFF0202});
  ExpectPicture(dir / "index16.tga", Map(1, 300, 24, 2, 16) + WideMap(256), 0,
                {0x07012B, 0x070100});
  // Packets run across rows and are cut at the end; RLE pictures always end top-down.
  const Tga rle{.image_type = 10, .width = 3, .height = 2, .descriptor = kTopLeft};
  ExpectPicture(dir / "run-across.tga",
                rle + Bytes().u8(0x83).u32(0xAA000001).u8(0x01).u32(2).u32(3), 1,
                {0xAA000001, 0xAA000001, 0xAA000001, 0xAA000001, 2, 3});
  ExpectPicture(dir / "raw-across.tga",
                rle + Bytes().u8(0x03).u32(1).u32(2).u32(3).u32(4).u8(0x81).u32(5), 1,
                {1, 2, 3, 4, 5, 5});
  const Tga bottom_up{.image_type = 10, .width = 2, .height = 2};
  ExpectPicture(dir / "run-past.tga", bottom_up + Bytes().u8(0xFF).u32(9), 1, {9, 9, 9, 9});
  ExpectPicture(dir / "raw-past.tga", bottom_up + Bytes().u8(0x7F).u32(1).u32(2).u32(3).u32(4), 1,
                {3, 4, 1, 2});
  ExpectPicture(dir / "rle24.tga",
                Tga{.image_type = 10, .width = 3, .depth = 24, .descriptor = kTopLeft} +
                    Bytes().u8(0x82).raw("\x01\x02\x03"),
                1, {0x030201, 0x030201, 0x030201});
  ExpectPicture(
      dir / "rle16-ignores-map.tga",
      Map(10, 1, 8, 3, 16) + Bytes().u8(0x55).u8(0x80).u16(0x7FFF).u8(0x01).u16(0x0001).u16(0x0400),
      1, {0xFFFFFF, 0x000008, 0x080000});
  ExpectPicture(dir / "rle-mapped.tga",
                Map(9, 2, 24, 3, 8) + Bytes().raw("\x01\x02\x03\x04\x05\x06").u8(0x81).u8(1).u16(0),
                1, {0x060504, 0x060504, 0x030201});
}

// Checks run in a fixed order, so a header with several faults names the first.
TEST(NativeReader, RejectsUnreadableKindsInOrder) {
  const std::tuple<const char*, Bytes, const char*> cases[] = {
      {"sig.bmp", BmpHeader(1, 1, 32, 54, 0, 0, 0x4D43), "unsupported 0 19779"},
      {"sig-first.bmp", BmpHeader(-1, 1, 16, 54, 0, 1, 0x5089), "unsupported 0 20617"},
      {"rle.bmp", BmpHeader(1, 1, 8, 54, 0, 1), "unsupported 1 1"},
      {"rle-first.bmp", BmpHeader(-3, 1, 16, 54, 0, 3), "unsupported 1 3"},
      {"width.bmp", BmpHeader(-3, 1, 16), "unsupported 4 -3"},
      {"bits16.bmp", BmpHeader(1, 1, 16), "unsupported 2 16"},
      {"bits4.bmp", BmpHeader(1, 1, 4), "unsupported 2 4"},
      {"type0.tga", Tga{.image_type = 0}.Header(), "unsupported 0 0"},
      {"type12.tga", Tga{.image_type = 12}.Header(), "unsupported 0 12"},
      {"type-first.tga", Tga{.image_type = 255, .descriptor = 0xC0}.Header(), "unsupported 0 255"},
      {"bit6.tga", Tga{.descriptor = 0x40}.Header(), "unsupported 3 0"},
      {"bit7.tga", Tga{.descriptor = 0x80}.Header(), "unsupported 3 0"},
      {"bit7-first.tga", Tga{.depth = 8, .descriptor = 0x80}.Header(), "unsupported 3 0"},
      {"map24.tga", Tga{.map_type = 1, .depth = 24}.Header(), "bad 0 0"},
      {"map32.tga", Tga{.map_type = 2, .image_type = 10, .depth = 32}.Header(), "bad 0 0"},
      {"grey.tga", Tga{.image_type = 3, .depth = 8}.Header(), "unsupported 6 0"},
      {"depth12.tga", Tga{.depth = 12}.Header(), "unsupported 6 0"},
  };
  TempDir dir;
  for (const auto& [name, header, expected] : cases) {
    EXPECT_EQ(FailureOf(dir / name, Bytes(header).fill(64, 0)), expected) << name;
    EXPECT_FALSE(img::native_reader().info(dir / name, nullptr)) << name;
  }
  // Palette indexes at or past the palette's end.
  Bytes bmp = BmpHeader(2, 1, 8, 54 + 64, 16);
  for (int i = 0; i < 16; ++i) bmp.u32(0x01010101u * i);
  EXPECT_EQ(FailureOf(dir / "index.bmp", bmp.u8(15).u8(16).u16(0)), "bad 1 16");
  EXPECT_EQ(FailureOf(dir / "index.tga", Map(1, 300, 24, 2, 16) + WideMap(300)), "bad 1 300");
  EXPECT_EQ(
      FailureOf(dir / "rle.tga", Map(9, 2, 8, 4, 8) + Bytes().u16(0x100).u16(0x181).u16(0x281)),
      "bad 1 2");
}

// A file shorter than its header claims fails before anything is allocated.
TEST(NativeReader, ShortAndLyingFilesGiveTheReadError) {
  const std::tuple<const char*, Bytes, const char*> cases[] = {
      {"empty.bmp", Bytes(), ""},
      {"header.bmp", Bytes().u16(19778).u32(0), ""},
      {"nothing.bmp", BmpHeader(1, 1, 32), "claims 4 bytes"},
      {"last.bmp", BmpHeader(2, 1, 32).u32(1).u16(2), "claims 8 bytes of pixels, but 6"},
      {"huge.bmp", BmpHeader(20000, -20000, 32).u32(1), "claims 1600000000 bytes"},
      {"palette.bmp", BmpHeader(1, 1, 8, 54, 0x40000000).u32(0), "claims 4294967296"},
      {"offset.bmp", BmpHeader(1, 1, 32, 0x7FFFFFF0).u32(0), "but 0 are left"},
      {"wide.bmp", BmpHeader(0x7FFFFFFF, 2, 1).u32(0), "too large"},
      {"tall.bmp", BmpHeader(0, -0x7FFFFFFF, 32), "too large"},
      {"none.bmp", Bytes(), "No such file"},
      {"header.tga", Bytes().u8(0).u8(0).u8(2), ""},
      {"id.tga", Tga{.id_length = 9}.Header(), ""},  // the id is whole, the pixels missing
      {"map.tga", Map(1, 4, 24, 1, 8).Header().u8(1), ""},
      {"last.tga", Tga{.width = 2}.Header().u32(1).u16(2), "claims 8 bytes of pixels, but 6"},
      {"huge.tga", Tga{.width = 30000, .height = 30000} + Bytes().u32(0),
       "claims 3600000000 bytes"},
      {"huge-rle.tga",
       Tga{.image_type = 10, .width = 30000, .height = 30000} + Bytes().u8(0xFF).u32(0),
       "claims 35156250 bytes"},
      {"rle-ends.tga", Tga{.image_type = 10, .width = 2, .height = 2} + Bytes().u8(0x81).u32(0),
       ""},
      {"wide.tga", Tga{.image_type = 10, .width = 65535, .height = 65535}.Header(), "too large"},
  };
  TempDir dir;
  for (const auto& [name, bytes, detail] : cases) {
    const std::string file = dir / name;
    if (bytes.size() || std::string(detail) != "No such file") WriteFile(file, bytes.data());
    const std::string got = FailureOf(file);
    EXPECT_THAT(got,
                StartsWith(std::string(file.ends_with("tga") ? kTgaError : kBmpError) + " | "));
    EXPECT_THAT(got, HasSubstr(detail));
  }
}

TEST(NativeReader, InfoReportsTheHeader) {
  TempDir dir;
  WriteFile(dir / "i.bmp", BmpHeader(3, -2, 24).fill(24, 0).data());
  Bytes tga = Tga{.image_type = 10, .width = 300, .height = 2, .depth = 16}.Header();
  for (int i = 1; i <= 5; ++i) tga.u8(0xFF).u16(i);
  WriteFile(dir / "i.tga", tga.data());
  img::file_info b, t;
  ASSERT_TRUE(img::native_reader().info(dir / "i.bmp", &b));
  ASSERT_TRUE(img::native_reader().info(dir / "i.tga", &t));
  EXPECT_EQ(std::tie(b.name, b.format, b.width, b.height, b.bit_count, b.uncompressed),
            std::make_tuple(dir / "i.bmp", "BMP", 3u, 2u, 24u, true));
  EXPECT_EQ(std::tie(t.format, t.width, t.height, t.bit_count, t.uncompressed),
            std::make_tuple("TGA", 300u, 2u, 16u, false));
  // A pixel block cut short leaves the header's answer; reading fails.
  const std::tuple<const char*, Bytes, uint32_t, uint32_t, const char*> shorts[] = {
      {"short.bmp", BmpHeader(3, -2, 24).fill(23, 0), 3, 2, kBmpError},
      {"bare.bmp", BmpHeader(640, 480, 32), 640, 480, kBmpError},
      {"short.tga", Tga{.width = 4, .height = 2, .depth = 32}.Header().fill(31, 0), 4, 2,
       kTgaError},
  };
  for (const auto& [name, bytes, width, height, error] : shorts) {
    img::file_info i;
    WriteFile(dir / name, bytes.data());
    ASSERT_TRUE(img::native_reader().info(dir / name, &i)) << name;
    EXPECT_EQ(std::tie(i.width, i.height), std::tie(width, height)) << name;
    EXPECT_THAT(FailureOf(dir / name), StartsWith(std::string(error) + " | ")) << name;
  }
  EXPECT_FALSE(img::native_reader().info(dir / "none.bmp", &b));
}

const Bytes kTga = Tga{.width = 1} + Bytes().u32(0x80402010);
const Bytes kBmp = BmpHeader(1, 1, 32).u32(0x80402010);

TEST(NativeReader, NamesItsFormats) {
  std::vector<std::string> ext = {"stale"};
  img::native_reader().extensions(ext);
  EXPECT_EQ(ext, (std::vector<std::string>{"BMP", "TGA"}));
  EXPECT_EQ(img::native_reader().filter(), "*.BMP;*.TGA");
  EXPECT_TRUE(img::native_reader().sniffs());
  img::native_writer().extensions(ext);
  EXPECT_EQ(ext, (std::vector<std::string>{"BMP", "TGA"}));
  EXPECT_EQ(img::native_writer().filter(), "*.BMP;*.TGA");
}

TEST(NativeReader, OtherNamesTryBmpThenTga) {
  TempDir dir;
  for (const char* name : {"frame.img", "t", "x.tg"})
    for (const Bytes& file : {kTga, kBmp}) {
      EXPECT_EQ(Picture(ReadNative(dir / name, file)), Pixels{0x80402010}) << name;
      img::file_info info;
      EXPECT_TRUE(img::native_reader().info(dir / name, &info)) << name;
      EXPECT_EQ(info.name, dir / name);
    }
}

// With another name the TGA attempt's failure is the one reported; a known
// extension, or a format word, takes no second attempt.
TEST(NativeReader, ReportsTheFailureOfTheFormatItTriedLast) {
  TempDir dir;
  // The TGA image type byte of a PNG signature is 'N'.
  EXPECT_EQ(FailureOf(dir / "a.png", Bytes().u8(0x89).raw("PNG\r\n\x1a\n").fill(40, 0)),
            "unsupported 0 78");
  EXPECT_EQ(FailureOf(dir / "none.png").find("could not open TGA image for reading or read error"),
            0u);
  // The signature word of a TGA header: id length 0, no map.
  EXPECT_EQ(FailureOf(dir / "a.BMP", Bytes(kTga).fill(40, 0)), "unsupported 0 0");
  EXPECT_FALSE(img::native_reader().info(dir / "a.BMP", nullptr));
  // The low byte of bfSize read as the image type.
  EXPECT_EQ(FailureOf(dir / "b.tga", kBmp), "unsupported 0 0");
  WriteFile(dir / "a.bmp", kTga.data());
  EXPECT_EQ(FailureOf(dir / "a.bmp", "tga"), "none");
  EXPECT_EQ(FailureOf(dir / "a.bmp", "PNG"), "unsupported 0 0");
  img::file_info info;
  EXPECT_TRUE(img::native_reader().info(dir / "a.bmp", "TGA", &info));
  EXPECT_EQ(info.format, "TGA");
  EXPECT_FALSE(img::native_reader().info(dir / "a.bmp", "BMP", &info));
  EXPECT_FALSE(img::native_reader().info(dir / "a.bmp", "PNG", &info));
}

// A 3 by 2 picture with distinct bytes, in the given row order and alignment.
img::image Sample(uint32_t top_down, uint32_t alignment = 4) {
  img::image im;
  im.set_top_down(top_down);
  im.resize(3, 2, alignment);
  for (uint32_t y = 0; y < 2; ++y)
    for (uint32_t x = 0; x < 3; ++x)
      for (uint32_t c = 0; c < 4; ++c) im.rows[y][4 * x + c] = uint8_t(0x10 * (y * 3 + x + 1) + c);
  return im;
}

// The files written are byte for byte what other programs expect, whatever
// the picture's row padding: BMP is bottom-up with zero padding, TGA keeps
// the picture's row order.
TEST(NativeWriter, WritesExactFiles) {
  const char* kBottomRow = "\x40\x41\x42\x50\x51\x52\x60\x61\x62";
  const char* kTopRow = "\x10\x11\x12\x20\x21\x22\x30\x31\x32";
  const char* kBottom32 = "\x40\x41\x42\x43\x50\x51\x52\x53\x60\x61\x62\x63";
  const char* kTop32 = "\x10\x11\x12\x13\x20\x21\x22\x23\x30\x31\x32\x33";
  const Bytes bmp = Bytes().raw("BM").u32(78).u32(0).u32(54).u32(40).i32(3).i32(2).u16(1);
  const struct {
    const char* format;
    img::image picture;
    bool alpha;
    Bytes file;
  } cases[] = {
      {"BMP", Sample(1, 8), false,
       Bytes(bmp).u16(24).fill(24, 0).raw(kBottomRow).fill(3, 0).raw(kTopRow).fill(3, 0)},
      {"bmp", Sample(0, 8), true, Bytes(bmp).u16(32).fill(24, 0).raw(kBottom32).raw(kTop32)},
      {"TGA", Sample(1, 1), true,
       (Tga{.width = 3, .height = 2, .descriptor = 32} + Bytes().raw(kTop32).raw(kBottom32))},
      {"TGA", Sample(0, 8), false,
       (Tga{.width = 3, .height = 2, .depth = 24} + Bytes().raw(kBottomRow).raw(kTopRow))},
  };
  TempDir dir;
  for (const auto& c : cases) {
    const uint64_t bytes = img::native_writer().write(dir / "w", c.format, c.picture, c.alpha);
    EXPECT_EQ(ReadFile(dir / "w"), c.file.data()) << c.format << " alpha " << c.alpha;
    EXPECT_EQ(bytes, c.file.size());
  }
}

TEST(NativeWriter, FailuresLeaveNoFile) {
  TempDir dir;
  auto failure = [&](const std::string& name, const char* format, const img::image& picture) {
    try {
      img::native_writer().write(name, format, picture, true);
    } catch (const img::io_error& e) {
      EXPECT_EQ(e.file(), name);
      EXPECT_FALSE(std::filesystem::exists(name)) << name;
      return std::string(e.what());
    }
    return std::string("none");
  };
  EXPECT_EQ(failure(dir / "a.png", "PNG", Sample(1)), "file format is not supported");
  EXPECT_EQ(failure(dir / "w.tga", "TGA", img::image(70000, 1, 4)),
            "image is too large for the file format");
  try {
    img::native_writer().write(dir / "no/such/folder.bmp", "BMP", Sample(1), true);
    ADD_FAILURE() << "no failure";
  } catch (const std::ios_base::failure& e) {
    EXPECT_NE(std::string(e.what()).find("folder.bmp"), std::string::npos) << e.what();
  }
}

}  // namespace
