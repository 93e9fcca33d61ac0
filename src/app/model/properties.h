// SPDX-License-Identifier: GPL-3.0-or-later
// The property model behind the property panel.
//
// A Property describes one row of the panel: how to read and write its value
// on the objects shown, which control shows it and in which state, and the
// hint text for it. Properties are built once and hold no value; the trees of
// the composition, the overlay and a segment are in properties_sets.h.
//
// Properties take a list of objects. The first one decides the value shown,
// the hint and the control state; a write goes to every object in the list
// that the property can handle.
#pragma once

#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "app/model/properties_access.h"

namespace app {

using EditableObjects = std::span<EditableObject* const>;

// The numbers are the states the panel's controls know.
enum class ControlState : int {
  Enabled = 0,   // shown and enabled
  Disabled = 1,  // shown and disabled
  Hidden = 2,    // hidden and disabled
};

enum class HintLanguage : int { English = 0, Russian = 1 };

// The language of every hint, a setting of the whole program. Values other
// than 1 read as English.
HintLanguage GetHintLanguage();
void SetHintLanguage(int language);

// What kind of control shows a property's value.
enum class ControlKind {
  None,     // a plain group: no value
  Text,     // a number typed as text
  Check,    // a check box
  Choice,   // a drop-down list of labels
  Summary,  // read-only text summing up the elements listed below it
};

class Property {
 public:
  // Children show in the order of their names (byte order).
  using Children = std::map<std::string, std::unique_ptr<Property>, std::less<>>;

  virtual ~Property() = default;

  // The hint in the program's hint language, composed from the first
  // object's current value; empty for no objects.
  std::string Hint(EditableObjects objects) const { return HintIn(objects, GetHintLanguage()); }
  virtual std::string HintIn(EditableObjects /*objects*/, HintLanguage /*language*/) const {
    return {};
  }

  virtual ControlState State(EditableObjects /*objects*/) const { return ControlState::Enabled; }

  // Whether `object` offers the interface this property reads.
  virtual bool CanHandle(const EditableObject& object) const = 0;

  virtual ControlKind Kind() const { return ControlKind::None; }
  virtual bool IsReadOnly() const { return false; }

  // The value as the control shows it: the number, the chosen label, the
  // summary; empty for no objects.
  virtual std::string GetText(EditableObjects /*objects*/) const { return {}; }
  // Parses `text` and writes the value. A text that is not a whole number of
  // the property's type throws std::runtime_error "Invalid property value";
  // nothing is written then.
  virtual void SetText(EditableObjects objects, std::string_view text) const;

  virtual bool GetCheck(EditableObjects /*objects*/) const { return false; }
  virtual void SetCheck(EditableObjects objects, bool value) const;

  // The labels a Choice offers, in table order; GetChoice is -1 when the
  // value has no label in the list (a custom pixel aspect ratio).
  virtual std::vector<std::string> Choices() const { return {}; }
  virtual int GetChoice(EditableObjects /*objects*/) const { return -1; }
  virtual void SetChoice(EditableObjects objects, int index) const;

  const Children& GetChildren() const { return children_; }
  const Property* Child(std::string_view label) const;
  Property* Child(std::string_view label) {
    return const_cast<Property*>(std::as_const(*this).Child(label));
  }
  bool IsOpen() const { return open_; }

  // Adds a child under `label` and returns it. A label already present is a
  // fault of the tree's builder.
  Property& Add(std::string label, std::unique_ptr<Property> child);
  void SetOpen(bool open) { open_ = open; }

 private:
  Children children_;
  bool open_ = false;
};

// The panel's title for the object it shows: "Composition Properties",
// "Overlay Properties", "Segment Properties", or "Property Editor" for none.
std::string PanelTitle(const EditableObject* shown);

}  // namespace app
