// SPDX-License-Identifier: GPL-3.0-or-later
// The shape of one pixel as an exact fraction: width over height.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

struct PixelAspectRatio {
  int32_t num = 1;  // relative width of a pixel
  int32_t den = 1;  // relative height of a pixel

  // A numerator of 0 asks a sequence load to derive the ratio from the size
  // of its first image.
  constexpr bool is_unset() const { return num == 0; }

  // Equal when the cross products are: 6/5 equals 648/540, 2/2 equals 1/1.
  // The products are taken in 64 bits, so no pair of 32-bit values overflows.
  friend constexpr bool operator==(const PixelAspectRatio& a, const PixelAspectRatio& b) {
    return int64_t{a.num} * b.den == int64_t{b.num} * a.den;
  }
};

struct NamedPixelAspect {
  const char* label;
  PixelAspectRatio ratio;
};

// The named ratios in the order the user is offered them.
std::span<const NamedPixelAspect> PixelAspectTable();

// The label of the first named ratio equal to `ratio`, or "Custom".
std::string_view PixelAspectLabel(const PixelAspectRatio& ratio);

// The ratio a frame of this size has in the common video formats: 720x480 and
// 720x486 are NTSC (648/720), 720x576 is PAL (768/720), 1440x1024 and
// 2880x2048 are anamorphic and standard film scans (256/135, 128/135).
// Every other size is taken as square pixels.
PixelAspectRatio guess_pixel_aspect(int32_t width, int32_t height);
