#include "tracking/polynomial.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tracking/unit_circle.h"

namespace {

using tracking::RealRoots;

std::vector<double> Sorted(const RealRoots& r) {
  std::vector<double> v(r.begin(), r.end());
  std::sort(v.begin(), v.end());
  return v;
}

// Coefficients of the monic polynomial with the given roots, highest first
// (the leading 1 left out).
std::vector<double> FromRoots(const std::vector<double>& roots) {
  std::vector<double> c{1};
  for (const double r : roots) {
    std::vector<double> next(c.size() + 1, 0);
    for (size_t i = 0; i < c.size(); ++i) {
      next[i] += c[i];
      next[i + 1] -= r * c[i];
    }
    c = next;
  }
  return {c.begin() + 1, c.end()};
}

void ExpectRoots(const std::vector<double>& got, const std::vector<double>& expected, double tol) {
  ASSERT_EQ(got.size(), expected.size());
  for (size_t i = 0; i < got.size(); ++i) EXPECT_NEAR(got[i], expected[i], tol) << i;
}

struct RootCase {
  const char* name;
  std::vector<double> roots;  // the real roots, sorted
  std::vector<double> extra;  // factors x² + extra[0] x + extra[1] without real roots
  double tol;
};

class Cubic : public ::testing::TestWithParam<RootCase> {};

TEST_P(Cubic, FindsTheKnownRoots) {
  std::vector<double> c;
  if (GetParam().extra.empty()) {
    c = FromRoots(GetParam().roots);
  } else {  // (x - r)(x² + p x + q)
    const double r = GetParam().roots[0], p = GetParam().extra[0], q = GetParam().extra[1];
    c = {p - r, q - r * p, -r * q};
  }
  ExpectRoots(Sorted(tracking::SolveCubic(c[0], c[1], c[2])), GetParam().roots, GetParam().tol);
}

INSTANTIATE_TEST_SUITE_P(Cases,
                         Cubic,
                         ::testing::Values(RootCase{"Distinct", {1, 2, 3}, {}, 1e-12},
                                           RootCase{"MixedSigns", {-4, 0.5, 7}, {}, 1e-12},
                                           RootCase{"DoubleRoot", {-1, 2, 2}, {}, 1e-7},
                                           RootCase{"TripleRoot", {1.5, 1.5, 1.5}, {}, 1e-12},
                                           RootCase{"OneReal", {2}, {1, 1}, 1e-12},
                                           RootCase{"OneRealLarge", {-3e4}, {0, 5}, 1e-8}),
                         [](const auto& info) { return std::string(info.param.name); });

class Quartic : public ::testing::TestWithParam<RootCase> {};

TEST_P(Quartic, FindsTheKnownRoots) {
  std::vector<double> c = FromRoots(GetParam().roots);
  for (size_t k = 0; k + 1 < GetParam().extra.size(); k += 2) {
    // Multiply by x² + p x + q.
    const double p = GetParam().extra[k], q = GetParam().extra[k + 1];
    std::vector<double> full{1};
    full.insert(full.end(), c.begin(), c.end());
    std::vector<double> next(full.size() + 2, 0);
    for (size_t i = 0; i < full.size(); ++i) {
      next[i] += full[i];
      next[i + 1] += p * full[i];
      next[i + 2] += q * full[i];
    }
    c.assign(next.begin() + 1, next.end());
  }
  ASSERT_EQ(c.size(), 4u);
  ExpectRoots(Sorted(tracking::SolveQuartic(c[0], c[1], c[2], c[3])), GetParam().roots,
              GetParam().tol);
}

INSTANTIATE_TEST_SUITE_P(Cases,
                         Quartic,
                         ::testing::Values(RootCase{"Distinct", {1, 2, 3, 4}, {}, 1e-9},
                                           RootCase{"MixedSigns", {-3, -1, 2, 5}, {}, 1e-9},
                                           RootCase{"Biquadratic", {-2, -1, 1, 2}, {}, 1e-12},
                                           RootCase{"TwoDoubleRoots", {1, 1, 2, 2}, {}, 1e-6},
                                           RootCase{"TwoRealOneComplexPair", {-2, 1}, {0, 1}, 1e-9},
                                           RootCase{"NoRealRoot", {}, {0, 1, 2, 5}, 0},
                                           RootCase{
                                               "LargeScale", {-2e5, -1e5, 3e5, 4e5}, {}, 1e-4}),
                         [](const auto& info) { return std::string(info.param.name); });

double Form(double s00, double s01, double s11, double b0, double b1, double x, double y) {
  return s00 * x * x + 2 * s01 * x * y + s11 * y * y - 2 * (b0 * x + b1 * y);
}

TEST(UnitCircle, MatchesADenseSearchOfTheCircle) {
  struct Case {
    double s00, s01, s11, b0, b1;
  };
  const Case cases[] = {{4, 1, 3, 2, -1},      {1e9, 2e8, 5e8, 1e9, 3e8}, {2, 0, 2, 0.1, 0.2},
                        {5, -2, 1.5, -3, 0.5}, {7, 0, 1, 0.01, 4},        {3, 1, 3, -4, -4}};
  for (const Case& c : cases) {
    double w[2];
    ASSERT_TRUE(tracking::MinimiseOnUnitCircle(c.s00, c.s01, c.s11, c.b0, c.b1, w));
    EXPECT_NEAR(std::hypot(w[0], w[1]), 1, 1e-9);
    double best = INFINITY;
    for (int i = 0; i < 200000; ++i) {
      const double a = 2 * std::numbers::pi * i / 200000;
      best = std::min(best, Form(c.s00, c.s01, c.s11, c.b0, c.b1, std::cos(a), std::sin(a)));
    }
    const double got = Form(c.s00, c.s01, c.s11, c.b0, c.b1, w[0], w[1]);
    EXPECT_LE(got, best + 1e-9 * std::max(1.0, std::fabs(best))) << c.s00 << " " << c.b0;
  }
}

TEST(UnitCircle, UnconstrainedMinimumOnTheCircleIsFoundExactly) {
  // b = S w* with |w*| = 1: the constrained minimum is w* itself.
  const double s00 = 3e6, s01 = -4e5, s11 = 1e6, angle = 0.3;
  const double wx = std::cos(angle), wy = std::sin(angle);
  double w[2];
  ASSERT_TRUE(
      tracking::MinimiseOnUnitCircle(s00, s01, s11, s00 * wx + s01 * wy, s01 * wx + s11 * wy, w));
  EXPECT_NEAR(std::atan2(w[1], w[0]), angle, 1e-12);
}

}  // namespace
