// lights: what all lights have in common: parameters, local data and its update (rv_lights.h).
// Updates run on one thread, between renders.
#include "lights/lights.h"

#include "array.h"
#include "lights/light_data.h"
#include "lights/light_tables.h"
#include "msg.h"
#include "options.h"
#include "rv_msg.h"

static const char* const module_path = "core\\src\\lights\\lights";

namespace rv {

// ---- Parameters ----

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

RtVector directionToLight(const RtNode* light, const RtVector& direction)
{
    const RtArray* const matrix = lightParam<RtArray*>(light, light_matrix_param);
    const RtVector back = { -direction.x, -direction.y, -direction.z };
    RtVector to_light = back;
    if (matrix && matrix->type == RV_TYPE_MATRIX && totalElements(matrix))
        RvM4VectorByMatrixMult(&to_light, elementsOf<RtMatrix>(matrix), &back);
    return unitPrecise(to_light);
}

// ---- Local data ----

// What a table of methods without entries stands for.
static const RtLightMethods no_methods = {};

static const RtLightMethods* methodsOf(const RtNode* light)
{
    const auto* const methods = static_cast<const RtLightMethods*>(light->entry->kind_methods);
    return methods ? methods : &no_methods;
}

bool initializeLight(RtNode* light, RtLightType type, const LightTypeSizes& sizes, const char* file,
                     void (*destroy_type_data)(void*))
{
    if (light->local_data)
        return false;
    void* const type_data = RvMalloc_func(sizes.type_data, file, __LINE__, "Initialize");
    if (!type_data)
        return false;
    memset(type_data, 0, sizes.type_data);
    RvLightInitialize(light, type, type_data);
    RtLightData* const data = lightData(light);
    if (!data) {
        RvFree_func(type_data);
        return false;
    }
    data->destroy_type_data = destroy_type_data;
    data->point_size = sizes.point;
    return true;
}

static void releaseTables(const RtLightData& data)
{
    for (const RtSampleTable* table :
         { data.pixel_table, data.sss_table, data.cache_table, data.mis_table })
        releaseLightTable(table);
}

void finishLight(RtNode* light)
{
    RtLightData* const data = lightData(light);
    if (!data)
        return;
    releaseTables(*data);
    if (data->destroy_type_data)
        data->destroy_type_data(data->type_data);
    RvFree_func(data);
    light->local_data = nullptr;
}

void setVolume(RtNode* light, const LightVolumeParams& volume)
{
    RtLightData* const data = lightData(light);
    if (!data)
        return;
    data->volumetric_shadows = volume.cast_volumetric_shadows;
    data->volume_density = volume.volume_density;
}

// ---- Filters, falloff and cutoff ----

struct Decay {
    float exponent;
    float radius;
};

float usableDecay(const RtNode* light, float exponent)
{
    if (exponent >= 0)
        return exponent;
    RvMsgWarning("[%s] %s:  light decay exponent less than zero found -- resetting falloff to "
                 "constant",
                 RvNodeEntryGetName(light->entry), RvNodeGetName(light));
    return 0;
}

static Decay decayOf(const RtNode* light, const RtNode* filter)
{
    const int type = RvNodeGetInt(filter, "decay_type");
    // Required: checked although no value of the enumeration is negative.
    return { usableDecay(light, type >= 0 && type <= 3 ? float(type) : 0),
             RvNodeGetFlt(filter, "decay_radius") };
}

// The first "light_decay" filter decides. Warns about those that are missing in front of it.
static Decay findDecay(const RtNode* light)
{
    const RtArray* const filters = lightFilters(light);
    const unsigned count = filters ? totalElements(filters) : 0;
    for (unsigned k = 0; k < count; ++k) {
        const auto* const filter =
            static_cast<const RtNode*>(RvArrayGetPtrFunc(filters, k, module_path, __LINE__));
        if (!filter)
            RvMsgWarning("[%s] %s is missing light-filter %d", RvNodeEntryGetName(light->entry),
                         RvNodeGetName(light), int(k));
        else if (RvNodeIs(filter, "light_decay"))
            return decayOf(light, filter);
    }
    return { 0, 1 };
}

// Squared distance at which a light of that brightness falls below the threshold.
static float cutoffSquare(float brightness, const Decay& decay, float threshold)
{
    constexpr float no_cutoff = 1e12f;
    const float e = decay.exponent;
    if (e == 0 || threshold == 0)
        return no_cutoff;
    const float distance = powf(brightness * powf(decay.radius, e) / threshold, 1 / e);
    return distance * distance;
}

// ---- Sample tables ----

static void updateTables(RtLightData* data, int sss_samples)
{
    constexpr int single_seed = 3;
    const int s = data->samples;
    const int pixel_side = pixelSampleSide(render_options->AA_samples);
    const int pattern = render_options->GI_hemi_pattern;
    const auto blocks = [&](int factor) {
        return acquireLightTable({ factor * s - 2, s, pixel_side, pattern, samplingSeed() });
    };
    const auto single = [&](int side) {
        return acquireLightTable({ single_seed, side, 0, pattern, samplingSeed() });
    };
    const RtLightData old = *data;
    data->pixel_table = blocks(8);
    data->sss_table = single(sss_samples);
    data->cache_table = single(s);
    data->mis_table = data->mis ? blocks(10) : nullptr;
    releaseTables(old); // only now, because most tables stay the same
}

// ---- The update ----

static void updateShadows(RtLightData* data)
{
    const RtNode* const light = data->node;
    data->shadow_color = lightParam<RtRGB>(light, light_shadow_color_param);
    data->shadow_colored = !isNegligible(data->shadow_color);
    data->shadow_density = lightParam<float>(light, light_shadow_density_param);
    data->volumetric_shadows = false;
    data->cast_shadows =
        lightParam<bool>(light, light_cast_shadows_param) && !render_options->ignore_shadows;
}

static void updateBrightness(RtLightData* data)
{
    const RtNode* const light = data->node;
    const RtRGB color = lightParam<RtRGB>(light, light_color_param);
    const float gamma = render_options->light_gamma;
    data->intensity = lightParam<float>(light, light_intensity_param) *
                      powf(2, lightParam<float>(light, light_exposure_param));
    data->color = gamma == 1
                      ? color
                      : RtRGB{ powf(color.r, gamma), powf(color.g, gamma), powf(color.b, gamma) };
    data->enabled = !isNegligible(color) && data->intensity != 0 && !render_options->ignore_lights;
    data->normalize = lightParam<bool>(light, light_normalize_param);
    const Decay decay = findDecay(light);
    data->decay_exponent = decay.exponent;
    data->cutoff_sq = cutoffSquare(largestOf(data->color) * data->intensity, decay,
                                   render_options->low_light_threshold);
}

static void updateReach(RtLightData* data)
{
    const RtNode* const light = data->node;
    data->affect_diffuse = lightParam<bool>(light, light_affect_diffuse_param);
    data->affect_specular = lightParam<bool>(light, light_affect_specular_param);
    data->bounces = lightParam<int>(light, light_bounces_param);
    data->bounce_factor = lightParam<float>(light, light_bounce_factor_param);
    data->direct = render_options->GI_direct_lighting;
}

static void updateSampling(RtLightData* data, bool sampled)
{
    constexpr int most = 255; // of a loop, whose samples are counted in 16 bits
    const RtNode* const light = data->node;
    const int samples = lightParam<int>(light, light_samples_param);
    const int sss_samples = lightParam<int>(light, light_sss_samples_param);
    data->sampled = sampled;
    // Required: truncated to a byte, so that 256 are as good as none.
    data->samples = sampled ? uint8_t(samples < 1 ? 1 : samples) : uint8_t{ 1 };
    data->sss_samples =
        sss_samples > 0 ? uint8_t(sss_samples < most ? sss_samples : most) : data->samples;
    data->mis = lightParam<bool>(light, light_mis_param);
    updateTables(data, data->sss_samples);
}

// Says what became of the light, unless the latest line says the same.
static void report(RtLightData* data)
{
    const char* const name = RvNodeGetName(data->node);
    const int samples = lightParam<int>(data->node, light_samples_param);
    const bool shadows = lightParam<bool>(data->node, light_cast_shadows_param);
    if (data->is_reported && data->reported_enabled == data->enabled &&
        data->reported_samples == samples && data->reported_shadows == shadows)
        return;
    data->is_reported = true;
    data->reported_enabled = data->enabled;
    data->reported_samples = samples;
    data->reported_shadows = shadows;
    if (!data->enabled)
        RvMsgInfoMasked(RV_LOG_STATS, "%s: disabled", name);
    else
        RvMsgInfoMasked(RV_LOG_STATS, "%s: %d samples, %s", name, samples,
                        shadows ? "raytraced" : "no shadows");
}

static void checkTimeSamples(RtNode* light)
{
    RtArray* const samples = lightParam<RtArray*>(light, light_time_samples_param);
    if (samples && samples->type == RV_TYPE_FLOAT &&
        RvTimeSamplesCheck(samples->nelements, elementsOf<float>(samples)))
        return;
    RvMsgWarning("invalid time sample specification on: %s - resetting to default",
                 RvNodeGetName(light));
    RtArray* const defaults = RvArray(2, 1, RV_TYPE_FLOAT, 0.0, 1.0);
    if (!defaults)
        return;
    // Past the setters, which refuse a parameter of the ignore list.
    memcpy(paramStorage(light, &lightParamEntry(light, light_time_samples_param)), &defaults,
           sizeof defaults);
    RvArrayDestroy(samples);
}

} // namespace rv

