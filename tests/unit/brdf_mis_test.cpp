// Tests of brdf_mis.cpp: records, directions, values and densities of the sampling sets.
#include "brdf_mis.h"

#include "allocation_failures.h"
#include "brdf_tools.h"
#include "integrators.h"

using namespace brdf_tools;

namespace {

struct Family {
    const char* name;
    void* (*create)(const RtShaderGlobals* sg, const json& in);
    RtBRDFSampleFunc sample;
    RtBRDFEvalFunc evaluate;
    RtBRDFPdfFunc pdf;
    std::string fn(const char* what) const { return "Rv" + std::string(name) + "MIS" + what; }
};

template <void* (*create)(const RtShaderGlobals*, const RtVector*, const RtVector*, float, float)>
void* createAnisotropic(const RtShaderGlobals* sg, const json& in)
{
    const char* const x = in.contains("nu") ? "nu" : "rx";
    const char* const y = in.contains("nv") ? "nv" : "ry";
    return create(sg, Tangent(in, "U").get(), Tangent(in, "V").get(), goldenFloat(in.at(x)),
                  goldenFloat(in.at(y)));
}

const Family families[] = {
    { "StretchedPhong",
      [](const RtShaderGlobals* sg, const json& in) {
          return RvStretchedPhongMISCreateData(sg, goldenFloat(in.at("n")));
      },
      RvStretchedPhongMISSample, RvStretchedPhongMISBRDF, RvStretchedPhongMISPDF },
    { "WardDuer", createAnisotropic<RvWardDuerMISCreateData>, RvWardDuerMISSample,
      RvWardDuerMISBRDF, RvWardDuerMISPDF },
    { "CookTorrance", createAnisotropic<RvCookTorranceMISCreateData>, RvCookTorranceMISSample,
      RvCookTorranceMISBRDF, RvCookTorranceMISPDF },
    { "AshikhminShirley", createAnisotropic<RvAshikhminShirleyMISCreateData>,
      RvAshikhminShirleyMISSample, RvAshikhminShirleyMISBRDF, RvAshikhminShirleyMISPDF },
};

class SamplingSets : public Lobes {
protected:
    // The record of a vector's context.
    void* create(const Family& family, const json& in)
    {
        sg.ray_dir = vectorOf(in.at("ray_dir"));
        sg.facing_normal = vectorOf(in.at("facing_normal"));
        sg.facing_geometric_normal = vectorOf(in.at("facing_geometric_normal"));
        return family.create(&sg, in);
    }
};

} // namespace

// ---- Golden numbers ----

TEST_F(SamplingSets, records_are_the_golden_ones)
{
    for (const Family& family : families)
        for (const json& v : goldenVectors("brdf", family.fn("CreateData"))) {
            const void* const data = create(family, v.at("in"));
            ASSERT_TRUE(data);
            const auto& lobe = *static_cast<const rv::LobeGeometry*>(data);
            expectGoldenNumbers(v, "N", numbersOf(lobe.N));
            expectGoldenNumbers(v, "Ng", numbersOf(lobe.Ng));
            expectGoldenNumbers(v, "V", numbersOf(lobe.V));
            expectGoldenNumbers(v, "U", numbersOf(lobe.U));
            expectGoldenNumbers(v, "W", numbersOf(lobe.W));
            if (v.at("out").contains("R")) {
                const auto& phong = *static_cast<const rv::StretchedPhongData*>(data);
                expectGoldenNumbers(v, "R", numbersOf(phong.R));
                expectGoldenNumbers(v, "n", { phong.n });
            } else {
                const auto& other = *static_cast<const RtBRDFMISData*>(data);
                expectGoldenNumbers(v, "lobe_x", { other.lobe_x });
                expectGoldenNumbers(v, "lobe_y", { other.lobe_y });
            }
        }
}

TEST_F(SamplingSets, directions_are_the_golden_ones)
{
    for (const Family& family : families)
        for (const json& v : goldenVectors("brdf", family.fn("Sample"))) {
            const json& in = v.at("in");
            const void* const data = create(family, in.at("create"));
            expectGoldenNumbers(
                v, "dir",
                numbersOf(family.sample(data, goldenFloat(in.at("u")), goldenFloat(in.at("v")))));
        }
}

TEST_F(SamplingSets, values_and_densities_are_the_golden_ones)
{
    for (const Family& family : families)
        for (const char* what : { "BRDF", "PDF" })
            for (const json& v : goldenVectors("brdf", family.fn(what))) {
                const json& in = v.at("in");
                setPhysicallyBased(in);
                const void* const data = create(family, in.at("create"));
                const RtVector d = vectorOf(in.at("dir"));
                const auto function = strcmp(what, "PDF") ? family.evaluate : family.pdf;
                expectGoldenNumbers(v, "value", { function(data, &d) });
            }
}

// ---- Limits ----

