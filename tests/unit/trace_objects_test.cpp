// Tests of traces: which objects a ray meets, and in which order. Objects stand one behind the
// other on the z axis; rays come down from above.
#include "trace.h"

#include "array.h"
#include "trace_tools.h"

using namespace trace_tools;
using node_tools::describe;

namespace {

class TracedObjects : public Traced {
protected:
    // Ray types that are traced, each with its depth at 1.
    static constexpr int ray_types[] = { RV_RAY_CAMERA,    RV_RAY_SHADOW,  RV_RAY_REFLECTED,
                                         RV_RAY_REFRACTED, RV_RAY_DIFFUSE, RV_RAY_GLOSSY };
};

} // namespace

// ---- Which objects are hit ----

TEST_F(TracedObjects, visibility_chooses_the_ray_types_that_meet_an_object)
{
    for (const int visibility : { 0, 0x01, 0x02, 0x6C, 0xFFFE, 0xFFFF }) {
        startAnew();
        RvNodeSetInt(disc("d", 0), "visibility", visibility);
        prepare();
        for (int bit = 0; bit < 16; ++bit) {
            RtRay ray = down();
            ray.type = uint16_t(1 << bit);
            EXPECT_EQ(isHit(ray), (visibility >> bit & 1) != 0) << visibility << " " << bit;
        }
    }
}

TEST_F(TracedObjects, one_sided_objects_are_met_from_the_side_of_their_normal)
{
    for (const bool inverted : { false, true }) {
        startAnew();
        RtNode* const object = disc("d", 0);
        RvNodeSetInt(object, "sidedness", 0xFFFF & ~RV_RAY_CAMERA);
        RvNodeSetBool(object, "invert_normals", inverted);
        RtMatrix mirror = shape_fixture::scaling(1, 1, -1);
        mirror.m[3][0] = 5;
        shape_fixture::setMatrices(object, { RV_M4_IDENTITY });
        instanceOf(object, "mirrored", mirror);
        prepare();
        for (const bool is_mirrored : { false, true })
            for (const bool from_below : { false, true })
                for (const int type : { RV_RAY_CAMERA, RV_RAY_REFLECTED }) {
                    RtRay ray = down(type);
                    ray.origin = { is_mirrored ? 5.0f : 0.0f, 0, from_below ? -10.0f : 10.0f };
                    ray.dir.z = from_below ? 1.0f : -1.0f;
                    const bool is_back = (from_below != inverted) != is_mirrored;
                    EXPECT_EQ(isHit(ray), type != RV_RAY_CAMERA || !is_back)
                        << inverted << is_mirrored << from_below << type;
                }
    }
}

TEST_F(TracedObjects, members_of_an_instanced_list_keep_their_own_inversion)
{
    RtNode* const member = disc("d", 0);
    RvNodeSetBool(member, "invert_normals", true);
    RtNode* const group = groupOf("group", { member });
    RvNodeSetInt(group, "sidedness", 0);
    instanceOf(group, "copy", shape_fixture::translation(5, 0, 0));
    prepare();
    RtRay ray = down();
    ray.origin.x = 5;
    EXPECT_FALSE(isHit(ray));
    ray.origin.z = -10;
    ray.dir.z = 1;
    EXPECT_TRUE(isHit(ray));
    RtShaderGlobals sg;
    ASSERT_TRUE(RvTraceProbe(&ray, &sg));
    EXPECT_EQ(describe(sg.normal), "-0 -0 -1");
}

TEST_F(TracedObjects, a_trace_set_admits_its_members_or_everybody_else)
{
    for (const json& v : goldenVectors("tracing", "trace_set_accepts")) {
        startAnew();
        const json& in = v.at("in");
        RtNode* const object = disc("d", 0);
        setTraceSets(object, in.at("object_sets").get<Names>());
        prepare();
        json hashes = json::array();
        for (size_t i = 0; i < in.at("object_sets").size(); ++i)
            hashes.push_back(rv::objectOf(object)->traceset_hashes[i]);
        expectGolden(v, "hashes", hashes);
        RtShaderGlobals sg = cameraContext();
        const std::string set =
            in.at("ray_set").is_null() ? "" : in.at("ray_set").get<std::string>();
        RvShaderGlobalsSetTraceSet(&sg, in.at("ray_set").is_null() ? nullptr : set.c_str(),
                                   in.at("inclusive"));
        expectGolden(v, "tested", isHit(down(RV_RAY_CAMERA, &sg)));
    }
}

