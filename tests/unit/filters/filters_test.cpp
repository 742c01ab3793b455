// Tests of the filter helpers.
#include "aovs/output_tools.h"

#include <limits>

using namespace output_tools;

struct Filters : Outputs {
    // A filter node without local data.
    static RtNode* freshFilter() { return node_tools::named("box_filter", "fresh"); }
    static RtFilterData* initialized(RtNode* node, void* user_data = nullptr)
    {
        RvFilterInitialize(node, false, nullptr, user_data);
        return rv::filterData(node);
    }
    // What a test initialises by hand no Finish gives back.
    void TearDown() override
    {
        RvFilterDestroy(RvNodeLookUpByName("fresh"));
        Outputs::TearDown();
    }
};

TEST_F(Filters, updates_set_radius_and_padding_of_golden_widths)
{
    RtNode* const node = freshFilter();
    const RtFilterData* const data = initialized(node);
    for (const auto& v : goldenVectors("output", "RvFilterUpdate")) {
        RvFilterUpdate(node, goldenFloat(v["in"]["width"]));
        EXPECT_EQ(data->width, goldenFloat(v["in"]["width"])) << goldenId(v);
        expectGoldenNumbers(v, "radius", { data->radius });
        expectGolden(v, "padding", data->padding);
    }
}

TEST_F(Filters, padding_is_bounded_for_widths_that_make_no_sense)
{
    RtNode* const node = freshFilter();
    const RtFilterData* const data = initialized(node);
    static const struct {
        float width;
        int padding;
    } rows[] = {
        { -4, -2 }, // cut off towards zero
        { 1e30f, 1 << 20 },
        { std::numeric_limits<float>::infinity(), 1 << 20 },
        { -std::numeric_limits<float>::infinity(), 0 },
        { std::numeric_limits<float>::quiet_NaN(), 0 },
    };
    for (const auto& row : rows) {
        RvFilterUpdate(node, row.width);
        EXPECT_EQ(data->padding, row.padding) << row.width;
    }
}

TEST_F(Filters, initialisation_stores_its_arguments_once)
{
    static const char* required[] = { "FLOAT Z", nullptr };
    int mine = 0, other = 0;
    RtNode* const node = freshFilter();
    EXPECT_EQ(RvFilterGetLocalData(node), nullptr);
    RvFilterInitialize(node, true, required, &mine);
    RvFilterInitialize(node, false, nullptr, &other);
    const RtFilterData* const data = rv::filterData(node);
    ASSERT_TRUE(data);
    EXPECT_EQ(RvFilterGetLocalData(node), &mine);
    EXPECT_EQ(data->required_aovs, required);
    EXPECT_TRUE(data->requires_depth);
    EXPECT_EQ(data->width, 0);
    EXPECT_EQ(data->radius, 0);
    EXPECT_EQ(data->padding, 0);
}

TEST_F(Filters, helpers_ignore_null_nodes_nodes_without_data_and_other_nodes)
{
    RtNode* const fresh = freshFilter();
    RtNode* const shader = node_tools::named("flat", "f");
    for (RtNode* node : { static_cast<RtNode*>(nullptr), fresh, shader }) {
        RvFilterUpdate(node, 3);
        RvFilterDestroy(node);
        EXPECT_EQ(RvFilterGetLocalData(node), nullptr);
    }
    RvFilterInitialize(nullptr, false, nullptr, nullptr);
    RvFilterInitialize(shader, false, nullptr, nullptr);
    EXPECT_EQ(RvNodeGetLocalData(shader), nullptr);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Filters, destroying_twice_is_harmless)
{
    RtNode* const node = freshFilter();
    initialized(node);
    RvFilterDestroy(node);
    RvFilterDestroy(node);
    EXPECT_EQ(RvFilterGetLocalData(node), nullptr);
}

TEST_F(Filters, an_exhausted_heap_is_reported_and_leaves_no_data)
{
    RtNode* const node = freshFilter();
    {
        node_tools::AllocationLimit limit(0);
        RvFilterInitialize(node, false, nullptr, nullptr);
    }
    EXPECT_EQ(rv::filterData(node), nullptr);
    EXPECT_TRUE(node_tools::reportsFailure(takeProblem(), "core\\src\\filters\\filters",
                                           "RvFilterInitialize"));
}

TEST_F(Filters, built_in_widths_by_default)
{
    for (const auto& v : goldenVectors("output", "filter_default_width")) {
        const std::string type = v["in"]["filter"];
        RtNode* const node = node_tools::named(type.c_str(), type.c_str());
        ASSERT_TRUE(prepare({ (std::string("v FLOAT ") + type + " drv").c_str() }));
        const RtFilterData& data = *rv::filterData(node);
        expectGoldenNumbers(v, "width", { data.width });
        expectGoldenNumbers(v, "radius", { data.radius });
        expectGolden(v, "padding", data.padding);
    }
}

TEST_F(Filters, a_width_that_changes_between_renders_is_taken_over)
{
    RtNode* const node = node_tools::named("gaussian_filter", "g");
    ASSERT_TRUE(prepare({ "v FLOAT g drv" }));
    EXPECT_EQ(rv::output_store->padding, 1);
    RvNodeSetFlt(node, "width", 4);
    ASSERT_TRUE(prepare({ "v FLOAT g drv" }));
    EXPECT_EQ(rv::output_store->padding, 2);
}

TEST_F(Filters, output_types_of_every_filter_for_every_type)
{
    // By type code; "=" the same type, "." none.
    static const struct {
        const char* filters;
        const char* types[node_tools::type_count];
    } rows[] = {
        // BYTE INT UINT BOOL FLOAT RGB RGBA VECTOR POINT POINT2 STRING POINTER NODE ARRAY MATRIX
        // ENUM
        { "box triangle gaussian cook cone disk sinc blackman_harris catrom catrom2d cubic mitnet "
          "video variance",
          { ".", "FLOAT", ".", "FLOAT", "FLOAT", "=", "=", "=", "=", "=", ".", ".", ".", ".", ".",
            "." } },
        { "closest farthest",
          { "=", "=", "=", "=", "=", "=", "=", "=", "=", "=", "=", "=", "=", "=", "=", "=" } },
        { "heatmap",
          { ".", "RGBA", ".", ".", "RGBA", "RGBA", "RGBA", "RGBA", ".", ".", ".", ".", ".", ".",
            ".", "." } },
    };
    for (const auto& row : rows) {
        std::istringstream filters(row.filters);
        for (std::string stem; filters >> stem;) {
            RtNode* const node =
                node_tools::named((stem + "_filter").c_str(), (stem + "_node").c_str());
            const auto& methods = *static_cast<const RtFilterMethods*>(node->entry->kind_methods);
            for (int type = 0; type < node_tools::type_count; ++type) {
                const std::string expected = row.types[type];
                const int got = methods.FilterOutputType(node, type);
                EXPECT_EQ(got == RV_TYPE_NONE              ? "."
                          : got == type && expected == "=" ? "="
                                                           : node_tools::type_names[got],
                          expected)
                    << stem << " " << node_tools::type_names[type];
            }
            EXPECT_EQ(methods.FilterOutputType(node, RV_TYPE_NONE), RV_TYPE_NONE) << stem;
        }
    }
}
