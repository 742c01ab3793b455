// Tests of core/src/sss.cpp and sss_build.cpp: the cache of lookups, where points are looked up,
// and what of objects, instances and lights enters a cloud.
#include "rv_gi.h"
#include "rv_procedural.h"
#include "shader_tools.h"
#include "sss_tools.h"

using namespace sss_tools;

namespace {

class Lookups : public Clouds {
protected:
    void TearDown() override
    {
        Clouds::TearDown();
        shader_tools::programs().clear();
    }
    static RtMatrix translation(float x, float y, float z)
    {
        const RtVector place = { x, y, z };
        RtMatrix matrix;
        RvM4Translation(&matrix, &place);
        return matrix;
    }
    static RtNode* sun(const char* name, float intensity)
    {
        RtNode* const light = distantLight();
        RvNodeSetStr(light, "name", name);
        RvNodeSetFlt(light, "intensity", intensity);
        return light;
    }
    static void setLightGroup(RtNode* shape, RtNode* light)
    {
        RvNodeSetBool(shape, "use_light_group", true);
        RvNodeSetArray(shape, "light_group", RvArray(1, 1, RV_TYPE_NODE, light));
    }
};

} // namespace

// ---- The cache of camera samples ----

TEST_F(Lookups, the_cache_knows_the_last_lookup_of_a_thread)
{
    RtNode* const node = sheet(8, 0.1f);
    RtNode* const other = makeSheet("other", 8);
    distantLight();
    set("sss_subpixel_cache", true);
    prepare();
    RtShaderGlobals at_first = hitAt(0, 0);
    at_first.object = node;
    at_first.ray_depth = 0;
    const RtRGB first_radius = { 0.5f, 0, 1 };
    struct Second {
        RtShaderGlobals sg;
        RtRGB radius;
    };
    std::atomic<int> stop = 0;
    enum Outcome { known, computed, not_cached };
    const struct {
        const char* name;
        void (*change)(Second& second, RtNode* other);
        Outcome outcome;
    } rows[] = {
        { "the same", [](Second&, RtNode*) {}, known },
        { "another column", [](Second& s, RtNode*) { ++s.sg.pixel_x; }, computed },
        { "another row", [](Second& s, RtNode*) { ++s.sg.pixel_y; }, computed },
        { "another object", [](Second& s, RtNode* o) { s.sg.object = o; }, computed },
        { "another shader", [](Second& s, RtNode* o) { s.sg.shader = o; }, computed },
        { "near", [](Second& s, RtNode*) { s.sg.point.x += 0.0499f; }, known },
        { "not near", [](Second& s, RtNode*) { s.sg.point.x += 0.0501f; }, computed },
        { "as near along two axes",
          [](Second& s, RtNode*) {
              s.sg.point.x += 0.0499f;
              s.sg.point.y += 0.0499f;
          },
          computed },
        { "least radius a little larger",
          [](Second& s, RtNode*) {
              s.radius = { 0.555f, 0, 1 };
          },
          known },
        { "least radius larger",
          [](Second& s, RtNode*) {
              s.radius = { 0.556f, 0, 1 };
          },
          computed },
        { "least radius a little smaller",
          [](Second& s, RtNode*) {
              s.radius = { 0.4501f, 0, 1 };
          },
          known },
        { "least radius smaller",
          [](Second& s, RtNode*) {
              s.radius = { 0.4499f, 0, 1 };
          },
          computed },
        { "another of the larger radii", [](Second& s, RtNode*) { s.radius.b = 0.9f; }, known },
        { "another channel has none",
          [](Second& s, RtNode*) {
              s.radius = { 0, 0.5f, 1 };
          },
          known },
        { "behind a mirror",
          [](Second& s, RtNode*) {
              s.sg.ray_depth = 1;
              s.sg.point.x += 0.01f;
          },
          not_cached },
        { "samples are shown", [](Second&, RtNode*) { set("show_samples", "sss_irradiance"); },
          not_cached },
        { "the next visit of the pixel",
          [](Second& s, RtNode*) {
              ++rv::threadStats()->pixels;
              s.sg.point.x += 0.01f;
          },
          computed },
    };
    for (const auto& row : rows) {
        rv::startPointClouds(&stop);
        uint64_t& count = rv::threadStats()->sss_computed;
        count = 0;
        const std::string first = describe(lookUp(at_first, first_radius));
        EXPECT_EQ(count, 1u) << row.name;
        Second second = { at_first, first_radius };
        row.change(second, other);
        const std::string got = describe(lookUp(second.sg, second.radius));
        EXPECT_EQ(count, row.outcome == computed ? 2u : 1u) << row.name;
        set("sss_subpixel_cache", false);
        const std::string right = describe(lookUp(second.sg, second.radius));
        set("sss_subpixel_cache", true);
        set("show_samples", "off");
        EXPECT_EQ(got, row.outcome == known ? first : right) << row.name;
    }
    rv::endPointClouds();
}

