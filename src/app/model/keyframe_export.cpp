// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/model/keyframe_export.h"

#include "app/model/comp.h"
#include "base/errors.h"
#include "exchange/motion_json.h"

namespace app {

namespace {

void RequireTransforms(const VLComp& comp) {
  if (!HasTransformsToExport(comp)) throw xtd::exception("There are no transformations to export");
}

}  // namespace

bool TransformsToExport(bool projectOpen, bool overlayHasFrames, bool transformSpanEmpty) {
  return projectOpen && overlayHasFrames && !transformSpanEmpty;
}

bool HasTransformsToExport(const VLComp& comp) {
  return TransformsToExport(!comp.IsEmpty(), !comp.GetOverlay().IsEmpty(),
                            comp.GetOverlay().GetTransformSpan().empty());
}

Transformations OverlayTransformations(VLComp& comp, const ExportOverrides& overrides) {
  VLOverlay& overlay = comp.GetOverlay();
  Transformations record;
  record.Own() = overlay.CompletedTransforms();
  record.first = overlay.GetTransformSpan().first;
  record.InitialTransform = overlay.GetInitialTransform();
  record.ExportInaccuracy = overrides.inaccuracy.value_or(comp.GetExportInaccuracy());
  record.Task = overrides.task.value_or(comp.GetTask());
  record.ExportModel = overrides.model.value_or(comp.GetExportModel());
  return record;
}

FrameFormat CompFrameFormat(const VLComp& comp) {
  FrameFormat format;
  format.width = int32_t(comp.GetWidth());
  format.height = int32_t(comp.GetHeight());
  format.framerate = comp.GetFramerate();
  format.pixel_aspect_num = comp.GetPixelAspect().num;
  format.pixel_aspect_den = comp.GetPixelAspect().den;
  return format;
}

void WriteKeyframeText(VLComp& comp, std::ostream& out, const ExportOverrides& overrides) {
  RequireTransforms(comp);
  ::WriteKeyframeText(out, CompFrameFormat(comp), OverlayTransformations(comp, overrides));
}

std::string OverlayMotionJson(VLComp& comp, const ExportOverrides& overrides) {
  RequireTransforms(comp);
  return MotionJson(CompFrameFormat(comp), OverlayTransformations(comp, overrides));
}

}  // namespace app
