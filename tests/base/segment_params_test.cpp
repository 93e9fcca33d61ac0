#include "base/segment_params.h"

#include <functional>
#include <limits>
#include <string>

#include <gtest/gtest.h>

namespace {

TEST(VLSegmentParams, DefaultsLieInsideTheirRanges) {
  const VLSegmentParams defaults;
  EXPECT_EQ(Clamped(defaults), defaults);
}

TEST(VLSegmentParams, ClampBringsEachFieldIntoItsRange) {
  constexpr float nan = std::numeric_limits<float>::quiet_NaN();
  struct Case {
    const char* name;
    std::function<void(VLSegmentParams&)> set;
    std::function<double(const VLSegmentParams&)> get;
    double expected;
  };
#define FIELD(f, value, want)                                                                     \
  Case {                                                                                          \
#f " = " #value,                                                                              \
        [](VLSegmentParams &                                                                      \
           p) { p.f = value; },                                                                   \
                             [](const VLSegmentParams& p) { return static_cast<double>(p.f); },   \
                                                                                             want \
  }
  const Case cases[] = {
      FIELD(MaskGenerationPitch, 0u, 1),
      FIELD(MaskGenerationPitch, 5000u, 5000),
      FIELD(InitialSearchRadius, 0u, 1),
      FIELD(InitialSearchRadius, 100u, 100),
      FIELD(InitialSearchRadius, 101u, 100),
      FIELD(self_profile_radius, 0u, 1),
      FIELD(self_profile_radius, 21u, 20),
      FIELD(foreign_weight, -0.5f, 0),
      FIELD(foreign_weight, 100.5f, 100),
      FIELD(foreign_weight, nan, 0),
      FIELD(variance_scale, -1.0f, 0),
      FIELD(variance_scale, 1e9f, 1e9f),
      FIELD(variance_scale, nan, 0),
      FIELD(foreign_limit, -1000.0f, -1000),
      FIELD(ImageBlockSize, 0u, 1),
      FIELD(ImageBlockSize, 4000000000u, 100),
      FIELD(foreign_margin, 0u, 1),
      FIELD(foreign_margin, 101u, 100),
      FIELD(MaxAcceleration, 0u, 1),
      FIELD(MaxAcceleration, 1000u, 100),
      FIELD(neighbour_weight, -2.0f, 0),
      FIELD(max_iterations, -2, -1),
      FIELD(max_iterations, -1, -1),
      FIELD(max_iterations, 1001, 1000),
      FIELD(tolerance, -0.01f, 0),
      FIELD(mu, -1.0f, 0),
      FIELD(mu, nan, 0),
      FIELD(mu_ratio, 1.5f, 1),
      FIELD(mu_ratio, -0.1f, 0),
      FIELD(mu_ratio, nan, 0),
      FIELD(matching_passes, 1001u, 1000),
      FIELD(matching_passes, 0u, 0),
      FIELD(optic_flow_iterations, 0u, 0),
      FIELD(optic_flow_iterations, 100000u, 100000),
  };
#undef FIELD
  for (const Case& c : cases) {
    VLSegmentParams p;
    c.set(p);
    EXPECT_EQ(c.get(Clamped(p)), c.expected) << c.name;
  }
}

TEST(VLSegmentParams, AssignReportsOnlyARealChange) {
  VLSegmentParams current;
  current.InitialSearchRadius = 100;

  VLSegmentParams wanted = current;
  EXPECT_FALSE(AssignClamped(current, wanted));

  // 150 clamps to the 100 already stored: no change of the segment.
  wanted.InitialSearchRadius = 150;
  EXPECT_FALSE(AssignClamped(current, wanted));
  EXPECT_EQ(current.InitialSearchRadius, 100u);

  wanted.InitialSearchRadius = 40;
  wanted.MaskGenerationPitch = 0;
  EXPECT_TRUE(AssignClamped(current, wanted));
  EXPECT_EQ(current.InitialSearchRadius, 40u);
  EXPECT_EQ(current.MaskGenerationPitch, 1u);

  // A field the user never sees counts too.
  wanted = current;
  wanted.tolerance = 0.02f;
  EXPECT_TRUE(AssignClamped(current, wanted));
}

TEST(VLSegmentParams, StoredFieldsNameTheirMembers) {
  struct Expected {
    const char* key;
    const char* label;
    std::function<bool(const VLSegmentParams&)> changed;
  };
  const Expected expected[] = {
      {"MaskGenerationPitch", "Reference frame pitch",
       [](const VLSegmentParams& p) { return p.MaskGenerationPitch != 7; }},
      {"InitialSearchRadius", "Matching radius",
       [](const VLSegmentParams& p) { return p.InitialSearchRadius != 15; }},
      {"ImageBlockSize", "Tracker size",
       [](const VLSegmentParams& p) { return p.ImageBlockSize != 8; }},
      {"OriginalMaskInAllFrames", "Original mask in all frames",
       [](const VLSegmentParams& p) { return p.OriginalMaskInAllFrames; }},
      {"MaxAcceleration", "Max motion change",
       [](const VLSegmentParams& p) { return p.MaxAcceleration != 5; }},
      {"MotionModel", "Motion model",
       [](const VLSegmentParams& p) { return p.MotionModel != TransformClass::Affine; }},
      {"MotionEstimation", "Estimation method",
       [](const VLSegmentParams& p) { return p.MotionEstimation != MotionEstimation::Normal; }},
  };
  const auto fields = SegmentParamFields();
  ASSERT_EQ(fields.size(), std::size(expected));
  for (size_t i = 0; i < fields.size(); ++i) {
    EXPECT_STREQ(fields[i].key, expected[i].key);
    EXPECT_STREQ(fields[i].label, expected[i].label);
    // Writing through the member must change exactly the field of that key.
    VLSegmentParams p;
    std::visit(
        [&](auto member) {
          using T = std::remove_reference_t<decltype(p.*member)>;
          if constexpr (std::is_same_v<T, bool>) {
            p.*member = true;
          } else if constexpr (std::is_same_v<T, unsigned>) {
            p.*member = 42;
          } else {
            p.*member = T{3};
          }
        },
        fields[i].member);
    for (size_t j = 0; j < fields.size(); ++j)
      EXPECT_EQ(expected[j].changed(p), i == j) << fields[i].key << " touched " << expected[j].key;
  }
}

}  // namespace
