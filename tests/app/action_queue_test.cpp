// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/model/action_queue.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

struct Counter {
  int value = 0;
  bool fail = false;
  int Get() const { return value; }
  void Set(int v) {
    if (fail) throw std::runtime_error("refused");
    value = v < 0 ? 0 : v;  // clamps like the model's setters
  }
};

using SetCounter =
    MemberValueAction<ChangeValueAction<int>, Counter, int, &Counter::Get, &Counter::Set>;

void Set(ActionQueue& q, Counter& c, int v, std::string name = "Set") {
  q.Push(std::make_unique<SetCounter>(c, v, name));
}

TEST(ActionQueue, ModifiedFollowsTheBalanceAcrossSaves) {
  // Each step, then whether the project reads as modified after it.
  struct Step {
    char op;  // p: push, u: undo, r: redo, s: save
    bool modified;
  };
  const std::vector<std::vector<Step>> scripts = {
      {{'p', true}, {'s', false}, {'u', true}, {'r', false}},
      {{'p', true}, {'p', true}, {'u', true}, {'s', false}, {'r', true}, {'u', false}},
      // Save, undo, save again, redo: the undone action keeps the weight the
      // first save negated, so the redo lowers the balance to -1.
      {{'p', true},
       {'s', false},
       {'u', true},
       {'s', false},
       {'r', false},
       {'u', false},
       {'p', true}},
      // Saving twice without a change: undo drives the balance below zero.
      {{'p', true}, {'s', false}, {'s', false}, {'u', false}, {'r', false}},
  };
  for (size_t i = 0; i < scripts.size(); ++i) {
    ActionQueue q;
    q.SetLimit(1000);
    Counter c;
    int next = 1;
    for (size_t j = 0; j < scripts[i].size(); ++j) {
      switch (scripts[i][j].op) {
        case 'p':
          Set(q, c, next++);
          break;
        case 'u':
          q.Undo();
          break;
        case 'r':
          q.Redo();
          break;
        case 's':
          q.MarkSaved();
          break;
      }
      EXPECT_EQ(q.IsModified(), scripts[i][j].modified) << "script " << i << " step " << j;
    }
  }
}

TEST(ActionQueue, LimitDropsTheOldestAndBalanceStillCounts) {
  ActionQueue q;
  q.SetLimit(3);
  Counter c;
  const char* names[] = {"v1", "v2", "v3", "v4", "v5"};
  for (int v = 1; v <= 5; ++v) Set(q, c, v, names[v - 1]);
  EXPECT_EQ(q.GetSize(), 3u);
  EXPECT_EQ(q.GetModifications(), 5);
  for (int i = 0; i < 5; ++i) q.Undo();
  EXPECT_EQ(c.value, 2);  // three steps back, no further
  EXPECT_EQ(q.GetModifications(), 2);
  EXPECT_TRUE(q.IsModified());
  EXPECT_EQ(q.GetRedoName(), "v3");
  q.SetLimit(1);  // below the redo count: the redo count follows
  EXPECT_EQ(q.GetSize(), 1u);
  EXPECT_EQ(q.GetRedoCount(), 1);
}

TEST(ActionQueue, NewActionCutsRedoButNoChangeKeepsIt) {
  ActionQueue q;
  q.SetLimit(1000);
  Counter c;
  EXPECT_FALSE(q.Push(std::make_unique<SetCounter>(c, -5, "clamps to the value set")));
  EXPECT_EQ(q.GetSize(), 0u);
  Set(q, c, 1);
  Set(q, c, 2);
  Set(q, c, 3);
  q.Undo();
  q.Undo();
  EXPECT_FALSE(q.Push(std::make_unique<SetCounter>(c, 1, "same")));
  EXPECT_EQ(q.GetRedoCount(), 2);
  Set(q, c, 5);
  EXPECT_FALSE(q.CanRedo());
  EXPECT_EQ(q.GetSize(), 2u);
  q.Undo();
  EXPECT_EQ(c.value, 1);
  q.Redo();
  EXPECT_EQ(c.value, 5);
}

TEST(ActionQueue, FailingDoLeavesQueueUnchanged) {
  ActionQueue q;
  q.SetLimit(10);
  Counter c;
  Set(q, c, 4);
  q.Undo();
  c.fail = true;
  EXPECT_THROW(Set(q, c, 7), std::runtime_error);
  EXPECT_EQ(q.GetSize(), 1u);
  EXPECT_EQ(q.GetRedoCount(), 1);
  EXPECT_EQ(q.GetModifications(), 0);
}

TEST(VLActionQueue, MenusShowNextActionFirst) {
  VLActionQueue q;
  q.SetLimit(1000);
  EXPECT_EQ(q.GetMenus().undoWatch, std::vector<std::string>{"(Empty)"});
  EXPECT_EQ(q.GetMenus().undo, (MenuEntry{"Undo", false}));
  Counter c;
  Set(q, c, 1, "Change Offset");
  Set(q, c, 2, "Trim Overlay");
  Set(q, c, 3, "Change Alpha");
  q.Undo();
  const UndoMenus& m = q.GetMenus();
  EXPECT_EQ(m.undoWatch, (std::vector<std::string>{"Trim Overlay", "Change Offset"}));
  EXPECT_EQ(m.redoWatch, std::vector<std::string>{"Change Alpha"});
  EXPECT_EQ(m.undo, (MenuEntry{"Undo Trim Overlay\tCtrl+Z", true}));
  EXPECT_EQ(m.redo, (MenuEntry{"Redo Change Alpha\tCtrl+Shift+Z", true}));
  q.Clear();
  EXPECT_EQ(q.GetMenus().redoWatch, std::vector<std::string>{"(Empty)"});
  EXPECT_EQ(q.GetMenus().redo, (MenuEntry{"Redo", false}));
}

}  // namespace
