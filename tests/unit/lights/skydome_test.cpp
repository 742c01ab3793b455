// Tests of core/src/lights/skydome.cpp: the "skydome_light" node.
#include "lights/skydome.h"

#include "light_map_tools.h"
#include "rv_textures.h"

using namespace light_map_tools;

class Skydomes : public MappedLights {
protected:
    // A soft disc around a direction that shines with a total of 1.
    void setDisc(const RtVector& axis, float degrees)
    {
        const float cos_limit = cosf(degrees * pi / 180), extent = 2 * pi * (1 - cos_limit);
        const float sine = sqrtf(1 - cos_limit * cos_limit);
        colorBy([=](RtShaderGlobals* sg) {
            const float width = sine * sqrtf(rv::dot(sg->dDdx, sg->dDdx));
            const float inside = (rv::dot(sg->ray_dir, axis) - cos_limit) / width + 0.5f;
            return rv::grey(std::clamp(inside, 0.0f, 1.0f) / extent);
        });
    }
    // A smooth, rough and strongly coloured sky.
    static RtRGB roughSky(RtShaderGlobals* sg)
    {
        const RtVector& d = sg->ray_dir;
        return { 0.1f + d.x * d.x, expf(3 * d.z), 0.5f + 0.5f * sinf(9 * d.y) };
    }
};

// ---- The square and the sphere ----

TEST_F(Skydomes, directions_agree_with_the_golden_vectors)
{
    for (const auto& v : goldenVectors("lights", "skydome_forward")) {
        const RtVector d = rv::skyDirection(goldenFloat(v["in"]["u"]), goldenFloat(v["in"]["v"]));
        expectGoldenNumbers(v, "dir", { d.x, d.y, d.z });
    }
}

TEST_F(Skydomes, places_agree_with_the_golden_vectors)
{
    for (const auto& v : goldenVectors("lights", "skydome_inverse")) {
        const std::vector<float> d = goldenFloats(v["in"]["dir"]);
        const RtPoint2 p = rv::skySquare({ d[0], d[1], d[2] });
        expectGoldenNumbers(v, "uv", { p.x, p.y });
    }
}

TEST_F(Skydomes, the_centre_of_the_square_is_up_and_its_corners_are_down)
{
    EXPECT_EQ(text(rv::skyDirection(0.5f, 0.5f)), "0 0 1");
    for (float u : { 0.0f, 1.0f })
        for (float v : { 0.0f, 1.0f }) {
            const RtVector d = rv::skyDirection(u, v);
            EXPECT_NEAR(d.x, 0, 1e-6);
            EXPECT_NEAR(d.y, 0, 1e-6);
            EXPECT_EQ(d.z, -1);
        }
}

TEST_F(Skydomes, places_and_directions_are_each_others_inverse)
{
    constexpr int n = 200;
    for (int j = 0; j <= n; ++j)
        for (int i = 0; i <= n; ++i) {
            const float u = float(i) / n, v = float(j) / n;
            const RtVector d = rv::skyDirection(u, v);
            EXPECT_NEAR(rv::dot(d, d), 1, 1e-6);
            const RtPoint2 p = rv::skySquare(d);
            const RtVector back = rv::skyDirection(p.x, p.y);
            EXPECT_NEAR(rv::dot(back - d, back - d), 0, 1e-11) << u << " " << v;
            const bool is_inside = i > 0 && j > 0 && i < n && j < n;
            if (is_inside) { // -z lies at all four corners, and edges fold onto themselves
                EXPECT_NEAR(p.x, u, 2e-5) << v;
                EXPECT_NEAR(p.y, v, 2e-5) << u;
            }
        }
}

