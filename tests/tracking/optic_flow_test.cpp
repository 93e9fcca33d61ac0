#include "tracking/optic_flow.h"

#include <cmath>
#include <cstring>
#include <numbers>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/errors.h"
#include "texture_shot.h"

namespace {

using tracking::OpticFlow;
using tracking_test::MaxCornerError;
using tracking_test::RectMask;
using tracking_test::RenderTexture;
using types::affine;

constexpr uint32_t kW = 160, kH = 128;
constexpr uint32_t kLeft = 40, kTop = 32, kRight = 120, kBottom = 96;

// A motion about the mask's centre, then a shift.
affine AboutCentre(double degrees, double sx, double sy, double skew, double tx, double ty) {
  const double r = degrees * std::numbers::pi / 180;
  const double cx = (kLeft + kRight) / 2.0, cy = (kTop + kBottom) / 2.0;
  const affine linear{
      0, 0, sx * std::cos(r), -sy * std::sin(r) + skew, sx * std::sin(r), sy * std::cos(r)};
  return affine::translation(cx + tx, cy + ty) * linear * affine::translation(-cx, -cy);
}

double CornerError(const affine& a, const affine& b) {
  return MaxCornerError(a, b, kLeft, kTop, kRight - 1, kBottom - 1);
}

struct FlowCase {
  const char* name;
  TransformClass model;
  bool intensive;
  affine truth;
  affine start;  // the candidate handed in
  double max_error;
};

class RefinesCandidate : public ::testing::TestWithParam<FlowCase> {};

TEST_P(RefinesCandidate, ToWithinASmallCornerError) {
  const FlowCase& p = GetParam();
  const img::float_image reference = RenderTexture(kW, kH, affine::identity());
  const img::float_image target = RenderTexture(kW, kH, p.truth);
  const auto mask = RectMask(kW, kH, kLeft, kTop, kRight, kBottom);

  OpticFlow flow;
  ASSERT_TRUE(flow.initialise(affine::identity(), reference, mask, p.model, p.intensive));
  flow.set(p.start, -1);
  const double before = flow.measure(target, nullptr);
  flow.set(p.start, -1);
  if (p.intensive)
    flow.optimise(target, 20, nullptr);
  else
    flow.optimise_once(target, 20, nullptr);
  ASSERT_GT(CornerError(p.start, p.truth), 0.5);
  EXPECT_LT(CornerError(flow.transformation(), p.truth), p.max_error)
      << "result " << flow.transformation() << "\ntruth  " << p.truth;
  EXPECT_LT(flow.discrepancy(), before);
  // The amendment is what was added to the candidate, in reference coordinates.
  EXPECT_LT(CornerError(p.start * flow.amendment(), flow.transformation()), 1e-9);
}

const affine kShift = affine::translation(0.8, -0.6);

INSTANTIATE_TEST_SUITE_P(
    Models,
    RefinesCandidate,
    ::testing::Values(
        FlowCase{"Translation", TransformClass::Translation, false, affine::translation(1.6, -0.9),
                 kShift* affine::translation(1.6, -0.9), 0.05},
        FlowCase{"Rigid", TransformClass::Rigid, false, AboutCentre(1.5, 1, 1, 0, 0.8, 0.5),
                 kShift* AboutCentre(0.5, 1, 1, 0, 0.8, 0.5), 0.05},
        FlowCase{"RigidScale", TransformClass::RigidScale, false,
                 AboutCentre(-1, 1.02, 1.02, 0, -0.4, 0.7),
                 kShift* AboutCentre(-1, 1, 1, 0, -0.4, 0.7), 0.05},
        FlowCase{"Affine", TransformClass::Affine, false,
                 AboutCentre(0.7, 1.015, 0.985, 0.01, 0.3, 0.2),
                 kShift* AboutCentre(0, 1, 1, 0, 0.3, 0.2), 0.05},
        FlowCase{"IntensiveTranslation", TransformClass::Translation, true,
                 affine::translation(1.6, -0.9), kShift* affine::translation(1.6, -0.9), 0.05},
        FlowCase{"IntensiveRigid", TransformClass::Rigid, true, AboutCentre(1.5, 1, 1, 0, 0.8, 0.5),
                 kShift* AboutCentre(0.5, 1, 1, 0, 0.8, 0.5), 0.05},
        FlowCase{"IntensiveRigidScale", TransformClass::RigidScale, true,
                 AboutCentre(-1, 1.02, 1.02, 0, -0.4, 0.7),
                 kShift* AboutCentre(-1, 1, 1, 0, -0.4, 0.7), 0.05},
        FlowCase{"IntensiveAffine", TransformClass::Affine, true,
                 AboutCentre(0.7, 1.015, 0.985, 0.01, 0.3, 0.2),
                 kShift* AboutCentre(0, 1, 1, 0, 0.3, 0.2), 0.05}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(OpticFlow, BrightnessChangeIsToleratedByTheAdaptiveThreshold) {
  const affine truth = affine::translation(1.3, 0.4);
  tracking_test::TextureOptions brighter;
  brighter.brightness = 12;
  const img::float_image reference = RenderTexture(kW, kH, affine::identity());
  const img::float_image target = RenderTexture(kW, kH, truth, brighter);
  OpticFlow flow;
  ASSERT_TRUE(flow.initialise(affine::identity(), reference,
                              RectMask(kW, kH, kLeft, kTop, kRight, kBottom),
                              TransformClass::Translation, false));
  flow.set(affine::identity(), -1);
  flow.optimise_once(target, 20, nullptr);
  EXPECT_LT(CornerError(flow.transformation(), truth), 0.25) << flow.transformation();
}

TEST(OpticFlow, TooSmallPictureOrEmptyMaskFailsToInitialise) {
  OpticFlow flow;
  // 11 pixels leave no room for the margins; 12 leave exactly one column.
  const img::float_image small = RenderTexture(11, 11, affine::identity());
  EXPECT_FALSE(flow.initialise(affine::identity(), small, RectMask(11, 11, 0, 0, 11, 11),
                               TransformClass::Affine, false));
  const img::float_image twelve = RenderTexture(12, 12, affine::identity());
  ASSERT_TRUE(flow.initialise(affine::identity(), twelve, RectMask(12, 12, 0, 0, 12, 12),
                              TransformClass::Affine, false));
  ASSERT_EQ(flow.samples().size(), 1u);
  EXPECT_EQ(flow.samples()[0].x, 5u);
  EXPECT_EQ(flow.samples()[0].y, 5u);

  const img::float_image picture = RenderTexture(kW, kH, affine::identity());
  EXPECT_FALSE(flow.initialise(affine::identity(), picture, RectMask(kW, kH, 0, 0, 0, 0),
                               TransformClass::Affine, false));
  EXPECT_EQ(flow.solver(), nullptr);
  // A mask only on the border rows and columns has no usable pixel.
  EXPECT_FALSE(flow.initialise(affine::identity(), picture, RectMask(kW, kH, 0, 0, 5, kH),
                               TransformClass::Affine, false));
}

TEST(OpticFlow, SamplesKeepTheMarginUnderTheGivenTransformation) {
  const img::float_image picture = RenderTexture(40, 30, affine::identity());
  OpticFlow flow;
  ASSERT_TRUE(flow.initialise(affine::translation(-10, 3), picture, RectMask(40, 30, 0, 0, 40, 30),
                              TransformClass::Translation, false));
  // u = x - 10 in [5, 34) and v = y + 3 in [5, 24): x in [15, 39), y in [2, 21).
  EXPECT_EQ(flow.samples().size(), size_t(39 - 15) * (21 - 2));
  for (const auto& s : flow.samples()) {
    EXPECT_GE(s.x, 15u);
    EXPECT_LT(s.x, 39u);
    EXPECT_GE(s.y, 2u);
    EXPECT_LT(s.y, 21u);
  }
  EXPECT_EQ(flow.transformation(), affine::translation(-10, 3));
  EXPECT_LT(flow.discrepancy(), 0);
}

TEST(OpticFlow, MaskOfAnotherSizeIsRefused) {
  const img::float_image picture = RenderTexture(40, 30, affine::identity());
  OpticFlow flow;
  EXPECT_THROW(flow.initialise(affine::identity(), picture, RectMask(41, 30, 0, 0, 4, 4),
                               TransformClass::Affine, false),
               xtd::exception);
  ASSERT_TRUE(flow.initialise(affine::identity(), picture, RectMask(40, 30, 10, 10, 20, 20),
                              TransformClass::Affine, false));
  const img::float_image other = RenderTexture(40, 31, affine::identity());
  EXPECT_THROW(flow.measure(other, nullptr), xtd::exception);
}

TEST(OpticFlow, AllSamplesOutOfThePictureMeasureInfinite) {
  const img::float_image picture = RenderTexture(kW, kH, affine::identity());
  OpticFlow flow;
  ASSERT_TRUE(flow.initialise(affine::identity(), picture,
                              RectMask(kW, kH, kLeft, kTop, kRight, kBottom),
                              TransformClass::Affine, false));
  flow.set(affine::translation(1000, 0), -1);
  EXPECT_EQ(flow.measure(picture, nullptr), INFINITY);
  // Refining from there never finds anything lower than infinity... unless a
  // step brings samples back, which a black comparison cannot suggest.
  flow.optimise_once(picture, 3, nullptr);
  EXPECT_FALSE(flow.discrepancy() < INFINITY);
}

TEST(OpticFlow, FlatPictureGivesNoAmendmentAndEndsAfterFiveFailures) {
  img::float_image flat(60, 50);
  for (uint32_t y = 0; y < 50; ++y)
    for (uint32_t x = 0; x < 60; ++x) {
      float* p = img::pixel(flat, x, y);
      p[0] = p[1] = p[2] = 90;
      p[3] = 255;
    }
  std::ostringstream log;
  OpticFlow flow(&log);
  ASSERT_TRUE(flow.initialise(affine::identity(), flat, RectMask(60, 50, 10, 10, 40, 30),
                              TransformClass::Translation, false));
  const affine start = affine::translation(0.5, 0.25);
  flow.set(start, -1);
  flow.optimise_once(flat, 20, nullptr);
  EXPECT_EQ(flow.transformation(), start);
  EXPECT_EQ(flow.discrepancy(), 0);
  const std::string text = log.str();
  const std::string step =
      "iteration #4, found amendment:\n1 0 0 1 0 0\ncorrected transformation with discrepancy "
      "(ignored pixels 0 / 600, 0%) 0 is\n1 0 0 1 0.5 0.25\n";
  EXPECT_NE(text.find(step), std::string::npos) << text;
  EXPECT_EQ(text.find("iteration #5"), std::string::npos);
  EXPECT_NE(text.find("best transformation (from iteration -1) with discrepancy 0 is\n"),
            std::string::npos);
}

TEST(OpticFlow, ZeroIterationsLogTheUntouchedState) {
  img::float_image flat(30, 30);
  for (uint32_t y = 0; y < 30; ++y)
    for (uint32_t x = 0; x < 30; ++x) {
      float* p = img::pixel(flat, x, y);
      p[0] = p[1] = p[2] = 40;
      p[3] = 255;
    }
  std::ostringstream log;
  OpticFlow flow(&log);
  ASSERT_TRUE(flow.initialise(affine::identity(), flat, RectMask(30, 30, 10, 10, 12, 12),
                              TransformClass::Rigid, false));
  flow.optimise_once(flat, 0, nullptr);
  volatile double zero = 0;
  std::ostringstream undefined;
  undefined.precision(3);
  undefined << 100 * (zero - zero) / zero;  // a perfect candidate: 0 / 0
  EXPECT_EQ(log.str(),
            "Initial discrepancy is (ignored pixels 0 / 4, 0%) 0\n"
            "best transformation (from iteration -1) with discrepancy 0 is\n"
            "1 0 0 1 0 0\n"
            "discrepancy lowering gain: 0 (" +
                undefined.str() +
                "%)\n"
                "overall amendment:\n"
                "1 0 0 1 0 0\n");
}

struct Recorder : tracking::StageTimer {
  std::vector<std::string> events;
  void enter(std::string_view stage) override { events.push_back("+" + std::string(stage)); }
  void leave() override { events.push_back("-"); }
};

TEST(OpticFlow, OptimiseSwitchesToTheExtraSolverAndTimesItsStages) {
  const affine truth = affine::translation(0.6, 0.3);
  const img::float_image reference = RenderTexture(kW, kH, affine::identity());
  const img::float_image target = RenderTexture(kW, kH, truth);
  std::ostringstream log;
  OpticFlow flow(&log);
  ASSERT_TRUE(flow.initialise(affine::identity(), reference,
                              RectMask(kW, kH, kLeft, kTop, kRight, kBottom),
                              TransformClass::RigidScale, true));
  Recorder timer;
  flow.optimise(target, 1, &timer);
  const std::string text = log.str();
  EXPECT_EQ(
      text.rfind("\nMaking more precise transformation on pixel level (rigid+scale model)...\n"
                 "Initial discrepancy is (ignored pixels ",
                 0),
      0u)
      << text;
  const size_t extra = text.find("Switching over extra optic flow solver\nInitial discrepancy is ");
  ASSERT_NE(extra, std::string::npos) << text;
  EXPECT_LT(text.find("overall amendment:\n"), extra);
  const std::vector<std::string> measure = {
      "+discrepancy calculating", "+bilinear diff.", "-", "+setting rhs", "-", "-"};
  std::vector<std::string> expected = {"+optic flow optimizing"};
  for (int i = 0; i < 2; ++i) expected.insert(expected.end(), measure.begin(), measure.end());
  expected.push_back("-");
  expected.push_back("+optic flow optimizing (extra solver)");
  for (int i = 0; i < 2; ++i) expected.insert(expected.end(), measure.begin(), measure.end());
  expected.push_back("-");
  EXPECT_EQ(timer.events, expected);
  // Swapped back: the primary solver is in front again.
  EXPECT_EQ(flow.solver()->model_name(), "rigid+scale");
  EXPECT_LT(CornerError(flow.transformation(), truth), 0.1);
}

TEST(OpticFlow, PortionCoefficientCarriesOverToTheNextReferenceFrame) {
  const img::float_image reference = RenderTexture(kW, kH, affine::identity());
  tracking_test::TextureOptions other;
  other.seed = 99;
  const img::float_image unrelated = RenderTexture(kW, kH, affine::identity(), other);
  const auto mask = RectMask(kW, kH, kLeft, kTop, kRight, kBottom);
  std::ostringstream log;
  OpticFlow flow(&log);
  ASSERT_TRUE(flow.initialise(affine::identity(), reference, mask, TransformClass::Affine, false));
  EXPECT_EQ(log.str(), "");
  for (int i = 0; i < 3; ++i)
    flow.measure(unrelated, nullptr);  // most pixels ignored: 1, 2, 4 -> 8
  EXPECT_EQ(flow.solver()->portion(), 8.0f);
  log.str("");
  ASSERT_TRUE(flow.initialise(affine::identity(), reference, mask, TransformClass::Affine, false));
  EXPECT_EQ(log.str(), "initial portion coefficient: 8\n");
  EXPECT_EQ(flow.solver()->portion(), 8.0f);
  OpticFlow fresh;
  ASSERT_TRUE(fresh.initialise(affine::identity(), reference, mask, TransformClass::Affine, false));
  EXPECT_EQ(fresh.solver()->portion(), 1.0f);
}

TEST(OpticFlow, ModelWithoutSolverMeasuresZeroAndRefinesNothing) {
  const img::float_image picture = RenderTexture(kW, kH, affine::identity());
  std::ostringstream log;
  OpticFlow flow(&log);
  ASSERT_TRUE(flow.initialise(affine::identity(), picture,
                              RectMask(kW, kH, kLeft, kTop, kRight, kBottom),
                              TransformClass::Affine1, true));
  flow.set(affine::translation(3, 0), -1);
  EXPECT_EQ(flow.measure(picture, nullptr), 0);
  flow.optimise(picture, 5, nullptr);
  EXPECT_EQ(flow.transformation(), affine::translation(3, 0));
  EXPECT_EQ(log.str(), "");
}

struct EdgeCase {
  const char* name;
  double u, v;
  float expected;  // channel 0; -1 for outside (black)
};

class SampleTargetEdges : public ::testing::TestWithParam<EdgeCase> {};

TEST_P(SampleTargetEdges, FlagsLeftTopRightBelowAndBottomFromTheLastRow) {
  img::float_image target(10, 8);
  for (uint32_t y = 0; y < 8; ++y)
    for (uint32_t x = 0; x < 10; ++x) {
      float* p = img::pixel(target, x, y);
      p[0] = float(x + 10 * y);
      p[1] = p[2] = p[3] = 1;
    }
  const tracking::FlowSample sample{};  // at (0, 0)
  tracking::Colour value{9, 9, 9, 9};
  const size_t inside = tracking::SampleTarget(
      target, affine::translation(GetParam().u, GetParam().v), {&sample, 1}, {&value, 1});
  if (GetParam().expected < 0) {
    EXPECT_EQ(inside, 0u);
    EXPECT_EQ(value, (tracking::Colour{0, 0, 0, 0}));
  } else {
    EXPECT_EQ(inside, 1u);
    EXPECT_FLOAT_EQ(value[0], GetParam().expected);
    EXPECT_FLOAT_EQ(value[1], 1);
  }
}

INSTANTIATE_TEST_SUITE_P(Cases,
                         SampleTargetEdges,
                         ::testing::Values(EdgeCase{"Origin", 0, 0, 0},
                                           EdgeCase{"Interior", 2.25, 3.5, 37.25f},
                                           EdgeCase{"LastColumnExactly", 9, 2, 29},
                                           EdgeCase{"PastLastColumn", 9.001, 2, -1},
                                           EdgeCase{"LeftOfFirstColumn", -0.001, 2, -1},
                                           EdgeCase{"AboveFirstRow", 3, -0.001, -1},
                                           EdgeCase{"LastRowIsOutside", 3, 7, -1},
                                           EdgeCase{"JustAboveLastRow", 3, 6.75, 70.5f}),
                         [](const auto& info) { return std::string(info.param.name); });

// The measure's sampling written plainly, one channel at a time: the fast
// path must give the same bits.
size_t ReferenceSampleTarget(const img::float_image& target,
                             const affine& t,
                             const std::vector<tracking::FlowSample>& samples,
                             std::vector<tracking::Colour>& values) {
  size_t inside = 0;
  for (size_t i = 0; i < samples.size(); ++i) {
    double u, v;
    t.apply(samples[i].x, samples[i].y, u, v);
    const float us = float(u + 0.5) - 0.5f, vs = float(v + 0.5) - 0.5f;
    const bool left = us<0, right = us> float(target.width - 1);
    const bool top = vs < 0, bottom = vs >= float(target.height - 1);
    if (left || right || top || bottom) {
      values[i] = {0, 0, 0, 0};
      continue;
    }
    const uint32_t col = uint32_t(us), row = uint32_t(vs);
    const float fx = us - float(col), fy = vs - float(row);
    const uint32_t col1 = col + 1 < target.width ? col + 1 : col;
    for (int c = 0; c < 4; ++c) {
      const float p00 = img::pixel(target, col, row)[c], p10 = img::pixel(target, col1, row)[c];
      const float p01 = img::pixel(target, col, row + 1)[c];
      const float p11 = img::pixel(target, col1, row + 1)[c];
      const float w00 = (1 - fx) * (1 - fy), w10 = fx * (1 - fy), w01 = (1 - fx) * fy,
                  w11 = fx * fy;
      float sum = w00 * p00;
      sum = sum + w10 * p10;
      sum = sum + w01 * p01;
      values[i][c] = sum + w11 * p11;
    }
    ++inside;
  }
  return inside;
}

TEST(SampleTargetFastPath, GivesTheBitsOfThePlainReference) {
  const img::float_image target = RenderTexture(kW, kH, affine::identity());
  std::vector<tracking::FlowSample> samples;
  for (uint32_t y = 0; y < kH; y += 3)
    for (uint32_t x = 0; x < kW; x += 2) samples.push_back({{}, 0, x, y});
  std::mt19937 rng(17);
  std::uniform_real_distribution<double> shift(-30, 30), lin(-0.05, 0.05);
  for (int trial = 0; trial < 40; ++trial) {
    const affine t{shift(rng), shift(rng), 1 + lin(rng), lin(rng), lin(rng), 1 + lin(rng)};
    std::vector<tracking::Colour> fast(samples.size()), plain(samples.size());
    const size_t n_fast = tracking::SampleTarget(target, t, samples, fast);
    const size_t n_plain = ReferenceSampleTarget(target, t, samples, plain);
    ASSERT_EQ(n_fast, n_plain) << t;
    ASSERT_EQ(std::memcmp(fast.data(), plain.data(), fast.size() * sizeof(tracking::Colour)), 0)
        << t;
  }
}

}  // namespace
