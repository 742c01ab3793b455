// Procedurals: what they load from, when, whose their nodes are, and how they are traced.
#include "objects/proc.h"

#include "duration.h"
#include "image_tools.h"
#include "objects/listobj.h"
#include "rv_procedural.h"
#include "rv_scenefile.h"
#include "system/clock.h"
#include "test_plugins.h"
#include "trace_tools.h"

#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <thread>
#include <zlib.h>

using namespace trace_tools;
using node_tools::formatted;
using node_tools::named;

namespace {

// ---- User code ----

// What the function behind a "funcptr" does. One at a time, under the lock of all procedurals.
struct UserCode {
    std::string version = RV_VERSION;
    int init_result = 1;
    int count = 1;
    std::function<void(RtNode*)> on_init;
    std::function<RtNode*(RtNode* proc, int i)> make;
    int loads = 0, inits = 0, cleanups = 0, asked = 0;
};

UserCode& code()
{
    static UserCode all;
    return all;
}

int loadCode(RtProcVtable* vtable)
{
    ++code().loads;
    EXPECT_STREQ(vtable->version, "UNKNOWN VERSION");
    strcpy(vtable->version, code().version.c_str());
    vtable->Init = [](RtNode* node, void** user_ptr) {
        ++code().inits;
        *user_ptr = node;
        if (code().on_init)
            code().on_init(node);
        return code().init_result;
    };
    vtable->Cleanup = [](void*) { return ++code().cleanups; };
    vtable->NumNodes = [](void*) { return code().count; };
    vtable->GetNode = [](void* user_ptr, int i) -> RtNode* {
        ++code().asked;
        return code().make ? code().make(static_cast<RtNode*>(user_ptr), i) : nullptr;
    };
    return 1;
}

void setCode(RtNode* proc, RtProcLoaderFunc loader = loadCode)
{
    RvNodeSetPtr(proc, "funcptr", reinterpret_cast<void*>(loader));
}

std::string testFolder()
{
    const auto* const test = ::testing::UnitTest::GetInstance()->current_test_info();
    return ::testing::TempDir() + "proc." + test->name() + "." + std::to_string(getpid());
}

class Proc : public Traced {
protected:
    void SetUp() override
    {
        Traced::SetUp();
        code() = {};
        std::filesystem::remove_all(testFolder());
        std::filesystem::create_directories(testFolder());
    }
    void TearDown() override
    {
        rv::limitAllocations(-1);
        Traced::TearDown();
        code() = {};
        std::filesystem::remove_all(testFolder());
    }

    static std::string write(const std::string& name, const std::string& text)
    {
        const std::string path = testFolder() + "/" + name;
        std::ofstream(path) << text;
        return path;
    }
    static std::string library(const char* name)
    {
        return std::string(testPlugins()) + "/" + name + ".so";
    }

    // A procedural that waits for rays, with the given half size of its bounds.
    static RtNode* procedural(const char* name, float size = 10)
    {
        RtNode* const proc = named("procedural", name);
        RvNodeSetPnt(proc, "min", -size, -size, -size);
        RvNodeSetPnt(proc, "max", size, size, size);
        return proc;
    }
    static RtNode* procOfCode(const char* name, float size = 10)
    {
        RtNode* const proc = procedural(name, size);
        setCode(proc);
        return proc;
    }
    static RtNode* procOfFile(const char* name, const std::string& dso, bool at_init = true)
    {
        RtNode* const proc = procedural(name);
        RvNodeSetStr(proc, "dso", dso.c_str());
        RvNodeSetBool(proc, "load_at_init", at_init);
        return proc;
    }
    static RtNode* atInit(RtNode* proc)
    {
        RvNodeSetBool(proc, "load_at_init", true);
        return proc;
    }
    // Discs at heights 0, -1, ...; user code that makes them.
    static RtNode* makeDisc(RtNode* proc, int i)
    {
        return disc(formatted("%s.%d", RvNodeGetName(proc), i).c_str(), float(-i));
    }
    // Texts of all messages that begin with "[proc]", severities in front.
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
    static Names initialized(RtNode* proc)
    {
        messages().clear();
        rv::RvNodeInitialize(proc);
        return procLines();
    }
    static std::string boundsOf(const RtNode* node)
    {
        return shape_fixture::describe(rv::objectOf(node)->world_bbox);
    }
};

} // namespace

// ---- User code ----

TEST_F(Proc, a_function_creates_nodes_when_the_node_is_initialised)
{
    RtNode* const proc = atInit(procOfCode("p"));
    code().count = 3;
    code().make = [](RtNode* p, int i) { return i == 1 ? nullptr : makeDisc(p, i); };
    EXPECT_EQ(initialized(proc), (Names{ formatted("[proc] p: loading via function ptr=%p",
                                                   reinterpret_cast<void*>(&loadCode)),
                                         "[proc] p: loaded 2 nodes (2 objects)" }));
    EXPECT_EQ(code().inits, 1);
    EXPECT_EQ(code().asked, 3);
    EXPECT_EQ(code().cleanups, 1);
    for (const char* name : { "p.0", "p.2" }) {
        const RtNode* const node = RvNodeLookUpByName(name);
        ASSERT_TRUE(node) << name;
        EXPECT_EQ(node->creator, proc);
        EXPECT_TRUE(node->initialized);
        EXPECT_EQ(rv::objectOf(node)->scene_list, nullptr);
    }
    EXPECT_TRUE(rv::isLoadedProcedural(proc));
    EXPECT_EQ(rv::objectOf(proc)->kind, RV_KIND_PROCEDURAL);
    EXPECT_EQ(boundsOf(proc), "-1 -1 -2 -> 1 1 0");
}

TEST_F(Proc, messages_of_loading_are_for_debugging)
{
    rv::RvNodeInitialize(atInit(procOfCode("p")));
    int count = 0;
    for (const LoggedMessage& m : messages())
        if (m.text.rfind("[proc]", 0) == 0) {
            EXPECT_EQ(m.mask, RV_LOG_DEBUG);
            ++count;
        }
    EXPECT_EQ(count, 2);
}

