// Tests of universe: queries, iterators, and the options node with all its parameters.
#include "node_tools.h"

using namespace node_tools;

namespace {

using Names = std::vector<std::string>;

class UniverseQueries : public Universe {
protected:
    static std::vector<RtNode*> visited(unsigned mask)
    {
        std::vector<RtNode*> nodes;
        RtNodeIterator* it = RvUniverseGetNodeIterator(mask);
        EXPECT_TRUE(it) << mask;
        while (!RvNodeIteratorFinished(it))
            nodes.push_back(RvNodeIteratorGetNext(it));
        EXPECT_FALSE(RvNodeIteratorGetNext(it));
        RvNodeIteratorDestroy(it);
        return nodes;
    }
};

// Values of enumerations, shared by several options.
#define PATTERNS "regular random jittered multi_jittered poisson_bc dithered nrooks schlick"

// One row per option in order of declaration. `value` is the default in the words of describe(),
// for enumerations the name; `synonym` is the older name.
struct OptionRow {
    const char* name;
    const char* type;
    const char* value;
    const char* synonym = nullptr;
    const char* values = nullptr;
};

const OptionRow option_rows[] = {
    { "AA_samples", "INT", "1" },
    { "AA_pattern", "ENUM", "multi_jittered", nullptr, PATTERNS },
    { "AA_seed", "INT", "1" },
    { "AA_motionblur_pattern", "ENUM", "jittered", "AA_mblur_pattern", PATTERNS },
    { "AA_sample_clamp", "FLOAT", "1.00000002e+30" },
    { "AA_sample_clamp_affects_aovs", "BOOL", "0" },
    { "AA_sampling_dither", "INT", "4", "sampling_dither" },
    { "threads", "INT", "0" },
    { "thread_priority", "ENUM", "lowest", nullptr, "lowest low normal high" },
    { "abort_on_error", "BOOL", "1" },
    { "flush_buckets_on_halt", "BOOL", "1" },
    { "error_color_bad_texture", "RGB", "1 0 0", "error_color_bad_map" },
    { "error_color_bad_mesh", "RGB", "0 1 0" },
    { "error_color_bad_pixel", "RGB", "0 0 1", "error_color_bad_pix" },
    { "error_color_bad_shader", "RGB", "1 0 1" },
    { "outputs", "ARRAY", "STRING 0x1:" },
    { "xres", "INT", "320" },
    { "yres", "INT", "240" },
    { "region_min_x", "INT", "-1" },
    { "region_min_y", "INT", "-1" },
    { "region_max_x", "INT", "-1" },
    { "region_max_y", "INT", "-1" },
    { "aspect_ratio", "FLOAT", "1" },
    { "bucket_size", "INT", "64" },
    { "bucket_scanning", "ENUM", "top", nullptr,
      "top bottom left right random woven spiral hilbert list" },
    { "buckets", "ARRAY", "POINT2 0x1:" },
    { "ignore_textures", "BOOL", "0", "ignore_tmaps" },
    { "ignore_shaders", "BOOL", "0" },
    { "ignore_atmosphere", "BOOL", "0", "ignore_atm_shaders" },
    { "ignore_lights", "BOOL", "0" },
    { "ignore_shadows", "BOOL", "0" },
    { "ignore_subdivision", "BOOL", "0" },
    { "ignore_displacement", "BOOL", "0" },
    { "ignore_motion_blur", "BOOL", "0" },
    { "ignore_smoothing", "BOOL", "0" },
    { "ignore_sss", "BOOL", "0" },
    { "ignore_list", "ARRAY", "STRING 0x1:" },
    { "auto_transparency_mode", "ENUM", "always", nullptr, "always shadow-only never" },
    { "auto_transparency_depth", "INT", "10", "GI_transparency_depth" },
    { "auto_transparency_threshold", "FLOAT", "0.99000001", "GI_opacity_threshold" },
    { "auto_transparency_probabilistic", "BOOL", "0" },
    { "trace_opaque_first", "BOOL", "0" },
    { "texture_max_open_files", "INT", "100" },
    { "texture_max_memory_MB", "FLOAT", "512" },
    { "texture_per_file_stats", "BOOL", "0" },
    { "texture_searchpath", "STRING", "\"\"" },
    { "texture_automip", "BOOL", "1" },
    { "texture_autotile", "INT", "64" },
    { "texture_accept_untiled", "BOOL", "1" },
    { "texture_failure_retries", "INT", "0" },
    { "texture_conservative_lookups", "BOOL", "1" },
    { "texture_glossy_blur", "FLOAT", "0.015625" },
    { "texture_diffuse_blur", "FLOAT", "0.03125" },
    { "camera", "NODE", "null" },
    { "background", "NODE", "null" },
    { "background_visibility", "INT", "65535" },
    { "atmosphere", "NODE", "null" },
    { "bump_multiplier", "FLOAT", "1" },
    { "luminaire_bias", "FLOAT", "9.99999997e-07", "fixture_threshold" },
    { "shadow_bias", "FLOAT", "9.99999997e-07" },
    { "low_light_threshold", "FLOAT", "0.00100000005" },
    { "shadow_terminator_fix", "BOOL", "1", "shadow_term_fix" },
    { "shadows_obey_light_linking", "BOOL", "0" },
    { "skip_background_atmosphere", "BOOL", "0" },
    { "sss_subpixel_cache", "BOOL", "0" },
    { "show_samples", "ENUM", "off", nullptr, "off sss_points sss_irradiance" },
    { "max_shader_messages", "INT", "64", "message_num" },
    { "physically_based", "BOOL", "1" },
    { "mindist_ulp_count", "INT", "1" },
    { "enable_hit_refinement", "BOOL", "0" },
    { "CCW_points", "BOOL", "1" },
    { "mesh_sanity", "BOOL", "1" },
    { "shader_nan_checks", "BOOL", "0" },
    { "max_subdivisions", "INT", "999" },
    { "bad_bounds_slack", "FLOAT", "0.0199999996" },
    { "strict_procedural_compatibility", "BOOL", "1" },
    { "procedural_searchpath", "STRING", "\"\"" },
    { "shader_searchpath", "STRING", "\"\"" },
    { "unload_plugins", "BOOL", "1" },
    { "preserve_scene_data", "BOOL", "0" },
    { "texture_gamma", "FLOAT", "1", "TM_tgamma" },
    { "light_gamma", "FLOAT", "1", "TM_lgamma" },
    { "shader_gamma", "FLOAT", "1", "TM_sgamma" },
    { "GI_diffuse_depth", "INT", "0" },
    { "GI_glossy_depth", "INT", "0" },
    { "GI_reflection_depth", "INT", "2" },
    { "GI_refraction_depth", "INT", "2" },
    { "GI_total_depth", "INT", "10" },
    { "GI_diffuse_samples", "INT", "2", "GI_hemi_samples" },
    { "GI_sss_hemi_samples", "INT", "-1" },
    { "GI_glossy_samples", "INT", "2", "GI_specular_samples" },
    { "GI_refraction_samples", "INT", "2" },
    { "GI_hemi_pattern", "ENUM", "schlick", nullptr, PATTERNS },
    { "GI_Cranley_Patterson", "BOOL", "1" },
    { "GI_direct_lighting", "BOOL", "1" },
    { "GI_falloff_start_dist", "FLOAT", "999999995904" },
    { "GI_falloff_stop_dist", "FLOAT", "999999995904" },
    { "packet_tracing", "BOOL", "0" },
    { "packet_shader", "ENUM", "depth", nullptr, "depth normal ao glossy shadows" },
    { "name", "STRING", "\"options\"" },
};

std::string readOption(const RtNode* options, const OptionRow& row)
{
    const int type = typeCode(row.type);
    return accessor(accessType(type)).get(options, row.name);
}

} // namespace

