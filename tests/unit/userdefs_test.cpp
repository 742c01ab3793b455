// Tests of userdefs: declaring, setting and reading user parameters, and user data at a hit.
#include "node_tools.h"

#include "rv_shaderglobals.h"
#include "shading_state.h"
#include "strpool.h"

#include <math.h>
#include <optional>

using namespace node_tools;

namespace {

using Names = std::vector<std::string>;

class UserParams : public Universe {
protected:
    void SetUp() override
    {
        Universe::SetUp();
        node = named("lambert", "n");
        ASSERT_TRUE(node);
    }

    const RtUserParamEntry* declared(const char* name, const char* declaration)
    {
        EXPECT_TRUE(RvNodeDeclare(node, name, declaration)) << name << " " << declaration;
        return RvNodeLookUpUserParameter(node, name);
    }

    // Names of the user parameters that the iterator visits.
    static Names visited(const RtNode* of)
    {
        Names names;
        RtUserParamIterator* it = RvNodeGetUserParamIterator(of);
        while (!RvUserParamIteratorFinished(it))
            names.push_back(RvUserParamGetName(RvUserParamIteratorGetNext(it)));
        EXPECT_FALSE(RvUserParamIteratorGetNext(it));
        RvUserParamIteratorDestroy(it);
        return names;
    }

    // Words of declarations for the types that have an accessor pair of their own.
    static bool declarable(int type) { return type != RV_TYPE_ENUM && type != RV_TYPE_ARRAY; }

    RtNode* node = nullptr;
};

// User data at shading points: a context on `node` with a private state.
class UserData : public UserParams {
protected:
    void SetUp() override
    {
        UserParams::SetUp();
        memset(static_cast<void*>(&sg), 0, sizeof(sg));
        sg.state = &state;
        sg.object = node;
    }

    RtShadingState state = {};
    RtShaderGlobals sg;
};

} // namespace

// ---- Declaring ----

TEST_F(UserParams, declarations_are_taken_or_refused)
{
    for (const auto& v : goldenVectors("datamodel", "RvNodeDeclare")) {
        const std::string name = v["in"]["name"], declaration = v["in"]["declaration"];
        RtNode* fresh = RvNode("lambert");
        const bool ok = RvNodeDeclare(fresh, name.c_str(), declaration.c_str());
        EXPECT_EQ(ok, v["out"]["ok"].get<bool>()) << v["id"];
        const RtUserParamEntry* entry = RvNodeLookUpUserParameter(fresh, name.c_str());
        EXPECT_EQ(entry != nullptr, ok) << v["id"];
        const Names problems = takeProblems();
        if (ok) {
            const auto& expected = v["out"]["entry"];
            EXPECT_TRUE(problems.empty()) << v["id"];
            EXPECT_EQ(RvUserParamGetName(entry), name) << v["id"];
            EXPECT_EQ(RvUserParamGetCategory(entry), expected["category"].get<int>()) << v["id"];
            EXPECT_EQ(RvUserParamGetType(entry), typeCode(expected["type"])) << v["id"];
            EXPECT_EQ(RvUserParamGetArrayType(entry), typeCode(expected["array_type"])) << v["id"];
        } else {
            ASSERT_EQ(problems.size(), 1u) << v["id"];
            const std::string prefix = v["out"]["error_prefix"];
            EXPECT_EQ(problems[0].rfind(prefix, 0), 0u) << v["id"] << ": " << problems[0];
        }
        RvNodeDestroy(fresh);
    }
}

TEST_F(UserParams, names_are_accepted_or_refused)
{
    for (const auto& v : goldenVectors("datamodel", "user_param_name")) {
        const std::string name = v["in"]["name"];
        const bool accepted = v["out"]["accepted"];
        EXPECT_EQ(RvNodeDeclare(node, name.c_str(), "constant STRING"), accepted) << v["id"];
        EXPECT_EQ(takeProblem(),
                  accepted ? "" : "parameter name contains invalid characters: \"" + name + "\"")
            << v["id"];
    }
}

TEST_F(UserParams, names_allow_more_characters_than_those_of_declared_parameters)
{
    static const struct {
        const char* name;
        bool valid;
    } cases[] = {
        { "ColMap-foo|bar/baz.bam", true },
        { "_", true },
        { "a-", true },
        { "::", true },
        { "/|.:", true },
        { "x9", true },
        { "9", false },
        { "-", false },
        { "", false },
        { "a b", false },
        { "C0lM@p", false },
        { "a\\b", false },
        { "a+b", false },
        { "a\tb", false },
        { "a%sb", false },
        { "\x80", false },
    };
    for (const auto& c : cases) {
        EXPECT_EQ(RvNodeDeclare(node, c.name, "constant INT"), c.valid) << c.name;
        EXPECT_EQ(takeProblem(), c.valid ? ""
                                         : formatted("parameter name contains invalid characters: "
                                                     "\"%s\"",
                                                     c.name));
    }
}

TEST_F(UserParams, sequences_of_declarations_end_as_they_should)
{
    for (const auto& v : goldenVectors("datamodel", "RvNodeDeclare_sequence")) {
        RtNode* fresh = RvNode(v["in"]["node_type"].get<std::string>().c_str());
        ASSERT_TRUE(fresh) << v["id"];
        const std::string name = v["in"]["node_name"];
        RvNodeSetStr(node, "name", "out_of_the_way");
        RvNodeSetStr(fresh, "name", name.c_str());
        ASSERT_EQ(takeProblem(), "") << v["id"];
        std::vector<bool> results;
        for (const auto& call : v["in"]["calls"])
            results.push_back(RvNodeDeclare(fresh, call[0].get<std::string>().c_str(),
                                            call[1].get<std::string>().c_str()));
        EXPECT_EQ(results, v["out"]["results"].get<std::vector<bool>>()) << v["id"];
        EXPECT_EQ(takeProblems(), v["out"]["warnings"].get<Names>()) << v["id"];
        RvNodeDestroy(fresh);
    }
}

