// Statistical tests of the sampling sets of brdf_mis.cpp: what they draw against the density they
// state, and the light they reflect against quadrature.
//
// All four densities are exact where a direction is drawn, the widened lobe of Cook-Torrance and
// the weighted density of Ward-Duer included: the first is the density of the widened lobe, and the
// Ward-Duer lobe divided by its weight is the density of its half vectors,
//     value * cosine = density * 2 (N.d) / (N.V + N.d).
// What the samplers draw below the geometric surface becomes the zero vector, and the densities do
// not know of it; so the density of a valid direction is the stated one above that surface and 0
// below it, and samples without a direction are a cell of their own. One more exception: stretched
// Phong with the exponent 0 states a density behind the mirror direction too, since 0 to the power
// of 0 is 1; nothing is drawn there, and the lobe is 0 as well.
#include "brdf_mis.h"

#include "brdf_tools.h"
#include "statistics.h"

using namespace brdf_tools;
using statistics::Direction;

namespace {

Direction exact(const RtVector& v) { return { v.x, v.y, v.z }; }
RtVector rounded(const Direction& d) { return { float(d.x), float(d.y), float(d.z) }; }

struct Set {
    RtBRDFSampleFunc sample;
    RtBRDFEvalFunc evaluate;
    RtBRDFPdfFunc pdf;
};
const Set phong = { RvStretchedPhongMISSample, RvStretchedPhongMISBRDF, RvStretchedPhongMISPDF };
const Set ward = { RvWardDuerMISSample, RvWardDuerMISBRDF, RvWardDuerMISPDF };
const Set cook = { RvCookTorranceMISSample, RvCookTorranceMISBRDF, RvCookTorranceMISPDF };
const Set ashikhmin = { RvAshikhminShirleyMISSample, RvAshikhminShirleyMISBRDF,
                        RvAshikhminShirleyMISPDF };

// A lobe of a set, with the exponents or roughnesses along the tangents.
struct Lobe {
    const char* name;
    const Set* set;
    float x, y;
    bool sharp = false;
};

void* recordOf(const Lobe& lobe, const RtShaderGlobals* sg)
{
    static const RtVector U = rv::unit({ 3, 4, 0 }), W = rv::unit({ -4, 3, 0 });
    if (lobe.set == &phong)
        return RvStretchedPhongMISCreateData(sg, lobe.x);
    if (lobe.set == &ward)
        return RvWardDuerMISCreateData(sg, &U, &W, lobe.x, lobe.y);
    if (lobe.set == &cook)
        return RvCookTorranceMISCreateData(sg, &U, &W, lobe.x, lobe.y);
    return RvAshikhminShirleyMISCreateData(sg, &U, &W, lobe.x, lobe.y);
}

const Lobe lobes[] = {
    { "stretched Phong 0", &phong, 0, 0 },
    { "stretched Phong 4", &phong, 4, 0 },
    { "stretched Phong 60", &phong, 60, 0, true },
    { "stretched Phong 1000", &phong, 1000, 0, true },
    { "Ward-Duer 0.1", &ward, 0.1f, 0.1f, true },
    { "Ward-Duer 0.3", &ward, 0.3f, 0.3f },
    { "Ward-Duer 0.8", &ward, 0.8f, 0.8f },
    { "Ward-Duer 0.5 0.1", &ward, 0.5f, 0.1f },
    { "Cook-Torrance 0.1", &cook, 0.1f, 0.1f, true },
    { "Cook-Torrance 0.3", &cook, 0.3f, 0.3f },
    { "Cook-Torrance 0.8", &cook, 0.8f, 0.8f },
    { "Ashikhmin-Shirley 1", &ashikhmin, 1, 1 },
    { "Ashikhmin-Shirley 50", &ashikhmin, 50, 50, true },
    { "Ashikhmin-Shirley 400", &ashikhmin, 400, 400, true },
    { "Ashikhmin-Shirley 100 5", &ashikhmin, 100, 5 },
};
constexpr double view_angles[] = { 0, 40, 75 };
constexpr int test_count = int(std::size(lobes) * std::size(view_angles)) + 4;
constexpr double significance = 0.01 / test_count; // Bonferroni
constexpr int samples = 1000000;

class SampledLobes : public Lobes {
protected:
    // The cells of wide lobes are around the geometric normal, so that the horizon is an edge of
    // cells; those of sharp ones are around the mirror direction, and small there.
    statistics::SamplerTest test(const Lobe& lobe, unsigned seed, int steps)
    {
        const void* const data = recordOf(lobe, &sg);
        const Direction Ng = exact(sg.facing_geometric_normal);
        const Direction mirror = exact(rv::mirrored(sg.ray_dir, sg.facing_normal));
        const statistics::SphereCells wide(Ng), sharp(mirror, 2);
        return statistics::testSampler(
            lobe.sharp ? sharp : wide, samples, seed,
            [&](float u, float v, Direction* d) {
                const RtVector drawn = lobe.set->sample(data, u, v);
                *d = exact(drawn);
                return dot(drawn, drawn) > 0;
            },
            [&](const Direction& d) {
                const RtVector direction = rounded(d);
                return isDrawn(lobe, d, Ng, mirror) ? double(lobe.set->pdf(data, &direction)) : 0.0;
            },
            steps);
    }

