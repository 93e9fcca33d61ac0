// SPDX-License-Identifier: GPL-3.0-or-later
// The bodies of the link's messages, and the messages built from them and
// read back. Every body is described once as fields (base/xml_filter.h), so
// writing and reading cannot drift apart.
//
// Frame paths travel as a sequence: the folder of the first frame against a
// base folder, then each frame against that folder (base/frame_record.h).
// Both ends of the link use an empty base, so the folder goes out complete
// and the frames relative to it. Reading wants every frame to exist.
//
// Readers take a message of the type they asked for; any other type goes to
// Message::Throw(), so an "Error" reply reaches the user with its text.
// Failures of malformed bodies are xml::attribute_not_found,
// xml::attribute_parse_error and std::runtime_error "path does not exist -
// ..." naming the missing frame.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/pixel_aspect.h"
#include "base/span.h"
#include "base/xml_filter.h"
#include "exchange/link/message.h"
#include "exchange/transformations.h"

namespace exchange::link {

// What a side can do now, or the question (a bare "PossibleActions").
struct PossibleActions {
  bool Underlay = false;
  bool Overlay = false;
  bool StillOverlay = false;
  bool Transformations = false;
  bool Project = false;
  friend bool operator==(const PossibleActions&, const PossibleActions&) = default;
};

// The body of an "Underlay" or "Overlay" message: footage.
struct ImageSequenceRecord {
  std::vector<std::string> frames;  // complete paths, in playing order
  uint32_t Framerate = 30;          // frames per second
  PixelAspectRatio aspect{1, 1};
  int32_t StartFrame = 0;  // number of the first frame as the user sees it
};

// The overlay of a "Project" message.
struct OverlayRecord {
  std::vector<std::string> frames;
  int32_t SourceOffset = 0;
  // Left out on the wire when it is the whole overlay: 0 to its frame count,
  // or to the underlay's frame count for a still (one-frame) overlay.
  My::Span Trimming;
};

// The body of a "Project" message: a whole composition for the host.
struct ProjectRecord {
  Transformations transformations;
  // Name of the host's new composition. Left out when it is the file title
  // of `path`.
  std::string Name;
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t Framerate = 30;
  PixelAspectRatio aspect{1, 1};
  std::vector<std::string> underlay;
  OverlayRecord overlay;
  // Not on the wire: the sender leaves it empty; it only gives Name's default.
  std::string path;
};

// The field descriptions; `base` is the folder frame paths are relative to.
void PossibleActionsFields(xml::filter& f, PossibleActions& actions);
void ImageSequenceFields(xml::filter& f, ImageSequenceRecord& record, std::string_view base);
void TransformationsFields(xml::filter& f, Transformations& record);
void ProjectFields(xml::filter& f, ProjectRecord& record, std::string_view base);

// kind is Underlay or Overlay.
Message MakeSequenceMessage(MessageType kind,
                            const ImageSequenceRecord& record,
                            std::string_view base = {});
// Reads an "Underlay" or "Overlay" message whatever its kind; the caller
// checks the kind it expected first.
ImageSequenceRecord ReadSequenceMessage(const Message& message, std::string_view base = {});

Message MakePossibleActionsMessage(const PossibleActions& actions);
PossibleActions ReadPossibleActionsMessage(const Message& message);

// The record's transforms must be complete.
Message MakeTransformationsMessage(const Transformations& record);
// The result owns its transforms.
Transformations ReadTransformationsMessage(const Message& message);

Message MakeProjectMessage(const ProjectRecord& record, std::string_view base = {});
ProjectRecord ReadProjectMessage(const Message& message, std::string_view base = {});

}  // namespace exchange::link
