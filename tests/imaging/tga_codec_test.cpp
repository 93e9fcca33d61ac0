#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "image_bytes.h"

namespace {

using namespace imaging_test;
using testing::HasSubstr;
using testing::StartsWith;

constexpr uint8_t kTopLeft = 32;  // descriptor bit 5

Bytes Concat(const Bytes& head, const Bytes& tail) {
  return Bytes(head).append(tail.data());
}

// A file with a colour map, its first entry at 0.
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

TEST(TgaReader, DecodesEveryLayoutAndRowOrder) {
  TempDir dir;
  auto expect = [&](const char* name, Tga tga, const Bytes& body, uint32_t top_down,
                    const Pixels& picture) {
    const img::image im = ReadNative(dir / "t.tga", Concat(tga.Header(), body));
    EXPECT_EQ(im.top_down, top_down) << name;
    EXPECT_EQ(Picture(im), picture) << name;
  };
  // Uncompressed pixels keep the file's row order; the low descriptor bits are alpha depth.
  expect("Bgra32BottomUp", Tga{.width = 2, .height = 2},
         Bytes().u32(0x04030201).u32(0x08070605).u32(0x14131211).u32(0x18171615), 0,
         {0x14131211, 0x18171615, 0x04030201, 0x08070605});
  expect("Bgra32TopDown", Tga{.width = 2, .height = 2, .descriptor = kTopLeft},
         Bytes().u32(1).u32(2).u32(3).u32(4), 1, {1, 2, 3, 4});
  expect("AlphaBitsIgnored", Tga{.width = 2, .descriptor = kTopLeft | 0x1F},
         Bytes().u32(0x14131211).u32(5), 1, {0x14131211, 5});
  expect("Rgb24Unpadded", Tga{.width = 3, .height = 2, .depth = 24, .descriptor = kTopLeft},
         Bytes().raw("\x01\x02\x03\x04\x05\x06\x07\x08\x09\x11\x12\x13\x14\x15\x16\x17\x18\x19"), 1,
         {0x030201, 0x060504, 0x090807, 0x131211, 0x161514, 0x191817});
  expect("Rgb16", Tga{.width = 3, .height = 2, .depth = 16, .descriptor = kTopLeft},
         Bytes().u16(0x7FFF).u16(0x0001).u16(0x8000).u16(0x0020).u16(0x0400).u16(0xFC1F), 1,
         {0xFFFFFF, 0x000008, 0, 0x000800, 0x080000, 0xFF00FF});
  expect("Rgb15", Tga{.width = 3, .depth = 15, .descriptor = kTopLeft},
         Bytes().u16(0x7C00).u16(0x03E0).u16(0x001F), 1, {0xFF0000, 0xFF00, 0xFF});
  // Colour maps start after the id field; their entries read with alpha 0.
  Tga with_id = Map(1, 2, 24, 2, 8);
  with_id.id_length = 5;
  expect("MapBgr24", with_id, Bytes().raw("\x01\x02\x03\x04\x05\x06").u8(1).u8(0), 0,
         {0x060504, 0x030201});
  with_id.map_entry_size = 16;
  expect("MapRgb16", with_id, Bytes().u16(0).u16(0x7C01).u8(1).u8(0), 0, {0xFF0008, 0});
  with_id.map_entry_size = 15;
  expect("MapRgb15", with_id, Bytes().u16(0).u16(0x03E0).u8(1).u8(0), 0, {0x00FF00, 0});
  with_id.map_entry_size = 8;
  expect("MapGrey8", with_id, Bytes().u8(0).u8(0x42).u8(1).u8(0), 0, {0x424242, 0});
  // A 32-bit map is consumed three bytes an entry, so the pixels are read
  // from inside its last entry: entries (0,0,0) (FF,1,1) (1,FF,2) (2,2,FF),
  // pixels 3, 3. Files depend on this reading.
  expect("Map32ReadAsThreeBytes", Map(1, 4, 32, 2, 8),
         Bytes().u32(0xFF000000).u32(0xFF010101).u32(0xFF020202).u32(0xFF030303).u8(0).u8(1), 0,
         {0xFF0202, 0xFF0202});
  expect("SixteenBitIndexes", Map(1, 300, 24, 2, 16), WideMap(256), 0, {0x07012B, 0x070100});
  // Packets run across rows and are cut at the end; RLE pictures always end top-down.
  const Tga rle{.image_type = 10, .width = 3, .height = 2, .descriptor = kTopLeft};
  expect("RunCrossesRow", rle, Bytes().u8(0x83).u32(0xAA000001).u8(0x01).u32(2).u32(3), 1,
         {0xAA000001, 0xAA000001, 0xAA000001, 0xAA000001, 2, 3});
  expect("RawCrossesRow", rle, Bytes().u8(0x03).u32(1).u32(2).u32(3).u32(4).u8(0x81).u32(5), 1,
         {1, 2, 3, 4, 5, 5});
  const Tga bottom_up{.image_type = 10, .width = 2, .height = 2};
  expect("RunPastLastRow", bottom_up, Bytes().u8(0xFF).u32(9), 1, {9, 9, 9, 9});
  expect("RawPastLastRow", bottom_up, Bytes().u8(0x7F).u32(1).u32(2).u32(3).u32(4), 1,
         {3, 4, 1, 2});
  expect("RleRgb24", Tga{.image_type = 10, .width = 3, .depth = 24, .descriptor = kTopLeft},
         Bytes().u8(0x82).raw("\x01\x02\x03"), 1, {0x030201, 0x030201, 0x030201});
  expect("Rle16IgnoresMap", Map(10, 1, 8, 3, 16),
         Bytes().u8(0x55).u8(0x80).u16(0x7FFF).u8(0x01).u16(0x0001).u16(0x0400), 1,
         {0xFFFFFF, 0x000008, 0x080000});
  expect("RleMapped8", Map(9, 2, 24, 3, 8),
         Bytes().raw("\x01\x02\x03\x04\x05\x06").u8(0x81).u8(1).u8(0x00).u8(0), 1,
         {0x060504, 0x060504, 0x030201});
}

TEST(TgaReader, RejectsHeadersInOrderAndIndexesPastTheMap) {
  const std::pair<Tga, const char*> headers[] = {
      {Tga{.image_type = 0}, "unsupported 0 0"},
      {Tga{.image_type = 12}, "unsupported 0 12"},
      {Tga{.image_type = 255, .descriptor = 0xC0}, "unsupported 0 255"},  // type first
      {Tga{.descriptor = 0x40}, "unsupported 3 0"},
      {Tga{.descriptor = 0x80}, "unsupported 3 0"},
      {Tga{.depth = 8, .descriptor = 0x80}, "unsupported 3 0"},  // descriptor before depth
      {Tga{.map_type = 1, .depth = 24}, "bad 0 0"},
      {Tga{.map_type = 2, .image_type = 10, .depth = 32}, "bad 0 0"},
      {Tga{.image_type = 3, .depth = 8}, "unsupported 6 0"},
      {Tga{.depth = 12}, "unsupported 6 0"},
  };
  TempDir dir;
  for (const auto& [tga, expected] : headers) {
    EXPECT_EQ(FailureOf(dir / "t.tga", tga.Header().fill(64, 0)), expected);
    EXPECT_FALSE(img::native_reader().info(dir / "t.tga", nullptr)) << expected;
  }
  const Tga wide{.map_type = 1,
                 .image_type = 1,
                 .map_length = 300,
                 .map_entry_size = 24,
                 .width = 2,
                 .depth = 16};
  EXPECT_EQ(FailureOf(dir / "t.tga", Concat(wide.Header(), WideMap(300))), "bad 1 300");
  const Tga rle{
      .map_type = 1, .image_type = 9, .map_length = 2, .map_entry_size = 8, .width = 4, .depth = 8};
  const Bytes body = Bytes().u8(0).u8(1).u8(0x81).u8(1).u8(0x81).u8(2);
  EXPECT_EQ(FailureOf(dir / "t.tga", Concat(rle.Header(), body)), "bad 1 2");
}

TEST(TgaReader, ShortAndLyingFilesGiveTheReadErrorWithoutAllocating) {
  const std::pair<Bytes, const char*> cases[] = {
      {Bytes().u8(0).u8(0).u8(2), ""},
      {Tga{.id_length = 9}.Header(), ""},  // the id is written whole, pixels missing
      {Map(1, 4, 24, 1, 8).Header().u8(1), ""},
      {Tga{.width = 2}.Header().u32(1).u16(2), "claims 8 bytes of pixels, but 6"},
      {Tga{.width = 30000, .height = 30000}.Header().u32(0), "claims 3600000000 bytes"},
      {Tga{.image_type = 10, .width = 30000, .height = 30000}.Header().u8(0xFF).u32(0),
       "claims 35156250 bytes"},
      {Tga{.image_type = 10, .width = 2, .height = 2}.Header().u8(0x81).u32(0), ""},
      {Tga{.image_type = 10, .width = 65535, .height = 65535}.Header(), "too large"},
  };
  TempDir dir;
  for (const auto& [bytes, detail] : cases) {
    const std::string got = FailureOf(dir / "t.tga", bytes);
    EXPECT_THAT(got, StartsWith("could not open TGA image for reading or read error | "));
    EXPECT_THAT(got, HasSubstr(detail));
  }
}

TEST(TgaReader, InfoReportsTheHeader) {
  TempDir dir;
  Bytes file = Tga{.image_type = 10, .width = 300, .height = 2, .depth = 16}.Header();
  for (int i = 1; i <= 5; ++i) file.u8(0xFF).u16(i);
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
