// Tests of array.cpp: construction and element access.
#include "array.h"

#include "array_tools.h"

#include <bit>
#include <numeric>

using nlohmann::json;

// ---- RvArrayAllocate ----

TEST_F(Arrays, allocated_storage_is_owned_and_zero)
{
    const Owned a = RvArrayAllocate(5, 2, RV_TYPE_POINT);
    EXPECT_EQ(5u, a->nelements);
    EXPECT_EQ(2, a->nkeys);
    EXPECT_EQ(RV_TYPE_POINT, a->type);
    EXPECT_TRUE(a->owns_data);
    EXPECT_EQ(std::vector<float>(30, 0),
              std::vector<float>(rv::elementsOf<float>(a), rv::elementsOf<float>(a) + 30));
}

TEST_F(Arrays, an_allocation_of_nothing_has_no_storage_and_one_key)
{
    const Owned a = RvArrayAllocate(0, 0, RV_TYPE_FLOAT);
    EXPECT_EQ(nullptr, a->data);
    EXPECT_EQ(1, a->nkeys);
    EXPECT_EQ("", takeProblem());
}

TEST_F(Arrays, the_number_of_keys_is_kept_between_1_and_255)
{
    static const struct {
        unsigned given;
        int kept;
    } cases[] = { { 0, 1 }, { 1, 1 }, { 2, 2 }, { 255, 255 }, { 256, 255 }, { 4294967295u, 255 } };
    for (const auto& c : cases) {
        const Owned a = RvArrayAllocate(1, c.given, RV_TYPE_BYTE);
        EXPECT_EQ(c.kept, a->nkeys) << c.given;
    }
}

TEST_F(Arrays, storage_beyond_2_gigabytes_is_refused_and_leaves_an_empty_array)
{
    static const struct {
        unsigned nelements, nkeys;
        int type;
    } cases[] = {
        { 0x80000000u, 1, RV_TYPE_BYTE },   // 2^31: negative as a signed size
        { 0x80000000u, 2, RV_TYPE_BYTE },   // 2^32: 0 in 32 bits
        { 0x40000001u, 1, RV_TYPE_FLOAT },  // 2^32 + 4: 4 in 32 bits
        { 0x02000000u, 1, RV_TYPE_MATRIX }, // 2^31
        { 0xFFFFFFFFu, 255, RV_TYPE_MATRIX },
    };
    for (const auto& c : cases) {
        const Owned a = RvArrayAllocate(c.nelements, c.nkeys, c.type);
        EXPECT_EQ(nullptr, a->data);
        EXPECT_EQ(0u, a->nelements);
        EXPECT_EQ("RvArrayAllocate: unable to allocate data", takeProblem());
    }
}

TEST_F(Arrays, an_unknown_type_is_none_and_has_no_storage)
{
    for (int type : { 255, 16, -1, 256 + RV_TYPE_FLOAT }) {
        const Owned a = RvArrayAllocate(5, 1, type);
        EXPECT_EQ(nullptr, a->data);
        EXPECT_EQ(RV_TYPE_NONE, a->type);
        EXPECT_EQ(0u, rv::totalElements(a));
        EXPECT_EQ("", takeProblem());
    }
}

TEST_F(Arrays, an_allocation_without_memory_for_the_record_is_null)
{
    RtArray* a = nullptr;
    const std::string problem =
        problemWithAllocations(0, [&] { a = RvArrayAllocate(3, 1, RV_TYPE_INT); });
    EXPECT_EQ(nullptr, a);
    EXPECT_EQ(outOfMemory(sizeof(RtArray), "RvArrayAllocate",
                          "RvArrayAllocate: unable to allocate array"),
              problem);
}

TEST_F(Arrays, an_allocation_without_memory_for_the_data_is_an_empty_array)
{
    RtArray* a = nullptr;
    const std::string problem =
        problemWithAllocations(1, [&] { a = RvArrayAllocate(3, 1, RV_TYPE_INT); });
    ASSERT_NE(nullptr, a);
    EXPECT_EQ(nullptr, a->data);
    EXPECT_EQ(0u, a->nelements);
    EXPECT_EQ(outOfMemory(12, "RvArrayAllocate", "RvArrayAllocate: unable to allocate data"),
              problem);
    RvArrayDestroy(a);
}

TEST_F(Arrays, golden_allocations)
{
    for (const json& v : goldenVectors("maths", "RvArrayAllocate")) {
        const json& in = v["in"];
        const Owned a = RvArrayAllocate(in["nelements"], in["nkeys"], in["type"]);
        expectGolden(v, "data_is_null", a->data == nullptr);
        expectGolden(v, "nkeys", a->nkeys);
        expectGolden(v, "owns_data", a->owns_data);
    }
}

// ---- RvArray ----

TEST_F(Arrays, values_are_taken_one_argument_each)
{
    const Owned ints = RvArray(3, 1, RV_TYPE_INT, 7, -8, 9);
    EXPECT_EQ((std::vector<int>{ 7, -8, 9 }), valuesOf<int>(ints));
    const Owned unsigneds = RvArray(2, 1, RV_TYPE_UINT, 4294967295u, 5u);
    EXPECT_EQ((std::vector<unsigned>{ 4294967295u, 5 }), valuesOf<unsigned>(unsigneds));
}

TEST_F(Arrays, values_of_all_keys_are_taken_key_by_key)
{
    const Owned a = RvArray(2, 3, RV_TYPE_INT, 1, 2, 3, 4, 5, 6);
    EXPECT_EQ(2u, a->nelements);
    EXPECT_EQ(3, a->nkeys);
    EXPECT_EQ((std::vector<int>{ 1, 2, 3, 4, 5, 6 }), valuesOf<int>(a));
}

TEST_F(Arrays, bytes_and_booleans_keep_the_low_8_bits)
{
    const Owned bytes = RvArray(3, 1, RV_TYPE_BYTE, 255, 256, -1);
    EXPECT_EQ((std::vector<uint8_t>{ 255, 0, 255 }), valuesOf<uint8_t>(bytes));
    const Owned booleans = RvArray(3, 1, RV_TYPE_BOOLEAN, true, 256, 2);
    EXPECT_EQ((std::vector<uint8_t>{ 1, 0, 2 }), valuesOf<uint8_t>(booleans));
}

TEST_F(Arrays, floats_are_taken_as_doubles)
{
    const Owned a = RvArray(2, 1, RV_TYPE_FLOAT, 0.1, 1236.7f);
    EXPECT_EQ((std::vector<float>{ 0.1f, 1236.7f }), valuesOf<float>(a));
}

