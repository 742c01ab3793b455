// bump: contexts beside a shading point, and normals bent by the differences of a height between
// them (rv_shaderglobals.h).
#include "bump.h"

#include "finite.h"
#include "hit_context.h"
#include "maths.h"
#include "rv_brdf.h"
#include "shaderglobals.h"
#include "vec3d.h"

#include <math.h>

namespace rv {

static constexpr float offset = 1e-5f; // world units, or units of a triangle's u and v

static bool exceeds(const RtVector& v, float limit)
{
    return fabsf(v.x) >= limit || fabsf(v.y) >= limit || fabsf(v.z) >= limit;
}

static RtVector across(const RtVector& v, const RtVector& normal)
{
    return v - normal * dot(v, normal);
}

// Two vectors along the surface at right angles to the shading normal.
struct Tangents {
    RtVector u, v;
};

static bool areUsable(const Tangents& t)
{
    static constexpr float degenerate = 1e-6f;
    return isFinite(t.u) && isFinite(t.v) && exceeds(t.u, degenerate) && exceeds(t.v, degenerate);
}

static Tangents unitTangents(const RtShaderGlobals& sg)
{
    return { unit(across(sg.dPdu, sg.normal)), unit(across(sg.dPdv, sg.normal)) };
}

static void moveTo(RtShaderGlobals* sg, const RtPoint& point)
{
    sg->point = point;
    RvM4PointByMatrixMult(&sg->object_point, &sg->world_to_object, &point);
}

// A state of its own for the copy of a context; null leaves it without one.
static void renewState(RtShaderGlobals* copy, RtShadingState* state, const RtShaderGlobals& sg)
{
    copy->state = state;
    if (!state)
        return;
    resetState(state, &sg);
    if (sg.state) {
        state->user_data = sg.state->user_data;
        state->uncounted = sg.state->uncounted;
    }
}

static void copyContext(RtShaderGlobals* copy, const RtShaderGlobals& sg)
{
    *copy = sg;
    renewState(copy,
               static_cast<RtShadingState*>(RvShaderGlobalsQuickAlloc(&sg, sizeof(RtShadingState))),
               sg);
}

ContextCopy::ContextCopy(const RtShaderGlobals& original) : sg(original)
{
    renewState(&sg, original.state ? &state : nullptr, original);
}

static void step(RtShaderGlobals* sg, const RtVector& tangent)
{
    moveTo(sg, sg->point + tangent * offset);
}

// ---- Heights beside the point ----

// Heights at a distance to both sides along two directions.
class Heights {
public:
    Heights(const RtShaderGlobals& at, RtBumpHeightFunc function, void* user)
        : sg(at), height(function), data(user)
    {
    }

