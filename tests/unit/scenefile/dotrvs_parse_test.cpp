// Tests of dotrvs_parse: statements, values of every type, declarations and arrays.
#include "scene_fixture.h"

#include "dotrvs_parse.h"
#include "test_plugins.h"

#include <signal.h>

using node_tools::EveryType;
using node_tools::installEveryType;

// A node "e" with a parameter of every type, after a load of assignments to it.
class EveryTypeFile : public SceneFiles, public ::testing::WithParamInterface<bool> {
protected:
    void SetUp() override
    {
        SceneFiles::SetUp();
        installEveryType("every", GetParam());
    }
    void TearDown() override
    {
        RvNodeUninstall("every");
        SceneFiles::TearDown();
    }

    std::string assign(const std::string& assignments)
    {
        RvNodeDestroy(node("e"));
        return problemsOf("every { name e\n" + assignments + "\n}\n");
    }
};

INSTANTIATE_TEST_SUITE_P(Layouts, EveryTypeFile, ::testing::Bool());

TEST_P(EveryTypeFile, values_are_set_by_the_type_of_the_parameter)
{
    static const struct {
        const char *assignment, *param, *value;
    } rows[] = {
        { "p_BYTE 200", "p_BYTE", "200" },
        { "p_BYTE 257", "p_BYTE", "1" },
        { "p_INT -12", "p_INT", "-12" },
        { "p_INT 3.9", "p_INT", "3" },
        { "p_INT 99999999999999999999", "p_INT", "-1" },
        { "p_UINT 4294967295", "p_UINT", "4294967295" },
        { "p_BOOL 2.5", "p_BOOL", "1" },
        { "p_BOOL 0", "p_BOOL", "0" },
        { "p_BOOL no", "p_BOOL", "0" },
        { "p_BOOL off", "p_BOOL", "0" },
        { "p_BOOL false", "p_BOOL", "0" },
        { "p_BOOL 0 p_BOOL yes", "p_BOOL", "1" },
        { "p_BOOL 0 p_BOOL on", "p_BOOL", "1" },
        { "p_BOOL 0 p_BOOL true", "p_BOOL", "1" },
        { "p_FLOAT -1.5e2", "p_FLOAT", "-150" },
        { "p_FLOAT .25", "p_FLOAT", "0.25" },
        { "p_FLOAT 0x1p-1", "p_FLOAT", "0.5" },
        { "p_RGB 1 # red\n 2 \n\n 3", "p_RGB", "1 2 3" },
        { "p_RGBA 1 2 3 4", "p_RGBA", "1 2 3 4" },
        { "p_VECTOR 1 2 3.5", "p_VECTOR", "1 2 3.5" },
        { "p_POINT -1 2 3", "p_POINT", "-1 2 3" },
        { "p_POINT2 1 2", "p_POINT2", "1 2" },
        { "p_STRING \"two words\"", "p_STRING", "\"two words\"" },
        { "p_STRING C:\\tex\\a.tx", "p_STRING", "\"C:/tex/a.tx\"" },
        { "p_STRING \"a#b\" rest", "p_STRING", "\"a\"" },
        { "p_ENUM banana", "p_ENUM", "1" },
        { "p_ENUM \"banana\"", "p_ENUM", "1" },
        { "p_ENUM 0", "p_ENUM", "0" },
        { "p_NODE NULL", "p_NODE", "null" },
        { "p_NODE e", "p_NODE", "e" },
        { "p_MATRIX 1 2 3 4 5 6 7 8\n9 10 11 12 13 14 15 16", "p_MATRIX",
          "[1 2 3 4][5 6 7 8][9 10 11 12][13 14 15 16]" },
        { "p_ARRAY 2 1 FLOAT 3 4.5", "p_ARRAY", "FLOAT 2x1: 3, 4.5" },
        // A number in quotes is a literal without a value.
        { "p_FLOAT \"3\"", "p_FLOAT", "0" },
    };
    for (const auto& row : rows) {
        EXPECT_EQ(assign(row.assignment), "") << row.assignment;
        std::string got;
        if (!strcmp(row.param, "p_MATRIX")) {
            RtMatrix matrix;
            RvNodeGetMatrix(node("e"), "p_MATRIX", &matrix);
            got = node_tools::describe(matrix);
        } else {
            got = !strcmp(row.param, "p_NODE") ? nodeName(RvNodeGetPtr(node("e"), "p_NODE"))
                                               : value("e", row.param);
        }
        EXPECT_EQ(got, row.value) << row.assignment;
        EXPECT_TRUE(node_tools::isSet(node("e"), row.param)) << row.assignment;
    }
}

