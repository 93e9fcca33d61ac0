// SPDX-License-Identifier: GPL-3.0-or-later
#include "imaging/tga_codec.h"

#include <cstring>
#include <istream>
#include <memory>
#include <ostream>
#include <vector>

#include "imaging/codec_support.h"

namespace img::tga {

namespace {

constexpr uint32_t kHeaderBytes = 18;

struct header {
  uint8_t id_length = 0;
  uint8_t map_type = 0;
  uint8_t image_type = 0;
  uint16_t map_length = 0;
  uint8_t map_entry_size = 0;
  uint16_t width = 0;
  uint16_t height = 0;
  uint8_t depth = 0;
  uint8_t descriptor = 0;

  bool has_map() const { return map_type != 0; }
  bool compressed() const { return image_type >= 9; }
  // Bit 5 set: the first line of the file is the top of the picture.
  uint32_t top_down() const { return (descriptor & 32) ? 1 : 0; }
  // Bytes of one pixel in the file: depths other than 15, 16, 24 and 32 are
  // one byte of colour-map index.
  uint32_t pixel_bytes() const {
    switch (depth) {
      case 32:
        return 4;
      case 24:
        return 3;
      case 15:
      case 16:
        return 2;
      default:
        return 1;
    }
  }
  // Bytes of one colour-map entry as this reader consumes them. A 32-bit
  // entry is read as 3 bytes, which leaves the stream one byte short per
  // entry so that the pixels after such a map read shifted. Files written
  // that way are expected to read exactly so: do not "fix" it.
  uint32_t map_entry_bytes() const {
    if (map_entry_size == 15 || map_entry_size == 16) return 2;
    if (map_entry_size == 24 || map_entry_size == 32) return 3;
    return 1;
  }
};

// The colour map's first entry, the origins and the descriptor's bits 0 to 4
// (alpha depth, right-to-left) play no part.
header read_header(std::istream& in) {
  uint8_t b[kHeaderBytes];
  codec::read_exact(in, b, sizeof b);
  header h;
  h.id_length = b[0];
  h.map_type = b[1];
  h.image_type = b[2];
  h.map_length = codec::get16(b + 5);
  h.map_entry_size = b[7];
  h.width = codec::get16(b + 12);
  h.height = codec::get16(b + 14);
  h.depth = b[16];
  h.descriptor = b[17];
  return h;
}

// The rejections of a header, in the order the format's users see them. A
// grey image of depth 8 without a colour map is refused by design.
void check(const header& h) {
  if (h.image_type == 0 || h.image_type > 11) throw unsupported(0, h.image_type);
  if (h.descriptor & 0xC0) throw unsupported(3, 0);
  if (h.depth == 15 || h.depth == 16) return;
  if (h.depth == 24 || h.depth == 32) {
    if (h.has_map()) throw bad(0, 0);
    return;
  }
  if (!h.has_map()) throw unsupported(6, 0);
}

// Fewest bytes of pixel data that can fill the picture. A packet yields at
// most 128 pixels and costs a header byte and at least one pixel.
uint64_t least_pixel_bytes(const header& h) {
  const uint64_t pixels = uint64_t(h.width) * h.height;
  if (!h.compressed()) return pixels * h.pixel_bytes();
  return (pixels + 127) / 128 * (1 + h.pixel_bytes());
}

// Palette entries expanded to blue, green, red.
std::vector<uint8_t> read_palette(std::istream& in, const header& h) {
  const uint32_t entry = h.map_entry_bytes();
  std::vector<uint8_t> raw(size_t(h.map_length) * entry);
  codec::read_exact(in, raw.data(), raw.size());
  std::vector<uint8_t> palette(size_t(h.map_length) * 3);
  for (size_t i = 0; i < h.map_length; ++i) {
    uint8_t* p = &palette[3 * i];
    const uint8_t* r = &raw[entry * i];
    if (entry == 2) {
      codec::expand555(codec::get16(r), p);
    } else if (entry == 3) {
      std::memcpy(p, r, 3);
    } else {
      p[0] = p[1] = p[2] = r[0];
    }
  }
  return palette;
}

// One file pixel to blue, green, red, alpha. `bytes` is its size in the file.
struct pixel32 {
  static constexpr uint32_t bytes = 4;
  void operator()(const uint8_t* s, uint8_t* d) const { std::memcpy(d, s, 4); }
};
struct pixel24 {
  static constexpr uint32_t bytes = 3;
  void operator()(const uint8_t* s, uint8_t* d) const {
    std::memcpy(d, s, 3);
    d[3] = 0;
  }
};
struct pixel555 {
  static constexpr uint32_t bytes = 2;
  void operator()(const uint8_t* s, uint8_t* d) const {
    codec::expand555(codec::get16(s), d);
    d[3] = 0;
  }
};
// A colour-map index of `Bytes` bytes (1, or 2 for an uncompressed 16-bit
// image with a map); an index at or past the map's end is corrupt.
template <uint32_t Bytes>
struct pixel_mapped {
  static constexpr uint32_t bytes = Bytes;
  const std::vector<uint8_t>& palette;
  void operator()(const uint8_t* s, uint8_t* d) const {
    const uint32_t index = Bytes == 1 ? s[0] : codec::get16(s);
    if (uint64_t(index) * 3 >= palette.size()) throw bad(1, index);
    std::memcpy(d, &palette[3 * size_t(index)], 3);
    d[3] = 0;
  }
};

// Buffered bytes of the packet stream, pulled from the stream buffer in
// blocks rather than one virtual call per byte.
class packet_source {
 public:
  explicit packet_source(std::istream& in) : buf_(in.rdbuf()), data_(new uint8_t[kBlock]) {}

