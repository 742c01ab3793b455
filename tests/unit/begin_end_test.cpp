// Tests of opening and closing the universe: RvBegin, RvEnd and the calls around them.
#include "node_tools.h"

#include "render_session.h"
#include "rv_plugins.h"
#include "strpool.h"

#include <dlfcn.h>
#include <memory>

extern "C" void __lsan_ignore_object(const void*) __attribute__((weak));

using namespace node_tools;

namespace {

int builtInTypeCount()
{
    return goldenVectors("node_types", "built_in_node_types").at(0).at("out").at("count");
}

using Names = std::vector<std::string>;

// Without an open universe at either end of a case.
class BeginEnd : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_FALSE(RvUniverseIsActive());
        messages().clear();
        methodCalls() = {};
    }
    void TearDown() override
    {
        rv::limitAllocations(-1);
        if (RvUniverseIsActive())
            RvEnd();
        EXPECT_FALSE(RvUniverseIsActive());
    }

    static std::vector<LoggedMessage>& messages()
    {
        static std::vector<LoggedMessage> all;
        return all;
    }

    static void record()
    {
        RvMsgSetConsoleFlags(RV_LOG_ALL & ~(RV_LOG_TIMESTAMP | RV_LOG_MEMORY));
        RvMsgSetCallback([](int mask, int severity, const char* text, int tab) {
            messages().push_back({ mask, severity, text, tab });
        });
    }

    // Opens a universe that records everything after the header of the log.
    static void begin()
    {
        RvBegin();
        record();
        RvMsgInfo("%s", "first");
        messages().clear();
    }

    // "tab text" of the messages, without those about plug-in libraries that are closed.
    static Names lines()
    {
        Names all;
        for (const LoggedMessage& m : messages())
            if (m.text.rfind("unloading ", 0) != 0)
                all.push_back(formatted("%d %s", m.tab, m.text.c_str()));
        return all;
    }

    static bool hasProblems()
    {
        for (const LoggedMessage& m : messages())
            if (m.severity > 0)
                return true;
        return false;
    }
};

} // namespace

// ---- Opening ----

TEST_F(BeginEnd, a_universe_is_active_between_begin_and_end)
{
    RvBegin();
    EXPECT_TRUE(RvUniverseIsActive());
    EXPECT_TRUE(rv::the_frame);
    RvEnd();
    EXPECT_FALSE(RvUniverseIsActive());
    EXPECT_FALSE(rv::the_frame);
}

TEST_F(BeginEnd, a_new_frame_is_complete)
{
    RvBegin();
    const RtFrame* frame = rv::the_frame;
    EXPECT_TRUE(frame->msg);
    EXPECT_TRUE(frame->scene);
    EXPECT_TRUE(frame->session);
    EXPECT_TRUE(frame->node_entries);
    EXPECT_TRUE(frame->hooks);
    for (int i = 0; i < rv::stats_record_count; ++i)
        EXPECT_TRUE(frame->stats[i]) << i;
    EXPECT_EQ(rv::stats_record_count, 65);
    EXPECT_FALSE(frame->thread_slots) << "made by the first render";
    ASSERT_TRUE(frame->strings);
    EXPECT_EQ(frame->strings->capacity, 8192u);
    EXPECT_GT(frame->start_memory, 0u);
    EXPECT_EQ(RvGetNumInstalledNodes(), builtInTypeCount());
    EXPECT_TRUE(RvUniverseGetOptions());
}

TEST_F(BeginEnd, messages_start_with_their_defaults)
{
    RvBegin();
    const RtMsgState* msg = rv::the_frame->msg;
    EXPECT_EQ(msg->console_flags, 0u);
    EXPECT_EQ(msg->log_file_flags, unsigned(RV_LOG_ALL));
    EXPECT_EQ(msg->tab, 0);
    EXPECT_EQ(msg->warning_count, 0u);
    EXPECT_EQ(msg->max_warnings, 100u);
    EXPECT_FALSE(msg->header_done);
    EXPECT_FALSE(msg->log_file);
}

