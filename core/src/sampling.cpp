// sampling: point patterns in the unit square, permutations and shuffles, and where the camera
// samples of a pixel lie in space, time and lens. Declared by sampling.h.
//
// Numbers are formed in double precision from 32-bit hashes and stored in single precision.
#include "sampling.h"

#include "options.h"
#include "rv_msg.h"
#include "system/memory.h"

#include <algorithm>
#include <array>
#include <math.h>
#include <numeric>

using rv::hashToUnit;
using rv::HashWords;
using rv::PixelHash;
using rv::PointHash;
using rv::SpaceTimePoint;
using rv::toUnitFloat;

static const char* const module_path = "core\\src\\sampling";

uint32_t rv::samplingSeed() { return render_options ? uint32_t(render_options->AA_seed) : 1; }

static PointHash pointHash(int seed) { return { rv::samplingSeed(), uint32_t(seed) }; }

static PixelHash pixelHash(int x, int y) { return { rv::samplingSeed(), x, y }; }

// ---- Memory ----

// Scratch and tables grow with the number of points and share its limit.
static void* allocateElements(size_t count, size_t size, const char* file, int line,
                              const char* function)
{
    const size_t bytes = count > SIZE_MAX / size ? SIZE_MAX : count * size;
    if (count <= rv::max_table_points)
        return rv::allocate(bytes, file, line, function);
    rv::reportAllocationFailure(bytes, file, line, function);
    return nullptr;
}

RtPoint2* rv::allocatePoints(size_t count, const char* file, int line, const char* function)
{
    return static_cast<RtPoint2*>(allocateElements(count, sizeof(RtPoint2), file, line, function));
}

static int* allocateInts(size_t count, int line, const char* function)
{
    return static_cast<int*>(allocateElements(count, sizeof(int), module_path, line, function));
}

// ---- Patterns ----

// A point at (x, y) in units of 1 / nx and 1 / ny.
static RtPoint2 pointIn(double x, double nx, double y, double ny)
{
    return { toUnitFloat(x / nx), toUnitFloat(y / ny) };
}

// Words 2k and 2k + 1 of the hash.
static RtPoint2 randomPoint(const PointHash& hash, uint32_t k)
{
    return { toUnitFloat(hashToUnit(hash(2 * k))), toUnitFloat(hashToUnit(hash(2 * k + 1))) };
}

static void fillRegular(int n, RtPoint2* points)
{
    for (int r = 0; r < n; ++r)
        for (int q = 0; q < n; ++q)
            *points++ = pointIn(q + 0.5, n, r + 0.5, n);
}

static void fillRandom(const PointHash& hash, int count, RtPoint2* points)
{
    for (int k = 0; k < count; ++k)
        points[k] = randomPoint(hash, uint32_t(k));
}

static void fillJittered(const PointHash& hash, int n, RtPoint2* points)
{
    // Required: the arithmetic of this pattern is in single precision.
    const float side = float(n), cell = 1 / side;
    const auto at = [&](uint32_t h, int index) {
        return toUnitFloat(float(hashToUnit(h)) * cell + float(index) / side);
    };
    uint32_t j = 0;
    for (int r = 0; r < n; ++r)
        for (int q = 0; q < n; ++q, j += 2)
            *points++ = { at(hash(j), q), at(hash(j + 1), r) };
}

// Chiu, Shirley, Wang: "Multi-jittered sampling", Graphics Gems IV.
static void fillMultiJittered(const PointHash& hash, int n, RtPoint2* points)
{
    const double count = double(n) * n;
    uint32_t j = 0;
    for (int r = 0; r < n; ++r)
        for (int q = 0; q < n; ++q, j += 2)
            points[r * n + q] = pointIn(q + double(r) * n + hashToUnit(hash(j)), count,
                                        r + double(q) * n + hashToUnit(hash(j + 1)), count);
    const auto pick = [&](int first) {
        return first + static_cast<int>(hashToUnit(hash(j++)) * (n - first));
    };
    for (int r = 0; r < n; ++r)
        for (int q = 0; q < n; ++q)
            std::swap(points[r * n + q].x, points[r * n + pick(q)].x);
    for (int q = 0; q < n; ++q)
        for (int r = 0; r < n; ++r)
            std::swap(points[r * n + q].y, points[pick(r) * n + q].y);
}

