#include "tracking/optic_flow_solver.h"

#include <cmath>
#include <numbers>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using tracking::Colour;
using tracking::FlowSample;
using tracking::OpticFlowSolver;
using types::affine;

// Samples with random gradients, and the target colours that the motion `m`
// would produce under the linear brightness model: d = -g · (m(p) - p).
struct Constraints {
  std::vector<FlowSample> samples;
  std::vector<std::array<float, 4>> gx, gy;
  std::vector<Colour> values;
};

Constraints MakeConstraints(const affine& m, size_t n, uint32_t seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> grad(-20, 20);
  std::uniform_int_distribution<uint32_t> pos(10, 300);
  Constraints c;
  for (size_t i = 0; i < n; ++i) {
    FlowSample s;
    s.x = pos(rng);
    s.y = pos(rng);
    s.colour = {100, 110, 120, 255};
    s.limit = 1e12f;  // nothing is ignored
    std::array<float, 4> gx{}, gy{};
    Colour v = s.colour;
    double qx, qy;
    m.apply(s.x, s.y, qx, qy);
    for (int ch = 0; ch < 3; ++ch) {
      gx[ch] = grad(rng);
      gy[ch] = grad(rng);
      v[ch] = float(s.colour[ch] - (gx[ch] * (qx - s.x) + gy[ch] * (qy - s.y)));
    }
    c.samples.push_back(s);
    c.gx.push_back(gx);
    c.gy.push_back(gy);
    c.values.push_back(v);
  }
  return c;
}

void Load(OpticFlowSolver& solver, const Constraints& c) {
  solver.resize_normals(c.samples.size());
  for (size_t i = 0; i < c.samples.size(); ++i)
    solver.set_normals(i, c.samples[i].x, c.samples[i].y, c.samples[i], c.gx[i].data(),
                       c.gy[i].data());
  solver.prepare(c.samples);
}

affine Rotation(double degrees, double scale, double tx, double ty) {
  const double r = degrees * std::numbers::pi / 180;
  return {
      tx, ty, scale * std::cos(r), -scale * std::sin(r), scale * std::sin(r), scale * std::cos(r)};
}

struct SolverCase {
  const char* name;
  TransformClass model;
  bool extra;
  affine motion;
  double matrix_tol, shift_tol;
};

class SolverRecovers : public ::testing::TestWithParam<SolverCase> {};

