// SPDX-License-Identifier: GPL-3.0-or-later
// The pixel-level refinement: its solvers, the measure's reading of the
// target, and whole refinements on generated pictures of known motion.
#include "tracking/optic_flow.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iomanip>
#include <ostream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/errors.h"
#include "imaging/float_image.h"
#include "imaging/synthetic_shot.h"
#include "motion.h"

namespace {

using tracking::Colour;
using tracking::FlowSample;
using tracking::OpticFlow;
using tracking::OpticFlowSolver;
using tracking_test::ExpectNear;
using tracking_test::Rotation;
using types::affine;
using enum TransformClass;

const affine kIdentity;
const TransformClass kModels[] = {Translation, Rigid, RigidScale, Affine};

// The measure's paths: all of them (wide vectors, two threads), one thread,
// and one thread on the baseline instruction set. Every one must give the
// plain reading's bits.
struct PathMode {
  const char* name;
  bool one_thread, baseline;
};
const PathMode kPathModes[] = {
    {"all paths", false, false}, {"one thread", true, false}, {"baseline", true, true}};

class UsePaths {
 public:
  explicit UsePaths(const PathMode& mode) {
    tracking::LimitOpticFlowToOneThread(mode.one_thread);
    tracking::LimitOpticFlowToBaseline(mode.baseline);
  }
  ~UsePaths() {
    tracking::LimitOpticFlowToOneThread(false);
    tracking::LimitOpticFlowToBaseline(false);
  }
  UsePaths(const UsePaths&) = delete;
  UsePaths& operator=(const UsePaths&) = delete;
};

std::unique_ptr<OpticFlowSolver> Make(bool extra, TransformClass model, std::ostream* log) {
  return extra ? tracking::MakeExtraSolver(model, log) : tracking::MakePrimarySolver(model, log);
}

// A procedural texture seen through `motion` (reference to this picture):
// pixel (x, y) shows the texture at motion⁻¹(x, y), plus `brightness` in
// every colour channel, clamped. Alpha is 255.
img::float_image RenderTexture(uint32_t width,
                               uint32_t height,
                               const affine& motion,
                               uint32_t seed = 7,
                               double brightness = 0) {
  const img::noise_texture texture{seed, 9.0};
  const affine back = motion.inverse();
  img::float_image out(width, height);
  for (uint32_t y = 0; y < height; ++y)
    for (uint32_t x = 0; x < width; ++x) {
      double u, v;
      uint8_t bgr[3];
      back.apply(x, y, u, v);
      texture.sample(u, v, bgr);
      float* p = img::pixel(out, x, y);
      for (int c = 0; c < 3; ++c) p[c] = float(std::clamp(bgr[c] + brightness, 0.0, 255.0));
      p[3] = 255;
    }
  return out;
}

// A mask with the rectangle [left, right) x [top, bottom) set.
img::bitmap<img::bit1> RectMask(
    uint32_t width, uint32_t height, uint32_t left, uint32_t top, uint32_t right, uint32_t bottom) {
  img::bitmap<img::bit1> m(width, height);
  for (uint32_t y = 0; y < height; ++y) {
    std::fill(m.rows[y], m.rows[y] + m.stride, 0);
    for (uint32_t x = left; y >= top && y < bottom && x < right; ++x)
      m.rows[y][x >> 3] |= uint8_t(0x80 >> (x & 7));
  }
  return m;
}

constexpr uint32_t kW = 160, kH = 128;
constexpr uint32_t kLeft = 40, kTop = 32, kRight = 120, kBottom = 96;

const img::float_image& Reference() {
  static const img::float_image picture = RenderTexture(kW, kH, kIdentity);
  return picture;
}

img::bitmap<img::bit1> Mask() {
  return RectMask(kW, kH, kLeft, kTop, kRight, kBottom);
}

bool Init(OpticFlow& flow, TransformClass model, bool intensive = false) {
  return flow.initialise(kIdentity, Reference(), Mask(), model, intensive);
}

// `m` about the mask's centre.
affine AboutCentre(const affine& m) {
  const double cx = (kLeft + kRight) / 2.0, cy = (kTop + kBottom) / 2.0;
  return affine::translation(cx, cy) * m * affine::translation(-cx, -cy);
}

// The largest distance between the images of the mask's corners.
double CornerError(const affine& a, const affine& b) {
  double worst = 0, ax, ay, bx, by;
  for (const double x : {kLeft, kRight - 1})
    for (const double y : {kTop, kBottom - 1}) {
      a.apply(x, y, ax, ay);
      b.apply(x, y, bx, by);
      worst = std::max(worst, std::hypot(ax - bx, ay - by));
    }
  return worst;
}

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
  Constraints c{std::vector<FlowSample>(n), decltype(c.gx)(n), decltype(c.gy)(n),
                std::vector<Colour>(n)};
  for (size_t i = 0; i < n; ++i) {
    // A huge limit: nothing is ignored.
    const FlowSample& s = c.samples[i] = {{100, 110, 120, 255}, 1e12f, pos(rng), pos(rng)};
    double qx, qy;
    m.apply(s.x, s.y, qx, qy);
    c.values[i] = s.colour;
    for (int ch = 0; ch < 3; ++ch) {
      c.gx[i][ch] = grad(rng);
      c.gy[i][ch] = grad(rng);
      c.values[i][ch] = float(s.colour[ch] - (c.gx[i][ch] * (qx - s.x) + c.gy[i][ch] * (qy - s.y)));
    }
  }
  return c;
}

