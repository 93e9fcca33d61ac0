// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/track_run.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iterator>
#include <stdexcept>

#include "app/model/comp.h"
#include "app/model/segment.h"
#include "app/work/processor.h"
#include "cli/json.h"
#include "cli/project_session.h"

namespace cli {

namespace {

// Written by the handler, read by the pumping loop; nothing else is safe to
// do inside a signal handler.
// Holds the number of the first signal that arrived.
volatile std::sig_atomic_t g_interrupted = 0;

constexpr int kWatchedSignals[] = {SIGINT, SIGTERM, SIGHUP};

extern "C" void OnInterrupt(int signal_number) {
  if (g_interrupted == 0) g_interrupted = signal_number;
}

using Clock = std::chrono::steady_clock;

// Frames of the time span that already have results.
int64_t FramesKept(const VLSegment& segment) {
  const My::Span time = segment.GetTimeSpan(), data = segment.GetDataSpan();
  return std::max<int64_t>(
      0, int64_t(std::min(time.last, data.last)) - std::max(time.first, data.first));
}

struct Job {
  int32_t index;
  VLSegment* segment;
  int64_t kept_before;  // frames of the time span with results at the start
  int64_t wanted;       // frames of the time span without them
  int64_t done() const { return FramesKept(*segment) - kept_before; }
};

// One progress line: redrawn in place on a terminal; elsewhere (a log, a
// pipe) written out when the segment or direction changes and every few
// seconds, so that a log stays short.
class ProgressLine {
 public:
  ProgressLine() : tty_(isatty(STDERR_FILENO) == 1) {}

  void show(const std::string& text, bool changed) {
    const auto now = Clock::now();
    if (tty_) {
      if (!changed && (text == shown_ || now - last_ < std::chrono::milliseconds(100))) return;
      std::fprintf(stderr, "\r%s", text.c_str());
      if (text.size() < shown_.size())
        std::fprintf(stderr, "%*s", int(shown_.size() - text.size()), "");
      open_ = true;
    } else {
      if (!changed && now - last_ < std::chrono::seconds(2)) return;
      std::fprintf(stderr, "%s\n", text.c_str());
    }
    shown_ = text;
    last_ = now;
  }

  // Ends the redrawn line so that other text starts on a line of its own.
  void end() {
    if (open_) std::fputc('\n', stderr);
    open_ = false;
    shown_.clear();
  }

 private:
  bool tty_;
  bool open_ = false;
  std::string shown_;
  Clock::time_point last_{};
};

class Tracking {
 public:
  Tracking(ProjectSession& session, const InterruptWatch& watch)
      : session_(session), watch_(watch), notices_seen_(session.dialogs().questions().size()) {}

  TrackOutcome Run(const std::vector<int32_t>& segments) {
    app::Processor& processor = *session_.processor();
    VLComp& comp = session_.comp();
    start_ = Clock::now();
    for (const int32_t index : segments) {
      VLSegment& segment = comp.GetSegmentObject(index);
      const int64_t kept = FramesKept(segment);
      const int64_t wanted = segment.GetTimeSpan().length() - kept;
      if (wanted <= 0) {
        std::fprintf(stderr, "segment %d: nothing left to track\n", index);
        continue;
      }
      if (segment.Process()) {
        jobs_.push_back({index, &segment, kept, wanted});
      } else {
        // Refused at once (an empty mask): the warning is this segment's.
        TakeNotices([index](std::string text) {
          return text + " (segment " + std::to_string(index) + ")";
        });
      }
    }
    processor.wait_until([&] {
      Watch();
      return watch_.fired();
    });
    if (watch_.fired()) {
      outcome_.cancelled = true;
      line_.end();
      std::fprintf(stderr, "cancelling...\n");
      session_.app().OnCancelAll();
      processor.wait_until([&] {
        Watch();
        return false;
      });
    }
    Watch();
    ShowProgress(true);
    line_.end();
    // A run that failed posts no final status; the worker is idle now, so
    // nothing is left that could, and its segment is idle as well.
    for (const Job& job : jobs_)
      if (job.segment->GetStatus() != app::kSegmentIdle) job.segment->SetStatus(app::kSegmentIdle);
    outcome_.seconds = std::chrono::duration<double>(Clock::now() - start_).count();
    for (const Job& job : jobs_) outcome_.frames += job.done();
    return outcome_;
  }

