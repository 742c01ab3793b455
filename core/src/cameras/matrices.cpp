// matrices: the matrix queries of cameras (rv_cameras.h), and screen motion.
#include "array.h"
#include "cameras/camera.h"
#include "objects/gobject.h"
#include "rv_universe.h"

namespace rv {

struct CameraKeys {
    unsigned count; // 1 or more
    const RtMatrix* matrices;
};

// Borrowed matrices are found anew each time: between renders the parameter may have got another
// array.
static CameraKeys cameraKeys(const RtCameraData& data, const CameraParams& params)
{
    if (data.owns_matrices)
        return { data.num_keys, data.matrices };
    const RtArray* const given = params.matrix;
    if (given && given->type == RV_TYPE_MATRIX && totalElements(given))
        return { given->nkeys, elementsOf<RtMatrix>(given) };
    return { 1, &RV_M4_IDENTITY };
}

const RtMatrix* cameraToWorld(const RtCameraData& data, const CameraParams& params,
                              float relative_time, RtMatrix* storage)
{
    const CameraKeys keys = cameraKeys(data, params);
    if (keys.count == 1 || !(relative_time > 0))
        return keys.matrices;
    if (relative_time >= 1)
        return keys.matrices + keys.count - 1;
    const KeyPair pair = keyPair(keys.count, relative_time);
    const RtMatrix* const first = keys.matrices + pair.key;
    RvM4Lerp(storage, pair.weight, first, first + 1);
    return storage;
}

// ---- Projection ----

// From camera space to the screen. A window or a clip range without extent gives infinities.
static RtMatrix projection(const RtCameraData& data, const CameraParams& camera,
                           float relative_time)
{
    const double height = frameHeight(currentImage());
    const RtPoint2 low = camera.screen_window_min, high = camera.screen_window_max;
    const double kx = 2 / (double(high.x) - low.x);
    const double ky = 2 / (height * (double(high.y) - low.y));
    const double shift_x = (double(low.x) + high.x) / 2 * kx;
    const double shift_y = height * (double(low.y) + high.y) / 2 * ky;
    const double near = camera.near_clip, depth = double(camera.far_clip) - near;
    RtMatrix p = RV_M4_ZERO;
    const auto set = [&p](int row, int column, double x) {
        p.m[row][column] = static_cast<float>(x);
    };
    if (data.kind == RV_CAMERA_PERSPECTIVE) {
        const double t = tan(halfAngle(perspectiveFov(data.node, relative_time)));
        const double z = -camera.far_clip / depth;
        set(0, 0, kx / t);
        set(1, 1, ky / t);
        set(2, 0, shift_x);
        set(2, 1, shift_y);
        set(2, 2, z);
        set(2, 3, -1);
        set(3, 2, z * near);
    } else {
        set(0, 0, kx);
        set(1, 1, ky);
        set(3, 0, shift_x);
        set(3, 1, shift_y);
        set(2, 2, -1 / depth);
        set(3, 2, -near / depth);
        set(3, 3, 1);
    }
    return p;
}

// ---- Screen motion ----

// The rendering camera's view of a point of the world, divided by its depth.
static RtPoint2 screenPoint(const RtPoint& p, float time)
{
    RtMatrix world_to_screen;
    RvWorldToScreenMatrix(RvUniverseGetCamera(), time, &world_to_screen);
    const float from[4] = { p.x, p.y, p.z, 1 };
    float to[4];
    RvM4HPointByMatrixMult(to, &world_to_screen, from);
    const float w = std::max(fabsf(to[3]), 0.001f);
    return { to[0] / w, to[1] / w };
}

RtPoint2 pixelMotion(const RtPoint& p0, float time0, const RtPoint& p1, float time1)
{
    const RtPoint2 before = screenPoint(p0, time0), after = screenPoint(p1, time1);
    const ImageGeometry image = currentImage();
    return { static_cast<float>(image.image_width) * 0.5f * (after.x - before.x),
             static_cast<float>(image.image_height) * 0.5f * (after.y - before.y) };
}

} // namespace rv

void RvCameraToWorldMatrix(const RtNode* node, float time, RtMatrix* out)
{
    if (!out)
        return;
    *out = RV_M4_IDENTITY;
    const RtCameraData* const data = rv::cameraData(node);
    if (!data)
        return;
    const rv::CameraParams params = rv::cameraParams(node);
    RtMatrix storage;
    *out = *rv::cameraToWorld(*data, params, rv::relativeTime(params.time_samples, time), &storage);
}

void RvWorldToCameraMatrix(const RtNode* node, float time, RtMatrix* out)
{
    if (!out)
        return;
    RtMatrix camera_to_world;
    RvCameraToWorldMatrix(node, time, &camera_to_world);
    RvM4Invert(&camera_to_world, out);
}

void RvWorldToScreenMatrix(const RtNode* node, float time, RtMatrix* out)
{
    if (!out)
        return;
    RvWorldToCameraMatrix(node, time, out);
    const RtCameraData* const data = rv::cameraData(node);
    if (!data)
        return;
    const rv::CameraParams params = rv::cameraParams(node);
    const RtMatrix to_screen =
        rv::projection(*data, params, rv::relativeTime(params.time_samples, time));
    RvM4Mult(out, out, &to_screen);
}