// One full step: normals, matrix, residuals, amendment.
const affine& Solve(OpticFlowSolver& solver, const Constraints& c) {
  solver.resize_normals(c.samples.size());
  for (size_t i = 0; i < c.samples.size(); ++i)
    solver.set_normals(i, c.samples[i].x, c.samples[i].y, c.samples[i], c.gx[i].data(),
                       c.gy[i].data());
  solver.prepare(c.samples);
  solver.residual(c.samples, c.values);
  solver.find_amendment();
  return solver.amendment();
}

// Consistent constraints have the motion itself as their least-squares
// solution; the primary solvers find it in one step.
TEST(Solver, RecoversKnownMotionFromConsistentConstraints) {
  const struct {
    const char* name;
    affine motion;
    double matrix_tol, shift_tol;
  } cases[] = {{"translation", affine::translation(0.7, -0.4), 0, 1e-4},
               {"rigid", Rotation(0.8, 1, 2.5, -1.5), 1e-6, 1e-3},
               {"rigid+scale", Rotation(-0.6, 1.01, -1, 3), 1e-6, 1e-3},
               {"affine", affine{0.5, 0.25, 1.004, 0.003, -0.002, 0.997}, 1e-6, 1e-3}};
  for (size_t m = 0; m < 4; ++m) {
    SCOPED_TRACE(cases[m].name);
    auto solver = Make(false, kModels[m], nullptr);
    EXPECT_EQ(solver->model_name(), cases[m].name);
    EXPECT_EQ(Make(true, kModels[m], nullptr)->model_name(), cases[m].name);
    const affine a = Solve(*solver, MakeConstraints(cases[m].motion, 400, 5));
    ExpectNear(a, cases[m].motion, cases[m].matrix_tol, cases[m].shift_tol);
    if (kModels[m] == Rigid) {
      EXPECT_NEAR(a.xx * a.xx + a.yx * a.yx, 1, 1e-15);
    }
    // The amendment acts first, in reference coordinates.
    affine t{0, 0, 2, 0, 0, 2};
    solver->compose(t);
    EXPECT_EQ(t, (affine{0, 0, 2, 0, 0, 2} * a));
  }
  EXPECT_EQ(Make(false, Affine1, nullptr), nullptr);
  EXPECT_EQ(Make(true, Affine1, nullptr), nullptr);
}

TEST(Solver, DegenerateSystemsGiveTheIdentity) {
  // All gradients along x: the aperture problem.
  Constraints edge = MakeConstraints(affine::translation(0.5, 0.5), 50, 3);
  for (auto& g : edge.gx) g = {10, 10, 10, 0};
  for (auto& g : edge.gy) g = {};
  // Every colour error too large: primary solvers vote for no change, extra
  // solvers have nothing left to fit.
  Constraints ignored = MakeConstraints(Rotation(1, 1.01, 1, 1), 200, 9);
  for (auto& s : ignored.samples) s.limit = 0;
  // |g|² of 5e-5 or 4.9e-5 in every channel: flat places carry no weight.
  Constraints flat = MakeConstraints(affine::translation(0.5, 0.5), 50, 3);
  for (auto& g : flat.gx) g = {0.005f, 0.007f, 0, 0};
  for (auto& g : flat.gy) g = {0.005f, 0, 0.007f, 0};
  for (const TransformClass m : kModels) {
    std::ostringstream log;
    EXPECT_EQ(Solve(*Make(false, m, &log), edge), affine::identity()) << int(m);
    EXPECT_NE(log.str().find("found amendment:\n1 0 0 1 0 0\n"), std::string::npos) << log.str();
    EXPECT_EQ(Solve(*Make(false, m, nullptr), flat), affine::identity()) << int(m);
    ExpectNear(Solve(*Make(false, m, nullptr), ignored), affine::identity(), 1e-12, 1e-9);
    EXPECT_EQ(Solve(*Make(true, m, nullptr), ignored), affine::identity()) << int(m);
  }
}

