// Life cycle of cameras, the frames built from position, look_at and up, and shutter times.
#include "camera_tools.h"
#include "objects/gobject.h"

#include <limits>

using namespace camera_tools;
using namespace node_tools;

namespace {

const float nan_value = std::numeric_limits<float>::quiet_NaN();

// A message of a golden vector with the name of the camera filled in.
std::string withName(std::string text)
{
    const std::string place = "{camera}";
    const size_t at = text.find(place);
    return at == std::string::npos ? text : text.replace(at, place.size(), "cam");
}

void setFrame(RtNode* camera, const RtPoint& position, const RtPoint& look_at, const RtVector& up)
{
    RvNodeSetPnt(camera, "position", position.x, position.y, position.z);
    RvNodeSetPnt(camera, "look_at", look_at.x, look_at.y, look_at.z);
    RvNodeSetVec(camera, "up", up.x, up.y, up.z);
}

void setFrame(RtNode* camera, const json& in)
{
    setFrame(camera, pointOf(in.at("position")), pointOf(in.at("look_at")), pointOf(in.at("up")));
    if (in.contains("handedness"))
        RvNodeSetStr(camera, "handedness", in.at("handedness").get<std::string>().c_str());
}

} // namespace

// ---- Local data ----

TEST_F(Cameras, a_prepared_camera_has_the_data_of_its_kind)
{
    static const struct {
        const char* type;
        RtCameraKind kind;
        bool planar_clip, linear;
    } cases[] = {
        { "persp_camera", RV_CAMERA_PERSPECTIVE, true, true },
        { "ortho_camera", RV_CAMERA_ORTHOGRAPHIC, true, true },
        { "fisheye_camera", RV_CAMERA_FISHEYE, false, false },
        { "cyl_camera", RV_CAMERA_CYLINDRICAL, false, false },
    };
    for (const auto& c : cases) {
        RtNode* const camera = RvNode(c.type);
        EXPECT_FALSE(rv::cameraData(camera)) << c.type;
        EXPECT_FALSE(rv::hasLinearProjection(camera)) << c.type;
        initialize(camera);
        const RtCameraData* const data = rv::cameraData(camera);
        ASSERT_TRUE(data) << c.type;
        EXPECT_FALSE(data->planar_clip) << c.type << " before its first update";
        update(camera);
        EXPECT_EQ(data->node, camera) << c.type;
        EXPECT_EQ(data->kind, c.kind) << c.type;
        EXPECT_EQ(data->planar_clip, c.planar_clip) << c.type;
        EXPECT_EQ(data->num_keys, 1) << c.type;
        EXPECT_TRUE(data->owns_matrices) << c.type;
        EXPECT_EQ(rv::hasLinearProjection(camera), c.linear) << c.type;
        EXPECT_EQ(RvCameraGetLocalData(camera) != nullptr, c.kind == RV_CAMERA_PERSPECTIVE);
        EXPECT_EQ(takeProblem(), "") << c.type;
    }
}

TEST_F(Cameras, plane_distance_decides_how_a_perspective_camera_clips)
{
    RtNode* const camera = make("persp_camera");
    RvNodeSetBool(camera, "plane_distance", false);
    EXPECT_FALSE(rv::cameraData(prepared(camera))->planar_clip);
    RvNodeSetBool(camera, "plane_distance", true);
    update(camera);
    EXPECT_TRUE(rv::cameraData(camera)->planar_clip);
}

TEST_F(Cameras, initialising_again_changes_nothing)
{
    RtNode* const camera = preparedCamera("cyl_camera");
    const RtCameraData* const data = rv::cameraData(camera);
    int other = 0;
    RvCameraInitialize(camera, &other);
    EXPECT_EQ(rv::cameraData(camera), data);
    EXPECT_EQ(data->kind, RV_CAMERA_CYLINDRICAL);
    EXPECT_FALSE(RvCameraGetLocalData(camera));

    RtNode* const persp = preparedCamera("persp_camera");
    const void* const own = RvCameraGetLocalData(persp);
    EXPECT_FALSE(leaksMemory([&] { initialize(persp); }));
    EXPECT_EQ(RvCameraGetLocalData(persp), own);
}

