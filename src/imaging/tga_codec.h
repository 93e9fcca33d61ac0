// SPDX-License-Identifier: GPL-3.0-or-later
// The TGA format, byte by byte: image types 1 to 11, uncompressed or
// run-length encoded, true colour of 15, 16, 24 and 32 bits or colour-mapped.
//
// These work on streams so that a file, a test or a fuzzer can feed them.
// native_reader/native_writer (native_io.h) add the file names.
#pragma once

#include <cstdint>
#include <iosfwd>

#include "imaging/io_types.h"

namespace img::tga {

// The text of every TGA read failure that is not one of the format's own
// rejections: a short file, a failed stream, a lying header.
inline constexpr const char* kReadError = "could not open TGA image for reading or read error";

// Whether `in`, positioned at the start of a file, holds a TGA that read()
// takes: a header that passes the format's checks and enough bytes for id,
// colour map and pixels. Fills `out` (but not its name) when it is not null.
// Never throws; the position is undefined after.
bool info(std::istream& in, file_info* out);

// Reads a TGA from `in`, positioned at the start of the header, into `out`.
// Uncompressed images keep the file's row order in `top_down`; run-length
// encoded ones end top-down. Throws unsupported (modes 0, 3, 6), bad (mode 0
// for a true-colour image with a colour map, mode 1 for an index past the
// map) and io_error(kReadError) for every other failure; the file name is
// left empty for the caller to fill. Sets the stream's exception mask.
void read(std::istream& in, image& out);

// Writes `picture` as an uncompressed true-colour TGA of 24 bits (with_alpha
// false, alpha dropped) or 32 bits, in the picture's own row order; returns
// the stream's position after the last byte. Throws io_error when a side
// exceeds the format's 16 bits; stream failures surface as the stream's own
// exception (its mask is set here).
uint64_t write(std::ostream& out, const image& picture, bool with_alpha);

}  // namespace img::tga
