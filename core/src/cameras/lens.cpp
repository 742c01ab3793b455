// lens: points on the aperture of cameras that have a depth of field.
#include "cameras/camera.h"

namespace rv {

static constexpr float pi = 3.14159265358979f;

void lensParameters(RtList* params, RtMetaDataStore* metadata, int offset)
{
    RvNodeParamARRAY(params, offset + RV_FIELD(LensParams, aperture_size),
                     RvArray(1, 1, RV_TYPE_FLOAT, 0.0));
    RvNodeParamINT(params, offset + RV_FIELD(LensParams, aperture_blades), 0);
    RvNodeParamFLT(params, offset + RV_FIELD(LensParams, aperture_rotation), 0);
    RvNodeParamFLT(params, offset + RV_FIELD(LensParams, aperture_blade_curvature), 0);
    RvNodeParamFLT(params, offset + RV_FIELD(LensParams, aperture_aspect_ratio), 1);
    declareSynonym(metadata, "aperture_blades", "aperture_nsides");
    declareSynonym(metadata, "aperture_blade_curvature", "aperture_relax");
    declareSynonym(metadata, "aperture_aspect_ratio", "aperture_ratio");
}

// Concentric: rings of squares become circles of the same share of the area (Shirley and Chiu,
// A Low Distortion Map Between Disk and Square, 1997).
RtPoint2 diskPoint(float u, float v)
{
    const float p = 2 * u - 1, q = 2 * v - 1;
    float r, eighths; // of a turn
    if (p > -q) {
        r = p > q ? p : q;
        eighths = p > q ? q / p : 2 - p / q;
    } else if (q <= p) {
        r = -q;
        eighths = q == 0 ? 0 : 6 - p / q;
    } else {
        r = -p;
        eighths = 4 + q / p;
    }
    const float angle = pi / 4 * eighths;
    return { r * cosf(angle), r * sinf(angle) };
}

RtPoint2 polygonPoint(const RtPoint2& disk, int blades, float rotation, float curvature)
{
    const float segment = static_cast<float>(2 * M_PI / blades);
    const float half = static_cast<float>(M_PI / blades);
    const float k = tanf(half) / half;
    const float angle = atan2f(disk.x, disk.y) + pi; // from the +y axis
    const float blade = truncf(angle / segment);
    const float local = fmodf(angle, segment) - half;
    const float straight = 1 - curvature;
    // Required: this radius, not the distance cos(half) / cos(local) of a straight edge.
    const float radius = sqrtf(disk.x * disk.x + disk.y * disk.y) *
                         ((1 + cosf(half) - cosf(local)) * straight + curvature);
    const float turned = rotation * 0.0174532925199433f + segment * blade + local * curvature +
                         straight * atanf(k * local);
    return { radius * cosf(turned), radius * sinf(turned) };
}

RtPoint lensPoint(const LensParams& lens, float radius, const RtCameraRayInput& input)
{
    RtPoint2 p = diskPoint(input.lens_u, input.lens_v);
    if (lens.aperture_blades > 2)
        p = polygonPoint(p, lens.aperture_blades, lens.aperture_rotation,
                         lens.aperture_blade_curvature);
    // Required: the lens is upside down.
    return { -radius * p.x, -radius * lens.aperture_aspect_ratio * p.y, 0 };
}

} // namespace rv
