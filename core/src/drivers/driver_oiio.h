// What the drivers that write image files share: all of opening, writing and closing. A type adds
// a row that says what its files can hold, and a function that reads its parameters.
#ifndef RV_DRIVER_OIIO_H
#define RV_DRIVER_OIIO_H

#include "drivers/drivers.h"
#include "drivers/image_pixels.h"
#include "nodes.h"

namespace rv {

// The parameters of the drivers whose files hold integers.
struct IntegerFileParams {
    bool output_padded; // a cropped image is padded with black to its whole size
    float gamma;
    float dither_amplitude; // steps of the file's depth
};

// Declares them, with offsets into IntegerFileParams added to `offset`.
void integerFileParameters(RtList* params, int offset);

// What the parameters of a node ask for.
struct ImageFileSettings {
    const char* filename;
    PixelRules rules;
    bool output_padded = false;
    bool tiled = false;
    bool layer_names = false;
    const char* compression = nullptr; // null for formats that leave no choice
    int quality = 0;                   // in percent; 0 for formats that leave no choice
};

inline ImageFileSettings integerFileSettings(const char* filename, const IntegerFileParams& params,
                                             ChannelFormat format)
{
    return { .filename = filename,
             .rules = { format, params.gamma, params.dither_amplitude, false },
             .output_padded = params.output_padded };
}

struct ImageFileType {
    const char* extension;
    const char* library_format; // name of the format in the image library
    unsigned pixel_types;       // bits 1 << RV_TYPE_*
    bool multiple_outputs;
    bool stores_straight_alpha; // the format says that colours are unmultiplied, so the library
                                // must be kept from dividing them
    bool any_tile_order;        // the file may list its tiles as they come
    int tile_multiple;          // sides of tiles are multiples of it
    int max_side;               // pixels; beyond it the library may end the process
    ImageFileSettings (*settings)(const RtNode* node);
};

template <class... Types> constexpr unsigned pixelTypes(Types... types)
{
    return (... | (1u << types));
}

inline bool acceptsPixels(const ImageFileType& type, int pixels)
{
    return pixels >= 0 && pixels < 32 && (type.pixel_types >> pixels & 1) != 0;
}

void openImageFile(const ImageFileType& type, RtNode* node, RtOutputIterator* outputs,
                   const RtWindow& display_window, const RtWindow& data_window, int bucket_size);
void writeImageBucket(RtNode* node, RtOutputIterator* outputs, RtAOVSampleIterator*, int x, int y,
                      int width, int height);
void closeImageFile(RtNode* node, RtOutputIterator*);
// Removes a file that is still open, and frees the driver data.
void finishImageDriver(RtNode* node);

template <const ImageFileType& type, void (*declare)(RtList*, RtMetaDataStore*)>
const RtCommonMethods image_file_common = {
    .Parameters = declare,
    .Initialize = [](RtNode* node,
                     void*) { RvDriverInitialize(node, type.multiple_outputs, nullptr); },
    .Update = do_nothing,
    .Finish = finishImageDriver,
};

template <const ImageFileType& type>
const RtDriverMethods image_file_driver = {
    .DriverSupportsPixelType = [](RtNode*, int pixels) { return acceptsPixels(type, pixels); },
    .DriverExtension =
        [] {
            static const char* extensions[] = { type.extension, nullptr };
            return extensions;
        },
    .DriverOpen = [](RtNode* node, RtOutputIterator* outputs, RtWindow display, RtWindow data,
                     int size) { openImageFile(type, node, outputs, display, data, size); },
    .DriverPrepareBucket = do_nothing,
    .DriverWriteBucket = writeImageBucket,
    .DriverClose = closeImageFile,
};

} // namespace rv

#endif
