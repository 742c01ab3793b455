// Tests of array.cpp: maintenance, motion keys and time samples.
#include "array.h"

#include "array_tools.h"

#include <bit>
#include <numeric>

using nlohmann::json;

// ---- Maintenance ----

TEST_F(Arrays, a_reset_releases_what_is_owned_and_keeps_the_record)
{
    const Owned strings = RvArray(2, 1, RV_TYPE_STRING, "a", "b");
    const Owned nested = RvArray(1, 1, RV_TYPE_ARRAY, RvArray(1, 1, RV_TYPE_STRING, "c"));
    for (RtArray* a : { strings.array, nested.array }) {
        RvArrayReset(a);
        EXPECT_EQ(nullptr, a->data);
        EXPECT_EQ(0u, a->nelements);
        EXPECT_EQ(RV_TYPE_NONE, a->type);
        EXPECT_EQ(0, a->nkeys);
    }
    EXPECT_EQ(0, heldStrings());
    RvArrayReset(nullptr);
}

TEST_F(Arrays, a_reset_leaves_foreign_storage_alone)
{
    int values[] = { 1, 2 };
    const Wrapped a(values, RV_TYPE_INT);
    RvArrayReset(a);
    EXPECT_EQ(nullptr, a->data);
    EXPECT_EQ(RV_TYPE_NONE, a->type);
    EXPECT_EQ(2, values[1]);
}

TEST_F(Arrays, the_storage_of_all_keys_is_copied_out)
{
    const Owned a = RvArray(2, 2, RV_TYPE_INT, 1, 2, 3, 4);
    int* const block = static_cast<int*>(RvArrayUnconvert(a, false));
    EXPECT_EQ((std::vector<int>{ 1, 2, 3, 4 }), std::vector<int>(block, block + 4));
    EXPECT_NE(a->data, block);
    EXPECT_EQ(4u, rv::totalElements(a));
    RvFree_func(block);
}

TEST_F(Arrays, the_storage_of_a_record_without_keys_is_copied_out_as_one_key)
{
    int values[] = { 5, 6, 7 };
    RtArray record = {};
    record.data = values;
    record.nelements = 3;
    record.type = RV_TYPE_INT;
    int* const block = static_cast<int*>(RvArrayUnconvert(&record, false));
    ASSERT_NE(nullptr, block);
    EXPECT_EQ((std::vector<int>{ 5, 6, 7 }), std::vector<int>(block, block + 3));
    RvFree_func(block);
}

TEST_F(Arrays, the_storage_is_copied_out_before_a_reset)
{
    const Owned a = RvArray(1, 1, RV_TYPE_INT, 7);
    int* const block = static_cast<int*>(RvArrayUnconvert(a, true));
    EXPECT_EQ(7, *block);
    EXPECT_EQ(nullptr, a->data);
    EXPECT_EQ(RV_TYPE_NONE, a->type);
    RvFree_func(block);
}

TEST_F(Arrays, nothing_is_copied_out_of_null_or_an_empty_array)
{
    EXPECT_EQ(nullptr, RvArrayUnconvert(nullptr, true));
    const Owned a = RvArrayAllocate(0, 1, RV_TYPE_INT);
    EXPECT_EQ(nullptr, RvArrayUnconvert(a, false));
    EXPECT_EQ("", takeProblem());
}

TEST_F(Arrays, null_pointers_are_removed_in_place)
{
    int things[3];
    const Owned a =
        RvArray(5, 1, RV_TYPE_POINTER, nullptr, &things[0], nullptr, &things[1], &things[2]);
    RvArraySimplify(a);
    EXPECT_EQ((std::vector<void*>{ &things[0], &things[1], &things[2] }), valuesOf<void*>(a));
}

TEST_F(Arrays, an_array_of_null_pointers_loses_its_storage)
{
    const Owned owned = RvArray(2, 1, RV_TYPE_POINTER, nullptr, nullptr);
    RvArraySimplify(owned);
    EXPECT_EQ(nullptr, owned->data);
    EXPECT_EQ(0u, owned->nelements);
    void* pointers[] = { nullptr, nullptr };
    const Wrapped foreign(pointers, RV_TYPE_POINTER);
    RvArraySimplify(foreign);
    EXPECT_EQ(nullptr, foreign->data);
    EXPECT_EQ(0u, foreign->nelements);
}

TEST_F(Arrays, a_single_null_pointer_keeps_its_storage)
{
    const Owned a = RvArray(1, 1, RV_TYPE_POINTER, nullptr);
    RvArraySimplify(a);
    EXPECT_NE(nullptr, a->data);
    EXPECT_EQ(0u, a->nelements);
}

