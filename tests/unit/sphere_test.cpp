// Tests of sphere: roots, position on the surface, motion, bounds and local geometry.
#include "shape_tools.h"

using namespace shape_tools;

namespace {

class Sphere : public ShapesByNumbers {
protected:
    static RtNode* sphere(const std::vector<RtPoint>& center, const std::vector<float>& radius)
    {
        RtNode* const node = shape("sphere");
        giveKeys(node, "center", RV_TYPE_POINT, center);
        giveKeys(node, "radius", RV_TYPE_FLOAT, radius);
        return node;
    }
    static RtNode* preparedSphere(const std::vector<RtPoint>& center,
                                  const std::vector<float>& radius)
    {
        RtNode* const node = sphere(center, radius);
        EXPECT_TRUE(prepared(node));
        return node;
    }

    template <class T>
    static void giveKeys(RtNode* node, const char* param, int type, const std::vector<T>& keys)
    {
        RtArray* const array = RvArrayAllocate(keys.empty() ? 0 : 1, unsigned(keys.size()), type);
        if (!keys.empty())
            memcpy(array->data, keys.data(), keys.size() * sizeof(T));
        RvNodeSetArray(node, param, array);
    }

    static RtNode* goldenSphere(const json& in)
    {
        std::vector<RtPoint> center;
        for (const json& p : in.at("center"))
            center.push_back(pointOf(p));
        RtNode* const node = sphere(center, goldenFloats(in.at("radius")));
        return node;
    }
};

} // namespace

TEST_F(Sphere, rays_meet_it_where_they_should)
{
    for (const json& v : goldenVectors("tracing", "sphere_intersect")) {
        const json& in = v.at("in");
        RtNode* const node = goldenSphere(in);
        const std::vector<float> times = goldenFloats(in.at("deform_time_samples"));
        RtArray* const samples = RvArrayAllocate(unsigned(times.size()), 1, RV_TYPE_FLOAT);
        memcpy(samples->data, times.data(), times.size() * sizeof(float));
        RvNodeSetArray(node, "deform_time_samples", samples);
        ASSERT_TRUE(prepared(node)) << v.at("id");
        ShotRay ray = { pointOf(in.at("O")), pointOf(in.at("D")) };
        ray.time = goldenFloat(in.at("time"));
        ray.leaves_shape = in.at("spawned");
        expectGoldenHits(v, shoot(node, ray));
        RvNodeDestroy(node);
    }
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Sphere, local_geometry_is_orthogonal_and_follows_u_and_v)
{
    for (const json& v : goldenVectors("tracing", "sphere_geometry")) {
        RtNode* const node = preparedSphere({ pointOf(v.at("in").at("C")) }, { 1 });
        const RtLocalGeometry g = geometryAt(node, pointOf(v.at("in").at("P")));
        expectGoldenNumbers(v, "N", numbersOf(g.N));
        EXPECT_EQ(numbersOf(g.Ng), numbersOf(g.N)) << v.at("id");
        expectGoldenNumbers(v, "dPdu", numbersOf(g.dPdu));
        expectGoldenNumbers(v, "dPdv", numbersOf(g.dPdv));
        RvNodeDestroy(node);
    }
}

TEST_F(Sphere, bounds_hold_all_keys)
{
    for (const json& v : goldenVectors("tracing", "sphere_bbox")) {
        RtNode* const node = goldenSphere(v.at("in"));
        ASSERT_TRUE(prepared(node));
        const RtBBox box = boundsOf(node, v.at("in").at("key"));
        expectGoldenNumbers(v, "min", numbersOf(box.min));
        expectGoldenNumbers(v, "max", numbersOf(box.max));
        RvNodeDestroy(node);
    }
    takeProblems();
}

TEST_F(Sphere, bounds_of_one_key_are_those_of_that_key)
{
    RtNode* const node = preparedSphere({ { 0, 0, 0 }, { 1, 2, 3 } }, { 1, 0.5f });
    EXPECT_EQ(numbersOf(boundsOf(node, 0).max), (std::vector<float>{ 1, 1, 1 }));
    EXPECT_EQ(numbersOf(boundsOf(node, 1).min), (std::vector<float>{ 0.5f, 1.5f, 2.5f }));
}