TEST_F(Cameras, helpers_ignore_what_is_no_prepared_camera)
{
    RtNode* const sphere = RvNode("sphere");
    RtNode* const camera = RvNode("ortho_camera");
    int data = 0;
    RvCameraInitialize(nullptr, &data);
    RvCameraInitialize(sphere, &data);
    EXPECT_FALSE(sphere->local_data);
    for (RtNode* node : { static_cast<RtNode*>(nullptr), sphere, camera }) {
        RvCameraUpdate(node, true);
        RvCameraDestroy(node);
        EXPECT_FALSE(RvCameraGetLocalData(node));
        EXPECT_FALSE(rv::hasLinearProjection(node));
    }
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Cameras, destroying_frees_the_record_and_clears_the_pointer)
{
    RtNode* const camera = make("ortho_camera");
    int data = 0;
    RvCameraInitialize(camera, &data);
    EXPECT_EQ(RvCameraGetLocalData(camera), &data);
    RvCameraDestroy(camera);
    EXPECT_FALSE(camera->local_data);
    EXPECT_FALSE(RvCameraGetLocalData(camera));
    RvCameraDestroy(camera);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Cameras, a_plug_in_camera_works_with_and_without_a_layout)
{
    for (bool laid_out : { false, true }) {
        const char* const type = laid_out ? "record_camera" : "slot_camera";
        RvNodeInstall(RV_NODE_CAMERA, RV_TYPE_NONE, type, "", &pluginMethods(laid_out), RV_VERSION);
        RtNode* const camera = RvNode(type);
        RvNodeSetPnt(camera, "position", 1, 2, 3);
        RvNodeSetPnt(camera, "look_at", 1, 2, 0);
        RvNodeSetFlt(camera, "near_clip", 0.5f);
        RvNodeSetFlt(camera, "far_clip", 8);
        RvNodeSetFlt(camera, "shutter_start", 2);
        RvNodeSetPnt2(camera, "screen_window_max", 3, 1);
        prepared(camera);
        EXPECT_EQ(rv::cameraData(camera)->kind, RV_CAMERA_OTHER) << type;
        EXPECT_EQ(RvCameraGetLocalData(camera), camera->params) << type;
        EXPECT_EQ(floats(cameraToWorld(camera)), floats(translation(1, 2, 3))) << type;
        RtRay ray;
        RtPixelSample sample = {};
        rv::rayOfSample(camera, sample, 0, nullptr, &ray);
        EXPECT_EQ(describe(ray.dir), "0.25 0 -0.5") << type;
        EXPECT_EQ(describe(ray.origin), "1 2 3") << type;
        EXPECT_EQ(ray.mindist, 1) << type;
        EXPECT_EQ(ray.maxdist, 16) << type;
        EXPECT_EQ(ray.time, 2) << type;
        EXPECT_EQ(takeProblem(), "") << type;
        RvNodeUninstall(type);
    }
}

