// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/timing.h"

#include <time.h>

#include <chrono>

namespace timing {

int64_t thread_time() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return int64_t(now.tv_sec) * 10'000'000 + now.tv_nsec / 100;
}

int64_t counter() {
  return std::chrono::steady_clock::now().time_since_epoch().count();
}

int64_t frequency() {
  using period = std::chrono::steady_clock::period;
  return period::den / period::num;
}

node& node::child(std::string_view child_name) {
  auto it = children.find(child_name);
  if (it == children.end()) {
    it = children.emplace(std::string(child_name), node{}).first;
    it->second.name = it->first;
    it->second.parent = this;
  }
  return it->second;
}

tree::tree() : root_(std::make_unique<node>()), current_(root_.get()) {
  root_->name = "root";
}

scope::scope(tree* t, std::string_view name) : tree_(t) {
  if (tree_ == nullptr) return;
  previous_ = tree_->current_;
  node& entered = previous_->child(name);
  tree_->current_ = &entered;
  entered.entry_time = thread_time();
  entered.entry_count = counter();
}

void scope::Stop() {
  if (tree_ == nullptr) return;
  const int64_t time_now = thread_time();
  const int64_t count_now = counter();
  node& n = *tree_->current_;
  const int64_t d = time_now - n.entry_time;
  const int64_t q = count_now - n.entry_count;
  n.node_time += d;
  n.subtree_time += d;
  n.node_count += q;
  n.subtree_count += q;
  ++n.calls_count;
  tree_->current_ = previous_;
  if (previous_->parent != nullptr) {  // the root alone has no parent and stays at zero
    previous_->node_time -= d;
    previous_->node_count -= q;
  }
  tree_ = nullptr;
}

}  // namespace timing
