// implicit: the "implicit" shape node, the level set of a shader inside a box.
#include "objects/objects.h"

namespace rv {

static const char* const solver_names[] = { "uniform", "levelset", nullptr };

struct Implicit {
    RtNode* field; // shader whose float output is the field
    float threshold;
    unsigned samples; // steps along a ray
    int solver;
    RtPoint min;
    RtPoint max;
    ShapeParams common;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<Implicit>(metadata);
    declareFlag(metadata, nullptr, "_supports_rebuild");
    RvNodeParamNODE(params, RV_FIELD(Implicit, field), nullptr);
    RvNodeParamFLT(params, RV_FIELD(Implicit, threshold), 0);
    RvNodeParamUINT(params, RV_FIELD(Implicit, samples), 10);
    RvNodeParamENUM(params, RV_FIELD(Implicit, solver), 0, solver_names);
    RvNodeParamPNT(params, RV_FIELD(Implicit, min), -0.5f, -0.5f, -0.5f);
    RvNodeParamPNT(params, RV_FIELD(Implicit, max), 0.5f, 0.5f, 0.5f);
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = do_nothing,
    .Update = do_nothing,
    .Finish = do_nothing,
};

static const RtShapeMethods shape = {
    .ShapeLocalGeometry = do_nothing,
    .ShapeBBox = do_nothing,
    .ShapeTextureCoordinates = do_nothing,
    .ShapePrepareUserData = do_nothing,
    .ShapePrepareIntersection = do_nothing,
};

const RtNodeMethods implicit_methods = { &common, &shape };

} // namespace rv
