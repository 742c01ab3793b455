// Tests of dotrvs_references: names of nodes that do not exist yet.
#include "scene_fixture.h"

#include "dotrvs_references.h"
#include "scene.h"

#include <ctime>

static unsigned waiting() { return RvListSize(rv::the_frame->scene_files->references); }

TEST_F(SceneFiles, references_are_resolved_after_the_file)
{
    loadWell("sphere { name s shader later }\nimplicit { name i field later2 }\n"
             "sphere { name t shader 3 1 NODE later NULL later2 }\n"
             "flat { name later }\nnoise { name later2 }");
    EXPECT_EQ(nodesOf("s", "shader"), "later");
    EXPECT_EQ(nodesOf("t", "shader"), "later null later2");
    EXPECT_EQ(nodeName(RvNodeGetPtr(node("i"), "field")), "later2");
    EXPECT_EQ(waiting(), 0u);
}

TEST_F(SceneFiles, the_name_null_is_a_null_pointer_without_a_warning)
{
    loadWell("sphere { name s shader NULL }\nimplicit { name i field NULL }");
    EXPECT_EQ(nodesOf("s", "shader"), "null");
    EXPECT_EQ(RvNodeGetPtr(node("i"), "field"), nullptr);
    EXPECT_EQ(waiting(), 0u);
}

// No node can be given that name, so one is entered under it.
TEST_F(SceneFiles, required_a_node_named_null_is_not_what_null_stands_for)
{
    RtSimpleHash* const names = rv::the_frame->scene->names;
    ASSERT_TRUE(simpleHash_insert(names, "NULL", RvNode("noise")));
    ASSERT_NE(node("NULL"), nullptr);
    loadWell("sphere { name s shader NULL }\nsphere { name t shader 2 1 NODE NULL NULL }\n"
             "implicit { name i field NULL }\nimplicit { name j }\n"
             "override\n{\n j field NULL\n}\n");
    EXPECT_EQ(nodesOf("s", "shader"), "null");
    EXPECT_EQ(nodesOf("t", "shader"), "null null");
    EXPECT_EQ(RvNodeGetPtr(node("i"), "field"), nullptr);
    EXPECT_EQ(RvNodeGetPtr(node("j"), "field"), nullptr);
    EXPECT_EQ(waiting(), 0u);
    simpleHash_remove(names, "NULL");
}

static std::vector<std::pair<std::string, int>> located;
static void recordLines(int, int severity, const char* text, int)
{
    if (severity > 0)
        located.emplace_back(text, rv::scene_file_line + 1);
}

TEST_F(SceneFiles, a_name_that_nobody_defines_is_reported_with_its_line)
{
    RvMsgSetCallback(recordLines);
    located.clear();
    load("\n\nimplicit { name i\nfield nobody }\n\n\n");
    const std::vector<std::pair<std::string, int>> wanted = {
        { "tag not found: nobody", 4 },
        { "1 tags could not be be resolved after parsing", 7 },
    };
    EXPECT_EQ(located, wanted);
    EXPECT_EQ(waiting(), 1u);
}

TEST_F(SceneFiles, a_reference_is_tried_again_at_the_end_of_every_load)
{
    EXPECT_EQ(problemsOf("sphere { name s shader missing }"),
              "tag not found: missing | 1 tags could not be be resolved after parsing");
    EXPECT_EQ(nodesOf("s", "shader"), "null");
    EXPECT_EQ(problemsOf(""),
              "tag not found: missing | 1 tags could not be be resolved after parsing");
    loadWell("flat { name missing }");
    EXPECT_EQ(nodesOf("s", "shader"), "missing");
    EXPECT_EQ(waiting(), 0u);
}

TEST_F(SceneFiles, with_a_procedural_in_the_scene_neither_warning_is_given)
{
    RtNode* const procedural = RvNode("procedural");
    ASSERT_NE(procedural, nullptr);
    loadWell("sphere { name s shader missing }\nimage { name i sflip maybe2 }");
    EXPECT_EQ(waiting(), 2u);
    RvNodeDestroy(procedural);
    EXPECT_EQ(problemsOf(""), "tag not found: missing | unknown boolean token | "
                              "1 tags could not be be resolved after parsing");
}

