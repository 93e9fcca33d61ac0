// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/file/project_fields.h"

#include <algorithm>
#include <limits>

#include "app/model/setting_tables.h"
#include "app/ports.h"
#include "base/errors.h"
#include "base/frame_record.h"
#include "base/xml_fields.h"

namespace app {

namespace {

void SizeFields(xml::filter& f, uint32_t& width, uint32_t& height) {
  f.defaulted("sx", width, 0u);
  f.defaulted("sy", height, 0u);
}

// Reads the overlay's element; a failure inside it asks whether to go on
// without the overlay. Cancel replaces the failure by "operation canceled".
void ReadOverlay(xml::filter& f, ProjectRecord& p, const ProjectContext& context) {
  const int32_t length = int32_t(p.underlay.size());
  try {
    OverlayFields(f, p.overlay, context.base, length);
  } catch (const std::exception& e) {
    const std::string text =
        std::string("Overlay loading error:\n") + e.what() + "\n\nOpen project without overlay?";
    const Answer answer = context.dialogs
                              ? context.dialogs->ask(text, Buttons::OkCancel, Icon::Error)
                              : Answer::Cancel;
    if (answer != Answer::Ok) throw xtd::exception("operation canceled");
    // As the overlay's own reset: the placement goes, alpha and alignment stay.
    VLOverlay::Stored empty;
    empty.alpha = p.overlay.alpha;
    empty.alignment = p.overlay.alignment;
    p.overlay = std::move(empty);
    p.overlayActive = false;
  }
  p.overlay.match = std::clamp(p.overlay.match, 0, std::max(length - 1, 0));
}

}  // namespace

void ProjectFields(xml::filter& f, ProjectRecord& p, const ProjectContext& context) {
  VLCompSettings& s = p.settings;
  CompSettingFields(f, s, int32_t(p.underlay.size()), FilePlace::Lead);
  f.required("CurrentTime", p.currentTime);
  f.required("PreviewTime", p.previewTime);
  f.required("OverlayActive", p.overlayActive);
  f.required("ActiveSegment", p.activeSegment);
  f.child("Dim", [&](xml::filter& c) { SizeFields(c, p.width, p.height); });
  CompSettingFields(f, s, int32_t(p.underlay.size()), FilePlace::Body);
  f.child("Underlay", [&](xml::filter& c) { SequenceFields(c, p.underlay, context.base); });

  xml::filter overlay = f.Sub("Overlay");
  if (f.reading())
    ReadOverlay(overlay, p, context);
  else
    OverlayFields(overlay, p.overlay, context.base, int32_t(p.underlay.size()));

  f.list("Segment", p.segments, [&](xml::filter& c, SegmentRecord& segment) {
    SegmentFields(c, segment, context.maxMaskPixels, p.width, p.height);
  });

  // The overlay's placement in space and its transformations belong to the
  // root; an overlay without frames has none to read.
  if (!f.reading() || !p.overlay.paths.empty()) {
    VLOverlay::Stored& o = p.overlay;
    f.defaulted("first", o.transformSpan.first, 0);
    OverlaySettingFields(f, o, int32_t(p.underlay.size()), FilePlace::Root);
    f.list("Transform", p.overlayTransforms, xml::AffineFields);
    if (f.reading()) {
      const int64_t last = int64_t(o.transformSpan.first) + int64_t(p.overlayTransforms.size());
      o.transformSpan.last = int32_t(std::min<int64_t>(last, std::numeric_limits<int32_t>::max()));
    }
  }
  if (!f.reading()) return;
  if (s.framerate == 0) s.framerate = 1;  // as the setter: a rate divides
  const int32_t length = int32_t(p.underlay.size());
  s.workArea = {std::clamp(s.workArea.first, 0, length), std::clamp(s.workArea.last, 0, length)};
}

}  // namespace app