TEST_F(Arrays, only_pointer_arrays_are_simplified)
{
    const Owned nodes = RvArray(2, 1, RV_TYPE_NODE, nullptr, nullptr);
    RvArraySimplify(nodes);
    EXPECT_EQ(2u, nodes->nelements);
    const Owned ints = RvArray(2, 1, RV_TYPE_INT, 0, 0);
    RvArraySimplify(ints);
    EXPECT_EQ(2u, ints->nelements);
    RvArraySimplify(nullptr);
}

TEST_F(Arrays, golden_simplifications)
{
    for (const json& v : goldenVectors("maths", "RvArraySimplify")) {
        const std::vector<int> non_null = v["in"]["elements_non_null"];
        std::vector<char> things(non_null.size());
        const Owned a = RvArrayAllocate(static_cast<unsigned>(non_null.size()), 1, RV_TYPE_POINTER);
        for (unsigned i = 0; i < non_null.size(); ++i)
            RvArraySetPtr(a, i, non_null[i] ? &things[i] : nullptr);
        RvArraySimplify(a);
        expectGolden(v, "nelements", a->nelements);
        expectGolden(v, "data_is_null", a->data == nullptr);
        std::vector<long> kept;
        for (unsigned i = 0; i < a->nelements; ++i)
            kept.push_back(static_cast<char*>(RvArrayGetPtr(a, i)) - things.data());
        expectGolden(v, "kept_original_indices", kept);
    }
}

TEST_F(Arrays, null_and_empty_arrays_are_sane)
{
    EXPECT_TRUE(RvArrayCheckSanity(nullptr));
    const Owned a = RvArrayAllocate(0, 1, RV_TYPE_FLOAT);
    EXPECT_TRUE(RvArrayCheckSanity(a));
}

TEST_F(Arrays, a_matrix_with_one_nan_is_not_sane)
{
    RtMatrix m = RV_M4_IDENTITY;
    const Owned good = RvArray(1, 1, RV_TYPE_MATRIX, &m);
    EXPECT_TRUE(RvArrayCheckSanity(good));
    m.m[3][0] = NAN;
    const Owned bad = RvArray(1, 1, RV_TYPE_MATRIX, &m);
    EXPECT_FALSE(RvArrayCheckSanity(bad));
}

TEST_F(Arrays, the_last_component_of_the_last_key_is_looked_at)
{
    for (int type : { RV_TYPE_FLOAT, RV_TYPE_RGB, RV_TYPE_RGBA, RV_TYPE_VECTOR, RV_TYPE_POINT,
                      RV_TYPE_POINT2, RV_TYPE_MATRIX }) {
        const Owned a = RvArrayAllocate(3, 2, type);
        EXPECT_TRUE(RvArrayCheckSanity(a)) << type;
        rv::elementsOf<float>(a.array)[6 * rv::typeSize(type) / sizeof(float) - 1] = INFINITY;
        EXPECT_FALSE(RvArrayCheckSanity(a)) << type;
    }
}

TEST_F(Arrays, the_float_nearest_1e30_is_sane_except_in_vectors_and_points)
{
    const float bound = 1e30f;
    for (float x : { bound, -bound }) {
        const RtPoint p = { 0, x, 0 };
        const Owned floats = RvArray(1, 1, RV_TYPE_FLOAT, x);
        const Owned points = RvArray(1, 1, RV_TYPE_POINT, p);
        const Owned vectors = RvArray(1, 1, RV_TYPE_VECTOR, p);
        EXPECT_TRUE(RvArrayCheckSanity(floats));
        EXPECT_FALSE(RvArrayCheckSanity(points));
        EXPECT_FALSE(RvArrayCheckSanity(vectors));
    }
}

TEST_F(Arrays, types_without_floats_are_always_sane)
{
    for (int type : { RV_TYPE_BYTE, RV_TYPE_INT, RV_TYPE_UINT, RV_TYPE_BOOLEAN, RV_TYPE_POINTER,
                      RV_TYPE_NODE, RV_TYPE_ENUM }) {
        const Owned a = RvArrayAllocate(8, 1, type);
        memset(a->data, 0xFF, 8 * rv::typeSize(type)); // NaN, were it a float
        EXPECT_TRUE(RvArrayCheckSanity(a)) << type;
    }
}

TEST_F(Arrays, elements_without_storage_are_not_sane)
{
    for (int type : { RV_TYPE_FLOAT, RV_TYPE_INT }) {
        const Owned a = RvArrayConvert(3, 1, type, nullptr, false);
        EXPECT_FALSE(RvArrayCheckSanity(a));
    }
}