// ---- Options ----

TEST_F(UniverseQueries, the_options_are_declared_in_their_order)
{
    const RtNodeEntry* entry = RvNodeEntryLookUp("options");
    ASSERT_EQ(RvNodeEntryGetNumParams(entry), int(std::size(option_rows)));
    for (int i = 0; i < RvNodeEntryGetNumParams(entry); ++i) {
        const RtParamEntry* param = RvNodeEntryGetParameter(entry, i);
        EXPECT_STREQ(RvParamGetName(param), option_rows[i].name) << i;
        EXPECT_EQ(RvParamGetType(param), typeCode(option_rows[i].type)) << option_rows[i].name;
    }
}

TEST_F(UniverseQueries, the_options_start_with_their_defaults)
{
    const RtNode* options = RvUniverseGetOptions();
    for (const OptionRow& row : option_rows) {
        const RtParamEntry* param = RvNodeEntryLookUpParameter(options->entry, row.name);
        ASSERT_TRUE(param) << row.name;
        if (!strcmp(row.type, "ENUM")) {
            const char* name =
                RvEnumGetString(RvParamGetEnum(param), RvNodeGetInt(options, row.name));
            EXPECT_STREQ(name, row.value) << row.name;
        } else {
            EXPECT_EQ(readOption(options, row), row.value) << row.name;
        }
    }
    EXPECT_TRUE(messages().empty());
}

