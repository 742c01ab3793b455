// Tests of disc: its edges, bounds, bevels and the rays that leave it.
#include "shape_tools.h"

using namespace shape_tools;

namespace {

class Disc : public ShapesByNumbers {
protected:
    static RtNode* disc(float radius, float hole)
    {
        RtNode* const node = shape("disc");
        RvNodeSetFlt(node, "radius", radius);
        RvNodeSetFlt(node, "hole", hole);
        return node;
    }
};

} // namespace

TEST_F(Disc, rays_meet_it_where_they_should)
{
    for (const json& v : goldenVectors("tracing", "disc_intersect")) {
        const json& in = v.at("in");
        RtNode* const node = shape("disc");
        setAll(node, in, { "center", "normal", "radius", "hole" });
        ASSERT_TRUE(prepared(node)) << v.at("id");
        expectGoldenHits(v, shoot(node, { pointOf(in.at("O")), pointOf(in.at("D")) }));
        RvNodeDestroy(node);
    }
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Disc, bevels_bend_the_shading_normals_near_the_edges)
{
    for (const json& v : goldenVectors("tracing", "disc_geometry")) {
        const json& in = v.at("in");
        RtNode* const node = shape("disc");
        setAll(node, in, { "center", "normal", "radius", "hole", "bevel_width", "bevel_angle" });
        ASSERT_TRUE(prepared(node)) << v.at("id");
        const RtLocalGeometry g = geometryAt(node, pointOf(in.at("P")));
        expectGoldenNumbers(v, "Ng", numbersOf(g.Ng));
        expectGoldenNumbers(v, "N", numbersOf(g.N));
        RvNodeDestroy(node);
    }
}

TEST_F(Disc, rays_and_normals_agree_with_the_numeric_reference)
{
    const RtPoint center = { 0.25f, -0.25f, 0.5f };
    const RtVector normal = { 1, -2, 2 };
    RtNode* const node = disc(1.5f, 0.5f);
    set(node, "center", center);
    set(node, "normal", normal);
    ASSERT_TRUE(prepared(node));
    expectSurface(
        node, { [&](Double3 p) { return dot(p - double3(center), normalized(double3(normal))); },
                [&](Double3 p) {
                    const double rho = length(p - double3(center));
                    return std::min(rho - 0.5, 1.5 - rho);
                } });
}

TEST_F(Disc, is_not_hit_within_its_hole)
{
    RtNode* const node = disc(1, 0.25f);
    ASSERT_TRUE(prepared(node));
    static const struct {
        float x;
        size_t hits;
    } cases[] = { { 0, 0 }, { 0.24f, 0 }, { 0.25f, 1 }, { 0.9f, 1 }, { 1, 1 }, { 1.01f, 0 } };
    for (const auto& c : cases) {
        const std::vector<RtHit> hits = shoot(node, { { c.x, 0, 2 }, { 0, 0, -1 } });
        ASSERT_EQ(hits.size(), c.hits) << c.x;
        if (c.hits) {
            EXPECT_EQ(hits[0].t, 2);
            EXPECT_EQ(hits[0].u, 0);
            EXPECT_EQ(hits[0].v, 0);
        }
    }
    EXPECT_EQ(shoot(node, { { 0.5f, 0, 0 }, { 1, 0, 0 } }).size(), 0u) << "within the plane";
}

TEST_F(Disc, rays_that_leave_it_miss_it_unless_they_are_camera_rays)
{
    RtNode* const node = disc(1, 0);
    ASSERT_TRUE(prepared(node));
    ShotRay ray = { { 0, 0, 1 }, { 0, 0, -1 } };
    ray.leaves_shape = true;
    for (int type : { RV_RAY_SHADOW, RV_RAY_REFLECTED, RV_RAY_DIFFUSE, RV_RAY_GLOSSY }) {
        ray.type = uint16_t(type);
        EXPECT_EQ(shoot(node, ray).size(), 0u) << type;
    }
    ray.type = RV_RAY_CAMERA;
    EXPECT_EQ(shoot(node, ray).size(), 1u);
}

TEST_F(Disc, bounds_are_tight)
{
    RtNode* const node = disc(2, 0);
    set(node, "center", RtPoint{ 1, 2, 3 });
    set(node, "normal", RtVector{ 0, 3, 4 });
    ASSERT_TRUE(prepared(node));
    const RtBBox box = boundsOf(node);
    EXPECT_FLOAT_EQ(box.min.x, -1);
    EXPECT_FLOAT_EQ(box.max.x, 3);
    EXPECT_FLOAT_EQ(box.min.y, 2 - 1.6f);
    EXPECT_FLOAT_EQ(box.max.z, 3 + 1.2f);
}

// Required: the normal on an edge is the way from the center, whatever its length.
TEST_F(Disc, normals_on_a_bevelled_edge_have_the_length_of_its_radius)
{
    RtNode* const node = disc(2, 0.5f);
    RvNodeSetFlt(node, "bevel_width", 0.25f);
    ASSERT_TRUE(prepared(node));
    EXPECT_EQ(numbersOf(geometryAt(node, { 0.25f, 0, 0 }).N), (std::vector<float>{ -0.25f, 0, 0 }));
    EXPECT_EQ(numbersOf(geometryAt(node, { 0, 2, 0 }).N), (std::vector<float>{ 0, 2, 0 }));
    EXPECT_EQ(numbersOf(geometryAt(node, { 0, 1, 0 }).N), (std::vector<float>{ 0, 0, 1 }));
    EXPECT_GT(geometryAt(node, { 0, 1.9f, 0 }).N.y, 0.1f);
    EXPECT_EQ(numbersOf(geometryAt(node, { 0, 2, 0 }).Ng), (std::vector<float>{ 0, 0, 1 }));
}

TEST_F(Disc, edits_between_renders_reach_the_intersector)
{
    RtNode* const node = disc(1, 0);
    ASSERT_TRUE(prepared(node));
    const ShotRay ray = { { 1.5f, 0, 2 }, { 0, 0, -1 } };
    ASSERT_EQ(shoot(node, ray).size(), 0u);
    RvNodeSetFlt(node, "radius", 2);
    node->entry->methods->Update(node, node->params);
    EXPECT_EQ(shoot(node, ray).size(), 1u);
    EXPECT_EQ(rv::objectOf(node)->local_bbox.max.x, 2);
    set(node, "center", RtPoint{ 0, 0, 1 });
    node->entry->methods->Update(node, node->params);
    EXPECT_EQ(distances(node, ray), std::vector<float>{ 1 });
}

TEST_F(Disc, without_a_normal_it_is_never_hit)
{
    RtNode* const node = disc(1, 0);
    set(node, "normal", RtVector{ 0, 0, 0 });
    ASSERT_TRUE(prepared(node));
    EXPECT_EQ(shoot(node, { { 0, 0, 2 }, { 0, 0, -1 } }).size(), 0u);
}
