// persp: the "persp_camera" camera node, a lens in front of a plane.
#include "array.h"
#include "cameras/camera.h"
#include "shading_state.h"
#include "system/memory.h"

static const char* const module_path = "core\\src\\cameras\\persp";

namespace rv {

// The local data of the type. Read-only while workers run.
struct RtPerspData {
    const RtParamEntry* remap;        // "uv_remap", or null while nothing is linked to it
    RtShaderGlobals context;          // in which it is evaluated, reset
    float width, height;              // of the image, in pixels
    float aspect;                     // width of the frame divided by its height, on the screen
    float half_pixel_u, half_pixel_v; // in the unit square of the frame
};

struct PerspCamera {
    RtArray* fov; // FLOAT, degrees, the whole horizontal angle, one per motion key
    bool plane_distance;
    RtArray* focus_distance; // FLOAT, one per motion key
    LensParams lens;
    RtRGBA uv_remap;
    CameraParams common;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<PerspCamera>(metadata);
    RvNodeParamARRAY(params, RV_FIELD(PerspCamera, fov), RvArray(1, 1, RV_TYPE_FLOAT, 60.0));
    RvNodeParamBOOL(params, RV_FIELD(PerspCamera, plane_distance), true);
    RvNodeParamARRAY(params, RV_FIELD(PerspCamera, focus_distance),
                     RvArray(1, 1, RV_TYPE_FLOAT, 1.0));
    declareSynonym(metadata, "focus_distance", "focal_distance");
    lensParameters(params, metadata, offsetof(PerspCamera, lens));
    RvNodeParamRGBA(params, RV_FIELD(PerspCamera, uv_remap), 0, 0, 0, 0);
}

static const PerspCamera& perspCamera(const RtNode* node)
{
    return *static_cast<const PerspCamera*>(node->params);
}

float perspectiveFov(const RtNode* camera, float relative_time)
{
    return RvArrayInterpolateFlt(perspCamera(camera).fov, relative_time, 0);
}

// ---- Methods ----

static bool isLinked(const RtNode* node, const RtParamEntry* param)
{
    if (!node->links)
        return false;
    for (uintptr_t slot : node->links[param->index].slot)
        if (slot & ~component_marker)
            return true;
    return false;
}

static void refresh(const RtNode* node, RtPerspData* data)
{
    const ImageGeometry image = currentImage();
    const RtParamEntry* const remap = RvNodeEntryLookUpParameter(node->entry, "uv_remap");
    data->remap = isLinked(node, remap) ? remap : nullptr;
    data->width = static_cast<float>(image.image_width);
    data->height = static_cast<float>(image.image_height);
    data->aspect = 1 / frameHeight(image);
    data->half_pixel_u = 0.5f / data->width;
    data->half_pixel_v = 0.5f / data->height;
}

static void initialize(RtNode* node, void*)
{
    RtPerspData* const data = static_cast<RtPerspData*>(
        RvMalloc_func(sizeof(RtPerspData), module_path, __LINE__, "Initialize"));
    if (!data)
        return;
    *data = {};
    resetContext(&data->context);
    refresh(node, data);
    if (!initializeCamera(node, RV_CAMERA_PERSPECTIVE, data))
        RvFree_func(data);
}

static void update(RtNode* node, void*)
{
    RvCameraUpdate(node, perspCamera(node).plane_distance);
    if (void* const data = RvCameraGetLocalData(node))
        refresh(node, static_cast<RtPerspData*>(data));
}

static void finish(RtNode* node)
{
    RvFree_func(RvCameraGetLocalData(node));
    finishCamera(node);
}

// ---- Rays ----

// Where "uv_remap" moves a position on the screen.
static RtPoint2 remapped(const RtNode* node, const RtPerspData& data, const RtPoint2& p)
{
    RtShaderGlobals sg = data.context;
    sg.thread_index = uint8_t(stats_slot < worker_slot_count ? stats_slot : 0);
    const float u = (p.x + 1) / 2, v = (p.y * data.aspect + 1) / 2;
    sg.u = u + data.half_pixel_u;
    sg.v = v + data.half_pixel_v;
    const RtRGBA to = cameraShaderResult(node, *data.remap, &sg, { u, v, 0, 1 });
    return { (to.r - 0.5f) * 2, (to.g - 0.5f) * 2 / data.aspect };
}

static RtPoint2 screenPosition(const RtNode* node, const RtCameraRayInput& input)
{
    const RtPoint2 p = { input.screen_x, input.screen_y };
    const auto* const data = static_cast<const RtPerspData*>(RvCameraGetLocalData(node));
    return data && data->remap ? remapped(node, *data, p) : p;
}

// Starts the ray on the lens and aims it at the point in focus. Required: what is in focus lies on
// a sphere around the lens centre, not on a plane.
static void applyLens(const PerspCamera& camera, float radius, const RtCameraRayInput& input,
                      RtCameraRayOutput* output)
{
    const float focus = RvArrayInterpolateFlt(camera.focus_distance, input.relative_time, 0);
    output->origin = lensPoint(camera.lens, radius, input);
    output->dir = output->dir * focus - output->origin;
}

// Screen derivatives of (x, y, -1) / |(x, y, -1)|. Lens and "uv_remap" are left out.
static void differentiate(float x, float y, float dx, float dy, RtCameraRayOutput* output)
{
    const float s = x * x + y * y + 1;
    const float g = 1 / (s * sqrtf(s));
    output->dDdx = RtVector{ 1 + y * y, -x * y, x } * (dx * g);
    output->dDdy = RtVector{ -x * y, 1 + x * x, y } * (dy * g);
}

static void createRay(RtNode* node, const RtCameraRayInput* input, RtCameraRayOutput* output)
{
    const PerspCamera& camera = perspCamera(node);
    const float t = tanf(halfAngle(perspectiveFov(node, input->relative_time)));
    const RtPoint2 p = screenPosition(node, *input);
    const float x = p.x * t, y = p.y * t;
    output->dir = unit({ x, y, -1 });
    const float radius = RvArrayInterpolateFlt(camera.lens.aperture_size, input->relative_time, 0);
    if (radius > 0) {
        applyLens(camera, radius, *input, output);
        output->dir = unit(output->dir);
    }
    differentiate(x, y, input->screen_dx * t, input->screen_dy * t, output);
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = initialize,
    .Update = update,
    .Finish = finish,
};

static const RtCameraMethods camera = {
    .CreateRay = createRay,
};

const RtNodeMethods persp_camera_methods = { &common, &camera };

} // namespace rv
