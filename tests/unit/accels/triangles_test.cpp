// Tests of the structures over the triangles of a mesh: which one is chosen, that rays find what a
// loop over all triangles finds, and that Embree agrees.
#include "accels/triangles.h"

#include "accels/ray_tools.h"
#include "golden.h"
#include "mesh_tools.h"

#include <embree3/rtcore.h>
#include <random>
#include <typeinfo>

namespace {

using nlohmann::json;

using namespace ray_tools;

RtPoint pointOf(const json& numbers)
{
    const std::vector<float> v = goldenFloats(numbers);
    return { v.at(0), v.at(1), v.at(2) };
}

class Triangles : public Meshes {
protected:
    // A mesh whose triangles can be intersected; null when the node refuses.
    static RtGObject* ready(RtNode* node)
    {
        rv::RvNodeInitialize(node);
        if (rv::objectOf(node))
            RvGObjectBuildAccel(node, 0);
        return rv::objectOf(node);
    }
    static const RtPolyMesh& meshOf(const RtGObject* object)
    {
        return *static_cast<const RtPolyMesh*>(object->data);
    }

    // Independent triangles.
    static RtNode* soup(const Points& corners, int keys = 1)
    {
        Indices vidxs(corners.size() / size_t(keys));
        for (uint32_t i = 0; i < vidxs.size(); ++i)
            vidxs[i] = i;
        RtNode* const node = meshNode();
        setPoints(node, "vlist", corners, keys);
        setIndices(node, "vidxs", vidxs);
        return node;
    }
    static Points randomSoup(uint32_t triangles, float size, unsigned seed)
    {
        std::mt19937 random(seed);
        std::uniform_real_distribution<float> uniform(-1, 1);
        Points corners;
        for (uint32_t i = 0; i < triangles; ++i) {
            const RtPoint c = { uniform(random), uniform(random), uniform(random) };
            for (int k = 0; k < 3; ++k)
                corners.push_back({ c.x + size * uniform(random), c.y + size * uniform(random),
                                    c.z + size * uniform(random) });
        }
        return corners;
    }
    // A structure that tests all triangles one after another.
    static std::unique_ptr<RtAccel> loopOver(const RtGObject* object)
    {
        return std::unique_ptr<RtAccel>(
            rv::createMeshAccel(static_cast<RtPolyMesh*>(object->data), false, true, 0));
    }
    static const char* kindOf(RtNode* node)
    {
        const RtGObject* const object = ready(node);
        return object && object->accel ? object->accel.load()->name() : "none";
    }
};

} // namespace

// ---- One triangle ----

TEST_F(Triangles, single_and_double_precision_give_the_golden_hits)
{
    for (const json& v : goldenVectors("tracing", "triangle_intersect")) {
        const json& in = v.at("in");
        for (bool precise : { false, true }) {
            RtNode* const node =
                soup({ pointOf(in.at("p0")), pointOf(in.at("p1")), pointOf(in.at("p2")) });
            RvNodeSetBool(node, "double_precision_intersector", precise);
            const RtGObject* const object = ready(node);
            ASSERT_TRUE(object);
            Shot shot;
            shot.origin = pointOf(in.at("O"));
            shot.dir = pointOf(in.at("D"));
            shot.mindist = -1e30f;
            const std::vector<RtHit> hits = hitsOf(object, *object->accel, shot);
            expectGolden(v, "hit", !hits.empty());
            if (!hits.empty() && v.at("out").at("hit")) {
                expectGoldenNumbers(v, "t", { hits[0].t });
                expectGoldenNumbers(v, "u", { hits[0].u });
                expectGoldenNumbers(v, "v", { hits[0].v });
            }
            RvNodeDestroy(node);
        }
    }
}

