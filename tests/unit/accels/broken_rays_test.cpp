// Tests of rays that are no rays: origins and directions that are no numbers, as a caller may give
// them, or as the transform of an object makes them where it has no inverse.
#include "accels/ray_tools.h"
#include "trace_tools.h"

namespace {

using namespace ray_tools;
using node_tools::named;
using rv::objectOf;

const float nan_ = NAN, inf = INFINITY;

const RtVector numberless_dir = { nan_, nan_, nan_ };
const RtPoint numberless_origin = { nan_, nan_, nan_ };
// Down the z axis, beside it, onto everything that stands there.
const Shot good = { { 0.25f, 0.125f, 5 }, { 0, 0, -1 } };

Shot with(const RtPoint& origin, const RtVector& dir)
{
    Shot shot = good;
    shot.origin = origin;
    shot.dir = dir;
    return shot;
}

const Shot broken[] = {
    with(numberless_origin, good.dir),
    with(good.origin, numberless_dir),
    with(numberless_origin, numberless_dir),
};

class BrokenRays : public trace_tools::Traced {
protected:
    void SetUp() override
    {
        Traced::SetUp();
        RvNodeInstall(RV_NODE_SHAPE, RV_TYPE_NONE, "block", nullptr, &shape_fixture::blockMethods(),
                      RV_VERSION);
    }
    // A square across the z axis, of two triangles, at each of some keys.
    static RtNode* square(const char* name, int keys, bool precise = false)
    {
        Points corners;
        for (int key = 0; key < keys; ++key)
            for (const RtPoint& p : { RtPoint{ -1, -1, 0 }, RtPoint{ 1, -1, 0 }, RtPoint{ 1, 1, 0 },
                                      RtPoint{ -1, 1, 0 } })
                corners.push_back({ p.x, p.y, 0.125f * float(key) });
        RtNode* const node = named("polymesh", name);
        setPoints(node, "vlist", corners, keys);
        setIndices(node, "nsides", { 4 });
        setIndices(node, "vidxs", { 0, 1, 2, 3 });
        RvNodeSetBool(node, "double_precision_intersector", precise);
        return node;
    }
    // All kinds of objects that the good ray hits. A block is hit by every ray that reaches its
    // structure.
    static std::vector<RtNode*> everything()
    {
        std::vector<RtNode*> nodes = {
            square("still", 1),
            square("two keys", 2),
            square("three keys", 3),
            square("precise", 1, true),
            square("precise, two keys", 2, true),
            named("block", "block"),
        };
        nodes.push_back(groupOf("list", { named("block", "a"), square("b", 1) }));
        for (RtNode* node : nodes)
            rv::RvNodeInitialize(node);
        return nodes;
    }
};

} // namespace

TEST_F(BrokenRays, a_ray_without_numbers_is_turned_away_before_and_after_there_is_a_structure)
{
    for (RtNode* node : everything()) {
        SCOPED_TRACE(RvNodeGetName(node));
        RtGObject* const object = objectOf(node);
        for (const Shot& shot : broken)
            EXPECT_TRUE(hitsIn({ object }, shot).empty());
        EXPECT_EQ(object->accel.load(), nullptr) << "no such ray reaches an object";
        ASSERT_EQ(hitsIn({ object }, good).size(), 1u);
        ASSERT_NE(object->accel.load(), nullptr);
        for (Shot shot : broken)
            for (const float time : { 0.0f, 0.5f, 1.0f })
                for (const bool any_hit : { false, true }) {
                    shot.time = time;
                    shot.any_hit = any_hit;
                    shot.type = any_hit ? RV_RAY_SHADOW : RV_RAY_DIFFUSE;
                    EXPECT_TRUE(hitsIn({ object }, shot).empty()) << time << any_hit;
                }
    }
}

TEST_F(BrokenRays, one_number_without_bounds_is_enough_to_hit_nothing)
{
    const float numbers[] = { nan_, inf, -inf, 3e38f, -3e38f, 0 };
    for (RtNode* node : everything()) {
        RtGObject* const object = objectOf(node);
        ASSERT_EQ(hitsIn({ object }, good).size(), 1u);
        for (const float x : numbers)
            for (const float y : numbers)
                for (const float z : numbers) {
                    if (std::isfinite(x) && std::isfinite(y) && std::isfinite(z))
                        continue;
                    SCOPED_TRACE(node_tools::formatted("%s: %g %g %g", RvNodeGetName(node),
                                                       double(x), double(y), double(z)));
                    EXPECT_TRUE(hitsIn({ object }, with({ x, y, z }, good.dir)).empty());
                    EXPECT_TRUE(hitsIn({ object }, with(good.origin, { x, y, z })).empty());
                }
    }
}

// Half way between the keys the object is a line.
TEST_F(BrokenRays, nothing_is_hit_where_the_transform_of_an_object_has_no_inverse)
{
    for (const char* const kind : { "still", "moving", "block" }) {
        startAnew();
        SCOPED_TRACE(kind);
        RtNode* const source = !strcmp(kind, "block") ? named("block", kind)
                                                      : square(kind, strcmp(kind, "still") ? 2 : 1);
        RtNode* const instance = named("ginstance", "instance");
        RvNodeSetPtr(instance, "node", source);
        shape_fixture::setMatrices(instance, { RV_M4_IDENTITY, shape_fixture::scaling(-1, -1, 1) });
        prepare();
        RtGObject* const object = objectOf(instance);
        RtMatrix half_way;
        ASSERT_EQ(rv::objectToWorldAt(object, 0.5f, &half_way)->m[0][0], 0);
        for (const int round : { 0, 1 }) { // without a structure and with one
            Shot shot = good;
            shot.time = 0.5f;
            EXPECT_TRUE(hitsIn({ object }, shot).empty()) << round;
            EXPECT_EQ(object->accel.load() != nullptr, round == 1);
            for (const float time : { 0.0f, 0.25f, 0.75f, 1.0f }) {
                shot.time = time;
                EXPECT_EQ(hitsIn({ object }, shot).size(), 1u) << round << " " << time;
            }
        }
    }
}
