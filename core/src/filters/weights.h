// The weights of the reconstruction filters, by the offset (x, y) of a sample from the centre of
// the pixel and the width of the footprint, all in pixels.
//
// The footprint is a square, so round filters cut its corners themselves. Weights are not
// normalised; the average divides by their sum. All arithmetic is in single precision. Tests are
// written so that the NaN of an empty footprint (width 0) counts as outside.
#ifndef RV_FILTER_WEIGHTS_H
#define RV_FILTER_WEIGHTS_H

#include <math.h>

namespace rv {

inline float boxWeight(float, float, float) { return 1; }

inline float triangleWeight(float x, float y, float width)
{
    const float half = width / 2;
    return (half - fabsf(x)) * (half - fabsf(y));
}

// Square of the distance from the centre, where the width is 2.
inline float unitDistanceSquared(float x, float y, float width)
{
    const float scale = 2 / width;
    const float u = x * scale, v = y * scale;
    return u * u + v * v;
}

inline float gaussianWeight(float x, float y, float width)
{
    const float r2 = unitDistanceSquared(x, y, width);
    return r2 <= 1 ? expf(-2 * r2) : 0;
}

inline float cookWeight(float x, float y, float width)
{
    static const float rim = expf(-2);
    const float r2 = unitDistanceSquared(x, y, width);
    return r2 < 1 ? expf(-2 * r2) - rim : 0;
}

inline float coneWeight(float x, float y, float width)
{
    const float half = width / 2;
    const float r2 = x * x + y * y;
    return r2 <= half * half ? half - sqrtf(r2) : 0;
}

inline float diskWeight(float x, float y, float width)
{
    return x * x + y * y < 0.25f * width * width ? 1 : 0;
}

// A sinc under a window that is itself the main lobe of a sinc, `half` times as wide.
inline float windowedSinc(float t, float half)
{
    const float ratio = fabsf(t) / half;
    if (!(ratio >= 0.00001f))
        return 1;
    const float a = 3.1415927f * ratio;
    return sinf(a) * sinf(a * half) / (a * a * half);
}

inline float sincWeight(float x, float y, float width)
{
    return windowedSinc(x, width / 2) * windowedSinc(y, width / 2);
}

inline float blackmanHarris(float t, float width)
{
    const float u = t / (width / 2);
    if (!(u >= -1 && u <= 1))
        return 0;
    // 0.35875 - 0.48829 cos a + 0.14128 cos 2a - 0.01168 cos 3a, of one cosine.
    const float v = (u + 1) / 2;
    const float c = cosf(6.2831855f * v), c2 = c * c;
    return 0.35875f - 0.48829f * c + 0.14128f * (2 * c2 - 1) - 0.01168f * (4 * c2 - 3) * c;
}

inline float blackmanHarrisWeight(float x, float y, float width)
{
    return blackmanHarris(x, width) * blackmanHarris(y, width);
}

// The cubics below are two pixels in radius, whatever the width. Their constant factors vary,
// which the average does not see.

inline float catromWeight(float x, float y, float)
{
    const float r2 = x * x + y * y, r = sqrtf(r2);
    if (r >= 2)
        return 0;
    return r < 1 ? (3 * r - 5) * r2 + 2 : (4 - 8 * r) + (5 - r) * r2;
}

inline float catrom(float t)
{
    const float a = fabsf(t), t2 = t * t;
    return a < 1 ? (3 * a - 5) * t2 + 2 : (4 - 8 * a) + (5 - a) * t2;
}

inline float catrom2dWeight(float x, float y, float) { return catrom(x) * catrom(y); }

inline float cubicWeight(float x, float y, float)
{
    const float r2 = x * x + y * y;
    if (r2 >= 4)
        return 0;
    const float r = sqrtf(r2);
    if (r < 1)
        return (r2 * (3 * r - 6) + 4) / 6;
    const float rest = 2 - r;
    return rest * rest * rest / 6;
}

inline float mitnetWeight(float x, float y, float)
{
    const float r2 = x * x + y * y, r = sqrtf(r2);
    if (r >= 2)
        return 0;
    return r < 1 ? (7 * r - 12) * r2 + 5.3333335f
                 : ((-2.3333333f * r + 12) * r - 20) * r + 10.666667f;
}

inline float videoWeight(float x, float y, float)
{
    const float r2 = x * x + y * y;
    if (r2 >= 4)
        return 0;
    return r2 < 1 ? 0.5f - 0.25f * r2 : (0.25f * r2 + 1) - sqrtf(r2);
}

} // namespace rv

#endif
