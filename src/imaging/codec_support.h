// SPDX-License-Identifier: GPL-3.0-or-later
// Small helpers shared by the BMP and TGA codecs: little-endian fields,
// stream sizes, and the checks that keep a lying header from allocating.
#pragma once

#include <cstdint>
#include <istream>
#include <string>

#include "imaging/io_types.h"

namespace img::codec {

inline uint16_t get16(const uint8_t* p) {
  return uint16_t(p[0] | (p[1] << 8));
}
inline uint32_t get32(const uint8_t* p) {
  return uint32_t(p[0]) | (uint32_t(p[1]) << 8) | (uint32_t(p[2]) << 16) | (uint32_t(p[3]) << 24);
}
inline void put16(uint8_t* p, uint32_t v) {
  p[0] = uint8_t(v);
  p[1] = uint8_t(v >> 8);
}
inline void put32(uint8_t* p, uint32_t v) {
  put16(p, v);
  put16(p + 2, v >> 16);
}

// Reads exactly n bytes; the stream's exception mask turns a short read
// into its failure.
inline void read_exact(std::istream& in, void* to, uint64_t n) {
  if (n) in.read(static_cast<char*>(to), std::streamsize(n));
}

// The stream's current position; a stream that cannot tell fails as a read error.
std::streamoff position(std::istream& in);

// Bytes from `from` to the end of the stream (0 when `from` lies past it).
// The stream's position is left where it was.
uint64_t bytes_from(std::istream& in, std::streamoff from);

// Throws io_error(`text`) with a detail saying why, when an image of
// width x height would not fit the 32-bit byte count of img::bitmap (or is
// zero pixels wide and higher than 65535 rows, which no file backs), or
// when the file holds fewer than `claimed` bytes of pixels after the header.
// Both checks run before anything is allocated.
void check_fits(const char* text, uint64_t width, uint64_t height);
void check_claim(const char* text, uint64_t claimed, uint64_t left);

// Runs `read_checked(in)` with the stream's exception mask raised. An
// io_error passes unchanged; any other failure (a short file, a failed
// stream, memory) becomes io_error(`text`): one text for all of them.
template <class ReadChecked>
void translate_read_errors(const char* text, std::istream& in, ReadChecked read_checked) {
  try {
    in.exceptions(std::ios::failbit | std::ios::badbit);
    read_checked(in);
  } catch (const io_error&) {
    throw;
  } catch (const std::exception&) {
    throw io_error(text);
  }
}

// ASCII comparison without regard to case.
bool iequals(const std::string& a, const char* b);
// Whether the last four characters of `name` are `ext4` (".BMP"), without regard to case.
bool has_extension(const std::string& name, const char* ext4);

// c * 255 / 31 for the three 5-bit channels of a little-endian 5-5-5 word,
// into blue, green, red.
inline void expand555(uint32_t word, uint8_t* bgr) {
  bgr[0] = uint8_t((word & 31) * 255 / 31);
  bgr[1] = uint8_t(((word >> 5) & 31) * 255 / 31);
  bgr[2] = uint8_t(((word >> 10) & 31) * 255 / 31);
}

}  // namespace img::codec
