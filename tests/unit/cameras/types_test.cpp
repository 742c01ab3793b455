// CreateRay of the built-in camera types.
#include "camera_tools.h"
#include "shader_tools.h"

using namespace camera_tools;
using namespace node_tools;

namespace {

RtCameraRayInput inputOf(const json& in)
{
    RtCameraRayInput input = {};
    const struct {
        const char* key;
        float* value;
    } fields[] = {
        { "screen_x", &input.screen_x },
        { "screen_y", &input.screen_y },
        { "screen_dx", &input.screen_dx },
        { "screen_dy", &input.screen_dy },
        { "lens_u", &input.lens_u },
        { "lens_v", &input.lens_v },
        { "relative_time", &input.relative_time },
    };
    for (const auto& f : fields)
        if (in.contains(f.key))
            *f.value = goldenFloat(in.at(f.key));
    return input;
}

RtCameraRayInput at(float x, float y)
{
    RtCameraRayInput input = {};
    input.screen_x = x;
    input.screen_y = y;
    return input;
}

float lengthOf(const RtVector& v) { return sqrtf(v.x * v.x + v.y * v.y + v.z * v.z); }

} // namespace

TEST_F(Cameras, golden_rays_of_each_type)
{
    for (const char* type : camera_types)
        for (const json& v : goldenVectors("cameras", std::string(type) + ".CreateRay")) {
            const json& in = v.at("in");
            RtNode* const camera = make(type);
            applyLens(camera, in);
            if (in.contains("frame_A"))
                setImage(1000, 1000, goldenFloat(in.at("frame_A")));
            prepared(camera);
            const RtCameraRayOutput out = createRay(camera, inputOf(in));
            expectGoldenNumbers(v, "origin", floats(out.origin));
            expectGoldenNumbers(v, "dir", floats(out.dir));
            expectGoldenNumbers(v, "weight", { out.weight });
            const struct {
                const char* key;
                const RtVector* value;
            } differentials[] = { { "dOdx", &out.dOdx },
                                  { "dOdy", &out.dOdy },
                                  { "dDdx", &out.dDdx },
                                  { "dDdy", &out.dDdy } };
            for (const auto& d : differentials)
                if (v.at("out").contains(d.key))
                    expectGoldenNumbers(v, d.key, floats(*d.value));
                else
                    EXPECT_EQ(lengthOf(*d.value), 0) << goldenId(v) << " " << d.key;
            RvNodeDestroy(camera);
        }
}

TEST_F(Cameras, the_centre_of_the_screen_is_straight_ahead)
{
    for (const char* type : camera_types) {
        const RtCameraRayOutput out = createRay(prepared(RvNode(type)), at(0, 0));
        EXPECT_EQ(describe(out.dir), "0 0 -1") << type;
        EXPECT_EQ(lengthOf(out.origin), 0) << type;
        EXPECT_EQ(out.weight, 1) << type;
    }
}

// ---- Perspective ----

TEST_F(Cameras, the_field_of_view_spans_the_width_of_the_screen)
{
    RtNode* const camera = make("persp_camera");
    RvNodeSetFlt(camera, "fov", 90);
    prepared(camera);
    const RtVector right = createRay(camera, at(1, 0)).dir;
    EXPECT_NEAR(right.x, sqrtf(0.5f), 1e-6);
    EXPECT_NEAR(right.z, -sqrtf(0.5f), 1e-6);
}

TEST_F(Cameras, perspective_differentials_are_those_of_the_direction)
{
    RtNode* const camera = preparedCamera("persp_camera");
    constexpr float step = 1e-3f;
    RtCameraRayInput input = at(0.4f, -0.3f);
    input.screen_dx = input.screen_dy = step;
    const RtCameraRayOutput here = createRay(camera, input);
    const RtVector right = createRay(camera, at(0.4f + step, -0.3f)).dir;
    const RtVector above = createRay(camera, at(0.4f, -0.3f + step)).dir;
    EXPECT_NEAR(here.dDdx.x, right.x - here.dir.x, 1e-6);
    EXPECT_NEAR(here.dDdx.y, right.y - here.dir.y, 1e-6);
    EXPECT_NEAR(here.dDdy.x, above.x - here.dir.x, 1e-6);
    EXPECT_NEAR(here.dDdy.y, above.y - here.dir.y, 1e-6);
}

