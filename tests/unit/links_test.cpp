// Tests of links: whole parameters, components, evaluation order and type rules.
#include "node_tools.h"

using namespace node_tools;

namespace {

using Names = std::vector<std::string>;

class Links : public Universe {
protected:
    // A node that produces values of a type, named after itself.
    static RtNode* source(int output, const char* name)
    {
        const std::string type = formatted("produces_%d", output);
        if (!RvNodeEntryLookUp(type.c_str()))
            installType(type.c_str(), {}, RV_NODE_SHADER, output);
        return named(type.c_str(), name);
    }

    static bool sameLinks(const RtLinkRecord& record, std::initializer_list<uintptr_t> slots)
    {
        return std::equal(slots.begin(), slots.end(), record.slot);
    }

    static uintptr_t bits(const RtNode* node) { return reinterpret_cast<uintptr_t>(node); }

    static const RtLinkRecord& record(const RtNode* node, const char* param)
    {
        return node->links[RvNodeEntryLookUpParameter(node->entry, param)->index];
    }
};

} // namespace

// ---- Rules ----

TEST_F(Links, each_target_type_accepts_its_sources)
{
    for (const auto& v : goldenVectors("datamodel", "link_type_compatible")) {
        std::set<std::string> accepted, expected;
        for (int type = 0; type < type_count; ++type)
            if (rv::linkTypesCompatible(type, typeCode(v["in"]["target_type"])))
                accepted.insert(type_names[type]);
        for (const std::string name : v["out"]["accepted_sources"])
            expected.insert(name);
        EXPECT_EQ(accepted, expected) << v["id"];
    }
}

TEST_F(Links, the_whole_table_of_compatible_types_holds)
{
    static const struct {
        std::vector<const char*> targets;
        std::set<std::string> sources; // the target's own type goes without saying
    } rows[] = {
        { { "BYTE", "INT", "UINT", "BOOL" }, { "BYTE", "INT", "UINT", "BOOL" } },
        { { "FLOAT", "RGB", "RGBA" }, { "FLOAT", "RGB", "RGBA", "VECTOR", "POINT", "POINT2" } },
        { { "VECTOR", "POINT" }, { "FLOAT", "RGB", "RGBA", "VECTOR", "POINT" } },
        { { "POINT2" }, { "FLOAT", "RGB", "RGBA", "POINT2" } },
        { { "ENUM" }, { "INT" } },
        { { "STRING", "POINTER", "NODE", "ARRAY", "MATRIX" }, {} },
    };
    for (const auto& row : rows)
        for (const char* target : row.targets)
            for (const char* from : type_names)
                EXPECT_EQ(rv::linkTypesCompatible(typeCode(from), typeCode(target)),
                          !strcmp(from, target) || row.sources.count(from) > 0)
                    << from << " to " << target;
}

TEST_F(Links, nothing_can_be_driven_by_a_node_without_output)
{
    for (int type = 0; type < type_count; ++type)
        EXPECT_FALSE(rv::linkTypesCompatible(RV_TYPE_NONE, type)) << type_names[type];
    RtNode* light = named("point_light", "light");
    RtNode* lambert = named("lambert", "lambert");
    for (const char* param : { "Kd", "Kd_color", "Kd_color.r", "name" }) {
        RvNodeLink(light, param, lambert);
        const std::string problem = takeProblem();
        EXPECT_EQ(problem.rfind(formatted("unable to connect light to lambert.%s - types are not "
                                          "compatible (",
                                          param),
                                0),
                  0u)
            << problem;
        EXPECT_FALSE(RvNodeGetLink(lambert, param));
    }
}

TEST_F(Links, every_pair_of_types_links_or_warns)
{
    installEveryType("everything", true);
    for (int output = 0; output < type_count; ++output) {
        RtNode* from = source(output, formatted("src_%d", output).c_str());
        for (int input = 0; input < type_count; ++input) {
            RtNode* target = named("everything", "target");
            const std::string param = std::string("p_") + type_names[input];
            const bool compatible = rv::linkTypesCompatible(output, input);
            RvNodeLink(from, param.c_str(), target);
            EXPECT_EQ(takeProblem(),
                      compatible ? ""
                                 : formatted("unable to connect src_%d to target.%s - types are "
                                             "not compatible (%s to %s)",
                                             output, param.c_str(), type_names[output],
                                             type_names[input]));
            EXPECT_EQ(RvNodeGetLink(target, param.c_str()), compatible ? from : nullptr);
            EXPECT_EQ(isSet(target, param.c_str()), compatible);
            RvNodeDestroy(target);
        }
    }
}

