// SPDX-License-Identifier: GPL-3.0-or-later
// The per-frame results of one segment: one transformation per tracked frame.
//
// Every stored transformation maps key-frame coordinates to the coordinates of
// its frame, whatever reference frame it was measured from. With k the key
// frame, frame f >= k is forward[f - k] (forward[0] is the key frame itself)
// and frame f < k is backward[k - f - 1]. So the frames with results are
// [k - backward.size(), k + forward.size()).
//
// A plain value: the segment guards it with its own lock while the tracker
// appends, and shares it through VLSegmentDataPtr so that undo steps can keep
// old results alive.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "base/affine.h"
#include "base/span.h"

struct VLSegmentData {
  enum class Direction { Backward, Forward };

  std::vector<types::affine> backward;  // stored as BackwardTransform
  std::vector<types::affine> forward;   // stored as ForwardTransform

  // The frames that have a transformation, for the key frame `key`.
  My::Span DataSpan(int32_t key) const;

  // The transformation of `frame`, or null when the arrays hold none for it.
  const types::affine* Find(int32_t frame, int32_t key) const;

  // As Find, but a frame without a transformation throws std::out_of_range.
  const types::affine& At(int32_t frame, int32_t key) const;

  // Appends the result of the next frame in `direction`: the data span grows
  // by one at its end (forward) or at its start (backward).
  void Append(Direction direction, const types::affine& transform);

  // A finished or saved segment has its key frame's entry, the identity.
  // Adds it when `forward` is empty; returns whether it did.
  bool EnsureKeyEntry();

  // A new block with the first key - span.first entries of backward and the
  // first span.last - key entries of forward (none for a negative count, all
  // there are for a larger one). For a span around the key frame these are
  // exactly the results inside it.
  VLSegmentData Trimmed(My::Span span, int32_t key) const;

  friend bool operator==(const VLSegmentData&, const VLSegmentData&) = default;
};

// The count is atomic: an undo step on the owning thread and a worker's copy
// may hold the same block at once.
using VLSegmentDataPtr = std::shared_ptr<VLSegmentData>;
