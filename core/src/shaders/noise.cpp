// noise: the "noise" shader node, a fractal sum of gradient noise.
#include "rv_noise.h"
#include "shaders/shaders.h"

#include <math.h>

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

enum NoiseParam {
    p_octaves,
    p_distortion,
    p_lacunarity,
    p_amplitude,
    p_scale,
    p_offset,
    p_coord_space
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

static RtPoint scaledPoint(const ShaderInputs& in, const RtShaderGlobals& sg)
{
    const RtPoint& p = in.choice(p_coord_space) == Noise::world ? sg.point : sg.object_point;
    const RtVector scale = in.vec(p_scale), offset = in.vec(p_offset);
    return { p.x * scale.x + offset.x, p.y * scale.y + offset.y, p.z * scale.z + offset.z };
}

static void evaluate(RtNode* node, RtShaderGlobals* sg)
{
    const ShaderInputs in(node, sg);
    const RtPoint p = scaledPoint(in, *sg);
    const float n = RvNoise3(&p, in.integer(p_octaves), in.flt(p_distortion), in.flt(p_lacunarity));
    // This way round it is a number even when the amplitude is none.
    sg->out.FLT = fminf(fmaxf((in.flt(p_amplitude) * n + 1) * 0.5f, 0), 1);
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = do_nothing,
    .Update = do_nothing,
    .Finish = do_nothing,
};

static const RtShaderMethods shader = {
    .Evaluate = evaluate,
};

const RtNodeMethods noise_methods = { &common, &shader };

} // namespace rv
