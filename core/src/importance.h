// Importance tables: a square of cells whose cumulative distributions make bright places of a light
// come up more often than dark ones.
//
// The unit square is the parameterisation of the light's surface; densities here are by area of the
// square, so a light divides them by the measure (area or steradians) that goes with it there.
#ifndef RV_IMPORTANCE_H
#define RV_IMPORTANCE_H

#include "joint_work.h"
#include "rv_math.h"

#include <stddef.h>

struct RtImportanceTable {
    int n;        // cells along a side, 0 when empty
    float inv_n;  // 1 / n
    float* cells; // n * n, along u within rows of equal v: the cumulative distribution of each row
    float* rows;  // n: the cumulative distribution of the rows
    float average_energy; // 0 when there is nothing to sample
    float variance;       // of the cells, relative to their mean
};

namespace rv {

// Writes what the cells of a row weigh, each importanceOf its colour. False to give the table up.
using FillRow = FunctionRef<bool(int thread, int row, float* cells)>;

// What a cell of that colour weighs when it has that measure; never negative, and finite.
float importanceOf(const RtRGB& color, float measure);

// The middle of a row or column of cells.
inline float cellCenter(const RtImportanceTable& table, int i)
{
    return (float(i) + 0.5f) * table.inv_n;
}

// Makes a table of n * n cells out of an empty one, on the calling thread and on those that join
// the work; the result is the same for any number of them. `measure` is that of the whole square.
// False, leaving it empty, after a reported failure, or when it was given up.
bool RvImportance2DInit(RtImportanceTable* table, int n, float measure, JointWork* work, int thread,
                        const FillRow& fill);
// Makes it empty.
void releaseImportance(RtImportanceTable* table);

size_t importanceBytes(int n);

struct ImportanceSample {
    float u, v;
    float density; // by area of the unit square
};

// For u1 and u2 in [0, 1). The table has energy.
ImportanceSample sampleImportance(const RtImportanceTable& table, float u1, float u2);

// The density with which that place of the unit square is sampled.
float importanceDensity(const RtImportanceTable& table, float u, float v);

} // namespace rv

#endif
