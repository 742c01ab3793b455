// Plug-in libraries: loading, refusal, metadata and what becomes of them at the end.
#include "plugins.h"

#include "counters.h"
#include "golden.h"
#include "nodes.h"
#include "render_tools.h"
#include "system/memory.h"
#include "test_plugins.h"
#include "version.h"

#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <stdlib.h>

namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

const std::string version_variable = "RUVELL_DISABLE_NODE_VERSION_CHECK";

class Plugins : public Universe {
protected:
    void SetUp() override
    {
        Universe::SetUp();
        fs::remove_all(folder());
        fs::create_directories(folder());
        unsetenv(version_variable.c_str());
    }
    void TearDown() override
    {
        Universe::TearDown();
        fs::remove_all(folder());
        unsetenv(version_variable.c_str());
    }

    static std::string folder()
    {
        const auto* const test = ::testing::UnitTest::GetInstance()->current_test_info();
        return ::testing::TempDir() + "plugins." + test->name() + "." + std::to_string(getpid());
    }
    static std::string library(const std::string& name)
    {
        return std::string(testPlugins()) + "/" + name + ".so";
    }
    // A copy of a library under the folder of this test.
    static std::string install(const std::string& name, const std::string& place)
    {
        const fs::path path = fs::path(folder()) / place;
        fs::create_directories(path.parent_path());
        fs::copy_file(library(name), path);
        return path;
    }
    static std::string write(const std::string& place, const std::string& text)
    {
        const std::string path = folder() + "/" + place;
        std::ofstream(path) << text;
        return path;
    }

    // "tab text" of each message since the last call; durations become "*".
    static Lines takeLines()
    {
        static const char* const marks[] = { "", "W ", "E ", "F " };
        Lines lines;
        for (const LoggedMessage& m : messages()) {
            std::string line = std::to_string(m.tab) + " " + marks[m.severity] + m.text;
            const size_t duration = line.find(" in 0:");
            if (duration != line.npos)
                line = line.substr(0, duration + 4) + '*';
            lines.push_back(line);
        }
        messages().clear();
        return lines;
    }
    static Lines loading(const std::string& path)
    {
        messages().clear();
        RvLoadPlugin(path.c_str());
        return takeLines();
    }
    static Lines loadingFolders(const std::string& folders)
    {
        messages().clear();
        RvLoadPlugins(folders.c_str());
        return takeLines();
    }
    static bool isInstalled(const char* type) { return RvNodeEntryLookUp(type); }
    static bool isInProcess(const std::string& path)
    {
        void* const handle = dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD);
        if (handle)
            dlclose(handle);
        return handle;
    }
    static Lines ending(bool unload)
    {
        RvNodeSetBool(RvUniverseGetOptions(), "unload_plugins", unload);
        messages().clear();
        callback() = rv::the_frame->msg->callback;
        RvEnd();
        return takeLines();
    }
    // Another universe after ending().
    static void beginAnew()
    {
        RvBegin();
        RvMsgSetConsoleFlags(RV_LOG_ALL & ~(RV_LOG_TIMESTAMP | RV_LOG_MEMORY));
        RvMsgSetMaxWarnings(1000000);
        RvMsgSetCallback(callback());
        messages().clear();
    }

private:
    static RtMsgCallback& callback()
    {
        static RtMsgCallback last;
        return last;
    }
};

} // namespace

// ---- One library ----

TEST_F(Plugins, types_are_installed_in_the_order_of_their_list)
{
    const std::string path = library("good");
    const int before = RvGetNumInstalledNodes();
    RvLoadPlugin(path.c_str());
    for (const LoggedMessage& m : messages())
        EXPECT_EQ(m.mask, m.text.find("uses Ruvell") == m.text.npos ? RV_LOG_INFO : RV_LOG_PLUGINS)
            << m.text;
    EXPECT_EQ(takeLines(), (Lines{ "0 loading plugin: " + path + " ...",
                                   "0 " + path + ": good_shader uses Ruvell 3.3.6.0",
                                   "0 " + path + ": good_other uses Ruvell 3.3.6.0",
                                   "0 loaded 2 plugins in *" }));
    ASSERT_EQ(RvGetNumInstalledNodes(), before + 2);
    const RtNodeEntry* const entry = RvNodeEntryLookUpByIndex(before);
    EXPECT_STREQ(RvNodeEntryGetName(entry), "good_shader");
    EXPECT_EQ(RvNodeEntryGetFilename(entry), path);
    EXPECT_STREQ(RvNodeEntryGetVersion(entry), "3.3.6.0");
    EXPECT_EQ(RvNodeEntryGetType(entry), RV_NODE_SHADER);
    EXPECT_EQ(RvNodeEntryGetOutputType(entry), RV_TYPE_RGB);
    EXPECT_STREQ(RvNodeGetStr(RvNode("good_other"), "label"), "plain");
}

