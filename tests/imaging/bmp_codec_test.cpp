#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "image_bytes.h"
#include "imaging/bmp_codec.h"

namespace {

using namespace imaging_test;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* kBmpError = "could not open image file for reading or read error";

TEST(BmpReader, DecodesEveryDepthAndRowOrder) {
  TempDir dir;
  auto expect = [&](const char* name, const Bytes& file, uint32_t top_down, const Pixels& picture) {
    const img::image im = ReadNative(dir / "a.BMP", file);
    EXPECT_EQ(im.top_down, top_down) << name;
    EXPECT_EQ(Picture(im), picture) << name;
  };
  // 32 bits keep the file's alpha; a negative height means top row first.
  expect("Bgra32BottomUp",
         BmpHeader(2, 2, 32).u32(0x04030201).u32(0x08070605).u32(0x14131211).u32(0x18171615), 0,
         {0x14131211, 0x18171615, 0x04030201, 0x08070605});
  expect("Bgra32TopDown", BmpHeader(2, -2, 32).u32(1).u32(2).u32(3).u32(4), 1, {1, 2, 3, 4});
  // 24-bit rows are padded to four bytes; alpha reads 0.
  expect("Rgb24Padded",
         BmpHeader(3, 2, 24)
             .raw("\x01\x02\x03\x04\x05\x06\x07\x08\x09\xEE\xEE\xEE")
             .raw("\x11\x12\x13\x14\x15\x16\x17\x18\x19\xEE\xEE\xEE"),
         0, {0x131211, 0x161514, 0x191817, 0x030201, 0x060504, 0x090807});
  // clrUsed 0 means all 256 entries, each with its fourth byte.
  Bytes palette = BmpHeader(3, 1, 8, 54 + 1024, 0);
  for (int i = 0; i < 256; ++i) palette.u8(i).u8(255 - i).u8(i / 2).u8(i ^ 0x5A);
  expect("Palette8", palette.u8(255).u8(0).u8(7).u8(0), 0, {0xA57F00FF, 0x5A00FF00, 0x5D03F807});
  // 1 bit: the top bit is the leftmost pixel; pixels 0, 2 and 8 set, then padding.
  const uint32_t o = 0x40302010, i = 0x80706050;
  expect("Mask1", BmpHeader(9, 1, 1, 62).u32(o).u32(i).u8(0xA0).u8(0x80).u16(0xFFFF), 0,
         {i, o, i, o, o, o, o, o, i});
  expect("PixelsAtTheStatedOffset", BmpHeader(1, 1, 32, 60).fill(6, 0xEE).u32(0x11223344), 0,
         {0x11223344});
}

TEST(BmpReader, RejectsUnreadableKindsInOrderAndIndexesPastClrUsed) {
  const std::pair<Bytes, const char*> cases[] = {
      {BmpHeader(1, 1, 32, 54, 0, 0, 0x4D43), "unsupported 0 19779"},
      {BmpHeader(-1, 1, 16, 54, 0, 1, 0x5089), "unsupported 0 20617"},  // signature first
      {BmpHeader(1, 1, 8, 54, 0, 1), "unsupported 1 1"},
      {BmpHeader(-3, 1, 16, 54, 0, 3), "unsupported 1 3"},  // compression before width
      {BmpHeader(-3, 1, 16), "unsupported 4 -3"},
      {BmpHeader(1, 1, 16), "unsupported 2 16"},
      {BmpHeader(1, 1, 4), "unsupported 2 4"},
  };
  TempDir dir;
  for (const auto& [header, expected] : cases) {
    EXPECT_EQ(FailureOf(dir / "r.bmp", Bytes(header).fill(64, 0)), expected);
    EXPECT_FALSE(img::native_reader().info(dir / "r.bmp", nullptr)) << expected;
  }
  Bytes file = BmpHeader(2, 1, 8, 54 + 64, 16);
  for (int i = 0; i < 16; ++i) file.u32(0x01010101u * i);
  EXPECT_EQ(FailureOf(dir / "p.bmp", file.u8(15).u8(16).u16(0)), "bad 1 16");
}

TEST(BmpReader, ShortAndLyingFilesGiveTheReadErrorWithoutAllocating) {
  const std::pair<Bytes, const char*> cases[] = {
      {Bytes(), ""},
      {Bytes().u16(19778).u32(0), ""},
      {BmpHeader(1, 1, 32), "claims 4 bytes"},
      {BmpHeader(2, 1, 32).u32(1).u16(2), "claims 8 bytes of pixels, but 6"},
      {BmpHeader(20000, -20000, 32).u32(1), "claims 1600000000 bytes"},
      {BmpHeader(1, 1, 8, 54, 0x40000000).u32(0), "claims 4294967296"},
      {BmpHeader(1, 1, 32, 0x7FFFFFF0).u32(0), "but 0 are left"},
      {BmpHeader(0x7FFFFFFF, 2, 1).u32(0), "too large"},
      {BmpHeader(0, -0x7FFFFFFF, 32), "too large"},
  };
  TempDir dir;
  for (const auto& [bytes, detail] : cases) {
    const std::string got = FailureOf(dir / "s.bmp", bytes);
    EXPECT_THAT(got, StartsWith(kBmpError + std::string(" | ")));
    EXPECT_THAT(got, HasSubstr(detail));
  }
  EXPECT_THAT(FailureOf(dir / "none.bmp"), StartsWith(kBmpError));
}

TEST(BmpReader, InfoReportsTheHeader) {
  TempDir dir;
  WriteFile(dir / "i.bmp", BmpHeader(3, -2, 24).fill(24, 0).data());
  img::file_info info;
  ASSERT_TRUE(img::native_reader().info(dir / "i.bmp", &info));
  EXPECT_EQ(info.name, dir / "i.bmp");
  EXPECT_EQ(info.format, "BMP");
  EXPECT_EQ(info.width, 3u);
  EXPECT_EQ(info.height, 2u);
  EXPECT_EQ(info.bit_count, 24u);
  EXPECT_TRUE(info.uncompressed);
  WriteFile(dir / "i.bmp", BmpHeader(3, -2, 24).fill(23, 0).data());  // one byte short
  EXPECT_FALSE(img::native_reader().info(dir / "i.bmp", &info));
  EXPECT_FALSE(img::native_reader().info(dir / "none.bmp", &info));
}

TEST(BmpReader, ReadsFromAnyStreamPosition) {
  Bytes file = Bytes().raw("junk").append(BmpHeader(1, 1, 32).data()).u32(0xCAFEF00D);
  std::istringstream in(std::string(file.data().begin(), file.data().end()));
  in.seekg(4);
  img::image im;
  img::bmp::read(in, im);
  EXPECT_EQ(Picture(im), Pixels{0xCAFEF00D});
}

}  // namespace
