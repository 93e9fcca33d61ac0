// SPDX-License-Identifier: GPL-3.0-or-later
// BMP reader under arbitrary bytes (see fuzz_support::round_trip).
#include <cstdlib>
#include <sstream>

#include "fuzz_target.h"
#include "image_fuzz_support.h"
#include "imaging/bmp_codec.h"

using fuzz_support::seed;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return fuzz_support::round_trip(data, size, img::bmp::info, img::bmp::read, img::bmp::write);
}

namespace {

seed header(int32_t width, int32_t height, uint16_t bits, uint32_t off_bits, uint32_t clr_used) {
  seed s;
  s.u16(19778).u32(0).u16(0).u16(0).u32(off_bits);
  s.u32(40).u32(uint32_t(width)).u32(uint32_t(height)).u16(1).u16(bits).u32(0);
  s.u32(0).u32(0).u32(0).u32(clr_used).u32(0);
  return s;
}

// A picture with every byte different enough to show a shifted row.
img::image sample(uint32_t width, uint32_t height, uint32_t top_down) {
  img::image im;
  im.set_top_down(top_down);
  im.resize(width, height, 4);
  for (uint32_t y = 0; y < height; ++y)
    for (uint32_t i = 0; i < width * 4; ++i) im.rows[y][i] = uint8_t(y * 31 + i * 7);
  return im;
}

}  // namespace

std::vector<std::vector<uint8_t>> VelomarFuzzSeeds() {
  std::vector<std::vector<uint8_t>> seeds;
  // 24 and 32 bits from the writer, both row orders and an odd width for padding.
  for (bool alpha : {false, true}) {
    for (uint32_t top_down : {0u, 1u}) {
      std::ostringstream out;
      img::bmp::write(out, sample(5, 3, top_down), alpha);
      seeds.push_back(fuzz_support::bytes_of(out));
    }
  }
  // Top-down 32 bits: a negative height.
  seeds.push_back(header(2, -2, 32, 54, 0).u32(0x11223344).u32(0x55667788).u32(1).u32(2).bytes);
  // 1 bit, 9 by 2: palette of two entries, rows padded to 4 bytes.
  seeds.push_back(
      header(9, 2, 1, 62, 0).u32(0xFF000000).u32(0x00FFFFFF).u32(0x0000A5C3).u32(0x00008001).bytes);
  // 8 bits with biClrUsed 0 (256 entries) and with 4 entries.
  {
    seed s = header(3, 2, 8, 54 + 1024, 0);
    for (int i = 0; i < 256; ++i) s.u32(0x01010101u * uint32_t(i));
    seeds.push_back(s.u32(0x00FF0100).u32(0x00030201).bytes);
  }
  {
    seed s = header(3, 1, 8, 54 + 16, 4);
    s.u32(0x10203040).u32(0x50607080).u32(0x90A0B0C0).u32(0xD0E0F000);
    seeds.push_back(s.u8(0).u8(3).u8(2).u8(0).bytes);
  }
  // Pixels after a gap, at a stated offset.
  seeds.push_back(header(1, 1, 32, 64, 0).fill(10, 0xEE).u32(0xCAFEF00D).bytes);
  return seeds;
}
