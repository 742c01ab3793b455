// Tests of override: blocks that change nodes that exist, or that will.
#include "scene_fixture.h"

#include "dotrvs_references.h"
#include "golden.h"
#include "override.h"
#include "write_tools.h"

#include <atomic>
#include <thread>

static RtNode* overrideOf(const char* name)
{
    return static_cast<RtNode*>(simpleHash_lookup(rv::the_frame->scene_files->overrides, name));
}

// A new node with that name, initialised.
static RtNode* initialized(const char* type, const char* name)
{
    RtNode* const node = node_tools::named(type, name);
    rv::RvNodeInitialize(node);
    return node;
}

TEST_F(SceneFiles, overrides_are_applied_as_the_golden_vectors_say)
{
    for (const auto& v : goldenVectors("scenefile", "apply_delayed_overrides")) {
        loadWell(v["in"]["text"].get<std::string>());
        const std::string name = v["in"]["named"].get<std::string>();
        const RtNode* const made =
            initialized(v["in"]["then_create"].get<std::string>().c_str(), name.c_str());
        expectGoldenNumbers(v, "radius", { RvNodeGetFlt(made, "radius") });
        const RtPoint center = RvNodeGetPnt(made, "center");
        expectGoldenNumbers(v, "center", { center.x, center.y, center.z });
        expectGolden(v, "visibility", RvNodeGetInt(made, "visibility"));
        expectGolden(v, "opaque", RvNodeGetBool(made, "opaque"));
        EXPECT_EQ(takeProblem(), "");
        EXPECT_EQ(rv::scene_file_line, -1);
    }
}

TEST_F(SceneFiles, a_node_that_exists_is_changed_at_once)
{
    loadWell("sphere { name s }\noverride\n{\n s radius 2\n s center 1 2 3 s opaque off\n}\n"
             "sphere { name t }");
    EXPECT_EQ(value("s", "radius"), "FLOAT 1x1: 2");
    EXPECT_EQ(value("s", "center"), "POINT 1x1: 1 2 3");
    EXPECT_EQ(value("s", "opaque"), "0");
    EXPECT_EQ(overrideOf("s"), nullptr);
}

TEST_F(SceneFiles, nodes_named_in_an_override_are_looked_up_after_the_file)
{
    loadWell("implicit { name i }\nlambert { name l }\nnoise { name n }\n"
             "override\n{\ni field n\nl Kd n\nl Kd_color later\n}\nflat { name later }");
    EXPECT_EQ(nodeName(RvNodeGetPtr(node("i"), "field")), "n");
    EXPECT_EQ(link("l", "Kd"), "n");
    EXPECT_EQ(link("l", "Kd_color"), "later");
}

// Nothing is looked up after a load that fails.
TEST_F(SceneFiles, arrays_of_nodes_in_an_override_are_looked_up_at_once)
{
    load("flat { name f }\nsphere { name s }\nimplicit { name i }\n"
         "override\n{\n s shader 3 1 NODE f later f\n i field f\n}\ninclude missing.rvs\n");
    EXPECT_EQ(nodesOf("s", "shader"), "f null f");
    EXPECT_EQ(RvNodeGetPtr(node("i"), "field"), nullptr);
    EXPECT_EQ(RvListSize(rv::the_frame->scene_files->references), 2u);
    takeProblem();
    loadWell("flat { name later }");
    EXPECT_EQ(nodesOf("s", "shader"), "f later f");
    EXPECT_EQ(nodeName(RvNodeGetPtr(node("i"), "field")), "f");
}

TEST_F(SceneFiles, the_last_override_of_a_parameter_wins)
{
    loadWell(
        "override\n{\n s radius 2\n s radius 3\n}\noverride\n{\n s radius 4\n t radius 9\n}\n");
    EXPECT_EQ(RvNodeGetInt(overrideOf("s"), "param_count"), 1);
    EXPECT_EQ(RvNodeGetFlt(initialized("sphere", "s"), "radius"), 4);
    EXPECT_EQ(RvNodeGetFlt(initialized("sphere", "t"), "radius"), 9);
    EXPECT_STREQ(RvNodeGetStr(overrideOf("s"), "node_name"), "s");
}

TEST_F(SceneFiles, the_arrays_of_an_override_grow_by_doubling)
{
    std::string text = "override\n{\n";
    for (int i = 0; i < 41; ++i) {
        text += node_tools::formatted(" s p%d %d\n", i, i);
        loadWell(std::string(text).append("}\n"));
        const RtNode* const stored = overrideOf("s");
        const unsigned length = i < 20 ? 20 : i < 40 ? 40 : 80;
        EXPECT_EQ(RvNodeGetArray(stored, "param_name")->nelements, length);
        EXPECT_EQ(RvNodeGetArray(stored, "param_value")->nelements, length);
        EXPECT_EQ(RvNodeGetInt(stored, "param_count"), i + 1);
    }
    const RtNode* const stored = overrideOf("s");
    for (unsigned i = 0; i < 41; ++i) {
        EXPECT_EQ(RvArrayGetStr(RvNodeGetArray(stored, "param_name"), i),
                  node_tools::formatted("p%u", i));
        const RtArray* const text_of = RvArrayGetArray(RvNodeGetArray(stored, "param_value"), i);
        EXPECT_EQ(static_cast<const char*>(text_of->data), node_tools::formatted("%u\n", i));
    }
}

