// Tests of nodes: creation, ignored types, names, destruction, broken invariants, the exhausted
// heap.
#include "nodes_fixture.h"

using namespace node_tools;

// ---- Creation ----

TEST_F(Nodes, a_type_that_does_not_exist_gives_no_node)
{
    EXPECT_FALSE(RvNode("this_doesnt_exist"));
    EXPECT_EQ(takeProblem(), "node \"this_doesnt_exist\" is not installed");
    EXPECT_FALSE(RvNode(""));
    EXPECT_EQ(takeProblem(), "node \"\" is not installed");
    EXPECT_FALSE(RvNode(nullptr));
    takeProblems();
    EXPECT_FALSE(RvNode("Lambert"));
    EXPECT_EQ(takeProblem(), "node \"Lambert\" is not installed");
    EXPECT_FALSE(RvNode("%s%n"));
    EXPECT_EQ(takeProblem(), "node \"%s%n\" is not installed");
}

TEST_F(Nodes, every_call_makes_another_node)
{
    RtNode* sphere = RvNode("sphere");
    RtNode* first = RvNode("lambert");
    RtNode* second = RvNode("lambert");
    ASSERT_TRUE(sphere && first && second);
    EXPECT_NE(sphere, first);
    EXPECT_NE(first, second);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Nodes, built_in_nodes_start_with_their_defaults)
{
    EXPECT_EQ(RvNodeGetFlt(RvNode("lambert"), "Kd"), 0.7f);
    EXPECT_EQ(RvNodeGetFlt(RvNode("disc"), "radius"), 0.5f);
    RtNode* sphere = RvNode("sphere");
    EXPECT_EQ(RvNodeGetFlt(sphere, "radius"), 0.5f);
    EXPECT_EQ(RvNodeGetInt(sphere, "visibility"), 65535);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Nodes, every_built_in_type_makes_a_node_with_its_declared_defaults)
{
    for (int i = 0; i < RvGetNumInstalledNodes(); ++i) {
        const RtNodeEntry* entry = RvNodeEntryLookUpByIndex(i);
        const std::string type = RvNodeEntryGetName(entry);
        if (type == "options")
            continue;
        RtNode* node = RvNode(type.c_str());
        ASSERT_TRUE(node) << type;
        for (unsigned p = 0; p < entry->num_params; ++p) {
            const RtParamEntry* param = &entry->params[p];
            const std::string where = type + "." + param->name;
            const void* at = rv::paramStorage(node, param);
            if (param->type == RV_TYPE_ARRAY) {
                if (!strcmp(param->name, "shader"))
                    continue; // holds the default shader
                EXPECT_EQ(describe(*static_cast<RtArray* const*>(at)),
                          describe(param->default_value.ARRAY))
                    << where;
            } else if (param->type == RV_TYPE_MATRIX) {
                const void* matrix = entry->struct_size ? at : *static_cast<void* const*>(at);
                EXPECT_EQ(describeElement(param->type, matrix),
                          describe(*param->default_value.pMTX))
                    << where;
            } else if (strcmp(param->name, "name") != 0) {
                EXPECT_EQ(describeElement(param->type, at),
                          describeElement(param->type, &param->default_value))
                    << where;
            }
        }
        EXPECT_EQ(takeProblem(), "") << type;
    }
}

TEST_F(Nodes, default_names_have_their_form_and_end_with_the_count_of_the_type)
{
    for (unsigned i = 1; i <= 20; ++i) {
        const std::string name = RvNodeGetName(RvNode("lambert"));
        EXPECT_TRUE(matches(name, "lambert_[0-9A-F]{24,}")) << name;
        EXPECT_EQ(name.substr(name.size() - 8), formatted("%08X", i));
    }
}

