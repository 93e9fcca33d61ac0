// SPDX-License-Identifier: GPL-3.0-or-later
// The applicators that speak the layer's own parameters: Position, Scale,
// Rotation (and, for the mixed model, the "Transform" effect's Skew).
//
// Each records the image of the frame's centre as the position. Stages of the
// Rigid family: 0 position, 1 scale, 2 rotation, 3 skew (mixed model only).
#pragma once

#include <cstddef>
#include <memory>

#include "exchange/transform_applicator.h"

class TranslationApplicator : public TransformApplicator {
 public:
  TranslationApplicator() : TranslationApplicator(1.0f) {}
  void Begin(std::unique_ptr<VL::KeyframeStorage> storage) final;
  int KeyframeCount() const override;
  // Delivers one position; whether more positions follow.
  bool Step() override;

 protected:
  // `weight` shares the admissible inaccuracy among the parameters whose
  // errors add up in one pixel.
  explicit TranslationApplicator(float weight) : weight_(weight) {}

  // Hooks of Begin, each extended by the derived classes: room for n frames,
  // the parameters of one frame, then thinning of every list.
  virtual void Reserve(size_t n);
  virtual void Record(int frame, const types::affine& t);
  virtual void ThinLists();

  float weight_;
  PairKeys positions_;
  size_t position_cursor_ = 0;
};

class RigidApplicator : public TranslationApplicator {
 public:
  RigidApplicator() : RigidApplicator(0.5f) {}
  int KeyframeCount() const override;
  bool Step() override;
  virtual bool HasScale() const { return false; }
  // Delivers one scale keyframe; whether more scale keyframes follow.
  virtual bool StepScale() { return false; }

 protected:
  explicit RigidApplicator(float weight) : TranslationApplicator(weight) {}
  void Reserve(size_t n) override;
  void Record(int frame, const types::affine& t) override;
  void ThinLists() override;
  // Called with the last rotation: opens what follows the rotations and
  // tells whether anything does.
  virtual bool AfterRotations() { return false; }

  ValueKeys rotations_;  // radians
  size_t rotation_cursor_ = 0;
};

class RigidScaleApplicator : public RigidApplicator {
 public:
  RigidScaleApplicator() : RigidApplicator(1.0f / 3.0f) {}
  int KeyframeCount() const override;
  bool HasScale() const override { return true; }
  bool StepScale() override;

 protected:
  void Reserve(size_t n) override;
  void Record(int frame, const types::affine& t) override;
  void ThinLists() override;

  ValueKeys scales_;  // 1 means unchanged
  size_t scale_cursor_ = 0;
};

class MixedTransformApplicator : public RigidApplicator {
 public:
  MixedTransformApplicator() : RigidApplicator(0.25f) {}
  int KeyframeCount() const override;
  bool Step() override;
  bool HasScale() const override { return true; }
  bool StepScale() override;

 protected:
  void Reserve(size_t n) override;
  void Record(int frame, const types::affine& t) override;
  void ThinLists() override;
  bool AfterRotations() override;

  PairKeys scales_;  // (x scale, y scale)
  size_t scale_cursor_ = 0;
  ValueKeys skews_;  // tangents
  size_t skew_cursor_ = 0;
};
