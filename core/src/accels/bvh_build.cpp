// bvh_build: splitting ranges of primitives by the surface area heuristic.
#include "accels/bvh_build.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace rv {

static constexpr int bin_count = 16;

// ---- Primitives ----

static float usable(float x) { return x != x ? 0 : std::clamp(x, -FLT_MAX, FLT_MAX); }

BuildPrim::BuildPrim(const RtBBox& box, uint32_t index)
    : low(usable(box.min.x), usable(box.min.y), usable(box.min.z), 0),
      high(usable(box.max.x), usable(box.max.y), usable(box.max.z), 0)
{
    low = _mm_castsi128_ps(_mm_insert_epi32(_mm_castps_si128(low.v), int(index), 3));
}

BuildRange wholeRange(const BuildPrim* prims, uint32_t count)
{
    BuildRange range = { 0, count, Box4::empty(), Box4::empty() };
    for (uint32_t i = 0; i < count; ++i) {
        range.box.extend(prims[i].box());
        range.centroids.extend(prims[i].centroid());
    }
    return range;
}

// ---- Bins ----

// Maps centroids to bins on all three axes at once.
struct Binning {
    Float4 origin, scale;

    explicit Binning(const Box4& centroids) : origin(centroids.low)
    {
        const Float4 extent = centroids.high - centroids.low;
        // Just below the number of bins, which keeps the largest centroid in the last one.
        const Float4 factor(float(bin_count) * 0.999f);
        const Mask4 positive = (extent > Float4(0.0f)) & (extent <= Float4(FLT_MAX));
        scale = select(positive, factor / extent, Float4(0.0f));
    }
    __m128i binsOf(Float4 centroid) const
    {
        const __m128i bins = _mm_cvttps_epi32(((centroid - origin) * scale).v);
        return _mm_min_epi32(_mm_max_epi32(bins, _mm_setzero_si128()),
                             _mm_set1_epi32(bin_count - 1));
    }
};

struct Bins {
    Box4 box[3][bin_count];
    alignas(16) int32_t count[bin_count][4]; // lane: axis

    void clear()
    {
        for (auto& axis : box)
            for (Box4& bin : axis)
                bin = Box4::empty();
        memset(count, 0, sizeof count);
    }
    void add(const BuildPrim& prim, __m128i bins)
    {
        const Box4 bounds = prim.box();
        const unsigned x = unsigned(_mm_extract_epi32(bins, 0));
        const unsigned y = unsigned(_mm_extract_epi32(bins, 1));
        const unsigned z = unsigned(_mm_extract_epi32(bins, 2));
        box[0][x].extend(bounds);
        box[1][y].extend(bounds);
        box[2][z].extend(bounds);
        ++count[x][0];
        ++count[y][1];
        ++count[z][2];
    }
};

// The boxes of one bin on the three axes, one axis a lane.
struct BoxLanes {
    Float4 low[3], high[3];

    static BoxLanes empty()
    {
        BoxLanes lanes;
        std::fill_n(lanes.low, 3, Float4(FLT_MAX));
        std::fill_n(lanes.high, 3, Float4(-FLT_MAX));
        return lanes;
    }
    void extend(const Bins& bins, int bin)
    {
        Float4 a = bins.box[0][bin].low, b = bins.box[1][bin].low, c = bins.box[2][bin].low, d = c;
        transpose(a, b, c, d);
        low[0] = min(a, low[0]);
        low[1] = min(b, low[1]);
        low[2] = min(c, low[2]);
        a = bins.box[0][bin].high, b = bins.box[1][bin].high, c = bins.box[2][bin].high, d = c;
        transpose(a, b, c, d);
        high[0] = max(a, high[0]);
        high[1] = max(b, high[1]);
        high[2] = max(c, high[2]);
    }
    Float4 area() const
    {
        const Float4 x = high[0] - low[0], y = high[1] - low[1], z = high[2] - low[2];
        return Float4(2.0f) * (x * y + y * z + z * x);
    }
};

