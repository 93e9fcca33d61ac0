// SPDX-License-Identifier: GPL-3.0-or-later
#include "imaging/native_io.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "imaging/bmp_codec.h"
#include "imaging/codec_support.h"
#include "imaging/tga_codec.h"

namespace img {

namespace {

enum class format_kind { bmp, tga, other };

format_kind by_word(const std::string& format) {
  if (codec::iequals(format, "BMP")) return format_kind::bmp;
  if (codec::iequals(format, "TGA")) return format_kind::tga;
  return format_kind::other;
}

format_kind by_name(const std::string& name) {
  if (codec::has_extension(name, ".BMP")) return format_kind::bmp;
  if (codec::has_extension(name, ".TGA")) return format_kind::tga;
  return format_kind::other;
}

struct format_codec {
  void (*read)(std::istream&, image&);
  bool (*info)(std::istream&, file_info*);
  const char* read_error;
};

constexpr format_codec kBmp{bmp::read, bmp::info, bmp::kReadError};
constexpr format_codec kTga{tga::read, tga::info, tga::kReadError};

// The outer reading function: a format's own failure leaves with the file's
// name in it; anything else becomes the format's read error.
void read_file(const std::string& name, const format_codec& codec, image& out) {
  try {
    // Unbuffered: the headers are a few small reads, and the pixel block
    // then goes from the file straight into the image in one read.
    std::ifstream in;
    in.rdbuf()->pubsetbuf(nullptr, 0);
    in.open(name, std::ios::binary);
    if (!in.is_open()) {
      const int error = errno;
      throw io_error(codec.read_error, name, error ? std::strerror(error) : "");
    }
    codec.read(in, out);
  } catch (io_error& e) {
    e.set_file(name);
    throw;
  } catch (const std::exception&) {
    throw io_error(codec.read_error, name);
  }
}

bool info_file(const std::string& name, const format_codec& codec, file_info* info) {
  try {
    std::ifstream in(name, std::ios::binary);
    if (!in.is_open() || !codec.info(in, info)) return false;
  } catch (const std::exception&) {
    return false;
  }
  if (info) info->name = name;
  return true;
}

// The writer's stream failure, kept as the stream's own exception class but
// with a text that names the file and the system's reason.
std::ios_base::failure write_failure(const std::string& name, int error) {
  const std::error_code code = error ? std::error_code(error, std::generic_category())
                                     : make_error_code(std::io_errc::stream);
  return std::ios_base::failure("could not open image file for writing or write error: " + name,
                                code);
}

// Drops a half-written file: no caller may find a partial image under the name.
void discard(std::ofstream& out, const std::string& name) {
  out.exceptions(std::ios::goodbit);
  out.close();
  std::error_code ignored;
  std::filesystem::remove(name, ignored);
}

// Opens `name`, lets `encode` fill it and returns its size. Failures name the
// file; whatever was written is removed first.
template <class Encode>
uint64_t write_file(const std::string& name, Encode encode) {
  std::ofstream out;
  out.exceptions(std::ios::failbit | std::ios::badbit);
  try {
    out.open(name, std::ios::binary | std::ios::trunc);
  } catch (const std::ios_base::failure&) {
    throw write_failure(name, errno);
  }
  try {
    const uint64_t bytes = encode(out);
    out.close();
    return bytes;
  } catch (io_error& e) {
    discard(out, name);
    e.set_file(name);
    throw;
  } catch (const std::ios_base::failure&) {
    const int error = errno;
    discard(out, name);
    throw write_failure(name, error);
  } catch (...) {
    discard(out, name);
    throw;
  }
}

}  // namespace

void native_reader::extensions(std::vector<std::string>& out) const {
  out = {"BMP", "TGA"};
}

std::string native_reader::filter() const {
  return "*.BMP;*.TGA";
}

bool native_reader::info(const std::string& name, const std::string& format, file_info* info) {
  switch (by_word(format)) {
    case format_kind::bmp:
      return info_file(name, kBmp, info);
    case format_kind::tga:
      return info_file(name, kTga, info);
    default:
      return false;
  }
}

bool native_reader::info(const std::string& name, file_info* info) {
  switch (by_name(name)) {
    case format_kind::bmp:
      return info_file(name, kBmp, info);
    case format_kind::tga:
      return info_file(name, kTga, info);
    default:
      return info_file(name, kBmp, info) || info_file(name, kTga, info);
  }
}

void native_reader::read(const std::string& name, const std::string& format, image& out) {
  switch (by_word(format)) {
    case format_kind::bmp:
      return read_file(name, kBmp, out);
    case format_kind::tga:
      return read_file(name, kTga, out);
    default:
      throw unsupported(0, 0, name);
  }
}

void native_reader::read(const std::string& name, image& out) {
  switch (by_name(name)) {
    case format_kind::bmp:
      return read_file(name, kBmp, out);
    case format_kind::tga:
      return read_file(name, kTga, out);
    default:
      // TGA has no signature, so it is the second guess; its failure is the one reported.
      try {
        read_file(name, kBmp, out);
      } catch (const io_error&) {
        read_file(name, kTga, out);
      }
  }
}

void native_writer::extensions(std::vector<std::string>& out) const {
  out = {"BMP", "TGA"};
}

std::string native_writer::filter() const {
  return "*.BMP;*.TGA";
}

uint64_t native_writer::write(const std::string& name,
                              const std::string& format,
                              const image& picture,
                              bool with_alpha) {
  const format_kind kind = by_word(format);
  if (kind == format_kind::other) throw io_error("file format is not supported", name);
  return write_file(name, [&](std::ostream& out) {
    return kind == format_kind::bmp ? bmp::write(out, picture, with_alpha)
                                    : tga::write(out, picture, with_alpha);
  });
}

uint64_t write_mask_bmp(const std::string& name, const bitmap<bit1>& mask) {
  return write_file(name, [&](std::ostream& out) { return bmp::write_mask(out, mask); });
}

}  // namespace img