TEST_F(Arrays, structures_are_taken_whole)
{
    const RtRGBA color = { 0.1f, 0.2f, 0.3f, 0.4f };
    const Owned colors = RvArray(2, 1, RV_TYPE_RGBA, color, RV_RGBA_WHITE);
    EXPECT_EQ(0.4f, rv::elementsOf<RtRGBA>(colors)[0].a);
    EXPECT_EQ(1, rv::elementsOf<RtRGBA>(colors)[1].g);
    const RtRGB rgb = { 1, 2, 3 };
    const Owned rgbs = RvArray(2, 1, RV_TYPE_RGB, RV_RGB_BLACK, rgb);
    EXPECT_EQ(3, rv::elementsOf<RtRGB>(rgbs)[1].b);
    const RtVector v = { 4, 5, 6 };
    const Owned vectors = RvArray(2, 1, RV_TYPE_VECTOR, v, RV_V3_ZERO);
    EXPECT_EQ(6, rv::elementsOf<RtVector>(vectors)[0].z);
    const Owned points = RvArray(2, 1, RV_TYPE_POINT, RV_P3_ZERO, v);
    EXPECT_EQ(4, rv::elementsOf<RtPoint>(points)[1].x);
    const Owned points2 = RvArray(2, 1, RV_TYPE_POINT2, RV_P2_ZERO, RV_P2_ONE);
    EXPECT_EQ(1, rv::elementsOf<RtPoint2>(points2)[1].y);
}

TEST_F(Arrays, strings_are_interned_and_null_stays_null)
{
    std::string tuesday = "tuesday";
    {
        const Owned a = RvArray(4, 1, RV_TYPE_STRING, "monday", tuesday.c_str(), "wednesday",
                                static_cast<const char*>(nullptr));
        tuesday = "overwritten";
        EXPECT_STREQ("tuesday", RvArrayGetStr(a, 1));
        EXPECT_EQ(nullptr, RvArrayGetStr(a, 3));
        EXPECT_EQ(3, heldStrings());
    }
    EXPECT_EQ(0, heldStrings());
}

TEST_F(Arrays, strings_are_null_where_there_is_no_pool)
{
    RtStringPool* const pool = rv::the_frame->strings;
    const char* names[] = { "a" };
    rv::the_frame->strings = nullptr;
    {
        const Owned given = RvArray(1, 1, RV_TYPE_STRING, "a");
        EXPECT_EQ(nullptr, RvArrayGetStr(given, 0));
        const Owned converted = RvArrayConvert(1, 1, RV_TYPE_STRING, names, true);
        EXPECT_EQ(nullptr, RvArrayGetStr(converted, 0));
        const Owned written = RvArrayAllocate(1, 1, RV_TYPE_STRING);
        RvArraySetStr(written, 0, "a");
        EXPECT_EQ(nullptr, RvArrayGetStr(written, 0));
        const Owned copied = RvArrayCopy(written);
        EXPECT_EQ(nullptr, RvArrayGetStr(copied, 0));
    }
    rv::the_frame->strings = pool;
    EXPECT_EQ("", takeProblem());
}

TEST_F(Arrays, pointers_and_nodes_are_kept_as_they_are)
{
    int things[2];
    const Owned pointers = RvArray(2, 1, RV_TYPE_POINTER, &things[0], &things[1]);
    EXPECT_EQ(&things[1], rv::elementsOf<void*>(pointers)[1]);
    const Owned nodes = RvArray(1, 1, RV_TYPE_NODE, &things[0]);
    EXPECT_EQ(&things[0], rv::elementsOf<void*>(nodes)[0]);
}

TEST_F(Arrays, nested_arrays_belong_to_the_outer_one)
{
    RtArray* const inner = RvArray(1, 1, RV_TYPE_INT, 7);
    const Owned outer = RvArray(2, 1, RV_TYPE_ARRAY, inner, static_cast<RtArray*>(nullptr));
    EXPECT_EQ(inner, RvArrayGetArray(outer, 0)); // and the leak check sees that it is destroyed
}

TEST_F(Arrays, matrices_are_copied_from_pointers_and_null_is_zero)
{
    RtMatrix m = RV_M4_IDENTITY;
    const Owned a = RvArray(2, 1, RV_TYPE_MATRIX, &m, static_cast<RtMatrix*>(nullptr));
    m.m[0][0] = 9;
    EXPECT_TRUE(RvM4IsIdentity(rv::elementsOf<RtMatrix>(a)));
    EXPECT_EQ(0, rv::elementsOf<RtMatrix>(a)[1].m[3][3]);
}

TEST_F(Arrays, an_unknown_type_is_an_error_for_each_value)
{
    const Owned none = RvArray(3, 1, RV_TYPE_NONE);
    EXPECT_EQ(std::vector<std::string>(3, "RvArray: unknown data type"), takeProblems());
    const Owned enums = RvArray(2, 1, RV_TYPE_ENUM, 1, 2);
    EXPECT_EQ(std::vector<std::string>(2, "RvArray: unknown data type"), takeProblems());
    EXPECT_EQ((std::vector<int>{ 0, 0 }), valuesOf<int>(enums));
}

TEST_F(Arrays, an_array_without_memory_is_null)
{
    for (long allowed : { 0, 1 }) {
        RtArray* a = nullptr;
        const std::string problem = problemWithAllocations(
            allowed, [&] { a = RvArray(4, 1, RV_TYPE_FLOAT, 1., 2., 3., 4.); });
        EXPECT_EQ(nullptr, a);
        EXPECT_EQ(outOfMemory(allowed ? 16 : sizeof(RtArray), "RvArray",
                              "RvArray: unable to allocate array"),
                  problem);
    }
}

TEST_F(Arrays, an_array_that_is_too_large_is_null)
{
    EXPECT_EQ(nullptr, RvArray(0x40000001u, 1, RV_TYPE_FLOAT, 1., 2.));
    EXPECT_EQ("RvArray: unable to allocate array", takeProblem());
}

// ---- RvArrayConvert ----

TEST_F(Arrays, a_conversion_without_copy_refers_to_the_storage_of_the_caller)
{
    int values[] = { 1, 2, 3, 4 };
    const Owned a = RvArrayConvert(2, 2, RV_TYPE_INT, values, false);
    EXPECT_EQ(values, a->data);
    EXPECT_FALSE(a->owns_data);
    EXPECT_EQ(2, a->nkeys);
    RvArraySetInt(a, 3, 40);
    EXPECT_EQ(40, values[3]);
}

TEST_F(Arrays, a_conversion_with_copy_duplicates_the_storage)
{
    int values[] = { 1, 2, 3, 4 };
    const Owned a = RvArrayConvert(4, 1, RV_TYPE_INT, values, true);
    values[0] = 10;
    EXPECT_TRUE(a->owns_data);
    EXPECT_EQ((std::vector<int>{ 1, 2, 3, 4 }), valuesOf<int>(a));
}

