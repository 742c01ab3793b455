// light_loop: the samples of all lights at a point (rv_lights.h). Runs on all render threads at
// once, each on its own contexts; samples live in the shading pool of the thread.
#include "lights/light_loop.h"

#include "counters.h"
#include "hash.h"
#include "objects/gobject.h"
#include "options.h"
#include "rays.h"
#include "sampler.h"

#include <algorithm>

namespace rv {

// ---- Counting ----

static bool isOrdinary(const RtShaderGlobals& sg)
{
    return sg.stage == RV_STAGE_SURFACE && sg.state->pass == RV_PASS_PIXELS;
}

static void countLoop(const RtShaderGlobals& sg, RtLightingRow row)
{
    if (!isOrdinary(sg))
        return;
    RtLightingCount& counts = threadStats()->lighting[row];
    ++(isNested(&sg) ? counts.secondary : counts.primary);
}

// ---- Reuse ----

static uint32_t tracesetHash(const RtShaderGlobals& sg)
{
    return sg.traceset ? stringHash(sg.traceset) : 0;
}

static bool sameBits(const RtVector& a, const RtVector& b) { return !memcmp(&a, &b, sizeof a); }

static bool isReusable(const RtLightLoop& loop, const RtShaderGlobals& sg)
{
    return loop.has_key && sg.stage == RV_STAGE_SURFACE &&
           loop.key_front_hemisphere_only == sg.front_hemisphere_only &&
           loop.key_skip_shadows == sg.skip_shadows &&
           loop.key_traceset_inclusive == sg.traceset_inclusive &&
           sameBits(loop.key_normal, sg.normal) &&
           sameBits(loop.key_facing_normal, sg.facing_normal) &&
           sameBits(loop.key_point, sg.point) && loop.key_traceset == tracesetHash(sg);
}

static void setKey(RtLightLoop* loop, const RtShaderGlobals& sg)
{
    loop->has_key = sg.stage == RV_STAGE_SURFACE;
    loop->key_point = sg.point;
    loop->key_normal = sg.normal;
    loop->key_facing_normal = sg.facing_normal;
    loop->key_traceset = tracesetHash(sg);
    loop->key_traceset_inclusive = sg.traceset_inclusive;
    loop->key_front_hemisphere_only = sg.front_hemisphere_only;
    loop->key_skip_shadows = sg.skip_shadows;
}

// ---- One light at a point ----

bool isConsidered(const RtLightData& light, const RtShaderGlobals& sg)
{
    return light.enabled && sg.diffuse_depth <= light.bounces &&
           (light.direct || sg.diffuse_depth > 0);
}

static bool castsShadows(const RtLightData& light, const RtShaderGlobals& sg)
{
    const RtGObject* const object = sg.stage == RV_STAGE_SURFACE ? shapeObject(sg.object) : nullptr;
    if (!object)
        return light.cast_shadows && light.volumetric_shadows;
    const ShapeParams& params = shapeParams(object->node);
    return light.cast_shadows && (params.receive_shadows || params.self_shadows);
}

static int squareCount(int samples) { return samples < 2 ? 1 : samples * samples; }

// Samples that the light takes at the point unless its type decides otherwise.
static int sampleCount(const RtLightData& light, const RtShaderGlobals& sg)
{
    if (!light.sampled || isNested(&sg) || sg.stage == RV_STAGE_VOLUME)
        return 1;
    const bool from_sss = sg.stage == RV_STAGE_SURFACE && sg.state->pass == RV_PASS_SSS;
    return squareCount(from_sss ? light.sss_samples : light.samples);
}

static const RtSampleTable* tableOf(const RtLightData& light, RtPass pass)
{
    switch (pass) {
    case RV_PASS_HAIR: return light.cache_table;
    case RV_PASS_SSS: return light.sss_table;
    default: return light.pixel_table;
    }
}

// The block of the camera sample, for a loop of `n` samples on a surface.
static void chooseBlock(RtLightPoint* point, const RtShaderGlobals& sg, int n)
{
    point->rotation = RvSamplerRotation(&sg);
    const RtSampleTable* const table =
        isNested(&sg) ? nullptr : tableOf(*point->light, sg.state->pass);
    // Only the table of pixels has more than one block.
    const int block = sg.state->pass == RV_PASS_PIXELS ? sg.sample_index : 0;
    point->points = table ? sampleBlock(*table, block, n) : nullptr;
    point->point_count = point->points ? n : 0;
}

static void RvLightPrepare(const RtLightData& light, RtShaderGlobals* sg, RtLightPoint* point)
{
    sg->light_sample_count = 0;
    sg->light = light.node;
    sg->state->lights.mis.active = false;
    sg->state->lights.point = point;
    if (!isConsidered(light, *sg))
        return;
    point->casts_shadows = castsShadows(light, *sg);
    const int n = sampleCount(light, *sg);
    sg->light_weight = 1.0f / float(n);
    sg->light_sample_count = uint16_t(n);
    if (light.sampled && sg->stage == RV_STAGE_SURFACE)
        chooseBlock(point, *sg, n);
    if (light.methods->LightPrepare)
        light.methods->LightPrepare(light.node, sg);
}

static void placeSample(RtLightPoint* point, RtShaderGlobals* sg, int j)
{
    const bool on_surface = sg->stage == RV_STAGE_SURFACE;
    if (on_surface)
        sg->light_sample_index = uint16_t(j);
    if (!point->light->sampled)
        return;
    if (!on_surface)
        point->sample = { sg->state->random[0], sg->state->random[1] };
    else if (j < point->point_count)
        point->sample = rotated(point->points[j], point->rotation);
    else
        point->sample = point->rotation;
}

static void clearLight(RtShaderGlobals* sg)
{
    sg->light_radiance = sg->light_unoccluded = sg->light_shadow = RV_RGB_BLACK;
}

// ---- All lights at a point ----

// Lists of samples have an end, because scenes with very many lights and samples exceed any memory.
static constexpr uint64_t most_list_bytes = uint64_t{ 1 } << 30;

static bool isReady(const RtShaderGlobals* sg)
{
    return sg && sg->state && render_options && the_frame && sg->thread_index < worker_slot_count;
}

static int lightCount(const RtShaderGlobals& sg)
{
    return sg.lights ? std::max(sg.light_count, 0) : 0;
}

// Makes room for the samples of all lights, or for as many as there is memory for.
static void reserveSamples(RtShaderGlobals* sg)
{
    uint64_t total = 0;
    for (int i = 0; i < lightCount(*sg); ++i)
        if (const RtLightData* const light = lightData(sg->lights[i]))
            total += light->enabled ? uint64_t(sampleCount(*light, *sg)) : 0;
    RtLightLoop& loop = sg->state->lights;
    const uint64_t wanted =
        std::min(std::max<uint64_t>(total, 1), most_list_bytes / sizeof(RtLightSample));
    if (loop.samples && uint64_t(loop.capacity) >= wanted)
        return;
    loop.samples = static_cast<RtLightSample*>(
        RvShaderGlobalsQuickAlloc(sg, unsigned(wanted * sizeof(RtLightSample))));
    loop.capacity = loop.samples ? int(wanted) : 0;
}

// Hands out the records of lights at a point. BRDFs ask the lights of multiple importance sampling
// again after the loop, so each keeps its record; all others make do with one after another.
class LightPoints {
public:
    explicit LightPoints(const RtShaderGlobals* context) : sg(context) {}

