// SPDX-License-Identifier: GPL-3.0-or-later
// The sink through which every transform applicator delivers its keyframes.
//
// One implementation writes the keyframe text that the compositing host
// accepts on paste (AE5KeyframeData); the host's own plug-in has another that
// sets real keyframes. The applicators only ever talk to this interface, so
// both receive exactly the same sequence of calls.
#pragma once

#include <cstdint>

namespace VL {

class KeyframeStorage {
 public:
  virtual ~KeyframeStorage() = default;

  // The following keyframes belong to a standard layer parameter:
  // 1 Position, 2 Scale, 3 Rotation.
  virtual void SelectLayerParameter(int which) = 0;
  // The following effect parameters belong to the effect of that name.
  virtual void SelectEffect(const char* name) = 0;
  // The following keyframes belong to parameter `index` of the selected effect.
  virtual void SelectEffectParameter(int index) = 0;
  // One keyframe of a two-component value.
  virtual void AddKeyframe(int frame, double x, double y) = 0;
  // One keyframe of a one-component value.
  virtual void AddKeyframe(int frame, double value) = 0;

  int32_t GetSourceWidth() const { return width_; }
  int32_t GetSourceHeight() const { return height_; }
  int32_t GetFirstFrame() const { return first_; }
  // One past the last frame: first frame plus frame count.
  int32_t GetEndFrame() const { return end_; }

 protected:
  KeyframeStorage(int32_t width, int32_t height, int32_t first, int32_t end)
      : width_(width), height_(height), first_(first), end_(end) {}

 private:
  int32_t width_;
  int32_t height_;
  int32_t first_;
  int32_t end_;
};

}  // namespace VL
