// Procedurals whose nodes come from scene files.
#include "counters.h"
#include "dotrvs.h"
#include "image_tools.h"
#include "objects/proc.h"
#include "rv_render.h"
#include "rv_scenefile.h"
#include "scene.h"
#include "test_plugins.h"
#include "trace_tools.h"

#include <filesystem>
#include <fstream>
#include <zlib.h>

using namespace trace_tools;
using node_tools::formatted;
using node_tools::named;

namespace {

std::string sceneFolder()
{
    const auto* const test = ::testing::UnitTest::GetInstance()->current_test_info();
    return ::testing::TempDir() + "proc_scene." + test->name() + "." + std::to_string(getpid());
}

std::string writeScene(const std::string& name, const std::string& text)
{
    const std::string path = sceneFolder() + "/" + name;
    std::filesystem::create_directories(sceneFolder());
    std::ofstream(path) << text;
    return path;
}

void setBounds(RtNode* proc, const RtPoint& min, const RtPoint& max)
{
    RvNodeSetPnt(proc, "min", min.x, min.y, min.z);
    RvNodeSetPnt(proc, "max", max.x, max.y, max.z);
}

RtNode* sceneProcedural(const char* name, const std::string& dso, bool at_init)
{
    RtNode* const proc = named("procedural", name);
    RvNodeSetStr(proc, "dso", dso.c_str());
    RvNodeSetBool(proc, "load_at_init", at_init);
    setBounds(proc, { -3, -3, -3 }, { 3, 3, 3 });
    return proc;
}

class ProcScene : public Traced {
protected:
    void TearDown() override
    {
        Traced::TearDown();
        std::filesystem::remove_all(sceneFolder());
    }
    static Names procLines()
    {
        static const char* const marks[] = { "", "W ", "E " };
        Names lines;
        for (const LoggedMessage& m : messages())
            if (m.text.rfind("[proc]", 0) == 0)
                lines.push_back(marks[m.severity] + m.text);
        messages().clear();
        return lines;
    }
    static int count(const std::string& text)
    {
        return int(std::count_if(messages().begin(), messages().end(),
                                 [&](const LoggedMessage& m) { return m.text == text; }));
    }
};

const char ball[] = "sphere\n{\n name ball\n radius 1\n}\n";

} // namespace

TEST_F(ProcScene, its_extension_makes_a_scene_file_in_any_case_and_compressed)
{
    for (const char* name : { "a.rvs", "A.RVS", "b.rvs.gz" }) {
        const std::string path = writeScene(name, ball);
        if (std::string(name) == "b.rvs.gz") {
            const gzFile file = gzopen(path.c_str(), "wb");
            gzputs(file, ball);
            gzclose(file);
        }
        RtNode* const proc = sceneProcedural(name, path, true);
        messages().clear();
        rv::RvNodeInitialize(proc);
        const std::string text = name;
        EXPECT_EQ(procLines(), (Names{ "[proc] " + text + ": loading " + path,
                                       "[proc] " + text + ": loaded 1 nodes (1 objects)" }));
        EXPECT_EQ(RvNodeLookUpByName("ball")->creator, proc);
        RvNodeDestroy(RvNodeLookUpByName("ball"));
    }
}

static int depth_of_load;
static void recordDepth(int, int, const char* text, int)
{
    if (!strncmp(text, "loading |", 9))
        depth_of_load = rv::include_depth;
}

TEST_F(ProcScene, its_load_counts_as_nested_and_not_as_time_of_the_scene_files)
{
    const std::string command = "|sleep 0.05; cat " + writeScene("a.rvs", ball);
    RtNode* const proc = sceneProcedural("p", command, true);
    const int64_t before = rv::hostStats()->parse_ms;
    depth_of_load = 0;
    RvMsgSetCallback(recordDepth);
    rv::RvNodeInitialize(proc);
    ASSERT_TRUE(RvNodeLookUpByName("ball"));
    EXPECT_EQ(depth_of_load, 1);
    EXPECT_EQ(rv::include_depth, 0);
    EXPECT_EQ(rv::hostStats()->parse_ms, before);
}