    // Null without memory.
    RtLightPoint* keep(const RtLightData& light)
    {
        return start(RvShaderGlobalsQuickAlloc(sg, light.point_size), light);
    }
    // For use until the next call.
    RtLightPoint* borrow(const RtLightData& light)
    {
        if (spare_size < light.point_size) {
            spare = RvShaderGlobalsQuickAlloc(sg, light.point_size);
            spare_size = spare ? light.point_size : 0;
        }
        return start(spare, light);
    }

private:
    static RtLightPoint* start(void* memory, const RtLightData& light)
    {
        if (!memory)
            return nullptr;
        memset(memory, 0, light.point_size);
        auto* const point = static_cast<RtLightPoint*>(memory);
        point->light = &light;
        return point;
    }

    const RtShaderGlobals* sg;
    void* spare = nullptr;
    unsigned spare_size = 0;
};

static void append(RtLightLoop* loop, int* count, const RtShaderGlobals& sg)
{
    if (*count >= loop->capacity)
        return;
    loop->samples[(*count)++] = { .light_radiance = sg.light_radiance,
                                  .light_unoccluded = sg.light_unoccluded,
                                  .light_shadow = sg.light_shadow,
                                  .light_dir = sg.light_dir,
                                  .light_dist = sg.light_dist,
                                  .light_weight = sg.light_weight,
                                  .light = sg.light,
                                  .light_sample_count = sg.light_sample_count,
                                  .mis = loop->mis,
                                  .point = loop->point };
}

static void addScaled(RtRGB* sum, const RtRGB& c, float s)
{
    sum->r += c.r * s;
    sum->g += c.g * s;
    sum->b += c.b * s;
}

// Appends the samples of one light. The result is its shadow.
static RtRGB takeSamples(const RtLightData& light, RtShaderGlobals* sg, RtLightPoint* point,
                         int* count)
{
    RtLightLoop& loop = sg->state->lights;
    RtRGB shadow = RV_RGB_BLACK;
    RvLightPrepare(light, sg, point);
    const int n = light.methods->LightSample ? sg->light_sample_count : 0;
    for (int j = 0; j < n; ++j) {
        placeSample(point, sg, j);
        clearLight(sg);
        if (light.methods->LightSample(light.node, sg))
            append(&loop, count, *sg);
        addScaled(&shadow, sg->light_shadow, sg->light_weight);
    }
    return shadow;
}

static RtRGB maximum(const RtRGB& a, const RtRGB& b)
{
    return { std::max(a.r, b.r), std::max(a.g, b.g), std::max(a.b, b.b) };
}

static RtRGB clamped(const RtRGB& c)
{
    return { std::clamp(c.r, 0.0f, 1.0f), std::clamp(c.g, 0.0f, 1.0f),
             std::clamp(c.b, 0.0f, 1.0f) };
}

static void takeAllSamples(RtShaderGlobals* sg)
{
    RtLightLoop& loop = sg->state->lights;
    const uint16_t count_before = sg->light_sample_count;
    LightPoints points(sg);
    RtRGB matte = RV_RGB_BLACK;
    int count = 0;
    reserveSamples(sg);
    for (int i = 0; i < lightCount(*sg); ++i) {
        const RtLightData* const light = lightData(sg->lights[i]);
        if (!light)
            continue;
        const bool may_be_asked = light->sampled && light->mis;
        if (RtLightPoint* const point = may_be_asked ? points.keep(*light) : points.borrow(*light))
            matte = maximum(matte, takeSamples(*light, sg, point, &count));
    }
    loop.count = count;
    loop.mis.active = false;
    loop.shadow_matte = clamped(matte);
    sg->light_sample_count = count_before;
}

// Types that keep what they know of a point elsewhere, one for each thread, need it again when they
// are asked; the thread may have lit other points since. Those with a record of their own still
// have it, with the samples.
static void prepareAgain(RtShaderGlobals* sg)
{
    const uint16_t count_before = sg->light_sample_count;
    LightPoints points(sg);
    for (int i = 0; i < lightCount(*sg); ++i) {
        const RtLightData* const light = lightData(sg->lights[i]);
        if (!light || !light->mis || light->point_size > sizeof(RtLightPoint))
            continue;
        if (RtLightPoint* const point = points.borrow(*light))
            RvLightPrepare(*light, sg, point);
    }
    sg->state->lights.mis.active = false;
    sg->light_sample_count = count_before;
}

} // namespace rv

