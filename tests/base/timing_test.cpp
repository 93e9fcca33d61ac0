// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/timing.h"

#include <gtest/gtest.h>

namespace {

// Spends processor time until this thread's clock has moved by `units` of 100 ns.
void Burn(int64_t units) {
  const int64_t start = timing::thread_time();
  volatile uint64_t sink = 0;
  while (timing::thread_time() - start < units) sink = sink + 1;
}

TEST(Timing, RepeatedStagesShareANodeAndParentsExcludeTimedChildren) {
  timing::tree t;
  {
    timing::scope frame(&t, "frame");
    timing::scope ignored(nullptr, "untimed");  // a null tree does nothing
    Burn(5000);
    for (int i = 0; i < 2; ++i) {
      timing::scope match(&t, "match");
      Burn(5000);
      timing::scope fit(&t, "fit");
      Burn(5000);
    }
    timing::scope refine(&t, "refine");
    Burn(5000);
    refine.Stop();
    refine.Stop();  // a second stop is no second call
  }
  const timing::node& root = t.root();
  EXPECT_EQ(&t.current(), &root);
  ASSERT_EQ(root.children.size(), 1u);
  const timing::node& frame = root.children.at("frame");
  ASSERT_EQ(frame.children.size(), 2u);
  EXPECT_EQ(frame.children.begin()->first, "match");  // name order
  const timing::node& match = frame.children.at("match");
  const timing::node& fit = match.children.at("fit");
  const timing::node& refine = frame.children.at("refine");
  EXPECT_EQ(fit.parent, &match);

  const std::pair<const timing::node*, uint32_t> expected[] = {
      {&frame, 1}, {&match, 2}, {&fit, 2}, {&refine, 1}};
  for (const auto& [n, calls] : expected) {
    SCOPED_TRACE(n->name);
    EXPECT_EQ(n->calls_count, calls);
    int64_t child_time = 0, child_count = 0;
    for (const auto& [name, c] : n->children) {
      child_time += c.subtree_time;
      child_count += c.subtree_count;
    }
    EXPECT_EQ(n->node_time, n->subtree_time - child_time);
    EXPECT_EQ(n->node_count, n->subtree_count - child_count);
    EXPECT_GE(n->node_time, 5000);  // each burnt that much outside its children
  }
}

}  // namespace
