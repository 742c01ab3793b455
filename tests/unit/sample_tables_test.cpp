// Tests of sample_tables.cpp: the sample tables that a render owns.
#include "allocation_failures.h"
#include "sampling_tools.h"

#include <algorithm>

using nlohmann::json;

class SampleTables : public Universe {
protected:
    void TearDown() override
    {
        session().releaseSamplers();
        Universe::TearDown();
    }
    static RtRenderSession& session() { return *rv::the_frame->session; }
    static RtOptions& options() { return *rv::render_options; }

    // Builds the tables of the present options.
    static const RtSampleTables& build()
    {
        session().initSamplers();
        EXPECT_EQ(rv::sample_tables, session().sample_tables);
        return *session().sample_tables;
    }
    static std::vector<float> numbersOf(const RtSampleTable& table)
    {
        return ::numbersOf(table.points, table.count);
    }
    // Points of the tables, in the order in which they are built.
    static std::vector<int> countsOf(const RtSampleTables& t)
    {
        return { t.subpixel.count,   t.spare.count,  t.lens.count,       t.diffuse.count,
                 t.sss.count,        t.glossy.count, t.refraction.count, t.packet_subpixel.count,
                 t.packet_lens.count };
    }
};

TEST_F(SampleTables, tables_are_the_golden_ones_to_the_last_bit)
{
    for (const json& v : goldenVectors("sampling", "initSamplers")) {
        applyOptions(v.at("in"));
        const RtSampleTables& t = build();
        expectGoldenBits(v, "subpixel", numbersOf(t.subpixel));
        expectGoldenBits(v, "lens", numbersOf(t.lens));
        expectGoldenBits(v, "diffuse", numbersOf(t.diffuse));
        expectGoldenBits(v, "sss", numbersOf(t.sss));
        expectGoldenBits(v, "glossy", numbersOf(t.glossy));
        expectGoldenBits(v, "refraction", numbersOf(t.refraction));
    }
}

TEST_F(SampleTables, a_spare_table_is_built_that_nobody_reads)
{
    options().AA_samples = 3;
    const Heap<RtPoint2> want(RvSamplingPattern(521, 3, options().AA_pattern));
    EXPECT_EQ(numbersOf(build().spare), ::numbersOf(want.get(), 9));
}

