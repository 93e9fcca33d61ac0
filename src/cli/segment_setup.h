// SPDX-License-Identifier: GPL-3.0-or-later
// Building a project from the command line the way the window's commands
// build one: a sequence opened as a new project, a segment added on its key
// frame with a mask imported by Import Mask. `new`, `segment add`, `track
// --sequence` and `demo` share these, so that they make the same projects.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/segment_params.h"
#include "base/span.h"

class VLComp;

namespace cli {

class Options;
class ProjectSession;

// What `--key FRAME --mask MASK [--span FIRST:LAST] [--param KEY=VALUE]...`
// asks for, in frame numbers as the user sees them; the span is half-open.
struct SegmentRequest {
  int32_t key = 0;
  std::optional<My::Span> span;  // none: the new segment's default span
  std::string mask;
  std::vector<std::string> params;  // KEY=VALUE, applied in order
};

// Reads --key, --mask, --span and --param. Throws UsageError when --key or
// --mask is missing or the span does not hold the key frame.
SegmentRequest ParseSegmentRequest(const Options& options);

// KEY=VALUE for one stored parameter, by its project-file key: numbers,
// 0/1 or true/false, file words. Throws UsageError for an unknown key or a
// malformed value, leaving `params` as it was.
void ApplyParam(VLSegmentParams& params, const std::string& assignment);

// One line per stored parameter: KEY=FORM, its range (what the clamp
// keeps) or words, its default and its label.
std::string ParamHelp();

// Opens the sequence that `path` belongs to as a new project (frame rate
// `rate`). Throws when it holds no images.
void NewProjectFromSequence(ProjectSession& session, const std::string& path, double rate);

// Frames per second from command-line text: 1 to 1000, fractions allowed
// (23.976, 29.97); throws UsageError otherwise.
double ParseRate(const std::string& text);

// Adds a segment on top of the stack as New Segment does on the key frame,
// sets its span and parameters, imports its mask; returns its index (the
// active segment). Throws when a frame lies outside the composition or the
// mask is refused.
int32_t AddSegment(ProjectSession& session, const SegmentRequest& request);

// A whole number from command-line text; throws UsageError naming `what`.
uint32_t ParseCount(const std::string& text, const std::string& what);

}  // namespace cli
