// maths: the value types of rv_math.h: their constants, matrices, colour helpers and boxes, and the
// names and sizes of the type codes. Pure functions: no state, no allocation, any thread.
#include "maths.h"

#include "msg.h"
#include "rv_params.h"

const RtRGB RV_RGB_BLACK = { 0, 0, 0 };
const RtRGB RV_RGB_WHITE = { 1, 1, 1 };
const RtRGB RV_RGB_RED = { 1, 0, 0 };
const RtRGB RV_RGB_GREEN = { 0, 1, 0 };
const RtRGB RV_RGB_BLUE = { 0, 0, 1 };
const RtRGB RV_RGB_50GREY = { 0.5f, 0.5f, 0.5f };

const RtRGBA RV_RGBA_BLACK = { 0, 0, 0, 0 }; // Required: transparent, unlike the others
const RtRGBA RV_RGBA_WHITE = { 1, 1, 1, 1 };
const RtRGBA RV_RGBA_RED = { 1, 0, 0, 1 };
const RtRGBA RV_RGBA_GREEN = { 0, 1, 0, 1 };
const RtRGBA RV_RGBA_BLUE = { 0, 0, 1, 1 };
const RtRGBA RV_RGBA_50GREY = { 0.5f, 0.5f, 0.5f, 1 };

const RtVector RV_V3_ZERO = { 0, 0, 0 };
const RtVector RV_V3_ONE = { 1, 1, 1 };
const RtVector RV_V3_HALF = { 0.5f, 0.5f, 0.5f };
const RtVector RV_V3_X = { 1, 0, 0 };
const RtVector RV_V3_Y = { 0, 1, 0 };
const RtVector RV_V3_Z = { 0, 0, 1 };
const RtVector RV_V3_NEGX = { -1, 0, 0 };
const RtVector RV_V3_NEGY = { 0, -1, 0 };
const RtVector RV_V3_NEGZ = { 0, 0, -1 };

const RtPoint RV_P3_ZERO = { 0, 0, 0 };
const RtPoint2 RV_P2_ZERO = { 0, 0 };
const RtPoint2 RV_P2_ONE = { 1, 1 };

const RtMatrix RV_M4_IDENTITY = {
    { { 1, 0, 0, 0 }, { 0, 1, 0, 0 }, { 0, 0, 1, 0 }, { 0, 0, 0, 1 } }
};
const RtMatrix RV_M4_ZERO = {};

const RtBBox RV_BBOX_ZERO = { { 0, 0, 0 }, { 0, 0, 0 } };
const RtBBox RV_BBOX_UNIT = { { 0, 0, 0 }, { 1, 1, 1 } };

// ---- Type codes ----

namespace rv {

const char* silentTypeName(int type)
{
    if (type == RV_TYPE_NONE)
        return "UNDEFINED";
    return isStoredType(type) && type != RV_TYPE_ENUM ? type_table[type].name : nullptr;
}

} // namespace rv

const char* RvParamGetTypeName(int type)
{
    if (rv::isStoredType(type))
        return rv::type_table[type].name;
    if (type != RV_TYPE_NONE)
        RvMsgWarning("RvParamGetTypeName: invalid type %d", type);
    return nullptr;
}

int RvParamGetTypeSize(int type)
{
    if (!rv::isStoredType(type))
        RvMsgError("RvParamGetTypeSize: unknown data type %d!", type);
    return static_cast<int>(rv::typeSize(type));
}

// ---- Matrices ----

void RvM4Identity(RtMatrix* out) { *out = RV_M4_IDENTITY; }

void RvM4Copy(RtMatrix* dest, const RtMatrix* src)
{
    if (dest && src && dest != src)
        *dest = *src;
}

void RvM4Translation(RtMatrix* out, const RtVector* t)
{
    *out = { { { 1, 0, 0, 0 }, { 0, 1, 0, 0 }, { 0, 0, 1, 0 }, { t->x, t->y, t->z, 1 } } };
}

void RvM4Scaling(RtMatrix* out, const RtVector* s)
{
    *out = { { { s->x, 0, 0, 0 }, { 0, s->y, 0, 0 }, { 0, 0, s->z, 0 }, { 0, 0, 0, 1 } } };
}

// Rotation in the plane of two axes, with the positive sine at [a][b], a < b.
static void rotationInPlane(RtMatrix* out, float degrees, int a, int b)
{
    const double radians = degrees * 0.0174532925199433;
    const float sine = static_cast<float>(sin(radians));
    const float cosine = static_cast<float>(cos(radians));
    *out = RV_M4_IDENTITY;
    out->m[a][a] = out->m[b][b] = cosine;
    out->m[a][b] = sine;
    out->m[b][a] = -sine;
}

void RvM4RotationX(RtMatrix* out, float degrees) { rotationInPlane(out, degrees, 1, 2); }

// Required: the positive sine stands above the diagonal here too, so that this rotation turns the
// opposite way to the other two.
void RvM4RotationY(RtMatrix* out, float degrees) { rotationInPlane(out, degrees, 0, 2); }