TEST_F(Triangles, four_at_a_time_give_the_bits_of_one_at_a_time)
{
    const RtGObject* const object = ready(soup(randomSoup(300, 0.6f, 3)));
    const auto list = loopOver(object);
    ASSERT_STREQ(object->accel.load()->name(), "bvh4");
    std::mt19937 random(4);
    int hits = 0;
    for (int i = 0; i < 20000; ++i) {
        const Shot shot = randomShot(random);
        const auto blocks = hitsOf(object, *object->accel, shot),
                   loop = hitsOf(object, *list, shot);
        ASSERT_EQ(blocks.size(), loop.size()) << i;
        if (loop.empty())
            continue;
        ++hits;
        EXPECT_EQ(blocks[0].t, loop[0].t) << i;
        if (blocks[0].prim == loop[0].prim) {
            EXPECT_EQ(blocks[0].u, loop[0].u) << i;
            EXPECT_EQ(blocks[0].v, loop[0].v) << i;
        }
    }
    EXPECT_GT(hits, 5000);
}

TEST_F(Triangles, the_triangle_a_ray_leaves_is_not_hit)
{
    for (uint32_t copies : { 1u, 2u, 9u }) { // a list and hierarchies
        Points corners;
        for (uint32_t i = 0; i < copies; ++i)
            for (const RtPoint& p :
                 { RtPoint{ -1, -1, 0 }, RtPoint{ 1, -1, 0 }, RtPoint{ 0, 1, 0 } })
                corners.push_back({ p.x, p.y, float(i) });
        const RtGObject* const object = ready(soup(corners));
        Shot shot;
        shot.origin = { 0, 0, -1 };
        shot.dir = { 0, 0, 1 };
        ASSERT_EQ(hitsOf(object, *object->accel, shot).size(), 1u);
        EXPECT_EQ(hitsOf(object, *object->accel, shot)[0].prim, 0u);
        shot.ignore = 0;
        const auto others = hitsOf(object, *object->accel, shot);
        ASSERT_EQ(others.size(), copies > 1 ? 1u : 0u);
        if (copies > 1) {
            EXPECT_EQ(others[0].prim, 1u);
        }
        RvNodeDestroy(object->node);
    }
}

// ---- The kind ----

TEST_F(Triangles, the_number_of_triangles_and_keys_chooses_the_structure)
{
    for (const json& v : goldenVectors("tracing", "RvAccelCreate_kind")) {
        const uint32_t n = v.at("in").at("primitives");
        const int keys = v.at("in").at("keys");
        if (!n)
            continue; // no mesh has no triangles: see the next test
        Points corners;
        for (int key = 0; key < keys; ++key)
            for (const RtPoint& p : randomSoup(n, 0.1f, 1))
                corners.push_back({ p.x + float(key), p.y, p.z });
        RtNode* const node = soup(corners, keys);
        RvNodeSetBool(node, "unbounded", v.at("in").at("force_list"));
        expectGolden(v, "name", kindOf(node));
        if (!v.at("out").at("intervals").is_null()) {
            const auto* const accel = static_cast<const rv::MotionBvh4<rv::TriangleFamily<float>>*>(
                rv::objectOf(node)->accel.load());
            uint32_t intervals = 0;
            while (intervals < accel->key_count - 1 && accel->intervals[intervals].nodes.size())
                ++intervals;
            expectGolden(v, "intervals", intervals);
        }
        RvNodeDestroy(node);
    }
}

TEST_F(Triangles, without_triangles_there_is_a_structure_that_is_never_hit)
{
    RtPolyMesh empty = {};
    RtGObject* const object = ready(triangle());
    for (bool force_list : { false, true }) {
        const std::unique_ptr<RtAccel> accel(rv::createMeshAccel(&empty, false, force_list, 0));
        EXPECT_STREQ(accel->name(), "simple");
        EXPECT_EQ(accel->memory(), 0u);
        EXPECT_TRUE(hitsOf(object, *accel, { { 0, 0, -1 }, { 0, 0, 1 } }).empty());
    }
    EXPECT_EQ(rv::hostStats()->accels[RV_ACCEL_NULL] + rv::threadStats()->accels[RV_ACCEL_NULL] +
                  rv::the_frame->stats[0]->accels[RV_ACCEL_NULL],
              2u);
}

