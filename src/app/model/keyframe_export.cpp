// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/model/keyframe_export.h"

#include "app/model/comp.h"
#include "app/model/segment.h"
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

std::vector<int32_t> ExtrapolatedFrames(const VLComp& comp) {
  std::vector<int32_t> frames;
  const My::Span span = comp.GetOverlay().GetTransformSpan();
  const auto& rulers = comp.GetTopSegment();
  for (int32_t f = span.first; f < span.last; ++f) {
    const int32_t ruler = size_t(f) < rulers.size() ? rulers[size_t(f)] : -1;
    if (ruler < 0 || !comp.GetSegmentObject(ruler).GetDataSpan().contains(f)) frames.push_back(f);
  }
  return frames;
}

std::string OverlayMotionJson(VLComp& comp, const ExportOverrides& overrides) {
  RequireTransforms(comp);
  Transformations record = OverlayTransformations(comp, overrides);
  // Frames as the user numbers them, as everywhere the data leaves as text.
  record.first += comp.GetStartFrame();
  std::vector<int64_t> extrapolated;
  for (const int32_t f : ExtrapolatedFrames(comp))
    extrapolated.push_back(int64_t(f) + comp.GetStartFrame());
  return MotionJson(CompFrameFormat(comp), record, &extrapolated);
}

}  // namespace app
