// SPDX-License-Identifier: GPL-3.0-or-later
#include "imaging/codec_support.h"

#include <cctype>
#include <cstring>
#include <ios>

namespace img::codec {

std::streamoff position(std::istream& in) {
  const std::streamoff at = in.tellg();
  if (at < 0) throw std::ios_base::failure("stream position unknown");
  return at;
}

uint64_t bytes_from(std::istream& in, std::streamoff from) {
  const std::streamoff here = position(in);
  in.seekg(0, std::ios::end);
  const std::streamoff end = position(in);
  in.seekg(here);
  return end > from ? uint64_t(end - from) : 0;
}

void check_fits(const char* text, uint64_t width, uint64_t height) {
  // Every image ends as rgba32, four bytes a pixel with no padding.
  // A zero-width image has no pixel bytes for the file to back, but its row
  // table still costs a pointer a row: heights past any real picture's are
  // refused rather than allocated.
  const bool rows_unbacked = width == 0 && height > 65535;
  if (rows_unbacked || width * 4 > UINT32_MAX || width * 4 * height > UINT32_MAX) {
    throw io_error(text, {},
                   "an image of " + std::to_string(width) + " by " + std::to_string(height) +
                       " pixels is too large");
  }
}

void check_claim(const char* text, uint64_t claimed, uint64_t left) {
  if (claimed > left) {
    throw io_error(text, {},
                   "the header claims " + std::to_string(claimed) + " bytes of pixels, but " +
                       std::to_string(left) + " are left in the file");
  }
}

bool iequals(const std::string& a, const char* b) {
  const size_t n = std::strlen(b);
  if (a.size() != n) return false;
  for (size_t i = 0; i < n; ++i) {
    if (std::toupper(static_cast<unsigned char>(a[i])) !=
        std::toupper(static_cast<unsigned char>(b[i])))
      return false;
  }
  return true;
}

bool has_extension(const std::string& name, const char* ext4) {
  return name.size() >= 4 && iequals(name.substr(name.size() - 4), ext4);
}

}  // namespace img::codec
