// SPDX-License-Identifier: GPL-3.0-or-later
// The timing tree: how much processor time and wall time each named stage of
// work took on the calling thread, nested as the stages nest.
//
// A stage is timed by a timing::scope. Entering the same name twice below
// the same parent adds to one node. A node's `node_` figures exclude its
// timed children, its `subtree_` figures include them; the root is never
// timed itself and stays at zero. A tree is used by one thread at a time and
// has no lock.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>

namespace timing {

// Processor time (user plus system) of the calling thread, in units of 100 ns.
int64_t thread_time();
// The performance counter: steady-clock ticks.
int64_t counter();
// Ticks of counter() per second; written with the tree as its `frequency`.
int64_t frequency();

struct node {
  std::string name;
  uint32_t calls_count = 0;
  int64_t node_time = 0;      // processor time less that of timed children, 100 ns units
  int64_t subtree_time = 0;   // the same with the children
  int64_t entry_time = 0;     // processor time at the last entry
  int64_t node_count = 0;     // counter ticks less those of timed children
  int64_t subtree_count = 0;  // the same with the children
  int64_t entry_count = 0;    // counter at the last entry
  std::map<std::string, node, std::less<>> children;  // by name: the written order
  node* parent = nullptr;

  // The child of that name, created with all figures zero if missing.
  node& child(std::string_view child_name);
};

class tree {
 public:
  tree();
  tree(tree&&) = default;
  tree& operator=(tree&&) = default;

  // The root, named "root". Nodes stay where they are while the tree lives.
  node& root() { return *root_; }
  const node& root() const { return *root_; }
  // The innermost node entered and not yet stopped; the root when none.
  node& current() { return *current_; }

 private:
  friend class scope;
  std::unique_ptr<node> root_;
  node* current_;
};

// Times one stage from construction to Stop() or destruction. Scopes on one
// tree must end in the reverse order of their start. A null tree makes the
// scope do nothing.
class scope {
 public:
  scope(tree* t, std::string_view name);
  ~scope() { Stop(); }
  scope(const scope&) = delete;
  scope& operator=(const scope&) = delete;

  void Stop();

 private:
  tree* tree_;
  node* previous_ = nullptr;
};

}  // namespace timing