TEST_F(Triangles, a_structure_reports_its_memory_and_is_counted)
{
    const RtStats before = *rv::the_frame->stats[0];
    const RtGObject* const object = ready(soup(randomSoup(1000, 0.1f, 1)));
    const auto& accel = static_cast<const rv::Bvh4<rv::TriangleFamily<float>>&>(*object->accel);
    EXPECT_EQ(accel.memory(), accel.nodes.size() * 128 + 64);
    const RtStats& after = *rv::the_frame->stats[0];
    EXPECT_EQ(after.accels[RV_ACCEL_BVH], before.accels[RV_ACCEL_BVH] + 1);
    EXPECT_GE(after.accel_bytes - before.accel_bytes, int64_t(accel.memory()));
}

TEST_F(Triangles, the_build_of_more_than_one_triangle_is_a_debug_message)
{
    RvMsgSetConsoleFlags(RV_LOG_ALL);
    const auto lines = [this](RtNode* node) {
        messages().clear();
        ready(node);
        std::vector<std::string> found;
        for (const LoggedMessage& m : messages())
            if (m.text.rfind("[accel] ", 0) == 0)
                found.push_back(m.text);
        return found;
    };
    EXPECT_TRUE(lines(triangle()).empty());
    const auto still = lines(soup(randomSoup(100, 0.1f, 1)));
    ASSERT_EQ(still.size(), 1u);
    EXPECT_TRUE(
        node_tools::matches(still[0], "\\[accel\\] bvh4 done - 0:00\\.[0-9]{2} - 100 prims, 1 key"))
        << still[0];
    Points moving;
    for (int key = 0; key < 3; ++key)
        for (const RtPoint& p : randomSoup(100, 0.1f, 1))
            moving.push_back({ p.x + float(key), p.y, p.z });
    const auto motion = lines(soup(moving, 3));
    ASSERT_EQ(motion.size(), 1u);
    EXPECT_TRUE(node_tools::matches(
        motion[0], "\\[accel\\] bvh4_motion3p done - 0:00\\.[0-9]{2} - 100 prims, 3 keys"))
        << motion[0];
}

TEST_F(Triangles, without_memory_there_is_no_structure_and_an_error)
{
    RtNode* const node = soup(randomSoup(1000, 0.1f, 1));
    rv::RvNodeInitialize(node);
    RtGObject* const object = rv::objectOf(node);
    int failures = 0;
    for (long allowed = 0; allowed < 200 && !object->accel; ++allowed) {
        messages().clear();
        rv::limitAllocations(allowed);
        RvGObjectBuildAccel(node, 0);
        rv::limitAllocations(-1);
        if (!object->accel) {
            ++failures;
            EXPECT_FALSE(takeProblems().empty()) << allowed;
        }
    }
    EXPECT_GT(failures, 3);
    EXPECT_TRUE(object->accel);
}

// ---- What rays find ----

TEST_F(Triangles, a_million_random_rays_find_what_a_loop_finds)
{
    const RtGObject* const object = ready(soup(randomSoup(60, 1, 5)));
    const auto list = loopOver(object);
    std::mt19937 random(6);
    int hits = 0, other_triangle = 0;
    for (int i = 0; i < 1000000; ++i) {
        Shot shot = randomShot(random);
        shot.type = i % 2 ? RV_RAY_DIFFUSE : RV_RAY_CAMERA; // traversed in two ways
        const auto found = hitsOf(object, *object->accel, shot), loop = hitsOf(object, *list, shot);
        ASSERT_EQ(found.size(), loop.size()) << i;
        if (loop.empty())
            continue;
        ++hits;
        ASSERT_NEAR(found[0].t, loop[0].t, 1e-4f * loop[0].t) << i;
        other_triangle += found[0].prim != loop[0].prim;
    }
    EXPECT_GT(hits, 200000);
    EXPECT_LT(other_triangle, hits / 10000);
    RecordProperty("other_triangle", other_triangle);
}