TEST_F(Proc, what_one_thread_loads_is_indented)
{
    for (const int threads : { 1, 2 }) {
        set("threads", threads);
        int tab_inside = -1;
        code().on_init = [&](RtNode*) {
            RvMsgInfo("inside");
            tab_inside = messages().back().tab;
        };
        rv::RvNodeInitialize(atInit(procOfCode(threads == 1 ? "one" : "two")));
        EXPECT_EQ(tab_inside, threads == 1 ? 1 : 0);
        EXPECT_EQ(messages().back().tab, 0);
    }
}

TEST_F(Proc, the_function_wins_over_a_file)
{
    RtNode* const proc = atInit(procOfCode("p"));
    RvNodeSetStr(proc, "dso", "missing.obj");
    code().make = makeDisc;
    EXPECT_EQ(initialized(proc)[1],
              "W [proc] p: both 'dso' and 'funcptr' are set, defaulting to 'funcptr'");
    EXPECT_EQ(code().loads, 1);
    EXPECT_TRUE(RvNodeLookUpByName("p.0"));
}

TEST_F(Proc, versions_are_checked_when_the_option_says_so)
{
    static const struct {
        const char* version;
        bool strict, accepted;
    } cases[] = {
        { "3.3.6.0", true, true },          { "3.3.6.0", false, true },
        { "3.3.7.0", true, false },         { "3.3.7.0", false, true },
        { "4.3.0.0", true, false },         { "UNKNOWN VERSION", true, false },
        { "UNKNOWN VERSION", false, true },
    };
    int number = 0;
    for (const auto& c : cases) {
        set("strict_procedural_compatibility", c.strict);
        code() = {};
        code().version = c.version;
        code().make = makeDisc;
        const std::string name = formatted("p%d", number++);
        const Names lines = initialized(atInit(procOfCode(name.c_str())));
        EXPECT_EQ(code().inits, c.accepted) << c.version;
        EXPECT_EQ(code().cleanups, c.accepted) << c.version;
        if (!c.accepted) {
            EXPECT_EQ(lines[1], "E [proc] " + name +
                                    ": was compiled against non-compatible Ruvell " + c.version);
            EXPECT_EQ(lines[2], "[proc] " + name + ": loaded 0 nodes (0 objects)");
        }
        EXPECT_EQ(lines.size(), c.accepted ? 2u : 3u);
    }
}

TEST_F(Proc, a_failing_init_adopts_nothing)
{
    RtNode* const proc = atInit(procOfCode("p"));
    code().init_result = 0;
    code().make = makeDisc;
    const Names lines = initialized(proc);
    EXPECT_EQ(lines[1], "E [proc] p: error in user init from ");
    EXPECT_EQ(lines[2], "[proc] p: loaded 0 nodes (0 objects)");
    EXPECT_EQ(code().asked, 0);
    EXPECT_EQ(code().cleanups, 0);
    EXPECT_FALSE(RvNodeLookUpByName("p.0"));
    EXPECT_TRUE(rv::isLoadedProcedural(proc));
}

TEST_F(Proc, functions_that_a_loader_leaves_out_do_nothing)
{
    RtNode* const proc = atInit(procedural("p"));
    setCode(proc, [](RtProcVtable* vtable) {
        strcpy(vtable->version, RV_VERSION);
        return 1;
    });
    EXPECT_EQ(initialized(proc).back(), "[proc] p: loaded 0 nodes (0 objects)");
    RtNode* const partial = atInit(procedural("q"));
    setCode(partial, [](RtProcVtable* vtable) {
        memset(vtable->version, '3', sizeof vtable->version); // without an end
        memcpy(vtable->version, "3.3.6.", 6);
        vtable->NumNodes = [](void*) { return -5; };
        return 1;
    });
    EXPECT_EQ(initialized(partial).back(), "[proc] q: loaded 0 nodes (0 objects)");
}

TEST_F(Proc, nodes_of_other_kinds_are_adopted_too)
{
    RtNode* const proc = atInit(procOfCode("p"));
    static const char* const types[] = { "lambert", "point_light", "persp_camera", "disc" };
    code().count = 4;
    code().make = [](RtNode*, int i) { return named(types[i], types[i]); };
    EXPECT_EQ(initialized(proc).back(), "[proc] p: loaded 4 nodes (1 objects)");
    for (const char* type : types) {
        EXPECT_EQ(RvNodeLookUpByName(type)->creator, proc) << type;
        EXPECT_TRUE(RvNodeLookUpByName(type)->initialized) << type;
    }
    EXPECT_EQ(RvUniverseGetNumLights(), 1);
}

TEST_F(Proc, a_node_stays_with_its_first_creator)
{
    static RtNode* shared;
    shared = disc("shared", 0);
    code().make = [](RtNode*, int) { return shared; };
    RtNode* const first = atInit(procOfCode("first"));
    EXPECT_EQ(initialized(first).size(), 2u);
    EXPECT_EQ(initialized(atInit(procOfCode("second"))),
              (Names{ formatted("[proc] second: loading via function ptr=%p",
                                reinterpret_cast<void*>(&loadCode)),
                      "W [proc] second: node shared was already created by first -- ignoring",
                      "[proc] second: loaded 0 nodes (0 objects)" }));
    EXPECT_EQ(shared->creator, first);
}

TEST_F(Proc, the_same_node_twice_is_adopted_once)
{
    static RtNode* shared;
    shared = disc("shared", 0);
    code().count = 2;
    code().make = [](RtNode*, int) { return shared; };
    const Names lines = initialized(atInit(procOfCode("p")));
    EXPECT_EQ(lines[1], "W [proc] p: node shared was already created by p -- ignoring");
    EXPECT_EQ(lines[2], "[proc] p: loaded 1 nodes (1 objects)");
}

TEST_F(Proc, a_procedural_is_not_inside_of_itself)
{
    code().count = 2;
    code().make = [](RtNode* p, int i) { return i ? RvUniverseGetOptions() : p; };
    RtNode* const proc = atInit(procOfCode("p"));
    const Names lines = initialized(proc);
    EXPECT_EQ(lines[1], "W [proc] p: node p cannot be inside of itself -- ignoring");
    EXPECT_EQ(lines[2], "[proc] p: loaded 0 nodes (0 objects)");
    EXPECT_EQ(proc->creator, nullptr);
    EXPECT_EQ(RvUniverseGetOptions()->creator, nullptr) << "nor are the options created by it";
}

