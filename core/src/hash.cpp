// hash: SuperFastHash (Paul Hsieh, 2004), the hash of every string table of the library.
#include "hash.h"

namespace rv {

static uint32_t read16(const char* p)
{
    uint16_t value;
    memcpy(&value, p, sizeof value); // the library runs on little-endian machines
    return value;
}

// A tail byte counts as a signed character, as in the published reference.
static uint32_t signedByte(char c) { return static_cast<uint32_t>(static_cast<signed char>(c)); }

static uint32_t mixTail(uint32_t hash, const char* tail, size_t remainder)
{
    switch (remainder) {
    case 3:
        hash += read16(tail);
        hash ^= hash << 16;
        hash ^= signedByte(tail[2]) << 18;
        hash += hash >> 11;
        break;
    case 2:
        hash += read16(tail);
        hash ^= hash << 11;
        hash += hash >> 17;
        break;
    case 1:
        hash += signedByte(*tail);
        hash ^= hash << 10;
        hash += hash >> 1;
        break;
    default: break;
    }
    return hash;
}

static uint32_t avalanche(uint32_t hash)
{
    hash ^= hash << 3;
    hash += hash >> 5;
    hash ^= hash << 4;
    hash += hash >> 17;
    hash ^= hash << 25;
    hash += hash >> 6;
    return hash;
}

uint32_t stringHash(const char* text, size_t length)
{
    if (!length)
        return 0;
    uint32_t hash = static_cast<uint32_t>(length);
    const char* const tail = text + (length & ~size_t(3));
    for (const char* p = text; p != tail; p += 4) {
        hash += read16(p);
        hash = (hash << 16) ^ ((read16(p + 2) << 11) ^ hash);
        hash += hash >> 11;
    }
    return avalanche(mixTail(hash, tail, length & 3));
}

} // namespace rv
