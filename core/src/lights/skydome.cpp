// skydome: the "skydome_light" light node, an environment around the whole scene.
#include "lights/lights.h"

namespace rv {

static const char* const format_names[] = { "mirrored_ball", "angular", "latlong", "cubic",
                                            nullptr };

struct SkydomeLight {
    int resolution; // side of the importance table; below 1 the light is disabled
    int format;     // index of format_names
    LightParams common;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<SkydomeLight>(metadata);
    RvNodeParamINT(params, RV_FIELD(SkydomeLight, resolution), 1000);
    RvNodeParamENUM(params, RV_FIELD(SkydomeLight, format), RvEnumGetValue(format_names, "angular"),
                    format_names);
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

const RtNodeMethods skydome_light_methods = { &common, &light };

} // namespace rv
