// Tests of core/src/lights/quad.cpp: the "quad_light" node.
#include "light_map_tools.h"
#include "quad_tools.h"

using namespace light_map_tools;
using quad_tools::Corners, quad_tools::default_corners, quad_tools::kite;
using quad_tools::irradianceFrom;

class QuadLights : public MappedLights {
protected:
    static RtArray* vertexArray(const std::vector<Corners>& keys)
    {
        RtArray* const array = RvArrayAllocate(4, uint8_t(keys.size()), RV_TYPE_POINT);
        for (unsigned k = 0; k < keys.size(); ++k)
            RvArraySetKey(array, k, keys[k].data());
        return array;
    }
    void setVertices(const std::vector<Corners>& keys)
    {
        RvNodeSetArray(node, "vertices", vertexArray(keys));
    }
    // A light of radiance 1 that fades as it should.
    void makeEmitter(const std::vector<Corners>& keys, bool umbrate, int sample_side)
    {
        quadLight();
        setVertices(keys);
        RvNodeSetBool(node, "umbrate", umbrate);
        RvNodeSetBool(node, "normalize", false);
        RvNodeSetInt(node, "samples", sample_side);
        fade();
    }
    void fade()
    {
        RtNode* const decay = named("light_decay", "decay");
        RvNodeSetStr(decay, "decay_type", "quadratic");
        setFilters(node, { decay });
    }
    double irradianceAt(const RtPoint& p, const RtVector& normal, float time = 0)
    {
        RtShaderGlobals sg = surface(p, normal);
        sg.time = time;
        double sum = 0;
        for (const Sample& s : samplesAt(sg))
            sum += double(s.radiance.r) * double(s.weight) *
                   std::max(0.0, double(rv::dot(s.dir, normal)));
        endSample();
        states.clear();
        return sum;
    }
    static Corners moved(const Corners& corners, const RtMatrix& matrix)
    {
        Corners out;
        for (size_t i = 0; i < 4; ++i)
            RvM4PointByMatrixMult(&out[i], &matrix, &corners[i]);
        return out;
    }
    static Corners blend(const Corners& a, const Corners& b, float t)
    {
        Corners out;
        for (size_t i = 0; i < 4; ++i)
            out[i] = a[i] * (1 - t) + b[i] * t;
        return out;
    }
    // Points around and in front of a quad, facing it more or less: the whole quad is above their
    // horizon.
    struct Place {
        RtPoint p;
        RtVector normal;
    };
    static std::vector<Place> grid(const Corners& corners)
    {
        const rv::QuadGeometry q = quad_tools::quadOf(corners);
        RtVector u = rv::unit(corners[1] - corners[0]), v = rv::cross(q.normal, u);
        std::vector<Place> all;
        for (int i = -2; i <= 2; ++i)
            for (int j = -2; j <= 2; ++j)
                for (float height : { 0.8f, 3.0f }) {
                    const RtPoint p =
                        q.centre + q.normal * height + u * float(i) + v * (1.3f * float(j));
                    const RtVector normal =
                        rv::unit(q.normal * -1.0f + u * (0.1f * float(j)) + v * (0.05f * float(i)));
                    const auto below = [&](const RtPoint& c) {
                        return rv::dot(c - p, normal) <= 0;
                    };
                    if (std::none_of(corners.begin(), corners.end(), below))
                        all.push_back({ p, normal });
                }
        return all;
    }
    void expectClosedForm(const Corners& corners, float time, double tolerance, const char* what)
    {
        const std::vector<Place> places = grid(corners);
        ASSERT_GT(places.size(), 20u);
        for (const Place& place : places) {
            const double want = irradianceFrom(corners, place.p, place.normal);
            EXPECT_NEAR(irradianceAt(place.p, place.normal, time), want, tolerance * want)
                << what << " at " << text(place.p);
        }
    }
};

// ---- Closed forms ----

TEST_F(QuadLights, a_still_quad_agrees_with_the_closed_form_of_a_polygon)
{
    const Corners slanted = { { { 0, 0, 0 }, { 0, 1, 1 }, { 2, 1, 1 }, { 2, 0, 0 } } };
    for (const bool umbrate : { false, true })
        for (const Corners& corners : { default_corners, slanted }) {
            makeEmitter({ corners }, umbrate, 40);
            prepare();
            expectClosedForm(corners, 0, 0.005, umbrate ? "umbrate" : "area");
            startAnew();
        }
}

TEST_F(QuadLights, directions_towards_any_quad_agree_with_the_closed_form)
{
    makeEmitter({ kite }, true, 40);
    prepare();
    expectClosedForm(kite, 0, 0.005, "kite");
}

