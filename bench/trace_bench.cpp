// How fast rays find triangles, how fast hierarchies are built and how much memory they take,
// beside Embree in the same run on the same meshes and rays. Rays go through the object entry and
// the hit list that rendering uses, one ray a call.
//
// --threads N measures with one thread and with N (2 when not given).
#include "bench.h"

#include "array.h"
#include "objects/gobject.h"
#include "options.h"
#include "rv_msg.h"
#include "rv_rays.h"
#include "rv_render.h"
#include "rv_shaderglobals.h"

#include <cmath>
#include <embree3/rtcore.h>
#include <numbers>
#include <random>
#include <thread>

namespace {

constexpr float mindist = 1e-4f;

struct Mesh {
    std::vector<RtPoint> vertices;
    std::vector<uint32_t> indices;
    size_t triangles() const { return indices.size() / 3; }
};

struct Ray {
    RtPoint origin;
    RtVector dir;
    float maxdist;
};

struct RaySet {
    const char* name;
    uint16_t type;
    std::vector<Ray> rays;
};

RtVector scaled(const RtVector& v, float s) { return { v.x * s, v.y * s, v.z * s }; }
RtVector sum(const RtVector& a, const RtVector& b) { return { a.x + b.x, a.y + b.y, a.z + b.z }; }
float lengthOf(const RtVector& v) { return std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z); }
RtVector unit(const RtVector& v) { return scaled(v, 1 / lengthOf(v)); }

// A sphere with waves of three sizes on it, in rows of quads cut into triangles.
Mesh makeMesh(double triangle_count)
{
    constexpr double pi = std::numbers::pi;
    const uint32_t rings = uint32_t(std::sqrt(triangle_count / 4)), segments = 2 * rings;
    Mesh mesh;
    for (uint32_t r = 0; r <= rings; ++r)
        for (uint32_t s = 0; s < segments; ++s) {
            const double theta = pi * (r + 0.5) / (rings + 1), phi = 2 * pi * s / segments;
            const double radius = 1 + 0.1 * std::sin(7 * phi) * std::sin(5 * theta) +
                                  0.03 * std::sin(40 * phi + 13 * theta) * std::sin(37 * theta) +
                                  0.005 * std::sin(300 * phi) * std::cos(200 * theta);
            mesh.vertices.push_back({ float(radius * std::sin(theta) * std::cos(phi)),
                                      float(radius * std::cos(theta)),
                                      float(radius * std::sin(theta) * std::sin(phi)) });
        }
    for (uint32_t r = 0; r < rings; ++r)
        for (uint32_t s = 0; s < segments; ++s) {
            const uint32_t a = r * segments + s, b = r * segments + (s + 1) % segments;
            const uint32_t c = a + segments, d = b + segments;
            for (uint32_t corner : { a, b, c, b, d, c })
                mesh.indices.push_back(corner);
        }
    return mesh;
}

