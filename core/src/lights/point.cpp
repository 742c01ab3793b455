// point: the "point_light" light node, a point or a sphere.
#include "lights/cone_light.h"

#include <algorithm>

static const char* const module_path = "core\\src\\lights\\point";

namespace rv {

struct PointLight {
    RtArray* position; // POINT, one per motion key
    float radius;
    LightVolumeParams volume;
    LightParams common;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<PointLight>(metadata);
    RvNodeParamARRAY(params, RV_FIELD(PointLight, position),
                     RvArray(1, 1, RV_TYPE_POINT, RV_P3_ZERO));
    RvNodeParamFLT(params, RV_FIELD(PointLight, radius), 0);
    lightVolumeParameters(params, metadata, offsetof(PointLight, volume));
}

// ---- Local data ----

struct PointLightData {
    float radius;
    LightKeyArray<RtPoint> positions; // world space
};

static PointLightData* dataOf(const RtNode* node) { return lightTypeData<PointLightData>(node); }

static void destroyData(void* data)
{
    releaseKeys(&static_cast<PointLightData*>(data)->positions);
    RvFree_func(data);
}

static void initialize(RtNode* node, void*)
{
    initializeLight(node, RV_LIGHT_POINT, { sizeof(PointLightData), sizeof(ConeLightPoint) },
                    module_path, destroyData);
}

static void updatePositions(PointLightData* data, const RtNode* node, const RtArray* positions)
{
    const unsigned count = std::max(keyCount(positions), matrixKeyCount(node));
    if (!allocateKeys(&data->positions, count, module_path))
        return;
    for (unsigned k = 0; k < count; ++k)
        data->positions.keys[k] = worldPoint(node, k, keyPoint(positions, k, module_path));
}

static void update(RtNode* node, void* params)
{
    PointLightData* const data = dataOf(node);
    if (!data)
        return;
    const PointLight& light = *static_cast<const PointLight*>(params);
    updatePositions(data, node, light.position);
    data->radius = std::max(light.radius, 0.0f);
    RvLightUpdate(node, light.radius > 0, light.volume.affect_volumetrics);
    setVolume(node, light.volume);
}

// ---- Lighting ----

static RtPoint positionAt(const RtNode* node, const PointLightData& data, float time)
{
    const LightKeys at = lightKeysAt(node, data.positions.count, time);
    const RtPoint* const keys = data.positions.keys + at.key;
    return at.weight > 0 ? keys[0] * (1 - at.weight) + keys[1] * at.weight : keys[0];
}

// Looks at the light from the point of the context. False when there is nothing to see.
static bool aim(RtNode* node, RtShaderGlobals* sg)
{
    const PointLightData* const data = dataOf(node);
    if (!data || !data->positions.count)
        return false;
    auto* const point = lightPoint<ConeLightPoint>(sg);
    const RtPoint center = positionAt(node, *data, sg->time);
    if (isBehind(*sg, center, data->radius) ||
        !aimAtLight(point, *sg, center, data->radius, sphereExtent))
        return false;
    point->falloff = 1;
    setBrightness(point, sg);
    return true;
}

static bool bounds(RtNode* node, RtLightBounds* bounds, const RtRay* ray)
{
    const PointLightData* const data = dataOf(node);
    if (!data || !data->positions.count || !reachesVolumes(node))
        return false;
    const RtPoint center = positionAt(node, *data, ray->time);
    const float reach_sq = lightData(node)->cutoff_sq;
    RaySpan span;
    return spanInSphere(ray->origin - center, ray->dir, reach_sq, &span) &&
           setBounds(span, *ray, center, sqrtf(reach_sq), bounds);
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = initialize,
    .Update = update,
    .Finish = finishLight,
};

static constexpr RtLightMethods light = coneLightMethods<aim>(bounds);

const RtNodeMethods point_light_methods = { &common, &light };

} // namespace rv