TEST_F(BeginEnd, opening_and_closing_print_nothing_by_default)
{
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    RvBegin();
    RvNode("nothere");
    RvEnd();
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

TEST_F(BeginEnd, elapsed_time_starts_at_zero)
{
    EXPECT_EQ(RvMsgUtilGetElapsedTime(), 0u);
    RvBegin();
    EXPECT_LT(RvMsgUtilGetElapsedTime(), 10000u);
    usleep(20000);
    EXPECT_GE(RvMsgUtilGetElapsedTime(), 15u);
    RvEnd();
    EXPECT_EQ(RvMsgUtilGetElapsedTime(), 0u);
}

TEST_F(BeginEnd, no_scene_file_is_being_read_at_either_end)
{
    rv::scene_file_line = 41; // as left by a reading that was broken off
    RvBegin();
    EXPECT_EQ(rv::scene_file_line, -1);
    rv::scene_file_line = 42;
    RvEnd();
    EXPECT_EQ(rv::scene_file_line, -1);
}

TEST_F(BeginEnd, the_metadata_file_beside_the_library_is_loaded)
{
    // The library's own directory, which in these tests is that of the program.
    Dl_info info;
    ASSERT_TRUE(dladdr(reinterpret_cast<void*>(&RvBegin), &info));
    const auto path = std::filesystem::absolute(info.dli_fname).parent_path() / "ruvell.mtd";
    if (std::filesystem::exists(path))
        std::filesystem::remove(path);
    const auto temporary = path.string() + formatted(".%d", int(getpid()));
    std::ofstream(temporary) << "[node sphere]\nbeside_the_library INT 7\n";
    std::filesystem::rename(temporary, path);
    RvBegin();
    std::filesystem::remove(path);
    int value = 0;
    EXPECT_TRUE(
        RvMetaDataGetInt(RvNodeEntryLookUp("sphere"), nullptr, "beside_the_library", &value));
    EXPECT_EQ(value, 7);
    RvEnd();
    RvBegin();
    EXPECT_FALSE(
        RvMetaDataGetInt(RvNodeEntryLookUp("sphere"), nullptr, "beside_the_library", &value));
}

TEST_F(BeginEnd, required_a_second_begin_replaces_the_universe_without_closing_it)
{
    // In a process of its own, because the first universe is lost on purpose.
    EXPECT_EXIT(
        {
            RvBegin();
            named("lambert", "of_the_first");
            const RtFrame* first = rv::the_frame;
            RvBegin();
            const bool replaced =
                rv::the_frame && rv::the_frame != first && !RvNodeLookUpByName("of_the_first");
            RvEnd();
            _exit(replaced && !RvUniverseIsActive() ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

// ---- Closing ----

TEST_F(BeginEnd, the_end_says_what_it_does)
{
    begin();
    RvEnd();
    const Names all = lines();
    ASSERT_GE(all.size(), 3u);
    EXPECT_EQ(all.front(), "0 ");
    EXPECT_EQ(all[1], "0 releasing resources");
    EXPECT_EQ(all.back(), "0 Ruvell shutdown");
    EXPECT_EQ(messages().front().mask, RV_LOG_INFO);
    EXPECT_EQ(messages().back().mask, RV_LOG_INFO);
    EXPECT_EQ(messages().back().severity, 0);
    EXPECT_FALSE(hasProblems());
    for (const LoggedMessage& m : messages())
        EXPECT_EQ(m.text.find("skipping plugin unloading"), std::string::npos);
}

TEST_F(BeginEnd, without_unloading_the_end_says_so_one_level_deeper)
{
    begin();
    RvNodeSetBool(RvUniverseGetOptions(), "unload_plugins", false);
    RvEnd();
    EXPECT_EQ(lines(), (Names{ "0 ", "0 releasing resources",
                               "1 skipping plugin unloading because unload_plugins=FALSE",
                               "0 Ruvell shutdown" }));
    for (const LoggedMessage& m : messages())
        if (m.text.find("skipping") == 0) {
            EXPECT_EQ(m.mask, 0x48);
            EXPECT_EQ(m.severity, 0);
        }
}

TEST_F(BeginEnd, the_end_keeps_the_indentation_of_the_host)
{
    begin();
    RvNodeSetBool(RvUniverseGetOptions(), "unload_plugins", false);
    RvMsgTab(2);
    RvEnd();
    EXPECT_EQ(lines(), (Names{ "2 ", "2 releasing resources",
                               "3 skipping plugin unloading because unload_plugins=FALSE",
                               "2 Ruvell shutdown" }));
}

TEST_F(BeginEnd, strings_left_behind_are_reported_before_the_shutdown)
{
    begin();
    const char* leaked = rv::internString("forgotten on purpose");
    if (__lsan_ignore_object)
        __lsan_ignore_object(leaked); // the pool does not free what it reports
    RvEnd();
    const Names all = lines();
    const auto at = std::find(all.begin(), all.end(),
                              "1 [strpool] String \"forgotten on purpose\" still has 1 reference");
    EXPECT_NE(at, all.end());
    EXPECT_EQ(all.back(), "0 Ruvell shutdown");
}

TEST_F(BeginEnd, messages_of_finish_methods_stand_one_level_deeper)
{
    begin();
    static const RtCommonMethods common = {
        .Parameters = nullptr,
        .Initialize = nullptr,
        .Update = nullptr,
        .Finish = [](RtNode*) { RvMsgInfo("finishing"); },
    };
    static const RtNodeMethods methods = { &common, nullptr };
    RvNodeInstall(RV_NODE_SHADER, RV_TYPE_RGB, "talker", "", &methods, RV_VERSION);
    RvNode("talker")->initialized = true;
    RvNodeSetBool(RvUniverseGetOptions(), "unload_plugins", false);
    RvEnd();
    EXPECT_EQ(lines(), (Names{ "0 ", "0 releasing resources", "1 finishing",
                               "1 skipping plugin unloading because unload_plugins=FALSE",
                               "0 Ruvell shutdown" }));
}

TEST_F(BeginEnd, the_log_file_ends_with_the_shutdown)
{
    const TemporaryFile log("");
    RvBegin();
    RvMsgSetLogFileFlags(RV_LOG_INFO);
    RvMsgSetLogFileName(log.path.c_str());
    RvMsgInfo("in between");
    RvEnd();
    const std::string text = log.read();
    const std::string end = "        | Ruvell shutdown\n";
    ASSERT_GE(text.size(), end.size());
    EXPECT_EQ(text.substr(text.size() - end.size()), end);
    EXPECT_NE(text.find("log started"), std::string::npos);
    EXPECT_NE(text.find("        | releasing resources\n"), std::string::npos);

    RvBegin();
    RvMsgInfo("after the end");
    RvEnd();
    EXPECT_EQ(log.read(), text) << "the file is closed";
}

TEST_F(BeginEnd, an_end_without_a_universe_does_nothing)
{
    RvEnd();
    RvEnd();
    begin();
    RvEnd();
    messages().clear();
    RvEnd();
    EXPECT_TRUE(messages().empty());
}

TEST_F(BeginEnd, an_end_without_a_session_does_nothing)
{
    begin();
    RtRenderSession* session = rv::the_frame->session;
    rv::the_frame->session = nullptr;
    RvEnd();
    EXPECT_TRUE(RvUniverseIsActive());
    EXPECT_TRUE(messages().empty());
    rv::the_frame->session = session;
}

TEST_F(BeginEnd, the_end_without_options_still_ends)
{
    begin();
    RvNodeDestroy(RvUniverseGetOptions());
    RvEnd();
    EXPECT_FALSE(RvUniverseIsActive());
    EXPECT_FALSE(hasProblems());
    EXPECT_EQ(messages().back().text, "Ruvell shutdown");
}

TEST_F(BeginEnd, the_end_without_options_still_reports_what_a_host_prepared)
{
    begin();
    RvRender(RV_RENDER_MODE_SETUP);
    RvNodeDestroy(RvUniverseGetOptions());
    RvEnd();
    EXPECT_TRUE(std::any_of(messages().begin(), messages().end(), [](const LoggedMessage& m) {
        return m.text == "scene creation time:";
    }));
    EXPECT_FALSE(RvUniverseIsActive());
}

TEST_F(BeginEnd, the_pointer_to_the_options_lives_as_long_as_they)
{
    EXPECT_FALSE(rv::render_options);
    RvBegin();
    EXPECT_EQ(rv::render_options, RvUniverseGetOptions()->params);
    RvEnd();
    EXPECT_FALSE(rv::render_options);
}

// ---- Stopping ----

TEST_F(BeginEnd, nothing_renders_and_nothing_is_stopped_outside_a_render)
{
    EXPECT_FALSE(RvRendering());
    RvRenderAbort();
    RvRenderInterrupt();
    begin();
    EXPECT_FALSE(RvRendering());
    RvRenderAbort();
    RvRenderInterrupt();
    EXPECT_FALSE(RvRendering());
    EXPECT_TRUE(messages().empty());
    EXPECT_TRUE(RvNode("lambert"));
}

TEST_F(BeginEnd, the_first_request_of_a_render_wins)
{
    begin();
    RtRenderSession* session = rv::the_frame->session;
    session->rendering = true;
    EXPECT_TRUE(RvRendering());
    RvRenderAbort();
    RvRenderInterrupt();
    EXPECT_EQ(session->abort_flag, 1);
    session->abort_flag = 0;
    RvRenderInterrupt();
    RvRenderAbort();
    EXPECT_EQ(session->abort_flag, 2);
    session->abort_flag = 0;
    session->rendering = false;
    RvRenderAbort();
    RvRenderInterrupt();
    EXPECT_EQ(session->abort_flag, 0);
    EXPECT_TRUE(messages().empty());
}

TEST_F(BeginEnd, an_error_aborts_a_render_when_the_option_says_so)
{
    begin();
    RtRenderSession* session = rv::the_frame->session;
    session->rendering = true;
    RvMsgWarning("just a warning");
    EXPECT_EQ(session->abort_flag, 0);
    RvNodeSetBool(RvUniverseGetOptions(), "abort_on_error", false);
    RvMsgError("harmless");
    EXPECT_EQ(session->abort_flag, 0);
    RvNodeSetBool(RvUniverseGetOptions(), "abort_on_error", true);
    RvMsgSetConsoleFlags(0);
    RvMsgError("shown to nobody");
    EXPECT_EQ(session->abort_flag, 1);
    session->abort_flag = 0;
    session->rendering = false;
}

TEST_F(BeginEnd, while_rendering_nodes_stay_and_the_options_are_not_made_again)
{
    begin();
    RtNode* node = named("lambert", "n");
    rv::the_frame->session->rendering = true;
    RvNodeDestroy(node);
    EXPECT_FALSE(RvNode("options"));
    EXPECT_TRUE(RvNode("lambert")) << "procedurals make nodes during a render";
    rv::the_frame->session->rendering = false;
    EXPECT_EQ(RvNodeLookUpByName("n"), node);
}

TEST_F(BeginEnd, an_error_outside_a_render_stops_nothing)
{
    begin();
    EXPECT_TRUE(RvNodeGetBool(RvUniverseGetOptions(), "abort_on_error"));
    RvMsgError("just an error");
    EXPECT_FALSE(RvRendering());
    EXPECT_TRUE(RvNode("lambert"));
}

// ---- One universe after the other ----

TEST_F(BeginEnd, universes_do_not_share_settings)
{
    begin();
    RvMsgTab(3);
    RvMsgSetMaxWarnings(5);
    RtNode* options = RvUniverseGetOptions();
    RvNodeSetInt(options, "xres", 99);
    RvNodeSetStr(options, "shader_searchpath", "elsewhere");
    RvNodeSetArray(options, "ignore_list", RvArray(1, 1, RV_TYPE_STRING, "lambert"));
    RvNodeSetFlt(options, "shader_gamma", 2.2f);
    RvMetaDataSetInt(RvNodeEntryLookUp("sphere")->metadata, nullptr, "own", 1);
    RvMetaDataSetStr(RvNodeEntryLookUp("sphere")->metadata, nullptr, "synonym", "ball");
    installType("own_type");
    named("sphere", "my_sphere");
    RvNode("persp_camera");
    RvNode("point_light");
    RvEnd();
    messages().clear();

    RvBegin();
    EXPECT_EQ(rv::the_frame->msg->console_flags, 0u);
    EXPECT_EQ(rv::the_frame->msg->tab, 0);
    EXPECT_EQ(rv::the_frame->msg->max_warnings, 100u);
    RvMsgInfo("to nobody");
    EXPECT_TRUE(messages().empty()) << "the callback is the default one again";
    options = RvUniverseGetOptions();
    EXPECT_EQ(RvNodeGetInt(options, "xres"), 320);
    EXPECT_STREQ(RvNodeGetStr(options, "shader_searchpath"), "");
    EXPECT_EQ(RvNodeGetFlt(options, "shader_gamma"), 1);
    EXPECT_FALSE(RvUniverseGetCamera());
    EXPECT_EQ(RvUniverseGetNumLights(), 0);
    EXPECT_EQ(RvUniverseGetNumGObjects(), 0);
    EXPECT_FALSE(RvNodeLookUpByName("my_sphere"));
    EXPECT_FALSE(RvNodeEntryLookUp("own_type"));
    EXPECT_FALSE(RvNodeEntryLookUp("ball"));
    EXPECT_EQ(RvGetNumInstalledNodes(), builtInTypeCount());
    int own = 0;
    EXPECT_FALSE(RvMetaDataGetInt(RvNodeEntryLookUp("sphere"), nullptr, "own", &own));
    EXPECT_TRUE(RvNode("lambert"));
    EXPECT_EQ(rv::hostStats()->node_overhead_bytes > 0, true);
}

TEST_F(BeginEnd, the_measure_of_memory_sees_the_smallest_leak)
{
    std::vector<std::unique_ptr<char>> kept;
    kept.reserve(100);
    EXPECT_TRUE(leaksMemory([&kept] { kept.emplace_back(new char); }));
}

TEST_F(BeginEnd, a_universe_leaves_nothing_behind)
{
    const auto live = [] {
        RvBegin();
        RvNodeDestroy(RvNode("sphere"));
        RvNode("lambert");
        RvNode("persp_camera");
        RvEnd();
    };
    EXPECT_FALSE(leaksMemory(live));
}

// ---- Without a universe ----

TEST_F(BeginEnd, without_a_universe_queries_are_neutral)
{
    for (int round = 0; round < 2; ++round) { // before the first, and after it
        EXPECT_FALSE(RvUniverseIsActive());
        EXPECT_FALSE(RvUniverseGetOptions());
        EXPECT_FALSE(RvUniverseGetCamera());
        EXPECT_FALSE(RvUniverseGetLights());
        EXPECT_EQ(RvUniverseGetNumLights(), 0);
        EXPECT_EQ(RvUniverseGetNumGObjects(), 0);
        EXPECT_EQ(describe(RvUniverseGetSceneBounds().min), "0 0 0");
        EXPECT_EQ(describe(RvUniverseGetSceneBounds().max), "0 0 0");
        EXPECT_FALSE(RvUniverseGetNodeIterator(RV_NODE_ALL));
        EXPECT_FALSE(RvUniverseGetNodeEntryIterator(RV_NODE_ALL));
        RvUniverseCacheFlush(0);
        RvUniverseCacheFlush(-1);
        EXPECT_FALSE(RvNodeEntryLookUp("sphere"));
        EXPECT_FALSE(RvNodeEntryLookUp(nullptr));
        EXPECT_FALSE(RvNodeEntryLookUpByIndex(0));
        EXPECT_EQ(RvGetNumInstalledNodes(), 0);
        EXPECT_FALSE(RvNodeLookUpByName("options"));
        EXPECT_FALSE(RvRendering());
        EXPECT_EQ(RvMsgUtilGetElapsedTime(), 0u);
        EXPECT_GT(RvMsgUtilGetUsedMemory(), 0u);
        RvBegin();
        RvEnd();
    }
}

TEST_F(BeginEnd, without_a_universe_nodes_are_neither_made_nor_read)
{
    EXPECT_FALSE(RvNode("sphere"));
    EXPECT_FALSE(RvNode("options"));
    EXPECT_FALSE(RvNode(nullptr));
    EXPECT_FALSE(RvNodeClone(nullptr));
    RvNodeDestroy(nullptr);
    RvNodeReset(nullptr);
    for (const Accessor& a : accessors()) {
        a.set(nullptr, "p", 1);
        EXPECT_EQ(a.get(nullptr, "p"), a.neutral);
    }
    EXPECT_FALSE(RvNodeDeclare(nullptr, "v", "constant INT"));
    EXPECT_FALSE(RvNodeLookUpUserParameter(nullptr, "v"));
    RvNodeLink(nullptr, "p", nullptr);
    RvNodeUnlink(nullptr, "p");
    EXPECT_FALSE(RvNodeGetLink(nullptr, "p"));
    EXPECT_FALSE(RvNodeGetName(nullptr));
    EXPECT_FALSE(RvNodeIs(nullptr, "sphere"));
}

TEST_F(BeginEnd, without_a_universe_types_are_neither_installed_nor_removed)
{
    EXPECT_FALSE(installType("nowhere"));
    RvNodeUninstall("sphere");
    EXPECT_EQ(RvGetNumInstalledNodes(), 0);
    const TemporaryFile file("[node sphere]\nx INT 1\n");
    EXPECT_FALSE(RvMetaDataLoadFile(file.path.c_str()));
    EXPECT_FALSE(RvMetaDataLoadFile("no_such_file"));
}

TEST_F(BeginEnd, without_a_universe_messages_go_nowhere)
{
    record();
    RvMsgInfo("info");
    RvMsgWarning("warning");
    RvMsgError("error");
    RvMsgFatal("fatal, but to nobody");
    RvMsgTab(1);
    RvMsgSetMaxWarnings(1);
    RvMsgResetCallback();
    RvMsgSetLogFileName("");
    EXPECT_TRUE(messages().empty());
}

TEST_F(BeginEnd, without_a_universe_arrays_work_but_strings_have_no_pool)
{
    RtArray* numbers = RvArray(2, 1, RV_TYPE_INT, 1, 2);
    ASSERT_TRUE(numbers);
    EXPECT_EQ(RvArrayGetInt(numbers, 1), 2);
    RvArrayDestroy(numbers);
    RtArray* texts = RvArray(1, 1, RV_TYPE_STRING, "text");
    RvArrayDestroy(texts);
}

// ---- The exhausted heap ----

namespace {

// Every n of one residue class, so that the cases share the work.
constexpr int sweep_parts = 8;

class BeginWithoutMemory : public BeginEnd, public ::testing::WithParamInterface<int> {};

} // namespace

TEST_P(BeginWithoutMemory, opens_a_usable_universe_or_none)
{
    bool ran_through = false;
    long opened = 0, refused = 0;
    for (long n = GetParam(); !ran_through && n < 1000000; n += sweep_parts) {
        {
            AllocationLimit limit(n);
            RvBegin();
            ran_through = heapIsOpen();
        }
        if (!RvUniverseIsActive()) {
            ++refused;
            EXPECT_FALSE(rv::the_frame) << n;
            EXPECT_FALSE(rv::render_options) << n;
            EXPECT_FALSE(RvUniverseGetOptions()) << n;
            EXPECT_FALSE(RvNode("lambert")) << n;
            RvEnd();
        } else {
            ++opened;
            record();
            EXPECT_STREQ(RvNodeGetName(RvUniverseGetOptions()), "options") << n;
            RtNode* node = RvNode("lambert");
            ASSERT_TRUE(node) << n;
            RvNodeSetStr(node, "name", "usable");
            EXPECT_EQ(RvNodeLookUpByName("usable"), node) << n;
            RvNodeSetFlt(node, "Kd", 0.25f);
            EXPECT_EQ(RvNodeGetFlt(node, "Kd"), 0.25f) << n;
            EXPECT_TRUE(RvNodeLookUpByName("rv_default_reflection_shader")) << n;
            messages().clear();
            RvEnd();
            EXPECT_FALSE(hasProblems()) << n;
            EXPECT_FALSE(RvUniverseIsActive()) << n;
        }
        if (HasFailure())
            break;
    }
    EXPECT_TRUE(ran_through);
    EXPECT_GT(opened, 0);
    EXPECT_GT(refused, 100) << "opening a universe takes many requests";
}

INSTANTIATE_TEST_SUITE_P(Sweep, BeginWithoutMemory, ::testing::Range(0, sweep_parts));

TEST_F(BeginEnd, a_failed_begin_leaves_no_memory_behind)
{
    const auto failEverywhere = [] {
        for (long n : { 0L, 1L, 2L, 5L, 10L, 50L, 100L, 200L, 500L, 1000L, 2000L }) {
            AllocationLimit limit(n);
            RvBegin();
            if (RvUniverseIsActive())
                RvEnd();
        }
    };
    EXPECT_FALSE(leaksMemory(failEverywhere));
}

TEST_F(BeginEnd, a_failed_begin_is_followed_by_a_good_one)
{
    {
        AllocationLimit limit(300);
        RvBegin();
    }
    if (RvUniverseIsActive())
        RvEnd();
    begin();
    EXPECT_EQ(RvGetNumInstalledNodes(), builtInTypeCount());
    EXPECT_TRUE(RvNode("sphere"));
    EXPECT_FALSE(hasProblems());
}

TEST_F(BeginEnd, the_end_needs_no_memory)
{
    begin();
    installEveryType("everything", true);
    RtNode* node = RvNode("everything");
    RvNodeDeclare(node, "text", "constant STRING");
    RvNodeSetStr(node, "text", "value");
    RvNode("persp_camera");
    RvNode("sphere");
    messages().clear();
    {
        AllocationLimit limit(0);
        RvEnd();
    }
    EXPECT_FALSE(RvUniverseIsActive());
    EXPECT_FALSE(hasProblems());
}
