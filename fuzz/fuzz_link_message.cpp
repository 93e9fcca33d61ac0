// SPDX-License-Identifier: GPL-3.0-or-later
// Link messages as the peer sends them: the document, its type, and the
// body of each kind. A body that reads must write and read back to itself
// (motion after the first write has cut every number to its wire precision).
//
// Frame paths resolve with an empty base, so only complete paths are
// looked up, and only for their existence.
#include <filesystem>
#include <string>
#include <string_view>

#include "exchange/link/records.h"
#include "fuzz_target.h"

namespace {

namespace xl = exchange::link;

bool Same(const Transformations& a, const Transformations& b) {
  return a.GetTransforms() == b.GetTransforms() && a.InitialTransform == b.InitialTransform &&
         a.ExportInaccuracy == b.ExportInaccuracy && a.Task == b.Task &&
         a.ExportModel == b.ExportModel && a.first == b.first;
}

template <class Step>
void Guarded(Step&& step) {
  try {
    step();
  } catch (const std::exception&) {
    // Malformed input fails with a text; that is all we ask of it.
  }
}

xl::Message Reread(const xl::Message& m) {
  xl::Message back;
  back.FromBytes(m.ToBytes());
  return back;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  xl::Message message;
  try {
    message.FromBytes(std::string_view(reinterpret_cast<const char*>(data), size));
  } catch (const std::exception&) {
    return 0;
  }
  if (Reread(message).GetType() != message.GetType()) __builtin_trap();
  Guarded([&] { message.Throw(); });
  Guarded([&] {
    const auto once = xl::ReadTransformationsMessage(message);
    const auto twice = xl::ReadTransformationsMessage(Reread(xl::MakeTransformationsMessage(once)));
    const auto thrice =
        xl::ReadTransformationsMessage(Reread(xl::MakeTransformationsMessage(twice)));
    if (!Same(twice, thrice)) __builtin_trap();
  });
  Guarded([&] {
    const auto once = xl::ReadPossibleActionsMessage(message);
    if (xl::ReadPossibleActionsMessage(Reread(xl::MakePossibleActionsMessage(once))) != once)
      __builtin_trap();
  });
  Guarded([&] { xl::ReadSequenceMessage(message); });
  Guarded([&] {
    const auto once = xl::ReadProjectMessage(message);
    const auto twice = xl::ReadProjectMessage(Reread(xl::MakeProjectMessage(once)));
    const auto thrice = xl::ReadProjectMessage(Reread(xl::MakeProjectMessage(twice)));
    // Frames are files. One that names a folder ("/", "//") comes back
    // spelled another way, or not at all: no round trip is asked of it.
    for (const auto* frames : {&once.underlay, &once.overlay.frames})
      for (const auto& f : *frames)
        if (std::filesystem::is_directory(f)) return;
    if (thrice.underlay != twice.underlay || thrice.overlay.frames != twice.overlay.frames ||
        thrice.Name != twice.Name || !Same(twice.transformations, thrice.transformations))
      __builtin_trap();
  });
  return 0;
}

std::vector<std::vector<uint8_t>> VelomarFuzzSeeds() {
  auto bytes = [](std::string_view s) { return std::vector<uint8_t>(s.begin(), s.end()); };
  return {
      bytes("<?xml version=\"1.0\"?>\n<Message type=\"Transformations\" first=\"3\" "
            "ExportInaccuracy=\"0.5\" Task=\"Compensation\" ExportModel=\"CornerPin\">\n"
            "  <InitialTransform x=\"2\" yy=\"1.5\" />\n  <Transform />\n"
            "  <Transform x=\"1.23457\" xy=\"-0.001\" />\n</Message>\n"),
      bytes("<Message type=\"PossibleActions\" Underlay=\"1\" Overlay=\"0\" Project=\"1\"/>"),
      bytes("<Message type=\"Underlay\" path=\"/\" abs=\"1\" Framerate=\"25\" StartFrame=\"-4\">"
            "<Frame path=\"tmp\"/><Frame path=\"/\" abs=\"1\"/>"
            "<PixelAspectRatio num=\"10\" den=\"11\"/></Message>"),
      bytes("<Message type=\"Project\" Name=\"shot\" Framerate=\"24\"><Dim sx=\"720\" sy=\"576\"/>"
            "<Underlay path=\"/\" abs=\"1\"><Frame path=\"tmp\"/></Underlay>"
            "<Overlay SourceOffset=\"-2\" path=\"/\" abs=\"1\"><Frame path=\"tmp\"/>"
            "<Trimming first=\"0\" last=\"9\"/></Overlay><Transform yx=\"0.5\"/></Message>"),
      bytes("<Message type=\"Error\" what=\"no active composition\"/>"),
      bytes("<Message type=\"Empty\"/>"),
      bytes("<Message type=\"Overlay\" path=\"shots\" abs=\"0\"/>"),
      // A frame without a path is its folder; here a folder of many slashes.
      bytes("<Message type=\"Project\"><Underlay path=\"////\" abs=\"1\"><Frame x=\"tmp\"/>"
            "</Underlay><Overlay/></Message>"),
  };
}