void RvLightInitialize(RtNode* light, uint8_t light_type, void* data)
{
    if (!rv::isLight(light) || light->local_data)
        return;
    void* const memory =
        RvMalloc_func(sizeof(RtLightData), module_path, __LINE__, "RvLightInitialize");
    if (!memory)
        return;
    auto* const record = static_cast<RtLightData*>(memory);
    *record = {};
    record->node = light;
    record->light_type = light_type;
    record->type_data = data;
    record->methods = rv::methodsOf(light);
    record->point_size = sizeof(RtLightPoint);
    light->local_data = record;
}

void RvLightUpdate(RtNode* light, bool sampled, bool affect_volumetrics)
{
    RtLightData* const data = rv::lightData(light);
    if (!data || !rv::render_options)
        return;
    data->affect_volumetrics = affect_volumetrics;
    rv::updateReach(data);
    rv::updateShadows(data);
    rv::updateBrightness(data);
    rv::updateSampling(data, sampled);
    rv::report(data);
    rv::checkTimeSamples(light);
}

RtRGB RvLightGetColor(const RtNode* light)
{
    return rv::isLight(light) ? rv::lightParam<RtRGB>(light, rv::light_color_param) : RV_RGB_BLACK;
}

float RvLightGetIntensity(const RtNode* light)
{
    const RtLightData* const data = rv::lightData(light);
    return data ? data->intensity : 0;
}

bool RvLightGetAffectDiffuse(const RtNode* light)
{
    return rv::isLight(light) && rv::lightParam<bool>(light, rv::light_affect_diffuse_param);
}

bool RvLightGetAffectSpecular(const RtNode* light)
{
    return rv::isLight(light) && rv::lightParam<bool>(light, rv::light_affect_specular_param);
}
