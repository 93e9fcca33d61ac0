// SPDX-License-Identifier: GPL-3.0-or-later
// The kinds of property the trees are built from.
//
// TypedProperty<T> reads and writes a T and maps it to its control: numbers
// to text, bool to a check box, enumerations and the pixel aspect ratio to a
// choice, spans and affines to a summary with their elements below.
// SimpleProperty binds it to an interface by a getter and a setter;
// CompositeElementProperty edits one part of a composite value by reading
// the whole, changing the part and writing the whole back.
#pragma once

#include <cstdint>
#include <string>
#include <type_traits>

#include "app/model/properties.h"
#include "app/model/properties_parse.h"
#include "base/affine.h"
#include "base/enums.h"
#include "base/pixel_aspect.h"
#include "base/span.h"

namespace app {

template <class T>
inline constexpr bool kIsNumber = std::is_same_v<T, uint32_t> || std::is_same_v<T, int32_t> ||
                                  std::is_same_v<T, float> || std::is_same_v<T, double>;
template <class T>
inline constexpr bool kIsTableEnum = std::is_enum_v<T> || std::is_same_v<T, Still>;
template <class T>
inline constexpr bool kIsComposite =
    std::is_same_v<T, My::Span> || std::is_same_v<T, types::affine>;

// The summary of a composite value's row.
std::string SummaryText(const My::Span& span);
std::string SummaryText(const types::affine& a);

template <class T>
class TypedProperty : public Property {
 public:
  virtual T Read(const EditableObject& object) const = 0;
  virtual void Write(EditableObject& object, const T& value) const = 0;

  ControlKind Kind() const override {
    if constexpr (kIsNumber<T>) {
      return ControlKind::Text;
    } else if constexpr (std::is_same_v<T, bool>) {
      return ControlKind::Check;
    } else if constexpr (kIsTableEnum<T> || std::is_same_v<T, PixelAspectRatio>) {
      return ControlKind::Choice;
    } else {
      return ControlKind::Summary;
    }
  }

  std::string GetText(EditableObjects objects) const override {
    if (objects.empty()) return {};
    const T value = Read(*objects.front());
    if constexpr (kIsNumber<T>) {
      return FormatNumber(value);
    } else if constexpr (std::is_same_v<T, bool>) {
      return value ? "true" : "false";
    } else if constexpr (kIsTableEnum<T>) {
      return std::string(Label(value));
    } else if constexpr (std::is_same_v<T, PixelAspectRatio>) {
      return std::string(PixelAspectLabel(value));
    } else {
      static_assert(kIsComposite<T>);
      return SummaryText(value);
    }
  }

  void SetText(EditableObjects objects, std::string_view text) const override {
    if constexpr (kIsNumber<T>) {
      WriteAll(objects, ParseNumber<T>(text));
    } else {
      Property::SetText(objects, text);
    }
  }

  bool GetCheck(EditableObjects objects) const override {
    if constexpr (std::is_same_v<T, bool>) return !objects.empty() && Read(*objects.front());
    return false;
  }
  void SetCheck(EditableObjects objects, bool value) const override {
    if constexpr (std::is_same_v<T, bool>) {
      WriteAll(objects, value);
    } else {
      Property::SetCheck(objects, value);
    }
  }

  std::vector<std::string> Choices() const override {
    std::vector<std::string> labels;
    if constexpr (kIsTableEnum<T>) {
      for (const auto& row : EnumTable<T>()) labels.emplace_back(row.label);
    } else if constexpr (std::is_same_v<T, PixelAspectRatio>) {
      for (const auto& named : PixelAspectTable()) labels.emplace_back(named.label);
    }
    return labels;
  }
  int GetChoice(EditableObjects objects) const override {
    if (objects.empty()) return -1;
    if constexpr (kIsTableEnum<T> || std::is_same_v<T, PixelAspectRatio>) {
      const T value = Read(*objects.front());
      const auto rows = ChoiceRows();
      for (size_t i = 0; i < rows.size(); ++i)
        if (ChoiceValue(rows[i]) == value) return static_cast<int>(i);
    }
    return -1;
  }
  void SetChoice(EditableObjects objects, int index) const override {
    if constexpr (kIsTableEnum<T> || std::is_same_v<T, PixelAspectRatio>) {
      const auto rows = ChoiceRows();
      if (index < 0 || static_cast<size_t>(index) >= rows.size()) ThrowInvalidValue();
      WriteAll(objects, ChoiceValue(rows[static_cast<size_t>(index)]));
    } else {
      Property::SetChoice(objects, index);
    }
  }

 protected:
  // A read-only property ignores writes: its control is never enabled.
  void WriteAll(EditableObjects objects, const T& value) const {
    if (IsReadOnly()) return;
    for (EditableObject* object : objects)
      if (object != nullptr && CanHandle(*object)) Write(*object, value);
  }