TEST_F(Lookups, renders_start_with_an_empty_cache)
{
    sheet(8, 0.1f);
    distantLight();
    set("sss_subpixel_cache", true);
    prepare();
    RtShaderGlobals sg = hitAt(0, 0);
    sg.ray_depth = 0;
    std::atomic<int> stop = 0;
    for (uint64_t render = 1; render <= 3; ++render) {
        rv::startPointClouds(&stop);
        lookUp(sg, { 1, 1, 1 });
        lookUp(sg, { 1, 1, 1 });
        EXPECT_EQ(rv::threadStats()->sss_computed, render);
        rv::endPointClouds();
    }
}

// ---- Where points are looked up ----

TEST_F(Lookups, radiance_without_a_ray_is_looked_up_in_the_world)
{
    RtNode* const node = sheet(4, 0.1f);
    RtNode* const wax = makeWax("wax", 0.7f);
    setShaderOf(node, wax);
    setMatrix(node, translation(20, 0, 0));
    distantLight();
    prepare();
    const RtVector up = { 0, 0, 1 };
    for (const float x : { 19.0f, 20.3f, 21.9f }) {
        const RtPoint place = { x, 0, 0 };
        const RtRGB got = RvRadiance(&place, &up, &up, node, 0, 0.2f, 0.3f, wax);
        EXPECT_GT(got.r, 0.1f) << x;
        EXPECT_NEAR(got.r, at(x, 0, 0.7f).r, 1e-5f) << x;
    }
}

TEST_F(Lookups, radiance_on_what_moves_is_that_of_the_place_at_the_start)
{
    RtNode* const camera = node_tools::named("persp_camera", "camera");
    RvNodeSetPtr(options(), "camera", camera);
    RvNodeSetFlt(camera, "shutter_end", 1);
    RtNode* const node = sheet(4, 0.1f);
    RtNode* const wax = makeWax("wax", 0.7f);
    setShaderOf(node, wax);
    shape_fixture::setMatrices(node, { translation(20, 0, 0), translation(30, 0, 0) });
    distantLight();
    prepare();
    const RtVector up = { 0, 0, 1 };
    for (const float x : { 18.1f, 20.3f, 21.9f }) {
        const RtPoint place = { x, 0, 0 };
        const RtRGB got = RvRadiance(&place, &up, &up, node, 0, 0.2f, 0.3f, wax);
        EXPECT_GT(got.r, 0.1f) << x;
        EXPECT_NEAR(got.r, at(x, 0, 0.7f).r, 1e-5f) << x;
        EXPECT_NEAR(got.r, lookUp(hitAt(x + 10, 0, 1), { 0.7f, 0.7f, 0.7f }).r, 1e-4f) << x;
    }
    const RtPoint beside = { 0, 0, 0 };
    EXPECT_EQ(RvRadiance(&beside, &up, &up, node, 0, 0.2f, 0.3f, wax).r, 0);
}

