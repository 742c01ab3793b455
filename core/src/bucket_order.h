// The grid of buckets over the region of an image, and the orders in which they are rendered.
#ifndef RV_BUCKET_ORDER_H
#define RV_BUCKET_ORDER_H

#include "rv_base.h"

#include <stddef.h>
#include <stdint.h>

// A bucket in the hands of a worker.
struct RtBucket {
    int thread; // slot of the worker
    int index;  // place in the order; in the grid, row by row, when the order is random
    int x, y;   // first pixel
    int width, height;
};

namespace rv {

// Values of the option "bucket_scanning".
enum BucketScanning {
    scan_top,
    scan_bottom,
    scan_left,
    scan_right,
    scan_random,
    scan_woven,
    scan_spiral,
    scan_hilbert,
    scan_list
};

struct Cell {
    int64_t column, row;
};

// Buckets along an axis of a region of that many pixels.
int gridCount(int region, int bucket_size);

struct BucketGrid {
    int min_x, min_y; // first pixel of the first cell
    int bucket_size;  // above 0
    int columns, rows;

    int64_t count() const { return columns > 0 && rows > 0 ? int64_t{ columns } * rows : 0; }
};

// The squares of a Hilbert curve that are still to be walked over, nearest first. A curve over a
// square is one over each of its quarters; it begins in one corner and ends in the next.
class HilbertWalk {
public:
    HilbertWalk(int nx, int ny);
    // The next cell within the grid; false when there is none left.
    bool next(Cell* cell);

private:
    struct Square {
        Cell entry;    // corner in which the curve begins
        int direction; // from there to the corner in which it ends
        int turn;      // 1 or -1: the rest of the square is in direction + turn
        int level;     // its side is 2 to the power of that
    };
    bool meetsGrid(const Square& square) const;
    void pushQuarters(const Square& square);

    static constexpr int max_level = 34;
    int columns, rows;
    int size = 0; // squares on the stack
    Square stack[3 * max_level + 1];
};

// A square spiral from the centre of the grid outwards. Straight runs beyond the grid take one
// step.
class SpiralWalk {
public:
    SpiralWalk(int nx, int ny);
    // The next cell within the grid. To be called as often as there are cells.
    Cell next();

private:
    void enterSegment();

    // The first segment has no length and the first cell as its only place.
    int columns, rows;
    Cell start;                                // of the segment
    int direction = 3;                         // of the segment
    int64_t number = -1;                       // of the segment
    int64_t length = 0;                        // of the segment
    int64_t step = -1;                         // of the latest cell
    int64_t first_inside = 0, last_inside = 0; // steps within the grid
};

// Hands out the buckets of a render one after the other. Not safe for several threads at once.
class BucketOrder {
public:
    // `list` holds the points of scan_list. Without memory for a random order, buckets come row by
    // row; without memory for a list there are none.
    BucketOrder(int option, const BucketGrid& cells, const RtArray* list);
    ~BucketOrder();
    BucketOrder(const BucketOrder&) = delete;
    BucketOrder& operator=(const BucketOrder&) = delete;

    // Fills index, place and size of the next bucket, which may reach or lie outside of the region;
    // false when there is none left.
    bool next(RtBucket* bucket);

private:
    void readList(const RtArray* list);
    Cell cellAt(int64_t k);

    const int scanning;
    const BucketGrid grid;
    int64_t count;
    int64_t next_number = 0;
    int* permutation = nullptr; // of scan_random
    Cell* corners = nullptr;    // of scan_list, in pixels
    SpiralWalk spiral;
    HilbertWalk hilbert;
};

} // namespace rv

#endif