TEST_F(SceneFiles, required_a_brace_in_a_stored_value_ends_the_block)
{
    loadWell("override { s radius 2 }\nsphere { name other radius 5 }");
    EXPECT_EQ(RvNodeGetFlt(initialized("sphere", "s"), "radius"), 2);
    EXPECT_NE(node("other"), nullptr);
}

TEST_F(SceneFiles, malformed_override_blocks_are_reported)
{
    static const struct {
        const char *text, *problem;
    } rows[] = {
        { "override", "wrong token | unexpected end-of-file in override string" },
        { "override {", "unexpected end-of-file in override string" },
        { "override { a", "unexpected end-of-file in override string" },
        { "override { a radius", "unexpected end-of-file in override string" },
        { "override { a radius 2", "unexpected end-of-file in override string" },
        { "override ( a radius 2 }", "wrong token" },
        { "override { a }", "" },
        { "override { }", "" },
    };
    for (const auto& row : rows)
        EXPECT_EQ(problemsOf(row.text), row.problem) << row.text;
}

TEST_F(SceneFiles, long_and_odd_values_are_stored_as_they_are)
{
    std::string big(300000, ' ');
    loadWell("override\n{\n s radius" + big +
             "7\r\n s name \"quo # ted\"\n s center 1 2 3 # c\n}\n");
    const RtNode* const s = initialized("sphere", "s");
    EXPECT_EQ(RvNodeGetFlt(s, "radius"), 7);
    EXPECT_EQ(value("quo ", "center"), "POINT 1x1: 1 2 3"); // the comment cut the name
}

TEST_F(SceneFiles, a_bad_stored_value_behaves_as_in_a_file)
{
    loadWell("override\n{\n s radius one two\n s nonsense 3\n s opaque .x\n}\n");
    initialized("sphere", "s");
    const std::string problem = takeProblem();
    EXPECT_NE(problem.find("s.nonsense: unknown parameter type"), std::string::npos);
    EXPECT_NE(problem.find("unknown boolean token"), std::string::npos);
}

static std::vector<int> lines_of_problems;
static void recordLine(int, int severity, const char*, int)
{
    if (severity > 0)
        lines_of_problems.push_back(rv::scene_file_line);
}

TEST_F(SceneFiles, stored_overrides_are_applied_on_line_0)
{
    loadWell("\n\noverride\n{\n s nonsense 3\n s no_sense 3\n}\n");
    RvMsgSetCallback(recordLine);
    lines_of_problems.clear();
    initialized("sphere", "s");
    EXPECT_EQ(lines_of_problems, (std::vector<int>{ 0, 0 }));
    EXPECT_EQ(rv::scene_file_line, -1);
}

TEST_F(SceneFiles, references_of_stored_overrides_wait_for_the_next_load)
{
    loadWell("override\n{\n i field n\n j field n\n}\n");
    initialized("implicit", "i");
    EXPECT_EQ(RvNodeGetPtr(node("i"), "field"), nullptr);
    loadWell("noise { name n }");
    EXPECT_EQ(nodeName(RvNodeGetPtr(node("i"), "field")), "n");
    initialized("implicit", "j");
    EXPECT_EQ(nodeName(RvNodeGetPtr(node("j"), "field")), "n");
}

TEST_F(SceneFiles, a_destroyed_override_is_forgotten)
{
    loadWell("override\n{\n s radius 2\n t radius 3\n}\n");
    RvNodeDestroy(overrideOf("s"));
    EXPECT_EQ(overrideOf("s"), nullptr);
    EXPECT_EQ(RvNodeGetFlt(initialized("sphere", "s"), "radius"), 0.5f);
    EXPECT_EQ(RvNodeGetFlt(initialized("sphere", "t"), "radius"), 3);
}

TEST_F(SceneFiles, an_override_that_a_host_spoilt_is_survived)
{
    loadWell("override\n{\n s radius 2\n s opaque off\n}\n");
    RtNode* const stored = overrideOf("s");
    RvNodeSetInt(stored, "param_count", 1000);
    initialized("sphere", "s");
    RvNodeSetArray(stored, "param_value", RvArrayAllocate(1, 1, RV_TYPE_ARRAY));
    RtNode* const again = node_tools::named("sphere", "s2");
    RvNodeSetStr(node("s"), "name", "old");
    RvNodeSetStr(again, "name", "s");
    rv::RvNodeInitialize(again);
    EXPECT_EQ(takeProblem(), "radius: unexpected end-of-file in array"); // without any text
    RvNodeSetInt(stored, "param_count", -5);
    rv::RvNodeInitialize(node_tools::named("sphere", "s4"));
    EXPECT_EQ(takeProblem(), "");
    problemsOf("override\n{\n s3 radius 2\n}\n");
    RvNodeSetStr(stored, "node_name", "elsewhere");
    RvNodeDestroy(stored);
    EXPECT_EQ(overrideOf("s"), nullptr);
}

