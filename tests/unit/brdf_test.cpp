// Tests of brdf.cpp: reflectance in closed form, Fresnel weights, reflection, refraction, frames.
#include "brdf.h"

#include "brdf_tools.h"
#include "hemi_tables.h"

using namespace brdf_tools;

namespace {

using Reflectances = Lobes;

// The vectors of an evaluator's arguments.
struct Geometry {
    RtVector L, V, N;
    Tangent U, W;

    explicit Geometry(const json& in)
        : L(vectorOf(in.at("L"))), V(vectorOf(in.at("V"))), N(vectorOf(in.at("N"))), U(in, "U"),
          W(in, "W")
    {
    }
};

float number(const json& in, const char* key) { return goldenFloat(in.at(key)); }

struct Evaluator {
    const char* name;
    float (*evaluate)(const Geometry& g, const json& in);
};

const Evaluator evaluators[] = {
    { "RvPhongBRDF",
      [](const Geometry& g, const json& in) {
          return RvPhongBRDF(&g.L, &g.V, &g.N, number(in, "n"));
      } },
    { "RvBlinnPhongBRDF",
      [](const Geometry& g, const json& in) {
          return RvBlinnPhongBRDF(&g.L, &g.V, &g.N, number(in, "n"));
      } },
    { "RvModifiedPhongBRDF",
      [](const Geometry& g, const json& in) {
          return RvModifiedPhongBRDF(&g.L, &g.V, &g.N, number(in, "n"));
      } },
    { "RvStretchedPhongBRDF",
      [](const Geometry& g, const json& in) {
          return RvStretchedPhongBRDF(&g.L, &g.V, &g.N, number(in, "n"), in.at("reflected"));
      } },
    { "RvWardBRDF",
      [](const Geometry& g, const json& in) {
          return RvWardBRDF(&g.L, &g.V, &g.N, g.U.get(), g.W.get(), number(in, "ax"),
                            number(in, "ay"));
      } },
    { "RvWardDuerBRDF",
      [](const Geometry& g, const json& in) {
          return RvWardDuerBRDF(&g.L, &g.V, &g.N, g.U.get(), g.W.get(), number(in, "ax"),
                                number(in, "ay"));
      } },
    { "RvTorranceSparrowBRDF",
      [](const Geometry& g, const json& in) {
          return RvTorranceSparrowBRDF(&g.L, &g.V, &g.N, number(in, "m"));
      } },
    { "RvCookTorranceBRDF",
      [](const Geometry& g, const json& in) {
          return RvCookTorranceBRDF(&g.L, &g.V, &g.N, g.U.get(), g.W.get(), number(in, "m"));
      } },
    { "RvAshikhminShirleyBRDF",
      [](const Geometry& g, const json& in) {
          return RvAshikhminShirleyBRDF(&g.L, &g.V, &g.N, g.U.get(), g.W.get(), number(in, "nu"),
                                        number(in, "nv"));
      } },
    { "RvLafortuneLobeBRDF",
      [](const Geometry& g, const json& in) {
          return RvLafortuneLobeBRDF(&g.L, &g.V, &g.N, number(in, "cxy"), number(in, "cz"),
                                     number(in, "n"));
      } },
    { "RvOrenNayarBRDF",
      [](const Geometry& g, const json& in) {
          return RvOrenNayarBRDF(&g.L, &g.V, &g.N, number(in, "sigma"));
      } },
    { "RvLommelSeeligerBRDF",
      [](const Geometry& g, const json&) { return RvLommelSeeligerBRDF(&g.L, &g.V, &g.N); } },
};

} // namespace

// ---- Reflectance ----

TEST_F(Reflectances, every_evaluator_gives_the_golden_numbers)
{
    for (const Evaluator& row : evaluators)
        for (const json& v : goldenVectors("brdf", row.name)) {
            setPhysicallyBased(v.at("in"));
            const Geometry geometry(v.at("in"));
            expectGoldenNumbers(v, "value", { row.evaluate(geometry, v.at("in")) });
        }
}

