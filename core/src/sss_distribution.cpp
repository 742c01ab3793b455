// sss_distribution: scatters the points of a cloud over a surface (sss_cloud.h).
//
// Dart throwing with ten stratified candidates for each point that fits. Everything is a function
// of the surface, the numbers asked for and "AA_seed".
#include "sampling.h"
#include "sss_cloud.h"

#include <algorithm>
#include <float.h>
#include <math.h>
#include <new>
#include <numbers>

static const char* const module_path = "core\\src\\sss";

namespace rv {

static constexpr uint32_t candidates_per_point = 10;

const uint32_t most_cloud_points = max_table_points / candidates_per_point;

// ---- Numbers ----

SSSPointBudget pointBudget(double area, float spacing, int max_samples)
{
    const double most = std::clamp<double>(max_samples, 1, most_cloud_points);
    double n = most;
    if (spacing > 0)
        n = std::clamp(floor(area / (std::numbers::pi * double(spacing) * double(spacing))), 1.0,
                       most);
    const uint32_t points = uint32_t(n);
    return { points, candidates_per_point * points, sqrt(area / (n * std::numbers::pi)) };
}

CornerWeights cornerWeights(double a, double b)
{
    const double s = sqrt(a);
    return { { 1 - s, (1 - b) * s, b * s } };
}

// ---- Areas ----

static double triangleArea(const RtPoint p[3])
{
    const double a[3] = { double(p[1].x) - p[0].x, double(p[1].y) - p[0].y,
                          double(p[1].z) - p[0].z };
    const double b[3] = { double(p[2].x) - p[0].x, double(p[2].y) - p[0].y,
                          double(p[2].z) - p[0].z };
    const double x = a[1] * b[2] - a[2] * b[1], y = a[2] * b[0] - a[0] * b[2],
                 z = a[0] * b[1] - a[1] * b[0];
    const double area = sqrt(x * x + y * y + z * z) / 2;
    return isfinite(area) ? area : 0;
}

AreaDistribution::AreaDistribution(const SSSSurface& surface)
{
    const uint32_t count = surface.triangleCount();
    shares.reserve(count);
    for (uint32_t i = 0; i < count; ++i) {
        RtPoint p[3];
        surface.corners(i, p);
        total += triangleArea(p);
        shares.push_back(total);
    }
    if (!(total > 0) || !isfinite(total)) {
        total = 0;
        shares.clear();
    }
    for (double& share : shares)
        share /= total;
}

uint32_t AreaDistribution::pick(double* u) const
{
    // The first triangle whose share exceeds u has an area. There is one, for the last share is 1.
    const auto at = std::upper_bound(shares.begin(), shares.end(), *u);
    const double before = at == shares.begin() ? 0 : at[-1];
    static constexpr double below_one = 1 - 0x1p-53;
    *u = std::clamp((*u - before) / (*at - before), 0.0, below_one);
    return uint32_t(at - shares.begin());
}

// ---- Neighbours ----

namespace {

// Finds accepted points near a place. Space is cut into cells twice as wide as the spacing, so that
// a ball of that radius reaches into eight of them at most. Cells share the buckets of a table;
// what else is found in a bucket is told apart by its distance.
class AcceptedPoints {
public:
    explicit AcceptedPoints(const SSSPointBudget& budget)
        : radius(budget.spacing), cells_per_unit(0.5 / budget.spacing),
          heads(std::bit_ceil(size_t{ budget.points } * 2), nobody)
    {
        entries.reserve(size_t{ budget.points } * 2);
    }

    // The nearest point closer than the spacing, or nobody.
    uint32_t findNear(const RtPoint& p) const
    {
        static constexpr double beyond = 0.25000001; // the squared spacing, in cells
        uint32_t nearest = nobody;
        double least = radius * radius;
        const Axis x = axisOf(p.x), y = axisOf(p.y), z = axisOf(p.z);
        for (unsigned i = 0; i < 8; ++i) {
            const unsigned a = i & 1, b = i >> 1 & 1, c = i >> 2;
            if (x.square[a] + y.square[b] + z.square[c] < beyond)
                searchBucket(bucketOf(x.cell[a], y.cell[b], z.cell[c]), p, &least, &nearest);
        }
        return nearest;
    }

    // Adds the point that comes next.
    void add(const RtPoint& p, float area)
    {
        uint32_t& head =
            heads[bucketOf(axisOf(p.x).cell[0], axisOf(p.y).cell[0], axisOf(p.z).cell[0])];
        entries.push_back({ p, area, head });
        head = uint32_t(entries.size() - 1);
    }

    void enlarge(uint32_t point, float area) { entries[point].area += area; }
    float areaOf(size_t point) const { return entries[point].area; }