TEST_P(EveryTypeFile, values_that_make_no_sense_are_reported)
{
    const std::string not_found =
        " | cannot link a NULL node into e.p_FLOAT; if you are trying to remove an existing link, "
        "use RvNodeUnlink() instead | 1 tags could not be be resolved after parsing";
    const struct {
        const char* assignment;
        std::string problem;
    } rows[] = {
        { "p_BOOL .5", "unknown boolean token" },
        { "p_BOOL \"yes\"", "unknown boolean token" },
        { "p_BOOL maybe", "unknown boolean token" },
        { "p_ENUM -1", "invalid enumerated value \"-1\"" },
        { "p_ENUM 77", "invalid enumerated value \"77\"" },
        { "p_ENUM Banana", "invalid enumerated value \"Banana\"" },
        { "nonsense", "e.nonsense: unknown parameter type" },
        { "nonsense 3", "e.nonsense: unknown parameter type | e.3: unknown parameter type" },
        { "p_FLOAT nobody", "tag not found: nobody" + not_found },
        { "p_FLOAT +1", "tag not found: +1" + not_found },
    };
    for (const auto& row : rows)
        EXPECT_EQ(assign(row.assignment), row.problem);
}

TEST_P(EveryTypeFile, arrays_of_every_element_type_are_read)
{
    static const struct {
        const char *value, *param, *array;
    } rows[] = {
        { "2 2 BYTE 1 2 3 400", "a_BYTE", "BYTE 2x2: 1, 2, 3, 144" },
        { "2 1 INT -1 2", "a_INT", "INT 2x1: -1, 2" },
        { "2 1 UINT 4294967295 2", "a_UINT", "UINT 2x1: 4294967295, 2" },
        { "2 1 LONG 1 2", "a_UINT", "UINT 2x1: 1, 2" },
        { "4 1 BOOL yes off 1 0", "a_BOOL", "BOOL 4x1: 1, 0, 1, 0" },
        { "2 1 float 1 # c\n 2", "a_FLOAT", "FLOAT 2x1: 1, 2" },
        { "1 2 RGB 1 2 3 4 5 6", "a_RGB", "RGB 1x2: 1 2 3, 4 5 6" },
        { "1 1 ABSRGB 1 2 3", "a_RGB", "RGB 1x1: 1 2 3" },
        { "1 1 RGBA 1 2 3 4", "a_RGBA", "RGBA 1x1: 1 2 3 4" },
        { "1 1 VECTOR 1 2 3", "a_VECTOR", "VECTOR 1x1: 1 2 3" },
        { "2 1 POINT 1 2 3 4 5 6", "a_POINT", "POINT 2x1: 1 2 3, 4 5 6" },
        { "2 1 POINT2 1 2 3 4", "a_POINT2", "POINT2 2x1: 1 2, 3 4" },
        { "3 1 STRING plain \"quo ted\" \"back\\slash\"", "a_STRING",
          "STRING 3x1: \"plain\", \"quo ted\", \"back/slash\"" },
        { "1 1 MATRIX 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16", "a_MATRIX",
          "MATRIX 1x1: [1 2 3 4][5 6 7 8][9 10 11 12][13 14 15 16]" },
        // One value stands for an array of one element.
        { "7", "a_INT", "INT 1x1: 7" },
        { "1 2 3", "a_POINT", "POINT 1x1: 1 2 3" },
        { "\"a \\\"b\\\" # c\"", "a_STRING", "STRING 1x1: \"a \"b\" \"" },
        { "\"a \\\"b # c\"", "a_STRING", "STRING 1x1: \"a \"b # c\"" },
        { "yes", "a_BOOL", "BOOL 1x1: 1" },
        // Text for a count is 0.
        { "x y INT", "a_INT", "INT 0x1:" },
        { "-3 1 INT", "a_INT", "INT 0x1:" },
        { "3 -1 INT", "a_INT", "INT 0x1:" },
        { "0 1 STRING", "a_STRING", "STRING 0x1:" },
    };
    for (const auto& row : rows) {
        const std::string text = std::string(row.param) + " " + row.value + "\np_INT 123";
        EXPECT_EQ(assign(text), "") << text;
        EXPECT_EQ(value("e", row.param), row.array) << text;
        EXPECT_EQ(value("e", "p_INT"), "123") << text;
    }
}

