// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/file/project_file.h"

#include <filesystem>
#include <sstream>
#include <stdexcept>

#include "app/file/project_fields.h"
#include "app/model/comp.h"
#include "base/paths.h"
#include "base/xml_tablet.h"

namespace app {

namespace {

constexpr const char* kRoot = "Velomar";

// Frame paths are stored against the project's folder; a relative project
// path would leave them no base.
std::string AbsoluteProjectPath(const std::string& path) {
  if (path.empty() || IsAbsolute(path)) return path;
  return std::filesystem::absolute(path).string();
}

ProjectRecord RecordOf(VLComp& comp) {
  VLOverlay& overlay = comp.GetOverlay();
  overlay.CompleteTransforms();
  ProjectRecord p;
  p.settings = comp.GetSettings();
  p.currentTime = comp.GetCurrentTime();
  p.previewTime = comp.GetPreviewTime();
  p.overlayActive = comp.IsOverlayActive();
  p.activeSegment = comp.GetActiveSegment();
  p.width = comp.GetWidth();
  p.height = comp.GetHeight();
  p.underlay = comp.GetUnderlay();
  p.overlay = overlay.GetStored();
  const My::Span span = p.overlay.transformSpan;
  p.overlayTransforms.reserve(size_t(std::max(span.length(), 0)));
  for (int32_t frame = span.first; frame < span.last; ++frame)
    p.overlayTransforms.push_back(overlay.GetTransform(frame));
  p.segments.resize(size_t(comp.GetSegmentCount()));
  for (int32_t i = 0; i < comp.GetSegmentCount(); ++i) {
    VLSegment& segment = comp.GetSegmentObject(i);
    SegmentRecord& s = p.segments[size_t(i)];
    s.origin = segment.GetOrigin();
    s.timeSpan = segment.GetTimeSpan();
    s.params = segment.GetParams();
    s.mask = segment.GetMask();
    if (VLSegmentDataPtr data = segment.GetData()) {
      // A running job appends to these arrays; the copy is taken under the
      // segment's lock so that no append moves them while they are read.
      std::lock_guard lock(segment.GetLock());
      s.data = *data;
    }
    s.withTiming = !segment.IsProcessing();
    s.timingSource = &segment.GetTiming();
    s.frequency = timing::frequency();
  }
  return p;
}

// Moves a completely read record into the empty composition. Only
// AdoptSegment can still fail here; VLComp::Load closes the project then.
void GiveRecord(VLComp& comp, ProjectRecord&& p) {
  comp.TakeOverSettings(p.settings);
  comp.TakeOverUnderlay(std::move(p.underlay), p.width, p.height);
  comp.TakeOverTimes(p.currentTime, p.previewTime);
  comp.TakeOverActive(p.activeSegment, p.overlayActive);
  comp.GetOverlay().TakeOver(std::move(p.overlay));
  for (SegmentRecord& s : p.segments) {
    s.data.EnsureKeyEntry();
    auto segment = std::make_unique<VLSegment>();
    segment->TakeOver({s.origin, s.timeSpan, s.params, std::move(s.mask),
                       std::make_shared<VLSegmentData>(std::move(s.data))});
    segment->GetTiming() = std::move(s.timing);
    comp.AdoptSegment(std::move(segment));
  }
}

void ReadDocument(VLComp& comp,
                  const xml::tablet& doc,
                  UserDialogs& dialogs,
                  uint64_t maxMaskPixels) {
  ProjectContext context{Directory(comp.GetProjectPath()), &dialogs, maxMaskPixels};
  ProjectRecord record;
  xml::filter f(doc.root(), true);
  ProjectFields(f, record, context);
  GiveRecord(comp, std::move(record));
}

xml::tablet WriteDocument(VLComp& comp, const std::string& path) {
  ProjectRecord record = RecordOf(comp);
  xml::tablet doc;
  doc.create(kRoot);
  // Tracking resumes from the stored transformations: six digits would put
  // a resumed run up to a twentieth of a pixel off one run in one go.
  xml::filter f(doc.root(), false, xml::Numbers::RoundTrip);
  ProjectFields(f, record, ProjectContext{Directory(path), nullptr});
  return doc;
}

void RequireNoProject(const VLComp& comp) {
  if (!comp.IsEmpty() || comp.GetSegmentCount() != 0)
    throw std::logic_error("a project is open: close it before opening another");
}

}  // namespace

void LoadProjectFile(VLComp& comp, const std::string& path, UserDialogs& dialogs) {
  RequireNoProject(comp);
  comp.Load(AbsoluteProjectPath(path), [&](VLComp& c) {
    xml::tablet doc;
    doc.read(c.GetProjectPath());
    ReadDocument(c, doc, dialogs, uint64_t(UINT32_MAX) / 4);
  });
}

void LoadProjectText(VLComp& comp,
                     const std::string& path,
                     std::string_view text,
                     UserDialogs& dialogs,
                     uint64_t maxMaskPixels) {
  RequireNoProject(comp);
  comp.Load(AbsoluteProjectPath(path), [&](VLComp& c) {
    xml::tablet doc;
    doc.parse(text);
    ReadDocument(c, doc, dialogs, maxMaskPixels);
  });
}

void SaveProjectFile(VLComp& comp, const std::string& path) {
  // The callable gets the composition as const; the overlay's transforms
  // must be completed first, so the writer works on `comp` itself.
  comp.Save(AbsoluteProjectPath(path), [&comp](const VLComp&) {
    WriteDocument(comp, comp.GetProjectPath()).write(comp.GetProjectPath());
  });
}

std::string ProjectFileText(VLComp& comp, const std::string& path) {
  std::ostringstream text;
  WriteDocument(comp, AbsoluteProjectPath(path)).write(text);
  return text.str();
}

}  // namespace app
