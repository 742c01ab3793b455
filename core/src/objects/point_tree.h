// Points in the plane, any of which can be removed, and the question whether a triangle holds one.
#ifndef RV_POINT_TREE_H
#define RV_POINT_TREE_H

#include <stddef.h>
#include <stdint.h>

namespace rv {

struct Point2d {
    double x, y;
};

// Twice the area of (a, b, r), positive when r is to the left of the line from a to b.
inline double edgeSide(const Point2d& a, const Point2d& b, const Point2d& r)
{
    return (b.x - a.x) * (r.y - a.y) - (b.y - a.y) * (r.x - a.x);
}

// A balanced binary tree of boxes over the points; node k has the children 2k + 1 and 2k + 2.
struct PointTree {
    struct Node {
        Point2d min, max;
        uint32_t first, count; // its points in `order`
        uint32_t left;         // points that were not removed
    };

    const Point2d* points;
    uint32_t* order;
    uint32_t* leaf_of; // of each point
    Node* nodes;
    uint32_t node_count;
    uint32_t first_leaf;

    static uint32_t nodeCount(uint32_t points);
    // The arrays above, with room for n points, are set; the points are finite.
    void build(const Point2d* points, uint32_t n);
    void remove(uint32_t point);
    // A point, other than the corners, on or inside the triangle of three points; or no_point. As
    // in a search over all points, rounding included: see point_tree.cpp.
    uint32_t findInside(uint32_t a, uint32_t b, uint32_t c) const;

    static constexpr uint32_t no_point = 0xFFFFFFFF;

private:
    void split(uint32_t node, uint32_t first, uint32_t count);
};

} // namespace rv

#endif