TEST_F(Skydomes, every_direction_has_a_place)
{
    Uniform uniform(1);
    for (int i = 0; i < 100000; ++i) {
        RtVector d = { uniform() - 0.5f, uniform() - 0.5f, uniform() - 0.5f };
        if (i % 3 == 0)
            (i % 2 ? d.x : d.y) = i % 4 ? 0.0f : -0.0f; // along an axis
        d = rv::unitPrecise(d);
        const RtPoint2 p = rv::skySquare(d);
        ASSERT_TRUE(p.x >= 0 && p.x <= 1 && p.y >= 0 && p.y <= 1) << text(d);
        const RtVector back = rv::skyDirection(p.x, p.y);
        ASSERT_NEAR(rv::dot(back, d), 1, 1e-6) << text(d);
    }
}

TEST_F(Skydomes, equal_areas_have_equal_solid_angles)
{
    constexpr int samples = 1000000;
    const auto draw = [](float u, float v, statistics::Direction* d) {
        const RtVector dir = rv::skyDirection(u, v);
        *d = { double(dir.x), double(dir.y), double(dir.z) };
        return true;
    };
    const auto uniform = [](const statistics::Direction&) { return 1 / (4 * M_PI); };
    for (const statistics::Direction& axis :
         { statistics::Direction{ 0, 0, 1 }, { 1, 0.2, -0.1 } }) {
        const auto test =
            statistics::testSampler(statistics::SphereCells(axis), samples, 2, draw, uniform);
        EXPECT_GT(test.chi_square.p, 0.005) << test.describe();
    }
}

// ---- Light ----

TEST_F(Skydomes, a_constant_sky_gives_a_white_diffuse_surface_its_radiance)
{
    for (const bool linked : { false, true })
        for (int resolution : { 1, 7, 100 }) {
            skydome(resolution);
            RvNodeSetInt(node, "samples", 40);
            RvNodeSetFlt(node, "intensity", 0.5f);
            if (linked)
                colorBy([](RtShaderGlobals*) { return RV_RGB_WHITE; });
            prepare();
            for (const RtVector& normal :
                 { RtVector{ 0, 0, 1 }, { 0, 0, -1 }, { 1, 0, 0 }, rv::unit({ 1, -2, 0.5f }) })
                EXPECT_NEAR(irradiance({ 3, 4, 5 }, normal) / M_PI, 0.5, 0.0025)
                    << linked << resolution << text(normal);
            startAnew();
        }
}

TEST_F(Skydomes, a_small_bright_disc_agrees_with_a_distant_light)
{
    const RtVector axis = rv::unit({ 0.5f, 0.3f, 0.8f });
    for (float degrees : { 1.5f, 10.0f }) {
        const auto measure = [&] {
            std::vector<double> all;
            for (const RtVector& normal : { RtVector{ 0, 0, 1 }, { 1, 0, 0 }, axis })
                all.push_back(irradiance({ 0, 0, 0 }, normal));
            return all;
        };
        RtNode* const sun = distantLight({ -axis.x, -axis.y, -axis.z }, 2 * degrees);
        RvNodeSetInt(sun, "samples", 30);
        prepare();
        const std::vector<double> want = measure();
        startAnew();
        skydome(1000);
        setDisc(axis, degrees);
        RvNodeSetInt(node, "samples", 30);
        prepare();
        const std::vector<double> got = measure();
        for (size_t i = 0; i < want.size(); ++i)
            EXPECT_NEAR(got[i], want[i], 0.01 * want[i]) << degrees << " " << i;
        startAnew();
    }
}

TEST_F(Skydomes, samples_carry_the_colour_of_their_direction)
{
    skydome(16);
    RvNodeSetInt(node, "samples", 4);
    RvNodeSetFlt(node, "intensity", 2);
    RvNodeSetBool(node, "mis", false);
    colorBy([](RtShaderGlobals* sg) { return rv::grey(1.5f + sg->ray_dir.x); });
    prepare();
    RtShaderGlobals sg = surface();
    sg.front_hemisphere_only = 0;
    const std::vector<Sample> all = samplesAt(sg);
    EXPECT_EQ(all.size(), 16u);
    double sum = 0;
    for (const Sample& s : all) {
        EXPECT_NEAR(s.radiance.r, 2 * (1.5f + s.dir.x), 1e-5);
        EXPECT_EQ(s.dist, 1e12f);
        EXPECT_EQ(s.count, 16);
        sum += double(s.weight);
    }
    EXPECT_NEAR(sum, 4 * M_PI, 2); // weights are those of a quadrature of the sphere
}

