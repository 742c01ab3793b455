// Tests of render_session and region: the options of a render, its part of the image, and what
// each worker slot owns.
#include "render_session.h"

#include "allocation_failures.h"
#include "frame.h"
#include "golden.h"
#include "message_passing.h"
#include "render_tools.h"
#include "system/machine.h"

#include <limits.h>

using namespace render_tools;
using nlohmann::json;
using node_tools::describe;

using RenderSession = RenderLog;

// ---- Options ----

TEST_F(RenderSession, thread_counts_are_the_golden_ones)
{
    for (const json& v : goldenVectors("render", "session_threads")) {
        RtOptions options = {};
        options.threads = v.at("in").at("threads").get<int>();
        rv::checkThreads(options, v.at("in").at("processors").get<int>());
        expectGolden(v, "threads", options.threads);
        const json& message = v.at("out").at("message");
        Names expected;
        if (message.is_string()) {
            const std::string text = message.get<std::string>();
            const bool is_debug = text.rfind("debug: ", 0) == 0;
            expected = { std::string(is_debug ? "0 D " : "0 W ") +
                         text.substr(text.find(' ') + 1) };
        }
        EXPECT_EQ(takeLines(), expected) << goldenId(v);
    }
}

TEST_F(RenderSession, more_processors_than_slots_are_cut_to_the_slots)
{
    RtOptions options = {};
    rv::checkThreads(options, 128);
    EXPECT_EQ(options.threads, 64);
    EXPECT_EQ(takeLines(), (Names{ "0 D auto-detected 128 threads",
                                   "0 W too many threads, max allowed is 64" }));
}

TEST_F(RenderSession, sample_counts_are_the_golden_ones)
{
    for (const json& v : goldenVectors("render", "session_AA")) {
        set("AA_samples", v.at("in").at("AA_samples").get<int>());
        rv::checkOptions(*scene(), *rv::render_options);
        expectGolden(v, "AA_samples", RvNodeGetInt(RvUniverseGetOptions(), "AA_samples"));
    }
}

TEST_F(RenderSession, total_depths_are_the_golden_ones)
{
    for (const json& v : goldenVectors("render", "session_total_depth")) {
        set("GI_total_depth", v.at("in").at("GI_total_depth").get<int>());
        rv::checkOptions(*scene(), *rv::render_options);
        expectGolden(v, "GI_total_depth", RvNodeGetInt(RvUniverseGetOptions(), "GI_total_depth"));
        const json& warning = v.at("out").at("warning");
        EXPECT_EQ(takeProblems(), warning.is_null() ? "" : "W " + warning.get<std::string>())
            << goldenId(v);
    }
}

TEST_F(RenderSession, repaired_options_stay_repaired)
{
    set("threads", -5);
    set("AA_samples", 0);
    set("GI_total_depth", 101);
    rv::checkOptions(*scene(), *rv::render_options);
    EXPECT_EQ(takeLines().size(), 2u);
    EXPECT_EQ(RvNodeGetInt(RvUniverseGetOptions(), "threads"),
              std::min(rv::processorCount(), rv::worker_slot_count));
    rv::checkOptions(*scene(), *rv::render_options);
    EXPECT_EQ(takeLines(), Names{});
}

TEST_F(RenderSession, an_atmosphere_must_be_a_shader_of_colours)
{
    static const struct {
        const char* type;
        const char* problem;
    } cases[] = {
        { "fog", "" },
        { "image", "W bad assignment of atmosphere shader" }, // RGBA
        { "noise", "W bad assignment of atmosphere shader" }, // FLOAT
        { "sphere", "W bad assignment of atmosphere shader" },
    };
    for (const auto& c : cases) {
        RtNode* const node = RvNode(c.type);
        RvNodeSetPtr(RvUniverseGetOptions(), "atmosphere", node);
        takeLines();
        rv::checkOptions(*scene(), *rv::render_options);
        EXPECT_EQ(takeProblems(), c.problem) << c.type;
        EXPECT_EQ(rv::render_options->atmosphere, node) << c.type << ": used all the same";
    }
}

TEST_F(RenderSession, an_ignored_atmosphere_is_checked_and_then_forgotten)
{
    RvNodeSetPtr(RvUniverseGetOptions(), "atmosphere", RvNode("image"));
    setFlag("ignore_atmosphere", true);
    rv::checkOptions(*scene(), *rv::render_options);
    EXPECT_EQ(takeProblems(), "W bad assignment of atmosphere shader");
    EXPECT_FALSE(RvNodeGetPtr(RvUniverseGetOptions(), "atmosphere"));
    rv::checkOptions(*scene(), *rv::render_options);
    EXPECT_EQ(takeProblems(), "");
}

