// Tests of integrators.cpp: the loop that all share, and what each makes of the light around it.
#include "integrators.h"

#include "allocation_failures.h"
#include "gather_tools.h"
#include "statistics.h"

using namespace gather_tools;
using statistics::Direction;

namespace {

struct Integrator {
    const char* name;
    RtRGB (*run)(RtShaderGlobals* sg);
    const char* samples; // option
    const char* depth;   // option, or null
    RtSampleTable RtSampleTables::*table;
    RtLightingRow row;
    RtRayRow rays;
};

RtRGB stretchedPhong(RtShaderGlobals* sg)
{
    return RvStretchedPhongIntegrate(&sg->facing_normal, sg, 20);
}
template <int family> RtRGB ofStandard(RtShaderGlobals* sg)
{
    const rv::SpecularFamily& functions = rv::specular_families[family];
    return functions.integrate(functions.create(sg, nullptr, nullptr, 0.2f, 0.3f), sg);
}
RtRGB orenNayar(RtShaderGlobals* sg) { return RvOrenNayarIntegrate(&sg->facing_normal, sg, 0.5f); }
RtRGB refraction(RtShaderGlobals* sg)
{
    return RvMicrofacetBTDFIntegrate(&sg->facing_normal, sg, nullptr, nullptr, 0.2f, 0, 1, 1.5f,
                                     &RV_RGB_WHITE);
}

const Integrator integrators[] = {
    { "stretched Phong", stretchedPhong, "GI_glossy_samples", "GI_glossy_depth",
      &RtSampleTables::glossy, RV_LIGHTING_GLOSSY, RV_ROW_GLOSSY },
    { "standard's stretched Phong", ofStandard<0>, "GI_glossy_samples", "GI_glossy_depth",
      &RtSampleTables::glossy, RV_LIGHTING_GLOSSY, RV_ROW_GLOSSY },
    { "standard's Ward-Duer", ofStandard<1>, "GI_glossy_samples", "GI_glossy_depth",
      &RtSampleTables::glossy, RV_LIGHTING_GLOSSY, RV_ROW_GLOSSY },
    { "standard's Cook-Torrance", ofStandard<2>, "GI_glossy_samples", "GI_glossy_depth",
      &RtSampleTables::glossy, RV_LIGHTING_GLOSSY, RV_ROW_GLOSSY },
    { "Oren-Nayar", orenNayar, "GI_diffuse_samples", nullptr, &RtSampleTables::diffuse,
      RV_LIGHTING_DIFFUSE, RV_ROW_DIFFUSE },
    { "refraction", refraction, "GI_refraction_samples", nullptr, &RtSampleTables::refraction,
      RV_LIGHTING_GLOSSY, RV_ROW_REFRACTION },
};

using Integrators = Gathering;

} // namespace

// ---- The loop ----

TEST_F(Integrators, a_loop_traces_the_square_of_its_option)
{
    for (const Integrator& integrator : integrators)
        for (const int samples : { 1, 2, 5 }) {
            set(integrator.samples, samples);
            look({ 0, 0, 1 }); // along the normal nothing falls below the surface
            startRender();
            const uint64_t before = rays(integrator.rays);
            integrator.run(&sg);
            EXPECT_EQ(rays(integrator.rays) - before, uint64_t(samples * samples))
                << integrator.name << " " << samples;
        }
}

TEST_F(Integrators, no_samples_or_a_reached_depth_give_black_and_count_nothing)
{
    for (const Integrator& integrator : integrators) {
        startRender();
        for (const int samples : { 0, -3, INT32_MIN }) {
            set(integrator.samples, samples);
            expectGrey(integrator.run(&sg), 0, 0, integrator.name);
        }
        set(integrator.samples, 2);
        if (integrator.depth) {
            set(integrator.depth, 3);
            sg.glossy_depth = 3;
            expectGrey(integrator.run(&sg), 0, 0, integrator.name);
            sg.glossy_depth = 2;
            EXPECT_GT(integrator.run(&sg).r, 0) << integrator.name;
            sg.glossy_depth = 0;
            set(integrator.depth, 1);
        }
        EXPECT_EQ(counts(integrator.row), integrator.depth ? "1 0" : "0 0") << integrator.name;
        startAnew();
    }
}