TEST_F(Cameras, a_layout_too_small_for_the_common_parameters_still_works)
{
    struct Params {
        const char* name;
    };
    static const RtCommonMethods methods = {
        .Parameters =
            [](RtList*, RtMetaDataStore* metadata) {
                RvMetaDataSetInt(metadata, nullptr, "_struct_size", int(sizeof(Params)));
                RvMetaDataSetInt(metadata, nullptr, "_baseoffset", int(sizeof(Params)));
                RvMetaDataSetInt(metadata, nullptr, "_baseoffset2", int(offsetof(Params, name)));
            },
        .Initialize = [](RtNode* node, void*) { RvCameraInitialize(node, nullptr); },
        .Update = [](RtNode* node, void*) { RvCameraUpdate(node, false); },
        .Finish = [](RtNode* node) { RvCameraDestroy(node); },
    };
    static const RtNodeMethods table = { &methods, nullptr };
    RvNodeInstall(RV_NODE_CAMERA, RV_TYPE_NONE, "tight_camera", "", &table, RV_VERSION);
    RtNode* const camera = RvNode("tight_camera");
    ASSERT_TRUE(camera);
    RvNodeSetPnt(camera, "position", 0, 0, 4);
    RvNodeSetFlt(camera, "far_clip", 7);
    prepared(camera);
    RtRay ray;
    rv::rayOfSample(camera, RtPixelSample{}, 0, nullptr, &ray);
    EXPECT_EQ(describe(ray.origin), "0 0 4");
    EXPECT_EQ(describe(ray.dir), "0 0 -1") << "without CreateRay a ray goes straight ahead";
    EXPECT_EQ(ray.maxdist, 7);
    RvNodeUninstall("tight_camera");
    takeProblems();
}

TEST_F(Cameras, an_exhausted_heap_is_reported_and_survived)
{
    for (const char* type : camera_types) {
        RtNode* const camera = RvNode(type);
        const std::set<std::string> texts = problemsOfFailingHeap(
            [&] {
                initialize(camera);
                update(camera);
                RtRay ray;
                rv::rayOfSample(camera, RtPixelSample{}, 0, nullptr, &ray);
                cameraToWorld(camera);
                worldToScreen(camera);
                camera->entry->methods->Finish(camera);
                camera->initialized = false;
                EXPECT_FALSE(camera->local_data);
            },
            [] { return takeProblems(); });
        const char* const module = "core\\src\\cameras\\camera";
        EXPECT_TRUE(anyReportsFailure(texts, module, "RvCameraInitialize")) << type;
        EXPECT_TRUE(anyReportsFailure(texts, module, "RvCameraUpdate")) << type;
        EXPECT_EQ(anyReportsFailure(texts, "core\\src\\cameras\\persp", "Initialize"),
                  !strcmp(type, "persp_camera"))
            << type;
    }
}

TEST_F(Cameras, a_camera_whose_matrices_could_not_be_allocated_stands_at_the_origin)
{
    RtNode* const camera = make("persp_camera");
    RvNodeSetPnt(camera, "position", 0, 0, 5);
    prepared(camera);
    {
        const AllocationLimit limit(0);
        update(camera);
    }
    EXPECT_EQ(floats(cameraToWorld(camera)), floats(RV_M4_IDENTITY));
    update(camera);
    EXPECT_EQ(floats(cameraToWorld(camera)), floats(translation(0, 0, 5)));
}

// ---- Time samples ----

TEST_F(Cameras, unusable_time_samples_are_reset_with_a_warning)
{
    for (const json& v : goldenVectors("cameras", "camera_time_samples")) {
        RtNode* const camera = make("persp_camera");
        RvNodeSetArray(camera, "time_samples",
                       floatElements(goldenFloats(v.at("in").at("time_samples"))));
        takeProblems();
        initialize(camera);
        const std::string warning = takeProblem();
        expectGolden(v, "valid", warning.empty());
        const json& expected = v.at("out").at("warning");
        EXPECT_EQ(warning, expected.is_null() ? "" : withName(expected)) << goldenId(v);
        const RtArray* const samples = RvNodeGetArray(camera, "time_samples");
        const float* const first = rv::elementsOf<float>(samples);
        expectGoldenNumbers(v, "time_samples",
                            std::vector<float>(first, first + samples->nelements));
        update(camera);
        EXPECT_EQ(takeProblem(), "") << goldenId(v) << " once is enough";
        RvNodeDestroy(camera);
    }
}

TEST_F(Cameras, time_samples_of_another_type_count_as_unusable)
{
    RtNode* const camera = preparedCamera("ortho_camera");
    RtArray* const samples = RvNodeGetArray(camera, "time_samples");
    RvArrayModify(samples, 2, 1, RV_TYPE_INT, 3, 4);
    takeProblems();
    update(camera);
    EXPECT_EQ(takeProblem(), "Invalid time sample specification on: cam - resetting to default");
    EXPECT_EQ(RvNodeGetArray(camera, "time_samples")->type, RV_TYPE_FLOAT);
}

