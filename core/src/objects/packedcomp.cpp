// packedcomp: normals and texture coordinates in 32 bits each.
//
// A normal is two angles of 16 bits: phi around z in the high half, theta from z in the low half.
#include "objects/polymesh.h"

#include <algorithm>
#include <math.h>

static const char* const module_path = "core\\src\\packedcomp";

static constexpr double steps = 65535;
static constexpr float pi = 3.14159265f;
static constexpr double exact_pi = 3.14159265358979323846;

// Truncated; 0 for what is not a number.
static uint16_t toSteps(double x) { return x > 0 ? uint16_t(std::min(x, steps)) : uint16_t(0); }

static uint32_t packNormal(const RtVector& n)
{
    const float theta = n.z >= 1 ? 0 : n.z <= -1 ? pi : acosf(n.z);
    const float phi = atan2f(n.y, n.x) + pi;
    return uint32_t(toSteps(phi * steps / (2 * exact_pi))) << 16 |
           toSteps(theta * steps / exact_pi);
}

namespace rv {

RtVector unpackNormal(uint32_t packed)
{
    const double theta = (packed & 0xFFFF) * exact_pi / steps;
    const double phi = (packed >> 16) * (2 * exact_pi) / steps - exact_pi;
    return { float(sin(theta) * cos(phi)), float(sin(theta) * sin(phi)), float(cos(theta)) };
}

RtPoint2 unpackUV(const RtPolyMesh& mesh, RtPackedUV packed)
{
    const auto unpack = [](uint16_t value, double min, double max) {
        return float(min + value * (max - min) / steps);
    };
    return { unpack(packed.u, mesh.uv_min.x, mesh.uv_max.x),
             unpack(packed.v, mesh.uv_min.y, mesh.uv_max.y) };
}

template <class T> static T* allocateElements(size_t count, const char* function)
{
    return static_cast<T*>(allocate(count * sizeof(T), module_path, __LINE__, function));
}

} // namespace rv

void RvCompressNormalsArray(RtPolyMesh* mesh)
{
    const size_t count = size_t(mesh->nnormals) * mesh->nkeys;
    if (!mesh->normals)
        return;
    mesh->packed_normals = rv::allocateElements<uint32_t>(count, "RvCompressNormalsArray");
    if (!mesh->packed_normals)
        return;
    std::transform(mesh->normals, mesh->normals + count, mesh->packed_normals, packNormal);
    RvFree_func(mesh->normals);
    mesh->normals = nullptr;
}

void RvUncompressNormalsArray(RtPolyMesh* mesh)
{
    const size_t count = size_t(mesh->nnormals) * mesh->nkeys;
    if (!mesh->packed_normals)
        return;
    mesh->normals = rv::allocateElements<RtVector>(count, "RvUncompressNormalsArray");
    if (!mesh->normals)
        return;
    std::transform(mesh->packed_normals, mesh->packed_normals + count, mesh->normals,
                   rv::unpackNormal);
    RvFree_func(mesh->packed_normals);
    mesh->packed_normals = nullptr;
}

// The bounds of all coordinates.
static void boundUVs(RtPolyMesh* mesh)
{
    RtPoint2 min = mesh->uvs[0], max = min;
    for (const RtPoint2* uv = mesh->uvs; uv < mesh->uvs + mesh->nuvs; ++uv) {
        min = { fminf(min.x, uv->x), fminf(min.y, uv->y) };
        max = { fmaxf(max.x, uv->x), fmaxf(max.y, uv->y) };
    }
    mesh->uv_min = min;
    mesh->uv_max = max;
}

void RvPackedUVCompressArray(RtPolyMesh* mesh)
{
    if (!mesh->uvs)
        return;
    mesh->packed_uvs = rv::allocateElements<RtPackedUV>(mesh->nuvs, "RvPackedUVCompressArray");
    if (!mesh->packed_uvs)
        return;
    boundUVs(mesh);
    const auto pack = [](double x, double min, double max) {
        return max > min ? toSteps((x - min) * steps / (max - min)) : uint16_t(0);
    };
    const RtPoint2 min = mesh->uv_min, max = mesh->uv_max;
    std::transform(mesh->uvs, mesh->uvs + mesh->nuvs, mesh->packed_uvs, [&](const RtPoint2& uv) {
        return RtPackedUV{ pack(uv.x, min.x, max.x), pack(uv.y, min.y, max.y) };
    });
    RvFree_func(mesh->uvs);
    mesh->uvs = nullptr;
}