 private:
  // Runs after every batch of messages.
  void Watch() {
    TakeNotices([this](std::string text) {
      // Runs go strictly in queue order, each one's messages before the
      // next one's, and a failed run posts no final status: the earliest
      // job not yet idle is the one that failed (a later one may have
      // started in the same batch). It is idle now; nothing else will say so.
      for (Job& job : jobs_) {
        const SegmentStatus status = job.segment->GetStatus();
        if (status == app::kSegmentIdle) continue;
        const My::Span data = job.segment->GetDataSpan();
        text += " (segment " + std::to_string(job.index);
        if (status == app::kSegmentForward || status == app::kSegmentBackward)
          text += status == app::kSegmentForward ? ", tracking forward" : ", tracking backward";
        text += "; data span " + std::to_string(data.first) + ":" + std::to_string(data.last) +
                " kept)";
        job.segment->SetStatus(app::kSegmentIdle);
        break;
      }
      return text;
    });
    ShowProgress(false);
  }

  // Prints the information boxes shown since the last call and keeps the
  // warnings as failures, each described by `describe`.
  template <class Describe>
  void TakeNotices(Describe&& describe) {
    const auto& questions = session_.dialogs().questions();
    for (; notices_seen_ < questions.size(); ++notices_seen_) {
      const app::AskedQuestion& q = questions[notices_seen_];
      if (q.buttons != app::Buttons::Ok) continue;
      std::string text = q.text;
      if (q.icon == app::Icon::Warning || q.icon == app::Icon::Error) {
        // The report adds its own stop.
        if (!text.empty() && text.back() == '.') text.pop_back();
        outcome_.failures.push_back(describe(std::move(text)));
        continue;
      }
      for (char& c : text)
        if (c == '\n') c = ' ';
      line_.end();
      std::fprintf(stderr, "%s\n", text.c_str());
    }
  }

  void ShowProgress(bool final) {
    const Job* current = nullptr;
    for (const Job& job : jobs_)
      if (job.segment->GetStatus() == app::kSegmentForward ||
          job.segment->GetStatus() == app::kSegmentBackward)
        current = &job;
    if (final && !current && !jobs_.empty()) current = &jobs_.back();
    if (!current) return;
    int64_t done = 0;
    for (const Job& job : jobs_) done += job.done();
    const double seconds = std::chrono::duration<double>(Clock::now() - start_).count();
    const SegmentStatus status = current->segment->GetStatus();
    const char* direction = status == app::kSegmentForward    ? ", forward"
                            : status == app::kSegmentBackward ? ", backward"
                                                              : "";
    char text[160];
    std::snprintf(text, sizeof text, "segment %d: %lld of %lld frames, %.1f frames/s%s",
                  current->index, static_cast<long long>(current->done()),
                  static_cast<long long>(current->wanted), seconds > 0 ? done / seconds : 0.0,
                  direction);
    const bool changed = current->index != shown_index_ || status != shown_status_ || final;
    shown_index_ = current->index;
    shown_status_ = status;
    line_.show(text, changed);
  }