  // The next n bytes (n <= 4); a file that ends first is a read error.
  const uint8_t* take(size_t n) {
    if (end_ - pos_ < n) refill(n);
    const uint8_t* p = data_.get() + pos_;
    pos_ += n;
    return p;
  }

 private:
  static constexpr size_t kBlock = 64 * 1024;

  void refill(size_t n) {
    std::memmove(data_.get(), data_.get() + pos_, end_ - pos_);
    end_ -= pos_;
    pos_ = 0;
    const std::streamsize got =
        buf_->sgetn(reinterpret_cast<char*>(data_.get() + end_), std::streamsize(kBlock - end_));
    end_ += size_t(got > 0 ? got : 0);
    if (end_ < n) throw std::ios_base::failure("end of file inside the pixel data");
  }

  std::streambuf* buf_;
  std::unique_ptr<uint8_t[]> data_;
  size_t pos_ = 0;
  size_t end_ = 0;
};

// Packets follow one another with no regard to rows: a packet that runs past
// a row's end goes on at the start of the next row, and decoding stops as
// soon as the last row is full, even in mid-packet. Rows are filled through
// the row table from row 0 in file order.
template <class Pixel>
void decode_rle(std::istream& in, const Pixel& pixel, image& out) {
  const uint32_t width = out.width;
  const uint32_t height = out.height;
  if (width == 0 || height == 0) return;
  packet_source source(in);
  uint32_t x = 0;
  uint32_t y = 0;
  uint8_t* row = out.rows[0];
  // Moves to the next pixel; false once the last row is full.
  const auto advance = [&] {
    if (++x < width) return true;
    x = 0;
    if (++y == height) return false;
    row = out.rows[y];
    return true;
  };
  for (;;) {
    const uint8_t c = *source.take(1);
    uint32_t count = (c & 127u) + 1;
    if (c & 128) {
      uint8_t value[4];
      pixel(source.take(Pixel::bytes), value);
      do {
        std::memcpy(row + 4 * size_t(x), value, 4);
        if (!advance()) return;
      } while (--count);
    } else {
      do {
        pixel(source.take(Pixel::bytes), row + 4 * size_t(x));
        if (!advance()) return;
      } while (--count);
    }
  }
}

void read_rle(std::istream& in, const header& h, const std::vector<uint8_t>& palette, image& out) {
  out.set_top_down(h.top_down());
  out.resize(h.width, h.height, 1);
  switch (h.depth) {
    case 32:
      decode_rle(in, pixel32{}, out);
      break;
    case 24:
      decode_rle(in, pixel24{}, out);
      break;
    case 15:
    case 16:
      // Direct colour even when the file also carries a colour map.
      decode_rle(in, pixel555{}, out);
      break;
    default:
      decode_rle(in, pixel_mapped<1>{palette}, out);
      break;
  }
  // The rows were filled top to bottom in file order; a bottom-up file
  // would stand on its head, and flipping the row table rights it.
  out.set_top_down(1);
}

template <class Kind>
void read_block(std::istream& in, const header& h, bitmap<Kind>& to) {
  to.set_top_down(h.top_down());
  to.resize(h.width, h.height, 1);
  codec::read_exact(in, to.data, to.size);
}

template <class Kind, class Pixel>
void map_rows(const bitmap<Kind>& src, const Pixel& pixel, image& out) {
  out.set_top_down(src.top_down);
  if (out.width != src.width || out.height != src.height) out.resize(src.width, src.height, 4);
  for (uint32_t y = 0; y < src.height; ++y) {
    const uint8_t* s = src.rows[y];
    uint8_t* d = out.rows[y];
    for (uint32_t x = 0; x < src.width; ++x, s += Pixel::bytes, d += 4) pixel(s, d);
  }
}

void read_uncompressed(std::istream& in,
                       const header& h,
                       const std::vector<uint8_t>& palette,
                       image& out) {
  switch (h.depth) {
    case 32:
      // The one read straight into the final buffer; the fourth byte is the file's.
      read_block(in, h, out);
      break;
    case 24: {
      bitmap<rgb24> src;
      read_block(in, h, src);
      out.set_top_down(src.top_down);
      convert_to_rgba32(out, src);
      break;
    }
    case 15:
    case 16: {
      bitmap<rgb16> src;
      read_block(in, h, src);
      if (h.has_map()) {
        map_rows(src, pixel_mapped<2>{palette}, out);
      } else {
        out.set_top_down(src.top_down);
        convert_to_rgba32(out, src);
      }
      break;
    }
    default: {
      bitmap<grey8> src;
      read_block(in, h, src);
      map_rows(src, pixel_mapped<1>{palette}, out);
      break;
    }
  }
}

void read_checked(std::istream& in, image& out) {
  const header h = read_header(in);
  check(h);
  uint8_t id[255];
  codec::read_exact(in, id, h.id_length);
  std::vector<uint8_t> palette;
  if (h.has_map()) palette = read_palette(in, h);

  codec::check_fits(kReadError, h.width, h.height);
  codec::check_claim(kReadError, least_pixel_bytes(h), codec::bytes_from(in, codec::position(in)));
  // A compressed true-colour image with a colour map would be refused here,
  // but check() has already turned every such header away as corrupt.
  if (h.compressed()) {
    read_rle(in, h, palette, out);
  } else {
    read_uncompressed(in, h, palette, out);
  }
}

}  // namespace

bool info(std::istream& in, file_info* out) {
  try {
    in.exceptions(std::ios::failbit | std::ios::badbit);
    // The header only: a pixel block cut short is for read() to report,
    // and a file's size and depth stay known without it.
    const header h = read_header(in);
    check(h);
    codec::check_fits(kReadError, h.width, h.height);
    if (out) {
      out->format = "TGA";
      out->width = h.width;
      out->height = h.height;
      out->bit_count = h.depth;
      out->uncompressed = h.image_type < 9;
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
  if (picture.width > 65535 || picture.height > 65535)
    throw io_error("image is too large for the file format");
  out.exceptions(std::ios::failbit | std::ios::badbit);

  // Rows are written in the picture's own order; the descriptor says which.
  const uint8_t* pixels = nullptr;
  uint32_t pixel_bytes = 0;
  uint32_t top_down = picture.top_down;
  bitmap<rgb24> rgb;
  image copy;
  if (!with_alpha) {
    rgb.set_top_down(picture.top_down);
    rgb.resize(picture.width, picture.height, 1);
    convert_to_rgb24(rgb, picture);
    pixels = rgb.data;
    pixel_bytes = rgb.size;
  } else if ((picture.alignment == 4 || picture.alignment < 3) &&
             uint64_t(picture.stride) == uint64_t(picture.width) * 4) {
    pixels = picture.data;
    pixel_bytes = picture.size;
  } else {
    copy.set_top_down(picture.top_down);
    copy = picture;
    pixels = copy.data;
    pixel_bytes = copy.size;
    top_down = copy.top_down;
  }

  uint8_t header[kHeaderBytes] = {};
  header[2] = 2;
  codec::put16(header + 12, picture.width);
  codec::put16(header + 14, picture.height);
  header[16] = with_alpha ? 32 : 24;
  header[17] = top_down ? 32 : 0;
  out.write(reinterpret_cast<const char*>(header), sizeof header);
  if (pixel_bytes) out.write(reinterpret_cast<const char*>(pixels), pixel_bytes);
  return uint64_t(std::streamoff(out.tellp()));
}

}  // namespace img::tga