TEST_F(Reflectances, a_smooth_oren_nayar_surface_is_exactly_lambertian)
{
    const RtVector N = { 0, 0, 1 }, L = directionAt(70), V = directionAt(30, 200);
    for (const float sigma : { 0.0f, -1.0f }) {
        rv::render_options->physically_based = false;
        EXPECT_EQ(RvOrenNayarBRDF(&L, &V, &N, sigma), 1);
        rv::render_options->physically_based = true;
        EXPECT_EQ(RvOrenNayarBRDF(&L, &V, &N, sigma), RV_ONEOVERPI);
    }
}

TEST_F(Reflectances, oren_nayar_takes_a_view_from_below_for_one_from_above_in_one_cosine_only)
{
    rv::render_options->physically_based = false;
    const RtVector N = { 0, 0, 1 }, L = directionAt(50);
    const RtVector above = directionAt(40), below = { above.x, above.y, -above.z };
    const RtVector projected = rv::unit(below - N * fabsf(below.z));
    const float cos_phi = dot(projected, RtVector{ 1, 0, 0 });
    EXPECT_LT(cos_phi, 0.99f) << "the tangent keeps a part along the normal";
    EXPECT_NEAR(RvOrenNayarBRDF(&L, &below, &N, 0.3f),
                rv::OrenNayar(0.3f * rv::pi)(above.z, L.z, cos_phi), 1e-6);
    EXPECT_LT(RvOrenNayarBRDF(&L, &below, &N, 0.3f), RvOrenNayarBRDF(&L, &above, &N, 0.3f));
}

TEST_F(Reflectances, oren_nayar_is_a_number_along_the_horizon)
{
    const RtVector N = { 0, 0, 1 }, V = directionAt(30), horizon = { 0, 1, 0 };
    EXPECT_EQ(RvOrenNayarBRDF(&horizon, &V, &N, 0.5f), rv::OrenNayar(0.5f * rv::pi).A / rv::pi);
}

TEST_F(Reflectances, lommel_seeliger_clamps_the_view_only)
{
    rv::render_options->physically_based = false;
    const RtVector N = { 0, 0, 1 };
    const RtVector up = directionAt(60), down = directionAt(120);
    EXPECT_FLOAT_EQ(RvLommelSeeligerBRDF(&up, &down, &N), 2);
    EXPECT_FLOAT_EQ(RvLommelSeeligerBRDF(&down, &N, &N), 2);
    EXPECT_FLOAT_EQ(RvLommelSeeligerBRDF(&down, &down, &N), -2);
}

TEST_F(Reflectances, anisotropic_lobes_without_tangents_build_a_frame_or_give_nothing)
{
    const RtVector N = { 0, 0, 1 }, L = directionAt(20, 10), V = directionAt(35, 170);
    RtVector U, W;
    RvBuildLocalFrameShirley(&U, &W, &N);
    EXPECT_EQ(RvAshikhminShirleyBRDF(&L, &V, &N, nullptr, nullptr, 10, 100),
              RvAshikhminShirleyBRDF(&L, &V, &N, &U, &W, 10, 100));
    EXPECT_EQ(RvAshikhminShirleyBRDF(&L, &V, &N, &W, nullptr, 10, 100),
              RvAshikhminShirleyBRDF(&L, &V, &N, &U, &W, 10, 100));
    EXPECT_EQ(RvWardBRDF(&L, &V, &N, nullptr, &W, 0.1f, 0.2f), 0);
    EXPECT_EQ(RvWardDuerBRDF(&L, &V, &N, &U, nullptr, 0.1f, 0.2f), 0);
}

