// Tests of core/src/lights/gobo.cpp: the "gobo" light filter.
#include "filter_tools.h"

using namespace filter_tools;
using shader_tools::floatShader;
using shader_tools::rgbShader;
using shader_tools::shader;

class Gobos : public Filtered {
protected:
    void SetUp() override
    {
        Filtered::SetUp();
        gobo = named("gobo", "gobo");
        spot = lamp();
        updateLight(spot);
    }

    void setRotation(float degrees)
    {
        RvNodeSetArray(gobo, "rotate", RvArray(1, 1, RV_TYPE_FLOAT, double(degrees)));
    }
    void setWraps(const char* s, const char* t)
    {
        RvNodeSetStr(gobo, "wrap_s", s);
        RvNodeSetStr(gobo, "wrap_t", t);
    }
    // A slide that remembers the contexts it was looked up in.
    void watchSlide()
    {
        RtNode* const slide = shader("slide", RV_TYPE_RGB, [this](RtNode*, RtShaderGlobals* sg) {
            lookups.push_back(*sg);
            sg->out.RGB = { 0.5f, 0.25f, 0.125f };
        });
        RvNodeLink(slide, "slidemap", gobo);
    }
    static std::string coordinates(const RtShaderGlobals& sg)
    {
        return node_tools::numbers({ sg.u, sg.v, sg.dudx, sg.dudy, sg.dvdx, sg.dvdy });
    }
    // Light of that colour after the filter.
    RtRGB filtered(const RtRGB& light = RV_RGB_WHITE)
    {
        RtShaderGlobals sg = litBy(spot);
        sg.light_unoccluded = light;
        RvShaderEvaluate(gobo, &sg);
        EXPECT_EQ(text(sg.light_shadow), "0 0 0");
        return sg.light_unoccluded;
    }
    // Where the slide is looked up for a place of the image.
    RtPoint2 onSlide(float u, float v)
    {
        RtShaderGlobals sg = litBy(spot);
        sg.u = u;
        sg.v = v;
        lookups.clear();
        RvShaderEvaluate(gobo, &sg);
        if (lookups.size() != 1)
            return { -99, -99 };
        return { lookups[0].u, lookups[0].v };
    }

    RtNode* gobo = nullptr;
    RtNode* spot = nullptr;
    std::vector<RtShaderGlobals> lookups;
};

// ---- Where the slide is looked up ----

TEST_F(Gobos, coordinates_agree_with_the_golden_vectors)
{
    watchSlide();
    for (const auto& v : goldenVectors("lights", "gobo_coordinates")) {
        const auto& in = v["in"];
        setRotation(goldenFloat(in["rotate"]));
        const auto offset = goldenFloats(in["offset"]);
        RvNodeSetPnt2(gobo, "offset", offset[0], offset[1]);
        RvNodeSetFlt(gobo, "scale_s", goldenFloat(in["scale_s"]));
        RvNodeSetFlt(gobo, "scale_t", goldenFloat(in["scale_t"]));
        setWraps(in["wrap_s"].get<std::string>().c_str(), in["wrap_t"].get<std::string>().c_str());
        RtShaderGlobals sg = litBy(spot);
        sg.u = goldenFloat(in["u"]);
        sg.v = goldenFloat(in["v"]);
        const auto du = goldenFloats(in["du"]), dv = goldenFloats(in["dv"]);
        sg.dudx = du[0];
        sg.dudy = du[1];
        sg.dvdx = dv[0];
        sg.dvdy = dv[1];
        lookups.clear();
        RvShaderEvaluate(gobo, &sg);
        expectGolden(v, "black", lookups.empty());
        if (lookups.empty()) {
            EXPECT_EQ(text(sg.light_unoccluded), "0 0 0") << goldenId(v);
            continue;
        }
        const RtShaderGlobals& at = lookups[0];
        expectGoldenNumbers(v, "s", { at.u });
        expectGoldenNumbers(v, "t", { at.v });
        expectGoldenNumbers(v, "ds", { at.dudx, at.dudy });
        expectGoldenNumbers(v, "dt", { at.dvdx, at.dvdy });
    }
}

