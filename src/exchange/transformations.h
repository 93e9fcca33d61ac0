// SPDX-License-Identifier: GPL-3.0-or-later
// The motion of a composition as it leaves the program: per-frame
// transforms of the overlay and the settings of the export.
//
// The per-frame transforms are either the record's own vector (a record
// read from a message) or the overlay's vector, referred to and not copied.
// A copy of a record that owns its vector owns a copy of it; a copy of a
// referring record refers to the same vector.
#pragma once

#include <cstdint>
#include <vector>

#include "base/affine.h"
#include "base/enums.h"

class Transformations {
 public:
  Transformations() = default;
  Transformations(const Transformations& other);
  Transformations& operator=(const Transformations& other);

  // The per-frame transforms: entry i is frame first + i. Each maps the
  // overlay's coordinates at the match frame to those of its frame.
  const std::vector<types::affine>& GetTransforms() const { return *transform_; }
  // Refers to `transforms`, which must outlive the record (or the next
  // Refer/Own call).
  void Refer(const std::vector<types::affine>& transforms) { transform_ = &transforms; }
  // Switches to the record's own vector and returns it for filling.
  std::vector<types::affine>& Own();
  bool IsOwning() const { return transform_ == &own_; }

  // Applied before the motion in the task "Tracking".
  types::affine InitialTransform;
  // Pixels any point of the frame may move from where it belongs once the
  // host interpolates between the kept keyframes. 0: keep every keyframe.
  float ExportInaccuracy = 0;
  TaskType Task = TaskType::Tracking;
  ::ExportModel ExportModel = ::ExportModel::Auto;
  // Number of the frame of the first transform.
  int32_t first = 0;

 private:
  const std::vector<types::affine>* transform_ = &own_;
  std::vector<types::affine> own_;
};