TEST_F(Cameras, unusable_time_samples_on_the_ignore_list_are_reset_too)
{
    RtNode* const camera = make("ortho_camera");
    RvNodeSetArray(camera, "time_samples", floatElements({ 1, 0 }));
    RvNodeSetArray(RvUniverseGetOptions(), "ignore_list",
                   RvArray(1, 1, RV_TYPE_STRING, "ortho_camera.time_samples"));
    takeProblems();
    initialize(camera);
    EXPECT_EQ(takeProblem(), "Invalid time sample specification on: cam - resetting to default");
    const RtArray* const samples = rv::cameraParams(camera).time_samples;
    EXPECT_EQ(rv::elementsOf<float>(samples)[0], 0);
    EXPECT_EQ(rv::elementsOf<float>(samples)[1], 1);
    update(camera);
    EXPECT_EQ(takeProblem(), "") << "once is enough";
}

TEST_F(Cameras, time_samples_of_another_type_give_the_first_key)
{
    // Between the updates of a camera its array may become any other.
    RtNode* const camera = make("ortho_camera");
    RvNodeSetArray(camera, "matrix", matrixKeys({ translation(1, 0, 0), translation(2, 0, 0) }));
    prepared(camera);
    RtArray* const samples = RvNodeGetArray(camera, "time_samples");
    RvArrayModify(samples, 2, 1, RV_TYPE_INT, 0, 1);
    takeProblems();
    EXPECT_EQ(floats(cameraToWorld(camera, 0.75f)), floats(translation(1, 0, 0)));
}

TEST_F(Cameras, golden_relative_times)
{
    for (const json& v : goldenVectors("cameras", "relative_time")) {
        RtArray* const samples = floatElements(goldenFloats(v.at("in").at("time_samples")));
        const float time = goldenFloat(v.at("in").at("time"));
        expectGoldenNumbers(v, "value", { rv::relativeTime(samples, time) });
        RvArrayDestroy(samples);
    }
    for (const json& v : goldenVectors("cameras", "time_of_relative")) {
        const std::vector<float> samples = goldenFloats(v.at("in").at("time_samples"));
        const float t = goldenFloat(v.at("in").at("relative_time"));
        expectGoldenNumbers(v, "value",
                            { RvTimeSamplesMap(t, unsigned(samples.size()), samples.data()) });
    }
}

TEST_F(Cameras, relative_times_stay_below_1_and_never_fall_below_0)
{
    RtArray* const samples = floatElements({ 5, 6, 9, 10 });
    RtArray* const two = floatElements({ 99, 100 });
    const struct {
        const RtArray* samples;
        float time, expected;
    } cases[] = {
        { samples, 5, 0 },          { samples, 6, 1.0f / 3 }, { samples, 9, 2.0f / 3 },
        { samples, 9.7f, 0.9f },    { samples, 7.5f, 0.5f },  { samples, 4, 0 },
        { samples, 11, 0.999999f }, { two, 98, 0 },           { two, 100, 0.999999f },
    };
    for (const auto& c : cases)
        EXPECT_NEAR(rv::relativeTime(c.samples, c.time), c.expected, 1e-6) << c.time;
    const float* const pair = rv::elementsOf<float>(two);
    EXPECT_EQ(RvTimeSamplesMap(0, 2, pair), 99);
    EXPECT_EQ(RvTimeSamplesMap(0.75f, 2, pair), 99.75f);
    EXPECT_EQ(RvTimeSamplesMap(1, 2, pair), 100);
    RvArrayDestroy(samples);
    RvArrayDestroy(two);
}

