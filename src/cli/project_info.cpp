// velomar-cli info on a project: every setting the file holds, as JSON or as
// a readable summary. Frames are indices from 0, as the file holds them.
#include <cstdio>
#include <sstream>
#include <type_traits>

#include "app/model/comp.h"
#include "cli/commands.h"
#include "cli/json.h"
#include "cli/project_session.h"

namespace cli {

namespace {

Json& Span(Json& j, My::Span span) {
  return j.begin_array().value(span.first).value(span.last).end_array();
}

Json& Word(Json& j, std::string_view word) {
  return j.value(word);
}

void Params(Json& j, const VLSegmentParams& params) {
  j.begin_object();
  for (const auto& field : SegmentParamFields()) {
    j.key(field.key);
    std::visit(
        [&](auto member) {
          const auto& value = params.*member;
          using T = std::decay_t<decltype(value)>;
          if constexpr (std::is_same_v<T, unsigned> || std::is_same_v<T, bool>)
            j.value(value);
          else
            Word(j, FileWord(value));
        },
        field.member);
  }
  j.end_object();
}

void PrintJson(VLComp& comp) {
  Json j;
  j.begin_object()
      .key("length")
      .value(comp.GetLength())
      .key("width")
      .value(comp.GetWidth())
      .key("height")
      .value(comp.GetHeight())
      .key("framerate")
      .value(comp.GetFramerate())
      .key("pixel_aspect")
      .begin_array()
      .value(comp.GetPixelAspect().num)
      .value(comp.GetPixelAspect().den)
      .end_array()
      .key("start_frame")
      .value(comp.GetStartFrame())
      .key("export_inaccuracy")
      .value(double(comp.GetExportInaccuracy()))
      .key("task");
  Word(j, FileWord(comp.GetTask())).key("export_model");
  Word(j, FileWord(comp.GetExportModel())).key("work_area");
  Span(j, comp.GetWorkArea())
      .key("current_time")
      .value(comp.GetCurrentTime())
      .key("preview_time")
      .value(comp.GetPreviewTime())
      .key("active_segment")
      .value(comp.GetActiveSegment())
      .key("overlay_active")
      .value(comp.IsOverlayActive())
      .key("segments")
      .begin_array();
  for (int32_t i = 0; i < comp.GetSegmentCount(); ++i) {
    const VLSegment& s = comp.GetSegmentObject(i);
    j.begin_object().key("origin").value(s.GetOrigin()).key("time_span");
    Span(j, s.GetTimeSpan()).key("data_span");
    Span(j, s.GetDataSpan()).key("params");
    Params(j, s.GetParams());
    j.key("mask")
        .begin_object()
        .key("width")
        .value(s.GetMask().width)
        .key("height")
        .value(s.GetMask().height)
        .key("set_pixels")
        .value(CountSetPixels(s.GetMask()))
        .end_object()
        .end_object();
  }
  const VLOverlay& o = comp.GetOverlay();
  const types::affine& t = o.GetInitialTransform();
  j.end_array()
      .key("overlay")
      .begin_object()
      .key("frames")
      .value(o.IsEmpty() ? 0 : o.GetFrameCount())
      .key("still")
      .value(o.IsStill())
      .key("source_offset")
      .value(o.GetSourceOffset())
      .key("trimming");
  Span(j, o.GetTrimming()).key("match").value(o.GetMatch()).key("transform_span");
  Span(j, o.GetTransformSpan()).key("alignment");
  Word(j, FileWord(o.GetAlignment())).key("alpha");
  Word(j, FileWord(o.GetAlpha()))
      .key("initial_transform")
      .begin_array()
      .value(t.xx)
      .value(t.xy)
      .value(t.yx)
      .value(t.yy)
      .value(t.x)
      .value(t.y)
      .end_array()
      .end_object()
      .end_object();
  std::printf("%s\n", j.str().c_str());
}

void PrintText(const std::string& path, VLComp& comp) {
  std::ostringstream out;
  const PixelAspectRatio aspect = comp.GetPixelAspect();
  out << path << ": " << comp.GetLength() << " frames, " << comp.GetWidth() << " x "
      << comp.GetHeight() << ", " << comp.GetFramerate() << " frames per second, pixel aspect "
      << aspect.num << "/" << aspect.den << ", start frame " << comp.GetStartFrame() << "\n";
  out << "task " << FileWord(comp.GetTask()) << ", export model " << FileWord(comp.GetExportModel())
      << ", export inaccuracy " << comp.GetExportInaccuracy() << ", work area "
      << comp.GetWorkArea().first << "-" << comp.GetWorkArea().last << "\n";
  for (int32_t i = 0; i < comp.GetSegmentCount(); ++i) {
    const VLSegment& s = comp.GetSegmentObject(i);
    out << "segment " << i << (i == comp.GetActiveSegment() ? " (active)" : "") << ": key frame "
        << s.GetOrigin() << ", time span " << s.GetTimeSpan().first << "-" << s.GetTimeSpan().last
        << ", data span " << s.GetDataSpan().first << "-" << s.GetDataSpan().last << ", mask "
        << s.GetMask().width << " x " << s.GetMask().height << " with "
        << CountSetPixels(s.GetMask()) << " pixels set\n";
  }
  const VLOverlay& o = comp.GetOverlay();
  if (o.IsEmpty())
    out << "no overlay\n";
  else
    out << "overlay: "
        << (o.IsStill() ? std::string("still image")
                        : "sequence of " + std::to_string(o.GetFrameCount()) + " frames")
        << ", match frame " << o.GetMatch() << ", alignment " << FileWord(o.GetAlignment())
        << ", alpha " << FileWord(o.GetAlpha()) << "\n";
  std::fputs(out.str().c_str(), stdout);
}

}  // namespace

int PrintProjectInfo(const std::string& path, bool json, bool yes) {
  ProjectSession session(yes);
  return session.Run(
      [&] {
        session.Open(path);
        if (json)
          PrintJson(session.comp());
        else
          PrintText(path, session.comp());
      },
      json);
}

}  // namespace cli