TEST_F(TracedObjects, an_empty_name_is_no_trace_set)
{
    setTraceSets(disc("d", 0), { "a" });
    prepare();
    RtRay ray = down();
    for (const bool inclusive : { false, true }) {
        ray.traceset = "";
        ray.inclusive_traceset = inclusive;
        EXPECT_TRUE(isHit(ray));
    }
}

TEST_F(TracedObjects, lists_do_not_hide_the_trace_sets_of_their_members)
{
    RtNode* const a = disc("a", 2);
    RtNode* const b = disc("b", 0);
    setTraceSets(a, { "tall", "x" });
    setTraceSets(b, { "short" });
    RtNode* const group = groupOf("group", { a, b });
    instanceOf(group, "copy", shape_fixture::translation(5, 0, 0));
    prepare();
    RtShaderGlobals sg;
    for (const float x : { 0.0f, 5.0f }) {
        RtRay ray = down();
        ray.origin.x = x;
        static const struct {
            const char* set;
            bool inclusive;
            const char* hit;
        } cases[] = { { "x", true, "a" },
                      { "short", true, "b" },
                      { "y", true, nullptr },
                      { "tall", false, "b" },
                      { "y", false, "a" } };
        for (const auto& c : cases) {
            ray.traceset = c.set;
            ray.inclusive_traceset = c.inclusive;
            ASSERT_EQ(RvTraceProbe(&ray, &sg), c.hit != nullptr) << c.set;
            if (c.hit) {
                EXPECT_STREQ(RvNodeGetName(sg.object), c.hit) << c.set << x;
            }
        }
    }
}

TEST_F(TracedObjects, an_instance_may_have_trace_sets_of_its_own)
{
    RtNode* const object = disc("d", 0);
    setTraceSets(object, { "a" });
    RtNode* const instance = instanceOf(object, "i", shape_fixture::translation(5, 0, 0));
    setTraceSets(instance, { "b" });
    prepare();
    RtRay ray = down();
    ray.inclusive_traceset = true;
    for (const float x : { 0.0f, 5.0f })
        for (const char* set : { "a", "b" }) {
            ray.origin.x = x;
            ray.traceset = set;
            EXPECT_EQ(isHit(ray), (x == 0) == (*set == 'a')) << x << set;
        }
}

TEST_F(TracedObjects, a_shadow_group_names_the_lights_an_object_hides)
{
    RtNode* const grouped = disc("d", 0);
    RtNode* const sun = node_tools::named("standard", "sun");
    RtNode* const moon = node_tools::named("standard", "moon");
    RvNodeSetBool(grouped, "use_shadow_group", true);
    RvNodeSetArray(grouped, "shadow_group", shape_fixture::nodeArray({ sun }));
    RtNode* const instance = instanceOf(grouped, "i", shape_fixture::translation(5, 0, 0));
    RvNodeSetArray(instance, "shadow_group", shape_fixture::nodeArray({ moon }));
    prepare();
    for (const float x : { 0.0f, 5.0f })
        for (RtNode* light : { sun, moon, static_cast<RtNode*>(nullptr) })
            for (const int type : { RV_RAY_SHADOW, RV_RAY_CAMERA }) {
                RtRay ray = down(type);
                ray.origin.x = x;
                ray.light_sample = light ? &light : nullptr;
                const bool is_listed = light == (x == 0 ? sun : moon);
                EXPECT_EQ(isHit(ray), type != RV_RAY_SHADOW || !light || is_listed)
                    << x << " " << (light ? RvNodeGetName(light) : "none") << " " << type;
            }
}

TEST_F(TracedObjects, an_unused_or_empty_shadow_group_is_told_apart)
{
    RtNode* const unused = disc("d", 0);
    RtNode* const light = node_tools::named("standard", "sun");
    RvNodeSetArray(unused, "shadow_group", shape_fixture::nodeArray({ light, light }));
    RtNode* const empty = disc("e", -1);
    RvNodeSetBool(empty, "use_shadow_group", true);
    prepare();
    RtNode* const other = node_tools::named("standard", "moon");
    RtRay ray = down(RV_RAY_SHADOW);
    ray.light_sample = const_cast<RtNode**>(&other);
    EXPECT_EQ(firstHit(ray), "d");
    ray.origin.z = -0.5f;
    EXPECT_EQ(firstHit(ray), "");
    ray.type = RV_RAY_CAMERA;
    EXPECT_EQ(firstHit(ray), "e");
}