void RvM4RotationZ(RtMatrix* out, float degrees) { rotationInPlane(out, degrees, 0, 1); }

void RvM4Mult(RtMatrix* out, const RtMatrix* a, const RtMatrix* b)
{
    RtMatrix product = RV_M4_ZERO; // out may be a or b
    for (int i = 0; i < 4; ++i)
        for (int k = 0; k < 4; ++k)
            for (int j = 0; j < 4; ++j)
                product.m[i][j] += a->m[i][k] * b->m[k][j];
    *out = product;
}

void RvM4Frame(RtMatrix* out, const RtPoint* origin, const RtVector* u, const RtVector* v,
               const RtVector* w)
{
    RtMatrix translation;
    RvM4Translation(&translation, origin);
    const RtMatrix rotation = { { { u->x, v->x, w->x, 0 },
                                  { u->y, v->y, w->y, 0 },
                                  { u->z, v->z, w->z, 0 },
                                  { 0, 0, 0, 1 } } };
    RvM4Mult(out, &translation, &rotation);
}

void RvM4Transpose(const RtMatrix* in, RtMatrix* out)
{
    const RtMatrix m = *in; // out may be in
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            out->m[j][i] = m.m[i][j];
}

// Signed determinant of the 3x3 matrix that is left without one row and one column.
static float cofactor(const RtMatrix& matrix, int row, int column)
{
    const auto& m = matrix.m;
    const int r0 = row < 1 ? 1 : 0, r1 = row < 2 ? 2 : 1, r2 = row < 3 ? 3 : 2;
    const int c0 = column < 1 ? 1 : 0, c1 = column < 2 ? 2 : 1, c2 = column < 3 ? 3 : 2;
    const float minor = m[r0][c0] * (m[r1][c1] * m[r2][c2] - m[r1][c2] * m[r2][c1]) -
                        m[r0][c1] * (m[r1][c0] * m[r2][c2] - m[r1][c2] * m[r2][c0]) +
                        m[r0][c2] * (m[r1][c0] * m[r2][c1] - m[r1][c1] * m[r2][c0]);
    return (row + column) & 1 ? -minor : minor;
}

void RvM4Invert(const RtMatrix* in, RtMatrix* out)
{
    RtMatrix adjugate; // out, which may be in, is written last
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            adjugate.m[j][i] = cofactor(*in, i, j);
    float determinant = 0;
    for (int j = 0; j < 4; ++j)
        determinant += in->m[0][j] * adjugate.m[j][0];
    const float scale = 1 / determinant;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            out->m[i][j] = adjugate.m[i][j] * scale;
}

float RvM4Determinant(const RtMatrix* m)
{
    float determinant = 0;
    for (int j = 0; j < 4; ++j)
        determinant += m->m[0][j] * cofactor(*m, 0, j);
    return determinant;
}

bool RvM4IsSingular(const RtMatrix* m)
{
    return fabs(static_cast<double>(RvM4Determinant(m))) < 1e-8;
}

bool RvM4IsIdentity(const RtMatrix* m)
{
    bool equal = true;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            equal &= m->m[i][j] == RV_M4_IDENTITY.m[i][j];
    return equal;
}

void RvM4Lerp(RtMatrix* out, float t, const RtMatrix* a, const RtMatrix* b)
{
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            out->m[i][j] = (1 - t) * a->m[i][j] + t * b->m[i][j];
}

void RvM4Berp(float u, float v, const RtMatrix* a, const RtMatrix* b, const RtMatrix* c,
              RtMatrix* out)
{
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            out->m[i][j] = (1 - u - v) * a->m[i][j] + u * b->m[i][j] + v * c->m[i][j];
}

void RvM4PointByMatrixMult(RtPoint* out, const RtMatrix* m, const RtPoint* p)
{
    const RtPoint q = *p; // out may be p
    out->x = q.x * m->m[0][0] + q.y * m->m[1][0] + q.z * m->m[2][0] + m->m[3][0];
    out->y = q.x * m->m[0][1] + q.y * m->m[1][1] + q.z * m->m[2][1] + m->m[3][1];
    out->z = q.x * m->m[0][2] + q.y * m->m[1][2] + q.z * m->m[2][2] + m->m[3][2];
}

void RvM4HPointByMatrixMult(float out[4], const RtMatrix* m, const float p[4])
{
    const float q[4] = { p[0], p[1], p[2], p[3] }; // out may be p
    for (int j = 0; j < 4; ++j)
        out[j] = q[0] * m->m[0][j] + q[1] * m->m[1][j] + q[2] * m->m[2][j] + q[3] * m->m[3][j];
}

void RvM4VectorByMatrixMult(RtVector* out, const RtMatrix* m, const RtVector* v)
{
    const RtVector q = *v; // out may be v
    out->x = q.x * m->m[0][0] + q.y * m->m[1][0] + q.z * m->m[2][0];
    out->y = q.x * m->m[0][1] + q.y * m->m[1][1] + q.z * m->m[2][1];
    out->z = q.x * m->m[0][2] + q.y * m->m[1][2] + q.z * m->m[2][2];
}

