// lights: what all lights have in common.
#include "lights/lights.h"

namespace rv {

void lightParameters(RtList* params, RtMetaDataStore* metadata)
{
    RvNodeParamARRAY(params, RV_FIELD(LightParams, matrix),
                     RvArray(1, 1, RV_TYPE_MATRIX, &RV_M4_IDENTITY));
    RvNodeParamRGB(params, RV_FIELD(LightParams, color), 1, 1, 1);
    RvNodeParamFLT(params, RV_FIELD(LightParams, intensity), 1);
    RvNodeParamFLT(params, RV_FIELD(LightParams, exposure), 0);
    RvNodeParamBOOL(params, RV_FIELD(LightParams, cast_shadows), true);
    RvNodeParamFLT(params, RV_FIELD(LightParams, shadow_density), 1);
    declareSynonym(metadata, "shadow_density", "umbra");
    RvNodeParamRGB(params, RV_FIELD(LightParams, shadow_color), 0, 0, 0);
    RvNodeParamINT(params, RV_FIELD(LightParams, samples), 1);
    RvNodeParamBOOL(params, RV_FIELD(LightParams, normalize), true);
    RvNodeParamBOOL(params, RV_FIELD(LightParams, affect_diffuse), true);
    RvNodeParamBOOL(params, RV_FIELD(LightParams, affect_specular), true);
    RvNodeParamINT(params, RV_FIELD(LightParams, bounces), 999);
    RvNodeParamFLT(params, RV_FIELD(LightParams, bounce_factor), 1);
    RvNodeParamARRAY(params, RV_FIELD(LightParams, filters), RvArray(0, 1, RV_TYPE_NODE));
    RvNodeParamARRAY(params, RV_FIELD(LightParams, time_samples),
                     RvArray(2, 1, RV_TYPE_FLOAT, 0.0, 1.0));
    RvNodeParamINT(params, RV_FIELD(LightParams, sss_samples), -1);
    RvNodeParamBOOL(params, RV_FIELD(LightParams, mis), true);
}

void lightVolumeParameters(RtList* params, RtMetaDataStore* metadata, int offset)
{
    RvNodeParamBOOL(params, offset + RV_FIELD(LightVolumeParams, affect_volumetrics), true);
    RvNodeParamBOOL(params, offset + RV_FIELD(LightVolumeParams, cast_volumetric_shadows), true);
    RvNodeParamNODE(params, offset + RV_FIELD(LightVolumeParams, volume_density), nullptr);
    declareSynonym(metadata, "affect_volumetrics", "volumetrics");
    declareSynonym(metadata, "cast_volumetric_shadows", "vshadows");
}

} // namespace rv
