// Tests of nodes: reset, clones, older names of parameters, colours of shaders.
#include "nodes_fixture.h"

using namespace node_tools;

// ---- Reset ----

TEST_P(NodeAccess, reset_restores_every_default_and_forgets_what_was_set)
{
    RtNode* source = RvNode("lambert");
    for (const Accessor& a : accessors()) {
        a.set(node, param(a.type).c_str(), 2);
        if (a.type != RV_TYPE_ARRAY)
            a.set(node, array(a.type).c_str(), 2);
    }
    RvNodeLink(source, "p_RGB", node);
    RvNodeLink(source, "@before", node);
    ASSERT_TRUE(RvNodeGetLink(node, "p_RGB"));
    RvNodeDeclare(node, "tag", "constant INT");
    RvNodeSetInt(node, "tag", 5);

    RvNodeReset(node);
    for (int type = 0; type < type_count; ++type)
        EXPECT_EQ(read(type), everyTypeDefault(type)) << type_names[type];
    for (unsigned i = 0; i < node->entry->num_params; ++i)
        EXPECT_EQ(node->set_flags[i], 0) << node->entry->params[i].name;
    EXPECT_FALSE(RvNodeGetLink(node, "p_RGB"));
    EXPECT_TRUE(node->links) << "the emptied table stays";
    EXPECT_EQ(RvNodeGetLink(node, "@before"), source) << "the evaluation order stays";
    EXPECT_EQ(RvNodeGetInt(node, "tag"), 5) << "user parameters are untouched";
    EXPECT_EQ(takeProblem(), "");
}

TEST_P(NodeAccess, required_reset_renames_the_node_but_not_in_the_name_table)
{
    RvNodeReset(node);
    EXPECT_STREQ(RvNodeGetStr(node, "name"), "default_name");
    EXPECT_STREQ(RvNodeGetName(node), "default_name");
    EXPECT_EQ(RvNodeLookUpByName("n"), node);
    EXPECT_FALSE(RvNodeLookUpByName("default_name"));
}

TEST_P(NodeAccess, a_reset_node_that_is_destroyed_is_found_no_more)
{
    RvNodeReset(node);
    RvNodeDestroy(node);
    EXPECT_FALSE(RvNodeLookUpByName("n"));
    EXPECT_FALSE(RvNodeLookUpByName("default_name"));
}

TEST_P(NodeAccess, a_reset_node_that_is_destroyed_leaves_its_namesake_alone)
{
    RtNode* namesake = named("everything", "default_name");
    RvNodeReset(node);
    RvNodeDestroy(node);
    EXPECT_EQ(RvNodeLookUpByName("default_name"), namesake);
    EXPECT_FALSE(RvNodeLookUpByName("n"));
}

TEST_P(NodeAccess, a_reset_node_can_be_renamed_and_destroyed)
{
    RvNodeReset(node);
    RvNodeSetStr(node, "name", "again");
    EXPECT_EQ(RvNodeLookUpByName("again"), node);
    RvNodeDestroy(node);
    EXPECT_FALSE(RvNodeLookUpByName("again"));
    EXPECT_FALSE(RvNodeLookUpByName("n"));
    EXPECT_EQ(takeProblem(), "");
}

// ---- Clone ----

TEST_P(NodeAccess, a_clone_has_copies_of_all_values_but_the_name)
{
    for (const Accessor& a : accessors()) {
        a.set(node, param(a.type).c_str(), 2);
        if (a.type != RV_TYPE_ARRAY)
            a.set(node, array(a.type).c_str(), 2);
    }
    RvNodeSetPtr(node, "p_NODE", node);
    RtNode* clone = RvNodeClone(node);
    ASSERT_TRUE(clone);
    EXPECT_NE(clone, node);
    EXPECT_TRUE(RvNodeIs(clone, "everything"));
    EXPECT_STRNE(RvNodeGetName(clone), "n");
    EXPECT_TRUE(matches(RvNodeGetName(clone), "everything_[0-9A-F]{24,}"));
    EXPECT_EQ(RvNodeLookUpByName("n"), node);
    EXPECT_EQ(RvNodeLookUpByName(RvNodeGetName(clone)), clone);
    for (const Accessor& a : accessors())
        EXPECT_EQ(a.get(clone, param(a.type).c_str()), a.text(2)) << type_names[a.type];
    EXPECT_EQ(RvNodeGetPtr(clone, "p_NODE"), node);
    for (int element = 0; element < type_count; ++element) {
        if (!isElementType(element))
            continue;
        RtArray* original = RvNodeGetArray(node, array(element).c_str());
        RtArray* copy = RvNodeGetArray(clone, array(element).c_str());
        EXPECT_NE(copy, original) << type_names[element];
        EXPECT_EQ(describe(copy), describe(original)) << type_names[element];
    }
    EXPECT_EQ(RvNodeGetStr(clone, "p_STRING"), RvNodeGetStr(node, "p_STRING"));
    EXPECT_EQ(takeProblem(), "");

    const RtMatrix other = filledMatrix(50, 1);
    RvNodeSetMatrix(clone, "p_MATRIX", &other);
    EXPECT_EQ(read(RV_TYPE_MATRIX), describe(filledMatrix(2, 1))) << "matrices are not shared";
    RvNodeDestroy(node);
    EXPECT_EQ(describe(RvNodeGetStr(clone, "p_STRING")), "\"text 2\"");
}