    static bool isDrawn(const Lobe& lobe, const Direction& d, const Direction& Ng,
                        const Direction& mirror)
    {
        const bool behind = lobe.set == &phong && statistics::dot(d, mirror) < 0;
        return statistics::dot(d, Ng) > 0 && !behind;
    }

    // Rather small cells around the mirror direction.
    template <class F> static double integral(const RtVector& V, F f)
    {
        const statistics::SphereCells cells({ -V.x, -V.y, V.z }, 3);
        return statistics::integralOver(cells, f, 12);
    }
};

} // namespace

TEST_F(SampledLobes, every_set_draws_what_its_density_claims)
{
    unsigned seed = 1;
    for (const Lobe& lobe : lobes)
        for (const double angle : view_angles) {
            lookFrom(directionAt(angle, 25));
            const statistics::SamplerTest result = test(lobe, seed++, 12);
            EXPECT_GT(result.chi_square.p, significance)
                << lobe.name << " at " << angle << ": " << result.describe();
            EXPECT_GT(result.chi_square.degrees_of_freedom, 20) << lobe.name << " at " << angle;
            EXPECT_LE(result.density_integral, 1.0001) << lobe.name << " at " << angle;
        }
}

// The shading normal leans away from the geometric one; nothing is drawn below either's share.
TEST_F(SampledLobes, every_set_draws_what_its_density_claims_about_a_bumped_normal)
{
    const Lobe bumped[] = { { "Ward-Duer", &ward, 0.4f, 0.2f },
                            { "Cook-Torrance", &cook, 0.4f, 0.4f },
                            { "Ashikhmin-Shirley", &ashikhmin, 20, 20 } };
    lookFrom(directionAt(50, 25));
    sg.facing_geometric_normal = directionAt(12, 80);
    unsigned seed = 1000;
    for (const Lobe& lobe : bumped) {
        const statistics::SamplerTest result = test(lobe, seed++, 24);
        EXPECT_GT(result.chi_square.p, significance) << lobe.name << ": " << result.describe();
    }
}

TEST_F(SampledLobes, stretched_phong_states_no_density_below_a_bumped_normal)
{
    lookFrom(directionAt(50, 25));
    sg.facing_geometric_normal = directionAt(30, 205);
    const Lobe lobe = { "stretched Phong", &phong, 3, 0 };
    const void* const data = recordOf(lobe, &sg);
    const RtVector N = sg.facing_normal;
    int below = 0;
    statistics::Uniform uniform(2000);
    for (int i = 0; i < 100000; ++i) {
        const float u = uniform(), v = uniform();
        const RtVector d = RvStretchedPhongMISSample(data, u, v);
        if (!(dot(d, N) < 0))
            continue;
        ++below;
        EXPECT_EQ(RvStretchedPhongMISPDF(data, &d), 0);
        EXPECT_EQ(RvStretchedPhongMISBRDF(data, &d), 0);
    }
    EXPECT_GT(below, 100) << "they are drawn all the same";
}

