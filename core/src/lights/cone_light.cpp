// cone_light: sampling of point and spot lights. Declared by cone_light.h.
#include "lights/cone_light.h"

#include <algorithm>

namespace rv {

bool isBehind(const RtShaderGlobals& sg, const RtPoint& center, float radius)
{
    return sg.stage == RV_STAGE_SURFACE && sg.front_hemisphere_only &&
           dot(center - sg.point, sg.facing_normal) < -radius;
}

bool aimAtLight(ConeLightPoint* point, const RtShaderGlobals& sg, const RtPoint& center,
                float radius, float (*extent)(float ratio))
{
    const RtVector to_light = center - sg.point;
    const double x = to_light.x, y = to_light.y, z = to_light.z;
    const double dist = sqrt(x * x + y * y + z * z);
    if (!(dist > 0))
        return false;
    const RtVector axis = { float(x / dist), float(y / dist), float(z / dist) };
    point->dist = float(dist);
    if (point->light->sampled) {
        point->cone.one_minus_cos = extent(radius / point->dist);
        aimCone(&point->cone, axis);
    } else {
        point->cone.axis = axis;
    }
    return true;
}

// At points that diffuse rays reach.
static float bounceFactor(const RtLightData& light, const RtShaderGlobals& sg)
{
    return sg.diffuse_depth > 0 ? light.bounce_factor : 1;
}

void setBrightness(ConeLightPoint* point, RtShaderGlobals* sg)
{
    const RtLightData& light = *point->light;
    const float extent = light.sampled && !light.normalize ? solidAngle(point->cone) : 1;
    point->intensity = light.intensity * extent * point->falloff * bounceFactor(light, *sg);
    point->sample_count = sg->light_sample_count;
    sg->light_dist = point->dist;
}

// Light of one direction, per steradian.
static float radianceOf(const ConeLightPoint& point)
{
    const float extent = point.light->normalize ? solidAngle(point.cone) : 1;
    return extent > 0 ? point.light->intensity * point.falloff / extent : 0;
}

static const LightProjection* projectionOf(const ConeLightPoint& point)
{
    return point.projects ? &point.projection : nullptr;
}

// Turns the direction and distance in the context into arriving light.
static void shine(const ConeLightPoint& point, RtShaderGlobals* sg, float intensity)
{
    sg->light_unoccluded = point.light->color * intensity;
    sg->light_shadow = RV_RGB_BLACK;
    shineThroughFilters(sg, projectionOf(point));
}

static float samplePdf(const ConeLightPoint& point)
{
    return point.sample_count / solidAngle(point.cone);
}

// Smaller lights leave nothing for a BRDF to find.
static constexpr float least_mis_extent = 0.0001f; // steradians

bool sampleConeLight(ConeLightPoint* point, RtShaderGlobals* sg)
{
    const RtLightData& light = *point->light;
    RtLightMIS& mis = sg->state->lights.mis;
    sg->light_dir = light.sampled ? coneDirection(point->cone, point->sample.x, point->sample.y)
                                  : point->cone.axis;
    sg->light_dist = point->dist;
    mis.active = light.mis && light.sampled && solidAngle(point->cone) > least_mis_extent;
    shine(*point, sg, point->intensity);
    if (!mis.active)
        return !isNegligible(sg->light_radiance);
    mis.sample_index = sg->light_sample_index;
    mis.pdf = samplePdf(*point);
    // Required: without "bounce_factor", which the samples of a BRDF bring along.
    const float bounce = bounceFactor(light, *sg);
    mis.radiance =
        bounce != 0 ? sg->light_radiance * (1 / (solidAngle(point->cone) * bounce)) : RV_RGB_BLACK;
    return true;
}

bool intersectConeLight(ConeLightPoint* point, RtShaderGlobals* sg, const RtRay& ray)
{
    const RtLightData& light = *point->light;
    const float cosine = dot(ray.dir, point->cone.axis);
    if (!light.mis || !light.sampled || !(cosine > 0) || !isInside(point->cone, ray.dir))
        return false;
    RtLightMIS& mis = sg->state->lights.mis;
    sg->light_dir = ray.dir;
    sg->light_dist = point->dist / cosine;
    shine(*point, sg, radianceOf(*point) * bounceFactor(light, *sg));
    mis.active = true;
    mis.radiance = sg->light_radiance;
    mis.pdf = samplePdf(*point);
    return true;
}

bool setBounds(const RaySpan& span, const RtRay& ray, const RtPoint& center, float extent,
               RtLightBounds* bounds)
{
    if (!(span.t1 > 0) || !(span.t0 < ray.maxdist) || !(span.t0 <= span.t1))
        return false;
    *bounds = { float(span.t0), float(std::min(span.t1, ray.maxdist)), center, extent };
    return true;
}

} // namespace rv
