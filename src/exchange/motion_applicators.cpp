// SPDX-License-Identifier: GPL-3.0-or-later
#include "exchange/motion_applicators.h"

#include <algorithm>
#include <cmath>

#include "exchange/decompositions.h"
#include "exchange/thin.h"
#include "exchange/tolerances.h"

// ---- Translation ----

void TranslationApplicator::Begin(std::unique_ptr<VL::KeyframeStorage> storage) {
  TakeStorage(std::move(storage));
  const int first = this->storage().GetFirstFrame();
  const int count = FrameCount();
  // Reserved once, before the loop over frames.
  Reserve(count > 0 ? size_t(count) : 0);
  for (int f = first; f < first + count; ++f) Record(f, TransformOf(f));
  ThinLists();
  stage_ = 0;
  this->storage().SelectLayerParameter(1);
}

void TranslationApplicator::Reserve(size_t n) {
  positions_.reserve(n);
}

void TranslationApplicator::Record(int frame, const types::affine& t) {
  const Point2 p = CentreImage(t, storage().GetSourceWidth(), storage().GetSourceHeight());
  positions_.push_back({p.x, p.y, frame});
}

void TranslationApplicator::ThinLists() {
  ThinPairs(positions_, PositionTolerance(weight_, record().ExportInaccuracy));
}

int TranslationApplicator::KeyframeCount() const {
  return int(positions_.size());
}

bool TranslationApplicator::Step() {
  return DeliverNext(positions_, position_cursor_,
                     [this](const PairKey& k) { storage().AddKeyframe(k.frame, k.x, k.y); });
}

// ---- Rigid ----

void RigidApplicator::Reserve(size_t n) {
  TranslationApplicator::Reserve(n);
  rotations_.reserve(n);
}

void RigidApplicator::Record(int frame, const types::affine& t) {
  TranslationApplicator::Record(frame, t);
  rotations_.push_back({RigidRotation(t), frame});
}

void RigidApplicator::ThinLists() {
  TranslationApplicator::ThinLists();
  const auto& s = storage();
  ThinAngles(rotations_, RotationTolerance(weight_, record().ExportInaccuracy, s.GetSourceWidth(),
                                           s.GetSourceHeight()));
}

int RigidApplicator::KeyframeCount() const {
  return TranslationApplicator::KeyframeCount() + int(rotations_.size());
}

bool RigidApplicator::Step() {
  switch (stage_) {
    case 0:
      if (TranslationApplicator::Step()) return true;
      if (HasScale()) {
        stage_ = 1;
        storage().SelectLayerParameter(2);
      } else {
        stage_ = 2;
        storage().SelectLayerParameter(3);
      }
      return true;
    case 1:
      if (StepScale()) return true;
      stage_ = 2;
      storage().SelectLayerParameter(3);
      return true;
    case 2:
      if (DeliverNext(rotations_, rotation_cursor_, [this](const ValueKey& k) {
            storage().AddKeyframe(k.frame, k.value * kDegreesPerRadian);
          }))
        return true;
      return AfterRotations();
    default:
      return false;
  }
}

// ---- Rigid & Scale ----

void RigidScaleApplicator::Reserve(size_t n) {
  RigidApplicator::Reserve(n);
  scales_.reserve(n);
}

void RigidScaleApplicator::Record(int frame, const types::affine& t) {
  RigidApplicator::Record(frame, t);
  scales_.push_back({RigidScale(t), frame});
}

void RigidScaleApplicator::ThinLists() {
  RigidApplicator::ThinLists();
  const auto& s = storage();
  ThinValues(scales_,
             ScaleTolerance(weight_, record().ExportInaccuracy,
                            std::hypot(double(s.GetSourceWidth()), double(s.GetSourceHeight()))));
}

int RigidScaleApplicator::KeyframeCount() const {
  return RigidApplicator::KeyframeCount() + int(scales_.size());
}

bool RigidScaleApplicator::StepScale() {
  // The layer's Scale is a pair; the uniform scale goes into both.
  return DeliverNext(scales_, scale_cursor_, [this](const ValueKey& k) {
    storage().AddKeyframe(k.frame, k.value * 100, k.value * 100);
  });
}

// ---- Mixed transform ----

void MixedTransformApplicator::Reserve(size_t n) {
  RigidApplicator::Reserve(n);
  scales_.reserve(n);
  skews_.reserve(n);
}

// The mixed model's rotation is not the rigid one: it comes from the same
// decomposition as its scales and skew, so it replaces the value the rigid
// part recorded.
void MixedTransformApplicator::Record(int frame, const types::affine& t) {
  RigidApplicator::Record(frame, t);
  const MixedParameters p = DecomposeMixed(t);
  rotations_.back().value = p.rotation;
  scales_.push_back({p.scale_x, p.scale_y, frame});
  skews_.push_back({p.skew, frame});
}

void MixedTransformApplicator::ThinLists() {
  RigidApplicator::ThinLists();
  const auto& s = storage();
  const int w = s.GetSourceWidth(), h = s.GetSourceHeight();
  const float e = record().ExportInaccuracy;
  ThinPairs(scales_, ScaleTolerance(weight_, e, std::max(w, h)));
  ThinValues(skews_, ScaleTolerance(weight_, e, w));
}

int MixedTransformApplicator::KeyframeCount() const {
  return RigidApplicator::KeyframeCount() + int(scales_.size()) + int(skews_.size());
}

bool MixedTransformApplicator::StepScale() {
  return DeliverNext(scales_, scale_cursor_, [this](const PairKey& k) {
    storage().AddKeyframe(k.frame, k.x * 100, k.y * 100);
  });
}

bool MixedTransformApplicator::AfterRotations() {
  stage_ = 3;
  storage().SelectEffect("Transform");
  storage().SelectEffectParameter(6);
  return true;
}

bool MixedTransformApplicator::Step() {
  if (stage_ != 3) return RigidApplicator::Step();
  // The effect's Skew is an angle: that of the tangent, in degrees.
  return DeliverNext(skews_, skew_cursor_, [this](const ValueKey& k) {
    storage().AddKeyframe(k.frame, std::atan(k.value) * kDegreesPerRadian);
  });
}