// Squared distance of two coordinates on a circle of length 1.
static float circularSquare(float a, float b)
{
    const float d = a - b, below = d - 1, above = d + 1;
    return std::min({ d * d, below * below, above * above });
}

// The points of a pattern in the making, sorted into cells of the unit torus, so that neighbours
// are found without looking at all points.
class PointGrid {
public:
    // Links that a grid for so many points needs: one for each cell and one for each point.
    static size_t linkCount(int count) { return 2 * size_t(count); }

    PointGrid(const RtPoint2* all, int count, int* links)
        : points(all), side(static_cast<int>(sqrt(double(count)))), first(links),
          next(links + side * side)
    {
        std::fill_n(first, side * side, -1);
    }

    void add(int k)
    {
        int& head = first[cellOf(points[k].y) * side + cellOf(points[k].x)];
        next[k] = head;
        head = k;
    }

    // Squared distance to the nearest point, no more than 2. Any result up to `enough` may stand
    // for a smaller one.
    float nearestSquare(const RtPoint2& p, float enough) const
    {
        float nearest = 2;
        for (int ring = 0; ring <= side / 2 && nearest > enough; ++ring) {
            const float gap = float(ring - 1) / float(side); // to every cell of the ring
            if (ring > 1 && nearest < gap * gap * 0.99f)     // leaves room for rounding
                break;
            searchRing(p, ring, &nearest);
        }
        return nearest;
    }

private:
    int cellOf(float x) const { return std::min(int(x * float(side)), side - 1); }
    int wrap(int cell) const { return cell < 0 ? cell + side : cell >= side ? cell - side : cell; }

    void searchCell(const RtPoint2& p, int row, int column, float* nearest) const
    {
        for (int k = first[wrap(row) * side + wrap(column)]; k >= 0; k = next[k])
            *nearest = std::min(*nearest, circularSquare(p.x, points[k].x) +
                                              circularSquare(p.y, points[k].y));
    }

    // The border of a square of cells around the point.
    void searchRing(const RtPoint2& p, int ring, float* nearest) const
    {
        const int row = cellOf(p.y), column = cellOf(p.x);
        for (int d = -ring; d <= ring; ++d) {
            searchCell(p, row - ring, column + d, nearest);
            if (ring > 0)
                searchCell(p, row + ring, column + d, nearest);
        }
        for (int d = 1 - ring; d < ring; ++d) {
            searchCell(p, row + d, column - ring, nearest);
            searchCell(p, row + d, column + ring, nearest);
        }
    }

    const RtPoint2* points;
    int side;
    int* first; // point of each cell, or -1
    int* next;  // point of the same cell after each point, or -1
};

// Best candidate (Mitchell: "Spectrally optimal sampling for distribution ray tracing", 1991).
// False without memory.
static bool fillPoisson(const PointHash& hash, int count, RtPoint2* points)
{
    constexpr int candidate_count = 10;
    int* const links = allocateInts(PointGrid::linkCount(count), __LINE__, "RvSamplingPattern");
    if (!links)
        return false;
    PointGrid grid(points, count, links);
    uint32_t candidate = 0;
    points[0] = randomPoint(hash, candidate++);
    for (int m = 1; m < count; ++m) {
        grid.add(m - 1);
        float best = 0;
        points[m] = points[0]; // unless some candidate keeps a distance
        for (int i = 0; i < candidate_count; ++i) {
            const RtPoint2 p = randomPoint(hash, candidate++);
            const float distance = grid.nearestSquare(p, best);
            if (distance > best) {
                best = distance;
                points[m] = p;
            }
        }
    }
    RvFree_func(links);
    return true;
}

