// SPDX-License-Identifier: GPL-3.0-or-later
#include "imaging/bmp_codec.h"

#include <array>
#include <cstring>
#include <istream>
#include <ostream>

#include "imaging/codec_support.h"

namespace img::bmp {

namespace {

constexpr uint16_t kSignature = 19778;  // "BM" read as a little-endian word
constexpr uint32_t kHeaderBytes = 54;   // 14 of file header, 40 of info header

struct header {
  uint16_t type = 0;
  uint32_t off_bits = 0;
  int32_t width = 0;
  int32_t height = 0;
  uint16_t bit_count = 0;
  uint32_t compression = 0;
  uint32_t clr_used = 0;
};

header read_header(std::istream& in) {
  uint8_t b[kHeaderBytes];
  codec::read_exact(in, b, sizeof b);
  header h;
  h.type = codec::get16(b + 0);
  h.off_bits = codec::get32(b + 10);
  h.width = int32_t(codec::get32(b + 18));
  h.height = int32_t(codec::get32(b + 22));
  h.bit_count = codec::get16(b + 28);
  h.compression = codec::get32(b + 30);
  h.clr_used = codec::get32(b + 46);
  return h;
}

// The rejections of a header, in the order the format's users see them.
void check(const header& h) {
  if (h.type != kSignature) throw unsupported(0, h.type);
  if (h.compression != 0) throw unsupported(1, h.compression);
  if (h.width < 0) throw unsupported(4, h.width);
  if (h.bit_count != 1 && h.bit_count != 8 && h.bit_count != 24 && h.bit_count != 32)
    throw unsupported(2, h.bit_count);
}

// What the header promises once it has passed check().
struct layout {
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t top_down = 0;
  uint64_t palette_entries = 0;  // entries in the file: 2, biClrUsed (0 -> 256) or 0
  uint64_t pixel_bytes = 0;      // rows padded to 4 bytes
};

// Checks the promise against the bytes in the file before anything is
// allocated. `start` is the position of the file header; the stream stands
// right after the 54 header bytes.
layout plan(std::istream& in, const header& h, std::streamoff start) {
  layout l;
  l.width = uint32_t(h.width);
  l.height = uint32_t(h.height < 0 ? -int64_t(h.height) : int64_t(h.height));
  l.top_down = h.height < 0 ? 1 : 0;
  if (h.bit_count == 1) l.palette_entries = 2;
  if (h.bit_count == 8) l.palette_entries = h.clr_used ? h.clr_used : 256;

  codec::check_fits(kReadError, l.width, l.height);
  const uint64_t row = (uint64_t(l.width) * h.bit_count + 7) / 8;
  l.pixel_bytes = (row + 3) / 4 * 4 * l.height;
  codec::check_claim(kReadError, l.palette_entries * 4, codec::bytes_from(in, codec::position(in)));
  codec::check_claim(kReadError, l.pixel_bytes, codec::bytes_from(in, start + h.off_bits));
  return l;
}

// Reads the pixel block of the file's own depth, bottom-up or top-down as the file says.
template <class Kind>
void read_pixels(std::istream& in, const layout& l, bitmap<Kind>& to) {
  to.set_top_down(l.top_down);
  to.resize(l.width, l.height, 4);
  codec::read_exact(in, to.data, to.size);
}

// The destination of a palette lookup: the source's size and row order.
template <class Kind>
void prepare_like(image& out, const bitmap<Kind>& src) {
  out.set_top_down(src.top_down);
  if (out.width != src.width || out.height != src.height) out.resize(src.width, src.height, 4);
}

// Palette entries are blue, green, red and a fourth byte, which becomes alpha.
void lookup8(const bitmap<grey8>& src, const uint8_t* palette, uint64_t entries, image& out) {
  prepare_like(out, src);
  for (uint32_t y = 0; y < src.height; ++y) {
    const uint8_t* s = src.rows[y];
    uint8_t* d = out.rows[y];
    for (uint32_t x = 0; x < src.width; ++x, d += 4) {
      const uint32_t index = s[x];
      if (index >= entries) throw bad(1, index);
      std::memcpy(d, palette + 4 * index, 4);
    }
  }
}

void lookup1(const bitmap<bit1>& src, const uint8_t* palette, image& out) {
  prepare_like(out, src);
  for (uint32_t y = 0; y < src.height; ++y) {
    const uint8_t* s = src.rows[y];
    uint8_t* d = out.rows[y];
    for (uint32_t x = 0; x < src.width; ++x, d += 4) {
      const bool set = s[x >> 3] & (128 >> (x & 7));
      std::memcpy(d, palette + (set ? 4 : 0), 4);
    }
  }
}

void read_checked(std::istream& in, image& out) {
  const std::streamoff start = codec::position(in);
  const header h = read_header(in);
  check(h);
  const layout l = plan(in, h, start);

  // An 8-bit index cannot pass 255, so entries beyond 256 are skipped, not kept.
  std::array<uint8_t, 256 * 4> palette{};
  const uint64_t kept = l.palette_entries < 256 ? l.palette_entries : 256;
  codec::read_exact(in, palette.data(), kept * 4);
  if (l.palette_entries > kept)
    in.seekg(std::streamoff((l.palette_entries - kept) * 4), std::ios::cur);

  const std::streamoff pixels_at = start + h.off_bits;
  if (codec::position(in) != pixels_at) in.seekg(pixels_at);

  switch (h.bit_count) {
    case 32:
      // The one read straight into the final buffer; the fourth byte is the file's.
      read_pixels(in, l, out);
      break;
    case 24: {
      bitmap<rgb24> src;
      read_pixels(in, l, src);
      out.set_top_down(src.top_down);
      convert_to_rgba32(out, src);
      break;
    }
    case 8: {
      bitmap<grey8> src;
      read_pixels(in, l, src);
      lookup8(src, palette.data(), l.palette_entries, out);
      break;
    }
    default: {
      bitmap<bit1> src;
      read_pixels(in, l, src);
      lookup1(src, palette.data(), out);
      break;
    }
  }
}

}  // namespace

bool info(std::istream& in, file_info* out) {
  try {
    in.exceptions(std::ios::failbit | std::ios::badbit);
    // The headers only: a pixel block cut short is for read() to report,
    // and a file's size and depth stay known without it.
    const header h = read_header(in);
    check(h);
    const uint32_t width = uint32_t(h.width);
    const uint32_t height = uint32_t(h.height < 0 ? -int64_t(h.height) : int64_t(h.height));
    codec::check_fits(kReadError, width, height);
    if (out) {
      out->format = "BMP";
      out->width = width;
      out->height = height;
      out->bit_count = h.bit_count;
      out->uncompressed = h.compression == 0;
    }
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

void read(std::istream& in, image& out) {
  codec::translate_read_errors(kReadError, in, [&](std::istream& s) { read_checked(s, out); });
}

uint64_t write(std::ostream& out, const image& picture, bool with_alpha) {
  out.exceptions(std::ios::failbit | std::ios::badbit);

  // BMP rows run bottom-up and are padded to 4 bytes. A 32-bit row never
  // needs padding, so a bottom-up source whose rows are not stretched by a
  // wider alignment is written as it is.
  const uint8_t* pixels = nullptr;
  uint32_t pixel_bytes = 0;
  bitmap<rgb24> rgb;
  image copy;
  if (!with_alpha) {
    rgb.set_top_down(0);
    convert_to_rgb24(rgb, picture);
    // The conversion leaves row padding as the allocator gave it; a file
    // should not carry stray memory.
    const size_t row = size_t(rgb.width) * 3;
    for (uint32_t y = 0; y < rgb.height && row < rgb.stride; ++y)
      std::memset(rgb.rows[y] + row, 0, rgb.stride - row);
    pixels = rgb.data;
    pixel_bytes = rgb.size;
  } else if ((picture.alignment == 4 || picture.alignment < 3) && picture.top_down == 0 &&
             uint64_t(picture.stride) == uint64_t(picture.width) * 4) {
    pixels = picture.data;
    pixel_bytes = picture.size;
  } else {
    copy.set_top_down(0);
    copy = picture;
    pixels = copy.data;
    pixel_bytes = copy.size;
  }
  if (pixel_bytes > UINT32_MAX - kHeaderBytes)
    throw io_error("image is too large for the file format");

  uint8_t file_header[14] = {'B', 'M'};
  codec::put32(file_header + 2, kHeaderBytes + pixel_bytes);
  codec::put32(file_header + 10, kHeaderBytes);
  uint8_t info_header[40] = {};
  codec::put32(info_header + 0, 40);
  codec::put32(info_header + 4, picture.width);
  codec::put32(info_header + 8, picture.height);
  codec::put16(info_header + 12, 1);
  codec::put16(info_header + 14, with_alpha ? 32 : 24);

  out.write(reinterpret_cast<const char*>(file_header), sizeof file_header);
  out.write(reinterpret_cast<const char*>(info_header), sizeof info_header);
  if (pixel_bytes) out.write(reinterpret_cast<const char*>(pixels), pixel_bytes);
  return uint64_t(std::streamoff(out.tellp()));
}

uint64_t write_mask(std::ostream& out, const bitmap<bit1>& mask) {
  out.exceptions(std::ios::failbit | std::ios::badbit);

  // Rows of a one-bit BMP are padded to 4 bytes like any other; the padding
  // and the bits past the width are written as 0, never as stray memory.
  bitmap<bit1> rows(mask.width, mask.height, 4);
  rows.set_top_down(0);
  const size_t used = size_t(bit1::row_bytes(mask.width));
  const unsigned tail = mask.width & 7;
  for (uint32_t y = 0; y < mask.height; ++y) {
    std::memset(rows.rows[y], 0, rows.stride);
    if (used) std::memcpy(rows.rows[y], mask.rows[y], used);
    if (tail) rows.rows[y][used - 1] &= uint8_t(0xFF00 >> tail);
  }
  constexpr uint32_t kPaletteBytes = 8;
  if (rows.size > UINT32_MAX - kHeaderBytes - kPaletteBytes)
    throw io_error("image is too large for the file format");

  uint8_t file_header[14] = {'B', 'M'};
  codec::put32(file_header + 2, kHeaderBytes + kPaletteBytes + rows.size);
  codec::put32(file_header + 10, kHeaderBytes + kPaletteBytes);
  uint8_t info_header[40] = {};
  codec::put32(info_header + 0, 40);
  codec::put32(info_header + 4, mask.width);
  codec::put32(info_header + 8, mask.height);
  codec::put16(info_header + 12, 1);
  codec::put16(info_header + 14, 1);
  codec::put32(info_header + 32, 2);  // colours used
  const uint8_t palette[kPaletteBytes] = {0, 0, 0, 0, 255, 255, 255, 0};

  out.write(reinterpret_cast<const char*>(file_header), sizeof file_header);
  out.write(reinterpret_cast<const char*>(info_header), sizeof info_header);
  out.write(reinterpret_cast<const char*>(palette), sizeof palette);
  if (rows.size) out.write(reinterpret_cast<const char*>(rows.data), rows.size);
  return uint64_t(std::streamoff(out.tellp()));
}

}  // namespace img::bmp