TEST_F(RenderSession, internal_shaders_glow_in_the_error_colours)
{
    const RtNode* const error = RvNodeLookUpByName("rv_error_shader");
    const RtNode* const bad = RvNodeLookUpByName("rv_bad_shader");
    rv::checkOptions(*scene(), *rv::render_options);
    EXPECT_EQ(describe(RvNodeGetRGB(error, "emission_color")), "0 1 0");
    EXPECT_EQ(describe(RvNodeGetRGB(bad, "emission_color")), "1 0 1");
    RvNodeSetRGB(RvUniverseGetOptions(), "error_color_bad_mesh", 0.25f, 0.5f, 0.75f);
    RvNodeSetRGB(RvUniverseGetOptions(), "error_color_bad_shader", 1, 0.5f, 0);
    rv::checkOptions(*scene(), *rv::render_options);
    EXPECT_EQ(describe(RvNodeGetRGB(error, "emission_color")), "0.25 0.5 0.75");
    EXPECT_EQ(describe(RvNodeGetRGB(bad, "emission_color")), "1 0.5 0");
}

TEST_F(RenderSession, internal_shaders_may_be_missing)
{
    RvNodeDestroy(RvNodeLookUpByName("rv_error_shader"));
    RvNodeDestroy(RvNodeLookUpByName("rv_bad_shader"));
    rv::checkOptions(*scene(), *rv::render_options);
    EXPECT_EQ(takeProblems(), "");
}

// ---- Region ----

TEST_F(RenderSession, regions_are_the_golden_ones)
{
    for (const json& v : goldenVectors("render", "region_setup")) {
        for (const auto& [name, value] : v.at("in").items())
            set(name.c_str(), value.get<int>());
        const int result = rv::setUpRegion(session(), *rv::render_options);
        expectGolden(v, "result", result);
        const json& out = v.at("out");
        EXPECT_EQ(takeProblems(),
                  out.contains("error") ? "E " + out.at("error").get<std::string>() : "")
            << goldenId(v);
        if (result != RV_SUCCESS)
            continue;
        const RtRenderSession& s = *session();
        expectGolden(
            v, "region",
            json::array({ s.region_min_x, s.region_min_y, s.region_max_x, s.region_max_y }));
        expectGolden(v, "region_width", s.region_width);
        expectGolden(v, "region_height", s.region_height);
        expectGoldenNumbers(v, "inv_width", { s.inv_width });
        expectGoldenNumbers(v, "inv_height", { s.inv_height });
        expectGoldenNumbers(v, "frame_aspect", { s.frame_aspect });
        EXPECT_EQ(s.image_width, v.at("in").at("xres").get<int>()) << goldenId(v);
        EXPECT_EQ(s.image_height, v.at("in").at("yres").get<int>()) << goldenId(v);
    }
}

TEST_F(RenderSession, a_region_may_lie_anywhere_within_the_image)
{
    static const struct {
        int min_x, min_y, max_x, max_y, xres, yres, result;
    } cases[] = {
        { -1, 0, 0, 0, 0, 240, RV_ERROR_BAD_REGION },
        { -1, 0, 0, 0, 320, 0, RV_ERROR_BAD_REGION },
        { -1, 0, 0, 0, -320, -240, RV_ERROR_BAD_REGION },
        { -1, 0, 0, 0, INT_MIN, INT_MIN, RV_ERROR_BAD_REGION },
        { 0, 0, 0, 0, 0, 0, RV_ERROR_BAD_REGION },
        { 0, -1, 9, 9, 320, 240, RV_ERROR_BAD_REGION },
        { 0, 240, 9, 9, 320, 240, RV_ERROR_BAD_REGION },
        { 0, 0, 9, -1, 320, 240, RV_ERROR_BAD_REGION },
        { 0, 0, INT_MAX, INT_MAX, 320, 240, RV_ERROR_BAD_REGION },
        { 0, 0, INT_MAX, INT_MAX, INT_MAX, INT_MAX, RV_ERROR_BAD_REGION },
        { 0, 0, INT_MAX - 1, INT_MAX - 1, INT_MAX, INT_MAX, RV_SUCCESS },
        { INT_MAX - 1, INT_MAX - 1, 0, 0, INT_MAX, INT_MAX, RV_SUCCESS },
        { -1, 0, 0, 0, INT_MAX, INT_MAX, RV_SUCCESS },
        { INT_MIN, INT_MIN, INT_MIN, INT_MIN, 1, 1, RV_SUCCESS },
    };
    for (const auto& c : cases) {
        RtOptions options = {};
        options.region_min_x = c.min_x;
        options.region_min_y = c.min_y;
        options.region_max_x = c.max_x;
        options.region_max_y = c.max_y;
        options.xres = c.xres;
        options.yres = c.yres;
        EXPECT_EQ(rv::setUpRegion(session(), options), c.result)
            << c.min_x << " " << c.min_y << " " << c.max_x << " " << c.max_y << " " << c.xres;
    }
}