TEST_F(Sphere, an_array_with_fewer_keys_stays_at_its_last_one)
{
    RtNode* const node = preparedSphere({ { 0, 0, 0 } }, { 1, 2, 3 });
    EXPECT_EQ(boundsOf(node, 2).max.x, 3);
    EXPECT_EQ(rv::objectOf(node)->nkeys_shape, 3u);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Sphere, rays_and_normals_agree_with_the_numeric_reference)
{
    const RtPoint center = { 0.25f, -0.5f, 0.125f };
    expectSurface(preparedSphere({ center }, { 0.75f }),
                  { [&](Double3 p) { return length(p - double3(center)) - 0.75; } });
}

TEST_F(Sphere, u_starts_at_x_and_v_at_the_bottom_pole)
{
    RtNode* const node = preparedSphere({ { 0, 0, 0 } }, { 2 });
    static const struct {
        RtVector to;
        float u, v;
    } cases[] = {
        { { 0, 0, 1 }, 0.75f, 0.5f }, { { 1, 0, 0 }, 0, 0.5f }, { { 0, 0, -1 }, 0.25f, 0.5f },
        { { -1, 0, 0 }, 0.5f, 0.5f }, { { 0, -1, 0 }, -1, 0 },  { { 0, 1, 0 }, -1, 1 },
    };
    for (const auto& c : cases) {
        const std::vector<RtHit> hits =
            shoot(node, { { c.to.x * 5, c.to.y * 5, c.to.z * 5 }, { -c.to.x, -c.to.y, -c.to.z } });
        ASSERT_EQ(hits.size(), 2u);
        EXPECT_FLOAT_EQ(hits[0].t, 3);
        if (c.u >= 0) {
            EXPECT_FLOAT_EQ(hits[0].u, c.u) << c.to.x << c.to.y << c.to.z;
        }
        EXPECT_FLOAT_EQ(hits[0].v, c.v) << c.to.x << c.to.y << c.to.z;
        EXPECT_TRUE(hits[0].u >= 0 && hits[0].u <= 1);
    }
}

TEST_F(Sphere, texture_coordinates_are_those_of_the_hit)
{
    RtNode* const node = preparedSphere({ { 0, 0, 0 } }, { 1 });
    float u = -1, v = -1;
    rv::shapeMethods(node).ShapeTextureCoordinates(rv::objectOf(node), 0, 0.25f, 0.75f, &u, &v);
    EXPECT_EQ(u, 0.25f);
    EXPECT_EQ(v, 0.75f);
}

TEST_F(Sphere, a_ray_that_leaves_it_gets_the_far_root_only)
{
    RtNode* const node = preparedSphere({ { 0, 0, 0 } }, { 1 });
    ShotRay inwards = { { 0, 0, 1 }, { 0, 0, -1 } };
    inwards.leaves_shape = true;
    inwards.mindist = 1e-6f;
    EXPECT_EQ(distances(node, inwards), std::vector<float>{ 2 });
    ShotRay outwards = inwards;
    outwards.dir = { 0, 0, 1 };
    EXPECT_EQ(distances(node, outwards), std::vector<float>{});
    ShotRay from_elsewhere = inwards;
    from_elsewhere.origin = { 0, 0, 3 };
    from_elsewhere.leaves_shape = false;
    EXPECT_EQ(distances(node, from_elsewhere), (std::vector<float>{ 2, 4 }));
}

TEST_F(Sphere, small_distant_sphere_is_round)
{
    RtNode* const node = preparedSphere({ { 0, 0, 0 } }, { 0.01f });
    for (float angle = 0; angle < 6.28f; angle += 0.1f)
        for (float distance : { 0.0099f, 0.0101f }) {
            const ShotRay ray = { { distance * cosf(angle), distance * sinf(angle), 10000 },
                                  { 0, 0, -1 } };
            EXPECT_EQ(shoot(node, ray).size(), distance < 0.01f ? 2u : 0u) << angle;
        }
}