TEST_F(Nodes, default_names_of_living_nodes_are_unique_and_found)
{
    std::set<std::string> names;
    for (int i = 0; i < 1500; ++i) {
        // Destroying the first gives the third the count, and perhaps the time, of the second.
        RtNode* first = RvNode("lambert");
        RtNode* second = RvNode("lambert");
        RvNodeDestroy(first);
        RtNode* third = RvNode("lambert");
        for (RtNode* node : { second, third }) {
            ASSERT_TRUE(node);
            EXPECT_TRUE(names.insert(RvNodeGetName(node)).second) << RvNodeGetName(node);
            EXPECT_EQ(RvNodeLookUpByName(RvNodeGetName(node)), node);
        }
    }
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Nodes, a_second_options_node_is_the_first)
{
    RtNode* options = RvUniverseGetOptions();
    EXPECT_EQ(RvNode("options"), options);
    EXPECT_EQ(RvNode("options"), options);
    EXPECT_STREQ(RvNodeGetName(options), "options");
    EXPECT_EQ(RvNodeEntryGetCount(RvNodeEntryLookUp("options")), 1);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Nodes, no_options_node_is_made_while_rendering)
{
    RtNode* lambert = nullptr;
    {
        HookOverride override;
        override.hooks.rendering = [] { return true; };
        EXPECT_FALSE(RvNode("options"));
        lambert = RvNode("lambert");
    }
    EXPECT_TRUE(lambert);
    EXPECT_EQ(RvNode("options"), RvUniverseGetOptions());
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Nodes, the_older_name_of_a_type_warns)
{
    installType("newer", [](RtList*, RtMetaDataStore* metadata) {
        RvMetaDataSetStr(metadata, nullptr, "synonym", "older");
    });
    RtNode* node = RvNode("older");
    EXPECT_EQ(takeProblem(), "node entry \"older\" is deprecated, use \"newer\"");
    ASSERT_TRUE(node);
    EXPECT_TRUE(RvNodeIs(node, "newer"));
    EXPECT_FALSE(RvNodeIs(node, "older"));
    EXPECT_TRUE(RvNode("newer"));
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Nodes, a_new_node_has_cleared_fields)
{
    RtNode* node = RvNode("lambert");
    EXPECT_FALSE(node->links);
    EXPECT_FALSE(node->before);
    EXPECT_FALSE(node->local_data);
    EXPECT_FALSE(node->source);
    EXPECT_FALSE(node->creator);
    EXPECT_FALSE(node->initialized);
    EXPECT_EQ(node->user_param_count, 0);
    EXPECT_EQ(node->own_param_count, node->entry->own_param_count);
    EXPECT_EQ(node->name_index, node->entry->kind_param_end);
    EXPECT_STREQ(node->entry->params[node->name_index].name, "name");
}

TEST_F(Nodes, the_overhead_of_nodes_is_counted_and_given_back)
{
    for (bool laid_out : { false, true }) {
        const RtNodeEntry* entry = installEveryType(laid_out ? "laid_out" : "slots", laid_out);
        const int64_t before = rv::hostStats()->node_overhead_bytes;
        RtNode* node = RvNode(entry->name);
        const int64_t storage = laid_out ? int64_t(sizeof(EveryType))
                                         : int64_t(entry->num_params * sizeof(RtParamValue));
        EXPECT_EQ(rv::hostStats()->node_overhead_bytes - before,
                  int64_t(sizeof(RtNode)) + storage + entry->num_params);
        RvNodeDestroy(node);
        EXPECT_EQ(rv::hostStats()->node_overhead_bytes, before);
    }
}

TEST_F(Nodes, creating_a_node_calls_none_of_its_methods)
{
    installType("quiet");
    RtNode* node = RvNode("quiet");
    RvNodeDestroy(RvNodeClone(node));
    RvNodeReset(node);
    RvNodeDestroy(node);
    EXPECT_EQ(methodCalls().initialized, 0);
    EXPECT_EQ(methodCalls().updated, 0);
    EXPECT_TRUE(methodCalls().finished.empty());
}

// ---- Ignored types and parameters ----

TEST_F(Nodes, an_ignored_type_gives_no_node_and_no_message)
{
    ignore({ "lambert", "sphere" });
    EXPECT_FALSE(RvNode("lambert"));
    EXPECT_FALSE(RvNode("sphere"));
    EXPECT_TRUE(RvNode("disc"));
    EXPECT_TRUE(messages().empty());
    ignore({ "disc" });
    EXPECT_TRUE(RvNode("lambert"));
    EXPECT_FALSE(RvNode("disc"));
    EXPECT_TRUE(messages().empty());
    ignore({});
    EXPECT_TRUE(RvNode("disc"));
}

