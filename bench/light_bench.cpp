// What do the importance tables of lights cost, and how much noise do they spare? Measures the time
// to make the table of a skydome from a map of 2048 by 1024 pixels, which a shader has in memory
// and which the "image" shader reads from a file; the variance of its samples under a sky with a
// small sun beside directions that are uniform over the sphere; and the noise of the two ways to
// sample a quad.
//
// --threads N makes the table with one thread and with N (2 when not given).
#include "bench.h"

#include "lights/light_loop.h"
#include "lights/light_map.h"
#include "lights/skydome.h"
#include "options.h"
#include "rv_lights.h"
#include "rv_msg.h"
#include "rv_rays.h"
#include "rv_render.h"
#include "rv_universe.h"
#include "thread_slot.h"

#include <OpenImageIO/imagebufalgo.h>
#include <cmath>
#include <filesystem>
#include <numbers>
#include <random>
#include <thread>
#include <unistd.h>

namespace {

constexpr double pi = std::numbers::pi;
constexpr int resolution = 1000;

void require(bool is_true, const char* what)
{
    if (is_true)
        return;
    fprintf(stderr, "light_bench: %s\n", what);
    exit(1);
}

// ---- A sky in memory ----

constexpr int map_width = 2048, map_height = 1024;

// As of the unit direction towards it.
constexpr RtVector sun = { 0.48f, 0.64f, 0.6f };

// Blue above, dark below, some clouds, and a sun of 0.53 degrees that gives half as much light as
// all the rest.
RtRGB skyAt(const RtVector& d)
{
    const float cos_sun = std::cos(0.265f * float(pi) / 180);
    const float up = 0.5f + 0.5f * d.y;
    const float clouds = 0.1f * std::sin(12 * d.x + 3 * d.z) * std::sin(9 * d.z - d.y);
    RtRGB color = { 0.2f + 0.3f * up + clouds, 0.25f + 0.4f * up + clouds, 0.3f + 0.7f * up };
    if (rv::dot(d, sun) > cos_sun)
        color = rv::operator+(color, rv::grey(60000));
    return color;
}

std::vector<RtRGB> makeMap()
{
    std::vector<RtRGB> map;
    for (int y = 0; y < map_height; ++y)
        for (int x = 0; x < map_width; ++x) {
            // The inverse of the mapping of directions to latitude and longitude.
            const double phi = (0.5 - (x + 0.5) / map_width) * 2 * pi;
            const double theta = (1 - (y + 0.5) / map_height) * pi;
            map.push_back(skyAt({ float(-std::sin(phi) * std::sin(theta)), float(std::cos(theta)),
                                  float(std::cos(phi) * std::sin(theta)) }));
        }
    return map;
}

std::vector<RtRGB> map;

RtRGB pixelAt(int x, int y)
{
    return map[size_t(std::clamp(y, 0, map_height - 1) * map_width + (x + map_width) % map_width)];
}

RtRGB bilinear(float u, float v)
{
    using rv::operator+, rv::operator*;
    const float x = u * map_width - 0.5f, y = v * map_height - 0.5f;
    const float left = std::floor(x), top = std::floor(y), fx = x - left, fy = y - top;
    const int i = int(left), j = int(top);
    return (pixelAt(i, j) * (1 - fx) + pixelAt(i + 1, j) * fx) * (1 - fy) +
           (pixelAt(i, j + 1) * (1 - fx) + pixelAt(i + 1, j + 1) * fx) * fy;
}

// The mean over the footprint, as texture systems give it.
void lookUp(RtNode*, RtShaderGlobals* sg)
{
    using rv::operator+, rv::operator*;
    constexpr float steps[] = { -1 / 3.0f, 0, 1 / 3.0f };
    RtRGB sum = RV_RGB_BLACK;
    for (const float x : steps)
        for (const float y : steps)
            sum = sum + bilinear(sg->u + x * sg->dudx + y * sg->dudy,
                                 sg->v + x * sg->dvdx + y * sg->dvdy);
    sg->out.RGB = sum * (1 / 9.0f);
}

// The map as a file, which goes with the object.
class MapFile {
public:
    MapFile()
        : path(std::filesystem::temp_directory_path() /
               ("light_bench_" + std::to_string(getpid()) + ".tx"))
    {
        OIIO::ImageBuf image(OIIO::ImageSpec(map_width, map_height, 3, OIIO::TypeDesc::FLOAT));
        image.set_pixels(image.roi(), OIIO::TypeDesc::FLOAT, map.data());
        require(OIIO::ImageBufAlgo::make_texture(OIIO::ImageBufAlgo::MakeTxTexture, image, path,
                                                 OIIO::ImageSpec()),
                "the map cannot be written");
    }
    ~MapFile() { std::filesystem::remove(path); }
    MapFile(const MapFile&) = delete;
    MapFile& operator=(const MapFile&) = delete;

