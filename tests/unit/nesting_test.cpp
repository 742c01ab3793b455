// Scenes nested deeper than any stack: lists in lists, instances of instances.
#include "list.h"
#include "node_tools.h"
#include "objects/gobject.h"
#include "rv_rays.h"
#include "scene.h"

namespace {

class Nesting : public Universe {
protected:
    static RtNode* sphereAt(float z)
    {
        RtNode* const node = RvNode("sphere");
        RvNodeSetArray(node, "center", RvArray(1, 1, RV_TYPE_POINT, RtPoint{ 0, 0, z }));
        return node;
    }
    // A list of two nodes.
    static void fill(RtNode* list, RtNode* first, RtNode* second)
    {
        RtList* const children = RvList(nullptr);
        RvListAdd(children, first);
        RvListAdd(children, second);
        RvNodeSetPtr(list, "obj_list", children);
        lists().push_back(children);
    }
    static std::vector<RtList*>& lists()
    {
        static std::vector<RtList*> all;
        return all;
    }
    void TearDown() override
    {
        Universe::TearDown();
        for (RtList* list : lists())
            RvListDestroy(list);
        lists().clear();
    }
    // Lists inside each other, each with a sphere of its own behind that of the list inside it.
    static RtNode* nested(int depth)
    {
        RtNode* inner = sphereAt(0);
        for (int i = 1; i <= depth; ++i) {
            RtNode* const list = RvNode("list_aggregate");
            fill(list, inner, sphereAt(float(-2 * i)));
            inner = list;
        }
        return inner;
    }
    // The distance at which a ray towards negative z hits a node, -1 for a miss.
    static double probe(RtNode* node)
    {
        rv::the_frame->scene->root = node;
        const RtShaderGlobals from = {};
        RtShaderGlobals hit = {};
        const RtPoint origin = { 0, 0, 5 };
        const RtVector dir = { 0, 0, -1 };
        RtRay ray;
        RvMakeRay(&ray, RV_RAY_CAMERA, &origin, &dir, 1e30, &from);
        return RvTraceProbe(&ray, &hit) ? hit.ray_length : -1;
    }
};

} // namespace

TEST_F(Nesting, a_thousand_lists_inside_each_other_are_rendered)
{
    RtNode* const outermost = nested(1000);
    ASSERT_EQ(RvRender(RV_RENDER_MODE_SETUP), RV_SUCCESS);
    EXPECT_EQ(takeProblems(), std::vector<std::string>());
    EXPECT_NEAR(probe(outermost), 4.5, 1e-5);
}

TEST_F(Nesting, what_is_deeper_than_the_limit_is_left_out_and_reported_once)
{
    RtNode* const outermost = nested(5000);
    ASSERT_EQ(RvRender(RV_RENDER_MODE_SETUP), RV_SUCCESS);
    const std::vector<std::string> problems = takeProblems();
    ASSERT_EQ(problems.size(), 1u);
    EXPECT_NE(problems[0].find("more than 1024 object lists are inside each other"),
              std::string::npos);
    const double distance = probe(outermost);
    EXPECT_GT(distance, 2 * (5000 - 1025)); // only the spheres of the outer lists
    EXPECT_LT(distance, 2 * 5000 + 10);
}

TEST_F(Nesting, instances_of_instances_made_from_the_outside_in_do_not_exhaust_the_stack)
{
    static constexpr int count = 20000;
    std::vector<RtNode*> instances;
    for (int i = 0; i < count; ++i)
        instances.push_back(RvNode("ginstance"));
    RtNode* const sphere = sphereAt(0);
    for (int i = 0; i < count; ++i)
        RvNodeSetPtr(instances[size_t(i)], "node",
                     i + 1 < count ? instances[size_t(i) + 1] : sphere);
    EXPECT_EQ(RvRender(RV_RENDER_MODE_SETUP), RV_SUCCESS);
    EXPECT_EQ(takeProblems(), std::vector<std::string>());
    EXPECT_NEAR(probe(instances.front()), 4.5, 1e-5);
}

TEST_F(Nesting, lists_made_from_the_outside_in_do_not_exhaust_the_stack)
{
    static constexpr int count = 5000;
    std::vector<RtNode*> made;
    for (int i = 0; i < count; ++i)
        made.push_back(RvNode("list_aggregate"));
    for (int i = 0; i < count; ++i)
        fill(made[size_t(i)], i + 1 < count ? made[size_t(i) + 1] : sphereAt(0), sphereAt(-3));
    EXPECT_EQ(RvRender(RV_RENDER_MODE_SETUP), RV_SUCCESS);
    const std::vector<std::string> problems = takeProblems();
    ASSERT_FALSE(problems.empty());
    EXPECT_NE(problems[0].find(": more than 2000 nodes refer to each other before it; make it "
                               "earlier than the nodes that need it"),
              std::string::npos)
        << problems[0];
    EXPECT_NEAR(probe(made.back()), 4.5, 1e-5);
}

TEST_F(Nesting, a_ring_of_lists_ends)
{
    RtNode* const a = RvNode("list_aggregate");
    RtNode* const b = RvNode("list_aggregate");
    fill(a, b, sphereAt(0));
    fill(b, a, sphereAt(-3));
    EXPECT_EQ(RvRender(RV_RENDER_MODE_SETUP), RV_SUCCESS);
    EXPECT_GT(probe(a), 0);
}

// Two spheres that move from x = 0 to 10 during the shutter.
TEST_F(Nesting, moving_children_are_found_whatever_time_samples_their_list_has)
{
    for (float last : { 1.0f, 0.5f }) {
        RtNode* children[2];
        for (int i = 0; i < 2; ++i) {
            RtMatrix first, second;
            RvM4Identity(&first);
            const RtVector way = { 10, 0, 0 };
            RvM4Translation(&second, &way);
            RtArray* const keys = RvArrayAllocate(1, 2, RV_TYPE_MATRIX);
            RvArraySetMtx(keys, 0, &first);
            RvArraySetMtx(keys, 1, &second);
            children[i] = sphereAt(float(-3 * i));
            RvNodeSetArray(children[i], "matrix", keys);
        }
        RtNode* const list = RvNode("list_aggregate");
        fill(list, children[0], children[1]);
        RvNodeSetArray(list, "deform_time_samples",
                       RvArray(2, 1, RV_TYPE_FLOAT, 0.0, double(last)));
        ASSERT_EQ(RvRender(RV_RENDER_MODE_SETUP), RV_SUCCESS);
        rv::the_frame->scene->root = list;
        for (float time : { 0.0f, 0.25f, 0.75f, 0.9f }) {
            RtShaderGlobals from = {}, hit = {};
            from.time = time;
            const RtPoint origin = { 10 * time, 0, 5 };
            const RtVector dir = { 0, 0, -1 };
            RtRay ray;
            RvMakeRay(&ray, RV_RAY_CAMERA, &origin, &dir, 1e30, &from);
            ASSERT_TRUE(RvTraceProbe(&ray, &hit)) << last << " " << time;
            EXPECT_NEAR(hit.ray_length, 4.5, 1e-4) << last << " " << time;
        }
    }
}
