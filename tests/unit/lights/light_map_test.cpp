// Tests of core/src/lights/light_map.cpp: when the importance tables of lights are made, and the
// shaders behind them.
#include "frame_fixture.h"
#include "light_map_tools.h"
#include "message_passing.h"
#include "rv_messages.h"
#include "sampler.h"
#include "sampling.h"
#include "shape_fixture.h"

using namespace light_map_tools;

namespace {

RtRGB roughColor(RtShaderGlobals* sg)
{
    return { 1 + sinf(9 * sg->u), expf(sg->v), std::fabs(sinf(20 * sg->u * sg->v)) };
}

} // namespace

class LightMaps : public MappedLights {
protected:
    // Whatever the light is: a point that it lights.
    std::vector<Sample> lit() { return samples({ 0, 0, -1 }); }
    RtNode* make(const std::string& type, int resolution = 8)
    {
        return type == "skydome" ? skydome(resolution) : quadLight(resolution);
    }
    // Evaluations for the table, without that of the one sample.
    int built()
    {
        lit();
        return takeEvaluations() / 2 * 2; // one sample makes the number odd
    }
    static int64_t sumOf(int64_t RtStats::*bytes)
    {
        int64_t sum = 0;
        for (const RtStats* record : rv::the_frame->stats)
            sum += record->*bytes;
        return sum;
    }
};

// ---- Validity ----

TEST_F(LightMaps, tables_are_made_once)
{
    for (const char* type : { "skydome", "quad" }) {
        make(type);
        colorBy(roughColor);
        prepare();
        EXPECT_EQ(takeEvaluations(), 0) << "nobody needs them yet";
        EXPECT_EQ(built(), 64);
        EXPECT_EQ(built(), 0);
        prepare();
        EXPECT_EQ(built(), 0) << "nor does a render change them";
        startAnew();
    }
}

TEST_F(LightMaps, changes_that_they_depend_on_make_them_anew)
{
    for (const char* type : { "skydome", "quad" }) {
        make(type);
        colorBy(roughColor);
        prepare();
        EXPECT_EQ(built(), 64);
        RvNodeSetInt(node, "resolution", 6);
        prepare();
        EXPECT_EQ(built(), 36) << type;
        colorBy(node, roughColor, "another");
        prepare();
        EXPECT_EQ(built(), 36) << type;
        if (node->entry == RvNodeEntryLookUp("skydome_light")) {
            RvNodeSetStr(node, "format", "latlong");
            prepare();
            EXPECT_EQ(built(), 36);
        }
        RvNodeSetFlt(node, "intensity", 2);
        RvNodeSetInt(node, "samples", 1);
        prepare();
        EXPECT_EQ(built(), 0) << type;
        startAnew();
    }
}

TEST_F(LightMaps, a_quad_that_was_moved_makes_its_table_anew)
{
    make("quad");
    colorBy(roughColor);
    prepare();
    EXPECT_EQ(built(), 64);
    RvNodeSetArray(node, "vertices",
                   RvArray(4, 1, RV_TYPE_POINT, RtPoint{ -1, -1, 0 }, RtPoint{ -1, 1, 0 },
                           RtPoint{ 2, 1, 0 }, RtPoint{ 2, -1, 0 }));
    prepare();
    EXPECT_EQ(built(), 64);
    setMatrices(node, { scaling(2, 2, 2) });
    prepare();
    EXPECT_EQ(built(), 64);
    prepare();
    EXPECT_EQ(built(), 0);
}

TEST_F(LightMaps, colours_without_a_link_are_taken_as_they_are)
{
    // Required: without "light_gamma", which changes the colours of other lights.
    for (const char* type : { "skydome", "quad" }) {
        set("light_gamma", 2.0f);
        make(type);
        RvNodeSetRGB(node, "color", 0.5f, 1, 0.25f);
        prepare();
        EXPECT_EQ(text(dataOf(node).color), "0.25 1 0.0625");
        RtShaderGlobals sg = ready({ 0, 0, -1 });
        ASSERT_TRUE(ask(sg, { 0, 0, 1 }));
        EXPECT_EQ(text(sg.light_unoccluded * (1 / sg.light_unoccluded.g)), "0.5 1 0.25") << type;
        startAnew();
    }
}

