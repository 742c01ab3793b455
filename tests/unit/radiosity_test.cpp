// Tests of radiosity.cpp: indirect diffuse light, occlusion, the sums over lights, and what free
// points receive and show.
#include "rv_gi.h"

#include "allocation_failures.h"
#include "gather_tools.h"
#include "hit_context.h"
#include "message_passing.h"
#include "rv_lights.h"
#include "rv_messages.h"
#include "rv_samplers.h"
#include "sampler.h"
#include "system/memory.h"
#include "thread_slot.h"

using namespace gather_tools;

namespace {

class GlobalIllumination : public Gathering {
protected:
    RtRGB indirect() { return RvIndirectDiffuse(&sg.facing_normal, &sg); }
    static RtMemPool* pool() { return rv::the_frame->thread_slots[0].shading_pool; }
    static RtMessageBank* bank() { return rv::the_frame->thread_slots[0].messages; }
};

} // namespace

// ---- Indirect diffuse light ----

TEST_F(GlobalIllumination, indirect_light_of_a_white_environment_is_1)
{
    set("GI_diffuse_samples", 6);
    startRender();
    expectGrey(indirect(), 1, 1e-6, "white");
    EXPECT_EQ(takeDirections().size(), 36u);
}

TEST_F(GlobalIllumination, indirect_light_is_weighted_by_the_cosine)
{
    set("GI_diffuse_samples", 40);
    environment() = [](const RtVector& d) { return RtRGB{ d.z, d.z * d.z, d.x > 0 ? 1.f : 0.f }; };
    startRender();
    const RtRGB got = indirect();
    EXPECT_NEAR(got.r, 2.0 / 3, 1e-3);
    EXPECT_NEAR(got.g, 1.0 / 2, 1e-3);
    EXPECT_NEAR(got.b, 1.0 / 2, 1e-2);
}

TEST_F(GlobalIllumination, directions_around_the_normal_are_the_golden_ones)
{
    startRender();
    nest();
    for (const json& v : goldenVectors("shading", "indirect_diffuse_direction_local")) {
        setRotation(v.at("in").at("u"), v.at("in").at("v"));
        state.indirect.valid = false;
        indirect();
        const std::vector<RtVector> directions = takeDirections();
        ASSERT_EQ(directions.size(), 1u);
        const RtVector& d = directions[0]; // the frame of the z axis is x, y, z
        expectGoldenNumbers(v, "local", { d.x, d.y, d.z });
    }
}

TEST_F(GlobalIllumination, a_second_call_at_the_same_point_traces_nothing)
{
    startRender();
    environment() = [](const RtVector& d) { return RtRGB{ d.z, 1, 2 }; };
    const RtRGB first = indirect();
    const size_t traced = takeDirections().size();
    EXPECT_EQ(traced, 4u);
    EXPECT_EQ(describe(indirect()), describe(first));
    EXPECT_EQ(takeDirections().size(), 0u);
    EXPECT_EQ(counts(RV_LIGHTING_DIFFUSE), "1 0") << "the second is not counted";

    const RtShaderGlobals before = sg;
    const auto expectTraced = [&](const char* what) {
        indirect();
        EXPECT_EQ(takeDirections().size(), traced) << what;
        sg = before;
        indirect();
        EXPECT_EQ(takeDirections().size(), traced) << "there is one entry: " << what;
    };
    sg.point.y = 1e-30f;
    expectTraced("another point");
    sg.point.x = -0.0f;
    expectTraced("another zero: bits are compared");
    sg.facing_normal = rv::unit({ 0, 1e-3f, 1 });
    expectTraced("another normal");
    sg.facing_geometric_normal = rv::unit({ 0, 1e-3f, 1 });
    expectTraced("another geometric normal");
}

TEST_F(GlobalIllumination, what_is_known_is_returned_before_the_number_of_samples_is_looked_at)
{
    startRender();
    const RtRGB known = indirect();
    set("GI_diffuse_samples", 0);
    EXPECT_EQ(describe(indirect()), describe(known));
    state.indirect.valid = false;
    expectGrey(indirect(), 0, 0, "no samples");
    EXPECT_FALSE(state.indirect.valid) << "nothing is kept";
    set("GI_diffuse_samples", 1);
    expectGrey(indirect(), 1, 1e-6, "a sample");
}

