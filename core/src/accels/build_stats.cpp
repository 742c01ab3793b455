// build_stats: counts about the tree that a build makes.
#include "accels/build_stats.h"

#include "msg.h"

#include <algorithm>

static const char* const module_path = "core\\src\\accels\\build_stats";

void RtLeafStats::add(uint32_t count, uint32_t depth)
{
    least_primitives = leaves ? std::min(least_primitives, count) : count;
    most_primitives = std::max(most_primitives, count);
    least_depth = leaves ? std::min(least_depth, depth) : depth;
    most_depth = std::max(most_depth, depth);
    ++leaves;
    primitives += count;
    depth_sum += depth;
    ++of_size[std::min(count, 5u) - 1];
}

void RtLeafStats::merge(const RtLeafStats& other)
{
    if (!other.leaves)
        return;
    least_primitives =
        leaves ? std::min(least_primitives, other.least_primitives) : other.least_primitives;
    most_primitives = std::max(most_primitives, other.most_primitives);
    least_depth = leaves ? std::min(least_depth, other.least_depth) : other.least_depth;
    most_depth = std::max(most_depth, other.most_depth);
    leaves += other.leaves;
    primitives += other.primitives;
    depth_sum += other.depth_sum;
    for (int i = 0; i < 5; ++i)
        of_size[i] += other.of_size[i];
}

void BuildStats::addInner()
{
    ++nodes;
    ++inner;
}

void BuildStats::addLeaf(uint32_t count, uint32_t depth)
{
    if (!count)
        return rv::reachedInError(module_path, __LINE__, "BuildStats::addLeaf");
    ++nodes;
    leaf.add(count, depth);
}

void BuildStats::merge(const BuildStats& other)
{
    nodes += other.nodes;
    inner += other.inner;
    leaf.merge(other.leaf);
}

void Build4Stats::addLeaf(uint32_t count, uint32_t depth)
{
    if (!count)
        return rv::reachedInError(module_path, __LINE__, "Build4Stats::addLeaf");
    leaf.add(count, depth);
}

void Build4Stats::merge(const Build4Stats& other)
{
    nodes += other.nodes;
    inner += other.inner;
    empty += other.empty;
    leaf.merge(other.leaf);
}