static void fillNRooks(const PointHash& hash, int count, RtPoint2* points)
{
    for (int k = 0; k < count; ++k)
        points[k] = pointIn(k + hashToUnit(hash(2 * uint32_t(k))), count,
                            k + hashToUnit(hash(2 * uint32_t(k) + 1)), count);
    // Required: every caller's seed gives the same exchanges, each with any of the points.
    const PointHash exchange{ hash.aa_seed, 2 };
    for (int k = 0; k < count; ++k)
        std::swap(points[k].x,
                  points[static_cast<int>(hashToUnit(exchange(uint32_t(k))) * count)].x);
}

// A van der Corput sequence whose bits are scrambled (Schlick: "An adaptive sampling technique for
// multidimensional integration by ray-tracing", 1991). False without memory.
static bool RvSchlickSamples(const PointHash& hash, uint32_t count, RtPoint2* points)
{
    const uint32_t period = std::bit_ceil(count);
    int* const sequence = allocateInts(count, __LINE__, "RvSchlickSamples");
    if (!sequence)
        return false;
    sequence[0] = 0;
    for (uint32_t length = 1; length < period; length *= 2)
        for (uint32_t k = 0; k < length; ++k) {
            const int bit = hash(length * period + k) & 1;
            const int doubled = 2 * sequence[k];
            if (length + k < count) // what lies beyond is never read
                sequence[length + k] = doubled + 1 - bit;
            sequence[k] = doubled + bit;
        }
    for (uint32_t k = 0; k < count; ++k)
        points[k] = pointIn(sequence[k] + 0.5, period, k + 0.5, count);
    RvFree_func(sequence);
    return true;
}

static void fillUnsupported(int pattern, int count, RtPoint2* points)
{
    const char* const name = RvEnumGetString(rv::sampling_pattern_names, pattern);
    RvMsgError("unsupported sample pattern: %s (%d)", name ? name : "unknown", pattern);
    std::fill_n(points, count, RtPoint2{ 0, 0 });
}

// The patterns of any number of points. schlick_seed takes the place of "AA_seed" in schlick.
static bool fillAnyCount(const PointHash& hash, uint32_t schlick_seed, int count, int pattern,
                         RtPoint2* points)
{
    switch (pattern) {
    case RV_PATTERN_RANDOM: fillRandom(hash, count, points); break;
    case RV_PATTERN_POISSON_BC: return fillPoisson(hash, count, points);
    case RV_PATTERN_NROOKS: fillNRooks(hash, count, points); break;
    case RV_PATTERN_SCHLICK:
        return RvSchlickSamples({ schlick_seed, hash.seed }, uint32_t(count), points);
    default: fillUnsupported(pattern, count, points); break;
    }
    return true;
}

// The patterns of n * n points. False without memory.
static bool fillSquare(int seed, int n, int pattern, RtPoint2* points)
{
    const PointHash hash = pointHash(seed);
    switch (pattern) {
    case RV_PATTERN_REGULAR: fillRegular(n, points); return true;
    case RV_PATTERN_JITTERED: fillJittered(hash, n, points); return true;
    case RV_PATTERN_MULTI_JITTERED: fillMultiJittered(hash, n, points); return true;
    default: return fillAnyCount(hash, hash.aa_seed, n * n, pattern, points);
    }
}

RtSampleTable rv::makePattern(int seed, int n, int pattern, const char* file, int line,
                              const char* function)
{
    const size_t side = size_t(std::max(n, 1));
    RtPoint2* const points = allocatePoints(side * side, file, line, function);
    if (!points)
        return {};
    if (fillSquare(seed, int(side), pattern, points))
        return { points, int(side * side) };
    RvFree_func(points);
    return {};
}

RtPoint2* RvSamplingPattern(int seed, int n, int pattern)
{
    return rv::makePattern(seed, n, pattern, module_path, __LINE__, "RvSamplingPattern").points;
}

RtPoint2* RvSamplingPatternNonSquared(int seed, int seed2, int count, int pattern)
{
    if (count < 1)
        return nullptr;
    RtPoint2* const points =
        rv::allocatePoints(size_t(count), module_path, __LINE__, "RvSamplingPatternNonSquared");
    if (!points)
        return nullptr;
    if (fillAnyCount(pointHash(seed), uint32_t(seed2), count, pattern, points))
        return points;
    RvFree_func(points);
    return nullptr;
}