TEST_F(Lookups, radiance_on_a_hidden_source_is_that_of_its_first_instance)
{
    RtNode* const node = sheet(4, 0.1f);
    RtNode* const wax = makeWax("wax", 0.7f);
    setShaderOf(node, wax);
    RvNodeSetInt(node, "visibility", 0);
    RvNodeSetInt(instanceOf(node, "copy", translation(20, 0, 0)), "visibility", 65535);
    distantLight();
    prepare();
    const RtVector up = { 0, 0, 1 };
    for (const float x : { 18.1f, 20.3f }) {
        const RtPoint place = { x, 0, 0 };
        const RtRGB got = RvRadiance(&place, &up, &up, node, 0, 0.2f, 0.3f, wax);
        EXPECT_GT(got.r, 0.1f) << x;
        EXPECT_NEAR(got.r, at(x, 0, 0.7f).r, 1e-5f) << x;
    }
}

TEST_F(Lookups, radii_grow_with_the_scale_of_an_instance_against_its_source)
{
    RtNode* const node = sheet(2, 0.05f);
    RtMatrix matrix;
    const RtVector scale = { 4, 4, 4 };
    RvM4Scaling(&matrix, &scale);
    const RtMatrix aside = translation(20, 0, 0);
    RvM4Mult(&matrix, &matrix, &aside);
    instanceOf(node, "large", matrix);
    distantLight();
    prepare();
    for (const float x : { 0.0f, 0.9f })
        EXPECT_NEAR(at(20 + 4 * x, 0, 0.5f).r, at(x, 0, 0.5f).r, 1e-3f) << x;
}

// ---- Sides ----

TEST_F(Lookups, the_outside_of_a_mesh_is_lit)
{
    const struct {
        const char* name;
        RtVector scale;
        bool invert_normals;
        bool lit_from_above;
    } rows[] = {
        { "as it is", { 1, 1, 1 }, false, true },
        { "mirrored along the surface", { -1, 1, 1 }, false, true },
        { "mirrored along the normal", { 1, 1, -1 }, false, false },
        { "inverted", { 1, 1, 1 }, true, false },
        { "inverted and mirrored along the surface", { 1, -1, 1 }, true, false },
        { "inverted and mirrored along the normal", { 1, 1, -1 }, true, true },
    };
    for (const auto& row : rows)
        for (const bool from_above : { true, false }) {
            RtNode* const node = sheet(4, 0.2f);
            RtMatrix matrix;
            RvM4Scaling(&matrix, &row.scale);
            setMatrix(node, matrix);
            RvNodeSetBool(node, "invert_normals", row.invert_normals);
            distantLight(from_above ? 0 : 180);
            prepare();
            EXPECT_EQ(at(0, 0).r > 0.3f, row.lit_from_above == from_above)
                << row.name << " " << from_above;
            startAnew();
        }
}

// ---- What enters a cloud ----

TEST_F(Lookups, numbers_of_samples_for_points)
{
    RtNode* const node = sheet(2, 0.2f);
    RtNode* const lamp = node_tools::named("point_light", "lamp");
    RvNodeSetArray(lamp, "position", RvArray(1, 1, RV_TYPE_POINT, RtPoint{ 0, 0, 5 }));
    RvNodeSetFlt(lamp, "radius", 0.5f);
    RvNodeSetInt(lamp, "sss_samples", 2);
    set("GI_sss_hemi_samples", 3);
    set("GI_diffuse_samples", 1);
    set("GI_diffuse_depth", 1);
    prepare();
    const uint64_t points = cloudOf(node)->generated_count;
    const auto& rays = rayStats().rows[RV_PASS_SSS];
    EXPECT_EQ(rays[RV_ROW_SHADOW].rays, points * 4);
    EXPECT_EQ(rays[RV_ROW_DIFFUSE].rays, points * 9);
}

TEST_F(Lookups, light_groups_of_objects_and_of_the_instances_they_are_seen_through)
{
    RtNode* const node = sheet(4, 0.1f);
    sun("weak", 1);
    setLightGroup(node, sun("strong", 2));
    prepare();
    EXPECT_NEAR(at(0, 0).r, 0.8f, 0.03f);
    startAnew();
    RtNode* const hidden = sheet(4, 0.1f);
    RvNodeSetInt(hidden, "visibility", 0);
    RtNode* const copy = instanceOf(hidden, "copy", translation(10, 0, 0));
    RvNodeSetInt(copy, "visibility", 65535);
    setLightGroup(copy, sun("weak", 1));
    sun("strong", 2);
    prepare();
    EXPECT_NEAR(at(10, 0).r, 0.4f, 0.02f);
}