TEST_F(Nodes, an_ignored_type_stays_ignored_when_it_is_installed_later)
{
    ignore({ "later_type" });
    EXPECT_FALSE(RvNode("later_type"));
    EXPECT_EQ(takeProblem(), "");
    installType("later_type");
    EXPECT_FALSE(RvNode("later_type"));
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Nodes, an_ignored_parameter_is_not_found)
{
    RtNode* lambert = named("lambert", "n");
    RtNode* disc = named("disc", "d");
    RvNodeSetFlt(lambert, "Kd", 0.25f);
    ignore({ "lambert.Kd", "disc.name", "disc.ignore_list" });
    const std::string before = snapshot(lambert);
    RvNodeSetFlt(lambert, "Kd", 0.5f);
    EXPECT_EQ(takeProblem(), "n: could not set FLOAT parameter \"Kd\"");
    EXPECT_EQ(RvNodeGetFlt(lambert, "Kd"), 0);
    EXPECT_EQ(takeProblem(), "n: could not read FLOAT parameter \"Kd\"");
    RvNodeSetInt(lambert, "Kd", 1); // no use-type warning either
    EXPECT_EQ(takeProblem(), "n: could not set INT parameter \"Kd\"");
    EXPECT_EQ(snapshot(lambert), before);

    RvNodeSetRGB(lambert, "Kd_color", 0, 1, 0);
    RvNodeSetFlt(disc, "radius", 2);
    RvNodeSetStr(disc, "name", "renamed");
    EXPECT_STREQ(RvNodeGetName(disc), "renamed");
    EXPECT_EQ(takeProblem(), "");
    ignore({});
    EXPECT_EQ(RvNodeGetFlt(lambert, "Kd"), 0.25f);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Nodes, an_ignored_ignore_list_can_still_be_set)
{
    ignore({ "options.ignore_list", "options.name", "options.xres", "lambert" });
    RtNode* options = RvUniverseGetOptions();
    RvNodeSetInt(options, "xres", 7);
    EXPECT_EQ(takeProblem(), "options: could not set INT parameter \"xres\"");
    EXPECT_FALSE(RvNode("lambert"));
    ignore({});
    EXPECT_EQ(takeProblem(), "");
    EXPECT_TRUE(RvNode("lambert"));
    EXPECT_EQ(RvNodeGetInt(options, "xres"), 320);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Nodes, the_scene_keeps_a_copy_of_the_ignore_list)
{
    RtArray* list = strings({ "lambert" });
    RvNodeSetArray(RvUniverseGetOptions(), "ignore_list", list);
    const RtArray* copy = rv::the_frame->scene->missing_types;
    ASSERT_TRUE(copy);
    EXPECT_NE(copy, list);
    EXPECT_EQ(describe(copy), describe(list));
    EXPECT_TRUE(rv::the_frame->scene->isIgnored("lambert"));
    EXPECT_FALSE(rv::the_frame->scene->isIgnored("lamber"));
    RvArraySetStr(list, 0, "sphere");
    EXPECT_TRUE(rv::the_frame->scene->isIgnored("lambert"));
    EXPECT_FALSE(rv::the_frame->scene->isIgnored("sphere"));
}

TEST_F(Nodes, an_ignore_list_with_odd_entries_does_no_harm)
{
    ignore({ "", ".", "lambert.", ".Kd", nullptr, "%s", "lambert.Kd_color.r" });
    RtNode* node = named("lambert", "n");
    ASSERT_TRUE(node);
    RvNodeSetFlt(node, "Kd", 0.5f);
    RvNodeSetFlt(node, "", 0.5f);
    EXPECT_EQ(RvNodeGetFlt(node, "Kd"), 0.5f);
    const std::string long_name(100000, 'p');
    RvNodeSetFlt(node, long_name.c_str(), 1);
}

// ---- Names ----

TEST_F(Nodes, names_that_nobody_has_find_nothing)
{
    for (const char* name : { static_cast<const char*>(nullptr), "", "a", "123" })
        EXPECT_FALSE(RvNodeLookUpByName(name));
    EXPECT_TRUE(messages().empty());
}