TEST_F(RenderSession, image_lines_are_the_golden_ones)
{
    for (const json& v : goldenVectors("render", "image_line")) {
        const json& in = v.at("in");
        RtRenderSession& s = *session();
        s.image_width = in.at("xres").get<int>();
        s.image_height = in.at("yres").get<int>();
        s.region_width = in.at("region_width").get<int>();
        s.region_height = in.at("region_height").get<int>();
        for (const char* option : { "AA_samples", "GI_diffuse_samples", "GI_diffuse_depth" })
            set(option, in.at(option).get<int>());
        rv::reportImage(s, *rv::render_options);
        EXPECT_EQ(takeLines(), (Names{ "0 " + v.at("out").at("text").get<std::string>() }))
            << goldenId(v);
    }
}

TEST_F(RenderSession, an_image_line_holds_the_longest_numbers)
{
    RtRenderSession& s = *session();
    s.image_width = s.image_height = s.region_width = s.region_height = INT_MIN;
    s.region_width = -INT_MAX;
    set("AA_samples", INT_MIN);
    set("GI_diffuse_samples", INT_MIN);
    set("GI_diffuse_depth", INT_MIN);
    rv::reportImage(s, *rv::render_options);
    EXPECT_EQ(takeLines(),
              (Names{ "0 rendering image at -2147483648 x -2147483648 (-2147483647 x -2147483648 "
                      "region), -2147483648 AA samples, -2147483648 GI samples, -2147483648 GI "
                      "bounces" }));
}

// ---- Stops ----

TEST_F(RenderSession, stops_are_explained_unless_the_render_was_interrupted)
{
    EXPECT_EQ(rv::stopResult("phase", RV_STOP_ABORT), RV_ABORT);
    EXPECT_EQ(rv::stopResult("phase", RV_STOP_INTERRUPT), RV_INTERRUPT);
    EXPECT_EQ(rv::stopResult("phase", RV_STOP_NONE), RV_ABORT);
    EXPECT_EQ(rv::stopResult("phase", 77), RV_ABORT);
    EXPECT_EQ(takeLines(), (Names{ "0 W phase:  received abort signal",
                                   "0 W phase:  unknown reason", "0 W phase:  unknown reason" }));
}

// ---- Thread slots ----

TEST_F(RenderSession, every_worker_slot_gets_its_pools_and_a_message_bank)
{
    static const struct {
        int max_shader_messages;
        unsigned capacity;
    } cases[] = { { 64, 64 }, { 1, 1 }, { 0, 1 }, { -5, 1 } };
    for (const auto& c : cases) {
        RtRenderSession* const session = rv::the_frame->session;
        ASSERT_TRUE(rv::createThreadSlots(session, c.max_shader_messages));
        EXPECT_EQ(session->thread_slots, rv::the_frame->thread_slots);
        for (int i = 0; i < rv::worker_slot_count; ++i) {
            const RtThreadSlot& slot = session->thread_slots[i];
            EXPECT_EQ(slot.messages->capacity, c.capacity) << i;
            EXPECT_EQ(slot.messages->pool, slot.shading_pool) << i;
            for (const RtMemPool* pool : { slot.shading_pool, slot.pools[0], slot.pools[1] })
                EXPECT_EQ(pool->block_size, 524288u) << i;
        }
        TearDown(); // frees the slots
        SetUp();
    }
    EXPECT_EQ(takeProblems(), "");
}

TEST_F(RenderSession, slots_that_find_no_memory_are_missing_as_a_whole)
{
    RtRenderSession* const session = rv::the_frame->session;
    for (long allowed : { 0, 1, 2, 7, 40, 300 }) {
        bool created = true;
        withAllocations(allowed, [&] { created = rv::createThreadSlots(session, 4); });
        EXPECT_FALSE(created) << allowed;
        EXPECT_FALSE(session->thread_slots) << allowed;
        EXPECT_FALSE(rv::the_frame->thread_slots) << allowed;
        EXPECT_EQ(takeProblems().find("E can't allocate"), 0u) << allowed;
    }
    EXPECT_TRUE(rv::createThreadSlots(session, 4));
}
