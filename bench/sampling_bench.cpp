// Question: what do random decisions cost? Measures the set-up of a pixel, the position, time and
// lens point of a camera sample, a sampler loop with its iterator, and the building of patterns.
#include "bench.h"

#include "options.h"
#include "render_session.h"
#include "rv_render.h"
#include "rv_samplers.h"
#include "rv_shaderglobals.h"
#include "sampling.h"
#include "shading_state.h"
#include "system/memory.h"

static constexpr int image_width = 512;

// "name.4x4"
static std::string sized(const char* name, int side)
{
    char text[64];
    snprintf(text, sizeof text, "%s.%dx%d", name, side, side);
    return text;
}

static double nsPerCall(int runs, int calls, auto body)
{
    return bench::median(runs, [&] {
        return 1e9 / calls * bench::seconds([&] {
                   for (int i = 0; i < calls; ++i)
                       body(i);
               });
    });
}

static void measurePixels(bench::Report& figures, int runs, int side)
{
    rv::render_options->AA_samples = side;
    rv::the_frame->session->initSamplers();
    const int samples = side * side;
    figures.add(sized("sampling.pixel.begin", side),
                nsPerCall(runs, 100000,
                          [&](int i) {
                              RvSamplingBeginPixel(0, i % image_width, i / image_width, samples);
                          }),
                "ns");
    figures.add(sized("sampling.pixel.sample", side),
                nsPerCall(runs, 1000000,
                          [&](int i) {
                              RtPoint2 offset;
                              float time;
                              RvPixelSampleOffset(7, 9, i % samples, 0, samples, &offset, &time);
                              bench::consume(RvPixelLensSample(7, 9, i % samples, 0, samples));
                              bench::consume(offset);
                              bench::consume(time);
                          }),
                "ns");
}

// One loop with its iterator at the first hit (depth 0) or behind it.
static double measureLoop(int runs, const RtSampler* sampler, uint8_t depth)
{
    RtShadingState state = {};
    RtShaderGlobals sg = {};
    sg.state = &state;
    sg.ray_depth = depth;
    return nsPerCall(runs, 200000, [&](int i) {
        RvMemPoolReset(rv::the_frame->thread_slots[0].shading_pool);
        sg.pixel_x = i % image_width;
        sg.sample_index = uint16_t(i % 4);
        RtSamplerIterator* const it = RvSamplerIterator(sampler, &sg);
        double sample[2];
        while (RvSamplerGetSample(it, sample))
            bench::consume(sample);
    });
}

static void measureLoops(bench::Report& figures, int runs)
{
    rv::render_options->AA_samples = 2;
    rv::createThreadSlots(rv::the_frame->session, 1);
    for (int side : { 1, 4 }) {
        RtSampler* const sampler = RvSampler(side, 2);
        figures.add(sized("sampling.loop.first_hit", side), measureLoop(runs, sampler, 0), "ns");
        figures.add(sized("sampling.loop.deeper", side), measureLoop(runs, sampler, 1), "ns");
        RvSamplerDestroy(sampler);
    }
}

static void measurePatterns(bench::Report& figures, int runs)
{
    for (int pattern : { RV_PATTERN_MULTI_JITTERED, RV_PATTERN_SCHLICK, RV_PATTERN_POISSON_BC }) {
        const int side = 48;
        const double ns = nsPerCall(runs, 10, [&](int seed) {
            RtPoint2* const points = RvSamplingPattern(seed, side, pattern);
            RvShufflePoints(seed, side, side, pattern, points);
            RvFree_func(points);
        });
        figures.add(std::string("sampling.pattern.48x48.") + rv::sampling_pattern_names[pattern],
                    ns / (side * side), "ns/point");
    }
}

int main(int argc, char** argv)
{
    const bench::Options options = bench::parseOptions(argc, argv);
    bench::Report figures(options);
    RvBegin();
    for (int side : { 1, 4, 8 })
        measurePixels(figures, options.runs, side);
    measureLoops(figures, options.runs);
    measurePatterns(figures, options.runs);
    rv::the_frame->session->releaseSamplers();
    RvEnd();
    return 0;
}