TEST_F(UniverseQueries, the_enumerations_of_the_options_have_their_values)
{
    for (const OptionRow& row : option_rows) {
        const RtParamEntry* param =
            RvNodeEntryLookUpParameter(RvNodeEntryLookUp("options"), row.name);
        std::string values;
        for (int i = 0; RvEnumGetString(RvParamGetEnum(param), i); ++i)
            values.append(i ? " " : "").append(RvEnumGetString(RvParamGetEnum(param), i));
        EXPECT_EQ(values, row.values ? row.values : "") << row.name;
    }
}

TEST_F(UniverseQueries, the_older_names_of_the_options_warn_and_work)
{
    RtNode* options = RvUniverseGetOptions();
    for (const OptionRow& row : option_rows) {
        const char* synonym = nullptr;
        EXPECT_EQ(RvMetaDataGetStr(options->entry, row.name, "synonym", &synonym),
                  row.synonym != nullptr)
            << row.name;
        EXPECT_EQ(describe(synonym), describe(row.synonym)) << row.name;
        if (!row.synonym)
            continue;
        const Accessor& a = accessor(accessType(typeCode(row.type)));
        const std::string warning =
            formatted("options: parameter \"%s\" is deprecated, use \"%s\"", row.synonym, row.name);
        a.set(options, row.synonym, 2);
        EXPECT_EQ(takeProblem(), warning);
        EXPECT_EQ(a.get(options, row.name), a.text(2)) << row.name;
        EXPECT_EQ(takeProblem(), "");
        EXPECT_EQ(a.get(options, row.synonym), a.text(2)) << row.name;
        EXPECT_EQ(takeProblem(), warning);
        EXPECT_TRUE(isSet(options, row.name)) << row.name;
    }
}

TEST_F(UniverseQueries, an_older_name_of_diffuse_samples_sets_them)
{
    RvNodeSetInt(RvUniverseGetOptions(), "GI_hemi_samples", 9);
    EXPECT_EQ(takeProblem(), "options: parameter \"GI_hemi_samples\" is deprecated, use "
                             "\"GI_diffuse_samples\"");
    EXPECT_EQ(RvNodeGetInt(RvUniverseGetOptions(), "GI_diffuse_samples"), 9);
}

TEST_F(UniverseQueries, required_an_older_name_without_its_parameter_has_no_effect)
{
    RtNode* options = RvUniverseGetOptions();
    const char* synonym = nullptr;
    EXPECT_TRUE(RvMetaDataGetStr(options->entry, "error_on_bad_bounds", "synonym", &synonym));
    EXPECT_STREQ(synonym, "error_on_bad_procs");
    EXPECT_FALSE(RvNodeEntryLookUpParameter(options->entry, "error_on_bad_bounds"));
    EXPECT_FALSE(RvNodeEntryLookUpParameter(options->entry, "error_on_bad_procs"));
    for (const char* name : { "error_on_bad_bounds", "error_on_bad_procs" }) {
        RvNodeSetBool(options, name, true);
        EXPECT_EQ(takeProblem(), formatted("options: could not set BOOL parameter \"%s\"", name));
    }
}

