// SPDX-License-Identifier: GPL-3.0-or-later
// The whole keyframe export of a composition's overlay motion: what the
// composition's WriteKeyframeText gathers and hands over.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

#include "exchange/transformations.h"

// What the text's header and the applicators need to know of the
// composition's frames.
struct FrameFormat {
  int32_t width = 0;  // pixels
  int32_t height = 0;
  double framerate = 0;  // frames per second: the text's units per second
  int32_t pixel_aspect_num = 1;
  int32_t pixel_aspect_den = 1;
};

// Writes the keyframe text of `record` (its transforms must already be
// complete) to `out`: header, the blocks of the record's export model
// (chosen from the data for Auto), footer. Throws xtd::exception before
// writing anything when the record holds no frames or names no known model.
// The stream's format is left as the caller set it: the text relies on the
// default (six significant digits), so do not set a precision on it.
void WriteKeyframeText(std::ostream& out, const FrameFormat& format, const Transformations& record);

// The text as the clipboard wants it: when it holds a line feed, a carriage
// return goes before every line feed; otherwise it stays as it is.
std::string ClipboardText(std::string_view text);
