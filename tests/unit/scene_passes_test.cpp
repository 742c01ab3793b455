// Tests of scene_passes: the summary of the scene, the passes over its nodes, its root and bounds.
#include "scene_passes.h"

#include "golden.h"
#include "objects/gobject.h"
#include "objects/listobj.h"
#include "render_tools.h"

#include <thread>

using namespace render_tools;
using node_tools::named;

namespace {

class ScenePasses : public RenderLog {
protected:
    static std::vector<const RtNode*> children(const RtNode* list)
    {
        std::vector<const RtNode*> nodes;
        const auto* const data = static_cast<const RtAggrList*>(rv::objectOf(list)->data);
        for (uint32_t i = 0; i < data->count; ++i)
            nodes.push_back(data->children[i]->node);
        return nodes;
    }

    static bool isA(const RtNode* node, const char* type)
    {
        return node && RvNodeGetNodeEntry(node) == RvNodeEntryLookUp(type);
    }

    // Prepares the scene as a render does.
    static void prepare()
    {
        rv::initializeNodes(scene());
        takeLines();
        rv::buildRootList(scene());
    }

    static RtNode* sphereAt(float x, float radius)
    {
        RtNode* const node = RvNode("sphere");
        RvNodeSetPnt(node, "center", x, 0, 0);
        RvNodeSetFlt(node, "radius", radius);
        return node;
    }
};

} // namespace

// ---- Summary ----

TEST_F(ScenePasses, the_summary_is_the_golden_one)
{
    for (const nlohmann::json& v : goldenVectors("render", "scene_summary")) {
        for (int i = 0; i < v.at("in").at("lights").get<int>(); ++i)
            RvNode("point_light");
        for (const auto& [type, count] : v.at("in").at("counts").items())
            for (int i = 0; i < count.get<int>(); ++i)
                RvNode(type.c_str());
        // The number of objects is an input of its own; the counts of the vector add up to one
        // more.
        scene()->shape_count = v.at("in").at("objects").get<int>();
        rv::reportSceneSummary();
        Names lines;
        for (const std::string& line : takeLines())
            lines.push_back(line.substr(2));
        expectGolden(v, "lines", lines);
    }
}

TEST_F(ScenePasses, every_counted_type_has_its_line_in_the_fixed_order)
{
    static const char* const types[] = { "implicit",  "sphere", "plane",   "cone",
                                         "cylinder",  "curves", "points",  "procedural",
                                         "ginstance", "nurbs",  "polymesh" };
    for (int i = 0; i < 11; ++i)
        for (int n = 0; n < 11 - i; ++n)
            RvNode(types[i]);
    rv::reportSceneSummary();
    EXPECT_EQ(takeLines(), (Names{ "0 ", "0 there are 0 lights and 66 objects:", "1 1 polymeshes",
                                   "1 2 nurbs", "1 3 instances", "1 4 procedurals", "1 5 points",
                                   "1 6 curves", "1 7 cylinders", "1 8 cones", "1 9 planes",
                                   "1 10 spheres", "1 11 implicits" }));
    RvMsgInfo("after");
    EXPECT_EQ(takeLines(), (Names{ "0 after" }));
}

TEST_F(ScenePasses, required_discs_boxes_and_lists_are_not_counted_by_type)
{
    for (const char* type : { "disc", "box", "list_aggregate" })
        RvNode(type);
    rv::reportSceneSummary();
    EXPECT_EQ(takeLines(), (Names{ "0 ", "0 there are 0 lights and 3 objects:" }));
}

TEST_F(ScenePasses, a_scene_without_lights_and_objects_has_no_summary)
{
    RvNode("persp_camera");
    RvNode("lambert");
    rv::reportSceneSummary();
    EXPECT_EQ(takeLines(), Names{});
    RvNode("point_light");
    rv::reportSceneSummary();
    EXPECT_EQ(takeLines(), (Names{ "0 ", "0 there are 1 lights and 0 objects:" }));
    setFlag("ignore_lights", true);
    rv::reportSceneSummary();
    EXPECT_EQ(takeLines(), Names{});
}

// ---- Passes ----

TEST_F(ScenePasses, the_passes_count_the_internal_nodes_too)
{
    for (const char* type : { "sphere", "persp_camera", "ambient_light" })
        named(type, type);
    rv::initializeNodes(scene());
    EXPECT_EQ(takeLines(),
              (Names{ "0 initializing 7 nodes ...", "0 node initialization done in *" }));
    rv::updateNodes(scene());
    EXPECT_EQ(takeLines(),
              (Names{ "0 updating 7 nodes ...", "1 ambient_light: 1 samples, raytraced",
                      "0 node update done in *" }));
}

