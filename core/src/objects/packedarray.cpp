// packedarray: indices in as few bits as their largest value needs, and the corner numbers of
// triangulations.
#include "objects/packedarray.h"

#include "system/memory.h"

static const char* const module_path = "core\\src\\packedarray";

// Eight bytes may be read at any element.
static constexpr size_t read_padding = 8;

// ---- Indices ----

static RtPackedEncoding encodingFor(uint64_t bound)
{
    static const struct {
        uint64_t limit;
        RtPackedEncoding encoding;
    } rows[] = {
        { 1 << 8, RV_PACKED_ENCODING_1BYTE },  { 1 << 10, RV_PACKED_ENCODING_10BITS },
        { 1 << 16, RV_PACKED_ENCODING_2BYTE }, { 1 << 21, RV_PACKED_ENCODING_21BITS },
        { 1 << 24, RV_PACKED_ENCODING_3BYTE },
    };
    for (const auto& row : rows)
        if (bound < row.limit)
            return row.encoding;
    return RV_PACKED_ENCODING_4BYTE;
}

static size_t packedBytes(RtPackedEncoding encoding, size_t count)
{
    switch (encoding) {
    case RV_PACKED_ENCODING_1BYTE: return count;
    case RV_PACKED_ENCODING_2BYTE: return 2 * count;
    case RV_PACKED_ENCODING_3BYTE: return 3 * count;
    case RV_PACKED_ENCODING_4BYTE: return 4 * count;
    case RV_PACKED_ENCODING_10BITS: return (count + 2) / 3 * 4;
    case RV_PACKED_ENCODING_21BITS: return (count + 2) / 3 * 8;
    default: return 0;
    }
}

size_t RtPackedIdxArray::bytes() const { return packedBytes(encoding, count); }

// Storage whose values are still to be written: only the padding is zero.
static bool allocateUnset(RtPackedIdxArray* array, uint32_t count, uint64_t bound)
{
    *array = {};
    const RtPackedEncoding encoding = encodingFor(bound);
    const size_t bytes = packedBytes(encoding, count);
    if (bytes > 0) {
        void* const data =
            rv::allocate(bytes + read_padding, module_path, __LINE__, "RvPackedArrayAllocate");
        if (!data)
            return false;
        array->data = static_cast<uint8_t*>(data);
        memset(array->data + bytes, 0, read_padding);
    }
    array->encoding = encoding;
    array->count = count;
    return true;
}

bool RvPackedArrayAllocate(RtPackedIdxArray* array, uint32_t count, uint64_t bound)
{
    if (!allocateUnset(array, count, bound))
        return false;
    if (array->data)
        memset(array->data, 0, array->bytes());
    return true;
}

// Fills words that hold three values of `width` bits each, the first in the lowest bits.
template <class Word>
static void packTriples(uint8_t* out, const uint32_t* values, uint32_t count, int width)
{
    for (uint32_t i = 0; i < count; i += 3, out += sizeof(Word)) {
        Word word = values[i];
        if (i + 1 < count)
            word |= Word(values[i + 1]) << width;
        if (i + 2 < count)
            word |= Word(values[i + 2]) << 2 * width;
        memcpy(out, &word, sizeof word);
    }
}

bool RvPackedArrayCreate(RtPackedIdxArray* array, const uint32_t* values, uint32_t count,
                         uint64_t bound)
{
    if (!allocateUnset(array, count, bound))
        return false;
    switch (array->encoding) {
    case RV_PACKED_ENCODING_10BITS: packTriples<uint32_t>(array->data, values, count, 10); break;
    case RV_PACKED_ENCODING_21BITS: packTriples<uint64_t>(array->data, values, count, 21); break;
    case RV_PACKED_ENCODING_4BYTE:
        if (count > 0)
            memcpy(array->data, values, 4 * size_t(count));
        break;
    default:
        for (uint32_t i = 0; i < count; ++i)
            array->set(i, values[i]);
    }
    return true;
}

