// proc: the "procedural" shape node, geometry that is created when it is first hit.
#include "objects/objects.h"

namespace rv {

struct Procedural {
    const char* dso;  // scene file, OBJ file or library
    const char* data; // for user code
    bool load_at_init;
    RtPoint min;
    RtPoint max;
    void* userptr; // for user code
    void* funcptr; // RtProcLoaderFunc, instead of a library
    bool unload_dso;
    ShapeParams common;
    const char* name;
};

// Required: these offsets are published as metadata of the type.
static_assert(offsetof(Procedural, common) == 72);
static_assert(offsetof(Procedural, name) == 176);
static_assert(sizeof(Procedural) == 184);

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<Procedural>(metadata);
    declareFlag(metadata, nullptr, "_supports_rebuild");
    RvNodeParamSTR(params, RV_FIELD(Procedural, dso), "");
    RvNodeParamSTR(params, RV_FIELD(Procedural, data), "");
    RvNodeParamBOOL(params, RV_FIELD(Procedural, load_at_init), false);
    RvNodeParamPNT(params, RV_FIELD(Procedural, min), 0, 0, 0);
    RvNodeParamPNT(params, RV_FIELD(Procedural, max), 0, 0, 0);
    RvNodeParamPTR(params, RV_FIELD(Procedural, userptr), nullptr);
    RvNodeParamPTR(params, RV_FIELD(Procedural, funcptr), nullptr);
    RvNodeParamBOOL(params, RV_FIELD(Procedural, unload_dso), true);
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = do_nothing,
    .Update = do_nothing,
    .Finish = do_nothing,
};

static const RtShapeMethods shape = {
    .ShapeLocalGeometry = unreachable::ShapeLocalGeometry,
    .ShapeBBox = do_nothing,
    .ShapeTextureCoordinates = unreachable::ShapeTextureCoordinates,
    .ShapePrepareUserData = unreachable::ShapePrepareUserData,
    .ShapePrepareIntersection = do_nothing,
};

const RtNodeMethods procedural_methods = { &common, &shape };

} // namespace rv
