// sampler: the samplers of shaders. Declared by rv_samplers.h and sampler.h.
//
// A sampler is read-only while workers run; an iterator and the context it counts in belong to
// one thread. A loop within the loop of another sampler takes one sample, so that nested loops do
// not multiply.
#include "sampler.h"

#include "counters.h"
#include "options.h"
#include "rv_msg.h"
#include "sampling.h"
#include "shading_state.h"
#include "system/memory.h"
#include "thread_slot.h"

#include <algorithm>
#include <math.h>

static const char* const module_path = "core\\src\\sampler";

// ---- Samplers ----

static RtSampler* newSampler(const RtSampleTable& table, int count)
{
    void* const memory = RvMalloc_func(sizeof(RtSampler), module_path, __LINE__, "RvSampler");
    if (!memory)
        return nullptr;
    auto* const sampler = static_cast<RtSampler*>(memory);
    *sampler = { .points = table.points,
                 .count = count,
                 .inv_count = 1.0f / float(count),
                 .total = table.count };
    return sampler;
}

RtSampler* RvSampler(int nsamples, int ndim)
{
    constexpr int pattern_seed = 753, shuffle_seed = 321;
    if (ndim != 2) {
        RvMsgWarning("unable to create %d-dimensional sampler", ndim);
        return nullptr;
    }
    if (nsamples <= 0 || !rv::render_options)
        return nullptr;
    const int pattern = rv::render_options->GI_hemi_pattern;
    const int64_t side = int64_t{ nsamples } * rv::pixelSampleSide(rv::render_options->AA_samples);
    RtSampleTable table;
    table.points =
        RvSamplingPattern(pattern_seed, int(std::min<int64_t>(side, INT32_MAX)), pattern);
    if (!table.points)
        return nullptr;
    table.count = int(side * side); // no larger table is ever made
    RvShufflePoints(shuffle_seed, 1, table.count, pattern, table.points);
    RtSampler* const sampler = newSampler(table, nsamples * nsamples);
    if (!sampler)
        RvFree_func(table.points);
    return sampler;
}

void RvSamplerDestroy(RtSampler* sampler)
{
    if (!sampler)
        return;
    RvFree_func(sampler->points);
    RvFree_func(sampler);
}

// ---- Iterators ----

// The shading pool of the context's thread, or null before there are threads.
static RtMemPool* shadingPool(const RtShaderGlobals* sg)
{
    const RtFrame* const frame = rv::the_frame;
    if (!frame || !frame->thread_slots || sg->thread_index >= rv::worker_slot_count)
        return nullptr;
    return frame->thread_slots[sg->thread_index].shading_pool;
}

static void countIterator(const RtShaderGlobals* sg, bool outermost)
{
    if (sg->state && sg->state->uncounted)
        return;
    RtLightingCount& count = rv::threadStats()->lighting[RV_LIGHTING_CUSTOM];
    ++(outermost ? count.primary : count.secondary);
}

// The rotation of the pixel that the thread works on.
static RtPoint2 firstHitRotation(const RtShaderGlobals* sg)
{
    const RtPixelSampling* const pixel = rv::pixelSampling(sg->thread_index);
    if (!pixel || !rv::render_options || !rv::render_options->GI_Cranley_Patterson)
        return { 0, 0 };
    return { rv::toUnitFloat(pixel->rotation_u - floor(pixel->rotation_u)),
             rv::toUnitFloat(pixel->rotation_v - floor(pixel->rotation_v)) };
}

RtPoint2 RvSamplerRotation(const RtShaderGlobals* sg)
{
    const uint32_t depth = sg->ray_depth + sg->transparency_index;
    if (depth == 0)
        return firstHitRotation(sg);
    const uint32_t j = sg->state ? uint32_t(sg->state->loop_index) : 0;
    const rv::PixelHash hash(rv::samplingSeed(), sg->pixel_x, sg->pixel_y);
    return { rv::toUnitFloat(rv::hashToUnit(hash(j, depth, 0))),
             rv::toUnitFloat(rv::hashToUnit(hash(j, depth + 1, 1))) };
}

// Where the block of a camera sample starts. Camera samples that the sampler was not made for
// start over.
static int blockStart(const RtSampler* sampler, uint16_t sample_index)
{
    const int64_t start = int64_t{ sample_index } * sampler->count;
    return int(start < sampler->total ? start : start % std::max(sampler->total, 1));
}

RtSamplerIterator* RvSamplerIterator(const RtSampler* sampler, const RtShaderGlobals* sg)
{
    if (!sampler || !sg)
        return nullptr;
    RtMemPool* const pool = shadingPool(sg);
    void* const memory = pool ? RvMemPoolAlloc(sizeof(RtSamplerIterator), pool) : nullptr;
    if (!memory)
        return nullptr;
    const bool outermost = !rv::isNested(sg);
    const RtPoint2 rotation = RvSamplerRotation(sg);
    auto* const it = static_cast<RtSamplerIterator*>(memory);
    *it = { .sampler = sampler,
            .points = sampler->points,
            .rotation_u = rotation.x,
            .rotation_v = rotation.y,
            .i = 0,
            .x = sg->pixel_x,
            .y = sg->pixel_y,
            .index = blockStart(sampler, sg->sample_index),
            .n = outermost ? sampler->count : 1,
            .outermost = outermost,
            .sg = sg };
    countIterator(sg, outermost);
    return it;
}

// Tells the contexts below that they are within the loop, and at which point of its table.
static void enterLoop(const RtSamplerIterator* it)
{
    RtShadingState* const state = it->sg->state;
    if (!it->outermost || !state)
        return;
    if (it->i == 0)
        state->loop_samples = it->n;
    state->loop_index = it->index;
}

static void leaveLoop(const RtSamplerIterator* it)
{
    RtShadingState* const state = it->sg->state;
    if (it->outermost && state)
        state->loop_samples = state->loop_index = 0;
}

// The sum is formed in single precision, its fraction in double, where it cannot reach 1.
static double rotated(float point, float rotation)
{
    const double sum = point + rotation;
    return sum - floor(sum);
}

bool RvSamplerGetSample(RtSamplerIterator* it, double sample[2])
{
    if (!it || !sample)
        return false;
    if (it->i >= it->n) {
        leaveLoop(it);
        return false;
    }
    enterLoop(it);
    const RtPoint2 point = it->points ? it->points[it->index] : RtPoint2{ 0, 0 };
    sample[0] = rotated(point.x, it->rotation_u);
    sample[1] = rotated(point.y, it->rotation_v);
    ++it->i;
    ++it->index;
    return true;
}

int RvSamplerGetSampleCount(const RtSamplerIterator* it) { return it ? it->n : 0; }

float RvSamplerGetSampleInvCount(const RtSamplerIterator* it)
{
    if (!it)
        return 0;
    return it->n < 2 ? 1 : it->sampler->inv_count;
}
