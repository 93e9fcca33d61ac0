// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/segment_params.h"

#include <algorithm>
#include <cmath>

namespace {

template <class T>
T Between(T value, T low, T high) {
  return std::clamp(value, low, high);
}

// NaN fails every comparison, so std::clamp would pass it through.
float Between(float value, float low, float high) {
  if (std::isnan(value)) return low;
  return std::clamp(value, low, high);
}

float AtLeast(float value, float low) {
  if (std::isnan(value) || value < low) return low;
  return value;
}

const SegmentParamField kStoredFields[] = {
    {"MaskGenerationPitch", "Reference frame pitch", &VLSegmentParams::MaskGenerationPitch},
    {"InitialSearchRadius", "Matching radius", &VLSegmentParams::InitialSearchRadius},
    {"ImageBlockSize", "Tracker size", &VLSegmentParams::ImageBlockSize},
    {"OriginalMaskInAllFrames", "Original mask in all frames",
     &VLSegmentParams::OriginalMaskInAllFrames},
    {"MaxAcceleration", "Max motion change", &VLSegmentParams::MaxAcceleration},
    {"MotionModel", "Motion model", &VLSegmentParams::MotionModel},
    {"MotionEstimation", "Estimation method", &VLSegmentParams::MotionEstimation},
};

}  // namespace

VLSegmentParams Clamped(VLSegmentParams p) {
  if (p.MaskGenerationPitch == 0) p.MaskGenerationPitch = 1;
  p.InitialSearchRadius = Between(p.InitialSearchRadius, 1u, 100u);
  p.self_profile_radius = Between(p.self_profile_radius, 1u, 20u);
  p.foreign_weight = Between(p.foreign_weight, 0.0f, 100.0f);
  p.variance_scale = AtLeast(p.variance_scale, 0.0f);
  p.ImageBlockSize = Between(p.ImageBlockSize, 1u, 100u);
  p.foreign_margin = Between(p.foreign_margin, 1u, 100u);
  p.MaxAcceleration = Between(p.MaxAcceleration, 1u, 100u);
  p.neighbour_weight = AtLeast(p.neighbour_weight, 0.0f);
  p.max_iterations = Between(p.max_iterations, -1, 1000);
  p.tolerance = AtLeast(p.tolerance, 0.0f);
  p.mu = AtLeast(p.mu, 0.0f);
  p.mu_ratio = Between(p.mu_ratio, 0.0f, 1.0f);
  p.matching_passes = std::min(p.matching_passes, 1000u);
  return p;
}

bool AssignClamped(VLSegmentParams& current, const VLSegmentParams& wanted) {
  const VLSegmentParams clamped = Clamped(wanted);
  if (clamped == current) return false;
  current = clamped;
  return true;
}

std::span<const SegmentParamField> SegmentParamFields() {
  return kStoredFields;
}