TEST_F(Nodes, a_renamed_node_is_found_by_its_new_name_only)
{
    RtNode* node = RvNode("lambert");
    const std::string old_name = RvNodeGetName(node);
    RvNodeSetStr(node, "name", "fresh");
    EXPECT_STREQ(RvNodeGetName(node), "fresh");
    EXPECT_STREQ(RvNodeGetStr(node, "name"), "fresh");
    EXPECT_EQ(RvNodeLookUpByName("fresh"), node);
    EXPECT_FALSE(RvNodeLookUpByName(old_name.c_str()));
    EXPECT_TRUE(isSet(node, "name"));
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Nodes, a_name_in_use_is_refused)
{
    RtNode* first = named("lambert", "first");
    RtNode* second = named("sphere", "second");
    RvNodeSetStr(second, "name", "first");
    EXPECT_EQ(takeProblem(), "can't rename node \"second\" to \"first\": name already in use");
    EXPECT_STREQ(RvNodeGetName(second), "second");
    EXPECT_EQ(RvNodeLookUpByName("first"), first);
    EXPECT_EQ(RvNodeLookUpByName("second"), second);
    RvNodeSetStr(second, "name", "options");
    EXPECT_EQ(takeProblem(), "can't rename node \"second\" to \"options\": name already in use");
    RvNodeDestroy(first);
    RvNodeSetStr(second, "name", "first");
    EXPECT_EQ(takeProblem(), "");
    EXPECT_EQ(RvNodeLookUpByName("first"), second);
}

TEST_F(Nodes, a_name_of_32768_characters_is_the_longest)
{
    RtNode* node = named("lambert", "n");
    const std::string longest(32768, 'a');
    RvNodeSetStr(node, "name", longest.c_str());
    EXPECT_EQ(takeProblem(), "");
    EXPECT_EQ(RvNodeGetName(node), longest);
    EXPECT_EQ(RvNodeLookUpByName(longest.c_str()), node);

    const std::string too_long(32769, 'b');
    RvNodeSetStr(node, "name", too_long.c_str());
    EXPECT_EQ(takeProblem(), "string is bigger than 32768 [32769] characters: " + too_long);
    EXPECT_EQ(RvNodeGetName(node), longest);
    EXPECT_FALSE(RvNodeLookUpByName(too_long.c_str()));

    const std::string endless(1 << 22, 'c');
    RvNodeSetStr(node, "name", endless.c_str());
    EXPECT_EQ(takeProblem().rfind("string is bigger than 32768 [4194304] characters: ccc", 0), 0u);
    EXPECT_EQ(RvNodeGetName(node), longest);
}

TEST_F(Nodes, an_empty_name_does_no_harm)
{
    RtNode* first = named("lambert", "first");
    RtNode* second = named("lambert", "second");
    RvNodeSetStr(first, "name", "");
    RvNodeSetStr(second, "name", nullptr);
    EXPECT_FALSE(RvNodeLookUpByName(""));
    RvNodeDestroy(first);
    RvNodeSetStr(second, "name", "third");
    EXPECT_EQ(RvNodeLookUpByName("third"), second);
}

TEST_F(Nodes, a_destroyed_node_is_found_no_more)
{
    RtNode* disc = named("disc", "doomed_disc");
    const int count = RvNodeEntryGetCount(RvNodeEntryLookUp("disc"));
    RvNodeDestroy(disc);
    EXPECT_FALSE(RvNodeLookUpByName("doomed_disc"));
    EXPECT_EQ(RvNodeEntryGetCount(RvNodeEntryLookUp("disc")), count - 1);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Nodes, queries_of_a_null_node_are_neutral)
{
    RtNode* node = RvNode("lambert");
    EXPECT_FALSE(RvNodeGetName(nullptr));
    EXPECT_FALSE(RvNodeIs(nullptr, "lambert"));
    EXPECT_FALSE(RvNodeIs(node, nullptr));
    EXPECT_FALSE(RvNodeIs(nullptr, nullptr));
    EXPECT_FALSE(RvNodeGetNodeEntry(nullptr));
    EXPECT_FALSE(RvNodeGetLocalData(nullptr));
    RvNodeSetLocalData(nullptr, &pointees[0]);
    EXPECT_FALSE(RvNodeClone(nullptr));
    RvNodeReset(nullptr);
    EXPECT_TRUE(messages().empty());
    RvNodeDestroy(nullptr);
}

TEST_F(Nodes, a_node_is_of_its_exact_type)
{
    RtNode* node = RvNode("lambert");
    EXPECT_TRUE(RvNodeIs(node, "lambert"));
    EXPECT_FALSE(RvNodeIs(node, "Lambert"));
    EXPECT_FALSE(RvNodeIs(node, "lamber"));
    EXPECT_FALSE(RvNodeIs(node, ""));
    EXPECT_EQ(RvNodeGetNodeEntry(node), RvNodeEntryLookUp("lambert"));
}