TEST_F(Links, component_names_are_recognised_by_the_type_of_the_parameter)
{
    for (const auto& v : goldenVectors("datamodel", "component_name")) {
        const int type = typeCode(v["in"]["parameter_type"]);
        const std::string entry_name = formatted("with_%d", type);
        if (!RvNodeEntryLookUp(entry_name.c_str()))
            installType(entry_name.c_str(), [type](RtList* params, RtMetaDataStore*) {
                switch (type) {
                case RV_TYPE_BYTE: RvNodeParamBYTE(params, -1, "p", 0); break;
                case RV_TYPE_INT: RvNodeParamINT(params, -1, "p", 0); break;
                case RV_TYPE_UINT: RvNodeParamUINT(params, -1, "p", 0); break;
                case RV_TYPE_BOOLEAN: RvNodeParamBOOL(params, -1, "p", false); break;
                case RV_TYPE_FLOAT: RvNodeParamFLT(params, -1, "p", 0); break;
                case RV_TYPE_RGB: RvNodeParamRGB(params, -1, "p", 0, 0, 0); break;
                case RV_TYPE_RGBA: RvNodeParamRGBA(params, -1, "p", 0, 0, 0, 0); break;
                case RV_TYPE_VECTOR: RvNodeParamVEC(params, -1, "p", 0, 0, 0); break;
                case RV_TYPE_POINT: RvNodeParamPNT(params, -1, "p", 0, 0, 0); break;
                case RV_TYPE_POINT2: RvNodeParamPNT2(params, -1, "p", 0, 0); break;
                case RV_TYPE_STRING: RvNodeParamSTR(params, -1, "p", ""); break;
                case RV_TYPE_POINTER: RvNodeParamPTR(params, -1, "p", nullptr); break;
                case RV_TYPE_NODE: RvNodeParamNODE(params, -1, "p", nullptr); break;
                case RV_TYPE_ARRAY:
                    RvNodeParamARRAY(params, -1, "p", RvArrayAllocate(0, 1, RV_TYPE_RGB));
                    break;
                case RV_TYPE_MATRIX: RvNodeParamMTX(params, -1, "p", &RV_M4_IDENTITY); break;
                default: RvNodeParamENUM(params, -1, "p", 0, fruit);
                }
            });
        const RtNodeEntry* entry = RvNodeEntryLookUp(entry_name.c_str());
        ASSERT_TRUE(entry);
        const std::string name = v["in"]["name"];
        const rv::LinkTarget target = rv::resolveLinkTarget(entry, name.c_str());
        EXPECT_EQ(target.param != nullptr, v["out"]["recognized"].get<bool>()) << v["id"];
        const auto& component = v["out"]["component"];
        if (target.param) {
            EXPECT_EQ(target.component, component.is_null() ? -1 : component.get<int>()) << v["id"];
        }
    }
}

TEST_F(Links, sequences_of_links_end_as_they_should)
{
    for (const auto& v : goldenVectors("datamodel", "link_sequence")) {
        RtNode* target = named(v["in"]["target_type"].get<std::string>().c_str(), "target");
        std::map<std::string, RtNode*> sources;
        for (const auto& op : v["in"]["ops"]) {
            if (op[0] == "link") {
                const std::string name = op[1], param = op[3];
                if (!sources[name])
                    sources[name] = source(typeCode(op[2]), name.c_str());
                RvNodeLink(sources[name], param.c_str(), target);
            } else {
                RvNodeUnlink(target, op[1].get<std::string>().c_str());
            }
        }
        const Names problems = takeProblems();
        const auto& expected = v["out"]["warnings_contain"];
        ASSERT_EQ(problems.size(), expected.size()) << v["id"];
        for (size_t i = 0; i < problems.size(); ++i)
            EXPECT_NE(problems[i].find(expected[i].get<std::string>()), std::string::npos)
                << v["id"] << ": " << problems[i];
        for (const auto& [param, name] : v["out"]["get_link"].items())
            EXPECT_EQ(RvNodeGetLink(target, param.c_str()),
                      name.is_null() ? nullptr : sources[name.get<std::string>()])
                << v["id"] << " " << param;
        EXPECT_EQ(takeProblem(), "") << "reading links never warns";
        RvNodeDestroy(target);
        for (const auto& [name, node] : sources)
            RvNodeDestroy(node);
    }
}

