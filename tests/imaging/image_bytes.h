// Byte builders for the BMP and TGA files the imaging tests write, and a
// pixel reader that ignores row order and padding.
#pragma once

#include <cstdint>
#include <string>

#include "imaging/bitmap.h"
#include "testing/files.h"

namespace imaging_test {

using testing_support::Bytes;

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

// Pixel (x, y) of the picture, counted from its top, as 0xAARRGGBB.
inline uint32_t Px(const img::image& im, uint32_t x, uint32_t y) {
  const uint8_t* p = im.rows[y] + 4 * x;
  return uint32_t(p[0]) | (uint32_t(p[1]) << 8) | (uint32_t(p[2]) << 16) | (uint32_t(p[3]) << 24);
}

// The whole picture, row by row from the top, as 0xAARRGGBB words.
inline std::vector<uint32_t> Picture(const img::image& im) {
  std::vector<uint32_t> out;
  for (uint32_t y = 0; y < im.height; ++y)
    for (uint32_t x = 0; x < im.width; ++x) out.push_back(Px(im, x, y));
  return out;
}

}  // namespace imaging_test

#include <ostream>

#include "imaging/io_types.h"
#include "imaging/native_io.h"

namespace imaging_test {

// What a failed read threw, flattened so that a table can hold the expectation.
struct Failure {
  std::string kind;  // "unsupported", "bad", "io_error" or "none"
  std::string what;
  int mode = -1;
  int64_t value = -1;
  std::string file;
  std::string detail;
};

inline std::ostream& operator<<(std::ostream& os, const Failure& f) {
  return os << f.kind << " \"" << f.what << "\" mode " << f.mode << " value " << f.value << " file "
            << f.file << " detail \"" << f.detail << "\"";
}

template <class Read>
Failure FailureOf(Read&& read) {
  try {
    read();
  } catch (const img::unsupported& e) {
    return {"unsupported", e.what(), e.mode, e.value, e.file(), e.detail()};
  } catch (const img::bad& e) {
    return {"bad", e.what(), e.mode, e.value, e.file(), e.detail()};
  } catch (const img::io_error& e) {
    return {"io_error", e.what(), -1, -1, e.file(), e.detail()};
  }
  Failure none;
  none.kind = "none";
  return none;
}

inline Failure ReadFailure(const std::string& name) {
  img::native_reader reader;
  img::image out;
  return FailureOf([&] { reader.read(name, out); });
}

}  // namespace imaging_test
