// Tests of core/src/lights/light_mis.cpp: samples reflected by a lobe.
#include "light_tools.h"
#include "sampler.h"
#include "shader_tools.h"

#include <stdlib.h>

using namespace light_tools;

// ---- Lobes ----

namespace {

// A Phong lobe around the mirror direction, as samples, value times cosine and density.
struct PhongLobe {
    RtVector axis;
    float n;
};

struct FixedLobe {
    float f, pdf;
    RtVector dir;
    mutable std::vector<RtPoint2> points;
};

} // namespace

static const PhongLobe& phong(const void* data) { return *static_cast<const PhongLobe*>(data); }

static RtVector phongSample(const void* data, float u, float v)
{
    const double cosine = pow(double(u), 1 / (double(phong(data).n) + 1));
    const double sine = sqrt(std::max(0.0, 1 - cosine * cosine)), phi = 2 * M_PI * double(v);
    const RtVector axis = phong(data).axis;
    const RtVector other = fabsf(axis.x) < 0.5f ? RtVector{ 1, 0, 0 } : RtVector{ 0, 1, 0 };
    const RtVector x = rv::unitPrecise(rv::cross(axis, other)), y = rv::cross(axis, x);
    const RtVector d =
        axis * float(cosine) + x * float(sine * cos(phi)) + y * float(sine * sin(phi));
    return d.z > 0 ? d : RtVector{ 0, 0, 0 };
}

static float phongValue(const void* data, const RtVector* d)
{
    const float c = rv::dot(phong(data).axis, *d);
    return d->z > 0 && c > 0 ? powf(c, phong(data).n) * d->z : 0;
}

static float phongPdf(const void* data, const RtVector* d)
{
    const float c = rv::dot(phong(data).axis, *d);
    return c > 0 ? (phong(data).n + 1) * powf(c, phong(data).n) / (2 * pi) : 0;
}

static const FixedLobe& fixed(const void* data) { return *static_cast<const FixedLobe*>(data); }
static RtVector fixedSample(const void* data, float u, float v)
{
    fixed(data).points.push_back({ u, v });
    return fixed(data).dir;
}
static float fixedValue(const void* data, const RtVector*) { return fixed(data).f; }
static float fixedPdf(const void* data, const RtVector*) { return fixed(data).pdf; }

static RtRGB evaluateFixed(RtShaderGlobals& sg, const FixedLobe& lobe)
{
    return RvEvaluateLightSample(&sg, &lobe, fixedSample, fixedValue, fixedPdf);
}

// ---- Weights ----

class LightMIS : public Lit {
public:
    using Lit::surface;
};

TEST_F(LightMIS, weights_agree_with_the_golden_vectors)
{
    for (const auto& v : goldenVectors("lights", "mis_weights")) {
        const auto& in = v["in"];
        const float f = goldenFloat(in["f"]), n = goldenFloat(in["n"]),
                    light_pdf = goldenFloat(in["light_pdf"]),
                    brdf_pdf = goldenFloat(in["brdf_pdf"]);
        expectGoldenNumbers(v, "light_weight", { f * rv::powerWeight(light_pdf, brdf_pdf * n) });
        expectGoldenNumbers(v, "brdf_weight", { f * rv::powerWeight(brdf_pdf * n, light_pdf) });
    }
}

TEST_F(LightMIS, densities_without_a_usable_square_have_no_weight)
{
    EXPECT_EQ(rv::powerWeight(0, 0), 0);
    EXPECT_GT(rv::powerWeight(1e14f, 1), 0);
    EXPECT_EQ(rv::powerWeight(2e15f, 1), 0);
    EXPECT_EQ(rv::powerWeight(1, 2e15f), 0);
    EXPECT_EQ(rv::powerWeight(INFINITY, 1), 0);
    EXPECT_EQ(rv::powerWeight(NAN, 1), 0);
}

TEST_F(LightMIS, without_mis_a_sample_is_weighted_by_the_light)
{
    RtNode* const node = pointLight({ 0, 0, 5 }, 1);
    RvNodeSetBool(node, "mis", false);
    RvNodeSetInt(node, "samples", 2);
    RvNodeSetRGB(node, "color", 1, 2, 4);
    prepare();
    RtShaderGlobals sg = surface();
    RvLightsPrepare(&sg);
    const FixedLobe lobe = { 0.5f, 7, { 0, 0, 1 }, {} };
    for (int i = 0; i < 4; ++i) {
        ASSERT_TRUE(RvLightsGetSample(&sg));
        EXPECT_EQ(text(evaluateFixed(sg, lobe)), "0.125 0.25 0.5");
    }
    EXPECT_TRUE(lobe.points.empty());
}

