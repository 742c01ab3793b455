// The inside of the sampling sets of rv_brdf.h: their records, the directions they draw, and the
// table of the families that "standard" offers.
//
// A record is made once per shading point in the shading pool of the thread, and all samples of
// the point share it. Evaluations include the cosine; densities are per solid angle.
#ifndef RV_BRDF_MIS_H
#define RV_BRDF_MIS_H

#include "brdf.h"
#include "hemi_tables.h"

namespace rv {

// What every record begins with.
struct LobeGeometry {
    RtVector N;    // the normal to reflect about
    RtVector Ng;   // geometric normal on the side of the viewer
    RtVector V;    // towards the viewer
    RtVector U, W; // tangents of the sampling frame
};

} // namespace rv

// Ashikhmin-Shirley: the exponents along U and W. Ward-Duer: the roughnesses along U and W.
// Cook-Torrance: the roughness, and the factor that widens the sampled lobe at grazing views.
struct RtBRDFMISData : rv::LobeGeometry {
    float lobe_x, lobe_y;
};

namespace rv {

struct StretchedPhongData : LobeGeometry { // U and W are around R
    RtVector R;                            // mirror direction of the viewer
    float n;                               // exponent
};

// ---- Directions ----

// The azimuth of v in [0, 1): exact, where integrators look it up (hemiAngle).
inline CosSin exactAzimuth(float v)
{
    const float phi = two_pi * v;
    return { cosf(phi), sinf(phi) };
}

inline RtVector aroundAxis(const RtVector& axis, const RtVector& U, const RtVector& W, CosSin theta,
                           CosSin phi)
{
    return axis * theta.cos + U * (theta.sin * phi.cos) + W * (theta.sin * phi.sin);
}

inline CosSin fromCosine(float c) { return { c, rootOfPositive(1 - c * c) }; }

// The end of the exponential distribution of Gaussian slopes; u in [0, 1).
inline float squaredSlope(float u) { return -logf(std::max(1 - u, 1e-30f)); }

inline CosSin fromSquaredTangent(float tan2)
{
    const float c = 1 / sqrtf(1 + tan2);
    return { c, sqrtf(tan2) * c };
}

// Beckmann microfacets of a roughness.
inline CosSin beckmannElevation(float roughness, float u)
{
    return fromSquaredTangent(roughness * roughness * squaredSlope(u));
}

// The elevation of a cosine lobe of exponent n.
inline CosSin cosineLobeElevation(float n, float u) { return fromCosine(powf(u, 1 / (n + 1))); }

// The half vector of an anisotropic Gaussian lobe around N (Ward, 1992); phi is what the ellipse of
// the roughnesses is made of.
inline RtVector wardHalfVector(const RtVector& N, const RtVector& U, const RtVector& W, float rx,
                               float ry, float u, CosSin phi)
{
    const float x = rx * phi.cos, y = ry * phi.sin;
    const float length = sqrtf(x * x + y * y);
    if (!(length > 0))
        return N;
    const CosSin azimuth = { x / length, y / length };
    const float q = azimuth.sin * azimuth.sin * rx * rx + azimuth.cos * azimuth.cos * ry * ry;
    const float tan2 = q > 0 ? squaredSlope(u) * rx * rx * ry * ry / q : 0;
    return aroundAxis(N, U, W, fromSquaredTangent(tan2), azimuth);
}

// The zero vector when there is no light from there.
inline RtVector sampleStretchedPhong(const StretchedPhongData& data, float u, CosSin phi)
{
    const RtVector d = aroundAxis(data.R, data.U, data.W, cosineLobeElevation(data.n, u), phi);
    return dot(d, data.Ng) < 0 ? RtVector{ 0, 0, 0 } : d;
}

inline RtVector sampleCookTorrance(const RtBRDFMISData& data, float u, CosSin phi)
{
    const RtVector H =
        aroundAxis(data.N, data.U, data.W, beckmannElevation(data.lobe_x * data.lobe_y, u), phi);
    const RtVector d = mirrored(data.V * -1.0f, H);
    return dot(data.N, H) < 0 || dot(d, data.Ng) < 0 ? RtVector{ 0, 0, 0 } : d;
}

// The density of a direction of the Ward-Duer lobe is its value divided by this, which is also the
// weight of a direction that was drawn from the lobe.
inline float wardDuerWeight(float cos_v, float cos_d) { return 2 / (cos_v / cos_d + 1); }

// ---- The families of "standard" ----

struct SpecularFamily {
    // Roughness along U and V. Null without memory; the other functions then return nothing.
    void* (*create)(const RtShaderGlobals* sg, const RtVector* U, const RtVector* V, float rx,
                    float ry);
    RtBRDFSampleFunc sample;
    RtBRDFEvalFunc evaluate;
    RtBRDFPdfFunc pdf;
    // Light that glossy rays find over the lobe.
    RtRGB (*integrate)(const void* data, RtShaderGlobals* sg);
};

// By the value of "specular_brdf": stretched Phong, Ward-Duer, Cook-Torrance.
extern const SpecularFamily specular_families[3];

} // namespace rv

#endif
