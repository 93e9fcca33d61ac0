// SPDX-License-Identifier: GPL-3.0-or-later
// The preview's settings as the profile store keeps them: the display style
// (section "DisplayStyle") and the time settings (section "Time").
#pragma once

#include <cstdint>
#include <string>

#include "imaging/merge_details.h"

namespace app {

class ProfileStore;

// The stored integer forms: flags 0 or 1, colours as integers whose low
// byte is the pixel's first byte (blue), opacities in thousandths.
struct DisplayStyle {
  uint32_t show_underlay = 1;       // "Underlay"
  uint32_t show_overlay = 1;        // "Overlay"
  uint32_t show_mask = 1;           // "Mask"
  uint32_t inverse_mask = 0;        // "InverseMask"
  uint32_t background = 0;          // "Background"; the default is the workspace colour
  uint32_t overlay_opacity = 1000;  // "OverlayOpacity"
  uint32_t mask_color = 255;        // "MaskColor": a full first byte, pure blue
  uint32_t mask_opacity = 500;      // "MaskOpacity"
  uint32_t interpolation = 1;       // "Interpolation": 1 bilinear, else nearest

  friend bool operator==(const DisplayStyle&, const DisplayStyle&) = default;

  // Copies the style into the first fields of a request; opacities become
  // fractions (clamped to 0..1).
  void apply_to(img::MergeDetails& details) const;
};

inline constexpr char kDisplayStyleSection[] = "DisplayStyle";
inline constexpr char kTimeSection[] = "Time";

// Reads the style; keys that are missing take their defaults, "Background"
// `workspace_colour`.
DisplayStyle ReadDisplayStyle(ProfileStore& profile, uint32_t workspace_colour);
void WriteDisplayStyle(ProfileStore& profile, const DisplayStyle& style);

// Sets the field stored under `key` ("Underlay", "Overlay", "Mask",
// "InverseMask", "Background", "OverlayOpacity", "MaskColor",
// "MaskOpacity", "Interpolation") from its stored integer. False for any
// other key.
bool SetDisplayStyleKey(DisplayStyle& style, const std::string& key, int64_t value);

// The colour widgets speak RGB integers (red in the low byte); the style
// keeps pixel order (blue in the low byte).
uint32_t RgbToPixelColour(uint32_t rgb);
uint32_t PixelColourToRgb(uint32_t colour);

struct TimeSettings {
  uint32_t play_delay = 100;  // "PlayTimerDelay": milliseconds between frames
  bool auto_follow = false;   // "AutoFollow"
  bool loop = true;           // "Loop"
  friend bool operator==(const TimeSettings&, const TimeSettings&) = default;
};

TimeSettings ReadTimeSettings(ProfileStore& profile);
void WriteTimeSettings(ProfileStore& profile, const TimeSettings& settings);

// The frame rate menu: 10, 25, 30 or 50 frames per second as a delay in
// milliseconds (100, 40, 33, 20); 0 for any other rate.
uint32_t PlayDelayOfRate(uint32_t frames_per_second);

}  // namespace app
