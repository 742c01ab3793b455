// The inside of the light loop: its samples, and the steps that all light types take to turn the
// geometry of a sample into arriving light. Public part: rv_lights.h.
#ifndef RV_LIGHT_LOOP_H
#define RV_LIGHT_LOOP_H

#include "lights/light_data.h"

// A sample as RvLightsGetSample hands it out.
struct RtLightSample {
    RtRGB light_radiance;
    RtRGB light_unoccluded;
    RtRGB light_shadow;
    RtVector light_dir;
    float light_dist;
    float light_weight;
    RtNode* light;
    uint16_t light_sample_count;
    RtLightMIS mis;
    RtLightPoint* point; // of the light
};

namespace rv {

// ---- For the methods of light types ----

// The record of the light that is being prepared, sampled or asked at this point.
template <class Point> Point* lightPoint(const RtShaderGlobals* sg)
{
    return static_cast<Point*>(sg->state->lights.point);
}

// Where a point lies in the image that a light projects: what light filters find in u and v.
struct LightProjection {
    float u, v;
    float dudx, dudy, dvdx, dvdy;
};

// Shows shaders a projection in place of the texture coordinates, for the length of a scope.
class ProjectedContext {
public:
    ProjectedContext(RtShaderGlobals* context, const LightProjection* projection)
        : sg(context), before{ context->u,    context->v,    context->dudx,
                               context->dudy, context->dvdx, context->dvdy }
    {
        if (projection)
            set(*projection);
    }
    ~ProjectedContext() { set(before); }
    ProjectedContext(const ProjectedContext&) = delete;
    ProjectedContext& operator=(const ProjectedContext&) = delete;

private:
    void set(const LightProjection& p)
    {
        sg->u = p.u;
        sg->v = p.v;
        sg->dudx = p.dudx;
        sg->dudy = p.dudy;
        sg->dvdx = p.dvdx;
        sg->dvdy = p.dvdy;
    }

    RtShaderGlobals* sg;
    const LightProjection before;
};

// Nothing can arrive from that direction: it is below the horizon of a surface that looks at one
// side only.
bool isBelow(const RtShaderGlobals& sg, const RtVector& dir);

// Runs the light filters of the current light on the light fields of the context, then traces the
// shadow over light_dist and fills light_radiance. A light that projects nothing gives null.
void shineThroughFilters(RtShaderGlobals* sg, const LightProjection* projection);

// Puts a shadow of opacity O on top of S, weakened by the density of the light's shadows.
RtRGB combinedShadow(const RtRGB& S, const RtRGB& O, float density);
// What a shadow leaves of the light.
RtRGB shadowedLight(const RtLightData& light, const RtRGB& unoccluded, const RtRGB& shadow);

// ---- Sampling ----

// True when the light may light the point at all.
bool isConsidered(const RtLightData& light, const RtShaderGlobals& sg);

// A point of the unit square after a rotation, in [0, 1) again.
inline float wrappedSum(float a, float b)
{
    const float sum = a + b;
    return sum < 1 ? sum : sum - 1;
}
inline RtPoint2 rotated(const RtPoint2& point, const RtPoint2& rotation)
{
    return { wrappedSum(point.x, rotation.x), wrappedSum(point.y, rotation.y) };
}

// Weight of a sample of one technique among two with these densities, both times their numbers of
// samples, divided by its density; 0 where that has no value (the power heuristic: Veach, "Robust
// Monte Carlo Methods for Light Transport Simulation", 1997, 9.2.2).
float powerWeight(float pdf, float other_pdf);

} // namespace rv

#endif
