// SPDX-License-Identifier: GPL-3.0-or-later
#include "tracking/point_set_fit.h"

#include <cmath>
#include <ostream>

namespace tracking {

namespace {

// Through a volatile: GCC 12.2's SLP vectoriser merges the six roundings of
// a result and silently drops the last two (seen at -O2 and -O3), which
// would leave c and d in double precision.
double single(double v) {
  volatile float f = float(v);
  return f;
}

types::affine rounded(double tx, double ty, double a, double b, double c, double d) {
  return {single(tx), single(ty), single(a), single(b), single(c), single(d)};
}

}  // namespace

void TranslationFit::add(Point p, Point q, double w) {
  sw_ += w;
  sdx_ += w * (q.x - p.x);
  sdy_ += w * (q.y - p.y);
}

bool TranslationFit::solve(types::affine& out) const {
  double tx = 0, ty = 0;
  if (sw_ > 0) {
    tx = sdx_ / sw_;
    ty = sdy_ / sw_;
  }
  out = rounded(tx, ty, 1, 0, 0, 1);
  return true;
}

void SimilarityFit::add(Point p, Point q, double w) {
  sqx_ += w * q.x;
  sqy_ += w * q.y;
  spx_ += w * p.x;
  spy_ += w * p.y;
  dot_ += w * (p.x * q.x + p.y * q.y);
  cross_ += w * (q.x * p.y - q.y * p.x);
  sw_ += w;
  pp_ += w * (p.x * p.x + p.y * p.y);
}

bool SimilarityFit::solve_rigid_scale(types::affine& out) const {
  if (sw_ <= 0) return false;
  const double s = 1 / sw_;
  const double dot = dot_ - (spx_ * sqx_ + spy_ * sqy_) * s;
  const double cross = cross_ - (sqx_ * spy_ - sqy_ * spx_) * s;
  const double pp = pp_ - (spx_ * spx_ + spy_ * spy_) * s;
  if (pp <= 0) return false;
  const double u = dot / pp, v = -cross / pp;
  const double tx = (sqx_ - (u * spx_ - v * spy_)) * s;
  const double ty = (sqy_ - (v * spx_ + u * spy_)) * s;
  out = rounded(tx, ty, u, -v, v, u);
  return true;
}

bool SimilarityFit::solve_rigid(types::affine& out) const {
  if (sw_ <= 0) return false;
  const double s = 1 / sw_;
  const double dot = dot_ - (spx_ * sqx_ + spy_ * sqy_) * s;
  const double cross = cross_ - (sqx_ * spy_ - sqy_ * spx_) * s;
  const double h = std::sqrt(dot * dot + cross * cross);
  if (h <= 0) return false;
  const double cosine = dot / h, sine = -cross / h;
  // The shift uses the quotients; the matrix is rebuilt from the angle so
  // that it is orthogonal up to rounding.
  const double angle = std::atan2(sine, cosine);
  const double c = std::cos(angle), sn = std::sin(angle);
  const double tx = (sqx_ - (cosine * spx_ - sine * spy_)) * s;
  const double ty = (sqy_ - (sine * spx_ + cosine * spy_)) * s;
  out = rounded(tx, ty, c, -sn, sn, c);
  return true;
}

void AffineFit::add(Point p, Point q, double w) {
  sqx_ += w * q.x;
  sqy_ += w * q.y;
  spx_ += w * p.x;
  spy_ += w * p.y;
  cxx_ += w * (p.x * p.x);
  cxy_ += w * (p.x * p.y);
  cyy_ += w * (p.y * p.y);
  mxx_ += w * (q.x * p.x);
  mxy_ += w * (q.x * p.y);
  myx_ += w * (q.y * p.x);
  myy_ += w * (q.y * p.y);
  sw_ += w;
}

bool AffineFit::solve(types::affine& out) const {
  if (sw_ <= 0) return false;
  const double s = 1 / sw_;
  const double cxx = cxx_ - spx_ * spx_ * s;
  const double cxy = cxy_ - spx_ * spy_ * s;
  const double cyy = cyy_ - spy_ * spy_ * s;
  const double det = cxx * cyy - cxy * cxy;
  if (det <= 0) return false;  // collinear points have no affine fit
  const double mxx = mxx_ - sqx_ * spx_ * s;
  const double mxy = mxy_ - sqx_ * spy_ * s;
  const double myx = myx_ - sqy_ * spx_ * s;
  const double myy = myy_ - sqy_ * spy_ * s;
  const double a = (cyy * mxx - cxy * mxy) / det;
  const double b = (cxx * mxy - cxy * mxx) / det;
  const double c = (cyy * myx - cxy * myy) / det;
  const double d = (cxx * myy - cxy * myx) / det;
  const double tx = (sqx_ - (a * spx_ + b * spy_)) * s;
  const double ty = (sqy_ - (c * spx_ + d * spy_)) * s;
  out = rounded(tx, ty, a, b, c, d);
  return true;
}

void match(std::span<const SegmentMotion> segments,
           TransformClass model,
           types::affine& out,
           std::ostream* log) {
  if (model != TransformClass::Affine && model != TransformClass::Translation &&
      model != TransformClass::Rigid && model != TransformClass::RigidScale)
    return;
  if (log) *log << "Matching point sets with " << LogName(model) << " motion...\n";

  TranslationFit translation;
  SimilarityFit similarity;
  AffineFit affine;
  for (const SegmentMotion& m : segments) {
    const Point p{m.centre_x, m.centre_y};
    const Point q{p.x + m.velocity_x, p.y + m.velocity_y};
    switch (model) {
      case TransformClass::Translation:
        translation.add(p, q, 1);
        break;
      case TransformClass::Rigid:
      case TransformClass::RigidScale:
        similarity.add(p, q, 1);
        break;
      default:
        affine.add(p, q, 1);
        break;
    }
  }

  types::affine result;  // stays the identity when the set is degenerate
  switch (model) {
    case TransformClass::Translation:
      translation.solve(result);
      break;
    case TransformClass::Rigid:
      similarity.solve_rigid(result);
      break;
    case TransformClass::RigidScale:
      similarity.solve_rigid_scale(result);
      break;
    default:
      affine.solve(result);
      break;
  }
  if (log) *log << result << '\n';
  out = result;
}

}  // namespace tracking
