// Tests of the walk of a ray through the nodes of a hierarchy: which leaves it visits, in which
// order, and what ends it.
#include "accels/bvh4.h"

#include "accels/tree_tools.h"
#include "rv_rays.h"
#include "universe_fixture.h"

#include <array>

namespace {

using namespace tree_tools;
using Slots = std::vector<uint32_t>;

rv::KeyBoxes still(const RtBBox& box)
{
    const rv::Box4 bounds = rv::BuildPrim(box, 0).box();
    return { { bounds, bounds } };
}

const RtBBox around_origin = { { -1, -1, -1 }, { 1, 1, 1 } };

// Towards and through the origin, in a direction of the octant.
RtObjectRay rayOf(unsigned octant)
{
    const auto sign = [octant](unsigned axis) { return octant >> axis & 1 ? -1.0f : 1.0f; };
    const RtVector dir = { sign(0), sign(1), sign(2) };
    return { { -5 * dir.x, -5 * dir.y, -5 * dir.z }, dir, 0, 0, rv_no_primitive };
}

uint8_t orderByte(const std::array<uint32_t, 4>& near_to_far)
{
    return uint8_t(near_to_far[0] + 4 * near_to_far[1] + 16 * near_to_far[2] + 64 * near_to_far[3]);
}

// Kinds of nodes, and the two ways through them.
template <class NodeType, bool IsPaired> struct Way {
    using Node = NodeType;
    static constexpr bool is_paired = IsPaired;
};

template <class W> class Traversal : public ::testing::Test {
protected:
    using Node = typename W::Node;

    // A leaf of one primitive, whose number is that of the leaf.
    static void setLeaf(Node& node, uint32_t slot, uint32_t leaf, const RtBBox& box = around_origin)
    {
        rv::setBoxes(node, int(slot), still(box));
        node.child[slot] = leaf;
        node.count[slot] = 1;
    }
    // Four leaves that all rays of rayOf() enter.
    static Node fourLeaves(uint32_t first = 0)
    {
        Node node = rv::emptyNode<Node>();
        for (uint32_t slot = 0; slot < 4; ++slot)
            setLeaf(node, slot, first + slot);
        return node;
    }

    // The leaves in the order of the visit; visit(leaf, hits) does what primitives do.
    template <class Visit>
    static Slots visited(const std::vector<Node>& nodes, const RtObjectRay& ray, const Visit& visit,
                         bool far_first = false)
    {
        Slots leaves;
        RtHitList hits = {};
        hits.maxdist = 1e30f;
        rv::traverse<W::is_paired>(nodes.data(), ray, far_first, 0.5f, hits,
                                   [&](uint32_t first, uint32_t count) {
                                       EXPECT_EQ(count, 1u);
                                       leaves.push_back(first);
                                       visit(first, hits);
                                   });
        return leaves;
    }
    static Slots visited(const std::vector<Node>& nodes, const RtObjectRay& ray)
    {
        return visited(nodes, ray, [](uint32_t, RtHitList&) {});
    }
};

using Ways = ::testing::Types<Way<RtBVH4Node, false>, Way<RtBVH4Node, true>,
                              Way<RtBVH4MotionNode, false>, Way<RtBVH4MotionNode, true>>;
TYPED_TEST_SUITE(Traversal, Ways);

} // namespace

// ---- Order ----

TYPED_TEST(Traversal, a_ray_against_all_axes_visits_the_last_slot_first)
{
    auto node = this->fourLeaves();
    rv::orderBytes(0, 1, 2, node.order);
    ASSERT_EQ(node.order[7], 27);
    static const Slots expected[8] = {
        { 0, 1, 2, 3 }, { 2, 3, 0, 1 }, { 1, 0, 2, 3 }, { 2, 3, 1, 0 },
        { 0, 1, 3, 2 }, { 3, 2, 0, 1 }, { 1, 0, 3, 2 }, { 3, 2, 1, 0 },
    };
    for (unsigned octant = 0; octant < 8; ++octant)
        EXPECT_EQ(this->visited({ node }, rayOf(octant)), expected[octant]) << octant;
}

// The others are empty, or away from the ray.
TYPED_TEST(Traversal, the_slots_that_a_ray_enters_are_visited_in_any_order_that_a_node_states)
{
    for (unsigned entered = 0; entered < 16; ++entered)
        for (unsigned octant = 0; octant < 8; ++octant) {
            std::array<uint32_t, 4> order = { 0, 1, 2, 3 };
            do {
                auto node = rv::emptyNode<typename TypeParam::Node>();
                for (uint32_t slot = 0; slot < 4; ++slot)
                    if (entered >> slot & 1)
                        this->setLeaf(node, slot, slot);
                    else if (slot % 2)
                        this->setLeaf(node, slot, slot, cube(50, 0, 0));
                node.order[octant] = orderByte(order);
                Slots expected;
                for (const uint32_t slot : order)
                    if (entered >> slot & 1)
                        expected.push_back(slot);
                ASSERT_EQ(this->visited({ node }, rayOf(octant)), expected)
                    << entered << " " << octant << " " << int(node.order[octant]);
            } while (std::next_permutation(order.begin(), order.end()));
        }
}

