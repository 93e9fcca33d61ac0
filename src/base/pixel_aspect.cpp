// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/pixel_aspect.h"

namespace {

constexpr NamedPixelAspect kNamedPixelAspects[] = {
    {"Square Pixels", {1, 1}},          {"D1/DV NTSC", {648, 720}},
    {"D1/DV NTSC Widescreen", {6, 5}},  {"D1/DV PAL", {768, 720}},
    {"D1/DV PAL Widescreen", {64, 45}}, {"Anamorphic 2:1", {2, 1}},
    {"D4/D16 Standard", {128, 135}},    {"D4/D16 Anamorphic", {256, 135}},
};

}  // namespace

std::span<const NamedPixelAspect> PixelAspectTable() {
  return kNamedPixelAspects;
}

std::string_view PixelAspectLabel(const PixelAspectRatio& ratio) {
  for (const auto& row : kNamedPixelAspects)
    if (row.ratio == ratio) return row.label;
  return "Custom";
}

PixelAspectRatio guess_pixel_aspect(int32_t width, int32_t height) {
  if (width == 720 && (height == 480 || height == 486)) return {648, 720};
  if (width == 720 && height == 576) return {768, 720};
  if (width == 1440 && height == 1024) return {256, 135};
  if (width == 2880 && height == 2048) return {128, 135};
  return {1, 1};
}
