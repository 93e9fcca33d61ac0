// The frame loop on generated footage with a known motion.
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>
#include <string>
#include <vector>

#include "imaging/cache.h"
#include "imaging/synthetic_shot.h"
#include "tracking/key_frame.h"

namespace {

struct Recorder : tracking::TrackingHost {
  VLSegmentData data;
  std::vector<int> directions;
  std::vector<int32_t> lost_at, frames;
  int interrupt_after = -1;  // appends before the flag goes up; -1 never
  bool interrupted() const override {
    return interrupt_after >= 0 && int(frames.size()) >= interrupt_after;
  }
  void direction_started(int direction) override { directions.push_back(direction); }
  void append(int direction, My::Span& span, const types::affine& t, int32_t frame) override {
    data.Append(
        direction == 1 ? VLSegmentData::Direction::Forward : VLSegmentData::Direction::Backward, t);
    if (direction == 1)
      ++span.last;
    else
      --span.first;
    frames.push_back(frame);
  }
  void lost(int32_t frame) override { lost_at.push_back(frame); }
};

struct Shot {
  img::synthetic_shot shot;
  std::vector<std::string> names;
  img::Cache cache;
  img::bitmap<img::bit1> mask;

  explicit Shot(img::synthetic_shot s)
      : shot(s),
        cache(
            [this](const std::string& name, img::image& out) { shot.render(std::stoi(name), out); },
            int64_t(1) << 30) {
    for (int32_t f = 0; f < shot.frames; ++f) names.push_back(std::to_string(f));
    shot.plate_mask(mask);
  }

  tracking::TrackingRun Run(Recorder& host, const VLSegmentParams& params, My::Span span) {
    tracking::TrackingRun run;
    run.segment.key_frame = shot.key_frame;
    run.segment.time_span = span;
    run.segment.params = params;
    run.segment.mask = &mask;
    run.segment.data = &host.data;
    run.segment.frames = &names;
    run.host = &host;
    run.cache = &cache;
    return run;
  }

  // Largest distance between the tracked and the true position of the
  // plate's corners at `frame`.
  double CornerError(const VLSegmentData& data, int32_t frame) const {
    const types::affine& t = data.At(frame, shot.key_frame);
    const types::affine truth = shot.plate_motion(frame);
    double worst = 0;
    for (double cx : {shot.plate_left, shot.plate_left + shot.plate_width})
      for (double cy : {shot.plate_top, shot.plate_top + shot.plate_height}) {
        double ax, ay, bx, by;
        t.apply(cx, cy, ax, ay);
        truth.apply(cx, cy, bx, by);
        worst = std::max(worst, std::hypot(ax - bx, ay - by));
      }
    return worst;
  }
};

img::synthetic_shot SmallShot() {
  img::synthetic_shot s;
  s.width = 320;
  s.height = 240;
  s.frames = 13;
  s.key_frame = 6;
  s.plate_left = 100;
  s.plate_top = 70;
  s.plate_width = 120;
  s.plate_height = 90;
  return s;
}

TEST(FrameLoop, TracksBothDirectionsOfAGeneratedShot) {
  Shot shot(SmallShot());
  Recorder host;
  VLSegmentParams params;
  tracking::TrackSegment(shot.Run(host, params, {0, 13}), {6, 6});
  EXPECT_EQ(host.directions, (std::vector<int>{0, 1}));
  ASSERT_EQ(host.data.DataSpan(6), (My::Span{0, 13}));
  for (int32_t f = 0; f < 13; ++f) EXPECT_LT(shot.CornerError(host.data, f), 0.5) << f;
}

}  // namespace