TEST_F(SceneFiles, ignored_arrays_of_overrides_are_survived)
{
    loadWell("options { ignore_list 2 1 STRING override.param_name override.param_value }");
    EXPECT_EQ(problemsOf("override\n{\n s radius 2\n}\n").find("could not set ARRAY parameter") ==
                  std::string::npos,
              false);
    initialized("sphere", "s");
}

TEST_F(SceneFiles, concurrent_blocks_make_one_override_for_a_name)
{
    static constexpr int names = 20000;
    std::atomic<int> arrived = 0;
    const auto parseAll = [&] {
        RtRVSFile* const file = RvRVSCreateFile("blocks");
        for (int i = 0; i < names; ++i) {
            const std::string text = node_tools::formatted("{ node_%d radius 2 }", i);
            rv::readFromText(file, text.data(), text.size());
            // Both at the same moment.
            for (++arrived; arrived < 2 * (i + 1);)
                std::this_thread::yield();
            RvRVSParseOverride(file);
        }
        RvRVSDestroyFile(file);
    };
    std::thread other(parseAll);
    parseAll();
    other.join();
    EXPECT_EQ(RvNodeEntryGetCount(RvNodeEntryLookUp("override")), names);
    EXPECT_EQ(RvNodeGetInt(overrideOf("node_7"), "param_count"), 1);
}

TEST_F(SceneFiles, a_value_that_does_not_fit_on_the_heap_is_reported_once)
{
    const std::string name =
        write("o.rvs", "override\n{\n s radius" + std::string(5000, ' ') + "7\n}\n");
    int failures = 0;
    bool ran_through = false;
    for (long n = 0; !ran_through && n < 1000; ++n) {
        {
            const node_tools::AllocationLimit limit(n);
            RvRVSLoad(name.c_str());
            ran_through = node_tools::heapIsOpen();
        }
        const auto problems = takeProblems();
        const auto reports =
            std::count_if(problems.begin(), problems.end(), [](const std::string& text) {
                return node_tools::reportsFailure(text, "core\\src\\override",
                                                  "RvRVSParseOverride");
            });
        EXPECT_LE(reports, 1) << n;
        failures += int(reports);
    }
    EXPECT_TRUE(ran_through);
    EXPECT_GE(failures, 4); // of 1,024, 2,048, 4,096 and 8,192 bytes
}

TEST_F(SceneFiles, an_exhausted_heap_is_survived_by_overrides)
{
    const std::string name = write("o.rvs", "override\n{\n s radius 2\n s opaque off\n}\n");
    int serial = 0;
    const auto problems = node_tools::problemsOfFailingHeap(
        [&] {
            RvRVSLoad(name.c_str());
            RtNode* const sphere = RvNode("sphere");
            if (sphere && !node("s"))
                RvNodeSetStr(sphere, "name", "s");
            rv::RvNodeInitialize(sphere);
            RvNodeDestroy(sphere);
            ++serial;
        },
        takeProblems);
    EXPECT_TRUE(node_tools::anyReportsFailure(problems, "core\\src\\override",
                                              "RvRVSApplyDelayedOverrides"));
    EXPECT_GT(serial, 10);
}

// ---- Writing ----

TEST_F(SceneFiles, what_waits_for_a_node_is_written_as_the_block_it_was_read_from)
{
    loadWell("override { later radius 2 3\n later shader grey # why\n \"a b\" Kd_color 1 0 0\n}");
    EXPECT_EQ(write_tools::blockOf(overrideOf("later")),
              "override\n{\n later radius 2 3\n later shader grey # why\n}\n\n");
    EXPECT_EQ(write_tools::blockOf(overrideOf("\"a b\"")),
              "override\n{\n \"a b\" Kd_color 1 0 0\n}\n\n");
}

TEST_F(SceneFiles, written_overrides_read_back)
{
    loadWell("override { later radius 2\n later radius 3\n other opaque off\n}");
    const std::string text = write_tools::sceneText();
    RvEnd();
    RvBegin();
    loadWell(text);
    EXPECT_FLOAT_EQ(RvNodeGetFlt(initialized("sphere", "later"), "radius"), 3);
    EXPECT_FALSE(RvNodeGetBool(initialized("sphere", "other"), "opaque"));
}

TEST_F(SceneFiles, a_stored_value_that_a_host_changed_ends_with_its_line)
{
    loadWell("override { later radius 2\n}");
    RtArray* const value = RvArrayGetArray(RvNodeGetArray(overrideOf("later"), "param_value"), 0);
    memcpy(value->data, "\n}\n", 3);
    EXPECT_EQ(write_tools::blockOf(overrideOf("later")), "override\n{\n later radius \n}\n\n");
}

TEST_F(SceneFiles, overrides_that_a_host_made_are_blocks_of_their_type)
{
    RtNode* const node = node_tools::named("override", "mine");
    RvNodeSetStr(node, "node_name", "later");
    EXPECT_EQ(write_tools::blockOf(node), "override\n{\n name mine\n node_name \"later\"\n}\n\n");
}
