// Tests of implicit: marching through the field of a shader.
#include "objects/simple.h"
#include "rv_shaderglobals.h"
#include "shape_tools.h"

using namespace shape_tools;

namespace {

class Implicit : public ShapesByNumbers {
protected:
    using Field = std::function<float(const RtShaderGlobals&)>;

    void SetUp() override
    {
        Universe::SetUp();
        static const RtCommonMethods common = {};
        static const RtShaderMethods evaluate = { [](RtNode*, RtShaderGlobals* sg) {
            ++evaluations;
            sg->out.FLT = field(*sg);
        } };
        static const RtShaderMethods evaluate_colour = { [](RtNode*, RtShaderGlobals* sg) {
            sg->out.RGB = { field(*sg), 0, 0 };
        } };
        static const RtNodeMethods methods = { &common, &evaluate };
        static const RtNodeMethods colour_methods = { &common, &evaluate_colour };
        RvNodeInstall(RV_NODE_SHADER, RV_TYPE_FLOAT, "test_field", nullptr, &methods, RV_VERSION);
        RvNodeInstall(RV_NODE_SHADER, RV_TYPE_RGB, "test_colour", nullptr, &colour_methods,
                      RV_VERSION);
        evaluations = 0;
    }

    static RtNode* implicit(const Field& of, const char* shader = "test_field")
    {
        field = of;
        RtNode* const node = shape("implicit");
        if (shader)
            RvNodeSetPtr(node, "field", named(shader));
        return node;
    }
    static RtNode* preparedImplicit(const Field& of)
    {
        RtNode* const node = implicit(of);
        EXPECT_TRUE(prepared(node));
        return node;
    }
    static RtNode* named(const char* type)
    {
        RtNode* const node = RvNode(type);
        RvNodeSetStr(node, "name", "field");
        return node;
    }

    static float ball(const RtShaderGlobals& sg)
    {
        return float(length(double3(sg.object_point)) - 0.4);
    }

    static inline Field field;
    static inline int evaluations = 0;
};

} // namespace

TEST_F(Implicit, uniform_sampling_takes_the_first_sample_behind_the_surface)
{
    RtNode* const node = preparedImplicit(ball);
    // Samples lie at 1.5, 1.6, ..., 2.4; the surface at 1.6 and 2.4.
    ShotRay ray = { { 0, 0, 2 }, { 0, 0, -1 } };
    const std::vector<RtHit> hits = shoot(node, ray);
    ASSERT_EQ(hits.size(), 1u);
    EXPECT_GE(hits[0].t, 1.59f);
    EXPECT_LE(hits[0].t, 1.7f + 1e-5f);
    EXPECT_EQ(hits[0].u, 0);
    EXPECT_EQ(hits[0].v, 0);
    ray.origin.z = 2.05f; // the samples move along with the box
    RvNodeSetUInt(node, "samples", 1000);
    EXPECT_NEAR(distances(node, ray).at(0), 1.65f, 0.0011f);
}

TEST_F(Implicit, samples_divide_the_clipped_ray)
{
    RtNode* const node = preparedImplicit([](const RtShaderGlobals&) { return 1.0f; });
    RvNodeSetUInt(node, "samples", 7);
    EXPECT_EQ(shoot(node, { { 0, 0, 2 }, { 0, 0, -1 } }).size(), 0u);
    EXPECT_EQ(evaluations, 7);
}

TEST_F(Implicit, ten_samples_miss_what_is_thinner_than_a_tenth)
{
    RtNode* const node = preparedImplicit([](const RtShaderGlobals& sg) {
        return fabsf(sg.object_point.z - 0.05f) - 0.02f; // between two samples
    });
    const ShotRay ray = { { 0, 0, 2 }, { 0, 0, -1 } };
    EXPECT_EQ(shoot(node, ray).size(), 0u);
    RvNodeSetUInt(node, "samples", 100);
    EXPECT_EQ(shoot(node, ray).size(), 1u);
}

TEST_F(Implicit, a_ray_from_inside_meets_the_surface_from_inside)
{
    RtNode* const node = preparedImplicit(ball);
    RvNodeSetUInt(node, "samples", 1000);
    EXPECT_NEAR(distances(node, { { 0, 0, 0 }, { 0, 0, -1 } }).at(0), 0.4f, 0.001f);
}

