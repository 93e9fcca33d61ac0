// SPDX-License-Identifier: GPL-3.0-or-later
// Reads an AVI back through FFmpeg, frame by frame, as blue-green-red-alpha
// pictures: what a player or compositing host would get from the file.
#pragma once

#include <string>
#include <vector>

#include "imaging/bitmap.h"

namespace testing_support {

struct AviContents {
  std::string codec;               // the decoder's short name
  bool alpha = false;              // the stream's pixel format has alpha
  int rate_num = 0, rate_den = 0;  // the stream's frame rate
  std::vector<img::image> frames;  // top-down; alpha 255 when the stream has none
};

// Throws std::runtime_error when the file cannot be opened or decoded.
AviContents ReadAvi(const std::string& file);

}  // namespace testing_support
