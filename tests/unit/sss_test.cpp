// Tests of core/src/sss.cpp and sss_build.cpp: point clouds of meshes and lookups in them.
#include "message_passing.h"
#include "rv_procedural.h"
#include "rv_userdata.h"
#include "sampling.h"
#include "sss_tools.h"
#include "thread_slot.h"

using namespace sss_tools;

static void expectGrey(const RtRGB& got, float want, float tolerance, const std::string& what = "")
{
    EXPECT_NEAR(got.r, want, tolerance) << what;
    EXPECT_NEAR(got.g, want, tolerance) << what;
    EXPECT_NEAR(got.b, want, tolerance) << what;
}

// ---- Scattered light ----

TEST_F(Clouds, a_large_plane_scatters_its_irradiance_times_the_integral_of_the_kernel)
{
    sheet(8, 0.04f);
    distantLight();
    for (const bool physically_based : { true, false }) {
        set("physically_based", physically_based);
        prepare();
        // The light arrives with irradiance 1. The kernel's integral is 0.4 pi.
        const float want = 0.4f * (physically_based ? 1 : std::numbers::pi_v<float>);
        for (const RtPoint2& place : { RtPoint2{ 0, 0 }, RtPoint2{ 1.3f, -2.1f } }) {
            const RtRGB got = lookUp(hitAt(place.x, place.y), { 1, 0.7f, 1.5f });
            expectGrey(got, want, 0.02f * want);
        }
        flushShapes();
    }
}

TEST_F(Clouds, light_that_arrives_at_an_angle_counts_by_its_cosine)
{
    sheet(8, 0.05f);
    distantLight(60);
    prepare();
    expectGrey(at(0, 0), 0.2f, 0.004f);
}

TEST_F(Clouds, light_is_not_taken_from_lights_that_do_not_affect_diffuse)
{
    sheet(8, 0.1f);
    RvNodeSetBool(distantLight(), "affect_diffuse", false);
    prepare();
    expectGrey(at(0, 0), 0, 0);
}

TEST_F(Clouds, light_from_below_does_not_enter)
{
    sheet(8, 0.1f);
    distantLight(180);
    prepare();
    expectGrey(at(0, 0), 0, 0);
}

TEST_F(Clouds, shadows_fall_on_points)
{
    sheet(8, 0.03f);
    distantLight();
    RtMatrix matrix;
    const RtVector place = { -4, 0, 1 };
    RvM4Translation(&matrix, &place);
    setMatrix(makeSheet("shade", 8), matrix); // above negative x
    prepare();
    expectGrey(at(2, 0), 0.4f, 0.01f);
    expectGrey(at(1e-4f, 0), 0.2f, 0.01f); // half of the surroundings are in the shade
    RtShaderGlobals below = hitAt(1, 0);
    below.point.x = -1;
    expectGrey(lookUp(below, { 0.5f, 0.5f, 0.5f }), 0, 0);
}

TEST_F(Clouds, indirect_light_is_added_where_the_object_asks_for_it)
{
    RtNode* const node = sheet(8, 0.1f);
    setBackground({ 0.5f, 0.5f, 0.5f });
    set("GI_diffuse_depth", 1);
    for (const bool gi : { true, false }) {
        RvNodeSetBool(node, "sss_use_gi", gi);
        prepare();
        expectGrey(at(0, 0), gi ? 0.2f * std::numbers::pi_v<float> : 0, 0.02f);
        flushShapes();
    }
}

TEST_F(Clouds, radii_that_are_no_positive_numbers_scatter_nothing)
{
    sheet(8, 0.1f);
    distantLight();
    prepare();
    const RtShaderGlobals sg = hitAt(0, 0);
    const struct {
        const char* name;
        RtRGB radius;
        bool scatters[3];
    } rows[] = {
        { "none", { 0, 0, 0 }, { false, false, false } },
        { "one zero channel", { 1, 0, 1 }, { true, false, true } },
        { "one channel", { 0, 0, 1 }, { false, false, true } },
        { "negative", { -1, 1, -INFINITY }, { false, true, false } },
        { "not a number", { NAN, 1, 1 }, { false, true, true } },
        { "infinite", { 1, INFINITY, 1 }, { true, false, true } },
    };
    for (const auto& row : rows) {
        const RtRGB got = lookUp(sg, row.radius);
        const float channels[3] = { got.r, got.g, got.b };
        for (int i = 0; i < 3; ++i)
            EXPECT_NEAR(channels[i], row.scatters[i] ? 0.4f : 0, row.scatters[i] ? 0.02f : 0)
                << row.name;
    }
}

// ---- Who scatters nothing ----

TEST_F(Clouds, with_ignore_sss_every_lookup_is_black)
{
    sheet(8, 0.1f);
    distantLight();
    set("ignore_sss", true);
    prepare();
    expectGrey(at(0, 0), 0, 0);
    EXPECT_EQ(cloudsDone(), 0u);
    set("ignore_sss", false);
    EXPECT_GT(at(0, 0).r, 0);
}

