// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/model/comp_actions.h"

#include <cstring>
#include <numeric>

CreateSegmentAction::CreateSegmentAction(VLComp& comp,
                                         int32_t time,
                                         bool copyActive,
                                         const VL::Mask* maskOnShow)
    : comp_(comp) {
  if (comp.IsEmpty()) return;
  segment_ = std::make_unique<VLSegment>(comp, time);
  const int32_t active = comp.GetActiveSegment();
  if (copyActive && active >= 0 && active < comp.GetSegmentCount()) {
    const VLSegment& model = comp.GetSegmentObject(active);
    segment_->SetParamsDirect(model.GetParams());
    const int32_t shift = time - model.GetOrigin();
    segment_->SetTimeSpanDirect(model.GetTimeSpan().first + shift,
                                model.GetTimeSpan().last + shift);
  } else {
    segment_->SetParamsDirect(comp.defaultParams);
  }
  if (maskOnShow && maskOnShow->width == comp.GetWidth() &&
      maskOnShow->height == comp.GetHeight()) {
    segment_->SetMaskDirect(*maskOnShow);
  } else {
    VL::Mask mask(comp.GetWidth(), comp.GetHeight());
    if (mask.data) std::memset(mask.data, 0, mask.size);
    segment_->SetMaskDirect(mask);
  }
}

bool CreateSegmentAction::Do() {
  if (!segment_) return false;
  {
    ActiveSegmentKeeper keeper(comp_);
    comp_.InsertSegment(0, std::move(segment_));
  }
  comp_.SetActiveSegment(0);
  return true;
}

void CreateSegmentAction::Undo() {
  if (comp_.IsEmpty() || comp_.GetSegmentCount() == 0) return;
  VLSegment& held = comp_.GetSegmentObject(0);
  if (held.IsActive()) comp_.SetActiveSegment(-1);
  if (held.IsProcessing()) held.Cancel();
  held.GetInterface().EndEdit();
  ActiveSegmentKeeper keeper(comp_);
  segment_ = comp_.RemoveSegment(0);
}

bool DeleteSegmentAction::Do() {
  if (comp_.IsEmpty() || index_ < 0 || index_ >= comp_.GetSegmentCount()) return false;
  VLSegment& held = comp_.GetSegmentObject(index_);
  wasActive_ = held.IsActive();
  if (held.IsProcessing()) held.Cancel();
  held.GetInterface().EndEdit();
  ActiveSegmentKeeper keeper(comp_);
  segment_ = comp_.RemoveSegment(index_);
  return true;
}

void DeleteSegmentAction::Undo() {
  if (!segment_) return;
  {
    ActiveSegmentKeeper keeper(comp_);
    comp_.InsertSegment(index_, std::move(segment_));
  }
  if (wasActive_) comp_.SetActiveSegment(index_);
}

void MoveSegmentAction::Move(int32_t from, int32_t to) {
  ActiveSegmentKeeper keeper(comp_);
  comp_.InsertSegment(to, comp_.RemoveSegment(from));
}

bool MoveSegmentAction::Do() {
  const int32_t count = comp_.GetSegmentCount();
  if (comp_.IsEmpty() || source_ < 0 || source_ >= count || target_ < 0 || target_ >= count ||
      target_ == source_)
    return false;
  Move(source_, target_);
  return true;
}

void MoveSegmentAction::Undo() {
  Move(target_, source_);
}

SelectAction::SelectAction(VLComp& comp, std::vector<int32_t> indices, bool mark)
    : comp_(comp), indices_(std::move(indices)), mark_(mark) {
  std::erase_if(indices_, [&](int32_t i) { return i < 0 || i >= comp.GetSegmentCount(); });
}

SelectAction::SelectAction(VLComp& comp, std::vector<int32_t> indices)
    : SelectAction(comp, std::move(indices), true) {
  std::erase(indices_, comp.GetActiveSegment());
}

static std::vector<int32_t> AllIndices(const VLComp& comp) {
  std::vector<int32_t> all(size_t(comp.GetSegmentCount()));
  std::iota(all.begin(), all.end(), 0);
  return all;
}

std::unique_ptr<SelectAction> SelectAction::All(VLComp& comp) {
  return std::make_unique<SelectAction>(comp, AllIndices(comp));
}

std::unique_ptr<DeselectAction> DeselectAction::All(VLComp& comp) {
  return std::make_unique<DeselectAction>(comp, AllIndices(comp));
}

void SelectAction::Mark(bool mark) {
  for (int32_t i : indices_)
    if (i < comp_.GetSegmentCount()) comp_.GetSegmentObject(i).SetSelected(mark);
}

bool SelectAction::Do() {
  if (indices_.empty() || comp_.IsEmpty()) return false;
  Mark(mark_);
  return true;
}

void SelectAction::Undo() {
  Mark(!mark_);
}
