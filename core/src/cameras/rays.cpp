// rays: from a camera sample of a pixel to its ray in the world. Runs on all render threads at
// once, once per sample; it reads the camera and allocates nothing.
#include "cameras/camera.h"
#include "finite.h"
#include "objects/gobject.h"
#include "sampling.h"
#include "shading_state.h"

namespace rv {

// ---- Pixel to screen ----

static RtPixelSample drawSample(const SampleRequest& request)
{
    const auto [x, y, index, count, thread, aov_sink] = request;
    RtPoint2 offset;
    float time;
    RvPixelSampleOffset(x, y, index, thread, count, &offset, &time);
    const RtPoint2 lens = RvPixelLensSample(x, y, index, thread, count);
    RtPixelSample sample = {};
    sample.x = x;
    sample.y = y;
    sample.sample_index = index;
    sample.sample_count = count;
    sample.offset_u = offset.x;
    sample.offset_v = offset.y;
    sample.time_sample = time;
    sample.input.lens_u = lens.x;
    sample.input.lens_v = lens.y;
    return sample;
}

// Negative numbers of samples mean one sample for a block of pixels, in the centre of which it
// goes; this is the distance in pixels from the first pixel to that centre, times 2.
static float blockShift()
{
    const int AA_samples = render_options ? render_options->AA_samples : 1;
    return AA_samples < 0 ? ldexpf(1, -std::max(AA_samples, -30)) - 1 : 0;
}

void placeOnScreen(const CameraParams& camera, RtPixelSample* sample)
{
    const ImageGeometry image = currentImage();
    const float height = frameHeight(image), shift = blockShift();
    const float x = static_cast<float>(sample->x) + sample->offset_u;
    const float y = static_cast<float>(sample->y) + sample->offset_v;
    sample->raw_x = (2 * x + shift) * image.inv_width - 1;
    sample->raw_y = 1 - (2 * y + shift) * image.inv_height;
    const RtPoint2 low = camera.screen_window_min, high = camera.screen_window_max;
    const float half_width = (high.x - low.x) / 2, half_height = (high.y - low.y) / 2;
    sample->input.screen_x = (low.x + high.x) / 2 + sample->raw_x * half_width;
    sample->input.screen_y = ((low.y + high.y) / 2 + sample->raw_y * half_height) * height;
    sample->input.screen_dx = 2 * half_width * image.inv_width;
    sample->input.screen_dy = 2 * half_height * height * image.inv_height;
}

// ---- The ray ----

static void keepBelowOne(float& x) { x = std::min(x, 0.999999f); }

static void startRay(const CameraParams& camera, const RtPixelSample& sample, int thread,
                     void* aov_sink, RtRay* ray)
{
    *ray = {};
    ray->type = RV_RAY_CAMERA;
    ray->tid = static_cast<uint8_t>(thread);
    ray->x = sample.x;
    ray->y = sample.y;
    ray->sx = sample.raw_x;
    ray->sy = sample.raw_y;
    ray->mindist = camera.near_clip;
    ray->maxdist = camera.far_clip;
    ray->aov_sink = aov_sink;
    ray->weight = 1;
    ray->time = RvCameraShutterTime(camera, sample.time_sample);
    ray->spread_a = ray->spread_b = 1;
    ray->sample_index = static_cast<uint16_t>(sample.sample_index);
    ray->offset_u = sample.offset_u;
    ray->offset_v = sample.offset_v;
    ray->lens_u = sample.input.lens_u;
    ray->lens_v = sample.input.lens_v;
}

static RtCameraRayOutput createRay(RtNode* camera, const RtCameraRayInput& input)
{
    RtCameraRayOutput output = {};
    output.dir = RV_V3_NEGZ;
    output.weight = 1;
    const auto* const methods = static_cast<const RtCameraMethods*>(camera->entry->kind_methods);
    if (methods && methods->CreateRay)
        methods->CreateRay(camera, &input, &output);
    return output;
}

// The direction keeps the length that the matrix gives it, so that distances are those of the
// camera.
static void moveToWorld(const RtCameraRayOutput& local, const RtMatrix* camera_to_world, RtRay* ray)
{
    RvM4PointByMatrixMult(&ray->origin, camera_to_world, &local.origin);
    RvM4VectorByMatrixMult(&ray->dir, camera_to_world, &local.dir);
    RvM4VectorByMatrixMult(&ray->dOdx, camera_to_world, &local.dOdx);
    RvM4VectorByMatrixMult(&ray->dOdy, camera_to_world, &local.dOdy);
    RvM4VectorByMatrixMult(&ray->dDdx, camera_to_world, &local.dDdx);
    RvM4VectorByMatrixMult(&ray->dDdy, camera_to_world, &local.dDdy);
}

// Along the ray, a plane across the axis is farther away than along the axis.
static void clipByPlanes(const RtVector& local_dir, RtRay* ray)
{
    const double along_axis = fabs(double(local_dir.z));
    ray->mindist /= along_axis;
    ray->maxdist /= along_axis;
}

// Scales the weight by the shader "filtermap", evaluated over the unit square of the frame.
static void applyFilterMap(const RtNode* camera, const CameraParams& params, RtRay* ray)
{
    const RtNode* const map = params.filtermap;
    if (!map || map->entry->type != RV_NODE_SHADER || ray->weight == 0)
        return;
    RtShaderGlobals sg = {};
    resetContext(&sg);
    sg.thread_index = ray->tid;
    sg.pixel_x = ray->x;
    sg.pixel_y = ray->y;
    sg.u = (ray->sx + 1) / 2;
    sg.v = (ray->sy + 1) / 2;
    ray->weight *=
        cameraShaderResult(camera, cameraParam(camera, filtermap_param), &sg, RV_RGBA_WHITE).r;
}

void rayOfSample(RtNode* camera, RtPixelSample sample, int thread, void* aov_sink, RtRay* ray)
{
    const RtCameraData* const data = cameraData(camera);
    const CameraParams params = data ? cameraParams(camera) : CameraParams{};
    keepBelowOne(sample.time_sample);
    keepBelowOne(sample.input.lens_u);
    keepBelowOne(sample.input.lens_v);
    placeOnScreen(params, &sample);
    startRay(params, sample, thread, aov_sink, ray);
    if (!data) {
        ray->dir = RV_V3_NEGZ;
        ray->weight = 0;
        return;
    }
    sample.input.relative_time = relativeTime(params.time_samples, ray->time);
    const RtCameraRayOutput local = createRay(camera, sample.input);
    ray->weight = local.weight;
    RtMatrix storage;
    moveToWorld(local, cameraToWorld(*data, params, sample.input.relative_time, &storage), ray);
    if (data->planar_clip)
        clipByPlanes(local.dir, ray);
    applyFilterMap(camera, params, ray);
    if (!isFinite(ray->dir)) // of a broken matrix: such a ray cannot be traced
        ray->weight = 0;
}

} // namespace rv

void RvCameraMakeRay(RtNode* camera, const rv::SampleRequest& request, RtRay* ray)
{
    rv::rayOfSample(camera, rv::drawSample(request), request.thread, request.aov_sink, ray);
}
