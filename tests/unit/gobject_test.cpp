#include "objects/gobject.h"

#include "frame_fixture.h"
#include "golden.h"
#include "hash.h"
#include "objects/polymesh.h"
#include "shape_fixture.h"

namespace {

using namespace shape_fixture;
using node_tools::formatted;
using node_tools::named;
using rv::objectOf;
using rv::shapeParams;

class GObject : public Shapes {
protected:
    static const char* only(const std::vector<RtNode*>& nodes)
    {
        EXPECT_EQ(nodes.size(), 1u);
        return nodes.empty() ? "" : RvNodeGetName(nodes.front());
    }
    static std::vector<RtNode*> bounded() { return nodesOf(scene().bounded_objects); }
    static std::vector<RtNode*> unbounded() { return nodesOf(scene().unbounded_objects); }
};

// ---- Making ----

TEST_F(GObject, a_new_object_holds_what_its_shape_says_and_nothing_built_yet)
{
    RtNode* const node = block("b");
    RvNodeSetInt(node, "visibility", 0x23);
    rv::RvNodeInitialize(node);
    const RtGObject* const object = objectOf(node);
    ASSERT_TRUE(object);
    EXPECT_EQ(object->node, node);
    EXPECT_EQ(object->kind, RV_KIND_BOX);
    EXPECT_EQ(object->data, nullptr);
    EXPECT_EQ(object->nkeys_shape, 1u);
    EXPECT_EQ(object->nuniform, 1u);
    EXPECT_EQ(object->nvarying, 8u);
    EXPECT_EQ(object->accel, nullptr);
    EXPECT_EQ(object->aux, nullptr);
    EXPECT_EQ(object->extra, nullptr);
    EXPECT_EQ(object->traceset_hashes, nullptr);
    EXPECT_EQ(object->matrices, nullptr);
    EXPECT_EQ(object->nkeys, 0);
    EXPECT_EQ(object->rebuild, RV_REBUILD_NONE);
    EXPECT_EQ(object->visibility, 0x23);
    EXPECT_EQ(describe(object->local_bbox), "-1 -1 -1 -> 1 1 1");
    EXPECT_EQ(describe(object->world_bbox), "-1 -1 -1 -> 1 1 1");
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(GObject, records_count_as_overhead_of_nodes_until_their_nodes_go)
{
    RtNode* const node = block("b");
    const int64_t before = stats().node_overhead_bytes;
    rv::RvNodeInitialize(node);
    EXPECT_EQ(stats().node_overhead_bytes, before + int64_t(sizeof(RtGObject)));
    rv::uninitializeNode(node);
    EXPECT_EQ(stats().node_overhead_bytes, before);
    EXPECT_EQ(node->local_data, nullptr);
}

TEST_F(GObject, bad_time_samples_are_reported_and_reset)
{
    static const struct {
        std::vector<float> samples;
        bool valid;
    } cases[] = {
        { { 0, 1 }, true },     { { 0.25f, 0.5f, 0.75f }, true },
        { { -1, 3 }, true },    { { 0.5f }, false },
        { { 1, 0 }, false },    { { 0, 0 }, false },
        { { 0, 1, 1 }, false }, { {}, false },
    };
    static const struct {
        const char* param;
        const char* message;
    } kinds[] = {
        { "transform_time_samples",
          "Invalid transform time sample specification on: %s - resetting to default" },
        { "deform_time_samples",
          "Invalid deform time sample specification on: %s - resetting to default" },
    };
    for (const auto& kind : kinds)
        for (const auto& c : cases) {
            RtNode* const node = RvNode("block");
            SCOPED_TRACE(formatted("%s of %zu", kind.param, c.samples.size()));
            RvNodeSetArray(node, kind.param, floats(c.samples));
            rv::RvNodeInitialize(node);
            EXPECT_EQ(takeProblem(), c.valid ? "" : formatted(kind.message, RvNodeGetName(node)));
            const std::vector<float> expected = c.valid ? c.samples : std::vector<float>{ 0, 1 };
            EXPECT_EQ(floatsOf(RvNodeGetArray(node, kind.param)), expected);
        }
}

TEST_F(GObject, time_samples_of_another_type_are_reset)
{
    RtNode* const node = block("b");
    RtArray* const samples = RvNodeGetArray(node, "transform_time_samples");
    RvArrayModify(samples, 2, 1, RV_TYPE_INT, 0, 1);
    takeProblems();
    EXPECT_EQ(rv::relativeTime(samples, 1), 0);
    rv::RvNodeInitialize(node);
    EXPECT_EQ(takeProblem(),
              "Invalid transform time sample specification on: b - resetting to default");
    EXPECT_EQ(RvNodeGetArray(node, "transform_time_samples")->type, RV_TYPE_FLOAT);
}

TEST_F(GObject, an_object_without_shaders_gets_the_default_one_and_so_does_every_gap)
{
    RtNode* const mine = RvNode("lambert");
    RtNode* const standard = scene().default_reflection_shader;
    static const struct {
        std::vector<RtNode*> given, expected;
    } cases[] = {
        { {}, { standard } },
        { { nullptr }, { standard } },
        { { mine }, { mine } },
        { { nullptr, mine, nullptr }, { standard, mine, standard } },
    };
    for (const auto& c : cases) {
        RtNode* const node = RvNode("block");
        RvNodeSetArray(node, "shader", nodeArray(c.given));
        rv::RvNodeInitialize(node);
        EXPECT_EQ(nodesOf(shapeParams(node).shader), c.expected);
    }
}

TEST_F(GObject, an_unused_group_is_dropped_and_a_used_one_keeps_its_nodes_in_order)
{
    RtNode* const a = RvNode("point_light");
    RtNode* const b = RvNode("point_light");
    static const struct {
        const char* use;
        const char* group;
        RtArray* rv::ShapeParams::*field;
    } groups[] = {
        { "use_light_group", "light_group", &rv::ShapeParams::light_group },
        { "use_shadow_group", "shadow_group", &rv::ShapeParams::shadow_group },
    };
    for (const auto& g : groups) {
        SCOPED_TRACE(g.group);
        for (const bool is_used : { false, true }) {
            RtNode* const node = RvNode("block");
            RvNodeSetBool(node, g.use, is_used);
            RvNodeSetArray(node, g.group, nodeArray({ nullptr, b, nullptr, a, b, nullptr }));
            rv::RvNodeInitialize(node);
            const RtArray* const group = shapeParams(node).*g.field;
            ASSERT_EQ(group != nullptr, is_used);
            if (is_used) {
                EXPECT_EQ(nodesOf(group), (std::vector<RtNode*>{ b, a, b }));
            }
        }
    }
}

// ---- User data ----

TEST_F(GObject, user_data_of_a_wrong_length_is_disabled)
{
    static const struct {
        const char* declaration;
        const char* kind;
        unsigned elements;
        int expected; // -1: this length is right
    } cases[] = {
        { "uniform FLOAT", "uniform", 3, 1 },     { "uniform FLOAT", "uniform", 1, -1 },
        { "uniform FLOAT", "uniform", 0, 1 },     { "varying POINT", "varying", 7, 8 },
        { "varying POINT", "varying", 8, -1 },    { "uniform STRING", "uniform", 2, 1 },
        { "uniform ARRAY INT", "uniform", 2, 1 }, { "varying NODE", "varying", 9, 8 },
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.declaration);
        RtNode* const node = RvNode("block");
        ASSERT_TRUE(RvNodeDeclare(node, "extra", c.declaration));
        const int type = rv::userElementType(*RvNodeLookUpUserParameter(node, "extra"));
        RvNodeSetArray(node, "extra", RvArrayAllocate(c.elements, 1, type));
        ASSERT_EQ(takeProblem(), "");
        rv::RvNodeInitialize(node);
        EXPECT_EQ(takeProblem(),
                  c.expected < 0 ? ""
                                 : formatted("%s: %s user-data count wrong! (found %u expected %d) "
                                             "-- disabling user-data 'extra'",
                                             RvNodeGetName(node), c.kind, c.elements, c.expected));
        EXPECT_EQ(RvNodeLookUpUserParameter(node, "extra") != nullptr, c.expected < 0);
        ASSERT_EQ(node->user_param_count, 1);
        if (c.expected >= 0) {
            const RtUserParamEntry& entry = node->user_params[0];
            EXPECT_STREQ(entry.name, "");
            EXPECT_EQ(entry.category, 0);
            ASSERT_TRUE(entry.value.ARRAY);
            EXPECT_EQ(entry.value.ARRAY->nelements, 0u);
            EXPECT_EQ(entry.value.ARRAY->type, type);
        }
    }
}

TEST_F(GObject, constant_user_data_is_not_counted)
{
    RtNode* const node = block("b");
    RvNodeDeclare(node, "list", "constant ARRAY FLOAT");
    RvNodeSetArray(node, "list", floats({ 1, 2, 3, 4, 5 }));
    RvNodeDeclare(node, "word", "constant STRING");
    RvNodeSetStr(node, "word", "kept");
    rv::RvNodeInitialize(node);
    EXPECT_EQ(takeProblem(), "");
    EXPECT_STREQ(RvNodeGetStr(node, "word"), "kept");
    EXPECT_EQ(floatsOf(RvNodeGetArray(node, "list")).size(), 5u);
}

TEST_F(GObject, user_data_without_its_array_is_reported_and_disabled)
{
    RtNode* const node = block("b");
    RvNodeDeclare(node, "gone", "uniform ARRAY FLOAT");
    RtUserParamEntry* const entry = rv::findUserParam(node, "gone", false);
    RvArrayDestroy(std::exchange(entry->value.ARRAY, nullptr));
    rv::RvNodeInitialize(node);
    EXPECT_EQ(takeProblem(), "b: could not read ARRAY parameter \"gone\" | b: uniform user-data "
                             "count wrong! (found 0 expected 1) -- disabling user-data 'gone'");
    EXPECT_EQ(RvNodeLookUpUserParameter(node, "gone"), nullptr);
}

TEST_F(GObject, a_disabled_value_of_any_type_leaves_the_entry_clean)
{
    static const struct {
        const char* declaration;
        bool is_string;
    } cases[] = { { "constant STRING", true }, { "constant MATRIX", false },
                  { "constant INT", false },   { "constant ARRAY STRING", false },
                  { "uniform STRING", false }, { "varying MATRIX", false } };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.declaration);
        RtNode* const node = RvNode("block");
        ASSERT_TRUE(RvNodeDeclare(node, "value", c.declaration));
        if (c.is_string)
            RvNodeSetStr(node, "value", "text");
        const RtMatrix matrix = translation(1, 2, 3);
        if (!strcmp(c.declaration, "constant MATRIX"))
            RvNodeSetMatrix(node, "value", &matrix);
        rv::disableUserParam(rv::findUserParam(node, "value", false));
        EXPECT_EQ(RvNodeLookUpUserParameter(node, "value"), nullptr);
        EXPECT_EQ(RvNodeLookUpUserParameter(node, ""), nullptr);
        if (c.is_string) {
            EXPECT_STREQ(node->user_params[0].value.STR, "");
        }
        EXPECT_TRUE(RvNodeDeclare(node, "value", "constant FLOAT"));
        RtNode* const clone = RvNodeClone(node);
        EXPECT_EQ(clone->user_param_count, 2);
    }
}