TEST_F(Clouds, only_meshes_scatter)
{
    sphere("ball", { 0, 0, 0 }, 1);
    distantLight();
    prepare();
    expectGrey(at(0, 0), 0, 0);
    EXPECT_EQ(cloudsDone(), 0u);
    const RtRGB radius = { 1, 1, 1 };
    expectGrey(RvSSSPointCloudLookup(nullptr, &radius), 0, 0);
    RtShaderGlobals nowhere = cameraContext();
    expectGrey(RvSSSPointCloudLookup(&nowhere, &radius), 0, 0);
    expectGrey(RvSSSPointCloudLookup(&nowhere, nullptr), 0, 0);
    nowhere.object = shader; // no shape at all
    expectGrey(RvSSSPointCloudLookup(&nowhere, &radius), 0, 0);
}

TEST_F(Clouds, contexts_of_cloud_points_scatter_nothing)
{
    sheet(8, 0.1f);
    distantLight();
    prepare();
    RtShaderGlobals sg = hitAt(0, 0);
    RtShadingState state = {};
    sg.state = &state;
    EXPECT_FALSE(RvShaderGlobalsFromSSS(&sg));
    EXPECT_GT(lookUp(sg, { 1, 1, 1 }).r, 0);
    state.pass = RV_PASS_SSS;
    EXPECT_TRUE(RvShaderGlobalsFromSSS(&sg));
    expectGrey(lookUp(sg, { 1, 1, 1 }), 0, 0);
}

// Setters take no such numbers, but hosts may write into an array.
static void breakVertex(RtNode* node, unsigned vertex, const RtPoint& place)
{
    rv::elementsOf<RtPoint>(rv::polymeshParams(node).vlist)[vertex] = place;
}

TEST_F(Clouds, surfaces_without_area_scatter_nothing)
{
    RtNode* const flat = polygons({ { 0, 0, 0 }, { 1, 0, 0 }, { 2, 0, 0 } }, { { 0, 1, 2 } });
    RtNode* const broken = polygons({ { 0, 0, 0 }, { 1, 0, 0 }, { 0, 1, 0 } }, { { 0, 1, 2 } });
    RvNodeSetStr(broken, "name", "broken");
    breakVertex(broken, 1, { NAN, 0, 0 });
    breakVertex(broken, 2, { 0, INFINITY, 0 });
    distantLight();
    prepare();
    for (RtNode* mesh : { flat, broken }) {
        EXPECT_TRUE(cloudOf(mesh)->points.empty());
        expectGrey(lookUp(contextOn(mesh), { 1, 1, 1 }), 0, 0);
    }
}

TEST_F(Clouds, broken_vertices_leave_the_rest_of_a_mesh_alone)
{
    RtNode* const node = polygons({ { -2, -2, 0 }, { 2, -2, 0 }, { 0, 2, 0 }, { 0, 0, 0 } },
                                  { { 0, 1, 2 }, { 0, 1, 3 } });
    breakVertex(node, 3, { NAN, NAN, NAN });
    distantLight();
    prepare();
    EXPECT_NEAR(at(0, -0.5f, 0.5f).r, 0.4f, 0.04f);
}

// ---- Parameters ----

TEST_F(Clouds, without_a_spacing_the_number_of_samples_counts)
{
    RtNode* const node = sheet(4, 0);
    RvNodeSetInt(node, "sss_max_samples", 500);
    prepare();
    const Cloud cloud = cloudOf(node);
    const std::vector<LoggedMessage> reports = takeReports();
    ASSERT_EQ(reports.size(), 3u);
    EXPECT_EQ(reports[0].text, "[sss] generating ~500 sample points (spacing=0.10, gi=on) - sheet");
    EXPECT_GT(cloud->generated_count, 500u);
    EXPECT_LT(cloud->generated_count, 1200u);
}

TEST_F(Clouds, a_cloud_reports_what_it_does)
{
    RtNode* const node = sheet(4, 0.1f);
    RvNodeSetBool(node, "sss_use_gi", false);
    distantLight();
    prepare();
    messages().clear();
    at(0, 0);
    const std::vector<LoggedMessage> reports = takeReports();
    ASSERT_EQ(reports.size(), 3u);
    EXPECT_EQ(reports[0].text,
              "[sss] generating ~509 sample points (spacing=0.10, gi=off) - sheet");
    int found = 0, rejected = 0;
    float rate = 0;
    EXPECT_EQ(sscanf(reports[1].text.c_str(),
                     "[sss] found %d samples, rejected %d - acceptance rate: %f%%", &found,
                     &rejected, &rate),
              3);
    EXPECT_EQ(reports[1].text,
              node_tools::formatted("[sss] found %d samples, rejected %d - acceptance rate: %.2f%%",
                                    found, rejected, double(found) * 100 / 5090));
    EXPECT_EQ(found + rejected, 5090);
    EXPECT_TRUE(node_tools::matches(
        reports[2].text, "\\[sss\\] point cloud done - " + std::to_string(found) +
                             " samples, [0-9]+ octree nodes \\(0\\.0[0-9]mb\\) - sheet - "
                             "0:0[0-9]\\.[0-9]{2}"))
        << reports[2].text;
    EXPECT_TRUE(reports[0].mask & RV_LOG_DEBUG);
    EXPECT_TRUE(reports[1].mask & RV_LOG_DEBUG);
    EXPECT_EQ(reports[2].mask & (RV_LOG_DEBUG | RV_LOG_INFO), RV_LOG_INFO);
}

