// Tests of core/src/lights/light_blocker.cpp and blocker_shapes.cpp: the "light_blocker" light
// filter.
#include "filter_tools.h"
#include "lights/blocker_shapes.h"

using namespace filter_tools;
using rv::BlockerSettings;
using rv::Blocking;
using rv::blockingAt;

class Blockers : public Filtered {
protected:
    void SetUp() override
    {
        Filtered::SetUp();
        blocker = named("light_blocker", "blocker");
    }

    void setMatrix(const RtMatrix& matrix) { RvNodeSetMatrix(blocker, "geometry_matrix", &matrix); }
    // Of a shape of that size around a place.
    void setPlace(const RtPoint& center, const RtVector& size)
    {
        RtMatrix scale, move, matrix;
        RvM4Scaling(&scale, &size);
        RvM4Translation(&move, &center);
        RvM4Mult(&matrix, &scale, &move);
        setMatrix(matrix);
    }
    // The shadow at a point that is lit from straight above.
    RtRGB shadowAt(const RtPoint& point, const RtRGB& before = RV_RGB_BLACK, float distance = 10)
    {
        updateNode(blocker);
        RtShaderGlobals sg = litBy(nullptr);
        sg.point = point;
        sg.light_dist = distance;
        sg.light_shadow = before;
        RvShaderEvaluate(blocker, &sg);
        EXPECT_EQ(text(sg.light_unoccluded), "1 1 1");
        return sg.light_shadow;
    }

    RtNode* blocker = nullptr;
};

// ---- Golden numbers ----

static int indexIn(std::initializer_list<const char*> names, const std::string& name)
{
    const auto found = std::find(names.begin(), names.end(), name);
    EXPECT_NE(found, names.end()) << name;
    return int(found - names.begin());
}

static BlockerSettings settingsOf(const nlohmann::json& in)
{
    return { .geometry_type = indexIn({ "box", "sphere", "plane", "cylinder" },
                                      in["geometry_type"].get<std::string>()),
             .roundness = 0,
             .width_edge = goldenFloat(in["width_edge"]),
             .height_edge = goldenFloat(in["height_edge"]),
             .ramp = goldenFloat(in["ramp"]),
             .ramp_axis =
                 indexIn({ "x", "y", "z", "X", "Y", "Z" }, in["ramp_axis"].get<std::string>()) };
}

static RtPoint pointOf(const nlohmann::json& value)
{
    const auto p = goldenFloats(value);
    return { p[0], p[1], p[2] };
}

// Identity when the vector has no such matrix.
static RtMatrix matrixOf(const nlohmann::json& in, const char* key)
{
    RtMatrix matrix = RV_M4_IDENTITY;
    if (in.contains(key)) {
        const auto values = goldenFloats(in[key]);
        std::copy(values.begin(), values.end(), &matrix.m[0][0]);
    }
    return matrix;
}

TEST_F(Blockers, shapes_agree_with_the_golden_vectors)
{
    for (const auto& v : goldenVectors("lights", "light_blocker")) {
        const auto& in = v["in"];
        const RtMatrix to_shape = matrixOf(in, "world_to_shape");
        const RtPoint world = pointOf(in["P"]);
        RtPoint P;
        RvM4PointByMatrixMult(&P, &to_shape, &world);
        const Blocking at = blockingAt(settingsOf(in), P, { 0, 0, 0 });
        expectGoldenNumbers(v, "outside", { float(at.outside) });
        expectGoldenNumbers(v, "ramp", { float(at.ramp) });
    }
}

TEST_F(Blockers, shadows_agree_with_the_golden_vectors)
{
    for (const auto& v : goldenVectors("lights", "light_blocker")) {
        const auto& in = v["in"];
        for (const char* name : { "geometry_type", "ramp_axis" })
            RvNodeSetStr(blocker, name, in[name].get<std::string>().c_str());
        for (const char* name : { "width_edge", "height_edge", "ramp", "density" })
            RvNodeSetFlt(blocker, name, goldenFloat(in[name]));
        setMatrix(matrixOf(in, "geometry_matrix"));
        const auto before = goldenFloats(in["light_shadow"]);
        const RtRGB got = shadowAt(pointOf(in["P"]), { before[0], before[1], before[2] });
        expectGoldenNumbers(v, "light_shadow", { got.r, got.g, got.b });
    }
}

