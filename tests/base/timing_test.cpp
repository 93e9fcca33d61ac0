#include "base/timing.h"

#include <gtest/gtest.h>

namespace {

// Spends processor time on this thread until its clock has moved by `units`
// of 100 ns, so that every timed node has something to measure.
void Burn(int64_t units) {
  const int64_t start = timing::thread_time();
  volatile uint64_t sink = 0;
  while (timing::thread_time() - start < units) sink = sink + 1;
}

TEST(Timing, NodesNestAndParentsExcludeTimedChildren) {
  timing::tree t;
  {
    timing::scope frame(&t, "frame");
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
  EXPECT_EQ(root.name, "root");
  EXPECT_EQ(&t.current(), &root);
  EXPECT_EQ(root.calls_count, 0u);
  EXPECT_EQ(root.node_time, 0);
  EXPECT_EQ(root.subtree_time, 0);
  EXPECT_EQ(root.node_count, 0);
  EXPECT_EQ(root.subtree_count, 0);
  ASSERT_EQ(root.children.size(), 1u);

  const timing::node& frame = root.children.at("frame");
  ASSERT_EQ(frame.children.size(), 2u);
  EXPECT_EQ(frame.children.begin()->first, "match");  // name order
  const timing::node& match = frame.children.at("match");
  const timing::node& refine = frame.children.at("refine");
  const timing::node& fit = match.children.at("fit");
  EXPECT_EQ(frame.calls_count, 1u);
  EXPECT_EQ(match.calls_count, 2u);
  EXPECT_EQ(fit.calls_count, 2u);
  EXPECT_EQ(refine.calls_count, 1u);
  EXPECT_EQ(fit.parent, &match);

  for (const timing::node* n : {&frame, &match, &fit, &refine}) {
    SCOPED_TRACE(n->name);
    int64_t child_time = 0, child_count = 0;
    for (const auto& [name, c] : n->children) {
      child_time += c.subtree_time;
      child_count += c.subtree_count;
    }
    EXPECT_EQ(n->node_time, n->subtree_time - child_time);
    EXPECT_EQ(n->node_count, n->subtree_count - child_count);
    EXPECT_GE(n->node_time, 5000);  // each burnt at least that much outside its children
    EXPECT_GT(n->node_count, 0);
  }
}

TEST(Timing, NullTreeScopeDoesNothing) {
  timing::scope s(nullptr, "anything");
  s.Stop();
  timing::tree t;
  {
    timing::scope outer(&t, "outer");
    timing::scope nothing(nullptr, "inner");
  }
  EXPECT_TRUE(t.root().children.at("outer").children.empty());
  EXPECT_EQ(t.root().children.at("outer").calls_count, 1u);
}

TEST(Timing, FrequencyMatchesTheCounter) {
  // One second of counter ticks is `frequency` ticks.
  EXPECT_EQ(timing::frequency(),
            std::chrono::duration_cast<std::chrono::steady_clock::duration>(std::chrono::seconds(1))
                .count());
}

}  // namespace
