// The structures over the primitives of a family, their traversal, and the choice between them.
//
// Beside what building needs (accels/hierarchy.h) a family intersects a primitive:
//   template <bool Moving> void intersect(uint32_t prim, const KeyPair& keys, RtGObject*,
//       const RtTraversal&, const RtObjectRay&, RtHitList&) const;
// and names how the leaves of a still hierarchy hold their primitives:
//   using Leaves = IndexLeaves<Family>;
#ifndef RV_BVH4_H
#define RV_BVH4_H

#include "accels/hierarchy.h"
#include "counters.h"
#include "duration.h"
#include "msg.h"
#include "objects/gobject.h"
#include "options.h"
#include "rv_rays.h"
#include "system/clock.h"

#include <bit>

namespace rv {

// What a query hands down to the primitives.
struct Query {
    RtGObject* object;
    const RtTraversal& traversal;
    const RtObjectRay& ray;
    RtHitList& hits;
};

// Leaves that hold the numbers of their primitives.
template <class Family> struct IndexLeaves {
    static constexpr uint32_t alignment = 1;
    BuildVector<uint32_t> order;

    void build(const Family&, BuildVector<uint32_t>&& primitives, int)
    {
        order = std::move(primitives);
    }
    size_t bytes() const { return order.size() * sizeof(uint32_t); }
    template <bool Moving>
    void intersect(const Family& family, uint32_t first, uint32_t count, const KeyPair& keys,
                   const Query& query) const
    {
        for (uint32_t i = first; i < first + count && !query.hits.found; ++i)
            family.template intersect<Moving>(order[i], keys, query.object, query.traversal,
                                              query.ray, query.hits);
    }
};

// ---- Traversal ----

// A child: a leaf of `count` primitives from `index` on, or the node `index` when there are none.
struct StackEntry {
    uint32_t count;
    uint32_t index;
};

// A binary path has at most 64 splits and then 17 halvings, a four-wide one half as many nodes.
// Each leaves three slots on the stack, and four more of a node that was opened with it. A push
// writes four places, whatever it keeps.
inline constexpr int stack_size = 7 * ((split_depth_limit + 17) / 2 + 1) + 12;

// The ray as the box tests of a hierarchy want it.
struct BoxRay {
    Float4 origin[3], inverse[3], mindist, maxdist;
    unsigned near_row[3]; // 0 or 1: whether the ray meets the minimum or the maximum first
    unsigned octant;      // of the order in which children are visited

    // With `far_first` the children are visited from far to near.
    BoxRay(const RtObjectRay& ray, float longest, bool far_first)
        : mindist(ray.mindist), maxdist(longest)
    {
        // Directions without a component give infinities, which the comparisons handle.
        const float o[3] = { ray.origin.x, ray.origin.y, ray.origin.z };
        const float d[3] = { ray.dir.x, ray.dir.y, ray.dir.z };
        octant = far_first ? 7 : 0; // the opposite direction sees everything the other way round
        for (unsigned axis = 0; axis < 3; ++axis) {
            const float inv = 1 / d[axis];
            origin[axis] = Float4(o[axis]);
            inverse[axis] = Float4(inv);
            near_row[axis] = inv < 0;
            octant ^= near_row[axis] << axis;
        }
    }
};

// Distances at which the ray enters and leaves the four boxes.
struct SlotSpans {
    Float4 tnear, tfar;
};

// `at(axis, side)` gives the four minima (side 0) or maxima (side 1).
template <class Rows> inline SlotSpans slotSpans(const BoxRay& ray, const Rows& at)
{
    Float4 enter[3], leave[3];
    for (unsigned axis = 0; axis < 3; ++axis) {
        const unsigned near = ray.near_row[axis];
        enter[axis] = (at(axis, near) - ray.origin[axis]) * ray.inverse[axis];
        leave[axis] = (at(axis, 1 - near) - ray.origin[axis]) * ray.inverse[axis];
    }
    // NaN, from a box side that the ray runs along, limits nothing: it is never the second operand
    // of the last comparison.
    return { max(enter[0], max(enter[1], max(enter[2], ray.mindist))),
             min(leave[0], min(leave[1], min(leave[2], ray.maxdist))) };
}

inline SlotSpans slotSpans(const RtBVH4Node& node, const BoxRay& ray, float)
{
    return slotSpans(ray, [&node](unsigned axis, unsigned side) {
        return Float4::load(node.rows[2 * axis + side]);
    });
}

inline SlotSpans slotSpans(const RtBVH4MotionNode& node, const BoxRay& ray, float weight)
{
    const Float4 w1(weight), w0(1 - weight);
    return slotSpans(ray, [&](unsigned axis, unsigned side) {
        return w0 * Float4::load(node.rows[4 * axis + 2 * side]) +
               w1 * Float4::load(node.rows[4 * axis + 2 * side + 1]);
    });
}

// Orders of lanes for permute().
struct LaneOrders {
    alignas(16) uint32_t reversed[256][4]; // by the order byte of a node: its last slot first
    alignas(16) uint32_t packed[16][4];    // by mask: the lanes in it
};

constexpr LaneOrders laneOrders()
{
    LaneOrders orders = {};
    for (unsigned order = 0; order < 256; ++order)
        for (unsigned place = 0; place < 4; ++place)
            orders.reversed[order][3 - place] = laneBytes(order >> 2 * place & 3);
    for (unsigned mask = 0; mask < 16; ++mask)
        for (unsigned lane = 0, n = 0; lane < 4; ++lane)
            if (mask >> lane & 1)
                orders.packed[mask][n++] = laneBytes(lane);
    return orders;
}
inline constexpr LaneOrders lane_orders = laneOrders();

// Children that wait to be visited, the next one on top.
struct TraversalStack {
    float tnear[stack_size];
    uint32_t count[stack_size], index[stack_size];
    unsigned top = 0;

