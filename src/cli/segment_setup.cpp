// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/segment_setup.h"

#include <charconv>
#include <filesystem>
#include <stdexcept>
#include <type_traits>

#include "app/model/comp.h"
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

int32_t FrameIndex(const VLComp& comp, int32_t index) {
  if (index < 0 || index >= comp.GetLength())
    throw std::runtime_error("frame " + std::to_string(index) +
                             " is outside the composition (0 to " +
                             std::to_string(comp.GetLength() - 1) + ")");
  return index;
}

SegmentRequest ParseSegmentRequest(const Options& options) {
  if (!options.has("--key") || !options.has("--mask"))
    throw UsageError("a segment needs --key FRAME and --mask MASK");
  SegmentRequest request;
  request.key = ParseFrameIndex(options.value("--key"), "--key");
  request.mask = options.value("--mask");
  request.params = options.values("--param");
  if (options.has("--span")) {
    const std::string& span = options.value("--span");
    const auto colon = span.find(':');
    if (colon == std::string::npos) throw UsageError("--span needs FIRST:LAST");
    const My::Span s{ParseFrameIndex(span.substr(0, colon), "--span"),
                     ParseFrameIndex(span.substr(colon + 1), "--span")};
    if (s.first > request.key || s.last <= request.key)
      throw UsageError(
          "--span FIRST:LAST must hold the key frame (LAST is one past the last frame)");
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
            if (!word) throw UsageError("'" + text + "' is no value of " + key);
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

void NewProjectFromSequence(ProjectSession& session, const std::string& path, uint32_t rate) {
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
}

int32_t AddSegment(ProjectSession& session, const SegmentRequest& request) {
  VLComp& comp = session.comp();
  comp.SetCurrentTime(FrameIndex(comp, request.key));
  session.app().OnNewSegment();
  VL::Segment& segment = comp.GetInterface().GetSegment(comp.GetActiveSegment());
  if (request.span)
    segment.SetTimeSpan(FrameIndex(comp, request.span->first),
                        FrameIndex(comp, request.span->last - 1) + 1);
  VLSegmentParams params = segment.GetParams();
  for (const auto& p : request.params) ApplyParam(params, p);
  segment.SetParams(params);
  session.app().ImportMaskFile(request.mask);
  return comp.GetActiveSegment();
}

}  // namespace cli
