// SPDX-License-Identifier: GPL-3.0-or-later
// One face for all image formats: a reader and a writer that hold the native
// BMP/TGA codec first and the library-backed codec second, and forward to
// them. Build one on the spot wherever it is needed; they hold no state
// beyond their members.
#pragma once

#include <memory>
#include <vector>

#include "imaging/io_types.h"

namespace img {

class multi_reader : public image_reader {
 public:
  // The native reader, then the library-backed one.
  multi_reader();
  // The given members, asked in order. Must not be empty.
  explicit multi_reader(std::vector<std::unique_ptr<image_reader>> members);
  ~multi_reader() override;

  // The union of the members' extensions, without duplicates, in order of first appearance.
  void extensions(std::vector<std::string>& out) const override;
  // The members' extension lists joined in one pattern.
  std::string filter() const override;
  // Each member in turn until one says yes. A member that cannot read the
  // file at all (io_error) counts as a no, except the last, whose failure is
  // the caller's.
  bool info(const std::string& name, const std::string& format, file_info* info) override;
  bool info(const std::string& name, file_info* info) override;
  bool sniffs() const override { return true; }
  // The first member that claims the file reads it: a member that sniffs
  // claims it when its info() says yes, one that does not sniff claims
  // everything, and the last member reads whatever is left. So BMP and TGA
  // files of every kind the native reader knows go there, and everything
  // else reaches the library.
  void read(const std::string& name, const std::string& format, image& out) override;
  void read(const std::string& name, image& out) override;

 private:
  std::vector<std::unique_ptr<image_reader>> members_;
};

class multi_writer : public image_writer {
 public:
  multi_writer();
  explicit multi_writer(std::vector<std::unique_ptr<image_writer>> members);
  ~multi_writer() override;

  void extensions(std::vector<std::string>& out) const override;
  std::string filter() const override;
  // Each member in turn: one that throws io_error passes the job on; the last
  // member's failure goes to the caller. So BMP and TGA are written natively
  // and every other format by the library.
  uint64_t write(const std::string& name,
                 const std::string& format,
                 const image& picture,
                 bool with_alpha) override;

 private:
  std::vector<std::unique_ptr<image_writer>> members_;
};

}  // namespace img
