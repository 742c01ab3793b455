// spot: the "spot_light" light node, a cone of light from a point, a disk or a lens.
#include "lights/lights.h"

namespace rv {

struct SpotLight {
    RtArray* position; // POINT, one per motion key
    RtArray* look_at;  // POINT
    RtArray* up;       // VECTOR
    float radius;
    float lens_radius;
    float cone_angle;     // degrees, the whole angle
    float penumbra_angle; // degrees
    float cosine_power;
    float aspect_ratio;
    LightVolumeParams volume;
    LightParams common;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<SpotLight>(metadata);
    RvNodeParamARRAY(params, RV_FIELD(SpotLight, position),
                     RvArray(1, 1, RV_TYPE_POINT, RV_P3_ZERO));
    RvNodeParamARRAY(params, RV_FIELD(SpotLight, look_at),
                     RvArray(1, 1, RV_TYPE_POINT, RV_V3_NEGZ));
    RvNodeParamARRAY(params, RV_FIELD(SpotLight, up), RvArray(1, 1, RV_TYPE_VECTOR, RV_V3_Y));
    RvNodeParamFLT(params, RV_FIELD(SpotLight, radius), 0);
    RvNodeParamFLT(params, RV_FIELD(SpotLight, lens_radius), 0);
    RvNodeParamFLT(params, RV_FIELD(SpotLight, cone_angle), 65);
    RvNodeParamFLT(params, RV_FIELD(SpotLight, penumbra_angle), 0);
    RvNodeParamFLT(params, RV_FIELD(SpotLight, cosine_power), 0);
    RvNodeParamFLT(params, RV_FIELD(SpotLight, aspect_ratio), 1);
    lightVolumeParameters(params, metadata, offsetof(SpotLight, volume));
    declareSynonym(metadata, "position", "center");
    declareSynonym(metadata, "look_at", "target");
    declareSynonym(metadata, "cone_angle", "wide_angle");
    declareSynonym(metadata, "penumbra_angle", "delta_angle");
    declareSynonym(metadata, "cosine_power", "cpower");
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = do_nothing,
    .Update = do_nothing,
    .Finish = do_nothing,
};

static const RtLightMethods light = {
    .LightPrepare = do_nothing,
    .LightSample = do_nothing,
    .LightAmbient = do_nothing,
    .LightIntersect = do_nothing,
    .LightBounds = do_nothing,
};

const RtNodeMethods spot_light_methods = { &common, &light };

} // namespace rv