    const std::string path;
};

RtNode* makeImageShader(const std::string& file)
{
    RtNode* const image = RvNode("image");
    RvNodeSetStr(image, "filename", file.c_str());
    return image;
}

RtNode* makeMapShader()
{
    static const RtCommonMethods common = {};
    static const RtShaderMethods shader = { .Evaluate = lookUp };
    static const RtNodeMethods methods = { &common, &shader };
    RvNodeInstall(RV_NODE_SHADER, RV_TYPE_RGB, "memory_map", "", &methods, RV_VERSION);
    return RvNode("memory_map");
}

// ---- Points that are lit ----

// A surface, on a thread of its own.
struct Surface {
    Surface(const RtPoint& point, const RtVector& normal, int thread = 0)
    {
        sg.state = &state;
        rv::resetState(&state, nullptr);
        rv::resetContext(&sg);
        sg.point = point;
        sg.normal = sg.facing_normal = sg.geometric_normal = sg.facing_geometric_normal = normal;
        sg.thread_index = uint8_t(thread);
        sg.lights = RvUniverseGetLights();
        sg.light_count = RvUniverseGetNumLights();
    }
    ~Surface() { RvMemPoolReset(rv::the_frame->thread_slots[sg.thread_index].shading_pool); }
    Surface(const Surface&) = delete;
    Surface& operator=(const Surface&) = delete;

    // Reflected light of one sample of the only light.
    double reflected(float u, float v)
    {
        sg.state->lights.point->sample = { u, v };
        if (!rv::lightData(sg.light)->methods->LightSample(sg.light, &sg))
            return 0;
        const float cosine = std::max(0.0f, rv::dot(sg.light_dir, sg.facing_normal));
        return double(sg.light_radiance.g) * double(sg.light_weight) * double(cosine);
    }

    RtShadingState state;
    RtShaderGlobals sg;
};

void prepareScene()
{
    require(RvRender(RV_RENDER_MODE_SETUP) == RV_SUCCESS, "the scene cannot be prepared");
}

struct Moments {
    double mean, variance;
};

template <class Sample> Moments momentsOf(int samples, Sample sample)
{
    std::mt19937 random(1);
    std::uniform_real_distribution<float> uniform(0, 0.9999999f);
    double sum = 0, squares = 0;
    for (int i = 0; i < samples; ++i) {
        const float u = uniform(random), v = uniform(random);
        const double x = sample(u, v);
        sum += x;
        squares += x * x;
    }
    const double mean = sum / samples;
    return { mean, squares / samples - mean * mean };
}

// ---- Tables ----

// All threads come to need the table at once.
double buildSeconds(int threads)
{
    RvUniverseCacheFlush(0x8);
    const double time = bench::seconds([&] {
        std::vector<std::thread> workers;
        for (int t = 0; t < threads; ++t)
            workers.emplace_back([t] {
                rv::stats_slot = t;
                Surface surface({ 0, 0, 0 }, { 0, 1, 0 }, t);
                RvLightsPrepare(&surface.sg);
                require(surface.sg.state->lights.count > 0, "the sky is black");
            });
        for (std::thread& worker : workers)
            worker.join();
    });
    return time;
}

void measureTable(bench::Report& figures, const bench::Options& options, const char* source)
{
    double single = 0;
    for (const int threads : { 1, std::max(2, options.threads) }) {
        const double ms = 1e3 * bench::median(options.runs, [&] { return buildSeconds(threads); });
        const std::string name =
            std::string("light.skydome.table.") + source + "." + std::to_string(threads) + "t";
        if (threads == 1)
            figures.add(name, single = ms, "ms");
        else
            figures.addTimeWithPeer(name, ms, "ms", "one thread", single);
    }
}

// Of uniform directions, by a grid over the sphere: random ones would hardly ever meet the sun.
Moments uniformMoments(RtNode* sky, Surface* surface)
{
    constexpr int n = 3000;
    double sum = 0, squares = 0;
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < n; ++i) {
            const RtVector d = rv::skyDirection((float(i) + 0.5f) / n, (float(j) + 0.5f) / n);
            RtRay ray;
            RvMakeRay(&ray, RV_RAY_GLOSSY, &surface->sg.point, &d, 1e12, &surface->sg);
            const float cosine = rv::dot(d, surface->sg.facing_normal);
            if (cosine <= 0)
                continue;
            rv::lightData(sky)->methods->LightIntersect(sky, &surface->sg, &ray);
            const double x = double(surface->sg.light_radiance.g * cosine) * 4 * pi;
            sum += x;
            squares += x * x;
        }
    const double mean = sum / (double(n) * n);
    return { mean, squares / (double(n) * n) - mean * mean };
}

