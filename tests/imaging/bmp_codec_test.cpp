#include <gtest/gtest.h>

#include <sstream>

#include "image_bytes.h"
#include "imaging/bmp_codec.h"
#include "imaging/native_io.h"

namespace {

using imaging_test::BmpHeader;
using imaging_test::Bytes;
using imaging_test::Failure;
using imaging_test::Picture;
using imaging_test::ReadFailure;
using testing_support::TempDir;
using testing_support::WriteFile;

constexpr const char* kBmpError = "could not open image file for reading or read error";

img::image Read(const std::string& name) {
  img::native_reader reader;
  img::image out;
  reader.read(name, out);
  return out;
}

TEST(BmpReader, ThirtyTwoBitsKeepFileAlphaInEitherRowOrder) {
  const std::vector<uint32_t> picture = {0x14131211, 0x18171615, 0x04030201, 0x08070605};
  for (int32_t height : {2, -2}) {
    TempDir dir;
    Bytes file = BmpHeader(2, height, 32);
    const bool top_first = height < 0;
    for (int line = 0; line < 2; ++line) {
      const int y = top_first ? line : 1 - line;
      file.u32(picture[2 * y]).u32(picture[2 * y + 1]);
    }
    WriteFile(dir / "a.bmp", file.data());
    const img::image im = Read(dir / "a.bmp");
    EXPECT_EQ(im.top_down, top_first ? 1u : 0u);
    EXPECT_EQ(Picture(im), picture) << "height " << height;
  }
}

TEST(BmpReader, TwentyFourBitRowsArePaddedAndAlphaIsZero) {
  TempDir dir;
  Bytes file = BmpHeader(3, 2, 24);
  file.raw("\x01\x02\x03\x04\x05\x06\x07\x08\x09").fill(3, 0xEE);  // bottom row, padding
  file.raw("\x11\x12\x13\x14\x15\x16\x17\x18\x19").fill(3, 0xEE);
  WriteFile(dir / "a.BMP", file.data());
  const img::image im = Read(dir / "a.BMP");
  EXPECT_EQ(im.top_down, 0u);
  EXPECT_EQ(Picture(im),
            (std::vector<uint32_t>{0x131211, 0x161514, 0x191817, 0x030201, 0x060504, 0x090807}));
}

TEST(BmpReader, EightBitsWithClrUsedZeroReadAll256EntriesWithTheirFourthByte) {
  TempDir dir;
  Bytes file = BmpHeader(3, 1, 8, 54 + 1024, 0);
  for (int i = 0; i < 256; ++i) file.u8(i).u8(255 - i).u8(i / 2).u8(i ^ 0x5A);
  file.u8(255).u8(0).u8(7).u8(0);
  WriteFile(dir / "p.bmp", file.data());
  EXPECT_EQ(Picture(Read(dir / "p.bmp")),
            (std::vector<uint32_t>{0xA57F00FF, 0x5A00FF00, 0x5D03F807}));
}

TEST(BmpReader, EightBitIndexAtClrUsedIsCorrupt) {
  TempDir dir;
  Bytes file = BmpHeader(2, 1, 8, 54 + 64, 16);
  for (int i = 0; i < 16; ++i) file.u32(0x01010101u * i);
  file.u8(15).u8(16).u16(0);
  WriteFile(dir / "p.bmp", file.data());
  const Failure f = ReadFailure(dir / "p.bmp");
  EXPECT_EQ(f.kind, "bad") << f;
  EXPECT_EQ(f.what, "corrupt image file format");
  EXPECT_EQ(f.mode, 1);
  EXPECT_EQ(f.value, 16);
  EXPECT_EQ(f.file, dir / "p.bmp");
}

TEST(BmpReader, OneBitTakesTheTopBitAsLeftmostPixel) {
  TempDir dir;
  Bytes file = BmpHeader(9, 1, 1, 62);
  file.u32(0x40302010).u32(0x80706050);  // palette entries 0 and 1
  file.u8(0xA0).u8(0x80).u16(0xFFFF);    // pixels 0, 2, 8 set; padding
  WriteFile(dir / "m.bmp", file.data());
  const uint32_t o = 0x40302010, i = 0x80706050;
  EXPECT_EQ(Picture(Read(dir / "m.bmp")), (std::vector<uint32_t>{i, o, i, o, o, o, o, o, i}));
}

TEST(BmpReader, PixelsStartAtTheStatedOffset) {
  TempDir dir;
  Bytes file = BmpHeader(1, 1, 32, 60);
  file.fill(6, 0xEE).u32(0x11223344);
  WriteFile(dir / "o.bmp", file.data());
  EXPECT_EQ(Picture(Read(dir / "o.bmp")), std::vector<uint32_t>{0x11223344});
}

struct Rejection {
  const char* name;
  Bytes header;
  int mode;
  int64_t value;
};

TEST(BmpReader, RejectsUnreadableKindsInOrder) {
  const Rejection cases[] = {
      {"Signature", BmpHeader(1, 1, 32, 54, 0, 0, 0x4D42 + 1), 0, 0x4D43},
      {"SignatureBeforeCompression", BmpHeader(-1, 1, 16, 54, 0, 1, 0x5089), 0, 0x5089},
      {"Compression", BmpHeader(1, 1, 8, 54, 0, 1), 1, 1},
      {"CompressionBeforeWidth", BmpHeader(-3, 1, 16, 54, 0, 3), 1, 3},
      {"NegativeWidth", BmpHeader(-3, 1, 16), 4, -3},
      {"BitCount16", BmpHeader(1, 1, 16), 2, 16},
      {"BitCount4", BmpHeader(1, 1, 4), 2, 4},
  };
  TempDir dir;
  for (const auto& c : cases) {
    Bytes file = c.header;
    file.fill(64, 0);
    WriteFile(dir / "r.bmp", file.data());
    const Failure f = ReadFailure(dir / "r.bmp");
    EXPECT_EQ(f.kind, "unsupported") << c.name << ": " << f;
    EXPECT_EQ(f.what, "unsupported image file format mode") << c.name;
    EXPECT_EQ(f.mode, c.mode) << c.name;
    EXPECT_EQ(f.value, c.value) << c.name;
    EXPECT_EQ(f.file, dir / "r.bmp") << c.name;
    EXPECT_FALSE(img::native_reader().info(dir / "r.bmp", nullptr)) << c.name;
  }
}

TEST(BmpReader, ShortAndLyingFilesGiveTheReadErrorWithoutAllocating) {
  struct Case {
    const char* name;
    Bytes bytes;
    const char* detail;  // part of the detail text, "" for none
  };
  const Case cases[] = {
      {"Empty", Bytes(), ""},
      {"HeaderCut", Bytes().u16(19778).u32(0), ""},
      {"NoPixels", BmpHeader(1, 1, 32), "claims 4 bytes"},
      {"LastPixelCut", Bytes(BmpHeader(2, 1, 32)).u32(1).u16(2), "claims 8 bytes of pixels, but 6"},
      {"HugeHeight", Bytes(BmpHeader(20000, -20000, 32)).u32(1), "claims 1600000000 bytes"},
      {"HugePalette", Bytes(BmpHeader(1, 1, 8, 54, 0x40000000)).u32(0), "claims 4294967296"},
      {"OffsetPastEnd", Bytes(BmpHeader(1, 1, 32, 0x7FFFFFF0)).u32(0), "but 0 are left"},
      {"Past32Bits", Bytes(BmpHeader(0x7FFFFFFF, 2, 1)).u32(0), "too large"},
      {"ZeroWidthBillionRows", BmpHeader(0, -0x7FFFFFFF, 32), "too large"},
  };
  TempDir dir;
  for (const auto& c : cases) {
    WriteFile(dir / "s.bmp", c.bytes.data());
    const Failure f = ReadFailure(dir / "s.bmp");
    EXPECT_EQ(f.kind, "io_error") << c.name << ": " << f;
    EXPECT_EQ(f.what, kBmpError) << c.name;
    EXPECT_EQ(f.file, dir / "s.bmp") << c.name;
    EXPECT_NE(f.detail.find(c.detail), std::string::npos) << c.name << ": " << f;
  }
  const Failure missing = ReadFailure(dir / "none.bmp");
  EXPECT_EQ(missing.what, kBmpError);
  EXPECT_EQ(missing.file, dir / "none.bmp");
}

TEST(BmpReader, InfoReportsTheHeader) {
  TempDir dir;
  Bytes file = BmpHeader(3, -2, 24);
  file.fill(24, 0);
  WriteFile(dir / "i.bmp", file.data());
  img::file_info info;
  ASSERT_TRUE(img::native_reader().info(dir / "i.bmp", &info));
  EXPECT_EQ(info.name, dir / "i.bmp");
  EXPECT_EQ(info.format, "BMP");
  EXPECT_EQ(info.width, 3u);
  EXPECT_EQ(info.height, 2u);
  EXPECT_EQ(info.bit_count, 24u);
  EXPECT_TRUE(info.uncompressed);
  file = BmpHeader(3, -2, 24);
  file.fill(23, 0);
  WriteFile(dir / "i.bmp", file.data());
  EXPECT_FALSE(img::native_reader().info(dir / "i.bmp", &info));
  EXPECT_FALSE(img::native_reader().info(dir / "none.bmp", &info));
}

TEST(BmpReader, ReadsFromAnyStreamPosition) {
  Bytes file;
  file.raw("junk");
  file.append(BmpHeader(1, 1, 32).data());
  file.u32(0xCAFEF00D);
  std::istringstream in(std::string(file.data().begin(), file.data().end()));
  in.seekg(4);
  img::image im;
  img::bmp::read(in, im);
  EXPECT_EQ(Picture(im), std::vector<uint32_t>{0xCAFEF00D});
}

}  // namespace
