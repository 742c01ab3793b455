// distant: the "distant_light" light node, a direction or a cone of directions.
#include "lights/distant.h"

#include "lights/light_loop.h"
#include "rays.h"

#include <algorithm>

static const char* const module_path = "core\\src\\lights\\distant";

namespace rv {

struct DistantLight {
    RtVector direction; // in which the light travels
    float angle;        // degrees, the diameter of the source
    LightParams common;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<DistantLight>(metadata);
    RvNodeParamVEC(params, RV_FIELD(DistantLight, direction), 0, 0, -1);
    RvNodeParamFLT(params, RV_FIELD(DistantLight, angle), 0);
}

// ---- Local data ----

static constexpr float distance = 1e12f;

static DistantLightData* dataOf(const RtNode* node)
{
    return lightTypeData<DistantLightData>(node);
}

static void initialize(RtNode* node, void*)
{
    initializeLight(node, RV_LIGHT_DISTANT, { sizeof(DistantLightData), sizeof(RtLightPoint) },
                    module_path);
}

DistantLightData distantLight(const RtVector& to_light, float degrees)
{
    const double half = std::clamp(double(degrees), 0.0, 360.0) * 0.5 * 0.017453292519943295;
    const double sine = sin(half / 2);
    DistantLightData data;
    data.cone.one_minus_cos = float(2 * sine * sine); // without a difference of near equals
    data.cos_limit = float(-sin(half));               // cosine of half + pi / 2
    data.solid = solidAngle(data.cone);
    aimCone(&data.cone, to_light);
    return data;
}

static void update(RtNode* node, void* params)
{
    DistantLightData* const data = dataOf(node);
    if (!data)
        return;
    const DistantLight& light = *static_cast<const DistantLight*>(params);
    RvLightUpdate(node, light.angle > 0, false);
    *data = distantLight(directionToLight(node, light.direction), light.angle);
}

// ---- Lighting ----

// A direction of no length shines nowhere.
static bool shines(const DistantLightData* data)
{
    return data && dot(data->cone.axis, data->cone.axis) > 0;
}

static bool isBehind(const RtShaderGlobals& sg, const DistantLightData& data)
{
    return sg.stage == RV_STAGE_SURFACE && sg.front_hemisphere_only &&
           dot(sg.facing_normal, data.cone.axis) < data.cos_limit;
}

static void prepare(RtNode* node, RtShaderGlobals* sg)
{
    const DistantLightData* const data = dataOf(node);
    if (!shines(data) || isBehind(*sg, *data))
        refuseSamples(sg);
    sg->light_dist = distance;
}

static float intensityAt(const RtLightData& light, const DistantLightData& data,
                         const RtShaderGlobals& sg)
{
    const float extent = data.solid != 0 && !light.normalize ? data.solid : 1;
    return light.intensity * extent * (sg.diffuse_depth > 0 ? light.bounce_factor : 1);
}

static bool sample(RtNode* node, RtShaderGlobals* sg)
{
    const DistantLightData* const data = dataOf(node);
    if (!shines(data))
        return false;
    const RtLightPoint& point = *lightPoint<RtLightPoint>(sg);
    sg->light_dir = point.light->sampled ? coneDirection(data->cone, point.sample.x, point.sample.y)
                                         : data->cone.axis;
    sg->light_dist = distance;
    sg->light_unoccluded = point.light->color * intensityAt(*point.light, *data, *sg);
    sg->light_shadow = RV_RGB_BLACK;
    shineThroughFilters(sg, nullptr);
    return !isNegligible(sg->light_radiance);
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = initialize,
    .Update = update,
    .Finish = finishLight,
};

static const RtLightMethods light = {
    .LightPrepare = prepare,
    .LightSample = sample,
    .LightAmbient = do_nothing,
    .LightIntersect = do_nothing,
    .LightBounds = do_nothing,
};

const RtNodeMethods distant_light_methods = { &common, &light };

} // namespace rv
