// quantize: from numbers to the integers of image files and displays (rv_drivers.h).
#include "rv_drivers.h"
#include "sampling.h"

namespace rv {

static constexpr uint32_t dither_hash_key = 0xDEADBF08;

// Between plus and minus the amplitude, the same for a channel of a pixel at all times.
static float dither(int x, int y, int channel, float amplitude)
{
    const HashWords hash = mix({ uint32_t(x) + dither_hash_key, uint32_t(y) + dither_hash_key,
                                 uint32_t(channel) + dither_hash_key });
    const double u = hashToUnit(hash.c);
    return static_cast<float>(((u - 1) + u) * double(amplitude));
}

// Required: truncation, so that 0.5 becomes 127 of 255.
static int quantize(int full_scale, int x, int y, int channel, float value, float dither_amplitude)
{
    float v = value * static_cast<float>(full_scale);
    if (dither_amplitude > 0)
        v += dither(x, y, channel, dither_amplitude);
    if (!(v > 0)) // this way round it also catches NaN
        return 0;
    return v < static_cast<float>(full_scale) ? static_cast<int>(v) : full_scale;
}

} // namespace rv

int RvQuantize8bit(int x, int y, int channel, float value, float dither_amplitude)
{
    return rv::quantize(255, x, y, channel, value, dither_amplitude);
}

int RvQuantize16bit(int x, int y, int channel, float value, float dither_amplitude)
{
    return rv::quantize(65535, x, y, channel, value, dither_amplitude);
}