// Stratifies one coordinate of all blocks: stratum k of a block holds one point, and the blocks'
// points in stratum k share it evenly. The order within each block is random. Words of the hash
// are taken from j on.
static void fillHierarchicalAxis(const PointHash& hash, uint32_t* j, int samples, int strata,
                                 float RtPoint2::*axis, RtPoint2* points)
{
    const auto pick = [&](int last) {
        return static_cast<int>(hashToUnit(hash((*j)++)) * (last + 1.0));
    };
    const auto at = [&](int block, int k) -> float& {
        return points[size_t(block) * size_t(samples) + size_t(k)].*axis;
    };
    const double cells = double(samples) * strata;
    for (int k = 0; k < samples; ++k) {
        for (int block = 0; block < strata; ++block)
            at(block, k) =
                toUnitFloat((double(k) * strata + block + hashToUnit(hash((*j)++))) / cells);
        for (int block = strata - 1; block >= 1; --block)
            std::swap(at(block, k), at(pick(block), k));
    }
    for (int block = 0; block < strata; ++block)
        for (int k = samples - 1; k >= 1; --k)
            std::swap(at(block, k), at(block, pick(k)));
}

RtPoint2* RvHierarchicalSamplingPattern(int seed, int samples, int strata)
{
    if (samples < 1 || strata < 1)
        return nullptr;
    RtPoint2* const points = rv::allocatePoints(size_t(samples) * size_t(strata), module_path,
                                                __LINE__, "RvHierarchicalSamplingPattern");
    if (!points)
        return nullptr;
    const PointHash hash = pointHash(seed);
    uint32_t j = 0;
    fillHierarchicalAxis(hash, &j, samples, strata, &RtPoint2::x, points);
    fillHierarchicalAxis(hash, &j, samples, strata, &RtPoint2::y, points);
    return points;
}

// ---- Permutations and shuffles ----

int* RvRandomPermutation(int seed, int n, RtMemPool* pool)
{
    if (n < 1)
        return nullptr;
    int* values;
    if (pool && unsigned(n) <= rv::max_table_points)
        values = static_cast<int*>(RvMemPoolAlloc(unsigned(n) * unsigned(sizeof(int)), pool));
    else
        values = allocateInts(size_t(n), __LINE__, "RvRandomPermutation");
    if (!values)
        return nullptr;
    for (int k = 0; k < n; ++k)
        values[k] = k;
    rv::shuffle(pointHash(seed), n, [&](int j, int t) { std::swap(values[j], values[t]); });
    return values;
}

// The orders of four quadrants, sorted.
static constexpr auto quadrant_orders = [] {
    std::array<std::array<uint8_t, 4>, 24> orders{};
    std::array<uint8_t, 4> order{ 0, 1, 2, 3 };
    for (auto& row : orders) {
        row = order;
        std::next_permutation(order.begin(), order.end());
    }
    return orders;
}();

// A box of the unit square that the spatial interlace divides.
struct InterlaceBox {
    double x0, x1, y0, y1;
};

struct Interlace {
    uint32_t aa_seed;
    int seed;
    RtPoint2* scratch; // as long as all points
};

static const std::array<uint8_t, 4>& quadrantOrder(const Interlace& job, const InterlaceBox& box,
                                                   uint32_t step)
{
    // Required: the factor of x0 is a tenth of the others.
    const auto micro = [](double x) { return uint32_t(x * 1e6); };
    const HashWords words = rv::mix({ job.aa_seed + rv::pixel_hash_key,
                                      step + rv::pixel_hash_key + 1000 * uint32_t(job.seed),
                                      uint32_t(box.x0 * 100000) + rv::pixel_hash_key });
    const HashWords more =
        rv::mix({ words.a + micro(box.x1), words.b + micro(box.y0), words.c + micro(box.y1) });
    return quadrant_orders[more.c % 24];
}

