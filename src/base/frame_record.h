// SPDX-License-Identifier: GPL-3.0-or-later
// Frame paths as files store them: relative to a base folder where they can
// be, so that a project folder moved with its frames still opens.
//
// A sequence is written as the attributes `path` and `abs` of its element
// (the folder D of the first frame, against the base B) and one child
// `Frame` per frame (each frame against D). The base of a project file is
// the folder of the project's path at the moment of saving or loading.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/paths.h"
#include "base/xml_filter.h"

struct FrameRecord {
  std::string path;
  bool abs = false;  // true: `path` is complete; false: relative to a base
  friend bool operator==(const FrameRecord&, const FrameRecord&) = default;
};

// `path` and `abs`, each left out when empty or false.
void FrameRecordFields(xml::filter& f, FrameRecord& record);

// The record of `path` against the folder `base`: the path itself, complete,
// when base is empty or on another drive; otherwise the relative path.
FrameRecord MakeFrameRecord(std::string_view path,
                            std::string_view base,
                            PathPolicy policy = kHostPathPolicy);

// The path a record names, which must exist. Throws std::runtime_error
// "path does not exist - <path>" for a complete path; for a relative one
// "absolute path expected" when base is empty, or "path does not exist -
// <result>\n(base path is <base>, relative path is <path>)".
std::string ResolveFrameRecord(const FrameRecord& record,
                               std::string_view base,
                               PathPolicy policy = kHostPathPolicy);

// Writes the absolute `frames` against `base`, nothing at all for no frames;
// or reads them back, resolving against `base`. When both base and the
// stored folder are empty, `frames` is left as it is. Reading replaces
// `frames` only when every frame resolved.
void SequenceFields(xml::filter& f,
                    std::vector<std::string>& frames,
                    std::string_view base,
                    PathPolicy policy = kHostPathPolicy);
