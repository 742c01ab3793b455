// image_layout: names and places of the channels of an image file.
#include "drivers/image_layout.h"

#include <algorithm>
#include <string.h>

namespace rv {

int channelCount(int type)
{
    switch (type) {
    case RV_TYPE_RGBA: return 4;
    case RV_TYPE_RGB:
    case RV_TYPE_VECTOR:
    case RV_TYPE_POINT: return 3;
    case RV_TYPE_POINT2: return 2;
    case RV_TYPE_BYTE:
    case RV_TYPE_INT:
    case RV_TYPE_UINT:
    case RV_TYPE_BOOLEAN:
    case RV_TYPE_FLOAT: return 1;
    default: return 0;
    }
}

static bool isBeauty(const char* aov) { return !strcmp(aov, "RGB") || !strcmp(aov, "RGBA"); }

static std::vector<std::string> namesAfter(const char* aov, int count)
{
    if (count == 1)
        return { aov };
    const char* const suffixes = count == 2 ? "xy" : "rgba";
    std::vector<std::string> names;
    for (int i = 0; i < count; ++i)
        names.push_back(std::string(aov) + "." + suffixes[i]);
    return names;
}

std::vector<std::string> channelNames(const char* aov, int type, bool layer_names)
{
    if (!layer_names || isBeauty(aov))
        return {};
    return namesAfter(aov, channelCount(type));
}

// Those of the image library.
static std::vector<std::string> plainNames(int count)
{
    if (count == 1)
        return { "Y" };
    static const char* const colors[] = { "R", "G", "B", "A" };
    return { colors, colors + count };
}

static bool anyTaken(const ImageLayout& layout, const std::vector<std::string>& names)
{
    return std::any_of(names.begin(), names.end(), [&](const std::string& name) {
        return std::find(layout.names.begin(), layout.names.end(), name) != layout.names.end();
    });
}

void skipLayer(ImageLayout* layout, int type)
{
    layout->layers.push_back({ type, static_cast<int>(layout->names.size()), 0 });
}

// One file cannot hold two channels of one name. So where several outputs share a file, only the
// first one and the image itself go without the name of their variable.
bool addLayer(ImageLayout* layout, const char* aov, int type, bool layer_names)
{
    const int count = channelCount(type), first = static_cast<int>(layout->names.size());
    std::vector<std::string> names = channelNames(aov, type, layer_names || first > 0);
    if (names.empty())
        names = plainNames(count);
    if (anyTaken(*layout, names))
        names = namesAfter(aov, count);
    if (anyTaken(*layout, names)) {
        skipLayer(layout, type);
        return false;
    }
    layout->layers.push_back({ type, first, count });
    layout->names.insert(layout->names.end(), names.begin(), names.end());
    if (count == 4 && layout->alpha_channel < 0)
        layout->alpha_channel = first + 3;
    return true;
}

} // namespace rv
