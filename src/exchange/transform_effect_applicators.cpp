// SPDX-License-Identifier: GPL-3.0-or-later
#include "exchange/transform_effect_applicators.h"

#include <cmath>

#include "exchange/decompositions.h"
#include "exchange/thin.h"
#include "exchange/tolerances.h"

namespace {

constexpr char kEffect[] = "Transform";
// Effect parameter of each stage.
constexpr int kParameterOfStage[] = {2, 4, 5, 6, 7, 8};
constexpr int kLastStage = 5;

}  // namespace

void TransformEffectApplicator::Begin(std::unique_ptr<VL::KeyframeStorage> storage) {
  TakeStorage(std::move(storage));
  const int first = this->storage().GetFirstFrame();
  const int count = FrameCount();
  const size_t n = count > 0 ? size_t(count) : 0;
  rotations_.reserve(n);
  first_scales_.reserve(n);
  if (!uniform_scale_) second_scales_.reserve(n);
  skews_.reserve(n);
  positions_.reserve(n);
  const int w = this->storage().GetSourceWidth(), h = this->storage().GetSourceHeight();
  for (int f = first; f < first + count; ++f) {
    const types::affine t = TransformOf(f);
    const SkewEffectParameters p =
        uniform_scale_ ? DecomposeUniformScale(t) : DecomposeVerticalSkew(t);
    const Point2 centre = CentreImage(t, w, h);
    rotations_.push_back({p.rotation, f});
    first_scales_.push_back({p.scale_height, f});
    if (!uniform_scale_) second_scales_.push_back({p.scale_width, f});
    skews_.push_back({p.skew, p.skew_axis, f});
    positions_.push_back({centre.x, centre.y, f});
  }
  Thin();
  stage_ = 0;
  this->storage().SelectEffect(kEffect);
  this->storage().SelectEffectParameter(kParameterOfStage[0]);
}

void TransformEffectApplicator::Thin() {
  const int w = storage().GetSourceWidth(), h = storage().GetSourceHeight();
  const double hyp = std::hypot(double(w), double(h));
  const float e = record().ExportInaccuracy;
  ThinPairs(positions_, PositionTolerance(weight_, e));
  ThinAngles(rotations_, RotationTolerance(weight_, e, w, h));
  ThinSkews(skews_, ScaleTolerance(weight_, e, hyp));
  if (uniform_scale_) {
    ThinValues(first_scales_, ScaleTolerance(weight_, e, hyp));
  } else {
    ThinValues(first_scales_, ScaleTolerance(weight_, e, h));
    ThinValues(second_scales_, ScaleTolerance(weight_, e, w));
  }
}

int TransformEffectApplicator::KeyframeCount() const {
  int count = int(positions_.size() + rotations_.size() + first_scales_.size() + 2 * skews_.size());
  if (!uniform_scale_) count += int(second_scales_.size());
  return count;
}

// Delivers the next keyframe of the current stage; whether the stage has more.
bool TransformEffectApplicator::DeliverOne() {
  auto& s = storage();
  switch (stage_) {
    case 0:
      return DeliverNext(positions_, position_cursor_,
                         [&s](const PairKey& k) { s.AddKeyframe(k.frame, k.x, k.y); });
    case 1:
      return DeliverNext(first_scales_, first_scale_cursor_,
                         [&s](const ValueKey& k) { s.AddKeyframe(k.frame, k.value * 100); });
    case 2:
      return DeliverNext(second_scales_, second_scale_cursor_,
                         [&s](const ValueKey& k) { s.AddKeyframe(k.frame, k.value * 100); });
    case 3:
      return DeliverNext(skews_, skew_cursor_, [&s](const PairKey& k) {
        s.AddKeyframe(k.frame, std::atan(k.x) * kDegreesPerRadian);
      });
    case 4:
      return DeliverNext(skews_, skew_cursor_, [&s](const PairKey& k) {
        s.AddKeyframe(k.frame, k.y * kDegreesPerRadian);
      });
    default:
      return DeliverNext(rotations_, rotation_cursor_, [&s](const ValueKey& k) {
        s.AddKeyframe(k.frame, k.value * kDegreesPerRadian);
      });
  }
}

bool TransformEffectApplicator::Step() {
  if (stage_ < 0 || stage_ > kLastStage) return false;
  if (DeliverOne()) return true;
  if (stage_ == kLastStage) return false;

  int next = stage_ + 1;
  if (next == 2 && uniform_scale_) next = 3;
  auto& s = storage();
  if (next == 1 && !uniform_scale_) {
    // Uniform Scale is on by default in the host and would make it ignore
    // Scale Width: one keyframe of 0 at the first frame switches it off.
    s.SelectEffectParameter(3);
    s.AddKeyframe(s.GetFirstFrame(), 0.0);
  }
  // Skew (stage 3) and Skew Axis (stage 4) walk the same list.
  if (next == 4) skew_cursor_ = 0;
  stage_ = next;
  s.SelectEffectParameter(kParameterOfStage[stage_]);
  return true;
}