TEST_F(UserParams, a_second_declaration_of_a_name_is_refused)
{
    const RtUserParamEntry* entry = declared("ColMap", "constant STRING");
    EXPECT_EQ(RvUserParamGetCategory(entry), RV_USERDEF_CONSTANT);
    RvNodeSetStr(node, "ColMap", "kept");
    EXPECT_FALSE(RvNodeDeclare(node, "ColMap", "varying FLOAT"));
    EXPECT_EQ(takeProblem(), "cannot declare varying FLOAT ColMap on n - name already in use");
    EXPECT_STREQ(RvNodeGetStr(node, "ColMap"), "kept");
    EXPECT_FALSE(RvNodeDeclare(node, "Kd", "constant FLOAT"));
    EXPECT_EQ(takeProblem(), "cannot declare constant FLOAT Kd on n - name already in use");
    EXPECT_FALSE(RvNodeDeclare(node, "name", "constant STRING"));
    EXPECT_EQ(takeProblem(), "cannot declare constant STRING name on n - name already in use");
    EXPECT_TRUE(RvNodeDeclare(node, "colmap", "constant STRING")) << "names are case-sensitive";
}

TEST_F(UserParams, declarations_without_a_node_a_name_or_a_text_are_refused)
{
    EXPECT_FALSE(RvNodeDeclare(nullptr, "ColMap", "constant STRING"));
    EXPECT_FALSE(RvNodeDeclare(node, nullptr, "constant STRING"));
    EXPECT_FALSE(RvNodeDeclare(nullptr, nullptr, nullptr));
    EXPECT_TRUE(messages().empty());
    EXPECT_FALSE(RvNodeDeclare(node, "", "constant STRING"));
    EXPECT_EQ(takeProblem(), "parameter name contains invalid characters: \"\"");
    EXPECT_FALSE(RvNodeDeclare(node, "ColMap", nullptr));
    EXPECT_EQ(takeProblem(), "ColMap: missing declaration!");
    EXPECT_FALSE(RvNodeLookUpUserParameter(node, "ColMap"));
}

TEST_F(UserParams, wrong_declarations_name_the_parameter_and_the_reason)
{
    static const struct {
        const char* declaration;
        const char* message;
    } cases[] = {
        { "", "v: poorly typed user-define -- too few parameters: " },
        { "constant", "v: poorly typed user-define -- too few parameters: constant" },
        { "VARYING", "v: poorly typed user-define -- too few parameters: VARYING" },
        { "constant ARRAY", "v: missing array type! constant ARRAY" },
        { "uniform array", "v: missing array type! uniform array" },
        { "constant INT extra",
          "v: poorly typed user-define -- too many parameters: constant INT extra" },
        { "constant ARRAY INT extra",
          "v: poorly typed user-define -- too many parameters: constant ARRAY INT extra" },
    };
    for (const auto& c : cases) {
        EXPECT_FALSE(RvNodeDeclare(node, "v", c.declaration)) << c.declaration;
        EXPECT_EQ(takeProblem(), c.message);
    }
}

TEST_F(UserParams, a_wrong_class_or_type_is_shown)
{
    static const struct {
        const char* declaration;
        const char* prefix;
        const char* word;
    } cases[] = {
        { "contant STRING", "v: poorly typed user-defined var -- bad class: ", "contant" },
        { "INT constant", "v: poorly typed user-defined var -- bad class: ", "INT" },
        { "constant STING", "v: poorly typed user-defined var -- bad type: ", "STING" },
        { "constant ENUM", "v: poorly typed user-defined var -- bad type: ", "ENUM" },
        { "constant NONE", "v: poorly typed user-defined var -- bad type: ", "NONE" },
        { "uniform ARRAY STING", "v: poorly typed user-defined var -- bad type: ", "STING" },
    };
    for (const auto& c : cases) {
        EXPECT_FALSE(RvNodeDeclare(node, "v", c.declaration)) << c.declaration;
        const std::string problem = takeProblem();
        ASSERT_EQ(problem.rfind(c.prefix, 0), 0u) << problem;
        const std::string shown = problem.substr(strlen(c.prefix));
        EXPECT_TRUE(shown == c.word || shown == c.declaration) << problem;
    }
}

