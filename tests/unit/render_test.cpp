// Tests of the render call: its steps in order, its results, stops from within and from other
// threads, and what one render leaves for the next.
#include "objects/gobject.h"
#include "render_tools.h"
#include "sampling.h"
#include "system/clock.h"

#include <condition_variable>
#include <limits.h>
#include <limits>
#include <thread>

using namespace render_tools;
using node_tools::named;

namespace {

class Render : public RenderLog {
protected:
    void TearDown() override
    {
        on_line() = {};
        RenderLog::TearDown();
    }

    // A scene that a camera can see.
    static void makeScene()
    {
        for (const char* type : { "sphere", "persp_camera" })
            RvNode(type);
        named("point_light", "light");
        takeLines();
    }

    static void setOutputs(const char* statement)
    {
        RvNodeSetArray(RvUniverseGetOptions(), "outputs", RvArray(1, 1, RV_TYPE_STRING, statement));
    }

    // Called with the text of every line as it is logged.
    static std::function<void(const std::string&)>& on_line()
    {
        static std::function<void(const std::string&)> all;
        return all;
    }

    // Calls a function when a line begins with a text; nothing is recorded any more.
    static void when(const std::string& start, void (*call)())
    {
        on_line() = [start, call](const std::string& text) {
            if (text.rfind(start, 0) == 0)
                call();
        };
        RvMsgSetCallback([](int, int severity, const char* text, int) {
            if (severity > 0)
                problems().push_back(text);
            if (on_line())
                on_line()(text);
        });
    }

    static Names& problems()
    {
        static Names all;
        return all;
    }

    static int tab()
    {
        RvMsgInfo("here");
        const Names lines = takeLines();
        return lines.empty() ? INT_MIN : atoi(lines.back().c_str());
    }
};

// Steps that lead to an image, and the order in which they ran.
struct ImageSteps : StepsOverride {
    ImageSteps()
    {
        calls() = "";
        steps.applyTextureOptions = [] { calls() += "textures "; };
        steps.createBucketRenderer = [](RtRenderSession*) {
            calls() += "create ";
            return reinterpret_cast<RtBucketRenderer*>(&calls());
        };
        steps.destroyBucketRenderer = [](RtBucketRenderer* renderer) {
            EXPECT_EQ(static_cast<void*>(renderer), &calls());
            calls() += "destroy ";
        };
        steps.prepareOutputs = [](RtRenderSession*) {
            calls() += "prepare ";
            return true;
        };
        steps.runBuckets = [](RtRenderSession* session) {
            EXPECT_EQ(static_cast<void*>(session->bucket_renderer), &calls());
            calls() += "run ";
            RvMsgInfo("rendering");
        };
        steps.closeOutputs = [](RtRenderSession*) { calls() += "close "; };
        steps.printStatistics = [] { calls() += "print "; };
    }

    static std::string& calls()
    {
        static std::string all;
        return all;
    }
};

} // namespace

// ---- Refusals ----

TEST(RenderWithoutUniverse, is_an_error_and_requests_do_nothing)
{
    ASSERT_FALSE(RvUniverseIsActive());
    EXPECT_EQ(RvRender(RV_RENDER_MODE_CAMERA), RV_ERROR);
    EXPECT_EQ(RvRender(RV_RENDER_MODE_SETUP), -1);
    RvRenderAbort();
    RvRenderInterrupt();
    RvEnd();
    EXPECT_FALSE(RvRendering());
}

TEST_F(Render, without_a_session_or_options_is_an_error)
{
    RtRenderSession* const kept = std::exchange(rv::the_frame->session, nullptr);
    EXPECT_EQ(RvRender(RV_RENDER_MODE_SETUP), RV_ERROR);
    rv::the_frame->session = kept;
    RvNodeDestroy(RvUniverseGetOptions());
    EXPECT_EQ(RvRender(RV_RENDER_MODE_CAMERA), RV_ERROR);
    EXPECT_EQ(RvRender(RV_RENDER_MODE_SETUP), RV_ERROR);
    EXPECT_FALSE(RvRendering());
}

TEST_F(Render, a_consumed_scene_is_unrenderable_unless_its_data_was_preserved)
{
    makeScene();
    scene()->consumed = true;
    for (int mode : { RV_RENDER_MODE_CAMERA, RV_RENDER_MODE_SETUP }) {
        EXPECT_EQ(RvRender(mode), RV_ERROR_UNRENDERABLE);
        EXPECT_EQ(takeLines(),
                  (Names{ "0 E scenegraph is unrenderable:  cannot call RvRender() after a call to "
                          "RvRVSWrite() - try enabling preserve_scene_data" }));
        EXPECT_FALSE(RvRendering());
        EXPECT_EQ(session()->abort_flag, 0) << "the error is no reason to stop a later render";
    }
    setFlag("preserve_scene_data", true);
    EXPECT_EQ(RvRender(RV_RENDER_MODE_SETUP), RV_SUCCESS);
}

