// Tests of output statements, good and bad.
#include "aovs/output_statements.h"
#include "aovs/output_tools.h"

#include <random>

using namespace output_tools;
using nlohmann::json;

struct Statements : Outputs {
    static void initializeNodes() { rv::initializeNodes(rv::the_frame->scene); }

    // The words of the one output that the statement makes, or null.
    static json accepted(const RtAOVOutputStore& store)
    {
        if (store.outputs.empty())
            return nullptr;
        const RtAOVOutput& output = store.outputs[0];
        return { store.aovs[size_t(output.aov)].name, RvParamGetTypeName(output.type),
                 RvNodeGetName(output.filter), RvNodeGetName(output.driver) };
    }

    // The problems of one statement after a good one that does not matter.
    static std::string problemOf(const std::string& statement)
    {
        EXPECT_TRUE(prepare({ "other FLOAT box drv", statement.c_str() })) << statement;
        EXPECT_EQ(rv::output_store->outputs.size(), 1u) << statement;
        return takeProblem();
    }
};

TEST_F(Statements, golden_statements)
{
    for (const auto& v : goldenVectors("output", "output_statement")) {
        RtNode* const box = node_tools::named("box_filter", "golden_box");
        RtNode* const driver = node_tools::named("file_driver", "golden_driver");
        RvNodeSetStr(RvNodeLookUpByName("box"), "name", "old_box");
        RvNodeSetStr(RvNodeLookUpByName("drv"), "name", "old_drv");
        RvNodeSetStr(box, "name", "box");
        RvNodeSetStr(driver, "name", "drv");
        const std::string statement = v["in"]["statement"];
        const bool prepared = prepare({ statement.c_str() });
        std::vector<std::string> problems = takeProblems();
        if (!prepared) {
            ASSERT_EQ(problems.back(), "[aov] no valid outputs - can't continue");
            problems.pop_back();
        }
        expectGolden(v, "accepted", prepared ? accepted(*rv::output_store) : json());
        expectGolden(v, "warning", problems.empty() ? json() : json(problems.at(0)));
        EXPECT_LE(problems.size(), 1u) << goldenId(v);
        closeOutputs();
        RvNodeDestroy(box);
        RvNodeDestroy(driver);
        RvNodeSetStr(RvNodeLookUpByName("old_box"), "name", "box");
        RvNodeSetStr(RvNodeLookUpByName("old_drv"), "name", "drv");
        takeProblems();
    }
}

TEST_F(Statements, every_way_to_be_wrong_has_its_message)
{
    node_tools::named("raw_driver", "raw");
    node_tools::named("bare_driver", "bare");
    node_tools::named("file_driver", "file");
    node_tools::named("heatmap_filter", "heat");
    static const struct {
        const char* statement;
        const char* problem;
    } rows[] = {
        { "a b", "[aov] unable to parse output line, found 2 tokens but expecting 1 or 4" },
        { "a b c", "[aov] unable to parse output line, found 3 tokens but expecting 1 or 4" },
        { "a b c d e", "[aov] unable to parse output line, found 5 tokens but expecting 1 or 4" },
        { "", "[aov] unable to parse output line, found 0 tokens but expecting 1 or 4" },
        { " \t ", "[aov] unable to parse output line, found 0 tokens but expecting 1 or 4" },
        { "v COLOR box drv", "[aov] output requires illegal type \"COLOR\" for AOV \"v\"" },
        { "v NONE box drv", "[aov] output requires illegal type \"NONE\" for AOV \"v\"" },
        { "v FLOAT nobody drv", "[aov] output references a non-filter node: nobody" },
        { "v FLOAT drv drv", "[aov] output references a non-filter node: drv" },
        { "v STRING box drv", "[aov] filter \"box\" does not support STRING inputs" },
        { "v MATRIX box drv", "[aov] filter \"box\" does not support MATRIX inputs" },
        { "v POINT heat drv", "[aov] filter \"heat\" does not support POINT inputs" },
        { "v FLOAT box nobody", "[aov] output references a non-driver node: nobody" },
        { "v FLOAT box box", "[aov] output references a non-driver node: box" },
        { "v FLOAT box options", "[aov] output references a non-driver node: options" },
        { "v FLOAT box bare", "[aov] output references a non-driver node: bare" },
        { "v FLOAT box raw", "[aov] filtered output references raw-driver: raw" },
        { "P POINT box file", "[aov] driver \"file\" does not support POINT pixels" },
        { "nobody", "[aov] output references a non-driver node: nobody" },
        { "box", "[aov] output references a non-driver node: box" },
        { "bare", "[aov] output references a non-driver node: bare" },
        { "drv", "[aov] output references a non-raw driver without filtered input: drv" },
    };
    for (const auto& row : rows)
        EXPECT_EQ(problemOf(row.statement), row.problem) << row.statement;
}

