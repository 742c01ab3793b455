// A universe with the shape type "block": a box with motion keys whose structures are counted, so
// that what all shapes share can be tested apart from any real one.
#ifndef RV_SHAPE_FIXTURE_H
#define RV_SHAPE_FIXTURE_H

#include "array.h"
#include "list.h"
#include "node_tools.h"
#include "objects/gobject.h"
#include "options.h"
#include "scene.h"
#include "universe_fixture.h"

#include <atomic>
#include <functional>

namespace shape_fixture {

struct Block {
    RtArray* min; // POINT, one per deformation key
    RtArray* max;
    RtNode* disp_map;
    float disp_height;
    rv::ShapeParams common;
    const char* name;
};

inline std::atomic<int> live_accels = 0;
inline std::atomic<int> built_accels = 0;
// Runs inside every construction of a structure.
inline std::function<void(RtGObject*)> while_building;
// What the next objects of blocks are said to be.
inline RtObjectKind block_kind = RV_KIND_BOX;
inline uint32_t block_nvarying = 8;

// Hit by every ray that reaches it, at distance 1.
struct BlockAccel : rv::SimpleAccel {
    BlockAccel() { ++live_accels; }
    ~BlockAccel() override { --live_accels; }
    void intersect(RtGObject* object, const RtTraversal& traversal, const RtObjectRay& ray,
                   RtHitList& hits) const override
    {
        RvAccelInsertHit(hits, 1, 0, 0, traversal, ray, object, 0);
    }
};

inline Block& blockOf(const RtNode* node) { return *static_cast<Block*>(node->params); }

inline const RtNodeMethods& blockMethods()
{
    static const RtCommonMethods common = {
        .Parameters =
            [](RtList* params, RtMetaDataStore* metadata) {
                rv::declareLayout<Block>(metadata);
                rv::declareFlag(metadata, nullptr, "_supports_rebuild");
                RvNodeParamARRAY(params, RV_FIELD(Block, min),
                                 RvArray(1, 1, RV_TYPE_POINT, RtPoint{ -1, -1, -1 }));
                RvNodeParamARRAY(params, RV_FIELD(Block, max),
                                 RvArray(1, 1, RV_TYPE_POINT, RtPoint{ 1, 1, 1 }));
                RvNodeParamNODE(params, RV_FIELD(Block, disp_map), nullptr);
                RvNodeParamFLT(params, RV_FIELD(Block, disp_height), 1);
                rv::declareFlag(metadata, "min", "_triggers_rebuild");
                rv::declareFlag(metadata, "max", "_triggers_rebuild");
            },
        .Initialize =
            [](RtNode* node, void*) {
                RvGObjectInitialize(node, block_kind, nullptr, blockOf(node).min->nkeys, 1,
                                    block_nvarying);
            },
        .Update = [](RtNode* node, void*) { RvGObjectUpdate(node); },
        .Finish = [](RtNode*) {},
    };
    static const RtShapeMethods shape = {
        .ShapeLocalGeometry = rv::unreachable::ShapeLocalGeometry,
        .ShapeBBox =
            [](RtGObject* object, RtBBox* bbox, int key) {
                const Block& block = blockOf(object->node);
                const RtPoint* const min = rv::elementsOf<RtPoint>(block.min);
                const RtPoint* const max = rv::elementsOf<RtPoint>(block.max);
                const unsigned first = key < 0 ? 0 : unsigned(key);
                const unsigned last = key < 0 ? block.min->nkeys - 1u : unsigned(key);
                *bbox = { min[first], max[first] };
                for (unsigned k = first + 1; k <= last; ++k)
                    *bbox = RvBBoxUnion(*bbox, { min[k], max[k] });
            },
        .ShapeTextureCoordinates = rv::unreachable::ShapeTextureCoordinates,
        .ShapePrepareUserData = rv::unreachable::ShapePrepareUserData,
        .ShapePrepareIntersection = [](RtGObject* object, int) -> RtAccel* {
            ++built_accels;
            if (while_building)
                while_building(object);
            return new BlockAccel;
        },
    };
    static const RtNodeMethods methods = { &common, &shape };
    return methods;
}

class Shapes : public Universe {
protected:
    void SetUp() override
    {
        Universe::SetUp();
        live_accels = built_accels = 0;
        while_building = {};
        block_kind = RV_KIND_BOX;
        block_nvarying = 8;
        RvNodeInstall(RV_NODE_SHAPE, RV_TYPE_NONE, "block", nullptr, &blockMethods(), RV_VERSION);
    }
    void TearDown() override
    {
        Universe::TearDown();
        EXPECT_EQ(live_accels, 0);
    }