TEST_F(Arrays, a_conversion_with_copy_interns_strings)
{
    std::string text[3];
    const char* names[3];
    for (int i = 0; i < 3; ++i) {
        text[i] = "string" + std::to_string(i);
        names[i] = text[i].c_str();
    }
    const Owned a = RvArrayConvert(3, 1, RV_TYPE_STRING, names, true);
    for (std::string& s : text)
        s = "overwritten";
    EXPECT_EQ((std::vector<std::string>{ "string0", "string1", "string2" }), stringsOf(a));
    EXPECT_EQ(3, heldStrings());
}

TEST_F(Arrays, a_conversion_without_copy_keeps_the_pointers_of_strings)
{
    const char* names[] = { "a", "b" };
    const Wrapped a(names, RV_TYPE_STRING);
    EXPECT_EQ(names[1], RvArrayGetStr(a, 1));
    EXPECT_EQ(0, heldStrings());
}

TEST_F(Arrays, a_conversion_of_nothing_has_no_storage)
{
    int value = 1;
    for (bool copy : { false, true }) {
        const Owned none = RvArrayConvert(0, 0, RV_TYPE_INT, &value, copy);
        EXPECT_EQ(nullptr, none->data);
        EXPECT_EQ(1, none->nkeys);
        const Owned negative = RvArrayConvert(-3, -1, RV_TYPE_INT, &value, copy);
        EXPECT_EQ(nullptr, negative->data);
        EXPECT_EQ(0u, negative->nelements);
        EXPECT_EQ(1, negative->nkeys);
        const Owned untyped = RvArrayConvert(1, 1, RV_TYPE_NONE, &value, copy);
        EXPECT_EQ(nullptr, untyped->data);
    }
    EXPECT_EQ("", takeProblem());
}

TEST_F(Arrays, a_conversion_of_null_has_elements_but_no_storage)
{
    for (bool copy : { false, true }) {
        const Owned a = RvArrayConvert(3, 1, RV_TYPE_INT, nullptr, copy);
        EXPECT_EQ(nullptr, a->data);
        EXPECT_EQ(3u, a->nelements);
        EXPECT_EQ(copy, a->owns_data);
        EXPECT_EQ(0u, rv::totalElements(a));
    }
}

TEST_F(Arrays, a_conversion_beyond_2_gigabytes_has_no_storage)
{
    int value = 1;
    const Owned a = RvArrayConvert(0x7FFFFFFF, 2, RV_TYPE_INT, &value, false);
    EXPECT_EQ(nullptr, a->data);
    EXPECT_EQ(0u, a->nelements);
}

TEST_F(Arrays, a_conversion_without_memory_for_the_record_is_null)
{
    int value = 1;
    RtArray* a = nullptr;
    const std::string problem =
        problemWithAllocations(0, [&] { a = RvArrayConvert(1, 1, RV_TYPE_INT, &value, true); });
    EXPECT_EQ(nullptr, a);
    EXPECT_EQ(
        outOfMemory(sizeof(RtArray), "RvArrayConvert", "RvArrayConvert: unable to allocate array"),
        problem);
}

TEST_F(Arrays, a_conversion_without_memory_for_the_copy_is_an_empty_array)
{
    int value = 1;
    RtArray* a = nullptr;
    const std::string problem =
        problemWithAllocations(1, [&] { a = RvArrayConvert(1, 1, RV_TYPE_INT, &value, true); });
    ASSERT_NE(nullptr, a);
    EXPECT_EQ(nullptr, a->data);
    EXPECT_EQ(0u, a->nelements);
    EXPECT_EQ(
        outOfMemory(4, "RvArrayConvert", "RvArrayConvert: unable to allocate local copy of data"),
        problem);
    RvArrayDestroy(a);
}

// ---- RvArrayCopy ----

TEST_F(Arrays, a_copy_has_the_same_values_in_storage_of_its_own)
{
    int values[] = { 1, 2, 3, 4, 5, 6 };
    const Wrapped source(values, RV_TYPE_INT, 2);
    const Owned copy = RvArrayCopy(source);
    values[0] = 10;
    EXPECT_EQ(3u, copy->nelements);
    EXPECT_EQ(2, copy->nkeys);
    EXPECT_EQ(RV_TYPE_INT, copy->type);
    EXPECT_TRUE(copy->owns_data);
    EXPECT_EQ((std::vector<int>{ 1, 2, 3, 4, 5, 6 }), valuesOf<int>(copy));
}

TEST_F(Arrays, a_copy_takes_its_own_references_to_strings)
{
    RtArray* const source = RvArray(3, 1, RV_TYPE_STRING, "x", "y", nullptr);
    const Owned copy = RvArrayCopy(source);
    EXPECT_EQ(RvArrayGetStr(source, 0), RvArrayGetStr(copy, 0));
    RvArrayDestroy(source);
    EXPECT_EQ((std::vector<std::string>{ "x", "y", "(null)" }), stringsOf(copy));
    EXPECT_EQ(2, heldStrings());
}

TEST_F(Arrays, a_copy_copies_nested_arrays)
{
    RtArray* const source = RvArray(2, 1, RV_TYPE_ARRAY, RvArray(1, 1, RV_TYPE_STRING, "deep"),
                                    static_cast<RtArray*>(nullptr));
    const Owned copy = RvArrayCopy(source);
    RvArrayDestroy(source);
    EXPECT_STREQ("deep", RvArrayGetStr(RvArrayGetArray(copy, 0), 0));
    EXPECT_EQ(nullptr, RvArrayGetArray(copy, 1));
    EXPECT_EQ("", takeProblem());
}

TEST_F(Arrays, a_copy_of_null_is_an_error)
{
    EXPECT_EQ(nullptr, RvArrayCopy(nullptr));
    EXPECT_EQ("RvArrayCopy: input array is NULL", takeProblem());
}

TEST_F(Arrays, a_copy_of_an_empty_array_is_empty)
{
    const Owned source = RvArrayAllocate(0, 1, RV_TYPE_RGB);
    const Owned copy = RvArrayCopy(source);
    EXPECT_EQ(nullptr, copy->data);
    EXPECT_EQ(RV_TYPE_RGB, copy->type);
    EXPECT_EQ("", takeProblem());
}

TEST_F(Arrays, a_copy_without_memory_for_the_record_is_null)
{
    const Owned source = RvArray(1, 1, RV_TYPE_INT, 1);
    RtArray* copy = nullptr;
    const std::string problem = problemWithAllocations(0, [&] { copy = RvArrayCopy(source); });
    EXPECT_EQ(nullptr, copy);
    EXPECT_EQ(outOfMemory(sizeof(RtArray), "RvArrayCopy", "RvArrayCopy: unable to allocate array"),
              problem);
}

