// SPDX-License-Identifier: GPL-3.0-or-later
// One message of the link with the compositing host's plug-in: an XML
// document whose root element "Message" names its type in the attribute
// `type`, or no document at all (the empty message, zero bytes on the wire,
// which is the ordinary positive reply).
//
//   exchange::link::Message request(MessageType::PossibleActions);
//   std::string bytes = request.ToBytes();   // what goes into one frame
//   Message reply;
//   reply.FromBytes(received);               // "" gives the empty message
//   if (reply.GetType() != MessageType::PossibleActions) reply.Throw();
#pragma once

#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "base/xml_node.h"

namespace xml {
class tablet;
}

namespace exchange::link {

// The values are the wire's order; the names are the words of `type`.
enum class MessageType : int {
  Empty = 0,
  Error = 1,
  Underlay = 2,
  Overlay = 3,
  Transformations = 4,
  Project = 5,
  PossibleActions = 6,
};

// The word of `type`; "Empty" for the empty message.
std::string_view MessageTypeName(MessageType type);
// Exact, case-sensitive lookup of a word; nothing for an unknown one.
std::optional<MessageType> MessageTypeFromName(std::string_view name);

// The peer's failure, or a reply of a type that was not asked for. what() is
// the text for the user.
class BadMessage : public std::exception {
 public:
  explicit BadMessage(std::string text) : text_(std::move(text)) {}
  const char* what() const noexcept override { return text_.c_str(); }

 private:
  std::string text_;
};

class Message {
 public:
  // The empty message: no document, type Empty.
  Message();
  // A document holding only the root element and its `type`.
  explicit Message(MessageType type);
  ~Message();
  Message(Message&&) noexcept;
  Message& operator=(Message&&) noexcept;

  // Starts a fresh document of that type; whatever the message held goes.
  // Set(Empty) is Clear().
  void Set(MessageType type);
  // Back to the empty message.
  void Clear();

  MessageType GetType() const { return type_; }
  bool IsEmpty() const { return type_ == MessageType::Empty; }
  // The root element; a null node for the empty message.
  xml::node Root() const;

  // The document as text; no bytes at all for the empty message.
  std::string ToBytes() const;
  // Replaces the message by the one these bytes hold; no bytes clear it.
  // Text that is no document throws xml::parse_error; a root without `type`
  // xml::attribute_not_found, a word not in the table
  // xml::attribute_parse_error. A document saying "Empty" is kept as one, of
  // type Empty: a server answers it as a request it does not understand.
  // On failure the message is as it was.
  void FromBytes(std::string_view bytes);

  // Raises BadMessage: with the attribute `what` of an "Error" message, or
  // with "BadMessage" for any other type. For the reader that got a reply
  // it did not ask for.
  [[noreturn]] void Throw() const;

 private:
  std::unique_ptr<xml::tablet> doc_;
  MessageType type_ = MessageType::Empty;
};

// An "Error" message carrying `what`.
Message MakeError(std::string_view what);

}  // namespace exchange::link
