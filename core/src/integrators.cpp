// integrators: light over a lobe, estimated by tracing rays. Declared by rv_integrators.h and
// integrators.h.
//
// What they share is in integrators.h; here is what tells them apart: which directions a lobe
// draws, and what it makes of the light from there.
#include "integrators.h"

#include "brdf_mis.h"
#include "options.h"

using namespace rv;

// ---- Glossy lobes ----

// The option "GI_glossy_samples" where glossy rays may leave, or 0.
static int glossySamples(const RtShaderGlobals* sg)
{
    const RtOptions* const options = render_options;
    if (!sg || !options || sg->glossy_depth >= options->GI_glossy_depth)
        return 0;
    return std::max(options->GI_glossy_samples, 0);
}

RtRGB RvStretchedPhongIntegrate(const RtVector* N, RtShaderGlobals* sg, float n)
{
    const int samples = glossySamples(sg);
    if (samples < 1 || !isUsableNormal(N))
        return RV_RGB_BLACK;
    const RtVector& I = sg->ray_dir;
    const RtVector& Ng = sg->geometric_normal;
    const RtVector outside = dot(Ng, I) > 0 ? Ng * -1.0f : Ng;
    RtVector R;
    RvReflectSafe(&I, N, &Ng, &R);
    const TangentFrame frame = shirleyFrame(R);
    const float cos_v = -dot(*N, I);
    const RtRGB mean = gatherGlossy(sg, samples, [&](float u, float v, RtVector* d) {
        *d = aroundAxis(R, frame.U, frame.W, cosineLobeElevation(n, u), hemiAngle(v));
        if (!(dot(*d, outside) >= 0))
            return 0.0f;
        const float cos_d = std::max(0.0f, dot(*N, *d));
        return cos_d < cos_v ? cos_d / cos_v : 1.0f; // the stretch
    });
    return mean * (1 + 1 / (n + 1)); // the lobe's normalisation over its sampling density
}

namespace rv {

// The lobe divided by its density leaves only the normalisation and the stretch.
RtRGB integrateStretchedPhong(const void* data, RtShaderGlobals* sg)
{
    const int samples = data ? glossySamples(sg) : 0;
    if (samples < 1)
        return RV_RGB_BLACK;
    const StretchedPhongData& lobe = *static_cast<const StretchedPhongData*>(data);
    const float cos_v = dot(lobe.N, lobe.V);
    const float scale = (lobe.n + 2) / (lobe.n + 1) * pi * diffuseScale();
    return gatherGlossy(sg, samples, [&](float u, float v, RtVector* d) {
        *d = sampleStretchedPhong(lobe, u, hemiAngle(v));
        const float cos_d = dot(lobe.N, *d);
        if (!(dot(*d, sg->facing_normal) > 0 && cos_d > 0))
            return 0.0f;
        return scale * cos_d / std::max(cos_v, cos_d);
    });
}

RtRGB integrateWardDuer(const void* data, RtShaderGlobals* sg)
{
    constexpr float min_roughness = 0.0001f;
    const int samples = data ? glossySamples(sg) : 0;
    if (samples < 1)
        return RV_RGB_BLACK;
    const RtBRDFMISData& lobe = *static_cast<const RtBRDFMISData*>(data);
    const RtVector& N = sg->facing_normal; // Required: not the normal of the record
    const float cos_v = -dot(N, sg->ray_dir);
    const float rx = std::clamp(lobe.lobe_x, min_roughness, 1.0f);
    const float ry = std::clamp(lobe.lobe_y, min_roughness, 1.0f);
    return gatherGlossy(sg, samples, [&](float u, float v, RtVector* d) {
        *d = mirrored(sg->ray_dir, wardHalfVector(N, lobe.U, lobe.W, rx, ry, u, hemiAngle(v)));
        const float cos_d = dot(*d, N);
        if (!(cos_v > 0 && cos_d > 0 && dot(*d, sg->facing_geometric_normal) > 0))
            return 0.0f;
        return wardDuerWeight(cos_v, cos_d);
    });
}

RtRGB integrateCookTorrance(const void* data, RtShaderGlobals* sg)
{
    const int samples = data ? glossySamples(sg) : 0;
    if (samples < 1)
        return RV_RGB_BLACK;
    const RtBRDFMISData& lobe = *static_cast<const RtBRDFMISData*>(data);
    return gatherGlossy(sg, samples, [&](float u, float v, RtVector* d) {
        *d = sampleCookTorrance(lobe, u, hemiAngle(v));
        if (!(dot(*d, sg->facing_normal) > 0))
            return 0.0f;
        const float density = RvCookTorranceMISPDF(data, d);
        return density > 0 ? RvCookTorranceMISBRDF(data, d) / density : 0.0f;
    });
}

} // namespace rv

