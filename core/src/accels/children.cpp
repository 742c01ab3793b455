// children: the objects of a list as primitives of a hierarchy.
#include "accels/bvh4.h"
#include "objects/listobj.h"

namespace rv {

// Entering an object costs many times more than visiting a node.
static constexpr float list_traversal_cost = 1;

namespace {

struct ChildFamily;

// Leaves whose primitives follow each other in the list itself.
struct ChildLeaves {
    static constexpr uint32_t alignment = 1;
    uint32_t count = 0;

    void build(const ChildFamily& family, BuildVector<uint32_t>&& order, int threads);
    size_t bytes() const { return 0; }
    template <bool Moving>
    void intersect(const ChildFamily& family, uint32_t first, uint32_t number, const KeyPair& keys,
                   const Query& query) const;
};

struct ChildFamily {
    RtAggrList* list;

    using Leaves = ChildLeaves;

    uint32_t count() const { return list->count; }
    uint32_t keys() const { return list->nkeys; }
    RtBBox box(uint32_t child, uint32_t key) const { return childBounds(*list, child, key); }
    template <bool Moving>
    void intersect(uint32_t child, const KeyPair&, RtGObject*, const RtTraversal& traversal,
                   const RtObjectRay& ray, RtHitList& hits) const
    {
        RvIntersectObject(list->children[child], traversal, ray, hits);
    }
};

void ChildLeaves::build(const ChildFamily& family, BuildVector<uint32_t>&& order, int)
{
    count = uint32_t(order.size());
    family.list->permutePrimitives(order.data());
}

template <bool Moving>
void ChildLeaves::intersect(const ChildFamily& family, uint32_t first, uint32_t number,
                            const KeyPair& keys, const Query& query) const
{
    for (uint32_t i = first; i < first + number && !query.hits.found; ++i)
        family.intersect<Moving>(i, keys, query.object, query.traversal, query.ray, query.hits);
}

} // namespace

RtAccel* createListAccel(RtAggrList* list, bool force_list, int thread)
{
    return RvAccelCreate(ChildFamily{ list }, list_traversal_cost, force_list, thread);
}

} // namespace rv
