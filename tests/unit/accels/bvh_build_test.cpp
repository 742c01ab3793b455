// Tests of splitting primitives: bins, the surface area heuristic, the order of slots, build
// counts.
#include "accels/hierarchy.h"

#include "accels/tree_tools.h"
#include "golden.h"
#include "universe_fixture.h"

namespace {

using nlohmann::json;
using namespace tree_tools;

RtBBox boxOf(const json& numbers)
{
    const std::vector<float> v = goldenFloats(numbers);
    return { { v.at(0), v.at(1), v.at(2) }, { v.at(3), v.at(4), v.at(5) } };
}

using Prims = std::vector<rv::BuildPrim>;

Prims primsOf(const std::vector<RtBBox>& boxes)
{
    Prims prims;
    for (const RtBBox& box : boxes)
        prims.emplace_back(box, uint32_t(prims.size()));
    return prims;
}

rv::Split split(const Prims& prims, uint32_t depth = 0, float cost = 1.5f)
{
    return rv::findSplit(prims.data(), rv::wholeRange(prims.data(), uint32_t(prims.size())), depth,
                         cost);
}

template <class Node> struct Tree {
    rv::LineArray<Node> nodes;
    rv::BuildVector<uint32_t> order;
    BuildStats binary_stats;
    Build4Stats wide_stats;
};

template <class Node>
std::unique_ptr<Tree<Node>> build(const std::vector<RtBBox>& boxes, uint32_t keys = 1,
                                  int threads = 1, uint32_t alignment = 1, uint32_t first_key = 0)
{
    auto tree = std::make_unique<Tree<Node>>();
    rv::HierarchyBuilder<Node, Boxes> builder({ &boxes, keys }, first_key,
                                              { 1.5f, threads, alignment });
    builder.build(tree->nodes, tree->order);
    tree->binary_stats = builder.binary_stats;
    tree->wide_stats = builder.wide_stats;
    return tree;
}

bool contains(const RtBBox& outer, const RtBBox& inner)
{
    return RvBBoxInside(outer, inner.min) && RvBBoxInside(outer, inner.max);
}

// Checks that every box holds what is below it, and collects the primitives of all leaves.
template <class Node>
void checkBelow(const Tree<Node>& tree, const Boxes& boxes, uint32_t index,
                std::vector<uint32_t>* found)
{
    const Node& node = tree.nodes[index];
    for (int slot = 0; slot < 4; ++slot) {
        if (isEmptySlot(node, slot))
            continue;
        if (!node.count[slot]) {
            const Node& child = tree.nodes[node.child[slot]];
            for (int key = 0; key < Node::keys; ++key)
                for (int i = 0; i < 4; ++i)
                    if (!isEmptySlot(child, i)) {
                        EXPECT_TRUE(contains(slotBox(node, slot, key), slotBox(child, i, key)));
                    }
            checkBelow(tree, boxes, node.child[slot], found);
            continue;
        }
        for (uint32_t i = node.child[slot]; i < node.child[slot] + node.count[slot]; ++i) {
            found->push_back(tree.order[i]);
            for (int key = 0; key < Node::keys; ++key)
                EXPECT_TRUE(
                    contains(slotBox(node, slot, key), boxes.box(tree.order[i], uint32_t(key))));
        }
    }
}

template <class Node>
void expectComplete(const Tree<Node>& tree, const std::vector<RtBBox>& boxes, uint32_t keys = 1)
{
    const Boxes family = { &boxes, keys };
    std::vector<uint32_t> found;
    checkBelow(tree, family, 0, &found);
    expectHoldsAll(found, family.count());
}

} // namespace

// ---- Splits ----

TEST(BvhBuild, the_first_split_is_the_cheapest_plane)
{
    for (const json& v : goldenVectors("tracing", "sah_first_split")) {
        std::vector<RtBBox> boxes;
        for (const json& box : v.at("in").at("boxes"))
            boxes.push_back(boxOf(box));
        Prims prims = primsOf(boxes);
        const rv::Split got = split(prims, 0, goldenFloat(v.at("in").at("traversal_cost")));
        expectGolden(v, "leaf", got.leaf);
        if (got.leaf)
            continue;
        expectGolden(v, "axis", got.axis);
        expectGolden(v, "plane", got.plane);
        expectGoldenNumbers(v, "cost", { got.cost });
        rv::BuildRange sides[2];
        rv::partition(prims.data(), rv::wholeRange(prims.data(), uint32_t(prims.size())), got,
                      sides);
        std::vector<uint32_t> left;
        for (uint32_t i = sides[0].begin; i < sides[0].end; ++i)
            left.push_back(prims[i].index());
        std::sort(left.begin(), left.end());
        expectGolden(v, "left", left);
    }
}