static float areaOf(const Box4& box)
{
    alignas(16) float d[4];
    (box.high - box.low).store(d);
    return 2 * (d[0] * d[1] + d[1] * d[2] + d[2] * d[0]);
}

static Float4 countsOf(const Bins& bins, int bin)
{
    return _mm_cvtepi32_ps(_mm_load_si128(reinterpret_cast<const __m128i*>(bins.count[bin])));
}

// The cheapest plane of each axis, one axis a lane.
struct PlaneLanes {
    alignas(16) float cost[4];
    alignas(16) float plane[4];
};

static PlaneLanes cheapestPlanes(const Bins& bins, float area, float traversal_cost)
{
    Float4 right_area[bin_count], right_count[bin_count];
    BoxLanes side = BoxLanes::empty();
    Float4 counted(0.0f);
    for (int i = bin_count - 1; i > 0; --i) {
        side.extend(bins, i);
        counted = counted + countsOf(bins, i);
        right_area[i] = side.area();
        right_count[i] = counted;
    }
    side = BoxLanes::empty();
    counted = Float4(0.0f);
    Float4 best(std::numeric_limits<float>::infinity()), best_plane(-1.0f);
    for (int i = 0; i < bin_count - 1; ++i) {
        side.extend(bins, i);
        counted = counted + countsOf(bins, i);
        const Float4 cost =
            (counted * side.area() + right_count[i + 1] * right_area[i + 1]) / Float4(area) +
            Float4(traversal_cost);
        const Float4 none(0.0f);
        const Mask4 better = (cost < best) & (counted > none) & (right_count[i + 1] > none);
        best = select(better, cost, best);
        best_plane = select(better, Float4(float(i)), best_plane);
    }
    PlaneLanes result;
    best.store(result.cost);
    best_plane.store(result.plane);
    return result;
}

// ---- Few primitives ----

// Up to here it is faster to sort the primitives than to sweep over all bins.
static constexpr uint32_t few = 8;

struct Binned {
    int32_t bin;
    const BuildPrim* prim;
};

static void sortByBin(Binned* entries, uint32_t n)
{
    for (uint32_t i = 1; i < n; ++i) {
        const Binned entry = entries[i];
        uint32_t k = i;
        for (; k > 0 && entries[k - 1].bin > entry.bin; --k)
            entries[k] = entries[k - 1];
        entries[k] = entry;
    }
}

// The cheapest plane along one axis, from primitives sorted by bin. Of the planes that part them
// alike the first counts, as in a sweep over all.
static void cheapestPlane(const Binned* entries, uint32_t n, int axis, float area,
                          float traversal_cost, Split* best)
{
    float right_area[few];
    Box4 side = Box4::empty();
    for (uint32_t i = n - 1; i > 0; --i) {
        side.extend(entries[i].prim->box());
        right_area[i] = areaOf(side);
    }
    side = Box4::empty();
    for (uint32_t i = 1; i < n; ++i) {
        side.extend(entries[i - 1].prim->box());
        if (entries[i - 1].bin == entries[i].bin)
            continue;
        const float cost =
            (float(i) * areaOf(side) + float(n - i) * right_area[i]) / area + traversal_cost;
        if (cost < best->cost)
            *best = { false, axis, entries[i - 1].bin, cost };
    }
}

static void findSplitOfFew(const BuildPrim* prims, const BuildRange& range, float traversal_cost,
                           Split* best)
{
    const Binning binning(range.centroids);
    const uint32_t n = range.size();
    alignas(16) int32_t bins[few][4];
    for (uint32_t i = 0; i < n; ++i)
        _mm_store_si128(reinterpret_cast<__m128i*>(bins[i]),
                        binning.binsOf(prims[range.begin + i].centroid()));
    const float area = areaOf(range.box);
    for (int axis = 0; axis < 3; ++axis) {
        Binned entries[few];
        for (uint32_t i = 0; i < n; ++i)
            entries[i] = { bins[i][axis], &prims[range.begin + i] };
        sortByBin(entries, n);
        cheapestPlane(entries, n, axis, area, traversal_cost, best);
    }
}

