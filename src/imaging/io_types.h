// SPDX-License-Identifier: GPL-3.0-or-later
// The common face of the image file readers and writers, and their failures.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/errors.h"
#include "imaging/bitmap.h"

namespace img {

// What a reader says of a file without handing out its pixels.
struct file_info {
  std::string name;    // the file's name as given
  std::string format;  // "BMP", "TGA", or "???" for the library-backed reader
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t bit_count = 0;  // as the file states it; library-read files: 32 with alpha, else 24
  bool uncompressed = false;
};

// A file that cannot be read or written. what() is the reason; file() names
// the file. detail() is a third text, empty unless a caller fills it.
class io_error : public xtd::exception {
 public:
  explicit io_error(std::string text, std::string file = {}, std::string detail = {})
      : xtd::exception(std::move(text)), file_(std::move(file)), detail_(std::move(detail)) {}
  const std::string& file() const { return file_; }
  const std::string& detail() const { return detail_; }
  void set_file(std::string file) { file_ = std::move(file); }

 private:
  std::string file_;
  std::string detail_;
};

// "unsupported image file format mode": a valid file of a kind we do not
// read. mode says which check refused it, value the offending number.
class unsupported : public io_error {
 public:
  unsupported(int mode, int64_t value, std::string file = {})
      : io_error("unsupported image file format mode", std::move(file)), mode(mode), value(value) {}
  int mode;
  int64_t value;
};

// "corrupt image file format": the file contradicts itself.
// mode 0: a 24/32-bit TGA that claims a colour map (value 0);
// mode 1: a palette index at or past the end of the palette (value the index).
class bad : public io_error {
 public:
  bad(int mode, int64_t value, std::string file = {})
      : io_error("corrupt image file format", std::move(file)), mode(mode), value(value) {}
  int mode;
  int64_t value;
};

class image_reader {
 public:
  virtual ~image_reader() = default;
  // Clears `out` and fills it with the extensions read, upper case, no dot.
  virtual void extensions(std::vector<std::string>& out) const = 0;
  // "*.BMP;*.TGA" style pattern for an open dialog.
  virtual std::string filter() const = 0;
  // Whether the file is one this reader reads; fills `info` when not null.
  // A file that is not of the format gives false; an unreadable file may throw io_error.
  virtual bool info(const std::string& name, const std::string& format, file_info* info) = 0;
  virtual bool info(const std::string& name, file_info* info) = 0;
  // Whether info() looks at the file's bytes (and so can be asked before read()).
  virtual bool sniffs() const = 0;
  // Reads the file into `out`. Throws io_error (or a subclass) naming the
  // file; `out` has undefined size and content after a failure.
  virtual void read(const std::string& name, const std::string& format, image& out) = 0;
  virtual void read(const std::string& name, image& out) = 0;
};

class image_writer {
 public:
  virtual ~image_writer() = default;
  virtual void extensions(std::vector<std::string>& out) const = 0;
  virtual std::string filter() const = 0;
  // Writes `picture` as `format` (a word such as "BMP" or "PNG"); returns the
  // file's size in bytes. A format the writer does not know is io_error
  // ("file format is not supported"), which lets a multi_writer pass the job
  // on; a failed open or write throws (io_error or the stream's own failure,
  // naming the file), and the partial file is removed.
  virtual uint64_t write(const std::string& name,
                         const std::string& format,
                         const image& picture,
                         bool with_alpha) = 0;
};

// The upper-case extension of a file name without the dot ("" when none).
std::string upper_extension(const std::string& name);

// "*.A;*.B" from a list of extensions.
std::string make_filter(const std::vector<std::string>& extensions);

}  // namespace img
