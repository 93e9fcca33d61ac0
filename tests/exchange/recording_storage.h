// A keyframe storage that records what the applicators deliver, block by
// block, for checking order, counts and values without parsing text.
#pragma once

#include <string>
#include <vector>

#include "exchange/keyframe_storage.h"

struct RecordedRow {
  int frame;
  std::vector<double> values;
};

struct RecordedBlock {
  std::string name;  // "Layer 1", "Transform 6", "Corner Pin 3"
  std::vector<RecordedRow> rows;
};

class RecordingStorage : public VL::KeyframeStorage {
 public:
  RecordingStorage(int width, int height, int first, int count, std::vector<RecordedBlock>& blocks)
      : KeyframeStorage(width, height, first, first + count), blocks_(blocks) {}

  void SelectLayerParameter(int which) override {
    effect_.clear();
    blocks_.push_back({"Layer " + std::to_string(which), {}});
  }
  void SelectEffect(const char* name) override { effect_ = name; }
  void SelectEffectParameter(int index) override {
    blocks_.push_back({effect_ + " " + std::to_string(index), {}});
  }
  void AddKeyframe(int frame, double x, double y) override {
    blocks_.back().rows.push_back({frame, {x, y}});
  }
  void AddKeyframe(int frame, double value) override {
    blocks_.back().rows.push_back({frame, {value}});
  }

 private:
  std::vector<RecordedBlock>& blocks_;
  std::string effect_;
};
