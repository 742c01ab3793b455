// spot: the "spot_light" light node, a cone of light from a point, a disk or a lens.
#include "lights/spot.h"

#include "lights/cone_light.h"
#include "rv_msg.h"

#include <algorithm>

static const char* const module_path = "core\\src\\lights\\spot";

namespace rv {

struct SpotLight {
    RtArray* position; // POINT, one per motion key
    RtArray* look_at;  // POINT
    RtArray* up;       // VECTOR
    float radius;
    float lens_radius;
    float cone_angle;     // degrees, the whole angle
    float penumbra_angle; // degrees
    float cosine_power;
    float aspect_ratio;
    LightVolumeParams volume;
    LightParams common;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<SpotLight>(metadata);
    RvNodeParamARRAY(params, RV_FIELD(SpotLight, position),
                     RvArray(1, 1, RV_TYPE_POINT, RV_P3_ZERO));
    RvNodeParamARRAY(params, RV_FIELD(SpotLight, look_at),
                     RvArray(1, 1, RV_TYPE_POINT, RV_V3_NEGZ));
    RvNodeParamARRAY(params, RV_FIELD(SpotLight, up), RvArray(1, 1, RV_TYPE_VECTOR, RV_V3_Y));
    RvNodeParamFLT(params, RV_FIELD(SpotLight, radius), 0);
    RvNodeParamFLT(params, RV_FIELD(SpotLight, lens_radius), 0);
    RvNodeParamFLT(params, RV_FIELD(SpotLight, cone_angle), 65);
    RvNodeParamFLT(params, RV_FIELD(SpotLight, penumbra_angle), 0);
    RvNodeParamFLT(params, RV_FIELD(SpotLight, cosine_power), 0);
    RvNodeParamFLT(params, RV_FIELD(SpotLight, aspect_ratio), 1);
    lightVolumeParameters(params, metadata, offsetof(SpotLight, volume));
    declareSynonym(metadata, "position", "center");
    declareSynonym(metadata, "look_at", "target");
    declareSynonym(metadata, "cone_angle", "wide_angle");
    declareSynonym(metadata, "penumbra_angle", "delta_angle");
    declareSynonym(metadata, "cosine_power", "cpower");
}

static const SpotLight& spotLight(const RtNode* node)
{
    return *static_cast<const SpotLight*>(node->params);
}

// ---- Vectors in double precision ----

struct Vec {
    double x, y, z;
};
static Vec vec(const RtVector& v) { return { v.x, v.y, v.z }; }
static Vec operator+(const Vec& a, const Vec& b) { return { a.x + b.x, a.y + b.y, a.z + b.z }; }
static Vec operator-(const Vec& a, const Vec& b) { return { a.x - b.x, a.y - b.y, a.z - b.z }; }
static Vec operator*(const Vec& a, double s) { return { a.x * s, a.y * s, a.z * s }; }
static double dot(const Vec& a, const Vec& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
static Vec cross(const Vec& a, const Vec& b)
{
    return { a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x };
}
static RtVector single(const Vec& v) { return { float(v.x), float(v.y), float(v.z) }; }

// What has no length becomes `otherwise`.
static Vec unit(const Vec& v, const Vec& otherwise)
{
    const double length = sqrt(dot(v, v));
    return length > 0 && length < HUGE_VAL ? v * (1 / length) : otherwise;
}

// ---- The cone ----

SpotCone spotCone(const SpotSettings& s)
{
    constexpr double degree = 0.01745329238474369;
    constexpr double pi = 3.141592653589793;
    const double least = s.lens_radius <= 0 ? 0.0001 : 0.25;
    const double cone = std::clamp(double(s.cone_angle), least, 179.9999) * degree;
    const double tan_half = tan(cone / 2);
    return { .cone = float(cone),
             .penumbra = s.penumbra_angle * 0.017453292f,
             .tan_half = float(tan_half),
             .cos_half = float(cos(cone / 2)),
             .k = pi / cone,
             .aspect = s.aspect_ratio < 1 ? 1 / s.aspect_ratio : s.aspect_ratio,
             .apex_offset = float(s.lens_radius / tan_half),
             .cosine_power = s.cosine_power };
}

float spotFalloff(const SpotCone& cone, float theta)
{
    if (cone.cosine_power != 0) {
        const double c = std::max(0.0, cos(theta * cone.k));
        return float(cone.cosine_power == 1 ? c : pow(c, cone.cosine_power));
    }
    const float inner = cone.cone / 2 - cone.penumbra;
    if (!(cone.penumbra > 0) || !(theta > inner))
        return 1;
    const float t = (theta - inner) / cone.penumbra;
    return 1 - t * t * (3 - 2 * t);
}

bool projectOnSpot(const SpotCone& cone, float x, float y, float depth, RtPoint2* p, float* theta)
{
    if (depth > 0) {
        p->x = x / (depth * cone.tan_half);
        p->y = y / (depth * cone.tan_half) * cone.aspect;
    }
    const float r_sq = p->x * p->x + p->y * p->y;
    *theta = 0;
    if (!(r_sq <= 1))
        return false;
    *theta = atanf(sqrtf(r_sq) * cone.tan_half);
    return true;
}

// ---- Local data ----

// Where the light is and how its image lies: right, up and away from the light.
struct SpotFrame {
    RtPoint apex;
    RtVector right, up, axis;
};

struct SpotLightData {
    SpotCone cone;
    float radius;
    LightKeyArray<SpotFrame> frames; // world space
};

bool isSpotLight(const RtNode* node)
{
    const RtLightData* const data = lightData(node);
    return data && data->light_type == RV_LIGHT_SPOT;
}

static SpotLightData* dataOf(const RtNode* node) { return lightTypeData<SpotLightData>(node); }

static void destroyData(void* data)
{
    releaseKeys(&static_cast<SpotLightData*>(data)->frames);
    RvFree_func(data);
}

static void initialize(RtNode* node, void*)
{
    initializeLight(node, RV_LIGHT_SPOT, { sizeof(SpotLightData), sizeof(ConeLightPoint) },
                    module_path, destroyData);
}

// ---- Frames ----

static bool isUpSet(const RtNode* node)
{
    const RtParamEntry* const param = RvNodeEntryLookUpParameter(node->entry, "up");
    return param && node->set_flags[param->index];
}

// A vector across the axis when "up" gives none. Required: a fixed one, though the text calls it
// random.
static Vec replacementUp(const RtNode* node, const Vec& axis)
{
    if (isUpSet(node))
        RvMsgWarning("%s: bad UP vector, will use a random vector instead", RvNodeGetName(node));
    const Vec other = unit(axis + Vec{ 1.468, -2.134, 0.7802 }, { 1, 0, 0 });
    const Vec up = unit(other - axis * dot(other, axis), { 0, 1, 0 });
    RvMsgWarning("%s: bad UP vector using %.16g %.16g %.16g", RvNodeGetName(node), up.x, up.y,
                 up.z);
    return up;
}

static Vec uprightRight(const RtNode* node, const Vec& axis, const Vec& up)
{
    constexpr double tolerance = 1e-6;
    const Vec across = cross(axis, unit(up, {}));
    const Vec right = unit(across, {});
    if (dot(across, across) >= tolerance * tolerance && fabs(dot(right, axis)) <= tolerance)
        return right;
    return unit(cross(axis, replacementUp(node, axis)), {});
}

static SpotFrame makeFrame(const RtNode* node, const Vec& position, const Vec& look_at,
                           const Vec& up, float apex_offset)
{
    const Vec axis = unit(look_at - position, { 0, 0, -1 });
    const Vec right = uprightRight(node, axis, up);
    return { single(position - axis * apex_offset), single(right), single(cross(right, axis)),
             single(axis) };
}

// Motion keys of the parameters, which must agree.
static unsigned parameterKeyCount(const RtNode* node, const SpotLight& light)
{
    const unsigned count = keyCount(light.position);
    if (count == keyCount(light.look_at) && count == keyCount(light.up))
        return count;
    RvMsgError("%s: position, look_at and up must have the same number of motion keys",
               RvNodeGetName(node));
    return 1;
}

static void updateFrames(SpotLightData* data, const RtNode* node, const SpotLight& light)
{
    const unsigned count = std::max(parameterKeyCount(node, light), matrixKeyCount(node));
    if (!allocateKeys(&data->frames, count, module_path))
        return;
    for (unsigned k = 0; k < count; ++k) {
        const RtPoint position = worldPoint(node, k, keyPoint(light.position, k, module_path));
        const RtPoint look_at = worldPoint(node, k, keyPoint(light.look_at, k, module_path));
        const RtVector up = worldVector(node, k, keyVector(light.up, k, module_path));
        data->frames.keys[k] =
            makeFrame(node, vec(position), vec(look_at), vec(up), data->cone.apex_offset);
    }
}

static void update(RtNode* node, void*)
{
    SpotLightData* const data = dataOf(node);
    if (!data)
        return;
    const SpotLight& light = spotLight(node);
    RvLightUpdate(node, light.radius > 0, light.volume.affect_volumetrics);
    setVolume(node, light.volume);
    data->radius = std::max(light.radius, 0.0f);
    data->cone = spotCone({ light.cone_angle, light.penumbra_angle, light.lens_radius,
                            light.aspect_ratio, light.cosine_power });
    updateFrames(data, node, light);
}

// Between two keys the frames are blended and made upright again.
static SpotFrame frameAt(const RtNode* node, const SpotLightData& data, float time)
{
    const LightKeys at = lightKeysAt(node, data.frames.count, time);
    const SpotFrame& a = data.frames.keys[at.key];
    if (!(at.weight > 0))
        return a;
    const SpotFrame& b = data.frames.keys[at.key + 1];
    const auto blend = [&at](const RtVector& p, const RtVector& q) {
        return p * (1 - at.weight) + q * at.weight;
    };
    const Vec axis = unit(vec(blend(a.axis, b.axis)), vec(a.axis));
    const Vec right = vec(blend(a.right, b.right));
    const Vec upright = unit(right - axis * dot(right, axis), vec(a.right));
    return { blend(a.apex, b.apex), single(upright), single(cross(upright, axis)), single(axis) };
}

// ---- Lighting ----

// The point in the image of the light. False outside of it.
static bool project(ConeLightPoint* point, const RtShaderGlobals& sg, const SpotCone& cone,
                    const SpotFrame& frame)
{
    const RtVector from_apex = sg.point - frame.apex;
    const float depth = dot(from_apex, frame.axis);
    RtPoint2 p = { 0, 0 };
    float theta;
    const bool inside = projectOnSpot(cone, dot(from_apex, frame.right), dot(from_apex, frame.up),
                                      depth, &p, &theta);
    point->falloff = inside ? spotFalloff(cone, theta) : 0;
    point->projects = true;
    LightProjection& to = point->projection;
    to = {};
    to.u = (p.x + 1) / 2;
    to.v = 1 - (p.y + 1) / 2;
    if (!(depth > 0))
        return false;
    const auto derive = [&](const RtVector& dP, float* du, float* dv) {
        const float scale = 1 / (depth * cone.tan_half), dz = dot(dP, frame.axis) / depth;
        *du = (dot(dP, frame.right) * scale - p.x * dz) / 2;
        *dv = -(dot(dP, frame.up) * scale * cone.aspect - p.y * dz) / 2;
    };
    derive(sg.dPdx, &to.dudx, &to.dvdx);
    derive(sg.dPdy, &to.dudy, &to.dvdy);
    return inside;
}

// Looks at the light from the point of the context. False when there is nothing to see.
static bool aim(RtNode* node, RtShaderGlobals* sg)
{
    const SpotLightData* const data = dataOf(node);
    if (!data || !data->frames.count)
        return false;
    auto* const point = lightPoint<ConeLightPoint>(sg);
    const SpotFrame frame = frameAt(node, *data, sg->time);
    const SpotCone& cone = data->cone;
    if (isBehind(*sg, frame.apex, data->radius) ||
        !aimAtLight(point, *sg, frame.apex, data->radius, diskExtent))
        return false;
    if (-dot(point->cone.axis, frame.axis) < cone.cos_half || point->dist < cone.apex_offset)
        return false;
    if (!project(point, *sg, cone, frame))
        return false;
    setBrightness(point, sg);
    return true;
}

// ---- Reach ----

bool spanInCone(const SpotCone& cone, const double o[3], const double d[3], RaySpan* span)
{
    // Inside, z > 0 and x^2 + (aspect y)^2 - (tan z)^2 = a t^2 + 2 b t + c <= 0.
    const double squash = double(cone.aspect) * cone.aspect;
    const double slope = double(cone.tan_half) * cone.tan_half;
    const auto form = [=](const double p[3], const double q[3]) {
        return p[0] * q[0] + squash * p[1] * q[1] - slope * p[2] * q[2];
    };
    const double a = form(d, d), b = form(o, d), c = form(o, o);
    const double discriminant = b * b - a * c;
    if (!(discriminant >= 0))
        return false;
    constexpr double everywhere = HUGE_VAL;
    double inside; // one point of the span that the quadric leaves
    if (a == 0) {
        const double end = -c / (2 * b);
        *span = b > 0 ? RaySpan{ -everywhere, end } : RaySpan{ end, everywhere };
        inside = b > 0 ? end - 1 : end + 1;
    } else {
        const double q = -(b + copysign(sqrt(discriminant), b));
        const double p = q != 0 ? c / q : 0, r = q / a;
        const double t0 = std::min(p, r), t1 = std::max(p, r);
        if (a > 0) {
            *span = { t0, t1 };
            inside = (t0 + t1) / 2;
        } else if (d[2] > 0) { // into the beam, after the other half of the double cone
            *span = { t1, everywhere };
            inside = t1 + 1;
        } else {
            *span = { -everywhere, t0 };
            inside = t0 - 1;
        }
    }
    return o[2] + inside * d[2] > 0;
}

static bool bounds(RtNode* node, RtLightBounds* bounds, const RtRay* ray)
{
    const SpotLightData* const data = dataOf(node);
    if (!data || !data->frames.count || !reachesVolumes(node))
        return false;
    const SpotFrame frame = frameAt(node, *data, ray->time);
    const float reach_sq = lightData(node)->cutoff_sq;
    const RtVector from_apex = ray->origin - frame.apex;
    const auto local = [&frame](const RtVector& v, double to[3]) {
        to[0] = dot(vec(v), vec(frame.right));
        to[1] = dot(vec(v), vec(frame.up));
        to[2] = dot(vec(v), vec(frame.axis));
    };
    double o[3], d[3];
    local(from_apex, o);
    local(ray->dir, d);
    RaySpan ball, beam;
    return spanInSphere(from_apex, ray->dir, reach_sq, &ball) &&
           spanInCone(data->cone, o, d, &beam) &&
           setBounds({ std::max(ball.t0, beam.t0), std::min(ball.t1, beam.t1) }, *ray, frame.apex,
                     sqrtf(reach_sq), bounds);
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = initialize,
    .Update = update,
    .Finish = finishLight,
};

static constexpr RtLightMethods light = coneLightMethods<aim>(bounds);

const RtNodeMethods spot_light_methods = { &common, &light };

} // namespace rv