// ---- Linking ----

TEST_F(Links, a_whole_link_covers_its_components)
{
    RtNode* image = named("image", "image");
    RtNode* lambert = named("lambert", "lambert");
    RvNodeLink(image, "Kd_color", lambert);
    for (const char* param : { "Kd_color", "Kd_color.r", "Kd_color.g", "Kd_color.b" })
        EXPECT_EQ(RvNodeGetLink(lambert, param), image) << param;
    EXPECT_FALSE(RvNodeGetLink(lambert, "Kd"));
    EXPECT_FALSE(RvNodeGetLink(lambert, "Kd_color.a"));
    EXPECT_FALSE(RvNodeGetLink(lambert, "Kd_color.x"));
    EXPECT_FALSE(RvNodeGetLink(lambert, "doesnt_exist"));
    EXPECT_FALSE(RvNodeGetLink(lambert, "@before"));
    EXPECT_TRUE(sameLinks(record(lambert, "Kd_color"), { bits(image) }));
    EXPECT_TRUE(messages().empty());
}

TEST_F(Links, a_component_link_does_not_answer_for_the_whole)
{
    RtNode* noise = named("noise", "noise");
    RtNode* lambert = named("lambert", "lambert");
    RvNodeLink(noise, "Kd_color.r", lambert);
    EXPECT_FALSE(RvNodeGetLink(lambert, "Kd_color"));
    EXPECT_EQ(RvNodeGetLink(lambert, "Kd_color.r"), noise);
    EXPECT_FALSE(RvNodeGetLink(lambert, "Kd_color.g"));
    EXPECT_TRUE(
        sameLinks(record(lambert, "Kd_color"), { bits(noise) | rv::component_marker, 0, 0, 0 }));
    EXPECT_TRUE(isSet(lambert, "Kd_color"));
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Links, every_component_has_its_own_source)
{
    installEveryType("everything", false);
    RtNode* target = named("everything", "target");
    static const struct {
        const char* param;
        const char* letters;
    } cases[] = { { "p_RGB", "rgb" },
                  { "p_RGBA", "rgba" },
                  { "p_VECTOR", "xyz" },
                  { "p_POINT", "xyz" },
                  { "p_POINT2", "xy" } };
    for (const auto& c : cases) {
        std::vector<RtNode*> sources;
        for (const char* letter = c.letters; *letter; ++letter) {
            sources.push_back(RvNode("noise"));
            RvNodeLink(sources.back(), formatted("%s.%c", c.param, *letter).c_str(), target);
        }
        EXPECT_FALSE(RvNodeGetLink(target, c.param)) << c.param;
        for (size_t i = 0; i < sources.size(); ++i) {
            EXPECT_EQ(RvNodeGetLink(target, formatted("%s.%c", c.param, c.letters[i]).c_str()),
                      sources[i]);
            EXPECT_EQ(record(target, c.param).slot[i],
                      bits(sources[i]) | (i == 0 ? rv::component_marker : 0));
        }
    }
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Links, a_component_link_drops_a_whole_link)
{
    RtNode* image = named("image", "image");
    RtNode* noise = named("noise", "noise");
    RtNode* lambert = named("lambert", "lambert");
    for (const char* component : { "Kd_color.r", "Kd_color.g", "Kd_color.b" }) {
        RvNodeLink(image, "Kd_color", lambert);
        RvNodeLink(noise, component, lambert);
        EXPECT_FALSE(RvNodeGetLink(lambert, "Kd_color")) << component;
        EXPECT_EQ(RvNodeGetLink(lambert, component), noise);
        RvNodeUnlink(lambert, "Kd_color");
    }
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Links, a_whole_link_replaces_component_links)
{
    RtNode* image = named("image", "image");
    RtNode* noise = named("noise", "noise");
    RtNode* lambert = named("lambert", "lambert");
    RvNodeLink(noise, "Kd_color.g", lambert);
    RvNodeLink(image, "Kd_color", lambert);
    for (const char* param : { "Kd_color", "Kd_color.r", "Kd_color.g", "Kd_color.b" })
        EXPECT_EQ(RvNodeGetLink(lambert, param), image) << param;
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Links, a_link_replaces_the_one_before)
{
    RtNode* first = named("image", "first");
    RtNode* second = named("image", "second");
    RtNode* lambert = named("lambert", "lambert");
    RvNodeLink(first, "Kd_color", lambert);
    RvNodeLink(second, "Kd_color", lambert);
    EXPECT_EQ(RvNodeGetLink(lambert, "Kd_color"), second);
    RvNodeLink(first, "@before", lambert);
    RvNodeLink(second, "@before", lambert);
    EXPECT_EQ(RvNodeGetLink(lambert, "@before"), second);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Links, the_evaluation_order_takes_any_node_and_needs_no_table)
{
    RtNode* light = named("point_light", "light");
    RtNode* lambert = named("lambert", "lambert");
    RvNodeLink(light, "@before", lambert);
    EXPECT_EQ(RvNodeGetLink(lambert, "@before"), light);
    EXPECT_FALSE(lambert->links);
    EXPECT_EQ(takeProblem(), "");
    RvNodeUnlink(lambert, "@before");
    EXPECT_FALSE(RvNodeGetLink(lambert, "@before"));
    RvNodeUnlink(lambert, "@before");
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Links, text_after_a_second_dot_is_ignored)
{
    RtNode* noise = named("noise", "noise");
    RtNode* lambert = named("lambert", "lambert");
    RvNodeLink(noise, "Kd_color.g.anything", lambert);
    EXPECT_EQ(RvNodeGetLink(lambert, "Kd_color.g"), noise);
    EXPECT_EQ(RvNodeGetLink(lambert, "Kd_color.g.else"), noise);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Links, a_colour_may_drive_one_component)
{
    RtNode* image = named("image", "image");
    RtNode* lambert = named("lambert", "lambert");
    RvNodeLink(image, "Kd_color.b", lambert);
    EXPECT_EQ(RvNodeGetLink(lambert, "Kd_color.b"), image);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Links, an_older_parameter_name_can_be_linked)
{
    installType("synonyms", [](RtList* params, RtMetaDataStore* metadata) {
        RvNodeParamRGB(params, -1, "color", 0, 0, 0);
        RvMetaDataSetStr(metadata, "color", "synonym", "tint");
    });
    RtNode* target = named("synonyms", "target");
    RtNode* image = named("image", "image");
    RvNodeLink(image, "tint", target);
    EXPECT_EQ(RvNodeGetLink(target, "color"), image);
    EXPECT_EQ(RvNodeGetLink(target, "tint"), image);
    RvNodeUnlink(target, "tint");
    EXPECT_FALSE(RvNodeGetLink(target, "color"));
    RvNodeLink(image, "tint.r", target);
    EXPECT_EQ(RvNodeGetLink(target, "color.r"), image);
}

