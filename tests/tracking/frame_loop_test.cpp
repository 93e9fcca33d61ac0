// SPDX-License-Identifier: GPL-3.0-or-later
// The frame loop on generated footage with a known motion: what accuracy it
// reaches for each motion model and estimation method, how a lost object
// ends one direction only, and that an interrupted run resumes exactly.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "base/errors.h"
#include "imaging/cache.h"
#include "imaging/io_types.h"
#include "testing/tracking_shot.h"
#include "tracking/key_frame.h"

namespace {

using testing_support::TrackingShot;
using enum TransformClass;
using enum MotionEstimation;

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

// A shot served by name through a cache, as the worker sees its footage.
struct Footage {
  TrackingShot shot;
  int32_t misfit_frame = -1;      // rendered one pixel wider than the others
  int32_t unreadable_frame = -1;  // its decoder fails
  std::vector<std::string> names;
  img::Cache cache;
  img::bitmap<img::bit1> mask;

  explicit Footage(const TrackingShot& s)
      : shot(s),
        cache([this](const std::string& name, img::image& out) { Load(name, out); },
              int64_t(1) << 30) {
    for (int32_t f = 0; f < shot.frames; ++f) names.push_back(std::to_string(f));
    shot.plate_mask(mask);
  }

  void Load(const std::string& name, img::image& out) const {
    const int32_t frame = std::stoi(name);
    if (frame == unreadable_frame) throw img::io_error("image file format not recognised");
    TrackingShot s = shot;
    if (frame == misfit_frame) ++s.width;
    s.render(frame, out);
  }

