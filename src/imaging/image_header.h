// SPDX-License-Identifier: GPL-3.0-or-later
// What an image file's header declares, read without decoding a pixel: a
// size to check against a budget or an expected size before anything is
// allocated, and an answer to "what is this file" that costs microseconds
// whatever the picture's size.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

namespace img {

struct declared_picture {
  uint32_t width = 0;
  uint32_t height = 0;
  // PNG: a colour type with alpha, or a transparency chunk; JPEG: never.
  bool alpha = false;
};

// The header of a PNG (IHDR and the chunks before the first IDAT) or a
// JPEG (the markers up to the first frame header). Nothing for any other
// format or for a header that is cut short or inconsistent: the decoder
// is then the judge.
std::optional<declared_picture> read_declared(const uint8_t* data, size_t size);

// Whether the data of a GIF's first picture, or of an EXR's chunks of
// scan lines or tiles, runs past the end of the file: their decoders fill
// such a gap with made-up pixels and report nothing. False for any other
// format and whenever the structure is not understood (a multi-part EXR):
// the decoder is then the judge.
bool cut_short(const uint8_t* data, size_t size);

}  // namespace img
