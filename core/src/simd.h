// Four floats at a time. The one place that knows the processor's vector instructions.
#ifndef RV_SIMD_H
#define RV_SIMD_H

#include <smmintrin.h>
#include <stdint.h>

namespace rv {

struct Float4 {
    __m128 v;

    Float4() = default;
    Float4(__m128 value) : v(value) {}
    explicit Float4(float value) : v(_mm_set1_ps(value)) {}
    Float4(float x, float y, float z, float w) : v(_mm_setr_ps(x, y, z, w)) {}
    static Float4 load(const float* aligned) { return _mm_load_ps(aligned); }
    static Float4 loadUnaligned(const float* p) { return _mm_loadu_ps(p); }
    void store(float* aligned) const { _mm_store_ps(aligned, v); }
    void storeUnaligned(float* p) const { _mm_storeu_ps(p, v); }
};

inline Float4 operator+(Float4 a, Float4 b) { return _mm_add_ps(a.v, b.v); }
inline Float4 operator-(Float4 a, Float4 b) { return _mm_sub_ps(a.v, b.v); }
inline Float4 operator*(Float4 a, Float4 b) { return _mm_mul_ps(a.v, b.v); }
inline Float4 operator/(Float4 a, Float4 b) { return _mm_div_ps(a.v, b.v); }
// Where a lane of `a` or `b` is NaN the result is that lane of `b`.
inline Float4 min(Float4 a, Float4 b) { return _mm_min_ps(a.v, b.v); }
inline Float4 max(Float4 a, Float4 b) { return _mm_max_ps(a.v, b.v); }

// All bits of a lane set, or none.
struct Mask4 {
    __m128 v;
    // Bit i is lane i.
    unsigned bits() const { return unsigned(_mm_movemask_ps(v)); }
};
inline Mask4 operator<(Float4 a, Float4 b) { return { _mm_cmplt_ps(a.v, b.v) }; }
inline Mask4 operator<=(Float4 a, Float4 b) { return { _mm_cmple_ps(a.v, b.v) }; }
inline Mask4 operator>=(Float4 a, Float4 b) { return { _mm_cmpge_ps(a.v, b.v) }; }
inline Mask4 operator>(Float4 a, Float4 b) { return { _mm_cmpgt_ps(a.v, b.v) }; }
inline Mask4 operator&(Mask4 a, Mask4 b) { return { _mm_and_ps(a.v, b.v) }; }
inline Float4 select(Mask4 mask, Float4 yes, Float4 no)
{
    return _mm_blendv_ps(no.v, yes.v, mask.v);
}

// Four whole numbers.
struct Int4 {
    __m128i v;

    static Int4 load(const uint32_t* aligned)
    {
        return { _mm_load_si128(reinterpret_cast<const __m128i*>(aligned)) };
    }
    static Int4 load(const uint16_t* p)
    {
        return { _mm_cvtepu16_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))) };
    }
    void storeUnaligned(uint32_t* p) const { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }
};

// Lane i of the result is that lane of `a` whose laneBytes() are in lane i of the order.
constexpr uint32_t laneBytes(unsigned lane) { return 0x03020100 + lane * 0x04040404; }
inline Int4 permute(Int4 a, Int4 order) { return { _mm_shuffle_epi8(a.v, order.v) }; }
inline Float4 permute(Float4 a, Int4 order)
{
    return _mm_castsi128_ps(_mm_shuffle_epi8(_mm_castps_si128(a.v), order.v));
}
inline Mask4 permute(Mask4 a, Int4 order) { return { permute(Float4(a.v), order).v }; }

// The four bytes of a word, the lowest first, as numbers from 0 to 255.
inline Float4 fromBytes(uint32_t word)
{
    return _mm_cvtepi32_ps(_mm_cvtepu8_epi32(_mm_cvtsi32_si128(int(word))));
}

// The same with 0 in the fourth lane.
inline Float4 clearW(Float4 a) { return _mm_blend_ps(a.v, _mm_setzero_ps(), 8); }

// Rows become columns.
inline void transpose(Float4& a, Float4& b, Float4& c, Float4& d)
{
    _MM_TRANSPOSE4_PS(a.v, b.v, c.v, d.v);
}

} // namespace rv

#endif
