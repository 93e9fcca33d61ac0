// SPDX-License-Identifier: GPL-3.0-or-later
#include "tracking/key_frame.h"

#include <algorithm>
#include <climits>
#include <exception>
#include <mutex>
#include <ostream>
#include <sstream>
#include <string>
#include <thread>

#include "base/errors.h"
#include "imaging/io_types.h"
#include "imaging/prefetcher.h"
#include "imaging/warp.h"
#include "tracking/matching_profile.h"

namespace tracking {

namespace {

// Step of the frame index in a direction.
int32_t FrameAt(int32_t key, int direction, int32_t distance) {
  return direction == 1 ? key + distance : key - distance;
}

void LogHeading(std::ostream* log, const std::string& from, const std::string& to) {
  if (!log) return;
  const std::string rule(80, '-');
  *log << "\n\n\n" << rule << "\nfrom " << from << " to " << to << '\n' << rule << std::endl;
}

}  // namespace

// --- TargetFrame ------------------------------------------------------------

void TargetFrame::set(int direction, int32_t distance) {
  set(FrameAt(run_->segment.key_frame, direction, distance));
}

void TargetFrame::set(int32_t frame) {
  frame_ = frame;
  load();
}

int32_t TargetFrame::distance(int& direction) const {
  const int32_t key = run_->segment.key_frame;
  if (frame_ < key) {
    direction = 0;
    return key - frame_;
  }
  direction = 1;
  return frame_ - key;
}

const std::string& TargetFrame::name() const {
  const std::vector<std::string>& frames = *run_->segment.frames;
  if (frame_ < 0 || size_t(frame_) >= frames.size())
    throw xtd::exception("frame " + std::to_string(frame_) + " is outside the composition");
  return frames[size_t(frame_)];
}

void TargetFrame::load() {
  StageScope stage(run_->timer, "image loading");
  const std::string& file = name();
  auto handle = std::make_shared<img::CacheHandle>(*run_->cache);
  try {
    handle->acquire_file(file, true);
  } catch (const img::io_error& e) {
    // The decoder's text alone ("image file format not recognised") leaves
    // the user to guess which of a thousand frames is at fault.
    std::string text = e.what();
    if (text.find(file) == std::string::npos) text += ": " + file;
    if (!e.detail().empty()) text += " (" + e.detail() + ")";
    throw xtd::exception(text);
  }
  const img::image& picture = handle->image();
  const img::bitmap<img::bit1>& mask = *run_->segment.mask;
  // Every stage compares this picture with the mask's key frame pixel for
  // pixel; a frame of another size is an error of the footage.
  if (picture.width != mask.width || picture.height != mask.height)
    throw xtd::exception("Bad size of image " + file + " - " + std::to_string(picture.width) + "x" +
                         std::to_string(picture.height) + ", expected - " +
                         std::to_string(mask.width) + "x" + std::to_string(mask.height));
  img::convert_to_float(image_, picture);
  cached_ = std::move(handle);
}

void TargetFrame::swap(TargetFrame& other) {
  std::swap(frame_, other.frame_);
  std::swap(cached_, other.cached_);
  image_.swap(other.image_);
}

// --- KeyFrame ---------------------------------------------------------------

KeyFrame::KeyFrame(const TrackingRun& run) : TargetFrame(run), optic_flow_(run.log) {}

KeyFrame::~KeyFrame() = default;

void KeyFrame::set_to_key() {
  if (frame_ == run_->segment.key_frame) return;
  TargetFrame::set(run_->segment.key_frame);
  prepare();
}

void KeyFrame::set(int direction, int32_t distance) {
  TargetFrame::set(direction, distance);
  prepare();
}

void KeyFrame::take(TargetFrame& target) {
  swap(target);
  prepare();
}

types::affine KeyFrame::stored(int32_t frame) const {
  const TrackedSegment& s = run_->segment;
  // The key frame is the origin of every stored transformation. Its own
  // entry (forward[0]) is measured like any other frame and need not be the
  // exact identity, but it does not exist yet when tracking goes backward
  // first; taking the identity always keeps both directions and every
  // resumed run on the same footing.
  if (frame == s.key_frame) return types::affine::identity();
  return s.data->At(frame, s.key_frame);
}

void KeyFrame::prepare() {
  const TrackedSegment& s = run_->segment;
  const VLSegmentParams& params = s.params;
  StageScope preparing(run_->timer, "key frame preparing");

  if (frame_ != s.key_frame && !params.OriginalMaskInAllFrames) {
    StageScope stage(run_->timer, "mask transforming");
    const uint64_t set = img::warp_mask(*s.mask, stored(frame_), mask_);
    if (set == 0 || set == uint64_t(mask_.width) * mask_.height) throw SingularMask(frame_);
  } else {
    mask_ = *s.mask;
  }

  segments_.reset();
  const MotionEstimation method = params.MotionEstimation;
  const bool grid = method == MotionEstimation::Fastest ? false
                    : method == MotionEstimation::Fast  ? frame_ == s.key_frame
                                                        : true;
  if (grid) {
    StageScope stage(run_->timer, "segmenting");
    auto segments = std::make_unique<Segmentation>();
    segments->create(mask_, params.ImageBlockSize, 0);
    segments->image = &image_;
    // Too few blocks to hold each other in place: this reference frame is
    // tracked by prediction and refinement alone.
    if (segments->segment_count() >= 10) segments_ = std::move(segments);
  }

  has_refiner_ = false;
  if (params.optic_flow_iterations != 0) {
    StageScope stage(run_->timer, "optic flow");
    if (!optic_flow_.initialise(types::affine::identity(), image_, mask_, params.MotionModel,
                                method == MotionEstimation::Intensive))
      throw SingularMask(frame_);
    has_refiner_ = true;
  }
}

void KeyFrame::predict(const TargetFrame& target, types::affine& p, double& dp) {
  int direction = 1;
  const int32_t n = target.distance(direction);
  const int32_t key = run_->segment.key_frame;
  if (n <= 1) {
    p = types::affine::identity();
  } else {
    const types::affine t1 = stored(FrameAt(key, direction, n - 1));
    const types::affine t2 = stored(FrameAt(key, direction, n - 2));
    // Constant velocity as a transformation, so that it holds for rotation.
    const types::affine v = t1 * t2.inverse();
    p = (v * t1) * stored(frame_).inverse();
  }
  std::ostream* log = run_->log;
  if (has_refiner_) {
    optic_flow_.set(p, -1);
    dp = optic_flow_.measure(target.image(), run_->timer);
    if (log) *log << "prediction with discrepancy " << dp << ":\n";
  } else if (log) {
    *log << "prediction:\n";
  }
  if (log) *log << p << '\n';
}

namespace {

// Block matching that leaves more than this share of the pixels ignored by
// the refiner's measure has matched nothing: the motion lies beyond the
// search window.
constexpr double kUnmatchedShare = 0.5;
// A wider search replaces the first only when it measures clearly better.
constexpr double kClearlyBetter = 0.75;
// The widest window the search widens to, and how often it may widen.
constexpr int32_t kWidestRadius = 100;
constexpr int kWidenings = 2;

}  // namespace

types::affine KeyFrame::match_blocks(const TargetFrame& target, int32_t radius) {
  const VLSegmentParams& params = run_->segment.params;
  {
    StageScope stage(run_->timer, "profiles building");
    BuildProfiles(*segments_, target.image(), ProfileParamsOf(params, radius), false);
  }
  StageScope stage(run_->timer, "coherent motion");
  // The ties of the first guess are broken by the same fixed sequence for
  // every frame, so that a frame's result depends on the frame alone and a
  // resumed run repeats an uninterrupted one.
  random_ = TieBreaker();
  return FindMotion(*segments_, CoherentMotionParamsOf(params), random_, run_->log);
}

types::affine KeyFrame::segments_transform(const TargetFrame& target,
                                           const types::affine& p,
                                           double& ds) {
  const VLSegmentParams& params = run_->segment.params;
  SetStartingMotion(*segments_, params.use_prediction ? p : types::affine::identity());
  int direction = 1;
  const int32_t n = target.distance(direction);
  int32_t radius = int32_t(std::min<unsigned>(
      n >= 2 && params.use_prediction ? params.MaxAcceleration : params.InitialSearchRadius,
      kWidestRadius));
  types::affine s = match_blocks(target, radius);
  if (!has_refiner_) return s;
  std::ostream* log = run_->log;
  float portion = optic_flow_.portion();  // before the measure of `s`
  optic_flow_.set(s, -1);
  ds = optic_flow_.measure(target.image(), run_->timer);
  if (log) *log << "segments transform discrepancy: " << ds << '\n';

  // Motion faster than the window (next to the key frame, or a jolt the
  // prediction missed) is searched for again in a wider one. Where the
  // window sufficed, none of this runs and nothing changes.
  bool last_measured = true;  // whether the refiner's last measure was of `s`
  for (int widening = 0; widening < kWidenings && radius < kWidestRadius &&
                         optic_flow_.ignored_share() > kUnmatchedShare;
       ++widening) {
    radius = std::min(2 * radius + 1, kWidestRadius);
    if (log) *log << "block matching found nothing, searching at radius " << radius << '\n';
    const types::affine wide = match_blocks(target, radius);
    const float before = optic_flow_.portion();
    optic_flow_.set(wide, -1);
    const double dw = optic_flow_.measure(target.image(), run_->timer);
    if (log) *log << "wider segments transform discrepancy: " << dw << '\n';
    if (!(dw < kClearlyBetter * ds)) {
      last_measured = false;
      break;
    }
    s = wide;
    ds = dw;
    portion = before;
    last_measured = true;
  }
  if (!last_measured) {
    // The refinement starts from the right side of the last measure, and
    // the measure moves the portion coefficient: both are put back as the
    // measure of `s` left them.
    optic_flow_.set_portion(portion);
    optic_flow_.set(s, -1);
    ds = optic_flow_.measure(target.image(), nullptr);
    if (log) *log << "keeping the first segments transform: " << ds << '\n';
  }
  return s;
}

void KeyFrame::refine(const TargetFrame& target, types::affine& c, double& d) {
  if (!has_refiner_) return;
  const unsigned iterations = run_->segment.params.optic_flow_iterations;
  optic_flow_.set(c, d);
  optic_flow_.optimise(target.image(), iterations > unsigned(INT_MAX) ? INT_MAX : int(iterations),
                       run_->timer);
  c = optic_flow_.transformation();
  d = optic_flow_.discrepancy();
}

types::affine KeyFrame::transform_to(const TargetFrame& target) {
  std::ostream* log = run_->log;
  LogHeading(log, name(), target.name());

  types::affine p;
  double dp = -1;
  predict(target, p, dp);

  int direction = 1;
  const int32_t n = target.distance(direction);
  const MotionEstimation method = run_->segment.params.MotionEstimation;
  types::affine chosen;
  double d = -1;
  int strange = 0;
  if (!segments_ || (method == MotionEstimation::Fast && n != 1)) {
    refine(target, p, dp);
    chosen = p;
    d = dp;
  } else {
    double ds = -1;
    types::affine s = segments_transform(target, p, ds);
    // Without a refiner nothing can be compared: the block matching stands,
    // relative to the reference frame as it was measured.
    if (!has_refiner_) return s;
    if (ds <= dp && method != MotionEstimation::Intensive) {
      refine(target, s, ds);
      chosen = s;
      d = ds;
    } else {
      if (log) *log << "Optimizing and comparing both predicted and segments transformations...\n";
      refine(target, p, dp);
      if (log) *log << "Second optimization...\n";
      refine(target, s, ds);
      if (dp < ds) {
        if (log) *log << "Optimized predicted transform is better than segments one!\n";
        chosen = p;
        d = dp;
        strange = 1;
      } else {
        if (log)
          *log << "Optimized segments transform is better than predicted one, as expected.\n";
        chosen = s;
        d = ds;
      }
    }
  }
  if (run_->table) *run_->table << target.name() << '\t' << d * d << '\t' << strange << '\n';
  return chosen * stored(frame_);
}

// --- The frame loop ---------------------------------------------------------

namespace {

void TrackDirection(const TrackingRun& run, KeyFrame& key, int direction, My::Span& span) {
  const TrackedSegment& s = run.segment;
  const int32_t k = s.key_frame;
  int32_t n, end;
  if (direction == 1) {
    if (s.time_span.last <= span.last) return;
    n = span.last - k;
    end = s.time_span.last - k;
  } else {
    if (s.time_span.first >= span.first) return;
    n = k - span.first + 1;
    end = k - s.time_span.first + 1;
  }
  run.host->direction_started(direction);

  // The reference frame follows from the pitch alone, which is what lets an
  // interrupted run resume where it stopped.
  const int32_t pitch = int32_t(std::max(1u, std::min(s.params.MaskGenerationPitch, 1u << 30)));
  const int32_t reference = ((n - 1) / pitch) * pitch;
  if (reference != 0)
    key.set(direction, reference);
  else
    key.set_to_key();

  // One target for the whole direction: its frame-sized picture, and the one
  // the reference frame hands back on taking it, are reused for every frame
  // instead of being mapped, faulted in and unmapped again each time.
  TargetFrame target(run);
  for (;;) {
    if (run.host->interrupted()) return;
    const bool last_step = n + 1 == end;
    // Two frames ahead: while both directions track, the read-ahead serves
    // two frames per step and must not fall behind on the first.
    for (int32_t ahead = 1; run.prefetcher && ahead <= 2 && n + ahead < end; ++ahead) {
      const int32_t next = FrameAt(k, direction, n + ahead);
      if (next >= 0 && size_t(next) < s.frames->size())
        run.prefetcher->Add((*s.frames)[size_t(next)]);
    }
    target.set(direction, n);
    if (run.host->interrupted()) return;
    const types::affine t = key.transform_to(target);
    run.host->append(direction, span, t, target.frame());
    if (run.host->interrupted()) return;
    if (!last_step && n % pitch == 0) key.take(target);
    if (last_step) return;
    ++n;
  }
}

// The host as both directions share it: one call at a time.
class SharedHost : public TrackingHost {
 public:
  explicit SharedHost(TrackingHost& host) : host_(host) {}
  bool interrupted() const override {
    std::lock_guard lock(mutex_);
    return host_.interrupted();
  }
  // Both starts are announced at once, backward first, before either
  // direction runs: the host's last word is always "forward".
  void direction_started(int) override {}
  void both_started() {
    host_.direction_started(0);
    host_.direction_started(1);
  }
  void append(int direction,
              My::Span& span,
              const types::affine& transform,
              int32_t frame) override {
    std::lock_guard lock(mutex_);
    host_.append(direction, span, transform, frame);
  }
  void lost(int32_t frame) override {
    std::lock_guard lock(mutex_);
    host_.lost(frame);
  }