// Replaces the bits of one of the three values of a word.
template <class Word> static void setInTriple(uint8_t* data, uint32_t i, uint32_t value, int width)
{
    uint8_t* const at = data + sizeof(Word) * size_t(i / 3);
    const int shift = width * int(i % 3);
    const Word mask = (Word(1) << width) - 1;
    Word word;
    memcpy(&word, at, sizeof word);
    word = (word & ~(mask << shift)) | (Word(value) & mask) << shift;
    memcpy(at, &word, sizeof word);
}

void RtPackedIdxArray::set(uint32_t i, uint32_t value)
{
    switch (encoding) {
    case RV_PACKED_ENCODING_1BYTE: data[i] = uint8_t(value); break;
    case RV_PACKED_ENCODING_2BYTE: {
        const uint16_t word = uint16_t(value);
        memcpy(data + 2 * size_t(i), &word, sizeof word);
        break;
    }
    case RV_PACKED_ENCODING_3BYTE: { // Required: most significant byte first
        uint8_t* const at = data + 3 * size_t(i);
        at[0] = uint8_t(value >> 16);
        at[1] = uint8_t(value >> 8);
        at[2] = uint8_t(value);
        break;
    }
    case RV_PACKED_ENCODING_4BYTE: memcpy(data + 4 * size_t(i), &value, sizeof value); break;
    case RV_PACKED_ENCODING_10BITS: setInTriple<uint32_t>(data, i, value, 10); break;
    case RV_PACKED_ENCODING_21BITS: setInTriple<uint64_t>(data, i, value, 21); break;
    default: break;
    }
}

// Gives back the end of a block that shrinks; a block that cannot be moved stays as it is.
static uint8_t* shrink(uint8_t* data, size_t bytes)
{
    void* const smaller =
        RvRealloc_func(data, unsigned(bytes), module_path, __LINE__, "RvPackedArrayTruncate");
    return smaller ? static_cast<uint8_t*>(smaller) : data;
}

void RvPackedArrayTruncate(RtPackedIdxArray* array, uint32_t count)
{
    if (count >= array->count)
        return;
    array->count = count;
    if (count == 0)
        RvPackedArrayFree(array);
    else
        array->data = shrink(array->data, array->bytes() + read_padding);
}

void RvPackedArrayFree(RtPackedIdxArray* array)
{
    if (!array->borrowed)
        RvFree_func(array->data);
    *array = {};
}

// ---- Corner numbers ----

static uint8_t cornerBits(uint32_t largest_polygon)
{
    if (largest_polygon < 3)
        return 0;
    if (largest_polygon == 3)
        return 2;
    if (largest_polygon < 16)
        return 4;
    if (largest_polygon < 256)
        return 8;
    return largest_polygon <= 65536 ? 16 : 32;
}

size_t RvPackedTriBytes(uint32_t triangles, uint32_t largest_polygon)
{
    return (3 * size_t(triangles) * cornerBits(largest_polygon) + 7) / 8;
}

bool RvPackedTriAllocate(RtPackedTriArray* array, uint32_t triangles, uint32_t largest_polygon)
{
    *array = {};
    const size_t bytes = RvPackedTriBytes(triangles, largest_polygon);
    if (bytes == 0)
        return true;
    void* const data = rv::allocate(bytes, module_path, __LINE__, "RvPackedTriAllocate");
    if (!data)
        return false;
    memset(data, 0, bytes);
    *array = { static_cast<uint8_t*>(data), cornerBits(largest_polygon) };
    return true;
}

void RtPackedTriArray::setCorner(uint32_t j, uint32_t value)
{
    const auto setBits = [&](uint8_t* byte, int shift, unsigned mask) {
        *byte = uint8_t((*byte & ~(mask << shift)) | (value & mask) << shift);
    };
    switch (bits) {
    case 2: setBits(data + j / 4, int(6 - 2 * (j % 4)), 3); break;
    case 4: setBits(data + j / 2, j % 2 ? 0 : 4, 15); break; // the even number comes first
    case 8: data[j] = uint8_t(value); break;
    case 16: {
        const uint16_t word = uint16_t(value);
        memcpy(data + 2 * size_t(j), &word, sizeof word);
        break;
    }
    case 32: memcpy(data + 4 * size_t(j), &value, sizeof value); break;
    default: break;
    }
}

void RvPackedTriFree(RtPackedTriArray* array)
{
    RvFree_func(array->data);
    *array = {};
}