TEST_F(Implicit, the_threshold_selects_the_level)
{
    RtNode* const node = implicit(ball);
    RvNodeSetFlt(node, "threshold", -0.2f);
    RvNodeSetUInt(node, "samples", 1000);
    ASSERT_TRUE(prepared(node));
    EXPECT_NEAR(distances(node, { { 0, 0, 2 }, { 0, 0, -1 } }).at(0), 1.8f, 0.0011f);
}

TEST_F(Implicit, the_level_set_solver_steps_by_the_distance)
{
    RtNode* const node = implicit(ball);
    RvNodeSetInt(node, "solver", 1);
    ASSERT_TRUE(prepared(node));
    const ShotRay straight = { { 0, 0, 2 }, { 0, 0, -1 } };
    EXPECT_NEAR(distances(node, straight).at(0), 1.6f, 2e-5f);
    EXPECT_LT(evaluations, 10);
    const ShotRay aslant = { { 0.2f, 0.1f, 2 }, { 0, 0, -1 } };
    EXPECT_NEAR(distances(node, aslant).at(0), 2 - sqrtf(0.16f - 0.05f), 5e-5f);
    EXPECT_EQ(shoot(node, { { 0.45f, 0, 2 }, { 0, 0, -1 } }).size(), 0u);
}

TEST_F(Implicit, a_level_set_step_is_never_longer_than_one)
{
    RtNode* const node = implicit([](const RtShaderGlobals&) { return 5.0f; });
    RvNodeSetInt(node, "solver", 1);
    set(node, "min", RtPoint{ -5, -5, -5 });
    set(node, "max", RtPoint{ 5, 5, 5 });
    ASSERT_TRUE(prepared(node));
    EXPECT_EQ(shoot(node, { { 0, 0, 6 }, { 0, 0, -1 } }).size(), 0u);
    EXPECT_EQ(evaluations, 10);
}

TEST_F(Implicit, normals_are_the_gradient_of_the_field)
{
    RtNode* const node = preparedImplicit(ball);
    for (const RtPoint& p : { RtPoint{ 0.4f, 0, 0 }, { 0, -0.4f, 0 }, { 0.24f, 0.32f, 0 } }) {
        const RtLocalGeometry g = geometryAt(node, p);
        const Double3 want = normalized(double3(p));
        EXPECT_NEAR(dot(double3(g.Ng), want), 1, 1e-3);
        EXPECT_NEAR(length(double3(g.N)), 1, 1e-6);
        EXPECT_EQ(numbersOf(g.N), numbersOf(g.Ng));
    }
}

TEST_F(Implicit, a_flat_field_faces_the_ray)
{
    RtNode* const node = preparedImplicit([](const RtShaderGlobals&) { return 1.0f; });
    EXPECT_EQ(numbersOf(geometryAt(node, { 0, 0, 0 }).N), (std::vector<float>{ 0, 0, 1 }));
    RtMatrix world_to_object;
    RvM4RotationX(&world_to_object, 90); // takes -z to y
    RtHit hit = {};
    hit.object = rv::objectOf(node);
    const RtVector dir = { 0, 0, -1 };
    const RtPoint point = { 0, 0, 0 };
    RtLocalGeometry geometry = {};
    rv::shapeMethods(node).ShapeLocalGeometry(&dir, 0, &world_to_object, &hit, &point, &geometry);
    EXPECT_FLOAT_EQ(geometry.N.y, -1);
}

TEST_F(Implicit, the_field_sees_the_position_the_object_and_the_time)
{
    RtNode* shape_node = nullptr;
    int wrong = 0;
    RtNode* const node = preparedImplicit([&](const RtShaderGlobals& sg) {
        wrong += sg.object != shape_node || sg.time != 0.25f || sg.stage != 0 || !sg.state ||
                 sg.thread_index != 0 || sg.out_opacity.r != 1 || sg.out.FLT != 0 ||
                 sg.object_to_world.m[3][3] != 1 || sg.front_hemisphere_only != 1 ||
                 memcmp(&sg.point, &sg.object_point, sizeof sg.point) ||
                 RvNodeGetName(sg.shader) != RvNodeGetName(RvNodeLookUpByName("field"));
        return ball(sg);
    });
    shape_node = node;
    ShotRay ray = { { 0, 0, 2 }, { 0, 0, -1 } };
    ray.time = 0.25f;
    EXPECT_EQ(shoot(node, ray).size(), 1u);
    EXPECT_GT(evaluations, 0);
    EXPECT_EQ(wrong, 0);
}

