// SPDX-License-Identifier: GPL-3.0-or-later
// The timing tree as the content of its element in a project file.
//
// The element carries `frequency` (counter ticks per second when written)
// and one child `node` for the root; each node element holds its children
// as `node` elements in name order. Node attributes and their defaults:
// `name` "root", `calls_count` 0, `node_time` 0, `subtree_time` the node's
// `node_time`, `node_count` 0, `subtree_count` the node's `node_count`.
#pragma once

#include <cstdint>

#include "base/timing.h"
#include "base/xml_filter.h"

namespace timing {

// Writes `t` and `frequency` into the element, or reads them from it. A
// null element (no timing in the file) reads as an empty tree and leaves
// `frequency` alone. Reading replaces `t` only when the whole tree was
// read; two children of one name throw "Node is ambiguous (<name>)", and a
// nesting deeper than kMaxXmlDepth throws "timing tree is too deep".
void TimingTreeFields(xml::filter& f, tree& t, int64_t& frequency);

inline constexpr int kMaxXmlDepth = 64;

}  // namespace timing
