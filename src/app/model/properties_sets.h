// SPDX-License-Identifier: GPL-3.0-or-later
// The property trees of the composition, the overlay and a segment.
//
// Built on first use and kept for the rest of the run; they hold no value
// and may be shared by every panel. The root of each tree is an unnamed
// group whose children are the top rows.
#pragma once

#include "app/model/properties.h"

namespace app {

const Property& CompositionProperties();
const Property& OverlayProperties();
const Property& SegmentProperties();

// The tree that serves `shown`: a segment's, the overlay's or the
// composition's; null for no object or an object of none of these kinds.
const Property* PropertiesFor(const EditableObject* shown);

}  // namespace app