TEST_F(Render, a_region_outside_of_the_image_is_refused_before_the_camera_is_missed)
{
    set("region_min_x", 0);
    set("region_min_y", 0);
    set("region_max_x", 320);
    set("region_max_y", 239);
    EXPECT_EQ(RvRender(RV_RENDER_MODE_CAMERA), 6);
    EXPECT_EQ(takeProblems(),
              "E invalid render region (0,0)-->(320,239) for image resolution 320x240");
    EXPECT_EQ(tab(), 0);
    EXPECT_FALSE(session()->sample_tables);
}

TEST_F(Render, without_a_camera_there_is_no_image)
{
    RvNode("sphere");
    EXPECT_EQ(RvRender(RV_RENDER_MODE_CAMERA), 3);
    EXPECT_EQ(takeLines(), (Names{ "0 ", "0 there are 0 lights and 1 objects:", "1 1 spheres", "0 ",
                                   "0 E there is no camera!" }));
    EXPECT_EQ(session()->setup_count, 0);
    EXPECT_EQ(tab(), 0);
}

TEST_F(Render, a_node_that_is_no_camera_is_none)
{
    RvNodeSetPtr(RvUniverseGetOptions(), "camera", RvNode("sphere"));
    takeLines();
    EXPECT_EQ(RvRender(RV_RENDER_MODE_CAMERA), RV_ERROR_NO_CAMERA);
    EXPECT_EQ(takeProblems(), "E there is no camera!");
}

TEST_F(Render, an_image_needs_outputs)
{
    makeScene();
    ImageSteps image;
    image.steps.prepareOutputs = [](RtRenderSession*) { return false; };
    EXPECT_EQ(RvRender(RV_RENDER_MODE_CAMERA), 11);
    EXPECT_EQ(image.calls(), "textures create destroy ");
    EXPECT_FALSE(session()->bucket_renderer);
    EXPECT_EQ(session()->setup_count, 0);
    EXPECT_FALSE(session()->sample_tables);
}

TEST_F(Render, absent_outputs_are_not_even_prepared)
{
    makeScene();
    const ImageSteps image;
    RvArrayDestroy(std::exchange(rv::render_options->outputs, nullptr));
    EXPECT_EQ(RvRender(RV_RENDER_MODE_CAMERA), RV_ERROR_NO_OUTPUTS);
    EXPECT_EQ(image.calls(), "textures create destroy ");
}

TEST_F(Render, an_image_with_an_output_is_rendered_and_without_a_valid_one_refused)
{
    makeScene();
    setOutputs("RGBA RGBA filter nowhere");
    EXPECT_EQ(RvRender(RV_RENDER_MODE_CAMERA), RV_ERROR_NO_OUTPUTS);
    EXPECT_EQ(takeProblems(), "W [aov] output references a non-filter node: filter | "
                              "E [aov] no valid outputs - can't continue");
    EXPECT_EQ(session()->setup_count, 0);
    EXPECT_FALSE(session()->bucket_renderer);
    named("box_filter", "filter");
    named("driver_null", "nowhere");
    takeLines();
    EXPECT_EQ(RvRender(RV_RENDER_MODE_CAMERA), RV_SUCCESS);
    EXPECT_EQ(session()->setup_count, 1);
    EXPECT_FALSE(session()->bucket_renderer);
    const Names lines = takeLines();
    EXPECT_TRUE(contains(lines, "1 render done")) << "the refused render left its indentation";
    EXPECT_TRUE(contains(lines, "2 starting 1 bucket workers of size 64x64 ..."));
    EXPECT_TRUE(contains(lines, "2 bucket workers done in *"));
}

TEST_F(Render, an_image_without_any_statement_is_refused)
{
    makeScene();
    EXPECT_EQ(RvRender(RV_RENDER_MODE_CAMERA), 11);
    EXPECT_EQ(takeProblems(), "W [aov] no output statements found");
}

TEST_F(Render, an_image_may_follow_a_set_up_and_a_set_up_an_image)
{
    makeScene();
    setOutputs("RGBA RGBA filter nowhere");
    named("box_filter", "filter");
    named("driver_null", "nowhere");
    for (int mode : { RV_RENDER_MODE_SETUP, RV_RENDER_MODE_CAMERA, RV_RENDER_MODE_CAMERA,
                      RV_RENDER_MODE_SETUP, RV_RENDER_MODE_CAMERA })
        EXPECT_EQ(RvRender(mode), RV_SUCCESS) << mode;
    EXPECT_EQ(takeProblems(), "");
    EXPECT_EQ(session()->setup_count, 5);
}

TEST_F(Render, required_without_outputs_the_indentation_stays_raised)
{
    makeScene();
    EXPECT_EQ(RvRender(RV_RENDER_MODE_CAMERA), RV_ERROR_NO_OUTPUTS);
    EXPECT_EQ(tab(), 1);
    EXPECT_EQ(RvRender(RV_RENDER_MODE_CAMERA), RV_ERROR_NO_OUTPUTS);
    EXPECT_EQ(tab(), 2);
}

