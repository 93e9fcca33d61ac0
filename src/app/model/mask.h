// SPDX-License-Identifier: GPL-3.0-or-later
// Masks from pictures: the one rule by which a colour counts as inside.
#pragma once

#include "app/model/interfaces.h"
#include "imaging/bitmap.h"

// A pixel is set when its colour is at least mid-grey: the sum of blue,
// green and red at least 3 * 128. So white is inside and black outside, and
// a grey from elsewhere counts from mid-grey up. Masks read from files and
// from projects both follow it.
VL::Mask ThresholdMask(const img::image& picture);