    // An initialised node of a shape type.
    static RtNode* shape(const char* type, const char* name)
    {
        RtNode* const node = node_tools::named(type, name);
        rv::RvNodeInitialize(node);
        return node;
    }
    static RtNode* block(const char* name) { return node_tools::named("block", name); }
    static RtNode* readyBlock(const char* name) { return shape("block", name); }
    static RtNode* blockAt(const char* name, const RtBBox& box)
    {
        RtNode* const node = block(name);
        RvNodeSetPnt(node, "min", box.min.x, box.min.y, box.min.z);
        RvNodeSetPnt(node, "max", box.max.x, box.max.y, box.max.z);
        return node;
    }
    static RtNode* instanceOf(RtNode* node, const char* name)
    {
        RtNode* const instance = node_tools::named("ginstance", name);
        RvNodeSetPtr(instance, "node", node);
        return instance;
    }
    // What a render does with every node before it starts.
    static void updateAll()
    {
        for (RtListNode* e = RvListHead(rv::the_frame->scene->nodes); e; e = e->next) {
            RtNode* const node = static_cast<RtNode*>(e->data);
            rv::RvNodeInitialize(node);
            if (node->entry->methods && node->entry->methods->Update)
                node->entry->methods->Update(node, node->params);
        }
    }

    static RtScene& scene() { return *rv::the_frame->scene; }
    static RtStats& stats() { return *rv::hostStats(); }
};

// ---- Values ----

inline RtMatrix translation(float x, float y, float z)
{
    const RtVector t = { x, y, z };
    RtMatrix matrix;
    RvM4Translation(&matrix, &t);
    return matrix;
}

inline RtMatrix scaling(float x, float y, float z)
{
    const RtVector s = { x, y, z };
    RtMatrix matrix;
    RvM4Scaling(&matrix, &s);
    return matrix;
}

inline RtArray* matrixKeys(const std::vector<RtMatrix>& keys)
{
    return RvArrayConvert(1, int(keys.size()), RV_TYPE_MATRIX, const_cast<RtMatrix*>(keys.data()),
                          true);
}

inline void setMatrices(RtNode* node, const std::vector<RtMatrix>& keys)
{
    RvNodeSetArray(node, "matrix", matrixKeys(keys));
}

inline RtArray* floats(const std::vector<float>& values)
{
    return RvArrayConvert(int(values.size()), 1, RV_TYPE_FLOAT, const_cast<float*>(values.data()),
                          true);
}

inline std::vector<float> floatsOf(const RtArray* array)
{
    const float* const first = rv::elementsOf<float>(array);
    return std::vector<float>(first, first + rv::totalElements(array));
}

inline RtArray* nodeArray(const std::vector<RtNode*>& nodes)
{
    return RvArrayConvert(int(nodes.size()), 1, RV_TYPE_NODE, const_cast<RtNode**>(nodes.data()),
                          true);
}

inline std::vector<RtNode*> nodesOf(const RtArray* array)
{
    RtNode* const* const first = rv::elementsOf<RtNode*>(array);
    return std::vector<RtNode*>(first, first + rv::totalElements(array));
}

inline std::vector<RtNode*> nodesOf(const RtList* list)
{
    std::vector<RtNode*> nodes;
    for (const RtListNode* e = RvListHead(list); e; e = e->next)
        nodes.push_back(static_cast<RtNode*>(e->data));
    return nodes;
}

inline std::string describe(const RtBBox& b)
{
    return node_tools::formatted("%g %g %g -> %g %g %g", double(b.min.x), double(b.min.y),
                                 double(b.min.z), double(b.max.x), double(b.max.y),
                                 double(b.max.z));
}

} // namespace shape_fixture

#endif