// Merges four runs of points, of which `bound` holds the ends, into rounds that take one of each.
static void interleave(const Interlace& job, const InterlaceBox& box, RtPoint2* points,
                       RtPoint2* const bound[5])
{
    const RtPoint2* next[4] = { bound[0], bound[1], bound[2], bound[3] };
    const auto count = bound[4] - points;
    RtPoint2* const end = job.scratch + count;
    uint32_t step = 0;
    for (RtPoint2* out = job.scratch; out < end; step += 4)
        for (int quadrant : quadrantOrder(job, box, step))
            if (next[quadrant] < bound[quadrant + 1])
                *out++ = *next[quadrant]++;
    std::copy(job.scratch, end, points);
}

// Equal points never part. Deeper than this no others are left in one box, except some that are
// closer to 0 than any pattern makes them.
static constexpr int max_interlace_depth = 50;

static void interlace(const Interlace& job, const InterlaceBox& box, RtPoint2* points, int n,
                      int depth)
{
    if (n < 2 || depth > max_interlace_depth)
        return;
    const double mx = (box.x0 + box.x1) / 2, my = (box.y0 + box.y1) / 2;
    const auto isLow = [my](const RtPoint2& p) { return p.y <= my; };
    const auto isLeft = [mx](const RtPoint2& p) { return p.x <= mx; };
    RtPoint2* const end = points + n;
    RtPoint2* const top = std::partition(points, end, isLow);
    RtPoint2* const bound[5] = { points, std::partition(points, top, isLeft), top,
                                 std::partition(top, end, isLeft), end };
    const InterlaceBox boxes[4] = { { box.x0, mx, box.y0, my },
                                    { mx, box.x1, box.y0, my },
                                    { box.x0, mx, my, box.y1 },
                                    { mx, box.x1, my, box.y1 } };
    for (int quadrant = 0; quadrant < 4; ++quadrant) {
        const int count = int(bound[quadrant + 1] - bound[quadrant]);
        interlace(job, boxes[quadrant], bound[quadrant], count, depth + 1);
        if (count == n)
            return; // a single run stays as it is
    }
    interleave(job, box, points, bound);
}

void RvSpatialInterlaceShufflePoints(int seed, int n, RtPoint2* points)
{
    if (n < 2)
        return;
    RtPoint2* const scratch =
        rv::allocatePoints(size_t(n), module_path, __LINE__, "RvSpatialInterlaceShufflePoints");
    if (!scratch)
        return;
    const Interlace job = { rv::samplingSeed(), seed, scratch };
    interlace(job, { 0, 1, 0, 1 }, points, n, 0);
    RvFree_func(scratch);
}

void RvShufflePoints(int seed, int a, int b, int pattern, RtPoint2* points)
{
    if (a < 1 || b < 1 || b > INT32_MAX / a)
        return;
    const int n = a * b;
    if (pattern == RV_PATTERN_SCHLICK)
        RvSpatialInterlaceShufflePoints(seed, n, points);
    else
        rv::shuffle(pointHash(seed), n, [&](int j, int t) { std::swap(points[j], points[t]); });
}

// ---- Space and time ----

// A step near the golden section of n, without a common divisor, that takes neighbouring rows far
// apart in time and still reaches every slice.
static constexpr int rowStep(int n)
{
    int step = std::max(1, n * 618 / 1000);
    while (std::gcd(step, n) != 1)
        ++step;
    return step;
}

// Points of the tables for smaller sides: 2 * 2 + 3 * 3 + ... + (n - 1) * (n - 1).
static constexpr int spaceTimeOffset(int n) { return (n - 1) * n * (2 * n - 1) / 6 - 1; }

// All tables, one behind the other.
struct SpaceTimeTables {
    SpaceTimePoint points[spaceTimeOffset(rv::max_space_time_side + 1)];

    SpaceTimeTables()
    {
        for (int n = rv::min_space_time_side; n <= rv::max_space_time_side; ++n)
            make(n, points + spaceTimeOffset(n));
    }

