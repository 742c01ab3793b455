// Tests of cylinder: the open tube, its ends, bounds and bevels.
#include "shape_tools.h"

using namespace shape_tools;

namespace {

class Cylinder : public ShapesByNumbers {
protected:
    static RtNode* cylinder(const RtPoint& bottom, const RtPoint& top, float radius)
    {
        RtNode* const node = shape("cylinder");
        set(node, "bottom", bottom);
        set(node, "top", top);
        RvNodeSetFlt(node, "radius", radius);
        return node;
    }
};

} // namespace

TEST_F(Cylinder, rays_meet_it_where_they_should)
{
    for (const json& v : goldenVectors("tracing", "cylinder_intersect")) {
        const json& in = v.at("in");
        RtNode* const node = shape("cylinder");
        setAll(node, in, { "bottom", "top", "radius" });
        ASSERT_TRUE(prepared(node)) << v.at("id");
        expectGoldenHits(v, shoot(node, { pointOf(in.at("O")), pointOf(in.at("D")) }));
        RvNodeDestroy(node);
    }
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Cylinder, bevels_bend_the_shading_normals_near_the_ends)
{
    for (const json& v : goldenVectors("tracing", "cylinder_geometry")) {
        const json& in = v.at("in");
        RtNode* const node = shape("cylinder");
        setAll(node, in, { "bottom", "top", "bevel_width", "bevel_angle" });
        ASSERT_TRUE(prepared(node)) << v.at("id");
        const RtLocalGeometry g = geometryAt(node, pointOf(in.at("P")));
        expectGoldenNumbers(v, "Ng", numbersOf(g.Ng));
        expectGoldenNumbers(v, "N", numbersOf(g.N));
        RvNodeDestroy(node);
    }
}

TEST_F(Cylinder, rays_and_normals_agree_with_the_numeric_reference)
{
    const RtPoint top = { 0.5f, 0.75f, -0.5f }, bottom = { -0.75f, -0.5f, 0.25f };
    const Double3 axis = normalized(double3(bottom) - double3(top));
    const double height = length(double3(bottom) - double3(top));
    RtNode* const node = cylinder(bottom, top, 0.6f);
    ASSERT_TRUE(prepared(node));
    const auto depth = [&](Double3 p) { return dot(p - double3(top), axis); };
    expectSurface(node, { [&](Double3 p) {
                             return length(p - double3(top) - axis * depth(p)) - double(0.6f);
                         },
                          [&](Double3 p) { return std::min(depth(p), height - depth(p)); } });
}

TEST_F(Cylinder, is_an_open_tube)
{
    RtNode* const node = cylinder({ 0, 0, -0.5f }, { 0, 0, 0.5f }, 0.5f);
    ASSERT_TRUE(prepared(node));
    static const struct {
        const char* name;
        ShotRay ray;
        std::vector<float> t;
    } cases[] = {
        { "along the axis", { { 0, 0, 5 }, { 0, 0, -1 } }, {} },
        { "beside the axis, within", { { 0.25f, 0, 5 }, { 0, 0, -1 } }, {} },
        { "across", { { 5, 0, 0 }, { -1, 0, 0 } }, { 4.5f, 5.5f } },
        { "from within", { { 0, 0, 0 }, { -1, 0, 0 } }, { 0.5f } },
        { "away", { { 5, 0, 0 }, { 1, 0, 0 } }, {} },
        { "past the top", { { 5, 0, 0.51f }, { -1, 0, 0 } }, {} },
        { "past the bottom", { { 5, 0, -0.51f }, { -1, 0, 0 } }, {} },
        { "beside it", { { 5, 0.51f, 0 }, { -1, 0, 0 } }, {} },
        { "in at the top, out through the side", { { 0, 0, 0.75f }, { 0.5f, 0, -0.5f } }, { 1 } },
    };
    for (const auto& c : cases) {
        const std::vector<RtHit> hits = shoot(node, c.ray);
        ASSERT_EQ(hits.size(), c.t.size()) << c.name;
        for (size_t i = 0; i < hits.size(); ++i) {
            EXPECT_FLOAT_EQ(hits[i].t, c.t[i]) << c.name;
            EXPECT_EQ(hits[i].u, 0) << c.name;
            EXPECT_EQ(hits[i].v, 0) << c.name;
        }
    }
}