TEST_F(Skydomes, the_format_places_directions_in_the_image)
{
    using Mapping = void (*)(const RtVector*, float*, float*);
    const std::pair<const char*, Mapping> formats[] = { { "mirrored_ball", RvMappingMirroredBall },
                                                        { "angular", RvMappingAngularMap },
                                                        { "latlong", RvMappingLatLong },
                                                        { "cubic", RvMappingCubicMap } };
    for (const auto& [name, mapping] : formats) {
        skydome(16);
        RvNodeSetInt(node, "samples", 8);
        RvNodeSetStr(node, "format", name);
        RtVector differential = {};
        colorBy([&, format = name](RtShaderGlobals* sg) {
            differential = sg->dDdx;
            EXPECT_TRUE(std::isfinite(sg->dudx) && std::isfinite(sg->dvdy)) << format;
            EXPECT_TRUE(sg->dudx != 0 || sg->dvdx != 0 || sg->dudy != 0) << format;
            EXPECT_EQ(sg->bary_u, sg->u);
            return RtRGB{ 1 + sg->u, 1 + sg->v, 1 };
        });
        prepare();
        RtShaderGlobals sg = surface();
        sg.front_hemisphere_only = 0;
        for (const Sample& s : samplesAt(sg)) {
            float u, v;
            mapping(&s.dir, &u, &v);
            EXPECT_NEAR(s.radiance.r, 1 + u, 1e-4) << name << " " << text(s.dir);
            EXPECT_NEAR(s.radiance.g, 1 + v, 1e-4) << name << " " << text(s.dir);
        }
        // The footprint of a cell of the table.
        EXPECT_NEAR(rv::dot(differential, differential), 4 * M_PI / (16 * 16), 1e-4) << name;
        startAnew();
    }
}

TEST_F(Skydomes, samples_below_the_surface_are_black)
{
    skydome();
    RvNodeSetInt(node, "samples", 10);
    RvNodeSetBool(node, "mis", false);
    prepare();
    const auto countBelow = [](const std::vector<Sample>& all) {
        return std::count_if(all.begin(), all.end(), [](const Sample& s) { return s.dir.z <= 0; });
    };
    EXPECT_EQ(countBelow(samples()), 0);
    EXPECT_NEAR(double(samples().size()), 50, 3);
    RtShaderGlobals sg = surface();
    sg.front_hemisphere_only = 0;
    EXPECT_NEAR(double(countBelow(samplesAt(sg))), 50, 3);
    // With multiple importance sampling every sample brings one of the BRDF along.
    RvNodeSetBool(node, "mis", true);
    prepare();
    const std::vector<Sample> all = samples();
    EXPECT_EQ(all.size(), 100u);
    for (const Sample& s : all)
        EXPECT_EQ(s.radiance.g, s.dir.z > 0 ? 1 : 0);
}

TEST_F(Skydomes, objects_cast_shadows_on_what_they_hide_from_the_sky)
{
    skydome();
    RvNodeSetInt(node, "samples", 40);
    disc("roof", 1); // of 90 degrees: half of the irradiance
    RtNode* const floor = disc("floor", 0);
    const auto brightness = [&] {
        prepare();
        RtShaderGlobals sg = surface();
        sg.object = floor;
        double sum = 0;
        for (const Sample& s : samplesAt(sg))
            sum += double(s.radiance.r * s.weight * std::max(s.dir.z, 0.0f));
        return sum / M_PI;
    };
    EXPECT_NEAR(brightness(), 0.5, 0.01);
    RvNodeSetBool(node, "cast_shadows", false);
    EXPECT_NEAR(brightness(), 1, 0.005);
}