// Consistent constraints have the motion itself as their least-squares
// solution; the primary solvers find it in one step.
TEST_P(SolverRecovers, KnownMotionFromConsistentConstraints) {
  const SolverCase& p = GetParam();
  auto solver = p.extra ? tracking::MakeExtraSolver(p.model, nullptr)
                        : tracking::MakePrimarySolver(p.model, nullptr);
  ASSERT_TRUE(solver);
  const Constraints c = MakeConstraints(p.motion, 400, 5);
  Load(*solver, c);
  solver->residual(c.samples, c.values);
  solver->find_amendment();
  const affine& a = solver->amendment();
  EXPECT_NEAR(a.xx, p.motion.xx, p.matrix_tol);
  EXPECT_NEAR(a.xy, p.motion.xy, p.matrix_tol);
  EXPECT_NEAR(a.yx, p.motion.yx, p.matrix_tol);
  EXPECT_NEAR(a.yy, p.motion.yy, p.matrix_tol);
  EXPECT_NEAR(a.x, p.motion.x, p.shift_tol);
  EXPECT_NEAR(a.y, p.motion.y, p.shift_tol);
  if (p.model == TransformClass::Rigid) {
    EXPECT_NEAR(a.xx * a.xx + a.yx * a.yx, 1, 1e-15);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Models,
    SolverRecovers,
    ::testing::Values(SolverCase{"Translation", TransformClass::Translation, false,
                                 affine::translation(0.7, -0.4), 0, 1e-4},
                      SolverCase{"Rigid", TransformClass::Rigid, false, Rotation(0.8, 1, 2.5, -1.5),
                                 1e-6, 1e-3},
                      SolverCase{"RigidScale", TransformClass::RigidScale, false,
                                 Rotation(-0.6, 1.01, -1, 3), 1e-6, 1e-3},
                      SolverCase{"Affine", TransformClass::Affine, false,
                                 affine{0.5, 0.25, 1.004, 0.003, -0.002, 0.997}, 1e-6, 1e-3}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(SolverFactory, NamesTheModelsAndHasNoSolverForTheSecondAffine) {
  const std::pair<TransformClass, const char*> names[] = {
      {TransformClass::Translation, "translation"},
      {TransformClass::Rigid, "rigid"},
      {TransformClass::RigidScale, "rigid+scale"},
      {TransformClass::Affine, "affine"}};
  for (const auto& [model, name] : names) {
    EXPECT_EQ(tracking::MakePrimarySolver(model, nullptr)->model_name(), name);
    EXPECT_EQ(tracking::MakeExtraSolver(model, nullptr)->model_name(), name);
  }
  EXPECT_EQ(tracking::MakePrimarySolver(TransformClass::Affine1, nullptr), nullptr);
  EXPECT_EQ(tracking::MakeExtraSolver(TransformClass::Affine1, nullptr), nullptr);
}

TEST(Normals, RedFirstUnitGradientAndFlatPlacesCarryNothing) {
  auto solver = tracking::MakePrimarySolver(TransformClass::Translation, nullptr);
  solver->resize_normals(1);
  const float gx[4] = {0.005f, 0, 3, 100}, gy[4] = {0.005f, 2, 4, 100};
  solver->set_normals(0, 7, 8, FlowSample{}, gx, gy);
  const auto n = solver->normals();
  ASSERT_EQ(n.size(), 3u);
  // Entry 0 is red (channel 2): g = (3, 4).
  EXPECT_FLOAT_EQ(n[0].nx, 0.6f);
  EXPECT_FLOAT_EQ(n[0].ny, 0.8f);
  EXPECT_EQ(n[0].inv_length, std::sqrt(1.0f / 25.0f));
  EXPECT_EQ(n[0].weight, 25.0f * 3.07574e-05f);
  // Green: g = (0, 2).
  EXPECT_EQ(n[1].nx, 0.0f);
  EXPECT_EQ(n[1].ny, 1.0f);
  // Blue: |g|² = 5e-5 is flat.
  EXPECT_EQ(n[2].weight, 0.0f);
  EXPECT_EQ(n[2].nx, 0.0f);
  EXPECT_EQ(n[2].inv_length, 0.0f);
}

struct PortionCase {
  const char* name;
  float start;
  int ignored;  // of 100 samples
  float after;
  const char* log;
};

class PortionCoefficient : public ::testing::TestWithParam<PortionCase> {};

TEST_P(PortionCoefficient, AdaptsToTheShareOfIgnoredPixelsAndLogsIt) {
  const PortionCase& p = GetParam();
  std::ostringstream log;
  for (const bool extra : {false, true}) {
    log.str("");
    auto solver = extra ? tracking::MakeExtraSolver(TransformClass::Affine, &log)
                        : tracking::MakePrimarySolver(TransformClass::Affine, &log);
    std::vector<FlowSample> samples(100);
    std::vector<Colour> values(100, Colour{0, 0, 0, 0});
    for (size_t i = 0; i < samples.size(); ++i) {
      samples[i].x = uint32_t(10 + i % 10);
      samples[i].y = uint32_t(10 + i / 10);
      samples[i].limit = 1;
      // e² = 10000 is above any coefficient used here; e² = 0.25 is below.
      values[i][0] = int(i) < p.ignored ? 100.0f : 0.5f;
    }
    solver->resize_normals(samples.size());
    solver->set_portion(p.start);
    // E: each ignored sample adds its limit, the others their e².
    const double E = solver->residual(samples, values);
    EXPECT_DOUBLE_EQ(E, p.ignored * 1.0 + (100 - p.ignored) * 0.25);
    EXPECT_EQ(solver->portion(), p.after);
    EXPECT_EQ(log.str(), p.log);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Cases,
    PortionCoefficient,
    ::testing::Values(
        PortionCase{"OneStaysAtOne", 1, 1, 1, "(ignored pixels 1 / 100, 1%) "},
        PortionCase{"SixteenHalves", 16, 1, 8, "(ignored pixels 1 / 100, 1%, portion increased) "},
        PortionCase{"TwoHalvesToOne", 2, 0, 1, "(ignored pixels 0 / 100, 0%, portion increased) "},
        PortionCase{"ExactlyTwoPercentKeeps", 4, 2, 4, "(ignored pixels 2 / 100, 2%) "},
        PortionCase{"ExactlyTenPercentKeeps", 1, 10, 1, "(ignored pixels 10 / 100, 10%) "},
        PortionCase{"ElevenPercentDoubles", 1, 11, 2,
                    "(ignored pixels 11 / 100, 11%, portion decreased) "},
        PortionCase{"ThreeDigits", 8, 50, 16,
                    "(ignored pixels 50 / 100, 50%, portion decreased) "}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(PortionCoefficient, LogsThreeSignificantDigits) {
  std::ostringstream log;
  auto solver = tracking::MakePrimarySolver(TransformClass::Translation, &log);
  std::vector<FlowSample> samples(3);
  std::vector<Colour> values(3, Colour{0, 0, 0, 0});
  values[0][0] = 9;  // e² = 81 > limit 0
  solver->resize_normals(3);
  solver->residual(samples, values);
  EXPECT_EQ(log.str(), "(ignored pixels 1 / 3, 33.3%, portion decreased) ");
}

// All gradients along x: the aperture problem.
Constraints VerticalEdge(size_t n) {
  Constraints c = MakeConstraints(affine::translation(0.5, 0.5), n, 3);
  for (size_t i = 0; i < n; ++i)
    for (int ch = 0; ch < 3; ++ch) {
      c.gx[i][ch] = 10;
      c.gy[i][ch] = 0;
    }
  return c;
}

TEST(Aperture, StraightEdgeGivesTheIdentityForEveryModel) {
  const Constraints c = VerticalEdge(50);
  for (const TransformClass m : {TransformClass::Translation, TransformClass::Rigid,
                                 TransformClass::RigidScale, TransformClass::Affine}) {
    std::ostringstream log;
    auto solver = tracking::MakePrimarySolver(m, &log);
    Load(*solver, c);
    log.str("");
    solver->residual(c.samples, c.values);
    solver->find_amendment();
    EXPECT_EQ(solver->amendment(), affine::identity()) << solver->model_name();
    EXPECT_NE(log.str().find("found amendment:\n1 0 0 1 0 0\n"), std::string::npos) << log.str();
  }
}

TEST(IgnoredPixels, PrimarySolversVoteForNoChangeAndExtraSolversHaveNothing) {
  Constraints c = MakeConstraints(Rotation(1, 1.01, 1, 1), 200, 9);
  for (auto& s : c.samples) s.limit = 0;  // every colour error is too large
  for (const TransformClass m : {TransformClass::Translation, TransformClass::Rigid,
                                 TransformClass::RigidScale, TransformClass::Affine}) {
    auto primary = tracking::MakePrimarySolver(m, nullptr);
    Load(*primary, c);
    primary->residual(c.samples, c.values);
    primary->find_amendment();
    const affine& a = primary->amendment();
    EXPECT_NEAR(a.xx, 1, 1e-12);
    EXPECT_NEAR(a.xy, 0, 1e-12);
    EXPECT_NEAR(a.yx, 0, 1e-12);
    EXPECT_NEAR(a.yy, 1, 1e-12);
    EXPECT_NEAR(a.x, 0, 1e-9);
    EXPECT_NEAR(a.y, 0, 1e-9);

    auto extra = tracking::MakeExtraSolver(m, nullptr);
    Load(*extra, c);
    extra->residual(c.samples, c.values);
    extra->find_amendment();
    EXPECT_EQ(extra->amendment(), affine::identity());
  }
}

TEST(Compose, AppliesTheAmendmentFirst) {
  auto solver = tracking::MakePrimarySolver(TransformClass::Translation, nullptr);
  const Constraints c = MakeConstraints(affine::translation(1, 0), 100, 1);
  Load(*solver, c);
  solver->residual(c.samples, c.values);
  solver->find_amendment();
  affine t{0, 0, 2, 0, 0, 2};
  solver->compose(t);
  EXPECT_NEAR(t.x, 2, 1e-3);  // the shift is scaled by the transformation
  EXPECT_NEAR(t.y, 0, 1e-3);
}

}  // namespace