TEST_P(NodeAccess, a_clone_has_copies_of_the_user_parameters)
{
    RvNodeDeclare(node, "text", "constant STRING");
    RvNodeSetStr(node, "text", "value");
    RvNodeDeclare(node, "matrix", "constant MATRIX");
    const RtMatrix matrix = filledMatrix(1, 1);
    RvNodeSetMatrix(node, "matrix", &matrix);
    RvNodeDeclare(node, "list", "constant ARRAY STRING");
    RvNodeSetArray(node, "list", strings({ "a", "b" }));
    RvNodeDeclare(node, "unset", "varying FLOAT");
    RvNodeDeclare(node, "number", "constant FLOAT");
    RvNodeSetFlt(node, "number", 2.5f);

    RtNode* clone = RvNodeClone(node);
    ASSERT_TRUE(clone);
    RvNodeDestroy(node);
    EXPECT_STREQ(RvNodeGetStr(clone, "text"), "value");
    EXPECT_EQ(RvNodeGetFlt(clone, "number"), 2.5f);
    EXPECT_EQ(describe(RvNodeGetArray(clone, "list")), "STRING 2x1: \"a\", \"b\"");
    RtMatrix copy = {};
    RvNodeGetMatrix(clone, "matrix", &copy);
    EXPECT_EQ(describe(copy), describe(matrix));
    EXPECT_EQ(RvUserParamGetCategory(RvNodeLookUpUserParameter(clone, "unset")),
              RV_USERDEF_VARYING);
    EXPECT_EQ(takeProblem(), "");
}

TEST_P(NodeAccess, a_clone_counts_as_set_what_the_original_does)
{
    RvNodeSetInt(node, "p_INT", 3);
    RvNodeSetArray(node, "p_ARRAY", RvArray(1, 1, RV_TYPE_FLOAT, 1.0));
    RtNode* clone = RvNodeClone(node);
    for (unsigned i = 0; i < node->entry->num_params; ++i)
        EXPECT_EQ(clone->set_flags[i], node->set_flags[i]) << node->entry->params[i].name;
    EXPECT_EQ(takeProblem(), "");
}

TEST_P(NodeAccess, a_clone_of_a_new_node_equals_a_new_node)
{
    RtNode* clone = RvNodeClone(node);
    for (int type = 0; type < type_count; ++type)
        EXPECT_EQ(accessor(accessType(type)).get(clone, param(type).c_str()),
                  everyTypeDefault(type))
            << type_names[type];
    EXPECT_FALSE(clone->local_data);
    EXPECT_FALSE(clone->creator);
    EXPECT_FALSE(clone->initialized);
    EXPECT_EQ(takeProblem(), "");
}

// ---- Older parameter names ----

TEST_F(Nodes, the_older_name_of_a_parameter_warns_and_works)
{
    installType("synonyms", [](RtList* params, RtMetaDataStore* metadata) {
        RvNodeParamINT(params, -1, "number", 1);
        RvNodeParamARRAY(params, -1, "list", RvArray(1, 1, RV_TYPE_INT, 1));
        RvNodeParamENUM(params, -1, "choice", 0, fruit);
        RvNodeParamSTR(params, -1, "text", "");
        for (const char* name : { "number", "list", "choice", "text" })
            RvMetaDataSetStr(metadata, name, "synonym", (std::string("old_") + name).c_str());
    });
    RtNode* node = named("synonyms", "n");
    const auto warning = [](const char* name) {
        return formatted("n: parameter \"old_%s\" is deprecated, use \"%s\"", name, name);
    };
    RvNodeSetInt(node, "old_number", 5);
    EXPECT_EQ(takeProblem(), warning("number"));
    EXPECT_EQ(RvNodeGetInt(node, "number"), 5);
    EXPECT_TRUE(isSet(node, "number"));
    EXPECT_EQ(takeProblem(), "");
    EXPECT_EQ(RvNodeGetInt(node, "old_number"), 5);
    EXPECT_EQ(takeProblem(), warning("number"));
    RvNodeSetArray(node, "old_list", RvArray(1, 1, RV_TYPE_INT, 9));
    EXPECT_EQ(takeProblem(), warning("list"));
    EXPECT_EQ(RvNodeGetInt(node, "list"), 9);
    RvNodeSetStr(node, "old_text", "t");
    EXPECT_EQ(takeProblem(), warning("text"));
    EXPECT_STREQ(RvNodeGetStr(node, "text"), "t");
    RvNodeSetInt(node, "old_choice", 2);
    EXPECT_EQ(takeProblem(), warning("choice"));
    EXPECT_EQ(RvNodeGetInt(node, "choice"), 2);
}

