// SPDX-License-Identifier: GPL-3.0-or-later
// The applicators that drive the "Transform" effect: position, scale
// height and width, skew and skew axis, rotation.
//
// Stages 0..5 deliver the effect parameters 2 Position, 4 Scale Height,
// 5 Scale Width, 6 Skew, 7 Skew Axis, 8 Rotation. The uniform-scale kind
// skips Scale Width; the vertical-skew kind switches the effect's Uniform
// Scale (parameter 3) off with one keyframe at the first frame.
#pragma once

#include <cstddef>
#include <memory>

#include "exchange/transform_applicator.h"

class TransformEffectApplicator : public TransformApplicator {
 public:
  void Begin(std::unique_ptr<VL::KeyframeStorage> storage) final;
  int KeyframeCount() const override;
  bool Step() override;

 protected:
  TransformEffectApplicator(bool uniform_scale, float weight)
      : uniform_scale_(uniform_scale), weight_(weight) {}

  const bool uniform_scale_;
  const float weight_;
  ValueKeys rotations_;      // radians
  ValueKeys first_scales_;   // "Scale Height", 1 = unchanged
  ValueKeys second_scales_;  // "Scale Width", empty with uniform scale
  PairKeys skews_;           // (tangent, axis angle in radians)
  PairKeys positions_;
  size_t rotation_cursor_ = 0;
  size_t first_scale_cursor_ = 0;
  size_t second_scale_cursor_ = 0;
  size_t skew_cursor_ = 0;
  size_t position_cursor_ = 0;

 private:
  bool DeliverOne();
  void Thin();
};

class VerticalSkewApplicator : public TransformEffectApplicator {
 public:
  VerticalSkewApplicator() : TransformEffectApplicator(false, 0.2f) {}
};

class UniformScaleApplicator : public TransformEffectApplicator {
 public:
  UniformScaleApplicator() : TransformEffectApplicator(true, 0.25f) {}
};