TEST_P(EveryTypeFile, counts_beyond_64_bits_are_no_header)
{
    EXPECT_EQ(assign("a_INT 99999999999999999999 1 INT"),
              "e.1: unknown parameter type | e.INT: unknown parameter type");
    EXPECT_EQ(value("e", "a_INT"), "INT 1x1: -1");
}

TEST_P(EveryTypeFile, an_array_without_motion_keys_is_reported)
{
    EXPECT_EQ(assign("a_POINT 3 0 POINT"), "a_POINT: array with zero motion keys");
    EXPECT_EQ(value("e", "a_POINT"), "POINT 0x1:");
    EXPECT_EQ(assign("a_BYTE 3 0 UINT"), "a_BYTE: array with zero motion keys");
    EXPECT_EQ(value("e", "a_BYTE"), "BYTE 0x1:");
}

TEST_P(EveryTypeFile, keys_beyond_those_of_an_array_are_dropped)
{
    std::string text = "a_STRING 1 300 STRING";
    for (int i = 0; i < 300; ++i)
        text += " text_" + std::to_string(i);
    EXPECT_EQ(assign(text), "");
    const RtArray* const array = RvNodeGetArray(node("e"), "a_STRING");
    EXPECT_EQ(array->nkeys, 255);
    EXPECT_STREQ(RvArrayGetStr(array, 254), "text_254");
}

TEST_P(EveryTypeFile, an_array_of_the_wrong_type_is_left_to_nobody)
{
    EXPECT_EQ(assign("a_INT 2 1 STRING a b"),
              "e: parameter a_INT is an array of type INT, not STRING");
    EXPECT_EQ(value("e", "a_INT"), "INT 2x2: 0, 0, 0, 0");
}

TEST_P(EveryTypeFile, arrays_that_the_input_does_not_hold_take_no_memory)
{
    const uint64_t before = RvMsgUtilGetUsedMemory();
    EXPECT_EQ(problemsOf("every { name e a_POINT 150000000 1 POINT 1 2 3"),
              "a_POINT: unexpected end-of-file in array");
    EXPECT_EQ(value("e", "a_POINT"), "POINT 2x2: 0 0 0, 0 0 0, 0 0 0, 0 0 0");
    const char* const headers[] = { "4000000000 1 POINT",
                                    "4294967296 4294967296 POINT",
                                    "9223372036854775807 9223372036854775807 BYTE",
                                    "2147483648 1 STRING",
                                    "4000000000 1 NODE",
                                    "4000000000 1 ARRAY" };
    for (const char* header : headers) {
        RvNodeDestroy(node("e"));
        const std::string problem =
            problemsOf(std::string("every { name e p_ARRAY ") + header + " 1 2 3");
        EXPECT_TRUE(node_tools::reportsFailure(problem.substr(0, problem.find(" | ")),
                                               "core\\src\\dotrvs", "RvRVSParseArray"))
            << header << " " << problem;
    }
    EXPECT_LT(RvMsgUtilGetUsedMemory(), before + (64 << 20));
}