TEST_F(Cameras, golden_keyed_floats)
{
    for (const json& v : goldenVectors("cameras", "keyed_float")) {
        RtArray* const keys = floatKeys(goldenFloats(v.at("in").at("keys")));
        const float t = goldenFloat(v.at("in").at("relative_time"));
        expectGoldenNumbers(v, "value", { RvArrayInterpolateFlt(keys, t, 0) });
        RvArrayDestroy(keys);
    }
}

// ---- Frames ----

TEST_F(Cameras, a_default_camera_has_the_identity_matrix)
{
    for (const char* type : camera_types)
        EXPECT_EQ(floats(cameraToWorld(prepared(RvNode(type)))), floats(RV_M4_IDENTITY)) << type;
}

TEST_F(Cameras, golden_frames)
{
    for (const json& v : goldenVectors("cameras", "camera_to_world")) {
        RtNode* const camera = make("persp_camera");
        setFrame(camera, v.at("in"));
        expectGoldenNumbers(v, "matrix", floats(cameraToWorld(prepared(camera))));
        RvNodeDestroy(camera);
    }
    for (const json& v : goldenVectors("cameras", "world_to_camera")) {
        RtNode* const camera = make("persp_camera");
        setFrame(camera, v.at("in"));
        RtMatrix inverse;
        RvWorldToCameraMatrix(prepared(camera), 0, &inverse);
        expectGoldenNumbers(v, "matrix", floats(inverse));
        RvNodeDestroy(camera);
    }
}

TEST_F(Cameras, golden_frame_errors)
{
    for (const json& v : goldenVectors("cameras", "camera_frame_errors")) {
        RtNode* const camera = make("persp_camera");
        setFrame(camera, v.at("in"));
        prepared(camera);
        std::vector<std::string> expected;
        for (const json& text : v.at("out").at("errors"))
            expected.push_back(withName(text));
        EXPECT_EQ(takeProblems(), expected) << goldenId(v);
        RvNodeDestroy(camera);
    }
}

TEST_F(Cameras, a_degenerate_frame_is_an_error_and_still_gives_a_matrix)
{
    const RtPoint origin = {}, ahead = { 0, 0, -5 };
    const struct {
        const char* name;
        RtPoint look_at;
        RtVector up;
        const char* problem;
    } cases[] = {
        { "no up", ahead, { 0, 0, 0 }, "cam: bad camera, zero up vector" },
        { "tiny up", ahead, { 0, 9e-7f, 0 }, "cam: bad camera, zero up vector" },
        { "short up", ahead, { 0, 1.1e-6f, 0 }, "" },
        { "no direction", origin, { 0, 1, 0 }, "cam: bad camera, look_at coincides with position" },
        { "tiny direction",
          { 0, 0, -9e-7f },
          { 0, 1, 0 },
          "cam: bad camera, look_at coincides with position" },
        { "up along the axis",
          ahead,
          { 0, 0, 3 },
          "cam: bad camera, up is parallel to camera axis" },
        { "up against the axis",
          ahead,
          { 0, 0, -3 },
          "cam: bad camera, up is parallel to camera axis" },
        { "neither",
          origin,
          { 0, 0, 0 },
          "cam: bad camera, zero up vector | cam: bad camera, look_at coincides with position" },
        { "huge", { 0, 0, -1e30f }, { 0, 1e30f, 0 }, "" },
    };
    for (const auto& c : cases) {
        RtNode* const camera = make("persp_camera");
        setFrame(camera, origin, c.look_at, c.up);
        prepared(camera);
        for (const LoggedMessage& m : messages())
            EXPECT_EQ(m.severity, 2) << m.text;
        EXPECT_EQ(takeProblem(), c.problem) << c.name;
        const RtMatrix matrix = cameraToWorld(camera);
        for (float x : floats(matrix))
            EXPECT_TRUE(std::isfinite(x)) << c.name;
        EXPECT_EQ(matrix.m[3][3], 1) << c.name;
        RvNodeDestroy(camera);
    }
}

