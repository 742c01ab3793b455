// Tests of core/src/lights/barndoor.cpp: the "barndoor" light filter.
#include "filter_tools.h"

using namespace filter_tools;

class Barndoors : public Filtered {
protected:
    void SetUp() override
    {
        Filtered::SetUp();
        doors = named("barndoor", "doors");
    }
    void set(const char* param, float value)
    {
        RvNodeSetFlt(doors, (std::string("barndoor_") + param).c_str(), value);
    }
    void setBoth(const char* side, const char* start, const char* end, float value)
    {
        set((std::string(side) + "_" + start).c_str(), value);
        set((std::string(side) + "_" + end).c_str(), value);
    }
    // The shadow at a place of the image of a spot light.
    float shadowAt(float u, float v)
    {
        if (!light_node) {
            light_node = lamp();
            updateLight(light_node);
        }
        RtShaderGlobals sg = litBy(light_node);
        sg.u = u;
        sg.v = v;
        sg.light_shadow = { 0.3f, 0.6f, 0.9f };
        RvShaderEvaluate(doors, &sg);
        EXPECT_EQ(sg.light_shadow.r, sg.light_shadow.g);
        EXPECT_EQ(sg.light_shadow.r, sg.light_shadow.b);
        EXPECT_EQ(text(sg.light_unoccluded), "1 1 1");
        return sg.light_shadow.r;
    }

    RtNode* doors = nullptr;
    RtNode* light_node = nullptr;
};

TEST_F(Barndoors, shadows_agree_with_the_golden_vectors)
{
    for (const auto& v : goldenVectors("lights", "barndoor")) {
        for (const auto& [name, value] : v["in"]["params"].items())
            set(name.c_str(), goldenFloat(value));
        const float shadow = shadowAt(goldenFloat(v["in"]["u"]), goldenFloat(v["in"]["v"]));
        expectGoldenNumbers(v, "light_shadow", { shadow, shadow, shadow });
    }
}

TEST_F(Barndoors, doors_that_are_linked_to_what_is_no_number_cast_a_shadow_that_is_one)
{
    const RtNodeEntry* const entry = doors->entry;
    for (float value : { INFINITY, -INFINITY, std::nanf("") }) {
        RtNode* const source = shader_tools::floatShader("odd", value);
        for (unsigned i = 0; i < entry->own_param_count; ++i) {
            const char* const param = entry->params[i].name;
            RvNodeLink(source, param, doors);
            for (float x : { 0.0f, 0.5f, 1.0f }) {
                const float shadow = shadowAt(x, 1 - x);
                EXPECT_TRUE(shadow >= 0 && shadow <= 1) << param << " " << value << " " << x;
            }
            RvNodeUnlink(doors, param);
        }
    }
    // Beside an edge without end a door is nowhere closed.
    setBoth("left", "top", "bottom", 0.5f);
    EXPECT_EQ(shadowAt(0.25f, 0.5f), 1);
    RvNodeLink(shader_tools::floatShader("endless", INFINITY), "barndoor_left_edge", doors);
    EXPECT_EQ(shadowAt(0.25f, 0.5f), 0);
}

TEST_F(Barndoors, with_default_values_all_of_the_image_is_lit)
{
    setFilters(lamp(), { doors });
    prepare();
    int lit = 0;
    for (int x = -9; x <= 9; ++x)
        for (int y = -9; y <= 9; ++y) {
            if (x * x + y * y == 100) // on the rim
                continue;
            const auto all = samples({ float(x), float(y), 0 });
            EXPECT_EQ(all.size(), x * x + y * y < 100 ? 1u : 0u) << x << " " << y;
            for (const Sample& one : all) {
                EXPECT_EQ(text(one.shadow), "0 0 0") << x << " " << y;
                EXPECT_EQ(text(one.radiance), "1 1 1") << x << " " << y;
                ++lit;
            }
        }
    EXPECT_GT(lit, 200);
}

TEST_F(Barndoors, the_left_door_darkens_the_left_half_of_the_floor)
{
    setBoth("left", "top", "bottom", 0.5f);
    set("left_edge", 0.1f);
    setFilters(lamp(), { doors });
    prepare();
    const struct {
        float u, light;
    } rows[] = { { 0.2f, 0 },       { 0.39f, 0 }, { 0.425f, 0.25f }, { 0.45f, 0.5f },
                 { 0.475f, 0.75f }, { 0.51f, 1 }, { 0.8f, 1 } };
    for (const auto& row : rows)
        for (float v : { 0.25f, 0.5f, 0.7f }) {
            const auto all = samples(onFloor(row.u, v));
            EXPECT_NEAR(all.empty() ? 0 : all[0].radiance.g, row.light, 1e-4) << row.u << " " << v;
        }
}

TEST_F(Barndoors, each_door_closes_its_own_side)
{
    const struct {
        const char *side, *start, *end;
        float edge, shut_u, shut_v, open_u, open_v;
    } rows[] = {
        { "left", "top", "bottom", 0.3f, 0.2f, 0.5f, 0.4f, 0.5f },
        { "right", "top", "bottom", 0.7f, 0.8f, 0.5f, 0.6f, 0.5f },
        { "top", "left", "right", 0.3f, 0.5f, 0.2f, 0.5f, 0.4f },
        { "bottom", "left", "right", 0.7f, 0.5f, 0.8f, 0.5f, 0.6f },
    };
    for (const auto& row : rows) {
        doors = named("barndoor", row.side);
        setBoth(row.side, row.start, row.end, row.edge);
        EXPECT_EQ(shadowAt(row.shut_u, row.shut_v), 1) << row.side;
        EXPECT_EQ(shadowAt(row.open_u, row.open_v), 0) << row.side;
    }
}

