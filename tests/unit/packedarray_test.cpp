// Bit-packed indices and corner numbers.
#include "objects/packedarray.h"

#include "allocation_failures.h"
#include "frame_fixture.h"
#include "golden.h"

#include <random>

class PackedArrays : public BareFrame {
protected:
    static std::string hex(const uint8_t* data, size_t count)
    {
        std::string text;
        char byte[3];
        for (size_t i = 0; i < count; ++i) {
            snprintf(byte, sizeof byte, "%02x", data[i]);
            text += byte;
        }
        return text;
    }
};

static const uint64_t bounds[] = { 0,     1,       255,     256,      1023,     1024,      65535,
                                   65536, 2097151, 2097152, 16777215, 16777216, 1ull << 32 };

TEST_F(PackedArrays, encoding_and_size_follow_the_bound)
{
    for (const auto& v : goldenVectors("meshes", "packed_encoding")) {
        const uint64_t bound = v.at("in").at("bound").get<uint64_t>();
        for (uint32_t count : { 0u, 1u, 2u, 4u, 1023u }) {
            RtPackedIdxArray array;
            ASSERT_TRUE(RvPackedArrayAllocate(&array, count, bound));
            expectGolden(v, "encoding", int(array.encoding));
            expectGolden(v, ("size_" + std::to_string(count)).c_str(), array.bytes());
            EXPECT_EQ(array.data == nullptr, count == 0);
            RvPackedArrayFree(&array);
        }
    }
}

TEST_F(PackedArrays, a_maximum_of_1000_uses_ten_bits)
{
    RtPackedIdxArray array;
    ASSERT_TRUE(RvPackedArrayAllocate(&array, 1023, 1001));
    EXPECT_EQ(array.encoding, RV_PACKED_ENCODING_10BITS);
    EXPECT_EQ(array.bytes(), 1364u);
    RvPackedArrayFree(&array);
}

// Required: the 24-bit encoding alone stores the most significant byte first.
TEST_F(PackedArrays, stored_bytes_are_those_of_the_encoding)
{
    for (const auto& v : goldenVectors("meshes", "packed_bytes")) {
        const auto values = v.at("in").at("values").get<std::vector<uint32_t>>();
        const uint64_t bound = v.at("in").at("bound").get<uint64_t>();
        RtPackedIdxArray bulk, single;
        ASSERT_TRUE(RvPackedArrayCreate(&bulk, values.data(), uint32_t(values.size()), bound));
        ASSERT_TRUE(RvPackedArrayAllocate(&single, uint32_t(values.size()), bound));
        for (uint32_t i = 0; i < values.size(); ++i)
            single.set(i, values[i]);
        for (RtPackedIdxArray* array : { &bulk, &single }) {
            expectGolden(v, "encoding", int(array->encoding));
            expectGolden(v, "bytes_hex", hex(array->data, array->bytes()));
            RvPackedArrayFree(array);
        }
    }
}

TEST_F(PackedArrays, elements_come_back_in_every_encoding_and_keep_their_neighbours)
{
    std::mt19937 generator(1);
    const auto random = [&] { return uint32_t(generator()); };
    for (uint64_t bound : bounds) {
        const uint32_t most = bound ? uint32_t(bound - 1) : 0;
        std::vector<uint32_t> values(1000);
        for (uint32_t& value : values)
            value = most ? uint32_t(random() % (uint64_t(most) + 1)) : 0;
        values[500] = most;
        RtPackedIdxArray array;
        ASSERT_TRUE(RvPackedArrayCreate(&array, values.data(), 1000, bound));
        for (uint32_t i = 0; i < 1000; ++i)
            ASSERT_EQ(array[i], values[i]) << "bound " << bound << " element " << i;
        for (int change = 0; change < 3000; ++change) {
            const uint32_t i = random() % 1000;
            values[i] = values[random() % 1000];
            array.set(i, values[i]);
        }
        for (uint32_t i = 0; i < 1000; ++i)
            ASSERT_EQ(array[i], values[i]) << "bound " << bound << " element " << i;
        RvPackedArrayTruncate(&array, 17);
        EXPECT_EQ(array.count, 17u);
        for (uint32_t i = 0; i < 17; ++i)
            ASSERT_EQ(array[i], values[i]) << "bound " << bound << " element " << i;
        RvPackedArrayTruncate(&array, 0);
        EXPECT_EQ(array.data, nullptr);
        RvPackedArrayFree(&array);
    }
}