// A root, four nodes below it and sixteen leaves.
TYPED_TEST(Traversal, all_of_a_near_node_is_visited_before_the_next_one)
{
    const std::array<uint32_t, 4> root_order = { 2, 0, 3, 1 };
    const std::array<uint32_t, 4> orders[4] = {
        { 3, 2, 1, 0 }, { 1, 0, 3, 2 }, { 0, 1, 2, 3 }, { 2, 3, 0, 1 }
    };
    for (unsigned octant = 0; octant < 8; ++octant) {
        auto root = this->fourLeaves(1); // the slots hold the nodes 1 to 4
        std::fill_n(root.count, 4, 0);
        root.order[octant] = orderByte(root_order);
        std::vector nodes = { root };
        for (uint32_t i = 0; i < 4; ++i) {
            nodes.push_back(this->fourLeaves(10 * i));
            nodes.back().order[octant] = orderByte(orders[i]);
        }
        Slots expected;
        for (const uint32_t i : root_order)
            for (const uint32_t slot : orders[i])
                expected.push_back(10 * i + slot);
        EXPECT_EQ(this->visited(nodes, rayOf(octant)), expected) << octant;
    }
}

TYPED_TEST(Traversal, far_first_visits_the_leaves_the_other_way_round)
{
    std::vector nodes = { this->fourLeaves(1) };
    std::fill_n(nodes[0].count, 4, 0);
    for (uint32_t i = 0; i < 4; ++i)
        nodes.push_back(this->fourLeaves(10 * i));
    for (size_t i = 0; i < nodes.size(); ++i)
        rv::orderBytes(int(i) % 3, int(i + 1) % 3, int(i + 2) % 3, nodes[i].order);
    for (unsigned octant = 0; octant < 8; ++octant) {
        Slots expected = this->visited(nodes, rayOf(octant));
        std::reverse(expected.begin(), expected.end());
        const auto nothing = [](uint32_t, RtHitList&) {};
        EXPECT_EQ(this->visited(nodes, rayOf(octant), nothing, true), expected) << octant;
    }
}

// ---- The end ----

TYPED_TEST(Traversal, a_done_hit_list_ends_it_after_the_leaf)
{
    auto node = this->fourLeaves();
    rv::orderBytes(0, 1, 2, node.order);
    for (size_t last = 0; last < 4; ++last) {
        const Slots all = { 3, 2, 1, 0 };
        const Slots leaves = this->visited({ node }, rayOf(7), [&](uint32_t leaf, RtHitList& hits) {
            hits.found = leaf == all[last];
        });
        EXPECT_EQ(leaves, Slots(all.begin(), all.begin() + ptrdiff_t(last) + 1));
    }
}

TYPED_TEST(Traversal, a_near_hit_hides_the_slots_that_begin_at_it_or_behind_it)
{
    auto node = rv::emptyNode<typename TypeParam::Node>();
    for (uint32_t slot = 0; slot < 4; ++slot) // they begin at the distances 1, 2, 3 and 4
        this->setLeaf(node, slot, slot, cube(float(slot) + 1, -0.5f, -0.5f));
    node.order[0] = orderByte({ 0, 1, 2, 3 });
    const RtObjectRay ray = { { 0, 0, 0 }, { 1, 0, 0 }, 0, 0, rv_no_primitive };
    static const struct {
        float hit;
        Slots leaves;
    } cases[] = {
        { 1.5f, { 0 } },       { 2, { 0 } },       { 2.5f, { 0, 1 } },    { 3, { 0, 1 } },
        { 3.5f, { 0, 1, 2 } }, { 4, { 0, 1, 2 } }, { 9, { 0, 1, 2, 3 } },
    };
    for (const auto& c : cases)
        EXPECT_EQ(this->visited({ node }, ray,
                                [&](uint32_t leaf, RtHitList& hits) {
                                    if (leaf == 0)
                                        hits.maxdist = c.hit;
                                }),
                  c.leaves)
            << c.hit;
}

TYPED_TEST(Traversal, slots_that_end_before_the_ray_begins_are_not_visited)
{
    auto node = rv::emptyNode<typename TypeParam::Node>();
    for (uint32_t slot = 0; slot < 4; ++slot)
        this->setLeaf(node, slot, slot, cube(2 * float(slot), -0.5f, -0.5f));
    node.order[0] = orderByte({ 0, 1, 2, 3 });
    const RtObjectRay ray = { { -1, 0, 0 }, { 1, 0, 0 }, 4.5f, 0, rv_no_primitive };
    EXPECT_EQ(this->visited({ node }, ray), (Slots{ 2, 3 }));
}