TEST_F(Reflectances, lobes_are_reciprocal)
{
    const RtVector N = { 0, 0, 1 }, U = { 1, 0, 0 }, W = { 0, 1, 0 };
    for (int i = 0; i < 100; ++i) {
        const RtVector a = directionAt(5 + i * 0.8, i * 31), b = directionAt(80 - i * 0.7, i * 57);
        const auto check = [&](const char* name, float ab, float ba) {
            EXPECT_NEAR(ab, ba, 1e-4 * fabs(ab)) << name << " " << i;
        };
        check("stretched Phong", RvStretchedPhongBRDF(&a, &b, &N, 5, false),
              RvStretchedPhongBRDF(&b, &a, &N, 5, false));
        check("Ward", RvWardBRDF(&a, &b, &N, &U, &W, 0.5f, 0.3f),
              RvWardBRDF(&b, &a, &N, &U, &W, 0.5f, 0.3f));
        check("Ward-Duer", RvWardDuerBRDF(&a, &b, &N, &U, &W, 0.5f, 0.3f),
              RvWardDuerBRDF(&b, &a, &N, &U, &W, 0.5f, 0.3f));
        check("Cook-Torrance", RvCookTorranceBRDF(&a, &b, &N, &U, &W, 0.4f),
              RvCookTorranceBRDF(&b, &a, &N, &U, &W, 0.4f));
        check("Ashikhmin-Shirley", RvAshikhminShirleyBRDF(&a, &b, &N, &U, &W, 4, 9),
              RvAshikhminShirleyBRDF(&b, &a, &N, &U, &W, 4, 9));
        check("Lafortune", RvLafortuneLobeBRDF(&a, &b, &N, -1, 0.8f, 5),
              RvLafortuneLobeBRDF(&b, &a, &N, -1, 0.8f, 5));
    }
}

// ---- Fresnel ----

TEST_F(Reflectances, fresnel_weights_are_the_golden_ones)
{
    for (const json& v : goldenVectors("brdf", "RvFresnelWeight")) {
        const RtVector N = vectorOf(v.at("in").at("N")), I = vectorOf(v.at("in").at("I"));
        expectGoldenNumbers(v, "value", { RvFresnelWeight(&N, &I, number(v.at("in"), "Krn")) });
    }
    for (const json& v : goldenVectors("brdf", "RvFresnelWeightRGB")) {
        const RtVector N = vectorOf(v.at("in").at("N")), I = vectorOf(v.at("in").at("I"));
        const RtRGB Krn = rgbOf(v.at("in").at("Krn"));
        RtRGB out;
        RvFresnelWeightRGB(&N, &I, &Krn, &out);
        expectGoldenNumbers(v, "value", { out.r, out.g, out.b });
    }
}

TEST_F(Reflectances, the_scalar_fresnel_weight_takes_a_view_from_behind_for_a_grazing_one)
{
    const RtVector N = { 0, 0, 1 }, facing = { 0, 0, -1 }, grazing = { 1, 0, 0 };
    EXPECT_EQ(RvFresnelWeight(&N, &facing, 0.3f), 0.3f);
    EXPECT_EQ(RvFresnelWeight(&N, &grazing, 0.3f), 1);
    EXPECT_EQ(RvFresnelWeight(&N, &N, 0.3f), 1) << "clamped";
    const RtRGB Krn = { 0, 0, 0 };
    RtRGB out;
    RvFresnelWeightRGB(&N, &N, &Krn, &out);
    EXPECT_EQ(out.r, 32) << "not clamped";
}

// ---- Reflection and refraction ----

TEST_F(Reflectances, reflections_are_the_golden_ones)
{
    for (const json& v : goldenVectors("brdf", "RvReflect")) {
        const RtVector N = vectorOf(v.at("in").at("N")), I = vectorOf(v.at("in").at("I"));
        RtVector R;
        RvReflect(&I, &N, &R);
        expectGoldenNumbers(v, "R", numbersOf(R));
    }
    for (const json& v : goldenVectors("brdf", "RvReflectSafe")) {
        const json& in = v.at("in");
        const RtVector N = vectorOf(in.at("N")), I = vectorOf(in.at("I")),
                       Ng = vectorOf(in.at("Ng"));
        RtVector R;
        RvReflectSafe(&I, &N, &Ng, &R);
        expectGoldenNumbers(v, "R", numbersOf(R));
    }
}

