// The formulas of "spot_light": its cone, the falloff within and the image that it projects.
#ifndef RV_SPOT_H
#define RV_SPOT_H

#include "lights/cone.h"

namespace rv {

// As the parameters have them.
struct SpotSettings {
    float cone_angle, penumbra_angle; // degrees
    float lens_radius;
    float aspect_ratio;
    float cosine_power;
};

struct SpotCone {
    float cone;     // the whole angle, radians
    float penumbra; // radians
    float tan_half, cos_half;
    double k;          // pi / cone; its product with an angle may be pi / 2 all but exactly
    float aspect;      // 1 or more
    float apex_offset; // of the apex behind the lens
    float cosine_power;
};
SpotCone spotCone(const SpotSettings& settings);

// At an angle from the axis, in radians, within the cone.
float spotFalloff(const SpotCone& cone, float theta);

// Where a point lies in the image, in [-1, 1] inside of the cone, and its angle from the axis after
// the squash. x, y and depth are its coordinates in the frame of the light. False, with an angle of
// 0, outside. At depth 0 and below p stays as it is.
bool projectOnSpot(const SpotCone& cone, float x, float y, float depth, RtPoint2* p, float* theta);

// Whether a node is a light that projects an image, which some light filters need.
bool isSpotLight(const RtNode* node);

// Where a ray is inside of the squashed cone; origin and direction in the frame of the light.
bool spanInCone(const SpotCone& cone, const double o[3], const double d[3], RaySpan* span);

} // namespace rv

#endif
