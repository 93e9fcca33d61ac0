// SPDX-License-Identifier: GPL-3.0-or-later
// A segment's mask in the project file: the attribute `encoded`, holding a
// PNG file image of the mask as lower-case hexadecimal digits, two a byte,
// without separators. White pixels are the set ones.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/xml_filter.h"
#include "imaging/bitmap.h"

// The hexadecimal PNG text of a mask; empty for an image with no data.
std::string EncodeMask(const img::bitmap<img::bit1>& mask);

// The mask held by the text: an empty image for empty text. Two digits make
// a byte; white space between them is skipped. Text with any other
// character, or an odd number of digits, throws xml::attribute_parse_error
// (tag "encoded"); bytes that are no image file throw img::io_error. A
// picture above `max_pixels` pixels is refused before it is decoded. With
// a `width` and `height` (the composition's), a picture whose header
// declares another size throws "incompatible segment mask dimensions (W,
// H)" before it is decoded, and no picture larger than that is decoded.
img::bitmap<img::bit1> DecodeMask(std::string_view text,
                                  uint64_t max_pixels = uint64_t(UINT32_MAX) / 4,
                                  uint32_t width = 0,
                                  uint32_t height = 0);

// The `encoded` attribute, left out for an empty mask; absent or empty on
// reading gives an empty mask. `mask` is replaced only when decoding works.
// `width` and `height` as for DecodeMask.
void MaskFields(xml::filter& f,
                img::bitmap<img::bit1>& mask,
                uint64_t max_pixels = uint64_t(UINT32_MAX) / 4,
                uint32_t width = 0,
                uint32_t height = 0);
