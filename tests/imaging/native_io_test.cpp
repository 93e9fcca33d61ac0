#include <gtest/gtest.h>

#include <filesystem>

#include "image_bytes.h"

namespace {

using namespace imaging_test;

const Bytes kTga = Tga{.width = 1}.Header().u32(0x80402010);
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

// The files written are byte for byte what other programs expect: BMP is
// bottom-up with zero padding, TGA keeps the picture's row order.
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
      {"BMP", Sample(1), false,
       Bytes(bmp).u16(24).fill(24, 0).raw(kBottomRow).fill(3, 0).raw(kTopRow).fill(3, 0)},
      {"bmp", Sample(0), true, Bytes(bmp).u16(32).fill(24, 0).raw(kBottom32).raw(kTop32)},
      {"TGA", Sample(1), true,
       Tga{.width = 3, .height = 2, .descriptor = 32}.Header().raw(kTop32).raw(kBottom32)},
      {"TGA", Sample(0), false,
       Tga{.width = 3, .height = 2, .depth = 24}.Header().raw(kBottomRow).raw(kTopRow)},
  };
  TempDir dir;
  for (const auto& c : cases) {
    const uint64_t bytes = img::native_writer().write(dir / "w", c.format, c.picture, c.alpha);
    EXPECT_EQ(ReadFile(dir / "w"), c.file.data()) << c.format << " alpha " << c.alpha;
    EXPECT_EQ(bytes, c.file.size());
  }
}

TEST(NativeWriter, RoundTripsKeepThePicture) {
  TempDir dir;
  for (const char* format : {"BMP", "TGA"})
    for (bool alpha : {true, false})
      for (uint32_t top_down : {0u, 1u})
        for (uint32_t alignment : {1u, 4u, 8u}) {
          const img::image source = Sample(top_down, alignment);
          const std::string name = dir / (std::string("r.") + format);
          img::native_writer().write(name, format, source, alpha);
          Pixels expected = Picture(source);
          for (auto& v : expected) v &= alpha ? ~0u : 0xFFFFFFu;
          img::image back;
          img::native_reader().read(name, back);
          EXPECT_EQ(Picture(back), expected) << format << " alpha " << alpha << " top_down "
                                             << top_down << " alignment " << alignment;
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
