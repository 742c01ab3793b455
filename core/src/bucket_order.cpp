// bucket_order: the nine orders of buckets.
//
// Six orders are formulas of the sequence number. "spiral" and "hilbert" walk over more cells than
// the grid has, far more when it is long and narrow, so they jump over what is outside.
#include "bucket_order.h"

#include "array.h"
#include "sampling.h"
#include "system/memory.h"

#include <algorithm>
#include <climits>
#include <math.h>

static const char* const module_path = "core\\src\\buckets";
static const char* const location = "RvBucketSchedulerInit";

namespace rv {

// Required: in single precision, so that of a very long region the last pixels may get no bucket.
int gridCount(int region, int bucket_size)
{
    const float q = static_cast<float>(region) / static_cast<float>(bucket_size);
    const int n = q < 0x1p31f ? static_cast<int>(q) : INT_MAX;
    return q > 0 && q != static_cast<float>(n) ? n + 1 : n;
}

// ---- Orders by formula ----

// Row by row from the first, alternating, the first row leftwards.
static Cell topCell(int64_t k, int64_t nx, int64_t)
{
    const int64_t row = k / nx, m = k % nx;
    return { row % 2 ? m : nx - 1 - m, row };
}

// Row by row from the last one up, alternating.
static Cell bottomCell(int64_t k, int64_t nx, int64_t ny)
{
    const int64_t m = k % nx, t = ny - k / nx;
    return { t % 2 ? m : nx - 1 - m, t - 1 };
}

// Column by column from the first, alternating, the first column downwards.
static Cell leftCell(int64_t k, int64_t, int64_t ny)
{
    const int64_t column = k / ny, m = k % ny;
    return { column, column % 2 ? ny - 1 - m : m };
}

// Column by column from the last, alternating.
static Cell rightCell(int64_t k, int64_t nx, int64_t ny)
{
    const int64_t column = nx - 1 - k / ny, m = ny - 1 - k % ny;
    return { column, column % 2 ? ny - 1 - m : m };
}

// From the middle outwards, by turns on both sides of it.
static int64_t fromMiddle(int64_t i, int64_t n)
{
    return i % 2 ? n / 2 - i / 2 - 1 : n / 2 + i / 2;
}

static Cell wovenCell(int64_t k, int64_t nx, int64_t ny)
{
    return { fromMiddle(k % nx, nx), fromMiddle(k / nx, ny) };
}

// ---- Walks ----

static const Cell steps[4] = { { 1, 0 }, { 0, 1 }, { -1, 0 }, { 0, -1 } };

static Cell moved(const Cell& cell, int direction, int64_t distance)
{
    const Cell& step = steps[direction & 3];
    return { cell.column + step.column * distance, cell.row + step.row * distance };
}

SpiralWalk::SpiralWalk(int nx, int ny)
    : columns(nx), rows(ny), start{ std::max(nx / 2 - 1, 0), std::max(ny / 2 - 1, 0) }
{
}

// The steps of a straight run that are within [0, size), where it begins `at` some place.
static void clipRun(int64_t at, int64_t sign, int64_t size, int64_t* first, int64_t* last)
{
    *first = std::max<int64_t>(*first, sign > 0 ? -at : at - (size - 1));
    *last = std::min(*last, sign > 0 ? size - 1 - at : at);
}

void SpiralWalk::enterSegment()
{
    start = moved(start, direction, length);
    direction = (direction + 1) & 3;
    ++number;
    length = number / 2 + 1;
    step = 0;
    first_inside = 1;
    last_inside = length;
    const Cell& way = steps[direction];
    if (way.column)
        clipRun(start.column, way.column, columns, &first_inside, &last_inside);
    else
        clipRun(start.row, way.row, rows, &first_inside, &last_inside);
    const bool misses = way.column ? start.row < 0 || start.row >= rows
                                   : start.column < 0 || start.column >= columns;
    if (misses)
        last_inside = 0;
}

Cell SpiralWalk::next()
{
    while (step >= last_inside)
        enterSegment();
    step = std::max(step + 1, first_inside);
    return moved(start, direction, step);
}

HilbertWalk::HilbertWalk(int nx, int ny) : columns(nx), rows(ny)
{
    if (columns < 1 || rows < 1)
        return;
    // Required: rounding may add a level, which turns the curve.
    const int order = int(ceil(log(double(std::max(columns, rows))) * 1.4426950408889634));
    stack[size++] = { { 0, 0 }, 0, 1, order > 0 ? order + 1 : 0 };
}

bool HilbertWalk::meetsGrid(const Square& square) const
{
    const int64_t reach = (int64_t{ 1 } << square.level) - 1;
    const Cell& a = square.entry;
    const Cell b = moved(moved(a, square.direction, reach), square.direction + square.turn, reach);
    return std::max(a.column, b.column) >= 0 && std::min(a.column, b.column) < columns &&
           std::max(a.row, b.row) >= 0 && std::min(a.row, b.row) < rows;
}

// The curve goes sideways, on, and back again; its first and last quarter are mirrored.
void HilbertWalk::pushQuarters(const Square& square)
{
    const auto [entry, along, turn, level] = square;
    const int sideways = along + turn;
    const int64_t half = int64_t{ 1 } << (level - 1);
    const Cell second = moved(entry, sideways, half);
    const Cell third = moved(second, along, half);
    const Cell fourth = moved(moved(entry, along, 2 * half - 1), sideways, half - 1);
    stack[size++] = { fourth, along - turn, -turn, level - 1 };
    stack[size++] = { third, along, turn, level - 1 };
    stack[size++] = { second, along, turn, level - 1 };
    stack[size++] = { entry, sideways, -turn, level - 1 };
}

bool HilbertWalk::next(Cell* cell)
{
    while (size > 0) {
        const Square square = stack[--size];
        if (!meetsGrid(square))
            continue;
        if (square.level == 0) {
            *cell = square.entry;
            return true;
        }
        pushQuarters(square);
    }
    return false;
}

// ---- The order of a render ----

BucketOrder::BucketOrder(int option, const BucketGrid& cells, const RtArray* list)
    : scanning(option), grid(cells), count(cells.count()), spiral(cells.columns, cells.rows),
      hilbert(cells.columns, cells.rows)
{
    if (scanning == scan_list)
        readList(list);
    else if (scanning == scan_random && count > INT_MAX)
        reportAllocationFailure(size_t(count) * sizeof(int), module_path, __LINE__, location);
    else if (scanning == scan_random)
        permutation = RvRandomPermutation(0, int(count), nullptr);
}

BucketOrder::~BucketOrder()
{
    RvFree_func(permutation);
    RvFree_func(corners);
}

static int64_t truncated(float x)
{
    return x >= -0x1p31f && x < 0x1p31f ? int64_t(x) : x < 0 ? INT_MIN : INT_MAX;
}

// Required: the remainder has the sign of the distance, so that points left of the region or above
// it snap towards its first pixel.
static int64_t snapped(float x, int64_t min, int64_t bucket_size)
{
    const int64_t pixel = truncated(x);
    return pixel - (pixel - min) % bucket_size;
}

// Elements of another type are reported and read as points all the same.
void BucketOrder::readList(const RtArray* list)
{
    count = 0;
    if (!list || !list->nelements)
        return;
    const size_t n = list->nelements;
    corners = static_cast<Cell*>(allocate(n * sizeof(Cell), module_path, __LINE__, location));
    if (!corners)
        return;
    count = int64_t(n);
    for (unsigned i = 0; i < n; ++i) {
        const RtPoint2 point = RvArrayGetPnt2(list, i);
        corners[i] = { snapped(point.x, grid.min_x, grid.bucket_size),
                       snapped(point.y, grid.min_y, grid.bucket_size) };
    }
}

Cell BucketOrder::cellAt(int64_t k)
{
    const int64_t nx = grid.columns, ny = grid.rows;
    Cell cell = {};
    switch (scanning) {
    case scan_bottom: return bottomCell(k, nx, ny);
    case scan_left: return leftCell(k, nx, ny);
    case scan_right: return rightCell(k, nx, ny);
    case scan_random: return { k % nx, k / nx };
    case scan_woven: return wovenCell(k, nx, ny);
    case scan_spiral: return spiral.next();
    case scan_hilbert: hilbert.next(&cell); return cell;
    default: return topCell(k, nx, ny);
    }
}

static int saturated(int64_t x) { return int(std::clamp<int64_t>(x, INT_MIN, INT_MAX)); }

bool BucketOrder::next(RtBucket* bucket)
{
    if (next_number >= count)
        return false;
    const int64_t number = next_number++;
    const int64_t index = permutation ? permutation[number] : number;
    Cell corner;
    if (scanning == scan_list) {
        corner = corners[index];
    } else {
        const Cell cell = cellAt(index);
        corner = { grid.min_x + cell.column * grid.bucket_size,
                   grid.min_y + cell.row * grid.bucket_size };
    }
    bucket->index = saturated(index);
    bucket->x = saturated(corner.column);
    bucket->y = saturated(corner.row);
    bucket->width = bucket->height = grid.bucket_size;
    return true;
}

} // namespace rv
