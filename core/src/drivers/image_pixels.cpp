// image_pixels: gamma, alpha and the formats of channels.
#include "drivers/image_pixels.h"

#include "drivers/image_layout.h"
#include "maths.h"
#include "rv_drivers.h"

#include <math.h>
#include <string.h>

namespace rv {

size_t channelBytes(ChannelFormat format)
{
    switch (format) {
    case ChannelFormat::uint8: return 1;
    case ChannelFormat::uint16: return 2;
    default: return 4;
    }
}

float applyGamma(float x, float gamma)
{
    if (gamma == 1)
        return x;
    return x > 0 ? powf(x, 1 / gamma) : 0;
}

// Required: colour without alpha is lost, unless the file holds straight colour.
RtRGBA fileColor(const RtRGBA& pixel, float gamma, bool unpremult_alpha)
{
    const bool has_alpha = pixel.a > 0;
    if (has_alpha && gamma == 1 && !unpremult_alpha)
        return pixel; // exact, where the division below would round
    const float divisor = has_alpha ? pixel.a : 1, factor = unpremult_alpha ? 1 : pixel.a;
    const auto channel = [&](float x) { return applyGamma(x / divisor, gamma) * factor; };
    return { channel(pixel.r), channel(pixel.g), channel(pixel.b), pixel.a };
}

// ---- From a value of the type to up to four floats ----

struct Components {
    float v[4];
};

template <class T> static T read(const void* from)
{
    T value;
    memcpy(&value, from, sizeof value);
    return value;
}

template <class T> static Components number(const void* from)
{
    return { { static_cast<float>(read<T>(from)) } };
}

// Types whose values are floats side by side.
static Components floats(const void* from, int count)
{
    Components c = {};
    memcpy(c.v, from, sizeof(float) * static_cast<size_t>(count));
    return c;
}

static Components components(int type, const void* from)
{
    switch (type) {
    case RV_TYPE_BYTE:
    case RV_TYPE_BOOLEAN: return number<uint8_t>(from);
    case RV_TYPE_INT: return number<int32_t>(from);
    case RV_TYPE_UINT: return number<uint32_t>(from);
    default: return floats(from, channelCount(type));
    }
}

// ---- From a float to a channel ----

struct ChannelPlace {
    int x, y, channel;
};

static uint32_t quantize32bit(float value)
{
    return static_cast<uint32_t>(double(clampToUnit(value)) * UINT32_MAX + 0.5);
}

template <class T> static void write(void* to, int channel, T value)
{
    memcpy(static_cast<T*>(to) + channel, &value, sizeof value);
}

static void storeChannel(const PixelRules& rules, const ChannelPlace& at, float value, void* to)
{
    const float amplitude = rules.dither_amplitude;
    switch (rules.format) {
    case ChannelFormat::uint8:
        return write(to, at.channel,
                     static_cast<uint8_t>(
                         RvQuantize8bit(at.x, at.y, at.channel, clampToUnit(value), amplitude)));
    case ChannelFormat::uint16:
        return write(to, at.channel,
                     static_cast<uint16_t>(
                         RvQuantize16bit(at.x, at.y, at.channel, clampToUnit(value), amplitude)));
    case ChannelFormat::uint32: return write(to, at.channel, quantize32bit(value));
    default: return write(to, at.channel, value);
    }
}

static Components fileValues(const PixelRules& rules, int type, const void* from)
{
    Components c = components(type, from);
    if (type == RV_TYPE_RGBA) {
        const RtRGBA color =
            fileColor({ c.v[0], c.v[1], c.v[2], c.v[3] }, rules.gamma, rules.unpremult_alpha);
        return { { color.r, color.g, color.b, color.a } };
    }
    for (float& value : c.v)
        value = applyGamma(value, rules.gamma);
    return c;
}

void convertRow(const PixelRules& rules, const PixelRow& row)
{
    const int channels = channelCount(row.type);
    const size_t pixel_bytes = typeSize(row.type);
    const char* from = static_cast<const char*>(row.from);
    char* to = static_cast<char*>(row.to);
    // An identifier is of use only unscaled, which the widest integers can hold.
    const bool keeps_integers = rules.format == ChannelFormat::uint32 && row.type == RV_TYPE_INT;
    for (int i = 0; i < row.count; ++i, from += pixel_bytes, to += row.stride) {
        if (keeps_integers) {
            const int32_t value = read<int32_t>(from);
            write(to, 0, static_cast<uint32_t>(value > 0 ? value : 0));
            continue;
        }
        const Components values = fileValues(rules, row.type, from);
        for (int c = 0; c < channels; ++c)
            storeChannel(rules, { row.x + i, row.y, c }, values.v[c], to);
    }
}

} // namespace rv