TEST_F(QuadLights, a_moving_quad_agrees_with_the_closed_form)
{
    Corners away = default_corners;
    for (RtPoint& p : away)
        p = p * 1.5f + RtPoint{ 1, 2, -1 };
    for (const bool umbrate : { false, true }) {
        makeEmitter({ default_corners, away }, umbrate, 40);
        RvNodeSetArray(node, "time_samples", RvArray(2, 1, RV_TYPE_FLOAT, 1.0, 3.0));
        prepare();
        for (const auto& [time, way] :
             { std::pair{ 0.0f, 0.0f }, { 1.5f, 0.25f }, { 3.0f, 1.0f }, { 9.0f, 1.0f } })
            expectClosedForm(blend(default_corners, away, way), time, 0.005, "moving");
        startAnew();
    }
}

TEST_F(QuadLights, a_quad_behind_a_matrix_agrees_with_the_closed_form)
{
    RtMatrix first = scaling(0.5f, 2, 1), second = rotation(20, 0, 40);
    first.m[3][0] = 3;
    second.m[3][2] = -2;
    for (const bool umbrate : { false, true }) {
        makeEmitter({ default_corners }, umbrate, 40);
        setMatrices(node, { first });
        prepare();
        expectClosedForm(moved(default_corners, first), 0, 0.005, "matrix");
        setMatrices(node, { first, second });
        prepare();
        const Corners between =
            blend(moved(default_corners, first), moved(default_corners, second), 0.5f);
        expectClosedForm(between, 0.5f, 0.005, "animated matrix");
        startAnew();
    }
}

TEST_F(QuadLights, a_far_quad_is_as_bright_by_direction_as_by_area)
{
    for (const float distance : { 100.0f, 3000.0f, 1e5f }) {
        const RtPoint p = { 0.3f * distance, 0, -distance };
        const RtVector normal = rv::unitPrecise(p * -1.0f);
        const double want = irradianceFrom(default_corners, p, normal);
        for (const bool umbrate : { false, true }) {
            makeEmitter({ default_corners }, umbrate, 20);
            set("low_light_threshold", 0.0f);
            RvNodeSetFlt(node, "intensity", distance * distance); // above what is neglected
            prepare();
            const double got = irradianceAt(p, normal) / double(distance) / double(distance);
            // Far away the closed form itself is a difference of nearly equal numbers.
            const double cosine = 1 / sqrt(1.09),
                         simple = 4 * cosine / (double(distance) * double(distance) * 1.09);
            EXPECT_NEAR(got, simple, simple * 2e-3) << distance << umbrate;
            if (distance < 1000) {
                EXPECT_NEAR(got, want, want * 2e-3) << distance << umbrate;
            }
            startAnew();
        }
    }
}

// ---- Samples ----

TEST_F(QuadLights, a_parallelogram_places_its_samples_where_the_numbers_say)
{
    quadLight();
    RvNodeSetInt(node, "samples", 3);
    prepare();
    RtShaderGlobals sg = ready({ 0, 0, -2 });
    ASSERT_TRUE(draw(sg, 0.25f, 0.75f));
    EXPECT_FLOAT_EQ(sg.light_weight, 1 / 9.0f);
    const RtPoint place = sg.point + sg.light_dir * sg.light_dist;
    EXPECT_NEAR(place.x, 0.5f, 1e-6); // u goes along y, v along x
    EXPECT_NEAR(place.y, -0.5f, 1e-6);
    EXPECT_NEAR(place.z, 0, 1e-6);
    for (const Sample& s : samples({ 0, 0, -2 }))
        EXPECT_FLOAT_EQ(s.weight, 1 / 9.0f);
}

TEST_F(QuadLights, nothing_behind_the_quad_is_lit)
{
    quadLight();
    RvNodeSetInt(node, "samples", 3);
    for (const bool umbrate : { false, true }) {
        RvNodeSetBool(node, "umbrate", umbrate);
        prepare();
        EXPECT_EQ(samples({ 0, 0, -1 }).size(), 9u);
        EXPECT_EQ(samples({ 5, 0, -0.01f }, { -1, 0, 0 }).size(), 9u);
        EXPECT_EQ(samples({ 0, 0, 1 }, { 0, 0, -1 }).size(), 0u);
        EXPECT_EQ(samples({ 0, 0, 0 }).size(), 0u);
        EXPECT_EQ(samples({ NAN, 0, -1 }).size(), 0u);
    }
}

TEST_F(QuadLights, surfaces_that_face_away_get_no_samples)
{
    quadLight();
    prepare();
    EXPECT_EQ(samples({ 0, 0, -5 }, { 0, 0, -1 }).size(), 0u);
    RtShaderGlobals sg = surface({ 0, 0, -5 }, { 0, 0, -1 });
    sg.front_hemisphere_only = 0;
    EXPECT_EQ(samplesAt(sg).size(), 1u);
}

TEST_F(QuadLights, normalized_lights_are_as_bright_at_any_size)
{
    quadLight();
    setVertices({ moved(default_corners, scaling(3, 3, 3)) });
    prepare();
    const float cosine = samples({ 0, 0, -5 })[0].radiance.r;
    EXPECT_LE(cosine, 1);
    EXPECT_GT(cosine, 0.6f);
    RvNodeSetBool(node, "normalize", false);
    prepare();
    EXPECT_FLOAT_EQ(samples({ 0, 0, -5 })[0].radiance.r, 36 * cosine);
}

