// Cutting single polygons into triangles.
#ifndef RV_TRIANGULATE_H
#define RV_TRIANGULATE_H

#include "objects/point_tree.h"
#include "rv_math.h"

#include <stdint.h>

namespace rv {

// Room to work on polygons of up to `capacity` corners, one after another.
struct TriangulateScratch {
    uint32_t capacity;
    void* block; // holds everything below
    RtPoint* points;
    Point2d* flat;
    uint32_t* corners; // 3 for each triangle
    uint32_t* previous;
    uint32_t* next;
    uint32_t* first_blocked; // see triangulate.cpp
    uint32_t* next_blocked;
    uint32_t* previous_blocked;
    uint64_t* candidates; // one bit for each corner
    PointTree tree;
};
// False when the heap is exhausted; nothing is then left to free.
bool createTriangulateScratch(TriangulateScratch* scratch, uint32_t capacity);
void freeTriangulateScratch(TriangulateScratch* scratch);

// Six corner numbers, two triangles.
void triangulateQuad(const RtPoint points[4], uint32_t corners[6]);

// Cuts a polygon of n >= 4 corners, counter-clockwise seen from its normal. Writes 3 (n - 2) corner
// numbers; false, when the polygon cannot be cut.
bool triangulate3d(const RtPoint* points, uint32_t n, TriangulateScratch* scratch,
                   uint32_t* corners);
// The same in the plane.
bool triangulate2d(const Point2d* points, uint32_t n, TriangulateScratch* scratch,
                   uint32_t* corners);

} // namespace rv

#endif
