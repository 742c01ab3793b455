// Tests of plane: its bounds that have none, tangents and the rays that leave it.
#include "shape_tools.h"

using namespace shape_tools;

namespace {

class Plane : public ShapesByNumbers {
protected:
    static RtNode* plane(const RtPoint& point, const RtVector& normal)
    {
        RtNode* const node = shape("plane");
        set(node, "point", point);
        set(node, "normal", normal);
        EXPECT_TRUE(prepared(node));
        return node;
    }
};

} // namespace

TEST_F(Plane, rays_meet_it_where_they_should)
{
    for (const json& v : goldenVectors("tracing", "plane_intersect")) {
        const json& in = v.at("in");
        RtNode* const node = plane(pointOf(in.at("point")), pointOf(in.at("normal")));
        expectGoldenHits(v, shoot(node, { pointOf(in.at("O")), pointOf(in.at("D")) }));
        RvNodeDestroy(node);
    }
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Plane, tangents_come_from_the_larger_components_of_the_normal)
{
    for (const json& v : goldenVectors("tracing", "plane_geometry")) {
        RtNode* const node = plane({ 0, 0, 0 }, pointOf(v.at("in").at("normal")));
        const RtLocalGeometry g = geometryAt(node, { 0, 0, 0 });
        expectGoldenNumbers(v, "N", numbersOf(g.N));
        EXPECT_EQ(numbersOf(g.Ng), numbersOf(g.N)) << v.at("id");
        expectGoldenNumbers(v, "dPdu", numbersOf(g.dPdu));
        expectGoldenNumbers(v, "dPdv", numbersOf(g.dPdv));
        RvNodeDestroy(node);
    }
}

// Required: one of the vectors has the box of a plane that faces down on the other side.
TEST_F(Plane, bounds_are_infinite_but_across_an_axis)
{
    for (const json& v : goldenVectors("tracing", "plane_bbox")) {
        RtNode* const node =
            plane(pointOf(v.at("in").at("point")), pointOf(v.at("in").at("normal")));
        const RtBBox box = boundsOf(node);
        const std::vector<float> low = numbersOf(box.min), high = numbersOf(box.max);
        const json& flat_axis = v.at("out").at("axis");
        for (int axis = 0; axis < 3; ++axis) {
            if (flat_axis == axis || flat_axis.is_null()) {
                expectGoldenNumbers(v, "min", { low[size_t(axis)] });
                expectGoldenNumbers(v, "max", { high[size_t(axis)] });
            } else {
                EXPECT_EQ(low[size_t(axis)], -INFINITY) << v.at("id");
                EXPECT_EQ(high[size_t(axis)], INFINITY) << v.at("id");
            }
        }
        RvNodeDestroy(node);
    }
}

TEST_F(Plane, a_matrix_moves_its_bounds_and_leaves_them_infinite)
{
    RtNode* const node = RvNode("plane");
    RtMatrix matrix;
    const RtVector up = { 0, 0, 5 };
    RvM4Translation(&matrix, &up);
    RvNodeSetArray(node, "matrix", RvArrayConvert(1, 1, RV_TYPE_MATRIX, &matrix, true));
    rv::RvNodeInitialize(node);
    const RtBBox& box = rv::objectOf(node)->world_bbox;
    EXPECT_EQ(numbersOf(box.min), (std::vector<float>{ -INFINITY, -INFINITY, 5 - 1e-6f }));
    EXPECT_EQ(numbersOf(box.max), (std::vector<float>{ INFINITY, INFINITY, 5 + 1e-6f }));
}

TEST_F(Plane, rays_and_normals_agree_with_the_numeric_reference)
{
    const RtPoint point = { 0.25f, -0.25f, 0.5f };
    const RtVector normal = { 1, -2, 2 };
    expectSurface(plane(point, normal), { [&](Double3 p) {
                      return dot(p - double3(point), normalized(double3(normal)));
                  } });
}

TEST_F(Plane, u_and_v_are_x_and_z)
{
    RtNode* const node = plane({ 0, 1, 0 }, { 0, 1, 0 });
    const std::vector<RtHit> hits = shoot(node, { { 3, 5, -2 }, { 0, -1, 0 } });
    ASSERT_EQ(hits.size(), 1u);
    EXPECT_EQ(hits[0].t, 4);
    EXPECT_EQ(hits[0].u, 3);
    EXPECT_EQ(hits[0].v, -2);
}

TEST_F(Plane, a_shadow_ray_that_leaves_it_ignores_it)
{
    RtNode* const node = plane({ 0, 0, 0 }, { 0, 0, 1 });
    ShotRay ray = { { 0, 0, 1e-3f }, { 0, 0, -1 } };
    ray.leaves_shape = true;
    ray.type = RV_RAY_SHADOW;
    EXPECT_EQ(shoot(node, ray).size(), 0u);
    ray.type = RV_RAY_CAMERA;
    EXPECT_EQ(shoot(node, ray).size(), 1u);
    ray.type = RV_RAY_SHADOW;
    ray.leaves_shape = false;
    EXPECT_EQ(shoot(node, ray).size(), 1u);
}

TEST_F(Plane, a_ray_along_it_or_from_on_it_misses)
{
    RtNode* const node = plane({ 0, 0, 0 }, { 0, 0, 1 });
    EXPECT_EQ(shoot(node, { { 0, 0, 1 }, { 1, 1, 0 } }).size(), 0u);
    EXPECT_EQ(shoot(node, { { 0, 0, 0 }, { 1, 1, 1 } }).size(), 0u);
    EXPECT_EQ(shoot(node, { { 0, 0, 1 }, { 1, 1, 1 } }).size(), 0u);
}

TEST_F(Plane, the_first_ray_finds_it_although_its_bounds_are_elsewhere)
{
    RtNode* const node = plane({ 0, 0, 2 }, { 0, 0, -1 });
    ASSERT_FLOAT_EQ(boundsOf(node).min.z, -2.000001f);
    RtHit entry = {};
    RtHitList hits = {};
    hits.capacity = 1;
    hits.maxdist = 1e30f;
    hits.hits = &entry;
    RtTraversal traversal = {};
    traversal.ray_type = RV_RAY_CAMERA;
    traversal.from_prim = rv_no_primitive;
    RvIntersectObject(rv::objectOf(node), traversal, objectRay({ { 0, 0, 0 }, { 0, 0, 1 } }), hits);
    ASSERT_EQ(hits.count, 1u);
    EXPECT_EQ(entry.t, 2);
}

TEST_F(Plane, without_a_normal_it_is_never_hit)
{
    RtNode* const node = plane({ 0, 0, 0 }, { 0, 0, 0 });
    EXPECT_EQ(shoot(node, { { 0, 0, 2 }, { 0, 0, -1 } }).size(), 0u);
}