TEST_F(Barndoors, a_slanted_door_follows_the_line_between_its_ends)
{
    set("top_right", 0.8f); // from the upper left corner downwards
    for (float u : { 0.2f, 0.5f, 0.9f }) {
        EXPECT_EQ(shadowAt(u, 0.8f * u - 0.01f), 1) << u;
        EXPECT_EQ(shadowAt(u, 0.8f * u + 0.01f), 0) << u;
    }
    doors = named("barndoor", "other doors");
    set("left_bottom", 0.4f); // from the upper left corner to the right
    for (float v : { 0.2f, 0.5f, 0.9f }) {
        EXPECT_EQ(shadowAt(0.4f * v - 0.01f, v), 1) << v;
        EXPECT_EQ(shadowAt(0.4f * v + 0.01f, v), 0) << v;
    }
}

TEST_F(Barndoors, doors_that_overlap_multiply_what_they_let_through)
{
    setBoth("left", "top", "bottom", 0.5f);
    setBoth("bottom", "left", "right", 0.4f);
    set("left_edge", 0.2f);
    set("bottom_edge", 0.2f);
    EXPECT_NEAR(shadowAt(0.4f, 0.5f), 1 - 0.5 * 0.5, 1e-5);
    EXPECT_NEAR(shadowAt(0.45f, 0.45f), 1 - 0.75 * 0.75, 1e-5);
}

TEST_F(Barndoors, edges_of_any_width_are_survived)
{
    for (float width : { 0.0f, -0.5f, 1e-30f, 1e30f, -1e30f })
        for (const char* edge : { "left_edge", "right_edge", "top_edge", "bottom_edge" }) {
            doors = named("barndoor", "extreme");
            set(edge, width);
            for (float u : { 0.0f, 0.5f, 1.0f }) {
                const float shadow = shadowAt(u, 0.5f);
                EXPECT_TRUE(shadow >= 0 && shadow <= 1) << edge << " " << width << " " << u;
            }
        }
}

TEST_F(Barndoors, deliberately_replace_the_shadow_of_filters_before_them)
{
    RtNode* const blocker = named("light_blocker", "blocker");
    RvNodeSetStr(blocker, "geometry_type", "sphere");
    RvNodeSetFlt(blocker, "density", 1); // dense at the origin
    RtNode* const node = lamp();
    const struct {
        const char* name;
        std::vector<RtNode*> filters;
        size_t lit;
    } rows[] = { { "blocker", { blocker }, 0 },
                 { "then doors", { blocker, doors }, 1 },
                 { "doors first", { doors, blocker }, 0 } };
    for (const auto& row : rows) {
        setFilters(node, row.filters);
        prepare();
        updateLight(node);
        EXPECT_EQ(samples().size(), row.lit) << row.name;
    }
}

TEST_F(Barndoors, parameters_may_be_linked)
{
    RtNode* const half = shader_tools::floatShader("half", 0.5f);
    RvNodeLink(half, "barndoor_left_top", doors);
    RvNodeLink(half, "barndoor_left_bottom", doors);
    EXPECT_EQ(shadowAt(0.45f, 0.3f), 1);
    EXPECT_EQ(shadowAt(0.55f, 0.3f), 0);
}

TEST_F(Barndoors, without_a_light_nothing_happens)
{
    RtShaderGlobals sg = litBy(nullptr);
    sg.light_shadow = { 0.3f, 0.6f, 0.9f };
    RvShaderEvaluate(doors, &sg);
    EXPECT_EQ(text(sg.light_shadow), "0.300000012 0.600000024 0.899999976");
    EXPECT_EQ(takeProblem(), "");
}

// In a process of its own, because the warning is given once in a process.
TEST_F(Barndoors, on_other_lights_they_warn_once_in_the_process_and_change_nothing)
{
    const auto act = [this] {
        RtNode* const others = named("barndoor", "others");
        setBoth("left", "top", "bottom", 2); // shut
        setFilters(pointLight({ 0, 0, 5 }, 0, "bulb"), { doors, others });
        setFilters(named("distant_light", "sun"), { others, doors });
        prepare();
        std::string got = takeProblem() + "|";
        for (const Sample& one : samples())
            got += text(one.radiance) + ", ";
        got += takeProblem() + "|";
        startAnew(); // another universe of the same process
        setFilters(pointLight({ 0, 0, 5 }), { named("barndoor", "more doors") });
        prepare();
        got += text(samples().at(0).radiance) + takeProblem();
        fprintf(stderr, "got %s.", got.c_str());
        _exit(0);
    };
    EXPECT_EXIT(act(), ::testing::ExitedWithCode(0),
                "got \\|1 1 1, 1 1 1, \\[barndoor\\] `doors' hooked up to non-spotlight node "
                "`bulb'\\|1 1 1\\.");
}