TEST_F(Arrays, a_copy_without_memory_for_the_data_is_an_empty_array)
{
    const Owned source = RvArray(5, 1, RV_TYPE_INT, 1, 2, 3, 4, 5);
    RtArray* copy = nullptr;
    const std::string problem = problemWithAllocations(1, [&] { copy = RvArrayCopy(source); });
    ASSERT_NE(nullptr, copy);
    EXPECT_EQ(nullptr, copy->data);
    EXPECT_EQ(0u, copy->nelements);
    EXPECT_EQ(outOfMemory(20, "RvArrayCopy", "RvArrayCopy: unable to allocate 20 bytes of data"),
              problem);
    RvArrayDestroy(copy);
}

TEST_F(Arrays, a_copy_survives_a_failure_at_every_allocation)
{
    const Owned source = RvArray(2, 1, RV_TYPE_ARRAY, RvArray(2, 1, RV_TYPE_STRING, "p", "q"),
                                 RvArray(1, 1, RV_TYPE_ARRAY, RvArray(1, 1, RV_TYPE_INT, 4)));
    for (long allowed = 0; allowed < 12; ++allowed) {
        RtArray* copy = nullptr;
        withAllocations(allowed, [&] { copy = RvArrayCopy(source); });
        RvArrayDestroy(copy);
    }
}

TEST_F(Arrays, a_copy_in_a_pool_is_independent_and_needs_no_destruction)
{
    RtMemPool* const pool = RvMemPoolCreate(1024);
    RtArray* const source = RvArray(2, 1, RV_TYPE_ARRAY, RvArray(1, 1, RV_TYPE_STRING, "deep"),
                                    RvArray(2, 2, RV_TYPE_INT, 1, 2, 3, 4));
    RtArray* const copy = RvArrayCopyWithPool(source, pool);
    RvArrayDestroy(source);
    EXPECT_EQ(0, heldStrings());
    EXPECT_FALSE(copy->owns_data);
    EXPECT_STREQ("deep", RvArrayGetStr(RvArrayGetArray(copy, 0), 0));
    EXPECT_EQ((std::vector<int>{ 1, 2, 3, 4 }), valuesOf<int>(RvArrayGetArray(copy, 1)));
    EXPECT_EQ(nullptr, RvArrayCopyWithPool(nullptr, pool));
    EXPECT_EQ("RvArrayCopy: input array is NULL", takeProblem());
    RvMemPoolDestroy(pool);
}

// ---- RvArrayDestroy ----

TEST_F(Arrays, destruction_ignores_null) { RvArrayDestroy(nullptr); }

TEST_F(Arrays, destruction_leaves_storage_that_is_not_owned)
{
    const char* names[] = { "a", "b" };
    RvArrayDestroy(RvArrayConvert(2, 1, RV_TYPE_STRING, names, false));
    EXPECT_STREQ("b", names[1]);
    EXPECT_EQ("", takeProblem());
}

TEST_F(Arrays, destruction_warns_of_strings_that_the_pool_does_not_hold)
{
    RtArray* const a = RvArrayAllocate(1, 1, RV_TYPE_STRING);
    const char* const foreign[] = { "foreign" };
    RvArraySetKey(a, 0, foreign);
    RvArrayDestroy(a);
    EXPECT_EQ("RtStringPool: out of sync?  could not find entry `foreign' to remove",
              takeProblem());
}

// ---- RvArrayModify ----

TEST_F(Arrays, modification_overwrites_all_values_in_place)
{
    const Owned a = RvArray(2, 2, RV_TYPE_FLOAT, 1., 2., 3., 4.);
    const void* const storage = a->data;
    RvArrayModify(a, 2, 2, RV_TYPE_FLOAT, 5., 6., 7., 8.);
    EXPECT_EQ(storage, a->data);
    EXPECT_EQ((std::vector<float>{ 5, 6, 7, 8 }), valuesOf<float>(a));
    EXPECT_EQ("", takeProblem());
}

TEST_F(Arrays, modification_with_a_mismatch_is_reported_and_done_all_the_same)
{
    const Owned a = RvArray(2, 1, RV_TYPE_FLOAT, 1., 2.);
    RvArrayModify(a, 1, 2, RV_TYPE_INT, 5, 6);
    EXPECT_EQ("RvArrayModify: input arrays don't match", takeProblem());
    EXPECT_EQ(1u, a->nelements);
    EXPECT_EQ(2, a->nkeys);
    EXPECT_EQ(RV_TYPE_INT, a->type);
    EXPECT_EQ((std::vector<int>{ 5, 6 }), valuesOf<int>(a));
}

TEST_F(Arrays, modification_with_more_values_grows_the_storage)
{
    const Owned a = RvArray(1, 1, RV_TYPE_INT, 1);
    RvArrayModify(a, 3, 2, RV_TYPE_INT, 1, 2, 3, 4, 5, 6);
    EXPECT_EQ("RvArrayModify: input arrays don't match", takeProblem());
    EXPECT_EQ((std::vector<int>{ 1, 2, 3, 4, 5, 6 }), valuesOf<int>(a));
}

TEST_F(Arrays, modification_with_larger_elements_grows_the_storage)
{
    const Owned a = RvArray(2, 1, RV_TYPE_BYTE, 1, 2);
    RvArrayModify(a, 2, 1, RV_TYPE_MATRIX, &RV_M4_IDENTITY, &RV_M4_IDENTITY);
    EXPECT_EQ("RvArrayModify: input arrays don't match", takeProblem());
    EXPECT_TRUE(RvM4IsIdentity(rv::elementsOf<RtMatrix>(a) + 1));
}

TEST_F(Arrays, modification_to_nothing_leaves_an_empty_array)
{
    const Owned a = RvArray(2, 1, RV_TYPE_INT, 1, 2);
    RvArrayModify(a, 0, 1, RV_TYPE_INT);
    EXPECT_EQ("RvArrayModify: input arrays don't match", takeProblem());
    EXPECT_EQ(nullptr, a->data);
    EXPECT_EQ(0u, a->nelements);
}

TEST_F(Arrays, modification_of_strings_is_refused_for_each_value)
{
    const Owned a = RvArray(2, 1, RV_TYPE_STRING, "a", "b");
    RvArrayModify(a, 2, 1, RV_TYPE_STRING, "c", "d");
    EXPECT_EQ(std::vector<std::string>(2, "RvArrayModify: unknown data type"), takeProblems());
    EXPECT_EQ((std::vector<std::string>{ "a", "b" }), stringsOf(a));
}

