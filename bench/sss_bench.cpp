// How long the point cloud of a mesh takes: about 100,000 points on 70 thousand triangles, with the
// shares of distribution, irradiance and octree, and how fast lookups in it are. A file named on
// the command line is used in place of the ball with bumps; a polymesh "mesh" must be in it.
#include "bench.h"
#include "counters.h"
#include "objects/polymesh.h"
#include "options.h"
#include "rv.h"
#include "sss_cloud.h"

#include <cmath>
#include <memory>
#include <numbers>

namespace {

constexpr int wanted_points = 100000;

RtNode* makeNode(const char* type, const char* name)
{
    RtNode* const node = RvNode(type);
    RvNodeSetStr(node, "name", name);
    return node;
}

// A ball with bumps of n times 2 n quads.
RtNode* makeBall(unsigned n)
{
    const unsigned columns = 2 * n;
    RtArray* const points = RvArrayAllocate((n + 1) * columns, 1, RV_TYPE_POINT);
    RtArray* const sides = RvArrayAllocate(n * columns, 1, RV_TYPE_UINT);
    RtArray* const corners = RvArrayAllocate(4 * n * columns, 1, RV_TYPE_UINT);
    for (unsigned row = 0; row <= n; ++row)
        for (unsigned column = 0; column < columns; ++column) {
            const float theta = std::numbers::pi_v<float> * float(row) / float(n);
            const float phi = 2 * std::numbers::pi_v<float> * float(column) / float(columns);
            const float r = 1 + 0.08f * std::sin(9 * theta) * std::cos(7 * phi);
            RvArraySetPnt(points, row * columns + column,
                          (RtPoint{ r * std::sin(theta) * std::cos(phi), r * std::cos(theta),
                                    r * std::sin(theta) * std::sin(phi) }));
        }
    for (unsigned i = 0; i < n * columns; ++i) {
        const unsigned row = i / columns, next = row * columns + (i + 1) % columns;
        const unsigned ring[4] = { i, next, next + columns, i + columns };
        RvArraySetUInt(sides, i, 4);
        for (unsigned corner = 0; corner < 4; ++corner)
            RvArraySetUInt(corners, 4 * i + corner, ring[corner]);
    }
    RtNode* const mesh = makeNode("polymesh", "mesh");
    RvNodeSetArray(mesh, "vlist", points);
    RvNodeSetArray(mesh, "nsides", sides);
    RvNodeSetArray(mesh, "vidxs", corners);
    RvNodeSetBool(mesh, "smoothing", true);
    return mesh;
}

void makeLight()
{
    RtNode* const light = makeNode("point_light", "lamp");
    RvNodeSetArray(light, "position", RvArray(1, 1, RV_TYPE_POINT, RtPoint{ 3, 5, 4 }));
    RvNodeSetFlt(light, "radius", 0.5f);
}

using Cloud = std::unique_ptr<rv::RtSSSPointCloud>;

Cloud build(const RtNode* mesh)
{
    return Cloud(rv::buildPointCloud({ rv::objectOf(mesh), rv::show_no_samples }));
}

// So many samples that as many points are found as are wanted.
void aimForPoints(RtNode* mesh)
{
    RvNodeSetFlt(mesh, "sss_sample_spacing", 0);
    RvNodeSetInt(mesh, "sss_max_samples", 20000);
    const double per_sample = double(build(mesh)->generated_count) / 20000;
    RvNodeSetInt(mesh, "sss_max_samples", int(wanted_points / per_sample));
}

// Median milliseconds of the steps of a build.
void reportBuild(bench::Report& report, const RtNode* mesh, int runs, const std::string& name)
{
    int64_t RtStats::*const counters[] = { &RtStats::sss_distribution_ms,
                                           &RtStats::sss_irradiance_ms, &RtStats::sss_octree_ms };
    const char* const steps[] = { "distribution", "irradiance", "octree" };
    RtStats& stats = *rv::threadStats();
    std::vector<double> times[3];
    for (int run = 0; run < runs; ++run) {
        for (const auto counter : counters)
            stats.*counter = 0;
        bench::consume(build(mesh)->generated_count);
        for (int i = 0; i < 3; ++i)
            times[i].push_back(double(stats.*counters[i]));
    }
    double total = 0;
    for (std::vector<double>& step : times) {
        std::sort(step.begin(), step.end());
        total += step[step.size() / 2];
    }
    report.add(name, total, "ms");
    for (int i = 0; i < 3; ++i)
        report.add("  " + std::string(steps[i]), times[i][times[i].size() / 2] * 100 / total, "%");
}

// Lookups at all points of the cloud, with a radius of some points' distance.
void reportLookups(bench::Report& report, const rv::RtSSSPointCloud& cloud, int runs, float reach)
{
    const float radius = cloud.average_radius * reach;
    const double seconds = bench::median(runs, [&] {
        return bench::seconds([&] {
            for (size_t i = 0; i < cloud.points.size(); i += 4)
                bench::consume(rv::scatteredLight(cloud, cloud.points[i].position,
                                                  { radius, radius, radius }));
        });
    });
    char name[64];
    snprintf(name, sizeof name, "lookups, radius of %g points", double(reach));
    report.add(name, double(cloud.points.size() / 4) / seconds / 1e3, "thousand/s");
}

} // namespace

int main(int argc, char** argv)
{
    const char* const scene = argc > 1 && argv[1][0] != '-' ? argv[1] : nullptr;
    if (scene) {
        argv[1] = argv[0];
        ++argv;
        --argc;
    }
    const bench::Options options = bench::parseOptions(argc, argv);
    RvBegin();
    RvMsgSetConsoleFlags(0);
    RtNode* const mesh =
        scene && RvRVSLoad(scene) == 0 ? RvNodeLookUpByName("mesh") : makeBall(133);
    if (!mesh) {
        fprintf(stderr, "%s holds no polymesh \"mesh\"\n", scene);
        return 1;
    }
    makeLight();
    RvRender(RV_RENDER_MODE_SETUP);
    {
        bench::Report report(options);
        aimForPoints(mesh);
        const Cloud cloud = build(mesh);
        report.add("triangles", double(rv::meshOf(rv::objectOf(mesh))->ntriangles), "");
        report.add("points", double(cloud->generated_count), "");
        report.add("points with light", double(cloud->lit_count), "");
        report.add("memory", double(cloud->bytes()) / 1048576, "MB");
        reportBuild(report, mesh, options.runs, "cloud, direct light");
        RvNodeSetInt(RvUniverseGetOptions(), "GI_diffuse_depth", 1);
        reportBuild(report, mesh, options.runs, "cloud, indirect light too");
        for (const float reach : { 3.0f, 10.0f, 30.0f })
            reportLookups(report, *cloud, options.runs, reach);
    }
    RvEnd();
}
