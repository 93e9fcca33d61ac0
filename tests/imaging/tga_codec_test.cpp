#include <gtest/gtest.h>

#include "image_bytes.h"
#include "imaging/native_io.h"

namespace {

using imaging_test::Bytes;
using imaging_test::Failure;
using imaging_test::Picture;
using imaging_test::ReadFailure;
using imaging_test::Tga;
using testing_support::TempDir;
using testing_support::WriteFile;

constexpr const char* kTgaError = "could not open TGA image for reading or read error";
constexpr uint8_t kTopLeft = 32;  // descriptor bit 5

img::image ReadBytes(const TempDir& dir, const Bytes& file) {
  WriteFile(dir / "t.tga", file.data());
  img::native_reader reader;
  img::image out;
  reader.read(dir / "t.tga", out);
  return out;
}

Failure FailureOfBytes(const TempDir& dir, const Bytes& file) {
  WriteFile(dir / "t.tga", file.data());
  return ReadFailure(dir / "t.tga");
}

TEST(TgaReader, UncompressedThirtyTwoBitsKeepTheFileRowOrder) {
  const std::vector<uint32_t> picture = {0x14131211, 0x18171615, 0x04030201, 0x08070605};
  for (uint8_t descriptor : {uint8_t(0), kTopLeft, uint8_t(kTopLeft | 0x1F)}) {
    TempDir dir;
    Bytes file = Tga{.width = 2, .height = 2, .descriptor = descriptor}.Header();
    const bool top_first = descriptor & kTopLeft;
    for (int line = 0; line < 2; ++line) {
      const int y = top_first ? line : 1 - line;
      file.u32(picture[2 * y]).u32(picture[2 * y + 1]);
    }
    const img::image im = ReadBytes(dir, file);
    EXPECT_EQ(im.top_down, top_first ? 1u : 0u);
    EXPECT_EQ(Picture(im), picture) << "descriptor " << int(descriptor);
  }
}

TEST(TgaReader, UncompressedTrueColourDepths) {
  struct Case {
    const char* name;
    uint8_t depth;
    Bytes pixels;  // 3 by 2, top row first
    std::vector<uint32_t> picture;
  };
  const Case cases[] = {
      {"Rgb24Unpadded",
       24,
       Bytes().raw("\x01\x02\x03\x04\x05\x06\x07\x08\x09\x11\x12\x13\x14\x15\x16\x17\x18\x19"),
       {0x030201, 0x060504, 0x090807, 0x131211, 0x161514, 0x191817}},
      {"Rgb16",
       16,
       Bytes().u16(0x7FFF).u16(0x0001).u16(0x8000).u16(0x0020).u16(0x0400).u16(0xFC1F),
       {0xFFFFFF, 0x000008, 0, 0x000800, 0x080000, 0xFF00FF}},
      {"Rgb15",
       15,
       Bytes().u16(0x7C00).u16(0x03E0).u16(0x001F).fill(6, 0),
       {0xFF0000, 0xFF00, 0xFF, 0, 0, 0}},
  };
  for (const auto& c : cases) {
    TempDir dir;
    Bytes file = Tga{.width = 3, .height = 2, .depth = c.depth, .descriptor = kTopLeft}.Header();
    file.append(c.pixels.data());
    EXPECT_EQ(Picture(ReadBytes(dir, file)), c.picture) << c.name;
  }
}

TEST(TgaReader, ColourMapEntriesBySizeAfterTheIdField) {
  struct Case {
    const char* name;
    uint8_t entry_size;
    Bytes map;  // two entries
    uint32_t second;
  };
  const Case cases[] = {
      {"Bgr24", 24, Bytes().raw("\x01\x02\x03\x04\x05\x06"), 0x060504},
      {"Rgb16", 16, Bytes().u16(0).u16(0x7C01), 0xFF0008},
      {"Rgb15", 15, Bytes().u16(0).u16(0x03E0), 0x00FF00},
      {"Grey8", 8, Bytes().u8(0).u8(0x42), 0x424242},
  };
  for (const auto& c : cases) {
    TempDir dir;
    Bytes file = Tga{.id_length = 5,
                     .map_type = 1,
                     .image_type = 1,
                     .map_length = 2,
                     .map_entry_size = c.entry_size,
                     .width = 2,
                     .depth = 8}
                     .Header();
    file.append(c.map.data()).u8(1).u8(0);
    const std::vector<uint32_t> picture = Picture(ReadBytes(dir, file));
    ASSERT_EQ(picture.size(), 2u) << c.name;
    EXPECT_EQ(picture[0], c.second) << c.name;  // alpha 0 in every case
  }
}

// A 32-bit colour map is consumed three bytes an entry, so the pixels are
// read from inside the map's last entry. Files depend on this reading.
TEST(TgaReader, ThirtyTwoBitColourMapEntriesAreReadAsThreeBytes) {
  TempDir dir;
  Bytes file = Tga{.map_type = 1,
                   .image_type = 1,
                   .map_length = 4,
                   .map_entry_size = 32,
                   .width = 2,
                   .depth = 8}
                   .Header();
  file.u32(0xFF000000).u32(0xFF010101).u32(0xFF020202).u32(0xFF030303);
  file.u8(0).u8(1);
  // Entries read: (0,0,0) (FF,1,1) (1,FF,2) (2,2,FF); the pixels are the bytes 3, 3.
  EXPECT_EQ(Picture(ReadBytes(dir, file)), (std::vector<uint32_t>{0xFF0202, 0xFF0202}));
}

TEST(TgaReader, SixteenBitPixelsWithAMapAreIndexes) {
  TempDir dir;
  Tga tga{.map_type = 1,
          .image_type = 1,
          .map_length = 300,
          .map_entry_size = 24,
          .width = 2,
          .depth = 16};
  Bytes map;
  for (int i = 0; i < 300; ++i) map.u8(i).u8(i >> 8).u8(7);
  Bytes file = tga.Header();
  file.append(map.data()).u16(299).u16(256);
  EXPECT_EQ(Picture(ReadBytes(dir, file)), (std::vector<uint32_t>{0x07012B, 0x070100}));
  file = tga.Header();
  file.append(map.data()).u16(299).u16(300);
  const Failure f = FailureOfBytes(dir, file);
  EXPECT_EQ(f.kind, "bad") << f;
  EXPECT_EQ(f.mode, 1);
  EXPECT_EQ(f.value, 300);
}

TEST(TgaReader, RunPacketCrossingRowContinuesOnNextRow) {
  TempDir dir;
  Bytes file = Tga{.image_type = 10, .width = 3, .height = 2, .descriptor = kTopLeft}.Header();
  file.u8(0x83).u32(0xAA000001);                  // run of 4
  file.u8(0x01).u32(0xBB000002).u32(0xCC000003);  // raw 2
  const img::image im = ReadBytes(dir, file);
  EXPECT_EQ(Picture(im), (std::vector<uint32_t>{0xAA000001, 0xAA000001, 0xAA000001, 0xAA000001,
                                                0xBB000002, 0xCC000003}));
}

TEST(TgaReader, RawPacketCrossingRowContinuesOnNextRow) {
  TempDir dir;
  Bytes file = Tga{.image_type = 10, .width = 3, .height = 2, .descriptor = kTopLeft}.Header();
  file.u8(0x03).u32(1).u32(2).u32(3).u32(4);  // raw 4
  file.u8(0x81).u32(5);                       // run 2
  EXPECT_EQ(Picture(ReadBytes(dir, file)), (std::vector<uint32_t>{1, 2, 3, 4, 5, 5}));
}

TEST(TgaReader, PacketsRunningPastTheLastRowAreCut) {
  TempDir dir;
  Bytes run = Tga{.image_type = 10, .width = 2, .height = 2}.Header();
  run.u8(0xFF).u32(9);  // 128 pixels for 4, and the file ends here
  EXPECT_EQ(Picture(ReadBytes(dir, run)), (std::vector<uint32_t>{9, 9, 9, 9}));
  Bytes raw = Tga{.image_type = 10, .width = 2, .height = 2}.Header();
  raw.u8(0x7F).u32(1).u32(2).u32(3).u32(4);  // 128 announced, 4 present
  EXPECT_EQ(Picture(ReadBytes(dir, raw)), (std::vector<uint32_t>{3, 4, 1, 2}));
}

TEST(TgaReader, BottomLeftRleEndsTopDownWithTheSamePictureAsUncompressed) {
  TempDir dir;
  Bytes plain = Tga{.width = 2, .height = 2}.Header();
  plain.u32(3).u32(4).u32(1).u32(2);  // bottom row first
  Bytes rle = Tga{.image_type = 10, .width = 2, .height = 2}.Header();
  rle.u8(0x03).u32(3).u32(4).u32(1).u32(2);
  const img::image a = ReadBytes(dir, plain);
  const img::image b = ReadBytes(dir, rle);
  EXPECT_EQ(a.top_down, 0u);
  EXPECT_EQ(b.top_down, 1u);
  EXPECT_EQ(Picture(a), (std::vector<uint32_t>{1, 2, 3, 4}));
  EXPECT_EQ(Picture(b), Picture(a));
}

TEST(TgaReader, RlePixelsOfEachDepth) {
  struct Case {
    const char* name;
    Tga tga;
    Bytes body;
    std::vector<uint32_t> picture;
  };
  const Case cases[] = {
      {"Rgb24",
       Tga{.image_type = 10, .width = 3, .depth = 24, .descriptor = kTopLeft},
       Bytes().u8(0x82).raw("\x01\x02\x03"),
       {0x030201, 0x030201, 0x030201}},
      {"Rgb16IgnoresMap",
       Tga{.map_type = 1,
           .image_type = 10,
           .map_length = 1,
           .map_entry_size = 8,
           .width = 3,
           .depth = 16},
       Bytes().u8(0x55).u8(0x80).u16(0x7FFF).u8(0x01).u16(0x0001).u16(0x0400),
       {0xFFFFFF, 0x000008, 0x080000}},
      {"Mapped8",
       Tga{.map_type = 1,
           .image_type = 9,
           .map_length = 2,
           .map_entry_size = 24,
           .width = 3,
           .depth = 8},
       Bytes().raw("\x01\x02\x03\x04\x05\x06").u8(0x81).u8(1).u8(0x00).u8(0),
       {0x060504, 0x060504, 0x030201}},
  };
  for (const auto& c : cases) {
    TempDir dir;
    Bytes file = c.tga.Header();
    file.append(c.body.data());
    EXPECT_EQ(Picture(ReadBytes(dir, file)), c.picture) << c.name;
  }
}

TEST(TgaReader, RleIndexPastTheMapIsCorrupt) {
  TempDir dir;
  Bytes file = Tga{.map_type = 1,
                   .image_type = 9,
                   .map_length = 2,
                   .map_entry_size = 8,
                   .width = 4,
                   .depth = 8}
                   .Header();
  file.u8(0).u8(1).u8(0x81).u8(1).u8(0x81).u8(2);
  const Failure f = FailureOfBytes(dir, file);
  EXPECT_EQ(f.kind, "bad") << f;
  EXPECT_EQ(f.what, "corrupt image file format");
  EXPECT_EQ(f.mode, 1);
  EXPECT_EQ(f.value, 2);
}

TEST(TgaReader, RejectsHeadersInOrder) {
  struct Case {
    const char* name;
    Tga tga;
    const char* kind;
    int mode;
    int64_t value;
  };
  const Case cases[] = {
      {"Type0", Tga{.image_type = 0}, "unsupported", 0, 0},
      {"Type12", Tga{.image_type = 12}, "unsupported", 0, 12},
      {"TypeBeforeDescriptor", Tga{.image_type = 255, .descriptor = 0xC0}, "unsupported", 0, 255},
      {"DescriptorBit6", Tga{.descriptor = 0x40}, "unsupported", 3, 0},
      {"DescriptorBit7", Tga{.descriptor = 0x80}, "unsupported", 3, 0},
      {"DescriptorBeforeDepth", Tga{.depth = 8, .descriptor = 0x80}, "unsupported", 3, 0},
      {"TrueColourWithMap24", Tga{.map_type = 1, .depth = 24}, "bad", 0, 0},
      {"TrueColourWithMap32", Tga{.map_type = 2, .image_type = 10, .depth = 32}, "bad", 0, 0},
      {"GreyWithoutMap", Tga{.image_type = 3, .depth = 8}, "unsupported", 6, 0},
      {"Depth12WithoutMap", Tga{.depth = 12}, "unsupported", 6, 0},
  };
  for (const auto& c : cases) {
    TempDir dir;
    Bytes file = c.tga.Header();
    file.fill(64, 0);
    const Failure f = FailureOfBytes(dir, file);
    EXPECT_EQ(f.kind, c.kind) << c.name << ": " << f;
    EXPECT_EQ(f.mode, c.mode) << c.name;
    EXPECT_EQ(f.value, c.value) << c.name;
    EXPECT_EQ(f.file, dir / "t.tga") << c.name;
    EXPECT_FALSE(img::native_reader().info(dir / "t.tga", nullptr)) << c.name;
  }
}

TEST(TgaReader, ShortAndLyingFilesGiveTheReadErrorWithoutAllocating) {
  struct Case {
    const char* name;
    Bytes bytes;
    const char* detail;
  };
  const Case cases[] = {
      {"HeaderCut", Bytes().u8(0).u8(0).u8(2), ""},
      {"IdCut", Tga{.id_length = 9}.Header(), ""},  // the id is written whole, pixels missing
      {"MapCut",
       Tga{.map_type = 1, .image_type = 1, .map_length = 4, .map_entry_size = 24, .depth = 8}
           .Header()
           .u8(1),
       ""},
      {"PixelsCut", Tga{.width = 2}.Header().u32(1).u16(2), "claims 8 bytes of pixels, but 6"},
      {"HugeUncompressed", Tga{.width = 30000, .height = 30000}.Header().u32(0),
       "claims 3600000000 bytes"},
      {"HugeRle", Tga{.image_type = 10, .width = 30000, .height = 30000}.Header().u8(0xFF).u32(0),
       "claims 35156250 bytes"},
      {"RleEndsEarly", Tga{.image_type = 10, .width = 2, .height = 2}.Header().u8(0x81).u32(0), ""},
      {"Past32Bits", Tga{.image_type = 10, .width = 65535, .height = 65535}.Header(), "too large"},
  };
  for (const auto& c : cases) {
    TempDir dir;
    const Failure f = FailureOfBytes(dir, c.bytes);
    EXPECT_EQ(f.kind, "io_error") << c.name << ": " << f;
    EXPECT_EQ(f.what, kTgaError) << c.name;
    EXPECT_EQ(f.file, dir / "t.tga") << c.name;
    EXPECT_NE(f.detail.find(c.detail), std::string::npos) << c.name << ": " << f;
  }
}

TEST(TgaReader, InfoReportsTheHeader) {
  TempDir dir;
  Bytes file = Tga{.image_type = 10, .width = 300, .height = 2, .depth = 16}.Header();
  file.u8(0xFF).u16(1).u8(0xFF).u16(2).u8(0xFF).u16(3).u8(0xFF).u16(4).u8(0xFF).u16(5);
  WriteFile(dir / "i.tga", file.data());
  img::file_info info;
  ASSERT_TRUE(img::native_reader().info(dir / "i.tga", &info));
  EXPECT_EQ(info.format, "TGA");
  EXPECT_EQ(info.width, 300u);
  EXPECT_EQ(info.height, 2u);
  EXPECT_EQ(info.bit_count, 16u);
  EXPECT_FALSE(info.uncompressed);
}

}  // namespace