TEST_F(TracedObjects, without_self_shadows_an_object_does_not_hide_the_light_from_itself)
{
    RtNode* const ball = sphere("ball", { 0, 0, 0 }, 1);
    RvNodeSetBool(ball, "self_shadows", false);
    RtNode* const left = instanceOf(ball, "left", shape_fixture::translation(0, 0, -3));
    RtNode* const right = instanceOf(ball, "right", shape_fixture::translation(0, 0, -6));
    prepare();
    const auto hit = [&](int type, RtNode* object, RtNode* instance, float z) {
        RtShaderGlobals sg = contextOn(object, instance, 1); // not the primitive itself
        RtRay ray = rayFrom(z, type, &sg);
        ray.maxdist = 1.5; // short of the next one
        return firstHit(ray);
    };
    // From the middle of each of the three.
    EXPECT_EQ(hit(RV_RAY_SHADOW, ball, nullptr, 0), "");
    EXPECT_EQ(hit(RV_RAY_REFLECTED, ball, nullptr, 0), "ball");
    EXPECT_EQ(hit(RV_RAY_SHADOW, ball, left, -3), "");
    EXPECT_EQ(hit(RV_RAY_SHADOW, ball, right, -6), "");
    EXPECT_EQ(hit(RV_RAY_REFRACTED, ball, right, -6), "right");
    // Another place of the same shape hides the light.
    EXPECT_EQ(hit(RV_RAY_SHADOW, ball, nullptr, -3), "left");
    EXPECT_EQ(hit(RV_RAY_SHADOW, ball, left, 0), "ball");
    EXPECT_EQ(hit(RV_RAY_SHADOW, ball, right, 0), "ball");
}

TEST_F(TracedObjects, self_shadows_matter_to_rays_from_surfaces_only)
{
    RtNode* const ball = sphere("ball", { 0, 0, 0 }, 1);
    RvNodeSetBool(ball, "self_shadows", false);
    prepare();
    for (int stage = RV_STAGE_SURFACE; stage <= RV_STAGE_DISPLACEMENT; ++stage) {
        RtShaderGlobals sg = contextOn(ball, nullptr, 1);
        sg.stage = uint8_t(stage);
        EXPECT_EQ(isHit(rayFrom(0, RV_RAY_SHADOW, &sg)), stage != RV_STAGE_SURFACE) << stage;
    }
}

TEST_F(TracedObjects, a_ray_does_not_meet_the_primitive_it_leaves)
{
    RtNode* const object = polygons(
        { { -1, -1, 0 }, { 1, -1, 0 }, { 0, 1, 0 }, { -1, -1, -1 }, { 1, -1, -1 }, { 0, 1, -1 } },
        { { 0, 1, 2 }, { 3, 4, 5 } });
    RtNode* const copy = instanceOf(object, "copy", shape_fixture::translation(0, 0, -5));
    prepare();
    static const struct {
        bool from_copy;
        uint32_t prim;
        float z; // of the first hit
    } cases[] = { { false, 0, -1 }, { false, 1, 0 }, { true, 0, 0 }, { false, 2, 0 } };
    for (const auto& c : cases) {
        RtShaderGlobals sg = contextOn(object, c.from_copy ? copy : nullptr, c.prim);
        const std::vector<RtHit> hits = hitsOf(down(RV_RAY_REFLECTED, &sg));
        ASSERT_EQ(hits.size(), 1u);
        EXPECT_EQ(hits[0].t, 10 - c.z) << c.from_copy << c.prim;
    }
    RtShaderGlobals sg = contextOn(object, copy, 0);
    EXPECT_EQ(hitsOf(rayFrom(-4, RV_RAY_REFLECTED, &sg)).at(0).t, 2);
    sg.stage = RV_STAGE_VOLUME;
    EXPECT_EQ(hitsOf(rayFrom(-4, RV_RAY_REFLECTED, &sg)).at(0).t, 1);
}

TEST_F(TracedObjects, an_object_that_is_hidden_after_a_render_is_missed)
{
    RtNode* const object = disc("d", 0);
    disc("e", -1);
    prepare();
    EXPECT_EQ(firstHit(down()), "d");
    RvNodeDestroy(object);
    EXPECT_EQ(firstHit(down()), "e");
}

// ---- Hits in order ----