// ---- Refused links ----

TEST_F(Links, null_nodes_are_refused)
{
    RtNode* lambert = named("lambert", "lambert");
    RvNodeLink(lambert, "Kd", nullptr);
    EXPECT_EQ(takeProblem(), "cannot link node lambert into a NULL node");
    RvNodeLink(nullptr, "Kd", nullptr);
    EXPECT_EQ(takeProblem(), "cannot link node NULL into a NULL node");
    RvNodeLink(nullptr, "Kd", lambert);
    EXPECT_EQ(takeProblem(),
              "cannot link a NULL node into lambert.Kd; if you are trying to remove an existing "
              "link, use RvNodeUnlink() instead");
    EXPECT_FALSE(lambert->links);
}

TEST_F(Links, a_node_is_not_linked_to_itself)
{
    RtNode* lambert = named("lambert", "lambert");
    for (const char* param : { "Kd_color", "Kd_color.r", "@before", "no_such" }) {
        RvNodeLink(lambert, param, lambert);
        EXPECT_EQ(takeProblem(), "cannot recursively link node lambert to itself") << param;
    }
    EXPECT_FALSE(lambert->links);
    EXPECT_FALSE(lambert->before);
    EXPECT_FALSE(isSet(lambert, "Kd_color"));
}

TEST_F(Links, options_nodes_are_not_linked)
{
    RtNode* options = RvUniverseGetOptions();
    RtNode* lambert = named("lambert", "lambert");
    RvNodeLink(lambert, "background", options);
    EXPECT_EQ(takeProblem(), "options.background: linking an options node is not supported");
    RvNodeLink(options, "Kd", lambert);
    EXPECT_EQ(takeProblem(), "lambert.Kd: linking an options node is not supported");
    RvNodeLink(lambert, "@before", options);
    EXPECT_EQ(takeProblem(), "options.@before: linking an options node is not supported");
    EXPECT_FALSE(options->links);
    EXPECT_FALSE(options->before);
}

