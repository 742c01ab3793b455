// sss_octree: the packed light of a cloud's points, the octree they are sorted into, and what is
// looked up there (sss_cloud.h).
//
// Invariant: the box of a node is the smallest one around its points, and its children's points are
// its own. Boxes are halved in the middle, so that they shrink to nothing within the range of
// floats, however unevenly the points lie; points in one place are divided by number.
#include "color.h"
#include "sss_cloud.h"

#include <algorithm>
#include <bit>
#include <float.h>

namespace rv {

// ---- Packed irradiance ----

// A channel is its mantissa times 2 to (exponent - bias). The bias makes all scales normal floats,
// and the largest mantissa with the largest exponent finite.
static constexpr int exponent_bias = 126, largest_exponent = 246;

static float scaleOf(uint32_t exponent) { return std::bit_cast<float>((exponent + 1) << 23); }

// In units of the scale, rounded, or 256 for what has no place there.
static uint32_t mantissa(float channel, int exponent)
{
    const float m = ldexpf(channel, exponent_bias - exponent) + 0.5f;
    return m < 256 ? uint32_t(m) : 256;
}

uint32_t packIrradiance(const RtRGB& irradiance)
{
    const RtRGB c = perChannel(irradiance, [](float x) { return x > 0 ? x : 0; });
    const float most = largestOf(c);
    if (most == 0)
        return 0;
    // The largest channel gets a mantissa from 128 to 255.
    int exponent = 0;
    frexpf(std::min(most, FLT_MAX), &exponent);
    exponent = std::clamp(exponent - 8 + exponent_bias, 0, largest_exponent);
    if (mantissa(most, exponent) > 255 && exponent < largest_exponent)
        ++exponent;
    const auto pack = [exponent](float x) { return std::min(mantissa(x, exponent), 255u); };
    const uint32_t mantissas = pack(c.r) | pack(c.g) << 8 | pack(c.b) << 16;
    return mantissas ? mantissas | uint32_t(exponent) << 24 : 0;
}

Float4 unpackLanes(uint32_t packed) { return fromBytes(packed) * Float4(scaleOf(packed >> 24)); }

RtRGB unpackIrradiance(uint32_t packed)
{
    alignas(16) float lanes[4];
    unpackLanes(packed).store(lanes);
    return { lanes[0], lanes[1], lanes[2] };
}

// ---- Building ----

namespace {

struct PointRange {
    RtSSSPoint *begin, *end;
    size_t count() const { return size_t(end - begin); }
};

class OctreeBuilder {
public:
    OctreeBuilder(CheckedVector<RtSSSPoint>* all, CheckedVector<RtSSSNode>* out)
        : points(*all), nodes(*out)
    {
        nodes.push_back(nodeAround({ points.data(), points.data() + points.size() }));
        build(0, { points.data(), points.data() + points.size() });
    }

private:
    static constexpr size_t leaf_capacity = 12;

    static RtSSSNode nodeAround(const PointRange& range);
    void build(size_t node, const PointRange& range);
    static size_t divide(const RtSSSNode& node, const PointRange& range, PointRange parts[8]);

