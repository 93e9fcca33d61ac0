// SPDX-License-Identifier: GPL-3.0-or-later
// Merging of pieces too small to be matched into the piece whose centre is
// nearest (centres, not touching: an outline fragment joins the closest block
// even across a gap). Rounds repeat until no small piece is left or only one
// piece remains.
#include <cfloat>
#include <cmath>

#include "tracking/segmentation.h"

namespace tracking {

namespace {

struct MergeEntry {
  int64_t parent = -1;
  uint32_t rank = 0;
  uint64_t size = 0;
  int64_t target = -1;
  double cx = 0, cy = 0;
};

int64_t Root(std::vector<MergeEntry>& e, int64_t n) {
  int64_t root = n;
  while (e[size_t(root)].parent != -1) root = e[size_t(root)].parent;
  while (n != root) {
    const int64_t next = e[size_t(n)].parent;
    e[size_t(n)].parent = root;
    n = next;
  }
  return root;
}

struct TreePoint {
  double c[2];
  int64_t position;
};

// Shell sort with the gap halving from n / 2. Not stable; the arrangement of
// equal coordinates it leaves decides which of two equally near pieces wins,
// so the sort must stay this one.
void ShellSort(TreePoint* p, size_t n, int axis) {
  for (size_t gap = n / 2; gap > 0; gap /= 2)
    for (size_t i = gap; i < n; ++i) {
      const TreePoint t = p[i];
      size_t j = i;
      for (; j >= gap && p[j - gap].c[axis] > t.c[axis]; j -= gap) p[j] = p[j - gap];
      p[j] = t;
    }
}

// A 2-d tree laid out in place: each subtree is a range whose middle element
// (n / 2) is the node, sorted by x at even depth and by y at odd depth.
void Build(TreePoint* p, size_t n, int depth) {
  if (n < 2) return;
  ShellSort(p, n, depth % 2);
  Build(p, n / 2, depth + 1);
  Build(p + n / 2 + 1, n - n / 2 - 1, depth + 1);
}

// Nearest point to q at a distance strictly below `best` and not 0: the
// query's own piece and pieces with exactly its centre never count.
void Nearest(
    const TreePoint* p, size_t n, int depth, const double q[2], double& best, int64_t& found) {
  if (n == 0) return;
  const TreePoint& node = p[n / 2];
  const double d =
      std::sqrt((node.c[0] - q[0]) * (node.c[0] - q[0]) + (node.c[1] - q[1]) * (node.c[1] - q[1]));
  if (d < best && d != 0) {
    best = d;
    found = node.position;
  }
  const int axis = depth % 2;
  if (q[axis] < node.c[axis] + best) Nearest(p, n / 2, depth + 1, q, best, found);
  if (node.c[axis] < q[axis] + best)
    Nearest(p + n / 2 + 1, n - n / 2 - 1, depth + 1, q, best, found);
}

void Unite(std::vector<MergeEntry>& e, int64_t a, int64_t b) {
  MergeEntry &ea = e[size_t(a)], &eb = e[size_t(b)];
  const double s1 = double(ea.size), s2 = double(eb.size);
  const double cx = (ea.cx * s1 + eb.cx * s2) / (s1 + s2);
  const double cy = (ea.cy * s1 + eb.cy * s2) / (s1 + s2);
  const uint64_t size = ea.size + eb.size;
  MergeEntry* root;
  if (ea.rank <= eb.rank) {
    ea.parent = b;
    if (ea.rank == eb.rank) ++eb.rank;
    root = &eb;
  } else {
    eb.parent = a;
    root = &ea;
  }
  root->cx = cx;
  root->cy = cy;
  root->size = size;
}

}  // namespace

void Segmentation::merge_small(uint32_t min_pixels) {
  positions_valid = false;
  positions();
  std::vector<MergeEntry> e(segments.size());
  for (size_t i = 0; i < e.size(); ++i) {
    e[i].size = segments[i].pixels;
    e[i].cx = segments[i].centre_x;
    e[i].cy = segments[i].centre_y;
  }

  std::vector<TreePoint> tree;
  for (;;) {
    size_t roots = 0;
    bool small_seen = false, go_on = false;
    for (const MergeEntry& m : e) {
      if (m.parent != -1) continue;
      ++roots;
      small_seen = small_seen || m.size < min_pixels;
      if (small_seen && roots >= 2) {
        go_on = true;
        break;
      }
    }
    if (!go_on) break;

    tree.clear();
    for (size_t i = 0; i < e.size(); ++i)
      if (e[i].parent == -1) tree.push_back({{e[i].cx, e[i].cy}, int64_t(i)});
    Build(tree.data(), tree.size(), 0);

    bool lost = false;
    for (size_t i = 0; i < e.size(); ++i) {
      e[i].target = -1;
      if (e[i].parent != -1 || e[i].size >= min_pixels) continue;
      const double q[2] = {e[i].cx, e[i].cy};
      double best = DBL_MAX;
      int64_t found = -1;
      Nearest(tree.data(), tree.size(), 0, q, best, found);
      if (found < 0) {
        lost = true;
        break;
      }
      e[i].target = found;
    }
    if (lost) break;

    for (size_t i = 0; i < e.size(); ++i) {
      if (e[i].target < 0) continue;
      const int64_t a = Root(e, int64_t(i));
      if (e[size_t(a)].size >= min_pixels) continue;
      const int64_t b = Root(e, e[i].target);
      if (a != b) Unite(e, a, b);
    }
  }

  // Rebuild: roots in order of position become the new records.
  std::vector<size_t> fresh(e.size());
  std::vector<GridSegment> merged;
  for (size_t i = 0; i < e.size(); ++i)
    if (e[i].parent == -1) {
      fresh[i] = merged.size();
      merged.emplace_back();
      merged.back().colour = segments[i].colour;
      merged.back().pixels = uint32_t(e[i].size);
    }
  std::vector<size_t> moved(e.size());
  for (size_t i = 0; i < e.size(); ++i) moved[i] = fresh[size_t(Root(e, int64_t(i)))];
  for (int32_t& l : labels)
    if (l >= 0) l = int32_t(moved[size_t(l)]);
  // No entry is removed from its own record: a record merged from touching
  // pieces stays its own neighbour, which the smoothness weight counts.
  for (size_t i = 0; i < e.size(); ++i)
    for (const auto& [colour, old] : segments[i].neighbours) {
      const size_t n = moved[old];
      merged[moved[i]].neighbours[merged[n].colour] = n;
    }
  index.clear();
  for (size_t i = 0; i < merged.size(); ++i) index[merged[i].colour] = i;
  segments = std::move(merged);
  positions_valid = false;
  statistics_valid = false;
}

}  // namespace tracking
