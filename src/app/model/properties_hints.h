// SPDX-License-Identifier: GPL-3.0-or-later
// The hint of every property, composed from the current value.
//
// Each hint exists in English and in Russian with the same branches and the
// same numbers in it; only the reference frame pitch is worded apart in
// Russian for a pitch below 2. Numbers are in the default stream form.
// Labels of the panel (such as 'Reference frame pitch') and of values stay
// in English in both languages, because the panel shows them so.
#pragma once

#include <cstdint>
#include <string>

#include "app/model/properties.h"
#include "base/enums.h"

namespace app::hints {

// Composition.
std::string Framerate(HintLanguage language);
std::string PixelAspect(HintLanguage language);
std::string StartFrame(HintLanguage language);
std::string WorkArea(HintLanguage language);
std::string Export(HintLanguage language);
std::string Task(HintLanguage language, TaskType task);
std::string Inaccuracy(HintLanguage language, float pixels);
std::string TransformModel(HintLanguage language, ExportModel model);

// Overlay.
std::string SourceOffset(HintLanguage language);
std::string Trimming(HintLanguage language);
std::string MatchFrame(HintLanguage language);
std::string OverlayAlignment(HintLanguage language);
std::string InitialTransformElement(HintLanguage language);
std::string OverlayAlpha(HintLanguage language);
std::string OverlayType(HintLanguage language);

// Segment.
std::string TimeRange(HintLanguage language);
std::string MatchingRadius(HintLanguage language, uint32_t radius);
std::string MaxMotionChange(HintLanguage language, uint32_t pixels);
std::string TrackerSize(HintLanguage language, uint32_t size);
std::string OriginalMaskInAllFrames(HintLanguage language, bool same_mask);
std::string EstimationMethod(HintLanguage language, MotionEstimation method);
std::string MotionModel(HintLanguage language, TransformClass model);
std::string ReferenceFramePitch(HintLanguage language, uint32_t pitch);

}  // namespace app::hints
