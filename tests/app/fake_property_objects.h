// Objects for the property trees to read and write: plain fields, and every
// setter call recorded as text so that a test sees exactly what reached the
// object.
#pragma once

#include <string>
#include <vector>

#include "app/model/properties_access.h"

namespace app::testing {

inline std::string Str(const My::Span& s) {
  return std::to_string(s.first) + "," + std::to_string(s.last);
}

class FakeComposition : public CompositionAccess {
 public:
  uint32_t framerate = 50;
  PixelAspectRatio aspect{1, 1};
  float inaccuracy = 0.3f;
  TaskType task = TaskType::Tracking;
  ExportModel model = ExportModel::Auto;
  int32_t start_frame = 0;
  My::Span work_area{0, 100};
  std::vector<std::string> calls;

  uint32_t GetFramerate() const override { return framerate; }
  void SetFramerate(uint32_t v) override { calls.push_back("SetFramerate " + std::to_string(v)); }
  PixelAspectRatio GetPixelAspect() const override { return aspect; }
  void SetPixelAspect(const PixelAspectRatio& v) override {
    calls.push_back("SetPixelAspect " + std::to_string(v.num) + "/" + std::to_string(v.den));
  }
  float GetExportInaccuracy() const override { return inaccuracy; }
  void SetExportInaccuracy(float v) override {
    calls.push_back("SetExportInaccuracy " + std::to_string(v));
  }
  TaskType GetTask() const override { return task; }
  void SetTask(TaskType v) override {
    calls.push_back("SetTask " + std::to_string(static_cast<int>(v)));
  }
  ExportModel GetExportModel() const override { return model; }
  void SetExportModel(ExportModel v) override {
    calls.push_back("SetExportModel " + std::to_string(static_cast<int>(v)));
  }
  int32_t GetStartFrame() const override { return start_frame; }
  void SetStartFrame(int32_t v) override { calls.push_back("SetStartFrame " + std::to_string(v)); }
  My::Span GetWorkArea() const override { return work_area; }
  void SetWorkArea(int32_t first, int32_t last) override {
    calls.push_back("SetWorkArea " + Str({first, last}));
  }
};

class FakeOverlay : public OverlayAccess {
 public:
  bool still = false;
  int32_t source_offset = 0;
  My::Span trimming{0, 10};
  int32_t match = 0;
  types::affine initial;
  Alignment alignment = Alignment::No;
  AlphaInterpretation alpha = AlphaInterpretation::Straight;
  std::vector<std::string> calls;
  types::affine last_transform;  // the argument of the last SetInitialTransform

  bool IsStill() const override { return still; }
  int32_t GetSourceOffset() const override { return source_offset; }
  void SetSourceOffset(int32_t v) override {
    calls.push_back("SetSourceOffset " + std::to_string(v));
  }
  My::Span GetTrimming() const override { return trimming; }
  void SetTrimming(int32_t first, int32_t last) override {
    calls.push_back("SetTrimming " + Str({first, last}));
  }
  int32_t GetMatch() const override { return match; }
  void SetMatch(int32_t v) override { calls.push_back("SetMatch " + std::to_string(v)); }
  types::affine GetInitialTransform() const override { return initial; }
  void SetInitialTransform(const types::affine& v) override {
    calls.push_back("SetInitialTransform");
    last_transform = v;
  }
  Alignment GetAlignment() const override { return alignment; }
  void SetAlignment(Alignment v) override {
    calls.push_back("SetAlignment " + std::to_string(static_cast<int>(v)));
  }
  AlphaInterpretation GetAlpha() const override { return alpha; }
  void SetAlpha(AlphaInterpretation v) override {
    calls.push_back("SetAlpha " + std::to_string(static_cast<int>(v)));
  }
};

class FakeSegment : public SegmentAccess {
 public:
  My::Span time_span{10, 21};
  VLSegmentParams params;
  bool processing = false;
  int32_t start_frame = 0;
  std::vector<std::string> calls;
  std::vector<VLSegmentParams> sent;  // every record given to SetParams

  My::Span GetTimeSpan() const override { return time_span; }
  void SetTimeSpan(int32_t first, int32_t last) override {
    calls.push_back("SetTimeSpan " + Str({first, last}));
  }
  VLSegmentParams GetParams() const override { return params; }
  void SetParams(const VLSegmentParams& v) override {
    calls.push_back("SetParams");
    sent.push_back(v);
  }
  bool IsProcessing() const override { return processing; }
  int32_t GetCompositionStartFrame() const override { return start_frame; }
};

}  // namespace app::testing