TEST_F(Sphere, motion_follows_the_deformation_times)
{
    RtNode* const node = sphere({ { 0, 0, 0 }, { 4, 0, 0 } }, { 1 });
    RtArray* const times = RvArray(2, 1, RV_TYPE_FLOAT, 0.25, 0.75);
    RvNodeSetArray(node, "deform_time_samples", times);
    ASSERT_TRUE(prepared(node));
    static const struct {
        float time, center;
    } cases[] = { { 0, 0 }, { 0.25f, 0 }, { 0.5f, 2 }, { 0.75f, 4 }, { 1, 4 } };
    for (const auto& c : cases) {
        ShotRay ray = { { -10, 0, 0 }, { 1, 0, 0 } };
        ray.time = c.time;
        const std::vector<float> t = distances(node, ray);
        ASSERT_EQ(t.size(), 2u);
        EXPECT_NEAR(t[0], 9 + c.center, 1e-4) << c.time;
        EXPECT_NEAR(geometryAt(node, { c.center, 1, 0 }, c.time).N.y, 1, 1e-5) << c.time;
    }
}

TEST_F(Sphere, an_empty_sphere_makes_no_object)
{
    for (const char* param : { "center", "radius" }) {
        RtNode* const node = sphere({ { 0, 0, 0 } }, { 1 });
        giveKeys(node, param, !strcmp(param, "center") ? RV_TYPE_POINT : RV_TYPE_FLOAT,
                 std::vector<float>{});
        EXPECT_FALSE(prepared(node)) << param;
        EXPECT_EQ(takeProblem(), "empty sphere object") << param;
        RvNodeDestroy(node);
    }
}

TEST_F(Sphere, different_numbers_of_keys_are_reported_and_rendered)
{
    RtNode* const node = sphere({ { 0, 0, 0 }, { 1, 0, 0 } }, { 1, 1, 1 });
    ASSERT_TRUE(prepared(node));
    EXPECT_EQ(takeProblem(),
              "[sphere] it:  sphere parameters don't have the same number of motion keys");
    ShotRay ray = { { 0.5f, 0, 5 }, { 0, 0, -1 } };
    ray.time = 0.5f;
    EXPECT_EQ(shoot(node, ray).size(), 2u);
}

TEST_F(Sphere, tangents_at_the_poles_are_finite)
{
    RtNode* const node = preparedSphere({ { 0, 0, 0 } }, { 1 });
    for (float y : { 1.0f, -1.0f }) {
        const RtLocalGeometry g = geometryAt(node, { 0, y, 0 });
        EXPECT_NEAR(length(double3(g.dPdu)), 1, 1e-6);
        EXPECT_NEAR(length(double3(g.dPdv)), 1, 1e-6);
        EXPECT_NEAR(dot(double3(g.dPdu), double3(g.dPdv)), 0, 1e-6);
        EXPECT_EQ(g.N.y, y);
    }
}

TEST_F(Sphere, a_negative_radius_counts_by_its_size)
{
    RtNode* const node = preparedSphere({ { 0, 0, 0 } }, { -2 });
    EXPECT_EQ(numbersOf(boundsOf(node).min), (std::vector<float>{ -2, -2, -2 }));
    EXPECT_EQ(distances(node, { { 0, 0, 5 }, { 0, 0, -1 } }), (std::vector<float>{ 3, 7 }));
}

TEST_F(Sphere, setting_the_radius_between_renders_rebuilds_bounds_and_structure)
{
    RtNode* const node = preparedSphere({ { 0, 0, 0 } }, { 1 });
    ASSERT_EQ(distances(node, { { 0, 0, 5 }, { 0, 0, -1 } })[0], 4);
    giveKeys(node, "radius", RV_TYPE_FLOAT, std::vector<float>{ 2 });
    EXPECT_EQ(rv::objectOf(node)->rebuild, RV_REBUILD_GEOMETRY);
    node->entry->methods->Update(node, node->params);
    EXPECT_EQ(rv::objectOf(node)->local_bbox.max.x, 2);
    EXPECT_FALSE(rv::objectOf(node)->accel.load());
    EXPECT_EQ(distances(node, { { 0, 0, 5 }, { 0, 0, -1 } })[0], 3);
}

TEST_F(Sphere, losing_its_arrays_between_renders_hides_it)
{
    RtNode* const node = preparedSphere({ { 0, 0, 0 } }, { 1 });
    giveKeys(node, "radius", RV_TYPE_FLOAT, std::vector<float>{});
    node->entry->methods->Update(node, node->params);
    EXPECT_EQ(rv::objectOf(node)->visibility, 0);
    EXPECT_EQ(takeProblem(), "it: shape has empty bounding box (hiding shape)");
    EXPECT_EQ(shoot(node, { { 0, 0, 5 }, { 0, 0, -1 } }).size(), 0u);
}
