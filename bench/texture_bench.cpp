// Question: how many lookups a second does RvTextureAccess reach beside the texture system of the
// image library called directly with the same options, by the name of the file and by its handle?
//
// One tiled texture with MIP levels, all in the cache; every thread walks along lines as the pixels
// of a row do, with footprints from below a texel to many. Then many small textures by name, a
// different one with every lookup, and lookups outside of a render, where each looks at the
// options. Ours and the peers take turns.
#include "bench.h"

#include "frame.h"
#include "options.h"
#include "render_session.h"
#include "rv.h"
#include "rv_node.h"
#include "rv_rays.h"
#include "rv_textures.h"
#include "texture.h"

#include <OpenImageIO/imagebufalgo.h>
#include <OpenImageIO/texture.h>
#include <atomic>
#include <filesystem>
#include <random>
#include <thread>
#include <unistd.h>

using OIIO::TextureOpt;
using OIIO::TextureSystem;

static constexpr int lookup_count = 200000; // of one thread in one run

static std::string makeTexture(int side, int number)
{
    OIIO::ImageBuf image(OIIO::ImageSpec(side, side, 3, OIIO::TypeDesc::UINT8));
    std::mt19937 random(3);
    for (int y = 0; y < side; ++y)
        for (int x = 0; x < side; ++x) {
            const float grey = float(random() % 256) / 255;
            const float pixel[3] = { grey, float(x) / float(side), float(y) / float(side) };
            image.setpixel(x, y, pixel);
        }
    const std::string path =
        std::filesystem::temp_directory_path() /
        ("texture_bench_" + std::to_string(getpid()) + "_" + std::to_string(number) + ".tx");
    if (!OIIO::ImageBufAlgo::make_texture(OIIO::ImageBufAlgo::MakeTxTexture, image, path,
                                          OIIO::ImageSpec())) {
        fprintf(stderr, "cannot write %s\n", path.c_str());
        exit(1);
    }
    return path;
}

static std::vector<RtShaderGlobals> makeWalk(unsigned seed, int ray_type)
{
    std::vector<RtShaderGlobals> walk(4096);
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> place(0, 1), exponent(-12, -5), stretch(-1, 2);
    RtShaderGlobals sg = {};
    for (size_t i = 0; i < walk.size(); ++i) {
        if (i % 64 == 0) {
            sg.ray_type = uint16_t(ray_type);
            sg.u = place(random);
            sg.v = place(random);
            sg.dudx = exp2f(exponent(random));
            sg.dvdy = sg.dudx * exp2f(stretch(random));
            sg.dvdx = 0.3f * sg.dvdy;
        }
        sg.u += sg.dudx;
        sg.v += sg.dvdx;
        walk[i] = sg;
    }
    return walk;
}

static TextureOpt lookupOptions(const RtShaderGlobals& sg, const RtOptions& options)
{
    TextureOpt opt;
    opt.swrap = opt.twrap = TextureOpt::WrapPeriodic;
    opt.fill = 1;
    opt.conservative_filter = options.texture_conservative_lookups;
    if (sg.ray_type & RV_RAY_DIFFUSE) {
        opt.mipmode = TextureOpt::MipModeOneLevel;
        opt.interpmode = TextureOpt::InterpClosest;
        opt.sblur = opt.tblur = options.texture_diffuse_blur;
    } else if (sg.ray_type & RV_RAY_GLOSSY) {
        opt.mipmode = TextureOpt::MipModeTrilinear;
        opt.interpmode = TextureOpt::InterpBilinear;
        opt.sblur = opt.tblur = options.texture_glossy_blur;
    }
    return opt;
}

// Lookups a second of all threads together: look(sg) returns a colour.
template <class MakeLook> static double rate(int threads, int ray_type, MakeLook makeLook)
{
    std::atomic<bool> go = false;
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t)
        workers.emplace_back([&, t] {
            const std::vector<RtShaderGlobals> walk = makeWalk(unsigned(t + 1), ray_type);
            auto look = makeLook();
            float sum = 0;
            for (const RtShaderGlobals& sg : walk)
                sum += look(sg).r; // fills the caches
            while (!go)
                std::this_thread::yield();
            for (int i = 0; i < lookup_count; ++i)
                sum += look(walk[size_t(i) % walk.size()]).r;
            bench::consume(sum);
        });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const double time = bench::seconds([&] {
        go = true;
        for (std::thread& worker : workers)
            worker.join();
    });
    return threads * double(lookup_count) / time;
}