TEST(BvhBuild, one_primitive_is_a_leaf) { EXPECT_TRUE(split(primsOf({ cube(0, 0, 0) })).leaf); }

TEST(BvhBuild, primitives_in_one_place_are_a_leaf)
{
    EXPECT_TRUE(split(primsOf(std::vector<RtBBox>(100, cube(1, 2, 3)))).leaf);
}

TEST(BvhBuild, the_depth_limit_makes_a_leaf)
{
    const Prims prims = primsOf({ cube(0, 0, 0), cube(10, 0, 0), cube(20, 0, 0) });
    EXPECT_FALSE(split(prims, 63).leaf);
    EXPECT_TRUE(split(prims, 64).leaf);
}

TEST(BvhBuild, a_split_must_be_cheaper_than_the_leaf)
{
    const Prims prims = primsOf({ cube(0, 0, 0), cube(10, 0, 0) });
    EXPECT_FALSE(split(prims, 0, 1).leaf);
    EXPECT_TRUE(split(prims, 0, 2).leaf); // two boxes and the cost together exceed a leaf of two
}

TEST(BvhBuild, ties_go_to_the_first_axis_and_plane)
{
    std::vector<RtBBox> boxes;
    for (float x : { 0.0f, 10.0f })
        for (float y : { 0.0f, 10.0f })
            for (float z : { 0.0f, 10.0f })
                boxes.push_back(cube(x, y, z));
    const rv::Split got = split(primsOf(boxes));
    EXPECT_EQ(got.axis, 0);
    EXPECT_EQ(got.plane, 0);
}

TEST(BvhBuild, more_primitives_than_a_leaf_may_hold_are_always_split)
{
    EXPECT_TRUE(split(primsOf(std::vector<RtBBox>(65535, cube(0, 0, 0)))).leaf);
    Prims prims = primsOf(std::vector<RtBBox>(65536, cube(0, 0, 0)));
    EXPECT_FALSE(split(prims).leaf);
    EXPECT_FALSE(split(prims, 64).leaf);
    rv::BuildRange sides[2];
    rv::partition(prims.data(), rv::wholeRange(prims.data(), 65536), split(prims), sides);
    EXPECT_EQ(sides[0].size(), 32768u);
    EXPECT_EQ(sides[1].size(), 32768u);
}

TEST(BvhBuild, at_the_depth_limit_what_is_too_much_for_a_leaf_is_halved)
{
    Prims prims = primsOf(randomBoxes(70001)); // spread: above the limit a plane parts them
    EXPECT_GE(split(prims, 63).plane, 0);
    for (const uint32_t depth : { 64u, 65u, 80u }) {
        const rv::Split got = split(prims, depth);
        EXPECT_FALSE(got.leaf) << depth;
        EXPECT_EQ(got.plane, -1) << depth;
    }
    rv::BuildRange sides[2];
    rv::partition(prims.data(), rv::wholeRange(prims.data(), 70001), split(prims, 64), sides);
    EXPECT_EQ(sides[0].size(), 35000u);
    EXPECT_EQ(sides[1].size(), 35001u);
    for (const rv::BuildRange& side : sides)
        EXPECT_TRUE(rv::findSplit(prims.data(), side, 65, 1.5f).leaf);
}

TEST(BvhBuild, a_partition_keeps_low_coordinates_left_and_bounds_both_sides)
{
    const std::vector<RtBBox> boxes = randomBoxes(500);
    Prims prims = primsOf(boxes);
    const rv::BuildRange all = rv::wholeRange(prims.data(), 500);
    const rv::Split chosen = split(prims);
    ASSERT_FALSE(chosen.leaf);
    rv::BuildRange sides[2];
    rv::partition(prims.data(), all, chosen, sides);
    EXPECT_EQ(sides[0].end, sides[1].begin);
    alignas(16) float highest_left[4], lowest_right[4];
    sides[0].centroids.high.store(highest_left);
    sides[1].centroids.low.store(lowest_right);
    EXPECT_LE(highest_left[chosen.axis], lowest_right[chosen.axis]);
    for (const rv::BuildRange& side : sides)
        for (uint32_t i = side.begin; i < side.end; ++i) {
            const unsigned outside =
                ((prims[i].low < side.box.low).bits() | (prims[i].high > side.box.high).bits()) & 7;
            EXPECT_EQ(outside, 0u);
        }
}