TEST_F(GlobalIllumination, there_is_no_indirect_light_beyond_the_diffuse_depth)
{
    startRender();
    for (const auto& [limit, depth, seen] :
         { std::tuple{ 0, 0, 0.0 }, { 1, 0, 1.0 }, { 1, 1, 0.0 }, { 3, 2, 1.0 }, { 3, 7, 0.0 } }) {
        set("GI_diffuse_depth", limit);
        sg.diffuse_depth = uint8_t(depth);
        state.indirect.valid = false;
        expectGrey(indirect(), seen, 1e-6, std::to_string(limit) + " " + std::to_string(depth));
    }
}

TEST_F(GlobalIllumination, directions_below_the_geometric_surface_are_left_out_of_the_mean)
{
    set("GI_diffuse_samples", 10);
    startRender();
    sg.facing_geometric_normal = directionAt(60);
    expectGrey(indirect(), 1, 1e-5, "tilted");
    const std::vector<RtVector> directions = takeDirections();
    EXPECT_GT(directions.size(), 50u);
    EXPECT_LT(directions.size(), 95u);
    for (const RtVector& d : directions)
        EXPECT_GT(dot(d, sg.facing_geometric_normal), 0);
}

TEST_F(GlobalIllumination, a_point_whose_directions_are_all_below_the_surface_is_black)
{
    startRender();
    sg.facing_geometric_normal = { 0, 0, -1 };
    expectGrey(indirect(), 0, 0, "below");
    EXPECT_EQ(takeDirections().size(), 0u);
    EXPECT_TRUE(state.indirect.valid);
}

TEST_F(GlobalIllumination, surfaces_fade_into_the_background_between_two_distances)
{
    sphere("around", { 0, 0, 0 }, 5);
    shading().looks["around"].color = { 0.2f, 0.4f, 0.6f };
    startRender();
    static const struct {
        float start, stop;
        float surface; // share of its colour
    } rows[] = {
        { 1e12f, 1e12f, 1 }, { 4, 8, 0.75f }, { 1, 6, 0.2f },    { 0, 10, 0.5f },
        { 6, 8, 1 },         { 1, 4, 0 },     { 5.1f, 5.2f, 1 }, { 8, 6, 1 },
    };
    for (const auto& row : rows) {
        set("GI_falloff_start_dist", row.start);
        set("GI_falloff_stop_dist", row.stop);
        state.indirect.valid = false;
        const RtRGB got = indirect();
        const std::string what = std::to_string(row.start) + " to " + std::to_string(row.stop);
        EXPECT_NEAR(got.r, 0.2f * row.surface + 1 - row.surface, 1e-4) << what;
        EXPECT_NEAR(got.g, 0.4f * row.surface + 1 - row.surface, 1e-4) << what;
        EXPECT_NEAR(got.b, 0.6f * row.surface + 1 - row.surface, 1e-4) << what;
    }
}

TEST_F(GlobalIllumination, the_sub_surface_pass_has_a_loop_of_its_own_size)
{
    static const struct {
        int diffuse, sss;
        size_t rays, nested;
    } rows[] = { { 2, 5, 25, 1 }, { 3, 0, 9, 1 }, { 3, -1, 9, 1 }, { 3, 1, 1, 1 }, { 0, 5, 0, 0 } };
    for (const auto& row : rows) {
        set("GI_diffuse_samples", row.diffuse);
        set("GI_sss_hemi_samples", row.sss);
        startRender();
        state = {};
        state.pass = RV_PASS_SSS;
        indirect();
        EXPECT_EQ(takeDirections().size(), row.rays) << row.diffuse << " " << row.sss;
        nest();
        state.indirect.valid = false;
        indirect();
        EXPECT_EQ(takeDirections().size(), row.nested) << row.diffuse << " " << row.sss;
    }
    EXPECT_EQ(counts(RV_LIGHTING_DIFFUSE), "0 0");
}

TEST_F(GlobalIllumination, the_sub_surface_pass_uses_its_table)
{
    set("GI_diffuse_samples", 2);
    set("GI_sss_hemi_samples", 2);
    startRender();
    setRotation(0, 0);
    sg.sample_index = 3; // of a table with one block
    state.pass = RV_PASS_SSS;
    indirect();
    const std::vector<RtVector> directions = takeDirections();
    ASSERT_EQ(directions.size(), 4u);
    for (size_t i = 0; i < 4; ++i)
        EXPECT_NEAR(directions[i].z * directions[i].z, 1 - rv::sample_tables->sss.points[i].x,
                    1e-3);
}