TEST_F(QuadLights, bounced_light_is_scaled_by_the_bounce_factor)
{
    quadLight();
    RvNodeSetFlt(node, "bounce_factor", 0.25f);
    prepare();
    RtShaderGlobals direct = ready({ 0, 0, -5 });
    RtShaderGlobals bounced = surface({ 0, 0, -5 });
    bounced.diffuse_depth = 1;
    RvLightsPrepare(&bounced);
    ASSERT_TRUE(RvLightsGetSample(&bounced));
    ASSERT_TRUE(draw(direct, 0.5f, 0.5f) && draw(bounced, 0.5f, 0.5f));
    EXPECT_FLOAT_EQ(bounced.light_radiance.r, 0.25f * direct.light_radiance.r);
    ASSERT_TRUE(ask(direct, { 0, 0, 1 }) && ask(bounced, { 0, 0, 1 }));
    EXPECT_FLOAT_EQ(bounced.light_radiance.r, 0.25f * direct.light_radiance.r);
}

// ---- Multiple importance sampling ----

TEST_F(QuadLights, densities_agree_with_the_golden_vectors)
{
    for (const auto& v : goldenVectors("lights", "quad_mis_density")) {
        const auto& in = v["in"];
        const float cosine = goldenFloat(in["cos"]), dist = goldenFloat(in["dist"]),
                    area = goldenFloat(in["area"]), side = sqrtf(area) / 2;
        expectGoldenNumbers(v, "density", { rv::apparentSize(area, cosine, dist) });
        // A light whose centre is seen at that angle from that distance.
        quadLight();
        setVertices({ moved(default_corners, scaling(side, side, 1)) });
        prepare();
        const float sine = sqrtf(1 - cosine * cosine);
        RtShaderGlobals sg = surface({ sine * dist, 0, -cosine * dist }, { -sine, 0, cosine });
        RvLightsPrepare(&sg);
        if (!RvLightsGetSample(&sg)) // a first sample beyond the horizon of floats
            sg = ready({ sine * dist, 0, -cosine * dist }, { -sine, 0, cosine });
        draw(sg, 0.5f, 0.5f);
        expectGolden(v, "sample_valid", sg.state->lights.mis.active);
        expectGolden(v, "intersect_valid", ask(sg, { -sine, 0, cosine }));
        // What is kept is the density by solid angle of all samples, here of one.
        const float size = rv::apparentSize(area, sg.light_dir.z, sg.light_dist);
        EXPECT_NEAR(sg.state->lights.mis.pdf * size, 1, 1e-5f);
        startAnew();
    }
}

TEST_F(QuadLights, samples_and_rays_agree_on_light_and_density)
{
    const auto checker = [](RtShaderGlobals* sg) {
        return RtRGB{ 0.1f + sg->u, sg->u * sg->v, 2 - sg->v };
    };
    struct Case {
        const char* name;
        bool umbrate, textured;
        int resolution;
    };
    for (const Case& c : { Case{ "area", false, false, 0 },
                           { "directions", true, false, 0 },
                           { "table", false, true, 16 },
                           { "directions of a texture", true, true, 16 },
                           { "texture without a table", false, true, 0 } })
        for (const bool faded : { false, true }) {
            makeEmitter({ kite }, c.umbrate, 1);
            RvNodeSetInt(node, "resolution", c.resolution);
            if (!faded)
                setFilters(node, {});
            if (c.textured)
                colorBy(checker);
            prepare();
            const rv::QuadGeometry q = quad_tools::quadOf(kite);
            const RtPoint p = q.centre + q.normal * 1.5f;
            RtShaderGlobals sg = ready(p, q.normal * -1.0f);
            Uniform uniform(5);
            int same = 0;
            for (int i = 0; i < 300; ++i) {
                const float su = uniform(), sv = uniform();
                ASSERT_TRUE(draw(sg, su, sv));
                const RtLightMIS drawn = sg.state->lights.mis;
                const RtRGB radiance = sg.light_radiance;
                const float dist = sg.light_dist, weight = sg.light_weight;
                ASSERT_TRUE(ask(sg, sg.light_dir)) << c.name;
                const RtLightMIS asked = sg.state->lights.mis;
                EXPECT_NEAR(sg.light_dist, dist, 1e-4f * dist);
                same += std::fabs(asked.pdf - drawn.pdf) < 1e-3f * drawn.pdf;
                // Both ways to use a sample amount to the same.
                if (!c.umbrate) {
                    EXPECT_NEAR(drawn.radiance.g / drawn.pdf, radiance.g * weight,
                                1e-4f * radiance.g * weight)
                        << c.name;
                    EXPECT_NEAR(asked.radiance.g, drawn.radiance.g,
                                1e-3f * (drawn.radiance.g + 0.1f))
                        << c.name;
                }
            }
            EXPECT_GT(same, 295) << c.name;
            startAnew();
        }
}

