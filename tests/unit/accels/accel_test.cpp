// Tests of the hit list: what it accepts, in which order, and when a ray is done.
#include "accels/accel.h"

#include "golden.h"
#include "mesh_tools.h"
#include "rv_rays.h"

namespace {

using nlohmann::json;

// A hit list on an object, with the flags of that object.
struct List {
    explicit List(uint32_t capacity, float maxdist = 1e30f) : entries(capacity)
    {
        hits.capacity = capacity;
        hits.maxdist = maxdist;
        hits.hits = entries.data();
        traversal.ray_type = RV_RAY_CAMERA;
        traversal.from_prim = rv_no_primitive;
    }
    void insert(RtGObject* object, float t, uint32_t prim = 0)
    {
        hits.flags = &rv::shapeParams(object->node);
        RvAccelInsertHit(hits, t, 0.25f, 0.5f, traversal, ray, object, prim);
    }
    std::vector<float> distances() const
    {
        std::vector<float> t;
        for (uint32_t i = 0; i < hits.count; ++i)
            t.push_back(entries[i].t);
        return t;
    }

    std::vector<RtHit> entries;
    RtHitList hits = {};
    RtTraversal traversal = {};
    RtObjectRay ray = { { 0, 0, -1 }, { 0, 0, 1 }, 0, 0, rv_no_primitive };
};

class HitLists : public Meshes {
protected:
    static RtGObject* object(RtNode* node)
    {
        rv::RvNodeInitialize(node);
        return rv::objectOf(node);
    }
    static RtGObject* sphere(bool opaque)
    {
        RtNode* const node = RvNode("sphere");
        RvNodeSetBool(node, "opaque", opaque);
        return object(node);
    }
};

} // namespace

TEST_F(HitLists, hits_are_sorted_cut_at_opaque_ones_and_bounded)
{
    RtGObject* const opaque = sphere(true);
    RtGObject* const transparent = sphere(false);
    for (const json& v : goldenVectors("tracing", "RvAccelInsertHit_sequence")) {
        const json& in = v.at("in");
        List list(in.at("capacity"), goldenFloat(in.at("maxdist")));
        list.traversal.any_hit = in.at("shadow");
        list.ray.mindist = goldenFloat(in.at("mindist"));
        std::vector<std::string> names;
        for (const json& hit : in.at("hits")) {
            list.insert(hit.at(1) ? opaque : transparent, goldenFloat(hit.at(0)),
                        uint32_t(names.size()));
            names.push_back(hit.at(2));
        }
        const json& expected = v.at("out").at("entries");
        ASSERT_EQ(list.hits.count, expected.size()) << goldenId(v);
        for (uint32_t i = 0; i < list.hits.count; ++i) {
            EXPECT_EQ(list.entries[i].t, goldenFloat(expected[i].at(0))) << goldenId(v);
            EXPECT_EQ(names[list.entries[i].prim], expected[i].at(1)) << goldenId(v);
        }
        expectGoldenNumbers(v, "maxdist", { list.hits.maxdist });
        expectGolden(v, "found", list.hits.found);
    }
}

TEST_F(HitLists, two_transparent_hits_before_an_opaque_one_are_kept)
{
    List list(11);
    list.insert(sphere(false), 1);
    list.insert(sphere(true), 3);
    list.insert(sphere(false), 2);
    EXPECT_EQ(list.distances(), (std::vector<float>{ 1, 2, 3 }));
    List covered(11);
    covered.insert(sphere(false), 2);
    covered.insert(sphere(false), 3);
    covered.insert(sphere(true), 1);
    EXPECT_EQ(covered.distances(), (std::vector<float>{ 1 }));
}

TEST_F(HitLists, distances_that_are_no_numbers_are_refused)
{
    List list(3);
    for (float t : { float(NAN), float(INFINITY), -1.0f, 0.0f })
        list.insert(sphere(true), t);
    EXPECT_EQ(list.hits.count, 0u);
}

TEST_F(HitLists, an_entry_tells_where_the_hit_is)
{
    List list(1);
    RtGObject* const object = sphere(true);
    RtMatrix matrix = RV_M4_IDENTITY;
    list.hits.matrix = &matrix;
    list.hits.instance = object->node;
    list.insert(object, 2, 7);
    const RtHit& hit = list.entries[0];
    EXPECT_EQ(hit.t, 2);
    EXPECT_EQ(hit.u, 0.25f);
    EXPECT_EQ(hit.v, 0.5f);
    EXPECT_EQ(hit.object, object);
    EXPECT_EQ(hit.matrix, &matrix);
    EXPECT_EQ(hit.instance, object->node);
    EXPECT_EQ(hit.prim, 7u);
}

