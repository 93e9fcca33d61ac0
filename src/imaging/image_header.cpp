// SPDX-License-Identifier: GPL-3.0-or-later
#include "imaging/image_header.h"

#include <cstring>

namespace img {

namespace {

uint32_t Be16(const uint8_t* p) {
  return uint32_t(p[0]) << 8 | uint32_t(p[1]);
}
uint32_t Be32(const uint8_t* p) {
  return Be16(p) << 16 | Be16(p + 2);
}

std::optional<declared_picture> Png(const uint8_t* data, size_t size) {
  // Signature, then IHDR: length 13, width, height, depth, colour type.
  if (size < 8 + 8 + 13 || std::memcmp(data + 12, "IHDR", 4) != 0 || Be32(data + 8) != 13)
    return std::nullopt;
  declared_picture p;
  p.width = Be32(data + 16);
  p.height = Be32(data + 20);
  p.alpha = (data[25] & 4) != 0;
  // A transparency chunk gives alpha to the colour types without it; it
  // stands before the first image data.
  for (size_t at = 8; at + 8 <= size;) {
    const uint32_t length = Be32(data + at);
    const uint8_t* type = data + at + 4;
    if (std::memcmp(type, "IDAT", 4) == 0) break;
    if (std::memcmp(type, "tRNS", 4) == 0) p.alpha = true;
    if (length > size - at - 8) break;
    at += 12 + size_t(length);
  }
  return p;
}

std::optional<declared_picture> Jpeg(const uint8_t* data, size_t size) {
  size_t at = 2;
  while (at + 4 <= size) {
    if (data[at] != 0xFF) return std::nullopt;
    const uint8_t marker = data[at + 1];
    if (marker == 0xFF) {  // fill byte
      ++at;
      continue;
    }
    if (marker == 0xD8 || marker == 0x01 || (marker >= 0xD0 && marker <= 0xD7)) {
      at += 2;  // no length
      continue;
    }
    const uint32_t length = Be16(data + at + 2);
    if (length < 2) return std::nullopt;
    // Frame headers: C0 to CF except DHT (C4), JPG (C8) and DAC (CC).
    if (marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC) {
      if (at + 9 > size || length < 7) return std::nullopt;
      declared_picture p;
      p.height = Be16(data + at + 5);
      p.width = Be16(data + at + 7);
      // A height of 0 is given later in the scan; the decoder finds it.
      if (p.width == 0 || p.height == 0) return std::nullopt;
      return p;
    }
    if (marker == 0xDA || marker == 0xD9) return std::nullopt;  // scan or end before a frame
    at += 2 + size_t(length);
  }
  return std::nullopt;
}

uint32_t Le32(const uint8_t* p) {
  return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}
uint64_t Le64(const uint8_t* p) {
  return uint64_t(Le32(p)) | uint64_t(Le32(p + 4)) << 32;
}

// Skips a chain of GIF sub-blocks; false when the data ends inside it.
bool SkipSubBlocks(const uint8_t* data, size_t size, size_t& at) {
  while (at < size) {
    const uint8_t length = data[at++];
    if (length == 0) return true;
    at += length;
  }
  return false;
}

bool GifCutShort(const uint8_t* data, size_t size) {
  if (size < 13) return true;
  size_t at = 13;
  if (data[10] & 0x80) at += size_t(3) << ((data[10] & 7) + 1);  // global colour table
  while (at < size) {
    const uint8_t block = data[at++];
    if (block == 0x21) {  // extension: label, then sub-blocks
      ++at;
      if (!SkipSubBlocks(data, size, at)) return true;
    } else if (block == 0x2C) {  // the first picture: descriptor, table, LZW data
      if (at + 9 > size) return true;
      const uint8_t flags = data[at + 8];
      at += 9;
      if (flags & 0x80) at += size_t(3) << ((flags & 7) + 1);
      ++at;  // LZW minimum code size
      return !SkipSubBlocks(data, size, at);
    } else {
      return false;  // the trailer or something unknown: not ours to judge
    }
  }
  return true;
}

bool ExrCutShort(const uint8_t* data, size_t size) {
  // Version field: bit 9 tiles, bit 12 multi-part (and deep data, bit 11).
  if (size < 8) return true;
  const uint32_t version = Le32(data + 4);
  if (version & (1u << 12 | 1u << 11)) return false;
  const bool tiled = (version & (1u << 9)) != 0;
  // Attributes: name, type (both terminated), size, value; an empty name ends them.
  size_t at = 8;
  for (;;) {
    if (at >= size) return true;
    if (data[at] == 0) break;
    const void* name_end = std::memchr(data + at, 0, size - at);
    if (!name_end) return true;
    at = size_t(static_cast<const uint8_t*>(name_end) - data) + 1;
    const void* type_end = at < size ? std::memchr(data + at, 0, size - at) : nullptr;
    if (!type_end) return true;
    at = size_t(static_cast<const uint8_t*>(type_end) - data) + 1;
    if (at + 4 > size) return true;
    at += 4 + size_t(Le32(data + at));
  }
  const size_t table = at + 1;
  // Files are written with the first chunk right after the offset table,
  // which tells the table's length.
  if (table + 8 > size) return true;
  const uint64_t first = Le64(data + table);
  if (first < table + 8 || (first - table) % 8 != 0) return false;
  if (first > size) return true;
  const uint64_t chunks = (first - table) / 8;
  const size_t head = tiled ? 20 : 8;  // tile coordinates and level, or the line; then the size
  for (uint64_t i = 0; i < chunks; ++i) {
    const uint64_t offset = Le64(data + table + 8 * i);
    if (offset > size || size - offset < head) return true;
    if (Le32(data + offset + head - 4) > size - offset - head) return true;
  }
  return false;
}

}  // namespace

bool cut_short(const uint8_t* data, size_t size) {
  if (size >= 6 && (std::memcmp(data, "GIF87a", 6) == 0 || std::memcmp(data, "GIF89a", 6) == 0))
    return GifCutShort(data, size);
  if (size >= 4 && std::memcmp(data, "\x76\x2f\x31\x01", 4) == 0) return ExrCutShort(data, size);
  return false;
}

std::optional<declared_picture> read_declared(const uint8_t* data, size_t size) {
  if (size >= 8 && std::memcmp(data, "\x89PNG\r\n\x1a\n", 8) == 0) return Png(data, size);
  if (size >= 3 && std::memcmp(data, "\xff\xd8\xff", 3) == 0) return Jpeg(data, size);
  return std::nullopt;
}

}  // namespace img