// ---- Bounds ----

TEST_F(GObject, an_empty_box_hides_the_shape_and_keeps_it_out_of_the_scene)
{
    const float nan = NAN;
    static const struct {
        const char* name;
        RtBBox box;
    } cases[] = {
        { "x", { { 1, 0, 0 }, { 0, 1, 1 } } },
        { "y", { { 0, 1, 0 }, { 1, 0, 1 } } },
        { "z", { { 0, 0, 1 }, { 1, 1, 0 } } },
        { "nan", { { nan, 0, 0 }, { 1, 1, 1 } } },
    };
    for (const auto& c : cases) {
        RtNode* const node = block(c.name);
        *rv::elementsOf<RtPoint>(blockOf(node).min) = c.box.min;
        *rv::elementsOf<RtPoint>(blockOf(node).max) = c.box.max;
        rv::RvNodeInitialize(node);
        EXPECT_EQ(takeProblem(),
                  formatted("%s: shape has empty bounding box (hiding shape)", c.name));
        EXPECT_EQ(objectOf(node)->visibility, 0);
    }
    EXPECT_TRUE(bounded().empty() && unbounded().empty());
}

TEST_F(GObject, an_empty_box_of_what_is_hidden_anyway_is_not_reported)
{
    RtNode* const node = blockAt("hidden", { { 1, 0, 0 }, { 0, 1, 1 } });
    RvNodeSetInt(node, "visibility", 0);
    rv::RvNodeInitialize(node);
    EXPECT_EQ(takeProblem(), "");
    EXPECT_EQ(objectOf(node)->visibility, 0);
}

