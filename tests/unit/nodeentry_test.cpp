// Tests of nodeentry: installing, finding, querying and removing node types.
#include "node_tools.h"

#include "rv_plugins.h"

using namespace node_tools;

namespace {

class NodeEntries : public Universe {
protected:
    void SetUp() override
    {
        Universe::SetUp();
        methodCalls() = {};
    }

    // Names of the parameters of a type, in order.
    static std::vector<std::string> paramNames(const RtNodeEntry* entry)
    {
        std::vector<std::string> names;
        for (int i = 0; i < RvNodeEntryGetNumParams(entry); ++i)
            names.push_back(RvParamGetName(RvNodeEntryGetParameter(entry, i)));
        return names;
    }

    static Declaration intParams(int count)
    {
        return [count](RtList* params, RtMetaDataStore*) {
            for (int i = 0; i < count; ++i)
                RvNodeParamINT(params, -1, formatted("p%d", i).c_str(), i);
        };
    }

    static Declaration typeSynonym(const char* older_name)
    {
        return [older_name](RtList*, RtMetaDataStore* metadata) {
            RvMetaDataSetStr(metadata, nullptr, "synonym", older_name);
        };
    }
};

using Names = std::vector<std::string>;

} // namespace

// ---- Installation ----

TEST_F(NodeEntries, node_type_names_follow_the_rules)
{
    for (const auto& v : goldenVectors("maths", "node_type_name_valid")) {
        const std::string name = v["in"]["name"];
        const int before = RvGetNumInstalledNodes();
        installType(name.c_str());
        const bool accepted = v["out"]["accepted"];
        EXPECT_EQ(RvGetNumInstalledNodes(), before + accepted) << v["id"];
        EXPECT_EQ(RvNodeEntryLookUp(name.c_str()) != nullptr, accepted) << v["id"];
        const auto& error = v["out"]["error"];
        EXPECT_EQ(takeProblem(), error.is_null() ? "" : error.get<std::string>()) << v["id"];
    }
}

TEST_F(NodeEntries, letters_digits_and_underscores_make_a_type_name)
{
    static const struct {
        const char* name;
        bool valid;
    } cases[] = {
        { "a", true },     { "Z", true },    { "_", true },       { "_9", true },
        { "a_B_9", true }, { "0", false },   { "9lives", false }, { "-minus", false },
        { "a-b", false },  { "a b", false }, { "a.b", false },    { "a:b", false },
        { "a\tb", false }, { " a", false },  { "a\n", false },    { "\xc3\xa9", false },
        { "a/b", false },  { "a|b", false }, { "%s%n", false },   { "a\x7f", false },
    };
    for (const auto& c : cases) {
        EXPECT_EQ(installType(c.name) != nullptr, c.valid) << c.name;
        EXPECT_EQ(takeProblem(),
                  c.valid ? ""
                          : formatted("node name contains invalid characters: \"%s\"", c.name));
    }
}

TEST_F(NodeEntries, a_name_of_33_characters_is_refused_and_one_of_32_accepted)
{
    const std::string longest(32, 'n');
    const RtNodeEntry* entry = installType(longest.c_str());
    ASSERT_TRUE(entry);
    EXPECT_STREQ(RvNodeEntryGetName(entry), longest.c_str());
    EXPECT_EQ(takeProblem(), "");

    const std::string too_long = longest + "n";
    EXPECT_FALSE(installType(too_long.c_str()));
    EXPECT_EQ(takeProblem(), "node name is bigger than 32 characters: \"" + too_long + "\"");
}

TEST_F(NodeEntries, the_length_of_a_name_is_checked_before_its_characters)
{
    std::string name(33, ' ');
    name[0] = '-';
    installType(name.c_str());
    EXPECT_EQ(takeProblem(), "node name is bigger than 32 characters: \"" + name + "\"");
}

TEST_F(NodeEntries, a_name_of_a_megabyte_is_refused_without_harm)
{
    const std::string name(1 << 20, 'x');
    installType(name.c_str());
    const std::string problem = takeProblem();
    EXPECT_EQ(problem.rfind("node name is bigger than 32 characters: \"xxx", 0), 0u);
}

TEST_F(NodeEntries, installing_without_a_name_or_methods_does_nothing)
{
    const int before = RvGetNumInstalledNodes();
    RvNodeInstall(RV_NODE_SHADER, RV_TYPE_RGB, nullptr, "", &throwawayMethods(), RV_VERSION);
    RvNodeInstall(RV_NODE_SHADER, RV_TYPE_RGB, "no_methods", "", nullptr, RV_VERSION);
    EXPECT_EQ(RvGetNumInstalledNodes(), before);
    EXPECT_TRUE(messages().empty());
}

TEST_F(NodeEntries, a_type_without_common_methods_has_only_a_name)
{
    static const RtNodeMethods bare = { nullptr, nullptr };
    RvNodeInstall(RV_NODE_SHADER, RV_TYPE_RGB, "bare", "", &bare, RV_VERSION);
    const RtNodeEntry* entry = RvNodeEntryLookUp("bare");
    if (!entry)
        return; // refusing it is as good
    EXPECT_EQ(paramNames(entry), Names{ "name" });
    RtNode* node = RvNode("bare");
    ASSERT_TRUE(node);
    node->initialized = true;
    RvNodeDestroy(node);
}