TEST_F(Clouds, the_way_of_showing_samples_may_change_between_renders)
{
    sheet(4, 0.2f);
    distantLight();
    prepare();
    const RtRGB light = at(0, 0);
    expectGrey(light, 0.4f, 0.04f);
    set("show_samples", "sss_points");
    int shown = 0, hidden = 0;
    for (float x = -0.5f; x < 0.5f; x += 0.01f) {
        const float grey = at(x, 0.1f).r;
        EXPECT_TRUE(grey == 0 || grey == 1) << grey;
        ++(grey == 1 ? shown : hidden);
    }
    EXPECT_GT(shown, 5); // discs of half the radius, with gaps between them
    EXPECT_GT(hidden, 5);
    set("show_samples", "sss_irradiance");
    int lit = 0;
    for (float x = -0.5f; x < 0.5f; x += 0.01f) {
        const float grey = at(x, 0.1f, 0).r; // whatever the radius
        EXPECT_TRUE(grey == 0 || fabsf(grey - one_over_pi) < 0.01f) << grey;
        lit += grey > 0;
    }
    EXPECT_EQ(lit, shown);
    set("show_samples", "off");
    EXPECT_EQ(describe(at(0, 0)), describe(light));
    EXPECT_EQ(cloudsDone(), 3u);
}

TEST_F(Clouds, faces_outside_of_the_face_set_give_no_light)
{
    // A triangle, a quad and a pentagon side by side.
    RtNode* const node = polygons({ { -3, 0, 0 },
                                    { -1, 0, 0 },
                                    { -1, 2, 0 },
                                    { 1, 0, 0 },
                                    { 1, 2, 0 },
                                    { 3, 0, 0 },
                                    { 4, 1, 0 },
                                    { 3, 2, 0 } },
                                  { { 0, 1, 2 }, { 1, 3, 4, 2 }, { 3, 5, 6, 7, 4 } });
    const RtPoint2 places[3] = { { -1.5f, 0.6f }, { 0, 1 }, { 2, 1 } };
    distantLight();
    RvNodeSetFlt(node, "sss_sample_spacing", 0.02f);
    declare<uint8_t>(node, "sss_faceset", "uniform BOOL", RV_TYPE_BOOLEAN, { 1, 0, 1 });
    prepare();
    for (int lit = 0; lit < 8; ++lit) {
        for (unsigned face = 0; face < 3; ++face)
            RvArraySetBool(RvNodeGetArray(node, "sss_faceset"), face, lit >> face & 1);
        flushShapes();
        for (int face = 0; face < 3; ++face) {
            const float got = at(places[face].x, places[face].y, 0.3f).r;
            EXPECT_NEAR(got, lit >> face & 1 ? 0.4f : 0, lit >> face & 1 ? 0.01f : 0)
                << lit << " " << face;
        }
    }
}

// The share of the kernel's integral, for radius 1 around a place, that lies where x > 0.
static double shareBeyondBorder(double place)
{
    constexpr int n = 400;
    double sum = 0, beyond = 0;
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) {
            const double x = 2 * (i + 0.5) / n - 1, y = 2 * (j + 0.5) / n - 1;
            const double kernel = pow(std::max(1 - std::hypot(x, y), 0.0), 3);
            sum += kernel;
            beyond += place + x > 0 ? kernel : 0;
        }
    return beyond / sum;
}

TEST_F(Clouds, light_scatters_across_the_border_of_a_face_set)
{
    RtNode* const node = polygons(
        { { -3, -2, 0 }, { 0, -2, 0 }, { 3, -2, 0 }, { -3, 2, 0 }, { 0, 2, 0 }, { 3, 2, 0 } },
        { { 0, 1, 4, 3 }, { 1, 2, 5, 4 } });
    distantLight();
    RvNodeSetFlt(node, "sss_sample_spacing", 0.02f);
    declare<uint8_t>(node, "sss_faceset", "uniform BOOL", RV_TYPE_BOOLEAN, { 0, 0 });
    prepare();
    for (const bool right : { false, true }) {
        for (const unsigned face : { 0u, 1u })
            RvArraySetBool(RvNodeGetArray(node, "sss_faceset"), face, right == (face == 1));
        flushShapes();
        for (const float x : { -0.8f, -0.5f, -0.2f, 0.0f, 0.1f, 0.4f, 0.7f }) {
            const double share = shareBeyondBorder(double(right ? x : -x));
            EXPECT_NEAR(double(at(x, 0.1f).r), 0.4 * share, 0.008) << x << " " << right;
        }
        EXPECT_EQ(at(right ? -1.01f : 1.01f, 0).r, 0) << "out of reach";
    }
}

