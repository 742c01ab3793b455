// The deterministic hash behind every random decision, sampling patterns, permutations and
// shuffles, and the positions, times and lens points of camera samples.
//
// An image depends on the scene and the option "AA_seed" alone, so nothing here keeps a generator
// state. Patterns are made by one thread before the workers start; what is per pixel belongs to
// one render thread.
#ifndef RV_SAMPLING_H
#define RV_SAMPLING_H

#include "frame.h"
#include "rv_math.h"

#include <bit>
#include <stdint.h>

struct RtMemPool;

// Codes of the options "AA_pattern", "AA_motionblur_pattern" and "GI_hemi_pattern".
enum RtSamplingPattern {
    RV_PATTERN_REGULAR,
    RV_PATTERN_RANDOM,
    RV_PATTERN_JITTERED,
    RV_PATTERN_MULTI_JITTERED,
    RV_PATTERN_POISSON_BC,
    RV_PATTERN_DITHERED,
    RV_PATTERN_NROOKS,
    RV_PATTERN_SCHLICK,
    RV_PATTERN_SPACE_TIME = 12 // of camera sample times; no enumeration name leads to it
};

// Points in [0, 1) squared; null and 0 when empty.
struct RtSampleTable {
    RtPoint2* points;
    int count;
};

// The tables of one render, read-only while workers run. With X the square root of the samples of
// a loop and A that of the camera samples of a pixel, a table of a loop holds A * A blocks of
// X * X points, one block for each camera sample.
struct RtSampleTables {
    RtSampleTable subpixel;   // A * A offsets within the pixel
    RtSampleTable spare;      // Required: as big as the others and never read
    RtSampleTable lens;       // A * A points
    RtSampleTable diffuse;    // loop over the diffuse hemisphere
    RtSampleTable sss;        // the same in the sub-surface pass: one block for all camera samples
    RtSampleTable glossy;     // loop over a glossy lobe
    RtSampleTable refraction; // loop over a refracted lobe

    // With "packet_tracing" only, in place of the four loops: copy k of point j, each copy in its
    // own order, at j * packet_copies + k.
    RtSampleTable packet_subpixel;
    RtSampleTable packet_lens;
    static constexpr int packet_copies = 1024;
};

// The sampling state of the pixel that a render thread works on. Owned by that thread.
struct alignas(64) RtPixelSampling {
    double extra_rotation;
    double rotation_u, rotation_v; // of lens points and of sampler loops at the first hit
    const int* time_permutation;   // of the pixel's camera samples, each null without memory
    const int* lens_permutation;
    const int* third_permutation; // for other decorrelation of the samples of a pixel
    int sample_count;             // length of each permutation
    RtMemPool* pool;              // holds the permutations; made at the thread's first pixel
};

// A new table of n * n points (n below 1 counts as 1) for RvFree_func, or null after an error. A
// pattern that cannot be made reports an error and gives a table of zeros.
RtPoint2* RvSamplingPattern(int seed, int n, int pattern);

// The same with `count` points, for the patterns random, poisson_bc, nrooks and schlick. seed2
// takes the place of "AA_seed" in schlick. Null for a count below 1.
RtPoint2* RvSamplingPatternNonSquared(int seed, int seed2, int count, int pattern);

// A new table of `strata` blocks of `samples` points. Each block is stratified in both axes and
// in random order, and so is the union of all blocks, `strata` times as finely. Null for counts
// below 1.
RtPoint2* RvHierarchicalSamplingPattern(int seed, int samples, int strata);

// A permutation of 0 to n - 1 in the pool, or on the heap (for RvFree_func) without one. Null for
// an n below 1 and without memory.
int* RvRandomPermutation(int seed, int n, RtMemPool* pool);

// Reorders points so that every run of four neighbours visits the four quarters of the square, and
// of their quarters in turn. Without memory the order stays.
void RvSpatialInterlaceShufflePoints(int seed, int n, RtPoint2* points);

// Reorders the first a * b points in the way that suits the pattern they come from.
void RvShufflePoints(int seed, int a, int b, int pattern, RtPoint2* points);

// Starts pixel (x, y) with N camera samples on a render thread.
void RvSamplingBeginPixel(int thread, int x, int y, int N);

// Offset within the pixel and time, both in [0, 1), of camera sample i of N.
void RvPixelSampleOffset(int x, int y, int i, int thread, int N, RtPoint2* offset, float* time);

// Lens point in [0, 1) squared of camera sample i of N.
RtPoint2 RvPixelLensSample(int x, int y, int i, int thread, int N);