TEST_F(LightMIS, both_parts_are_weighted_by_their_densities)
{
    const double extent = 2 * M_PI * (1 - sqrt(1 - 1 / 25.0));
    for (bool nested : { false, true }) {
        RtNode* const node = pointLight({ 0, 0, 5 }, 1);
        RvNodeSetInt(node, "samples", 2);
        RvNodeSetBool(node, "normalize", false); // radiance 1
        prepare();
        const double n = nested ? 1 : 4, pl = n / extent, pb = 3 * n;
        const struct {
            const char* name;
            RtVector dir;
            bool hit;
        } rows[] = { { "hit", { 0, 0, 1 }, true },
                     { "miss", { 1, 0, 0 }, false },
                     { "no direction", { 0, 0, 0.00009f }, false } };
        for (const auto& row : rows) {
            RtShaderGlobals sg = surface();
            sg.state->loop_samples = nested ? 9 : 0;
            RvLightsPrepare(&sg);
            ASSERT_TRUE(RvLightsGetSample(&sg));
            const FixedLobe lobe = { 0.5f, 3, row.dir, {} };
            const double want = 0.5 * (pl + (row.hit ? pb : 0)) / (pl * pl + pb * pb);
            EXPECT_NEAR(evaluateFixed(sg, lobe).g, want, want * 1e-5) << row.name << nested;
            EXPECT_EQ(lobe.points.size(), 1u);
        }
        startAnew();
    }
}

TEST_F(LightMIS, a_lobe_that_is_missing_gives_nothing_or_the_light_alone)
{
    pointLight({ 0, 0, 5 }, 1);
    prepare();
    RtShaderGlobals sg = surface();
    RvLightsPrepare(&sg);
    ASSERT_TRUE(RvLightsGetSample(&sg));
    const FixedLobe lobe = { 0.5f, 3, { 0, 0, 1 }, {} };
    EXPECT_EQ(text(RvEvaluateLightSample(&sg, &lobe, nullptr, nullptr, nullptr)), "0 0 0");
    EXPECT_EQ(text(RvEvaluateLightSample(nullptr, &lobe, fixedSample, fixedValue, fixedPdf)),
              "0 0 0");
    EXPECT_EQ(text(RvEvaluateLightSample(&sg, &lobe, nullptr, fixedValue, nullptr)), "0.5 0.5 0.5");
    sg.state = nullptr;
    EXPECT_EQ(text(evaluateFixed(sg, lobe)), "0 0 0");
}

TEST_F(LightMIS, samples_of_the_lobe_come_from_the_block_of_the_camera_sample)
{
    RtNode* const node = pointLight({ 0, 0, 5 }, 1);
    RvNodeSetInt(node, "samples", 2);
    set("AA_samples", 2);
    prepare();
    for (unsigned index : { 0, 3 })
        for (int depth : { 0, 1 }) {
            RtShaderGlobals sg = surface();
            sg.sample_index = uint16_t(index);
            sg.ray_depth = uint8_t(depth);
            RvLightsPrepare(&sg);
            const FixedLobe lobe = { 0.5f, 3, { 0, 0, 0 }, {} };
            while (RvLightsGetSample(&sg))
                evaluateFixed(sg, lobe);
            ASSERT_EQ(lobe.points.size(), 4u);
            const RtPoint2 rotation = RvSamplerRotation(&sg);
            for (size_t i = 0; i < 4; ++i) {
                const RtPoint2 p = dataOf(node).mis_table->points[index * 4 + i];
                const float x = p.x + rotation.x, y = p.y + rotation.y;
                EXPECT_EQ(lobe.points[i].x, x - std::floor(x)) << index;
                EXPECT_EQ(lobe.points[i].y, y - std::floor(y)) << index;
            }
        }
}