static int typeNamed(const std::string& name)
{
    for (int type = RV_TYPE_BYTE; type <= RV_TYPE_ENUM; ++type)
        if (name == RvParamGetTypeName(type))
            return type;
    ADD_FAILURE() << "no type " << name;
    return RV_TYPE_NONE;
}

// In each component in turn.
TEST_F(Arrays, golden_sanity)
{
    for (const json& v : goldenVectors("maths", "RvArrayCheckSanity")) {
        const json& in = v["in"];
        if (in["element_type"].is_null()) {
            expectGolden(v, "value", RvArrayCheckSanity(nullptr));
            continue;
        }
        const int type = typeNamed(in["element_type"]);
        const Owned a = RvArrayAllocate(1, 1, type);
        if (in["bad_component"].is_null()) {
            expectGolden(v, "value", RvArrayCheckSanity(a));
            continue;
        }
        for (unsigned i = 0; i < rv::typeSize(type) / sizeof(float); ++i) {
            float* const component = rv::elementsOf<float>(a.array) + i;
            *component = goldenFloat(in["bad_component"]);
            expectGolden(v, "value", RvArrayCheckSanity(a));
            *component = 0;
        }
    }
}

// ---- Motion keys ----

TEST_F(Arrays, equal_keys_interpolate_to_their_value)
{
    const Owned a = RvArray(1, 2, RV_TYPE_FLOAT, 1236.7, 1236.7);
    for (float t : { 0.f, 0.5f, 1.f, -1.f, 2.f })
        EXPECT_FLOAT_EQ(1236.7f, RvArrayInterpolateFlt(a, t, 0)) << t;
}

TEST_F(Arrays, one_key_is_constant)
{
    const Owned a = RvArray(2, 1, RV_TYPE_FLOAT, 3., 4.);
    for (float t : { -1.f, 0.f, 0.3f, 1.f, NAN })
        EXPECT_EQ(4, RvArrayInterpolateFlt(a, t, 1)) << t;
}

TEST_F(Arrays, five_keys_are_met_in_turn)
{
    const Owned a = RvArray(1, 5, RV_TYPE_FLOAT, 10., 20., 0., -4., 8.);
    EXPECT_EQ(10, RvArrayInterpolateFlt(a, 0, 0));
    EXPECT_EQ(15, RvArrayInterpolateFlt(a, 0.125f, 0));
    EXPECT_EQ(0, RvArrayInterpolateFlt(a, 0.5f, 0));
    EXPECT_EQ(8, RvArrayInterpolateFlt(a, 1, 0));
}

TEST_F(Arrays, interpolation_is_exact_at_and_beyond_the_ends)
{
    const Owned a = RvArray(1, 3, RV_TYPE_FLOAT, 0.1, 1e20, 0.3);
    for (float t : { 0.f, -0.f, -5.f, -INFINITY, NAN })
        EXPECT_EQ(0.1f, RvArrayInterpolateFlt(a, t, 0)) << t;
    for (float t : { 1.f, 7.f, INFINITY })
        EXPECT_EQ(0.3f, RvArrayInterpolateFlt(a, t, 0)) << t;
}

TEST_F(Arrays, every_element_has_its_own_motion)
{
    const Owned a = RvArray(2, 2, RV_TYPE_FLOAT, 1., 10., 3., 20.);
    EXPECT_EQ(2, RvArrayInterpolateFlt(a, 0.5f, 0));
    EXPECT_EQ(15, RvArrayInterpolateFlt(a, 0.5f, 1));
}

TEST_F(Arrays, structures_are_interpolated_by_component)
{
    const RtRGBA a = { 0, 2, 4, 6 }, b = { 1, 4, 8, 16 };
    const Owned rgba = RvArray(1, 2, RV_TYPE_RGBA, a, b);
    const RtRGBA c = RvArrayInterpolateRGBA(rgba, 0.5f, 0);
    EXPECT_EQ((std::vector<float>{ 0.5f, 3, 6, 11 }), (std::vector<float>{ c.r, c.g, c.b, c.a }));
    const RtPoint p = { 0, 2, 4 }, q = { 1, 4, 8 };
    const RtRGB rgb_p = { 0, 2, 4 }, rgb_q = { 1, 4, 8 };
    const Owned rgb = RvArray(1, 2, RV_TYPE_RGB, rgb_p, rgb_q);
    EXPECT_EQ(6, RvArrayInterpolateRGB(rgb, 0.5f, 0).b);
    const Owned points = RvArray(1, 2, RV_TYPE_POINT, p, q);
    EXPECT_EQ(3, RvArrayInterpolatePnt(points, 0.5f, 0).y);
    const Owned vectors = RvArray(1, 2, RV_TYPE_VECTOR, p, q);
    EXPECT_EQ(0.25f, RvArrayInterpolateVec(vectors, 0.25f, 0).x);
    const Owned points2 = RvArray(1, 2, RV_TYPE_POINT2, RV_P2_ZERO, RV_P2_ONE);
    EXPECT_EQ(0.75f, RvArrayInterpolatePnt2(points2, 0.75f, 0).y);
    const Owned matrices = RvArray(1, 2, RV_TYPE_MATRIX, &RV_M4_ZERO, &counted_matrix);
    RtMatrix m;
    RvArrayInterpolateMtx(matrices, 0.5f, 0, &m);
    EXPECT_EQ(8, m.m[3][3]);
}

