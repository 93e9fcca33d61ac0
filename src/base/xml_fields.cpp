// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/xml_fields.h"

namespace xml {

void AffineFields(filter& f, types::basic_affine<double>& a) {
  f.defaulted("x", a.x, 0.0);
  f.defaulted("y", a.y, 0.0);
  f.defaulted("xx", a.xx, 1.0);
  f.defaulted("xy", a.xy, 0.0);
  f.defaulted("yx", a.yx, 0.0);
  f.defaulted("yy", a.yy, 1.0);
}

void SpanFields(filter& f, My::Span& s) {
  f.defaulted("first", s.first, 0);
  f.defaulted("last", s.last, 0);
}

}  // namespace xml
