// What reflectance functions, sampling sets and integrators share. Public part: rv_brdf.h.
//
// Directions are unit vectors in world space that point away from the surface, except rays and I,
// which point along the ray.
#ifndef RV_BRDF_INTERNAL_H
#define RV_BRDF_INTERNAL_H

#include "maths.h"
#include "options.h"
#include "rv_brdf.h"

#include <algorithm>
#include <math.h>

namespace rv {

inline constexpr float pi = 3.1415927f, two_pi = 6.2831855f;
inline constexpr float one_over_two_pi = 0.15915494f;

inline RtVector mirrored(const RtVector& I, const RtVector& N) { return I - N * (2 * dot(I, N)); }

// The square root of what rounding may have made negative.
inline float rootOfPositive(float x) { return x > 0 ? sqrtf(x) : 0; }

inline bool physicallyBased() { return render_options && render_options->physically_based; }

// One over pi with the option "physically_based", one without.
inline float diffuseScale() { return physicallyBased() ? RV_ONEOVERPI : 1.0f; }

// Two unit vectors that complete a normal.
struct TangentFrame {
    RtVector U, W;
};
TangentFrame shirleyFrame(const RtVector& N);
TangentFrame polarFrame(const RtVector& N);

// The tangents given, or a frame around N when one is missing.
inline TangentFrame frameOr(const RtVector* U, const RtVector* W, const RtVector& N)
{
    return U && W ? TangentFrame{ *U, *W } : shirleyFrame(N);
}

// One side's shadowing by Beckmann microfacets of a roughness, for the cosine of a direction
// (Walter et al., "Microfacet Models for Refraction through Rough Surfaces", 2007, eq. 27).
inline float beckmannShadowing(float cosine, float roughness)
{
    const float sine = rootOfPositive(1 - cosine * cosine);
    const float a = cosine / (roughness * sine); // 1 / (roughness * tangent)
    if (a >= 1.6f)
        return 1;
    return (3.535f * a + 2.181f * a * a) / (1 + 2.276f * a + 2.577f * a * a);
}

// Distribution of the normals of Beckmann microfacets, for the cosine h of a microfacet. Double
// precision, because 1 - h * h is the difference of nearly equal numbers.
inline float beckmannDensity(float h, float roughness)
{
    const double m2 = double(roughness) * roughness, h2 = double(h) * h;
    return m2 > 0 ? float(exp(-((1 - h2) / h2) / m2) / (M_PI * m2 * h2 * h2)) : 0;
}

// Distribution of half vectors with exponents nu along U and nv along W (Ashikhmin, Shirley: "An
// Anisotropic Phong BRDF Model", 2000, eq. 6). Exactly along N the exponent is 0 / 0, and any
// power of 1 is 1.
inline float ashikhminShirleyDensity(const RtVector& H, const RtVector& N,
                                     const TangentFrame& frame, float nu, float nv)
{
    const float x = dot(frame.U, H), y = dot(frame.W, H), z = dot(N, H);
    return sqrtf((nu + 1) * (nv + 1)) * one_over_two_pi *
           powf(z, (nu * x * x + nv * y * y) / (1 - z * z));
}

// Oren, Nayar: "Generalization of Lambert's Reflectance Model", 1994, without interreflection.
struct OrenNayar {
    float A, B;

    explicit OrenNayar(float sigma) // radians
    {
        const float s = sigma * sigma;
        A = 1 - 0.5f * s / (s + 0.33f);
        B = 0.45f * s / (s + 0.09f);
    }

    // cos_v and cos_l: of V and L with the normal; cos_phi: between their projections onto the
    // tangent plane.
    float operator()(float cos_v, float cos_l, float cos_phi) const
    {
        return value(1 - cos_l * cos_l <= 1 - cos_v * cos_v, cos_v, cos_l, cos_phi);
    }
    // The same where light may come from behind, at an angle wider than that of any viewer.
    float fromBothSides(float cos_v, float cos_l, float cos_phi) const
    {
        return value(cos_v <= cos_l, cos_v, cos_l, cos_phi);
    }

private:
    float value(bool v_is_wider, float cos_v, float cos_l, float cos_phi) const
    {
        if (!(cos_phi > 0))
            return A; // spares the infinite tangent of a direction along the horizon
        const float sin2_v = 1 - cos_v * cos_v, sin2_l = 1 - cos_l * cos_l;
        const float sin_alpha = rootOfPositive(v_is_wider ? sin2_v : sin2_l);
        const float tan_beta =
            v_is_wider ? rootOfPositive(sin2_l) / cos_l : rootOfPositive(sin2_v) / cos_v;
        return A + B * cos_phi * sin_alpha * tan_beta;
    }
};

// RvOrenNayarBRDF with a lobe made before, for light from both sides, without the diffuse scale.
float orenNayarFromBothSides(const OrenNayar& lobe, const RtVector& L, const RtVector& V,
                             const RtVector& N);

// What is left of light after a way through a medium with a transmittance per unit of distance,
// each channel of it from 0 to 1: the transmittance to the power of the distance.
class Absorption {
public:
    explicit Absorption(const RtRGB& transmittance)
        : active(!(transmittance.r == 1 && transmittance.g == 1 && transmittance.b == 1)), density{
              logf(1 / transmittance.r), logf(1 / transmittance.g), logf(1 / transmittance.b)
          }
    {
    }
    bool isActive() const { return active; }
    // For a distance above 0; a black channel lets nothing through.
    RtRGB over(double distance) const
    {
        const float d = float(distance);
        return { expf(-density.r * d), expf(-density.g * d), expf(-density.b * d) };
    }

private:
    bool active;
    RtRGB density; // per unit of distance, infinite for black
};

} // namespace rv

#endif