// The line is -1 when the last statement was an include.
TEST_F(SceneFiles, required_a_procedural_hides_no_warning_when_the_file_ends_with_an_include)
{
    RvNode("procedural");
    const std::string include = "include " + write("inner.rvs", "") + "\n";
    {
        node_tools::HookOverride hooks;
        hooks.hooks.rendering = [] { return true; };
        EXPECT_EQ(problemsOf("sphere { name s shader missing }\n" + include), "");
    }
    EXPECT_EQ(problemsOf(include + "\n"), ""); // the line after it is counted
    EXPECT_EQ(problemsOf(include),
              "tag not found: missing | 1 tags could not be be resolved after parsing");
}

TEST_F(SceneFiles, after_a_missing_type_no_tag_is_reported)
{
    EXPECT_EQ(problemsOf("notatype { }\nsphere { name s shader missing }"),
              "node \"notatype\" is not installed");
    EXPECT_EQ(problemsOf("sphere { name t shader missing }"), "");
    EXPECT_EQ(waiting(), 2u);
}

TEST_F(SceneFiles, references_of_an_included_file_wait_for_the_outer_one)
{
    const std::string inner =
        write("inner.rvs", "sphere { name s shader outer }\nimage { name i sflip outer }\n");
    const std::string problem = problemsOf("include " + inner + "\nflat { name outer }\n");
    EXPECT_EQ(problem.find("tag not found"), std::string::npos) << problem;
    EXPECT_EQ(problem.find("boolean"), std::string::npos) << problem;
    EXPECT_EQ(nodesOf("s", "shader"), "outer");
    EXPECT_EQ(waiting(), 0u);
}

TEST_F(SceneFiles, a_word_without_quotes_is_a_string_when_no_node_has_its_name)
{
    loadWell("image { name i filename C:\\tex\\a.tx }\nimage { name j filename stripes }");
    EXPECT_EQ(value("i", "filename"), "\"C:/tex/a.tx\"");
    EXPECT_EQ(value("j", "filename"), "\"stripes\"");
    EXPECT_EQ(problemsOf("image { name k filename i2 }\nimage { name i2 }"),
              "unable to connect i2 to k.filename - types are not compatible (RGBA to STRING)");
}

TEST_F(SceneFiles, a_word_that_is_no_boolean_is_reported_when_no_node_has_its_name)
{
    RvMsgSetCallback(recordLines);
    located.clear();
    load("image { name i sflip on\nsflip maybe }\n\n\n");
    const std::vector<std::pair<std::string, int>> wanted = { { "unknown boolean token", 2 } };
    EXPECT_EQ(located, wanted);
    EXPECT_EQ(value("i", "sflip"), "0");
    EXPECT_EQ(waiting(), 0u);
}

TEST_F(SceneFiles, a_link_that_finds_nobody_is_reported_as_a_null_link)
{
    EXPECT_EQ(problemsOf("lambert { name l Kd nobody }"),
              "tag not found: nobody | cannot link a NULL node into l.Kd; if you are trying to "
              "remove an existing link, use RvNodeUnlink() instead | 1 tags could not be be "
              "resolved after parsing");
    EXPECT_EQ(problemsOf("flat { name nobody }"), "");
    EXPECT_EQ(link("l", "Kd"), "nobody");
}

TEST_F(SceneFiles, an_array_that_was_replaced_does_not_receive_the_element)
{
    loadWell("sphere { name s shader 2 1 NODE later f shader 2 1 NODE f f }\n"
             "flat { name f }\nflat { name later }");
    EXPECT_EQ(nodesOf("s", "shader"), "f f");
    EXPECT_EQ(waiting(), 0u);
}

TEST_F(SceneFiles, references_of_a_destroyed_node_are_forgotten)
{
    problemsOf("sphere { name s shader missing }\nsphere { name t shader missing }\n"
               "lambert { name l Kd missing @before missing }");
    EXPECT_EQ(waiting(), 4u);
    RvNodeDestroy(node("l"));
    RvNodeDestroy(node("s"));
    EXPECT_EQ(waiting(), 1u);
    for (int i = 0; i < 100; ++i)
        RvNode("sphere");
    loadWell("flat { name missing }");
    EXPECT_EQ(nodesOf("t", "shader"), "missing");
}