TEST_F(Statements, types_match_in_any_case_and_blanks_in_any_number)
{
    for (const char* statement : { "v rgba box drv", "  v   Rgba\tbox\n drv  " }) {
        ASSERT_TRUE(prepare({ statement }));
        EXPECT_EQ(accepted(*rv::output_store), (json{ "v", "RGBA", "box", "drv" }));
    }
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Statements, are_shown_to_those_who_debug)
{
    prepare({ "v FLOAT box drv" });
    bool shown = false;
    for (const LoggedMessage& m : messages())
        shown |= m.mask & RV_LOG_DEBUG &&
                 m.text == "[aov] parsing output statement: \"v FLOAT box drv\"";
    EXPECT_TRUE(shown);
}

TEST_F(Statements, every_stored_type_may_be_a_variable)
{
    node_tools::named("closest_filter", "closest");
    for (const char* type : node_tools::type_names)
        EXPECT_TRUE(prepare({ node_tools::formatted("v %s closest drv", type).c_str() })) << type;
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Statements, a_variable_keeps_the_type_of_its_first_statement)
{
    ASSERT_TRUE(prepare({ "v FLOAT box drv", "v RGB box drv" }));
    EXPECT_EQ(takeProblem(), "[aov] type mismatch for \"v\" (expected FLOAT, found RGB)");
    ASSERT_EQ(rv::output_store->outputs.size(), 2u);
    EXPECT_EQ(rv::output_store->outputs[1].aov, rv::output_store->outputs[0].aov);
    EXPECT_EQ(rv::output_store->outputs[1].type, RV_TYPE_FLOAT);
    EXPECT_EQ(rv::output_store->outputs[1].pixel_type, RV_TYPE_FLOAT);
}

TEST_F(Statements, required_variables_are_registered_and_bad_ones_are_reported)
{
    static const char* required[] = { "RGB diffuse",  "FLOAT",        "BOGUS x",
                                      "FLOAT Z more", "point2 where", nullptr };
    probe().required_aovs = required;
    probe().requires_depth = true;
    node_tools::named("raw_driver", "raw");
    ASSERT_TRUE(prepare({ "raw" }));
    EXPECT_EQ(takeProblem(), "[aov] output requires illegal type \"FLOAT\" for AOV \"\" | "
                             "[aov] output requires illegal type \"BOGUS\" for AOV \"x\" | "
                             "[aov] output requires illegal type \"FLOAT\" for AOV \"Z\"");
    ASSERT_EQ(rv::output_store->aovs.size(), 3u);
    EXPECT_EQ(rv::findAOV("diffuse")->type, RV_TYPE_RGB);
    EXPECT_TRUE(rv::findAOV("diffuse")->deep);
    EXPECT_EQ(rv::findAOV("where")->type, RV_TYPE_POINT2);
    EXPECT_EQ(rv::output_store->outputs[0].aov, -1);
    EXPECT_EQ(rv::output_store->outputs[0].type, RV_TYPE_NONE);
}

TEST_F(Statements, the_sample_offset_takes_the_type_that_a_statement_declares)
{
    static const struct {
        const char* declared;
        int type;
        const char* problem;
    } rows[] = {
        { "FLOAT", RV_TYPE_FLOAT, "" },
        { "RGB", RV_TYPE_RGB, "" },
        { "RGBA", RV_TYPE_RGBA, "" },
        { "POINT2", RV_TYPE_POINT2, "" },
        { "INT", RV_TYPE_POINT2,
          "[aov] type mismatch for \"AA_offset\" (expected POINT2, found INT)" },
    };
    for (const auto& row : rows) {
        ASSERT_TRUE(
            prepare({ node_tools::formatted("AA_offset %s box drv", row.declared).c_str() }));
        EXPECT_EQ(rv::output_store->aovs[0].type, row.type) << row.declared;
        EXPECT_EQ(takeProblem(), row.problem);
    }
}

TEST_F(Statements, random_text_is_refused_in_good_order)
{
    static const char* const words[] = { "RGBA",      "FLOAT", "box",  "drv", "raw",      "options",
                                         "AA_offset", "Z",     "%s%n", "\"",  "\x80\xff", "ARRAY",
                                         "-1",        "\t",    " ",    "\n" };
    node_tools::named("raw_driver", "raw");
    std::mt19937 random(1);
    for (int i = 0; i < 500; ++i) {
        std::string statement;
        for (size_t n = random() % 9; n > 0; --n)
            statement +=
                std::string(words[random() % std::size(words)]) + (random() % 4 ? " " : "");
        if (i % 50 == 0)
            statement += std::string(100000, 'x');
        if (prepare({ statement.c_str() }))
            EXPECT_EQ(rv::output_store->outputs.size(), 1u) << statement;
        else
            EXPECT_EQ(rv::output_store, nullptr);
        takeProblems();
    }
}
