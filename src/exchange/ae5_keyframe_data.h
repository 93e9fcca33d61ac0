// SPDX-License-Identifier: GPL-3.0-or-later
// The keyframe text the compositing host reads when it is pasted onto a
// layer: "Adobe After Effects 5.0 Keyframe Data".
//
// The host parses this text as it stands, so every byte is fixed: the
// header, the block headers, the row ends (which depend on the number of
// value columns of the block) and the number format. Numbers use the
// stream's default format (six significant digits); nothing here sets a
// precision or a flag on the stream, and callers must not either.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>

#include "exchange/keyframe_storage.h"

class AE5KeyframeData : public VL::KeyframeStorage {
 public:
  // Writes the header at once. `out` is not owned and must outlive this
  // object. A stream in a failed state simply takes no more output, unless
  // its exception mask says otherwise.
  AE5KeyframeData(std::ostream& out,
                  int32_t first,
                  int32_t count,
                  double units_per_second,
                  int32_t width,
                  int32_t height,
                  float pixel_aspect);
  // Writes the footer.
  ~AE5KeyframeData() override;

  AE5KeyframeData(const AE5KeyframeData&) = delete;
  AE5KeyframeData& operator=(const AE5KeyframeData&) = delete;

  void SelectLayerParameter(int which) override;
  void SelectEffect(const char* name) override;
  void SelectEffectParameter(int index) override;
  void AddKeyframe(int frame, double x, double y) override;
  void AddKeyframe(int frame, double value) override;

 private:
  std::ostream& out_;
  std::string effect_;  // empty while layer parameters are selected
  int32_t columns_ = 1;
};
