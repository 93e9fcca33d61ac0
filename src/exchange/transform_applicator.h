// SPDX-License-Identifier: GPL-3.0-or-later
// Turns the per-frame transforms of a Transformations record into keyframes
// of the host's layer parameters and effects, thins them, and delivers them
// one a call into a VL::KeyframeStorage.
//
// Delivery is a step function so that a caller inside the host can show
// progress and stay responsive. Use:
//
//   auto applicator = CreateTransformApplicator(record, width, height);
//   applicator->SetTransformations(record);
//   applicator->Begin(std::make_unique<AE5KeyframeData>(...));
//   while (applicator->Step()) {}
//   applicator.reset();  // destroys the storage, which ends its output
//
// No applicator checks its input: a singular matrix yields infinities or NaN,
// and those reach the storage as they are.
#pragma once

#include <cstddef>
#include <memory>

#include "base/affine.h"
#include "exchange/keyframe_storage.h"
#include "exchange/keys.h"
#include "exchange/transformations.h"

// Radians to the host's degrees.
inline constexpr double kDegreesPerRadian = 57.29577951308232;

class TransformApplicator {
 public:
  virtual ~TransformApplicator();

  // Remembers the record (not owned); it must outlive the applicator's steps.
  void SetTransformations(const Transformations& record) { record_ = &record; }
  // Takes over the storage (dropping one held before), computes and thins
  // the keyframe lists of the storage's frames, and opens the first block.
  // Call once, after SetTransformations.
  virtual void Begin(std::unique_ptr<VL::KeyframeStorage> storage) = 0;
  // The number of AddKeyframe calls that the steps after Begin make in all
  // (a one-off switch keyframe of the vertical-skew model is not counted).
  virtual int KeyframeCount() const = 0;
  // Delivers one keyframe, opening the next block in the same call when
  // this one ended a block. False with the last keyframe of the last block.
  virtual bool Step() = 0;

 protected:
  TransformApplicator() = default;
  TransformApplicator(const TransformApplicator&) = delete;
  TransformApplicator& operator=(const TransformApplicator&) = delete;

  void TakeStorage(std::unique_ptr<VL::KeyframeStorage> storage) { storage_ = std::move(storage); }
  VL::KeyframeStorage& storage() const { return *storage_; }
  const Transformations& record() const { return *record_; }
  // The transform the host gets for `frame`, of the storage's span.
  types::affine TransformOf(int frame) const;
  // The storage's frame count (its end frame minus its first).
  int FrameCount() const;

  // Delivers keys[cursor] through `add` and advances the cursor; whether more
  // keys follow. An empty list (a record without frames) delivers nothing.
  template <class Keys, class Add>
  static bool DeliverNext(const Keys& keys, size_t& cursor, Add add) {
    if (cursor < keys.size()) add(keys[cursor++]);
    return cursor < keys.size();
  }

  int stage_ = 0;

 private:
  const Transformations* record_ = nullptr;
  std::unique_ptr<VL::KeyframeStorage> storage_;
};

// A new applicator for the record's ExportModel; with Auto, the one chosen
// from the record's matrices for a frame of width x height. Null for a model
// outside the enumeration: such an applicator must not be stepped.
std::unique_ptr<TransformApplicator> CreateTransformApplicator(const Transformations& record,
                                                               int width,
                                                               int height);