TEST_P(EveryTypeFile, what_the_end_of_the_input_cuts_off_an_array_is_zero)
{
    EXPECT_EQ(problemsOf("every { name e a_POINT 3 1 POINT 1 2 3 4"),
              "a_POINT: unexpected end-of-file in array");
    EXPECT_EQ(value("e", "a_POINT"), "POINT 3x1: 1 2 3, 4 0 0, 0 0 0");
    RvNodeDestroy(node("e"));
    problemsOf("every { name e a_STRING 3 1 STRING one");
    EXPECT_EQ(value("e", "a_STRING"), "STRING 3x1: \"one\", null, null");
}

TEST_P(EveryTypeFile, arrays_may_hold_arrays)
{
    EXPECT_EQ(assign("declare lists constant ARRAY ARRAY\n"
                     "lists 2 1 ARRAY 2 1 INT 1 2 1 1 ARRAY 1 1 STRING deep\np_INT 5"),
              "");
    EXPECT_EQ(node_tools::describe(RvNodeGetArray(node("e"), "lists")),
              "ARRAY 2x1: INT 2x1: 1, 2, ARRAY 1x1: STRING 1x1: \"deep\"");
    EXPECT_EQ(value("e", "p_INT"), "5");
}

TEST_P(EveryTypeFile, arrays_are_not_nested_without_end)
{
    std::string text = "declare lists constant ARRAY ARRAY lists";
    for (int i = 0; i < 100000; ++i)
        text += " 1 1 ARRAY";
    EXPECT_EQ(assign(text).rfind("lists: arrays are nested deeper than 64", 0), 0u);
    // The single values that stand for arrays of arrays read the same tokens again and again.
    EXPECT_EQ(assign("declare lists constant ARRAY ARRAY lists 1000000 1 ARRAY a b c")
                  .rfind("lists: arrays are nested deeper than 64", 0),
              0u);
}

TEST_P(EveryTypeFile, an_array_that_fails_inside_another_does_not_end_the_file)
{
    const std::string problem = problemsOf("every { name e declare lists constant ARRAY ARRAY\n"
                                           "lists 3 1 ARRAY 2147483648 1 INT 1 2 3");
    EXPECT_TRUE(node_tools::reportsFailure(problem, "core\\src\\dotrvs", "RvRVSParseArray"))
        << problem;
    RvNodeDestroy(node("e"));

    const std::string name = write("every.rvs", "every { name e declare lists constant ARRAY ARRAY "
                                                "lists 2 1 ARRAY 2 1 INT 1 2 1 1 STRING x }");
    const auto problems = node_tools::problemsOfFailingHeap(
        [&] {
            RvRVSLoad(name.c_str());
            RvNodeDestroy(node("e"));
        },
        takeProblems);
    EXPECT_TRUE(node_tools::anyReportsFailure(problems, "core\\src\\dotrvs", "RvRVSParseArray"));
    EXPECT_EQ(problems.count("lists: unexpected end-of-file in array"), 0u);
}

TEST_P(EveryTypeFile, element_types_that_no_file_can_hold_are_reported)
{
    RtArray* const array = RvArrayAllocate(1, 1, RV_TYPE_ENUM);
    EXPECT_EQ(array->type, RV_TYPE_ENUM);
    node_tools::installType("odd", [&](RtList* params, RtMetaDataStore*) {
        RvNodeParamARRAY(params, -1, "enums", array);
        RvNodeParamARRAY(params, -1, "nothing", nullptr);
    });
    const std::string problem = problemsOf("odd { name o enums 3 }");
    EXPECT_EQ(problem.rfind("enums: array type 15 not yet supported", 0), 0u) << problem;
    EXPECT_EQ(problemsOf("odd { nothing 3 }").rfind("nothing: array type 255 not yet supported", 0),
              0u);
    RvNodeUninstall("odd");
}

