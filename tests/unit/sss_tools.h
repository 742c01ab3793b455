// What the tests of sub-surface scattering share: meshes under light, and lookups on them.
#ifndef RV_SSS_TOOLS_H
#define RV_SSS_TOOLS_H

#include "shaders/surface_fixture.h"
#include "sss.h"
#include "sss_cloud.h"

#include <memory>

namespace sss_tools {

using namespace surface_tools;
using rv::operator+, rv::operator-, rv::operator*;
using node_tools::describe;
using Cloud = std::unique_ptr<rv::RtSSSPointCloud>;

// A square mesh of cells * cells quads in the plane z = 0, around the origin and facing upwards.
inline RtNode* makeSheet(const char* name, float side, unsigned cells = 1)
{
    RtArray* const points = RvArrayAllocate((cells + 1) * (cells + 1), 1, RV_TYPE_POINT);
    RtArray* const sides = RvArrayAllocate(cells * cells, 1, RV_TYPE_UINT);
    RtArray* const corners = RvArrayAllocate(4 * cells * cells, 1, RV_TYPE_UINT);
    for (unsigned i = 0; i < (cells + 1) * (cells + 1); ++i)
        RvArraySetPnt(points, i,
                      (RtPoint{ side * (float(i % (cells + 1)) / float(cells) - 0.5f),
                                side * (float(i / (cells + 1)) / float(cells) - 0.5f), 0 }));
    for (unsigned i = 0; i < cells * cells; ++i) {
        const unsigned first = i / cells * (cells + 1) + i % cells;
        const unsigned ring[4] = { first, first + 1, first + cells + 2, first + cells + 1 };
        RvArraySetUInt(sides, i, 4);
        for (unsigned corner = 0; corner < 4; ++corner)
            RvArraySetUInt(corners, 4 * i + corner, ring[corner]);
    }
    RtNode* const node = node_tools::named("polymesh", name);
    RvNodeSetArray(node, "vlist", points);
    RvNodeSetArray(node, "nsides", sides);
    RvNodeSetArray(node, "vidxs", corners);
    return node;
}

// A shader for surfaces that only scatter.
inline RtNode* makeWax(const char* name, float radius)
{
    RtNode* const wax = node_tools::named("standard", name);
    RvNodeSetFlt(wax, "Kd", 0);
    RvNodeSetFlt(wax, "Ksss", 1);
    RvNodeSetRGB(wax, "sss_radius", radius, radius, radius);
    return wax;
}

// The hit of a ray that comes down at (x, y), as a shading context.
inline RtShaderGlobals hitAt(float x, float y, float time = 0)
{
    const RtPoint origin = { x, y, 10 };
    const RtVector dir = { 0, 0, -1 };
    RtRay ray;
    RvMakeRay(&ray, RV_RAY_CAMERA, &origin, &dir, 1e30, nullptr);
    ray.time = time;
    RtShaderGlobals sg;
    EXPECT_TRUE(RvTraceProbe(&ray, &sg)) << x << " " << y;
    return sg;
}

inline RtRGB lookUp(RtShaderGlobals sg, const RtRGB& radius)
{
    return RvSSSPointCloudLookup(&sg, &radius);
}

// FNV-1a over all bits of records without gaps.
template <class Records> uint64_t hashOf(const Records& records)
{
    uint64_t hash = 0xCBF29CE484222325;
    const auto* const bytes = reinterpret_cast<const uint8_t*>(records.data());
    for (size_t i = 0; i < records.size() * sizeof records[0]; ++i)
        hash = (hash ^ bytes[i]) * 0x100000001B3;
    return hash;
}

class Clouds : public Surfaces {
protected:
    // The cloud of a node as lookups get it.
    static Cloud cloudOf(const RtNode* node, int show = rv::show_no_samples, int thread = 0)
    {
        return Cloud(rv::buildPointCloud({ rv::objectOf(node), show, { .thread = thread } }));
    }
    static RtNode* sheet(float side, float spacing, unsigned cells = 1)
    {
        RtNode* const node = makeSheet("sheet", side, cells);
        RvNodeSetFlt(node, "sss_sample_spacing", spacing);
        return node;
    }
    static RtRGB at(float x, float y, float radius = 1)
    {
        return lookUp(hitAt(x, y), { radius, radius, radius });
    }
    static void setMatrix(RtNode* node, const RtMatrix& matrix)
    {
        RvNodeSetArray(node, "matrix", RvArray(1, 1, RV_TYPE_MATRIX, &matrix));
    }
    static void flushShapes() { RvUniverseCacheFlush(0x2); }
    // Messages of clouds since the last call.
    static std::vector<LoggedMessage> takeReports()
    {
        std::vector<LoggedMessage> reports;
        for (const LoggedMessage& m : messages())
            if (m.text.compare(0, 5, "[sss]") == 0)
                reports.push_back(m);
        messages().clear();
        return reports;
    }
    static size_t cloudsDone()
    {
        const std::vector<LoggedMessage> reports = takeReports();
        return size_t(std::count_if(reports.begin(), reports.end(), [](const LoggedMessage& m) {
            return m.text.find("point cloud done") != std::string::npos;
        }));
    }
    static std::string bytesOf(const rv::RtSSSPointCloud& cloud)
    {
        return { reinterpret_cast<const char*>(cloud.points.data()),
                 cloud.points.size() * sizeof(RtSSSPoint) };
    }
};

} // namespace sss_tools

#endif
