// SPDX-License-Identifier: GPL-3.0-or-later
// A setting of the composition or of the overlay, described once: its key
// (velomar-cli set, info --json), its row in the property panel, its word in
// the project file, its undo text, how it is read, and how it is written with
// its clamp. Everything that lists settings walks the tables of
// setting_tables.h, so a new setting is one row there and a member with a
// getter in its class.
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>

#include "app/model/action.h"
#include "app/model/action_queue.h"
#include "app/model/properties_typed.h"
#include "base/affine.h"
#include "base/enums.h"
#include "base/pixel_aspect.h"
#include "base/span.h"
#include "base/xml_fields.h"
#include "base/xml_filter.h"

namespace app {

// Every type a setting may have.
using SettingValue = std::variant<int32_t,
                                  uint32_t,
                                  float,
                                  double,
                                  My::Span,
                                  PixelAspectRatio,
                                  types::affine,
                                  TaskType,
                                  ExportModel,
                                  Alignment,
                                  AlphaInterpretation,
                                  Still>;

// Where the project file holds a setting. The file writes the places in
// turn, each around the fields that are no settings (frame size, frames):
// Lead before them, Body after them, Root in the document's root after the
// segments. Within a place, rows go by `order`, then by table order.
enum class FilePlace { None, Lead, Body, Root };

// What the property panel shows for an object with settings: the object
// and the queue its changes go to.
template <class Owner>
class SettingsObject : public EditableObject {
 public:
  virtual Owner& SettingsOwner() = 0;
  virtual const Owner& SettingsOwner() const = 0;
  virtual VLActionQueue& SettingsQueue() = 0;
};

// A hint that does not depend on the value.
template <class T, std::string (*Text)(HintLanguage)>
std::string FixedHint(HintLanguage language, const T&) {
  return Text(language);
}

// A pixel aspect ratio in the file: both numbers, and neither zero nor
// negative, since every use divides by one of them.
void AspectFields(xml::filter& f, PixelAspectRatio& ratio);

// One row of a table. `Record` is what the project file reads and writes of
// the owner.
template <class Owner, class Record>
class Setting {
 public:
  struct Names {
    const char* key;                      // velomar-cli set, info --json
    const char* undo = nullptr;           // the undo text; none: read only
    const char* label = nullptr;          // the panel's row; none: no row
    const char* group = nullptr;          // the group row the row sits under
    const char* elementsUnder = nullptr;  // no row: the elements go under this one
    const char* fileWord = nullptr;
    FilePlace place = FilePlace::None;
    int order = 0;               // within the place
    const char* form = nullptr;  // what the command line wants, in its messages
    // A frame or a span of the composition's frames, stored as indices from
    // 0: whoever shows or takes it adds the start frame, as the time field does.
    bool frames = false;
  };

  explicit Setting(const Names& names) : names_(names) {}
  virtual ~Setting() = default;
  Setting(const Setting&) = delete;
  Setting& operator=(const Setting&) = delete;

  const Names& names() const { return names_; }
  bool IsReadOnly() const { return names_.undo == nullptr; }

  virtual SettingValue Get(const Owner& owner) const = 0;
  // Clamps and compares: a value equal to the stored one changes nothing and
  // fires nothing. A value of another type is a fault of the caller.
  virtual void Set(Owner& owner, const SettingValue& value) const = 0;
  // The file's field; `length` is the composition's frame count.
  virtual void File(xml::filter& f, Record& record, int32_t length) const = 0;
  // The panel's row (with its element rows) under `parent`, or the element
  // rows under the row named by elementsUnder. Rows that must outlive the
  // call without a place in the tree go to `keep`.
  virtual void AddRows(Property& parent, std::vector<std::unique_ptr<Property>>& keep) const = 0;

 private:
  Names names_;
};

// The generic undo step of every setting.
template <class Owner, class Record>
class SettingAction : public Action {
 public:
  SettingAction(Owner& owner, const Setting<Owner, Record>& setting, SettingValue value)
      : owner_(owner), setting_(setting), newValue_(std::move(value)) {}
  bool Do() override {
    oldValue_ = setting_.Get(owner_);
    setting_.Set(owner_, newValue_);
    return !(setting_.Get(owner_) == oldValue_);
  }
  void Undo() override { setting_.Set(owner_, oldValue_); }
  std::string GetName() const override { return setting_.names().undo; }

 private:
  Owner& owner_;
  const Setting<Owner, Record>& setting_;
  SettingValue newValue_;
  SettingValue oldValue_;
};

// The panel's row of a setting: reads the owner behind the shown object,
// writes as one SettingAction on its queue.
template <class Owner, class Record, class T>
class SettingProperty : public TypedProperty<T> {
 public:
  SettingProperty(const Setting<Owner, Record>& setting,
                  HintFunction<T> hint,
                  bool (*accepts)(const T&) = nullptr)
      : setting_(setting), hint_(hint), accepts_(accepts) {}

