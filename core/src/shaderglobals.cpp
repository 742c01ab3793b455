// shaderglobals: shading contexts of hosts and their memory, the shader of a hit, stochastic
// opacity and transforms (rv_shaderglobals.h).
#include "shaderglobals.h"

#include "array.h"
#include "color.h"
#include "hit_context.h"
#include "lights/light_data.h"
#include "options.h"
#include "rays.h"
#include "report_once.h"
#include "rv_messages.h"
#include "rv_msg.h"
#include "scene.h"
#include "shading_state.h"
#include "thread_slot.h"

static const char* const module_path = "core\\src\\shaderglobals";

namespace rv {

// ---- The shader of a hit ----

// Problems that are reported once in a render.
static std::atomic<bool> range_is_reported, indices_are_reported;

void startReportingSelection()
{
    range_is_reported = false;
    indices_are_reported = false;
}

static const RtNode* shaderCarrier(const RtShaderGlobals& sg)
{
    if (sg.instance && setsShaders(sg.instance))
        return sg.instance;
    return sg.shader_source ? sg.shader_source : sg.object;
}

// The shader index of the face that was hit; -1 of an object without indices.
static int faceShader(const RtShaderGlobals& sg)
{
    const RtGObject* const object = objectOf(sg.object);
    if (!object || object->kind != RV_KIND_POLYMESH)
        return -1;
    const RtPolyMesh& mesh = *meshOf(object);
    if (!mesh.shidxs || sg.prim_index >= mesh.ntriangles)
        return -1;
    return mesh.shidxs[trianglePolygon(mesh, sg.prim_index)];
}

static RtNode* shaderOfFace(const RtShaderGlobals& sg, const RtArray* shaders)
{
    const int count = int(shaders->nelements), index = faceShader(sg);
    if (index >= count) {
        if (isFirst(range_is_reported))
            RvMsgError("%s: shader index %d is out-of-range (object has %d shaders)",
                       RvNodeGetName(sg.object), index, count);
        return the_frame->scene->bad_shader;
    }
    if (index < 0 && isFirst(indices_are_reported))
        RvMsgWarning("%s: no shader indices (object has %d shaders)", RvNodeGetName(sg.object),
                     count);
    return static_cast<RtNode*>(RvArrayGetPtr(shaders, unsigned(std::max(index, 0))));
}

} // namespace rv

RtNode* RvShaderSelect(const RtShaderGlobals* sg)
{
    const RtScene& scene = *rv::the_frame->scene;
    const RtArray* const shaders = rv::render_options->ignore_shaders
                                       ? nullptr
                                       : rv::shapeParams(rv::shaderCarrier(*sg)).shader;
    if (!shaders || !shaders->nelements)
        return scene.default_reflection_shader;
    RtNode* const shader = shaders->nelements == 1 ? static_cast<RtNode*>(RvArrayGetPtr(shaders, 0))
                                                   : rv::shaderOfFace(*sg, shaders);
    if (!shader)
        return scene.default_reflection_shader;
    return shader->entry->type == RV_NODE_SHADER ? shader : scene.bad_shader;
}