TEST_F(ProcScene, a_ray_loads_the_file)
{
    setBounds(sceneProcedural("p", writeScene("a.rvs", ball), false), { -1, -1, -1 }, { 1, 1, 1 });
    prepare();
    EXPECT_FALSE(RvNodeLookUpByName("ball"));
    EXPECT_EQ(firstHit(down()), "ball");
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(ProcScene, what_a_ray_loaded_is_written_in_place_of_the_procedural)
{
    for (const bool open_procs : { false, true }) {
        RtNode* const proc = sceneProcedural("p", writeScene("a.rvs", ball), false);
        const RtVector by = { 0, 0, 1 };
        RtMatrix matrix;
        RvM4Translation(&matrix, &by);
        RvNodeSetArray(proc, "matrix", RvArray(1, 1, RV_TYPE_MATRIX, &matrix));
        setBounds(proc, { -1, -1, -1 }, { 1, 1, 1 });
        prepare();
        ASSERT_EQ(firstHit(down()), "ball");
        const node_tools::TemporaryFile written("");
        ASSERT_EQ(RvRVSWrite(written.path.c_str(), RV_NODE_SHAPE, open_procs), 0);
        startAnew();
        ASSERT_EQ(RvRVSLoad(written.path.c_str()), 0);
        EXPECT_FALSE(RvNodeLookUpByName("p"));
        prepare();
        const std::vector<RtHit> hits = hitsOf(down());
        ASSERT_EQ(hits.size(), 1u) << open_procs;
        EXPECT_EQ(hits[0].t, 8);
        EXPECT_EQ(takeProblem(), "");
        startAnew();
    }
}

TEST_F(ProcScene, nodes_of_every_kind_may_stand_in_the_file)
{
    set("xres", 17);
    RtNode* const camera = named("persp_camera", "camera");
    const std::string path =
        writeScene("a.rvs", std::string(ball) + "lambert\n{\n name red\n}\npoint_light\n{\n name "
                                                "lamp\n}\northo_camera\n{\n name view\n}\noptions"
                                                "\n{\n xres 99\n}\n");
    sceneProcedural("p", path, true);
    prepare();
    EXPECT_EQ(firstHit(down()), "ball");
    for (const char* name : { "ball", "red", "lamp", "view" }) {
        ASSERT_TRUE(RvNodeLookUpByName(name)) << name;
        EXPECT_EQ(RvNodeLookUpByName(name)->creator, RvNodeLookUpByName("p")) << name;
        EXPECT_TRUE(RvNodeLookUpByName(name)->initialized) << name;
    }
    EXPECT_EQ(RvUniverseGetCamera(), camera);
    EXPECT_EQ(RvNodeGetInt(options(), "xres"), 17) << "a render has its options already";
    EXPECT_EQ(options()->creator, nullptr);
}

TEST_F(ProcScene, files_may_hold_procedurals)
{
    for (const bool at_init : { true, false }) {
        const std::string inner = writeScene("inner.rvs", ball);
        const std::string outer =
            writeScene("outer.rvs",
                       formatted("procedural\n{\n name inner\n dso \"%s\"\n load_at_init %s\n min "
                                 "-1 -1 -1\n max 1 1 1\n matrix 1 1 MATRIX 1 0 0 0 0 1 0 0 0 0 1 "
                                 "0 0 0 1 1\n}\n",
                                 inner.c_str(), at_init ? "on" : "off"));
        setBounds(sceneProcedural("outer", outer, at_init), { -1, -1, 0 }, { 1, 1, 2 });
        prepare();
        const std::vector<RtHit> hits = hitsOf(down());
        ASSERT_EQ(hits.size(), 1u) << at_init;
        EXPECT_EQ(hits[0].t, 8);
        EXPECT_EQ(takeProblem(), "");
        startAnew();
    }
}

TEST_F(ProcScene, a_file_does_not_contain_itself)
{
    for (const bool at_init : { true, false }) {
        const std::string path = sceneFolder() + "/a.rvs";
        writeScene("a.rvs", std::string(ball) +
                                formatted("procedural\n{\n name again\n dso \"%s\"\n load_at_init "
                                          "%s\n min -2 -2 -2\n max 2 2 2\n}\n",
                                          path.c_str(), at_init ? "on" : "off"));
        set("abort_on_error", false);
        sceneProcedural("p", path, at_init);
        prepare();
        EXPECT_EQ(firstHit(down()), "ball");
        EXPECT_EQ(count("[proc] again: " + path + " contains itself"), 1) << at_init;
        startAnew();
    }
}

TEST_F(ProcScene, scene_files_are_looked_for_in_the_search_path)
{
    writeScene("a.rvs", ball);
    set("procedural_searchpath", sceneFolder().c_str());
    rv::RvNodeInitialize(sceneProcedural("p", "a.rvs", true));
    EXPECT_EQ(procLines().back(), "[proc] p: loaded 1 nodes (1 objects)");
}

TEST_F(ProcScene, instances_of_later_shapes_stay_inside)
{
    const std::string path =
        writeScene("a.rvs", "ginstance\n{\n name twin\n node ball\n}\n" + std::string(ball));
    RtNode* const proc = sceneProcedural("p", path, true);
    shape_fixture::setMatrices(proc, { shape_fixture::translation(5, 0, 0) });
    prepare();
    EXPECT_FALSE(isHit(down()));
    RtRay ray = down();
    ray.origin.x = 5;
    EXPECT_TRUE(isHit(ray));
}

// ---- Failures ----

namespace {

// All that could be read of the file before it fails.
const char broken[] = "include \"%s\"\nlambert\n{\n name red\n}\npoint_light\n{\n name lamp\n}\n"
                      "procedural\n{\n name inner\n dso \"%s\"\n load_at_init on\n}\n"
                      "include \"%s\"\n";
const char* const parts[] = { "ball", "red", "lamp", "inner" };

std::string writeBroken()
{
    const std::string whole = writeScene("whole.rvs", ball);
    return writeScene("broken.rvs", formatted(broken, whole.c_str(), whole.c_str(),
                                              (sceneFolder() + "/missing.rvs").c_str()));
}

unsigned nodeCount() { return RvListSize(rv::the_frame->scene->nodes); }

std::string writtenText()
{
    const std::string path = writeScene("out.rvs", "");
    EXPECT_EQ(RvRVSWrite(path.c_str(), RV_NODE_ALL, false), 0);
    std::ifstream file(path);
    return { std::istreambuf_iterator<char>(file), {} };
}

} // namespace

TEST_F(ProcScene, a_file_that_cannot_be_read_to_its_end_leaves_nothing)
{
    set("abort_on_error", false);
    RtNode* const proc = sceneProcedural("p", writeBroken(), true);
    const unsigned count = nodeCount();
    rv::RvNodeInitialize(proc);
    EXPECT_EQ(procLines().back(), "[proc] p: loaded 0 nodes (0 objects)");
    EXPECT_EQ(nodeCount(), count);
    for (const char* name : parts)
        EXPECT_FALSE(RvNodeLookUpByName(name)) << name;
    EXPECT_EQ(RvUniverseGetNumLights(), 0);
}

// Somebody waits for one of the nodes, and goes on pointing to it.
TEST_F(ProcScene, what_others_refer_to_is_kept_out_of_the_scene)
{
    set("abort_on_error", false);
    RtNode* const proc = sceneProcedural("p", writeBroken(), true);
    EXPECT_EQ(RvRVSLoad(writeScene("a.rvs", "ginstance\n{\n name twin\n node ball\n}\n").c_str()),
              0);
    RtNode* const twin = RvNodeLookUpByName("twin");
    ASSERT_TRUE(twin);
    rv::RvNodeInitialize(proc);
    EXPECT_EQ(procLines().back(), "[proc] p: loaded 0 nodes (0 objects)");
    ASSERT_TRUE(RvNodeLookUpByName("ball"));
    EXPECT_EQ(RvNodeGetPtr(twin, "node"), RvNodeLookUpByName("ball"));
    EXPECT_TRUE(rv::isLeftover(RvNodeLookUpByName("ball")));
    RvNodeDestroy(twin);
    prepare();
    EXPECT_FALSE(isHit(down()));
    EXPECT_EQ(RvUniverseGetNumLights(), 0);
}

TEST_F(ProcScene, what_is_left_of_a_file_is_neither_rendered_nor_written)
{
    set("abort_on_error", false);
    set("preserve_scene_data", true);
    for (const bool at_init : { true, false }) {
        RtNode* const proc = sceneProcedural("p", writeBroken(), at_init);
        if (at_init) {
            RvRender(RV_RENDER_MODE_SETUP); // refuses to destroy nodes
        } else {
            hooks->hooks.rendering = [] { return true; };
            prepare();
            EXPECT_FALSE(isHit(down()));
            hooks->hooks.rendering = RvRendering;
        }
        for (const char* name : parts) {
            const RtNode* const node = RvNodeLookUpByName(name);
            ASSERT_TRUE(node) << name;
            EXPECT_EQ(node->creator, proc) << name;
            EXPECT_TRUE(rv::isLeftover(node)) << name;
        }
        EXPECT_EQ(RvUniverseGetNumLights(), 0);
        prepare();
        EXPECT_FALSE(isHit(down()));
        const std::string text = writtenText();
        for (const char* name : parts)
            EXPECT_EQ(text.find(formatted(" name %s\n", name)), text.npos) << name;
        RvNodeDestroy(proc);
        prepare();
        EXPECT_FALSE(isHit(down())) << "nor does it show when its creator goes";
        startAnew();
        set("abort_on_error", false);
        set("preserve_scene_data", true);
    }
}

// ---- Many threads ----

namespace {
class ConcurrentProcScene : public image_tools::Image {
protected:
    void TearDown() override
    {
        Image::TearDown();
        std::filesystem::remove_all(sceneFolder());
    }
};
} // namespace

TEST_F(ConcurrentProcScene, concurrent_rays_load_scene_files_and_images_agree)
{
    std::vector<RtRGBA> image;
    for (const int threads : { 1, 8, 8 }) {
        startAnew();
        makeScene(48, 40);
        for (int i = 0; i < 9; ++i) {
            const std::string path = writeScene(
                formatted("%d.rvs", i),
                formatted("sphere\n{\n name ball%d\n radius 0.3\n shader local%d\n}\n"
                          "facing\n{\n name local%d\n}\npoint_light\n{\n name lamp%d\n}\n",
                          i, i, i, i));
            RtNode* const proc = sceneProcedural(formatted("p%d", i).c_str(), path, false);
            setBounds(proc, { -0.3f, -0.3f, -0.3f }, { 0.3f, 0.3f, 0.3f });
            shape_fixture::setMatrices(
                proc, { shape_fixture::translation(float(i % 3) - 1, float(i / 3) - 1, -2) });
        }
        set("bucket_size", 8);
        const std::vector<RtRGBA> now = imageOf(threads);
        EXPECT_EQ(missingPixels(), 0u);
        EXPECT_EQ(RvUniverseGetNumLights(), 9);
        if (image.empty())
            image = now;
        EXPECT_TRUE(areSame(now, image)) << threads;
    }
}