TEST_F(GlobalIllumination, indirect_light_is_counted_as_primary_or_nested)
{
    startRender();
    indirect();
    EXPECT_EQ(counts(RV_LIGHTING_DIFFUSE), "1 0");
    nest(4, 2);
    state.indirect.valid = false;
    indirect();
    EXPECT_EQ(counts(RV_LIGHTING_DIFFUSE), "1 1");
    EXPECT_EQ(state.loop_samples, 4);
    EXPECT_EQ(state.loop_index, 2);
    state.pass = RV_PASS_HAIR;
    state.indirect.valid = false;
    indirect();
    EXPECT_EQ(counts(RV_LIGHTING_DIFFUSE), "1 1");
}

TEST_F(GlobalIllumination, loops_below_are_nested)
{
    set("GI_diffuse_samples", 3);
    sg.sample_index = 0;
    startRender();
    indirect();
    ASSERT_EQ(shading().background_states.size(), 9u);
    for (int i = 0; i < 9; ++i) {
        EXPECT_EQ(shading().background_states[size_t(i)].loop_samples, 9);
        EXPECT_EQ(shading().background_states[size_t(i)].loop_index, i);
    }
    EXPECT_EQ(state.loop_samples, 0);
    EXPECT_EQ(state.loop_index, 0);
}

TEST_F(GlobalIllumination, without_a_state_nothing_is_known_or_kept)
{
    sg.state = nullptr;
    startRender();
    expectGrey(indirect(), 1, 1e-6, "first");
    expectGrey(indirect(), 1, 1e-6, "second");
    EXPECT_EQ(takeDirections().size(), 8u);
}

TEST_F(GlobalIllumination, loops_take_no_memory_from_the_heap)
{
    startRender();
    shading().background_contexts.reserve(10);
    shading().background_states.reserve(10);
    withAllocations(0, [&] { expectGrey(indirect(), 1, 1e-6, "white"); });
}

// ---- Occlusion ----

namespace {

class Occlusions : public GlobalIllumination {
protected:
    void TearDown() override
    {
        RvSamplerDestroy(sampler);
        GlobalIllumination::TearDown();
    }
    void makeSampler(int side)
    {
        RvSamplerDestroy(sampler);
        sampler = RvSampler(side, 2);
    }
    RtRGB occlusion(float falloff = 0, float spread = float(M_PI / 2), float mint = 0,
                    float maxt = 100)
    {
        if (!sampler)
            makeSampler(6);
        bent = { 7, 8, 9 };
        return RvOcclusion(&sg.facing_normal, &sg.facing_geometric_normal, &sg, mint, maxt, spread,
                           falloff, sampler, &bent);
    }

    RtSampler* sampler = nullptr;
    RtVector bent = {};
};

} // namespace

TEST_F(Occlusions, a_point_with_nothing_around_is_not_occluded)
{
    startRender();
    expectGrey(occlusion(), 0, 0, "open");
    EXPECT_GT(bent.z, 0.98f) << "the mean direction is nearly the normal";
    EXPECT_NEAR(dot(bent, bent), 1, 1e-5);
    expectGrey(occlusion(1), 0, 0, "open with falloff");
    EXPECT_GT(bent.z, 0.98f);
}

TEST_F(Occlusions, an_enclosed_point_is_occluded_in_every_channel)
{
    sphere("around", { 0, 0, 0 }, 5);
    startRender();
    expectGrey(occlusion(), 1, 1e-6, "enclosed");
    EXPECT_EQ(describe(bent), "0 0 0") << "no direction is open";
}

TEST_F(Occlusions, half_an_environment_is_half_occluded)
{
    RtNode* const wall = node_tools::named("plane", "wall"); // covers the directions of x > 0
    RvNodeSetPnt(wall, "point", 1, 0, 0);
    RvNodeSetVec(wall, "normal", 1, 0, 0);
    makeSampler(30);
    startRender();
    expectGrey(occlusion(0, float(M_PI / 2), 0, 1e9f), 0.5, 0.01, "wall");
    EXPECT_LT(bent.x, -0.3f) << "the open side";
    EXPECT_NEAR(bent.y, 0, 0.02f);
}

TEST_F(Occlusions, blockers_fade_with_a_falloff_whatever_their_opacity)
{
    RtNode* const around = sphere("around", { 0, 0, 0 }, 2);
    RvNodeSetBool(around, "opaque", false);
    shading().looks["around"].opacity = { 0.25f, 0.5f, 0.75f };
    startRender();
    const RtRGB shadow = occlusion();
    EXPECT_NEAR(shadow.r, 0.25f, 1e-5);
    EXPECT_NEAR(shadow.g, 0.5f, 1e-5);
    EXPECT_NEAR(shadow.b, 0.75f, 1e-5);
    EXPECT_EQ(describe(bent), "0 0 0");
    for (const float falloff : { 0.1f, 0.5f, 2.0f })
        expectGrey(occlusion(falloff), exp(-2.0 * double(falloff)), 1e-4, std::to_string(falloff));
    expectGrey(occlusion(1000), 0, 0, "faded");
    EXPECT_EQ(describe(bent), "0 0 0") << "but not open";
}