TEST_F(Clouds, face_sets_of_other_forms)
{
    const struct {
        const char* declaration;
        bool scatters;
    } rows[] = { { "constant BOOL", false }, { "uniform INT", true }, { "varying BOOL", true } };
    for (const auto& row : rows) {
        RtNode* const node = sheet(4, 0.2f);
        distantLight();
        ASSERT_TRUE(RvNodeDeclare(node, "sss_faceset", row.declaration));
        if (!strncmp(row.declaration, "constant", 8))
            RvNodeSetBool(node, "sss_faceset", false);
        else if (!strncmp(row.declaration, "uniform", 7))
            RvNodeSetArray(node, "sss_faceset", RvArray(1, 1, RV_TYPE_INT, 0));
        else
            RvNodeSetArray(node, "sss_faceset", RvArrayAllocate(4, 1, RV_TYPE_BOOLEAN));
        prepare();
        EXPECT_EQ(at(0, 0).r > 0, row.scatters) << row.declaration;
        startAnew();
    }
}

// ---- Time and space ----

TEST_F(Clouds, distances_are_those_of_the_world)
{
    RtNode* const node = sheet(2, 0.05f);
    RtMatrix matrix;
    const RtVector scale = { 4, 2, 1 };
    RvM4Scaling(&matrix, &scale);
    setMatrix(node, matrix);
    distantLight();
    prepare();
    expectGrey(at(0, 0), 0.4f, 0.01f);
    const Cloud cloud = cloudOf(node);
    double area = 0;
    for (const RtSSSPoint& point : cloud->points)
        area += double(point.area);
    EXPECT_NEAR(area, 32, 0.01);
}

TEST_F(Clouds, moving_objects_have_their_cloud_in_the_middle_of_the_shutter)
{
    RtNode* const camera = node_tools::named("persp_camera", "camera");
    RvNodeSetPtr(options(), "camera", camera);
    RvNodeSetFlt(camera, "shutter_start", 0.2f);
    RvNodeSetFlt(camera, "shutter_end", 0.6f);
    RtNode* const node = sheet(4, 0.1f);
    RtMatrix start, end;
    const RtVector places[2] = { { 0, 0, 0 }, { 10, 0, 0 } };
    RvM4Translation(&start, &places[0]);
    RvM4Translation(&end, &places[1]);
    shape_fixture::setMatrices(node, { start, end });
    distantLight();
    disc("shade", 5); // above where the sheet is at the start
    prepare();
    const Cloud cloud = cloudOf(node);
    EXPECT_FLOAT_EQ(cloud->time, 0.4f);
    EXPECT_FLOAT_EQ(cloud->frame.m[3][0], 4);
    EXPECT_EQ(cloud->lit_count, cloud->generated_count);
    // The same place of the sheet, at any time, sees the same light.
    const RtRGB radius = { 1, 1, 1 };
    const RtRGB early = lookUp(hitAt(2 + 1.5f, 0, 0.2f), radius);
    const RtRGB late = lookUp(hitAt(6 + 1.5f, 0, 0.6f), radius);
    EXPECT_GT(early.r, 0.1f);
    EXPECT_NEAR(early.r, late.r, 1e-4f);
}

TEST_F(Clouds, meshes_that_change_their_form_scatter_from_place_to_place)
{
    RtNode* const node = meshNode();
    setPoints(node, "vlist",
              { { -2, -2, 0 },
                { 2, -2, 0 },
                { 2, 2, 0 },
                { -2, 2, 0 },
                { -1, -1, 0 },
                { 3, -1, 0 },
                { 3, 3, 0 },
                { -1, 3, 0 } },
              2);
    setIndices(node, "nsides", { 4 });
    setIndices(node, "vidxs", { 0, 1, 2, 3 });
    distantLight();
    prepare();
    const RtRGB radius = { 1, 1, 1 };
    const RtRGB corner = lookUp(hitAt(-1.9f, -1.9f, 0), radius);
    EXPECT_LT(corner.r, 0.25f); // there is no surface on two sides
    EXPECT_NEAR(lookUp(hitAt(-0.9f, -0.9f, 1), radius).r, corner.r, 1e-4f);
    EXPECT_NEAR(lookUp(hitAt(0, 0, 0), radius).r, 0.4f, 0.02f);
}

// ---- Owners ----