TEST_F(LightMaps, links_of_components_count_as_links)
{
    skydome(8);
    prepare();
    lit();
    RtNode* const half = shader_tools::floatShader("half", 0.5f);
    RvNodeLink(half, "color.g", node);
    prepare();
    RtShaderGlobals sg = ready();
    ASSERT_TRUE(draw(sg, 0.5f, 0.5f));
    EXPECT_EQ(text(sg.light_unoccluded), "1 0.5 1");
}

TEST_F(LightMaps, flushing_makes_the_tables_of_one_type_anew)
{
    for (const auto& [type, bit, other] :
         { std::tuple{ "skydome", 0x8, 0x10 }, { "quad", 0x10, 0x8 } }) {
        make(type);
        colorBy(roughColor);
        prepare();
        EXPECT_EQ(built(), 64);
        RvUniverseCacheFlush(~bit);
        EXPECT_EQ(built(), 0) << type;
        RvUniverseCacheFlush(bit);
        EXPECT_EQ(built(), 64) << type;
        RvUniverseCacheFlush(bit | other);
        EXPECT_EQ(built(), 64) << type;
        startAnew();
    }
}

TEST_F(LightMaps, flushing_while_a_render_uses_the_tables_waits_for_the_next)
{
    make("skydome");
    colorBy(roughColor);
    prepare();
    EXPECT_EQ(built(), 64);
    const RtImportanceTable* const table = mapOf(node).table;
    hooks->hooks.rendering = [] { return true; };
    RvUniverseCacheFlush(0x8);
    EXPECT_EQ(built(), 0);
    EXPECT_EQ(mapOf(node).table, table);
    hooks->hooks.rendering = RvRendering;
    prepare();
    EXPECT_EQ(built(), 64);
}

TEST_F(LightMaps, a_flush_while_a_table_is_made_holds_for_it)
{
    for (const auto& [type, bit] : { std::pair{ "skydome", 0x8 }, { "quad", 0x10 } })
        for (const bool is_flushed : { true, false }) {
            make(type);
            int left = is_flushed ? 1 : 0;
            colorBy([&](RtShaderGlobals* sg) {
                if (evaluations == 30 && left-- > 0)
                    RvUniverseCacheFlush(bit);
                return roughColor(sg);
            });
            prepare();
            EXPECT_EQ(lit().size(), 1u) << type << ": by the table that was begun";
            takeEvaluations();
            EXPECT_EQ(built(), is_flushed ? 64 : 0) << type;
            EXPECT_EQ(built(), 0) << type;
            startAnew();
        }
}

TEST_F(LightMaps, a_point_that_was_lit_before_a_flush_keeps_its_table)
{
    for (const char* type : { "skydome", "quad" }) {
        set("abort_on_error", false);
        make(type);
        bool is_changed = false;
        colorBy([&](RtShaderGlobals* sg) {
            return rv::grey(is_changed ? expf(5 * sg->u) : 2 - sg->v);
        });
        prepare();
        RtShaderGlobals sg = ready({ 0, 0, -1 });
        ASSERT_TRUE(ask(sg, { 0, 0, 1 }));
        const float pdf = sg.state->lights.mis.pdf;
        is_changed = true;
        RvUniverseCacheFlush(0x18);
        RtShaderGlobals later = ready({ 0, 0, -1 });
        ASSERT_TRUE(ask(sg, { 0, 0, 1 }) && ask(later, { 0, 0, 1 }));
        EXPECT_EQ(sg.state->lights.mis.pdf, pdf) << type;
        EXPECT_NE(later.state->lights.mis.pdf, pdf) << type;
        // Nor does a table for which there is no memory leave earlier points without one.
        RvUniverseCacheFlush(0x18);
        withAllocations(0, [&] { EXPECT_TRUE(lit().empty()); });
        ASSERT_TRUE(ask(sg, { 0, 0, 1 }) && draw(sg, 0.5f, 0.5f));
        startAnew();
    }
}

