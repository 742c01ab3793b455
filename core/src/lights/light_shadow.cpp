// light_shadow: what becomes of the light of one sample on its way: light filters and the shadow.
// Declared by light_loop.h.
#include "array.h"
#include "finite.h"
#include "lights/light_loop.h"
#include "objects/gobject.h"
#include "options.h"
#include "rays.h"
#include "shaderglobals.h"
#include "trace.h"

#include <algorithm>

namespace rv {

static const char* const module_path = "core\\src\\lights\\lights";

bool isBelow(const RtShaderGlobals& sg, const RtVector& dir)
{
    return sg.stage == RV_STAGE_SURFACE && sg.front_hemisphere_only &&
           dot(sg.facing_normal, dir) <= 0;
}

// ---- Filters ----

static void runFilters(RtShaderGlobals* sg, const LightProjection* projection)
{
    const RtArray* const filters = lightFilters(sg->light);
    if (!filters)
        return;
    const ProjectedContext projected(sg, projection);
    const RtParamValue out = sg->out;
    const unsigned count = totalElements(filters);
    for (unsigned k = 0; k < count; ++k)
        evaluateShader(static_cast<RtNode*>(RvArrayGetPtrFunc(filters, k, module_path, __LINE__)),
                       sg, RV_CALL_LIGHT_FILTER);
    sg->out = out;
}

// ---- Shadow ----

RtRGB combinedShadow(const RtRGB& S, const RtRGB& O, float density)
{
    const auto combine = [density](float s, float o) { return (1 - (1 - s) * (1 - o)) * density; };
    return { combine(S.r, O.r), combine(S.g, O.g), combine(S.b, O.b) };
}

RtRGB shadowedLight(const RtLightData& light, const RtRGB& unoccluded, const RtRGB& shadow)
{
    const RtRGB color = light.shadow_colored ? light.shadow_color : RV_RGB_BLACK;
    const auto shadowed = [](float l, float s, float c) { return l * (1 - s + s * c); };
    return { shadowed(unoccluded.r, shadow.r, color.r), shadowed(unoccluded.g, shadow.g, color.g),
             shadowed(unoccluded.b, shadow.b, color.b) };
}

// A shadow would make a difference that is worth a ray.
static bool needsShadow(const RtLightData& light, const RtShaderGlobals& sg)
{
    const float threshold = render_options->low_light_threshold;
    const RtRGB &l = sg.light_unoccluded, &c = light.shadow_color, &s = sg.light_shadow;
    const bool changes = fabsf(l.r - c.r) > threshold || fabsf(l.g - c.g) > threshold ||
                         fabsf(l.b - c.b) > threshold;
    return changes && (s.r < 1 || s.g < 1 || s.b < 1);
}

// A context that is shaded for its own shadow traces none, or shadows would never end.
static bool maySendShadowRay(const RtShaderGlobals& sg)
{
    return !sg.skip_shadows && !(sg.ray_type & RV_RAY_SHADOW) &&
           lightPoint<RtLightPoint>(&sg)->casts_shadows;
}

// From the point towards the light. False when there is no way between them.
static bool makeShadowRay(RtRay* ray, const RtLightData& light, const RtShaderGlobals& sg)
{
    const double maxdist = std::max(0.0, double(sg.light_dist) - render_options->shadow_bias);
    *ray = {};
    RvMakeRay(ray, RV_RAY_SHADOW, &sg.point, &sg.light_dir, maxdist, &sg);
    const RtGObject* const object = sg.stage == RV_STAGE_SURFACE ? shapeObject(sg.object) : nullptr;
    const double bias = object ? double(shapeParams(object->node).ray_bias) : 0;
    ray->mindist = std::max(ray->mindist, bias + 1e-6);
    ray->light_sample = const_cast<RtLightData*>(&light);
    return isFinite(ray->dir) && isFinite(ray->origin) && ray->maxdist > ray->mindist;
}

static void RvLightShadow(const RtLightData& light, RtShaderGlobals* sg)
{
    RtRay ray;
    if (maySendShadowRay(*sg) && needsShadow(light, *sg) && makeShadowRay(&ray, light, *sg))
        sg->light_shadow = combinedShadow(sg->light_shadow, traceShadow(ray), light.shadow_density);
    sg->light_radiance = shadowedLight(light, sg->light_unoccluded, sg->light_shadow);
}

void shineThroughFilters(RtShaderGlobals* sg, const LightProjection* projection)
{
    runFilters(sg, projection);
    RvLightShadow(*sg->state->lights.point->light, sg);
}

} // namespace rv