TEST_F(Nodes, a_wrong_type_by_the_older_name_warns_of_both)
{
    RtNode* image = named("image", "n");
    RvNodeSetInt(image, "image_map", 1);
    EXPECT_EQ(takeProblem(), "n: parameter \"image_map\" is deprecated, use \"filename\" | "
                             "n: could not set INT parameter \"image_map\"");
}

// ---- Colours of shaders ----

TEST_F(Nodes, shader_gamma_applies_to_colours_of_shaders)
{
    installType("colours", [](RtList* params, RtMetaDataStore* metadata) {
        RvNodeParamRGB(params, -1, "color", 0, 0, 0);
        RvNodeParamRGB(params, -1, "linear", 0, 0, 0);
        RvNodeParamRGBA(params, -1, "color_a", 0, 0, 0, 0);
        RvMetaDataSetBool(metadata, "linear", "always_linear", true);
        RvMetaDataSetBool(metadata, "color_a", "always_linear", false);
    });
    for (const auto& v : goldenVectors("misc", "shader_gamma")) {
        RvNodeSetFlt(RvUniverseGetOptions(), "shader_gamma", v["in"]["shader_gamma"]);
        RtNode* node = v["in"]["node_kind"] == "shader" ? RvNode("colours") : RvNode("point_light");
        const char* name = v["in"]["always_linear"].get<bool>() ? "linear" : "color";
        const auto color = v["in"]["color"].get<std::vector<float>>();
        RvNodeSetRGB(node, name, color[0], color[1], color[2]);
        const RtRGB stored = RvNodeGetRGB(node, name);
        const float channels[] = { stored.r, stored.g, stored.b };
        for (size_t i = 0; i < 3; ++i)
            EXPECT_NEAR(channels[i], v["out"]["stored"][i].get<float>(), 2e-6f) << v["id"];
    }

    RvNodeSetFlt(RvUniverseGetOptions(), "shader_gamma", 2.2f);
    RtNode* shader = RvNode("colours");
    RvNodeSetRGB(shader, "color", 0.5f, 0.25f, 1);
    EXPECT_EQ(describe(RvNodeGetRGB(shader, "color")),
              describe(RtRGB{ powf(0.5f, 2.2f), powf(0.25f, 2.2f), 1 }));
    RvNodeSetRGB(shader, "linear", 0.5f, 0.25f, 1);
    EXPECT_EQ(describe(RvNodeGetRGB(shader, "linear")), "0.5 0.25 1");
    RvNodeSetRGBA(shader, "color_a", 0.5f, 0.25f, 1, 0.5f);
    EXPECT_EQ(describe(RvNodeGetRGBA(shader, "color_a")),
              describe(RtRGBA{ powf(0.5f, 2.2f), powf(0.25f, 2.2f), 1, 0.5f }));

    RtNode* lambert = RvNode("lambert");
    RvNodeSetRGB(lambert, "Kd_color", 0.5f, 0.5f, 0.5f);
    EXPECT_EQ(RvNodeGetRGB(lambert, "Kd_color").r, powf(0.5f, 2.2f));
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Nodes, shader_gamma_leaves_other_kinds_and_arrays_alone)
{
    RvNodeSetFlt(RvUniverseGetOptions(), "shader_gamma", 2.2f);
    RtNode* light = RvNode("point_light");
    RvNodeSetRGB(light, "color", 0.5f, 0.5f, 0.5f);
    EXPECT_EQ(describe(RvNodeGetRGB(light, "color")), "0.5 0.5 0.5");
    RtNode* options = RvUniverseGetOptions();
    RvNodeSetRGB(options, "error_color_bad_mesh", 0.5f, 0.25f, 0.125f);
    EXPECT_EQ(describe(RvNodeGetRGB(options, "error_color_bad_mesh")), "0.5 0.25 0.125");

    installEveryType("everything", true);
    RtNode* node = RvNode("everything");
    RvNodeSetArray(node, "a_RGB", RvArray(1, 1, RV_TYPE_RGB, RtRGB{ 0.5f, 0.5f, 0.5f }));
    EXPECT_EQ(describe(RvNodeGetRGB(node, "a_RGB")), "0.5 0.5 0.5");
    EXPECT_EQ(takeProblem(), "");
}