TEST_F(Integrators, a_loop_walks_the_block_of_its_camera_sample_and_shows_its_place)
{
    for (const Integrator& integrator : integrators) {
        set("AA_samples", 2);
        set(integrator.samples, 3);
        look({ 0, 0, 1 });
        sg.sample_index = 2;
        startRender();
        integrator.run(&sg);
        ASSERT_EQ(shading().background_states.size(), 9u) << integrator.name;
        for (int i = 0; i < 9; ++i) {
            EXPECT_EQ(shading().background_states[size_t(i)].loop_samples, 9) << integrator.name;
            EXPECT_EQ(shading().background_states[size_t(i)].loop_index, 18 + i) << integrator.name;
        }
        EXPECT_EQ(state.loop_samples, 0) << integrator.name;
        EXPECT_EQ(state.loop_index, 0) << integrator.name;
        startAnew();
    }
}

TEST_F(Integrators, the_points_of_the_table_are_rotated_and_wrapped)
{
    set("GI_glossy_samples", 4);
    look({ 0, 0, 1 });
    startRender();
    setRotation(0.75, 0.5);
    stretchedPhong(&sg);
    const std::vector<RtVector> directions = takeDirections();
    ASSERT_EQ(directions.size(), 16u);
    for (size_t i = 0; i < 16; ++i) {
        const RtPoint2& p = rv::sample_tables->glossy.points[i];
        const float u = p.x + 0.75f - floorf(p.x + 0.75f), v = p.y + 0.5f - floorf(p.y + 0.5f);
        EXPECT_NEAR(directions[i].z, powf(u, 1.0f / 21), 1e-5) << i;
        const float phi = rv::two_pi * v, s = sqrtf(1 - directions[i].z * directions[i].z);
        EXPECT_NEAR(directions[i].x, s * cosf(phi), 2e-3) << i;
        EXPECT_NEAR(directions[i].y, s * sinf(phi), 2e-3) << i;
    }
}

TEST_F(Integrators, a_nested_loop_takes_the_rotation_as_its_one_sample)
{
    for (const Integrator& integrator : integrators) {
        set(integrator.samples, 4);
        look({ 0, 0, 1 });
        startRender();
        setRotation(0.6, 0.25);
        nest(7, 5);
        integrator.run(&sg);
        EXPECT_EQ(state.loop_samples, 7) << integrator.name;
        EXPECT_EQ(state.loop_index, 5) << integrator.name;
        ASSERT_EQ(shading().background_states.size(), 1u) << integrator.name;
        EXPECT_EQ(shading().background_states[0].loop_samples, 7) << integrator.name;
        const std::vector<RtVector> directions = takeDirections();
        EXPECT_NEAR(directions[0].x, 0, 1e-3) << integrator.name << ": a quarter of a turn";
        EXPECT_GT(fabsf(directions[0].y), 1e-3) << integrator.name;
        startAnew();
    }
}

TEST_F(Integrators, counts_are_primary_or_secondary_and_only_those_of_pixels)
{
    for (const Integrator& integrator : integrators) {
        startRender();
        set(integrator.samples, 1);
        integrator.run(&sg);
        integrator.run(&sg);
        EXPECT_EQ(counts(integrator.row), "2 0") << integrator.name;
        nest();
        integrator.run(&sg);
        EXPECT_EQ(counts(integrator.row), "2 1") << integrator.name;
        for (const RtPass pass : { RV_PASS_SSS, RV_PASS_HAIR }) {
            state.pass = pass;
            integrator.run(&sg);
        }
        EXPECT_EQ(counts(integrator.row), "2 1") << integrator.name;
        startAnew();
    }
}

TEST_F(Integrators, contexts_without_a_state_run_whole_loops)
{
    for (const Integrator& integrator : integrators) {
        set(integrator.samples, 3);
        look({ 0, 0, 1 });
        sg.state = nullptr;
        startRender();
        integrator.run(&sg);
        EXPECT_EQ(takeDirections().size(), 9u) << integrator.name;
        EXPECT_EQ(counts(integrator.row), "1 0") << integrator.name;
        startAnew();
    }
}

