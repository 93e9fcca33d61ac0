// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/file/mask_codec.h"
#include "app/file/project_fields.h"
#include "base/timing_xml.h"
#include "base/xml_fields.h"

namespace app {

namespace {

// Only these parameters reach the file; the others keep their defaults for
// good. The order of the attributes is the file's, not the record's.
void ParamFields(xml::filter& f, VLSegmentParams& p) {
  if (f.reading()) p = VLSegmentParams{};
  f.required("InitialSearchRadius", p.InitialSearchRadius);
  f.required("MaxAcceleration", p.MaxAcceleration);
  f.required("ImageBlockSize", p.ImageBlockSize);
  f.required("MaskGenerationPitch", p.MaskGenerationPitch);
  f.required("OriginalMaskInAllFrames", p.OriginalMaskInAllFrames);
  f.defaulted("MotionEstimation", p.MotionEstimation, MotionEstimation::Normal);
  f.defaulted("MotionModel", p.MotionModel, TransformClass::Affine);
  // A block size or pitch of 0 from a hand-edited file would reach the
  // tracker's divisions; the setters' ranges hold for read values too.
  if (f.reading()) p = Clamped(p);
}

}  // namespace

void SegmentFields(
    xml::filter& f, SegmentRecord& s, uint64_t maxMaskPixels, uint32_t width, uint32_t height) {
  f.required("Origin", s.origin);
  f.child("TimeSpan", [&](xml::filter& c) { xml::SpanFields(c, s.timeSpan); });
  f.child("Param", [&](xml::filter& c) { ParamFields(c, s.params); });
  f.child("Mask", [&](xml::filter& c) { MaskFields(c, s.mask, maxMaskPixels, width, height); });
  f.list("BackwardTransform", s.data.backward, xml::AffineFields);
  f.list("ForwardTransform", s.data.forward, xml::AffineFields);
  // A segment read from a file is idle, so reading always takes the tree
  // (an absent element gives an empty one).
  if (f.reading() || s.withTiming) {
    xml::filter t = f.Sub("TimingTree");
    timing::TimingTreeFields(t, s.timingSource ? *s.timingSource : s.timing, s.frequency);
  }
}

}  // namespace app
