// bump3d: the "bump3d" shader node, another shader under a normal bumped along the world axes.
#include "bump.h"
#include "finite.h"
#include "objects/gobject.h"
#include "rv_rays.h"
#include "shaders/bump_wrapper.h"

static const char* const module_path = "core\\src\\shaders\\bump3d";

namespace rv {

struct Bump3d {
    float bump_map; // to be linked
    float bump_height;
    float epsilon; // distance of the differences
    RtRGBA shader; // to be linked
    const char* name;
};

enum Bump3dParam { p_bump_map, p_bump_height, p_epsilon, p_shader };

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<Bump3d>(metadata);
    RvNodeParamFLT(params, RV_FIELD(Bump3d, bump_map), 0);
    // Required: 1, unlike bump2d.
    RvNodeParamFLT(params, RV_FIELD(Bump3d, bump_height), 1);
    RvNodeParamFLT(params, RV_FIELD(Bump3d, epsilon), 1e-5f);
    RvNodeParamRGBA(params, RV_FIELD(Bump3d, shader), 0, 0, 0, 0);
}

static void initialize(RtNode* node, void*)
{
    createRecord<BumpLinks>(node, module_path, __LINE__);
}

static float heightBeside(const RtShaderGlobals& sg, RtNode* map, const RtVector& step)
{
    ContextCopy beside(sg);
    // Required: by the same amount in both spaces, whatever lies between them.
    beside.sg.point = sg.point + step;
    beside.sg.object_point = sg.object_point + step;
    return bumpMapHeight(map, &beside.sg);
}

// The normal less the gradient of the height.
static RtVector bumpedNormal(const RtShaderGlobals& sg, RtNode* map, float epsilon, float height)
{
    const float here = heightBeside(sg, map, RV_V3_ZERO), scale = -(height / epsilon);
    const auto slope = [&](const RtVector& step) {
        return scale * (heightBeside(sg, map, step) - here);
    };
    return sg.normal +
           RtVector{ slope({ epsilon, 0, 0 }), slope({ 0, epsilon, 0 }), slope({ 0, 0, epsilon }) };
}

static void evaluate(RtNode* node, RtShaderGlobals* sg)
{
    sg->out.RGBA = { 0, 0, 0, 1 };
    const BumpLinks& links = recordOrDefault<BumpLinks>(node);
    if ((sg->ray_type & RV_RAY_SHADOW) || !shapeObject(sg->object) ||
        (!links.bump_map && !links.shader))
        return;
    const UnbumpedContext unbumped(sg);
    if (links.bump_map && !(sg->ray_type & RV_RAY_DIFFUSE)) {
        const ShaderInputs in(node, sg);
        const float height = scaledHeight(in, p_bump_height);
        if (height != 0) {
            const RtVector n =
                unitPrecise(bumpedNormal(*sg, links.bump_map, in.flt(p_epsilon), height));
            if (isFinite(n))
                unbumped.bump(n);
        }
    }
    unbumped.shade(links.shader);
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = initialize,
    .Update = updateBumpLinks,
    .Finish = freeRecord,
};

static const RtShaderMethods shader = {
    .Evaluate = evaluate,
};

const RtNodeMethods bump3d_methods = { &common, &shader };

} // namespace rv
