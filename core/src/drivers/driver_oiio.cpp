// driver_oiio: opens, fills and closes the image files of all file drivers.
//
// A file covers the rendered region, or the whole image with black around the region when it is
// padded. EXR and TIFF files know the place of a region in the image; PNG files keep its offset; a
// JPEG file is as big as the region and knows no more.
#include "drivers/driver_oiio.h"

#include "counters.h"
#include "drivers/image_blocks.h"
#include "drivers/image_layout.h"
#include "drivers/image_writer.h"
#include "maths.h"
#include "msg.h"
#include "nodes.h"
#include "options.h"

#include <algorithm>
#include <exception>
#include <limits.h>
#include <new>

namespace rv {

static const char* const module_path = "core\\src\\drivers\\driver_oiio";

// Rows that a file without tiles gets at a time.
static constexpr int band_height = 64;

// Value "list" of the option "bucket_scanning".
static constexpr int list_scanning = 8;

void integerFileParameters(RtList* params, int offset)
{
    RvNodeParamBOOL(params, offset + RV_FIELD(IntegerFileParams, output_padded), false);
    RvNodeParamFLT(params, offset + RV_FIELD(IntegerFileParams, gamma), 1);
    RvNodeParamFLT(params, offset + RV_FIELD(IntegerFileParams, dither_amplitude), 1);
}

// An open file, from DriverOpen to DriverClose; user data of its driver.
struct ImageFile {
    std::string name;
    PixelRules rules = {};
    ImageLayout layout;
    ImageWriterPtr writer; // null once something failed
    ImageBlocks blocks = {};
    int next_band = 0; // of a file without tiles: the topmost that is not written
    bool tiled = false;
    bool has_pixels = false;

