// Arrays of unsigned indices in as few bits as their largest value needs.
#ifndef RV_PACKEDARRAY_H
#define RV_PACKEDARRAY_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

enum RtPackedEncoding : uint8_t {
    RV_PACKED_ENCODING_NONE = 0,
    RV_PACKED_ENCODING_1BYTE = 1,
    RV_PACKED_ENCODING_2BYTE = 2,
    RV_PACKED_ENCODING_3BYTE = 3, // most significant byte first, unlike the others
    RV_PACKED_ENCODING_4BYTE = 4,
    RV_PACKED_ENCODING_10BITS = 5, // three to a 32-bit word
    RV_PACKED_ENCODING_21BITS = 6  // three to a 64-bit word
};

struct RtPackedIdxArray {
    uint8_t* data; // null when empty; padded so that eight bytes may be read at any element
    RtPackedEncoding encoding;
    bool borrowed; // the data belongs to somebody else
    uint32_t count;

    uint32_t operator[](uint32_t i) const;
    void set(uint32_t i, uint32_t value);
    size_t bytes() const; // of the elements, padding excluded
};

// Storage for `count` values below `bound`, all zero. False when the heap is exhausted; the array
// is then empty.
bool RvPackedArrayAllocate(RtPackedIdxArray* array, uint32_t count, uint64_t bound);
// The same with the given values, which must be below the bound.
bool RvPackedArrayCreate(RtPackedIdxArray* array, const uint32_t* values, uint32_t count,
                         uint64_t bound);
// Keeps the first `count` elements of an array that owns its data.
void RvPackedArrayTruncate(RtPackedIdxArray* array, uint32_t count);
void RvPackedArrayFree(RtPackedIdxArray* array);

// Three corner numbers a triangle, in 0, 2, 4, 8 or 16 bits each after the largest polygon, or in
// 32 for polygons whose corners 16 bits cannot number.
struct RtPackedTriArray {
    uint8_t* data; // null when every triangle is (0, 1, 2)
    uint8_t bits;

    uint32_t corner(uint32_t j) const; // number j of the array, 3 a triangle
    void setCorner(uint32_t j, uint32_t value);
};

// All numbers zero. False when the heap is exhausted; every triangle is then (0, 1, 2).
bool RvPackedTriAllocate(RtPackedTriArray* array, uint32_t triangles, uint32_t largest_polygon);
void RvPackedTriFree(RtPackedTriArray* array);
size_t RvPackedTriBytes(uint32_t triangles, uint32_t largest_polygon);

inline uint32_t RtPackedIdxArray::operator[](uint32_t i) const
{
    switch (encoding) {
    case RV_PACKED_ENCODING_1BYTE: return data[i];
    case RV_PACKED_ENCODING_2BYTE: {
        uint16_t word;
        memcpy(&word, data + 2 * size_t(i), sizeof word);
        return word;
    }
    case RV_PACKED_ENCODING_3BYTE: {
        const uint8_t* const at = data + 3 * size_t(i);
        return uint32_t(at[0]) << 16 | uint32_t(at[1]) << 8 | at[2];
    }
    case RV_PACKED_ENCODING_4BYTE: {
        uint32_t word;
        memcpy(&word, data + 4 * size_t(i), sizeof word);
        return word;
    }
    case RV_PACKED_ENCODING_10BITS: {
        uint32_t word;
        memcpy(&word, data + 4 * size_t(i / 3), sizeof word);
        return word >> 10 * (i % 3) & 0x3FF;
    }
    case RV_PACKED_ENCODING_21BITS: {
        uint64_t word;
        memcpy(&word, data + 8 * size_t(i / 3), sizeof word);
        return uint32_t(word >> 21 * (i % 3)) & 0x1FFFFF;
    }
    default: return 0;
    }
}

inline uint32_t RtPackedTriArray::corner(uint32_t j) const
{
    switch (bits) {
    case 2: return data[j / 4] >> (6 - 2 * (j % 4)) & 3;
    case 4: return data[j / 2] >> (j % 2 ? 0 : 4) & 15;
    case 8: return data[j];
    case 16: {
        uint16_t word;
        memcpy(&word, data + 2 * size_t(j), sizeof word);
        return word;
    }
    case 32: {
        uint32_t word;
        memcpy(&word, data + 4 * size_t(j), sizeof word);
        return word;
    }
    default: return j % 3;
    }
}

#endif
