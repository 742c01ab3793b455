// Tests of traces: what becomes of the shaded hits of a ray, and the atmosphere between them.
// Objects stand one behind the other on the z axis; rays come down from above.
#include "trace.h"

#include "array.h"
#include "trace_tools.h"

using namespace trace_tools;
using node_tools::describe;

namespace {

class TracedLayers : public Traced {
protected:
    static RtRGB rgbOf(const json& numbers)
    {
        const std::vector<float> v = goldenFloats(numbers);
        return { v.at(0), v.at(1), v.at(2) };
    }
    static std::vector<float> numbersOf(const RtRGB& c) { return { c.r, c.g, c.b }; }
};

} // namespace

// ---- Compositing ----

TEST_F(TracedLayers, hits_are_put_together_as_the_golden_vectors_say)
{
    for (const json& v : goldenVectors("tracing", "trace_composite")) {
        startAnew();
        const json& in = v.at("in");
        const json& hits = in.at("hits");
        for (size_t i = 0; i < hits.size(); ++i) {
            const std::string name = std::to_string(i);
            RvNodeSetBool(disc(name.c_str(), float(-int(i))), "opaque", in.at("opaque")[i]);
            const float alpha = goldenFloat(hits[i][2]);
            shading().looks[name] = { rgbOf(hits[i][0]), rgbOf(hits[i][1]), alpha,
                                      alpha < 0 ? RV_TYPE_RGB : RV_TYPE_RGBA };
        }
        set("auto_transparency_mode", in.at("auto_transparency_mode").get<std::string>().c_str());
        set("auto_transparency_depth", in.at("auto_transparency_depth").get<int>());
        set("auto_transparency_threshold", goldenFloat(in.at("auto_transparency_threshold")));
        setShader("background");
        const json& background = in.at("background");
        shading().background = { rgbOf(background.at("color")), rgbOf(background.at("opacity")),
                                 goldenFloat(background.at("alpha")), RV_TYPE_RGBA };
        prepare();
        const RtScrSample sample = traced(down());
        expectGoldenNumbers(v, "color", numbersOf(sample.color));
        expectGoldenNumbers(v, "opacity", numbersOf(sample.opacity));
        expectGoldenNumbers(v, "alpha", { sample.alpha });
        expectGolden(v, "background", !shading().background_contexts.empty());
        json first;
        if (sample.obj)
            first = std::stoi(RvNodeGetName(sample.obj));
        expectGolden(v, "first", first);
        EXPECT_EQ(sample.z, sample.obj ? 10.0 + first.get<int>() : 1e30) << goldenId(v);
        json kept = json::array(); // the shaded ones that are not clear; the mode keeps all
        const bool always = in.at("auto_transparency_mode") == "always";
        for (const RtShaderGlobals& sg : shading().contexts) {
            const int i = std::stoi(RvNodeGetName(sg.object));
            if (!always || describe(rgbOf(hits[size_t(i)][1])) != "0 0 0")
                kept.push_back(i);
        }
        expectGolden(v, "kept", kept);
    }
}

TEST_F(TracedLayers, outputs_of_every_type_become_a_colour)
{
    static const struct {
        int type;
        const char* color;
        float alpha;
    } cases[] = {
        { RV_TYPE_FLOAT, "0.5 0.5 0.5", 0.375f },  { RV_TYPE_RGB, "0.5 0.25 0.125", 0.375f },
        { RV_TYPE_RGBA, "0.5 0.25 0.125", 0.25f }, { RV_TYPE_VECTOR, "0 0 0", 0.375f },
        { RV_TYPE_NONE, "0 0 0", 0.375f },
    };
    glass("g", 0, { 0.25f, 0.25f, 0.625f });
    prepare();
    set("auto_transparency_mode", "never");
    for (const auto& c : cases) {
        Look& look = shading().looks["g"];
        look.color = { 0.5f, 0.25f, 0.125f };
        look.alpha = 0.25f;
        look.type = c.type;
        const RtScrSample sample = traced(down());
        EXPECT_EQ(describe(sample.color), c.color) << c.type;
        EXPECT_EQ(describe(sample.opacity), "0.25 0.25 0.625") << c.type;
        EXPECT_EQ(sample.alpha, c.alpha) << c.type;
    }
}

