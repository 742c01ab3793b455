// An image file on its way to the disk. It grows under a hidden name beside its place and takes
// its own name when it is finished, so that nobody ever sees half a picture, and whatever fails
// leaves an older file as it was.
//
// The image library stays behind this header; its errors come back as text.
#ifndef RV_IMAGE_WRITER_H
#define RV_IMAGE_WRITER_H

#include "drivers/image_layout.h"
#include "drivers/image_pixels.h"
#include "rv_drivers.h"

#include <memory>
#include <string>

namespace rv {

struct ImageDescription {
    const char* library_format; // name of the format in the image library
    std::string path;
    RtWindow display_window;
    RtWindow data_window; // of the file
    const ImageLayout* layout;
    ChannelFormat format;
    int tile_width, tile_height; // 0 for files made of rows
    const char* compression;     // null for formats that leave no choice
    int quality;                 // in percent; 0 for formats that leave no choice
    bool straight_alpha;         // the file stores colours unmultiplied
    bool any_tile_order;         // tiles are stored as they come
};

struct ImageWriter;

// Removes a file that was not finished.
struct ImageWriterDeleter {
    void operator()(ImageWriter* writer) const;
};
using ImageWriterPtr = std::unique_ptr<ImageWriter, ImageWriterDeleter>;

// Null when the file cannot be created; `error` then holds what the library says, and is empty when
// it was not the library that refused.
ImageWriterPtr createImage(const ImageDescription& description, std::string* error);

// Pixels of a part of the image, row by row without gaps: one tile of a tiled file, cut at the
// edges of the image, or else whole rows, which come from top to bottom. False after an error.
bool writePart(ImageWriter* writer, const RtWindow& part, const void* pixels);

// Completes the file and gives it its name. False after an error; then it must be removed.
bool finishImage(ImageWriter* writer);

// What the last call that failed ran into.
std::string imageError(const ImageWriter* writer);

} // namespace rv

#endif