    // An orthogonal array: each n-th of space (in x, in y) meets each n-th of time once, and each
    // cell of the n * n grid holds one point; within these, every unit of x, y and time is taken
    // once, in an order that depends on nothing but n.
    static void make(int n, SpaceTimePoint* table)
    {
        int low[3][rv::max_space_time_side][rv::max_space_time_side];
        uint32_t row = 0;
        for (auto& orders : low)
            for (auto& order : orders) {
                for (int k = 0; k < n; ++k)
                    order[k] = k;
                rv::shuffle({ uint32_t(n), row++ }, n,
                            [&](int j, int t) { std::swap(order[j], order[t]); });
            }
        for (int r = 0; r < n; ++r)
            for (int q = 0; q < n; ++q) {
                const int slice = (q + r * rowStep(n)) % n;
                *table++ = { uint16_t(q * n + low[0][q][r]), uint16_t(r * n + low[1][r][q]),
                             uint16_t(slice * n + low[2][slice][r]) };
            }
    }
};

const SpaceTimePoint* rv::spaceTimePoints(int n)
{
    static const SpaceTimeTables tables; // made once, by the first thread that asks
    return tables.points + spaceTimeOffset(n);
}

// ---- Pixels ----

// The rotations and permutations come from independent streams of the pixel's hash.
void RvSamplingBeginPixel(int thread, int x, int y, int N)
{
    RtPixelSampling* const state = rv::pixelSampling(thread);
    if (!state)
        return;
    const PixelHash hash = pixelHash(x, y);
    state->extra_rotation = hashToUnit(hash(uint32_t(-1), 0));
    state->rotation_u = hashToUnit(hash(uint32_t(-1), 1));
    state->rotation_v = hashToUnit(hash(uint32_t(-1), 2));
    if (!state->pool)
        state->pool = RvMemPoolCreate(rv::pixel_pool_block);
    RvMemPoolReset(state->pool);
    const uint32_t time_seed =
        rv::mix({ rv::samplingSeed() + rv::point_hash_key, uint32_t(x) + rv::point_hash_key,
                  uint32_t(y) + rv::point_hash_key })
            .c;
    const auto permutation = [&](uint32_t seed) {
        return state->pool ? RvRandomPermutation(int(seed), N, state->pool) : nullptr;
    };
    state->sample_count = N;
    state->time_permutation = permutation(time_seed);
    state->lens_permutation = permutation(hash(19, 0));
    state->third_permutation = permutation(hash(31, 0));
}

void rv::releasePixelSampling()
{
    for (RtPixelSampling& state : pixel_sampling) {
        RvMemPoolDestroy(state.pool);
        state = {};
    }
}

// Place of sample i in a permutation of the thread; i itself when the thread has none for it.
static int permuted(int thread, const int* RtPixelSampling::*permutation, int i)
{
    const RtPixelSampling* const state = rv::pixelSampling(thread);
    const bool known = state && state->*permutation && unsigned(i) < unsigned(state->sample_count);
    return known ? (state->*permutation)[i] : i;
}

// Point of sample i in a table of the render; the centre when there is none.
static RtPoint2 tablePoint(RtSampleTable RtSampleTables::*table, int i)
{
    const RtPoint2* const point =
        rv::sample_tables ? rv::sampleBlock(rv::sample_tables->*table, i, 1) : nullptr;
    return point ? *point : RtPoint2{ 0.5f, 0.5f };
}

static float wrapped(double x) { return toUnitFloat(x >= 1 ? x - 1 : x); }

// Ordered dithering; entry (x & mask, y & mask) of a square of thresholds.
static double orderedDither(const uint8_t* thresholds, int side, int x, int y)
{
    const int mask = side - 1;
    return thresholds[(x & mask) * side + (y & mask)] / double(side * side);
}