RtNode* makeSky(RtNode* shader)
{
    RtNode* const sky = RvNode("skydome_light");
    RvNodeSetInt(sky, "resolution", resolution);
    RvNodeSetStr(sky, "format", "latlong");
    RvNodeLink(shader, "color", sky);
    prepareScene();
    return sky;
}

void measureNoise(bench::Report& figures, RtNode* sky)
{
    constexpr int count = 2000000;
    Surface surface({ 0, 0, 0 }, { 0, 1, 0 });
    RvLightsPrepare(&surface.sg);
    require(RvLightsGetSample(&surface.sg), "the sky has no samples");
    Moments table;
    const double time = bench::seconds([&] {
        table = momentsOf(count, [&](float u, float v) { return surface.reflected(u, v); });
    });
    figures.add("light.skydome.sample_time", 1e9 * time / count, "ns");
    const Moments uniform = uniformMoments(sky, &surface);
    figures.add("light.skydome.irradiance", table.mean, "by the table");
    figures.add("light.skydome.irradiance_uniform", uniform.mean, "by uniform directions");
    figures.addTimeWithPeer("light.skydome.variance", table.variance, "of one sample", "uniform",
                            uniform.variance);
}

void measureSkies(bench::Report& figures, const bench::Options& options)
{
    const MapFile file;
    RvBegin();
    makeSky(makeImageShader(file.path));
    measureTable(figures, options, "file");
    RvEnd();

    RvBegin();
    RtNode* const sky = makeSky(makeMapShader());
    measureTable(figures, options, "memory");
    measureNoise(figures, sky);
    RvEnd();
}

// ---- Quads ----

Moments quadMoments(bool by_angle, const RtPoint& p, const RtVector& normal)
{
    RtNode* const quad = RvNode("quad_light");
    RvNodeSetBool(quad, "umbrate", by_angle);
    RvNodeSetBool(quad, "normalize", false);
    RtNode* const decay = RvNode("light_decay");
    RvNodeSetStr(decay, "decay_type", "quadratic");
    RvNodeSetArray(quad, "filters", RvArray(1, 1, RV_TYPE_NODE, decay));
    prepareScene();
    Surface surface(p, normal);
    RvLightsPrepare(&surface.sg);
    require(RvLightsGetSample(&surface.sg), "the quad has no samples");
    return momentsOf(1000000, [&](float u, float v) { return surface.reflected(u, v); });
}

void measureQuads(bench::Report& figures)
{
    const struct {
        const char* name;
        RtPoint p;
        RtVector normal;
    } places[] = { { "near", { 0.4f, 0, -0.3f }, { 0, 0, 1 } },
                   { "beside", { 3, 0.5f, -0.5f }, { -0.8f, 0, 0.6f } },
                   { "far", { 1, 2, -8 }, { 0, 0, 1 } } };
    for (const auto& place : places) {
        double noise[2] = {};
        for (const bool by_angle : { false, true }) {
            RvBegin();
            RvMsgSetConsoleFlags(0);
            const Moments m = quadMoments(by_angle, place.p, place.normal);
            noise[by_angle] = 100 * std::sqrt(m.variance) / m.mean;
            RvEnd();
        }
        figures.addTimeWithPeer(std::string("light.quad.noise.umbrate.") + place.name, noise[1],
                                "% of one sample", "area", noise[0]);
    }
}

} // namespace

int main(int argc, char** argv)
{
    const bench::Options options = bench::parseOptions(argc, argv);
    bench::Report figures(options);
    map = makeMap();
    measureSkies(figures, options);
    measureQuads(figures);
    return 0;
}
