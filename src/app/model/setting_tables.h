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

// The highest frame rate a composition takes; more is no footage.
inline constexpr double kMaxFramerate = 1000.0;
// A rate as the setter keeps it: 1 to kMaxFramerate frames per second.
double ClampedFramerate(double rate);

// The rate as frames per `scale` seconds, for containers that store a
// fraction: a whole rate over 1, an NTSC rate (within 0.005 of N x 1000/1001,
// so 29.97 as well as 30000/1001) as N x 1000 over 1001, anything else in
// thousandths, reduced.
struct RateFraction {
  uint32_t rate = 25;
  uint32_t scale = 1;
  friend bool operator==(const RateFraction&, const RateFraction&) = default;
};
RateFraction FramerateFraction(double rate);

// A frame value (a row with `frames`) moved by `by`: the start frame to show
// it, minus the start frame to store what the user gave. Other values pass.
SettingValue ShiftFrames(const SettingValue& value, int32_t by);

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