TEST_F(ScenePasses, nodes_are_initialised_once_and_updated_every_time_in_order_of_creation)
{
    installActor();
    std::string calls;
    actions().initialize = [&](RtNode* node) { calls.append("i").append(RvNodeGetName(node)); };
    actions().update = [&](RtNode* node) { calls.append("u").append(RvNodeGetName(node)); };
    for (const char* name : { "A", "B", "C" })
        named("actor", name);
    rv::initializeNodes(scene());
    rv::initializeNodes(scene());
    EXPECT_EQ(calls, "iAiBiC");
    named("actor", "D");
    rv::updateNodes(scene());
    rv::updateNodes(scene());
    EXPECT_EQ(calls, "iAiBiCuAuBuCiDuDuAuBuCuD");
}

TEST_F(ScenePasses, messages_of_nodes_stand_one_level_deeper)
{
    installActor();
    RvNode("actor");
    actions().initialize = [](RtNode*) { RvMsgInfo("making"); };
    actions().update = [](RtNode*) { RvMsgInfo("renewing"); };
    rv::initializeNodes(scene());
    rv::updateNodes(scene());
    EXPECT_EQ(takeLines(),
              (Names{ "0 initializing 5 nodes ...", "1 making", "0 node initialization done in *",
                      "0 updating 5 nodes ...", "1 renewing", "0 node update done in *" }));
}

TEST_F(ScenePasses, nodes_made_by_nodes_are_prepared_in_the_same_pass)
{
    installActor();
    int initialized = 0;
    actions().initialize = [&](RtNode*) {
        if (++initialized < 100)
            RvNode("actor");
    };
    RvNode("actor");
    rv::initializeNodes(scene());
    EXPECT_EQ(initialized, 100);
    EXPECT_EQ(takeLines().front(), "0 initializing 5 nodes ...");
    int updated = 0;
    actions().update = [&](RtNode*) {
        if (++updated == 1)
            RvNode("actor");
    };
    rv::updateNodes(scene());
    EXPECT_EQ(initialized, 101);
    EXPECT_EQ(updated, 101);
}

TEST_F(ScenePasses, other_threads_may_make_nodes_during_a_pass)
{
    installActor();
    for (int i = 0; i < 50; ++i)
        RvNode("actor");
    std::thread maker;
    std::atomic<int> initialized = 0;
    actions().initialize = [&](RtNode*) {
        if (++initialized == 1)
            maker = std::thread([] {
                for (int i = 0; i < 200; ++i)
                    RvNode("lambert");
            });
    };
    rv::initializeNodes(scene());
    maker.join();
    EXPECT_EQ(initialized, 50);
    rv::updateNodes(scene());
    EXPECT_TRUE(contains(takeLines(), "0 updating 254 nodes ..."));
    for (const RtListNode* at = RvListHead(scene()->nodes); at; at = at->next)
        EXPECT_TRUE(static_cast<RtNode*>(at->data)->initialized);
}

TEST_F(ScenePasses, types_without_methods_are_passed_over)
{
    static const RtCommonMethods common = {};
    static const RtNodeMethods methods = { &common, nullptr };
    RvNodeInstall(RV_NODE_SHADER, RV_TYPE_RGB, "idle", "", &methods, RV_VERSION);
    const RtNode* const node = RvNode("idle");
    ASSERT_TRUE(node);
    rv::initializeNodes(scene());
    rv::updateNodes(scene());
    EXPECT_TRUE(node->initialized);
    EXPECT_EQ(takeProblems(), "");
}

TEST_F(ScenePasses, the_time_of_the_passes_counts_as_set_up)
{
    installActor();
    RvNode("actor");
    actions().initialize = actions().update = [](RtNode*) { usleep(30000); };
    rv::initializeNodes(scene());
    const int64_t initialization = rv::hostStats()->setup_ms;
    EXPECT_GE(initialization, 25);
    rv::updateNodes(scene());
    EXPECT_GE(rv::hostStats()->setup_ms, initialization + 25);
}

// ---- Root ----

TEST_F(ScenePasses, a_single_sphere_is_the_root_itself)
{
    const RtNode* const sphere = sphereAt(3, 2);
    prepare();
    EXPECT_EQ(scene()->root, sphere);
    EXPECT_EQ(scene()->bounded_root, sphere);
    EXPECT_FALSE(scene()->unbounded_root);
    EXPECT_EQ(takeLines(),
              (Names{ "0 creating root object list ...", "1 scene bounds: (1 -2 -2) -> (5 2 2)" }));
    const RtBBox bounds = RvUniverseGetSceneBounds();
    EXPECT_EQ(bounds.min.x, 1);
    EXPECT_EQ(bounds.max.z, 2);
}

TEST_F(ScenePasses, a_single_plane_is_the_root_itself)
{
    const RtNode* const plane = RvNode("plane");
    prepare();
    EXPECT_EQ(scene()->root, plane);
    EXPECT_FALSE(scene()->bounded_root);
    EXPECT_EQ(scene()->unbounded_root, plane);
}

TEST_F(ScenePasses, an_object_with_unbounded_on_is_the_unbounded_root)
{
    RtNode* const sphere = RvNode("sphere");
    RvNodeSetBool(sphere, "unbounded", true);
    prepare();
    EXPECT_EQ(scene()->unbounded_root, sphere);
    EXPECT_EQ(scene()->root, sphere);
    EXPECT_FALSE(scene()->bounded_root);
}