TEST_F(Proc, nodes_that_refer_to_later_ones_stay_inside)
{
    static RtNode* target;
    code().count = 2;
    code().on_init = [](RtNode*) { target = disc("target", 0); };
    code().make = [](RtNode*, int i) {
        return i ? target : instanceOf(target, "instance", shape_fixture::translation(5, 0, 0));
    };
    RtNode* const proc = atInit(procOfCode("p"));
    EXPECT_EQ(initialized(proc).back(), "[proc] p: loaded 2 nodes (2 objects)");
    EXPECT_EQ(rv::objectOf(target)->scene_list, nullptr);
    EXPECT_EQ(boundsOf(proc), "-1 -1 0 -> 6 1 0");
}

TEST_F(Proc, loading_time_is_counted_once_for_nested_procedurals)
{
    code().count = 1;
    code().on_init = [](RtNode*) { std::this_thread::sleep_for(std::chrono::milliseconds(20)); };
    code().make = [](RtNode* p, int) -> RtNode* {
        return strcmp(RvNodeGetName(p), "outer") ? nullptr : atInit(procOfCode("inner"));
    };
    const uint32_t start = rv::wallMilliseconds();
    rv::RvNodeInitialize(atInit(procOfCode("outer")));
    const uint32_t elapsed = rv::wallMilliseconds() - start;
    EXPECT_EQ(code().inits, 2);
    EXPECT_GE(rv::threadStats()->procedural_ms, 38);
    EXPECT_LE(rv::threadStats()->procedural_ms, elapsed) << "the inner one is in the outer one's";
}

namespace {

enum class Thrower { init, num_nodes, get_node, cleanup, initialize };
Thrower thrower;

int loadThrowing(RtProcVtable* vtable)
{
    loadCode(vtable);
    switch (thrower) {
    case Thrower::init:
        vtable->Init = [](RtNode*, void**) -> int { throw std::runtime_error("thrown"); };
        break;
    case Thrower::num_nodes:
        vtable->NumNodes = [](void*) -> int { throw std::runtime_error("thrown"); };
        break;
    case Thrower::get_node: vtable->GetNode = [](void*, int) -> RtNode* { throw 1; }; break;
    case Thrower::cleanup:
        vtable->Cleanup = [](void*) -> int {
            ++code().cleanups;
            throw 1;
        };
        break;
    case Thrower::initialize: break;
    }
    return 1;
}

} // namespace

TEST_F(Proc, exceptions_of_user_code_end_the_load_and_nothing_else)
{
    static const struct {
        Thrower thrower;
        const char* reason;
        int cleanups;
    } cases[] = {
        { Thrower::init, "thrown", 0 },
        { Thrower::num_nodes, "thrown", 1 },
        { Thrower::get_node, "unknown exception", 1 },
        { Thrower::cleanup, "unknown exception", 1 },
        { Thrower::initialize, "from Initialize", 1 },
    };
    static const RtCommonMethods common = {
        .Parameters = nullptr,
        .Initialize = [](RtNode*, void*) { throw std::runtime_error("from Initialize"); },
        .Update = nullptr,
        .Finish = nullptr,
    };
    static const RtNodeMethods methods = { &common, nullptr };
    for (const auto& c : cases) {
        code() = {};
        thrower = c.thrower;
        RvNodeInstall(RV_NODE_SHADER, RV_TYPE_RGB, "thrower", "", &methods, RV_VERSION);
        code().make = [](RtNode*, int) {
            return RvNode(thrower == Thrower::initialize ? "thrower" : "lambert");
        };
        RtNode* const proc = procedural("p");
        setCode(proc, loadThrowing);
        const Names lines = initialized(atInit(proc));
        EXPECT_NE(std::find(lines.begin(), lines.end(), std::string("E [proc] p: ") + c.reason),
                  lines.end())
            << c.reason;
        EXPECT_EQ(lines.back().rfind("[proc] p: loaded ", 0), 0u) << c.reason;
        EXPECT_EQ(code().cleanups, c.cleanups) << int(c.thrower);
        EXPECT_TRUE(rv::isLoadedProcedural(proc));
        EXPECT_EQ(rv::the_frame->msg->tab, 0);
        code() = {};
        code().make = makeDisc;
        EXPECT_EQ(initialized(atInit(procOfCode("next"))).back(),
                  "[proc] next: loaded 1 nodes (1 objects)");
        startAnew();
    }
}

// ---- Libraries ----

TEST_F(Proc, a_library_creates_nodes)
{
    RtNode* const proc = procOfFile("p", library("spheres"));
    RvNodeSetStr(proc, "data", "4");
    EXPECT_EQ(initialized(proc), (Names{ "[proc] p: loading " + library("spheres"),
                                         "[proc] p: loaded 4 nodes (4 objects)" }));
    EXPECT_EQ(boundsOf(proc), "-0.5 -0.5 -0.5 -> 3.5 0.5 0.5");
}

TEST_F(Proc, libraries_are_looked_for_in_the_search_path)
{
    for (const std::string& separator : { std::string(), std::string("/") }) {
        set("procedural_searchpath",
            (";;/nowhere;" + testFolder() + ";;" + testPlugins() + separator + ";").c_str());
        const std::string name = "p" + separator;
        RtNode* const proc = procOfFile(name.c_str(), "spheres.so");
        RvNodeSetStr(proc, "data", "2");
        EXPECT_EQ(initialized(proc).back(), "[proc] " + name + ": loaded 2 nodes (2 objects)");
    }
}

TEST_F(Proc, folders_too_long_for_the_search_are_skipped)
{
    static constexpr size_t longest = 1023;
    std::string folder = testFolder();
    while (longest - folder.size() > 202)
        folder += "/" + std::string(200, 'd');
    folder += "/" + std::string(longest - folder.size() - 1, 'd');
    ASSERT_EQ(folder.size(), longest);
    std::filesystem::create_directories(folder);
    std::filesystem::copy_file(library("spheres"), folder + "/far.so");
    set("procedural_searchpath", folder.c_str());
    EXPECT_EQ(initialized(procOfFile("p", "far.so")).size(), 2u);
    set("procedural_searchpath", (folder + "x").c_str());
    EXPECT_EQ(initialized(procOfFile("q", "far.so"))[1].rfind("E [proc] q: error reading", 0), 0u);
}