TEST_F(Nodes, local_data_is_what_was_stored)
{
    installType("keeper");
    RtNode* node = RvNode("keeper");
    EXPECT_FALSE(RvNodeGetLocalData(node));
    RvNodeSetLocalData(node, &pointees[1]);
    EXPECT_EQ(RvNodeGetLocalData(node), &pointees[1]);
    RtNode* clone = RvNodeClone(node);
    EXPECT_FALSE(RvNodeGetLocalData(clone));
    RvNodeReset(node);
    EXPECT_EQ(RvNodeGetLocalData(node), &pointees[1]);
    RvNodeSetLocalData(node, nullptr);
    EXPECT_FALSE(RvNodeGetLocalData(node));
}

TEST_F(Nodes, local_data_that_the_library_uses_is_not_for_others_to_store)
{
    for (const char* type :
         { "persp_camera", "point_light", "sphere", "box_filter", "driver_null" }) {
        RtNode* const node = named(type, "n");
        rv::RvNodeInitialize(node);
        void* const own = RvNodeGetLocalData(node);
        RvNodeSetLocalData(node, &pointees[0]);
        EXPECT_EQ(takeProblem(), "n: the local data of its type is the library's");
        EXPECT_EQ(RvNodeGetLocalData(node), own) << type;
        RvNodeDestroy(node);
    }
}

// ---- Destruction ----

TEST_F(Nodes, nodes_are_not_destroyed_while_rendering)
{
    RtNode* node = named("lambert", "n");
    {
        HookOverride override;
        override.hooks.rendering = [] { return true; };
        RvNodeDestroy(node);
    }
    EXPECT_EQ(takeProblem(), "cannot destroy node \"n\" while rendering; ignoring call to "
                             "RvNodeDestroy()");
    EXPECT_EQ(RvNodeLookUpByName("n"), node);
    RvNodeDestroy(node);
    EXPECT_FALSE(RvNodeLookUpByName("n"));
}

TEST_F(Nodes, only_an_initialised_node_is_finished)
{
    installType("finisher");
    RtNode* idle = named("finisher", "idle");
    RtNode* ready = named("finisher", "ready");
    ready->initialized = true;
    RvNodeDestroy(idle);
    EXPECT_TRUE(methodCalls().finished.empty());
    RvNodeDestroy(ready);
    EXPECT_EQ(methodCalls().finished, Names{ "ready" }) << "with its name still there";
}

TEST_F(Nodes, a_shape_with_a_source_is_not_finished)
{
    installType("own_shape", {}, RV_NODE_SHAPE, RV_TYPE_NONE);
    RtNode* source = named("own_shape", "source");
    RtNode* copy = named("own_shape", "copy");
    copy->source = source;
    copy->initialized = source->initialized = true;
    RvNodeDestroy(copy);
    EXPECT_TRUE(methodCalls().finished.empty());
    RvNodeDestroy(source);
    EXPECT_EQ(methodCalls().finished, Names{ "source" });
}

TEST_F(Nodes, a_node_of_another_kind_with_a_source_is_finished)
{
    installType("own_shader");
    RtNode* source = named("own_shader", "source");
    RtNode* copy = named("own_shader", "copy");
    copy->source = source;
    copy->initialized = true;
    RvNodeDestroy(copy);
    EXPECT_EQ(methodCalls().finished, Names{ "copy" });
}

TEST_F(Nodes, the_options_node_is_never_finished)
{
    RtNode* options = RvUniverseGetOptions();
    RtNodeEntry* entry = options->entry;
    const RtCommonMethods* methods = entry->methods;
    entry->methods = throwawayMethods().common;
    options->initialized = true;
    RvNodeDestroy(options);
    EXPECT_TRUE(methodCalls().finished.empty());
    entry->methods = methods;
}

TEST_F(Nodes, the_object_of_an_initialised_shape_is_torn_down_after_its_finish)
{
    static std::vector<std::string> torn;
    torn.clear();
    installType("own_shape", {}, RV_NODE_SHAPE, RV_TYPE_NONE);
    installType("own_shader");
    RtNode* source = named("own_shape", "source");
    RtNode* copy = named("own_shape", "copy");
    RtNode* idle = named("own_shape", "idle");
    RtNode* shader = named("own_shader", "shader");
    copy->source = source;
    source->initialized = copy->initialized = shader->initialized = true;
    HookOverride override;
    override.hooks.shapeTeardown = [](RtNode* node) {
        torn.push_back(
            formatted("%s after %d", RvNodeGetName(node), int(methodCalls().finished.size())));
    };
    for (RtNode* node : { idle, shader, copy, source })
        RvNodeDestroy(node);
    EXPECT_EQ(torn, (Names{ "copy after 1", "source after 2" }));
    EXPECT_EQ(methodCalls().finished, (Names{ "shader", "source" }));
}

