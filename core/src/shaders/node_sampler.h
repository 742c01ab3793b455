// The sampler that a shader node keeps as its local data.
#ifndef RV_NODE_SAMPLER_H
#define RV_NODE_SAMPLER_H

#include "nodes.h"
#include "rv_samplers.h"

namespace rv {

// Null when there is none.
inline RtSampler* nodeSampler(const RtNode* node)
{
    return static_cast<RtSampler*>(node->local_data);
}

// For Finish methods, too.
inline void destroyNodeSampler(RtNode* node)
{
    RvSamplerDestroy(nodeSampler(node));
    node->local_data = nullptr;
}

// Replaces the sampler by one of that many samples squared, or by none for fewer than 1.
inline void updateNodeSampler(RtNode* node, int samples)
{
    destroyNodeSampler(node);
    node->local_data = RvSampler(samples, 2);
}

} // namespace rv

#endif