TEST_F(UniverseQueries, every_option_can_be_set)
{
    RtNode* options = RvUniverseGetOptions();
    for (const OptionRow& row : option_rows) {
        const Accessor& a = accessor(accessType(typeCode(row.type)));
        if (a.type == RV_TYPE_ARRAY)
            continue;
        const int seed = !strcmp(row.name, "camera") ? 0 : 1;
        a.set(options, row.name, seed);
        EXPECT_EQ(a.get(options, row.name), a.text(seed)) << row.name;
    }
    RvNodeSetArray(options, "outputs",
                   RvArray(2, 1, RV_TYPE_STRING, "RGBA RGBA filter driver", "Z FLOAT f d"));
    EXPECT_EQ(RvNodeGetArray(options, "outputs")->nelements, 2u);
    RvNodeSetArray(options, "buckets", RvArray(4, 1, RV_TYPE_FLOAT, 0.0, 1.0, 2.0, 3.0));
    EXPECT_EQ(describe(RvNodeGetArray(options, "buckets")), "POINT2 2x1: 0 1, 2 3");
    EXPECT_EQ(takeProblem(), "");
    RvNodeReset(options); // the pointers above point nowhere
}

TEST_F(UniverseQueries, the_record_of_the_options_shows_what_the_getters_return)
{
    RtNode* options = RvUniverseGetOptions();
    ASSERT_EQ(rv::render_options, options->params);
    EXPECT_EQ(options->entry->struct_size, int(sizeof(RtOptions)));
    EXPECT_EQ(rv::render_options->xres, 320);
    EXPECT_EQ(rv::render_options->region_max_x, -1);
    EXPECT_TRUE(rv::render_options->CCW_points);
    RvNodeSetInt(options, "region_max_x", 17);
    RvNodeSetFlt(options, "AA_sample_clamp", 3.5f);
    RvNodeSetBool(options, "CCW_points", false);
    RvNodeSetRGB(options, "error_color_bad_texture", 0.25f, 0.5f, 0.75f);
    RvNodeSetStr(options, "shader_searchpath", "a;b");
    RvNodeSetInt(options, "packet_shader", 4);
    EXPECT_EQ(rv::render_options->region_max_x, 17);
    EXPECT_EQ(rv::render_options->AA_sample_clamp, 3.5f);
    EXPECT_FALSE(rv::render_options->CCW_points);
    EXPECT_EQ(describe(rv::render_options->error_color_bad_texture), "0.25 0.5 0.75");
    EXPECT_STREQ(rv::render_options->shader_searchpath, "a;b");
    EXPECT_EQ(rv::render_options->packet_shader, 4);
    EXPECT_STREQ(rv::render_options->name, "options");
    rv::render_options->yres = 77;
    EXPECT_EQ(RvNodeGetInt(options, "yres"), 77);
}

TEST_F(UniverseQueries, the_layout_of_the_options_ends_with_the_name)
{
    const RtNodeEntry* entry = RvNodeEntryLookUp("options");
    static const struct {
        const char* key;
        int value;
    } cases[] = { { "_struct_size", int(sizeof(RtOptions)) },
                  { "_baseoffset", int(offsetof(RtOptions, name)) },
                  { "_baseoffset2", int(offsetof(RtOptions, name)) } };
    for (const auto& c : cases) {
        int value = 0;
        EXPECT_TRUE(RvMetaDataGetInt(entry, nullptr, c.key, &value)) << c.key;
        EXPECT_EQ(value, c.value) << c.key;
    }
    for (unsigned i = 1; i < entry->num_params; ++i)
        EXPECT_GT(entry->params[i].offset, entry->params[i - 1].offset)
            << entry->params[i].name << " stands in the order of declaration";
}

// ---- The options node ----