 private:
  static auto ChoiceRows() {
    if constexpr (std::is_same_v<T, PixelAspectRatio>) {
      return PixelAspectTable();
    } else {
      return EnumTable<T>();
    }
  }
  static T ChoiceValue(const NamedPixelAspect& named) { return named.ratio; }
  template <class Row>
  static T ChoiceValue(const Row& row) {
    return row.value;
  }
};

// Composes a hint from the value in a language.
template <class T>
using HintFunction = std::string (*)(HintLanguage, const T&);

// A TypedProperty<T> bound to interface I by a getter and a setter, with a
// hint composed from the value. No setter makes it read-only, and its
// control then always stays disabled.
template <class I, class T>
class SimpleProperty : public TypedProperty<T> {
 public:
  using Getter = T (*)(const I&);
  using Setter = void (*)(I&, const T&);

  SimpleProperty(Getter get, Setter set, HintFunction<T> hint)
      : get_(get), set_(set), hint_(hint) {}

  T Read(const EditableObject& object) const override {
    return get_(dynamic_cast<const I&>(object));
  }
  void Write(EditableObject& object, const T& value) const override {
    if (set_ != nullptr) set_(dynamic_cast<I&>(object), value);
  }
  bool CanHandle(const EditableObject& object) const override {
    return dynamic_cast<const I*>(&object) != nullptr;
  }
  bool IsReadOnly() const override { return set_ == nullptr; }
  ControlState State(EditableObjects) const override {
    return IsReadOnly() ? ControlState::Disabled : ControlState::Enabled;
  }
  std::string HintIn(EditableObjects objects, HintLanguage language) const override {
    if (hint_ == nullptr || objects.empty()) return {};
    return hint_(language, Read(*objects.front()));
  }

 private:
  Getter get_;
  Setter set_;
  HintFunction<T> hint_;
};

template <class I, class T>
class SimpleReadOnlyProperty : public SimpleProperty<I, T> {
 public:
  SimpleReadOnlyProperty(typename SimpleProperty<I, T>::Getter get, HintFunction<T> hint)
      : SimpleProperty<I, T>(get, nullptr, hint) {}
};

// One element E of a composite value T. It shows the state of the whole,
// and writes the whole value with only this element changed, so that the
// object sees one change, one undo step.
template <class T, class E>
class CompositeElementProperty : public TypedProperty<E> {
 public:
  CompositeElementProperty(const TypedProperty<T>& whole, E T::*element, HintFunction<E> hint)
      : whole_(whole), element_(element), hint_(hint) {}

  E Read(const EditableObject& object) const override { return whole_.Read(object).*element_; }
  void Write(EditableObject& object, const E& value) const override {
    T changed = whole_.Read(object);
    changed.*element_ = value;
    whole_.Write(object, changed);
  }
  bool CanHandle(const EditableObject& object) const override { return whole_.CanHandle(object); }
  bool IsReadOnly() const override { return whole_.IsReadOnly(); }
  ControlState State(EditableObjects objects) const override { return whole_.State(objects); }
  std::string HintIn(EditableObjects objects, HintLanguage language) const override {
    if (hint_ == nullptr || objects.empty()) return {};
    return hint_(language, Read(*objects.front()));
  }

 private:
  const TypedProperty<T>& whole_;
  E T::*element_;
  HintFunction<E> hint_;
};

// Puts an element row for each (label, member) under `parent`, editing the
// value that `whole` reads. `whole` must outlive the rows.
template <class T, class E>
void AddElements(Property& parent,
                 const TypedProperty<T>& whole,
                 std::initializer_list<std::pair<const char*, E T::*>> elements,
                 HintFunction<E> hint = nullptr) {
  for (const auto& [label, member] : elements)
    parent.Add(label, std::make_unique<CompositeElementProperty<T, E>>(whole, member, hint));
}

// A property with the elements of a second, composite value under it: the
// overlay's alignment carries the six numbers of the initial transform.
// It owns the property that reads the composite.
template <class P, class R>
class ComplexProperty : public P {
 public:
  template <class... A>
  explicit ComplexProperty(std::unique_ptr<TypedProperty<R>> composite, A&&... args)
      : P(std::forward<A>(args)...), composite_(std::move(composite)) {}

  const TypedProperty<R>& Composite() const { return *composite_; }

 private:
  std::unique_ptr<TypedProperty<R>> composite_;
};

// A row that only groups others, for objects of interface I.
template <class I>
class PropertyGroup : public Property {
 public:
  PropertyGroup() { SetOpen(true); }
  bool CanHandle(const EditableObject& object) const override {
    return dynamic_cast<const I*>(&object) != nullptr;
  }
};

}  // namespace app
