// Tests of cone: the open cone, its two ends in either order, bounds and normals.
#include "shape_tools.h"

using namespace shape_tools;

namespace {

class Cone : public ShapesByNumbers {
protected:
    static RtNode* cone(const RtPoint& bottom, float bottom_radius, const RtPoint& top,
                        float top_radius)
    {
        RtNode* const node = shape("cone");
        set(node, "bottom", bottom);
        set(node, "top", top);
        RvNodeSetFlt(node, "bottom_radius", bottom_radius);
        RvNodeSetFlt(node, "top_radius", top_radius);
        return node;
    }

    void expectCone(const RtPoint& bottom, float bottom_radius, const RtPoint& top,
                    float top_radius)
    {
        RtNode* const node = cone(bottom, bottom_radius, top, top_radius);
        ASSERT_TRUE(prepared(node));
        const Double3 axis = normalized(double3(bottom) - double3(top));
        const double height = length(double3(bottom) - double3(top));
        const auto depth = [&](Double3 p) { return dot(p - double3(top), axis); };
        const auto radius = [&](Double3 p) {
            return top_radius + (double(bottom_radius) - top_radius) * depth(p) / height;
        };
        expectSurface(node, { [&](Double3 p) {
                                 return length(p - double3(top) - axis * depth(p)) - radius(p);
                             },
                              [&](Double3 p) { return std::min(depth(p), height - depth(p)); } });
    }
};

} // namespace

TEST_F(Cone, rays_meet_it_where_they_should)
{
    for (const json& v : goldenVectors("tracing", "cone_intersect")) {
        const json& in = v.at("in");
        RtNode* const node = shape("cone");
        setAll(node, in, { "bottom", "top", "bottom_radius", "top_radius" });
        ASSERT_TRUE(prepared(node)) << v.at("id");
        expectGoldenHits(v, shoot(node, { pointOf(in.at("O")), pointOf(in.at("D")) }));
        RvNodeDestroy(node);
    }
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Cone, normals_lean_towards_the_apex)
{
    for (const json& v : goldenVectors("tracing", "cone_geometry")) {
        const json& in = v.at("in");
        RtNode* const node = shape("cone");
        setAll(node, in, { "bottom", "top", "bottom_radius", "top_radius" });
        ASSERT_TRUE(prepared(node)) << v.at("id");
        const RtLocalGeometry g = geometryAt(node, pointOf(in.at("P")));
        expectGoldenNumbers(v, "N", numbersOf(g.N));
        EXPECT_EQ(numbersOf(g.Ng), numbersOf(g.N)) << v.at("id");
        RvNodeDestroy(node);
    }
}

TEST_F(Cone, rays_and_normals_agree_with_the_numeric_reference_whichever_end_is_wide)
{
    expectCone({ -0.75f, -0.5f, 0.25f }, 0.25f, { 0.5f, 0.75f, -0.5f }, 1);
    expectCone({ -0.75f, -0.5f, 0.25f }, 1, { 0.5f, 0.75f, -0.5f }, 0.25f);
    expectCone({ 0, 0, -1 }, 1.25f, { 0, 0, 1 }, 0);
}

TEST_F(Cone, equal_radii_are_degenerate)
{
    RtNode* const node = cone({ 0, 0, 0 }, 0.5f, { 0, 0, 1 }, 0.5f);
    EXPECT_FALSE(prepared(node));
    EXPECT_EQ(takeProblem(), "degenerate cone -- use a cylinder instead");
}

TEST_F(Cone, is_open_at_its_wide_end)
{
    RtNode* const node = cone({ 0, 0, 0 }, 1, { 0, 0, 1 }, 0);
    ASSERT_TRUE(prepared(node));
    EXPECT_EQ(distances(node, { { 0.5f, 0, -1 }, { 0, 0, 1 } }), std::vector<float>{ 1.5f })
        << "through the open end to the inside";
    EXPECT_EQ(distances(node, { { 0.5f, 0, 2 }, { 0, 0, -1 } }), std::vector<float>{ 1.5f })
        << "through the side and out of the open end";
    EXPECT_EQ(shoot(node, { { 5, 0, -0.1f }, { -1, 0, 0 } }).size(), 0u) << "below the wide end";
    EXPECT_EQ(shoot(node, { { 5, 0, 1.1f }, { -1, 0, 0 } }).size(), 0u) << "above the apex";
}

// Required: it would cross the far side once.
TEST_F(Cone, a_ray_parallel_to_a_line_of_its_surface_misses)
{
    RtNode* const node = cone({ 0, 0, 0 }, 1, { 0, 0, 1 }, 0);
    ASSERT_TRUE(prepared(node));
    EXPECT_EQ(shoot(node, { { -0.5f, 0, 1.2f }, { 1, 0, -1 } }).size(), 0u);
    EXPECT_EQ(shoot(node, { { -0.5f, 0, 1.2f }, { 1, 0.01f, -1 } }).size(), 1u);
}

TEST_F(Cone, a_ray_from_its_surface_does_not_hit_where_it_starts)
{
    RtNode* const node = cone({ 0, 0, 0 }, 1, { 0, 0, 1 }, 0);
    ASSERT_TRUE(prepared(node));
    const std::vector<float> t = distances(node, { { 0.5000005f, 0, 0.5f }, { -1, 0, 0 } });
    ASSERT_EQ(t.size(), 1u);
    EXPECT_FLOAT_EQ(t[0], 1);
}

TEST_F(Cone, the_parameters_stay_as_they_were_set)
{
    RtNode* const node = cone({ 0, 0, 0 }, 1, { 0, 0, 1 }, 0.5f);
    ASSERT_TRUE(prepared(node));
    EXPECT_EQ(RvNodeGetFlt(node, "bottom_radius"), 1);
    EXPECT_EQ(RvNodeGetPnt(node, "top").z, 1);
}

TEST_F(Cone, bounds_are_those_of_the_two_end_discs)
{
    RtNode* const node = cone({ 0, 0, 0 }, 1, { 0, 0, 3 }, 0.5f);
    ASSERT_TRUE(prepared(node));
    const RtBBox box = boundsOf(node);
    EXPECT_FLOAT_EQ(box.min.x, -1.000001f);
    EXPECT_FLOAT_EQ(box.max.y, 1.000001f);
    EXPECT_EQ(box.min.z, 0);
    EXPECT_EQ(box.max.z, 3);
}

TEST_F(Cone, the_apex_has_a_normal)
{
    RtNode* const node = cone({ 0, 0, 0 }, 1, { 0, 0, 1 }, 0);
    ASSERT_TRUE(prepared(node));
    EXPECT_EQ(numbersOf(geometryAt(node, { 0, 0, 1 }).N), (std::vector<float>{ 0, 0, 1 }));
}

TEST_F(Cone, without_length_it_is_never_hit)
{
    RtNode* const node = cone({ 0, 0, 0 }, 1, { 0, 0, 0 }, 0.5f);
    ASSERT_TRUE(prepared(node));
    EXPECT_EQ(shoot(node, { { 0.25f, 0, 5 }, { 0, 0.1f, -1 } }).size(), 0u);
}
