// triangulate: quads along a diagonal, larger polygons by clipping ears.
//
// The walk over the corners is fixed: it starts at corner 0, an ear is cut off where it is met, and
// the next corner is the one after it. A corner that was found to be no ear can become one only
// when a neighbour of it is removed or, if another corner lies in its triangle, when that one is
// removed. So such corners are passed over until then, which changes nothing in the result: the
// corners still to be tried are "candidates", and each corner keeps a list of the ones that it
// blocks. When no candidate is left the walk would go round for ever, and the polygon is given up.
#include "objects/triangulate.h"

#include "maths.h"
#include "system/memory.h"

#include <algorithm>
#include <bit>
#include <math.h>

static const char* const module_path = "core\\src\\objects\\triangulate";

namespace rv {

static constexpr uint32_t none = PointTree::no_point;

// ---- Scratch ----

bool createTriangulateScratch(TriangulateScratch* scratch, uint32_t capacity)
{
    *scratch = {};
    const size_t n = capacity;
    size_t bytes = 0;
    // The offset of `count` elements more.
    const auto take = [&bytes](size_t count, size_t size) {
        const size_t offset = bytes;
        bytes += (count * size + 15) & ~size_t(15);
        return offset;
    };
    const size_t points = take(n, sizeof(RtPoint)), flat = take(n, sizeof(Point2d));
    const size_t corners = take(3 * n, sizeof(uint32_t));
    const size_t links = take(5 * n, sizeof(uint32_t)); // the five lists
    const size_t candidates = take((n + 63) / 64, sizeof(uint64_t));
    const size_t order = take(2 * n, sizeof(uint32_t));
    const size_t nodes = take(PointTree::nodeCount(capacity), sizeof(PointTree::Node));
    char* const base =
        static_cast<char*>(allocate(bytes, module_path, __LINE__, "RvPolyMeshTriangulate"));
    if (!base)
        return false;
    const auto words = [base](size_t offset) { return reinterpret_cast<uint32_t*>(base + offset); };
    scratch->capacity = capacity;
    scratch->block = base;
    scratch->points = reinterpret_cast<RtPoint*>(base + points);
    scratch->flat = reinterpret_cast<Point2d*>(base + flat);
    scratch->corners = words(corners);
    scratch->previous = words(links);
    scratch->next = scratch->previous + n;
    scratch->first_blocked = scratch->next + n;
    scratch->next_blocked = scratch->first_blocked + n;
    scratch->previous_blocked = scratch->next_blocked + n;
    scratch->candidates = reinterpret_cast<uint64_t*>(base + candidates);
    scratch->tree.order = words(order);
    scratch->tree.leaf_of = scratch->tree.order + n;
    scratch->tree.nodes = reinterpret_cast<PointTree::Node*>(base + nodes);
    return true;
}

void freeTriangulateScratch(TriangulateScratch* scratch)
{
    RvFree_func(scratch->block);
    *scratch = {};
}

// ---- The plane of a polygon ----

namespace {

struct Vec3d {
    double x, y, z;
};

} // namespace

static Vec3d difference(const RtPoint& a, const RtPoint& b)
{
    return { double(a.x) - b.x, double(a.y) - b.y, double(a.z) - b.z };
}

static double dot(const Vec3d& a, const Vec3d& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }

static Vec3d cross(const Vec3d& a, const Vec3d& b)
{
    return { a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x };
}

static bool isTiny(const Vec3d& v)
{
    return fabs(v.x) < 1e-10 && fabs(v.y) < 1e-10 && fabs(v.z) < 1e-10;
}

// A vector without length stays as it is.
static Vec3d normalized(const Vec3d& v)
{
    const double length = sqrt(dot(v, v));
    return length > 0 ? Vec3d{ v.x / length, v.y / length, v.z / length } : v;
}

// The axes of the plane that the most perpendicular pair of consecutive edges spans; the first
// such pair counts. False for a polygon without extent. Required: the pair alone decides which
// side the normal points to, so that one at a reflex corner turns the polygon over.
static bool findPlane(const RtPoint* points, uint32_t n, Vec3d* x_axis, Vec3d* y_axis)
{
    double best = 1e12;
    Vec3d first = {}, before = {}, normal = {};
    bool has_first = false;
    const auto considerPair = [&](const Vec3d& a, const Vec3d& b) {
        const double cosine = fabs(dot(a, b));
        if (cosine < best) {
            best = cosine;
            normal = normalized(cross(a, b));
            *x_axis = a;
        }
    };
    for (uint32_t i = 0; i < n; ++i) {
        const Vec3d edge = difference(points[i + 1 < n ? i + 1 : 0], points[i]);
        if (isTiny(edge))
            continue;
        const Vec3d direction = normalized(edge);
        if (has_first)
            considerPair(before, direction);
        else
            first = direction;
        has_first = true;
        before = direction;
    }
    if (has_first)
        considerPair(before, first);
    *y_axis = cross(normal, *x_axis);
    return !isTiny(normal);
}

// The corners in that plane. False for a polygon without extent, and for one that is not finite.
static bool flatten(const RtPoint* points, uint32_t n, Point2d* flat)
{
    Vec3d x_axis = {}, y_axis = {};
    if (!findPlane(points, n, &x_axis, &y_axis))
        return false;
    bool is_finite = true;
    for (uint32_t i = 0; i < n; ++i) {
        const Vec3d p = difference(points[i], points[0]);
        flat[i] = { dot(p, x_axis), dot(p, y_axis) };
        is_finite &= std::isfinite(flat[i].x) && std::isfinite(flat[i].y);
    }
    return is_finite;
}

// ---- Quads ----

// The only concave corner; -1 when there is none or more than one.
static int concaveCorner(const Point2d p[4])
{
    int found = -1;
    for (int c = 0; c < 4; ++c) {
        const Point2d &at = p[c], &before = p[(c + 3) & 3], &after = p[(c + 1) & 3];
        const double turn =
            (at.x - before.x) * (after.y - at.y) - (at.y - before.y) * (after.x - at.x);
        if (turn >= 0)
            continue;
        if (found >= 0)
            return -1;
        found = c;
    }
    return found;
}

void triangulateQuad(const RtPoint points[4], uint32_t corners[6])
{
    Point2d flat[4];
    const int concave = flatten(points, 4, flat) ? concaveCorner(flat) : -1;
    const uint32_t c = concave < 0 ? 0 : uint32_t(concave);
    const uint32_t split[6] = { c, c + 1, c + 2, c, c + 2, c + 3 };
    std::transform(split, split + 6, corners, [](uint32_t i) { return i & 3; });
}

// ---- Ears ----

namespace {

// The walk over one polygon.
struct EarWalk {
    const Point2d* p;
    uint32_t n;
    uint32_t remaining;
    TriangulateScratch* s;

