// image_blocks: the parts of an image file that wait for their buckets.
#include "drivers/image_blocks.h"

#include "system/memory.h"

#include <algorithm>

namespace rv {

static const char* const module_path = "core\\src\\drivers\\image_blocks";

static int cellCount(int64_t size, int cell) { return static_cast<int>((size + cell - 1) / cell); }

int PixelGrid::columns() const { return cellCount(windowWidth(window), cell_width); }
int PixelGrid::rows() const { return cellCount(windowHeight(window), cell_height); }

RtWindow intersection(const RtWindow& a, const RtWindow& b)
{
    return { std::max(a.min_x, b.min_x), std::max(a.min_y, b.min_y), std::min(a.max_x, b.max_x),
             std::min(a.max_y, b.max_y) };
}

RtWindow hull(const RtWindow& a, const RtWindow& b)
{
    return { std::min(a.min_x, b.min_x), std::min(a.min_y, b.min_y), std::max(a.max_x, b.max_x),
             std::max(a.max_y, b.max_y) };
}

RtWindow PixelGrid::cell(int column, int row) const
{
    const int64_t x = window.min_x + int64_t(column) * cell_width;
    const int64_t y = window.min_y + int64_t(row) * cell_height;
    return { static_cast<int>(x), static_cast<int>(y),
             static_cast<int>(std::min<int64_t>(x + cell_width - 1, window.max_x)),
             static_cast<int>(std::min<int64_t>(y + cell_height - 1, window.max_y)) };
}

RtWindow PixelGrid::cellsWithin(const RtWindow& part) const
{
    return { (part.min_x - window.min_x) / cell_width, (part.min_y - window.min_y) / cell_height,
             (part.max_x - window.min_x) / cell_width, (part.max_y - window.min_y) / cell_height };
}

// Blocks outside of the region await nothing.
static void countAwaited(ImageBlocks* b)
{
    visitCells(b->blocks, b->buckets.window, [b](int column, int row) {
        const RtWindow block = b->blocks.cell(column, row);
        const RtWindow cells = b->buckets.cellsWithin(intersection(block, b->buckets.window));
        b->at(column, row).awaited =
            static_cast<uint32_t>(windowWidth(cells) * windowHeight(cells));
        return true;
    });
}

bool createBlocks(ImageBlocks* b)
{
    b->block = static_cast<ImageBlock*>(
        allocateTable(b->blocks.count() * sizeof(ImageBlock), module_path, __LINE__, "DriverOpen"));
    if (!b->block)
        return false;
    b->bucket_came = static_cast<uint8_t*>(
        allocateTable(b->buckets.count(), module_path, __LINE__, "DriverOpen"));
    if (!b->bucket_came)
        return false;
    countAwaited(b);
    return true;
}

void destroyBlocks(ImageBlocks* b)
{
    if (b->block)
        for (size_t i = 0; i < b->blocks.count(); ++i)
            RvFree_func(b->block[i].pixels);
    RvFree_func(b->block);
    RvFree_func(b->bucket_came);
}

void noteBucket(ImageBlocks* b, const RtWindow& bucket)
{
    const RtWindow at = b->buckets.cellsWithin(bucket);
    uint8_t& came = b->bucket_came[b->buckets.index(at.min_x, at.min_y)];
    if (came || !isEqual(bucket, b->buckets.cell(at.min_x, at.min_y)))
        return;
    came = 1;
    ++b->came_count;
    visitCells(b->blocks, bucket, [b](int column, int row) {
        --b->at(column, row).awaited;
        return true;
    });
}

static int64_t blockBytes(const ImageBlocks* b, const RtWindow& window)
{
    return windowWidth(window) * windowHeight(window) * static_cast<int64_t>(b->pixel_bytes);
}

unsigned char* blockPixels(ImageBlocks* b, ImageBlock* block, const RtWindow& window)
{
    if (block->pixels)
        return block->pixels;
    const int64_t bytes = blockBytes(b, window);
    block->pixels = static_cast<unsigned char*>(
        allocateTable(static_cast<size_t>(bytes), module_path, __LINE__, "DriverWriteBucket"));
    if (block->pixels)
        b->peak_bytes = std::max(b->peak_bytes, b->bytes += bytes);
    return block->pixels;
}

void releasePixels(ImageBlocks* b, ImageBlock* block, const RtWindow& window)
{
    if (!block->pixels)
        return;
    b->bytes -= blockBytes(b, window);
    RvFree_func(block->pixels);
    block->pixels = nullptr;
}

} // namespace rv
