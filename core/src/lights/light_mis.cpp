// light_mis: one sample of the light loop reflected by a lobe, with multiple importance sampling
// for lights that want it (rv_lights.h).
#include "lights/light_loop.h"
#include "objects/gobject.h"
#include "options.h"
#include "rays.h"
#include "sampler.h"

#include <stdlib.h>

namespace rv {

float powerWeight(float pdf, float other_pdf)
{
    const float sum = pdf * pdf + other_pdf * other_pdf;
    return sum > 0 && sum <= 1e30f ? pdf / sum : 0;
}

// ---- The lobe ----

struct Lobe {
    const void* data;
    RtBRDFSampleFunc sample;
    RtBRDFEvalFunc eval;
    RtBRDFPdfFunc pdf;
    RtBRDFEvalRGBFunc chromatic; // in place of eval, or null
};

// Required: for debugging, the function of the first call of the process serves all calls, and is
// taken for one that gives a colour.
static RtBRDFEvalRGBFunc chromaticEval(RtBRDFEvalFunc first)
{
    static const RtBRDFEvalRGBFunc function =
        getenv("RUVELL_CHROMATIC_BRDF")
            ? reinterpret_cast<RtBRDFEvalRGBFunc>(reinterpret_cast<void (*)()>(first))
            : nullptr;
    return function;
}

static bool brdfSamplesOnly()
{
    static const bool is_set = getenv("RUVELL_BRDF_SAMPLES_ONLY");
    return is_set;
}

// Reflectance times cosine.
static RtRGB reflectance(const Lobe& lobe, const RtVector& dir)
{
    if (lobe.chromatic) {
        RtRGB color = RV_RGB_BLACK;
        lobe.chromatic(&color, lobe.data, &dir);
        return color;
    }
    const float f = lobe.eval(lobe.data, &dir);
    return { f, f, f };
}

static RtRGB reflected(const RtRGB& light, const RtRGB& f, float weight)
{
    return { light.r * f.r * weight, light.g * f.g * weight, light.b * f.b * weight };
}

// ---- Two techniques ----

// Samples of the lobe at a point, as many as of the light.
static int lobeSampleCount(const RtLightData& light, const RtShaderGlobals& sg)
{
    return isNested(&sg) || light.samples < 2 ? 1 : light.samples * light.samples;
}

// The point of the unit square for the lobe that goes with the current sample of the light.
static RtPoint2 lobeSample(const RtLightData& light, const RtShaderGlobals& sg, int n)
{
    const RtPoint2 rotation = RvSamplerRotation(&sg);
    const RtPoint2* const points =
        light.mis_table ? sampleBlock(*light.mis_table, sg.sample_index, n) : nullptr;
    const uint32_t index = sg.state->lights.mis.sample_index;
    return points ? rotated(points[index % uint32_t(n)], rotation) : rotation;
}

static RtRGB lightPart(const Lobe& lobe, const RtShaderGlobals& sg, int n)
{
    const RtLightMIS& mis = sg.state->lights.mis;
    const float weight = powerWeight(mis.pdf, lobe.pdf(lobe.data, &sg.light_dir) * float(n));
    return reflected(mis.radiance, reflectance(lobe, sg.light_dir), weight);
}

// The current sample of a context, which comes back at the end of a scope. Light filters may not
// start the loop anew meanwhile.
class SavedSample {
public:
    explicit SavedSample(RtShaderGlobals* context) : sg(context), fields(fieldsOf(*sg))
    {
        sg->state->lights.busy = true;
    }
    ~SavedSample()
    {
        sg->light_radiance = fields.light_radiance;
        sg->light_unoccluded = fields.light_unoccluded;
        sg->light_shadow = fields.light_shadow;
        sg->light_dir = fields.light_dir;
        sg->light_dist = fields.light_dist;
        sg->light_weight = fields.light_weight;
        sg->state->lights.mis = fields.mis;
        sg->state->lights.busy = false;
    }
    SavedSample(const SavedSample&) = delete;
    SavedSample& operator=(const SavedSample&) = delete;

private:
    static RtLightSample fieldsOf(const RtShaderGlobals& sg)
    {
        return { .light_radiance = sg.light_radiance,
                 .light_unoccluded = sg.light_unoccluded,
                 .light_shadow = sg.light_shadow,
                 .light_dir = sg.light_dir,
                 .light_dist = sg.light_dist,
                 .light_weight = sg.light_weight,
                 .light = sg.light,
                 .light_sample_count = sg.light_sample_count,
                 .mis = sg.state->lights.mis,
                 .point = sg.state->lights.point };
    }

    RtShaderGlobals* sg;
    const RtLightSample fields;
};

// Weight of a sample of the lobe, divided by its density.
static float lobeWeight(float lobe_pdf, float light_pdf)
{
    if (!brdfSamplesOnly())
        return powerWeight(lobe_pdf, light_pdf);
    return lobe_pdf > 0 && lobe_pdf <= 1e30f ? 1 / lobe_pdf : 0;
}

static RtRGB lobePart(const Lobe& lobe, const RtLightData& light, RtShaderGlobals* sg, int n)
{
    const RtPoint2 uv = lobeSample(light, *sg, n);
    const RtVector dir = lobe.sample(lobe.data, uv.x, uv.y);
    if (isNegligible({ dir.x, dir.y, dir.z }) || !light.methods->LightIntersect)
        return RV_RGB_BLACK;
    RtRay ray;
    RvMakeRay(&ray, RV_RAY_GLOSSY, &sg->point, &dir, 1e12, sg);
    const SavedSample saved(sg);
    if (!light.methods->LightIntersect(light.node, sg, &ray))
        return RV_RGB_BLACK;
    const RtLightMIS& mis = sg->state->lights.mis;
    const float weight = lobeWeight(lobe.pdf(lobe.data, &dir) * float(n), mis.pdf);
    return reflected(mis.radiance, reflectance(lobe, dir), weight);
}

} // namespace rv

RtRGB RvEvaluateLightSample(RtShaderGlobals* sg, const void* brdf_data, RtBRDFSampleFunc sample_fn,
                            RtBRDFEvalFunc eval_fn, RtBRDFPdfFunc pdf_fn)
{
    if (!sg || !sg->state || !eval_fn || sg->state->lights.busy)
        return RV_RGB_BLACK;
    const rv::Lobe lobe = { brdf_data, sample_fn, eval_fn, pdf_fn, rv::chromaticEval(eval_fn) };
    const RtLightData* const light = rv::lightData(sg->light);
    if (!sg->state->lights.mis.active || !light || !sample_fn || !pdf_fn)
        return rv::reflected(sg->light_radiance, rv::reflectance(lobe, sg->light_dir),
                             sg->light_weight);
    const int n = rv::lobeSampleCount(*light, *sg);
    const RtRGB from_light = rv::brdfSamplesOnly() ? RV_RGB_BLACK : rv::lightPart(lobe, *sg, n);
    const RtRGB from_lobe = rv::lobePart(lobe, *light, sg, n);
    return { from_light.r + from_lobe.r, from_light.g + from_lobe.g, from_light.b + from_lobe.b };
}
