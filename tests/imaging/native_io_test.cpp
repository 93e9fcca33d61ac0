#include <gtest/gtest.h>

#include <filesystem>

#include "image_bytes.h"
#include "imaging/native_io.h"

namespace {

using imaging_test::BmpHeader;
using imaging_test::Bytes;
using imaging_test::Failure;
using imaging_test::FailureOf;
using imaging_test::Picture;
using imaging_test::ReadFailure;
using imaging_test::Tga;
using testing_support::ReadFile;
using testing_support::TempDir;
using testing_support::WriteFile;

Bytes SmallTga() {
  return Tga{.width = 1}.Header().u32(0x80402010);
}
Bytes SmallBmp() {
  return BmpHeader(1, 1, 32).u32(0x80402010);
}

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
  for (const char* name : {"frame.img", "t", "x.tg"}) {
    for (const Bytes& file : {SmallTga(), SmallBmp()}) {
      WriteFile(dir / name, file.data());
      img::image im;
      img::native_reader().read(dir / name, im);
      EXPECT_EQ(Picture(im), std::vector<uint32_t>{0x80402010}) << name;
      img::file_info info;
      EXPECT_TRUE(img::native_reader().info(dir / name, &info)) << name;
      EXPECT_EQ(info.name, dir / name);
    }
  }
}

TEST(NativeReader, TheTgaAttemptsFailureIsReported) {
  TempDir dir;
  WriteFile(dir / "a.png", Bytes().u8(0x89).raw("PNG\r\n\x1a\n").fill(40, 0).data());
  const Failure f = ReadFailure(dir / "a.png");
  EXPECT_EQ(f.kind, "unsupported") << f;
  EXPECT_EQ(f.mode, 0);
  EXPECT_EQ(f.value, 'N');  // the TGA image type byte
  EXPECT_FALSE(img::native_reader().info(dir / "a.png", nullptr));
  EXPECT_EQ(ReadFailure(dir / "none.png").what,
            "could not open TGA image for reading or read error");
}

TEST(NativeReader, KnownExtensionsDoNotFallBack) {
  TempDir dir;
  WriteFile(dir / "a.BMP", SmallTga().fill(40, 0).data());
  Failure f = ReadFailure(dir / "a.BMP");
  EXPECT_EQ(f.mode, 0) << f;  // the signature word of a TGA header: id length 0, no map
  EXPECT_EQ(f.value, 0);
  EXPECT_FALSE(img::native_reader().info(dir / "a.BMP", nullptr));
  WriteFile(dir / "b.tga", SmallBmp().data());
  f = ReadFailure(dir / "b.tga");
  EXPECT_EQ(f.kind, "unsupported") << f;
  EXPECT_EQ(f.value, 0);  // the low byte of bfSize read as the image type
}

TEST(NativeReader, FormatWordOverridesTheName) {
  TempDir dir;
  WriteFile(dir / "a.bmp", SmallTga().data());
  img::native_reader reader;
  img::image im;
  reader.read(dir / "a.bmp", "tga", im);
  EXPECT_EQ(Picture(im), std::vector<uint32_t>{0x80402010});
  img::file_info info;
  EXPECT_TRUE(reader.info(dir / "a.bmp", "TGA", &info));
  EXPECT_EQ(info.format, "TGA");
  EXPECT_FALSE(reader.info(dir / "a.bmp", "BMP", &info));
  EXPECT_FALSE(reader.info(dir / "a.bmp", "PNG", &info));
  const Failure f = FailureOf([&] { reader.read(dir / "a.bmp", "PNG", im); });
  EXPECT_EQ(f.kind, "unsupported") << f;
  EXPECT_EQ(f.mode, 0);
  EXPECT_EQ(f.value, 0);
}

// A 3 by 2 picture with distinct bytes, in the given row order and alignment.
img::image Sample(uint32_t top_down, uint32_t alignment) {
  img::image im;
  im.set_top_down(top_down);
  im.resize(3, 2, alignment);
  for (uint32_t y = 0; y < 2; ++y)
    for (uint32_t x = 0; x < 3; ++x)
      for (uint32_t c = 0; c < 4; ++c) im.rows[y][4 * x + c] = uint8_t(0x10 * (y * 3 + x + 1) + c);
  return im;
}

std::vector<uint32_t> WithoutAlpha(std::vector<uint32_t> p) {
  for (auto& v : p) v &= 0xFFFFFF;
  return p;
}