namespace rv {

// ---- Hooks ----

int shadeSurface(RtShaderGlobals* sg)
{
    // It stays in the context, for whoever wants to know what shaded the hit.
    sg->shader = RvShaderSelect(sg);
    evaluateShader(sg->shader, sg, callRow(sg));
    return sg->shader->entry->output_type;
}

int shadeBackground(RtShaderGlobals* sg)
{
    RtNode* const shader = render_options->background;
    if (!shader || shader->entry->type != RV_NODE_SHADER)
        return RV_TYPE_NONE;
    if (sg->state && sg->parent && sg->parent->stage == RV_STAGE_DISPLACEMENT)
        sg->state->uncounted = true;
    evaluateShader(shader, sg, RV_CALL_BACKGROUND);
    return shader->entry->output_type;
}

// The light that a shadow ray is traced for lets volumes cast shadows.
static bool hasVolumeShadows(const RtRay& ray)
{
    const RtLightData* const light =
        ray.light_sample ? lightData(*static_cast<RtNode* const*>(ray.light_sample)) : nullptr;
    bool is_off = false;
    return light && light->volumetric_shadows &&
           !(RvMessageGetBoolFunc(ray.sg, "volumetrics_off", &is_off) && is_off);
}

static void fillVolumeContext(RtShaderGlobals* sg, const RtRay& ray, const RtScrSample& sample)
{
    resetContext(sg);
    fillFromRay(sg, ray);
    sg->stage = RV_STAGE_VOLUME;
    sg->ray_length = sample.z;
    sg->point = sg->object_point = ray.origin;
    assignLights(sg);
    sg->out.RGB = sample.color;
}

void applyAtmosphere(const RtRay* ray, RtScrSample* sample)
{
    RtNode* const shader = render_options->atmosphere;
    if (!shader || shader->entry->type != RV_NODE_SHADER ||
        ((ray->type & RV_RAY_SHADOW) && !hasVolumeShadows(*ray)))
        return;
    RtShadingState state;
    RtShaderGlobals sg;
    sg.state = &state;
    fillVolumeContext(&sg, *ray, *sample);
    evaluateShader(shader, &sg, RV_CALL_ATMOSPHERE);
    switch (shader->entry->output_type) {
    case RV_TYPE_FLOAT: sample->color = { sg.out.FLT, sg.out.FLT, sg.out.FLT }; break;
    case RV_TYPE_RGB:
    case RV_TYPE_RGBA: sample->color = sg.out.RGB; break;
    default: break;
    }
}

// ---- Opacity ----

// The random numbers are stretched to what the decision leaves of [0, 1), for the next one.
static bool isPassedAtRandom(RtShaderGlobals* sg, float opacity)
{
    float &r1 = sg->state->random[0], &r2 = sg->state->random[1];
    const float in_front = meanOf(sg->state->accumulated_opacity);
    if (!(sg->ray_type & RV_RAY_DIFFUSE) && in_front <= r1) {
        r1 = (r1 - in_front) / (1 - in_front);
        return false;
    }
    r1 = r1 / in_front;
    if (r2 < opacity) {
        sg->out_opacity = RV_RGB_WHITE;
        return false;
    }
    sg->out_opacity = RV_RGB_BLACK;
    r2 = (r2 - opacity) / (1 - opacity);
    return true;
}

} // namespace rv

bool RvShaderGlobalsApplyOpacity(RtShaderGlobals* sg, RtRGB opacity)
{
    if (!sg)
        return false;
    sg->out_opacity = opacity;
    const RtOptions* const options = rv::render_options;
    if ((sg->ray_type & RV_RAY_SHADOW) || !sg->state || !options ||
        !options->auto_transparency_probabilistic)
        return false;
    const float mean = rv::meanOf(opacity);
    if (int64_t{ sg->transparency_index } >= options->auto_transparency_depth || !(mean < 1))
        return false;
    return rv::isPassedAtRandom(sg, mean);
}

// ---- Trace sets and passes ----

void RvShaderGlobalsSetTraceSet(RtShaderGlobals* sg, const char* set, bool inclusive)
{
    if (!sg)
        return;
    sg->traceset = set;
    sg->traceset_inclusive = inclusive;
}

void RvShaderGlobalsUnsetTraceSet(RtShaderGlobals* sg)
{
    if (sg)
        sg->traceset = nullptr;
}

bool RvShaderGlobalsFromSSS(const RtShaderGlobals* sg)
{
    return sg && sg->state && sg->state->pass == RV_PASS_SSS;
}

// ---- Contexts of hosts ----

RtShaderGlobals* RvShaderGlobals(void)
{
    auto* const sg = static_cast<RtShaderGlobals*>(
        RvMalloc_func(sizeof(RtShaderGlobals), module_path, __LINE__, "RvShaderGlobals"));
    if (!sg)
        return nullptr;
    sg->state = nullptr;
    rv::resetContext(sg);
    return sg;
}

void* RvShaderGlobalsQuickAlloc(const RtShaderGlobals* sg, unsigned size)
{
    if (!sg || !size || !rv::the_frame || !rv::the_frame->thread_slots ||
        sg->thread_index >= rv::worker_slot_count)
        return nullptr;
    return RvMemPoolAlloc(size, rv::the_frame->thread_slots[sg->thread_index].shading_pool);
}