TEST_F(GObject, a_box_without_thickness_is_not_empty)
{
    RtNode* const node = blockAt("flat", { { 0, 0, 0 }, { 1, 0, 1 } });
    rv::RvNodeInitialize(node);
    EXPECT_EQ(takeProblem(), "");
    EXPECT_EQ(bounded().size(), 1u);
}

TEST_F(GObject, bounds_take_in_all_deformation_keys)
{
    RtNode* const node = block("b");
    RvNodeSetArray(node, "min",
                   RvArray(1, 2, RV_TYPE_POINT, RtPoint{ 0, 0, 0 }, RtPoint{ 5, -2, 0 }));
    RvNodeSetArray(node, "max",
                   RvArray(1, 2, RV_TYPE_POINT, RtPoint{ 1, 1, 1 }, RtPoint{ 6, 0, 1 }));
    rv::RvNodeInitialize(node);
    EXPECT_EQ(describe(objectOf(node)->local_bbox), "0 -2 0 -> 6 1 1");
    EXPECT_EQ(objectOf(node)->nkeys_shape, 2u);
}

// Required: the padding is the displacement height itself.
TEST_F(GObject, displaced_meshes_and_nurbs_are_padded_by_the_displacement_height)
{
    RtNode* const map = RvNode("noise");
    static const struct {
        RtObjectKind kind;
        bool has_map;
        const char* ignore;
        bool padded;
    } cases[] = {
        { RV_KIND_POLYMESH, true, nullptr, true },
        { RV_KIND_NURBS, true, nullptr, true },
        { RV_KIND_BOX, true, nullptr, false },
        { RV_KIND_POLYMESH, false, nullptr, false },
        { RV_KIND_POLYMESH, true, "ignore_displacement", false },
        { RV_KIND_NURBS, true, "ignore_subdivision", false },
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(formatted("kind %d, %s", c.kind, c.ignore ? c.ignore : "all"));
        if (c.ignore)
            RvNodeSetBool(RvUniverseGetOptions(), c.ignore, true);
        block_kind = c.kind;
        RtNode* const node = RvNode("block");
        RvNodeSetPtr(node, "disp_map", c.has_map ? map : nullptr);
        RvNodeSetFlt(node, "disp_height", 0.25f);
        rv::RvNodeInitialize(node);
        EXPECT_EQ(describe(objectOf(node)->local_bbox),
                  c.padded ? "-1.25 -1.25 -1.25 -> 1.25 1.25 1.25" : "-1 -1 -1 -> 1 1 1");
        if (c.ignore)
            RvNodeSetBool(RvUniverseGetOptions(), c.ignore, false);
    }
}

TEST_F(GObject, the_matrix_parameter_is_emptied_unless_scene_data_is_preserved)
{
    for (const bool preserve : { false, true }) {
        RvNodeSetBool(RvUniverseGetOptions(), "preserve_scene_data", preserve);
        RtNode* const node = RvNode("block");
        setMatrices(node, { translation(1, 2, 3) });
        rv::RvNodeInitialize(node);
        EXPECT_EQ(objectOf(node)->nkeys, 1);
        EXPECT_EQ(describe(objectOf(node)->world_bbox), "0 1 2 -> 2 3 4");
        ASSERT_TRUE(shapeParams(node).matrix);
        EXPECT_EQ(shapeParams(node).matrix->nelements, preserve ? 1u : 0u);
        EXPECT_EQ(shapeParams(node).matrix->type, RV_TYPE_MATRIX);
    }
}

// ---- The scene's lists ----

TEST_F(GObject, top_level_objects_join_the_list_for_their_extent)
{
    readyBlock("bounded");
    RtNode* const wide = block("unbounded");
    RvNodeSetBool(wide, "unbounded", true);
    rv::RvNodeInitialize(wide);
    block_kind = RV_KIND_PLANE;
    readyBlock("plane");
    block_kind = RV_KIND_BOX;
    RtNode* const unseen = block("unseen");
    RvNodeSetInt(unseen, "visibility", 0);
    rv::RvNodeInitialize(unseen);
    RtNode* const created = block("created");
    created->creator = wide;
    rv::RvNodeInitialize(created);
    block_kind = RV_KIND_LIST;
    readyBlock("list");
    EXPECT_STREQ(only(bounded()), "bounded");
    ASSERT_EQ(unbounded().size(), 2u);
    EXPECT_STREQ(RvNodeGetName(unbounded()[0]), "unbounded");
    EXPECT_STREQ(RvNodeGetName(unbounded()[1]), "plane");
}