TEST_F(Links, names_that_are_not_recognised_are_refused)
{
    RtNode* image = named("image", "image");
    RtNode* lambert = named("lambert", "lambert");
    for (const char* param :
         { "no_such", "", ".", ".r", "Kd.r", "Kd_color.", "Kd_color.a", "Kd_color.x", "Kd_color.rg",
           "Kd_color.R", "Kd_color r", "@after", "name.x", "%s%n" }) {
        RvNodeLink(image, param, lambert);
        EXPECT_EQ(
            takeProblem(),
            formatted("linking \"image\" to \"lambert\": parameter \"%s\" not recognized", param));
        EXPECT_FALSE(RvNodeGetLink(lambert, param)) << param;
    }
    EXPECT_FALSE(lambert->links);
}

TEST_F(Links, the_unrecognised_name_is_reported_with_types_and_not_with_names)
{
    RvNodeLink(named("image", "my_image"), "no_such", named("lambert", "my_lambert"));
    EXPECT_EQ(takeProblem(),
              "linking \"image\" to \"lambert\": parameter \"no_such\" not recognized");
}

TEST_F(Links, incompatible_types_are_refused)
{
    installEveryType("everything", true);
    RtNode* target = named("everything", "target");
    RtNode* flat = named("flat", "flat");
    RvNodeLink(flat, "p_INT", target);
    EXPECT_EQ(takeProblem(),
              "unable to connect flat to target.p_INT - types are not compatible (RGB to INT)");
    RtNode* integers = source(RV_TYPE_INT, "integers");
    RvNodeLink(integers, "p_RGB.g", target);
    EXPECT_EQ(takeProblem(), "unable to connect integers to target.p_RGB.g - types are not "
                             "compatible (INT to FLOAT)");
    EXPECT_FALSE(RvNodeGetLink(target, "p_INT"));
    EXPECT_FALSE(isSet(target, "p_INT"));
    EXPECT_FALSE(isSet(target, "p_RGB"));
}

TEST_F(Links, a_refused_link_keeps_the_one_before)
{
    RtNode* image = named("image", "image");
    RtNode* lambert = named("lambert", "lambert");
    RvNodeLink(image, "Kd_color", lambert);
    RvNodeLink(source(RV_TYPE_STRING, "strings"), "Kd_color", lambert);
    RvNodeLink(source(RV_TYPE_INT, "integers"), "Kd_color.r", lambert);
    RvNodeLink(nullptr, "Kd_color", lambert);
    EXPECT_EQ(takeProblems().size(), 3u);
    EXPECT_EQ(RvNodeGetLink(lambert, "Kd_color"), image);
}

TEST_F(Links, odd_names_and_null_names_do_no_harm)
{
    RtNode* image = named("image", "image");
    RtNode* lambert = named("lambert", "lambert");
    RvNodeLink(image, nullptr, lambert);
    EXPECT_FALSE(RvNodeGetLink(lambert, nullptr));
    EXPECT_FALSE(RvNodeGetLink(nullptr, "Kd"));
    EXPECT_FALSE(RvNodeGetLink(nullptr, nullptr));
    for (size_t length : { size_t(4095), size_t(4096), size_t(1) << 17 }) {
        const std::string name(length, 'p'), dotted = name + ".r", dots(length, '.');
        for (const std::string& param :
             { name, dotted, dots, "Kd_color." + name, "Kd_color.r." + name }) {
            RvNodeLink(image, param.c_str(), lambert);
            RvNodeGetLink(lambert, param.c_str());
            RvNodeUnlink(lambert, param.c_str());
        }
    }
    EXPECT_FALSE(RvNodeGetLink(lambert, "Kd_color"));
}

// ---- Unlinking ----