TEST_F(LightMaps, concurrent_flushes_do_no_harm_to_threads_that_trace_between_renders)
{
    RtNode* const sky = skydome(16, "sky");
    RtNode* const quad = quadLight(16, "quad");
    colorBy(sky, roughColor, "one");
    colorBy(quad, roughColor, "two");
    prepare();
    std::vector<RtShaderGlobals> contexts;
    for (int i = 0; i < 4 * 50; ++i)
        contexts.push_back(surface({ 0, 0, -1 }));
    onThreads(4, [&](int t) {
        rv::stats_slot = t;
        for (size_t i = 0; i < 50; ++i) {
            RtShaderGlobals& sg = contexts[size_t(t) * 50 + i];
            sg.thread_index = uint8_t(t);
            if (t == 0)
                RvUniverseCacheFlush(0x18);
            EXPECT_EQ(samplesAt(sg).size(), 2u);
            endSample(t);
        }
    });
    prepare();
    EXPECT_LE(sumOf(&RtStats::skydome_map_bytes), 16 * 4 * 17) << "older ones go with an update";
    EXPECT_LE(sumOf(&RtStats::quad_map_bytes), 16 * 4 * 17);
}

TEST_F(LightMaps, flushing_touches_no_other_light)
{
    pointLight({ 0, 0, 5 });
    make("quad"); // without a link
    prepare();
    lit();
    RvUniverseCacheFlush(0x18);
    EXPECT_EQ(lit().size(), 2u);
}

TEST_F(LightMaps, a_light_that_was_dark_may_shine_after_it_changed)
{
    for (const char* type : { "skydome", "quad" }) {
        make(type);
        float brightness = 0;
        colorBy([&](RtShaderGlobals*) { return rv::grey(brightness); });
        prepare();
        EXPECT_TRUE(lit().empty());
        brightness = 1;
        prepare();
        EXPECT_TRUE(lit().empty()) << "stays until tables are made anew";
        RvUniverseCacheFlush(0x18);
        EXPECT_EQ(lit().size(), 1u);
        startAnew();
    }
}

TEST_F(LightMaps, loops_that_are_walked_again_do_not_ask_for_tables)
{
    for (const char* type : { "skydome", "quad" }) {
        make(type);
        colorBy(roughColor);
        prepare();
        RtShaderGlobals sg = ready({ 0, 0, -1 });
        takeEvaluations();
        RvUniverseCacheFlush(0x18);
        RvLightsPrepare(&sg);
        EXPECT_EQ(takeEvaluations(), 0) << type;
        ASSERT_TRUE(RvLightsGetSample(&sg));
        EXPECT_TRUE(ask(sg, { 0, 0, 1 })) << type;
        startAnew();
    }
}

// ---- Memory ----

TEST_F(LightMaps, memory_is_counted_and_given_back)
{
    for (const auto& [type, bytes] : { std::pair{ "skydome", &RtStats::skydome_map_bytes },
                                       { "quad", &RtStats::quad_map_bytes } }) {
        make(type, 20);
        colorBy(roughColor);
        prepare();
        EXPECT_EQ(sumOf(bytes), 0);
        lit();
        EXPECT_EQ(sumOf(bytes), 20 * 4 * 21) << type;
        RvUniverseCacheFlush(0x18);
        lit();
        EXPECT_EQ(sumOf(bytes), 2 * 20 * 4 * 21) << type << ": the first may be in use";
        RvNodeSetInt(node, "resolution", 10);
        prepare();
        EXPECT_EQ(sumOf(bytes), 0) << type;
        lit();
        EXPECT_EQ(sumOf(bytes), 10 * 4 * 11) << type;
        RvNodeDestroy(node);
        EXPECT_EQ(sumOf(bytes), 0) << type;
        startAnew();
    }
}

TEST_F(LightMaps, lights_without_memory_for_their_data_do_not_shine)
{
    for (const char* type : { "skydome", "quad" })
        for (long allowed = 0; allowed < 20; ++allowed) {
            set("abort_on_error", false);
            make(type, 4);
            colorBy(roughColor);
            withAllocations(allowed, [&] { updateLight(node); });
            prepare();
            withAllocations(allowed, [&] { lit(); });
            lit();
            takeTexts();
            startAnew();
        }
}