TEST(BvhBuild, coordinates_that_are_no_numbers_do_not_spoil_the_boxes_of_others)
{
    const float nan = NAN, inf = INFINITY;
    const std::vector<RtBBox> boxes = { cube(0, 0, 0),
                                        cube(5, 5, 5),
                                        { { nan, nan, nan }, { nan, nan, nan } },
                                        { { -inf, 0, 0 }, { inf, 1, 1 } },
                                        cube(9, 9, 9) };
    const Prims prims = primsOf(boxes);
    for (const rv::BuildPrim& prim : prims) {
        alignas(16) float low[4], high[4];
        prim.low.store(low);
        prim.high.store(high);
        for (int axis = 0; axis < 3; ++axis) {
            EXPECT_TRUE(std::isfinite(low[axis]) && std::isfinite(high[axis]));
            EXPECT_LE(low[axis], high[axis]);
        }
    }
    const auto tree = build<RtBVH4Node>(boxes);
    EXPECT_EQ(tree->order.size(), boxes.size());
}

// The area of a box of that size is beyond the numbers.
TEST(BvhBuild, one_huge_primitive_does_not_make_a_leaf_of_all_others)
{
    for (const float huge : { 1e30f, 3e38f, INFINITY })
        for (const size_t place : { 0u, 500u, 999u }) {
            std::vector<RtBBox> boxes = randomBoxes(1000);
            boxes[place] = { { -huge, -huge, -huge }, { huge, huge, huge } };
            const auto tree = build<RtBVH4Node>(boxes);
            EXPECT_GT(tree->nodes.size(), 1u) << huge << " " << place;
            EXPECT_LT(tree->wide_stats.leaf.most_primitives, 1000u) << huge << " " << place;
            expectHoldsAll(tree->order, 1000);
            boxes.insert(boxes.end(), boxes.begin(), boxes.begin() + 1000);
            const auto moving = build<RtBVH4MotionNode>(boxes, 2);
            EXPECT_GT(moving->nodes.size(), 1u) << huge << " " << place;
            expectHoldsAll(moving->order, 1000);
        }
}

// ---- Order of slots ----

TEST(BvhBuild, slots_are_ordered_by_octant)
{
    for (const json& v : goldenVectors("tracing", "order_bytes")) {
        const json& in = v.at("in");
        uint8_t order[8];
        rv::orderBytes(in.at("axis"), in.at("axis_left"), in.at("axis_right"), order);
        expectGolden(v, "order", std::vector<int>(order, order + 8));
    }
}

TEST(BvhBuild, a_ray_against_all_axes_meets_the_last_slot_first)
{
    uint8_t order[8];
    rv::orderBytes(0, 1, 2, order);
    EXPECT_EQ(order[7], 3 + 4 * 2 + 16 * 1 + 64 * 0);
    EXPECT_EQ(order[0], 0xE4);
}

// ---- Trees ----

TEST(BvhBuild, a_hierarchy_of_one_leaf_uses_the_first_slot)
{
    const auto tree = build<RtBVH4Node>(std::vector<RtBBox>(3, cube(0, 0, 0)));
    ASSERT_EQ(tree->nodes.size(), 1u);
    const RtBVH4Node& root = tree->nodes[0];
    EXPECT_EQ(root.count[0], 3);
    EXPECT_EQ(root.child[0], 0u);
    for (int slot = 1; slot < 4; ++slot) {
        EXPECT_EQ(root.child[slot], 0xFFFFFFFFu);
        EXPECT_EQ(root.count[slot], 0xFFFF);
        EXPECT_EQ(slotBox(root, slot, 0).min.x, 3.40282347e38f);
        EXPECT_EQ(slotBox(root, slot, 0).max.z, -3.40282347e38f);
    }
    // Parted by x at all three places, as it were.
    for (int octant = 0; octant < 8; ++octant)
        EXPECT_EQ(root.order[octant], octant & 1 ? 3 + 4 * 2 + 16 * 1 + 64 * 0 : 0xE4) << octant;
    EXPECT_EQ(tree->wide_stats.empty, 3u);
    EXPECT_EQ(tree->wide_stats.leaf.leaves, 1u);
    EXPECT_EQ(tree->binary_stats.leaf.primitives, 3u);
    EXPECT_EQ(tree->binary_stats.nodes, 1u);
    EXPECT_EQ(tree->binary_stats.inner, 0u);
}

