// SPDX-License-Identifier: GPL-3.0-or-later
// velomar-cli track: tracks a project's segments, or a one-off shot, through
// the same worker and messages as the window, and saves what was computed,
// also when a run fails or Ctrl-C stops it.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <stdexcept>

#include "app/file/project_file.h"
#include "app/model/comp.h"
#include "app/model/segment.h"
#include "base/staging_file.h"
#include "cli/commands.h"
#include "cli/options.h"
#include "cli/output_file.h"
#include "cli/project_session.h"
#include "cli/report.h"
#include "cli/segment_setup.h"
#include "cli/track_run.h"
#include "imaging/cache.h"
#include "imaging/global_cache.h"

namespace cli {

namespace {

// Frames the cache keeps during a command run: per direction a reference
// frame, a target and a few read ahead, with room to spare.
constexpr int64_t kCachedFrames = 16;

// Which segments a project run tracks: --segment, --all, else the active one
// (what Process would take), else all of them.
std::vector<int32_t> ChooseSegments(const VLComp& comp, const Options& options) {
  const int32_t count = comp.GetSegmentCount();
  if (count == 0) throw std::runtime_error("the project has no segments: add one with segment add");
  if (options.has("--segment")) {
    const uint32_t index = ParseCount(options.value("--segment"), "--segment");
    if (index >= uint32_t(count))
      throw std::runtime_error("no segment " + options.value("--segment") + ": the project has " +
                               std::to_string(count));
    return {int32_t(index)};
  }
  if (!options.flag("--all") && comp.GetActiveSegment() >= 0) return {comp.GetActiveSegment()};
  std::vector<int32_t> all;
  for (int32_t i = 0; i < count; ++i) all.push_back(i);
  return all;
}

// The trackline's way of changing a time span: one undoable step, clamped by
// the segment. A span that leaves out the key frame is refused, as it would
// be clamped to something else than asked for.
void SetTimeSpan(VLComp& comp, int32_t index, const std::string& text) {
  const auto colon = text.find(':');
  if (colon == std::string::npos) throw UsageError("--span needs FIRST:LAST");
  const My::Span span{ParseFrameIndex(text.substr(0, colon), "--span"),
                      ParseFrameIndex(text.substr(colon + 1), "--span")};
  VL::Segment& segment = comp.GetInterface().GetSegment(index);
  if (span.first > segment.GetOrigin() || span.last <= segment.GetOrigin())
    throw UsageError("--span FIRST:LAST must hold the key frame " +
                     std::to_string(segment.GetOrigin()) + " (LAST is one past the last frame)");
  segment.SetTimeSpan(FrameIndex(comp, span.first), FrameIndex(comp, span.last - 1) + 1);
}

void PrintSummary(const VLComp& comp,
                  const std::vector<int32_t>& segments,
                  const TrackOutcome& outcome) {
  for (const int32_t index : segments) {
    const VLSegment& s = comp.GetSegmentObject(index);
    std::printf("segment %d: data span %d:%d, time span %d:%d\n", index, s.GetDataSpan().first,
                s.GetDataSpan().last, s.GetTimeSpan().first, s.GetTimeSpan().last);
  }
  std::printf("%lld new frames in %.2f s", static_cast<long long>(outcome.frames), outcome.seconds);
  if (outcome.frames > 0 && outcome.seconds > 0)
    std::printf(", %.1f frames/s, %.1f ms per frame", outcome.frames / outcome.seconds,
                1000 * outcome.seconds / outcome.frames);
  std::printf("\n");
  if (outcome.cancelled) {
    int64_t kept = 0;
    for (const int32_t index : segments)
      kept += comp.GetSegmentObject(index).GetDataSpan().length();
    std::fprintf(stderr, "Tracking cancelled: %lld frames kept and saved; track again to resume.\n",
                 static_cast<long long>(kept));
  }
}

// The failure of writing `target`, after writing what it should have held
// (`text` for a file at a given path) to a recovery file that the text
// names. When even that fails, the failure alone.
std::string KeepElsewhere(const std::exception& failure,
                          const std::string& target,
                          const std::function<std::string(const std::string&)>& text) {
  std::string report = failure.what();
  try {
    const std::string kept = RecoveryPath(target);
    WriteWhole(kept, text(kept));
    report += ".\nThe results are kept in " + kept;
  } catch (const std::exception&) {
    // Nowhere to keep them: the first failure is the one to tell.
  }
  return report;
}

// What every form does once its segments are chosen: track, save to
// `project` (none when empty), write the transformations, and turn failed
// runs into the command's failure.
int TrackAndSave(ProjectSession& session,
                 const std::vector<int32_t>& segments,
                 const Options& options,
                 const std::string& project,
                 const std::function<void()>& save) {
  if (options.has("--debug-dir")) {
    const std::string dir = options.value("--debug-dir");
    std::filesystem::create_directories(dir);
    // The worker reads it at the start of each run.
    setenv("VL_DEBUG_DIR", dir.c_str(), 1);
  }
  const std::string transforms = options.has("--transforms") ? options.value("--transforms") : "";
  // Before the first frame: an hour of tracking must not end in a folder
  // that cannot be written.
  for (const std::string& target : {project, transforms})
    if (!target.empty()) staging::CheckWritable(target);
  // A command run reads each frame once and never shows it: the cache only
  // has to hold what the tracker and the read-ahead have in hand. Kept
  // that small, evicted frames hand their memory to the next decode
  // instead of every frame faulting in fresh pages.
  VLComp& comp = session.comp();
  img::global_cache().set_quota_bytes(kCachedFrames * int64_t(comp.GetWidth()) *
                                      int64_t(comp.GetHeight()) * 4);
  InterruptWatch watch;
  const TrackOutcome outcome = TrackSegments(session, segments, watch);
  std::vector<std::string> problems = outcome.failures;
  if (!project.empty()) {
    try {
      save();
    } catch (const std::exception& e) {
      problems.push_back(KeepElsewhere(
          e, project, [&](const std::string& kept) { return app::ProjectFileText(comp, kept); }));
    }
  }
  if (!transforms.empty()) {
    const std::string text = TransformsText(comp.GetSegmentObject(segments.front()));
    try {
      WriteWhole(transforms, text);
    } catch (const std::exception& e) {
      problems.push_back(KeepElsewhere(e, transforms, [&](const std::string&) { return text; }));
    }
  }
  std::string failures;
  for (const auto& f : problems) {
    if (!failures.empty()) failures += '\n';
    failures += f;
  }
  if (options.flag("--json")) {
    std::printf("%s\n", TrackJson(comp, segments, outcome, failures).c_str());
    if (outcome.cancelled)
      std::fprintf(stderr,
                   "Tracking cancelled: what was computed is saved; track again to resume.\n");
    if (!failures.empty()) {
      // The result above already holds the error: no second document.
      std::fprintf(stderr, "%s\n", ReportText("tracking", failures).c_str());
      return 1;
    }
  } else {
    PrintSummary(comp, segments, outcome);
    if (!failures.empty()) throw std::runtime_error(failures);
  }
  return outcome.cancelled ? watch.status() : 0;
}

int RunTrackProject(const Options& options) {
  if (options.positional().size() != 1) throw UsageError("track needs one PROJECT");
  if (options.has("--segment") && options.flag("--all"))
    throw UsageError("--segment and --all exclude each other");
  if (options.has("--transforms") && options.flag("--all"))
    throw UsageError("--transforms writes one segment's results: give --segment INDEX");
  for (const char* o : {"--mask", "--key", "--param", "--output", "--rate"})
    if (options.has(o)) throw UsageError(std::string(o) + " belongs to track --sequence");
  ProjectSession session(options.flag("--yes"), true);
  int status = 0;
  const int failed = session.Run(
      [&] {
        session.Open(options.positional()[0]);
        const std::vector<int32_t> segments = ChooseSegments(session.comp(), options);
        if (options.has("--transforms") && segments.size() != 1)
          throw UsageError("--transforms writes one segment's results: give --segment INDEX");
        if (options.has("--span")) {
          if (segments.size() != 1)
            throw UsageError("--span sets one segment's time span: give --segment INDEX");
          SetTimeSpan(session.comp(), segments.front(), options.value("--span"));
        }
        status = TrackAndSave(session, segments, options, session.comp().GetProjectPath(),
                              [&] { session.app().OnSave(); });
      },
      options.flag("--json"), "tracking");
  return failed ? failed : status;
}

int RunTrackSequence(const Options& options) {
  if (!options.positional().empty())
    throw UsageError("track --sequence takes no PROJECT: -o names the project to write");
  for (const char* o : {"--segment", "--all"})
    if (options.has(o) || options.flag(o))
      throw UsageError(std::string(o) + " belongs to track PROJECT");
  const SegmentRequest request = ParseSegmentRequest(options);
  const std::string out = options.has("--output") ? options.value("--output") : std::string();
  if (out.empty() && !options.has("--transforms"))
    throw UsageError("track --sequence needs -o PROJECT.vlp or --transforms FILE to keep results");
  const uint32_t rate = options.has("--rate") ? ParseCount(options.value("--rate"), "--rate") : 50;
  if (rate == 0) throw UsageError("--rate must be at least 1");
  ProjectSession session(options.flag("--yes"), true);
  int status = 0;
  const int failed = session.Run(
      [&] {
        NewProjectFromSequence(session, options.value("--sequence"), rate);
        const int32_t index = AddSegment(session, request);
        status =
            TrackAndSave(session, {index}, options, out, [&] { session.app().SaveProjectAs(out); });
      },
      options.flag("--json"), "tracking");
  return failed ? failed : status;
}

}  // namespace

int RunTrack(const std::vector<std::string>& args) {
  const Options options(WithLongOutput(args), {"--all", "--yes", "--json"},
                        {"--segment", "--transforms", "--debug-dir", "--sequence", "--mask",
                         "--key", "--span", "--param", "--output", "--rate"});
  return options.has("--sequence") ? RunTrackSequence(options) : RunTrackProject(options);
}

const Command kTrackCommand = {
    "track", "track a project's segments, or a one-off shot",
    "usage: velomar-cli track PROJECT.vlp [--segment INDEX | --all] [--span FIRST:LAST]\n"
    "                         [--transforms FILE] [--debug-dir DIR] [--json] [--yes]\n"
    "       velomar-cli track --sequence PATH --key FRAME --mask MASK.bmp [--span FIRST:LAST]\n"
    "                         [--param KEY=VALUE]... [--rate N] [-o PROJECT.vlp]\n"
    "                         [--transforms FILE] [--debug-dir DIR] [--json] [--yes]\n"
    "\n"
    "Tracks segments as Segment > Process does: from the key frame backward,\n"
    "then forward, over the segment's time span, one transformation a frame.\n"
    "Frames that already have results are kept and tracking goes on from\n"
    "them, so a stopped run resumes and a widened time span is filled in.\n"
    "Then saves the project. Without --segment or --all the active segment\n"
    "is tracked (the one Process takes; segment add makes the new one\n"
    "active), or every segment when none is active. INDEX counts from 0 at\n"
    "the top of the stack. --span first sets the time span of the one segment\n"
    "tracked (frame indices from 0, LAST one past the end, holding the key\n"
    "frame), as dragging its ends on the trackline does.\n"
    "\n"
    "The second form makes a project of the sequence PATH belongs to (as new\n"
    "does), adds a segment on FRAME with MASK (as segment add does, same\n"
    "options), tracks it, and saves the project as -o PROJECT.vlp if given.\n"
    "\n"
    "The frame cache holds only 16 frames during the run: each frame is read\n"
    "once, and recycling the memory of evicted frames is faster than taking\n"
    "fresh memory for every frame.\n"
    "\n"
    "Progress goes to standard error: frames done of those wanted for the\n"
    "segment in hand, frames per second, direction. At the end standard output\n"
    "has each segment's data span and time span (FIRST:LAST, LAST one past\n"
    "the end) and the speed.\n"
    "  --transforms FILE  one line per frame of the segment's data span, in\n"
    "                     order: the frame index, then xx xy yx yy x y of the\n"
    "                     transformation from key-frame coordinates to that\n"
    "                     frame, each with 17 significant digits, single blanks\n"
    "                     between; only with one segment tracked\n"
    "  --debug-dir DIR    the tracker's log (Velomar.log) and table of\n"
    "                     discrepancies (Discrepancy.txt) of the last run go there\n"
    "  --json             standard output has one object instead of the summary:\n"
    "                     {\"segments\": [{\"index\", \"key_frame\", \"data_span\",\n"
    "                     \"time_span\", \"mask_box\": [left, top, right, bottom],\n"
    "                     \"frames\": [{\"frame\", \"transform\": [xx, xy, yx, yy, x, y],\n"
    "                     \"corners\": the box's corners (top left, top right,\n"
    "                     bottom right, bottom left) carried into the frame}]}],\n"
    "                     \"new_frames\", \"seconds\", \"frames_per_second\",\n"
    "                     \"ms_per_frame\", \"cancelled\"}, with \"error\" when a run\n"
    "                     failed; a failure before tracking gives {\"error\"}\n"
    "\n"
    "Ctrl-C stops the tracking as Segment > Cancel does: the frames computed are\n"
    "kept and saved, and the command exits with status 130; a second Ctrl-C\n"
    "ends it at once, unsaved. SIGTERM (sent by timeout and batch schedulers)\n"
    "and SIGHUP do the same, with status 143 and 129. A run that fails (a\n"
    "frame that cannot be read) makes the command fail with status 1 after\n"
    "saving what was computed; an object lost by the tracker ends that\n"
    "direction with a notice only. The project and the --transforms file are\n"
    "checked to be writable before the first frame; should saving still fail,\n"
    "the error names a recovery file under $XDG_STATE_HOME/velomar/recovered\n"
    "(default ~/.local/state) that holds the results.\n",
    RunTrack};

}  // namespace cli
