// SPDX-License-Identifier: GPL-3.0-or-later
// One XML document: made empty with a root, read from a file, parsed from
// text, and written out.
//
//   xml::tablet doc;
//   doc.create("Velomar");
//   xml::filter out(doc.root(), /*reading=*/false);
//   ...fields...
//   doc.write(path);
//
// Nodes handed out by root() and their children are valid while the tablet
// lives and until the next create, read or parse.
#pragma once

#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>

#include "base/xml_node.h"

namespace pugi {
class xml_document;
}

namespace xml {

class tablet {
 public:
  tablet();
  ~tablet();
  tablet(tablet&&) noexcept;
  tablet& operator=(tablet&&) noexcept;

  // Drops the old document and starts one holding only the root element.
  void create(std::string_view root_name);

  // Replace the document. A file that cannot be read throws SystemError;
  // text that is not one well-formed element throws xml::parse_error with
  // the parser's reason and the line and column, e.g. "Start-end tags
  // mismatch at line 3, column 9". On failure the old document stays.
  void read(const std::string& file_name);
  void parse(std::string_view text);

  // Indented text, UTF-8, with a declaration line. Writing a file goes to a
  // new file beside it that replaces the old one only when it is complete,
  // so a failed write (SystemError) leaves the old file as it was.
  void write(const std::string& file_name) const;
  void write(std::ostream& out) const;

  // The document element; a null node before the first create or read.
  node root() const;

 private:
  std::unique_ptr<pugi::xml_document> doc_;
};

}  // namespace xml