TEST_F(Occlusions, only_full_transparency_is_open)
{
    RtNode* const around = sphere("around", { 0, 0, 0 }, 2);
    RvNodeSetBool(around, "opaque", false);
    shading().looks["around"].opacity = RV_RGB_BLACK;
    startRender();
    expectGrey(occlusion(), 0, 0, "glass");
    EXPECT_GT(bent.z, 0.98f);
    shading().looks["around"].opacity = { 0, 0.5f, 0 };
    EXPECT_NEAR(occlusion().g, 0.5f, 1e-5);
    EXPECT_EQ(describe(bent), "0 0 0");
}

TEST_F(Occlusions, blockers_count_within_the_distances)
{
    sphere("around", { 0, 0, 0 }, 5);
    startRender();
    for (const float falloff : { 0.0f, 1e-6f }) {
        const float all = float(M_PI / 2);
        expectGrey(occlusion(falloff, all, 0, 4.9f), 0, 0, "too far");
        expectGrey(occlusion(falloff, all, 0, 5.1f), 1, 1e-4, "in reach");
        expectGrey(occlusion(falloff, all, 5.1f, 9), 0, 0, "too near");
        expectGrey(occlusion(falloff, all, 4.9f, 9), 1, 1e-4, "far enough");
    }
}

TEST_F(Occlusions, directions_below_the_geometric_surface_are_blocked)
{
    startRender();
    sg.facing_geometric_normal = { 0, 0, -1 };
    expectGrey(occlusion(), 1, 1e-6, "below");
    EXPECT_EQ(rays(), 0u);
    makeSampler(30);
    sg.facing_geometric_normal = { 1, 0, 0 };
    expectGrey(occlusion(), 0.5, 0.01, "half");
    EXPECT_GT(bent.x, 0.3f);
}

TEST_F(Occlusions, directions_stay_within_the_cone_and_are_the_golden_ones)
{
    RtNode* const around = sphere("around", { 0, 0, 0 }, 2);
    RvNodeSetBool(around, "opaque", false);
    shading().looks["around"].opacity = { 0.5f, 0.5f, 0.5f };
    startRender();
    occlusion(0, 0.4f);
    EXPECT_EQ(shading().contexts.size(), 36u);
    float widest = 1;
    for (const RtShaderGlobals& seen : shading().contexts)
        widest = std::min(widest, seen.ray_dir.z);
    EXPECT_GE(widest, cosf(0.4f) - 1e-5f);
    EXPECT_LT(widest, cosf(0.36f)) << "the cone is filled";

    shading().looks["around"].opacity = RV_RGB_BLACK;
    sg.ray_depth = 1; // so that the call chooses no rotation
    nest();
    for (const json& v : goldenVectors("shading", "occlusion_direction_local")) {
        const json& in = v.at("in");
        RtPoint2 point = { in.at("u"), in.at("v") };
        // The rotation is taken back from the point.
        const RtPoint2 rotation = RvSamplerRotation(&sg);
        point = { point.x - rotation.x, point.y - rotation.y };
        const RtSampler one = { .points = &point, .count = 1, .inv_count = 1, .total = 1 };
        RvOcclusion(&sg.normal, &sg.normal, &sg, 0, 100, in.at("spread"), 0,
                    const_cast<RtSampler*>(&one), &bent);
        expectGoldenNumbers(v, "local", { bent.x, bent.y, bent.z });
    }
}

TEST_F(Occlusions, a_nested_call_takes_one_sample)
{
    sphere("around", { 0, 0, 0 }, 5);
    startRender();
    nest();
    expectGrey(occlusion(), 1, 1e-6, "one sample weighs 1");
    EXPECT_EQ(rays(), 1u);
    EXPECT_EQ(state.loop_samples, 4);
}

