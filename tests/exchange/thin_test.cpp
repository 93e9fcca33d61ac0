#include "exchange/thin.h"

#include <array>
#include <cmath>
#include <functional>
#include <numbers>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

ValueKeys Values(const std::vector<double>& values, const std::vector<int>& frames = {}) {
  ValueKeys keys;
  for (size_t i = 0; i < values.size(); ++i)
    keys.push_back({values[i], frames.empty() ? int(i) : frames[i]});
  return keys;
}

std::vector<int> FramesOf(const ValueKeys& keys) {
  std::vector<int> frames;
  for (const auto& k : keys) frames.push_back(k.frame);
  return frames;
}

std::vector<int> FramesOf(const PairKeys& keys) {
  std::vector<int> frames;
  for (const auto& k : keys) frames.push_back(k.frame);
  return frames;
}

using Frames = std::vector<int>;

struct ValueCase {
  const char* name;
  std::vector<double> values;
  std::vector<int> frames;  // empty: 0, 1, 2, ...
  float tolerance;
  Frames kept;
};

class ThinValuesCase : public ::testing::TestWithParam<ValueCase> {};

TEST_P(ThinValuesCase, KeepsTheExpectedFrames) {
  ValueKeys keys = Values(GetParam().values, GetParam().frames);
  ThinValues(keys, GetParam().tolerance);
  EXPECT_EQ(FramesOf(keys), GetParam().kept);
}