TEST_F(Render, a_render_within_a_render_is_refused)
{
    installActor();
    RvNode("sphere");
    RvNode("actor");
    int inner = 0;
    actions().update = [&](RtNode*) { inner = RvRender(RV_RENDER_MODE_SETUP); };
    EXPECT_EQ(RvRender(RV_RENDER_MODE_SETUP), RV_SUCCESS);
    EXPECT_EQ(inner, RV_ERROR);
    EXPECT_EQ(takeProblems(), "W RvRender() ignored:  a render is already running");
    EXPECT_EQ(session()->setup_count, 1);
}

TEST_F(Render, the_universe_does_not_end_within_a_render)
{
    installActor();
    RvNode("sphere");
    RvNode("actor");
    actions().initialize = [](RtNode*) { RvEnd(); };
    EXPECT_EQ(RvRender(RV_RENDER_MODE_SETUP), RV_SUCCESS);
    EXPECT_TRUE(RvUniverseIsActive());
    EXPECT_EQ(takeProblems(), "W RvEnd() ignored:  a render is running");
}

// ---- Order of steps ----

TEST_F(Render, set_up_prepares_the_scene_without_an_image)
{
    makeScene();
    const ImageSteps image;
    EXPECT_EQ(RvRender(RV_RENDER_MODE_SETUP), RV_SUCCESS);
    EXPECT_EQ(takeLines(), (Names{ "0 ", "0 there are 1 lights and 1 objects:", "1 1 spheres", "0 ",
                                   "0 updating 7 nodes ...", "1 light: 1 samples, raytraced",
                                   "0 node update done in *", "0 creating root object list ...",
                                   "1 scene bounds: (-0.5 -0.5 -0.5) -> (0.5 0.5 0.5)" }));
    EXPECT_EQ(image.calls(), "textures ");
    EXPECT_EQ(session()->setup_count, 1);
    EXPECT_EQ(session()->mode, 1);
    ASSERT_TRUE(session()->thread_slots);
    EXPECT_TRUE(session()->thread_slots[63].messages);
    EXPECT_TRUE(scene()->root);
    EXPECT_FALSE(RvRendering());
    for (const RtListNode* at = RvListHead(scene()->nodes); at; at = at->next)
        EXPECT_TRUE(static_cast<RtNode*>(at->data)->initialized);
}

TEST_F(Render, after_set_up_rays_meet_the_scene)
{
    RtNode* const sphere = RvNode("sphere");
    RvNodeSetFlt(sphere, "radius", 2);
    const RtPoint origin = { 0, 0, 10 };
    const RtVector down_z = { 0, 0, -1 };
    for (int mode : { RV_RENDER_MODE_SETUP, RV_RENDER_MODE_CAMERA }) {
        RvRender(mode);
        RtRay ray;
        RvMakeRay(&ray, RV_RAY_CAMERA, &origin, &down_z, RV_BIG, nullptr);
        RtShaderGlobals hit = {};
        EXPECT_TRUE(RvTraceProbe(&ray, &hit)) << mode;
        EXPECT_NEAR(hit.point.z, 2, 1e-4) << mode;
        RvNode("persp_camera");
    }
}

TEST_F(Render, set_up_needs_neither_camera_nor_region)
{
    set("xres", -1);
    EXPECT_EQ(RvRender(RV_RENDER_MODE_SETUP), RV_SUCCESS);
    EXPECT_EQ(takeLines().back(), "1 no objects");
}

TEST_F(Render, every_mode_but_that_of_the_camera_is_set_up)
{
    for (int mode : { 7, -1, INT_MIN }) {
        EXPECT_EQ(RvRender(mode), RV_SUCCESS);
        EXPECT_TRUE(session()->sample_tables);
        EXPECT_EQ(session()->mode, mode);
    }
}

TEST_F(Render, an_image_takes_its_steps_in_order)
{
    makeScene();
    const ImageSteps image;
    EXPECT_EQ(RvRender(RV_RENDER_MODE_CAMERA), RV_SUCCESS);
    EXPECT_EQ(image.calls(), "textures create prepare run close destroy print ");
    EXPECT_EQ(takeLines(), (Names{ "0 ", "0 there are 1 lights and 1 objects:", "1 1 spheres", "0 ",
                                   "0 rendering image at 320 x 240, 1 AA samples, 0 GI bounces",
                                   "1 initializing 7 nodes ...", "1 node initialization done in *",
                                   "1 creating root object list ...",
                                   "2 scene bounds: (-0.5 -0.5 -0.5) -> (0.5 0.5 0.5)",
                                   "1 updating 7 nodes ...", "2 light: 1 samples, raytraced",
                                   "1 node update done in *", "1 rendering", "0 render done" }));
    EXPECT_EQ(session()->setup_count, 1);
    EXPECT_FALSE(session()->bucket_renderer);
}