TEST_F(Gobos, derivatives_agree_with_differences)
{
    watchSlide();
    setRotation(33);
    RvNodeSetFlt(gobo, "scale_s", 1.5f);
    RvNodeSetFlt(gobo, "scale_t", -0.75f);
    RvNodeSetPnt2(gobo, "offset", 0.1f, 0.2f);
    setWraps("mirror", "file"); // no jumps
    const RtPoint2 here = onSlide(0.3f, 0.6f);
    constexpr float h = 1e-3f;
    const RtPoint2 along_x = onSlide(0.3f + 2 * h, 0.6f + 3 * h);
    const RtPoint2 along_y = onSlide(0.3f - 4 * h, 0.6f + 5 * h);
    RtShaderGlobals sg = litBy(spot);
    sg.u = 0.3f;
    sg.v = 0.6f;
    sg.dudx = 2;
    sg.dvdx = 3;
    sg.dudy = -4;
    sg.dvdy = 5;
    lookups.clear();
    RvShaderEvaluate(gobo, &sg);
    const RtShaderGlobals& at = lookups.at(0);
    EXPECT_NEAR(at.dudx, (along_x.x - here.x) / h, 1e-2);
    EXPECT_NEAR(at.dvdx, (along_x.y - here.y) / h, 1e-2);
    EXPECT_NEAR(at.dudy, (along_y.x - here.x) / h, 1e-2);
    EXPECT_NEAR(at.dvdy, (along_y.y - here.y) / h, 1e-2);
}

TEST_F(Gobos, everything_in_the_context_is_restored)
{
    watchSlide();
    setRotation(45);
    RtShaderGlobals sg = litBy(spot);
    sg.u = 0.1f;
    sg.v = 0.2f;
    sg.dudx = 3;
    sg.dudy = 4;
    sg.dvdx = 5;
    sg.dvdy = 6;
    sg.out.RGBA = { 1, 2, 3, 4 };
    const std::string before = coordinates(sg);
    RvShaderEvaluate(gobo, &sg);
    ASSERT_EQ(lookups.size(), 1u);
    EXPECT_NE(coordinates(lookups[0]), before);
    EXPECT_EQ(coordinates(sg), before);
    EXPECT_EQ(node_tools::describe(sg.out.RGBA), "1 2 3 4");
    EXPECT_EQ(sg.shader, nullptr);
}

TEST_F(Gobos, wraps_bring_coordinates_back)
{
    watchSlide();
    RvNodeSetFlt(gobo, "scale_s", 4); // s = 4 u - 1.5, t = 2.5 - 4 v
    RvNodeSetFlt(gobo, "scale_t", 4);
    const struct {
        const char* mode;
        float u, s, v, t; // -99 where the slide is not looked up
    } rows[] = {
        { "periodic", 0.125f, 0, 0.75f, 0.5f },  { "periodic", 0.75f, 0.5f, 0.25f, 0.5f },
        { "periodic", 0.5f, 0.5f, 0.5f, 0.5f },  { "black", 0.125f, -99, 0.5f, -99 },
        { "black", 0.5f, -99, 0.75f, -99 },      { "black", 0.5f, 0.5f, 0.375f, 1 },
        { "clamp", 0.125f, 0, 0.75f, 0 },        { "clamp", 0.75f, 1, 0.25f, 1 },
        { "clamp", 0.5625f, 0.75f, 0.5f, 0.5f },
    };
    for (const auto& row : rows) {
        setWraps(row.mode, row.mode);
        const RtPoint2 at = onSlide(row.u, row.v);
        EXPECT_FLOAT_EQ(at.x, row.s) << row.mode << " " << row.u;
        EXPECT_FLOAT_EQ(at.y, row.t) << row.mode << " " << row.v;
    }
}

