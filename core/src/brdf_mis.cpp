// brdf_mis: the sampling sets of rv_brdf.h. Declared there and by brdf_mis.h.
//
// Functions of a null record draw nothing and return 0.
#include "brdf_mis.h"

#include "integrators.h"
#include "rv_shaderglobals.h"

using namespace rv;

// ---- Records ----

// The normals and the viewer. A facing normal that would mirror the ray to below the surface gives
// way to the geometric normal.
static LobeGeometry lobeGeometry(const RtShaderGlobals* sg)
{
    const RtVector& Ng = sg->facing_geometric_normal;
    const bool leaves = dot(mirrored(sg->ray_dir, sg->facing_normal), Ng) < 0;
    return {
        .N = leaves ? Ng : sg->facing_normal, .Ng = Ng, .V = sg->ray_dir * -1.0f, .U = {}, .W = {}
    };
}

static void setFrame(LobeGeometry* lobe, const TangentFrame& frame)
{
    lobe->U = frame.U;
    lobe->W = frame.W;
}

template <class Data> static Data* newRecord(const RtShaderGlobals* sg)
{
    void* const memory = sg ? RvShaderGlobalsQuickAlloc(sg, sizeof(Data)) : nullptr;
    if (!memory)
        return nullptr;
    auto* const data = static_cast<Data*>(memory);
    static_cast<LobeGeometry&>(*data) = lobeGeometry(sg);
    return data;
}

static const RtBRDFMISData& record(const void* data)
{
    return *static_cast<const RtBRDFMISData*>(data);
}

// What brdf(lobe) is towards d, times the cosine; 0 below the surface.
template <class Data, class BRDF>
static float reflectance(const void* data, const RtVector* d, const BRDF& brdf)
{
    if (!data || !d)
        return 0;
    const auto& lobe = *static_cast<const Data*>(data);
    const float cos_d = dot(lobe.N, *d);
    return cos_d > 0 ? brdf(lobe) * cos_d : 0;
}

// ---- Stretched Phong ----

static const StretchedPhongData& phongRecord(const void* data)
{
    return *static_cast<const StretchedPhongData*>(data);
}

void* RvStretchedPhongMISCreateData(const RtShaderGlobals* sg, float n)
{
    constexpr float max_exponent = 100000;
    auto* const data = newRecord<StretchedPhongData>(sg);
    if (!data)
        return nullptr;
    data->R = mirrored(sg->ray_dir, data->N);
    data->n = n < max_exponent ? n : max_exponent;
    setFrame(data, shirleyFrame(data->R));
    return data;
}

RtVector RvStretchedPhongMISSample(const void* data, float u, float v)
{
    if (!data)
        return { 0, 0, 0 };
    const double phi = 2 * M_PI * double(v);
    return sampleStretchedPhong(phongRecord(data), u, { float(cos(phi)), float(sin(phi)) });
}

float RvStretchedPhongMISBRDF(const void* data, const RtVector* d)
{
    return reflectance<StretchedPhongData>(data, d, [d](const StretchedPhongData& lobe) {
        return RvStretchedPhongBRDF(d, &lobe.V, &lobe.N, lobe.n, false);
    });
}

float RvStretchedPhongMISPDF(const void* data, const RtVector* d)
{
    if (!data || !d)
        return 0;
    const StretchedPhongData& lobe = phongRecord(data);
    if (dot(lobe.N, *d) < 0)
        return 0;
    return (lobe.n + 1) * powf(std::max(0.0f, dot(lobe.R, *d)), lobe.n) * one_over_two_pi;
}

// ---- Ward-Duer ----

// A tangent in the plane of the normal.
static RtVector inPlane(const RtVector& U, const RtVector& N)
{
    return unit(cross(N, cross(U, N)));
}

void* RvWardDuerMISCreateData(const RtShaderGlobals* sg, const RtVector* U, const RtVector* V,
                              float rx, float ry)
{
    constexpr float min_roughness = 1e-7f;
    auto* const data = newRecord<RtBRDFMISData>(sg);
    if (!data)
        return nullptr;
    const RtVector& N = data->N;
    setFrame(data, U && V ? TangentFrame{ inPlane(*U, N), inPlane(*V, N) } : shirleyFrame(N));
    data->lobe_x = std::max(min_roughness, rx);
    data->lobe_y = std::max(min_roughness, ry);
    return data;
}

RtVector RvWardDuerMISSample(const void* data, float u, float v)
{
    if (!data)
        return { 0, 0, 0 };
    const RtBRDFMISData& lobe = record(data);
    const RtVector H =
        wardHalfVector(lobe.N, lobe.U, lobe.W, lobe.lobe_x, lobe.lobe_y, u, exactAzimuth(v));
    const RtVector d = mirrored(lobe.V * -1.0f, H);
    return dot(d, lobe.Ng) > 0 ? d : RtVector{ 0, 0, 0 };
}

float RvWardDuerMISBRDF(const void* data, const RtVector* d)
{
    return reflectance<RtBRDFMISData>(data, d, [d](const RtBRDFMISData& lobe) {
        return RvWardDuerBRDF(d, &lobe.V, &lobe.N, &lobe.U, &lobe.W, lobe.lobe_x, lobe.lobe_y);
    });
}

