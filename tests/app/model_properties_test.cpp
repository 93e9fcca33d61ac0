// The property trees over the real model: a write through a property row is
// one undoable action of the object shown.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "app/model/properties_sets.h"
#include "app_fixtures.h"

namespace {

struct Case {
  const char* name;
  std::function<app::EditableObject*(VLComp&)> object;
  std::vector<std::string_view> path;
  const char* text;
  const char* undo_name;
  std::function<std::string(VLComp&)> value;
};

TEST(ModelProperties, WriteIsOneUndoableActionOfTheShownObject) {
  const Case cases[] = {
      {"composition",
       [](VLComp& c) { return &c.GetInterface(); },
       {"Export", "Framerate"},
       "30",
       "Change Framerate",
       [](VLComp& c) { return std::to_string(c.GetFramerate()); }},
      {"overlay",
       [](VLComp& c) { return &c.GetOverlay().GetInterface(); },
       {"Match frame"},
       "3",
       "Change Match Frame",
       [](VLComp& c) { return std::to_string(c.GetOverlay().GetMatch()); }},
      {"segment",
       [](VLComp& c) { return &c.GetSegmentObject(0).GetInterface(); },
       {"Parameters", "Estimation method", "Tracker size"},
       "12",
       "Change Parameters",
       [](VLComp& c) { return std::to_string(c.GetSegmentObject(0).GetParams().ImageBlockSize); }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    app_testing::CompFixture f(10);
    f.AddSegment(2, {0, 10}, 1.0);
    f.comp.GetOverlay().GetInterface().Import(
        {app_testing::WriteImage(f.dir, "o.bmp", 4, 4, true)});
    app::EditableObject* object = c.object(f.comp);
    const app::Property* node = app::PropertiesFor(object);
    ASSERT_NE(node, nullptr);
    for (auto label : c.path) ASSERT_NE(node = node->Child(label), nullptr) << label;
    app::EditableObject* objects[] = {object};

    VLActionQueue& queue = f.comp.GetActionQueue();
    const size_t steps = queue.GetSize();
    const std::string old_value = c.value(f.comp);
    node->SetText(objects, c.text);
    EXPECT_EQ(c.value(f.comp), c.text);
    EXPECT_EQ(node->GetText(objects), c.text);
    EXPECT_EQ(queue.GetSize(), steps + 1);
    EXPECT_EQ(queue.GetUndoName(), c.undo_name);
    queue.Undo();
    EXPECT_EQ(c.value(f.comp), old_value);
  }
}

}  // namespace