TEST_F(GObject, destroyed_shapes_leave_the_scenes_list_in_any_order)
{
    static const int orders[][4] = {
        { 0, 1, 2, 3 }, { 3, 2, 1, 0 }, { 1, 3, 0, 2 }, { 2, 1, 3, 0 }
    };
    for (const auto& order : orders) {
        std::vector<RtNode*> nodes, left;
        for (int i = 0; i < 4; ++i)
            nodes.push_back(readyBlock(formatted("b%d", i).c_str()));
        left = nodes;
        for (const int i : order) {
            RvNodeDestroy(nodes[size_t(i)]);
            std::erase(left, nodes[size_t(i)]);
            EXPECT_EQ(bounded(), left);
        }
        RtNode* const next = readyBlock("next");
        EXPECT_EQ(bounded(), std::vector<RtNode*>{ next });
        RvNodeDestroy(next);
    }
}

TEST_F(GObject, a_destroyed_shape_is_no_root_any_more)
{
    RtNode* const node = readyBlock("b");
    RtNode* const other = readyBlock("other");
    scene().root = scene().bounded_root = node;
    scene().unbounded_root = other;
    EXPECT_EQ(describe(RvUniverseGetSceneBounds()), "-1 -1 -1 -> 1 1 1");
    RvNodeDestroy(node);
    EXPECT_EQ(scene().root, nullptr);
    EXPECT_EQ(scene().bounded_root, nullptr);
    EXPECT_EQ(scene().unbounded_root, other);
    EXPECT_EQ(describe(RvUniverseGetSceneBounds()), "0 0 0 -> 0 0 0");
}

TEST_F(GObject, the_local_data_of_other_nodes_and_of_plugin_shapes_is_left_alone)
{
    RvNodeInstall(RV_NODE_SHAPE, RV_TYPE_NONE, "foreign", "foreign.so", &blockMethods(),
                  RV_VERSION);
    char data[] = "not an object";
    for (const char* type : { "foreign", "lambert" }) {
        RtNode* const node = RvNode(type);
        node->local_data = data;
        node->initialized = true;
        EXPECT_EQ(rv::shapeObject(node), nullptr);
        rv::shapeTeardown(node);
        rv::flushShape(node, -1);
        RvGObjectBuildAccel(node, 0);
        RvGObjectUpdate(node);
        EXPECT_EQ(rv::shapeVertexCount(node), 0u);
        EXPECT_EQ(describe(rv::rootBounds(node)), "0 0 0 -> 0 0 0");
        EXPECT_EQ(node->local_data, data);
        node->local_data = nullptr;
    }
    EXPECT_EQ(rv::shapeObject(nullptr), nullptr);
    RtNode* const foreign = RvNode("foreign");
    foreign->local_data = data;
    RvNodeSetPnt(foreign, "min", 0, 0, 0);
    EXPECT_EQ(takeProblem(), "");
    foreign->local_data = nullptr;
}

// ---- Trace sets ----

TEST_F(GObject, trace_sets_are_hashed_with_their_lengths)
{
    RtNode* const node = block("b");
    RvNodeSetArray(node, "trace_sets", RvArray(3, 1, RV_TYPE_STRING, "red", "", "a longer name"));
    rv::RvNodeInitialize(node);
    const uint32_t* const hashes = objectOf(node)->traceset_hashes;
    ASSERT_TRUE(hashes);
    EXPECT_EQ(hashes[0], rv::stringHash("red", 3));
    EXPECT_EQ(hashes[1], 0u);
    EXPECT_EQ(hashes[2], rv::stringHash("a longer name", 13));
}

TEST_F(GObject, empty_trace_sets_are_dropped)
{
    RtNode* const node = readyBlock("b");
    EXPECT_EQ(objectOf(node)->traceset_hashes, nullptr);
    EXPECT_EQ(shapeParams(node).trace_sets, nullptr);
}

TEST_F(GObject, containers_keep_no_trace_sets)
{
    for (const RtObjectKind kind : { RV_KIND_LIST, RV_KIND_PROCEDURAL }) {
        block_kind = kind;
        RtNode* const node = RvNode("block");
        RvNodeSetStr(node, "trace_sets", "red");
        rv::RvNodeInitialize(node);
        EXPECT_EQ(takeProblem(),
                  formatted("[obj] Ignoring tracesets on object list \"%s\"", RvNodeGetName(node)));
        EXPECT_EQ(objectOf(node)->traceset_hashes, nullptr);
    }
}

TEST_F(GObject, trace_sets_and_visibility_edited_between_renders_reach_the_object)
{
    RtNode* const node = readyBlock("b");
    RvNodeSetArray(node, "trace_sets", RvArray(2, 1, RV_TYPE_STRING, "red", "green"));
    ASSERT_TRUE(objectOf(node)->traceset_hashes);
    EXPECT_EQ(objectOf(node)->traceset_hashes[1], rv::stringHash("green", 5));
    RvNodeSetStr(node, "trace_sets", "blue");
    EXPECT_EQ(objectOf(node)->traceset_hashes[1], rv::stringHash("blue", 4));
    RvNodeSetInt(node, "visibility", 1);
    EXPECT_EQ(objectOf(node)->visibility, 1);
    EXPECT_EQ(objectOf(node)->rebuild, RV_REBUILD_NONE);
}

// ---- Clones ----