TEST_F(Integrators, without_tables_the_points_are_well_distributed_all_the_same)
{
    for (const Integrator& integrator : integrators) {
        set(integrator.samples, 8);
        look({ 0, 0, 1 });
        prepare();
        rv::the_frame->session->releaseSamplers(); // as after a render
        setRotation(0, 0);
        integrator.run(&sg);
        const std::vector<RtVector> directions = takeDirections();
        EXPECT_EQ(directions.size(), 64u) << integrator.name;
        int quadrants[4] = {};
        for (const RtVector& d : directions)
            ++quadrants[(d.x > 0) + 2 * (d.y > 0)];
        for (const int count : quadrants)
            EXPECT_NEAR(count, 16, 2) << integrator.name;
        startAnew();
    }
}

TEST_F(Integrators, rays_leave_the_point_with_the_next_depth)
{
    const RtPoint place = { 5, 6, 7 };
    for (const Integrator& integrator : integrators) {
        set(integrator.samples, 1);
        look({ 0, 0, 1 });
        sg.point = place;
        startRender();
        integrator.run(&sg);
        ASSERT_EQ(shading().background_contexts.size(), 1u) << integrator.name;
        const RtShaderGlobals& seen = shading().background_contexts[0];
        EXPECT_EQ(describe(seen.ray_origin), describe(place)) << integrator.name;
        EXPECT_EQ(seen.ray_depth, 1) << integrator.name;
        EXPECT_EQ(seen.glossy_depth + seen.diffuse_depth + seen.refraction_depth, 1)
            << integrator.name;
        EXPECT_EQ(seen.parent, &sg) << integrator.name;
        startAnew();
    }
}

TEST_F(Integrators, loops_take_no_memory_from_the_heap)
{
    startRender();
    for (const Integrator& integrator : integrators) {
        set(integrator.samples, 2);
        shading().background_contexts.reserve(100);
        shading().background_states.reserve(100);
        withAllocations(0, [&] { EXPECT_GT(integrator.run(&sg).r, 0) << integrator.name; });
    }
}

TEST_F(Integrators, nulls_and_normals_that_are_no_numbers_give_black)
{
    startRender();
    expectGrey(RvStretchedPhongIntegrate(nullptr, &sg, 1), 0, 0, "N");
    expectGrey(RvStretchedPhongIntegrate(&sg.normal, nullptr, 1), 0, 0, "sg");
    expectGrey(RvOrenNayarIntegrate(nullptr, &sg, 1), 0, 0, "N");
    expectGrey(RvOrenNayarIntegrate(&sg.normal, nullptr, 1), 0, 0, "sg");
    const auto refract = [&](const RtVector* N, RtShaderGlobals* context) {
        return RvMicrofacetBTDFIntegrate(N, context, nullptr, nullptr, 1, 1, 1, 1, nullptr);
    };
    expectGrey(refract(nullptr, &sg), 0, 0, "N");
    expectGrey(refract(&sg.normal, nullptr), 0, 0, "sg");
    for (const rv::SpecularFamily& family : rv::specular_families) {
        expectGrey(family.integrate(nullptr, &sg), 0, 0, "record");
        expectGrey(family.integrate(family.create(&sg, nullptr, nullptr, 1, 1), nullptr), 0, 0,
                   "sg");
    }
    for (const float odd : { NAN, INFINITY, 3e38f }) {
        const RtVector N = { 0, odd, 1 };
        expectGrey(RvStretchedPhongIntegrate(&N, &sg, 1), 0, 0, "odd N");
        expectGrey(RvOrenNayarIntegrate(&N, &sg, 1), 0, 0, "odd N");
        expectGrey(refract(&N, &sg), 0, 0, "odd N");
        sg.ray_dir = N;
        for (const Integrator& integrator : integrators)
            integrator.run(&sg); // no ray may be corrupt, which would end the process
    }
    EXPECT_EQ(takeProblem(), "");
}

TEST(IntegratorsWithoutUniverse, give_black)
{
    RtShaderGlobals sg = {};
    const RtVector N = { 0, 0, 1 };
    EXPECT_EQ(RvStretchedPhongIntegrate(&N, &sg, 1).r, 0);
    EXPECT_EQ(RvOrenNayarIntegrate(&N, &sg, 1).r, 0);
    EXPECT_EQ(RvMicrofacetBTDFIntegrate(&N, &sg, nullptr, nullptr, 1, 1, 1, 1, &RV_RGB_WHITE).r, 0);
}

// ---- Glossy lobes ----