TEST_P(EveryTypeFile, a_long_array_is_the_same_as_many_short_lines)
{
    std::string text = "a_POINT 70000 1 POINT";
    for (int i = 0; i < 70000; ++i)
        text +=
            node_tools::formatted(i % 7 ? " %d %d.5 -%d" : "\r\n%d\t%d.5\n-%d # note\n", i, i, i);
    EXPECT_EQ(assign(text), "");
    const RtArray* const array = RvNodeGetArray(node("e"), "a_POINT");
    ASSERT_EQ(array->nelements, 70000u);
    for (int i = 0; i < 70000; ++i) {
        const RtPoint p = RvArrayGetPnt(array, unsigned(i));
        ASSERT_EQ(p.x, float(i));
        ASSERT_EQ(p.y, float(i + 0.5));
        ASSERT_EQ(p.z, float(-i));
    }
}

TEST_P(EveryTypeFile, an_exhausted_heap_is_survived)
{
    const std::string name =
        write("every.rvs", "every { name e p_STRING word a_INT 3 1 INT 1 2 3 a_STRING 2 1 "
                           "STRING a b a_NODE 2 1 NODE x y declare u constant STRING }\n"
                           "override { later p_INT 3 }\nnotatype { }\n");
    const auto problems = node_tools::problemsOfFailingHeap(
        [&] {
            RvRVSLoad(name.c_str());
            RvNodeDestroy(node("e"));
        },
        takeProblems);
    EXPECT_TRUE(node_tools::anyReportsFailure(problems, "core\\src\\dotrvs", "RvRVSParseArray"));
    EXPECT_TRUE(node_tools::anyReportsFailure(problems, "core\\src\\dotrvs", "RvRVSFwdRef"));
    EXPECT_TRUE(problems.count("e.a_NODE: can't allocate forward reference to x"));
    EXPECT_EQ(node("e"), nullptr);
}

// ---- Declarations ----

TEST_F(SceneFiles, user_parameters_are_declared_and_set)
{
    loadWell("sphere { name s\n"
             "declare one constant INT one 5\n"
             "declare list constant ARRAY RGB list 2 1 RGB 1 2 3 4 5 6\n"
             "declare faces uniform FLOAT faces 0.5\n"
             "declare Caps CONSTANT array STRING Caps 1 1 STRING x }");
    RtNode* const s = node("s");
    EXPECT_EQ(RvNodeGetInt(s, "one"), 5);
    EXPECT_EQ(node_tools::describe(RvNodeGetArray(s, "list")), "RGB 2x1: 1 2 3, 4 5 6");
    EXPECT_EQ(node_tools::describe(RvNodeGetArray(s, "faces")), "FLOAT 1x1: 0.5");
    EXPECT_EQ(node_tools::describe(RvNodeGetArray(s, "Caps")), "STRING 1x1: \"x\"");
}

TEST_F(SceneFiles, a_declaration_that_fails_is_reported)
{
    EXPECT_EQ(problemsOf("sphere { name s declare radius constant FLOAT }"),
              "cannot declare constant FLOAT  radius on s - name already in use | failed to add "
              "user-parameter radius of type constant FLOAT  to node s");
    const std::string endless(20000, 'x');
    problemsOf("sphere { name t declare " + endless + " " + endless + " " + endless + " }");
    problemsOf("sphere { declare");
}

TEST_F(SceneFiles, words_of_a_declaration_are_cut_to_4095_characters)
{
    for (const size_t length : { 4094u, 4095u, 4096u, 20000u }) {
        const std::string name(length, 'n'), kept(std::min<size_t>(length, 4095), 'n');
        loadWell("sphere { name s declare " + name + " constant INT " + kept + " 5 }");
        EXPECT_EQ(RvNodeGetInt(node("s"), kept.c_str()), 5) << length;
        RvNodeDestroy(node("s"));
    }
}

// ---- Statements ----

