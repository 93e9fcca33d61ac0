// SPDX-License-Identifier: GPL-3.0-or-later
// Tracking from the command line as the window tracks: segments queued
// through the session's app::Processor with Process, the worker's messages
// run on this thread, progress on standard error, and Ctrl-C stopping the
// jobs as Cancel All does, so that what was computed is kept and the next
// run resumes from it.
#pragma once

#include <csignal>
#include <cstdint>
#include <string>
#include <vector>

#include "imaging/bitmap.h"

class VLComp;
class VLSegment;

namespace cli {

class ProjectSession;

// While alive, Ctrl-C (SIGINT), SIGTERM (what `timeout` and batch
// schedulers send before they kill) and SIGHUP (the terminal went away) no
// longer end the program: each only raises a flag that the long commands
// watch and treat as Cancel. A second signal of the same kind ends the
// program at once, as usual. Keep it alive until the results are saved, so
// that a signal can never cut a save short. One at a time.
class InterruptWatch {
 public:
  InterruptWatch();
  ~InterruptWatch();
  InterruptWatch(const InterruptWatch&) = delete;
  InterruptWatch& operator=(const InterruptWatch&) = delete;
  bool fired() const;
  // The exit status of a command the signal stopped, as shells report a
  // program ended by it: 130 for Ctrl-C, 143 for SIGTERM, 129 for SIGHUP.
  int status() const;

 private:
  struct sigaction previous_[3];
};

struct TrackOutcome {
  bool cancelled = false;  // a signal stopped the jobs
  // Texts of the warnings the runs left (a frame that could not be read, a
  // mask refused); each stands for a run that failed.
  std::vector<std::string> failures;
  int64_t frames = 0;  // frames added over all segments
  double seconds = 0;  // wall time from queueing until every run ended
};

// Queues the segments (composition indices, in this order) as Process does
// and runs the owning thread's messages until every run has ended, showing
// progress on standard error (one line redrawn on a terminal, a line now
// and then otherwise) and printing the runs' information boxes (an object
// lost) there as they come. A segment with nothing left to track is passed
// over with a line on standard error. When `watch` fires, all jobs are
// cancelled and waited for. Afterwards no segment is left in a tracking
// status. The session must have a tracker.
TrackOutcome TrackSegments(ProjectSession& session,
                           const std::vector<int32_t>& segments,
                           const InterruptWatch& watch);

// The segment's stored transformations over its data span, in frame order:
// a line per frame with the frame index and xx xy yx yy x y of the
// transformation from key-frame coordinates to that frame, each with 17
// significant digits, separated by single blanks.
std::string TransformsText(const VLSegment& segment);

// The mask's bounding box on the key frame, in pixel edges: left, top, and
// right, bottom one past the last set pixel; all zero for an empty mask.
struct MaskBox {
  int32_t left = 0, top = 0, right = 0, bottom = 0;
};
MaskBox BoundingBox(const img::bitmap<img::bit1>& mask);

// The result of a run for pipelines, one JSON object: per segment its
// index, key frame, spans, the mask's bounding box, and per frame of its
// data span the frame index, xx xy yx yy x y and the box's four corners
// (top left, top right, bottom right, bottom left) carried into that frame;
// then the run's new frames, seconds, frames per second and ms per frame,
// whether it was cancelled, and "error" when a run failed.
std::string TrackJson(const VLComp& comp,
                      const std::vector<int32_t>& segments,
                      const TrackOutcome& outcome,
                      const std::string& error);

}  // namespace cli
