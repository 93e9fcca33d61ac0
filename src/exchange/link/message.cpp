// SPDX-License-Identifier: GPL-3.0-or-later
#include "exchange/link/message.h"

#include <array>
#include <sstream>

#include "base/xml_tablet.h"

namespace exchange::link {

namespace {

constexpr std::array<std::string_view, 7> kNames = {
    "Empty", "Error", "Underlay", "Overlay", "Transformations", "Project", "PossibleActions",
};

constexpr const char* kRoot = "Message";
constexpr const char* kType = "type";
constexpr const char* kWhat = "what";

}  // namespace

std::string_view MessageTypeName(MessageType type) {
  const auto index = size_t(type);
  return index < kNames.size() ? kNames[index] : std::string_view();
}

std::optional<MessageType> MessageTypeFromName(std::string_view name) {
  for (size_t i = 0; i < kNames.size(); ++i)
    if (kNames[i] == name) return MessageType(i);
  return std::nullopt;
}

Message::Message() = default;

Message::Message(MessageType type) {
  Set(type);
}

Message::~Message() = default;
Message::Message(Message&&) noexcept = default;
Message& Message::operator=(Message&&) noexcept = default;

void Message::Set(MessageType type) {
  if (type == MessageType::Empty) {
    Clear();
    return;
  }
  auto doc = std::make_unique<xml::tablet>();
  doc->create(kRoot);
  doc->root().setAttribute(kType, MessageTypeName(type));
  doc_ = std::move(doc);
  type_ = type;
}

void Message::Clear() {
  doc_.reset();
  type_ = MessageType::Empty;
}

xml::node Message::Root() const {
  return doc_ ? doc_->root() : xml::node();
}

std::string Message::ToBytes() const {
  if (!doc_) return std::string();
  std::ostringstream out;
  doc_->write(out);
  return std::move(out).str();
}

void Message::FromBytes(std::string_view bytes) {
  if (bytes.empty()) {
    Clear();
    return;
  }
  auto doc = std::make_unique<xml::tablet>();
  doc->parse(bytes);
  std::string word;
  if (!doc->root().getAttribute(kType, word)) throw xml::attribute_not_found(kType);
  const auto type = MessageTypeFromName(word);
  if (!type) throw xml::attribute_parse_error(kType);
  doc_ = std::move(doc);
  type_ = *type;
}

void Message::Throw() const {
  if (type_ == MessageType::Error) {
    std::string what;
    Root().getAttribute(kWhat, what);
    throw BadMessage(what);
  }
  throw BadMessage("BadMessage");
}

Message MakeError(std::string_view what) {
  Message message(MessageType::Error);
  if (!what.empty()) message.Root().setAttribute(kWhat, what);
  return message;
}

}  // namespace exchange::link