    ~ImageFile() { destroyBlocks(&blocks); }
};

static ImageFile* openFile(const RtNode* node)
{
    return static_cast<ImageFile*>(RvDriverGetLocalData(node));
}

static void dropFile(RtNode* node)
{
    ImageFile* const file = openFile(node);
    if (!file)
        return;
    file->~ImageFile();
    RvFree_func(file);
    driverData(node)->user_data = nullptr;
}

// Removes what was written so far; the buckets to come are ignored.
static void giveUp(ImageFile* file) { file->writer.reset(); }

static void reportError(const RtNode* node, const ImageFile& file)
{
    RvMsgError("[%s] %s: %s", RvNodeGetName(node), file.name.c_str(),
               imageError(file.writer.get()).c_str());
}

// Runs a step on the file of a node. What the libraries throw ends as a report, and ends the file.
template <class Step> static void guarded(RtNode* node, Step step)
{
    try {
        step();
    } catch (const std::exception& e) {
        ImageFile* const file = openFile(node);
        RvMsgError("[%s] %s: %s", RvNodeGetName(node), file ? file->name.c_str() : "", e.what());
        if (file)
            giveUp(file);
    }
}

// ---- Opening ----

static void addOutputs(const ImageFileType& type, const RtNode* node, ImageFile* file,
                       RtOutputIterator* outputs, bool layer_names)
{
    const char* name = nullptr;
    int pixels = RV_TYPE_NONE;
    RvOutputIteratorReset(outputs);
    while (RvOutputIteratorGetNext(outputs, &name, &pixels, nullptr)) {
        const char* const aov = name ? name : "";
        const bool has_room = type.multiple_outputs || file->layout.names.empty();
        bool held = false;
        if (has_room && acceptsPixels(type, pixels))
            held = addLayer(&file->layout, aov, pixels, layer_names);
        else
            skipLayer(&file->layout, pixels);
        if (!held)
            RvMsgWarning("[%s] `%s' -- cannot write %s to output `%s'", RvNodeGetName(node),
                         file->name.c_str(), RvParamGetTypeName(pixels), aov);
    }
}

static ImageFileSettings settingsOf(const ImageFileType& type, const RtNode* node)
{
    ImageFileSettings settings = type.settings(node);
    if (!settings.filename)
        settings.filename = "";
    return settings;
}

// What the parameters ask for, less what the format of the file does not allow.
static ImageFileSettings allowedSettings(const ImageFileType& type, const RtNode* node,
                                         bool is_cropped)
{
    ImageFileSettings settings = settingsOf(type, node);
    const char* const node_name = RvNodeGetName(node);
    const char* const type_name = node->entry->name;
    if (settings.rules.gamma != 1 && settings.rules.format != ChannelFormat::uint8) {
        RvMsgWarning("[%s] `%s': ignoring gamma on file \"%s\" (color-depth greater than 8-bit)",
                     node_name, type_name, settings.filename);
        settings.rules.gamma = 1;
    }
    if (settings.tiled && settings.output_padded && is_cropped) {
        RvMsgWarning("[%s] `%s': cannot write padded cropped-image in tiled-format -- disabling "
                     "tiling on \"%s\"",
                     node_name, type_name, settings.filename);
        settings.tiled = false;
    }
    return settings;
}

// Side of a tile: that of a bucket, as far as the image and the format of the file allow.
static int tileSide(int64_t image_side, int bucket_size, int multiple)
{
    const int64_t side = std::min<int64_t>(image_side, bucket_size);
    return static_cast<int>((side + multiple - 1) / multiple * multiple);
}

// Far from where sizes overflow.
static constexpr int max_window_side = INT_MAX / 2;

static bool fits(const RtWindow& window, int max_side)
{
    return !isEmpty(window) && windowWidth(window) <= max_side && windowHeight(window) <= max_side;
}

static void reportNoFile(const RtNode* node, const ImageFile& file)
{
    RvMsgError("[%s] %s: can't create file \"%s\"", RvNodeGetName(node), node->entry->name,
               file.name.c_str());
}

static bool createFile(const RtNode* node, ImageFile* file, const ImageDescription& image)
{
    std::string error;
    file->writer = createImage(image, &error);
    if (!file->writer && error.empty())
        reportNoFile(node, *file);
    else if (!file->writer)
        RvMsgError("[%s] %s: %s", RvNodeGetName(node), file->name.c_str(), error.c_str());
    return file->writer != nullptr;
}

static bool prepareBlocks(ImageFile* file, const ImageDescription& image, const RtWindow& region,
                          int bucket_size)
{
    const RtWindow& window = image.data_window;
    ImageBlocks& b = file->blocks;
    b.blocks = file->tiled
                   ? PixelGrid{ window, image.tile_width, image.tile_height }
                   : PixelGrid{ window, static_cast<int>(windowWidth(window)), band_height };
    b.buckets = { region, bucket_size, bucket_size };
    b.pixel_bytes = file->layout.names.size() * channelBytes(file->rules.format);
    return createBlocks(&b);
}

// Fills in an empty record; false when there is nothing to draw on.
static bool prepareFile(const ImageFileType& type, RtNode* node, ImageFile* file,
                        RtOutputIterator* outputs, const RtWindow& display, const RtWindow& region,
                        int bucket_size)
{
    const ImageFileSettings settings = allowedSettings(type, node, !isEqual(display, region));
    file->name = settings.filename;
    file->rules = settings.rules;
    file->tiled = settings.tiled;
    addOutputs(type, node, file, outputs, settings.layer_names);
    if (file->layout.names.empty())
        return false; // said for each of the outputs
    const RtWindow window = settings.output_padded ? hull(display, region) : region;
    if (isEmpty(region) || !fits(display, max_window_side) ||
        !fits(window, std::min(type.max_side, max_window_side))) {
        reportNoFile(node, *file);
        return false;
    }
    const int multiple = type.tile_multiple;
    const ImageDescription image = {
        .library_format = type.library_format,
        .path = file->name,
        .display_window = display,
        .data_window = window,
        .layout = &file->layout,
        .format = file->rules.format,
        .tile_width = file->tiled ? tileSide(windowWidth(window), bucket_size, multiple) : 0,
        .tile_height = file->tiled ? tileSide(windowHeight(window), bucket_size, multiple) : 0,
        .compression = settings.compression,
        .quality = settings.quality,
        .straight_alpha = type.stores_straight_alpha || file->rules.unpremult_alpha,
        .any_tile_order = file->tiled && type.any_tile_order,
    };
    return prepareBlocks(file, image, region, bucket_size) && createFile(node, file, image);
}

void openImageFile(const ImageFileType& type, RtNode* node, RtOutputIterator* outputs,
                   const RtWindow& display, const RtWindow& region, int bucket_size)
{
    RtDriverData* const data = driverData(node);
    if (!data)
        return;
    dropFile(node);
    void* const memory = RvMalloc_func(sizeof(ImageFile), module_path, __LINE__, "DriverOpen");
    if (!memory)
        return;
    ImageFile* const file = new (memory) ImageFile;
    data->user_data = file;
    guarded(node, [&] {
        if (!prepareFile(type, node, file, outputs, display, region, std::max(bucket_size, 1)))
            giveUp(file);
    });
    if (!file->writer)
        dropFile(node);
}

// ---- Buckets ----

// Gives a block to the file. False after an error.
static bool writeBlock(const RtNode* node, ImageFile* file, int column, int row)
{
    ImageBlocks& b = file->blocks;
    ImageBlock& block = b.at(column, row);
    const RtWindow window = b.blocks.cell(column, row);
    const unsigned char* const pixels = blockPixels(&b, &block, window);
    if (!pixels)
        return false;
    const bool written = writePart(file->writer.get(), window, pixels);
    block.done = true;
    releasePixels(&b, &block, window);
    if (!written && file->tiled)
        RvMsgError("[%s] `%s' had trouble writing tile %d,%d: %s", RvNodeGetName(node),
                   file->name.c_str(), window.min_x, window.min_y,
                   imageError(file->writer.get()).c_str());
    else if (!written)
        reportError(node, *file);
    return written;
}

// Puts the part of a bucket that lies in the region into its blocks, unless they are written
// already. False after an error.
static bool storeOutput(ImageFile* file, const ImageLayer& layer, const RtWindow& bucket,
                        const RtWindow& part, const char* from)
{
    ImageBlocks& b = file->blocks;
    const size_t from_pixel = typeSize(layer.type), to_pixel = b.pixel_bytes;
    const size_t first_byte = size_t(layer.first) * channelBytes(file->rules.format);
    return visitCells(b.blocks, part, [&](int column, int row) {
        ImageBlock& block = b.at(column, row);
        if (block.done)
            return true;
        const RtWindow window = b.blocks.cell(column, row), shared = intersection(part, window);
        unsigned char* const pixels = blockPixels(&b, &block, window);
        for (int y = shared.min_y; pixels && y <= shared.max_y; ++y)
            convertRow(file->rules,
                       { .x = shared.min_x,
                         .y = y,
                         .count = static_cast<int>(windowWidth(shared)),
                         .type = layer.type,
                         .from = from + pixelIndex(bucket, shared.min_x, y) * from_pixel,
                         .to = pixels + pixelIndex(window, shared.min_x, y) * to_pixel + first_byte,
                         .stride = to_pixel });
        return pixels != nullptr;
    });
}

static bool storeOutputs(ImageFile* file, RtOutputIterator* outputs, const RtWindow& bucket,
                         const RtWindow& part)
{
    const void* pixels = nullptr;
    int type = RV_TYPE_NONE;
    RvOutputIteratorReset(outputs);
    for (const ImageLayer& layer : file->layout.layers) {
        if (!RvOutputIteratorGetNext(outputs, nullptr, &type, &pixels))
            break;
        if (layer.count && type == layer.type && pixels &&
            !storeOutput(file, layer, bucket, part, static_cast<const char*>(pixels)))
            return false;
    }
    return true;
}

static bool writeFullTiles(const RtNode* node, ImageFile* file, const RtWindow& part)
{
    return visitCells(file->blocks.blocks, part, [&](int column, int row) {
        const ImageBlock& block = file->blocks.at(column, row);
        return block.done || block.awaited || writeBlock(node, file, column, row);
    });
}

static bool writeFullBands(const RtNode* node, ImageFile* file)
{
    const int count = file->blocks.blocks.rows();
    for (int& band = file->next_band; band < count && !file->blocks.at(0, band).awaited; ++band)
        if (!writeBlock(node, file, 0, band))
            return false;
    return true;
}

void writeImageBucket(RtNode* node, RtOutputIterator* outputs, RtAOVSampleIterator*, int x, int y,
                      int width, int height)
{
    ImageFile* const file = openFile(node);
    if (!file || !file->writer || width < 1 || height < 1)
        return;
    const RtWindow bucket = { x, y, windowEnd(x, width), windowEnd(y, height) };
    const RtWindow part = intersection(bucket, file->blocks.buckets.window);
    if (isEmpty(part))
        return;
    guarded(node, [&] {
        file->has_pixels = true;
        bool written = storeOutputs(file, outputs, bucket, part);
        noteBucket(&file->blocks, part);
        if (written)
            written = file->tiled ? writeFullTiles(node, file, part) : writeFullBands(node, file);
        if (!written)
            giveUp(file);
    });
}

// ---- Closing ----

// What is missing stays black, except in renders that were told to leave no torn pictures behind:
// a list of buckets apart, buckets are missing only where a render was stopped.
static bool isWorthKeeping(const ImageFile& file)
{
    if (!file.has_pixels)
        return false;
    return isComplete(file.blocks) || !render_options || render_options->flush_buckets_on_halt ||
           render_options->bucket_scanning == list_scanning;
}

static bool writeRemainingBlocks(const RtNode* node, ImageFile* file)
{
    const PixelGrid& grid = file->blocks.blocks;
    return visitCells(grid, grid.window, [&](int column, int row) {
        return file->blocks.at(column, row).done || writeBlock(node, file, column, row);
    });
}

static void completeFile(const RtNode* node, ImageFile* file)
{
    RvMsgInfo("[%s] writing file `%s'", RvNodeGetName(node), file->name.c_str());
    if (writeRemainingBlocks(node, file) && !finishImage(file->writer.get()))
        reportError(node, *file);
}

void closeImageFile(RtNode* node, RtOutputIterator*)
{
    ImageFile* const file = openFile(node);
    if (!file)
        return;
    if (file->writer && isWorthKeeping(*file))
        guarded(node, [&] { completeFile(node, file); });
    threadStats()->output_bytes += file->blocks.peak_bytes;
    dropFile(node);
}

void finishImageDriver(RtNode* node)
{
    dropFile(node);
    RvDriverDestroy(node);
}

} // namespace rv