TEST(PortionCoefficient, AdaptsToTheShareOfIgnoredPixelsAndLogsIt) {
  const struct {
    float start;
    int samples, ignored;
    float after;
    const char* log;
  } cases[] = {{1, 100, 1, 1, "(ignored pixels 1 / 100, 1%) "},
               {16, 100, 1, 8, "(ignored pixels 1 / 100, 1%, portion increased) "},
               {4, 100, 2, 4, "(ignored pixels 2 / 100, 2%) "},
               {1, 100, 10, 1, "(ignored pixels 10 / 100, 10%) "},
               {1, 100, 11, 2, "(ignored pixels 11 / 100, 11%, portion decreased) "},
               {2, 3, 1, 4, "(ignored pixels 1 / 3, 33.3%, portion decreased) "}};
  for (const auto& c : cases)
    for (const bool extra : {false, true}) {
      SCOPED_TRACE(c.log);
      std::ostringstream log;
      auto solver = Make(extra, Affine, &log);
      std::vector<FlowSample> samples(c.samples);
      std::vector<Colour> values(c.samples, Colour{0, 0, 0, 0});
      for (int i = 0; i < c.samples; ++i) {
        samples[i] = {{}, 1, uint32_t(10 + i % 10), uint32_t(10 + i / 10)};
        // e² = 10000 is above any coefficient used here; e² = 0.25 is below.
        values[i][0] = i < c.ignored ? 100.0f : 0.5f;
      }
      solver->resize_normals(samples.size());
      solver->set_portion(c.start);
      // E: each ignored sample adds its limit, the others their e².
      EXPECT_DOUBLE_EQ(solver->residual(samples, values),
                       c.ignored * 1.0 + (c.samples - c.ignored) * 0.25);
      EXPECT_EQ(solver->portion(), c.after);
      EXPECT_EQ(log.str(), c.log);
    }
}

struct FlowCase {
  const char* name;
  TransformClass model;
  affine truth, start;                      // start: the candidate handed in
  double max_error = 0.05, brightness = 0;  // brightness: added to the target
};

void PrintTo(const FlowCase& c, std::ostream* out) {
  *out << c.name;
}

const affine kOff = affine::translation(0.8, -0.6);
const FlowCase kFlowCases[] = {
    {"Translation", Translation, affine::translation(1.6, -0.9),
     kOff* affine::translation(1.6, -0.9)},
    {"Rigid", Rigid, AboutCentre(Rotation(1.5, 1, 0.8, 0.5)),
     kOff* AboutCentre(Rotation(0.5, 1, 0.8, 0.5))},
    {"RigidScale", RigidScale, AboutCentre(Rotation(-1, 1.02, -0.4, 0.7)),
     kOff* AboutCentre(Rotation(-1, 1, -0.4, 0.7))},
    {"Affine", Affine, AboutCentre({0.3, 0.2, 1.015, -0.002, 0.012, 0.985}),
     kOff* affine::translation(0.3, 0.2)},
    // The adaptive threshold must tolerate a change of brightness.
    {"BrighterTarget", Translation, affine::translation(1.3, 0.4), kIdentity, 0.25, 12}};

// Each case with and without the extra solver ("intensive").
class RefinesCandidate : public ::testing::TestWithParam<std::tuple<FlowCase, bool>> {};

