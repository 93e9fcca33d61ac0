// SPDX-License-Identifier: GPL-3.0-or-later
#include "exchange/corner_pin_applicator.h"

#include "exchange/thin.h"

namespace {
constexpr char kEffect[] = "Corner Pin";
}

void CornerPinApplicator::Begin(std::unique_ptr<VL::KeyframeStorage> storage) {
  TakeStorage(std::move(storage));
  const int first = this->storage().GetFirstFrame();
  const int count = FrameCount();
  const double w = this->storage().GetSourceWidth(), h = this->storage().GetSourceHeight();
  const double xs[4] = {0, w, 0, w};
  const double ys[4] = {0, 0, h, h};
  for (auto& list : corners_) list.reserve(count > 0 ? size_t(count) : 0);
  for (int f = first; f < first + count; ++f) {
    const types::affine t = TransformOf(f);
    for (int c = 0; c < 4; ++c) {
      PairKey k{0, 0, f};
      t.apply(xs[c], ys[c], k.x, k.y);
      corners_[c].push_back(k);
    }
  }
  // Each corner is a point in pixels: the inaccuracy applies unweighted.
  for (auto& list : corners_) ThinPairs(list, record().ExportInaccuracy);
  stage_ = 1;
  current_ = 0;
  end_ = corners_[0].size();
  this->storage().SelectEffect(kEffect);
  this->storage().SelectEffectParameter(stage_);
}

int CornerPinApplicator::KeyframeCount() const {
  size_t count = 0;
  for (const auto& list : corners_) count += list.size();
  return int(count);
}

bool CornerPinApplicator::Step() {
  if (stage_ < 1 || stage_ > 4) return false;
  const PairKeys& list = corners_[stage_ - 1];
  if (current_ < end_) {
    storage().AddKeyframe(list[current_].frame, list[current_].x, list[current_].y);
    ++current_;
  }
  if (current_ < end_) return true;
  if (stage_ == 4) return false;
  ++stage_;
  current_ = 0;
  end_ = corners_[stage_ - 1].size();
  storage().SelectEffectParameter(stage_);
  return true;
}
