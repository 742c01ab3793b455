// Counts that a build of a hierarchy keeps about the tree it makes.
#ifndef RV_BUILD_STATS_H
#define RV_BUILD_STATS_H

#include <stdint.h>

// What binary and four-wide trees have in common.
struct RtLeafStats {
    uint64_t leaves;
    uint64_t primitives; // in all leaves
    uint32_t least_primitives;
    uint32_t most_primitives;
    uint64_t depth_sum; // over the leaves
    uint32_t least_depth;
    uint32_t most_depth;
    uint64_t of_size[5]; // leaves of 1, 2, 3, 4 and more primitives

    void add(uint32_t count, uint32_t depth);
    void merge(const RtLeafStats& other);
};

// Of the binary tree.
struct BuildStats {
    uint64_t nodes; // leaves included
    uint64_t inner;
    RtLeafStats leaf;

    void addInner();
    // A leaf without primitives is a broken invariant, and fatal.
    void addLeaf(uint32_t count, uint32_t depth);
    void merge(const BuildStats& other);
};

// Of the four-wide tree.
struct Build4Stats {
    uint64_t nodes;
    uint64_t inner; // slots that hold a node
    uint64_t empty; // slots that hold nothing
    RtLeafStats leaf;

    void addLeaf(uint32_t count, uint32_t depth);
    void merge(const Build4Stats& other);
};

#endif
