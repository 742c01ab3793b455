// camera: what all cameras have in common: parameters, local data and the frames built from
// position, look_at and up (rv_cameras.h).
#include "cameras/camera.h"

#include "array.h"
#include "rv_msg.h"
#include "rv_universe.h"
#include "system/memory.h"

#include <stddef.h>
#include <string.h>

static const char* const module_path = "core\\src\\cameras\\camera";

namespace rv {

// ---- Parameters ----

static const char* const shutter_type_names[] = { "box", "triangle", nullptr };
static const char* const handedness_names[] = { "right", "left", nullptr };

void cameraParameters(RtList* params, RtMetaDataStore*)
{
    RvNodeParamARRAY(params, RV_FIELD(CameraParams, position),
                     RvArray(1, 1, RV_TYPE_POINT, RV_P3_ZERO));
    RvNodeParamARRAY(params, RV_FIELD(CameraParams, look_at),
                     RvArray(1, 1, RV_TYPE_POINT, RV_V3_NEGZ));
    RvNodeParamARRAY(params, RV_FIELD(CameraParams, up), RvArray(1, 1, RV_TYPE_VECTOR, RV_V3_Y));
    RvNodeParamARRAY(params, RV_FIELD(CameraParams, matrix),
                     RvArray(1, 1, RV_TYPE_MATRIX, &RV_M4_IDENTITY));
    RvNodeParamFLT(params, RV_FIELD(CameraParams, near_clip), 0.0001f);
    RvNodeParamFLT(params, RV_FIELD(CameraParams, far_clip), 1e30f);
    RvNodeParamFLT(params, RV_FIELD(CameraParams, shutter_start), 0);
    RvNodeParamFLT(params, RV_FIELD(CameraParams, shutter_end), 0);
    RvNodeParamENUM(params, RV_FIELD(CameraParams, shutter_type), 0, shutter_type_names);
    RvNodeParamNODE(params, RV_FIELD(CameraParams, filtermap), nullptr);
    RvNodeParamENUM(params, RV_FIELD(CameraParams, handedness), 0, handedness_names);
    RvNodeParamARRAY(params, RV_FIELD(CameraParams, time_samples),
                     RvArray(2, 1, RV_TYPE_FLOAT, 0.0, 1.0));
    RvNodeParamPNT2(params, RV_FIELD(CameraParams, screen_window_min), -1, -1);
    RvNodeParamPNT2(params, RV_FIELD(CameraParams, screen_window_max), 1, 1);
}

// Place of each parameter in the record, by CameraParamIndex.
static constexpr size_t param_offsets[] = {
    offsetof(CameraParams, position),
    offsetof(CameraParams, look_at),
    offsetof(CameraParams, up),
    offsetof(CameraParams, matrix),
    offsetof(CameraParams, near_clip),
    offsetof(CameraParams, far_clip),
    offsetof(CameraParams, shutter_start),
    offsetof(CameraParams, shutter_end),
    offsetof(CameraParams, shutter_type),
    offsetof(CameraParams, filtermap),
    offsetof(CameraParams, handedness),
    offsetof(CameraParams, time_samples),
    offsetof(CameraParams, screen_window_min),
    offsetof(CameraParams, screen_window_max),
};
static_assert(sizeof(param_offsets) / sizeof(param_offsets[0]) == camera_param_count);

// True when the type keeps the parameters one after another as the record has them. Plug-ins may
// have no layout, or one that is too small.
static bool keepsRecord(const RtNodeEntry& type)
{
    return type.struct_size && type.base_offset >= 0 &&
           int64_t{ type.base_offset } + int64_t{ sizeof(CameraParams) } <= type.struct_size;
}

static RtRGBA resultOf(RtNode* shader, RtShaderGlobals* sg, const RtRGBA& neutral)
{
    if (!shader || shader->entry->type != RV_NODE_SHADER)
        return neutral;
    sg->out = {};
    RvShaderEvaluate(shader, sg);
    switch (shader->entry->output_type) {
    case RV_TYPE_FLOAT: return { sg->out.FLT, sg->out.FLT, sg->out.FLT, 1 };
    case RV_TYPE_RGB: return { sg->out.RGB.r, sg->out.RGB.g, sg->out.RGB.b, 1 };
    case RV_TYPE_RGBA: return sg->out.RGBA;
    default: return neutral;
    }
}

RtRGBA cameraShaderResult(const RtNode* camera, const RtParamEntry& param, RtShaderGlobals* sg,
                          const RtRGBA& neutral)
{
    if (param.type == RV_TYPE_NODE)
        return resultOf(load(paramStorage(camera, &param), RV_TYPE_NODE).NODE, sg, neutral);
    return RvShaderEvalParamFuncRGBA(sg, camera, param.index);
}

CameraParams cameraParams(const RtNode* camera)
{
    CameraParams values;
    if (keepsRecord(*camera->entry)) {
        memcpy(&values, static_cast<const char*>(camera->params) + camera->entry->base_offset,
               sizeof values);
        return values;
    }
    for (unsigned i = 0; i < camera_param_count; ++i) {
        const RtParamEntry& param = cameraParam(camera, CameraParamIndex(i));
        memcpy(reinterpret_cast<char*>(&values) + param_offsets[i], paramStorage(camera, &param),
               typeSize(param.type));
    }
    return values;
}

static bool isSet(const RtNode* camera, CameraParamIndex index)
{
    return camera->set_flags[cameraParam(camera, index).index];
}

// ---- The frame of a camera ----

// Double precision, because the squares of world-sized coordinates may exceed a float.
struct Axis {
    double x, y, z;
};
static Axis operator*(const Axis& a, double s) { return { a.x * s, a.y * s, a.z * s }; }
static double dot(const Axis& a, const Axis& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }

static Axis cross(const Axis& a, const Axis& b)
{
    return { a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x };
}

// What has no length stays as it is: zero.
static Axis normalized(const Axis& a)
{
    const double length = sqrt(dot(a, a));
    return length > 0 ? a * (1 / length) : Axis{};
}

static void setRow(RtMatrix* matrix, int row, const Axis& axis)
{
    matrix->m[row][0] = static_cast<float>(axis.x);
    matrix->m[row][1] = static_cast<float>(axis.y);
    matrix->m[row][2] = static_cast<float>(axis.z);
}

struct Frame {
    Axis position, look_at, up;
};

// `backwards` points from look_at to the position.
static void reportDegenerateFrame(const RtNode* camera, const Axis& backwards, const Axis& up)
{
    constexpr double shortest = 1e-12; // squared
    const char* const name = RvNodeGetName(camera);
    if (!(dot(up, up) >= shortest)) // this way round it also catches NaN
        RvMsgError("%s: bad camera, zero up vector", name);
    if (!(dot(backwards, backwards) >= shortest))
        RvMsgError("%s: bad camera, look_at coincides with position", name);
    const Axis up_dir = normalized(up), axis = normalized(backwards);
    if (1 - fabs(dot(up_dir, axis)) < 0.0001)
        RvMsgError("%s: bad camera, up is parallel to camera axis", name);
}

// Required: a degenerate frame is reported and its matrix built all the same.
static RtMatrix frameMatrix(const RtNode* camera, const Frame& frame, int handedness)
{
    const Axis backwards = { frame.position.x - frame.look_at.x, frame.position.y - frame.look_at.y,
                             frame.position.z - frame.look_at.z };
    reportDegenerateFrame(camera, backwards, frame.up);
    const Axis w = normalized(backwards);
    const Axis s = normalized(cross(frame.up, w));
    RtMatrix matrix = RV_M4_IDENTITY;
    setRow(&matrix, 0, handedness == left_handed ? s * -1 : s);
    setRow(&matrix, 1, cross(w, s));
    setRow(&matrix, 2, w);
    setRow(&matrix, 3, frame.position);
    return matrix;
}

static unsigned keyCount(const RtArray* array) { return array ? array->nkeys : 0; }

static unsigned frameKeyCount(const RtNode* camera, const CameraParams& params)
{
    const unsigned count = keyCount(params.position);
    if (count && count == keyCount(params.look_at) && count == keyCount(params.up))
        return count;
    RvMsgWarning("mismatched number of keys on camera position data - ignoring motion blur for %s",
                 RvNodeGetName(camera));
    return 1;
}

// Zero for an array that could not be allocated.
static Axis pointAt(const RtArray* array, unsigned key)
{
    const RtPoint p = array ? RvArrayGetPntFunc(array, key, module_path, __LINE__) : RV_P3_ZERO;
    return { p.x, p.y, p.z };
}
static Axis vectorAt(const RtArray* array, unsigned key)
{
    const RtVector v = array ? RvArrayGetVecFunc(array, key, module_path, __LINE__) : RV_V3_ZERO;
    return { v.x, v.y, v.z };
}

// ---- Matrices ----

static void dropMatrices(RtCameraData* data)
{
    if (data->owns_matrices)
        RvFree_func(data->matrices);
    data->matrices = nullptr;
    data->owns_matrices = false;
    data->num_keys = 0;
}

static void borrowMatrices(RtCameraData* data, const CameraParams& params)
{
    for (CameraParamIndex index : { position_param, look_at_param, up_param, handedness_param })
        if (isSet(data->node, index))
            RvMsgWarning("matrix parameter on camera %s is overriding %s",
                         RvNodeGetName(data->node), cameraParam(data->node, index).name);
    if (!params.matrix)
        return;
    data->num_keys = params.matrix->nkeys;
    data->matrices = elementsOf<RtMatrix>(params.matrix);
}

static void buildMatrices(RtCameraData* data, const CameraParams& params)
{
    const unsigned count = frameKeyCount(data->node, params);
    data->matrices = static_cast<RtMatrix*>(RvMalloc_func(
        count * static_cast<unsigned>(sizeof(RtMatrix)), module_path, __LINE__, "RvCameraUpdate"));
    if (!data->matrices)
        return;
    data->owns_matrices = true;
    data->num_keys = static_cast<uint8_t>(count);
    for (unsigned i = 0; i < count; ++i) {
        const Frame frame = { pointAt(params.position, i), pointAt(params.look_at, i),
                              vectorAt(params.up, i) };
        data->matrices[i] = frameMatrix(data->node, frame, params.handedness);
    }
}

// ---- Time samples ----

static void checkTimeSamples(RtNode* camera)
{
    const RtParamEntry& param = cameraParam(camera, time_samples_param);
    RtArray* const samples = loadArray(camera, &param);
    if (samples && samples->type == RV_TYPE_FLOAT &&
        RvTimeSamplesCheck(samples->nelements, elementsOf<float>(samples)))
        return;
    RvMsgWarning("Invalid time sample specification on: %s - resetting to default",
                 RvNodeGetName(camera));
    RtArray* const defaults = RvArray(2, 1, RV_TYPE_FLOAT, 0.0, 1.0);
    if (!defaults)
        return;
    // Past the setters, which refuse a parameter of the ignore list.
    memcpy(paramStorage(camera, &param), &defaults, sizeof defaults);
    RvArrayDestroy(samples);
}

// ---- Methods ----

void updateSphericalClip(RtNode* node, void*) { RvCameraUpdate(node, false); }
void finishCamera(RtNode* node) { RvCameraDestroy(node); }

bool initializeCamera(RtNode* node, RtCameraKind kind, void* type_data)
{
    RvCameraInitialize(node, type_data);
    RtCameraData* const data = cameraData(node);
    if (!data || data->type_data != type_data)
        return false;
    data->kind = kind;
    return true;
}

// ---- The rendering camera ----

static CameraParams renderingCameraParams()
{
    const RtNode* const camera = RvUniverseGetCamera();
    return isCamera(camera) ? cameraParams(camera) : CameraParams{};
}

static bool hasOpenShutter(const CameraParams& camera)
{
    return camera.shutter_start < camera.shutter_end &&
           !(render_options && render_options->ignore_motion_blur);
}

// A tent over the shutter interval, from uniform u.
static float tent(float u)
{
    const float w = u < 0.5f ? sqrtf(2 * u) - 1 : 1 - sqrtf(2 * (1 - u));
    return (w + 1) / 2;
}

} // namespace rv

