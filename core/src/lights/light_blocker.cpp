// light_blocker: the "light_blocker" light filter, a shape that blocks the light behind it.
#include "color.h"
#include "finite.h"
#include "lights/blocker_shapes.h"
#include "lights/light_data.h"
#include "shaders/local_record.h"

static const char* const module_path = "core\\src\\lights\\light_blocker";

namespace rv {

static const char* const geometry_type_names[] = { "box", "sphere", "plane", "cylinder", nullptr };
static const char* const ramp_axis_names[] = { "x", "y", "z", "X", "Y", "Z", nullptr };

struct LightBlocker {
    int geometry_type;        // index of geometry_type_names
    RtMatrix geometry_matrix; // blocker to world
    float density;
    float roundness;
    float width_edge;
    float height_edge;
    float ramp;
    int ramp_axis; // index of ramp_axis_names
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<LightBlocker>(metadata);
    RvNodeParamENUM(params, RV_FIELD(LightBlocker, geometry_type), 0, geometry_type_names);
    RvNodeParamMTX(params, RV_FIELD(LightBlocker, geometry_matrix), &RV_M4_IDENTITY);
    RvNodeParamFLT(params, RV_FIELD(LightBlocker, density), 0);
    RvNodeParamFLT(params, RV_FIELD(LightBlocker, roundness), 0);
    RvNodeParamFLT(params, RV_FIELD(LightBlocker, width_edge), 0);
    RvNodeParamFLT(params, RV_FIELD(LightBlocker, height_edge), 0);
    RvNodeParamFLT(params, RV_FIELD(LightBlocker, ramp), 0);
    RvNodeParamENUM(params, RV_FIELD(LightBlocker, ramp_axis), 0, ramp_axis_names);
}

// ---- Local data ----

struct BlockerRecord {
    RtMatrix to_shape; // from world space
};

static void initialize(RtNode* node, void*)
{
    createRecord<BlockerRecord>(node, module_path, __LINE__);
}

static void update(RtNode* node, void* params)
{
    if (auto* const data = record<BlockerRecord>(node))
        RvM4Invert(&static_cast<const LightBlocker*>(params)->geometry_matrix, &data->to_shape);
}

// ---- Evaluation ----

// The transformed point; not finite where the shape is flat and has no space of its own.
static RtPoint inShape(const RtNode* node, const RtPoint& point)
{
    RtPoint p = point;
    if (const auto* const data = record<BlockerRecord>(node))
        RvM4PointByMatrixMult(&p, &data->to_shape, &point);
    return p;
}

static void evaluate(RtNode* node, RtShaderGlobals* sg)
{
    // Required: as stored in the node, so that links have no effect.
    const auto& blocker = *static_cast<const LightBlocker*>(node->params);
    if (blocker.density == 0)
        return;
    const RtPoint P = inShape(node, sg->point);
    // Only a plane asks where the light comes from, which may lie beyond all numbers.
    const RtPoint Q = blocker.geometry_type == blocker_plane
                          ? inShape(node, sg->point + sg->light_dir * sg->light_dist)
                          : P;
    if (!isFinite(P) || !isFinite(Q))
        return;
    const BlockerSettings settings = { .geometry_type = blocker.geometry_type,
                                       .roundness = blocker.roundness,
                                       .width_edge = blocker.width_edge,
                                       .height_edge = blocker.height_edge,
                                       .ramp = blocker.ramp,
                                       .ramp_axis = blocker.ramp_axis };
    const float passing =
        float(blockerPassing(blockingAt(settings, P, Q), double(blocker.density)));
    if (passing == 1)
        return;
    // Filters before this one and the light have shadows of their own.
    sg->light_shadow =
        perChannel(sg->light_shadow, [passing](float s) { return 1 - (1 - s) * passing; });
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = initialize,
    .Update = update,
    .Finish = freeRecord,
};

static const RtShaderMethods shader = {
    .Evaluate = evaluate,
};

const RtNodeMethods light_blocker_methods = { &common, &shader };

} // namespace rv