TEST_F(Plugins, libraries_are_recorded_in_the_order_of_loading)
{
    for (const char* name : { "other", "good" })
        RvLoadPlugin(library(name).c_str());
    const RtListNode* element = RvListHead(rv::the_frame->libraries);
    for (const char* name : { "other", "good" }) {
        ASSERT_TRUE(element);
        const RtLibrary& record = *static_cast<const RtLibrary*>(element->data);
        EXPECT_EQ(record.path, library(name));
        EXPECT_TRUE(dlsym(record.handle, "NodeLoader"));
        element = element->next;
    }
    EXPECT_FALSE(element);
}

TEST_F(Plugins, loading_a_path_again_does_nothing)
{
    const std::string path = library("good");
    RvLoadPlugin(path.c_str());
    const int installed = RvGetNumInstalledNodes();
    EXPECT_EQ(loading(path), (Lines{ "0 loading plugin: " + path + " ..." }));
    EXPECT_EQ(RvGetNumInstalledNodes(), installed);
    // Another name of the same file is another path; its types are there already.
    EXPECT_EQ(RvLoadPluginsFromLib((std::string(testPlugins()) + "/./good.so").c_str()), 2);
    EXPECT_EQ(takeProblems(), (Lines{ "node \"good_shader\" is already installed",
                                      "node \"good_other\" is already installed" }));
    EXPECT_EQ(RvGetNumInstalledNodes(), installed);
}

TEST_F(Plugins, the_time_counts_as_loading_plugins)
{
    EXPECT_EQ(rv::hostStats()->plugin_ms, 0);
    RvLoadPlugin(library("good").c_str()); // rests for 9 ms
    const int64_t one = rv::hostStats()->plugin_ms;
    EXPECT_GE(one, 8);
    install("other", "other.so");
    RvLoadPlugins(folder().c_str());
    EXPECT_GE(rv::hostStats()->plugin_ms, one + 8);
}

TEST_F(Plugins, what_cannot_be_opened_is_reported_in_the_words_of_the_system)
{
    const std::string missing = folder() + "/missing.so";
    EXPECT_EQ(loading(missing), (Lines{ "0 loading plugin: " + missing + " ...",
                                        "0 W unable to load dynamic library: " + missing +
                                            ": cannot open shared object file: No such file or "
                                            "directory",
                                        "0 no plugins loaded" }));
    const std::string text = write("text.so", "no library at all");
    EXPECT_EQ(loading(text)[1], "0 W unable to load dynamic library: " + text + ": file too short");
    EXPECT_EQ(loading("")[1], "0 W unable to load dynamic library: no library named");
    EXPECT_TRUE(RvListEmpty(rv::the_frame->libraries));
}

TEST_F(Plugins, a_library_without_a_loader_is_closed_again_in_silence)
{
    const std::string path = install("nothing", "nothing.so");
    EXPECT_EQ(loading(path),
              (Lines{ "0 loading plugin: " + path + " ...", "0 no plugins loaded" }));
    EXPECT_FALSE(isInProcess(path));
    EXPECT_TRUE(RvListEmpty(rv::the_frame->libraries));
}

TEST_F(Plugins, the_library_itself_is_skipped_under_each_of_its_names)
{
    for (const char* name : { "rv.so", "librv.so", "rv", "sub/rv.dll" })
        EXPECT_EQ(RvLoadPluginsFromLib(install("good", name).c_str()), 0) << name;
    EXPECT_EQ(RvLoadPluginsFromLib("c:\\plug-ins\\rv.dll"), 0);
    EXPECT_EQ(RvLoadPluginsFromLib("c:rv"), 0);
    EXPECT_EQ(takeProblem(), "");
    EXPECT_EQ(RvLoadPluginsFromLib(install("good", "rv.x.so").c_str()), 2);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Plugins, golden_names_that_are_skipped)
{
    for (const auto& v : goldenVectors("scenefile", "library_skipped_by_name")) {
        messages().clear();
        const std::string path = v.at("in").at("path");
        EXPECT_EQ(RvLoadPluginsFromLib(path.c_str()), 0);
        expectGolden(v, "value", takeProblem().empty()); // nothing was opened
    }
}