TEST_F(Skydomes, the_bounce_factor_does_not_scale_bounced_light)
{
    skydome();
    RvNodeSetFlt(node, "bounce_factor", 0.25f);
    prepare();
    RtShaderGlobals sg = surface();
    sg.diffuse_depth = 1;
    RvLightsPrepare(&sg);
    ASSERT_TRUE(RvLightsGetSample(&sg));
    EXPECT_EQ(sg.light_unoccluded.r, sg.light_dir.z > 0 ? 1 : 0);
    ASSERT_TRUE(ask(sg, { 0, 0, 1 }));
    EXPECT_EQ(sg.light_radiance.r, 1);
}

TEST_F(Skydomes, colours_that_are_no_numbers_shine_black)
{
    skydome(8);
    RvNodeSetInt(node, "samples", 8);
    colorBy([](RtShaderGlobals* sg) {
        return sg->ray_dir.x > 0 ? RtRGB{ NAN, INFINITY, 2 } : RtRGB{ 1, 1, 1 };
    });
    prepare();
    RtShaderGlobals sg = surface();
    sg.front_hemisphere_only = 0;
    for (const Sample& s : samplesAt(sg))
        EXPECT_EQ(text(s.radiance), s.dir.x > 0 ? "0 0 2" : "1 1 1") << text(s.dir);
    ASSERT_TRUE(ask(sg = ready(), { 1, 0, 0 }));
    EXPECT_EQ(text(sg.light_radiance), "0 0 2");
}

TEST_F(Skydomes, ray_directions_without_a_length_hit_nothing)
{
    skydome();
    prepare();
    RtShaderGlobals sg = ready();
    for (const RtVector& d : { RtVector{ 0, 0, 0 }, { NAN, 0, 1 }, { INFINITY, 0, 0 } })
        EXPECT_FALSE(ask(sg, d)) << text(d);
}

// ---- Densities ----

TEST_F(Skydomes, samples_and_rays_agree_on_density_and_light)
{
    const std::vector<RtMatrix> turned = { rotation(30, 40, 50) };
    const std::vector<RtMatrix> warped = { scaling(1, 2, 0.5f) };
    const std::vector<RtMatrix> moving = { rotation(0, 0, 0), rotation(0, 80, 10) };
    const std::vector<RtMatrix> tiny = { scaling(1e-15f, 2e-15f, 1e-15f) };
    const std::vector<RtMatrix> huge = { scaling(1e15f, 2e15f, -1e15f) };
    std::vector<RtMatrix> projective = { rotation(30, 40, 50) };
    projective[0].m[3][3] = 0; // which directions do not see
    for (const auto& matrices : { std::vector<RtMatrix>{ RV_M4_IDENTITY }, turned, warped, moving,
                                  tiny, huge, projective }) {
        skydome(24);
        setMatrices(node, matrices);
        colorBy(roughSky);
        prepare();
        RtShaderGlobals sg = surface();
        sg.front_hemisphere_only = 0;
        sg.time = 0.4f;
        RvLightsPrepare(&sg);
        ASSERT_TRUE(RvLightsGetSample(&sg));
        Uniform uniform(3);
        int same = 0;
        for (int i = 0; i < 500; ++i) {
            const float u = uniform(), v = uniform();
            ASSERT_TRUE(draw(sg, u, v));
            const RtLightMIS drawn = sg.state->lights.mis;
            EXPECT_NEAR(sg.light_weight * drawn.pdf, 1, 1e-5);
            ASSERT_TRUE(ask(sg, sg.light_dir));
            const RtLightMIS asked = sg.state->lights.mis;
            EXPECT_NEAR(asked.radiance.g, drawn.radiance.g, 1e-3f * drawn.radiance.g);
            same += std::fabs(asked.pdf - drawn.pdf) < 1e-3f * drawn.pdf; // but at edges of cells
        }
        EXPECT_GT(same, 495);
        startAnew();
    }
}

