// blocker_shapes: where the shapes of light blockers are dense. Declared by blocker_shapes.h.
//
// Everything is a product of smooth steps over soft edges, in double precision: a hard edge is a
// step over 2e-5, and light from far away makes Q large.
#include "lights/blocker_shapes.h"

#include <algorithm>

namespace rv {

// What is not a number counts as 0.
static double clampToUnit(double x) { return x > 0 ? std::min(x, 1.0) : 0; }

// ---- Edges ----

// Where a soft edge starts and ends.
struct Edge {
    double lo, hi;
};

// The outline lies at 0.5; the edge lies to that side of it which the parameter says.
static double edgePosition(float parameter) { return std::max(double(parameter), -0.5) + 0.5; }
static Edge edgeAt(double position) { return { std::min(position, 0.5), std::max(position, 0.5) }; }
static Edge widthEdge(const BlockerSettings& s) { return edgeAt(edgePosition(s.width_edge)); }
static Edge heightEdge(const BlockerSettings& s) { return edgeAt(edgePosition(s.height_edge)); }

// 0 before the edge, 1 behind.
static double smoothstep(double t, const Edge& edge)
{
    if (t < edge.lo)
        return 0;
    if (t > edge.hi)
        return 1;
    const double x = clampToUnit((t - edge.lo) / (edge.hi - edge.lo));
    return x * x * (3 - 2 * x);
}

// 1 in front of the edge.
static double inFront(double t, const Edge& edge) { return 1 - smoothstep(t, edge); }
// 1 between the edge and its mirror image.
static double between(double t, const Edge& edge) { return inFront(t, edge) * inFront(-t, edge); }

// ---- Ramps ----

// Along an axis; t is the position on it, 0 to 1.
static double linearRamp(float ramp, double t)
{
    const double k = double(ramp), at = clampToUnit(t);
    if (k > 0)
        return clampToUnit(at / k);
    return k < 0 ? 1 - clampToUnit((at - 1 - k) / -k) : 1;
}

// Away from the centre, up to the outer radius.
static double radialRamp(float ramp, double radius, double outer)
{
    const double k = double(ramp);
    if (k < 0)
        return clampToUnit(radius / (-k * outer));
    const double start = (1 - k) * outer;
    return k > 0 ? 1 - clampToUnit((radius - start) / (outer - start)) : 1;
}

// From one side of a shape to the other.
static double across(double x, double half_size) { return (x + half_size) / (2 * half_size); }

// ---- Shapes ----

static Blocking byBox(const BlockerSettings& s, const RtPoint& P)
{
    constexpr double margin = 1e-5;
    const auto widened = [](const Edge& e) { return Edge{ e.lo - margin, e.hi + margin }; };
    const Edge width = widened(widthEdge(s)), height = widened(heightEdge(s));
    const double x = double(P.x), y = double(P.y), z = double(P.z);
    double t = 0; // Required: also for the axes X, Y and Z.
    switch (s.ramp_axis) {
    case 0: t = across(x, width.hi); break;
    case 1: t = across(y, height.hi); break;
    case 2: t = across(z, width.hi); break;
    default: break;
    }
    return { 1 - between(x, width) * between(z, width) * between(y, height),
             linearRamp(s.ramp, t) };
}

static Blocking bySphere(const BlockerSettings& s, const RtPoint& P)
{
    const double radius = std::hypot(double(P.x), double(P.y), double(P.z));
    const Edge edge = edgeAt((edgePosition(s.width_edge) + edgePosition(s.height_edge)) / 2);
    return { smoothstep(radius, edge), radialRamp(s.ramp, radius, edge.hi) };
}

static Blocking byCylinder(const BlockerSettings& s, const RtPoint& P)
{
    const double radius = std::hypot(double(P.x), double(P.z)), y = double(P.y);
    const Edge width = widthEdge(s), height = heightEdge(s);
    const bool is_radial = s.ramp_axis == 0 || s.ramp_axis == 2;
    return { 1 - inFront(radius, width) * between(y, height),
             is_radial ? radialRamp(s.ramp, radius, width.hi)
                       : linearRamp(s.ramp, across(y, height.hi)) };
}

// Distance of a point from the centre in units of the superellipse |x / a|^e + |y / b|^e = 1 in its
// direction. Infinite beside one without extent.
static double superellipseDistance(double x, double y, double a, double b, double e)
{
    const double u = std::fabs(x) / a, v = std::fabs(y) / b;
    const double larger = std::max(u, v), smaller = std::min(u, v);
    return larger > 0 ? larger * std::pow(1 + std::pow(smaller / larger, e), 1 / e) : 0;
}

// 0 inside of the inner outline, 1 outside of the outer one. Between them the edge follows the way
// out from the centre.
static double outsideRounded(double x, double y, const Edge& width, const Edge& height,
                             double roundness)
{
    constexpr double least = 1e-6, most = 0.9999;
    if (roundness < least)
        return 1 - between(x, width) * between(y, height);
    const double exponent = roundness > most ? 2 : 2 / roundness;
    const double outer = superellipseDistance(x, y, width.hi, height.hi, exponent);
    if (!(outer > 0))
        return 0;
    const bool has_core = width.lo > 0 && height.lo > 0;
    const double inner =
        has_core ? superellipseDistance(x, y, width.lo, height.lo, exponent) : HUGE_VAL;
    return smoothstep(1, { 1 / inner, 1 / outer });
}

static Blocking byPlane(const BlockerSettings& s, const RtPoint& P, const RtPoint& Q)
{
    const double pz = double(P.z), qz = double(Q.z);
    if (!((pz < 0 && qz > 0) || (pz > 0 && qz < 0)))
        return { 1, 1 };
    const double t = -pz / (pz - qz);
    const double x = double(P.x) + (double(P.x) - double(Q.x)) * t;
    const double y = double(P.y) + (double(P.y) - double(Q.y)) * t;
    const Edge width = widthEdge(s), height = heightEdge(s);
    // Required: along y the ramp is not centred as it is along x.
    const double along = s.ramp_axis == 0 ? across(x, width.hi) : height.hi + y / (2 * height.hi);
    return { outsideRounded(x, y, width, height, double(s.roundness)), linearRamp(s.ramp, along) };
}

Blocking blockingAt(const BlockerSettings& settings, const RtPoint& P, const RtPoint& Q)
{
    switch (settings.geometry_type) {
    case blocker_box: return byBox(settings, P);
    case blocker_sphere: return bySphere(settings, P);
    case blocker_plane: return byPlane(settings, P, Q);
    case blocker_cylinder: return byCylinder(settings, P);
    default: return { 1, 1 };
    }
}

double blockerPassing(const Blocking& at, double density)
{
    if (density > 0)
        return 1 - (1 - at.outside) * std::min(density, 1.0) * at.ramp;
    if (density < 0) // blocks the light outside of the shape
        return (1 - std::min(-density, 1.0) * at.outside) * at.ramp;
    return 1;
}

} // namespace rv