TEST_F(LightMIS, the_sample_of_the_context_is_not_disturbed)
{
    pointLight({ 1, 0, 5 }, 1);
    prepare();
    RtShaderGlobals sg = surface();
    RvLightsPrepare(&sg);
    ASSERT_TRUE(RvLightsGetSample(&sg));
    const RtShaderGlobals before = sg;
    const RtLightMIS mis = sg.state->lights.mis;
    const FixedLobe lobe = { 0.5f, 3, rv::unitPrecise({ 1, 0, 5 }), {} };
    const RtRGB first = evaluateFixed(sg, lobe);
    EXPECT_EQ(memcmp(&before, &sg, sizeof sg), 0);
    EXPECT_EQ(sg.state->lights.mis.pdf, mis.pdf);
    EXPECT_EQ(text(evaluateFixed(sg, lobe)), text(first));
}

TEST_F(LightMIS, samples_of_the_lobe_are_shadowed_and_filtered)
{
    RtNode* const node = pointLight({ 0, 0, 10 }, 1);
    RvNodeSetBool(node, "normalize", false);
    RtNode* const decay = named("light_decay", "decay");
    RvNodeSetStr(decay, "decay_type", "linear");
    RvNodeSetFlt(decay, "decay_radius", 10);
    RvNodeSetBool(node, "normalize", true);
    setFilters(node, { decay });
    glass("pane", 5, { 0.5f, 0.5f, 0.5f });
    RtNode* const floor = disc("floor", 0);
    prepare();
    RtShaderGlobals sg = surface();
    sg.object = floor;
    RvLightsPrepare(&sg);
    ASSERT_TRUE(RvLightsGetSample(&sg));
    const double extent = 2 * M_PI * (1 - sqrt(1 - 1 / 100.0));
    const FixedLobe lobe = { 1, 1e6f, { 0, 0, 1 }, {} }; // the lobe has all the weight
    EXPECT_NEAR(evaluateFixed(sg, lobe).g * 1e6, 0.5 / extent, 0.5 / extent * 1e-3);
}

TEST_F(LightMIS, every_light_that_a_lobe_may_hit_runs_its_filters_for_the_lobe)
{
    const auto onTop = [](RtNode* node) {
        RtMatrix matrix;
        const RtVector up = { 0, 0, 4 };
        RvM4Translation(&matrix, &up);
        RvNodeSetMatrix(node, "matrix", &matrix);
        return node;
    };
    const struct {
        const char* type;
        std::function<RtNode*()> make; // a light above the origin
    } rows[] = {
        { "point_light",
          [] {
              return pointLight({ 0, 0, 4 }, 1);
          } },
        { "spot_light",
          [] {
              RtNode* const node = spotLight({ 0, 0, 4 }, { 0, 0, 0 });
              RvNodeSetFlt(node, "radius", 1);
              return node;
          } },
        { "quad_light", [&] { return onTop(light("quad_light")); } },
        { "skydome_light", [] { return light("skydome_light"); } },
    };
    Names types;
    for (const auto& row : rows) {
        float radiance[2];
        for (bool is_filtered : { false, true }) {
            RtNode* const node = row.make();
            if (is_filtered)
                setFilters(node, { shader_tools::shader(
                                     "half", RV_TYPE_NONE, [](RtNode*, RtShaderGlobals* at) {
                                         at->light_unoccluded = at->light_unoccluded * 0.5f;
                                     }) });
            prepare();
            RtShaderGlobals sg = surface();
            RvLightsPrepare(&sg);
            ASSERT_TRUE(RvLightsGetSample(&sg)) << row.type;
            RtRay ray = {};
            ray.dir = { 0, 0, 1 };
            const auto* const methods =
                static_cast<const RtLightMethods*>(node->entry->kind_methods);
            ASSERT_TRUE(methods->LightIntersect(node, &sg, &ray)) << row.type;
            radiance[is_filtered] = sg.state->lights.mis.radiance.g;
            shader_tools::programs().clear();
            startAnew();
        }
        EXPECT_GT(radiance[0], 0) << row.type;
        EXPECT_FLOAT_EQ(radiance[1], radiance[0] / 2) << row.type;
        types.push_back(row.type);
    }
    // These are all of them.
    for (int i = 0; i < RvGetNumInstalledNodes(); ++i) {
        const RtNodeEntry* const entry = RvNodeEntryLookUpByIndex(i);
        if (entry->type != RV_NODE_LIGHT)
            continue;
        const bool is_listed = std::ranges::find(types, entry->name) != types.end();
        const auto* const methods = static_cast<const RtLightMethods*>(entry->kind_methods);
        RtRay ray = {};
        EXPECT_TRUE(is_listed || !methods->LightIntersect(nullptr, nullptr, &ray)) << entry->name;
    }
}

