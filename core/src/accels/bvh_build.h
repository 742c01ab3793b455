// Building hierarchies: the search for the best split of a range of primitives by the surface area
// heuristic over bins (Wald, "On fast Construction of SAH-based Bounding Volume Hierarchies",
// 2007).
#ifndef RV_BVH_BUILD_H
#define RV_BVH_BUILD_H

#include "accels/build_stats.h"
#include "rv_math.h"
#include "simd.h"

#include <float.h>
#include <string.h>

namespace rv {

inline constexpr uint32_t most_leaf_primitives = 65535;
inline constexpr uint32_t split_depth_limit = 64;

// Lanes x, y, z; the fourth is free.
struct Box4 {
    Float4 low, high;

    static Box4 empty() { return { Float4(FLT_MAX), Float4(-FLT_MAX) }; }
    void extend(const Box4& other)
    {
        low = min(other.low, low);
        high = max(other.high, high);
    }
    void extend(Float4 point)
    {
        low = min(point, low);
        high = max(point, high);
    }
};

// A primitive while it is sorted into the tree.
struct BuildPrim {
    Float4 low;  // w: the bits of the primitive's number
    Float4 high; // w: 0

    BuildPrim() = default;
    // Coordinates that are no numbers, or infinite, become 0 or the largest number: such a
    // primitive is never hit, but must not spoil the boxes around it.
    BuildPrim(const RtBBox& box, uint32_t index);
    uint32_t index() const { return uint32_t(_mm_extract_epi32(_mm_castps_si128(low.v), 3)); }
    Box4 box() const { return { low, high }; }
    // The number of a primitive, read as a float, is tiny: arithmetic on it would take a hundred
    // times longer.
    Float4 centroid() const { return (clearW(low) + high) * Float4(0.5f); }
};

// Primitives [begin, end), which lie next to each other.
struct BuildRange {
    uint32_t begin, end;
    Box4 box;
    Box4 centroids;

    uint32_t size() const { return end - begin; }
};
BuildRange wholeRange(const BuildPrim* prims, uint32_t count);

struct Split {
    bool leaf;
    int axis;
    int plane; // bins up to this one go left; -1: the first half does
    float cost;
};
// What to do with a range at a depth of the binary tree.
Split findSplit(const BuildPrim* prims, const BuildRange& range, uint32_t depth,
                float traversal_cost);
// Sorts the range into its two sides.
void partition(BuildPrim* prims, const BuildRange& range, const Split& split, BuildRange sides[2]);

// Near to far lists of the four slots for every octant of ray directions, two bits a slot. Bit 0,
// 1, 2 of the octant: x, y, z of the direction is negative.
void orderBytes(int axis, int axis_left, int axis_right, uint8_t order[8]);

} // namespace rv

#endif
