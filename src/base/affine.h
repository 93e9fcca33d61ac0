// SPDX-License-Identifier: GPL-3.0-or-later
// The transformation type of the whole system: a 2-d affine map.
//
// A point (px, py) maps to (xx px + xy py + x, yx px + yy py + y). Formulas
// name the fields tx, ty, a, b, c, d in the order x, y, xx, xy, yx, yy, which
// is also the order of the fields in memory.
#pragma once

#include <ostream>

namespace types {

template <class T>
struct basic_affine {
  T x = 0, y = 0;
  T xx = 1, xy = 0, yx = 0, yy = 1;

  static constexpr basic_affine identity() { return basic_affine{}; }
  static constexpr basic_affine translation(T tx, T ty) { return {tx, ty, 1, 0, 0, 1}; }

  // A after B: the map that applies B first. The products are written out in
  // this order on purpose; results are compared bit for bit across the system.
  friend constexpr basic_affine operator*(const basic_affine& A, const basic_affine& B) {
    basic_affine r;
    r.xx = A.xx * B.xx + A.xy * B.yx;
    r.xy = A.xx * B.xy + A.xy * B.yy;
    r.yx = A.yx * B.xx + A.yy * B.yx;
    r.yy = A.yx * B.xy + A.yy * B.yy;
    r.x = A.xx * B.x + A.xy * B.y + A.x;
    r.y = A.yx * B.x + A.yy * B.y + A.y;
    return r;
  }

  // No guard against a zero determinant: callers never build singular maps,
  // and a NaN result is preferable to a silently wrong one.
  constexpr basic_affine inverse() const {
    const T s = T(1) / (xx * yy - yx * xy);
    basic_affine r;
    r.xx = yy * s;
    r.xy = -xy * s;
    r.yx = -yx * s;
    r.yy = xx * s;
    r.x = (y * xy - yy * x) * s;
    r.y = (x * yx - y * xx) * s;
    return r;
  }

  constexpr T determinant() const { return xx * yy - yx * xy; }

  constexpr void apply(T px, T py, T& qx, T& qy) const {
    qx = xx * px + xy * py + x;
    qy = yx * px + yy * py + y;
  }

  friend constexpr bool operator==(const basic_affine&, const basic_affine&) = default;
};

// The log form: a b c d tx ty, one blank apart, in the stream's own format.
template <class T>
std::ostream& operator<<(std::ostream& out, const basic_affine<T>& m) {
  return out << m.xx << ' ' << m.xy << ' ' << m.yx << ' ' << m.yy << ' ' << m.x << ' ' << m.y;
}

using affine = basic_affine<double>;

}  // namespace types
