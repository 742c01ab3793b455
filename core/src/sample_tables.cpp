// sample_tables: the sample tables of one render. Declared by render_session.h and sampling.h.
#include "options.h"
#include "render_session.h"
#include "sampling.h"
#include "system/memory.h"

#include <algorithm>
#include <new>

static const char* const module_path = "core\\src\\sample_tables";
static const char* const location = "RtRenderSession::initSamplers";

// Seeds of a table whose blocks are shuffled.
struct LoopSeeds {
    int pattern, shuffle;
};

// factor * samples - 2 and the number behind it, whatever the option holds.
static LoopSeeds loopSeeds(int factor, int samples)
{
    const uint32_t product = uint32_t(factor) * uint32_t(samples);
    return { int(product - 2), int(product - 1) };
}

static RtSampleTable makeTable(int seed, int64_t side, int pattern)
{
    const int n = int(std::min<int64_t>(side, INT32_MAX)); // refused long before
    return rv::makePattern(seed, n, pattern, module_path, __LINE__, location);
}

// The blocks of a loop with samples * samples points, one for each camera sample of a pixel.
static RtSampleTable makeLoopTable(int factor, int samples, const RtOptions& options)
{
    const LoopSeeds seeds = loopSeeds(factor, samples);
    const int64_t side = int64_t{ std::max(samples, 1) } * rv::pixelSampleSide(options.AA_samples);
    const RtSampleTable table = makeTable(seeds.pattern, side, options.GI_hemi_pattern);
    RvShufflePoints(seeds.shuffle, 1, table.count, options.GI_hemi_pattern, table.points);
    return table;
}

// Copies of a table, each in an order of its own: copy k is shuffled with seed 2k + parity.
static RtSampleTable makePacketTable(const RtSampleTable& source, uint32_t parity)
{
    constexpr int copies = RtSampleTables::packet_copies;
    if (!source.count)
        return {};
    const size_t count = size_t(source.count) * copies;
    RtPoint2* const points = rv::allocatePoints(count, module_path, __LINE__, location);
    if (!points)
        return {};
    for (int j = 0; j < source.count; ++j)
        std::fill_n(points + size_t(j) * copies, copies, source.points[j]);
    for (int k = 0; k < copies; ++k)
        rv::shuffle({ rv::samplingSeed(), 2 * uint32_t(k) + parity }, source.count,
                    [&](int j, int t) {
                        std::swap(points[size_t(j) * copies + size_t(k)],
                                  points[size_t(t) * copies + size_t(k)]);
                    });
    return { points, int(count) };
}

static void makePixelTables(RtSampleTables* tables, const RtOptions& options)
{
    constexpr int subpixel_seed = 79, spare_seed = 521, lens_seed = 35;
    const int side = rv::pixelSampleSide(options.AA_samples);
    tables->subpixel = makeTable(subpixel_seed, side, options.AA_pattern);
    tables->spare = makeTable(spare_seed, side, options.AA_pattern);
    tables->lens = makeTable(lens_seed, side, options.AA_pattern);
}

static void makeLoopTables(RtSampleTables* tables, const RtOptions& options)
{
    constexpr int sss_seed = 31;
    const int sss_side =
        options.GI_sss_hemi_samples > 0 ? options.GI_sss_hemi_samples : options.GI_diffuse_samples;
    tables->diffuse = makeLoopTable(48, options.GI_diffuse_samples, options);
    tables->sss = makeTable(sss_seed, sss_side, options.GI_hemi_pattern);
    tables->glossy = makeLoopTable(56, options.GI_glossy_samples, options);
    tables->refraction = makeLoopTable(748, options.GI_refraction_samples, options);
}

void RtRenderSession::initSamplers()
{
    releaseSamplers();
    if (!rv::render_options)
        return;
    void* const memory = RvMalloc_func(sizeof(RtSampleTables), module_path, __LINE__, location);
    if (!memory)
        return;
    sample_tables = new (memory) RtSampleTables{};
    makePixelTables(sample_tables, *rv::render_options);
    if (rv::render_options->packet_tracing) {
        sample_tables->packet_subpixel = makePacketTable(sample_tables->subpixel, 0);
        sample_tables->packet_lens = makePacketTable(sample_tables->lens, 1);
    } else {
        makeLoopTables(sample_tables, *rv::render_options);
    }
    rv::sample_tables = sample_tables;
}

void RtRenderSession::releaseSamplers()
{
    rv::releasePixelSampling();
    if (!sample_tables)
        return;
    RtSampleTables& t = *sample_tables;
    for (const RtSampleTable& table : { t.subpixel, t.spare, t.lens, t.diffuse, t.sss, t.glossy,
                                        t.refraction, t.packet_subpixel, t.packet_lens })
        RvFree_func(table.points);
    RvFree_func(sample_tables);
    sample_tables = nullptr;
    rv::sample_tables = nullptr;
}
