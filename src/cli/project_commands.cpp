// SPDX-License-Identifier: GPL-3.0-or-later
// velomar-cli new, segment: build and edit projects through the application
// object, its questions and its undo queue, as the window does; the project
// is saved only when the whole command worked.
#include <cstdio>
#include <filesystem>
#include <stdexcept>

#include "app/model/comp.h"
#include "cli/commands.h"
#include "cli/json.h"
#include "cli/options.h"
#include "cli/project_session.h"
#include "cli/segment_setup.h"

namespace cli {

namespace {

int32_t SegmentIndex(VLComp& comp, const std::string& text) {
  const uint32_t index = ParseCount(text, "a segment");
  if (index >= uint32_t(comp.GetSegmentCount()))
    throw std::runtime_error("no segment " + text + ": the project has " +
                             std::to_string(comp.GetSegmentCount()));
  return int32_t(index);
}

int RunSegmentAdd(const Options& options, bool json) {
  const auto& pos = options.positional();
  if (pos.size() != 2) throw UsageError("segment add needs PROJECT");
  const SegmentRequest request = ParseSegmentRequest(options);
  ProjectSession session(options.flag("--yes"));
  return session.Run(
      [&] {
        session.Open(pos[1]);
        const int32_t index = AddSegment(session, request);
        session.app().OnSave();
        if (json)
          std::printf("{\"segment\": %d}\n", index);
        else
          std::printf("%d\n", index);
      },
      json, "adding a segment");
}

int RunSegmentRemoveOrMove(const Options& options, bool json, bool move) {
  const auto& pos = options.positional();
  if (pos.size() != (move ? 4u : 3u))
    throw UsageError(move ? "segment move needs PROJECT INDEX NEW_INDEX"
                          : "segment remove needs PROJECT INDEX");
  ProjectSession session(options.flag("--yes"));
  return session.Run(
      [&] {
        session.Open(pos[1]);
        VLComp& comp = session.comp();
        const int32_t index = SegmentIndex(comp, pos[2]);
        const int32_t target = move ? SegmentIndex(comp, pos[3]) : 0;
        comp.GetInterface().SetActiveSegment(index);
        if (move)
          comp.GetInterface().MoveActiveSegment(target);
        else
          session.app().OnClear();
        session.app().OnSave();
      },
      json, "changing the segment list");
}

}  // namespace

int RunNew(const std::vector<std::string>& args) {
  Options options(args, {"--json", "--force"}, {"-o", "--output", "--rate"});
  const bool json = options.flag("--json");
  if (options.positional().size() != 1) throw UsageError("new needs one SEQUENCE");
  const std::string out = options.has("-o")         ? options.value("-o")
                          : options.has("--output") ? options.value("--output")
                                                    : std::string();
  if (out.empty()) throw UsageError("new needs -o PROJECT.vlp");
  const uint32_t rate = options.has("--rate") ? ParseCount(options.value("--rate"), "--rate") : 50;
  if (rate == 0) throw UsageError("--rate must be at least 1");
  ProjectSession session(false);
  return session.Run(
      [&] {
        // A project holds hours of painting and tracking; a new one made with
        // the same name by mistake must not wipe it out.
        std::error_code ec;
        if (std::filesystem::exists(out, ec) && !options.flag("--force"))
          throw std::runtime_error(out + " already exists: give --force to replace it");
        NewProjectFromSequence(session, options.positional()[0], rate);
        session.app().SaveProjectAs(out);
      },
      json, "making a project");
}

int RunSegment(const std::vector<std::string>& args) {
  Options options(args, {"--json", "--yes"}, {"--key", "--mask", "--span", "--param"});
  const bool json = options.flag("--json");
  const std::string verb = options.positional().empty() ? "" : options.positional()[0];
  if (verb == "add") return RunSegmentAdd(options, json);
  if (verb == "remove") return RunSegmentRemoveOrMove(options, json, false);
  if (verb == "move") return RunSegmentRemoveOrMove(options, json, true);
  throw UsageError("segment needs add, remove or move");
}

const Command kNewCommand = {
    "new", "a new project from an image sequence",
    "usage: velomar-cli new [--rate N] [--force] [--json] SEQUENCE -o PROJECT.vlp\n"
    "\n"
    "Makes a project of the sequence that SEQUENCE (one numbered frame or an\n"
    ".ais list) belongs to and saves it as PROJECT.vlp. The frame rate is 50\n"
    "unless --rate gives it; the pixel aspect follows from the frame size and\n"
    "the start frame from the number in the first frame's name. An existing\n"
    "PROJECT.vlp is replaced only with --force.\n",
    RunNew};

const Command kSegmentCommand = {
    "segment", "add, remove or reorder a project's segments",
    "usage: velomar-cli segment add PROJECT.vlp --key FRAME --mask MASK.bmp\n"
    "                          [--span FIRST:LAST] [--param KEY=VALUE]... [--yes] [--json]\n"
    "       velomar-cli segment remove PROJECT.vlp INDEX\n"
    "       velomar-cli segment move PROJECT.vlp INDEX NEW_INDEX\n"
    "\n"
    "add puts a new segment on top of the stack (index 0) with its key frame at\n"
    "FRAME, tracking the frames from FIRST up to LAST, LAST not included, as\n"
    "info prints spans (default a few frames around the key), the mask read from MASK (white "
    "inside) and the parameters given\n"
    "by their project-file keys. Prints the new segment's index.\n"
    "FRAME, FIRST and LAST are frame indices from 0, as the project file and\n"
    "info number them; the project's start frame plays no part.\n"
    "A mask with no white or no black pixels, or of another size than the\n"
    "frames, raises a question: --yes answers it with OK (the mask is then cut\n"
    "or padded at its right and bottom); without --yes the command fails.\n"
    "remove and move take segment indices from 0 at the top of the stack.\n"
    "The project is saved only when the whole command worked.\n",
    RunSegment};

}  // namespace cli
