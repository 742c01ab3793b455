// Tests of the preparation of outputs.
#include "aovs/output_tools.h"
#include "image_geometry.h"

using namespace output_tools;

struct OutputStore : Outputs {
    static int option(const char* name) { return RvNodeGetInt(RvUniverseGetOptions(), name); }
    static void set(const char* name, int value)
    {
        RvNodeSetInt(RvUniverseGetOptions(), name, value);
    }
    static std::string last(const std::vector<std::string>& texts)
    {
        return texts.empty() ? "" : texts.back();
    }
    // Names and types of the variables, "AA_offset" left out.
    static std::string variables()
    {
        std::string text;
        for (size_t i = 1; i < rv::output_store->aovs.size(); ++i) {
            const RtAOV& aov = rv::output_store->aovs[i];
            text += node_tools::formatted("%s%s:%s%s", i > 1 ? " " : "", aov.name,
                                          RvParamGetTypeName(aov.type), aov.deep ? "*" : "");
        }
        return text;
    }
};

// ---- Failures ----

TEST_F(OutputStore, without_statements_nothing_is_prepared)
{
    EXPECT_FALSE(prepare({}));
    EXPECT_EQ(takeProblem(), "[aov] no output statements found");
    EXPECT_EQ(rv::output_store, nullptr);
}

TEST_F(OutputStore, an_array_of_anything_but_strings_holds_no_statements)
{
    rv::render_options->outputs->type = RV_TYPE_FLOAT;
    EXPECT_FALSE(rv::prepareOutputs(rv::the_frame->session));
    rv::render_options->outputs->type = RV_TYPE_STRING;
    EXPECT_EQ(takeProblem(), "[aov] no output statements found");
}

