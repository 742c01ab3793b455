// What the tests of hierarchies share: boxes to build them over, and the boxes of their slots.
#ifndef RV_TREE_TOOLS_H
#define RV_TREE_TOOLS_H

#include "accels/hierarchy.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace tree_tools {

inline RtBBox cube(float x, float y, float z, float size = 1)
{
    return { { x, y, z }, { x + size, y + size, z + size } };
}

inline std::vector<RtBBox> randomBoxes(uint32_t n, float size = 0.1f, unsigned seed = 1)
{
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> uniform(0, 10);
    std::vector<RtBBox> boxes;
    for (uint32_t i = 0; i < n; ++i)
        boxes.push_back(cube(uniform(random), uniform(random), uniform(random), size));
    return boxes;
}

// A family of boxes, all of one key before those of the next.
struct Boxes {
    const std::vector<RtBBox>* boxes;
    uint32_t key_count = 1;

    uint32_t count() const { return uint32_t(boxes->size()) / std::max(1u, key_count); }
    uint32_t keys() const { return key_count; }
    RtBBox box(uint32_t prim, uint32_t key) const { return (*boxes)[key * count() + prim]; }
};

inline RtBBox slotBox(const RtBVH4Node& node, int slot, int)
{
    return { { node.rows[0][slot], node.rows[2][slot], node.rows[4][slot] },
             { node.rows[1][slot], node.rows[3][slot], node.rows[5][slot] } };
}

inline RtBBox slotBox(const RtBVH4MotionNode& node, int slot, int key)
{
    return { { node.rows[key][slot], node.rows[4 + key][slot], node.rows[8 + key][slot] },
             { node.rows[2 + key][slot], node.rows[6 + key][slot], node.rows[10 + key][slot] } };
}

template <class Node> bool isEmptySlot(const Node& node, int slot)
{
    return node.child[slot] == rv::no_child;
}

// Expects every primitive once, in any order.
template <class Numbers> void expectHoldsAll(const Numbers& numbers, uint32_t count)
{
    std::vector<uint32_t> sorted(numbers.begin(), numbers.end());
    std::sort(sorted.begin(), sorted.end());
    ASSERT_EQ(sorted.size(), count);
    for (uint32_t i = 0; i < count; ++i)
        EXPECT_EQ(sorted[i], i);
}

} // namespace tree_tools

#endif