TEST_F(Plugins, nothing_happens_without_a_universe_or_a_path)
{
    RvLoadPlugin(nullptr);
    RvLoadPlugins(nullptr);
    EXPECT_TRUE(messages().empty());
    RvEnd();
    messages().clear();
    RvLoadPlugin(library("good").c_str());
    RvLoadPlugins(testPlugins());
    EXPECT_TRUE(messages().empty());
}

// ---- Versions ----

TEST_F(Plugins, versions_decide_which_libraries_are_accepted)
{
    static const struct {
        const char *name, *version;
        bool accepted;
    } cases[] = {
        { "good", "3.3.6.0", true },   { "other", "3.3.0.9", true },
        { "v3370", "3.3.7.0", false }, { "v3400", "3.4.0.0", false },
        { "v4300", "4.3.0.0", false }, { "unknown", "UNKNOWN VERSION", false },
    };
    for (const auto& c : cases) {
        const std::string path = library(c.name);
        const Lines lines = loading(path);
        const std::string type = std::string(c.name) + "_shader";
        EXPECT_EQ(isInstalled(type.c_str()), c.accepted) << c.name;
        if (c.accepted)
            EXPECT_EQ(lines.back(), "0 loaded 2 plugins in *");
        else
            EXPECT_EQ(lines, (Lines{ "0 loading plugin: " + path + " ...",
                                     "0 E " + path +
                                         " was compiled against non-compatible Ruvell " + c.version,
                                     "0 no plugins loaded" }));
        EXPECT_EQ(isInProcess(path), c.accepted) << c.name;
    }
    EXPECT_EQ(RvListSize(rv::the_frame->libraries), 2u);
}

TEST_F(Plugins, the_environment_can_switch_the_check_of_versions_off)
{
    setenv(version_variable.c_str(), "", 1); // set is enough
    for (const char* name : { "v3370", "v3400", "v4300", "unknown" })
        EXPECT_EQ(loading(library(name)).back(), "0 loaded 2 plugins in *") << name;
    EXPECT_EQ(takeProblem(), "");
    EXPECT_STREQ(RvNodeEntryGetVersion(RvNodeEntryLookUp("unknown_shader")), "UNKNOWN VERSION");
}

TEST_F(Plugins, types_before_an_incompatible_one_stay_and_work)
{
    const std::string path = install("mixed", "mixed.so");
    EXPECT_EQ(loading(path),
              (Lines{ "0 loading plugin: " + path + " ...",
                      "0 " + path + ": mixed_shader uses Ruvell 3.3.6.0",
                      "0 E " + path + " was compiled against non-compatible Ruvell 3.3.7.0",
                      "0 loaded 1 plugins in *" }));
    EXPECT_TRUE(isInstalled("mixed_shader"));
    EXPECT_FALSE(isInstalled("mixed_other"));
    RtNode* const node = RvNode("mixed_shader");
    rv::RvNodeInitialize(node);
    RvNodeDestroy(node); // runs code of the library
    EXPECT_EQ(takeLines().size(), 1u);
    // It is not in the list of loaded libraries, so it is tried anew.
    EXPECT_EQ(loading(path)[2], "0 W node \"mixed_shader\" is already installed");
    rv::RvNodeInitialize(node_tools::named("mixed_shader", "mine"));
    EXPECT_EQ(ending(true),
              (Lines{ "0 releasing resources", "1 mine is finished", "1 unloading 0 plugins",
                      "1 unloading plugins done", "0 Ruvell shutdown" }));
    EXPECT_FALSE(isInProcess(path));
}

