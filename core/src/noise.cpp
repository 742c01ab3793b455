// noise: gradient, fractal, cell and cellular noise (rv_noise.h).
//
// Everything is written once, for points of N coordinates. Nothing is allocated and nothing is
// kept, so all threads may call it at once.
#include "rv_noise.h"

#include "sampling.h"

#include <algorithm>
#include <array>
#include <math.h>

namespace rv {

template <int N> using Coordinates = std::array<float, N>;
template <int N> using Cell = std::array<int32_t, N>;

// A value for each corner of a cell; bit a of the index is set on the far side along axis a.
template <int N, class T> using Corners = std::array<T, 1 << N>;

// ---- The lattice ----

// The cell that holds a point, and the place of the point in it, 0 to 1 along each axis.
template <int N> struct Place {
    Cell<N> cell;
    Coordinates<N> offset;
};

template <int N> static Place<N> placeOf(const Coordinates<N>& p)
{
    Place<N> place;
    for (int axis = 0; axis < N; ++axis) {
        // Beyond, there are whole numbers only, infinities and what is no number.
        const float x = fabsf(p[axis]) < 0x1p31f ? p[axis] : 0;
        const int32_t whole = int32_t(x);
        // Required: a negative whole number belongs to the cell below it.
        const bool is_negative = x < 0;
        place.cell[axis] = whole - is_negative;
        place.offset[axis] = x - float(whole) + float(is_negative);
    }
    return place;
}

// ---- Gradient noise (Ken Perlin, "Improving Noise", 2002) ----

// Directions from the middle of a cube to its edges, or of a hypercube; two more than needed in
// three dimensions, where the count has to be a power of two.
template <int N> static constexpr int gradient_count = N == 4 ? 32 : 16;

using GradientTable = std::array<float[4], gradient_count<4>>;

// In two dimensions z is left out.
static constexpr GradientTable cubeGradients()
{
    GradientTable table = {};
    for (int h = 0; h < gradient_count<3>; ++h) {
        const int first = h < 8 ? 0 : 1, second = h < 4 ? 1 : h == 12 || h == 14 ? 0 : 2;
        table[size_t(h)][first] += h & 1 ? -1.0f : 1.0f;
        table[size_t(h)][second] += h & 2 ? -1.0f : 1.0f;
    }
    return table;
}

// As long as those of the cube, so that the contrast is about the same.
static constexpr GradientTable hypercubeGradients()
{
    constexpr float component = 0.816496581f; // sqrt(2/3)
    GradientTable table = {};
    for (int h = 0; h < gradient_count<4>; ++h)
        for (int axis = 0, bit = 1; axis < 4; ++axis)
            if (axis != h >> 3) {
                table[size_t(h)][axis] = h & bit ? -component : component;
                bit *= 2;
            }
    return table;
}

template <int N>
static constexpr GradientTable gradients = N == 4 ? hypercubeGradients() : cubeGradients();

static float fade(float t) { return t * t * t * (t * (t * 6 - 15) + 10); }

// The slope of a corner times the way from the corner to the point.
template <int N> static float slope(uint32_t hash, unsigned corner, const Coordinates<N>& offset)
{
    const float* const gradient = gradients<N>[hash % gradient_count<N>];
    float sum = 0;
    for (unsigned axis = 0; axis < N; ++axis)
        sum += gradient[axis] * (offset[axis] - float(corner >> axis & 1));
    return sum;
}

template <int N>
static float gradientNoise(const Corners<N, uint32_t>& hashes, const Coordinates<N>& offset)
{
    Corners<N, float> values;
    for (unsigned corner = 0; corner < values.size(); ++corner)
        values[corner] = slope<N>(hashes[corner], corner, offset);
    for (unsigned axis = 0, count = 1 << N; axis < N; ++axis) {
        count /= 2;
        const float weight = fade(offset[axis]);
        for (unsigned i = 0; i < count; ++i)
            values[i] = values[2 * i] + weight * (values[2 * i + 1] - values[2 * i]);
    }
    return values[0];
}

// The numbers 0 to 255 in the order of the published algorithm, twice in a row, so that a number
// plus a coordinate needs no wrapping.
static constexpr std::array<uint8_t, 512> permutation = [] {
    constexpr uint8_t order[256] = {
        151, 160, 137, 91,  90,  15,  131, 13,  201, 95,  96,  53,  194, 233, 7,   225, 140, 36,
        103, 30,  69,  142, 8,   99,  37,  240, 21,  10,  23,  190, 6,   148, 247, 120, 234, 75,
        0,   26,  197, 62,  94,  252, 219, 203, 117, 35,  11,  32,  57,  177, 33,  88,  237, 149,
        56,  87,  174, 20,  125, 136, 171, 168, 68,  175, 74,  165, 71,  134, 139, 48,  27,  166,
        77,  146, 158, 231, 83,  111, 229, 122, 60,  211, 133, 230, 220, 105, 92,  41,  55,  46,
        245, 40,  244, 102, 143, 54,  65,  25,  63,  161, 1,   216, 80,  73,  209, 76,  132, 187,
        208, 89,  18,  169, 200, 196, 135, 130, 116, 188, 159, 86,  164, 100, 109, 198, 173, 186,
        3,   64,  52,  217, 226, 250, 124, 123, 5,   202, 38,  147, 118, 126, 255, 82,  85,  212,
        207, 206, 59,  227, 47,  16,  58,  17,  182, 189, 28,  42,  223, 183, 170, 213, 119, 248,
        152, 2,   44,  154, 163, 70,  221, 153, 101, 155, 167, 43,  172, 9,   129, 22,  39,  253,
        19,  98,  108, 110, 79,  113, 224, 232, 178, 185, 112, 104, 218, 246, 97,  228, 251, 34,
        242, 193, 238, 210, 144, 12,  191, 179, 162, 241, 81,  51,  145, 235, 249, 14,  239, 107,
        49,  192, 214, 31,  181, 199, 106, 157, 184, 84,  204, 176, 115, 121, 50,  45,  127, 4,
        150, 254, 138, 236, 205, 93,  222, 114, 67,  29,  24,  72,  243, 141, 128, 195, 78,  66,
        215, 61,  156, 180,
    };
    std::array<uint8_t, 512> twice = {};
    for (size_t i = 0; i < twice.size(); ++i)
        twice[i] = order[i % 256];
    return twice;
}();

template <int N> static Corners<N, uint32_t> permutedHashes(const Cell<N>& cell)
{
    Corners<N, uint32_t> hashes = {}; // over the axes so far
    for (unsigned axis = 0; axis < N; ++axis) {
        const uint32_t at = uint32_t(cell[axis]) & 255;
        for (unsigned corner = 0; corner < 1u << axis; ++corner) {
            const uint32_t index = hashes[corner] + at;
            hashes[corner] = permutation[index];
            hashes[corner | 1u << axis] = permutation[index + 1];
        }
    }
    if (N == 2) // as in three dimensions at z = 0
        for (uint32_t& hash : hashes)
            hash = permutation[hash];
    return hashes;
}

template <int N> static float perlin(const Coordinates<N>& p)
{
    const Place<N> place = placeOf<N>(p);
    return gradientNoise<N>(permutedHashes<N>(place.cell), place.offset);
}

// ---- Cell hashes ----

// A missing third coordinate counts as 0; the fourth goes into another round.
template <int N> static HashWords cellWords(const Cell<N>& cell, uint32_t key)
{
    HashWords words = { uint32_t(cell[0]) + key, uint32_t(cell[1]) + key, key };
    if constexpr (N > 2)
        words.c += uint32_t(cell[2]);
    words = mix(words);
    if constexpr (N > 3) {
        words.a += uint32_t(cell[3]);
        words = mix(words);
    }
    return words;
}

static float unitFloat(uint32_t hash) { return float(hash >> 7 & 0x7FFFFF) * 0x1p-23f; }

template <int N> static float cellNoise(const Coordinates<N>& p, uint32_t key)
{
    return unitFloat(cellWords<N>(placeOf<N>(p).cell, key).c);
}

template <int N> static RtVector cellVector(const Cell<N>& cell)
{
    const HashWords words = cellWords<N>(cell, pixel_hash_key);
    const auto component = [&words](uint32_t i) {
        return unitFloat(mix({ words.a, words.b + i, words.c }).c);
    };
    return { component(1), component(2), component(3) };
}

template <int N> static RtVector vectorCellNoise(const Coordinates<N>& p)
{
    return cellVector<N>(placeOf<N>(p).cell);
}

// ---- Periodic gradient noise ----

template <int N>
static Corners<N, uint32_t> periodicHashes(const Cell<N>& cell, const std::array<int, N>& periods)
{
    Cell<N> sides[2]; // the coordinates of the near and of the far corners
    for (int axis = 0; axis < N; ++axis) {
        const int32_t period = std::max(periods[axis], 1);
        const int32_t rest = cell[axis] % period;
        const int32_t near = rest < 0 ? rest + period : rest;
        sides[0][axis] = near;
        sides[1][axis] = near == period - 1 ? 0 : near + 1;
    }
    Corners<N, uint32_t> hashes;
    for (unsigned corner = 0; corner < hashes.size(); ++corner) {
        Cell<N> at;
        for (unsigned axis = 0; axis < N; ++axis)
            at[axis] = sides[corner >> axis & 1][axis];
        hashes[corner] = cellWords<N>(at, point_hash_key).c;
    }
    return hashes;
}

template <int N>
static float periodicPerlin(const Coordinates<N>& p, const std::array<int, N>& periods)
{
    const Place<N> place = placeOf<N>(p);
    return gradientNoise<N>(periodicHashes<N>(place.cell, periods), place.offset);
}

// ---- Fractal sums ----

// Independent values of a noise function: each after the first moves the point along one more axis.
template <int Count, int N, class Function>
static std::array<float, Count> components(Coordinates<N> p, const Function& noise)
{
    static constexpr float shifts[] = { 0, 1234.123f, 9235.878f, 5671.517f };
    std::array<float, Count> values;
    for (int i = 0; i < Count; ++i) {
        p[i % N] += shifts[i];
        values[i] = noise(p);
    }
    return values;
}

template <int N> static Coordinates<N> distorted(Coordinates<N> p, float distortion)
{
    const Coordinates<N> way = components<N, N>(p, perlin<N>);
    for (int axis = 0; axis < N; ++axis)
        p[axis] += distortion * way[axis];
    return p;
}

// Far beyond what can be seen; it bounds the time of a call.
static constexpr int max_octaves = 256;

template <int N>
static float fractalNoise(Coordinates<N> p, int octaves, float distortion, float lacunarity)
{
    float sum = 0, divisor = 1;
    for (int i = 0; i < std::min(octaves, max_octaves); ++i) {
        const float value = perlin<N>(distortion > 0 ? distorted<N>(p, distortion) : p);
        // Required: octaves whose divisor is not positive count in full.
        sum += divisor > 0 ? value / divisor : value;
        for (float& x : p)
            x *= lacunarity;
        divisor *= lacunarity;
    }
    return sum;
}

template <int N>
static RtVector vectorNoise(const Coordinates<N>& p, int octaves, float distortion,
                            float lacunarity)
{
    const auto [x, y, z] = components<3, N>(p, [&](const Coordinates<N>& at) {
        return fractalNoise<N>(at, octaves, distortion, lacunarity);
    });
    return { x, y, z };
}

// ---- Cellular noise ----

// Distance along an axis from a place in a cell to the cell that many steps away.
static float gap(int steps, float offset)
{
    return steps < 0 ? offset - float(steps + 1) : steps > 0 ? float(steps) - offset : 0;
}

static float squaredDistanceToPoint(const Place<3>& from, const Cell<3>& steps)
{
    Cell<3> cell;
    for (int axis = 0; axis < 3; ++axis)
        cell[axis] = int32_t(uint32_t(from.cell[axis]) + uint32_t(steps[axis]));
    const RtVector at = cellVector<3>(cell);
    const float x = float(steps[0]) + at.x - from.offset[0];
    const float y = float(steps[1]) + at.y - from.offset[1];
    const float z = float(steps[2]) + at.z - from.offset[2];
    return x * x + y * y + z * z;
}

// The point of the own cell is nearer than sqrt(3), and so no other is looked for more than two
// cells away. The nearer cells come first, so that most of the others are out of reach.
static float cellular(const Place<3>& from)
{
    static constexpr int order[] = { 0, -1, 1, -2, 2 };
    float nearest = 3;
    for (int z : order) {
        const float gap_z = gap(z, from.offset[2]), to_layer = gap_z * gap_z;
        if (to_layer >= nearest)
            continue;
        for (int y : order) {
            const float gap_y = gap(y, from.offset[1]), to_row = to_layer + gap_y * gap_y;
            if (to_row >= nearest)
                continue;
            for (int x : order) {
                const float gap_x = gap(x, from.offset[0]);
                if (to_row + gap_x * gap_x < nearest)
                    nearest = std::min(nearest, squaredDistanceToPoint(from, { x, y, z }));
            }
        }
    }
    return sqrtf(nearest);
}

// ---- Points of callers; null is the origin ----

static Coordinates<2> coordinates(const RtPoint2& p) { return { p.x, p.y }; }

static Coordinates<3> coordinates(const RtPoint* p)
{
    return p ? Coordinates<3>{ p->x, p->y, p->z } : Coordinates<3>{};
}

static Coordinates<4> coordinates(const RtPoint* p, float t)
{
    return p ? Coordinates<4>{ p->x, p->y, p->z, t } : Coordinates<4>{ 0, 0, 0, t };
}

} // namespace rv

