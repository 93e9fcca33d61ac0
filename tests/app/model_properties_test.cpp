// SPDX-License-Identifier: GPL-3.0-or-later
// A property row written over the real model is one undoable action.
#include <gtest/gtest.h>

#include <functional>

#include "app/model/properties_sets.h"
#include "app_fixtures.h"

namespace {

TEST(ModelProperties, WriteIsOneUndoableActionOfTheShownObject) {
  struct Case {
    std::function<app::EditableObject*(VLComp&)> object;
    std::vector<std::string_view> row;
    const char* undo_name;
  } cases[] = {
      {[](VLComp& c) { return &c.GetInterface(); }, {"Export", "Framerate"}, "Change Framerate"},
      {[](VLComp& c) { return &c.GetOverlay().GetInterface(); },
       {"Match frame"},
       "Change Match Frame"},
      {[](VLComp& c) { return &c.GetSegmentObject(0).GetInterface(); },
       {"Parameters", "Estimation method", "Tracker size"},
       "Change Parameters"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.undo_name);
    app_testing::CompFixture f(10);
    f.AddSegment(2, {0, 10}, 1.0);
    f.comp.GetOverlay().GetInterface().Import(
        {app_testing::WriteImage(f.dir, "o.bmp", 4, 4, true)});
    app::EditableObject* objects[] = {c.object(f.comp)};
    const app::Property* row = app::PropertiesFor(objects[0]);
    for (auto label : c.row) ASSERT_NE(row = row ? row->Child(label) : nullptr, nullptr);
    const std::string old_text = row->GetText(objects);
    const size_t steps = f.comp.GetActionQueue().GetSize();
    row->SetText(objects, "7");
    EXPECT_EQ(row->GetText(objects), "7");
    EXPECT_EQ(f.comp.GetActionQueue().GetSize(), steps + 1);
    EXPECT_EQ(f.comp.GetActionQueue().GetUndoName(), c.undo_name);
    f.comp.GetActionQueue().Undo();
    EXPECT_EQ(row->GetText(objects), old_text);
  }
}

}  // namespace
