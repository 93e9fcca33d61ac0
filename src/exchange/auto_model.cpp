// SPDX-License-Identifier: GPL-3.0-or-later
#include "exchange/auto_model.h"

#include <algorithm>
#include <cmath>

namespace {

struct Residual {
  double e11, e12, e21, e22;
};

// Whether both diagonals of the frame, moved by the residual, stay shorter
// than the tolerance.
bool Passes(const Residual& e, double half_width, double half_height, double tol2) {
  const double px = e.e11 * half_width, py = e.e21 * half_width;
  const double qx = e.e12 * half_height, qy = e.e22 * half_height;
  const double sx = px + qx, sy = py + qy;
  const double dx = px - qx, dy = py - qy;
  return sx * sx + sy * sy < tol2 && dx * dx + dy * dy < tol2;
}

template <class Residuals>
bool AllPass(const std::vector<types::affine>& frames,
             double half_width,
             double half_height,
             double tol2,
             Residuals residual) {
  for (const auto& m : frames)
    if (!Passes(residual(m), half_width, half_height, tol2)) return false;
  return true;
}

}  // namespace

ExportModel ChooseExportModel(const Transformations& record, int width, int height) {
  const double e = record.ExportInaccuracy;
  const double tol2 = std::max(e * e, 0.0001);
  const double hw = width / 2.0, hh = height / 2.0;
  const auto& frames = record.GetTransforms();

  if (AllPass(frames, hw, hh, tol2, [](const types::affine& m) {
        return Residual{m.xx - 1, m.xy, m.yx, m.yy - 1};
      }))
    return ExportModel::Translation;

  if (AllPass(frames, hw, hh, tol2, [](const types::affine& m) {
        const double theta = std::atan2(m.yx - m.xy, m.xx + m.yy);
        const double c = std::cos(theta), s = std::sin(theta);
        return Residual{m.xx - c, m.xy - s, m.yx + s, m.yy - c};
      }))
    return ExportModel::Rigid;

  if (AllPass(frames, hw, hh, tol2, [](const types::affine& m) {
        const double off = (m.xy + m.yx) / 2;
        return Residual{(m.xx - m.yy) / 2, off, off, (m.yy - m.xx) / 2};
      }))
    return ExportModel::RigidScale;

  return ExportModel::Affine3;
}