// Over the square of the table's cells, in each of which the density is the same everywhere.
TEST_F(QuadLights, places_of_a_textured_quad_follow_their_density)
{
    constexpr int n = 16, count = 1000000;
    makeEmitter({ kite }, false, 1);
    RvNodeSetInt(node, "resolution", n);
    colorBy(
        [](RtShaderGlobals* sg) { return rv::grey(expf(3 * sg->u) * (1.2f + sinf(9 * sg->v))); });
    prepare();
    const rv::QuadGeometry q = quad_tools::quadOf(kite);
    const RtPoint p = q.centre + q.normal * 1.5f;
    RtShaderGlobals sg = ready(p, q.normal * -1.0f);
    std::vector<double> expected, observed(n * n);
    for (int row = 0; row < n; ++row)
        for (int column = 0; column < n; ++column) {
            const float u = (float(column) + 0.5f) / n, v = (float(row) + 0.5f) / n;
            ASSERT_TRUE(ask(sg, rv::unitPrecise(rv::quadPoint(q, u, v) - p)));
            const double cosine = std::fabs(double(rv::dot(sg.light_dir, q.normal)));
            const double by_area = double(sg.state->lights.mis.pdf) * cosine /
                                   (double(sg.light_dist) * double(sg.light_dist));
            expected.push_back(by_area * double(q.jacobian.at(u, v)) / (n * n) * count);
        }
    Uniform uniform(8);
    for (int i = 0; i < count; ++i) {
        const float su = uniform(), sv = uniform();
        ASSERT_TRUE(draw(sg, su, sv));
        float u, v;
        if (!rv::placeOnQuad(q, rv::vec3d(p + sg.light_dir * sg.light_dist), &u, &v))
            continue; // by rounding, on the edge
        const int column = std::min(int(u * n), n - 1), row = std::min(int(v * n), n - 1);
        ++observed[size_t(row * n + column)];
    }
    const statistics::ChiSquare test = statistics::chiSquareTest(observed, expected);
    EXPECT_GT(test.degrees_of_freedom, 200);
    EXPECT_GT(test.p, 0.01) << statistics::worstCells(observed, expected);
}

// Required by samples of a BRDF, which divide by the same density whatever the light samples.
TEST_F(QuadLights, rays_see_the_same_light_whether_directions_or_places_are_sampled)
{
    float seen[2];
    for (const bool umbrate : { false, true }) {
        makeEmitter({ kite }, umbrate, 1);
        prepare();
        const rv::QuadGeometry q = quad_tools::quadOf(kite);
        RtShaderGlobals sg = ready(q.centre + q.normal * 1.5f, q.normal * -1.0f);
        const RtPoint place = rv::quadPoint(q, 0.9f, 0.2f);
        ASSERT_TRUE(ask(sg, rv::unitPrecise(place - sg.point)));
        EXPECT_FLOAT_EQ(sg.state->lights.mis.radiance.g, 1) << umbrate;
        seen[umbrate] = sg.light_radiance.g;
        startAnew();
    }
    EXPECT_EQ(seen[0], seen[1]);
}

TEST_F(QuadLights, rays_hit_only_lights_that_want_them)
{
    quadLight();
    RvNodeSetBool(node, "mis", false);
    prepare();
    RtShaderGlobals sg = ready({ 0, 0, -2 });
    EXPECT_FALSE(sg.state->lights.mis.active);
    EXPECT_FALSE(ask(sg, { 0, 0, 1 }));
    RvNodeSetBool(node, "mis", true);
    prepare();
    sg = ready({ 0, 0, -2 });
    EXPECT_TRUE(sg.state->lights.mis.active);
    EXPECT_TRUE(ask(sg, { 0, 0, 1 }));
    EXPECT_FALSE(ask(sg, { 0, 0, -1 }));
    EXPECT_FALSE(ask(sg, { 1, 0, 0 }));
    EXPECT_FALSE(ask(sg, { 0, NAN, 1 }));
}

TEST_F(QuadLights, a_shadowed_sample_still_brings_one_of_the_lobe)
{
    quadLight();
    RvNodeSetInt(node, "samples", 2);
    disc("screen", -1);
    RtNode* const floor = disc("floor", -1.5f);
    prepare();
    RtShaderGlobals sg = surface({ 0, 0, -1.5f });
    sg.object = floor;
    const std::vector<Sample> all = samplesAt(sg);
    ASSERT_EQ(all.size(), 4u);
    for (const Sample& s : all)
        EXPECT_EQ(text(s.radiance), "0 0 0");
    RvNodeSetBool(node, "mis", false);
    prepare();
    sg = surface({ 0, 0, -1.5f });
    sg.object = floor;
    EXPECT_EQ(samplesAt(sg).size(), 0u);
}