    static constexpr uint32_t nobody = 0xFFFFFFFF;

private:
    // The cell of a coordinate and the neighbour that is nearer, with the squares of the distances
    // to them, in cells.
    struct Axis {
        int64_t cell[2];
        double square[2];
    };
    Axis axisOf(float x) const
    {
        static constexpr double most = 0x1p62; // where floats are farther apart than cells are wide
        const double place = std::clamp(double(x) * cells_per_unit, -most, most);
        const double cell = floor(place), within = place - cell;
        const int64_t i = int64_t(cell);
        const bool is_low = within < 0.5;
        const double way = is_low ? within : 1 - within;
        return { { i, is_low ? i - 1 : i + 1 }, { 0, way * way } };
    }
    size_t bucketOf(int64_t x, int64_t y, int64_t z) const
    {
        return mix({ uint32_t(x), uint32_t(y), uint32_t(z) }).c & (heads.size() - 1);
    }
    void searchBucket(size_t bucket, const RtPoint& p, double* least, uint32_t* nearest) const
    {
        for (uint32_t i = heads[bucket]; i != nobody; i = entries[i].next) {
            const RtPoint& q = entries[i].position;
            const double x = double(p.x) - q.x, y = double(p.y) - q.y, z = double(p.z) - q.z;
            const double d2 = x * x + y * y + z * z;
            if (d2 < *least) {
                *least = d2;
                *nearest = i;
            }
        }
    }

    struct Entry {
        RtPoint position;
        float area;    // beside the place, because it changes whenever that is found
        uint32_t next; // of the same bucket
    };
    const double radius, cells_per_unit;
    CheckedVector<uint32_t> heads; // of the chains of entries, one for each bucket
    CheckedVector<Entry> entries;
};

} // namespace

// ---- Candidates ----

static bool isRequested(const std::atomic<int>* stop_request)
{
    return stop_request && *stop_request;
}

// Shuffled points of the unit square, evenly spread in each coordinate too. Empty after an error.
static RtSampleTable makeCandidates(uint32_t count, const std::atomic<int>* stop_request)
{
    static constexpr int pattern_seed = 611, shuffle_seed = 612;
    const int side = int(ceil(sqrt(double(count))));
    const RtSampleTable table = makePattern(pattern_seed, side, RV_PATTERN_MULTI_JITTERED,
                                            module_path, __LINE__, "RvSSSPointCloudLookup");
    if (table.points && !isRequested(stop_request))
        RvShufflePoints(shuffle_seed, 1, table.count, RV_PATTERN_MULTI_JITTERED, table.points);
    return table;
}

static RtSSSPoint placeCandidate(const SSSSurface& surface, const AreaDistribution& distribution,
                                 const RtPoint2& candidate)
{
    double a = candidate.x;
    RtSSSPoint point = {};
    point.face = distribution.pick(&a);
    const CornerWeights weights = cornerWeights(a, candidate.y);
    const auto& w = weights.w;
    RtPoint p[3];
    surface.corners(point.face, p);
    point.position = { float(w[0] * p[0].x + w[1] * p[1].x + w[2] * p[2].x),
                       float(w[0] * p[0].y + w[1] * p[1].y + w[2] * p[2].y),
                       float(w[0] * p[0].z + w[1] * p[1].z + w[2] * p[2].z) };
    point.u = float(w[1]);
    point.v = float(w[2]);
    return point;
}

ScatteredPoints scatterPoints(const SSSSurface& surface, const AreaDistribution& distribution,
                              const SSSPointBudget& budget, const std::atomic<int>* stop_request)
{
    ScatteredPoints result;
    if (distribution.shares.empty() || isRequested(stop_request))
        return result;
    struct Table : RtSampleTable {
        ~Table() { RvFree_func(points); }
    };
    const Table candidates{ makeCandidates(budget.candidates, stop_request) };
    if (!candidates.points)
        throw std::bad_alloc();
    const float area = float(std::min(distribution.total / budget.candidates, double(FLT_MAX)));
    result.points.reserve(size_t{ budget.points } * 2);
    AcceptedPoints accepted(budget);
    for (uint32_t i = 0; i < budget.candidates && !isRequested(stop_request); ++i) {
        const RtSSSPoint point = placeCandidate(surface, distribution, candidates.points[i]);
        const uint32_t near = accepted.findNear(point.position);
        if (near != AcceptedPoints::nobody) {
            accepted.enlarge(near, area);
            ++result.rejected;
            continue;
        }
        result.points.push_back(point);
        accepted.add(point.position, area);
    }
    for (size_t i = 0; i < result.points.size(); ++i)
        result.points[i].area = accepted.areaOf(i);
    return result;
}

} // namespace rv
