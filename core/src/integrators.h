// The pattern of all loops that estimate light by tracing rays, for integrators and global
// illumination, and the integrators of the "standard" shader. Public part: rv_integrators.h.
//
// A loop that is not within another one walks the block of its camera sample in a table of points,
// rotated for the shading point, and shows its place in the context's state, so that loops below
// are nested. A nested loop takes one sample, the rotation itself.
#ifndef RV_INTEGRATORS_INTERNAL_H
#define RV_INTEGRATORS_INTERNAL_H

#include "color.h"
#include "counters.h"
#include "finite.h"
#include "maths.h"
#include "rv_integrators.h"
#include "rv_rays.h"
#include "rv_shaderglobals.h"
#include "sampler.h"
#include "sampling.h"
#include "shading_state.h"

#include <algorithm>
#include <math.h>

namespace rv {

inline constexpr double unlimited_distance = 1e12;

// ---- Loops ----

// The number of samples for their square root, as an option gives it.
inline int squaredCount(int side)
{
    constexpr int max_side = 1 << 14; // no table is that large
    side = std::min(side, max_side);
    return side < 2 ? 1 : side * side;
}

class SampleLoop {
public:
    // samples: of a loop that is not nested. One that may not walk takes the rotation, like a
    // nested one.
    SampleLoop(RtShaderGlobals* context, const RtSampleTable RtSampleTables::*table, int samples,
               bool may_walk = true)
        : sg(context), walks(may_walk && !isNested(context)), sample_count(walks ? samples : 1),
          rotation(RvSamplerRotation(context))
    {
        if (!walks || !sample_tables)
            return;
        const RtSampleTable& points = sample_tables->*table;
        block = sampleBlock(points, context->sample_index, samples);
        if (block)
            first_index = int(block - points.points);
    }

    int count() const { return sample_count; }

    // Calls take(u, v) for every sample, both in [0, 1).
    template <class Take> void run(Take take) const
    {
        RtShadingState* const state = walks ? sg->state : nullptr;
        if (state)
            state->loop_samples = sample_count;
        for (int i = 0; i < sample_count; ++i) {
            const RtPoint2 sample = walks ? wrapped(point(i)) : rotation;
            if (state)
                state->loop_index = first_index + i;
            take(sample.x, sample.y);
        }
        if (state)
            state->loop_samples = state->loop_index = 0;
    }

private:
    // Outside of renders there are no tables; Hammersley's points are as well distributed.
    RtPoint2 point(int i) const { return block ? block[i] : hammersley(uint32_t(i), sample_count); }

    static RtPoint2 hammersley(uint32_t i, int n)
    {
        uint32_t reversed = i;
        reversed = (reversed & 0x55555555u) << 1 | (reversed >> 1 & 0x55555555u);
        reversed = (reversed & 0x33333333u) << 2 | (reversed >> 2 & 0x33333333u);
        reversed = (reversed & 0x0F0F0F0Fu) << 4 | (reversed >> 4 & 0x0F0F0F0Fu);
        reversed = (reversed & 0x00FF00FFu) << 8 | (reversed >> 8 & 0x00FF00FFu);
        reversed = reversed << 16 | reversed >> 16;
        return { (float(i) + 0.5f) / float(n), toUnitFloat(hashToUnit(reversed)) };
    }

    RtPoint2 wrapped(const RtPoint2& p) const
    {
        const float u = p.x + rotation.x, v = p.y + rotation.y;
        return { u >= 1 ? u - 1 : u, v >= 1 ? v - 1 : v };
    }

    RtShaderGlobals* sg;
    bool walks;
    int sample_count;
    RtPoint2 rotation;
    const RtPoint2* block = nullptr;
    int first_index = 0;
};

// Passes for caches have counters of their own.
inline void countLighting(const RtShaderGlobals* sg, RtLightingRow row)
{
    if (sg->state && sg->state->pass != RV_PASS_PIXELS)
        return;
    RtLightingCount& count = threadStats()->lighting[row];
    ++(isNested(sg) ? count.secondary : count.primary);
}

// ---- Rays ----

// The ray of a loop, which gives it one direction after the other.
inline RtRay loopRay(int type, double maxdist, const RtShaderGlobals* sg)
{
    RtRay ray = {};
    RvMakeRay(&ray, type, &sg->point, nullptr, maxdist, sg);
    return ray;
}

// A normal that a frame can be built around and whose directions are numbers: tracing a direction
// that is none ends the process.
inline bool isUsableNormal(const RtVector* N) { return N && isfinite(dot(*N, *N)); }

// The sum of the light that trace(ray) finds along the directions of a loop, each weighted by what
// lobe(u, v, &direction) returns. Nothing is traced for other weights than positive ones.
template <class Lobe, class Trace>
RtRGB gather(const SampleLoop& loop, RtRay ray, Lobe lobe, Trace trace)
{
    RtRGB sum = RV_RGB_BLACK;
    loop.run([&](float u, float v) {
        const float weight = lobe(u, v, &ray.dir);
        if (!(weight > 0) || !isFinite(ray.dir))
            return;
        sum = sum + trace(ray) * weight;
    });
    return sum;
}

inline RtRGB traceColor(const RtRay& ray)
{
    RtScrSample sample;
    RvTrace(&ray, &sample);
    return sample.color;
}

// The mean of the light along glossy rays, for an integrator whose tests let it through. Counted.
template <class Lobe> RtRGB gatherGlossy(RtShaderGlobals* sg, int samples, Lobe lobe)
{
    countLighting(sg, RV_LIGHTING_GLOSSY);
    const SampleLoop loop(sg, &RtSampleTables::glossy, squaredCount(samples));
    const RtRay ray = loopRay(RV_RAY_GLOSSY, unlimited_distance, sg);
    return gather(loop, ray, lobe, traceColor) * (1 / float(loop.count()));
}

// ---- The integrators of "standard" ----

// Indirect light over the lobe of a record of brdf_mis.h; black without one.
RtRGB integrateStretchedPhong(const void* data, RtShaderGlobals* sg);
RtRGB integrateWardDuer(const void* data, RtShaderGlobals* sg);
RtRGB integrateCookTorrance(const void* data, RtShaderGlobals* sg);

} // namespace rv

#endif
