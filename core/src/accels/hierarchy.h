// Four-wide hierarchies over the primitives of one family: their nodes and how they are built.
//
// A family is a small copyable value that knows its primitives:
//   uint32_t count() const;                    number of primitives
//   uint32_t keys() const;                     deformation keys
//   RtBBox box(uint32_t prim, uint32_t key) const;
//   using Leaves = ...;                        how the primitives of leaves are stored
// and that intersects one of them (see accels/bvh4.h).
#ifndef RV_HIERARCHY_H
#define RV_HIERARCHY_H

#include "accels/bvh_build.h"
#include "maths.h"
#include "system/checked_heap.h"
#include "work_queue.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <limits>
#include <memory>
#include <mutex>
#include <new>
#include <type_traits>
#include <vector>

// Rows hold one child slot a lane. An empty slot has a box that no ray can hit.
struct alignas(16) RtBVH4Node {
    static constexpr int keys = 1;
    float rows[6][4];  // min x, max x, min y, max y, min z, max z
    uint32_t child[4]; // the node, or the first position of a leaf
    uint16_t count[4]; // primitives of a leaf, 0 for a node
    uint8_t order[8];  // by octant: the slots from near to far, two bits each
};
static_assert(sizeof(RtBVH4Node) == 128);

// For each axis: min at key 0, min at key 1, max at key 0, max at key 1.
struct alignas(16) RtBVH4MotionNode {
    static constexpr int keys = 2;
    float rows[12][4];
    uint32_t child[4];
    uint32_t count[4];
    uint8_t order[8];
    uint8_t unused[8];
};

namespace rv {

inline constexpr uint32_t no_child = 0xFFFFFFFF;

// The bounds of a slot at each key of its node.
struct KeyBoxes {
    Box4 at[2];

