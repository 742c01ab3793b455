// noise: the "noise" shader node, a fractal sum of gradient noise.
#include "shaders/shaders.h"

namespace rv {

static const char* const coord_space_names[] = { "world", "object", nullptr };

struct Noise {
    enum CoordSpace { world, object };
    int octaves;
    float distortion;
    float lacunarity;
    float amplitude;
    RtVector scale;
    RtVector offset;
    int coord_space; // CoordSpace
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<Noise>(metadata);
    RvNodeParamINT(params, RV_FIELD(Noise, octaves), 1);
    RvNodeParamFLT(params, RV_FIELD(Noise, distortion), 0);
    RvNodeParamFLT(params, RV_FIELD(Noise, lacunarity), 1.92f);
    RvNodeParamFLT(params, RV_FIELD(Noise, amplitude), 1);
    RvNodeParamVEC(params, RV_FIELD(Noise, scale), 1, 1, 1);
    RvNodeParamVEC(params, RV_FIELD(Noise, offset), 0, 0, 0);
    RvNodeParamENUM(params, RV_FIELD(Noise, coord_space), Noise::object, coord_space_names);
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

const RtNodeMethods noise_methods = { &common, &shader };

} // namespace rv