TEST_F(UserParams, the_parser_of_declarations_wants_a_name_and_a_text)
{
    rv::UserDeclaration out = {};
    EXPECT_FALSE(rv::UserDefParseDeclaration("", "constant INT", &out));
    EXPECT_EQ(takeProblem(), "user-define is missing a name!");
    EXPECT_FALSE(rv::UserDefParseDeclaration("v", nullptr, &out));
    EXPECT_EQ(takeProblem(), "v: missing declaration!");
    EXPECT_TRUE(rv::UserDefParseDeclaration("v", "uniform ARRAY POINT2", &out));
    EXPECT_EQ(out.category, RV_USERDEF_UNIFORM);
    EXPECT_EQ(out.type, RV_TYPE_ARRAY);
    EXPECT_EQ(out.array_type, RV_TYPE_POINT2);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(UserParams, words_are_split_at_blanks_and_read_in_any_case)
{
    static const struct {
        const char* declaration;
        int category, type, array_type;
    } cases[] = {
        { "constant INT", 1, RV_TYPE_INT, RV_TYPE_NONE },
        { "  constant   INT  ", 1, RV_TYPE_INT, RV_TYPE_NONE },
        { "Constant Int", 1, RV_TYPE_INT, RV_TYPE_NONE },
        { "UNIFORM point2", 2, RV_TYPE_POINT2, RV_TYPE_NONE },
        { "uniform LONG", 2, RV_TYPE_UINT, RV_TYPE_NONE },
        { "varying absrgb", 3, RV_TYPE_RGB, RV_TYPE_NONE },
        { "constant array matrix", 1, RV_TYPE_ARRAY, RV_TYPE_MATRIX },
        { "varying ARRAY LONG", 3, RV_TYPE_ARRAY, RV_TYPE_UINT },
        { "constant NODE", 1, RV_TYPE_NODE, RV_TYPE_NONE },
        { "constant BOOL", 1, RV_TYPE_BOOLEAN, RV_TYPE_NONE },
    };
    int i = 0;
    for (const auto& c : cases) {
        const RtUserParamEntry* entry = declared(formatted("v%d", i++).c_str(), c.declaration);
        EXPECT_EQ(RvUserParamGetCategory(entry), c.category) << c.declaration;
        EXPECT_EQ(RvUserParamGetType(entry), c.type) << c.declaration;
        EXPECT_EQ(RvUserParamGetArrayType(entry), c.array_type) << c.declaration;
    }
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(UserParams, required_long_and_absrgb_are_aliases_of_uint_and_rgb)
{
    EXPECT_EQ(RvUserParamGetType(declared("l", "uniform LONG")), RV_TYPE_UINT);
    EXPECT_EQ(RvUserParamGetType(declared("c", "constant ABSRGB")), RV_TYPE_RGB);
    EXPECT_EQ(RvUserParamGetArrayType(declared("la", "constant ARRAY LONG")), RV_TYPE_UINT);
    EXPECT_EQ(RvUserParamGetArrayType(declared("ca", "constant ARRAY ABSRGB")), RV_TYPE_RGB);
    RvNodeSetRGB(node, "c", 1, 2, 3);
    EXPECT_EQ(describe(RvNodeGetRGB(node, "c")), "1 2 3");
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(UserParams, long_and_random_declarations_do_no_harm)
{
    const std::string endless(1 << 18, 'w');
    for (const std::string& text :
         { endless, "constant " + endless, "constant ARRAY " + endless, "constant INT " + endless,
           std::string(1 << 18, ' '), "constant" + std::string(1 << 18, ' ') + "INT" })
        RvNodeDeclare(node, "v", text.c_str());
    takeProblems();
    static const char letters[] = "constant uniform ARRAY INT STRING \t\xff";
    unsigned seed = 12345;
    for (int i = 0; i < 2000; ++i) {
        std::string name, text;
        for (int k = 0; k < 24; ++k) {
            seed = seed * 1664525u + 1013904223u;
            name += char(1 + (seed >> 24) % 255);
            text += letters[(seed >> 16) % (sizeof(letters) - 1)];
        }
        RvNodeDeclare(node, name.c_str(), text.c_str());
        RvNodeDeclare(node, formatted("r%d", i).c_str(), text.c_str());
        takeProblems();
    }
}

TEST_F(UserParams, a_name_of_any_length_can_be_declared)
{
    const std::string name(100000, 'n');
    ASSERT_TRUE(declared(name.c_str(), "constant INT"));
    RvNodeSetInt(node, name.c_str(), 5);
    EXPECT_EQ(RvNodeGetInt(node, name.c_str()), 5);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(UserParams, varying_parameters_are_refused_on_instances)
{
    RtNode* instance = named("ginstance", "g");
    EXPECT_FALSE(RvNodeDeclare(instance, "a", "varying FLOAT"));
    EXPECT_EQ(takeProblem(), "cannot declare varying FLOAT a on instance g");
    EXPECT_TRUE(RvNodeDeclare(instance, "a", "uniform FLOAT"));
    EXPECT_TRUE(RvNodeDeclare(instance, "b", "constant FLOAT"));
    EXPECT_EQ(takeProblem(), "");
}

// ---- Queries and iteration ----

TEST_F(UserParams, queries_of_a_null_entry_are_neutral)
{
    EXPECT_FALSE(RvUserParamGetName(nullptr));
    EXPECT_EQ(RvUserParamGetType(nullptr), RV_TYPE_NONE);
    EXPECT_EQ(RvUserParamGetArrayType(nullptr), RV_TYPE_NONE);
    EXPECT_EQ(RvUserParamGetCategory(nullptr), 0);
    EXPECT_EQ(RvUserParamGetIndex(nullptr), -1);
    EXPECT_FALSE(RvNodeLookUpUserParameter(nullptr, "x"));
    EXPECT_FALSE(RvNodeLookUpUserParameter(node, nullptr));
    EXPECT_FALSE(RvNodeLookUpUserParameter(node, ""));
    EXPECT_TRUE(RvUserParamIteratorFinished(nullptr));
    EXPECT_FALSE(RvUserParamIteratorGetNext(nullptr));
    RvUserParamIteratorDestroy(nullptr);
    EXPECT_TRUE(messages().empty());
}

TEST_F(UserParams, required_the_index_of_any_entry_is_minus_one)
{
    const auto vectors = goldenVectors("datamodel", "RvUserParamGetIndex");
    for (const char* name : { "a", "b", "c" })
        for (const auto& v : vectors)
            EXPECT_EQ(RvUserParamGetIndex(declared(name, "constant INT")),
                      v["out"]["value"].get<int>())
                << v["id"];
}

TEST_F(UserParams, the_iterator_visits_the_parameters_in_order_of_declaration)
{
    EXPECT_TRUE(visited(node).empty());
    Names names;
    for (int i = 0; i < 100; ++i) {
        names.push_back(formatted("v%d", (i * 37) % 100));
        declared(names.back().c_str(), "constant INT");
    }
    EXPECT_EQ(visited(node), names);
    for (int i = 0; i < 100; ++i)
        EXPECT_TRUE(RvNodeLookUpUserParameter(node, names[size_t(i)].c_str()));
    EXPECT_TRUE(visited(RvNode("lambert")).empty());
}

TEST_F(UserParams, an_iterator_over_no_node_does_no_harm)
{
    RtUserParamIterator* it = RvNodeGetUserParamIterator(nullptr);
    EXPECT_TRUE(RvUserParamIteratorFinished(it));
    EXPECT_FALSE(RvUserParamIteratorGetNext(it));
    RvUserParamIteratorDestroy(it);
}

TEST_F(UserParams, names_with_equal_hashes_are_told_apart)
{
    declared("first", "constant INT");
    declared("second", "constant INT");
    RvNodeSetInt(node, "first", 1);
    RvNodeSetInt(node, "second", 2);
    node->user_params[1].hash = node->user_params[0].hash;
    EXPECT_EQ(RvNodeGetInt(node, "first"), 1);
    EXPECT_FALSE(RvNodeLookUpUserParameter(node, "third"));
}

TEST_F(UserParams, a_disabled_parameter_is_not_found)
{
    declared("dead", "constant INT");
    declared("alive", "constant INT");
    RtUserParamEntry* entry = rv::findUserParam(node, "dead", false);
    ASSERT_TRUE(entry);
    rv::releaseString(entry->name);
    entry->name = rv::internString("");
    entry->category = 0;
    EXPECT_FALSE(RvNodeLookUpUserParameter(node, "dead"));
    EXPECT_FALSE(RvNodeLookUpUserParameter(node, ""));
    EXPECT_TRUE(RvNodeLookUpUserParameter(node, "alive"));
    RvNodeSetInt(node, "dead", 1);
    EXPECT_EQ(takeProblem(), "n: could not set INT parameter \"dead\"");
}

TEST_F(UserParams, parameters_of_the_source_are_found_but_not_visited)
{
    RtNode* middle = named("lambert", "middle");
    RtNode* copy = named("lambert", "copy");
    middle->source = node;
    copy->source = middle;
    declared("far", "constant INT");
    RvNodeSetInt(node, "far", 7);
    RvNodeDeclare(middle, "near", "constant INT");
    RvNodeDeclare(copy, "own", "constant INT");
    EXPECT_EQ(RvNodeLookUpUserParameter(copy, "far"), RvNodeLookUpUserParameter(node, "far"));
    EXPECT_TRUE(RvNodeLookUpUserParameter(copy, "near"));
    EXPECT_FALSE(RvNodeLookUpUserParameter(node, "own"));
    EXPECT_EQ(RvNodeGetInt(copy, "far"), 7);
    EXPECT_EQ(visited(copy), Names{ "own" });
    EXPECT_TRUE(rv::findUserParam(copy, "far", true));
    EXPECT_FALSE(rv::findUserParam(copy, "far", false));
    EXPECT_EQ(takeProblem(), "");

    EXPECT_FALSE(RvNodeDeclare(copy, "far", "constant FLOAT"));
    EXPECT_EQ(takeProblem(), "cannot declare constant FLOAT far on copy - name already in use");
    copy->source = middle->source = nullptr;
}

// ---- Setting and reading ----

TEST_F(UserParams, a_constant_of_every_type_keeps_its_value)
{
    for (const Accessor& a : accessors()) {
        if (!declarable(a.type))
            continue;
        const std::string name = std::string("u_") + type_names[a.type];
        declared(name.c_str(), formatted("constant %s", type_names[a.type]).c_str());
        for (int seed : { 1, 2, 0 }) {
            a.set(node, name.c_str(), seed);
            EXPECT_EQ(a.get(node, name.c_str()), a.text(seed)) << name;
        }
        EXPECT_EQ(takeProblem(), "") << name;
    }
    declared("u_NODE", "constant NODE");
    RvNodeSetPtr(node, "u_NODE", node);
    EXPECT_EQ(RvNodeGetPtr(node, "u_NODE"), node);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(UserParams, a_new_constant_is_cleared)
{
    for (const Accessor& a : accessors()) {
        if (!declarable(a.type) || a.type == RV_TYPE_MATRIX)
            continue;
        const std::string name = std::string("u_") + type_names[a.type];
        declared(name.c_str(), formatted("constant %s", type_names[a.type]).c_str());
        const std::string got = a.get(node, name.c_str());
        EXPECT_TRUE(got == a.neutral || got == "\"\"") << name << " " << got;
    }
    declared("u_MATRIX", "constant MATRIX");
    RtMatrix matrix = filledMatrix(1, 1);
    RvNodeGetMatrix(node, "u_MATRIX", &matrix); // without harm
    RvNodeGetArray(node, "u_MATRIX");
}

TEST_F(UserParams, a_constant_takes_no_value_of_another_type)
{
    for (int type = 0; type < type_count; ++type) {
        if (!declarable(type))
            continue;
        const std::string name = std::string("u_") + type_names[type];
        declared(name.c_str(), formatted("constant %s", type_names[type]).c_str());
        for (const Accessor& a : accessors()) {
            if (a.type == type || (a.type == RV_TYPE_POINTER && type == RV_TYPE_NODE))
                continue;
            const std::string before = snapshot(node);
            a.set(node, name.c_str(), 1);
            EXPECT_EQ(takeProblem(), formatted("n: could not set %s parameter \"%s\"",
                                               type_names[a.type], name.c_str()));
            EXPECT_EQ(snapshot(node), before) << name << " by " << type_names[a.type];
            EXPECT_EQ(a.get(node, name.c_str()), a.neutral) << name << " by " << type_names[a.type];
            EXPECT_EQ(takeProblem(), formatted("n: could not read %s parameter \"%s\"",
                                               type_names[a.type], name.c_str()));
        }
    }
}

TEST_F(UserParams, bad_numbers_are_refused)
{
    declared("f", "constant FLOAT");
    declared("c", "constant RGB");
    declared("m", "constant MATRIX");
    declared("u", "uniform FLOAT");
    RtMatrix matrix = filledMatrix(0, 1);
    RvNodeSetMatrix(node, "m", &matrix);
    const std::string before = snapshot(node);
    RvNodeSetFlt(node, "f", NAN);
    EXPECT_EQ(takeProblem(), "ignoring parameter f on n (found bad float: nan)");
    RvNodeSetRGB(node, "c", 0, HUGE_VALF, 1);
    EXPECT_EQ(takeProblem(), "ignoring parameter c on n (found bad float: 0.000000 inf 1.000000)");
    matrix.m[3][3] = -HUGE_VALF;
    RvNodeSetMatrix(node, "m", &matrix);
    EXPECT_EQ(takeProblem(), "ignoring parameter m on n (found bad matrix)");
    RvNodeSetFlt(node, "u", NAN);
    EXPECT_EQ(takeProblem(), "ignoring parameter u on n (found bad float: nan)");
    EXPECT_EQ(snapshot(node), before);
}

TEST_F(UserParams, uniform_and_varying_parameters_keep_arrays)
{
    for (const char* category : { "uniform", "varying" })
        for (int type = 0; type < type_count; ++type) {
            if (!declarable(type))
                continue;
            const std::string name = formatted("%s_%s", category, type_names[type]);
            declared(name.c_str(), formatted("%s %s", category, type_names[type]).c_str());
            RtArray* given = RvArrayAllocate(3, 1, type);
            RvNodeSetArray(node, name.c_str(), given);
            EXPECT_EQ(takeProblem(), "") << name;
            EXPECT_EQ(RvNodeGetArray(node, name.c_str()), given) << name;
            EXPECT_EQ(takeProblem(), "") << name;
        }
}

TEST_F(UserParams, array_parameters_keep_arrays)
{
    for (int type = 0; type < type_count; ++type) {
        if (!declarable(type))
            continue;
        const std::string name = formatted("a_%s", type_names[type]);
        declared(name.c_str(), formatted("constant ARRAY %s", type_names[type]).c_str());
        RtArray* first = RvArrayAllocate(2, 2, type);
        RvNodeSetArray(node, name.c_str(), first);
        EXPECT_EQ(RvNodeGetArray(node, name.c_str()), first) << name;
        RtArray* second = RvArrayAllocate(1, 1, type);
        RvNodeSetArray(node, name.c_str(), second); // destroys the first
        RvNodeSetArray(node, name.c_str(), second); // the same once more
        EXPECT_EQ(RvNodeGetArray(node, name.c_str()), second) << name;
        EXPECT_EQ(takeProblem(), "") << name;
    }
}

TEST_F(UserParams, one_value_fills_the_array_of_a_parameter)
{
    static const char* const declarations[] = { "uniform", "varying", "constant ARRAY" };
    for (const char* declaration : declarations)
        for (const Accessor& a : accessors()) {
            if (!declarable(a.type) || a.type == RV_TYPE_POINTER || a.type == RV_TYPE_NODE)
                continue;
            const std::string name = formatted(
                "%c%s_%s", declaration[0], strchr(declaration, ' ') ? "a" : "", type_names[a.type]);
            declared(name.c_str(), formatted("%s %s", declaration, type_names[a.type]).c_str());
            a.set(node, name.c_str(), 1);
            EXPECT_EQ(takeProblem(), "") << name;
            const std::string one = a.text(1), two = a.text(2);
            EXPECT_EQ(describe(RvNodeGetArray(node, name.c_str())),
                      formatted("%s 1x1: %s", type_names[a.type], one.c_str()));
            RvNodeSetArray(node, name.c_str(), RvArrayAllocate(2, 1, a.type));
            a.set(node, name.c_str(), 2);
            EXPECT_EQ(describe(RvNodeGetArray(node, name.c_str())),
                      formatted("%s 2x1: %s, %s", type_names[a.type], two.c_str(), two.c_str()));
            EXPECT_EQ(takeProblem(), "") << name;
        }
}

TEST_F(UserParams, arrays_of_another_type_are_refused_and_stay_the_callers)
{
    declared("u", "uniform STRING");
    declared("a", "constant ARRAY MATRIX");
    declared("s", "constant FLOAT");
    const std::string before = snapshot(node);
    for (const char* name : { "u", "a", "s" }) {
        EXPECT_FALSE(giveArray(node, name, RvArray(1, 1, RV_TYPE_INT, 1))) << name;
        EXPECT_FALSE(takeProblems().empty()) << name;
    }
    EXPECT_EQ(snapshot(node), before);
    EXPECT_FALSE(giveArray(node, "a", RvArrayAllocate(1, 1, RV_TYPE_FLOAT)));
}

TEST_F(UserParams, pointers_and_nodes_reject_scalar_values)
{
    declared("p", "constant POINTER");
    declared("n", "constant NODE");
    const std::string before = snapshot(node);
    for (const char* name : { "p", "n" }) {
        RvNodeSetInt(node, name, 1);
        EXPECT_EQ(takeProblem(), formatted("n: could not set INT parameter \"%s\"", name));
        RvNodeSetFlt(node, name, 1);
        EXPECT_EQ(takeProblem(), formatted("n: could not set FLOAT parameter \"%s\"", name));
    }
    EXPECT_EQ(snapshot(node), before);
}

TEST_F(UserParams, a_declared_parameter_of_the_type_comes_first)
{
    RtNode* sphere = named("sphere", "s");
    RvNodeDeclare(sphere, "Kd", "constant FLOAT");
    RvNodeSetFlt(sphere, "Kd", 2);
    EXPECT_EQ(RvNodeGetFlt(sphere, "Kd"), 2);
    EXPECT_EQ(RvNodeGetFlt(node, "Kd"), 0.7f);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(UserParams, strings_arrays_and_matrices_die_with_the_node)
{
    declared("s", "constant STRING");
    RvNodeSetStr(node, "s", "first");
    RvNodeSetStr(node, "s", "second");
    RvNodeSetStr(node, "s", nullptr);
    RvNodeSetStr(node, "s", "third");
    declared("m", "constant MATRIX");
    const RtMatrix matrix = filledMatrix(0, 1);
    RvNodeSetMatrix(node, "m", &matrix);
    RvNodeSetMatrix(node, "m", &matrix);
    declared("a", "varying STRING");
    RvNodeSetStr(node, "a", "element");
    declared("never_set", "uniform RGB");
    RvNodeDestroy(node);
    node = nullptr;
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(UserParams, thousands_of_parameters_fit)
{
    for (int i = 0; i < 5000; ++i)
        ASSERT_TRUE(RvNodeDeclare(node, formatted("v%d", i).c_str(), "constant INT")) << i;
    RvNodeSetInt(node, "v4999", 3);
    EXPECT_EQ(RvNodeGetInt(node, "v4999"), 3);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(UserParams, more_parameters_than_the_count_can_hold_are_refused)
{
    // Only the count matters here, so the table is stretched instead of declaring each entry.
    declared("v", "constant INT");
    rv::UserDeclaration parsed;
    ASSERT_TRUE(rv::UserDefParseDeclaration("v", "constant INT", &parsed));
    auto* table = static_cast<RtUserParamEntry*>(
        RvMalloc_func(65535u * unsigned(sizeof(RtUserParamEntry)), "test", 1, "test"));
    RtUserParamEntry* before = node->user_params;
    for (int i = 0; i < 65535; ++i) {
        table[i] = before[0];
        table[i].name = i == 0 ? before[0].name : rv::internString("filler");
        table[i].hash = i == 0 ? before[0].hash : 1;
    }
    RvFree_func(before);
    node->user_params = table;
    node->user_param_count = 65535;
    EXPECT_FALSE(RvNodeDeclare(node, "one_more", "constant INT"));
    EXPECT_EQ(node->user_param_count, 65535);
    EXPECT_TRUE(RvNodeLookUpUserParameter(node, "v"));
}

// ---- The exhausted heap ----

TEST_F(UserParams, a_table_that_finds_no_memory_names_its_location)
{
    int declared_count = 0;
    const auto problems = problemsOfFailingHeap(
        [&] {
            const std::string name = formatted("v%d", declared_count);
            const bool ok = RvNodeDeclare(node, name.c_str(), "constant STRING");
            EXPECT_EQ(RvNodeLookUpUserParameter(node, name.c_str()) != nullptr, ok);
            declared_count += ok;
            EXPECT_EQ(node->user_param_count, declared_count);
        },
        takeProblems);
    EXPECT_TRUE(anyReportsFailure(problems, "core\\src\\userdefs", "RvNodeAttachUserParamEntry"));
    EXPECT_GT(declared_count, 0);
}

TEST_F(UserParams, a_matrix_that_finds_no_memory_names_its_location)
{
    declared("m", "constant MATRIX");
    const RtMatrix matrix = filledMatrix(1, 1);
    {
        AllocationLimit limit(0);
        RvNodeSetMatrix(node, "m", &matrix);
    }
    bool named_location = false;
    for (const std::string& problem : takeProblems())
        named_location |= problem.find(":RvNodeSetUserDataGeneric():") != std::string::npos;
    EXPECT_TRUE(named_location);
    RtMatrix got = {};
    RvNodeGetMatrix(node, "m", &got); // without harm
    takeProblems();
    RvNodeSetMatrix(node, "m", &matrix);
    RvNodeGetMatrix(node, "m", &got);
    EXPECT_EQ(describe(got), describe(matrix));
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(UserParams, setting_without_memory_keeps_a_usable_node)
{
    declared("s", "constant STRING");
    declared("a", "uniform STRING");
    declared("f", "varying FLOAT");
    declared("l", "constant ARRAY INT");
    declared("m", "constant MATRIX");
    const RtMatrix matrix = filledMatrix(1, 1);
    problemsOfFailingHeap(
        [&] {
            RvNodeSetStr(node, "s", "text");
            RvNodeSetStr(node, "a", "element");
            RvNodeSetFlt(node, "f", 1);
            giveArray(node, "l", RvArrayAllocate(2, 1, RV_TYPE_INT));
            RvNodeSetInt(node, "l", 4);
            RvNodeSetMatrix(node, "m", &matrix);
            RvNodeGetStr(node, "s");
            RvNodeGetArray(node, "l");
        },
        takeProblems);
    EXPECT_STREQ(RvNodeGetStr(node, "s"), "text");
    EXPECT_EQ(describe(RvNodeGetArray(node, "a")), "STRING 1x1: \"element\"");
    EXPECT_EQ(describe(RvNodeGetArray(node, "f")), "FLOAT 1x1: 1");
    EXPECT_EQ(describe(RvNodeGetArray(node, "l")), "INT 2x1: 4, 4");
    EXPECT_EQ(takeProblem(), "");
}

// ---- User data at a shading point ----

TEST_F(UserData, constants_of_every_type_are_read_at_a_hit)
{
    declared("b", "constant BOOL");
    declared("by", "constant BYTE");
    declared("i", "constant INT");
    declared("u", "constant UINT");
    declared("f", "constant FLOAT");
    declared("c", "constant RGB");
    declared("ca", "constant RGBA");
    declared("v", "constant VECTOR");
    declared("p", "constant POINT");
    declared("p2", "constant POINT2");
    declared("s", "constant STRING");
    declared("ptr", "constant POINTER");
    declared("nod", "constant NODE");
    declared("arr", "constant ARRAY INT");
    RvNodeSetBool(node, "b", true);
    RvNodeSetByte(node, "by", 200);
    RvNodeSetInt(node, "i", -3);
    RvNodeSetUInt(node, "u", 4000000000u);
    RvNodeSetFlt(node, "f", 0.25f);
    RvNodeSetRGB(node, "c", 1, 2, 3);
    RvNodeSetRGBA(node, "ca", 1, 2, 3, 4);
    RvNodeSetVec(node, "v", 4, 5, 6);
    RvNodeSetPnt(node, "p", 7, 8, 9);
    RvNodeSetPnt2(node, "p2", 1, 2);
    RvNodeSetStr(node, "s", "text");
    RvNodeSetPtr(node, "ptr", &pointees[3]);
    RvNodeSetPtr(node, "nod", node);
    RtArray* array = RvArray(2, 1, RV_TYPE_INT, 5, 6);
    RvNodeSetArray(node, "arr", array);

    bool b = false;
    uint8_t by = 0;
    int i = 0;
    unsigned u = 0;
    float f = 0;
    RtRGB c = {};
    RtRGBA ca = {};
    RtVector v = {};
    RtPoint p = {};
    RtPoint2 p2 = {};
    const char* s = nullptr;
    void* ptr = nullptr;
    void* nod = nullptr;
    RtArray* arr = nullptr;
    EXPECT_TRUE(RvUserGetBoolFunc("b", &sg, &b) && b);
    EXPECT_TRUE(RvUserGetByteFunc("by", &sg, &by) && by == 200);
    EXPECT_TRUE(RvUserGetIntFunc("i", &sg, &i) && i == -3);
    EXPECT_TRUE(RvUserGetUIntFunc("u", &sg, &u) && u == 4000000000u);
    EXPECT_TRUE(RvUserGetFltFunc("f", &sg, &f) && f == 0.25f);
    EXPECT_TRUE(RvUserGetRGBFunc("c", &sg, &c));
    EXPECT_EQ(describe(c), "1 2 3");
    EXPECT_TRUE(RvUserGetRGBAFunc("ca", &sg, &ca));
    EXPECT_EQ(describe(ca), "1 2 3 4");
    EXPECT_TRUE(RvUserGetVecFunc("v", &sg, &v));
    EXPECT_EQ(describe(v), "4 5 6");
    EXPECT_TRUE(RvUserGetPntFunc("p", &sg, &p));
    EXPECT_EQ(describe(p), "7 8 9");
    EXPECT_TRUE(RvUserGetPnt2Func("p2", &sg, &p2));
    EXPECT_EQ(describe(p2), "1 2");
    EXPECT_TRUE(RvUserGetStrFunc("s", &sg, &s));
    EXPECT_STREQ(s, "text");
    EXPECT_TRUE(RvUserGetPtrFunc("ptr", &sg, &ptr));
    EXPECT_EQ(ptr, &pointees[3]);
    EXPECT_TRUE(RvUserGetPtrFunc("nod", &sg, &nod));
    EXPECT_EQ(nod, node);
    EXPECT_TRUE(RvUserGetArrayFunc("arr", &sg, &arr));
    EXPECT_EQ(arr, array);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(UserData, data_that_is_not_there_or_of_another_type_is_not_read)
{
    declared("f", "constant FLOAT");
    RvNodeSetFlt(node, "f", 2);
    int i = 77;
    float f = 77;
    EXPECT_FALSE(RvUserGetIntFunc("f", &sg, &i));
    EXPECT_FALSE(RvUserGetIntFunc("none", &sg, &i));
    EXPECT_FALSE(RvUserGetFltFunc("F", &sg, &f));
    EXPECT_FALSE(RvUserGetFltFunc("", &sg, &f));
    EXPECT_FALSE(RvUserGetFltFunc("Kd", &sg, &f)) << "a parameter of the type is no user data";
    EXPECT_EQ(i, 77);
    EXPECT_EQ(f, 77);
}

TEST_F(UserData, null_arguments_read_nothing)
{
    declared("f", "constant FLOAT");
    float f = 77;
    EXPECT_FALSE(RvUserGetFltFunc(nullptr, &sg, &f));
    EXPECT_FALSE(RvUserGetFltFunc("f", &sg, nullptr));
    EXPECT_FALSE(RvUserGetFltFunc("f", nullptr, &f));
    sg.object = nullptr;
    EXPECT_FALSE(RvUserGetFltFunc("f", &sg, &f));
    sg.state = nullptr;
    EXPECT_FALSE(RvUserGetFltFunc("f", &sg, &f));
    EXPECT_EQ(f, 77);
    EXPECT_TRUE(messages().empty());
}

TEST_F(UserData, data_of_the_source_is_read_too)
{
    RtNode* copy = named("lambert", "copy");
    copy->source = node;
    declared("f", "constant FLOAT");
    RvNodeSetFlt(node, "f", 2);
    sg.object = copy;
    float f = 0;
    EXPECT_TRUE(RvUserGetFltFunc("f", &sg, &f));
    EXPECT_EQ(f, 2);
    copy->source = nullptr;
}

TEST_F(UserData, data_of_the_instance_is_read_when_the_object_has_none)
{
    RtNode* instance = named("ginstance", "instance");
    RvNodeDeclare(instance, "only_here", "constant INT");
    RvNodeSetInt(instance, "only_here", 4);
    RvNodeDeclare(instance, "both", "constant INT");
    RvNodeSetInt(instance, "both", 5);
    declared("both", "constant INT");
    RvNodeSetInt(node, "both", 6);
    sg.instance = instance;
    int i = 0;
    EXPECT_TRUE(RvUserGetIntFunc("only_here", &sg, &i));
    EXPECT_EQ(i, 4);
    EXPECT_TRUE(RvUserGetIntFunc("both", &sg, &i));
    EXPECT_EQ(i, 6);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(UserData, the_data_prepared_by_the_shape_comes_first)
{
    struct Hit : RtUserDataHit {};
    declared("v", "varying FLOAT");
    RvNodeSetArray(node, "v", RvArray(2, 1, RV_TYPE_FLOAT, 1.0, 2.0));
    declared("c", "constant FLOAT");
    RvNodeSetFlt(node, "c", 9);
    Hit hit;
    hit.node = node;
    hit.read = [](const RtUserDataHit*, const RtUserParamEntry* param, int type, void* out) {
        if (type != RV_TYPE_FLOAT || strcmp(RvUserParamGetName(param), "v") != 0)
            return false;
        *static_cast<float*>(out) = 1.5f;
        return true;
    };
    state.user_data = &hit;
    float f = 0;
    EXPECT_TRUE(RvUserGetFltFunc("v", &sg, &f));
    EXPECT_EQ(f, 1.5f);
    EXPECT_TRUE(RvUserGetFltFunc("c", &sg, &f));
    EXPECT_EQ(f, 9);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(UserData, uniform_data_without_a_prepared_hit_is_read_by_primitive)
{
    declared("u", "uniform FLOAT");
    RvNodeSetArray(node, "u", RvArray(3, 1, RV_TYPE_FLOAT, 1.0, 2.0, 3.0));
    float f = 0;
    for (uint32_t i : { 0u, 1u, 2u }) {
        sg.prim_index = i;
        EXPECT_TRUE(RvUserGetFltFunc("u", &sg, &f));
        EXPECT_EQ(f, float(i + 1));
    }
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(UserData, any_byte_of_an_array_but_zero_reads_as_true)
{
    declared("u", "uniform BOOL");
    uint8_t bytes[] = { 0, 1, 2, 255 };
    RvNodeSetArray(node, "u", RvArrayConvert(4, 1, RV_TYPE_BOOLEAN, bytes, false));
    for (uint32_t i = 0; i < 4; ++i) {
        sg.prim_index = i;
        bool value = false;
        EXPECT_TRUE(RvUserGetBoolFunc("u", &sg, &value));
        uint8_t got = 77;
        memcpy(&got, &value, 1);
        EXPECT_EQ(got, bytes[i] != 0) << i;
    }
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(UserData, an_array_that_does_not_fit_is_reported)
{
    declared("u", "uniform FLOAT");
    float f = 77;
    RtUserParamEntry* entry = rv::findUserParam(node, "u", false);
    RvArrayDestroy(entry->value.ARRAY);
    entry->value.ARRAY = nullptr;
    EXPECT_FALSE(RvUserGetFltFunc("u", &sg, &f));
    EXPECT_EQ(takeProblem(), "reading user-data(): accessing NULL array");

    RvNodeSetArray(node, "u", RvArray(2, 1, RV_TYPE_FLOAT, 1.0, 2.0));
    sg.prim_index = 5;
    EXPECT_FALSE(RvUserGetFltFunc("u", &sg, &f));
    EXPECT_EQ(takeProblem(), "reading user-data(): out-of-range error (index 5 of 2)");

    RvArrayDestroy(entry->value.ARRAY);
    entry->value.ARRAY = RvArray(9, 1, RV_TYPE_INT, 1, 2, 3, 4, 5, 6, 7, 8, 9);
    EXPECT_FALSE(RvUserGetFltFunc("u", &sg, &f));
    EXPECT_EQ(takeProblem(), "reading user-data():  value mismatch problem:  attempting to get a "
                             "'FLOAT' value from a 'INT' array");
    EXPECT_EQ(f, 77);
}

// ---- Writing from displacement ----

namespace {

// A sphere "n" of five vertices being displaced.
class Displacement : public UserData {
protected:
    void SetUp() override
    {
        UserData::SetUp();
        RvNodeDestroy(node);
        node = named("sphere", "n");
        sg.object = node;
        sg.stage = 3;
        hooks.emplace();
        hooks->hooks.shapeVertexCount = [](const RtNode*) { return 5u; };
    }
    void TearDown() override
    {
        hooks.reset();
        UserData::TearDown();
    }

    std::optional<HookOverride> hooks;
};

} // namespace

TEST_F(Displacement, varying_data_is_declared_when_it_is_first_written)
{
    const float value = 2.5f;
    EXPECT_TRUE(RvSetVaryingFltFunc("depth", &sg, &value));
    const RtUserParamEntry* entry = RvNodeLookUpUserParameter(node, "depth");
    ASSERT_TRUE(entry);
    EXPECT_EQ(RvUserParamGetCategory(entry), RV_USERDEF_VARYING);
    EXPECT_EQ(RvUserParamGetType(entry), RV_TYPE_FLOAT);
    RtArray* array = entry->value.ARRAY;
    ASSERT_TRUE(array);
    EXPECT_EQ(array->type, RV_TYPE_FLOAT);
    EXPECT_EQ(array->nelements, 5u);
    float sum = 0;
    for (unsigned i = 0; i < 5; ++i)
        sum += RvArrayGetFlt(array, i);
    EXPECT_EQ(sum, 2.5f) << "one vertex written, the others zero";
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Displacement, varying_data_of_every_type_is_written)
{
    const bool b = true;
    const uint8_t by = 3;
    const int i = -4;
    const unsigned u = 5;
    const float f = 6;
    const RtRGB c = { 1, 2, 3 };
    const RtRGBA ca = { 1, 2, 3, 4 };
    const RtVector v = { 4, 5, 6 };
    const RtPoint p = { 7, 8, 9 };
    const RtPoint2 p2 = { 1, 2 };
    EXPECT_TRUE(RvSetVaryingBoolFunc("b", &sg, &b));
    EXPECT_TRUE(RvSetVaryingByteFunc("by", &sg, &by));
    EXPECT_TRUE(RvSetVaryingIntFunc("i", &sg, &i));
    EXPECT_TRUE(RvSetVaryingUIntFunc("u", &sg, &u));
    EXPECT_TRUE(RvSetVaryingFltFunc("f", &sg, &f));
    EXPECT_TRUE(RvSetVaryingRGBFunc("c", &sg, &c));
    EXPECT_TRUE(RvSetVaryingRGBAFunc("ca", &sg, &ca));
    EXPECT_TRUE(RvSetVaryingVecFunc("v", &sg, &v));
    EXPECT_TRUE(RvSetVaryingPntFunc("p", &sg, &p));
    EXPECT_TRUE(RvSetVaryingPnt2Func("p2", &sg, &p2));
    EXPECT_EQ(takeProblem(), "");
    static const struct {
        const char* name;
        int type;
        const char* value;
    } cases[] = {
        { "b", RV_TYPE_BOOLEAN, "1" },     { "by", RV_TYPE_BYTE, "3" },
        { "i", RV_TYPE_INT, "-4" },        { "u", RV_TYPE_UINT, "5" },
        { "f", RV_TYPE_FLOAT, "6" },       { "c", RV_TYPE_RGB, "1 2 3" },
        { "ca", RV_TYPE_RGBA, "1 2 3 4" }, { "v", RV_TYPE_VECTOR, "4 5 6" },
        { "p", RV_TYPE_POINT, "7 8 9" },   { "p2", RV_TYPE_POINT2, "1 2" },
    };
    for (const auto& row : cases) {
        const RtUserParamEntry* entry = RvNodeLookUpUserParameter(node, row.name);
        ASSERT_TRUE(entry) << row.name;
        EXPECT_EQ(RvUserParamGetType(entry), row.type) << row.name;
        EXPECT_EQ(RvUserParamGetCategory(entry), RV_USERDEF_VARYING) << row.name;
        EXPECT_NE(describe(entry->value.ARRAY).find(row.value), std::string::npos)
            << describe(entry->value.ARRAY);
    }
}

TEST_F(Displacement, outside_a_displacement_shader_nothing_is_written)
{
    const float value = 1;
    for (int stage : { 0, 1, 2 }) {
        sg.stage = uint8_t(stage);
        EXPECT_FALSE(RvSetVaryingFltFunc("depth", &sg, &value));
        EXPECT_EQ(takeProblem(), "attempting to write to varying-parameter from outside a "
                                 "displacement shader");
    }
    EXPECT_FALSE(RvNodeLookUpUserParameter(node, "depth"));
}

TEST_F(Displacement, uniform_and_constant_data_is_not_written)
{
    RvNodeDeclare(node, "u", "uniform FLOAT");
    RvNodeDeclare(node, "c", "constant FLOAT");
    const float value = 1;
    EXPECT_FALSE(RvSetVaryingFltFunc("u", &sg, &value));
    EXPECT_EQ(takeProblem(), "problem -- attempting to write into a uniform parameter");
    EXPECT_FALSE(RvSetVaryingFltFunc("c", &sg, &value));
    EXPECT_EQ(takeProblem(), "problem -- attempting to write into a constant parameter");
}

TEST_F(Displacement, data_of_another_type_is_not_written)
{
    RvNodeDeclare(node, "d", "varying STRING");
    const float value = 1;
    EXPECT_FALSE(RvSetVaryingFltFunc("d", &sg, &value));
    const Names problems = takeProblems();
    ASSERT_FALSE(problems.empty());
    EXPECT_EQ(problems.back(), "attempting to set varying parameter 'd' failed!");
}

TEST_F(Displacement, null_and_odd_arguments_write_nothing)
{
    const float value = 1;
    EXPECT_FALSE(RvSetVaryingFltFunc(nullptr, &sg, &value));
    EXPECT_FALSE(RvSetVaryingFltFunc("d", nullptr, &value));
    EXPECT_FALSE(RvSetVaryingFltFunc("d", &sg, nullptr));
    EXPECT_FALSE(RvSetVaryingFltFunc("3d", &sg, &value)) << "no name for a parameter";
    EXPECT_FALSE(RvSetVaryingFltFunc("radius", &sg, &value)) << "taken by the type";
    sg.object = nullptr;
    EXPECT_FALSE(RvSetVaryingFltFunc("d", &sg, &value));
}
