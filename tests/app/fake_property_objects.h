// Objects for the property trees to read and write: plain fields, and every
// setter call recorded as text so that a test sees exactly what reached the
// object.
#pragma once

#include <sstream>
#include <string>
#include <vector>

#include "app/model/properties_access.h"

namespace app::testing {

// Records each setter call as "Name arg arg ...".
struct CallLog {
  std::vector<std::string> calls;
  template <class... A>
  void Log(const char* name, const A&... args) {
    std::ostringstream line;
    line << name;
    ((line << ' ' << args), ...);
    calls.push_back(line.str());
  }
};

class FakeComposition : public CompositionAccess, public CallLog {
 public:
  uint32_t framerate = 50;
  PixelAspectRatio aspect{1, 1};
  float inaccuracy = 0.3f;
  TaskType task = TaskType::Tracking;
  ExportModel model = ExportModel::Auto;
  int32_t start_frame = 0;
  My::Span work_area{0, 100};

  uint32_t GetFramerate() const override { return framerate; }
  void SetFramerate(uint32_t v) override { Log("SetFramerate", v); }
  PixelAspectRatio GetPixelAspect() const override { return aspect; }
  void SetPixelAspect(const PixelAspectRatio& v) override { Log("SetPixelAspect", v.num, v.den); }
  float GetExportInaccuracy() const override { return inaccuracy; }
  void SetExportInaccuracy(float v) override { Log("SetExportInaccuracy", v); }
  TaskType GetTask() const override { return task; }
  void SetTask(TaskType v) override { Log("SetTask", static_cast<int>(v)); }
  ExportModel GetExportModel() const override { return model; }
  void SetExportModel(ExportModel v) override { Log("SetExportModel", static_cast<int>(v)); }
  int32_t GetStartFrame() const override { return start_frame; }
  void SetStartFrame(int32_t v) override { Log("SetStartFrame", v); }
  My::Span GetWorkArea() const override { return work_area; }
  void SetWorkArea(int32_t first, int32_t last) override { Log("SetWorkArea", first, last); }
};

class FakeOverlay : public OverlayAccess, public CallLog {
 public:
  bool still = false;
  int32_t source_offset = 0, match = 0;
  My::Span trimming{0, 10};
  types::affine initial;
  Alignment alignment = Alignment::No;
  AlphaInterpretation alpha = AlphaInterpretation::Straight;
  types::affine last_transform;  // the argument of the last SetInitialTransform

  bool IsStill() const override { return still; }
  int32_t GetSourceOffset() const override { return source_offset; }
  void SetSourceOffset(int32_t v) override { Log("SetSourceOffset", v); }
  My::Span GetTrimming() const override { return trimming; }
  void SetTrimming(int32_t first, int32_t last) override { Log("SetTrimming", first, last); }
  int32_t GetMatch() const override { return match; }
  void SetMatch(int32_t v) override { Log("SetMatch", v); }
  const types::affine& GetInitialTransform() const override { return initial; }
  void SetInitialTransform(const types::affine& v) override {
    Log("SetInitialTransform");
    last_transform = v;
  }
  Alignment GetAlignment() const override { return alignment; }
  void SetAlignment(Alignment v) override { Log("SetAlignment", static_cast<int>(v)); }
  AlphaInterpretation GetAlpha() const override { return alpha; }
  void SetAlpha(AlphaInterpretation v) override { Log("SetAlpha", static_cast<int>(v)); }
};

class FakeSegment : public SegmentAccess, public CallLog {
 public:
  My::Span time_span{10, 21};
  VLSegmentParams params;
  bool processing = false;
  int32_t start_frame = 0;
  std::vector<VLSegmentParams> sent;  // every record given to SetParams

  My::Span GetTimeSpan() const override { return time_span; }
  void SetTimeSpan(int32_t first, int32_t last) override { Log("SetTimeSpan", first, last); }
  const VLSegmentParams& GetParams() const override { return params; }
  void SetParams(const VLSegmentParams& v) override {
    Log("SetParams");
    sent.push_back(v);
  }
  bool IsProcessing() const override { return processing; }
  int32_t GetCompositionStartFrame() const override { return start_frame; }
};

}  // namespace app::testing
