// The parts in which an image file is written, and what is known of them so far.
//
// A file consists of blocks: its tiles, or else bands of whole rows. Buckets come in any order and
// may reach across several blocks. A block is kept in memory from its first pixel until all buckets
// that reach into it have come; blocks of tiles then leave at once, bands wait for those above.
#ifndef RV_IMAGE_BLOCKS_H
#define RV_IMAGE_BLOCKS_H

#include "rv_drivers.h"

#include <algorithm>
#include <limits.h>
#include <stddef.h>
#include <stdint.h>

namespace rv {

// Rectangles of equal size that cover a window from its upper left corner on. Those at the right
// and lower edges are cut.
struct PixelGrid {
    RtWindow window;
    int cell_width, cell_height;

    int columns() const;
    int rows() const;
    size_t count() const { return size_t(columns()) * size_t(rows()); }
    size_t index(int column, int row) const
    {
        return size_t(row) * size_t(columns()) + size_t(column);
    }
    RtWindow cell(int column, int row) const;
    // Columns and rows of the cells that reach into a part of the window.
    RtWindow cellsWithin(const RtWindow& part) const;
};

inline int64_t windowWidth(const RtWindow& w) { return int64_t(w.max_x) - w.min_x + 1; }
inline int64_t windowHeight(const RtWindow& w) { return int64_t(w.max_y) - w.min_y + 1; }
inline bool isEmpty(const RtWindow& w) { return w.max_x < w.min_x || w.max_y < w.min_y; }
RtWindow intersection(const RtWindow& a, const RtWindow& b);
// The least window around both.
RtWindow hull(const RtWindow& a, const RtWindow& b);
inline bool isEqual(const RtWindow& a, const RtWindow& b)
{
    return a.min_x == b.min_x && a.min_y == b.min_y && a.max_x == b.max_x && a.max_y == b.max_y;
}
// Last of `count` pixels from `start` on.
inline int windowEnd(int start, int count)
{
    return static_cast<int>(std::min<int64_t>(int64_t(start) + count - 1, INT_MAX));
}
// Place of a pixel among those of a window, row by row.
inline size_t pixelIndex(const RtWindow& w, int x, int y)
{
    return size_t((int64_t(y) - w.min_y) * windowWidth(w) + (int64_t(x) - w.min_x));
}

// Calls visit(column, row) for the cells that reach into a part of the window, row by row, until
// one returns false, and returns what the last one did.
template <class Visit> bool visitCells(const PixelGrid& grid, const RtWindow& part, Visit visit)
{
    const RtWindow cells = grid.cellsWithin(part);
    for (int row = cells.min_y; row <= cells.max_y; ++row)
        for (int column = cells.min_x; column <= cells.max_x; ++column)
            if (!visit(column, row))
                return false;
    return true;
}

struct ImageBlock {
    unsigned char* pixels; // null before the first pixel and after the last one
    uint32_t awaited;      // buckets that reach into the block and did not come yet
    bool done;             // left for the file
};

struct ImageBlocks {
    PixelGrid blocks;   // of the file
    PixelGrid buckets;  // of the render; its window lies within that of the blocks
    size_t pixel_bytes; // of the file
    ImageBlock* block;
    uint8_t* bucket_came; // flag of each bucket
    size_t came_count;
    int64_t bytes, peak_bytes; // in blocks

    ImageBlock& at(int column, int row) { return block[blocks.index(column, row)]; }
};

// Whether all buckets of the region came.
inline bool isComplete(const ImageBlocks& blocks)
{
    return blocks.came_count == blocks.buckets.count();
}

// Fills in all but the grids and the size of a pixel. False after an allocation error.
bool createBlocks(ImageBlocks* blocks);
void destroyBlocks(ImageBlocks* blocks);

// Notes that a bucket of the region came, and takes it off the counts of its blocks. Only the first
// coming of a whole bucket of the grid counts.
void noteBucket(ImageBlocks* blocks, const RtWindow& bucket);

// The pixels of a block, black at first. Null after an allocation error.
unsigned char* blockPixels(ImageBlocks* blocks, ImageBlock* block, const RtWindow& window);
void releasePixels(ImageBlocks* blocks, ImageBlock* block, const RtWindow& window);

} // namespace rv

#endif