TEST_F(Triangles, rays_along_axes_are_traversed)
{
    Points corners; // a floor of small triangles
    for (int x = 0; x < 20; ++x)
        for (int y = 0; y < 20; ++y)
            for (const RtPoint& p : { RtPoint{ 0, 0, 0 }, RtPoint{ 1, 0, 0 }, RtPoint{ 0, 1, 0 } })
                corners.push_back({ p.x + float(x), p.y + float(y), 0 });
    const RtGObject* const object = ready(soup(corners));
    for (float sign : { 1.0f, -1.0f })
        for (int x = 0; x < 20; ++x) {
            Shot shot;
            shot.origin = { float(x) + 0.25f, 3.25f, -5 * sign };
            shot.dir = { 0, 0, sign };
            const auto hits = hitsOf(object, *object->accel, shot);
            ASSERT_EQ(hits.size(), 1u) << x;
            EXPECT_EQ(hits[0].t, 5);
            EXPECT_EQ(hits[0].prim, uint32_t(20 * x + 3));
            // In the plane of the floor, and on the sides of boxes.
            shot.origin = { -1, float(x), 0 };
            shot.dir = { 1, 0, 0 };
            EXPECT_TRUE(hitsOf(object, *object->accel, shot).empty());
        }
}

TEST_F(Triangles, a_shadow_ray_ends_at_the_first_opaque_hit)
{
    const RtGObject* const object = ready(soup(randomSoup(500, 0.5f, 7)));
    const auto list = loopOver(object);
    std::mt19937 random(8);
    int hit_count = 0;
    for (int i = 0; i < 5000; ++i) {
        Shot shot = randomShot(random);
        const bool expected = !hitsOf(object, *list, shot).empty();
        shot.type = RV_RAY_SHADOW;
        shot.any_hit = true;
        bool found = false;
        const auto hits = hitsOf(object, *object->accel, shot, 11, &found);
        EXPECT_EQ(found, expected) << i;
        EXPECT_EQ(hits.size(), expected ? 1u : 0u) << i;
        hit_count += expected;
    }
    EXPECT_GT(hit_count, 1000);
}

TEST_F(Triangles, transparent_hits_are_kept_in_order_up_to_the_capacity)
{
    const Points corners = randomSoup(500, 1, 9);
    RtNode* const node = soup(corners);
    RvNodeSetBool(node, "opaque", false);
    const RtGObject* const object = ready(node);
    const auto list = loopOver(object);
    std::mt19937 random(10);
    for (uint32_t capacity : { 2u, 3u, 11u, 100u })
        for (int i = 0; i < 500; ++i) {
            const Shot shot = randomShot(random);
            const auto found = hitsOf(object, *object->accel, shot, capacity);
            const auto loop = hitsOf(object, *list, shot, capacity);
            ASSERT_EQ(found.size(), loop.size());
            for (size_t k = 0; k < found.size(); ++k) {
                EXPECT_EQ(found[k].t, loop[k].t);
                EXPECT_TRUE(k == 0 || found[k - 1].t <= found[k].t);
            }
        }
}

// The nearest of the triangles with these corners at two keys, found one after another; the largest
// number without any.
template <class Real>
static Real nearestOf(const std::vector<RtPoint> corners[2], float weight, const Shot& shot)
{
    const Real w1 = weight, w0 = 1 - w1;
    Real nearest = std::numeric_limits<Real>::max();
    for (size_t i = 0; i < corners[0].size(); i += 3) {
        rv::Vec3<Real> p[3];
        for (size_t c = 0; c < 3; ++c) {
            const RtPoint &a = corners[0][i + c], &b = corners[1][i + c];
            p[c] = { w0 * Real(a.x) + w1 * Real(b.x), w0 * Real(a.y) + w1 * Real(b.y),
                     w0 * Real(a.z) + w1 * Real(b.z) };
        }
        const auto hit = rv::intersectTriangle<Real>(
            p[0], p[1], p[2], { shot.origin.x, shot.origin.y, shot.origin.z },
            { shot.dir.x, shot.dir.y, shot.dir.z });
        if (hit.inside && hit.t > 0)
            nearest = std::min(nearest, hit.t);
    }
    return nearest;
}

