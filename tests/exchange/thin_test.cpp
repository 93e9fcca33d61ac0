// SPDX-License-Identifier: GPL-3.0-or-later
#include "exchange/thin.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <random>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

namespace {

using Frames = std::vector<int>;
constexpr double kPi = std::numbers::pi;

ValueKeys Values(const std::vector<double>& values, const Frames& frames = {}) {
  ValueKeys keys;
  for (size_t i = 0; i < values.size(); ++i)
    keys.push_back({values[i], frames.empty() ? int(i) : frames[i]});
  return keys;
}

template <class Keys>
Frames FramesOf(const Keys& keys) {
  Frames frames;
  for (const auto& k : keys) frames.push_back(k.frame);
  return frames;
}

TEST(ThinValues, WalkKeepsTheExpectedFrames) {
  // Values, their frames (empty: 0, 1, 2, ...), tolerance, kept frames.
  const std::tuple<std::vector<double>, Frames, float, Frames> cases[] = {
      {{}, {}, 1, {}},
      // j = 2 has score 0; the strict comparison never lets j = 3 replace it.
      {{0, 1, 2, 3}, {}, 0.5f, {0, 2, 3}},
      {{4, 4, 4, 4, 4, 4, 4}, {}, 1, {0, 2, 4, 6}},  // exact: every second key, and the last
      {{4, 4, 4, 4, 4, 4}, {}, 1, {0, 2, 4, 5}},
      // Key 1 is 1 off the line: error 1 equals tol^2 = 1 and still fits.
      {{0, 1, 0}, {}, 1, {0, 2}},
      {{0, 1.001, 0}, {}, 1, {0, 1, 2}},
      // Score is error / skipped keys^2: j = 3 (0.01 / 4) beats j = 2 (0.01);
      // then j = 2 (0.01) beats j = 3 (0.444 / 4), although j = 3 fits.
      {{0, 0.1, 0, 0}, {}, 1, {0, 3}},
      {{0, 0.1, 0, 1}, {}, 1, {0, 2, 3}},
      // Interpolation time is the frame number, not the index.
      {{0, 1, 10}, {0, 1, 10}, 0.01f, {0, 10}},
      {{0, 5, 10}, {0, 1, 10}, 0.01f, {0, 1, 10}},
  };
  for (const auto& [values, frames, tolerance, kept] : cases) {
    ValueKeys keys = Values(values, frames);
    ThinValues(keys, tolerance);
    EXPECT_EQ(FramesOf(keys), kept) << ::testing::PrintToString(values);
  }
  for (float tolerance : {0.0f, -1.0f, std::nanf("")}) {
    ValueKeys keys = Values({4, 4, 4, 4, 4});
    const ValueKey* data = keys.data();
    ThinValues(keys, tolerance);
    EXPECT_EQ(keys.data(), data);  // untouched, not even copied
    EXPECT_EQ(keys.size(), 5u);
  }
}

// Each routine's error measure, at its threshold.
TEST(Thin, ErrorMeasures) {
  // Angles: a full turn is no difference, but the search ends at the first failing
  // candidate (0..2pi passes pi), although 0, 0, 2pi, 0 fits the line 0..0.
  ValueKeys angles = Values({0, 2 * kPi, 0});
  ThinAngles(angles, 0.001f);
  EXPECT_EQ(FramesOf(angles), (Frames{0, 2}));
  angles = Values({0, 0, 2 * kPi, 0});
  ThinAngles(angles, 0.1f);
  EXPECT_EQ(FramesOf(angles), (Frames{0, 1, 3}));
  // Pairs: key 1 is (0.75, 1) off the line, distance 1.25. Skews: tangent
  // 0.3 against an interpolated 0 moves the diagonals by 0.3, at axis 0
  // along x, at axis pi/2 (the lower-left term -k sin^2 phi) along y.
  using Thin = void (*)(PairKeys&, float);
  const std::tuple<Thin, PairKeys, float> cases[] = {
      {ThinPairs, {{0, 0, 0}, {1.75, 11, 1}, {2, 20, 2}}, 1.25f},
      {ThinSkews, {{0, 0, 0}, {0.3, 0, 1}, {0, 0, 2}}, 0.3f},
      {ThinSkews, {{0, kPi / 2, 0}, {0.3, kPi / 2, 1}, {0, kPi / 2, 2}}, 0.3f}};
  for (const auto& [thin, keys, threshold] : cases)
    for (auto [factor, kept] : {std::pair{1.0001f, Frames{0, 2}}, {0.9999f, Frames{0, 1, 2}}}) {
      PairKeys thinned = keys;
      thin(thinned, threshold * factor);
      EXPECT_EQ(FramesOf(thinned), kept) << threshold * factor << " " << keys[0].y;
    }
}

// First and last keys stay, and every removed key is reproduced by interpolation
// between its kept neighbours: error(key, interpolated) <= tolerance^2.
template <class Key, class Error>
void CheckThinned(const std::vector<Key>& before,
                  void (*thin)(std::vector<Key>&, float),
                  float tolerance,
                  Error error) {
  std::vector<Key> after = before;
  thin(after, tolerance);
  ASSERT_FALSE(after.empty());
  EXPECT_LT(after.size(), before.size());
  EXPECT_EQ(after.front().frame, before.front().frame);
  EXPECT_EQ(after.back().frame, before.back().frame);
  size_t k = 0;
  for (const Key& key : before) {
    while (k < after.size() && after[k].frame < key.frame) ++k;
    ASSERT_LT(k, after.size());
    if (after[k].frame == key.frame) continue;
    const Key &a = after[k - 1], &b = after[k];
    const double t = double(key.frame - a.frame) / double(b.frame - a.frame);
    const auto lerp = [t](double u, double v) { return (1 - t) * u + t * v; };
    EXPECT_LE(error(key, a, b, lerp), double(tolerance) * tolerance) << "frame " << key.frame;
  }
}

// The skew (k, phi) as a matrix acting on the two diagonals, built directly.
std::array<double, 4> SkewMatrix(double k, double phi) {
  const double s = std::sin(phi), c = std::cos(phi);
  return {k * s * c, k * c * c, -k * s * s, -k * s * c};
}

TEST(Thin, RemovedKeysAreReproducedWithinTolerance) {
  std::mt19937 random(11);
  std::uniform_real_distribution<double> unit(-1, 1);
  for (int trial = 0; trial < 40; ++trial) {
    const double bend = unit(random) * 0.2;
    const float tolerance = float(0.01 + 0.05 * (unit(random) + 1));
    ValueKeys values;
    PairKeys pairs;
    for (int i = 0, frame = trial; i < 50 + trial * 7; ++i) {
      frame += 1 + (i % 5 == 0);  // gaps: interpolation time is the frame
      const double s = std::sin(frame * bend) + 0.01 * unit(random);
      values.push_back({s, frame});
      pairs.push_back({s, std::cos(frame * bend * 0.7), frame});
    }
    CheckThinned(values, ThinValues, tolerance, [](auto& k, auto& a, auto& b, auto lerp) {
      return std::pow(k.value - lerp(a.value, b.value), 2);
    });
    CheckThinned(values, ThinAngles, tolerance, [](auto& k, auto& a, auto& b, auto lerp) {
      return 1 - std::cos(k.value - lerp(a.value, b.value));
    });
    CheckThinned(pairs, ThinPairs, tolerance, [](auto& k, auto& a, auto& b, auto lerp) {
      return std::pow(k.x - lerp(a.x, b.x), 2) + std::pow(k.y - lerp(a.y, b.y), 2);
    });
    CheckThinned(pairs, ThinSkews, tolerance, [](auto& k, auto& a, auto& b, auto lerp) {
      const auto m = SkewMatrix(k.x, k.y), l = SkewMatrix(lerp(a.x, b.x), lerp(a.y, b.y));
      const double d[4] = {m[0] - l[0], m[1] - l[1], m[2] - l[2], m[3] - l[3]};
      const double e1 = std::pow(d[0] - d[1], 2) + std::pow(d[2] - d[3], 2);
      const double e2 = std::pow(d[0] + d[1], 2) + std::pow(d[2] + d[3], 2);
      return std::max(e1, e2) * (1 - 1e-12);
    });
  }
}

}  // namespace