TEST_F(Lookups, face_sets_are_those_of_the_owner)
{
    for (const bool of_source : { true, false }) {
        RtNode* const node = sheet(4, 0.1f);
        RtNode* const copy = instanceOf(node, "copy", translation(10, 0, 0));
        distantLight();
        declare<uint8_t>(of_source ? node : copy, "sss_faceset", "uniform BOOL", RV_TYPE_BOOLEAN,
                         { 0 });
        prepare();
        EXPECT_EQ(at(10, 0).r > 0, !of_source);
        EXPECT_EQ(at(0, 0).r > 0, !of_source);
        startAnew();
    }
}

TEST_F(Lookups, face_sets_count_the_faces_that_were_removed_too)
{
    RtNode* const node = polygons({ { -6, -2, 0 },
                                    { -2, -2, 0 },
                                    { 2, -2, 0 },
                                    { 6, -2, 0 },
                                    { -6, 2, 0 },
                                    { -2, 2, 0 },
                                    { 2, 2, 0 },
                                    { 6, 2, 0 } },
                                  { { 0, 1, 5, 4 }, { 1, 2, 6, 5 }, { 2, 3, 7, 6 } });
    declare<uint8_t>(node, "face_visibility", "uniform BOOL", RV_TYPE_BOOLEAN, { 0, 1, 1 });
    declare<uint8_t>(node, "sss_faceset", "uniform BOOL", RV_TYPE_BOOLEAN, { 1, 0, 1 });
    distantLight();
    prepare();
    EXPECT_EQ(at(0, 0).r, 0);
    EXPECT_NEAR(at(4, 0).r, 0.4f, 0.03f);
}

// The owner of an instance's cloud is its source, whose points it shares.
TEST_F(Lookups, instances_have_no_say_in_the_cloud_of_their_source)
{
    RtNode* const node = sheet(4, 0.1f);
    RtNode* const copy = instanceOf(node, "copy", translation(10, 0, 0));
    RvNodeSetFlt(copy, "sss_sample_spacing", 0.5f);
    RvNodeSetInt(copy, "sss_max_samples", 10);
    RvNodeSetBool(copy, "sss_use_gi", false);
    distantLight();
    prepare();
    messages().clear();
    at(10, 0);
    const std::vector<LoggedMessage> reports = takeReports();
    ASSERT_EQ(reports.size(), 3u);
    EXPECT_EQ(reports[0].text, "[sss] generating ~509 sample points (spacing=0.10, gi=on) - sheet");
}

TEST_F(Lookups, owners_between_source_and_instance_bring_their_own_parameters)
{
    RtNode* const node = sheet(4, 0.1f);
    RtNode* const middle = instanceOf(node, "middle", translation(10, 0, 0));
    setShaderOf(middle, shader);
    RvNodeSetInt(middle, "sss_max_samples", 100);
    RvNodeSetBool(middle, "sss_use_gi", false);
    instanceOf(middle, "outer", translation(10, 0, 0));
    distantLight();
    prepare();
    messages().clear();
    at(20, 0);
    const std::vector<LoggedMessage> reports = takeReports();
    ASSERT_EQ(reports.size(), 3u);
    EXPECT_EQ(reports[0].text,
              "[sss] generating ~100 sample points (spacing=0.23, gi=off) - middle");
}

TEST_F(Lookups, points_without_light_are_kept_only_to_be_shown)
{
    RtNode* const node = sheet(8, 0.1f);
    setMatrix(makeSheet("shade", 8), translation(-4, 0, 1));
    distantLight();
    prepare();
    const Cloud cloud = cloudOf(node);
    EXPECT_EQ(cloud->points.size(), cloud->lit_count);
    EXPECT_NEAR(double(cloud->lit_count) / cloud->generated_count, 0.5, 0.05);
    const Cloud shown = cloudOf(node, rv::show_sss_irradiance);
    EXPECT_EQ(shown->points.size(), cloud->generated_count);
    EXPECT_EQ(shown->lit_count, cloud->lit_count);
    const RtStats& stats = *rv::threadStats();
    EXPECT_EQ(stats.sss_generated, 2u * cloud->generated_count);
    EXPECT_EQ(stats.sss_stored.total, 2u * cloud->lit_count);
}