TEST_F(PackedArrays, borrowed_data_is_left_alone)
{
    RtPackedIdxArray owner;
    ASSERT_TRUE(RvPackedArrayCreate(&owner, std::vector<uint32_t>{ 7, 8 }.data(), 2, 9));
    RtPackedIdxArray borrower = owner;
    borrower.borrowed = true;
    RvPackedArrayFree(&borrower);
    EXPECT_EQ(borrower.count, 0u);
    EXPECT_EQ(owner[1], 8u);
    RvPackedArrayFree(&owner);
}

TEST_F(PackedArrays, an_exhausted_heap_leaves_an_empty_array_and_names_the_module)
{
    RtPackedIdxArray array;
    withAllocations(0, [&] { EXPECT_FALSE(RvPackedArrayAllocate(&array, 3, 100)); });
    EXPECT_EQ(array.count, 0u);
    EXPECT_EQ(array.data, nullptr);
    EXPECT_EQ(withoutLines(takeProblem()),
              "can't allocate 11 bytes in core\\src\\packedarray:RvPackedArrayAllocate()");
    RtPackedTriArray corners;
    withAllocations(0, [&] { EXPECT_FALSE(RvPackedTriAllocate(&corners, 4, 4)); });
    EXPECT_EQ(corners.corner(5), 2u);
    EXPECT_EQ(withoutLines(takeProblem()),
              "can't allocate 6 bytes in core\\src\\packedarray:RvPackedTriAllocate()");
    withAllocations(0, [&] { EXPECT_FALSE(RvPackedArrayAllocate(&array, 1u << 31, 1ull << 32)); });
    EXPECT_NE(takeProblem(), "");
}

TEST_F(PackedArrays, corner_numbers_take_the_bits_that_the_largest_polygon_needs)
{
    static const std::map<std::string, int> forms = {
        { "none", 0 }, { "2bit", 2 }, { "4bit", 4 }, { "1byte", 8 }, { "2byte", 16 }
    };
    for (const auto& v : goldenVectors("meshes", "packed_tri_size")) {
        const uint32_t triangles = v.at("in").at("triangles").get<uint32_t>();
        const uint32_t largest = v.at("in").at("largest_polygon").get<uint32_t>();
        RtPackedTriArray array;
        ASSERT_TRUE(RvPackedTriAllocate(&array, triangles, largest));
        EXPECT_EQ(int(array.bits), forms.at(v.at("out").at("form").get<std::string>()))
            << goldenId(v);
        expectGolden(v, "bytes", RvPackedTriBytes(triangles, largest));
        RvPackedTriFree(&array);
    }
}

TEST_F(PackedArrays, stored_corner_numbers_are_those_of_the_form)
{
    for (const auto& v : goldenVectors("meshes", "packed_tri_bytes")) {
        const auto numbers = v.at("in").at("numbers").get<std::vector<uint32_t>>();
        const uint32_t largest = v.at("in").at("largest_polygon").get<uint32_t>();
        const uint32_t triangles = uint32_t(numbers.size() / 3);
        RtPackedTriArray array;
        ASSERT_TRUE(RvPackedTriAllocate(&array, triangles, largest));
        for (uint32_t i = 0; i < numbers.size(); ++i)
            array.setCorner(i, numbers[i]);
        for (uint32_t i = 0; i < numbers.size(); ++i)
            EXPECT_EQ(array.corner(i), numbers[i]) << goldenId(v);
        expectGolden(v, "bytes_hex", hex(array.data, RvPackedTriBytes(triangles, largest)));
        RvPackedTriFree(&array);
    }
}

TEST_F(PackedArrays, corners_come_back_for_polygons_of_every_size)
{
    for (uint32_t largest : { 3u, 15u, 16u, 255u, 256u, 65536u, 65537u, 100000u }) {
        RtPackedTriArray array;
        ASSERT_TRUE(RvPackedTriAllocate(&array, 5, largest));
        for (uint32_t i = 0; i < 15; ++i)
            array.setCorner(i, (largest - 1) * (i % 2));
        for (uint32_t i = 0; i < 15; ++i)
            EXPECT_EQ(array.corner(i), (largest - 1) * (i % 2)) << largest;
        RvPackedTriFree(&array);
    }
}

TEST_F(PackedArrays, without_corner_numbers_every_triangle_has_the_corners_0_1_2)
{
    const RtPackedTriArray none = {};
    for (uint32_t i = 0; i < 9; ++i)
        EXPECT_EQ(none.corner(i), i % 3);
}
