// SPDX-License-Identifier: GPL-3.0-or-later
// Field descriptions of the small value types that several records carry.
#pragma once

#include "base/affine.h"
#include "base/span.h"
#include "base/xml_filter.h"

namespace xml {

// `x`, `y`, `xx`, `xy`, `yx`, `yy`, each left out when it equals the
// identity's value, so the identity is an element without attributes.
void AffineFields(filter& f, types::basic_affine<double>& a);

// `first` and `last`, each left out when 0.
void SpanFields(filter& f, My::Span& s);

}  // namespace xml