TEST_F(Clouds, instances_share_the_cloud_of_their_source)
{
    RtNode* const node = sheet(4, 0.1f);
    RtMatrix matrix;
    for (const float x : { 10.0f, 20.0f }) {
        const RtVector place = { x, 0, 0 };
        RvM4Translation(&matrix, &place);
        instanceOf(node, ("copy " + std::to_string(x)).c_str(), matrix);
    }
    distantLight();
    prepare();
    const RtRGB own = at(0.3f, 0.2f);
    expectGrey(own, 0.4f, 0.02f);
    for (const float x : { 10.0f, 20.0f })
        expectGrey(at(x + 0.3f, 0.2f), own.r, 1e-4f);
    EXPECT_EQ(cloudsDone(), 1u);
}

TEST_F(Clouds, hidden_sources_are_lit_where_their_first_instance_stands)
{
    RtNode* const node = sheet(4, 0.1f);
    RvNodeSetInt(node, "visibility", 0);
    RtMatrix matrix;
    for (const float x : { 30.0f, 20.0f, 10.0f }) { // not in order of their names
        const RtVector place = { x, 0, 0 };
        RvM4Translation(&matrix, &place);
        RtNode* const copy = instanceOf(node, ("copy" + std::to_string(int(x))).c_str(), matrix);
        RvNodeSetInt(copy, "visibility", x == 10 ? 0 : 65535);
    }
    distantLight();
    disc("shade", 5); // above the source and nothing else
    prepare();
    EXPECT_NEAR(at(20, 0).r, 0.4f, 0.02f);
    const Cloud cloud = cloudOf(node);
    EXPECT_EQ(cloud->frame.m[3][0], 20);
    EXPECT_EQ(cloud->lit_count, cloud->generated_count);
}

TEST_F(Clouds, instances_of_instances_with_shaders_own_a_cloud)
{
    RtNode* const node = sheet(4, 0.1f);
    RtMatrix matrix;
    const RtVector place = { 10, 0, 0 }, further = { 10, 0, 0 };
    RvM4Translation(&matrix, &place);
    RtNode* const middle = instanceOf(node, "middle", matrix);
    setShaderOf(middle, shader);
    RvNodeSetFlt(middle, "sss_sample_spacing", 0.2f);
    RvM4Translation(&matrix, &further);
    instanceOf(middle, "outer", matrix);
    distantLight();
    prepare();
    messages().clear();
    EXPECT_NEAR(at(20, 0).r, 0.4f, 0.03f);
    const std::vector<LoggedMessage> reports = takeReports();
    ASSERT_EQ(reports.size(), 3u);
    EXPECT_EQ(reports[0].text,
              "[sss] generating ~127 sample points (spacing=0.20, gi=on) - middle");
}

// A procedural that holds one mesh.
static int loadSheet(RtProcVtable* vtable)
{
    strcpy(vtable->version, RV_VERSION);
    vtable->Init = [](RtNode*, void**) { return 1; };
    vtable->Cleanup = [](void*) { return 1; };
    vtable->NumNodes = [](void*) { return 1; };
    vtable->GetNode = [](void*, int) {
        RtNode* const node = makeSheet("sheet", 2);
        RvNodeSetFlt(node, "sss_sample_spacing", 0.05f);
        return node;
    };
    return 1;
}

// Its children are four times as large, and `x` to the right.
static RtNode* makeProcedural(float x)
{
    RtNode* const proc = node_tools::named("procedural", "proc");
    RvNodeSetPnt(proc, "min", -1, -1, 0);
    RvNodeSetPnt(proc, "max", 1, 1, 0);
    RvNodeSetPtr(proc, "funcptr", reinterpret_cast<void*>(loadSheet));
    RtMatrix scaling, matrix;
    const RtVector scale = { 4, 4, 1 }, place = { x, 0, 0 };
    RvM4Scaling(&scaling, &scale);
    RvM4Translation(&matrix, &place);
    RvM4Mult(&matrix, &scaling, &matrix);
    RvNodeSetArray(proc, "matrix", RvArray(1, 1, RV_TYPE_MATRIX, &matrix));
    return proc;
}

TEST_F(Clouds, meshes_of_procedurals_stand_where_these_carry_them)
{
    makeProcedural(20);
    distantLight();
    disc("shade", 5); // far from it
    prepare();
    expectGrey(at(20.5f, 0.5f), 0.4f, 0.01f);
    const Cloud cloud = cloudOf(RvNodeLookUpByName("sheet"));
    EXPECT_EQ(cloud->frame.m[3][0], 20);
    EXPECT_EQ(cloud->frame.m[0][0], 4);
}

TEST_F(Clouds, meshes_of_hidden_procedurals_stand_where_the_first_instance_carries_them)
{
    RtNode* const proc = makeProcedural(0);
    RvNodeSetInt(proc, "visibility", 0);
    for (const float x : { 40.0f, 20.0f }) {
        const RtVector place = { x, 0, 0 };
        RtMatrix matrix;
        RvM4Translation(&matrix, &place);
        RtNode* const copy = instanceOf(proc, ("copy" + std::to_string(int(x))).c_str(), matrix);
        RvNodeSetInt(copy, "visibility", 65535);
    }
    distantLight();
    disc("shade", 5);
    prepare();
    expectGrey(at(40.5f, 0.5f), 0.4f, 0.01f);
    const Cloud cloud = cloudOf(RvNodeLookUpByName("sheet"));
    EXPECT_EQ(cloud->frame.m[3][0], 20);
    EXPECT_EQ(cloud->frame.m[0][0], 4);
}

