// Arithmetic of colours, channel by channel.
#ifndef RV_COLOR_H
#define RV_COLOR_H

#include "rv_math.h"

#include <algorithm>
#include <math.h>

namespace rv {

inline RtRGB grey(float x) { return { x, x, x }; }

inline RtRGB operator+(const RtRGB& a, const RtRGB& b)
{
    return { a.r + b.r, a.g + b.g, a.b + b.b };
}
inline RtRGB operator-(const RtRGB& a, const RtRGB& b)
{
    return { a.r - b.r, a.g - b.g, a.b - b.b };
}
inline RtRGB operator*(const RtRGB& a, const RtRGB& b)
{
    return { a.r * b.r, a.g * b.g, a.b * b.b };
}
inline RtRGB operator*(const RtRGB& c, float s) { return { c.r * s, c.g * s, c.b * s }; }

template <class F> RtRGB perChannel(const RtRGB& c, F f) { return { f(c.r), f(c.g), f(c.b) }; }

// The magnitude below which shading takes a number for zero.
inline constexpr float negligible = 0.0001f;

// No channel matters.
inline bool isNegligible(const RtRGB& c)
{
    return fabsf(c.r) < negligible && fabsf(c.g) < negligible && fabsf(c.b) < negligible;
}

inline RtRGB clampedToUnit(const RtRGB& c)
{
    return perChannel(c, [](float x) { return std::clamp(x, 0.0f, 1.0f); });
}

inline bool isWhite(const RtRGB& c) { return c.r == 1 && c.g == 1 && c.b == 1; }

inline float largestOf(const RtRGB& c) { return fmaxf(fmaxf(c.r, c.g), c.b); }

inline float meanOf(const RtRGB& c) { return (c.r + c.g + c.b) / 3; }

} // namespace rv

#endif