  ProjectSession& session_;
  const InterruptWatch& watch_;
  size_t notices_seen_;
  std::vector<Job> jobs_;
  TrackOutcome outcome_;
  ProgressLine line_;
  Clock::time_point start_;
  int32_t shown_index_ = -1;
  SegmentStatus shown_status_ = SegmentStatus::Idle;
};

}  // namespace

InterruptWatch::InterruptWatch() {
  g_interrupted = 0;
  struct sigaction action = {};
  action.sa_handler = OnInterrupt;
  sigemptyset(&action.sa_mask);
  for (const int s : kWatchedSignals) sigaddset(&action.sa_mask, s);
  // SA_RESTART: the signal may land on a worker in the middle of reading a
  // frame, which must not fail for it. SA_RESETHAND: the second signal is
  // the usual one, so a stuck save can still be ended.
  action.sa_flags = SA_RESTART | SA_RESETHAND;
  for (size_t i = 0; i < std::size(kWatchedSignals); ++i)
    sigaction(kWatchedSignals[i], &action, &previous_[i]);
}

InterruptWatch::~InterruptWatch() {
  for (size_t i = 0; i < std::size(kWatchedSignals); ++i)
    sigaction(kWatchedSignals[i], &previous_[i], nullptr);
}

bool InterruptWatch::fired() const {
  return g_interrupted != 0;
}

int InterruptWatch::status() const {
  return 128 + (g_interrupted != 0 ? int(g_interrupted) : SIGINT);
}

TrackOutcome TrackSegments(ProjectSession& session,
                           const std::vector<int32_t>& segments,
                           const InterruptWatch& watch) {
  if (!session.processor()) throw std::logic_error("tracking needs a session with a tracker");
  return Tracking(session, watch).Run(segments);
}

std::string TransformsText(const VLSegment& segment) {
  const VLSegmentDataPtr data = segment.GetData();
  const int32_t key = segment.GetOrigin();
  const My::Span span = data->DataSpan(key);
  std::string text;
  for (int32_t frame = span.first; frame < span.last; ++frame) {
    const types::affine& t = data->At(frame, key);
    char line[256];
    std::snprintf(line, sizeof line, "%d %.17g %.17g %.17g %.17g %.17g %.17g\n", frame, t.xx, t.xy,
                  t.yx, t.yy, t.x, t.y);
    text += line;
  }
  return text;
}

MaskBox BoundingBox(const img::bitmap<img::bit1>& mask) {
  MaskBox box{int32_t(mask.width), int32_t(mask.height), 0, 0};
  for (uint32_t y = 0; y < mask.height; ++y) {
    const uint8_t* row = mask.rows[y];
    for (uint32_t x = 0; x < mask.width; ++x) {
      if (!(row[x >> 3] & (128 >> (x & 7)))) continue;
      box.left = std::min(box.left, int32_t(x));
      box.right = std::max(box.right, int32_t(x) + 1);
      box.top = std::min(box.top, int32_t(y));
      box.bottom = int32_t(y) + 1;
    }
  }
  if (box.right == 0) box = {};
  return box;
}

std::string TrackJson(const VLComp& comp,
                      const std::vector<int32_t>& segments,
                      const TrackOutcome& outcome,
                      const std::string& error) {
  Json j;
  j.begin_object().key("segments").begin_array();
  for (const int32_t index : segments) {
    const VLSegment& segment = comp.GetSegmentObject(index);
    const int32_t key = segment.GetOrigin();
    const MaskBox box = BoundingBox(segment.GetMask());
    const My::Span data_span = segment.GetDataSpan(), time_span = segment.GetTimeSpan();
    j.begin_object().key("index").value(index).key("key_frame").value(key);
    j.key("data_span").begin_array().value(data_span.first).value(data_span.last).end_array();
    j.key("time_span").begin_array().value(time_span.first).value(time_span.last).end_array();
    j.key("mask_box")
        .begin_array()
        .value(box.left)
        .value(box.top)
        .value(box.right)
        .value(box.bottom)
        .end_array();
    j.key("frames").begin_array();
    const VLSegmentDataPtr data = segment.GetData();
    const My::Span span = data->DataSpan(key);
    const double corners[4][2] = {{double(box.left), double(box.top)},
                                  {double(box.right), double(box.top)},
                                  {double(box.right), double(box.bottom)},
                                  {double(box.left), double(box.bottom)}};
    for (int32_t frame = span.first; frame < span.last; ++frame) {
      const types::affine& t = data->At(frame, key);
      j.begin_object().key("frame").value(frame).key("transform").begin_array();
      for (const double v : {t.xx, t.xy, t.yx, t.yy, t.x, t.y}) j.value(v);
      j.end_array().key("corners").begin_array();
      for (const auto& c : corners) {
        double x, y;
        t.apply(c[0], c[1], x, y);
        j.begin_array().value(x).value(y).end_array();
      }
      j.end_array().end_object();
    }
    j.end_array().end_object();
  }
  j.end_array();
  j.key("new_frames").value(outcome.frames).key("seconds").value(outcome.seconds);
  const bool timed = outcome.frames > 0 && outcome.seconds > 0;
  j.key("frames_per_second");
  timed ? j.value(double(outcome.frames) / outcome.seconds) : j.null();
  j.key("ms_per_frame");
  timed ? j.value(1000 * outcome.seconds / double(outcome.frames)) : j.null();
  j.key("cancelled").value(outcome.cancelled);
  if (!error.empty()) j.key("error").value(error);
  j.end_object();
  return j.str();
}

}  // namespace cli