TEST_F(Clouds, clouds_go_with_the_geometry_and_with_flushed_caches)
{
    RtNode* const node = sheet(4, 0.2f);
    RtNode* const light = distantLight();
    prepare();
    const auto bytes = [] { return rv::threadStats()->sss_bytes; };
    EXPECT_EQ(bytes(), 0);
    const float before = at(0, 0).r;
    EXPECT_GT(bytes(), 0);
    RvNodeSetFlt(light, "intensity", 2);
    RvNodeSetFlt(node, "sss_sample_spacing", 0.1f);
    prepare();
    EXPECT_EQ(at(0, 0).r, before); // kept as it was
    RvUniverseCacheFlush(0x1 | 0x4 | 0x8 | 0x10);
    EXPECT_EQ(at(0, 0).r, before);
    flushShapes();
    EXPECT_EQ(bytes(), 0);
    EXPECT_NEAR(at(0, 0).r, 0.8f, 0.03f);
    EXPECT_EQ(cloudsDone(), 2u);
    setPoints(node, "vlist", { { -5, -5, 0 }, { 5, -5, 0 }, { -5, 5, 0 }, { 5, 5, 0 } });
    prepare();
    EXPECT_EQ(bytes(), 0);
    EXPECT_NEAR(at(3, 3).r, 0.8f, 0.03f);
    EXPECT_EQ(cloudsDone(), 1u);
    RvNodeDestroy(node);
    EXPECT_EQ(bytes(), 0);
}

// Hosts may flush from any thread between renders, and so from the shader of a point.
TEST_F(Clouds, a_cloud_that_is_flushed_while_it_is_built_serves_those_who_wait_for_it)
{
    RtNode* const node = sheet(4, 0.1f);
    set("GI_diffuse_depth", 1);
    set("GI_diffuse_samples", 1);
    setBackground(RV_RGB_WHITE);
    prepare();
    const RtShaderGlobals sg = hitAt(0, 0);
    static int calls;
    calls = 0;
    node_tools::HookOverride override;
    override.hooks.shadeBackground = [](RtShaderGlobals* context) {
        if (++calls == 20)
            flushShapes();
        context->out.RGB = RV_RGB_WHITE;
        return int(RV_TYPE_RGB);
    };
    const std::string light = describe(lookUp(sg, { 1, 1, 1 }));
    EXPECT_GT(calls, 20);
    EXPECT_EQ(rv::objectOf(node)->extra, nullptr) << "who comes later finds none";
    EXPECT_EQ(rv::threadStats()->sss_bytes, 0) << "and nothing is left";
    EXPECT_EQ(describe(lookUp(sg, { 1, 1, 1 })), light);
    EXPECT_NE(light, "0 0 0");
    EXPECT_EQ(cloudsDone(), 2u);
    EXPECT_GT(rv::threadStats()->sss_bytes, 0);
}

// ---- What a build leaves alone ----

TEST_F(Clouds, nothing_of_the_asking_point_or_thread_enters_a_cloud)
{
    RtNode* const node = sheet(2, 0.2f);
    RtNode* const lamp = node_tools::named("point_light", "lamp");
    RvNodeSetArray(lamp, "position", RvArray(1, 1, RV_TYPE_POINT, RtPoint{ 1, 0, 1 }));
    RvNodeSetFlt(lamp, "radius", 0.5f);
    RvNodeSetInt(lamp, "samples", 2);
    disc("shade", 0.5f);
    set("GI_diffuse_depth", 2);
    setBackground({ 0.2f, 0.3f, 0.4f });
    prepare();
    const std::string first = bytesOf(*cloudOf(node));
    rv::pixel_sampling[7].rotation_u = 0.3;
    rv::pixel_sampling[7].rotation_v = 0.8;
    EXPECT_EQ(bytesOf(*cloudOf(node, rv::show_no_samples, 7)), first);
    // Another point asks, deep in a ray tree, within a loop.
    flushShapes();
    RtShaderGlobals sg = hitAt(0.9f, 0.9f, 0.7f);
    const RtRGB expected = lookUp(sg, { 1, 1, 1 });
    flushShapes();
    RtShadingState state = {};
    state.loop_samples = 4;
    state.loop_index = 3;
    sg.state = &state;
    sg.ray_depth = sg.diffuse_depth = 3;
    sg.pixel_x = 40;
    sg.sample_index = 9;
    sg.skip_shadows = 1;
    EXPECT_EQ(describe(lookUp(sg, { 1, 1, 1 })), describe(expected));
}

