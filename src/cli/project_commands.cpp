// SPDX-License-Identifier: GPL-3.0-or-later
// velomar-cli new, segment: build and edit projects through the application
// object, its questions and its undo queue, as the window does; the project
// is saved only when the whole command worked.
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <type_traits>
#include <variant>

#include "app/commands/mask_file.h"
#include "app/model/comp.h"
#include "app/model/segment.h"
#include "cli/commands.h"
#include "cli/frames.h"
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
        const VLComp& comp = session.comp();
        const VLSegment& s = comp.GetSegmentObject(index);
        const std::string& key_file = comp.GetUnderlay()[size_t(s.GetOrigin())];
        if (json) {
          Json j;
          j.begin_object().key("segment").value(index).key("key_frame").value(request.key);
          j.key("key_file").value(key_file).key("time_span").begin_array();
          const My::Span span = NumberSpan(comp, s.GetTimeSpan());
          j.value(span.first).value(span.last).end_array().end_object();
          std::printf("%s\n", j.str().c_str());
        } else {
          std::printf("%d\n", index);
          std::fprintf(stderr, "segment %d: key frame %d is %s, time span %s\n", index, request.key,
                       key_file.c_str(), SpanText(NumberSpan(comp, s.GetTimeSpan())).c_str());
        }
      },
      json, "adding a segment");
}

// Per segment: key frame and its file, spans, mask, parameters.
void PrintSegmentList(const VLComp& comp, bool json) {
  if (json) {
    Json j;
    j.begin_object().key("segments").begin_array();
    for (int32_t i = 0; i < comp.GetSegmentCount(); ++i) SegmentJson(j, comp, i);
    j.end_array().end_object();
    std::printf("%s\n", j.str().c_str());
    return;
  }
  for (int32_t i = 0; i < comp.GetSegmentCount(); ++i) {
    std::string params;
    for (const auto& field : SegmentParamFields())
      std::visit(
          [&](auto member) {
            const auto& v = comp.GetSegmentObject(i).GetParams().*member;
            using T = std::decay_t<decltype(v)>;
            params += std::string(" ") + field.key + "=";
            if constexpr (std::is_same_v<T, unsigned>)
              params += std::to_string(v);
            else if constexpr (std::is_same_v<T, bool>)
              params += v ? "1" : "0";
            else
              params += FileWord(v);
          },
          field.member);
    std::printf("%s\n %s\n", SegmentText(comp, i).c_str(), params.c_str());
  }
}

int RunSegmentList(const Options& options, bool json) {
  const auto& pos = options.positional();
  if (pos.size() != 2) throw UsageError("segment list needs PROJECT");
  ProjectSession session(options.flag("--yes"));
  return session.Run(
      [&] {
        session.Open(pos[1]);
        PrintSegmentList(session.comp(), json);
      },
      json, "listing segments");
}

// Parameters and mask through the segment's own undoable steps, as the
// property panel and Import Mask change them: a change drops the results,
// and the next track starts afresh.
int RunSegmentSet(const Options& options, bool json) {
  const auto& pos = options.positional();
  if (pos.size() != 3) throw UsageError("segment set needs PROJECT INDEX");
  const std::vector<std::string> assignments = options.values("--param");
  if (assignments.empty() && !options.has("--mask"))
    throw UsageError("segment set needs --param KEY=VALUE or --mask MASK");
  VLSegmentParams probe;
  for (const auto& p : assignments) ApplyParam(probe, p);
  ProjectSession session(options.flag("--yes"));
  return session.Run(
      [&] {
        session.Open(pos[1]);
        VLComp& comp = session.comp();
        const int32_t index = SegmentIndex(comp, pos[2]);
        comp.GetInterface().SetActiveSegment(index);
        VL::Segment& segment = comp.GetInterface().GetSegment(index);
        VLSegmentParams params = segment.GetParams();
        for (const auto& p : assignments) ApplyParam(params, p);
        segment.SetParams(params);
        // Its questions fail the command without --yes, as for segment add.
        if (options.has("--mask")) session.app().ImportMaskFile(options.value("--mask"));
        session.app().OnSave();
        if (json) PrintSegmentList(comp, true);
      },
      json, "changing a segment");
}