TEST_F(Render, a_second_image_skips_what_is_done_once)
{
    makeScene();
    const ImageSteps image;
    RvRender(RV_RENDER_MODE_CAMERA);
    const RtThreadSlot* const slots = session()->thread_slots;
    takeLines();
    EXPECT_EQ(RvRender(RV_RENDER_MODE_CAMERA), RV_SUCCESS);
    EXPECT_EQ(takeLines(),
              (Names{ "0 ", "0 rendering image at 320 x 240, 1 AA samples, 0 GI bounces",
                      "1 updating 7 nodes ...", "1 node update done in *", "1 rendering",
                      "0 render done" }));
    EXPECT_EQ(session()->thread_slots, slots);
    EXPECT_EQ(session()->setup_count, 2);
}

TEST_F(Render, a_second_set_up_just_updates)
{
    makeScene();
    RvRender(RV_RENDER_MODE_SETUP);
    takeLines();
    EXPECT_EQ(RvRender(RV_RENDER_MODE_SETUP), RV_SUCCESS);
    EXPECT_EQ(takeLines(), (Names{ "0 ", "0 updating 7 nodes ...", "0 node update done in *" }));
}

TEST_F(Render, the_image_line_names_a_region_that_is_not_the_whole_image)
{
    makeScene();
    for (const char* bound : { "region_min_x", "region_min_y" })
        set(bound, 10);
    for (const char* bound : { "region_max_x", "region_max_y" })
        set(bound, 19);
    set("GI_diffuse_depth", 2);
    set("GI_diffuse_samples", 3);
    RvRender(RV_RENDER_MODE_CAMERA);
    EXPECT_TRUE(contains(takeLines(), "0 rendering image at 320 x 240 (10 x 10 region), 1 AA "
                                      "samples, 3 GI samples, 2 GI bounces"));
}

TEST_F(Render, the_structure_of_the_root_is_built_before_the_buckets)
{
    makeScene();
    ImageSteps image;
    image.steps.runBuckets = [](RtRenderSession* s) {
        ImageSteps::calls() += rv::objectOf(s->scene->root)->accel ? "built" : "not built";
    };
    RvNode("sphere");
    EXPECT_EQ(RvRender(RV_RENDER_MODE_CAMERA), RV_SUCCESS);
    EXPECT_NE(image.calls().find(" built"), std::string::npos) << image.calls();
}

TEST_F(Render, cameras_see_the_image_of_the_running_render)
{
    makeScene();
    ImageSteps image;
    image.steps.runBuckets = [](RtRenderSession* s) {
        EXPECT_EQ(rv::image_geometry, s);
        EXPECT_EQ(rv::currentImage().image_width, 640);
        EXPECT_EQ(rv::currentImage().frame_aspect, 0.375f);
        EXPECT_EQ(rv::currentImage().region_max_x, 639);
        ImageSteps::calls() += "seen";
    };
    set("xres", 640);
    EXPECT_EQ(RvRender(RV_RENDER_MODE_CAMERA), RV_SUCCESS);
    EXPECT_NE(image.calls().find("seen"), std::string::npos);
    EXPECT_FALSE(rv::image_geometry);
    EXPECT_EQ(RvRender(RV_RENDER_MODE_SETUP), RV_SUCCESS);
    EXPECT_FALSE(rv::image_geometry);
}

TEST_F(Render, edits_between_renders_take_effect)
{
    makeScene();
    RtNode* const sphere = scene()->lights.empty() ? nullptr : RvNode("sphere");
    for (int mode : { RV_RENDER_MODE_SETUP, RV_RENDER_MODE_CAMERA, RV_RENDER_MODE_SETUP }) {
        const float radius = RvUniverseGetSceneBounds().max.x + 1;
        RvNodeSetFlt(sphere, "radius", radius);
        RvRender(mode);
        EXPECT_EQ(RvUniverseGetSceneBounds().max.x, radius) << mode;
    }
}

TEST_F(Render, a_root_that_was_destroyed_is_made_again)
{
    RtNode* const first = RvNode("sphere");
    RvRender(RV_RENDER_MODE_SETUP);
    EXPECT_EQ(scene()->root, first);
    RvNodeDestroy(first);
    EXPECT_FALSE(scene()->root);
    const RtNode* const second = RvNode("sphere");
    takeLines();
    EXPECT_EQ(RvRender(RV_RENDER_MODE_SETUP), RV_SUCCESS);
    EXPECT_EQ(scene()->root, second);
    EXPECT_TRUE(contains(takeLines(), "0 creating root object list ..."));
}

