// SPDX-License-Identifier: GPL-3.0-or-later
// Shared pieces of the image fuzz targets: an input stream over the fuzzer's
// bytes (so the codecs run without files), a little-endian seed builder, and
// the checks every decoded image must pass.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <istream>
#include <sstream>
#include <streambuf>
#include <vector>

#include "imaging/bitmap.h"
#include "imaging/io_types.h"

namespace fuzz_support {

// A read-only, seekable stream buffer over memory. Unlike a file, it refuses
// to seek past its end; the codecs treat that as the read error it leads to.
class memory_buffer : public std::streambuf {
 public:
  memory_buffer(const uint8_t* data, size_t size) {
    char* p = const_cast<char*>(reinterpret_cast<const char*>(data));
    setg(p, p, p + size);
  }

 protected:
  pos_type seekoff(off_type off,
                   std::ios_base::seekdir dir,
                   std::ios_base::openmode which) override {
    if (!(which & std::ios_base::in)) return pos_type(off_type(-1));
    const off_type end = egptr() - eback();
    const off_type base = dir == std::ios_base::beg   ? 0
                          : dir == std::ios_base::cur ? gptr() - eback()
                                                      : end;
    const off_type target = base + off;
    if (target < 0 || target > end) return pos_type(off_type(-1));
    setg(eback(), eback() + target, egptr());
    return pos_type(target);
  }
  pos_type seekpos(pos_type pos, std::ios_base::openmode which) override {
    return seekoff(off_type(pos), std::ios_base::beg, which);
  }
};

class memory_stream : public std::istream {
 public:
  memory_stream(const uint8_t* data, size_t size) : std::istream(nullptr), buffer_(data, size) {
    rdbuf(&buffer_);
  }

 private:
  memory_buffer buffer_;
};

// Little-endian seed builder.
struct seed {
  std::vector<uint8_t> bytes;
  seed& u8(uint32_t v) {
    bytes.push_back(uint8_t(v));
    return *this;
  }
  seed& u16(uint32_t v) { return u8(v).u8(v >> 8); }
  seed& u32(uint32_t v) { return u16(v).u16(v >> 16); }
  seed& fill(size_t n, uint8_t v) {
    bytes.insert(bytes.end(), n, v);
    return *this;
  }
};

// The bytes a writer put into an output string stream.
inline std::vector<uint8_t> bytes_of(const std::ostringstream& out) {
  const std::string s = out.str();
  return std::vector<uint8_t>(s.begin(), s.end());
}

// A decoded image must be internally consistent, and every pixel byte must
// be readable (the sanitizers see any row pointer that strays).
inline void check_image(const img::image& im) {
  if (im.rows.size() != im.height || im.size != uint64_t(im.stride) * im.height ||
      im.stride < uint64_t(im.width) * 4)
    std::abort();
  unsigned sum = 0;
  for (uint32_t y = 0; y < im.height; ++y)
    for (uint32_t i = 0; i < im.width * 4; ++i) sum += im.rows[y][i];
  volatile unsigned sink = sum;
  (void)sink;
}

// Two pictures with the same pixels, compared through the row tables.
inline bool same_picture(const img::image& a, const img::image& b) {
  if (a.width != b.width || a.height != b.height) return false;
  if (a.width == 0) return true;
  for (uint32_t y = 0; y < a.height; ++y)
    if (std::memcmp(a.rows[y], b.rows[y], size_t(a.width) * 4) != 0) return false;
  return true;
}

// The body of a native codec's fuzz target. Only img::io_error (and its kin)
// may leave the reader; a file it takes must also pass its own sniff with the
// same size, and survive a write and a second read unchanged.
template <class Info, class Read, class Write>
int round_trip(const uint8_t* data, size_t size, Info info, Read read, Write write) {
  memory_stream sniff(data, size);
  img::file_info described;
  const bool known = info(sniff, &described);

  memory_stream in(data, size);
  img::image picture;
  try {
    read(in, picture);
  } catch (const img::io_error&) {
    return 0;
  }
  if (!known || described.width != picture.width || described.height != picture.height)
    std::abort();
  check_image(picture);

  if (picture.size <= (1u << 22)) {
    std::ostringstream out;
    write(out, picture, true);
    const std::vector<uint8_t> again = bytes_of(out);
    memory_stream back(again.data(), again.size());
    img::image second;
    read(back, second);
    if (!same_picture(picture, second)) std::abort();
  }
  return 0;
}

}  // namespace fuzz_support