// ---- Splits ----

// False when a box is so large that costs overflow. Its primitives are halved until the culprit is
// on its own, or all others would share its leaf.
static bool hasComparableAreas(const BuildRange& range)
{
    return areaOf(range.box) * float(range.size()) <= FLT_MAX;
}

Split findSplit(const BuildPrim* prims, const BuildRange& range, uint32_t depth,
                float traversal_cost)
{
    const uint32_t n = range.size();
    const bool may_be_leaf = n <= most_leaf_primitives;
    Split split = { true, 0, -1, may_be_leaf ? float(n) : std::numeric_limits<float>::infinity() };
    if (n < 2)
        return split;
    if (depth >= split_depth_limit) {
        split.leaf = may_be_leaf; // otherwise halves, so that the depth stays bounded
        return split;
    }
    if (!hasComparableAreas(range))
        return { false, 0, -1, split.cost };
    if (n <= few) {
        findSplitOfFew(prims, range, traversal_cost, &split);
        return split;
    }
    Bins bins;
    bins.clear();
    const Binning binning(range.centroids);
    for (uint32_t i = range.begin; i < range.end; ++i)
        bins.add(prims[i], binning.binsOf(prims[i].centroid()));
    const PlaneLanes planes = cheapestPlanes(bins, areaOf(range.box), traversal_cost);
    for (int axis = 0; axis < 3; ++axis)
        if (planes.cost[axis] < split.cost)
            split = { false, axis, int(planes.plane[axis]), planes.cost[axis] };
    // Primitives that no plane tells apart, and too many of them for one leaf.
    split.leaf = split.leaf && may_be_leaf;
    return split;
}

// ---- Partition ----

static void include(BuildRange& side, const BuildPrim& prim)
{
    side.box.extend(prim.box());
    side.centroids.extend(prim.centroid());
}

static void halve(const BuildPrim* prims, const BuildRange& range, BuildRange sides[2])
{
    sides[0].end = sides[1].begin = range.begin + range.size() / 2;
    for (uint32_t i = range.begin; i < range.end; ++i)
        include(sides[i >= sides[1].begin], prims[i]);
}

void partition(BuildPrim* prims, const BuildRange& range, const Split& split, BuildRange sides[2])
{
    sides[0] = { range.begin, range.begin, Box4::empty(), Box4::empty() };
    sides[1] = { range.end, range.end, Box4::empty(), Box4::empty() };
    if (split.plane < 0)
        return halve(prims, range, sides);
    const Binning binning(range.centroids);
    alignas(16) int32_t bins[4];
    uint32_t front = range.begin, back = range.end;
    while (front < back) {
        const BuildPrim prim = prims[front];
        _mm_store_si128(reinterpret_cast<__m128i*>(bins), binning.binsOf(prim.centroid()));
        if (bins[split.axis] <= split.plane) {
            include(sides[0], prim);
            ++front;
        } else {
            include(sides[1], prim);
            --back;
            prims[front] = prims[back];
            prims[back] = prim;
        }
    }
    sides[0].end = sides[1].begin = front;
}

// ---- Order of slots ----

void orderBytes(int axis, int axis_left, int axis_right, uint8_t order[8])
{
    for (unsigned octant = 0; octant < 8; ++octant) {
        uint8_t list[4] = { 0, 1, 2, 3 };
        if (octant >> axis_left & 1)
            std::swap(list[0], list[1]);
        if (octant >> axis_right & 1)
            std::swap(list[2], list[3]);
        if (octant >> axis & 1)
            std::rotate(list, list + 2, list + 4);
        order[octant] = uint8_t(list[0] | list[1] << 2 | list[2] << 4 | list[3] << 6);
    }
}

} // namespace rv