  tracking::TrackingRun Run(Recorder& host, const VLSegmentParams& params) {
    return Run(host, params, {0, shot.frames});
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
};

// Corner errors over the frames `data` holds, in pixels.
struct Accuracy {
  double mean = 0, worst = 0;
};

Accuracy Measure(const TrackingShot& shot, const VLSegmentData& data) {
  Accuracy a;
  const My::Span span = data.DataSpan(shot.key_frame);
  for (int32_t f = span.first; f < span.last; ++f) {
    double mean;
    a.worst = std::max(a.worst, shot.corner_error(data.At(f, shot.key_frame), f, mean));
    a.mean += mean;
  }
  if (span.last > span.first) a.mean /= span.last - span.first;
  return a;
}

// The motions of each model, over 6 frames either side of the key frame of
// the default shot: up to 19 px of shift, 4.6 degrees, 5 % zoom and 4 % of
// stretch and shear, each accelerating a little away from the key frame.
testing_support::PlateMotion MotionOf(TransformClass model) {
  testing_support::PlateMotion m;
  m.shift_x = 2.5;
  m.shift_y = -1.25;
  m.ease = 0.04;
  if (model == Translation) return m;
  m.rotation_deg = 0.6;
  if (model == Rigid) return m;
  m.zoom = 0.007;
  if (model == RigidScale) return m;
  m.stretch = 0.005;
  m.shear = 0.005;
  return m;
}

enum class Footage_ { Clean, Noise, Brightness, Occluder, TinyPlate, FastMotion };

TrackingShot ShotFor(TransformClass model, Footage_ kind) {
  TrackingShot s;
  s.plate = MotionOf(model);
  switch (kind) {
    case Footage_::Clean:
      break;
    case Footage_::Noise:
      s.noise = 12;
      break;
    case Footage_::Brightness:
      s.brightness_step = 3;
      break;
    case Footage_::Occluder:
      // A post entering the plate from the right after the key frame and
      // covering a sixth of its width by the last frame; the backward pass
      // stays clear of it.
      s.occluder = {235, 0, 20, 240, -10, 0};
      break;
    case Footage_::FastMotion:
      // 9.8 pixels at the first step: beyond what the refinement finds from
      // the identity, so the block matching must place it.
      s.plate.shift_x = 13;
      s.plate.shift_y = -5;
      s.plate_texture.scale = 5;
      s.background_texture.scale = 8;
      break;
    case Footage_::TinyPlate:
      // Four 8-pixel blocks: too few for block matching at any reference
      // frame, so only prediction and refinement track it.
      s.plate_left = 148;
      s.plate_top = 108;
      s.plate_width = 16;
      s.plate_height = 16;
      break;
  }
  return s;
}

struct AccuracyCase {
  const char* name;
  TransformClass model;
  MotionEstimation method;
  Footage_ footage;
  double mean_bound, worst_bound;  // pixels
  bool heavy;                      // left out under the sanitizers, whose builds run ~10x slower
  unsigned pitch = 7;
};

void PrintTo(const AccuracyCase& c, std::ostream* out) {
  *out << c.name;
}

class FrameLoopAccuracy : public ::testing::TestWithParam<AccuracyCase> {};

TEST_P(FrameLoopAccuracy, CornersStayWithinBoundsBothWays) {
  const AccuracyCase& c = GetParam();
#ifdef VELOMAR_SANITIZED
  if (c.heavy) GTEST_SKIP() << "heavy case: release builds only";
#endif
  Footage footage(ShotFor(c.model, c.footage));
  Recorder host;
  VLSegmentParams params;
  params.MotionModel = c.model;
  params.MotionEstimation = c.method;
  params.MaskGenerationPitch = c.pitch;
  tracking::TrackSegment(footage.Run(host, params), {6, 6});
  EXPECT_EQ(host.directions, (std::vector<int>{0, 1}));
  EXPECT_THAT(host.lost_at, ::testing::IsEmpty());
  ASSERT_EQ(host.data.DataSpan(6), (My::Span{0, 13}));
  const Accuracy back = Measure(footage.shot, host.data.Trimmed({0, 6}, 6));
  const Accuracy forth = Measure(footage.shot, host.data.Trimmed({6, 13}, 6));
  std::printf("[ accuracy ] %-24s backward mean %.3f worst %.3f, forward mean %.3f worst %.3f\n",
              c.name, back.mean, back.worst, forth.mean, forth.worst);
  for (const Accuracy& a : {back, forth}) {
    EXPECT_LT(a.mean, c.mean_bound);
    EXPECT_LT(a.worst, c.worst_bound);
  }
}

// Bounds are about twice the error measured when they were set, so that a
// regression shows while the figures stay free to move a little.
const AccuracyCase kAccuracy[] = {
    {"TranslationFastest", Translation, Fastest, Footage_::Clean, 0.14, 0.22, false},
    {"TranslationFast", Translation, Fast, Footage_::Clean, 0.14, 0.22, true},
    {"TranslationNormal", Translation, Normal, Footage_::Clean, 0.15, 0.33, false},
    {"TranslationIntensive", Translation, Intensive, Footage_::Clean, 0.15, 0.33, true},
    {"RigidFastest", Rigid, Fastest, Footage_::Clean, 0.11, 0.18, true},
    {"RigidFast", Rigid, Fast, Footage_::Clean, 0.11, 0.18, true},
    {"RigidNormal", Rigid, Normal, Footage_::Clean, 0.1, 0.18, false},
    {"RigidIntensive", Rigid, Intensive, Footage_::Clean, 0.1, 0.18, true},
    {"RigidScaleFastest", RigidScale, Fastest, Footage_::Clean, 0.34, 0.55, true},
    {"RigidScaleFast", RigidScale, Fast, Footage_::Clean, 0.31, 0.45, false},
    {"RigidScaleNormal", RigidScale, Normal, Footage_::Clean, 0.39, 0.58, true},
    {"RigidScaleIntensive", RigidScale, Intensive, Footage_::Clean, 0.39, 0.49, true},
    {"AffineFastest", Affine, Fastest, Footage_::Clean, 0.3, 0.68, true},
    {"AffineFast", Affine, Fast, Footage_::Clean, 0.29, 0.46, true},
    {"AffineNormal", Affine, Normal, Footage_::Clean, 0.32, 0.46, false},
    {"AffineIntensive", Affine, Intensive, Footage_::Clean, 0.34, 0.56, false},
    {"TranslationNormalNoise", Translation, Normal, Footage_::Noise, 0.25, 0.63, true},
    {"AffineNormalNoise", Affine, Normal, Footage_::Noise, 0.35, 0.59, false},
    {"AffineIntensiveNoise", Affine, Intensive, Footage_::Noise, 0.37, 0.99, true},
    {"TranslationNormalBrightness", Translation, Normal, Footage_::Brightness, 0.44, 1.1, true},
    {"AffineNormalBrightness", Affine, Normal, Footage_::Brightness, 0.7, 2.25, false},
    {"RigidNormalOccluder", Rigid, Normal, Footage_::Occluder, 0.13, 0.3, true},
    {"AffineNormalOccluder", Affine, Normal, Footage_::Occluder, 0.45, 0.98, false},
    {"AffineIntensiveOccluder", Affine, Intensive, Footage_::Occluder, 0.42, 0.98, true},
    {"AffineFastestOccluder", Affine, Fastest, Footage_::Occluder, 0.51, 1.1, true},
    {"TranslationFastFastMotion", Translation, Fast, Footage_::FastMotion, 0.03, 0.09, true},
    {"TranslationNormalFastMotion", Translation, Normal, Footage_::FastMotion, 0.06, 0.24, false},
    {"AffineNormalFastMotion", Affine, Normal, Footage_::FastMotion, 0.08, 0.17, false},
    {"AffineIntensiveFastMotion", Affine, Intensive, Footage_::FastMotion, 0.08, 0.18, true},
    {"TranslationNormalTinyPlate", Translation, Normal, Footage_::TinyPlate, 0.57, 0.68, false},
    {"RigidIntensiveTinyPlate", Rigid, Intensive, Footage_::TinyPlate, 0.36, 0.9, true},
    // Every frame, then every third, becomes the reference of the next: the
    // mask is warped at each, and the forward pass must go back to the key
    // frame after the backward pass moved the reference away from it.
    {"AffineNormalPitch1", Affine, Normal, Footage_::Clean, 0.83, 1.46, false, 1},
    {"RigidScaleNormalPitch3", RigidScale, Normal, Footage_::Clean, 0.49, 0.79, true, 3},
};

// The fast-motion cases test the block matching only while the refinement
// alone cannot follow that shot: without a grid it must lose the plate.
TEST(FrameLoop, FastMotionIsBeyondRefinementAlone) {
  Footage footage(ShotFor(Translation, Footage_::FastMotion));
  Recorder host;
  VLSegmentParams params;
  params.MotionModel = Translation;
  params.MotionEstimation = Fastest;
  tracking::TrackSegment(footage.Run(host, params, {6, 8}), {6, 6});
  ASSERT_EQ(host.data.DataSpan(6), (My::Span{6, 8}));
  double mean;
  EXPECT_GT(footage.shot.corner_error(host.data.At(7, 6), 7, mean), 5.0);
}

// Faster than the default search radius next to the key frame (about 16
// pixels at the first step each way): a block matching that matched
// nothing searches again in a wider window.
TEST(FrameLoop, MotionBeyondTheRadiusNextToTheKeyFrameIsFound) {
  for (const TransformClass model : {Translation, Affine}) {
    SCOPED_TRACE(int(model));
    TrackingShot shot = ShotFor(model, Footage_::FastMotion);
    shot.plate.shift_x = 22;
    Footage footage(shot);
    Recorder host;
    VLSegmentParams params;
    params.MotionModel = model;
    tracking::TrackSegment(footage.Run(host, params, {5, 8}), {6, 6});
    ASSERT_EQ(host.data.DataSpan(6), (My::Span{5, 8}));
    for (const int32_t f : {5, 7}) {
      double mean;
      EXPECT_LT(footage.shot.corner_error(host.data.At(f, 6), f, mean), 0.3) << "frame " << f;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Shots,
                         FrameLoopAccuracy,
                         ::testing::ValuesIn(kAccuracy),
                         [](const auto& info) { return std::string(info.param.name); });

// --- A lost object -----------------------------------------------------------

// A 60-pixel plate that accelerates out of the picture: going backward from
// the key frame (8 of 12) its right edge is 19 pixels inside at distance 6
// and 11 pixels outside at distance 7; forward it stays well inside.
// `mirrored` flips the picture, so that the forward pass loses it instead.
TrackingShot LeavingShot(bool mirrored) {
  TrackingShot s;
  s.frames = 12;
  s.key_frame = mirrored ? 3 : 8;
  s.plate_left = mirrored ? 320 - 115 : 55;
  s.plate_top = 90;
  s.plate_width = 60;
  s.plate_height = 60;
  s.plate.shift_x = 4;
  s.plate.ease = 0.5;
  return s;
}

struct LostCase {
  const char* name;
  bool mirrored;
  unsigned pitch;
  bool original_mask;
  int32_t lost_at;  // -1: never
  My::Span data;    // what the run leaves
};

void PrintTo(const LostCase& c, std::ostream* out) {
  *out << c.name;
}

class FrameLoopLost : public ::testing::TestWithParam<LostCase> {};

TEST_P(FrameLoopLost, EndsOnlyItsDirectionAtTheFirstReferenceFrameOutside) {
  const LostCase& c = GetParam();
  Footage footage(LeavingShot(c.mirrored));
  Recorder host;
  VLSegmentParams params;
  params.MotionModel = Translation;
  params.MaskGenerationPitch = c.pitch;
  params.OriginalMaskInAllFrames = c.original_mask;
  const int32_t key = footage.shot.key_frame;
  tracking::TrackSegment(footage.Run(host, params), {key, key});
  EXPECT_EQ(host.directions, (std::vector<int>{0, 1}));
  if (c.lost_at < 0)
    EXPECT_THAT(host.lost_at, ::testing::IsEmpty());
  else
    EXPECT_THAT(host.lost_at, ::testing::ElementsAre(c.lost_at));
  EXPECT_EQ(host.data.DataSpan(key), c.data);
  // While the plate is wholly in the picture it is tracked as well as ever.
  // With the key frame's mask in every frame, the reference frames' masks
  // cover mostly background by then, so only the structure is checked.
  if (c.original_mask) return;
  for (int32_t f = c.data.first; f < c.data.last; ++f) {
    const double left = footage.shot.plate_motion(f).x + footage.shot.plate_left;
    if (left < 0 || left + footage.shot.plate_width > footage.shot.width) continue;
    double mean;
    EXPECT_LT(footage.shot.corner_error(host.data.At(f, key), f, mean), 0.3) << "frame " << f;
  }
}

const LostCase kLost[] = {
    // The frame at distance 7 is the first reference frame with an empty
    // mask; it is tracked and appended, then preparing it ends the pass.
    {"BackwardPitch1", false, 1, false, 1, {1, 12}},
    {"BackwardPitch7", false, 7, false, 1, {1, 12}},
    {"ForwardPitch1", true, 1, false, 10, {0, 11}},
    // Distance 7 is no multiple of 2, and distance 8 is the last step,
    // which never becomes a reference frame: the pass runs to its end.
    {"BackwardPitch2", false, 2, false, -1, {0, 12}},
    // The key frame's mask, unwarped, is never empty.
    {"BackwardOriginalMask", false, 1, true, -1, {0, 12}},
};

INSTANTIATE_TEST_SUITE_P(Shots, FrameLoopLost, ::testing::ValuesIn(kLost), [](const auto& info) {
  return std::string(info.param.name);
});

// --- Resuming ----------------------------------------------------------------

struct ResumeCase {
  const char* name;
  unsigned pitch;
  int stop_after;      // appends before the interrupt
  int32_t resumes_at;  // first frame the resumed run appends
};

void PrintTo(const ResumeCase& c, std::ostream* out) {
  *out << c.name;
}

class FrameLoopResume : public ::testing::TestWithParam<ResumeCase> {};

// The resumed run rebuilds its reference frame from the pitch and the stored
// transformations and must repeat the uninterrupted run bit for bit. This
// relies on the refiner's portion coefficient staying at 1 on clean footage:
// an uninterrupted run carries the coefficient from one reference frame to
// the next, a resumed one starts it afresh at 1.
// The uninterrupted run of the resume cases, once per pitch.
const Recorder& WholeRun(unsigned pitch) {
  static std::map<unsigned, Recorder> runs;
  auto [it, added] = runs.try_emplace(pitch);
  if (added) {
    Footage footage(ShotFor(Affine, Footage_::Clean));
    VLSegmentParams params;
    params.MaskGenerationPitch = pitch;
    tracking::TrackSegment(footage.Run(it->second, params), {6, 6});
  }
  return it->second;
}

TEST_P(FrameLoopResume, RepeatsAnUninterruptedRunExactly) {
  const ResumeCase& c = GetParam();
  Footage footage(ShotFor(Affine, Footage_::Clean));
  VLSegmentParams params;
  params.MaskGenerationPitch = c.pitch;
  const Recorder& whole = WholeRun(c.pitch);
  ASSERT_EQ(whole.data.DataSpan(6), (My::Span{0, 13}));

  Recorder first;
  first.interrupt_after = c.stop_after;
  tracking::TrackSegment(footage.Run(first, params), {6, 6});
  ASSERT_EQ(first.frames.size(), size_t(c.stop_after));

  Recorder rest;
  rest.data = first.data;
  tracking::TrackSegment(footage.Run(rest, params), first.data.DataSpan(6));
  ASSERT_FALSE(rest.frames.empty());
  EXPECT_EQ(rest.frames.front(), c.resumes_at);
  EXPECT_EQ(first.frames.size() + rest.frames.size(), whole.frames.size());
  EXPECT_TRUE(rest.data == whole.data);
  for (int32_t f = 0; f < 13; ++f)
    EXPECT_TRUE(rest.data.At(f, 6) == whole.data.At(f, 6))
        << "frame " << f << "\nresumed: " << rest.data.At(f, 6)
        << "\nwhole:   " << whole.data.At(f, 6);
}

const ResumeCase kResume[] = {
    // Backward, stopped after distance 4: distance 5 is measured from the
    // reference frame at distance 3, whose mask is warped anew.
    {"BackwardPitch3", 3, 4, 1},
    // The next distance is a multiple of the pitch: its reference frame is
    // the one before it (distance 3), not the frame itself, which has no
    // result yet.
    {"BackwardAtPitchMultiple", 3, 5, 0},
    {"ForwardAtPitchMultiple", 3, 9, 9},
    // Backward complete, forward not begun: forward starts with the key
    // frame's own entry.
    {"BetweenDirections", 3, 6, 6},
    // Forward, stopped after distance 4 (entries 0 to 4).
    {"ForwardPitch3", 3, 11, 11},
    // Backward after distance 1, with the default pitch: the reference frame
    // stays the key frame and the prediction still has no velocity.
    {"BackwardPitch7", 7, 1, 4},
};

INSTANTIATE_TEST_SUITE_P(Shots,
                         FrameLoopResume,
                         ::testing::ValuesIn(kResume),
                         [](const auto& info) { return std::string(info.param.name); });

// --- The ends of the span ------------------------------------------------------

struct SpanCase {
  const char* name;
  My::Span time_span;
  std::vector<int> directions;
  std::vector<int32_t> frames;  // in the order they are appended
};

void PrintTo(const SpanCase& c, std::ostream* out) {
  *out << c.name;
}

class FrameLoopSpan : public ::testing::TestWithParam<SpanCase> {};

TEST_P(FrameLoopSpan, TracksExactlyTheFramesOfTheSpan) {
  const SpanCase& c = GetParam();
  Footage footage(ShotFor(Rigid, Footage_::Clean));
  Recorder host;
  VLSegmentParams params;
  params.MotionModel = Rigid;
  tracking::TrackSegment(footage.Run(host, params, c.time_span), {6, 6});
  EXPECT_EQ(host.directions, c.directions);
  EXPECT_EQ(host.frames, c.frames);
  EXPECT_EQ(host.data.DataSpan(6), c.time_span);
  for (int32_t f = c.time_span.first; f < c.time_span.last; ++f) {
    double mean;
    EXPECT_LT(footage.shot.corner_error(host.data.At(f, 6), f, mean), 0.2) << "frame " << f;
  }
}

const SpanCase kSpans[] = {
    // Key frame first in the span: no backward pass, not even its status.
    {"KeyFrameFirst", {6, 9}, {1}, {6, 7, 8}},
    // Key frame last: the backward pass, then only the key frame's own
    // forward entry.
    {"KeyFrameLast", {4, 7}, {0, 1}, {5, 4, 6}},
    {"KeyFrameAlone", {6, 7}, {1}, {6}},
};

INSTANTIATE_TEST_SUITE_P(Shots, FrameLoopSpan, ::testing::ValuesIn(kSpans), [](const auto& info) {
  return std::string(info.param.name);
});

// --- Both directions at once ---------------------------------------------------

// Two threads give what one gives, bit for bit, down to the log and the
// table: each direction has its own reference frame and refiner.
TEST(FrameLoop, BothDirectionsAtOnceRepeatOneThread) {
  struct Case {
    TransformClass model;
    MotionEstimation method;
    unsigned pitch;
  };
  for (const Case& c :
       {Case{Affine, Normal, 3}, Case{Rigid, Intensive, 7}, Case{Translation, Fast, 2}}) {
    SCOPED_TRACE(testing::Message() << int(c.model) << " " << int(c.method));
    Footage footage(ShotFor(c.model, Footage_::Clean));
    VLSegmentParams params;
    params.MotionModel = c.model;
    params.MotionEstimation = c.method;
    params.MaskGenerationPitch = c.pitch;
    Recorder one, two;
    std::ostringstream log[2], table[2];
    for (int threads : {1, 2}) {
      tracking::TrackingRun run = footage.Run(threads == 1 ? one : two, params);
      run.threads = threads;
      run.log = &log[threads - 1];
      run.table = &table[threads - 1];
      tracking::TrackSegment(run, {6, 6});
    }
    EXPECT_EQ(two.data.DataSpan(6), (My::Span{0, 13}));
    EXPECT_TRUE(two.data == one.data);
    EXPECT_EQ(log[1].str(), log[0].str());
    EXPECT_EQ(table[1].str(), table[0].str());
  }
}

// --- Bad footage -------------------------------------------------------------

// A frame of another size ends its direction with an error naming its file;
// what was tracked stays, and the other direction still runs, on one thread
// or two alike.
TEST(FrameLoop, FrameOfAnotherSizeEndsItsDirectionNamingTheFile) {
  Footage footage(ShotFor(Translation, Footage_::Clean));
  footage.misfit_frame = 3;
  VLSegmentParams params;
  for (int threads : {1, 2}) {
    Recorder host;
    tracking::TrackingRun run = footage.Run(host, params);
    run.threads = threads;
    EXPECT_THAT(
        [&] {
          tracking::TrackSegment(run, {6, 6});
        },
        ::testing::ThrowsMessage<xtd::exception>(
            ::testing::StrEq("Bad size of image 3 - 321x240, expected - 320x240")));
    EXPECT_EQ(host.data.DataSpan(6), (My::Span{4, 13}));
    EXPECT_THAT(host.lost_at, ::testing::IsEmpty());
  }
}

// A frame the decoder refuses ends the run with the decoder's text and the
// file's name.
TEST(FrameLoop, UnreadableFrameEndsTheRunNamingTheFile) {
  Footage footage(ShotFor(Translation, Footage_::Clean));
  footage.unreadable_frame = 9;
  Recorder host;
  VLSegmentParams params;
  EXPECT_THAT(
      [&] {
        tracking::TrackSegment(footage.Run(host, params), {6, 6});
      },
      ::testing::ThrowsMessage<xtd::exception>(
          ::testing::StrEq("image file format not recognised: 9")));
  EXPECT_EQ(host.data.DataSpan(6), (My::Span{0, 9}));
}

}  // namespace
