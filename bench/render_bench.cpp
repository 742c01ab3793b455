// How fast images are rendered: samples and rays a second for a fixed set of scenes on one thread
// and on two, heap allocations while buckets render, and memory.
#include "bench.h"
#include "counters.h"
#include "options.h"
#include "rv.h"

#include <atomic>
#include <cmath>
#include <numbers>

// ---- Counting heap allocations ----

extern "C" void* __libc_malloc(size_t);
extern "C" void* __libc_calloc(size_t, size_t);
extern "C" void* __libc_realloc(void*, size_t);

static std::atomic<uint64_t> allocations;

extern "C" void* malloc(size_t size)
{
    allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_malloc(size);
}
extern "C" void* calloc(size_t n, size_t size)
{
    allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_calloc(n, size);
}
extern "C" void* realloc(void* block, size_t size)
{
    allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_realloc(block, size);
}

namespace {

constexpr int image_size = 512;

// ---- A driver that discards the image and notes what happened between its buckets ----

struct Observed {
    uint64_t first_bucket, last_bucket; // allocations so far
};
Observed observed;

struct NoteDriver {
    const char* name;
};

void noteParameters(RtList*, RtMetaDataStore* metadata) { rv::declareLayout<NoteDriver>(metadata); }
void noteInitialize(RtNode* node, void*) { RvDriverInitialize(node, true, nullptr); }
void noteFinish(RtNode* node) { RvDriverDestroy(node); }
bool noteSupports(RtNode*, int) { return true; }
void notePrepare(RtNode*, int, int, int, int, int)
{
    if (!observed.first_bucket)
        observed.first_bucket = allocations;
}
void noteWrite(RtNode*, RtOutputIterator*, RtAOVSampleIterator*, int, int, int, int)
{
    observed.last_bucket = allocations;
}

const RtCommonMethods note_common = { .Parameters = noteParameters,
                                      .Initialize = noteInitialize,
                                      .Update = rv::do_nothing,
                                      .Finish = noteFinish };
const RtDriverMethods note_driver = { .DriverSupportsPixelType = noteSupports,
                                      .DriverExtension = rv::do_nothing,
                                      .DriverOpen = rv::do_nothing,
                                      .DriverPrepareBucket = notePrepare,
                                      .DriverWriteBucket = noteWrite,
                                      .DriverClose = rv::do_nothing };
const RtNodeMethods note_methods = { &note_common, &note_driver };

// ---- Building blocks ----

RtNode* makeNode(const char* type, const char* name)
{
    RtNode* const node = RvNode(type);
    RvNodeSetStr(node, "name", name);
    return node;
}

void setShader(RtNode* shape, RtNode* shader)
{
    RvNodeSetArray(shape, "shader", RvArray(1, 1, RV_TYPE_NODE, shader));
}

RtNode* makeDiffuse(const char* name)
{
    RtNode* const shader = makeNode("standard", name);
    RvNodeSetFlt(shader, "Kd", 0.7f);
    return shader;
}

// A ball with bumps of n times 2 n quads.
RtNode* makeBall(const char* name, unsigned n, RtPoint center, float radius)
{
    const unsigned columns = 2 * n;
    RtArray* const points = RvArrayAllocate((n + 1) * columns, 1, RV_TYPE_POINT);
    RtArray* const sides = RvArrayAllocate(n * columns, 1, RV_TYPE_UINT);
    RtArray* const corners = RvArrayAllocate(4 * n * columns, 1, RV_TYPE_UINT);
    for (unsigned row = 0; row <= n; ++row)
        for (unsigned column = 0; column < columns; ++column) {
            const float theta = std::numbers::pi_v<float> * float(row) / float(n);
            const float phi = 2 * std::numbers::pi_v<float> * float(column) / float(columns);
            const float r = radius * (1 + 0.08f * std::sin(9 * theta) * std::cos(7 * phi));
            RvArraySetPnt(points, row * columns + column,
                          (RtPoint{ center.x + r * std::sin(theta) * std::cos(phi),
                                    center.y + r * std::cos(theta),
                                    center.z + r * std::sin(theta) * std::sin(phi) }));
        }
    for (unsigned i = 0; i < n * columns; ++i) {
        const unsigned row = i / columns, next = row * columns + (i + 1) % columns;
        const unsigned ring[4] = { i, next, next + columns, i + columns };
        RvArraySetUInt(sides, i, 4);
        for (unsigned corner = 0; corner < 4; ++corner)
            RvArraySetUInt(corners, 4 * i + corner, ring[corner]);
    }
    RtNode* const mesh = makeNode("polymesh", name);
    RvNodeSetArray(mesh, "vlist", points);
    RvNodeSetArray(mesh, "nsides", sides);
    RvNodeSetArray(mesh, "vidxs", corners);
    RvNodeSetBool(mesh, "smoothing", true);
    return mesh;
}

void makeFloor(RtNode* shader)
{
    RtNode* const floor = makeNode("plane", "floor");
    RvNodeSetPnt(floor, "point", 0, -1.1f, 0);
    RvNodeSetVec(floor, "normal", 0, 1, 0);
    setShader(floor, shader);
}

void makeSphere(const char* name, RtPoint center, float radius, RtNode* shader)
{
    RtNode* const sphere = makeNode("sphere", name);
    RvNodeSetArray(sphere, "center", RvArray(1, 1, RV_TYPE_POINT, center));
    RvNodeSetArray(sphere, "radius", RvArray(1, 1, RV_TYPE_FLOAT, double(radius)));
    setShader(sphere, shader);
}

void makeView()
{
    RtNode* const light = makeNode("point_light", "lamp");
    RvNodeSetArray(light, "position", RvArray(1, 1, RV_TYPE_POINT, RtPoint{ 3, 5, 4 }));
    RvNodeSetFlt(light, "radius", 0.5f);
    RvNodeSetFlt(light, "intensity", 3);
    RtNode* const sky = makeNode("flat", "sky");
    RvNodeSetRGB(sky, "color", 0.2f, 0.25f, 0.35f);
    RtNode* const camera = makeNode("persp_camera", "eye");
    RvNodeSetArray(camera, "position", RvArray(1, 1, RV_TYPE_POINT, RtPoint{ 0, 0.6f, 4.5f }));
    RvNodeSetArray(camera, "fov", RvArray(1, 1, RV_TYPE_FLOAT, 40.0));
    makeNode("gaussian_filter", "filter");
    makeNode("note_driver", "driver");

    RtNode* const options = RvUniverseGetOptions();
    RvNodeSetInt(options, "xres", image_size);
    RvNodeSetInt(options, "yres", image_size);
    RvNodeSetStr(options, "thread_priority", "normal");
    RvNodeSetPtr(options, "background", sky);
    RvNodeSetPtr(options, "camera", camera);
    RvNodeSetArray(options, "outputs", RvArray(1, 1, RV_TYPE_STRING, "RGBA RGBA filter driver"));
}

// ---- Scenes ----

void meshScene(int diffuse_depth)
{
    RtNode* const shader = makeDiffuse("clay");
    setShader(makeBall("ball", 132, { 0, 0, 0 }, 1), shader);
    makeFloor(shader);
    RvNodeSetInt(RvUniverseGetOptions(), "GI_diffuse_depth", diffuse_depth);
    RvNodeSetInt(RvUniverseGetOptions(), "GI_diffuse_samples", 1);
}

void directScene() { meshScene(0); }
void oneBounceScene() { meshScene(1); }
void threeBounceScene() { meshScene(3); }

void sphereScene()
{
    RtNode* const glossy = makeDiffuse("glossy");
    RvNodeSetFlt(glossy, "Ks", 0.5f);
    RvNodeSetFlt(glossy, "specular_roughness", 0.3f);
    RtNode* const mirror = makeNode("standard", "mirror");
    RvNodeSetFlt(mirror, "Kd", 0);
    RvNodeSetFlt(mirror, "Kr", 0.9f);
    RtNode* const glass = makeNode("standard", "glass");
    RvNodeSetFlt(glass, "Kd", 0);
    RvNodeSetFlt(glass, "Kr", 1);
    RvNodeSetBool(glass, "Fresnel", true);
    RvNodeSetFlt(glass, "Krn", 0.04f);
    RvNodeSetFlt(glass, "Kt", 1);
    RvNodeSetFlt(glass, "IOR", 1.5f);
    makeSphere("glossy ball", { -1.1f, -0.3f, 0 }, 0.8f, glossy);
    makeSphere("mirror ball", { 0.2f, -0.3f, -1 }, 0.8f, mirror);
    makeSphere("glass ball", { 1.2f, -0.4f, 0.3f }, 0.7f, glass);
    makeFloor(makeDiffuse("clay"));
    RtNode* const options = RvUniverseGetOptions();
    RvNodeSetInt(options, "GI_glossy_depth", 1);
    RvNodeSetInt(options, "GI_glossy_samples", 1);
    RvNodeSetInt(options, "GI_refraction_depth", 4);
}

void instanceScene()
{
    RtNode* const shader = makeDiffuse("clay");
    RtNode* const ball = makeBall("ball", 24, { 0, 0, 0 }, 0.12f);
    setShader(ball, shader);
    makeFloor(shader);
    for (int i = 1; i < 1000; ++i) {
        RtMatrix place;
        const RtVector offset = { float(i % 10) * 0.3f - 1.35f, float(i / 10 % 10) * 0.3f - 0.9f,
                                  -float(i / 100) * 0.3f };
        RvM4Translation(&place, &offset);
        RtNode* const instance = RvNode("ginstance");
        RvNodeSetPtr(instance, "node", ball);
        RvNodeSetArray(instance, "matrix", RvArray(1, 1, RV_TYPE_MATRIX, &place));
    }
}

struct Scene {
    const char* name;
    void (*build)();
};
const Scene scenes[] = { { "direct", directScene },
                         { "diffuse1", oneBounceScene },
                         { "diffuse3", threeBounceScene },
                         { "spheres", sphereScene },
                         { "instances", instanceScene } };

// ---- Measuring ----

uint64_t sum(uint64_t (*count)(const RtStats&))
{
    uint64_t total = 0;
    for (const RtStats* record : rv::the_frame->stats)
        total += count(*record);
    return total;
}

uint64_t sampleCount()
{
    return sum([](const RtStats& s) { return s.samples; });
}

uint64_t rayCount()
{
    return sum([](const RtStats& s) {
        uint64_t rays = 0;
        for (const auto& pass : s.rays.rows)
            rays += pass[RV_ROW_TOTAL].rays;
        return rays;
    });
}

double megabytes(uint64_t bytes) { return double(bytes) / (1 << 20); }

void measureThreads(bench::Report& report, int runs, const std::string& scene)
{
    double rate[2] = {};
    for (int threads : { 1, 2 }) {
        RvNodeSetInt(RvUniverseGetOptions(), "threads", threads);
        const double time = bench::median(
            runs, [] { return bench::seconds([] { RvRender(RV_RENDER_MODE_CAMERA); }); });
        const std::string suffix = scene + "." + std::to_string(threads) + "t";
        rate[threads - 1] = double(sampleCount()) / time / 1e6;
        report.add("render.samples." + suffix, rate[threads - 1], "million samples/s");
        report.add("render.rays." + suffix, double(rayCount()) / time / 1e6, "million rays/s");
    }
    report.add("render.scaling." + scene, rate[1] / rate[0], "times one thread");
}

uint64_t allocationsOfBuckets(int aa_samples)
{
    RvNodeSetInt(RvUniverseGetOptions(), "AA_samples", aa_samples);
    observed = {};
    RvRender(RV_RENDER_MODE_CAMERA);
    return observed.last_bucket - observed.first_bucket;
}

// More samples in the same buckets must not mean more allocations.
void measureAllocations(bench::Report& report, const std::string& scene)
{
    RvNodeSetInt(RvUniverseGetOptions(), "threads", 1);
    const uint64_t coarse = allocationsOfBuckets(2);
    const double coarse_samples = double(sampleCount());
    const uint64_t fine = allocationsOfBuckets(4);
    report.add("render.allocations." + scene, double(fine), "while buckets render");
    report.add("render.allocations_per_sample." + scene,
               (double(fine) - double(coarse)) / (double(sampleCount()) - coarse_samples),
               "per camera sample");
}

void measureMemory(bench::Report& report, const std::string& scene)
{
    uint64_t peak = 0, geometry = 0, accels = 0, nodes = 0;
    for (const RtStats* record : rv::the_frame->stats) {
        peak = std::max(peak, uint64_t(record->peak_bytes));
        geometry += uint64_t(record->geometry_bytes);
        accels += uint64_t(record->accel_bytes);
        nodes += uint64_t(record->node_overhead_bytes);
    }
    report.add("memory.peak." + scene, megabytes(peak), "MB");
    report.add("memory.geometry." + scene, megabytes(geometry), "MB");
    report.add("memory.hierarchy." + scene, megabytes(accels), "MB");
    report.add("memory.nodes." + scene, megabytes(nodes), "MB");
}

void measureScene(bench::Report& report, int runs, const Scene& scene)
{
    RvBegin();
    RvNodeInstall(RV_NODE_DRIVER, RV_TYPE_NONE, "note_driver", "", &note_methods, RV_VERSION);
    scene.build();
    makeView();
    RvNodeSetInt(RvUniverseGetOptions(), "AA_samples", 4);
    RvRender(RV_RENDER_MODE_CAMERA); // prepares the scene
    measureThreads(report, runs, scene.name);
    measureAllocations(report, scene.name);
    measureMemory(report, scene.name);
    RvEnd();
}

} // namespace

int main(int argc, char** argv)
{
    const bench::Options options = bench::parseOptions(argc, argv);
    bench::Report report(options);
    for (const Scene& scene : scenes)
        measureScene(report, options.runs, scene);
}