// ---- Textures ----

TEST_F(QuadLights, colours_come_from_the_place_that_is_seen)
{
    for (const bool umbrate : { false, true }) {
        makeEmitter({ kite }, umbrate, 6);
        RvNodeSetInt(node, "resolution", 0);
        float width = -1;
        colorBy([&](RtShaderGlobals* sg) {
            width = sg->dudx;
            EXPECT_EQ(sg->normal.z, 1);
            return RtRGB{ sg->point.x, sg->point.y, sg->u + 10 * sg->v };
        });
        setFilters(node, {});
        prepare();
        const rv::QuadGeometry q = quad_tools::quadOf(kite);
        for (const Sample& s : samples({ 0.3f, 1, 3 }, { 0, 0, -1 })) {
            const RtPoint hit = RtPoint{ 0.3f, 1, 3 } + s.dir * s.dist;
            float u, v;
            ASSERT_TRUE(rv::placeOnQuad(q, rv::vec3d(hit), &u, &v));
            const float scale = s.radiance.b / (u + 10 * v);
            EXPECT_NEAR(s.radiance.r, hit.x * scale, 1e-3f * scale) << umbrate;
            EXPECT_NEAR(s.radiance.g, hit.y * scale, 1e-3f * scale) << umbrate;
        }
        EXPECT_EQ(width, 0);
        RvNodeSetInt(node, "resolution", 20);
        prepare();
        samples({ 0.3f, 1, 3 }, { 0, 0, -1 });
        EXPECT_EQ(width, 0.05f); // a cell of the table
        startAnew();
    }
}

TEST_F(QuadLights, a_table_gives_the_same_light_with_less_noise)
{
    // A small bright spot.
    const auto spot = [](RtShaderGlobals* sg) {
        const float x = sg->u - 0.3f, y = sg->v - 0.6f;
        return rv::grey(0.01f + 20 * expf(-300 * (x * x + y * y)));
    };
    double means[2], errors[2];
    for (const int resolution : { 0, 40 }) {
        makeEmitter({ kite }, false, 1);
        RvNodeSetInt(node, "resolution", resolution);
        RvNodeSetBool(node, "mis", false);
        colorBy(spot);
        prepare();
        const RtPoint p = { 0.3f, 1, 3 };
        RtShaderGlobals sg = ready(p, { 0, 0, -1 });
        const auto e = statistics::estimate(100000, 6, [&](float u, float v) {
            draw(sg, u, v);
            return double(sg.light_radiance.r * sg.light_weight * -sg.light_dir.z);
        });
        means[resolution > 0] = e.mean;
        errors[resolution > 0] = e.standard_error;
        startAnew();
    }
    // Area samples of an irregular quad are not quite even.
    EXPECT_NEAR(means[1], means[0], 0.1 * means[0]);
    EXPECT_LT(errors[1] * 5, errors[0]);
}

TEST_F(QuadLights, the_table_of_a_moving_light_does_not_depend_on_who_asks_first)
{
    std::vector<float> cells;
    for (const float time : { 0.0f, 0.7f }) {
        Corners away = kite;
        away[2] = { 2.5f, 4, 1 };
        makeEmitter({ kite, away }, false, 1);
        colorBy([](RtShaderGlobals* sg) { return rv::grey(sg->u + sg->time); });
        prepare();
        irradianceAt({ 0.3f, 1, 3 }, { 0, 0, -1 }, time);
        const RtImportanceTable& table = *mapOf(node).table;
        ASSERT_EQ(table.n, 32);
        std::vector<float> now(table.cells, table.cells + 32 * 32);
        if (cells.empty())
            cells = now;
        EXPECT_EQ(now, cells);
        startAnew();
    }
}

// ---- Messages ----

TEST_F(QuadLights, tables_are_reported)
{
    const struct {
        const char* name;
        RtRGB (*color)(RtShaderGlobals*);
        Names texts;
        bool shines;
    } rows[] = {
        { "constant",
          [](RtShaderGlobals*) { return rv::grey(0.5f); },
          { "W [quad_light] lamp quad light importance sampling over too homogenous shader, "
            "variance = 0.000000",
            "[quad_light] lamp quad light table done - * - average energy 0.500000" },
          true },
        { "half",
          [](RtShaderGlobals* sg) { return rv::grey(sg->u < 0.5f ? 0 : 1); },
          { "[quad_light] lamp quad light table done - * - average energy 0.500000" },
          true },
        { "black",
          [](RtShaderGlobals*) { return RV_RGB_BLACK; },
          { "W [quad_light] lamp quad light importance sampling over too homogenous shader, "
            "variance = 0.000000",
            "[quad_light] lamp quad light disabling light due to null energy" },
          false },
        { "no number",
          [](RtShaderGlobals*) { return rv::grey(NAN); },
          { "W [quad_light] lamp quad light importance sampling over too homogenous shader, "
            "variance = 0.000000",
            "[quad_light] lamp quad light disabling light due to null energy" },
          false },
    };
    for (const auto& row : rows) {
        quadLight(8, "lamp");
        colorBy(row.color);
        prepare();
        takeTexts();
        EXPECT_EQ(samples({ 0, 0, -1 }).size(), row.shines ? 1u : 0u) << row.name;
        Names want = { "[quad_light] lamp initializing sampling tables 8x8" };
        want.insert(want.end(), row.texts.begin(), row.texts.end());
        EXPECT_EQ(takeTexts(), want);
        EXPECT_EQ(takeEvaluations(), row.shines ? 65 : 64) << row.name;
        samples({ 0, 0, -1 });
        EXPECT_EQ(takeTexts(), Names{});
        startAnew();
    }
}