TEST_F(Reflectances, a_safe_reflection_never_leaves_the_side_of_a_bumped_normal)
{
    const RtVector Ng = { 0, 0, 1 };
    for (int bump = 0; bump < 90; bump += 3)
        for (int turn = 0; turn < 360; turn += 15)
            for (int angle = 91; angle < 180; angle += 4)
                for (const float side : { 1.0f, -1.0f }) {
                    // A ray from the side that the bumped normal is on.
                    const RtVector N = directionAt(bump, turn) * side;
                    const RtVector I = directionAt(angle) * side;
                    RtVector R;
                    RvReflectSafe(&I, &N, &Ng, &R);
                    EXPECT_GE(dot(R, Ng) * side, 0) << bump << " " << turn << " " << angle;
                }
}

TEST_F(Reflectances, refractions_are_the_golden_ones)
{
    for (const json& v : goldenVectors("brdf", "RvRefract")) {
        const json& in = v.at("in");
        const RtVector N = vectorOf(in.at("N")), I = vectorOf(in.at("I"));
        RtVector T = { 7, 8, 9 };
        const bool ok = RvRefract(&I, &N, number(in, "ior_in"), number(in, "ior_out"), &T);
        expectGolden(v, "ok", ok);
        if (ok)
            expectGoldenNumbers(v, "T", numbersOf(T));
        else
            EXPECT_EQ(numbersOf(T), (std::vector<float>{ 7, 8, 9 })) << goldenId(v);
    }
}

TEST_F(Reflectances, equal_indices_leave_the_direction_as_it_is)
{
    const RtVector N = { 0, 0, 1 }, I = directionAt(179.5, 33);
    RtVector T;
    EXPECT_TRUE(RvRefract(&I, &N, 1.5f, 1.5f, &T));
    EXPECT_EQ(numbersOf(T), numbersOf(I));
}

TEST_F(Reflectances, indices_that_make_no_sense_reflect)
{
    const RtVector N = { 0, 0, 1 };
    const RtVector straight = { 0, 0, -1 }, oblique = directionAt(150);
    const float none = NAN;
    for (const RtVector& I : { straight, oblique })
        for (const auto& [in, out] : { std::pair{ 1.0f, 0.0f }, { 0.0f, 0.0f }, { none, 1.0f } }) {
            RtVector T = { 7, 8, 9 };
            EXPECT_FALSE(RvRefract(&I, &N, in, out, &T)) << in << " " << out;
            EXPECT_EQ(numbersOf(T), (std::vector<float>{ 7, 8, 9 }));
        }
}

TEST_F(Reflectances, results_may_take_the_place_of_arguments)
{
    const RtVector N = { 0, 0, 1 }, I = directionAt(150, 20);
    RtVector mirror, bent, in_place = I;
    RvReflect(&I, &N, &mirror);
    RvReflect(&in_place, &N, &in_place);
    EXPECT_EQ(numbersOf(in_place), numbersOf(mirror));
    in_place = I;
    RvReflectSafe(&in_place, &N, &N, &in_place);
    EXPECT_EQ(numbersOf(in_place), numbersOf(mirror));
    RvRefract(&I, &N, 1, 1.5f, &bent);
    in_place = I;
    RvRefract(&in_place, &N, 1, 1.5f, &in_place);
    EXPECT_EQ(numbersOf(in_place), numbersOf(bent));
}

TEST_F(Reflectances, normals_are_turned_to_face_the_ray)
{
    for (const json& v : goldenVectors("brdf", "RvFaceForward")) {
        RtVector N = vectorOf(v.at("in").at("N"));
        const RtVector I = vectorOf(v.at("in").at("I"));
        RvFaceForward(&N, &I);
        expectGoldenNumbers(v, "N", numbersOf(N));
    }
}

// ---- Frames ----