TEST_F(Lookups, more_samples_than_a_table_holds_are_reported_once)
{
    RtNode* const node = sheet(4, 0);
    RvNodeSetInt(node, "sss_max_samples", INT_MAX);
    prepare();
    takeProblem();
    const std::atomic<int> stop = 1; // before there are any
    EXPECT_EQ(
        rv::buildPointCloud({ rv::objectOf(node), rv::show_no_samples, { .stop_request = &stop } }),
        nullptr);
    EXPECT_EQ(takeProblem(), "[sss] sheet: limiting the point cloud to 6710886 samples");
    RvNodeSetInt(node, "sss_max_samples", 6710886);
    EXPECT_EQ(
        rv::buildPointCloud({ rv::objectOf(node), rv::show_no_samples, { .stop_request = &stop } }),
        nullptr);
    EXPECT_EQ(takeProblem(), "");
}

// ---- Who asks ----

// A shader that waits for a cloud is evaluated for its points too.
TEST_F(Lookups, filters_of_lights_may_link_to_the_shader_that_asks)
{
    RtNode* const node = sheet(4, 0.2f);
    int at_points = 0;
    RtNode* const asker =
        shader_tools::shader("asker", RV_TYPE_RGB, [&](RtNode*, RtShaderGlobals* sg) {
            at_points += RvShaderGlobalsFromSSS(sg);
            sg->out.RGB = lookUp(*sg, { 1, 1, 1 });
        });
    const auto evaluateLink = [](RtNode* self, RtShaderGlobals* sg) {
        sg->out.RGB = RvShaderEvalParamFuncRGB(sg, self, shader_tools::indexOf(self, "p_RGB"));
    };
    RtNode* const filter = shader_tools::shader("filter", RV_TYPE_NONE, evaluateLink);
    RtNode* const surface = shader_tools::shader("root", RV_TYPE_RGB, evaluateLink);
    for (RtNode* user : { filter, surface })
        RvNodeLink(asker, "p_RGB", user);
    setShaderOf(node, surface);
    RvNodeSetArray(distantLight(), "filters", RvArray(1, 1, RV_TYPE_NODE, filter));
    prepare();
    takeProblem();
    EXPECT_GT(seen().r, 0.3f);
    EXPECT_GT(at_points, 100);
    EXPECT_EQ(takeProblem(), "");
}

static std::function<void()>& whileLoading()
{
    static std::function<void()> all;
    return all;
}

// Loading holds a lock that the thread which builds the cloud may need.
TEST_F(Lookups, lookups_while_a_procedural_is_loaded_are_black)
{
    sheet(4, 0.2f);
    distantLight();
    RtNode* const proc = node_tools::named("procedural", "proc");
    RvNodeSetPnt(proc, "min", 9, -1, -1);
    RvNodeSetPnt(proc, "max", 11, 1, 1);
    RvNodeSetPtr(proc, "funcptr", reinterpret_cast<void*>(+[](RtProcVtable* vtable) {
                     strcpy(vtable->version, RV_VERSION);
                     vtable->Init = [](RtNode*, void**) {
                         whileLoading()();
                         return 1;
                     };
                     vtable->Cleanup = [](void*) { return 1; };
                     vtable->NumNodes = [](void*) { return 0; };
                     vtable->GetNode = [](void*, int) -> RtNode* { return nullptr; };
                     return 1;
                 }));
    prepare();
    const RtShaderGlobals sg = hitAt(0, 0);
    std::string got;
    whileLoading() = [&] { got = describe(lookUp(sg, { 1, 1, 1 })); };
    RvGObjectBuildAccel(proc, 0);
    whileLoading() = {};
    EXPECT_EQ(got, "0 0 0");
    EXPECT_EQ(cloudsDone(), 0u);
    EXPECT_NE(describe(lookUp(sg, { 1, 1, 1 })), "0 0 0");
}