TEST_F(Links, unlinking_a_whole_parameter_removes_every_link_of_it)
{
    RtNode* noise = named("noise", "noise");
    RtNode* lambert = named("lambert", "lambert");
    RvNodeLink(noise, "Kd_color", lambert);
    RvNodeUnlink(lambert, "Kd_color");
    EXPECT_FALSE(RvNodeGetLink(lambert, "Kd_color"));
    RvNodeLink(noise, "Kd_color.r", lambert);
    RvNodeLink(noise, "Kd_color.b", lambert);
    RvNodeUnlink(lambert, "Kd_color");
    EXPECT_TRUE(sameLinks(record(lambert, "Kd_color"), { 0, 0, 0, 0 }));
    for (const char* param : { "Kd_color", "Kd_color.r", "Kd_color.g", "Kd_color.b" })
        EXPECT_FALSE(RvNodeGetLink(lambert, param)) << param;
    RvNodeUnlink(lambert, "Kd_color");
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Links, unlinking_a_component_keeps_the_others)
{
    RtNode* noise = named("noise", "noise");
    RtNode* lambert = named("lambert", "lambert");
    for (const char* component : { "Kd_color.r", "Kd_color.g", "Kd_color.b" })
        RvNodeLink(noise, component, lambert);
    RvNodeUnlink(lambert, "Kd_color.g");
    EXPECT_EQ(RvNodeGetLink(lambert, "Kd_color.r"), noise);
    EXPECT_FALSE(RvNodeGetLink(lambert, "Kd_color.g"));
    EXPECT_EQ(RvNodeGetLink(lambert, "Kd_color.b"), noise);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Links, required_a_record_stays_in_component_mode_when_its_first_component_is_unlinked)
{
    RtNode* noise = named("noise", "noise");
    RtNode* lambert = named("lambert", "lambert");
    RvNodeLink(noise, "Kd_color.r", lambert);
    RvNodeLink(noise, "Kd_color.b", lambert);
    RvNodeUnlink(lambert, "Kd_color.r");
    EXPECT_TRUE(
        sameLinks(record(lambert, "Kd_color"), { rv::component_marker, 0, bits(noise), 0 }));
    EXPECT_FALSE(RvNodeGetLink(lambert, "Kd_color"));
    EXPECT_FALSE(RvNodeGetLink(lambert, "Kd_color.r"));
    EXPECT_EQ(RvNodeGetLink(lambert, "Kd_color.b"), noise);
    RvNodeUnlink(lambert, "Kd_color.r");
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Links, a_component_of_a_whole_link_is_not_unlinked)
{
    RtNode* image = named("image", "image");
    RtNode* lambert = named("lambert", "lambert");
    RvNodeLink(image, "Kd_color", lambert);
    for (const char* component : { "Kd_color.r", "Kd_color.b" }) {
        RvNodeUnlink(lambert, component);
        EXPECT_EQ(takeProblem(),
                  formatted("cannot unlink \"lambert.%s\" as the attribute was not separately "
                            "linked",
                            component));
    }
    EXPECT_EQ(RvNodeGetLink(lambert, "Kd_color"), image);
}

TEST_F(Links, a_component_that_was_never_linked_is_not_unlinked)
{
    RtNode* lambert = named("lambert", "lambert");
    RvNodeLink(named("noise", "noise"), "Kd", lambert); // makes the table
    RvNodeUnlink(lambert, "Kd_color.g");
    EXPECT_EQ(takeProblem(),
              "cannot unlink \"lambert.Kd_color.g\" as the attribute was not separately linked");
}

TEST_F(Links, unlinking_null_is_refused)
{
    RtNode* lambert = named("lambert", "lambert");
    RvNodeUnlink(lambert, nullptr);
    EXPECT_EQ(takeProblem(), "cannot unlink an undefined parameter from node \"lambert\"");
    RvNodeUnlink(nullptr, "Kd");
    EXPECT_EQ(takeProblem(), "cannot unlink parameter \"Kd\" from a NULL node");
    RvNodeUnlink(nullptr, nullptr);
    EXPECT_TRUE(messages().empty());
}

TEST_F(Links, unlinking_options_is_refused)
{
    for (const char* param : { "background", "no_such", "@before" }) {
        RvNodeUnlink(RvUniverseGetOptions(), param);
        EXPECT_EQ(takeProblem(),
                  formatted("cannot unlink parameter \"%s\" from an options node", param));
    }
}