// What is asked, each a maker of lookups for one thread. All take the files in turn.
using Paths = std::vector<std::string>;

static auto ours(const Paths& paths)
{
    return [&paths] {
        RtTextureParams params;
        RvTextureParamsSetDefaults(&params);
        return [&paths, params, i = size_t(0)](const RtShaderGlobals& sg) mutable {
            i = i + 1 < paths.size() ? i + 1 : 0;
            return RvTextureAccess(&sg, paths[i].c_str(), &params);
        };
    };
}

static auto libraryByName(TextureSystem* system, const Paths& paths)
{
    return [system, &paths] {
        const std::vector<OIIO::ustring> names(paths.begin(), paths.end());
        return [system, names, i = size_t(0)](const RtShaderGlobals& sg) mutable {
            i = i + 1 < names.size() ? i + 1 : 0;
            TextureOpt opt = lookupOptions(sg, *rv::render_options);
            RtRGBA c;
            system->texture(names[i], opt, sg.u, 1 - sg.v, sg.dudx, -sg.dvdx, sg.dudy, -sg.dvdy, 4,
                            &c.r);
            return c;
        };
    };
}

static auto libraryByHandle(TextureSystem* system, const std::string& path)
{
    return [system, &path] {
        TextureSystem::Perthread* const perthread = system->get_perthread_info();
        TextureSystem::TextureHandle* const handle =
            system->get_texture_handle(OIIO::ustring(path), perthread);
        return [system, perthread, handle](const RtShaderGlobals& sg) {
            TextureOpt opt = lookupOptions(sg, *rv::render_options);
            RtRGBA c;
            system->texture(handle, perthread, opt, sg.u, 1 - sg.v, sg.dudx, -sg.dvdx, sg.dudy,
                            -sg.dvdy, 4, &c.r);
            return c;
        };
    };
}

struct Case {
    const char* name;
    int ray_type;
    bool is_rendering = true; // as on the threads of a render
};

// By the handle too when there is one file.
static void measure(bench::Report& figures, const Paths& paths, int threads, int runs,
                    const Case& what)
{
    TextureSystem* const system = TextureSystem::create(true);
    std::vector<double> rates[3];
    const auto run = [&](int who, auto makeLook) {
        rates[who].push_back(rate(threads, what.ray_type, makeLook) * 1e-6);
    };
    for (int i = 0; i < runs; ++i) {
        rv::the_frame->session->rendering = what.is_rendering;
        run(0, ours(paths));
        run(1, libraryByName(system, paths));
        run(2, libraryByHandle(system, paths[0]));
    }
    rv::the_frame->session->rendering = false;
    for (std::vector<double>& r : rates)
        std::sort(r.begin(), r.end());
    const size_t middle = size_t(runs) / 2;
    const std::string figure =
        std::string("texture.") + what.name + "." + std::to_string(threads) + "t";
    figures.addRateWithPeer(figure, rates[0][middle], "M lookups/s", "OpenImageIO by name",
                            rates[1][middle]);
    if (paths.size() == 1)
        figures.addRateWithPeer(figure + ".handle", rates[0][middle], "M lookups/s",
                                "OpenImageIO by handle", rates[2][middle]);
    TextureSystem::destroy(system);
}

int main(int argc, char** argv)
{
    const bench::Options options = bench::parseOptions(argc, argv);
    bench::Report figures(options);
    const Paths one = { makeTexture(2048, 0) };
    Paths many;
    for (int i = 1; i <= 500; ++i)
        many.push_back(makeTexture(32, i));
    const Paths some(many.begin(), many.begin() + 100);
    RvBegin();
    RvNodeSetInt(RvUniverseGetOptions(), "texture_max_open_files", 1000); // for both alike
    rv::applyTextureOptions();
    const struct {
        const Paths& paths;
        Case what;
    } cases[] = {
        { one, { "camera", RV_RAY_CAMERA } },
        { one, { "diffuse", RV_RAY_DIFFUSE } },
        { one, { "glossy", RV_RAY_GLOSSY } },
        { one, { "diffuse.outside_render", RV_RAY_DIFFUSE, false } },
        { some, { "diffuse.100_files", RV_RAY_DIFFUSE } },
        { many, { "diffuse.500_files", RV_RAY_DIFFUSE } },
    };
    for (int threads : { 1, std::max(2, options.threads) })
        for (const auto& c : cases)
            measure(figures, c.paths, threads, options.runs, c.what);
    RvEnd();
    for (const Paths& paths : { one, many })
        for (const std::string& path : paths)
            std::filesystem::remove(path);
    return 0;
}