TEST_F(SceneFiles, a_missing_type_is_reported_once_and_skipped)
{
    EXPECT_EQ(problemsOf("gone { name a { }\nsphere { name s }\ngone { }\nlost { }\ngone { }"),
              "node \"gone\" is not installed | node \"lost\" is not installed");
    EXPECT_NE(node("s"), nullptr);
    EXPECT_EQ(node_tools::describe(rv::the_frame->scene->missing_types),
              "STRING 2x1: \"gone\", \"lost\"");
    EXPECT_EQ(problemsOf("gone { }"), "");
}

TEST_F(SceneFiles, missing_types_are_kept_while_threads_read_them)
{
    EXPECT_EQ(problemsOf("gone { }"), "node \"gone\" is not installed");
    const RtArray* const before = rv::the_frame->scene->missing_types;
    node_tools::HookOverride hooks;
    hooks.hooks.rendering = [] { return true; };
    EXPECT_EQ(problemsOf("lost { }"), "node \"lost\" is not installed");
    EXPECT_STREQ(RvArrayGetStr(before, 0), "gone");
    EXPECT_EQ(node_tools::describe(rv::the_frame->scene->missing_types),
              "STRING 2x1: \"gone\", \"lost\"");
}

TEST_F(SceneFiles, ignored_types_are_skipped_without_a_word)
{
    loadWell("options { ignore_list 2 1 STRING sphere \"lambert.Kd\" }\n"
             "sphere { name s radius 3 }\nflat { name f }");
    EXPECT_EQ(node("s"), nullptr);
    EXPECT_NE(node("f"), nullptr);
}

TEST_F(SceneFiles, a_missing_brace_costs_one_token)
{
    EXPECT_EQ(problemsOf("sphere name radius 2 name s }"), "wrong token");
    EXPECT_EQ(value("s", "radius"), "FLOAT 1x1: 2");
}

TEST_F(SceneFiles, options_are_the_one_node_and_not_while_rendering)
{
    loadWell("options { xres 77 }\noptions { yres 78 }");
    EXPECT_EQ(rv::render_options->xres, 77);
    EXPECT_EQ(rv::render_options->yres, 78);
    node_tools::HookOverride hooks;
    hooks.hooks.rendering = [] { return true; };
    loadWell("options { xres 1 }\nsphere { name s }");
    EXPECT_EQ(rv::render_options->xres, 77);
    EXPECT_NE(node("s"), nullptr);
}

TEST_F(SceneFiles, plug_ins_of_an_options_block_serve_the_blocks_that_follow)
{
    std::filesystem::create_directories(folder / "lib");
    std::filesystem::copy_file(std::string(testPlugins()) + "/good.so", folder / "lib" / "good.so");
    EXPECT_EQ(RvNodeEntryLookUp("good_shader"), nullptr);
    loadWell("options { shader_searchpath \"" + path("lib") + "\" }\ngood_shader { name g }");
    ASSERT_NE(node("g"), nullptr);
    EXPECT_TRUE(RvNodeIs(node("g"), "good_shader"));
}

// Nothing but a brace ends the skip: the process is stopped from outside.
TEST_F(SceneFiles, required_an_open_block_of_a_missing_type_is_skipped_for_ever)
{
    const std::string name = write("open.rvs", "sphere { name s }\nnotatype { a b");
    ::testing::FLAGS_gtest_death_test_style = "fast";
    EXPECT_EXIT(
        {
            RvMsgSetCallback(nullptr);
            alarm(1);
            RvRVSLoad(name.c_str());
            _exit(0);
        },
        ::testing::KilledBySignal(SIGALRM), "");
}

// ---- Links ----