TEST_F(Nodes, uninitialising_finishes_a_node_once)
{
    installType("finisher");
    RtNode* node = named("finisher", "n");
    node->initialized = true;
    rv::uninitializeNode(node);
    EXPECT_FALSE(node->initialized);
    RvNodeDestroy(node);
    EXPECT_EQ(methodCalls().finished, Names{ "n" });
}

TEST_F(Nodes, destroying_the_camera_of_the_options_empties_them)
{
    RtNode* camera = RvNode("persp_camera");
    EXPECT_EQ(RvUniverseGetCamera(), camera);
    RvNodeDestroy(camera);
    EXPECT_FALSE(RvUniverseGetCamera());
    EXPECT_FALSE(RvNodeGetPtr(RvUniverseGetOptions(), "camera"));
    EXPECT_TRUE(isSet(RvUniverseGetOptions(), "camera"));
    RtNode* later = RvNode("persp_camera");
    EXPECT_TRUE(later);
    EXPECT_FALSE(RvUniverseGetCamera()) << "the parameter was set explicitly";
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Nodes, a_destroyed_camera_is_gone_whatever_it_was)
{
    RtNode* options = RvUniverseGetOptions();
    RtNode* lambert = RvNode("lambert");
    RvNodeSetPtr(options, "camera", lambert);
    RvNodeDestroy(lambert);
    EXPECT_FALSE(RvUniverseGetCamera()) << "it was no camera";
    EXPECT_EQ(takeProblem(), "");

    RtNode* camera = RvNode("persp_camera");
    RvNodeSetPtr(options, "camera", camera);
    ignore({ "options.camera" });
    RvNodeDestroy(camera);
    EXPECT_FALSE(RvUniverseGetCamera()) << "the parameter is ignored";
    EXPECT_EQ(takeProblem(), "options: could not set POINTER parameter \"camera\"");
}

TEST_F(Nodes, destroying_another_camera_keeps_the_rendering_one)
{
    RtNode* first = RvNode("persp_camera");
    RtNode* second = RvNode("ortho_camera");
    RvNodeDestroy(second);
    EXPECT_EQ(RvUniverseGetCamera(), first);
}

TEST_F(Nodes, destroying_nodes_in_any_order_leaves_the_scene_empty)
{
    installEveryType("everything", true);
    std::vector<RtNode*> nodes;
    static const char* const types[] = { "everything",   "lambert",    "sphere",     "point_light",
                                         "persp_camera", "box_filter", "driver_null" };
    for (int i = 0; i < 140; ++i)
        nodes.push_back(RvNode(types[i % 7]));
    const unsigned scene_nodes = 3 + 1; // internal shaders and options
    EXPECT_EQ(RvListSize(rv::the_frame->scene->nodes), scene_nodes + 140);
    for (size_t i = 0, at = 0; i < nodes.size(); ++i) {
        at = (at + 37) % nodes.size();
        RvNodeDestroy(nodes[at]);
    }
    EXPECT_EQ(RvListSize(rv::the_frame->scene->nodes), scene_nodes);
    EXPECT_EQ(RvUniverseGetNumLights(), 0);
    EXPECT_EQ(RvUniverseGetNumGObjects(), 0);
    EXPECT_EQ(takeProblem(), "");
}

// ---- The shape's hook ----

