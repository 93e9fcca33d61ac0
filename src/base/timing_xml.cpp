// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/timing_xml.h"

namespace timing {
namespace {

constexpr const char* kNode = "node";
constexpr const char* kRootName = "root";

void NodeFields(xml::filter& f, node& n, int depth) {
  if (depth > kMaxXmlDepth) throw xml::exception("timing tree is too deep", kNode);
  f.defaulted("name", n.name, kRootName);
  f.defaulted("calls_count", n.calls_count, 0);
  f.defaulted("node_time", n.node_time, 0);
  // The subtree figures default to the node's own, read just above: a leaf
  // stores each time once.
  f.defaulted("subtree_time", n.subtree_time, n.node_time);
  f.defaulted("node_count", n.node_count, 0);
  f.defaulted("subtree_count", n.subtree_count, n.node_count);

  if (!f.reading()) {
    for (auto& [name, child] : n.children) {
      xml::filter inner = f.Sub(kNode);
      NodeFields(inner, child, depth + 1);
    }
    return;
  }
  for (const xml::node& element : f.children(kNode)) {
    xml::filter inner = f.At(element);
    // The child is made in its final place before its own children are
    // read, because they point back at it.
    std::string name;
    inner.defaulted("name", name, kRootName);
    auto [it, fresh] = n.children.try_emplace(name);
    if (!fresh) throw xml::exception("Node is ambiguous (" + name + ")", name);
    it->second.parent = &n;
    NodeFields(inner, it->second, depth + 1);
  }
}

}  // namespace

void TimingTreeFields(xml::filter& f, tree& t, int64_t& frequency) {
  if (!f.reading()) {
    f.required("frequency", frequency);
    xml::filter inner = f.Sub(kNode);
    NodeFields(inner, t.root(), 0);
    return;
  }
  if (f.isNull()) {
    t = tree();
    return;
  }
  int64_t read_frequency = 0;
  f.required("frequency", read_frequency);
  tree scratch;
  xml::filter inner = f.Sub(kNode);
  if (!inner.isNull()) NodeFields(inner, scratch.root(), 0);
  t = std::move(scratch);
  frequency = read_frequency;
}

}  // namespace timing
