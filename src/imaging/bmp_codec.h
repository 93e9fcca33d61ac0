// SPDX-License-Identifier: GPL-3.0-or-later
// The BMP format, byte by byte: uncompressed 1, 8, 24 and 32 bits per pixel
// with the 40-byte info header, top-down or bottom-up.
//
// These work on streams so that a file, a test or a fuzzer can feed them.
// native_reader/native_writer (native_io.h) add the file names.
#pragma once

#include <cstdint>
#include <iosfwd>

#include "imaging/io_types.h"

namespace img::bmp {

// The text of every BMP read failure that is not one of the format's own
// rejections: a short file, a failed stream, a lying header.
inline constexpr const char* kReadError = "could not open image file for reading or read error";

// Whether `in`, positioned at the start of a file, holds a BMP that read()
// takes: signature "BM", no compression, a width that is not negative, 1, 8,
// 24 or 32 bits, and enough bytes for palette and pixels. Fills `out` (but
// not its name) when it is not null. Never throws; the position is undefined after.
bool info(std::istream& in, file_info* out);

// Reads a BMP from `in`, positioned at the start of the file header, into
// `out`, which keeps the file's row order in `top_down`. Throws unsupported
// (modes 0, 1, 4, 2 in that order of checks), bad mode 1 for a palette index
// past biClrUsed, and io_error(kReadError) for every other failure; the file
// name is left empty for the caller to fill. Sets the stream's exception mask.
void read(std::istream& in, image& out);

// Writes `picture` as a bottom-up BMP of 24 bits (with_alpha false, alpha
// dropped) or 32 bits; returns the stream's position after the last byte.
// Stream failures surface as the stream's own exception (its mask is set here).
uint64_t write(std::ostream& out, const image& picture, bool with_alpha);

// Writes a one-bit mask as a bottom-up BMP of 1 bit per pixel with a
// two-entry palette, black for clear and white for set pixels; returns the
// stream's position after the last byte. Failures as write().
uint64_t write_mask(std::ostream& out, const bitmap<bit1>& mask);

}  // namespace img::bmp