TEST_F(NodeEntries, null_method_slots_do_nothing)
{
    static const RtCommonMethods nothing = { nullptr, nullptr, nullptr, nullptr };
    static const RtNodeMethods methods = { &nothing, nullptr };
    RvNodeInstall(RV_NODE_SHADER, RV_TYPE_RGB, "no_slots", "", &methods, RV_VERSION);
    const RtNodeEntry* entry = RvNodeEntryLookUp("no_slots");
    ASSERT_TRUE(entry);
    EXPECT_EQ(paramNames(entry), Names{ "name" });
    RtNode* node = RvNode("no_slots");
    ASSERT_TRUE(node);
    node->initialized = true;
    RvNodeDestroy(node);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(NodeEntries, a_type_installed_twice_warns_and_keeps_the_first)
{
    const RtNodeEntry* sphere = RvNodeEntryLookUp("sphere");
    ASSERT_TRUE(sphere);
    const int before = RvGetNumInstalledNodes();
    installType("sphere", intParams(1));
    EXPECT_EQ(takeProblem(), "node \"sphere\" is already installed");
    EXPECT_EQ(RvGetNumInstalledNodes(), before);
    EXPECT_EQ(RvNodeEntryLookUp("sphere"), sphere);
    EXPECT_EQ(RvNodeEntryGetType(sphere), RV_NODE_SHAPE);
    EXPECT_EQ(methodCalls().parameters, 0);
}

TEST_F(NodeEntries, the_older_name_of_a_type_counts_as_installed)
{
    installType("newer", typeSynonym("older"));
    EXPECT_EQ(takeProblem(), "");
    const int before = RvGetNumInstalledNodes();
    installType("older");
    EXPECT_EQ(takeProblem(), "node \"older\" is already installed");
    EXPECT_EQ(RvGetNumInstalledNodes(), before);
}

TEST_F(NodeEntries, parameters_are_declared_once_and_the_name_comes_last)
{
    const RtNodeEntry* entry = installType("three", intParams(3));
    ASSERT_TRUE(entry);
    EXPECT_EQ(methodCalls().parameters, 1);
    EXPECT_EQ(paramNames(entry), (Names{ "p0", "p1", "p2", "name" }));
    EXPECT_EQ(entry->own_param_count, 3);
    EXPECT_EQ(entry->kind_param_end, 3);
    for (unsigned i = 0; i < entry->num_params; ++i)
        EXPECT_EQ(entry->params[i].index, i);

    const RtParamEntry* name = RvNodeEntryLookUpParameter(entry, "name");
    ASSERT_TRUE(name);
    EXPECT_EQ(RvParamGetType(name), RV_TYPE_STRING);
    EXPECT_STREQ(RvParamGetDefault(name)->STR, "default_name");
}

TEST_F(NodeEntries, a_type_that_declares_name_itself_still_has_exactly_one_name)
{
    const RtNodeEntry* entry = installType("own_name", [](RtList* params, RtMetaDataStore*) {
        RvNodeParamSTR(params, -1, "name", "mine");
    });
    EXPECT_EQ(takeProblem(), "parameter \"name\" is declared already");
    ASSERT_TRUE(entry);
    EXPECT_EQ(paramNames(entry), Names{ "name" });
    RvNodeDestroy(RvNode("own_name"));
}

TEST_F(NodeEntries, kinds_add_their_common_parameters_before_the_name)
{
    static const struct {
        int kind;
        int common_count;
        const char* first;
        const char* last;
    } cases[] = {
        { RV_NODE_CAMERA, 14, "position", "screen_window_max" },
        { RV_NODE_LIGHT, 17, "matrix", "mis" },
        { RV_NODE_SHAPE, 22, "visibility", "autobump" },
        { RV_NODE_OPTIONS, 0, "", "" },
        { RV_NODE_SHADER, 0, "", "" },
        { RV_NODE_OVERRIDE, 0, "", "" },
        { RV_NODE_DRIVER, 0, "", "" },
        { RV_NODE_FILTER, 0, "", "" },
    };
    for (const auto& c : cases) {
        const std::string type = formatted("kind_%d", c.kind);
        const RtNodeEntry* entry = installType(type.c_str(), intParams(2), c.kind, RV_TYPE_NONE);
        ASSERT_TRUE(entry) << type;
        EXPECT_EQ(takeProblem(), "") << type;
        const Names names = paramNames(entry);
        ASSERT_EQ(int(names.size()), 2 + c.common_count + 1) << type;
        EXPECT_EQ(entry->own_param_count, 2) << type;
        EXPECT_EQ(entry->kind_param_end, 2 + c.common_count) << type;
        EXPECT_EQ(names[1], "p1") << type;
        EXPECT_EQ(names.back(), "name") << type;
        if (c.common_count) {
            EXPECT_EQ(names[2], c.first) << type;
            EXPECT_EQ(names[names.size() - 2], c.last) << type;
        }
    }
}

TEST_F(NodeEntries, a_type_of_an_unknown_kind_is_reported_and_installed)
{
    for (int kind : { 0, 3, 5, 256, 96 }) {
        const std::string type = formatted("odd_%d", kind);
        const RtNodeEntry* entry = installType(type.c_str(), intParams(1), kind);
        EXPECT_EQ(takeProblem(), formatted("%s: unknown node type (%d)", type.c_str(), kind));
        ASSERT_TRUE(entry) << kind;
        EXPECT_EQ(paramNames(entry), (Names{ "p0", "name" }));
        EXPECT_EQ(RvNodeEntryGetType(entry), kind);
    }
}

TEST_F(NodeEntries, kinds_have_names)
{
    for (const auto& v : goldenVectors("maths", "node_kind_name")) {
        const int kind = v["in"]["kind"];
        const RtNodeEntry* entry =
            installType(formatted("kind_%d", kind).c_str(), {}, kind, RV_TYPE_NONE);
        ASSERT_TRUE(entry) << v["id"];
        EXPECT_EQ(RvNodeEntryGetTypeName(entry), v["out"]["value"].get<std::string>()) << v["id"];
    }
    static const struct {
        int kind;
        const char* name;
    } cases[] = { { 0, "undefined" }, { 8, "shape" },   { 16, "shader" },
                  { 128, "filter" },  { 3, "unknown" }, { 256, "unknown" } };
    for (const auto& c : cases) {
        const RtNodeEntry* entry =
            installType(formatted("again_%d", c.kind).c_str(), {}, c.kind, RV_TYPE_NONE);
        ASSERT_TRUE(entry) << c.kind;
        EXPECT_STREQ(RvNodeEntryGetTypeName(entry), c.name) << c.kind;
    }
}

TEST_F(NodeEntries, offsets_are_checked_against_the_declared_block)
{
    for (const auto& v : goldenVectors("maths", "install_offset_check")) {
        const int offset = v["in"]["offset"], struct_size = v["in"]["struct_size"];
        const int type = v["in"]["type"];
        const RtNodeEntry* entry = installType("T", [&](RtList* params, RtMetaDataStore* metadata) {
            RvMetaDataSetInt(metadata, nullptr, "_struct_size", struct_size);
            if (type == RV_TYPE_MATRIX)
                RvNodeParamMTX(params, offset, "p", &RV_M4_IDENTITY);
            else
                RvNodeParamFLT(params, offset, "p", 0);
        });
        EXPECT_TRUE(entry) << v["id"]; // required: installed in spite of the errors
        EXPECT_EQ(takeProblems(), v["out"]["errors_for_p"].get<Names>()) << v["id"];
        RvNodeUninstall("T");
        ASSERT_FALSE(RvNodeEntryLookUp("T")) << v["id"];
    }
}

TEST_F(NodeEntries, a_parameter_of_a_type_that_cannot_be_counts_no_bytes_in_the_layout)
{
    const auto install = [](const char* name, int offset) {
        return installType(name, [offset](RtList* params, RtMetaDataStore* metadata) {
            RvMetaDataSetInt(metadata, nullptr, "_struct_size", 8);
            RvNodeParamINT(params, offset, "p", 0);
            static_cast<RtParamEntry*>(RvListHead(params)->data)->type = 77;
        });
    };
    EXPECT_TRUE(install("fits", 8));
    EXPECT_EQ(takeProblem(), "RvParamGetTypeSize: unknown data type 77!");
    EXPECT_TRUE(install("does_not", 9));
    EXPECT_EQ(takeProblem(), "RvParamGetTypeSize: unknown data type 77! | "
                             "node type does_not varoffset for param p is outside struct size "
                             "(offset=9, param size=0, struct size=8)");
}

TEST_F(NodeEntries, negative_bases_are_no_negative_declared_offsets)
{
    const RtNodeEntry* entry = installType(
        "shape",
        [](RtList* params, RtMetaDataStore* metadata) {
            RvMetaDataSetInt(metadata, nullptr, "_struct_size", 4096);
            RvMetaDataSetInt(metadata, nullptr, "_baseoffset", 16);
            RvMetaDataSetInt(metadata, nullptr, "_baseoffset2", -8);
            RvNodeParamINT(params, -4, "own", 0);
        },
        RV_NODE_SHAPE, RV_TYPE_NONE);
    ASSERT_TRUE(entry);
    EXPECT_EQ(takeProblems(),
              (Names{ "node type shape varoffset for param own is negative! (offset=-4)",
                      "node type shape varoffset for param own is outside struct size "
                      "(offset=-4, param size=4, struct size=4096)",
                      "node type shape varoffset for param name is outside struct size "
                      "(offset=-8, param size=8, struct size=4096)" }))
        << "only the declared offset can be negative";
}

TEST_F(NodeEntries, nodes_of_a_type_with_parameters_outside_its_block_do_no_harm)
{
    installType("T", [](RtList* params, RtMetaDataStore* metadata) {
        RvMetaDataSetInt(metadata, nullptr, "_struct_size", 8);
        RvNodeParamFLT(params, 6, "over_the_end", 1);
        RvNodeParamINT(params, -1, "negative", 2);
        RvNodeParamRGBA(params, 1 << 20, "far_away", 1, 2, 3, 4);
        RvNodeParamSTR(params, 4, "text", "over the end");
        RvNodeParamARRAY(params, 1000, "array", RvArray(1, 1, RV_TYPE_INT, 3));
    });
    takeProblems();
    RtNode* node = RvNode("T");
    if (!node)
        return; // refusing it is as good
    RvNodeSetFlt(node, "over_the_end", 2);
    RvNodeSetInt(node, "negative", 3);
    RvNodeSetRGBA(node, "far_away", 5, 6, 7, 8);
    RvNodeSetStr(node, "text", "other");
    RvNodeGetFlt(node, "over_the_end");
    RvNodeGetInt(node, "negative");
    RvNodeGetRGBA(node, "far_away");
    RvNodeGetStr(node, "text");
    RvNodeGetArray(node, "array");
    RvNodeReset(node);
    RvNodeDestroy(RvNodeClone(node));
    RvNodeDestroy(node);
}

TEST_F(NodeEntries, a_negative_size_of_the_block_does_no_harm)
{
    for (int struct_size : { -1, -64, INT32_MIN, 1, 7 }) {
        installType("T", [&](RtList* params, RtMetaDataStore* metadata) {
            RvMetaDataSetInt(metadata, nullptr, "_struct_size", struct_size);
            RvNodeParamINT(params, 0, "p", 1);
        });
        if (RtNode* node = RvNode("T")) {
            RvNodeSetInt(node, "p", 2);
            RvNodeSetStr(node, "name", "n");
            RvNodeDestroy(node);
        }
        RvNodeUninstall("T");
        takeProblems();
    }
}

TEST_F(NodeEntries, a_layout_adds_its_base_offsets)
{
    const RtNodeEntry* entry = installType(
        "laid_out",
        [](RtList* params, RtMetaDataStore* metadata) {
            RvMetaDataSetInt(metadata, nullptr, "_struct_size", 128);
            RvMetaDataSetInt(metadata, nullptr, "_baseoffset", 16);
            RvMetaDataSetInt(metadata, nullptr, "_baseoffset2", 120);
            RvNodeParamINT(params, 8, "own", 1);
        },
        RV_NODE_SHAPE, RV_TYPE_NONE);
    ASSERT_TRUE(entry);
    EXPECT_EQ(takeProblem(), "");
    EXPECT_EQ(entry->struct_size, 128);
    EXPECT_EQ(entry->base_offset, 16);
    EXPECT_EQ(RvNodeEntryLookUpParameter(entry, "own")->offset, 8);
    EXPECT_EQ(RvNodeEntryLookUpParameter(entry, "name")->offset, 120);

    // The common parameters of a shape stand in every shape in the same order.
    const RtNodeEntry* plain = installType("plain_shape", {}, RV_NODE_SHAPE, RV_TYPE_NONE);
    for (int i = entry->own_param_count; i < entry->kind_param_end; ++i)
        EXPECT_EQ(entry->params[i].offset, plain->params[i - 1].offset + 16)
            << entry->params[i].name;
}

TEST_F(NodeEntries, without_a_layout_sizes_and_bases_are_zero_and_offsets_are_kept)
{
    const RtNodeEntry* entry = installType("slots", intParams(2));
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->struct_size, 0);
    EXPECT_EQ(entry->base_offset, 0);
    EXPECT_EQ(entry->params[0].offset, -1);
    EXPECT_EQ(entry->params[1].offset, -1);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(NodeEntries, output_type_file_and_version_are_kept)
{
    const RtNodeEntry* entry =
        installType("shader", {}, RV_NODE_SHADER, RV_TYPE_FLOAT, "/plugins/a.so", "3.3.2.1");
    ASSERT_TRUE(entry);
    EXPECT_EQ(RvNodeEntryGetOutputType(entry), RV_TYPE_FLOAT);
    EXPECT_STREQ(RvNodeEntryGetFilename(entry), "/plugins/a.so");
    EXPECT_STREQ(RvNodeEntryGetVersion(entry), "3.3.2.1");
    EXPECT_STREQ(RvNodeEntryGetName(entry), "shader");
    EXPECT_EQ(RvNodeEntryGetType(entry), RV_NODE_SHADER);
}

TEST_F(NodeEntries, long_file_names_and_versions_are_cut)
{
    const std::string filename(1500, 'f'), version(50, 'v');
    const RtNodeEntry* entry =
        installType("cut", {}, RV_NODE_SHADER, RV_TYPE_RGB, filename.c_str(), version.c_str());
    ASSERT_TRUE(entry);
    EXPECT_EQ(RvNodeEntryGetFilename(entry), filename.substr(0, 1023));
    EXPECT_EQ(RvNodeEntryGetVersion(entry), version.substr(0, 32));

    const std::string fits(1023, 'g');
    entry = installType("fits", {}, RV_NODE_SHADER, RV_TYPE_RGB, fits.c_str());
    EXPECT_EQ(RvNodeEntryGetFilename(entry), fits);
}

TEST_F(NodeEntries, without_a_version_the_start_of_the_banner_is_taken)
{
    const RtNodeEntry* entry =
        installType("unversioned", {}, RV_NODE_SHADER, RV_TYPE_RGB, nullptr, nullptr);
    ASSERT_TRUE(entry);
    EXPECT_STREQ(RvNodeEntryGetFilename(entry), "");
    const std::string banner = std::string("Ruvell 3.3.6.0 ") + RvGetCompileOptions();
    EXPECT_EQ(RvNodeEntryGetVersion(entry), banner.substr(0, 32));
}

TEST_F(NodeEntries, more_than_ten_parameters_get_a_hash)
{
    const RtNodeEntry* ten = installType("ten", intParams(9));
    const RtNodeEntry* eleven = installType("eleven", intParams(10));
    ASSERT_TRUE(ten && eleven);
    EXPECT_EQ(ten->num_params, 10u);
    EXPECT_FALSE(ten->param_hash);
    EXPECT_EQ(eleven->num_params, 11u);
    EXPECT_TRUE(eleven->param_hash);
    for (const RtNodeEntry* entry : { ten, eleven }) {
        for (unsigned i = 0; i < entry->num_params; ++i)
            EXPECT_EQ(RvNodeEntryLookUpParameter(entry, entry->params[i].name), &entry->params[i]);
        EXPECT_FALSE(RvNodeEntryLookUpParameter(entry, "p99"));
        EXPECT_FALSE(RvNodeEntryLookUpParameter(entry, "P0"));
        EXPECT_FALSE(RvNodeEntryLookUpParameter(entry, ""));
    }
}

TEST_F(NodeEntries, a_type_with_thousands_of_parameters_installs)
{
    const RtNodeEntry* entry = installType("huge", intParams(3000));
    ASSERT_TRUE(entry);
    EXPECT_EQ(RvNodeEntryGetNumParams(entry), 3001);
    RtNode* node = RvNode("huge");
    ASSERT_TRUE(node);
    EXPECT_EQ(RvNodeGetInt(node, "p2999"), 2999);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(NodeEntries, a_null_array_as_default_does_no_harm)
{
    installType("null_array", [](RtList* params, RtMetaDataStore*) {
        RvNodeParamARRAY(params, -1, "array", nullptr);
        RvNodeParamMTX(params, -1, "matrix", &RV_M4_IDENTITY);
    });
    if (RtNode* node = RvNode("null_array")) {
        RvNodeGetArray(node, "array");
        RvNodeSetFlt(node, "array", 1);
        giveArray(node, "array", RvArray(1, 1, RV_TYPE_FLOAT, 1.0));
        RvNodeGetFlt(node, "array");
        RvNodeReset(node);
        RvNodeDestroy(RvNodeClone(node));
    }
}

// ---- Built-in types ----

TEST_F(NodeEntries, built_in_types_have_no_file_the_library_version_and_a_final_name)
{
    for (int i = 0; i < RvGetNumInstalledNodes(); ++i) {
        const RtNodeEntry* entry = RvNodeEntryLookUpByIndex(i);
        const char* name = RvNodeEntryGetName(entry);
        EXPECT_STREQ(RvNodeEntryGetFilename(entry), "") << name;
        EXPECT_STREQ(RvNodeEntryGetVersion(entry), "3.3.6.0") << name;
        const RtParamEntry* last =
            RvNodeEntryGetParameter(entry, RvNodeEntryGetNumParams(entry) - 1);
        EXPECT_STREQ(RvParamGetName(last), "name") << name;
        EXPECT_EQ(RvParamGetType(last), RV_TYPE_STRING) << name;
        EXPECT_EQ(entry->name, RvNodeEntryGetName(entry));
    }
}

TEST_F(NodeEntries, the_override_type_declares_its_parameters_in_this_order)
{
    EXPECT_EQ(paramNames(RvNodeEntryLookUp("override")),
              (Names{ "node_name", "param_name", "param_value", "param_count", "name" }));
}

TEST_F(NodeEntries, the_kind_of_the_options_type_is_called_options)
{
    EXPECT_STREQ(RvNodeEntryGetTypeName(RvNodeEntryLookUp("options")), "options");
}

// ---- Lookup and queries ----

TEST_F(NodeEntries, types_are_found_by_their_exact_name)
{
    ASSERT_TRUE(RvNodeEntryLookUp("lambert"));
    EXPECT_STREQ(RvNodeEntryGetName(RvNodeEntryLookUp("lambert")), "lambert");
    EXPECT_FALSE(RvNodeEntryLookUp(nullptr));
    EXPECT_FALSE(RvNodeEntryLookUp(""));
    EXPECT_FALSE(RvNodeEntryLookUp("Lambert"));
    EXPECT_FALSE(RvNodeEntryLookUp("lamber"));
    EXPECT_FALSE(RvNodeEntryLookUp("lambert "));
    EXPECT_FALSE(RvNodeEntryLookUp(std::string(100000, 'x').c_str()));
    EXPECT_TRUE(messages().empty());
}

TEST_F(NodeEntries, a_type_is_found_by_its_older_name_without_a_message)
{
    const RtNodeEntry* entry = installType("newer", typeSynonym("older"));
    ASSERT_TRUE(entry);
    EXPECT_EQ(RvNodeEntryLookUp("older"), entry);
    EXPECT_EQ(rv::findNodeEntry("older").by_synonym, true);
    EXPECT_EQ(rv::findNodeEntry("newer").by_synonym, false);
    EXPECT_TRUE(messages().empty());
}

TEST_F(NodeEntries, the_exact_name_wins_over_an_older_name_of_an_earlier_type)
{
    const RtNodeEntry* sphere = RvNodeEntryLookUp("sphere");
    const RtNodeEntry* lambert = RvNodeEntryLookUp("lambert");
    ASSERT_TRUE(sphere && lambert);
    RvMetaDataSetStr(lambert->metadata, nullptr, "synonym", "sphere");
    EXPECT_EQ(RvNodeEntryLookUp("sphere"), sphere);
}

TEST_F(NodeEntries, the_first_of_several_types_with_one_older_name_is_found)
{
    const RtNodeEntry* first = installType("type_a", typeSynonym("shared"));
    const RtNodeEntry* second = installType("type_b", typeSynonym("shared"));
    EXPECT_EQ(RvNodeEntryLookUp("shared"), first);
    RvNodeUninstall("type_a");
    EXPECT_EQ(RvNodeEntryLookUp("shared"), second);
}

TEST_F(NodeEntries, a_synonym_of_another_value_type_is_no_synonym)
{
    installType("newer", [](RtList*, RtMetaDataStore* metadata) {
        RvMetaDataSetInt(metadata, nullptr, "synonym", 7);
        RvMetaDataSetStr(metadata, "name", "synonym", "older");
    });
    EXPECT_FALSE(RvNodeEntryLookUp("older"));
    EXPECT_FALSE(RvNodeEntryLookUp("7"));
}

TEST_F(NodeEntries, an_index_beyond_the_end_finds_nothing)
{
    const int count = RvGetNumInstalledNodes();
    const RtNodeEntry* entry = installType("last_one");
    EXPECT_EQ(RvGetNumInstalledNodes(), count + 1);
    EXPECT_EQ(RvNodeEntryLookUpByIndex(count), entry);
    EXPECT_FALSE(RvNodeEntryLookUpByIndex(count + 1));
    EXPECT_FALSE(RvNodeEntryLookUpByIndex(INT32_MAX));
    EXPECT_FALSE(RvNodeEntryLookUpByIndex(-1));
    EXPECT_FALSE(RvNodeEntryLookUpByIndex(INT32_MIN));
}

TEST_F(NodeEntries, queries_of_a_null_type_are_neutral)
{
    EXPECT_FALSE(RvNodeEntryGetName(nullptr));
    EXPECT_FALSE(RvNodeEntryGetFilename(nullptr));
    EXPECT_FALSE(RvNodeEntryGetVersion(nullptr));
    EXPECT_EQ(RvNodeEntryGetType(nullptr), 0);
    EXPECT_FALSE(RvNodeEntryGetTypeName(nullptr));
    EXPECT_EQ(RvNodeEntryGetOutputType(nullptr), RV_TYPE_NONE);
    EXPECT_EQ(RvNodeEntryGetNumParams(nullptr), 0);
    EXPECT_FALSE(RvNodeEntryGetParameter(nullptr, 0));
    EXPECT_FALSE(RvNodeEntryLookUpParameter(nullptr, "name"));
    EXPECT_FALSE(RvNodeEntryLookUpParameter(RvNodeEntryLookUp("lambert"), nullptr));
    EXPECT_EQ(RvNodeEntryGetCount(nullptr), 0);
    EXPECT_FALSE(RvNodeEntryGetParamIterator(nullptr));
    EXPECT_FALSE(RvNodeEntryGetMetaDataIterator(nullptr, nullptr));
    EXPECT_FALSE(RvNodeEntryGetMetaDataIterator(nullptr, "name"));
    EXPECT_TRUE(messages().empty());
}

TEST_F(NodeEntries, parameters_are_found_by_an_older_name_without_a_message)
{
    for (int count : { 3, 20 }) { // scanned and hashed
        const RtNodeEntry* entry =
            installType(formatted("type_%d", count).c_str(),
                        [count](RtList* params, RtMetaDataStore* metadata) {
                            intParams(count)(params, metadata);
                            RvMetaDataSetStr(metadata, "p1", "synonym", "older");
                            RvMetaDataSetStr(metadata, "p2", "synonym", "p0");
                            RvMetaDataSetStr(metadata, nullptr, "synonym", "of_the_type");
                        });
        ASSERT_TRUE(entry);
        EXPECT_EQ(RvNodeEntryLookUpParameter(entry, "older"), &entry->params[1]);
        EXPECT_EQ(RvNodeEntryLookUpParameter(entry, "p0"), &entry->params[0])
            << "the exact name wins";
        EXPECT_FALSE(RvNodeEntryLookUpParameter(entry, "of_the_type"));
        EXPECT_TRUE(rv::findParameter(entry, "older").by_synonym);
        EXPECT_FALSE(rv::findParameter(entry, "p0").by_synonym);
        RvNodeUninstall(RvNodeEntryGetName(entry));
    }
    EXPECT_TRUE(messages().empty());
}

TEST_F(NodeEntries, the_count_follows_the_nodes_of_the_type)
{
    const RtNodeEntry* entry = installType("counted");
    EXPECT_EQ(RvNodeEntryGetCount(entry), 0);
    RtNode* first = RvNode("counted");
    RtNode* second = RvNode("counted");
    EXPECT_EQ(RvNodeEntryGetCount(entry), 2);
    RvNodeDestroy(first);
    EXPECT_EQ(RvNodeEntryGetCount(entry), 1);
    RvNodeDestroy(second);
    EXPECT_EQ(RvNodeEntryGetCount(entry), 0);
}

TEST_F(NodeEntries, the_parameter_iterator_visits_the_parameters_in_order)
{
    for (int count : { 0, 1, 15 }) {
        const RtNodeEntry* entry =
            installType(formatted("type_%d", count).c_str(), intParams(count));
        RtParamIterator* it = RvNodeEntryGetParamIterator(entry);
        ASSERT_TRUE(it);
        for (int i = 0; i <= count; ++i) {
            EXPECT_FALSE(RvParamIteratorFinished(it));
            EXPECT_EQ(RvParamIteratorGetNext(it), RvNodeEntryGetParameter(entry, i));
        }
        EXPECT_TRUE(RvParamIteratorFinished(it));
        EXPECT_FALSE(RvParamIteratorGetNext(it));
        EXPECT_FALSE(RvParamIteratorGetNext(it));
        RvParamIteratorDestroy(it);
    }
    EXPECT_TRUE(RvParamIteratorFinished(nullptr));
    EXPECT_FALSE(RvParamIteratorGetNext(nullptr));
    RvParamIteratorDestroy(nullptr);
}

TEST_F(NodeEntries, the_type_iterator_visits_the_kinds_of_its_mask_in_order)
{
    installType("late_filter", {}, RV_NODE_FILTER, RV_TYPE_NONE);
    for (unsigned mask : { 0u, 1u, 2u, 4u, 8u, 16u, 32u, 64u, 128u, 6u, 144u, 0xFFFFu, 0x100u }) {
        std::vector<const RtNodeEntry*> expected, visited;
        for (int i = 0; i < RvGetNumInstalledNodes(); ++i)
            if (unsigned(RvNodeEntryGetType(RvNodeEntryLookUpByIndex(i))) & mask)
                expected.push_back(RvNodeEntryLookUpByIndex(i));
        RtNodeEntryIterator* it = RvUniverseGetNodeEntryIterator(mask);
        ASSERT_TRUE(it) << mask;
        while (!RvNodeEntryIteratorFinished(it))
            visited.push_back(RvNodeEntryIteratorGetNext(it));
        EXPECT_EQ(visited, expected) << mask;
        EXPECT_FALSE(RvNodeEntryIteratorGetNext(it)) << mask;
        RvNodeEntryIteratorDestroy(it);
    }
    EXPECT_TRUE(RvNodeEntryIteratorFinished(nullptr));
    EXPECT_FALSE(RvNodeEntryIteratorGetNext(nullptr));
    RvNodeEntryIteratorDestroy(nullptr);
    EXPECT_TRUE(messages().empty());
}

TEST_F(NodeEntries, an_iterator_of_a_kind_visits_all_built_in_types_of_it)
{
    const auto kinds = goldenVectors("node_types", "built_in_node_types")[0]["out"]["kinds"];
    const auto visited = [](unsigned mask) {
        int count = 0;
        RtNodeEntryIterator* it = RvUniverseGetNodeEntryIterator(mask);
        for (; !RvNodeEntryIteratorFinished(it); ++count)
            RvNodeEntryIteratorGetNext(it);
        RvNodeEntryIteratorDestroy(it);
        return count;
    };
    static const std::pair<unsigned, const char*> cases[] = {
        { RV_NODE_OPTIONS, "options" }, { RV_NODE_CAMERA, "camera" },
        { RV_NODE_LIGHT, "light" },     { RV_NODE_SHAPE, "shape" },
        { RV_NODE_SHADER, "shader" },   { RV_NODE_OVERRIDE, "override" },
        { RV_NODE_DRIVER, "driver" },   { RV_NODE_FILTER, "filter" },
    };
    for (const auto& [mask, kind] : cases) {
        EXPECT_GT(visited(mask), 0) << kind;
        EXPECT_EQ(visited(mask), std::count(kinds.begin(), kinds.end(), kind)) << kind;
    }
    EXPECT_EQ(visited(RV_NODE_ALL), int(kinds.size()));
}

// ---- Removal ----

TEST_F(NodeEntries, removing_an_unknown_type_is_an_error)
{
    RvNodeUninstall("nothere");
    EXPECT_EQ(takeProblem(), "trying to uninstall non-existent node: \"nothere\"");
    RvNodeUninstall("");
    EXPECT_EQ(takeProblem(), "trying to uninstall non-existent node: \"\"");
    const int count = RvGetNumInstalledNodes();
    RvNodeUninstall(nullptr);
    EXPECT_EQ(RvGetNumInstalledNodes(), count);
}

TEST_F(NodeEntries, a_removed_type_takes_its_nodes_along)
{
    const RtNodeEntry* entry = installEveryType("doomed", true);
    ASSERT_TRUE(entry);
    RtNode* survivor = named("lambert", "survivor");
    for (int i = 0; i < 5; ++i) {
        RtNode* node = named("doomed", formatted("doomed_%d", i).c_str());
        ASSERT_TRUE(node);
        RvNodeDeclare(node, "tag", "constant STRING");
        RvNodeSetStr(node, "tag", "value");
        RvNodeLink(survivor, "p_RGB", node);
        node->initialized = i != 2;
    }
    const int types = RvGetNumInstalledNodes();
    methodCalls().finished.clear();
    RvNodeUninstall("doomed");
    EXPECT_EQ(takeProblem(), "");
    EXPECT_EQ(RvGetNumInstalledNodes(), types - 1);
    EXPECT_FALSE(RvNodeEntryLookUp("doomed"));
    EXPECT_EQ(methodCalls().finished, (Names{ "doomed_0", "doomed_1", "doomed_3", "doomed_4" }));
    for (int i = 0; i < 5; ++i)
        EXPECT_FALSE(RvNodeLookUpByName(formatted("doomed_%d", i).c_str())) << i;
    EXPECT_EQ(RvNodeLookUpByName("survivor"), survivor);
    EXPECT_FALSE(RvNode("doomed"));
    EXPECT_EQ(takeProblem(), "node \"doomed\" is not installed");
}

TEST_F(NodeEntries, a_type_is_removed_by_its_older_name_too)
{
    installType("newer", typeSynonym("older"));
    RvNodeUninstall("older");
    EXPECT_EQ(takeProblem(), "");
    EXPECT_FALSE(RvNodeEntryLookUp("newer"));
    EXPECT_FALSE(RvNodeEntryLookUp("older"));
}

TEST_F(NodeEntries, a_removed_type_can_be_installed_again)
{
    for (int round = 0; round < 3; ++round) {
        const RtNodeEntry* entry = installEveryType("phoenix", round % 2 == 1);
        ASSERT_TRUE(entry);
        EXPECT_EQ(RvNodeEntryGetCount(entry), 0);
        EXPECT_TRUE(RvNode("phoenix"));
        RvNodeUninstall("phoenix");
        EXPECT_EQ(takeProblem(), "");
    }
}

TEST_F(NodeEntries, removing_a_type_from_the_middle_keeps_the_order_of_the_others)
{
    const int before = RvGetNumInstalledNodes();
    RvNodeUninstall("flat");
    EXPECT_EQ(RvGetNumInstalledNodes(), before - 1);
    int index = -1;
    for (int i = 0; i < before - 1; ++i)
        if (!strcmp(RvNodeEntryGetName(RvNodeEntryLookUpByIndex(i)), "lambert"))
            index = i;
    ASSERT_GT(index, 0);
    EXPECT_STREQ(RvNodeEntryGetName(RvNodeEntryLookUpByIndex(index - 1)), "light_decay");
}

TEST_F(NodeEntries, removing_a_camera_type_leaves_no_camera_behind)
{
    installType("own_camera", {}, RV_NODE_CAMERA, RV_TYPE_NONE);
    RtNode* camera = RvNode("own_camera");
    EXPECT_EQ(RvUniverseGetCamera(), camera);
    RvNodeUninstall("own_camera");
    EXPECT_FALSE(RvUniverseGetCamera());
}

TEST_F(NodeEntries, every_built_in_type_can_be_removed)
{
    for (int i = RvGetNumInstalledNodes() - 1; i >= 0; --i) {
        const std::string name = RvNodeEntryGetName(RvNodeEntryLookUpByIndex(i));
        if (name != "options")
            RvNode(name.c_str());
    }
    while (RvGetNumInstalledNodes() > 0)
        RvNodeUninstall(std::string(RvNodeEntryGetName(RvNodeEntryLookUpByIndex(0))).c_str());
    EXPECT_EQ(takeProblem(), "");
    EXPECT_FALSE(RvUniverseGetOptions());
    EXPECT_EQ(RvListSize(rv::the_frame->scene->nodes), 0u);
}

// ---- The exhausted heap ----

TEST_F(NodeEntries, a_type_that_finds_no_memory_is_reported_and_not_installed)
{
    const int before = RvGetNumInstalledNodes();
    {
        AllocationLimit limit(0);
        installType("no_memory", intParams(1));
    }
    const Names problems = takeProblems();
    ASSERT_FALSE(problems.empty());
    EXPECT_TRUE(reportsFailure(problems[0], "core\\src\\nodeentry", "RvNodeInstall"))
        << problems[0];
    EXPECT_EQ(RvGetNumInstalledNodes(), before);
    EXPECT_FALSE(RvNodeEntryLookUp("no_memory"));
}

TEST_F(NodeEntries, an_installation_that_runs_out_of_memory_leaves_a_consistent_registry)
{
    const int built_in = RvGetNumInstalledNodes();
    for (bool laid_out : { false, true }) {
        bool ran_through = false;
        for (long n = 0; !ran_through && n < 10000; ++n) {
            {
                AllocationLimit limit(n);
                installEveryType("wanted", laid_out);
                ran_through = heapIsOpen();
            }
            takeProblems();
            if (RvNodeEntryLookUp("wanted")) {
                RtNode* node = RvNode("wanted");
                ASSERT_TRUE(node) << n;
                EXPECT_TRUE(RvNodeGetName(node)) << n;
                RvNodeSetInt(node, "p_INT", 3);
                RvNodeReset(node);
                RvNodeUninstall("wanted");
                takeProblems();
            } else {
                EXPECT_FALSE(ran_through) << n;
            }
            EXPECT_EQ(RvGetNumInstalledNodes(), built_in) << n;
        }
        EXPECT_TRUE(ran_through);
    }
}

TEST_F(NodeEntries, iterators_that_find_no_memory_are_null)
{
    AllocationLimit limit(0);
    EXPECT_FALSE(RvUniverseGetNodeEntryIterator(RV_NODE_ALL));
    EXPECT_FALSE(RvNodeEntryGetParamIterator(RvNodeEntryLookUpByIndex(0)));
    EXPECT_FALSE(RvNodeEntryGetMetaDataIterator(RvNodeEntryLookUpByIndex(0), nullptr));
    const Names problems = takeProblems();
    ASSERT_EQ(problems.size(), 3u);
    EXPECT_NE(problems[0].find("RvUniverseGetNodeEntryIterator():"), std::string::npos)
        << problems[0];
}