TEST_F(Cameras, values_that_are_not_numbers_are_reported_as_missing)
{
    RtNode* const camera = preparedCamera("persp_camera");
    RvArraySetVec(RvNodeGetArray(camera, "up"), 0, (RtVector{ 0, nan_value, 0 }));
    update(camera);
    EXPECT_EQ(takeProblem(), "cam: bad camera, zero up vector");
    RvArraySetVec(RvNodeGetArray(camera, "up"), 0, RV_V3_Y);
    RvArraySetPnt(RvNodeGetArray(camera, "position"), 0, (RtPoint{ nan_value, 0, 0 }));
    update(camera);
    EXPECT_EQ(takeProblem(), "cam: bad camera, look_at coincides with position");
}

TEST_F(Cameras, every_motion_key_has_its_own_frame)
{
    RtNode* const camera = make("persp_camera");
    RvNodeSetArray(camera, "position", pointKeys(RV_TYPE_POINT, { { 0, 0, 1 }, { 0, 0, 2 } }));
    RvNodeSetArray(camera, "look_at", pointKeys(RV_TYPE_POINT, { { 0, 0, 0 }, { 1, 0, 2 } }));
    RvNodeSetArray(camera, "up", pointKeys(RV_TYPE_VECTOR, { { 0, 1, 0 }, { 0, 1, 0 } }));
    prepared(camera);
    EXPECT_EQ(takeProblem(), "");
    const RtCameraData* const data = rv::cameraData(camera);
    ASSERT_EQ(data->num_keys, 2);
    EXPECT_EQ(floats(data->matrices[0]), floats(translation(0, 0, 1)));
    const RtMatrix to_the_right = {
        { { 0, 0, 1, 0 }, { 0, 1, 0, 0 }, { -1, 0, 0, 0 }, { 0, 0, 2, 1 } }
    };
    EXPECT_EQ(floats(data->matrices[1]), floats(to_the_right));
}

TEST_F(Cameras, mismatched_keys_leave_one_matrix)
{
    const std::vector<RtPoint> one = { { 0, 0, 1 } }, two = { { 0, 0, 1 }, { 0, 0, 2 } };
    const std::vector<RtPoint> up = { { 0, 1, 0 } }, ups = { { 0, 1, 0 }, { 0, 1, 0 } };
    const std::vector<RtPoint> at = { { 0, 0, 0 } }, ats = { { 0, 0, 0 }, { 0, 0, 0 } };
    const struct {
        const char* name;
        std::vector<RtPoint> position, look_at, up;
    } cases[] = {
        { "position", two, at, up },
        { "look_at", one, ats, up },
        { "up", one, at, ups },
        { "all but position", one, ats, ups },
    };
    for (const auto& c : cases) {
        RtNode* const camera = make("fisheye_camera");
        RvNodeSetArray(camera, "position", pointKeys(RV_TYPE_POINT, c.position));
        RvNodeSetArray(camera, "look_at", pointKeys(RV_TYPE_POINT, c.look_at));
        RvNodeSetArray(camera, "up", pointKeys(RV_TYPE_VECTOR, c.up));
        prepared(camera);
        EXPECT_EQ(takeProblem(), "mismatched number of keys on camera position data - ignoring "
                                 "motion blur for cam")
            << c.name;
        EXPECT_EQ(rv::cameraData(camera)->num_keys, 1) << c.name;
        EXPECT_EQ(floats(cameraToWorld(camera, 1)), floats(translation(0, 0, 1))) << c.name;
        RvNodeDestroy(camera);
    }
}

TEST_F(Cameras, frame_arrays_of_another_type_are_reported_by_the_accessors)
{
    RtNode* const camera = preparedCamera("ortho_camera");
    RvArrayModify(RvNodeGetArray(camera, "position"), 3, 1, RV_TYPE_FLOAT, 1.0, 2.0, 3.0);
    takeProblems();
    update(camera);
    const std::vector<std::string> problems = takeProblems();
    ASSERT_EQ(problems.size(), 1u);
    EXPECT_EQ(problems[0].rfind("RvArrayGetPntFunc: array-type does not match request-type in "
                                "core\\src\\cameras\\camera at line ",
                                0),
              0u)
        << problems[0];
    EXPECT_EQ(describe(RvArrayGetFlt(RvNodeGetArray(camera, "position"), 0)), "1");
    EXPECT_EQ(cameraToWorld(camera).m[3][0], 1) << "element 0 is read anyway";
}