TEST_F(UniverseQueries, the_options_node_is_there_from_the_start)
{
    RtNode* options = RvUniverseGetOptions();
    ASSERT_TRUE(options);
    EXPECT_STREQ(RvNodeGetName(options), "options");
    EXPECT_EQ(RvNodeLookUpByName("options"), options);
    EXPECT_TRUE(RvNodeIs(options, "options"));
    EXPECT_TRUE(RvUniverseIsActive());
    EXPECT_EQ(RvNodeEntryGetCount(RvNodeEntryLookUp("options")), 1);
}

TEST_F(UniverseQueries, without_an_options_node_the_universe_stays_usable)
{
    RvNodeDestroy(RvUniverseGetOptions());
    EXPECT_FALSE(RvUniverseGetOptions());
    EXPECT_FALSE(RvUniverseGetCamera());
    EXPECT_FALSE(rv::render_options);
    RtNode* camera = RvNode("persp_camera");
    RtNode* light = RvNode("point_light");
    RtNode* lambert = RvNode("lambert");
    EXPECT_TRUE(camera && light && lambert);
    EXPECT_EQ(RvUniverseGetNumLights(), 1);
    RvNodeSetRGB(lambert, "Kd_color", 0.5f, 0.5f, 0.5f);
    RvNodeSetInt(lambert, "Kd", 1);
    RvNodeSetInt(nullptr, "Kd", 1); // an error, which may abort renders
    RvNodeDestroy(camera);
    takeProblems();

    RtNode* options = RvNode("options");
    ASSERT_TRUE(options);
    EXPECT_EQ(RvUniverseGetOptions(), options);
    EXPECT_EQ(rv::render_options, options->params);
    EXPECT_EQ(RvNodeGetInt(options, "xres"), 320);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(UniverseQueries, options_of_a_type_with_another_layout_do_no_harm)
{
    installType("other_options", {}, RV_NODE_OPTIONS, RV_TYPE_NONE);
    EXPECT_EQ(RvNode("other_options"), RvUniverseGetOptions()) << "there is one already";
    RvNodeDestroy(RvUniverseGetOptions());
    RtNode* options = RvNode("other_options");
    ASSERT_TRUE(options);
    EXPECT_EQ(RvUniverseGetOptions(), options);
    EXPECT_FALSE(rv::render_options) << "its block is no record of the options";
    RtNode* camera = RvNode("persp_camera");
    EXPECT_FALSE(RvUniverseGetCamera());
    RvNodeDestroy(camera);
    RvNode("point_light");
    EXPECT_EQ(RvUniverseGetNumLights(), 1);
    EXPECT_EQ(takeProblem(), "");

    RvNodeDestroy(options);
    EXPECT_EQ(rv::render_options, RvNode("options")->params);
}

TEST_F(UniverseQueries, a_universe_may_end_without_an_options_node)
{
    RvNodeDestroy(RvUniverseGetOptions());
    EXPECT_EQ(takeProblem(), "");
}

// ---- Cameras ----

TEST_F(UniverseQueries, the_first_camera_renders)
{
    EXPECT_FALSE(RvUniverseGetCamera());
    RtNode* first = RvNode("persp_camera");
    RtNode* second = RvNode("ortho_camera");
    EXPECT_EQ(RvUniverseGetCamera(), first);
    EXPECT_EQ(RvNodeGetPtr(RvUniverseGetOptions(), "camera"), first);
    EXPECT_NE(second, first);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(UniverseQueries, every_camera_type_is_adopted)
{
    for (const char* type : { "persp_camera", "ortho_camera", "fisheye_camera", "cyl_camera" }) {
        RtNode* camera = RvNode(type);
        EXPECT_EQ(RvUniverseGetCamera(), camera) << type;
        TearDown();
        SetUp();
    }
}

TEST_F(UniverseQueries, a_camera_set_explicitly_stays)
{
    RvNode("persp_camera");
    RtNode* second = RvNode("persp_camera");
    RvNodeSetPtr(RvUniverseGetOptions(), "camera", second);
    RvNode("persp_camera");
    EXPECT_EQ(RvUniverseGetCamera(), second);
}

TEST_F(UniverseQueries, no_camera_is_adopted_once_null_was_set_explicitly)
{
    RvNodeSetPtr(RvUniverseGetOptions(), "camera", nullptr);
    RvNode("persp_camera");
    EXPECT_FALSE(RvUniverseGetCamera());
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(UniverseQueries, an_adopted_camera_may_be_replaced_by_hand)
{
    RtNode* first = RvNode("persp_camera");
    RtNode* second = RvNode("persp_camera");
    EXPECT_EQ(RvUniverseGetCamera(), first);
    RvNodeSetPtr(RvUniverseGetOptions(), "camera", second);
    EXPECT_EQ(RvUniverseGetCamera(), second);
    RvNodeDestroy(second);
    EXPECT_FALSE(RvUniverseGetCamera());
}

// ---- Lights and shapes ----

TEST_F(UniverseQueries, the_lights_stand_in_order_of_creation)
{
    EXPECT_EQ(RvUniverseGetNumLights(), 0);
    EXPECT_FALSE(RvUniverseGetLights());
    std::vector<RtNode*> lights;
    for (const char* type : { "point_light", "spot_light", "quad_light" }) {
        lights.push_back(RvNode(type));
        RvNode("lambert");
    }
    ASSERT_EQ(RvUniverseGetNumLights(), 3);
    for (int i = 0; i < 3; ++i) {
        RtNode* light = RvUniverseGetLights()[i];
        EXPECT_EQ(light, lights[size_t(i)]);
        EXPECT_EQ(RvNodeEntryGetType(RvNodeGetNodeEntry(light)), RV_NODE_LIGHT);
    }
    RvNodeDestroy(lights[1]);
    ASSERT_EQ(RvUniverseGetNumLights(), 2);
    EXPECT_EQ(RvUniverseGetLights()[0], lights[0]);
    EXPECT_EQ(RvUniverseGetLights()[1], lights[2]);
    RvNodeDestroy(lights[0]);
    RvNodeDestroy(lights[2]);
    EXPECT_EQ(RvUniverseGetNumLights(), 0);
    EXPECT_FALSE(RvUniverseGetLights());
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(UniverseQueries, ignored_lights_are_not_listed)
{
    RvNode("point_light");
    RvNode("distant_light");
    RvNodeSetBool(RvUniverseGetOptions(), "ignore_lights", true);
    EXPECT_EQ(RvUniverseGetNumLights(), 0);
    EXPECT_FALSE(RvUniverseGetLights());
    EXPECT_EQ(visited(RV_NODE_LIGHT).size(), 2u);
    RvNodeSetBool(RvUniverseGetOptions(), "ignore_lights", false);
    EXPECT_EQ(RvUniverseGetNumLights(), 2);
    EXPECT_TRUE(RvUniverseGetLights());
}

TEST_F(UniverseQueries, shapes_are_counted)
{
    EXPECT_EQ(RvUniverseGetNumGObjects(), 0);
    RtNode* sphere = RvNode("sphere");
    RvNode("polymesh");
    RvNode("lambert");
    RvNode("point_light");
    EXPECT_EQ(RvUniverseGetNumGObjects(), 2);
    RtNode* clone = RvNodeClone(sphere);
    EXPECT_EQ(RvUniverseGetNumGObjects(), 3);
    RvNodeDestroy(sphere);
    RvNodeDestroy(clone);
    EXPECT_EQ(RvUniverseGetNumGObjects(), 1);
}

TEST_F(UniverseQueries, the_bounds_are_empty_before_a_render)
{
    RtNode* sphere = RvNode("sphere");
    RvNodeSetPnt(sphere, "center", -1, -1, -1);
    const RtBBox bounds = RvUniverseGetSceneBounds();
    EXPECT_EQ(describe(bounds.min), "0 0 0");
    EXPECT_EQ(describe(bounds.max), "0 0 0");
    for (const auto& v : goldenVectors("misc", "RvUniverseGetSceneBounds"))
        EXPECT_EQ(v["out"]["before"], nlohmann::json(std::vector<double>(6, 0.0))) << v["id"];
}

// ---- Iterators ----

TEST_F(UniverseQueries, a_new_universe_holds_the_internal_shaders_and_the_options)
{
    Names names;
    for (RtNode* node : visited(RV_NODE_ALL))
        names.push_back(RvNodeGetName(node));
    EXPECT_EQ(names, (Names{ "rv_default_reflection_shader", "rv_error_shader", "rv_bad_shader",
                             "options" }));
}

TEST_F(UniverseQueries, an_iterator_visits_the_kinds_of_its_mask_in_order_of_creation)
{
    std::vector<RtNode*> all = visited(RV_NODE_ALL);
    for (const char* type :
         { "sphere", "point_light", "lambert", "persp_camera", "box_filter", "driver_png",
           "spot_light", "override", "disc", "gaussian_filter", "standard", "quad_light" })
        all.push_back(RvNode(type));
    for (unsigned mask : { 0u, 1u, 2u, 4u, 8u, 16u, 32u, 64u, 128u, 12u, 0xC0u, 0xFFFFu, 0x100u }) {
        std::vector<RtNode*> expected;
        for (RtNode* node : all)
            if (unsigned(RvNodeEntryGetType(RvNodeGetNodeEntry(node))) & mask)
                expected.push_back(node);
        EXPECT_EQ(visited(mask), expected) << mask;
    }
    EXPECT_EQ(visited(RV_NODE_LIGHT).size(), 3u);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(UniverseQueries, a_null_iterator_is_finished)
{
    EXPECT_TRUE(RvNodeIteratorFinished(nullptr));
    EXPECT_FALSE(RvNodeIteratorGetNext(nullptr));
    RvNodeIteratorDestroy(nullptr);
    EXPECT_TRUE(messages().empty());
}

TEST_F(UniverseQueries, nodes_may_be_created_while_an_iterator_stands)
{
    RtNodeIterator* it = RvUniverseGetNodeIterator(RV_NODE_SHAPE);
    EXPECT_TRUE(RvNodeIteratorFinished(it));
    RvNode("sphere");
    RvNodeIteratorDestroy(it);
    it = RvUniverseGetNodeIterator(RV_NODE_SHAPE);
    RtNode* sphere = RvNodeIteratorGetNext(it);
    EXPECT_TRUE(RvNodeIs(sphere, "sphere"));
    RvNodeDestroy(sphere); // the iterator has moved on
    RvNodeIteratorGetNext(it);
    RvNodeIteratorDestroy(it);
}

TEST_F(UniverseQueries, iterators_that_find_no_memory_are_null_and_reported)
{
    {
        AllocationLimit limit(0);
        EXPECT_FALSE(RvUniverseGetNodeIterator(RV_NODE_ALL));
        EXPECT_FALSE(RvUniverseGetNodeEntryIterator(RV_NODE_ALL));
    }
    const Names problems = takeProblems();
    ASSERT_EQ(problems.size(), 2u);
    for (const std::string& problem : problems)
        EXPECT_TRUE(
            matches(problem, "can't allocate [0-9]+ bytes in core.src.[a-z]+:.*\\(\\):[0-9]+"))
            << problem;
    EXPECT_NE(problems[1].find(":RvUniverseGetNodeEntryIterator():"), std::string::npos)
        << problems[1];
}

// ---- Caches ----

TEST_F(UniverseQueries, flushing_caches_of_an_unrendered_scene_does_nothing)
{
    RvUniverseCacheFlush(0);
    RvUniverseCacheFlush(~0x18);
    for (const char* type : { "sphere", "curves", "polymesh", "ginstance", "list_aggregate" })
        RvNode(type);
    for (int flags : { 0x1, 0x2, 0x4, 0x6, 0x7, 0x20, 0x40000000 })
        RvUniverseCacheFlush(flags);
    RvUniverseCacheFlush(0x18); // no lights
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(UniverseQueries, flushing_tables_of_lights_without_any_does_no_harm)
{
    for (const char* type : { "point_light", "quad_light", "skydome_light" })
        RvNode(type);
    RvUniverseCacheFlush(0x8);
    RvUniverseCacheFlush(0x10);
    RvUniverseCacheFlush(-1);
}
