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
    makeGuide();
}

// A power of two, so that the parts that numbers fall into are exact.
void AreaDistribution::makeGuide()
{
    guide.resize(std::bit_ceil(shares.size()) + 1, uint32_t(shares.size()));
    const double part = 1 / double(guide.size() - 1);
    uint32_t triangle = 0;
    for (size_t i = 0; i + 1 < guide.size() && !shares.empty(); ++i) {
        while (shares[triangle] <= double(i) * part) // the last share is 1
            ++triangle;
        guide[i] = triangle;
    }
}

uint32_t AreaDistribution::pick(double* u) const
{
    // The first triangle whose share exceeds u has an area. There is one, for the last share is 1.
    const uint32_t* const part = &guide[size_t(*u * double(guide.size() - 1))];
    const auto at = std::upper_bound(shares.begin() + part[0], shares.begin() + part[1], *u);
    const double before = at == shares.begin() ? 0 : at[-1];
    static constexpr double below_one = 1 - 0x1p-53;
    *u = std::clamp((*u - before) / (*at - before), 0.0, below_one);
    return uint32_t(at - shares.begin());
}

// ---- Neighbours ----

namespace {

constexpr uint32_t nobody = 0xFFFFFFFF;

// Where to look for the neighbours of a place: buckets, in the order in which they are searched.
struct Vicinity {
    uint32_t buckets[8]; // the first is that of its own cell
    unsigned count = 0;
};

struct Neighbour {
    uint32_t point = nobody;
    unsigned turn = 0; // of the bucket among those of the vicinity
    double square;     // of the distance
};

// Finds accepted points near a place. Space is cut into cells twice as wide as the spacing, so that
// a ball of that radius reaches into eight of them at most. Cells share the buckets of a table;
// what else is found in a bucket is told apart by its distance.
class AcceptedPoints {
public:
    explicit AcceptedPoints(const SSSPointBudget& budget)
        : radius(budget.spacing), cells_per_unit(0.5 / budget.spacing),
          heads(std::bit_ceil(size_t{ budget.points } * 2), nobody), starts(heads.size() + 1)
    {
        entries.reserve(size_t{ budget.points } * 2);
        settled.reserve(size_t{ budget.points } * 2);
    }

    Vicinity vicinityOf(const RtPoint& p) const
    {
        static constexpr double beyond = 0.25000001; // the squared spacing, in cells
        Vicinity vicinity;
        const Axis x = axisOf(p.x), y = axisOf(p.y), z = axisOf(p.z);
        for (unsigned i = 0; i < 8; ++i) {
            const unsigned a = i & 1, b = i >> 1 & 1, c = i >> 2;
            if (x.square[a] + y.square[b] + z.square[c] < beyond)
                vicinity.buckets[vicinity.count++] = bucketOf(x.cell[a], y.cell[b], z.cell[c]);
        }
        return vicinity;
    }

    // The nearest point closer than the spacing: of those that are settled, or of the others. Of
    // several the one in the first bucket, and of these the latest.
    Neighbour findSettled(const RtPoint& p, const Vicinity& vicinity) const
    {
        Neighbour nearest = { .square = radius * radius };
        for (unsigned turn = 0; turn < vicinity.count; ++turn) {
            const uint32_t* const range = &starts[vicinity.buckets[turn]];
            for (uint32_t i = range[0]; i < range[1]; ++i)
                compare(p, settled[i].position, settled[i].point, turn, &nearest);
        }
        return nearest;
    }
    Neighbour findRecent(const RtPoint& p, const Vicinity& vicinity) const
    {
        Neighbour nearest = { .square = radius * radius };
        for (unsigned turn = 0; turn < vicinity.count; ++turn)
            for (uint32_t i = heads[vicinity.buckets[turn]]; isRecent(i); i = entries[i].next)
                compare(p, entries[i].position, i, turn, &nearest);
        return nearest;
    }

    // Adds the point that comes next.
    void add(const RtPoint& p, const Vicinity& vicinity, float area)
    {
        uint32_t& head = heads[vicinity.buckets[0]];
        entries.push_back({ p, area, head });
        head = uint32_t(entries.size() - 1);
    }
    // Points from now on are the recent ones, if it is worth the while.
    void settle()
    {
        if (entries.size() < settled.size() + settled.size() / 8)
            return;
        settled.clear();
        for (size_t bucket = 0; bucket < heads.size(); ++bucket) {
            for (uint32_t i = heads[bucket]; i != nobody; i = entries[i].next)
                settled.push_back({ entries[i].position, i });
            starts[bucket + 1] = uint32_t(settled.size());
        }
    }

    void enlarge(uint32_t point, float area) { entries[point].area += area; }
    float areaOf(size_t point) const { return entries[point].area; }

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
    uint32_t bucketOf(int64_t x, int64_t y, int64_t z) const
    {
        return mix({ uint32_t(x), uint32_t(y), uint32_t(z) }).c & uint32_t(heads.size() - 1);
    }

    static void compare(const RtPoint& p, const RtPoint& q, uint32_t point, unsigned turn,
                        Neighbour* nearest)
    {
        const double x = double(p.x) - q.x, y = double(p.y) - q.y, z = double(p.z) - q.z;
        const double square = x * x + y * y + z * z;
        if (square < nearest->square)
            *nearest = { point, turn, square };
    }
    bool isRecent(uint32_t point) const { return point != nobody && point >= settled.size(); }