TEST_F(SceneFiles, nodes_get_a_name_of_their_own_unless_the_file_gives_one)
{
    ASSERT_EQ(load("lambert { }\n"
                   "lambert { Kd 0.5 name late }\n"
                   "lambert { name late Kd 0.25 }\n"),
              0);
    const std::string problem = takeProblem();
    EXPECT_NE(problem.find("can't rename node \"lambert_"), std::string::npos) << problem;
    EXPECT_NE(problem.find("\" to \"late\": name already in use"), std::string::npos) << problem;
    int count = 0;
    RtNodeIterator* const nodes = RvUniverseGetNodeIterator(RV_NODE_SHADER);
    while (!RvNodeIteratorFinished(nodes)) {
        RtNode* const node = RvNodeIteratorGetNext(nodes);
        if (!RvNodeIs(node, "lambert"))
            continue;
        ++count;
        EXPECT_EQ(RvNodeLookUpByName(RvNodeGetName(node)), node) << RvNodeGetName(node);
    }
    RvNodeIteratorDestroy(nodes);
    EXPECT_EQ(count, 3);
    EXPECT_EQ(RvNodeGetFlt(RvNodeLookUpByName("late"), "Kd"), 0.5f);
}

TEST_F(SceneFiles, the_name_of_a_node_links_its_output)
{
    loadWell("flat { name f }\nlambert { name l Kd f Kd_color.r f }\n"
             "lambert { name m Kd_color later @before f }\nflat { name later }");
    EXPECT_EQ(link("l", "Kd"), "f");
    EXPECT_EQ(link("l", "Kd_color.r"), "f");
    EXPECT_EQ(link("l", "Kd_color.g"), "null");
    EXPECT_EQ(link("m", "Kd_color"), "later");
    EXPECT_EQ(link("m", "@before"), "f");
}

TEST_F(SceneFiles, a_literal_begins_with_a_digit_a_point_a_minus_or_a_quote)
{
    loadWell("flat { name 1f }\nlambert { name l Kd 1f Kd_color # c\n .5 -1 2 }");
    EXPECT_EQ(link("l", "Kd"), "null");
    EXPECT_EQ(value("l", "Kd"), "1");
    EXPECT_EQ(value("l", "Kd_color"), "0.5 -1 2");
}

// ---- Addresses ----

// Every built-in parameter that holds an address, so that a new one is not forgotten.
TEST_F(SceneFiles, no_scene_gives_an_address)
{
    int count = 0;
    for (int t = 0; t < RvGetNumInstalledNodes(); ++t) {
        const RtNodeEntry* const type = RvNodeEntryLookUpByIndex(t);
        for (int i = 0; i < RvNodeEntryGetNumParams(type); ++i) {
            const RtParamEntry* const param = RvNodeEntryGetParameter(type, i);
            if (RvParamGetType(param) != RV_TYPE_POINTER)
                continue;
            ++count;
            const std::string name = RvParamGetName(param);
            const std::string block = std::string(type->name) + " { name it " + name;
            const std::string problem = "it." + name +
                                        ": an address, which only a program can give; ignoring "
                                        "\"ball\"";
            loadWell("sphere { name ball }\n");
            EXPECT_EQ(problemsOf(block + " ball }"), problem);
            EXPECT_EQ(RvNodeGetPtr(node("it"), name.c_str()), nullptr);
            EXPECT_EQ(problemsOf("override { it " + name + " ball\n}"), problem);
            EXPECT_EQ(RvNodeGetPtr(node("it"), name.c_str()), nullptr);
            RvNodeDestroy(node("it"));

            RvNodeDestroy(node("ball"));
            EXPECT_EQ(problemsOf(block + " ball }\nsphere { name ball }"), problem);
            EXPECT_EQ(RvNodeGetPtr(node("it"), name.c_str()), nullptr);
            RvNodeSetPtr(node("it"), name.c_str(), &count); // a program may
            EXPECT_EQ(RvNodeGetPtr(node("it"), name.c_str()), &count);
            loadWell("override { it " + name + " NULL\n}");
            EXPECT_EQ(RvNodeGetPtr(node("it"), name.c_str()), nullptr);
            RvNodeDestroy(node("it"));
            RvNodeDestroy(node("ball"));
        }
    }
    EXPECT_EQ(count, 5);
}
