// rays: making and counting rays.
#include "rays.h"

#include "maths.h"
#include "objects/gobject.h"
#include "options.h"
#include "sampling.h"

#include <bit>
#include <math.h>

namespace rv {

static constexpr double least_mindist = 1e-6;
static constexpr int biased_types = RV_RAY_SHADOW | RV_RAY_DIFFUSE | RV_RAY_GLOSSY;

// An integer that grows with the float; and back.
static uint32_t orderedBits(float x)
{
    const uint32_t bits = std::bit_cast<uint32_t>(x);
    return bits ^ (bits & 0x80000000u ? 0xFFFFFFFFu : 0x80000000u);
}

static float fromOrderedBits(uint32_t ordered)
{
    return std::bit_cast<float>(ordered ^ (ordered & 0x80000000u ? 0x80000000u : 0xFFFFFFFFu));
}

double guardedMindist(const RtPoint& origin, double mindist, int ulps)
{
    const float length = sqrtf(dot(origin, origin));
    const float above = fromOrderedBits(orderedBits(length) + uint32_t(ulps));
    const float step = above - length;
    return double(step) > mindist ? double(step) : mindist;
}

static double baseMindist(int type, const RtShaderGlobals* sg)
{
    const RtGObject* const object = sg && sg->stage == RV_STAGE_SURFACE && (type & biased_types)
                                        ? shapeObject(sg->object)
                                        : nullptr;
    return object ? double(shapeParams(object->node).ray_bias) : least_mindist;
}

static void copyContext(RtRay* ray, const RtShaderGlobals& sg)
{
    ray->sg = &sg;
    ray->aov_sink = sg.sample_output;
    ray->tid = sg.thread_index;
    ray->level = sg.ray_depth;
    ray->diffuse_depth = sg.diffuse_depth;
    ray->glossy_depth = sg.glossy_depth;
    ray->reflection_depth = sg.reflection_depth;
    ray->refraction_depth = sg.refraction_depth;
    ray->x = sg.pixel_x;
    ray->y = sg.pixel_y;
    ray->sx = sg.screen_x;
    ray->sy = sg.screen_y;
    ray->sample_index = sg.sample_index;
    ray->traceset = sg.traceset;
    ray->inclusive_traceset = sg.traceset_inclusive;
    ray->time = sg.time;
    ray->dOdx = sg.dPdx;
    ray->dOdy = sg.dPdy;
    ray->dDdx = sg.dDdx;
    ray->dDdy = sg.dDdy;
    ray->offset_u = ray->offset_v = ray->lens_u = ray->lens_v = 0; // of the camera's own rays
}

// Required: the counters wrap at 256.
static void countBounce(RtRay* ray, int type)
{
    ray->level = uint8_t(ray->level + !(type & RV_RAY_SHADOW));
    ray->reflection_depth = uint8_t(ray->reflection_depth + !!(type & RV_RAY_REFLECTED));
    ray->refraction_depth = uint8_t(ray->refraction_depth + !!(type & RV_RAY_REFRACTED));
    ray->diffuse_depth = uint8_t(ray->diffuse_depth + !!(type & RV_RAY_DIFFUSE));
    ray->glossy_depth = uint8_t(ray->glossy_depth + !!(type & RV_RAY_GLOSSY));
}

// ---- Outputs and random numbers ----

bool writesOutputs(const RtRay& ray)
{
    if (!ray.aov_sink || (ray.type & RV_RAY_CAMERA))
        return ray.aov_sink;
    return render_options && render_options->auto_transparency_mode != RV_TRANSPARENCY_ALWAYS &&
           (ray.type & RV_RAY_REFRACTED) && ray.refraction_depth == ray.level;
}

static float wrapped(double x) { return toUnitFloat(x < 1 ? x : x - 1); }

void randomNumbers(const RtRay& ray, float numbers[2])
{
    static constexpr uint32_t lookup3_key = 0xDEADBEEF; // the initial value of Jenkins' lookup3
    const bool from_camera = ray.type & RV_RAY_CAMERA;
    const HashWords words = from_camera ? HashWords{ uint32_t(ray.x), uint32_t(ray.y), 0 }
                                        : HashWords{ std::bit_cast<uint32_t>(ray.dir.x),
                                                     std::bit_cast<uint32_t>(ray.dir.y),
                                                     std::bit_cast<uint32_t>(ray.dir.z) };
    const float offsets[2] = { ray.offset_u, ray.offset_v };
    for (uint32_t i = 0; i < 2; ++i) {
        const uint32_t key = lookup3_key + i;
        const double number = hashToUnit(mix({ words.a + key, words.b + key, words.c + key }).c);
        // The samples of a pixel are as well spread as their places within it.
        numbers[i] = wrapped(from_camera ? number + double(offsets[i]) : number);
    }
}

// ---- Statistics ----

unsigned rayRows(unsigned type, bool from_volume)
{
    static constexpr unsigned user_types = 0xFF90;
    unsigned rows = 1u << RV_ROW_TOTAL;
    const auto add = [&](unsigned types, RtRayRow row) {
        if (type & types)
            rows |= 1u << row;
    };
    add(RV_RAY_CAMERA, RV_ROW_CAMERA);
    add(RV_RAY_SHADOW, from_volume ? RV_ROW_VOLUME_SHADOW : RV_ROW_SHADOW);
    add(RV_RAY_REFLECTED, RV_ROW_REFLECTION);
    add(RV_RAY_REFRACTED, RV_ROW_REFRACTION);
    add(RV_RAY_DIFFUSE, RV_ROW_DIFFUSE);
    add(RV_RAY_GLOSSY, RV_ROW_GLOSSY);
    add(user_types, RV_ROW_USER);
    return rows;
}

// Calls use(count) for every row of the ray's thread and pass that the ray belongs to.
template <class Use> static void forRows(const RtRay& ray, const Use& use)
{
    const RtPass pass = ray.sg && ray.sg->state ? ray.sg->state->pass : RV_PASS_PIXELS;
    RtRayCount* const counts = the_frame->stats[threadOf(ray)]->rays.rows[pass];
    const bool from_volume = ray.sg && ray.sg->stage == RV_STAGE_VOLUME;
    for (unsigned rows = rayRows(ray.type, from_volume); rows; rows &= rows - 1)
        use(counts[std::countr_zero(rows)]);
}

void countRay(const RtRay& ray)
{
    forRows(ray, [](RtRayCount& count) { ++count.rays; });
}

void countHits(const RtRay& ray, uint32_t hits)
{
    forRows(ray, [hits](RtRayCount& count) {
        count.hits += hits;
        count.max_hits = count.max_hits > hits ? count.max_hits : hits;
    });
}

} // namespace rv

void RvMakeRay(RtRay* ray, int type, const RtPoint* origin, const RtVector* dir, double maxdist,
               const RtShaderGlobals* sg)
{
    if (!ray)
        return;
    if (sg) {
        rv::copyContext(ray, *sg);
    } else {
        const RtPoint kept_origin = ray->origin;
        const RtVector kept_dir = ray->dir;
        *ray = {};
        ray->origin = kept_origin;
        ray->dir = kept_dir;
    }
    ray->type = uint16_t(type);
    ray->light_sample = nullptr;
    if (origin)
        ray->origin = *origin;
    if (dir)
        ray->dir = *dir;
    ray->weight = 1;
    ray->spread_a = ray->spread_b = 1;
    ray->maxdist = maxdist;
    const int ulps = rv::render_options ? rv::render_options->mindist_ulp_count : 1;
    ray->mindist = rv::guardedMindist(ray->origin, rv::baseMindist(type, sg), ulps);
    rv::countBounce(ray, type);
}