TEST_F(SamplingSets, lobes_never_become_singular)
{
    lookFrom(directionAt(30));
    for (const float none : { 0.0f, -1.0f, NAN }) {
        const auto* cook = static_cast<RtBRDFMISData*>(
            RvCookTorranceMISCreateData(&sg, nullptr, nullptr, none, none));
        EXPECT_EQ(cook->lobe_x, 0.0004f) << none;
        const auto* ward =
            static_cast<RtBRDFMISData*>(RvWardDuerMISCreateData(&sg, nullptr, nullptr, none, none));
        EXPECT_EQ(ward->lobe_x, 1e-7f) << none;
        EXPECT_EQ(ward->lobe_y, 1e-7f) << none;
    }
    for (const float n : { 1e6f, INFINITY, NAN }) {
        const auto* phong =
            static_cast<rv::StretchedPhongData*>(RvStretchedPhongMISCreateData(&sg, n));
        EXPECT_EQ(phong->n, 100000) << n;
    }
}

TEST_F(SamplingSets, the_sharpest_lobes_draw_the_mirror_direction)
{
    lookFrom(directionAt(30));
    const RtVector mirror = directionAt(30, 180);
    void* const records[] = { RvStretchedPhongMISCreateData(&sg, 1e9f),
                              RvWardDuerMISCreateData(&sg, nullptr, nullptr, 0, 0),
                              RvCookTorranceMISCreateData(&sg, nullptr, nullptr, 0, 0),
                              RvAshikhminShirleyMISCreateData(&sg, nullptr, nullptr, 1e7f, 1e7f) };
    for (size_t i = 0; i < std::size(families); ++i)
        for (const float u : { 0.001f, 0.3f, 0.9f })
            EXPECT_GT(dot(families[i].sample(records[i], u, u), mirror), 0.999f)
                << families[i].name << " " << u;
}

TEST_F(SamplingSets, directions_and_densities_are_numbers_for_all_points_of_the_square)
{
    static const float edges[] = { 0, 0x1p-149f, 0x1p-24f, 0.25f, 0.5f, 0.75f, 0x1.fffffep-1f, 1 };
    for (const double angle : { 0.0, 45.0, 89.99, 90.0, 120.0 }) {
        lookFrom(directionAt(angle, 20));
        for (const float size : { 0.0f, 1e-3f, 0.3f, 1.0f }) {
            void* const records[] = {
                RvStretchedPhongMISCreateData(&sg, size > 0 ? 1 / size : 1e9f),
                RvWardDuerMISCreateData(&sg, nullptr, nullptr, size, 1),
                RvCookTorranceMISCreateData(&sg, nullptr, nullptr, size, size),
                RvAshikhminShirleyMISCreateData(&sg, nullptr, nullptr, 1e4f * size, 10)
            };
            for (size_t i = 0; i < std::size(families); ++i)
                for (const float u : edges)
                    for (const float v : edges) {
                        const RtVector d = families[i].sample(records[i], u, v);
                        EXPECT_TRUE(rv::isFinite(d)) << families[i].name << " " << u << " " << v;
                        EXPECT_FALSE(std::isnan(families[i].pdf(records[i], &d)))
                            << families[i].name << " " << u << " " << v;
                    }
        }
    }
}

TEST_F(SamplingSets, no_density_is_not_a_number)
{
    lookFrom(directionAt(50, 20));
    const RtVector directions[] = { sg.ray_dir,  sg.ray_dir * -1.0f, { 1, 0, 0 },
                                    { 0, 0, 1 }, { 0, 0, -1 },       { 0, 0, 0 } };
    void* const records[] = { RvStretchedPhongMISCreateData(&sg, 10),
                              RvWardDuerMISCreateData(&sg, nullptr, nullptr, 0.1f, 0.2f),
                              RvCookTorranceMISCreateData(&sg, nullptr, nullptr, 0.2f, 0.2f),
                              RvAshikhminShirleyMISCreateData(&sg, nullptr, nullptr, 100, 10) };
    for (size_t i = 0; i < std::size(families); ++i)
        for (const RtVector& d : directions) {
            EXPECT_FALSE(std::isnan(families[i].pdf(records[i], &d))) << families[i].name;
            EXPECT_FALSE(std::isnan(families[i].evaluate(records[i], &d))) << families[i].name;
        }
}

TEST_F(SamplingSets, values_include_the_cosine)
{
    lookFrom(directionAt(20));
    const RtVector N = { 0, 0, 1 }, V = directionAt(20), d = directionAt(50, 170);
    const RtVector U = { 1, 0, 0 }, W = { 0, 1, 0 };
    void* const phong = RvStretchedPhongMISCreateData(&sg, 10);
    EXPECT_FLOAT_EQ(RvStretchedPhongMISBRDF(phong, &d),
                    RvStretchedPhongBRDF(&d, &V, &N, 10, false) * d.z);
    void* const ward = RvWardDuerMISCreateData(&sg, &U, &W, 0.3f, 0.5f);
    EXPECT_FLOAT_EQ(RvWardDuerMISBRDF(ward, &d),
                    RvWardDuerBRDF(&d, &V, &N, &U, &W, 0.3f, 0.5f) * d.z);
    void* const cook = RvCookTorranceMISCreateData(&sg, &U, &W, 0.3f, 0.5f);
    EXPECT_FLOAT_EQ(RvCookTorranceMISBRDF(cook, &d),
                    RvCookTorranceBRDF(&d, &V, &N, &U, &W, 0.3f) * d.z);
    void* const ashikhmin = RvAshikhminShirleyMISCreateData(&sg, &U, &W, 30, 50);
    EXPECT_FLOAT_EQ(RvAshikhminShirleyMISBRDF(ashikhmin, &d),
                    RvAshikhminShirleyBRDF(&d, &V, &N, &U, &W, 30, 50) * d.z);
}

