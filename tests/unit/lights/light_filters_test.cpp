// Light filters on every type of light, and lists of filters that no sensible scene has.
#include "filter_tools.h"

using namespace filter_tools;

class LightFilters : public Filtered {
protected:
    // A light of that name with samples at the origin.
    RtNode* lightNamed(const std::string& name)
    {
        if (name == "point" || name == "ball") {
            RtNode* const node = pointLight({ 0, 0, 4 }, name == "ball" ? 1.0f : 0.0f);
            return node;
        }
        if (name == "distant" || name == "sun")
            return distantLight({ 0, 0, -1 }, name == "sun" ? 10.0f : 0.0f);
        if (name == "skydome")
            return light("skydome_light");
        if (name == "quad") {
            RtNode* const node = light("quad_light");
            RtMatrix matrix;
            const RtVector offset = { 0, 0, 4 };
            RvM4Translation(&matrix, &offset);
            RvNodeSetArray(node, "matrix", RvArray(1, 1, RV_TYPE_MATRIX, &matrix));
            return node;
        }
        RtNode* const node = lamp();
        RvNodeSetFlt(node, "radius", name == "disk" ? 1.0f : 0.0f);
        return node;
    }
    static RtNode* decay(const char* name, const char* type)
    {
        RtNode* const node = named("light_decay", name);
        RvNodeSetStr(node, "decay_type", type);
        return node;
    }
};

TEST_F(LightFilters, every_type_of_light_runs_its_filters_in_order)
{
    for (const char* name :
         { "point", "ball", "distant", "sun", "spot", "disk", "quad", "skydome" }) {
        std::string order;
        const auto filter = [&order](const char* filter_name, float factor) {
            return shader_tools::shader(filter_name, RV_TYPE_NONE,
                                        [&order, factor](RtNode* node, RtShaderGlobals* sg) {
                                            order += RvNodeGetName(node);
                                            sg->light_unoccluded = sg->light_unoccluded * factor;
                                            sg->light_shadow = { 0.5f, 0.5f, 0.5f };
                                            sg->out.RGBA = { 9, 9, 9, 9 };
                                        });
        };
        RtNode* const light = lightNamed(name);
        RvNodeSetBool(light, "cast_shadows", false);
        prepare();
        RtShaderGlobals plain = surface();
        plain.front_hemisphere_only = 0;
        const auto before = samplesAt(plain);
        ASSERT_EQ(before.size(), 1u) << name;
        setFilters(light, { filter("a", 0.5f), filter("b", 0.5f) });
        prepare();
        RtShaderGlobals sg = surface();
        sg.front_hemisphere_only = 0;
        sg.out.RGB = { 1, 2, 3 };
        const auto all = samplesAt(sg);
        ASSERT_EQ(all.size(), 1u) << name;
        EXPECT_EQ(text(all[0].unoccluded), text(before[0].radiance * 0.25f)) << name;
        EXPECT_EQ(text(all[0].radiance), text(before[0].radiance * 0.125f)) << name;
        if (name != std::string("quad")) { // whose brightness depends on the place
            EXPECT_EQ(text(all[0].unoccluded), "0.25 0.25 0.25") << name;
        }
        EXPECT_EQ(text(sg.out.RGB), "1 2 3") << name;
        EXPECT_EQ(order, "ab") << name;
        startAnew();
    }
}

TEST_F(LightFilters, filters_also_see_the_samples_of_a_brdf)
{
    for (const char* name : { "ball", "disk", "quad" }) {
        RtNode* const light = lightNamed(name);
        setFilters(light, { decay("decay", "quadratic") });
        prepare();
        RtShaderGlobals sg = surface();
        RvLightsPrepare(&sg);
        ASSERT_TRUE(RvLightsGetSample(&sg)) << name;
        const RtLightMIS from_light = sg.state->lights.mis;
        RtRay ray = {};
        ray.dir = sg.light_dir;
        const auto* const methods = static_cast<const RtLightMethods*>(light->entry->kind_methods);
        ASSERT_TRUE(methods->LightIntersect(light, &sg, &ray)) << name;
        EXPECT_GT(from_light.radiance.g, 0) << name;
        // The distances to a slanted direction differ a little.
        EXPECT_NEAR(sg.state->lights.mis.radiance.g / from_light.radiance.g, 1, 0.1) << name;
        startAnew();
    }
}