TEST_F(Plugins, golden_version_texts)
{
    for (const auto& v : goldenVectors("scenefile", "version_text_accepted"))
        expectGolden(v, "value",
                     rv::acceptsVersion(v.at("in").at("version").get<std::string>().c_str()));
    EXPECT_FALSE(rv::acceptsVersion(""));
    EXPECT_FALSE(rv::acceptsVersion("3.3"));
    EXPECT_TRUE(rv::acceptsVersion("3.3.6"));
    EXPECT_FALSE(rv::acceptsVersion((std::string(1000, '3') + ".3.6").c_str()));
}

TEST_F(Plugins, golden_version_queries)
{
    for (const auto& v : goldenVectors("scenefile", "RvCheckAPIVersion")) {
        const auto text = [&](const char* key) { return v.at("in").at(key).get<std::string>(); };
        expectGolden(
            v, "value",
            RvCheckAPIVersion(text("arch").c_str(), text("major").c_str(), text("minor").c_str()));
    }
    for (const auto& v : goldenVectors("scenefile", "RvGetVersion")) {
        char arch[2], major[2], minor[2], fix[2];
        expectGolden(v, "value", RvGetVersion(arch, major, minor, fix));
        expectGolden(v, "arch", arch);
        expectGolden(v, "major", major);
        expectGolden(v, "minor", minor);
        expectGolden(v, "fix", fix);
    }
    for (const auto& v : goldenVectors("scenefile", "RvGetVersionInfo"))
        expectGolden(v, "value", RvGetVersionInfo());
}

// ---- Misbehaviour ----

TEST_F(Plugins, odd_types_do_no_harm)
{
    EXPECT_EQ(loading(library("odd")).back(), "0 loaded 18 plugins in *");
    RvLoadPlugin(library("odd").c_str());
    EXPECT_FALSE(isInstalled("odd_without_methods"));
    EXPECT_FALSE(isInstalled("odd name"));
    EXPECT_STREQ(RvNodeEntryGetFilename(RvNodeEntryLookUp("sphere")), "");
    EXPECT_EQ(strlen(RvNodeEntryGetVersion(RvNodeEntryLookUp("odd_version"))), 32u);
    for (int i = 0; i < 12; ++i) {
        RtNode* const node = RvNode(("odd_" + std::to_string(i)).c_str());
        ASSERT_TRUE(node) << i;
        rv::RvNodeInitialize(node);
    }
    RvNode("odd_kind");
    RtNode* const sphere = RvNode("sphere");
    RvNodeSetPtr(sphere, "shader", RvNode("odd_6"));
    RvNodeSetBool(RvUniverseGetOptions(), "abort_on_error", false);
    RvNodeSetArray(RvUniverseGetOptions(), "outputs",
                   RvArray(1, 1, RV_TYPE_STRING, "RGBA RGBA odd_10 odd_8"));
    for (const char* camera : { "odd_0", "odd_1", "persp_camera" }) {
        RvNodeSetPtr(RvUniverseGetOptions(), "camera", RvNode(camera));
        RvRender(RV_RENDER_MODE_CAMERA);
        RvRender(RV_RENDER_MODE_SETUP);
    }
}

TEST_F(Plugins, the_problems_of_odd_types_are_reported)
{
    RvLoadPlugin(library("odd").c_str());
    Lines texts;
    for (const LoggedMessage& m : messages())
        texts.push_back(m.text);
    const auto has = [&](const std::string& text) {
        return std::find(texts.begin(), texts.end(), text) != texts.end();
    };
    EXPECT_TRUE(has(library("odd") + ": (null) uses Ruvell 3.3.6.0"));
    EXPECT_TRUE(has("node name contains invalid characters: \"odd name\""));
    EXPECT_TRUE(has("node \"sphere\" is already installed"));
    EXPECT_TRUE(has("odd_kind: unknown node type (3)"));
}

TEST_F(Plugins, a_list_of_types_without_an_end_is_cut)
{
    EXPECT_EQ(RvLoadPluginsFromLib(library("endless").c_str()), 4096);
    EXPECT_EQ(takeProblem(),
              library("endless") + ": more than 4096 node types are listed; ignoring the others");
    EXPECT_TRUE(isInstalled("endless_4095"));
    EXPECT_FALSE(isInstalled("endless_4096"));
}