TEST_F(LightMaps, a_failed_allocation_of_the_record_is_reported)
{
    for (const auto& [type, module] : { std::pair{ "skydome", "skydome" }, { "quad", "quad" } }) {
        make(type);
        takeTexts();
        withAllocations(0, [&] { rv::RvNodeInitialize(node); });
        const Names texts = takeTexts();
        ASSERT_FALSE(texts.empty()) << type;
        EXPECT_EQ(texts[0].find("E can't allocate "), 0u);
        EXPECT_TRUE(
            texts[0].ends_with(std::string("core\\src\\lights\\") + module + ":Initialize()"))
            << texts[0];
        startAnew();
    }
}

TEST_F(LightMaps, what_shaders_take_from_the_pool_is_given_back_row_by_row)
{
    skydome(64);
    std::set<void*> places;
    colorBy([&](RtShaderGlobals* sg) {
        void* const place = RvShaderGlobalsQuickAlloc(sg, 10000);
        places.insert(place);
        memset(place, 1, 10000);
        return RV_RGB_WHITE;
    });
    prepare();
    lit();
    EXPECT_LE(places.size(), 64u * 3);
    EXPECT_LE(rv::the_frame->thread_slots[0].shading_pool->bytes_total, 10000u * 64 * 3);
}

TEST_F(LightMaps, a_table_without_memory_is_tried_again_after_the_next_update)
{
    for (const char* type : { "skydome", "quad" }) {
        set("abort_on_error", false);
        make(type);
        colorBy(roughColor);
        prepare();
        withAllocations(0, [&] { EXPECT_TRUE(lit().empty()); });
        EXPECT_TRUE(lit().empty()) << "not at every point";
        prepare();
        EXPECT_EQ(built(), 64) << type;
        EXPECT_EQ(lit().size(), 1u) << type;
        takeTexts();
        startAnew();
    }
}

TEST_F(LightMaps, tables_do_not_depend_on_the_pixel_that_needs_them_first)
{
    for (const char* type : { "skydome", "quad" }) {
        std::vector<float> cells[2];
        for (const bool later : { false, true }) {
            make(type);
            colorBy([&](RtShaderGlobals* sg) { // as shaders that gather light
                const RtPoint2 rotation = RvSamplerRotation(sg);
                return RtRGB{ rotation.x * sg->u, rotation.y * sg->v, 0.5f };
            });
            prepare();
            RtPixelSampling& pixel = rv::pixel_sampling[0];
            pixel.rotation_u = later ? 0.25 : 0.75;
            pixel.rotation_v = later ? 0.5 : 0.125;
            EXPECT_EQ(lit().size(), 1u) << type;
            EXPECT_EQ(pixel.rotation_u, later ? 0.25 : 0.75) << "given back";
            EXPECT_EQ(pixel.rotation_v, later ? 0.5 : 0.125);
            const RtImportanceTable& table = *mapOf(node).table;
            cells[later].assign(table.cells, table.cells + table.n * table.n);
            for (const float row : std::vector<float>(table.rows, table.rows + table.n))
                cells[later].push_back(row);
            startAnew();
        }
        EXPECT_EQ(cells[0], cells[1]) << type;
    }
}

// ---- Messages ----

// Required: the warning tells nothing there, as a light of one colour needs no table.
TEST_F(LightMaps, lights_of_one_colour_are_reported_as_too_homogenous_and_shine)
{
    for (const auto& [type, warning] :
         { std::pair{ "skydome", "W [skydome_light] Skydome light source over too homogenous "
                                 "background, variance = 0.000000" },
           { "quad", "W [quad_light] quad quad light importance sampling over too homogenous "
                     "shader, variance = 0.000000" } }) {
        make(type);
        RvNodeSetRGB(node, "color", 0.5f, 0.5f, 0.5f);
        if (!strcmp(type, "quad")) // others of one colour have no table
            colorBy([](RtShaderGlobals*) { return rv::grey(0.5f); });
        prepare();
        takeTexts();
        EXPECT_EQ(lit().size(), 1u) << type;
        const Names texts = takeTexts();
        EXPECT_EQ(std::count(texts.begin(), texts.end(), warning), 1) << type;
        startAnew();
    }
}