    static KeyBoxes empty() { return { { Box4::empty(), Box4::empty() } }; }
    void extend(const KeyBoxes& other)
    {
        at[0].extend(other.at[0]);
        at[1].extend(other.at[1]);
    }
};

template <class Node> void setBoxes(Node& node, int slot, const KeyBoxes& boxes)
{
    for (int key = 0; key < Node::keys; ++key) {
        alignas(16) float low[4], high[4];
        boxes.at[key].low.store(low);
        boxes.at[key].high.store(high);
        for (int axis = 0; axis < 3; ++axis) {
            node.rows[2 * axis * Node::keys + key][slot] = low[axis];
            node.rows[(2 * axis + 1) * Node::keys + key][slot] = high[axis];
        }
    }
}

template <class Node> Node emptyNode()
{
    Node node = {};
    for (int slot = 0; slot < 4; ++slot) {
        setBoxes(node, slot, KeyBoxes::empty());
        node.child[slot] = no_child;
        node.count[slot] =
            std::numeric_limits<std::remove_reference_t<decltype(node.count[0])>>::max();
    }
    return node;
}

template <class T> using BuildVector = std::vector<T, CheckedAllocator<T>>;

// Leaves new elements of a vector as they are, for those that threads fill.
struct PrimAllocator : CheckedAllocator<BuildPrim> {
    using value_type = BuildPrim;
    template <class U> struct rebind {
        using other = PrimAllocator;
    };
    void construct(BuildPrim* prim) { ::new (static_cast<void*>(prim)) BuildPrim; }
};

// An array on cache lines, with huge pages when it is big.
template <class T> class LineArray {
public:
    LineArray() = default;
    ~LineArray() { RvFree_func(block); }
    LineArray(const LineArray&) = delete;
    LineArray& operator=(const LineArray&) = delete;

    // Zeroed; throws std::bad_alloc.
    void allocate(size_t n)
    {
        static constexpr size_t line = 64;
        RvFree_func(block);
        block = allocateTable(n * sizeof(T) + line, "core\\src\\accels\\hierarchy", __LINE__,
                              "RvAccelCreate");
        if (!block)
            throw std::bad_alloc();
        items = reinterpret_cast<T*>((reinterpret_cast<uintptr_t>(block) + line - 1) & ~(line - 1));
        number = n;
    }
    T& operator[](size_t i) { return items[i]; }
    const T& operator[](size_t i) const { return items[i]; }
    const T* data() const { return items; }
    size_t size() const { return number; }
    size_t bytes() const { return number * sizeof(T); }

private:
    void* block = nullptr;
    T* items = nullptr;
    size_t number = 0;
};

struct BuildOptions {
    float traversal_cost;
    int threads;
    uint32_t leaf_alignment; // up to 4; leaves of no more primitives lie between two multiples
};

// Builds the nodes of a hierarchy. The tree depends on the primitives alone, not on the number of
// threads: big subtrees are work items that any thread may take, and are joined in a fixed order.
template <class Node, class Family> class HierarchyBuilder {
public:
    // For a motion node the boxes are those of keys `key` and `key + 1`.
    HierarchyBuilder(const Family& primitives, uint32_t first_key, const BuildOptions& settings)
        : family(primitives), key(first_key), options(settings)
    {
    }
    // Throws std::bad_alloc.
    void build(LineArray<Node>& nodes, BuildVector<uint32_t>& order);

    BuildStats binary_stats = {};
    Build4Stats wide_stats = {};

private:
    // Below this a subtree belongs to the item that reached it.
    static constexpr uint32_t grain = 2048;

    struct Link {
        uint32_t node;
        int slot;
        uint32_t item;
    };
    struct Item : CheckedHeap {
        BuildRange range;
        Split split;
        uint32_t depth2, depth4; // of its root in the binary and the four-wide tree
        BuildVector<Node> nodes = {};
        BuildVector<uint32_t> order = {};
        uint32_t left_over[4] = { no_child, no_child, no_child, no_child }; // by free lanes
        BuildVector<Link> links = {}; // slots that other items fill
        KeyBoxes boxes = KeyBoxes::empty();
        BuildStats binary_stats = {};
        Build4Stats wide_stats = {};
        uint32_t node_base = 0, order_base = 0;
    };

    void makePrims();
    KeyBoxes primBoxes(uint32_t prim) const;
    uint32_t addItem(const BuildRange& range, const Split& split, uint32_t depth2, uint32_t depth4);
    Item& itemAt(uint32_t index);
    void run(uint32_t index);
    uint32_t makeNode(Item& item, const BuildRange& range, const Split& split, uint32_t depth2,
                      uint32_t depth4, KeyBoxes* boxes);
    int makePair(Item& item, uint32_t node, int slot, const BuildRange& range, uint32_t depth2,
                 uint32_t depth4, KeyBoxes* boxes);
    void placeLeaf(Item& item, uint32_t node, int slot, const BuildRange& range, uint32_t depth2,
                   uint32_t depth4, KeyBoxes* boxes);
    void placeChild(Item& item, uint32_t node, int slot, const BuildRange& range, uint32_t depth2,
                    uint32_t depth4, KeyBoxes* boxes);
    uint32_t leafPosition(Item& item, uint32_t n) const;
    void assignBases(size_t* node_count, size_t* order_count);
    void linkItems();
    void copyItem(const Item& item, LineArray<Node>& nodes, BuildVector<uint32_t>& order);

    const Family family;
    const uint32_t key;
    const BuildOptions options;
    std::vector<BuildPrim, PrimAllocator> prims;
    std::mutex items_lock;
    BuildVector<std::unique_ptr<Item>> items;
    WorkQueue queue{ [this](uint32_t item) { run(item); } };
    std::atomic<bool> out_of_memory = false;
};

// ---- Implementation ----

template <class Node, class Family> void HierarchyBuilder<Node, Family>::makePrims()
{
    prims.resize(family.count());
    inParts(options.threads, prims.size(), [this](size_t begin, size_t end) {
        for (size_t i = begin; i < end; ++i) {
            RtBBox box = family.box(uint32_t(i), key);
            if constexpr (Node::keys > 1)
                box = RvBBoxUnion(box, family.box(uint32_t(i), key + 1));
            prims[i] = BuildPrim(box, uint32_t(i));
        }
    });
}

template <class Node, class Family>
KeyBoxes HierarchyBuilder<Node, Family>::primBoxes(uint32_t prim) const
{
    KeyBoxes boxes;
    for (uint32_t i = 0; i < 2; ++i)
        boxes.at[i] = BuildPrim(family.box(prim, key + i), 0).box();
    return boxes;
}

template <class Node, class Family>
uint32_t HierarchyBuilder<Node, Family>::addItem(const BuildRange& range, const Split& split,
                                                 uint32_t depth2, uint32_t depth4)
{
    auto item = std::make_unique<Item>(Item{ {}, range, split, depth2, depth4 });
    const std::lock_guard guard(items_lock);
    items.push_back(std::move(item));
    return uint32_t(items.size() - 1);
}

template <class Node, class Family>
typename HierarchyBuilder<Node, Family>::Item&
HierarchyBuilder<Node, Family>::itemAt(uint32_t index)
{
    const std::lock_guard guard(items_lock);
    return *items[index];
}

template <class Node, class Family> void HierarchyBuilder<Node, Family>::run(uint32_t index)
{
    Item& item = itemAt(index);
    try {
        makeNode(item, item.range, item.split, item.depth2, item.depth4, &item.boxes);
    } catch (const std::exception&) {
        out_of_memory = true;
    }
}

// Where a leaf of n primitives starts in the item's order of primitives. Small leaves fill what
// others left over of their blocks; one place is kept for each number of free lanes.
template <class Node, class Family>
uint32_t HierarchyBuilder<Node, Family>::leafPosition(Item& item, uint32_t n) const
{
    const uint32_t align = options.leaf_alignment;
    for (uint32_t free = n; free < align; ++free)
        if (item.left_over[free] != no_child) {
            const uint32_t position = item.left_over[free];
            item.left_over[free] = no_child;
            item.left_over[free - n] = free > n ? position + n : no_child;
            return position;
        }
    const uint32_t position = uint32_t(item.order.size());
    const uint32_t blocks = (n + align - 1) / align;
    item.order.resize(position + size_t(blocks) * align, no_child);
    if (const uint32_t free = blocks * align - n)
        item.left_over[free] = position + n;
    return position;
}

template <class Node, class Family>
void HierarchyBuilder<Node, Family>::placeLeaf(Item& item, uint32_t node, int slot,
                                               const BuildRange& range, uint32_t depth2,
                                               uint32_t depth4, KeyBoxes* boxes)
{
    const uint32_t n = range.size();
    const uint32_t position = leafPosition(item, n);
    item.nodes[node].child[slot] = position;
    item.nodes[node].count[slot] =
        static_cast<std::remove_reference_t<decltype(item.nodes[node].count[slot])>>(n);
    KeyBoxes own = KeyBoxes::empty();
    own.at[0] = range.box;
    if constexpr (Node::keys > 1)
        own = KeyBoxes::empty();
    for (uint32_t i = range.begin; i < range.end; ++i) {
        item.order[position + i - range.begin] = prims[i].index();
        if constexpr (Node::keys > 1)
            own.extend(primBoxes(prims[i].index()));
    }
    setBoxes(item.nodes[node], slot, own);
    boxes->extend(own);
    item.binary_stats.addLeaf(n, depth2);
    item.wide_stats.addLeaf(n, depth4);
}

template <class Node, class Family>
void HierarchyBuilder<Node, Family>::placeChild(Item& item, uint32_t node, int slot,
                                                const BuildRange& range, uint32_t depth2,
                                                uint32_t depth4, KeyBoxes* boxes)
{
    const Split split = findSplit(prims.data(), range, depth2, options.traversal_cost);
    if (split.leaf)
        return placeLeaf(item, node, slot, range, depth2, depth4, boxes);
    item.nodes[node].count[slot] = 0;
    ++item.wide_stats.inner;
    if (range.size() > grain) {
        const uint32_t other = addItem(range, split, depth2, depth4 + 1);
        item.links.push_back({ node, slot, other });
        queue.add(other);
        return;
    }
    KeyBoxes own = KeyBoxes::empty();
    const uint32_t child = makeNode(item, range, split, depth2, depth4 + 1, &own);
    item.nodes[node].child[slot] = child;
    if constexpr (Node::keys == 1)
        own.at[0] = range.box;
    setBoxes(item.nodes[node], slot, own);
    boxes->extend(own);
}

// Fills two slots from one side of a split; returns the axis along which the two lie.
template <class Node, class Family>
int HierarchyBuilder<Node, Family>::makePair(Item& item, uint32_t node, int slot,
                                             const BuildRange& range, uint32_t depth2,
                                             uint32_t depth4, KeyBoxes* boxes)
{
    const Split split = findSplit(prims.data(), range, depth2, options.traversal_cost);
    if (split.leaf) {
        placeLeaf(item, node, slot, range, depth2, depth4, boxes);
        ++item.wide_stats.empty;
        return 0;
    }
    item.binary_stats.addInner();
    BuildRange sides[2];
    partition(prims.data(), range, split, sides);
    placeChild(item, node, slot, sides[0], depth2 + 1, depth4, boxes);
    placeChild(item, node, slot + 1, sides[1], depth2 + 1, depth4, boxes);
    return split.axis;
}

template <class Node, class Family>
uint32_t HierarchyBuilder<Node, Family>::makeNode(Item& item, const BuildRange& range,
                                                  const Split& split, uint32_t depth2,
                                                  uint32_t depth4, KeyBoxes* boxes)
{
    const uint32_t index = uint32_t(item.nodes.size());
    item.nodes.push_back(emptyNode<Node>());
    ++item.wide_stats.nodes;
    if (split.leaf) { // the whole hierarchy is one leaf
        placeLeaf(item, index, 0, range, depth2, depth4, boxes);
        item.wide_stats.empty += 3;
        orderBytes(0, 0, 0, item.nodes[index].order);
        return index;
    }
    item.binary_stats.addInner();
    BuildRange sides[2];
    partition(prims.data(), range, split, sides);
    const int left = makePair(item, index, 0, sides[0], depth2 + 1, depth4, boxes);
    const int right = makePair(item, index, 2, sides[1], depth2 + 1, depth4, boxes);
    orderBytes(split.axis, left, right, item.nodes[index].order);
    return index;
}

// Items follow each other as they were reached from the root, so that which thread added one first
// makes no difference.
template <class Node, class Family>
void HierarchyBuilder<Node, Family>::assignBases(size_t* node_count, size_t* order_count)
{
    BuildVector<Item*> open = { items[0].get() };
    size_t node_total = 0, order_total = 0;
    while (!open.empty()) {
        Item& item = *open.back();
        open.pop_back();
        item.node_base = uint32_t(node_total);
        item.order_base = uint32_t(order_total);
        node_total += item.nodes.size();
        order_total += item.order.size();
        for (const Link& link : item.links)
            open.push_back(items[link.item].get());
        binary_stats.merge(item.binary_stats);
        wide_stats.merge(item.wide_stats);
    }
    *node_count = node_total;
    *order_count = order_total;
}

// Later items are never parents of earlier ones, so going backwards their boxes are complete.
template <class Node, class Family> void HierarchyBuilder<Node, Family>::linkItems()
{
    for (size_t i = items.size(); i-- > 0;) {
        Item& item = *items[i];
        for (const Link& link : item.links) {
            Item& other = *items[link.item];
            KeyBoxes own = other.boxes;
            if constexpr (Node::keys == 1)
                own.at[0] = other.range.box;
            setBoxes(item.nodes[link.node], link.slot, own);
            item.boxes.extend(own);
        }
    }
}

template <class Node, class Family>
void HierarchyBuilder<Node, Family>::copyItem(const Item& item, LineArray<Node>& nodes,
                                              BuildVector<uint32_t>& order)
{
    std::copy(item.order.begin(), item.order.end(), order.begin() + item.order_base);
    for (size_t i = 0; i < item.nodes.size(); ++i) {
        Node node = item.nodes[i];
        for (int slot = 0; slot < 4; ++slot)
            if (node.child[slot] != no_child)
                node.child[slot] += node.count[slot] ? item.order_base : item.node_base;
        nodes[item.node_base + i] = node;
    }
    for (const Link& link : item.links)
        nodes[item.node_base + link.node].child[link.slot] = items[link.item]->node_base;
}

template <class Node, class Family>
void HierarchyBuilder<Node, Family>::build(LineArray<Node>& nodes, BuildVector<uint32_t>& order)
{
    makePrims();
    const BuildRange range = wholeRange(prims.data(), uint32_t(prims.size()));
    queue.add(addItem(range, findSplit(prims.data(), range, 0, options.traversal_cost), 0, 0));
    queue.process(range.size() > grain ? options.threads : 1);
    if (out_of_memory)
        throw std::bad_alloc();
    prims = {};
    size_t node_count, order_count;
    assignBases(&node_count, &order_count);
    linkItems();
    nodes.allocate(node_count);
    order.assign(order_count, no_child);
    for (const auto& item : items)
        copyItem(*item, nodes, order);
}

} // namespace rv

#endif
