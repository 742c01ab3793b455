// Tests of box: the solid between six faces, and the slab test behind it.
#include "shape_tools.h"

using namespace shape_tools;

namespace {

class Box : public ShapesByNumbers {
protected:
    static RtNode* box(const RtPoint& min, const RtPoint& max)
    {
        RtNode* const node = shape("box");
        set(node, "min", min);
        set(node, "max", max);
        return node;
    }
};

} // namespace

TEST_F(Box, slabs_give_the_distances_of_entry_and_exit)
{
    for (const json& v : goldenVectors("tracing", "slab_test")) {
        const json& in = v.at("in");
        ShotRay ray = { pointOf(in.at("O")), pointOf(in.at("D")), goldenFloat(in.at("mindist")) };
        const RtBBox bounds = { pointOf(in.at("min")), pointOf(in.at("max")) };
        const rv::SlabHit hit = rv::slabTest(bounds, objectRay(ray), goldenFloat(in.at("maxdist")));
        expectGolden(v, "hit", bool(hit));
        expectGoldenNumbers(v, "tnear", { hit.tnear });
        expectGoldenNumbers(v, "tfar", { hit.tfar });
    }
}

TEST_F(Box, rays_meet_it_where_they_should)
{
    for (const json& v : goldenVectors("tracing", "box_intersect")) {
        const json& in = v.at("in");
        RtNode* const node = box(pointOf(in.at("min")), pointOf(in.at("max")));
        ASSERT_TRUE(prepared(node)) << v.at("id");
        ShotRay ray = { pointOf(in.at("O")), pointOf(in.at("D")) };
        ray.mindist = goldenFloat(in.at("mindist"));
        ray.maxdist = goldenFloat(in.at("maxdist"));
        ray.leaves_shape = in.at("spawned");
        expectGoldenHits(v, shoot(node, ray));
        RvNodeDestroy(node);
    }
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Box, normals_are_those_of_the_nearest_face)
{
    for (const json& v : goldenVectors("tracing", "box_geometry")) {
        const json& in = v.at("in");
        RtNode* const node = box(pointOf(in.at("min")), pointOf(in.at("max")));
        ASSERT_TRUE(prepared(node)) << v.at("id");
        const RtLocalGeometry before = { {}, {}, { 7, 8, 9 }, { 4, 5, 6 } };
        const RtLocalGeometry g = geometryAt(node, pointOf(in.at("P")), 0, before);
        expectGoldenNumbers(v, "N", numbersOf(g.N));
        EXPECT_EQ(numbersOf(g.Ng), numbersOf(g.N)) << v.at("id");
        EXPECT_EQ(g.dPdu.x, 7) << "tangents are not set";
        EXPECT_EQ(g.dPdv.x, 4);
        RvNodeDestroy(node);
    }
}

TEST_F(Box, rays_and_normals_agree_with_the_numeric_reference)
{
    RtNode* const node = box({ -0.5f, -1, -0.25f }, { 1, 0.5f, 0.75f });
    ASSERT_TRUE(prepared(node));
    const auto outside = [](double x, double low, double high) {
        return std::max(low - x, x - high);
    };
    expectSurface(node, { [&](Double3 p) {
                      return std::max({ outside(p.x, -0.5, 1), outside(p.y, -1, 0.5),
                                        outside(p.z, -0.25, 0.75) });
                  } });
}

TEST_F(Box, a_ray_that_leaves_it_gets_the_exit_only)
{
    RtNode* const node = box({ -1, -1, -1 }, { 1, 1, 1 });
    ASSERT_TRUE(prepared(node));
    ShotRay ray = { { 0, 0, 1 }, { 0, 0, -1 } };
    ray.mindist = 1e-6f;
    ray.leaves_shape = true;
    EXPECT_EQ(distances(node, ray), std::vector<float>{ 2 });
    ray.dir = { 0, 0, 1 };
    EXPECT_EQ(distances(node, ray), std::vector<float>{});
}

TEST_F(Box, a_ray_from_inside_gets_the_exit_only)
{
    RtNode* const node = box({ -1, -1, -1 }, { 1, 1, 1 });
    ASSERT_TRUE(prepared(node));
    EXPECT_EQ(distances(node, { { 0, 0, 0 }, { 1, 0, 0 } }), std::vector<float>{ 1 });
}

TEST_F(Box, rays_along_its_axes_meet_it)
{
    RtNode* const node = box({ -1, -1, -1 }, { 1, 1, 1 });
    ASSERT_TRUE(prepared(node));
    EXPECT_EQ(distances(node, { { 5, 0, 0 }, { -1, 0, 0 } }), (std::vector<float>{ 4, 6 }));
    EXPECT_EQ(distances(node, { { 5, 0.99f, 0 }, { -1, 0, 0 } }), (std::vector<float>{ 4, 6 }));
    EXPECT_EQ(distances(node, { { 5, 1.01f, 0 }, { -1, 0, 0 } }), std::vector<float>{});
}

TEST_F(Box, the_exit_beyond_the_far_limit_is_no_hit)
{
    RtNode* const node = box({ -1, -1, -1 }, { 1, 1, 1 });
    ASSERT_TRUE(prepared(node));
    ShotRay ray = { { 5, 0, 0 }, { -1, 0, 0 } };
    ray.maxdist = 5;
    EXPECT_EQ(distances(node, ray), std::vector<float>{ 4 });
}

TEST_F(Box, turned_inside_out_it_is_hidden)
{
    RtNode* const node = box({ 1, 1, 1 }, { -1, 2, 2 });
    ASSERT_TRUE(prepared(node));
    EXPECT_EQ(takeProblem(), "it: shape has empty bounding box (hiding shape)");
    EXPECT_EQ(rv::objectOf(node)->visibility, 0);
}

TEST_F(Box, bounds_are_the_box_itself)
{
    RtNode* const node = box({ -1, -2, -3 }, { 4, 5, 6 });
    ASSERT_TRUE(prepared(node));
    EXPECT_EQ(numbersOf(boundsOf(node).min), (std::vector<float>{ -1, -2, -3 }));
    EXPECT_EQ(numbersOf(boundsOf(node).max), (std::vector<float>{ 4, 5, 6 }));
}