TEST_F(Nodes, a_shape_with_local_data_hears_of_its_changed_parameters)
{
    static std::vector<std::string> changed;
    changed.clear();
    installType(
        "own_shape",
        [](RtList* params, RtMetaDataStore* metadata) {
            declareEveryType(params, metadata, false);
            for (const char* type : type_names)
                RvMetaDataSetBool(metadata, (std::string("p_") + type).c_str(), "_triggers_rebuild",
                                  true);
        },
        RV_NODE_SHAPE, RV_TYPE_NONE);
    RtNode* shape = named("own_shape", "n");
    installEveryType("shader", false);
    RtNode* shader = named("shader", "s");
    HookOverride override;
    override.hooks.shapeChanged = [](RtNode* node, const RtParamEntry* param) {
        changed.push_back(std::string(RvNodeGetName(node)) + "." + RvParamGetName(param));
    };
    RvNodeSetInt(shape, "p_INT", 1);
    EXPECT_TRUE(changed.empty()) << "no local data yet";
    shape->local_data = shader->local_data = &pointees[0];
    RvNodeSetInt(shader, "p_INT", 1);
    EXPECT_TRUE(changed.empty()) << "a shader is no shape";

    Names expected;
    for (const Accessor& a : accessors()) {
        const std::string name = std::string("p_") + type_names[a.type];
        a.set(shape, name.c_str(), 2);
        if (a.type != RV_TYPE_STRING) // the setter of strings has steps of its own
            expected.push_back("n." + name);
    }
    std::erase(changed, "n.p_STRING");
    EXPECT_EQ(changed, expected);
    changed.clear();
    RvNodeSetFlt(shape, "p_INT", 1);
    RvNodeSetFlt(shape, "p_FLOAT", NAN);
    RvNodeSetInt(shape, "no_such", 1);
    giveArray(shape, "p_ARRAY", RvArrayAllocate(1, 1, RV_TYPE_STRING));
    EXPECT_TRUE(changed.empty()) << "refused";
    shape->local_data = shader->local_data = nullptr;
}

// ---- Broken invariants ----

namespace {

// Prints every message where a death test looks for it.
void printMessage(int, int, const char* text, int) { fprintf(stderr, "%s\n", text); }

} // namespace

TEST_F(Nodes, a_parameter_of_a_type_that_cannot_be_is_fatal)
{
    installEveryType("everything", true);
    RtNode* node = RvNode("everything");
    RtParamEntry* param =
        const_cast<RtParamEntry*>(RvNodeEntryLookUpParameter(node->entry, "p_INT"));
    for (uint16_t type : { uint16_t(RV_TYPE_NONE), uint16_t(16), uint16_t(200) })
        EXPECT_DEATH(
            {
                RvMsgSetCallback(printMessage);
                param->type = type;
                RvNodeReset(node);
            },
            "reached code line in error: core.src.nodes:[0-9]+ \\(in RvNodeReset[A-Za-z]*\\)")
            << type;
}

TEST_F(Nodes, required_a_fatal_message_that_nobody_wants_returns)
{
    installEveryType("everything", true);
    RtNode* node = RvNode("everything");
    RtParamEntry* param =
        const_cast<RtParamEntry*>(RvNodeEntryLookUpParameter(node->entry, "p_INT"));
    RvMsgSetConsoleFlags(0);
    param->type = RV_TYPE_NONE;
    RvNodeReset(node);
    param->type = RV_TYPE_INT;
    EXPECT_TRUE(messages().empty());
}

// ---- The exhausted heap ----

TEST_F(Nodes, a_node_that_finds_no_memory_is_reported_and_missing)
{
    const unsigned before = RvListSize(rv::the_frame->scene->nodes);
    {
        AllocationLimit limit(0);
        EXPECT_FALSE(RvNode("lambert"));
    }
    const Names problems = takeProblems();
    ASSERT_FALSE(problems.empty());
    EXPECT_TRUE(reportsFailure(problems[0], "core\\src\\scene", "RtScene::createNode"))
        << problems[0];
    EXPECT_EQ(RvListSize(rv::the_frame->scene->nodes), before);
    EXPECT_EQ(RvNodeEntryGetCount(RvNodeEntryLookUp("lambert")), 0);
}

