// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/frames.h"

#include <charconv>
#include <cstdio>
#include <stdexcept>

#include "app/model/comp.h"
#include "cli/json.h"
#include "cli/options.h"
#include "imaging/image_list.h"

namespace cli {

int32_t ParseFrameNumber(const std::string& text, const std::string& what) {
  int32_t value = 0;
  const char* end = text.data() + text.size();
  const auto [ptr, ec] = std::from_chars(text.data(), end, value);
  if (text.empty() || ec != std::errc() || ptr != end)
    throw UsageError(what + " needs a frame number, not '" + text + "'");
  return value;
}

My::Span ParseFrameSpan(const std::string& text, const std::string& what) {
  const auto colon = text.find(':');
  if (colon == std::string::npos)
    throw UsageError(what + " needs FIRST:LAST (LAST one past the last frame), not '" + text + "'");
  return {ParseFrameNumber(text.substr(0, colon), what),
          ParseFrameNumber(text.substr(colon + 1), what)};
}

int32_t FrameIndex(const VLComp& comp, int32_t number) {
  const int64_t index = int64_t(number) - comp.GetStartFrame();
  if (index < 0 || index >= comp.GetLength())
    throw std::runtime_error("frame " + std::to_string(number) +
                             " is outside the composition, whose frames are " + FramesText(comp));
  return int32_t(index);
}

My::Span IndexSpan(const VLComp& comp, My::Span numbers) {
  if (numbers.first >= numbers.last)
    throw std::runtime_error("the span " + SpanText(numbers) +
                             " holds no frame: LAST is one past the last frame");
  return {FrameIndex(comp, numbers.first), FrameIndex(comp, numbers.last - 1) + 1};
}

int32_t FrameNumber(const VLComp& comp, int32_t index) {
  return int32_t(int64_t(index) + comp.GetStartFrame());
}

My::Span NumberSpan(const VLComp& comp, My::Span indices) {
  return {FrameNumber(comp, indices.first), FrameNumber(comp, indices.last)};
}

std::string SpanText(My::Span numbers) {
  return std::to_string(numbers.first) + ":" + std::to_string(numbers.last);
}

std::string FramesText(const VLComp& comp) {
  return std::to_string(FrameNumber(comp, 0)) + " to " +
         std::to_string(FrameNumber(comp, comp.GetLength() - 1));
}

namespace {

std::string Run(int64_t first, int64_t last) {
  return first == last ? std::to_string(first) : std::to_string(first) + "-" + std::to_string(last);
}

}  // namespace

std::string GapsText(const std::vector<std::string>& frames) {
  std::string text;
  for (const auto& gap : img::missing_frames(frames))
    text += (text.empty() ? "" : ", ") + Run(gap.first, gap.last);
  return text;
}

void ReportGaps(const std::vector<std::string>& frames) {
  const std::string gaps = GapsText(frames);
  if (gaps.empty()) return;
  std::fprintf(stderr,
               "velomar-cli: frames missing from the sequence: %s. The frames after a gap close "
               "it up, so their numbers here are lower than in their file names.\n",
               gaps.c_str());
}

void GapsJson(Json& j, const std::vector<std::string>& frames) {
  j.key("gaps").begin_array();
  for (const auto& gap : img::missing_frames(frames))
    j.begin_array().value(gap.first).value(gap.last).end_array();
  j.end_array();
}

std::string RunsText(const std::vector<int32_t>& numbers) {
  std::string text;
  for (size_t i = 0; i < numbers.size();) {
    size_t k = i;
    while (k + 1 < numbers.size() && numbers[k + 1] == numbers[k] + 1) ++k;
    text += (text.empty() ? "" : ", ") + Run(numbers[i], numbers[k]);
    i = k + 1;
  }
  return text;
}

}  // namespace cli
