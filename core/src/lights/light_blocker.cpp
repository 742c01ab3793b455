// light_blocker: the "light_blocker" light filter, a shape that blocks the light behind it.
#include "lights/lights.h"

namespace rv {

static const char* const geometry_type_names[] = { "box", "sphere", "plane", "cylinder", nullptr };
static const char* const ramp_axis_names[] = { "x", "y", "z", "X", "Y", "Z", nullptr };

struct LightBlocker {
    int geometry_type;        // index of geometry_type_names
    RtMatrix geometry_matrix; // blocker to world
    float density;
    float roundness;
    float width_edge;
    float height_edge;
    float ramp;
    int ramp_axis; // index of ramp_axis_names
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<LightBlocker>(metadata);
    RvNodeParamENUM(params, RV_FIELD(LightBlocker, geometry_type), 0, geometry_type_names);
    RvNodeParamMTX(params, RV_FIELD(LightBlocker, geometry_matrix), &RV_M4_IDENTITY);
    RvNodeParamFLT(params, RV_FIELD(LightBlocker, density), 0);
    RvNodeParamFLT(params, RV_FIELD(LightBlocker, roundness), 0);
    RvNodeParamFLT(params, RV_FIELD(LightBlocker, width_edge), 0);
    RvNodeParamFLT(params, RV_FIELD(LightBlocker, height_edge), 0);
    RvNodeParamFLT(params, RV_FIELD(LightBlocker, ramp), 0);
    RvNodeParamENUM(params, RV_FIELD(LightBlocker, ramp_axis), 0, ramp_axis_names);
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = do_nothing,
    .Update = do_nothing,
    .Finish = do_nothing,
};

static const RtShaderMethods shader = {
    .Evaluate = do_nothing,
};

const RtNodeMethods light_blocker_methods = { &common, &shader };

} // namespace rv
