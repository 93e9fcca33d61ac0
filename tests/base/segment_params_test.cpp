// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/segment_params.h"

#include <limits>

#include <gtest/gtest.h>

namespace {

// Sets `field` below and above its range, and to what the clamp must make of each.
#define CLAMPS(field, low, low_clamped, high, high_clamped) \
  below.field = low;                                        \
  want_below.field = low_clamped;                           \
  above.field = high;                                       \
  want_above.field = high_clamped;

TEST(VLSegmentParams, ClampBringsEachFieldIntoItsRange) {
  const VLSegmentParams defaults;
  EXPECT_EQ(Clamped(defaults), defaults);
  constexpr float nan = std::numeric_limits<float>::quiet_NaN();
  VLSegmentParams below, want_below, above, want_above;
  CLAMPS(MaskGenerationPitch, 0u, 1u, 5000u, 5000u)  // no upper bound
  CLAMPS(InitialSearchRadius, 0u, 1u, 101u, 100u)
  CLAMPS(self_profile_radius, 0u, 1u, 21u, 20u)
  CLAMPS(foreign_weight, -0.5f, 0.0f, 100.5f, 100.0f)
  CLAMPS(variance_scale, nan, 0.0f, 1e9f, 1e9f)
  CLAMPS(foreign_limit, -1000.0f, -1000.0f, 1e9f, 1e9f)  // not clamped
  CLAMPS(ImageBlockSize, 0u, 1u, 4000000000u, 100u)
  CLAMPS(foreign_margin, 0u, 1u, 101u, 100u)
  CLAMPS(MaxAcceleration, 0u, 1u, 1000u, 100u)
  CLAMPS(neighbour_weight, -2.0f, 0.0f, 1e9f, 1e9f)
  CLAMPS(max_iterations, -2, -1, 1001, 1000)
  CLAMPS(tolerance, -0.01f, 0.0f, 1e9f, 1e9f)
  CLAMPS(mu, nan, 0.0f, 1e9f, 1e9f)
  CLAMPS(mu_ratio, -0.1f, 0.0f, nan, 0.0f)
  CLAMPS(matching_passes, 0u, 0u, 1001u, 1000u)
  CLAMPS(optic_flow_iterations, 0u, 0u, 5000u, 5000u)
  EXPECT_EQ(Clamped(below), want_below) << "below the ranges";
  EXPECT_EQ(Clamped(above), want_above) << "above the ranges";
}

#undef CLAMPS

TEST(VLSegmentParams, AssignReportsOnlyARealChange) {
  VLSegmentParams current;
  current.InitialSearchRadius = 100;
  VLSegmentParams wanted = current;
  wanted.InitialSearchRadius = 150;  // clamps to the 100 already stored: no change
  EXPECT_FALSE(AssignClamped(current, wanted));
  wanted.MaskGenerationPitch = 0;
  EXPECT_TRUE(AssignClamped(current, wanted));
  EXPECT_EQ(current.InitialSearchRadius, 100u);
  EXPECT_EQ(current.MaskGenerationPitch, 1u);
  wanted = current;
  wanted.tolerance = 0.02f;  // a field the user never sees counts too
  EXPECT_TRUE(AssignClamped(current, wanted));
}

TEST(VLSegmentParams, StoredFieldsWithKeysLabelsAndMembers) {
  using P = VLSegmentParams;
  const SegmentParamField expected[] = {
      {"MaskGenerationPitch", "Reference frame pitch", &P::MaskGenerationPitch},
      {"InitialSearchRadius", "Matching radius", &P::InitialSearchRadius},
      {"ImageBlockSize", "Tracker size", &P::ImageBlockSize},
      {"OriginalMaskInAllFrames", "Original mask in all frames", &P::OriginalMaskInAllFrames},
      {"MaxAcceleration", "Max motion change", &P::MaxAcceleration},
      {"MotionModel", "Motion model", &P::MotionModel},
      {"MotionEstimation", "Estimation method", &P::MotionEstimation},
  };
  const auto fields = SegmentParamFields();
  ASSERT_EQ(fields.size(), std::size(expected));
  for (size_t i = 0; i < fields.size(); ++i) {
    EXPECT_STREQ(fields[i].key, expected[i].key);
    EXPECT_STREQ(fields[i].label, expected[i].label);
    EXPECT_TRUE(fields[i].member == expected[i].member) << expected[i].key;
  }
}

}  // namespace
