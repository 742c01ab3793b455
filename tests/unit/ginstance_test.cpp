#include "hash.h"
#include "rv_rays.h"
#include "shape_fixture.h"

namespace {

using namespace shape_fixture;
using node_tools::formatted;
using node_tools::named;
using rv::objectOf;
using rv::shapeParams;

class GInstance : public Shapes {
protected:
    static std::string boundsOf(const RtNode* node) { return describe(objectOf(node)->world_bbox); }
    static RtNode* readyInstanceOf(RtNode* node, const char* name)
    {
        RtNode* const instance = instanceOf(node, name);
        rv::RvNodeInitialize(instance);
        return instance;
    }
};

// ---- What it refers to ----

TEST_F(GInstance, without_a_node_it_says_so_and_has_no_object)
{
    RtNode* const instance = shape("ginstance", "i");
    EXPECT_EQ(takeProblem(), "i: ginstance needs to reference an object");
    EXPECT_EQ(instance->local_data, nullptr);
    EXPECT_EQ(instance->source, nullptr);
}

TEST_F(GInstance, initialises_the_node_it_refers_to)
{
    RtNode* const source = block("source");
    RtNode* const instance = readyInstanceOf(source, "i");
    ASSERT_TRUE(source->initialized && source->local_data && instance->local_data);
    EXPECT_EQ(objectOf(instance)->node, instance);
    EXPECT_EQ(instance->source, source);
    EXPECT_NE(instance->local_data, source->local_data);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(GInstance, of_a_node_without_an_object_says_so)
{
    RtNode* const shapeless = named("ginstance", "empty");
    RtNode* const shader = RvNode("lambert");
    readyInstanceOf(shapeless, "i");
    EXPECT_EQ(takeProblem(),
              "empty: ginstance needs to reference an object | i: trying to clone a NULL object");
    RtNode* const odd = readyInstanceOf(shader, "odd");
    EXPECT_EQ(takeProblem(), "odd: trying to clone a NULL object");
    EXPECT_EQ(odd->local_data, nullptr);
}

TEST_F(GInstance, rings_end_with_a_report_from_every_member)
{
    for (const int size : { 1, 2, 3, 50 })
        for (const int tail : { 0, 2 }) {
            std::vector<RtNode*> ring;
            for (int i = 0; i < size + tail; ++i)
                ring.push_back(RvNode("ginstance"));
            // The tail leads into a ring.
            for (int i = 0; i < size + tail; ++i)
                RvNodeSetPtr(ring[size_t(i)], "node",
                             ring[size_t(i + 1 < size + tail ? i + 1 : tail)]);
            for (RtNode* node : ring)
                rv::RvNodeInitialize(node);
            const std::vector<std::string> problems = takeProblems();
            EXPECT_EQ(problems.size(), ring.size()) << size << " " << tail;
            for (RtNode* node : ring) {
                const std::string report =
                    formatted("%s: trying to clone a NULL object", RvNodeGetName(node));
                EXPECT_EQ(std::count(problems.begin(), problems.end(), report), 1);
                EXPECT_EQ(node->local_data, nullptr);
                EXPECT_EQ(node->source, nullptr);
                EXPECT_TRUE(node->initialized);
            }
        }
}

TEST_F(GInstance, long_chains_need_no_stack)
{
    constexpr int length = 200000;
    std::vector<RtNode*> chain = { block("source") };
    for (int i = 0; i < length; ++i) {
        chain.push_back(RvNode("ginstance"));
        RvNodeSetPtr(chain.back(), "node", chain[chain.size() - 2]);
    }
    const RtMatrix step = translation(1, 0, 0);
    for (const size_t i : { size_t(1), chain.size() / 2, chain.size() - 1 })
        setMatrices(chain[i], { step });
    rv::RvNodeInitialize(chain.back());
    ASSERT_TRUE(chain.back()->local_data);
    EXPECT_EQ(boundsOf(chain.back()), "2 -1 -1 -> 4 1 1");
    RvGObjectBuildAccel(chain.back(), 0);
    EXPECT_EQ(built_accels, 1);
    EXPECT_TRUE(objectOf(chain.back())->accel);
    RvNodeDestroy(chain.front());
    EXPECT_EQ(chain.back()->local_data, nullptr);
    EXPECT_EQ(live_accels, 0);
}

// ---- Transform ----

TEST_F(GInstance, its_matrix_comes_after_the_transform_of_the_shape_or_instead_of_it)
{
    // The shape is scaled by 2, the instance moved by 10 along x.
    static const struct {
        const char* name;
        bool has_matrix, inherit;
        const char* bounds;
    } cases[] = {
        { "nothing set", false, true, "-2 -2 -2 -> 2 2 2" },
        { "on top", true, true, "8 -2 -2 -> 12 2 2" },
        { "instead", true, false, "9 -1 -1 -> 11 1 1" },
        { "at the origin without any transform", false, false, "-1 -1 -1 -> 1 1 1" },
    };
    RtNode* const source = block("source");
    setMatrices(source, { scaling(2, 2, 2) });
    rv::RvNodeInitialize(source);
    for (const auto& c : cases) {
        RtNode* const instance = instanceOf(source, c.name);
        RvNodeSetBool(instance, "inherit_xform", c.inherit);
        if (c.has_matrix)
            setMatrices(instance, { translation(10, 0, 0) });
        rv::RvNodeInitialize(instance);
        EXPECT_EQ(boundsOf(instance), c.bounds) << c.name;
        EXPECT_EQ(shapeParams(instance).matrix->nelements, 0u);
    }
    EXPECT_EQ(boundsOf(source), "-2 -2 -2 -> 2 2 2");
    EXPECT_EQ(objectOf(RvNodeLookUpByName("at the origin without any transform"))->matrices,
              nullptr);
}

TEST_F(GInstance, instances_of_instances_add_their_transforms)
{
    RtNode* const first = instanceOf(block("source"), "first");
    setMatrices(first, { scaling(2, 2, 2) });
    RtNode* const second = instanceOf(first, "second");
    setMatrices(second, { translation(10, 0, 0) });
    rv::RvNodeInitialize(second);
    EXPECT_EQ(boundsOf(first), "-2 -2 -2 -> 2 2 2");
    EXPECT_EQ(boundsOf(second), "8 -2 -2 -> 12 2 2");
    EXPECT_EQ(rv::geometryNode(second), RvNodeLookUpByName("source"));
    EXPECT_EQ(RvNodeGetPtr(second, "node"), first) << "its own parameters are not inherited";
}

TEST_F(GInstance, motion_keys_that_do_not_match_leave_those_of_the_shape)
{
    RtNode* const source = block("source");
    setMatrices(source, { translation(0, 0, 0), translation(4, 0, 0) });
    RtNode* const instance = instanceOf(source, "i");
    setMatrices(instance, { translation(0, 1, 0), translation(0, 2, 0), translation(0, 3, 0) });
    rv::RvNodeInitialize(instance);
    EXPECT_EQ(takeProblem(), "mismatching number of motion-keyed transformation matrices!  object "
                             "has 2 but is sent 3 keys");
    EXPECT_EQ(objectOf(instance)->nkeys, 2);
    EXPECT_EQ(boundsOf(instance), "-1 -1 -1 -> 5 1 1");
}

TEST_F(GInstance, an_edited_matrix_takes_effect_as_it_would_have_from_the_start)
{
    RtNode* const source = block("source");
    setMatrices(source, { scaling(2, 2, 2) });
    RtNode* const on_top = readyInstanceOf(source, "on top");
    RtNode* const instead = instanceOf(source, "instead");
    RvNodeSetBool(instead, "inherit_xform", false);
    rv::RvNodeInitialize(instead);
    RvGObjectBuildAccel(on_top, 0);
    for (RtNode* node : { on_top, instead })
        setMatrices(node, { translation(10, 0, 0) });
    EXPECT_EQ(objectOf(on_top)->rebuild, RV_REBUILD_TRANSFORM);
    updateAll();
    EXPECT_EQ(boundsOf(on_top), "8 -2 -2 -> 12 2 2");
    EXPECT_EQ(boundsOf(instead), "9 -1 -1 -> 11 1 1");
    EXPECT_EQ(objectOf(on_top)->rebuild, RV_REBUILD_NONE);
    EXPECT_EQ(objectOf(on_top)->accel, objectOf(source)->accel);
    EXPECT_EQ(live_accels, 1);
}

TEST_F(GInstance, a_new_instance_of_an_edited_shape_keeps_its_matrix)
{
    RtNode* const source = readyBlock("source");
    RvNodeSetPnt(source, "max", 3, 3, 3);
    setMatrices(source, { scaling(2, 2, 2) });
    RtNode* const instance = instanceOf(source, "i");
    setMatrices(instance, { translation(10, 0, 0) });
    rv::RvNodeInitialize(instance);
    EXPECT_EQ(boundsOf(instance), "8 -2 -2 -> 16 6 6");
    updateAll();
    EXPECT_EQ(boundsOf(instance), "8 -2 -2 -> 16 6 6");
    EXPECT_EQ(boundsOf(source), "-2 -2 -2 -> 6 6 6");
}

// ---- Parameters ----

TEST_F(GInstance, inherits_every_common_parameter_it_does_not_override)
{
    RtNode* const light = RvNode("point_light");
    RtNode* const mine = RvNode("lambert");
    RtNode* const theirs = RvNode("lambert");
    const auto give = [&](RtNode* node, RtNode* shader, int number) {
        RvNodeSetArray(node, "shader", nodeArray({ shader }));
        RvNodeSetInt(node, "visibility", number);
        RvNodeSetInt(node, "sidedness", number);
        RvNodeSetBool(node, "opaque", number == 1);
        RvNodeSetStr(node, "trace_sets", number == 1 ? "theirs" : "mine");
        RvNodeSetArray(node, "transform_time_samples", floats({ 0, float(number) }));
        RvNodeSetFlt(node, "sss_sample_spacing", float(number));
        RvNodeSetInt(node, "sss_max_samples", number);
        RvNodeSetBool(node, "sss_use_gi", number == 1);
        RvNodeSetBool(node, "use_light_group", true);
        RvNodeSetBool(node, "use_shadow_group", true);
        RvNodeSetArray(node, "light_group", nodeArray(std::vector<RtNode*>(size_t(number), light)));
        RvNodeSetArray(node, "shadow_group",
                       nodeArray(std::vector<RtNode*>(size_t(number), light)));
        RvNodeSetInt(node, "id", number);
        // These are the shape's whatever the instance says.
        RvNodeSetFlt(node, "ray_bias", float(number));
        RvNodeSetBool(node, "self_shadows", number == 1);
        RvNodeSetArray(node, "deform_time_samples", floats({ 0, float(number) }));
    };
    RtNode* const source = block("source");
    give(source, theirs, 1);
    RtNode* const plain = instanceOf(source, "plain");
    RtNode* const other = instanceOf(source, "other");
    give(other, mine, 2);
    rv::RvNodeInitialize(plain);
    rv::RvNodeInitialize(other);
    const struct {
        const RtNode* node;
        int number;
        RtNode* shader;
        const char* set;
    } cases[] = { { plain, 1, theirs, "theirs" }, { other, 2, mine, "mine" } };
    for (const auto& c : cases) {
        SCOPED_TRACE(RvNodeGetName(c.node));
        const rv::ShapeParams& params = shapeParams(c.node);
        const size_t n = size_t(c.number);
        EXPECT_EQ(nodesOf(params.shader), std::vector<RtNode*>{ c.shader });
        EXPECT_EQ(params.visibility, c.number);
        EXPECT_EQ(objectOf(c.node)->visibility, c.number);
        EXPECT_EQ(params.sidedness, c.number);
        EXPECT_EQ(params.opaque, c.number == 1);
        EXPECT_STREQ(RvArrayGetStr(params.trace_sets, 0), c.set);
        EXPECT_EQ(objectOf(c.node)->traceset_hashes[0], rv::stringHash(c.set, strlen(c.set)));
        EXPECT_EQ(floatsOf(params.transform_time_samples)[1], float(c.number));
        EXPECT_EQ(params.sss_sample_spacing, float(c.number));
        EXPECT_EQ(params.sss_max_samples, c.number);
        EXPECT_EQ(params.sss_use_gi, c.number == 1);
        EXPECT_EQ(nodesOf(params.light_group).size(), n);
        EXPECT_EQ(nodesOf(params.shadow_group).size(), n);
        EXPECT_EQ(params.id, c.number);
        EXPECT_EQ(params.ray_bias, 1);
        EXPECT_TRUE(params.self_shadows);
        EXPECT_EQ(floatsOf(params.deform_time_samples)[1], 1);
        EXPECT_NE(params.shader, shapeParams(source).shader);
    }
    EXPECT_STREQ(RvNodeGetName(plain), "plain");
}

TEST_F(GInstance, overridden_values_are_repaired_like_those_of_shapes)
{
    RtNode* const light = RvNode("point_light");
    RtNode* const instance = instanceOf(block("source"), "i");
    RvNodeSetArray(instance, "transform_time_samples", floats({ 1, 0 }));
    RvNodeSetArray(instance, "shader", nodeArray({ nullptr }));
    RvNodeSetBool(instance, "use_light_group", true);
    RvNodeSetArray(instance, "light_group", nodeArray({ nullptr, light }));
    rv::RvNodeInitialize(instance);
    EXPECT_EQ(takeProblem(),
              "Invalid transform time sample specification on: i - resetting to default");
    EXPECT_EQ(nodesOf(shapeParams(instance).shader)[0], scene().default_reflection_shader);
    EXPECT_EQ(nodesOf(shapeParams(instance).light_group), std::vector<RtNode*>{ light });
}

TEST_F(GInstance, overriding_visibility_hides_only_that_copy)
{
    RtNode* const source = readyBlock("source");
    RtNode* const hidden = instanceOf(source, "hidden");
    RvNodeSetInt(hidden, "visibility", 0);
    rv::RvNodeInitialize(hidden);
    RtNode* const shown = readyInstanceOf(source, "shown");
    EXPECT_EQ(objectOf(hidden)->visibility, 0);
    EXPECT_EQ(objectOf(shown)->visibility, RV_RAY_ALL);
    EXPECT_EQ(nodesOf(scene().bounded_objects), (std::vector<RtNode*>{ source, shown }));
    RtNode* const bare = block("hidden source");
    RvNodeSetInt(bare, "visibility", 0);
    RtNode* const visible = instanceOf(bare, "visible copy");
    RvNodeSetInt(visible, "visibility", 1);
    rv::RvNodeInitialize(visible);
    EXPECT_EQ(nodesOf(scene().bounded_objects), (std::vector<RtNode*>{ source, shown, visible }));
}

TEST_F(GInstance, joins_the_list_for_the_extent_of_its_shape)
{
    block_kind = RV_KIND_PLANE;
    RtNode* const plane = readyBlock("plane");
    RtNode* const of_plane = readyInstanceOf(plane, "of plane");
    block_kind = RV_KIND_BOX;
    RtNode* const wide = block("wide");
    RvNodeSetBool(wide, "unbounded", true);
    RtNode* const of_wide = readyInstanceOf(wide, "of wide");
    RtNode* const adopted = instanceOf(plane, "adopted");
    adopted->creator = wide;
    rv::RvNodeInitialize(adopted);
    EXPECT_EQ(nodesOf(scene().unbounded_objects),
              (std::vector<RtNode*>{ plane, of_plane, wide, of_wide }));
    EXPECT_TRUE(RvListEmpty(scene().bounded_objects));
}

TEST_F(GInstance, is_counted_as_an_instance_of_the_kind_of_its_shape)
{
    block_kind = RV_KIND_CURVES;
    RtNode* const curves = readyBlock("curves");
    readyInstanceOf(readyInstanceOf(curves, "a"), "b");
    EXPECT_EQ(stats().geometry[RV_GEOMETRY_CURVES].instances, 2u);
    readyInstanceOf(RvNode("lambert"), "none");
    EXPECT_EQ(stats().geometry[RV_GEOMETRY_CURVES].instances, 2u);
}

TEST_F(GInstance, sees_the_user_data_of_its_shape)
{
    RtNode* const source = block("source");
    RvNodeDeclare(source, "tone", "constant FLOAT");
    RvNodeSetFlt(source, "tone", 0.5f);
    RtNode* const instance = readyInstanceOf(source, "i");
    EXPECT_TRUE(RvNodeLookUpUserParameter(instance, "tone"));
    EXPECT_EQ(instance->user_param_count, 0);
}

// ---- Lives ----

TEST_F(GInstance, another_node_can_take_the_place_of_a_destroyed_one)
{
    RtNode* const source = readyBlock("source");
    RtNode* const instance = readyInstanceOf(source, "i");
    RvNodeDestroy(source);
    updateAll();
    EXPECT_EQ(takeProblem(), "i: ginstance needs to reference an object");
    EXPECT_EQ(instance->local_data, nullptr);
    rv::uninitializeNode(instance);
    RvNodeSetPtr(instance, "node", readyBlock("new source"));
    updateAll();
    EXPECT_EQ(takeProblem(), "");
    EXPECT_TRUE(instance->local_data);
}

TEST_F(GInstance, none_of_its_shape_methods_may_be_reached)
{
    const RtShapeMethods& methods = rv::shapeMethods(RvNode("ginstance"));
    EXPECT_EQ(methods.ShapeLocalGeometry, rv::unreachable::ShapeLocalGeometry);
    EXPECT_EQ(methods.ShapeBBox, rv::unreachable::ShapeBBox);
    EXPECT_EQ(methods.ShapeTextureCoordinates, rv::unreachable::ShapeTextureCoordinates);
    EXPECT_EQ(methods.ShapePrepareUserData, rv::unreachable::ShapePrepareUserData);
    EXPECT_EQ(methods.ShapePrepareIntersection, rv::unreachable::ShapePrepareIntersection);
}

TEST_F(GInstance, survives_a_heap_that_fails_at_any_request)
{
    RtNode* const source = block("source");
    setMatrices(source, { translation(1, 0, 0) });
    RvNodeSetStr(source, "trace_sets", "red");
    rv::RvNodeInitialize(source);
    const auto texts = node_tools::problemsOfFailingHeap(
        [&] {
            RtNode* const instance = RvNode("ginstance");
            if (!instance)
                return;
            RvNodeSetPtr(instance, "node", source);
            setMatrices(instance, { translation(0, 1, 0) });
            rv::RvNodeInitialize(instance);
            setMatrices(instance, { translation(0, 2, 0) });
            instance->entry->methods->Update(instance, instance->params);
            RvNodeDestroy(instance);
        },
        [] { return takeProblems(); });
    EXPECT_TRUE(node_tools::anyReportsFailure(texts, "core.src.objects.gobject", "RvGObjectClone"));
    EXPECT_EQ(objectOf(source)->first_clone, nullptr);
}

} // namespace