TEST_F(ScenePasses, several_spheres_share_a_list)
{
    const RtNode* const left = sphereAt(-10, 1);
    const RtNode* const right = sphereAt(10, 1);
    prepare();
    ASSERT_TRUE(isA(scene()->root, "list_aggregate"));
    EXPECT_EQ(scene()->root, scene()->bounded_root);
    EXPECT_FALSE(RvNodeGetBool(scene()->root, "unbounded"));
    EXPECT_FALSE(RvNodeGetPtr(scene()->root, "obj_list")) << "consumed";
    EXPECT_EQ(children(scene()->root), (std::vector{ left, right }));
    EXPECT_EQ(RvListSize(scene()->bounded_objects), 2u) << "the scene keeps its list";
    EXPECT_TRUE(contains(takeLines(), "1 scene bounds: (-11 -1 -1) -> (11 1 1)"));
}

TEST_F(ScenePasses, several_planes_share_an_unbounded_list)
{
    const RtNode* const floor = RvNode("plane");
    const RtNode* const wall = RvNode("plane");
    prepare();
    ASSERT_TRUE(isA(scene()->root, "list_aggregate"));
    EXPECT_TRUE(RvNodeGetBool(scene()->root, "unbounded"));
    EXPECT_EQ(children(scene()->root), (std::vector{ floor, wall }));
}

TEST_F(ScenePasses, unbounded_objects_come_before_bounded_ones_under_a_common_root)
{
    const RtNode* const sphere = sphereAt(0, 1);
    const RtNode* const plane = RvNode("plane");
    prepare();
    ASSERT_TRUE(isA(scene()->root, "list_aggregate"));
    EXPECT_TRUE(RvNodeGetBool(scene()->root, "unbounded"));
    EXPECT_EQ(scene()->bounded_root, sphere);
    EXPECT_EQ(scene()->unbounded_root, plane);
    EXPECT_EQ(children(scene()->root), (std::vector{ plane, sphere }));
    EXPECT_EQ(takeProblems(), "");
}

TEST_F(ScenePasses, two_lists_make_a_root_of_lists)
{
    for (const char* type : { "sphere", "plane", "sphere", "plane" })
        RvNode(type);
    prepare();
    ASSERT_TRUE(isA(scene()->bounded_root, "list_aggregate"));
    ASSERT_TRUE(isA(scene()->unbounded_root, "list_aggregate"));
    EXPECT_EQ(children(scene()->root),
              (std::vector<const RtNode*>{ scene()->unbounded_root, scene()->bounded_root }));
    EXPECT_EQ(RvListSize(scene()->bounded_objects), 2u) << "lists are no objects of the scene";
    EXPECT_EQ(RvListSize(scene()->unbounded_objects), 2u);
}

TEST_F(ScenePasses, an_empty_scene_has_an_empty_list_as_root)
{
    prepare();
    ASSERT_TRUE(isA(scene()->root, "list_aggregate"));
    EXPECT_TRUE(children(scene()->root).empty());
    EXPECT_FALSE(scene()->bounded_root);
    EXPECT_FALSE(scene()->unbounded_root);
    EXPECT_EQ(takeLines(), (Names{ "0 creating root object list ...", "1 no objects" }));
}

TEST_F(ScenePasses, hidden_objects_are_not_below_the_root)
{
    RtNode* const hidden = RvNode("sphere");
    RvNodeSetInt(hidden, "visibility", 0);
    const RtNode* const shown = RvNode("sphere");
    prepare();
    EXPECT_EQ(scene()->root, shown);
}

TEST_F(ScenePasses, a_refused_list_leaves_the_scene_without_a_root)
{
    RtArray* const ignored = RvArray(1, 1, RV_TYPE_STRING, "list_aggregate");
    scene()->setIgnored(ignored);
    RvArrayDestroy(ignored);
    RvNode("sphere");
    RvNode("sphere");
    prepare();
    EXPECT_FALSE(scene()->root);
    EXPECT_EQ(takeLines(), (Names{ "0 creating root object list ...", "1 no objects" }));
    rv::updateNodes(scene());
}

TEST_F(ScenePasses, a_root_list_survives_an_exhausted_heap)
{
    for (const char* type : { "sphere", "plane", "sphere", "plane" })
        RvNode(type);
    rv::initializeNodes(scene());
    bool ran_through = false;
    for (long n = 0; !ran_through && n < 1000; ++n) {
        scene()->root = scene()->bounded_root = scene()->unbounded_root = nullptr;
        const node_tools::AllocationLimit limit(n);
        rv::buildRootList(scene());
        ran_through = node_tools::heapIsOpen();
    }
    EXPECT_TRUE(ran_through);
    EXPECT_TRUE(isA(scene()->root, "list_aggregate"));
}
