// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/xml_tablet.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <pugixml.hpp>
#include <sstream>

#include "base/errors.h"
#include "base/staging_file.h"

namespace xml {
namespace {

// The indentation of the written text. Not part of what a reader relies on,
// but kept stable so that saved projects compare well in version control.
constexpr const char* kIndent = "  ";

// Line and column (both from 1) of a byte offset, for parse failures.
std::string Position(std::string_view text, ptrdiff_t offset) {
  size_t line = 1, column = 1;
  const size_t end = std::min(text.size(), size_t(std::max<ptrdiff_t>(offset, 0)));
  for (size_t i = 0; i < end; ++i) {
    if (text[i] == '\n') {
      ++line;
      column = 1;
    } else {
      ++column;
    }
  }
  return " at line " + std::to_string(line) + ", column " + std::to_string(column);
}

std::unique_ptr<pugi::xml_document> Parse(std::string_view text, const std::string& tag) {
  auto doc = std::make_unique<pugi::xml_document>();
  // Default parsing: no DOCTYPE processing and no entity expansion beyond the
  // five predefined ones, so hostile text cannot make the parser grow.
  const pugi::xml_parse_result result =
      doc->load_buffer(text.data(), text.size(), pugi::parse_default, pugi::encoding_utf8);
  if (!result) throw parse_error(result.description() + Position(text, result.offset), tag);
  // The parser takes several top-level elements; a document has one.
  int elements = 0;
  for (pugi::xml_node top = doc->first_child(); top; top = top.next_sibling())
    if (top.type() == pugi::node_element && ++elements > 1)
      throw parse_error("Multiple document elements" + Position(text, top.offset_debug()), tag);
  return doc;
}

std::string ReadAll(const std::string& file_name) {
  const std::string operation = "reading " + file_name;
  const int fd = ::open(file_name.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) throw SystemError(operation.c_str());
  std::string text;
  char buffer[1 << 16];
  for (;;) {
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      const int error = errno;
      ::close(fd);
      throw SystemError(error, operation.c_str());
    }
    if (n == 0) break;
    text.append(buffer, size_t(n));
  }
  ::close(fd);
  return text;
}

void WriteReplacing(const std::string& file_name, const std::string& text) {
  const std::string operation = "writing " + file_name;
  // Files of earlier saves that were killed half-way; a project file can be
  // large, and nothing else would ever remove them.
  staging::RemoveStale(file_name);
  std::string temp_name;
  const int fd = staging::CreateBeside(file_name, temp_name);
  if (fd < 0) throw SystemError(operation.c_str());
  const char* at = text.data();
  size_t left = text.size();
  int error = 0;
  while (left > 0) {
    const ssize_t n = ::write(fd, at, left);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      error = n < 0 ? errno : EIO;
      break;
    }
    at += n;
    left -= size_t(n);
  }
  if (error == 0 && ::fsync(fd) != 0) error = errno;
  if (::close(fd) != 0 && error == 0) error = errno;
  if (error == 0 && ::rename(temp_name.c_str(), file_name.c_str()) != 0) error = errno;
  if (error != 0) {
    ::unlink(temp_name.c_str());
    throw SystemError(error, operation.c_str());
  }
}

}  // namespace

tablet::tablet() = default;
tablet::~tablet() = default;
tablet::tablet(tablet&&) noexcept = default;
tablet& tablet::operator=(tablet&&) noexcept = default;

void tablet::create(std::string_view root_name) {
  auto doc = std::make_unique<pugi::xml_document>();
  doc->append_child(std::string(root_name).c_str());
  doc_ = std::move(doc);
}

void tablet::read(const std::string& file_name) {
  doc_ = Parse(ReadAll(file_name), file_name);
}

void tablet::parse(std::string_view text) {
  doc_ = Parse(text, std::string());
}

void tablet::write(const std::string& file_name) const {
  std::ostringstream text;
  write(text);
  WriteReplacing(file_name, text.str());
}

void tablet::write(std::ostream& out) const {
  if (!doc_) return;
  doc_->save(out, kIndent, pugi::format_default, pugi::encoding_utf8);
}

node tablet::root() const {
  if (!doc_) return node();
  const pugi::xml_node element = doc_->document_element();
  return node(element ? element.internal_object() : nullptr);
}

}  // namespace xml