TEST_F(Occlusions, unusable_normals_give_black)
{
    sphere("around", { 0, 0, 0 }, 5);
    makeSampler(2);
    startRender();
    const RtVector good = { 0, 0, 1 };
    const RtVector bad[] = {
        { 0, 0, 0 }, { 9e-5f, -9e-5f, 9e-5f }, { NAN, 0, 1 }, { 0, INFINITY, 0 }, { 3e38f, 0, 0 }
    };
    for (const RtVector& b : bad)
        for (const auto& [N, Ng] : { std::pair{ &b, &good }, { &good, &b } })
            expectGrey(RvOcclusion(N, Ng, &sg, 0, 100, 1, 0, sampler, nullptr), 0, 0, describe(b));
    EXPECT_EQ(rays(), 0u);
    const RtVector small = { 0, 0, 1e-4f };
    expectGrey(RvOcclusion(&small, &good, &sg, 0, 1e6f, 1, 0, sampler, nullptr), 1, 1e-6, "small");
}

TEST_F(Occlusions, nulls_give_black)
{
    sphere("around", { 0, 0, 0 }, 5);
    makeSampler(2);
    startRender();
    const RtVector N = { 0, 0, 1 };
    expectGrey(RvOcclusion(nullptr, &N, &sg, 0, 100, 1, 0, sampler, &bent), 0, 0, "N");
    expectGrey(RvOcclusion(&N, nullptr, &sg, 0, 100, 1, 0, sampler, &bent), 0, 0, "Ng");
    expectGrey(RvOcclusion(&N, &N, nullptr, 0, 100, 1, 0, sampler, &bent), 0, 0, "sg");
    expectGrey(RvOcclusion(&N, &N, &sg, 0, 100, 1, 0, nullptr, &bent), 0, 0, "sampler");
    EXPECT_EQ(describe(bent), "0 0 0");
    sg.state = nullptr;
    expectGrey(RvOcclusion(&N, &N, &sg, 0, 100, 1, 0, sampler, nullptr), 1, 1e-6, "no state");
}

TEST_F(Occlusions, outside_of_renders_first_hits_choose_a_rotation_for_their_sample)
{
    startRender();
    sg.pixel_x = 3;
    sg.pixel_y = 5;
    sg.sample_index = 2;
    const rv::PixelHash hash(rv::samplingSeed(), 3, 5);
    occlusion();
    EXPECT_EQ(rv::pixel_sampling[0].rotation_u, rv::hashToUnit(hash(2, 1)));
    EXPECT_EQ(rv::pixel_sampling[0].rotation_v, rv::hashToUnit(hash(2, 2)));
    setRotation(0.25, 0.5);
    sg.ray_depth = 1;
    occlusion();
    EXPECT_EQ(rv::pixel_sampling[0].rotation_u, 0.25) << "not a first hit";
    sg.ray_depth = 0;
    hooks->hooks.rendering = [] { return true; };
    occlusion();
    EXPECT_EQ(rv::pixel_sampling[0].rotation_u, 0.25) << "the pixel has chosen";
}

TEST_F(Occlusions, a_call_gives_back_the_memory_of_its_thread)
{
    makeSampler(2);
    startRender();
    void* const mine = RvShaderGlobalsQuickAlloc(&sg, 100);
    RvMessageSetIntFunc(&sg, "mine", 1);
    const char* const cursor = pool()->current->cursor;
    for (int i = 0; i < 10; ++i)
        occlusion();
    EXPECT_EQ(pool()->current->cursor, cursor);
    EXPECT_EQ(pool()->mark_top, -1);
    EXPECT_EQ(bank()->count, 1u);
    EXPECT_TRUE(mine);
}

// ---- Lights ----

namespace {

class LitPoints : public GlobalIllumination {
protected:
    // Three units above the origin.
    static RtNode* pointLight(const char* name, const RtRGB& color, float x = 0)
    {
        RtNode* const light = node_tools::named("point_light", name);
        RvNodeSetArray(light, "position", RvArray(1, 1, RV_TYPE_POINT, RtPoint{ x, 0, 3 }));
        RvNodeSetRGB(light, "color", color.r, color.g, color.b);
        return light;
    }
    static RtNode* ambientLight(const char* name, const RtRGB& color)
    {
        RtNode* const light = node_tools::named("ambient_light", name);
        RvNodeSetRGB(light, "color", color.r, color.g, color.b);
        return light;
    }
    static void setLightGroup(RtNode* object, const std::vector<RtNode*>& lights)
    {
        RvNodeSetBool(object, "use_light_group", true);
        RtArray* const group = RvArrayAllocate(unsigned(lights.size()), 1, RV_TYPE_NODE);
        for (unsigned i = 0; i < lights.size(); ++i)
            RvArraySetPtr(group, i, lights[i]);
        RvNodeSetArray(object, "light_group", group);
    }
    void start()
    {
        startRender();
        rv::assignLights(&sg);
    }