// ---- The families of "standard" ----

TEST_F(SamplingSets, the_table_of_standard_is_in_the_order_of_the_enumeration)
{
    const rv::SpecularFamily* const table = rv::specular_families;
    EXPECT_EQ(table[0].sample, RvStretchedPhongMISSample);
    EXPECT_EQ(table[0].evaluate, RvStretchedPhongMISBRDF);
    EXPECT_EQ(table[0].pdf, RvStretchedPhongMISPDF);
    EXPECT_EQ(table[0].integrate, rv::integrateStretchedPhong);
    EXPECT_EQ(table[1].create, RvWardDuerMISCreateData);
    EXPECT_EQ(table[1].sample, RvWardDuerMISSample);
    EXPECT_EQ(table[1].evaluate, RvWardDuerMISBRDF);
    EXPECT_EQ(table[1].pdf, RvWardDuerMISPDF);
    EXPECT_EQ(table[1].integrate, rv::integrateWardDuer);
    EXPECT_EQ(table[2].create, RvCookTorranceMISCreateData);
    EXPECT_EQ(table[2].sample, RvCookTorranceMISSample);
    EXPECT_EQ(table[2].evaluate, RvCookTorranceMISBRDF);
    EXPECT_EQ(table[2].pdf, RvCookTorranceMISPDF);
    EXPECT_EQ(table[2].integrate, rv::integrateCookTorrance);
}

TEST_F(SamplingSets, the_exponent_of_standard_follows_from_the_roughness)
{
    lookFrom(directionAt(30));
    const struct {
        float roughness, n;
    } rows[] = { { 1, 0 }, { 0.5f, 1.5f }, { 0.1f, 49.5f }, { 0.001f, 100000 }, { 0, 100000 } };
    for (const auto& row : rows) {
        const auto* const data = static_cast<rv::StretchedPhongData*>(
            rv::specular_families[0].create(&sg, nullptr, nullptr, row.roughness, 0.7f));
        EXPECT_FLOAT_EQ(data->n, row.n) << row.roughness;
    }
}

// ---- Nothing to work on ----

TEST_F(SamplingSets, null_records_and_directions_give_neutral_results)
{
    lookFrom(directionAt(30));
    void* const records[] = { RvStretchedPhongMISCreateData(&sg, 10),
                              RvWardDuerMISCreateData(&sg, nullptr, nullptr, 0.1f, 0.1f),
                              RvCookTorranceMISCreateData(&sg, nullptr, nullptr, 0.1f, 0.1f),
                              RvAshikhminShirleyMISCreateData(&sg, nullptr, nullptr, 10, 10) };
    const RtVector d = { 0, 0, 1 };
    for (size_t i = 0; i < std::size(families); ++i) {
        const Family& family = families[i];
        EXPECT_EQ(numbersOf(family.sample(nullptr, 0.5f, 0.5f)), (std::vector<float>{ 0, 0, 0 }));
        EXPECT_EQ(family.evaluate(nullptr, &d), 0);
        EXPECT_EQ(family.evaluate(records[i], nullptr), 0);
        EXPECT_EQ(family.pdf(nullptr, &d), 0);
        EXPECT_EQ(family.pdf(records[i], nullptr), 0);
    }
    EXPECT_FALSE(RvStretchedPhongMISCreateData(nullptr, 10));
    EXPECT_FALSE(RvWardDuerMISCreateData(nullptr, &d, &d, 1, 1));
    EXPECT_FALSE(RvCookTorranceMISCreateData(nullptr, &d, &d, 1, 1));
    EXPECT_FALSE(RvAshikhminShirleyMISCreateData(nullptr, &d, &d, 1, 1));
    rv::the_frame->thread_slots = nullptr;
    EXPECT_FALSE(RvStretchedPhongMISCreateData(&sg, 10)) << "no thread was prepared";
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(SamplingSets, records_take_nothing_but_their_size_from_the_pool)
{
    lookFrom(directionAt(30));
    const RtMemPool& pool = *slots[0].shading_pool;
    withAllocations(0, [&] {
        for (const rv::SpecularFamily& family : rv::specular_families) {
            const unsigned before = pool.alloc_count;
            void* const data = family.create(&sg, nullptr, nullptr, 0.2f, 0.2f);
            RtVector d = family.sample(data, 0.5f, 0.5f);
            EXPECT_GT(family.evaluate(data, &d), 0);
            EXPECT_GT(family.pdf(data, &d), 0);
            EXPECT_EQ(pool.alloc_count, before + 1);
        }
    });
    EXPECT_LE(pool.max_request, 80u);
}