    EarWalk(const Point2d* points, uint32_t count, TriangulateScratch* scratch);
    bool run(uint32_t* corners);

private:
    static constexpr uint32_t few_points = 24; // for which a search by tree does not pay

    bool isConvex(uint32_t i) const
    {
        return edgeSide(p[s->previous[i]], p[i], p[s->next[i]]) >= 0;
    }
    bool tryEar(uint32_t i);
    void remove(uint32_t i);
    uint32_t findInside(uint32_t a, uint32_t b, uint32_t c) const;
    uint32_t nextCandidate(uint32_t from) const;
    void mark(uint32_t i) { s->candidates[i / 64] |= uint64_t(1) << i % 64; }
    void unmark(uint32_t i) { s->candidates[i / 64] &= ~(uint64_t(1) << i % 64); }
    void block(uint32_t i, uint32_t by);
    void unblock(uint32_t i);
};

} // namespace

// Each list of blocked corners begins at first_blocked[by]. previous_blocked[i] is the corner
// before i in its list; for the first one it is the blocking corner itself plus n; none outside of
// lists.
EarWalk::EarWalk(const Point2d* points, uint32_t count, TriangulateScratch* scratch)
    : p(points), n(count), remaining(count), s(scratch)
{
    for (uint32_t i = 0; i < n; ++i) {
        s->previous[i] = i ? i - 1 : n - 1;
        s->next[i] = i + 1 < n ? i + 1 : 0;
    }
    std::fill_n(s->first_blocked, n, none);
    std::fill_n(s->previous_blocked, n, none);
    std::fill_n(s->candidates, (n + 63) / 64, uint64_t(0));
    for (uint32_t i = 0; i < n; ++i)
        mark(i);
    if (n > few_points)
        s->tree.build(points, n);
}

void EarWalk::block(uint32_t i, uint32_t by)
{
    const uint32_t head = s->first_blocked[by];
    s->first_blocked[by] = i;
    s->next_blocked[i] = head;
    s->previous_blocked[i] = by + n;
    if (head != none)
        s->previous_blocked[head] = i;
}

void EarWalk::unblock(uint32_t i)
{
    const uint32_t before = s->previous_blocked[i];
    if (before == none)
        return;
    const uint32_t after = s->next_blocked[i];
    (before >= n ? s->first_blocked[before - n] : s->next_blocked[before]) = after;
    if (after != none)
        s->previous_blocked[after] = before;
    s->previous_blocked[i] = none;
}

// The first candidate at or cyclically after a corner; none when there is no candidate.
uint32_t EarWalk::nextCandidate(uint32_t from) const
{
    const uint32_t words = (n + 63) / 64;
    uint32_t word = from / 64;
    uint64_t bits = s->candidates[word] >> from % 64 << from % 64;
    for (uint32_t visited = 0; !bits; ++visited) {
        if (visited == words)
            return none;
        word = word + 1 < words ? word + 1 : 0;
        bits = s->candidates[word];
    }
    return word * 64 + uint32_t(std::countr_zero(bits));
}

uint32_t EarWalk::findInside(uint32_t a, uint32_t b, uint32_t c) const
{
    if (n > few_points)
        return s->tree.findInside(a, b, c);
    for (uint32_t i = s->next[c]; i != a; i = s->next[i])
        if (edgeSide(p[a], p[b], p[i]) >= 0 && edgeSide(p[b], p[c], p[i]) >= 0 &&
            edgeSide(p[c], p[a], p[i]) >= 0)
            return i;
    return none;
}

// True for an ear; other corners are no candidates for now.
bool EarWalk::tryEar(uint32_t i)
{
    unblock(i);
    unmark(i);
    if (!isConvex(i))
        return false;
    const uint32_t inside = remaining > 3 ? findInside(s->previous[i], i, s->next[i]) : none;
    if (inside == none)
        return true;
    block(i, inside);
    return false;
}

void EarWalk::remove(uint32_t i)
{
    const uint32_t before = s->previous[i], after = s->next[i];
    s->next[before] = after;
    s->previous[after] = before;
    --remaining;
    if (n > few_points)
        s->tree.remove(i);
    mark(before);
    mark(after);
    while (s->first_blocked[i] != none) {
        const uint32_t freed = s->first_blocked[i];
        unblock(freed);
        mark(freed);
    }
    if (remaining == 3) // the last triangle is not searched: blocked corners count again
        for (uint32_t c : { before, after, s->next[after] })
            mark(c);
}

bool EarWalk::run(uint32_t* corners)
{
    for (uint32_t at = 0; remaining > 2;) {
        const uint32_t i = nextCandidate(at);
        if (i == none)
            return false;
        at = s->next[i];
        if (!tryEar(i))
            continue;
        *corners++ = s->previous[i];
        *corners++ = i;
        *corners++ = s->next[i];
        remove(i);
    }
    return true;
}

bool triangulate2d(const Point2d* points, uint32_t n, TriangulateScratch* scratch,
                   uint32_t* corners)
{
    return EarWalk(points, n, scratch).run(corners);
}

bool triangulate3d(const RtPoint* points, uint32_t n, TriangulateScratch* scratch,
                   uint32_t* corners)
{
    return flatten(points, n, scratch->flat) && triangulate2d(scratch->flat, n, scratch, corners);
}

} // namespace rv