 private:
  TrackingHost& host_;
  mutable std::mutex mutex_;
};

// One direction with a reference frame of its own. A singular mask ends it
// as a result; any other error is kept in `error`.
void TrackOneDirection(const TrackingRun& run,
                       int direction,
                       My::Span& span,
                       std::exception_ptr& error) noexcept {
  try {
    KeyFrame key(run);
    try {
      TrackDirection(run, key, direction, span);
    } catch (const SingularMask& lost) {
      run.host->lost(lost.frame());
    }
  } catch (...) {
    error = std::current_exception();
  }
}

}  // namespace

void TrackSegment(const TrackingRun& run, My::Span data_span) {
  My::Span span = data_span;
  const TrackedSegment& s = run.segment;
  std::exception_ptr errors[2];
  const bool both = s.time_span.first < span.first && s.time_span.last > span.last;
  if (run.threads < 2 || !both) {
    TrackOneDirection(run, 0, span, errors[0]);
    if (!run.host->interrupted()) TrackOneDirection(run, 1, span, errors[1]);
  } else {
    SharedHost host(*run.host);
    TrackingRun backward = run, forward = run;
    backward.host = forward.host = &host;
    forward.timer = run.forward_timer;
    // The forward direction's lines wait until the backward one has ended,
    // so that the files read as after a run on one thread.
    std::ostringstream forward_log, forward_table;
    if (run.log) forward.log = &forward_log;
    if (run.table) forward.table = &forward_table;
    host.both_started();
    std::thread other([&] { TrackOneDirection(forward, 1, span, errors[1]); });
    TrackOneDirection(backward, 0, span, errors[0]);
    other.join();
    if (run.log) *run.log << forward_log.str() << std::flush;
    if (run.table) *run.table << forward_table.str() << std::flush;
  }
  for (const std::exception_ptr& error : errors)
    if (error) std::rethrow_exception(error);
}

// --- TimingTreeTimer --------------------------------------------------------

TimingTreeTimer::~TimingTreeTimer() {
  while (!open_.empty()) open_.pop_back();
}

void TimingTreeTimer::enter(std::string_view stage) {
  open_.push_back(std::make_unique<timing::scope>(tree_, stage));
}

void TimingTreeTimer::leave() {
  if (!open_.empty()) open_.pop_back();
}

}  // namespace tracking