double rv::ditherValue(int dither, int x, int y)
{
    static const uint8_t thresholds2[] = { 0, 2, 1, 3 };
    static const uint8_t thresholds4[] = { 0, 8, 2, 10, 12, 4, 14, 6, 3, 11, 1, 9, 15, 7, 13, 5 };
    static const uint8_t thresholds8[] = {
        0,  16, 4,  20, 1,  17, 5,  21, 32, 48, 36, 52, 33, 49, 37, 53, //
        8,  24, 12, 28, 9,  25, 13, 29, 40, 56, 44, 60, 41, 57, 45, 61, //
        2,  18, 6,  22, 3,  19, 7,  23, 34, 50, 38, 54, 35, 51, 39, 55, //
        10, 26, 14, 30, 11, 27, 15, 31, 42, 58, 46, 62, 43, 59, 47, 63,
    };
    switch (dither) {
    case 1: return ((x ^ y) & 1) ? 0.5 : 0;
    case 2: return orderedDither(thresholds2, 2, x, y);
    case 4: return orderedDither(thresholds4, 4, x, y);
    case 6: return orderedDither(thresholds8, 8, x, y);
    default: return 0.5;
    }
}

// Time of a sample at place m of N in the pixel's order of times.
static double sampleTime(int x, int y, int m, int N)
{
    const auto random = [&] { return hashToUnit(pixelHash(x, y)(uint32_t(m), 6)); };
    switch (rv::render_options->AA_motionblur_pattern) {
    case RV_PATTERN_REGULAR: return (m + 0.5) / N;
    case RV_PATTERN_RANDOM: return random();
    case RV_PATTERN_JITTERED: return (m + random()) / N;
    case RV_PATTERN_DITHERED:
        return (m + rv::ditherValue(rv::render_options->AA_sampling_dither, x, y)) / N;
    default: return 0; // Required: the other patterns do not spread times
    }
}

static void spaceTimeSample(int x, int y, int i, int N, RtPoint2* offset, float* time)
{
    const int n = std::max(static_cast<int>(sqrt(double(N))), rv::min_space_time_side);
    const double units = std::max(N, n * n);
    const SpaceTimePoint& point = rv::spaceTimePoints(n)[unsigned(i) % unsigned(n * n)];
    *offset = { toUnitFloat(point.x / units), toUnitFloat(point.y / units) };
    const uint32_t seed = rv::samplingSeed();
    const double rotation =
        hashToUnit(rv::mix({ uint32_t(x) + rv::point_hash_key, uint32_t(y) + rv::point_hash_key,
                             13 * seed + rv::point_hash_key })
                       .c);
    *time = wrapped(point.time / units + rotation);
}

void RvPixelSampleOffset(int x, int y, int i, int thread, int N, RtPoint2* offset, float* time)
{
    constexpr int space_time_limit = 290; // one more than the samples of the largest table
    const RtOptions& options = *rv::render_options;
    if (options.AA_motionblur_pattern == RV_PATTERN_SPACE_TIME && N > 1 && N < space_time_limit)
        return spaceTimeSample(x, y, i, N, offset, time);
    *offset = { 0.5f, 0.5f };
    if (N > 1) {
        *offset = tablePoint(&RtSampleTables::subpixel, i);
        // Required: moves every offset by half a pixel.
        if (options.sss_subpixel_cache)
            *offset = { wrapped(offset->x + 0.5), wrapped(offset->y + 0.5) };
    }
    *time = wrapped(sampleTime(x, y, permuted(thread, &RtPixelSampling::time_permutation, i), N));
}

RtPoint2 RvPixelLensSample(int x, int y, int i, int thread, int N)
{
    if (N <= 1) {
        const PixelHash hash = pixelHash(x, y);
        return { toUnitFloat(hashToUnit(hash(uint32_t(i), 1))),
                 toUnitFloat(hashToUnit(hash(uint32_t(i), 2))) };
    }
    const RtPoint2 point =
        tablePoint(&RtSampleTables::lens, permuted(thread, &RtPixelSampling::lens_permutation, i));
    const RtPixelSampling* const state = rv::pixelSampling(thread);
    return { wrapped(point.x + (state ? state->rotation_u : 0)),
             wrapped(point.y + (state ? state->rotation_v : 0)) };
}
