// SPDX-License-Identifier: GPL-3.0-or-later
// Frame numbers on the command line. Every frame the tool takes or prints is
// the number the user sees, the frame's index from 0 plus the project's
// start frame: for a sequence opened from a_0001.tga, frame 1 is a_0001.tga.
// Spans are FIRST:LAST with LAST one past the last frame, printed as taken.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/span.h"

class VLComp;

namespace cli {

class Json;

// A frame number from command-line text; throws UsageError naming `what`.
int32_t ParseFrameNumber(const std::string& text, const std::string& what);
// FIRST:LAST of frame numbers; throws UsageError naming `what`.
My::Span ParseFrameSpan(const std::string& text, const std::string& what);

// The index of frame `number`; throws when it is none of the composition's
// frames, naming the frames there are.
int32_t FrameIndex(const VLComp& comp, int32_t number);
// The indices of a span of frame numbers that must lie inside the frames.
My::Span IndexSpan(const VLComp& comp, My::Span numbers);

// Index to number, and back for spans.
int32_t FrameNumber(const VLComp& comp, int32_t index);
My::Span NumberSpan(const VLComp& comp, My::Span indices);
std::string SpanText(My::Span numbers);

// "1 to 60": the composition's frames, for messages.
std::string FramesText(const VLComp& comp);

// The frame numbers missing between the frames of the list: "50, 52-54".
// Empty when there is no hole.
std::string GapsText(const std::vector<std::string>& frames);
// The notice about them on standard error, if there are any.
void ReportGaps(const std::vector<std::string>& frames);
// "gaps": [[first, last], ...] with inclusive ends, as a key of an open object.
void GapsJson(Json& j, const std::vector<std::string>& frames);

// "3, 7-9": ascending frame numbers as runs.
std::string RunsText(const std::vector<int32_t>& numbers);

}  // namespace cli