TEST_F(Proc, a_library_that_cannot_be_loaded_is_reported)
{
    const std::string path = testFolder() + "/missing.so";
    RtNode* const proc = procOfFile("p", path);
    EXPECT_EQ(initialized(proc),
              (Names{ "[proc] p: loading " + path,
                      "E [proc] p: error reading dynamic library from " + path + ": " + path +
                          ": cannot open shared object file: No such file or directory",
                      "[proc] p: loaded 0 nodes (0 objects)" }));
    EXPECT_EQ(initialized(procOfFile("q", ""))[1],
              "E [proc] q: error reading dynamic library from : no library named");
    set("procedural_searchpath", "/nowhere;/elsewhere");
    EXPECT_EQ(initialized(procOfFile("r", "missing"))[1],
              "E [proc] r: error reading dynamic library from missing: /elsewhere/missing.so: "
              "cannot open shared object file: No such file or directory");
}

TEST_F(Proc, a_library_without_a_loader_is_reported)
{
    const std::string path = library("nothing");
    EXPECT_EQ(initialized(procOfFile("p", path))[1],
              "E [proc] p: unable to get symbol from dynamic library " + path + ": " + path +
                  ": undefined symbol: ProcLoader");
}

TEST_F(Proc, libraries_stay_until_the_end_of_the_universe)
{
    const auto isInProcess = [](const std::string& path) {
        void* const handle = dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD);
        if (handle)
            dlclose(handle);
        return handle != nullptr;
    };
    static const struct {
        bool unload_plugins, unload_dso, stays;
    } cases[] = { { true, true, false }, { true, false, true }, { false, true, true } };
    for (const auto& c : cases) {
        const std::string path =
            testFolder() + formatted("/%d%d.so", c.unload_plugins, c.unload_dso);
        std::filesystem::copy_file(library("spheres"), path);
        for (const char* name : { "p", "q" }) {
            RtNode* const proc = procOfFile(name, path);
            RvNodeSetBool(proc, "unload_dso", c.unload_dso);
            rv::RvNodeInitialize(proc);
        }
        EXPECT_TRUE(isInProcess(path));
        set("unload_plugins", c.unload_plugins);
        const RtMsgCallback recorder = rv::the_frame->msg->callback;
        messages().clear();
        hooks.reset();
        RvEnd();
        const std::string kept =
            "skipping procedural unloading of \"" + path + "\" because unload_plugins=FALSE";
        int count = 0;
        for (const LoggedMessage& m : messages())
            if (m.text == kept) {
                EXPECT_EQ(m.mask, 0x48);
                ++count;
            }
        EXPECT_EQ(count, !c.unload_plugins) << "once for two procedurals";
        EXPECT_EQ(isInProcess(path), c.stays);
        RvBegin();
        RvMsgSetConsoleFlags(RV_LOG_ALL & ~(RV_LOG_TIMESTAMP | RV_LOG_MEMORY));
        RvMsgSetCallback(recorder);
    }
}

// ---- Files ----

static const char square[] = "g one\nv -1 -1 0\nv 1 -1 0\nv 1 1 0\nv -1 1 0\nf 1 2 3 4\n"
                             "g two\nv -1 -1 -2\nv 1 -1 -2\nv 1 1 -2\nf 5 6 7\n";

TEST_F(Proc, an_obj_file_gives_a_mesh_per_group)
{
    for (const char* file : { "a.obj", "B.OBJ" }) {
        RtNode* const proc = procOfFile(file, write(file, square));
        EXPECT_EQ(initialized(proc),
                  (Names{ "[proc] " + std::string(file) + ": loading " + testFolder() + "/" + file,
                          "[proc] " + std::string(file) + ": loaded 2 nodes (2 objects)" }));
        EXPECT_EQ(RvNodeLookUpByName("one")->creator->entry->name, std::string("procedural"));
        for (const char* name : { "one", "two" })
            RvNodeDestroy(RvNodeLookUpByName(name));
    }
}

TEST_F(Proc, a_compressed_obj_file_is_one_too)
{
    const std::string path = testFolder() + "/a.obj.gz";
    const gzFile file = gzopen(path.c_str(), "wb");
    gzputs(file, square);
    gzclose(file);
    EXPECT_EQ(initialized(procOfFile("p", path)).back(), "[proc] p: loaded 2 nodes (2 objects)");
}

TEST_F(Proc, files_have_no_use_for_user_data)
{
    RtNode* const proc = procOfFile("p", write("a.obj", square));
    RvNodeSetStr(proc, "data", "text");
    EXPECT_EQ(initialized(proc)[1], "W [proc] p: user data will be ignored");
    RtNode* const scene = procOfFile("q", testFolder() + "/missing.rvs");
    RvNodeSetStr(scene, "data", "text");
    EXPECT_EQ(initialized(scene)[1], "W [proc] q: user data will be ignored");
}

TEST_F(Proc, a_file_that_cannot_be_read_adopts_nothing)
{
    for (const char* name : { "missing.obj", "missing.rvs", "missing.rvs.gz", "MISSING.RVS" }) {
        RtNode* const proc = procOfFile(name, testFolder() + "/" + name);
        const std::string text = name;
        EXPECT_EQ(initialized(proc).back(), "[proc] " + text + ": loaded 0 nodes (0 objects)");
        EXPECT_TRUE(rv::isLoadedProcedural(proc));
    }
}

// ---- Bounds ----

TEST_F(Proc, without_bounds_it_is_left_out)
{
    for (const char* corner : { "min", "max", "" }) {
        RtNode* const proc = named("procedural", formatted("p%s", corner).c_str());
        setCode(proc);
        if (*corner)
            RvNodeSetPnt(proc, corner, 0, 0, 0);
        EXPECT_EQ(initialized(proc),
                  (Names{ formatted("W [proc] missing bounds on p%s", corner) }));
        EXPECT_EQ(proc->local_data, nullptr);
        EXPECT_FALSE(rv::isLoadedProcedural(proc));
    }
    EXPECT_EQ(code().loads, 0);
}