// ---- Reset and clone of built-in types ----

TEST_F(Nodes, an_array_called_shader_starts_with_the_default_shader)
{
    installType("shaded", [](RtList* params, RtMetaDataStore*) {
        RvNodeParamARRAY(params, -1, "shader", RvArrayAllocate(0, 1, RV_TYPE_NODE));
        RvNodeParamARRAY(params, -1, "other", RvArrayAllocate(0, 1, RV_TYPE_NODE));
    });
    for (const char* type : { "shaded", "sphere" }) {
        RtNode* node = RvNode(type);
        for (int round = 0; round < 2; ++round) {
            RtArray* shader = RvNodeGetArray(node, "shader");
            ASSERT_TRUE(shader) << type;
            EXPECT_EQ(shader->type, RV_TYPE_NODE);
            EXPECT_EQ(shader->nelements, 1u) << type;
            EXPECT_EQ(shader->nkeys, 1);
            EXPECT_EQ(RvArrayGetPtr(shader, 0), RvNodeLookUpByName("rv_default_reflection_shader"));
            RvNodeSetArray(node, "shader", RvArrayAllocate(3, 1, RV_TYPE_NODE));
            RvNodeReset(node);
        }
    }
    EXPECT_EQ(RvNodeGetArray(RvNode("shaded"), "other")->nelements, 0u);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Nodes, the_options_node_has_no_clone)
{
    EXPECT_FALSE(RvNodeClone(RvUniverseGetOptions()));
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Nodes, a_cloned_light_is_a_light_of_the_scene)
{
    RtNode* light = RvNode("point_light");
    RtNode* clone = RvNodeClone(light);
    ASSERT_EQ(RvUniverseGetNumLights(), 2);
    EXPECT_EQ(RvUniverseGetLights()[1], clone);
}

TEST_F(Nodes, an_instanced_copy_leaves_out_marked_parameters)
{
    for (bool laid_out : { false, true }) {
        const std::string type = laid_out ? "laid_out" : "slots";
        installType(type.c_str(), [laid_out](RtList* params, RtMetaDataStore* metadata) {
            declareEveryType(params, metadata, laid_out);
            for (const char* name : { "p_INT", "p_STRING", "p_MATRIX", "a_FLOAT" })
                RvMetaDataSetBool(metadata, name, "_skip_copy_on_instance", true);
            RvMetaDataSetBool(metadata, "p_UINT", "_skip_copy_on_instance", false);
        });
        RtNode* node = named(type.c_str(), "n");
        for (const Accessor& a : accessors())
            a.set(node, (std::string("p_") + type_names[a.type]).c_str(), 2);
        RvNodeSetFlt(node, "a_FLOAT", 4);
        RvNodeSetFlt(node, "a_INT", 4);
        RtNode* copy = RvNode(type.c_str());
        rv::RvNodeCopy(copy, node, rv::CopyMode::instance);
        for (int code : { RV_TYPE_INT, RV_TYPE_STRING, RV_TYPE_MATRIX })
            EXPECT_EQ(accessor(code).get(copy, (std::string("p_") + type_names[code]).c_str()),
                      everyTypeDefault(code))
                << type_names[code];
        for (int code : { RV_TYPE_UINT, RV_TYPE_FLOAT, RV_TYPE_RGB, RV_TYPE_ARRAY })
            EXPECT_EQ(accessor(code).get(copy, (std::string("p_") + type_names[code]).c_str()),
                      accessor(code).text(2))
                << type_names[code];
        EXPECT_EQ(RvNodeGetFlt(copy, "a_FLOAT"), 0);
        RtNode* clone = RvNodeClone(node);
        EXPECT_EQ(RvNodeGetInt(clone, "p_INT"), 2) << "a clone gets everything";
        EXPECT_EQ(RvNodeGetFlt(clone, "a_FLOAT"), 4);
        RvNodeDestroy(node);
        takeProblems();
    }
}
