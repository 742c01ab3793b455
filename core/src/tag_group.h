// Sixteen one-byte tags compared at once, for the search of a hash table.
#ifndef RV_TAG_GROUP_H
#define RV_TAG_GROUP_H

#include <stdint.h>

#if defined(__SSE2__) && !defined(RV_SIMD_SCALAR)
#include <emmintrin.h>
#define RV_TAG_GROUP_SSE2 1
#endif

namespace rv {

// The tags at p[0] to p[15]; bit i of a result stands for p[i].
class TagGroup {
public:
    static constexpr unsigned width = 16;

#ifdef RV_TAG_GROUP_SSE2
    explicit TagGroup(const uint8_t* p) : tags(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)))
    {
    }
    unsigned equalTo(uint8_t tag) const
    {
        return unsigned(_mm_movemask_epi8(_mm_cmpeq_epi8(tags, _mm_set1_epi8(char(tag)))));
    }

private:
    __m128i tags;
#else
    explicit TagGroup(const uint8_t* p) : tags(p) {}
    unsigned equalTo(uint8_t tag) const
    {
        unsigned bits = 0;
        for (unsigned i = 0; i < width; ++i)
            bits |= unsigned(tags[i] == tag) << i;
        return bits;
    }

private:
    const uint8_t* tags;
#endif
};

} // namespace rv

#endif
