// ambient: the "ambient_light" light node, a constant or direction-weighted ambient term.
#include "lights/light_loop.h"
#include "rv_msg.h"

#include <algorithm>

static const char* const module_path = "core\\src\\lights\\ambient";

namespace rv {

struct AmbientLight {
    bool use_direction;
    RtVector direction; // in which the light travels
    LightParams common;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<AmbientLight>(metadata);
    RvNodeParamBOOL(params, RV_FIELD(AmbientLight, use_direction), false);
    RvNodeParamVEC(params, RV_FIELD(AmbientLight, direction), 0, 0, -1);
}

// ---- Local data ----

struct AmbientLightData {
    bool use_direction;
    RtVector direction; // towards the light, unit
};

static AmbientLightData* dataOf(const RtNode* node)
{
    return lightTypeData<AmbientLightData>(node);
}

static void initialize(RtNode* node, void*)
{
    initializeLight(node, RV_LIGHT_AMBIENT, { sizeof(AmbientLightData), sizeof(RtLightPoint) },
                    module_path);
}

static bool isZero(const RtVector& v)
{
    constexpr float least = 1e-10f;
    return fabsf(v.x) < least && fabsf(v.y) < least && fabsf(v.z) < least;
}

static void update(RtNode* node, void* params)
{
    AmbientLightData* const data = dataOf(node);
    if (!data)
        return;
    const AmbientLight& light = *static_cast<const AmbientLight*>(params);
    RvLightUpdate(node, false, false);
    data->use_direction = light.use_direction;
    if (!light.use_direction)
        return;
    if (isZero(light.direction)) {
        RvMsgWarning("[%s: \"%s\"] zero-vector passed in as direction -- disabling direction",
                     RvNodeEntryGetName(node->entry), RvNodeGetName(node));
        data->use_direction = false;
        return;
    }
    data->direction = directionToLight(node, light.direction);
}

// ---- Lighting ----

// Ambient light never appears in the light loop.
static bool sample(RtNode*, RtShaderGlobals* sg)
{
    sg->light_radiance = sg->light_unoccluded = sg->light_shadow = RV_RGB_BLACK;
    sg->light_dir = RV_V3_ZERO;
    sg->light_dist = 0;
    return false;
}

static RtRGB ambient(RtNode* node, RtShaderGlobals* sg)
{
    const AmbientLightData* const data = dataOf(node);
    if (!data || !sg)
        return RV_RGB_BLACK;
    const float cosine =
        data->use_direction ? std::clamp(dot(data->direction, sg->normal), 0.0f, 1.0f) : 1;
    // Required: the colour as it is stored, without "light_gamma".
    return RvLightGetColor(node) * (RvLightGetIntensity(node) * cosine);
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = initialize,
    .Update = update,
    .Finish = finishLight,
};

static const RtLightMethods light = {
    .LightPrepare = do_nothing,
    .LightSample = sample,
    .LightAmbient = ambient,
    .LightIntersect = do_nothing,
    .LightBounds = do_nothing,
};

const RtNodeMethods ambient_light_methods = { &common, &light };

} // namespace rv