TEST_F(Cylinder, a_ray_from_its_surface_does_not_hit_where_it_starts)
{
    RtNode* const node = cylinder({ 0, 0, -0.5f }, { 0, 0, 0.5f }, 0.5f);
    ASSERT_TRUE(prepared(node));
    EXPECT_EQ(distances(node, { { 0.5f, 0, 0 }, { -1, 0, 0 } }), std::vector<float>{ 1 });
    EXPECT_EQ(distances(node, { { 0.5f, 0, 0 }, { 1, 0, 0 } }), std::vector<float>{});
    EXPECT_EQ(shoot(node, { { 0.5000005f, 0, 0 }, { -1, 0, 0 } }).size(), 1u) << "just above it";
}

TEST_F(Cylinder, bounds_are_those_of_the_two_end_discs)
{
    RtNode* node = cylinder({ 0, 0, -2 }, { 0, 0, 1 }, 0.5f);
    ASSERT_TRUE(prepared(node));
    RtBBox box = boundsOf(node);
    EXPECT_FLOAT_EQ(box.min.x, -0.500001f);
    EXPECT_FLOAT_EQ(box.max.y, 0.500001f);
    EXPECT_EQ(box.min.z, -2);
    EXPECT_EQ(box.max.z, 1);
    node = cylinder({ -3, 0, 0 }, { 0, 4, 0 }, 1);
    ASSERT_TRUE(prepared(node));
    box = boundsOf(node);
    EXPECT_NEAR(box.min.x, -3.8, 2e-6);
    EXPECT_NEAR(box.max.x, 0.8, 2e-6);
    EXPECT_NEAR(box.min.y, -0.6, 2e-6);
    EXPECT_NEAR(box.max.z, 1, 2e-6);
}

TEST_F(Cylinder, without_length_it_is_reported_and_never_hit)
{
    RtNode* const node = cylinder({ 1, 2, 3 }, { 1, 2, 3.0000005f }, 0.5f);
    ASSERT_TRUE(prepared(node));
    EXPECT_EQ(takeProblem(), "it: zero-length cylinder");
    EXPECT_FLOAT_EQ(boundsOf(node).min.z, 2.499999f);
    EXPECT_EQ(shoot(node, { { 1, 2, 5 }, { 0, 0.1f, -1 } }).size(), 0u);
}

TEST_F(Cylinder, the_bevel_angle_of_zero_bends_nothing_before_the_rim)
{
    RtNode* const node = cylinder({ 0, 0, 0 }, { 0, 0, 1 }, 1);
    RvNodeSetFlt(node, "bevel_width", 0.25f);
    RvNodeSetFlt(node, "bevel_angle", 0);
    ASSERT_TRUE(prepared(node));
    EXPECT_FLOAT_EQ(geometryAt(node, { 1, 0, 0.9f }).N.x, 1);
    RvNodeSetFlt(node, "bevel_angle", 1);
    const RtVector n = geometryAt(node, { 1, 0, 0.875f }).N; // half way down the bevel
    EXPECT_NEAR(n.x, M_SQRT1_2, 1e-5);
    EXPECT_NEAR(n.z, M_SQRT1_2, 1e-5);
    EXPECT_FLOAT_EQ(geometryAt(node, { 1, 0, 1 }).N.x, 1) << "exactly on the rim nothing is bent";
    EXPECT_FLOAT_EQ(geometryAt(node, { 1, 0, 1.5f }).N.z, 1) << "beyond the top";
    EXPECT_FLOAT_EQ(geometryAt(node, { 1, 0, -0.5f }).N.z, -1) << "beyond the bottom";
}

TEST_F(Cylinder, has_no_texture_coordinates)
{
    RtNode* const node = cylinder({ 0, 0, 0 }, { 0, 0, 1 }, 1);
    ASSERT_TRUE(prepared(node));
    float u = -1, v = -1;
    rv::shapeMethods(node).ShapeTextureCoordinates(rv::objectOf(node), 0, 0.25f, 0.75f, &u, &v);
    EXPECT_EQ(u, 0);
    EXPECT_EQ(v, 0);
}