TEST_F(Render, nodes_added_later_are_prepared_but_not_below_the_root)
{
    const RtNode* const first = RvNode("sphere");
    RvRender(RV_RENDER_MODE_SETUP);
    const RtNode* const second = RvNode("sphere");
    EXPECT_EQ(RvRender(RV_RENDER_MODE_SETUP), RV_SUCCESS);
    EXPECT_TRUE(second->initialized);
    EXPECT_EQ(scene()->root, first);
}

// ---- Stops ----

TEST_F(Render, a_request_before_the_render_is_ignored)
{
    RvRenderAbort();
    EXPECT_EQ(RvRender(RV_RENDER_MODE_SETUP), RV_SUCCESS);
    RvRenderInterrupt();
    EXPECT_EQ(RvRender(RV_RENDER_MODE_SETUP), RV_SUCCESS);
}

TEST_F(Render, a_stop_before_the_preparation_ends_the_render)
{
    static const struct {
        void (*request)();
        int result;
        const char* problem;
    } cases[] = {
        { RvRenderAbort, RV_ABORT, "W render aborted:  received abort signal" },
        { RvRenderInterrupt, RV_INTERRUPT, "" },
    };
    makeScene();
    for (int mode : { RV_RENDER_MODE_CAMERA, RV_RENDER_MODE_SETUP })
        for (const auto& c : cases) {
            StepsOverride override;
            override.steps.applyTextureOptions = c.request;
            EXPECT_EQ(RvRender(mode), c.result);
            Names lines = takeLines();
            ASSERT_FALSE(lines.empty());
            EXPECT_EQ(lines.front(), "0 ") << "and no summary of the scene";
            lines.erase(lines.begin());
            EXPECT_EQ(lines, *c.problem ? Names{ std::string("0 ") + c.problem } : Names{});
            EXPECT_FALSE(scene()->root);
        }
    EXPECT_EQ(RvRender(RV_RENDER_MODE_SETUP), RV_SUCCESS);
}

TEST_F(Render, a_stop_while_nodes_are_prepared_ends_the_first_render_before_its_set_up)
{
    static const struct {
        void (*request)();
        int result;
        const char* problem;
    } cases[] = {
        { RvRenderAbort, RV_ABORT, "W aborting render-setup:  received abort signal" },
        { RvRenderInterrupt, RV_INTERRUPT, "" },
        { [] { rv::the_frame->session->abort_flag = 77; }, RV_ABORT,
          "W aborting render-setup:  unknown reason" },
        { [] { RvMsgError("broken"); }, RV_ABORT,
          "E broken | W aborting render-setup:  received abort signal" },
        { [] { RvRenderInterrupt(), RvRenderAbort(); }, RV_INTERRUPT, "" },
    };
    installActor();
    makeScene();
    for (int mode : { RV_RENDER_MODE_SETUP, RV_RENDER_MODE_CAMERA })
        for (const auto& c : cases) {
            RvNode("actor");
            RvNode("actor");
            int initialized = 0;
            actions().initialize = [&](RtNode*) {
                if (++initialized == 1)
                    c.request();
            };
            EXPECT_EQ(RvRender(mode), c.result);
            EXPECT_EQ(takeProblems(), c.problem);
            EXPECT_EQ(initialized, 2) << "the pass goes on to its end";
            EXPECT_FALSE(scene()->root);
            EXPECT_FALSE(session()->thread_slots);
            EXPECT_EQ(session()->setup_count, 0);
            EXPECT_EQ(session()->abort_flag, 0);
            EXPECT_FALSE(RvRendering());
            EXPECT_EQ(tab(), 0);
        }
    EXPECT_EQ(RvRender(RV_RENDER_MODE_SETUP), RV_SUCCESS);
    EXPECT_TRUE(scene()->root);
}

TEST_F(Render, required_a_stop_during_set_up_is_a_failure_of_unknown_reason)
{
    makeScene();
    for (int mode : { RV_RENDER_MODE_SETUP, RV_RENDER_MODE_CAMERA })
        for (void (*request)() : { RvRenderAbort, RvRenderInterrupt }) {
            scene()->root = nullptr;
            problems().clear();
            when("creating root object list", request);
            EXPECT_EQ(RvRender(mode), RV_ABORT);
            EXPECT_EQ(problems(), (Names{ "failure during render-setup:  unknown reason" }));
            EXPECT_EQ(session()->setup_count, 0);
            EXPECT_EQ(session()->abort_flag, 0);
        }
    EXPECT_EQ(rv::the_frame->msg->tab, 0);
    on_line() = {};
    EXPECT_EQ(RvRender(RV_RENDER_MODE_SETUP), RV_SUCCESS);
}