TEST_F(Gobos, each_coordinate_has_a_wrap_of_its_own)
{
    watchSlide();
    RvNodeSetFlt(gobo, "scale_s", 4);
    RvNodeSetFlt(gobo, "scale_t", 4);
    setWraps("clamp", "periodic");
    EXPECT_EQ(node_tools::describe(onSlide(0.75f, 0.25f)), "1 0.5");
    setWraps("periodic", "clamp");
    EXPECT_EQ(node_tools::describe(onSlide(0.75f, 0.25f)), "0.5 1");
    setWraps("black", "clamp");
    EXPECT_EQ(onSlide(0.75f, 0.5f).x, -99);
    EXPECT_EQ(node_tools::describe(onSlide(0.5f, 0.25f)), "0.5 1");
}

TEST_F(Gobos, mirror_and_file_deliberately_leave_coordinates_to_the_slide)
{
    watchSlide();
    RvNodeSetFlt(gobo, "scale_s", 4);
    RvNodeSetFlt(gobo, "scale_t", 4);
    for (const char* mode : { "mirror", "file" }) {
        setWraps(mode, mode);
        EXPECT_EQ(node_tools::describe(onSlide(0.75f, 0.25f)), "1.5 1.5") << mode;
        EXPECT_EQ(node_tools::describe(onSlide(0.25f, 0.75f)), "-0.5 -0.5") << mode;
    }
}

TEST_F(Gobos, only_the_first_rotation_counts_and_none_turns_nothing)
{
    watchSlide();
    RvNodeSetArray(gobo, "rotate", RvArray(2, 1, RV_TYPE_FLOAT, 90.0, 45.0));
    const RtPoint2 turned = onSlide(0.75f, 0.5f);
    EXPECT_NEAR(turned.x, 0.5f, 1e-6);
    EXPECT_NEAR(turned.y, 0.25f, 1e-6);
    RvNodeSetArray(gobo, "rotate", RvArrayAllocate(0, 1, RV_TYPE_FLOAT));
    EXPECT_EQ(node_tools::describe(onSlide(0.75f, 0.5f)), "0.75 0.5");
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Gobos, a_scale_of_zero_shows_one_column_of_the_slide)
{
    watchSlide();
    RvNodeSetFlt(gobo, "scale_s", 0);
    for (float u : { 0.1f, 0.5f, 0.9f })
        EXPECT_EQ(onSlide(u, 0.25f).x, 0.5f) << u;
}

// ---- What the slide does to the light ----

TEST_F(Gobos, combinations_agree_with_the_golden_vectors)
{
    for (const auto& v : goldenVectors("lights", "gobo_combine")) {
        const auto& in = v["in"];
        const auto slide = goldenFloats(in["S"]), light = goldenFloats(in["L"]);
        RvNodeSetRGB(gobo, "slidemap", slide[0], slide[1], slide[2]);
        RvNodeSetFlt(gobo, "density", goldenFloat(in["density"]));
        RvNodeSetStr(gobo, "filter_mode", in["filter_mode"].get<std::string>().c_str());
        const RtRGB got = filtered({ light[0], light[1], light[2] });
        expectGoldenNumbers(v, "light_unoccluded", { got.r, got.g, got.b });
    }
}

TEST_F(Gobos, modes_combine_slide_and_light)
{
    const struct {
        const char* mode;
        float density;
        const char* light; // of light (1, 2, 4) and slide (0.5, 0.25, 2)
    } rows[] = {
        { "blend", 0, "0.5 0.5 8" },
        { "blend", 0.5f, "0.25 0.25 4" },
        { "blend", 1, "0 0 0" },
        { "replace", 0, "0.5 0.25 2" },
        { "replace", 0.5f, "0.25 0.125 1" },
        { "replace", 1, "0 0 0" },
        { "add", 0, "1.5 2.25 6" },
        { "add", 1, "1 2 4" },
        { "sub", 0, "0.5 1.75 2" },
        { "sub", 1, "1 2 4" },
        { "mix", 0, "1 2 4" },
        { "mix", 0.5f, "0.75 1.25 6" },
        { "mix", 1, "0.5 0.5 8" },
    };
    RvNodeSetRGB(gobo, "slidemap", 0.5f, 0.25f, 2);
    for (const auto& row : rows) {
        RvNodeSetStr(gobo, "filter_mode", row.mode);
        RvNodeSetFlt(gobo, "density", row.density);
        EXPECT_EQ(text(filtered({ 1, 2, 4 })), row.light) << row.mode << " " << row.density;
    }
}