TEST_F(Blockers, planes_that_are_not_crossed_agree_with_the_golden_vectors)
{
    for (const auto& v : goldenVectors("lights", "light_blocker_plane_no_crossing")) {
        const auto& in = v["in"];
        const BlockerSettings plane = { rv::blocker_plane, 0, 0, 0, 0, 0 };
        const Blocking at = blockingAt(plane, pointOf(in["P"]), pointOf(in["Q"]));
        expectGoldenNumbers(v, "outside", { float(at.outside) });
        expectGoldenNumbers(v, "ramp", { float(at.ramp) });
        RvNodeSetStr(blocker, "geometry_type", "plane");
        RvNodeSetFlt(blocker, "density", goldenFloat(in["density"]));
        updateNode(blocker);
        RtShaderGlobals sg = litBy(nullptr);
        const auto before = goldenFloats(in["light_shadow"]);
        sg.point = pointOf(in["P"]);
        sg.light_shadow = { before[0], before[1], before[2] };
        const RtVector way = pointOf(in["Q"]) - sg.point;
        sg.light_dir = rv::unit(way);
        sg.light_dist = sqrtf(rv::dot(way, way));
        RvShaderEvaluate(blocker, &sg);
        const RtRGB& shadow = sg.light_shadow;
        expectGoldenNumbers(v, "light_shadow", { shadow.r, shadow.g, shadow.b });
    }
}

// ---- Shapes ----

TEST_F(Blockers, hard_shapes_are_one_unit_wide)
{
    const struct {
        const char* name;
        int type;
        RtPoint inside, outside;
    } rows[] = {
        { "box x", rv::blocker_box, { 0.49f, 0.4f, -0.4f }, { 0.51f, 0.4f, -0.4f } },
        { "box y", rv::blocker_box, { 0.4f, -0.49f, 0.4f }, { 0.4f, -0.51f, 0.4f } },
        { "box z", rv::blocker_box, { 0.4f, 0.4f, 0.49f }, { 0.4f, 0.4f, 0.51f } },
        { "sphere", rv::blocker_sphere, { 0.28f, 0.28f, 0.28f }, { 0.3f, 0.3f, 0.3f } },
        { "cylinder", rv::blocker_cylinder, { 0.35f, 0.49f, 0.35f }, { 0.36f, 0.4f, 0.36f } },
        { "cylinder y", rv::blocker_cylinder, { 0.3f, -0.49f, 0.3f }, { 0.3f, -0.51f, 0.3f } },
    };
    for (const auto& row : rows) {
        const BlockerSettings hard = { row.type, 0, 0, 0, 0, 0 };
        EXPECT_EQ(blockingAt(hard, row.inside, {}).outside, 0) << row.name;
        EXPECT_EQ(blockingAt(hard, row.outside, {}).outside, 1) << row.name;
        EXPECT_EQ(blockingAt(hard, row.inside, {}).ramp, 1) << row.name;
    }
}

TEST_F(Blockers, edges_lie_outside_or_inside_of_the_shape)
{
    const auto outside = [](float edge, float x) {
        return blockingAt({ rv::blocker_sphere, 0, edge, edge, 0, 0 }, { x, 0, 0 }, {}).outside;
    };
    EXPECT_EQ(outside(0.25f, 0.5f), 0);
    EXPECT_DOUBLE_EQ(outside(0.25f, 0.625f), 0.5);
    EXPECT_EQ(outside(0.25f, 0.75f), 1);
    EXPECT_EQ(outside(-0.25f, 0.25f), 0);
    EXPECT_DOUBLE_EQ(outside(-0.25f, 0.375f), 0.5);
    EXPECT_EQ(outside(-0.25f, 0.5f), 1);
    for (float edge : { -0.5f, -7.0f }) // no further inwards than the centre
        EXPECT_DOUBLE_EQ(outside(edge, 0.25f), 0.5) << edge;
}