float RvPerlin2(RtPoint2 p) { return rv::perlin<2>(rv::coordinates(p)); }
float RvPerlin3(const RtPoint* p) { return rv::perlin<3>(rv::coordinates(p)); }
float RvPerlin4(const RtPoint* p, float t) { return rv::perlin<4>(rv::coordinates(p, t)); }

float RvPeriodicPerlin2(RtPoint2 p, int px, int py)
{
    return rv::periodicPerlin<2>(rv::coordinates(p), { px, py });
}

float RvPeriodicPerlin3(const RtPoint* p, int px, int py, int pz)
{
    return rv::periodicPerlin<3>(rv::coordinates(p), { px, py, pz });
}

float RvPeriodicPerlin4(const RtPoint* p, float t, int px, int py, int pz, int pt)
{
    return rv::periodicPerlin<4>(rv::coordinates(p, t), { px, py, pz, pt });
}

float RvNoise2(RtPoint2 p, int octaves, float distortion, float lacunarity)
{
    return rv::fractalNoise<2>(rv::coordinates(p), octaves, distortion, lacunarity);
}

float RvNoise3(const RtPoint* p, int octaves, float distortion, float lacunarity)
{
    return rv::fractalNoise<3>(rv::coordinates(p), octaves, distortion, lacunarity);
}