TEST_F(Links, without_a_table_there_is_nothing_to_unlink)
{
    RtNode* lambert = named("lambert", "lambert");
    for (const char* param : { "Kd", "Kd_color.r", "no_such" })
        RvNodeUnlink(lambert, param);
    EXPECT_TRUE(messages().empty());
    EXPECT_FALSE(isSet(lambert, "Kd"));
}

TEST_F(Links, unlinking_an_unknown_name_is_refused)
{
    RtNode* lambert = named("lambert", "lambert");
    RvNodeLink(named("noise", "noise"), "Kd", lambert);
    for (const char* param : { "no_such", "Kd.r", "Kd_color.a", "" }) {
        RvNodeUnlink(lambert, param);
        EXPECT_EQ(takeProblem(),
                  formatted("unlinking from \"lambert\": parameter \"%s\" not recognized", param));
    }
}

TEST_F(Links, linking_and_unlinking_count_as_setting)
{
    RtNode* noise = named("noise", "noise");
    RtNode* lambert = named("lambert", "lambert");
    RvNodeLink(noise, "Kd", lambert);
    EXPECT_TRUE(isSet(lambert, "Kd"));
    RvNodeReset(lambert);
    EXPECT_FALSE(isSet(lambert, "Kd"));
    RvNodeUnlink(lambert, "Kd");
    EXPECT_TRUE(isSet(lambert, "Kd"));
    EXPECT_FALSE(isSet(lambert, "Kd_color"));
}

// ---- Storage ----

TEST_F(Links, the_table_has_one_record_per_parameter_and_is_counted)
{
    RtNode* noise = named("noise", "noise");
    RtNode* lambert = named("lambert", "lambert");
    const int64_t before = rv::hostStats()->node_overhead_bytes;
    RvNodeLink(noise, "Kd", lambert);
    ASSERT_TRUE(lambert->links);
    EXPECT_EQ(rv::hostStats()->node_overhead_bytes - before, 4 * 4 * int64_t(sizeof(void*)));
    for (unsigned i = 0; i < lambert->entry->num_params; ++i)
        EXPECT_TRUE(sameLinks(lambert->links[i], { i == 0 ? bits(noise) : 0, 0, 0, 0 })) << i;
    RvNodeLink(noise, "opacity", lambert);
    EXPECT_EQ(rv::hostStats()->node_overhead_bytes - before, 4 * 4 * int64_t(sizeof(void*)));
}

TEST_F(Links, a_destroyed_node_gives_its_table_back)
{
    RtNode* noise = named("noise", "noise");
    const int64_t before = rv::hostStats()->node_overhead_bytes;
    RtNode* lambert = named("lambert", "lambert");
    RvNodeLink(noise, "Kd", lambert);
    RvNodeDestroy(lambert);
    EXPECT_EQ(rv::hostStats()->node_overhead_bytes, before);
}

TEST_F(Links, a_link_does_not_touch_the_stored_value)
{
    RtNode* lambert = named("lambert", "lambert");
    RvNodeSetFlt(lambert, "Kd", 0.25f);
    RvNodeLink(named("noise", "noise"), "Kd", lambert);
    EXPECT_EQ(RvNodeGetFlt(lambert, "Kd"), 0.25f);
    RvNodeSetFlt(lambert, "Kd", 0.5f);
    EXPECT_TRUE(RvNodeGetLink(lambert, "Kd")) << "nor does a value remove a link";
}

TEST_F(Links, a_table_that_finds_no_memory_leaves_the_node_unlinked)
{
    RtNode* noise = named("noise", "noise");
    RtNode* lambert = named("lambert", "lambert");
    {
        AllocationLimit limit(0);
        RvNodeLink(noise, "Kd_color.g", lambert);
        RvNodeLink(noise, "Kd", lambert);
    }
    EXPECT_EQ(takeProblems().size(), 2u);
    EXPECT_FALSE(RvNodeGetLink(lambert, "Kd"));
    EXPECT_FALSE(RvNodeGetLink(lambert, "Kd_color.g"));
    RvNodeLink(noise, "Kd", lambert);
    EXPECT_EQ(RvNodeGetLink(lambert, "Kd"), noise);
}
