// Reads image files back, by way of the image library, whose headers stay in image_reader.cpp.
#ifndef RV_IMAGE_READER_H
#define RV_IMAGE_READER_H

#include "rv_drivers.h"

#include <map>
#include <string>
#include <vector>

struct ImageRead {
    std::string error;  // empty when the file could be read
    std::string format; // of the file
    std::string type;   // of the pixels
    RtWindow data_window, display_window;
    int tile_width, tile_height; // 0 for rows
    std::vector<std::string> channels;
    int alpha_channel;
    std::map<std::string, std::string> attributes; // as text, names in lower case
    std::vector<double> values; // as stored: integers are not scaled, colours not multiplied

    int width() const { return data_window.max_x - data_window.min_x + 1; }
    int height() const { return data_window.max_y - data_window.min_y + 1; }
    // All channels of a pixel, in coordinates of the data window.
    std::vector<double> pixel(int x, int y) const
    {
        const size_t count = channels.size();
        const auto first =
            values.begin() + long(count * (size_t(y - data_window.min_y) * size_t(width()) +
                                           size_t(x - data_window.min_x)));
        return { first, first + long(count) };
    }
    int channel(const std::string& name) const // -1 for none
    {
        for (size_t i = 0; i < channels.size(); ++i)
            if (channels[i] == name)
                return int(i);
        return -1;
    }
};

ImageRead readImage(const std::string& path);

// Names that the library gives to that many channels.
std::vector<std::string> libraryChannelNames(int count);

#endif