TEST(BvhBuild, a_side_that_is_a_leaf_takes_the_first_slot_of_its_pair)
{
    const auto tree = build<RtBVH4Node>({ cube(0, 0, 0), cube(100, 0, 0) });
    ASSERT_EQ(tree->nodes.size(), 1u);
    const RtBVH4Node& root = tree->nodes[0];
    EXPECT_EQ(root.count[0], 1);
    EXPECT_EQ(root.count[1], 0xFFFF);
    EXPECT_EQ(root.count[2], 1);
    EXPECT_EQ(root.count[3], 0xFFFF);
    EXPECT_EQ(tree->order[root.child[0]], 0u);
    EXPECT_EQ(tree->order[root.child[2]], 1u);
    EXPECT_EQ(tree->wide_stats.empty, 2u);
}

TEST(BvhBuild, every_primitive_is_in_one_leaf_inside_all_boxes_above_it)
{
    for (uint32_t n : { 2u, 3u, 5u, 17u, 1000u, 40000u }) {
        const std::vector<RtBBox> boxes = randomBoxes(n);
        expectComplete(*build<RtBVH4Node>(boxes), boxes);
    }
}

TEST(BvhBuild, many_primitives_in_one_place_make_leaves_that_can_count_them)
{
    const std::vector<RtBBox> boxes(200000, cube(0, 0, 0));
    const auto tree = build<RtBVH4Node>(boxes);
    expectComplete(*tree, boxes);
    EXPECT_LE(tree->wide_stats.leaf.most_primitives, 65535u);
}

TEST(BvhBuild, motion_nodes_bound_their_primitives_at_both_keys)
{
    std::vector<RtBBox> boxes = randomBoxes(3000, 0.1f, 1);
    const std::vector<RtBBox> later = randomBoxes(3000, 0.3f, 2);
    boxes.insert(boxes.end(), later.begin(), later.end());
    expectComplete(*build<RtBVH4MotionNode>(boxes, 2), boxes, 2);
}

TEST(BvhBuild, motion_nodes_have_the_size_and_empty_slots_of_their_kind)
{
    EXPECT_EQ(sizeof(RtBVH4MotionNode), 240u);
    const auto node = rv::emptyNode<RtBVH4MotionNode>();
    for (int key = 0; key < 2; ++key) {
        EXPECT_EQ(slotBox(node, 2, key).min.y, 3.40282347e38f);
        EXPECT_EQ(slotBox(node, 2, key).max.y, -3.40282347e38f);
    }
    EXPECT_EQ(node.child[2], 0xFFFFFFFFu);
    EXPECT_EQ(node.count[2], 0xFFFFFFFFu);
}

TEST(BvhBuild, concurrent_builds_make_the_tree_of_one_thread)
{
    const std::vector<RtBBox> boxes = randomBoxes(100000, 0.05f);
    const auto reference = build<RtBVH4Node>(boxes, 1, 1, 4);
    for (int threads : { 2, 3, 16 }) {
        const auto tree = build<RtBVH4Node>(boxes, 1, threads, 4);
        ASSERT_EQ(tree->nodes.size(), reference->nodes.size());
        EXPECT_EQ(memcmp(tree->nodes.data(), reference->nodes.data(), reference->nodes.bytes()), 0);
        EXPECT_EQ(tree->order, reference->order);
    }
}

TEST(BvhBuild, concurrent_builds_of_moving_boxes_make_the_tree_of_one_thread)
{
    std::vector<RtBBox> boxes = randomBoxes(50000, 0.05f, 1);
    for (const RtBBox& box : randomBoxes(50000, 0.1f, 2))
        boxes.push_back(box);
    const auto reference = build<RtBVH4MotionNode>(boxes, 2);
    for (int threads : { 1, 2, 5 }) {
        const auto tree = build<RtBVH4MotionNode>(boxes, 2, threads);
        ASSERT_EQ(tree->nodes.size(), reference->nodes.size()) << threads;
        EXPECT_EQ(memcmp(tree->nodes.data(), reference->nodes.data(), reference->nodes.bytes()), 0)
            << threads;
        EXPECT_EQ(tree->order, reference->order) << threads;
    }
}

TEST(BvhBuild, aligned_leaves_of_up_to_four_stay_in_one_block)
{
    const std::vector<RtBBox> boxes = randomBoxes(20000);
    const auto tree = build<RtBVH4Node>(boxes, 1, 1, 4);
    expectComplete(*tree, boxes);
    for (size_t i = 0; i < tree->nodes.size(); ++i)
        for (int slot = 0; slot < 4; ++slot) {
            const RtBVH4Node& node = tree->nodes[i];
            if (!isEmptySlot(node, slot) && node.count[slot] && node.count[slot] <= 4) {
                EXPECT_EQ(node.child[slot] / 4, (node.child[slot] + node.count[slot] - 1) / 4);
            }
        }
}

