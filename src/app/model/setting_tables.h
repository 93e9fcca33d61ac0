// SPDX-License-Identifier: GPL-3.0-or-later
// The settings of the composition and of the overlay, in the order that
// velomar-cli and info --json list them.
#pragma once

#include <span>
#include <string_view>

#include "app/model/comp.h"
#include "app/model/overlay.h"
#include "app/model/settings.h"

namespace app {

using CompSetting = Setting<VLComp, VLCompSettings>;
using OverlaySetting = Setting<VLOverlay, VLOverlay::Stored>;

std::span<const CompSetting* const> CompSettings();
std::span<const OverlaySetting* const> OverlaySettings();

// The row of `key`; throws std::out_of_range for an unknown key.
const CompSetting& CompSettingOf(std::string_view key);
const OverlaySetting& OverlaySettingOf(std::string_view key);

// Writes a setting at once: no undo step (the project reader, tests, the
// undo steps themselves).
void AssignSetting(VLComp& comp, std::string_view key, const SettingValue& value);
void AssignSetting(VLOverlay& overlay, std::string_view key, const SettingValue& value);

// Changes a setting as one undo step on `queue`.
void ChangeSetting(VLComp& comp, std::string_view key, const SettingValue& value);
void ChangeSetting(VLOverlay& overlay,
                   VLActionQueue& queue,
                   std::string_view key,
                   const SettingValue& value);

// The fields of one place of the file, in the file's order.
void CompSettingFields(xml::filter& f, VLCompSettings& settings, int32_t length, FilePlace place);
void OverlaySettingFields(xml::filter& f,
                          VLOverlay::Stored& overlay,
                          int32_t length,
                          FilePlace place);

}  // namespace app
