// Tests of the kinds of structures, whatever their primitives: which one is chosen, how it is
// counted and reported, when a shadow ray ends, and that the objects of a list are found as in a
// loop.
#include "accels/bvh4.h"

#include "accels/ray_tools.h"
#include "accels/tree_tools.h"
#include "objects/listobj.h"
#include "trace_tools.h"

#include <chrono>
#include <thread>

namespace {

using namespace ray_tools;
using namespace tree_tools;
using nlohmann::json;
using node_tools::formatted;
using node_tools::named;
using rv::objectOf;
using trace_tools::Names;

// Boxes whose primitives are all hit at one distance, behind all boxes, so that no hit hides any
// box; they note their tests.
struct Targets : Boxes {
    static constexpr float distance = 1e6f;
    using Leaves = rv::IndexLeaves<Targets>;
    std::vector<uint32_t>* tested = nullptr;

    template <bool Moving>
    void intersect(uint32_t prim, const rv::KeyPair&, RtGObject* object,
                   const RtTraversal& traversal, const RtObjectRay& ray, RtHitList& hits) const
    {
        tested->push_back(prim);
        RvAccelInsertHit(hits, distance, 0, 0, traversal, ray, object, prim);
    }
};

// Boxes that take their time.
struct SlowTargets : Targets {
    using Leaves = rv::IndexLeaves<SlowTargets>;
    static constexpr auto delay = std::chrono::milliseconds(30);

    RtBBox box(uint32_t prim, uint32_t key) const
    {
        std::this_thread::sleep_for(delay);
        return Targets::box(prim, key);
    }
};

// Boxes at several keys.
std::vector<RtBBox> movingBoxes(uint32_t n, uint32_t keys)
{
    std::vector<RtBBox> boxes;
    for (uint32_t key = 0; key < keys; ++key)
        for (const RtBBox& box : randomBoxes(n, 0.1f, key + 1))
            boxes.push_back(box);
    return boxes;
}

template <class Family>
std::unique_ptr<RtAccel> structureOver(const Family& family, bool force_list = false)
{
    return std::unique_ptr<RtAccel>(rv::RvAccelCreate(family, 1.5f, force_list, 0));
}

struct NamedAccel : rv::SimpleAccel {
    std::string text;

    explicit NamedAccel(const std::string& given) : text(given) {}
    const char* name() const override { return text.c_str(); }
    size_t memory() const override { return 1000; }
    void intersect(RtGObject*, const RtTraversal&, const RtObjectRay&, RtHitList&) const override {}
};

class Structures : public trace_tools::Traced {
protected:
    void SetUp() override
    {
        Traced::SetUp();
        shape_fixture::built_accels = 0;
        shape_fixture::while_building = {};
        RvNodeInstall(RV_NODE_SHAPE, RV_TYPE_NONE, "block", nullptr, &shape_fixture::blockMethods(),
                      RV_VERSION);
    }

    static RtStats& stats(int thread = 0) { return *rv::the_frame->stats[thread]; }
    static RtGObject* opaqueObject(bool is_opaque = true)
    {
        RtNode* const node = named("sphere", is_opaque ? "opaque" : "transparent");
        RvNodeSetBool(node, "opaque", is_opaque);
        rv::RvNodeInitialize(node);
        return objectOf(node);
    }
    // The lines about structures since the last call.
    static Names takeAccelLines()
    {
        Names lines;
        for (const LoggedMessage& m : messages())
            if (m.text.rfind("[accel] ", 0) == 0)
                lines.push_back(m.text);
        messages().clear();
        return lines;
    }
    static std::string kindOf(RtNode* node)
    {
        RvGObjectBuildAccel(node, 0);
        return objectOf(node)->accel.load()->name();
    }
};

} // namespace

// ---- The choice ----