float RvWardDuerMISPDF(const void* data, const RtVector* d)
{
    if (!data || !d)
        return 0;
    const RtBRDFMISData& lobe = record(data);
    const float cos_v = dot(lobe.V, lobe.N), cos_d = dot(*d, lobe.N);
    if (!(cos_v > 0 && cos_d > 0))
        return 0;
    return RvWardDuerMISBRDF(data, d) / wardDuerWeight(cos_v, cos_d);
}

// ---- Cook-Torrance ----

void* RvCookTorranceMISCreateData(const RtShaderGlobals* sg, const RtVector*, const RtVector*,
                                  float rx, float)
{
    constexpr float min_roughness = 0.0004f;
    auto* const data = newRecord<RtBRDFMISData>(sg);
    if (!data)
        return nullptr;
    setFrame(data, shirleyFrame(data->N));
    data->lobe_x = std::max(min_roughness, rx);
    data->lobe_y = 1.2f - 0.2f * sqrtf(fabsf(dot(data->V, data->N)));
    return data;
}

RtVector RvCookTorranceMISSample(const void* data, float u, float v)
{
    return data ? sampleCookTorrance(record(data), u, exactAzimuth(v)) : RtVector{ 0, 0, 0 };
}

float RvCookTorranceMISBRDF(const void* data, const RtVector* d)
{
    return reflectance<RtBRDFMISData>(data, d, [d](const RtBRDFMISData& lobe) {
        return RvCookTorranceBRDF(d, &lobe.V, &lobe.N, &lobe.U, &lobe.W, lobe.lobe_x);
    });
}

// Of the widened lobe, which is the one that is sampled. Required: negative, not 0, for half
// vectors below the surface, which no sample has.
float RvCookTorranceMISPDF(const void* data, const RtVector* d)
{
    if (!data || !d)
        return 0;
    const RtBRDFMISData& lobe = record(data);
    const RtVector H = unit(*d + lobe.V);
    const float h = dot(lobe.N, H), k = dot(H, lobe.V);
    if (h == 0 || k == 0)
        return 0;
    return beckmannDensity(h, lobe.lobe_x * lobe.lobe_y) * h / (4 * k);
}

// ---- Ashikhmin-Shirley ----

void* RvAshikhminShirleyMISCreateData(const RtShaderGlobals* sg, const RtVector* U,
                                      const RtVector* V, float nu, float nv)
{
    auto* const data = newRecord<RtBRDFMISData>(sg);
    if (!data)
        return nullptr;
    setFrame(data, frameOr(U, V, sg->facing_normal));
    data->lobe_x = nu;
    data->lobe_y = nv;
    return data;
}

RtVector RvAshikhminShirleyMISSample(const void* data, float u, float v)
{
    if (!data)
        return { 0, 0, 0 };
    const RtBRDFMISData& lobe = record(data);
    const float nu = lobe.lobe_x, nv = lobe.lobe_y;
    // Required: u drives the azimuth and v the elevation.
    const CosSin circle = exactAzimuth(u);
    const float x = sqrtf(nv + 1) * circle.cos, y = sqrtf(nu + 1) * circle.sin;
    const float inverse = 1 / sqrtf(x * x + y * y);
    const CosSin phi = { x * inverse, y * inverse };
    const float n = nu * phi.cos * phi.cos + nv * phi.sin * phi.sin;
    const RtVector H =
        aroundAxis(lobe.N, lobe.U, lobe.W, fromCosine(powf(1 - v, 1 / (n + 1))), phi);
    const float k = dot(lobe.V, H);
    const RtVector d = H * (2 * k) - lobe.V;
    return k > 0 && dot(d, lobe.Ng) >= 0 ? d : RtVector{ 0, 0, 0 };
}

float RvAshikhminShirleyMISBRDF(const void* data, const RtVector* d)
{
    return reflectance<RtBRDFMISData>(data, d, [d](const RtBRDFMISData& lobe) {
        return RvAshikhminShirleyBRDF(d, &lobe.V, &lobe.N, &lobe.U, &lobe.W, lobe.lobe_x,
                                      lobe.lobe_y);
    });
}

float RvAshikhminShirleyMISPDF(const void* data, const RtVector* d)
{
    if (!data || !d)
        return 0;
    const RtBRDFMISData& lobe = record(data);
    const RtVector H = unit(*d + lobe.V);
    const float k = dot(lobe.V, H);
    if (!(k > 0 && dot(lobe.N, H) > 0))
        return 0;
    return ashikhminShirleyDensity(H, lobe.N, { lobe.U, lobe.W }, lobe.lobe_x, lobe.lobe_y) /
           (4 * k);
}

// ---- The families of "standard" ----

// The exponent whose lobe is as wide as microfacets of the roughness.
static void* createStretchedPhong(const RtShaderGlobals* sg, const RtVector*, const RtVector*,
                                  float rx, float)
{
    return RvStretchedPhongMISCreateData(sg, 0.5f / (rx * rx) - 0.5f);
}

namespace rv {

const SpecularFamily specular_families[3] = {
    { createStretchedPhong, RvStretchedPhongMISSample, RvStretchedPhongMISBRDF,
      RvStretchedPhongMISPDF, integrateStretchedPhong },
    { RvWardDuerMISCreateData, RvWardDuerMISSample, RvWardDuerMISBRDF, RvWardDuerMISPDF,
      integrateWardDuer },
    { RvCookTorranceMISCreateData, RvCookTorranceMISSample, RvCookTorranceMISBRDF,
      RvCookTorranceMISPDF, integrateCookTorrance },
};

} // namespace rv
