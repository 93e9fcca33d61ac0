// SPDX-License-Identifier: GPL-3.0-or-later
// The frame loop: from a painted mask to one transformation per frame.
//
// A segment is tracked backward from its key frame to the first frame of its
// time span, then forward to the last. Each frame is measured from a
// reference frame (at first the key frame, then every MaskGenerationPitch-th
// tracked frame): up to two candidates, the constant-velocity prediction and
// the block-matching result, are refined on the pixels, the better one is
// chained onto the reference frame's stored transformation and appended.
//
// Measured transformations are relative to the reference frame; only the
// stored ones are relative to the key frame, so errors accumulate from one
// reference frame to the next and not from frame to frame.
//
// Usage, on the tracker's worker thread:
//
//   TrackingRun run{segment, host, cache, prefetcher, log, table, timer};
//   run.threads = 2;               // both directions at once
//   run.forward_timer = &forward;  // the second direction's stage times
//   TrackSegment(run, data_span);  // both directions; resumes after data_span
#pragma once

#include <cstdint>
#include <exception>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "base/affine.h"
#include "base/segment_data.h"
#include "base/segment_params.h"
#include "base/span.h"
#include "base/timing.h"
#include "imaging/bitmap.h"
#include "imaging/cache.h"
#include "imaging/float_image.h"
#include "tracking/coherent_motion.h"
#include "tracking/optic_flow.h"
#include "tracking/segmentation.h"
#include "tracking/stage_timer.h"

namespace img {
class CPrefetcher;
}

namespace tracking {

// Ends one direction of tracking: the transformed mask is empty or covers
// the whole picture (the object left the scene or the tracker lost it), or
// the refiner found no usable pixel under it.
class SingularMask : public std::exception {
 public:
  explicit SingularMask(int32_t frame) : frame_(frame) {}
  const char* what() const noexcept override { return "Mask became singular"; }
  int32_t frame() const { return frame_; }

 private:
  int32_t frame_;
};

// What the loop reads of the segment. Nothing here may change while the
// segment is being tracked; the application guarantees it by refusing
// changes to a segment that is not idle.
struct TrackedSegment {
  int32_t key_frame = 0;
  My::Span time_span;
  VLSegmentParams params;
  const img::bitmap<img::bit1>* mask = nullptr;  // the key frame's mask
  // The results, appended to by the host only, and read here without a
  // lock: the worker is their only writer.
  const VLSegmentData* data = nullptr;
  // The composition's frame files, indexed by frame.
  const std::vector<std::string>* frames = nullptr;
};

// The loop's way out: results, states and the interrupt flag. The loop
// never calls it from two threads at once, even while both directions run.
class TrackingHost {
 public:
  // The worker's interrupt flag; the loop stops at the next check.
  virtual bool interrupted() const = 0;
  // A direction starts: 0 backward, 1 forward.
  virtual void direction_started(int direction) = 0;
  // Appends `transform` for `frame` to the segment's arrays of `direction`
  // and moves `span` (the worker's own copy of the data span) by one.
  virtual void append(int direction,
                      My::Span& span,
                      const types::affine& transform,
                      int32_t frame) = 0;
  // A direction ended on a singular mask at `frame`.
  virtual void lost(int32_t frame) = 0;

 protected:
  ~TrackingHost() = default;
};

// One run over one segment and what it works with.
struct TrackingRun {
  TrackedSegment segment;
  TrackingHost* host = nullptr;
  img::Cache* cache = nullptr;
  img::CPrefetcher* prefetcher = nullptr;  // may be null: no read-ahead
  std::ostream* log = nullptr;             // diagnostics; null: none
  std::ostream* table = nullptr;           // the discrepancy table; null: none
  StageTimer* timer = nullptr;             // null: stages are not timed
  // 2: the two directions from the key frame are tracked at the same time,
  // each on its own thread with its own reference frame; 1: backward, then
  // forward. The results are the same either way. The log and the table
  // come out as with 1, the forward direction's after the backward one's.
  int threads = 1;
  // The forward direction's stages while both run at once; null: untimed.
  StageTimer* forward_timer = nullptr;
};

// One frame as the tracker sees it: its cache entry and its pixels as floats.
class TargetFrame {
 public:
  explicit TargetFrame(const TrackingRun& run) : run_(&run) {}
  virtual ~TargetFrame() = default;
  TargetFrame(const TargetFrame&) = delete;
  TargetFrame& operator=(const TargetFrame&) = delete;

  // Frame key + distance (direction 1) or key - distance (direction 0),
  // then loads it.
  void set(int direction, int32_t distance);
  // An absolute frame, then loads it.
  void set(int32_t frame);
  // Distance from the key frame; the key frame itself is distance 0 forward.
  int32_t distance(int& direction) const;
  const std::string& name() const;
  int32_t frame() const { return frame_; }
  const img::float_image& image() const { return image_; }
  // Exchanges frame, cache entry and picture.
  void swap(TargetFrame& other);

 protected:
  void load();

  const TrackingRun* run_;
  int32_t frame_ = -1;
  std::shared_ptr<img::CacheHandle> cached_;
  img::float_image image_;
};

// The reference frame: a frame with its mask, its grid of blocks and its
// refiner, rebuilt whenever it gets a new frame.
class KeyFrame : public TargetFrame {
 public:
  explicit KeyFrame(const TrackingRun& run);
  ~KeyFrame() override;

  // Makes the key frame the reference frame unless it already is.
  void set_to_key();
  void set(int direction, int32_t distance);
  // Takes the target's frame and picture; the target gets the old ones, whose
  // buffer its next set() reuses.
  void take(TargetFrame& target);
  // The transformation of `target` in key-frame coordinates.
  types::affine transform_to(const TargetFrame& target);

  const img::bitmap<img::bit1>& mask() const { return mask_; }
  const Segmentation* segments() const { return segments_.get(); }

 private:
  void prepare();
  types::affine stored(int32_t frame) const;
  void predict(const TargetFrame& target, types::affine& p, double& dp);
  types::affine segments_transform(const TargetFrame& target, const types::affine& p, double& ds);
  types::affine match_blocks(const TargetFrame& target, int32_t radius);
  void refine(const TargetFrame& target, types::affine& c, double& d);

  img::bitmap<img::bit1> mask_;
  std::unique_ptr<Segmentation> segments_;
  // Kept across the reference frames of one direction, so that its portion
  // coefficient carries over; `has_refiner_` says whether it is in use at
  // this one. Each direction starts from its own, which is what lets them
  // run side by side and a resumed run repeat an uninterrupted one.
  OpticFlow optic_flow_;
  bool has_refiner_ = false;
  TieBreaker random_;
};

// Tracks direction 0 and, unless interrupted, direction 1 (one after the
// other or together, by `run.threads`), resuming after `data_span` (the
// frames that already have results). A singular mask ends its direction and
// is reported to the host. Any other error (a frame that cannot be read)
// ends its direction too; the other one still runs to its end, and then the
// error (the backward direction's first) leaves the run.
void TrackSegment(const TrackingRun& run, My::Span data_span);

// Times stages in a timing tree (the segment's, on the worker thread).
class TimingTreeTimer : public StageTimer {
 public:
  explicit TimingTreeTimer(timing::tree* tree) : tree_(tree) {}
  ~TimingTreeTimer();
  void enter(std::string_view stage) override;
  void leave() override;

 private:
  timing::tree* tree_;
  std::vector<std::unique_ptr<timing::scope>> open_;
};

}  // namespace tracking