INSTANTIATE_TEST_SUITE_P(
    Walks,
    ThinValuesCase,
    ::testing::Values(
        ValueCase{"Empty", {}, {}, 1, {}},
        ValueCase{"OneKey", {5}, {}, 1, {0}},
        ValueCase{"TwoKeys", {5, 9}, {}, 1, {0, 1}},
        ValueCase{"ThreeOnALineDropTheMiddle", {0, 1, 2}, {}, 0.5f, {0, 2}},
        // j = 2 has score 0; the strict comparison never lets j = 3 replace it.
        ValueCase{"FourOnALineKeepTheThird", {0, 1, 2, 3}, {}, 0.5f, {0, 2, 3}},
        ValueCase{"ConstantKeepsEverySecondKeyOdd", {4, 4, 4, 4, 4, 4, 4}, {}, 1, {0, 2, 4, 6}},
        ValueCase{"ConstantKeepsEverySecondKeyEven", {4, 4, 4, 4, 4, 4}, {}, 1, {0, 2, 4, 5}},
        ValueCase{"NearestFailingKeepsTheNextKey", {0, 5, 0, 5}, {}, 0.1f, {0, 1, 2, 3}},
        // Key 1 is 1 off the line: error 1 equals tol^2 = 1 and still fits.
        ValueCase{"ErrorEqualToToleranceFits", {0, 1, 0}, {}, 1, {0, 2}},
        ValueCase{"ErrorAboveToleranceStays", {0, 1.001, 0}, {}, 1, {0, 1, 2}},
        // j = 2: error 0.01, score 0.01; j = 3: error 0.01 over two skipped
        // keys, score 0.0025, which wins.
        ValueCase{"FartherCandidateWinsByScorePerSkippedKey", {0, 0.1, 0, 0}, {}, 1, {0, 3}},
        // j = 3 fits (error 0.444 <= 1) but its score 0.444 / 4 loses to
        // j = 2's 0.01: the walk does not run to the far end of the tolerance.
        ValueCase{"NearerCandidateWinsByScorePerSkippedKey", {0, 0.1, 0, 1}, {}, 1, {0, 2, 3}},
        // Interpolation time is the frame number: 0, 1, 10 at frames 0, 1, 10
        // lie on a line, at indices they would not.
        ValueCase{"InterpolatesByFrameNumber", {0, 1, 10}, {0, 1, 10}, 0.01f, {0, 10}},
        ValueCase{"IndexLineIsNoFrameLine", {0, 5, 10}, {0, 1, 10}, 0.01f, {0, 1, 10}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(Thin, NoPositiveToleranceLeavesTheListItself) {
  for (float tolerance : {0.0f, -1.0f, std::nanf("")}) {
    ValueKeys keys = Values({4, 4, 4, 4, 4});
    const ValueKey* data = keys.data();
    ThinValues(keys, tolerance);
    EXPECT_EQ(keys.data(), data);  // not even a copy
    EXPECT_EQ(keys.size(), 5u);
  }
}

TEST(ThinAngles, FullTurnCountsAsNoDifference) {
  ValueKeys angles = Values({0, 2 * std::numbers::pi, 0});
  ThinAngles(angles, 0.001f);
  EXPECT_EQ(FramesOf(angles), (Frames{0, 2}));

  ValueKeys values = Values({0, 2 * std::numbers::pi, 0});
  ThinValues(values, 0.001f);
  EXPECT_EQ(FramesOf(values), (Frames{0, 1, 2}));
}

// The early leave: from key 0, j = 2 fails (the line 0..2pi passes pi at
// key 1), so j = 3 is never tried, although 0, 0, 2pi, 0 fits the line 0..0.
TEST(ThinAngles, FirstFailingCandidateEndsTheSearch) {
  ValueKeys angles = Values({0, 0, 2 * std::numbers::pi, 0});
  ThinAngles(angles, 0.1f);
  EXPECT_EQ(FramesOf(angles), (Frames{0, 1, 3}));
}

TEST(ThinPairs, ErrorIsTheSquaredDistance) {
  // Key 1 is (0.75, 1) off the line: distance 1.25.
  for (auto [tolerance, kept] : {std::pair{1.25f, Frames{0, 2}}, {1.2499f, Frames{0, 1, 2}}}) {
    PairKeys keys = {{0, 0, 0}, {1.75, 11, 1}, {2, 20, 2}};
    ThinPairs(keys, tolerance);
    EXPECT_EQ(FramesOf(keys), kept) << tolerance;
  }
}

TEST(ThinSkews, ErrorMovesTheDiagonalsByTheSkewMatrixDifference) {
  // Key 1 has tangent 0.3 against an interpolated 0 at axis 0: the matrix
  // difference moves (1, -1) by (-0.3, 0) and (1, 1) by (0.3, 0).
  for (auto [tolerance, kept] : {std::pair{0.3001f, Frames{0, 2}}, {0.2999f, Frames{0, 1, 2}}}) {
    PairKeys keys = {{0, 0, 0}, {0.3, 0, 1}, {0, 0, 2}};
    ThinSkews(keys, tolerance);
    EXPECT_EQ(FramesOf(keys), kept) << tolerance;
  }
  // At axis pi/2 the difference sits in the lower-left term (-k sin^2 phi)
  // and moves both diagonals by 0.3 in y: the same distance as at axis 0.
  PairKeys turned = {
      {0, std::numbers::pi / 2, 0}, {0.3, std::numbers::pi / 2, 1}, {0, std::numbers::pi / 2, 2}};
  ThinSkews(turned, 0.2999f);
  EXPECT_EQ(FramesOf(turned), (Frames{0, 1, 2}));
}

// Properties on random smooth data, for every routine: the first and last
// keys stay, the kept keys are a subsequence, and every removed key is
// reproduced by interpolation between its kept neighbours within tolerance.
template <class Key>
void CheckThinned(const std::vector<Key>& before,
                  const std::vector<Key>& after,
                  double tol2,
                  const std::function<double(const Key&, const Key&, const Key&, double)>& error) {
  ASSERT_FALSE(after.empty());
  EXPECT_EQ(after.front().frame, before.front().frame);
  EXPECT_EQ(after.back().frame, before.back().frame);
  size_t k = 0;
  for (const Key& key : before) {
    while (k < after.size() && after[k].frame < key.frame) ++k;
    ASSERT_LT(k, after.size());
    if (after[k].frame == key.frame) continue;
    const Key& a = after[k - 1];
    const Key& b = after[k];
    const double t = double(key.frame - a.frame) / double(b.frame - a.frame);
    EXPECT_LE(error(key, a, b, t), tol2) << "frame " << key.frame;
  }
}

TEST(Thin, RemovedKeysAreReproducedWithinTolerance) {
  std::mt19937 random(11);
  std::uniform_real_distribution<double> unit(-1, 1);
  for (int trial = 0; trial < 40; ++trial) {
    const int n = 50 + trial * 7;
    const double bend = unit(random) * 0.2;
    const float tolerance = float(0.01 + 0.05 * (unit(random) + 1));
    const double tol2 = double(tolerance) * tolerance;
    ValueKeys values;
    PairKeys pairs;
    int frame = trial;
    for (int i = 0; i < n; ++i) {
      frame += 1 + (i % 5 == 0);  // gaps: interpolation time is the frame
      const double s = std::sin(frame * bend) + 0.01 * unit(random);
      values.push_back({s, frame});
      pairs.push_back({s, std::cos(frame * bend * 0.7), frame});
    }
    auto lerp = [](double a, double b, double t) { return (1 - t) * a + t * b; };

    ValueKeys v = values;
    ThinValues(v, tolerance);
    CheckThinned<ValueKey>(values, v, tol2, [&](auto& k, auto& a, auto& b, double t) {
      const double d = k.value - lerp(a.value, b.value, t);
      return d * d;
    });
    ValueKeys angles = values;
    ThinAngles(angles, tolerance);
    CheckThinned<ValueKey>(values, angles, tol2, [&](auto& k, auto& a, auto& b, double t) {
      return 1 - std::cos(k.value - lerp(a.value, b.value, t));
    });
    PairKeys p = pairs;
    ThinPairs(p, tolerance);
    CheckThinned<PairKey>(pairs, p, tol2, [&](auto& k, auto& a, auto& b, double t) {
      return std::pow(k.x - lerp(a.x, b.x, t), 2) + std::pow(k.y - lerp(a.y, b.y, t), 2);
    });
    PairKeys skews = pairs;
    ThinSkews(skews, tolerance);
    CheckThinned<PairKey>(pairs, skews, tol2, [&](auto& k, auto& a, auto& b, double t) {
      // The skew as a matrix acting on the two diagonals, built directly.
      auto matrix = [](double tangent, double phi) {
        const double s = std::sin(phi), c = std::cos(phi);
        return std::array<double, 4>{tangent * s * c, tangent * c * c, -tangent * s * s,
                                     -tangent * s * c};
      };
      const auto m = matrix(k.x, k.y);
      const auto l = matrix(lerp(a.x, b.x, t), lerp(a.y, b.y, t));
      const double d[4] = {m[0] - l[0], m[1] - l[1], m[2] - l[2], m[3] - l[3]};
      const double e1 = std::pow(d[0] - d[1], 2) + std::pow(d[2] - d[3], 2);
      const double e2 = std::pow(d[0] + d[1], 2) + std::pow(d[2] + d[3], 2);
      return std::max(e1, e2) * (1 - 1e-12);
    });
    EXPECT_LT(v.size(), values.size());
  }
}

}  // namespace
