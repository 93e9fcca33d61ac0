// SPDX-License-Identifier: GPL-3.0-or-later
// velomar-cli info on a project: every setting the file holds, as JSON or as
// a readable summary, in frame numbers as the user sees them.
#include <cstdio>
#include <filesystem>
#include <span>
#include <sstream>
#include <type_traits>
#include <variant>

#include "app/model/setting_tables.h"
#include "cli/commands.h"
#include "cli/frames.h"
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

// One value of a settings table as info --json gives it, and as set takes it back.
void Value(Json& j, const app::SettingValue& value) {
  std::visit(
      [&](const auto& v) {
        using T = std::decay_t<decltype(v)>;
        if constexpr (std::is_same_v<T, int32_t> || std::is_same_v<T, uint32_t>)
          j.value(v);
        else if constexpr (std::is_same_v<T, float> || std::is_same_v<T, double>)
          j.value(double(v));
        else if constexpr (std::is_same_v<T, Still>)
          j.value(v.value);
        else if constexpr (std::is_same_v<T, My::Span>)
          Span(j, v);
        else if constexpr (std::is_same_v<T, PixelAspectRatio>)
          j.begin_array().value(v.num).value(v.den).end_array();
        else if constexpr (std::is_same_v<T, types::affine>)
          j.begin_array()
              .value(v.xx)
              .value(v.xy)
              .value(v.yx)
              .value(v.yy)
              .value(v.x)
              .value(v.y)
              .end_array();
        else
          Word(j, FileWord(v));
      },
      value);
}

template <class Owner, class Row>
void Settings(Json& j, const Owner& owner, std::span<const Row* const> rows, int32_t start_frame) {
  for (const Row* row : rows) {
    j.key(row->names().key);
    const app::SettingValue value = row->Get(owner);
    Value(j, row->names().frames ? app::ShiftFrames(value, start_frame) : value);
  }
}

void PrintJson(VLComp& comp) {
  const int32_t start = comp.GetStartFrame();
  Json j;
  j.begin_object().key("length").value(comp.GetLength()).key("frames");
  Span(j, NumberSpan(comp, {0, comp.GetLength()}))
      .key("width")
      .value(comp.GetWidth())
      .key("height")
      .value(comp.GetHeight());
  Settings(j, comp, app::CompSettings(), start);
  GapsJson(j, comp.GetUnderlay());
  j.key("current_time")
      .value(FrameNumber(comp, comp.GetCurrentTime()))
      .key("preview_time")
      .value(FrameNumber(comp, comp.GetPreviewTime()))
      .key("active_segment")
      .value(comp.GetActiveSegment())
      .key("overlay_active")
      .value(comp.IsOverlayActive())
      .key("segments")
      .begin_array();
  for (int32_t i = 0; i < comp.GetSegmentCount(); ++i) SegmentJson(j, comp, i);
  j.end_array().key("overlay").begin_object();
  Settings(j, comp.GetOverlay(), app::OverlaySettings(), start);
  j.end_object().end_object();
  std::printf("%s\n", j.str().c_str());
}

void PrintText(const std::string& path, VLComp& comp) {
  std::ostringstream out;
  const PixelAspectRatio aspect = comp.GetPixelAspect();
  out << path << ": " << comp.GetLength() << " frames (" << FramesText(comp) << "), "
      << comp.GetWidth() << " x " << comp.GetHeight() << ", " << comp.GetFramerate()
      << " frames per second, pixel aspect " << aspect.num << "/" << aspect.den << "\n";
  out << "task " << FileWord(comp.GetTask()) << ", export model " << FileWord(comp.GetExportModel())
      << ", export inaccuracy " << comp.GetExportInaccuracy() << ", work area "
      << SpanText(NumberSpan(comp, comp.GetWorkArea())) << "\n";
  for (int32_t i = 0; i < comp.GetSegmentCount(); ++i) out << SegmentText(comp, i) << "\n";
  const VLOverlay& o = comp.GetOverlay();
  if (o.IsEmpty())
    out << "no overlay\n";
  else
    out << "overlay: "
        << (o.IsStill() ? std::string("still image")
                        : "sequence of " + std::to_string(o.GetFrameCount()) + " frames")
        << ", match frame " << FrameNumber(comp, o.GetMatch()) << ", alignment "
        << FileWord(o.GetAlignment()) << ", alpha " << FileWord(o.GetAlpha()) << "\n";
  std::fputs(out.str().c_str(), stdout);
}

}  // namespace

void SegmentJson(Json& j, const VLComp& comp, int32_t index) {
  const VLSegment& s = comp.GetSegmentObject(index);
  j.begin_object()
      .key("origin")
      .value(FrameNumber(comp, s.GetOrigin()))
      .key("key_file")
      .value(comp.GetUnderlay()[size_t(s.GetOrigin())])
      .key("time_span");
  Span(j, NumberSpan(comp, s.GetTimeSpan())).key("data_span");
  Span(j, NumberSpan(comp, s.GetDataSpan())).key("params");
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

std::string SegmentText(const VLComp& comp, int32_t index) {
  const VLSegment& s = comp.GetSegmentObject(index);
  std::ostringstream out;
  out << "segment " << index << (index == comp.GetActiveSegment() ? " (active)" : "")
      << ": key frame " << FrameNumber(comp, s.GetOrigin()) << " ("
      << std::filesystem::path(comp.GetUnderlay()[size_t(s.GetOrigin())]).filename().string()
      << "), time span " << SpanText(NumberSpan(comp, s.GetTimeSpan())) << ", data span "
      << SpanText(NumberSpan(comp, s.GetDataSpan())) << ", mask " << s.GetMask().width << " x "
      << s.GetMask().height << " with " << CountSetPixels(s.GetMask()) << " pixels set";
  return out.str();
}

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