TEST_F(SceneFiles, a_node_without_references_goes_without_a_look_at_all_of_them)
{
    RvNode("procedural"); // no warnings
    std::string text = "sphere { name s shader 200000 1 NODE";
    for (int i = 0; i < 200000; ++i)
        text += " missing";
    loadWell(text + " }");
    EXPECT_EQ(waiting(), 200000u);
    const auto seconds = [] {
        timespec time;
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return double(time.tv_sec) + 1e-9 * double(time.tv_nsec);
    };
    const double start = seconds();
    for (int i = 0; i < 5000; ++i)
        RvNodeDestroy(RvNode("sphere"));
    EXPECT_LT(seconds() - start, 1);
    RvNodeDestroy(node("s"));
    EXPECT_EQ(waiting(), 0u);
    EXPECT_TRUE(rv::the_frame->scene_files->waiting.empty());
}

TEST_F(SceneFiles, strings_that_cannot_be_kept_are_reported)
{
    RtNode* const s = node_tools::named("sphere", "s");
    const auto problems = node_tools::problemsOfFailingHeap(
        [&] {
            rv::freeReference(
                RvRVSFwdRef(s, "a_new_parameter", "a_new_target", true, false, 0, 0, 0, nullptr));
        },
        takeProblems);
    EXPECT_TRUE(problems.count(
        "s.a_new_parameter: can't allocate strings in forward reference to a_new_target"));
}

// ---- Values and links ----

// Nodes of types with these outputs are given to a parameter of type NODE and one of POINTER.
TEST_F(SceneFiles, the_output_type_tells_links_from_pointers)
{
    static const struct {
        int output;
        const char *param, *at_once, *later, *problem;
    } rows[] = {
        { RV_TYPE_NODE, "p_NODE", "link", "link", "" },
        { RV_TYPE_NODE, "p_POINTER", "pointer", "nothing", "(NODE to POINTER)" },
        { RV_TYPE_POINTER, "p_POINTER", "link", "link", "" },
        { RV_TYPE_POINTER, "p_NODE", "pointer", "nothing", "(POINTER to NODE)" },
        { RV_TYPE_RGB, "p_NODE", "pointer", "pointer", "" },
        { RV_TYPE_RGB, "p_POINTER", "pointer", "pointer", "" },
    };
    const auto given = [this](const char* param) {
        const void* const source = node("source");
        return RvNodeGetLink(node("e"), param) == source && source ? "link"
               : RvNodeGetPtr(node("e"), param) == source          ? "pointer"
                                                                   : "nothing";
    };
    node_tools::installEveryType("every", true);
    for (const auto& row : rows) {
        node_tools::installType("giver", {}, RV_NODE_SHADER, row.output);
        const std::string source = "giver { name source }\n";
        const std::string target =
            std::string("every { name e ").append(row.param).append(" source }\n");
        loadWell(source + target);
        EXPECT_STREQ(given(row.param), row.at_once) << row.output << row.param;
        RvNodeDestroy(node("e"));
        RvNodeDestroy(node("source"));

        const std::string problem = problemsOf(target + source);
        EXPECT_EQ(problem.empty(), !*row.problem) << problem;
        EXPECT_NE(problem.find(row.problem), problem.npos) << problem;
        EXPECT_STREQ(given(row.param), row.later) << row.output << row.param;
        RvNodeDestroy(node("e"));
        RvNodeDestroy(node("source"));
        RvNodeUninstall("giver");
    }
    RvNodeUninstall("every");
}

TEST_F(SceneFiles, what_waits_at_the_end_of_the_universe_is_dropped)
{
    problemsOf("sphere { name s shader missing }\noverride { later radius 2 }");
    RvEnd();
    RvBegin();
    EXPECT_EQ(waiting(), 0u);
    EXPECT_EQ(rv::the_frame->scene_files->overrides->count, 0u);
    EXPECT_EQ(rv::include_depth, 0);
}

TEST_F(SceneFiles, nodes_may_link_to_themselves_in_vain)
{
    EXPECT_EQ(problemsOf("lambert { name l Kd l }"), "cannot recursively link node l to itself");
    EXPECT_EQ(problemsOf("lambert { Kd m name m }"), "cannot recursively link node m to itself");
}
