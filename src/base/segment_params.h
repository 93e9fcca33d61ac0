// SPDX-License-Identifier: GPL-3.0-or-later
// The tracking parameters of one segment.
//
// Only the fields listed by SegmentParamFields() are stored in the project
// file and offered to the user; every other field keeps its default for good
// and exists so that the tracker reads all its settings from one record.
#pragma once

#include <span>
#include <variant>

#include "base/enums.h"

// How the matching profile of a block is built. 2 and 3 add a ring of
// foreign blocks around the mask (the profile builder tells them apart); no
// stored setting selects them.
enum class ProfileMode : int { Raw = 0, SelfCompared = 1, Foreign2 = 2, Foreign3 = 3 };

// When the coherent-motion search recomputes its weight mu: never (mu stays
// as set), at the first evaluation only, or at every evaluation.
enum class MuMode : int { Fixed = 0, First = 1, Every = 2 };

struct VLSegmentParams {
  unsigned MaskGenerationPitch = 7;  // frames between two reference frames; at least 1
  unsigned profile_colour_source = 0;
  unsigned profile_metric = 0;
  ProfileMode profile_mode = ProfileMode::SelfCompared;
  unsigned InitialSearchRadius = 15;  // pixels, next to the key frame; 1 to 100
  unsigned self_profile_radius = 2;   // 1 to 20
  float foreign_weight = 10.0f;       // 0 to 100
  float variance_scale = 2.0f;        // at least 0
  float foreign_limit = -1.0f;
  unsigned ImageBlockSize = 8;   // pixels per side of a tracked block; 1 to 100
  unsigned foreign_margin = 10;  // 1 to 100
  bool OriginalMaskInAllFrames = false;
  bool use_prediction = true;
  unsigned MaxAcceleration = 5;   // pixels around the predicted motion; 1 to 100
  float neighbour_weight = 1.0f;  // at least 0
  int max_iterations = 30;        // -1 to 1000
  float tolerance = 0.01f;        // at least 0
  MuMode mu_mode = MuMode::Every;
  float mu = 1000.0f;     // at least 0
  float mu_ratio = 0.8f;  // 0 to 1
  TransformClass MotionModel = TransformClass::Affine;
  unsigned matching_passes = 3;  // at most 1000
  bool final_positions = false;
  // Qualified: the member shares its name with its type.
  ::MotionEstimation MotionEstimation = ::MotionEstimation::Normal;
  unsigned optic_flow_iterations = 15;  // 0 turns the pixel refinement off

  // Field by field; floats compare by value.
  friend bool operator==(const VLSegmentParams&, const VLSegmentParams&) = default;
};

// `params` with every field brought into its range. A NaN in a clamped float
// field becomes the lower end of its range.
VLSegmentParams Clamped(VLSegmentParams params);

// Stores the clamped form of `wanted` in `current` and says whether any field
// changed. An unchanged record is no change of the segment: no undo step, no
// notification.
bool AssignClamped(VLSegmentParams& current, const VLSegmentParams& wanted);

// A stored, user-facing field: its key under `Param` in the project file, its
// label in the property panel, and the member it names.
struct SegmentParamField {
  using Member = std::variant<unsigned VLSegmentParams::*,
                              bool VLSegmentParams::*,
                              TransformClass VLSegmentParams::*,
                              MotionEstimation VLSegmentParams::*>;
  const char* key;
  const char* label;
  Member member;
};

// The stored fields, in the order of the record.
std::span<const SegmentParamField> SegmentParamFields();