TEST_F(Structures, each_kind_is_counted_in_its_row_with_its_memory)
{
    static const struct {
        uint32_t primitives, keys;
        bool force_list;
        const char* name;
        RtAccelRow row;
        bool reports_memory;
    } cases[] = {
        { 0, 1, false, "simple", RV_ACCEL_NULL, false },
        { 0, 1, true, "simple", RV_ACCEL_NULL, false },
        { 5, 0, false, "simple", RV_ACCEL_NULL, false },
        { 5, 0, true, "simple", RV_ACCEL_NULL, false },
        { 1, 1, false, "list", RV_ACCEL_LIST, false },
        { 1, 3, false, "list", RV_ACCEL_LIST, false },
        { 100, 1, true, "list", RV_ACCEL_LIST, false },
        { 100, 2, true, "list", RV_ACCEL_LIST, false },
        { 2, 1, false, "bvh4", RV_ACCEL_BVH, true },
        { 100, 1, false, "bvh4", RV_ACCEL_BVH, true },
        { 100, 2, false, "bvh4_motion", RV_ACCEL_BVH_MOTION2, true },
        { 100, 3, false, "bvh4_motion3p", RV_ACCEL_BVH_MOTION3, true },
        { 100, 7, false, "bvh4_motion3p", RV_ACCEL_BVH_MOTION3, true },
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(formatted("%u %u %d", c.primitives, c.keys, int(c.force_list)));
        const std::vector<RtBBox> boxes = movingBoxes(c.primitives, std::max(1u, c.keys));
        const RtStats before = stats();
        const auto accel = structureOver(Targets{ { &boxes, c.keys } }, c.force_list);
        EXPECT_STREQ(accel->name(), c.name);
        EXPECT_EQ(accel->memory() > 0, c.reports_memory);
        EXPECT_EQ(stats().accel_bytes - before.accel_bytes, int64_t(accel->memory()));
        for (int row = 0; row < RV_ACCEL_ROWS; ++row)
            EXPECT_EQ(stats().accels[row] - before.accels[row], row == c.row ? 1u : 0u) << row;
    }
}

TEST_F(Structures, one_hierarchy_stands_between_each_two_keys)
{
    for (const uint32_t keys : { 2u, 3u, 5u }) {
        const std::vector<RtBBox> boxes = movingBoxes(500, keys);
        const auto accel = structureOver(Targets{ { &boxes, keys } });
        const auto& motion = static_cast<const rv::MotionBvh4<Targets>&>(*accel);
        ASSERT_EQ(motion.key_count, keys);
        for (uint32_t i = 0; i + 1 < keys; ++i) {
            const auto& interval = motion.intervals[i];
            ASSERT_GT(interval.nodes.size(), 1u) << keys << " " << i;
            expectHoldsAll(interval.leaves.order, 500);
            // The root holds the primitives as they are at the keys around the interval.
            for (uint32_t key = 0; key < 2; ++key) {
                RtBBox root = rv::empty_bbox, expected = rv::empty_bbox;
                for (int slot = 0; slot < 4; ++slot)
                    root = rv::boxUnion(root, slotBox(interval.nodes[0], slot, int(key)));
                for (uint32_t prim = 0; prim < 500; ++prim)
                    expected = RvBBoxUnion(expected, motion.family.box(prim, i + key));
                EXPECT_EQ(shape_fixture::describe(root), shape_fixture::describe(expected));
            }
        }
    }
}

// ---- What is said and counted ----

TEST_F(Structures, a_build_is_reported_with_its_duration_primitives_and_keys)
{
    for (const json& v : goldenVectors("tracing", "accel_debug_line")) {
        const json& in = v.at("in");
        takeAccelLines();
        rv::reportAccel(NamedAccel(in.at("name")), in.at("elapsed_ms"), in.at("primitives"),
                        in.at("keys"), RV_ACCEL_BVH, 0);
        const Names lines = takeAccelLines();
        ASSERT_EQ(lines.size(), 1u) << goldenId(v);
        expectGolden(v, "text", lines[0]);
    }
    static const struct {
        uint32_t ms, primitives, keys;
        Names lines;
    } cases[] = {
        { 1234, 2, 1, { "[accel] bvh4 done - 0:01.23 - 2 prims, 1 key" } },
        { 65432, 1000000, 2, { "[accel] bvh4 done - 1:05.43 - 1000000 prims, 2 keys" } },
        { 65432, 17, 3, { "[accel] bvh4 done - 1:05.43 - 17 prims, 3 keys" } },
        // Required: the minutes of an hour without any are one digit.
        { 3605000, 3, 1, { "[accel] bvh4 done - 1:0:05.00 - 3 prims, 1 key" } },
        { 1234, 1, 1, {} },
        { 1234, 0, 1, {} },
    };
    for (const auto& c : cases) {
        rv::reportAccel(NamedAccel("bvh4"), c.ms, c.primitives, c.keys, RV_ACCEL_BVH, 0);
        EXPECT_EQ(takeAccelLines(), c.lines) << c.ms << " " << c.primitives << " " << c.keys;
    }
}

