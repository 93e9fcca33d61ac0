// SPDX-License-Identifier: GPL-3.0-or-later
// TGA reader under arbitrary bytes (see fuzz_support::round_trip).
#include <cstdlib>
#include <sstream>

#include "fuzz_target.h"
#include "image_fuzz_support.h"
#include "imaging/tga_codec.h"

using fuzz_support::seed;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return fuzz_support::round_trip(data, size, img::tga::info, img::tga::read, img::tga::write);
}

namespace {

seed header(uint8_t map_type,
            uint8_t image_type,
            uint16_t map_length,
            uint8_t map_entry_size,
            uint16_t width,
            uint16_t height,
            uint8_t depth,
            uint8_t descriptor,
            uint8_t id_length = 0) {
  seed s;
  s.u8(id_length).u8(map_type).u8(image_type).u16(0).u16(map_length).u8(map_entry_size);
  s.u16(0).u16(0).u16(width).u16(height).u8(depth).u8(descriptor);
  return s.fill(id_length, 'v');
}

// Colour map of `n` entries of `entry_size` bits, as a file holds it.
seed& palette(seed& s, uint16_t n, uint8_t entry_size) {
  const uint32_t bytes = entry_size == 15 || entry_size == 16 ? 2
                         : entry_size == 24                   ? 3
                         : entry_size == 32                   ? 4
                                                              : 1;
  for (uint32_t i = 0; i < n; ++i)
    for (uint32_t b = 0; b < bytes; ++b) s.u8(i * 37 + b * 11);
  return s;
}

}  // namespace

std::vector<std::vector<uint8_t>> VelomarFuzzSeeds() {
  std::vector<std::vector<uint8_t>> seeds;
  for (uint8_t descriptor : {0, 32}) {
    // Uncompressed true colour, 3 by 2.
    seeds.push_back(header(0, 2, 0, 0, 3, 2, 32, descriptor | 8, 3).fill(24, 0x5A).bytes);
    seeds.push_back(header(0, 2, 0, 0, 3, 2, 24, descriptor).fill(18, 0x3C).bytes);
    seeds.push_back(header(0, 2, 0, 0, 3, 2, 16, descriptor)
                        .u16(0x7FFF)
                        .u16(1)
                        .u16(0x8000)
                        .u16(0x20)
                        .u16(0x400)
                        .u16(0x1F)
                        .bytes);
    // Colour-mapped, 8-bit indexes, with each entry size.
    for (uint8_t entry : {8, 16, 24, 32}) {
      seed s = header(1, 1, 4, entry, 3, 2, 8, descriptor);
      seeds.push_back(palette(s, 4, entry).u8(0).u8(1).u8(2).u8(3).u8(2).u8(1).bytes);
    }
    // 16-bit indexes into a map.
    {
      seed s = header(1, 1, 3, 24, 2, 2, 16, descriptor);
      seeds.push_back(palette(s, 3, 24).u16(0).u16(2).u16(1).u16(2).bytes);
    }
    // Run-length: run and raw packets crossing rows, and cut at the end.
    seeds.push_back(header(0, 10, 0, 0, 3, 2, 32, descriptor)
                        .u8(0x83)
                        .u32(0x80402010)
                        .u8(0x01)
                        .u32(1)
                        .u32(2)
                        .bytes);
    seeds.push_back(header(0, 10, 0, 0, 3, 2, 24, descriptor)
                        .u8(0x02)
                        .u8(1)
                        .u8(2)
                        .u8(3)
                        .u8(4)
                        .u8(5)
                        .u8(6)
                        .u8(7)
                        .u8(8)
                        .u8(9)
                        .u8(0xFF)
                        .u8(10)
                        .u8(11)
                        .u8(12)
                        .bytes);
    seeds.push_back(
        header(0, 10, 0, 0, 2, 2, 16, descriptor).u8(0x81).u16(0x7C00).u8(0x81).u16(0x3E0).bytes);
    {
      seed s = header(1, 9, 4, 24, 4, 2, 8, descriptor);
      seeds.push_back(palette(s, 4, 24).u8(0x84).u8(3).u8(0x02).u8(0).u8(1).u8(2).bytes);
    }
  }
  return seeds;
}
