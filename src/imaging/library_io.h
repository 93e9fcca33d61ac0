// SPDX-License-Identifier: GPL-3.0-or-later
// The library-backed image reader and writer: PNG, JPEG, GIF, TIFF, BMP,
// DPX and OpenEXR through FFmpeg's image codecs and libswscale.
//
// They are the second route beside the native BMP/TGA code: format "???",
// sniffs() false, so a multi reader asks them last. Pixels arrive as 8-bit
// blue-green-red-alpha, never premultiplied; an opaque file reads alpha 255,
// a GIF's transparent colour reads alpha 0, deeper files (16-bit, float,
// 10-bit DPX) are brought down to 8 bits.
//
// Both objects are stateless between calls: one may be used by several
// threads at once.
//
//   img::library_reader reader;
//   img::image frame;
//   bool alpha = false;
//   reader.read("shot.0001.png", frame, &alpha);
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "imaging/io_types.h"

namespace img {

class library_reader : public image_reader {
 public:
  // The largest picture, in pixels, that this reader agrees to decode. The
  // default is what an image's 32-bit byte size can hold; a fuzzer or a
  // memory-bound caller passes less. A file claiming more fails with
  // "image is too large" before its pixels are allocated.
  static constexpr uint64_t kLargestImage = UINT32_MAX / 4;
  explicit library_reader(uint64_t max_pixels = kLargestImage);

  // "BMP", "JPEG", "JPG", "GIF", "TIF", "TIFF", "PNG", "DPX", "EXR".
  void extensions(std::vector<std::string>& out) const override;
  std::string filter() const override;

  // Reads a PNG's or JPEG's header only (alpha: a colour type with alpha or
  // a transparency chunk), and decodes any other image, as only its pixels
  // tell. False for a file whose bytes are no image format read here, or
  // for a format word not in extensions(); a file that cannot be opened or
  // fails to decode throws io_error. Fills format "???", bit_count 32 with
  // alpha and 24 without, uncompressed false.
  bool info(const std::string& name, const std::string& format, file_info* info) override;
  bool info(const std::string& name, file_info* info) override;
  bool sniffs() const override { return false; }

  // The decoder is chosen by the file's content, never by its name; a format
  // word only has to be one of extensions() (else io_error "file format is
  // not supported"). `out` keeps its top_down and gets alignment 4.
  void read(const std::string& name, const std::string& format, image& out) override;
  void read(const std::string& name, image& out) override;
  using image_reader::read;
  // Reads and tells whether the file has an alpha channel (for a palette or
  // GIF image: whether a colour in use is not opaque). `has_alpha` may be null.
  void read(const std::string& name, image& out, bool* has_alpha);
  // The same for an image file held in memory; `name` only labels failures.
  void read_bytes(
      const uint8_t* data, size_t size, const std::string& name, image& out, bool* has_alpha);
  // As read_bytes, but a 1-bit picture (a mask as encode_png writes it) goes
  // straight into `bits`, white set, with alignment 4, and the answer is
  // true; any other picture goes into `out` and the answer is false. Masks
  // of thousands of segments load without a 32-bit picture each.
  bool read_bytes_bilevel(
      const uint8_t* data, size_t size, const std::string& name, bitmap<bit1>& bits, image& out);

 private:
  uint64_t max_pixels_;
};

class library_writer : public image_writer {
 public:
  void extensions(std::vector<std::string>& out) const override;
  std::string filter() const override;

  // `format` (any case) picks the encoder: BMP, JPEG/JPG, GIF, TIF/TIFF,
  // PNG, DPX, EXR. with_alpha keeps the alpha channel where the format has
  // one (PNG, TIFF, BMP, DPX and EXR in full; GIF as one transparent colour
  // for alpha below 128; JPEG never). The whole file is encoded in memory
  // before the file is touched, so a failed encoding leaves an existing file
  // as it was, and a failed write removes what was written. Returns the
  // file's size in bytes.
  uint64_t write(const std::string& name,
                 const std::string& format,
                 const image& picture,
                 bool with_alpha) override;

  // The same encoding into memory: the bytes the file would hold. Throws
  // io_error (without a file name) as write() does.
  std::vector<uint8_t> encode(const std::string& format,
                              const image& picture,
                              bool with_alpha) const;
};

// A one-bit picture as a one-bit greyscale PNG file image in memory, set
// pixels white. Throws io_error "image has no pixels" for an empty mask.
std::vector<uint8_t> encode_png(const bitmap<bit1>& mask);

}  // namespace img
