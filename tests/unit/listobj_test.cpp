#include "objects/listobj.h"

#include "golden.h"
#include "rv_rays.h"
#include "shape_fixture.h"

namespace {

using namespace shape_fixture;
using node_tools::formatted;
using node_tools::named;
using rv::objectOf;
using rv::shapeParams;

class ListObj : public Shapes {
protected:
    // An initialised list of these nodes.
    static RtNode* listOf(const char* name, const std::vector<RtNode*>& nodes)
    {
        RtList* const members = RvList(nullptr);
        for (RtNode* node : nodes)
            RvListAdd(members, node);
        RtNode* const list = named("list_aggregate", name);
        RvNodeSetPtr(list, "obj_list", members);
        rv::RvNodeInitialize(list);
        EXPECT_EQ(RvNodeGetPtr(list, "obj_list"), nullptr);
        RvListDestroy(members);
        return list;
    }
    static RtAggrList& recordOf(const RtNode* list)
    {
        return *static_cast<RtAggrList*>(objectOf(list)->data);
    }
    static std::vector<RtNode*> childrenOf(const RtNode* list)
    {
        std::vector<RtNode*> nodes;
        for (uint32_t i = 0; i < recordOf(list).count; ++i)
            nodes.push_back(recordOf(list).children[i]->node);
        return nodes;
    }
    static std::string boundsOf(const RtNode* node) { return describe(objectOf(node)->world_bbox); }
    static RtBBox cube(float x) { return { { x, 0, 0 }, { x + 1, 1, 1 } }; }

