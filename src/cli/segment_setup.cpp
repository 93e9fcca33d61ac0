// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/segment_setup.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <type_traits>

#include "app/model/comp.h"
#include "app/model/setting_tables.h"
#include "cli/frames.h"
#include "cli/options.h"
#include "cli/project_session.h"

namespace cli {

uint32_t ParseCount(const std::string& text, const std::string& what) {
  uint32_t value = 0;
  const char* end = text.data() + text.size();
  const auto [ptr, ec] = std::from_chars(text.data(), end, value);
  if (text.empty() || ec != std::errc() || ptr != end)
    throw UsageError(what + " needs a whole number, not '" + text + "'");
  return value;
}

namespace {

// The words of an enumeration, each once (two values may share a word).
template <class E>
std::string Words() {
  std::string words;
  std::vector<std::string_view> seen;
  for (const auto& row : EnumTable<E>()) {
    if (std::find(seen.begin(), seen.end(), row.word) != seen.end()) continue;
    seen.push_back(row.word);
    words += std::string(words.empty() ? "" : ", ") + std::string(row.word);
  }
  return words;
}

}  // namespace

std::string ParamHelp() {
  const VLSegmentParams defaults;
  std::string text;
  for (const auto& field : SegmentParamFields()) {
    std::string line = std::string("  ") + field.key + "=";
    std::visit(
        [&](auto member) {
          using T = std::decay_t<decltype(defaults.*member)>;
          if constexpr (std::is_same_v<T, unsigned>) {
            // The range is what the setter's clamp leaves of the extremes.
            VLSegmentParams low, high;
            low.*member = 0;
            high.*member = UINT32_MAX;
            const unsigned lo = Clamped(low).*member, hi = Clamped(high).*member;
            line += "N";
            line.resize(std::max<size_t>(line.size() + 1, 30), ' ');
            line += std::to_string(lo) +
                    (hi == UINT32_MAX ? std::string(" or more") : " to " + std::to_string(hi));
            line += ", default " + std::to_string(defaults.*member);
          } else if constexpr (std::is_same_v<T, bool>) {
            line += "0|1";
            line.resize(std::max<size_t>(line.size() + 1, 30), ' ');
            line += std::string("0 or 1, default ") + (defaults.*member ? "1" : "0");
          } else {
            line += "WORD";
            line.resize(std::max<size_t>(line.size() + 1, 30), ' ');
            line += Words<T>() + "; default " + std::string(FileWord(defaults.*member));
          }
        },
        field.member);
    text += line + " (" + field.label + ")\n";
  }
  return text;
}

SegmentRequest ParseSegmentRequest(const Options& options) {
  if (!options.has("--key") || !options.has("--mask"))
    throw UsageError("a segment needs --key FRAME and --mask MASK");
  SegmentRequest request;
  request.key = ParseFrameNumber(options.value("--key"), "--key");
  request.mask = options.value("--mask");
  request.params = options.values("--param");
  if (options.has("--span")) {
    const My::Span s = ParseFrameSpan(options.value("--span"), "--span");
    if (s.first > request.key || s.last <= request.key)
      throw UsageError("--span " + SpanText(s) + " must hold the key frame " +
                       std::to_string(request.key) + " (LAST is one past the last frame)");
    request.span = s;
  }
  // Malformed parameters fail before any file is touched.
  VLSegmentParams probe;
  for (const auto& p : request.params) ApplyParam(probe, p);
  return request;
}

void ApplyParam(VLSegmentParams& params, const std::string& assignment) {
  const auto eq = assignment.find('=');
  if (eq == std::string::npos) throw UsageError("--param needs KEY=VALUE");
  const std::string key = assignment.substr(0, eq), text = assignment.substr(eq + 1);
  for (const auto& field : SegmentParamFields()) {
    if (key != field.key) continue;
    std::visit(
        [&](auto member) {
          auto& value = params.*member;
          using T = std::decay_t<decltype(value)>;
          if constexpr (std::is_same_v<T, unsigned>) {
            value = ParseCount(text, key);
          } else if constexpr (std::is_same_v<T, bool>) {
            if (text != "0" && text != "1" && text != "true" && text != "false")
              throw UsageError(key + " is 0, 1, true or false");
            value = text == "1" || text == "true";
          } else {
            const auto word = FromFileWord<T>(text);
            if (!word)
              throw UsageError(key + " takes one of " + Words<T>() + "; not '" + text + "'");
            value = *word;
          }
        },
        field.member);
    return;
  }
  std::string keys;
  for (const auto& field : SegmentParamFields())
    keys += std::string(keys.empty() ? "" : ", ") + field.key;
  throw UsageError("unknown parameter " + key + " (known: " + keys + ")");
}

double ParseRate(const std::string& text) {
  double value = 0;
  const char* end = text.data() + text.size();
  const auto [ptr, ec] = std::from_chars(text.data(), end, value);
  if (text.empty() || ec != std::errc() || ptr != end || !(value >= 1.0) ||
      value > app::kMaxFramerate)
    throw UsageError(
        "--rate takes frames per second from 1 to 1000 (25, 29.97, 23.976, ...), "
        "not '" +
        text + "'");
  return value;
}

void NewProjectFromSequence(ProjectSession& session, const std::string& path, double rate) {
  // The frames keep the names they are opened by, and the project stores
  // them against its own folder: a name relative to the working folder would
  // be stored against the wrong base.
  session.app().LoadSequenceFile(std::filesystem::absolute(path).string(), rate);
  if (!session.app().IsProjectOpen()) throw std::runtime_error("no images in sequence: " + path);
  // A list names its frames without looking at them; a project made of one
  // with a frame that is not there would save, and then not open.
  std::string missing;
  size_t count = 0;
  const std::vector<std::string>& frames = session.comp().GetUnderlay();
  for (const std::string& frame : frames) {
    std::error_code ec;
    if (std::filesystem::is_regular_file(frame, ec)) continue;
    if (count++ < 3) missing += (missing.empty() ? "" : ", ") + frame;
  }
  if (count > 0)
    throw std::runtime_error(std::to_string(count) + " of " + std::to_string(frames.size()) +
                             " frames of " + path + " are not there: " + missing +
                             (count > 3 ? ", ..." : ""));
  ReportGaps(frames);
}

int32_t AddSegment(ProjectSession& session, const SegmentRequest& request) {
  VLComp& comp = session.comp();
  comp.SetCurrentTime(FrameIndex(comp, request.key));
  session.app().OnNewSegment();
  VL::Segment& segment = comp.GetInterface().GetSegment(comp.GetActiveSegment());
  if (request.span) {
    const My::Span span = IndexSpan(comp, *request.span);
    segment.SetTimeSpan(span.first, span.last);
  }
  VLSegmentParams params = segment.GetParams();
  for (const auto& p : request.params) ApplyParam(params, p);
  segment.SetParams(params);
  session.app().ImportMaskFile(request.mask);
  return comp.GetActiveSegment();
}

}  // namespace cli