TEST_F(Proc, empty_bounds_on_any_axis_leave_it_out)
{
    for (int axis = 0; axis < 3; ++axis) {
        RtNode* const proc = procOfCode(formatted("p%d", axis).c_str());
        RvNodeSetPnt(proc, "max", axis == 0 ? -11.f : 1.f, axis == 1 ? -11.f : 1.f,
                     axis == 2 ? -11.f : 1.f);
        EXPECT_EQ(initialized(proc), (Names{ formatted("W [proc] empty bounds on p%d", axis) }));
        EXPECT_EQ(proc->local_data, nullptr);
    }
    RtNode* const flat = procOfCode("flat", 0);
    EXPECT_EQ(initialized(flat), Names{});
    EXPECT_TRUE(flat->local_data) << "flat bounds are not empty";
}

TEST_F(Proc, waiting_for_a_ray_only_its_bounds_are_known)
{
    RtNode* const proc = procOfCode("p", 3);
    EXPECT_EQ(initialized(proc), Names{});
    EXPECT_EQ(code().loads, 0);
    EXPECT_FALSE(rv::isLoadedProcedural(proc));
    EXPECT_EQ(boundsOf(proc), "-3 -3 -3 -> 3 3 3");
    EXPECT_TRUE(rv::objectOf(proc)->scene_list);
}

TEST_F(Proc, bounds_that_do_not_fit_are_reported_after_loading)
{
    static const struct {
        const char* name;
        float size;
        const char* text;
    } cases[] = {
        { "small", 0.5f,
          "W [proc] small: incorrect user bounds! given: (-0.5, -0.5, -0.5) to (0.5, 0.5, 0.5), "
          "generated: (-1, -1, 0) to (1, 1, 0)" },
        { "large", 100, "W [proc] large: poor user bounds! hit probability = 0.000" },
    };
    code().make = makeDisc;
    for (const auto& c : cases) {
        RtNode* const proc = procOfCode(c.name, c.size);
        rv::RvNodeInitialize(proc);
        messages().clear();
        RvGObjectBuildAccel(proc, 0);
        const Names lines = procLines();
        EXPECT_EQ(lines.size(), 3u);
        EXPECT_EQ(lines[1], c.text);
    }
    EXPECT_EQ(rv::threadStats()->poor_bounds_procedural, 1u);
}

// ---- On demand ----

TEST_F(Proc, the_first_ray_inside_the_bounds_loads_it)
{
    RtNode* const proc = procOfCode("p", 2);
    code().count = 2;
    code().make = makeDisc;
    prepare();
    messages().clear();
    RtRay beside = down();
    beside.origin.x = 3;
    EXPECT_FALSE(isHit(beside));
    EXPECT_EQ(code().loads, 0);
    EXPECT_EQ(namesHit(down()), (Names{ "p.0" }));
    EXPECT_EQ(code().loads, 1);
    EXPECT_TRUE(rv::isLoadedProcedural(proc));
    EXPECT_EQ(procLines().back(), "[proc] p: loaded 2 nodes (2 objects)");
    EXPECT_EQ(namesHit(down()), (Names{ "p.0" }));
    prepare();
    EXPECT_EQ(firstHit(rayFrom(-0.5f)), "p.1");
    EXPECT_EQ(code().loads, 1) << "never twice";
}

TEST_F(Proc, nodes_made_for_a_ray_are_initialised_and_updated)
{
    static const RtCommonMethods common = {
        .Parameters = nullptr,
        .Initialize =
            [](RtNode*, void*) {
                messages().push_back({ 0, 0, "initialize", 0 });
            },
        .Update =
            [](RtNode*, void*) {
                messages().push_back({ 0, 0, "update", 0 });
            },
        .Finish = nullptr,
    };
    static const RtNodeMethods methods = { &common, nullptr };
    RvNodeInstall(RV_NODE_SHADER, RV_TYPE_RGB, "witness", "", &methods, RV_VERSION);
    const auto calls = [] {
        Names names;
        for (const LoggedMessage& m : messages())
            if (m.text == "initialize" || m.text == "update")
                names.push_back(m.text);
        return names;
    };
    code().make = [](RtNode*, int) { return RvNode("witness"); };
    rv::RvNodeInitialize(atInit(procOfCode("early")));
    EXPECT_EQ(calls(), (Names{ "initialize" })) << "the update of the render is to come";
    procOfCode("late");
    prepare();
    messages().clear();
    isHit(down());
    EXPECT_EQ(calls(), (Names{ "initialize", "update" }));
    // So are the nodes of what loads at once inside.
    code().make = [](RtNode* p, int) {
        return strcmp(RvNodeGetName(p), "outer") ? RvNode("witness") : atInit(procOfCode("inner"));
    };
    startAnew();
    RvNodeInstall(RV_NODE_SHADER, RV_TYPE_RGB, "witness", "", &methods, RV_VERSION);
    code().make = [](RtNode* p, int) {
        return strcmp(RvNodeGetName(p), "outer") ? RvNode("witness") : atInit(procOfCode("inner"));
    };
    procOfCode("outer");
    prepare();
    messages().clear();
    isHit(down());
    EXPECT_EQ(calls(), (Names{ "initialize", "update" }));
}

TEST_F(Proc, a_failed_one_is_empty_for_every_ray)
{
    procOfCode("p");
    code().init_result = 0;
    prepare();
    EXPECT_FALSE(isHit(down()));
    EXPECT_FALSE(isHit(down()));
    EXPECT_EQ(code().loads, 1);
}

TEST_F(Proc, rays_of_the_code_that_loads_pass_through_it)
{
    procOfCode("p");
    code().on_init = [](RtNode*) { EXPECT_FALSE(isHit(down())); };
    code().make = makeDisc;
    prepare();
    EXPECT_TRUE(isHit(down()));
    EXPECT_EQ(code().loads, 1);
}