TEST_P(RefinesCandidate, ToWithinASmallCornerError) {
  const auto& [p, intensive] = GetParam();
  const img::float_image target = RenderTexture(kW, kH, p.truth, 7, p.brightness);
  OpticFlow flow;
  ASSERT_TRUE(Init(flow, p.model, intensive));
  flow.set(p.start, -1);
  const double before = flow.measure(target, nullptr);
  flow.set(p.start, -1);
  if (intensive)
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

INSTANTIATE_TEST_SUITE_P(Models,
                         RefinesCandidate,
                         ::testing::Combine(::testing::ValuesIn(kFlowCases), ::testing::Bool()),
                         [](const auto& info) {
                           return std::string(std::get<1>(info.param) ? "Intensive" : "") +
                                  std::get<0>(info.param).name;
                         });

TEST(OpticFlow, InitialiseKeepsTheMarginAndRefusesUnusableInput) {
  OpticFlow flow;
  const auto init = [&](const img::float_image& picture, const img::bitmap<img::bit1>& mask,
                        const affine& t = kIdentity) {
    return flow.initialise(t, picture, mask, Affine, false);
  };
  // 11 pixels leave no room for the margins; 12 leave exactly one column.
  EXPECT_FALSE(init(RenderTexture(11, 11, kIdentity), RectMask(11, 11, 0, 0, 11, 11)));
  ASSERT_TRUE(init(RenderTexture(12, 12, kIdentity), RectMask(12, 12, 0, 0, 12, 12)));
  ASSERT_EQ(flow.samples().size(), 1u);
  EXPECT_EQ(flow.samples()[0].x, 5u);
  EXPECT_EQ(flow.samples()[0].y, 5u);
  // An empty mask, or one only on the border columns, has no usable pixel.
  EXPECT_FALSE(init(Reference(), RectMask(kW, kH, 0, 0, 0, 0)));
  EXPECT_EQ(flow.solver(), nullptr);
  EXPECT_FALSE(init(Reference(), RectMask(kW, kH, 0, 0, 5, kH)));

  const img::float_image picture = RenderTexture(40, 30, kIdentity);
  ASSERT_TRUE(init(picture, RectMask(40, 30, 0, 0, 40, 30), affine::translation(-10, 3)));
  // u = x - 10 in [5, 34) and v = y + 3 in [5, 24): x in [15, 39), y in [2, 21).
  EXPECT_EQ(flow.samples().size(), size_t(39 - 15) * (21 - 2));
  for (const auto& s : flow.samples())
    EXPECT_TRUE(s.x >= 15 && s.x < 39 && s.y >= 2 && s.y < 21) << s.x << " " << s.y;
  EXPECT_EQ(flow.transformation(), affine::translation(-10, 3));
  EXPECT_LT(flow.discrepancy(), 0);
  // Mask and target must have the reference's size.
  EXPECT_THROW(init(picture, RectMask(41, 30, 0, 0, 4, 4)), xtd::exception);
  ASSERT_TRUE(init(picture, RectMask(40, 30, 10, 10, 20, 20)));
  EXPECT_THROW(flow.measure(RenderTexture(40, 31, kIdentity), nullptr), xtd::exception);
}

TEST(OpticFlow, AllSamplesOutOfThePictureMeasureInfinite) {
  OpticFlow flow;
  ASSERT_TRUE(Init(flow, Affine));
  flow.set(affine::translation(1000, 0), -1);
  EXPECT_EQ(flow.measure(Reference(), nullptr), INFINITY);
  // A black comparison suggests no step that would bring samples back.
  flow.optimise_once(Reference(), 3, nullptr);
  EXPECT_FALSE(flow.discrepancy() < INFINITY);
}

TEST(OpticFlow, FlatPictureLogsTheUntouchedStateAndEndsAfterFiveFailures) {
  const img::float_image flat = RenderTexture(60, 50, kIdentity, 7, -255);
  std::ostringstream log;
  OpticFlow flow(&log);
  ASSERT_TRUE(
      flow.initialise(kIdentity, flat, RectMask(60, 50, 10, 10, 40, 30), Translation, false));
  const affine start = affine::translation(0.5, 0.25);
  flow.set(start, -1);
  flow.optimise_once(flat, 0, nullptr);
  volatile double zero = 0;  // a perfect candidate: the gain is 0 / 0
  std::ostringstream gain;
  gain << std::setprecision(3) << "discrepancy lowering gain: 0 (" << 100 * (zero - zero) / zero;
  EXPECT_EQ(log.str(),
            "Initial discrepancy is (ignored pixels 0 / 600, 0%) 0\n"
            "best transformation (from iteration -1) with discrepancy 0 is\n"
            "1 0 0 1 0.5 0.25\n" +
                gain.str() + "%)\noverall amendment:\n1 0 0 1 0 0\n");

  log.str("");
  flow.set(start, -1);
  flow.optimise_once(flat, 20, nullptr);
  EXPECT_EQ(flow.transformation(), start);
  EXPECT_EQ(flow.discrepancy(), 0);
  const std::string text = log.str();
  EXPECT_NE(text.find("iteration #4, found amendment:\n1 0 0 1 0 0\ncorrected transformation with "
                      "discrepancy (ignored pixels 0 / 600, 0%) 0 is\n1 0 0 1 0.5 0.25\n"),
            std::string::npos)
      << text;
  EXPECT_EQ(text.find("iteration #5"), std::string::npos);
  EXPECT_NE(text.find("best transformation (from iteration -1) with discrepancy 0 is\n"),
            std::string::npos);
}

struct Recorder : tracking::StageTimer {
  std::string events;
  void enter(std::string_view stage) override { (events += '+') += stage; }
  void leave() override { events += '-'; }
};

TEST(OpticFlow, OptimiseSwitchesToTheExtraSolverAndTimesItsStages) {
  const affine truth = affine::translation(0.6, 0.3);
  std::ostringstream log;
  OpticFlow flow(&log);
  ASSERT_TRUE(Init(flow, RigidScale, true));
  Recorder timer;
  flow.optimise(RenderTexture(kW, kH, truth), 1, &timer);
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
  const std::string measure = "+discrepancy calculating+bilinear diff.-+setting rhs--";
  EXPECT_EQ(timer.events, "+optic flow optimizing" + measure + measure +
                              "-+optic flow optimizing (extra solver)" + measure + measure + "-");
  // Swapped back: the primary solver is in front again.
  EXPECT_EQ(flow.solver()->model_name(), "rigid+scale");
  EXPECT_LT(CornerError(flow.transformation(), truth), 0.1);
}

TEST(OpticFlow, PortionCoefficientCarriesOverToTheNextReferenceFrame) {
  const img::float_image unrelated = RenderTexture(kW, kH, kIdentity, 99);
  std::ostringstream log;
  OpticFlow flow(&log);
  ASSERT_TRUE(Init(flow, Affine));
  EXPECT_EQ(log.str(), "");
  for (int i = 0; i < 3; ++i) flow.measure(unrelated, nullptr);  // most pixels ignored: 1 -> 8
  log.str("");
  ASSERT_TRUE(Init(flow, Affine));
  EXPECT_EQ(log.str(), "initial portion coefficient: 8\n");
  EXPECT_EQ(flow.solver()->portion(), 8.0f);
  OpticFlow fresh;
  ASSERT_TRUE(Init(fresh, Affine));
  EXPECT_EQ(fresh.solver()->portion(), 1.0f);
}

TEST(OpticFlow, ModelWithoutSolverMeasuresZeroAndRefinesNothing) {
  std::ostringstream log;
  OpticFlow flow(&log);
  ASSERT_TRUE(Init(flow, Affine1, true));
  flow.set(affine::translation(3, 0), -1);
  EXPECT_EQ(flow.measure(Reference(), nullptr), 0);
  flow.optimise(Reference(), 5, nullptr);
  EXPECT_EQ(flow.transformation(), affine::translation(3, 0));
  EXPECT_EQ(log.str(), "");
}

// The measure's reading written plainly, one channel at a time, must give
// the bits of the vector path. Left and top are outside below 0, right
// beyond width - 1, bottom from height - 1 on; outside reads black.
TEST(SampleTarget, GivesTheBitsOfThePlainReadingUpToTheEdges) {
  const img::float_image& target = Reference();
  // Every pixel: enough samples for the split between threads. Three more
  // make a count that is no multiple of the vector width, with coordinates
  // past 2^31 that must stay unsigned.
  std::vector<FlowSample> samples;
  for (uint32_t y = 0; y < kH; ++y)
    for (uint32_t x = 0; x < kW; ++x) samples.push_back({{}, 0, x, y});
  for (const uint32_t far : {0x80000000u, 0xfffffff0u, 7u})
    samples.push_back({{}, 0, far, far == 7 ? 0xfffffff0u : 9u});
  std::mt19937 rng(17);
  std::uniform_real_distribution<double> shift(-30, 30), lin(-0.05, 0.05);
  for (int trial = 0; trial < 40; ++trial) {
    affine t{shift(rng), shift(rng), 1 + lin(rng), lin(rng), lin(rng), 1 + lin(rng)};
    // Whole and quarter shifts put samples exactly on the last row and column.
    if (trial % 4 == 0) t = affine::translation(std::round(t.x), std::round(t.y));
    if (trial % 4 == 1) t = affine::translation(std::round(t.x * 4) / 4, std::round(t.y * 4) / 4);
    std::vector<Colour> fast(samples.size()), plain(samples.size());
    size_t inside = 0;
    for (size_t i = 0; i < samples.size(); ++i) {
      double u, v;
      t.apply(samples[i].x, samples[i].y, u, v);
      const float us = float(u + 0.5) - 0.5f, vs = float(v + 0.5) - 0.5f;
      if (us < 0 || us > float(kW - 1) || vs < 0 || vs >= float(kH - 1)) continue;
      const uint32_t col = uint32_t(us), row = uint32_t(vs), col1 = std::min(col + 1, kW - 1);
      const float fx = us - float(col), fy = vs - float(row);
      for (int c = 0; c < 4; ++c) {
        float sum = (1 - fx) * (1 - fy) * img::pixel(target, col, row)[c];
        sum = sum + fx * (1 - fy) * img::pixel(target, col1, row)[c];
        sum = sum + (1 - fx) * fy * img::pixel(target, col, row + 1)[c];
        plain[i][c] = sum + fx * fy * img::pixel(target, col1, row + 1)[c];
      }
      ++inside;
    }
    for (const PathMode& mode : kPathModes) {
      const UsePaths paths(mode);
      // Garbage first: a sample outside must be written black, not skipped.
      std::memset(fast.data(), 0xff, fast.size() * sizeof(Colour));
      ASSERT_EQ(tracking::SampleTarget(target, t, samples, fast), inside) << mode.name << " " << t;
      ASSERT_EQ(std::memcmp(fast.data(), plain.data(), fast.size() * sizeof(Colour)), 0)
          << mode.name << " " << t;
    }
  }
}

// The primary residual written plainly, one sample and one channel at a
// time: the right side and E of every path must have its bits. Flat
// channels (no weight) and ignored samples are mixed in.
TEST(Solver, ResidualGivesTheBitsOfThePlainSums) {
  const size_t n = 5003;
  Constraints c = MakeConstraints(affine::translation(0.2, 0.1), n, 31);
  std::mt19937 rng(8);
  std::uniform_real_distribution<float> noise(-9, 9), limit(0, 800);
  for (size_t i = 0; i < n; ++i) {
    c.samples[i].limit = limit(rng);
    for (int ch = 0; ch < 4; ++ch) c.values[i][ch] += noise(rng);
    if (i % 7 == 0) c.gx[i][i % 3] = c.gy[i][i % 3] = 0;  // one flat channel
    if (i % 11 == 0) c.gx[i] = c.gy[i] = {};              // a flat pixel
  }
  for (const TransformClass model : kModels) {
    auto solver = Make(false, model, nullptr);
    solver->resize_normals(n);
    for (size_t i = 0; i < n; ++i)
      solver->set_normals(i, c.samples[i].x, c.samples[i].y, c.samples[i], c.gx[i].data(),
                          c.gy[i].data());
    solver->prepare(c.samples);
    const auto normals = solver->normals();
    for (const float coefficient : {1.0f, 4.0f}) {
      std::vector<double> g(6, 0.0);
      double E = 0;
      size_t ignored = 0;
      for (size_t i = 0; i < n; ++i) {
        const FlowSample& s = c.samples[i];
        float d[4];
        for (int ch = 0; ch < 4; ++ch) d[ch] = c.values[i][ch] - s.colour[ch];
        float e2 = d[0] * d[0];
        e2 = e2 + d[1] * d[1];
        e2 = e2 + d[2] * d[2];
        e2 = e2 + d[3] * d[3];
        if (e2 > s.limit * coefficient) {
          ++ignored;
          d[0] = d[1] = d[2] = 0;
        }
        const double x = s.x, y = s.y;
        for (size_t k = 0; k < 3; ++k) {
          const auto& nk = normals[3 * i + k];
          if (!(nk.weight > 0)) continue;
          const double nx = nk.nx, ny = nk.ny;
          const double r = (nx * x + ny * y) - double(d[2 - k]) * double(nk.inv_length);
          const double f = double(nk.weight) * r;
          double row[6] = {nx, ny};
          if (model == Affine) {
            row[2] = nx * x, row[3] = nx * y, row[4] = ny * x, row[5] = ny * y;
          } else if (model != Translation) {
            row[2] = nx * x + ny * y, row[3] = x * ny - y * nx;
          }
          for (size_t j = 0; j < 6; ++j) g[j] = g[j] + f * row[j];
        }
        E = E + double(e2 < s.limit ? e2 : s.limit);
      }
      ASSERT_GT(ignored, n / 50);
      ASSERT_LT(ignored, n / 2);
      for (const PathMode& mode : kPathModes) {
        SCOPED_TRACE(std::string(mode.name) + ", model " + std::to_string(int(model)));
        const UsePaths paths(mode);
        solver->set_portion(coefficient);
        EXPECT_EQ(solver->residual(c.samples, c.values), E);
        const auto right = solver->right_side();
        ASSERT_EQ(right.size(), solver->model_name() == "translation" ? 2u
                                : solver->model_name() == "affine"    ? 6u
                                                                      : 4u);
        EXPECT_EQ(std::memcmp(right.data(), g.data(), right.size() * sizeof(double)), 0);
      }
    }
    EXPECT_TRUE(Make(true, model, nullptr)->right_side().empty());
  }
}

// Whole refinements pinned bit for bit: every transformation, discrepancy,
// amendment, portion coefficient and log text of these runs was captured
// from the plain one-sample-at-a-time implementation, and any faster path
// must reproduce them exactly. The pictures are large enough for the split
// of the samples between threads; they include noise, a covered area that
// trips the adaptive threshold, samples that leave the picture, and a
// plate over a background that moves otherwise.
struct PinnedScene {
  const char* name;
  img::float_image reference, target;
  img::bitmap<img::bit1> mask;
  affine start, other;  // the candidate refined; another one measured in between
};

uint64_t Fnv(uint64_t h, const void* data, size_t size) {
  const auto* p = static_cast<const unsigned char*>(data);
  for (size_t i = 0; i < size; ++i) h = (h ^ p[i]) * 0x100000001b3ull;
  return h;
}

// Collects the bits of every result, and their text for a failure message.
struct Digest {
  uint64_t hash = 0xcbf29ce484222325ull;
  std::string text;
  void add(double v) {
    hash = Fnv(hash, &v, sizeof v);
    char buf[40];
    std::snprintf(buf, sizeof buf, "%a ", v);
    text += buf;
  }
  void add(const affine& a) {
    for (const double v : {a.x, a.y, a.xx, a.xy, a.yx, a.yy}) add(v);
    text += "| ";
  }
  void add(const std::string& log) { hash = Fnv(hash, log.data(), log.size()); }
};

std::vector<PinnedScene> PinnedScenes() {
  std::vector<PinnedScene> scenes;
  constexpr uint32_t W = 256, H = 192;
  const auto centred = [](const affine& m) {
    return affine::translation(128, 96) * m * affine::translation(-128, -96);
  };
  {
    const affine truth = centred(Rotation(0.8, 1.01, 1.3, -0.7));
    PinnedScene s{"NoiseAndCover",
                  RenderTexture(W, H, kIdentity),
                  RenderTexture(W, H, truth),
                  RectMask(W, H, 40, 30, 216, 162),
                  affine::translation(0.6, -0.3) * truth,
                  affine::translation(-0.4, 0.5) * truth};
    // Noise on every colour, and a patch of another texture over a fifth
    // of the mask.
    std::mt19937 rng(23);
    std::uniform_real_distribution<float> noise(-4, 4);
    const img::float_image cover = RenderTexture(W, H, kIdentity, 99);
    for (uint32_t y = 0; y < H; ++y)
      for (uint32_t x = 0; x < W; ++x) {
        float* p = img::pixel(s.target, x, y);
        if (x >= 60 && x < 130 && y >= 40 && y < 110) std::copy_n(img::pixel(cover, x, y), 3, p);
        for (int c = 0; c < 3; ++c) p[c] = std::clamp(p[c] + noise(rng), 0.0f, 255.0f);
      }
    scenes.push_back(std::move(s));
  }
  {
    // The right and bottom of the mask leave the picture.
    const affine truth = affine::translation(45.4, 34.7);
    scenes.push_back({"LeavesThePicture", RenderTexture(W, H, kIdentity),
                      RenderTexture(W, H, truth), RectMask(W, H, 40, 30, 216, 162),
                      affine::translation(44.9, 35.2), affine::translation(46, 34)});
  }
  {
    img::synthetic_shot shot;
    shot.width = 320;
    shot.height = 240;
    shot.plate_left = 100;
    shot.plate_top = 70;
    shot.plate_width = 120;
    shot.plate_height = 100;
    shot.key_frame = 0;
    img::image frame;
    PinnedScene s{"PlateOverBackground", {}, {}, RectMask(320, 240, 90, 60, 232, 182), {}, {}};
    shot.render(0, frame);
    img::convert_to_float(s.reference, frame);
    shot.render(3, frame);
    img::convert_to_float(s.target, frame);
    s.start = affine::translation(-0.5, 0.4) * shot.plate_motion(3);
    s.other = affine::translation(0.7, 0.2) * shot.plate_motion(3);
    scenes.push_back(std::move(s));
  }
  return scenes;
}

// Refines the start, then measures the other candidate and refines the
// start again from the right side that measure left (as the frame loop
// does), on a second reference frame that inherits the portion
// coefficient.
Digest RunPinned(const PinnedScene& s, TransformClass model, bool intensive) {
  Digest d;
  std::ostringstream log;
  OpticFlow flow(&log);
  EXPECT_TRUE(flow.initialise(kIdentity, s.reference, s.mask, model, intensive));
  d.add(double(flow.samples().size()));
  flow.set(s.start, -1);
  d.add(flow.measure(s.target, nullptr));
  flow.set(s.start, -1);
  flow.optimise(s.target, 15, nullptr);
  d.add(flow.transformation());
  d.add(flow.amendment());
  d.add(flow.discrepancy());
  const double best = flow.discrepancy();
  const affine refined = flow.transformation();
  if (flow.solver()) d.add(double(flow.solver()->portion()));
  d.add(flow.measure(s.target, nullptr));
  flow.set(s.other, -1);
  d.add(flow.measure(s.target, nullptr));
  flow.set(s.start, best);
  flow.optimise_once(s.target, 15, nullptr);
  d.add(flow.transformation());
  d.add(flow.discrepancy());
  // The target becomes the next reference frame.
  EXPECT_TRUE(flow.initialise(kIdentity, s.target, s.mask, model, intensive));
  flow.set(refined.inverse(), -1);
  flow.optimise(s.reference, 15, nullptr);
  d.add(flow.transformation());
  d.add(flow.discrepancy());
  if (flow.solver()) d.add(double(flow.solver()->portion()));
  d.add(log.str());
  return d;
}

TEST(OpticFlow, RefinementsGiveThePinnedBits) {
  const struct {
    TransformClass model;
    bool intensive;
    uint64_t digest[3];  // one per scene
  } cases[] = {
      {Translation, false, {0x2b6404b574d01df1ull, 0x24babfff6cf20352ull, 0x69fc44860b759a82ull}},
      {Translation, true, {0x671d6cce97ef3a6cull, 0x34aa93f22f3a763eull, 0x43a4f312515bf90full}},
      {Rigid, false, {0x6d43ba5220079bf9ull, 0xb2ec91eb62e5a415ull, 0x7d9dc488d95b86a1ull}},
      {Rigid, true, {0x9863093b9bc17ae7ull, 0xa28e688af3d68e18ull, 0x4022de52aa3a649aull}},
      {RigidScale, false, {0x84a49fc58a971520ull, 0x699ee7595c9c01b0ull, 0x30b48c91db6af66eull}},
      {RigidScale, true, {0x1e978d151ac1a15ull, 0x69f816644466864aull, 0xe22225f46694043eull}},
      {Affine, false, {0xaf0c8ccb1bfcbb32ull, 0x796a535e512c4207ull, 0xdb08f34884958d4eull}},
      {Affine, true, {0x73c252b1cae2a8aull, 0x9524c2cb0112b8d1ull, 0x304513a6f76bb20dull}},
      {Affine1, true, {0xabb2f035a52a4982ull, 0x8265a090b522b9eeull, 0xe01f4f646f947749ull}},
  };
  const std::vector<PinnedScene> scenes = PinnedScenes();
  for (const PathMode& mode : kPathModes) {
    const UsePaths paths(mode);
    for (const auto& c : cases)
      for (size_t i = 0; i < scenes.size(); ++i) {
        const Digest d = RunPinned(scenes[i], c.model, c.intensive);
        EXPECT_EQ(d.hash, c.digest[i])
            << mode.name << ", " << scenes[i].name << ", model " << int(c.model)
            << (c.intensive ? ", intensive" : "") << ": 0x" << std::hex << d.hash << "\n"
            << d.text;
      }
  }
}

}  // namespace
