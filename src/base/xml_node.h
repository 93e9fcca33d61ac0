// SPDX-License-Identifier: GPL-3.0-or-later
// Elements of an XML document as the project file and the link messages use
// them, and the exceptions of the field layer.
//
// An xml::node is a small handle onto an element of an xml::tablet; it does
// not own the element and is valid while the tablet lives. A null node
// stands for "no such element": reading from it finds no attribute and no
// child, which is how a missing required child hands its absence down to
// the fields inside it.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace pugi {
struct xml_node_struct;
}

namespace xml {

// A failure of the field layer. what() is the text for the user; tag() names
// the attribute or element concerned, and detail() gives it as "tag = <tag>".
class exception : public std::exception {
 public:
  exception(std::string text, std::string tag) : text_(std::move(text)), tag_(std::move(tag)) {}
  const char* what() const noexcept override { return text_.c_str(); }
  const std::string& tag() const { return tag_; }
  std::string detail() const { return "tag = " + tag_; }

 private:
  std::string text_;
  std::string tag_;
};

// A required attribute is absent, or its element is.
class attribute_not_found : public exception {
 public:
  explicit attribute_not_found(std::string tag)
      : exception("attribute not found", std::move(tag)) {}
};

// A required attribute's text is not a value of its type.
class attribute_parse_error : public exception {
 public:
  explicit attribute_parse_error(std::string tag)
      : exception("attribute parse error", std::move(tag)) {}
};

// Text that is not a well-formed document. The tag names the file, or is
// empty for text parsed from memory.
class parse_error : public exception {
 public:
  using exception::exception;
};

class node {
 public:
  node() = default;
  explicit node(pugi::xml_node_struct* element) : element_(element) {}

  bool isNull() const { return element_ == nullptr; }
  // The element's name; empty for a null node.
  std::string name() const;

  // False, leaving `value` alone, when the attribute or the node is absent.
  bool getAttribute(std::string_view attribute, std::string& value) const;
  // Adds the attribute or replaces its value. The node must not be null.
  void setAttribute(std::string_view attribute, std::string_view value);

  // Child elements in document order: all of them, or those of one name.
  std::vector<node> children() const;
  std::vector<node> children(std::string_view child_name) const;
  // How many children carry the name, without building a list.
  size_t count(std::string_view child_name) const;

  // Appends a new last child. The node must not be null.
  node addChild(std::string_view child_name);

  // The only child of that name; a null node when there is none. Throws
  // xml::exception "Node is ambiguous (<name>)" when there are several:
  // a reader must never pick one of two silently.
  node Child(std::string_view child_name) const;

  pugi::xml_node_struct* handle() const { return element_; }

 private:
  pugi::xml_node_struct* element_ = nullptr;
};

}  // namespace xml