TEST_F(GObject, a_clone_copies_everything_but_the_cache_and_owns_its_matrices_and_hashes)
{
    RtNode* const node = block("b");
    setMatrices(node, { translation(1, 0, 0), translation(2, 0, 0) });
    RvNodeSetStr(node, "trace_sets", "red");
    rv::RvNodeInitialize(node);
    RtGObject* const object = objectOf(node);
    object->data = &scene();
    object->aux = node;
    object->extra = new RtObjectCache;
    RvGObjectBuildAccel(node, 0);
    const int64_t overhead = stats().node_overhead_bytes, geometry = stats().geometry_bytes;
    RtGObject* const clone = RvGObjectClone(object);
    ASSERT_TRUE(clone);
    EXPECT_EQ(stats().node_overhead_bytes - overhead,
              int64_t(sizeof(RtGObject) + 2 * sizeof(RtMatrix)));
    EXPECT_EQ(stats().geometry_bytes, geometry);
    EXPECT_EQ(clone->node, node);
    EXPECT_EQ(clone->data, object->data);
    EXPECT_EQ(clone->aux, object->aux);
    EXPECT_EQ(clone->accel, object->accel);
    EXPECT_EQ(clone->extra, nullptr);
    EXPECT_EQ(clone->kind, object->kind);
    EXPECT_EQ(clone->visibility, object->visibility);
    EXPECT_EQ(clone->nkeys_shape, object->nkeys_shape);
    EXPECT_EQ(clone->nuniform, object->nuniform);
    EXPECT_EQ(clone->nvarying, object->nvarying);
    EXPECT_EQ(describe(clone->local_bbox), describe(object->local_bbox));
    EXPECT_EQ(describe(clone->world_bbox), describe(object->world_bbox));
    ASSERT_EQ(clone->nkeys, 2);
    EXPECT_NE(clone->matrices, object->matrices);
    EXPECT_EQ(memcmp(clone->matrices, object->matrices, 2 * sizeof(RtMatrix)), 0);
    EXPECT_NE(clone->traceset_hashes, object->traceset_hashes);
    EXPECT_EQ(clone->traceset_hashes[0], object->traceset_hashes[0]);
    EXPECT_NE(clone->lock.handle, object->lock.handle);
    object->data = nullptr;
    rv::destroyObject(clone);
    EXPECT_EQ(stats().node_overhead_bytes, overhead);
    EXPECT_EQ(objectOf(node), object);
    EXPECT_EQ(RvGObjectClone(nullptr), nullptr);
}

TEST_F(GObject, destroying_a_source_takes_all_clones_from_their_nodes)
{
    RtNode* const source = readyBlock("source");
    RtNode* instances[6];
    const int of[6] = { -1, -1, 0, 2, 0, 1 }; // a tree: which instance each refers to
    for (int i = 0; i < 6; ++i) {
        instances[i] =
            instanceOf(of[i] < 0 ? source : instances[of[i]], formatted("i%d", i).c_str());
        rv::RvNodeInitialize(instances[i]);
        ASSERT_TRUE(instances[i]->local_data);
    }
    EXPECT_EQ(bounded().size(), 7u);
    RvGObjectBuildAccel(instances[3], 0);
    EXPECT_EQ(built_accels, 1);
    RvNodeDestroy(instances[2]);
    EXPECT_EQ(instances[3]->local_data, nullptr);
    EXPECT_EQ(live_accels, 1);
    EXPECT_EQ(bounded().size(), 5u);
    RvNodeDestroy(source);
    EXPECT_EQ(live_accels, 0);
    EXPECT_TRUE(bounded().empty());
    for (const int i : { 0, 1, 3, 4, 5 }) {
        EXPECT_EQ(instances[i]->local_data, nullptr);
        EXPECT_EQ(instances[i]->source, nullptr);
        EXPECT_EQ(RvNodeGetPtr(instances[i], "node"), nullptr);
    }
    EXPECT_EQ(takeProblem(), "");
    updateAll();
    EXPECT_EQ(takeProblems().size(), 5u) << "each instance says that it refers to nothing";
}

TEST_F(GObject, the_end_of_a_universe_frees_sources_before_and_after_their_instances)
{
    RtNode* const late_instance = named("ginstance", "early instance");
    RtNode* const source = readyBlock("source");
    RvNodeSetPtr(late_instance, "node", source);
    rv::RvNodeInitialize(late_instance);
    rv::RvNodeInitialize(instanceOf(late_instance, "second"));
    rv::RvNodeInitialize(instanceOf(source, "third"));
    RvGObjectBuildAccel(late_instance, 0);
    EXPECT_EQ(live_accels, 1);
}

// ---- Edits between renders ----

TEST_F(GObject, setting_a_parameter_that_triggers_a_rebuild_asks_for_it)
{
    RtNode* const node = readyBlock("b");
    RtGObject* const object = objectOf(node);
    messages().clear();
    RvNodeSetInt(node, "id", 3);
    EXPECT_EQ(object->rebuild, RV_REBUILD_NONE);
    EXPECT_TRUE(messages().empty());
    setMatrices(node, { translation(1, 0, 0) });
    EXPECT_EQ(object->rebuild, RV_REBUILD_TRANSFORM);
    RvNodeSetPnt(node, "min", -2, -2, -2);
    EXPECT_EQ(object->rebuild, RV_REBUILD_GEOMETRY);
    setMatrices(node, { translation(2, 0, 0) });
    EXPECT_EQ(object->rebuild, RV_REBUILD_GEOMETRY) << "new geometry must not be forgotten";
    ASSERT_EQ(messages().size(), 3u);
    EXPECT_EQ(messages()[0].text,
              "[accel] parameter matrix on b was modified - asking for accel rebuild");
    EXPECT_EQ(messages()[1].text,
              "[accel] parameter min on b was modified - asking for accel rebuild");
    EXPECT_TRUE(messages()[0].mask & RV_LOG_DEBUG);
}