TEST_F(Reflectances, frames_are_the_golden_ones)
{
    const struct {
        const char* name;
        void (*build)(RtVector*, RtVector*, const RtVector*);
    } builders[] = { { "RvBuildLocalFrameShirley", RvBuildLocalFrameShirley },
                     { "RvBuildLocalFramePolar", RvBuildLocalFramePolar } };
    for (const auto& row : builders)
        for (const json& v : goldenVectors("brdf", row.name)) {
            const RtVector N = vectorOf(v.at("in").at("N"));
            RtVector U, V;
            row.build(&U, &V, &N);
            expectGoldenNumbers(v, "U", numbersOf(U));
            expectGoldenNumbers(v, "V", numbersOf(V));
        }
}

TEST_F(Reflectances, frames_are_orthonormal_for_every_normal)
{
    std::vector<RtVector> normals;
    for (int x = -4; x <= 4; ++x)
        for (int y = -4; y <= 4; ++y)
            for (int z = -4; z <= 4; ++z)
                if (x || y || z)
                    normals.push_back(rv::unit({ float(x), float(y), float(z) }));
    for (const float tiny : { 1e-4f, 1e-20f, 1e-30f, 1e-40f })
        normals.insert(normals.end(), { { tiny, 0, 1 }, { 0, -tiny, 1 }, { tiny, 1, tiny } });
    for (const RtVector& N : normals)
        for (const bool polar : { false, true }) {
            RtVector U, V;
            (polar ? RvBuildLocalFramePolar : RvBuildLocalFrameShirley)(&U, &V, &N);
            for (const float length : { dot(U, U), dot(V, V) })
                EXPECT_NEAR(length, 1, 1e-6) << N.x << " " << N.y << " " << N.z << " " << polar;
            for (const float cosine : { dot(U, V), dot(U, N), dot(V, N) })
                EXPECT_NEAR(cosine, 0, 1e-6) << N.x << " " << N.y << " " << N.z << " " << polar;
            if (polar) {
                EXPECT_EQ(U.z, 0);
            }
        }
}

TEST_F(Reflectances, frames_of_the_axes)
{
    const RtVector up = { 0, 0, 1 }, down = { 0, 0, -1 };
    RtVector U, V;
    for (const RtVector& N : { up, down }) {
        RvBuildLocalFramePolar(&U, &V, &N);
        EXPECT_EQ(numbersOf(U), (std::vector<float>{ 1, 0, 0 }));
    }
    RvBuildLocalFrameShirley(&U, &V, &up);
    EXPECT_EQ(numbersOf(U), (std::vector<float>{ 1, 0, 0 })) << "the tie of x and y goes to y";
    EXPECT_EQ(numbersOf(V), (std::vector<float>{ 0, 1, 0 }));
}

// ---- Media, tables, nulls ----

TEST_F(Reflectances, transmittance_over_a_distance_is_the_golden_one)
{
    for (const json& v : goldenVectors("brdf", "transmittance_over_distance")) {
        const rv::Absorption absorption(rgbOf(v.at("in").at("T")));
        const RtRGB left = absorption.over(v.at("in").at("d").get<double>());
        expectGoldenNumbers(v, "factor", { left.r, left.g, left.b });
    }
}

TEST_F(Reflectances, absorption_knows_white_and_black)
{
    EXPECT_FALSE(rv::Absorption(RV_RGB_WHITE).isActive());
    const rv::Absorption some(RtRGB{ 1, 1, 0 });
    EXPECT_TRUE(some.isActive());
    const RtRGB left = some.over(1e12);
    EXPECT_EQ(left.r, 1);
    EXPECT_EQ(left.b, 0);
    EXPECT_EQ(some.over(1e-6).b, 0);
}

TEST_F(Reflectances, hemisphere_tables_are_the_golden_ones)
{
    for (const json& v : goldenVectors("brdf", "RvInitializeHemiTables")) {
        const int i = v.at("in").at("index");
        const rv::CosSin radius = rv::hemi_tables.radius[i], angle = rv::hemi_tables.angle[i];
        expectGoldenNumbers(v, "radius", { radius.cos, radius.sin });
        expectGoldenNumbers(v, "angle", { angle.cos, angle.sin });
    }
}