    // At a place on the surface that `move` moves a context to.
    template <class Move> double at(const Move& move) const
    {
        ContextCopy beside(sg);
        move(&beside.sg);
        return double(height(&beside.sg, data));
    }
    // The slope of the height along a direction.
    template <class Move> double slope(const Move& move) const
    {
        const double ahead = at([&](RtShaderGlobals* beside) { move(beside, offset); });
        const double behind = at([&](RtShaderGlobals* beside) { move(beside, -offset); });
        return (ahead - behind) / (2 * double(offset));
    }

private:
    const RtShaderGlobals& sg;
    const RtBumpHeightFunc height;
    void* const data;
};

// The normal of a surface with those slopes along the tangents, on the side of the present one.
static RtVector bentNormal(const RtVector& normal, const Tangents& t, double slope_u,
                           double slope_v)
{
    static constexpr double degenerate = 1e-12;
    if (slope_u == 0 && slope_v == 0)
        return normal;
    const Vec3d up = vec3d(normal);
    const Vec3d n = cross(vec3d(t.u) + up * slope_u, vec3d(t.v) + up * slope_v);
    const double size = length(n);
    if (!isfinite(size) ||
        (fabs(n.x) < degenerate && fabs(n.y) < degenerate && fabs(n.z) < degenerate))
        return normal;
    return single(n * ((dot(n, up) < 0 ? -1 : 1) / size));
}

// ---- On any surface ----

static void moveAlong(RtShaderGlobals* sg, const RtVector& tangent, float distance)
{
    const RtVector step = tangent * distance;
    moveTo(sg, sg->point + step);
    float du, dv;
    decompose(sg->dPdu, sg->dPdv, step, &du, &dv);
    sg->u += du;
    sg->v += dv;
}

// Shapes without texture coordinates have no derivatives either; any two directions will do.
static Tangents anyTangents(const RtShaderGlobals& sg)
{
    Tangents t = unitTangents(sg);
    if (!areUsable(t))
        RvBuildLocalFramePolar(&t.u, &t.v, &sg.normal);
    return t;
}

static RtVector bumpSurface(const RtShaderGlobals& sg, const Heights& heights)
{
    const Tangents t = anyTangents(sg);
    if (!areUsable(t))
        return sg.normal;
    const auto along = [](const RtVector& tangent) {
        return [tangent](RtShaderGlobals* beside, float distance) {
            moveAlong(beside, tangent, distance);
        };
    };
    return bentNormal(sg.normal, t, heights.slope(along(t.u)), heights.slope(along(t.v)));
}

// ---- On triangles ----

static RtGObject* hitMesh(const RtShaderGlobals& sg)
{
    RtGObject* const object = shapeObject(sg.object);
    const bool is_mesh = object && object->kind == RV_KIND_POLYMESH && object->data &&
                         sg.prim_index < meshOf(object)->ntriangles;
    return is_mesh ? object : nullptr;
}

static void moveOnTriangle(RtShaderGlobals* sg, RtGObject* mesh, const RtPoint corners[3], float du,
                           float dv)
{
    sg->bary_u += du;
    sg->bary_v += dv;
    moveHit(sg, mesh,
            corners[0] * (1 - sg->bary_u - sg->bary_v) + corners[1] * sg->bary_u +
                corners[2] * sg->bary_v);
}

static RtVector bumpTriangle(const RtShaderGlobals& sg, RtGObject* mesh, const Heights& heights)
{
    RtPoint corners[3];
    MeshVertices(mesh, sg.time).ofTriangle(sg.prim_index, corners);
    const auto edge = [&](int corner) {
        return RvShaderGlobalsTransformVector(&sg, corners[corner] - corners[0],
                                              RV_OBJECT_TO_WORLD);
    };
    // The height changes the tangents of the smooth surface, not those of the facet.
    const Tangents t = { across(edge(1), sg.normal), across(edge(2), sg.normal) };
    const double slope_u = heights.slope(
        [&](RtShaderGlobals* beside, float d) { moveOnTriangle(beside, mesh, corners, d, 0); });
    const double slope_v = heights.slope(
        [&](RtShaderGlobals* beside, float d) { moveOnTriangle(beside, mesh, corners, 0, d); });
    return bentNormal(sg.normal, t, slope_u, slope_v);
}

} // namespace rv

void RvShaderGlobalsGetBumpStates(const RtShaderGlobals* sg, RtShaderGlobals* sg_du,
                                  RtShaderGlobals* sg_dv)
{
    if (!sg || !sg_du || !sg_dv)
        return;
    const RtShaderGlobals here = *sg; // either copy may be the context itself
    rv::copyContext(sg_du, here);
    rv::copyContext(sg_dv, here);
    const rv::Tangents t = rv::unitTangents(here);
    if (!rv::areUsable(t))
        return;
    rv::step(sg_du, t.u);
    rv::step(sg_dv, t.v);
}

RtVector RvShaderGlobalsEvaluateBump(const RtShaderGlobals* sg, RtBumpHeightFunc height, void* data)
{
    if (!sg)
        return RV_V3_ZERO;
    if (!height)
        return sg->normal;
    const rv::Heights heights(*sg, height, data);
    RtGObject* const mesh = rv::hitMesh(*sg);
    return mesh ? rv::bumpTriangle(*sg, mesh, heights) : rv::bumpSurface(*sg, heights);
}