// ---- Structures ----

// The shader of a light may hit the object whose structure another thread builds, along with
// shaders of the object that need the light.
TEST_F(LightMaps, concurrent_builds_of_structures_and_tables_never_wait_for_each_other)
{
    static std::atomic<int> in_structure, in_table;
    const auto meet = [](std::atomic<int>& mine, const std::atomic<int>& other) {
        mine = 1;
        for (int ms = 0; other == 0 && ms < 5000; ++ms)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    };
    RvNodeInstall(RV_NODE_SHAPE, RV_TYPE_NONE, "block", nullptr, &shape_fixture::blockMethods(),
                  RV_VERSION);
    for (const char* type : { "skydome", "quad" }) {
        in_structure = in_table = 0;
        make(type);
        pointLight({ 0, 0, 5 }, 0, "lamp");
        RtNode* const block = node_tools::named("block", "block");
        RvNodeSetInt(block, "visibility", 0); // or it would be in the way
        prepare();
        rv::RvNodeInitialize(block);
        colorBy([&](RtShaderGlobals* sg) {
            if (!mapOf(node).tables_built) {
                meet(in_table, in_structure);
                RvGObjectBuildAccel(block, sg->thread_index);
            }
            return roughColor(sg);
        });
        prepare();
        RtShaderGlobals contexts[2] = { surface({ 0, 0, -1 }), surface({ 0, 0, -1 }) };
        Names seen;
        shape_fixture::while_building = [&](RtGObject*) {
            meet(in_structure, in_table);
            seen = namesOf(samplesAt(contexts[1]));
        };
        onThreads(2, [&](int t) {
            rv::stats_slot = t;
            contexts[t].thread_index = uint8_t(t);
            if (t == 1)
                RvGObjectBuildAccel(block, t);
            else
                EXPECT_EQ(samplesAt(contexts[0]).size(), 2u);
            endSample(t);
        });
        shape_fixture::while_building = {};
        EXPECT_EQ(seen, Names{ "lamp" }) << type;
        EXPECT_EQ(lit().size(), 2u) << type;
        startAnew();
        RvNodeInstall(RV_NODE_SHAPE, RV_TYPE_NONE, "block", nullptr, &shape_fixture::blockMethods(),
                      RV_VERSION);
    }
}

// ---- Requests to stop ----

TEST_F(LightMaps, concurrent_threads_give_a_table_up_when_the_render_is_to_stop)
{
    for (const char* type : { "skydome", "quad" })
        for (int threads : { 1, 4 }) {
            make(type, 64);
            std::atomic<int> stop = 0;
            colorBy([&](RtShaderGlobals* sg) {
                if (evaluations >= 100)
                    stop = 1;
                return roughColor(sg);
            });
            prepare();
            rv::startLightMaps(&stop);
            std::vector<RtShaderGlobals> contexts;
            for (int t = 0; t < threads; ++t) {
                contexts.push_back(surface({ 0, 0, -1 }));
                contexts.back().thread_index = uint8_t(t);
            }
            onThreads(threads, [&](int t) {
                rv::stats_slot = t;
                EXPECT_TRUE(samplesAt(contexts[size_t(t)]).empty()) << type;
            });
            EXPECT_LE(takeEvaluations(), 64 * (1 + threads)) << "no more than the rows begun";
            EXPECT_FALSE(mapOf(node).tables_built);
            EXPECT_EQ(mapOf(node).tables, nullptr);
            EXPECT_TRUE(lit().empty());
            EXPECT_EQ(takeEvaluations(), 0) << "nor is it begun anew";
            rv::endLightMaps();
            EXPECT_EQ(built(), 64 * 64) << type;
            startAnew();
        }
}

// ---- What shaders leave behind ----