// Images stay the same from version to version.
TEST_F(Clouds, clouds_are_the_same_to_the_last_bit_as_ever)
{
    RtNode* const node = sheet(4, 0.05f, 7);
    distantLight();
    disc("shade", 1.5f);
    setBackground({ 0.25f, 0.5f, 1 });
    set("GI_diffuse_depth", 1);
    set("GI_diffuse_samples", 2);
    prepare();
    const Cloud cloud = cloudOf(node);
    EXPECT_EQ(hashOf(cloud->points), 0x2B82096A5708CCEFu);
    EXPECT_EQ(cloud->lit_count, 3419u);
}

TEST_F(Clouds, neighbours_see_other_parts_of_a_lamp)
{
    RtNode* const node = sheet(2, 0.02f);
    RtNode* const lamp = node_tools::named("point_light", "lamp");
    RvNodeSetArray(lamp, "position", RvArray(1, 1, RV_TYPE_POINT, RtPoint{ 0, 0, 1 }));
    RvNodeSetFlt(lamp, "radius", 0.5f);
    RvNodeSetFlt(disc("shade", 0.4f), "radius", 0.15f);
    prepare();
    const Cloud cloud = cloudOf(node, rv::show_sss_irradiance);
    // Each point sees one place of the lamp, so that in the half-shade some are lit and others not.
    const auto isInHalfShade = [](const RtSSSPoint& point) {
        return fabsf(point.position.x) < 0.1f && fabsf(point.position.y) < 0.1f;
    };
    int lit = 0, all = 0;
    for (const RtSSSPoint& point : cloud->points) {
        all += isInHalfShade(point);
        lit += isInHalfShade(point) && point.irradiance;
    }
    EXPECT_GT(all, 30);
    EXPECT_GT(lit, all / 10);
    EXPECT_LT(lit, all * 9 / 10);
}

TEST_F(Clouds, a_build_gives_back_what_belongs_to_its_thread)
{
    sheet(2, 0.2f);
    distantLight();
    prepare();
    RtShaderGlobals sg = hitAt(0, 0);
    const RtThreadSlot& slot = rv::the_frame->thread_slots[0];
    const RtThreadSlot before = slot;
    RvMessageSetFltFunc(&sg, "kept", 0.25f);
    const unsigned allocations = slot.shading_pool->alloc_count;
    rv::pixel_sampling[0].rotation_u = 0.125;
    EXPECT_GT(lookUp(sg, { 1, 1, 1 }).r, 0);
    EXPECT_EQ(memcmp(&slot, &before, sizeof slot), 0);
    EXPECT_EQ(slot.shading_pool->alloc_count, allocations);
    EXPECT_EQ(rv::pixel_sampling[0].rotation_u, 0.125);
    float kept = 0;
    EXPECT_TRUE(RvMessageGetFltFunc(&sg, "kept", &kept));
    EXPECT_EQ(kept, 0.25f);
}

TEST_F(Clouds, scratch_memory_does_not_grow_with_the_number_of_points)
{
    RtNode* const node = sheet(8, 0.05f);
    distantLight();
    prepare();
    EXPECT_GT(cloudOf(node)->points.size(), 8000u);
    EXPECT_GT(rv::threadStats()->sss_pool_bytes, 0x10000);
    EXPECT_LT(rv::threadStats()->sss_pool_bytes, 0x100000);
    prepare();
    EXPECT_EQ(rv::threadStats()->sss_pool_bytes, 0); // the next render reports its own
}

// ---- Clouds and shading ----

TEST_F(Clouds, objects_that_are_seen_from_a_cloud_do_not_scatter)
{
    // Two sheets that face each other; only the light that comes off them could be exchanged.
    RtNode* const wax = makeWax("wax", 0.5f);
    RtNode* const low = sheet(2, 0.2f);
    RtNode* const high = makeSheet("high", 8);
    const RtVector place = { 0, 0, 1 };
    RtMatrix turned, up, matrix;
    RvM4RotationX(&turned, 180);
    RvM4Translation(&up, &place);
    RvM4Mult(&matrix, &turned, &up);
    setMatrix(high, matrix);
    for (RtNode* node : { low, high })
        setShaderOf(node, wax);
    set("GI_diffuse_depth", 3);
    distantLight(180); // comes up past the lower one, which shines on nothing then
    prepare();
    const Cloud cloud = cloudOf(low);
    EXPECT_EQ(cloudsDone(), 1u);
    EXPECT_GT(cloud->generated_count, 30u);
    EXPECT_EQ(cloud->lit_count, 0u);
    const RtPoint origin = { 0, 0, 0.5f };
    const RtVector aside = { 3, 0, 0.5f };
    const RtVector dir = rv::unit(aside);
    RtRay ray;
    RvMakeRay(&ray, RV_RAY_DIFFUSE, &origin, &dir, 1e30, nullptr);
    EXPECT_GT(traced(ray).color.r, 0.1f); // what could have come to the points
}

