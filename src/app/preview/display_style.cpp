// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/preview/display_style.h"

#include <algorithm>
#include <utility>

#include "app/ports.h"

namespace app {

namespace {

using Field = uint32_t DisplayStyle::*;

// The keys in the order the section lists them.
constexpr std::pair<const char*, Field> kKeys[] = {
    {"Underlay", &DisplayStyle::show_underlay},
    {"Overlay", &DisplayStyle::show_overlay},
    {"Mask", &DisplayStyle::show_mask},
    {"InverseMask", &DisplayStyle::inverse_mask},
    {"Background", &DisplayStyle::background},
    {"OverlayOpacity", &DisplayStyle::overlay_opacity},
    {"MaskColor", &DisplayStyle::mask_color},
    {"MaskOpacity", &DisplayStyle::mask_opacity},
    {"Interpolation", &DisplayStyle::interpolation},
};

float Fraction(uint32_t thousandths) {
  return float(double(std::min<uint32_t>(thousandths, 1000)) / 1000.0);
}

}  // namespace

void DisplayStyle::apply_to(img::MergeDetails& d) const {
  d.show_underlay = show_underlay != 0;
  d.show_overlay = show_overlay != 0;
  d.show_mask = show_mask != 0;
  d.inverse_mask = inverse_mask != 0;
  img::unpack_colour(background, d.background);
  d.overlay_opacity = Fraction(overlay_opacity);
  img::unpack_colour(mask_color, d.mask_color);
  d.mask_opacity = Fraction(mask_opacity);
  d.interpolation = interpolation;
}

DisplayStyle ReadDisplayStyle(ProfileStore& profile, uint32_t workspace_colour) {
  DisplayStyle style;
  style.background = workspace_colour;
  for (const auto& [key, field] : kKeys)
    style.*field = uint32_t(profile.get_int(kDisplayStyleSection, key, style.*field));
  return style;
}

void WriteDisplayStyle(ProfileStore& profile, const DisplayStyle& style) {
  for (const auto& [key, field] : kKeys) profile.set_int(kDisplayStyleSection, key, style.*field);
}

bool SetDisplayStyleKey(DisplayStyle& style, const std::string& key, int64_t value) {
  for (const auto& [name, field] : kKeys)
    if (key == name) {
      style.*field = uint32_t(value);
      return true;
    }
  return false;
}

uint32_t RgbToPixelColour(uint32_t rgb) {
  return (rgb & 0xFF00FF00u) | (rgb & 0xFFu) << 16 | (rgb >> 16 & 0xFFu);
}

uint32_t PixelColourToRgb(uint32_t colour) {
  return RgbToPixelColour(colour);  // the same exchange of the outer bytes
}

TimeSettings ReadTimeSettings(ProfileStore& profile) {
  TimeSettings t;
  t.play_delay = uint32_t(profile.get_int(kTimeSection, "PlayTimerDelay", t.play_delay));
  t.auto_follow = profile.get_int(kTimeSection, "AutoFollow", t.auto_follow) != 0;
  t.loop = profile.get_int(kTimeSection, "Loop", t.loop) != 0;
  return t;
}

void WriteTimeSettings(ProfileStore& profile, const TimeSettings& t) {
  profile.set_int(kTimeSection, "PlayTimerDelay", t.play_delay);
  profile.set_int(kTimeSection, "AutoFollow", t.auto_follow ? 1 : 0);
  profile.set_int(kTimeSection, "Loop", t.loop ? 1 : 0);
}

uint32_t PlayDelayOfRate(uint32_t frames_per_second) {
  switch (frames_per_second) {
    case 10:
      return 100;
    case 25:
      return 40;
    case 30:
      return 33;
    case 50:
      return 20;
  }
  return 0;
}

}  // namespace app