TEST_F(HitLists, back_faces_count_for_the_ray_types_of_sidedness_only)
{
    for (bool inverted : { false, true })
        for (float z : { -1.0f, 1.0f }) {
            RtNode* const node = triangle();
            RvNodeSetInt(node, "sidedness", RV_RAY_SHADOW);
            RvNodeSetBool(node, "invert_normals", inverted);
            RtGObject* const mesh = object(node);
            rv::RvNodeInitialize(node);
            RvGObjectBuildAccel(node, 0);
            for (int type : { RV_RAY_SHADOW, RV_RAY_CAMERA }) {
                List list(1);
                list.traversal.ray_type = uint16_t(type);
                list.ray.dir = { 0, 0, z };
                list.insert(mesh, 1);
                RtHit probe = {};
                probe.object = mesh;
                RtLocalGeometry geometry = {};
                const RtPoint point = { 0, 0, 0 };
                rv::shapeMethods(node).ShapeLocalGeometry(&list.ray.dir, 0, nullptr, &probe, &point,
                                                          &geometry);
                const bool back = (geometry.Ng.z * z > 0) != inverted;
                EXPECT_EQ(list.hits.count, type == RV_RAY_SHADOW || !back ? 1u : 0u)
                    << inverted << z << type;
            }
            RvNodeDestroy(node);
        }
}

// Four triangles around a vertex, and one apart.
TEST_F(HitLists, neighbours_of_the_shaded_triangle_cast_no_shadow_on_smooth_meshes)
{
    for (bool smooth : { true, false })
        for (bool fix : { true, false }) {
            rv::render_options->shadow_terminator_fix = fix;
            RtNode* const node =
                polygons({ { 0, 0, 0 },
                           { 1, 0, 0 },
                           { 0, 1, 0 },
                           { -1, 0, 0 },
                           { 0, -1, 0 },
                           { 5, 5, 0 },
                           { 6, 5, 0 },
                           { 5, 6, 0 } },
                         { { 0, 1, 2 }, { 0, 2, 3 }, { 0, 3, 4 }, { 0, 4, 1 }, { 5, 6, 7 } });
            RvNodeSetBool(node, "smoothing", smooth);
            RtGObject* const mesh = object(node);
            RvGObjectBuildAccel(node, 0);
            RtNode* const light = RvNode("point_light");
            const auto counts = [&](uint32_t prim, int type, const RtNode* from) {
                List list(1);
                list.traversal.ray_type = uint16_t(type);
                list.traversal.light = light;
                list.traversal.from_object = from;
                list.traversal.from_prim = 0;
                list.insert(mesh, 1, prim);
                return list.hits.count == 1;
            };
            const bool hidden = smooth && fix;
            EXPECT_EQ(counts(2, RV_RAY_SHADOW, node), !hidden);
            EXPECT_TRUE(counts(4, RV_RAY_SHADOW, node));
            EXPECT_TRUE(counts(2, RV_RAY_DIFFUSE, node));
            EXPECT_TRUE(counts(2, RV_RAY_SHADOW, light));
            RvNodeDestroy(node);
            RvNodeDestroy(light);
        }
}

TEST(SlabTest, a_ray_in_a_face_of_a_box_meets_it)
{
    const RtBBox box = { { 0, 0, 0 }, { 1, 1, 1 } };
    for (float zero : { 0.0f, -0.0f })
        for (float x : { 0.0f, 0.5f, 1.0f }) {
            const rv::SlabHit hit =
                rv::slabTest(box, { { x, 0.5f, -1 }, { zero, zero, 1 }, 0, 0, 0 }, 100);
            EXPECT_TRUE(hit) << x;
            EXPECT_EQ(hit.tnear, 1);
            EXPECT_EQ(hit.tfar, 2);
        }
    EXPECT_FALSE(rv::slabTest(box, { { 1.5f, 0.5f, -1 }, { 0, 0, 1 }, 0, 0, 0 }, 100));
    EXPECT_FALSE(rv::slabTest(box, { { 0.5f, 0.5f, -1 }, { 0, 0, 1 }, 0, 0, 0 }, 0.5f));
    EXPECT_FALSE(rv::slabTest(box, { { 0.5f, 0.5f, -1 }, { 0, 0, 1 }, 3, 0, 0 }, 100));
}

TEST(SlabTest, no_distance_is_made_of_what_is_no_number)
{
    const RtBBox box = { { 0, 0, 0 }, { 1, 1, 1 } };
    const float nan = NAN;
    for (const RtPoint& origin : { RtPoint{ nan, nan, nan }, RtPoint{ nan, 0.5f, -1 } })
        for (const RtVector& dir : { RtVector{ nan, nan, nan }, RtVector{ 0.5f, nan, 1 },
                                     RtVector{ 0, 0, 1 }, RtVector{ 1, 1, 1 } }) {
            const rv::SlabHit hit = rv::slabTest(box, { origin, dir, 0.25f, 0, 0 }, 100);
            EXPECT_FALSE(std::isnan(hit.tnear) || std::isnan(hit.tfar));
            if (hit) {
                EXPECT_GE(hit.tnear, 0.25f);
                EXPECT_LE(hit.tfar, 100);
            }
        }
    // An axis that is a number still decides.
    EXPECT_FALSE(rv::slabTest(box, { { nan, 5, 0.5f }, { 1, 0, 1 }, 0, 0, 0 }, 100));
    EXPECT_FALSE(rv::slabTest(box, { { 0.5f, 0.5f, 5 }, { nan, nan, 1 }, 0, 0, 0 }, 100));
}
