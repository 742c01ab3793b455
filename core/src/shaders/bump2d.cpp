// bump2d: the "bump2d" shader node, another shader under a normal bumped in u and v.
#include "color.h"
#include "objects/gobject.h"
#include "rv_rays.h"
#include "shaders/bump_wrapper.h"

#include <math.h>

static const char* const module_path = "core\\src\\shaders\\bump2d";

namespace rv {

struct Bump2d {
    float bump_map; // to be linked
    float bump_height;
    RtRGBA shader; // to be linked
    const char* name;
};

enum Bump2dParam { p_bump_map, p_bump_height, p_shader };

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<Bump2d>(metadata);
    RvNodeParamFLT(params, RV_FIELD(Bump2d, bump_map), 0);
    // Required: no bump until the height is set, unlike bump3d.
    RvNodeParamFLT(params, RV_FIELD(Bump2d, bump_height), 0);
    RvNodeParamRGBA(params, RV_FIELD(Bump2d, shader), 0, 0, 0, 0);
}

static void initialize(RtNode* node, void*)
{
    createRecord<BumpLinks>(node, module_path, __LINE__);
}

// A bump map and the height that its values from 0 to 1 span.
struct ScaledMap {
    RtNode* map;
    float height;
};

static float heightAt(RtShaderGlobals* sg, void* data)
{
    const auto* const scaled = static_cast<const ScaledMap*>(data);
    return (bumpMapHeight(scaled->map, sg) - 0.5f) * scaled->height;
}

// Rays that do not see the shape of the surface.
// Required: for shadow rays the wrapped shader is evaluated all the same, unlike in bump3d.
static bool isUnbumped(const RtShaderGlobals& sg)
{
    return sg.ray_type & (RV_RAY_SHADOW | RV_RAY_DIFFUSE);
}

static void evaluate(RtNode* node, RtShaderGlobals* sg)
{
    sg->out.RGBA = { 0, 0, 0, 1 };
    const BumpLinks& links = recordOrDefault<BumpLinks>(node);
    const UnbumpedContext unbumped(sg);
    if (links.bump_map && !isUnbumped(*sg)) {
        const float height = scaledHeight(ShaderInputs(node, sg), p_bump_height);
        if (fabsf(height) >= negligible) {
            if (!shapeObject(sg->object))
                return;
            ScaledMap scaled = { links.bump_map, height };
            unbumped.bump(RvShaderGlobalsEvaluateBump(sg, heightAt, &scaled));
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

const RtNodeMethods bump2d_methods = { &common, &shader };

} // namespace rv