TEST_F(LightMaps, concurrent_tables_know_no_messages_and_leave_none)
{
    for (const char* type : { "skydome", "quad" })
        for (const int threads : { 1, 8 }) {
            make(type, 32);
            colorBy([this](RtShaderGlobals* sg) {
                if (mapOf(node).tables_built)
                    return RV_RGB_WHITE;
                int value = 0; // one of the same row, at most
                const bool is_known = RvMessageGetIntFunc(sg, "outside", &value);
                EXPECT_EQ(value, is_known ? 6 : 0);
                EXPECT_TRUE(RvMessageSetIntFunc(sg, "inside", 5));
                EXPECT_TRUE(RvMessageGetIntFunc(sg, "inside", &value));
                EXPECT_EQ(value, 5);
                EXPECT_NE(RvShaderGlobalsQuickAlloc(sg, 1000), nullptr);
                EXPECT_TRUE(RvMessageSetIntFunc(sg, "outside", 6));
                return roughColor(sg);
            });
            prepare();
            std::vector<RtShaderGlobals> contexts;
            for (int t = 0; t < threads; ++t) {
                contexts.push_back(surface({ 0, 0, -1 }));
                contexts.back().thread_index = uint8_t(t);
            }
            onThreads(threads, [&](int t) {
                rv::stats_slot = t;
                RtShaderGlobals& sg = contexts[size_t(t)];
                RvMessageSetIntFunc(&sg, "outside", 100 + t);
                EXPECT_EQ(samplesAt(sg).size(), 1u);
                memset(RvShaderGlobalsQuickAlloc(&sg, 100000), 'x', 100000);
                int value = 0;
                EXPECT_TRUE(RvMessageGetIntFunc(&sg, "outside", &value));
                EXPECT_EQ(value, 100 + t);
                const RtMessageBank& bank = *rv::the_frame->thread_slots[t].messages;
                EXPECT_EQ(bank.count, 1u);
                EXPECT_STREQ(bank.slots[0].name, "outside");
                rv::messageBankClear(rv::the_frame->thread_slots[t].messages);
                endSample(t);
            });
            startAnew();
        }
}

// Required: messages belong to the thread, so that the shader behind a sample may hear what the one
// that asks for light has to say, and answer. Only tables must not depend on who needs them first.
TEST_F(LightMaps, shaders_behind_samples_share_the_messages_of_their_thread)
{
    for (const char* type : { "skydome", "quad" }) {
        make(type);
        int heard = 0;
        colorBy([&](RtShaderGlobals* sg) {
            if (mapOf(node).tables_built) {
                RvMessageGetIntFunc(sg, "question", &heard);
                RvMessageSetIntFunc(sg, "answer", 7);
            }
            return roughColor(sg);
        });
        prepare();
        RtShaderGlobals sg = surface({ 0, 0, -1 });
        EXPECT_TRUE(RvMessageSetIntFunc(&sg, "question", 6));
        EXPECT_EQ(samplesAt(sg).size(), 1u);
        EXPECT_EQ(heard, 6) << type;
        int answer = 0;
        EXPECT_TRUE(RvMessageGetIntFunc(&sg, "answer", &answer));
        EXPECT_EQ(answer, 7) << type;
        endSample(0);
        startAnew();
    }
}

// ---- Shaders that look at light themselves ----

TEST_F(LightMaps, the_colour_of_a_light_may_not_depend_on_such_lights)
{
    // Each sky would need the other's colour, which would need the first.
    RtNode* const sky = skydome(6, "sky");
    RtNode* const quad = quadLight(6, "quad");
    pointLight({ 0, 0, 5 }, 0, "lamp");
    skydome(6, "plain sky");
    quadLight(6, "plain quad");
    std::set<std::string> seen;
    const auto lookAround = [&](RtShaderGlobals* sg) {
        RtShadingState state = {};
        RtShaderGlobals inner = *sg;
        inner.state = &state;
        inner.point = { 0, 0, -1 };
        inner.normal = inner.facing_normal = { 0, 0, 1 };
        inner.lights = RvUniverseGetLights();
        inner.light_count = RvUniverseGetNumLights();
        for (const Sample& s : samplesAt(inner))
            seen.insert(RvNodeGetName(s.light));
        return RV_RGB_WHITE;
    };
    colorBy(sky, lookAround, "one");
    colorBy(quad, lookAround, "two");
    prepare();
    EXPECT_EQ(namesOf(lit()), (Names{ "sky", "quad", "lamp", "plain sky", "plain quad" }));
    EXPECT_EQ(seen, (std::set<std::string>{ "lamp", "plain sky", "plain quad" }));
}