TEST_F(Reflectances, null_vectors_give_neutral_results)
{
    const RtVector v = { 0, 0, 1 };
    const RtVector* const p[] = { nullptr, &v };
    for (int i = 0; i < 7; ++i) { // every combination but the complete one
        const RtVector *L = p[i & 1], *V = p[i >> 1 & 1], *N = p[i >> 2 & 1];
        EXPECT_EQ(RvPhongBRDF(L, V, N, 1), 0);
        EXPECT_EQ(RvBlinnPhongBRDF(L, V, N, 1), 0);
        EXPECT_EQ(RvModifiedPhongBRDF(L, V, N, 1), 0);
        EXPECT_EQ(RvStretchedPhongBRDF(L, V, N, 1, true), 0);
        EXPECT_EQ(RvWardBRDF(L, V, N, &v, &v, 1, 1), 0);
        EXPECT_EQ(RvWardDuerBRDF(L, V, N, &v, &v, 1, 1), 0);
        EXPECT_EQ(RvTorranceSparrowBRDF(L, V, N, 1), 0);
        EXPECT_EQ(RvCookTorranceBRDF(L, V, N, nullptr, nullptr, 1), 0);
        EXPECT_EQ(RvAshikhminShirleyBRDF(L, V, N, nullptr, nullptr, 1, 1), 0);
        EXPECT_EQ(RvLafortuneLobeBRDF(L, V, N, 1, 1, 1), 0);
        EXPECT_EQ(RvOrenNayarBRDF(L, V, N, 1), 0);
        EXPECT_EQ(RvLommelSeeligerBRDF(L, V, N), 0);
    }
    EXPECT_EQ(RvFresnelWeight(nullptr, &v, 0.5f), 0);
    EXPECT_EQ(RvFresnelWeight(&v, nullptr, 0.5f), 0);
    const RtRGB white = RV_RGB_WHITE;
    RtRGB color = { 7, 8, 9 };
    RvFresnelWeightRGB(nullptr, &v, &white, &color);
    RvFresnelWeightRGB(&v, nullptr, &white, &color);
    RvFresnelWeightRGB(&v, &v, nullptr, &color);
    RvFresnelWeightRGB(&v, &v, &white, nullptr);
    EXPECT_EQ(color.r, 7);
    RtVector out = { 7, 8, 9 };
    RvReflect(nullptr, &v, &out);
    RvReflect(&v, nullptr, &out);
    RvReflect(&v, &v, nullptr);
    RvReflectSafe(nullptr, &v, &v, &out);
    RvReflectSafe(&v, nullptr, &v, &out);
    RvReflectSafe(&v, &v, nullptr, &out);
    RvReflectSafe(&v, &v, &v, nullptr);
    EXPECT_FALSE(RvRefract(nullptr, &v, 1, 1, &out));
    EXPECT_FALSE(RvRefract(&v, nullptr, 1, 1, &out));
    EXPECT_FALSE(RvRefract(&v, &v, 1, 1, nullptr));
    RvFaceForward(nullptr, &v);
    RvFaceForward(&out, nullptr);
    RvBuildLocalFrameShirley(nullptr, &out, &v);
    RvBuildLocalFrameShirley(&out, nullptr, &v);
    RvBuildLocalFrameShirley(&out, &out, nullptr);
    RvBuildLocalFramePolar(nullptr, &out, &v);
    RvBuildLocalFramePolar(&out, nullptr, &v);
    RvBuildLocalFramePolar(&out, &out, nullptr);
    EXPECT_EQ(numbersOf(out), (std::vector<float>{ 7, 8, 9 }));
}

TEST(ReflectancesWithoutUniverse, are_not_physically_based)
{
    const RtVector N = { 0, 0, 1 };
    EXPECT_EQ(RvOrenNayarBRDF(&N, &N, &N, 0), 1);
}