TEST_F(QuadLights, the_time_of_a_table_is_told)
{
    quadLight(4, "lamp");
    colorBy([](RtShaderGlobals* sg) { return rv::grey(sg->u); });
    prepare();
    messages().clear();
    samples({ 0, 0, -1 });
    ASSERT_EQ(messages().size(), 2u);
    EXPECT_TRUE(node_tools::matches(messages()[1].text,
                                    "\\[quad_light\\] lamp quad light table done - "
                                    "0:0[0-9]\\.[0-9]{2} - average energy 0\\.500000"))
        << messages()[1].text;
}

TEST_F(QuadLights, long_names_are_reported_whole)
{
    const std::string name(300, 'n');
    quadLight(8, name.c_str());
    colorBy([](RtShaderGlobals* sg) { return rv::grey(sg->u); });
    prepare();
    takeTexts();
    samples({ 0, 0, -1 });
    const Names texts = takeTexts();
    ASSERT_FALSE(texts.empty());
    EXPECT_EQ(texts[0], "[quad_light] " + name + " initializing sampling tables 8x8");
}

TEST_F(QuadLights, tables_are_made_only_where_they_are_of_use)
{
    quadLight(8);
    prepare();
    samples({ 0, 0, -1 }); // one colour
    EXPECT_FALSE(mapOf(node).tables_built);
    colorBy([](RtShaderGlobals* sg) { return rv::grey(sg->u); });
    prepare();
    takeEvaluations();
    samples({ 0, 0, 1 }, { 0, 0, -1 }); // behind
    EXPECT_EQ(takeEvaluations(), 0);
    for (int resolution : { 0, -5, INT_MIN }) {
        RvNodeSetInt(node, "resolution", resolution);
        prepare();
        EXPECT_EQ(samples({ 0, 0, -1 }).size(), 1u) << resolution;
        EXPECT_EQ(takeEvaluations(), 1) << resolution;
    }
    RvNodeSetInt(node, "resolution", 1);
    prepare();
    EXPECT_EQ(samples({ 0, 0, -1 }).size(), 1u);
    EXPECT_EQ(takeEvaluations(), 2);
}

TEST_F(QuadLights, tables_beyond_memory_disable_the_light_with_an_error)
{
    set("abort_on_error", false);
    quadLight(1000000);
    colorBy([](RtShaderGlobals* sg) { return rv::grey(sg->u); });
    prepare();
    takeTexts();
    EXPECT_TRUE(samples({ 0, 0, -1 }).empty());
    const Names texts = takeTexts();
    ASSERT_EQ(texts.size(), 2u);
    EXPECT_EQ(texts[1], "E can't allocate 4000004000000 bytes in core\\src\\importance:"
                        "RvImportance2DInit()");
    EXPECT_TRUE(samples({ 0, 0, -1 }).empty());
    EXPECT_EQ(takeTexts(), Names{});
}

// ---- Vertices ----

TEST_F(QuadLights, what_is_no_quad_is_reported_and_does_not_shine)
{
    const std::string degenerate = "E lamp: degenerate quad area light",
                      warped = "E lamp: non-planar quad area lights are not supported";
    const Corners line = { { { 0, 0, 0 }, { 1, 0, 0 }, { 2, 0, 0 }, { 3, 0, 0 } } };
    Corners lifted = default_corners;
    lifted[2].z = 0.5f;
    const struct {
        const char* name;
        RtArray* vertices;
        std::string problem;
    } rows[] = {
        { "a line", vertexArray({ line }), degenerate },
        { "a lifted corner", vertexArray({ lifted }), warped },
        { "a good key and a line", vertexArray({ default_corners, line }), degenerate },
        { "three points",
          RvArray(3, 1, RV_TYPE_POINT, RtPoint{ 0, 0, 0 }, RtPoint{ 0, 1, 0 }, RtPoint{ 1, 1, 0 }),
          degenerate },
        { "no points", RvArrayAllocate(0, 1, RV_TYPE_POINT), degenerate },
    };
    for (const auto& row : rows) {
        set("abort_on_error", false);
        quadLight(8, "lamp");
        RvNodeSetArray(node, "vertices", row.vertices);
        takeTexts();
        prepare();
        EXPECT_EQ(takeTexts(), Names{ row.problem }) << row.name;
        EXPECT_TRUE(samples({ 0, 0, -1 }).empty()) << row.name;
        EXPECT_TRUE(samples({ 0, 0, 1 }, { 0, 0, -1 }).empty()) << row.name;
        startAnew();
    }
}