TEST_F(Triangles, moving_meshes_are_hit_where_they_are_at_the_time_of_the_ray)
{
    for (const bool precise : { false, true })
        for (const int keys : { 2, 3, 5 }) {
            Points corners;
            std::vector<Points> at;
            for (int key = 0; key < keys; ++key) {
                at.push_back(randomSoup(40, 1, unsigned(20 + key)));
                corners.insert(corners.end(), at.back().begin(), at.back().end());
            }
            RtNode* const node = soup(corners, keys);
            RvNodeSetBool(node, "double_precision_intersector", precise);
            const RtGObject* const object = ready(node);
            ASSERT_STREQ(object->accel.load()->name(), keys == 2 ? "bvh4_motion" : "bvh4_motion3p");
            std::mt19937 random(11);
            std::uniform_real_distribution<float> uniform(0, 1);
            int hit_count = 0;
            for (int i = 0; i < 3000; ++i) {
                Shot shot = randomShot(random);
                shot.time = uniform(random);
                const rv::KeyPair pair = rv::keyPair(uint32_t(keys), shot.time);
                const double nearest = precise ? nearestOf<double>(&at[pair.key], pair.weight, shot)
                                               : nearestOf<float>(&at[pair.key], pair.weight, shot);
                const auto found = hitsOf(object, *object->accel, shot);
                ASSERT_EQ(found.empty(), nearest > 1e30) << precise << " " << keys << " " << i;
                if (!found.empty()) {
                    EXPECT_NEAR(found[0].t, nearest, 1e-5 * nearest);
                    ++hit_count;
                }
            }
            EXPECT_GT(hit_count, 300);
            RvNodeDestroy(node);
        }
}

TEST_F(Triangles, the_double_precision_hierarchy_finds_what_a_loop_in_double_precision_finds)
{
    const Points corners[2] = { randomSoup(300, 0.4f, 30), randomSoup(300, 0.4f, 30) };
    RtNode* const node = soup(corners[0]);
    RvNodeSetBool(node, "double_precision_intersector", true);
    const RtGObject* const object = ready(node);
    const RtAccel& accel = *object->accel;
    ASSERT_EQ(typeid(accel), typeid(rv::Bvh4<rv::TriangleFamily<double>>));
    std::mt19937 random(31);
    int hits = 0, rounded_otherwise = 0;
    for (int i = 0; i < 50000; ++i) {
        Shot shot = randomShot(random);
        shot.type = i % 2 ? RV_RAY_DIFFUSE : RV_RAY_CAMERA; // traversed in two ways
        const double nearest = nearestOf<double>(corners, 0, shot);
        const auto found = hitsOf(object, accel, shot);
        ASSERT_EQ(found.empty(), nearest > 1e30) << i;
        if (found.empty())
            continue;
        ++hits;
        EXPECT_EQ(found[0].t, float(nearest)) << i;
        rounded_otherwise += found[0].t != nearestOf<float>(corners, 0, shot);
    }
    EXPECT_GT(hits, 10000);
    EXPECT_GT(rounded_otherwise, hits / 10); // single precision would have been noticed
}

TEST_F(Triangles, the_ends_of_the_shutter_are_inside_the_motion)
{
    Points corners;
    for (int key = 0; key < 3; ++key)
        for (const RtPoint& p : randomSoup(50, 0.5f, 1))
            corners.push_back({ p.x + float(key), p.y, p.z });
    const RtGObject* const object = ready(soup(corners, 3));
    std::mt19937 random(12);
    for (float time : { -1.0f, 0.0f, 1.0f, 2.0f, 1e30f })
        for (int i = 0; i < 100; ++i) {
            Shot shot = randomShot(random);
            shot.time = time;
            hitsOf(object, *object->accel, shot); // no index leaves its array
        }
}

TEST_F(Triangles, broken_positions_are_never_hit_and_hide_nothing)
{
    // Nodes refuse such arrays; displacement may still make such points.
    const float nan = NAN, inf = INFINITY;
    RtNode* const node = soup(randomSoup(200, 0.5f, 13));
    rv::RvNodeInitialize(node);
    RtPoint* const vertices = static_cast<RtPolyMesh*>(rv::objectOf(node)->data)->vertices;
    vertices[3] = { nan, 0, 0 };
    vertices[10] = { 0, inf, 0 };
    vertices[20] = { -inf, nan, inf };
    vertices[30] = vertices[31] = vertices[32]; // no area
    const RtGObject* const object = ready(node);
    const auto list = loopOver(object);
    ASSERT_TRUE(object->accel);
    std::mt19937 random(14);
    for (int i = 0; i < 5000; ++i) {
        const Shot shot = randomShot(random);
        const auto found = hitsOf(object, *object->accel, shot), loop = hitsOf(object, *list, shot);
        ASSERT_EQ(found.size(), loop.size()) << i;
        if (!loop.empty()) {
            EXPECT_EQ(found[0].t, loop[0].t) << i;
        }
    }
}