TEST_F(Proc, what_sticks_out_of_the_bounds_never_shows)
{
    RtNode* const proc = procOfCode("p", 0.5f);
    code().make = makeDisc; // of radius 1
    prepare();
    RtRay outside = down();
    outside.origin.x = 0.75f;
    EXPECT_FALSE(isHit(outside));
    EXPECT_TRUE(isHit(down()));
    EXPECT_FALSE(isHit(outside)) << "whichever ray came first";
    EXPECT_TRUE(rv::isLoadedProcedural(proc));
}

TEST_F(Proc, its_matrix_moves_everything_inside)
{
    for (const bool at_init : { true, false }) {
        RtNode* const proc = procOfCode("p", 2);
        RvNodeSetBool(proc, "load_at_init", at_init);
        shape_fixture::setMatrices(proc, { shape_fixture::translation(5, 0, 3) });
        code().make = makeDisc;
        prepare();
        RtRay ray = down();
        EXPECT_FALSE(isHit(ray));
        ray.origin.x = 5;
        const std::vector<RtHit> hits = hitsOf(ray);
        ASSERT_EQ(hits.size(), 1u);
        EXPECT_EQ(hits[0].t, 7);
        ASSERT_TRUE(hits[0].matrix);
        EXPECT_EQ(hits[0].matrix->m[3][0], 5);
        startAnew();
        code() = {};
    }
}

TEST_F(Proc, instances_load_and_share_it)
{
    RtNode* const proc = procOfCode("p", 2);
    RvNodeSetInt(proc, "visibility", 0);
    for (const auto& [x, name] : { std::pair(5.f, "i"), std::pair(-5.f, "j") })
        RvNodeSetInt(instanceOf(proc, name, shape_fixture::translation(x, 0, 0)), "visibility",
                     RV_RAY_ALL);
    code().make = makeDisc;
    prepare();
    EXPECT_FALSE(isHit(down()));
    EXPECT_EQ(code().loads, 0);
    for (const auto& [x, name] : { std::pair(5.f, "i"), std::pair(-5.f, "j") }) {
        RtRay ray = down();
        ray.origin.x = x;
        EXPECT_EQ(namesHit(ray), (Names{ name }));
    }
    EXPECT_EQ(code().loads, 1);
}

TEST_F(Proc, moving_children_are_optimised_like_those_of_lists)
{
    RtNode* const proc = atInit(procOfCode("p"));
    code().count = 2;
    code().make = [](RtNode* p, int i) {
        RtNode* const node = makeDisc(p, i);
        shape_fixture::setMatrices(
            node, { shape_fixture::translation(0, 0, 0), shape_fixture::translation(1, 0, 0) });
        return node;
    };
    messages().clear();
    rv::RvNodeInitialize(proc);
    const auto found =
        std::find_if(messages().begin(), messages().end(), [](const LoggedMessage& m) {
            return m.text == "[obj] optimizing motion in object list for 2 keys (2 objects "
                             "transforming, 0 deforming, 2 total)";
        });
    EXPECT_NE(found, messages().end());
    EXPECT_EQ(rv::the_frame->stats[rv::host_stats_slot]->geometry[RV_GEOMETRY_PROCS].objects, 1u);
}

TEST_F(Proc, children_are_counted_as_those_of_procedurals_and_given_back)
{
    RtNode* const proc = atInit(procOfCode("p"));
    code().count = 3;
    code().make = makeDisc;
    const RtStats& stats = *rv::the_frame->stats[rv::host_stats_slot];
    const RtGeometryCount lists_before = stats.geometry[RV_GEOMETRY_LISTS];
    rv::RvNodeInitialize(proc);
    const RtGeometryCount& procs = stats.geometry[RV_GEOMETRY_PROCS];
    EXPECT_EQ(stats.procedural_children.total, 3u);
    EXPECT_EQ(procs.initial_bytes, int64_t(3 * sizeof(RtGObject*)));
    RvNodeDestroy(proc);
    EXPECT_EQ(procs.freed_bytes, procs.initial_bytes);
    EXPECT_EQ(stats.geometry[RV_GEOMETRY_LISTS].initial_bytes, lists_before.initial_bytes);
    EXPECT_EQ(stats.geometry[RV_GEOMETRY_LISTS].freed_bytes, lists_before.freed_bytes);
}

// ---- Nesting ----

TEST_F(Proc, procedurals_may_create_procedurals)
{
    for (const bool inner_at_init : { true, false }) {
        code() = {};
        code().make = [=](RtNode* p, int i) {
            if (!strcmp(RvNodeGetName(p), "inner"))
                return makeDisc(p, i);
            RtNode* const inner = procOfCode("inner", 4);
            RvNodeSetBool(inner, "load_at_init", inner_at_init);
            shape_fixture::setMatrices(inner, { shape_fixture::translation(0, 0, 1) });
            return inner;
        };
        RtNode* const outer = procOfCode("outer");
        shape_fixture::setMatrices(outer, { shape_fixture::translation(0, 0, 1) });
        prepare();
        const std::vector<RtHit> hits = hitsOf(down());
        ASSERT_EQ(hits.size(), 1u) << inner_at_init;
        EXPECT_EQ(hits[0].t, 8);
        EXPECT_STREQ(RvNodeGetName(hits[0].object->node), "inner.0");
        EXPECT_EQ(code().loads, 2);
        startAnew();
    }
}

TEST_F(Proc, nesting_comes_to_an_end)
{
    for (const bool at_init : { true, false }) {
        code() = {};
        code().make = [=](RtNode*, int) {
            RtNode* const proc = procOfCode(formatted("p%d", code().loads).c_str());
            RvNodeSetBool(proc, "load_at_init", at_init);
            return proc;
        };
        RvNodeSetBool(procOfCode("p0"), "load_at_init", at_init);
        set("abort_on_error", false);
        prepare();
        EXPECT_FALSE(isHit(down()));
        EXPECT_EQ(code().loads, 64);
        int count = 0;
        for (const LoggedMessage& m : messages())
            count += m.text == "[proc] p64: more than 64 procedurals are inside each other";
        EXPECT_EQ(count, 1);
        startAnew();
    }
}

