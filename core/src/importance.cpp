// importance: importance tables of lights. Declared by importance.h.
//
// Cells are worked out by any number of threads, each row by one of them; everything that adds them
// up runs on one thread in a fixed order, in double precision.
#include "importance.h"

#include "system/memory.h"

#include <algorithm>
#include <math.h>

static const char* const module_path = "core\\src\\importance";

namespace rv {

// ---- Building ----

float importanceOf(const RtRGB& color, float measure)
{
    // Shaders may return anything. What is neither positive nor finite has no chance.
    constexpr float most = 1e30f;
    const float mean = (color.r + color.g + color.b) * 0.33333334f;
    const float weight = mean * measure;
    return mean > 0 && measure > 0 && weight < HUGE_VALF ? std::min(weight, most) : 0;
}

size_t importanceBytes(int n) { return size_t(n) * 4 * (size_t(n) + 1); }

static double sumOf(const float* cells, int n)
{
    double sum = 0;
    for (int i = 0; i < n; ++i)
        sum += double(cells[i]);
    return sum;
}

static double totalOf(const RtImportanceTable& table)
{
    double total = 0;
    for (int j = 0; j < table.n; ++j)
        total += sumOf(table.cells + size_t(j) * size_t(table.n), table.n);
    return total;
}

// Of the shares of the total that the cells of a row have: the sum of squares of their relative
// distances from the mean share.
static double deviation(const float* cells, int n, double total)
{
    const double in_means = double(n) * n / total;
    double sum = 0;
    for (int i = 0; i < n; ++i) {
        const double off = double(cells[i]) * in_means - 1;
        sum += off * off;
    }
    return sum;
}

// In place; the last value becomes exactly 1. A row of zeros stays one. Returns the row's total.
static double cumulate(float* cells, int n)
{
    const double total = sumOf(cells, n);
    double sum = 0;
    for (int i = 0; total > 0 && i < n; ++i) {
        sum += double(cells[i]);
        cells[i] = float(sum / total);
    }
    return total;
}

static void normalise(RtImportanceTable* table, double total)
{
    const int n = table->n;
    double variance = 0, sum = 0;
    for (int j = 0; j < n; ++j) {
        float* const row = table->cells + size_t(j) * size_t(n);
        variance += deviation(row, n, total);
        sum += cumulate(row, n);
        table->rows[j] = float(sum / total);
    }
    table->variance = float(variance / (double(n) * n));
}

bool RvImportance2DInit(RtImportanceTable* table, int n, float measure, JointWork* work, int thread,
                        const FillRow& fill)
{
    auto* const memory = static_cast<float*>(
        allocateTable(importanceBytes(n), module_path, __LINE__, "RvImportance2DInit"));
    if (!memory)
        return false;
    *table = { n, 1.0f / float(n), memory, memory + size_t(n) * size_t(n), 0, 0 };
    const auto fillCells = [&](int t, int row) {
        return fill(t, row, memory + size_t(row) * size_t(n));
    };
    if (!work->lead(thread, n, fillCells)) {
        releaseImportance(table);
        return false;
    }
    const double total = totalOf(*table);
    if (!(total > 0))
        return true;
    table->average_energy = float(total / (double(n) * n * double(measure)));
    normalise(table, total);
    return true;
}

void releaseImportance(RtImportanceTable* table)
{
    RvFree_func(table->cells);
    *table = {};
}

// ---- Sampling ----

// A step of a cumulative distribution.
struct Step {
    int index;
    float share;    // its probability
    float fraction; // of the way through it
};

static float floorOf(const float* distribution, int i) { return i > 0 ? distribution[i - 1] : 0; }

// The first step beyond x, for a distribution that ends with 1.
static Step stepAt(const float* distribution, int n, float x)
{
    constexpr float below_one = 0x1.fffffep-1f;
    x = x >= 0 ? std::min(x, below_one) : 0; // not so for NaN either
    const int i = int(std::upper_bound(distribution, distribution + n, x) - distribution);
    const float from = floorOf(distribution, i), share = distribution[i] - from;
    const float way = (x - from) / share;
    return { i, share, way - floorf(way) };
}

static const float* rowOf(const RtImportanceTable& table, int row)
{
    return table.cells + size_t(row) * size_t(table.n);
}

static float densityOf(const RtImportanceTable& table, float row_share, float cell_share)
{
    return row_share * cell_share * (float(table.n) * float(table.n));
}

ImportanceSample sampleImportance(const RtImportanceTable& table, float u1, float u2)
{
    const Step row = stepAt(table.rows, table.n, u2);
    const Step cell = stepAt(rowOf(table, row.index), table.n, u1);
    return { (float(cell.index) + cell.fraction) * table.inv_n,
             (float(row.index) + row.fraction) * table.inv_n,
             densityOf(table, row.share, cell.share) };
}

static float shareOf(const float* distribution, int i)
{
    return distribution[i] - floorOf(distribution, i);
}

static int cellAt(float x, int n)
{
    return x > 0 ? int(std::min(x * float(n), float(n - 1))) : 0; // 0 for NaN, too
}

float importanceDensity(const RtImportanceTable& table, float u, float v)
{
    const int row = cellAt(v, table.n), cell = cellAt(u, table.n);
    return densityOf(table, shareOf(table.rows, row), shareOf(rowOf(table, row), cell));
}

} // namespace rv