    // A block that moves along x by `step` from key to key.
    static RtNode* moving(const char* name, int tkeys, int dkeys, float step = 2)
    {
        RtNode* const node = blockAt(name, RV_BBOX_UNIT);
        if (tkeys > 1) {
            std::vector<RtMatrix> keys;
            for (int k = 0; k < tkeys; ++k)
                keys.push_back(translation(step * float(k), 0, 0));
            setMatrices(node, keys);
        }
        if (dkeys > 1)
            for (const char* corner : { "min", "max" }) {
                RtArray* const points = RvArrayAllocate(1, unsigned(dkeys), RV_TYPE_POINT);
                for (int k = 0; k < dkeys; ++k) {
                    const float at = *corner == 'm' && corner[1] == 'i' ? 0.f : 1.f;
                    RvArraySetPnt(points, unsigned(k), (RtPoint{ at + step * float(k), at, at }));
                }
                RvNodeSetArray(node, corner, points);
            }
        return node;
    }
    // Messages about the optimisation since the last call.
    static std::string takeMotionMessage()
    {
        std::string all;
        for (const LoggedMessage& m : messages())
            if (m.text.rfind("[obj]", 0) == 0)
                all += m.text;
        messages().clear();
        return all;
    }
};

// ---- Children ----

TEST_F(ListObj, holds_the_objects_of_its_nodes_and_is_as_large_as_all_of_them)
{
    RtNode* const a = blockAt("a", cube(0));
    RtNode* const b = blockAt("b", cube(5));
    setMatrices(b, { translation(10, 0, 0) });
    RtNode* const list = listOf("list", { a, b });
    EXPECT_EQ(childrenOf(list), (std::vector<RtNode*>{ a, b }));
    EXPECT_EQ(boundsOf(list), "0 0 0 -> 16 1 1");
    EXPECT_EQ(objectOf(list)->kind, RV_KIND_LIST);
    EXPECT_EQ(objectOf(list)->nkeys_shape, 1u);
    EXPECT_EQ(recordOf(list).nkeys, 1u);
    EXPECT_EQ(takeProblem(), "");
    EXPECT_EQ(nodesOf(scene().bounded_objects), (std::vector<RtNode*>{ a, b }))
        << "a list does not join the scene by itself";
}

TEST_F(ListObj, nothing_that_is_no_shape_gets_in)
{
    RtNode* const a = blockAt("a", cube(0));
    RtNode* const shader = named("lambert", "paint");
    RtNode* const failed = named("ginstance", "failed");
    RtNode* const list = listOf("list", { nullptr, shader, a, nullptr, failed });
    EXPECT_EQ(childrenOf(list), std::vector<RtNode*>{ a });
    EXPECT_EQ(takeProblem(), "list: ignoring paint in the object list (not a shape) | failed: "
                             "ginstance needs to reference an object");
}

TEST_F(ListObj, an_empty_list_is_an_empty_object)
{
    for (RtNode* list : { listOf("of nothing", {}), shape("list_aggregate", "without a list") }) {
        ASSERT_TRUE(list->local_data);
        EXPECT_TRUE(rv::isEmpty(objectOf(list)->world_bbox));
        EXPECT_EQ(recordOf(list).count, 0u);
    }
}

TEST_F(ListObj, a_list_that_holds_itself_ends)
{
    RtNode* const inner = named("list_aggregate", "inner");
    RtNode* const outer = named("list_aggregate", "outer");
    RtNode* const a = blockAt("a", cube(0));
    RtList* const of_inner = RvList(nullptr);
    RtList* const of_outer = RvList(nullptr);
    for (RtNode* node : { outer, inner, a })
        RvListAdd(of_inner, node);
    RvListAdd(of_outer, inner);
    RvNodeSetPtr(inner, "obj_list", of_inner);
    RvNodeSetPtr(outer, "obj_list", of_outer);
    rv::RvNodeInitialize(outer);
    EXPECT_EQ(childrenOf(outer), std::vector<RtNode*>{ inner });
    EXPECT_EQ(childrenOf(inner), std::vector<RtNode*>{ a });
    RvListDestroy(of_inner);
    RvListDestroy(of_outer);
}

TEST_F(ListObj, an_instance_of_the_list_it_is_in_has_no_object)
{
    RtNode* const list = named("list_aggregate", "list");
    RtNode* const instance = instanceOf(list, "i");
    RtNode* const a = blockAt("a", cube(0));
    RtList* const members = RvList(nullptr);
    for (RtNode* node : { a, instance })
        RvListAdd(members, node);
    RvNodeSetPtr(list, "obj_list", members);
    rv::RvNodeInitialize(list);
    RvListDestroy(members);
    EXPECT_EQ(takeProblem(), "i: trying to clone a NULL object");
    EXPECT_EQ(childrenOf(list), std::vector<RtNode*>{ a });
}

TEST_F(ListObj, a_thousand_lists_inside_each_other_are_one_object)
{
    std::vector<RtNode*> nodes = { blockAt("a", cube(0)) };
    std::vector<RtList*> members;
    for (int i = 0; i < 1000; ++i) {
        members.push_back(RvList(nullptr));
        RvListAdd(members.back(), nodes.back());
        nodes.push_back(named("list_aggregate", formatted("list %d", i).c_str()));
        RvNodeSetPtr(nodes.back(), "obj_list", members.back());
    }
    rv::RvNodeInitialize(nodes.back());
    for (RtList* list : members)
        RvListDestroy(list);
    EXPECT_EQ(boundsOf(nodes.back()), "0 0 0 -> 1 1 1");
    RtHit hit;
    RtHitList hits = { .capacity = 1,
                       .count = 0,
                       .found = false,
                       .pass = RtOpaquePass::all,
                       .non_opaque_skipped = false,
                       .maxdist = 100,
                       .matrix = nullptr,
                       .instance = nullptr,
                       .flags = nullptr,
                       .hits = &hit,
                       .depth = 0,
                       .inserted = 0 };
    const RtTraversal traversal = { .ray_type = RV_RAY_CAMERA,
                                    .thread = 0,
                                    .any_hit = false,
                                    .any_order = false,
                                    .inclusive_traceset = false,
                                    .traceset = nullptr,
                                    .traceset_hash = 0,
                                    .light = nullptr,
                                    .from_object = nullptr,
                                    .from_instance = nullptr,
                                    .from_prim = rv_no_primitive };
    const RtObjectRay ray = { { 0.5f, 0.5f, -1 }, { 0, 0, 1 }, 0, 0, rv_no_primitive };
    RvIntersectObject(objectOf(nodes.back()), traversal, ray, hits);
    ASSERT_EQ(hits.count, 1u);
    EXPECT_EQ(hit.object->node, nodes.front());
    RvNodeDestroy(nodes[500]);
    updateAll();
    EXPECT_TRUE(rv::isEmpty(objectOf(nodes[501])->world_bbox));
    EXPECT_EQ(recordOf(nodes[501]).count, 0u);
}

TEST_F(ListObj, lists_and_their_children_are_counted)
{
    RtNode* const a = blockAt("a", cube(0));
    RtNode* const b = blockAt("b", cube(1));
    listOf("one", { a });
    listOf("three", { a, b, a });
    const RtGeometryCount& lists = stats().geometry[RV_GEOMETRY_LISTS];
    EXPECT_EQ(lists.objects, 2u);
    EXPECT_EQ(lists.initial_bytes, int64_t(4 * sizeof(void*)));
    EXPECT_EQ(stats().list_children.total, 4u);
    EXPECT_EQ(stats().list_children.least, 1u);
    EXPECT_EQ(stats().list_children.most, 3u);
}

TEST_F(ListObj, trace_sets_are_never_kept_on_lists)
{
    RtNode* const list = named("list_aggregate", "list");
    RvNodeSetStr(list, "trace_sets", "red");
    rv::RvNodeInitialize(list);
    EXPECT_EQ(takeProblem(), "[obj] Ignoring tracesets on object list \"list\" | list: shape has "
                             "empty bounding box (hiding shape)");
}

TEST_F(ListObj, children_can_be_put_into_another_order)
{
    RtNode* const nodes[] = { blockAt("a", cube(0)), blockAt("b", cube(1)), blockAt("c", cube(2)) };
    RtNode* const list = listOf("list", { nodes[0], nodes[1], nodes[2] });
    const uint32_t order[] = { 2, 0, 1 };
    recordOf(list).permutePrimitives(order);
    EXPECT_EQ(childrenOf(list), (std::vector<RtNode*>{ nodes[2], nodes[0], nodes[1] }));
}

TEST_F(ListObj, only_bounds_and_structure_are_methods_of_lists)
{
    const RtShapeMethods& methods = rv::shapeMethods(RvNode("list_aggregate"));
    EXPECT_EQ(methods.ShapeLocalGeometry, rv::unreachable::ShapeLocalGeometry);
    EXPECT_NE(methods.ShapeBBox, rv::unreachable::ShapeBBox);
    EXPECT_EQ(methods.ShapeTextureCoordinates, rv::unreachable::ShapeTextureCoordinates);
    EXPECT_EQ(methods.ShapePrepareUserData, rv::unreachable::ShapePrepareUserData);
    EXPECT_NE(methods.ShapePrepareIntersection, rv::unreachable::ShapePrepareIntersection);
}

// ---- Motion ----

TEST_F(ListObj, motion_is_scanned_as_the_golden_vectors_say)
{
    for (const nlohmann::json& v : goldenVectors("primitives", "list_motion_scan")) {
        std::vector<RtNode*> nodes;
        for (const nlohmann::json& child : v.at("in").at("children"))
            nodes.push_back(moving(formatted("%s %zu", goldenId(v).c_str(), nodes.size()).c_str(),
                                   child.value("tkeys", 1), child.value("dkeys", 1)));
        messages().clear();
        RtNode* const list = listOf(goldenId(v).c_str(), nodes);
        expectGolden(v, "keys", recordOf(list).nkeys);
        expectGolden(v, "message", takeMotionMessage());
    }
}

TEST_F(ListObj, motion_that_does_not_fit_is_told_apart)
{
    static const struct {
        int tkeys, dkeys;
        std::vector<float> transform_samples, deform_samples;
        const char* message;
    } cases[] = {
        { 2,
          1,
          { 0, 0.5f, 1 },
          { 0, 1 },
          "[obj] unable to optimize object list - found object with 3 transformation time "
          "samples" },
        { 2,
          1,
          { 0, 0.5f },
          { 0, 1 },
          "[obj] unable to optimize object list - found object with 2 non-default transformation "
          "time samples: [0.00, 0.50]" },
        { 2,
          1,
          { -1, 1 },
          { 0, 1 },
          "[obj] unable to optimize object list - found object with 2 non-default transformation "
          "time samples: [-1.00, 1.00]" },
        { 3,
          1,
          { 0, 1 },
          { 0, 1 },
          "[obj] unable to optimize object list - found an object with 3 matrices but the list has "
          "another object with 2 keys" },
        { 1,
          2,
          { 0, 1 },
          { 0, 0.25f, 0.5f, 1 },
          "[obj] unable to optimize object list - found object with deformation 4 time samples" },
        { 1,
          2,
          { 0, 1 },
          { 0.25f, 1 },
          "[obj] unable to optimize object list - found object with 2 non-default deformation time "
          "samples: [0.25, 1.00]" },
        { 1,
          4,
          { 0, 1 },
          { 0, 1 },
          "[obj] unable to optimize object list - found an object with 4 deformation keys but the "
          "list has another object with 2 keys" },
    };
    RtNode* const fits = moving("fits", 2, 1);
    for (const auto& c : cases) {
        RtNode* const node = moving("odd", c.tkeys, c.dkeys);
        RvNodeSetArray(node, "transform_time_samples", floats(c.transform_samples));
        RvNodeSetArray(node, "deform_time_samples", floats(c.deform_samples));
        messages().clear();
        RtNode* const list = listOf("list", { fits, node, moving("unseen", 5, 1) });
        EXPECT_EQ(recordOf(list).nkeys, 1u);
        const auto warning = std::find_if(messages().begin(), messages().end(),
                                          [](const auto& m) { return m.severity == 1; });
        ASSERT_NE(warning, messages().end());
        EXPECT_EQ(warning->mask, RV_LOG_DEBUG);
        EXPECT_EQ(takeMotionMessage(), c.message);
        for (const char* name : { "list", "odd", "unseen" })
            RvNodeDestroy(RvNodeLookUpByName(name));
    }
}

TEST_F(ListObj, a_deforming_instance_of_another_procedurals_shape_stops_the_optimisation)
{
    RtNode* const procedural = RvNode("procedural");
    RtNode* const source = moving("source", 1, 2);
    source->creator = procedural;
    RtNode* const foreign = instanceOf(source, "foreign");
    RtNode* const list = listOf("list", { foreign });
    EXPECT_EQ(takeMotionMessage(), "[obj] unable to optimize object list - found an instance which "
                                   "refers to an object in a different procedural");
    EXPECT_EQ(recordOf(list).nkeys, 1u);
    RtNode* const native = instanceOf(source, "native");
    native->creator = procedural;
    RtNode* const other = listOf("other", { native });
    EXPECT_EQ(recordOf(other).nkeys, 2u);
}

TEST_F(ListObj, children_of_an_optimised_list_are_bounded_key_by_key)
{
    RtNode* const transforming = moving("transforming", 3, 1);
    RtNode* const deforming = moving("deforming", 1, 3, 10);
    setMatrices(deforming, { translation(0, 5, 0) });
    RtNode* const still = blockAt("still", cube(-7));
    RtNode* const instance = instanceOf(deforming, "instance");
    setMatrices(instance, { translation(0, 0, 3) });
    RtNode* const list = listOf("list", { transforming, deforming, still, instance });
    RtAggrList& record = recordOf(list);
    ASSERT_EQ(record.nkeys, 3u);
    static const char* const expected[4][3] = {
        { "0 0 0 -> 1 1 1", "2 0 0 -> 3 1 1", "4 0 0 -> 5 1 1" },
        { "0 5 0 -> 1 6 1", "10 5 0 -> 11 6 1", "20 5 0 -> 21 6 1" },
        { "-7 0 0 -> -6 1 1", "-7 0 0 -> -6 1 1", "-7 0 0 -> -6 1 1" },
        { "0 5 3 -> 1 6 4", "10 5 3 -> 11 6 4", "20 5 3 -> 21 6 4" },
    };
    for (uint32_t child = 0; child < 4; ++child)
        for (uint32_t key = 0; key < 3; ++key)
            EXPECT_EQ(describe(rv::childBounds(record, child, key)), expected[child][key])
                << child << " " << key;
    record.nkeys = 1;
    EXPECT_EQ(describe(rv::childBounds(record, 0, 0)), "0 0 0 -> 5 1 1");
    EXPECT_EQ(describe(rv::childBounds(record, 1, 0)), "0 5 0 -> 21 6 1");
    EXPECT_EQ(boundsOf(list), "-7 0 0 -> 21 6 4");
}

TEST_F(ListObj, interpolated_boxes_bound_the_moving_child)
{
    RtMatrix turned;
    RvM4RotationZ(&turned, 60);
    RtMatrix moved = translation(3, 1, 0);
    RvM4Mult(&moved, &turned, &moved);
    RtNode* const node = blockAt("b", { { -1, -2, -3 }, { 2, 1, 4 } });
    setMatrices(node, { RV_M4_IDENTITY, moved });
    RtNode* const list = listOf("list", { node });
    const RtBBox first = rv::childBounds(recordOf(list), 0, 0);
    const RtBBox last = rv::childBounds(recordOf(list), 0, 1);
    for (float f = 0; f < 1; f += 0.0625f) {
        RtMatrix storage;
        const RtBBox exact = rv::transformedBox(objectOf(node)->local_bbox,
                                                rv::objectToWorldAt(objectOf(node), f, &storage));
        const auto between = [f](float a, float b) { return (1 - f) * a + f * b; };
        EXPECT_LE(between(first.min.x, last.min.x), exact.min.x + 1e-5f);
        EXPECT_LE(between(first.min.y, last.min.y), exact.min.y + 1e-5f);
        EXPECT_GE(between(first.max.x, last.max.x), exact.max.x - 1e-5f);
        EXPECT_GE(between(first.max.y, last.max.y), exact.max.y - 1e-5f);
    }
}

TEST_F(ListObj, a_child_that_lost_keys_is_still_bounded_at_all_keys_of_the_list)
{
    RtNode* const node = moving("b", 3, 1);
    RtNode* const list = listOf("list", { node, moving("other", 3, 1) });
    ASSERT_EQ(recordOf(list).nkeys, 3u);
    objectOf(node)->nkeys = 2;
    EXPECT_EQ(describe(rv::childBounds(recordOf(list), 0, 2)), "2 0 0 -> 3 1 1");
    objectOf(node)->nkeys = 3;
    setMatrices(node, { translation(1, 0, 0) });
    updateAll();
    EXPECT_EQ(recordOf(list).nkeys, 3u);
    EXPECT_EQ(describe(rv::childBounds(recordOf(list), 0, 2)), boundsOf(node));
}

// ---- Edits between renders ----

TEST_F(ListObj, an_update_refits_the_list_over_edited_children)
{
    RtNode* const a = blockAt("a", cube(0));
    RtNode* const b = blockAt("b", cube(5));
    RtNode* const list = listOf("list", { a, b });
    scene().root = scene().bounded_root = list;
    RvGObjectBuildAccel(list, 0);
    RvGObjectBuildAccel(a, 0);
    RvGObjectBuildAccel(b, 0);
    RvNodeSetPnt(a, "max", 3, 3, 3);
    setMatrices(b, { translation(0, 0, 10) });
    EXPECT_EQ(objectOf(list)->rebuild, RV_REBUILD_TRANSFORM);
    list->entry->methods->Update(list, list->params);
    EXPECT_EQ(boundsOf(list), "0 0 0 -> 6 3 11");
    EXPECT_EQ(objectOf(list)->accel, nullptr);
    EXPECT_EQ(objectOf(a)->accel, nullptr);
    EXPECT_TRUE(objectOf(b)->accel);
    for (const RtNode* node : { a, b, list })
        EXPECT_EQ(objectOf(node)->rebuild, RV_REBUILD_NONE);
    EXPECT_EQ(describe(RvUniverseGetSceneBounds()), "0 0 0 -> 6 3 11");
}

TEST_F(ListObj, an_edited_child_that_was_updated_first_refits_the_list)
{
    RtNode* const inner = listOf("inner", { blockAt("a", cube(0)), blockAt("b", cube(5)) });
    RtNode* const outer = listOf("outer", { inner, blockAt("c", cube(2)) });
    RvGObjectBuildAccel(inner, 0);
    RvGObjectBuildAccel(outer, 0);
    RvNodeSetPnt(RvNodeLookUpByName("a"), "max", 3, 3, 3);
    setMatrices(RvNodeLookUpByName("b"), { translation(0, 0, 10) });
    updateAll(); // in order of creation: the blocks, then the lists
    for (const RtNode* list : { inner, outer }) {
        EXPECT_EQ(boundsOf(list), "0 0 0 -> 6 3 11") << RvNodeGetName(list);
        EXPECT_EQ(objectOf(list)->accel, nullptr) << RvNodeGetName(list);
        RvGObjectBuildAccel(const_cast<RtNode*>(list), 0);
    }
    updateAll();
    EXPECT_TRUE(objectOf(inner)->accel && objectOf(outer)->accel) << "nothing was edited since";
}

TEST_F(ListObj, an_edited_matrix_of_an_instance_refits_the_list)
{
    RtNode* const a = blockAt("a", cube(0));
    RtNode* const instance = instanceOf(a, "i");
    RtNode* const list = listOf("list", { instance });
    RvGObjectBuildAccel(list, 0);
    setMatrices(instance, { translation(10, 0, 0) });
    updateAll();
    EXPECT_EQ(boundsOf(list), "10 0 0 -> 11 1 1");
    EXPECT_EQ(objectOf(list)->accel, nullptr);
}

TEST_F(ListObj, children_are_updated_by_their_own_methods_when_the_list_comes_first)
{
    RtNode* const list = named("list_aggregate", "list");
    RtNode* const disc = named("disc", "disc");
    RtNode* const source = blockAt("source", cube(0));
    setMatrices(source, { scaling(2, 2, 2) });
    RtNode* const instance = instanceOf(source, "i");
    RtList* const members = RvList(nullptr);
    RvListAdd(members, disc);
    RvListAdd(members, instance);
    RvNodeSetPtr(list, "obj_list", members);
    rv::RvNodeInitialize(list);
    RvListDestroy(members);
    RvNodeSetPnt(disc, "center", 3, 0, 0);
    setMatrices(instance, { translation(10, 0, 0) });
    list->entry->methods->Update(list, list->params);
    EXPECT_EQ(boundsOf(disc), "2.5 -0.5 0 -> 3.5 0.5 0");
    EXPECT_EQ(boundsOf(instance), "10 0 0 -> 12 2 2") << "on top of the transform of its shape";
    EXPECT_EQ(boundsOf(list), "2.5 -0.5 0 -> 12 2 2");
}

TEST_F(ListObj, an_update_without_edits_keeps_the_structure)
{
    RtNode* const list = listOf("list", { blockAt("a", cube(0)) });
    RvGObjectBuildAccel(list, 0);
    const RtAccel* const accel = objectOf(list)->accel;
    messages().clear();
    updateAll();
    EXPECT_EQ(objectOf(list)->accel, accel);
    EXPECT_TRUE(messages().empty());
}

TEST_F(ListObj, an_edit_may_change_the_motion_of_the_list)
{
    RtNode* const a = moving("a", 2, 1);
    RtNode* const list = listOf("list", { a, blockAt("b", cube(5)) });
    scene().bounded_root = list;
    ASSERT_EQ(recordOf(list).nkeys, 2u);
    setMatrices(a, { translation(1, 0, 0) });
    updateAll();
    EXPECT_EQ(recordOf(list).nkeys, 1u);
    EXPECT_EQ(boundsOf(list), "1 0 0 -> 6 1 1");
}

TEST_F(ListObj, destroyed_children_leave_at_the_next_update)
{
    RtNode* const a = blockAt("a", cube(0));
    RtNode* const b = blockAt("b", cube(5));
    RtNode* const of_b = instanceOf(b, "of b");
    setMatrices(of_b, { translation(20, 0, 0) });
    RtNode* const list = listOf("list", { a, b, of_b, a });
    RvGObjectBuildAccel(list, 0);
    RvNodeDestroy(b); // and with it its instance
    const RtAggrList& record = recordOf(list);
    ASSERT_EQ(record.count, 4u);
    uint32_t lost_count = 0; // the structure has chosen the order
    for (uint32_t i = 0; i < record.count; ++i) {
        if (record.children[i]->node)
            continue;
        ++lost_count;
        EXPECT_EQ(record.children[i]->visibility, 0);
        EXPECT_TRUE(rv::isEmpty(rv::childBounds(record, i, 0)));
    }
    EXPECT_EQ(lost_count, 2u);
    EXPECT_EQ(describe(rv::listBounds(record)), "0 0 0 -> 1 1 1");
    list->entry->methods->Update(list, list->params);
    EXPECT_EQ(childrenOf(list), (std::vector<RtNode*>{ a, a }));
    EXPECT_EQ(boundsOf(list), "0 0 0 -> 1 1 1");
    EXPECT_EQ(objectOf(list)->accel, nullptr);
    RvNodeDestroy(a);
    list->entry->methods->Update(list, list->params);
    EXPECT_EQ(recordOf(list).count, 0u);
}

TEST_F(ListObj, children_destroyed_before_the_first_ray_are_not_built_into_the_structure)
{
    RtNode* const a = blockAt("a", cube(0));
    RtNode* const b = blockAt("b", cube(5));
    RtNode* const list = listOf("list", { a, b });
    RvNodeDestroy(a);
    RvGObjectBuildAccel(list, 0);
    EXPECT_EQ(childrenOf(list), std::vector<RtNode*>{ b });
}

TEST_F(ListObj, a_list_lets_go_of_its_children_whichever_goes_first)
{
    RtNode* const a = blockAt("a", cube(0));
    RtNode* const list = listOf("list", { a, a });
    RtNode* const second = listOf("second", { a });
    EXPECT_EQ(objectOf(a)->memberships, 3u);
    RvNodeDestroy(list);
    EXPECT_EQ(objectOf(a)->memberships, 1u);
    const int64_t before = stats().node_overhead_bytes;
    const int64_t of_node = rv::nodeOverhead(a);
    RvNodeDestroy(a);
    EXPECT_EQ(stats().node_overhead_bytes, before - of_node) << "the list still holds the record";
    const int64_t of_list = rv::nodeOverhead(second);
    RvNodeDestroy(second);
    EXPECT_EQ(stats().node_overhead_bytes,
              before - of_node - of_list - int64_t(2 * sizeof(RtGObject)));
}

TEST_F(ListObj, instances_of_lists_share_the_children)
{
    RtNode* const list = listOf("list", { blockAt("a", cube(0)) });
    RtNode* const instance = instanceOf(list, "i");
    setMatrices(instance, { translation(10, 0, 0) });
    rv::RvNodeInitialize(instance);
    EXPECT_EQ(boundsOf(instance), "10 0 0 -> 11 1 1");
    EXPECT_EQ(objectOf(instance)->data, objectOf(list)->data);
    EXPECT_EQ(nodesOf(scene().bounded_objects).back(), instance);
    RvGObjectBuildAccel(instance, 0);
    EXPECT_EQ(objectOf(instance)->accel, objectOf(list)->accel);
    RvNodeDestroy(list);
    EXPECT_EQ(instance->local_data, nullptr);
}

TEST_F(ListObj, survives_a_heap_that_fails_at_any_request)
{
    RtNode* const a = readyBlock("a");
    RtList* const members = RvList(nullptr);
    RvListAdd(members, a);
    const auto texts = node_tools::problemsOfFailingHeap(
        [&] {
            RtNode* const list = RvNode("list_aggregate");
            if (!list)
                return;
            RvNodeSetPtr(list, "obj_list", members);
            rv::RvNodeInitialize(list);
            RvNodeDestroy(list);
        },
        [] { return takeProblems(); });
    EXPECT_TRUE(node_tools::anyReportsFailure(texts, "core.src.objects.listobj", "RtAggrList"));
    EXPECT_EQ(objectOf(a)->memberships, 0u);
    RvListDestroy(members);
}

} // namespace