TEST_F(Cameras, empty_frame_arrays_are_reported_and_read_as_zero)
{
    RtNode* const camera = make("persp_camera");
    RvNodeSetArray(camera, "up", RvArrayAllocate(0, 1, RV_TYPE_VECTOR));
    prepared(camera);
    const std::vector<std::string> problems = takeProblems();
    ASSERT_EQ(problems.size(), 2u);
    EXPECT_EQ(problems[0].rfind("RvArrayGetVecFunc: out-of-range error (0 out of 0) in ", 0), 0u);
    EXPECT_EQ(problems[1], "cam: bad camera, zero up vector");
}

// ---- The parameter "matrix" ----

TEST_F(Cameras, a_matrix_wins_over_the_frame_and_says_so)
{
    RtNode* const camera = make("persp_camera");
    const RtMatrix moved = translation(4, 5, 6);
    RvNodeSetArray(camera, "matrix", matrixKeys({ moved }));
    prepared(camera);
    EXPECT_EQ(takeProblem(), "");
    EXPECT_EQ(floats(cameraToWorld(camera)), floats(moved));
    const char* const order[] = { "position", "look_at", "up", "handedness" };
    setFrame(camera, { 1, 1, 1 }, { 0, 0, 0 }, { 0, 1, 0 });
    RvNodeSetStr(camera, "handedness", "left");
    update(camera);
    std::vector<std::string> expected;
    for (const char* param : order)
        expected.push_back(std::string("matrix parameter on camera cam is overriding ") + param);
    EXPECT_EQ(takeProblems(), expected);
    EXPECT_EQ(floats(cameraToWorld(camera)), floats(moved));
}

TEST_F(Cameras, one_overridden_parameter_is_one_warning)
{
    RtNode* const camera = make("ortho_camera");
    RvNodeSetArray(camera, "matrix", matrixKeys({ translation(0, 0, 3) }));
    RvNodeSetPnt(camera, "position", 0, 0, 1);
    prepared(camera);
    ASSERT_EQ(messages().size(), 1u);
    EXPECT_EQ(messages()[0].severity, 1);
    EXPECT_EQ(takeProblem(), "matrix parameter on camera cam is overriding position");
    EXPECT_EQ(floats(cameraToWorld(camera)), floats(translation(0, 0, 3)));
}

TEST_F(Cameras, a_given_matrix_is_borrowed_with_all_its_keys)
{
    RtNode* const camera = make("persp_camera");
    RvNodeSetArray(
        camera, "matrix",
        matrixKeys({ translation(1, 0, 0), translation(2, 0, 0), translation(3, 0, 0) }));
    prepared(camera);
    const RtCameraData* const data = rv::cameraData(camera);
    EXPECT_EQ(data->num_keys, 3);
    EXPECT_FALSE(data->owns_matrices);
    EXPECT_EQ(data->matrices, RvNodeGetArray(camera, "matrix")->data);
}

TEST_F(Cameras, replacing_a_borrowed_matrix_between_renders_is_safe)
{
    RtNode* const camera = make("persp_camera");
    RvNodeSetArray(camera, "matrix", matrixKeys({ translation(1, 0, 0), translation(2, 0, 0) }));
    prepared(camera);
    RvNodeSetArray(camera, "matrix", matrixKeys({ translation(7, 0, 0) }));
    EXPECT_EQ(floats(cameraToWorld(camera, 1)), floats(translation(7, 0, 0)));
    RvNodeSetArray(camera, "matrix", RvArrayAllocate(0, 1, RV_TYPE_MATRIX));
    EXPECT_EQ(floats(cameraToWorld(camera, 1)), floats(RV_M4_IDENTITY));
    update(camera);
    EXPECT_EQ(floats(cameraToWorld(camera, 1)), floats(RV_M4_IDENTITY));
    RvNodeReset(camera);
    EXPECT_EQ(floats(cameraToWorld(camera, 1)), floats(RV_M4_IDENTITY));
}