TEST_F(Cameras, what_is_in_focus_lies_on_a_sphere)
{
    // Required: not on a plane, whatever "plane_distance" says.
    for (bool plane_distance : { false, true })
        for (const char* type : { "persp_camera", "fisheye_camera" }) {
            RtNode* const camera = make(type);
            RvNodeSetFlt(camera, "aperture_size", 0.5f);
            RvNodeSetFlt(camera, strcmp(type, "persp_camera") ? "focal_distance" : "focus_distance",
                         4);
            if (!strcmp(type, "persp_camera"))
                RvNodeSetBool(camera, "plane_distance", plane_distance);
            prepared(camera);
            RvNodeSetFlt(camera, "aperture_size", 0);
            const RtVector centre = createRay(camera, at(0.7f, 0.5f)).dir;
            RvNodeSetFlt(camera, "aperture_size", 0.5f);
            for (float u : { 0.1f, 0.5f, 0.9f }) {
                RtCameraRayInput input = at(0.7f, 0.5f);
                input.lens_u = u;
                input.lens_v = 0.3f;
                const RtCameraRayOutput out = createRay(camera, input);
                const RtPoint focus = { centre.x * 4, centre.y * 4, centre.z * 4 };
                const RtVector to_focus = { focus.x - out.origin.x, focus.y - out.origin.y,
                                            focus.z - out.origin.z };
                const float distance = lengthOf(to_focus);
                EXPECT_NEAR(lengthOf(out.dir), 1, 1e-6) << type;
                EXPECT_NEAR(out.dir.x, to_focus.x / distance, 1e-6) << type;
                EXPECT_NEAR(out.dir.y, to_focus.y / distance, 1e-6) << type;
                EXPECT_NEAR(out.dir.z, to_focus.z / distance, 1e-6) << type;
            }
            RvNodeDestroy(camera);
        }
}

TEST_F(Cameras, a_lens_without_size_is_a_pinhole)
{
    for (const char* type : { "persp_camera", "fisheye_camera" })
        for (float size : { 0.0f, -1.0f }) {
            RtNode* const camera = RvNode(type);
            RvNodeSetFlt(camera, "aperture_size", size);
            prepared(camera);
            RtCameraRayInput input = at(0.2f, 0.1f);
            input.lens_u = 0.9f;
            EXPECT_EQ(lengthOf(createRay(camera, input).origin), 0) << type << size;
        }
}

TEST_F(Cameras, an_unlinked_uv_remap_changes_nothing)
{
    RtNode* const camera = make("persp_camera");
    prepared(camera);
    const RtVector before = createRay(camera, at(0.3f, -0.6f)).dir;
    RvNodeSetRGBA(camera, "uv_remap", 0.9f, 0.1f, 0, 1);
    update(camera);
    EXPECT_EQ(describe(createRay(camera, at(0.3f, -0.6f)).dir), describe(before));
}

TEST_F(Cameras, a_linked_uv_remap_moves_positions_on_the_screen)
{
    setImage(320, 200, 1.5f);
    RtNode* const camera = make("persp_camera");
    prepared(camera);
    RtShaderGlobals seen;
    RtPoint2 shift = { 0, 0 };
    RtNode* const remap =
        shader_tools::shader("remap", RV_TYPE_RGBA, [&](RtNode*, RtShaderGlobals* sg) {
            seen = *sg;
            sg->out.RGBA = { sg->u + shift.x, sg->v + shift.y, 0, 1 };
        });
    RvNodeLink(remap, "uv_remap", camera);
    update(camera);
    const float aspect = 320.0f / 200 / 1.5f;
    for (const RtPoint2& by : { RtPoint2{ 0, 0 }, RtPoint2{ 0.25f, -0.125f } }) {
        shift = by;
        const RtVector dir = createRay(camera, at(0.3f, -0.6f)).dir;
        EXPECT_FLOAT_EQ(seen.u, 1.3f / 2 + 0.5f / 320);
        EXPECT_FLOAT_EQ(seen.v, (1 - 0.6f * aspect) / 2 + 0.5f / 200);
        RvNodeUnlink(camera, "uv_remap");
        update(camera);
        const float x = 0.3f + 1.0f / 320 + 2 * by.x;
        const float y = -0.6f + (1.0f / 200 + 2 * by.y) / aspect;
        const RtVector expected = createRay(camera, at(x, y)).dir;
        EXPECT_NEAR(dir.x, expected.x, 1e-6);
        EXPECT_NEAR(dir.y, expected.y, 1e-6);
        RvNodeLink(remap, "uv_remap", camera);
        update(camera);
    }
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Cameras, components_of_uv_remap_may_be_linked_alone)
{
    RtNode* const camera = make("persp_camera");
    prepared(camera);
    RvNodeSetRGBA(camera, "uv_remap", 0.5f, 0.5f, 0, 1); // the centre
    RvNodeLink(shader_tools::floatShader("right", 1), "uv_remap.r", camera);
    update(camera);
    const RtVector dir = createRay(camera, at(0.3f, -0.6f)).dir;
    const RtVector expected = [&] {
        RvNodeUnlink(camera, "uv_remap");
        update(camera);
        return createRay(camera, at(1, 0)).dir;
    }();
    EXPECT_NEAR(dir.x, expected.x, 1e-6);
    EXPECT_NEAR(dir.y, expected.y, 1e-6);
}

