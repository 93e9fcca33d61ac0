// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/model/properties.h"

#include <stdexcept>

#include "app/model/properties_parse.h"

namespace app {
namespace {

// Read and set on the thread that owns the composition only.
int g_hint_language = 0;

}  // namespace

HintLanguage GetHintLanguage() {
  return g_hint_language == 1 ? HintLanguage::Russian : HintLanguage::English;
}

void SetHintLanguage(int language) {
  g_hint_language = language;
}

// A control that offers no such input never calls these; a caller that does
// anyway gets the user's error rather than a silent success.
void Property::SetText(EditableObjects, std::string_view) const {
  ThrowInvalidValue();
}
void Property::SetCheck(EditableObjects, bool) const {
  ThrowInvalidValue();
}
void Property::SetChoice(EditableObjects, int) const {
  ThrowInvalidValue();
}

const Property* Property::Child(std::string_view label) const {
  const auto found = children_.find(label);
  return found == children_.end() ? nullptr : found->second.get();
}

Property& Property::Add(std::string label, std::unique_ptr<Property> child) {
  auto [where, added] = children_.emplace(std::move(label), std::move(child));
  if (!added) throw std::logic_error("property tree: label used twice: " + where->first);
  return *where->second;
}

}  // namespace app