void RvM4VectorByMatrixTMult(RtVector* out, const RtMatrix* m, const RtVector* v)
{
    const RtVector q = *v; // out may be v
    out->x = m->m[0][0] * q.x + m->m[0][1] * q.y + m->m[0][2] * q.z;
    out->y = m->m[1][0] * q.x + m->m[1][1] * q.y + m->m[1][2] * q.z;
    out->z = m->m[2][0] * q.x + m->m[2][1] * q.y + m->m[2][2] * q.z;
}

// ---- Colours and numbers ----

static void applyGamma(float* r, float* g, float* b, float gamma)
{
    if (gamma == 1)
        return;
    for (float* channel : { r, g, b })
        *channel = powf(*channel, 1 / gamma);
}

void RvColorGamma(RtRGB* c, float gamma) { applyGamma(&c->r, &c->g, &c->b, gamma); }

void RvRGBAGamma(RtRGBA* c, float gamma) { applyGamma(&c->r, &c->g, &c->b, gamma); }

RtRGB RvColorHeatMap(const RtRGB* colors, const float* positions, unsigned n, float t)
{
    if (n == 0)
        return { 1, 0, 1 };
    if (n == 1 || t <= positions[0])
        return colors[0];
    if (t >= positions[n - 1])
        return colors[n - 1];
    unsigned i = 1;
    while (i < n - 1 && !(positions[i] > t))
        ++i;
    const RtRGB& a = colors[i - 1];
    const RtRGB& b = colors[i];
    const float f = (t - positions[i - 1]) / (positions[i] - positions[i - 1]);
    return { (1 - f) * a.r + f * b.r, (1 - f) * a.g + f * b.g, (1 - f) * a.b + f * b.b };
}

bool RvIsFinite(float x) { return isfinite(x); }

// ---- Boxes ----

using rv::operator-;

float RvBBoxArea(const RtBBox& box)
{
    const RtVector d = box.max - box.min;
    return 2 * (d.x * d.y + d.y * d.z + d.z * d.x);
}

float RvBBoxVolume(const RtBBox& box)
{
    const RtVector d = box.max - box.min;
    return d.x * d.y * d.z;
}

RtPoint RvBBoxCenter(const RtBBox& box) { return RvBBoxLerp(box, RV_V3_HALF); }

RtPoint RvBBoxLerp(const RtBBox& box, const RtPoint& t)
{
    return { box.min.x + t.x * (box.max.x - box.min.x), box.min.y + t.y * (box.max.y - box.min.y),
             box.min.z + t.z * (box.max.z - box.min.z) };
}

RtBBox RvBBoxUnion(const RtBBox& a, const RtBBox& b)
{
    return { { fminf(a.min.x, b.min.x), fminf(a.min.y, b.min.y), fminf(a.min.z, b.min.z) },
             { fmaxf(a.max.x, b.max.x), fmaxf(a.max.y, b.max.y), fmaxf(a.max.z, b.max.z) } };
}

bool RvBBoxInside(const RtBBox& box, const RtPoint& p)
{
    return p.x >= box.min.x && p.x <= box.max.x && p.y >= box.min.y && p.y <= box.max.y &&
           p.z >= box.min.z && p.z <= box.max.z;
}

bool RvBBoxRayIntersect(const RtPoint& origin, const RtVector& dir, const RtBBox& box, float* t0,
                        float* t1)
{
    const float from[3] = { origin.x, origin.y, origin.z };
    const float along[3] = { dir.x, dir.y, dir.z };
    const float min[3] = { box.min.x, box.min.y, box.min.z };
    const float max[3] = { box.max.x, box.max.y, box.max.z };
    float begin = *t0, end = *t1;              // what is left of the given interval
    float entry = -INFINITY, leave = INFINITY; // of the box alone
    for (int axis = 0; axis < 3; ++axis) {
        const float inverse = 1 / along[axis];
        const float near = ((inverse < 0 ? max[axis] : min[axis]) - from[axis]) * inverse;
        const float far = ((inverse < 0 ? min[axis] : max[axis]) - from[axis]) * inverse;
        if (begin > far || near > end)
            return false;
        // A ray inside the plane of a face has a NaN distance, which every comparison drops.
        begin = near > begin ? near : begin;
        end = far < end ? far : end;
        entry = near > entry ? near : entry;
        leave = far < leave ? far : leave;
    }
    // Required: the distances of the box itself, not cut to the given interval.
    *t0 = entry;
    *t1 = leave;
    return true;
}

bool RvBBoxRayOverlap(const RtPoint& origin, const RtVector& dir, const RtBBox& box, float tmin,
                      float tmax)
{
    return RvBBoxRayIntersect(origin, dir, box, &tmin, &tmax);
}