TEST_F(Nodes, creation_without_memory_leaves_no_trace)
{
    installEveryType("slots", false);
    installEveryType("laid_out", true);
    for (const char* type : { "slots", "laid_out", "sphere", "point_light", "persp_camera" }) {
        const unsigned nodes = RvListSize(rv::the_frame->scene->nodes);
        const int64_t overhead = rv::hostStats()->node_overhead_bytes;
        RtNode* node = nullptr;
        const auto problems = problemsOfFailingHeap(
            [&] {
                if (node)
                    RvNodeDestroy(node);
                EXPECT_EQ(RvListSize(rv::the_frame->scene->nodes), nodes);
                EXPECT_EQ(rv::hostStats()->node_overhead_bytes, overhead);
                EXPECT_EQ(RvNodeEntryGetCount(RvNodeEntryLookUp(type)), 0);
                EXPECT_EQ(RvUniverseGetNumLights(), 0);
                EXPECT_FALSE(RvUniverseGetCamera());
                node = RvNode(type);
                EXPECT_EQ(RvNodeEntryGetCount(RvNodeEntryLookUp(type)), node ? 1 : 0);
            },
            takeProblems);
        EXPECT_TRUE(anyReportsFailure(problems, "core\\src\\scene", "RtScene::createNode")) << type;
        ASSERT_TRUE(node) << type;
        RvNodeDestroy(node);
        // A destroyed camera counts as an explicit choice; forget it.
        RvNodeReset(RvUniverseGetOptions());
        RvNodeSetStr(RvUniverseGetOptions(), "name", "options");
        takeProblems();
    }
}

TEST_F(Nodes, a_matrix_default_that_finds_no_memory_names_its_location)
{
    installEveryType("slots", false);
    RtNode* node = RvNode("slots");
    const auto problems = problemsOfFailingHeap(
        [&] {
            RvNodeReset(node);
            if (RtNode* other = RvNode("slots"))
                RvNodeDestroy(other);
        },
        takeProblems);
    EXPECT_TRUE(anyReportsFailure(problems, "core\\src\\nodes", "RvNodeResetParameter"));
    for (const Accessor& a : accessors())
        a.get(node, (std::string("p_") + type_names[a.type]).c_str());
}

TEST_F(Nodes, setters_without_memory_keep_a_usable_node)
{
    for (bool laid_out : { false, true }) {
        const char* type = laid_out ? "laid_out" : "slots";
        installEveryType(type, laid_out);
        RtNode* node = named(type, type);
        problemsOfFailingHeap(
            [&] {
                for (const Accessor& a : accessors()) {
                    a.set(node, (std::string("p_") + type_names[a.type]).c_str(), 2);
                    if (a.type != RV_TYPE_ARRAY)
                        a.set(node, (std::string("a_") + type_names[a.type]).c_str(), 1);
                }
                giveArray(node, "a_UINT", RvArrayAllocate(0, 1, RV_TYPE_UINT));
                RvNodeSetInt(node, "a_UINT", 1);
                giveArray(node, "a_UINT", RvArrayAllocate(4, 1, RV_TYPE_BYTE));
                giveArray(node, "a_STRING", RvArrayAllocate(0, 1, RV_TYPE_STRING));
                RvNodeSetStr(node, "a_STRING", "one more");
                RvNodeSetStr(node, "name", "renamed");
                RvNodeSetStr(node, "name", type);
                EXPECT_TRUE(RvNodeGetName(node));
                RvNodeGetStr(node, "p_STRING");
                RvNodeGetArray(node, "p_ARRAY");
            },
            takeProblems);
        EXPECT_STREQ(RvNodeGetName(node), type);
        EXPECT_EQ(RvNodeLookUpByName(type), node);
        for (const Accessor& a : accessors())
            EXPECT_EQ(a.get(node, (std::string("p_") + type_names[a.type]).c_str()), a.text(2))
                << type_names[a.type];
        EXPECT_EQ(takeProblem(), "");
    }
}

TEST_F(Nodes, clones_without_memory_are_whole_or_missing_and_can_be_destroyed)
{
    installEveryType("slots", false);
    RtNode* node = RvNode("slots");
    RvNodeSetStr(node, "a_STRING", "element");
    RvNodeDeclare(node, "text", "constant STRING");
    RvNodeSetStr(node, "text", "user text");
    RvNodeDeclare(node, "list", "uniform FLOAT");
    RvNodeSetFlt(node, "list", 1);
    RtNode* last = nullptr;
    problemsOfFailingHeap(
        [&] {
            if (last)
                RvNodeDestroy(last);
            last = RvNodeClone(node);
            if (last) {
                EXPECT_TRUE(RvNodeGetName(last));
                RvNodeGetArray(last, "a_STRING");
                RvNodeLookUpUserParameter(last, "text");
            }
        },
        takeProblems);
    ASSERT_TRUE(last);
    EXPECT_STREQ(RvNodeGetStr(last, "text"), "user text");
    EXPECT_STREQ(RvNodeGetStr(last, "a_STRING"), "element");
}