TEST_F(LightFilters, filters_of_spots_change_nothing_on_other_lights)
{
    for (const char* name : { "point", "ball", "distant", "sun", "quad", "skydome" }) {
        RtNode* const light = lightNamed(name);
        RvNodeSetBool(light, "cast_shadows", false);
        prepare();
        RtShaderGlobals plain = surface();
        plain.front_hemisphere_only = 0;
        const auto before = samplesAt(plain);
        ASSERT_EQ(before.size(), 1u) << name;
        RtNode* const doors = named("barndoor", "doors"); // shut
        RvNodeSetFlt(doors, "barndoor_left_top", 2);
        RvNodeSetFlt(doors, "barndoor_left_bottom", 2);
        RtNode* const slide = named("gobo", "slide"); // black
        RvNodeSetRGB(slide, "slidemap", 0, 0, 0);
        setFilters(light, { doors, slide });
        prepare();
        messages().clear();
        RtShaderGlobals sg = surface();
        sg.front_hemisphere_only = 0;
        const auto all = samplesAt(sg);
        ASSERT_EQ(all.size(), 1u) << name;
        EXPECT_EQ(text(all[0].radiance), text(before[0].radiance)) << name;
        EXPECT_EQ(text(all[0].shadow), text(before[0].shadow)) << name;
        Names warnings; // doors warn once in a process, which may have been before
        for (const std::string& problem : takeProblems())
            if (problem.find("doors") == std::string::npos)
                warnings.push_back(problem);
        EXPECT_EQ(warnings, Names{ "Gobo `slide' hooked up to non-spotlight node `light'" });
        startAnew();
    }
}

TEST_F(LightFilters, several_decays_multiply)
{
    RtNode* const light = pointLight({ 0, 0, 4 });
    setFilters(light, { decay("one", "linear"), decay("two", "quadratic") });
    prepare();
    EXPECT_EQ(text(samples().at(0).radiance), "0.015625 0.015625 0.015625");
}

TEST_F(LightFilters, decay_near_a_light_that_is_switched_off_there_stays_black)
{
    RtNode* const filter = decay("decay", "cubic");
    RvNodeSetBool(filter, "use_near_atten", true);
    RvNodeSetFlt(filter, "near_start", 1);
    RvNodeSetFlt(filter, "near_end", 2);
    setFilters(pointLight({ 0, 0, 0 }), { filter });
    prepare();
    RtShaderGlobals sg = litBy(RvNodeLookUpByName("light"));
    sg.light_dist = 1e-30f; // where the falloff is infinite
    RvShaderEvaluate(filter, &sg);
    EXPECT_EQ(text(sg.light_unoccluded), "0 0 0");
}

TEST_F(LightFilters, a_light_that_filters_itself_shines_as_ever)
{
    RtNode* const light = pointLight({ 0, 0, 4 });
    RtNode* const wall = disc("wall", -3);
    setFilters(light, { light, wall, options(), nullptr, light });
    prepare();
    EXPECT_EQ(takeProblem(), "[point_light] light is missing light-filter 3");
    EXPECT_EQ(text(samples().at(0).radiance), "1 1 1");
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(LightFilters, a_surface_shader_among_the_filters_lights_nothing_anew)
{
    RtNode* const light = pointLight({ 0, 0, 4 });
    setFilters(light, { named("lambert", "lambert"), named("standard", "standard") });
    prepare();
    EXPECT_EQ(text(samples().at(0).radiance), "1 1 1");
}

TEST_F(LightFilters, filters_that_lead_back_to_themselves_end)
{
    RtNode* const filter = decay("decay", "linear");
    RtNode* const a = named("lambert", "a");
    RtNode* const b = named("lambert", "b");
    RvNodeLink(a, "Kd", b);
    RvNodeLink(b, "Kd", a);
    RvNodeLink(a, "decay_radius", filter);
    RvNodeLink(b, "@before", filter);
    setFilters(pointLight({ 0, 0, 4 }), { filter, filter });
    prepare();
    samples();
    EXPECT_EQ(takeProblem(), "b: shader leads back to itself and is not evaluated again");
}

TEST_F(LightFilters, filters_in_volumes_see_the_projection_too)
{
    RtNode* const doors = named("barndoor", "doors");
    RvNodeSetFlt(doors, "barndoor_left_top", 0.5f);
    RvNodeSetFlt(doors, "barndoor_left_bottom", 0.5f);
    setFilters(lamp(), { doors });
    prepare();
    for (float y : { 2.0f, -2.0f }) {
        RtShaderGlobals sg = surface({ 0, y, 3 });
        sg.stage = RV_STAGE_VOLUME;
        EXPECT_EQ(samplesAt(sg).size(), y > 0 ? 0u : 1u) << y;
    }
}
