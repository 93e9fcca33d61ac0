// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>

#include "app/file/project_fields.h"
#include "app/model/setting_tables.h"
#include "base/frame_record.h"
#include "base/xml_fields.h"

namespace app {

namespace {

struct Size {
  uint32_t width = 0;
  uint32_t height = 0;
  friend bool operator==(const Size&, const Size&) = default;
};

void SizeFields(xml::filter& f, Size& s) {
  f.defaulted("sx", s.width, 0u);
  f.defaulted("sy", s.height, 0u);
}

}  // namespace

void OverlayFields(xml::filter& f,
                   VLOverlay::Stored& o,
                   const std::string& base,
                   int32_t compLength) {
  OverlaySettingFields(f, o, compLength, FilePlace::Lead);
  SequenceFields(f, o.paths, base);
  OverlaySettingFields(f, o, compLength, FilePlace::Body);
  Size size{o.width, o.height};
  f.defaulted_child("Dim", size, Size{}, SizeFields);
  o.width = size.width;
  o.height = size.height;
  if (!f.reading()) return;
  const int32_t frames = o.paths.size() == 1 ? compLength : int32_t(o.paths.size());
  // The overlay's setters keep these in range, and frame lookups index with
  // them; an edited file gets the same clamps (a no-op for a saved one).
  o.trimming.first = std::clamp(o.trimming.first, 0, frames);
  o.trimming.last = std::clamp(o.trimming.last, o.trimming.first, frames);
  o.sourceOffset = std::clamp(o.sourceOffset, -o.trimming.last, compLength - o.trimming.first);
}

}  // namespace app