TEST_F(TracedObjects, transparent_hits_are_kept_up_to_the_first_opaque_one)
{
    // In an order that is not that of the distance.
    glass("b", 3, { 0.5f, 0.5f, 0.5f });
    disc("behind", -1);
    disc("wall", 0);
    glass("c", 1, { 0.5f, 0.5f, 0.5f });
    glass("hidden", -2, { 0.5f, 0.5f, 0.5f });
    glass("a", 5, { 0.5f, 0.5f, 0.5f });
    prepare();
    const Names all = { "a", "b", "c", "wall" };
    EXPECT_EQ(namesHit(down(), 11), all);
    EXPECT_EQ(namesHit(down(), 4), all);
    EXPECT_EQ(namesHit(down(), 3), (Names{ "a", "b", "c" }));
    EXPECT_EQ(namesHit(down(), 1), Names{ "a" });
}

TEST_F(TracedObjects, an_opaque_object_in_front_is_the_only_hit)
{
    disc("wall", 5);
    glass("a", 3, { 0.5f, 0.5f, 0.5f });
    glass("b", 1, { 0.5f, 0.5f, 0.5f });
    prepare();
    EXPECT_EQ(namesHit(down()), Names{ "wall" });
}

TEST_F(TracedObjects, the_mode_and_depth_of_transparency_limit_the_hits)
{
    for (int i = 0; i < 14; ++i)
        glass(node_tools::formatted("g%d", i).c_str(), float(-i), { 0.01f, 0.01f, 0.01f });
    prepare();
    static const struct {
        const char* mode;
        int depth;
        uint64_t seen, shadowed;
    } cases[] = {
        { "always", 10, 11, 11 },
        { "always", 0, 1, 1 },
        { "always", -5, 1, 1 },
        { "always", 2, 3, 3 },
        { "never", 10, 1, 1 },
        { "shadow-only", 10, 1, 11 },
        { "always", 0x7FFFFFFF, 14, 14 },
        { "always", 100000000, 14, 14 },
    };
    for (const auto& c : cases) {
        set("auto_transparency_mode", c.mode);
        set("auto_transparency_depth", c.depth);
        rayStats() = {};
        traced(down());
        EXPECT_EQ(rayStats().rows[RV_PASS_PIXELS][RV_ROW_CAMERA].hits, c.seen) << c.mode << c.depth;
        rv::traceShadow(down(RV_RAY_SHADOW));
        EXPECT_EQ(rayStats().rows[RV_PASS_PIXELS][RV_ROW_SHADOW].hits, c.shadowed)
            << c.mode << c.depth;
    }
}

TEST_F(TracedObjects, opaque_objects_first_finds_what_one_pass_finds)
{
    glass("front", 5, { 0.5f, 0.5f, 0.5f });
    disc("wall", 0);
    glass("hidden", -2, { 0.5f, 0.5f, 0.5f });
    RtNode* const inner_glass = glass("inner", 3, { 0.5f, 0.5f, 0.5f });
    RtNode* const inner_wall = disc("inner_wall", -1);
    groupOf("group", { inner_glass, inner_wall });
    RtNode* const group = RvNodeLookUpByName("group");
    RvNodeSetBool(group, "opaque", false); // lists are always entered
    prepare();
    for (const uint32_t capacity : { 1u, 2u, 3u, 11u }) {
        set("trace_opaque_first", false);
        const Names want = namesHit(down(), capacity);
        set("trace_opaque_first", true);
        EXPECT_EQ(namesHit(down(), capacity), want) << capacity;
    }
    EXPECT_EQ(namesHit(down()), (Names{ "front", "inner", "wall" }));
}

TEST_F(TracedObjects, shadow_rays_that_met_an_opaque_object_need_no_second_pass)
{
    glass("front", 5, { 0.5f, 0.5f, 0.5f });
    disc("wall", 0);
    prepare();
    set("trace_opaque_first", true);
    RtShaderGlobals sg = cameraContext();
    EXPECT_EQ(namesHit(down(RV_RAY_SHADOW, &sg)), Names{ "wall" });
    EXPECT_EQ(describe(rv::traceShadow(down(RV_RAY_SHADOW, &sg))), "1 1 1");
    EXPECT_TRUE(shading().contexts.empty()) << "the glass is not even shaded";
    RtRay short_ray = down(RV_RAY_SHADOW, &sg);
    short_ray.maxdist = 8;
    EXPECT_EQ(namesHit(short_ray), Names{ "front" });
    EXPECT_EQ(describe(rv::traceShadow(short_ray)), "0.5 0.5 0.5");
}

TEST_F(TracedObjects, a_probe_meets_glass_with_opaque_objects_first)
{
    glass("front", 5, { 0.5f, 0.5f, 0.5f });
    prepare();
    set("trace_opaque_first", true);
    EXPECT_TRUE(isHit(down()));
    EXPECT_EQ(describe(traced(down()).opacity), "0.5 0.5 0.5");
}