TEST_F(TracedLayers, an_alpha_that_is_none_is_replaced)
{
    glass("g", 0, { 0.5f, 0.5f, 0.5f });
    prepare();
    for (const bool always : { true, false }) {
        set("auto_transparency_mode", always ? "always" : "never");
        for (const float alpha : { -1.0f, -0.001f, NAN, INFINITY }) {
            shading().looks["g"].alpha = alpha;
            shading().looks["g"].type = RV_TYPE_RGBA;
            EXPECT_EQ(traced(down()).alpha, 0.5f) << alpha;
        }
        shading().looks["g"].alpha = 0.25f;
        EXPECT_EQ(traced(down()).alpha, always ? 0.125f : 0.25f);
        shading().looks["g"].alpha = 0;
        EXPECT_EQ(traced(down()).alpha, 0);
    }
}

TEST_F(TracedLayers, without_compositing_a_clear_object_is_still_the_hit)
{
    glass("clear", 1, { 0, 0, 0 });
    disc("wall", 0);
    shading().looks["clear"].color = { 0.5f, 0.5f, 0.5f };
    prepare();
    for (const char* mode : { "never", "shadow-only" }) {
        set("auto_transparency_mode", mode);
        const RtScrSample sample = traced(down());
        EXPECT_STREQ(RvNodeGetName(sample.obj), "clear") << mode;
        EXPECT_EQ(describe(sample.color), "0.5 0.5 0.5") << mode;
        EXPECT_EQ(describe(sample.opacity), "0 0 0") << mode;
        EXPECT_EQ(sample.alpha, 0) << mode;
    }
}

TEST_F(TracedLayers, clear_hits_are_skipped_until_the_last_that_counts)
{
    glass("clear", 2, { 0, 0, 0 });
    glass("nan", 1, { NAN, 0, 0 });
    glass("clear too", 0, { 0, 0, 0 });
    prepare();
    EXPECT_STREQ(RvNodeGetName(traced(down()).obj), "nan");
    set("auto_transparency_depth", 0);
    const RtScrSample sample = traced(down());
    EXPECT_STREQ(RvNodeGetName(sample.obj), "clear");
    EXPECT_EQ(describe(sample.opacity), "1 1 1");
}

TEST_F(TracedLayers, a_ray_through_clear_objects_alone_is_a_hit_that_shows_the_background)
{
    glass("clear", 2, { 0, 0, 0 });
    setShader("background");
    shading().background.color = { 0.25f, 0.5f, 0.75f };
    prepare();
    const RtRay ray = down();
    const RtScrSample sample = traced(ray);
    EXPECT_EQ(describe(sample.color), "0.25 0.5 0.75");
    EXPECT_EQ(sample.obj, nullptr);
    EXPECT_EQ(sample.z, ray.maxdist);
    EXPECT_EQ(sample.alpha, 1);
    ASSERT_EQ(shading().background_contexts.size(), 1u);
    EXPECT_EQ(describe(shading().background_contexts[0].ray_origin), "0 0 2");
    EXPECT_EQ(describe(ray.origin), "0 0 10");
}

TEST_F(TracedLayers, the_sample_tells_of_the_first_hit_that_counts)
{
    glass("clear", 5, { 0, 0, 0 });
    RtNode* const mesh = polygons(
        { { 0, 0, 3 }, { 1, 0, 3 }, { 1, 1, 3 }, { -1, -1, 3 }, { 1, -1, 3 }, { 0, 1, 3 } },
        { { 0, 1, 2 }, { 3, 4, 5 } });
    RvNodeSetBool(mesh, "opaque", false);
    shading().looks["m"].opacity = { 0.5f, 0.5f, 0.5f };
    disc("wall", 0);
    prepare();
    for (const char* mode : { "always", "never" }) {
        set("auto_transparency_mode", mode);
        RvNodeSetInt(RvNodeLookUpByName("clear"), "visibility", 0);
        RtRay ray = down();
        ray.origin.y = -0.5f;
        const RtScrSample sample = traced(ray);
        EXPECT_EQ(sample.obj, mesh) << mode;
        EXPECT_EQ(sample.z, 7) << mode;
        EXPECT_EQ(describe(sample.point), "0 -0.5 3") << mode;
        EXPECT_EQ(sample.face, 1u) << mode;
    }
}

TEST_F(TracedLayers, the_flag_of_the_instance_decides_whether_a_hit_is_opaque)
{
    RtNode* const object = disc("d", 0);
    RtNode* const instance = instanceOf(object, "i", shape_fixture::translation(5, 0, 0));
    RvNodeSetBool(instance, "opaque", false);
    shading().looks["i"].opacity = shading().looks["d"].opacity = { 0.5f, 0.5f, 0.5f };
    prepare();
    EXPECT_EQ(describe(traced(down()).opacity), "1 1 1");
    EXPECT_EQ(describe(rv::traceShadow(down(RV_RAY_SHADOW))), "1 1 1");
    RtRay ray = down();
    ray.origin.x = 5;
    const RtScrSample sample = traced(ray);
    EXPECT_EQ(describe(sample.opacity), "0.5 0.5 0.5");
    EXPECT_EQ(sample.obj, object);
    ray.type = RV_RAY_SHADOW;
    EXPECT_EQ(describe(rv::traceShadow(ray)), "0.5 0.5 0.5");
}