// ---- Trouble ----

TEST_F(Clouds, a_stopped_build_keeps_nothing)
{
    sheet(4, 0.1f);
    distantLight();
    prepare();
    const RtShaderGlobals sg = hitAt(0, 0);
    std::atomic<int> stop = 1;
    rv::startPointClouds(&stop);
    expectGrey(lookUp(sg, { 1, 1, 1 }), 0, 0);
    EXPECT_EQ(cloudsDone(), 0u);
    stop = 0;
    EXPECT_GT(lookUp(sg, { 1, 1, 1 }).r, 0);
    rv::endPointClouds();
}

TEST_F(Clouds, a_stop_in_the_middle_ends_a_build)
{
    RtNode* const node = sheet(4, 0.1f);
    set("GI_diffuse_depth", 1);
    set("GI_diffuse_samples", 1);
    setBackground(RV_RGB_WHITE);
    prepare();
    static std::atomic<int> stop, calls;
    stop = calls = 0;
    {
        node_tools::HookOverride override;
        override.hooks.shadeBackground = [](RtShaderGlobals* sg) {
            if (++calls == 20)
                stop = 2;
            sg->out.RGB = RV_RGB_WHITE;
            return int(RV_TYPE_RGB);
        };
        EXPECT_EQ(rv::buildPointCloud(
                      { rv::objectOf(node), rv::show_no_samples, { .stop_request = &stop } }),
                  nullptr);
    }
    EXPECT_EQ(calls, 20);
    const std::vector<LoggedMessage> reports = takeReports();
    ASSERT_FALSE(reports.empty());
    EXPECT_EQ(reports.back().text,
              "[sss] point cloud given up, because the render is to stop - sheet");
    EXPECT_TRUE(reports.back().mask & RV_LOG_DEBUG);
}

TEST_F(Clouds, long_builds_report_their_progress)
{
    RtNode* const node = sheet(4, 0.5f);
    distantLight();
    prepare();
    messages().clear();
    const Cloud cloud(rv::buildPointCloud({ rv::objectOf(node), rv::show_no_samples, {}, 0 }));
    std::vector<std::string> progress;
    for (const LoggedMessage& m : takeReports())
        if (m.mask & RV_LOG_PROGRESS)
            progress.push_back(m.text);
    ASSERT_EQ(progress.size(), cloud->points.size());
    const std::string of = " of " + std::to_string(progress.size()) + " samples lit - sheet";
    EXPECT_EQ(progress[0], "[sss]   0%" + of);
    EXPECT_EQ(progress[progress.size() / 2],
              "[sss]  " + std::to_string(progress.size() / 2 * 100 / progress.size()) + "%" + of);
    cloudOf(node);
    for (const LoggedMessage& m : takeReports())
        EXPECT_FALSE(m.mask & RV_LOG_PROGRESS) << m.text;
}

TEST_F(Clouds, an_exhausted_heap_leaves_an_object_without_scattered_light)
{
    set("abort_on_error", false);
    sheet(4, 0.2f);
    distantLight();
    prepare();
    const RtShaderGlobals sg = hitAt(0, 0);
    bool is_done = false;
    for (long allowed = 0; allowed < 100 && !is_done; ++allowed) {
        RtRGB got;
        {
            const node_tools::AllocationLimit limit(allowed);
            got = lookUp(sg, { 1, 1, 1 });
        }
        is_done = got.r > 0;
        EXPECT_TRUE(takeProblem() != "" || is_done) << allowed;
        flushShapes();
    }
    EXPECT_TRUE(is_done);
    EXPECT_GT(lookUp(sg, { 1, 1, 1 }).r, 0);
}

TEST_F(Clouds, lookups_are_counted)
{
    RtNode* const node = sheet(4, 0.2f);
    distantLight();
    declare<uint8_t>(node, "other", "uniform BOOL", RV_TYPE_BOOLEAN, { 1 });
    prepare();
    for (int i = 0; i < 5; ++i)
        at(0, 0.1f * float(i));
    const Cloud cloud = cloudOf(node);
    const RtStats& stats = *rv::threadStats();
    EXPECT_EQ(stats.sss_lookups, 5u);
    EXPECT_EQ(stats.sss_computed, 0u); // only the cache of camera samples counts these
    EXPECT_EQ(stats.sss_generated, 2 * cloud->points.size());
    EXPECT_EQ(stats.sss_stored.objects, 2u);
    EXPECT_EQ(stats.sss_stored.total, 2u * cloud->lit_count);
    EXPECT_EQ(stats.sss_stored.least, cloud->lit_count);
    const RtRayCount& shadows = rayStats().rows[RV_PASS_SSS][RV_ROW_SHADOW];
    EXPECT_EQ(shadows.rays, stats.sss_generated);
    EXPECT_EQ(rayStats().rows[RV_PASS_PIXELS][RV_ROW_SHADOW].rays, 0u);
}
