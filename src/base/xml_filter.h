// SPDX-License-Identifier: GPL-3.0-or-later
// The two-way field layer: one description of a record's fields serves both
// saving and loading.
//
// A filter is a node plus a direction. Each field function either stores the
// value into the element (writing) or takes it from the element (reading):
//
//   void SpanFields(xml::filter& f, My::Span& s) {
//     f.defaulted("first", s.first, 0);
//     f.defaulted("last", s.last, 0);
//   }
//   f.child("WorkArea", [&](xml::filter& c) { SpanFields(c, workArea); });
//
// The four kinds of field:
// - required attribute: always written; reading throws attribute_not_found
//   when it (or its element) is absent, attribute_parse_error when its text
//   is no value of the type;
// - defaulted attribute: written only when the value differs from the
//   default (exact comparison, no tolerance); reading gives the default when
//   it is absent or does not parse, and never throws;
// - required child: always written; reading an absent child hands a null
//   node to the inner fields, so their required attributes throw and their
//   defaulted ones default;
// - defaulted child: not written when the value equals the default; reading
//   an absent child gives the default.
// A list writes one child per element and reads as many elements as there
// are children of the name, in document order.
//
// Values are text in the default stream format of the "C" locale: integers
// in decimal, floats and doubles with six significant digits (no precision
// is ever set: the wire depends on it), bools as 0 and 1, enumerations as
// their file words, strings verbatim. A filter made with Numbers::RoundTrip
// writes floats and doubles instead with the fewest digits that read back
// to the same bits, so that work resumed from a file goes on from exactly
// the values it stopped at; reading takes either form. Reading wants the
// whole text to be one value; surrounding white space is allowed.
//
// On a failure inside a defaulted child or a list, the target value is left
// as it was. Fields of a required child are read straight into their
// targets; a caller that needs all-or-nothing reads into a scratch record.
#pragma once

#include <charconv>
#include <istream>
#include <limits>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "base/xml_node.h"

namespace xml {

namespace detail {

// The formatting and parsing streams one load or save shares.
struct streams {
  explicit streams(bool round_trip = false);
  std::ostringstream out;
  std::istringstream in;
  bool round_trip;
};

template <class T>
constexpr bool is_small_integer =
    std::is_integral_v<T> && !std::is_same_v<T, bool> && sizeof(T) == 1;

template <class T>
std::string Format(streams& s, const T& value) {
  if constexpr (std::is_convertible_v<const T&, std::string_view>) {
    return std::string(std::string_view(value));
  } else if constexpr (std::is_floating_point_v<T>) {
    if (s.round_trip) {
      char text[32];
      const auto end = std::to_chars(text, text + sizeof text, value).ptr;
      return std::string(text, end);
    }
    s.out.str(std::string());
    s.out.clear();
    s.out << value;
    return s.out.str();
  } else {
    s.out.str(std::string());
    s.out.clear();
    if constexpr (is_small_integer<T>)
      s.out << int(value);  // a char type would print as a character
    else
      s.out << value;
    return s.out.str();
  }
}

// True when `text` is exactly one value of T; `value` is written only then.
template <class T>
bool Parse(streams& s, const std::string& text, T& value) {
  if constexpr (std::is_same_v<T, std::string>) {
    value = text;
    return true;
  } else if constexpr (is_small_integer<T>) {
    int wide = 0;
    if (!Parse(s, text, wide) || wide < int(std::numeric_limits<T>::min()) ||
        wide > int(std::numeric_limits<T>::max()))
      return false;
    value = T(wide);
    return true;
  } else {
    // The stream would read "-1" into an unsigned type as its largest value.
    if constexpr (std::is_unsigned_v<T> && !std::is_same_v<T, bool>)
      if (text.find('-') != std::string::npos) return false;
    s.in.clear();
    s.in.str(text);
    T parsed{};
    s.in >> parsed;
    if (s.in.fail()) return false;
    if (!s.in.eof()) {
      s.in >> std::ws;
      if (!s.in.eof()) return false;
    }
    value = std::move(parsed);
    return true;
  }
}

}  // namespace detail

// How a writing filter spells floats and doubles.
enum class Numbers { SixDigits, RoundTrip };

class filter : public node {
 public:
  // A filter over an element for one load (reading true) or save.
  filter(node element, bool reading, Numbers numbers = Numbers::SixDigits);
  filter(filter&&) noexcept;
  ~filter();

  bool reading() const { return reading_; }

  template <class T>
  void required(std::string_view name, T& value) {
    if (!reading_) {
      setAttribute(name, detail::Format(*streams_, value));
      return;
    }
    std::string text;
    if (!getAttribute(name, text)) throw attribute_not_found(std::string(name));
    if (!detail::Parse(*streams_, text, value)) throw attribute_parse_error(std::string(name));
  }

  template <class T>
  void defaulted(std::string_view name, T& value, const std::type_identity_t<T>& def) {
    if (!reading_) {
      if (!(value == def)) setAttribute(name, detail::Format(*streams_, value));
      return;
    }
    std::string text;
    if (!getAttribute(name, text) || !detail::Parse(*streams_, text, value)) value = def;
  }

  // fields(filter&) describes the child's content.
  template <class Fields>
  void child(std::string_view name, Fields&& fields) {
    filter inner = Sub(name);
    fields(inner);
  }

  // fields(filter&, T&) describes the child's content; `equal` decides
  // whether the value is the default, where == would be wrong (a ratio).
  template <class T, class Equal, class Fields>
  void defaulted_child(std::string_view name,
                       T& value,
                       const std::type_identity_t<T>& def,
                       Equal&& equal,
                       Fields&& fields) {
    if (!reading_) {
      if (!equal(value, def)) {
        filter inner(addChild(name), false, streams_);
        fields(inner, value);
      }
      return;
    }
    const node found = Child(name);
    if (found.isNull()) {
      value = def;
      return;
    }
    T scratch = def;
    filter inner(found, true, streams_);
    fields(inner, scratch);
    value = std::move(scratch);
  }

  template <class T, class Fields>
  void defaulted_child(std::string_view name,
                       T& value,
                       const std::type_identity_t<T>& def,
                       Fields&& fields) {
    defaulted_child(
        name, value, def, [](const T& a, const T& b) { return a == b; },
        std::forward<Fields>(fields));
  }

  // fields(filter&, T&) describes one element. Reading builds every element
  // fresh (value-initialised), and replaces `items` only when all were read.
  template <class T, class Fields>
  void list(std::string_view name, std::vector<T>& items, Fields&& fields) {
    if (!reading_) {
      for (T& item : items) {
        filter inner(addChild(name), false, streams_);
        fields(inner, item);
      }
      return;
    }
    const std::vector<node> found = children(name);
    std::vector<T> scratch(found.size());
    for (size_t i = 0; i < found.size(); ++i) {
      filter inner(found[i], true, streams_);
      fields(inner, scratch[i]);
    }
    items = std::move(scratch);
  }

  // The filter of a required child: a new child when writing, the child
  // (or a null node) when reading.
  filter Sub(std::string_view name);
  // A filter of the same direction over another element, such as one of
  // children(name) while reading a record that is no vector.
  filter At(node element) { return filter(element, reading_, streams_); }

 private:
  filter(node element, bool reading, detail::streams* shared);

  bool reading_;
  std::unique_ptr<detail::streams> own_;
  detail::streams* streams_;
};

}  // namespace xml