    CheckedVector<RtSSSPoint>& points;
    CheckedVector<RtSSSNode>& nodes;
};

} // namespace

static const float RtPoint::*const axes[3] = { &RtPoint::x, &RtPoint::y, &RtPoint::z };

RtSSSNode OctreeBuilder::nodeAround(const PointRange& range)
{
    RtSSSNode node = {};
    for (int axis = 0; axis < 3; ++axis) {
        float low = FLT_MAX, high = -FLT_MAX;
        for (const RtSSSPoint* p = range.begin; p != range.end; ++p) {
            low = std::min(low, p->position.*axes[axis]);
            high = std::max(high, p->position.*axes[axis]);
        }
        node.bounds[2 * axis] = low;
        node.bounds[2 * axis + 1] = high;
    }
    return node;
}

// Into the octants of the box, those without points left out. The result is their number.
size_t OctreeBuilder::divide(const RtSSSNode& node, const PointRange& range, PointRange parts[8])
{
    size_t count = 1;
    parts[0] = range;
    for (int axis = 0; axis < 3; ++axis) {
        // In double precision the middle of two floats lies between them.
        const double low = node.bounds[2 * axis], high = node.bounds[2 * axis + 1];
        const double middle = (low + high) / 2;
        const float RtPoint::*const coordinate = axes[axis];
        for (size_t i = count; i-- > 0;) {
            const PointRange part = parts[i];
            RtSSSPoint* const split =
                std::partition(part.begin, part.end, [=](const RtSSSPoint& p) {
                    return double(p.position.*coordinate) < middle;
                });
            if (split == part.begin || split == part.end)
                continue;
            parts[i] = { part.begin, split };
            parts[count++] = { split, part.end };
        }
    }
    if (count > 1)
        return count;
    for (size_t i = 0; i < 8; ++i)
        parts[i] = { range.begin + range.count() * i / 8,
                     range.begin + range.count() * (i + 1) / 8 };
    return 8;
}

void OctreeBuilder::build(size_t node, const PointRange& range)
{
    if (range.count() <= leaf_capacity) {
        nodes[node].point_count = uint16_t(range.count());
        nodes[node].first_point = uint32_t(range.begin - points.data());
        return;
    }
    PointRange parts[8];
    const size_t count = divide(nodes[node], range, parts);
    const size_t first = nodes.size();
    nodes[node].child_count = uint8_t(count);
    nodes[node].first_child = uint32_t(first);
    for (size_t i = 0; i < count; ++i)
        nodes.push_back(nodeAround(parts[i]));
    for (size_t i = 0; i < count; ++i)
        build(first + i, parts[i]);
}

void buildOctree(CheckedVector<RtSSSPoint>* points, CheckedVector<RtSSSNode>* nodes)
{
    nodes->clear();
    if (!points->empty())
        OctreeBuilder(points, nodes);
}

// ---- Traversal ----

static float squaredDistance(const RtPoint& p, const float bounds[6])
{
    const auto outside = [](float x, float low, float high) {
        return std::max(std::max(low - x, x - high), 0.0f);
    };
    const float x = outside(p.x, bounds[0], bounds[1]), y = outside(p.y, bounds[2], bounds[3]),
                z = outside(p.z, bounds[4], bounds[5]);
    return x * x + y * y + z * z;
}

// Each level halves the extent of a box, so that there are less than 280 of them between the
// largest and the smallest float, and a dozen more that divide points in one place. Below each
// level, seven siblings wait.
static constexpr size_t most_waiting = 2048;

// Calls visit(points, count) for the points of all leaves that reach within a distance of P. The
// distance may shrink between calls.
template <class Visit>
static void forLeavesNear(const RtSSSPointCloud& cloud, const RtPoint& P, const float& distance,
                          Visit visit)
{
    if (cloud.nodes.empty())
        return;
    uint32_t waiting[most_waiting];
    size_t count = 0;
    waiting[count++] = 0;
    while (count > 0) {
        const RtSSSNode& node = cloud.nodes[waiting[--count]];
        if (!(squaredDistance(P, node.bounds) <= distance * distance))
            continue;
        for (uint32_t i = 0; i < node.child_count; ++i)
            waiting[count++] = node.first_child + i;
        if (node.point_count)
            visit(cloud.points.data() + node.first_point, node.point_count);
    }
}

static float squaredDistance(const RtPoint& a, const RtPoint& b)
{
    const RtVector way = a - b;
    return dot(way, way);
}

// ---- Lookups ----

RtRGB scatteredLight(const RtSSSPointCloud& cloud, const RtPoint& P, const RtRGB& radius)
{
    ScatterKernel kernel(radius);
    const float reach = kernel.reach(), square = reach * reach;
    forLeavesNear(cloud, P, reach, [&](const RtSSSPoint* points, uint32_t count) {
        for (uint32_t i = 0; i < count; ++i) {
            const float d2 = squaredDistance(points[i].position, P);
            if (d2 < square)
                kernel.add(unpackLanes(points[i].irradiance), sqrtf(d2));
        }
        kernel.fold();
    });
    return kernel.total();
}

RtRGB nearestIrradiance(const RtSSSPointCloud& cloud, const RtPoint& P, float distance)
{
    const RtSSSPoint* nearest = nullptr;
    float least = distance;
    forLeavesNear(cloud, P, least, [&](const RtSSSPoint* points, uint32_t count) {
        for (uint32_t i = 0; i < count; ++i) {
            const float d = sqrtf(squaredDistance(points[i].position, P));
            if (d < least) {
                least = d;
                nearest = &points[i];
            }
        }
    });
    return nearest ? unpackIrradiance(nearest->irradiance) : RV_RGB_BLACK;
}

} // namespace rv