TEST_F(LightMaps, the_shader_of_a_surface_may_colour_the_light_above_it)
{
    quadLight(4);
    RtNode* const both =
        shader_tools::shader("both", RV_TYPE_RGB, [](RtNode*, RtShaderGlobals* sg) {
            sg->out.RGB = { sg->u, 0.5f, 1 };
            if (!sg->lights)
                return;
            RvLightsPrepare(sg);
            sg->out.RGB = RvLightsGetSample(sg) ? sg->light_radiance : RV_RGB_BLACK;
        });
    RvNodeLink(both, "color", node);
    prepare();
    takeTexts();
    RtShaderGlobals sg = surface({ 0, 0, -1 });
    RvShaderEvaluate(both, &sg);
    EXPECT_GT(sg.out.RGB.g, 0.1f);
    EXPECT_FLOAT_EQ(sg.out.RGB.b, 2 * sg.out.RGB.g);
    for (const std::string& text : takeTexts())
        EXPECT_EQ(text.find("W both"), std::string::npos) << text;
}

TEST_F(LightMaps, the_samples_of_a_point_share_a_context)
{
    for (const char* type : { "skydome", "quad" }) {
        make(type, 4);
        RvNodeSetInt(node, "samples", 4);
        std::set<const RtShaderGlobals*> contexts;
        colorBy([&](RtShaderGlobals* sg) {
            if (mapOf(node).tables_built)
                contexts.insert(sg);
            return RV_RGB_WHITE;
        });
        prepare();
        RtShaderGlobals sg = surface({ 0, 0, -1 });
        sg.front_hemisphere_only = 0;
        EXPECT_EQ(samplesAt(sg).size(), 16u);
        EXPECT_EQ(contexts.size(), 1u) << type;
        RtShaderGlobals next = surface({ 0, 0, -2 });
        EXPECT_GE(samplesAt(next).size(), 1u);
        EXPECT_EQ(contexts.size(), 2u) << type << ": of its own time and thread";
        startAnew();
    }
}

TEST_F(LightMaps, contexts_of_colours_belong_to_the_thread_and_nobody_else)
{
    quadLight(2);
    colorBy([](RtShaderGlobals* sg) {
        EXPECT_EQ(sg->thread_index, 5);
        EXPECT_EQ(sg->lights, nullptr);
        EXPECT_EQ(sg->object, nullptr);
        EXPECT_NE(sg->state, nullptr);
        sg->out_opacity = RV_RGB_BLACK;
        sg->u = -1;
        return RV_RGB_WHITE;
    });
    prepare();
    RtShaderGlobals sg = surface({ 0, 0, -1 });
    sg.thread_index = 5;
    sg.out.RGB = { 1, 2, 3 };
    EXPECT_EQ(samplesAt(sg).size(), 1u);
    EXPECT_EQ(text(sg.out.RGB), "1 2 3");
    EXPECT_EQ(sg.u, 0);
    endSample(5);
}

TEST_F(LightMaps, a_light_among_its_own_filters_is_ignored)
{
    for (const char* type : { "skydome", "quad" }) {
        make(type);
        setFilters(node, { node });
        prepare();
        EXPECT_EQ(lit().size(), 1u) << type;
        startAnew();
    }
}