    const RtVector up = { 0, 0, 1 };
};

} // namespace

TEST_F(LitPoints, direct_light_includes_the_cosine_and_one_over_pi_if_physically_based)
{
    pointLight("a", { 1, 0.5f, 0 });
    pointLight("b", { 0, 0, 2 }, 3); // at 45 degrees
    for (const bool physically_based : { true, false }) {
        set("physically_based", physically_based);
        state = {};
        start();
        const RtRGB got = RvDirectDiffuse(&up, &sg);
        const double scale = physically_based ? 1 / M_PI : 1;
        EXPECT_NEAR(got.r, scale, 1e-5);
        EXPECT_NEAR(got.g, 0.5 * scale, 1e-5);
        EXPECT_NEAR(got.b, 2 * sqrt(0.5) * scale, 1e-5);
        const RtVector down = { 0, 0, -1 };
        expectGrey(RvDirectDiffuse(&down, &sg), 0, 0, "from behind");
    }
}

TEST_F(LitPoints, direct_light_leaves_out_lights_that_do_not_affect_diffuse_surfaces)
{
    pointLight("a", { 1, 0, 0 });
    RvNodeSetBool(pointLight("b", { 0, 1, 0 }), "affect_diffuse", false);
    set("physically_based", false);
    start();
    const RtRGB got = RvDirectDiffuse(&up, &sg);
    EXPECT_NEAR(got.r, 1, 1e-5);
    EXPECT_EQ(got.g, 0);
}

TEST_F(LitPoints, the_ambient_term_is_the_sum_of_the_lights)
{
    ambientLight("a", { 1, 0, 0.25f });
    ambientLight("b", { 0, 0.5f, 0.25f });
    pointLight("c", { 9, 9, 9 });
    startRender();
    const RtRGB got = RvAmbient(&sg); // whose context has no list of lights
    EXPECT_EQ(describe(got), describe(RtRGB{ 1, 0.5f, 0.5f }));
    EXPECT_EQ(sg.light_count, 0) << "the context keeps its list";
    set("ignore_lights", true);
    expectGrey(RvAmbient(&sg), 0, 0, "ignored");
}

TEST_F(LitPoints, the_ambient_term_is_that_of_the_light_group)
{
    RtNode* const a = ambientLight("a", { 1, 0, 0 });
    ambientLight("b", { 0, 1, 0 });
    RtNode* const object = disc("d", 0);
    setLightGroup(object, { a });
    startRender();
    sg.object = object;
    EXPECT_EQ(describe(RvAmbient(&sg)), describe(RtRGB{ 1, 0, 0 }));
}

// ---- Free points ----

TEST_F(LitPoints, irradiance_facing_a_point_light_is_that_of_the_light)
{
    pointLight("a", { 1, 2, 4 });
    set("GI_diffuse_depth", 0);
    startRender();
    const RtPoint P = { 0, 0, 0 };
    const RtRGB got = RvIrradiance(&P, &up);
    EXPECT_NEAR(got.r, 1 / M_PI, 1e-5);
    EXPECT_NEAR(got.g, 2 / M_PI, 1e-5);
    EXPECT_NEAR(got.b, 4 / M_PI, 1e-5);
    EXPECT_EQ(takeDirections().size(), 0u) << "no indirect light at depth 0";
    set("ignore_lights", true);
    expectGrey(RvIrradiance(&P, &up), 0, 0, "ignored");
}

TEST_F(LitPoints, irradiance_adds_the_indirect_light_times_pi)
{
    pointLight("a", RV_RGB_WHITE);
    for (const bool physically_based : { true, false }) {
        set("physically_based", physically_based);
        startRender();
        const RtPoint P = { 0, 0, 0 };
        expectGrey(RvIrradiance(&P, &up), (physically_based ? 1 / M_PI : 1) + M_PI, 1e-4,
                   "both parts");
    }
}