TEST_F(Proc, rings_through_instances_are_broken)
{
    // Each procedural holds an instance of the other, or of itself.
    for (const bool is_own : { true, false }) {
        code() = {};
        code().make = [=](RtNode* p, int) {
            const std::string other = is_own || !strcmp(RvNodeGetName(p), "q") ? "p" : "q";
            return instanceOf(RvNodeLookUpByName(other.c_str()),
                              formatted("in.%s", RvNodeGetName(p)).c_str(),
                              shape_fixture::translation(0.5f, 0, 0));
        };
        procOfCode("p");
        if (!is_own)
            procOfCode("q");
        prepare();
        messages().clear();
        EXPECT_FALSE(isHit(down()));
        Names warnings;
        for (const std::string& line : procLines())
            if (line[0] == 'W' && line.find("bounds") == line.npos)
                warnings.push_back(line);
        EXPECT_EQ(warnings.size(), 1u);
        EXPECT_NE(warnings.front().find(" leads back to the procedural -- ignoring"),
                  std::string::npos);
        startAnew();
    }
}

// ---- Life ----

TEST_F(Proc, edited_children_are_found_in_the_next_render)
{
    for (const bool at_init : { true, false }) {
        code() = {};
        RtNode* const proc = procOfCode("p");
        RvNodeSetBool(proc, "load_at_init", at_init);
        code().make = makeDisc;
        prepare();
        EXPECT_EQ(firstHit(down()), "p.0");
        shape_fixture::setMatrices(RvNodeLookUpByName("p.0"),
                                   { shape_fixture::translation(5, 0, 0) });
        prepare();
        EXPECT_FALSE(isHit(down()));
        RtRay ray = down();
        ray.origin.x = 5;
        EXPECT_TRUE(isHit(ray)) << at_init;
        EXPECT_EQ(code().loads, 1);
        startAnew();
    }
}

TEST_F(Proc, edited_children_of_children_are_found_too)
{
    code().make = [](RtNode* p, int i) {
        return strcmp(RvNodeGetName(p), "outer") ? makeDisc(p, i) : atInit(procOfCode("inner"));
    };
    atInit(procOfCode("outer"));
    prepare();
    EXPECT_EQ(firstHit(down()), "inner.0");
    shape_fixture::setMatrices(RvNodeLookUpByName("inner.0"),
                               { shape_fixture::translation(5, 0, 0) });
    prepare();
    EXPECT_FALSE(isHit(down()));
    RtRay ray = down();
    ray.origin.x = 5;
    EXPECT_TRUE(isHit(ray));
}

TEST_F(Proc, destroyed_children_are_no_longer_hit)
{
    procOfCode("p");
    code().count = 2;
    code().make = makeDisc;
    prepare();
    EXPECT_EQ(firstHit(down()), "p.0");
    RvNodeDestroy(RvNodeLookUpByName("p.0"));
    prepare();
    EXPECT_EQ(firstHit(down()), "p.1");
    RvNodeDestroy(RvNodeLookUpByName("p.1"));
    prepare();
    EXPECT_FALSE(isHit(down()));
}

TEST_F(Proc, nodes_outlive_their_creator_without_pointing_to_it)
{
    RtNode* const proc = procOfCode("p");
    RtNode* const instance = instanceOf(proc, "i", shape_fixture::translation(5, 0, 0));
    code().make = makeDisc;
    prepare();
    EXPECT_TRUE(isHit(down()));
    RvNodeDestroy(proc);
    ASSERT_TRUE(RvNodeLookUpByName("p.0"));
    EXPECT_EQ(RvNodeLookUpByName("p.0")->creator, nullptr);
    EXPECT_EQ(instance->local_data, nullptr);
    prepare();
    EXPECT_FALSE(isHit(down()));
}

TEST_F(Proc, nodes_made_for_the_scene_wait_for_the_update_of_the_render)
{
    static int updates;
    updates = 0;
    static const RtCommonMethods common = {
        .Parameters = nullptr,
        .Initialize = nullptr,
        .Update = [](RtNode*, void*) { ++updates; },
        .Finish = nullptr,
    };
    static const RtNodeMethods methods = { &common, nullptr };
    RvNodeInstall(RV_NODE_SHADER, RV_TYPE_RGB, "witness", "", &methods, RV_VERSION);
    set("preserve_scene_data", true);
    code().make = [](RtNode*, int) { return RvNode("witness"); };
    RtNode* const proc = procOfCode("p");
    rv::RvNodeInitialize(proc);
    const std::string path = testFolder() + "/out.rvs";
    EXPECT_EQ(RvRVSWrite(path.c_str(), RV_NODE_ALL, true), 0);
    EXPECT_TRUE(rv::isLoadedProcedural(proc));
    EXPECT_EQ(code().loads, 1);
    EXPECT_EQ(updates, 0);
    procOfCode("q");
    prepare();
    updates = 0;
    isHit(down());
    EXPECT_EQ(updates, 1) << "a ray comes after that update";
}

TEST_F(Proc, a_scene_that_was_written_is_expanded_only)
{
    rv::the_frame->scene->consumed = true;
    RtNode* const proc = atInit(procOfCode("p"));
    code().make = makeDisc;
    EXPECT_EQ(initialized(proc).back(), "[proc] p: loaded 1 nodes (0 objects)");
    const RtNode* const node = RvNodeLookUpByName("p.0");
    EXPECT_EQ(node->creator, proc);
    EXPECT_FALSE(node->initialized);
    EXPECT_EQ(code().cleanups, 1);
    ASSERT_TRUE(rv::isLoadedProcedural(proc)) << "with an empty list";
    EXPECT_EQ(rv::objectOf(proc)->visibility, 0);
    EXPECT_NE(RvNodeGetInt(proc, "visibility"), 0);
    set("preserve_scene_data", true);
    code().make = [](RtNode*, int) { return disc("kept", 0); };
    EXPECT_EQ(initialized(atInit(procOfCode("q"))).back(), "[proc] q: loaded 1 nodes (1 objects)");
}