    struct Entry {
        RtPoint position;
        float area;
        uint32_t next; // of the same bucket
    };
    struct SettledPoint {
        RtPoint position;
        uint32_t point;
    };
    const double radius, cells_per_unit;
    CheckedVector<uint32_t> heads; // of the chains of entries, the latest first, by bucket
    CheckedVector<Entry> entries;
    // The points before the recent ones, bucket by bucket, the latest first.
    CheckedVector<uint32_t> starts;
    CheckedVector<SettledPoint> settled;
};

} // namespace

// ---- Candidates ----

// Shuffled points of the unit square, evenly spread in each coordinate too. Empty after an error.
static RtSampleTable makeCandidates(uint32_t count, const SSSCrew& crew)
{
    static constexpr int pattern_seed = 611, shuffle_seed = 612;
    const int side = int(ceil(sqrt(double(count))));
    const RtSampleTable table = makePattern(pattern_seed, side, RV_PATTERN_MULTI_JITTERED,
                                            module_path, __LINE__, "RvSSSPointCloudLookup");
    if (table.points && !crew.isStopped())
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

// ---- Throwing ----

namespace {

// Accepts or rejects candidates one after another, in batches. What a candidate of a batch finds
// among the points of earlier batches depends on no other candidate, so that any thread can look;
// only points of its own batch are left for when its turn comes.
class DartThrow {
public:
    DartThrow(const SSSSurface& the_surface, const AreaDistribution& areas,
              const SSSPointBudget& the_budget)
        : surface(the_surface), distribution(areas), budget(the_budget),
          area(float(std::min(areas.total / the_budget.candidates, double(FLT_MAX)))),
          accepted(the_budget), darts(std::min(largest_batch, the_budget.candidates)),
          order(darts.size())
    {
        result.points.reserve(size_t{ budget.points } * 2);
    }
    ScatteredPoints run(const RtPoint2* candidates, const SSSCrew& crew);

private:
    static constexpr uint32_t first_batch = 0x800, largest_batch = 0x10000, piece_size = 512;

    struct Candidate {
        RtPoint2 place;
        uint32_t index; // in the batch
    };
    struct Dart {
        RtSSSPoint point;
        Vicinity vicinity;
        Neighbour settled;
    };
    void sortBatch(const RtPoint2* candidates, uint32_t batch);
    void place(const RtPoint2& candidate, Dart* dart) const;
    void throwDart(const Dart& dart);

    const SSSSurface& surface;
    const AreaDistribution& distribution;
    const SSSPointBudget& budget;
    const float area; // of a candidate
    AcceptedPoints accepted;
    CheckedVector<Dart> darts;      // of the batch
    CheckedVector<Candidate> order; // in which they are placed
    ScatteredPoints result;
};

} // namespace

// By the first coordinate, roughly: neighbours on a surface need the same memory.
void DartThrow::sortBatch(const RtPoint2* candidates, uint32_t batch)
{
    static constexpr uint32_t part_count = 4096;
    uint32_t ends[part_count + 1] = {};
    const auto partOf = [&](uint32_t i) { return uint32_t(candidates[i].x * part_count); };
    for (uint32_t i = 0; i < batch; ++i)
        ++ends[partOf(i) + 1];
    for (uint32_t part = 0; part < part_count; ++part)
        ends[part + 1] += ends[part];
    for (uint32_t i = 0; i < batch; ++i)
        order[ends[partOf(i)]++] = { candidates[i], i };
}

void DartThrow::place(const RtPoint2& candidate, Dart* dart) const
{
    dart->point = placeCandidate(surface, distribution, candidate);
    dart->vicinity = accepted.vicinityOf(dart->point.position);
    dart->settled = accepted.findSettled(dart->point.position, dart->vicinity);
}

void DartThrow::throwDart(const Dart& dart)
{
    Neighbour nearest = accepted.findRecent(dart.point.position, dart.vicinity);
    const Neighbour& old = dart.settled;
    // As if all had been searched at once: see AcceptedPoints.
    if (old.square < nearest.square || (old.square == nearest.square && old.turn < nearest.turn))
        nearest = old;
    if (nearest.point != nobody) {
        accepted.enlarge(nearest.point, area);
        ++result.rejected;
        return;
    }
    result.points.push_back(dart.point);
    accepted.add(dart.point.position, dart.vicinity, area);
}

ScatteredPoints DartThrow::run(const RtPoint2* candidates, const SSSCrew& crew)
{
    uint32_t batch = first_batch;
    for (uint32_t start = 0; start < budget.candidates; start += batch, batch *= 4) {
        batch = std::min({ batch, uint32_t(darts.size()), budget.candidates - start });
        sortBatch(candidates + start, batch);
        const auto placePiece = [&](int, int piece) {
            const uint32_t first = uint32_t(piece) * piece_size;
            const uint32_t last = std::min(first + piece_size, batch);
            for (uint32_t i = first; i < last; ++i)
                place(order[i].place, &darts[order[i].index]);
            return !crew.isStopped();
        };
        if (!crew.lead(int((batch + piece_size - 1) / piece_size), placePiece))
            break;
        for (uint32_t i = 0; i < batch; ++i)
            throwDart(darts[i]);
        accepted.settle();
    }
    for (size_t i = 0; i < result.points.size(); ++i)
        result.points[i].area = accepted.areaOf(i);
    return std::move(result);
}

ScatteredPoints scatterPoints(const SSSSurface& surface, const AreaDistribution& distribution,
                              const SSSPointBudget& budget, const SSSCrew& crew)
{
    if (distribution.shares.empty() || crew.isStopped())
        return {};
    struct Table : RtSampleTable {
        ~Table() { RvFree_func(points); }
    };
    const Table candidates{ makeCandidates(budget.candidates, crew) };
    if (!candidates.points)
        throw std::bad_alloc();
    return DartThrow(surface, distribution, budget).run(candidates.points, crew);
}

} // namespace rv