TEST_F(Cameras, updating_follows_the_switch_between_frame_and_matrix)
{
    RtNode* const camera = make("persp_camera");
    RvNodeSetPnt(camera, "position", 0, 0, 5);
    prepared(camera);
    EXPECT_EQ(floats(cameraToWorld(camera)), floats(translation(0, 0, 5)));
    RvNodeSetArray(camera, "matrix", matrixKeys({ translation(9, 0, 0) }));
    update(camera);
    EXPECT_EQ(floats(cameraToWorld(camera)), floats(translation(9, 0, 0)));
    RvNodeReset(camera);
    update(camera);
    EXPECT_EQ(floats(cameraToWorld(camera)), floats(RV_M4_IDENTITY));
    EXPECT_TRUE(rv::cameraData(camera)->owns_matrices);
}

// ---- The shutter ----

TEST_F(Cameras, golden_shutter_times)
{
    RtNode* const camera = make("persp_camera");
    for (const json& v : goldenVectors("cameras", "RvCameraShutterTime")) {
        applyShutter(camera, v.at("in"));
        const float u = goldenFloat(v.at("in").at("u"));
        expectGoldenNumbers(v, "time", { RvCameraShutterTime(rv::cameraParams(camera), u) });
    }
}

TEST_F(Cameras, golden_shutter_ends)
{
    RtNode* const camera = make("cyl_camera");
    for (const json& v : goldenVectors("cameras", "RvCameraGetShutterEnd")) {
        applyShutter(camera, v.at("in"));
        expectGoldenNumbers(v, "start", { RvCameraGetShutterStart() });
        expectGoldenNumbers(v, "end", { RvCameraGetShutterEnd() });
    }
}

TEST_F(Cameras, the_shutter_ends_where_it_starts_unless_it_opens)
{
    RtNode* const camera = make("ortho_camera");
    RvNodeSetFlt(camera, "shutter_start", 0.25f);
    static const struct {
        const char* name;
        float end;
        bool ignore;
        float expected;
    } cases[] = {
        { "open", 0.75f, false, 0.75f },
        { "motion blur ignored", 0.75f, true, 0.25f },
        { "ends before the start", 0.125f, false, 0.25f },
        { "ends at the start", 0.25f, false, 0.25f },
    };
    for (const auto& c : cases) {
        RvNodeSetFlt(camera, "shutter_end", c.end);
        RvNodeSetBool(RvUniverseGetOptions(), "ignore_motion_blur", c.ignore);
        EXPECT_EQ(RvCameraGetShutterStart(), 0.25f) << c.name;
        EXPECT_EQ(RvCameraGetShutterEnd(), c.expected) << c.name;
    }
}

TEST_F(Cameras, shutter_times_without_a_camera_are_zero)
{
    EXPECT_EQ(RvCameraGetShutterStart(), 0);
    EXPECT_EQ(RvCameraGetShutterEnd(), 0);
    RvNodeSetPtr(RvUniverseGetOptions(), "camera", RvNode("sphere"));
    EXPECT_EQ(RvCameraGetShutterStart(), 0);
    EXPECT_EQ(RvCameraGetShutterEnd(), 0);
}

TEST(CamerasWithoutUniverse, queries_are_neutral)
{
    EXPECT_EQ(RvCameraGetShutterStart(), 0);
    EXPECT_EQ(RvCameraGetShutterEnd(), 0);
    RtMatrix matrix = RV_M4_ZERO;
    RvWorldToScreenMatrix(nullptr, 0, &matrix);
    EXPECT_TRUE(RvM4IsIdentity(&matrix));
}