TEST_F(Plugins, an_exhausted_heap_leaves_no_type_without_its_library)
{
    const std::string path = library("good");
    const int before = RvGetNumInstalledNodes();
    for (int allowed = 0; allowed < 60; ++allowed) {
        rv::limitAllocations(allowed);
        RvLoadPlugin(path.c_str());
        rv::limitAllocations(-1);
        const bool is_recorded = !RvListEmpty(rv::the_frame->libraries);
        EXPECT_TRUE(is_recorded || RvGetNumInstalledNodes() == before) << allowed;
        ending(true);
        EXPECT_FALSE(isInProcess(path)) << allowed;
        beginAnew();
    }
}

// ---- Folders ----

TEST_F(Plugins, folders_are_searched_one_after_the_other)
{
    const std::string good = install("good", "a/good.so"), other = install("other", "b/other.so");
    install("nothing", "b/nothing.so");
    install("v3370", "b/readme.txt");
    fs::create_directories(folder() + "/b/folder.so");
    const std::string path = folder() + "/a;;" + folder() + "/b;" + folder() + "/missing;";
    EXPECT_EQ(loadingFolders(path), (Lines{ "0 loading plugins from " + path + " ...",
                                            "1 " + good + ": good_shader uses Ruvell 3.3.6.0",
                                            "1 " + good + ": good_other uses Ruvell 3.3.6.0",
                                            "1 " + other + ": other_shader uses Ruvell 3.3.0.9",
                                            "1 " + other + ": other_other uses Ruvell 3.3.0.9",
                                            "0 loaded 4 plugins from 2 libs in *" }));
    EXPECT_EQ(loadingFolders(path),
              (Lines{ "0 loading plugins from " + path + " ...", "0 no plugins loaded" }));
    // What a folder gave is loaded, whoever asks for it.
    EXPECT_EQ(loading(good), (Lines{ "0 loading plugin: " + good + " ..." }));
}

TEST_F(Plugins, empty_and_missing_folders_hold_no_plugins)
{
    for (const std::string& path :
         { std::string(), std::string(";;"), folder() + "/missing", std::string(5000, 'x') })
        EXPECT_EQ(loadingFolders(path),
                  (Lines{ "0 loading plugins from " + path + " ...", "0 no plugins loaded" }));
}

TEST_F(Plugins, the_library_itself_in_a_folder_is_skipped)
{
    install("good", "rv.so");
    install("good", "librv.so");
    EXPECT_EQ(loadingFolders(folder()).back(), "0 no plugins loaded");
    EXPECT_EQ(takeProblem(), "");
}

// ---- Metadata ----

TEST_F(Plugins, annotations_come_from_the_file_beside_the_library)
{
    const std::string path = install("good", "good.v2.so");
    const std::string file = write("good.v2.mtd", "[node good_shader]\n"
                                                  "desc STRING \"a shader\"\n"
                                                  "[attr gain]\n"
                                                  "max FLOAT 4\n");
    const Lines lines = loading(path);
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(lines[3], "0 [METADATA] Loading metadata file: " + file);
    const RtNodeEntry* const entry = RvNodeEntryLookUp("good_shader");
    const char* text;
    float max;
    ASSERT_TRUE(RvMetaDataGetStr(entry, nullptr, "desc", &text));
    EXPECT_STREQ(text, "a shader");
    ASSERT_TRUE(RvMetaDataGetFlt(entry, "gain", "max", &max));
    EXPECT_EQ(max, 4);
}

TEST_F(Plugins, a_refused_library_brings_no_annotations)
{
    const std::string path = install("v3370", "v3370.so");
    write("v3370.mtd", "[node v3370_shader]\ndesc STRING \"a shader\"\n");
    EXPECT_EQ(loading(path).size(), 3u);
}

TEST_F(Plugins, dots_of_folders_are_no_extensions)
{
    const std::string path = install("good", "plug.ins/good");
    write("plug.ins/good.mtd", "[node good_shader]\ndesc STRING \"a shader\"\n");
    RvLoadPlugin(path.c_str());
    const char* text;
    EXPECT_TRUE(RvMetaDataGetStr(RvNodeEntryLookUp("good_shader"), nullptr, "desc", &text));
}

// ---- The end ----