TEST_F(Render, a_later_render_that_is_stopped_says_so_by_its_result_alone)
{
    installActor();
    makeScene();
    RvNode("actor");
    RvRender(RV_RENDER_MODE_SETUP);
    takeLines();
    const ImageSteps image;
    for (int mode : { RV_RENDER_MODE_SETUP, RV_RENDER_MODE_CAMERA }) {
        actions().update = [](RtNode*) { RvRenderInterrupt(); };
        EXPECT_EQ(RvRender(mode), RV_INTERRUPT);
        actions().update = [](RtNode*) { RvRenderAbort(); };
        EXPECT_EQ(RvRender(mode), RV_ABORT);
        actions().update = {};
        EXPECT_EQ(RvRender(mode), RV_SUCCESS);
    }
    EXPECT_EQ(takeProblems(), "");
    EXPECT_EQ(session()->setup_count, 7);
}

TEST_F(Render, an_image_that_is_stopped_is_closed_like_any_other)
{
    makeScene();
    ImageSteps image;
    image.steps.runBuckets = [](RtRenderSession*) { RvRenderInterrupt(); };
    EXPECT_EQ(RvRender(RV_RENDER_MODE_CAMERA), 9);
    EXPECT_EQ(image.calls(), "textures create prepare close destroy print ");
    EXPECT_EQ(takeProblems(), "");
    image.steps.runBuckets = [](RtRenderSession*) { RvRenderAbort(); };
    EXPECT_EQ(RvRender(RV_RENDER_MODE_CAMERA), 1);
    EXPECT_EQ(tab(), 0);
}

