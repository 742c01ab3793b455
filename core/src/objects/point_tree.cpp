// point_tree: a search for points inside triangles that finds the same as trying every point.
//
// A box is passed over when the edge test fails everywhere in it. The corner of the box for which
// the test gives most is tried with the operations of the test itself; as each of them is monotonic
// under rounding, no point inside the box gives more. So no tolerance is needed, and triangles
// without area are no special case.
#include "objects/point_tree.h"

#include <algorithm>

namespace rv {

static constexpr uint32_t points_per_leaf = 8;

// Levels of inner nodes.
static uint32_t depthOf(uint32_t n)
{
    uint32_t depth = 0;
    while ((uint64_t(points_per_leaf) << depth) < n)
        ++depth;
    return depth;
}

uint32_t PointTree::nodeCount(uint32_t n) { return uint32_t((uint64_t(2) << depthOf(n)) - 1); }

void PointTree::build(const Point2d* all, uint32_t n)
{
    points = all;
    node_count = nodeCount(n);
    first_leaf = node_count / 2;
    for (uint32_t i = 0; i < n; ++i)
        order[i] = i;
    split(0, 0, n);
}

void PointTree::split(uint32_t node, uint32_t first, uint32_t count)
{
    Node& n = nodes[node];
    n = { points[order[first]], points[order[first]], first, count, count };
    for (uint32_t i = first; i < first + count; ++i) {
        const Point2d& p = points[order[i]];
        n.min = { std::min(n.min.x, p.x), std::min(n.min.y, p.y) };
        n.max = { std::max(n.max.x, p.x), std::max(n.max.y, p.y) };
    }
    if (node >= first_leaf) {
        for (uint32_t i = first; i < first + count; ++i)
            leaf_of[order[i]] = node;
        return;
    }
    const bool along_x = n.max.x - n.min.x > n.max.y - n.min.y;
    const uint32_t half = count / 2;
    std::nth_element(order + first, order + first + half, order + first + count,
                     [&](uint32_t a, uint32_t b) {
                         return along_x ? points[a].x < points[b].x : points[a].y < points[b].y;
                     });
    split(2 * node + 1, first, half);
    split(2 * node + 2, first + half, count - half);
}

void PointTree::remove(uint32_t point)
{
    uint32_t node = leaf_of[point];
    Node& leaf = nodes[node];
    uint32_t* const begin = order + leaf.first;
    std::swap(*std::find(begin, begin + leaf.left, point), begin[leaf.left - 1]);
    for (;; node = (node - 1) / 2) {
        --nodes[node].left;
        if (node == 0)
            return;
    }
}

namespace {

// One side of a triangle.
struct Edge {
    Point2d from;
    double dx, dy;

    Edge(const Point2d& a, const Point2d& b) : from(a), dx(b.x - a.x), dy(b.y - a.y) {}
    double side(double x, double y) const { return dx * (y - from.y) - dy * (x - from.x); }
    bool admits(const Point2d& p) const { return side(p.x, p.y) >= 0; }
    // Some point of the box may pass.
    bool admits(const PointTree::Node& box) const
    {
        return side(dy > 0 ? box.min.x : box.max.x, dx > 0 ? box.max.y : box.min.y) >= 0;
    }
};

} // namespace

uint32_t PointTree::findInside(uint32_t a, uint32_t b, uint32_t c) const
{
    const Edge ab(points[a], points[b]), bc(points[b], points[c]), ca(points[c], points[a]);
    const auto admitted = [&](const auto& what) {
        return ab.admits(what) && bc.admits(what) && ca.admits(what);
    };
    uint32_t stack[64]; // one entry a level waits
    int top = 0;
    stack[top++] = 0;
    while (top > 0) {
        const uint32_t node = stack[--top];
        const Node& n = nodes[node];
        if (n.left == 0 || !admitted(n))
            continue;
        if (node < first_leaf) {
            stack[top++] = 2 * node + 2;
            stack[top++] = 2 * node + 1;
            continue;
        }
        for (uint32_t i = n.first; i < n.first + n.left; ++i) {
            const uint32_t p = order[i];
            if (p != a && p != b && p != c && admitted(points[p]))
                return p;
        }
    }
    return no_point;
}

} // namespace rv
