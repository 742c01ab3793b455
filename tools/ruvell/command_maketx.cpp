// `ruvell maketx`: makes tiled, MIP-mapped textures of images, with the image library's own maker.
#include "command.h"
#include "outputs.h"
#include "report.h"
#include "safe.h"
#include "signals.h"

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>
#include <csignal>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace ruvell {

namespace fs = std::filesystem;
using OIIO::ImageBufAlgo::MakeTextureMode;

namespace {

struct MaketxSettings {
    std::vector<std::string> inputs;
    std::string output;
    std::string wrap = "black";
    std::string filter = "box";
    std::string format;
    int tile = 64;
    bool is_environment = false;
    bool fix_nan = false;
    bool update = false;
    bool is_quiet = false;
    SafetySettings safety;
};

} // namespace

static MaketxSettings settings;

static void setup(CLI::App& app)
{
    app.add_option("IN", settings.inputs, "The images to make textures of")
        ->required()
        ->type_name("");
    app.add_option(
           "-o,--output", settings.output,
           "The texture to write, for one image; otherwise beside each image, ending in .tx")
        ->type_name("OUT");
    app.add_option("--wrap", settings.wrap,
                   "What lookups with the wrap \"file\" see beyond the edges")
        ->check(CLI::IsMember({ "black", "clamp", "periodic", "mirror" }))
        ->capture_default_str();
    app.add_option("--filter", settings.filter, "The filter that makes the smaller levels")
        ->check(CLI::IsMember({ "box", "triangle", "lanczos3" }))
        ->capture_default_str();
    app.add_option("--format", settings.format,
                   "The type of the pixels: uint8, uint16, half or float (default: as the image)")
        ->check(CLI::IsMember({ "uint8", "uint16", "half", "float" }));
    app.add_option("--tile", settings.tile, "The side of the tiles in pixels")
        ->check(CLI::IsMember({ 16, 32, 64, 128, 256, 512 }))
        ->capture_default_str();
    app.add_flag("--env", settings.is_environment,
                 "The image is a latitude-longitude environment map: its poles are blended");
    app.add_flag("--fix-nan", settings.fix_nan,
                 "Replace pixels that are not finite by their neighbours");
    app.add_flag("-u,--update", settings.update,
                 "Leave a texture alone that is newer than its image");
    app.add_flag("-q,--quiet", settings.is_quiet, "Do not list the textures that were written");
    addSafeFlag(app, settings.safety);
}

// The file itself, where a link leads to it, so that the link stays.
static std::string textureName(const std::string& input)
{
    const fs::path path = settings.output.empty() ? fs::path(input).replace_extension(".tx")
                                                  : fs::path(settings.output);
    std::error_code error;
    const bool is_link = fs::is_symlink(path, error);
    const fs::path target = is_link ? fs::weakly_canonical(path, error) : path;
    return (error ? path : target).string();
}

static bool isUpToDate(const std::string& input, const std::string& output)
{
    std::error_code error;
    const auto made = fs::last_write_time(output, error);
    if (error)
        return false;
    const auto changed = fs::last_write_time(input, error);
    return !error && changed <= made;
}

static OIIO::ImageSpec configuration()
{
    OIIO::ImageSpec config;
    config.tile_width = config.tile_height = settings.tile;
    config.attribute("wrapmodes", settings.wrap + "," + settings.wrap);
    config.attribute("maketx:filtername", settings.filter);
    config.attribute("maketx:fixnan", settings.fix_nan ? "box3" : "none");
    if (!settings.format.empty())
        config.set_format(OIIO::TypeDesc(settings.format));
    return config;
}

// The first line of what the maker has to say, which may be many of a kind.
static std::string firstLine(const std::string& text)
{
    const size_t start = text.find_first_not_of(" \n");
    return start == std::string::npos ? "" : text.substr(start, text.find('\n', start) - start);
}

// Makes the texture under another name; what is wrong, or nothing.
static std::string make(const std::string& input, const std::string& part)
{
    OIIO::ImageBuf image(input);
    if (!image.read())
        return firstLine(image.geterror());
    if (image.spec().width < 1 || image.spec().height < 1)
        return "the image has no pixels";
    const MakeTextureMode mode = settings.is_environment ? OIIO::ImageBufAlgo::MakeTxEnvLatl
                                                         : OIIO::ImageBufAlgo::MakeTxTexture;
    OIIO::ImageSpec config = configuration();
    if (settings.format.empty())
        config.set_format(image.nativespec().format);
    std::ostringstream messages;
    if (OIIO::ImageBufAlgo::make_texture(mode, image, part, config, &messages))
        return "";
    const std::string text = firstLine(OIIO::geterror() + "\n" + messages.str());
    return text.empty() ? "the texture could not be written" : text;
}