namespace rv {

// ---- Hash ----

struct HashWords {
    uint32_t a, b, c;
};

// One round of the lookup3 mix (Bob Jenkins, 2006).
constexpr HashWords mix(HashWords w)
{
    w.a -= w.c, w.a ^= std::rotl(w.c, 4), w.c += w.b;
    w.b -= w.a, w.b ^= std::rotl(w.a, 6), w.a += w.c;
    w.c -= w.b, w.c ^= std::rotl(w.b, 8), w.b += w.a;
    w.a -= w.c, w.a ^= std::rotl(w.c, 16), w.c += w.b;
    w.b -= w.a, w.b ^= std::rotl(w.a, 19), w.a += w.c;
    w.c -= w.b, w.c ^= std::rotl(w.b, 4), w.b += w.a;
    return w;
}

inline constexpr uint32_t point_hash_key = 0xDEADBF08;
inline constexpr uint32_t pixel_hash_key = 0xDEADBF14;

// The option "AA_seed".
uint32_t samplingSeed();

// The random words of a pattern, by index.
struct PointHash {
    uint32_t aa_seed, seed;
    constexpr uint32_t operator()(uint32_t index) const
    {
        return mix({ aa_seed + point_hash_key, index + point_hash_key, seed + point_hash_key }).c;
    }
};

// The random words of a pixel.
struct PixelHash {
    HashWords words;
    constexpr PixelHash(uint32_t aa_seed, int x, int y)
        : words(mix({ aa_seed + pixel_hash_key, uint32_t(x) + pixel_hash_key,
                      uint32_t(y) + pixel_hash_key }))
    {
    }
    constexpr uint32_t operator()(uint32_t da, uint32_t db, uint32_t dc) const
    {
        return mix({ words.a + da, words.b + db, words.c + dc }).c;
    }
    constexpr uint32_t operator()(uint32_t da, uint32_t dc) const { return (*this)(da, 0, dc); }
};

// A number in [0, 1).
constexpr double hashToUnit(uint32_t hash) { return hash * 0x1p-32; }

// A number of [0, 1) in single precision, where rounding must not reach 1.
constexpr float toUnitFloat(double x)
{
    constexpr float below_one = 0x1.fffffep-1f;
    const float rounded = static_cast<float>(x);
    return rounded < 1 ? rounded : below_one;
}

// ---- Camera samples ----

// Camera samples of a pixel per axis. Negative values of the option mean one sample for a block
// of pixels.
constexpr int pixelSampleSide(int AA_samples) { return AA_samples < 1 ? 1 : AA_samples; }

// Threshold in [0, 1) of ordered dithering, by the option "AA_sampling_dither".
double ditherValue(int dither, int x, int y);

// One point of a well-spread arrangement of n * n points in space and time, in units of 1 / (n *
// n).
struct SpaceTimePoint {
    uint16_t x, y, time;
};

inline constexpr int min_space_time_side = 2, max_space_time_side = 17;

// The n * n points for a side within the limits.
const SpaceTimePoint* spaceTimePoints(int n);

// ---- What a render owns ----

// Tables with more points are refused like an exhausted heap. A camera sample's index has 16
// bits, so that even 256 * 256 camera samples may each have a block of 1024 points.
inline constexpr unsigned max_table_points = 1u << 26;

// The table that RvSamplingPattern would return, charged to another function in the report of a
// failure. Empty after an error.
RtSampleTable makePattern(int seed, int n, int pattern, const char* file, int line,
                          const char* function);

// `count` uninitialised points for RvFree_func, or null after a report in the name of the place.
RtPoint2* allocatePoints(size_t count, const char* file, int line, const char* function);

// The tables of the running render; null outside of one. Set before the workers start.
inline const RtSampleTables* sample_tables = nullptr;

inline constexpr unsigned pixel_pool_block = 0x1000;

inline RtPixelSampling pixel_sampling[worker_slot_count];

// The record of a render thread, or null when there is no such thread.
inline RtPixelSampling* pixelSampling(int thread)
{
    return unsigned(thread) < unsigned(worker_slot_count) ? &pixel_sampling[thread] : nullptr;
}

// Frees what the threads keep from pixel to pixel.
void releasePixelSampling();

// The block of `count` points that belongs to a camera sample, or null for an empty table.
// Samples beyond the last block start over, so that a block never leaves its table.
inline const RtPoint2* sampleBlock(const RtSampleTable& table, int sample_index, int count)
{
    if (count < 1 || count > table.count)
        return nullptr;
    const size_t start = size_t(unsigned(sample_index)) * size_t(count);
    if (start + size_t(count) <= size_t(table.count))
        return table.points + start;
    return table.points + start % size_t(table.count / count * count);
}

// Calls swap(j, t) for the exchanges of a Fisher-Yates shuffle of n elements.
template <class Swap> void shuffle(const PointHash& hash, int n, Swap swap)
{
    for (int j = n - 1; j >= 1; --j)
        swap(j, static_cast<int>(hashToUnit(hash(uint32_t(j))) * (j + 1.0)));
}

} // namespace rv

#endif
