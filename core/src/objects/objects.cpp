// objects: what the shape node types share.
#include "objects/objects.h"

#include "msg.h"
#include "rv_rays.h"

namespace rv {

void shapeParameters(RtList* params, RtMetaDataStore* metadata)
{
    RvNodeParamINT(params, RV_FIELD(ShapeParams, visibility), RV_RAY_ALL);
    RvNodeParamINT(params, RV_FIELD(ShapeParams, sidedness), RV_RAY_ALL);
    RvNodeParamBOOL(params, RV_FIELD(ShapeParams, receive_shadows), true);
    RvNodeParamBOOL(params, RV_FIELD(ShapeParams, self_shadows), true);
    RvNodeParamBOOL(params, RV_FIELD(ShapeParams, invert_normals), false);
    RvNodeParamFLT(params, RV_FIELD(ShapeParams, ray_bias), 1e-6f);
    RvNodeParamARRAY(params, RV_FIELD(ShapeParams, matrix), RvArray(0, 1, RV_TYPE_MATRIX));
    RvNodeParamARRAY(params, RV_FIELD(ShapeParams, shader), RvArray(0, 1, RV_TYPE_NODE));
    RvNodeParamBOOL(params, RV_FIELD(ShapeParams, opaque), true);
    RvNodeParamBOOL(params, RV_FIELD(ShapeParams, use_light_group), false);
    RvNodeParamARRAY(params, RV_FIELD(ShapeParams, light_group), RvArray(0, 1, RV_TYPE_NODE));
    RvNodeParamBOOL(params, RV_FIELD(ShapeParams, use_shadow_group), false);
    RvNodeParamARRAY(params, RV_FIELD(ShapeParams, shadow_group), RvArray(0, 1, RV_TYPE_NODE));
    RvNodeParamARRAY(params, RV_FIELD(ShapeParams, trace_sets), RvArray(0, 1, RV_TYPE_STRING));
    RvNodeParamBOOL(params, RV_FIELD(ShapeParams, unbounded), false);
    RvNodeParamARRAY(params, RV_FIELD(ShapeParams, transform_time_samples),
                     RvArray(2, 1, RV_TYPE_FLOAT, 0.0, 1.0));
    RvNodeParamARRAY(params, RV_FIELD(ShapeParams, deform_time_samples),
                     RvArray(2, 1, RV_TYPE_FLOAT, 0.0, 1.0));
    RvNodeParamFLT(params, RV_FIELD(ShapeParams, sss_sample_spacing), 0.1f);
    RvNodeParamINT(params, RV_FIELD(ShapeParams, sss_max_samples), 100000);
    RvNodeParamBOOL(params, RV_FIELD(ShapeParams, sss_use_gi), true);
    RvNodeParamINT(params, RV_FIELD(ShapeParams, id), 0);
    RvNodeParamBOOL(params, RV_FIELD(ShapeParams, autobump), false);
    declareSynonym(metadata, "invert_normals", "inv_normals");
    declareFlag(metadata, "matrix", "_triggers_rebuild");
}

static void reached(int line, const char* slot)
{
    reachedInError("core\\src\\objects\\objects", line, slot);
}

void unreachable::ShapeLocalGeometry(const RtVector*, float, const RtMatrix*, RtHit*,
                                     const RtPoint*, RtLocalGeometry* out)
{
    reached(__LINE__, __func__);
    *out = {};
}

void unreachable::ShapeBBox(RtGObject*, RtBBox* bbox, int)
{
    reached(__LINE__, __func__);
    *bbox = {};
}

void unreachable::ShapeTextureCoordinates(RtGObject*, uint32_t, float, float, float* u, float* v)
{
    reached(__LINE__, __func__);
    *u = *v = 0;
}

void* unreachable::ShapePrepareUserData(RtGObject*, uint32_t, float, float, int)
{
    reached(__LINE__, __func__);
    return nullptr;
}

RtAccel* unreachable::ShapePrepareIntersection(RtGObject*, int)
{
    reached(__LINE__, __func__);
    return nullptr;
}

} // namespace rv