TEST_F(LitPoints, irradiance_works_before_and_after_renders)
{
    const RtPoint P = { 0, 0, 0 };
    pointLight("a", RV_RGB_WHITE);
    RvIrradiance(&P, &up); // before there are threads: anything but a crash
    startRender();
    const RtRGB during = RvIrradiance(&P, &up);
    rv::the_frame->session->releaseSamplers();
    const RtRGB after = RvIrradiance(&P, &up);
    expectGrey(after, double(during.r), 1e-4, "after a render");
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(LitPoints, irradiance_of_a_context_takes_its_lights_and_a_rotation_from_the_seed)
{
    pointLight("a", RV_RGB_WHITE);
    set("GI_diffuse_depth", 0);
    set("physically_based", false);
    startRender();
    expectGrey(RvIrradianceSG(&sg, 5), 0, 0, "it has no lights");
    rv::assignLights(&sg);
    expectGrey(RvIrradianceSG(&sg, 5), 1, 1e-5, "it has");
    const rv::PixelHash hash(5, 0, 0);
    EXPECT_EQ(rv::pixel_sampling[0].rotation_u, rv::hashToUnit(hash(0, 0)));
    EXPECT_EQ(rv::pixel_sampling[0].rotation_v, rv::hashToUnit(hash(0, 1)));
    EXPECT_EQ(sg.state, &state) << "the context keeps its state";
    EXPECT_FALSE(state.indirect.valid);
}

TEST_F(LitPoints, free_calls_give_back_the_memory_of_their_thread)
{
    pointLight("a", RV_RGB_WHITE);
    startRender();
    RvShaderGlobalsQuickAlloc(&sg, 24);
    const char* const cursor = pool()->current->cursor;
    const RtPoint P = { 0, 0, 0 };
    for (int i = 0; i < 3; ++i)
        RvIrradiance(&P, &up);
    EXPECT_EQ(pool()->current->cursor, cursor);
    EXPECT_EQ(pool()->mark_top, -1);
}

namespace {

// A shader that remembers its context.
struct Watched {
    RtShaderGlobals sg;
    RtShadingState state;
    int count = 0;
};
Watched& watched()
{
    static Watched one;
    return one;
}

class Radiances : public LitPoints {
protected:
    void SetUp() override
    {
        LitPoints::SetUp();
        watched() = {};
        static const RtCommonMethods common = {};
        static const RtShaderMethods shader = {
            .Evaluate =
                [](RtNode*, RtShaderGlobals* context) {
                    watched().sg = *context;
                    watched().state = *context->state;
                    ++watched().count;
                    RvMessageSetIntFunc(context, "inside", 1);
                    RvShaderGlobalsQuickAlloc(context, 1000);
                    context->out.RGB = { 1, 2, 3 };
                },
        };
        static const RtNodeMethods methods = { &common, &shader };
        RvNodeInstall(RV_NODE_SHADER, RV_TYPE_RGB, "watched", nullptr, &methods, RV_VERSION);
        shader_node = node_tools::named("watched", "watching");
    }

    RtNode* shader_node = nullptr;
};

} // namespace

TEST_F(Radiances, radiance_is_what_the_shader_returns_at_the_point)
{
    RtNode* const object = disc("d", 0);
    pointLight("a", RV_RGB_WHITE);
    startRender();
    const RtPoint P = { 1, 2, 3 };
    const RtVector D = { 0, 0.6f, 0.8f }, N = { 0, 1, 0 };
    const RtRGB got = RvRadiance(&P, &D, &N, object, 7, 0.25f, 0.75f, shader_node);
    EXPECT_EQ(describe(got), describe(RtRGB{ 1, 2, 3 }));
    ASSERT_EQ(watched().count, 1);
    const RtShaderGlobals& seen = watched().sg;
    EXPECT_EQ(describe(seen.ray_origin), describe(P + D));
    EXPECT_EQ(describe(seen.ray_dir), describe(D * -1.0f));
    for (const RtPoint& point : { seen.point, seen.object_point })
        EXPECT_EQ(describe(point), describe(P));
    for (const RtVector& normal : { seen.normal, seen.facing_normal, seen.smooth_normal,
                                    seen.geometric_normal, seen.facing_geometric_normal })
        EXPECT_EQ(describe(normal), describe(N));
    EXPECT_EQ(seen.object, object);
    EXPECT_EQ(seen.prim_index, 7u);
    EXPECT_EQ(seen.u, 0.25f);
    EXPECT_EQ(seen.v, 0.75f);
    EXPECT_EQ(seen.bary_u, 0.25f);
    EXPECT_EQ(seen.bary_v, 0.75f);
    EXPECT_EQ(seen.shader, shader_node);
    EXPECT_EQ(seen.light_count, 1);
    EXPECT_EQ(seen.thread_index, 0);
    EXPECT_EQ(seen.out_opacity.g, 1);
}

TEST_F(Radiances, radiance_of_a_context_starts_afresh_and_leaves_its_state)
{
    RtNode* const object = disc("d", 0);
    RtNode* const a = pointLight("a", RV_RGB_WHITE);
    pointLight("b", RV_RGB_WHITE);
    setLightGroup(object, { a });
    startRender();
    sg.shader = shader_node;
    sg.object = object;
    sg.ray_depth = 3;
    sg.transparency_index = 2;
    sg.pixel_x = 4;
    sg.pixel_y = 9;
    sg.sample_index = 6;
    state.pass = RV_PASS_SSS;
    nest();
    RtShaderGlobals parent = sg;
    sg.parent = &parent;
    EXPECT_EQ(RvRadianceSG(&sg, 11).b, 3);
    EXPECT_EQ(watched().sg.ray_depth, 0);
    EXPECT_EQ(watched().sg.transparency_index, 0u);
    EXPECT_EQ(watched().sg.light_count, 1) << "the light group";
    EXPECT_EQ(watched().state.pass, RV_PASS_PIXELS);
    EXPECT_EQ(watched().state.loop_samples, 4) << "of the parent";
    EXPECT_EQ(sg.state, &state);
    EXPECT_EQ(sg.shader, shader_node);
    const rv::PixelHash hash(11, 4, 9);
    EXPECT_EQ(rv::pixel_sampling[0].rotation_u, rv::hashToUnit(hash(6, 1)));
    EXPECT_EQ(rv::pixel_sampling[0].rotation_v, rv::hashToUnit(hash(6, 2)));
}

TEST_F(Radiances, memory_and_messages_of_a_call_are_gone_afterwards)
{
    startRender();
    RvMessageSetIntFunc(&sg, "outside", 5);
    const char* const cursor = pool()->current->cursor;
    const RtPoint P = { 0, 0, 0 };
    for (int i = 0; i < 3; ++i)
        RvRadiance(&P, &up, &up, nullptr, 0, 0, 0, shader_node);
    EXPECT_EQ(watched().count, 3);
    EXPECT_EQ(pool()->current->cursor, cursor);
    EXPECT_EQ(bank()->count, 1u);
    int outside = 0;
    EXPECT_TRUE(RvMessageGetIntFunc(&sg, "outside", &outside));
    EXPECT_EQ(outside, 5);
}

TEST_F(Radiances, nulls_give_black)
{
    startRender();
    const RtPoint P = { 0, 0, 0 };
    expectGrey(RvRadiance(nullptr, &up, &up, nullptr, 0, 0, 0, shader_node), 0, 0, "P");
    expectGrey(RvRadiance(&P, nullptr, &up, nullptr, 0, 0, 0, shader_node), 0, 0, "D");
    expectGrey(RvRadiance(&P, &up, nullptr, nullptr, 0, 0, 0, shader_node), 0, 0, "N");
    expectGrey(RvRadiance(&P, &up, &up, nullptr, 0, 0, 0, nullptr), 0, 0, "shader");
    expectGrey(RvRadianceSG(nullptr, 0), 0, 0, "sg");
    expectGrey(RvIrradianceSG(nullptr, 0), 0, 0, "sg");
    expectGrey(RvIrradiance(nullptr, &up), 0, 0, "P");
    expectGrey(RvIrradiance(&P, nullptr), 0, 0, "N");
    expectGrey(RvIndirectDiffuse(nullptr, &sg), 0, 0, "N");
    expectGrey(RvIndirectDiffuse(&up, nullptr), 0, 0, "sg");
    expectGrey(RvDirectDiffuse(nullptr, &sg), 0, 0, "N");
    expectGrey(RvDirectDiffuse(&up, nullptr), 0, 0, "sg");
    expectGrey(RvAmbient(nullptr), 0, 0, "sg");
    EXPECT_EQ(watched().count, 0);
}

TEST(GlobalIlluminationWithoutUniverse, is_black)
{
    RtShaderGlobals sg = {};
    const RtVector N = { 0, 0, 1 };
    const RtPoint P = { 0, 0, 0 };
    EXPECT_EQ(RvIndirectDiffuse(&N, &sg).r, 0);
    EXPECT_EQ(RvOcclusion(&N, &N, &sg, 0, 1, 1, 0, nullptr, nullptr).r, 0);
    EXPECT_EQ(RvDirectDiffuse(&N, &sg).r, 0);
    EXPECT_EQ(RvAmbient(&sg).r, 0);
    EXPECT_EQ(RvIrradiance(&P, &N).r, 0);
    EXPECT_EQ(RvIrradianceSG(&sg, 1).r, 0);
    EXPECT_EQ(RvRadiance(&P, &N, &N, nullptr, 0, 0, 0, nullptr).r, 0);
    EXPECT_EQ(RvRadianceSG(&sg, 1).r, 0);
}
