// SPDX-License-Identifier: GPL-3.0-or-later
// The project file's schema as field descriptions over plain records. The
// same functions write a record into a document and read it back; moving the
// record into or out of a composition is project_file.cpp's business, so that
// a document is read completely before the composition changes at all.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "app/model/comp.h"
#include "app/model/overlay.h"
#include "base/segment_data.h"
#include "base/segment_params.h"
#include "base/timing.h"
#include "base/xml_filter.h"
#include "imaging/bitmap.h"

namespace app {

class UserDialogs;

// What the file holds of one segment.
struct SegmentRecord {
  int32_t origin = 0;
  My::Span timeSpan;
  VLSegmentParams params;
  img::bitmap<img::bit1> mask;
  VLSegmentData data;
  // Writing: a running job is still filling the tree, so it is left out.
  bool withTiming = true;
  // Reading fills `timing`; writing reads the segment's own tree through
  // `timingSource`, since a tree cannot be copied.
  timing::tree timing;
  timing::tree* timingSource = nullptr;
  int64_t frequency = 0;
};

// What the file holds of a composition.
struct ProjectRecord {
  VLCompSettings settings;
  int32_t currentTime = -1;
  int32_t previewTime = -1;
  bool overlayActive = false;
  int32_t activeSegment = -1;
  uint32_t width = 0;
  uint32_t height = 0;
  std::vector<std::string> underlay;
  VLOverlay::Stored overlay;
  std::vector<SegmentRecord> segments;
  // The overlay's transformations over its transform span. Reading only
  // counts them: the composition recomputes them from the segments.
  std::vector<types::affine> overlayTransforms;
};

// How one load or save runs.
struct ProjectContext {
  std::string base;                // the project's folder: frame paths are relative to it
  UserDialogs* dialogs = nullptr;  // reading: the overlay question; null answers Cancel
  uint64_t maxMaskPixels = uint64_t(UINT32_MAX) / 4;  // larger mask pictures are refused
};

// The overlay's element; `compLength` is the underlay's frame count, the
// length of a still image.
void OverlayFields(xml::filter& f,
                   VLOverlay::Stored& overlay,
                   const std::string& base,
                   int32_t compLength);

// One `Segment` element. Reading refuses a mask picture that declares
// another size than `width` x `height` (the composition's; 0 checks
// nothing) before decoding it.
void SegmentFields(xml::filter& f,
                   SegmentRecord& segment,
                   uint64_t maxMaskPixels,
                   uint32_t width = 0,
                   uint32_t height = 0);

// The whole document under the root element "Velomar". Reading asks the
// overlay question when the `Overlay` element fails, and applies the clamps
// that need the whole record (match, work area, transform span).
void ProjectFields(xml::filter& f, ProjectRecord& project, const ProjectContext& context);

}  // namespace app