// Required: what shines through carries the weight twice.
TEST_F(TracedLayers, the_weight_of_the_ray_scales_the_colour)
{
    glass("g", 0, { 0.5f, 0.5f, 0.5f });
    setShader("background");
    prepare();
    RtRay ray = down();
    ray.weight = 0.5f;
    EXPECT_EQ(describe(traced(ray).color), "0.375 0.375 0.375");
    EXPECT_EQ(describe(traced(ray).opacity), "1 1 1");
    set("auto_transparency_mode", "never");
    EXPECT_EQ(describe(traced(ray).color), "0.5 0.5 0.5");
    EXPECT_EQ(describe(traced(ray).opacity), "0.5 0.5 0.5");
    ray.dir.z = 1;
    EXPECT_EQ(describe(traced(ray, false).color), "0.5 0.5 0.5");
    ray.weight = 0;
    EXPECT_EQ(describe(traced(ray, false).color), "0 0 0");
}

TEST_F(TracedLayers, hits_know_how_many_transparent_ones_came_before)
{
    glass("a", 2, { 0.5f, 0.5f, 0.5f });
    glass("clear", 1, { 0, 0, 0 });
    disc("wall", 0);
    prepare();
    traced(down());
    rv::traceShadow(down(RV_RAY_SHADOW));
    std::vector<uint32_t> indices;
    for (const RtShaderGlobals& sg : shading().contexts)
        indices.push_back(sg.transparency_index);
    EXPECT_EQ(indices, (std::vector<uint32_t>{ 0, 1, 2, 0, 1 }));
}

// ---- The atmosphere ----

TEST_F(TracedLayers, the_atmosphere_lies_before_every_hit)
{
    glass("a", 8, { 0.5f, 0.5f, 0.5f });
    glass("clear", 4, { 0, 0, 0 });
    glass("b", 2, { 0.5f, 0.5f, 0.5f });
    glass("clear too", 0, { 0, 0, 0 });
    setShader("background");
    setShader("atmosphere");
    prepare();
    RtRay ray = down();
    ray.maxdist = 100;
    const RtScrSample sample = traced(ray);
    const auto& segments = shading().segments;
    ASSERT_EQ(segments.size(), 4u); // from the far end on
    EXPECT_EQ(segments[0].origin_z, 0);
    EXPECT_EQ(segments[0].length, 100);
    EXPECT_EQ(segments[1].origin_z, 2);
    EXPECT_EQ(segments[1].length, 2);
    EXPECT_EQ(segments[1].end_z, 0);
    EXPECT_EQ(segments[2].origin_z, 8);
    EXPECT_EQ(segments[2].length, 6);
    EXPECT_EQ(segments[2].end_z, 2);
    EXPECT_EQ(segments[3].origin_z, 10);
    EXPECT_EQ(segments[3].length, 2);
    EXPECT_EQ(segments[3].end_z, 8);
    // 1 becomes 50.5, 26.25, 13.625 behind b, 9.8125, 5.40625 behind a, and 3.703125.
    EXPECT_EQ(sample.color.r, 3.703125f);
    EXPECT_EQ(sample.color.g, 1);
    EXPECT_EQ(sample.z, 2);
    EXPECT_EQ(describe(sample.point), "0 0 8");
}

TEST_F(TracedLayers, the_atmosphere_is_also_before_a_single_hit_and_the_background)
{
    disc("wall", 4);
    setShader("atmosphere");
    prepare();
    for (const char* mode : { "always", "never" }) {
        set("auto_transparency_mode", mode);
        EXPECT_EQ(traced(down()).color.r, 3.5f) << mode;
        EXPECT_EQ(traced(down()).z, 6) << mode;
    }
    RtRay miss = down();
    miss.dir.z = 1;
    miss.maxdist = 8;
    EXPECT_EQ(traced(miss, false).color.r, 4);
    set("skip_background_atmosphere", true);
    EXPECT_EQ(traced(miss, false).color.r, 0);
    EXPECT_EQ(traced(down()).color.r, 3.5f);
}

TEST_F(TracedLayers, without_an_atmosphere_none_is_asked)
{
    glass("a", 8, { 0.5f, 0.5f, 0.5f });
    prepare();
    traced(down());
    EXPECT_TRUE(shading().segments.empty());
}
