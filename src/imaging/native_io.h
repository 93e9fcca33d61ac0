// SPDX-License-Identifier: GPL-3.0-or-later
// The system's own reader and writer of BMP and TGA files.
//
// Without a format word the reader chooses by the name's last four
// characters (".BMP", ".TGA", any case); any other name is read as BMP and,
// when that fails with io_error, as TGA. With a format word only "BMP" and
// "TGA" (any case) are known.
#pragma once

#include <string>
#include <vector>

#include "imaging/io_types.h"

namespace img {

class native_reader : public image_reader {
 public:
  // "BMP", "TGA".
  void extensions(std::vector<std::string>& out) const override;
  // "*.BMP;*.TGA".
  std::string filter() const override;
  // True when the file is a BMP or TGA that read() takes; fills `info`
  // (name as given). False for every other file, including one that cannot
  // be opened: this is the sniff that lets other readers have the rest.
  bool info(const std::string& name, const std::string& format, file_info* info) override;
  bool info(const std::string& name, file_info* info) override;
  bool sniffs() const override { return true; }
  // Throws unsupported/bad as the formats say, with the file's name; any
  // other failure is io_error "could not open image file for reading or read
  // error" (BMP) or "could not open TGA image for reading or read error"
  // (TGA). An unknown format word is unsupported mode 0, value 0.
  void read(const std::string& name, const std::string& format, image& out) override;
  void read(const std::string& name, image& out) override;
};

class native_writer : public image_writer {
 public:
  void extensions(std::vector<std::string>& out) const override;
  std::string filter() const override;
  // Writes a 24-bit (with_alpha false) or 32-bit BMP or TGA and returns the
  // file's size. A format word other than "BMP" or "TGA" is io_error "file
  // format is not supported". A failed open or write surfaces as the
  // stream's own failure (std::ios_base::failure, naming the file and the
  // system's reason); whatever was written is removed first.
  uint64_t write(const std::string& name,
                 const std::string& format,
                 const image& picture,
                 bool with_alpha) override;
};

// Writes a one-bit mask as a BMP of 1 bit per pixel (set pixels white) and
// returns the file's size. Failures as native_writer::write.
uint64_t write_mask_bmp(const std::string& name, const bitmap<bit1>& mask);

}  // namespace img