TEST_F(Skydomes, directions_follow_their_density_through_every_matrix)
{
    const std::vector<RtMatrix> sheared = {
        { { { 1, 0, 0, 0 }, { 0.5f, 1, 0, 0 }, { 0, 0, 0.7f, 0 }, { 0, 0, 0, 1 } } }
    };
    for (const auto& matrices : { std::vector<RtMatrix>{ rotation(10, 20, 30) },
                                  { scaling(1, 1.5f, 0.6f) },
                                  sheared,
                                  { rotation(0, 0, 0), rotation(0, 90, 0) } }) {
        skydome(1);
        setMatrices(node, matrices);
        prepare();
        RtShaderGlobals sg = surface();
        sg.front_hemisphere_only = 0;
        sg.time = 0.3f;
        RvLightsPrepare(&sg);
        ASSERT_TRUE(RvLightsGetSample(&sg));
        const auto drawDirection = [&](float u, float v, statistics::Direction* d) {
            draw(sg, u, v);
            *d = { double(sg.light_dir.x), double(sg.light_dir.y), double(sg.light_dir.z) };
            return true;
        };
        const auto density = [&](const statistics::Direction& d) {
            ask(sg, { float(d.x), float(d.y), float(d.z) });
            return double(sg.state->lights.mis.pdf);
        };
        const auto test = statistics::testSampler(statistics::SphereCells({ 0, 0, 1 }), 1000000, 4,
                                                  drawDirection, density, 2);
        EXPECT_GT(test.chi_square.p, 0.0025) << test.describe();
        EXPECT_NEAR(test.density_integral, 1, 1e-3);
        startAnew();
    }
}

// Within a cell of the table the density is the same everywhere.
TEST_F(Skydomes, directions_of_a_rough_sky_follow_their_density)
{
    constexpr int n = 24, count = 1000000;
    skydome(n);
    colorBy(roughSky);
    prepare();
    RtShaderGlobals sg = surface();
    sg.front_hemisphere_only = 0;
    RvLightsPrepare(&sg);
    ASSERT_TRUE(RvLightsGetSample(&sg));
    std::vector<double> expected, observed(n * n);
    for (int row = 0; row < n; ++row)
        for (int column = 0; column < n; ++column) {
            ASSERT_TRUE(
                ask(sg, rv::skyDirection((float(column) + 0.5f) / n, (float(row) + 0.5f) / n)));
            expected.push_back(double(sg.state->lights.mis.pdf) * 4 * M_PI / (n * n) * count);
        }
    Uniform uniform(7);
    for (int i = 0; i < count; ++i) {
        const float u = uniform(), v = uniform();
        draw(sg, u, v);
        const RtPoint2 at = rv::skySquare(sg.light_dir);
        const int column = std::min(int(at.x * n), n - 1), row = std::min(int(at.y * n), n - 1);
        ++observed[size_t(row * n + column)];
    }
    const statistics::ChiSquare test = statistics::chiSquareTest(observed, expected);
    EXPECT_GT(test.degrees_of_freedom, 500);
    EXPECT_GT(test.p, 0.01) << statistics::worstCells(observed, expected);
}

// ---- Matrices ----

TEST_F(Skydomes, the_matrix_turns_the_sky)
{
    RtMatrix matrix; // z becomes x, and moving the sky changes nothing
    RvM4RotationY(&matrix, -90);
    matrix.m[3][0] = 100;
    skydome(64);
    setDisc({ 0, 0, 1 }, 10);
    setMatrices(node, { matrix });
    RvNodeSetInt(node, "samples", 10);
    prepare();
    EXPECT_NEAR(irradiance({ 0, 0, 0 }, { 1, 0, 0 }), 1, 0.03);
    EXPECT_NEAR(irradiance({ 0, 0, 0 }, { -1, 0, 0 }), 0, 0.001);
    EXPECT_NEAR(irradiance({ 0, 0, 0 }, { 0, 0, 1 }), 0.04, 0.03);
}

