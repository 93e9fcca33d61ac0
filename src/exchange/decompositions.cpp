// SPDX-License-Identifier: GPL-3.0-or-later
#include "exchange/decompositions.h"

#include <cmath>

types::affine FrameTransform(const types::affine& M, const types::affine& I, TaskType task) {
  if (task == TaskType::Compensation) {
    const double det = M.xx * M.yy - M.xy * M.yx;
    types::affine t;
    t.xx = M.yy / det;
    t.xy = -M.xy / det;
    t.yx = -M.yx / det;
    t.yy = M.xx / det;
    t.x = (M.xy * M.y - M.yy * M.x) / det;
    t.y = (M.yx * M.x - M.xx * M.y) / det;
    return t;
  }
  return M * I;
}

Point2 CentreImage(const types::affine& t, int width, int height) {
  Point2 p;
  t.apply(width / 2.0, height / 2.0, p.x, p.y);
  return p;
}

double RigidRotation(const types::affine& t) {
  return std::atan2(t.yx - t.xy, t.xx + t.yy);
}

double RigidScale(const types::affine& t) {
  return 0.5 * std::hypot(t.xy - t.yx, t.xx + t.yy);
}

MixedParameters DecomposeMixed(const types::affine& t) {
  const double a = t.xx, b = t.xy, c = t.yx, d = t.yy;
  const double D = b * b + d * d;
  const double root = std::sqrt(D);
  MixedParameters p;
  p.scale_y = root;
  p.scale_x = (a * d - b * c) / root;
  p.skew = (c * d + a * b) / D;
  p.rotation = std::atan2(-b, d);
  return p;
}

SkewEffectParameters DecomposeVerticalSkew(const types::affine& t) {
  const double a = t.xx, b = t.xy, c = t.yx, d = t.yy;
  SkewEffectParameters p;
  p.skew = (c * d + a * b) / (a * d - b * c);
  p.scale_width = std::sqrt((a * a + c * c) / (p.skew * p.skew + 1));
  p.scale_height = std::sqrt(b * b + d * d);
  p.rotation = std::atan2(-b, d);
  p.skew_axis = -p.rotation;
  return p;
}

SkewEffectParameters DecomposeUniformScale(const types::affine& t) {
  const double a = t.xx, b = t.xy, c = t.yx, d = t.yy;
  SkewEffectParameters p;
  // A mirrored transform has a negative determinant and yields NaN here;
  // the host gets it as it is.
  const double D = a * d - b * c;
  p.scale_height = std::sqrt(D);
  const double E = (a * a + b * b + c * c + d * d) / D - 2;
  const bool low = a + b - c - d < 0;
  double k = 0;
  if (E > 0) k = low ? std::sqrt(E) : -std::sqrt(E);
  p.skew = k;
  const double pp = a + d, q = b - c;
  const double U = 2 * q + k * pp, V = 2 * pp - k * q;
  p.rotation = std::atan2(-U, V);
  const double r = b + c, s = a - d;
  const double P = r * U + s * V, Q = r * V - s * U;
  p.skew_axis = low ? 0.5 * std::atan2(P, Q) : 0.5 * std::atan2(-P, -Q);
  return p;
}