TEST_F(Structures, time_and_memory_are_added_to_those_of_the_thread)
{
    const RtStats first = stats(0), other = stats(3);
    for (int i = 1; i <= 2; ++i) {
        rv::reportAccel(NamedAccel("bvh4"), 1234, 100, 1, RV_ACCEL_BVH_MOTION2, 3);
        EXPECT_EQ(stats(3).accel_ms - other.accel_ms, 1234 * i);
        EXPECT_EQ(stats(3).accel_bytes - other.accel_bytes, 1000 * i);
        EXPECT_EQ(stats(3).accels[RV_ACCEL_BVH_MOTION2] - other.accels[RV_ACCEL_BVH_MOTION2],
                  uint32_t(i));
    }
    EXPECT_EQ(stats(0).accel_ms, first.accel_ms);
    EXPECT_EQ(stats(0).accel_bytes, first.accel_bytes);
    EXPECT_EQ(stats(0).accels[RV_ACCEL_BVH_MOTION2], first.accels[RV_ACCEL_BVH_MOTION2]);
}

TEST_F(Structures, the_time_that_a_build_takes_is_measured)
{
    const std::vector<RtBBox> boxes = randomBoxes(2);
    const int64_t before = stats().accel_ms;
    structureOver(SlowTargets{ { { &boxes } } });
    EXPECT_GE(stats().accel_ms - before, 59); // two boxes
    EXPECT_LT(stats().accel_ms - before, 5000);
}

// ---- Shadow rays ----

TEST_F(Structures, a_shadow_ray_tests_no_primitive_after_the_first_opaque_hit)
{
    static constexpr uint32_t count = 1000;
    RtGObject* const opaque = opaqueObject();
    RtGObject* const transparent = opaqueObject(false);
    for (const float distance : { 2.0f, 0.0f }) // many leaves along the ray, or a single one
        for (const uint32_t keys : { 1u, 2u, 3u })
            for (const bool force_list : { true, false }) {
                std::vector<RtBBox> boxes;
                for (uint32_t i = 0; i < count * keys; ++i)
                    boxes.push_back(cube(distance * float(i % count), 0, 0));
                std::vector<uint32_t> tested;
                const auto accel = structureOver(Targets{ { &boxes, keys }, &tested }, force_list);
                SCOPED_TRACE(formatted("%s %g", accel->name(), double(distance)));
                const auto tests = [&](RtGObject* object, Shot shot, bool is_done) {
                    tested.clear();
                    bool found = false;
                    EXPECT_FALSE(
                        ray_tools::hitsOf(object, *accel, shot, count + 1, &found).empty());
                    EXPECT_EQ(found, is_done);
                    return tested.size();
                };
                Shot shot = { { -1, 0.5f, 0.5f }, { 1, 0, 0 } };
                shot.time = 0.75f;
                for (const int type : { RV_RAY_CAMERA, RV_RAY_DIFFUSE }) {
                    shot.type = uint16_t(type);
                    EXPECT_EQ(tests(opaque, shot, false), count);
                }
                shot.type = RV_RAY_SHADOW;
                EXPECT_EQ(tests(opaque, shot, false), count); // not from a shading context
                shot.any_hit = true;
                EXPECT_EQ(tests(opaque, shot, true), 1u);
                EXPECT_EQ(tests(transparent, shot, false), count);
            }
}

// Structures are built by the rays that reach their objects: those behind the first opaque one
// stay without.
TEST_F(Structures, a_shadow_ray_enters_no_object_of_a_list_after_the_first_opaque_hit)
{
    static constexpr int count = 50;
    for (const bool unbounded : { true, false })
        for (const bool any_hit : { true, false }) {
            startAnew();
            std::vector<RtNode*> nodes;
            for (int i = 0; i < count; ++i)
                nodes.push_back(named("block", formatted("block %d", i).c_str()));
            RtNode* const list = groupOf("list", nodes);
            RvNodeSetBool(list, "unbounded", unbounded);
            Shot shot = { { 0, 0, -5 }, { 0, 0, 1 } };
            shot.maxdist = 100;
            shot.mindist = -10;
            shot.type = RV_RAY_SHADOW;
            shot.any_hit = any_hit;
            // Blocks are hit at 1 wherever they are, and here they are around the origin of the
            // ray.
            shot.origin = { 0, 0, 0 };
            bool found = false;
            EXPECT_EQ(hitsIn({ objectOf(list) }, shot, 1, &found).size(), 1u);
            EXPECT_EQ(found, any_hit);
            EXPECT_EQ(shape_fixture::built_accels, any_hit ? 1 : count) << unbounded;
        }
}