TEST_F(Implicit, without_a_float_field_it_is_never_hit)
{
    const ShotRay ray = { { 0, 0, 2 }, { 0, 0, -1 } };
    for (const char* shader : { "", "test_colour", "sphere" })
        for (int solver : { 0, 1 }) {
            RtNode* const node = implicit(ball, *shader ? shader : nullptr);
            RvNodeSetInt(node, "solver", solver);
            RvNodeSetFlt(node, "threshold", -1); // a constant field of 0 lies above it
            ASSERT_TRUE(prepared(node));
            EXPECT_EQ(shoot(node, ray).size(), 0u) << shader << solver;
        }
    RtNode* const bare = implicit(ball, nullptr);
    RvNodeSetInt(bare, "solver", 1);
    ASSERT_TRUE(prepared(bare));
    EXPECT_EQ(shoot(bare, ray).size(), 0u);
    EXPECT_EQ(evaluations, 0);
    takeProblems();
}

TEST_F(Implicit, the_value_of_a_shader_is_its_float_output)
{
    RtShaderGlobals sg = {};
    field = [](const RtShaderGlobals& context) { return context.object_point.y; };
    EXPECT_EQ(rv::evaluateField(named("test_field"), &sg, { 1, 2, 3 }), 2);
    EXPECT_EQ(rv::evaluateField(named("test_colour"), &sg, { 1, 2, 3 }), 0);
    EXPECT_EQ(rv::evaluateField(named("box"), &sg, { 1, 2, 3 }), 0);
    EXPECT_EQ(rv::evaluateField(nullptr, &sg, { 1, 2, 3 }), 0);
}

TEST_F(Implicit, no_samples_find_nothing)
{
    RtNode* const node = preparedImplicit(ball);
    RvNodeSetUInt(node, "samples", 0);
    EXPECT_EQ(shoot(node, { { 0, 0, 2 }, { 0, 0, -1 } }).size(), 0u);
    RvNodeSetInt(node, "solver", 1);
    EXPECT_EQ(shoot(node, { { 0, 0, 2 }, { 0, 0, -1 } }).size(), 1u) << "it takes none";
}

TEST_F(Implicit, marches_end_whatever_the_field_and_the_numbers)
{
    static const float values[] = { NAN, INFINITY, -INFINITY, 0, 2e-5f, 1e-30f, 1e30f, -1 };
    RtNode* const node = implicit(ball);
    set(node, "min", RtPoint{ -1e30f, -1e30f, -1e30f });
    set(node, "max", RtPoint{ 1e30f, 1e30f, 1e30f });
    RvNodeSetUInt(node, "samples", 4000000000u);
    ASSERT_TRUE(prepared(node));
    for (float value : values)
        for (int solver : { 0, 1 }) {
            field = [value](const RtShaderGlobals&) { return value; };
            RvNodeSetInt(node, "solver", solver);
            evaluations = 0;
            const std::vector<float> t = distances(node, { { 0, 0, 2 }, { 0, 0, -1 } });
            EXPECT_LE(evaluations, 1 << 20) << value << solver;
            for (float distance : t)
                EXPECT_TRUE(std::isfinite(distance)) << value << solver;
        }
}

TEST_F(Implicit, a_matrix_set_between_renders_moves_it)
{
    RtNode* const node = preparedImplicit(ball);
    RtMatrix matrix;
    const RtVector offset = { 10, 0, 0 };
    RvM4Translation(&matrix, &offset);
    RvNodeSetArray(node, "matrix", RvArray(1, 1, RV_TYPE_MATRIX, &matrix));
    node->entry->methods->Update(node, node->params);
    EXPECT_EQ(rv::objectOf(node)->world_bbox.min.x, 9.5f);
    takeProblems();
}