TEST_F(Arrays, modification_to_an_unknown_type_is_refused_for_each_value)
{
    const Owned a = RvArray(2, 1, RV_TYPE_INT, 1, 2);
    RvArrayModify(a, 2, 1, RV_TYPE_ENUM, 3, 4);
    EXPECT_EQ("RvArrayModify: input arrays don't match | RvArrayModify: unknown data type | "
              "RvArrayModify: unknown data type",
              takeProblem());
    EXPECT_EQ((std::vector<int>{ 0, 0 }), valuesOf<int>(a));
}

TEST_F(Arrays, modification_releases_strings_that_fall_away)
{
    const Owned cut = RvArray(3, 1, RV_TYPE_STRING, "a", "b", "c");
    RvArrayModify(cut, 1, 1, RV_TYPE_STRING, "z");
    EXPECT_EQ((std::vector<std::string>{ "a" }), stringsOf(cut));
    EXPECT_EQ(1, heldStrings());
    RvArrayModify(cut, 1, 1, RV_TYPE_INT, 5);
    EXPECT_EQ(0, heldStrings());
    RvArrayModify(cut, 1, 1, RV_TYPE_STRING, "z");
    EXPECT_EQ((std::vector<std::string>{ "(null)" }), stringsOf(cut));
    takeProblems();
}

TEST_F(Arrays, modification_gives_an_array_over_foreign_storage_its_own)
{
    int values[] = { 1, 2 };
    const Wrapped a(values, RV_TYPE_INT);
    RvArrayModify(a, 2, 1, RV_TYPE_INT, 3, 4);
    EXPECT_TRUE(a->owns_data);
    EXPECT_EQ((std::vector<int>{ 3, 4 }), valuesOf<int>(a));
    EXPECT_EQ(1, values[0]);
    EXPECT_EQ("", takeProblem());
}

TEST_F(Arrays, modification_takes_references_to_foreign_strings)
{
    const char* names[] = { "a", "b" };
    {
        const Wrapped a(names, RV_TYPE_STRING);
        RvArrayModify(a, 2, 1, RV_TYPE_STRING, "c", "d");
        EXPECT_EQ((std::vector<std::string>{ "a", "b" }), stringsOf(a));
        EXPECT_EQ(2, heldStrings());
        takeProblems();
    }
    EXPECT_EQ("", takeProblem());
}

TEST_F(Arrays, modification_without_memory_changes_nothing)
{
    const Owned a = RvArray(1, 1, RV_TYPE_INT, 1);
    const std::string problem =
        problemWithAllocations(0, [&] { RvArrayModify(a, 2, 1, RV_TYPE_INT, 3, 4); });
    EXPECT_EQ("RvArrayModify: input arrays don't match | can't allocate 8 bytes in "
              "core\\src\\array:RvArrayModify()",
              problem);
    EXPECT_EQ((std::vector<int>{ 1 }), valuesOf<int>(a));
}

TEST_F(Arrays, modification_beyond_2_gigabytes_changes_nothing)
{
    const Owned a = RvArray(1, 1, RV_TYPE_INT, 1);
    RvArrayModify(a, 0x40000001u, 1, RV_TYPE_INT, 3, 4);
    EXPECT_EQ("RvArrayModify: input arrays don't match", takeProblem());
    EXPECT_EQ((std::vector<int>{ 1 }), valuesOf<int>(a));
}

TEST_F(Arrays, modification_of_null_is_a_mismatch)
{
    RvArrayModify(nullptr, 1, 1, RV_TYPE_INT, 3);
    EXPECT_EQ("RvArrayModify: input arrays don't match", takeProblem());
}

TEST_F(Arrays, modification_of_an_array_over_null_gives_it_storage)
{
    const Owned a = RvArrayConvert(2, 1, RV_TYPE_INT, nullptr, true);
    RvArrayModify(a, 2, 1, RV_TYPE_INT, 3, 4);
    EXPECT_EQ((std::vector<int>{ 3, 4 }), valuesOf<int>(a));
}

// ---- RvArraySetKey ----

TEST_F(Arrays, a_key_is_written_and_the_others_stay)
{
    const Owned a = RvArray(2, 3, RV_TYPE_INT, 1, 2, 3, 4, 5, 6);
    const int values[] = { 30, 40 };
    RvArraySetKey(a, 1, values);
    EXPECT_EQ((std::vector<int>{ 1, 2, 30, 40, 5, 6 }), valuesOf<int>(a));
    RvArraySetKey(a, 2, rv::elementsOf<int>(a.array)); // from another key of the same array
    EXPECT_EQ((std::vector<int>{ 1, 2, 30, 40, 1, 2 }), valuesOf<int>(a));
}

TEST_F(Arrays, a_key_of_a_null_array_is_an_error)
{
    const int value = 1;
    RvArraySetKey(nullptr, 0, &value);
    EXPECT_EQ("RvArraySetKey: target array is null", takeProblem());
}

TEST_F(Arrays, a_key_that_does_not_exist_is_an_error)
{
    const Owned a = RvArray(1, 2, RV_TYPE_INT, 1, 2);
    const int value = 9;
    RvArraySetKey(a, 2, &value);
    EXPECT_EQ("RvArraySetKey: trying to write to a non-existing key", takeProblem());
    EXPECT_EQ((std::vector<int>{ 1, 2 }), valuesOf<int>(a));
}

TEST_F(Arrays, a_key_takes_strings_as_plain_pointers)
{
    const char* names[] = { "a", "b" };
    const Wrapped a(names, RV_TYPE_STRING);
    const char* const values[] = { "c", "d" };
    RvArraySetKey(a, 0, values);
    EXPECT_EQ(values[1], names[1]);
    EXPECT_EQ(0, heldStrings());
}

TEST_F(Arrays, a_key_without_storage_or_values_is_left_alone)
{
    const Owned empty = RvArrayConvert(2, 1, RV_TYPE_INT, nullptr, false);
    const int values[] = { 1, 2 };
    RvArraySetKey(empty, 0, values);
    const Owned a = RvArray(2, 1, RV_TYPE_INT, 3, 4);
    RvArraySetKey(a, 0, nullptr);
    EXPECT_EQ((std::vector<int>{ 3, 4 }), valuesOf<int>(a));
    EXPECT_EQ("", takeProblem());
}

// ---- Accessors, one by one ----

namespace {

struct Accessor {
    const char* suffix;
    const char* getter; // the names that messages begin with
    const char* setter;
    int type;
    size_t size;
    void (*get)(const RtArray*, unsigned index, void* out);   // called at get.c:11
    void (*set)(RtArray*, unsigned index, const void* value); // called at set.c:12
};

} // namespace

#define ACCESSOR(Suffix, setter, code, Type)                                                       \
    {                                                                                              \
#Suffix, "RvArrayGet" #Suffix "Func", setter, code, sizeof(Type),                          \
            [](const RtArray* a, unsigned i, void* out) {                                          \
                Type const value = RvArrayGet##Suffix##Func(a, i, "get.c", 11);                    \
                memcpy(out, &value, sizeof(Type));                                                 \
            },                                                                                     \
            [](RtArray* a, unsigned i, const void* in) {                                           \
                Type value;                                                                        \
                memcpy(&value, in, sizeof(Type));                                                  \
                RvArraySet##Suffix##Func(a, i, value, "set.c", 12);                                \
            },       \
    }