TEST_F(Skydomes, the_matrix_moves_with_its_keys)
{
    skydome(64);
    setDisc({ 0, 0, 1 }, 5);
    setMatrices(node, { rotation(0, 0, 0), rotation(0, -60, 0) });
    RvNodeSetArray(node, "time_samples", RvArray(2, 1, RV_TYPE_FLOAT, 1.0, 3.0));
    RvNodeSetBool(node, "mis", false);
    prepare();
    for (const auto& [time, degrees] :
         { std::pair{ 0.0f, 0.0f }, { 1.0f, 0.0f }, { 2.0f, 30.0f }, { 3.0f, 60.0f } }) {
        RtShaderGlobals sg = surface();
        sg.time = time;
        const std::vector<Sample> all = samplesAt(sg);
        ASSERT_EQ(all.size(), 1u) << time;
        const float angle = degrees * pi / 180;
        EXPECT_GT(rv::dot(all[0].dir, { sinf(angle), 0, cosf(angle) }), cosf(7 * pi / 180)) << time;
    }
}

TEST_F(Skydomes, a_matrix_that_flattens_the_sky_leaves_no_light)
{
    for (const RtMatrix& matrix : { scaling(1, 1, 0), scaling(0, 0, 0), RV_M4_ZERO }) {
        skydome();
        setMatrices(node, { matrix });
        prepare();
        EXPECT_TRUE(samples().empty());
        startAnew();
    }
}

TEST_F(Skydomes, matrices_that_nearly_flatten_the_sky_give_no_wrong_numbers)
{
    for (const RtMatrix& matrix :
         { scaling(1, 1, 1e-30f), scaling(1, 1e-25f, 1e-25f), scaling(1e30f, 1, 1e-30f) }) {
        skydome();
        RvNodeSetInt(node, "samples", 20);
        setMatrices(node, { matrix });
        prepare();
        for (const Sample& s : samples()) {
            EXPECT_TRUE(std::isfinite(s.weight) && s.weight > 0) << s.weight;
            EXPECT_NEAR(rv::dot(s.dir, s.dir), 1, 1e-5);
        }
        startAnew();
    }
}

// ---- Volumes ----

TEST_F(Skydomes, volumes_are_lit_with_one_sample)
{
    skydome();
    RvNodeSetInt(node, "samples", 3);
    prepare();
    EXPECT_FALSE(dataOf(node).affect_volumetrics);
    RtShaderGlobals sg = surface({ 0, 0, 0 }, { 0, 0, 1 });
    sg.stage = RV_STAGE_VOLUME;
    for (const RtPoint2& at : { RtPoint2{ 0.5f, 0.5f }, RtPoint2{ 0.01f, 0.01f } }) {
        sg.state->random[0] = at.x;
        sg.state->random[1] = at.y;
        const std::vector<Sample> all = samplesAt(sg);
        ASSERT_EQ(all.size(), 1u);
        EXPECT_NEAR(all[0].weight, 4 * pi, 1e-3);
        EXPECT_EQ(text(all[0].radiance), "1 1 1") << "below the surface, too, which is none";
        EXPECT_GT(all[0].dir.z * (at.x - 0.25f), 0);
    }
}

TEST_F(Skydomes, there_is_no_region_of_influence)
{
    skydome();
    prepare();
    RtRay ray;
    const RtPoint origin = { 0, 0, 0 };
    const RtVector dir = { 0, 0, 1 };
    RvMakeRay(&ray, RV_RAY_CAMERA, &origin, &dir, 1e30, nullptr);
    RtLightBounds bounds;
    EXPECT_FALSE(methods(node).LightBounds(node, &bounds, &ray));
}

// ---- Resolution ----

TEST_F(Skydomes, resolutions_below_one_disable_the_light_silently)
{
    for (int resolution : { 0, -5, INT_MIN }) {
        skydome(resolution);
        colorBy([](RtShaderGlobals*) { return RV_RGB_WHITE; });
        prepare();
        takeTexts();
        EXPECT_TRUE(samples().empty()) << resolution;
        EXPECT_EQ(takeTexts(), Names{});
        EXPECT_EQ(takeEvaluations(), 0);
        startAnew();
    }
}