TEST_F(OutputStore, null_statements_are_passed_over)
{
    setOutputs({ nullptr, nullptr });
    EXPECT_FALSE(prepare({ nullptr }));
    EXPECT_EQ(takeProblem(), "[aov] no valid outputs - can't continue");
    EXPECT_TRUE(prepare({ nullptr, "v FLOAT box drv" }));
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(OutputStore, without_a_valid_output_nothing_is_prepared)
{
    EXPECT_FALSE(prepare({ "RGBA RGBA drv" }));
    EXPECT_EQ(takeProblem(),
              "[aov] unable to parse output line, found 3 tokens but expecting 1 or 4 | "
              "[aov] no valid outputs - can't continue");
    EXPECT_EQ(rv::output_store, nullptr);
    EXPECT_TRUE(probe().events.empty());
}

TEST_F(OutputStore, drivers_of_one_output_refuse_a_second)
{
    node_tools::named("file_driver", "file");
    EXPECT_FALSE(prepare({ "RGBA RGBA box file", "Z FLOAT box file" }));
    EXPECT_EQ(takeProblem(), "[aov] more than one output statement was associated with single "
                             "layer driver: file");
    EXPECT_EQ(rv::output_store, nullptr);
    EXPECT_TRUE(probe().events.empty());
    EXPECT_TRUE(prepare({ "RGBA RGBA box file" }));
}

TEST_F(OutputStore, an_exhausted_heap_fails_the_preparation_and_leaves_nothing_behind)
{
    node_tools::named("closest_filter", "closest");
    static const char* const statements[] = { "RGBA RGBA box drv",
                                              "a_variable_with_a_long_name RGB closest drv" };
    prepare({ statements[0], statements[1] });
    closeOutputs();
    takeProblems();
    const auto problems = node_tools::problemsOfFailingHeap(
        [] {
            rv::prepareOutputs(rv::the_frame->session);
            rv::closeOutputs(rv::the_frame->session);
        },
        takeProblems);
    EXPECT_FALSE(problems.empty());
    EXPECT_EQ(rv::output_store, nullptr);
}

TEST_F(OutputStore, preparing_and_closing_leaks_nothing)
{
    prepare({ "RGBA RGBA box drv", "v RGB box drv" });
    EXPECT_FALSE(node_tools::leaksMemory([] {
        rv::prepareOutputs(rv::the_frame->session);
        rv::closeOutputs(rv::the_frame->session);
        messages().clear();
        probe().events.clear();
    }));
}

// ---- Reports ----

TEST_F(OutputStore, prepared_lines_count_variables_outputs_and_drivers)
{
    static const char* one_deep[] = { "FLOAT v", nullptr };
    const struct {
        std::vector<const char*> statements;
        const char** required; // of the raw driver, at all depths
    } scenes[] = {
        { { "v FLOAT box drv" }, nullptr },
        { { "raw" }, nullptr },
        { { "v FLOAT box drv", "w FLOAT box drv", "raw" }, one_deep },
        { { "v FLOAT farthest drv", "c RGB box drv" }, nullptr },
    };
    RtNode* const farthest = node_tools::named("farthest_filter", "farthest");
    RvNodeSetStr(farthest, "domain", "all_hits"); // makes "v" and "Z" deep
    const auto vectors = goldenVectors("output", "prepared_line");
    ASSERT_EQ(vectors.size(), std::size(scenes));
    for (size_t i = 0; i < vectors.size(); ++i) {
        const auto& in = vectors[i]["in"];
        probe().required_aovs = scenes[i].required;
        probe().requires_depth = true;
        RtNode* const raw = node_tools::named("raw_driver", "raw");
        ASSERT_TRUE(prepare(scenes[i].statements));
        EXPECT_EQ(rv::output_store->aovs.size(), in["registered_aovs"].get<size_t>()) << i;
        EXPECT_EQ(rv::output_store->outputs.size(), in["outputs"].get<size_t>()) << i;
        EXPECT_EQ(rv::output_store->drivers.size(), in["drivers"].get<size_t>()) << i;
        EXPECT_EQ(rv::output_store->deep_count, in["deep_aovs"].get<int>()) << i;
        expectGolden(vectors[i], "text", last(takeReports()));
        closeOutputs();
        RvNodeDestroy(raw);
        takeReports();
    }
}

TEST_F(OutputStore, drivers_and_their_outputs_are_listed_in_order_of_appearance)
{
    node_tools::named("file_driver", "file");
    node_tools::named("gaussian_filter", "gauss");
    node_tools::named("raw_driver", "raw");
    ASSERT_TRUE(prepare({ "RGBA RGBA gauss drv", "Z FLOAT box file", "raw", "N VECTOR box drv" }));
    const std::vector<std::string> expected = {
        "[aov] registered driver: \"drv\" (layered_driver)",
        "[aov]  * \"RGBA\" of type RGBA filtered by \"gauss\" (gaussian_filter)",
        "[aov]  * \"N\" of type VECTOR filtered by \"box\" (box_filter)",
        "[aov] registered driver: \"file\" (file_driver)",
        "[aov]  * \"Z\" of type FLOAT filtered by \"box\" (box_filter)",
        "[aov] registered driver: \"raw\" (raw_driver)",
        "[aov]  * raw samples",
        "[aov] done preparing 3 AOVs for 4 outputs to 3 drivers (0 deep AOVs)",
    };
    EXPECT_EQ(takeReports(), expected);
}

// ---- Variables ----

TEST_F(OutputStore, variables_are_registered_once_in_order)
{
    node_tools::named("closest_filter", "closest");
    ASSERT_TRUE(prepare({ "b RGB closest drv", "a FLOAT box drv", "b RGB box drv" }));
    EXPECT_EQ(variables(), "b:RGB Z:FLOAT a:FLOAT");
    EXPECT_STREQ(rv::output_store->aovs[0].name, "AA_offset");
    EXPECT_EQ(rv::output_store->aovs[0].type, RV_TYPE_POINT2);
    for (const RtAOV& aov : rv::output_store->aovs) {
        EXPECT_EQ(rv::findAOV(aov.name), &aov);
        EXPECT_EQ(rv::findAOV(std::string(aov.name).c_str()), &aov);
    }
    EXPECT_EQ(rv::findAOV("c"), nullptr);
    EXPECT_EQ(rv::findAOV(""), nullptr);
    EXPECT_EQ(rv::findAOV(nullptr), nullptr);
}

TEST_F(OutputStore, sizes_in_sample_records)
{
    node_tools::named("closest_filter", "closest");
    const auto sizeOf = [](const char* type) {
        EXPECT_TRUE(prepare({ node_tools::formatted("v %s closest drv", type).c_str() }));
        const RtAOV& v = *rv::findAOV("v");
        return rv::findAOV("Z")->offset - v.offset;
    };
    for (const auto& v : goldenVectors("output", "sample_record_size"))
        expectGolden(v, "bytes", sizeOf(v["in"]["type"].get<std::string>().c_str()));
    EXPECT_EQ(sizeOf("BYTE"), 4u);
    EXPECT_EQ(sizeOf("BOOL"), 4u);
    EXPECT_EQ(sizeOf("FLOAT"), 4u);
    EXPECT_EQ(sizeOf("RGB"), 12u);
    EXPECT_EQ(sizeOf("ENUM"), 4u);
}

TEST_F(OutputStore, deep_records_hold_deep_variables_alone)
{
    RtNode* const farthest = node_tools::named("farthest_filter", "farthest");
    RvNodeSetStr(farthest, "domain", "all_hits");
    ASSERT_TRUE(prepare({ "flat RGB box drv", "v RGBA farthest drv" }));
    EXPECT_EQ(variables(), "flat:RGB v:RGBA* Z:FLOAT*");
    EXPECT_EQ(rv::output_store->sample_bytes, 8u + 12 + 16 + 4);
    EXPECT_EQ(rv::output_store->deep_sample_bytes, 16u + 4);
    EXPECT_EQ(rv::findAOV("v")->deep_offset, 0u);
    EXPECT_EQ(rv::findAOV("Z")->deep_offset, 16u);
    EXPECT_EQ(last(takeReports()),
              "[aov] done preparing 3 AOVs for 2 outputs to 1 driver (2 deep AOVs)");
}

TEST_F(OutputStore, enabled_variables_are_those_of_the_running_render)
{
    EXPECT_FALSE(RvAOVEnabled("Z", RV_TYPE_FLOAT));
    ASSERT_TRUE(prepare({ "Z FLOAT box drv" }));
    EXPECT_TRUE(RvAOVEnabled("Z", RV_TYPE_FLOAT));
    EXPECT_FALSE(RvAOVEnabled("Z", RV_TYPE_RGB));
    EXPECT_FALSE(RvAOVEnabled("diffuse", RV_TYPE_RGB));
    EXPECT_FALSE(RvAOVEnabled(nullptr, RV_TYPE_FLOAT));
    closeOutputs();
    EXPECT_FALSE(RvAOVEnabled("Z", RV_TYPE_FLOAT));
    EXPECT_EQ(takeProblem(), "");
}

// ---- Built-in variables ----

TEST_F(OutputStore, a_mistyped_built_in_is_reported_once_and_left_empty)
{
    ASSERT_TRUE(prepare({ "Z RGB box drv", "N RGB box drv" }));
    EXPECT_EQ(takeProblem(), "[aov] type mismatch for \"Z\" (expected FLOAT, found RGB)");
    EXPECT_EQ(rv::builtInAOV(RV_AOV_Z), nullptr);
    EXPECT_EQ(rv::builtInAOV(RV_AOV_N), nullptr);
    ASSERT_TRUE(prepare({ "Z RGB box drv" }));
    EXPECT_EQ(takeProblem(), ""); // Required: once in the process
}

TEST_F(OutputStore, every_built_in_has_its_type)
{
    node_tools::named("closest_filter", "closest");
    static const struct {
        RtBuiltInAOV which;
        const char* name;
        const char* type; // null: any
    } rows[] = {
        { RV_AOV_RGB, "RGB", nullptr },
        { RV_AOV_RGBA, "RGBA", nullptr },
        { RV_AOV_A, "A", nullptr },
        { RV_AOV_Z, "Z", "FLOAT" },
        { RV_AOV_OPACITY, "opacity", "RGB" },
        { RV_AOV_ID, "ID", "INT" },
        { RV_AOV_OBJECT, "object", "NODE" },
        { RV_AOV_SHADER, "shader", "NODE" },
        { RV_AOV_P, "P", "POINT" },
        { RV_AOV_N, "N", "VECTOR" },
        { RV_AOV_CPUTIME, "cputime", nullptr },
        { RV_AOV_RAYCOUNT, "raycount", nullptr },
    };
    for (const auto& row : rows)
        for (const char* type : node_tools::type_names) {
            if (row.which == RV_AOV_Z && strcmp(type, "FLOAT"))
                continue; // what the filter requires
            rv::built_in_mismatch_reported = false;
            ASSERT_TRUE(
                prepare({ node_tools::formatted("%s %s closest drv", row.name, type).c_str() }));
            const bool is_right = !row.type || !strcmp(row.type, type);
            EXPECT_EQ(rv::builtInAOV(row.which), is_right ? rv::findAOV(row.name) : nullptr)
                << row.name << " " << type;
            EXPECT_EQ(takeProblem(),
                      is_right ? ""
                               : node_tools::formatted(
                                     "[aov] type mismatch for \"%s\" (expected %s, found %s)",
                                     row.name, row.type, type));
        }
}

// ---- Sizes ----

TEST_F(OutputStore, padding_of_golden_filters)
{
    for (const auto& v : goldenVectors("output", "output_padding")) {
        set("AA_samples", v["in"]["AA_samples"]);
        RtNode* const raw = node_tools::named("raw_driver", "raw");
        std::vector<std::string> statements;
        std::vector<RtNode*> filters;
        for (const auto& width : v["in"]["filter_widths"]) {
            const std::string name = node_tools::formatted("f%zu", filters.size());
            filters.push_back(node_tools::named("gaussian_filter", name.c_str()));
            RvNodeSetFlt(filters.back(), "width", goldenFloat(width));
            statements.push_back(node_tools::formatted("v FLOAT %s drv", name.c_str()));
        }
        std::vector<const char*> texts = { "raw" };
        for (const std::string& statement : statements)
            texts.push_back(statement.c_str());
        ASSERT_TRUE(prepare(texts));
        expectGolden(v, "padding", rv::output_store->padding);
        closeOutputs();
        for (RtNode* filter : filters)
            RvNodeDestroy(filter);
        RvNodeDestroy(raw);
    }
}

TEST_F(OutputStore, small_buckets_become_16_pixels_wide)
{
    for (const auto& v : goldenVectors("output", "bucket_size_minimum")) {
        set("bucket_size", v["in"]["bucket_size"]);
        RvNodeSetBool(RvUniverseGetOptions(), "packet_tracing", v["in"]["packet_tracing"]);
        ASSERT_TRUE(prepare({ "v FLOAT box drv" }));
        expectGolden(v, "bucket_size", option("bucket_size"));
    }
    for (const int size : { 0, -1, INT32_MIN }) {
        set("bucket_size", size);
        ASSERT_TRUE(prepare({ "v FLOAT box drv" }));
        EXPECT_EQ(option("bucket_size"), 16);
    }
}

TEST_F(OutputStore, buckets_are_aligned_to_packets)
{
    RtNode* const filter = node_tools::named("gaussian_filter", "gauss");
    for (const auto& v : goldenVectors("output", "bucket_size_optimisation")) {
        const auto& in = v["in"];
        set("bucket_size", in["bucket_size"]);
        set("AA_sampling_dither", in["AA_sampling_dither"]);
        RvNodeSetBool(RvUniverseGetOptions(), "packet_tracing", in["packet_tracing"]);
        RvNodeSetFlt(filter, "width", 1 + 2 * goldenFloat(in["padding"]));
        messages().clear();
        ASSERT_TRUE(prepare({ "v FLOAT gauss drv" }));
        EXPECT_EQ(rv::output_store->padding, in["padding"].get<int>()) << goldenId(v);
        expectGolden(v, "bucket_size", option("bucket_size"));
        const auto reports = takeReports();
        const bool has_line = reports.at(0).rfind("optimizing", 0) == 0;
        expectGolden(v, "line", has_line ? nlohmann::json(reports[0]) : nlohmann::json());
        EXPECT_EQ(probe().bucket_size, option("bucket_size")) << goldenId(v);
    }
}

TEST_F(OutputStore, the_largest_bucket_stays_within_its_type)
{
    set("bucket_size", INT32_MAX);
    RvNodeSetBool(RvUniverseGetOptions(), "packet_tracing", true);
    ASSERT_TRUE(prepare({ "v FLOAT box drv" }));
    EXPECT_EQ(option("bucket_size"), INT32_MAX);
}

// ---- Drivers ----

TEST_F(OutputStore, drivers_are_opened_and_closed_with_their_outputs_and_windows)
{
    node_tools::named("raw_driver", "raw");
    rv::ImageGeometry image = rv::wholeImage(100, 80);
    image.region_min_x = 10, image.region_min_y = 20;
    image.region_max_x = 59, image.region_max_y = 79;
    rv::image_geometry = &image;
    ASSERT_TRUE(prepare({ "RGBA RGBA box drv", "raw", "hits INT box drv" }));
    rv::closeOutputs(rv::the_frame->session);
    rv::image_geometry = nullptr;
    const std::vector<std::string> expected = { "open RGBA:RGBA hits:FLOAT by drv", "open by raw",
                                                "close RGBA:RGBA hits:FLOAT by drv",
                                                "close by raw" };
    EXPECT_EQ(probe().events, expected);
    EXPECT_EQ(probe().display.min_x, 0);
    EXPECT_EQ(probe().display.min_y, 0);
    EXPECT_EQ(probe().display.max_x, 99);
    EXPECT_EQ(probe().display.max_y, 79);
    EXPECT_EQ(probe().data.min_x, 10);
    EXPECT_EQ(probe().data.min_y, 20);
    EXPECT_EQ(probe().data.max_x, 59);
    EXPECT_EQ(probe().data.max_y, 79);
    rv::closeOutputs(rv::the_frame->session); // once is enough
    EXPECT_EQ(probe().events.size(), expected.size());
}