static const Accessor accessors[] = {
    ACCESSOR(Byte, "RvArraySetByteFunc", RV_TYPE_BYTE, uint8_t),
    ACCESSOR(Int, "RvArraySetIntFunc", RV_TYPE_INT, int),
    ACCESSOR(UInt, "RvArraySetUIntFunc", RV_TYPE_UINT, unsigned),
    ACCESSOR(Bool, "RvArraySetBoolFunc", RV_TYPE_BOOLEAN, bool),
    ACCESSOR(Flt, "RvArraySetFltFunc", RV_TYPE_FLOAT, float),
    ACCESSOR(RGB, "RvArraySetRGBFunc", RV_TYPE_RGB, RtRGB),
    ACCESSOR(RGBA, "RvArraySetRGBAFunc", RV_TYPE_RGBA, RtRGBA),
    ACCESSOR(Vec, "RvArraySetVecFunc", RV_TYPE_VECTOR, RtVector),
    ACCESSOR(Pnt, "RvArraySetPntFunc", RV_TYPE_POINT, RtPoint),
    ACCESSOR(Pnt2, "RvArraySetPnt2Func", RV_TYPE_POINT2, RtPoint2),
    ACCESSOR(Str, "RvArraySetStr", RV_TYPE_STRING, const char*), // Required: without Func
    ACCESSOR(Ptr, "RvArraySetPtrFunc", RV_TYPE_POINTER, void*),
    ACCESSOR(Array, "RvArraySetArrayFunc", RV_TYPE_ARRAY, RtArray*),
};

namespace {

// Every claim here holds for every accessor but those of matrices.
class ArrayAccessor : public Universe, public ::testing::WithParamInterface<Accessor> {
protected:
    static constexpr unsigned element_count = 3;

    ArrayAccessor()
    {
        for (unsigned i = 0; i < sizeof(storage); ++i)
            storage[i] = static_cast<uint8_t>(GetParam().type == RV_TYPE_BOOLEAN ? i & 1 : i + 1);
    }
    ~ArrayAccessor() override { RvArrayDestroy(array); }

    // Bytes of element i of a storage of this type.
    std::vector<uint8_t> element(unsigned i) const
    {
        return { storage + i * GetParam().size, storage + (i + 1) * GetParam().size };
    }
    std::vector<uint8_t> get(const RtArray* a, unsigned i) const
    {
        std::vector<uint8_t> value(GetParam().size);
        GetParam().get(a, i, value.data());
        return value;
    }
    void set(RtArray* a, unsigned i) const { GetParam().set(a, i, new_value); }
    std::vector<uint8_t> all() const { return { storage, storage + sizeof(storage) }; }

    alignas(16) uint8_t storage[element_count * 16];
    const uint8_t new_value[16] = { 1 };
    RtArray* array = RvArrayConvert(element_count, 1, GetParam().type, storage, false);
};

} // namespace

static std::string suffixOf(const ::testing::TestParamInfo<Accessor>& row)
{
    return row.param.suffix;
}

INSTANTIATE_TEST_SUITE_P(All, ArrayAccessor, ::testing::ValuesIn(accessors), suffixOf);

TEST_P(ArrayAccessor, reads_the_element_of_its_index)
{
    for (unsigned i = 0; i < element_count; ++i)
        EXPECT_EQ(element(i), get(array, i));
    EXPECT_EQ("", takeProblem());
}

TEST_P(ArrayAccessor, writes_the_element_of_its_index_alone)
{
    std::vector<uint8_t> want = all();
    std::copy(new_value, new_value + GetParam().size,
              want.begin() + static_cast<long>(GetParam().size));
    set(array, 1);
    EXPECT_EQ(want, all());
    EXPECT_EQ("", takeProblem());
}

TEST_P(ArrayAccessor, reads_element_0_for_an_index_out_of_range)
{
    EXPECT_EQ(element(0), get(array, 3));
    EXPECT_EQ(std::string(GetParam().getter) +
                  ": out-of-range error (3 out of 3) in get.c at line 11",
              takeProblem());
}

TEST_P(ArrayAccessor, writes_nothing_for_an_index_out_of_range)
{
    const std::vector<uint8_t> before = all();
    set(array, 4);
    EXPECT_EQ(before, all());
    EXPECT_EQ(std::string(GetParam().setter) +
                  ": out-of-range error (4 out of 3) in set.c at line 12",
              takeProblem());
}

TEST_P(ArrayAccessor, reads_on_after_a_type_mismatch)
{
    uint8_t matrices[3 * 64] = {}; // larger than any element here
    memcpy(matrices, storage, sizeof(storage));
    array->type = RV_TYPE_MATRIX;
    array->data = matrices;
    EXPECT_EQ(element(1), get(array, 1));
    EXPECT_EQ(std::string(GetParam().getter) +
                  ": array-type does not match request-type in get.c at line 11",
              takeProblem());
}

TEST_P(ArrayAccessor, writes_on_after_a_type_mismatch)
{
    uint8_t matrices[3 * 64] = {};
    array->type = RV_TYPE_MATRIX;
    array->data = matrices;
    set(array, 2);
    const uint8_t* const written = matrices + 2 * GetParam().size;
    EXPECT_EQ(std::vector<uint8_t>(new_value, new_value + GetParam().size),
              std::vector<uint8_t>(written, written + GetParam().size));
    EXPECT_EQ(std::string(GetParam().setter) +
                  ": array-type does not match request-type in set.c at line 12",
              takeProblem());
}

TEST_P(ArrayAccessor, reads_zero_where_a_type_mismatch_would_leave_the_storage)
{
    if (GetParam().size == 1)
        array->data = nullptr; // no element is smaller than a byte
    array->type = GetParam().type == RV_TYPE_BYTE ? RV_TYPE_BOOLEAN : RV_TYPE_BYTE;
    EXPECT_EQ(std::vector<uint8_t>(GetParam().size, 0), get(array, 2));
    takeProblems();
}

TEST_P(ArrayAccessor, writes_nothing_where_a_type_mismatch_would_leave_the_storage)
{
    const std::vector<uint8_t> before = all();
    if (GetParam().size == 1)
        array->data = nullptr;
    array->type = GetParam().type == RV_TYPE_BYTE ? RV_TYPE_BOOLEAN : RV_TYPE_BYTE;
    set(array, 2);
    EXPECT_EQ(before, all());
    takeProblems();
}