float RvNoise4(const RtPoint* p, float t, int octaves, float distortion, float lacunarity)
{
    return rv::fractalNoise<4>(rv::coordinates(p, t), octaves, distortion, lacunarity);
}

RtVector RvVNoise2(RtPoint2 p, int octaves, float distortion, float lacunarity)
{
    return rv::vectorNoise<2>(rv::coordinates(p), octaves, distortion, lacunarity);
}

RtVector RvVNoise3(const RtPoint* p, int octaves, float distortion, float lacunarity)
{
    return rv::vectorNoise<3>(rv::coordinates(p), octaves, distortion, lacunarity);
}

RtVector RvVNoise4(const RtPoint* p, float t, int octaves, float distortion, float lacunarity)
{
    return rv::vectorNoise<4>(rv::coordinates(p, t), octaves, distortion, lacunarity);
}

float RvCellNoise2(RtPoint2 p) { return rv::cellNoise<2>(rv::coordinates(p), rv::point_hash_key); }

float RvCellNoise3(const RtPoint* p)
{
    return rv::cellNoise<3>(rv::coordinates(p), rv::point_hash_key);
}

float RvCellNoise4(const RtPoint* p, float t)
{
    return rv::cellNoise<4>(rv::coordinates(p, t), rv::pixel_hash_key);
}

RtVector RvVCellNoise2(RtPoint2 p) { return rv::vectorCellNoise<2>(rv::coordinates(p)); }
RtVector RvVCellNoise3(const RtPoint* p) { return rv::vectorCellNoise<3>(rv::coordinates(p)); }
RtVector RvVCellNoise4(const RtPoint* p, float t)
{
    return rv::vectorCellNoise<4>(rv::coordinates(p, t));
}

float RvCellular(const RtPoint* p) { return rv::cellular(rv::placeOf<3>(rv::coordinates(p))); }
