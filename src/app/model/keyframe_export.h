// SPDX-License-Identifier: GPL-3.0-or-later
// The composition's overlay motion as it leaves the program: the record the
// applicators read, the frame format of the text's header, and the keyframe
// text or per-frame data written from them.
#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "base/enums.h"
#include "exchange/keyframe_export.h"
#include "exchange/transformations.h"

class VLComp;

namespace app {

// Settings that replace the project's own for one export only; the project
// is not changed and not marked modified.
struct ExportOverrides {
  std::optional<ExportModel> model;
  std::optional<float> inaccuracy;  // pixels, at least 0
  std::optional<TaskType> task;
};

// The rule of Copy Transforms and Export Transforms on the facts it reads;
// the commands' rules and HasTransformsToExport both ask it.
bool TransformsToExport(bool projectOpen, bool overlayHasFrames, bool transformSpanEmpty);

// Whether there is motion to export: a project is open, the overlay has
// frames and its transform span is not empty (the rule of Copy Transforms
// and Export Transforms).
bool HasTransformsToExport(const VLComp& comp);

// The record of the overlay's motion: completes the overlay's lazily
// computed transforms first, then takes the transform span's first frame,
// its transforms, the overlay's initial transform and the composition's
// export inaccuracy, task and model (each unless overridden).
Transformations OverlayTransformations(VLComp& comp, const ExportOverrides& overrides = {});

// The composition's size, frame rate and pixel aspect.
FrameFormat CompFrameFormat(const VLComp& comp);

// The keyframe text of the overlay's motion on `out`. Throws xtd::exception
// with "There are no transformations to export" before writing anything
// when HasTransformsToExport is false; otherwise what the stream throws.
void WriteKeyframeText(VLComp& comp, std::ostream& out, const ExportOverrides& overrides = {});

// The frames of the overlay's transform span (indices) whose motion is
// extrapolated: no segment rules them, or the ruling one has no result there
// (never tracked, or a run that stopped early).
std::vector<int32_t> ExtrapolatedFrames(const VLComp& comp);

// The same motion per frame as JSON (see exchange/motion_json.h), frames
// numbered with the start frame added and the extrapolated ones listed; the
// same failure when there is nothing to export.
std::string OverlayMotionJson(VLComp& comp, const ExportOverrides& overrides = {});

}  // namespace app