TEST(BvhBuild, counts_agree_with_the_tree)
{
    const std::vector<RtBBox> boxes = randomBoxes(5000);
    const auto tree = build<RtBVH4Node>(boxes);
    uint64_t leaves = 0, empty = 0, inner = 0;
    for (size_t i = 0; i < tree->nodes.size(); ++i)
        for (int slot = 0; slot < 4; ++slot) {
            const RtBVH4Node& node = tree->nodes[i];
            empty += isEmptySlot(node, slot);
            inner += !isEmptySlot(node, slot) && !node.count[slot];
            leaves += !isEmptySlot(node, slot) && node.count[slot];
        }
    EXPECT_EQ(tree->wide_stats.nodes, tree->nodes.size());
    EXPECT_EQ(tree->wide_stats.inner, inner);
    EXPECT_EQ(tree->wide_stats.empty, empty);
    EXPECT_EQ(tree->wide_stats.leaf.leaves, leaves);
    EXPECT_EQ(tree->wide_stats.leaf.primitives, 5000u);
    EXPECT_EQ(tree->binary_stats.leaf.leaves, leaves);
    EXPECT_EQ(tree->binary_stats.nodes, 2 * leaves - 1); // as in every binary tree
    EXPECT_EQ(tree->binary_stats.inner, leaves - 1);
}

TEST(BvhBuild, leaf_counts_keep_extremes_sums_and_sizes)
{
    BuildStats stats = {};
    for (uint32_t n : { 3u, 1u, 9u, 2u, 4u, 5u })
        stats.addLeaf(n, n + 1);
    EXPECT_EQ(stats.leaf.leaves, 6u);
    EXPECT_EQ(stats.leaf.primitives, 24u);
    EXPECT_EQ(stats.leaf.least_primitives, 1u);
    EXPECT_EQ(stats.leaf.most_primitives, 9u);
    EXPECT_EQ(stats.leaf.depth_sum, 30u);
    EXPECT_EQ(stats.leaf.least_depth, 2u);
    EXPECT_EQ(stats.leaf.most_depth, 10u);
    const uint64_t sizes[5] = { 1, 1, 1, 1, 2 };
    EXPECT_TRUE(std::equal(sizes, sizes + 5, stats.leaf.of_size));
}

TEST(BvhBuild, counts_of_the_parts_of_a_tree_add_up)
{
    BuildStats first = {}, second = {};
    for (uint32_t i = 0; i < 2; ++i)
        first.addInner();
    for (uint32_t i = 0; i < 5; ++i)
        second.addInner();
    second.addLeaf(3, 7);
    first.merge(second);
    EXPECT_EQ(first.inner, 7u);
    EXPECT_EQ(first.nodes, 8u);
    EXPECT_EQ(first.leaf.leaves, 1u);
    EXPECT_EQ(first.leaf.least_depth, 7u);
}

using BuildStatsDeathTest = Universe;

TEST_F(BuildStatsDeathTest, a_leaf_without_primitives_is_fatal)
{
    // Death tests look at the standard error stream.
    RvMsgSetCallback([](int, int severity, const char* text, int) {
        if (severity == 3)
            fprintf(stderr, "fatal: %s\n", text);
    });
    BuildStats binary = {};
    Build4Stats wide = {};
    EXPECT_DEATH(binary.addLeaf(0, 1), "fatal: reached code line in error: "
                                       "core.src.accels.build_stats:[0-9]+ "
                                       "\\(in BuildStats::addLeaf\\)");
    EXPECT_DEATH(wide.addLeaf(0, 1), "fatal: reached code line in error: "
                                     "core.src.accels.build_stats:[0-9]+ "
                                     "\\(in Build4Stats::addLeaf\\)");
}

TEST_F(Universe, a_build_without_memory_is_reported_and_throws)
{
    const std::vector<RtBBox> boxes = randomBoxes(5000);
    for (long allowed : { 0L, 1L, 2L, 5L, 10L }) {
        rv::limitAllocations(allowed);
        EXPECT_THROW(build<RtBVH4Node>(boxes), std::bad_alloc) << allowed;
        rv::limitAllocations(-1);
        EXPECT_FALSE(takeProblems().empty()) << allowed;
    }
}