TEST_F(Render, an_unknown_request_is_reported_once_in_the_process)
{
    // In a process of its own, so that repeated runs of this test see the first time.
    EXPECT_EXIT(
        {
            const auto stopStrangely = [](int request) {
                actions().update = [request](RtNode*) { session()->abort_flag = request; };
                return RvRender(RV_RENDER_MODE_SETUP);
            };
            installActor();
            RvNode("actor");
            RvRender(RV_RENDER_MODE_SETUP);
            takeLines();
            const bool is_error = stopStrangely(5) == RV_ERROR;
            const std::string first = takeProblems();
            const bool is_error_again = stopStrangely(-6) == RV_ERROR;
            const std::string second = takeProblems();
            fprintf(stderr, "%s, then: %s.", first.c_str(), second.c_str());
            _exit(is_error && is_error_again ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "^W unknown render abort flag: 5, then: \\.");
}

TEST_F(Render, another_thread_may_stop_the_preparation)
{
    static const struct {
        void (*request)();
        int result;
    } cases[] = { { RvRenderAbort, RV_ABORT }, { RvRenderInterrupt, RV_INTERRUPT } };
    installActor();
    RvNode("actor");
    for (const auto& c : cases) {
        std::atomic<bool> is_preparing = false, is_requested = false;
        actions().update = [&](RtNode*) {
            is_preparing = true;
            while (!is_requested)
                std::this_thread::yield();
        };
        std::thread host([&] {
            while (!is_preparing)
                std::this_thread::yield();
            EXPECT_TRUE(RvRendering());
            c.request();
            is_requested = true;
        });
        EXPECT_EQ(RvRender(RV_RENDER_MODE_SETUP), c.result);
        host.join();
        EXPECT_FALSE(RvRendering());
    }
}

TEST_F(Render, requests_from_other_threads_never_reach_the_next_render)
{
    installActor();
    RvNode("actor");
    std::atomic<bool> is_over = false;
    std::thread host([&] {
        while (!is_over) {
            RvRenderInterrupt();
            std::this_thread::yield();
        }
    });
    for (int i = 0; i < 50; ++i) {
        const int result = RvRender(RV_RENDER_MODE_SETUP);
        EXPECT_TRUE(result == RV_SUCCESS || result == RV_INTERRUPT || result == RV_ABORT) << result;
    }
    is_over = true;
    host.join();
    EXPECT_EQ(session()->abort_flag, 0);
    EXPECT_EQ(RvRender(RV_RENDER_MODE_SETUP), RV_SUCCESS);
}

TEST_F(Render, rendering_is_true_during_the_call)
{
    installActor();
    makeScene();
    RvNode("actor");
    Names seen;
    const auto look = [&] { seen.push_back(RvRendering() ? "rendering" : "idle"); };
    actions().initialize = actions().update = [&](RtNode*) { look(); };
    look();
    RvRender(RV_RENDER_MODE_SETUP);
    look();
    RvRender(RV_RENDER_MODE_CAMERA);
    look();
    EXPECT_EQ(seen, (Names{ "idle", "rendering", "rendering", "idle", "rendering", "idle" }));
}

// ---- Buffers ----

TEST_F(Render, set_up_keeps_its_buffers_until_the_end)
{
    EXPECT_EQ(RvRender(RV_RENDER_MODE_SETUP), RV_SUCCESS);
    EXPECT_TRUE(session()->sample_tables);
    EXPECT_EQ(rv::sample_tables, session()->sample_tables);
    RvEnd();
    EXPECT_FALSE(rv::sample_tables);
}

TEST_F(Render, the_end_releases_what_was_sampled_outside_of_renders)
{
    session()->initSamplers();
    RvSamplingBeginPixel(5, 1, 2, 16);
    ASSERT_TRUE(rv::pixel_sampling[5].pool);
    RvEnd();
    EXPECT_FALSE(rv::sample_tables);
    EXPECT_FALSE(rv::pixel_sampling[5].pool);
}

TEST_F(Render, an_image_releases_its_buffers_and_those_of_an_earlier_set_up)
{
    makeScene();
    ImageSteps image;
    image.steps.runBuckets = [](RtRenderSession* s) { EXPECT_TRUE(s->sample_tables); };
    RvRender(RV_RENDER_MODE_SETUP);
    EXPECT_EQ(RvRender(RV_RENDER_MODE_CAMERA), RV_SUCCESS);
    EXPECT_FALSE(session()->sample_tables);
    EXPECT_FALSE(rv::sample_tables);
}

TEST_F(Render, the_end_after_set_up_prints_the_statistics_before_anything_else)
{
    StepsOverride override;
    override.steps.printStatistics = [] { RvMsgInfo("statistics"); };
    RvRender(RV_RENDER_MODE_SETUP);
    takeLines();
    RvEnd();
    const Names lines = takeLines();
    ASSERT_GE(lines.size(), 3u);
    EXPECT_EQ(Names(lines.begin(), lines.begin() + 3),
              (Names{ "0 statistics", "0 ", "0 releasing resources" }));
}

TEST_F(Render, the_end_after_an_image_prints_no_more_statistics)
{
    makeScene();
    ImageSteps image;
    RvRender(RV_RENDER_MODE_SETUP);
    RvRender(RV_RENDER_MODE_CAMERA);
    image.calls() = "";
    RvEnd();
    EXPECT_EQ(image.calls(), "");
}

// ---- Statistics ----

TEST_F(Render, a_render_clears_what_describes_the_one_before_and_keeps_the_scene)
{
    for (RtStats* record : rv::the_frame->stats) {
        record->rays.rows[RV_PASS_PIXELS][RV_ROW_TOTAL].rays = 5;
        record->accel_ms = record->render_ms = 5;
        record->sanity_ms = record->geometry_bytes = 5;
        record->identity_matrices = 5;
        record->poor_bounds_displaced = record->poor_bounds_procedural = 5;
    }
    RvRender(RV_RENDER_MODE_SETUP);
    for (const RtStats* record : rv::the_frame->stats) {
        EXPECT_EQ(record->rays.rows[RV_PASS_PIXELS][RV_ROW_TOTAL].rays, 0u);
        EXPECT_EQ(record->accel_ms, 0);
        EXPECT_EQ(record->render_ms, 0);
        EXPECT_EQ(record->sanity_ms, 0);
        EXPECT_GE(record->geometry_bytes, 5);
        EXPECT_EQ(record->identity_matrices, 5u);
        EXPECT_EQ(record->poor_bounds_displaced, 0u);
        EXPECT_EQ(record->poor_bounds_procedural, 0u);
    }
}

TEST_F(Render, time_between_renders_is_the_hosts)
{
    installActor();
    RvNode("actor");
    usleep(30000);
    uint32_t first_ends = 0, second_runs = 0;
    actions().update = [&](RtNode*) {
        usleep(200000);
        first_ends = rv::wallMilliseconds();
    };
    RvRender(RV_RENDER_MODE_SETUP);
    const int64_t first = rv::hostStats()->scene_ms;
    EXPECT_GE(first, 25);
    usleep(30000);
    actions().update = [&](RtNode*) { second_runs = rv::wallMilliseconds(); };
    RvRender(RV_RENDER_MODE_SETUP);
    const int64_t second = rv::hostStats()->scene_ms - first;
    EXPECT_GE(second, 25);
    EXPECT_LE(second, second_runs - first_ends) << "the time of the render is not the host's";
}

TEST_F(Render, the_time_of_an_image_is_counted)
{
    makeScene();
    ImageSteps image;
    image.steps.runBuckets = [](RtRenderSession*) { usleep(30000); };
    image.steps.printStatistics = [] { EXPECT_GE(rv::hostStats()->render_ms, 25); };
    EXPECT_EQ(RvRender(RV_RENDER_MODE_CAMERA), RV_SUCCESS);
    EXPECT_GE(rv::hostStats()->render_ms, 25);
    EXPECT_GE(rv::hostStats()->render_user_ms, 0);
}

TEST_F(Render, set_up_counts_its_time_once_and_the_threads)
{
    installActor();
    RvNode("actor");
    actions().initialize = [](RtNode*) { usleep(100000); };
    set("threads", 3);
    const uint32_t start = rv::wallMilliseconds();
    RvRender(RV_RENDER_MODE_SETUP);
    EXPECT_GE(rv::hostStats()->setup_ms, 95);
    EXPECT_LE(rv::hostStats()->setup_ms, rv::wallMilliseconds() - start);
    EXPECT_EQ(rv::hostStats()->threads, 3);
}

// ---- Robustness ----

TEST_F(Render, absurd_options_never_crash)
{
    static const struct {
        const char* option;
        int value;
    } cases[] = {
        { "xres", 0 },
        { "xres", -1 },
        { "yres", INT_MIN },
        { "xres", INT_MAX },
        { "yres", INT_MAX },
        { "threads", -5 },
        { "threads", INT_MAX },
        { "AA_samples", INT_MIN },
        { "AA_samples", INT_MAX },
        { "GI_total_depth", INT_MAX },
        { "GI_total_depth", INT_MIN },
        { "GI_diffuse_samples", INT_MAX },
        { "GI_diffuse_depth", INT_MIN },
        { "bucket_size", 0 },
        { "region_min_x", INT_MAX },
        { "region_max_x", INT_MIN },
    };
    makeScene();
    const ImageSteps image;
    for (const auto& c : cases) {
        const int before = RvNodeGetInt(RvUniverseGetOptions(), c.option);
        set(c.option, c.value);
        for (int mode : { RV_RENDER_MODE_SETUP, RV_RENDER_MODE_CAMERA }) {
            const int result = RvRender(mode);
            EXPECT_TRUE(result == RV_SUCCESS || result == RV_ABORT || result == RV_ERROR_BAD_REGION)
                << c.option << " " << c.value << ": " << result;
            EXPECT_FALSE(RvRendering());
        }
        set(c.option, before);
        EXPECT_EQ(RvRender(RV_RENDER_MODE_CAMERA), RV_SUCCESS) << c.option;
    }
}

TEST_F(Render, numbers_that_are_none_never_crash)
{
    makeScene();
    const ImageSteps image;
    const float nan = std::numeric_limits<float>::quiet_NaN();
    for (const char* option : { "aspect_ratio", "AA_sample_clamp", "bad_bounds_slack",
                                "auto_transparency_threshold", "shadow_bias" })
        RvNodeSetFlt(RvUniverseGetOptions(), option, nan);
    RvNodeSetRGB(RvUniverseGetOptions(), "error_color_bad_mesh", nan, nan, nan);
    RvNodeSetFlt(RvNode("sphere"), "radius", nan);
    RvNodeSetFlt(RvUniverseGetCamera(), "shutter_start", nan);
    for (int mode : { RV_RENDER_MODE_SETUP, RV_RENDER_MODE_CAMERA }) {
        RvRender(mode);
        EXPECT_FALSE(RvRendering());
    }
}

TEST_F(Render, any_refused_allocation_leaves_a_universe_that_renders)
{
    setFlag("abort_on_error", false);
    bool ran_through = false;
    for (long n = 0; !ran_through && n < 5000; n += n < 40 ? 1 : 7) {
        RvEnd();
        SetUp();
        makeScene();
        RvNode("sphere");
        {
            const node_tools::AllocationLimit limit(n);
            const int result = RvRender(RV_RENDER_MODE_SETUP);
            EXPECT_TRUE(result == RV_SUCCESS || result == RV_ABORT) << n << ": " << result;
            ran_through = node_tools::heapIsOpen();
        }
        EXPECT_EQ(RvRender(RV_RENDER_MODE_SETUP), RV_SUCCESS) << n;
        EXPECT_TRUE(session()->thread_slots) << n;
    }
    EXPECT_TRUE(ran_through);
}

TEST_F(Render, slots_without_memory_fail_the_set_up)
{
    setFlag("abort_on_error", false);
    scene()->root = scene()->options; // any node: the root exists
    set("max_shader_messages", INT_MAX);
    makeScene();
    {
        installActor();
        RvNode("actor");
        actions().update = [](RtNode*) { rv::limitAllocations(0); };
        EXPECT_EQ(RvRender(RV_RENDER_MODE_SETUP), RV_ABORT);
        rv::limitAllocations(-1);
    }
    const std::string problems = takeProblems();
    EXPECT_NE(problems.find("| W failure during render-setup:  unknown reason"), std::string::npos)
        << problems;
    EXPECT_FALSE(session()->thread_slots);
    EXPECT_EQ(session()->setup_count, 0);
    scene()->root = nullptr;
}

TEST_F(Render, a_universe_that_was_rendered_leaves_nothing_behind)
{
    RvEnd();
    const ImageSteps image;
    const auto live = [] {
        RvBegin();
        RvNodeSetInt(RvUniverseGetOptions(), "threads", 1);
        for (const char* type : { "sphere", "plane", "sphere", "persp_camera", "point_light" })
            RvNode(type);
        RvRender(RV_RENDER_MODE_SETUP);
        RvRender(RV_RENDER_MODE_CAMERA);
        RvRender(RV_RENDER_MODE_SETUP);
        RvEnd();
    };
    EXPECT_FALSE(node_tools::leaksMemory(live));
}
