// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/file/mask_codec.h"

#include <algorithm>
#include <sstream>
#include <vector>

#include "app/model/mask.h"
#include "base/errors.h"
#include "imaging/image_header.h"
#include "imaging/library_io.h"

namespace {

constexpr const char* kEncoded = "encoded";

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool IsSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
}

std::vector<uint8_t> HexBytes(std::string_view text) {
  std::vector<uint8_t> bytes;
  bytes.reserve(text.size() / 2);
  int high = -1;
  for (const char c : text) {
    if (IsSpace(c)) continue;
    const int digit = HexValue(c);
    if (digit < 0) throw xml::attribute_parse_error(kEncoded);
    if (high < 0) {
      high = digit;
    } else {
      bytes.push_back(uint8_t(high * 16 + digit));
      high = -1;
    }
  }
  if (high >= 0) throw xml::attribute_parse_error(kEncoded);
  return bytes;
}

}  // namespace

std::string EncodeMask(const img::bitmap<img::bit1>& mask) {
  if (mask.empty() || mask.width == 0 || mask.height == 0) return std::string();
  static constexpr char kDigits[] = "0123456789abcdef";
  const std::vector<uint8_t> png = img::encode_png(mask);
  std::string text(png.size() * 2, '\0');
  for (size_t i = 0; i < png.size(); ++i) {
    text[2 * i] = kDigits[png[i] >> 4];
    text[2 * i + 1] = kDigits[png[i] & 15];
  }
  return text;
}

img::bitmap<img::bit1> DecodeMask(std::string_view text,
                                  uint64_t max_pixels,
                                  uint32_t width,
                                  uint32_t height) {
  img::bitmap<img::bit1> mask;
  const std::vector<uint8_t> bytes = HexBytes(text);
  if (bytes.empty()) return mask;
  if (width != 0 && height != 0) {
    // A mask of another size is refused anyway when the segment joins the
    // composition; finding that out by decoding a declared 16000 x 16000
    // picture would take gigabytes and a minute first.
    if (const auto declared = img::read_declared(bytes.data(), bytes.size());
        declared && (declared->width != width || declared->height != height)) {
      std::ostringstream text;
      text << "incompatible segment mask dimensions (" << declared->width << ", "
           << declared->height << ")";
      throw xtd::exception(text.str());
    }
    max_pixels = std::min(max_pixels, uint64_t(width) * height);
  }
  img::image picture;
  // A written mask is pure black and white; a grey from elsewhere counts
  // as set from mid-grey up.
  if (!img::library_reader(max_pixels)
           .read_bytes_bilevel(bytes.data(), bytes.size(), "mask", mask, picture))
    mask = ThresholdMask(picture);
  return mask;
}

void MaskFields(xml::filter& f,
                img::bitmap<img::bit1>& mask,
                uint64_t max_pixels,
                uint32_t width,
                uint32_t height) {
  if (!f.reading()) {
    const std::string text = EncodeMask(mask);
    if (!text.empty()) f.setAttribute(kEncoded, text);
    return;
  }
  std::string text;
  f.getAttribute(kEncoded, text);
  img::bitmap<img::bit1> decoded = DecodeMask(text, max_pixels, width, height);
  mask = std::move(decoded);
}