// ---- Rough diffuse ----

RtRGB RvOrenNayarIntegrate(const RtVector* N, RtShaderGlobals* sg, float roughness)
{
    const int samples = sg && render_options ? render_options->GI_diffuse_samples : 0;
    if (samples < 1 || !isUsableNormal(N))
        return RV_RGB_BLACK;
    countLighting(sg, RV_LIGHTING_DIFFUSE);
    const TangentFrame frame = shirleyFrame(*N);
    const OrenNayar reflectance(pi * roughness);
    const RtVector V = sg->ray_dir * -1.0f;
    const float cos_v = dot(V, *N);
    const RtVector V_tangent = unit(V - *N * cos_v);
    const SampleLoop loop(sg, &RtSampleTables::diffuse, squaredCount(samples));
    const RtRay ray = loopRay(RV_RAY_DIFFUSE, unlimited_distance, sg);
    const auto lobe = [&](float u, float v, RtVector* d) {
        *d = aroundAxis(*N, frame.U, frame.W, hemiRadius(u), hemiAngle(v));
        if (!(roughness > 0))
            return 1.0f;
        const float cos_d = dot(*d, *N);
        const RtVector d_tangent = unit(*d - *N * cos_d);
        return reflectance(fabsf(cos_v), cos_d, dot(V_tangent, d_tangent));
    };
    // "physically_based" divides each weight by pi and multiplies the result by it.
    return gather(loop, ray, lobe, traceColor) * (1 / float(loop.count()));
}

// ---- Rough refraction ----

// Walter et al.: "Microfacet Models for Refraction through Rough Surfaces", 2007. The light that
// arrives is not scaled by the indices of refraction.
RtRGB RvMicrofacetBTDFIntegrate(const RtVector* N, RtShaderGlobals* sg, const void*, const void*,
                                float rx, float, float eta_in, float eta_out,
                                const RtRGB* transmittance)
{
    const int samples = sg && render_options ? render_options->GI_refraction_samples : 0;
    if (samples < 1 || !isUsableNormal(N))
        return RV_RGB_BLACK;
    countLighting(sg, RV_LIGHTING_GLOSSY);
    const RtVector& I = sg->ray_dir;
    const RtVector& Ng = sg->geometric_normal;
    const float cos_o = fabsf(dot(*N, I));
    const float G_o = beckmannShadowing(cos_o, rx);
    const TangentFrame frame = shirleyFrame(*N);
    const Absorption absorption(clampedToUnit(transmittance ? *transmittance : RV_RGB_WHITE));
    const bool absorbs = absorption.isActive() && dot(I, Ng) <= 0;
    const bool traces = sg->refraction_depth < render_options->GI_refraction_depth;

    // Without roughness there is one direction.
    const SampleLoop loop(sg, &RtSampleTables::refraction, squaredCount(samples), rx > 0);
    const RtRay ray = loopRay(RV_RAY_REFRACTED, unlimited_distance, sg);
    const auto lobe = [&](float u, float v, RtVector* d) {
        const RtVector m =
            aroundAxis(*N, frame.U, frame.W, beckmannElevation(rx, u), exactAzimuth(v));
        const float cos_m = dot(*N, m);
        if (!(traces && cos_m >= 0))
            return 0.0f;
        if (!RvRefract(&I, &m, eta_in, eta_out, d))
            RvReflectSafe(&I, &m, &Ng, d);
        return fabsf(dot(m, I)) * beckmannShadowing(fabsf(dot(*N, *d)), rx) * G_o / (cos_m * cos_o);
    };
    const auto trace = [&](const RtRay& refracted) {
        RtScrSample sample;
        RvTrace(&refracted, &sample);
        if (!absorbs || !(sample.z > 0))
            return sample.color;
        const RtRGB left = absorption.over(sample.z);
        return RtRGB{ sample.color.r * left.r, sample.color.g * left.g, sample.color.b * left.b };
    };
    return gather(loop, ray, lobe, trace) * (1 / float(loop.count()));
}