TEST_F(Integrators, stretched_phong_seen_along_the_normal_reflects_all_light)
{
    set("GI_glossy_samples", 64);
    startRender();
    look({ 0, 0, 1 });
    for (const float n : { 0.0f, 1.0f, 10.0f, 200.0f })
        expectGrey(RvStretchedPhongIntegrate(&sg.normal, &sg, n), 1, 0.004, std::to_string(n));
}

TEST_F(Integrators, stretched_phong_weighs_its_directions_by_the_stretch)
{
    set("GI_glossy_samples", 6);
    startRender();
    look(directionAt(50, 25));
    const RtRGB got = RvStretchedPhongIntegrate(&sg.normal, &sg, 3);
    double sum = 0;
    for (const RtVector& d : takeDirections()) {
        EXPECT_GT(d.z, 0);
        sum += std::min(1.0, double(d.z) / double(-sg.ray_dir.z));
    }
    expectGrey(got, sum / 36 * (1 + 1.0 / 4), 1e-5, "stretched Phong");
}

TEST_F(Integrators, stretched_phong_seen_from_below_its_normal_is_not_stretched)
{
    set("GI_glossy_samples", 6);
    startRender();
    sg.ray_dir = directionAt(60, 205);
    setNormals({ 0, 0, 1 });
    const RtRGB got = RvStretchedPhongIntegrate(&sg.normal, &sg, 3);
    // The mirror direction is below, and so is the surface.
    const size_t traced = takeDirections().size();
    EXPECT_GT(traced, 0u);
    expectGrey(got, double(traced) / 36 * 1.25, 1e-5, "from below");
}

TEST_F(Integrators, stretched_phong_traces_nothing_below_the_geometric_surface)
{
    set("GI_glossy_samples", 8);
    startRender();
    look(directionAt(80, 0));
    const RtVector N = directionAt(20, 180);
    RvStretchedPhongIntegrate(&N, &sg, 2);
    const std::vector<RtVector> directions = takeDirections();
    EXPECT_GT(directions.size(), 5u);
    EXPECT_LT(directions.size(), 64u);
    for (const RtVector& d : directions)
        EXPECT_GE(d.z, 0);
    sg.geometric_normal = { 0, 0, -1 }; // the other side of the same surface
    RvStretchedPhongIntegrate(&N, &sg, 2);
    for (const RtVector& d : takeDirections())
        EXPECT_GE(d.z, 0);
}

// Against the quadrature of the lobe's values.
TEST_F(Integrators, the_lobes_of_standard_reflect_what_their_values_integrate_to)
{
    set("GI_glossy_samples", 64);
    startRender();
    for (const double angle : { 20.0, 65.0 }) {
        const RtVector V = directionAt(angle, 25);
        look(V);
        for (const rv::SpecularFamily& family : rv::specular_families)
            for (const float roughness : { 0.1f, 0.3f, 0.7f })
                for (const bool physically_based : { true, false }) {
                    set("physically_based", physically_based);
                    void* const data = family.create(&sg, nullptr, nullptr, roughness, roughness);
                    const statistics::SphereCells cells({ -V.x, -V.y, V.z }, 3);
                    const double albedo = statistics::integralOver(
                        cells,
                        [&](const Direction& d) {
                            const RtVector direction = { float(d.x), float(d.y), float(d.z) };
                            return d.z > 0 ? double(family.evaluate(data, &direction)) : 0.0;
                        },
                        8);
                    expectGrey(family.integrate(data, &sg), albedo, 0.01 * albedo,
                               std::to_string(&family - rv::specular_families) + " roughness " +
                                   std::to_string(roughness) + " at " + std::to_string(angle));
                }
    }
}

TEST_F(Integrators, the_lobes_of_standard_see_the_colours_of_the_environment)
{
    set("GI_glossy_samples", 64);
    environment() = [](const RtVector& d) {
        return RtRGB{ d.x > 0 ? 1.0f : 0.0f, d.y > 0 ? 1.0f : 0.0f, 0.25f };
    };
    startRender();
    look(directionAt(40, 0)); // the mirror direction has a negative x
    for (const rv::SpecularFamily& family : rv::specular_families) {
        const RtRGB got = family.integrate(family.create(&sg, nullptr, nullptr, 0.15f, 0.15f), &sg);
        EXPECT_LT(got.r, 0.1f);
        EXPECT_NEAR(got.g, 2 * got.b, 0.02f);
    }
}