// ---- Agreement of the techniques ----

// Reflected light of a sphere, with many rotations.
static double estimate(RtShaderGlobals (*make)(void*), void* context, const PhongLobe& lobe,
                       bool use_mis)
{
    constexpr int rounds = 64;
    double sum = 0;
    for (int i = 0; i < rounds; ++i) {
        RtShaderGlobals sg = make(context);
        sg.ray_depth = 1;
        sg.pixel_x = i;
        RvLightsPrepare(&sg);
        while (RvLightsGetSample(&sg)) {
            if (use_mis)
                sum +=
                    double(RvEvaluateLightSample(&sg, &lobe, phongSample, phongValue, phongPdf).g);
            else
                sum += double(sg.light_radiance.g) * double(sg.light_weight) *
                       double(phongValue(&lobe, &sg.light_dir));
        }
    }
    return sum / rounds;
}

// The same by quadrature over the sphere's cone, for a light of radiance 1.
static double quadrature(const RtPoint& center, double radius, const PhongLobe& lobe)
{
    const double d = sqrt(double(rv::dot(center, center)));
    const RtVector axis = rv::unitPrecise(center);
    const double extent = 1 - sqrt(1 - radius * radius / (d * d));
    const RtVector x = rv::unitPrecise(rv::cross(axis, { 0.3f, 0.9f, 0.1f })),
                   y = rv::cross(axis, x);
    constexpr int n = 600;
    double sum = 0;
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) {
            const double h = (i + 0.5) / n * extent, phi = 2 * M_PI * (j + 0.5) / n;
            const double sine = sqrt(h * (2 - h));
            const RtVector dir =
                axis * float(1 - h) + x * float(sine * cos(phi)) + y * float(sine * sin(phi));
            sum += double(phongValue(&lobe, &dir));
        }
    return sum / (n * n) * 2 * M_PI * extent;
}

TEST_F(LightMIS, combined_samples_agree_with_those_of_the_light_and_with_quadrature)
{
    const struct {
        RtPoint center;
        float radius, exponent;
    } rows[] = {
        { { 0, 0, 5 }, 2, 5 },
        { { 3, 0, 4 }, 1, 20 },
        { { 3, 0, 4 }, 2, 200 },
        { { 0, 4, 4 }, 0.5f, 2 },
    };
    for (const auto& row : rows)
        for (bool normalize : { true, false }) {
            RtNode* const node = pointLight(row.center, row.radius);
            RvNodeSetInt(node, "samples", 20);
            RvNodeSetBool(node, "normalize", normalize);
            prepare();
            const PhongLobe lobe = { rv::unitPrecise({ 0.5f, 0.1f, 1 }), row.exponent };
            const auto make = [](void* self) {
                RvMemPoolReset(rv::the_frame->thread_slots[0].shading_pool);
                return static_cast<LightMIS*>(self)->surface();
            };
            double want = quadrature(row.center, row.radius, lobe);
            const double d_sq = double(rv::dot(row.center, row.center));
            if (normalize)
                want /= 2 * M_PI * (1 - sqrt(1 - row.radius * row.radius / d_sq));
            EXPECT_NEAR(estimate(make, this, lobe, false), want, want * 0.01) << row.exponent;
            EXPECT_NEAR(estimate(make, this, lobe, true), want, want * 0.01) << row.exponent;
            startAnew();
        }
}

// ---- Debugging aids, which are read once in a process ----

class LightMISDebugging : public Lit {
protected:
    void SetUp() override
    {
        style = GTEST_FLAG_GET(death_test_style);
        GTEST_FLAG_SET(death_test_style, "threadsafe"); // in a process of its own
        Lit::SetUp();
    }
    void TearDown() override
    {
        Lit::TearDown();
        GTEST_FLAG_SET(death_test_style, style);
    }
    // A light of radiance 1, and its density.
    RtShaderGlobals litSurface()
    {
        RvNodeSetBool(pointLight({ 0, 0, 5 }, 1), "normalize", false);
        prepare();
        RtShaderGlobals sg = surface();
        RvLightsPrepare(&sg);
        RvLightsGetSample(&sg);
        return sg;
    }
    std::string style;                       // of death tests before
    static constexpr float density = 7.877f; // 1 / (2 pi (1 - sqrt(1 - 1 / 25)))

