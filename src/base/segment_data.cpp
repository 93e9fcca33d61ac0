// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/segment_data.h"

#include <algorithm>
#include <stdexcept>
#include <string>

My::Span VLSegmentData::DataSpan(int32_t key) const {
  return {key - static_cast<int32_t>(backward.size()), key + static_cast<int32_t>(forward.size())};
}

const types::affine* VLSegmentData::Find(int32_t frame, int32_t key) const {
  // In 64 bits: frame - key may not fit 32 bits for far-apart frame numbers.
  const int64_t offset = int64_t{frame} - key;
  if (offset >= 0) {
    return offset < static_cast<int64_t>(forward.size()) ? &forward[offset] : nullptr;
  }
  const int64_t index = -offset - 1;
  return index < static_cast<int64_t>(backward.size()) ? &backward[index] : nullptr;
}

const types::affine& VLSegmentData::At(int32_t frame, int32_t key) const {
  if (const types::affine* t = Find(frame, key)) return *t;
  const My::Span span = DataSpan(key);
  throw std::out_of_range("no transformation for frame " + std::to_string(frame) +
                          " (results cover " + std::to_string(span.first) + " to " +
                          std::to_string(span.last) + ")");
}

void VLSegmentData::Append(Direction direction, const types::affine& transform) {
  (direction == Direction::Forward ? forward : backward).push_back(transform);
}

bool VLSegmentData::EnsureKeyEntry() {
  if (!forward.empty()) return false;
  forward.push_back(types::affine::identity());
  return true;
}

VLSegmentData VLSegmentData::Trimmed(My::Span span, int32_t key) const {
  const int64_t back = std::clamp<int64_t>(int64_t{key} - span.first, 0, backward.size());
  const int64_t fore = std::clamp<int64_t>(int64_t{span.last} - key, 0, forward.size());
  VLSegmentData out;
  out.backward.assign(backward.begin(), backward.begin() + back);
  out.forward.assign(forward.begin(), forward.begin() + fore);
  return out;
}
