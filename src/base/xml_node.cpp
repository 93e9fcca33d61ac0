// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/xml_node.h"

#include <pugixml.hpp>

namespace xml {
namespace {

pugi::xml_node Wrap(pugi::xml_node_struct* element) {
  return pugi::xml_node(element);
}

// pugixml wants terminated strings; names here are short.
std::string Terminated(std::string_view text) {
  return std::string(text);
}

}  // namespace

std::string node::name() const {
  return isNull() ? std::string() : std::string(Wrap(element_).name());
}

bool node::getAttribute(std::string_view attribute, std::string& value) const {
  if (isNull()) return false;
  const pugi::xml_attribute found = Wrap(element_).attribute(Terminated(attribute).c_str());
  if (!found) return false;
  value = found.value();
  return true;
}

void node::setAttribute(std::string_view attribute, std::string_view value) {
  if (isNull()) throw std::logic_error("attribute set on a null XML node");
  pugi::xml_node element = Wrap(element_);
  const std::string key = Terminated(attribute);
  pugi::xml_attribute target = element.attribute(key.c_str());
  if (!target) target = element.append_attribute(key.c_str());
  target.set_value(Terminated(value).c_str());
}

std::vector<node> node::children() const {
  std::vector<node> result;
  if (isNull()) return result;
  for (pugi::xml_node child = Wrap(element_).first_child(); child; child = child.next_sibling())
    if (child.type() == pugi::node_element) result.emplace_back(child.internal_object());
  return result;
}

std::vector<node> node::children(std::string_view child_name) const {
  std::vector<node> result;
  if (isNull()) return result;
  const std::string key = Terminated(child_name);
  for (pugi::xml_node child = Wrap(element_).child(key.c_str()); child;
       child = child.next_sibling(key.c_str()))
    result.emplace_back(child.internal_object());
  return result;
}

size_t node::count(std::string_view child_name) const {
  size_t n = 0;
  if (isNull()) return n;
  const std::string key = Terminated(child_name);
  for (pugi::xml_node child = Wrap(element_).child(key.c_str()); child;
       child = child.next_sibling(key.c_str()))
    ++n;
  return n;
}

node node::addChild(std::string_view child_name) {
  if (isNull()) throw std::logic_error("child added to a null XML node");
  return node(Wrap(element_).append_child(Terminated(child_name).c_str()).internal_object());
}

node node::Child(std::string_view child_name) const {
  if (isNull()) return node();
  const std::string key = Terminated(child_name);
  const pugi::xml_node first = Wrap(element_).child(key.c_str());
  if (!first) return node();
  if (first.next_sibling(key.c_str())) throw exception("Node is ambiguous (" + key + ")", key);
  return node(first.internal_object());
}

}  // namespace xml