// What the names of unfinished files begin with.
static std::string unfinishedPrefix() { return ".ruvell-" + std::to_string(getpid()) + "-"; }

// Beside the output, so that it can take its place in one step. Its extension tells the maker the
// format of the file.
static std::string partName(const std::string& output)
{
    const fs::path path(output);
    return (path.parent_path() / (unfinishedPrefix() + path.filename().string())).string();
}

// The maker has a file of its own beside the part, whose name only begins as we know.
static void removeUnfinished()
{
    std::error_code error;
    for (const std::string& input : settings.inputs) {
        const fs::path folder = fs::absolute(textureName(input), error).parent_path();
        for (const fs::directory_entry& entry : fs::directory_iterator(folder, error))
            if (entry.path().filename().string().rfind(unfinishedPrefix(), 0) == 0)
                fs::remove(entry.path(), error);
    }
}

// Waits for the signals that end the command in a thread of its own, where files can be removed.
// Call it before there are other threads.
static void removeUnfinishedOnSignals()
{
    const sigset_t signals = stopSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::thread([signals] {
        int number = 0;
        sigwait(&signals, &number);
        removeUnfinished();
        leave(exit_signal + number);
    }).detach();
}

// True once the texture is in its place, whole; an older one stays as it was until then.
static bool makeTexture(const std::string& input, const std::string& output)
{
    const std::string part = partName(output);
    std::string problem;
    try {
        problem = make(input, part);
    } catch (const std::exception& e) {
        problem = e.what();
    }
    if (problem.empty() && std::rename(part.c_str(), output.c_str()) != 0)
        problem = "cannot write " + output;
    if (problem.empty())
        return true;
    unlink(part.c_str());
    reportError(input + ": " + problem);
    return false;
}

// Neither the image itself nor something that could not be put aside is overwritten.
static bool checkFiles(const std::string& input, const std::string& output)
{
    std::error_code error;
    if (!fs::exists(input, error)) {
        reportError(input + ": no such file");
        return false;
    }
    if (!fs::is_regular_file(input, error)) {
        reportError(input + ": not a file");
        return false;
    }
    if (fs::equivalent(input, output, error)) {
        reportError(input + ": the texture would overwrite its image");
        return false;
    }
    if (fs::exists(output, error) && !fs::is_regular_file(output, error)) {
        reportError(output + ": not a file that a texture could replace");
        return false;
    }
    return checkImageFile(output);
}

static bool process(const std::string& input)
{
    const std::string output = textureName(input);
    if (!checkFiles(input, output))
        return false;
    if (settings.update && isUpToDate(input, output))
        return true;
    if (!makeTexture(input, output))
        return false;
    if (!settings.is_quiet)
        std::printf("%s\n", output.c_str());
    std::fflush(stdout);
    return true;
}

static int run(CLI::App&)
{
    if (!settings.output.empty() && settings.inputs.size() > 1) {
        reportError("--output names one texture, but there are several images");
        return exit_usage;
    }
    std::map<std::string, std::string> images; // of each texture
    for (const std::string& input : settings.inputs) {
        const auto [place, is_new] = images.emplace(textureName(input), input);
        if (!is_new) {
            reportError(place->second + " and " + input + " would both become " + place->first);
            return exit_usage;
        }
    }
    TrustedPaths trusted;
    trusted.read = settings.inputs;
    for (const std::string& input : settings.inputs)
        trusted.written.push_back(textureName(input));
    confineWithoutScenes(settings.safety, trusted);
    removeUnfinishedOnSignals();
    bool has_failed = false;
    for (const std::string& input : settings.inputs)
        has_failed |= !process(input);
    return has_failed ? exit_failure : exit_success;
}

const Command command_maketx = {
    .name = "maketx",
    .summary = "Make tiled, MIP-mapped textures of images",
    .setup = setup,
    .run = run,
    .footer = "Examples:\n"
              "  ruvell maketx textures/*.png\n"
              "  ruvell maketx --env --format half studio.hdr -o studio.tx",
};

} // namespace ruvell
