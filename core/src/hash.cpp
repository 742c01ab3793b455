// hash: SuperFastHash (Paul Hsieh, 2004), the string hash of every table. Declared by hash.h.
#include "hash.h"

namespace rv {

// Two bytes, low byte first.
static uint32_t word16(const char* p)
{
    return uint32_t(uint8_t(p[0])) | uint32_t(uint8_t(p[1])) << 8;
}

// One byte, sign-extended as in the published code: bytes above 127 hash as negative numbers.
static uint32_t signedByte(const char* p) { return uint32_t(int32_t(int8_t(*p))); }

uint32_t stringHash(const char* text, size_t length)
{
    if (length == 0)
        return 0;
    uint32_t hash = uint32_t(length);
    for (size_t n = length / 4; n > 0; --n, text += 4) {
        hash += word16(text);
        hash = (hash << 16) ^ (word16(text + 2) << 11) ^ hash;
        hash += hash >> 11;
    }
    switch (length % 4) {
    case 3:
        hash += word16(text);
        hash ^= hash << 16;
        hash ^= signedByte(text + 2) << 18;
        hash += hash >> 11;
        break;
    case 2:
        hash += word16(text);
        hash ^= hash << 11;
        hash += hash >> 17;
        break;
    case 1:
        hash += signedByte(text);
        hash ^= hash << 10;
        hash += hash >> 1;
        break;
    }
    // Let the last bits reach all others.
    hash ^= hash << 3;
    hash += hash >> 5;
    hash ^= hash << 4;
    hash += hash >> 17;
    hash ^= hash << 25;
    hash += hash >> 6;
    return hash;
}

} // namespace rv