size_t heapBytes()
{
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

// ---- Ruvell ----

RtArray* arrayOf(const void* data, size_t n, int type)
{
    return RvArrayConvert(int(n), 1, type, const_cast<void*>(data), true);
}

// A node of the mesh in an open universe, ready for rays.
RtGObject* addMesh(const Mesh& mesh)
{
    RtNode* const node = RvNode("polymesh");
    RvNodeSetArray(node, "vlist",
                   arrayOf(mesh.vertices.data(), mesh.vertices.size(), RV_TYPE_POINT));
    RvNodeSetArray(node, "vidxs", arrayOf(mesh.indices.data(), mesh.indices.size(), RV_TYPE_UINT));
    if (RvRender(RV_RENDER_MODE_SETUP) != RV_SUCCESS || !rv::objectOf(node)) {
        fprintf(stderr, "the scene cannot be prepared\n");
        exit(1);
    }
    return rv::objectOf(node);
}

double buildSeconds(RtGObject* object, int threads)
{
    delete object->accel.exchange(nullptr);
    rv::render_options->threads = threads;
    return bench::seconds([&] { RvGObjectBuildAccel(object->node, 0); });
}

bool hitsOurs(RtGObject* object, const Ray& ray, uint16_t type, int thread)
{
    RtHit hit;
    RtHitList hits = {};
    hits.capacity = 1;
    hits.hits = &hit;
    hits.maxdist = ray.maxdist;
    RtTraversal traversal = {};
    traversal.ray_type = type;
    traversal.thread = uint8_t(thread);
    traversal.any_hit = traversal.any_order = type == RV_RAY_SHADOW;
    traversal.from_prim = rv_no_primitive;
    RvIntersectObject(object, traversal, { ray.origin, ray.dir, mindist, 0, rv_no_primitive },
                      hits);
    return hits.count;
}

// ---- Embree ----

class Embree {
public:
    Embree(const Mesh& triangles, int threads) : mesh(triangles)
    {
        device = rtcNewDevice(("threads=" + std::to_string(threads)).c_str());
        rtcSetDeviceMemoryMonitorFunction(
            device,
            [](void* user, ssize_t change, bool) {
                static_cast<Embree*>(user)->bytes += change;
                return true;
            },
            this);
    }
    ~Embree()
    {
        if (scene)
            rtcReleaseScene(scene);
        rtcReleaseDevice(device);
    }
    Embree(const Embree&) = delete;
    Embree& operator=(const Embree&) = delete;

    double buildSeconds()
    {
        if (scene)
            rtcReleaseScene(scene);
        scene = rtcNewScene(device);
        const RTCGeometry geometry = rtcNewGeometry(device, RTC_GEOMETRY_TYPE_TRIANGLE);
        fill(geometry, RTC_BUFFER_TYPE_VERTEX, RTC_FORMAT_FLOAT3, 12, mesh.vertices.data(),
             mesh.vertices.size());
        fill(geometry, RTC_BUFFER_TYPE_INDEX, RTC_FORMAT_UINT3, 12, mesh.indices.data(),
             mesh.triangles());
        return bench::seconds([&] {
            rtcCommitGeometry(geometry);
            rtcAttachGeometry(scene, geometry);
            rtcReleaseGeometry(geometry);
            rtcCommitScene(scene);
        });
    }
    bool intersect(const Ray& ray, RTCRayHit* hit) const
    {
        hit->ray = rayOf(ray);
        hit->hit.geomID = RTC_INVALID_GEOMETRY_ID;
        RTCIntersectContext context;
        rtcInitIntersectContext(&context);
        rtcIntersect1(scene, &context, hit);
        return hit->hit.geomID != RTC_INVALID_GEOMETRY_ID;
    }
    bool occluded(const Ray& ray) const
    {
        RTCRay shadow = rayOf(ray);
        RTCIntersectContext context;
        rtcInitIntersectContext(&context);
        rtcOccluded1(scene, &context, &shadow);
        return shadow.tfar < 0;
    }
    ssize_t memory() const { return bytes; }

private:
    static RTCRay rayOf(const Ray& ray)
    {
        RTCRay out = {};
        out.org_x = ray.origin.x, out.org_y = ray.origin.y, out.org_z = ray.origin.z;
        out.dir_x = ray.dir.x, out.dir_y = ray.dir.y, out.dir_z = ray.dir.z;
        out.tnear = mindist;
        out.tfar = ray.maxdist;
        out.mask = ~0u;
        return out;
    }
    static void fill(RTCGeometry geometry, RTCBufferType type, RTCFormat format, size_t stride,
                     const void* data, size_t n)
    {
        memcpy(rtcSetNewGeometryBuffer(geometry, type, 0, format, stride, n), data, stride * n);
    }

    const Mesh& mesh;
    RTCDevice device;
    RTCScene scene = nullptr;
    std::atomic<ssize_t> bytes = 0;
};

// ---- Rays ----

RaySet cameraRays()
{
    RaySet set = { "primary", RV_RAY_CAMERA, {} };
    constexpr int size = 1000;
    for (int y = 0; y < size; ++y)
        for (int x = 0; x < size; ++x) {
            const RtVector dir = { (2 * (float(x) + 0.5f) / size - 1) * 0.45f,
                                   (2 * (float(y) + 0.5f) / size - 1) * 0.45f, -1 };
            set.rays.push_back({ { 0, 0, 3 }, unit(dir), 1e30f });
        }
    return set;
}

// What the camera rays see sends out one cosine-distributed ray and one towards a light.
void secondaryRays(const Embree& embree, const RaySet& camera, RaySet* bounce, RaySet* shadow)
{
    std::mt19937 random(7);
    std::uniform_real_distribution<float> uniform(0, 1);
    const RtPoint light = { 3, 4, 2 };
    for (const Ray& ray : camera.rays) {
        RTCRayHit hit;
        if (!embree.intersect(ray, &hit))
            continue;
        const RtPoint point = sum(ray.origin, scaled(ray.dir, hit.ray.tfar));
        RtVector normal = unit({ hit.hit.Ng_x, hit.hit.Ng_y, hit.hit.Ng_z });
        if (normal.x * ray.dir.x + normal.y * ray.dir.y + normal.z * ray.dir.z > 0)
            normal = scaled(normal, -1);
        const float z = 2 * uniform(random) - 1, r = std::sqrt(1 - z * z);
        const float phi = 2 * std::numbers::pi_v<float> * uniform(random);
        const RtVector spread = sum(normal, { r * std::cos(phi), r * std::sin(phi), z });
        if (lengthOf(spread) < 1e-3f)
            continue;
        bounce->rays.push_back({ point, unit(spread), 1e30f });
        const RtVector to_light = sum(light, scaled(point, -1));
        shadow->rays.push_back({ point, unit(to_light), lengthOf(to_light) });
    }
}

// ---- Measuring ----

// Millions of rays a second: the threads take the next rays whenever they are done with theirs, as
// those of a render do, because rays from one part of the picture may cost more than from another.
template <class Test> double megaRays(const RaySet& set, int threads, const Test& test)
{
    constexpr size_t step = 4096;
    std::atomic<size_t> hits = 0, next = 0;
    const auto work = [&](int thread) {
        const size_t n = set.rays.size();
        size_t own = 0;
        for (size_t begin = next.fetch_add(step); begin < n; begin = next.fetch_add(step))
            for (size_t i = begin; i < std::min(begin + step, n); ++i)
                own += test(set.rays[i], thread);
        hits += own;
    };
    const double time = bench::seconds([&] {
        std::vector<std::thread> others;
        for (int thread = 1; thread < threads; ++thread)
            others.emplace_back(work, thread);
        work(0);
        for (std::thread& other : others)
            other.join();
    });
    bench::consume(hits);
    return double(set.rays.size()) / time / 1e6;
}

template <class Measure> double best(int runs, Measure measure, bool smallest)
{
    double result = measure();
    for (int i = 1; i < runs; ++i) {
        const double value = measure();
        result = smallest ? std::min(result, value) : std::max(result, value);
    }
    return result;
}

std::string figureName(const char* what, const char* size, int threads)
{
    return std::string(what) + "." + size + "." + std::to_string(threads) + "t";
}

void measureTracing(bench::Report& report, const bench::Options& options, const char* size,
                    RtGObject* object, const Embree& embree, const std::vector<int>& thread_counts)
{
    RaySet sets[3] = { cameraRays(),
                       { "bounce", RV_RAY_DIFFUSE, {} },
                       { "shadow", RV_RAY_SHADOW, {} } };
    secondaryRays(embree, sets[0], &sets[1], &sets[2]);
    for (const RaySet& set : sets) {
        std::vector<double> ours_by_threads;
        for (int threads : thread_counts) {
            const auto ours = [&] {
                return megaRays(set, threads, [&](const Ray& ray, int thread) {
                    return hitsOurs(object, ray, set.type, thread);
                });
            };
            const auto theirs = [&] {
                return megaRays(set, threads, [&](const Ray& ray, int) {
                    RTCRayHit hit;
                    return set.type == RV_RAY_SHADOW ? embree.occluded(ray)
                                                     : embree.intersect(ray, &hit);
                });
            };
            const double mine = best(options.runs, ours, false);
            report.addRateWithPeer(
                figureName((std::string("trace.") + set.name).c_str(), size, threads), mine,
                "million rays/s", "Embree", best(options.runs, theirs, false));
            ours_by_threads.push_back(mine);
        }
        if (thread_counts.size() > 1)
            report.add(std::string("scaling.") + set.name + "." + size,
                       ours_by_threads.back() / ours_by_threads.front(), "times one thread");
    }
}

void measureMesh(bench::Report& report, const bench::Options& options, const char* size,
                 double triangles, const std::vector<int>& thread_counts)
{
    const Mesh mesh = makeMesh(triangles);
    const double n = double(mesh.triangles());
    RvBegin();
    RvRender(RV_RENDER_MODE_SETUP); // what every scene has
    const size_t before = heapBytes();
    RtGObject* const object = addMesh(mesh);
    RvGObjectBuildAccel(object->node, 0);
    const double bytes = double(heapBytes() - before) / n;
    for (int threads : thread_counts) {
        Embree embree(mesh, threads);
        const double mine = best(
            options.runs, [&] { return 1000 * buildSeconds(object, threads); }, true);
        report.addTimeWithPeer(
            figureName("build", size, threads), mine, "ms", "Embree",
            best(
                options.runs, [&] { return 1000 * embree.buildSeconds(); }, true));
    }
    Embree embree(mesh, thread_counts.back());
    embree.buildSeconds();
    report.addTimeWithPeer(std::string("memory.") + size, bytes, "bytes/triangle", "Embree",
                           double(embree.memory()) / n);
    measureTracing(report, options, size, object, embree, thread_counts);
    RvEnd();
}

// A grid of instances of one small mesh.
void measureInstances(bench::Report& report)
{
    constexpr int side = 316, count = side * side;
    RvBegin();
    RvMsgSetConsoleFlags(0);
    const Mesh mesh = makeMesh(1000);
    RtNode* const source = RvNode("polymesh");
    RvNodeSetArray(source, "vlist",
                   arrayOf(mesh.vertices.data(), mesh.vertices.size(), RV_TYPE_POINT));
    RvNodeSetArray(source, "vidxs",
                   arrayOf(mesh.indices.data(), mesh.indices.size(), RV_TYPE_UINT));
    const size_t before = heapBytes();
    for (int i = 0; i < count; ++i) {
        RtMatrix matrix;
        const RtVector place = { float(3 * (i % side)), 0, float(3 * (i / side)) };
        RvM4Translation(&matrix, &place);
        RtNode* const instance = RvNode("ginstance");
        RvNodeSetPtr(instance, "node", source);
        RvNodeSetArray(instance, "matrix", RvArray(1, 1, RV_TYPE_MATRIX, &matrix));
    }
    const double time = bench::seconds([] {
        RvRender(RV_RENDER_MODE_SETUP);
        const RtShaderGlobals origin = {};
        const RtPoint eye = { 100, 100, 100 };
        const RtVector down = { 0, -1, 0 };
        RtRay ray = {};
        RvMakeRay(&ray, RV_RAY_CAMERA, &eye, &down, 1e30, &origin);
        RvTraceProbe(&ray, nullptr);
    });
    report.add("instances.build", time * 1000, "ms for 100 thousand");
    report.add("instances.memory", double(heapBytes() - before) / count,
               "bytes/instance, node included");
    RvEnd();
}

} // namespace

int main(int argc, char** argv)
{
    const bench::Options options = bench::parseOptions(argc, argv);
    const int most = options.threads > 1 ? options.threads : 2;
    bench::Report report(options);
    measureMesh(report, options, "70k", 70e3, { 1, most });
    measureMesh(report, options, "1m", 1e6, { 1, most });
    measureMesh(report, options, "4m", 4e6, { 1, most });
    measureInstances(report);
    return 0;
}