TEST_F(Arrays, interpolation_of_what_does_not_exist_is_zero)
{
    const Owned a = RvArray(1, 2, RV_TYPE_FLOAT, 5., 6.);
    EXPECT_EQ(0, RvArrayInterpolateFlt(a, 0.5f, 1)); // though the storage holds two values
    EXPECT_EQ(0, RvArrayInterpolateFlt(nullptr, 0.5f, 0));
    EXPECT_EQ(0, RvArrayInterpolateRGB(a, 0.5f, 0).r); // another size
    RtMatrix m = RV_M4_IDENTITY;
    RvArrayInterpolateMtx(nullptr, 0.5f, 0, &m);
    EXPECT_TRUE(equal(RV_M4_ZERO, m));
    const Owned empty = RvArrayConvert(1, 2, RV_TYPE_FLOAT, nullptr, false);
    EXPECT_EQ(0, RvArrayInterpolateFlt(empty, 0.5f, 0));
    EXPECT_EQ("", takeProblem());
}

TEST_F(Arrays, interpolation_stays_within_the_keys_just_below_the_upper_end)
{
    for (unsigned nkeys : { 2u, 3u, 5u, 200u, 255u }) {
        const Owned a = RvArrayAllocate(1, nkeys, RV_TYPE_FLOAT);
        std::iota(rv::elementsOf<float>(a.array), rv::elementsOf<float>(a.array) + nkeys, 0.f);
        const float last = static_cast<float>(nkeys - 1);
        EXPECT_NEAR(last, RvArrayInterpolateFlt(a, nextafterf(1, 0), 0), 1e-4f * last);
    }
}

TEST_F(Arrays, golden_interpolations)
{
    for (const json& v : goldenVectors("maths", "RvArrayInterpolateFlt")) {
        std::vector<float> keys = goldenFloats(v["in"]["keys"]);
        const Owned a =
            RvArrayConvert(1, static_cast<int>(keys.size()), RV_TYPE_FLOAT, keys.data(), false);
        const float value = RvArrayInterpolateFlt(a, goldenFloat(v["in"]["t"]), v["in"]["index"]);
        expectGoldenNumbers(v, "value", { value });
    }
}

// ---- Time samples ----

static const float uneven[] = { 5, 6, 9, 10 };

TEST(TimeSamples, must_increase_strictly)
{
    static const struct {
        std::vector<float> samples;
        bool valid;
    } cases[] = {
        { { 0, 1 }, true },        { { 0, 0.1f, 0.3f, 0.4f }, true },
        { { 5, 6, 9, 10 }, true }, { { 99, 100 }, true },
        { { 0.1f, 0.1f }, false }, { { 0, 1, 0 }, false },
        { { 0, NAN, 1 }, false },  { { NAN, 1 }, false },
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.valid,
                  RvTimeSamplesCheck(static_cast<unsigned>(c.samples.size()), c.samples.data()))
            << ::testing::PrintToString(c.samples);
}

TEST(TimeSamples, are_at_least_two)
{
    EXPECT_FALSE(RvTimeSamplesCheck(1, uneven));
    EXPECT_FALSE(RvTimeSamplesCheck(0, uneven));
    EXPECT_FALSE(RvTimeSamplesCheck(2, nullptr));
}

