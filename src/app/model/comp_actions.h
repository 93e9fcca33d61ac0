// SPDX-License-Identifier: GPL-3.0-or-later
// Undo steps on the composition's list of segments (its settings change
// through the generic SettingAction).
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "app/model/action.h"
#include "app/model/comp.h"

// A new segment on top of the stack, made once at construction (with a
// project open) and kept by the action while it is not in the list.
class CreateSegmentAction : public Action {
 public:
  // With `copyActive` and an active segment, the new one takes its
  // parameters and its time span moved to `time`. `maskOnShow` is the mask
  // the view shows at `time` when its display asks to carry it over;
  // otherwise the new mask is empty.
  CreateSegmentAction(VLComp& comp,
                      int32_t time,
                      bool copyActive,
                      const VL::Mask* maskOnShow = nullptr);
  bool Do() override;
  void Undo() override;
  std::string GetName() const override { return "New Segment"; }

 private:
  VLComp& comp_;
  std::unique_ptr<VLSegment> segment_;
};

class DeleteSegmentAction : public Action {
 public:
  explicit DeleteSegmentAction(VLComp& comp) : comp_(comp), index_(comp.GetActiveSegment()) {}
  bool Do() override;
  void Undo() override;
  std::string GetName() const override { return "Delete Segment"; }

 private:
  VLComp& comp_;
  int32_t index_;
  bool wasActive_ = false;
  std::unique_ptr<VLSegment> segment_;
};

class MoveSegmentAction : public Action {
 public:
  MoveSegmentAction(VLComp& comp, int32_t newIndex)
      : comp_(comp), source_(comp.GetActiveSegment()), target_(newIndex) {}
  bool Do() override;
  void Undo() override;
  std::string GetName() const override { return "Move Segment"; }

 private:
  void Move(int32_t from, int32_t to);
  VLComp& comp_;
  int32_t source_;
  int32_t target_;
};

// Sets (SelectAction) or clears (DeselectAction) the selection mark of the
// segments named at construction. The indices stay right because an action
// is undone only after every newer one.
class SelectAction : public Action {
 public:
  // The active segment is left out.
  SelectAction(VLComp& comp, std::vector<int32_t> indices);
  static std::unique_ptr<SelectAction> All(VLComp& comp);
  bool Do() override;
  void Undo() override;
  std::string GetName() const override { return "Select"; }

 protected:
  SelectAction(VLComp& comp, std::vector<int32_t> indices, bool mark);
  void Mark(bool mark);
  VLComp& comp_;
  std::vector<int32_t> indices_;
  bool mark_;
};

class DeselectAction : public SelectAction {
 public:
  DeselectAction(VLComp& comp, std::vector<int32_t> indices)
      : SelectAction(comp, std::move(indices), false) {}
  static std::unique_ptr<DeselectAction> All(VLComp& comp);
  std::string GetName() const override { return "Deselect"; }
};