TEST_F(Blockers, the_upper_case_axes_of_a_box_deliberately_have_no_ramp_of_their_own)
{
    const RtPoint P = { 0.25f, 0.3f, 0.4f };
    const double along_x = blockingAt({ rv::blocker_box, 0, 0, 0, 1, 0 }, P, {}).ramp;
    EXPECT_NEAR(along_x, 0.75, 1e-4);
    EXPECT_NEAR(blockingAt({ rv::blocker_box, 0, 0, 0, 1, 1 }, P, {}).ramp, 0.8, 1e-4);
    EXPECT_NEAR(blockingAt({ rv::blocker_box, 0, 0, 0, 1, 2 }, P, {}).ramp, 0.9, 1e-4);
    for (int axis : { 3, 4, 5 }) {
        EXPECT_EQ(blockingAt({ rv::blocker_box, 0, 0, 0, 0.5f, axis }, P, {}).ramp, 0) << axis;
        EXPECT_EQ(blockingAt({ rv::blocker_box, 0, 0, 0, -0.5f, axis }, P, {}).ramp, 1) << axis;
    }
}

TEST_F(Blockers, cylinders_ramp_along_their_axis_for_every_axis_but_x_and_z)
{
    const RtPoint P = { 0.3f, 0.25f, 0.4f }; // at half a unit from the axis
    for (int axis : { 1, 3, 4, 5 })
        EXPECT_DOUBLE_EQ(blockingAt({ rv::blocker_cylinder, 0, 0, 0, 1, axis }, P, {}).ramp, 0.75)
            << axis;
    for (int axis : { 0, 2 })
        EXPECT_NEAR(blockingAt({ rv::blocker_cylinder, 0, 0, 0, 1, axis }, P, {}).ramp, 0, 1e-6)
            << axis;
}

TEST_F(Blockers, ramps_of_spheres_are_radial)
{
    const auto ramp = [](float k, float x) {
        return blockingAt({ rv::blocker_sphere, 0, 0, 0, k, 1 }, { x, 0, 0 }, {}).ramp;
    };
    EXPECT_EQ(ramp(0, 0.25f), 1);
    EXPECT_EQ(ramp(1, 0), 1);
    EXPECT_DOUBLE_EQ(ramp(1, 0.25f), 0.5);
    EXPECT_EQ(ramp(0.5f, 0.25f), 1); // starts half way
    EXPECT_DOUBLE_EQ(ramp(0.5f, 0.375f), 0.5);
    EXPECT_EQ(ramp(-1, 0), 0);
    EXPECT_DOUBLE_EQ(ramp(-1, 0.125f), 0.25);
    EXPECT_EQ(ramp(-0.5f, 0.25f), 1);
}

// ---- Planes ----

static Blocking throughPlane(const BlockerSettings& settings, float x, float y)
{
    return blockingAt(settings, { x + 1, y - 2, -1 }, { x - 2, y + 4, 2 });
}

TEST_F(Blockers, a_plane_blocks_what_crosses_it_within_its_outline)
{
    const BlockerSettings plane = { rv::blocker_plane, 0, 0, 0, 0, 0 };
    EXPECT_EQ(throughPlane(plane, 0.49f, -0.49f).outside, 0);
    EXPECT_EQ(throughPlane(plane, 0.51f, 0).outside, 1);
    EXPECT_EQ(throughPlane(plane, 0, 0.51f).outside, 1);
    const struct {
        const char* name;
        float pz, qz;
        double outside;
    } rows[] = {
        { "up", -1, 1, 0 },     { "down", 1, -1, 0 },        { "above", 1, 2, 1 },
        { "below", -2, -1, 1 }, { "starts on it", 0, 1, 1 }, { "ends on it", -1, 0, 1 },
    };
    for (const auto& row : rows) {
        const Blocking at = blockingAt(plane, { 0, 0, row.pz }, { 0, 0, row.qz });
        EXPECT_EQ(at.outside, row.outside) << row.name;
        EXPECT_EQ(at.ramp, 1) << row.name;
    }
}