TEST_F(QuadLights, vertices_that_are_no_numbers_are_reported)
{
    set("abort_on_error", false);
    quadLight(8, "lamp");
    // Past the setter, which refuses them.
    rv::elementsOf<RtPoint>(RvNodeGetArray(node, "vertices"))[1].x = NAN;
    takeTexts();
    prepare();
    EXPECT_EQ(takeTexts(), Names{ "E lamp: degenerate quad area light" });
    EXPECT_TRUE(samples({ 0, 0, -1 }).empty());
}

TEST_F(QuadLights, points_beyond_the_fourth_are_ignored)
{
    quadLight();
    RtArray* const array = RvArrayAllocate(5, 2, RV_TYPE_POINT);
    for (unsigned i = 0; i < 10; ++i)
        RvArraySetPnt(array, i,
                      (i % 5 < 4 ? default_corners[i % 5] + RtPoint{ 0, 0, float(i / 5) }
                                 : RtPoint{ 7, 7, 7 }));
    RvNodeSetArray(node, "vertices", array);
    prepare();
    RtShaderGlobals sg = surface({ 0, 0, -1 });
    sg.time = 1;
    const std::vector<Sample> all = samplesAt(sg);
    ASSERT_EQ(all.size(), 1u);
    EXPECT_NEAR(all[0].dir.z * all[0].dist, 2, 1e-5);
}

TEST_F(QuadLights, a_quad_that_collapses_on_its_way_is_dark_meanwhile)
{
    Corners turned = default_corners; // inside out
    std::swap(turned[1], turned[3]);
    quadLight();
    setVertices({ default_corners, turned });
    prepare();
    for (const auto& [time, z, count] : { std::tuple{ 0.0f, -1.0f, 1u },
                                          { 0.0f, 1.0f, 0u },
                                          { 0.5f, -1.0f, 0u },
                                          { 0.5f, 1.0f, 0u },
                                          { 1.0f, -1.0f, 0u },
                                          { 1.0f, 1.0f, 1u } }) {
        RtShaderGlobals sg = surface({ 0, 0, z }, { 0, 0, -z });
        sg.time = time;
        EXPECT_EQ(samplesAt(sg).size(), count) << time << " " << z;
    }
    EXPECT_EQ(takeTexts(), Names{});
}

TEST_F(QuadLights, a_quad_that_turns_inside_out_on_its_way_is_dark_meanwhile)
{
    // Half way the third corner lies on the other side of the first, outside of any plane quad.
    const Corners first = { { { 0, 0, 0 }, { 4, 0, 0 }, { 3, 3, 0 }, { 0, 4, 0 } } },
                  last = { { { 0, 0, 0 }, { -2, 0, 0 }, { -5, -5, 0 }, { 0, -2, 0 } } };
    const Corners half = blend(first, last, 0.5f);
    EXPECT_EQ(quad_tools::quadOf(half).area, 0);
    for (const bool umbrate : { false, true }) {
        makeEmitter({ first, last }, umbrate, 1);
        prepare();
        for (const auto& [time, count] : { std::pair{ 0.0f, 1u }, { 0.5f, 0u }, { 1.0f, 1u } }) {
            RtShaderGlobals sg = surface({ 0, 0, 5 }, { 0, 0, -1 });
            sg.time = time;
            const std::vector<Sample> all = samplesAt(sg);
            EXPECT_EQ(all.size(), count) << umbrate << time;
            for (const Sample& s : all)
                EXPECT_GT(s.radiance.r, 0) << umbrate << time;
        }
        EXPECT_EQ(takeTexts(), Names{});
        startAnew();
    }
}

TEST_F(QuadLights, quads_beyond_the_range_of_floats_are_degenerate)
{
    for (const auto& [size, fits] : { std::pair{ 1e-23f, false },
                                      { 1e-20f, false },
                                      { 1e-18f, true },
                                      { 1e18f, true },
                                      { 1e20f, false } }) {
        set("abort_on_error", false);
        quadLight(8, "lamp");
        RvNodeSetInt(node, "samples", 4);
        setVertices({ moved(default_corners, scaling(size, size, 1)) });
        takeTexts();
        prepare();
        EXPECT_EQ(takeTexts(), fits ? Names{} : Names{ "E lamp: degenerate quad area light" })
            << size;
        const std::vector<Sample> all = samples({ 0, 0, -2 * size });
        EXPECT_EQ(all.size(), fits ? 16u : 0u) << size;
        for (const Sample& s : all)
            EXPECT_TRUE(std::isfinite(s.weight) && s.weight > 0 && std::isfinite(s.radiance.r))
                << size;
        startAnew();
    }
}

