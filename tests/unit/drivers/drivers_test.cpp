// Tests of core/src/drivers/drivers.cpp.
#include "allocation_failures.h"
#include "drivers/driver_tools.h"
#include "rv_cameras.h"

namespace {

using namespace driver_tools;

// A plug-in's driver type that leaves its local data to the test.
RtNode* bareDriver()
{
    static const RtCommonMethods common = {};
    static const RtNodeMethods methods = { &common, nullptr };
    RvNodeInstall(RV_NODE_DRIVER, RV_TYPE_NONE, "bare_driver", "", &methods, RV_VERSION);
    return RvNode("bare_driver");
}

TEST_F(Drivers, a_driver_gets_its_data_and_may_set_it_again)
{
    RtNode* const node = bareDriver();
    EXPECT_EQ(RvDriverGetLocalData(node), nullptr);
    int a = 0, b = 0;
    RvDriverInitialize(node, true, &a);
    EXPECT_EQ(RvDriverGetLocalData(node), &a);
    const RtDriverData* const data = rv::driverData(node);
    ASSERT_NE(data, nullptr);
    EXPECT_NE(data->lock.handle, nullptr);
    EXPECT_TRUE(data->multiple_outputs);
    const char* aovs[] = { "FLOAT Z", nullptr };
    RvRawDriverInitialize(node, aovs, true, &b);
    EXPECT_EQ(rv::driverData(node), data) << "one record for good";
    EXPECT_EQ(data->user_data, &b);
    EXPECT_EQ(data->required_aovs, aovs);
    EXPECT_TRUE(data->requires_depth);
    EXPECT_FALSE(data->multiple_outputs);
    RvDriverInitialize(node, false, nullptr);
    EXPECT_EQ(data->required_aovs, nullptr);
    EXPECT_FALSE(data->requires_depth);
    RvDriverDestroy(node);
    EXPECT_EQ(rv::driverData(node), nullptr);
    EXPECT_EQ(RvDriverGetLocalData(node), nullptr);
    RvDriverDestroy(node);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Drivers, only_driver_nodes_have_driver_data)
{
    RtNode* const sphere = RvNode("sphere");
    RvDriverInitialize(sphere, true, sphere);
    RvRawDriverInitialize(sphere, nullptr, true, sphere);
    EXPECT_EQ(RvDriverGetLocalData(sphere), nullptr);
    RvDriverDestroy(sphere);
    RvDriverInitialize(nullptr, true, sphere);
    RvRawDriverInitialize(nullptr, nullptr, true, sphere);
    EXPECT_EQ(RvDriverGetLocalData(nullptr), nullptr);
    RvDriverDestroy(nullptr);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Drivers, failing_to_allocate_driver_data_is_reported)
{
    RtNode* const node = bareDriver();
    withAllocations(0, [&] { RvDriverInitialize(node, true, node); });
    EXPECT_NE(
        withoutLines(takeProblem()).find("in core\\src\\drivers\\drivers:RvDriverInitialize()"),
        std::string::npos);
    withAllocations(0, [&] { RvRawDriverInitialize(node, nullptr, true, node); });
    EXPECT_NE(
        withoutLines(takeProblem()).find("in core\\src\\drivers\\drivers:RvRawDriverInitialize()"),
        std::string::npos);
    EXPECT_EQ(RvDriverGetLocalData(node), nullptr);
}

TEST_F(Drivers, driver_types_are_found_by_extension)
{
    static const struct {
        const char *extension, *type;
    } cases[] = { { "exr", "driver_exr" },
                  { "tif", "driver_tiff" },
                  { "png", "driver_png" },
                  { "jpg", "driver_jpeg" } };
    for (const auto& c : cases) {
        const RtNodeEntry* const type = RvFindDriverType(c.extension);
        ASSERT_NE(type, nullptr) << c.extension;
        EXPECT_STREQ(type->name, c.type);
        const char** extensions = RvDriverExtension(type);
        EXPECT_STREQ(extensions[0], c.extension);
        EXPECT_EQ(extensions[1], nullptr);
    }
    for (const char* unknown : { "bmp", "", ".exr", "EXR", "tiff" })
        EXPECT_EQ(RvFindDriverType(unknown), nullptr) << unknown;
    EXPECT_EQ(RvFindDriverType(nullptr), nullptr);
    for (const char* type : { "driver_null", "driver_display", "sphere" })
        EXPECT_EQ(RvDriverExtension(RvNodeEntryLookUp(type)), nullptr) << type;
    EXPECT_EQ(RvDriverExtension(nullptr), nullptr);
    bareDriver(); // a type without methods is passed over
    EXPECT_EQ(RvFindDriverType("bmp"), nullptr);
}

TEST(DriversWithoutUniverse, answer_neutrally)
{
    EXPECT_EQ(RvFindDriverType("exr"), nullptr);
    RtMatrix to_camera, to_screen;
    RvDriverGetMatrices(&to_camera, &to_screen);
    for (int i = 0; i < 16; ++i) {
        EXPECT_EQ(to_camera.m[i / 4][i % 4], RV_M4_IDENTITY.m[i / 4][i % 4]);
        EXPECT_EQ(to_screen.m[i / 4][i % 4], RV_M4_IDENTITY.m[i / 4][i % 4]);
    }
    RvDriverGetMatrices(nullptr, nullptr);
}

TEST(OutputIterator, walks_the_outputs_in_order)
{
    const float pixels[] = { 1, 2 };
    const RtDriverOutput outputs[] = { { "Z", RV_TYPE_FLOAT, pixels },
                                       { "RGBA", RV_TYPE_RGBA, nullptr } };
    RtOutputIterator it = { outputs, 2, 0 };
    const char* name = nullptr;
    int type = -1;
    const void* bucket = nullptr;
    for (int round = 0; round < 2; ++round) {
        ASSERT_TRUE(RvOutputIteratorGetNext(&it, &name, &type, &bucket));
        EXPECT_STREQ(name, "Z");
        EXPECT_EQ(type, RV_TYPE_FLOAT);
        EXPECT_EQ(bucket, pixels);
        ASSERT_TRUE(RvOutputIteratorGetNext(&it, &name, &type, &bucket));
        EXPECT_STREQ(name, "RGBA");
        EXPECT_EQ(bucket, nullptr);
        EXPECT_FALSE(RvOutputIteratorGetNext(&it, &name, &type, &bucket));
        EXPECT_FALSE(RvOutputIteratorGetNext(&it, &name, &type, &bucket));
        EXPECT_EQ(type, RV_TYPE_RGBA) << "what was not yielded stays";
        RvOutputIteratorReset(&it);
    }
    EXPECT_TRUE(RvOutputIteratorGetNext(&it, nullptr, nullptr, nullptr));
    EXPECT_FALSE(RvOutputIteratorGetNext(nullptr, &name, &type, &bucket));
    RvOutputIteratorReset(nullptr);
}

TEST_F(Drivers, matrices_are_those_of_the_rendering_camera)
{
    RtNode* const camera = RvNode("persp_camera");
    RvNodeSetArray(camera, "position",
                   RvArray(1, 2, RV_TYPE_POINT, RtPoint{ 1, 2, 3 }, RtPoint{ 5, 2, 3 }));
    RvNodeSetArray(camera, "look_at",
                   RvArray(1, 2, RV_TYPE_POINT, RtPoint{ 0, 0, 0 }, RtPoint{ 0, 0, 0 }));
    RvNodeSetArray(camera, "up",
                   RvArray(1, 2, RV_TYPE_VECTOR, RtVector{ 0, 1, 0 }, RtVector{ 0, 1, 0 }));
    RvNodeSetFlt(camera, "shutter_start", 0.25f);
    RvNodeSetPtr(RvUniverseGetOptions(), "camera", camera);
    rv::RvNodeInitialize(camera);
    RvCameraUpdate(camera, true);
    RtMatrix to_camera, to_screen, expected;
    RvDriverGetMatrices(&to_camera, &to_screen);
    RvWorldToCameraMatrix(camera, 0.25f, &expected);
    EXPECT_EQ(memcmp(&to_camera, &expected, sizeof expected), 0);
    RvWorldToScreenMatrix(camera, 0.25f, &expected);
    EXPECT_EQ(memcmp(&to_screen, &expected, sizeof expected), 0);
    RvWorldToCameraMatrix(camera, 0, &expected);
    EXPECT_NE(memcmp(&to_camera, &expected, sizeof expected), 0) << "the camera moves";
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Drivers, the_null_driver_takes_everything_and_does_nothing)
{
    RtNode* const node = driver("driver_null");
    ASSERT_NE(rv::driverData(node), nullptr);
    EXPECT_TRUE(rv::driverData(node)->multiple_outputs);
    EXPECT_EQ(rv::driverData(node)->required_aovs, nullptr);
    const auto& methods = *static_cast<const RtDriverMethods*>(node->entry->kind_methods);
    for (int type = RV_TYPE_BYTE; type <= RV_TYPE_ENUM; ++type)
        EXPECT_TRUE(methods.DriverSupportsPixelType(node, type)) << type;
    render(node, { { "Z", RV_TYPE_FLOAT, [](int, int) { return std::vector<float>{ 1 }; } } },
           wholeFrame(8, 8, 4));
    EXPECT_EQ(takeInfos(), Texts());
    EXPECT_EQ(files(), Texts());
}

TEST_F(Drivers, built_in_drivers_take_the_listed_pixel_types)
{
    static const struct {
        const char* type;
        std::vector<int> accepted;
        bool multiple_outputs;
    } cases[] = {
        { "driver_display", { RV_TYPE_RGB, RV_TYPE_RGBA }, false },
        { "driver_jpeg",
          { RV_TYPE_INT, RV_TYPE_BOOLEAN, RV_TYPE_FLOAT, RV_TYPE_RGB, RV_TYPE_RGBA },
          false },
        { "driver_png",
          { RV_TYPE_INT, RV_TYPE_BOOLEAN, RV_TYPE_FLOAT, RV_TYPE_RGB, RV_TYPE_RGBA },
          false },
        { "driver_tiff",
          { RV_TYPE_INT, RV_TYPE_BOOLEAN, RV_TYPE_FLOAT, RV_TYPE_RGB, RV_TYPE_RGBA, RV_TYPE_VECTOR,
            RV_TYPE_POINT },
          false },
        { "driver_exr",
          { RV_TYPE_INT, RV_TYPE_FLOAT, RV_TYPE_RGB, RV_TYPE_RGBA, RV_TYPE_VECTOR, RV_TYPE_POINT },
          true },
    };
    for (const auto& c : cases) {
        RtNode* const node = RvNode(c.type);
        rv::RvNodeInitialize(node);
        const auto& methods = *static_cast<const RtDriverMethods*>(node->entry->kind_methods);
        for (int type = -1; type <= 300; ++type)
            EXPECT_EQ(methods.DriverSupportsPixelType(node, type),
                      std::count(c.accepted.begin(), c.accepted.end(), type) == 1)
                << c.type << " " << type;
        EXPECT_EQ(rv::driverData(node)->multiple_outputs, c.multiple_outputs) << c.type;
    }
}

} // namespace