TEST_F(Blockers, light_from_very_far_away_crosses_a_plane_where_it_should)
{
    const BlockerSettings plane = { rv::blocker_plane, 0, 0, 0, 1, 0 };
    const RtPoint P = { -0.25f, 0.1f, -0.25f };
    const Blocking at = blockingAt(plane, P, { 6e11f, 0, 8e11f }); // 3/4 to the side of the way up
    EXPECT_EQ(at.outside, 0);
    EXPECT_NEAR(at.ramp, 0.5 - 0.25 + 0.25 * 0.75, 1e-6);
}

TEST_F(Blockers, along_y_the_ramp_of_a_plane_is_deliberately_not_centred)
{
    const auto ramp = [](int axis, float height_edge, float x, float y) {
        return throughPlane({ rv::blocker_plane, 0, 0, height_edge, 1, axis }, x, y).ramp;
    };
    EXPECT_NEAR(ramp(0, 0, 0.25f, -0.4f), 0.75, 1e-6);
    for (int axis = 1; axis < 6; ++axis) {
        EXPECT_NEAR(ramp(axis, 0, 0.25f, -0.4f), 0.5 - 0.4, 1e-6) << axis;
        // 0.75 + y / 1.5 where the centred form would have (y + 0.75) / 1.5.
        EXPECT_NEAR(ramp(axis, 0.25f, 0.25f, -0.3f), 0.75 - 0.2, 1e-6) << axis;
    }
}

static BlockerSettings roundedPlane(float roundness, float width_edge, float height_edge)
{
    return { rv::blocker_plane, roundness, width_edge, height_edge, 0, 0 };
}

TEST_F(Blockers, rounded_planes_are_0_inside_and_1_outside_and_rise_between)
{
    for (float roundness : { 0.0f, 1e-7f, 1e-5f, 0.01f, 0.3f, 0.7f, 0.99f, 0.99995f, 1.0f, 5.0f })
        for (const auto& [we, he] : { std::pair{ 0.5f, 0.25f },
                                      { -0.25f, 0.25f },
                                      { -0.5f, -0.5f },
                                      { 0.0f, 0.0f },
                                      { -0.5f, 1.0f } })
            for (double angle = 0; angle < 6.3; angle += 0.1) {
                const BlockerSettings plane = roundedPlane(roundness, we, he);
                const float c = float(cos(angle)), s = float(sin(angle));
                double before = 0;
                for (float r = 0.01f; r < 3; r += 0.03f) {
                    const double outside = throughPlane(plane, r * c, r * s).outside;
                    ASSERT_GE(outside, before - 1e-9) << roundness << " " << angle << " " << r;
                    before = outside;
                }
                ASSERT_EQ(before, 1) << roundness << " " << angle;
            }
}

TEST_F(Blockers, roundness_leads_from_a_rectangle_to_an_ellipse)
{
    // Inner half sizes 0.5 and 0.5, outer ones 1 and 0.75.
    const auto outside = [](float roundness, float x, float y) {
        return throughPlane(roundedPlane(roundness, 0.5f, 0.25f), x, y).outside;
    };
    // A corner of the core, which only the rectangle covers.
    EXPECT_EQ(outside(0, 0.49f, 0.49f), 0);
    EXPECT_GT(outside(1, 0.49f, 0.49f), 0.3);
    // The outlines: of the ellipse, and of the superellipse of exponent 4.
    for (double angle : { 0.2, 0.8, 1.3 }) {
        const double c = cos(angle), s = sin(angle);
        const float r = 0.999f, R = 1.001f;
        EXPECT_EQ(outside(1, float(0.5 * c) * r, float(0.5 * s) * r), 0) << angle;
        EXPECT_GT(outside(1, float(0.5 * c) * R, float(0.5 * s) * R), 0) << angle;
        EXPECT_LT(outside(1, float(c) * r, float(0.75 * s) * r), 1) << angle;
        EXPECT_EQ(outside(1, float(c) * R, float(0.75 * s) * R), 1) << angle;
        const double x = sqrt(c), y = sqrt(s);
        EXPECT_EQ(outside(0.5f, float(0.5 * x) * r, float(0.5 * y) * r), 0) << angle;
        EXPECT_GT(outside(0.5f, float(0.5 * x) * R, float(0.5 * y) * R), 0) << angle;
        EXPECT_LT(outside(0.5f, float(x) * r, float(0.75 * y) * r), 1) << angle;
        EXPECT_EQ(outside(0.5f, float(x) * R, float(0.75 * y) * R), 1) << angle;
    }
    // Along the axes all of them have the same edge.
    for (float roundness : { 0.1f, 0.5f, 1.0f }) {
        for (float x : { 0.6f, 0.6875f, 0.75f, 0.9f })
            EXPECT_NEAR(outside(roundness, x, 0), outside(0, x, 0), 1e-5) << roundness << " " << x;
        EXPECT_EQ(outside(roundness, 0.49f, 0), 0) << roundness;
        EXPECT_EQ(outside(roundness, 1.01f, 0), 1) << roundness;
    }
}