TEST_F(LightMaps, filters_change_what_arrives)
{
    for (const char* type : { "skydome", "quad" }) {
        make(type);
        setFilters(node,
                   { shader_tools::shader("filter", RV_TYPE_RGB, [](RtNode*, RtShaderGlobals* sg) {
                       sg->light_unoccluded = { 1, 2, 3 };
                       sg->light_shadow = rv::grey(0.5f);
                   }) });
        prepare();
        const std::vector<Sample> all = lit();
        ASSERT_EQ(all.size(), 1u);
        EXPECT_EQ(text(all[0].radiance), "0.5 1 1.5") << type;
        RtShaderGlobals sg = ready({ 0, 0, -1 });
        ASSERT_TRUE(ask(sg, { 0, 0, 1 }));
        EXPECT_EQ(text(sg.light_radiance), "0.5 1 1.5") << type;
        startAnew();
    }
}

// ---- Many threads ----

TEST_F(LightMaps, concurrent_threads_that_need_tables_at_once_share_them)
{
    constexpr int threads = 8;
    std::vector<Sample> alone;
    for (int round = 0; round < 6; ++round) {
        RtNode* const sky = skydome(48, "sky");
        RtNode* const quad = quadLight(48, "quad");
        RvNodeSetInt(sky, "samples", 3);
        RvNodeSetInt(quad, "samples", 3);
        colorBy(sky, roughColor, "one");
        colorBy(quad, roughColor, "two");
        prepare();
        std::vector<RtShaderGlobals> contexts;
        for (int t = 0; t < threads; ++t) {
            contexts.push_back(surface({ 0, 0, -1 }));
            contexts.back().thread_index = uint8_t(t);
        }
        std::vector<std::vector<Sample>> got(threads);
        const int active = round < 2 ? 1 + round : threads; // alone, two, all
        onThreads(active, [&](int t) {
            rv::stats_slot = t;
            got[size_t(t)] = samplesAt(contexts[size_t(t)]);
        });
        // The cells of both tables, and every sample that is above the horizon.
        EXPECT_LE(takeEvaluations(), 2 * 48 * 48 + active * 18);
        if (alone.empty())
            alone = got[0];
        for (int t = 0; t < active; ++t) {
            ASSERT_EQ(got[size_t(t)].size(), alone.size());
            for (size_t i = 0; i < alone.size(); ++i) {
                EXPECT_EQ(text(got[size_t(t)][i].radiance), text(alone[i].radiance));
                EXPECT_EQ(text(got[size_t(t)][i].dir), text(alone[i].dir));
                EXPECT_EQ(got[size_t(t)][i].weight, alone[i].weight);
            }
            endSample(t);
        }
        EXPECT_EQ(sumOf(&RtStats::skydome_map_bytes), 48 * 4 * 49);
        EXPECT_EQ(sumOf(&RtStats::quad_map_bytes), 48 * 4 * 49);
        startAnew();
    }
}

TEST_F(LightMaps, concurrent_threads_help_even_if_they_come_while_the_first_is_at_the_log)
{
    static constexpr int threads = 4;
    static std::atomic<int> present, arrived;
    const auto wait = [](std::atomic<int>& count, int wanted) {
        for (int ms = 0; count < wanted && ms < 5000; ++ms)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    };
    for (const char* type : { "skydome", "quad" }) {
        present = arrived = 0;
        make(type, 16);
        bool has_begun[threads] = {};
        colorBy([&](RtShaderGlobals* sg) {
            if (!mapOf(node).tables_built && !std::exchange(has_begun[sg->thread_index], true)) {
                ++arrived;
                wait(arrived, threads); // no row ends before every thread has begun one
            }
            return roughColor(sg);
        });
        prepare();
        std::vector<RtShaderGlobals> contexts;
        for (int t = 0; t < threads; ++t) {
            contexts.push_back(surface({ 0, 0, -1 }));
            contexts.back().thread_index = uint8_t(t);
        }
        RvMsgSetCallback([](int, int, const char* message, int) {
            if (!strstr(message, "initializing sampling tables"))
                return;
            ++present; // those that come from now on find the first one here
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        });
        onThreads(threads, [&](int t) {
            rv::stats_slot = t;
            if (t > 0)
                wait(present, 1);
            EXPECT_EQ(samplesAt(contexts[size_t(t)]).size(), 1u);
        });
        EXPECT_EQ(arrived, threads) << type;
        for (int t = 0; t < threads; ++t)
            endSample(t);
        startAnew();
    }
}