// ---- Horizons and loops ----

TEST_F(QuadLights, a_quad_that_crosses_the_horizon_shines_with_the_part_above_it)
{
    // Upright beside the point, from 1 below to 2 above it.
    const Corners whole = { { { 2, -1, -1 }, { 2, -1, 2 }, { 2, 1, 2 }, { 2, 1, -1 } } },
                  above = { { { 2, -1, 0 }, { 2, -1, 2 }, { 2, 1, 2 }, { 2, 1, 0 } } };
    const RtVector up = { 0, 0, 1 };
    for (const bool umbrate : { false, true }) {
        makeEmitter({ whole }, umbrate, 40);
        RvNodeSetInt(node, "resolution", 0);
        RvNodeSetBool(node, "mis", false);
        int below = 0;
        colorBy([&](RtShaderGlobals* sg) {
            below += sg->point.z < -1e-5f;
            return RV_RGB_WHITE;
        });
        prepare();
        const double want = irradianceFrom(above, { 0, 0, 0 }, up);
        EXPECT_NEAR(irradianceAt({ 0, 0, 0 }, up), want, 0.005 * want) << umbrate;
        EXPECT_EQ(below, 0) << "colours that nobody sees";
        RtShaderGlobals sg = surface();
        sg.front_hemisphere_only = 0;
        EXPECT_EQ(samplesAt(sg).size(), 1600u) << "from both sides all of it";
        EXPECT_GT(below, 400);
        startAnew();
    }
}

TEST_F(QuadLights, the_kind_of_loop_decides_how_many_samples_there_are)
{
    for (const char* type : { "quad", "sky" }) {
        node = type == std::string("quad") ? quadLight() : skydome();
        RvNodeSetInt(node, "samples", 3);
        RvNodeSetInt(node, "sss_samples", 4);
        prepare();
        for (const auto& [pass, nested, count] : { std::tuple{ RV_PASS_PIXELS, false, 9u },
                                                   { RV_PASS_PIXELS, true, 1u },
                                                   { RV_PASS_SSS, false, 16u },
                                                   { RV_PASS_SSS, true, 1u } }) {
            RtShaderGlobals sg = surface({ 0, 0, -1 });
            sg.front_hemisphere_only = 0;
            sg.state->pass = pass;
            sg.state->loop_samples = nested ? 5 : 0;
            const std::vector<Sample> all = samplesAt(sg);
            ASSERT_EQ(all.size(), count) << type << pass << nested;
            for (const Sample& s : all) {
                EXPECT_EQ(s.count, int(count));
                if (type == std::string("quad"))
                    EXPECT_NEAR(s.weight * float(count), 1, 1e-5);
                else
                    EXPECT_NEAR(s.weight * float(count), 4 * pi, 1e-3);
            }
        }
        startAnew();
    }
}

// ---- Volumes ----

TEST_F(QuadLights, volumes_see_the_quad_from_the_point_of_each_sample)
{
    quadLight();
    RvNodeSetBool(node, "cast_volumetric_shadows", false);
    prepare();
    EXPECT_FALSE(dataOf(node).volumetric_shadows);
    EXPECT_TRUE(dataOf(node).affect_volumetrics);
    RtShaderGlobals sg = surface({ 0, 0, -3 });
    sg.stage = RV_STAGE_VOLUME;
    sg.state->random[0] = sg.state->random[1] = 0.5f;
    const std::vector<Sample> all = samplesAt(sg);
    ASSERT_EQ(all.size(), 1u);
    EXPECT_NEAR(all[0].dist, 3, 1e-5);
    sg.point.z = 3;
    EXPECT_TRUE(samplesAt(sg).empty());
}

TEST_F(QuadLights, its_region_of_influence_is_a_sphere_around_it)
{
    quadLight();
    fade();
    set("low_light_threshold", 0.01f);
    prepare();
    const float reach = 10 + sqrtf(2);
    RtRay ray;
    const RtPoint origin = { 0, 0, -100 };
    const RtVector dir = { 0, 0, 1 };
    RvMakeRay(&ray, RV_RAY_CAMERA, &origin, &dir, 1e30, nullptr);
    RtLightBounds bounds;
    ASSERT_TRUE(methods(node).LightBounds(node, &bounds, &ray));
    EXPECT_NEAR(bounds.t0, 100 - reach, 1e-3);
    EXPECT_NEAR(bounds.t1, 100 + reach, 1e-3);
    EXPECT_NEAR(bounds.extent, reach, 1e-3);
    EXPECT_EQ(text(bounds.center), "0 0 0");
    ray.origin.x = 20;
    EXPECT_FALSE(methods(node).LightBounds(node, &bounds, &ray));
    ray.origin.x = 0;
    RvNodeSetBool(node, "affect_volumetrics", false);
    prepare();
    EXPECT_FALSE(methods(node).LightBounds(node, &bounds, &ray));
}
