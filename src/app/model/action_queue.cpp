// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/model/action_queue.h"

ActionQueue::~ActionQueue() {
  // Oldest first, as Clear does: an action may own a segment that older
  // actions point to.
  while (!actions_.empty()) actions_.pop_back();
}

bool ActionQueue::Push(std::unique_ptr<Action> action) {
  if (!action->Do()) return false;
  modifications_ += action->weight;
  for (int32_t i = 0; i < redoCount_; ++i) actions_.pop_front();
  actions_.push_front(std::move(action));
  if (actions_.size() > limit_) actions_.pop_back();
  redoCount_ = 0;
  OnChanged();
  return true;
}

void ActionQueue::Undo() {
  if (!CanUndo()) return;
  Action& action = *actions_[size_t(redoCount_)];
  action.Undo();
  ++redoCount_;
  modifications_ -= action.weight;
  OnChanged();
}

void ActionQueue::Redo() {
  if (!CanRedo()) return;
  Action& action = *actions_[size_t(redoCount_ - 1)];
  action.Do();
  --redoCount_;
  modifications_ += action.weight;
  OnChanged();
}

void ActionQueue::MarkSaved() {
  modifications_ = 0;
  for (size_t i = size_t(redoCount_); i < actions_.size(); ++i)
    actions_[i]->weight = -actions_[i]->weight;
  OnChanged();
}

void ActionQueue::Clear() {
  while (!actions_.empty()) actions_.pop_back();
  redoCount_ = 0;
  OnChanged();
}

void ActionQueue::SetLimit(unsigned n) {
  while (actions_.size() > n) actions_.pop_back();
  limit_ = n;
  if (int64_t(n) < redoCount_) redoCount_ = int32_t(n);
  OnChanged();
}

std::string ActionQueue::GetUndoName() const {
  return CanUndo() ? actions_[size_t(redoCount_)]->GetName() : std::string();
}

std::string ActionQueue::GetRedoName() const {
  return CanRedo() ? actions_[size_t(redoCount_ - 1)]->GetName() : std::string();
}

void VLActionQueue::OnChanged() {
  UndoMenus menus;
  menus.undoWatch.clear();
  menus.redoWatch.clear();
  for (size_t i = size_t(GetRedoCount()); i < GetSize(); ++i)
    menus.undoWatch.push_back(GetAction(i).GetName());
  for (int32_t i = GetRedoCount() - 1; i >= 0; --i)
    menus.redoWatch.push_back(GetAction(size_t(i)).GetName());
  if (menus.undoWatch.empty()) menus.undoWatch.push_back("(Empty)");
  if (menus.redoWatch.empty()) menus.redoWatch.push_back("(Empty)");
  if (CanUndo()) menus.undo = {"Undo " + GetUndoName() + "\tCtrl+Z", true};
  if (CanRedo()) menus.redo = {"Redo " + GetRedoName() + "\tCtrl+Shift+Z", true};
  menus_ = std::move(menus);
  if (onMenusChanged) onMenusChanged(menus_);
}