    // Ends the process with a report.
    static void finish(const std::string& got)
    {
        fprintf(stderr, "got %s.", got.c_str());
        _exit(0);
    }
};

static std::string rounded(const RtRGB& c)
{
    return node_tools::formatted("%.3f %.3f %.3f", double(c.r), double(c.g), double(c.b));
}

TEST_F(LightMISDebugging, with_brdf_samples_only_the_lights_own_samples_do_not_count)
{
    const auto act = [this] {
        setenv("RUVELL_BRDF_SAMPLES_ONLY", "1", 1);
        RtShaderGlobals sg = litSurface();
        const FixedLobe hit = { 0.5f, 2, { 0, 0, 1 }, {} }, miss = { 0.5f, 2, { 1, 0, 0 }, {} },
                        none = { 0.5f, 0, { 0, 0, 1 }, {} };
        std::string got = rounded(evaluateFixed(sg, hit)) + ", ";
        unsetenv("RUVELL_BRDF_SAMPLES_ONLY"); // was read already
        got += rounded(evaluateFixed(sg, miss)) + ", " + rounded(evaluateFixed(sg, none));
        finish(got);
    };
    EXPECT_EXIT(act(), ::testing::ExitedWithCode(0),
                "got 0.250 0.250 0.250, 0.000 0.000 0.000, 0.000 0.000 0.000");
}

TEST_F(LightMISDebugging, without_the_variable_both_count)
{
    const auto act = [this] {
        unsetenv("RUVELL_BRDF_SAMPLES_ONLY");
        RtShaderGlobals sg = litSurface();
        const FixedLobe lobe = { 0.5f, 2, { 1, 0, 0 }, {} };
        const std::string got = rounded(evaluateFixed(sg, lobe));
        setenv("RUVELL_BRDF_SAMPLES_ONLY", "1", 1); // too late
        const std::string again = rounded(evaluateFixed(sg, lobe));
        finish(got == again && got != "0.000 0.000 0.000" ? "the same" : got + again);
    };
    EXPECT_EXIT(act(), ::testing::ExitedWithCode(0), "got the same");
}

static void coloured(RtRGB* out, const void* data, const RtVector*)
{
    const float f = fixed(data).f;
    *out = { f, 2 * f, 3 * f };
}
static float unused(const void*, const RtVector*) { return 1000; }

TEST_F(LightMISDebugging, the_first_chromatic_function_serves_all_calls)
{
    const auto act = [this] {
        setenv("RUVELL_CHROMATIC_BRDF", "1", 1);
        RvNodeSetBool(pointLight({ 0, 0, 5 }, 0), "normalize", false);
        prepare();
        RtShaderGlobals sg = surface();
        RvLightsPrepare(&sg);
        RvLightsGetSample(&sg);
        const auto chromatic =
            reinterpret_cast<RtBRDFEvalFunc>(reinterpret_cast<void (*)()>(coloured));
        const FixedLobe a = { 0.5f, 1, { 0, 0, 1 }, {} }, b = { 0.25f, 1, { 0, 0, 1 }, {} };
        std::string got = rounded(RvEvaluateLightSample(&sg, &a, fixedSample, chromatic, fixedPdf));
        got += ", " + rounded(RvEvaluateLightSample(&sg, &b, fixedSample, unused, fixedPdf));
        finish(got);
    };
    EXPECT_EXIT(act(), ::testing::ExitedWithCode(0), "got 0.500 1.000 1.500, 0.250 0.500 0.750");
}

TEST_F(LightMISDebugging, chromatic_functions_serve_both_techniques)
{
    const auto act = [this] {
        setenv("RUVELL_CHROMATIC_BRDF", "1", 1);
        RtShaderGlobals sg = litSurface();
        const auto chromatic =
            reinterpret_cast<RtBRDFEvalFunc>(reinterpret_cast<void (*)()>(coloured));
        const FixedLobe lobe = { 1, 0, { 0, 0, 1 }, {} };
        const RtRGB c = RvEvaluateLightSample(&sg, &lobe, fixedSample, chromatic, fixedPdf);
        finish(rounded({ c.r * density, c.g * density, c.b * density }));
    };
    EXPECT_EXIT(act(), ::testing::ExitedWithCode(0), "got 1.000 2.000 3.000");
}
