// SPDX-License-Identifier: GPL-3.0-or-later
// Matching profiles: for every grid segment, how well it fits the target
// frame at each displacement of a search window around its expected shift.
//
// A profile is a (2R+1) squared raster of doubles, higher is better, whose
// centre cell (radius_x, radius_y) stands for the segment's `shift`. Nothing
// is decided here; the coherent motion picks one cell per segment.
//
// By default (self-compared profiles) a segment is scored by how closely the
// shape of its error surface around a displacement resembles its error
// surface against itself, which is sensitive to structure and indifferent to
// a uniform change of brightness.
//
// Usage, per target frame:
//   SetStartingMotion(seg, predicted);             // positions must be valid
//   BuildProfiles(seg, target, ProfileParamsOf(params, radius), false);
#pragma once

#include <cstdint>

#include "base/affine.h"
#include "base/segment_params.h"
#include "imaging/float_image.h"
#include "tracking/segmentation.h"

namespace tracking {

struct ProfileParams {
  unsigned colour_source = 0;  // 0: the pixel's colour; else the segment's mean colour
  unsigned metric = 0;         // 0: squared difference; 1, 2: robust, scaled by the variance
  ProfileMode mode = ProfileMode::SelfCompared;
  int32_t radius = 5;       // R: search radius in pixels, at least 0
  int32_t self_radius = 2;  // r: radius of the self comparison, at least 0
  float variance_scale = 2.0f;
};

// The profile block of `params` with the search radius replaced by `radius`.
ProfileParams ProfileParamsOf(const VLSegmentParams& params, int32_t radius);

// shift := T(centre) - centre for every segment, rounded half away from
// zero. Computes positions when they are not valid.
void SetStartingMotion(Segmentation& seg, const types::affine& T);

// Mean colour and variance of every segment on `reference`; with `scaled`,
// the variance is multiplied by `variance_scale`. A variance of exactly 0
// becomes 0.00001 so that the robust metrics never divide by it. Skipped
// when already valid with the same `scaled`. Throws std::invalid_argument
// when the picture's size is not the segmentation's.
void ComputeStatistics(Segmentation& seg,
                       const img::float_image& reference,
                       float variance_scale,
                       bool scaled);

// The plain comparison of `first` against `second` at every displacement of
// radius Q around each segment's shift: fills `profile` (minus the mean
// metric) and `profile_counts`, and sets the radii to Q. With `active_only`
// only segments with `active` set are scanned. Pixels whose window column
// start falls outside 0..height-1 are skipped and columns are clipped
// against the width, as the tracker has always done; the comparison reads
// past a row's end into the next row, and past the picture's end as zeros.
// Throws std::invalid_argument when a picture's size is not the
// segmentation's or a parameter is out of range; profiles are then untouched.
void RawProfiles(Segmentation& seg,
                 const img::float_image& first,
                 const img::float_image& second,
                 int32_t radius,
                 const ProfileParams& params,
                 bool active_only);

// The whole profile stage on `target` against seg.image (which must be
// set): statistics, then mode 0 (raw profiles) or mode 1 (self-compared).
// What depends on the reference alone (the self profiles, the reference's
// pixels) is kept in seg.profile_cache for the next target frame, until the
// statistics are recomputed or seg.image changes; a reference picture
// changed in place needs create() or statistics_valid = false.
// The foreign-ring modes 2 and 3 are not built: they throw
// std::invalid_argument, as do a missing reference picture, a picture of
// another size and parameters out of range; profiles are then untouched.
void BuildProfiles(Segmentation& seg,
                   const img::float_image& target,
                   const ProfileParams& params,
                   bool active_only);

// The profile loops use the widest vector instructions of the processor;
// the results are the same on all. A limit restricts them, so that the
// tests can hold every variant against the plain comparison.
enum class ProfileScanSet { Baseline, Avx2, Widest };
void LimitProfileScan(ProfileScanSet set);
// LimitProfileScan(limit ? Baseline : Widest).
void LimitProfileScanToBaseline(bool limit);

}  // namespace tracking