TEST_F(Cameras, empty_arrays_of_a_type_are_survived)
{
    for (const char* type : camera_types) {
        RtNode* const camera = RvNode(type);
        for (const char* param : { "fov", "horizontal_fov", "vertical_fov", "aperture_size",
                                   "focus_distance", "focal_distance" })
            if (RvNodeEntryLookUpParameter(camera->entry, param))
                RvNodeSetArray(camera, param, RvArrayAllocate(0, 1, RV_TYPE_FLOAT));
        prepared(camera);
        createRay(camera, at(0.5f, 0.5f));
        worldToScreen(camera);
    }
    takeProblems();
}

// ---- Orthographic ----

TEST_F(Cameras, orthographic_rays_are_parallel)
{
    RtNode* const camera = preparedCamera("ortho_camera");
    const RtCameraRayOutput out = createRay(camera, at(0.5f, -2));
    EXPECT_EQ(describe(out.origin), "0.5 -2 0");
    EXPECT_EQ(describe(out.dir), "0 0 -1");
}

// ---- Fisheye ----

TEST_F(Cameras, a_fisheye_is_black_outside_its_circle_unless_cropped)
{
    setImage(400, 300);
    RtNode* const camera = preparedCamera("fisheye_camera");
    const RtCameraRayOutput corner = createRay(camera, at(1, 0.75f));
    EXPECT_EQ(corner.weight, 0);
    EXPECT_EQ(describe(corner.dir), "0 0 -1") << "nothing else changes";
    EXPECT_EQ(createRay(camera, at(0, 0.75f)).weight, 1);

    RvNodeSetBool(camera, "autocrop", true);
    update(camera);
    const RtCameraRayOutput inside = createRay(camera, at(0.9999f, 0.7499f));
    EXPECT_EQ(inside.weight, 1);
    EXPECT_NEAR(acosf(-inside.dir.z), 45 * float(M_PI) / 180, 1e-3) << "the rim of the circle";
}

TEST_F(Cameras, the_angle_of_a_fisheye_grows_with_the_distance_from_the_centre)
{
    RtNode* const camera = make("fisheye_camera");
    RvNodeSetFlt(camera, "fov", 180);
    prepared(camera);
    const RtVector half = createRay(camera, at(0.5f, 0)).dir;
    EXPECT_NEAR(half.x, sqrtf(0.5f), 1e-6);
    EXPECT_NEAR(half.z, -sqrtf(0.5f), 1e-6);
    const RtVector up = createRay(camera, at(0, 0.999999f)).dir;
    EXPECT_NEAR(up.y, 1, 1e-5);
}

// ---- Cylindrical ----

TEST_F(Cameras, a_cylinder_maps_height_to_a_tangent_or_to_an_angle)
{
    RtNode* const camera = make("cyl_camera");
    RvNodeSetFlt(camera, "horizontal_fov", 180);
    RvNodeSetFlt(camera, "vertical_fov", 90);
    prepared(camera);
    const RtVector right = createRay(camera, at(1, 0)).dir;
    EXPECT_NEAR(right.x, 1, 1e-6);
    EXPECT_NEAR(right.z, 0, 1e-6);
    const RtVector tangent = createRay(camera, at(0, 0.5f)).dir;
    EXPECT_NEAR(tangent.y / -tangent.z, 0.5f, 1e-6);
    EXPECT_NEAR(lengthOf(tangent), 1, 1e-6);
    RvNodeSetBool(camera, "projective", false);
    const RtVector angle = createRay(camera, at(0, 0.5f)).dir;
    EXPECT_NEAR(atan2f(angle.y, -angle.z), 22.5f * float(M_PI) / 180, 1e-6);
    EXPECT_NEAR(lengthOf(angle), 1, 1e-6);
}