TEST_F(Integrators, the_lobes_of_standard_trace_nothing_below_either_surface)
{
    set("GI_glossy_samples", 16);
    startRender();
    look(directionAt(75, 0));
    sg.facing_normal = directionAt(15, 90);
    for (const rv::SpecularFamily& family : rv::specular_families) {
        family.integrate(family.create(&sg, nullptr, nullptr, 0.6f, 0.6f), &sg);
        const std::vector<RtVector> directions = takeDirections();
        EXPECT_GT(directions.size(), 100u);
        EXPECT_LT(directions.size(), 256u);
        for (const RtVector& d : directions) {
            EXPECT_GE(d.z, 0);
            EXPECT_GT(dot(d, sg.facing_normal), 0);
        }
    }
}

TEST_F(Integrators, ward_duer_traces_nothing_for_a_viewer_below_its_normal)
{
    set("GI_glossy_samples", 4);
    startRender();
    void* const data = RvWardDuerMISCreateData(&sg, nullptr, nullptr, 0.3f, 0.3f);
    sg.facing_normal = sg.ray_dir;
    expectGrey(rv::integrateWardDuer(data, &sg), 0, 0, "from below");
    EXPECT_EQ(takeDirections().size(), 0u);
    EXPECT_EQ(state.loop_samples, 0);
}

TEST_F(Integrators, ward_duer_is_sampled_around_the_facing_normal_with_bounded_roughness)
{
    set("GI_glossy_samples", 16);
    startRender();
    look(directionAt(30, 25));
    for (const float roughness : { 0.0f, 50.0f }) {
        void* const data = RvWardDuerMISCreateData(&sg, nullptr, nullptr, roughness, roughness);
        rv::integrateWardDuer(data, &sg);
        double spread = 0;
        const RtVector mirror = rv::mirrored(sg.ray_dir, sg.facing_normal);
        const std::vector<RtVector> directions = takeDirections();
        for (const RtVector& d : directions)
            spread += acos(std::min(1.0, double(dot(d, mirror)))) / double(directions.size());
        if (roughness > 1)
            EXPECT_NEAR(spread, 1, 0.4) << "as if it were 1";
        else
            EXPECT_NEAR(spread, 1.8e-4, 1.2e-4) << "as if it were 0.0001";
    }
    // A record made for another normal.
    void* const data = RvWardDuerMISCreateData(&sg, nullptr, nullptr, 0.01f, 0.01f);
    sg.facing_normal = directionAt(10, 115);
    rv::integrateWardDuer(data, &sg);
    const RtVector mirror = rv::mirrored(sg.ray_dir, sg.facing_normal);
    for (const RtVector& d : takeDirections())
        EXPECT_GT(dot(d, mirror), 0.98f);
}

// ---- Rough diffuse ----

TEST_F(Integrators, oren_nayar_without_roughness_is_the_plain_mean_of_the_colours)
{
    environment() = [](const RtVector& d) { return RtRGB{ d.z, d.x + 2, d.y + 2 }; };
    set("GI_diffuse_samples", 5);
    for (const bool physically_based : { false, true }) {
        set("physically_based", physically_based);
        startRender();
        const RtRGB got = RvOrenNayarIntegrate(&sg.normal, &sg, 0);
        RtVector sum = { 0, 0, 0 };
        const std::vector<RtVector> directions = takeDirections();
        ASSERT_EQ(directions.size(), 25u);
        for (const RtVector& d : directions)
            sum = sum + RtVector{ d.z, d.x + 2, d.y + 2 };
        EXPECT_NEAR(got.r, sum.x / 25, 1e-5);
        EXPECT_NEAR(got.g, sum.y / 25, 1e-5);
        EXPECT_NEAR(got.b, sum.z / 25, 1e-5);
    }
}

TEST_F(Integrators, oren_nayar_weighs_the_colours_by_its_reflectance)
{
    set("GI_diffuse_samples", 6);
    for (const bool physically_based : { false, true }) {
        set("physically_based", physically_based);
        startRender();
        look(directionAt(65, 25));
        const RtRGB got = RvOrenNayarIntegrate(&sg.normal, &sg, 0.6f);
        const RtVector V = sg.ray_dir * -1.0f;
        double sum = 0;
        set("physically_based", false);
        for (const RtVector& d : takeDirections())
            sum += double(RvOrenNayarBRDF(&d, &V, &sg.normal, 0.6f));
        expectGrey(got, sum / 36, 1e-5, physically_based ? "physically based" : "not");
    }
}