TEST(NativeWriter, BmpWithoutAlphaIsBottomUp24BitWithZeroPadding) {
  TempDir dir;
  const uint64_t bytes = img::native_writer().write(dir / "w.bmp", "BMP", Sample(1, 4), false);
  Bytes expected;
  expected.raw("BM").u32(78).u32(0).u32(54);
  expected.u32(40).i32(3).i32(2).u16(1).u16(24).fill(24, 0);
  expected.raw("\x40\x41\x42\x50\x51\x52\x60\x61\x62").fill(3, 0);
  expected.raw("\x10\x11\x12\x20\x21\x22\x30\x31\x32").fill(3, 0);
  EXPECT_EQ(ReadFile(dir / "w.bmp"), expected.data());
  EXPECT_EQ(bytes, 78u);
}

TEST(NativeWriter, BmpWithAlphaIs32Bit) {
  TempDir dir;
  img::native_writer().write(dir / "w.bmp", "bmp", Sample(0, 4), true);
  Bytes expected;
  expected.raw("BM").u32(78).u32(0).u32(54);
  expected.u32(40).i32(3).i32(2).u16(1).u16(32).fill(24, 0);
  expected.u32(0x43424140).u32(0x53525150).u32(0x63626160);
  expected.u32(0x13121110).u32(0x23222120).u32(0x33323130);
  EXPECT_EQ(ReadFile(dir / "w.bmp"), expected.data());
}

TEST(NativeWriter, TgaHeaderStatesDepthAndRowOrder) {
  TempDir dir;
  img::native_writer().write(dir / "a.tga", "TGA", Sample(1, 4), true);
  Bytes top = Tga{.width = 3, .height = 2, .depth = 32, .descriptor = 32}.Header();
  top.u32(0x13121110).u32(0x23222120).u32(0x33323130);
  top.u32(0x43424140).u32(0x53525150).u32(0x63626160);
  EXPECT_EQ(ReadFile(dir / "a.tga"), top.data());
  const uint64_t bytes = img::native_writer().write(dir / "b.tga", "TGA", Sample(0, 4), false);
  Bytes bottom = Tga{.width = 3, .height = 2, .depth = 24, .descriptor = 0}.Header();
  bottom.raw("\x40\x41\x42\x50\x51\x52\x60\x61\x62\x10\x11\x12\x20\x21\x22\x30\x31\x32");
  EXPECT_EQ(ReadFile(dir / "b.tga"), bottom.data());
  EXPECT_EQ(bytes, 18u + 18u);
}

TEST(NativeWriter, RoundTripsKeepThePicture) {
  TempDir dir;
  for (const char* format : {"BMP", "TGA"}) {
    for (bool alpha : {true, false}) {
      for (uint32_t top_down : {0u, 1u}) {
        for (uint32_t alignment : {1u, 4u, 8u}) {
          const img::image source = Sample(top_down, alignment);
          const std::string name = dir / (std::string("r.") + format);
          const uint64_t bytes = img::native_writer().write(name, format, source, alpha);
          EXPECT_EQ(bytes, std::filesystem::file_size(name));
          img::image back;
          img::native_reader().read(name, back);
          const auto expected = alpha ? Picture(source) : WithoutAlpha(Picture(source));
          EXPECT_EQ(Picture(back), expected) << format << " alpha " << alpha << " top_down "
                                             << top_down << " alignment " << alignment;
        }
      }
    }
  }
}

TEST(NativeWriter, FailuresLeaveNoFile) {
  TempDir dir;
  const Failure unknown =
      FailureOf([&] { img::native_writer().write(dir / "a.png", "PNG", Sample(1, 4), true); });
  EXPECT_EQ(unknown.what, "file format is not supported") << unknown;
  EXPECT_EQ(unknown.file, dir / "a.png");
  EXPECT_FALSE(std::filesystem::exists(dir / "a.png"));

  img::image wide(70000, 1, 4);
  const Failure large =
      FailureOf([&] { img::native_writer().write(dir / "w.tga", "TGA", wide, true); });
  EXPECT_EQ(large.what, "image is too large for the file format") << large;
  EXPECT_EQ(large.file, dir / "w.tga");
  EXPECT_FALSE(std::filesystem::exists(dir / "w.tga"));

  try {
    img::native_writer().write(dir / "no/such/folder.bmp", "BMP", Sample(1, 4), true);
    ADD_FAILURE() << "no failure";
  } catch (const std::ios_base::failure& e) {
    EXPECT_NE(std::string(e.what()).find("folder.bmp"), std::string::npos) << e.what();
  }
}

}  // namespace