// ---- Lists of objects ----

TEST_F(Structures, a_list_of_objects_has_a_hierarchy_unless_it_is_unbounded_or_holds_one)
{
    static const struct {
        int objects;
        bool unbounded;
        const char* name;
    } cases[] = {
        { 0, false, "simple" }, { 0, true, "simple" }, { 1, false, "list" },  { 1, true, "list" },
        { 2, false, "bvh4" },   { 2, true, "list" },   { 60, false, "bvh4" }, { 60, true, "list" },
    };
    for (const auto& c : cases) {
        startAnew();
        std::vector<RtNode*> nodes;
        for (int i = 0; i < c.objects; ++i)
            nodes.push_back(sphere(formatted("sphere %d", i).c_str(), { float(i), 0, 0 }, 0.25f));
        RtNode* const list = groupOf("list", nodes);
        RvNodeSetBool(list, "unbounded", c.unbounded);
        EXPECT_EQ(kindOf(list), c.name) << c.objects << " " << c.unbounded;
    }
}

TEST_F(Structures, the_objects_of_a_list_are_hit_as_by_a_loop_over_them)
{
    static constexpr size_t count = 80;
    static const char* const kinds[] = { "bvh4", "bvh4_motion", "bvh4_motion3p" };
    for (const size_t keys : { 1u, 2u, 3u })
        for (const bool unbounded : { false, true }) {
            startAnew();
            std::mt19937 random(40);
            std::uniform_real_distribution<float> uniform(-1, 1);
            std::vector<RtNode*> nodes;
            for (size_t i = 0; i < count; ++i) {
                const RtPoint at = { uniform(random), uniform(random), uniform(random) };
                const std::string name = formatted("object %zu", i);
                const float size = 0.05f + 0.25f * std::fabs(uniform(random));
                nodes.push_back(i % 2 ? sphere(name.c_str(), at, size)
                                      : named("box", name.c_str()));
                if (i % 2 == 0) {
                    RvNodeSetPnt(nodes[i], "min", at.x - size, at.y - size, at.z - size);
                    RvNodeSetPnt(nodes[i], "max", at.x + size, at.y + size, at.z + size);
                }
                RvNodeSetBool(nodes[i], "opaque", i % 3 == 0);
                std::vector<RtMatrix> matrices;
                for (size_t key = 0; key < keys; ++key)
                    matrices.push_back(shape_fixture::translation(
                        0.5f * uniform(random), 0.5f * uniform(random), 0.5f * uniform(random)));
                if (i % 4 != 3) // some stay where they are
                    shape_fixture::setMatrices(nodes[i], matrices);
            }
            RtNode* const list = groupOf("list", nodes);
            RvNodeSetBool(list, "unbounded", unbounded);
            prepare();
            EXPECT_EQ(kindOf(list), unbounded ? "list" : kinds[keys - 1]);
            std::vector<RtGObject*> objects;
            for (const RtNode* node : nodes)
                objects.push_back(objectOf(node));
            size_t hit_count = 0, several = 0;
            for (int i = 0; i < 10000; ++i) {
                Shot shot = randomShot(random);
                shot.type = i % 2 ? RV_RAY_DIFFUSE : RV_RAY_CAMERA; // traversed in two ways
                shot.time = 0.5f + 0.5f * uniform(random);
                const uint32_t capacity = i % 3 ? 11 : 1;
                const auto found = hitsIn({ objectOf(list) }, shot, capacity);
                const auto loop = hitsIn(objects, shot, capacity);
                ASSERT_EQ(found.size(), loop.size()) << keys << " " << i;
                for (size_t k = 0; k < found.size(); ++k) {
                    EXPECT_EQ(found[k].t, loop[k].t) << keys << " " << i;
                    EXPECT_EQ(found[k].object, loop[k].object) << keys << " " << i;
                }
                hit_count += !found.empty();
                several += found.size() > 2;
            }
            EXPECT_GT(hit_count, 1000u);
            EXPECT_GT(several, 100u);
        }
}
