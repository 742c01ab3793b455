// From the pixels of an output to the channels of an image file.
#ifndef RV_IMAGE_PIXELS_H
#define RV_IMAGE_PIXELS_H

#include "rv_math.h"

#include <stddef.h>

namespace rv {

// What a channel of the file holds. Halves are made of floats by the image library.
enum class ChannelFormat { uint8, uint16, uint32, float16, float32 };

// Bytes of a channel on its way to the library.
size_t channelBytes(ChannelFormat format);

struct PixelRules {
    ChannelFormat format;
    float gamma;            // of 8-bit files; 1 for all others
    float dither_amplitude; // steps of an 8 or 16-bit file
    bool unpremult_alpha;   // RGBA pixels are stored straight
};

// An RGBA pixel as a file holds it, before quantisation. Alpha knows no gamma.
RtRGBA fileColor(const RtRGBA& pixel, float gamma, bool unpremult_alpha);

// x raised to 1 / gamma, for what is not black.
float applyGamma(float x, float gamma);

// x within [0, 1]; 0 for what is no number.
inline float clampToUnit(float x) { return x > 0 ? (x < 1 ? x : 1) : 0; }

// A row of pixels that begins at (x, y) of the image. `to` is the output's first channel of the
// first pixel, and the next pixel is `stride` bytes further.
struct PixelRow {
    int x, y, count;
    int type; // RV_TYPE_*
    const void* from;
    void* to;
    size_t stride;
};
void convertRow(const PixelRules& rules, const PixelRow& row);

} // namespace rv

#endif