TEST_F(SampledLobes, a_flat_phong_lobe_states_a_density_behind_the_mirror_direction)
{
    lookFrom(directionAt(60));
    const void* const data = recordOf({ "", &phong, 0, 0 }, &sg);
    const RtVector behind = directionAt(60);
    EXPECT_FLOAT_EQ(RvStretchedPhongMISPDF(data, &behind), rv::one_over_two_pi);
    EXPECT_EQ(RvStretchedPhongMISBRDF(data, &behind), 0);
}

TEST_F(SampledLobes, the_density_of_cook_torrance_is_that_of_the_widened_lobe)
{
    lookFrom(directionAt(75));
    const auto* const data = static_cast<const RtBRDFMISData*>(
        RvCookTorranceMISCreateData(&sg, nullptr, nullptr, 0.3f, 0));
    EXPECT_FLOAT_EQ(data->lobe_y, 1.2f - 0.2f * sqrtf(-sg.ray_dir.z));
    RtBRDFMISData narrow = *data;
    narrow.lobe_y = 1;
    // Far from the mirror direction the widened lobe draws more.
    const RtVector d = directionAt(20, 180);
    EXPECT_GT(RvCookTorranceMISPDF(data, &d), 1.2f * RvCookTorranceMISPDF(&narrow, &d));
    EXPECT_EQ(RvCookTorranceMISBRDF(data, &d), RvCookTorranceMISBRDF(&narrow, &d));
}

// The directional albedo, by quadrature of the value and by the estimator value / density.
TEST_F(SampledLobes, the_estimated_albedo_agrees_with_quadrature_at_five_roughnesses)
{
    struct Series {
        const char* name;
        const Set* set;
        float sizes[5];
        double most; // albedo; physically based Phong is stretched above 1
    };
    const Series all[] = {
        { "stretched Phong", &phong, { 0, 2, 10, 60, 500 }, 2 },
        { "Ward-Duer", &ward, { 0.08f, 0.15f, 0.3f, 0.5f, 0.9f }, 1.0001 },
        { "Cook-Torrance", &cook, { 0.08f, 0.15f, 0.3f, 0.5f, 0.9f }, 1.0001 },
        { "Ashikhmin-Shirley", &ashikhmin, { 1, 8, 40, 150, 600 }, 1.0001 },
    };
    unsigned seed = 3000;
    for (const Series& series : all)
        for (const float size : series.sizes)
            for (const double angle : { 10.0, 60.0 }) {
                const RtVector V = directionAt(angle, 25);
                lookFrom(V);
                const Lobe lobe = { series.name, series.set, size, size };
                const void* const data = recordOf(lobe, &sg);
                const double albedo = integral(V, [&](const Direction& d) {
                    const RtVector direction = rounded(d);
                    return double(series.set->evaluate(data, &direction));
                });
                const statistics::Estimate estimate =
                    statistics::estimate(samples, seed++, [&](float u, float v) {
                        const RtVector d = series.set->sample(data, u, v);
                        const float density = series.set->pdf(data, &d);
                        return density > 0 ? double(series.set->evaluate(data, &d) / density) : 0;
                    });
                EXPECT_NEAR(estimate.mean, albedo, 0.01 * albedo)
                    << series.name << " " << size << " at " << angle;
                EXPECT_LE(albedo, series.most) << series.name << " " << size << " at " << angle;
                EXPECT_GT(albedo, 0.2) << series.name << " " << size << " at " << angle;
                RecordProperty(std::string(series.name) + " " + std::to_string(size) + " at " +
                                   std::to_string(int(angle)),
                               std::to_string(albedo) + " " + std::to_string(estimate.mean));
            }
}