TEST_F(Integrators, oren_nayar_knows_no_depth_and_no_geometric_surface)
{
    set("GI_diffuse_samples", 4);
    set("GI_diffuse_depth", 0);
    startRender();
    sg.geometric_normal = sg.facing_geometric_normal = { 0, 0, -1 };
    EXPECT_EQ(RvOrenNayarIntegrate(&sg.normal, &sg, 0.5f).r, 0) << "the tracer refuses its rays";
    EXPECT_EQ(counts(RV_LIGHTING_DIFFUSE), "1 0");
    set("GI_diffuse_depth", 1);
    EXPECT_GT(RvOrenNayarIntegrate(&sg.normal, &sg, 0.5f).r, 0.5f);
    EXPECT_EQ(takeDirections().size(), 16u);
}

// ---- Rough refraction ----

namespace {

class Refractions : public Gathering {
protected:
    RtRGB refracted(float roughness, float eta_in, float eta_out, const RtRGB& T = RV_RGB_WHITE)
    {
        return RvMicrofacetBTDFIntegrate(&sg.facing_normal, &sg, nullptr, nullptr, roughness, 0,
                                         eta_in, eta_out, &T);
    }

    // The mean weight by a fine grid over the square, in double precision.
    double meanWeight(double roughness, double eta) const
    {
        constexpr int steps = 1000;
        const RtVector V = sg.ray_dir * -1.0f;
        double sum = 0;
        for (int i = 0; i < steps; ++i)
            for (int k = 0; k < steps; ++k) {
                const double tan2 = -roughness * roughness * log(1 - (i + 0.5) / steps);
                const double c = 1 / sqrt(1 + tan2), s = sqrt(tan2) * c;
                const double phi = 2 * M_PI * (k + 0.5) / steps;
                const double m[3] = { s * cos(phi), s * sin(phi), c };
                const double mV = m[0] * V.x + m[1] * V.y + m[2] * V.z;
                const double root = 1 - (1 - mV * mV) * eta * eta;
                if (root < 0)
                    continue; // not in this test
                // z of the refracted direction: eta (I - (m.I) m) - sqrt(k) m
                const double z = eta * (-V.z + mV * m[2]) - sqrt(root) * m[2];
                sum += fabs(mV) * shadowing(roughness, fabs(z)) * shadowing(roughness, V.z) /
                       (c * V.z);
            }
        return sum / steps / steps;
    }
    static double shadowing(double roughness, double cosine)
    {
        const double a = 1 / (roughness * sqrt(1 - cosine * cosine) / cosine);
        return a >= 1.6 ? 1 : (3.535 * a + 2.181 * a * a) / (1 + 2.276 * a + 2.577 * a * a);
    }
};

} // namespace

TEST_F(Refractions, a_smooth_surface_bends_one_ray)
{
    set("GI_refraction_samples", 4);
    startRender();
    look(directionAt(40, 25));
    expectGrey(refracted(0, 1, 1.5f), 1, 1e-5, "smooth");
    ASSERT_EQ(shading().background_states.size(), 1u);
    EXPECT_EQ(shading().background_states[0].loop_samples, 0) << "no loop";
    RtVector T;
    RvRefract(&sg.ray_dir, &sg.normal, 1, 1.5f, &T);
    const std::vector<RtVector> directions = takeDirections();
    EXPECT_GT(dot(directions[0], T), 0.999999f);
}

TEST_F(Refractions, one_rough_sample_is_a_loop_too)
{
    set("GI_refraction_samples", 1);
    startRender();
    look(directionAt(40, 25));
    refracted(0.1f, 1, 1.5f);
    ASSERT_EQ(shading().background_states.size(), 1u);
    EXPECT_EQ(shading().background_states[0].loop_samples, 1);
}

TEST_F(Refractions, equal_indices_let_rays_pass_straight)
{
    set("GI_refraction_samples", 4);
    startRender();
    look(directionAt(40, 25));
    refracted(0.3f, 1.5f, 1.5f);
    const std::vector<RtVector> directions = takeDirections();
    EXPECT_GT(directions.size(), 10u);
    for (const RtVector& d : directions)
        EXPECT_EQ(describe(d), describe(sg.ray_dir));
}