// ---- Beside Embree ----

TEST_F(Triangles, a_large_mesh_is_hit_where_embree_hits_it)
{
    constexpr uint32_t rings = 150, segments = 300;
    Points points;
    Indices vidxs;
    for (uint32_t r = 0; r <= rings; ++r)
        for (uint32_t s = 0; s < segments; ++s) {
            const double theta = M_PI * (r + 0.5) / (rings + 1), phi = 2 * M_PI * s / segments;
            const double d = 1 + 0.1 * sin(7 * phi) * sin(5 * theta);
            points.push_back({ float(d * sin(theta) * cos(phi)), float(d * cos(theta)),
                               float(d * sin(theta) * sin(phi)) });
        }
    for (uint32_t r = 0; r < rings; ++r)
        for (uint32_t s = 0; s < segments; ++s) {
            const uint32_t a = r * segments + s, b = r * segments + (s + 1) % segments;
            for (uint32_t i : { a, b, a + segments, b, b + segments, a + segments })
                vidxs.push_back(i);
        }
    RtNode* const node = meshNode();
    setPoints(node, "vlist", points);
    setIndices(node, "vidxs", vidxs);
    const RtGObject* const object = ready(node);

    const RTCDevice device = rtcNewDevice("threads=1");
    const RTCScene scene = rtcNewScene(device);
    const RTCGeometry geometry = rtcNewGeometry(device, RTC_GEOMETRY_TYPE_TRIANGLE);
    memcpy(rtcSetNewGeometryBuffer(geometry, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3, 12,
                                   points.size()),
           points.data(), 12 * points.size());
    memcpy(rtcSetNewGeometryBuffer(geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3, 12,
                                   vidxs.size() / 3),
           vidxs.data(), 4 * vidxs.size());
    rtcCommitGeometry(geometry);
    rtcAttachGeometry(scene, geometry);
    rtcReleaseGeometry(geometry);
    rtcCommitScene(scene);

    std::mt19937 random(15);
    int hits = 0, missed = 0, farther = 0, other_triangle = 0;
    for (int i = 0; i < 1000000; ++i) {
        Shot shot = randomShot(random);
        shot.type = i % 2 ? RV_RAY_DIFFUSE : RV_RAY_CAMERA;
        RTCRayHit peer = {};
        peer.ray.org_x = shot.origin.x, peer.ray.org_y = shot.origin.y;
        peer.ray.org_z = shot.origin.z;
        peer.ray.dir_x = shot.dir.x, peer.ray.dir_y = shot.dir.y, peer.ray.dir_z = shot.dir.z;
        peer.ray.tfar = 1e30f;
        peer.ray.mask = ~0u;
        peer.hit.geomID = RTC_INVALID_GEOMETRY_ID;
        RTCIntersectContext context;
        rtcInitIntersectContext(&context);
        rtcIntersect1(scene, &context, &peer);
        const bool expected = peer.hit.geomID != RTC_INVALID_GEOMETRY_ID;
        const auto found = hitsOf(object, *object->accel, shot);
        missed += expected == found.empty();
        if (!expected || found.empty())
            continue;
        ++hits;
        farther += std::fabs(found[0].t - peer.ray.tfar) > 1e-4f * peer.ray.tfar;
        other_triangle += found[0].prim != peer.hit.primID;
    }
    rtcReleaseScene(scene);
    rtcReleaseDevice(device);
    // Rays that graze an edge may fall on either side of it.
    EXPECT_GT(hits, 100000);
    EXPECT_LE(missed, 20);
    EXPECT_LE(farther, 20);
    EXPECT_LE(other_triangle, hits / 1000);
    RecordProperty("missed", missed);
    RecordProperty("farther", farther);
    RecordProperty("other_triangle", other_triangle);
}
