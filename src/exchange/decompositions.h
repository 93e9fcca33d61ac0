// SPDX-License-Identifier: GPL-3.0-or-later
// Per-frame arithmetic of the export: the transform a frame hands to the
// host, and its decomposition into the parameters of each export model.
//
// The formulas are fixed: the host's keyframes must describe the same motion
// in every version, and the choice of branch (signs, atan2 arguments) decides
// which of several equivalent parameter sets is written. Nothing here checks
// for a singular or mirrored matrix; infinities and NaN pass through.
#pragma once

#include "base/affine.h"
#include "base/enums.h"

// The transform of a frame. "Tracking": M after the initial transform I.
// "Compensation": the inverse of M, written with divisions by the
// determinant (not a multiplication by its reciprocal); I is ignored.
types::affine FrameTransform(const types::affine& M, const types::affine& I, TaskType task);

struct Point2 {
  double x = 0;
  double y = 0;
};

// The image of the frame's centre (width/2, height/2) under t.
Point2 CentreImage(const types::affine& t, int width, int height);

// Rotation of the layer in radians: atan2(yx - xy, xx + yy).
double RigidRotation(const types::affine& t);
// Uniform scale of the layer, 1 for unchanged: 0.5 hypot(xy - yx, xx + yy).
double RigidScale(const types::affine& t);

// The layer's rotation and x/y scale with the "Transform" effect's skew
// applied first: t = R(rotation) diag(scale_x, scale_y) [[1, 0], [skew, 1]],
// with R(r) = [[cos r, -sin r], [sin r, cos r]].
struct MixedParameters {
  double scale_x = 1;
  double scale_y = 1;
  double skew = 0;      // tangent
  double rotation = 0;  // radians
};
MixedParameters DecomposeMixed(const types::affine& t);

// The parameters of the "Transform" effect. With K(k, phi) =
// I + k (sin phi, cos phi)(cos phi, -sin phi)^T, a skew of tangent k along
// the axis phi:
//   vertical skew:  t = K(skew, skew_axis) R(rotation) diag(scale_width, scale_height),
//                   with skew_axis = -rotation (the axis stays vertical in the image);
//   uniform scale:  t = scale_height K(skew, skew_axis) R(rotation), scale_width unused.
struct SkewEffectParameters {
  double scale_height = 1;
  double scale_width = 1;
  double skew = 0;       // tangent
  double skew_axis = 0;  // radians
  double rotation = 0;   // radians
};
SkewEffectParameters DecomposeVerticalSkew(const types::affine& t);
SkewEffectParameters DecomposeUniformScale(const types::affine& t);
