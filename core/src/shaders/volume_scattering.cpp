// volume_scattering: the "volume_scattering" shader node, an atmosphere that scatters light.
#include "shaders/shaders.h"

namespace rv {

struct VolumeScattering {
    float density;
    int samples;        // along a segment, per light
    float eccentricity; // of the phase function
    float attenuation;  // relative to the density
    float affect_camera;
    float affect_diffuse;
    float affect_reflection;
    bool importance_sampling;
    RtRGB rgb_density;
    RtRGB rgb_attenuation;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<VolumeScattering>(metadata);
    RvNodeParamFLT(params, RV_FIELD(VolumeScattering, density), 0);
    RvNodeParamINT(params, RV_FIELD(VolumeScattering, samples), 5);
    RvNodeParamFLT(params, RV_FIELD(VolumeScattering, eccentricity), 0);
    RvNodeParamFLT(params, RV_FIELD(VolumeScattering, attenuation), 0);
    RvNodeParamFLT(params, RV_FIELD(VolumeScattering, affect_camera), 1);
    RvNodeParamFLT(params, RV_FIELD(VolumeScattering, affect_diffuse), 0);
    RvNodeParamFLT(params, RV_FIELD(VolumeScattering, affect_reflection), 1);
    RvNodeParamBOOL(params, RV_FIELD(VolumeScattering, importance_sampling), true);
    RvNodeParamRGB(params, RV_FIELD(VolumeScattering, rgb_density), 1, 1, 1);
    RvNodeParamRGB(params, RV_FIELD(VolumeScattering, rgb_attenuation), 1, 1, 1);
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

const RtNodeMethods volume_scattering_methods = { &common, &shader };

} // namespace rv
