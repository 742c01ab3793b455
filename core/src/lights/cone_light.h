// What "point_light" and "spot_light" share: a light that is seen from a point as a cone of
// directions around the way to its centre, or as that one direction.
#ifndef RV_CONE_LIGHT_H
#define RV_CONE_LIGHT_H

#include "lights/cone.h"
#include "lights/light_keys.h"
#include "lights/light_loop.h"
#include "rays.h"

namespace rv {

struct ConeLightPoint : RtLightPoint {
    Cone cone; // towards the light; only the axis of one without extent
    float dist;
    float falloff; // of the light towards the point
    float intensity;
    float sample_count;
    bool projects;
    LightProjection projection;
};

// Aims the cone from the point of the context at a light of that radius. False without a direction.
bool aimAtLight(ConeLightPoint* point, const RtShaderGlobals& sg, const RtPoint& center,
                float radius, float (*extent)(float ratio));

// The brightness of a light that was aimed at, and the distance, into the context.
void setBrightness(ConeLightPoint* point, RtShaderGlobals* sg);

// The light is on the other side of the surface.
bool isBehind(const RtShaderGlobals& sg, const RtPoint& center, float radius);

bool sampleConeLight(ConeLightPoint* point, RtShaderGlobals* sg);
bool intersectConeLight(ConeLightPoint* point, RtShaderGlobals* sg, const RtRay& ray);

// The methods of a type of light. aim(node, sg) looks at the light from the point of the context
// and returns false when there is nothing to see; in volumes that point is another for every
// sample.
template <bool (*aim)(RtNode*, RtShaderGlobals*)>
constexpr RtLightMethods coneLightMethods(bool (*bounds)(RtNode*, RtLightBounds*, const RtRay*))
{
    return {
        .LightPrepare =
            [](RtNode* node, RtShaderGlobals* sg) {
                if (sg->stage != RV_STAGE_VOLUME && !aim(node, sg))
                    refuseSamples(sg);
            },
        .LightSample =
            [](RtNode* node, RtShaderGlobals* sg) {
                return (sg->stage != RV_STAGE_VOLUME || aim(node, sg)) &&
                       sampleConeLight(lightPoint<ConeLightPoint>(sg), sg);
            },
        .LightAmbient = do_nothing,
        .LightIntersect =
            [](RtNode*, RtShaderGlobals* sg, const RtRay* ray) {
                return intersectConeLight(lightPoint<ConeLightPoint>(sg), sg, *ray);
            },
        .LightBounds = bounds,
    };
}

// Clips a span to what a ray reaches. False when nothing is left.
bool setBounds(const RaySpan& span, const RtRay& ray, const RtPoint& center, float extent,
               RtLightBounds* bounds);

} // namespace rv

#endif