int RunSegmentMask(const Options& options, bool json) {
  const auto& pos = options.positional();
  if (pos.size() != 3) throw UsageError("segment mask needs PROJECT INDEX");
  if (!options.has("--output")) throw UsageError("segment mask needs -o FILE");
  ProjectSession session(options.flag("--yes"));
  return session.Run(
      [&] {
        session.Open(pos[1]);
        VLComp& comp = session.comp();
        const int32_t index = SegmentIndex(comp, pos[2]);
        const std::string out = options.value("--output");
        const uint64_t bytes = app::WriteMaskFile(out, comp.GetSegmentObject(index).GetMask());
        if (json)
          std::printf("{\"output\": %s, \"bytes\": %llu}\n", JsonQuote(out).c_str(),
                      static_cast<unsigned long long>(bytes));
        else
          std::printf("%llu\n", static_cast<unsigned long long>(bytes));
      },
      json, "exporting mask");
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
        if (json) PrintSegmentList(session.comp(), true);
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
  const double rate = options.has("--rate") ? ParseRate(options.value("--rate")) : 50;
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
        const VLComp& comp = session.comp();
        if (json) {
          Json j;
          j.begin_object().key("project").value(out).key("frames").begin_array();
          j.value(FrameNumber(comp, 0)).value(FrameNumber(comp, comp.GetLength())).end_array();
          GapsJson(j, comp.GetUnderlay());
          j.end_object();
          std::printf("%s\n", j.str().c_str());
        } else {
          std::printf("%s: %d frames (%s)\n", out.c_str(), comp.GetLength(),
                      FramesText(comp).c_str());
        }
      },
      json, "making a project");
}

int RunSegment(const std::vector<std::string>& args) {
  Options options(WithLongOutput(args), {"--json", "--yes"},
                  {"--key", "--mask", "--span", "--param", "--output"});
  const bool json = options.flag("--json");
  const std::string verb = options.positional().empty() ? "" : options.positional()[0];
  if (verb == "add") return RunSegmentAdd(options, json);
  if (verb == "list") return RunSegmentList(options, json);
  if (verb == "set") return RunSegmentSet(options, json);
  if (verb == "mask") return RunSegmentMask(options, json);
  if (verb == "remove") return RunSegmentRemoveOrMove(options, json, false);
  if (verb == "move") return RunSegmentRemoveOrMove(options, json, true);
  throw UsageError("segment needs add, list, set, mask, remove or move");
}

const Command kNewCommand = {
    "new", "a new project from an image sequence",
    "usage: velomar-cli new [--rate FPS] [--force] [--json] SEQUENCE -o PROJECT.vlp\n"
    "\n"
    "Makes a project of the sequence that SEQUENCE (one numbered frame or an\n"
    ".ais list) belongs to and saves it as PROJECT.vlp. The frame rate is 50\n"
    "unless --rate gives it (a whole number, or 23.976, 29.97, 59.94, ...); the\n"
    "pixel aspect follows from the frame size and the start frame from the\n"
    "number in the first frame's name, so frames keep the numbers of their\n"
    "files. Frames missing from the numbering are named on standard error: the\n"
    "list closes up over a hole, so the frames after it are numbered one lower\n"
    "per missing frame than their files. An existing PROJECT.vlp is replaced\n"
    "only with --force.\n"
    "Prints the project's name, frame count and frame numbers; with --json\n"
    "  {\"project\", \"frames\": [FIRST, LAST], \"gaps\": [[first, last]...]}\n",
    RunNew};

namespace {

std::string SegmentHelp() {
  return "usage: velomar-cli segment add PROJECT.vlp --key FRAME --mask MASK\n"
         "                          [--span FIRST:LAST] [--param KEY=VALUE]... [--yes] [--json]\n"
         "       velomar-cli segment list PROJECT.vlp [--json]\n"
         "       velomar-cli segment set PROJECT.vlp INDEX [--param KEY=VALUE]... [--mask MASK]\n"
         "                          [--yes] [--json]\n"
         "       velomar-cli segment mask PROJECT.vlp INDEX -o FILE.bmp\n"
         "       velomar-cli segment remove PROJECT.vlp INDEX\n"
         "       velomar-cli segment move PROJECT.vlp INDEX NEW_INDEX\n"
         "\n"
         "add puts a new segment on top of the stack (index 0) with its key frame at\n"
         "FRAME, tracking the frames from FIRST up to LAST, LAST not included\n"
         "(default: 5 frames either side of the key). Frames are numbered as info\n"
         "prints them: for a project made from a_0001.tga, frame 1 is a_0001.tga.\n"
         "Prints the new segment's index; standard error names the key frame's file.\n"
         "MASK is an image of the frames' size: white inside, black outside, or,\n"
         "for an image whose alpha channel varies, the alpha (128 or more inside).\n"
         "A mask with no white or no black pixels, or of another size than the\n"
         "frames, raises a question: --yes answers it with yes (the mask is then cut\n"
         "or padded at its right and bottom); without --yes the command fails. A\n"
         "mask left empty by the cut is refused.\n"
         "list prints each segment's key frame, spans, mask size and parameters.\n"
         "set changes a segment's parameters or mask; its results are dropped, so\n"
         "track it again.\n"
         "mask writes the segment's mask as a one-bit BMP.\n"
         "remove and move take segment indices from 0 at the top of the stack.\n"
         "The project is saved only when the whole command worked.\n"
         "\n"
         "Parameters (--param KEY=VALUE; out-of-range numbers are clamped):\n" +
         ParamHelp();
}

const std::string kSegmentHelp = SegmentHelp();

}  // namespace

const Command kSegmentCommand = {"segment", "add, list, change or reorder a project's segments",
                                 kSegmentHelp.c_str(), RunSegment};

}  // namespace cli