void RvCameraInitialize(RtNode* node, void* data)
{
    if (!rv::isCamera(node) || node->local_data)
        return;
    RtCameraData* const camera = static_cast<RtCameraData*>(
        RvMalloc_func(sizeof(RtCameraData), module_path, __LINE__, "RvCameraInitialize"));
    if (!camera)
        return;
    *camera = { .node = node,
                .type_data = data,
                .kind = RV_CAMERA_OTHER,
                .planar_clip = false,
                .num_keys = 0,
                .owns_matrices = false,
                .matrices = nullptr };
    node->local_data = camera;
    RvCameraUpdate(node, false);
}

void RvCameraUpdate(RtNode* node, bool plane_distance)
{
    RtCameraData* const data = rv::cameraData(node);
    if (!data)
        return;
    rv::checkTimeSamples(node);
    data->planar_clip = plane_distance;
    rv::dropMatrices(data);
    const rv::CameraParams params = rv::cameraParams(node);
    if (rv::isSet(node, rv::matrix_param))
        rv::borrowMatrices(data, params);
    else
        rv::buildMatrices(data, params);
}

void RvCameraDestroy(RtNode* node)
{
    RtCameraData* const data = rv::cameraData(node);
    if (!data)
        return;
    rv::dropMatrices(data);
    RvFree_func(data);
    node->local_data = nullptr;
}

void* RvCameraGetLocalData(const RtNode* node)
{
    const RtCameraData* const data = rv::cameraData(node);
    return data ? data->type_data : nullptr;
}

float RvCameraGetShutterStart(void) { return rv::renderingCameraParams().shutter_start; }

float RvCameraGetShutterEnd(void)
{
    const rv::CameraParams camera = rv::renderingCameraParams();
    return rv::hasOpenShutter(camera) ? camera.shutter_end : camera.shutter_start;
}

float RvCameraShutterTime(const rv::CameraParams& camera, float u)
{
    if (!rv::hasOpenShutter(camera))
        return camera.shutter_start;
    const float position = camera.shutter_type == rv::triangle_shutter ? rv::tent(u) : u;
    return camera.shutter_start + position * (camera.shutter_end - camera.shutter_start);
}