TEST_F(GObject, an_edit_asks_the_root_lists_that_are_up_to_date_for_a_refit)
{
    RtNode* const node = readyBlock("b");
    RtNode* const other = readyBlock("not a list");
    RtNode* const lists[] = { shape("list_aggregate", "l0"), shape("list_aggregate", "l1") };
    scene().bounded_root = lists[0];
    scene().unbounded_root = lists[1];
    scene().root = other;
    objectOf(lists[1])->rebuild = RV_REBUILD_GEOMETRY;
    RvNodeSetPnt(node, "min", -2, -2, -2);
    EXPECT_EQ(objectOf(lists[0])->rebuild, RV_REBUILD_TRANSFORM);
    EXPECT_EQ(objectOf(lists[1])->rebuild, RV_REBUILD_GEOMETRY);
    EXPECT_EQ(objectOf(other)->rebuild, RV_REBUILD_NONE);
}

TEST_F(GObject, an_edit_before_the_first_render_asks_for_nothing)
{
    RtNode* const node = block("b");
    messages().clear();
    setMatrices(node, { translation(1, 0, 0) });
    EXPECT_TRUE(messages().empty());
}

TEST_F(GObject, new_geometry_drops_the_structure_and_keeps_the_transform)
{
    RtNode* const node = block("b");
    setMatrices(node, { translation(10, 0, 0) });
    rv::RvNodeInitialize(node);
    RvGObjectBuildAccel(node, 0);
    RvNodeSetPnt(node, "max", 2, 2, 2);
    RvGObjectUpdate(node);
    const RtGObject* const object = objectOf(node);
    EXPECT_EQ(object->rebuild, RV_REBUILD_NONE);
    EXPECT_EQ(object->accel, nullptr);
    EXPECT_EQ(live_accels, 0);
    EXPECT_EQ(describe(object->local_bbox), "-1 -1 -1 -> 2 2 2");
    EXPECT_EQ(describe(object->world_bbox), "9 -1 -1 -> 12 2 2");
}

TEST_F(GObject, a_new_matrix_transforms_again_and_keeps_the_structure)
{
    RtNode* const node = block("b");
    setMatrices(node, { translation(10, 0, 0) });
    rv::RvNodeInitialize(node);
    RvGObjectBuildAccel(node, 0);
    const RtAccel* const accel = objectOf(node)->accel;
    setMatrices(node, { translation(0, 5, 0) });
    RvGObjectUpdate(node);
    EXPECT_EQ(objectOf(node)->accel, accel);
    EXPECT_EQ(objectOf(node)->rebuild, RV_REBUILD_NONE);
    EXPECT_EQ(describe(objectOf(node)->world_bbox), "-1 4 -1 -> 1 6 1");
}

TEST_F(GObject, an_update_does_nothing_without_a_reason_or_without_support)
{
    RtNode* const node = readyBlock("b");
    RvGObjectBuildAccel(node, 0);
    RvGObjectUpdate(node);
    EXPECT_EQ(live_accels, 1);
    objectOf(node)->rebuild = RV_REBUILD_GEOMETRY;
    RvMetaDataSetBool(node->entry->metadata, nullptr, "_supports_rebuild", false);
    RvGObjectUpdate(node);
    EXPECT_EQ(live_accels, 1);
    EXPECT_EQ(objectOf(node)->rebuild, RV_REBUILD_GEOMETRY);
    RvGObjectUpdate(RvNode("block"));
}

