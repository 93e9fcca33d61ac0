// SPDX-License-Identifier: GPL-3.0-or-later
// The applicator that drives the "Corner Pin" effect: the frame's four
// corners, mapped by each frame's transform. Stages 1..4 are the effect
// parameters Upper Left, Upper Right, Lower Left, Lower Right.
#pragma once

#include <array>
#include <cstddef>
#include <memory>

#include "exchange/transform_applicator.h"

class CornerPinApplicator : public TransformApplicator {
 public:
  void Begin(std::unique_ptr<VL::KeyframeStorage> storage) override;
  int KeyframeCount() const override;
  bool Step() override;

 private:
  std::array<PairKeys, 4> corners_;
  size_t current_ = 0;
  size_t end_ = 0;
};