// ---- Density ----

TEST_F(Blockers, density_0_changes_nothing)
{
    for (const char* type : { "box", "sphere", "plane", "cylinder" }) {
        RvNodeSetStr(blocker, "geometry_type", type);
        RvNodeSetFlt(blocker, "ramp", 0.5f);
        const RtRGB before = { 0.1f, 0.3f, -0.7f };
        for (const RtPoint& P : { RtPoint{ 0, 0, 0 }, RtPoint{ 0.1f, 0.2f, -0.3f } }) {
            const RtRGB shadow = shadowAt(P, before);
            EXPECT_EQ(memcmp(&shadow, &before, sizeof shadow), 0) << type;
        }
    }
}

TEST_F(Blockers, density_blocks_inside_and_negative_density_outside)
{
    const RtPoint inside = { 0, 0, 0 }, outside = { 2, 0, 0 };
    const struct {
        float density, inside, outside;
    } rows[] = { { 0.25f, 0.25f, 0 },  { 1, 1, 0 },  { 7, 1, 0 },
                 { -0.25f, 0, 0.25f }, { -1, 0, 1 }, { -7, 0, 1 } };
    for (const auto& row : rows) {
        RvNodeSetFlt(blocker, "density", row.density);
        EXPECT_FLOAT_EQ(shadowAt(inside).g, row.inside) << row.density;
        EXPECT_FLOAT_EQ(shadowAt(outside).g, row.outside) << row.density;
    }
}

TEST_F(Blockers, shadows_are_combined_with_those_of_filters_before)
{
    RvNodeSetFlt(blocker, "density", 0.5f);
    EXPECT_EQ(text(shadowAt({ 0, 0, 0 }, { 0, 0.5f, 1 })), "0.5 0.75 1");
}

// ---- Space ----

TEST_F(Blockers, the_matrix_places_the_shape_in_the_world)
{
    RvNodeSetFlt(blocker, "density", 1);
    setPlace({ 3, 0, -1 }, { 4, 1, 2 });
    EXPECT_EQ(shadowAt({ 4.9f, 0, -1 }).r, 1);
    EXPECT_EQ(shadowAt({ 5.1f, 0, -1 }).r, 0);
    EXPECT_EQ(shadowAt({ 1.1f, 0.4f, -1.9f }).r, 1);
    EXPECT_EQ(shadowAt({ 1.1f, 0.6f, -1.9f }).r, 0);
    setPlace({ 100, 0, 0 }, { 1, 1, 1 }); // takes effect with the next update
    EXPECT_EQ(shadowAt({ 4.9f, 0, -1 }).r, 0);
    EXPECT_EQ(shadowAt({ 100, 0, 0 }).r, 1);
}

TEST_F(Blockers, a_tiny_shape_blocks_as_a_large_one_does)
{
    RvNodeSetFlt(blocker, "density", 1);
    setPlace({ 0, 0, 0 }, { 1e-4f, 1e-4f, 1e-4f });
    EXPECT_EQ(shadowAt({ 0.4e-4f, 0, 0 }).r, 1);
    EXPECT_EQ(shadowAt({ 0.6e-4f, 0, 0 }).r, 0);
}