TEST_F(Gobos, a_gobo_without_a_slide_projects_its_colour)
{
    RvNodeSetRGB(gobo, "slidemap", 0.5f, 0.25f, 0);
    setFilters(spot, { gobo });
    prepare();
    EXPECT_EQ(takeProblem(), "gobo: no slidemap provided!");
    EXPECT_EQ(text(samples().at(0).radiance), "0.5 0.25 0");
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Gobos, the_slide_appears_upright_on_the_floor)
{
    // Red grows to the right, green upwards.
    RtNode* const slide = shader("slide", RV_TYPE_RGB, [](RtNode*, RtShaderGlobals* sg) {
        sg->out.RGB = { sg->u, sg->v, 0.5f };
    });
    RvNodeLink(slide, "slidemap", gobo);
    setFilters(spot, { gobo });
    prepare();
    for (float u : { 0.2f, 0.5f, 0.75f })
        for (float v : { 0.25f, 0.5f, 0.8f }) {
            const auto all = samples(onFloor(u, v));
            ASSERT_EQ(all.size(), 1u);
            EXPECT_NEAR(all[0].radiance.r, u, 1e-5);
            EXPECT_NEAR(all[0].radiance.g, 1 - v, 1e-5);
            EXPECT_EQ(all[0].radiance.b, 0.5f);
        }
}

TEST_F(Gobos, slides_of_other_types_are_converted)
{
    RvNodeLink(floatShader("grey", 0.25f), "slidemap", gobo);
    EXPECT_EQ(text(filtered()), "0.25 0.25 0.25");
    RvNodeUnlink(gobo, "slidemap");
    RvNodeSetRGB(gobo, "slidemap", 0.5f, 0.5f, 0.5f);
    RvNodeLink(floatShader("green", 0.75f), "slidemap.g", gobo);
    EXPECT_EQ(text(filtered()), "0.5 0.75 0.5");
    updateNode(gobo);
    EXPECT_EQ(takeProblem(), "") << "a component is a slide, too";
}

TEST_F(Gobos, parameters_may_be_linked)
{
    RvNodeSetRGB(gobo, "slidemap", 0.5f, 0.5f, 0.5f);
    RvNodeLink(floatShader("half", 0.5f), "density", gobo);
    EXPECT_EQ(text(filtered()), "0.25 0.25 0.25");
}

// ---- Slides that lead back ----

TEST_F(Gobos, a_slide_that_is_lit_by_the_light_itself_is_black)
{
    RtNode* const lambert = named("lambert", "lambert");
    RvNodeLink(lambert, "slidemap", gobo);
    setFilters(spot, { gobo });
    prepare();
    EXPECT_EQ(samples().size(), 0u);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Gobos, slides_in_a_circle_end)
{
    RtNode* const a = named("lambert", "a");
    RtNode* const b = named("lambert", "b");
    RvNodeLink(a, "Kd_color", b);
    RvNodeLink(b, "Kd_color", a);
    RvNodeLink(a, "slidemap", gobo);
    setFilters(spot, { gobo, gobo });
    prepare();
    samples();
    EXPECT_EQ(takeProblem(), "a: shader leads back to itself and is not evaluated again");
}

// ---- Messages ----

