// SPDX-License-Identifier: GPL-3.0-or-later
// The overlay motion as data for pipelines: one JSON object with the frame
// format and, per frame, the transform the host gets (the task applied, as
// in the keyframe text) and the frame's four corners mapped by it.
//
//   {"first": F, "width": W, "height": H, "framerate": R, "pixel_aspect": A,
//    "task": "Tracking", "frames": [
//   {"frame": F, "matrix": [xx, xy, yx, yy, x, y],
//    "corners": [[x, y] upper left, upper right, lower left, lower right]},
//   ...]}
//
// One frame per line. Numbers are the shortest decimal that reads back to
// the same double; pixel_aspect is num / den as a double. A value that is
// not finite (a singular matrix under "Compensation") is written as null.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "exchange/keyframe_export.h"
#include "exchange/transformations.h"

// `extrapolated`, when given, adds "extrapolated": [frames...] after "frames":
// the frames whose motion no tracked result covers.
std::string MotionJson(const FrameFormat& format,
                       const Transformations& record,
                       const std::vector<int64_t>* extrapolated = nullptr);