  T Read(const EditableObject& object) const override {
    return std::get<T>(
        setting_.Get(dynamic_cast<const SettingsObject<Owner>&>(object).SettingsOwner()));
  }
  void Write(EditableObject& object, const T& value) const override {
    if (accepts_ != nullptr && !accepts_(value)) ThrowInvalidValue();
    auto& shown = dynamic_cast<SettingsObject<Owner>&>(object);
    shown.SettingsQueue().Push(std::make_unique<SettingAction<Owner, Record>>(
        shown.SettingsOwner(), setting_, SettingValue(value)));
  }
  bool CanHandle(const EditableObject& object) const override {
    return dynamic_cast<const SettingsObject<Owner>*>(&object) != nullptr;
  }
  bool IsReadOnly() const override { return setting_.IsReadOnly(); }
  ControlState State(EditableObjects) const override {
    return IsReadOnly() ? ControlState::Disabled : ControlState::Enabled;
  }
  std::string HintIn(EditableObjects objects, HintLanguage language) const override {
    if (hint_ == nullptr || objects.empty()) return {};
    return hint_(language, Read(*objects.front()));
  }

 private:
  const Setting<Owner, Record>& setting_;
  HintFunction<T> hint_;
  bool (*accepts_)(const T&);
};

// A setting of type T.
template <class Owner, class Record, class T>
class TypedSetting final : public Setting<Owner, Record> {
 public:
  struct Access {
    T (*get)(const Owner&);
    void (*set)(Owner&, const T&) = nullptr;  // clamps and compares
    T Record::*member = nullptr;              // the file's field
    T fileDefault{};                          // left out of the file when equal
    // Instead of the plain field, where the file needs more.
    void (*file)(xml::filter&, Record&, int32_t length) = nullptr;
    HintFunction<T> hint = nullptr;
    HintFunction<double> elementHint = nullptr;  // the elements of an affine
    // What the panel takes as typed; anything else is an invalid value there
    // (the setter's clamp still serves everyone else).
    bool (*accepts)(const T&) = nullptr;
  };

  TypedSetting(const typename Setting<Owner, Record>::Names& names, const Access& access)
      : Setting<Owner, Record>(names), access_(access) {}

  SettingValue Get(const Owner& owner) const override { return access_.get(owner); }

  void Set(Owner& owner, const SettingValue& value) const override {
    const T* typed = std::get_if<T>(&value);
    if (typed == nullptr || access_.set == nullptr)
      throw std::logic_error(std::string("setting ") + this->names().key +
                             " cannot take this value");
    access_.set(owner, *typed);
  }

  void File(xml::filter& f, Record& record, int32_t length) const override {
    if (access_.file != nullptr) {
      access_.file(f, record, length);
      return;
    }
    const char* word = this->names().fileWord;
    if (word == nullptr || access_.member == nullptr) return;
    T& value = record.*access_.member;
    if constexpr (std::is_same_v<T, My::Span>) {
      // A span's element is always written: readers take an absent one as 0..0.
      f.child(word, [&](xml::filter& c) { xml::SpanFields(c, value); });
    } else if constexpr (std::is_same_v<T, types::affine>) {
      f.defaulted_child(word, value, access_.fileDefault, xml::AffineFields);
    } else if constexpr (std::is_same_v<T, PixelAspectRatio>) {
      f.defaulted_child(word, value, access_.fileDefault, AspectFields);
    } else if constexpr (std::is_same_v<T, Still>) {
      // Follows from the frames; never stored.
    } else {
      f.defaulted(word, value, access_.fileDefault);
    }
  }

  void AddRows(Property& parent, std::vector<std::unique_ptr<Property>>& keep) const override {
    const auto& names = this->names();
    if (names.label == nullptr && names.elementsUnder == nullptr) return;
    auto row =
        std::make_unique<SettingProperty<Owner, Record, T>>(*this, access_.hint, access_.accepts);
    Property* elementsParent = row.get();
    if (names.label == nullptr) {
      elementsParent = parent.Child(names.elementsUnder);
      if (elementsParent == nullptr)
        throw std::logic_error(std::string("no row ") + names.elementsUnder + " for " + names.key);
    }
    if constexpr (std::is_same_v<T, My::Span>) {
      AddElements<My::Span, int32_t>(*elementsParent, *row,
                                     {{"From", &My::Span::first}, {"To", &My::Span::last}});
    } else if constexpr (std::is_same_v<T, PixelAspectRatio>) {
      AddElements<PixelAspectRatio, int32_t>(
          *elementsParent, *row,
          {{"Horizontal", &PixelAspectRatio::num}, {"Vertical", &PixelAspectRatio::den}});
    } else if constexpr (std::is_same_v<T, types::affine>) {
      AddElements<types::affine, double>(*elementsParent, *row,
                                         {{"x", &types::affine::x},
                                          {"y", &types::affine::y},
                                          {"xx", &types::affine::xx},
                                          {"xy", &types::affine::xy},
                                          {"yx", &types::affine::yx},
                                          {"yy", &types::affine::yy}},
                                         access_.elementHint);
    }
    if (names.label == nullptr)
      keep.push_back(std::move(row));
    else
      parent.Add(names.label, std::move(row));
  }

 private:
  Access access_;
};

}  // namespace app