    // Takes the next child that begins before maxdist; false when there is none.
    bool pop(float maxdist, StackEntry* entry)
    {
        do {
            if (!top)
                return false;
            --top;
        } while (!(tnear[top] < maxdist));
        *entry = { count[top], index[top] };
        return true;
    }
};

// The children of a node that a ray enters, and the order in which it visits them.
template <class Node> struct NodeHits {
    const Node& node;
    unsigned order;
    Int4 reversed;
    Float4 tnear;
    unsigned mask; // bit 3 is the first slot in the order, bit 0 the last one

    NodeHits(const Node& n, const BoxRay& ray, float weight)
        : node(n), order(n.order[ray.octant]), reversed(Int4::load(lane_orders.reversed[order]))
    {
        const SlotSpans spans = slotSpans(n, ray, weight);
        tnear = spans.tnear;
        mask = permute(spans.tnear <= spans.tfar, reversed).bits();
    }
    // Pushes them all, the first one last and without a branch: whatever is written above the top
    // does not count.
    void push(TraversalStack& stack) const
    {
        const Int4 lanes = permute(reversed, Int4::load(lane_orders.packed[mask]));
        const unsigned top = stack.top;
        permute(tnear, lanes).storeUnaligned(stack.tnear + top);
        permute(Int4::load(node.count), lanes).storeUnaligned(stack.count + top);
        permute(Int4::load(node.child), lanes).storeUnaligned(stack.index + top);
        stack.top = top + unsigned(std::popcount(mask));
    }
    StackEntry entry(unsigned place) const
    {
        const unsigned slot = order >> 2 * place & 3;
        return { node.count[slot], node.child[slot] };
    }
    // Pushes all but the first, which becomes the entry. Its place is found by branches and not
    // computed: when they are predicted, the processor begins with the next node before the boxes
    // of this one are done.
    void enter(TraversalStack& stack, StackEntry* first) const
    {
        push(stack);
        --stack.top;
        if (mask & 8)
            *first = entry(0);
        else if (mask & 4)
            *first = entry(1);
        else if (mask & 2)
            *first = entry(2);
        else
            *first = entry(3);
    }
};

// Calls leaf(first, count) for the leaves that the ray enters, in the order of the ray, until the
// hit list is done. With `Pairs` the node that waits on top of the stack is opened together with
// the next one: its boxes are tested while those of the other are on their way. This pays for
// scattered rays, which will visit it anyway, and changes nothing about the order of leaves.
template <bool Pairs, class Node, class LeafTest>
inline void traverse(const Node* nodes, const RtObjectRay& object_ray, bool far_first, float weight,
                     RtHitList& hits, const LeafTest& leaf)
{
    BoxRay ray(object_ray, hits.maxdist, far_first);
    TraversalStack stack;
    StackEntry entry = { 0, 0 };
    do {
        while (!entry.count) {
            const NodeHits<Node> own(nodes[entry.index], ray, weight);
            if (Pairs && stack.top && !stack.count[stack.top - 1]) {
                const uint32_t waiting = stack.index[--stack.top];
                NodeHits<Node>(nodes[waiting], ray, weight).push(stack);
            }
            if (own.mask)
                own.enter(stack, &entry);
            else if (!stack.pop(hits.maxdist, &entry))
                return;
        }
        leaf(entry.index, entry.count);
        ray.maxdist = Float4(hits.maxdist);
    } while (!hits.found && stack.pop(hits.maxdist, &entry));
}

// Whether to visit children from far to near: where any hit in the shape ends the ray, and which
// one makes no difference. Rays leave one surface, whose neighbourhood they pass without a hit, for
// a light that mostly stands free: what they do hit is found sooner from there.
inline bool goesFarFirst(const RtGObject* shape, const RtTraversal& traversal,
                         const RtHitList& hits)
{
    return traversal.any_order && hits.flags->opaque && !isContainer(shape);
}

// Whether to open nodes in pairs. It pays for rays that go in all directions, and for shadow rays
// where the nodes are more than the caches of a core hold; elsewhere the second node is too often
// opened in vain.
inline bool opensPairs(const RtTraversal& traversal, size_t node_bytes)
{
    static constexpr size_t near_memory = size_t{ 8 } << 20;
    return (traversal.ray_type & (RV_RAY_DIFFUSE | RV_RAY_GLOSSY)) ||
           (traversal.any_hit && node_bytes > near_memory);
}

// ---- The kinds ----

template <class Family> struct NullAccel : SimpleAccel {
    void intersect(RtGObject*, const RtTraversal&, const RtObjectRay&, RtHitList&) const override {}
};

inline KeyPair deformationKeys(const RtGObject* object, uint32_t keys, float time)
{
    return keyPair(keys, relativeTime(shapeParams(object->node).deform_time_samples, time));
}

template <class Family> struct ListAccel : RtAccel {
    explicit ListAccel(const Family& primitives) : family(primitives) {}
    const char* name() const override { return "list"; }
    void intersect(RtGObject* object, const RtTraversal& traversal, const RtObjectRay& ray,
                   RtHitList& hits) const override
    {
        if (family.keys() > 1)
            test<true>(deformationKeys(object, family.keys(), ray.time), object, traversal, ray,
                       hits);
        else
            test<false>({ 0, 0 }, object, traversal, ray, hits);
    }

private:
    template <bool Moving>
    void test(const KeyPair& keys, RtGObject* object, const RtTraversal& traversal,
              const RtObjectRay& ray, RtHitList& hits) const
    {
        for (uint32_t i = 0; i < family.count() && !hits.found; ++i)
            family.template intersect<Moving>(i, keys, object, traversal, ray, hits);
    }

    Family family;
};

inline BuildOptions buildOptions(float traversal_cost, uint32_t leaf_alignment)
{
    return { traversal_cost,
             render_options ? std::clamp(render_options->threads, 1, worker_slot_count) : 1,
             leaf_alignment };
}

template <class Family> struct Bvh4 : RtAccel {
    Bvh4(const Family& primitives, float traversal_cost) : family(primitives)
    {
        const BuildOptions options = buildOptions(traversal_cost, Family::Leaves::alignment);
        BuildVector<uint32_t> order;
        HierarchyBuilder<RtBVH4Node, Family> builder(family, 0, options);
        builder.build(nodes, order);
        leaves.build(family, std::move(order), options.threads);
    }
    const char* name() const override { return "bvh4"; }
    // Required: the nodes and 64 bytes, without what the leaves hold.
    size_t memory() const override { return nodes.bytes() + 64; }
    void intersect(RtGObject* object, const RtTraversal& traversal, const RtObjectRay& ray,
                   RtHitList& hits) const override
    {
        const Query query = { object, traversal, ray, hits };
        const auto leaf = [&](uint32_t first, uint32_t count) {
            leaves.template intersect<false>(family, first, count, { 0, 0 }, query);
        };
        const bool far_first = goesFarFirst(object, traversal, hits);
        if (opensPairs(traversal, nodes.bytes()))
            traverse<true>(nodes.data(), ray, far_first, 0, hits, leaf);
        else
            traverse<false>(nodes.data(), ray, far_first, 0, hits, leaf);
    }

    Family family;
    LineArray<RtBVH4Node> nodes;
    typename Family::Leaves leaves;
};

// One hierarchy for each interval between two deformation keys.
template <class Family> struct MotionBvh4 : RtAccel {
    MotionBvh4(const Family& primitives, float traversal_cost)
        : family(primitives), key_count(primitives.keys()), intervals(new Interval[key_count - 1])
    {
        const BuildOptions options = buildOptions(traversal_cost, 1);
        for (uint32_t key = 0; key + 1 < key_count; ++key) {
            BuildVector<uint32_t> order;
            HierarchyBuilder<RtBVH4MotionNode, Family> builder(family, key, options);
            builder.build(intervals[key].nodes, order);
            intervals[key].leaves.build(family, std::move(order), options.threads);
        }
    }
    const char* name() const override { return key_count == 2 ? "bvh4_motion" : "bvh4_motion3p"; }
    size_t memory() const override
    {
        size_t bytes = 0;
        for (uint32_t key = 0; key + 1 < key_count; ++key)
            bytes += intervals[key].nodes.bytes() + intervals[key].leaves.bytes();
        return bytes;
    }
    void intersect(RtGObject* object, const RtTraversal& traversal, const RtObjectRay& ray,
                   RtHitList& hits) const override
    {
        // Always below the last key, whatever the time.
        const KeyPair keys = deformationKeys(object, key_count, ray.time);
        const Interval& interval = intervals[keys.key];
        const Query query = { object, traversal, ray, hits };
        const bool far_first = goesFarFirst(object, traversal, hits);
        traverse<false>(interval.nodes.data(), ray, far_first, keys.weight, hits,
                        [&](uint32_t first, uint32_t count) {
                            interval.leaves.template intersect<true>(family, first, count, keys,
                                                                     query);
                        });
    }

    struct Interval : CheckedHeap {
        LineArray<RtBVH4MotionNode> nodes;
        IndexLeaves<Family> leaves;
    };
    Family family;
    const uint32_t key_count; // what the family refers to may be gone before the structure
    std::unique_ptr<Interval[]> intervals;
};

// ---- The choice ----

template <class Family>
RtAccel* makeAccel(const Family& family, float traversal_cost, bool force_list, RtAccelRow* row)
{
    if (!family.count() || !family.keys()) {
        *row = RV_ACCEL_NULL;
        return new NullAccel<Family>;
    }
    if (force_list || family.count() < 2) {
        *row = RV_ACCEL_LIST;
        return new ListAccel<Family>(family);
    }
    if (family.keys() == 1) {
        *row = RV_ACCEL_BVH;
        return new Bvh4<Family>(family, traversal_cost);
    }
    *row = family.keys() == 2 ? RV_ACCEL_BVH_MOTION2 : RV_ACCEL_BVH_MOTION3;
    return new MotionBvh4<Family>(family, traversal_cost);
}

void reportAccel(const RtAccel& accel, uint32_t elapsed_ms, uint32_t primitives, uint32_t keys,
                 RtAccelRow row, int thread);

// A structure for the primitives of a family; null, after an error, when the heap is exhausted.
template <class Family>
RtAccel* RvAccelCreate(const Family& family, float traversal_cost, bool force_list, int thread)
{
    const uint32_t start = wallMilliseconds();
    RtAccelRow row;
    RtAccel* accel;
    try {
        accel = makeAccel(family, traversal_cost, force_list, &row);
    } catch (const std::exception&) {
        return nullptr; // reported by the allocation that failed
    }
    reportAccel(*accel, wallMilliseconds() - start, family.count(), family.keys(), row, thread);
    return accel;
}

} // namespace rv

#endif