TEST_F(Gobos, updates_report_what_is_missing)
{
    const struct {
        const char* name;
        float scale_s, scale_t;
        bool is_linked;
        const char* problem;
    } rows[] = {
        { "nothing", 1, -1, true, "" },
        { "s", 0, 1, true, "gobo: a scale factor is zero!" },
        { "t", 1, 0, true, "gobo: a scale factor is zero!" },
        { "both", 0, 0, true, "gobo: a scale factor is zero!" },
        { "slide", 1, 1, false, "gobo: no slidemap provided!" },
    };
    RtNode* const slide = rgbShader("slide", RV_RGB_WHITE);
    for (const auto& row : rows) {
        RvNodeSetFlt(gobo, "scale_s", row.scale_s);
        RvNodeSetFlt(gobo, "scale_t", row.scale_t);
        RvNodeUnlink(gobo, "slidemap");
        if (row.is_linked)
            RvNodeLink(slide, "slidemap", gobo);
        updateNode(gobo);
        EXPECT_EQ(takeProblem(), row.problem) << row.name;
    }
    // A component that was linked for a while.
    RvNodeLink(floatShader("red", 1), "slidemap.r", gobo);
    RvNodeUnlink(gobo, "slidemap.r");
    updateNode(gobo);
    EXPECT_EQ(takeProblem(), "gobo: no slidemap provided!");
    RvNodeLink(floatShader("green", 1), "slidemap.g", gobo);
    updateNode(gobo);
    EXPECT_EQ(takeProblem(), "");
    RvNodeUnlink(gobo, "slidemap");
    RvNodeSetFlt(gobo, "scale_t", 0);
    updateNode(gobo);
    EXPECT_EQ(takeProblems(),
              (Names{ "gobo: a scale factor is zero!", "gobo: no slidemap provided!" }));
}

TEST_F(Gobos, on_other_lights_each_gobo_warns_once_between_updates)
{
    RtNode* const bulb = pointLight({ 0, 0, 5 }, 0, "bulb");
    RtNode* const sun = named("distant_light", "sun");
    RtNode* const other = named("gobo", "other");
    RtNode* const black = rgbShader("black", RV_RGB_BLACK);
    for (RtNode* node : { gobo, other })
        RvNodeLink(black, "slidemap", node);
    setFilters(bulb, { gobo });
    setFilters(sun, { other, gobo });
    for (int update = 0; update < 2; ++update) {
        prepare();
        updateNode(gobo);
        updateNode(other);
        ASSERT_EQ(takeProblem(), "");
        for (int i = 0; i < 2; ++i)
            EXPECT_EQ(samples().size(), 3u) << "the light is unchanged";
        EXPECT_EQ(takeProblems(), (Names{ "Gobo `gobo' hooked up to non-spotlight node `bulb'",
                                          "Gobo `other' hooked up to non-spotlight node `sun'" }));
    }
}

TEST_F(Gobos, without_a_light_nothing_happens)
{
    updateNode(gobo);
    takeProblems();
    RtShaderGlobals sg = litBy(nullptr);
    RvShaderEvaluate(gobo, &sg);
    EXPECT_EQ(text(sg.light_unoccluded), "1 1 1");
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Gobos, without_memory_a_gobo_works_but_does_not_warn)
{
    RtNode* const bulb = pointLight({ 0, 0, 5 }, 0, "bulb");
    RvNodeSetRGB(gobo, "slidemap", 0.5f, 0.5f, 0.5f);
    {
        const node_tools::AllocationLimit limit(0);
        updateNode(gobo);
    }
    const auto problems = takeProblems();
    ASSERT_EQ(problems.size(), 2u);
    EXPECT_TRUE(node_tools::reportsFailure(problems[0], "core\\src\\lights\\gobo", "Initialize"))
        << problems[0];
    EXPECT_EQ(text(filtered()), "0.5 0.5 0.5");
    spot = bulb;
    updateLight(bulb);
    EXPECT_EQ(text(filtered()), "1 1 1");
    EXPECT_EQ(takeProblem(), "");
}