TEST_P(ArrayAccessor, reads_zero_from_an_array_without_storage)
{
    array->data = nullptr;
    EXPECT_EQ(std::vector<uint8_t>(GetParam().size, 0), get(array, 1));
    EXPECT_EQ("", takeProblem());
    array->nelements = 0;
    EXPECT_EQ(std::vector<uint8_t>(GetParam().size, 0), get(array, 1));
    EXPECT_EQ(std::string(GetParam().getter) +
                  ": out-of-range error (1 out of 0) in get.c at line 11",
              takeProblem());
}

TEST_P(ArrayAccessor, writes_nothing_to_an_array_without_storage)
{
    array->data = nullptr;
    set(array, 1);
    EXPECT_EQ("", takeProblem());
}

TEST_P(ArrayAccessor, writes_nothing_to_a_null_array)
{
    set(nullptr, 0);
    EXPECT_EQ(std::string(GetParam().setter) + ": accessing NULL array in set.c at line 12",
              takeProblem());
}

// Prints what is logged where a death test sees it.
static void printMessage(int, int, const char* text, int) { fprintf(stderr, "%s\n", text); }

TEST_P(ArrayAccessor, reading_a_null_array_is_reported_and_not_survived)
{
    EXPECT_DEATH(
        {
            RvMsgSetCallback(printMessage);
            get(nullptr, 0);
        },
        std::string(GetParam().getter) + ": accessing NULL array in get.c at line 11");
}

// ---- Accessors with ways of their own ----

TEST_F(Arrays, the_short_names_report_the_line_of_their_caller)
{
    const Owned a = RvArray(1, 1, RV_TYPE_INT, 1);
    const std::string file = __FILE__;
    RvArrayGetInt(a, 9);
    const std::string line = std::to_string(__LINE__ - 1);
    EXPECT_EQ("RvArrayGetIntFunc: out-of-range error (9 out of 1) in " + file + " at line " + line,
              takeProblem());
}

TEST_F(Arrays, index_5_of_5_elements_is_out_of_range_and_reads_element_0)
{
    const Owned a = RvArray(5, 1, RV_TYPE_INT, 70, 71, 72, 73, 74);
    EXPECT_EQ(70, RvArrayGetIntFunc(a, 5, "file.c", 3));
    EXPECT_EQ("RvArrayGetIntFunc: out-of-range error (5 out of 5) in file.c at line 3",
              takeProblem());
}

TEST_F(Arrays, a_wrong_type_and_a_wrong_index_are_both_reported_in_this_order)
{
    const Owned a = RvArray(2, 2, RV_TYPE_INT, 1, 2, 3, 4);
    EXPECT_EQ(1u, RvArrayGetUIntFunc(a, 4, "file.c", 3));
    EXPECT_EQ("RvArrayGetUIntFunc: array-type does not match request-type in file.c at line 3 | "
              "RvArrayGetUIntFunc: out-of-range error (4 out of 4) in file.c at line 3",
              takeProblem());
    RvArraySetFltFunc(a, 9, 5, "file.c", 4);
    EXPECT_EQ("RvArraySetFltFunc: array-type does not match request-type in file.c at line 4 | "
              "RvArraySetFltFunc: out-of-range error (9 out of 4) in file.c at line 4",
              takeProblem());
    EXPECT_EQ((std::vector<int>{ 1, 2, 3, 4 }), valuesOf<int>(a));
}

TEST_F(Arrays, an_index_beyond_the_first_key_reaches_the_later_ones)
{
    const Owned a = RvArray(2, 2, RV_TYPE_INT, 1, 2, 3, 4);
    EXPECT_EQ(4, RvArrayGetInt(a, 3));
    RvArraySetInt(a, 2, 30);
    EXPECT_EQ((std::vector<int>{ 1, 2, 30, 4 }), valuesOf<int>(a));
}

TEST_F(Arrays, the_bits_of_an_integer_are_read_as_a_float)
{
    const Owned a = RvArray(1, 1, RV_TYPE_INT, std::bit_cast<int>(1.5f));
    EXPECT_EQ(1.5f, RvArrayGetFltFunc(a, 0, "file.c", 3));
    EXPECT_EQ("RvArrayGetFltFunc: array-type does not match request-type in file.c at line 3",
              takeProblem());
}

TEST_F(Arrays, any_byte_but_0_reads_as_true)
{
    uint8_t values[] = { 0, 1, 2, 255 };
    const Wrapped a(values, RV_TYPE_BOOLEAN);
    EXPECT_FALSE(RvArrayGetBool(a, 0));
    for (unsigned i : { 1u, 2u, 3u })
        EXPECT_TRUE(RvArrayGetBool(a, i));
}

TEST_F(Arrays, nodes_are_read_and_written_as_pointers_without_a_message)
{
    int thing, other;
    const Owned a = RvArray(1, 1, RV_TYPE_NODE, &thing);
    EXPECT_EQ(&thing, RvArrayGetPtr(a, 0));
    RvArraySetPtr(a, 0, &other);
    EXPECT_EQ(&other, RvArrayGetPtr(a, 0));
    EXPECT_EQ("", takeProblem());
}

TEST_F(Arrays, elements_of_unaligned_storage_can_be_accessed)
{
    alignas(16) uint8_t bytes[1 + 2 * sizeof(RtRGBA)] = {};
    const Owned a = RvArrayConvert(2, 1, RV_TYPE_RGBA, bytes + 1, false);
    RvArraySetRGBA(a, 1, RV_RGBA_WHITE);
    EXPECT_EQ(1, RvArrayGetRGBA(a, 1).a);
}

TEST_F(Arrays, a_written_string_is_interned_and_the_old_one_released)
{
    const Owned a = RvArray(2, 1, RV_TYPE_STRING, "old", nullptr);
    std::string text = "new";
    RvArraySetStr(a, 0, text.c_str());
    RvArraySetStr(a, 1, text.c_str());
    text = "overwritten";
    EXPECT_EQ((std::vector<std::string>{ "new", "new" }), stringsOf(a));
    EXPECT_EQ(2, heldStrings());
    RvArraySetStr(a, 0, nullptr);
    EXPECT_EQ((std::vector<std::string>{ "(null)", "new" }), stringsOf(a));
    EXPECT_EQ("", takeProblem());
}

TEST_F(Arrays, a_string_can_be_written_over_itself)
{
    const Owned a = RvArray(1, 1, RV_TYPE_STRING, "same");
    RvArraySetStr(a, 0, RvArrayGetStr(a, 0));
    EXPECT_STREQ("same", RvArrayGetStr(a, 0));
    EXPECT_EQ(1, heldStrings());
}