TEST_F(Refractions, the_mean_weight_is_that_of_the_microfacets)
{
    set("GI_refraction_samples", 64);
    startRender();
    for (const double angle : { 10.0, 60.0 })
        for (const float roughness : { 0.05f, 0.3f, 0.8f }) {
            look(directionAt(angle, 25));
            const double want = meanWeight(roughness, 1 / 1.5);
            expectGrey(refracted(roughness, 1, 1.5f), want, 0.005 * want,
                       std::to_string(angle) + " " + std::to_string(roughness));
        }
}

TEST_F(Refractions, total_reflection_turns_rays_back)
{
    set("GI_refraction_samples", 4);
    startRender();
    look(directionAt(70, 25));
    refracted(0.01f, 1.5f, 1);
    const std::vector<RtVector> directions = takeDirections();
    ASSERT_EQ(directions.size(), 16u);
    const RtVector mirror = rv::mirrored(sg.ray_dir, sg.normal);
    for (const RtVector& d : directions)
        EXPECT_GT(dot(d, mirror), 0.99f);
    // A geometric normal that the mirror direction is below.
    sg.geometric_normal = directionAt(35, 25);
    const RtVector safe = rv::mirrored(sg.ray_dir, sg.geometric_normal);
    ASSERT_LT(dot(mirror, sg.geometric_normal), 0);
    refracted(0.001f, 1.5f, 1);
    for (const RtVector& d : takeDirections())
        EXPECT_GT(dot(d, safe), 0.999f);
}

TEST_F(Refractions, the_depth_limit_makes_samples_black)
{
    set("GI_refraction_samples", 3);
    startRender();
    set("GI_refraction_depth", 2);
    sg.refraction_depth = 2;
    expectGrey(refracted(0.1f, 1, 1.5f), 0, 0, "at the limit");
    EXPECT_EQ(takeDirections().size(), 0u);
    EXPECT_EQ(counts(RV_LIGHTING_GLOSSY), "1 0") << "counted all the same";
    EXPECT_EQ(state.loop_samples, 0);
    sg.refraction_depth = 1;
    EXPECT_GT(refracted(0.1f, 1, 1.5f).r, 0.5f);
}

TEST_F(Refractions, media_absorb_light_on_entering_rays)
{
    disc("floor", -2);
    set("GI_refraction_samples", 2);
    startRender();
    look({ 0, 0, 1 });
    const RtRGB clear = refracted(1e-4f, 1, 1.5f);
    expectGrey(clear, 1, 1e-3, "clear");
    const RtRGB got = refracted(1e-4f, 1, 1.5f, { 0.5f, 1, 0.25f });
    EXPECT_NEAR(got.r, 0.25f, 1e-3);
    EXPECT_NEAR(got.g, 1, 1e-3);
    EXPECT_NEAR(got.b, 0.0625f, 1e-3);
    const RtRGB odd = refracted(1e-4f, 1, 1.5f, { 0, 7, -1 });
    EXPECT_EQ(odd.r, 0);
    EXPECT_NEAR(odd.g, 1, 1e-3) << "clamped";
    EXPECT_EQ(odd.b, 0);
    sg.geometric_normal = { 0, 0, -1 }; // on the way out
    expectGrey(refracted(1e-4f, 1, 1.5f, { 0.5f, 0.5f, 0.5f }), 1, 1e-3, "leaving");
}

TEST_F(Refractions, a_medium_without_an_end_absorbs_everything)
{
    set("GI_refraction_samples", 2);
    startRender();
    const RtRGB got = refracted(0.1f, 1, 1.5f, { 0.5f, 1, 0.5f });
    EXPECT_EQ(got.r, 0);
    EXPECT_GT(got.g, 0.5f);
}

TEST_F(Refractions, a_null_transmittance_is_white_and_reserved_arguments_mean_nothing)
{
    disc("floor", -2);
    set("GI_refraction_samples", 2);
    startRender();
    look({ 0, 0, 1 });
    const RtRGB white = refracted(0.2f, 1, 1.5f);
    const RtRGB null =
        RvMicrofacetBTDFIntegrate(&sg.normal, &sg, &sg, &sg, 0.2f, 123, 1, 1.5f, nullptr);
    EXPECT_EQ(describe(null), describe(white));
}