TEST_F(Blockers, flat_shapes_block_nothing)
{
    RvNodeSetFlt(blocker, "density", 1);
    for (const char* type : { "box", "sphere", "plane", "cylinder" })
        for (const RtVector& size : { RtVector{ 1, 0, 1 }, { 0, 0, 0 } }) {
            RvNodeSetStr(blocker, "geometry_type", type);
            setPlace({ 0, 0, 0 }, size);
            EXPECT_EQ(text(shadowAt({ 0, 0, -1 }, { 0, 0.25f, 1 })), "0 0.25 1") << type;
        }
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Blockers, only_planes_ask_how_far_away_the_light_is)
{
    RvNodeSetFlt(blocker, "density", 1);
    setPlace({ 0, 0, 0.05f }, { 0.25f, 0.25f, 0.25f });
    // Light from where the shape has no numbers for it.
    for (const char* type : { "box", "sphere", "cylinder", "plane" }) {
        RvNodeSetStr(blocker, "geometry_type", type);
        EXPECT_EQ(shadowAt({ 0, 0, 0 }, RV_RGB_BLACK, 3e38f).r, *type == 'p' ? 0 : 1) << type;
        EXPECT_EQ(shadowAt({ 0, 0, 0 }).r, 1) << type;
    }
}

TEST_F(Blockers, without_memory_the_shape_stays_in_the_middle_of_the_world)
{
    RvNodeSetFlt(blocker, "density", 1);
    setPlace({ 100, 0, 0 }, { 1, 1, 1 });
    {
        const node_tools::AllocationLimit limit(0);
        updateNode(blocker);
    }
    EXPECT_TRUE(node_tools::reportsFailure(takeProblem(), "core\\src\\lights\\light_blocker",
                                           "Initialize"));
    EXPECT_EQ(shadowAt({ 0, 0, 0 }).r, 1);
    EXPECT_EQ(shadowAt({ 100, 0, 0 }).r, 0);
}

TEST_F(Blockers, links_of_parameters_deliberately_have_no_effect)
{
    RvNodeSetFlt(blocker, "density", 0.25f);
    RvNodeLink(shader_tools::floatShader("one", 1), "density", blocker);
    EXPECT_EQ(shadowAt({ 0, 0, 0 }).r, 0.25f);
}

// ---- In a scene ----

TEST_F(Blockers, a_plane_between_a_lamp_and_the_floor_casts_its_outline)
{
    RvNodeSetStr(blocker, "geometry_type", "plane");
    RvNodeSetFlt(blocker, "density", 0.75f);
    RtNode* const spot = lamp();
    setFilters(spot, { blocker });
    const struct {
        const char* name;
        float height; // of the plane, 4 units wide and 2 high
        RtPoint point;
        float light;
    } rows[] = {
        { "in the middle", 5, { 0, 0, 0 }, 0.25f }, { "within", 5, { 3.9f, 1.9f, 0 }, 0.25f },
        { "beside", 5, { 4.1f, 1.9f, 0 }, 1 },      { "behind", 5, { 3.9f, 2.1f, 0 }, 1 },
        { "below the floor", -1, { 0, 0, 0 }, 1 },  { "above the lamp", 11, { 0, 0, 0 }, 1 },
    };
    for (const auto& row : rows) {
        setPlace({ 0, 0, row.height }, { 4, 2, 1 });
        prepare();
        updateNode(blocker);
        EXPECT_NEAR(samples(row.point).at(0).radiance.r, row.light, 1e-6) << row.name;
    }
}

TEST_F(Blockers, light_that_is_fully_blocked_needs_no_shadow_ray)
{
    RvNodeSetFlt(blocker, "density", 1);
    RtNode* const spot = lamp();
    RvNodeSetBool(spot, "cast_shadows", true);
    disc("floor", 0);
    for (bool blocks : { true, false }) {
        setPlace({ 0, 0, blocks ? 0.0f : 50.0f }, { 1, 1, 1 });
        prepare();
        updateNode(blocker);
        setFilters(spot, { blocker });
        RtShaderGlobals sg = surface({ 0, 0, 0.1f });
        sg.object = RvNodeLookUpByName("floor");
        const uint64_t before = rayStats().rows[RV_PASS_PIXELS][RV_ROW_SHADOW].rays;
        EXPECT_EQ(samplesAt(sg).size(), blocks ? 0u : 1u);
        EXPECT_EQ(rayStats().rows[RV_PASS_PIXELS][RV_ROW_SHADOW].rays - before, blocks ? 0u : 1u);
    }
}