TEST_F(Proc, an_exhausted_heap_does_no_harm)
{
    const std::string path = write("a.obj", square);
    for (int allowed = 0; allowed < 120; allowed += 1) {
        RtNode* const proc = procOfFile(formatted("p%d", allowed).c_str(), path, allowed % 2);
        rv::limitAllocations(allowed);
        rv::RvNodeInitialize(proc);
        if (proc->local_data)
            RvGObjectBuildAccel(proc, 0);
        rv::limitAllocations(-1);
        RvNodeDestroy(proc);
        for (const RtListNode* e = RvListHead(rv::the_frame->scene->nodes); e; e = e->next)
            EXPECT_EQ(static_cast<RtNode*>(e->data)->creator, nullptr) << allowed;
    }
    RtNode* const proc = procOfFile("whole", path);
    EXPECT_EQ(initialized(proc).back(), "[proc] whole: loaded 2 nodes (2 objects)");
}

// ---- Many threads ----

namespace {

// Makes spheres around its place; the more nodes, the longer it takes.
int loadCluster(RtProcVtable* vtable)
{
    strcpy(vtable->version, RV_VERSION);
    vtable->Init = [](RtNode* node, void** user_ptr) {
        *user_ptr = node;
        return 1;
    };
    vtable->NumNodes = [](void*) { return 30; };
    vtable->GetNode = [](void* user_ptr, int i) -> RtNode* {
        const RtNode* const proc = static_cast<const RtNode*>(user_ptr);
        if (i == 28 && proc->creator)
            return nullptr;
        RtNode* const node = RvNode(i == 29 ? "point_light" : i == 28 ? "procedural" : "sphere");
        if (i == 28) {
            RvNodeSetPnt(node, "min", -0.3f, -0.3f, -0.3f);
            RvNodeSetPnt(node, "max", 0.3f, 0.3f, 0.3f);
            RvNodeSetPtr(node, "funcptr", reinterpret_cast<void*>(loadCluster));
        } else if (i < 28) {
            const float t = float(i);
            const RtPoint center = { 0.4f * sinf(t), 0.4f * cosf(t), 0.2f * sinf(3 * t) };
            RvNodeSetArray(node, "center", RvArray(1, 1, RV_TYPE_POINT, center));
            RvNodeSetArray(node, "radius", RvArray(1, 1, RV_TYPE_FLOAT, 0.08));
            RvNodeSetPtr(node, "shader", RvNodeLookUpByName("shader"));
        }
        return node;
    };
    return 1;
}

class ConcurrentProc : public image_tools::Image {
protected:
    static void makeClusters()
    {
        makeScene(48, 40);
        for (int i = 0; i < 16; ++i) {
            RtNode* const proc = RvNode("procedural");
            setCode(proc, loadCluster);
            RvNodeSetPnt(proc, "min", -0.5f, -0.5f, -0.5f);
            RvNodeSetPnt(proc, "max", 0.5f, 0.5f, 0.5f);
            shape_fixture::setMatrices(
                proc, { shape_fixture::translation(float(i % 4) - 1.5f, float(i / 4) - 1.5f, -3) });
        }
        set("bucket_size", 8);
    }
};

} // namespace

TEST_F(ConcurrentProc, concurrent_rays_load_procedurals_and_images_agree)
{
    std::vector<RtRGBA> image;
    for (const int threads : { 1, 8, 8, 3 }) {
        startAnew();
        makeClusters();
        const std::vector<RtRGBA> now = imageOf(threads);
        EXPECT_EQ(missingPixels(), 0u);
        EXPECT_GT(sumOf([](const RtStats& s) { return s.geometry[RV_GEOMETRY_PROCS].objects; }),
                  16);
        if (image.empty())
            image = now;
        EXPECT_TRUE(areSame(now, image)) << threads;
    }
    EXPECT_TRUE(areSame(imageOf(8), image)) << "and so does the next render";
}

namespace {

// The number of a procedural of the test below.
int numberOf(const RtNode* proc) { return atoi(RvNodeGetName(proc) + 1); }

// Spheres, and instances of the procedurals of lower numbers, which are loaded or about to be.
int loadCrossing(RtProcVtable* vtable)
{
    strcpy(vtable->version, RV_VERSION);
    vtable->Init = [](RtNode* node, void** user_ptr) {
        *user_ptr = node;
        return 1;
    };
    vtable->NumNodes = [](void*) { return 40; };
    vtable->GetNode = [](void* user_ptr, int i) -> RtNode* {
        const RtNode* const proc = static_cast<const RtNode*>(user_ptr);
        const float t = float(i);
        if (const int other = numberOf(proc) - 1 - i; other >= 0 && i < 2) {
            RtNode* const instance = RvNode("ginstance");
            RvNodeSetPtr(instance, "node", RvNodeLookUpByName(formatted("p%d", other).c_str()));
            RvNodeSetBool(instance, "inherit_xform", false);
            shape_fixture::setMatrices(instance, { shape_fixture::translation(0.1f * t, 0.1f, 0) });
            return instance;
        }
        RtNode* const node = RvNode("sphere");
        const RtPoint center = { 0.4f * sinf(t), 0.4f * cosf(t), 0.2f * sinf(3 * t) };
        RvNodeSetArray(node, "center", RvArray(1, 1, RV_TYPE_POINT, center));
        RvNodeSetArray(node, "radius", RvArray(1, 1, RV_TYPE_FLOAT, 0.05));
        RvNodeSetPtr(node, "shader", RvNodeLookUpByName("shader"));
        return node;
    };
    return 1;
}

} // namespace

// One thread looks through the lists of loaded procedurals while others sort these.
TEST_F(ConcurrentProc, concurrent_loads_look_through_each_other)
{
    std::vector<RtRGBA> image;
    for (const int threads : { 1, 8, 8, 8 }) {
        startAnew();
        makeScene(48, 40);
        for (int i = 0; i < 16; ++i) {
            RtNode* const proc = named("procedural", formatted("p%d", i).c_str());
            setCode(proc, loadCrossing);
            RvNodeSetPnt(proc, "min", -0.8f, -0.8f, -0.8f);
            RvNodeSetPnt(proc, "max", 0.8f, 0.8f, 0.8f);
            shape_fixture::setMatrices(
                proc, { shape_fixture::translation(float(i % 4) - 1.5f, float(i / 4) - 1.5f, -3) });
        }
        set("bucket_size", 8);
        const std::vector<RtRGBA> now = imageOf(threads);
        EXPECT_EQ(missingPixels(), 0u);
        if (image.empty())
            image = now;
        EXPECT_TRUE(areSame(now, image)) << threads;
    }
}