TEST_F(Plugins, the_end_closes_all_libraries)
{
    const std::string good = library("good"), other = library("other");
    RvLoadPlugin(good.c_str());
    RvLoadPlugin(other.c_str());
    EXPECT_EQ(ending(true), (Lines{ "0 releasing resources", "1 unloading 2 plugins",
                                    "1 closing " + good + " ...", "1 closing " + other + " ...",
                                    "1 unloading plugins done", "0 Ruvell shutdown" }));
    EXPECT_FALSE(isInProcess(good));
    EXPECT_FALSE(isInProcess(other));
}

TEST_F(Plugins, one_library_is_one_plugin_and_none_are_plugins)
{
    EXPECT_EQ(ending(true)[1], "1 unloading 0 plugins");
    beginAnew();
    RvLoadPlugin(library("good").c_str());
    EXPECT_EQ(ending(true)[1], "1 unloading 1 plugin");
}

TEST_F(Plugins, the_end_tells_of_libraries_in_the_words_of_plugins_and_debugging)
{
    for (const bool unload : { true, false }) {
        RvLoadPlugin(library("good").c_str());
        RvNodeSetBool(RvUniverseGetOptions(), "unload_plugins", unload);
        const RtMsgCallback recorder = rv::the_frame->msg->callback;
        messages().clear();
        RvEnd();
        int count = 0;
        for (const LoggedMessage& m : messages())
            if (m.text.find("unloading") != m.text.npos || m.text.find("closing") != m.text.npos) {
                EXPECT_EQ(m.mask, 0x48) << m.text;
                ++count;
            }
        EXPECT_EQ(count, unload ? 3 : 1);
        RvBegin();
        RvMsgSetConsoleFlags(RV_LOG_ALL & ~(RV_LOG_TIMESTAMP | RV_LOG_MEMORY));
        RvMsgSetCallback(recorder);
    }
}

TEST_F(Plugins, nodes_are_finished_before_their_library_is_closed)
{
    const std::string path = library("good");
    RvLoadPlugin(path.c_str());
    rv::RvNodeInitialize(node_tools::named("good_shader", "mine"));
    EXPECT_EQ(ending(true), (Lines{ "0 releasing resources", "1 mine is finished",
                                    "1 unloading 1 plugin", "1 closing " + path + " ...",
                                    "1 unloading plugins done", "0 Ruvell shutdown" }));
}

TEST_F(Plugins, a_type_that_is_gone_at_the_end_is_reported)
{
    const std::string path = library("good");
    RvLoadPlugin(path.c_str());
    RvNodeUninstall("good_shader");
    EXPECT_EQ(ending(false), (Lines{ "0 releasing resources",
                                     "1 E trying to uninstall non-existent node: \"good_shader\"",
                                     "1 skipping plugin unloading because unload_plugins=FALSE",
                                     "0 Ruvell shutdown" }));
}

TEST_F(Plugins, libraries_may_stay_loaded_and_give_their_types_to_the_next_universe)
{
    const std::string path = install("good", "stays.so");
    bool was_kept = false;
    for (const bool unload : { true, false, false, true }) {
        EXPECT_EQ(loading(path).size(), 4u) << unload;
        EXPECT_TRUE(isInstalled("good_shader"));
        rv::RvNodeInitialize(RvNode("good_shader"));
        const Lines end = ending(unload);
        EXPECT_EQ(std::count(end.begin(), end.end(),
                             "1 skipping plugin unloading because unload_plugins=FALSE"),
                  !unload);
        was_kept = was_kept || !unload;
        EXPECT_EQ(isInProcess(path), was_kept);
        beginAnew();
        EXPECT_FALSE(isInstalled("good_shader"));
    }
}

// ---- Renders ----

namespace {
class PluginsAndRenders : public render_tools::RenderLog {};
} // namespace

TEST_F(PluginsAndRenders, a_running_render_refuses_new_types)
{
    installActor();
    RvNode("actor");
    const std::string path = std::string(testPlugins()) + "/good.so";
    render_tools::actions().initialize = [&](RtNode*) {
        RvLoadPlugin(path.c_str());
        RvLoadPlugins(testPlugins());
    };
    RvRender(RV_RENDER_MODE_SETUP);
    EXPECT_EQ(takeProblems(), "W RvLoadPlugin() ignored:  a render is running | W RvLoadPlugins() "
                              "ignored:  a render is running");
    EXPECT_FALSE(RvNodeEntryLookUp("good_shader"));
}