TEST_F(GObject, an_edited_shape_may_vanish_and_come_back)
{
    RtNode* const node = readyBlock("b");
    const auto renderWithMax = [&](float x) {
        RvNodeSetPnt(node, "max", x, 1, 1);
        RvGObjectUpdate(node);
        return objectOf(node)->visibility;
    };
    EXPECT_EQ(renderWithMax(-5), 0);
    EXPECT_EQ(takeProblem(), "b: shape has empty bounding box (hiding shape)");
    EXPECT_EQ(renderWithMax(5), RV_RAY_ALL);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(GObject, new_geometry_of_a_source_reaches_its_instances)
{
    RtNode* const source = readyBlock("source");
    RtNode* const instance = instanceOf(source, "instance");
    setMatrices(instance, { translation(10, 0, 0) });
    rv::RvNodeInitialize(instance);
    RtNode* const second = instanceOf(instance, "second");
    rv::RvNodeInitialize(second);
    RvGObjectBuildAccel(second, 0);
    RvNodeSetPnt(source, "max", 3, 3, 3);
    char data[] = "new";
    objectOf(source)->data = data;
    objectOf(source)->nkeys_shape = 7;
    RvGObjectUpdate(source);
    for (const RtNode* node : { instance, second }) {
        EXPECT_EQ(objectOf(node)->data, data);
        EXPECT_EQ(objectOf(node)->nkeys_shape, 7u);
        EXPECT_EQ(objectOf(node)->accel, nullptr);
        EXPECT_EQ(describe(objectOf(node)->local_bbox), "-1 -1 -1 -> 3 3 3");
        EXPECT_EQ(describe(objectOf(node)->world_bbox), "9 -1 -1 -> 13 3 3");
    }
    RvGObjectBuildAccel(instance, 0);
    EXPECT_EQ(objectOf(instance)->accel, objectOf(source)->accel);
}

// ---- Structures ----

TEST_F(GObject, a_structure_is_built_once_and_shared_along_the_chain_of_sources)
{
    RtNode* const source = readyBlock("source");
    RtNode* const first = instanceOf(source, "first");
    RtNode* const second = instanceOf(first, "second");
    rv::RvNodeInitialize(second);
    RvGObjectBuildAccel(second, 0);
    RvGObjectBuildAccel(source, 0);
    RvGObjectBuildAccel(first, 0);
    EXPECT_EQ(built_accels, 1);
    ASSERT_TRUE(objectOf(source)->accel);
    EXPECT_EQ(objectOf(first)->accel, objectOf(source)->accel);
    EXPECT_EQ(objectOf(second)->accel, objectOf(source)->accel);
    RvGObjectBuildAccel(RvNode("block"), 0);
}

TEST_F(GObject, sharing_a_mesh_counts_its_memory_once_for_each_instance_and_thread)
{
    RtPolyMesh mesh = {};
    mesh.bytes[RV_MESH_VERTICES] = 100;
    mesh.bytes[RV_MESH_USER_DATA] = 23;
    block_kind = RV_KIND_POLYMESH;
    RtNode* const source = readyBlock("source");
    objectOf(source)->data = &mesh;
    RtNode* const instance = instanceOf(source, "instance");
    rv::RvNodeInitialize(instance);
    RvGObjectBuildAccel(instance, 5);
    RvGObjectBuildAccel(instance, 5);
    EXPECT_EQ(rv::the_frame->stats[5]->instance_overhead_bytes, 123);
    objectOf(source)->data = nullptr;
}

TEST_F(GObject, an_object_reached_while_it_is_built_is_not_built_again)
{
    RtNode* const node = readyBlock("b");
    while_building = [](RtGObject* object) {
        RvGObjectBuildAccel(object->node, 0);
        EXPECT_EQ(object->accel, nullptr);
    };
    RvGObjectBuildAccel(node, 0);
    EXPECT_EQ(built_accels, 1);
    EXPECT_TRUE(objectOf(node)->accel);
}

TEST_F(GObject, a_build_without_memory_is_tried_again)
{
    RtNode* const node = readyBlock("b");
    while_building = [](RtGObject*) { throw std::bad_alloc(); };
    RvGObjectBuildAccel(node, 0);
    EXPECT_EQ(objectOf(node)->accel, nullptr);
    while_building = {};
    RvGObjectBuildAccel(node, 0);
    EXPECT_TRUE(objectOf(node)->accel);
}

TEST_F(GObject, concurrent_rays_build_each_structure_once)
{
    constexpr int thread_count = 16, object_count = 40;
    std::vector<RtNode*> nodes;
    for (int i = 0; i < object_count; ++i) {
        RtNode* const source = readyBlock(formatted("source %d", i).c_str());
        RtNode* const first = instanceOf(source, formatted("first %d", i).c_str());
        RtNode* const second = instanceOf(first, formatted("second %d", i).c_str());
        rv::RvNodeInitialize(second);
        nodes.insert(nodes.end(), { source, first, second });
    }
    std::atomic<int> seen_incomplete = 0;
    onThreads(thread_count, [&](int thread) {
        rv::stats_slot = thread;
        for (size_t i = 0; i < nodes.size(); ++i) {
            RtNode* const node = nodes[(i + size_t(thread) * 7) % nodes.size()];
            if (!objectOf(node)->accel)
                RvGObjectBuildAccel(node, thread);
            const RtAccel* const accel = objectOf(node)->accel;
            if (!accel || strcmp(accel->name(), "simple") ||
                accel != objectOf(rv::geometryNode(node))->accel)
                ++seen_incomplete;
        }
    });
    EXPECT_EQ(seen_incomplete, 0);
    EXPECT_EQ(built_accels, object_count);
    EXPECT_EQ(live_accels, object_count);
}

TEST_F(GObject, concurrent_threads_make_and_destroy_objects_of_one_scene)
{
    constexpr int thread_count = 16;
    RtNode* const source = readyBlock("source");
    onThreads(thread_count, [&](int thread) {
        rv::stats_slot = thread;
        for (int i = 0; i < 25; ++i) {
            RtNode* const node = RvNode("block");
            rv::RvNodeInitialize(node);
            RtNode* const instance = RvNode("ginstance");
            RvNodeSetPtr(instance, "node", source);
            rv::RvNodeInitialize(instance);
            if (i % 2) {
                RvNodeDestroy(node);
                RvNodeDestroy(instance);
            }
        }
    });
    EXPECT_EQ(bounded().size(), 1u + thread_count * 26u);
    EXPECT_EQ(takeProblem(), "");
}

// ---- Queries and caches ----

TEST_F(GObject, flushing_destroys_the_cache_of_curves_or_of_everything_else)
{
    static int live = 0;
    struct Cache : RtObjectCache {
        Cache() { ++live; }
        ~Cache() override { --live; }
    };
    static const struct {
        RtObjectKind kind;
        int flags;
        bool flushed;
    } cases[] = {
        { RV_KIND_BOX, 0x2, true },    { RV_KIND_BOX, 0x4, false }, { RV_KIND_CURVES, 0x2, false },
        { RV_KIND_CURVES, 0x4, true }, { RV_KIND_BOX, 0x6, true },  { RV_KIND_CURVES, 0x6, true },
        { RV_KIND_BOX, 0x19, false },
    };
    for (const auto& c : cases) {
        block_kind = c.kind;
        RtNode* const node = RvNode("block");
        rv::RvNodeInitialize(node);
        objectOf(node)->extra = new Cache;
        RvUniverseCacheFlush(c.flags);
        EXPECT_EQ(objectOf(node)->extra == nullptr, c.flushed) << c.kind << " " << c.flags;
        RvNodeDestroy(node);
        EXPECT_EQ(live, 0);
    }
}

TEST_F(GObject, a_flushed_cache_that_is_read_goes_with_its_last_reader)
{
    static int live = 0;
    struct Cache : RtObjectCache {
        Cache() { ++live; }
        ~Cache() override { --live; }
    };
    RtNode* const node = RvNode("block");
    rv::RvNodeInitialize(node);
    objectOf(node)->extra = new Cache;
    {
        const rv::CacheReader reader(3);
        RvUniverseCacheFlush(0x2);
        EXPECT_EQ(objectOf(node)->extra, nullptr);
        EXPECT_EQ(live, 1);
    }
    EXPECT_EQ(live, 0);
}

TEST_F(GObject, varying_data_has_one_element_for_each_vertex_of_the_innermost_shape)
{
    block_nvarying = 12;
    RtNode* const source = readyBlock("source");
    RtNode* const instance = instanceOf(source, "instance");
    rv::RvNodeInitialize(instance);
    EXPECT_EQ(rv::shapeVertexCount(source), 12u);
    EXPECT_EQ(rv::shapeVertexCount(instance), 12u);
    EXPECT_EQ(rv::shapeVertexCount(RvNode("block")), 0u);
}

TEST_F(GObject, every_kind_has_its_row_of_the_statistics)
{
    static const struct {
        RtObjectKind kind;
        RtGeometryRow row;
    } cases[] = {
        { RV_KIND_PLANE, RV_GEOMETRY_SIMPLE },     { RV_KIND_DISC, RV_GEOMETRY_SIMPLE },
        { RV_KIND_SPHERE, RV_GEOMETRY_SIMPLE },    { RV_KIND_CYLINDER, RV_GEOMETRY_SIMPLE },
        { RV_KIND_CONE, RV_GEOMETRY_SIMPLE },      { RV_KIND_POLYMESH, RV_GEOMETRY_POLYMESHES },
        { RV_KIND_PROCEDURAL, RV_GEOMETRY_PROCS }, { RV_KIND_BOX, RV_GEOMETRY_SIMPLE },
        { RV_KIND_NURBS, RV_GEOMETRY_NURBS },      { RV_KIND_CURVES, RV_GEOMETRY_CURVES },
        { RV_KIND_POINTS, RV_GEOMETRY_POINTS },    { RV_KIND_IMPLICIT, RV_GEOMETRY_SIMPLE },
        { RV_KIND_LIST, RV_GEOMETRY_LISTS },
    };
    for (const auto& c : cases)
        EXPECT_EQ(rv::geometryRow(c.kind), c.row) << c.kind;
}

// ---- User bounds ----

RtBBox boxOf(const nlohmann::json& numbers)
{
    const std::vector<float> f = goldenFloats(numbers);
    return { { f[0], f[1], f[2] }, { f[3], f[4], f[5] } };
}

TEST_F(GObject, user_bounds_are_judged_as_the_golden_vectors_say)
{
    for (const nlohmann::json& v : goldenVectors("tracing", "RvCheckUserBounds")) {
        const nlohmann::json& in = v.at("in");
        RvNodeSetFlt(RvUniverseGetOptions(), "bad_bounds_slack",
                     goldenFloat(in.at("bad_bounds_slack")));
        const RtBBox given = boxOf(in.at("given")), generated = boxOf(in.at("generated"));
        RvCheckUserBounds(in.at("prefix").get<std::string>().c_str(),
                          in.at("name").get<std::string>().c_str(), &given, &generated);
        const std::string problem = takeProblem();
        const std::string result = problem.find("incorrect user bounds!") != std::string::npos
                                       ? "incorrect"
                                   : problem.find("poor user bounds!") != std::string::npos ? "poor"
                                   : problem.empty()                                        ? "none"
                                                     : problem;
        expectGolden(v, "result", result);
        if (v.at("out").at("message").is_string())
            expectGolden(v, "message", problem);
    }
}

TEST_F(GObject, poor_bounds_are_a_debug_warning_and_counted_for_two_prefixes)
{
    const RtBBox given = { { 0, 0, 0 }, { 10, 10, 10 } }, generated = RV_BBOX_UNIT;
    for (const char* prefix : { "disp", "proc", "proc", "other" }) {
        RvCheckUserBounds(prefix, "n", &given, &generated);
        ASSERT_EQ(messages().size(), 1u);
        EXPECT_EQ(messages()[0].mask, RV_LOG_DEBUG);
        EXPECT_EQ(messages()[0].severity, 1);
        EXPECT_EQ(takeProblem(),
                  formatted("[%s] n: poor user bounds! hit probability = 0.010", prefix));
    }
    EXPECT_EQ(stats().poor_bounds_displaced, 1u);
    EXPECT_EQ(stats().poor_bounds_procedural, 2u);
}

TEST_F(GObject, incorrect_bounds_are_shown_as_given_not_as_enlarged)
{
    const RtBBox given = RV_BBOX_UNIT, generated = { { -3, 0, 0 }, { 1, 1, 1 } };
    RvCheckUserBounds("disp", "n", &given, &generated);
    EXPECT_EQ(takeProblem(), "[disp] n: incorrect user bounds! given: (0, 0, 0) to (1, 1, 1), "
                             "generated: (-3, 0, 0) to (1, 1, 1)");
    RvCheckUserBounds("disp", "n", nullptr, &generated);
    RvCheckUserBounds("disp", "n", &given, nullptr);
    EXPECT_EQ(takeProblem(), "");
    EXPECT_EQ(stats().poor_bounds_displaced, 0u);
}

// ---- The exhausted heap ----

TEST_F(GObject, objects_and_clones_survive_a_heap_that_fails_at_any_request)
{
    const auto texts = node_tools::problemsOfFailingHeap(
        [&] {
            RtNode* const node = RvNode("block");
            if (!node)
                return;
            setMatrices(node, { translation(1, 0, 0), translation(2, 0, 0) });
            RvNodeSetStr(node, "trace_sets", "red");
            rv::RvNodeInitialize(node);
            if (node->local_data) {
                RtGObject* const clone = RvGObjectClone(objectOf(node));
                if (clone)
                    rv::destroyObject(clone);
                objectOf(node)->rebuild = RV_REBUILD_GEOMETRY;
                RvGObjectUpdate(node);
            }
            RvNodeDestroy(node);
        },
        [] { return takeProblems(); });
    const char* const module = "core.src.objects.gobject";
    for (const char* location : { "RvGObjectInitialize", "RvGObjectClone", "RvGObjectTransform",
                                  "RvGObjectPrepareTracesets" })
        EXPECT_TRUE(node_tools::anyReportsFailure(texts, module, location)) << location;
    EXPECT_EQ(bounded().size(), 0u);
}

} // namespace
