// SPDX-License-Identifier: GPL-3.0-or-later
// The undo queue: undo and redo to a fixed depth, and the modification
// balance that tells whether the project differs from its file.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/model/action.h"

class ActionQueue {
 public:
  ActionQueue() = default;
  ActionQueue(const ActionQueue&) = delete;
  ActionQueue& operator=(const ActionQueue&) = delete;
  virtual ~ActionQueue();

  // Runs the action's Do and keeps it when it changed something; the redo
  // list is cut off. Returns false (and deletes the action) for no change.
  // An exception from Do leaves the queue unchanged and passes on.
  bool Push(std::unique_ptr<Action> action);
  void Undo();
  void Redo();
  bool CanUndo() const { return size_t(redoCount_) < actions_.size(); }
  bool CanRedo() const { return redoCount_ > 0; }

  bool IsModified() const { return modifications_ > 0; }
  // A change without an action (a tracker's result) modifies the project.
  void CountModification() { ++modifications_; }
  // The balance becomes 0 and the weights of the done actions change sign.
  // Marking twice without a change negates them twice: the balance may then
  // fall below 0 on undo and the project reads as unmodified. Kept so.
  void MarkSaved();
  // Deletes every action; the balance stays.
  void Clear();
  void SetLimit(unsigned n);

  std::string GetUndoName() const;  // empty when nothing to undo
  std::string GetRedoName() const;  // empty when nothing to redo

  unsigned GetLimit() const { return limit_; }
  size_t GetSize() const { return actions_.size(); }
  int32_t GetRedoCount() const { return redoCount_; }
  int32_t GetModifications() const { return modifications_; }
  // Index 0 is the newest action.
  const Action& GetAction(size_t index) const { return *actions_[index]; }

 protected:
  // After every change of the queue.
  virtual void OnChanged() {}

 private:
  unsigned limit_ = 1;
  std::deque<std::unique_ptr<Action>> actions_;  // newest at the front
  int32_t redoCount_ = 0;                        // undone actions at the front
  int32_t modifications_ = 0;
};

// A menu entry as the Edit menu shows it.
struct MenuEntry {
  std::string text;
  bool enabled = false;
  friend bool operator==(const MenuEntry&, const MenuEntry&) = default;
};

// What the Edit menu shows of the queue: the Undo and Redo entries and the
// two watch lists (plain text, next action first).
struct UndoMenus {
  MenuEntry undo{"Undo", false};
  MenuEntry redo{"Redo", false};
  std::vector<std::string> undoWatch{"(Empty)"};
  std::vector<std::string> redoWatch{"(Empty)"};
};

// The composition's queue: keeps UndoMenus current and tells `onMenusChanged`.
class VLActionQueue : public ActionQueue {
 public:
  const UndoMenus& GetMenus() const { return menus_; }
  std::function<void(const UndoMenus&)> onMenusChanged;

 protected:
  void OnChanged() override;

 private:
  UndoMenus menus_;
};
