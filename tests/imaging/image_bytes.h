// Byte builders for the BMP and TGA files the imaging tests write, a pixel
// reader that ignores row order and padding, and a flattened view of what a
// failed read threw.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "imaging/bitmap.h"
#include "imaging/io_types.h"
#include "imaging/native_io.h"
#include "testing/files.h"

namespace imaging_test {

using testing_support::Bytes;
using testing_support::ReadFile;
using testing_support::TempDir;
using testing_support::WriteFile;
using Pixels = std::vector<uint32_t>;

// File header and 40-byte info header; every field the readers look at is
// a parameter, the rest are 0 apart from biSize 40 and biPlanes 1.
inline Bytes BmpHeader(int32_t width,
                       int32_t height,
                       uint16_t bits,
                       uint32_t off_bits = 54,
                       uint32_t clr_used = 0,
                       uint32_t compression = 0,
                       uint16_t signature = 19778) {
  Bytes b;
  b.u16(signature).u32(0).u16(0).u16(0).u32(off_bits);
  b.u32(40).i32(width).i32(height).u16(1).u16(bits).u32(compression);
  b.u32(0).u32(0).u32(0).u32(clr_used).u32(0);
  return b;
}

struct Tga {
  uint8_t id_length = 0;
  uint8_t map_type = 0;
  uint8_t image_type = 2;
  uint16_t map_length = 0;
  uint8_t map_entry_size = 0;
  uint16_t width = 1;
  uint16_t height = 1;
  uint8_t depth = 32;
  uint8_t descriptor = 0;

  Bytes Header() const {
    Bytes b;
    b.u8(id_length).u8(map_type).u8(image_type).u16(0).u16(map_length).u8(map_entry_size);
    b.u16(0).u16(0).u16(width).u16(height).u8(depth).u8(descriptor);
    b.fill(id_length, 'i');
    return b;
  }
};

// The whole picture, row by row from the top, as 0xAARRGGBB words.
inline Pixels Picture(const img::image& im) {
  Pixels out;
  for (uint32_t y = 0; y < im.height; ++y)
    for (uint32_t x = 0; x < im.width; ++x) {
      const uint8_t* p = im.rows[y] + 4 * x;
      out.push_back(p[0] | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24);
    }
  return out;
}

// Writes `file` as `name` and reads it with the native reader.
inline img::image ReadNative(const std::string& name, const Bytes& file) {
  WriteFile(name, file.data());
  img::image out;
  img::native_reader().read(name, out);
  return out;
}

// What reading `name` threw, as one text: "unsupported <mode> <value>",
// "bad <mode> <value>", or a read error's text, " | " and its detail; "none"
// if the read succeeded. Every failure must name the file it was about.
inline std::string FailureOf(const std::string& name, const char* format = nullptr) {
  img::image out;
  try {
    format ? img::native_reader().read(name, format, out) : img::native_reader().read(name, out);
  } catch (const img::io_error& e) {
    EXPECT_EQ(e.file(), name) << e.what();
    auto numbers = [](const auto& e) {
      return std::to_string(e.mode) + " " + std::to_string(e.value);
    };
    if (const auto* u = dynamic_cast<const img::unsupported*>(&e)) {
      EXPECT_STREQ(e.what(), "unsupported image file format mode");
      return "unsupported " + numbers(*u);
    }
    if (const auto* b = dynamic_cast<const img::bad*>(&e)) {
      EXPECT_STREQ(e.what(), "corrupt image file format");
      return "bad " + numbers(*b);
    }
    return e.what() + std::string(" | ") + e.detail();
  }
  return "none";
}

inline std::string FailureOf(const std::string& name, const Bytes& file) {
  WriteFile(name, file.data());
  return FailureOf(name);
}

}  // namespace imaging_test