TEST(TimeSamples, positions_map_to_times)
{
    const float near_100[] = { 99, 100 };
    EXPECT_EQ(99, RvTimeSamplesMap(0, 2, near_100));
    EXPECT_EQ(99.75f, RvTimeSamplesMap(0.75f, 2, near_100));
    EXPECT_EQ(100, RvTimeSamplesMap(1, 2, near_100));
    EXPECT_FLOAT_EQ(7.5f, RvTimeSamplesMap(0.5f, 4, uneven));
    EXPECT_FLOAT_EQ(6, RvTimeSamplesMap(1.f / 3, 4, uneven));
    EXPECT_FLOAT_EQ(9, RvTimeSamplesMap(2.f / 3, 4, uneven));
    EXPECT_FLOAT_EQ(9.7f, RvTimeSamplesMap(0.9f, 4, uneven));
}

TEST(TimeSamples, positions_beyond_the_ends_map_to_the_ends)
{
    EXPECT_EQ(5, RvTimeSamplesMap(-1, 4, uneven));
    EXPECT_EQ(5, RvTimeSamplesMap(NAN, 4, uneven));
    EXPECT_EQ(10, RvTimeSamplesMap(3, 4, uneven));
    EXPECT_LE(RvTimeSamplesMap(nextafterf(1, 0), 4, uneven), 10);
    EXPECT_EQ(5, RvTimeSamplesMap(0.5f, 1, uneven));
    EXPECT_EQ(0, RvTimeSamplesMap(0.5f, 0, uneven));
    EXPECT_EQ(0, RvTimeSamplesMap(0.5f, 4, nullptr));
}

TEST(TimeSamples, times_map_to_positions)
{
    const float unit[] = { 0, 1 };
    EXPECT_EQ(0.3f, RvTimeSamplesUnmap(0.3f, 2, unit));
    EXPECT_EQ(0, RvTimeSamplesUnmap(5, 4, uneven));
    EXPECT_FLOAT_EQ(1.f / 3, RvTimeSamplesUnmap(6, 4, uneven));
    EXPECT_FLOAT_EQ(0.5f, RvTimeSamplesUnmap(7.5f, 4, uneven));
    EXPECT_FLOAT_EQ(2.f / 3, RvTimeSamplesUnmap(9, 4, uneven));
    EXPECT_FLOAT_EQ(0.9f, RvTimeSamplesUnmap(9.7f, 4, uneven));
}

TEST(TimeSamples, the_upper_end_stays_below_the_last_key)
{
    const float unit[] = { 0, 1 };
    for (float time : { 1.f, 1.5f, INFINITY })
        EXPECT_EQ(0.999999f, RvTimeSamplesUnmap(time, 2, unit)) << time;
    for (float time : { 10.f, 11.f, INFINITY })
        EXPECT_EQ(0.999999f, RvTimeSamplesUnmap(time, 4, uneven)) << time;
}

TEST(TimeSamples, a_time_before_the_first_of_two_is_negative_and_before_more_is_0)
{
    const float unit[] = { 0, 1 };
    EXPECT_EQ(-0.5f, RvTimeSamplesUnmap(-0.5f, 2, unit));
    EXPECT_EQ(0, RvTimeSamplesUnmap(4, 4, uneven));
}

TEST(TimeSamples, a_time_that_is_no_number_stays_within_the_samples)
{
    const float unit[] = { 0, 1 };
    EXPECT_EQ(0.999999f, RvTimeSamplesUnmap(NAN, 2, unit));
    EXPECT_EQ(0.999999f, RvTimeSamplesUnmap(NAN, 4, uneven));
    EXPECT_EQ(0, RvTimeSamplesUnmap(1, 0, uneven));
    EXPECT_EQ(0, RvTimeSamplesUnmap(1, 4, nullptr));
}

TEST(TimeSamples, golden_checks)
{
    for (const json& v : goldenVectors("maths", "RvTimeSamplesCheck")) {
        const std::vector<float> samples = goldenFloats(v["in"]["samples"]);
        expectGolden(v, "value", RvTimeSamplesCheck(v["in"]["n"], samples.data()));
    }
}

TEST(TimeSamples, golden_maps)
{
    for (const json& v : goldenVectors("maths", "RvTimeSamplesMap")) {
        const std::vector<float> samples = goldenFloats(v["in"]["samples"]);
        const float time =
            RvTimeSamplesMap(goldenFloat(v["in"]["t"]), v["in"]["n"], samples.data());
        expectGoldenNumbers(v, "value", { time });
    }
}

TEST(TimeSamples, golden_unmaps)
{
    for (const json& v : goldenVectors("maths", "RvTimeSamplesUnmap")) {
        const std::vector<float> samples = goldenFloats(v["in"]["samples"]);
        const float position =
            RvTimeSamplesUnmap(goldenFloat(v["in"]["time"]), v["in"]["n"], samples.data());
        expectGoldenNumbers(v, "value", { position });
    }
}
