// Which channels of an image file hold which output.
#ifndef RV_IMAGE_LAYOUT_H
#define RV_IMAGE_LAYOUT_H

#include "rv_drivers.h"

#include <string>
#include <vector>

namespace rv {

// The channels of one output, side by side.
struct ImageLayer {
    int type;  // RV_TYPE_* of the output's pixels
    int first; // channel
    int count; // 0 for an output that the file does not hold
};

struct ImageLayout {
    std::vector<ImageLayer> layers; // one for each output of the driver, in the same order
    std::vector<std::string> names; // one for each channel
    int alpha_channel = -1;         // -1 without one
};

// Channels of a pixel of that type; 0 for types that no image holds.
int channelCount(int type);

// Names after the variable; none when the channels take the names that images without layers use.
std::vector<std::string> channelNames(const char* aov, int type, bool layer_names);

// Adds the channels of an output. False when the names of its channels are all taken; it then has a
// layer without channels.
bool addLayer(ImageLayout* layout, const char* aov, int type, bool layer_names);
// Adds an output that the file does not hold.
void skipLayer(ImageLayout* layout, int type);

} // namespace rv

#endif