TEST_F(Arrays, a_string_written_to_foreign_storage_stays_a_plain_pointer)
{
    const char* names[] = { "a" };
    const Wrapped a(names, RV_TYPE_STRING);
    const char* const text = "b";
    RvArraySetStr(a, 0, text);
    EXPECT_EQ(text, names[0]);
    EXPECT_EQ(0, heldStrings());
}

TEST_F(Arrays, a_string_written_to_another_type_takes_no_reference)
{
    const Owned a = RvArrayAllocate(4, 1, RV_TYPE_FLOAT);
    const char* const text = "text";
    RvArraySetStrFunc(a, 1, text, "file.c", 3);
    EXPECT_EQ("RvArraySetStr: array-type does not match request-type in file.c at line 3",
              takeProblem());
    EXPECT_EQ(0, heldStrings());
    EXPECT_EQ(text, rv::elementsOf<const char*>(a.array)[1]);
}

TEST_F(Arrays, a_written_array_does_not_destroy_the_one_it_replaces)
{
    RtArray* const first = RvArray(1, 1, RV_TYPE_INT, 1);
    const Owned outer = RvArray(1, 1, RV_TYPE_ARRAY, first);
    RvArraySetArray(outer, 0, RvArray(1, 1, RV_TYPE_INT, 2));
    EXPECT_EQ(1, RvArrayGetInt(first, 0));
    EXPECT_EQ(2, RvArrayGetInt(RvArrayGetArray(outer, 0), 0));
    RvArrayDestroy(first);
}

TEST_F(Arrays, matrices_are_copied_in_and_out)
{
    const Owned a = RvArray(2, 1, RV_TYPE_MATRIX, &RV_M4_IDENTITY, &RV_M4_IDENTITY);
    RvArraySetMtx(a, 1, &counted_matrix);
    RtMatrix out;
    RvArrayGetMtx(a, 1, &out);
    EXPECT_TRUE(equal(counted_matrix, out));
    RvArrayGetMtx(a, 0, &out);
    EXPECT_TRUE(RvM4IsIdentity(&out));
    EXPECT_EQ("", takeProblem());
}

TEST_F(Arrays, a_matrix_is_not_copied_to_null_or_onto_itself)
{
    const Owned a = RvArray(1, 1, RV_TYPE_MATRIX, &counted_matrix);
    RtMatrix* const element = rv::elementsOf<RtMatrix>(a.array);
    RvArrayGetMtx(a, 0, nullptr);
    RvArrayGetMtx(a, 0, element);
    RvArraySetMtx(a, 0, element);
    RvArraySetMtx(a, 0, nullptr);
    EXPECT_TRUE(equal(counted_matrix, *element));
    EXPECT_EQ("", takeProblem());
}

TEST_F(Arrays, a_matrix_out_of_range_reads_element_0)
{
    const Owned a = RvArray(1, 1, RV_TYPE_MATRIX, &counted_matrix);
    RtMatrix out;
    RvArrayGetMtxFunc(a, 1, &out, "file.c", 3);
    EXPECT_TRUE(equal(counted_matrix, out));
    EXPECT_EQ("RvArrayGetMtx: out-of-range error in file.c at line 3", takeProblem());
}

TEST_F(Arrays, a_matrix_out_of_range_is_not_written)
{
    const Owned a = RvArray(1, 1, RV_TYPE_MATRIX, &counted_matrix);
    RvArraySetMtxFunc(a, 1, &RV_M4_ZERO, "file.c", 3);
    EXPECT_TRUE(equal(counted_matrix, *rv::elementsOf<RtMatrix>(a.array)));
    EXPECT_EQ("RvArraySetMtx: out-of-range error in file.c at line 3", takeProblem());
}

TEST_F(Arrays, matrices_are_accessed_without_a_check_of_the_type_but_within_the_storage)
{
    float values[20];
    std::iota(values, values + 20, 1.f);
    const Wrapped a(values, RV_TYPE_FLOAT);
    RtMatrix out;
    RvArrayGetMtx(a, 0, &out);
    EXPECT_TRUE(equal(counted_matrix, out));
    RvArrayGetMtx(a, 1, &out);
    EXPECT_TRUE(equal(RV_M4_ZERO, out));
    RvArraySetMtx(a, 1, &RV_M4_IDENTITY);
    EXPECT_EQ(20, values[19]);
    RvArraySetMtx(a, 0, &RV_M4_IDENTITY);
    EXPECT_EQ(0, values[1]);
    EXPECT_EQ("", takeProblem());
}

TEST_F(Arrays, a_matrix_of_an_array_without_storage_is_zero)
{
    const Owned a = RvArrayConvert(1, 1, RV_TYPE_MATRIX, nullptr, false);
    RtMatrix out = RV_M4_IDENTITY;
    RvArrayGetMtx(a, 0, &out);
    EXPECT_TRUE(equal(RV_M4_ZERO, out));
    RvArraySetMtx(a, 0, &out);
    EXPECT_EQ("", takeProblem());
}

TEST_F(Arrays, a_matrix_is_not_written_to_a_null_array)
{
    RvArraySetMtxFunc(nullptr, 0, &RV_M4_IDENTITY, "file.c", 3);
    EXPECT_EQ("RvArraySetMtx: accessing NULL array in file.c at line 3", takeProblem());
}

TEST_F(Arrays, reading_a_matrix_of_a_null_array_is_reported_and_not_survived)
{
    RtMatrix out;
    EXPECT_DEATH(
        {
            RvMsgSetCallback(printMessage);
            RvArrayGetMtxFunc(nullptr, 0, &out, "file.c", 3);
        },
        "RvArrayGetMtx: accessing NULL array in file.c at line 3");
}

TEST_F(Arrays, golden_integer_reads)
{
    for (const json& v : goldenVectors("maths", "RvArrayGetIntFunc")) {
        const json& in = v["in"];
        std::vector<int> values = in["values"];
        const Owned a =
            RvArrayConvert(in["nelements"], in["nkeys"], RV_TYPE_INT, values.data(), true);
        const std::string file = in["file"];
        expectGolden(v, "value", RvArrayGetIntFunc(a, in["index"], file.c_str(), in["line"]));
        const std::string problem = takeProblem();
        expectGolden(v, "error", problem.empty() ? json() : json(problem));
    }
}

TEST_F(Arrays, golden_float_reads_of_integers)
{
    for (const json& v : goldenVectors("maths", "RvArrayGetFltFunc_on_INT")) {
        const json& in = v["in"];
        std::vector<int> values = in["values"];
        const Owned a =
            RvArrayConvert(static_cast<int>(values.size()), 1, RV_TYPE_INT, values.data(), false);
        const std::string file = in["file"];
        expectGoldenNumbers(v, "value",
                            { RvArrayGetFltFunc(a, in["index"], file.c_str(), in["line"]) });
        expectGolden(v, "error", takeProblem());
    }
}
