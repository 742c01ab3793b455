// What the tests of shapes share: shapes made ready for rendering, rays shot at their intersectors,
// and a reference that finds the crossings of a surface numerically.
#ifndef RV_SHAPE_TOOLS_H
#define RV_SHAPE_TOOLS_H

#include "golden.h"
#include "node_tools.h"
#include "objects/gobject.h"
#include "rv_rays.h"

#include <algorithm>
#include <functional>
#include <math.h>
#include <random>

namespace shape_tools {

using nlohmann::json;

// ---- Vectors ----

struct Double3 {
    double x, y, z;
};
inline Double3 operator+(Double3 a, Double3 b) { return { a.x + b.x, a.y + b.y, a.z + b.z }; }
inline Double3 operator-(Double3 a, Double3 b) { return { a.x - b.x, a.y - b.y, a.z - b.z }; }
inline Double3 operator*(Double3 a, double s) { return { a.x * s, a.y * s, a.z * s }; }
inline double dot(Double3 a, Double3 b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
inline double length(Double3 a) { return sqrt(dot(a, a)); }
inline Double3 normalized(Double3 a) { return a * (1 / length(a)); }
inline Double3 double3(const RtPoint& p) { return { p.x, p.y, p.z }; }

inline RtPoint pointOf(const json& numbers)
{
    const std::vector<float> v = goldenFloats(numbers);
    return { v.at(0), v.at(1), v.at(2) };
}
inline std::vector<float> numbersOf(const RtVector& v) { return { v.x, v.y, v.z }; }

// ---- Rays ----

struct ShotRay {
    RtPoint origin;
    RtVector dir;
    float mindist = 0;
    float maxdist = 1e30f;
    float time = 0;
    bool leaves_shape = false;
    uint16_t type = RV_RAY_REFLECTED;
};

inline RtPoint pointAt(const ShotRay& ray, double t)
{
    return { float(ray.origin.x + ray.dir.x * t), float(ray.origin.y + ray.dir.y * t),
             float(ray.origin.z + ray.dir.z * t) };
}

inline RtObjectRay objectRay(const ShotRay& ray)
{
    return { ray.origin, ray.dir, ray.mindist, ray.time, ray.leaves_shape ? 0 : rv_no_primitive };
}

// ---- Fixture ----

class Shapes : public Universe {
protected:
    // A shape that keeps all hits of a ray.
    static RtNode* shape(const char* type)
    {
        RtNode* const node = RvNode(type);
        if (!RvNodeLookUpByName("it"))
            RvNodeSetStr(node, "name", "it");
        RvNodeSetBool(node, "opaque", false);
        return node;
    }

    static void set(RtNode* node, const char* param, const RtPoint& p)
    {
        const RtParamEntry* const entry = RvNodeEntryLookUpParameter(node->entry, param);
        (RvParamGetType(entry) == RV_TYPE_VECTOR ? RvNodeSetVec : RvNodeSetPnt)(node, param, p.x,
                                                                                p.y, p.z);
    }
    static void set(RtNode* node, const char* param, const json& value)
    {
        if (value.is_array())
            set(node, param, pointOf(value));
        else
            RvNodeSetFlt(node, param, goldenFloat(value));
    }
    // The parameters that a golden vector gives.
    static void setAll(RtNode* node, const json& in, std::initializer_list<const char*> params)
    {
        for (const char* param : params)
            if (in.contains(param))
                set(node, param, in.at(param));
    }

    // The object of a node, made now; null when the node refuses.
    static RtGObject* prepared(RtNode* node)
    {
        rv::RvNodeInitialize(node);
        return rv::objectOf(node);
    }

    // All hits of a ray in the shape's own space, nearest first.
    static std::vector<RtHit> shoot(RtNode* node, const ShotRay& ray)
    {
        RtGObject* const object = rv::objectOf(node);
        if (!object) {
            ADD_FAILURE() << "no object";
            return {};
        }
        RvGObjectBuildAccel(node, 0);
        const RtAccel* const accel = object->accel;
        if (!accel) {
            ADD_FAILURE() << "no structure";
            return {};
        }
        std::vector<RtHit> entries(16);
        RtHitList hits = {};
        hits.capacity = uint32_t(entries.size());
        hits.maxdist = ray.maxdist;
        hits.flags = &rv::shapeParams(node);
        hits.hits = entries.data();
        RtTraversal traversal = {};
        traversal.ray_type = ray.type;
        traversal.from_prim = rv_no_primitive;
        accel->intersect(object, traversal, objectRay(ray), hits);
        entries.resize(hits.count);
        return entries;
    }
    static std::vector<float> distances(RtNode* node, const ShotRay& ray)
    {
        std::vector<float> all;
        for (const RtHit& hit : shoot(node, ray))
            all.push_back(hit.t);
        return all;
    }

    // The geometry at a point; what a shape leaves alone stays as in `before`.
    static RtLocalGeometry geometryAt(RtNode* node, const RtPoint& point, float time = 0,
                                      const RtLocalGeometry& before = {})
    {
        RtHit hit = {};
        hit.object = rv::objectOf(node);
        const RtVector dir = { 0, 0, -1 };
        RtLocalGeometry geometry = before;
        rv::shapeMethods(node).ShapeLocalGeometry(&dir, time, nullptr, &hit, &point, &geometry);
        return geometry;
    }

    static RtBBox boundsOf(RtNode* node, int key = -1)
    {
        RtBBox box = {};
        rv::shapeMethods(node).ShapeBBox(rv::objectOf(node), &box, key);
        return box;
    }
};

// ---- Golden vectors ----

// The lists "hits" of a vector: distances, or records with t, u and v.
inline void expectGoldenHits(const json& vector, const std::vector<RtHit>& got)
{
    json flat = vector;
    std::vector<float> numbers;
    json& want = flat["out"]["hits"];
    ASSERT_EQ(want.size(), got.size()) << goldenId(vector);
    json want_numbers = json::array();
    for (size_t i = 0; i < got.size(); ++i) {
        numbers.push_back(got[i].t);
        if (!want[i].is_object()) {
            want_numbers.push_back(want[i]);
            continue;
        }
        numbers.insert(numbers.end(), { got[i].u, got[i].v });
        for (const char* key : { "t", "u", "v" })
            want_numbers.push_back(want[i].at(key));
    }
    want = want_numbers;
    expectGoldenNumbers(flat, "hits", numbers);
}

// ---- Numeric reference ----

// Where a function of the distance along a ray changes its sign, by dense sampling and bisection.
// Pairs of crossings between two samples are found through the extremum between them.
class Crossings {
public:
    // The function changes by at most `steepness` times the way.
    Crossings(std::function<double(double)> function, double steepness, double begin, double end)
        : f(std::move(function))
    {
        static constexpr int count = 600;
        const double step = (end - begin) / count;
        for (int i = 0; i < count; ++i)
            search(begin + i * step, begin + (i + 1) * step, steepness * step);
    }
    std::vector<double> roots;

private:
    static bool signsDiffer(double a, double b) { return (a < 0) != (b < 0); }

    void bisect(double a, double b)
    {
        for (int i = 0; i < 60; ++i) {
            const double middle = (a + b) / 2;
            (signsDiffer(f(a), f(middle)) ? b : a) = middle;
        }
        roots.push_back((a + b) / 2);
    }

    void search(double a, double b, double largest_change)
    {
        const double start = f(a);
        if (signsDiffer(start, f(b))) {
            bisect(a, b);
            return;
        }
        if (fabs(start) > largest_change)
            return;
        const double side = start < 0 ? -1 : 1;
        double low = a, high = b; // around the point nearest to zero
        for (int i = 0; i < 60; ++i) {
            const double left = low + (high - low) / 3, right = high - (high - low) / 3;
            (side * f(left) < side * f(right) ? high : low) =
                side * f(left) < side * f(right) ? right : left;
        }
        const double extremum = (low + high) / 2;
        if (signsDiffer(f(a), f(extremum))) {
            bisect(a, extremum);
            bisect(extremum, b);
        }
    }

    std::function<double(double)> f;
};

// A surface as the zeros of a function of slope 3 at most, cut where `margin` is negative.
struct Surface {
    std::function<double(Double3)> value;
    std::function<double(Double3)> margin = [](Double3) { return 1.0; };

    Double3 gradient(Double3 p) const
    {
        static constexpr double h = 1e-6;
        const auto slope = [&](Double3 d) { return value(p + d * h) - value(p - d * h); };
        return normalized({ slope({ 1, 0, 0 }), slope({ 0, 1, 0 }), slope({ 0, 0, 1 }) });
    }
};

// Random rays from around the origin to around it.
class RandomRays {
public:
    ShotRay next()
    {
        const RtPoint from = point(4), to = point(1.5f);
        return { from, { to.x - from.x, to.y - from.y, to.z - from.z } };
    }
    RtPoint point(float extent) { return { number(extent), number(extent), number(extent) }; }
    float number(float extent)
    {
        return std::uniform_real_distribution<float>(-extent, extent)(generator);
    }

private:
    std::mt19937 generator{ 1 };
};

} // namespace shape_tools

// Rays against the numeric reference. Every hit must be one of its crossings, no crossing may be
// missing, and the normals must be those of the surface.
class ShapesByNumbers : public shape_tools::Shapes {
protected:
    void expectSurface(RtNode* node, const shape_tools::Surface& surface, int rays = 400)
    {
        using namespace shape_tools;
        static constexpr double end = 4, borderline = 1e-4;
        RandomRays random;
        int compared = 0, with_hits = 0;
        for (int i = 0; i < rays; ++i) {
            ShotRay ray = random.next();
            ray.maxdist = end;
            const auto at = [&ray](double t) { return double3(ray.origin) + double3(ray.dir) * t; };
            const Crossings crossings([&](double t) { return surface.value(at(t)); },
                                      3 * length(double3(ray.dir)), 1e-6, end);
            std::vector<double> want;
            bool is_borderline = false;
            for (double t : crossings.roots) {
                is_borderline |= fabs(surface.margin(at(t))) < borderline;
                if (surface.margin(at(t)) >= 0)
                    want.push_back(t);
            }
            for (size_t k = 1; k < crossings.roots.size(); ++k)
                is_borderline |= crossings.roots[k] - crossings.roots[k - 1] < borderline;
            if (is_borderline)
                continue;
            ++compared;
            with_hits += !want.empty();
            const std::vector<RtHit> got = shoot(node, ray);
            ASSERT_EQ(got.size(), want.size()) << "ray " << i;
            for (size_t k = 0; k < got.size(); ++k) {
                ASSERT_NEAR(got[k].t, want[k], 1e-5 * (1 + want[k])) << "ray " << i;
                const RtPoint point = pointAt(ray, want[k]);
                const Double3 normal = double3(geometryAt(node, point).Ng);
                const Double3 gradient = surface.gradient(at(want[k]));
                ASSERT_NEAR(length(normal), 1, 1e-5) << "ray " << i;
                ASSERT_NEAR(dot(normal, gradient), 1, 1e-5) << "ray " << i;
            }
        }
        EXPECT_GT(compared, rays * 9 / 10);
        EXPECT_GT(with_hits, rays / 20);
    }
};

#endif