TEST_F(SampleTables, sample_counts_below_1_count_as_1)
{
    options().AA_samples = -3;
    options().GI_diffuse_samples = 0;
    options().GI_sss_hemi_samples = -1;
    options().GI_glossy_samples = -2;
    options().GI_refraction_samples = INT32_MIN;
    EXPECT_EQ(countsOf(build()), (std::vector<int>{ 1, 1, 1, 1, 1, 1, 1, 0, 0 }));
    options().AA_samples = 3;
    EXPECT_EQ(countsOf(build()), (std::vector<int>{ 9, 9, 9, 9, 1, 9, 9, 0, 0 }));
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(SampleTables, packet_tracing_has_shuffled_copies_in_place_of_loops)
{
    options().AA_samples = 2;
    options().packet_tracing = true;
    const RtSampleTables& t = build();
    EXPECT_EQ(countsOf(t), (std::vector<int>{ 4, 4, 4, 0, 0, 0, 0, 4096, 4096 }));
    const struct {
        const RtSampleTable &source, &copies;
        int parity;
    } rows[] = { { t.subpixel, t.packet_subpixel, 0 }, { t.lens, t.packet_lens, 1 } };
    for (const auto& row : rows)
        for (int k = 0; k < RtSampleTables::packet_copies; ++k) {
            std::vector<RtPoint2> want(row.source.points, row.source.points + 4), got;
            RvShufflePoints(2 * k + row.parity, 1, 4, RV_PATTERN_RANDOM, want.data());
            for (int j = 0; j < 4; ++j)
                got.push_back(row.copies.points[j * RtSampleTables::packet_copies + k]);
            EXPECT_EQ(::numbersOf(got.data(), 4), ::numbersOf(want.data(), 4)) << k;
        }
}

TEST_F(SampleTables, a_new_render_replaces_the_tables_and_its_end_frees_them)
{
    build();
    options().AA_samples = 2;
    EXPECT_EQ(build().subpixel.count, 4);
    session().releaseSamplers();
    EXPECT_FALSE(session().sample_tables);
    EXPECT_FALSE(rv::sample_tables);
    session().releaseSamplers();
}

TEST_F(SampleTables, the_end_of_a_render_frees_what_threads_keep_for_their_pixels)
{
    RvSamplingBeginPixel(5, 1, 2, 16);
    EXPECT_TRUE(rv::pixel_sampling[5].time_permutation);
    session().releaseSamplers();
    EXPECT_FALSE(rv::pixel_sampling[5].time_permutation);
    EXPECT_FALSE(rv::pixel_sampling[5].pool);
}

static std::string tableError(uint64_t bytes)
{
    return "can't allocate " + std::to_string(bytes) +
           " bytes in core\\src\\sample_tables:RtRenderSession::initSamplers()";
}

TEST_F(SampleTables, a_table_without_memory_stays_empty_and_is_reported)
{
    options().AA_samples = 2;
    options().GI_hemi_pattern = RV_PATTERN_RANDOM; // needs no scratch
    const std::vector<int> all = { 4, 4, 4, 16, 4, 16, 16, 0, 0 };
    for (long allowed = 0; allowed <= 7; ++allowed) {
        withAllocations(allowed, [] { session().initSamplers(); });
        const std::vector<std::string> problems = takeProblems();
        if (allowed == 0) {
            ASSERT_EQ(problems.size(), 1u);
            EXPECT_EQ(withoutLines(problems[0]), tableError(sizeof(RtSampleTables)));
            EXPECT_FALSE(rv::sample_tables);
            continue;
        }
        const auto built = size_t(allowed - 1);
        ASSERT_EQ(problems.size(), 7 - built);
        std::vector<int> want = all;
        std::fill(want.begin() + long(built), want.end(), 0);
        EXPECT_EQ(countsOf(*rv::sample_tables), want);
        for (size_t i = 0; i < problems.size(); ++i)
            EXPECT_EQ(withoutLines(problems[i]), tableError(uint64_t(all[built + i]) * 8));
    }
}

TEST_F(SampleTables, copies_for_packets_without_memory_stay_empty)
{
    options().packet_tracing = true;
    for (long allowed : { 1, 4, 5 }) {
        withAllocations(allowed, [] { session().initSamplers(); });
        const std::vector<std::string> problems = takeProblems();
        ASSERT_EQ(problems.size(), allowed == 1 ? 3u : allowed == 4 ? 2u : 1u);
        EXPECT_EQ(withoutLines(problems.back()), tableError(allowed == 1 ? 8 : 8192));
        EXPECT_EQ(rv::sample_tables->packet_subpixel.count, allowed == 5 ? 1024 : 0);
        EXPECT_EQ(rv::sample_tables->packet_lens.count, 0);
    }
}

TEST_F(SampleTables, scratch_that_is_refused_leaves_a_table_empty_or_in_order)
{
    // Record, three small tables, diffuse, its scratch for schlick.
    withAllocations(5, [] { session().initSamplers(); });
    EXPECT_EQ(rv::sample_tables->diffuse.count, 0);
    EXPECT_EQ(withoutLines(takeProblems().at(0)),
              "can't allocate 16 bytes in core\\src\\sampling:RvSchlickSamples()");
    // The same with the sequence, without the scratch of the shuffle.
    withAllocations(6, [] { session().initSamplers(); });
    EXPECT_EQ(rv::sample_tables->diffuse.count, 4);
    EXPECT_EQ(withoutLines(takeProblems().at(0)),
              "can't allocate 32 bytes in core\\src\\sampling:RvSpatialInterlaceShufflePoints()");
}

TEST_F(SampleTables, absurd_sample_counts_are_reported_and_leave_tables_empty)
{
    static const struct {
        int camera_side, loop_side;
    } rows[] = { { 10000, 2 }, { 1, 100000 }, { INT32_MAX, INT32_MAX } };
    for (const auto& row : rows) {
        options().AA_samples = row.camera_side;
        options().GI_diffuse_samples = options().GI_glossy_samples = row.loop_side;
        options().GI_refraction_samples = options().GI_sss_hemi_samples = row.loop_side;
        const int pixel = row.camera_side == 1, sss = row.loop_side == 2 ? 4 : 0;
        EXPECT_EQ(countsOf(build()), (std::vector<int>{ pixel, pixel, pixel, 0, sss, 0, 0, 0, 0 }));
        for (const std::string& text : takeProblems())
            EXPECT_EQ(text.find("can't allocate "), 0u) << text;
    }
    options().packet_tracing = true;
    options().AA_samples = 300; // the copies are beyond the limit, the tables are not
    EXPECT_EQ(countsOf(build()), (std::vector<int>{ 90000, 90000, 90000, 0, 0, 0, 0, 0, 0 }));
    EXPECT_EQ(withoutLines(takeProblems().at(0)), tableError(90000ull * 1024 * 8));
}

TEST_F(SampleTables, a_block_never_leaves_its_table)
{
    options().AA_samples = 2;
    options().GI_diffuse_samples = 3;
    const RtSampleTable& t = build().diffuse; // four blocks of nine
    EXPECT_EQ(rv::sampleBlock(t, 0, 9), t.points);
    EXPECT_EQ(rv::sampleBlock(t, 3, 9), t.points + 27);
    EXPECT_EQ(rv::sampleBlock(t, 4, 9), t.points);
    EXPECT_EQ(rv::sampleBlock(t, 65535, 9), t.points + 27);
    EXPECT_EQ(rv::sampleBlock(t, 5, 25), t.points) << "one block of 25 fits";
    EXPECT_EQ(rv::sampleBlock(t, 7, 1), t.points + 7) << "one sample of a nested loop";
    EXPECT_FALSE(rv::sampleBlock(t, 0, 37));
    EXPECT_FALSE(rv::sampleBlock(t, 0, 0));
    EXPECT_FALSE(rv::sampleBlock(t, 0, -9));
    EXPECT_FALSE(rv::sampleBlock({}, 0, 1));
    EXPECT_TRUE(rv::sampleBlock(t, -1, 9));
}