void RvLightsPrepare(RtShaderGlobals* sg)
{
    if (!rv::isReady(sg) || sg->state->lights.busy)
        return;
    RtLightLoop& loop = sg->state->lights;
    rv::countLoop(*sg, RV_LIGHTING_LOOPS);
    const bool reuse = rv::isReusable(loop, *sg);
    loop.index = 0;
    loop.busy = true;
    if (reuse) {
        rv::countLoop(*sg, RV_LIGHTING_CACHED);
        rv::prepareAgain(sg);
        loop.shadow_matte = RV_RGB_BLACK; // Required: it is not computed again
    } else {
        loop.count = 0;
        rv::setKey(&loop, *sg);
        rv::takeAllSamples(sg);
    }
    loop.busy = false;
}

bool RvLightsGetSample(RtShaderGlobals* sg)
{
    if (!sg || !sg->state)
        return false;
    RtLightLoop& loop = sg->state->lights;
    if (loop.busy || loop.index >= loop.count)
        return false;
    const RtLightSample& sample = loop.samples[loop.index++];
    sg->light_radiance = sample.light_radiance;
    sg->light_unoccluded = sample.light_unoccluded;
    sg->light_shadow = sample.light_shadow;
    sg->light_dir = sample.light_dir;
    sg->light_dist = sample.light_dist;
    sg->light_weight = sample.light_weight;
    sg->light = sample.light;
    if (sg->stage != RV_STAGE_VOLUME)
        sg->light_sample_count = sample.light_sample_count;
    loop.mis = sample.mis;
    loop.point = sample.point;
    return true;
}

RtRGB RvLightsGetShadowMatte(RtShaderGlobals* sg)
{
    if (!sg || !sg->state)
        return RV_RGB_BLACK;
    RvLightsPrepare(sg);
    return sg->state->lights.shadow_matte;
}