TEST_F(Skydomes, resolutions_beyond_memory_disable_the_light_with_an_error)
{
    for (int resolution : { 100000, INT_MAX }) {
        skydome(resolution);
        set("abort_on_error", false);
        prepare();
        takeTexts();
        EXPECT_TRUE(samples().empty()) << resolution;
        const Names texts = takeTexts();
        ASSERT_EQ(texts.size(), 2u);
        EXPECT_EQ(texts[1].find("E can't allocate "), 0u) << texts[1];
        EXPECT_TRUE(texts[1].ends_with("bytes in core\\src\\importance:RvImportance2DInit()"))
            << texts[1];
        EXPECT_TRUE(samples().empty());
        EXPECT_EQ(takeTexts(), Names{}) << "tried once";
        startAnew();
    }
}

// ---- Messages ----

TEST_F(Skydomes, a_constant_sky_is_reported_as_too_homogenous)
{
    skydome(10);
    RvNodeSetRGB(node, "color", 0.25f, 0.5f, 0.75f);
    prepare();
    takeTexts();
    EXPECT_FALSE(samples().empty());
    EXPECT_EQ(takeTexts(),
              (Names{ "[skydome_light] initializing sampling tables 10x10",
                      "W [skydome_light] Skydome light source over too homogenous background, "
                      "variance = 0.000000",
                      "[skydome_light] table done - * - average energy 0.500000" }));
    samples();
    EXPECT_EQ(takeTexts(), Names{});
}

TEST_F(Skydomes, the_time_of_a_table_is_told)
{
    skydome(4);
    colorBy(roughSky);
    prepare();
    messages().clear();
    samples();
    ASSERT_EQ(messages().size(), 2u);
    EXPECT_TRUE(node_tools::matches(messages()[1].text,
                                    "\\[skydome_light\\] table done - 0:0[0-9]\\.[0-9]{2} - "
                                    "average energy [0-9]\\.[0-9]{6}"))
        << messages()[1].text;
}

TEST_F(Skydomes, a_sky_of_many_colours_is_not)
{
    skydome(10);
    colorBy([](RtShaderGlobals* sg) { return sg->ray_dir.z > 0.1f ? RV_RGB_WHITE : RV_RGB_BLACK; });
    prepare();
    takeTexts();
    EXPECT_FALSE(samples().empty());
    EXPECT_EQ(takeTexts(), (Names{ "[skydome_light] initializing sampling tables 10x10",
                                   "[skydome_light] table done - * - average energy 0.400000" }));
}

TEST_F(Skydomes, a_black_sky_disables_the_light)
{
    skydome(3);
    colorBy([](RtShaderGlobals*) { return RV_RGB_BLACK; });
    prepare();
    takeTexts();
    EXPECT_TRUE(samples().empty());
    EXPECT_EQ(takeTexts(),
              (Names{ "[skydome_light] initializing sampling tables 3x3",
                      "W [skydome_light] Skydome light source over too homogenous background, "
                      "variance = 0.000000",
                      "[skydome_light] disabling light due to null energy" }));
    EXPECT_TRUE(samples().empty());
    EXPECT_EQ(takeEvaluations(), 9);
}

TEST_F(Skydomes, shaders_without_sense_disable_the_light)
{
    for (const RtRGB& color :
         { RtRGB{ NAN, NAN, NAN }, { INFINITY, -INFINITY, 0 }, { -1, -1, -1 } }) {
        skydome(3);
        colorBy([color](RtShaderGlobals*) { return color; });
        prepare();
        EXPECT_TRUE(samples().empty()) << color.r;
        startAnew();
    }
}

TEST_F(Skydomes, a_light_without_intensity_or_colour_takes_no_samples)
{
    skydome();
    RvNodeSetFlt(node, "intensity", 0);
    skydome(32, "other");
    RvNodeSetRGB(node, "color", 0, 0, 0);
    prepare();
    takeTexts();
    EXPECT_TRUE(samples().empty());
    EXPECT_EQ(takeTexts(), Names{}) << "nor builds tables";
}
